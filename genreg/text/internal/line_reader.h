// SPDX-License-Identifier: Apache-2.0
// Reads the logical lines of one stream, one after the other, and knows what a C string cannot
// tell: how many bytes a line took, whether a NUL was among them, whether it is a piece of a longer
// one.
#pragma once

#include <cstdio>

#include "genreg/internal/block_cursor.h"
#include "genreg/text/line_io.h"

namespace genreg {

// Whether a backslash at the end of a physical line joins the next one to it.
enum class Continuations { kKept, kJoined };

// What one reading step found.
struct LineRead {
  unsigned long rawLength = 0;  // bytes in the raw buffer
  bool ranOut = false;          // a physical line was wanted and none came
  bool cut = false;             // the line goes on beyond the buffer
};

// Bytes in memory.
struct Passage {
  const unsigned char* bytes = nullptr;
  unsigned long length = 0;
};

// One step for a stream that somebody else reads, too: the physical text into `raw`, the logical
// line into `line`, both of `size` bytes. Nothing is read ahead.
LineRead readLogicalLine(char* raw, char* line, unsigned long size, FILE* file,
                         Continuations continuations);

class LineReader {
 public:
  explicit LineReader(Continuations continuations);
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;

  // What next() reads from, and where it stands.
  BlockCursor& cursor() { return cursor_; }

  // Reads the next line. False when none came: at the end of the file, or on a read error.
  bool next() {
    continuesPiece_ = last_.cut;
    lineIsMade_ = !takeWhole();
    return !lineIsMade_ || readThrough();
  }

  // Steps over whole lines that are in memory, from the next one on, and gives them: those before
  // the first that may hold `text`, a string of `length` bytes without a newline. Lines that can be
  // joined, and those behind them, are left to next(). What is given stays until the next step.
  Passage passOver(const char* text, unsigned long length);
  // The same for lines that `other` has, too.
  bool passOverSame(LineReader& other);
  // Whether the file could not be read.
  bool hasError() const { return cursor_.hasFailed(); }
  // Whether no further line comes.
  bool isLast();

  // The logical line, terminated, for the format's parser.
  char* line();
  // Whether that is raw() and a terminator, and nothing has been copied yet.
  bool isInPlace() const { return !lineIsMade_; }
  // False when the logical line does not hold `text`, a string of `length` bytes.
  bool mayHold(const char* text, unsigned long length) const;
  // The bytes as they stand in the file, rawLength() of them. They stay until the next step.
  const char* raw() const { return raw_; }
  unsigned long rawLength() const { return last_.rawLength; }
  bool endsWithNewline() const;
  bool hasNul() const;
  // Whether this is not the whole of a logical line, because the line does not fit the buffer.
  bool isPiece() const { return last_.cut || continuesPiece_; }

 private:
  Passage linesAhead();
  Passage skipLines(unsigned long most);
  bool takeWhole();
  bool readThrough();

  const Continuations continuations_;
  BlockCursor cursor_;
  LineRead last_;
  bool continuesPiece_ = false;
  bool lineIsMade_ = true;
  const char* raw_ = rawBuffer_;  // or where the line lies in the cursor's block
  char rawBuffer_[kGenRegLineSize];
  char line_[kGenRegLineSize];
};

}  // namespace genreg
