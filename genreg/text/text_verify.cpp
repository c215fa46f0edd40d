// SPDX-License-Identifier: Apache-2.0
// What the text store brings to verification: lines, equal to the byte or as records.
#include <cstring>

#include "genreg/internal/verification.h"
#include "genreg/text/internal/line_record.h"
#include "genreg/text/text_store.h"

using namespace genreg;

namespace {

class LineComparison {
 public:
  // Lines that an update touched beyond what its format allows are reported, and stay.
  static constexpr SeveralChanged kSeveralChanged = SeveralChanged::kCommit;

  LineComparison(Operation& op, GenRegText& store, unsigned long long mask, void* key,
                 void* newRecord)
      : store_(store),
        mask_(mask),
        key_(key),
        newRecord_(newRecord),
        earlier_(op, store, status::no_first_buffer, status::first_buffer_not_released),
        current_(op, store, status::no_second_buffer, status::second_buffer_not_released) {}

  void allocate(Operation& op, unsigned long maxRecord) {
    earlier_.allocate(200, maxRecord);
    if (!op.failed()) current_.allocate(201, maxRecord);
  }
  void begin() {
    earlier_.cursor().readFrom(store_.registryStream, 0, store_.registrySize);
    current_.cursor().readFrom(store_.temporaryStream, 0, store_.temporarySize);
  }
  void passOverSame() {
    while (earlier_.text().passOverSame(current_.text()))
      continue;
  }
  bool readEarlier(Operation& op) {
    return earlier_.next(op, status::read_failed) == LineStep::kLine;
  }
  bool readCurrent(Operation& op) {
    return current_.next(op, status::verify_read_failed) == LineStep::kLine;
  }
  // Behind a deleted line comes one that is still there, or nothing.
  bool isLastEarlier() { return earlier_.text().isLast(); }
  bool isSelected(Operation& op) {
    return isParsed(op, earlier_) && matches(op, store_, mask_, earlier_.record(), key_);
  }
  bool isSame(Operation& op);
  // A piece would be part of the line before it to every other reader.
  bool isGiven(Operation& op) {
    return isParsed(op, current_) && !current_.text().isPiece() &&
           areEqual(op, current_.record(), newRecord_);
  }

 private:
  // A line is parsed when its bytes do not tell.
  static bool isParsed(Operation& op, LineRecord& line) {
    line.parse(op);
    return line.isParsed();
  }
  bool isSameText();
  bool gainedNewline();
  bool areEqual(Operation& op, void* a, void* b);

  GenRegText& store_;
  const unsigned long long mask_;
  void* const key_;
  void* const newRecord_;
  LineRecord earlier_;
  LineRecord current_;
};

bool LineComparison::isSameText() {
  const unsigned long length = earlier_.text().rawLength();
  return length == current_.text().rawLength() &&
         std::memcmp(earlier_.text().raw(), current_.text().raw(), length) == 0;
}

// The newline that a copy gives to an unterminated last line.
bool LineComparison::gainedNewline() {
  LineReader& earlier = earlier_.text();
  LineReader& current = current_.text();
  const unsigned long length = earlier.rawLength();
  // Unreached: a line without an end that is not the last fills its reader, and none is longer.
  return !earlier.endsWithNewline() && earlier.isLast() && current.endsWithNewline() &&
         current.rawLength() == length + 1 &&
         std::memcmp(earlier.raw(), current.raw(), length) == 0;
}

// Lines that do not parse have nothing but their bytes to compare.
bool LineComparison::isSame(Operation& op) {
  if (isSameText() || gainedNewline()) return true;
  return isParsed(op, earlier_) && isParsed(op, current_) &&
         areEqual(op, earlier_.record(), current_.record());
}

// A match asks only for what the second record has, so both are asked.
bool LineComparison::areEqual(Operation& op, void* a, void* b) {
  return matches(op, store_, kAllFields, a, b) && matches(op, store_, kAllFields, b, a);
}

}  // namespace

GenRegStatus GenRegText::Verify(unsigned int mode, unsigned long long mask, void* key,
                                void* newRecord) {
  Operation op(kGenRegTextVerify, registryPath);
  runVerification(op, *this, mode, CheckFuncPtrs(),
                  [&] { return LineComparison(op, *this, mask, key, newRecord); });
  return op.status();
}
