// SPDX-License-Identifier: Apache-2.0
// A registry of some format and its model, both given the same random operations.
#pragma once

#include <memory>
#include <string>

namespace vrxtest::model {

class Comparison {
 public:
  virtual ~Comparison() = default;
  // One operation by a fresh object, and a scan by another one. What disagrees, or nothing; a
  // comparison that has disagreed is not to be continued.
  virtual std::string step() = 0;
};

// profile, services, inittab.
std::unique_ptr<Comparison> textComparison(const std::string& format, const std::string& path,
                                           unsigned long seed);
// global, binvar, bigendian, checksum.
std::unique_ptr<Comparison> binaryComparison(const std::string& format, const std::string& path,
                                             unsigned long seed);

}  // namespace vrxtest::model
