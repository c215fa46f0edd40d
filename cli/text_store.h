// SPDX-License-Identifier: Apache-2.0
// The store of the nouns whose records are lines of a text, written once over the format.
//
// A Format tells what it knows about its lines:
//
//     using Registry, RecordType         the object (exact_formats.h) and its record
//     kJoining, kKeyMask                 how lines are read; the mask bits of the key
//     kindOf(record)                     what a parsed line is
//     valuesOf(record, line)             the values of an entry, parallel to the noun's fields
//     layOut(row, line)                  writes the entry over the old line, as the library would
//     refuse(noun, row)                  throws for values that no line of the format can hold
//     isUnderstood(row)                  whether the entry may be changed
//     lostText(old, row)                 text of the old line that is in no field and would go
//
// Records are given to the library as it will read them: laid out as a line first, and parsed.
#pragma once

#include <cstring>
#include <deque>

#include "cli/arguments.h"
#include "cli/exact_formats.h"
#include "cli/noun.h"
#include "cli/text_lines.h"

namespace cli {

// The file that -f, or else the noun's default, names; `path` wins when it is not empty. Throws
// Failure (usage) when there is none.
std::string chosenFile(const Noun& noun, const Arguments& arguments, const char* fallback,
                       const std::string& path);

// Throws Failure (noRegistry) when `rc`, from an object's constructor, says that its path is none.
void requirePath(const std::string& path, GenRegStatus rc);

// Throws Failure (refused) when a text holds one of these bytes; `why` says what they would do.
void refuseBytes(const Field& field, const Value& value, const char* bytes, const char* why);

// Throws Failure (refused) when a text field of the row holds a line end.
void refuseLineEnds(const Noun& noun, const Row& row);

// Throws Failure (refused) when a comment holds what a parser would replace.
void refuseUnprintable(const Field& field, const Value& comment);

constexpr const char* kBeginsComment = "\"#\" begins a comment";

// A parsed comment as it is shown: without the one blank that formatters put behind the "#".
Value shownComment(const char* comment);

// Texts of a row as the library's records point to them, while this object lives.
class LineTexts {
 public:
  char* keep(const Value& value);        // an empty text for an absent value
  char* keepOrNull(const Value& value);  // null for an absent value
  char** keepList(const Value& value);   // ends with a null pointer; null for an absent value

 private:
  std::deque<std::string> texts_;
  std::vector<char*> list_;
};

// The failures of values that would not come back.
[[noreturn]] void refuseLine(const Noun& noun, const Row& row, GenRegStatus rc);
void refuseDifference(const Noun& noun, const Row& row, const std::vector<Value>& values);
[[noreturn]] void refuseLoss(const Noun& noun, const Row& row, const std::string& lost);
[[noreturn]] void refuseNotUnderstood(const Noun& noun, const Record& record);

// The first lines of a file that updates stumble over; 0 for none.
struct Obstacles {
  std::size_t longLine = 0;
  std::size_t nulLine = 0;
  std::size_t openLine = 0;  // the last one, when it would join what is added behind it

  void note(const TextLine& line, Joining joining);
  // The status that an Add would end with, ok when it would not.
  GenRegStatus status() const;
  std::string describe(GenRegStatus rc) const;
};

// What a line is that the parser refuses.
LineKind kindOfUnparsed(const std::string& text);

template <class Format>
class TextStore : public Store {
 public:
  using RecordType = typename Format::RecordType;

  TextStore(const Noun& noun, const Arguments& arguments, const std::string& path)
      : noun_(noun),
        all_(arguments.all),
        replaces_(arguments.replace),
        path_(path),
        registry_(path, &opened_) {
    requirePath(path, opened_);
    // Duplicates are accepted on request only: an Add then looks for one while it holds the lock.
    if (!all_) (void)registry_.unsetFeature(kGenRegDuplicates);  // fails where it is not set
  }

  std::string path() const override { return path_; }
  std::string lockPath() const override { return registry_.lockPath; }

  [[nodiscard]] GenRegStatus readAll(std::vector<Record>* records, long long* offset) override {
    return scan(offset, [&](const TextLine& line, const RecordType& record, LineKind kind) {
      if (kind == LineKind::entry) records->push_back(recordOf(line, record));
    });
  }

  [[nodiscard]] GenRegStatus readLines(std::vector<FileLine>* lines) override {
    long long ignored = 0;
    return scan(&ignored, [&](const TextLine& line, const RecordType&, LineKind kind) {
      lines->push_back({line.number, kind, withoutLineEnd(line.raw)});
    });
  }

  void check(const Record* old, const Row& row) const override {
    if (old != nullptr && !Format::isUnderstood(old->row)) refuseNotUnderstood(noun_, *old);
    Format::refuse(noun_, row);
    RecordType record{};
    const GenRegStatus rc = parse(lineOf(old, row), &record);
    if (rc != genreg::status::ok || Format::kindOf(record) != LineKind::entry) {
      refuseLine(noun_, row, rc);
    }
    refuseDifference(noun_, row, Format::valuesOf(record, {}));
    const std::string lost = old == nullptr || replaces_ ? "" : Format::lostText(*old, row);
    if (!lost.empty()) refuseLoss(noun_, row, lost);
  }

  // What an update is going to stumble over is better known before it begins: a refused Add leaves
  // its copy behind.
  [[nodiscard]] GenRegStatus add(const Row& row) override {
    if (obstacles_.status() != genreg::status::ok) return obstacles_.status();
    RecordType record{};
    const GenRegStatus rc = parse(lineOf(nullptr, row), &record);
    return rc == genreg::status::ok ? registry_.Add(Format::kKeyMask, &record) : rc;
  }

  [[nodiscard]] GenRegStatus change(const Record& old, const Row& row) override {
    RecordType key{};
    RecordType record{};
    GenRegStatus rc = parse(old.image, &key);
    if (rc == genreg::status::ok) rc = parse(lineOf(&old, row), &record);
    return rc == genreg::status::ok ? registry_.Change(kWholeRecord, &key, &record) : rc;
  }

  [[nodiscard]] GenRegStatus remove(const Record& old) override {
    if (!Format::isUnderstood(old.row)) refuseNotUnderstood(noun_, old);
    RecordType key{};
    const GenRegStatus rc = parse(old.image, &key);
    if (rc != genreg::status::ok) return rc;
    return registry_.Delete(all_ ? Format::kKeyMask : kWholeRecord, &key);
  }

  std::string blame(GenRegStatus rc) const override { return obstacles_.describe(rc); }

  [[nodiscard]] GenRegStatus probeLock() override {
    const GenRegStatus rc = registry_.Lock(kGenRegLockExclusive | kGenRegLockNoWait, 0);
    return rc == genreg::status::ok ? registry_.UnLock() : rc;
  }

 private:
  static GenRegStatus parse(const std::string& logical, RecordType* record) {
    std::string line = logical;
    const GenRegStatus rc = genreg::statusOf(Format::Registry::ParseLine(record, line.data()));
    if (rc != genreg::status::ok) std::memset(record, 0, sizeof *record);
    return rc;
  }

  static LineKind kindOf(const TextLine& line, RecordType* record) {
    if (line.tooLong) return LineKind::unparsed;
    if (parse(line.logical, record) != genreg::status::ok) return kindOfUnparsed(line.raw);
    return Format::kindOf(*record);
  }

  Record recordOf(const TextLine& line, const RecordType& record) const {
    Record made;
    made.row.values = Format::valuesOf(record, line.raw);
    made.row.key = keyOf(noun_, made.row);
    made.image = line.logical;
    made.text = line.raw;
    made.line = line.number;
    return made;
  }

  // The logical line of `row`, laid out over the old one. Throws Failure (refused).
  std::string lineOf(const Record* old, const Row& row) const {
    char line[kGenRegLineSize] = {};
    if (old != nullptr)
      std::memcpy(line, old->text.c_str(), strnlen(old->text.c_str(), sizeof line - 1));
    const GenRegStatus rc = Format::layOut(row, line);
    if (rc != genreg::status::ok) refuseLine(noun_, row, rc);
    return logicalLine(withoutLineEnd(line) + "\n", Format::kJoining);
  }

  // Gives every line to `take`, with its record and its kind.
  template <class Take>
  GenRegStatus scan(long long* offset, Take take) {
    obstacles_ = {};
    GenRegStatus rc = registry_.OpenScan();
    if (rc != genreg::status::ok) return rc;
    TextLines lines(registry_.registryStream, Format::kJoining);
    TextLine line;
    RecordType record{};
    while (lines.next(&line)) {
      obstacles_.note(line, Format::kJoining);
      take(line, record, kindOf(line, &record));
    }
    if (std::ferror(registry_.registryStream) != 0) rc = genreg::status::read_failed;
    *offset = ftello(registry_.registryStream);
    const GenRegStatus closed = registry_.CloseScan();
    return rc == genreg::status::ok ? closed : rc;
  }

  const Noun& noun_;
  const bool all_;
  const bool replaces_;
  std::string path_;  // as it was chosen; an update may follow a link from there
  unsigned int opened_ = 0;
  typename Format::Registry registry_;
  Obstacles obstacles_;
};

}  // namespace cli
