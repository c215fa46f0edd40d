// SPDX-License-Identifier: Apache-2.0
// The registry object: features, paths, the lock, opening and closing, scans.
#include <unistd.h>

#include "every_name.h"

namespace every_name {

namespace {

namespace status = genreg::status;

// Classes of a program's own, which call the constructors and destructors of a base.
class OwnBase : public GenRegBase {};
class OwnFile : public GenRegFile {
 public:
  unsigned int choose(const std::string& path) { return setRegistryPaths(path.c_str()); }
};

void callBase() {
  GenRegBase plain;
  OwnBase derived;
  for (GenRegBase* base : {&plain, static_cast<GenRegBase*>(&derived)}) {
    RETURNS(status::feature_out_of_range, base->setFeature(0));
    RETURNS(0, base->setFeature(kGenRegDuplicates));
    HOLDS(base->isFeatureSet(kGenRegDuplicates));
    RETURNS(0, base->unsetFeature(kGenRegDuplicates));
    RETURNS(status::feature_not_set, base->unsetFeature(kGenRegDuplicates));
    base->SetChangeLoggingFuncID(7);
    HOLDS(base->GetChangeLoggingFuncID() == 0);
    RETURNS(0, base->setFeature(kGenRegChangeLog));
    HOLDS(base->GetChangeLoggingFuncID() == 7);
  }
}

std::string told(unsigned int code, const char* path) {
  return code == 0 ? path : "";
}

void callPathGetters(GenRegFile& file, const std::string& name) {
  char path[kGenRegPathSize] = "";
  HOLDS(told(file.getRegistryPath(path, sizeof path), path) == pathOf(name));
  HOLDS(told(file.getRegistryTmpPath(path, sizeof path), path) == pathOf(name + ".tmp"));
  HOLDS(told(file.getRegistryCorruptTmpPath(path, sizeof path), path) == pathOf(name + ".cor"));
  HOLDS(told(file.getRegistryLockPath(path, sizeof path), path) == pathOf("." + name + ".lock"));
  HOLDS(told(file.getRegistryBackupPath(path, sizeof path), path) == pathOf("." + name + ".bkp"));
  RETURNS(status::buffer_too_small, file.getRegistryPath(path, 2));
}

void callPaths() {
  GenRegFile plain;
  RETURNS(status::paths_not_set, plain.Lock(kGenRegLockExclusive | kGenRegLockWait, 0));
  OwnFile file;
  RETURNS(status::null_argument, file.choose(""));
  RETURNS(0, file.choose(pathOf("link")));
  callPathGetters(file, "link");
  HOLDS(symlink("real", pathOf("link").c_str()) == 0);
  RETURNS(0, file.GetAndSetRealRegistryPaths());
  callPathGetters(file, "real");
}

void callLock() {
  OwnFile one;
  OwnFile two;
  RETURNS(0, one.choose(pathOf("lockable")));
  RETURNS(0, two.choose(pathOf("lockable")));
  constexpr unsigned int kTry = kGenRegLockExclusive | kGenRegLockNoWait;
  RETURNS(0, one.Lock(kTry, 0));
  RETURNS(status::locked_elsewhere, two.Lock(kTry, 0));
  RETURNS(0, one.UnLock());
  RETURNS(0, two.Lock(kTry, 0));
}

void callOpenAndClose() {
  OwnFile file;
  RETURNS(0, file.choose(pathOf("opened")));
  RETURNS(status::no_registry, file.OpenReg(kGenRegRead));
  RETURNS(0, file.CloseReg(kGenRegRead));
  write("opened", "bytes");
  RETURNS(0, file.OpenReg(kGenRegRead));
  HOLDS(file.registrySize == 5);
  RETURNS(0, file.CloseReg(kGenRegRead));
  RETURNS(0, file.Load(0));
  RETURNS(0, file.UnLoad(0));
}

void callScan() {
  OwnFile file;
  RETURNS(0, file.choose(pathOf("opened")));
  long long position = -1;
  RETURNS(status::no_scan, file.getRegFilePosition(&position));
  RETURNS(0, file.OpenScan());
  RETURNS(0, file.getRegFilePosition(&position));
  HOLDS(position == 0);
  position = 3;
  RETURNS(0, file.setRegFilePosition(&position));
  RETURNS(0, file.Rewind());
  RETURNS(0, file.getRegFilePosition(&position));
  HOLDS(position == 0);
  RETURNS(0, file.CloseScan());
  RETURNS(status::rewind_failed, file.Rewind());
}

}  // namespace

void callCore() {
  callBase();
  callPaths();
  callLock();
  callOpenAndClose();
  callScan();
  unsigned long count = 0;
  const GenRegStatusInfo* table = genregStatusTable(&count);
  HOLDS(count > 100 && table[0].code == 0);
  const GenRegStatusInfo* info = genregStatusInfo(status::no_match);
  HOLDS(info != nullptr && std::string(info->name) == "no_match");
}

}  // namespace every_name
