// SPDX-License-Identifier: Apache-2.0
// layouts: the sizes and offsets of the public structures, as a consumer's compiler sees them in
// 32-bit and 64-bit builds. It proves its facts by compiling; it is run for the count alone. The
// record structures assert theirs member by member in their own headers, which are compiled here
// too.
#include <vrxgenreg.h>

#include <cstddef>
#include <cstdio>

namespace {

constexpr unsigned long kPointer = sizeof(void*);
constexpr bool kNarrow = kPointer == 4;

// Records that files hold, or that callers keep on their stack by a size they know.
static_assert(sizeof(GlobalRegRecord) == 2600);
static_assert(sizeof(GenRegBinVarValRecord) == 36);
static_assert(sizeof(GenRegVarValRecord) == (kNarrow ? 2064 : 2080));
static_assert(sizeof(GenRegServicesRecord) == (kNarrow ? 2584 : 3120));
static_assert(sizeof(GenRegInitTabRecord) == (kNarrow ? 2072 : 2096));
static_assert(sizeof(OSSInstanceInfo_t) == 2576);
static_assert(sizeof(OSSServiceInfo_t) == 2404);

// Structures of the platform that are the same in both builds.
static_assert(sizeof(OSSFileInfo) == 56 && alignof(OSSFileInfo) == 8);
static_assert(offsetof(OSSFileInfo, device) == 8);
static_assert(offsetof(OSSFileInfo, inode) == 16);
static_assert(offsetof(OSSFileInfo, modified) == 24);
static_assert(offsetof(OSSFileInfo, modifiedNanoseconds) == 32);
static_assert(offsetof(OSSFileInfo, permissions) == 36);
static_assert(offsetof(OSSFileInfo, owner) == 40);
static_assert(offsetof(OSSFileInfo, group) == 44);
static_assert(offsetof(OSSFileInfo, links) == 48);
static_assert(offsetof(OSSFileInfo, regular) == 52);
static_assert(offsetof(OSSFileInfo, directory) == 53);
static_assert(sizeof(sqleLevelInfo) == 92);
static_assert(offsetof(sqleLevelInfo, buildLevel) == 24);
static_assert(offsetof(sqleLevelInfo, fixpackNumber) == 88);
static_assert(sizeof(OSSFileLockParams) == 12);
static_assert(offsetof(OSSFileLockParams, type) == 4);
static_assert(offsetof(OSSFileLockParams, wait) == 8);

// Structures with pointers.
static_assert(sizeof(OSSFileOpenParams) == (kNarrow ? 28 : 40));
static_assert(offsetof(OSSFileOpenParams, path) == kPointer);
static_assert(offsetof(OSSFileOpenParams, options) == 2 * kPointer);
static_assert(offsetof(OSSFileOpenParams, access) == 2 * kPointer + 4);
static_assert(offsetof(OSSFileOpenParams, reserved1) == 2 * kPointer + 8);
static_assert(offsetof(OSSFileOpenParams, permissions) == 2 * kPointer + 12);
static_assert(offsetof(OSSFileOpenParams, reserved2) == 2 * kPointer + 16);
static_assert(sizeof(OSSLogEntry) == 16 + kPointer);
static_assert(offsetof(OSSLogEntry, probe) == 4);
static_assert(offsetof(OSSLogEntry, code) == 8);
static_assert(offsetof(OSSLogEntry, inner) == 12);
static_assert(offsetof(OSSLogEntry, text) == 16);
static_assert(sizeof(GTraceEvent) == (kNarrow ? 28 : 40));
static_assert(offsetof(GTraceEvent, function) == 4);
static_assert(offsetof(GTraceEvent, probe) == 8);
static_assert(offsetof(GTraceEvent, result) == 12);
static_assert(offsetof(GTraceEvent, thread) == 16);
static_assert(offsetof(GTraceEvent, size) == (kNarrow ? 20 : 24));
static_assert(offsetof(GTraceEvent, data) == (kNarrow ? 24 : 32));
static_assert(sizeof(GenRegImageSlots) == 7 * kPointer);
static_assert(sizeof(OSSFunctionName) == 2 * kPointer);
static_assert(offsetof(OSSFunctionName, name) == kPointer);
static_assert(sizeof(GenRegStatusInfo) == 5 * kPointer);
static_assert(offsetof(GenRegStatusInfo, name) == kPointer);
static_assert(offsetof(GenRegStatusInfo, meaning) == 2 * kPointer);
static_assert(offsetof(GenRegStatusInfo, raisedBy) == 3 * kPointer);
static_assert(offsetof(GenRegStatusInfo, remedy) == 4 * kPointer);

// The one exported variable is a byte, and a handle is a descriptor.
static_assert(sizeof bCompactFormattedLine == 1);
static_assert(sizeof(OSSHFile) == sizeof(int));

}  // namespace

int main() {
  std::printf("the layouts of a %lu-bit build hold\n", 8 * kPointer);
  return 0;
}
