// SPDX-License-Identifier: Apache-2.0
// Updates of the binary store that fail: which status says so, what is left on disk, and that
// neither the lock nor memory nor a descriptor is kept.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cerrno>
#include <csignal>
#include <set>
#include <string>

#include "genreg/bin/bin_store.h"
#include "genreg/internal/function_ids.h"
#include "platform/osse/memory.h"
#include "tests/support/captured_log.h"
#include "tests/support/faults.h"
#include "tests/support/packed_registry.h"
#include "tests/support/plain_registry.h"
#include "tests/support/private_mounts.h"
#include "tests/support/store_watch.h"

namespace {

using namespace vrxtest;
using genreg::statusOf;
namespace status = genreg::status;

using Names = std::set<std::string>;

class BinUpdateFaults : public testing::Test {
 protected:
  void SetUp() override { writeFile(files_.registry, two_); }
  GenRegStatus add(PlainRecord record) { return statusOf(registry_.Add(kPlainName, &record)); }
  GenRegStatus change(PlainRecord key, PlainRecord record) {
    return statusOf(registry_.Change(kPlainName, &key, &record));
  }
  GenRegStatus remove(PlainRecord key) { return statusOf(registry_.Delete(kPlainName, &key)); }
  std::string contents() const { return readFile(files_.registry); }

  // Each operation, with arguments that succeed when nothing fails.
  GenRegStatus goodAdd() { return add(plainRecord("c", 3)); }
  GenRegStatus goodChange() { return change(plainRecord("b", 0), plainRecord("x", 9)); }
  GenRegStatus goodDelete() { return remove(plainRecord("b", 0)); }

  // The nth call fails with `error`: all three report `expected`, keep nothing, change nothing.
  void expectAll(Call call, int nth, int error, GenRegStatus expected) {
    const NothingKept watch;
    for (const auto operation :
         {&BinUpdateFaults::goodAdd, &BinUpdateFaults::goodChange, &BinUpdateFaults::goodDelete}) {
      const FailCall fault(call, nth, error);
      EXPECT_EQ((this->*operation)(), expected);
      EXPECT_TRUE(fault.fired());
      EXPECT_EQ(contents(), two_);
    }
    EXPECT_TRUE(lockIsFree(files_.registry));
  }

  TempDir folder_;
  const PlainFiles files_{folder_};
  const std::string two_ = plainFrame("a", 1) + plainFrame("b", 2);
  PlainRegistry registry_{files_.registry};
};

// --- before anything is touched

unsigned long largest = 0;
int reportLargest(unsigned long* size) {
  *size = largest;
  return 0;
}

TEST_F(BinUpdateFaults, ChecksComeBeforeTheLockFileInTheirOrder) {
  const NothingKept watch;
  registry_.getMaxRecordSize = reportLargest;
  largest = 2;
  EXPECT_EQ(goodAdd(), status::record_too_small);
  EXPECT_EQ(goodChange(), status::record_too_small);
  EXPECT_EQ(goodDelete(), status::record_too_small);
  largest = 0x100001;
  EXPECT_EQ(goodAdd(), status::record_too_large);
  EXPECT_EQ(goodChange(), status::record_too_large);
  EXPECT_EQ(goodDelete(), status::record_too_large);
  EXPECT_EQ(add({}), status::invalid_record);
  EXPECT_EQ(change(plainRecord("a", 0), {}), status::invalid_record);
  EXPECT_EQ(remove({}), status::invalid_record);
  registry_.getMaxRecordSize = nullptr;
  EXPECT_EQ(add({}), status::slots_incomplete);
  EXPECT_EQ(change(plainRecord("a", 0), {}), status::invalid_record);
  EXPECT_EQ(goodChange(), status::no_max_size_slot);
  EXPECT_EQ(goodDelete(), status::no_max_size_slot);
  registry_.validateRecord = nullptr;
  EXPECT_EQ(goodAdd(), status::slots_incomplete);
  EXPECT_EQ(goodChange(), status::no_validate_slot);
  EXPECT_EQ(goodDelete(), status::no_validate_slot);
  EXPECT_EQ(namesIn(folder_), Names{"reg"});
}

TEST_F(BinUpdateFaults, IncompleteSlotsAreLoggedWithTheMissingSlotsCode) {
  registry_.getMaxRecordSize = nullptr;
  const LoggedReasons log;
  EXPECT_EQ(goodAdd(), status::slots_incomplete);
  EXPECT_EQ(log.count(status::slots_incomplete, status::no_max_size_slot), 1);
}

TEST_F(BinUpdateFaults, ChangeValidatesTheNewRecordAndNotTheKey) {
  PlainRecord nameless{};
  PlainRecord record = plainRecord("n", 1);
  EXPECT_EQ(statusOf(registry_.Change(kPlainName, &nameless, &record)), status::no_match);
}

TEST_F(BinUpdateFaults, NoMemoryForTheWorkBufferTouchesNothing) {
  expectAll(Call::kMemAlloc, 1, ENOMEM, status::no_scratch_memory);
}

// --- lock and open

TEST_F(BinUpdateFaults, LockThatCannotBeTakenIsReported) {
  expectAll(Call::kHandleOpen, 1, EACCES, status::lock_not_taken);
}

// The lock file stays open, unlocked, until the object tries again or ends.
TEST_F(BinUpdateFaults, LockThatIsRefusedIsReportedAndHeldByNobody) {
  const NothingKept watch;
  PlainRegistry registry(files_.registry);
  PlainRecord record = plainRecord("c", 3);
  for (int attempt = 0; attempt < 3; ++attempt) {
    const FailCall fault(Call::kHandleLock, 1, EIO);
    EXPECT_EQ(statusOf(registry.Add(kPlainName, &record)), status::lock_not_taken);
    EXPECT_TRUE(lockIsFree(files_.registry));
  }
  EXPECT_EQ(contents(), two_);
}

// Wherever the lock is held, an update waits for it no longer than the process allows.
TEST_F(BinUpdateFaults, LockThatIsHeldElsewhereIsReportedWhenTheLimitOnWaitingHasRunOut) {
  PlainRegistry holder(files_.registry);
  ASSERT_EQ(holder.Lock(kGenRegLockExclusive | kGenRegLockNoWait, 0), 0U);
  ossSetLockTimeLimit(0);
  EXPECT_EQ(goodAdd(), status::lock_not_taken);
  EXPECT_EQ(goodChange(), status::lock_not_taken);
  EXPECT_EQ(goodDelete(), status::lock_not_taken);
  ossSetLockTimeLimit(-1);
  EXPECT_EQ(contents(), two_);
}

TEST_F(BinUpdateFaults, ObjectWithoutPathsCannotLock) {
  PlainRegistry lost("");
  PlainRecord record = plainRecord("a", 1);
  EXPECT_EQ(statusOf(lost.Add(kPlainName, &record)), status::lock_not_taken);
}

TEST_F(BinUpdateFaults, RegistryThatCannotBeOpenedIsReported) {
  expectAll(Call::kHandleOpen, 2, EACCES, status::open_failed);
  expectAll(Call::kHandleLock, 2, EIO, status::open_failed);
  expectAll(Call::kFdopen, 1, ENOMEM, status::open_failed);
  expectAll(Call::kFdopen, 2, ENOMEM, status::open_failed);
  expectAll(Call::kFchmod, 1, EPERM, status::open_failed);
}

TEST_F(BinUpdateFaults, MissingRegistryIsOpenedByAddOnly) {
  ASSERT_EQ(remove(plainRecord("a", 0)), 0U);
  ASSERT_EQ(std::remove(files_.registry.c_str()), 0);
  const LoggedReasons log;
  EXPECT_EQ(goodChange(), status::open_failed);
  EXPECT_EQ(goodDelete(), status::open_failed);
  EXPECT_EQ(log.count(status::open_failed, status::no_registry), 2);
  EXPECT_FALSE(pathExists(files_.registry));
}

TEST_F(BinUpdateFaults, OpenScanRefusesUpdatesAndIsUndisturbed) {
  ASSERT_EQ(registry_.OpenScan(), 0U);
  PlainRecord found{};
  ASSERT_EQ(registry_.GetNext(0, &found, &found), 0);
  EXPECT_EQ(goodAdd(), status::open_failed);
  EXPECT_EQ(goodChange(), status::open_failed);
  EXPECT_EQ(goodDelete(), status::open_failed);
  EXPECT_EQ(contents(), two_);
  EXPECT_TRUE(lockIsFree(files_.registry));
  ASSERT_EQ(registry_.GetNext(0, &found, &found), 0);
  EXPECT_EQ(found, plainRecord("b", 2));
}

TEST_F(BinUpdateFaults, LeftoverThatIsNotThisUpdatesOwnIsNotDeleted) {
  writeFile(files_.temporary, "another update's");
  const FailCall fault(Call::kRename, 1, EACCES);
  EXPECT_EQ(goodDelete(), status::open_failed);
  EXPECT_EQ(readFile(files_.temporary), "another update's");
}

// --- copying

TEST_F(BinUpdateFaults, RegistryWhoseSizeIsUnknownIsNotAddedTo) {
  // The opening asks for the same information first.
  int before = 0;
  {
    const CallCount all(Call::kStat);
    EXPECT_EQ(registry_.OpenReg(kGenRegAdd), 0U);
    before = all.calls();
    EXPECT_EQ(registry_.CloseReg(kGenRegRead), 0U);
  }
  int locking = 0;
  {
    const CallCount all(Call::kStat);
    EXPECT_EQ(registry_.Lock(0x15, 10), 0U);
    locking = all.calls();
    EXPECT_EQ(registry_.UnLock(), 0U);
  }
  const FailCall fault(Call::kStat, before + locking + 1, EIO);
  EXPECT_EQ(goodAdd(), status::no_file_info);
  EXPECT_EQ(contents(), two_);
}

TEST_F(BinUpdateFaults, FrameThatCannotBeReadIsReported) {
  expectAll(Call::kFread, 1, EIO, status::read_failed);
}

TEST_F(BinUpdateFaults, DamagedFrameFailsEveryUpdateThoughItsMatchComesFirst) {
  writeFile(files_.registry, plainFrame("b", 2) + std::string(5, '\x7F'));
  const NothingKept watch;
  EXPECT_EQ(goodAdd(), status::read_failed);
  EXPECT_EQ(goodChange(), status::read_failed);
  EXPECT_EQ(goodDelete(), status::read_failed);
  EXPECT_EQ(contents(), plainFrame("b", 2) + std::string(5, '\x7F'));
}

TEST_F(BinUpdateFaults, NoMemoryForTheBlockIsAReadError) {
  int opening = 0;
  {
    const CallCount all(Call::kMemAlloc);
    ASSERT_EQ(registry_.OpenReg(kGenRegChange), 0U);
    opening = all.calls();
    ASSERT_EQ(registry_.CloseReg(kGenRegRead), 0U);
  }
  // One work buffer for Delete, a second one for the new record of Add and Change.
  const FailCall fault(Call::kMemAlloc, opening + 2, ENOMEM);
  EXPECT_EQ(goodDelete(), status::read_failed);
  const FailCall second(Call::kMemAlloc, opening + 3, ENOMEM);
  EXPECT_EQ(goodChange(), status::read_failed);
  EXPECT_EQ(contents(), two_);
  EXPECT_TRUE(lockIsFree(files_.registry));
}

TEST_F(BinUpdateFaults, CopyThatCannotBeWrittenIsReported) {
  expectAll(Call::kFwrite, 1, ENOSPC, status::copy_write_failed);
}

TEST_F(BinUpdateFaults, NewRecordThatCannotBeWrittenIsReported) {
  const NothingKept watch;
  for (const int nth : {2, 3}) {  // behind the run of what is kept
    const FailCall fault(Call::kFwrite, nth, ENOSPC);
    EXPECT_EQ(goodAdd(), status::record_write_failed);
    EXPECT_EQ(contents(), two_);
  }
}

TEST_F(BinUpdateFaults, RecordWithoutAUsableSizeIsNotWritten) {
  registry_.getRecordSize = nullptr;
  EXPECT_EQ(goodAdd(), status::record_write_failed);
  EXPECT_EQ(goodChange(), status::copy_write_failed);
  EXPECT_EQ(goodDelete(), 0U);  // what it keeps has its length already
  EXPECT_EQ(contents(), plainFrame("a", 1));
}

// A copy stands at its end already.
TEST_F(BinUpdateFaults, RegistryThatCannotBePositionedAtItsEndIsReported) {
  registry_.features = kGenRegDuplicates;
  const NothingKept watch;
  const FailCall fault(Call::kFseeko, 1, EIO);
  EXPECT_EQ(goodAdd(), status::seek_end_failed);
  EXPECT_EQ(contents(), two_);
}

TEST_F(BinUpdateFaults, EmptyMatchSlotIsNoticedAtTheFirstFrame) {
  const NothingKept watch;
  registry_.matchRecord = nullptr;
  EXPECT_EQ(goodAdd(), status::no_match_slot);
  EXPECT_EQ(goodChange(), status::no_match_slot);
  EXPECT_EQ(goodDelete(), status::no_match_slot);
  EXPECT_EQ(contents(), two_);
  writeFile(files_.registry, "");
  EXPECT_EQ(goodAdd(), status::verify_failed);
  EXPECT_EQ(goodChange(), status::no_match);
  EXPECT_EQ(goodDelete(), status::no_match);
}

// --- leftovers of an abandoned update

TEST_F(BinUpdateFaults, AbandonedAddLeavesItsCopyForTheNextUpdateToSetAside) {
  EXPECT_EQ(add(plainRecord("b", 9)), status::duplicate_record);
  EXPECT_EQ(readFile(files_.temporary), plainFrame("a", 1));
  EXPECT_EQ(goodAdd(), 0U);
  EXPECT_EQ(readFile(files_.corrupt), plainFrame("a", 1));
  EXPECT_FALSE(pathExists(files_.temporary));
  EXPECT_EQ(goodDelete(), 0U);
  EXPECT_EQ(namesIn(folder_), (Names{"reg", ".reg.lock"}));
}

TEST_F(BinUpdateFaults, AbandonedChangeAndDeleteDeleteTheirCopy) {
  EXPECT_EQ(change(plainRecord("x", 0), plainRecord("y", 1)), status::no_match);
  EXPECT_EQ(change(plainRecord("a", 0), plainRecord("a", 1)), status::unchanged);
  EXPECT_EQ(remove(plainRecord("x", 0)), status::no_match);
  EXPECT_EQ(namesIn(folder_), (Names{"reg", ".reg.lock"}));
}

TEST_F(BinUpdateFaults, WithoutFeature1AnAbandonedCopyStays) {
  registry_.features = 0;
  EXPECT_EQ(remove(plainRecord("x", 0)), status::no_match);
  EXPECT_EQ(readFile(files_.temporary), two_);
}

TEST_F(BinUpdateFaults, CopyThatCannotBeDeletedIsLoggedBehindTheFirstFailure) {
  const FailCall fault(Call::kUnlink, 1, EACCES);
  const CapturedLog log;
  EXPECT_EQ(remove(plainRecord("x", 0)), status::no_match);
  EXPECT_EQ(log.count(genreg::kGenRegBinDelete, status::copy_not_deleted), 1);
  EXPECT_EQ(readFile(files_.temporary), two_);
}

// --- commit and clean-up

TEST_F(BinUpdateFaults, CloseThatFailsIsReportedAndNothingIsKept) {
  expectAll(Call::kFclose, 1, EIO, status::close_failed);  // the registry stream
  expectAll(Call::kFclose, 2, EIO, status::close_failed);  // the copy
  expectAll(Call::kFsync, 1, EIO, status::close_failed);
  expectAll(Call::kFflush, 1, ENOSPC, status::close_failed);
}

TEST_F(BinUpdateFaults, CommitThatFailsInTheVerificationIsAFailedVerification) {
  expectAll(Call::kLink, 1, EPERM, status::verify_failed);
  expectAll(Call::kFclose, 3, EIO, status::verify_failed);  // the registry stream, read again
  expectAll(Call::kFclose, 4, EIO, status::verify_failed);  // the copy, read back
}

TEST_F(BinUpdateFaults, CommitThatFailsWithoutVerificationIsACloseFailure) {
  registry_.features = 0;
  expectAll(Call::kLink, 1, EPERM, status::close_failed);
}

TEST_F(BinUpdateFaults, LockThatCannotBeReleasedIsReportedAlthoughTheUpdateStands) {
  for (const bool adds : {true, false}) {
    PlainRegistry registry(files_.registry);
    PlainRecord record = plainRecord("c", 3);
    const Announcements told(registry);
    const FailCall fault(Call::kHandleUnlock, 1, EIO);
    EXPECT_EQ(
        statusOf(adds ? registry.Add(kPlainName, &record) : registry.Delete(kPlainName, &record)),
        status::lock_not_released);
    EXPECT_EQ(contents(), adds ? two_ + plainFrame("c", 3) : two_);
    EXPECT_TRUE(Announcements::calls.empty());
  }
  EXPECT_TRUE(lockIsFree(files_.registry));
}

// A format that writes behind its record damages the guard of the block; the test repairs it.
char* overrunByte = nullptr;
int overrunMatch(unsigned long long mask, void* stored, void* given) {
  if (overrunByte == nullptr) {
    overrunByte = static_cast<char*>(stored) + ossMemCapacity(stored);
    *overrunByte ^= 1;
  }
  return PlainRegistry::matchPlain(mask, stored, given);
}

TEST_F(BinUpdateFaults, BufferThatCannotBeReleasedIsReportedAlthoughTheUpdateStands) {
  registry_.features = 0;
  const Announcements told(registry_);
  const unsigned long blocks = ossMemLiveBlocks();
  registry_.matchRecord = overrunMatch;
  overrunByte = nullptr;
  EXPECT_EQ(goodDelete(), status::scratch_not_released);
  EXPECT_EQ(contents(), plainFrame("a", 1));
  EXPECT_TRUE(Announcements::calls.empty());
  EXPECT_TRUE(lockIsFree(files_.registry));
  *overrunByte ^= 1;
  void* const block = overrunByte - sizeof(PlainRecord);
  EXPECT_EQ(ossMemFree(block, __FILE__, __LINE__), 0U);
  EXPECT_EQ(ossMemLiveBlocks(), blocks);
}

TEST_F(BinUpdateFaults, FirstFailureIsTheResultWhateverCleanUpReports) {
  const FailCall unlock(Call::kMemFree, 3, EINVAL);
  const FailCall close(Call::kFclose, 1, EIO);
  EXPECT_EQ(remove(plainRecord("x", 0)), status::no_match);
}

// --- in place

class BinAppendFaults : public BinUpdateFaults {
 protected:
  void SetUp() override {
    BinUpdateFaults::SetUp();
    registry_.features = kGenRegDuplicates;
  }
  void expectCut(Call call, int nth, int error, GenRegStatus expected) {
    const NothingKept watch;
    const FailCall fault(call, nth, error);
    EXPECT_EQ(goodAdd(), expected);
    EXPECT_TRUE(fault.fired());
    EXPECT_EQ(contents(), two_);
    EXPECT_TRUE(lockIsFree(files_.registry));
  }
};

TEST_F(BinAppendFaults, AppendThatFailsIsCutBack) {
  expectCut(Call::kFwrite, 1, ENOSPC, status::record_write_failed);
  expectCut(Call::kFwrite, 2, ENOSPC, status::record_write_failed);
  expectCut(Call::kFflush, 1, ENOSPC, status::close_failed);
  expectCut(Call::kFsync, 1, EIO, status::close_failed);
}

TEST_F(BinAppendFaults, AppendThatTheFileSystemCutsShortIsCutBack) {
  inChildProcess([this] {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit little = {two_.size() + 10, RLIM_INFINITY};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &little), 0);
    EXPECT_EQ(goodAdd(), status::close_failed);
  });
  EXPECT_EQ(contents(), two_);
  EXPECT_EQ(goodAdd(), 0U);
}

TEST_F(BinUpdateFaults, CopyThatTheFileSystemCutsShortReplacesNothing) {
  inChildProcess([this] {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit little = {two_.size() + 10, RLIM_INFINITY};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &little), 0);
    EXPECT_EQ(goodAdd(), status::close_failed);
    EXPECT_TRUE(lockIsFree(files_.registry));
  });
  EXPECT_EQ(contents(), two_);
  EXPECT_EQ(goodAdd(), 0U);
}

}  // namespace
