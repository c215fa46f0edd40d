// SPDX-License-Identifier: Apache-2.0
// Records of the global registry for tests, and packed images written out by hand: an account of
// the format that shares no code with the library.
#pragma once

#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "globalreg/record.h"

namespace vrxtest {

// Puts text into a field's array; the rest of the array stays.
template <std::size_t width>
void setText(char (&field)[width], std::string_view text) {
  std::memcpy(field, text.data(), text.size() < width ? text.size() : width);
  if (text.size() < width) field[text.size()] = '\0';
}

// A copy of a member that may stand at any address: assertions take references.
template <typename Number>
Number valueOf(Number number) {
  return number;
}

// Version 3.1.0.7.
constexpr unsigned long long kVersion3107 = 0x0003000100000007ULL;

// An instance record with its key only.
inline GlobalRegRecord instanceRecord(std::string_view service, std::string_view name,
                                      unsigned long long version = kVersion3107) {
  GlobalRegRecord record{};
  record.RecordType = kGlobalRegInstance;
  record.FieldMask = kInstanceKey;
  setText(record.Instance.Service, service);
  record.Instance.VersionCode = version;
  setText(record.Instance.InstanceName, name);
  return record;
}

// A service record with its key only.
inline GlobalRegRecord serviceRecord(std::string_view service,
                                     unsigned long long version = kVersion3107) {
  GlobalRegRecord record{};
  record.RecordType = kGlobalRegService;
  record.FieldMask = kServiceKey;
  setText(record.Services.Service, service);
  record.Services.VersionCode = version;
  return record;
}

// A variable record with its key and a value.
inline GlobalRegRecord variableRecord(std::string_view service, std::string_view variable,
                                      std::string_view value) {
  GlobalRegRecord record{};
  record.RecordType = kGlobalRegVariable;
  record.FieldMask = kVariableKey | kVariableValue;
  setText(record.Variable.Service, service);
  setText(record.Variable.Variable, variable);
  setText(record.Variable.Value, value);
  return record;
}

// A number as it lies in memory.
template <typename Number>
std::string bytesOf(Number value) {
  std::string bytes(sizeof value, '\0');
  std::memcpy(bytes.data(), &value, sizeof value);
  return bytes;
}

// An entry of a packed image: a 16-bit length and the bytes.
inline std::string entryOf(const std::string& bytes) {
  return bytesOf(static_cast<std::uint16_t>(bytes.size())) + bytes;
}

// A packed image of these entries, given in bit order.
inline std::string imageOf(std::uint32_t type, std::uint64_t mask,
                           const std::vector<std::string>& entries, std::uint64_t missing = 0,
                           std::uint32_t checkSum = 0) {
  std::string image = bytesOf(type) + bytesOf(mask) + bytesOf(missing);
  for (const std::string& entry : entries)
    image += entry;
  return image + bytesOf(checkSum);
}

}  // namespace vrxtest
