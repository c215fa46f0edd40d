// SPDX-License-Identifier: Apache-2.0
// Reading line by line through the library's own reader.
#include "cli/text_lines.h"

#include <algorithm>
#include <memory>

namespace cli {

namespace {

struct CloseFile {
  void operator()(FILE* file) const { (void)std::fclose(file); }  // it was only read
};

bool isAtEnd(FILE* stream) {
  const int next = std::getc(stream);
  if (next == EOF) return true;
  (void)std::ungetc(next, stream);  // one byte always fits
  return false;
}

}  // namespace

// A piece ends where the buffer is full, and not where the line does.
bool TextLines::goesOn(std::size_t length, const std::string& raw) {
  if (length + 1 < kGenRegLineSize) return false;
  const bool joins = joining_ == Joining::continuations && raw.size() > 1 &&
                     raw.compare(raw.size() - 2, 2, "\\\n") == 0;
  return (raw.back() != '\n' || joins) && !isAtEnd(stream_);
}

// Appends one piece; true when another one of the same line follows. The stream's position tells
// how many bytes were read, NUL bytes among them.
bool TextLines::readPiece(TextLine* line) {
  const off_t begin = ftello(stream_);
  const char* read = GenRegReadLine(raw_, logical_, kGenRegLineSize, stream_, nullptr,
                                    joining_ == Joining::continuations);
  if (read == nullptr) return false;
  const auto length = static_cast<std::size_t>(ftello(stream_) - begin);
  line->raw.append(raw_, std::min<std::size_t>(length, sizeof raw_ - 1));
  line->logical += logical_;
  return goesOn(length, line->raw);
}

bool TextLines::next(TextLine* line) {
  *line = TextLine{};
  line->number = number_;
  while (readPiece(line))
    line->tooLong = true;
  const auto ends = std::count(line->raw.begin(), line->raw.end(), '\n');
  number_ += static_cast<std::size_t>(ends);
  return !line->raw.empty();
}

std::string logicalLine(const std::string& text, Joining joining) {
  std::string copy = text;
  const std::unique_ptr<FILE, CloseFile> stream(fmemopen(copy.data(), copy.size(), "r"));
  if (stream == nullptr) return {};
  TextLines lines(stream.get(), joining);
  TextLine line;
  TextLine second;
  if (!lines.next(&line) || line.tooLong || lines.next(&second)) return {};
  return line.logical;
}

std::string withoutLineEnd(std::string text) {
  if (!text.empty() && text.back() == '\n') text.pop_back();
  return text;
}

}  // namespace cli
