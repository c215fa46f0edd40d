// SPDX-License-Identifier: Apache-2.0
// Images of the global registry's records as the fuzzer gives them, unpacked by the slots that work
// in place.
#pragma once

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "globalreg/global_reg.h"

namespace vrxfuzz {

// A block that holds an image, or the record that it becomes, and the zeros that end a walk over
// one that lies about its lengths.
inline std::vector<char> roomyBlock(const std::string& bytes) {
  constexpr std::size_t kWalk = 65664;
  std::vector<char> block(bytes.begin(), bytes.end());
  block.resize(std::max(bytes.size(), sizeof(GlobalRegRecord)) + kWalk);
  return block;
}

// The length by a walk of its own; nothing when the image runs past its end.
inline std::optional<std::size_t> imageLength(const std::string& image) {
  constexpr std::size_t kHeader = 20;
  constexpr std::size_t kTrailer = 4;
  if (image.size() < kHeader + kTrailer) return {};
  unsigned long long mask = 0;
  std::memcpy(&mask, image.data() + 4, sizeof mask);
  std::size_t at = kHeader;
  for (unsigned bit = 0; bit < 63; ++bit) {
    if ((mask >> bit & 1) == 0) continue;
    unsigned short length = 0;
    if (at + sizeof length > image.size()) return {};
    std::memcpy(&length, image.data() + at, sizeof length);
    at += sizeof length + length;
  }
  if (at + kTrailer > image.size()) return {};
  return at + kTrailer;
}

inline std::optional<GlobalRegRecord> unpacked(const std::string& image) {
  if (!imageLength(image)) return {};
  std::vector<char> block = roomyBlock(image);
  void* at = block.data();
  if (GlobalReg::UnpackRecord(&at) != 0) return {};
  GlobalRegRecord record;
  std::memcpy(&record, at, sizeof record);
  return record;
}

}  // namespace vrxfuzz
