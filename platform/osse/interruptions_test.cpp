// SPDX-License-Identifier: Apache-2.0
// Calls that are made again when they were interrupted, and those that are given up.
#include "platform/osse/interruptions.h"

#include <gtest/gtest.h>

namespace {

using oss::repeatInterrupted;

// A call that is interrupted `times` times before it returns 7.
struct Interrupted {
  int times;
  int calls = 0;

  int operator()() {
    if (++calls > times) return 7;
    errno = EINTR;
    return -1;
  }
};

int repeat(Interrupted& call) {
  return repeatInterrupted([&] { return call(); });
}

TEST(OssInterruptions, ACallThatSucceedsIsMadeOnce) {
  Interrupted call{0};
  EXPECT_EQ(repeat(call), 7);
  EXPECT_EQ(call.calls, 1);
}

TEST(OssInterruptions, AnInterruptedCallIsMadeAgain) {
  Interrupted call{5};
  EXPECT_EQ(repeat(call), 7);
  EXPECT_EQ(call.calls, 6);
}

TEST(OssInterruptions, AnotherFailureEndsIt) {
  int calls = 0;
  const int rc = repeatInterrupted([&] {
    errno = ++calls == 2 ? EIO : EINTR;
    return -1;
  });
  EXPECT_EQ(rc, -1);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(calls, 2);
}

TEST(OssInterruptions, ACallThatIsAlwaysInterruptedIsGivenUp) {
  Interrupted call{1000000};
  EXPECT_EQ(repeat(call), -1);
  EXPECT_EQ(errno, EINTR);
  EXPECT_EQ(call.calls, oss::kMostInterruptions + 1);
}

}  // namespace
