// SPDX-License-Identifier: Apache-2.0
// Lines that cannot be read or parsed.
#include "genreg/text/internal/line_record.h"

#include <cstring>

#include "genreg/internal/features.h"

namespace genreg {

Continuations continuationsOf(const GenRegText& store) {
  return hasFeature(store, kGenRegJoinLines) ? Continuations::kJoined : Continuations::kKept;
}

void LineRecord::allocate(unsigned probe, unsigned long maxRecord) {
  if (maxRecord == maxRecord_ && scratch_.block() != nullptr) return;  // a scan's, from before
  maxRecord_ = maxRecord;
  (void)scratch_.reserve(probe, maxRecord);  // reported to the operation
}

LineStep LineRecord::fail(Operation& op, unsigned probe, GenRegStatus code) {
  op.fail(probe, code);
  return LineStep::kFailed;
}

void LineRecord::noteUnparsed(Operation& op, GenRegStatus rc, void* record) {
  op.note(411, status::line_not_parsed, rc);
  std::memset(record, 0, maxRecord_);
}

}  // namespace genreg
