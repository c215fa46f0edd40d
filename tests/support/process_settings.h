// SPDX-License-Identifier: Apache-2.0
// Settings of the whole process, changed for the time of a test.
#pragma once

#include <sys/stat.h>

#include "platform/osse/file_handle.h"
#include "platform/osse/files.h"

namespace vrxtest {

// The file creation mask.
class Umask {
 public:
  explicit Umask(mode_t mask) : before_(umask(mask)) {}
  ~Umask() { (void)umask(before_); }
  Umask(const Umask&) = delete;
  Umask& operator=(const Umask&) = delete;

 private:
  const mode_t before_;
};

// Locks that are asked to wait try once: a test in which they would wait for their own process
// fails instead of hanging.
class NoWaiting {
 public:
  NoWaiting() { ossSetLockTimeLimit(0); }
  ~NoWaiting() { ossSetLockTimeLimit(before_); }
  NoWaiting(const NoWaiting&) = delete;
  NoWaiting& operator=(const NoWaiting&) = delete;

 private:
  const long long before_ = ossGetLockTimeLimit();
};

// Whether commits are synced.
class SyncPolicy {
 public:
  explicit SyncPolicy(OSSSyncPolicy policy) { ossSetSyncPolicy(policy); }
  ~SyncPolicy() { ossSetSyncPolicy(before_); }
  SyncPolicy(const SyncPolicy&) = delete;
  SyncPolicy& operator=(const SyncPolicy&) = delete;

 private:
  const OSSSyncPolicy before_ = ossGetSyncPolicy();
};

}  // namespace vrxtest
