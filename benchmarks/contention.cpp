// SPDX-License-Identifier: Apache-2.0
// Eight processes that change one registry as fast as they get at it: the store, and the discipline
// under a lock that serves them in the order of their coming.
#include <linux/futex.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <climits>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <new>

#include "benchmarks/floor.h"
#include "benchmarks/library.h"
#include "benchmarks/raw_files.h"
#include "benchmarks/session.h"
#include "benchmarks/shapes.h"

namespace vrxbench {
namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned kProcesses = 8;
constexpr unsigned long kRecords = 1000;
constexpr unsigned kMostUpdates = 64;  // of one process in one round

double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

// Serves processes in the order in which they have drawn their tickets.
class TicketLock {
 public:
  void lock() {
    const unsigned mine = next_.fetch_add(1);
    for (unsigned now = serving_.load(); now != mine; now = serving_.load())
      (void)syscall(SYS_futex, &serving_, FUTEX_WAIT, now, nullptr, nullptr, 0);  // looked at again
  }
  void unlock() {
    serving_.fetch_add(1);
    (void)syscall(SYS_futex, &serving_, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
  }

 private:
  std::atomic<unsigned> next_{0};
  std::atomic<unsigned> serving_{0};
};

// What the processes have in common.
struct Shared {
  TicketLock fair;
  std::atomic<unsigned> arrived{0};
  double seconds[kProcesses][kMostUpdates];  // of each update
};

class SharedMemory {
 public:
  SharedMemory() {
    void* memory =
        mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    require(memory != MAP_FAILED, "no shared memory");
    shared_ = new (memory) Shared;
  }
  ~SharedMemory() { (void)munmap(shared_, sizeof(Shared)); }  // only memory is lost by a failure
  SharedMemory(const SharedMemory&) = delete;
  SharedMemory& operator=(const SharedMemory&) = delete;
  Shared& operator*() { return *shared_; }

 private:
  Shared* shared_;
};

// Changes record `number` into this form.
using Change = std::function<void(Shared&, unsigned long number, Form form)>;

struct Updater {
  std::string name;
  std::string file;
  Durability durability;
  Change change;
  Contention result;
  std::vector<double> latencies;
};

void contend(Shared& shared, const Updater& updater, unsigned process, unsigned updates) {
  shared.arrived.fetch_add(1);
  while (shared.arrived.load() < kProcesses)
    (void)sched_yield();  // always succeeds
  for (unsigned i = 0; i < updates; ++i) {
    const Clock::time_point start = Clock::now();
    updater.change(shared, process, i % 2 == 0 ? Form::kSecond : Form::kFirst);
    shared.seconds[process][i] = secondsSince(start);
  }
}

pid_t startProcess(Shared& shared, const Updater& updater, unsigned process, unsigned updates) {
  const pid_t child = fork();
  require(child >= 0, "no process");
  if (child != 0) return child;
  contend(shared, updater, process, updates);
  _exit(0);
}

// An even number of updates turns every record back into what it was.
void runRound(Updater& updater, unsigned updates) {
  SharedMemory shared;
  std::vector<pid_t> children;
  const Clock::time_point start = Clock::now();
  for (unsigned process = 0; process < kProcesses; ++process)
    children.push_back(startProcess(*shared, updater, process, updates));
  for (const pid_t child : children) {
    int status = -1;
    require(waitpid(child, &status, 0) == child && status == 0,
            updater.name + ": a process failed");
  }
  updater.result.rates.push_back(kProcesses * updates / secondsSince(start));
  for (unsigned process = 0; process < kProcesses; ++process)
    updater.latencies.insert(updater.latencies.end(), (*shared).seconds[process],
                             (*shared).seconds[process] + updates);
}

std::vector<Updater> makeUpdaters(const std::string& folder, Durability durability) {
  const std::string raw = folder + "/discipline.reg";
  const std::string registry = folder + "/store.reg";
  const std::string operation =
      durability == Durability::kSynced ? "change durable" : "change unsynced";
  const Change byDiscipline = [=](Shared& shared, unsigned long number, Form form) {
    static Buffers buffers;
    const Edit edit = {Action::kChange, packedKey(number), frameOf(number, form)};
    shared.fair.lock();
    disciplineUpdate<FrameShape>(buffers, raw, edit, durability);
    shared.fair.unlock();
  };
  const Change byStore = [=](Shared&, unsigned long number, Form form) {
    setDurability(durability);
    store::update(registry, Action::kChange, number, form);
  };
  const auto contention = [&](const char* name) {
    return Contention{name, operation, kRecords, kProcesses, {}, 0, 0};
  };
  return {{"discipline", raw, durability, byDiscipline, contention("discipline"), {}},
          {"store", registry, durability, byStore, contention("store"), {}}};
}

std::string fillRegistry() {
  std::string bytes;
  for (unsigned long number = 0; number < kRecords; ++number)
    bytes += frameOf(number, Form::kFirst);
  return bytes;
}

// Whether every record stands in its place as it was filled in. Their missing masks may differ: the
// store states in a record that it copies what that lacks.
bool isWhole(std::string_view file) {
  unsigned long number = 0;
  bool whole = true;
  visitItems<FrameShape>(file, [&](std::string_view frame) {
    ImageFields fields;
    whole = whole && readFields(FrameShape::imageOf(frame), fields) &&
            fields.name == instanceName(number) && fields.comment == comment(Form::kFirst);
    ++number;
  });
  return whole && number == kRecords;
}

double percentile(std::vector<double> values, double part) {
  std::sort(values.begin(), values.end());
  return values[static_cast<std::size_t>(part * static_cast<double>(values.size() - 1))];
}

void measureOne(Session& session, const std::string& folder, Durability durability) {
  const unsigned rounds = session.quick ? 1 : 7;
  const unsigned updates = session.quick ? 8 : kMostUpdates;
  std::vector<Updater> updaters = makeUpdaters(folder, durability);
  const std::string& operation = updaters[0].result.operation;
  if (!session.wants("contention", operation, kRecords)) return;
  std::fprintf(stderr, "contention, %s, %lu\n", operation.c_str(), kRecords);
  const std::string bytes = fillRegistry();
  for (const Updater& updater : updaters)
    writeFile(updater.file, bytes);
  for (unsigned round = 0; round < rounds; ++round) {
    for (Updater& updater : updaters)
      runRound(updater, updates);
  }
  Buffer buffer;
  for (Updater& updater : updaters) {
    require(isWhole(buffer.read(updater.file)), updater.name + ": an update was lost");
    updater.result.median = percentile(updater.latencies, 0.5);
    updater.result.percentile99 = percentile(updater.latencies, 0.99);
    session.contentions.push_back(updater.result);
  }
}

}  // namespace

void measureContention(Session& session) {
  const std::string folder = session.makeFolder("contention");
  measureOne(session, folder, Durability::kUnsynced);
  measureOne(session, folder, Durability::kSynced);
  std::filesystem::remove_all(folder);
}

}  // namespace vrxbench
