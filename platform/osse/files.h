// SPDX-License-Identifier: Apache-2.0
// Files as wholes: delete, rename, describe, permissions, ownership, and getting them onto the
// disk.
//
// The road of a file that replaces another one, in this order:
//
//     create the copy with mode 0600
//     ossFileCopyOwnership(original, copy)      owner, group, ACL, extended attributes
//     ossFileSetPermissions(copy, bits)         last: a change of owner clears set-id bits, and an
//                                               ACL changes the group bits
//     write, ossFileSync(copy), close
//     ossFileRename(copy path, original path)
//     ossDirectorySync(directory)               now the new name is as durable as the bytes
//
// Not here: opening and locking (file_handle.h), names (paths.h).
#pragma once

#include "platform/osse/export.h"
#include "platform/osse/status.h"

// What ossFileGetInfoV9 tells. The layout is the same in 32-bit and 64-bit builds: 56 bytes.
struct alignas(8) OSSFileInfo {
  unsigned long long size;    // bytes
  unsigned long long device;  // device and inode together identify the file
  unsigned long long inode;
  long long modified;                // last change of the contents: seconds since the epoch, UTC
  unsigned int modifiedNanoseconds;  // and the fraction, 0 to 999999999
  unsigned int permissions;          // octal 07777
  unsigned int owner;                // user id
  unsigned int group;                // group id
  unsigned int links;                // hard links
  bool regular;                      // a regular file
  bool directory;                    // a directory
  unsigned char reserved[2];         // 0
};

// Whether the two sync functions below do anything. A choice for bulk work on files that can be
// made again; process-wide.
enum class OSSSyncPolicy : unsigned int {
  none,      // they do nothing and succeed
  standard,  // fsync: the default. An update of a registry makes two: the copy, and the directory
             // once it holds the copy under the registry's name; before the first record of a
             // registry, one of each directory that leads to it
  full       // where the system has a stronger request than fsync, that one. An update makes one
             // more: the directory, before the rename, once it holds the backup's name
};

// Removes the name `path`; a link itself, not what it leads to. Directories are refused.
// invalid_argument: null or empty.
[[nodiscard]] VRXOSSE_API OSSStatus ossFileDelete(const char* path);

// Gives the file `from` the name `to` in one step, replacing what has that name.
// invalid_argument: null or empty.
[[nodiscard]] VRXOSSE_API OSSStatus ossFileRename(const char* from, const char* to);

// Describes what stands at `path`, following links. *out is untouched on failure.
// invalid_argument: null or empty.
[[nodiscard]] VRXOSSE_API OSSStatus ossFileGetInfoV9(const char* path, OSSFileInfo* out);

// Sets the permission bits (octal 0 to 07777), by path (links are followed) or by descriptor, which
// no rename can deceive. The umask has no part in it.
// invalid_argument: null or empty path, or other permissions.
[[nodiscard]] VRXOSSE_API OSSStatus ossFileSetPermissions(const char* path,
                                                          unsigned int permissions);
[[nodiscard]] VRXOSSE_API OSSStatus ossFileSetPermissions(int descriptor, unsigned int permissions);

// Gives the file behind descriptor `to` the owner, the group and every extended attribute (ACLs
// are among them) of the file behind `from`, each as far as the process may. An ACL that `to`
// inherited from its directory and `from` does not have is taken away. Works on the open files only
// and follows nothing. What cannot be set is logged and is no failure. Set the permission bits
// afterwards.
VRXOSSE_API void ossFileCopyOwnership(int from, int to);

// The process-wide sync policy. Threads may call both at any time.
VRXOSSE_API void ossSetSyncPolicy(OSSSyncPolicy policy);
[[nodiscard]] VRXOSSE_API OSSSyncPolicy ossGetSyncPolicy();

// Waits until the contents of the file are on the disk. A failure means that they may never get
// there; calling again proves nothing, since the system may have dropped the pages. Only an
// interrupted call is repeated.
[[nodiscard]] VRXOSSE_API OSSStatus ossFileSync(int descriptor);

// Waits until the names in `directory` are on the disk. The process needs read permission on it.
// A file system that cannot sync directories (EINVAL) counts as success.
// invalid_argument: null or empty.
[[nodiscard]] VRXOSSE_API OSSStatus ossDirectorySync(const char* directory);

// Whether `path` itself (links are not followed) is the very file that `descriptor` has open. *same
// is false when nothing stands at the path, and untouched on failure.
// invalid_argument: null or empty.
[[nodiscard]] VRXOSSE_API OSSStatus ossDescriptorNamesPath(int descriptor, const char* path,
                                                           bool* same);
