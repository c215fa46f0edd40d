// SPDX-License-Identifier: Apache-2.0
// What the text formats share: a line built piece by piece within its limit, the text of a stored
// line taken into a record, and texts that may be missing.
#pragma once

#include "genreg/text/line_io.h"

namespace genreg {

// The longest line that a format writes, in bytes without the newline: with it and a terminator the
// line fits the buffer that it will be read into.
constexpr unsigned long kMaxLineText = kGenRegLineSize - 2;

class LineBuilder {
 public:
  // Each appends its text; null appends nothing. What does not fit marks the line as too long.
  void append(const char* text);
  void append(const char* text, unsigned long length);

  bool isTooLong() const { return tooLong_; }
  const char* text() const { return text_; }
  unsigned long length() const { return length_; }

  // Copies the finished line, with a newline behind it or without, over `line`, a buffer of
  // kGenRegLineSize bytes.
  void copyTo(char* line) const;
  void copyToWithNewline(char* line) const;

 private:
  char text_[kGenRegLineSize] = {};
  unsigned long length_ = 0;
  bool tooLong_ = false;
};

// How much of `line` a record takes into its own line: up to its first newline, and no more than
// the record has room for.
unsigned long takenLength(const char* line);

// Copies so much of a line, and terminates it.
void takeLine(char (&own)[kGenRegLineSize], const char* line, unsigned long length);

// Does so with the text before the first "#" as StripWhiteSpace leaves it, and behind its
// terminator what follows the "#", as CleanString leaves it. Returns that; null without a "#".
char* takeStripped(char (&own)[kGenRegLineSize], const char* line, unsigned long length);

// The first `mark` in a text; null when there is none. For the short fields of a line that was
// taken a moment ago: a byte just written can be read at once, many together have to wait.
inline char* findMark(char* text, char mark) {
  while (*text != mark && *text != '\0')
    ++text;
  return *text == mark ? text : nullptr;
}

// Whether two texts agree; a missing one is an empty one.
bool sameText(const char* a, const char* b);

// The text, if it stands in a line as it does in the record made of it: null for one that is empty
// or missing, or has white space, which parsing makes uniform.
const char* unparsedText(const char* text);

// The text, or an empty one for null.
inline const char* textOf(const char* text) {
  return text != nullptr ? text : "";
}

}  // namespace genreg
