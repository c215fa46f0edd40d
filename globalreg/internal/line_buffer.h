// SPDX-License-Identifier: Apache-2.0
// One line of text, built in memory to be written with one call. What does not fit is left out; the
// last byte is kept for the newline.
#pragma once

#include <cstddef>
#include <cstring>

namespace globalreg {

class LineBuffer {
 public:
  // Holds a change-log line with the longest header and two records of every field at its widest.
  static constexpr std::size_t kCapacity = 8192;

  void append(const char* bytes, std::size_t count) {
    const std::size_t room = kCapacity - 1 - size_;
    if (count > room) count = room;
    std::memcpy(bytes_ + size_, bytes, count);
    size_ += count;
  }
  void append(const char* text) { append(text, std::strlen(text)); }
  // printf's conversions; the text of one call is cut at 127 bytes.
  void appendFormat(const char* format, ...) __attribute__((format(printf, 2, 3)));
  void endLine() { bytes_[size_++] = '\n'; }

  const char* data() const { return bytes_; }
  std::size_t size() const { return size_; }

 private:
  char bytes_[kCapacity];
  std::size_t size_ = 0;
};

}  // namespace globalreg
