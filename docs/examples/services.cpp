// SPDX-License-Identifier: Apache-2.0
// services FOLDER: makes FOLDER/services, adds an entry with an alias, and lists what the file
// holds.
#include <arpa/inet.h>
#include <vrxgenreg.h>

#include <cstdio>
#include <fstream>
#include <string>

namespace {

int fail(const char* what, GenRegStatus code) {
  const GenRegStatusInfo* info = genregStatusInfo(code);
  std::fprintf(stderr, "%s: %s (0x%08X)\n", what, info != nullptr ? info->meaning : "", code);
  return 1;
}

void show(const GenRegServicesRecord& entry) {
  std::printf("%s %u/%s", entry.name, ntohs(static_cast<unsigned short>(entry.port)),
              entry.protocol);
  for (char** alias = entry.aliases; alias != nullptr && *alias != nullptr; ++alias)
    std::printf(" %s", *alias);
  std::printf("\n");
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 2) return 2;
  std::string path = std::string(arguments[1]) + "/services";
  std::ofstream(path) << "ssh\t\t22/tcp\nweird\t\t7/ip\t\t# kept as it is\n";

  unsigned int status = 0;
  GenRegServices services(path.data(), &status);
  if (status != 0) return fail("services", status);

  char name[] = "vrx_tp1";
  char protocol[] = "tcp";
  char alias[] = "tp1";
  char comment[] = "instance tp1";
  char* aliases[] = {alias, nullptr};
  GenRegServicesRecord entry{};
  entry.flags = kServicesHasEntry | kServicesHasComment;
  entry.name = name;
  entry.port = htons(60000);
  entry.protocol = protocol;
  entry.aliases = aliases;
  entry.comment = comment;
  status = services.Add(kServicesName | kServicesProtocol, &entry);
  if (status != 0) return fail("add", status);
  status = services.Add(kServicesName | kServicesProtocol, &entry);
  std::printf("again: 0x%08X\n", status);

  // A mask of 0 takes every line: comments, blank ones and those that are not understood, too.
  GenRegServicesRecord found;
  status = services.OpenScan();
  while (status == 0 && (status = services.GetNext(0, nullptr, &found)) == 0) {
    const bool entryLine = (found.flags & kServicesHasEntry) != 0;
    if (entryLine && (found.flags & kServicesNotUnderstood) == 0) show(found);
  }
  (void)services.CloseScan();  // what was read has been shown
  return status == genreg::status::end_of_registry ? 0 : fail("list", status);
}
