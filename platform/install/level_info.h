// SPDX-License-Identifier: Apache-2.0
// The level of the installed product: its version, its build, its fix pack.
//
// They stand in the level file, which the installation writes. Its path is fixed when the library
// is built; the environment variable "VRX_LEVEL_FILE" names another one for a relocated
// installation (ignored when empty, and in set-user-id and set-group-id processes). The file is
// text:
//
//     # installed by the product's setup
//     version=3.1.0.7
//     build_level=s250131
//     fixpack=7
//
// - One name=value a line, each of the three names exactly once, in any order. Blanks and tabs
// around
//   names and values do not count, nor does a carriage return at the end of a line.
// - version: one to four numbers from 0 to 65535, separated by dots. build_level: 1 to 63 printable
//   ASCII characters. fixpack: a decimal number from 0 to 4294967295.
// - Blank lines and lines whose first character is '#' are comments. Other names are left for later
//   releases: their values are ignored.
// - Lines have at most 255 bytes, the file at most 64 KiB, and no NUL byte.
#pragma once

#include "platform/install/export.h"
#include "platform/osse/status.h"

// The structure version that sqleGetLevelInfo expects.
constexpr unsigned int kSqleLevelInfoVersion = 0x9010000u;

// The installed level. The layout is the same in 32-bit and 64-bit builds: 92 bytes.
struct sqleLevelInfo {
  char version[24];            // dotted version, such as "3.1.0.7"; terminated
  char buildLevel[64];         // build level; terminated
  unsigned int fixpackNumber;  // 0 without a fix pack
};

// Reads the level file into *info, which is untouched on failure. `structureVersion` is
// kSqleLevelInfoVersion. The file is read anew at every call.
// oss::status::invalid_argument: another structure version, or null. level_file_missing: no such
// file. level_file_malformed: not a regular file, or contents other than described above. Any other
// failure to open or read it is the system error (platform/osse/errors.h).
[[nodiscard]] VRXINSTALL_API OSSStatus sqleGetLevelInfo(unsigned int structureVersion,
                                                        sqleLevelInfo* info);
