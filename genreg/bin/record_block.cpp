// SPDX-License-Identifier: Apache-2.0
// Packing and unpacking in place, within bounds that the format's slots do not know.
#include "genreg/bin/internal/record_block.h"

#include <algorithm>
#include <cstring>

namespace genreg {
namespace {

// The headers of every field entry that a packed image can have, and its trailer.
constexpr unsigned long kEntryOverhead = 0x100;

// A packed image is walked entry by entry before its end is known. Zeros behind the image end every
// walk: an entry that starts inside may reach 64 KiB beyond, and each that follows is then empty.
constexpr unsigned long kWalkSlack = 0x10000 + kEntryOverhead;

}  // namespace

// Packing in place needs room for the record's own fields, for what is carried over from the stored
// image, and for the walk over either.
unsigned long RecordBlock::roomFor(unsigned long length) const {
  if (!store_.isFeatureSet(kGenRegPacked)) return std::max(length, maxRecord_);
  return length + maxRecord_ + kWalkSlack;
}

void RecordBlock::allocate(unsigned probe, unsigned long maxRecord) {
  maxRecord_ = maxRecord;
  if (block_.reserve(probe, roomFor(maxRecord))) record_ = block_.block();
}

void RecordBlock::holdStored(unsigned long length) {
  if (used_ > length) std::memset(block_.data() + length, 0, used_ - length);
  used_ = length;
  length_ = length;
  record_ = block_.block();
}

void RecordBlock::takeIn(const void* record, unsigned long size) {
  holdStored(0);
  std::memcpy(block_.block(), record, std::min(size, maxRecord_));
  used_ = maxRecord_;
}

void RecordBlock::pack(Operation& op, void* previous) {
  if (!store_.isFeatureSet(kGenRegPacked)) return;
  if (store_.packRecord == nullptr) {
    op.fail(40, status::no_pack_slot);
    return;
  }
  used_ = std::max(used_, length_ + maxRecord_ + kEntryOverhead);
  const GenRegStatus rc = statusOf(store_.packRecord(&record_, previous));
  if (rc != status::ok) {
    op.fail(41, status::pack_failed, rc);
    return;
  }
  // Without the size slot the length stays unknown here; writing the record will say so.
  if (store_.getPackedRecordSize != nullptr) (void)store_.getPackedRecordSize(record_, &length_);
}

GenRegStatus RecordBlock::checkImageEnd() {
  if (store_.getPackedRecordSize == nullptr) return status::ok;  // as in pack()
  unsigned long size = 0;
  const GenRegStatus rc = statusOf(store_.getPackedRecordSize(record_, &size));
  if (rc != status::ok) return rc;
  return size <= length_ ? GenRegStatus{status::ok} : GenRegStatus{status::packed_malformed};
}

void RecordBlock::unpack(Operation& op) {
  if (!store_.isFeatureSet(kGenRegPacked)) return;
  if (store_.unpackRecord == nullptr) {
    op.fail(30, status::no_unpack_slot);
    return;
  }
  GenRegStatus rc = checkImageEnd();
  used_ = std::max(used_, maxRecord_);
  if (rc == status::ok) rc = statusOf(store_.unpackRecord(&record_));
  if (rc != status::ok) op.fail(31, status::unpack_failed, rc);
}

}  // namespace genreg
