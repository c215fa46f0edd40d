// SPDX-License-Identifier: Apache-2.0
// Names of files and folders, and questions about what stands at a path.
//
// Sizes are in bytes and include the terminator. Outputs are untouched on failure. Every path is
// taken as it stands: nothing here resolves links or "..".
#pragma once

#include "platform/osse/export.h"
#include "platform/osse/status.h"

// The last component of `path` into `out`, which has room for `size` bytes. `out` may be `path`.
// no_file_name: the path is empty or ends in a slash. buffer_too_small. invalid_argument: null.
[[nodiscard]] VRXOSSE_API OSSStatus ossBaseName(const char* path, char* out, unsigned long size);

// The part of `path` before the slashes in front of its last component: "." when there is no slash,
// "/" when the component stands in the root. "a/b/" has an empty last component, so its directory
// is "a/b". `out` may be `path`.
// buffer_too_small. invalid_argument: null, or an empty path.
[[nodiscard]] VRXOSSE_API OSSStatus ossDirectoryName(const char* path, char* out,
                                                     unsigned long size);

// Whether a regular file, or a directory, can be seen at `path`; links are followed. False for null
// and whenever the system cannot tell.
[[nodiscard]] VRXOSSE_API bool ossIsFile(const char* path);
[[nodiscard]] VRXOSSE_API bool ossIsDirectory(const char* path);

// Creates a directory, and its parents as far as they are missing. An existing directory is success
// and is left as it is, also when another process creates it at the same moment. The directories
// created here get exactly `permissions` (octal 0 to 07777) whatever the umask, and keep the
// set-group-id bit that they inherit. Directories created before a failure stay.
// not_a_directory: a component is something else, or a dangling link. invalid_argument: null or
// empty path, or other permissions. buffer_too_small: a path above the system's limit.
[[nodiscard]] VRXOSSE_API OSSStatus ossDirectoryCreate(const char* path, unsigned int permissions);

// The home directory of `user`, followed by `relative` as it stands (begin it with a slash), into
// `out` of `size` bytes.
// unknown_user; no_home_directory: the database gives none, or a relative one; buffer_too_small;
// no_memory; invalid_argument: null.
[[nodiscard]] VRXOSSE_API OSSStatus ossBuildHomeDirectoryRelativePath(const char* user,
                                                                      const char* relative,
                                                                      char* out,
                                                                      unsigned long size);

// Whether `path` itself, not what a link leads to, is a regular file of user 0 with the set-user-id
// bit. False for null and whenever the system cannot tell.
[[nodiscard]] VRXOSSE_API bool ossPathIsSetuidRoot(const char* path);
