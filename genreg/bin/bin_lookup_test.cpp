// SPDX-License-Identifier: Apache-2.0
// Get and GetNext of the binary store, over plain records. Packed ones are packed_store_test's.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "genreg/bin/bin_store.h"
#include "genreg/internal/function_ids.h"
#include "platform/osse/memory.h"
#include "tests/support/captured_log.h"
#include "tests/support/faults.h"
#include "tests/support/plain_registry.h"
#include "tests/support/store_watch.h"

namespace {

using namespace vrxtest;
using genreg::statusOf;
namespace status = genreg::status;

const PlainRecord kFilled = plainRecord("untouched", 99);

bool isCleared(const PlainRecord& record) {
  return record == PlainRecord{};
}

class BinLookup : public testing::Test {
 protected:
  void fill(const std::string& bytes) { writeFile(files_.registry, bytes); }
  void fillThree() { fill(plainFrame("a", 1) + plainFrame("b", 2) + plainFrame("a", 3)); }
  GenRegStatus get(unsigned long long mask, PlainRecord key) {
    result_ = kFilled;
    return statusOf(registry_.Get(mask, &key, &result_));
  }
  GenRegStatus next(unsigned long long mask, PlainRecord key) {
    result_ = kFilled;
    return statusOf(registry_.GetNext(mask, &key, &result_));
  }
  bool scanHasEnded() const { return (registry_.state & kGenRegStateScanEnd) != 0; }

  TempDir folder_;
  const PlainFiles files_{folder_};
  PlainRegistry registry_{files_.registry};
  PlainRecord result_ = kFilled;
};

// --- Get

TEST_F(BinLookup, GetOnAMissingFileCreatesNothingAndLeavesTheResult) {
  const NothingKept watch;
  EXPECT_EQ(get(0, {}), status::no_registry);
  EXPECT_EQ(result_, kFilled);
  EXPECT_TRUE(namesIn(folder_).empty());
}

TEST_F(BinLookup, GetOnAnEmptyRegistryClearsTheResult) {
  fill("");
  const CapturedLog log;
  EXPECT_EQ(get(0, {}), status::no_match);
  EXPECT_TRUE(isCleared(result_));
  EXPECT_EQ(log.count(genreg::kGenRegBinGet), 0);
}

TEST_F(BinLookup, GetGivesTheFirstOfSeveralMatches) {
  fillThree();
  ASSERT_EQ(get(kPlainName, plainRecord("a", 0)), 0U);
  EXPECT_EQ(result_, plainRecord("a", 1));
  ASSERT_EQ(get(kPlainName | kPlainValue, plainRecord("a", 3)), 0U);
  EXPECT_EQ(result_, plainRecord("a", 3));
}

TEST_F(BinLookup, MaskZeroMatchesTheFirstRecord) {
  fillThree();
  ASSERT_EQ(get(0, plainRecord("nobody", 7)), 0U);
  EXPECT_EQ(result_, plainRecord("a", 1));
}

TEST_F(BinLookup, GetWithoutAMatchClearsExactlyTheLargestRecord) {
  fillThree();
  Fenced<PlainRecord> result(kFilled);
  PlainRecord key = plainRecord("c", 0);
  EXPECT_EQ(statusOf(registry_.Get(kPlainName, &key, result.record())), status::no_match);
  EXPECT_TRUE(isCleared(*result.record()));
  *result.record() = kFilled;
  EXPECT_TRUE(result.isUntouched());
}

TEST_F(BinLookup, GetTakesNoLockFileAndChangesNothing) {
  fillThree();
  const NothingKept watch;
  ASSERT_EQ(get(0, {}), 0U);
  EXPECT_EQ(namesIn(folder_), std::set<std::string>{"reg"});
}

TEST_F(BinLookup, BadKeyIsRefusedBeforeTheFileIsOpened) {
  const CallCount opens(Call::kHandleOpen);
  EXPECT_EQ(get(kPlainName, {}), status::invalid_record);
  EXPECT_EQ(opens.calls(), 0);
  EXPECT_EQ(result_, kFilled);
}

TEST_F(BinLookup, BadKeyIsLoggedWithTheFormatsOwnCode) {
  const LoggedReasons log;
  EXPECT_EQ(get(kPlainName, {}), status::invalid_record);
  EXPECT_EQ(log.count(status::invalid_record, status::empty_record), 1);
}

TEST_F(BinLookup, UnopenableRegistryIsReportedAsSuch) {
  fillThree();
  const NothingKept watch;
  for (const Call call : {Call::kHandleOpen, Call::kHandleLock, Call::kFstat}) {
    const FailCall fault(call, 1, EACCES);
    EXPECT_EQ(get(0, {}), status::open_failed);
    EXPECT_TRUE(fault.fired());
    EXPECT_EQ(result_, kFilled);
  }
}

TEST_F(BinLookup, CloseThatFailsIsTheResultOfAGoodGetOnly) {
  fillThree();
  const NothingKept watch;
  {
    const FailCall fault(Call::kHandleClose, 1, EIO);
    EXPECT_EQ(get(0, {}), status::close_failed);
    EXPECT_EQ(result_, plainRecord("a", 1));
  }
  const FailCall fault(Call::kHandleClose, 1, EIO);
  EXPECT_EQ(get(kPlainName, plainRecord("c", 0)), status::no_match);
}

TEST_F(BinLookup, NoMemoryForTheWorkBufferIsReportedBeforeTheFileIsOpened) {
  fillThree();
  const NothingKept watch;
  const CallCount opens(Call::kHandleOpen);
  const FailCall fault(Call::kMemAlloc, 1, ENOMEM);
  EXPECT_EQ(get(0, {}), status::no_scratch_memory);
  EXPECT_EQ(opens.calls(), 0);
  EXPECT_EQ(result_, kFilled);
}

TEST_F(BinLookup, WorkBufferThatCannotBeReleasedIsReported) {
  fillThree();
  const NothingKept watch;
  {
    const FailCall fault(Call::kMemFree, 1, EINVAL);
    EXPECT_EQ(get(0, {}), status::scratch_not_released);
    EXPECT_EQ(result_, plainRecord("a", 1));
  }
  const FailCall fault(Call::kMemFree, 1, EINVAL);
  EXPECT_EQ(get(kPlainName, plainRecord("c", 0)), status::no_match);
}

// --- damage

TEST_F(BinLookup, DamagedFrameStopsALookupThoughALaterOneWouldMatch) {
  fill(plainFrame("a", 1) + std::string(4, '\x7F') + plainFrame("b", 2));
  const NothingKept watch;
  EXPECT_EQ(get(kPlainName, plainRecord("b", 0)), status::read_failed);
  EXPECT_EQ(result_, kFilled);
  ASSERT_EQ(get(kPlainName, plainRecord("a", 0)), 0U);
}

TEST_F(BinLookup, StreamErrorsAreReadErrors) {
  fillThree();
  const FailCall fault(Call::kRead, 1, EIO);
  EXPECT_EQ(get(kPlainName, plainRecord("b", 0)), status::read_failed);
  EXPECT_EQ(result_, kFilled);
}

TEST_F(BinLookup, AnInterruptedReadIsRepeatedButNotForEver) {
  fillThree();
  {
    const FailCall once(Call::kRead, 1, EINTR);
    EXPECT_EQ(get(kPlainName, plainRecord("b", 0)), 0U);
  }
  const FailCall fault(Call::kRead, 1, EINTR, vrxtest::Extent::kFromThenOn);
  EXPECT_EQ(get(kPlainName, plainRecord("b", 0)), status::read_failed);
}

// A file of many blocks, each of which may fail.
TEST_F(BinLookup, StreamErrorInALaterBlockIsAReadErrorAndTheRecordsBeforeItAreFound) {
  std::string frames;
  for (int i = 0; i < 4000; ++i)
    frames += plainFrame("filler", i);
  fill(plainFrame("a", 1) + frames + plainFrame("z", 2));
  int blocks = 0;
  {
    const CallCount reads(Call::kRead);
    ASSERT_EQ(get(kPlainName, plainRecord("z", 0)), 0U);
    blocks = reads.calls();
  }
  EXPECT_EQ(blocks, 3);  // 96,048 bytes, of which a lookup reads few at first
  for (int nth = 2; nth <= blocks; ++nth) {
    const FailCall fault(Call::kRead, nth, EIO);
    EXPECT_EQ(get(kPlainName, plainRecord("z", 0)), status::read_failed) << nth;
    EXPECT_EQ(get(kPlainName, plainRecord("a", 0)), 0U);
  }
}

TEST_F(BinLookup, FrameThatIsTooLargeForMemoryIsAReadError) {
  fill(frameOf(std::string(5000, 'x')));
  const NothingKept watch;
  const FailCall fault(Call::kMemAlloc, 3, ENOMEM);
  const LoggedReasons log;
  EXPECT_EQ(get(0, {}), status::read_failed);
  EXPECT_EQ(log.count(status::read_failed, status::no_record_memory), 1);
}

TEST_F(BinLookup, ShortFrameIsARecordFilledUpWithZeros) {
  fill(plainFrame("long-name-15-by", -1) + frameOf("ab") + frameOf("") + frameOf("c"));
  ASSERT_EQ(registry_.OpenScan(), 0U);
  ASSERT_EQ(next(0, {}), 0U);
  for (const char* name : {"ab", "", "c"}) {
    ASSERT_EQ(next(0, {}), 0U);
    EXPECT_EQ(result_, plainRecord(name, 0));
  }
  EXPECT_EQ(next(0, {}), status::end_of_registry);
}

TEST_F(BinLookup, LongFrameMatchesAndGivesItsFirstBytes) {
  const PlainRecord record = plainRecord("long", 8);
  std::string body(300, 'x');
  std::memcpy(body.data(), &record, sizeof record);
  fill(plainFrame("a", 1) + frameOf(body) + plainFrame("b", 2));
  Fenced<PlainRecord> result(kFilled);
  PlainRecord key = plainRecord("long", 0);
  ASSERT_EQ(registry_.Get(kPlainName, &key, result.record()), 0);
  EXPECT_EQ(*result.record(), record);
  *result.record() = kFilled;
  EXPECT_TRUE(result.isUntouched());
  EXPECT_EQ(get(kPlainName, plainRecord("b", 0)), 0U);
}

TEST_F(BinLookup, BigEndianRegistryIsReadWithFeature8) {
  const std::string body = plainFrame("a", 1).substr(4);
  fill(std::string("\0\0\0\x14", 4) + body);
  EXPECT_EQ(get(0, {}), status::read_failed);
  registry_.features |= kGenRegBigEndian;
  ASSERT_EQ(get(0, {}), 0U);
  EXPECT_EQ(result_, plainRecord("a", 1));
}

// --- slots and sizes

unsigned long largest = 0;
int reportLargest(unsigned long* size) {
  *size = largest;
  return 0;
}
int refuseLargest(unsigned long*) {
  return genreg::statusInt(status::no_fields);
}

TEST_F(BinLookup, EmptySlotsHaveTheirCodesInTheOrderOfUse) {
  fillThree();
  const NothingKept watch;
  registry_.matchRecord = nullptr;
  EXPECT_EQ(get(0, {}), status::no_match_slot);
  EXPECT_EQ(result_, kFilled);
  registry_.getMaxRecordSize = nullptr;
  EXPECT_EQ(get(0, {}), status::no_max_size_slot);
  registry_.validateRecord = nullptr;
  EXPECT_EQ(get(0, {}), status::no_validate_slot);
}

TEST_F(BinLookup, EmptyMatchSlotIsNotNoticedInAnEmptyRegistry) {
  fill("");
  registry_.matchRecord = nullptr;
  EXPECT_EQ(get(0, {}), status::no_match);
}

TEST_F(BinLookup, MatchSlotMustAnswerExactlyOne) {
  fillThree();
  registry_.matchRecord = [](unsigned long long, void*, void*) { return 2; };
  EXPECT_EQ(get(0, {}), status::no_match);
}

TEST_F(BinLookup, LargestRecordIsWithinThreeBytesAndOneMebibyte) {
  fill(frameOf("abc"));
  registry_.getMaxRecordSize = reportLargest;
  registry_.matchRecord = [](unsigned long long, void*, void*) { return 1; };
  std::string result(0x100000, 'x');
  const auto getLarge = [&] { return statusOf(registry_.Get(0, result.data(), result.data())); };
  largest = 2;
  EXPECT_EQ(getLarge(), status::record_too_small);
  largest = 0x100001;
  EXPECT_EQ(getLarge(), status::record_too_large);
  largest = 0x100000;
  EXPECT_EQ(getLarge(), 0U);
  EXPECT_EQ(result, "abc" + std::string(0x100000 - 3, '\0'));
  registry_.getMaxRecordSize = refuseLargest;
  EXPECT_EQ(getLarge(), status::no_fields);
}

TEST_F(BinLookup, RecordOfThreeBytesIsFoundButNotHandedOut) {
  fill(frameOf("abc"));
  registry_.getMaxRecordSize = reportLargest;
  largest = 3;
  registry_.matchRecord = [](unsigned long long mask, void*, void*) { return mask == 0 ? 1 : 0; };
  registry_.validateRecord = [](unsigned long long, void*) { return 0; };
  EXPECT_EQ(get(0, {}), status::record_too_large);
  EXPECT_EQ(result_, kFilled);
  EXPECT_EQ(get(1, {}), status::no_match);
  ASSERT_EQ(registry_.OpenScan(), 0U);
  EXPECT_EQ(next(0, {}), status::record_too_large);
  EXPECT_EQ(result_, kFilled);
}

// --- GetNext

TEST_F(BinLookup, GetNextNeedsAScanBeforeAnythingElse) {
  fillThree();
  registry_.validateRecord = nullptr;
  EXPECT_EQ(next(0, {}), status::no_scan);
  EXPECT_EQ(result_, kFilled);
}

TEST_F(BinLookup, ScanGivesTheMatchesInFileOrderAndThenItsEnd) {
  fillThree();
  ASSERT_EQ(registry_.OpenScan(), 0U);
  ASSERT_EQ(next(kPlainName, plainRecord("a", 0)), 0U);
  EXPECT_EQ(result_, plainRecord("a", 1));
  ASSERT_EQ(next(kPlainName, plainRecord("a", 0)), 0U);
  EXPECT_EQ(result_, plainRecord("a", 3));
  EXPECT_EQ(next(kPlainName, plainRecord("a", 0)), status::end_of_registry);
  EXPECT_TRUE(isCleared(result_));
  EXPECT_TRUE(scanHasEnded());
  const CallCount reads(Call::kFread);
  EXPECT_EQ(next(kPlainName, plainRecord("a", 0)), status::end_of_registry);
  EXPECT_EQ(result_, kFilled);
  EXPECT_EQ(reads.calls(), 0);
}

TEST_F(BinLookup, EndedScanStillChecksItsKey) {
  fill("");
  ASSERT_EQ(registry_.OpenScan(), 0U);
  ASSERT_EQ(next(0, {}), status::end_of_registry);
  EXPECT_EQ(next(kPlainName, {}), status::invalid_record);
  registry_.getMaxRecordSize = nullptr;
  EXPECT_EQ(next(0, {}), status::end_of_registry);
  registry_.validateRecord = nullptr;
  EXPECT_EQ(next(0, {}), status::no_validate_slot);
}

TEST_F(BinLookup, RewoundScanBeginsAnew) {
  fillThree();
  ASSERT_EQ(registry_.OpenScan(), 0U);
  while (next(0, {}) == 0) {
  }
  ASSERT_EQ(registry_.Rewind(), 0U);
  ASSERT_EQ(next(0, {}), 0U);
  EXPECT_EQ(result_, plainRecord("a", 1));
}

TEST_F(BinLookup, PositionGivenBackRepeatsTheRecord) {
  fillThree();
  ASSERT_EQ(registry_.OpenScan(), 0U);
  ASSERT_EQ(next(0, {}), 0U);
  long long position = 0;
  ASSERT_EQ(registry_.getRegFilePosition(&position), 0U);
  ASSERT_EQ(next(0, {}), 0U);
  ASSERT_EQ(registry_.setRegFilePosition(&position), 0U);
  ASSERT_EQ(next(0, {}), 0U);
  EXPECT_EQ(result_, plainRecord("b", 2));
}

TEST_F(BinLookup, GetNextReportsFailuresAndLeavesTheScanOpen) {
  fill(plainFrame("a", 1) + std::string(4, '\x7F'));
  const NothingKept watch;
  ASSERT_EQ(registry_.OpenScan(), 0U);
  {
    const FailCall fault(Call::kMemAlloc, 1, ENOMEM);
    EXPECT_EQ(next(0, {}), status::no_scratch_memory);
  }
  EXPECT_EQ(next(0, {}), 0U);
  result_ = kFilled;
  EXPECT_EQ(next(0, {}), status::read_failed);
  EXPECT_EQ(result_, kFilled);
  EXPECT_FALSE(scanHasEnded());
  EXPECT_NE(registry_.state & kGenRegStateScanning, 0U);
  EXPECT_EQ(registry_.CloseScan(), 0U);
}

// The first GetNext of a scan takes its memory, the scan's end gives it back.
TEST_F(BinLookup, GetNextTakesMemoryOnceAScan) {
  fillThree();
  const NothingKept watch;
  ASSERT_EQ(registry_.OpenScan(), 0U);
  ASSERT_EQ(next(0, {}), 0U);
  {
    const CallCount allocations(Call::kMemAlloc);
    const CallCount reads(Call::kFread);
    EXPECT_EQ(next(0, {}), 0U);
    EXPECT_EQ(next(0, {}), 0U);
    EXPECT_EQ(next(0, {}), status::end_of_registry);
    EXPECT_EQ(allocations.calls(), 0);
    EXPECT_EQ(reads.calls(), 0);
  }
  EXPECT_EQ(registry_.CloseScan(), 0U);
}

TEST_F(BinLookup, GetNextNoticesEmptySlotsInTheOrderOfUse) {
  fillThree();
  ASSERT_EQ(registry_.OpenScan(), 0U);
  registry_.matchRecord = nullptr;
  EXPECT_EQ(next(0, {}), status::no_match_slot);
  EXPECT_EQ(result_, kFilled);
  registry_.getMaxRecordSize = nullptr;
  EXPECT_EQ(next(0, {}), status::no_max_size_slot);
  registry_.validateRecord = nullptr;
  EXPECT_EQ(next(0, {}), status::no_validate_slot);
}

TEST_F(BinLookup, GetNextRefusesSizesOutsideTheLimits) {
  fillThree();
  ASSERT_EQ(registry_.OpenScan(), 0U);
  registry_.getMaxRecordSize = reportLargest;
  largest = 2;
  EXPECT_EQ(next(0, {}), status::record_too_small);
  largest = 0x100001;
  EXPECT_EQ(next(0, {}), status::record_too_large);
}

// --- Get during a scan

TEST_F(BinLookup, GetWithoutFeature16LeavesAnOpenScanUndisturbed) {
  fillThree();
  ASSERT_EQ(registry_.OpenScan(), 0U);
  ASSERT_EQ(next(0, {}), 0U);
  EXPECT_EQ(get(0, {}), status::open_failed);
  EXPECT_EQ(result_, kFilled);
  ASSERT_EQ(next(0, {}), 0U);
  EXPECT_EQ(result_, plainRecord("b", 2));
}

TEST_F(BinLookup, GetWithFeature16GivesTheScanItsPositionBack) {
  fillThree();
  registry_.features |= kGenRegKeepPosition;
  ASSERT_EQ(registry_.OpenScan(), 0U);
  ASSERT_EQ(next(0, {}), 0U);
  ASSERT_EQ(get(kPlainValue, plainRecord("", 3)), 0U);
  EXPECT_EQ(result_, plainRecord("a", 3));
  EXPECT_EQ(get(kPlainName, plainRecord("c", 0)), status::no_match);
  ASSERT_EQ(next(0, {}), 0U);
  EXPECT_EQ(result_, plainRecord("b", 2));
}

TEST_F(BinLookup, GetWithFeature16ClearsTheEndFlagAndTheEndIsFoundAgain) {
  fillThree();
  registry_.features |= kGenRegKeepPosition;
  ASSERT_EQ(registry_.OpenScan(), 0U);
  while (next(0, {}) == 0) {
  }
  ASSERT_EQ(get(0, {}), 0U);
  EXPECT_FALSE(scanHasEnded());
  EXPECT_EQ(next(0, {}), status::end_of_registry);
  EXPECT_TRUE(isCleared(result_));
  EXPECT_TRUE(scanHasEnded());
}

TEST_F(BinLookup, GetWithFeature16AndNoScanOpensTheRegistryItself) {
  fillThree();
  registry_.features |= kGenRegKeepPosition;
  const NothingKept watch;
  EXPECT_EQ(get(0, {}), 0U);
  EXPECT_EQ(registry_.registryStream, nullptr);
}

TEST_F(BinLookup, ScanReadsOnInTheOldFileAfterAnUpdate) {
  fillThree();
  ASSERT_EQ(registry_.OpenScan(), 0U);
  ASSERT_EQ(next(0, {}), 0U);
  PlainRegistry writer(files_.registry);
  PlainRecord key = plainRecord("b", 0);
  ASSERT_EQ(writer.Delete(kPlainName, &key), 0);
  ASSERT_EQ(next(0, {}), 0U);
  EXPECT_EQ(result_, plainRecord("b", 2));
}

// --- system calls

TEST_F(BinLookup, ScanOfManyRecordsMakesNoSystemCallPerRecord) {
  std::string frames;
  for (int i = 0; i < 1000; ++i)
    frames += plainFrame("n", i);
  fill(frames);
  const CallCount measures(Call::kFstat);
  const CallCount allocations(Call::kMemAlloc);
  EXPECT_EQ(get(kPlainValue, plainRecord("", 999)), 0U);
  EXPECT_LE(measures.calls(), 3);
  EXPECT_LE(allocations.calls(), 2);
}

}  // namespace
