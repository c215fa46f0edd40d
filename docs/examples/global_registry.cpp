// SPDX-License-Identifier: Apache-2.0
// global_registry: keeps a variable of an installed copy in the global registry, and changes it
// only while it is as it was read. The registry is the one that the environment chooses.
#include <vrxgenreg.h>

#include <cstdio>
#include <cstring>

namespace {

int fail(const char* what, int code) {
  const GenRegStatusInfo* info = genregStatusInfo(genreg::statusOf(code));
  std::fprintf(stderr, "%s: %s (0x%08X)\n", what, info != nullptr ? info->meaning : "",
               genreg::statusOf(code));
  return 1;
}

// A field counts while its bit is set.
GlobalRegRecord variable(const char* name, const char* value) {
  GlobalRegRecord record{};
  record.RecordType = kGlobalRegVariable;
  record.FieldMask = kVariableKey | kVariableValue;
  std::snprintf(record.Variable.Service, sizeof record.Variable.Service, "VRX");
  std::snprintf(record.Variable.Variable, sizeof record.Variable.Variable, "%s", name);
  std::snprintf(record.Variable.Value, sizeof record.Variable.Value, "%s", value);
  return record;
}

void list(GlobalReg& registry) {
  GlobalRegRecord key{};
  key.RecordType = kGlobalRegVariable;
  GlobalRegRecord found;
  if (registry.OpenScan() != 0) return;
  while (registry.GetNext(0, &key, &found) == 0)
    std::printf("%s = %s\n", found.Variable.Variable, found.Variable.Value);
  (void)registry.CloseScan();  // what was read has been shown
}

}  // namespace

int main(int count, char** arguments) {
  GlobalReg registry;
  registry.CallerArgCount = count;  // the change log names this program then
  registry.CallerArgs = arguments;

  GlobalRegRecord language = variable("LANGUAGE", "en");
  GlobalRegRecord units = variable("UNITS", "metric");
  int rc = registry.Add(kVariableKey, &language);
  if (rc == 0) rc = registry.Add(kVariableKey, &units);
  if (rc != 0) return fail("add", rc);

  // Read, edit, and write back what nobody else has changed meanwhile: the mask names every field
  // that was read, so that a record which differs in one of them is no match.
  GlobalRegRecord old;
  rc = registry.Get(kVariableKey, &language, &old);
  if (rc != 0) return fail("get", rc);
  GlobalRegRecord edited = old;
  std::snprintf(edited.Variable.Value, sizeof edited.Variable.Value, "de");
  rc = registry.Change(old.FieldMask, &old, &edited);
  if (rc != 0) return fail("change", rc);
  rc = registry.Change(old.FieldMask, &old, &edited);
  std::printf("once more: %s\n", genregStatusInfo(genreg::statusOf(rc))->name);

  list(registry);
  rc = registry.Delete(kVariableKey, &units);
  if (rc != 0) return fail("delete", rc);
  list(registry);
  return 0;
}
