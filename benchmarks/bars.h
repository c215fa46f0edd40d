// SPDX-License-Identifier: Apache-2.0
// What the library's speed is held to: ratios within one run, so that they hold on every machine.
#pragma once

#include <string>
#include <vector>

#include "benchmarks/session.h"

namespace vrxbench {

// kNotMeasured when a run left out what the bar is about.
enum class Outcome : unsigned char { kMet, kNotMet, kNotMeasured };

struct Verdict {
  std::string bar;
  double limit;
  Outcome outcome;
  Spread figure;      // of the case that comes nearest to the bar or is farthest beyond it
  std::string where;  // that case
  unsigned cases;     // that the bar is about
  unsigned beyond;    // those of them that miss it
  unsigned clearly;   // those that miss it in three rounds of four: the lower quartile does
};

std::vector<Verdict> judge(const std::vector<Timing>& timings);

}  // namespace vrxbench
