// SPDX-License-Identifier: Apache-2.0
// Verification in the text store, called by itself on a registry and a copy written by the test.
#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "genreg/internal/function_ids.h"
#include "genreg/text/text_store.h"
#include "tests/support/captured_log.h"
#include "tests/support/faults.h"
#include "tests/support/text_records.h"

namespace {

using vrxtest::Call;
using vrxtest::CapturedLog;
using vrxtest::FailCall;
using vrxtest::InitLine;
using vrxtest::InitTable;
using vrxtest::LeakCheck;
using vrxtest::ProfileLine;
using vrxtest::TempDir;
namespace status = genreg::status;

class TextVerify : public ::testing::Test {
 protected:
  void fill(const std::string& earlier, const std::string& current) {
    earlier_ = earlier;
    vrxtest::writeFile(path_, earlier);
    vrxtest::writeFile(folder_.file("reg.tmp"), current);
  }
  GenRegStatus verify(unsigned int mode) {
    ProfileLine key("K");
    ProfileLine line("K", "new");
    return profile_.Verify(mode, kVarValVariable, key.record(), line.record());
  }
  // Verifies the update of `mode` between two contents. A copy is committed only when `code` is 0
  // or tells of several records.
  void expect(unsigned int mode, const std::string& earlier, const std::string& current,
              GenRegStatus code) {
    fill(earlier, current);
    const LeakCheck leaks;
    EXPECT_EQ(verify(mode), code) << mode << ": " << earlier << "->\n" << current;
    const bool commits = code == 0 || code == status::verify_several_changed;
    EXPECT_EQ(vrxtest::readFile(path_), commits ? current : earlier);
    EXPECT_EQ(vrxtest::pathExists(folder_.file("reg.tmp")), !commits);
    EXPECT_FALSE(vrxtest::pathExists(folder_.file(".reg.bkp")));
  }
  void expectChange(const std::string& earlier, const std::string& current, GenRegStatus code) {
    expect(kGenRegChange, earlier, current, code);
  }
  void expectAdd(const std::string& earlier, const std::string& current, GenRegStatus code) {
    expect(kGenRegAdd, earlier, current, code);
  }
  void expectDelete(const std::string& earlier, const std::string& current, GenRegStatus code) {
    expect(kGenRegDelete, earlier, current, code);
  }

  const TempDir folder_;
  const std::string path_ = folder_.file("reg");
  std::string earlier_;
  unsigned int rc_ = ~0U;
  GenRegVarVal profile_{path_.c_str(), &rc_};
};

// --- a change

TEST_F(TextVerify, ChangeOfSelectedLinesPasses) {
  expectChange("K = 1\nA = 1\n", "K = new\nA = 1\n", 0);
  expectChange("#c\n\nK = 1\nx\nK = 2\n", "#c\n\nK = new\nx\nK = new\n", 0);
  expectChange("K = 1", "K = new\n", 0);
}

TEST_F(TextVerify, ChangeMayLayTheLineOutAnew) {
  expectChange("A=1\nK = 1\n", "A  =  1 # other blanks\nK=new\n", 0);
}

TEST_F(TextVerify, ChangeMayTerminateTheLastLine) {
  expectChange("K = 1\n# c", "K = new\n# c\n", 0);
  expectChange("K = 1\nbroken", "K = new\nbroken\n", 0);
  expectChange("K = 1\n# c\n", "K = new\n# c", status::verify_unselected_change);
}

TEST_F(TextVerify, ChangeOfOtherLinesIsFound) {
  expectChange("A = 1\n", "A = 2\n", status::verify_unselected_change);
  expectChange("# c\nK = 1\n", "# d\nK = new\n", status::verify_unselected_change);
  expectChange("broken\nK = 1\n", "broken2\nK = new\n", status::verify_unselected_change);
  expectChange("\nK = 1\n", " \nK = new\n", status::verify_unselected_change);
}

TEST_F(TextVerify, ChangeToAnotherValueIsFound) {
  expectChange("K = 1\n", "K = old\n", status::verify_wrong_record);
  expectChange("K = 1\n", "# K = new\n", status::verify_wrong_record);
  expectChange("K = 1\n", "K new\n", status::verify_wrong_record);
}

TEST_F(TextVerify, ChangeOfTheLengthIsFound) {
  expectChange("K = 1\nA = 1\n", "K = new\n", status::verify_ends_early);
  expectChange("K = 1\n", "K = new\nA = 1\n", status::verify_ends_early);
  expectChange("", "K = new\n", status::verify_ends_early);
}

TEST_F(TextVerify, ChangeOfNothingIsFound) {
  expectChange("K = 1\n", "K = 1\n", status::verify_no_change);
  expectChange("", "", status::verify_no_change);
  expectChange("K = 1\n", "K  =  1\n", status::verify_no_change);
}

TEST_F(TextVerify, SeveralChangesWithoutFeature2AreReportedAndCommitted) {
  profile_.features = kGenRegVerifyCommit;
  expectChange("K = 1\n", "K = new\n", 0);
  expectChange("K = 1\nK = 2\n", "K = new\nK = new\n", status::verify_several_changed);
  expectDelete("K = 1\nK = 2\nA = 1\n", "A = 1\n", status::verify_several_changed);
}

// --- an add

TEST_F(TextVerify, AddOfTheRecordAtTheEndPasses) {
  expectAdd("", "K = new\n", 0);
  expectAdd("A = 1\n\n# c\n", "A = 1\n\n# c\nK = new\n", 0);
  expectAdd("A = 1", "A = 1\nK = new\n", 0);
  expectAdd("broken", "broken\nK = new\n", 0);
  expectAdd("K = new\n", "K = new\nK = new\n", 0);
}

TEST_F(TextVerify, AddThatTouchesALineIsFound) {
  expectAdd("A = 1\n", "A = 2\nK = new\n", status::verify_difference);
  expectAdd("A = 1\n", "K = new\nA = 1\n", status::verify_difference);
  expectAdd("# c\n", "# d\nK = new\n", status::verify_difference);
}

TEST_F(TextVerify, AddOfAnythingElseIsFound) {
  expectAdd("A = 1\n", "A = 1\nK = old\n", status::verify_added_differs);
  expectAdd("A = 1\n", "A = 1\n\n", status::verify_added_differs);
  expectAdd("A = 1\n", "A = 1\n# K = new\n", status::verify_added_differs);
  expectAdd("A = 1\n", "A = 1\nbroken\n", status::verify_added_differs);
  expectAdd("A = 1\n", "A = 1\nK = new\nK = new\n", status::verify_more_added);
  expectAdd("A = 1\n", "A = 1\nK = new\n\n", status::verify_more_added);
}

TEST_F(TextVerify, AddOfNothingIsFound) {
  expectAdd("A = 1\n", "A = 1\n", status::verify_nothing_added);
  expectAdd("A = 1\nB = 2\n", "A = 1\n", status::verify_nothing_added);
  expectAdd("", "", status::verify_nothing_added);
}

// --- a delete

TEST_F(TextVerify, DeleteOfSelectedLinesPasses) {
  expectDelete("K = 1\n", "", 0);
  expectDelete("K = 1", "", 0);
  expectDelete("K = 1\nA = 1\n", "A = 1\n", 0);
  expectDelete("K = 1\nA = 1", "A = 1", 0);
  expectDelete("A = 1\nK = 1\n", "A = 1\n", 0);
  expectDelete("K = 1\nK = 2\nA = 1\nK = 3\nK = 4\n", "A = 1\n", 0);
  expectDelete("K = 1\nbroken", "broken", 0);
  expectDelete("K = 1\n#c\n", "#c\n", 0);
}

TEST_F(TextVerify, DeleteOfOtherLinesIsFound) {
  expectDelete("A = 1\nB = 2\n", "B = 2\n", status::verify_unselected_delete);
  expectDelete("# c\nB = 2\n", "B = 2\n", status::verify_unselected_delete);
  expectDelete("K = 1\nA = 1\nB = 2\n", "B = 2\n", status::verify_unselected_delete);
  expectDelete("B = 2\nA = 1\n", "B = 2\n", status::verify_wrong_record);
  expectDelete("K = 1\nA = 1\n", "", status::verify_wrong_record);
}

TEST_F(TextVerify, DeleteThatChangesTheRestIsFound) {
  expectDelete("K = 1\nA = 1\n", "A = 2\n", status::verify_records_missing);
  expectDelete("K = 1\nA = 1", "A = 2", status::verify_records_missing);
  expectDelete("K = 1\n", "A = 1\n", status::verify_records_missing);
  expectDelete("K = 1\nA = 1\n", "A = 1\nB = 2\n", status::verify_records_missing);
  expectDelete("A = 1\n", "A = 1\nB = 2\n", status::verify_records_missing);
  expectDelete("", "B = 2\n", status::verify_records_missing);
}

TEST_F(TextVerify, DeleteOfNothingIsFound) {
  expectDelete("A = 1\n", "A = 1\n", status::verify_no_change);
  expectDelete("", "", status::verify_no_change);
}

// --- equality is both ways

TEST_F(TextVerify, ChangeThatOnlyAddsACommentIsSeenInAnInitTable) {
  InitTable table(path_);
  InitLine key("k");
  InitLine line("k", "1", "w", "c", " note");
  vrxtest::writeFile(path_, "k:1:w:c\n");
  vrxtest::writeFile(folder_.file("reg.tmp"), "k:1:w:c # note\n");
  EXPECT_EQ(table.Verify(kGenRegChange, kInitTabId, key.record(), line.record()), 0U);
  EXPECT_EQ(vrxtest::readFile(path_), "k:1:w:c # note\n");
}

TEST_F(TextVerify, CommentMoreThanTheRecordHasIsADifference) {
  InitTable table(path_);
  InitLine line("k", "1", "w", "c");
  vrxtest::writeFile(path_, "");
  vrxtest::writeFile(folder_.file("reg.tmp"), "k:1:w:c # note\n");
  EXPECT_EQ(table.Verify(kGenRegAdd, kInitTabId, nullptr, line.record()),
            status::verify_added_differs);
}

TEST_F(TextVerify, BlankAndUnparsedInitLinesEqualNothingElse) {
  InitTable table(path_);
  InitLine key("k");
  InitLine line("k", "1", "w", "c");
  for (const char* odd : {"\n", "bad\n", ":c\n"}) {
    vrxtest::writeFile(path_, odd + std::string("k:0:w:c\n"));
    vrxtest::writeFile(folder_.file("reg.tmp"), "x:1:w:c\nk:1:w:c\n");
    EXPECT_EQ(table.Verify(kGenRegChange, kInitTabId, key.record(), line.record()),
              status::verify_unselected_change)
        << odd;
  }
}

// Without fields to compare, two lines that do not parse have their bytes only.
TEST_F(TextVerify, UnparsedInitLinesDifferByTheirBytes) {
  InitTable table(path_);
  InitLine key("k");
  InitLine line("k", "1", "w", "c");
  const char* const kRows[][2] = {{"bad\n", "worse\n"}, {"bad\n", "\n"}, {"\n", "bad\n"}};
  for (const auto& row : kRows) {
    vrxtest::writeFile(path_, row[0] + std::string("k:0:w:c\n"));
    vrxtest::writeFile(folder_.file("reg.tmp"), row[1] + std::string("k:1:w:c\n"));
    EXPECT_EQ(table.Verify(kGenRegChange, kInitTabId, key.record(), line.record()),
              status::verify_unselected_change)
        << row[0] << row[1];
  }
}

// --- what verification itself can meet

TEST_F(TextVerify, MissingCopyCannotBeOpened) {
  vrxtest::writeFile(path_, "K = 1\n");
  const LeakCheck leaks;
  EXPECT_EQ(verify(kGenRegChange), status::open_failed);
  EXPECT_EQ(vrxtest::readFile(path_), "K = 1\n");
}

TEST_F(TextVerify, EmptySlotsAreReportedTogether) {
  fill("K = 1\n", "K = new\n");
  profile_.formatLine = nullptr;
  const CapturedLog log;
  EXPECT_EQ(verify(kGenRegChange), status::slots_incomplete);
  EXPECT_EQ(log.count(genreg::kGenRegTextCheckFuncPtrs, status::no_format_slot), 1);
  EXPECT_EQ(log.count(genreg::kGenRegTextVerify, status::slots_incomplete), 1);
}

int twoBytes(unsigned long* size) {
  *size = 2;
  return 0;
}
int tooManyBytes(unsigned long* size) {
  *size = 0x100001;
  return 0;
}

TEST_F(TextVerify, RecordSizesOutOfRange) {
  fill("K = 1\n", "K = new\n");
  profile_.getMaxRecordSize = twoBytes;
  EXPECT_EQ(verify(kGenRegChange), status::record_too_small);
  profile_.getMaxRecordSize = tooManyBytes;
  EXPECT_EQ(verify(kGenRegChange), status::record_too_large);
}

TEST_F(TextVerify, MemoryFailuresAreToldApart) {
  fill("K = 1\n", "K = new\n");
  const LeakCheck leaks;
  {
    const FailCall fault(Call::kMemAlloc, 1, ENOMEM);
    EXPECT_EQ(verify(kGenRegChange), status::no_first_buffer);
  }
  {
    const FailCall fault(Call::kMemAlloc, 2, ENOMEM);
    EXPECT_EQ(verify(kGenRegChange), status::no_second_buffer);
  }
  EXPECT_EQ(vrxtest::readFile(path_), "K = 1\n");
}

// Each record is released before the block that its lines were read in, which nobody reports.
TEST_F(TextVerify, BuffersThatCannotBeReleasedAreReportedWithTheUpdateDone) {
  const GenRegStatus kCodes[] = {status::second_buffer_not_released, 0,
                                 status::first_buffer_not_released, 0};
  for (int nth = 1; nth <= 4; ++nth) {
    fill("K = 1\n", "K = new\n");
    const LeakCheck leaks;
    const FailCall fault(Call::kMemFree, nth, EINVAL);
    EXPECT_EQ(verify(kGenRegChange), kCodes[nth - 1]) << nth;
    EXPECT_EQ(vrxtest::readFile(path_), "K = new\n");
  }
}

TEST_F(TextVerify, CloseThatFailsIsTheResultOnlyWhenAllElsePassed) {
  for (const Call call : {Call::kFclose, Call::kLink, Call::kRename}) {
    fill("K = 1\n", "K = new\n");
    const LeakCheck leaks;
    const FailCall fault(call, 1, EIO);
    EXPECT_EQ(verify(kGenRegChange), status::close_failed);
    EXPECT_EQ(vrxtest::readFile(path_), "K = 1\n");
  }
  fill("K = 1\n", "K = 1\n");
  const FailCall fault(Call::kFclose, 1, EIO);
  EXPECT_EQ(verify(kGenRegChange), status::verify_no_change);
}

TEST_F(TextVerify, ReadErrorsAreToldApart) {
  fill("K = 1\n", "K = new\n");
  const LeakCheck leaks;
  {
    const FailCall fault(Call::kFread, 1, EIO);
    EXPECT_EQ(verify(kGenRegChange), status::read_failed);
  }
  const FailCall fault(Call::kFread, 2, EIO);
  EXPECT_EQ(verify(kGenRegChange), status::verify_read_failed);
  EXPECT_EQ(vrxtest::readFile(path_), "K = 1\n");
}

}  // namespace
