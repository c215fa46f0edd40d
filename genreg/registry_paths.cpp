// SPDX-License-Identifier: Apache-2.0
// The five paths of a registry: how they are formed, followed through links, and read back. No
// other file forms a companion name.
#include <unistd.h>

#include <cstring>
#include <initializer_list>
#include <string_view>

#include "genreg/internal/operation.h"
#include "genreg/internal/registry_files.h"
#include "genreg/registry.h"
#include "platform/osse/paths.h"

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
  char directory[kGenRegPathSize + 1];  // and a slash
  char base[kGenRegPathSize];
};

// Joins the parts into a path, which none of them may lie in. False when it would be cut.
bool join(char (&path)[kGenRegPathSize], std::initializer_list<std::string_view> parts) {
  std::size_t length = 0;
  for (const std::string_view part : parts) {
    if (part.size() >= kGenRegPathSize - length) return false;
    (void)part.copy(path + length, part.size());  // its size again
    length += part.size();
  }
  path[length] = '\0';
  return true;
}

// The companions of a registry: visible ones beside its whole name, hidden ones in its folder,
// which is given as "dir/" or as nothing, before its base name. False when any name would be cut.
bool formPaths(RegistryPaths& paths, std::string_view registry, std::string_view folder,
               std::string_view base) {
  // Unreached: the corrupt copy's name is as long as the temporary copy's, the backup's is shorter
  // than the lock's, and the registry's shorter than all.
  return join(paths.registry, {registry}) && join(paths.temporary, {registry, ".tmp"}) &&
         join(paths.corrupt, {registry, ".cor"}) &&
         join(paths.lock, {folder, ".", base, ".lock"}) &&
         join(paths.backup, {folder, ".", base, ".bkp"});
}

void adoptPath(char (&to)[kGenRegPathSize], const char (&from)[kGenRegPathSize]) {
  std::memcpy(to, from, std::strlen(from) + 1);
}

void adoptPaths(GenRegFile& object, const RegistryPaths& paths) {
  adoptPath(object.registryPath, paths.registry);
  adoptPath(object.temporaryPath, paths.temporary);
  adoptPath(object.corruptPath, paths.corrupt);
  adoptPath(object.lockPath, paths.lock);
  adoptPath(object.backupPath, paths.backup);
}

// Replaces `path` by the target of the link that it names, a relative one taken from the link's
// directory. False when it is no link or the target does not fit.
bool followOneLink(char (&path)[kGenRegPathSize]) {
  char target[kGenRegPathSize] = {};
  const ssize_t length = readlink(path, target, sizeof target);
  if (length <= 0 || static_cast<unsigned long>(length) >= sizeof target) return false;
  if (target[0] == '/') return join(path, {target});
  char directory[kGenRegPathSize];
  if (ossDirectoryName(path, directory, sizeof directory) != status::ok) return false;
  return join(path, {directory, "/", target});
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

// The directory with a slash behind it, for which it has room.
std::string_view withSlash(char (&directory)[kGenRegPathSize + 1]) {
  const std::size_t length = std::strlen(directory);
  directory[length] = '/';
  return {directory, length + 1};
}

bool splitPath(const char* path, SplitPath& split) {
  return ossDirectoryName(path, split.directory, kGenRegPathSize) == status::ok &&
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
  rc = ossDirectoryName(path, split.directory, kGenRegPathSize);
  if (rc != status::ok) return op.fail(4, status::no_directory_name, rc);

  // A bare name keeps bare companions; a directory that merely begins with a dot is a directory.
  std::string_view folder;
  if (std::strcmp(split.directory, ".") != 0) folder = withSlash(split.directory);
  RegistryPaths paths;
  if (!formPaths(paths, path, folder, split.base)) return op.fail(5, status::path_too_long);
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
  adoptPath(target, registryPath);
  if (!followLinks(target)) return op.status();

  SplitPath split;
  if (!splitPath(target, split)) return op.status();
  const std::string_view folder = withSlash(split.directory);
  char registry[kGenRegPathSize];
  RegistryPaths paths;
  if (join(registry, {folder, split.base}) && formPaths(paths, registry, folder, split.base)) {
    adoptPaths(*this, paths);
  }
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
