// SPDX-License-Identifier: Apache-2.0
// The bars as a table, and the worst case of each.
#include "benchmarks/bars.h"

#include <regex>

#include "benchmarks/growth.h"

namespace vrxbench {
namespace {

constexpr unsigned long kAnySize = 0;
constexpr unsigned long kNoLargest = ~0UL;

// The subject's time over that of each of the others may be at most `limit` in every case whose
// operation fits, between the two sizes.
struct Bar {
  const char* text;
  const char* set;
  const char* operations;
  const char* subject;
  const char* against;
  unsigned long smallest;
  unsigned long largest;
  double limit;
};

const Bar kBars[] = {
    {"lookup at most 1.5 x floor from 100 records up", "instances", "lookup.*", "store", "floor",
     100, kNoLargest, 1.5},
    {"scan at most 1.5 x floor from 100 records up", "instances", "scan", "store", "floor", 100,
     kNoLargest, 1.5},
    {"lookup of the instance directory at most 1.5 x floor from 100 records up", "instances",
     "lookup.*", "directory", "floor", 100, kNoLargest, 1.5},
    {"scan of the instance directory at most 3 x floor from 100 records up", "instances", "scan",
     "directory", "floor", 100, kNoLargest, 3},
    {"update at most 1.15 x discipline, durable", "instances", "(insert|change|delete) durable",
     "store", "discipline", kAnySize, kNoLargest, 1.15},
    {"update at most 1.15 x discipline, unsynced", "instances", "(insert|change|delete) unsynced",
     "store", "discipline", kAnySize, kNoLargest, 1.15},
    {"lookups ahead of SQLite, tdb and LMDB up to 1,000 records", "instances", "lookup.*", "store",
     "sqlite|sqlite wal|tdb|lmdb", kAnySize, 1000, 1},
    {"scans ahead of SQLite, tdb and LMDB at every size", "instances", "read all", "store",
     "sqlite|sqlite wal|tdb|lmdb", kAnySize, kNoLargest, 1},
    {"durable change ahead of SQLite and tdb up to 1,000 records", "instances", "change durable",
     "store", "sqlite|sqlite wal|tdb", kAnySize, 1000, 1},
    {"text: get and list at most 1.5 x floor from 100 lines up", "profile|services", "get.*|list",
     "store", "floor", 100, kNoLargest, 1.5},
    {"text: set at most 1.5 x floor, durable", "profile|services", "(set|change) durable", "store",
     "floor", kAnySize, kNoLargest, 1.5},
    {"text: set at most 1.5 x floor, unsynced", "profile|services", "(set|change) unsynced",
     "store", "floor", kAnySize, kNoLargest, 1.5},
    {"text: changing one line of 27,440 under 15 x copying the file", "services", "change unsynced",
     "store", "copy", 27440, 27440, 15},
    {"vrxreg get at most 2 x a program that only starts", "programs", ".* get", "vrxreg", "hello",
     kAnySize, kNoLargest, 2},
};

bool fits(const std::string& text, const char* pattern) {
  return std::regex_match(text, std::regex(pattern));
}

bool concerns(const Bar& bar, const Timing& timing) {
  return timing.records >= bar.smallest && timing.records <= bar.largest &&
         timing.contender == bar.subject && fits(timing.set, bar.set) &&
         fits(timing.operation, bar.operations);
}

bool isRival(const Bar& bar, const Timing& subject, const Timing& other) {
  return other.set == subject.set && other.operation == subject.operation &&
         other.records == subject.records && fits(other.contender, bar.against);
}

std::string describe(const Timing& subject, const Timing& rival) {
  return subject.set + ", " + subject.operation + ", " + std::to_string(subject.records) +
         ", over " + rival.contender;
}

// Counts one case; the worst one is kept.
void weigh(Verdict& verdict, const Spread& figure, const std::string& where) {
  const bool worst = verdict.cases == 0 || figure.median > verdict.figure.median;
  ++verdict.cases;
  verdict.beyond += figure.median > verdict.limit ? 1 : 0;
  verdict.clearly += figure.low > verdict.limit ? 1 : 0;
  verdict.outcome = verdict.beyond == 0 ? Outcome::kMet : Outcome::kNotMet;
  if (!worst) return;
  verdict.figure = figure;
  verdict.where = where;
}

Verdict newVerdict(const char* bar, double limit) {
  return {bar, limit, Outcome::kNotMeasured, {0, 0, 0}, "", 0, 0, 0};
}

Verdict judgeBar(const Bar& bar, const std::vector<Timing>& timings) {
  Verdict verdict = newVerdict(bar.text, bar.limit);
  for (const Timing& subject : timings) {
    if (!concerns(bar, subject)) continue;
    for (const Timing& rival : timings) {
      if (isRival(bar, subject, rival))
        weigh(verdict, ratioOf(subject, rival), describe(subject, rival));
    }
  }
  return verdict;
}

// The library's own operations alone: how the peers grow is theirs.
bool isOurs(const Growth& growth) {
  return growth.contender == "store" || growth.contender == "directory";
}

Verdict judgeGrowth(const std::vector<Timing>& timings) {
  Verdict verdict = newVerdict("no cost grows faster than the records", kLinear);
  for (const Growth& growth : growthsOf(timings)) {
    if (!isOurs(growth)) continue;
    const Spread figure = {growth.exponent, growth.exponent, growth.exponent};
    weigh(verdict, figure, growth.set + ", " + growth.operation + ", " + growth.contender);
  }
  return verdict;
}

}  // namespace

std::vector<Verdict> judge(const std::vector<Timing>& timings) {
  std::vector<Verdict> verdicts;
  for (const Bar& bar : kBars)
    verdicts.push_back(judgeBar(bar, timings));
  verdicts.push_back(judgeGrowth(timings));
  return verdicts;
}

}  // namespace vrxbench
