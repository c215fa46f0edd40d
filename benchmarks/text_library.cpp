// SPDX-License-Identifier: Apache-2.0
// One operation on a profile or a services file at a time.
#include "benchmarks/text_library.h"

#include "benchmarks/measure.h"
#include "benchmarks/text_lines.h"
#include "genreg/formats/services.h"
#include "genreg/formats/var_val.h"

namespace vrxbench {
namespace {

constexpr unsigned long long kServiceKey = kServicesName | kServicesProtocol;

GenRegServicesRecord serviceRecord(std::string& name, std::string& protocol, unsigned port) {
  GenRegServicesRecord record{};
  record.flags = kServicesHasEntry;
  record.name = name.data();
  record.protocol = protocol.data();
  record.port = (port & 0xFF) << 8 | (port >> 8 & 0xFF);  // network byte order
  return record;
}

}  // namespace

void profile::get(const std::string& path, const std::string& name, bool present) {
  unsigned status = 0;
  GenRegVarVal profile(path.c_str(), &status);
  const char* value = nullptr;
  require(status == 0, "profile: " + path);
  require(profile.GetStringValue(name.c_str(), &value) == present, "profile: not as expected");
}

void profile::list(const std::string& path, unsigned long lines) {
  unsigned status = 0;
  GenRegVarVal profile(path.c_str(), &status);
  GenRegVarValRecord record;
  unsigned long count = 0;
  require(status == 0 && profile.OpenScan() == 0, "profile: no scan");
  while (profile.GetNext(0, nullptr, &record) == 0)
    count += record.value != nullptr ? 1 : 0;
  require(profile.CloseScan() == 0 && count == lines, "profile: the scan is not whole");
}

void profile::set(const std::string& path, std::string name, std::string value) {
  unsigned status = 0;
  GenRegVarVal profile(path.c_str(), &status);
  require(status == 0, "profile: " + path);
  GenRegVarValRecord key{};
  key.contents = kVarValHasValue;
  key.variable = name.data();
  GenRegVarValRecord record = key;
  record.value = value.data();
  require(profile.Change(kVarValVariable, &key, &record) == 0, "profile: not changed");
}

void services::get(std::string path, std::string name) {
  unsigned status = 0;
  GenRegServices services(path.data(), &status);
  std::string protocol = "tcp";
  require(status == 0, "services: " + path);
  GenRegServicesRecord key = serviceRecord(name, protocol, 0);
  GenRegServicesRecord found;
  require(services.Get(kServiceKey, &key, &found) == 0, "services: not found");
}

void services::change(std::string path, std::string name, unsigned port) {
  unsigned status = 0;
  GenRegServices services(path.data(), &status);
  std::string protocol = "tcp";
  std::string text = kServiceComment;
  require(status == 0, "services: " + path);
  GenRegServicesRecord key = serviceRecord(name, protocol, 0);
  GenRegServicesRecord record = serviceRecord(name, protocol, port);
  record.flags |= kServicesHasComment;
  record.comment = text.data();
  require(services.Change(kServiceKey, &key, &record) == 0, "services: not changed");
}

}  // namespace vrxbench
