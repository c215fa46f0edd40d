// SPDX-License-Identifier: Apache-2.0
// Copies of a few bytes each, of lengths that only the data knows.
#pragma once

#include <cstddef>
#include <cstring>

namespace globalreg {

// Copies `count` bytes, at least `chunk` and at most twice that: the last ones may be copied twice.
template <std::size_t chunk>
void copyBothEnds(unsigned char* to, const unsigned char* from, std::size_t count) {
  std::memcpy(to, from, chunk);
  std::memcpy(to + count - chunk, from + count - chunk, chunk);
}

// A record is read by a dozen short copies, most of which are done before memcpy is called.
inline void copyShort(unsigned char* to, const unsigned char* from, std::size_t count) {
  if (count > 64) {
    std::memcpy(to, from, count);
  } else if (count >= 32) {
    copyBothEnds<32>(to, from, count);
  } else if (count >= 16) {
    copyBothEnds<16>(to, from, count);
  } else if (count >= 8) {
    copyBothEnds<8>(to, from, count);
  } else if (count >= 4) {
    copyBothEnds<4>(to, from, count);
  } else {
    for (std::size_t i = 0; i < count; ++i)
      to[i] = from[i];
  }
}

}  // namespace globalreg
