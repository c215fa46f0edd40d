// SPDX-License-Identifier: Apache-2.0
// Whether there is a file to read. The library's scans would make a missing one.
//
//     if (vrx::checkFile(path).noFile()) std::puts("nothing registered yet");
#pragma once

#include <sys/stat.h>

#include <cerrno>
#include <string>

#include "platform/osse/errors.h"
#include "vrx/status.h"

namespace vrx {

// Success when a regular file stands at `path`, behind links too; 0x90000513 when nothing does,
// 0x90000015 when something else does, 0x90000080 + errno when it cannot be looked at. Any thread.
inline Status checkFile(const std::string& path) {
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0) {
    const bool missing = errno == ENOENT || errno == ENOTDIR;
    return Status(missing ? GenRegStatus{genreg::status::no_registry} : ossErrorMapSystem(errno),
                  path);
  }
  if (!S_ISREG(info.st_mode)) return Status(oss::status::not_a_regular_file, path);
  return {};
}

}  // namespace vrx
