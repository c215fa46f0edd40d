// SPDX-License-Identifier: Apache-2.0
// instance_directory: registers an installed copy and two instances, lists, looks up and removes
// them.
#include <vrxgenreg.h>

#include <cstdio>

namespace {

int fail(const char* what, GenRegStatus code) {
  const GenRegStatusInfo* info = genregStatusInfo(code);
  std::fprintf(stderr, "%s: %s (0x%08X)\n", what, info != nullptr ? info->meaning : "", code);
  return 1;
}

// Setting replaces the whole record; 0x900001F7 says that it was so already.
GenRegStatus registerInstance(unsigned long long version, const char* name, const char* path) {
  OSSInstanceInfo_t info{};
  info.flags = kInstanceFlagStartAtBoot;
  info.versionCode = version;
  std::snprintf(info.service, sizeof info.service, "VRX");
  std::snprintf(info.instanceName, sizeof info.instanceName, "%s", name);
  std::snprintf(info.instancePath, sizeof info.instancePath, "%s", path);
  const GenRegStatus status = ossSetInstanceInfo(&info);
  return status == genreg::status::unchanged ? genreg::status::ok : status;
}

// A list holds a shared lock on the registry until it is closed.
GenRegStatus list(char* service) {
  void* handle = nullptr;
  GenRegStatus status = ossOpenInstanceList(service, &handle);
  if (status != 0) return status;
  for (;;) {
    OSSInstanceInfo_t next{};
    status = ossGetNextInstance(handle, &next);
    if (status != 0) break;
    char version[kVersionStringSize] = "";
    (void)ossVersionCodeToString(next.versionCode, version, sizeof version);  // it always fits
    std::printf("%s %s %s\n", next.instanceName, version, next.instancePath);
  }
  const GenRegStatus closed = ossCloseInstanceList(handle);
  return status == genreg::status::end_of_registry ? closed : status;
}

}  // namespace

int main() {
  char vrx[] = "VRX";
  char tp1[] = "tp1";
  unsigned long long version = 0;
  GenRegStatus status = ossVersionStringToCode("3.1.0.7", &version);
  if (status != 0) return fail("version", status);

  OSSServiceInfo_t copy{};
  copy.versionCode = version;
  copy.fixpackNumber = 7;
  std::snprintf(copy.service, sizeof copy.service, "VRX");
  std::snprintf(copy.text1, sizeof copy.text1, "/opt/vrx/v3.1");
  status = ossSetServiceInfo(&copy);
  if (status == 0) status = registerInstance(version, "tp1", "/home/tp1/sqllib");
  if (status == 0) status = registerInstance(version, "dw1", "/home/dw1/sqllib");
  if (status != 0) return fail("register", status);

  status = list(vrx);
  if (status != 0) return fail("list", status);

  OSSInstanceInfo_t found{};
  status = ossGetInstanceInfo(vrx, version, tp1, &found);
  if (status != 0) return fail("get", status);
  std::printf("tp1 starts with the host: %s\n",
              (found.flags & kInstanceFlagStartAtBoot) != 0 ? "yes" : "no");

  status = ossRemoveInstanceInfo(vrx, version, tp1);
  if (status != 0) return fail("remove", status);
  status = ossRemoveInstanceInfo(vrx, version, tp1);
  std::printf("removed twice: %s\n", genregStatusInfo(status)->meaning);
  return 0;
}
