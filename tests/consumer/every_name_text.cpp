// SPDX-License-Identifier: Apache-2.0
// The text store and what it is made of: lines, fields, lookups, updates, verification.
#include <cstdio>
#include <memory>

#include "every_name.h"

namespace every_name {

namespace {

namespace status = genreg::status;

// A store without a format, as a program that writes one begins.
class OwnStore : public GenRegText {};

void callFields() {
  char text[] = "\t a   b \n";
  RETURNS(0, StripWhiteSpace(text));
  HOLDS(std::string(text) == "a b");
  RETURNS(status::null_argument, StripWhiteSpace(nullptr));
  char dirty[] = "a\x01z";
  RETURNS(0, CleanString(dirty));
  HOLDS(std::string(dirty) == "a.z");
  char* cursor = text;
  char* field = nullptr;
  RETURNS(0, ExtractNextField(&field, &cursor));
  HOLDS(std::string(field) == "a");
  RETURNS(0, ExtractNextField(&field, &cursor));
  HOLDS(std::string(field) == "b");
  RETURNS(status::end_of_input, ExtractNextField(&field, &cursor));
}

void callLines() {
  const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(pathOf("lines").c_str(), "w+"),
                                                   &std::fclose);
  HOLDS(file != nullptr);
  char line[kGenRegLineSize] = "abcd\n";
  RETURNS(0, GenRegWriteLine(line, 5, file.get()));
  std::rewind(file.get());
  char raw[kGenRegLineSize] = "";
  unsigned int code = ~0U;
  HOLDS(GenRegReadLine(raw, line, sizeof line, file.get(), &code, true) == raw);
  RETURNS(0, code);
  HOLDS(std::string(raw) == "abcd\\\n\n");
  HOLDS(std::string(line) == "abcd\n");
  HOLDS(GenRegReadLine(raw, line, sizeof line, file.get(), &code, true) == nullptr);
  RETURNS(status::end_of_input, code);
}

void callEmptyStores() {
  GenRegText plain;
  OwnStore derived;
  for (GenRegText* store : {&plain, static_cast<GenRegText*>(&derived)}) {
    HOLDS(store->storeType == kGenRegTextStore);
    RETURNS(status::no_validate_slot, store->CheckFuncPtrs());
  }
}

GenRegVarValRecord profileLine(std::string& name, std::string& value) {
  GenRegVarValRecord record{};
  record.contents = kVarValHasValue;
  record.variable = name.data();
  record.value = value.data();
  return record;
}

// One record, given three values in turn, found, and removed again.
void callUpdates(GenRegVarVal& profile) {
  std::string name = "DIAG";
  std::string three = "3";
  std::string four = "4";
  GenRegVarValRecord old = profileLine(name, three);
  GenRegVarValRecord changed = profileLine(name, four);
  GenRegVarValRecord found{};
  RETURNS(0, profile.CheckFuncPtrs());
  RETURNS(0, profile.Add(kVarValVariable, &old));
  RETURNS(0, profile.Change(kVarValVariable, &old, &changed));
  RETURNS(status::unchanged, profile.Change(kVarValVariable, &old, &changed));
  RETURNS(0, profile.Get(kVarValVariable, &old, &found));
  HOLDS(std::string(found.value) == "4");
  RETURNS(0, profile.OpenScan());
  RETURNS(0, profile.GetNext(kVarValVariable, &old, &found));
  RETURNS(status::end_of_registry, profile.GetNext(kVarValVariable, &old, &found));
  RETURNS(0, profile.CloseScan());
  RETURNS(0, profile.Delete(kVarValVariable, &old));
  RETURNS(status::no_match, profile.Delete(kVarValVariable, &old));
  HOLDS(contentsOf("profile").empty());
}

// An update made by hand: the lock, the copy, verification, which puts the copy in place.
void callVerify(GenRegVarVal& profile) {
  std::string name = "B";
  std::string value = "2";
  GenRegVarValRecord added = profileLine(name, value);
  write("profile", "A = 1\n");
  RETURNS(0, profile.Lock(kGenRegLockExclusive | kGenRegLockWait, 0));
  RETURNS(0, profile.OpenReg(kGenRegRead));
  RETURNS(0, profile.CloseReg(kGenRegRead));
  write("profile.tmp", "A = 1\nB = 2\n");
  RETURNS(0, profile.Verify(kGenRegAdd, kVarValVariable, nullptr, &added));
  RETURNS(0, profile.UnLock());
  HOLDS(contentsOf("profile") == "A = 1\nB = 2\n");
}

}  // namespace

void callText() {
  callFields();
  callLines();
  callEmptyStores();
  bCompactFormattedLine = true;
  unsigned int code = ~0U;
  GenRegVarVal profile(pathOf("profile").c_str(), &code);
  RETURNS(0, code);
  HOLDS(!bCompactFormattedLine);
  callUpdates(profile);
  callVerify(profile);
}

}  // namespace every_name
