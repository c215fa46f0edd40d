// SPDX-License-Identifier: Apache-2.0
// realfile_check FORMAT FILE: edits a private copy of a file as it is found on hosts, through the
// public interface, and holds every byte of it against what it was. FORMAT is profile, services or
// inittab. Prints what it counted as JSON; the first thing that is not right ends it with status 1.
//
// For a sample of entries: a change rewrites that line and no other byte; the change repeated is
// "unchanged"; changing back gives the first bytes back where the line was in the system's own
// layout; a deletion takes that line out and nothing else. Then an entry is added, and deleted.
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "platform/osse/files.h"
#include "tests/realfiles/realfile_formats.h"

namespace {

using std::string;
using vrxtest::realfiles::Entry;
using vrxtest::realfiles::Format;
using vrxtest::realfiles::formatNamed;

constexpr unsigned kUnchanged = 0x900001F7;
constexpr unsigned kDuplicate = 0x900001F1;
constexpr unsigned kNoMatch = 0x900001F6;
constexpr size_t kSamples = 8;

string story;

void require(bool holds, const string& what) {
  if (holds) return;
  std::fprintf(stderr, "%s: %s\n", story.c_str(), what.c_str());
  std::exit(1);
}

void requireStatus(unsigned got, unsigned wanted, const string& what) {
  char text[64];
  std::snprintf(text, sizeof text, ": 0x%08X instead of 0x%08X", got, wanted);
  require(got == wanted, what + text);
}

string read(const string& path) {
  std::ifstream file(path, std::ios::binary);
  require(static_cast<bool>(file), "cannot be read");
  return string{std::istreambuf_iterator<char>(file), {}};
}

// The lines in which two contents differ; what stands before and behind them is the same.
struct Difference {
  size_t start = 0;
  string before;
  string after;
};

Difference differenceOf(const string& before, const string& after) {
  size_t start = 0;
  while (start < before.size() && start < after.size() && before[start] == after[start])
    ++start;
  start = start == 0 ? 0 : before.rfind('\n', start - 1) + 1;
  size_t tail = 0;
  while (tail < before.size() - start && tail < after.size() - start &&
         before[before.size() - 1 - tail] == after[after.size() - 1 - tail])
    ++tail;
  while (tail > 0 && before.size() - tail > start && before[before.size() - tail - 1] != '\n')
    --tail;
  return {start, before.substr(start, before.size() - tail - start),
          after.substr(start, after.size() - tail - start)};
}

// One logical line: newlines stand at its end, or behind a backslash.
bool isOneLine(const string& text) {
  for (size_t at = text.find('\n'); at + 1 < text.size(); at = text.find('\n', at + 1)) {
    if (at == string::npos) return false;
    if (at == 0 || text[at - 1] != '\\') return false;
  }
  return !text.empty() && text.back() == '\n';
}

class Check {
 public:
  Check(Format& format, string path) : format_(format), path_(std::move(path)) {}

  void run() {
    const std::vector<Entry> all = format_.entries(path_);
    std::map<string, unsigned> uses;
    for (const Entry& entry : all)
      ++uses[format_.keyOf(entry)];
    std::vector<Entry> single;
    for (const Entry& entry : all) {
      if (uses[format_.keyOf(entry)] == 1 && format_.canChange(entry)) single.push_back(entry);
    }
    const size_t step = single.size() > kSamples ? single.size() / kSamples : 1;
    for (size_t i = 0; i < single.size(); i += step)
      checkEntry(single[i]);
    if (!single.empty()) checkEntry(single.back());
    checkAdd();
    std::printf(
        "{\"lines\": %lu, \"entries\": %lu, \"not_understood\": %lu, \"checked\": %lu, "
        "\"own_layout\": %lu}\n",
        format_.lineCount(), static_cast<unsigned long>(all.size()), format_.notUnderstood(),
        checked_, ownLayout_);
  }

 private:
  void checkEntry(const Entry& entry) {
    story = path_ + ", " + format_.keyOf(entry);
    const string first = read(path_);
    const Entry other = format_.changed(entry);
    requireStatus(format_.change(path_, entry, other), 0, "change");
    const string second = read(path_);
    const Difference changed = differenceOf(first, second);
    require(isOneLine(changed.before) && isOneLine(changed.after), "the change left its line");
    requireStatus(format_.change(path_, other, other), kUnchanged, "repeated change");
    require(read(path_) == second, "a repeated change changed something");
    undo(entry, other, first, changed);
    remove(entry, first, changed);
    ++checked_;
  }

  void undo(const Entry& entry, const Entry& other, const string& first, const Difference& line) {
    requireStatus(format_.change(path_, other, entry), 0, "change back");
    const string back = read(path_);
    const bool own = format_.laidOut(entry, line.before) == line.before;
    require(!own || back == first, "the first bytes did not come back");
    ownLayout_ += own ? 1 : 0;
    const size_t rest = line.start + line.before.size();
    require(back.compare(0, line.start, first, 0, line.start) == 0, "bytes before the line");
    const string tail = first.substr(rest);
    require(back.size() >= tail.size() &&
                back.compare(back.size() - tail.size(), tail.size(), tail) == 0,
            "bytes behind the line");
    std::ofstream(path_, std::ios::binary) << first;
  }

  void remove(const Entry& entry, const string& first, const Difference& line) {
    requireStatus(format_.remove(path_, entry), 0, "delete");
    string wanted = first;
    wanted.erase(line.start, line.before.size());
    require(read(path_) == wanted, "the deletion touched another byte");
    requireStatus(format_.remove(path_, entry), kNoMatch, "repeated delete");
    std::ofstream(path_, std::ios::binary) << first;
  }

  void checkAdd() {
    story = path_ + ", an added entry";
    string first = read(path_);
    const Entry entry = format_.fresh();
    requireStatus(format_.add(path_, entry), 0, "add");
    if (!first.empty() && first.back() != '\n') first += '\n';
    require(read(path_) == first + format_.laidOut(entry, ""), "the addition is not at the end");
    if (!format_.allowsDuplicates()) {
      requireStatus(format_.add(path_, entry), kDuplicate, "repeated add");
    }
    requireStatus(format_.remove(path_, entry), 0, "delete of the added entry");
    require(read(path_) == first, "the first bytes did not come back");
  }

  Format& format_;
  const string path_;
  unsigned long checked_ = 0;
  unsigned long ownLayout_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: realfile_check profile|services|inittab FILE\n");
    return 2;
  }
  const auto format = formatNamed(argv[1]);
  if (format == nullptr) {
    std::fprintf(stderr, "realfile_check: unknown format: %s\n", argv[1]);
    return 2;
  }
  ossSetSyncPolicy(OSSSyncPolicy::none);
  story = argv[2];
  Check(*format, argv[2]).run();
  return 0;
}
