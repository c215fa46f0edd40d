// SPDX-License-Identifier: Apache-2.0
// Formatted parts of a line.
#include "globalreg/internal/line_buffer.h"

#include <cstdarg>
#include <cstdio>

namespace globalreg {

void LineBuffer::appendFormat(const char* format, ...) {
  char text[128];
  va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  if (length <= 0) return;
  const auto count = static_cast<std::size_t>(length);
  append(text, count < sizeof text ? count : sizeof text - 1);
}

}  // namespace globalreg
