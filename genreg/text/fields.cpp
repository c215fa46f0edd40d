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

// From here on no byte is white space, a quote or the mark of a comment.
constexpr unsigned char kFirstPlain = '#' + 1;

// Most text has nothing in it that has to be changed, and is copied by words.
//
// Whether collapsing leaves the word as it is and goes on behind it: it has no quote, no mark, and
// no white space but single blanks. `next` is the word one byte on.
bool isSettled(Word word, Word next) {
  constexpr Word kBlanks = kEachByte * ' ';
  constexpr Word kMarks = kEachByte * '#';
  static_assert(('"' | 1) == '#');
  return !hasBelow(word, kFirstPlain) ||
         (!hasBelow(word, ' ') && !hasNul((word | kEachByte) ^ kMarks) &&
          !hasNul((word ^ kBlanks) | (next ^ kBlanks)));
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

// How many bytes collapsing has read, and where what it has written ends.
struct Collapsed {
  unsigned long length;
  char* end;
};

char* withoutBlanksAtEnd(const char* start, char* end) {
  while (end != start && end[-1] == ' ')
    --end;
  return end;
}

// Copies `length` bytes, or those before the first `mark`, with each run of white space made one
// blank outside of double quotes, and none at the ends.
Collapsed collapse(const char* from, unsigned long length, char* to, char mark) {
  char* const start = to;
  bool quoted = false;
  for (unsigned long at = 0; at < length;) {
    const bool joins = from[at] == ' ' && (to == start || to[-1] == ' ');
    const unsigned long settled = joins ? 0 : copySettled(from + at, length - at, to);
    at += settled;
    to += settled;
    for (const unsigned long end = std::min(length, at + kWordSize); at < end; ++at) {
      const char byte = from[at];
      if (byte == mark) return {at, withoutBlanksAtEnd(start, to)};
      if (byte == '"') quoted = !quoted;
      const bool blank = isLineSpace(byte);
      if (!blank || quoted || (to != start && to[-1] != ' ')) *to++ = blank ? ' ' : byte;
    }
  }
  return {length, withoutBlanksAtEnd(start, to)};
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
  char* const end = collapse(text, length, stripped, '\0').end;
  *end = '\0';
  std::memcpy(text, stripped, static_cast<unsigned long>(end - stripped) + 1);
}

}  // namespace

char* genreg::takeStripped(char (&own)[kGenRegLineSize], const char* line, unsigned long length) {
  const Collapsed before = collapse(line, length, own, '#');
  *before.end = '\0';
  if (before.length == length) return nullptr;
  const unsigned long behind = length - before.length - 1;
  char* const comment = before.end + 1;
  copyCleaned(line + before.length + 1, behind, comment);
  comment[behind] = '\0';
  return comment;
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
