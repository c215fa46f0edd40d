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

#define VRX_TEXT(member, field) \
  { offsetof(OSSInstanceInfo_t, member), sizeof(GlobalRegInstanceBody::field), false }
#define VRX_NUMBER(field) \
  { 0, sizeof(GlobalRegInstanceBody::field), true }

// By the bits of the fields.
constexpr unsigned kFieldCount = 10;
constexpr unsigned kVersionCodeIndex = 1;
constexpr unsigned kStartAtBootIndex = 5;
constexpr Place kPlaces[kFieldCount] = {VRX_TEXT(service, Service),
                                        VRX_NUMBER(VersionCode),
                                        VRX_TEXT(instanceName, InstanceName),
                                        VRX_TEXT(instancePath, InstancePath),
                                        VRX_TEXT(usage, Usage),
                                        VRX_NUMBER(StartAtBoot),
                                        VRX_NUMBER(Maintenance),
                                        VRX_TEXT(auxPath, AuxPath),
                                        VRX_TEXT(auxName, AuxName),
                                        VRX_TEXT(comment, Comment)};

#undef VRX_TEXT
#undef VRX_NUMBER

// A field of `width` bytes, in the record and in the instance, is cut to leave room for its
// terminator.
void putText(unsigned char* to, std::size_t width, const unsigned char* text, std::size_t length) {
  length = std::min(length, width - 1);
  if (length > 0) globalreg::copyShort(to, text, length);
  to[length] = '\0';
}

// As it would stand in the record: the entry's bytes, and zeros behind them.
template <typename Number>
Number numberOf(const unsigned char* bytes, std::size_t length) {
  unsigned char field[sizeof(Number)] = {};
  globalreg::copyShort(field, bytes, std::min(length, sizeof field));
  return globalreg::readNumber<Number>(field);
}

// What the numbers of a record come to.
struct Numbers {
  unsigned long long versionCode = 0;
  unsigned long long flags = 0;
};

void takeNumber(unsigned index, const unsigned char* bytes, std::size_t length, Numbers& numbers) {
  if (index == kVersionCodeIndex) {
    numbers.versionCode = numberOf<std::uint64_t>(bytes, length);
  } else if (numberOf<std::uint32_t>(bytes, length) == 1) {
    numbers.flags |=
        index == kStartAtBootIndex ? kInstanceFlagStartAtBoot : kInstanceFlagMaintenance;
  }
}

// Fills the instance, but for its flags, which are only ever added to. False when an entry does not
// fit its field: in the record it runs on into the next ones.
bool fill(const unsigned char* image, OSSInstanceInfo_t* instance) {
  auto* const out = reinterpret_cast<unsigned char*>(instance);
  Numbers numbers;
  EntryReader entry(image);
  for (unsigned index = 0; index < kFieldCount; ++index) {
    const Place& place = kPlaces[index];
    const bool present = entry.has(index);
    const std::size_t length = present ? entry.length() : 0;
    if (length > place.width) return false;
    if (!place.isNumber) {
      putText(out + place.offset, place.width, entry.bytes(), length);
    } else if (present) {
      takeNumber(index, entry.bytes(), length, numbers);
    }
    if (present) entry.next();
  }
  instance->versionCode = numbers.versionCode;
  instance->flags |= numbers.flags;
  return true;
}

void unpackTo(const void* image, void* result) {
  auto* listed = static_cast<ListedInstance*>(result);
  listed->isFilled = fill(static_cast<const unsigned char*>(image), listed->instance);
  if (!listed->isFilled) globalreg::kImageSlots.unpackTo(image, &listed->record);
}

constexpr GenRegImageSlots kInstanceSlots = {GlobalReg::MatchRecord,
                                             GlobalReg::GetMaxRecordSize,
                                             GlobalReg::PackRecord,
                                             GlobalReg::UnpackRecord,
                                             GlobalReg::GetPackedRecordSize,
                                             globalreg::examineImage,
                                             unpackTo};

}  // namespace

FillsInstances::FillsInstances(GlobalReg& registry)
    : registry_(registry), slots_(registry.imageSlots) {
  if (slots_ != nullptr) registry_.imageSlots = &kInstanceSlots;
}

FillsInstances::~FillsInstances() {
  registry_.imageSlots = slots_;
}

}  // namespace ossdir
