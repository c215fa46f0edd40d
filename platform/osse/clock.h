// SPDX-License-Identifier: Apache-2.0
// The time of day.
#pragma once

#include "platform/osse/export.h"

// Seconds since 1970-01-01 00:00:00 UTC, 64 bits in every build; -1 when the system cannot tell.
[[nodiscard]] VRXOSSE_API long long ossTimeGetUTC();
