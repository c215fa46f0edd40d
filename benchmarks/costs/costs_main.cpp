// SPDX-License-Identifier: Apache-2.0
// vrxbench_costs OPERATION FILE RECORDS: fills a registry, does one operation on it, and prints how
// many allocations that took. Calls of getppid, which nothing else makes, stand right before and
// right behind the operation, so that a trace of the system calls tells which are its own.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "benchmarks/costs/allocations.h"
#include "benchmarks/library.h"
#include "benchmarks/measure.h"
#include "benchmarks/raw_files.h"
#include "benchmarks/text_library.h"
#include "benchmarks/text_lines.h"

namespace {

using namespace vrxbench;

struct Registry {
  Registry(const std::string& file, unsigned long count)
      : path(file), records(count), wanted(count - 1) {}

  std::string path;
  unsigned long records;
  Wanted wanted;  // the last record

  unsigned long last() const { return records - 1; }
};

void change(const Registry& registry) {
  store::update(registry.path, Action::kChange, registry.records / 2, Form::kSecond);
}

void useDirectory(const Registry& registry) {
  directory::use(registry.path);
}

void setProfile(const Registry& registry) {
  const unsigned long number = registry.records / 2;
  profile::set(registry.path, settingName(number), settingValue(number, Form::kSecond));
}

void changeService(const Registry& registry) {
  const unsigned long number = registry.records / 2;
  services::change(registry.path, serviceName(number), servicePort(number, Form::kSecond));
}

struct Operation {
  const char* name;
  std::string (*itemOf)(unsigned long number, Form form);
  void (*run)(const Registry& registry);
};

const Operation kOperations[] = {
    {"lookup", frameOf, [](const Registry& r) { store::expectFound(r.path, r.wanted); }},
    {"scan", frameOf, [](const Registry& r) { store::scan(r.path, r.records, Look::kTexts); }},
    {"change", frameOf, change},
    {"directory-lookup", frameOf, [](const Registry& r) { directory::expectFound(r.wanted); }},
    {"directory-scan", frameOf,
     [](const Registry& r) { directory::scan(r.records, Look::kTexts); }},
    {"profile-get", settingLine,
     [](const Registry& r) { profile::get(r.path, settingName(r.last()), true); }},
    {"profile-list", settingLine, [](const Registry& r) { profile::list(r.path, r.records); }},
    {"profile-set", settingLine, setProfile},
    {"services-get", serviceLine,
     [](const Registry& r) { services::get(r.path, serviceName(r.last())); }},
    {"services-change", serviceLine, changeService},
};

void fill(const Operation& operation, const Registry& registry) {
  std::string bytes;
  for (unsigned long number = 0; number < registry.records; ++number)
    bytes += operation.itemOf(number, Form::kFirst);
  writeFile(registry.path, bytes);
}

// A first operation on another registry has the C library set up what it sets up once.
void warmUp(const Operation& operation, const Registry& registry) {
  const Registry small(registry.path + ".small", 10);
  fill(operation, small);
  useDirectory(small);
  operation.run(small);
}

void measure(const Operation& operation, const Registry& registry) {
  fill(operation, registry);
  warmUp(operation, registry);
  useDirectory(registry);
  const unsigned long before = allocationCount();
  (void)getppid();  // only the call matters
  operation.run(registry);
  (void)getppid();
  std::printf("%lu\n", allocationCount() - before);
}

}  // namespace

int main(int argc, char** argv) {
  require(argc == 4, "usage: vrxbench_costs OPERATION FILE RECORDS");
  const Registry registry(argv[2], std::strtoul(argv[3], nullptr, 10));
  for (const Operation& operation : kOperations) {
    if (std::strcmp(operation.name, argv[1]) != 0) continue;
    measure(operation, registry);
    return 0;
  }
  require(false, std::string("no such operation: ") + argv[1]);
}
