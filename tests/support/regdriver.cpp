// SPDX-License-Identifier: Apache-2.0
// A program for the tests that need the global registry used by a process of its own: one that is
// killed, whose system calls fail, or that was built for another word size. It uses the public
// headers only and works on the registry that VRX_GLOBAL_REG_PATHNAME names; `regdriver` alone
// tells its commands. What is right and wrong is for the tests to say: nothing is judged here.
// The records' texts stand in record_text.cpp, the updates of many writers in tests/concurrency.
#include <dirent.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "globalreg/global_reg.h"
#include "platform/osse/log.h"
#include "platform/osse/memory.h"
#include "tests/concurrency/workload.h"
#include "tests/support/record_text.h"

namespace {

using vrxtest::parseNumber;
using vrxtest::parseRecord;
using vrxtest::printRecord;
using Words = std::vector<std::string>;

enum ExitStatus : int { kDone = 0, kRefused = 1, kBadUsage = 2 };

constexpr unsigned kIgnored = 0;

[[noreturn]] void badUsage(const std::string& what) {
  std::fprintf(stderr, "regdriver: %s\n", what.c_str());
  std::exit(kBadUsage);
}

int report(int status) {
  std::printf("status 0x%08X\n", static_cast<unsigned>(status));
  return status == 0 ? kDone : kRefused;
}

// Log entries are kept and printed at the end: printing them at once would put system calls of this
// program's between those of the library's.
struct KeptEntry {
  unsigned code;
  unsigned inner;
};
KeptEntry keptEntries[64];
unsigned keptCount = 0;

void keepEntry(const OSSLogEntry* entry, void*) {
  if (keptCount == sizeof keptEntries / sizeof keptEntries[0]) return;
  keptEntries[keptCount++] = {entry->code, entry->inner};
}

void printKeptEntries() {
  for (unsigned i = 0; i < keptCount; ++i) {
    std::printf("log 0x%08X 0x%08X\n", keptEntries[i].code, keptEntries[i].inner);
  }
}

// Tells whoever traces this process where the library's system calls begin and end: the path cannot
// exist, and is easily seen in a trace.
void mark(const char* place) {
  (void)access(place, F_OK);  // fails, as it should
}
constexpr char kBegin[] = "/regdriver/begin";
constexpr char kEnd[] = "/regdriver/end";

int openDescriptors() {
  DIR* folder = opendir("/proc/self/fd");
  if (folder == nullptr) return -1;
  int count = 0;
  while (readdir(folder) != nullptr)
    ++count;
  closedir(folder);
  return count;
}

// One update: add MASK RECORD..., change MASK KEY... -- RECORD..., delete MASK KEY...
struct Update {
  unsigned mode = 0;
  unsigned long long mask = 0;
  GlobalRegRecord key{};
  GlobalRegRecord record{};
};

GlobalRegRecord recordOf(const Words& words, std::size_t first, std::size_t last) {
  GlobalRegRecord record{};
  std::string problem;
  if (!parseRecord({words.begin() + static_cast<std::ptrdiff_t>(first),
                    words.begin() + static_cast<std::ptrdiff_t>(last)},
                   &record, &problem)) {
    badUsage(problem);
  }
  return record;
}

std::size_t positionOf(const Words& words, const char* word, std::size_t from) {
  while (from < words.size() && words[from] != word)
    ++from;
  return from;
}

// Reads one update from words[first] to words[last].
Update parseUpdate(const Words& words, std::size_t first, std::size_t last) {
  if (last < first + 3) badUsage("an update takes a mask and a record");
  Update update;
  const std::string& verb = words[first];
  if (!parseNumber(words[first + 1], &update.mask)) badUsage("bad mask " + words[first + 1]);
  if (verb == "add") {
    update.mode = kGenRegAdd;
    update.record = recordOf(words, first + 2, last);
  } else if (verb == "delete") {
    update.mode = kGenRegDelete;
    update.key = recordOf(words, first + 2, last);
  } else if (verb == "change") {
    const std::size_t divider = positionOf(words, "--", first);
    if (divider >= last) badUsage("change takes a key, -- and a record");
    update.mode = kGenRegChange;
    update.key = recordOf(words, first + 2, divider);
    update.record = recordOf(words, divider + 1, last);
  } else {
    badUsage("no update: " + verb);
  }
  return update;
}

std::vector<Update> parseUpdates(const Words& words) {
  std::vector<Update> updates;
  for (std::size_t first = 0; first < words.size();) {
    const std::size_t last = positionOf(words, "++", first);
    updates.push_back(parseUpdate(words, first, last));
    first = last + 1;
  }
  return updates;
}

int perform(GlobalReg& registry, Update& update) {
  if (update.mode == kGenRegAdd) return registry.Add(update.mask, &update.record);
  if (update.mode == kGenRegDelete) return registry.Delete(update.mask, &update.key);
  return registry.Change(update.mask, &update.key, &update.record);
}

// Makes the updates with one object. The first one's system calls stand between the marks; those of
// the object's destruction as well, when it is the only one.
void performAll(std::vector<Update>& updates, std::vector<int>& results) {
  GlobalReg registry;
  for (std::size_t i = 0; i < updates.size(); ++i) {
    results[i] = perform(registry, updates[i]);
    if (i == 0 && updates.size() > 1) mark(kEnd);
  }
}

int runUpdates(const Words& words) {
  std::vector<Update> updates = parseUpdates(words);
  std::vector<int> results(updates.size());
  const int descriptors = openDescriptors();
  const unsigned long blocks = ossMemLiveBlocks();
  mark(kBegin);
  performAll(updates, results);
  mark(kEnd);
  std::printf("left descriptors %d blocks %ld\n", openDescriptors() - descriptors,
              static_cast<long>(ossMemLiveBlocks() - blocks));
  printKeptEntries();
  int exitStatus = kDone;
  for (const int result : results)
    exitStatus = report(result);
  return exitStatus;
}

// get MASK KEY...
int runGet(const Words& words) {
  unsigned long long mask = 0;
  if (words.size() < 3 || !parseNumber(words[1], &mask)) badUsage("get takes a mask and a key");
  GlobalRegRecord key = recordOf(words, 2, words.size());
  GlobalRegRecord found{};
  GlobalReg registry;
  const int status = registry.Get(mask, &key, &found);
  if (status == 0) printRecord(found);
  return report(status);
}

using Visit = void (*)(GlobalRegRecord& record);

// Visits every record of the registry and reports the status that ended the scan, 0 for its end.
int scan(Visit visit) {
  GlobalReg registry;
  GlobalRegRecord key{};
  GlobalRegRecord record{};
  int status = static_cast<int>(registry.OpenScan());
  if (status != 0) return report(status);
  while ((status = registry.GetNext(0, &key, &record)) == 0)
    visit(record);
  const int closed = static_cast<int>(registry.CloseScan());
  const bool ended = static_cast<unsigned>(status) == genreg::status::end_of_registry;
  return report(ended ? closed : status);
}

int runList(const Words&) {
  return scan([](GlobalRegRecord& record) { printRecord(record); });
}

int runDump(const Words&) {
  return scan([](GlobalRegRecord& record) { (void)GlobalReg::PrintRecord(&record); });
}

// Waits until whoever started this process closes its standard input.
void awaitEndOfInput() {
  char ignored = 0;
  while (read(STDIN_FILENO, &ignored, 1) > 0) {
  }
}

unsigned lockType(const Words& words) {
  if (words.size() == 2 && words[1] == "exclusive") return kGenRegLockExclusive;
  if (words.size() == 2 && words[1] == "shared") return kGenRegLockShared;
  badUsage("a lock is exclusive or shared");
}

// Takes the lock, reports, and holds it until standard input ends.
int holdLock(const Words& words, unsigned wait) {
  const unsigned flags = lockType(words) | wait | kGenRegLockCreateDirectory;
  GlobalReg registry;
  const int status = static_cast<int>(registry.Lock(flags, kIgnored));
  const int exitStatus = report(status);
  std::fflush(stdout);
  if (status != 0) return exitStatus;
  awaitEndOfInput();
  return report(static_cast<int>(registry.UnLock()));
}

int runHold(const Words& words) {
  return holdLock(words, kGenRegLockWait);
}

int runTryLock(const Words& words) {
  return holdLock(words, kGenRegLockNoWait);
}

unsigned countOf(const Words& words, std::size_t index) {
  unsigned long long count = 0;
  if (index >= words.size() || !parseNumber(words[index], &count) || count > 1000000) {
    badUsage(words[0] + ": bad number");
  }
  return static_cast<unsigned>(count);
}

int runLoop(const Words& words) {
  const bool tells = words.size() > 3 && words[3] == "acknowledge";
  return vrxtest::runWriter(countOf(words, 1), countOf(words, 2),
                            tells ? vrxtest::Progress::kTold : vrxtest::Progress::kSilent);
}

int runThreads(const Words& words) {
  return vrxtest::runWriterThreads(countOf(words, 1), countOf(words, 2));
}

int runWatch(const Words& words) {
  return vrxtest::runWatcher(countOf(words, 1), countOf(words, 2));
}

struct Command {
  const char* name;
  int (*run)(const Words& words);
  const char* help;
};

constexpr Command kCommands[] = {
    {"add", runUpdates, "add MASK RECORD... [++ UPDATE...]"},
    {"change", runUpdates, "change MASK KEY... -- RECORD... [++ UPDATE...]"},
    {"delete", runUpdates, "delete MASK KEY... [++ UPDATE...]"},
    {"get", runGet, "get MASK KEY..."},
    {"list", runList, "list"},
    {"dump", runDump, "dump"},
    {"hold", runHold, "hold exclusive|shared (until standard input ends)"},
    {"trylock", runTryLock, "trylock exclusive|shared (the same, without waiting)"},
    {"loop", runLoop, "loop WRITER COUNT [acknowledge]"},
    {"threads", runThreads, "threads WRITERS COUNT"},
    {"watch", runWatch, "watch WRITERS COUNT (until standard input ends)"},
};

int usage() {
  std::fprintf(stderr, "RECORD and KEY: instance|service|variable NAME=VALUE...\n");
  for (const Command& command : kCommands)
    std::fprintf(stderr, "  %s\n", command.help);
  return kBadUsage;
}

int run(const Words& words) {
  for (const Command& command : kCommands) {
    if (words[0] == command.name) return command.run(words);
  }
  return usage();
}

}  // namespace

int main(int argc, char** argv) {
  const Words words(argv + 1, argv + argc);
  if (words.empty()) return usage();
  if (std::getenv("REGDRIVER_LOG") != nullptr) (void)ossSetLogCallback(keepEntry, nullptr);
  try {
    return run(words);
  } catch (const std::exception& error) {
    badUsage(error.what());
  }
}
