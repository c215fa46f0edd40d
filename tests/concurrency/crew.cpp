// SPDX-License-Identifier: Apache-2.0
// Starting, killing, replacing and awaiting the processes.
#include "tests/concurrency/crew.h"

#include <sched.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <system_error>

namespace vrxtest {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds kPatience(60000);
constexpr milliseconds kTick(50);
constexpr unsigned kLooks = 20;  // for the holder of the lock
constexpr milliseconds kBetweenLooks(1);

// Children's ends wait to be asked for; their stops are not told.
void holdBackChildSignal() {
  struct sigaction quiet {};
  quiet.sa_handler = SIG_DFL;
  quiet.sa_flags = SA_NOCLDSTOP;
  (void)sigaction(SIGCHLD, &quiet, nullptr);  // these arguments are never refused
  sigset_t child;
  sigemptyset(&child);
  sigaddset(&child, SIGCHLD);
  (void)sigprocmask(SIG_BLOCK, &child, nullptr);  // nor are these
}

// Waits for the end of a child, or that long.
void awaitChild(Clock::duration length) {
  sigset_t child;
  sigemptyset(&child);
  sigaddset(&child, SIGCHLD);
  const auto left = std::max(Clock::duration::zero(), length);
  const auto nanos = std::chrono::duration_cast<std::chrono::nanoseconds>(left).count();
  timespec limit{};
  limit.tv_sec = static_cast<std::time_t>(nanos / 1000000000);
  limit.tv_nsec = static_cast<long>(nanos % 1000000000);
  (void)sigtimedwait(&child, nullptr, &limit);  // what has ended is for waitpid to say
}

// Whether one of the process's open files is locked exclusively: of files that are locked by what
// is open, the system's list of locks does not tell the process.
bool holdsLock(pid_t process) {
  std::error_code gone;
  const std::string folder = "/proc/" + std::to_string(process) + "/fdinfo";
  for (std::filesystem::directory_iterator entry(folder, gone), end; !gone && entry != end;
       entry.increment(gone)) {
    std::ifstream file(entry->path());
    for (std::string line; std::getline(file, line);) {
      if (line.rfind("lock:", 0) == 0 && line.find(" WRITE ") != std::string::npos) return true;
    }
  }
  return false;
}

// While it lives, this process runs as soon as it wants to, where the system allows that. Otherwise
// it would run when a writer leaves it the processor, and that is always between two updates.
class Precedence {
 public:
  Precedence() {
    sched_param urgent{};
    urgent.sched_priority = 1;
    // Without it fewer die in the middle of an update; children are as they were.
    (void)sched_setscheduler(0, SCHED_FIFO | SCHED_RESET_ON_FORK, &urgent);
  }
  ~Precedence() {
    const sched_param usual{};
    (void)sched_setscheduler(0, SCHED_OTHER, &usual);  // nothing else is asked of it then
  }
  Precedence(const Precedence&) = delete;
  Precedence& operator=(const Precedence&) = delete;
};

unsigned long long nextOf(unsigned long long chance) {
  return chance * 6364136223846793005ULL + 1442695040888963407ULL;
}

}  // namespace

pid_t inProcess(const std::function<void()>& body) {
  (void)std::fflush(nullptr);  // else the child would print it, too
  const pid_t process = fork();
  if (process < 0) {
    std::perror("fork");
    std::exit(2);
  }
  if (process > 0) return process;
  (void)prctl(PR_SET_PDEATHSIG, SIGKILL);  // nobody outlives a campaign that is interrupted
  body();
  _exit(0);
}

void* sharedMemory(std::size_t size) {
  void* const memory =
      mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory != MAP_FAILED) return memory;
  std::perror("shared memory");
  std::exit(2);
}

char stateOf(pid_t process) {
  std::ifstream file("/proc/" + std::to_string(process) + "/stat");
  std::string text;
  std::getline(file, text);
  const std::size_t name = text.rfind(") ");
  return name != std::string::npos && name + 2 < text.size() ? text[name + 2] : '\0';
}

Crew::Crew(const Arena& arena, unsigned readers)
    : arena_(arena), writers_(arena.writers, -1), deaths_(arena.writers, 0) {
  holdBackChildSignal();
  for (unsigned reader = 0; reader < readers; ++reader)
    readers_.push_back(inProcess([&] { readAll(arena_, reader); }));
}

void Crew::startWriter(unsigned writer) {
  writers_[writer] = inProcess([this, writer] { writeAll(arena_, writer); });
}

unsigned Crew::running() const {
  return static_cast<unsigned>(
      std::count_if(writers_.begin(), writers_.end(), [](pid_t process) { return process > 0; }));
}

unsigned Crew::ended() const {
  unsigned steps = 0;
  for (unsigned writer = 0; writer < arena_.writers; ++writer)
    steps += arena_.ledger->writers[writer].ended;
  return steps;
}

void Crew::reap(Outcome* outcome) {
  for (unsigned writer = 0; writer < writers_.size(); ++writer) {
    int status = 0;
    if (!runs(writer) || waitpid(writers_[writer], &status, WNOHANG) != writers_[writer]) continue;
    writers_[writer] = -1;
    if (status != 0) {
      ++outcome->crashes;
    } else {
      outcome->replaced += deaths_[writer];
    }
  }
}

// Somebody who runs, or the number of writers when nobody does any more.
unsigned Crew::anyWriter() {
  chance_ = nextOf(chance_);
  const auto count = static_cast<unsigned>(writers_.size());
  const unsigned first = static_cast<unsigned>(chance_ >> 33) % count;
  for (unsigned i = 0; i < count; ++i) {
    if (runs((first + i) % count)) return (first + i) % count;
  }
  return count;
}

void Crew::signalWriters(int signal) const {
  for (const pid_t process : writers_) {
    if (process > 0) (void)kill(process, signal);  // it may just have ended
  }
}

// Whoever has the lock, or the number of writers when nobody was met with it. A lock is held too
// shortly to be looked for while everybody runs.
unsigned Crew::lockHolder() {
  const auto count = static_cast<unsigned>(writers_.size());
  unsigned holder = count;
  for (unsigned look = 0; look < kLooks && holder == count && running() > 0; ++look) {
    signalWriters(SIGSTOP);
    for (unsigned writer = 0; writer < count && holder == count; ++writer) {
      if (runs(writer) && holdsLock(writers_[writer])) holder = writer;
    }
    if (holder < count) (void)kill(writers_[holder], SIGKILL);  // which ends stopped ones, too
    signalWriters(SIGCONT);
    if (holder == count) awaitChild(kBetweenLooks);
  }
  return holder;
}

// By turns the holder of the lock and anybody: of many who contend, nearly all wait for it.
void Crew::killOne(Outcome* outcome) {
  const bool wantsHolder = outcome->deaths % 2 == 0;
  unsigned writer = wantsHolder ? lockHolder() : anyWriter();
  const bool holder = wantsHolder && writer < writers_.size();
  if (wantsHolder && !holder) writer = anyWriter();
  if (writer == writers_.size()) return;
  int status = 0;
  (void)kill(writers_[writer], SIGKILL);  // it may just have ended
  (void)waitpid(writers_[writer], &status, 0);
  writers_[writer] = -1;
  if (!WIFSIGNALED(status)) {
    outcome->replaced += deaths_[writer];
    return;
  }
  ++outcome->deaths;
  outcome->holders += holder ? 1 : 0;
  ++deaths_[writer];
  startWriter(writer);
}

Outcome Crew::runWriters(Pace pace, unsigned seed) {
  Outcome outcome;
  chance_ = nextOf(seed);
  for (unsigned writer = 0; writer < arena_.writers; ++writer)
    startWriter(writer);
  const bool kills = pace > Pace::zero();
  std::optional<Precedence> precedence;
  if (kills) precedence.emplace();
  Clock::time_point nextDeath = Clock::now() + pace;
  unsigned endedBefore = 0;
  progressed_ = Clock::now();
  while (running() > 0) {
    awaitChild(kills ? nextDeath - Clock::now() : kTick);
    reap(&outcome);
    if (kills && Clock::now() >= nextDeath) {
      // On a machine with much else to do, starting a writer takes longer than the pace: without an
      // update between two deaths none would ever be made.
      if (ended() > endedBefore) killOne(&outcome);
      endedBefore = ended();
      nextDeath = Clock::now() + pace;
    }
    if (isStuck()) {
      outcome.stuck = true;
      signalWriters(SIGKILL);
    }
  }
  return outcome;
}

bool Crew::isStuck() {
  const Clock::time_point now = Clock::now();
  if (ended() != progress_) {
    progress_ = ended();
    progressed_ = now;
  }
  return now - progressed_ > kPatience;
}

bool Crew::awaitLists() const {
  std::vector<unsigned> before;
  for (std::size_t reader = 0; reader < readers_.size(); ++reader)
    before.push_back(arena_.ledger->readers[reader].lists);
  const Clock::time_point limit = Clock::now() + kPatience;
  for (std::size_t reader = 0; reader < readers_.size();) {
    if (arena_.ledger->readers[reader].lists >= before[reader] + 2) ++reader;
    if (Clock::now() > limit) return false;
    awaitChild(kBetweenLooks);
  }
  return true;
}

bool Crew::endReaders() {
  arena_.ledger->over = 1;
  bool good = true;
  for (const pid_t process : readers_) {
    int status = 0;
    good = waitpid(process, &status, 0) == process && status == 0 && good;
  }
  return good;
}

}  // namespace vrxtest
