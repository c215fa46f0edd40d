// SPDX-License-Identifier: Apache-2.0
// What the duties of GenRegFile share: the registry's directory and its two streams.
#pragma once

#include "genreg/internal/operation.h"
#include "genreg/registry.h"

namespace genreg {

// Creation bits of a registry or lock file for which the object names none.
constexpr unsigned kDefaultFileMode = 0644;

// What of a file's mode its permissions are.
constexpr unsigned kPermissionBits = 07777;

// The modes that write a temporary copy.
inline bool isUpdate(unsigned mode) {
  return mode == kGenRegChange || mode == kGenRegAdd || mode == kGenRegDelete;
}

// Whether Add appends to the registry itself: without verification and with duplicates allowed
// there is nothing that a copy would be good for, except that a checksum header has to be stamped
// anew.
bool appendsInPlace(const GenRegFile& registry);

// Whether the path leads to anything.
bool fileExists(const char* path);

// Makes sure that the directory of `path` exists, creating it (0755) when missing. Fails `op` with
// 0x90000512 or with the code of the directory's name.
void ensureDirectoryOf(Operation& op, const char* path);

// Waits until `path`'s own name, that of its folder, and those of the folders above it on its file
// system are on disk, as the sync policy has it. They may have been made a moment ago, here or by
// somebody else, and what stands in a folder is lost with the folder's name. Folders that the
// process may not read are left out. Fails `op` with 0x900001BF.
void syncNamesAbove(Operation& op, const char* path);

// How the registry stream is opened and locked.
struct StreamRequest {
  unsigned lockType = kOssLockShared;
  unsigned access = kOssAccessRead;
  unsigned options = kOssOpenExisting;
  // Readers, who may be at a link, look where it leads before they follow it. Links are rare: a
  // file that is opened at once saves the looking.
  bool resolvesLink = false;
  // Mode 4 on a missing file: when a reader has created and locked it in between, an exclusive lock
  // would wait for that reader; a copying update is as well served by the shared lock.
  bool sharedWhenBusy = false;
};

// What OpenReg(kGenRegRead) asks for.
inline StreamRequest readRequest() {
  StreamRequest request;
  request.options |= kOssOpenNoFollow;
  request.resolvesLink = true;
  return request;
}

// Opens, locks and measures the registry file. Fails `op` with 0x900001BF or 0x90000272 (0x90000513
// when there is none and it is not to be created).
void openRegistryFile(Operation& op, GenRegFile& registry, const StreamRequest& request,
                      OSSHFile& file);

// Does that and wraps the file as the registry stream, positioned at its start (at its
// end with append access). Fails `op` likewise; no stream is then open.
void openRegistryStream(Operation& op, GenRegFile& registry, const StreamRequest& request);

// What the temporary copy is opened for.
enum class CopyUse { kCreate, kReadBack, kTruncate };

// Opens the temporary copy as the temporary stream: created exclusively with mode 0600, opened for
// reading, or opened for reading and writing and emptied; never through a link. Returns its
// permission bits. Fails `op` with 0x900001C0; no stream is then open.
unsigned openTemporaryStream(Operation& op, GenRegFile& registry, CopyUse use);

// Close one stream and release its buffer; nothing when it is not open. They return 0 or the errno
// of the stream; the stream is gone in either case.
int closeRegistryStream(GenRegFile& registry);
int closeTemporaryStream(GenRegFile& registry);

}  // namespace genreg
