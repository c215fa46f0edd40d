// SPDX-License-Identifier: Apache-2.0
// One operation of the library at a time.
#include "benchmarks/library.h"

#include <cstdlib>
#include <cstring>

#include "globalreg/global_reg.h"

namespace vrxbench {
namespace {

class StoreAlone : public GlobalReg {
 public:
  explicit StoreAlone(const std::string& path) : GlobalReg(true) {
    require(setRegistryPaths(path.c_str()) == 0, "registry path " + path);
    features = kGenRegVerifyCommit | kGenRegPacked;
  }
};

char* serviceArgument() {
  static char service[] = "VRX";
  return service;
}

unsigned call(StoreAlone& registry, Action action, GlobalRegRecord& key, GlobalRegRecord& record) {
  switch (action) {
    case Action::kInsert:
      return static_cast<unsigned>(registry.Add(kInstanceKey, &record));
    case Action::kChange:
      return static_cast<unsigned>(registry.Change(kInstanceKey, &key, &record));
    case Action::kRemove:
      break;
  }
  return static_cast<unsigned>(registry.Delete(kInstanceKey, &key));
}

}  // namespace

void store::expectFound(const std::string& path, const Wanted& wanted) {
  StoreAlone registry(path);
  GlobalRegRecord key = wanted.storeKey;
  GlobalRegRecord found;
  require(registry.Get(kInstanceKey, &key, &found) == 0, "store: not found");
  require(wanted.path == found.Instance.InstancePath, "store: another record");
}

void store::expectMissing(const std::string& path, const Wanted& wanted) {
  StoreAlone registry(path);
  GlobalRegRecord key = wanted.storeKey;
  GlobalRegRecord found;
  const auto rc = static_cast<unsigned>(registry.Get(kInstanceKey, &key, &found));
  require(rc == genreg::status::no_match, "store: found what is missing");
}

void store::scan(const std::string& path, unsigned long records, Look look) {
  StoreAlone registry(path);
  GlobalRegRecord key{};
  key.RecordType = kGlobalRegInstance;
  GlobalRegRecord found;
  unsigned long count = 0;
  unsigned long sum = 0;
  require(registry.OpenScan() == 0, "store: no scan");
  while (registry.GetNext(0, &key, &found) == 0) {
    const GlobalRegInstanceBody& body = found.Instance;
    sum += look == Look::kNone ? found.RecordType
                               : touch(body.InstanceName, body.InstancePath, body.Comment);
    ++count;
  }
  require(registry.CloseScan() == 0 && count == records && sum > 0, "store: the scan is not whole");
}

void store::update(const std::string& path, Action action, unsigned long number, Form form) {
  StoreAlone registry(path);
  GlobalRegRecord key = storeKey(number);
  GlobalRegRecord record = storeRecord(number, form);
  require(call(registry, action, key, record) == 0, "store: the update failed");
}

// Programs do not set their environment for every call; nor is that measured.
void directory::use(const std::string& path) {
  const char* const used = std::getenv("VRX_GLOBAL_REG_PATHNAME");
  if (used != nullptr && path == used) return;
  require(setenv("VRX_GLOBAL_REG_PATHNAME", path.c_str(), 1) == 0, "no environment");
  unsetenv("VRXINSTANCE");
}

void directory::expectFound(const Wanted& wanted) {
  std::string name = wanted.name;
  OSSInstanceInfo_t info{};
  const GenRegStatus rc = ossGetInstanceInfo(serviceArgument(), kVersion, name.data(), &info);
  require(rc == 0 && wanted.path == info.instancePath, "directory: not found");
}

void directory::expectMissing(const Wanted& wanted) {
  std::string name = wanted.name;
  OSSInstanceInfo_t info{};
  const GenRegStatus rc = ossGetInstanceInfo(serviceArgument(), kVersion, name.data(), &info);
  require(rc == genreg::status::instance_not_found, "directory: found what is missing");
}

void directory::scan(unsigned long records, Look look) {
  void* list = nullptr;
  OSSInstanceInfo_t info{};
  unsigned long count = 0;
  unsigned long sum = 0;
  require(ossOpenInstanceList(serviceArgument(), &list, true) == 0, "directory: no list");
  while (ossGetNextInstance(list, &info) == 0) {
    sum += look == Look::kNone ? (info.versionCode != 0 ? 1U : 0U)
                               : touch(info.instanceName, info.instancePath, info.comment);
    ++count;
  }
  const bool closed = ossCloseInstanceList(list) == 0;
  require(closed && count == records && sum > 0, "directory: the list is not whole");
}

void directory::update(Action action, unsigned long number, Form form) {
  OSSInstanceInfo_t info = directoryInfo(number, form);
  const GenRegStatus rc =
      action == Action::kRemove
          ? ossRemoveInstanceInfo(serviceArgument(), kVersion, info.instanceName)
          : ossSetInstanceInfo(&info);
  require(rc == 0, "directory: the update failed");
}

}  // namespace vrxbench
