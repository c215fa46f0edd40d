// SPDX-License-Identifier: Apache-2.0
// The walk from physical text to a logical line.
#include "genreg/text/internal/line_reader.h"

#include <cstring>

namespace genreg {
namespace {

bool isAtEnd(FILE* file) {
  const int next = getc_unlocked(file);
  if (next == EOF) return true;
  (void)std::ungetc(next, file);  // one byte always fits
  return false;
}

// Reads up to and including a newline, at most `size` - 1 bytes, and terminates them.
unsigned long readPhysical(char* to, unsigned long size, FILE* file) {
  unsigned long length = 0;
  while (length + 1 < size) {
    const int byte = getc_unlocked(file);
    if (byte == EOF) break;
    to[length++] = static_cast<char>(byte);
    if (byte == '\n') break;
  }
  to[length] = '\0';
  return length;
}

// How the walk over one physical line ended.
enum class Walk { kLineEnds, kGoesOn };

// Appends a physical line to the logical line at `end`. It goes on when its newline was escaped.
Walk appendPhysical(const char* from, char*& end, Continuations continuations) {
  for (; *from != '\0'; ++from) {
    if (*from != '\\') {
      *end++ = *from;
      continue;
    }
    if (from[1] == '\0') break;  // nothing to escape: the backslash is dropped
    if (from[1] == '\n' && continuations == Continuations::kJoined) return Walk::kGoesOn;
    *end++ = *from;
  }
  return Walk::kLineEnds;
}

}  // namespace

LineRead readLogicalLine(char* raw, char* line, unsigned long size, FILE* file,
                         Continuations continuations) {
  LineRead read;
  char* end = line;
  Walk walk = Walk::kGoesOn;
  raw[0] = '\0';
  while (walk == Walk::kGoesOn && read.rawLength + 1 < size) {
    char* const physical = raw + read.rawLength;
    const unsigned long length = readPhysical(physical, size - read.rawLength, file);
    read.ranOut = length == 0;
    if (read.ranOut) break;
    read.rawLength += length;
    walk = appendPhysical(physical, end, continuations);
  }
  *end = '\0';
  const bool full = read.rawLength + 1 >= size;
  const bool open = walk == Walk::kGoesOn || read.rawLength == 0 || raw[read.rawLength - 1] != '\n';
  read.cut = full && open && !isAtEnd(file);
  return read;
}

bool LineReader::next() {
  continuesPiece_ = last_.cut;
  last_ = readLogicalLine(raw_, line_, sizeof raw_, file_, continuations_);
  return last_.rawLength > 0;
}

bool LineReader::isLast() {
  return isAtEnd(file_);
}

bool LineReader::endsWithNewline() const {
  return last_.rawLength > 0 && raw_[last_.rawLength - 1] == '\n';
}

bool LineReader::hasNul() const {
  return std::memchr(raw_, '\0', last_.rawLength) != nullptr;
}

}  // namespace genreg
