// SPDX-License-Identifier: Apache-2.0
// The wrappers that the linker puts before the system's functions, and what decides about them.
#include "tests/support/faults.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <new>
#include <utility>

#include "platform/osse/errors.h"
#include "platform/osse/file_handle.h"

namespace vrxtest {
namespace {

CallCount* innermost = nullptr;
bool acting = false;

}  // namespace

CallCount::CallCount(Call call) : call_(call), outer_(innermost) {
  innermost = this;
}

CallCount::~CallCount() {
  innermost = outer_;
}

bool CallCount::isDue() const {
  if (nth_ == 0) return false;
  return extent_ == Extent::kOnce ? calls_ == nth_ : calls_ >= nth_;
}

FailCall::FailCall(Call call, int nth, int error, Extent extent) : CallCount(call) {
  nth_ = nth;
  error_ = error;
  extent_ = extent;
}

BeforeCall::BeforeCall(Call call, int nth, std::function<void()> action, Extent extent)
    : CallCount(call) {
  nth_ = nth;
  extent_ = extent;
  action_ = std::move(action);
}

int errorFor(Call call) {
  if (innermost == nullptr || acting) return 0;
  int error = 0;
  for (CallCount* watch = innermost; watch != nullptr; watch = watch->outer_) {
    if (watch->call_ != call) continue;
    ++watch->calls_;
    if (!watch->isDue()) continue;
    if (watch->error_ != 0) error = watch->error_;
    if (!watch->action_) continue;
    acting = true;
    watch->action_();
    acting = false;
  }
  return error;
}

}  // namespace vrxtest

using vrxtest::Call;
using vrxtest::errorFor;

// With 64-bit offsets and times the system's functions go by other names, which depend on the word
// size. The list in CMakeLists.txt agrees with this one.
#if defined(__LP64__)
#define VRX_NAME_OF_FCNTL "fcntl64"
#define VRX_NAME_OF_FSTAT "fstat64"
#define VRX_NAME_OF_STAT "stat64"
#define VRX_NAME_OF_LSTAT "lstat64"
#define VRX_NAME_OF_NEW "_ZnwmRKSt9nothrow_t"
#else
#define VRX_NAME_OF_FCNTL "__fcntl_time64"
#define VRX_NAME_OF_FSTAT "__fstat64_time64"
#define VRX_NAME_OF_STAT "__stat64_time64"
#define VRX_NAME_OF_LSTAT "__lstat64_time64"
#define VRX_NAME_OF_NEW "_ZnwjRKSt9nothrow_t"
#endif

// Declares the function that `name` stands for, and its wrapper.
#define VRX_WRAP(result, function, name, parameters)        \
  result real##function parameters __asm__("__real_" name); \
  result wrap##function parameters __asm__("__wrap_" name)

extern "C" {
VRX_WRAP(int, Open, "open64", (const char*, int, ...));
VRX_WRAP(int, Close, "close", (int));
VRX_WRAP(int, Fcntl, VRX_NAME_OF_FCNTL, (int, int, ...));
VRX_WRAP(int, Fstat, VRX_NAME_OF_FSTAT, (int, struct stat*));
VRX_WRAP(int, Stat, VRX_NAME_OF_STAT, (const char*, struct stat*));
VRX_WRAP(int, Lstat, VRX_NAME_OF_LSTAT, (const char*, struct stat*));
VRX_WRAP(int, Access, "access", (const char*, int));
VRX_WRAP(int, Link, "link", (const char*, const char*));
VRX_WRAP(int, Rename, "rename", (const char*, const char*));
VRX_WRAP(int, Unlink, "unlink", (const char*));
VRX_WRAP(int, Mkdir, "mkdir", (const char*, mode_t));
VRX_WRAP(ssize_t, Readlink, "readlink", (const char*, char*, size_t));
VRX_WRAP(ssize_t, Read, "read", (int, void*, size_t));
VRX_WRAP(int, Ftruncate, "ftruncate64", (int, off_t));
VRX_WRAP(int, Fchmod, "fchmod", (int, mode_t));
VRX_WRAP(int, Fchown, "fchown", (int, uid_t, gid_t));
VRX_WRAP(ssize_t, Flistxattr, "flistxattr", (int, char*, size_t));
VRX_WRAP(ssize_t, Fgetxattr, "fgetxattr", (int, const char*, void*, size_t));
VRX_WRAP(int, Fsetxattr, "fsetxattr", (int, const char*, const void*, size_t, int));
VRX_WRAP(int, Fremovexattr, "fremovexattr", (int, const char*));
VRX_WRAP(int, Fsync, "fsync", (int));
VRX_WRAP(FILE*, Fdopen, "fdopen", (int, const char*));
VRX_WRAP(int, Fclose, "fclose", (FILE*));
VRX_WRAP(int, Fflush, "fflush", (FILE*));
VRX_WRAP(int, Fseeko, "fseeko64", (FILE*, off_t, int));
VRX_WRAP(off_t, Ftello, "ftello64", (FILE*));
VRX_WRAP(size_t, Fread, "fread", (void*, size_t, size_t, FILE*));
VRX_WRAP(size_t, Fwrite, "fwrite", (const void*, size_t, size_t, FILE*));
VRX_WRAP(int, Setvbuf, "setvbuf", (FILE*, char*, int, size_t));
VRX_WRAP(void*, New, VRX_NAME_OF_NEW, (std::size_t, const std::nothrow_t&));
VRX_WRAP(OSSStatus, MemAlloc, "_Z11ossMemAllocPPvmPKcj",
         (void**, unsigned long, const char*, unsigned int));
VRX_WRAP(OSSStatus, MemAllocUncleared, "_Z20ossMemAllocUnclearedPPvmPKcj",
         (void**, unsigned long, const char*, unsigned int));
VRX_WRAP(OSSStatus, MemFree, "_Z10ossMemFreePvPKcj", (void*, const char*, unsigned int));
VRX_WRAP(OSSStatus, DirectoryName, "_Z16ossDirectoryNamePKcPcm",
         (const char*, char*, unsigned long));
// Member functions take their object as the first argument.
VRX_WRAP(OSSStatus, HandleOpen, "_ZN8OSSHFile4openEPK17OSSFileOpenParams",
         (OSSHFile*, const OSSFileOpenParams*));
VRX_WRAP(OSSStatus, HandleLock, "_ZN8OSSHFile4lockEPK17OSSFileLockParams",
         (OSSHFile*, const OSSFileLockParams*));
VRX_WRAP(OSSStatus, HandleUnlock, "_ZN8OSSHFile6unlockEv", (OSSHFile*));
VRX_WRAP(OSSStatus, HandleClose, "_ZN8OSSHFile5closeEv", (OSSHFile*));
}

namespace {

// The call's own error: errno set and true when the call is to fail.
bool failsNow(Call call) {
  const int error = errorFor(call);
  if (error != 0) errno = error;
  return error != 0;
}

bool isWatched(const FILE* stream) {
  return stream != stdout && stream != stderr;
}

bool streamFailsNow(Call call, const FILE* stream) {
  return isWatched(stream) && failsNow(call);
}

void setErrorFlag(FILE* stream) {
  if (stream != nullptr) stream->_flags |= _IO_ERR_SEEN;
}

bool isLockCommand(int command) {
  switch (command) {
    case F_GETLK:
    case F_SETLK:
    case F_SETLKW:
#ifdef F_OFD_SETLK
    case F_OFD_GETLK:
    case F_OFD_SETLK:
    case F_OFD_SETLKW:
#endif
      return true;
    default:
      return false;
  }
}

// A failure that nevertheless does its work: runs `work`, then reports the injected error.
template <class Work>
int workThenFail(int error, Work work) {
  const int result = work();
  if (error == 0) return result;
  errno = error;
  return -1;
}

}  // namespace

int wrapOpen(const char* path, int flags, ...) {
  mode_t mode = 0;
  if ((flags & O_CREAT) != 0) {
    va_list arguments;
    va_start(arguments, flags);
    mode = va_arg(arguments, mode_t);
    va_end(arguments);
  }
  return failsNow(Call::kOpen) ? -1 : realOpen(path, flags, mode);
}

// Every command's argument fits a pointer; commands without one ignore it.
int wrapFcntl(int descriptor, int command, ...) {
  va_list arguments;
  va_start(arguments, command);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  const Call call = isLockCommand(command) ? Call::kLockFcntl : Call::kOtherFcntl;
  return failsNow(call) ? -1 : realFcntl(descriptor, command, argument);
}

int wrapClose(int descriptor) {
  return workThenFail(errorFor(Call::kClose), [&] { return realClose(descriptor); });
}

int wrapFstat(int descriptor, struct stat* info) {
  return failsNow(Call::kFstat) ? -1 : realFstat(descriptor, info);
}

int wrapStat(const char* path, struct stat* info) {
  return failsNow(Call::kStat) ? -1 : realStat(path, info);
}

int wrapLstat(const char* path, struct stat* info) {
  return failsNow(Call::kLstat) ? -1 : realLstat(path, info);
}

int wrapAccess(const char* path, int mode) {
  return failsNow(Call::kAccess) ? -1 : realAccess(path, mode);
}

int wrapLink(const char* from, const char* to) {
  return failsNow(Call::kLink) ? -1 : realLink(from, to);
}

int wrapRename(const char* from, const char* to) {
  return failsNow(Call::kRename) ? -1 : realRename(from, to);
}

int wrapUnlink(const char* path) {
  return failsNow(Call::kUnlink) ? -1 : realUnlink(path);
}

int wrapMkdir(const char* path, mode_t mode) {
  return failsNow(Call::kMkdir) ? -1 : realMkdir(path, mode);
}

ssize_t wrapReadlink(const char* path, char* out, size_t size) {
  return failsNow(Call::kReadlink) ? -1 : realReadlink(path, out, size);
}

ssize_t wrapRead(int descriptor, void* out, size_t size) {
  return failsNow(Call::kRead) ? -1 : realRead(descriptor, out, size);
}

int wrapFtruncate(int descriptor, off_t size) {
  return failsNow(Call::kFtruncate) ? -1 : realFtruncate(descriptor, size);
}

int wrapFchmod(int descriptor, mode_t mode) {
  return failsNow(Call::kFchmod) ? -1 : realFchmod(descriptor, mode);
}

int wrapFchown(int descriptor, uid_t owner, gid_t group) {
  return failsNow(Call::kFchown) ? -1 : realFchown(descriptor, owner, group);
}

ssize_t wrapFlistxattr(int descriptor, char* names, size_t size) {
  return failsNow(Call::kListAttributes) ? -1 : realFlistxattr(descriptor, names, size);
}

ssize_t wrapFgetxattr(int descriptor, const char* name, void* value, size_t size) {
  return failsNow(Call::kGetAttribute) ? -1 : realFgetxattr(descriptor, name, value, size);
}

int wrapFsetxattr(int descriptor, const char* name, const void* value, size_t size, int flags) {
  if (failsNow(Call::kSetAttribute)) return -1;
  return realFsetxattr(descriptor, name, value, size, flags);
}

int wrapFremovexattr(int descriptor, const char* name) {
  return failsNow(Call::kRemoveAttribute) ? -1 : realFremovexattr(descriptor, name);
}

int wrapFsync(int descriptor) {
  return failsNow(Call::kFsync) ? -1 : realFsync(descriptor);
}

FILE* wrapFdopen(int descriptor, const char* mode) {
  return failsNow(Call::kFdopen) ? nullptr : realFdopen(descriptor, mode);
}

int wrapFclose(FILE* stream) {
  const int error = isWatched(stream) ? errorFor(Call::kFclose) : 0;
  return workThenFail(error, [&] { return realFclose(stream); });
}

int wrapFflush(FILE* stream) {
  if (stream == nullptr || !streamFailsNow(Call::kFflush, stream)) return realFflush(stream);
  setErrorFlag(stream);
  return EOF;
}

int wrapFseeko(FILE* stream, off_t offset, int whence) {
  return streamFailsNow(Call::kFseeko, stream) ? -1 : realFseeko(stream, offset, whence);
}

off_t wrapFtello(FILE* stream) {
  return streamFailsNow(Call::kFtello, stream) ? -1 : realFtello(stream);
}

size_t wrapFread(void* out, size_t size, size_t count, FILE* stream) {
  if (!streamFailsNow(Call::kFread, stream)) return realFread(out, size, count, stream);
  setErrorFlag(stream);
  return 0;
}

size_t wrapFwrite(const void* bytes, size_t size, size_t count, FILE* stream) {
  if (!streamFailsNow(Call::kFwrite, stream)) return realFwrite(bytes, size, count, stream);
  setErrorFlag(stream);
  return 0;
}

int wrapSetvbuf(FILE* stream, char* buffer, int mode, size_t size) {
  return streamFailsNow(Call::kSetvbuf, stream) ? -1 : realSetvbuf(stream, buffer, mode, size);
}

void* wrapNew(std::size_t size, const std::nothrow_t& tag) {
  return failsNow(Call::kNew) ? nullptr : realNew(size, tag);
}

OSSStatus wrapMemAlloc(void** out, unsigned long size, const char* file, unsigned int line) {
  const int error = errorFor(Call::kMemAlloc);
  return error != 0 ? ossErrorMapSystem(error) : realMemAlloc(out, size, file, line);
}

OSSStatus wrapMemAllocUncleared(void** out, unsigned long size, const char* file,
                                unsigned int line) {
  const int error = errorFor(Call::kMemAlloc);
  return error != 0 ? ossErrorMapSystem(error) : realMemAllocUncleared(out, size, file, line);
}

OSSStatus wrapMemFree(void* block, const char* file, unsigned int line) {
  const int error = errorFor(Call::kMemFree);
  const OSSStatus rc = realMemFree(block, file, line);
  return error != 0 ? ossErrorMapSystem(error) : rc;
}

OSSStatus wrapDirectoryName(const char* path, char* out, unsigned long size) {
  const int error = errorFor(Call::kDirectoryName);
  return error != 0 ? ossErrorMapSystem(error) : realDirectoryName(path, out, size);
}

OSSStatus wrapHandleOpen(OSSHFile* handle, const OSSFileOpenParams* params) {
  const int error = errorFor(Call::kHandleOpen);
  return error != 0 ? ossErrorMapSystem(error) : realHandleOpen(handle, params);
}

OSSStatus wrapHandleLock(OSSHFile* handle, const OSSFileLockParams* params) {
  const int error = errorFor(Call::kHandleLock);
  return error != 0 ? ossErrorMapSystem(error) : realHandleLock(handle, params);
}

OSSStatus wrapHandleUnlock(OSSHFile* handle) {
  const int error = errorFor(Call::kHandleUnlock);
  return error != 0 ? ossErrorMapSystem(error) : realHandleUnlock(handle);
}

OSSStatus wrapHandleClose(OSSHFile* handle) {
  const int error = errorFor(Call::kHandleClose);
  const OSSStatus rc = realHandleClose(handle);
  return error != 0 ? ossErrorMapSystem(error) : rc;
}
