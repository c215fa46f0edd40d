// SPDX-License-Identifier: Apache-2.0
// Version codes to text and level numbers, and back.
#include "oss/version_code.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "genreg/internal/operation.h"
#include "platform/osse/strings.h"

namespace {

namespace status = genreg::status;

constexpr int kParts = 4;
constexpr int kPartBits = 16;
constexpr unsigned kPartMask = 0xFFFF;

// The part `index` of a code, 0 being the highest.
unsigned partOf(unsigned long long code, int index) {
  return static_cast<unsigned>(code >> (kPartBits * (kParts - 1 - index))) & kPartMask;
}

// The code with another part below the ones it has.
unsigned long long withNextPart(unsigned long long code, unsigned part) {
  return (code << kPartBits) | (part & kPartMask);
}

// The value of a run of digits, at most INT_MAX whatever its length.
unsigned saturatedNumber(const char* digits, std::size_t count) {
  std::uint64_t value = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const auto digit = static_cast<unsigned>(digits[i] - '0');
    value = std::min<std::uint64_t>(value * 10 + digit, INT_MAX);
  }
  return static_cast<unsigned>(value);
}

}  // namespace

GenRegStatus ossVersionCodeToString(unsigned long long code, char* buffer, unsigned int size) {
  genreg::Operation op(genreg::kOssVersionCodeToString);
  if (buffer == nullptr) return op.fail(1, status::version_null);
  char text[kVersionStringSize];
  const int length = ossSnprintf(text, sizeof text, "%u.%u.%u.%u", partOf(code, 0), partOf(code, 1),
                                 partOf(code, 2), partOf(code, 3));
  if (length < 0) return op.fail(2, status::version_not_formatted);
  const std::size_t needed = static_cast<std::size_t>(length) + 1;
  if (size < needed) return op.fail(3, status::version_buffer_too_small);
  std::memcpy(buffer, text, needed);
  return op.status();
}

GenRegStatus ossVersionStringToCode(const char* text, unsigned long long* code) {
  genreg::Operation op(genreg::kOssVersionStringToCode);
  if (text == nullptr || code == nullptr) return op.fail(1, status::version_null);
  const char* const end = text + strnlen(text, kVersionStringSize - 1);
  const char* at = text;
  unsigned long long result = 0;
  for (int part = 0; part < kParts; ++part) {
    // The last component runs to the end, so that a further point counts as a wrong character.
    const char* const stop = part == kParts - 1 ? end : std::find(at, end, '.');
    const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
    if (!std::all_of(at, stop, isDigit)) return op.fail(2, status::version_malformed);
    result = withNextPart(result, saturatedNumber(at, static_cast<std::size_t>(stop - at)));
    at = stop == end ? end : stop + 1;
  }
  *code = result;
  return op.status();
}

int ossVersionCodeServiceToVRX(unsigned long long code) {
  char digits[kVersionStringSize];
  // At most 20 digits: always fits.
  (void)ossSnprintf(digits, sizeof digits, "%2u%02u%02u%02u", partOf(code, 0), partOf(code, 1),
                    partOf(code, 2), partOf(code, 3));
  const char* const first = digits + strspn(digits, " ");
  return static_cast<int>(saturatedNumber(first, std::strlen(first)));
}

unsigned long long ossVersionCodeVRXToService(unsigned int level) {
  constexpr unsigned kGroup = 100;  // two decimal digits a part
  unsigned long long code = 0;
  for (const unsigned divisor : {1000000U, 10000U, 100U, 1U}) {
    code = withNextPart(code, level / divisor % kGroup);
  }
  return code;
}
