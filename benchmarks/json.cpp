// SPDX-License-Identifier: Apache-2.0
// The results as JSON. All texts in it are ours and need no escapes.
#include "benchmarks/growth.h"
#include "benchmarks/reports.h"

namespace vrxbench {
namespace {

// Writes the elements of a list, each on a line of its own.
template <typename Range, typename Write>
void writeList(std::FILE* out, const char* name, const Range& range, const Write& write) {
  std::fprintf(out, "  \"%s\": [", name);
  const char* separator = "\n    ";
  for (const auto& element : range) {
    std::fputs(separator, out);
    write(element);
    separator = ",\n    ";
  }
  std::fputs("\n  ]", out);
}

void writeNumbers(std::FILE* out, const std::vector<double>& numbers) {
  std::fputc('[', out);
  const char* separator = "";
  for (const double number : numbers) {
    std::fprintf(out, "%s%.9g", separator, number);
    separator = ", ";
  }
  std::fputc(']', out);
}

void writeTiming(std::FILE* out, const Timing& timing) {
  const Spread spread = spreadOf(timing.rounds);
  std::fprintf(out,
               "{\"set\": \"%s\", \"operation\": \"%s\", \"records\": %lu, \"contender\": \"%s\", "
               "\"median\": %.9g, \"low\": %.9g, \"high\": %.9g, \"rounds\": ",
               timing.set.c_str(), timing.operation.c_str(), timing.records,
               timing.contender.c_str(), spread.median, spread.low, spread.high);
  writeNumbers(out, timing.rounds);
  std::fputc('}', out);
}

void writeContention(std::FILE* out, const Contention& contention) {
  std::fprintf(out,
               "{\"operation\": \"%s\", \"records\": %lu, \"processes\": %u, \"contender\": "
               "\"%s\", \"median\": %.9g, \"percentile99\": %.9g, \"rates\": ",
               contention.operation.c_str(), contention.records, contention.processes,
               contention.contender.c_str(), contention.median, contention.percentile99);
  writeNumbers(out, contention.rates);
  std::fputc('}', out);
}

void writeGrowth(std::FILE* out, const Growth& growth) {
  std::fprintf(out,
               "{\"set\": \"%s\", \"operation\": \"%s\", \"contender\": \"%s\", \"exponent\": "
               "%.4f, \"steepest\": %.4f}",
               growth.set.c_str(), growth.operation.c_str(), growth.contender.c_str(),
               growth.exponent, growth.steepest);
}

void writeVerdict(std::FILE* out, const Verdict& verdict) {
  std::fprintf(out,
               "{\"bar\": \"%s\", \"outcome\": \"%s\", \"figure\": %.4f, \"low\": %.4f, "
               "\"high\": %.4f, \"limit\": %.4f, \"where\": \"%s\", \"cases\": %u, "
               "\"beyond\": %u, \"clearly\": %u}",
               verdict.bar.c_str(), nameOf(verdict.outcome), verdict.figure.median,
               verdict.figure.low, verdict.figure.high, verdict.limit, verdict.where.c_str(),
               verdict.cases, verdict.beyond, verdict.clearly);
}

}  // namespace

bool writeJson(const std::string& path, const Session& session) {
  std::FILE* out = std::fopen(path.c_str(), "w");
  if (out == nullptr) return false;
  std::fprintf(out, "{\n  \"quick\": %s,\n", session.quick ? "true" : "false");
  writeList(out, "timings", session.timings, [&](const Timing& t) { writeTiming(out, t); });
  std::fputs(",\n", out);
  writeList(out, "contention", session.contentions,
            [&](const Contention& c) { writeContention(out, c); });
  std::fputs(",\n", out);
  writeList(out, "growth", growthsOf(session.timings),
            [&](const Growth& g) { writeGrowth(out, g); });
  std::fputs(",\n", out);
  writeList(out, "bars", judge(session.timings), [&](const Verdict& v) { writeVerdict(out, v); });
  std::fputs("\n}\n", out);
  const bool written = std::ferror(out) == 0;
  return std::fclose(out) == 0 && written;
}

}  // namespace vrxbench
