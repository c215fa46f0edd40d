// SPDX-License-Identifier: Apache-2.0
// The fields of an instance record in their places in an instance.
#include "oss/internal/instance_image.h"

#include <algorithm>
#include <cstring>

#include "globalreg/internal/copy_short.h"
#include "globalreg/internal/image.h"

namespace ossdir {
namespace {

using globalreg::EntryReader;

// Hands out the fields of an image one after the other, in the order of their bits. What is absent
// is empty.
class Fields {
 public:
  explicit Fields(const unsigned char* image) : entry_(image) {}

  // A text of `width` bytes in the record and in the instance is cut to leave room for its
  // terminator.
  template <std::size_t width>
  void takeText(char (&to)[width]) {
    auto* const text = reinterpret_cast<unsigned char*>(to);
    const std::size_t length = take(text, width, width - 1);
    text[length] = '\0';
  }

  // As it would stand in the record: the entry's bytes, and zeros behind them.
  template <typename Number>
  Number takeNumber() {
    unsigned char field[sizeof(Number)] = {};
    take(field, sizeof field, sizeof field);
    return globalreg::readNumber<Number>(field);
  }

  // Whether every entry fits its field: in the record, one that does not runs on into the next
  // ones.
  bool fit() const { return fit_; }

 private:
  // Copies at most `most` bytes of the next entry, and says how many. Inline, so that all that this
  // class keeps stays in registers.
  [[gnu::always_inline]] std::size_t take(unsigned char* to, std::size_t width, std::size_t most) {
    if (!entry_.has(index_++)) return 0;
    const std::size_t length = entry_.length();
    fit_ = fit_ && length <= width;
    const std::size_t count = std::min(length, most);
    globalreg::copyShort(to, entry_.bytes(), count);
    entry_.next();
    return count;
  }

  EntryReader entry_;
  unsigned index_ = 0;
  bool fit_ = true;
};

// Fills the instance, but for its flags, which are only ever added to. False when an entry does not
// fit its field.
bool fill(const unsigned char* image, OSSInstanceInfo_t* out) {
  Fields fields(image);
  fields.takeText(out->service);
  const auto versionCode = fields.takeNumber<std::uint64_t>();
  fields.takeText(out->instanceName);
  fields.takeText(out->instancePath);
  fields.takeText(out->usage);
  const bool startAtBoot = fields.takeNumber<std::uint32_t>() == 1;
  const bool maintenance = fields.takeNumber<std::uint32_t>() == 1;
  fields.takeText(out->auxPath);
  fields.takeText(out->auxName);
  fields.takeText(out->comment);
  if (!fields.fit()) return false;
  out->versionCode = versionCode;
  if (startAtBoot) out->flags |= kInstanceFlagStartAtBoot;
  if (maintenance) out->flags |= kInstanceFlagMaintenance;
  return true;
}

void unpackTo(const void* image, void* result) {
  auto* listed = static_cast<ListedInstance*>(result);
  listed->isFilled = fill(static_cast<const unsigned char*>(image), listed->instance);
  if (!listed->isFilled) globalreg::kImageSlots.unpackTo(image, &listed->record);
}

}  // namespace

constexpr GenRegImageSlots kInstanceSlots = {GlobalReg::MatchRecord,
                                             GlobalReg::GetMaxRecordSize,
                                             GlobalReg::PackRecord,
                                             GlobalReg::UnpackRecord,
                                             GlobalReg::GetPackedRecordSize,
                                             globalreg::examineImage,
                                             unpackTo};

}  // namespace ossdir
