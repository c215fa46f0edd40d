// SPDX-License-Identifier: Apache-2.0
// Straight lines through logarithms.
#include "benchmarks/growth.h"

#include <algorithm>
#include <cmath>

namespace vrxbench {
namespace {

constexpr std::size_t kFewestSizes = 3;

struct Point {
  double x;
  double y;
};

Point pointOf(const Timing& timing) {
  return {std::log(static_cast<double>(timing.records)), std::log(spreadOf(timing.rounds).median)};
}

double slope(const Point& a, const Point& b) {
  return (b.y - a.y) / (b.x - a.x);
}

double leastSquares(const std::vector<Point>& points) {
  Point mean = {0, 0};
  for (const Point& point : points) {
    mean.x += point.x / static_cast<double>(points.size());
    mean.y += point.y / static_cast<double>(points.size());
  }
  double xx = 0;
  double xy = 0;
  for (const Point& point : points) {
    xx += (point.x - mean.x) * (point.x - mean.x);
    xy += (point.x - mean.x) * (point.y - mean.y);
  }
  return xy / xx;
}

bool isSameLine(const Timing& a, const Timing& b) {
  return a.set == b.set && a.operation == b.operation && a.contender == b.contender;
}

std::vector<Point> lineThrough(const std::vector<Timing>& timings, const Timing& first) {
  std::vector<Point> points;
  for (const Timing& timing : timings) {
    if (isSameLine(timing, first)) points.push_back(pointOf(timing));
  }
  const auto byRecords = [](const Point& a, const Point& b) { return a.x < b.x; };
  std::sort(points.begin(), points.end(), byRecords);
  return points;
}

}  // namespace

std::vector<Growth> growthsOf(const std::vector<Timing>& timings) {
  std::vector<Growth> growths;
  for (auto timing = timings.begin(); timing != timings.end(); ++timing) {
    const auto isEarlier = [&](const Timing& other) { return isSameLine(other, *timing); };
    if (std::any_of(timings.begin(), timing, isEarlier)) continue;
    const std::vector<Point> points = lineThrough(timings, *timing);
    if (points.size() < kFewestSizes) continue;
    growths.push_back({timing->set, timing->operation, timing->contender, leastSquares(points),
                       slope(points[points.size() - 2], points.back())});
  }
  return growths;
}

}  // namespace vrxbench
