// SPDX-License-Identifier: Apache-2.0
// The version of an installed copy: four numbers, compared by their parts.
//
//     vrx::Result<vrx::Version> version = vrx::Version::parse("3.1.0.7");
//     if (version && *version >= vrx::Version::of(3, 1)) std::puts(version->text().c_str());
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "oss/version_code.h"
#include "vrx/status.h"

namespace vrx {

// A plain value of 8 bytes. Functions of all threads may share one that nobody changes.
struct Version {
  std::uint64_t code = 0;  // oss/version_code.h: the first part in the highest 16 bits

  static constexpr Version of(std::uint16_t major, std::uint16_t minor = 0,
                              std::uint16_t release = 0, std::uint16_t fixpack = 0) {
    return {(std::uint64_t{major} << 48) | (std::uint64_t{minor} << 32) |
            (std::uint64_t{release} << 16) | fixpack};
  }

  // Reads one to four decimal numbers up to 65535 with dots between them; missing ones are 0.
  // 0x9000025F for anything else, an empty text among it.
  static Result<Version> parse(std::string_view text);

  // One of the four numbers: 0 is the first, 3 the last.
  constexpr std::uint16_t part(unsigned index) const {
    return static_cast<std::uint16_t>(code >> (48 - 16 * (index & 3)));
  }

  // All four parts, dotted: "3.1.0.7".
  std::string text() const;
};

constexpr bool operator==(Version a, Version b) {
  return a.code == b.code;
}
constexpr bool operator!=(Version a, Version b) {
  return a.code != b.code;
}
constexpr bool operator<(Version a, Version b) {
  return a.code < b.code;
}
constexpr bool operator<=(Version a, Version b) {
  return a.code <= b.code;
}
constexpr bool operator>(Version a, Version b) {
  return a.code > b.code;
}
constexpr bool operator>=(Version a, Version b) {
  return a.code >= b.code;
}

namespace detail {

// Reads one part off the front of `text`; false when none stands there.
inline bool takeVersionPart(std::string_view* text, std::uint64_t* part) {
  constexpr std::uint64_t kLargest = 0xFFFF;
  std::size_t length = 0;
  *part = 0;
  for (; length < text->size() && (*text)[length] >= '0' && (*text)[length] <= '9'; ++length) {
    *part = *part * 10 + static_cast<std::uint64_t>((*text)[length] - '0');
    if (*part > kLargest) return false;
  }
  text->remove_prefix(length);
  return length > 0;
}

}  // namespace detail

// Stricter than the exported function, which takes empty and over-large components for numbers.
inline Result<Version> Version::parse(std::string_view text) {
  Version version;
  for (unsigned shift = 64; shift > 0;) {
    shift -= 16;
    std::uint64_t part = 0;
    if (!detail::takeVersionPart(&text, &part)) break;
    version.code |= part << shift;
    if (text.empty()) return version;
    if (text.front() != '.') break;
    text.remove_prefix(1);
  }
  return Status(genreg::status::version_malformed);
}

inline std::string Version::text() const {
  char buffer[kVersionStringSize] = "";
  // The buffer holds every version; should it fail all the same, the text is empty.
  (void)ossVersionCodeToString(code, buffer, sizeof buffer);
  return buffer;
}

}  // namespace vrx
