// SPDX-License-Identifier: Apache-2.0
// The binary variable format: building the object, comparing and dumping one record.
#include "genreg/formats/bin_var_val.h"

#include <cstdio>
#include <cstring>

#include "genreg/internal/operation.h"

using namespace genreg;

namespace {

constexpr int kTextSize = sizeof GenRegBinVarValRecord::variable;
static_assert(sizeof GenRegBinVarValRecord::comment == sizeof GenRegBinVarValRecord::variable);

const GenRegBinVarValRecord& recordAt(const void* record) {
  return *static_cast<const GenRegBinVarValRecord*>(record);
}

}  // namespace

GenRegBinVarVal::GenRegBinVarVal(char* path, unsigned int* status) {
  Operation op(kGenRegBinVarValConstruct, path);
  matchRecord = &GenRegBinVarVal::MatchRecord;
  validateRecord = &GenRegBinVarVal::ValidateRecord;
  printRecord = &GenRegBinVarVal::PrintRecord;
  getRecordSize = &GenRegBinVarVal::GetRecordSize;
  getMaxRecordSize = &GenRegBinVarVal::GetMaxRecordSize;
  const GenRegStatus rc = op.conclude(setRegistryPaths(path));  // logged where it was found
  if (status != nullptr) *status = rc;
  if (op.failed()) return;
  (void)setFeature(kGenRegDuplicates);  // both are in range
  (void)setFeature(kGenRegVerifyCommit);
}

GenRegBinVarVal::~GenRegBinVarVal() = default;

int GenRegBinVarVal::MatchRecord(unsigned long long mask, void* stored, void* given) {
  Operation op(kGenRegBinVarValMatchRecord);
  if (stored == nullptr || given == nullptr) {
    op.fail(1, status::null_argument);
    return 0;
  }
  const GenRegBinVarValRecord& a = recordAt(stored);
  const GenRegBinVarValRecord& b = recordAt(given);
  if ((mask & kBinVarValVariable) != 0 && std::strncmp(a.variable, b.variable, kTextSize) != 0) {
    return 0;
  }
  return (mask & kBinVarValValue) == 0 || a.value == b.value ? 1 : 0;
}

int GenRegBinVarVal::ValidateRecord(unsigned long long, void*) {
  return 0;
}

int GenRegBinVarVal::PrintRecord(void* record) {
  Operation op(kGenRegBinVarValPrintRecord);
  if (record == nullptr) {
    op.fail(1, status::null_argument);
    return op.result();
  }
  const GenRegBinVarValRecord& given = recordAt(record);
  std::printf("   Variable = |%.*s|\n", kTextSize, given.variable);
  std::printf("   Value    = %i\n", given.value);
  std::printf("   Comment  = |%.*s|\n", kTextSize, given.comment);
  return op.result();
}

int GenRegBinVarVal::GetRecordSize(void*, unsigned long* size) {
  return GetMaxRecordSize(size);
}

int GenRegBinVarVal::GetMaxRecordSize(unsigned long* size) {
  *size = sizeof(GenRegBinVarValRecord);
  return 0;
}
