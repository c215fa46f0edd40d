// SPDX-License-Identifier: Apache-2.0
// Texts made as printf makes them.
#pragma once

#include <cstdarg>
#include <cstdio>
#include <string>

namespace vrxbench {

// Cut behind 159 bytes.
__attribute__((format(printf, 1, 2))) inline std::string formatted(const char* format, ...) {
  char text[160];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  return text;
}

}  // namespace vrxbench
