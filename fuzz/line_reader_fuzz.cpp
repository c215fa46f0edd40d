// SPDX-License-Identifier: Apache-2.0
// The line readers on hostile bytes: no byte lost, nothing written past a buffer, and the lines
// that the model sees. The first byte chooses joining and the size of the buffers.
#include <algorithm>
#include <cstring>
#include <vector>

#include "fuzz/fuzz_support.h"
#include "genreg/text/internal/line_reader.h"
#include "tests/support/text_model.h"

namespace {

using vrxfuzz::require;
using vrxtest::model::Format;
using vrxtest::model::Line;

FILE* streamOver(const std::string& bytes) {
  FILE* file = std::tmpfile();
  require(file != nullptr, "no temporary file");
  require(std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size(), "no room");
  std::rewind(file);
  return file;
}

// The reader that programs call, with buffers of any size.
void readWithFences(const std::string& bytes, unsigned long size, bool joins) {
  constexpr char kFence = '\x5A';
  FILE* file = streamOver(bytes);
  std::vector<char> raw(size + 8, kFence);
  std::vector<char> line(size + 8, kFence);
  unsigned int rc = 0;
  unsigned long lines = 0;
  while (GenRegReadLine(raw.data(), line.data(), size, file, &rc, joins) != nullptr) {
    require(++lines <= bytes.size(), "more lines than bytes");
    require(std::memchr(raw.data(), '\0', size) != nullptr, "raw text not terminated");
    require(std::memchr(line.data(), '\0', size) != nullptr, "line not terminated");
  }
  const auto fenced = [&](const std::vector<char>& buffer) {
    return std::all_of(buffer.end() - 8, buffer.end(), [](char c) { return c == kFence; });
  };
  require(fenced(raw) && fenced(line), "written past the buffer");
  std::fclose(file);
}

// The reader that the store uses, against the model.
void readBesideModel(const std::string& bytes, bool joins) {
  const Format format = joins ? Format::kInitTable : Format::kProfile;
  FILE* file = streamOver(bytes);
  genreg::LineReader reader(joins ? genreg::Continuations::kJoined : genreg::Continuations::kKept);
  reader.cursor().readFrom(file, 0, bytes.size());
  for (const Line& wanted : vrxtest::model::linesOf(format, bytes)) {
    require(reader.next(), "a line is missing");
    require(std::string(reader.raw(), reader.rawLength()) == wanted.raw, "raw text", wanted.raw);
    require(reader.line() == wanted.text, "line", wanted.raw);
    require(reader.isPiece() == wanted.piece, "piece", wanted.raw);
    require(reader.hasNul() == (wanted.raw.find('\0') != std::string::npos), "NUL", wanted.raw);
    require(reader.endsWithNewline() == (wanted.raw.back() == '\n'), "newline", wanted.raw);
  }
  require(reader.isLast() && !reader.next(), "a line too many");
  std::fclose(file);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const bool joins = (data[0] & 1) != 0;
  const std::string bytes = vrxfuzz::bytesOf(data + 1, size - 1);
  readWithFences(bytes, 1UL + data[0] / 2, joins);
  readWithFences(bytes, kGenRegLineSize, joins);
  readBesideModel(bytes, joins);
  return 0;
}
