// SPDX-License-Identifier: Apache-2.0
// Text registries of many blocks: lines that lie across two of them, and blocks that fail.
#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "genreg/formats/var_val.h"
#include "tests/support/faults.h"
#include "tests/support/leak_check.h"
#include "tests/support/temp_dir.h"
#include "tests/support/text_records.h"

namespace {

using vrxtest::Call;
using vrxtest::FailCall;
using vrxtest::LeakCheck;
using vrxtest::ProfileLine;
namespace status = genreg::status;

constexpr int kLines = 9000;  // about 230,000 bytes

std::string nameOf(int number) {
  return "NAME" + std::to_string(number);
}

std::string lineOf(int number, const std::string& value) {
  return nameOf(number) + " = " + value + "\n";
}

std::string linesWith(int changed, const std::string& value) {
  std::string lines;
  for (int i = 0; i < kLines; ++i)
    lines += lineOf(i, i == changed ? value : "value " + std::to_string(i));
  return lines;
}

class TextBlocks : public testing::Test {
 protected:
  TextBlocks() { vrxtest::writeFile(path_, linesWith(-1, "")); }
  GenRegStatus get(int number) {
    ProfileLine key(nameOf(number));
    return profile_.Get(kVarValVariable, key.record(), &result_);
  }

  const vrxtest::TempDir folder_;
  std::string path_ = folder_.file("profile");
  unsigned int constructed_ = 0;
  GenRegVarVal profile_{path_.c_str(), &constructed_};
  GenRegVarValRecord result_{};
};

TEST_F(TextBlocks, EveryLineIsFoundWhereverABlockEnds) {
  for (int number = 0; number < kLines; number += 97) {
    ASSERT_EQ(get(number), 0U) << number;
    EXPECT_EQ(result_.value, "value " + std::to_string(number));
  }
}

TEST_F(TextBlocks, AScanGivesEveryLineOnce) {
  ASSERT_EQ(profile_.OpenScan(), 0U);
  for (int number = 0; number < kLines; ++number) {
    ASSERT_EQ(profile_.GetNext(0, nullptr, &result_), 0U);
    ASSERT_EQ(result_.variable, nameOf(number));
  }
  EXPECT_EQ(profile_.GetNext(0, nullptr, &result_), status::end_of_registry);
}

TEST_F(TextBlocks, AChangeTouchesNoOtherByte) {
  for (const int number : {0, 1313, 4444, kLines - 1}) {
    vrxtest::writeFile(path_, linesWith(-1, ""));
    ProfileLine key(nameOf(number));
    ProfileLine line(nameOf(number), "another, longer value");
    ASSERT_EQ(profile_.Change(kVarValVariable, key.record(), line.record()), 0U) << number;
    EXPECT_TRUE(vrxtest::readFile(path_) == linesWith(number, "another, longer value")) << number;
  }
}

TEST_F(TextBlocks, AnAbandonedCopyHasTheLinesBeforeTheNul) {
  ASSERT_EQ(profile_.unsetFeature(kGenRegVerifyCommit), 0U);  // such copies stay
  const std::string before = lineOf(1, "one") + "# two\n";
  vrxtest::writeFile(path_, before + "A" + std::string(1, '\0') + "= 1\n" + lineOf(3, "three"));
  ProfileLine key(nameOf(4));
  EXPECT_EQ(profile_.Delete(kVarValVariable, key.record()), status::read_failed);
  EXPECT_EQ(vrxtest::readFile(path_ + ".tmp"), before);
}

TEST_F(TextBlocks, AReadErrorSpoilsOnlyTheLinesBehindIt) {
  const LeakCheck leaks;
  const FailCall fault(Call::kRead, 2, EIO);
  EXPECT_EQ(get(kLines - 1), status::read_failed);
  EXPECT_EQ(get(0), 0U);
}

}  // namespace
