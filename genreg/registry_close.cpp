// SPDX-License-Identifier: Apache-2.0
// Closing a registry and committing its temporary copy: the only place where a registry is
// replaced.
//
// The order of the commit is what makes it safe: the copy is on disk before the registry is
// touched; the old contents stay reachable as the backup until the new name is on disk.
// docs/update-protocol.md tells what a crash leaves at each step.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "genreg/internal/checksum_header.h"
#include "genreg/internal/features.h"
#include "genreg/internal/operation.h"
#include "genreg/internal/registry_files.h"
#include "genreg/registry.h"
#include "platform/osse/files.h"
#include "platform/osse/paths.h"

using namespace genreg;

namespace {

// With feature 0x1 an update's own close keeps the copy for verification, whose close commits it.
bool commits(const GenRegFile& registry, unsigned mode) {
  if (hasFeature(registry, kGenRegVerifyCommit)) return mode == kGenRegVerify;
  if (mode == kGenRegAdd) return !appendsInPlace(registry);
  return mode == kGenRegChange || mode == kGenRegDelete;
}

// What a stream still holds, and what the system still holds of it, must reach the disk before the
// copy may replace anything. A failed sync is final: the pages that it lost are not written again.
void flushCopy(Operation& op, FILE* copy) {
  if (std::fflush(copy) != 0 || std::ferror(copy) != 0) {
    op.failErrno(20, status::copy_not_closed, errno);
    return;
  }
  const GenRegStatus rc = ossFileSync(fileno(copy));
  if (rc != status::ok) op.fail(21, status::copy_not_closed, rc);
}

bool flushAppended(FILE* registry) {
  return std::fflush(registry) == 0 && std::ferror(registry) == 0 &&
         ossFileSync(fileno(registry)) == status::ok;
}

bool isAppending(const GenRegFile& registry) {
  return registry.registryStream != nullptr && registry.temporaryStream == nullptr &&
         appendsInPlace(registry) &&
         (fcntl(fileno(registry.registryStream), F_GETFL) & O_APPEND) != 0;
}

// 0 or the errno value of cutting off what was appended since the registry was opened.
int cutBack(int descriptor, unsigned long long size) {
  return ftruncate(descriptor, static_cast<off_t>(size)) == 0 ? 0 : errno;
}

// Ends an append in place. It has no copy to fall back on: what is not kept, or could not be
// written to its end, is cut off again. The spare descriptor holds the lock for that when closing
// the stream has failed; without one nothing can be promised, so nothing is kept.
int finishAppend(GenRegFile& registry, unsigned mode) {
  FILE* const stream = registry.registryStream;
  const int spare = fcntl(fileno(stream), F_DUPFD_CLOEXEC, 0);
  int error = spare >= 0 || mode != kGenRegAdd ? 0 : errno;
  const bool kept = mode == kGenRegAdd && error == 0 && flushAppended(stream);
  if (!kept) {
    (void)std::fflush(stream);  // what it still holds must not be written behind the cut
    const int cutError = cutBack(fileno(stream), registry.registrySize);
    if (error == 0) error = mode == kGenRegAdd ? EIO : cutError;
  }
  const int closeError = closeRegistryStream(registry);
  if (closeError != 0 && spare >= 0) (void)cutBack(spare, registry.registrySize);  // failed anyway
  if (spare >= 0) (void)close(spare);  // holds nothing that is not written
  return error != 0 ? error : closeError;
}

// Closes the registry stream, which must not fail unnoticed: 0 or the errno value.
int finishRegistry(GenRegFile& registry, unsigned mode) {
  return isAppending(registry) ? finishAppend(registry, mode) : closeRegistryStream(registry);
}

// Stamps, flushes and closes the temporary copy. True when a checksum was stamped.
bool finishCopy(Operation& op, GenRegFile& registry, unsigned mode) {
  if (registry.temporaryStream == nullptr) return false;
  bool stamped = false;
  if (isUpdate(mode)) {
    if (usesChecksumHeader(registry)) stamped = stampChecksum(op, registry);
    if (!op.failed()) flushCopy(op, registry.temporaryStream);
  }
  const int error = closeTemporaryStream(registry);
  if (error != 0) op.failErrno(22, status::copy_not_closed, error);
  return stamped;
}

void syncDirectory(Operation& op, const char* registryPath, GenRegStatus failure) {
  char directory[kGenRegPathSize];
  GenRegStatus rc = ossDirectoryName(registryPath, directory, sizeof directory);
  if (rc == status::ok) rc = ossDirectorySync(directory);
  if (rc != status::ok) op.fail(33, failure, rc);
}

void commit(Operation& op, const GenRegFile& registry) {
  // A backup that an earlier death left is in the way of the link, which reports it if it stays.
  (void)ossFileDelete(registry.backupPath);
  if (link(registry.registryPath, registry.backupPath) != 0) {
    op.failErrno(30, status::backup_not_linked, errno);
    return;
  }
  // A file system that puts names on disk in any order could otherwise have the new one first.
  if (ossGetSyncPolicy() == OSSSyncPolicy::full) {
    syncDirectory(op, registry.registryPath, status::backup_not_linked);
    if (op.failed()) return;
  }
  GenRegStatus rc = ossFileRename(registry.temporaryPath, registry.registryPath);
  if (rc != status::ok) {
    op.fail(31, status::registry_not_replaced, rc);
    return;
  }
  // The rename must be on disk before the old contents lose their second name.
  syncDirectory(op, registry.registryPath, status::backup_not_deleted);
  if (op.failed()) return;
  rc = ossFileDelete(registry.backupPath);
  if (rc != status::ok) op.fail(32, status::backup_not_deleted, rc);
}

}  // namespace

GenRegStatus GenRegFile::CloseReg(unsigned int mode) {
  Operation op(kGenRegFileCloseReg, registryPath);
  if ((state & kGenRegStateScanning) != 0) return op.fail(1, status::scan_is_open);
  const int error = finishRegistry(*this, mode);
  if (error != 0) return op.failErrno(2, status::registry_not_closed, error);

  const bool stamped = finishCopy(op, *this, mode);
  if (op.failed() || !commits(*this, mode)) return op.status();
  commit(op, *this);
  if (!op.failed() && stamped) copyLacksHeader = 0;
  return op.status();
}

GenRegFile::~GenRegFile() {
  Operation op(kGenRegFileDestroyGenRegFile, registryPath);
  if ((state & kGenRegStateLocked) != 0) {
    const GenRegStatus rc = lockFile.close();
    if (rc != status::ok) op.note(1, status::lock_file_not_closed, rc);
  }
  const int registryError = closeRegistryStream(*this);
  if (registryError != 0) op.failErrno(2, status::registry_not_closed, registryError);
  const int copyError = closeTemporaryStream(*this);
  if (copyError != 0) op.failErrno(3, status::copy_not_closed, copyError);
  state = kGenRegStateInitial;
}
