// SPDX-License-Identifier: Apache-2.0
// The binary variable store: fixed records of a short name, a number and a short comment, each
// framed as it lies in memory. docs/frame-format.md tells the layout of the file.
#pragma once

#include <cstddef>
#include <cstdint>

#include "genreg/bin/bin_store.h"

// Bits of the field mask. The comment has none: it is never compared.
constexpr unsigned long long kBinVarValVariable = 0x1;
constexpr unsigned long long kBinVarValValue = 0x2;

// One record. Strings are NUL-terminated within their arrays; what stands behind the terminator is
// stored as it is. The number is in host byte order.
struct GenRegBinVarValRecord {
  char variable[16];
  std::int32_t value;
  char comment[16];
};

static_assert(sizeof(GenRegBinVarValRecord) == 36);
static_assert(offsetof(GenRegBinVarValRecord, variable) == 0);
static_assert(offsetof(GenRegBinVarValRecord, value) == 16);
static_assert(offsetof(GenRegBinVarValRecord, comment) == 20);

// Several records may have one name (feature 0x2): Add does not look for it, Change and Delete act
// on every match. Updates are verified before they are committed (feature 0x1). A change of nothing
// but the comment is no change: 0x900001F7.
class VRXGENREG_API GenRegBinVarVal : public GenRegBin {
 public:
  // *status receives 0, or 0x900001F3 (null or empty path), 0x900001F4 (longer than 1017 bytes),
  // 0x900001B8, 0x900001B9 (no base name, directory): the object must then not be used.
  GenRegBinVarVal(char* path, unsigned int* status);
  ~GenRegBinVarVal();

  // The slots.

  // 1 when the records agree in the fields of the mask; 0 also for a null record, which is logged.
  // A name that fills its array is compared to its 16 bytes.
  static int MatchRecord(unsigned long long mask, void* stored, void* given);
  // 0: every record is acceptable.
  static int ValidateRecord(unsigned long long mask, void* record);
  // Dumps the record to standard output; 0x900001F3 for a null record.
  static int PrintRecord(void* record);
  // Both give 36.
  static int GetRecordSize(void* record, unsigned long* size);
  static int GetMaxRecordSize(unsigned long* size);
};
