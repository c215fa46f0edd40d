// SPDX-License-Identifier: Apache-2.0
// One line of a log or trace file.
#include "platform/osse/internal/line_buffer.h"

#include <algorithm>
#include <cstring>

#include "platform/osse/strings.h"

namespace oss {
namespace internal {
namespace {

constexpr char kHexDigits[] = "0123456789ABCDEF";

bool needsEscape(unsigned char c) {
  return c < 0x20 || c == 0x7F || c == '\\';
}

}  // namespace

void LineBuffer::addBounded(const char* bytes, std::size_t count) {
  const std::size_t room = kSize - 1 - used_;  // one byte stays free for the newline
  count = std::min(count, room);
  std::memcpy(bytes_ + used_, bytes, count);
  used_ += count;
  bytes_[used_] = '\0';
}

void LineBuffer::add(const char* text) {
  addBounded(text, std::strlen(text));
}

void LineBuffer::addEscaped(const char* text) {
  for (; *text != '\0' && used_ < kSize - 1; ++text) {
    const auto c = static_cast<unsigned char>(*text);
    if (!needsEscape(c)) {
      addBounded(text, 1);
      continue;
    }
    const char escaped[] = {'\\', 'x', kHexDigits[c >> 4], kHexDigits[c & 0xF]};
    addBounded(escaped, sizeof escaped);
  }
}

void LineBuffer::addNumber(const char* label, unsigned long long value) {
  char text[64];
  (void)ossSnprintf(text, sizeof text, " %s=%llu", label, value);  // labels are short
  add(text);
}

void LineBuffer::addCode(const char* label, unsigned int code) {
  char text[64];
  (void)ossSnprintf(text, sizeof text, " %s=0x%08X", label, code);  // labels are short
  add(text);
}

void LineBuffer::addBytes(const void* data, std::size_t size) {
  const auto* bytes = static_cast<const unsigned char*>(data);
  for (std::size_t i = 0; i < size; ++i) {
    const char hex[] = {' ', kHexDigits[bytes[i] >> 4], kHexDigits[bytes[i] & 0xF]};
    addBounded(hex, sizeof hex);
  }
}

void LineBuffer::finish() {
  bytes_[used_++] = '\n';
  bytes_[used_] = '\0';
}

}  // namespace internal
}  // namespace oss
