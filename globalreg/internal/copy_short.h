// SPDX-License-Identifier: Apache-2.0
// Copies of a few bytes each, of lengths that only the data knows.
#pragma once

#include <cstddef>
#include <cstring>

namespace globalreg {

// Copies `count` bytes, `count` at least `chunk`: the last chunk may overlap the one before it.
template <std::size_t chunk>
void copyInChunks(unsigned char* to, const unsigned char* from, std::size_t count) {
  for (std::size_t at = 0; at + chunk <= count; at += chunk)
    std::memcpy(to + at, from + at, chunk);
  std::memcpy(to + count - chunk, from + count - chunk, chunk);
}

// A record is read by a dozen short copies, most of which are done before memcpy is called.
inline void copyShort(unsigned char* to, const unsigned char* from, std::size_t count) {
  if (count > 64) {
    std::memcpy(to, from, count);
  } else if (count >= 16) {
    copyInChunks<16>(to, from, count);
  } else if (count >= 4) {
    copyInChunks<4>(to, from, count);
  } else {
    for (std::size_t i = 0; i < count; ++i)
      to[i] = from[i];
  }
}

}  // namespace globalreg
