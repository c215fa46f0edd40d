// SPDX-License-Identifier: Apache-2.0
// Locks between handles of one process and of several, signals during a wait, the limit on waiting.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <fstream>
#include <string>
#include <thread>

#include "platform/osse/errors.h"
#include "platform/osse/file_handle.h"
#include "platform/osse/interruptions.h"
#include "tests/support/faults.h"
#include "tests/support/temp_dir.h"
#include "tests/support/test_child.h"

namespace {

using namespace oss;
using vrxtest::TempDir;

constexpr OSSFileLockParams kExclusive = {kOssFileStructureVersion, kOssLockExclusive,
                                          kOssLockWait};
constexpr OSSFileLockParams kShared = {kOssFileStructureVersion, kOssLockShared, kOssLockWait};
constexpr OSSFileLockParams kExclusiveNow = {kOssFileStructureVersion, kOssLockExclusive,
                                             kOssLockNoWait};
constexpr OSSFileLockParams kSharedNow = {kOssFileStructureVersion, kOssLockShared, kOssLockNoWait};

// Sets the process-wide limit for the time of a test.
class Limit {
 public:
  explicit Limit(long long milliseconds) { ossSetLockTimeLimit(milliseconds); }
  ~Limit() { ossSetLockTimeLimit(-1); }
  Limit(const Limit&) = delete;
  Limit& operator=(const Limit&) = delete;
};

class OssFileLock : public testing::Test {
 protected:
  void SetUp() override {
    openFile(&one_);
    openFile(&two_);
  }
  void openFile(OSSHFile* file, unsigned access = kOssAccessReadWrite) const {
    const OSSFileOpenParams how = {
        kOssFileStructureVersion, path_.c_str(), kOssOpenOrCreate, access, 0, 0644, 0};
    ASSERT_EQ(file->open(&how), status::ok);
  }
  // Whether a process of its own gets the lock at once.
  bool anotherProcessGets(const OSSFileLockParams& lock) const {
    return osstest::inChild([&] {
             OSSHFile mine;
             openFile(&mine);
             return mine.lock(&lock) == status::ok ? 0 : 1;
           }) == 0;
  }

  const TempDir dir_;
  const std::string path_ = dir_.file("lock");
  OSSHFile one_;
  OSSHFile two_;
};

TEST_F(OssFileLock, TwoHandlesOfOneProcessContend) {
  ASSERT_EQ(one_.lock(&kExclusive), status::ok);
  EXPECT_EQ(two_.lock(&kExclusiveNow), 0x90000014u);
  EXPECT_EQ(two_.lock(&kSharedNow), status::lock_held);
  ASSERT_EQ(one_.unlock(), status::ok);
  EXPECT_EQ(two_.lock(&kExclusiveNow), status::ok);
}

TEST_F(OssFileLock, SharedLocksGoTogetherAndKeepWritersOut) {
  ASSERT_EQ(one_.lock(&kShared), status::ok);
  EXPECT_EQ(two_.lock(&kSharedNow), status::ok);
  EXPECT_EQ(two_.lock(&kExclusiveNow), status::lock_held);
  EXPECT_TRUE(anotherProcessGets(kSharedNow));
  EXPECT_FALSE(anotherProcessGets(kExclusiveNow));
}

TEST_F(OssFileLock, AFailedConversionKeepsTheSharedLock) {
  ASSERT_EQ(one_.lock(&kShared), status::ok);
  ASSERT_EQ(two_.lock(&kShared), status::ok);
  ASSERT_EQ(two_.lock(&kExclusiveNow), status::lock_held);
  ASSERT_EQ(one_.unlock(), status::ok);
  EXPECT_FALSE(anotherProcessGets(kExclusiveNow));
  EXPECT_EQ(two_.lock(&kExclusiveNow), status::ok);
  EXPECT_FALSE(anotherProcessGets(kSharedNow));
}

TEST_F(OssFileLock, ClosingAnotherDescriptorOfTheFileDropsNothing) {
  ASSERT_EQ(one_.lock(&kExclusive), status::ok);
  ASSERT_EQ(two_.close(), status::ok);
  const int plain = open(path_.c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_EQ(close(plain), 0);
  EXPECT_FALSE(anotherProcessGets(kExclusiveNow));
}

TEST_F(OssFileLock, CloseDropsTheLockAndDetachKeepsIt) {
  ASSERT_EQ(one_.lock(&kExclusive), status::ok);
  ASSERT_EQ(one_.close(), status::ok);
  EXPECT_EQ(two_.lock(&kExclusiveNow), status::ok);
  const int given = two_.detach();
  EXPECT_FALSE(anotherProcessGets(kExclusiveNow));
  ASSERT_EQ(close(given), 0);
  EXPECT_TRUE(anotherProcessGets(kExclusiveNow));
}

TEST_F(OssFileLock, TheWholeFileIsLockedHoweverItGrows) {
  ASSERT_EQ(one_.lock(&kExclusive), status::ok);
  struct flock far {};
  far.l_type = F_WRLCK;
  far.l_whence = SEEK_SET;
  far.l_start = off_t{1} << 40;
  far.l_len = 1;
  EXPECT_EQ(fcntl(two_.getFileHandle(), F_OFD_SETLK, &far), -1);
}

TEST_F(OssFileLock, AProcessThatDiesDropsItsLock) {
  EXPECT_TRUE(anotherProcessGets(kExclusiveNow));
  EXPECT_EQ(one_.lock(&kExclusiveNow), status::ok);
}

TEST_F(OssFileLock, AnExclusiveLockNeedsWriteAccess) {
  openFile(&one_, kOssAccessRead);
  EXPECT_EQ(one_.lock(&kExclusiveNow), ossErrorMapSystem(EBADF));
  EXPECT_EQ(one_.lock(&kSharedNow), status::ok);
}

TEST_F(OssFileLock, InvalidRequestsLockNothing) {
  EXPECT_EQ(one_.lock(nullptr), status::invalid_argument);
  for (const OSSFileLockParams& bad :
       {OSSFileLockParams{0x09050001, 1, 1}, OSSFileLockParams{kOssFileStructureVersion, 0, 1},
        OSSFileLockParams{kOssFileStructureVersion, 3, 1},
        OSSFileLockParams{kOssFileStructureVersion, 1, 0},
        OSSFileLockParams{kOssFileStructureVersion, 1, 3}}) {
    EXPECT_EQ(one_.lock(&bad), status::invalid_argument);
  }
  EXPECT_TRUE(anotherProcessGets(kExclusiveNow));
}

TEST_F(OssFileLock, AHeldLockIsReportedAlikeHoweverTheSystemCallsIt) {
  for (const int error : {EAGAIN, EACCES}) {
    const vrxtest::FailCall fault(vrxtest::Call::kLockFcntl, 1, error);
    EXPECT_EQ(one_.lock(&kExclusiveNow), status::lock_held) << error;
  }
  EXPECT_TRUE(anotherProcessGets(kExclusiveNow));
}

TEST_F(OssFileLock, AClosedHandleIsAnInvalidArgument) {
  OSSHFile closed;
  EXPECT_EQ(closed.lock(&kExclusiveNow), status::invalid_argument);
  EXPECT_EQ(closed.unlock(), status::invalid_argument);
}

TEST_F(OssFileLock, UnlockWithoutALockSucceeds) {
  EXPECT_EQ(one_.unlock(), status::ok);
}

// A thread that waits for the exclusive lock through a handle.
class Waiter {
 public:
  explicit Waiter(OSSHFile* file)
      : thread_([this, file] {
          tid_ = static_cast<long>(syscall(SYS_gettid));
          result_ = file->lock(&kExclusive);
          done_ = true;
        }) {}
  ~Waiter() { thread_.join(); }

  // Returns when the thread sleeps, which it does in its lock request only, or is done.
  void awaitSleep() const {
    while (tid_ == 0)
      std::this_thread::yield();
    while (!done_ && state() != 'S')
      std::this_thread::yield();
  }
  void interrupt() { pthread_kill(thread_.native_handle(), SIGUSR1); }
  OSSStatus result() {
    while (!done_)
      std::this_thread::yield();
    return result_;
  }
  bool done() const { return done_; }

 private:
  char state() const {
    std::ifstream in("/proc/self/task/" + std::to_string(tid_) + "/stat");
    std::string text;
    std::getline(in, text);
    const std::size_t end = text.rfind(") ");
    return end != std::string::npos ? text[end + 2] : '?';
  }

  std::atomic<long> tid_{0};
  std::atomic<bool> done_{false};
  std::atomic<OSSStatus> result_{0xFFFFFFFF};
  std::thread thread_;
};

std::atomic<int> interruptions{0};
void countInterruption(int) {
  ++interruptions;
}

// Delivers signals that interrupt system calls (no SA_RESTART) while in scope.
class InterruptingSignal {
 public:
  InterruptingSignal() {
    struct sigaction action {};
    action.sa_handler = countInterruption;
    sigaction(SIGUSR1, &action, &before_);
    interruptions = 0;
  }
  ~InterruptingSignal() { sigaction(SIGUSR1, &before_, nullptr); }
  InterruptingSignal(const InterruptingSignal&) = delete;
  InterruptingSignal& operator=(const InterruptingSignal&) = delete;

 private:
  struct sigaction before_ {};
};

// The thread sanitizer holds a signal back until the thread leaves the lock request, so there no
// signal can interrupt one.
#if defined(__SANITIZE_THREAD__)
constexpr bool kSignalsComeLate = true;
#else
constexpr bool kSignalsComeLate = false;
#endif

constexpr int kFewSignals = 5;

void expectInterruptedWaitGoesOn(OSSHFile* holder, OSSHFile* waiting, int count = kFewSignals) {
  const InterruptingSignal signals;
  ASSERT_EQ(holder->lock(&kExclusive), status::ok);
  Waiter waiter(waiting);
  for (int i = 1; i <= count; ++i) {
    waiter.awaitSleep();
    waiter.interrupt();
    while (interruptions < i)
      std::this_thread::yield();
  }
  waiter.awaitSleep();
  EXPECT_FALSE(waiter.done());
  EXPECT_EQ(holder->unlock(), status::ok);
  EXPECT_EQ(waiter.result(), status::ok);
}

TEST_F(OssFileLock, ASignalDoesNotEndAWait) {
  if (kSignalsComeLate) GTEST_SKIP() << "signals are held back";
  expectInterruptedWaitGoesOn(&one_, &two_);
}

TEST_F(OssFileLock, ARequestThatDoesNotWaitIsRepeatedWhenItWasInterrupted) {
  {
    const vrxtest::FailCall fault(vrxtest::Call::kLockFcntl, 1, EINTR);
    EXPECT_EQ(one_.lock(&kExclusiveNow), status::ok);
    EXPECT_EQ(fault.calls(), 2);
  }
  const vrxtest::FailCall fault(vrxtest::Call::kLockFcntl, 1, EINTR);
  EXPECT_EQ(one_.unlock(), status::ok);
  EXPECT_TRUE(anotherProcessGets(kExclusiveNow));
}

TEST_F(OssFileLock, ManySignalsDoNotEndAWait) {
  if (kSignalsComeLate) GTEST_SKIP() << "signals are held back";
  expectInterruptedWaitGoesOn(&one_, &two_, 2 * kMostInterruptions + kFewSignals);
}

TEST_F(OssFileLock, ASignalDoesNotEndALimitedWait) {
  const Limit limit(600000);
  expectInterruptedWaitGoesOn(&one_, &two_);
}

TEST_F(OssFileLock, AWaitThatIsAlwaysInterruptedFails) {
  const vrxtest::FailCall fault(vrxtest::Call::kLockFcntl, 1, EINTR, vrxtest::Extent::kFromThenOn);
  EXPECT_EQ(one_.lock(&kExclusive), ossErrorMapSystem(EINTR));
  EXPECT_EQ(one_.lock(&kSharedNow), ossErrorMapSystem(EINTR));
}

TEST_F(OssFileLock, TheLimitEndsAWait) {
  const Limit limit(40);
  ASSERT_EQ(one_.lock(&kExclusive), status::ok);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(two_.lock(&kExclusive), status::lock_held);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(40));
  EXPECT_FALSE(anotherProcessGets(kExclusiveNow));
}

TEST_F(OssFileLock, LimitZeroTriesOnce) {
  const Limit limit(0);
  EXPECT_EQ(one_.lock(&kExclusive), status::ok);
  EXPECT_EQ(two_.lock(&kShared), status::lock_held);
  ASSERT_EQ(one_.unlock(), status::ok);
  EXPECT_EQ(two_.lock(&kShared), status::ok);
}

TEST_F(OssFileLock, AnEndlessLimitStillGrantsAFreeLock) {
  const Limit limit(LLONG_MAX);
  EXPECT_EQ(one_.lock(&kExclusive), status::ok);
}

TEST_F(OssFileLock, AFarLimitWaitsUntilTheLockIsFree) {
  const Limit limit(LLONG_MAX);
  ASSERT_EQ(one_.lock(&kExclusive), status::ok);
  Waiter waiter(&two_);
  waiter.awaitSleep();
  ASSERT_EQ(one_.unlock(), status::ok);
  EXPECT_EQ(waiter.result(), status::ok);
}

TEST_F(OssFileLock, TheLimitIsReadBackAndNegativeMeansNone) {
  EXPECT_EQ(ossGetLockTimeLimit(), -1);
  const Limit limit(1234);
  EXPECT_EQ(ossGetLockTimeLimit(), 1234);
  ossSetLockTimeLimit(-77);
  EXPECT_EQ(ossGetLockTimeLimit(), -1);
}

}  // namespace
