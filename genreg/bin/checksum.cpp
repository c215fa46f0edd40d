// SPDX-License-Identifier: Apache-2.0
// The registry checksum and big-endian numbers.
#include "genreg/bin/checksum.h"

#include <cstdint>
#include <cstring>

#include "platform/osse/status.h"

namespace {

constexpr int kNullArgument = static_cast<int>(oss::status::invalid_argument);

}  // namespace

unsigned int sqlzChecksumXOR(const void* data, int length) {
  if (data == nullptr || length <= 0) return 0;
  const auto* bytes = static_cast<const unsigned char*>(data);
  const auto total = static_cast<std::size_t>(length);
  const std::size_t words = total & ~std::size_t{3};
  std::uint32_t sum = 0;
  for (std::size_t at = 0; at < words; at += 4) {
    std::uint32_t word;
    std::memcpy(&word, bytes + at, sizeof word);
    sum ^= word;
  }
  for (std::size_t at = words; at < total; ++at) {
    const auto extended = static_cast<std::int32_t>(static_cast<std::int8_t>(bytes[at]));
    sum ^= static_cast<std::uint32_t>(extended);
  }
  return sum;
}

int fromBigEndianUint32(signed char* bytes, unsigned int* value) {
  if (bytes == nullptr || value == nullptr) return kNullArgument;
  unsigned int result = 0;
  for (int i = 0; i < 4; ++i)
    result = result << 8 | static_cast<unsigned char>(bytes[i]);
  *value = result;
  return 0;
}

int toBigEndianUint32(signed char* bytes, unsigned int value) {
  if (bytes == nullptr) return kNullArgument;
  for (int i = 0; i < 4; ++i) {
    bytes[i] = static_cast<signed char>(static_cast<unsigned char>(value >> (24 - 8 * i)));
  }
  return 0;
}
