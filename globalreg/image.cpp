// SPDX-License-Identifier: Apache-2.0
// What a packed image tells without being unpacked: whether it is whole, whether packing would give
// the same bytes again, whether its record agrees with a key.
//
// This is unpacking, packing and matching seen from the stored bytes. It answers for images as
// PackRecord makes them; of any other it says that it cannot tell, and the record is unpacked.
#include "globalreg/internal/image.h"

#include "genreg/internal/words.h"
#include "globalreg/global_reg.h"

namespace {

using namespace globalreg;

enum class Agreement { kDiffers, kAgrees, kUnclear };

Agreement agreementOf(bool equal) {
  return equal ? Agreement::kAgrees : Agreement::kDiffers;
}

// The bytes between an image's header and its checksum, and what lies there: an entry for each of
// the bits that are left.
struct Entries {
  const unsigned char* at;
  const unsigned char* const end;
  std::uint64_t left;

  Entries(const unsigned char* image, unsigned long length)
      : at(image + kBodyOffset),
        end(image + length - kTrailerSize),
        left(fieldMask(image) & kFieldMask) {}

  // The length of the entry that begins here. At the end it is read from the checksum, which lies
  // within the image.
  std::size_t length() const { return readNumber<std::uint16_t>(at); }
  const unsigned char* bytes() const { return at + kLengthSize; }
  bool holds(std::size_t length) const {
    return static_cast<std::size_t>(end - at) >= kLengthSize + length;
  }
  void skip(std::size_t length) {
    at += kLengthSize + length;
    left &= left - 1;
  }
};

bool isText(const unsigned char* bytes, std::size_t length) {
  return length > 0 && bytes[length - 1] == '\0';
}

// As strcmp would. The key's text need not end within its field, but the entry, which fits the
// field, ends by its own NUL. Words in which the entry does not end yet are compared at once.
bool sameText(const unsigned char* entry, std::size_t length, const unsigned char* key) {
  std::size_t at = 0;
  for (; at + genreg::kWordSize <= length; at += genreg::kWordSize) {
    const genreg::Word word = genreg::wordAt(entry + at);
    if (genreg::hasNul(word)) break;
    if (word != genreg::wordAt(key + at)) return false;
  }
  while (entry[at] == key[at] && entry[at] != '\0')
    ++at;
  return entry[at] == key[at];
}

template <typename Number>
Agreement compareNumber(const unsigned char* entry, std::size_t length, const unsigned char* key) {
  if (length != sizeof(Number)) return Agreement::kUnclear;
  return agreementOf(readNumber<Number>(entry) == readNumber<Number>(key));
}

// Compares an entry that fits its field with the key's field.
Agreement compareEntry(const Field& field, const unsigned char* entry, std::size_t length,
                       const unsigned char* key) {
  const unsigned char* wanted = key + field.offset;
  switch (field.kind) {
    case FieldKind::text:
      if (!isText(entry, length)) return Agreement::kUnclear;
      return agreementOf(sameText(entry, length, wanted));
    case FieldKind::number64:
      return compareNumber<std::uint64_t>(entry, length, wanted);
    case FieldKind::number32:
      return compareNumber<std::uint32_t>(entry, length, wanted);
    case FieldKind::lowByte:
      return compareNumber<std::uint8_t>(entry, length, wanted);
  }
  return Agreement::kUnclear;
}

// An absent field is zero in the unpacked record.
Agreement compareAbsent(const Field& field, const unsigned char* key) {
  if (field.kind == FieldKind::text) return agreementOf(key[field.offset] == '\0');
  return agreementOf(fieldNumber(key, field) == 0);
}

// Compares the type, which a key of type 0 leaves open, and these known fields up to the first that
// differs; the entries before are stepped over. An entry longer than its field would run on into
// the next ones.
Agreement compare(Entries& entries, const Layout& layout, std::uint64_t fields,
                  const unsigned char* key) {
  const std::uint32_t type = recordType(key);
  if (type != 0 && type != layout.type) return Agreement::kDiffers;
  const std::uint64_t present = entries.left;
  const Field* field = layout.fields;
  for (std::uint64_t bit = 1; bit <= fields; bit <<= 1, ++field) {
    Agreement found = Agreement::kAgrees;
    if ((present & bit) != 0) {
      const std::size_t size = entries.length();
      if (size > field->width || !entries.holds(size)) return Agreement::kUnclear;
      if ((fields & bit) != 0) found = compareEntry(*field, entries.bytes(), size, key);
      entries.skip(size);
    } else if ((fields & bit) != 0) {
      found = compareAbsent(*field, key);
    }
    if (found != Agreement::kAgrees) return found;
  }
  return Agreement::kAgrees;
}

// Whether the image ends where its last entry does or behind.
bool endsWithin(Entries entries) {
  for (; entries.left != 0; entries.left &= entries.left - 1) {
    const std::size_t size = kLengthSize + entries.length();
    if (size > static_cast<std::size_t>(entries.end - entries.at)) return false;
    entries.at += size;
  }
  return true;
}

// Whether the entry has the form in which PackRecord stores the field.
bool isAsPacked(const Field& field, const unsigned char* bytes, std::size_t length) {
  if (field.kind == FieldKind::lowByte) return length == 1;
  if (field.kind != FieldKind::text) return length == field.width;
  return length <= field.width && isText(bytes, length) &&
         std::memchr(bytes, '\0', length) == bytes + length - 1;
}

// Whether unpacking would fill in nothing, and packing drop nothing.
bool isStable(const unsigned char* image, unsigned long length, const Layout& layout) {
  const std::uint64_t present = fieldMask(image);
  const auto missing = readNumber<std::uint64_t>(image + kMissingOffset);
  if ((layout.known & ~present & ~missing) != 0 || (present & ~kFieldMask) != 0) return false;
  Entries entries(image, length);
  unsigned index = 0;
  for (std::uint64_t rest = present; rest != 0; rest >>= 1, ++index) {
    if ((rest & 1) == 0) continue;
    const std::size_t size = entries.length();
    if (!entries.holds(size)) return false;
    const bool known = index < layout.count;
    if (known && !isAsPacked(layout.fields[index], entries.bytes(), size)) return false;
    entries.skip(size);
  }
  return entries.at == entries.end;
}

void unpackTo(const void* image, void* record) {
  const auto* bytes = static_cast<const unsigned char*>(image);
  auto* out = static_cast<unsigned char*>(record);
  std::memset(out, 0, kRecordSize);
  readImage(bytes, *layoutOf(recordType(bytes)), out);
}

}  // namespace

unsigned globalreg::examineImage(unsigned wanted, const void* stored, unsigned long length,
                                 unsigned long long mask, const void* key) {
  const auto* image = static_cast<const unsigned char*>(stored);
  if (length < kBodyOffset + kTrailerSize) return 0;
  const Layout* layout = layoutOf(recordType(image));
  if (layout == nullptr) return 0;
  unsigned found = 0;
  Entries entries(image, length);
  if ((wanted & (kGenRegImageDiffers | kGenRegImageAgrees)) != 0) {
    const Agreement agreement =
        compare(entries, *layout, mask & layout->known, static_cast<const unsigned char*>(key));
    if (agreement == Agreement::kDiffers) found = kGenRegImageDiffers;
    if (agreement == Agreement::kAgrees) found = kGenRegImageAgrees;
  }
  if ((wanted & kGenRegImageStable) != 0 && isStable(image, length, *layout)) {
    return found | kGenRegImageStable | kGenRegImageWhole;
  }
  if ((wanted & kGenRegImageWhole) != 0 && endsWithin(entries)) found |= kGenRegImageWhole;
  return found;
}

const GenRegImageSlots globalreg::kImageSlots = {GlobalReg::MatchRecord,
                                                 GlobalReg::GetMaxRecordSize,
                                                 GlobalReg::PackRecord,
                                                 GlobalReg::UnpackRecord,
                                                 GlobalReg::GetPackedRecordSize,
                                                 examineImage,
                                                 unpackTo};
