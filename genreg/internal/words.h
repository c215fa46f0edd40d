// SPDX-License-Identifier: Apache-2.0
// Eight bytes of text looked at in one step, in any byte order.
#pragma once

#include <cstdint>
#include <cstring>

namespace genreg {

using Word = std::uint64_t;
constexpr unsigned long kWordSize = sizeof(Word);
constexpr Word kEachByte = ~Word{0} / 0xFF;
constexpr Word kHighBits = kEachByte * 0x80;

// The word at any address.
template <typename Byte>
Word wordAt(const Byte* from) {
  Word word = 0;
  std::memcpy(&word, from, kWordSize);
  return word;
}

// Whether a byte of the word is below `limit`, or above it; it is below 0x80.
constexpr bool hasBelow(Word word, unsigned char limit) {
  return ((word - kEachByte * limit) & ~word & kHighBits) != 0;
}
constexpr bool hasAbove(Word word, unsigned char limit) {
  return (((word + kEachByte * (0x7FU - limit)) | word) & kHighBits) != 0;
}
constexpr bool hasNul(Word word) {
  return hasBelow(word, 1);
}

}  // namespace genreg
