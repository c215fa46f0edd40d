// SPDX-License-Identifier: Apache-2.0
// Opening a registry: for reading, for an update with a fresh temporary copy, or for reading the
// copy back before it is committed. What a crash has left is set aside here, never trusted.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "genreg/internal/checksum_header.h"
#include "genreg/internal/features.h"
#include "genreg/internal/operation.h"
#include "genreg/internal/registry_files.h"
#include "genreg/registry.h"
#include "platform/osse/files.h"

using namespace genreg;

namespace {

bool isMode(unsigned mode) {
  return isUpdate(mode) || mode == kGenRegRead || mode == kGenRegVerify;
}

// Whether anything stands at this path, a dangling link included.
bool isTaken(const char* path) {
  struct stat info {};
  return lstat(path, &info) == 0;
}

// How the registry itself is opened. An update replaces the file, so it must not open a link in its
// place; readers may follow one.
StreamRequest requestFor(const GenRegFile& registry, unsigned mode, bool missing) {
  if (mode == kGenRegRead) return readRequest();
  StreamRequest request;
  request.options |= kOssOpenNoFollow;
  if (mode != kGenRegAdd) return request;
  request.options = kOssOpenOrCreate | kOssOpenNoFollow;
  if (!missing && !appendsInPlace(registry)) return request;
  request.lockType = kOssLockExclusive;
  request.access = kOssAccessAppend;
  request.sharedWhenBusy = !appendsInPlace(registry);
  return request;
}

void openRegistry(Operation& op, GenRegFile& registry, unsigned mode) {
  const bool missing = mode == kGenRegAdd && !fileExists(registry.registryPath);
  if (missing) ensureDirectoryOf(op, registry.registryPath);
  if (op.failed()) return;
  const StreamRequest request = requestFor(registry, mode, missing);
  openRegistryStream(op, registry, request);
  const bool first = mode == kGenRegAdd && registry.registrySize == 0;
  if (first && !op.failed()) syncNamesAbove(op, registry.registryPath);
  if (op.failed() || request.access == kOssAccessAppend) return;
  seekFirstRecord(op, registry, HeaderCheck::kCompare);
}

// An earlier update that died left its temporary copy: kept under the corrupt copy's name for
// whoever wants to look, until the update after this one.
void setLeftoversAside(Operation& op, GenRegFile& registry) {
  if (isTaken(registry.corruptPath)) {
    const GenRegStatus rc = ossFileDelete(registry.corruptPath);
    if (rc != status::ok) {
      op.fail(20, status::corrupt_copy_not_deleted, rc);
      return;
    }
  }
  if (!isTaken(registry.temporaryPath)) return;
  const GenRegStatus rc = ossFileRename(registry.temporaryPath, registry.corruptPath);
  if (rc != status::ok) op.fail(21, status::leftover_not_moved, rc);
}

CopyUse copyUseFor(const GenRegFile& registry, unsigned mode) {
  if (isUpdate(mode)) return CopyUse::kCreate;
  return usesChecksumHeader(registry) ? CopyUse::kTruncate : CopyUse::kReadBack;
}

// The copy must be as private and as accessible as the registry that it replaces. Ownership and
// attributes come first: setting an owner clears set-id bits, setting an ACL changes the mode. A
// copy that is read back mostly is dressed already.
void dressCopy(Operation& op, GenRegFile& registry, unsigned mode, unsigned permissions,
               unsigned wanted) {
  if (!isUpdate(mode) && permissions == wanted) return;
  const int copy = fileno(registry.temporaryStream);
  if (isUpdate(mode)) ossFileCopyOwnership(fileno(registry.registryStream), copy);
  const GenRegStatus rc = ossFileSetPermissions(copy, wanted);
  if (rc != status::ok) op.fail(31, status::copy_permissions_not_set, rc);
}

void openCopy(Operation& op, GenRegFile& registry, unsigned mode) {
  struct stat info {};
  if (fstat(fileno(registry.registryStream), &info) != 0) {
    op.failErrno(30, status::no_registry_info, errno);
    return;
  }
  const unsigned permissions = openTemporaryStream(op, registry, copyUseFor(registry, mode));
  if (op.failed()) return;
  dressCopy(op, registry, mode, permissions, info.st_mode & kPermissionBits);
  if (!op.failed() && isUpdate(mode)) reserveHeader(op, registry);
}

}  // namespace

bool genreg::appendsInPlace(const GenRegFile& registry) {
  return hasFeature(registry, kGenRegDuplicates) && !hasFeature(registry, kGenRegVerifyCommit) &&
         !usesChecksumHeader(registry);
}

GenRegStatus GenRegFile::OpenReg(unsigned int mode) {
  Operation op(kGenRegFileOpenReg, registryPath);
  if ((state & kGenRegStateScanning) != 0) return op.fail(1, status::scan_is_open);
  if (!isMode(mode)) return op.fail(2, status::invalid_argument);
  (void)closeRegistryStream(*this);   // streams that an earlier failure left open have nothing to
  (void)closeTemporaryStream(*this);  // lose: nothing is committed without a successful close

  if (mode != kGenRegRead) GetAndSetRealRegistryPaths();  // readers look when they meet a link
  openRegistry(op, *this, mode);
  if (op.failed() || mode == kGenRegRead) return op.status();
  if (mode == kGenRegAdd && appendsInPlace(*this)) return op.status();
  if (mode != kGenRegVerify) setLeftoversAside(op, *this);
  if (!op.failed()) openCopy(op, *this, mode);
  return op.status();
}

GenRegStatus GenRegFile::Load(unsigned int) {
  return status::ok;
}

GenRegStatus GenRegFile::UnLoad(unsigned int) {
  return status::ok;
}
