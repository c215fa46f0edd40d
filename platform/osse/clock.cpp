// SPDX-License-Identifier: Apache-2.0
// The time of day.
#include "platform/osse/clock.h"

#include <ctime>

// A 32-bit build without the 64-bit clock would end in 2038.
static_assert(sizeof(std::time_t) == 8, "build with _TIME_BITS=64 and _FILE_OFFSET_BITS=64");

long long ossTimeGetUTC() {
  return static_cast<long long>(std::time(nullptr));
}
