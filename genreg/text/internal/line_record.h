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

  void readFrom(FILE* file) { reader_.readFrom(file); }

  // Reads and parses the next line. Fails `op` with `readFailure` or 0x90000220. A line that does
  // not parse is noted and leaves an empty record.
  LineStep next(Operation& op, GenRegStatus readFailure);

  LineReader& text() { return reader_; }
  void* record() { return scratch_.block(); }
  bool isParsed() const { return parsed_; }

 private:
  LineStep parse(Operation& op);

  GenRegText& store_;
  LineReader reader_;
  ScratchBuffer scratch_;
  unsigned long maxRecord_ = 0;
  bool parsed_ = false;
};

}  // namespace genreg
