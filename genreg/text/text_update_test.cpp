// SPDX-License-Identifier: Apache-2.0
// Add, Change and Delete of the text store: what becomes of the file, byte for byte. Failing calls
// are text_faults_test's, unusual lines text_bytes_test's.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "genreg/internal/function_ids.h"
#include "genreg/text/text_store.h"
#include "platform/osse/trace.h"
#include "tests/support/captured_log.h"
#include "tests/support/faults.h"
#include "tests/support/text_records.h"

namespace {

using genreg::statusInt;
using vrxtest::CapturedLog;
using vrxtest::InitLine;
using vrxtest::InitTable;
using vrxtest::LeakCheck;
using vrxtest::ProfileLine;
using vrxtest::ServiceLine;
using vrxtest::ServicesFile;
using vrxtest::TempDir;
using vrxtest::Text;
namespace status = genreg::status;

class TextUpdate : public ::testing::Test {
 protected:
  void TearDown() override {
    EXPECT_TRUE(vrxtest::textLockIsFree(path_));
    EXPECT_FALSE(vrxtest::pathExists(folder_.file(".reg.bkp")));
  }
  void fill(const std::string& bytes) { vrxtest::writeFile(path_, bytes); }
  std::string bytes() const { return vrxtest::readFile(path_); }
  bool copyIsLeft() const { return vrxtest::pathExists(folder_.file("reg.tmp")); }

  GenRegStatus add(unsigned long long mask, ProfileLine&& line) {
    return profile_.Add(mask, line.record());
  }
  GenRegStatus change(const char* name, ProfileLine&& line) {
    ProfileLine key{std::string(name)};
    return profile_.Change(kVarValVariable, key.record(), line.record());
  }
  GenRegStatus remove(const char* name) {
    ProfileLine key{std::string(name)};
    return profile_.Delete(kVarValVariable, key.record());
  }

  const TempDir folder_;
  const std::string path_ = folder_.file("reg");
  unsigned int rc_ = ~0U;
  GenRegVarVal profile_{path_.c_str(), &rc_};
};

const char kProfile[] = "# head\n\n\tA\t=  1   # one\nbroken line\nB=2\nA = 3\n\n# tail\n";

// --- Add

TEST_F(TextUpdate, AddCreatesAMissingFileAndItsFolder) {
  const std::string path = folder_.file("new/deep/reg");
  GenRegVarVal profile(path.c_str(), &rc_);
  ProfileLine line("A", "1");
  ASSERT_EQ(profile.Add(1, line.record()), 0U);
  EXPECT_EQ(vrxtest::readFile(path), "A = 1\n");
  EXPECT_EQ(vrxtest::modeOf(path), 0644);
}

TEST_F(TextUpdate, AddAppendsBehindEverything) {
  fill(kProfile);
  const LeakCheck leaks;
  ASSERT_EQ(add(3, ProfileLine("C", "4", "four")), 0U);
  EXPECT_EQ(bytes(), std::string(kProfile) + "C = 4 # four\n");
  EXPECT_FALSE(copyIsLeft());
}

TEST_F(TextUpdate, AddToAnEmptyFileWritesOneLine) {
  fill("");
  ASSERT_EQ(add(1, ProfileLine("A", "1")), 0U);
  EXPECT_EQ(bytes(), "A = 1\n");
}

TEST_F(TextUpdate, AddTerminatesALastLineWithoutNewline) {
  fill("A = 1");
  ASSERT_EQ(add(1, ProfileLine("B", "2")), 0U);
  EXPECT_EQ(bytes(), "A = 1\nB = 2\n");
}

TEST_F(TextUpdate, AddAllowsDuplicatesOnlyWithFeature2) {
  fill("A = 1\n");
  ASSERT_EQ(add(1, ProfileLine("A", "2")), 0U);
  EXPECT_EQ(bytes(), "A = 1\nA = 2\n");
  profile_.features = kGenRegVerifyCommit;
  const LeakCheck leaks;
  EXPECT_EQ(add(1, ProfileLine("A", "3")), status::duplicate_record);
  EXPECT_EQ(bytes(), "A = 1\nA = 2\n");
  EXPECT_TRUE(copyIsLeft()) << "for whoever wants to look";
  ASSERT_EQ(add(1, ProfileLine("B", "3")), 0U);
  EXPECT_EQ(bytes(), "A = 1\nA = 2\nB = 3\n");
  EXPECT_EQ(vrxtest::readFile(folder_.file("reg.cor")), "");
}

TEST_F(TextUpdate, AddOfACommentOnlyRecordIsRefusedByVerification) {
  fill("A = 1\n");
  EXPECT_EQ(add(0, ProfileLine({}, {}, "note")), status::verify_failed);
  EXPECT_EQ(bytes(), "A = 1\n");
  ServicesFile services(path_);
  ServiceLine note({}, 0, {}, {}, "note");
  EXPECT_EQ(services->Add(0, note.record()), status::verify_failed);
  EXPECT_EQ(bytes(), "A = 1\n");
}

TEST_F(TextUpdate, AddOfAnInitTableCommentIsKept) {
  fill("x:1:wait:/bin/y\n");
  InitTable table(path_);
  InitLine note({}, {}, {}, {}, " note");
  ASSERT_EQ(table.Add(1, note.record()), 0U);
  EXPECT_EQ(bytes(), "x:1:wait:/bin/y\n# note\n");
}

TEST_F(TextUpdate, AddWithoutFeature1LeavesVerificationOut) {
  fill("A = 1\n");
  profile_.features = 0;
  ASSERT_EQ(add(1, ProfileLine("B", "2#3")), 0U);
  EXPECT_EQ(bytes(), "A = 1\nB = 2#3\n");
  EXPECT_EQ(add(1, ProfileLine("A", "2")), status::duplicate_record);
}

TEST_F(TextUpdate, AddInPlaceNeitherScansNorCopies) {
  fill(std::string("A = 1\nwith\0nul\n", 15));
  profile_.features = kGenRegDuplicates;
  ASSERT_EQ(add(1, ProfileLine("A", "2")), 0U);
  EXPECT_EQ(bytes(), std::string("A = 1\nwith\0nul\nA = 2\n", 21));
  EXPECT_FALSE(copyIsLeft());
  fill("A = 1");
  ASSERT_EQ(add(1, ProfileLine("B", "2")), 0U);
  EXPECT_EQ(bytes(), "A = 1B = 2\n") << "only a copy would have told";
}

// --- Change

TEST_F(TextUpdate, ChangeRewritesEveryMatchWithItsOwnLayout) {
  fill(kProfile);
  const LeakCheck leaks;
  ASSERT_EQ(change("A", ProfileLine("A", "new")), 0U);
  EXPECT_EQ(bytes(), "# head\n\n\tA\t=  new\nbroken line\nB=2\nA = new\n\n# tail\n");
  EXPECT_FALSE(copyIsLeft());
}

TEST_F(TextUpdate, ChangeReplacesTheComment) {
  fill("A = 1 # old\n");
  ASSERT_EQ(change("A", ProfileLine("A", "2", "new")), 0U);
  EXPECT_EQ(bytes(), "A = 2 # new\n");
}

TEST_F(TextUpdate, ChangeMayRename) {
  fill("  OLD=1\nB = 2\n");
  ASSERT_EQ(change("OLD", ProfileLine("NEW", "1")), 0U);
  EXPECT_EQ(bytes(), "  NEW=1\nB = 2\n");
}

TEST_F(TextUpdate, ChangeToTheSameValueLeavesFileAndFolderAsTheyWere) {
  fill("A   =   1");
  const LeakCheck leaks;
  EXPECT_EQ(change("A", ProfileLine("A", "1")), status::unchanged);
  EXPECT_EQ(bytes(), "A   =   1");
  EXPECT_FALSE(copyIsLeft());
}

TEST_F(TextUpdate, OneUnchangedMatchKeepsTheOthersFromChanging) {
  fill("A = 1\nA = 2\n");
  EXPECT_EQ(change("A", ProfileLine("A", "1")), status::unchanged);
  EXPECT_EQ(change("A", ProfileLine("A", "2")), status::unchanged);
  EXPECT_EQ(bytes(), "A = 1\nA = 2\n");
  EXPECT_FALSE(copyIsLeft());
}

TEST_F(TextUpdate, LaterLinesAreStillReadBehindAnUnchangedMatch) {
  fill(std::string("A = 1\nx\0y\n", 10));
  const CapturedLog log;
  EXPECT_EQ(change("A", ProfileLine("A", "1")), status::unchanged);
  EXPECT_EQ(log.count(genreg::kGenRegTextChange, status::read_failed), 1);
}

TEST_F(TextUpdate, WithoutFeature1AnUnchangedMatchDoesNotStopTheOthers) {
  fill("A = 1\nA = 2\n");
  profile_.features = kGenRegDuplicates;
  EXPECT_EQ(change("A", ProfileLine("A", "1")), status::unchanged);
  EXPECT_EQ(bytes(), "A = 1\nA = 1\n");
}

TEST_F(TextUpdate, ChangeOfNothingFindsNoMatch) {
  const LeakCheck leaks;
  for (const char* file : {"", "# A = 1\n", "A\n", "B = 1\n"}) {
    fill(file);
    EXPECT_EQ(change("A", ProfileLine("A", "1")), status::no_match);
    EXPECT_EQ(bytes(), file);
    EXPECT_FALSE(copyIsLeft());
  }
}

TEST_F(TextUpdate, SeveralMatchesWithoutFeature2AreRefused) {
  fill("A = 1\nA = 2\n");
  profile_.features = kGenRegVerifyCommit;
  const LeakCheck leaks;
  EXPECT_EQ(change("A", ProfileLine("A", "3")), status::several_match);
  EXPECT_EQ(remove("A"), status::several_match);
  EXPECT_EQ(bytes(), "A = 1\nA = 2\n");
  EXPECT_FALSE(copyIsLeft());
}

// Only lines that were rewritten count.
TEST_F(TextUpdate, UnchangedMatchIsNotOneOfSeveral) {
  fill("A = 1\nA = 2\n");
  profile_.features = 0;
  EXPECT_EQ(change("A", ProfileLine("A", "1")), status::unchanged);
  EXPECT_EQ(bytes(), "A = 1\nA = 1\n");
}

TEST_F(TextUpdate, ChangeOfALineWithAnotherWordBeforeTheSignIsRefused) {
  fill("export A = 1\n");
  const LeakCheck leaks;
  EXPECT_EQ(change("export A", ProfileLine("export A", "2")), status::record_not_formatted);
  EXPECT_EQ(bytes(), "export A = 1\n");
}

TEST_F(TextUpdate, ValuesThatDoNotReadBackAreRefused) {
  fill("A = 1\nB = 2\n");
  const LeakCheck leaks;
  for (const char* value : {"a#b", "a\nb", "a\nB = 2", "a  b", " a", "a ", "\"a", "\"a\" b", "a\t",
                            "a\r", "1\n", "\n"}) {
    EXPECT_EQ(change("A", ProfileLine("A", value)), status::verify_failed) << value;
    EXPECT_EQ(add(1, ProfileLine("C", value)), status::verify_failed) << value;
    EXPECT_EQ(bytes(), "A = 1\nB = 2\n") << value;
  }
  for (const char* name : {"A=B", "", "A#", " A", "A  B", "A\nC"}) {
    const Text variable{name};
    if (*name != '\0') {
      EXPECT_EQ(add(1, ProfileLine(variable, "1")), status::verify_failed) << name;
    }
    EXPECT_EQ(bytes(), "A = 1\nB = 2\n") << name;
  }
}

TEST_F(TextUpdate, CommentWithANewlineIsRefused) {
  fill("A = 1\n");
  EXPECT_EQ(change("A", ProfileLine("A", "2", "x\ny")), status::verify_failed);
  EXPECT_EQ(add(1, ProfileLine("B", "2", "x\n")), status::verify_failed);
  EXPECT_EQ(add(1, ProfileLine("B", "2", "x\nC = 3")), status::verify_failed);
  EXPECT_EQ(bytes(), "A = 1\n");
}

TEST_F(TextUpdate, QuotedValueKeepsItsBlanks) {
  fill("A = 1\n");
  ASSERT_EQ(change("A", ProfileLine("A", "\"a  b\"")), 0U);
  EXPECT_EQ(bytes(), "A = \"a  b\"\n");
}

TEST_F(TextUpdate, ChangeTerminatesALastLineWithoutNewline) {
  fill("A = 1\nB = 2");
  ASSERT_EQ(change("A", ProfileLine("A", "3")), 0U);
  EXPECT_EQ(bytes(), "A = 3\nB = 2\n");
  fill("A = 1\nB = 2");
  ASSERT_EQ(change("B", ProfileLine("B", "3")), 0U);
  EXPECT_EQ(bytes(), "A = 1\nB = 3\n");
}

// --- Delete

TEST_F(TextUpdate, DeleteTakesEveryMatchOut) {
  fill(kProfile);
  const LeakCheck leaks;
  ASSERT_EQ(remove("A"), 0U);
  EXPECT_EQ(bytes(), "# head\n\nbroken line\nB=2\n\n# tail\n");
  EXPECT_FALSE(copyIsLeft());
}

TEST_F(TextUpdate, DeleteAtEveryPlace) {
  const char* const kRows[][2] = {{"A = 1\n", ""},
                                  {"A = 1", ""},
                                  {"A = 1\nB = 2\n", "B = 2\n"},
                                  {"A = 1\nB = 2", "B = 2"},
                                  {"B = 2\nA = 1\n", "B = 2\n"},
                                  {"B = 2\nA = 1", "B = 2\n"},
                                  {"A = 1\nA = 2\nA = 3\n", ""},
                                  {"A = 1\nA = 2\nB = 2", "B = 2"},
                                  {"A = 1\nB = 2\nA = 1\nB = 2\nA = 1", "B = 2\nB = 2\n"}};
  for (const auto& row : kRows) {
    fill(row[0]);
    EXPECT_EQ(remove("A"), 0U) << row[0];
    EXPECT_EQ(bytes(), row[1]) << row[0];
  }
}

TEST_F(TextUpdate, DeleteOfNothingFindsNoMatch) {
  fill("# A = 1\nA\n");
  EXPECT_EQ(remove("A"), status::no_match);
  EXPECT_EQ(bytes(), "# A = 1\nA\n");
  EXPECT_FALSE(copyIsLeft());
}

// --- before anything is touched

TEST_F(TextUpdate, BadRecordsAreRefusedBeforeTheLockIsTaken) {
  fill("A = 1\n");
  const vrxtest::CallCount opens(vrxtest::Call::kHandleOpen);
  ProfileLine good("A", "1");
  EXPECT_EQ(add(1, ProfileLine({}, "1")), status::invalid_record);
  EXPECT_EQ(add(0, ProfileLine({})), status::invalid_record);
  EXPECT_EQ(profile_.Add(1, nullptr), status::invalid_record);
  EXPECT_EQ(profile_.Change(1, nullptr, good.record()), status::invalid_record);
  EXPECT_EQ(profile_.Change(1, good.record(), nullptr), status::invalid_record);
  EXPECT_EQ(profile_.Delete(1, nullptr), status::invalid_record);
  EXPECT_EQ(opens.calls(), 0);
}

TEST_F(TextUpdate, MissingFileIsAddsBusinessOnly) {
  const LeakCheck leaks;
  EXPECT_EQ(change("A", ProfileLine("A", "1")), status::open_failed);
  EXPECT_EQ(remove("A"), status::open_failed);
  EXPECT_FALSE(vrxtest::pathExists(path_));
}

int noSize(unsigned long* size) {
  *size = 2;
  return 0;
}
int hugeSize(unsigned long* size) {
  *size = 0x100001;
  return 0;
}

TEST_F(TextUpdate, RecordSizesOutOfRangeAreRefused) {
  fill("A = 1\n");
  profile_.getMaxRecordSize = noSize;
  EXPECT_EQ(add(1, ProfileLine("B", "2")), status::record_too_small);
  EXPECT_EQ(change("A", ProfileLine("A", "2")), status::record_too_small);
  EXPECT_EQ(remove("A"), status::record_too_small);
  profile_.getMaxRecordSize = hugeSize;
  EXPECT_EQ(add(1, ProfileLine("B", "2")), status::record_too_large);
  EXPECT_EQ(change("A", ProfileLine("A", "2")), status::record_too_large);
  EXPECT_EQ(remove("A"), status::record_too_large);
}

TEST_F(TextUpdate, EmptySlots) {
  fill("A = 1\n");
  const LeakCheck leaks;
  const auto expectAll = [&](GenRegStatus changed, GenRegStatus removed) {
    EXPECT_EQ(add(1, ProfileLine("B", "2")), status::slots_incomplete);
    EXPECT_EQ(change("A", ProfileLine("A", "2")), changed);
    EXPECT_EQ(remove("Z"), removed);
    EXPECT_EQ(bytes(), "A = 1\n");
    EXPECT_FALSE(copyIsLeft());
  };
  profile_.formatLine = nullptr;
  expectAll(status::no_format_slot, status::no_match);
  profile_.matchRecord = nullptr;
  expectAll(status::no_match_slot, status::no_match_slot);
  profile_.parseLine = nullptr;
  expectAll(status::no_parse_slot, status::no_parse_slot);
  profile_.getMaxRecordSize = nullptr;
  expectAll(status::no_max_size_slot, status::no_max_size_slot);
  profile_.validateRecord = nullptr;
  expectAll(status::no_validate_slot, status::no_validate_slot);
}

TEST_F(TextUpdate, AddLogsTheEmptySlotItself) {
  fill("A = 1\n");
  profile_.parseLine = nullptr;
  profile_.matchRecord = nullptr;
  const CapturedLog log;
  EXPECT_EQ(add(1, ProfileLine("B", "2")), status::slots_incomplete);
  EXPECT_EQ(log.count(genreg::kGenRegTextCheckFuncPtrs, status::no_parse_slot), 1);
  EXPECT_EQ(log.count(genreg::kGenRegTextAdd, status::slots_incomplete), 1);
}

// --- behind the update

int notified = 0;
int countNotification() {
  ++notified;
  return 0;
}
int refuseNotification() {
  return statusInt(status::notify_failed);
}

TEST_F(TextUpdate, NotifySlotIsCalledForUpdatesThatStand) {
  profile_.features |= kGenRegNotify;
  profile_.notify = countNotification;
  notified = 0;
  ASSERT_EQ(add(1, ProfileLine("A", "1")), 0U);
  EXPECT_EQ(notified, 1);
  ASSERT_EQ(change("A", ProfileLine("A", "2")), 0U);
  EXPECT_EQ(notified, 2);
  EXPECT_EQ(change("A", ProfileLine("A", "2")), status::unchanged);
  EXPECT_EQ(remove("B"), status::no_match);
  EXPECT_EQ(notified, 2);
  ASSERT_EQ(remove("A"), 0U);
  EXPECT_EQ(notified, 3);
  profile_.notify = refuseNotification;
  EXPECT_EQ(add(1, ProfileLine("A", "1")), 0U) << "the update stands without a listener";
}

TEST_F(TextUpdate, EmptyNotifySlotIsReportedWithTheUpdateDone) {
  profile_.features |= kGenRegNotify;
  EXPECT_EQ(add(1, ProfileLine("A", "1")), status::no_notify_slot);
  EXPECT_EQ(bytes(), "A = 1\n");
  EXPECT_EQ(change("A", ProfileLine("A", "2")), status::no_notify_slot);
  EXPECT_EQ(bytes(), "A = 2\n");
  EXPECT_EQ(remove("A"), status::no_notify_slot);
  EXPECT_EQ(bytes(), "");
}

int countLogging(void*, unsigned int, void*, void*) {
  ++notified;
  return 0;
}

TEST_F(TextUpdate, TextUpdatesKeepNoChangeLog) {
  profile_.features |= kGenRegChangeLog;
  profile_.log = countLogging;
  notified = 0;
  ASSERT_EQ(add(1, ProfileLine("A", "1")), 0U);
  EXPECT_EQ(notified, 0);
}

TEST_F(TextUpdate, UpdateBesideAnOpenScanIsRefused) {
  fill("A = 1\n");
  ASSERT_EQ(profile_.OpenScan(), 0U);
  EXPECT_EQ(change("A", ProfileLine("A", "2")), status::open_failed);
  EXPECT_EQ(add(1, ProfileLine("B", "2")), status::open_failed);
  GenRegVarValRecord line;
  EXPECT_EQ(profile_.GetNext(0, nullptr, &line), 0U) << "the scan goes on";
  ASSERT_EQ(profile_.CloseScan(), 0U);
  EXPECT_EQ(bytes(), "A = 1\n");
}

TEST_F(TextUpdate, FileKeepsItsMode) {
  fill("A = 1\n");
  ASSERT_EQ(chmod(path_.c_str(), 0640), 0);
  ASSERT_EQ(change("A", ProfileLine("A", "2")), 0U);
  EXPECT_EQ(vrxtest::modeOf(path_), 0640);
}

// --- trace

void keepFinding(const GTraceEvent* event, void* context) {
  if (event->kind != GTraceKind::variable || event->function != genreg::kGenRegTextAdd) return;
  static_cast<std::string*>(context)->append(static_cast<const char*>(event->data), event->size);
}

TEST_F(TextUpdate, DuplicateIsNamedInTheTrace) {
  fill("A = 1\n");
  profile_.features = kGenRegVerifyCommit;
  std::string finding;
  ASSERT_EQ(gtraceAttach(keepFinding, &finding), 0U);
  EXPECT_EQ(add(kVarValVariable, ProfileLine("A", "2")), status::duplicate_record);
  ASSERT_EQ(gtraceDetach(), 0U);
  EXPECT_EQ(finding, "Match found; duplicate record");
}

}  // namespace
