// SPDX-License-Identifier: Apache-2.0
// Get and GetNext of the text store.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "genreg/internal/function_ids.h"
#include "genreg/text/text_store.h"
#include "tests/support/captured_log.h"
#include "tests/support/faults.h"
#include "tests/support/text_records.h"

namespace {

using genreg::statusInt;
using vrxtest::Call;
using vrxtest::CallCount;
using vrxtest::CapturedLog;
using vrxtest::FailCall;
using vrxtest::InitLine;
using vrxtest::InitTable;
using vrxtest::LeakCheck;
using vrxtest::ProfileLine;
using vrxtest::ServiceLine;
using vrxtest::ServicesFile;
using vrxtest::TempDir;
namespace status = genreg::status;

constexpr char kMark = '\x5A';

class TextLookup : public ::testing::Test {
 protected:
  TextLookup() { forget(); }
  void fill(const std::string& bytes) { vrxtest::writeFile(path_, bytes); }
  void fillThree() { fill("# head\n\nbroken\nA = 1\n  B = 2 # two\nA = 3\n"); }
  void forget() { std::memset(&result_, kMark, sizeof result_); }

  GenRegStatus get(unsigned long long mask, ProfileLine&& key) {
    return profile_.Get(mask, key.record(), &result_);
  }
  GenRegStatus getFirst(const char* name) { return get(kVarValVariable, ProfileLine(name)); }
  GenRegStatus next(unsigned long long mask = 0, GenRegVarValRecord* key = nullptr) {
    return profile_.GetNext(mask, key, &result_);
  }
  bool resultIs(char byte) const {
    const std::string bytes(reinterpret_cast<const char*>(&result_), sizeof result_);
    return bytes == std::string(sizeof result_, byte);
  }
  bool isUntouched() const { return resultIs(kMark); }
  bool isCleared() const { return resultIs('\0'); }
  std::string value() const {
    EXPECT_GE(result_.value, result_.line);
    EXPECT_LT(result_.value, result_.line + sizeof result_.line);
    return result_.value;
  }

  const TempDir folder_;
  const std::string path_ = folder_.file("reg");
  unsigned int rc_ = ~0U;
  GenRegVarVal profile_{path_.c_str(), &rc_};
  GenRegVarValRecord result_;
};

// --- what Get finds

TEST_F(TextLookup, GetGivesTheFirstMatch) {
  fillThree();
  const LeakCheck leaks;
  ASSERT_EQ(getFirst("A"), 0U);
  EXPECT_EQ(value(), "1");
  ASSERT_EQ(get(3, ProfileLine("A", "3")), 0U);
  EXPECT_EQ(value(), "3");
  ASSERT_EQ(getFirst("B"), 0U);
  EXPECT_STREQ(result_.comment, " two");
}

TEST_F(TextLookup, MaskZeroGivesTheFirstVariableLine) {
  fillThree();
  ASSERT_EQ(get(0, ProfileLine("nobody")), 0U);
  EXPECT_STREQ(result_.variable, "A");
  EXPECT_EQ(value(), "1");
}

TEST_F(TextLookup, NothingFoundClearsTheResultUnlogged) {
  for (const char* bytes : {"", "\n", "# A = 1\n", "A\n", "B = 1\n"}) {
    fill(bytes);
    forget();
    const LeakCheck leaks;
    const CapturedLog log;
    EXPECT_EQ(getFirst("A"), status::no_match) << bytes;
    EXPECT_TRUE(isCleared());
    EXPECT_EQ(log.count(genreg::kGenRegTextGet, status::no_match), 0);
  }
}

TEST_F(TextLookup, LineThatDoesNotParseIsLoggedAndPassedOver) {
  fill("broken\nX = \"open\nA = 1\n");
  const CapturedLog log;
  ASSERT_EQ(getFirst("A"), 0U);
  EXPECT_EQ(log.count(genreg::kGenRegTextGet, status::line_not_parsed), 2);
  EXPECT_EQ(log.count(genreg::kGenRegTextGet), 2);
}

// A parse that fails half way leaves a name; it must not be found by it.
TEST_F(TextLookup, LineThatDoesNotParseMatchesNothing) {
  fill("X = \"open\n");
  EXPECT_EQ(getFirst("X"), status::no_match);
  EXPECT_EQ(get(0, ProfileLine("X")), status::no_match);
}

TEST_F(TextLookup, UnparsedServiceAndInitLinesMatchNothingEither) {
  fill("svc\n");
  ServicesFile services(path_);
  ServiceLine svc("svc");
  GenRegServicesRecord service;
  EXPECT_EQ(services->Get(1, svc.record(), &service), status::no_match);
  EXPECT_EQ(services->Get(0, svc.record(), &service), status::no_match);
  fill("x:1:wait\n");
  InitTable table(path_);
  InitLine x("x");
  GenRegInitTabRecord entry;
  EXPECT_EQ(table.Get(1, x.record(), &entry), status::no_match);
  EXPECT_EQ(table.Get(0, x.record(), &entry), status::no_match);
}

TEST_F(TextLookup, UnterminatedLastLineIsFound) {
  fill("B = 1\nA = 2");
  ASSERT_EQ(getFirst("A"), 0U);
  EXPECT_EQ(value(), "2");
}

TEST_F(TextLookup, WhatStandsBehindANulIsIgnored) {
  fill(std::string("A = 1\0 = 2\nB = 3\n", 17));
  ASSERT_EQ(getFirst("A"), 0U);
  EXPECT_EQ(value(), "1");
  ASSERT_EQ(getFirst("B"), 0U);
}

TEST_F(TextLookup, LongLinesAreLookedAtInPieces) {
  fill("L = " + std::string(2044, 'x') + "A = 1\nB = 2\n");
  ASSERT_EQ(getFirst("B"), 0U);
  ASSERT_EQ(getFirst("L"), 0U);
  EXPECT_EQ(value(), std::string(2043, 'x'));
}

TEST_F(TextLookup, ContinuationLinesAreJoinedForInitTablesOnly) {
  fill("x:1:wait:/bin/y \\\n  more\nz:2:once:/bin/z\n");
  InitTable table(path_);
  InitLine key("x");
  GenRegInitTabRecord found;
  ASSERT_EQ(table.Get(kInitTabId, key.record(), &found), 0U);
  EXPECT_STREQ(found.command, "/bin/y   more");
  fill("A = 1\\\nB = 2\n");
  ASSERT_EQ(getFirst("A"), 0U);
  EXPECT_EQ(value(), "1\\");
  ASSERT_EQ(getFirst("B"), 0U);
}

TEST_F(TextLookup, GetTakesNoLockFileAndChangesNothing) {
  fillThree();
  ASSERT_EQ(getFirst("A"), 0U);
  EXPECT_FALSE(vrxtest::pathExists(folder_.file(".reg.lock")));
  EXPECT_FALSE(vrxtest::pathExists(folder_.file("reg.tmp")));
}

// --- what Get refuses

TEST_F(TextLookup, BadKeyIsRefusedBeforeTheFileIsOpened) {
  const CallCount opens(Call::kHandleOpen);
  const CapturedLog log;
  EXPECT_EQ(get(1, ProfileLine({})), status::invalid_record);
  EXPECT_EQ(get(0, ProfileLine({})), status::invalid_record) << "whatever the mask";
  EXPECT_EQ(profile_.Get(1, nullptr, &result_), status::invalid_record);
  EXPECT_EQ(log.count(genreg::kGenRegTextGet, status::invalid_record), 3);
  EXPECT_EQ(opens.calls(), 0);
  EXPECT_TRUE(isUntouched());
}

TEST_F(TextLookup, MissingRegistryCannotBeOpened) {
  const LeakCheck leaks;
  EXPECT_EQ(getFirst("A"), status::open_failed);
  EXPECT_TRUE(isUntouched());
  EXPECT_FALSE(vrxtest::pathExists(path_));
}

int largest(unsigned long* size) {
  *size = 0x100001;
  return 0;
}
int smallest(unsigned long* size) {
  *size = 2;
  return 0;
}
int refusing(unsigned long*) {
  return statusInt(status::no_fields);
}

TEST_F(TextLookup, RecordSizesOutOfRangeAreRefused) {
  fillThree();
  const LeakCheck leaks;
  profile_.getMaxRecordSize = smallest;
  EXPECT_EQ(getFirst("A"), status::record_too_small);
  profile_.getMaxRecordSize = largest;
  EXPECT_EQ(getFirst("A"), status::record_too_large);
  profile_.getMaxRecordSize = refusing;
  EXPECT_EQ(getFirst("A"), status::no_fields);
  EXPECT_TRUE(isUntouched());
}

int parseNothing(void*, char*) {
  return 0;
}
int matchAll(unsigned long long, void*, void*) {
  return 1;
}
int acceptAll(unsigned long long, void*) {
  return 0;
}
int threeBytes(unsigned long* size) {
  *size = 3;
  return 0;
}

TEST_F(TextLookup, RecordOfThreeBytesIsNotHandedOut) {
  fillThree();
  const LeakCheck leaks;
  profile_.parseLine = parseNothing;
  profile_.matchRecord = matchAll;
  profile_.validateRecord = acceptAll;
  profile_.getMaxRecordSize = threeBytes;
  EXPECT_EQ(getFirst("A"), status::record_too_large);
  ASSERT_EQ(profile_.OpenScan(), 0U);
  EXPECT_EQ(next(), status::record_too_large);
  EXPECT_TRUE(isUntouched());
  EXPECT_EQ(profile_.CloseScan(), 0U);
}

TEST_F(TextLookup, EmptySlotsAreReportedWhenReached) {
  fillThree();
  const LeakCheck leaks;
  profile_.matchRecord = nullptr;
  EXPECT_EQ(getFirst("A"), status::no_match_slot);
  profile_.parseLine = nullptr;
  EXPECT_EQ(getFirst("A"), status::no_parse_slot);
  profile_.getMaxRecordSize = nullptr;
  EXPECT_EQ(getFirst("A"), status::no_max_size_slot);
  profile_.validateRecord = nullptr;
  EXPECT_EQ(getFirst("A"), status::no_validate_slot);
  EXPECT_TRUE(isUntouched());
}

TEST_F(TextLookup, EmptyFormatSlotDoesNotConcernLookups) {
  fillThree();
  profile_.formatLine = nullptr;
  EXPECT_EQ(getFirst("A"), 0U);
}

TEST_F(TextLookup, CheckFuncPtrsNamesTheFirstEmptySlot) {
  EXPECT_EQ(profile_.CheckFuncPtrs(), 0U);
  profile_.formatLine = nullptr;
  EXPECT_EQ(profile_.CheckFuncPtrs(), status::no_format_slot);
  profile_.matchRecord = nullptr;
  EXPECT_EQ(profile_.CheckFuncPtrs(), status::no_match_slot);
  profile_.parseLine = nullptr;
  EXPECT_EQ(profile_.CheckFuncPtrs(), status::no_parse_slot);
  profile_.getMaxRecordSize = nullptr;
  EXPECT_EQ(profile_.CheckFuncPtrs(), status::no_max_size_slot);
  profile_.validateRecord = nullptr;
  EXPECT_EQ(profile_.CheckFuncPtrs(), status::no_validate_slot);
}

TEST_F(TextLookup, NoMemoryIsReportedBeforeTheFileIsOpened) {
  fillThree();
  const LeakCheck leaks;
  const CallCount opens(Call::kHandleOpen);
  const FailCall fault(Call::kMemAlloc, 1, ENOMEM);
  EXPECT_EQ(getFirst("A"), status::no_scratch_memory);
  EXPECT_EQ(opens.calls(), 0);
  EXPECT_TRUE(isUntouched());
}

TEST_F(TextLookup, ScratchThatCannotBeReleasedIsLoggedOnly) {
  fillThree();
  const LeakCheck leaks;
  const CapturedLog log;
  const FailCall fault(Call::kMemFree, 1, EINVAL);
  EXPECT_EQ(getFirst("A"), 0U);
  EXPECT_TRUE(fault.fired());
  EXPECT_EQ(log.count(genreg::kGenRegTextGet, status::scratch_not_released), 1);
}

TEST_F(TextLookup, CloseThatFailsIsTheResultOfAGoodGetOnly) {
  fillThree();
  const LeakCheck leaks;
  {
    const FailCall fault(Call::kHandleClose, 1, EIO);
    EXPECT_EQ(getFirst("A"), status::close_failed);
  }
  const FailCall fault(Call::kHandleClose, 1, EIO);
  EXPECT_EQ(getFirst("nobody"), status::no_match);
}

// --- scans

TEST_F(TextLookup, GetNextWithMaskZeroGivesEveryLine) {
  fillThree();
  const LeakCheck leaks;
  ASSERT_EQ(profile_.OpenScan(), 0U);
  const unsigned int kContents[] = {1, 0, 2, 2, 3, 2};
  for (const unsigned int contents : kContents) {
    ASSERT_EQ(next(), 0U);
    EXPECT_EQ(result_.contents, contents);
  }
  EXPECT_EQ(value(), "3");
  EXPECT_EQ(next(), status::end_of_registry);
  EXPECT_TRUE(isCleared());
  EXPECT_EQ(profile_.state & kGenRegStateScanEnd, kGenRegStateScanEnd);
  EXPECT_EQ(profile_.CloseScan(), 0U);
}

int parsesLeft = 0;
int failHalfWay(void* record, char*) {
  if (parsesLeft-- > 0) static_cast<GenRegVarValRecord*>(record)->contents = kVarValHasValue;
  return statusInt(status::no_equals_sign);
}

// What a failed parse leaves behind is not handed out.
TEST_F(TextLookup, LineThatDoesNotParseGivesAnEmptyRecord) {
  fill("broken\n");
  ASSERT_EQ(profile_.OpenScan(), 0U);
  parsesLeft = 1;
  profile_.parseLine = failHalfWay;
  ASSERT_EQ(next(), 0U);
  EXPECT_TRUE(isCleared());
}

TEST_F(TextLookup, GetNextWithAMaskGivesTheMatchesInOrder) {
  fillThree();
  ASSERT_EQ(profile_.OpenScan(), 0U);
  ProfileLine key("A");
  ASSERT_EQ(next(1, key.record()), 0U);
  EXPECT_EQ(value(), "1");
  ASSERT_EQ(next(1, key.record()), 0U);
  EXPECT_EQ(value(), "3");
  EXPECT_EQ(next(1, key.record()), status::end_of_registry);
}

TEST_F(TextLookup, EndOfAScanStaysUntilItIsRewound) {
  fill("A = 1\n");
  ASSERT_EQ(profile_.OpenScan(), 0U);
  ASSERT_EQ(next(), 0U);
  ASSERT_EQ(next(), status::end_of_registry);
  forget();
  const CallCount allocations(Call::kMemAlloc);
  EXPECT_EQ(next(), status::end_of_registry);
  EXPECT_EQ(allocations.calls(), 0) << "at once";
  EXPECT_TRUE(isUntouched());
  ASSERT_EQ(profile_.Rewind(), 0U);
  EXPECT_EQ(next(), 0U);
  ASSERT_EQ(profile_.CloseScan(), 0U);
  ASSERT_EQ(profile_.OpenScan(), 0U);
  EXPECT_EQ(next(), 0U);
}

TEST_F(TextLookup, GetNextNeedsAScan) {
  fillThree();
  EXPECT_EQ(next(), status::no_scan);
  profile_.validateRecord = nullptr;
  EXPECT_EQ(next(), status::no_scan);
  EXPECT_TRUE(isUntouched());
}

TEST_F(TextLookup, GetNextValidatesTheKeyOnlyWithAMask) {
  fillThree();
  ASSERT_EQ(profile_.OpenScan(), 0U);
  EXPECT_EQ(next(0, nullptr), 0U);
  EXPECT_EQ(next(1, nullptr), status::invalid_record);
  ProfileLine empty({});
  EXPECT_EQ(next(1, empty.record()), status::invalid_record);
}

TEST_F(TextLookup, GetNextReportsEmptySlotsWhenReached) {
  fillThree();
  ASSERT_EQ(profile_.OpenScan(), 0U);
  ProfileLine key("A");
  profile_.matchRecord = nullptr;
  EXPECT_EQ(next(), 0U) << "every line is taken without a comparison";
  EXPECT_EQ(next(1, key.record()), status::no_match_slot);
  profile_.parseLine = nullptr;
  EXPECT_EQ(next(), status::no_parse_slot);
  profile_.getMaxRecordSize = smallest;
  EXPECT_EQ(next(), status::record_too_small);
  profile_.getMaxRecordSize = largest;
  EXPECT_EQ(next(), status::record_too_large);
  profile_.getMaxRecordSize = nullptr;
  EXPECT_EQ(next(), status::no_max_size_slot);
  profile_.validateRecord = nullptr;
  EXPECT_EQ(next(), status::no_validate_slot);
}

TEST_F(TextLookup, GetNextReportsMemoryFailures) {
  fillThree();
  const LeakCheck leaks;
  ASSERT_EQ(profile_.OpenScan(), 0U);
  {
    const FailCall fault(Call::kMemAlloc, 1, ENOMEM);
    EXPECT_EQ(next(), status::no_scratch_memory);
  }
  EXPECT_TRUE(isUntouched());
  EXPECT_EQ(next(), 0U);
  EXPECT_EQ(result_.contents, kVarValHasComment) << "the scan goes on with the first line";
  EXPECT_EQ(profile_.CloseScan(), 0U);
}

TEST_F(TextLookup, GetNextTakesMemoryOnceAScan) {
  fillThree();
  ASSERT_EQ(profile_.OpenScan(), 0U);
  ASSERT_EQ(next(), 0U);
  const CallCount allocations(Call::kMemAlloc);
  const CallCount reads(Call::kFread);
  while (next() == 0)
    continue;
  EXPECT_EQ(allocations.calls(), 0);
  EXPECT_EQ(reads.calls(), 0);
}

TEST_F(TextLookup, GetBesideAScanBorrowsItsStreamWithFeature10) {
  fillThree();
  profile_.features |= kGenRegKeepPosition;
  ASSERT_EQ(profile_.OpenScan(), 0U);
  for (int i = 0; i < 4; ++i)
    ASSERT_EQ(next(), 0U);
  const LeakCheck leaks;
  ASSERT_EQ(getFirst("B"), 0U);
  EXPECT_EQ(value(), "2");
  EXPECT_EQ(getFirst("nobody"), status::no_match);
  ASSERT_EQ(next(), 0U);
  EXPECT_EQ(value(), "2") << "the scan goes on where it stood";
  ASSERT_EQ(next(), 0U);
  EXPECT_EQ(next(), status::end_of_registry);
  ASSERT_EQ(getFirst("A"), 0U) << "at the scan's end too";
}

TEST_F(TextLookup, GetBesideAScanFailsWithoutFeature10AndDisturbsNothing) {
  fillThree();
  ASSERT_EQ(profile_.OpenScan(), 0U);
  ASSERT_EQ(next(), 0U);
  EXPECT_EQ(getFirst("A"), status::open_failed);
  ASSERT_EQ(next(), 0U);
  EXPECT_EQ(result_.contents, 0U);
}

TEST_F(TextLookup, ReadErrorIsNotTheEndOfTheFile) {
  fillThree();
  profile_.features |= kGenRegKeepPosition;
  ASSERT_EQ(profile_.OpenScan(), 0U);
  const FailCall fault(Call::kFread, 1, EIO, vrxtest::Extent::kFromThenOn);
  EXPECT_EQ(next(), status::read_failed);
  EXPECT_EQ(profile_.state & kGenRegStateScanEnd, 0U);
  EXPECT_EQ(getFirst("A"), status::read_failed);
  EXPECT_TRUE(isUntouched());
}

// Every call of a lookup that can fail, one after the other.
TEST_F(TextLookup, NoFailingCallLeavesAnythingBehind) {
  fillThree();
  for (const Call call : {Call::kHandleOpen, Call::kHandleLock, Call::kFdopen, Call::kFstat,
                          Call::kMemAlloc, Call::kMemFree, Call::kFclose, Call::kSetvbuf}) {
    bool fired = true;
    for (int nth = 1; fired; ++nth) {
      const LeakCheck leaks;
      forget();
      const FailCall fault(call, nth, EIO);
      const GenRegStatus rc = getFirst("A");
      fired = fault.fired();
      if (rc == 0 || rc == status::close_failed) {
        EXPECT_EQ(value(), "1");
      } else {
        EXPECT_TRUE(isUntouched());
      }
    }
  }
}

TEST_F(TextLookup, EveryLineOfAServicesFileIsGivenWithoutAKey) {
  fill("a 1/tcp\n");
  ServicesFile services(path_);
  GenRegServicesRecord found{};
  ASSERT_EQ(services->OpenScan(), 0U);
  EXPECT_EQ(services->GetNext(0, nullptr, &found), 0U);
  EXPECT_STREQ(found.name, "a");
}

}  // namespace
