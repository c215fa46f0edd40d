// SPDX-License-Identifier: Apache-2.0
// The two streams of a registry object: opened without following planted links, buffered in large
// blocks, measured once, and closed.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "genreg/internal/registry_files.h"
#include "genreg/internal/scan_reader.h"
#include "platform/osse/errors.h"
#include "platform/osse/memory.h"

namespace genreg {
namespace {

// A stream's buffer holds the whole of a small file, with room for a short record more, and a large
// block of a big one.
constexpr unsigned long long kRoomForMore = 4096;
constexpr unsigned long long kLargestBuffer = 128 * 1024;

struct Stream {
  FILE* file = nullptr;
  void* buffer = nullptr;
};

// Without memory for the large buffer the stream keeps its own small one.
void* largeBuffer(FILE* file, unsigned long long fileSize) {
  const auto size = static_cast<unsigned long>(std::min(fileSize + kRoomForMore, kLargestBuffer));
  void* buffer = nullptr;
  if (ossMemAllocUncleared(&buffer, size, __FILE__, __LINE__) != status::ok) return nullptr;
  if (std::setvbuf(file, static_cast<char*>(buffer), _IOFBF, size) == 0) return buffer;
  (void)ossMemFree(buffer, __FILE__, __LINE__);  // was never written to
  return nullptr;
}

// Wraps `descriptor`, which stays the caller's when this fails (with errno set).
Stream wrap(int descriptor, const char* mode, unsigned long long fileSize) {
  FILE* file = fdopen(descriptor, mode);
  if (file == nullptr) return {};
  return {file, largeBuffer(file, fileSize)};
}

// The same for a stream that is read in blocks: a buffer of its own would only be copied from.
Stream wrapForReading(int descriptor) {
  FILE* file = fdopen(descriptor, "r");
  if (file != nullptr) (void)std::setvbuf(file, nullptr, _IONBF, 0);  // buffered, it is but slower
  return {file, nullptr};
}

int closeStream(FILE*& file, void*& buffer) {
  if (file == nullptr) return 0;
  const int error = std::fclose(file) == 0 ? 0 : errno;
  file = nullptr;
  if (buffer == nullptr) return error;
  (void)ossMemFree(buffer, __FILE__, __LINE__);  // a damaged buffer has nowhere better to go
  buffer = nullptr;
  return error;
}

void openFile(Operation& op, OSSHFile& file, GenRegFile& registry, const StreamRequest& request) {
  const unsigned mode =
      registry.registryCreationMode != 0 ? registry.registryCreationMode : kDefaultFileMode;
  OSSFileOpenParams open = {kOssFileStructureVersion,
                            registry.registryPath,
                            request.options | kOssOpenUnchecked,
                            request.access,
                            0,
                            mode,
                            0};
  GenRegStatus rc = file.open(&open);
  if (rc == ossErrorMapSystem(ELOOP) && request.resolvesLink) {
    registry.GetAndSetRealRegistryPaths();
    open.options &= ~static_cast<unsigned>(kOssOpenNoFollow);
    rc = file.open(&open);
  }
  if (rc == status::ok) return;
  const bool creates = (request.options & kOssOpenOrCreate) != 0;
  const bool missing =
      !creates && (rc == ossErrorMapSystem(ENOENT) || !fileExists(registry.registryPath));
  op.fail(100, missing ? status::no_registry : status::registry_not_opened, rc);
}

void lockFile(Operation& op, OSSHFile& file, const StreamRequest& request) {
  const unsigned firstWait = request.sharedWhenBusy ? kOssLockNoWait : kOssLockWait;
  OSSFileLockParams lock = {kOssFileStructureVersion, request.lockType, firstWait};
  GenRegStatus rc = file.lock(&lock);
  if (rc == status::lock_held && request.sharedWhenBusy) {
    lock.type = kOssLockShared;
    lock.wait = kOssLockWait;
    rc = file.lock(&lock);
  }
  if (rc != status::ok) op.fail(110, status::registry_not_locked, rc);
}

// The size that counts is the one under the lock: before it, an append may have been under way.
void measureFile(Operation& op, const OSSHFile& file, GenRegFile& registry) {
  struct stat info {};
  if (fstat(file.getFileHandle(), &info) != 0) {
    op.failErrno(120, status::registry_not_opened, errno);
  } else if (!S_ISREG(info.st_mode)) {
    op.fail(122, status::registry_not_opened, oss::status::not_a_regular_file);
  } else {
    registry.registrySize = static_cast<unsigned long long>(info.st_size);
  }
}

// Opening flags of the temporary copy. Neither a link nor a pipe planted at its path is followed or
// waited for.
int copyFlags(CopyUse use) {
  constexpr int kGuards = O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
  switch (use) {  // Unreached: there are three uses, each with its case
    case CopyUse::kCreate:
      return kGuards | O_RDWR | O_CREAT | O_EXCL;
    case CopyUse::kTruncate:
      return kGuards | O_RDWR;
    case CopyUse::kReadBack:
      break;
  }
  return kGuards | O_RDONLY;
}

// 0, or the errno value that tells why the descriptor is no temporary copy. A second name would
// make somebody else's file take the copy's permissions.
int checkCopy(int descriptor, struct stat& info) {
  if (fstat(descriptor, &info) != 0) return errno;
  return S_ISREG(info.st_mode) && info.st_nlink == 1 ? 0 : EINVAL;
}

// Gives up a copy that cannot be used. One that this call created nobody else knows of.
void dropCopy(int descriptor, const char* path, CopyUse use) {
  const int error = errno;
  (void)close(descriptor);  // nothing was written, and the first error is the one to report
  if (use == CopyUse::kCreate) (void)unlink(path);
  errno = error;
}

// Opens the copy as a regular file and describes it; -1 with errno set when it is none.
int openCopy(const char* path, CopyUse use, struct stat& info) {
  constexpr mode_t kPrivateMode = 0600;
  const int descriptor = open(path, copyFlags(use), kPrivateMode);
  if (descriptor < 0) return -1;
  int error = checkCopy(descriptor, info);
  if (error == 0 && use == CopyUse::kTruncate && ftruncate(descriptor, 0) != 0) error = errno;
  if (error != 0) {
    errno = error;
    dropCopy(descriptor, path, use);
    return -1;
  }
  if (use == CopyUse::kTruncate) info.st_size = 0;
  return descriptor;
}

}  // namespace

bool fileExists(const char* path) {
  return access(path, F_OK) == 0;
}

void openRegistryFile(Operation& op, GenRegFile& registry, const StreamRequest& request,
                      OSSHFile& file) {
  openFile(op, file, registry, request);
  if (!op.failed()) lockFile(op, file, request);
  if (!op.failed()) measureFile(op, file, registry);
}

void openRegistryStream(Operation& op, GenRegFile& registry, const StreamRequest& request) {
  OSSHFile file;
  openRegistryFile(op, registry, request, file);
  if (op.failed()) return;
  const bool appends = request.access == kOssAccessAppend;
  const Stream stream = appends ? wrap(file.getFileHandle(), "a", registry.registrySize)
                                : wrapForReading(file.getFileHandle());
  if (stream.file == nullptr) {
    op.failErrno(121, status::registry_not_opened, errno);
    return;
  }
  (void)file.detach();  // the stream owns the descriptor, and the lock with it
  registry.registryStream = stream.file;
  registry.registryBuffer = stream.buffer;
}

unsigned openTemporaryStream(Operation& op, GenRegFile& registry, CopyUse use) {
  struct stat info {};
  const int descriptor = openCopy(registry.temporaryPath, use, info);
  if (descriptor < 0) {
    op.failErrno(130, status::copy_not_opened, errno);
    return 0;
  }
  const bool reads = use == CopyUse::kReadBack;
  const Stream stream =
      reads ? wrapForReading(descriptor) : wrap(descriptor, "w+", registry.registrySize);
  if (stream.file == nullptr) {
    op.failErrno(131, status::copy_not_opened, errno);
    dropCopy(descriptor, registry.temporaryPath, use);
    return 0;
  }
  registry.temporaryStream = stream.file;
  registry.temporaryBuffer = stream.buffer;
  registry.temporarySize = static_cast<unsigned long long>(info.st_size);
  return info.st_mode & kPermissionBits;
}

int closeRegistryStream(GenRegFile& registry) {
  delete registry.scanReader;
  registry.scanReader = nullptr;
  return closeStream(registry.registryStream, registry.registryBuffer);
}

int closeTemporaryStream(GenRegFile& registry) {
  return closeStream(registry.temporaryStream, registry.temporaryBuffer);
}

}  // namespace genreg
