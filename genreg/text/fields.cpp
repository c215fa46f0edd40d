// SPDX-License-Identifier: Apache-2.0
// White space, unprintable bytes and fields.
#include "genreg/text/fields.h"

#include <algorithm>
#include <cstring>

#include "genreg/internal/guards.h"
#include "genreg/internal/operation.h"
#include "genreg/text/internal/line_builder.h"

using namespace genreg;

namespace {

bool isSeparator(char c) {
  return c == ' ' || c == '\t';
}

bool isLineSpace(char c) {
  return c == '\t' || c == '\n' || c == '\r';
}

bool isClean(unsigned char c) {
  return c == '\t' || (c >= 0x20 && c <= 0x7E);
}

// Copies a quoted stretch, which begins at `from` and keeps its blanks. Returns where it ends.
const char* copyQuoted(const char* from, char*& to) {
  const char* closing = std::strchr(from + 1, '"');
  const char* end = closing != nullptr ? closing + 1 : from + std::strlen(from);
  to = std::copy(from, end, to);
  return end;
}

// Copies `from`, whose only white space is blanks, with each unquoted run of them made one. After a
// quoted stretch a run starts afresh. `to` may be `from`: nothing is written ahead of what is read.
void collapse(const char* from, char* to) {
  bool afterBlank = true;  // so that leading blanks are dropped
  char* const start = to;
  while (*from != '\0') {
    if (*from == '"') {
      from = copyQuoted(from, to);
      afterBlank = false;
      continue;
    }
    if (*from != ' ' || !afterBlank) *to++ = *from;
    afterBlank = *from == ' ';
    ++from;
  }
  while (to != start && to[-1] == ' ')
    --to;
  *to = '\0';
}

void blankLineSpaces(char* text) {
  std::replace_if(text, text + std::strlen(text), isLineSpace, ' ');
}

// Through scratch memory, so that the string is untouched until the result is complete.
void strip(Operation& op, char* text) {
  ScratchBuffer scratch(op, status::no_record_memory, status::record_memory_not_released);
  if (!scratch.reserve(2, std::strlen(text) + 1)) return;
  blankLineSpaces(text);
  char* const stripped = static_cast<char*>(scratch.block());
  collapse(text, stripped);
  std::memcpy(text, stripped, std::strlen(stripped) + 1);
}

}  // namespace

void genreg::collapseWhiteSpace(char* text) {
  blankLineSpaces(text);
  collapse(text, text);
}

GenRegStatus StripWhiteSpace(char* text) {
  Operation op(kStripWhiteSpace);
  if (text == nullptr) return op.fail(1, status::null_argument);
  strip(op, text);
  return op.status();
}

GenRegStatus CleanString(char* text) {
  if (text == nullptr) return status::ok;
  for (; *text != '\0'; ++text) {
    if (!isClean(static_cast<unsigned char>(*text))) *text = '.';
  }
  return status::ok;
}

GenRegStatus ExtractNextField(char** field, char** cursor) {
  if (field == nullptr || cursor == nullptr) return status::end_of_input;
  *field = nullptr;
  char* at = *cursor;
  if (at == nullptr) return status::end_of_input;
  while (isSeparator(*at))
    ++at;
  if (*at == '\0') return status::end_of_input;
  *field = at;
  while (*at != '\0' && !isSeparator(*at))
    ++at;
  *cursor = *at != '\0' ? at + 1 : nullptr;
  *at = '\0';
  return status::ok;
}
