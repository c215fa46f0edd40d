// SPDX-License-Identifier: Apache-2.0
// White space, unprintable bytes and fields.
#include "genreg/text/fields.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

#include "genreg/internal/guards.h"
#include "genreg/internal/operation.h"
#include "genreg/internal/words.h"
#include "genreg/text/internal/line_builder.h"

using namespace genreg;

namespace {

bool isSeparator(char c) {
  return c == ' ' || c == '\t';
}

bool isLineSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

constexpr std::array<char, 256> cleanedBytes() {
  std::array<char, 256> cleaned{};
  for (unsigned byte = 0; byte < cleaned.size(); ++byte) {
    const bool isClean = byte == '\t' || (byte >= 0x20 && byte <= 0x7E);
    cleaned[byte] = isClean ? static_cast<char>(byte) : '.';
  }
  return cleaned;
}

constexpr std::array<char, 256> kCleaned = cleanedBytes();

char cleaned(char byte) {
  return kCleaned[static_cast<unsigned char>(byte)];
}

// Most text has nothing in it that has to be changed, and is copied by words.
//
// Whether collapsing leaves the word as it is: it has no quote, and no white space but single
// blanks. `next` is the word one byte on.
bool isSettled(Word word, Word next) {
  constexpr Word kBlanks = kEachByte * ' ';
  constexpr Word kQuotes = kEachByte * '"';
  return !hasBelow(word, ' ') && !hasNul(word ^ kQuotes) &&
         !hasNul((word ^ kBlanks) | (next ^ kBlanks));
}
constexpr bool isClean(Word word) {
  return !hasBelow(word, 0x20) && !hasAbove(word, 0x7E);
}

// Copies whole words of `from` while they pass, each with `behind` bytes after it to look at, and
// returns how many bytes that is.
template <class Passes>
unsigned long copyWords(const char* from, unsigned long length, char* to, unsigned long behind,
                        const Passes& passes) {
  unsigned long at = 0;
  for (; length - at >= kWordSize + behind && passes(from + at); at += kWordSize)
    std::memcpy(to + at, from + at, kWordSize);
  return at;
}

unsigned long copySettled(const char* from, unsigned long length, char* to) {
  return copyWords(from, length, to, 1,
                   [](const char* at) { return isSettled(wordAt(at), wordAt(at + 1)); });
}

unsigned long copyClean(const char* from, unsigned long length, char* to) {
  return copyWords(from, length, to, 0, [](const char* at) { return isClean(wordAt(at)); });
}

// Copies `length` bytes with each run of white space made one blank outside of double quotes, and
// none at the ends. Returns where the copy ends.
char* collapse(const char* from, unsigned long length, char* to) {
  char* const start = to;
  bool quoted = false;
  for (unsigned long at = 0; at < length;) {
    const bool joins = from[at] == ' ' && (to == start || to[-1] == ' ');
    const unsigned long settled = joins ? 0 : copySettled(from + at, length - at, to);
    at += settled;
    to += settled;
    for (const unsigned long end = std::min(length, at + kWordSize); at < end; ++at) {
      const bool blank = isLineSpace(from[at]);
      if (from[at] == '"') quoted = !quoted;
      if (!blank) *to++ = from[at];
      if (blank && (quoted || (to != start && to[-1] != ' '))) *to++ = ' ';
    }
  }
  while (to != start && to[-1] == ' ')
    --to;
  return to;
}

// Copies `length` bytes with the unprintable ones made ".".
void copyCleaned(const char* from, unsigned long length, char* to) {
  for (unsigned long at = 0; at < length;) {
    at += copyClean(from + at, length - at, to + at);
    for (const unsigned long end = std::min(length, at + kWordSize); at < end; ++at)
      to[at] = cleaned(from[at]);
  }
}

// Through scratch memory, so that the string is untouched until the result is complete.
void strip(Operation& op, char* text) {
  ScratchBuffer scratch(op, status::no_record_memory, status::record_memory_not_released);
  const unsigned long length = std::strlen(text);
  if (!scratch.reserve(2, length + 1)) return;
  char* const stripped = static_cast<char*>(scratch.block());
  char* const end = collapse(text, length, stripped);
  *end = '\0';
  std::memcpy(text, stripped, static_cast<unsigned long>(end - stripped) + 1);
}

}  // namespace

char* genreg::takeStripped(char (&own)[kGenRegLineSize], const char* line, unsigned long length) {
  const void* mark = std::memchr(line, '#', length);
  if (mark == nullptr) {
    *collapse(line, length, own) = '\0';
    return nullptr;
  }
  const auto before = static_cast<unsigned long>(static_cast<const char*>(mark) - line);
  const unsigned long behind = length - before - 1;
  char* const end = collapse(line, before, own);
  *end = '\0';
  copyCleaned(line + before + 1, behind, end + 1);
  end[1 + behind] = '\0';
  return end + 1;
}

GenRegStatus StripWhiteSpace(char* text) {
  Operation op(kStripWhiteSpace);
  if (text == nullptr) return op.fail(1, status::null_argument);
  strip(op, text);
  return op.status();
}

GenRegStatus CleanString(char* text) {
  if (text == nullptr) return status::ok;
  copyCleaned(text, std::strlen(text), text);
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
