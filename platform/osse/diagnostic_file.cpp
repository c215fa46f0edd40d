// SPDX-License-Identifier: Apache-2.0
// The files that log and trace lines go to.
#include "platform/osse/internal/diagnostic_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "platform/osse/errors.h"
#include "platform/osse/strings.h"

namespace oss {
namespace internal {
namespace {

constexpr mode_t kDiagnosticFileMode = 0600;  // texts name files of users

bool isRegular(int descriptor) {
  struct stat info {};
  return fstat(descriptor, &info) == 0 && S_ISREG(info.st_mode);
}

// The descriptor, or -1 with its code in *failure.
int openDiagnosticFile(const char* path, OSSStatus* failure) {
  const int flags = O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
  const int descriptor = open(path, flags, kDiagnosticFileMode);
  if (descriptor < 0) {
    const bool isOther = errno == ENXIO || errno == EISDIR;  // FIFO or socket; directory
    *failure = isOther ? status::not_a_regular_file : ossErrorMapSystem(errno);
    return -1;
  }
  if (isRegular(descriptor)) return descriptor;
  (void)::close(descriptor);  // nothing was written
  *failure = status::not_a_regular_file;
  return -1;
}

OSSStatus makeAbsolute(const char* path, char* out) {
  char directory[kDiagnosticPathSize] = "";
  const bool relative = path[0] != '/';
  if (relative && getcwd(directory, sizeof directory) == nullptr) return ossErrorMapSystem(errno);
  const int length =
      ossSnprintf(out, kDiagnosticPathSize, "%s%s%s", directory, relative ? "/" : "", path);
  const bool fits = length >= 0 && static_cast<std::size_t>(length) < kDiagnosticPathSize;
  return fits ? status::ok : status::buffer_too_small;
}

}  // namespace

KeepErrno::KeepErrno() : saved_(errno) {}
KeepErrno::~KeepErrno() {
  errno = saved_;
}

OSSStatus prepareDiagnosticFile(const char* path, char* out) {
  if (path == nullptr || path[0] == '\0') return status::invalid_argument;
  char absolute[kDiagnosticPathSize];
  OSSStatus rc = makeAbsolute(path, absolute);
  if (rc != status::ok) return rc;
  rc = appendToDiagnosticFile(absolute, "", 0);
  if (rc == status::ok) std::memcpy(out, absolute, sizeof absolute);
  return rc;
}

OSSStatus appendToDiagnosticFile(const char* path, const char* bytes, std::size_t size) {
  OSSStatus rc = status::ok;
  const int descriptor = openDiagnosticFile(path, &rc);
  if (descriptor < 0) return rc;
  if (size > 0 && write(descriptor, bytes, size) < 0) rc = ossErrorMapSystem(errno);
  (void)::close(descriptor);  // a diagnostic line that the disk loses has no second home
  return rc;
}

const char* trustedEnvironment(const char* name) {
#ifdef __GLIBC__
  const char* value = secure_getenv(name);
#else
  const bool elevated = getuid() != geteuid() || getgid() != getegid();
  const char* value = elevated ? nullptr : std::getenv(name);
#endif
  return value != nullptr && value[0] != '\0' ? value : nullptr;
}

}  // namespace internal
}  // namespace oss
