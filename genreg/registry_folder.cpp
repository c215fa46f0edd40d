// SPDX-License-Identifier: Apache-2.0
// The folder that a registry stands in: made when it is missing, and put on disk with the names
// that lead to it before the registry holds anything.
#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <cstring>

#include "genreg/internal/operation.h"
#include "genreg/internal/registry_files.h"
#include "platform/osse/errors.h"
#include "platform/osse/files.h"
#include "platform/osse/paths.h"

using namespace genreg;

namespace {

// A folder, and then the one above it, and so on: by "..", which leads to where the folder really
// is, whatever links and closed folders the path goes through.
class FolderClimb {
 public:
  GenRegStatus begin(const char* path);
  // Goes to the folder above. False when there is none on the file system: what one is mounted on
  // was there before.
  bool up(GenRegStatus* rc);
  const char* folder() const { return folder_; }

 private:
  char folder_[PATH_MAX];
  struct stat info_ {};
};

GenRegStatus FolderClimb::begin(const char* path) {
  const GenRegStatus rc = ossDirectoryName(path, folder_, sizeof folder_);
  if (rc != status::ok) return rc;
  return stat(folder_, &info_) == 0 ? GenRegStatus{status::ok} : ossErrorMapSystem(errno);
}

bool FolderClimb::up(GenRegStatus* rc) {
  constexpr char kUp[] = "/..";
  const std::size_t length = std::strlen(folder_);
  if (length + sizeof kUp > sizeof folder_) return false;  // a thousand folders are enough
  std::memcpy(folder_ + length, kUp, sizeof kUp);
  const struct stat below = info_;
  if (stat(folder_, &info_) != 0) {
    *rc = ossErrorMapSystem(errno);
    return false;
  }
  return info_.st_dev == below.st_dev && info_.st_ino != below.st_ino;
}

// Whether a folder was refused that this process may be in, and not read or pass through.
bool isForbidden(GenRegStatus rc) {
  return rc == ossErrorMapSystem(EACCES) || rc == ossErrorMapSystem(EPERM);
}

GenRegStatus syncUpwards(const char* path) {
  FolderClimb climb;
  GenRegStatus rc = climb.begin(path);
  if (rc != status::ok) return rc;
  do {
    const GenRegStatus synced = ossDirectorySync(climb.folder());
    if (synced != status::ok && !isForbidden(synced)) return synced;
  } while (climb.up(&rc));
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
  const GenRegStatus rc = syncUpwards(path);
  if (rc != status::ok) op.fail(92, status::registry_not_opened, rc);
}
