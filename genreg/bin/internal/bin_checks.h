// SPDX-License-Identifier: Apache-2.0
// Checks that the binary store's lookups, updates and verification share, each with the code of its
// finding.
#pragma once

#include "genreg/bin/bin_store.h"
#include "genreg/internal/operation.h"

namespace genreg {

// Every bit of a field mask: records that agree under it are equal.
constexpr unsigned long long kAllFields = ~0ULL;

// Fails `op` with 0x9000021B (no slot) or 0x900001FC.
void checkRecord(Operation& op, const GenRegBin& store, unsigned long long mask, void* record);

// The size of the format's largest record; 0 after a failure with 0x9000021D, 0x900001E5,
// 0x900001E6.
unsigned long measureMaxRecord(Operation& op, const GenRegBin& store);

// Whether the stored record agrees with the given one. False after a failure with 0x9000021C.
bool matches(Operation& op, const GenRegBin& store, unsigned long long mask, void* stored,
             void* given);

}  // namespace genreg
