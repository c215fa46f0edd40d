// SPDX-License-Identifier: Apache-2.0
// Verify of the binary store, called as an update calls it: a registry, and beside it the copy that
// is to replace it, both written by the test.
#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "genreg/bin/bin_store.h"
#include "genreg/internal/function_ids.h"
#include "platform/osse/memory.h"
#include "tests/support/captured_log.h"
#include "tests/support/faults.h"
#include "tests/support/global_records.h"
#include "tests/support/packed_registry.h"
#include "tests/support/plain_registry.h"
#include "tests/support/quiet_global_reg.h"
#include "tests/support/store_watch.h"

namespace {

using namespace vrxtest;
using genreg::statusOf;
namespace status = genreg::status;

const std::string kA = plainFrame("a", 1);
const std::string kB = plainFrame("b", 2);
const std::string kC = plainFrame("c", 3);
const std::string kX = plainFrame("x", 9);

class BinVerify : public testing::Test {
 protected:
  // Verifies these two contents. A finding leaves both files as they were; without one the copy
  // has replaced the registry. Nothing is kept either way.
  GenRegStatus verify(unsigned mode, const std::string& earlier, const std::string& current,
                      PlainRecord* record, PlainRecord* key) {
    writeFile(files_.registry, earlier);
    writeFile(files_.temporary, current);
    const NothingKept watch;
    const GenRegStatus rc = statusOf(registry_.Verify(mode, kPlainName, record, key));
    EXPECT_EQ(readFile(files_.registry), rc == 0 ? current : earlier);
    EXPECT_EQ(pathExists(files_.temporary), rc != 0);
    EXPECT_FALSE(pathExists(files_.backup));
    return rc;
  }
  GenRegStatus added(const std::string& earlier, const std::string& current) {
    return verify(kGenRegAdd, earlier, current, &new_, nullptr);
  }
  GenRegStatus changed(const std::string& earlier, const std::string& current) {
    return verify(kGenRegChange, earlier, current, &new_, &key_);
  }
  GenRegStatus deleted(const std::string& earlier, const std::string& current) {
    return verify(kGenRegDelete, earlier, current, nullptr, &key_);
  }

  TempDir folder_;
  const PlainFiles files_{folder_};
  PlainRegistry registry_{files_.registry};
  PlainRecord new_ = plainRecord("x", 9);
  PlainRecord key_ = plainRecord("b", 0);
};

// --- passed

TEST_F(BinVerify, AddedRecordAtTheEndPasses) {
  EXPECT_EQ(added("", kX), 0U);
  EXPECT_EQ(added(kA + kB, kA + kB + kX), 0U);
}

TEST_F(BinVerify, ChangedRecordInItsPlacePasses) {
  EXPECT_EQ(changed(kB, kX), 0U);
  EXPECT_EQ(changed(kB + kA, kX + kA), 0U);
  EXPECT_EQ(changed(kA + kB + kC, kA + kX + kC), 0U);
  EXPECT_EQ(changed(kA + kB, kA + kX), 0U);
}

TEST_F(BinVerify, DeletedRecordPassesWhereverItStood) {
  EXPECT_EQ(deleted(kB, ""), 0U);
  EXPECT_EQ(deleted(kB + kA, kA), 0U);
  EXPECT_EQ(deleted(kA + kB + kC, kA + kC), 0U);
  EXPECT_EQ(deleted(kA + kB, kA), 0U);
}

TEST_F(BinVerify, SeveralRecordsPassWithFeature2) {
  registry_.features |= kGenRegDuplicates;
  const std::string b7 = plainFrame("b", 7);
  EXPECT_EQ(changed(kB + kA + b7, kX + kA + kX), 0U);
  EXPECT_EQ(deleted(kB + b7 + kA + kB, kA), 0U);
  EXPECT_EQ(deleted(kB + b7, ""), 0U);
}

TEST_F(BinVerify, FramesOfOtherLengthsThatStayedPass) {
  EXPECT_EQ(added(frameOf("") + frameOf("z"), frameOf("") + frameOf("z") + kX), 0U);
}

// --- findings

TEST_F(BinVerify, UnchangedContentsAreNoChange) {
  for (const std::string& same : {std::string(), kA + kB + kC}) {
    EXPECT_EQ(changed(same, same), status::verify_no_change);
    EXPECT_EQ(deleted(same, same), status::verify_no_change);
    EXPECT_EQ(added(same, same), status::verify_nothing_added);
  }
}

TEST_F(BinVerify, ChangeOfARecordThatTheKeyDoesNotSelectIsFound) {
  EXPECT_EQ(changed(kA + kB, kX + kB), status::verify_unselected_change);
  EXPECT_EQ(changed(kA + kB, kC + kX), status::verify_unselected_change);
}

TEST_F(BinVerify, ChangeToAnythingButTheNewRecordIsFound) {
  EXPECT_EQ(changed(kA + kB, kA + kC), status::verify_wrong_record);
  EXPECT_EQ(changed(kB, plainFrame("x", 8)), status::verify_wrong_record);
}

TEST_F(BinVerify, ChangeThatLosesOrGainsRecordsIsFound) {
  EXPECT_EQ(changed(kA + kB + kC, kA + kX), status::verify_ends_early);
  EXPECT_EQ(changed(kA + kB, kA + kX + kC), status::verify_ends_early);
  EXPECT_EQ(changed(kA, ""), status::verify_ends_early);
}

TEST_F(BinVerify, SecondChangedRecordIsFoundWithoutFeature2) {
  EXPECT_EQ(changed(kB + kA + kB, kX + kA + kX), status::verify_several_changed);
}

TEST_F(BinVerify, SecondDeletedRecordIsFoundWithoutFeature2) {
  EXPECT_EQ(deleted(kB + kA + kB, kA), status::verify_several_changed);
  EXPECT_EQ(deleted(kB + kB, ""), status::verify_several_changed);
}

TEST_F(BinVerify, MissingRecordThatTheKeyDoesNotSelectIsFound) {
  EXPECT_EQ(deleted(kA + kB + kC, kB + kC), status::verify_unselected_delete);
  EXPECT_EQ(deleted(kB + kA + kC, kC), status::verify_unselected_delete);
}

TEST_F(BinVerify, MissingRecordAtTheEndThatTheKeyDoesNotSelectIsFound) {
  EXPECT_EQ(deleted(kB + kA, kB), status::verify_wrong_record);
  EXPECT_EQ(deleted(kA, ""), status::verify_wrong_record);
}

TEST_F(BinVerify, DeletionThatChangesWhatFollowsIsFound) {
  EXPECT_EQ(deleted(kA + kB, kA + kX), status::verify_records_missing);
}

TEST_F(BinVerify, DeletionThatAddsRecordsIsFound) {
  EXPECT_EQ(deleted(kA, kA + kX), status::verify_records_missing);
  EXPECT_EQ(deleted(kB + kA, kA + kX), status::verify_records_missing);
  EXPECT_EQ(deleted("", kX), status::verify_records_missing);
}

TEST_F(BinVerify, AdditionThatChangesAnotherRecordIsFound) {
  EXPECT_EQ(added(kA + kB, kA + kC + kX), status::verify_difference);
  EXPECT_EQ(added(kA + kB, kX), status::verify_difference);
}

TEST_F(BinVerify, AdditionThatAddsNothingOrLosesRecordsIsFound) {
  EXPECT_EQ(added(kA + kB, kA + kB), status::verify_nothing_added);
  EXPECT_EQ(added(kA + kB, kA), status::verify_nothing_added);
  EXPECT_EQ(added(kA + kB, ""), status::verify_nothing_added);
}

TEST_F(BinVerify, AdditionOfAnotherRecordIsFound) {
  EXPECT_EQ(added(kA, kA + kC), status::verify_added_differs);
  EXPECT_EQ(added(kA, kA + plainFrame("x", 8)), status::verify_added_differs);
}

TEST_F(BinVerify, AdditionOfTwoRecordsIsFoundWithFeature2Too) {
  EXPECT_EQ(added(kA, kA + kX + kX), status::verify_more_added);
  registry_.features |= kGenRegDuplicates;
  EXPECT_EQ(added(kA, kA + kX + kX), status::verify_more_added);
}

TEST_F(BinVerify, DifferenceUnderAnUnknownModeIsFound) {
  for (const unsigned mode : {0U, 1U, 3U, 16U}) {
    EXPECT_EQ(verify(mode, kA, kX, &new_, &key_), status::verify_difference) << mode;
    EXPECT_EQ(verify(mode, kA, kA, &new_, &key_), status::verify_no_change) << mode;
  }
}

TEST_F(BinVerify, ComparisonThatOnlyOneSideFindsEqualIsADifference) {
  // A record with a name equals every record that has none, but not the other way round.
  registry_.matchRecord = [](unsigned long long mask, void* stored, void* given) {
    const bool nameless = static_cast<PlainRecord*>(given)->name[0] == '\0';
    return mask == ~0ULL && nameless ? 1 : PlainRegistry::matchPlain(mask, stored, given);
  };
  const std::string nameless = plainFrame("", 5);
  EXPECT_EQ(changed(kA + kB, nameless + kX), status::verify_unselected_change);
  EXPECT_EQ(added(kA, kA + nameless), status::verify_added_differs);
}

// --- damage and slots

TEST_F(BinVerify, DamageIsReportedByTheFileThatHasIt) {
  const std::string cut = kA.substr(0, 23);
  EXPECT_EQ(added(kA + cut, kA + kX), status::read_failed);
  EXPECT_EQ(added(cut, kA + kX), status::read_failed);
  EXPECT_EQ(added(kA, kA + cut), status::verify_read_failed);
  EXPECT_EQ(added(kA, cut), status::verify_read_failed);
  EXPECT_EQ(added(kA, kA + kX + cut), status::verify_read_failed);
  EXPECT_EQ(deleted(kA + kB + cut, kA), status::read_failed);
  EXPECT_EQ(changed(kB + kA, kX + cut), status::verify_read_failed);
}

TEST_F(BinVerify, MissingFilesCannotBeOpened) {
  const NothingKept watch;
  EXPECT_EQ(statusOf(registry_.Verify(kGenRegAdd, kPlainName, &new_, nullptr)),
            status::open_failed);
  writeFile(files_.registry, kA);
  EXPECT_EQ(statusOf(registry_.Verify(kGenRegAdd, kPlainName, &new_, nullptr)),
            status::open_failed);
  EXPECT_EQ(readFile(files_.registry), kA);
}

TEST_F(BinVerify, IncompleteSlotsAreRefusedBeforeTheFilesAreOpened) {
  const CallCount opens(Call::kHandleOpen);
  registry_.getMaxRecordSize = nullptr;
  EXPECT_EQ(added(kA, kA + kX), status::slots_incomplete);
  registry_.getMaxRecordSize = PlainRegistry::largestPlainSize;
  registry_.features |= kGenRegPacked;
  EXPECT_EQ(added(kA, kA + kX), status::slots_incomplete);
  EXPECT_EQ(opens.calls(), 0);
}

TEST_F(BinVerify, SizesOutsideTheLimitsAreRefused) {
  registry_.getMaxRecordSize = [](unsigned long* size) {
    *size = 2;
    return 0;
  };
  EXPECT_EQ(added(kA, kA + kX), status::record_too_small);
  registry_.getMaxRecordSize = [](unsigned long* size) {
    *size = 0x100001;
    return 0;
  };
  EXPECT_EQ(added(kA, kA + kX), status::record_too_large);
}

TEST_F(BinVerify, EmptyMatchSlotIsReportedWhenRecordsMeet) {
  registry_.matchRecord = nullptr;
  EXPECT_EQ(added(kA, kA + kX), status::no_match_slot);
  EXPECT_EQ(added("", kX), status::no_match_slot);
  EXPECT_EQ(deleted(kB, ""), status::no_match_slot);
  EXPECT_EQ(added("", ""), status::verify_nothing_added);
}

// --- memory, closing

TEST_F(BinVerify, BuffersHaveTheirOwnCodes) {
  {
    const FailCall fault(Call::kMemAlloc, 1, ENOMEM);
    EXPECT_EQ(added(kA, kA + kX), status::no_first_buffer);
  }
  const FailCall fault(Call::kMemAlloc, 2, ENOMEM);
  EXPECT_EQ(added(kA, kA + kX), status::no_second_buffer);
}

// A format that writes behind a record damages the guard of its block; the test repairs it.
void* overrunRecord = nullptr;
enum class Overrun { kStored, kGiven } overrunSide;
int overrunMatch(unsigned long long mask, void* stored, void* given) {
  if (overrunRecord == nullptr) {
    overrunRecord = overrunSide == Overrun::kStored ? stored : given;
    static_cast<char*>(overrunRecord)[ossMemCapacity(overrunRecord)] ^= 1;
  }
  return PlainRegistry::matchPlain(mask, stored, given);
}

TEST_F(BinVerify, BufferThatCannotBeReleasedIsReportedAlthoughTheCopyIsCommitted) {
  registry_.matchRecord = overrunMatch;
  for (const Overrun side : {Overrun::kStored, Overrun::kGiven}) {
    overrunSide = side;
    overrunRecord = nullptr;
    writeFile(files_.registry, kA);
    writeFile(files_.temporary, kA + kX);
    EXPECT_EQ(statusOf(registry_.Verify(kGenRegAdd, kPlainName, &new_, nullptr)),
              side == Overrun::kStored ? status::first_buffer_not_released
                                       : status::second_buffer_not_released);
    EXPECT_EQ(readFile(files_.registry), kA + kX);
    static_cast<char*>(overrunRecord)[ossMemCapacity(overrunRecord)] ^= 1;
    EXPECT_EQ(ossMemFree(overrunRecord, __FILE__, __LINE__), 0U);
  }
}

TEST_F(BinVerify, CloseThatFailsLeavesTheRegistryAndNothingOpen) {
  for (const Call call : {Call::kFclose, Call::kLink}) {
    const FailCall fault(call, 1, EIO);
    EXPECT_EQ(added(kA, kA + kX), status::close_failed);
    EXPECT_TRUE(fault.fired());
  }
}

TEST_F(BinVerify, FindingIsLoggedOnce) {
  const CapturedLog log;
  EXPECT_EQ(added(kA, kA + kC), status::verify_added_differs);
  EXPECT_EQ(log.count(genreg::kGenRegBinVerify), 1);
}

TEST_F(BinVerify, WithoutFeature1APassedVerificationCommitsNothing) {
  registry_.features = 0;
  writeFile(files_.registry, kA);
  writeFile(files_.temporary, kA + kX);
  EXPECT_EQ(registry_.Verify(kGenRegAdd, kPlainName, &new_, nullptr), 0);
  EXPECT_EQ(readFile(files_.registry), kA);
  EXPECT_EQ(readFile(files_.temporary), kA + kX);
}

// --- packed records

TEST(BinVerifyPacked, ImagesThatDoNotUnpackAreReportedFromEitherFile) {
  const TempDir folder;
  const PlainFiles files(folder);
  PackedRegistry registry(files.registry);
  PackedRecord record = packedRecord("x", 9);
  const std::string good = frameOf(PackedRegistry::imageOf(packedRecord("a", 1)));
  const std::string bad = frameOf("bad");
  for (const auto& [earlier, current] : {std::pair{bad, good}, std::pair{good, bad}}) {
    writeFile(files.registry, earlier);
    writeFile(files.temporary, current);
    const NothingKept watch;
    EXPECT_EQ(statusOf(registry.Verify(kGenRegAdd, kPackedName, &record, nullptr)),
              status::unpack_failed);
    EXPECT_EQ(readFile(files.registry), earlier);
  }
}

TEST(BinVerifyPacked, FrameCutShortIsNotMadeWholeByTheFrameBehindIt) {
  const TempDir folder;
  const PlainFiles files(folder);
  QuietGlobalReg registry(files.registry);
  const std::string service = entryOf(std::string("VRX\0", 4));
  const std::string added =
      frameOf(imageOf(kGlobalRegVariable, 7,
                      {service, entryOf(std::string("N\0", 2)), entryOf(std::string("2\0", 2))}));
  // The comment is the added frame up to its checksum word, which is the whole record's as well.
  const std::string comment = entryOf(added.substr(0, added.size() - 4));
  const std::string whole = imageOf(kGlobalRegVariable, 9, {service, comment});
  const std::string cut = whole.substr(0, whole.size() - added.size());
  writeFile(files.registry, frameOf(whole));
  writeFile(files.temporary, frameOf(cut) + added);
  GlobalRegRecord record = variableRecord("VRX", "N", "2");
  const NothingKept watch;
  EXPECT_EQ(statusOf(registry.Verify(kGenRegAdd, 1, &record, nullptr)), status::unpack_failed);
  EXPECT_EQ(readFile(files.registry), frameOf(whole));
}

TEST(BinVerifyPacked, RecordsOfDifferentKindsAreNeverEqual) {
  const TempDir folder;
  const PlainFiles files(folder);
  QuietGlobalReg registry(files.registry);
  const std::string name = entryOf(std::string("VRX\0", 4));
  writeFile(files.registry, frameOf(imageOf(kGlobalRegService, 1, {name})));
  writeFile(files.temporary, frameOf(imageOf(kGlobalRegVariable, 1, {name})) +
                                 frameOf(imageOf(kGlobalRegVariable, 1, {name})));
  GlobalRegRecord record = variableRecord("VRX", "", "");
  EXPECT_EQ(statusOf(registry.Verify(kGenRegAdd, 1, &record, nullptr)), status::verify_difference);
}

}  // namespace
