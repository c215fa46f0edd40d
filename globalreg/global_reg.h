// SPDX-License-Identifier: Apache-2.0
// The global registry: the host's file of installed copies, instances and variables.
//
// GlobalReg is a binary registry whose records (globalreg/record.h) are packed, whose updates are
// verified before they are committed, written to the change log and signalled to the fault monitor
// (features 0x1, 0x4, 0x20, 0x40). Constructing one finds the file:
//
//   1. the environment variable VRX_GLOBAL_REG_PATHNAME, even when it is empty (ignored in a
//      process that runs set-user-id or set-group-id);
//   2. else, unless host-wide only is asked for, VRXINSTANCE names an instance owner whose
//      ~/sqllib/adm/vrxperm is set-user-id root: ~/sqllib/global.reg;
//   3. else /var/vrx/global.reg.
//
//     GlobalReg registry;
//     GlobalRegRecord key{}, found{};
//     key.RecordType = kGlobalRegInstance;
//     if (registry.Get(0, &key, &found) == 0) puts(found.Instance.InstanceName);
//
// A path of which a companion name would be cut leaves the object without paths: updates then
// return 0x900001BC. Add identifies records by the caller's mask: kInstanceKey, kServiceKey,
// kVariableKey.
#pragma once

#include "genreg/bin/bin_store.h"
#include "globalreg/record.h"

// The change log: the file to which each update of a global registry appends a line.
constexpr char kGlobalRegChangeLog[] = "/tmp/globalreg.debug";

class VRXGENREG_API GlobalReg : public GenRegBin {
 public:
  // The registry of this process's environment; `hostWideOnly` skips step 2.
  explicit GlobalReg(bool hostWideOnly);
  GlobalReg();  // as GlobalReg(false)
  ~GlobalReg();

  // Chooses the file, assigns slots, features and members. The constructors call it. Calling it
  // again chooses anew; the object must then have no scan, lock or update open.
  void init(bool hostWideOnly);

  // The slots. Records are GlobalRegRecord, at any address; pointers are never null. Statuses are
  // returned in an int.

  // 1 when `candidate` agrees with `key` in type (a key of type 0 takes every type) and in every
  // known field in `mask`: strings byte by byte, numbers by value, the flag by its low byte, which
  // alone is stored. Field masks are not looked at. A candidate of another type than the three, and
  // a mask of 0, always match.
  static int MatchRecord(unsigned long long mask, void* candidate, void* key);
  // 0 when `required` is 0, or when every present field is acceptable and every field in `required`
  // is present; else the first rule broken (0x90000226 to 0x9000024E, 0x9000050E to 0x90000511):
  // content rules in field order, then presence rules. Clears MissingFieldMask unless `required` is
  // 0. A record of type 3 has no rules.
  static int ValidateRecord(unsigned long long required, void* record);
  // Dumps the record to standard output, whatever fields are present; 0. A service record shows its
  // header only.
  static int PrintRecord(void* record);
  // Both give 2600; 0.
  static int GetRecordSize(void* record, unsigned long* size);
  static int GetMaxRecordSize(unsigned long* size);
  // Packs *record over itself: the buffer holds at least 2600 bytes and the packed image, which is
  // up to 2620 bytes and the entries of unknown fields carried over from `previous`. Only an image
  // of the same type is carried over from. Strings are stored up to their width less one, so that
  // they read back terminated. Bits that are neither known nor carried are not stored. 0x9000024F
  // no memory (images above 4096 bytes only), 0x90000251 the record changed while it was packed:
  // the buffer is unchanged. 0x90000250 memory not released: it holds the image.
  static int PackRecord(void** record, void* previous);
  // Unpacks *packed over itself: the buffer holds at least 2600 bytes and the image, which must end
  // within it; GetPackedRecordSize tells where it ends. An entry longer than its field runs on into
  // the next fields, up to the checksum. FieldMask keeps the bits of unknown fields,
  // MissingFieldMask gains those of absent known ones. 0x900001B4 unknown type: the buffer is
  // unchanged. Nothing else can fail here: no memory is taken (0x90000252, 0x90000253), every known
  // field has a layout (0x900001B5), and the store, which knows the frame, reports an image that
  // does not end in it (0x900001B6).
  static int UnpackRecord(void** packed);
  // The length of the packed image: 24 bytes and its entries, of unknown fields too; 0. An image
  // that lies about its lengths is walked safely when 65664 zero bytes follow what is there of it.
  static int GetPackedRecordSize(void* packed, unsigned long* size);
  // Appends one line to kGlobalRegChangeLog for the change that `registry`, a GlobalReg, makes
  // (action 4, 2 or 8); `second` is written for action 2 only, and may be null. Texts stand in the
  // line as they are. The log is created with mode 0666 and written to only when it is a regular
  // file with one name. Always 0: a log that cannot be written is a diagnostic entry, never a
  // failed update.
  static int Log(void* registry, unsigned int action, void* record, void* second);
  // Sends SIGHUP to the process that holds the lock on /var/vrx/.fmcd.lock; 0 when nobody does.
  // 0x900003F3 when the monitor could not be asked or signalled. Threads may call it at any time.
  static int Notify();

  // The calling program's command line, for the change log's CL field; callers may set both. The
  // strings are the caller's and must outlive the updates.
  int CallerArgCount = 0;
  char** CallerArgs = nullptr;
  // The service filter of an instance list; the caller's string.
  const char* ListService = nullptr;
};

// Writes the path of the global registry, as the constructors choose it, to `buffer`. *length is
// the buffer's size in bytes on entry and receives the size needed, terminator included, on success
// and with 0x90000258 (buffer too small, untouched; 0xFFFF stands for more than 65535). 0x90000259
// null buffer, 0x9000000C null length, or the code of the home directory's lookup; both outputs are
// then untouched.
[[nodiscard]] VRXGENREG_API GenRegStatus GetGlobalRegPathname(char* buffer, unsigned short* length);

// Does what GlobalReg::Notify does: 0 also when no monitor runs; the mapped system error when the
// lock cannot be asked for; 0x900003F4 when the signal cannot be sent.
[[nodiscard]] VRXGENREG_API GenRegStatus fmcNotify();
