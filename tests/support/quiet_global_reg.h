// SPDX-License-Identifier: Apache-2.0
// A global registry at a path of the test's choosing that writes no change log and notifies nobody.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "globalreg/global_reg.h"

namespace vrxtest {

class QuietGlobalReg : public GlobalReg {
 public:
  explicit QuietGlobalReg(const std::string& path) : GlobalReg(true) {
    EXPECT_EQ(setRegistryPaths(path.c_str()), 0U);
    features = kGenRegVerifyCommit | kGenRegPacked;
  }
};

}  // namespace vrxtest
