// SPDX-License-Identifier: Apache-2.0
// System calls that signals interrupt.
#pragma once

#include <cerrno>

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

}  // namespace oss
