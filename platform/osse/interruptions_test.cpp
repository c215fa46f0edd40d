// SPDX-License-Identifier: Apache-2.0
// Calls that are made again when they were interrupted, and those that are given up; reading whole.
#include "platform/osse/interruptions.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <thread>

#include "tests/support/faults.h"

namespace {

using oss::repeatInterrupted;
using vrxtest::Call;
using vrxtest::FailCall;

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

// What readFully reads of up to `size` bytes; with its outcome before.
std::string readUpTo(int descriptor, std::size_t size) {
  std::string bytes(size, '-');
  std::size_t got = 0;
  const bool whole = oss::readFully(descriptor, bytes.data(), size, &got);
  return (whole ? "read " : "failed ") + bytes.substr(0, got);
}

// A pipe gives what is in it by now: a file that comes in pieces.
class OssReadFully : public testing::Test {
 protected:
  OssReadFully() { EXPECT_EQ(pipe(ends_), 0); }
  ~OssReadFully() override {
    finish();
    EXPECT_EQ(close(ends_[0]), 0);
  }
  int reader() const { return ends_[0]; }
  void write(const char* text) const {
    const std::string bytes = text;
    EXPECT_EQ(::write(ends_[1], bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }
  void finish() {
    if (ends_[1] < 0) return;
    EXPECT_EQ(close(ends_[1]), 0);
    ends_[1] = -1;
  }

 private:
  int ends_[2] = {-1, -1};
};

TEST_F(OssReadFully, PiecesAreReadUntilTheSizeIsReached) {
  write("one");
  std::thread later([this] { write("twoandmore"); });
  EXPECT_EQ(readUpTo(reader(), 6), "read onetwo");
  later.join();
}

TEST_F(OssReadFully, EndOfTheFileIsNoFailure) {
  write("one");
  finish();
  EXPECT_EQ(readUpTo(reader(), 6), "read one");
  EXPECT_EQ(readUpTo(reader(), 6), "read ");
  EXPECT_EQ(readUpTo(reader(), 0), "read ");
}

TEST_F(OssReadFully, WhatWasReadBeforeAFailureIsTold) {
  write("one");
  finish();
  const FailCall fault(Call::kRead, 2, EIO);
  EXPECT_EQ(readUpTo(reader(), 6), "failed one");
  EXPECT_EQ(errno, EIO);
}

TEST_F(OssReadFully, InterruptedReadIsRepeated) {
  write("one");
  finish();
  const FailCall fault(Call::kRead, 1, EINTR);
  EXPECT_EQ(readUpTo(reader(), 3), "read one");
  EXPECT_EQ(fault.calls(), 2);
}

}  // namespace
