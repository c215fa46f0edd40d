// SPDX-License-Identifier: Apache-2.0
// Rounds, samples and medians.
#include "benchmarks/measure.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>

namespace vrxbench {
namespace {

using Clock = std::chrono::steady_clock;

// A sample repeats the operation for about this long, so that the clock's own cost does not count.
constexpr double kSampleSeconds = 0.002;
constexpr unsigned kMostRepetitions = 500;

double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

double timeOnce(const Contender& contender) {
  const Clock::time_point start = Clock::now();
  contender.run();
  const double seconds = secondsSince(start);
  if (contender.restore) contender.restore();
  return seconds;
}

// What can be repeated is timed as one stretch; what has to be undone is timed piece by piece.
double timeSample(const Contender& contender, unsigned repetitions) {
  double seconds = 0;
  if (contender.restore) {
    for (unsigned i = 0; i < repetitions; ++i)
      seconds += timeOnce(contender);
    return seconds / repetitions;
  }
  const Clock::time_point start = Clock::now();
  for (unsigned i = 0; i < repetitions; ++i)
    contender.run();
  return secondsSince(start) / repetitions;
}

unsigned repetitionsFor(double seconds) {
  const double wanted = kSampleSeconds / std::max(seconds, 1e-9);
  return static_cast<unsigned>(std::clamp(wanted, 1.0, double{kMostRepetitions}));
}

double quantile(const std::vector<double>& sorted, double part) {
  const double place = part * static_cast<double>(sorted.size() - 1);
  const auto below = static_cast<std::size_t>(place);
  const std::size_t above = std::min(below + 1, sorted.size() - 1);
  return sorted[below] + (place - static_cast<double>(below)) * (sorted[above] - sorted[below]);
}

void runRound(const Case& subject, unsigned round, const std::vector<unsigned>& repetitions,
              std::vector<Timing>& timings) {
  const std::size_t count = subject.contenders.size();
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t turn = (i + round) % count;
    timings[turn].rounds.push_back(timeSample(subject.contenders[turn], repetitions[turn]));
  }
}

}  // namespace

Spread spreadOf(std::vector<double> values) {
  require(!values.empty(), "a median of nothing");
  std::sort(values.begin(), values.end());
  return {quantile(values, 0.25), quantile(values, 0.5), quantile(values, 0.75)};
}

Spread ratioOf(const Timing& subject, const Timing& base) {
  std::vector<double> ratios;
  const std::size_t rounds = std::min(subject.rounds.size(), base.rounds.size());
  for (std::size_t i = 0; i < rounds; ++i)
    ratios.push_back(subject.rounds[i] / base.rounds[i]);
  Spread ratio = spreadOf(ratios);
  ratio.median = spreadOf(subject.rounds).median / spreadOf(base.rounds).median;
  return ratio;
}

std::vector<Timing> measure(const Case& subject, const Effort& effort) {
  std::vector<Timing> timings;
  std::vector<unsigned> repetitions;
  for (const Contender& contender : subject.contenders) {
    timings.push_back({subject.set, subject.operation, subject.records, contender.name, {}});
    const double cold = timeOnce(contender);  // also brings its files into the page cache
    const double warm = timeOnce(contender);
    repetitions.push_back(repetitionsFor(std::min(cold, warm)));
  }
  const Clock::time_point start = Clock::now();
  for (unsigned round = 0; round < effort.mostRounds; ++round) {
    if (round >= effort.fewestRounds && secondsSince(start) > effort.seconds) break;
    runRound(subject, round, repetitions, timings);
  }
  return timings;
}

void require(bool condition, const std::string& what) {
  if (condition) return;
  std::fprintf(stderr, "bench: %s\n", what.c_str());
  std::exit(1);
}

}  // namespace vrxbench
