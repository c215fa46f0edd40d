// SPDX-License-Identifier: Apache-2.0
// The checksum's arithmetic and the byte order of lengths.
#include "genreg/bin/checksum.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>

#include "genreg/status.h"

namespace {

using genreg::statusOf;
using genreg::status::invalid_argument;

unsigned int sumOf(const std::string& bytes) {
  return sqlzChecksumXOR(bytes.data(), static_cast<int>(bytes.size()));
}

std::string bytesOf(std::initializer_list<int> values) {
  std::string bytes;
  for (const int value : values)
    bytes.push_back(static_cast<char>(value));
  return bytes;
}

TEST(Checksum, OfNothingIsZero) {
  EXPECT_EQ(sumOf(""), 0U);
  EXPECT_EQ(sqlzChecksumXOR("abcd", 0), 0U);
}

TEST(Checksum, OfNegativeLengthsAndNullDataIsZero) {
  EXPECT_EQ(sqlzChecksumXOR("abcd", -1), 0U);
  EXPECT_EQ(sqlzChecksumXOR(nullptr, 4), 0U);
}

TEST(Checksum, OfTwoWordsIsTheirExclusiveOr) {
  EXPECT_EQ(sumOf(bytesOf({1, 0, 0, 0, 2, 0, 0, 0})), 3U);
}

TEST(Checksum, ReadsWordsInHostOrder) {
  const std::string bytes = bytesOf({0x01, 0x02, 0x83, 0x04});
  unsigned int word = 0;
  std::memcpy(&word, bytes.data(), sizeof word);
  EXPECT_EQ(sumOf(bytes), word);
}

TEST(Checksum, TrailingBytesAreSignExtended) {
  EXPECT_EQ(sumOf(bytesOf({0xFF})), 0xFFFFFFFFU);
  EXPECT_EQ(sumOf(bytesOf({1, 0, 0, 0, 0xFF})), 0xFFFFFFFEU);
  EXPECT_EQ(sumOf(bytesOf({0x80})), 0xFFFFFF80U);
  EXPECT_EQ(sumOf(bytesOf({0x7F})), 0x7FU);
}

TEST(Checksum, TakesEachOfUpToThreeTrailingBytes) {
  EXPECT_EQ(sumOf(bytesOf({0x10, 0x01})), 0x11U);
  EXPECT_EQ(sumOf(bytesOf({0x10, 0x80, 0x01})), 0xFFFFFF91U);
  EXPECT_EQ(sumOf(bytesOf({0, 0, 0, 0, 0x80, 0x80, 0x7F})), 0x7FU);
}

TEST(Checksum, DoesNotAskForAlignment) {
  const std::string bytes = bytesOf({1, 0, 0, 0, 2, 0, 0, 0, 0xFE});
  for (std::size_t shift = 0; shift < 8; ++shift) {
    const std::string shifted = std::string(shift, 'x') + bytes;
    EXPECT_EQ(sqlzChecksumXOR(shifted.data() + shift, static_cast<int>(bytes.size())),
              3U ^ 0xFFFFFFFEU)
        << shift;
  }
}

TEST(Checksum, ReadsNothingBehindItsLength) {
  const std::string bytes = bytesOf({5, 0, 0, 0, 1, 0x55, 0x55, 0x55});
  EXPECT_EQ(sqlzChecksumXOR(bytes.data(), 5), 4U);
}

TEST(BigEndian, NumberHasItsMostSignificantByteFirst) {
  std::array<signed char, 4> bytes{};
  ASSERT_EQ(toBigEndianUint32(bytes.data(), 0x12F0A4B5U), 0);
  EXPECT_EQ(std::memcmp(bytes.data(), "\x12\xF0\xA4\xB5", 4), 0);
  ASSERT_EQ(toBigEndianUint32(bytes.data(), 36), 0);
  EXPECT_EQ(std::memcmp(bytes.data(), "\0\0\0\x24", 4), 0);
}

TEST(BigEndian, EachByteIsReadAsUnsigned) {
  std::array<signed char, 4> bytes{-1, -2, -128, 127};
  unsigned int value = 0;
  ASSERT_EQ(fromBigEndianUint32(bytes.data(), &value), 0);
  EXPECT_EQ(value, 0xFFFE807FU);
}

TEST(BigEndian, NumbersComeBackAsTheyWere) {
  for (const unsigned int number : {0U, 1U, 0x80U, 0x8000U, 0x800000U, 0x80000000U, 0xFFFFFFFFU}) {
    std::array<signed char, 4> bytes{};
    unsigned int value = ~number;
    ASSERT_EQ(toBigEndianUint32(bytes.data(), number), 0);
    ASSERT_EQ(fromBigEndianUint32(bytes.data(), &value), 0);
    EXPECT_EQ(value, number);
  }
}

TEST(BigEndian, NullArgumentsAreRefusedAndChangeNothing) {
  std::array<signed char, 4> bytes{1, 2, 3, 4};
  unsigned int value = 7;
  EXPECT_EQ(statusOf(fromBigEndianUint32(nullptr, &value)), invalid_argument);
  EXPECT_EQ(statusOf(fromBigEndianUint32(bytes.data(), nullptr)), invalid_argument);
  EXPECT_EQ(statusOf(toBigEndianUint32(nullptr, 9)), invalid_argument);
  EXPECT_EQ(value, 7U);
  EXPECT_EQ(bytes, (std::array<signed char, 4>{1, 2, 3, 4}));
}

}  // namespace
