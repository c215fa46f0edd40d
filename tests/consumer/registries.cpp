// SPDX-License-Identifier: Apache-2.0
// registries FOLDER: a program of another project that uses a profile, the global registry and the
// instance directory through the installed headers. Not here: every function (every_name), and what
// they do in full, which the unit tests tell.
#include <vrxgenreg.h>

#include <cstdio>
#include <cstring>
#include <string>

namespace {

int failures = 0;

void expect(bool holds, const char* fact) {
  if (holds) return;
  ++failures;
  std::fprintf(stderr, "does not hold: %s\n", fact);
}

#define EXPECT(fact) expect((fact), #fact)

// Adds one line to a profile and reads it back as a number.
void useProfile(const std::string& path) {
  unsigned int status = 0;
  GenRegVarVal profile(path.c_str(), &status);
  EXPECT(status == 0);
  char name[] = "DIAG";
  char value[] = "4";
  GenRegVarValRecord line{};
  line.contents = kVarValHasValue;
  line.variable = name;
  line.value = value;
  EXPECT(profile.Add(kVarValVariable | kVarValValue, &line) == 0);
  int level = 0;
  EXPECT(profile.GetSintValue("DIAG", &level));
  EXPECT(level == 4);
  EXPECT(!profile.GetSintValue("TRACE", &level));
}

// Registers an instance and lists the instances of its installed copy.
void useDirectory() {
  OSSInstanceInfo_t tp1 = {0, 0x0003000100000007, "tp1", "VRX", "/home/tp1/sqllib", "oltp", "", "",
                           ""};
  EXPECT(ossSetInstanceInfo(&tp1) == 0);
  void* list = nullptr;
  EXPECT(ossOpenInstanceList(tp1.service, &list) == 0);
  OSSInstanceInfo_t found{};
  EXPECT(ossGetNextInstance(list, &found) == 0);
  EXPECT(std::strcmp(found.instancePath, "/home/tp1/sqllib") == 0);
  EXPECT(ossGetNextInstance(list, &found) == genreg::status::end_of_registry);
  EXPECT(ossCloseInstanceList(list) == 0);
}

// Finds the same instance as a record of the registry.
void useGlobalRegistry() {
  GlobalReg registry;
  GlobalRegRecord key{};
  GlobalRegRecord found{};
  key.RecordType = kGlobalRegInstance;
  key.FieldMask = kInstanceName;
  std::strncpy(key.Instance.InstanceName, "tp1", sizeof key.Instance.InstanceName - 1);
  EXPECT(registry.Get(kInstanceName, &key, &found) == 0);
  EXPECT((found.FieldMask & kInstanceUsage) != 0);
  EXPECT(std::strcmp(found.Instance.Usage, "oltp") == 0);
  EXPECT(registry.Delete(kInstanceName, &key) == 0);
  EXPECT(registry.Get(kInstanceName, &key, &found) != 0);
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 2) return 2;
  useProfile(std::string(arguments[1]) + "/profile");
  useDirectory();
  useGlobalRegistry();
  std::printf("%u-bit: %d failures\n", static_cast<unsigned>(8 * sizeof(void*)), failures);
  return failures == 0 ? 0 : 1;
}
