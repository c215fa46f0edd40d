// SPDX-License-Identifier: Apache-2.0
// Measuring contenders against each other, one operation at a time.
//
// The contenders of a case take turns: each round runs every one of them once, beginning with
// another one each time. What disturbs the machine then disturbs all of them, and a ratio of two
// medians means something even on a busy host. A general benchmark library runs one contender to
// its end before the next, pauses its clock at a price, and knows neither whole processes nor
// contention; so the driver is our own, and small.
//
// Not here: what is measured (the *_cases files) and what the numbers are held to (bars.h).
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace vrxbench {

// One way of doing an operation. `run` does it once and ends the program when the outcome is wrong:
// a benchmark of something else than the operation is worth nothing.
struct Contender {
  std::string name;
  std::function<void()> run;
  std::function<void()> restore;  // undoes it, unmeasured; empty when it can be repeated as it is
};

// Contenders for one operation on registries of one size. Cases of one set share their columns in
// the table; the first contender of a set is what the others are compared with there.
struct Case {
  std::string set;
  std::string operation;
  unsigned long records;
  std::vector<Contender> contenders;
};

// The seconds that one contender took for one operation, a number for each round.
struct Timing {
  std::string set;
  std::string operation;
  unsigned long records;
  std::string contender;
  std::vector<double> rounds;
};

// A middle and the quartiles around it.
struct Spread {
  double low;
  double median;
  double high;
};

Spread spreadOf(std::vector<double> values);

// The ratio of the two medians, between the quartiles of the ratios within one round.
Spread ratioOf(const Timing& subject, const Timing& base);

// How long a case may take.
struct Effort {
  unsigned fewestRounds;
  unsigned mostRounds;
  double seconds;  // of one case; further rounds begin only before that
};

constexpr Effort kFullEffort = {7, 41, 3.0};
constexpr Effort kQuickEffort = {3, 3, 0.0};

// Measures one case and returns the timings in the order of its contenders.
std::vector<Timing> measure(const Case& subject, const Effort& effort);

// Ends the program with a message unless `condition` holds.
void require(bool condition, const std::string& what);

}  // namespace vrxbench
