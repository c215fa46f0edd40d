// SPDX-License-Identifier: Apache-2.0
// vrxbench [--quick] [--only PATTERN] [--folder FOLDER]: measures, prints the table, and writes
// FOLDER/results.json. `./dev bench` runs it where the library's fixed paths are private.
//
// Exits with 0 when everything ran and did what it should, whatever the figures: a busy machine
// makes figures wrong, and a program cannot know.
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>

#include "benchmarks/reports.h"
#include "benchmarks/session.h"

namespace {

using vrxbench::Session;

[[noreturn]] void usage() {
  std::fputs("usage: vrxbench [--quick] [--only PATTERN] [--folder FOLDER]\n", stderr);
  std::exit(2);
}

Session parseArguments(int count, char** arguments) {
  Session session = {"build/bench", false, std::regex(""), {}, {}};
  for (int i = 1; i < count; ++i) {
    const std::string option = arguments[i];
    const bool hasValue = i + 1 < count;
    if (option == "--quick") {
      session.quick = true;
    } else if (option == "--only" && hasValue) {
      session.only = std::regex(arguments[++i]);
    } else if (option == "--folder" && hasValue) {
      session.folder = arguments[++i];
    } else {
      usage();
    }
  }
  return session;
}

template <std::size_t count>
void measureSizes(Session& session, const unsigned long (&sizes)[count],
                  void (*measure)(Session&, unsigned long)) {
  for (const unsigned long size : sizes) {
    if (!session.quick || size <= vrxbench::kLargestQuick) measure(session, size);
  }
}

void measureAll(Session& session) {
  measureSizes(session, vrxbench::kRecordSizes, vrxbench::measureRecords);
  measureSizes(session, vrxbench::kProfileSizes, vrxbench::measureProfiles);
  measureSizes(session, vrxbench::kServicesSizes, vrxbench::measureServices);
  measureSizes(session, vrxbench::kProgramSizes, vrxbench::measurePrograms);
  vrxbench::measureContention(session);
}

}  // namespace

int main(int argc, char** argv) try {
  Session session = parseArguments(argc, argv);
  std::filesystem::create_directories(session.folder);
  session.folder = std::filesystem::canonical(session.folder).string();
  measureAll(session);
  vrxbench::printTable(stdout, session);
  vrxbench::require(vrxbench::writeJson(session.folder + "/results.json", session),
                    "results.json cannot be written");
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "bench: %s\n", error.what());
  return 1;
}
