// SPDX-License-Identifier: Apache-2.0
// Names of files and folders, and questions about what stands at a path. Making folders stands in
// directory_create.cpp.
#include "platform/osse/paths.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "platform/osse/errors.h"
#include "platform/osse/interruptions.h"

namespace {

using namespace oss;

// Copies `length` bytes and a terminator; the ranges may overlap.
OSSStatus copyPart(const char* part, std::size_t length, char* out, unsigned long size) {
  if (length >= size) return status::buffer_too_small;
  std::memmove(out, part, length);
  out[length] = '\0';
  return status::ok;
}

// The length of path[0, length) without the slashes at its end.
std::size_t withoutFinalSlashes(const char* path, std::size_t length) {
  while (length > 0 && path[length - 1] == '/')
    --length;
  return length;
}

}  // namespace

OSSStatus ossBaseName(const char* path, char* out, unsigned long size) {
  if (path == nullptr || out == nullptr) return status::invalid_argument;
  const char* slash = std::strrchr(path, '/');
  const char* name = slash != nullptr ? slash + 1 : path;
  if (*name == '\0') return status::no_file_name;
  return copyPart(name, std::strlen(name), out, size);
}

OSSStatus ossDirectoryName(const char* path, char* out, unsigned long size) {
  if (path == nullptr || *path == '\0' || out == nullptr) return status::invalid_argument;
  const char* slash = std::strrchr(path, '/');
  if (slash == nullptr) return copyPart(".", 1, out, size);
  const std::size_t length = withoutFinalSlashes(path, static_cast<std::size_t>(slash - path));
  if (length == 0) return copyPart("/", 1, out, size);
  return copyPart(path, length, out, size);
}

bool ossIsFile(const char* path) {
  struct stat info {};
  return path != nullptr && stat(path, &info) == 0 && S_ISREG(info.st_mode);
}

bool ossIsDirectory(const char* path) {
  struct stat info {};
  return path != nullptr && stat(path, &info) == 0 && S_ISDIR(info.st_mode);
}

bool ossPathIsSetuidRoot(const char* path) {
  struct stat info {};
  if (path == nullptr || lstat(path, &info) != 0) return false;
  return S_ISREG(info.st_mode) && info.st_uid == 0 && (info.st_mode & S_ISUID) != 0;
}

namespace {

constexpr std::size_t kFirstUserBuffer = 1024;
constexpr std::size_t kLargestUserBuffer = std::size_t{1} << 20;  // a larger entry is no user

struct Released {
  void operator()(char* memory) const { std::free(memory); }
};
using UserBuffer = std::unique_ptr<char, Released>;

// Several systems report an unknown name as one of these errors.
bool meansUnknown(int error) {
  return error == 0 || error == ENOENT || error == ESRCH || error == EBADF || error == EPERM;
}

OSSStatus appendToHome(const char* home, const char* relative, char* out, unsigned long size) {
  if (home == nullptr || home[0] != '/') return status::no_home_directory;
  const std::size_t homeLength = std::strlen(home);
  const std::size_t relativeLength = std::strlen(relative);
  if (relativeLength >= size || homeLength >= size - relativeLength) {
    return status::buffer_too_small;
  }
  std::memmove(out + homeLength, relative, relativeLength + 1);
  std::memcpy(out, home, homeLength);
  return status::ok;
}

}  // namespace

OSSStatus ossBuildHomeDirectoryRelativePath(const char* user, const char* relative, char* out,
                                            unsigned long size) {
  if (user == nullptr || relative == nullptr || out == nullptr) return status::invalid_argument;
  for (std::size_t room = kFirstUserBuffer; room <= kLargestUserBuffer; room *= 2) {
    const UserBuffer buffer(static_cast<char*>(std::malloc(room)));
    if (buffer == nullptr) return status::no_memory;
    struct passwd entry {};
    struct passwd* found = nullptr;
    int error = 0;
    (void)repeatInterrupted([&] {  // fails as system calls do, for errno's sake alone
      error = getpwnam_r(user, &entry, buffer.get(), room, &found);
      if (error == 0) return 0;
      errno = error;
      return -1;
    });
    if (found != nullptr) return appendToHome(entry.pw_dir, relative, out, size);
    if (meansUnknown(error)) return status::unknown_user;
    if (error != ERANGE) return ossErrorMapSystem(error);
  }
  return status::buffer_too_small;
}
