// SPDX-License-Identifier: Apache-2.0
// Bounded formatting and the reading of booleans.
#include "platform/osse/strings.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>

namespace {

using namespace oss;

TEST(OssSnprintf, ReturnsTheLengthOfTheText) {
  char text[16];
  EXPECT_EQ(ossSnprintf(text, sizeof text, "%s-%d", "abc", 42), 6);
  EXPECT_STREQ(text, "abc-42");
}

TEST(OssSnprintf, CutsAndTerminates) {
  char text[5] = {'x', 'x', 'x', 'x', 'x'};
  EXPECT_EQ(ossSnprintf(text, 4, "%s", "abcdef"), 6);
  EXPECT_STREQ(text, "abc");
  EXPECT_EQ(text[4], 'x');
}

TEST(OssSnprintf, OneByteHoldsTheTerminator) {
  char text[1] = {'x'};
  EXPECT_EQ(ossSnprintf(text, 1, "%s", "abc"), 3);
  EXPECT_EQ(text[0], '\0');
}

TEST(OssSnprintf, SizeZeroWritesNothing) {
  char untouched = 'x';
  EXPECT_EQ(ossSnprintf(&untouched, 0, "%s", "abc"), 3);
  EXPECT_EQ(untouched, 'x');
  EXPECT_EQ(ossSnprintf(nullptr, 0, "%s", "abc"), 3);
  EXPECT_EQ(ossSnprintf(nullptr, 100, "%s", "abc"), 3);
}

TEST(OssSnprintf, NullFormatFailsAndEmptiesTheBuffer) {
  char text[4] = "abc";
  // Through a pointer, which hides the call from the compiler's own check of formats.
  int (*volatile format)(char*, unsigned long, const char*, ...) = ossSnprintf;
  EXPECT_EQ(format(text, sizeof text, nullptr), -1);
  EXPECT_STREQ(text, "");
}

TEST(OssSnprintf, HugeSizeIsNoFailure) {
  char text[8];
  EXPECT_EQ(ossSnprintf(text, ULONG_MAX, "%s", "abc"), 3);
  EXPECT_STREQ(text, "abc");
}

TEST(OssSnprintf, TextThatCannotBeFormattedFailsAndEmptiesTheBuffer) {
  char text[8] = "abc";
  const wchar_t noCharacter[] = {static_cast<wchar_t>(0x7FFFFFFF), 0};
  EXPECT_EQ(ossSnprintf(text, sizeof text, "%ls", noCharacter), -1);
  EXPECT_STREQ(text, "");
}

TEST(OssStrToBoolean, ReadsEveryWordInCapitalsOrNot) {
  for (const char* text :
       {"1", "true", "TRUE", "True", "t", "T", "yes", "YES", "y", "Y", "on", "On"}) {
    bool value = false;
    EXPECT_EQ(ossStrToBoolean(text, &value), status::ok) << text;
    EXPECT_TRUE(value) << text;
  }
  for (const char* text : {"0", "false", "FALSE", "f", "F", "no", "NO", "n", "N", "off", "oFF"}) {
    bool value = true;
    EXPECT_EQ(ossStrToBoolean(text, &value), status::ok) << text;
    EXPECT_FALSE(value) << text;
  }
}

TEST(OssStrToBoolean, RefusesEverythingElseAndLeavesTheOutput) {
  for (const char* text :
       {"", " ", " 1", "1 ", "2", "10", "tru", "truee", "ye", "o", "00", "-1", "\xC4\xB1"}) {
    bool value = true;
    EXPECT_EQ(ossStrToBoolean(text, &value), status::not_a_boolean) << text;
    EXPECT_TRUE(value) << text;
  }
}

TEST(OssStrToBoolean, NullIsAnInvalidArgument) {
  bool value = true;
  EXPECT_EQ(ossStrToBoolean(nullptr, &value), status::invalid_argument);
  EXPECT_EQ(ossStrToBoolean("1", nullptr), status::invalid_argument);
  EXPECT_TRUE(value);
}

}  // namespace
