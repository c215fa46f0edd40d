// SPDX-License-Identifier: Apache-2.0
// The binary store, its frames and checksum, and the binary variable format.
#include <cstdio>
#include <memory>

#include "every_name.h"

namespace every_name {

namespace {

namespace status = genreg::status;

class OwnStore : public GenRegBin {};
class OwnVariables : public GenRegBinVarVal {
 public:
  OwnVariables(std::string path, unsigned int* code) : GenRegBinVarVal(path.data(), code) {}
};

GenRegBinVarValRecord variable(const char* name, int value) {
  GenRegBinVarValRecord record{};
  put(record.variable, name);
  record.value = value;
  return record;
}

void callChecksum() {
  HOLDS(sqlzChecksumXOR("\x01\x02\x03\x04\x80", 5) ==
        (sqlzChecksumXOR("\x01\x02\x03\x04", 4) ^ 0xFFFFFF80U));
  signed char bytes[4] = {};
  unsigned int value = 0;
  RETURNS(0, toBigEndianUint32(bytes, 0x01020304));
  HOLDS(bytes[0] == 1 && bytes[3] == 4);
  RETURNS(0, fromBigEndianUint32(bytes, &value));
  HOLDS(value == 0x01020304);
  RETURNS(status::invalid_argument, fromBigEndianUint32(nullptr, &value));
  RETURNS(status::invalid_argument, toBigEndianUint32(nullptr, 0));
}

void callEmptyStores() {
  GenRegBin plain;
  OwnStore derived;
  for (GenRegBin* store : {&plain, static_cast<GenRegBin*>(&derived)}) {
    HOLDS(store->storeType == kGenRegBinaryStore);
    RETURNS(status::no_validate_slot, store->CheckFuncPtrs());
  }
}

void callFrames(GenRegBinVarVal& variables) {
  const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(pathOf("frames").c_str(), "w+"),
                                                   &std::fclose);
  HOLDS(file != nullptr);
  GenRegBinVarValRecord record = variable("LEVEL", -5);
  RETURNS(0, variables.WriteRecord(file.get(), &record));
  std::rewind(file.get());
  void* block = nullptr;
  unsigned long length = 0;
  RETURNS(0, ossMemAlloc(&block, sizeof record, __FILE__, __LINE__));
  RETURNS(0, variables.ReadRecord(file.get(), &block, &length));
  HOLDS(length == sizeof record);
  HOLDS(static_cast<GenRegBinVarValRecord*>(block)->value == -5);
  RETURNS(status::end_of_registry, variables.ReadRecord(file.get(), &block, &length));
  RETURNS(0, ossMemFree(block, __FILE__, __LINE__));
}

void callUpdates(GenRegBinVarVal& variables) {
  GenRegBinVarValRecord old = variable("LEVEL", 1);
  GenRegBinVarValRecord changed = variable("LEVEL", 2);
  GenRegBinVarValRecord found{};
  RETURNS(0, variables.CheckFuncPtrs());
  RETURNS(0, variables.Add(kBinVarValVariable, &old));
  RETURNS(0, variables.Change(kBinVarValVariable, &old, &changed));
  RETURNS(status::unchanged, variables.Change(kBinVarValVariable, &old, &changed));
  RETURNS(0, variables.Get(kBinVarValVariable, &old, &found));
  HOLDS(found.value == 2);
  RETURNS(0, variables.OpenScan());
  RETURNS(0, variables.GetNext(0, &old, &found));
  RETURNS(status::end_of_registry, variables.GetNext(0, &old, &found));
  RETURNS(0, variables.CloseScan());
  RETURNS(0, variables.Delete(kBinVarValVariable, &old));
  RETURNS(status::no_match, variables.Get(kBinVarValVariable, &old, &found));
  HOLDS(contentsOf("variables").empty());
}

// An update made by hand: the lock, the copy, verification, which puts the copy in place.
void callVerify(GenRegBinVarVal& variables) {
  GenRegBinVarValRecord added = variable("B", 2);
  RETURNS(0, variables.Lock(kGenRegLockExclusive | kGenRegLockWait, 0));
  RETURNS(0, variables.OpenReg(kGenRegAdd));
  RETURNS(0, variables.WriteRecord(variables.temporaryStream, &added));
  RETURNS(0, variables.CloseReg(kGenRegAdd));
  RETURNS(0, variables.Verify(kGenRegAdd, kBinVarValVariable, &added, nullptr));
  RETURNS(0, variables.UnLock());
  HOLDS(contentsOf("variables").size() == 40);
}

void callSlots() {
  GenRegBinVarValRecord one = variable("A", 1);
  GenRegBinVarValRecord two = variable("A", 2);
  unsigned long size = 0;
  HOLDS(GenRegBinVarVal::MatchRecord(kBinVarValVariable, &one, &two) == 1);
  HOLDS(GenRegBinVarVal::MatchRecord(kBinVarValValue, &one, &two) == 0);
  RETURNS(0, GenRegBinVarVal::ValidateRecord(0, &one));
  RETURNS(0, GenRegBinVarVal::PrintRecord(&one));
  RETURNS(status::null_argument, GenRegBinVarVal::PrintRecord(nullptr));
  RETURNS(0, GenRegBinVarVal::GetRecordSize(&one, &size));
  HOLDS(size == 36);
  RETURNS(0, GenRegBinVarVal::GetMaxRecordSize(&size));
  HOLDS(size == 36);
}

}  // namespace

void callBinary() {
  callChecksum();
  callEmptyStores();
  unsigned int code = ~0U;
  std::string path = pathOf("variables");
  GenRegBinVarVal variables(path.data(), &code);
  RETURNS(0, code);
  OwnVariables derived("", &code);
  RETURNS(status::null_argument, code);
  callFrames(variables);
  callUpdates(variables);
  callVerify(variables);
  callSlots();
}

}  // namespace every_name
