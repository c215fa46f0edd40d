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
  if (maxRecord == maxRecord_ && scratch_.block() != nullptr) return;  // a scan's, from before
  maxRecord_ = maxRecord;
  (void)scratch_.reserve(probe, maxRecord);  // reported to the operation
}

LineStep LineRecord::next(Operation& op, GenRegStatus readFailure) {
  tried_ = parsed_ = false;
  const bool came = reader_.next();
  if (reader_.hasError()) {
    op.fail(400, readFailure);
    return LineStep::kFailed;
  }
  if (!came) return LineStep::kEnd;
  if (store_.parseLine != nullptr) return LineStep::kLine;
  op.fail(410, status::no_parse_slot);
  return LineStep::kFailed;
}

GenRegStatus LineRecord::parseLine(void* record) {
  const GenRegLineSlots* slots = store_.lineSlots;
  const bool hasWay = slots != nullptr && slots->parseLine == store_.parseLine;
  if (!hasWay || slots->parseText == nullptr || !reader_.isInPlace()) {
    return statusOf(store_.parseLine(record, reader_.line()));
  }
  return statusOf(slots->parseText(record, reader_.raw(), reader_.rawLength() - 1));
}

bool LineRecord::parseInto(Operation& op, void* record) {
  const GenRegStatus rc = parseLine(record);
  if (rc == status::ok) return true;
  op.note(411, status::line_not_parsed, rc);
  std::memset(record, 0, maxRecord_);
  return false;
}

}  // namespace genreg
