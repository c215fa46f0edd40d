// SPDX-License-Identifier: Apache-2.0
// A store's way round unpacking: its format's image slots, while they speak for the slots that the
// object has.
#pragma once

#include "genreg/bin/bin_store.h"
#include "genreg/bin/internal/record_block.h"
#include "genreg/internal/features.h"

namespace genreg {

class ImageView {
 public:
  explicit ImageView(const GenRegBin& store)
      : slots_(speaksFor(store) ? store.imageSlots : nullptr) {}

  bool isAvailable() const { return slots_ != nullptr; }
  // Of images as the format's slots make them.
  ImageEnd ownImageEnd() const { return isAvailable() ? ImageEnd::kKnown : ImageEnd::kUnknown; }
  ImageEnd endOf(const void* image, unsigned long length) const {
    return examine(kGenRegImageWhole, image, length) != 0 ? ImageEnd::kKnown : ImageEnd::kUnknown;
  }
  // The GenRegImageFinding bits that are known; none without image slots.
  unsigned examine(unsigned wanted, const void* image, unsigned long length,
                   unsigned long long mask = 0, const void* key = nullptr) const {
    return slots_ != nullptr ? slots_->examine(wanted, image, length, mask, key) : 0;
  }
  // Only for an image that was found to be whole.
  void unpackTo(const void* image, void* record) const { slots_->unpackTo(image, record); }

 private:
  static bool speaksFor(const GenRegBin& store) {
    const GenRegImageSlots* slots = store.imageSlots;
    return slots != nullptr && hasFeature(store, kGenRegPacked) &&
           slots->matchRecord == store.matchRecord &&
           slots->getMaxRecordSize == store.getMaxRecordSize &&
           slots->packRecord == store.packRecord && slots->unpackRecord == store.unpackRecord &&
           slots->getPackedRecordSize == store.getPackedRecordSize;
  }

  const GenRegImageSlots* slots_;
};

}  // namespace genreg
