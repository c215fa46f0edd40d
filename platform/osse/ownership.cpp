// SPDX-License-Identifier: Apache-2.0
// Giving one open file the owner, group and extended attributes of another, as far as the process
// may. Attribute names and values come from the file and are bounded by what they say, then
// checked.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "platform/osse/errors.h"
#include "platform/osse/files.h"
#include "platform/osse/internal/function_ids.h"
#include "platform/osse/log.h"

#ifdef __linux__
#include <sys/xattr.h>
#endif

namespace {

using namespace oss::internal;

void logSkipped(unsigned int probe, int error, const char* what) {
  ossLog(kOssFileCopyOwnership, probe, ossErrorMapSystem(error), what);
}

constexpr uid_t kKeepOwner = static_cast<uid_t>(-1);
constexpr gid_t kKeepGroup = static_cast<gid_t>(-1);

// An unprivileged process may often set the group and not the owner, so one must not fail the
// other.
void copyOwnerAndGroup(int from, int to) {
  struct stat source {};
  struct stat target {};
  if (fstat(from, &source) != 0 || fstat(to, &target) != 0) {
    return logSkipped(1, errno, "owner and group");
  }
  const bool sameOwner = source.st_uid == target.st_uid;
  const bool sameGroup = source.st_gid == target.st_gid;
  if (!sameGroup && fchown(to, kKeepOwner, source.st_gid) != 0) logSkipped(2, errno, "group");
  if (!sameOwner && fchown(to, source.st_uid, kKeepGroup) != 0) logSkipped(3, errno, "owner");
}

#ifdef __linux__

constexpr char kAccessAcl[] = "system.posix_acl_access";
constexpr int kMaxAttempts = 8;  // while somebody keeps adding to the file's attributes

struct Released {
  void operator()(char* memory) const { std::free(memory); }
};

// Bytes read from a file's attributes; null when there are none or they could not be read.
struct Bytes {
  std::unique_ptr<char, Released> data;
  std::size_t size = 0;
};

// Reads with `read(buffer, size)`, which tells the size when given 0 and fails with ERANGE when the
// answer has outgrown the buffer in the meantime. 0 or the errno value.
template <typename Read>
int readGrowing(const Read& read, Bytes* out) {
  for (int attempt = 0; attempt < kMaxAttempts; ++attempt) {
    const ssize_t wanted = read(nullptr, 0);
    if (wanted < 0) return errno;
    const std::size_t room = static_cast<std::size_t>(wanted);
    std::unique_ptr<char, Released> data(static_cast<char*>(std::malloc(room + 1)));
    if (data == nullptr) return ENOMEM;
    const ssize_t got = room == 0 ? 0 : read(data.get(), room);
    if (got < 0 && errno == ERANGE) continue;
    if (got < 0) return errno;
    out->size = static_cast<std::size_t>(got);
    data.get()[out->size] = '\0';  // a name list that does not end in a terminator gets one
    out->data = std::move(data);
    return 0;
  }
  return ERANGE;
}

void copyAttribute(int from, int to, const char* name) {
  Bytes value;
  const auto read = [&](char* buffer, std::size_t size) {
    return fgetxattr(from, name, buffer, size);
  };
  const int error = readGrowing(read, &value);
  if (error != 0) return logSkipped(4, error, name);
  if (fsetxattr(to, name, value.data.get(), value.size, 0) != 0) logSkipped(5, errno, name);
}

// A directory's default ACL gives every new file entries that the original need not have.
void dropInheritedAcl(int to) {
  if (fgetxattr(to, kAccessAcl, nullptr, 0) < 0) return;  // none, or none that we may see
  if (fremovexattr(to, kAccessAcl) != 0) logSkipped(6, errno, kAccessAcl);
}

void copyAttributes(int from, int to) {
  Bytes names;
  const auto read = [&](char* buffer, std::size_t size) { return flistxattr(from, buffer, size); };
  const int error = readGrowing(read, &names);
  if (error == ENOTSUP) return;  // a file system without attributes has none to lose
  if (error != 0) return logSkipped(7, error, "extended attributes");

  bool hasAcl = false;
  const char* const end = names.data.get() + names.size;
  for (const char* name = names.data.get(); name < end; name += std::strlen(name) + 1) {
    if (*name == '\0') continue;  // Unreached: no kernel lists an empty name
    hasAcl = hasAcl || std::strcmp(name, kAccessAcl) == 0;
    copyAttribute(from, to, name);
  }
  if (!hasAcl) dropInheritedAcl(to);
}

#else

void copyAttributes(int, int) {}

#endif

}  // namespace

void ossFileCopyOwnership(int from, int to) {
  const int saved = errno;
  copyOwnerAndGroup(from, to);
  copyAttributes(from, to);
  errno = saved;
}
