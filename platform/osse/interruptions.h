// SPDX-License-Identifier: Apache-2.0
// System calls that signals interrupt.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <cstddef>

namespace oss {

// Signals interrupt a call a few times. A file system whose every answer is that the call was
// interrupted would hold its caller for ever.
constexpr int kMostInterruptions = 1000;

// Makes a call that returns -1 with errno set on failure, and makes it again when a signal has
// interrupted it. Returns what the last one did; with EINTR when that would never end.
template <class Call>
auto repeatInterrupted(const Call& call) {
  for (int interruptions = 0;; ++interruptions) {
    const auto result = call();
    if (result != -1 || errno != EINTR || interruptions == kMostInterruptions) return result;
  }
}

// Reads `size` bytes of a file, or as many as there are before its end; *got counts them. False
// after an error, with errno set; *got counts the bytes read before it.
inline bool readFully(int descriptor, void* to, std::size_t size, std::size_t* got) {
  for (*got = 0; *got < size;) {
    char* const end = static_cast<char*>(to) + *got;
    const ssize_t count = repeatInterrupted([&] { return read(descriptor, end, size - *got); });
    if (count < 0) return false;
    if (count == 0) break;
    *got += static_cast<std::size_t>(count);
  }
  return true;
}

}  // namespace oss
