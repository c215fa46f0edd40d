// SPDX-License-Identifier: Apache-2.0
// The writers and the watcher.
#include "tests/concurrency/workload.h"

#include <poll.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "globalreg/global_reg.h"

namespace vrxtest {
namespace {

constexpr unsigned kKeptEvery = 4;
constexpr unsigned long long kVersion = 0x0003000100000007ULL;
constexpr char kService[] = "CopyOne";

bool isKept(unsigned number) {
  return number % kKeptEvery == 0;
}

template <std::size_t width>
void setText(char (&field)[width], const std::string& text) {
  std::snprintf(field, width, "%s", text.c_str());
}

std::string nameOf(unsigned writer, unsigned number) {
  return "w" + std::to_string(writer) + "-" + std::to_string(number);
}

GlobalRegRecord keyOf(unsigned writer, unsigned number) {
  GlobalRegRecord record{};
  record.RecordType = kGlobalRegInstance;
  record.FieldMask = kInstanceKey;
  setText(record.Instance.Service, kService);
  record.Instance.VersionCode = kVersion;
  setText(record.Instance.InstanceName, nameOf(writer, number));
  return record;
}

// The record in its first or second form. Forms and numbers differ in length, so that records never
// fall into the places of others.
GlobalRegRecord recordOf(unsigned writer, unsigned number, unsigned form) {
  GlobalRegRecord record = keyOf(writer, number);
  const std::string sign = nameOf(writer, number) + "/form" + std::to_string(form);
  const std::size_t length = (number * 7 + form * 31) % 100;
  record.FieldMask |= kInstancePath | kInstanceUsage | kInstanceStartAtBoot | kInstanceComment;
  setText(record.Instance.InstancePath, "/home/" + sign);
  setText(record.Instance.Usage, sign);
  record.Instance.StartAtBoot = form;
  setText(record.Instance.Comment, sign + std::string(length, '.'));
  return record;
}

// What one writer has done so far.
struct Tally {
  unsigned updates = 0;
  unsigned failures = 0;
  unsigned first = 0;

  void count(int status) {
    ++updates;
    if (status == 0) return;
    if (failures++ == 0) first = static_cast<unsigned>(status);
  }
};

using Told = std::function<void(unsigned)>;

Tally write(unsigned writer, unsigned count, const Told& told) {
  Tally tally;
  GlobalReg registry;
  const auto made = [&](int status) {
    tally.count(status);
    if (status == 0 && told) told(tally.updates);
  };
  for (unsigned i = 0; i < count; ++i) {
    GlobalRegRecord record = recordOf(writer, i, 0);
    made(registry.Add(kInstanceKey, &record));
  }
  for (unsigned i = 0; i < count; ++i) {
    GlobalRegRecord key = keyOf(writer, i);
    GlobalRegRecord record = recordOf(writer, i, 1);
    made(registry.Change(kInstanceKey, &key, &record));
  }
  for (unsigned i = 0; i < count; ++i) {
    if (isKept(i)) continue;
    GlobalRegRecord key = keyOf(writer, i);
    made(registry.Delete(kInstanceKey, &key));
  }
  return tally;
}

int reportTally(const Tally& tally) {
  std::printf("updates %u failures %u first 0x%08X\n", tally.updates, tally.failures, tally.first);
  return tally.failures == 0 ? 0 : 1;
}

// One system call, so that what was told is told when the process is killed.
void tell(unsigned updates) {
  const std::string line = std::to_string(updates) + "\n";
  (void)!::write(STDOUT_FILENO, line.data(), line.size());  // nobody may be listening
}

enum class Form : unsigned char { kAbsent, kFirst, kSecond };

// The forms of one writer's records, by number.
using Forms = std::vector<Form>;

// What stands after `updates` updates of a writer with `count` records.
Forms formsAfter(unsigned updates, unsigned count) {
  Forms forms(count, Form::kAbsent);
  for (unsigned i = 0; i < count && updates > 0; ++i, --updates)
    forms[i] = Form::kFirst;
  for (unsigned i = 0; i < count && updates > 0; ++i, --updates)
    forms[i] = Form::kSecond;
  for (unsigned i = 0; i < count && updates > 0; ++i) {
    if (isKept(i)) continue;
    forms[i] = Form::kAbsent;
    --updates;
  }
  return forms;
}

// The number of updates after which as many records stand in either form.
unsigned updatesBehind(const Forms& forms) {
  unsigned present = 0;
  unsigned second = 0;
  for (const Form form : forms) {
    present += form != Form::kAbsent ? 1 : 0;
    second += form == Form::kSecond ? 1 : 0;
  }
  const auto count = static_cast<unsigned>(forms.size());
  if (second == 0) return present;
  if (present == count) return count + second;
  return 2 * count + (count - present);
}

bool sameRecord(const GlobalRegRecord& a, const GlobalRegRecord& b) {
  return a.RecordType == b.RecordType && a.FieldMask == b.FieldMask &&
         std::memcmp(a.Bytes, b.Bytes, sizeof a.Bytes) == 0;
}

// Reads the registry over and over and compares every list with what may be.
class Watcher {
 public:
  Watcher(unsigned writers, unsigned count)
      : writers_(writers), count_(count), seen_(writers, 0), next_(writers, 0) {}

  // False, after telling why, when the list or a single lookup is wrong.
  bool lookOnce();
  unsigned scans() const { return scans_; }
  unsigned changes() const { return changes_; }

 private:
  bool list();
  bool take(const GlobalRegRecord& record);
  bool judgeList();
  bool lookUpOne();

  const unsigned writers_;
  const unsigned count_;
  unsigned scans_ = 0;
  unsigned changes_ = 0;
  std::vector<unsigned> seen_;  // updates of each writer that the last list showed
  std::vector<unsigned> next_;  // the lowest number that may come next of each writer
  std::vector<Forms> forms_;
  GlobalReg registry_;
};

bool refuse(const char* what, unsigned value) {
  std::fprintf(stderr, "watch: %s: 0x%X\n", what, value);
  return false;
}

// Records of one writer stand in the order in which it added them, each once.
bool Watcher::take(const GlobalRegRecord& record) {
  unsigned writer = 0;
  unsigned number = 0;
  if (std::sscanf(record.Instance.InstanceName, "w%u-%u", &writer, &number) != 2) {
    return refuse("a record of nobody's", 0);
  }
  if (writer >= writers_ || number >= count_) return refuse("a record too many", number);
  if (number < next_[writer]) return refuse("a record doubled or out of order", number);
  next_[writer] = number + 1;
  const unsigned form = record.Instance.StartAtBoot;
  if (form > 1 || !sameRecord(record, recordOf(writer, number, form))) {
    return refuse("a torn record", number);
  }
  forms_[writer][number] = form == 0 ? Form::kFirst : Form::kSecond;
  return true;
}

bool Watcher::list() {
  GlobalRegRecord key{};
  GlobalRegRecord record{};
  forms_.assign(writers_, Forms(count_, Form::kAbsent));
  next_.assign(writers_, 0);
  const GenRegStatus opened = registry_.OpenScan();
  if (opened != 0) return refuse("scan refused", opened);
  int rc = 0;
  while ((rc = registry_.GetNext(0, &key, &record)) == 0) {
    if (!take(record)) return false;
  }
  const GenRegStatus closed = registry_.CloseScan();
  if (closed != 0) return refuse("scan not closed", closed);
  const auto status = static_cast<unsigned>(rc);
  return status == genreg::status::end_of_registry || refuse("scan failed", status);
}

// Every writer's records are those of one moment, and no moment comes back.
bool Watcher::judgeList() {
  bool changed = false;
  for (unsigned writer = 0; writer < writers_; ++writer) {
    const unsigned updates = updatesBehind(forms_[writer]);
    if (forms_[writer] != formsAfter(updates, count_)) {
      return refuse("a list of no moment, writer", writer);
    }
    if (updates < seen_[writer]) return refuse("a list of the past, writer", writer);
    changed = changed || updates != seen_[writer];
    seen_[writer] = updates;
  }
  changes_ += changed ? 1 : 0;
  return true;
}

// The first writer's first record is never removed once it is there.
bool Watcher::lookUpOne() {
  GlobalRegRecord key = keyOf(0, 0);
  GlobalRegRecord found{};
  const auto status = static_cast<unsigned>(registry_.Get(kInstanceKey, &key, &found));
  if (status == genreg::status::no_match && seen_[0] == 0) return true;
  if (status != 0) return refuse("lookup failed", status);
  const unsigned form = found.Instance.StartAtBoot;
  return (form <= 1 && sameRecord(found, recordOf(0, 0, form))) || refuse("a torn record", 0);
}

bool Watcher::lookOnce() {
  ++scans_;
  return list() && judgeList() && lookUpOne();
}

bool inputHasEnded() {
  pollfd input{STDIN_FILENO, POLLIN, 0};
  return poll(&input, 1, 0) > 0;
}

}  // namespace

int runWriter(unsigned writer, unsigned count, Progress progress) {
  return reportTally(write(writer, count, progress == Progress::kTold ? Told(tell) : Told()));
}

int runWriterThreads(unsigned writers, unsigned count) {
  std::vector<Tally> tallies(writers);
  std::vector<std::thread> threads;
  for (unsigned i = 0; i < writers; ++i) {
    threads.emplace_back([&tallies, i, count] { tallies[i] = write(i, count, Told()); });
  }
  for (std::thread& thread : threads)
    thread.join();
  Tally sum;
  for (const Tally& tally : tallies) {
    sum.updates += tally.updates;
    sum.failures += tally.failures;
    if (sum.first == 0) sum.first = tally.first;
  }
  return reportTally(sum);
}

int runWatcher(unsigned writers, unsigned count) {
  Watcher watcher(writers, count);
  do {
    if (!watcher.lookOnce()) return 1;
  } while (!inputHasEnded());
  // What stands when the writers have finished is looked at once more.
  if (!watcher.lookOnce()) return 1;
  std::printf("scans %u changes %u\n", watcher.scans(), watcher.changes());
  return 0;
}

}  // namespace vrxtest
