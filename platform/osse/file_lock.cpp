// SPDX-License-Identifier: Apache-2.0
// Locks on whole files, and the limit on waiting for them.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <limits>
#include <thread>

#include "platform/osse/errors.h"
#include "platform/osse/file_handle.h"
#include "platform/osse/interruptions.h"

namespace {

using namespace oss;
using Clock = std::chrono::steady_clock;
using Microseconds = std::chrono::microseconds;

// Locks of the open file where the system has them, otherwise those of the process.
#ifdef F_OFD_SETLK
constexpr int kTryLock = F_OFD_SETLK;
constexpr int kWaitLock = F_OFD_SETLKW;
#else
constexpr int kTryLock = F_SETLK;
constexpr int kWaitLock = F_SETLKW;
#endif

constexpr Microseconds kFirstNap(200);
constexpr Microseconds kLongestNap(5000);
constexpr long long kNoLimit = -1;

std::atomic<long long> lockTimeLimit{kNoLimit};

bool areValid(const OSSFileLockParams* params) {
  if (params == nullptr || params->version != kOssFileStructureVersion) return false;
  const bool type = params->type == kOssLockExclusive || params->type == kOssLockShared;
  return type && (params->wait == kOssLockWait || params->wait == kOssLockNoWait);
}

// One request over the whole file, repeated when a signal interrupts it.
OSSStatus request(int descriptor, int command, short type) {
  struct flock whole {};
  whole.l_type = type;
  whole.l_whence = SEEK_SET;  // start 0, length 0: to the end, wherever that will be
  if (repeatInterrupted([&] { return fcntl(descriptor, command, &whole); }) == 0) return status::ok;
  if (errno == EAGAIN || errno == EACCES) return status::lock_held;
  return ossErrorMapSystem(errno);
}

// Waits for as long as it takes, through any number of signals: after many of them the system still
// has to know that the lock is held.
OSSStatus requestWaiting(int descriptor, short type) {
  for (;;) {
    OSSStatus rc = request(descriptor, kWaitLock, type);
    if (rc != ossErrorMapSystem(EINTR)) return rc;
    rc = request(descriptor, kTryLock, type);
    if (rc != status::lock_held) return rc;
  }
}

// Far limits become one that the clock can hold.
Clock::time_point deadlineAfter(long long milliseconds) {
  const Clock::time_point now = Clock::now();
  const auto most =
      std::chrono::duration_cast<std::chrono::milliseconds>(Clock::time_point::max() - now).count();
  return now + std::chrono::milliseconds(std::min<long long>(milliseconds, most));
}

// Sleeps a little, not past the deadline. False when the deadline has come.
bool nap(Clock::time_point deadline, Microseconds* length) {
  const Clock::duration left = deadline - Clock::now();
  if (left <= Clock::duration::zero()) return false;
  std::this_thread::sleep_for(std::min<Clock::duration>(left, *length));
  *length = std::min(*length * 2, kLongestNap);
  return true;
}

// Asks again and again; the last time after the deadline, so that a lock released during the last
// nap is still taken.
OSSStatus requestUntil(int descriptor, short type, long long milliseconds) {
  const Clock::time_point deadline = deadlineAfter(milliseconds);
  Microseconds length = kFirstNap;
  for (;;) {
    const OSSStatus rc = request(descriptor, kTryLock, type);
    if (rc != status::lock_held || !nap(deadline, &length)) return rc;
  }
}

}  // namespace

OSSStatus OSSHFile::lock(const OSSFileLockParams* params) {
  if (descriptor_ < 0 || !areValid(params)) return status::invalid_argument;
  const short type = params->type == kOssLockExclusive ? F_WRLCK : F_RDLCK;
  if (params->wait == kOssLockNoWait) return request(descriptor_, kTryLock, type);
  const long long limit = ossGetLockTimeLimit();
  if (limit < 0) return requestWaiting(descriptor_, type);
  return requestUntil(descriptor_, type, limit);
}

OSSStatus OSSHFile::unlock() {
  if (descriptor_ < 0) return status::invalid_argument;
  return request(descriptor_, kTryLock, F_UNLCK);
}

void ossSetLockTimeLimit(long long milliseconds) {
  lockTimeLimit.store(milliseconds < 0 ? kNoLimit : milliseconds, std::memory_order_relaxed);
}

long long ossGetLockTimeLimit() {
  return lockTimeLimit.load(std::memory_order_relaxed);
}
