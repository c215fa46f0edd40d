// SPDX-License-Identifier: Apache-2.0
// System errors and the rows of the status table.
#include "platform/osse/errors.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <set>
#include <string>

namespace {

using namespace oss;

TEST(OssErrors, ZeroIsSuccess) {
  EXPECT_EQ(ossErrorMapSystem(0), status::ok);
}

TEST(OssErrors, FourErrorsHaveCodesOfTheirOwn) {
  EXPECT_EQ(ossErrorMapSystem(ENOMEM), 0x9000000Du);
  EXPECT_EQ(ossErrorMapSystem(EINVAL), 0x9000000Cu);
  EXPECT_EQ(ossErrorMapSystem(ENAMETOOLONG), 0x90000008u);
  EXPECT_EQ(ossErrorMapSystem(ERANGE), 0x90000008u);
}

TEST(OssErrors, OtherErrorsAreAddedToTheBase) {
  EXPECT_EQ(ossErrorMapSystem(ENOENT), 0x90000080u + ENOENT);
  EXPECT_EQ(ossErrorMapSystem(EACCES), 0x90000080u + EACCES);
  EXPECT_EQ(ossErrorMapSystem(133), 0x90000105u);
}

TEST(OssErrors, ImpossibleErrorsStayBelowTheCodesOfOtherLibraries) {
  EXPECT_EQ(ossErrorMapSystem(kOssMaxSystemError), 0x900001B2u);
  EXPECT_EQ(ossErrorMapSystem(kOssMaxSystemError + 1), status::system_error_out_of_range);
  EXPECT_EQ(ossErrorMapSystem(INT_MAX), status::system_error_out_of_range);
  EXPECT_EQ(ossErrorMapSystem(-1), status::system_error_out_of_range);
  EXPECT_EQ(ossErrorMapSystem(INT_MIN), status::system_error_out_of_range);
}

TEST(OssErrors, MappingKeepsErrno) {
  errno = EXDEV;
  (void)ossErrorMapSystem(EIO);
  EXPECT_EQ(errno, EXDEV);
}

TEST(OssStatus, EachRowHasItsOwnNameAndValueAndTexts) {
  struct Row {
    OSSStatus code;
    std::string name, meaning, raisedBy, remedy;
  };
  const Row rows[] = {
#define VRX_STATUS(name, value, meaning, raisedBy, remedy) \
  {(value), #name, meaning, raisedBy, remedy},
#include "platform/osse/status_codes.inc"
#undef VRX_STATUS
  };
  std::set<OSSStatus> codes;
  std::set<std::string> names;
  for (const Row& row : rows) {
    EXPECT_TRUE(codes.insert(row.code).second) << row.name;
    EXPECT_TRUE(names.insert(row.name).second) << row.name;
    EXPECT_FALSE(row.meaning.empty() || row.raisedBy.empty() || row.remedy.empty()) << row.name;
    EXPECT_TRUE(row.code == 0 || (row.code > 0x90000000u && row.code < 0x90000080u)) << row.name;
  }
}

TEST(OssStatus, SharedCodesHaveTheirFixedValues) {
  EXPECT_EQ(status::ok, 0u);
  EXPECT_EQ(status::buffer_too_small, 0x90000008u);
  EXPECT_EQ(status::invalid_argument, 0x9000000Cu);
  EXPECT_EQ(status::no_memory, 0x9000000Du);
  EXPECT_EQ(status::lock_held, 0x90000014u);
}

}  // namespace
