// SPDX-License-Identifier: Apache-2.0
// That a piece of code gives back what it took: descriptors and blocks of ossMemAlloc.
#pragma once

#include <gtest/gtest.h>

#include "platform/osse/memory.h"
#include "tests/support/temp_dir.h"

namespace vrxtest {

// Fails the test when more or fewer descriptors or blocks are held at its end than at its
// beginning. Construct it before the objects that it watches.
class LeakCheck {
 public:
  LeakCheck() : descriptors_(openDescriptorCount()), blocks_(ossMemLiveBlocks()) {}
  ~LeakCheck() {
    EXPECT_EQ(openDescriptorCount(), descriptors_) << "descriptors";
    EXPECT_EQ(ossMemLiveBlocks(), blocks_) << "memory blocks";
  }
  LeakCheck(const LeakCheck&) = delete;
  LeakCheck& operator=(const LeakCheck&) = delete;

 private:
  const int descriptors_;
  const unsigned long blocks_;
};

}  // namespace vrxtest
