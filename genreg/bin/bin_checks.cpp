// SPDX-License-Identifier: Apache-2.0
// Slot tests of the binary store, each made just before the slot's use.
#include "genreg/bin/internal/bin_checks.h"

#include "genreg/bin/internal/frame.h"

namespace genreg {

void checkRecord(Operation& op, const GenRegBin& store, unsigned long long mask, void* record) {
  if (store.validateRecord == nullptr) {
    op.fail(400, status::no_validate_slot);
    return;
  }
  const GenRegStatus rc = statusOf(store.validateRecord(mask, record));
  if (rc != status::ok) op.fail(401, status::invalid_record, rc);
}

unsigned long measureMaxRecord(Operation& op, const GenRegBin& store) {
  if (store.getMaxRecordSize == nullptr) {
    op.fail(410, status::no_max_size_slot);
    return 0;
  }
  unsigned long size = 0;
  const GenRegStatus rc = statusOf(store.getMaxRecordSize(&size));
  if (rc != status::ok) op.fail(411, rc);
  if (!op.failed()) checkRecordSize(op, 412, size);
  return op.failed() ? 0 : size;
}

bool matches(Operation& op, const GenRegBin& store, unsigned long long mask, void* stored,
             void* given) {
  if (store.matchRecord == nullptr) {
    op.fail(420, status::no_match_slot);
    return false;
  }
  return store.matchRecord(mask, stored, given) == 1;
}

}  // namespace genreg
