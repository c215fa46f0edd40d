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

// Where a field goes, if it is a text, and its width in the record.
struct Place {
  std::size_t offset;
  std::size_t width;
  bool isNumber;
};

#define VRX_PLACE(member) \
  { offsetof(OSSInstanceInfo_t, member), sizeof(OSSInstanceInfo_t::member), false }

constexpr Place numberPlace(std::size_t width) {
  return {0, width, true};
}

constexpr Place kPlaces[InstanceTexts::kCount] = {
    VRX_PLACE(service), numberPlace(8),    VRX_PLACE(instanceName), VRX_PLACE(instancePath),
    VRX_PLACE(usage),   numberPlace(4),    numberPlace(4),          VRX_PLACE(auxPath),
    VRX_PLACE(auxName), VRX_PLACE(comment)};

#undef VRX_PLACE

constexpr unsigned kVersionCodeIndex = 1;
constexpr unsigned kStartAtBootIndex = 5;
constexpr unsigned kMaintenanceIndex = 6;

// A text of `length` bytes, cut to leave room for its terminator. `written` bytes of the array may
// not be zero.
void putText(unsigned char* to, std::size_t width, const unsigned char* text, std::size_t length,
             std::size_t& written) {
  length = std::min(length, width - 1);
  if (length > 0) globalreg::copyShort(to, text, length);
  to[length] = '\0';
  if (written > length) std::memset(to + length, 0, written - length);
  written = length;
}

std::uint64_t numberOf(const unsigned char* bytes, std::size_t length) {
  unsigned char number[sizeof(std::uint64_t)] = {};
  globalreg::copyShort(number, bytes, std::min(length, sizeof number));
  return globalreg::readNumber<std::uint64_t>(number);
}

// Of an instance that this list has not filled last, nothing is known.
void startWith(InstanceTexts& given, const OSSInstanceInfo_t* instance) {
  if (given.instance == instance) return;
  given.instance = instance;
  for (std::size_t index = 0; index < InstanceTexts::kCount; ++index)
    given.lengths[index] = kPlaces[index].width;
}

// Fills the instance. False when an entry does not fit its field: in the record it runs on into the
// next ones.
bool fill(const unsigned char* image, OSSInstanceInfo_t* instance, InstanceTexts& given) {
  auto* const out = reinterpret_cast<unsigned char*>(instance);
  std::uint64_t numbers[InstanceTexts::kCount] = {};
  EntryReader entry(image);
  for (unsigned index = 0; index < InstanceTexts::kCount; ++index) {
    const Place& place = kPlaces[index];
    const bool present = entry.has(index);
    const std::size_t length = present ? entry.length() : 0;
    if (length > place.width) return false;
    if (place.isNumber) {
      numbers[index] = numberOf(entry.bytes(), length);
    } else {
      putText(out + place.offset, place.width, entry.bytes(), length, given.lengths[index]);
    }
    if (present) entry.next();
  }
  instance->versionCode = numbers[kVersionCodeIndex];
  if (numbers[kStartAtBootIndex] == 1) instance->flags |= kInstanceFlagStartAtBoot;
  if (numbers[kMaintenanceIndex] == 1) instance->flags |= kInstanceFlagMaintenance;
  return true;
}

void unpackTo(const void* image, void* result) {
  auto* listed = static_cast<ListedInstance*>(result);
  startWith(*listed->given, listed->instance);
  const auto* bytes = static_cast<const unsigned char*>(image);
  listed->isFilled = fill(bytes, listed->instance, *listed->given);
  if (!listed->isFilled) globalreg::kImageSlots.unpackTo(image, &listed->record);
}

}  // namespace

const GenRegImageSlots kInstanceListSlots = {GlobalReg::MatchRecord,
                                             GlobalReg::GetMaxRecordSize,
                                             GlobalReg::PackRecord,
                                             GlobalReg::UnpackRecord,
                                             GlobalReg::GetPackedRecordSize,
                                             globalreg::examineImage,
                                             unpackTo};

}  // namespace ossdir
