// SPDX-License-Identifier: Apache-2.0
// Files as wholes: delete, rename, describe, permissions. Ownership and attributes stand in
// ownership.cpp, syncing in sync.cpp.
#include "platform/osse/files.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>

#include "platform/osse/errors.h"

// One layout in every build: programs of both sizes may hand such a block to each other.
static_assert(sizeof(OSSFileInfo) == 56 && alignof(OSSFileInfo) == 8, "OSSFileInfo");
static_assert(offsetof(OSSFileInfo, size) == 0 && offsetof(OSSFileInfo, device) == 8 &&
                  offsetof(OSSFileInfo, inode) == 16 && offsetof(OSSFileInfo, modified) == 24,
              "OSSFileInfo");
static_assert(offsetof(OSSFileInfo, modifiedNanoseconds) == 32 &&
                  offsetof(OSSFileInfo, permissions) == 36 && offsetof(OSSFileInfo, owner) == 40 &&
                  offsetof(OSSFileInfo, group) == 44 && offsetof(OSSFileInfo, links) == 48,
              "OSSFileInfo");
static_assert(offsetof(OSSFileInfo, regular) == 52 && offsetof(OSSFileInfo, directory) == 53 &&
                  offsetof(OSSFileInfo, reserved) == 54,
              "OSSFileInfo");
static_assert(sizeof(off_t) == 8, "build with _FILE_OFFSET_BITS=64");

namespace {

using namespace oss;

constexpr unsigned int kAllPermissions = 07777;

bool isEmpty(const char* path) {
  return path == nullptr || *path == '\0';
}

OSSStatus resultOf(int rc) {
  return rc == 0 ? status::ok : ossErrorMapSystem(errno);
}

OSSFileInfo describe(const struct stat& info) {
  OSSFileInfo result{};
  result.size = static_cast<unsigned long long>(info.st_size);
  result.device = info.st_dev;
  result.inode = info.st_ino;
  result.modified = info.st_mtim.tv_sec;
  result.modifiedNanoseconds = static_cast<unsigned int>(info.st_mtim.tv_nsec);
  result.permissions = info.st_mode & kAllPermissions;
  result.owner = info.st_uid;
  result.group = info.st_gid;
  result.links = static_cast<unsigned int>(info.st_nlink);
  result.regular = S_ISREG(info.st_mode);
  result.directory = S_ISDIR(info.st_mode);
  return result;
}

}  // namespace

OSSStatus ossFileDelete(const char* path) {
  if (isEmpty(path)) return status::invalid_argument;
  return resultOf(unlink(path));
}

OSSStatus ossFileRename(const char* from, const char* to) {
  if (isEmpty(from) || isEmpty(to)) return status::invalid_argument;
  return resultOf(std::rename(from, to));
}

OSSStatus ossFileGetInfoV9(const char* path, OSSFileInfo* out) {
  if (isEmpty(path) || out == nullptr) return status::invalid_argument;
  struct stat info {};
  const OSSStatus rc = resultOf(stat(path, &info));
  if (rc == status::ok) *out = describe(info);
  return rc;
}

OSSStatus ossFileSetPermissions(const char* path, unsigned int permissions) {
  if (isEmpty(path) || permissions > kAllPermissions) return status::invalid_argument;
  return resultOf(chmod(path, static_cast<mode_t>(permissions)));
}

OSSStatus ossFileSetPermissions(int descriptor, unsigned int permissions) {
  if (permissions > kAllPermissions) return status::invalid_argument;
  return resultOf(fchmod(descriptor, static_cast<mode_t>(permissions)));
}

OSSStatus ossDescriptorNamesPath(int descriptor, const char* path, bool* same) {
  if (isEmpty(path) || same == nullptr) return status::invalid_argument;
  struct stat held {};
  struct stat named {};
  if (fstat(descriptor, &held) != 0) return ossErrorMapSystem(errno);
  if (lstat(path, &named) != 0) {
    if (errno != ENOENT && errno != ENOTDIR) return ossErrorMapSystem(errno);
    *same = false;
    return status::ok;
  }
  *same = held.st_dev == named.st_dev && held.st_ino == named.st_ino;
  return status::ok;
}
