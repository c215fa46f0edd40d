// SPDX-License-Identifier: Apache-2.0
// Many writers and readers of one registry at once, in all formats: no acknowledged update is lost,
// no reader sees a torn or half-old list, no lock stays behind, nobody waits for long. Every figure
// is printed as N/N. It also shows itself runs that are broken on purpose, and has to find fault.
//
//     contention_check SCENE [--NAME VALUE]...
//
// Works on a registry in --folder, which it empties first, and on the fixed paths of the host: run
// it where these are private (run_contention.py does).
#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <new>
#include <string>
#include <thread>

#include "platform/osse/files.h"
#include "tests/concurrency/crew.h"
#include "tests/concurrency/lock_waits.h"
#include "tests/support/campaign.h"

namespace vrxtest {
namespace {

using std::string;
namespace fs = std::filesystem;

constexpr unsigned kRounds = 3;  // of fairness

struct Options {
  std::vector<string> formats;  // all when none is named
  string folder = "/tmp/contention";
  string sync = "none";
  unsigned long writers = 8;
  unsigned long updates = 50;
  unsigned long readers = 4;
  unsigned long pace = 0;     // milliseconds between deaths, 0 for none
  unsigned long deaths = 10;  // of lock holders
  unsigned long limit = 0;    // microseconds that a wait or an update may take, 0 for any
  unsigned long seed = 1;
};

// Counts what was looked at and what was good, and prints it.
class Check {
 public:
  // Names what the figures from here on are of.
  void begin(const string& scope) { scope_ = scope; }
  void figure(const string& what, unsigned long good, unsigned long every) {
    std::printf("  %-56s%lu/%lu\n", (scope_ + ": " + what).c_str(), good, every);
    (void)std::fflush(stdout);  // a figure that cannot be shown is missed by whoever looks for it
    findings_ += good != every || every == 0 ? 1 : 0;
  }
  void fact(const string& what, bool holds) { figure(what, holds ? 1 : 0, 1); }
  unsigned findings() const { return findings_; }

 private:
  string scope_;
  unsigned findings_ = 0;
};

// --- the registry's folder

string registryIn(const Options& options) {
  return options.folder + "/reg";
}

void cleanStart(const Options& options) {
  fs::remove_all(options.folder);
  fs::create_directories(options.folder);
}

bool isLocked(const string& path) {
  const int descriptor = open(path.c_str(), O_RDWR | O_CLOEXEC);
  struct flock whole {};
  whole.l_type = F_WRLCK;
  whole.l_whence = SEEK_SET;
  const bool asked = descriptor >= 0 && fcntl(descriptor, F_OFD_GETLK, &whole) == 0;
  if (descriptor >= 0) (void)close(descriptor);  // it holds nothing
  return !asked || whole.l_type != F_UNLCK;
}

// Whether nothing stands there but what updates leave, those that were killed included.
bool onlyDocumentedFiles(const Options& options, bool deaths) {
  std::vector<string> known = {"reg", ".reg.lock"};
  if (deaths) known.insert(known.end(), {"reg.tmp", "reg.cor", ".reg.bkp"});
  for (const fs::directory_entry& entry : fs::directory_iterator(options.folder)) {
    const string name = entry.path().filename().string();
    if (std::find(known.begin(), known.end(), name) == known.end()) return false;
  }
  return true;
}

// --- judging

struct Totals {
  unsigned long acknowledged = 0;
  unsigned long failures = 0;
  unsigned long foundMade = 0;
  unsigned long foundUnmade = 0;
  unsigned long lost = 0;
  unsigned firstFailure = 0;
};

// Sums the writers' pages, with what the registry lacks now.
Totals totalsOf(const Arena& arena, const Listing& last) {
  Totals totals;
  for (unsigned writer = 0; writer < arena.writers; ++writer) {
    const WriterPage& page = arena.ledger->writers[writer];
    totals.acknowledged += page.acknowledged;
    totals.failures += page.failures;
    totals.foundMade += page.foundMade;
    totals.foundUnmade += page.foundUnmade;
    if (totals.firstFailure == 0) totals.firstFailure = page.firstFailure;
    Follower follower;
    follower.advance(page, page.ended);
    totals.lost += page.lost + differences(follower.standing(), last.standing[writer]);
  }
  return totals;
}

void judgeWriters(Check& check, const Arena& arena, const Totals& totals) {
  const unsigned long wanted = static_cast<unsigned long>(arena.writers) * arena.updates;
  check.figure("updates acknowledged", totals.acknowledged, wanted);
  check.figure("updates with status 0", totals.acknowledged, totals.acknowledged + totals.failures);
  if (totals.failures != 0) std::printf("    the first other: 0x%08X\n", totals.firstFailure);
  const unsigned long lost = std::min(totals.lost, totals.acknowledged);
  check.figure("acknowledged updates that stand", totals.acknowledged - lost, totals.acknowledged);
}

void judgeReaders(Check& check, const Ledger& ledger, unsigned readers) {
  if (readers == 0) return;
  unsigned long lists = 0, whole = 0, good = 0, records = 0, wholeRecords = 0, changes = 0;
  for (unsigned reader = 0; reader < readers; ++reader) {
    const ReaderPage& page = ledger.readers[reader];
    lists += page.lists;
    whole += page.wholeLists;
    good += page.goodLists;
    records += page.records;
    wholeRecords += page.wholeRecords;
    changes += page.changes;
  }
  check.figure("records read whole", wholeRecords, records);
  check.figure("lists complete, nothing twice", whole, lists);
  check.figure("lists of one moment, none of the past", good, lists);
  std::printf("    of them new %lu\n", changes);
}

void judgeOutcome(Check& check, const Outcome& outcome, const Totals& totals) {
  check.fact("progress all the time", !outcome.stuck);
  check.fact("no process ended unasked", outcome.crashes == 0);
  if (outcome.deaths == 0) return;
  check.figure("killed writers replaced", outcome.replaced, outcome.deaths);
  std::printf("    of them before a commit %lu, behind one %lu, with the lock %u\n",
              totals.foundUnmade, totals.foundMade, outcome.holders);
}

void judgeFiles(Check& check, const Options& options, bool deaths) {
  check.fact("lock free at the end", !isLocked(options.folder + "/.reg.lock"));
  check.fact("documented files only", onlyDocumentedFiles(options, deaths));
}

// --- scenes

std::vector<SignedFormat> chosenFormats(const Options& options) {
  std::vector<SignedFormat> chosen;
  for (const SignedFormat& format : signedFormats()) {
    const auto& names = options.formats;
    const bool named = std::find(names.begin(), names.end(), format.name) != names.end();
    if (named || names.empty()) chosen.push_back(format);
  }
  return chosen;
}

Arena arenaOf(const Options& options, const SignedFormat& format) {
  return {&format, registryIn(options), static_cast<unsigned>(options.writers),
          static_cast<unsigned>(options.updates), new (sharedMemory(sizeof(Ledger))) Ledger()};
}

void contend(Check& check, const Options& options, const SignedFormat& format) {
  check.begin(format.name);
  cleanStart(options);
  const Arena arena = arenaOf(options, format);
  const auto readers = static_cast<unsigned>(options.readers);
  std::printf("%s: %u processes x %u updates, %u readers, syncing %s\n", format.name, arena.writers,
              arena.updates, readers, options.sync.c_str());
  Crew crew(arena, readers);
  const Outcome outcome = crew.runWriters(Pace(options.pace), static_cast<unsigned>(options.seed));
  const bool readersEnded = crew.endReaders();
  const Totals totals = totalsOf(arena, listOf(arena));
  judgeWriters(check, arena, totals);
  check.fact("readers at their end", readersEnded);
  judgeReaders(check, *arena.ledger, readers);
  judgeOutcome(check, outcome, totals);
  judgeFiles(check, options, outcome.deaths > 0);
}

void contendThreads(Check& check, const Options& options, const SignedFormat& format) {
  check.begin(format.name);
  cleanStart(options);
  const Arena arena = arenaOf(options, format);
  const auto readers = static_cast<unsigned>(options.readers);
  std::printf("%s: %u threads x %u updates, %u readers\n", format.name, arena.writers,
              arena.updates, readers);
  std::vector<std::thread> writing;
  std::vector<std::thread> reading;
  for (unsigned reader = 0; reader < readers; ++reader)
    reading.emplace_back([&arena, reader] { readAll(arena, reader); });
  for (unsigned writer = 0; writer < arena.writers; ++writer)
    writing.emplace_back([&arena, writer] { writeAll(arena, writer); });
  for (std::thread& thread : writing)
    thread.join();
  arena.ledger->over = 1;
  for (std::thread& thread : reading)
    thread.join();
  judgeWriters(check, arena, totalsOf(arena, listOf(arena)));
  judgeReaders(check, *arena.ledger, readers);
  judgeFiles(check, options, false);
}

unsigned long percentile(const std::vector<unsigned long>& sorted, unsigned percent) {
  if (sorted.empty()) return 0;
  return sorted[(sorted.size() - 1) * percent / 100];
}

// What part of the times is held against the limit, and how it is called.
struct Measure {
  const char* what;
  unsigned percent;
};
constexpr Measure kUpdate = {"one update", 99};
constexpr Measure kWait = {"from the kill to the lock", 100};

// Prints the times; true when the part of them that counts is within the limit.
bool withinLimit(const Options& options, const Measure& measure,
                 std::vector<unsigned long> micros) {
  std::sort(micros.begin(), micros.end());
  std::printf("    %s, ms: median %.2f, 99th percentile %.2f, slowest %.2f\n", measure.what,
              static_cast<double>(percentile(micros, 50)) / 1000,
              static_cast<double>(percentile(micros, 99)) / 1000,
              static_cast<double>(percentile(micros, 100)) / 1000);
  if (options.limit == 0) return true;
  const auto within = std::upper_bound(micros.begin(), micros.end(), options.limit);
  std::printf("    %td of %zu within %lu us\n", within - micros.begin(), micros.size(),
              options.limit);
  return percentile(micros, measure.percent) < options.limit;
}

void judgeLimit(Check& check, const Options& options, const Measure& measure, bool within) {
  if (options.limit == 0) return;
  check.fact(std::to_string(measure.percent) + " % below " + std::to_string(options.limit) + " us",
             within);
}

// Everybody on the first two processors that there are.
void keepToTwoProcessors() {
  cpu_set_t allowed;
  cpu_set_t two;
  CPU_ZERO(&two);
  if (sched_getaffinity(0, sizeof allowed, &allowed) != 0) return;
  for (unsigned cpu = 0; cpu < CPU_SETSIZE && CPU_COUNT(&two) < 2; ++cpu) {
    if (CPU_ISSET(cpu, &allowed)) CPU_SET(cpu, &two);
  }
  (void)sched_setaffinity(0, sizeof two, &two);  // a part of what is allowed is never refused
}

// One round of contention: how long each update took.
std::vector<unsigned long> timesOfUpdates(Check& check, const Options& options,
                                          const SignedFormat& format) {
  cleanStart(options);
  const Arena arena = arenaOf(options, format);
  Crew crew(arena, 0);
  const Outcome outcome = crew.runWriters(Pace(0), 1);
  const Totals totals = totalsOf(arena, listOf(arena));
  judgeWriters(check, arena, totals);
  judgeOutcome(check, outcome, totals);
  std::vector<unsigned long> micros;
  for (unsigned writer = 0; writer < arena.writers; ++writer) {
    const WriterPage& page = arena.ledger->writers[writer];
    for (unsigned step = 1; step <= page.ended; ++step)
      micros.push_back(page.entries[step].micros);
  }
  return micros;
}

// What else the machine does makes updates slower, never faster: one round within the limit will
// do. Writers that starve the others do so in every round.
void contendFairly(Check& check, const Options& options, const SignedFormat& format) {
  check.begin(format.name);
  std::printf("%s: %lu processes x %lu updates on two processors\n", format.name, options.writers,
              options.updates);
  bool within = false;
  for (unsigned round = 0; round < kRounds && !within; ++round)
    within = withinLimit(options, kUpdate, timesOfUpdates(check, options, format));
  judgeLimit(check, options, kUpdate, within);
}

void killHolders(Check& check, const Options& options) {
  check.begin("holder killed");
  cleanStart(options);
  std::printf("a holder of the lock killed while another waits\n");
  std::vector<unsigned long> micros;
  for (const std::chrono::microseconds wait :
       waitsAfterDeaths(static_cast<unsigned>(options.deaths)))
    micros.push_back(static_cast<unsigned long>(wait.count()));
  check.figure("waiters that got the lock", micros.size(), options.deaths);
  judgeLimit(check, options, kWait, withinLimit(options, kWait, std::move(micros)));
}

// --- runs that are broken on purpose

constexpr unsigned kWitnesses = 2;

// What the judges say of a run.
struct Verdict {
  unsigned long lost = 0;
  unsigned long tornRecords = 0;
  unsigned long badLists = 0;
};

Verdict verdictOf(const Arena& arena, unsigned readers) {
  Verdict verdict;
  verdict.lost = totalsOf(arena, listOf(arena)).lost;
  for (unsigned reader = 0; reader < readers; ++reader) {
    const ReaderPage& page = arena.ledger->readers[reader];
    verdict.tornRecords += page.records - page.wholeRecords;
    verdict.badLists += page.lists - page.goodLists;
  }
  return verdict;
}

// Contends, and does something to the registry while the readers still read.
template <class Mischief>
Verdict spoil(const Options& options, const SignedFormat& format, unsigned readers,
              Mischief mischief) {
  cleanStart(options);
  const Arena arena = arenaOf(options, format);
  Crew crew(arena, readers);
  (void)crew.runWriters(Pace(0), 1);  // the verdict tells what there was
  mischief(registryIn(options));
  (void)crew.awaitLists();
  (void)crew.endReaders();
  return verdictOf(arena, readers);
}

// A reader opens either what stood there before or the whole of these.
void replaceBy(const string& path, const string& bytes) {
  const string copy = path + ".planted";
  putBytes(copy, bytes);
  fs::rename(copy, path);
}

// Of the last record the last byte, which belongs to its checksum's text.
void tear(const string& path) {
  string bytes = bytesAt(path);
  const std::size_t last = bytes.find_last_not_of('\n');
  bytes[last] = bytes[last] == '0' ? '1' : '0';
  replaceBy(path, bytes);
}

// As it would stand without the last update of a profile: without its last line.
void setBack(const string& path) {
  const string bytes = bytesAt(path);
  replaceBy(path, bytes.substr(0, bytes.rfind('\n', bytes.size() - 2) + 1));
}

// Takes the lock as an update does, and leaves a file that no update leaves.
void showLeftovers(Check& check, const Options& options) {
  const string lock = options.folder + "/.reg.lock";
  const int descriptor = open(lock.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  struct flock whole {};
  whole.l_type = F_WRLCK;
  whole.l_whence = SEEK_SET;
  const bool taken = descriptor >= 0 && fcntl(descriptor, F_OFD_SETLK, &whole) == 0;
  check.fact("lock left behind found", taken && isLocked(lock));
  if (descriptor >= 0) (void)close(descriptor);  // and the lock with it
  putBytes(options.folder + "/reg.old", "");
  check.fact("file left behind found", !onlyDocumentedFiles(options, true));
}

// Whoever is shown these and is content would be content with everything.
void showBrokenRuns(Check& check, const Options& options) {
  const SignedFormat profile = signedFormats()[1];
  check.begin("judge");
  std::printf("runs that are broken on purpose\n");
  const Verdict sound = spoil(options, profile, kWitnesses, [](const string&) {});
  check.fact("sound run without a finding",
             sound.lost == 0 && sound.tornRecords == 0 && sound.badLists == 0);
  const Verdict loose = spoil(options, unserialisedFormat(), 0, [](const string&) {});
  std::printf("    of updates that wait for nobody %lu lost\n", loose.lost);
  check.fact("unserialised updates found lost", loose.lost > 0);
  const Verdict torn = spoil(options, profile, kWitnesses, tear);
  check.fact("torn record found", torn.tornRecords > 0 && torn.badLists > 0);
  const Verdict old = spoil(options, profile, kWitnesses, setBack);
  check.fact("missing update found", old.lost == 1 && old.badLists > 0);
  showLeftovers(check, options);
}

// --- options

[[noreturn]] void badUsage(const string& what) {
  std::fprintf(stderr, "contention_check: %s\n", what.c_str());
  std::exit(2);
}

unsigned long numberOf(const string& text, unsigned long most) {
  char* end = nullptr;
  const unsigned long number = std::strtoul(text.c_str(), &end, 10);
  if (text.empty() || *end != '\0' || number > most) badUsage("bad number " + text);
  return number;
}

struct NumberOption {
  const char* name;
  unsigned long Options::*number;
  unsigned long most;
};

constexpr NumberOption kNumberOptions[] = {
    {"--writers", &Options::writers, kMostWriters}, {"--updates", &Options::updates, 2000},
    {"--readers", &Options::readers, kMostReaders}, {"--pace", &Options::pace, 60000},
    {"--deaths", &Options::deaths, 100000},         {"--limit", &Options::limit, 60000000},
    {"--seed", &Options::seed, 0xFFFFFFFFUL}};

void takeOption(const string& name, const string& value, Options* options) {
  for (const NumberOption& option : kNumberOptions) {
    if (name == option.name) options->*option.number = numberOf(value, option.most);
    if (name == option.name) return;
  }
  if (name == "--format") return options->formats.push_back(value);
  if (name == "--folder") return void(options->folder = value);
  if (name == "--sync") return void(options->sync = value);
  badUsage("no such option: " + name);
}

void setSyncPolicy(const string& name) {
  if (name == "none") return ossSetSyncPolicy(OSSSyncPolicy::none);
  if (name == "standard") return ossSetSyncPolicy(OSSSyncPolicy::standard);
  badUsage("no such sync policy: " + name);
}

using FormatScene = void (*)(Check& check, const Options& options, const SignedFormat& format);

void inEveryFormat(Check& check, const Options& options, FormatScene scene) {
  for (const SignedFormat& format : chosenFormats(options))
    scene(check, options, format);
}

int run(const string& scene, const Options& options) {
  Check check;
  setSyncPolicy(options.sync);
  (void)setenv("VRX_GLOBAL_REG_PATHNAME", registryIn(options).c_str(), 1);
  if (scene == "processes") {
    inEveryFormat(check, options, contend);
  } else if (scene == "threads") {
    inEveryFormat(check, options, contendThreads);
  } else if (scene == "fairness") {
    keepToTwoProcessors();
    inEveryFormat(check, options, contendFairly);
  } else if (scene == "deaths") {
    killHolders(check, options);
  } else if (scene == "broken") {
    showBrokenRuns(check, options);
  } else {
    badUsage("processes, threads, fairness, deaths, broken");
  }
  return check.findings() == 0 ? 0 : 1;
}

}  // namespace
}  // namespace vrxtest

int main(int argc, char** argv) {
  vrxtest::Options options;
  if (argc < 2 || argc % 2 != 0) vrxtest::badUsage("SCENE [--NAME VALUE]...");
  for (int i = 2; i < argc; i += 2)
    vrxtest::takeOption(argv[i], argv[i + 1], &options);
  return vrxtest::run(argv[1], options);
}
