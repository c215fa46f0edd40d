// SPDX-License-Identifier: Apache-2.0
// Slot tests and size limits; the check of a record itself is in the header.
#include "genreg/internal/record_checks.h"

namespace genreg {

void refuseRecordSize(Operation& op, unsigned probe, unsigned long size) {
  const GenRegStatus code =
      size < kMinRecordSize ? status::record_too_small : status::record_too_large;
  op.explain(probe, code, "size", size);
  op.fail(probe, code);
}

bool matches(Operation& op, const GenRegFile& registry, unsigned long long mask, void* stored,
             void* given) {
  if (registry.matchRecord == nullptr) {
    op.fail(420, status::no_match_slot);
    return false;
  }
  return registry.matchRecord(mask, stored, given) == 1;
}

unsigned long measureMaxRecord(Operation& op, const GenRegFile& registry) {
  if (registry.getMaxRecordSize == nullptr) {
    op.fail(410, status::no_max_size_slot);
    return 0;
  }
  unsigned long size = 0;
  const GenRegStatus rc = statusOf(registry.getMaxRecordSize(&size));
  if (rc != status::ok) op.fail(411, rc);
  if (!op.failed()) checkRecordSize(op, 412, size);
  return op.failed() ? 0 : size;
}

}  // namespace genreg
