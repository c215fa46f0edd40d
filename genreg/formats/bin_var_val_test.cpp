// SPDX-License-Identifier: Apache-2.0
// The binary variable format: the object and its paths, the slots, and the frames as they lie on
// disk. Not here: what the binary store does whatever the format (genreg/bin).
#include "genreg/formats/bin_var_val.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "genreg/internal/function_ids.h"
#include "tests/support/captured_log.h"
#include "tests/support/faults.h"
#include "tests/support/store_watch.h"

namespace {

using genreg::statusOf;
using vrxtest::Call;
using vrxtest::CapturedLog;
using vrxtest::CapturedOutput;
using vrxtest::FailCall;
using vrxtest::NothingKept;
using vrxtest::readFile;
using vrxtest::TempDir;
namespace status = genreg::status;

constexpr unsigned int kUntold = 4711;
constexpr unsigned long long kEveryField = ~0ULL;

// A record whose arrays are `filler` behind the texts' terminators.
GenRegBinVarValRecord record(const std::string& variable, int value,
                             const std::string& comment = "", char filler = '\0') {
  GenRegBinVarValRecord made;
  std::memset(&made, filler, sizeof made);
  std::memcpy(made.variable, variable.c_str(), std::min<std::size_t>(variable.size() + 1, 16));
  made.value = value;
  std::memcpy(made.comment, comment.c_str(), std::min<std::size_t>(comment.size() + 1, 16));
  return made;
}

std::string bytesOf(const GenRegBinVarValRecord& given) {
  return {reinterpret_cast<const char*>(&given), sizeof given};
}

std::string frameOf(const GenRegBinVarValRecord& given) {
  return std::string("\x24\0\0\0", 4) + bytesOf(given);
}

// --- the object

// The constructor's status for a path.
unsigned int statusFor(std::string path) {
  unsigned int rc = kUntold;
  const GenRegBinVarVal registry(path.data(), &rc);
  EXPECT_EQ((registry.state & kGenRegStatePathsSet) != 0, rc == 0);
  EXPECT_EQ(registry.features, rc == 0 ? kGenRegDuplicates | kGenRegVerifyCommit : 0U);
  EXPECT_EQ(registry.registryPath[0] != '\0', rc == 0);
  return rc;
}

void expectPaths(std::string path, const std::vector<std::string>& companions) {
  unsigned int rc = kUntold;
  const GenRegBinVarVal registry(path.data(), &rc);
  EXPECT_EQ(rc, 0U);
  EXPECT_EQ(registry.registryPath, path);
  EXPECT_EQ(registry.temporaryPath, companions[0]);
  EXPECT_EQ(registry.corruptPath, companions[1]);
  EXPECT_EQ(registry.lockPath, companions[2]);
  EXPECT_EQ(registry.backupPath, companions[3]);
}

TEST(BinVarValObject, CompanionsStandBesideTheRegistry) {
  expectPaths("reg.bin", {"reg.bin.tmp", "reg.bin.cor", ".reg.bin.lock", ".reg.bin.bkp"});
  expectPaths("/a/b/reg.bin",
              {"/a/b/reg.bin.tmp", "/a/b/reg.bin.cor", "/a/b/.reg.bin.lock", "/a/b/.reg.bin.bkp"});
}

TEST(BinVarValObject, LongestPathHas1017Bytes) {
  const std::string folder = "/tmp/";
  EXPECT_EQ(statusFor(folder + std::string(1017 - folder.size(), 'x')), 0U);
  const CapturedLog log;
  EXPECT_EQ(statusFor(folder + std::string(1018 - folder.size(), 'x')), status::path_too_long);
  EXPECT_EQ(log.count(genreg::kGenRegFileSetPaths, status::path_too_long), 1);
}

TEST(BinVarValObject, PathsThatNameNoFileAreRefused) {
  EXPECT_EQ(statusFor(""), status::null_argument);
  EXPECT_EQ(statusFor("/a/b/"), status::no_base_name);
  unsigned int rc = kUntold;
  const GenRegBinVarVal registry(nullptr, &rc);
  EXPECT_EQ(rc, status::null_argument);
}

TEST(BinVarValObject, DirectoryThatCannotBeTakenIsReported) {
  const FailCall fault(Call::kDirectoryName, 1, ENAMETOOLONG);
  EXPECT_EQ(statusFor("/a/reg.bin"), status::no_directory_name);
  EXPECT_TRUE(fault.fired());
}

TEST(BinVarValObject, StatusMayBeNull) {
  char path[] = "reg.bin";
  const GenRegBinVarVal registry(path, nullptr);
  EXPECT_STREQ(registry.registryPath, "reg.bin");
}

TEST(BinVarValObject, FillsFiveSlotsAndNoneOfThePackedStore) {
  char path[] = "reg.bin";
  unsigned int rc = kUntold;
  GenRegBinVarVal registry(path, &rc);
  EXPECT_EQ(registry.matchRecord, &GenRegBinVarVal::MatchRecord);
  EXPECT_EQ(registry.validateRecord, &GenRegBinVarVal::ValidateRecord);
  EXPECT_EQ(registry.printRecord, &GenRegBinVarVal::PrintRecord);
  EXPECT_EQ(registry.getRecordSize, &GenRegBinVarVal::GetRecordSize);
  EXPECT_EQ(registry.getMaxRecordSize, &GenRegBinVarVal::GetMaxRecordSize);
  EXPECT_EQ(registry.packRecord, nullptr);
  EXPECT_EQ(registry.unpackRecord, nullptr);
  EXPECT_EQ(registry.getPackedRecordSize, nullptr);
  EXPECT_EQ(registry.log, nullptr);
  EXPECT_EQ(registry.notify, nullptr);
  EXPECT_EQ(registry.storeType, kGenRegBinaryStore);
  EXPECT_EQ(registry.CheckFuncPtrs(), 0);
}

// --- the slots

int matches(unsigned long long mask, GenRegBinVarValRecord stored, GenRegBinVarValRecord given) {
  return GenRegBinVarVal::MatchRecord(mask, &stored, &given);
}

TEST(BinVarValMatch, ComparesTheFieldsOfTheMask) {
  EXPECT_EQ(matches(kBinVarValVariable, record("A", 1), record("A", 2)), 1);
  EXPECT_EQ(matches(kBinVarValVariable, record("A", 1), record("B", 1)), 0);
  EXPECT_EQ(matches(kBinVarValValue, record("A", 1), record("B", 1)), 1);
  EXPECT_EQ(matches(kBinVarValValue, record("A", 1), record("A", -1)), 0);
  EXPECT_EQ(matches(kBinVarValVariable | kBinVarValValue, record("A", 1), record("A", 1)), 1);
  EXPECT_EQ(matches(kBinVarValVariable | kBinVarValValue, record("A", 1), record("A", 2)), 0);
}

TEST(BinVarValMatch, MaskOfZeroAndUnknownBitsTakeEveryRecord) {
  EXPECT_EQ(matches(0, record("A", 1), record("B", 2)), 1);
  EXPECT_EQ(matches(~(kBinVarValVariable | kBinVarValValue), record("A", 1), record("B", 2)), 1);
}

TEST(BinVarValMatch, CommentIsNeverCompared) {
  EXPECT_EQ(matches(kEveryField, record("A", 1, "old"), record("A", 1, "new")), 1);
}

TEST(BinVarValMatch, NamesAreComparedByteByByteUpToTheTerminator) {
  EXPECT_EQ(matches(kBinVarValVariable, record("a", 1), record("A", 1)), 0);
  EXPECT_EQ(matches(kBinVarValVariable, record("AB", 1), record("A", 1)), 0);
  EXPECT_EQ(matches(kBinVarValVariable, record("A", 1, "", 'x'), record("A", 1, "", 'y')), 1);
  EXPECT_EQ(matches(kBinVarValVariable, record("", 1), record("", 1)), 1);
  EXPECT_EQ(matches(kBinVarValVariable, record("\xE9", 1), record("\xE9", 1)), 1);
}

TEST(BinVarValMatch, NameWithoutATerminatorHas16Bytes) {
  const std::string full(16, 'N');
  EXPECT_EQ(matches(kBinVarValVariable, record(full, 1), record(full, 2)), 1);
  EXPECT_EQ(matches(kBinVarValVariable, record(full, 1), record(full.substr(1), 1)), 0);
  EXPECT_EQ(matches(kBinVarValVariable, record(full, 1), record("NNNNNNNNNNNNNNNO", 1)), 0);
}

TEST(BinVarValMatch, NullRecordMatchesNothingAndIsLogged) {
  const CapturedLog log;
  GenRegBinVarValRecord given = record("A", 1);
  EXPECT_EQ(GenRegBinVarVal::MatchRecord(0, nullptr, &given), 0);
  EXPECT_EQ(GenRegBinVarVal::MatchRecord(0, &given, nullptr), 0);
  EXPECT_EQ(log.count(genreg::kGenRegBinVarValMatchRecord, status::null_argument), 2);
}

TEST(BinVarValValidate, EveryRecordIsAcceptable) {
  GenRegBinVarValRecord garbage;
  std::memset(&garbage, 0xFF, sizeof garbage);
  for (const unsigned long long mask : {0ULL, 1ULL, 2ULL, kEveryField}) {
    EXPECT_EQ(GenRegBinVarVal::ValidateRecord(mask, &garbage), 0);
    EXPECT_EQ(GenRegBinVarVal::ValidateRecord(mask, nullptr), 0);
  }
}

std::string printed(GenRegBinVarValRecord given) {
  CapturedOutput output;
  EXPECT_EQ(GenRegBinVarVal::PrintRecord(&given), 0);
  return output.take();
}

TEST(BinVarValPrint, ShowsThreeLines) {
  EXPECT_EQ(printed(record("LEVEL", INT_MIN, "low")),
            "   Variable = |LEVEL|\n   Value    = -2147483648\n   Comment  = |low|\n");
  EXPECT_EQ(printed(record("", 0)), "   Variable = ||\n   Value    = 0\n   Comment  = ||\n");
}

TEST(BinVarValPrint, TextsWithoutATerminatorEndWithTheirArrays) {
  EXPECT_EQ(printed(record(std::string(16, 'N'), 0x41414141, std::string(16, 'C'))),
            "   Variable = |NNNNNNNNNNNNNNNN|\n   Value    = 1094795585\n"
            "   Comment  = |CCCCCCCCCCCCCCCC|\n");
}

TEST(BinVarValPrint, NullRecordPrintsNothing) {
  const CapturedLog log;
  CapturedOutput output;
  EXPECT_EQ(statusOf(GenRegBinVarVal::PrintRecord(nullptr)), status::null_argument);
  EXPECT_EQ(output.take(), "");
  EXPECT_EQ(log.count(genreg::kGenRegBinVarValPrintRecord, status::null_argument), 1);
}

TEST(BinVarValSize, Is36WhateverTheRecord) {
  unsigned long size = 0;
  EXPECT_EQ(GenRegBinVarVal::GetRecordSize(nullptr, &size), 0);
  EXPECT_EQ(size, 36U);
  size = 0;
  EXPECT_EQ(GenRegBinVarVal::GetMaxRecordSize(&size), 0);
  EXPECT_EQ(size, 36U);
}

// --- the file

class BinVarValFile : public ::testing::Test {
 protected:
  BinVarValFile() { EXPECT_EQ(rc_, 0U); }

  GenRegStatus add(GenRegBinVarValRecord given) {
    return statusOf(registry_.Add(kBinVarValVariable, &given));
  }
  GenRegStatus get(unsigned long long mask, GenRegBinVarValRecord key) {
    return statusOf(registry_.Get(mask, &key, &found_));
  }
  GenRegStatus change(unsigned long long mask, GenRegBinVarValRecord key,
                      GenRegBinVarValRecord given) {
    return statusOf(registry_.Change(mask, &key, &given));
  }
  GenRegStatus remove(unsigned long long mask, GenRegBinVarValRecord key) {
    return statusOf(registry_.Delete(mask, &key));
  }
  std::string contents() const { return readFile(path_); }

  const TempDir folder_;
  std::string path_ = folder_.file("reg.bin");
  unsigned int rc_ = kUntold;
  GenRegBinVarVal registry_{path_.data(), &rc_};
  GenRegBinVarValRecord found_{};
  const NothingKept nothingKept_;
};

TEST_F(BinVarValFile, FrameIsALengthAndTheRecordAsItLiesInMemory) {
  const GenRegBinVarValRecord given = record("LEVEL", -5, "low", '\x7E');
  EXPECT_EQ(add(given), 0U);
  EXPECT_EQ(contents(), std::string("\x24\0\0\0"
                                    "LEVEL\0~~~~~~~~~~"
                                    "\xFB\xFF\xFF\xFF"
                                    "low\0~~~~~~~~~~~~",
                                    40));
  EXPECT_EQ(get(kBinVarValVariable, record("LEVEL", 0)), 0U);
  EXPECT_EQ(bytesOf(found_), bytesOf(given));
}

TEST_F(BinVarValFile, AddTakesDuplicates) {
  EXPECT_EQ(add(record("A", 1)), 0U);
  EXPECT_EQ(add(record("A", 1)), 0U);
  EXPECT_EQ(contents(), frameOf(record("A", 1)) + frameOf(record("A", 1)));
}

TEST_F(BinVarValFile, GetGivesTheFirstRecordOfTheNameWhateverItsValue) {
  for (const auto& given : {record("Y", 1), record("X", 2), record("X", 3)})
    EXPECT_EQ(add(given), 0U);
  EXPECT_EQ(get(kBinVarValVariable, record("X", 99)), 0U);
  EXPECT_EQ(found_.value, 2);
  EXPECT_EQ(get(kBinVarValVariable | kBinVarValValue, record("X", 3)), 0U);
  EXPECT_EQ(found_.value, 3);
  EXPECT_EQ(get(0, record("X", 3)), 0U);
  EXPECT_STREQ(found_.variable, "Y");
  EXPECT_EQ(get(kBinVarValVariable, record("Z", 1)), status::no_match);
  EXPECT_EQ(bytesOf(found_), std::string(36, '\0'));
}

TEST_F(BinVarValFile, ScanGivesMatchesInTheFilesOrder) {
  for (const auto& given : {record("A", 1), record("B", 2), record("A", 3)})
    EXPECT_EQ(add(given), 0U);
  GenRegBinVarValRecord key = record("A", 0);
  std::vector<int> values;
  EXPECT_EQ(registry_.OpenScan(), 0U);
  while (registry_.GetNext(kBinVarValVariable, &key, &found_) == 0)
    values.push_back(found_.value);
  EXPECT_EQ(registry_.CloseScan(), 0U);
  EXPECT_EQ(values, (std::vector<int>{1, 3}));
}

TEST_F(BinVarValFile, ChangeRewritesEveryMatchInItsPlace) {
  for (const auto& given : {record("A", 1), record("B", 2), record("A", 3)})
    EXPECT_EQ(add(given), 0U);
  const GenRegBinVarValRecord given = record("A", 9, "new");
  EXPECT_EQ(change(kBinVarValVariable, record("A", 0), given), 0U);
  EXPECT_EQ(contents(), frameOf(given) + frameOf(record("B", 2)) + frameOf(given));
}

TEST_F(BinVarValFile, ChangeOfTheCommentAloneIsNoChange) {
  EXPECT_EQ(add(record("A", 1, "old")), 0U);
  const std::string before = contents();
  EXPECT_EQ(change(kBinVarValVariable, record("A", 0), record("A", 1, "new")), status::unchanged);
  EXPECT_EQ(contents(), before);
}

TEST_F(BinVarValFile, ChangeOfTheValueTakesTheCommentAlong) {
  EXPECT_EQ(add(record("A", 1, "old")), 0U);
  EXPECT_EQ(change(kBinVarValVariable, record("A", 0), record("A", 2, "new")), 0U);
  EXPECT_EQ(contents(), frameOf(record("A", 2, "new")));
}

TEST_F(BinVarValFile, DeleteTakesEveryMatchOut) {
  for (const auto& given : {record("A", 1), record("B", 2), record("A", 3)})
    EXPECT_EQ(add(given), 0U);
  EXPECT_EQ(remove(kBinVarValVariable | kBinVarValValue, record("A", 2)), status::no_match);
  EXPECT_EQ(remove(kBinVarValVariable, record("A", 0)), 0U);
  EXPECT_EQ(contents(), frameOf(record("B", 2)));
}

TEST_F(BinVarValFile, TextsWithoutATerminatorComeBackAsTheyWere) {
  const GenRegBinVarValRecord full = record(std::string(16, 'N'), 7, std::string(16, 'C'));
  EXPECT_EQ(add(full), 0U);
  EXPECT_EQ(get(kBinVarValVariable, full), 0U);
  EXPECT_EQ(bytesOf(found_), bytesOf(full));
  EXPECT_EQ(remove(kBinVarValVariable, full), 0U);
  EXPECT_EQ(contents(), "");
}

TEST_F(BinVarValFile, UpdatesAreVerifiedFromACopy) {
  EXPECT_EQ(add(record("A", 1)), 0U);
  const FailCall fault(Call::kRename, 1, EIO);
  EXPECT_EQ(change(kBinVarValVariable, record("A", 0), record("A", 2)), status::verify_failed);
  EXPECT_TRUE(fault.fired());
  EXPECT_EQ(contents(), frameOf(record("A", 1)));
}

TEST_F(BinVarValFile, FailedConstructionLeavesNothingToWorkOn) {
  unsigned int rc = kUntold;
  GenRegBinVarVal nowhere(nullptr, &rc);
  GenRegBinVarValRecord given = record("A", 1);
  EXPECT_EQ(statusOf(nowhere.Add(kBinVarValVariable, &given)), status::lock_not_taken);
}

}  // namespace
