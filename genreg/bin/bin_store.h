// SPDX-License-Identifier: Apache-2.0
// The binary store: a registry of length-framed records.
//
// The file is a sequence of frames, each a 4-byte length and that many bytes; docs/frame-format.md
// tells the layout. Without feature 0x4 a frame holds the caller's record as it lies in memory;
// with it, the packed form that the format's slots make and undo.
//
// Every update copies the registry frame by frame into the temporary copy, with the change made on
// the way, and replaces the registry only when the copy has been read back and compared.
#pragma once

#include <cstdio>

#include "genreg/registry.h"

// What a packed format can tell of a stored image without unpacking it. Bits that are not set mean
// that only unpacking can tell.
enum GenRegImageFinding : unsigned int {
  kGenRegImageWhole = 0x1,    // it ends within its frame, and unpackRecord would take it
  kGenRegImageStable = 0x2,   // unpacked and packed again it would have the same bytes
  kGenRegImageDiffers = 0x4,  // matchRecord would find that it does not agree with the key
  kGenRegImageAgrees = 0x8    // matchRecord would find that it agrees
};

// A packed format's way round unpacking, for records that a lookup passes over or an update only
// carries along. It must say what the format's slots would: it is used only while the object still
// has the slots named here, so whoever replaces one of them need not know of it.
struct GenRegImageSlots {
  GenRegBase::MatchRecordSlot matchRecord;
  GenRegFile::GetMaxRecordSizeSlot getMaxRecordSize;
  int (*packRecord)(void** record, void* previous);
  int (*unpackRecord)(void** packed);
  int (*getPackedRecordSize)(void* packed, unsigned long* size);
  // GenRegImageFinding bits of the image of `length` bytes, of which at most those in `wanted`
  // need to be found out. Agreement is with `key` on the fields in `mask`; key may be null when it
  // is not wanted.
  unsigned int (*examine)(unsigned int wanted, const void* image, unsigned long length,
                          unsigned long long mask, const void* key);
  // Unpacks a whole image into `record`, getMaxRecordSize bytes that lie elsewhere.
  void (*unpackTo)(const void* image, void* record);
};

class VRXGENREG_API GenRegBin : public GenRegFile {
 public:
  // Lays the record that *record points to out in its packed form, over the same buffer, which must
  // hold the larger of the two. `previous` is the packed image being replaced, or null.
  using PackRecordSlot = int (*)(void** record, void* previous);
  // Turns the packed image that *packed points to back into the caller's form, over the same
  // buffer.
  using UnpackRecordSlot = int (*)(void** packed);
  // The length in bytes of a packed image.
  using GetPackedRecordSizeSlot = int (*)(void* packed, unsigned long* size);

  GenRegBin();
  ~GenRegBin();

  // 0 or the code of the first empty slot: validateRecord 0x9000021B, getMaxRecordSize 0x9000021D
  // and, with feature 0x4, packRecord 0x90000223, unpackRecord 0x90000222.
  [[nodiscard]] int CheckFuncPtrs();

  // Reads the frame at the stream's position into *buffer, a block from ossMemAlloc of at least
  // GetMaxRecordSize bytes, which may be replaced by a larger one: use and free the pointer as it
  // stands after the call. *length receives the length field on success and on every failure but an
  // unreadable field. 0x900001BE at the end of the file; 0x900001D6, 0x900001D7 stream errors;
  // 0x900001B3 the frame runs past the end of the file (a cut length field included); 0x90000219,
  // 0x9000021A memory, *buffer is then unchanged; 0x9000000C null argument. The stream's position
  // is not restored after a failure.
  [[nodiscard]] int ReadRecord(FILE* stream, void** buffer, unsigned long* length);

  // Writes one frame for `record`, which with feature 0x4 is already packed, at the stream's
  // position. 0x9000021F, 0x9000021E empty size slot; 0x900001E5, 0x900001E6 length below 3 or
  // above 0x100000, nothing written; 0x900001D4, 0x900001D5 the stream refuses; 0x9000000C null
  // argument.
  [[nodiscard]] int WriteRecord(FILE* stream, void* record);

  // The first record that agrees with `key` on the fields in `mask`. `result` receives
  // GetMaxRecordSize bytes: the record; all zero when none matches (0x900001F6); on other failures
  // it is untouched, or holds the record when only clean-up failed. 0x90000513 no such file;
  // 0x900001C5 cannot be opened (a scan is open and feature 0x10 is clear among the reasons);
  // 0x900001FC bad key; 0x900001CD damaged frame; 0x90000254 damaged packed record; 0x900001C6,
  // 0x900001EE clean-up; 0x9000021B, 0x9000021C, 0x9000021D, 0x90000222 empty slot; 0x900001E5,
  // 0x900001E6, 0x900001E7 record size, memory.
  [[nodiscard]] int Get(unsigned long long mask, void* key, void* result);

  // The next such record of the open scan; 0x900001BE when there is none (`result` is cleared on
  // the call that runs off the end, untouched on later ones), 0x9000025A without a scan; otherwise
  // as Get, but that a packed record that cannot be unpacked (0x90000254, 0x90000222) clears
  // `result`. The scan stays open, behind the frame that was read last.
  [[nodiscard]] int GetNext(unsigned long long mask, void* key, void* result);

  // Appends `record`. Without feature 0x2, 0x900001F1 when a record agrees with it on `mask`.
  // Any other failure leaves the registry as it was, unless the log has 0x900003F6 as its inner
  // code (committed, but the backup stays): 0x9000027D, 0x900001FC, 0x900001E5,
  // 0x900001E6, 0x900001E7 before anything is touched; 0x900001BC lock; 0x900001C5 open;
  // 0x900001CB, 0x900001CD, 0x90000254, 0x9000021C, 0x90000255, 0x900001D0, 0x900001DF, 0x900001D2
  // while copying; 0x900001C6, 0x900001FB at the end. 0x900001BD, 0x900001EE, 0x900003F2 report
  // clean-up after the update stands.
  [[nodiscard]] int Add(unsigned long long mask, void* record);

  // Replaces the record that agrees with `key` on `mask` by `newRecord`, in its place; with feature
  // 0x2 every such record. 0x900001F6 none; 0x900001F7 it holds the new values already; 0x900001F8
  // several; 0x900001D3 the abandoned copy cannot be deleted; otherwise as Add.
  [[nodiscard]] int Change(unsigned long long mask, void* key, void* newRecord);

  // Deletes the record that agrees with `key` on `mask`; with feature 0x2 every such record.
  // Statuses as Change, without 0x900001F7.
  [[nodiscard]] int Delete(unsigned long long mask, void* key);

  // Compares the registry with its temporary copy, frame by frame, and commits the copy when they
  // differ exactly as the update of `mode` (2, 4 or 8) intended: (4, mask, added record, null),
  // (2, mask, new record, key), (8, mask, null, key). Called by the updates while they hold the
  // lock. 0x90000274 to 0x9000027E, 0x900001FD, 0x90000200 say what differs; the registry is then
  // as it was. 0x9000027D, 0x900001E5, 0x900001E6, 0x900001E8, 0x900001E9, 0x900001C5, 0x900001CD,
  // 0x90000254, 0x900001C6, 0x900001F0, 0x900001EF.
  [[nodiscard]] int Verify(unsigned int mode, unsigned long long mask, void* newRecord, void* key);

  // Filled by the format's constructor; needed only with feature 0x4.
  PackRecordSlot packRecord = nullptr;
  UnpackRecordSlot unpackRecord = nullptr;
  GetPackedRecordSizeSlot getPackedRecordSize = nullptr;
  // Optional; a format's constant.
  const GenRegImageSlots* imageSlots = nullptr;
};
