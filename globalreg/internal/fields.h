// SPDX-License-Identifier: Apache-2.0
// The table of the global registry's fields, and how a record's bytes are read.
//
// Packing, matching, validation, the dump and the change log all walk this one table. What differs
// from field to field (codes, missing rules, printed forms) is data in it. Records are handled as
// bytes and read with memcpy: callers' records may stand at any address.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "genreg/status.h"
#include "globalreg/record.h"

namespace globalreg {

// Where the parts that all records share stand, in a record and (but for the checksum) in an image.
constexpr std::size_t kRecordSize = sizeof(GlobalRegRecord);
constexpr std::size_t kMaskOffset = offsetof(GlobalRegRecord, FieldMask);
constexpr std::size_t kMissingOffset = offsetof(GlobalRegRecord, MissingFieldMask);
constexpr std::size_t kBodyOffset = offsetof(GlobalRegRecord, Bytes);
constexpr std::size_t kCheckSumOffset = offsetof(GlobalRegRecord, CheckSum);

// Field bits run from 0 to 62; bit 63 never stands for a field.
constexpr unsigned kFieldBits = 63;

enum class FieldKind : std::uint8_t {
  text,      // NUL-terminated within its width
  number64,  // 8 bytes
  number32,  // 4 bytes
  lowByte    // 4 bytes in the record of which only the lowest counts: it alone is stored
};

// What a present field must hold.
enum class ContentRule : std::uint8_t { none, notEmpty, zeroOrOne };

// How the change log writes a field.
enum class LogForm : std::uint8_t { text, version, decimal, character };

// Whether the dump shows a field.
enum class Dump : std::uint8_t { shown, hidden };

// One field. Its bit is 1 << its place in the table.
struct Field {
  const char* name;  // as the dump prints it
  std::uint16_t offset;
  std::uint16_t width;  // bytes in the record, terminator included
  FieldKind kind;
  ContentRule rule;
  LogForm logForm;
  Dump dump;
  GenRegStatus contentCode;  // when the rule is broken; ok without a rule
  GenRegStatus absentCode;   // when the field is required and absent; ok when nobody may require it
};

// One type of record.
struct Layout {
  std::uint32_t type;
  const char* letter;  // in the change log
  const Field* fields;
  unsigned count;
  std::uint64_t known;  // the bits of the fields

  const Field* begin() const { return fields; }
  const Field* end() const { return fields + count; }
  std::uint64_t bit(const Field& field) const {
    return std::uint64_t{1} << static_cast<unsigned>(&field - fields);
  }
};

extern const Layout kInstanceLayout;
extern const Layout kServiceLayout;
extern const Layout kVariableLayout;

// The layout of a type of record; null for a type that has none.
inline const Layout* layoutOf(std::uint32_t type) {
  switch (type) {
    case kGlobalRegInstance:
      return &kInstanceLayout;
    case kGlobalRegService:
      return &kServiceLayout;
    case kGlobalRegVariable:
      return &kVariableLayout;
    default:
      return nullptr;
  }
}

// An unsigned number of the host's byte order at any address.
template <typename Number>
Number readNumber(const unsigned char* from) {
  Number value;
  std::memcpy(&value, from, sizeof value);
  return value;
}

inline std::uint32_t recordType(const unsigned char* record) {
  return readNumber<std::uint32_t>(record);
}
inline std::uint64_t fieldMask(const unsigned char* record) {
  return readNumber<std::uint64_t>(record + kMaskOffset);
}

// A field as text: where it begins and how long it is. A field without a terminator ends with its
// array.
inline const char* fieldText(const unsigned char* record, const Field& field) {
  return reinterpret_cast<const char*>(record + field.offset);
}
inline std::size_t fieldLength(const unsigned char* record, const Field& field) {
  return strnlen(fieldText(record, field), field.width);
}

// A field as a number, whatever its width; of a lowByte field the byte that counts.
std::uint64_t fieldNumber(const unsigned char* record, const Field& field);

}  // namespace globalreg
