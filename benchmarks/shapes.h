// SPDX-License-Identifier: Apache-2.0
// What a registry file in memory is made of: frames or lines. A shape has
//
//     static std::string_view next(std::string_view rest)   the first item of what is left
//     static bool matches(std::string_view item, std::string_view key)
//
// The floor and the discipline (floor.h) are templates over a shape. Items are looked at where they
// lie in memory; nothing is copied.
#pragma once

#include <cstdint>
#include <cstring>
#include <string_view>

#include "benchmarks/measure.h"
#include "benchmarks/records.h"
#include "globalreg/record.h"

namespace vrxbench {

// Frames of packed instances; the key is packedKey's.
struct FrameShape {
  static constexpr std::size_t kLengthSize = 4;

  static std::string_view next(std::string_view rest) {
    std::uint32_t length = 0;
    require(rest.size() >= kLengthSize, "a cut length");
    std::memcpy(&length, rest.data(), sizeof length);
    require(rest.size() - kLengthSize >= length, "a frame past the end of its file");
    return rest.substr(0, kLengthSize + length);
  }

  static std::string_view imageOf(std::string_view frame) { return frame.substr(kLengthSize); }

  static bool matches(std::string_view frame, std::string_view key) {
    const std::string_view image = imageOf(frame);
    if (image.size() < kPackedHeader + key.size()) return false;
    std::uint32_t type = 0;
    std::memcpy(&type, image.data(), sizeof type);
    if (type != kGlobalRegInstance) return false;
    return std::memcmp(image.data() + kPackedHeader, key.data(), key.size()) == 0;
  }
};

// Lines that begin with their key, which ends at a blank, a tab or an equals sign.
struct LineShape {
  static std::string_view next(std::string_view rest) {
    const void* newline = std::memchr(rest.data(), '\n', rest.size());
    if (newline == nullptr) return rest;
    return rest.substr(
        0, static_cast<std::size_t>(static_cast<const char*>(newline) + 1 - rest.data()));
  }

  static bool matches(std::string_view line, std::string_view key) {
    const std::size_t start = line.find_first_not_of(" \t");
    if (start == std::string_view::npos || line[start] == '#') return false;
    const std::string_view text = line.substr(start);
    if (text.size() <= key.size()) return false;
    if (std::memcmp(text.data(), key.data(), key.size()) != 0) return false;
    const char behind = text[key.size()];
    return behind == '=' || behind == ' ' || behind == '\t';
  }
};

}  // namespace vrxbench
