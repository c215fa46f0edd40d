// SPDX-License-Identifier: Apache-2.0
// Choosing and running cases.
#include "benchmarks/session.h"

#include <unistd.h>

#include <cstdio>
#include <filesystem>

namespace vrxbench {

bool Session::wants(const std::string& set, const std::string& operation,
                    unsigned long records) const {
  return std::regex_search(set + "/" + operation + "/" + std::to_string(records), only);
}

void Session::run(const std::vector<Case>& cases, const std::function<void()>& prepare) {
  bool prepared = false;
  for (const Case& subject : cases) {
    if (!wants(subject.set, subject.operation, subject.records)) continue;
    if (!prepared) prepare();
    prepared = true;
    std::fprintf(stderr, "%s, %s, %lu\n", subject.set.c_str(), subject.operation.c_str(),
                 subject.records);
    sync();  // what earlier cases have left to be written is not this one's cost
    for (Timing& timing : measure(subject, quick ? kQuickEffort : kFullEffort))
      timings.push_back(std::move(timing));
  }
}

std::string Session::makeFolder(const std::string& name) const {
  const std::string path = folder + "/" + name;
  std::filesystem::remove_all(path);
  std::filesystem::create_directories(path);
  return path;
}

}  // namespace vrxbench
