// SPDX-License-Identifier: Apache-2.0
// One line of a log or trace file, put together piece by piece and cut at a fixed size.
#pragma once

#include <cstddef>

namespace oss {
namespace internal {

class LineBuffer {
 public:
  static constexpr std::size_t kSize = 2048;  // bytes, the newline included

  // Adds text as it stands, as far as it fits.
  void add(const char* text);
  // Adds text with control characters and backslashes as \xNN, so that it cannot leave its line.
  void addEscaped(const char* text);
  // Adds " label=value", the value in decimal or as 0x%08X.
  void addNumber(const char* label, unsigned long long value);
  void addCode(const char* label, unsigned int code);
  // Adds the bytes at `data`, each as " NN".
  void addBytes(const void* data, std::size_t size);

  // The line without its newline, terminated.
  const char* text() const { return bytes_; }
  // Ends the line with its newline; its bytes are then text() and size().
  void finish();
  std::size_t size() const { return used_; }

 private:
  void addBounded(const char* bytes, std::size_t count);

  char bytes_[kSize + 1] = "";
  std::size_t used_ = 0;
};

}  // namespace internal
}  // namespace oss
