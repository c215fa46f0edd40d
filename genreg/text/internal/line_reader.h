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
  bool next();
  // Whether the file could not be read.
  bool hasError() const { return unread_; }
  // Whether no further line comes.
  bool isLast();

  char* line() { return line_; }  // the logical line, for the format's parser
  char* raw() { return raw_; }    // the bytes as they stand in the file, terminated
  unsigned long rawLength() const { return last_.rawLength; }
  bool endsWithNewline() const;
  bool hasNul() const;
  // Whether this is not the whole of a logical line, because the line does not fit the buffer.
  bool isPiece() const { return last_.cut || continuesPiece_; }

 private:
  const Continuations continuations_;
  BlockCursor cursor_;
  bool unread_ = false;
  LineRead last_;
  bool continuesPiece_ = false;
  char raw_[kGenRegLineSize];
  char line_[kGenRegLineSize];
};

}  // namespace genreg
