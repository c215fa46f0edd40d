// SPDX-License-Identifier: Apache-2.0
// every_name FOLDER: calls every function that the three installed libraries export, as a program
// of another project does, and checks that each returns what its header documents.
//
// Global registry updates write /tmp/globalreg.debug and look at /var/vrx: run it through
// scripts/private_host.sh. FOLDER must exist; everything else is written there. every_name_check.py
// proves from the program's dynamic symbols that no exported name is left out. Not here: what the
// functions do in full, which the unit tests tell.
#include "every_name.h"

#include <unistd.h>

#include <cstdio>

namespace every_name {

std::string folder;

namespace {

int facts = 0;
int failures = 0;

}  // namespace

void note(bool holds, const char* fact, const char* file, int line) {
  ++facts;
  if (holds) return;
  ++failures;
  std::fprintf(stderr, "%s:%d: does not hold: %s\n", file, line, fact);
}

void noteStatus(unsigned int found, unsigned int documented, const char* call, const char* file,
                int line) {
  ++facts;
  if (found == documented) return;
  ++failures;
  std::fprintf(stderr, "%s:%d: %s: 0x%08X, documented is 0x%08X\n", file, line, call, found,
               documented);
}

}  // namespace every_name

int main(int count, char** arguments) {
  using namespace every_name;
  if (count != 2 || access(arguments[1], W_OK) != 0) {
    std::fprintf(stderr, "every_name: needs a folder to write to\n");
    return 2;
  }
  folder = arguments[1];
  for (const char* name : {"VRX_GLOBAL_REG_PATHNAME", "VRXINSTANCE", "VRX_LEVEL_FILE"})
    unsetenv(name);
  callPlatform();
  callDiagnostics();
  callCore();
  callText();
  callTextFormats();
  callBinary();
  callGlobal();
  callDirectory();
  std::printf("%d of %d facts hold\n", facts - failures, facts);
  return failures == 0 ? 0 : 1;
}
