// SPDX-License-Identifier: Apache-2.0
// The table of system calls, by the numbers of x86-64 and i386. A call that it lacks is counted,
// killed and failed like any other: it only has no name in traces.
#include "tests/crash/call_names.h"

namespace crash {
namespace {

// A 32-bit program's call goes by the name of its 64-bit sibling: fcntl64 is fcntl, _llseek lseek.
constexpr CallRow kCalls[] = {
    {"read", 0, 3, "f"},
    {"write", 1, 4, "f"},
    {"open", 2, 5, "p"},
    {"close", 3, 6, "f"},
    {"stat", 4, 195, "p"},
    {"fstat", 5, 197, "f"},
    {"lstat", 6, 196, "p"},
    {"lseek", 8, 140, "f"},
    {"mmap", 9, 192, ""},
    {"mprotect", 10, 125, ""},
    {"munmap", 11, 91, ""},
    {"brk", 12, 45, ""},
    {"rt_sigaction", 13, 174, ""},
    {"rt_sigprocmask", 14, 175, ""},
    {"pread64", 17, 180, "f"},
    {"pwrite64", 18, 181, "f"},
    {"readv", 19, 145, "f"},
    {"writev", 20, 146, "f"},
    {"access", 21, 33, "p"},
    {"sched_yield", 24, 158, ""},
    {"madvise", 28, 219, ""},
    {"dup", 32, 41, "f"},
    {"getpid", 39, 20, ""},
    {"kill", 62, 37, ""},
    {"fcntl", 72, 221, "f"},
    {"fsync", 74, 118, "f"},
    {"fdatasync", 75, 148, "f"},
    {"truncate", 76, 193, "p"},
    {"ftruncate", 77, 194, "f"},
    {"rename", 82, 38, "pp"},
    {"mkdir", 83, 39, "p"},
    {"rmdir", 84, 40, "p"},
    {"link", 86, 9, "pp"},
    {"unlink", 87, 10, "p"},
    {"symlink", 88, 83, "-p"},
    {"readlink", 89, 85, "p"},
    {"chmod", 90, 15, "p"},
    {"fchmod", 91, 94, "f"},
    {"chown", 92, 212, "p"},
    {"fchown", 93, 207, "f"},
    {"getuid", 102, 199, ""},
    {"setxattr", 188, 226, "p"},
    {"fsetxattr", 190, 228, "f"},
    {"getxattr", 191, 229, "p"},
    {"fgetxattr", 193, 231, "f"},
    {"flistxattr", 196, 234, "f"},
    {"fremovexattr", 199, 237, "f"},
    {"futex", 202, 240, ""},
    {"getdents64", 217, 220, "f"},
    {"clock_gettime", 228, 403, ""},
    {"openat", 257, 295, "-p"},
    {"mkdirat", 258, 296, "-p"},
    {"fchownat", 260, 298, "-p"},
    {"newfstatat", 262, 300, "fp"},
    {"unlinkat", 263, 301, "-p"},
    {"renameat", 264, 302, "-p-p"},
    {"linkat", 265, 303, "-p-p"},
    {"readlinkat", 267, 305, "-p"},
    {"fchmodat", 268, 306, "-p"},
    {"faccessat", 269, 307, "-p"},
    {"renameat2", 316, 353, "-p-p"},
    {"getrandom", 318, 355, ""},
    {"statx", 332, 383, "fp"},
    {"faccessat2", 439, 439, "-p"},
};

}  // namespace

const CallRow* findCall(WordSize size, int number) {
  for (const CallRow& row : kCalls) {
    if ((size == WordSize::k64 ? row.number64 : row.number32) == number) return &row;
  }
  return nullptr;
}

}  // namespace crash
