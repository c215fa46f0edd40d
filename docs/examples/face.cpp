// SPDX-License-Identifier: Apache-2.0
// face FOLDER: a first program on the C++ face of the library. It registers an instance, lists what
// is registered, sets a value of the profile FOLDER/app.env and looks a port up.
//
//     VRX_GLOBAL_REG_PATHNAME=$PWD/try.reg ./face .
//
// With the variable set it works on a registry of its own; without, on the host's.
#include <vrx/vrx.h>

#include <cstdio>
#include <string>

namespace {

// Every verb returns a vrx::Status, or a vrx::Result that holds one when there is no value. Neither
// can be ignored without a warning. message() is one line for people.
int report(const vrx::Status& status) {
  std::fprintf(stderr, "face: %s\n", status.message().c_str());
  return 1;
}

// A record is a plain value. What is not given stays absent, which is neither empty nor "no".
vrx::Status registerInstance(const vrx::GlobalRegistry& registry) {
  vrx::Instance tp1;
  tp1.service = "VRX";
  tp1.version = vrx::Version::of(3, 1, 0, 7);
  tp1.name = "tp1";
  tp1.path = "/home/tp1/sqllib";
  tp1.startAtBoot = true;
  return registry.instances().set(tp1);  // adds it, or changes the one with the same key
}

// update() reads the record, hands it to us, and writes it back only while nobody else has changed
// it in between; otherwise it reads again and asks again.
vrx::Status beginMaintenance(const vrx::GlobalRegistry& registry) {
  return registry.instances().update({"VRX", vrx::Version::of(3, 1, 0, 7), "tp1"},
                                     [](vrx::Instance& tp1) { tp1.maintenance = true; });
}

// A cursor reads one record at a time. Its status tells the end of the file from a failure.
vrx::Status listInstances(const vrx::GlobalRegistry& registry) {
  auto cursor = registry.instances().cursor();
  for (const auto& instance : cursor) {
    std::printf("%s %s %s: %s%s\n", instance.service.c_str(), instance.version.text().c_str(),
                instance.name.c_str(), instance.path.value_or("(no path)").c_str(),
                instance.maintenance.value_or(false) ? ", in maintenance" : "");
  }
  return cursor.status();
}

// A missing file and a missing name are no errors of ours: get() says which it was, and value_or()
// takes both for the default. set() leaves the comment and the layout of the line as they are.
vrx::Status raiseLevel(const std::string& path) {
  vrx::Profile profile(path);
  std::printf("DIAG was %s\n", profile.get("DIAG").value_or("not set").c_str());
  return profile.set("DIAG", "4");
}

// What cannot be written is refused before anything is, with the field and the reason.
void showRefusal(const std::string& path) {
  const vrx::Status refused = vrx::Profile(path).set("DIAG", "4 # four");
  std::printf("refused %s: %s\n", refused.field().c_str(), refused.detail().c_str());
}

void showPort() {
  const vrx::Ports ports;  // the host's own, /etc/services
  const auto ssh = ports.find({"ssh", "tcp"});
  if (ssh) std::printf("ssh listens on %u\n", static_cast<unsigned>(ssh->port));
  if (!ssh) std::printf("ssh: %s\n", ssh.status().notFound() ? "no such service" : "not readable");
}

}  // namespace

int main(int count, char** arguments) {
  const std::string profile = std::string(count > 1 ? arguments[1] : ".") + "/app.env";
  const vrx::GlobalRegistry registry;
  vrx::Status status = registerInstance(registry);
  if (status) status = beginMaintenance(registry);
  if (status) status = listInstances(registry);
  if (status) status = raiseLevel(profile);
  if (!status) return report(status);
  showRefusal(profile);
  showPort();
  return 0;
}
