// SPDX-License-Identifier: Apache-2.0
// The lines of one stream, each with the record that the format's parser makes of it.
#pragma once

#include "genreg/internal/guards.h"
#include "genreg/text/internal/line_reader.h"
#include "genreg/text/text_store.h"

namespace genreg {

// How the store's lines are read, by its features.
Continuations continuationsOf(const GenRegText& store);

// How a step to the next line ended.
enum class LineStep { kLine, kEnd, kFailed };

class LineRecord {
 public:
  // `op` learns of memory that cannot be had or released, under these codes.
  LineRecord(Operation& op, GenRegText& store, GenRegStatus noMemory, GenRegStatus notReleased)
      : store_(store), reader_(continuationsOf(store)), scratch_(op, noMemory, notReleased) {}

  // Takes memory for a record of `maxRecord` bytes; what fails is reported to the operation.
  void allocate(unsigned probe, unsigned long maxRecord);
  void release() { scratch_.release(); }
  void releaseLoggedOnly() { scratch_.releaseLoggedOnly(); }
  // As the scratch record's.
  void reportTo(Operation* op) { scratch_.reportTo(op); }

  // What next() reads from, and where it stands.
  BlockCursor& cursor() { return reader_.cursor(); }

  // Reads the next line. Fails `op` with `readFailure`, or for want of the slot that would parse it
  // with 0x90000220.
  LineStep next(Operation& op, GenRegStatus readFailure) {
    tried_ = parsed_ = false;
    const bool came = reader_.next();
    if (reader_.hasError()) return fail(op, 400, readFailure);
    if (!came) return LineStep::kEnd;
    return store_.parseLine != nullptr ? LineStep::kLine : fail(op, 410, status::no_parse_slot);
  }
  // Makes the line's record, once. A line that does not parse is noted and leaves an empty one.
  void parse(Operation& op) {
    if (!tried_) parsed_ = parseInto(op, record());
    tried_ = true;
  }
  // The same into `record`, of the format's largest size, every time. Whether it was understood.
  bool parseInto(Operation& op, void* record) {
    const GenRegStatus rc = parseLine(record);
    if (rc != status::ok) noteUnparsed(op, rc, record);
    return rc == status::ok;
  }

  LineReader& text() { return reader_; }
  void* record() { return scratch_.block(); }
  // Whether the line has been parsed, and was understood.
  bool isParsed() const { return parsed_; }

 private:
  GenRegStatus parseLine(void* record) {
    const GenRegLineSlots* slots = store_.lineSlots;
    const bool hasWay = slots != nullptr && slots->parseLine == store_.parseLine;
    if (!hasWay || slots->parseText == nullptr || !reader_.isInPlace()) {
      return statusOf(store_.parseLine(record, reader_.line()));
    }
    return statusOf(slots->parseText(record, reader_.raw(), reader_.rawLength() - 1));
  }
  static LineStep fail(Operation& op, unsigned probe, GenRegStatus code);
  void noteUnparsed(Operation& op, GenRegStatus rc, void* record);

  GenRegText& store_;
  LineReader reader_;
  ScratchBuffer scratch_;
  unsigned long maxRecord_ = 0;
  bool tried_ = false;
  bool parsed_ = false;
};

}  // namespace genreg
