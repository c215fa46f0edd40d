// SPDX-License-Identifier: Apache-2.0
// inittab FOLDER: makes FOLDER/inittab, adds an entry, changes it, and looks it up.
#include <vrxgenreg.h>

#include <cstdio>
#include <fstream>
#include <iostream>
#include <string>

namespace {

int fail(const char* what, GenRegStatus code) {
  const GenRegStatusInfo* info = genregStatusInfo(code);
  std::fprintf(stderr, "%s: %s (0x%08X)\n", what, info != nullptr ? info->meaning : "", code);
  return 1;
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 2) return 2;
  std::string path = std::string(arguments[1]) + "/inittab";
  std::ofstream(path) << "# runlevels\nid:3:initdefault:\n";

  GenRegInitTab table;  // then setPaths: the other constructor leaves the object without slots
  GenRegStatus status = table.setPaths(path.data());
  if (status != 0) return fail("inittab", status);

  char id[] = "vrx1";
  char two[] = "2345";
  char three[] = "345";
  char action[] = "respawn";
  char command[] = "/opt/vrx/bin/fmcd";
  GenRegInitTabRecord entry{};
  entry.flags = kInitTabHasEntry;
  entry.id = id;
  entry.runlevel = two;
  entry.action = action;
  entry.command = command;
  status = table.Add(kInitTabId, &entry);
  if (status != 0) return fail("add", status);

  GenRegInitTabRecord changed = entry;
  changed.runlevel = three;
  status = table.Change(kInitTabId, &entry, &changed);
  if (status != 0) return fail("change", status);

  GenRegInitTabRecord found;
  status = table.Get(kInitTabId, &entry, &found);
  if (status != 0) return fail("get", status);
  std::printf("%s in run levels %s: %s\n--\n", found.id, found.runlevel, found.command);
  std::fflush(stdout);
  std::cout << std::ifstream(path).rdbuf();
  return 0;
}
