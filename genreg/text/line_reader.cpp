// SPDX-License-Identifier: Apache-2.0
// The walk from physical text to a logical line.
#include "genreg/text/internal/line_reader.h"

#include <algorithm>
#include <cstring>

#include "genreg/text/internal/find_text.h"

namespace genreg {
namespace {

// Where lines can be joined, so many bytes are searched for a backslash at a time: the search must
// not go far beyond what it is made for.
constexpr std::size_t kJoinWindow = 4096;

// The bytes from one place in memory to a later one.
std::size_t distance(const void* from, const void* to) {
  return static_cast<std::size_t>(static_cast<const char*>(to) - static_cast<const char*>(from));
}

// Text of a stream that is read byte by byte.
class StreamText {
 public:
  explicit StreamText(FILE* file) : file_(file) {}

  bool isAtEnd() {
    const int next = getc_unlocked(file_);
    if (next == EOF) return true;
    (void)std::ungetc(next, file_);  // one byte always fits
    return false;
  }
  // Reads up to and including a newline, at most `size` bytes.
  unsigned long read(char* to, unsigned long size) {
    unsigned long length = 0;
    while (length < size) {
      const int byte = getc_unlocked(file_);
      if (byte == EOF) break;
      to[length++] = static_cast<char>(byte);
      if (byte == '\n') break;
    }
    return length;
  }

 private:
  FILE* const file_;
};

// Text that is read in blocks.
class BlockText {
 public:
  explicit BlockText(BlockCursor& cursor) : cursor_(cursor) {}

  bool isAtEnd() { return !more(); }
  // Whether a byte is in memory.
  bool more() { return cursor_.want(1) == BlockCursor::Step::kReady; }
  unsigned long read(char* to, unsigned long size) {
    unsigned long length = 0;
    bool ended = false;
    while (!ended && length < size && more()) {
      const std::size_t room = std::min<std::size_t>(cursor_.available(), size - length);
      const unsigned char* from = cursor_.bytes();
      const void* newline = std::memchr(from, '\n', room);
      ended = newline != nullptr;
      const std::size_t count = ended ? distance(from, newline) + 1 : room;
      std::memcpy(to + length, from, count);
      cursor_.skip(count);
      length += static_cast<unsigned long>(count);
    }
    return length;
  }

 private:
  BlockCursor& cursor_;
};

// How the walk over one physical line ended.
enum class Walk { kLineEnds, kGoesOn };

// Appends a physical line to the logical line at `end`. It goes on when its newline was escaped.
Walk appendPhysical(const char* from, unsigned long length, char*& end,
                    Continuations continuations) {
  if (std::memchr(from, '\\', length) == nullptr) {  // a NUL ends the line in the copy as well
    std::memcpy(end, from, length);
    end += length;
    return Walk::kLineEnds;
  }
  for (const char* const stop = from + length; from != stop && *from != '\0'; ++from) {
    if (*from == '\\') {
      const char escaped = from + 1 != stop ? from[1] : '\0';
      if (escaped == '\0') break;  // nothing: the backslash is dropped
      if (escaped == '\n' && continuations == Continuations::kJoined) return Walk::kGoesOn;
    }
    *end++ = *from;
  }
  return Walk::kLineEnds;
}

// How many bytes two passages have in common at their start.
unsigned long commonLength(const Passage& a, const Passage& b) {
  constexpr unsigned long kStrides[] = {1024, 32, 1};
  const unsigned long most = std::min(a.length, b.length);
  unsigned long same = 0;
  for (const unsigned long stride : kStrides) {
    while (same + stride <= most && std::memcmp(a.bytes + same, b.bytes + same, stride) == 0)
      same += stride;
  }
  return same;
}

template <class Text>
LineRead readLogical(char* raw, char* line, unsigned long size, Text text,
                     Continuations continuations) {
  LineRead read;
  char* end = line;
  Walk walk = Walk::kGoesOn;
  raw[0] = '\0';
  while (walk == Walk::kGoesOn && read.rawLength + 1 < size) {
    char* const physical = raw + read.rawLength;
    const unsigned long length = text.read(physical, size - 1 - read.rawLength);
    physical[length] = '\0';
    read.ranOut = length == 0;
    if (read.ranOut) break;
    read.rawLength += length;
    walk = appendPhysical(physical, length, end, continuations);
  }
  *end = '\0';
  const bool full = read.rawLength + 1 >= size;
  const bool open = walk == Walk::kGoesOn || raw[read.rawLength - 1] != '\n';
  read.cut = full && open && !text.isAtEnd();
  return read;
}

}  // namespace

LineRead readLogicalLine(char* raw, char* line, unsigned long size, FILE* file,
                         Continuations continuations) {
  return readLogical(raw, line, size, StreamText(file), continuations);
}

LineReader::LineReader(Continuations continuations) : continuations_(continuations) {
  rawBuffer_[0] = '\0';
  line_[0] = '\0';
}

bool LineReader::readThrough() {
  last_ = readLogical(rawBuffer_, line_, sizeof rawBuffer_, BlockText(cursor_), continuations_);
  raw_ = rawBuffer_;
  return last_.rawLength > 0;
}

// Takes the next line where it lies in memory, if it is there with its newline, goes on nowhere and
// has no NUL. A byte behind it is asked for, so that looking for a further line does not move the
// block.
bool LineReader::takeWhole() {
  const std::size_t available = cursor_.available();
  if (available == 0) return false;
  const char* const from = reinterpret_cast<const char*>(cursor_.bytes());
  const std::size_t most = std::min<std::size_t>(available, kGenRegLineSize) - 1;
  const unsigned char* const end = findLineEnd(cursor_.bytes(), static_cast<unsigned long>(most));
  if (end == nullptr || *end != '\n') return false;
  const std::size_t length = distance(from, end) + 1;
  const bool escaped = length > 1 && from[length - 2] == '\\';
  if (escaped && continuations_ == Continuations::kJoined) return false;
  last_ = {};
  last_.rawLength = static_cast<unsigned long>(length);
  raw_ = from;
  cursor_.skip(length);
  return true;
}

// A line that was taken where it lies is copied only when it is asked for.
char* LineReader::line() {
  if (lineIsMade_) return line_;
  char* end = line_;
  (void)appendPhysical(raw_, last_.rawLength, end, continuations_);  // ends with this line
  *end = '\0';
  lineIsMade_ = true;
  return line_;
}

bool LineReader::mayHold(const char* text, unsigned long length) const {
  const char* const bytes = lineIsMade_ ? line_ : raw_;
  const unsigned long size = lineIsMade_ ? std::strlen(line_) : last_.rawLength;
  return findText(reinterpret_cast<const unsigned char*>(bytes), size, text, length) != nullptr;
}

Passage LineReader::passOver(const char* text, unsigned long length) {
  const Passage ahead = linesAhead();
  const unsigned char* const found = findText(ahead.bytes, ahead.length, text, length);
  return skipLines(found != nullptr ? static_cast<unsigned long>(found - ahead.bytes)
                                    : ahead.length);
}

// What is in memory, when the next line begins there: where lines can be joined, up to the first
// that can be.
Passage LineReader::linesAhead() {
  const bool atLine = last_.rawLength == 0 || endsWithNewline();
  if (!atLine || last_.cut || !BlockText(cursor_).more()) return {};
  const unsigned char* const from = cursor_.bytes();
  std::size_t length = cursor_.available();
  if (continuations_ == Continuations::kJoined) {
    length = std::min(length, kJoinWindow);
    const void* escape = std::memchr(from, '\\', length);
    if (escape != nullptr) length = distance(from, escape);
  }
  return {from, static_cast<unsigned long>(length)};
}

// Steps over the lines that end within the next `most` bytes.
Passage LineReader::skipLines(unsigned long most) {
  Passage passage{cursor_.bytes(), most};
  while (passage.length > 0 && passage.bytes[passage.length - 1] != '\n')
    --passage.length;
  cursor_.skip(passage.length);
  if (passage.length > 0) last_ = {};
  return passage;
}

bool LineReader::passOverSame(LineReader& other) {
  const Passage mine = linesAhead();
  const Passage theirs = other.linesAhead();
  const unsigned long common = commonLength(mine, theirs);
  const Passage passed = skipLines(common);
  other.skipLines(passed.length);
  return passed.length > 0;
}

bool LineReader::isLast() {
  return BlockText(cursor_).isAtEnd();
}

bool LineReader::endsWithNewline() const {
  return last_.rawLength > 0 && raw_[last_.rawLength - 1] == '\n';
}

bool LineReader::hasNul() const {
  return raw_ == rawBuffer_ && std::memchr(raw_, '\0', last_.rawLength) != nullptr;
}

}  // namespace genreg
