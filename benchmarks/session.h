// SPDX-License-Identifier: Apache-2.0
// One run of the benchmarks: what was asked for, and what has been measured so far.
#pragma once

#include <functional>
#include <regex>
#include <string>
#include <vector>

#include "benchmarks/measure.h"

namespace vrxbench {

// Updates of one registry by several processes at once.
struct Contention {
  std::string contender;
  std::string operation;
  unsigned long records;
  unsigned processes;
  std::vector<double> rates;  // updates a second, one number for each round
  double median;              // seconds of one update, waiting included, over all rounds
  double percentile99;
};

struct Session {
  std::string folder;  // where the registries are; on the file system that is to be measured
  bool quick;
  std::regex only;
  std::vector<Timing> timings;
  std::vector<Contention> contentions;

  bool wants(const std::string& set, const std::string& operation, unsigned long records) const;

  // Measures those of the cases that are wanted, in this order, after `prepare`, which makes their
  // files; nothing is made when none is wanted.
  void run(const std::vector<Case>& cases, const std::function<void()>& prepare);

  // A new, empty folder for the files of one set and size.
  std::string makeFolder(const std::string& name) const;
};

// The sizes that are measured, in a quick run those up to kLargestQuick.
constexpr unsigned long kRecordSizes[] = {10, 100, 1000, 10000, 100000};
constexpr unsigned long kProfileSizes[] = {10, 100, 1000, 10000};
constexpr unsigned long kServicesSizes[] = {274, 2744, 27440};
constexpr unsigned long kProgramSizes[] = {100, 1000};
constexpr unsigned long kLargestQuick = 1000;

// The sets of cases, each in a file of its own.
void measureRecords(Session& session, unsigned long records);
void measureProfiles(Session& session, unsigned long lines);
void measureServices(Session& session, unsigned long lines);
void measurePrograms(Session& session, unsigned long records);
void measureContention(Session& session);

}  // namespace vrxbench
