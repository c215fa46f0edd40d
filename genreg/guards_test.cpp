// SPDX-License-Identifier: Apache-2.0
// The guards: what they take, that they give it back, and which failures become the result.
#include "genreg/internal/guards.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "platform/osse/memory.h"
#include "tests/support/captured_log.h"
#include "tests/support/faults.h"
#include "tests/support/leak_check.h"
#include "tests/support/plain_registry.h"
#include "tests/support/temp_dir.h"

namespace {

using namespace genreg;
using vrxtest::Call;
using vrxtest::FailCall;
using vrxtest::LeakCheck;
using vrxtest::PlainFiles;
using vrxtest::plainFrame;
using vrxtest::PlainRecord;
using vrxtest::PlainRegistry;
using vrxtest::TempDir;

constexpr unsigned kExclusive = kGenRegLockExclusive | kGenRegLockNoWait;

class Guards : public testing::Test {
 protected:
  Guards() { vrxtest::writeFile(files.registry, plainFrame("one", 1) + plainFrame("two", 2)); }

  const LeakCheck leaks;
  const TempDir folder;
  const PlainFiles files{folder};
  Operation op{kGenRegBinGet};
};

TEST_F(Guards, ScratchIsEmptyUntilReserved) {
  ScratchBuffer scratch(op, status::no_scratch_memory, status::scratch_not_released);
  EXPECT_EQ(scratch.data(), nullptr);
  scratch.release();
  EXPECT_FALSE(op.failed());
}

TEST_F(Guards, ScratchGrowsKeepsItsSizeAndIsZeroed) {
  const unsigned long blocks = ossMemLiveBlocks();
  ScratchBuffer scratch(op, status::no_scratch_memory, status::scratch_not_released);
  ASSERT_TRUE(scratch.reserve(1, 100));
  void* const block = scratch.block();
  std::memset(block, 0xFF, 100);
  EXPECT_TRUE(scratch.reserve(1, 50));
  EXPECT_EQ(scratch.block(), block) << "large enough already";
  EXPECT_EQ(scratch.data()[99], 0xFF);
  ASSERT_TRUE(scratch.reserve(1, 101));
  EXPECT_EQ(ossMemCapacity(scratch.block()), 101u);
  for (int i = 0; i < 101; ++i)
    EXPECT_EQ(scratch.data()[i], 0) << i;
  EXPECT_EQ(ossMemLiveBlocks(), blocks + 1);
}

TEST_F(Guards, ScratchOfSizeZeroIsABlock) {
  ScratchBuffer scratch(op, status::no_scratch_memory, status::scratch_not_released);
  EXPECT_TRUE(scratch.reserve(1, 0));
  EXPECT_NE(scratch.block(), nullptr);
}

TEST_F(Guards, MissingMemoryIsReportedUnderTheGivenCode) {
  ScratchBuffer scratch(op, status::no_first_buffer, status::first_buffer_not_released);
  const FailCall fault(Call::kMemAlloc, 1, ENOMEM);
  EXPECT_FALSE(scratch.reserve(1, 100));
  EXPECT_EQ(op.status(), 0x900001E8u);
  EXPECT_EQ(scratch.block(), nullptr);
}

TEST_F(Guards, GrowthThatFailsLosesTheBlockAndLeaksNothing) {
  ScratchBuffer scratch(op, status::no_scratch_memory, status::scratch_not_released);
  ASSERT_TRUE(scratch.reserve(1, 100));
  const FailCall fault(Call::kMemAlloc, 1, ENOMEM);
  EXPECT_FALSE(scratch.reserve(1, 200));
  EXPECT_EQ(op.status(), 0x900001E7u);
  EXPECT_EQ(scratch.block(), nullptr);
}

TEST_F(Guards, ScratchIsReleasedByItsDestructorWhichReports) {
  {
    ScratchBuffer scratch(op, status::no_scratch_memory, status::scratch_not_released);
    ASSERT_TRUE(scratch.reserve(1, 100));
    const FailCall fault(Call::kMemFree, 1, EINVAL);
    scratch.release();
    scratch.release();
    EXPECT_EQ(fault.calls(), 1) << "released twice";
  }
  EXPECT_EQ(op.status(), 0x900001EEu);
}

TEST_F(Guards, ReleaseThatIsOnlyLoggedNeverBecomesTheResult) {
  const vrxtest::CapturedLog log;
  ScratchBuffer scratch(op, status::no_scratch_memory, status::scratch_not_released);
  scratch.releaseLoggedOnly();
  ASSERT_TRUE(scratch.reserve(1, 100));
  const FailCall fault(Call::kMemFree, 1, EINVAL);
  scratch.releaseLoggedOnly();
  EXPECT_FALSE(op.failed());
  EXPECT_EQ(scratch.block(), nullptr);
  EXPECT_EQ(log.count(kGenRegBinGet, 0x900001EEu), 1);
}

TEST_F(Guards, ReleaseFailureDoesNotHideAnEarlierOne) {
  ScratchBuffer scratch(op, status::no_scratch_memory, status::scratch_not_released);
  ASSERT_TRUE(scratch.reserve(1, 100));
  (void)op.fail(2, status::read_failed);  // the first failure
  const FailCall fault(Call::kMemFree, 1, EINVAL);
  scratch.release();
  EXPECT_EQ(op.status(), 0x900001CDu);
}

TEST_F(Guards, ReleaseThatFailsIsReportedToNobodyWhenNobodyListens) {
  const vrxtest::CapturedLog log;
  ScratchBuffer scratch(op, status::no_scratch_memory, status::scratch_not_released);
  ASSERT_TRUE(scratch.reserve(1, 8));
  scratch.reportTo(nullptr);
  const FailCall fault(Call::kMemFree, 1, EINVAL);
  scratch.release();
  EXPECT_TRUE(fault.fired());
  EXPECT_EQ(scratch.data(), nullptr);
  EXPECT_FALSE(op.failed());
  EXPECT_EQ(log.count(kGenRegBinGet), 0);
}

TEST_F(Guards, DamagedScratchIsReported) {
  ScratchBuffer scratch(op, status::no_scratch_memory, status::scratch_not_released);
  ASSERT_TRUE(scratch.reserve(1, 100));
  // The byte behind the block belongs to its guard word; it is put back, and the block freed.
  volatile unsigned char* behind = scratch.data() + 100;
  const unsigned char kept = *behind;
  *behind = static_cast<unsigned char>(~kept);
  void* const block = scratch.block();
  scratch.release();
  EXPECT_EQ(op.status(), 0x900001EEu);
  *behind = kept;
  EXPECT_EQ(ossMemFree(block, __FILE__, __LINE__), 0u);
}

TEST_F(Guards, LockIsHeldForTheGuardsLife) {
  PlainRegistry registry(files.registry);
  PlainRegistry other(files.registry);
  {
    const HeldLock lock(op, registry, kExclusive);
    EXPECT_EQ(other.Lock(kExclusive, 0), 0x900001C4u);
  }
  EXPECT_EQ(other.Lock(kExclusive, 0), 0u);
  EXPECT_FALSE(op.failed());
}

TEST_F(Guards, LockThatCannotBeTakenIsReportedAndNotReleased) {
  PlainRegistry holder(files.registry);
  ASSERT_EQ(holder.Lock(kExclusive, 0), 0u);
  PlainRegistry registry(files.registry);
  const vrxtest::CapturedLog log;
  { const HeldLock lock(op, registry, kExclusive); }
  EXPECT_EQ(op.status(), 0x900001BCu);
  EXPECT_EQ(log.count(kGenRegFileUnLock), 0);
}

TEST_F(Guards, LockThatWasHeldBeforeStaysHeld) {
  PlainRegistry registry(files.registry);
  ASSERT_EQ(registry.Lock(kExclusive, 0), 0u);
  { const HeldLock refused(op, registry, kExclusive); }
  EXPECT_EQ(op.status(), 0x900001BCu);
  PlainRegistry other(files.registry);
  EXPECT_NE(other.Lock(kExclusive, 0), 0u);
  EXPECT_EQ(registry.UnLock(), 0u);
}

TEST_F(Guards, LockThatCannotBeReleasedIsReported) {
  for (const Call call : {Call::kHandleUnlock, Call::kHandleClose}) {
    Operation own(kGenRegBinAdd);
    PlainRegistry registry(files.registry);
    const FailCall fault(call, 1, EIO);
    { const HeldLock lock(own, registry, kExclusive); }
    EXPECT_EQ(own.status(), 0x900001BDu);
  }
}

TEST_F(Guards, LookupOpensAndClosesTheRegistry) {
  PlainRegistry registry(files.registry);
  {
    const LookupAccess access(op, registry);
    BlockCursor cursor;
    access.giveTo(cursor);
    ASSERT_EQ(cursor.want(1), BlockCursor::Step::kReady);
    EXPECT_EQ(cursor.left(), vrxtest::readFile(files.registry).size());
    EXPECT_EQ(registry.registryStream, nullptr) << "blocks need none";
  }
  EXPECT_FALSE(op.failed());
}

TEST_F(Guards, MissingRegistryIsToldFromOneThatCannotBeOpened) {
  PlainRegistry missing(folder.file("missing"));
  { const LookupAccess access(op, missing); }
  EXPECT_EQ(op.status(), 0x90000513u);
  Operation second(kGenRegBinGet);
  PlainRegistry directory(folder.path());
  { const LookupAccess access(second, directory); }
  EXPECT_EQ(second.status(), 0x900001C5u);
}

TEST_F(Guards, HalfOpenedRegistryIsClosed) {
  PlainRegistry registry(files.registry, kGenRegChecksumHeader);
  const FailCall fault(Call::kFseeko, 2, EIO);  // the first asks whether there is a header
  { const LookupAccess access(op, registry); }
  EXPECT_EQ(op.status(), 0x900001C5u);
  EXPECT_EQ(registry.registryStream, nullptr);
}

TEST_F(Guards, LookupThatCannotBeClosedIsReported) {
  PlainRegistry registry(files.registry);
  const FailCall fault(Call::kHandleClose, 1, EIO);
  { const LookupAccess access(op, registry); }
  EXPECT_EQ(op.status(), 0x900001C6u);
}

TEST_F(Guards, BorrowedScanIsReadFromItsStartAndGivenBack) {
  PlainRegistry registry(files.registry, kGenRegKeepPosition);
  ASSERT_EQ(registry.OpenScan(), 0u);
  PlainRecord key{};
  PlainRecord found{};
  ASSERT_EQ(registry.GetNext(0, &key, &found), 0);
  {
    const LookupAccess access(op, registry);
    EXPECT_EQ(ftello(registry.registryStream), 0);
  }
  ASSERT_EQ(registry.GetNext(0, &key, &found), 0);
  EXPECT_STREQ(found.name, "two");
  EXPECT_NE(registry.state & kGenRegStateScanning, 0u);
}

TEST_F(Guards, ScanOfAnObjectWithoutTheFeatureIsNotBorrowed) {
  PlainRegistry registry(files.registry);
  ASSERT_EQ(registry.OpenScan(), 0u);
  FILE* const stream = registry.registryStream;
  { const LookupAccess access(op, registry); }
  EXPECT_EQ(op.status(), 0x900001C5u);
  EXPECT_EQ(registry.registryStream, stream);
}

}  // namespace
