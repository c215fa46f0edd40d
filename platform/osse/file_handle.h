// SPDX-License-Identifier: Apache-2.0
// One open regular file, and a lock on the whole of it.
//
// Calling sequence
// ----------------
//     OSSHFile file;                       // closed
//     const OSSFileOpenParams how = {kOssFileStructureVersion, path, kOssOpenOrCreate,
//                                    kOssAccessReadWrite, 0, 0644, 0};
//     OSSStatus rc = file.open(&how);      // open
//     const OSSFileLockParams lock = {kOssFileStructureVersion, kOssLockExclusive, kOssLockWait};
//     rc = file.lock(&lock);               // open and locked
//     rc = file.unlock();                  // open
//     rc = file.close();                   // closed; close and the destructor drop a lock as well
//
// Locks are advisory and belong to the open file, not to the process. Two handles contend for them
// wherever they live, two of one thread included; closing some other descriptor of the file drops
// nothing; descriptors inherited or duplicated from this one share its lock. (On a system without
// such locks they are the process's: handles of one process do not contend, and closing any
// descriptor of the file drops them.) Locking again converts the lock.
//
// One handle is used by one thread at a time. Not here: anything about the file's contents.
#pragma once

#include "platform/osse/export.h"
#include "platform/osse/status.h"

// The version that every parameter block carries.
constexpr unsigned int kOssFileStructureVersion = 0x09050000u;

// OSSFileOpenParams::options: one of the first two, with or without the flags.
constexpr unsigned int kOssOpenExisting = 1;      // a missing file is a failure (ENOENT)
constexpr unsigned int kOssOpenOrCreate = 2;      // a missing file is created
constexpr unsigned int kOssOpenNoFollow = 0x100;  // flag: a link as last component fails (ELOOP)
// flag: the caller, who looks at the open file anyhow, sees to it that it is a regular one
constexpr unsigned int kOssOpenUnchecked = 0x200;

// OSSFileOpenParams::access
constexpr unsigned int kOssAccessRead = 1;
constexpr unsigned int kOssAccessReadWrite = 2;  // an exclusive lock needs this or the next
constexpr unsigned int kOssAccessAppend = 3;     // read and write, every write at the file's end

// OSSFileLockParams::type and ::wait
constexpr unsigned int kOssLockExclusive = 1;
constexpr unsigned int kOssLockShared = 2;
constexpr unsigned int kOssLockWait = 1;
constexpr unsigned int kOssLockNoWait = 2;

// How to open a file. The block and the path are read during the call only.
struct OSSFileOpenParams {
  unsigned int version;      // kOssFileStructureVersion
  const char* path;          // not empty
  unsigned int options;      // kOssOpen...
  unsigned int access;       // kOssAccess...
  unsigned int reserved1;    // 0
  unsigned int permissions;  // octal 0 to 07777 for a file created here, less the umask
  unsigned int reserved2;    // 0
};

// How to lock it.
struct OSSFileLockParams {
  unsigned int version;  // kOssFileStructureVersion
  unsigned int type;     // kOssLockExclusive or kOssLockShared
  unsigned int wait;     // kOssLockWait or kOssLockNoWait
};

class VRXOSSE_API OSSHFile {
 public:
  OSSHFile() = default;
  // Closes; a failure is logged.
  ~OSSHFile();
  OSSHFile(const OSSHFile&) = delete;
  OSSHFile& operator=(const OSSHFile&) = delete;

  // Opens a regular file, close-on-exec. A handle that is open is closed first. Never waits for the
  // other end of a FIFO or for a device, and never makes a terminal the controlling one.
  // invalid_argument: null, wrong version, empty path, unknown option, access or permissions; the
  // handle is then as it was. not_a_regular_file: something else stands at the path; with
  // kOssOpenUnchecked only what cannot be opened at all is found out. After these
  // and every system error the handle is closed and no descriptor is left open.
  [[nodiscard]] OSSStatus open(const OSSFileOpenParams* params);

  // Locks the whole file, however long it grows.
  // lock_held: held elsewhere, without waiting or after the limit below. invalid_argument: the
  // handle is closed, or null, wrong version, unknown type or wait. The handle stays open and a
  // lock that it held before stays held.
  [[nodiscard]] OSSStatus lock(const OSSFileLockParams* params);

  // Drops the lock; success without one. invalid_argument: the handle is closed.
  [[nodiscard]] OSSStatus unlock();

  // Closes the file and so drops the lock; success on a closed handle. The handle is closed
  // whatever the result: a system error tells that written data may be lost.
  [[nodiscard]] OSSStatus close();

  // The descriptor, which stays the handle's own; -1 when closed.
  int getFileHandle() const { return descriptor_; }

  // Gives the descriptor, lock included, away to the caller, who closes it; -1 when closed.
  [[nodiscard]] int detach();

 private:
  int descriptor_ = -1;
};

// Limits, for the whole process, how long lock() waits: after that many milliseconds it returns
// lock_held. -1 (any negative number) waits without limit and is the default; 0 tries once. A
// limited wait asks again every few milliseconds, so it may be overtaken by unlimited waiters.
VRXOSSE_API void ossSetLockTimeLimit(long long milliseconds);
[[nodiscard]] VRXOSSE_API long long ossGetLockTimeLimit();
