// SPDX-License-Identifier: Apache-2.0
// The lines of a text, with what a C string cannot tell of them: where they stand, whether a NUL is
// among their bytes, whether they are whole. Not for programs.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <string>
#include <utility>

#include "genreg/text/line_io.h"
#include "vrx/stored.h"

namespace vrx {
namespace detail {

enum class Joining { none, continuations };

struct TextLine {
  std::size_t number = 0;  // of its first physical line, from 1
  std::string raw;         // its bytes, line ends included
  std::string logical;     // as the library reads it; cut at a NUL
  bool tooLong = false;    // longer than the library reads in one piece
};

// Reads the logical lines of a stream, one after the other.
class LineReader {
 public:
  LineReader(FILE* stream, Joining joining) : stream_(stream), joining_(joining) {}

  // The next line; false when none came, at the end or on a read error.
  bool next(TextLine* line) {
    *line = TextLine{};
    line->number = number_;
    while (readPiece(line))
      line->tooLong = true;
    const auto ends = std::count(line->raw.begin(), line->raw.end(), '\n');
    number_ += static_cast<std::size_t>(ends);
    return !line->raw.empty();
  }

 private:
  // Appends one piece; true when another one of the same line follows. The stream's position tells
  // how many bytes were read, NUL bytes among them.
  bool readPiece(TextLine* line) {
    const off_t begin = ftello(stream_);
    const char* read = GenRegReadLine(raw_, logical_, kGenRegLineSize, stream_, nullptr,
                                      joining_ == Joining::continuations);
    if (read == nullptr) return false;
    const auto length = static_cast<std::size_t>(ftello(stream_) - begin);
    line->raw.append(raw_, std::min<std::size_t>(length, sizeof raw_ - 1));
    line->logical += logical_;
    return goesOn(length, line->raw);
  }

  // A piece ends where the buffer is full, and not where the line does.
  bool goesOn(std::size_t length, const std::string& raw) {
    if (length + 1 < kGenRegLineSize) return false;
    const bool joins = joining_ == Joining::continuations && raw.size() > 1 &&
                       raw.compare(raw.size() - 2, 2, "\\\n") == 0;
    return (raw.back() != '\n' || joins) && !isAtEnd();
  }

  bool isAtEnd() {
    const int next = std::getc(stream_);
    if (next == EOF) return true;
    (void)std::ungetc(next, stream_);  // one byte always fits
    return false;
  }

  FILE* stream_;
  Joining joining_;
  std::size_t number_ = 1;
  char raw_[kGenRegLineSize] = {};
  char logical_[kGenRegLineSize] = {};
};

struct CloseFile {
  void operator()(FILE* file) const { (void)std::fclose(file); }  // it was only read
};

// The logical line that this text would be in a file of its own; empty when it would be several.
inline std::string logicalLine(std::string text, Joining joining) {
  const std::unique_ptr<FILE, CloseFile> stream(fmemopen(text.data(), text.size(), "r"));
  if (stream == nullptr) return {};
  LineReader lines(stream.get(), joining);
  TextLine line;
  TextLine second;
  if (!lines.next(&line) || line.tooLong || lines.next(&second)) return {};
  return std::move(line.logical);
}

// What a line is that the parser refuses.
inline LineKind kindOfUnparsed(const std::string& text) {
  const std::size_t first = text.find_first_not_of(" \t\r\n");
  if (first == std::string::npos) return LineKind::blank;
  return text[first] == '#' ? LineKind::comment : LineKind::unparsed;
}

// The first lines of a file that updates stumble over; 0 for none.
struct Obstacles {
  std::size_t longLine = 0;
  std::size_t nulLine = 0;
  std::size_t openLine = 0;  // the last one, when it would join what is added behind it

  void note(const TextLine& line, Joining joining) {
    // An update gives a last line the line end that it lacks.
    const std::size_t missing = line.raw.back() == '\n' ? 0 : 1;
    const bool tooLong = line.tooLong || line.raw.size() + missing >= kGenRegLineSize;
    if (tooLong && longLine == 0) longLine = line.number;
    if (line.raw.find('\0') != std::string::npos && nulLine == 0) nulLine = line.number;
    const std::string text = withoutLineEnd(line.raw);
    const bool joins = joining == Joining::continuations && !text.empty() && text.back() == '\\';
    openLine = joins ? line.number : 0;
  }

  // The status that an Add would end with, ok when it would not.
  GenRegStatus status() const {
    if (nulLine != 0) return genreg::status::read_failed;
    if (longLine != 0) return genreg::status::buffer_too_small;
    return genreg::status::ok;
  }

  // Which line a failed update is about; empty when none of these explains it.
  std::string describe(GenRegStatus code) const {
    if (code == genreg::status::verify_failed && openLine != 0) {
      return "line " + std::to_string(openLine) +
             " ends in a backslash, which would join the next one to it";
    }
    if (code == genreg::status::read_failed && nulLine != 0)
      return "line " + std::to_string(nulLine) + " holds a NUL byte";
    const bool readingFailed =
        code == genreg::status::read_failed || code == genreg::status::buffer_too_small;
    if (!readingFailed || longLine == 0) return {};
    return "line " + std::to_string(longLine) + " is longer than " +
           std::to_string(kGenRegLineSize - 1) + " bytes, with its line end";
  }
};

}  // namespace detail
}  // namespace vrx
