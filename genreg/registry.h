// SPDX-License-Identifier: Apache-2.0
// The registry object: what every registry has in common, whatever its records look like.
//
// A registry is one file of records. It is used through one object of the class chain
//
//     GenRegBase -> GenRegFile -> a store (GenRegBin: binary frames, GenRegText: lines)
//                              -> a record format (GlobalReg, GenRegVarVal, ...)
//
// There are no virtual functions. The format's constructor assigns its own static functions to the
// object's slots, sets the five paths and the feature bits; the store calls through the slots.
//
// Calling sequence
// ----------------
// One lookup or update is one call of the store (Get, Add, Change, Delete), which locks, opens,
// closes and unlocks by itself. Reading record by record takes three steps:
//
//     registry.OpenScan();                        // state 0x40: shared lock on the registry file
//     while (registry.GetNext(mask, &key, &record) == 0) use(record);
//     registry.CloseScan();
//
// Lock/UnLock and OpenReg/CloseReg are the steps that the stores are made of. A program calls them
// itself only to hold the lock over several of its own steps.
//
// Ownership: the caller owns the object and the records; the object owns its streams and its lock
// file handle and releases them in its destructor. One object is used by one thread at a time.
// Objects share nothing, so two objects of one process contend for a lock as two processes do.
//
// Not here: the records' formats, and the bodies, which stand in registry_*.cpp, one duty a file.
#pragma once

#include <cstdio>

#include "genreg/export.h"
#include "genreg/status.h"
#include "platform/osse/file_handle.h"

namespace genreg {
class ScanReader;
}

// Feature bits: behaviour that a format's constructor chooses with setFeature.
enum GenRegFeature : unsigned int {
  kGenRegVerifyCommit = 0x1,     // an update is committed only by the store's Verify
  kGenRegDuplicates = 0x2,       // several records may match; Add looks for no duplicate
  kGenRegPacked = 0x4,           // binary store: records are packed and unpacked
  kGenRegBigEndian = 0x8,        // binary store: frame lengths are big-endian on disk
  kGenRegKeepPosition = 0x10,    // Get borrows an open scan and gives its position back
  kGenRegChangeLog = 0x20,       // successful updates call the Log slot
  kGenRegNotify = 0x40,          // successful updates call the Notify slot
  kGenRegJoinLines = 0x80,       // text store: join backslash-newline continuations
  kGenRegChecksumHeader = 0x100  // binary store: the file begins with a 32-byte checksum header
};

// State bits of an object. The word starts at 1 and the destructor puts it back to 1.
enum GenRegState : unsigned int {
  kGenRegStateInitial = 0x1,
  kGenRegStateLocked = 0x10,     // the lock file is held
  kGenRegStateScanning = 0x40,   // a scan is open
  kGenRegStateScanEnd = 0x80,    // the open scan has reached the end of the file
  kGenRegStatePathsSet = 0x100,  // the five paths are set; Lock requires it
};

// Modes of OpenReg and CloseReg. The update modes are also the action codes given to the Log slot
// and to a store's Verify.
enum GenRegMode : unsigned int {
  kGenRegRead = 1,    // open for reading; as a close mode: abandon the temporary copy
  kGenRegChange = 2,  // change records
  kGenRegAdd = 4,     // add a record; creates a missing registry and its directory
  kGenRegDelete = 8,  // delete records
  kGenRegVerify = 16  // read the temporary copy back; as a close mode: commit it
};

// Flags of Lock. Exclusive wins over shared, not waiting over waiting.
enum GenRegLockFlag : unsigned int {
  kGenRegLockExclusive = 0x1,
  kGenRegLockShared = 0x2,
  kGenRegLockWait = 0x4,
  kGenRegLockNoWait = 0x8,
  kGenRegLockCreateDirectory = 0x10
};

// Which store an object is.
enum GenRegStoreType : unsigned int { kGenRegBinaryStore = 1, kGenRegTextStore = 2 };

// Size in bytes, terminator included, of each path that an object holds.
constexpr unsigned long kGenRegPathSize = 1024;

// The longest path, in bytes without terminator, for which all companion names fit.
constexpr unsigned long kGenRegMaxPathLength = 1017;

// Feature bits, state and the slots that every store needs.
//
// Slots: static functions of the format, taking no object. Records are the format's plain
// structures, passed untyped. A field mask is 64 bits whose meaning each format defines. A slot
// that returns a status returns 0 or a status code in an `int`.
class VRXGENREG_API GenRegBase {
 public:
  // 1 when the record read from the file and the given record agree on every field in the mask,
  // else 0.
  using MatchRecordSlot = int (*)(unsigned long long mask, void* stored, void* given);
  // 0 when every selected field of the record is acceptable.
  using ValidateRecordSlot = int (*)(unsigned long long mask, void* record);
  // Prints the record's fields to standard output for diagnosis.
  using PrintRecordSlot = int (*)(void* record);
  // Writes a change-log entry: the registry object, the action (a GenRegMode), one or two records.
  using LogSlot = int (*)(void* registry, unsigned int action, void* record, void* second);
  // Tells whoever listens that the registry has changed.
  using NotifySlot = int (*)();

  GenRegBase();
  ~GenRegBase();
  GenRegBase(const GenRegBase&) = delete;
  GenRegBase& operator=(const GenRegBase&) = delete;

  // ORs `bit` into the feature bits. 0x90000202 and no change when it is 0 or above 256.
  [[nodiscard]] GenRegStatus setFeature(unsigned int bit);
  // Clears the bits of `bit`. 0x90000202 when it is 0 or above 256, 0x90000203 when none of its
  // bits is set; no change in either case.
  [[nodiscard]] GenRegStatus unsetFeature(unsigned int bit);
  // True when any bit of `bit` is set. No range check.
  bool isFeatureSet(unsigned int bit);

  // The number written as the caller into change-log entries: a function identifier, 0 for none.
  void SetChangeLoggingFuncID(unsigned int id);
  // The stored identifier while feature 0x20 is set, else 0.
  unsigned int GetChangeLoggingFuncID();

  // The slots and words below are filled by the constructors of stores and formats.
  MatchRecordSlot matchRecord = nullptr;
  ValidateRecordSlot validateRecord = nullptr;
  PrintRecordSlot printRecord = nullptr;
  LogSlot log = nullptr;
  NotifySlot notify = nullptr;
  unsigned int state = kGenRegStateInitial;
  unsigned int features = 0;
  unsigned int storeType = 0;
  unsigned int changeLoggingFuncID = 0;
};

// The tie to one file on disk: five paths, the lock file, the open streams.
//
// Beside the registry "/dir/name" stand, while needed: the temporary copy "/dir/name.tmp", the
// corrupt copy "/dir/name.cor" (a temporary copy that a crash left, set aside), the lock file
// "/dir/.name.lock" (never deleted) and the backup "/dir/.name.bkp". docs/update-protocol.md tells
// what is on disk after each step of an update.
class VRXGENREG_API GenRegFile : public GenRegBase {
 public:
  // The size in bytes of this record in the caller's memory form.
  using GetRecordSizeSlot = int (*)(void* record, unsigned long* size);
  // The size in bytes of the largest record; 3 to 0x100000.
  using GetMaxRecordSizeSlot = int (*)(unsigned long* size);

  GenRegFile();
  // Drops the lock, closes both streams, puts the state word back to 1. Failures are only logged.
  ~GenRegFile();

  // Copy one path into `buffer` of `size` bytes. 0x90000008 when it does not fit (the buffer is
  // then set to the empty string; nothing is written when size is 0), 0x9000000C for a null buffer.
  [[nodiscard]] GenRegStatus getRegistryPath(char* buffer, unsigned long size);
  [[nodiscard]] GenRegStatus getRegistryTmpPath(char* buffer, unsigned long size);
  [[nodiscard]] GenRegStatus getRegistryBackupPath(char* buffer, unsigned long size);
  [[nodiscard]] GenRegStatus getRegistryLockPath(char* buffer, unsigned long size);
  [[nodiscard]] GenRegStatus getRegistryCorruptTmpPath(char* buffer, unsigned long size);

  // Follows the registry path when it is a symbolic link (at most 40 hops) and forms all five paths
  // anew beside the real file. Leaves them as they are when the path is no link, when the chain is
  // longer or cyclic, when any name would be cut, or while the lock is held. Always returns 0.
  GenRegStatus GetAndSetRealRegistryPaths();

  // Takes the lock on the lock file, creating it when missing (GenRegLockFlag bits; the second
  // argument is ignored). Locks do not nest.
  // 0x900001F2 neither exclusive nor shared, or neither wait mode; 0x900001BA no paths; 0x900001BB
  // held by this object; 0x90000512 directory cannot be created; 0x900001DA lock file cannot be
  // opened; 0x900001C4 held elsewhere, without waiting; other codes of the platform layer as they
  // are, 0x90000014 among them when a process-wide limit on waiting has run out.
  [[nodiscard]] GenRegStatus Lock(unsigned int flags, unsigned int ignored);
  // Releases the lock and closes the lock file. 0x900003F7 cannot be released (still held),
  // 0x900001DC released but not closed.
  [[nodiscard]] GenRegStatus UnLock();

  // Opens the registry stream and, for the modes 2, 4, 8 and 16, the temporary stream. After a
  // failure, streams opened by the call stay open until CloseReg or the destructor.
  // 0x9000025B a scan is open; 0x90000512 directory cannot be created (mode 4); 0x90000513 no such
  // file (other modes); 0x900001BF, 0x90000272 registry cannot be opened, locked (0x900001BF in
  // mode 4 also: the directories that lead to an empty registry cannot be synced);
  // 0x900001EB, 0x900001CD, 0x900005A5, 0x900005A4 checksum header; 0x90000225, 0x90000224
  // leftovers cannot be set aside; 0x90000256, 0x900001C0, 0x90000257 temporary copy; 0x9000000C no
  // such mode.
  [[nodiscard]] GenRegStatus OpenReg(unsigned int mode);
  // Closes both streams and, as mode and features say, commits the temporary copy: with feature 0x1
  // in mode 16 only; without it in modes 2, 4 and 8, but for an Add that appended in place.
  // 0x9000025B a scan is open; 0x900001C7 registry, 0x900001C8 temporary copy cannot be closed;
  // 0x900001EB, 0x900005A5, 0x900001D0 checksum header; 0x900001E1, 0x900001E2 not committed, the
  // registry holds its old contents; 0x900003F6 committed, the backup stays.
  [[nodiscard]] GenRegStatus CloseReg(unsigned int mode);
  // Reserved: do nothing and return 0.
  GenRegStatus Load(unsigned int);
  GenRegStatus UnLoad(unsigned int);

  // Opens the registry for GetNext under a shared lock, creating a missing file (0644 or the
  // registry creation mode, less the umask). A scan already open is closed first.
  // 0x900001BF cannot be opened, 0x90000272 cannot be locked, 0x900001CD, 0x900001EB its checksum
  // header cannot be skipped; the object is then without a scan.
  [[nodiscard]] GenRegStatus OpenScan();
  // Ends the scan; 0 also without one. 0x900001C7 when the stream reports an error (it is closed
  // all the same).
  GenRegStatus CloseScan();
  // Back to the first record. 0x900001E0 without a stream or when it cannot be positioned.
  [[nodiscard]] GenRegStatus Rewind();
  // The scan's position, an opaque number, and the way back to it. 0x9000025A no scan; 0x9000000C
  // null pointer; 0x90000287, 0x90000288 the stream refuses.
  [[nodiscard]] GenRegStatus getRegFilePosition(long long* position);
  [[nodiscard]] GenRegStatus setRegFilePosition(long long* position);

  // The slots and words below are filled by the constructors and by the operations above; programs
  // leave them alone, but for the two creation modes.
  GetRecordSizeSlot getRecordSize = nullptr;
  GetMaxRecordSizeSlot getMaxRecordSize = nullptr;
  // Texts; the bytes behind their terminators are never read, nor cleared by the constructor.
  char registryPath[kGenRegPathSize];
  char backupPath[kGenRegPathSize];
  char temporaryPath[kGenRegPathSize];
  char corruptPath[kGenRegPathSize];
  char lockPath[kGenRegPathSize];
  OSSHFile lockFile;
  OSSFileOpenParams lockFileOpen = {kOssFileStructureVersion, nullptr, 0, 0, 0, 0, 0};
  FILE* registryStream = nullptr;
  FILE* temporaryStream = nullptr;
  unsigned int registryCreationMode = 0;  // octal permission bits; 0 means 0644
  unsigned int lockCreationMode = 0;      // octal permission bits; 0 means 0644
  unsigned int copyLacksHeader = 1;       // feature 0x100: 1 until this object has stamped a header
  genreg::ScanReader* scanReader = nullptr;  // what an open scan has read ahead, once it has
  void* registryBuffer = nullptr;            // buffers of streams written to, from ossMemAlloc
  void* temporaryBuffer = nullptr;
  unsigned long long registrySize = 0;   // bytes in the file behind the stream when it was opened;
  unsigned long long temporarySize = 0;  // files are not written while they are read
  unsigned long long firstRecord = 0;    // offset of the first record in the registry stream

 protected:
  // Forms the five paths from `path` and sets state bit 0x100.
  // 0x900001F3 null or empty; 0x900001F4 longer than 1017 bytes; 0x900001B8, 0x900001B9 no base
  // name or directory. All paths and the state stay as they were on a failure.
  [[nodiscard]] GenRegStatus setRegistryPaths(const char* path);
};
