// SPDX-License-Identifier: Apache-2.0
// Packed images, entry by entry; docs/packed-record-format.md tells how they lie.
#pragma once

#include "genreg/bin/bin_store.h"
#include "globalreg/internal/fields.h"

namespace globalreg {

// Bytes of an entry's length, and of the checksum behind the entries.
constexpr std::size_t kLengthSize = sizeof(std::uint16_t);
constexpr std::size_t kTrailerSize = sizeof(std::uint32_t);

// The bits that can stand for a field.
constexpr std::uint64_t kFieldMask = (std::uint64_t{1} << kFieldBits) - 1;

constexpr std::uint64_t bitAt(unsigned index) {
  return std::uint64_t{1} << index;
}

// The entries of an image, in bit order.
class EntryReader {
 public:
  explicit EntryReader(const unsigned char* image)
      : mask_(fieldMask(image)), at_(image + kBodyOffset) {}

  bool has(unsigned index) const { return (mask_ & bitAt(index)) != 0; }
  std::size_t length() const { return readNumber<std::uint16_t>(at_); }
  const unsigned char* bytes() const { return at_ + kLengthSize; }
  // The entry as it lies, length included.
  const unsigned char* raw() const { return at_; }
  std::size_t rawSize() const { return kLengthSize + length(); }
  void next() { at_ += rawSize(); }

 private:
  std::uint64_t mask_;
  const unsigned char* at_;
};

// Fills a zeroed record from an image that ends within its frame.
void readImage(const unsigned char* image, const Layout& layout, unsigned char* record);

// What an image tells without being unpacked, as GenRegImageSlots::examine.
unsigned examineImage(unsigned wanted, const void* image, unsigned long length,
                      unsigned long long mask, const void* key);

extern const GenRegImageSlots kImageSlots;

}  // namespace globalreg
