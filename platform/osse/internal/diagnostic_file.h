// SPDX-License-Identifier: Apache-2.0
// The files that log and trace lines go to.
//
// They are opened for each line and closed again. A kept descriptor could be closed behind our
// back, by a program that closes all it inherited, and its number could then belong to a file of
// the program, which the next line would damage.
#pragma once

#include <cstddef>

#include "platform/osse/status.h"

namespace oss {
namespace internal {

// Size in bytes, terminator included, of a diagnostic file's path.
constexpr std::size_t kDiagnosticPathSize = 4096;

// Keeps errno as it was for the time of a block.
class KeepErrno {
 public:
  KeepErrno();
  ~KeepErrno();
  KeepErrno(const KeepErrno&) = delete;
  KeepErrno& operator=(const KeepErrno&) = delete;

 private:
  const int saved_;
};

// Makes `path` absolute, from the present working directory, into `out` of kDiagnosticPathSize
// bytes, and opens the file once to see whether it can be. `out` is untouched on failure.
[[nodiscard]] OSSStatus prepareDiagnosticFile(const char* path, char* out);

// Appends `size` bytes with one write, creating the file with mode 0600. Never waits, follows no
// link as last component, writes into nothing but a regular file.
[[nodiscard]] OSSStatus appendToDiagnosticFile(const char* path, const char* bytes,
                                               std::size_t size);

// The value of an environment variable; null when it is unset or empty, and in set-user-id and
// set-group-id processes, whose environment belongs to somebody else.
[[nodiscard]] const char* trustedEnvironment(const char* name);

}  // namespace internal
}  // namespace oss
