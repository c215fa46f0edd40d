// SPDX-License-Identifier: Apache-2.0
// The time of day.
#include "platform/osse/clock.h"

#include <gtest/gtest.h>

#include <ctime>

namespace {

TEST(OssClock, TellsTheSecondsOfTheSystemClock) {
  const long long before = std::time(nullptr);
  const long long now = ossTimeGetUTC();
  const long long after = std::time(nullptr);
  EXPECT_LE(before, now);
  EXPECT_LE(now, after);
}

TEST(OssClock, ReachesBeyond2038) {
  EXPECT_EQ(sizeof(decltype(ossTimeGetUTC())), 8u);
}

}  // namespace
