// SPDX-License-Identifier: Apache-2.0
// Reading and parsing line by line.
#include "genreg/text/internal/line_record.h"

#include <cstring>

#include "genreg/internal/features.h"

namespace genreg {

Continuations continuationsOf(const GenRegText& store) {
  return hasFeature(store, kGenRegJoinLines) ? Continuations::kJoined : Continuations::kKept;
}

void LineRecord::allocate(unsigned probe, unsigned long maxRecord) {
  maxRecord_ = maxRecord;
  (void)scratch_.reserve(probe, maxRecord);  // reported to the operation
}

LineStep LineRecord::next(Operation& op, GenRegStatus readFailure) {
  const bool came = reader_.next();
  if (reader_.hasError()) {
    op.fail(400, readFailure);
    return LineStep::kFailed;
  }
  return came ? parse(op) : LineStep::kEnd;
}

LineStep LineRecord::parse(Operation& op) {
  if (store_.parseLine == nullptr) {
    op.fail(410, status::no_parse_slot);
    return LineStep::kFailed;
  }
  const GenRegStatus rc = statusOf(store_.parseLine(record(), reader_.line()));
  parsed_ = rc == status::ok;
  if (!parsed_) {
    op.note(411, status::line_not_parsed, rc);
    std::memset(record(), 0, maxRecord_);
  }
  return LineStep::kLine;
}

}  // namespace genreg
