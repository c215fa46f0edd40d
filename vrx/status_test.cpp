// SPDX-License-Identifier: Apache-2.0
// Statuses, results and versions by themselves.
#include "vrx/status.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "vrx/version.h"

namespace {

using vrx::Result;
using vrx::Status;
using vrx::Version;
namespace status = genreg::status;

TEST(FaceStatus, DefaultIsSuccess) {
  const Status good;
  EXPECT_TRUE(good.ok());
  EXPECT_TRUE(static_cast<bool>(good));
  EXPECT_EQ(good.code(), 0U);
  EXPECT_STREQ(good.name(), "ok");
  EXPECT_EQ(good.message(), "success");
}

TEST(FaceStatus, NamesAndMeansEveryCodeOfTheTable) {
  unsigned long count = 0;
  const GenRegStatusInfo* rows = genregStatusTable(&count);
  ASSERT_GT(count, 100UL);
  for (unsigned long i = 0; i < count; ++i) {
    const Status each(rows[i].code);
    EXPECT_STREQ(each.name(), rows[i].name);
    EXPECT_EQ(each.meaning(), rows[i].meaning);
  }
}

TEST(FaceStatus, SystemErrorsAndUnknownCodesHaveAMeaningToo) {
  const Status system(0x90000080U + EACCES);
  EXPECT_STREQ(system.name(), "system_error");
  EXPECT_EQ(system.meaning(), "system error 13: Permission denied");
  const Status unknown(0x9FFFFFFFU);
  EXPECT_STREQ(unknown.name(), "unknown");
  EXPECT_EQ(unknown.meaning(), "a code without a meaning");
}

TEST(FaceStatus, MessageNamesFileFieldReasonAndCode) {
  EXPECT_EQ(Status(status::no_match, "/f").message(), "/f: no record matches (0x900001F6)");
  const Status refused = Status::refused("value", "is odd").at("/f");
  EXPECT_EQ(refused.message(), "/f: value: is odd (0x900001FC)");
  EXPECT_EQ(refused.field(), "value");
  EXPECT_EQ(refused.detail(), "is odd");
  EXPECT_EQ(refused.path(), "/f");
}

TEST(FaceStatus, AFileOrDetailGivenFirstStays) {
  const Status first = Status(status::read_failed, "/a").at("/b").because("one").because("two");
  EXPECT_EQ(first.path(), "/a");
  EXPECT_EQ(first.detail(), "one");
  EXPECT_EQ(Status().at("/a").path(), "") << "success is about no file";
}

TEST(FaceStatus, PredicatesTellOutcomesApart) {
  EXPECT_TRUE(Status(status::no_match).notFound());
  EXPECT_FALSE(Status(status::no_registry).notFound());
  EXPECT_TRUE(Status(status::no_registry).noFile());
  EXPECT_TRUE(Status(status::duplicate_record).exists());
  for (const GenRegStatus code :
       {GenRegStatus{status::lock_not_taken}, GenRegStatus{status::locked_elsewhere},
        GenRegStatus{status::lock_held}, GenRegStatus{status::registry_not_locked}}) {
    EXPECT_TRUE(Status(code).busy()) << code;
  }
  EXPECT_FALSE(Status(status::read_failed).busy());
  EXPECT_TRUE(Status(status::backup_not_deleted).updateStands());
  EXPECT_FALSE(Status(status::close_failed).updateStands());
}

TEST(FaceResult, HoldsAValueOrAStatus) {
  const Result<std::string> value(std::string("x"));
  EXPECT_TRUE(value.has_value());
  EXPECT_TRUE(value.status().ok());
  EXPECT_EQ(*value, "x");
  EXPECT_EQ(value->size(), 1U);
  const Result<std::string> failure = Status(status::no_match);
  EXPECT_FALSE(failure);
  EXPECT_TRUE(failure.status().notFound());
  EXPECT_EQ(failure.value_or("other"), "other");
  EXPECT_EQ(value.value_or("other"), "x");
}

TEST(FaceResult, ATemporaryGivesItsValueAway) {
  const auto make = [] { return Result<std::vector<int>>(std::vector<int>{1, 2, 3}); };
  int sum = 0;
  for (const int each : *make())
    sum += each;
  EXPECT_EQ(sum, 6);
}

TEST(FaceResult, ATemporaryGivesItsStatusAway) {
  const auto missing = [] { return Result<int>(Status(genreg::status::no_registry, "/f")); };
  const Status& status = missing().status();  // lives as long as its name
  EXPECT_TRUE(status.noFile());
  EXPECT_EQ(status.path(), "/f");
}

TEST(FaceResultDeathTest, TheValueOfAFailureEndsTheProgram) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const Result<int> failure(Status(status::no_match, "/f"));
  EXPECT_DEATH((void)*failure, "no value: /f: no record matches");
  EXPECT_DEATH((void)Result<int>(Status()), "made of success");
}

TEST(FaceVersion, ReadsOneToFourPartsAndPrintsFour) {
  EXPECT_EQ(Version::parse("3.1.0.7").value_or({}).code, 0x0003000100000007U);
  EXPECT_EQ(Version::parse("3.1").value_or({}), Version::of(3, 1));
  EXPECT_EQ(Version::parse("65535.65535.65535.65535").value_or({}).code, UINT64_MAX);
  EXPECT_EQ(Version::of(3, 1, 0, 7).text(), "3.1.0.7");
  EXPECT_EQ(Version().text(), "0.0.0.0");
  EXPECT_EQ(Version::of(3, 1, 0, 7).part(3), 7);
}

TEST(FaceVersion, RefusesEverythingElse) {
  for (const char* text : {"", ".", "3.", ".3", "3..1", "1.2.3.4.5", "1.2.3.4.", "65536", "3.x",
                           " 3", "3 ", "+3", "-3", "0x3", "99999999999999999999"}) {
    EXPECT_EQ(Version::parse(text).status().code(), status::version_malformed) << text;
  }
  EXPECT_FALSE(Version::parse(std::string_view("3\0", 2)));
}

TEST(FaceVersion, ComparesByItsParts) {
  EXPECT_LT(Version::of(3, 1, 9), Version::of(3, 2));
  EXPECT_GE(Version::of(10), Version::of(9, 9, 9, 9));
  EXPECT_NE(Version::of(1), Version::of(1, 0, 0, 1));
}

}  // namespace
