// SPDX-License-Identifier: Apache-2.0
// Printable names of function identifiers.
#include "platform/osse/names.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "platform/osse/internal/function_ids.h"
#include "tests/support/leave_child.h"

namespace {

constexpr OSSFunctionName kTable[] = {{0x7F000001, "first"}, {0x7F000002, "second"}};
constexpr OSSFunctionName kLaterTable[] = {{0x7F000002, "hidden"}, {0x7F000003, "third"}};

TEST(OssNames, RegisteredIdentifiersHaveNames) {
  ecfRegisterFunctionNames(kTable, 2);
  EXPECT_STREQ(ecfGetFunctionName(0x7F000001), "first");
  EXPECT_STREQ(ecfGetFunctionName(0x7F000002), "second");
}

TEST(OssNames, TheEarlierTableCounts) {
  ecfRegisterFunctionNames(kTable, 2);
  ecfRegisterFunctionNames(kLaterTable, 2);
  EXPECT_STREQ(ecfGetFunctionName(0x7F000002), "second");
  EXPECT_STREQ(ecfGetFunctionName(0x7F000003), "third");
}

TEST(OssNames, RegisteringAgainUsesNoFurtherRoom) {
  for (unsigned long i = 0; i < 2 * kOssMaxFunctionTables; ++i)
    ecfRegisterFunctionNames(kTable, 2);
  static constexpr OSSFunctionName kAfterwards[] = {{0x7F000010, "afterwards"}};
  ecfRegisterFunctionNames(kAfterwards, 1);
  EXPECT_STREQ(ecfGetFunctionName(0x7F000010), "afterwards");
}

TEST(OssNames, NullAndEmptyTablesAreIgnored) {
  ecfRegisterFunctionNames(nullptr, 5);
  static constexpr OSSFunctionName kEmpty[] = {{0x7F000020, "never"}};
  ecfRegisterFunctionNames(kEmpty, 0);
  EXPECT_STREQ(ecfGetFunctionName(0x7F000020), "0x7F000020");
}

TEST(OssNames, TheLibrarysOwnFunctionsHaveNames) {
  EXPECT_STREQ(ecfGetFunctionName(oss::internal::kOssMemFree), "ossMemFree");
}

TEST(OssNames, TextsOfUnknownIdentifiersStay) {
  const char* one = ecfGetFunctionName(0x0BAD0001);
  const char* other = ecfGetFunctionName(0xFFFFFFFF);
  EXPECT_STREQ(one, "0x0BAD0001");
  EXPECT_STREQ(other, "0xFFFFFFFF");
  EXPECT_EQ(ecfGetFunctionName(0x0BAD0001), one);
}

// Runs in a forked child: it uses up what the process keeps for unknown identifiers.
TEST(OssNames, ManyUnknownIdentifiersStillGetTheirText) {
  EXPECT_EXIT(
      {
        bool right = true;
        for (unsigned int id = 1; id < 2000; ++id) {
          char expected[16];
          std::snprintf(expected, sizeof expected, "0x%08X", id);
          right = right && std::string(expected) == ecfGetFunctionName(id);
        }
        vrxtest::leaveChild(right ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

// Runs in a forked child: the table of tables fills up.
TEST(OssNames, TablesBeyondTheLimitAreIgnored) {
  EXPECT_EXIT(
      {
        static std::vector<OSSFunctionName> rows;
        for (unsigned int i = 0; i < 2 * kOssMaxFunctionTables; ++i) {
          rows.push_back({0x7E000000 + i, "listed"});
        }
        for (const OSSFunctionName& row : rows)
          ecfRegisterFunctionNames(&row, 1);
        const bool first = std::string(ecfGetFunctionName(0x7E000000)) == "listed";
        const bool last = std::string(ecfGetFunctionName(rows.back().id)) == "0x7E00003F";
        vrxtest::leaveChild(first && last ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

TEST(OssNames, ThreadsAskAndRegisterAtOnce) {
  static constexpr OSSFunctionName kShared[] = {{0x7F000030, "shared"}};
  std::vector<std::thread> threads;
  for (unsigned int t = 0; t < 4; ++t) {
    threads.emplace_back([t] {
      for (unsigned int i = 0; i < 200; ++i) {
        ecfRegisterFunctionNames(kShared, 1);
        EXPECT_STREQ(ecfGetFunctionName(0x7F000030), "shared");
        EXPECT_EQ(std::string(ecfGetFunctionName(0x0BAD1000 + t)).size(), 10u);
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
}

}  // namespace
