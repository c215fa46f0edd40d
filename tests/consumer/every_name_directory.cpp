// SPDX-License-Identifier: Apache-2.0
// Instances, services and version codes as plain functions.
#include "every_name.h"

namespace every_name {

namespace {

namespace status = genreg::status;

char serviceName[] = "VRX";
char instanceName[] = "tp1";

void callInstances() {
  OSSInstanceInfo_t given{};
  OSSInstanceInfo_t found{};
  given.versionCode = kVersion;
  put(given.service, serviceName);
  put(given.instanceName, instanceName);
  put(given.instancePath, "/home/tp1/sqllib");
  RETURNS(0, ossSetInstanceInfo(&given));
  RETURNS(status::unchanged, ossSetInstanceInfo(&given));
  RETURNS(0, ossGetInstanceInfo(serviceName, kVersion, instanceName, &found));
  HOLDS(std::string(found.instancePath) == "/home/tp1/sqllib");
  RETURNS(0, ossGetInstanceInfo(serviceName, 0, nullptr, nullptr, &found));
  void* list = nullptr;
  RETURNS(0, ossOpenInstanceList(serviceName, &list));
  RETURNS(0, ossGetNextInstance(list, &found));
  RETURNS(status::end_of_registry, ossGetNextInstance(list, &found));
  RETURNS(0, ossCloseInstanceList(list));
  RETURNS(0, ossOpenInstanceList(serviceName, &list, true));
  RETURNS(0, ossCloseInstanceList(list));
  RETURNS(0, ossRemoveInstanceInfo(serviceName, kVersion, instanceName));
  RETURNS(status::no_match, ossRemoveInstanceInfo(serviceName, kVersion, instanceName));
  RETURNS(status::instance_not_found,
          ossGetInstanceInfo(serviceName, kVersion, instanceName, &found));
}

void callServices() {
  OSSServiceInfo_t given{};
  OSSServiceInfo_t found{};
  given.versionCode = kVersion;
  put(given.service, "KRN");
  put(given.text1, "/opt/krn");
  char service[] = "KRN";
  char text1[] = "/opt/krn";
  RETURNS(0, ossSetServiceInfo(&given));
  RETURNS(0, ossGetServiceInfo(service, kVersion, text1, &found));
  HOLDS(found.versionCode == kVersion);
  RETURNS(0, ossGetServiceInfo(service, kVersion, text1, nullptr, &found));
  void* list = nullptr;
  int count = 0;
  RETURNS(0, ossOpenServiceList(&list));
  while (ossGetNextService(list, &found) == 0)
    ++count;
  HOLDS(count == 2);  // the service of the synchronisation stands there, too
  RETURNS(status::end_of_registry, ossGetNextService(list, &found));
  RETURNS(0, ossCloseServiceList(list));
  RETURNS(0, ossRemoveServiceInfo(service, kVersion));
  RETURNS(status::service_not_found, ossGetServiceInfo(service, kVersion, nullptr, &found));
}

void callVersions() {
  char text[kVersionStringSize] = "";
  unsigned long long code = 0;
  RETURNS(0, ossVersionCodeToString(kVersion, text, sizeof text));
  HOLDS(std::string(text) == "3.1.0.7");
  RETURNS(status::version_buffer_too_small, ossVersionCodeToString(kVersion, text, 7));
  RETURNS(0, ossVersionStringToCode("3.1.0.7", &code));
  HOLDS(code == kVersion);
  RETURNS(status::version_malformed, ossVersionStringToCode("3.x", &code));
  HOLDS(ossVersionCodeServiceToVRX(kVersion) == 3010007);
  HOLDS(ossVersionCodeVRXToService(3010007) == kVersion);
}

}  // namespace

void callDirectory() {
  callInstances();
  callServices();
  callVersions();
}

}  // namespace every_name
