// SPDX-License-Identifier: Apache-2.0
// binary_variables FOLDER: keeps numbers by name in FOLDER/vars.bin.
#include <vrxgenreg.h>

#include <cstdio>
#include <string>

namespace {

int fail(const char* what, int code) {
  const GenRegStatusInfo* info = genregStatusInfo(genreg::statusOf(code));
  std::fprintf(stderr, "%s: %s (0x%08X)\n", what, info != nullptr ? info->meaning : "",
               genreg::statusOf(code));
  return 1;
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 2) return 2;
  std::string path = std::string(arguments[1]) + "/vars.bin";
  unsigned int status = 0;
  GenRegBinVarVal variables(path.data(), &status);
  if (status != 0) return fail("vars.bin", genreg::statusInt(status));

  // The binary stores return their statuses as int: 0, or a code with its 32 bits as they stand.
  GenRegBinVarValRecord level = {"LEVEL", -5, "low"};
  GenRegBinVarValRecord limit = {"LIMIT", 40, ""};
  int rc = variables.Add(kBinVarValVariable, &level);
  if (rc == 0) rc = variables.Add(kBinVarValVariable, &limit);
  if (rc != 0) return fail("add", rc);

  GenRegBinVarValRecord raised = {"LEVEL", 7, "high"};
  rc = variables.Change(kBinVarValVariable, &level, &raised);
  if (rc != 0) return fail("change", rc);

  GenRegBinVarValRecord found{};
  GenRegStatus opened = variables.OpenScan();
  if (opened != 0) return fail("open", genreg::statusInt(opened));
  while ((rc = variables.GetNext(0, &found, &found)) == 0)
    std::printf("%.16s = %d %.16s\n", found.variable, found.value, found.comment);
  (void)variables.CloseScan();  // what was read has been shown
  if (rc != genreg::statusInt(genreg::status::end_of_registry)) return fail("list", rc);

  rc = variables.Delete(kBinVarValVariable, &limit);
  if (rc != 0) return fail("delete", rc);
  rc = variables.Get(kBinVarValVariable, &limit, &found);
  std::printf("LIMIT: %s\n", genregStatusInfo(genreg::statusOf(rc))->meaning);
  return 0;
}
