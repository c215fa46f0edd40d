// SPDX-License-Identifier: Apache-2.0
// Version codes, their text and their level numbers.
#include "oss/version_code.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "genreg/internal/function_ids.h"
#include "tests/support/captured_log.h"

namespace {

using vrxtest::CapturedLog;

constexpr unsigned long long kVersion3107 = 0x0003000100000007ULL;
constexpr unsigned long long kUntouched = 0x1234;

std::string textOf(unsigned long long code) {
  char text[kVersionStringSize] = {};
  EXPECT_EQ(ossVersionCodeToString(code, text, sizeof text), 0U);
  return text;
}

unsigned long long codeOf(const char* text) {
  unsigned long long code = kUntouched;
  EXPECT_EQ(ossVersionStringToCode(text, &code), 0U) << text;
  return code;
}

GenRegStatus refusalOf(const char* text) {
  unsigned long long code = kUntouched;
  const GenRegStatus rc = ossVersionStringToCode(text, &code);
  EXPECT_EQ(code, kUntouched) << text;
  return rc;
}

TEST(VersionCode, TextHasFourParts) {
  EXPECT_EQ(textOf(kVersion3107), "3.1.0.7");
  EXPECT_EQ(textOf(0), "0.0.0.0");
  EXPECT_EQ(textOf(~0ULL), "65535.65535.65535.65535");
}

TEST(VersionCode, BufferOfLengthPlusOneIsEnough) {
  char text[9] = "xxxxxxxx";
  EXPECT_EQ(ossVersionCodeToString(kVersion3107, text, 8), 0U);
  EXPECT_STREQ(text, "3.1.0.7");
  EXPECT_EQ(ossVersionCodeToString(kVersion3107, text, 9), 0U);
}

TEST(VersionCode, SmallerBufferIsRefusedUntouched) {
  char text[8] = "xxxxxxx";
  const CapturedLog log;
  for (const unsigned size : {0U, 1U, 7U}) {
    EXPECT_EQ(ossVersionCodeToString(kVersion3107, text, size), 0x9000025EU);
    EXPECT_STREQ(text, "xxxxxxx");
  }
  EXPECT_EQ(log.count(genreg::kOssVersionCodeToString, 0x9000025E), 3);
}

TEST(VersionCode, NullPointersAreRefusedAndLogged) {
  unsigned long long code = kUntouched;
  const CapturedLog log;
  EXPECT_EQ(ossVersionCodeToString(kVersion3107, nullptr, 24), 0x9000025CU);
  EXPECT_EQ(ossVersionStringToCode(nullptr, &code), 0x9000025CU);
  EXPECT_EQ(ossVersionStringToCode("3.1", nullptr), 0x9000025CU);
  EXPECT_EQ(code, kUntouched);
  EXPECT_EQ(log.count(genreg::kOssVersionCodeToString, 0x9000025C), 1);
  EXPECT_EQ(log.count(genreg::kOssVersionStringToCode, 0x9000025C), 2);
}

TEST(VersionCode, MissingTrailingComponentsAreZero) {
  EXPECT_EQ(codeOf("3.1.0.7"), kVersion3107);
  EXPECT_EQ(textOf(codeOf("3")), "3.0.0.0");
  EXPECT_EQ(textOf(codeOf("3.1")), "3.1.0.0");
  EXPECT_EQ(textOf(codeOf("3.1.2")), "3.1.2.0");
}

TEST(VersionCode, EmptyComponentsAreZero) {
  EXPECT_EQ(codeOf(""), 0U);
  EXPECT_EQ(codeOf("..."), 0U);
  EXPECT_EQ(textOf(codeOf(".2..4")), "0.2.0.4");
  EXPECT_EQ(textOf(codeOf("3.")), "3.0.0.0");
}

TEST(VersionCode, OtherCharactersThanDigitsAreRefused) {
  for (const char* text :
       {"3.1a", "a", " 3", "3 .1", "-1", "+1", "3.1.0.7.1", "3.1.0.7.", "....", "3,1", "3.1.0.x"}) {
    EXPECT_EQ(refusalOf(text), 0x9000025FU) << text;
  }
}

TEST(VersionCode, OnlyTheFirst23CharactersAreLookedAt) {
  EXPECT_EQ(textOf(codeOf("00000000000000000000003xyz")), "3.0.0.0");
  EXPECT_EQ(textOf(codeOf("3.1.0.00000000000000007.9")), "3.1.0.7");
  EXPECT_EQ(refusalOf("0000000000000000000000x"), 0x9000025FU);
}

TEST(VersionCode, ComponentsKeep16BitsOfTheirValue) {
  EXPECT_EQ(textOf(codeOf("65535.65536.65537")), "65535.0.1.0");
}

TEST(VersionCode, ComponentsSaturateAt31Bits) {
  EXPECT_EQ(textOf(codeOf("2147483647")), "65535.0.0.0");
  EXPECT_EQ(textOf(codeOf("2147483648")), "65535.0.0.0");
  EXPECT_EQ(textOf(codeOf("99999999999999999999999")), "65535.0.0.0");
}

TEST(VersionCode, LevelNumbersHaveTwoDigitsAPart) {
  EXPECT_EQ(ossVersionCodeServiceToVRX(kVersion3107), 3010007);
  EXPECT_EQ(ossVersionCodeVRXToService(3010007), kVersion3107);
  EXPECT_EQ(ossVersionCodeServiceToVRX(0), 0);
  EXPECT_EQ(ossVersionCodeVRXToService(0), 0U);
  EXPECT_EQ(textOf(ossVersionCodeVRXToService(99999999)), "99.99.99.99");
  EXPECT_EQ(ossVersionCodeServiceToVRX(codeOf("99.99.99.99")), 99999999);
}

TEST(VersionCode, LevelNumbersRoundTrip) {
  for (unsigned level = 0; level < 100000000; level += 9973) {
    EXPECT_EQ(ossVersionCodeServiceToVRX(ossVersionCodeVRXToService(level)),
              static_cast<int>(level));
  }
}

TEST(VersionCode, DigitsOfALevelBeyondEightAreDropped) {
  EXPECT_EQ(textOf(ossVersionCodeVRXToService(4294967295U)), "94.96.72.95");
}

TEST(VersionCode, PartsAbove99SpillIntoTheNeighbouringDigits) {
  EXPECT_EQ(ossVersionCodeServiceToVRX(codeOf("3.100.0.7")), 31000007);
  EXPECT_EQ(ossVersionCodeServiceToVRX(codeOf("3.1.0.100")), 30100100);
}

TEST(VersionCode, LevelNumbersSaturateAt31Bits) {
  EXPECT_EQ(ossVersionCodeServiceToVRX(codeOf("21.47.48.3647")), 2147483647);
  EXPECT_EQ(ossVersionCodeServiceToVRX(codeOf("21.47.48.3648")), INT_MAX);
  EXPECT_EQ(ossVersionCodeServiceToVRX(~0ULL), INT_MAX);
}

}  // namespace
