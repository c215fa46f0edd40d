// SPDX-License-Identifier: Apache-2.0
// How the time of an operation grows with the registry: the exponent of the number of records.
#pragma once

#include <string>
#include <vector>

#include "benchmarks/measure.h"

namespace vrxbench {

// 0 is a constant time, 1 a time in proportion to the records.
struct Growth {
  std::string set;
  std::string operation;
  std::string contender;
  double exponent;  // least squares over all sizes, both axes logarithmic
  double steepest;  // between the two largest sizes, where constant costs count least
};

// Above it something is done more than once a record.
constexpr double kLinear = 1.1;

// Of everything that was measured in three sizes or more.
std::vector<Growth> growthsOf(const std::vector<Timing>& timings);

}  // namespace vrxbench
