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

// Makes `folder` the one above it, as long as that is on the file system `device`: where a file
// system is mounted, the name was there before.
bool climb(char (&folder)[PATH_MAX], dev_t device) {
  if (std::strcmp(folder, "/") == 0) return false;
  struct stat above {};
  return ossDirectoryName(folder, folder, sizeof folder) == status::ok &&
         stat(folder, &above) == 0 && above.st_dev == device;
}

// A folder that this process may pass through and not read cannot be opened to be synced.
GenRegStatus syncReadable(const char* folder) {
  const GenRegStatus rc = ossDirectorySync(folder);
  const bool readable = rc != ossErrorMapSystem(EACCES) && rc != ossErrorMapSystem(EPERM);
  return readable ? rc : GenRegStatus{status::ok};
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
  struct stat own {};
  GenRegStatus rc = findRealFolder(path, folder);
  if (rc == status::ok && stat(folder, &own) != 0) rc = ossErrorMapSystem(errno);
  while (rc == status::ok && climb(folder, own.st_dev))
    rc = syncReadable(folder);
  if (rc != status::ok) op.fail(92, status::registry_not_opened, rc);
}
