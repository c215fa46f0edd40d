// SPDX-License-Identifier: Apache-2.0
// Bounded formatting and the reading of booleans.
#include "platform/osse/strings.h"

#include <climits>
#include <cstdarg>
#include <cstdio>

int ossSnprintf(char* out, unsigned long size, const char* format, ...) {
  if (out == nullptr) size = 0;
  if (size > INT_MAX) size = INT_MAX;  // beyond it the C library may refuse; the result is an int
  int length = -1;
  if (format != nullptr) {
    va_list arguments;
    va_start(arguments, format);
    length = std::vsnprintf(out, size, format, arguments);
    va_end(arguments);
  }
  if (length < 0 && size > 0) out[0] = '\0';
  return length < 0 ? -1 : length;
}

namespace {

struct BooleanWord {
  const char* word;
  bool value;
};

constexpr BooleanWord kBooleanWords[] = {
    {"1", true},  {"true", true},   {"t", true},  {"yes", true}, {"y", true},  {"on", true},
    {"0", false}, {"false", false}, {"f", false}, {"no", false}, {"n", false}, {"off", false},
};

// ASCII only: the meaning of a setting must not depend on the locale.
char asciiLower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool equalsCaseBlind(const char* text, const char* word) {
  while (*word != '\0' && asciiLower(*text) == *word) {
    ++text;
    ++word;
  }
  return *text == *word;
}

}  // namespace

OSSStatus ossStrToBoolean(const char* text, bool* out) {
  if (text == nullptr || out == nullptr) return oss::status::invalid_argument;
  for (const BooleanWord& candidate : kBooleanWords) {
    if (!equalsCaseBlind(text, candidate.word)) continue;
    *out = candidate.value;
    return oss::status::ok;
  }
  return oss::status::not_a_boolean;
}
