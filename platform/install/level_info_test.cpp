// SPDX-License-Identifier: Apache-2.0
// The level file: what is read, and what is refused.
#include "platform/install/level_info.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/osse/errors.h"
#include "platform/osse/status.h"
#include "tests/support/temp_dir.h"

namespace {

using namespace oss;
using vrxtest::TempDir;
using vrxtest::writeFile;

constexpr char kSound[] = "version=3.1.0.7\nbuild_level=s250131\nfixpack=7\n";

class SqleLevelInfo : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(setenv("VRX_LEVEL_FILE", path_.c_str(), 1), 0); }
  void TearDown() override { unsetenv("VRX_LEVEL_FILE"); }

  OSSStatus read(const std::string& contents) {
    writeFile(path_, contents);
    std::memset(&info_, 0x5A, sizeof info_);
    return sqleGetLevelInfo(kSqleLevelInfoVersion, &info_);
  }
  void expectMalformed(const std::string& contents) {
    EXPECT_EQ(read(contents), status::level_file_malformed) << contents.substr(0, 200);
    EXPECT_TRUE(isUntouched());
  }
  bool isUntouched() const {
    sqleLevelInfo expected;
    std::memset(&expected, 0x5A, sizeof expected);
    return std::memcmp(&info_, &expected, sizeof expected) == 0;
  }

  const TempDir dir_;
  const std::string path_ = dir_.file("level");
  sqleLevelInfo info_{};
};

TEST_F(SqleLevelInfo, ReadsTheThreeValues) {
  ASSERT_EQ(read(kSound), status::ok);
  EXPECT_STREQ(info_.version, "3.1.0.7");
  EXPECT_STREQ(info_.buildLevel, "s250131");
  EXPECT_EQ(info_.fixpackNumber, 7u);
}

TEST_F(SqleLevelInfo, OrderBlanksCommentsAndOtherNamesDoNotCount) {
  ASSERT_EQ(read("# comment = x\r\n\n fixpack =\t4294967295 \r\nfuture=1\nfuture=\n \t\n"
                 "build_level= a = b \r\n#\nversion=65535"),
            status::ok);
  EXPECT_STREQ(info_.version, "65535");
  EXPECT_STREQ(info_.buildLevel, "a = b");
  EXPECT_EQ(info_.fixpackNumber, 4294967295u);
}

TEST_F(SqleLevelInfo, FieldsAreZeroFilledBehindTheirTexts) {
  ASSERT_EQ(read(kSound), status::ok);
  for (std::size_t i = std::strlen(info_.version); i < sizeof info_.version; ++i) {
    EXPECT_EQ(info_.version[i], '\0');
  }
  for (std::size_t i = std::strlen(info_.buildLevel); i < sizeof info_.buildLevel; ++i) {
    EXPECT_EQ(info_.buildLevel[i], '\0');
  }
}

TEST_F(SqleLevelInfo, AMissingFileHasACodeOfItsOwn) {
  std::memset(&info_, 0x5A, sizeof info_);
  EXPECT_EQ(sqleGetLevelInfo(kSqleLevelInfoVersion, &info_), status::level_file_missing);
  setenv("VRX_LEVEL_FILE", (path_ + "/below").c_str(), 1);
  writeFile(path_, kSound);
  EXPECT_EQ(sqleGetLevelInfo(kSqleLevelInfoVersion, &info_), status::level_file_missing);
  EXPECT_TRUE(isUntouched());
}

TEST_F(SqleLevelInfo, OtherStructureVersionsAndNullAreInvalid) {
  ASSERT_EQ(read(kSound), status::ok);
  std::memset(&info_, 0x5A, sizeof info_);
  EXPECT_EQ(sqleGetLevelInfo(0, &info_), status::invalid_argument);
  EXPECT_EQ(sqleGetLevelInfo(0x9010001, &info_), status::invalid_argument);
  EXPECT_EQ(sqleGetLevelInfo(kSqleLevelInfoVersion, nullptr), status::invalid_argument);
  EXPECT_TRUE(isUntouched());
}

TEST_F(SqleLevelInfo, EachNameIsNeededOnce) {
  expectMalformed("");
  expectMalformed("\n\n");
  expectMalformed("version=1\nbuild_level=a\n");
  expectMalformed("version=1\nfixpack=1\n");
  expectMalformed("build_level=a\nfixpack=1\n");
  expectMalformed(std::string(kSound) + "version=3.1.0.7\n");
  expectMalformed(std::string(kSound) + "build_level=s250131\n");
  expectMalformed(std::string(kSound) + "fixpack=7\n");
  expectMalformed("Version=1\nbuild_level=a\nfixpack=1\n");
}

TEST_F(SqleLevelInfo, EachLineNeedsANameAndAnEqualsSign) {
  expectMalformed(std::string(kSound) + "word\n");
  expectMalformed(std::string(kSound) + "=value\n");
  expectMalformed(std::string(kSound) + " # not at the line's beginning\n");
}

TEST_F(SqleLevelInfo, VersionsAreOneToFourNumbersOf16Bits) {
  for (const char* version : {"", ".", "1.", ".1", "1..2", "1.2.3.4.5", "65536", "1.2.3.65536",
                              "-1", "+1", "1a", "v1", "1 .2", "99999999999999999999999"}) {
    expectMalformed("version=" + std::string(version) + "\nbuild_level=a\nfixpack=1\n");
  }
  // Numerically fine but longer than its field.
  expectMalformed("version=" + std::string(23, '0') + "1\nbuild_level=a\nfixpack=1\n");
  for (const char* version : {"0", "1", "1.2", "1.2.3", "65535.65535.65535.65535", "01.02"}) {
    const std::string file = "version=" + std::string(version) + "\nbuild_level=a\nfixpack=1\n";
    EXPECT_EQ(read(file), status::ok) << version;
    EXPECT_STREQ(info_.version, version);
  }
}

TEST_F(SqleLevelInfo, BuildLevelsAreShortPrintableTexts) {
  const auto file = [](const std::string& level) {
    return "version=1\nbuild_level=" + level + "\nfixpack=1\n";
  };
  expectMalformed(file(""));
  expectMalformed(file(" "));
  expectMalformed(file(std::string(64, 'b')));
  expectMalformed(file("a\x01"));
  expectMalformed(file("a\tb"));
  expectMalformed(file("a\x7F"));
  expectMalformed(file("a\xC3\xA9"));
  EXPECT_EQ(read(file(std::string(63, 'b'))), status::ok);
  EXPECT_EQ(info_.buildLevel, std::string(63, 'b'));
}

TEST_F(SqleLevelInfo, FixPackNumbersAreDecimalAndOf32Bits) {
  for (const char* number :
       {"", "-1", "+1", "4294967296", "18446744073709551617", "0x1", "1.0", "1 2", "seven"}) {
    expectMalformed("version=1\nbuild_level=a\nfixpack=" + std::string(number) + "\n");
  }
  EXPECT_EQ(read("version=1\nbuild_level=a\nfixpack=0\n"), status::ok);
  EXPECT_EQ(info_.fixpackNumber, 0u);
}

TEST_F(SqleLevelInfo, NulBytesAreRefusedAnywhere) {
  const std::string sound = kSound;
  for (std::size_t at = 0; at <= sound.size(); ++at) {
    std::string damaged = sound;
    damaged.insert(at, 1, '\0');
    expectMalformed(damaged);
  }
}

TEST_F(SqleLevelInfo, LinesAndFilesHaveALargestSize) {
  const std::string sound = kSound;
  EXPECT_EQ(read(sound + "#" + std::string(254, 'x') + "\n"), status::ok);
  expectMalformed(sound + "#" + std::string(255, 'x') + "\n");
  expectMalformed(sound + "future=" + std::string(300, 'x'));

  std::string large = sound;
  while (large.size() < 64 * 1024)
    large += '\n';
  EXPECT_EQ(read(large), status::ok);
  expectMalformed(large + "\n");
}

TEST_F(SqleLevelInfo, OnlyARegularFileIsALevelFile) {
  std::memset(&info_, 0x5A, sizeof info_);
  ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
  EXPECT_EQ(sqleGetLevelInfo(kSqleLevelInfoVersion, &info_), status::level_file_malformed);
  setenv("VRX_LEVEL_FILE", dir_.path().c_str(), 1);
  EXPECT_EQ(sqleGetLevelInfo(kSqleLevelInfoVersion, &info_), status::level_file_malformed);
  setenv("VRX_LEVEL_FILE", "/dev/zero", 1);
  EXPECT_EQ(sqleGetLevelInfo(kSqleLevelInfoVersion, &info_), status::level_file_malformed);
  EXPECT_TRUE(isUntouched());
}

TEST_F(SqleLevelInfo, OtherFailuresAreTheSystemsOwn) {
  setenv("VRX_LEVEL_FILE", dir_.file(std::string(300, 'n')).c_str(), 1);
  EXPECT_EQ(sqleGetLevelInfo(kSqleLevelInfoVersion, &info_), status::buffer_too_small);
  ASSERT_EQ(symlink("level", path_.c_str()), 0);
  setenv("VRX_LEVEL_FILE", path_.c_str(), 1);
  EXPECT_EQ(sqleGetLevelInfo(kSqleLevelInfoVersion, &info_), ossErrorMapSystem(ELOOP));
}

TEST_F(SqleLevelInfo, NoDescriptorIsLeft) {
  const int before = vrxtest::openDescriptorCount();
  EXPECT_EQ(read(kSound), status::ok);
  expectMalformed("");
  EXPECT_EQ(vrxtest::openDescriptorCount(), before);
}

}  // namespace
