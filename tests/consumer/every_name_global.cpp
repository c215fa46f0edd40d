// SPDX-License-Identifier: Apache-2.0
// The global registry: location, slots, change log, notification, fix-pack synchronisation.
#include <cstring>

#include "every_name.h"

namespace every_name {

namespace {

namespace status = genreg::status;

class OwnGlobal : public GlobalReg {};
class OwnHostWide : public GlobalReg {
 public:
  OwnHostWide() : GlobalReg(true) {}
};

GlobalRegRecord serviceRecord(std::uint32_t fixpack) {
  GlobalRegRecord record{};
  record.RecordType = kGlobalRegService;
  record.FieldMask = kServiceKey | kServiceFixpackNumber;
  put(record.Services.Service, "VRX");
  record.Services.VersionCode = kVersion;
  record.Services.FixpackNumber = fixpack;
  return record;
}

void callLocation() {
  char path[1024] = "";
  unsigned short length = 2;
  const std::string chosen = pathOf("global.reg");
  setenv("VRX_GLOBAL_REG_PATHNAME", chosen.c_str(), 1);
  RETURNS(status::pathname_buffer_too_small, GetGlobalRegPathname(path, &length));
  HOLDS(length == chosen.size() + 1);
  RETURNS(0, GetGlobalRegPathname(path, &length));
  HOLDS(chosen == path);
  GlobalReg plain;
  GlobalReg hostWide(true);
  OwnGlobal derived;
  OwnHostWide derivedHostWide;
  for (GlobalReg* registry : {&plain, &hostWide, static_cast<GlobalReg*>(&derived),
                              static_cast<GlobalReg*>(&derivedHostWide)}) {
    HOLDS(chosen == registry->registryPath);
    setenv("VRX_GLOBAL_REG_PATHNAME", (chosen + "2").c_str(), 1);
    registry->init(true);
    HOLDS(chosen + "2" == registry->registryPath);
    setenv("VRX_GLOBAL_REG_PATHNAME", chosen.c_str(), 1);
  }
}

void callPacking() {
  union {
    GlobalRegRecord record;
    char image[4096];
  } buffer = {};
  const GlobalRegRecord given = serviceRecord(7);
  buffer.record = given;
  void* pointer = &buffer;
  unsigned long size = 0;
  RETURNS(0, GlobalReg::PackRecord(&pointer, nullptr));
  RETURNS(0, GlobalReg::GetPackedRecordSize(&buffer, &size));
  HOLDS(size == 24 + 6 + 10 + 6);  // "VRX", the version code, the fix-pack number, each with length
  RETURNS(0, GlobalReg::UnpackRecord(&pointer));
  HOLDS(std::memcmp(&buffer.record.Services, &given.Services, sizeof given.Services) == 0);
  HOLDS(buffer.record.MissingFieldMask == (kServiceKnown & ~buffer.record.FieldMask));
}

void callSlots() {
  GlobalRegRecord record = serviceRecord(7);
  GlobalRegRecord nameless{};
  unsigned long size = 0;
  HOLDS(GlobalReg::MatchRecord(kServiceKey, &record, &record) == 1);
  RETURNS(0, GlobalReg::ValidateRecord(kServiceKey, &record));
  RETURNS(status::bad_record_type, GlobalReg::ValidateRecord(kServiceKey, &nameless));
  RETURNS(0, GlobalReg::PrintRecord(&record));
  RETURNS(0, GlobalReg::GetRecordSize(&record, &size));
  HOLDS(size == 2600);
  RETURNS(0, GlobalReg::GetMaxRecordSize(&size));
  HOLDS(size == 2600);
}

// The two have nobody to signal here; every_name runs in a /var of its own.
void callLogAndNotify() {
  GlobalReg registry;
  GlobalRegRecord record = serviceRecord(7);
  RETURNS(0, GlobalReg::Log(&registry, kGenRegAdd, &record, nullptr));
  std::ifstream log("/tmp/globalreg.debug");
  const std::string text{std::istreambuf_iterator<char>(log), {}};
  HOLDS(text.find(";ACT=Add;CL=N/A;REC=S,VRX,3.1.0.7,,,,7,,,,\n") != std::string::npos);
  RETURNS(0, GlobalReg::Notify());
  RETURNS(0, fmcNotify());
}

void callSynchronisation() {
  GlobalReg registry;
  GlobalRegRecord record = serviceRecord(7);
  GlobalRegRecord found{};
  unsigned int changed = 0;
  write("level", "version=3.1.0.7\nbuild_level=s250131\nfixpack=9\n");
  setenv("VRX_LEVEL_FILE", pathOf("level").c_str(), 1);
  RETURNS(0, registry.Add(kServiceKey, &record));
  RETURNS(0, genregSyncGlobalRegFixpackNumber(&registry, &changed));
  HOLDS(changed == 1);
  RETURNS(0, registry.Get(kServiceKey, &record, &found));
  HOLDS(found.Services.FixpackNumber == 9);
  RETURNS(0, genregSyncGlobalRegFixpackNumber(&registry, &changed));
  HOLDS(changed == 0);
  RETURNS(status::invalid_argument, genregSyncGlobalRegFixpackNumber(nullptr, &changed));
}

}  // namespace

void callGlobal() {
  callLocation();
  callPacking();
  callSlots();
  callLogAndNotify();
  callSynchronisation();
}

}  // namespace every_name
