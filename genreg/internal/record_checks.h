// SPDX-License-Identifier: Apache-2.0
// Checks that the lookups, updates and verification of both stores share: slots, each tested just
// before its use, the caller's records, sizes.
#pragma once

#include "genreg/internal/operation.h"
#include "genreg/registry.h"

namespace genreg {

// Every bit of a field mask: records that agree under it are equal.
constexpr unsigned long long kAllFields = ~0ULL;

// Limits in bytes of a record's length, for writing and for a format's largest record.
constexpr unsigned long kMinRecordSize = 3;
constexpr unsigned long kMaxRecordSize = 0x100000;

// The smallest record that a lookup hands out: one of three bytes can be stored only.
constexpr unsigned long kMinResultSize = 4;

// Fails `op` with 0x900001E5 or 0x900001E6.
void refuseRecordSize(Operation& op, unsigned probe, unsigned long size);

// Does so when `size` is outside the limits.
inline void checkRecordSize(Operation& op, unsigned probe, unsigned long size) {
  if (size < kMinRecordSize || size > kMaxRecordSize) refuseRecordSize(op, probe, size);
}

// Fails `op` with 0x9000021B (no slot) or 0x900001FC.
inline void checkRecord(Operation& op, const GenRegFile& registry, unsigned long long mask,
                        void* record) {
  if (registry.validateRecord == nullptr) {
    op.fail(400, status::no_validate_slot);
    return;
  }
  const GenRegStatus rc = statusOf(registry.validateRecord(mask, record));
  if (rc != status::ok) op.fail(401, status::invalid_record, rc);
}

// The size of the format's largest record; 0 after a failure with 0x9000021D, 0x900001E5,
// 0x900001E6.
unsigned long measureMaxRecord(Operation& op, const GenRegFile& registry);

// Whether the stored record agrees with the given one. False after a failure with 0x9000021C.
bool matches(Operation& op, const GenRegFile& registry, unsigned long long mask, void* stored,
             void* given);

}  // namespace genreg
