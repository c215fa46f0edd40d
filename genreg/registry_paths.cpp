// SPDX-License-Identifier: Apache-2.0
// The five paths of a registry: how they are formed, followed through links, and read back. No
// other file forms a companion name.
#include <unistd.h>

#include <cstring>

#include "genreg/internal/operation.h"
#include "genreg/internal/registry_files.h"
#include "genreg/registry.h"
#include "platform/osse/paths.h"
#include "platform/osse/strings.h"

using namespace genreg;

namespace {

// Chains of links longer than this are taken for cycles, as the kernel does.
constexpr int kMaxLinkHops = 40;

struct RegistryPaths {
  char registry[kGenRegPathSize];
  char temporary[kGenRegPathSize];
  char corrupt[kGenRegPathSize];
  char lock[kGenRegPathSize];
  char backup[kGenRegPathSize];
};

// A path split in two. "." stands for no directory.
struct SplitPath {
  char directory[kGenRegPathSize];
  char base[kGenRegPathSize];
};

bool fits(int length) {
  return length >= 0 && static_cast<unsigned long>(length) < kGenRegPathSize;
}

// The companions of a registry: visible ones beside its whole name, hidden ones made of a prefix
// ("dir/" or nothing) and its base name. False when any name would be cut.
bool formPaths(RegistryPaths& paths, const char* registry, const char* prefix, const char* base) {
  constexpr unsigned long size = kGenRegPathSize;
  return fits(ossSnprintf(paths.registry, size, "%s", registry)) &&
         fits(ossSnprintf(paths.temporary, size, "%s.tmp", registry)) &&
         fits(ossSnprintf(paths.corrupt, size, "%s.cor", registry)) &&
         fits(ossSnprintf(paths.lock, size, "%s.%s.lock", prefix, base)) &&
         fits(ossSnprintf(paths.backup, size, "%s.%s.bkp", prefix, base));
}

void adoptPaths(GenRegFile& object, const RegistryPaths& paths) {
  std::memcpy(object.registryPath, paths.registry, kGenRegPathSize);
  std::memcpy(object.temporaryPath, paths.temporary, kGenRegPathSize);
  std::memcpy(object.corruptPath, paths.corrupt, kGenRegPathSize);
  std::memcpy(object.lockPath, paths.lock, kGenRegPathSize);
  std::memcpy(object.backupPath, paths.backup, kGenRegPathSize);
}

// Replaces `path` by the target of the link that it names, a relative one taken from the link's
// directory. False when it is no link or the target does not fit.
bool followOneLink(char (&path)[kGenRegPathSize]) {
  char target[kGenRegPathSize] = {};
  const ssize_t length = readlink(path, target, sizeof target);
  if (length <= 0 || static_cast<unsigned long>(length) >= sizeof target) return false;
  if (target[0] == '/') return fits(ossSnprintf(path, sizeof path, "%s", target));
  char directory[kGenRegPathSize];
  if (ossDirectoryName(path, directory, sizeof directory) != status::ok) return false;
  return fits(ossSnprintf(path, sizeof path, "%s/%s", directory, target));
}

bool isLink(const char* path) {
  char ignored;
  return readlink(path, &ignored, sizeof ignored) >= 0;
}

// Follows `path` to a name that is no link. False when it is no link to begin with, or when the
// chain is too long or a name in it does not fit.
bool followLinks(char (&path)[kGenRegPathSize]) {
  if (!isLink(path)) return false;
  for (int hop = 0; hop < kMaxLinkHops; ++hop) {
    if (!followOneLink(path)) return false;
    if (!isLink(path)) return true;
  }
  return false;
}

bool splitPath(const char* path, SplitPath& split) {
  return ossDirectoryName(path, split.directory, sizeof split.directory) == status::ok &&
         ossBaseName(path, split.base, sizeof split.base) == status::ok;
}

GenRegStatus copyPath(FunctionId function, const char* path, char* buffer, unsigned long size) {
  Operation op(function, path);
  if (buffer == nullptr) return op.fail(1, status::invalid_argument);
  if (size == 0) return op.fail(2, status::buffer_too_small);
  const unsigned long needed = std::strlen(path) + 1;
  if (size < needed) {
    buffer[0] = '\0';
    return op.fail(3, status::buffer_too_small);
  }
  std::memcpy(buffer, path, needed);
  buffer[size - 1] = '\0';
  return op.status();
}

}  // namespace

GenRegStatus GenRegFile::setRegistryPaths(const char* path) {
  Operation op(kGenRegFileSetPaths, path);
  if (path == nullptr || *path == '\0') return op.fail(1, status::null_argument);
  if (strnlen(path, kGenRegMaxPathLength + 1) > kGenRegMaxPathLength) {
    return op.fail(2, status::path_too_long);
  }
  SplitPath split;
  GenRegStatus rc = ossBaseName(path, split.base, sizeof split.base);
  if (rc != status::ok) return op.fail(3, status::no_base_name, rc);
  rc = ossDirectoryName(path, split.directory, sizeof split.directory);
  if (rc != status::ok) return op.fail(4, status::no_directory_name, rc);

  // A bare name keeps bare companions; a directory that merely begins with a dot is a directory.
  char prefix[kGenRegPathSize + 1] = {};
  if (std::strcmp(split.directory, ".") != 0) {
    (void)ossSnprintf(prefix, sizeof prefix, "%s/", split.directory);  // has room for the slash
  }
  RegistryPaths paths;
  if (!formPaths(paths, path, prefix, split.base)) return op.fail(5, status::path_too_long);
  adoptPaths(*this, paths);
  state |= kGenRegStatePathsSet;
  return op.status();
}

GenRegStatus GenRegFile::GetAndSetRealRegistryPaths() {
  const Operation op(kGenRegFileGetAndSetRealRegistryPaths, registryPath);
  // The lock file that is held stands beside these paths: what it guards must not move away from
  // it, as it would when a link that could not be read at the locking can be read now.
  if ((state & kGenRegStateLocked) != 0) return op.status();
  char target[kGenRegPathSize];
  std::memcpy(target, registryPath, sizeof target);
  if (!followLinks(target)) return op.status();

  SplitPath split;
  if (!splitPath(target, split)) return op.status();
  char prefix[kGenRegPathSize + 1];
  char registry[2 * kGenRegPathSize];
  (void)ossSnprintf(prefix, sizeof prefix, "%s/", split.directory);  // both have room for what
  (void)ossSnprintf(registry, sizeof registry, "%s%s", prefix, split.base);  // they are given
  RegistryPaths paths;
  if (formPaths(paths, registry, prefix, split.base)) adoptPaths(*this, paths);
  return op.status();
}

GenRegStatus GenRegFile::getRegistryPath(char* buffer, unsigned long size) {
  return copyPath(kGenRegFileGetRegistryPath, registryPath, buffer, size);
}

GenRegStatus GenRegFile::getRegistryTmpPath(char* buffer, unsigned long size) {
  return copyPath(kGenRegFileGetRegistryTmpPath, temporaryPath, buffer, size);
}

GenRegStatus GenRegFile::getRegistryBackupPath(char* buffer, unsigned long size) {
  return copyPath(kGenRegFileGetRegistryBackupPath, backupPath, buffer, size);
}

GenRegStatus GenRegFile::getRegistryLockPath(char* buffer, unsigned long size) {
  return copyPath(kGenRegFileGetRegistryLockPath, lockPath, buffer, size);
}

GenRegStatus GenRegFile::getRegistryCorruptTmpPath(char* buffer, unsigned long size) {
  return copyPath(kGenRegFileGetRegistryCorruptTmpPath, corruptPath, buffer, size);
}

void genreg::ensureDirectoryOf(Operation& op, const char* path) {
  constexpr unsigned kDirectoryMode = 0755;
  char directory[kGenRegPathSize];
  GenRegStatus rc = ossDirectoryName(path, directory, sizeof directory);
  if (rc != status::ok) {
    op.fail(90, rc);
    return;
  }
  if (ossIsDirectory(directory)) return;
  rc = ossDirectoryCreate(directory, kDirectoryMode);
  if (rc != status::ok) op.fail(91, status::directory_not_created, rc);
}
