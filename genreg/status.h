// SPDX-License-Identifier: Apache-2.0
// Status codes: what every function of the library returns, and what each value means.
//
// 0 is success. A failure is 0x9000xxxx, an unsigned 32-bit value; one value means one condition
// everywhere. Some functions return it as `int` (they always have, and callers link against that):
// there the same 32 bits are a negative number, so compare them as they stand,
//
//     if (registry.Get(mask, &key, &found) == genreg::statusInt(genreg::status::no_match)) ...
//
// and never widen an `int` status to 64 bits.
#pragma once

#include "genreg/export.h"
#include "platform/osse/status.h"

// A status code where the return type is not `int`.
using GenRegStatus = unsigned int;

namespace genreg {
namespace status {

// The codes by name. The platform layer's codes, which pass through, are in oss::status; the four
// that this library also raises itself are repeated here by reference.
enum Code : GenRegStatus {
#define VRX_STATUS(name, value, meaning, raisedBy, remedy) name = (value),
#include "genreg/status_codes.inc"
#undef VRX_STATUS
  ok = oss::status::ok,
  buffer_too_small = oss::status::buffer_too_small,
  invalid_argument = oss::status::invalid_argument,
  no_memory = oss::status::no_memory,
  lock_held = oss::status::lock_held,
};

}  // namespace status

// The 32 bits of a status as the `int` that some functions return.
constexpr int statusInt(GenRegStatus code) {
  return static_cast<int>(code);
}

// The status in the `int` that some functions return.
constexpr GenRegStatus statusOf(int code) {
  return static_cast<GenRegStatus>(code);
}

}  // namespace genreg

// One row of the status table. All strings are static and never null.
struct GenRegStatusInfo {
  GenRegStatus code;
  const char* name;      // lower_snake name, stable: scripts may compare it
  const char* meaning;   // one clause, no final full stop
  const char* raisedBy;  // the operations that return it
  const char* remedy;    // what to do next
};

// The row of `code`, of this library or of the platform layer; null for a code without a row (a
// system error, 0x90000080 + errno, has none). The row is static.
VRXGENREG_API const GenRegStatusInfo* genregStatusInfo(GenRegStatus code);

// All rows in ascending order of their codes; *count receives how many. The array is static.
VRXGENREG_API const GenRegStatusInfo* genregStatusTable(unsigned long* count);
