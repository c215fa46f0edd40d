// SPDX-License-Identifier: Apache-2.0
// The typed lookups of a profile. The slots are var_val_test's.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "genreg/formats/var_val.h"
#include "tests/support/leak_check.h"
#include "tests/support/temp_dir.h"

namespace {

using vrxtest::LeakCheck;
using vrxtest::TempDir;

class VarValValues : public ::testing::Test {
 protected:
  void fill(const std::string& bytes) { vrxtest::writeFile(path_, bytes); }
  // The profile "A=<value>".
  void give(const std::string& value) { fill("A=" + value + "\n"); }

  const TempDir folder_;
  const std::string path_ = folder_.file("profile");
  unsigned int rc_ = ~0U;
  GenRegVarVal profile_{path_.c_str(), &rc_};
};

TEST_F(VarValValues, BooleanWordsAreUnderstood) {
  for (const char* word : {"1", "true", "T", "yes", "Y", "ON"}) {
    give(word);
    bool value = false;
    EXPECT_TRUE(profile_.GetBooleanValue("A", &value)) << word;
    EXPECT_TRUE(value) << word;
  }
  for (const char* word : {"0", "FALSE", "f", "no", "N", "off"}) {
    give(word);
    bool value = true;
    EXPECT_TRUE(profile_.GetBooleanValue("A", &value)) << word;
    EXPECT_FALSE(value) << word;
  }
}

TEST_F(VarValValues, OtherWordsAreNoBooleans) {
  for (const char* word : {"", "2", "maybe", "\"1\"", "true true"}) {
    give(word);
    bool value = true;
    EXPECT_FALSE(profile_.GetBooleanValue("A", &value)) << word;
    EXPECT_TRUE(value) << "untouched";
  }
}

TEST_F(VarValValues, StringIsTheTextAsWritten) {
  fill("A = \"x   y\" tail # c\nB = one   two\nC=\n");
  const char* text = nullptr;
  ASSERT_TRUE(profile_.GetStringValue("A", &text));
  EXPECT_STREQ(text, "\"x   y\"");
  ASSERT_TRUE(profile_.GetStringValue("B", &text));
  EXPECT_STREQ(text, "one two");
  ASSERT_TRUE(profile_.GetStringValue("C", &text));
  EXPECT_STREQ(text, "");
}

TEST_F(VarValValues, StringLivesUntilTheNextLookup) {
  fill("A = first\nB = second\n");
  const char* text = nullptr;
  ASSERT_TRUE(profile_.GetStringValue("A", &text));
  GenRegVarVal other(path_.c_str(), &rc_);
  int number = 0;
  EXPECT_FALSE(other.GetSintValue("B", &number));
  EXPECT_STREQ(text, "first") << "another object's lookup does not touch it";
}

TEST_F(VarValValues, SignedNumbers) {
  const struct {
    const char* text;
    int value;
  } kGood[] = {{"0", 0},
               {"-5", -5},
               {"+7", 7},
               {"007", 7},
               {"2147483647", 2147483647},
               {"-2147483648", -2147483647 - 1},
               {"", 0}};
  for (const auto& good : kGood) {
    give(good.text);
    int value = 99;
    EXPECT_TRUE(profile_.GetSintValue("A", &value)) << good.text;
    EXPECT_EQ(value, good.value) << good.text;
  }
}

TEST_F(VarValValues, TextBehindANumberIsRefused) {
  for (const char* text : {"12x", "x", "1 2", "1.5", "0x10", "\"5\"", "--5"}) {
    give(text);
    int number = 99;
    unsigned int count = 99;
    EXPECT_FALSE(profile_.GetSintValue("A", &number)) << text;
    EXPECT_FALSE(profile_.GetUintValue("A", &count)) << text;
    EXPECT_EQ(number, 99);
    EXPECT_EQ(count, 99U);
  }
}

TEST_F(VarValValues, SignedNumbersSaturateInEveryBuild) {
  for (const char* text : {"2147483648", "4294967296", "99999999999999999999999"}) {
    give(text);
    int value = 0;
    EXPECT_TRUE(profile_.GetSintValue("A", &value)) << text;
    EXPECT_EQ(value, 2147483647) << text;
    give("-" + std::string(text) + "9");
    EXPECT_TRUE(profile_.GetSintValue("A", &value)) << text;
    EXPECT_EQ(value, -2147483647 - 1) << text;
  }
}

TEST_F(VarValValues, UnsignedNumbersWrapASignAndSaturateInEveryBuild) {
  const struct {
    const char* text;
    unsigned int value;
  } kGood[] = {{"0", 0},
               {"4294967295", 4294967295U},
               {"4294967296", 4294967295U},
               {"99999999999999999999999", 4294967295U},
               {"-1", 4294967295U},
               {"-2", 4294967294U},
               {"-4294967295", 1},
               {"-4294967296", 4294967295U},
               {"-99999999999999999999999", 4294967295U},
               {"\v-2", 4294967294U},
               {"\f-2", 4294967294U},
               {"", 0}};
  for (const auto& good : kGood) {
    give(good.text);
    unsigned int value = 99;
    EXPECT_TRUE(profile_.GetUintValue("A", &value)) << good.text;
    EXPECT_EQ(value, good.value) << good.text;
  }
}

TEST_F(VarValValues, Doubles) {
  double value = 99;
  give("-1.5e3");
  EXPECT_TRUE(profile_.GetDoubleValue("A", &value));
  EXPECT_EQ(value, -1500.0);
  give("");
  EXPECT_TRUE(profile_.GetDoubleValue("A", &value));
  EXPECT_EQ(value, 0.0);
  give("1e999");
  EXPECT_TRUE(profile_.GetDoubleValue("A", &value));
  EXPECT_TRUE(std::isinf(value));
  value = 99;
  for (const char* text : {"1.5x", "one", "\"1.5\"", "1,5"}) {
    give(text);
    EXPECT_FALSE(profile_.GetDoubleValue("A", &value)) << text;
    EXPECT_EQ(value, 99.0);
  }
}

TEST_F(VarValValues, FirstOfSeveralLinesCounts) {
  fill("# A = 0\nbroken line\nA = 1\nA = 2\n");
  int value = 0;
  ASSERT_TRUE(profile_.GetSintValue("A", &value));
  EXPECT_EQ(value, 1);
}

TEST_F(VarValValues, NothingFoundLeavesTheOutputAlone) {
  const LeakCheck leaks;
  bool truth = true;
  const char* text = "before";
  double real = 1;
  int number = 1;
  unsigned int count = 1;
  const auto tryAll = [&](const char* name) {
    return profile_.GetBooleanValue(name, &truth) || profile_.GetStringValue(name, &text) ||
           profile_.GetDoubleValue(name, &real) || profile_.GetSintValue(name, &number) ||
           profile_.GetUintValue(name, &count);
  };
  EXPECT_FALSE(tryAll("A")) << "no file";
  give("1");
  EXPECT_FALSE(tryAll("B"));
  EXPECT_FALSE(tryAll("a"));
  EXPECT_FALSE(tryAll(""));
  EXPECT_FALSE(tryAll(nullptr));
  EXPECT_TRUE(truth);
  EXPECT_STREQ(text, "before");
  EXPECT_EQ(real, 1);
  EXPECT_EQ(number, 1);
  EXPECT_EQ(count, 1U);
}

}  // namespace
