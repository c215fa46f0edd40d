// SPDX-License-Identifier: Apache-2.0
// System calls that signals interrupt.
#pragma once

#include <cerrno>
#include <chrono>

namespace oss {

// Tells signals, which interrupt a call now and then, from a file system whose every answer is that
// the call was interrupted: it would hold its caller for ever.
class Interruptions {
 public:
  // Whether a call that was interrupted once more is to be made again.
  bool arePlausible() {
    const Clock::time_point now = Clock::now();
    if (count_ == 0) since_ = now;
    if (++count_ < kMost) return true;
    count_ = 0;
    return now - since_ >= kFastest;
  }

 private:
  using Clock = std::chrono::steady_clock;

  // No source of signals is so fast.
  static constexpr int kMost = 1000;
  static constexpr std::chrono::milliseconds kFastest{500};

  int count_ = 0;
  Clock::time_point since_{};
};

// Makes a call that returns -1 with errno set on failure, and makes it again when a signal has
// interrupted it. Returns what the last one did; with EINTR when that would never end.
template <class Call>
auto repeatInterrupted(const Call& call) {
  Interruptions interruptions;
  for (;;) {
    const auto result = call();
    if (result != -1 || errno != EINTR) return result;
    if (interruptions.arePlausible()) continue;
    errno = EINTR;
    return result;
  }
}

}  // namespace oss
