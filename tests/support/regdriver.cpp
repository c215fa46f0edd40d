// SPDX-License-Identifier: Apache-2.0
// A program for the tests that need a registry used by a process of its own: one that is killed,
// whose system calls fail, or that was built for another word size. It uses the public headers only
// and works on the global registry that VRX_GLOBAL_REG_PATHNAME names, or with --format and --file
// on a file of another format; --sync chooses the sync policy. `regdriver` alone tells its
// commands. What is right and wrong is for the tests to say: nothing is judged here. The formats
// stand in any_registry.cpp, the global records' texts in record_text.cpp, the updates of many
// writers in tests/concurrency.
#include <dirent.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "globalreg/global_reg.h"
#include "platform/osse/files.h"
#include "platform/osse/log.h"
#include "platform/osse/memory.h"
#include "tests/concurrency/workload.h"
#include "tests/support/any_registry.h"
#include "tests/support/record_text.h"

namespace {

using vrxtest::AnyRegistry;
using vrxtest::parseNumber;
using vrxtest::parseRecord;
using vrxtest::printRecord;
using Words = std::vector<std::string>;

enum ExitStatus : int { kDone = 0, kRefused = 1, kBadUsage = 2 };

constexpr unsigned kIgnored = 0;

// What --format and --file say.
const vrxtest::Format* format = vrxtest::findFormat("global");
std::string file;

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
  std::shared_ptr<void> key;
  std::shared_ptr<void> record;
};

std::shared_ptr<void> parseWords(const Words& words, std::size_t first, std::size_t last) {
  return format->parse({words.begin() + static_cast<std::ptrdiff_t>(first),
                        words.begin() + static_cast<std::ptrdiff_t>(last)});
}

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
    update.record = parseWords(words, first + 2, last);
  } else if (verb == "delete") {
    update.mode = kGenRegDelete;
    update.key = parseWords(words, first + 2, last);
  } else if (verb == "change") {
    const std::size_t divider = positionOf(words, "--", first);
    if (divider >= last) badUsage("change takes a key, -- and a record");
    update.mode = kGenRegChange;
    update.key = parseWords(words, first + 2, divider);
    update.record = parseWords(words, divider + 1, last);
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

// Makes the updates with one object. The first one's system calls stand between the marks; those of
// the object's destruction as well, when it is the only one.
void performAll(AnyRegistry& registry, std::vector<Update>& updates, std::vector<int>& results) {
  for (std::size_t i = 0; i < updates.size(); ++i) {
    Update& update = updates[i];
    unsigned status = registry.constructed();
    if (status == 0) {
      status = registry.update(update.mode, update.mask, update.key.get(), update.record.get());
    }
    results[i] = static_cast<int>(status);
    if (i == 0 && updates.size() > 1) mark(kEnd);
  }
}

int runUpdates(const Words& words) {
  std::vector<Update> updates = parseUpdates(words);
  std::vector<int> results(updates.size());
  const std::function<void(AnyRegistry&)> work = [&](AnyRegistry& registry) {
    performAll(registry, updates, results);
  };
  const int descriptors = openDescriptors();
  const unsigned long blocks = ossMemLiveBlocks();
  mark(kBegin);
  format->use(file.data(), work);
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

using Visit = void (*)(void* record);

// Visits every record of the registry and reports the status that ended the scan, 0 for its end.
unsigned scan(AnyRegistry& registry, Visit visit) {
  const std::shared_ptr<void> key = format->blank();
  const std::shared_ptr<void> record = format->blank();
  unsigned status = registry.constructed();
  if (status == 0) status = registry.openScan();
  if (status != 0) return status;
  while ((status = registry.next(key.get(), record.get())) == 0)
    visit(record.get());
  const unsigned closed = registry.closeScan();
  return status == genreg::status::end_of_registry ? closed : status;
}

int reportScan(Visit visit) {
  unsigned status = 0;
  format->use(file.data(), [&](AnyRegistry& registry) { status = scan(registry, visit); });
  return report(static_cast<int>(status));
}

int runList(const Words&) {
  return reportScan([](void* record) { format->print(record); });
}

int runDump(const Words&) {
  return reportScan([](void* record) { (void)GlobalReg::PrintRecord(record); });
}

// Each time that a line comes in: lists the registry, then makes the update, and ends the answer
// with a line ".". Whoever has thousands of registries to look at puts one after the other in its
// place.
int runRounds(const Words& words) {
  Update update = parseUpdate(words, 1, words.size());
  char line[8];
  while (std::fgets(line, sizeof line, stdin) != nullptr) {
    unsigned status = 0;
    format->use(file.data(), [&](AnyRegistry& registry) {
      status = scan(registry, [](void* record) { format->print(record); });
    });
    (void)report(static_cast<int>(status));  // printed; the exit status is of no update
    format->use(file.data(), [&](AnyRegistry& registry) {
      status = registry.constructed();
      if (status != 0) return;
      status = registry.update(update.mode, update.mask, update.key.get(), update.record.get());
    });
    (void)report(static_cast<int>(status));  // as above
    std::puts(".");
    std::fflush(stdout);
  }
  return kDone;
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

enum class Reach { kEveryFormat, kGlobalOnly };

struct Command {
  Reach reach;
  const char* name;
  int (*run)(const Words& words);
  const char* help;
};

constexpr Command kCommands[] = {
    {Reach::kEveryFormat, "add", runUpdates, "add MASK RECORD... [++ UPDATE...]"},
    {Reach::kEveryFormat, "change", runUpdates, "change MASK KEY... -- RECORD... [++ UPDATE...]"},
    {Reach::kEveryFormat, "delete", runUpdates, "delete MASK KEY... [++ UPDATE...]"},
    {Reach::kGlobalOnly, "get", runGet, "get MASK KEY..."},
    {Reach::kEveryFormat, "rounds", runRounds, "rounds UPDATE (list and update for each line)"},
    {Reach::kEveryFormat, "list", runList, "list"},
    {Reach::kGlobalOnly, "dump", runDump, "dump"},
    {Reach::kGlobalOnly, "hold", runHold, "hold exclusive|shared (until standard input ends)"},
    {Reach::kGlobalOnly, "trylock", runTryLock,
     "trylock exclusive|shared (the same, without waiting)"},
    {Reach::kGlobalOnly, "loop", runLoop, "loop WRITER COUNT [acknowledge]"},
    {Reach::kGlobalOnly, "threads", runThreads, "threads WRITERS COUNT"},
    {Reach::kGlobalOnly, "watch", runWatch, "watch WRITERS COUNT (until standard input ends)"},
};

int usage() {
  std::fprintf(stderr,
               "[--sync none|standard|full] [--format FORMAT --file PATH] COMMAND; RECORD and KEY "
               "by format:\n");
  vrxtest::visitFormats([](const vrxtest::Format& each) {
    std::fprintf(stderr, "  %s: %s\n", each.name, each.fields);
  });
  for (const Command& command : kCommands) {
    const bool global = command.reach == Reach::kGlobalOnly;
    std::fprintf(stderr, "  %s%s\n", command.help, global ? "  (global registry only)" : "");
  }
  return kBadUsage;
}

void setSyncPolicy(const std::string& name) {
  if (name == "none") return ossSetSyncPolicy(OSSSyncPolicy::none);
  if (name == "standard") return ossSetSyncPolicy(OSSSyncPolicy::standard);
  if (name == "full") return ossSetSyncPolicy(OSSSyncPolicy::full);
  badUsage("no such sync policy: " + name);
}

// Takes --sync POLICY, --format FORMAT and --file PATH off the front of the words.
void takeOptions(Words* words) {
  while (words->size() > 1 && words->front().rfind("--", 0) == 0) {
    const std::string option = words->front();
    const std::string value = (*words)[1];
    words->erase(words->begin(), words->begin() + 2);
    if (option == "--file") {
      file = value;
    } else if (option == "--sync") {
      setSyncPolicy(value);
    } else if (option == "--format") {
      format = vrxtest::findFormat(value);
      if (format == nullptr) badUsage("no such format: " + value);
    } else {
      badUsage("no such option: " + option);
    }
  }
}

int run(const Words& words) {
  const bool global = format == vrxtest::findFormat("global");
  for (const Command& command : kCommands) {
    if (words[0] != command.name) continue;
    return global || command.reach == Reach::kEveryFormat ? command.run(words) : usage();
  }
  return usage();
}

}  // namespace

int main(int argc, char** argv) {
  Words words(argv + 1, argv + argc);
  if (std::getenv("REGDRIVER_LOG") != nullptr) (void)ossSetLogCallback(keepEntry, nullptr);
  try {
    takeOptions(&words);
    return words.empty() ? usage() : run(words);
  } catch (const std::exception& error) {
    badUsage(error.what());
  }
}
