// SPDX-License-Identifier: Apache-2.0
// Building and taking in lines of the text formats.
#include "genreg/text/internal/line_builder.h"

#include <algorithm>
#include <cstring>

namespace genreg {

void LineBuilder::append(const char* text) {
  if (text != nullptr) append(text, std::strlen(text));
}

void LineBuilder::append(const char* text, unsigned long length) {
  tooLong_ = tooLong_ || length > kMaxLineText - length_;
  if (tooLong_) return;
  std::memcpy(text_ + length_, text, length);
  length_ += length;
}

void LineBuilder::copyTo(char* line) const {
  std::memcpy(line, text_, length_ + 1);
}

void LineBuilder::copyToWithNewline(char* line) const {
  std::memcpy(line, text_, length_);
  std::memcpy(line + length_, "\n", 2);
}

unsigned long takenLength(const char* line) {
  const auto length = static_cast<unsigned long>(strchrnul(line, '\n') - line);
  return std::min(length, kGenRegLineSize - 1);
}

void takeLine(char (&own)[kGenRegLineSize], const char* line, unsigned long length) {
  std::memcpy(own, line, length);
  own[length] = '\0';
}

bool sameText(const char* a, const char* b) {
  return std::strcmp(textOf(a), textOf(b)) == 0;
}

const char* unparsedText(const char* text) {
  if (text == nullptr || *text == '\0') return nullptr;
  return std::strpbrk(text, " \t\r\n") == nullptr ? text : nullptr;
}

}  // namespace genreg
