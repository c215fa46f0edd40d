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

// What the companions' names have that the registry's has not.
constexpr std::string_view kTemporary = ".tmp";
constexpr std::string_view kCorrupt = ".cor";
constexpr std::string_view kHidden = ".";
constexpr std::string_view kLock = ".lock";
constexpr std::string_view kBackup = ".bkp";

// A path split in two. "." stands for no directory.
struct SplitPath {
  char directory[kGenRegPathSize + 1];  // and a slash
  char base[kGenRegPathSize];
};

// Joins the parts, which have room in it, into a path. Only the first of them may lie in it.
void joinFitting(char (&path)[kGenRegPathSize], std::initializer_list<std::string_view> parts) {
  char* end = path;
  for (const std::string_view part : parts) {
    std::memmove(end, part.data(), part.size());
    end += part.size();
  }
  *end = '\0';
}

// The same for parts that may not fit. False when the path would be cut.
bool join(char (&path)[kGenRegPathSize], std::initializer_list<std::string_view> parts) {
  std::size_t length = 0;
  for (const std::string_view part : parts)
    length += part.size();
  if (length >= kGenRegPathSize) return false;
  joinFitting(path, parts);
  return true;
}

// Whether every companion's name fits: the corrupt copy's is as long as the temporary copy's, the
// backup's shorter than the lock's.
bool namesFit(std::string_view registry, std::string_view folder, std::string_view base) {
  return registry.size() + kTemporary.size() < kGenRegPathSize &&
         folder.size() + kHidden.size() + base.size() + kLock.size() < kGenRegPathSize;
}

// Gives the object the paths of a registry: visible companions beside its whole name, hidden ones
// in its folder, which is given as "dir/" or as nothing, before its base name. False, and nothing
// has changed, when any name would be cut. The registry's name may lie in a path of the object.
bool adoptPaths(GenRegFile& object, std::string_view registry, std::string_view folder,
                std::string_view base) {
  if (!namesFit(registry, folder, base)) return false;
  joinFitting(object.registryPath, {registry});
  const std::string_view own(object.registryPath, registry.size());
  joinFitting(object.temporaryPath, {own, kTemporary});
  joinFitting(object.corruptPath, {own, kCorrupt});
  joinFitting(object.lockPath, {folder, kHidden, base, kLock});
  joinFitting(object.backupPath, {folder, kHidden, base, kBackup});
  return true;
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
  std::string_view folder = "";  // nothing may be copied from a null pointer, not even nothing
  if (std::strcmp(split.directory, ".") != 0) folder = withSlash(split.directory);
  if (!adoptPaths(*this, path, folder, split.base)) return op.fail(5, status::path_too_long);
  state |= kGenRegStatePathsSet;
  return op.status();
}

GenRegStatus GenRegFile::GetAndSetRealRegistryPaths() {
  const Operation op(kGenRegFileGetAndSetRealRegistryPaths, registryPath);
  // The lock file that is held stands beside these paths: what it guards must not move away from
  // it, as it would when a link that could not be read at the locking can be read now.
  if ((state & kGenRegStateLocked) != 0) return op.status();
  char target[kGenRegPathSize];
  joinFitting(target, {registryPath});
  if (!followLinks(target)) return op.status();

  SplitPath split;
  if (!splitPath(target, split)) return op.status();
  const std::string_view folder = withSlash(split.directory);
  char registry[kGenRegPathSize];
  if (join(registry, {folder, split.base})) {
    (void)adoptPaths(*this, registry, folder, split.base);  // what does not fit changes nothing
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
