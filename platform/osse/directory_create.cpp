// SPDX-License-Identifier: Apache-2.0
// Making a folder with its parents.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>

#include "platform/osse/errors.h"
#include "platform/osse/paths.h"

namespace {

using namespace oss;

constexpr unsigned int kAllPermissions = 07777;

// The bits that a folder made here shall have: those wanted, and an inherited set-group-id bit,
// which hands the group of a shared tree down.
mode_t finalMode(mode_t present, unsigned int permissions) {
  return static_cast<mode_t>(permissions) | (present & S_ISGID);
}

OSSStatus setPermissionsOpen(int directory, unsigned int permissions) {
  struct stat info {};
  if (fstat(directory, &info) != 0) return ossErrorMapSystem(errno);
  const mode_t wanted = finalMode(info.st_mode, permissions);
  if ((info.st_mode & kAllPermissions) == wanted) return status::ok;
  return fchmod(directory, wanted) == 0 ? status::ok : ossErrorMapSystem(errno);
}

// For a folder that its maker may not read: by name, but never through a link.
OSSStatus setPermissionsNamed(const char* path, unsigned int permissions) {
  struct stat info {};
  if (lstat(path, &info) != 0) return ossErrorMapSystem(errno);
  const mode_t wanted = finalMode(info.st_mode, permissions);
  const int rc = fchmodat(AT_FDCWD, path, wanted, AT_SYMLINK_NOFOLLOW);
  return rc == 0 ? status::ok : ossErrorMapSystem(errno);
}

// Undoes what the umask took from a folder just made.
OSSStatus setPermissions(const char* path, unsigned int permissions) {
  const int directory = open(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (directory < 0 && errno == EACCES) return setPermissionsNamed(path, permissions);
  if (directory < 0) return ossErrorMapSystem(errno);
  const OSSStatus rc = setPermissionsOpen(directory, permissions);
  (void)::close(directory);  // nothing was written through it
  return rc;
}

OSSStatus createOne(const char* path, unsigned int permissions) {
  if (ossIsDirectory(path)) return status::ok;
  if (mkdir(path, static_cast<mode_t>(permissions)) == 0) return setPermissions(path, permissions);
  const int error = errno;
  if (error != EEXIST && error != ENOTDIR) return ossErrorMapSystem(error);
  return ossIsDirectory(path) ? status::ok : status::not_a_directory;
}

// Ends the string before the slash at `slash` for the time of one step.
OSSStatus createParent(char* path, char* slash, unsigned int permissions) {
  *slash = '\0';
  const OSSStatus rc = createOne(path, permissions);
  *slash = '/';
  return rc;
}

}  // namespace

OSSStatus ossDirectoryCreate(const char* path, unsigned int permissions) {
  if (path == nullptr || *path == '\0') return status::invalid_argument;
  if (permissions > kAllPermissions) return status::invalid_argument;
  char work[PATH_MAX];
  const std::size_t length = std::strlen(path);
  if (length >= sizeof work) return status::buffer_too_small;
  std::memcpy(work, path, length + 1);

  char* slash = std::strchr(work + 1, '/');
  for (; slash != nullptr; slash = std::strchr(slash + 1, '/')) {
    const OSSStatus rc = createParent(work, slash, permissions);
    if (rc != status::ok) return rc;
  }
  return createOne(work, permissions);
}
