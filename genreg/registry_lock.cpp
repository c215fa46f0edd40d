// SPDX-License-Identifier: Apache-2.0
// The lock file: writers of one registry serialise on it, never on the registry itself, which an
// update replaces. The library never deletes or renames a lock file.
#include <sched.h>

#include "genreg/internal/operation.h"
#include "genreg/internal/registry_files.h"
#include "genreg/registry.h"
#include "platform/osse/files.h"

using namespace genreg;

namespace {

// A lock file that somebody deletes is opened afresh; one that is deleted time and again is not
// worth waiting for.
constexpr int kMaxLockAttempts = 100;

void openLockFile(Operation& op, GenRegFile& registry, unsigned flags) {
  const bool exclusive = (flags & kGenRegLockExclusive) != 0;
  const unsigned mode =
      registry.lockCreationMode != 0 ? registry.lockCreationMode : kDefaultFileMode;
  registry.lockFileOpen = {kOssFileStructureVersion,
                           registry.lockPath,
                           kOssOpenOrCreate | kOssOpenNoFollow,
                           exclusive ? kOssAccessReadWrite : kOssAccessRead,
                           0,
                           mode,
                           0};
  const GenRegStatus rc = registry.lockFile.open(&registry.lockFileOpen);
  if (rc != status::ok) op.fail(10, status::lock_file_not_opened, rc);
}

void requestLock(Operation& op, GenRegFile& registry, unsigned flags) {
  const bool waits = (flags & kGenRegLockNoWait) == 0;
  const bool exclusive = (flags & kGenRegLockExclusive) != 0;
  const OSSFileLockParams request = {kOssFileStructureVersion,
                                     exclusive ? kOssLockExclusive : kOssLockShared,
                                     waits ? kOssLockWait : kOssLockNoWait};
  const GenRegStatus rc = registry.lockFile.lock(&request);
  if (rc == status::ok) return;
  if (!waits && rc == status::lock_held) {
    op.fail(20, status::locked_elsewhere);
    return;
  }
  op.fail(21, rc);
}

// A lock on a file that has lost its name locks nobody out: those who come later lock the file that
// has the name now.
bool lockFileKeepsItsName(Operation& op, GenRegFile& registry) {
  bool same = false;
  const int descriptor = registry.lockFile.getFileHandle();
  const GenRegStatus rc = ossDescriptorNamesPath(descriptor, registry.lockPath, &same);
  if (rc != status::ok) op.fail(30, status::lock_file_not_opened, rc);
  return same;
}

void takeLock(Operation& op, GenRegFile& registry, unsigned flags) {
  for (int attempt = 0; attempt < kMaxLockAttempts; ++attempt) {
    openLockFile(op, registry, flags);
    if (op.failed()) return;
    requestLock(op, registry, flags);
    if (op.failed()) return;
    if (lockFileKeepsItsName(op, registry)) return;
    (void)registry.lockFile.unlock();  // without the state bit nobody would give it back
    if (op.failed()) return;
  }
  op.fail(40, status::lock_file_not_opened);
}

}  // namespace

GenRegStatus GenRegFile::Lock(unsigned int flags, unsigned int) {
  Operation op(kGenRegFileLock, lockPath);
  if ((flags & (kGenRegLockExclusive | kGenRegLockShared)) == 0) {
    return op.fail(1, status::bad_argument);
  }
  if ((flags & (kGenRegLockWait | kGenRegLockNoWait)) == 0) return op.fail(2, status::bad_argument);
  if ((state & kGenRegStatePathsSet) == 0) return op.fail(3, status::paths_not_set);
  if ((state & kGenRegStateLocked) != 0) return op.fail(4, status::lock_already_held);

  GetAndSetRealRegistryPaths();
  if ((flags & kGenRegLockCreateDirectory) != 0) ensureDirectoryOf(op, registryPath);
  if (!op.failed()) takeLock(op, *this, flags);
  if (!op.failed()) state |= kGenRegStateLocked;
  return op.status();
}

GenRegStatus GenRegFile::UnLock() {
  Operation op(kGenRegFileUnLock, lockPath);
  GenRegStatus rc = lockFile.unlock();
  if (rc != status::ok) return op.fail(1, status::unlock_failed, rc);
  state &= ~kGenRegStateLocked;
  rc = lockFile.close();
  if (rc != status::ok) op.fail(2, status::lock_file_not_closed, rc);
  // Those who wait have just been woken. A program that updates in a loop would have taken the lock
  // again before they ran, and again, and starved them.
  (void)sched_yield();
  return op.status();
}
