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

// Copies as much of `line` as a record's own line of kGenRegLineSize bytes holds, up to its first
// newline, and terminates it.
void takeLine(char (&own)[kGenRegLineSize], const char* line);

// Replaces the first "#" by a NUL and returns the text behind it; null when there is none.
char* cutComment(char* line);

// StripWhiteSpace without scratch memory: the result is never longer than the text.
void collapseWhiteSpace(char* text);

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
