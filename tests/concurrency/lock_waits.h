// SPDX-License-Identifier: Apache-2.0
// How long a process that waits for a registry's lock goes on waiting when the holder is killed.
#pragma once

#include <chrono>
#include <vector>

namespace vrxtest {

// Kills a holder `deaths` times. The times from before each kill to when the waiter has the lock,
// in the order of the deaths; a waiter that never has it leaves its time out. The registry is the
// one that VRX_GLOBAL_REG_PATHNAME names.
std::vector<std::chrono::microseconds> waitsAfterDeaths(unsigned deaths);

}  // namespace vrxtest
