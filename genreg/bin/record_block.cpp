// SPDX-License-Identifier: Apache-2.0
// Packing and unpacking in place, within bounds that the format's slots do not know.
#include "genreg/bin/internal/record_block.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "platform/osse/memory.h"

namespace genreg {
namespace {

// A packed image is walked entry by entry before its end is known. Zeros behind the image end every
// walk: an entry that starts inside may reach 64 KiB beyond, and each that follows is then empty.
constexpr unsigned long kWalkSlack = 0x10000 + 0x100;

// More than any memory holds: asking for it fails.
constexpr unsigned long kNoRoom = std::numeric_limits<unsigned long>::max();

}  // namespace

// Packing in place needs room for the record's own fields, for what is carried over from the stored
// image, and for the walk over either.
unsigned long RecordBlock::roomFor(unsigned long length, ImageEnd imageEnd) const {
  if (!store_.isFeatureSet(kGenRegPacked)) return std::max(length, maxRecord_);
  const unsigned long besides = maxRecord_ + (imageEnd == ImageEnd::kKnown ? 0 : kWalkSlack);
  // Unreached: with 64 bits the sum fits; with 32 bits a length may be near 4 GiB.
  return length < kNoRoom - besides ? length + besides : kNoRoom;
}

void RecordBlock::allocate(unsigned probe, ImageEnd imageEnd) {
  if (block_.reserve(probe, roomFor(maxRecord_, imageEnd))) {
    record_ = block_.block();
    return;
  }
  used_ = 0;  // of the block that is gone; a later one may be smaller
}

void RecordBlock::holdStored(unsigned long length) {
  if (used_ > length) std::memset(block_.data() + length, 0, used_ - length);
  used_ = length;
  length_ = length;
  record_ = block_.block();
}

void RecordBlock::takeStored(const void* image, unsigned long length) {
  holdStored(length);
  std::memcpy(block_.block(), image, length);
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
  // Without the size slot no end of an image is known: none is walked for what it carries, and
  // writing the record will say what is missing.
  const bool measured = store_.getPackedRecordSize != nullptr;
  const GenRegStatus rc = statusOf(store_.packRecord(&record_, measured ? previous : nullptr));
  if (rc != status::ok) {
    op.fail(41, status::pack_failed, rc);
    return;
  }
  if (measured) (void)store_.getPackedRecordSize(record_, &length_);  // fails the writing, too
  used_ = std::max(used_, std::min(length_, ossMemCapacity(block_.block())));
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
