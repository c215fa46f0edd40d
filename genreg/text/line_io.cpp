// SPDX-License-Identifier: Apache-2.0
// The exported line reader and the folding line writer.
#include "genreg/text/line_io.h"

#include <cstring>

#include "genreg/internal/guards.h"
#include "genreg/internal/operation.h"
#include "genreg/text/internal/line_reader.h"

using namespace genreg;

bool bCompactFormattedLine = false;

namespace {

constexpr char kFold[] = "\\\n";
constexpr unsigned long kFoldLength = sizeof kFold - 1;

// Writes `line` to `to` folded, and returns the length. The rule is applied once a byte, so a width
// at which every position would fold still makes progress.
unsigned long fold(const char* line, unsigned long width, char* to) {
  unsigned long at = 0;
  const auto foldsHere = [&] { return (at + 1) % width == 0; };
  const auto putFold = [&] {
    std::memcpy(to + at, kFold, kFoldLength);
    at += kFoldLength;
  };
  for (; *line != '\0'; ++line) {
    if (foldsHere()) putFold();
    to[at++] = *line;
  }
  if (at > 0 && foldsHere()) putFold();
  to[at] = '\0';
  return at;
}

void writeFolded(Operation& op, const char* line, unsigned long width, FILE* file) {
  // Every byte may bring a fold with it, and one more may follow the last.
  const unsigned long most = (std::strlen(line) + 1) * (1 + kFoldLength) + 1;
  ScratchBuffer folded(op, status::no_record_memory, status::record_memory_not_released);
  if (!folded.reserve(2, most)) return;
  const unsigned long length = fold(line, width, static_cast<char*>(folded.block()));
  // What the stream refuses shows in its error indicator, which the stream's owner tests.
  (void)std::fwrite(folded.block(), 1, length, file);
}

}  // namespace

char* GenRegReadLine(char* raw, char* line, unsigned long size, FILE* file, unsigned int* rc,
                     bool joinContinuations) {
  unsigned int ignored = 0;
  unsigned int& outcome = rc != nullptr ? *rc : ignored;
  if (raw == nullptr || line == nullptr || size == 0 || file == nullptr) {
    outcome = status::bad_argument;
    return nullptr;
  }
  const LineRead read = readLogicalLine(
      raw, line, size, file, joinContinuations ? Continuations::kJoined : Continuations::kKept);
  outcome = read.ranOut ? status::end_of_input : status::ok;
  return read.rawLength > 0 ? raw : nullptr;
}

GenRegStatus GenRegWriteLine(char* line, unsigned long width, FILE* file) {
  Operation op(kGenRegWriteLine);
  if (line == nullptr || width == 0 || file == nullptr) return op.fail(1, status::bad_argument);
  writeFolded(op, line, width, file);
  return op.status();
}
