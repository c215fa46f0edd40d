// SPDX-License-Identifier: Apache-2.0
// A small packed record format on the binary store, for tests: its packed form can be longer than
// its record, keeps the entries of fields that it does not know, and can be told to fail.
//
// A packed image is a 32-bit mask (bit 0 the name, bit 1 the value, further bits unknown) and, for
// each bit in ascending order, a 16-bit length and that many bytes.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "genreg/bin/bin_store.h"

namespace vrxtest {

struct PackedRecord {
  std::uint32_t mask;  // the fields that are present
  char name[16];
  std::uint32_t value;
};
static_assert(sizeof(PackedRecord) == 24, "one layout in every build");

// Bits of the record's own mask and of the field masks of lookups.
constexpr std::uint32_t kPackedName = 0x1;
constexpr std::uint32_t kPackedValue = 0x2;
constexpr std::uint32_t kPackedKnown = 0x3;
constexpr unsigned kPackedBits = 32;
constexpr std::size_t kPackedHeader = 4;

inline PackedRecord packedRecord(std::string_view name, std::uint32_t value) {
  PackedRecord record{};
  record.mask = kPackedKnown;
  std::memcpy(record.name, name.data(), std::min(name.size(), sizeof record.name));
  record.value = value;
  return record;
}

// Counts the calls of one slot and makes the nth of them fail with `code`.
struct SlotFault {
  int calls = 0;
  int nth = 0;  // 0: none
  GenRegStatus code = 0;

  int next() { return ++calls == nth ? genreg::statusInt(code) : 0; }
};

// Entries of unknown fields: their bits and their bytes.
struct CarriedEntries {
  std::uint32_t mask = 0;
  std::string entries;
};

class PackedRegistry : public GenRegBin {
 public:
  explicit PackedRegistry(const std::string& path,
                          unsigned int chosen = kGenRegVerifyCommit | kGenRegPacked) {
    matchRecord = match;
    validateRecord = validate;
    getRecordSize = size;
    getMaxRecordSize = largestSize;
    packRecord = pack;
    unpackRecord = unpack;
    getPackedRecordSize = packedSize;
    pathStatus = setRegistryPaths(path.c_str());
    features = chosen;
    packing = {};
    unpacking = {};
  }

  // What the path set-up gave.
  GenRegStatus pathStatus = 0;

  // Failures of the two slots, for all objects; a new object puts them back.
  static inline SlotFault packing;
  static inline SlotFault unpacking;

  static int match(unsigned long long mask, void* stored, void* given) {
    PackedRecord a{};
    PackedRecord b{};
    std::memcpy(&a, stored, sizeof a);
    std::memcpy(&b, given, sizeof b);
    if ((mask & kPackedName) != 0 && std::memcmp(a.name, b.name, sizeof a.name) != 0) return 0;
    return (mask & kPackedValue) == 0 || a.value == b.value ? 1 : 0;
  }
  static int validate(unsigned long long mask, void* record) {
    const bool nameless = static_cast<PackedRecord*>(record)->name[0] == '\0';
    const bool refused = (mask & kPackedName) != 0 && nameless;
    return genreg::statusInt(refused ? genreg::status::empty_record : genreg::status::ok);
  }
  static int size(void*, unsigned long* bytes) { return largestSize(bytes); }
  static int largestSize(unsigned long* bytes) {
    *bytes = sizeof(PackedRecord);
    return 0;
  }
  static int packedSize(void* image, unsigned long* bytes) {
    *bytes = static_cast<unsigned long>(lengthOf(static_cast<const char*>(image)));
    return 0;
  }
  static int pack(void** record, void* previous) {
    if (const int code = packing.next(); code != 0) return code;
    PackedRecord own{};
    std::memcpy(&own, *record, sizeof own);
    const std::string image = imageOf(own, carriedFrom(static_cast<const char*>(previous)));
    std::memcpy(*record, image.data(), image.size());
    return 0;
  }
  static int unpack(void** image) {
    if (const int code = unpacking.next(); code != 0) return code;
    const PackedRecord record = recordOf(static_cast<const char*>(*image));
    std::memcpy(*image, &record, sizeof record);
    return 0;
  }

  // An entry of an image.
  static std::string entryOf(std::string_view bytes) {
    const auto length = static_cast<std::uint16_t>(bytes.size());
    std::string entry(sizeof length, '\0');
    std::memcpy(entry.data(), &length, sizeof length);
    return entry.append(bytes);
  }

  // The image of a record: a name up to its terminator, all four bytes of a value.
  static std::string imageOf(const PackedRecord& record, const CarriedEntries& carried = {}) {
    const std::uint32_t mask = (record.mask & kPackedKnown) | carried.mask;
    std::string image(sizeof mask, '\0');
    std::memcpy(image.data(), &mask, sizeof mask);
    if ((mask & kPackedName) != 0) {
      image += entryOf({record.name, strnlen(record.name, sizeof record.name)});
    }
    if ((mask & kPackedValue) != 0) {
      std::string value(sizeof record.value, '\0');
      std::memcpy(value.data(), &record.value, sizeof record.value);
      image += entryOf(value);
    }
    return image + carried.entries;
  }

 private:
  static std::uint32_t maskOf(const char* image) {
    std::uint32_t mask = 0;
    std::memcpy(&mask, image, sizeof mask);
    return mask;
  }

  // Calls visit(bit, bytes, length) for every entry; returns the image's length.
  template <class Visit>
  static std::size_t walk(const char* image, Visit visit) {
    const std::uint32_t mask = maskOf(image);
    std::size_t at = kPackedHeader;
    for (unsigned index = 0; index < kPackedBits; ++index) {
      const std::uint32_t bit = std::uint32_t{1} << index;
      if ((mask & bit) == 0) continue;
      std::uint16_t length = 0;
      std::memcpy(&length, image + at, sizeof length);
      visit(bit, image + at + sizeof length, std::size_t{length});
      at += sizeof length + length;
    }
    return at;
  }
  static std::size_t lengthOf(const char* image) {
    return walk(image, [](std::uint32_t, const char*, std::size_t) {});
  }
  static CarriedEntries carriedFrom(const char* image) {
    CarriedEntries carried;
    if (image == nullptr) return carried;
    carried.mask = maskOf(image) & ~kPackedKnown;
    walk(image, [&](std::uint32_t bit, const char* bytes, std::size_t length) {
      if ((bit & carried.mask) != 0) carried.entries += entryOf({bytes, length});
    });
    return carried;
  }
  static PackedRecord recordOf(const char* image) {
    PackedRecord record{};
    record.mask = maskOf(image) & kPackedKnown;
    walk(image, [&](std::uint32_t bit, const char* bytes, std::size_t length) {
      if (bit == kPackedName) {
        std::memcpy(record.name, bytes, std::min(length, sizeof record.name));
      } else if (bit == kPackedValue) {
        std::memcpy(&record.value, bytes, std::min(length, sizeof record.value));
      }
    });
    return record;
  }
};

}  // namespace vrxtest
