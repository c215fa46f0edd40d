// SPDX-License-Identifier: Apache-2.0
// For the tests of this folder only: whole texts against POSIX extended regular expressions.
#pragma once

#include <regex.h>

#include <string>

namespace osstest {

// Whether the whole of `text` matches `pattern`; false also for a pattern that is none.
inline bool matches(const std::string& text, const std::string& pattern) {
  regex_t compiled{};
  const std::string whole = "^(" + pattern + ")$";
  if (regcomp(&compiled, whole.c_str(), REG_EXTENDED | REG_NOSUB) != 0) return false;
  const bool matched = regexec(&compiled, text.c_str(), 0, nullptr, 0) == 0;
  regfree(&compiled);
  return matched;
}

}  // namespace osstest
