// SPDX-License-Identifier: Apache-2.0
// One open regular file. Its locks stand in file_lock.cpp.
#include "platform/osse/file_handle.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/osse/errors.h"
#include "platform/osse/internal/function_ids.h"
#include "platform/osse/interruptions.h"
#include "platform/osse/log.h"

namespace {

using namespace oss;

constexpr unsigned int kAllPermissions = 07777;

// Never wait for the other end of a FIFO; never let a terminal take control of the process. Both
// mean nothing to regular files, so the flags may stay.
constexpr int kCarefulFlags = O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

// The flags for open(2), or -1 for an unknown access.
int accessFlags(unsigned int access) {
  switch (access) {
    case kOssAccessRead:
      return O_RDONLY;
    case kOssAccessReadWrite:
      return O_RDWR;
    case kOssAccessAppend:
      return O_RDWR | O_APPEND;
    default:
      return -1;
  }
}

bool areValid(const OSSFileOpenParams* params) {
  if (params == nullptr || params->version != kOssFileStructureVersion) return false;
  if (params->path == nullptr || *params->path == '\0') return false;
  const unsigned int disposition = params->options & ~(kOssOpenNoFollow | kOssOpenUnchecked);
  if (disposition != kOssOpenExisting && disposition != kOssOpenOrCreate) return false;
  return accessFlags(params->access) >= 0 && params->permissions <= kAllPermissions;
}

int openRetrying(const char* path, int flags, mode_t permissions) {
  return repeatInterrupted([&] { return ::open(path, flags, permissions); });
}

// An existing file is opened without the creation flag: in a sticky directory the system may refuse
// that flag on other users' files.
int openOrCreate(const OSSFileOpenParams& params) {
  const int noFollow = (params.options & kOssOpenNoFollow) != 0 ? O_NOFOLLOW : 0;
  const int flags = accessFlags(params.access) | kCarefulFlags | noFollow;
  const int descriptor = openRetrying(params.path, flags, 0);
  const bool creates = (params.options & kOssOpenOrCreate) != 0;
  if (descriptor >= 0 || errno != ENOENT || !creates) return descriptor;
  return openRetrying(params.path, flags | O_CREAT, static_cast<mode_t>(params.permissions));
}

OSSStatus checkRegular(int descriptor) {
  struct stat info {};
  if (fstat(descriptor, &info) != 0) return ossErrorMapSystem(errno);
  return S_ISREG(info.st_mode) ? status::ok : status::not_a_regular_file;
}

// Directories and sockets refuse already at the opening.
OSSStatus openFailure(int error) {
  if (error == EISDIR || error == ENXIO) return status::not_a_regular_file;
  return ossErrorMapSystem(error);
}

}  // namespace

OSSHFile::~OSSHFile() {
  const OSSStatus rc = close();
  if (rc != status::ok) ossLog(internal::kOssFileHandleDestructor, 1, rc, nullptr);
}

OSSStatus OSSHFile::open(const OSSFileOpenParams* params) {
  if (!areValid(params)) return status::invalid_argument;
  OSSStatus rc = close();
  if (rc != status::ok) return rc;
  const int descriptor = openOrCreate(*params);
  if (descriptor < 0) return openFailure(errno);
  if ((params->options & kOssOpenUnchecked) == 0) rc = checkRegular(descriptor);
  if (rc == status::ok) {
    descriptor_ = descriptor;
    return rc;
  }
  (void)::close(descriptor);  // not a file of ours: nothing was written
  return rc;
}

OSSStatus OSSHFile::close() {
  if (descriptor_ < 0) return status::ok;
  const int descriptor = detach();
  // The descriptor is gone even when the call was interrupted; closing again could hit another
  // file.
  if (::close(descriptor) == 0 || errno == EINTR) return status::ok;
  return ossErrorMapSystem(errno);
}

int OSSHFile::detach() {
  const int descriptor = descriptor_;
  descriptor_ = -1;
  return descriptor;
}
