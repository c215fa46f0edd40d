// SPDX-License-Identifier: Apache-2.0
// Version strings and version codes beside a second reading of their rules. The first eight bytes
// are a code, too.
#include <cstring>
#include <vector>

#include "fuzz/fuzz_support.h"
#include "oss/version_code.h"
#include "vrx/version.h"

namespace {

using vrxfuzz::require;

constexpr unsigned kMalformed = 0x9000025F;
constexpr unsigned kTooSmall = 0x9000025E;

// The pieces between the points; one more than there are points.
std::vector<std::string> pieces(const std::string& text) {
  std::vector<std::string> found{""};
  for (const char c : text) {
    if (c == '.') {
      found.emplace_back();
    } else {
      found.back() += c;
    }
  }
  return found;
}

bool areDigits(const std::string& text) {
  return text.find_first_not_of("0123456789") == std::string::npos;
}

// The value, or anything at or above the limit when it reaches it.
unsigned long long upTo(unsigned long long limit, const std::string& digits) {
  unsigned long long value = 0;
  for (const char c : digits) {
    if (value < limit) value = 10 * value + static_cast<unsigned>(c - '0');
  }
  return value < limit ? value : limit;
}

void readText(const std::string& text) {
  constexpr unsigned long long kUntouched = 0x5A5A;
  constexpr unsigned long long kLargestInt = 0x7FFFFFFF;
  unsigned long long code = kUntouched;
  const unsigned rc = ossVersionStringToCode(text.c_str(), &code);
  const std::vector<std::string> parts = pieces(text.substr(0, kVersionStringSize - 1));
  bool sound = parts.size() <= 4;
  unsigned long long wanted = 0;
  for (unsigned i = 0; i < 4; ++i) {
    const std::string part = i < parts.size() ? parts[i] : "";
    sound = sound && areDigits(part);
    if (sound) wanted = wanted << 16 | (upTo(kLargestInt, part) & 0xFFFF);
  }
  require(rc == (sound ? 0U : kMalformed), "status of a version string", text);
  require(code == (sound ? wanted : kUntouched), "code of a version string", text);
}

// The face's reading is stricter: one to four numbers, none empty, none above 65535.
void readTextStrictly(const std::string& text) {
  const vrx::Result<vrx::Version> got = vrx::Version::parse(text);
  const std::vector<std::string> parts = pieces(text);
  bool sound = parts.size() <= 4;
  std::uint64_t wanted = 0;
  for (unsigned i = 0; i < 4 && sound; ++i) {
    const std::string part = i < parts.size() ? parts[i] : "0";
    sound = !part.empty() && areDigits(part) && upTo(0x10000, part) < 0x10000;
    if (sound) wanted = wanted << 16 | upTo(0x10000, part);
  }
  require(static_cast<bool>(got) == sound, "read by the face", text);
  if (sound) require(got->code == wanted, "value of the face", text);
}

std::string textOf(unsigned long long code) {
  std::string text = std::to_string(code >> 48);
  for (const int shift : {32, 16, 0})
    text += "." + std::to_string(code >> shift & 0xFFFF);
  return text;
}

void writeCode(unsigned long long code) {
  const std::string wanted = textOf(code);
  for (unsigned size = 0; size <= kVersionStringSize; ++size) {
    std::vector<char> buffer(size + 1, '#');  // one more, as a fence
    const unsigned rc = ossVersionCodeToString(code, buffer.data(), size);
    const bool fits = size > wanted.size();
    require(rc == (fits ? 0U : kTooSmall), "status of a version code", wanted);
    if (fits) require(wanted == buffer.data(), "text of a version code", wanted);
    require(fits || buffer[0] == '#', "a buffer too small was written to", wanted);
    require(buffer[size] == '#', "written past the buffer", wanted);
  }
  unsigned long long again = 0;
  require(ossVersionStringToCode(wanted.c_str(), &again) == 0 && again == code, "read back",
          wanted);
  require(vrx::Version{code}.text() == wanted, "text of the face", wanted);
}

// Digits as they are printed: at least two a part, the first part without leading zeros.
void writeLevel(unsigned long long code) {
  std::string digits = std::to_string(code >> 48);
  for (const int shift : {32, 16, 0}) {
    const std::string part = std::to_string(code >> shift & 0xFFFF);
    digits += (part.size() < 2 ? "0" : "") + part;
  }
  const unsigned long long wanted = upTo(0x7FFFFFFF, digits);
  const int level = ossVersionCodeServiceToVRX(code);
  require(level >= 0 && static_cast<unsigned long long>(level) == wanted, "level", digits);
  const auto number = static_cast<unsigned>(code);
  unsigned long long back = 0;
  for (const unsigned divisor : {1000000U, 10000U, 100U, 1U})
    back = back << 16 | number / divisor % 100;
  require(ossVersionCodeVRXToService(number) == back, "code of a level");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  unsigned long long code = 0;
  if (size >= sizeof code) std::memcpy(&code, data, sizeof code);
  const std::string bytes = vrxfuzz::bytesOf(data, size);
  readText(bytes.substr(0, bytes.find('\0')));
  readTextStrictly(bytes);
  writeCode(code);
  writeLevel(code);
  return 0;
}
