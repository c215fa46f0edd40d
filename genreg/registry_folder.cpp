// SPDX-License-Identifier: Apache-2.0
// The folder that a registry stands in: made when it is missing, and put on disk with the names
// that lead to it before it holds anything.
#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "genreg/internal/operation.h"
#include "genreg/internal/registry_files.h"
#include "platform/osse/errors.h"
#include "platform/osse/files.h"
#include "platform/osse/paths.h"

using namespace genreg;

namespace {

// The folder of `path` by its own name, without links on the way.
GenRegStatus findRealFolder(const char* path, char (&folder)[PATH_MAX]) {
  char named[kGenRegPathSize];
  const GenRegStatus rc = ossDirectoryName(path, named, sizeof named);
  if (rc != status::ok) return rc;
  return realpath(named, folder) != nullptr ? GenRegStatus{status::ok} : ossErrorMapSystem(errno);
}

GenRegStatus findDevice(const char* folder, dev_t* device) {
  struct stat info {};
  if (stat(folder, &info) != 0) return ossErrorMapSystem(errno);
  *device = info.st_dev;
  return status::ok;
}

// Whether a folder was refused that this process may pass through, and not read or look at.
bool isForbidden(GenRegStatus rc) {
  return rc == ossErrorMapSystem(EACCES) || rc == ossErrorMapSystem(EPERM);
}

// Syncs the names in `folder`, if it is on this file system: where one is mounted, the names above
// were there before.
GenRegStatus syncOn(dev_t device, const char* folder) {
  dev_t own = 0;
  GenRegStatus rc = findDevice(folder, &own);
  if (rc == status::ok && own == device) rc = ossDirectorySync(folder);
  return isForbidden(rc) ? GenRegStatus{status::ok} : rc;
}

}  // namespace

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

void genreg::syncNamesAbove(Operation& op, const char* path) {
  if (ossGetSyncPolicy() == OSSSyncPolicy::none) return;
  char folder[PATH_MAX];
  dev_t device = 0;
  GenRegStatus rc = findRealFolder(path, folder);
  if (rc == status::ok) rc = findDevice(folder, &device);
  if (isForbidden(rc)) return;  // a relative path from a place whose own path is closed
  while (rc == status::ok && std::strcmp(folder, "/") != 0) {
    rc = ossDirectoryName(folder, folder, sizeof folder);
    if (rc == status::ok) rc = syncOn(device, folder);
  }
  if (rc != status::ok) op.fail(92, status::registry_not_opened, rc);
}
