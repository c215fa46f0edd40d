// SPDX-License-Identifier: Apache-2.0
// Laying the medians out.
#include <algorithm>

#include "benchmarks/formatted.h"
#include "benchmarks/growth.h"
#include "benchmarks/reports.h"

namespace vrxbench {
namespace {

constexpr int kCellWidth = 24;
constexpr double kLargeRatio = 100;  // from here on without decimals
constexpr double kMicro = 1e-6;
constexpr double kMilli = 1e-3;

std::string timeText(double seconds) {
  if (seconds < kMilli) return formatted("%.1f us", seconds / kMicro);
  if (seconds < 1) return formatted("%.2f ms", seconds / kMilli);
  return formatted("%.2f s", seconds);
}

template <typename Range, typename Key>
std::vector<std::string> distinct(const Range& range, const Key& key) {
  std::vector<std::string> names;
  for (const auto& element : range) {
    const std::string name = key(element);
    if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
  }
  return names;
}

// The yardsticks first, then the rest as they were measured.
std::vector<std::string> columnsOf(const std::vector<Timing>& timings) {
  std::vector<std::string> names =
      distinct(timings, [](const Timing& timing) { return timing.contender; });
  const std::string yardsticks[] = {"hello", "floor", "floor fields", "discipline", "copy"};
  const auto rank = [&](const std::string& name) {
    return std::find(std::begin(yardsticks), std::end(yardsticks), name) - yardsticks;
  };
  std::stable_sort(names.begin(), names.end(),
                   [&](const std::string& a, const std::string& b) { return rank(a) < rank(b); });
  return names;
}

const Timing* find(const std::vector<Timing>& row, const std::string& contender) {
  for (const Timing& timing : row) {
    if (timing.contender == contender) return &timing;
  }
  return nullptr;
}

// The median; behind it the ratio to the first of the row, and half the width of its quartiles.
std::string cellOf(const std::vector<Timing>& row, const Timing& timing) {
  const std::string median = timeText(spreadOf(timing.rounds).median);
  if (timing.contender == row.front().contender) return median;
  const Spread ratio = ratioOf(timing, row.front());
  const int decimals = ratio.median < kLargeRatio ? 2 : 0;
  const double half = (ratio.high - ratio.low) / 2;
  return median + formatted("  %.*f~%.*f", decimals, ratio.median, decimals, half);
}

void printRow(std::FILE* out, const std::vector<Timing>& row,
              const std::vector<std::string>& contenders) {
  std::fprintf(out, "%-16s %7lu", row.front().operation.c_str(), row.front().records);
  for (const std::string& contender : contenders) {
    const Timing* timing = find(row, contender);
    std::fprintf(out, "%*s", kCellWidth, timing == nullptr ? "-" : cellOf(row, *timing).c_str());
  }
  std::fputc('\n', out);
}

std::string operationOf(const Timing& timing) {
  return timing.operation;
}

// Rows by operation, and within it by size as it was measured.
void printSet(std::FILE* out, const std::string& set, const std::vector<Timing>& timings) {
  std::vector<Timing> own;
  for (const Timing& timing : timings) {
    if (timing.set == set) own.push_back(timing);
  }
  const std::vector<std::string> contenders = columnsOf(own);
  std::fprintf(out, "\n%-16s %7s", set.c_str(), set == "instances" ? "records" : "lines");
  for (const std::string& contender : contenders)
    std::fprintf(out, "%*s", kCellWidth, contender.c_str());
  std::fputc('\n', out);
  for (const std::string& operation : distinct(own, operationOf)) {
    std::vector<Timing> row;
    for (const Timing& timing : own) {
      if (timing.operation != operation) continue;
      if (!row.empty() && row.front().records != timing.records) {
        printRow(out, row, contenders);
        row.clear();
      }
      row.push_back(timing);
    }
    printRow(out, row, contenders);
  }
}

void printContentions(std::FILE* out, const std::vector<Contention>& contentions) {
  if (contentions.empty()) return;
  std::fprintf(out, "\n%-16s %7s %10s%22s%14s%14s%14s\n", "contention", "records", "processes",
               "contender", "updates/s", "median", "99 in 100");
  for (const Contention& contention : contentions) {
    std::fprintf(out, "%-16s %7lu %10u%22s%14.0f%14s%14s\n", contention.operation.c_str(),
                 contention.records, contention.processes, contention.contender.c_str(),
                 spreadOf(contention.rates).median, timeText(contention.median).c_str(),
                 timeText(contention.percentile99).c_str());
  }
}

void printGrowths(std::FILE* out, const std::vector<Timing>& timings) {
  const std::vector<Growth> growths = growthsOf(timings);
  if (growths.empty()) return;
  std::fprintf(out, "\n%-30s %-14s %9s %16s\n", "growth", "contender", "exponent", "largest sizes");
  for (const Growth& growth : growths) {
    const std::string operation = growth.set + ", " + growth.operation;
    const char* flag = growth.exponent > kLinear ? "  worse than linear" : "";
    std::fprintf(out, "%-30s %-14s %9.2f %16.2f%s\n", operation.c_str(), growth.contender.c_str(),
                 growth.exponent, growth.steepest, flag);
  }
}

void printVerdict(std::FILE* out, const Verdict& verdict) {
  std::fprintf(out, "%-13s %s", nameOf(verdict.outcome), verdict.bar.c_str());
  if (verdict.outcome != Outcome::kNotMeasured) {
    std::fprintf(out, ": %.2f (%.2f to %.2f; %s)", verdict.figure.median, verdict.figure.low,
                 verdict.figure.high, verdict.where.c_str());
  }
  if (verdict.outcome == Outcome::kNotMet) {
    std::fprintf(out, "; %u of %u cases beyond, %u clearly", verdict.beyond, verdict.cases,
                 verdict.clearly);
  }
  std::fputc('\n', out);
}

void printVerdicts(std::FILE* out, const std::vector<Timing>& timings) {
  std::fputs("\nThe worst case of each bar, and the quartiles of its ratio.\n", out);
  for (const Verdict& verdict : judge(timings))
    printVerdict(out, verdict);
}

}  // namespace

const char* nameOf(Outcome outcome) {
  switch (outcome) {
    case Outcome::kMet:
      return "met";
    case Outcome::kNotMet:
      return "NOT MET";
    case Outcome::kNotMeasured:
      break;
  }
  return "not measured";
}

void printTable(std::FILE* out, const Session& session) {
  std::fputs(
      "Medians over all rounds. Behind each, its ratio to the first column and half the distance\n"
      "between the quartiles of that ratio.\n",
      out);
  for (const std::string& set :
       distinct(session.timings, [](const Timing& timing) { return timing.set; }))
    printSet(out, set, session.timings);
  printContentions(out, session.contentions);
  printGrowths(out, session.timings);
  printVerdicts(out, session.timings);
}

}  // namespace vrxbench
