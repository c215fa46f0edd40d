// SPDX-License-Identifier: Apache-2.0
// The lines of a text, with what a C string cannot tell of them: where they stand, whether a NUL is
// among their bytes, whether they are whole.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>

#include "genreg/text/line_io.h"

namespace cli {

enum class Joining { none, continuations };

struct TextLine {
  std::size_t number = 0;  // of its first physical line, from 1
  std::string raw;         // its bytes, line ends included
  std::string logical;     // as the library reads it; cut at a NUL
  bool tooLong = false;    // longer than the library reads in one piece
};

// Reads the logical lines of a stream, one after the other.
class TextLines {
 public:
  TextLines(FILE* stream, Joining joining) : stream_(stream), joining_(joining) {}

  // The next line; false when none came, at the end or on a read error.
  bool next(TextLine* line);

 private:
  bool readPiece(TextLine* line);
  bool goesOn(std::size_t length, const std::string& raw);

  FILE* stream_;
  Joining joining_;
  std::size_t number_ = 1;
  char raw_[kGenRegLineSize] = {};
  char logical_[kGenRegLineSize] = {};
};

// The logical line that this text would be in a file of its own; empty when it would be several.
std::string logicalLine(const std::string& text, Joining joining);

// The text without its last line end.
std::string withoutLineEnd(std::string text);

}  // namespace cli
