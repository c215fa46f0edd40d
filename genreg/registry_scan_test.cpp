// SPDX-License-Identifier: Apache-2.0
// Scans: opening and closing, the end flag, positions, and how a scan meets other operations.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "platform/osse/file_handle.h"
#include "platform/osse/memory.h"
#include "tests/support/captured_log.h"
#include "tests/support/faults.h"
#include "tests/support/leak_check.h"
#include "tests/support/plain_registry.h"
#include "tests/support/private_mounts.h"
#include "tests/support/process_settings.h"
#include "tests/support/temp_dir.h"

namespace {

using namespace genreg;
using vrxtest::Call;
using vrxtest::FailCall;
using vrxtest::LeakCheck;
using vrxtest::NoWaiting;
using vrxtest::pathExists;
using vrxtest::PlainFiles;
using vrxtest::plainFrame;
using vrxtest::PlainRecord;
using vrxtest::plainRecord;
using vrxtest::PlainRegistry;
using vrxtest::TempDir;
using vrxtest::writeFile;

class RegistryScan : public testing::Test {
 protected:
  RegistryScan() {
    writeFile(files.registry, plainFrame("one", 1) + plainFrame("two", 2) + plainFrame("three", 3));
  }

  // The name of the next record; "end" at the end.
  std::string next(PlainRegistry& registry) const {
    PlainRecord key{};
    PlainRecord found{};
    const GenRegStatus rc = statusOf(registry.GetNext(0, &key, &found));
    if (rc == status::end_of_registry) return "end";
    EXPECT_EQ(rc, 0u);
    return found.name;
  }

  const LeakCheck leaks;
  const vrxtest::Umask mask{022};
  const TempDir folder;
  const PlainFiles files{folder};
};

constexpr unsigned kScanBits = kGenRegStateScanning | kGenRegStateScanEnd;

TEST_F(RegistryScan, RunsFromTheFirstRecordToTheEnd) {
  PlainRegistry registry(files.registry);
  ASSERT_EQ(registry.OpenScan(), 0u);
  EXPECT_EQ(registry.state & kScanBits, kGenRegStateScanning);
  for (const char* name : {"one", "two", "three", "end", "end"})
    EXPECT_EQ(next(registry), name);
  EXPECT_EQ(registry.state & kScanBits, kScanBits);
  EXPECT_EQ(registry.CloseScan(), 0u);
  EXPECT_EQ(registry.state & kScanBits, 0u);
  EXPECT_EQ(registry.registryStream, nullptr);
}

TEST_F(RegistryScan, ClosingWithoutAScanSucceedsAndClearsTheBits) {
  PlainRegistry registry(files.registry);
  registry.state |= kScanBits;
  EXPECT_EQ(registry.CloseScan(), 0u);
  EXPECT_EQ(registry.state & kScanBits, 0u);
  EXPECT_EQ(registry.CloseScan(), 0u);
}

TEST_F(RegistryScan, MissingRegistryIsCreatedEmpty) {
  ASSERT_EQ(unlink(files.registry.c_str()), 0);
  PlainRegistry registry(files.registry);
  ASSERT_EQ(registry.OpenScan(), 0u);
  EXPECT_EQ(next(registry), "end");
  EXPECT_EQ(vrxtest::readFile(files.registry), "");
  EXPECT_EQ(vrxtest::modeOf(files.registry), 0644);
}

TEST_F(RegistryScan, CreatedRegistryTakesItsCreationMode) {
  ASSERT_EQ(unlink(files.registry.c_str()), 0);
  PlainRegistry registry(files.registry);
  registry.registryCreationMode = 0600;
  ASSERT_EQ(registry.OpenScan(), 0u);
  EXPECT_EQ(vrxtest::modeOf(files.registry), 0600);
}

TEST_F(RegistryScan, MissingDirectoryIsAFailure) {
  PlainRegistry registry(folder.file("missing/reg"));
  EXPECT_EQ(registry.OpenScan(), 0x900001BFu);
  EXPECT_EQ(registry.state & kScanBits, 0u);
}

TEST_F(RegistryScan, NothingButARegularFileIsScanned) {
  ASSERT_EQ(unlink(files.registry.c_str()), 0);
  ASSERT_EQ(mkfifo(files.registry.c_str(), 0644), 0);
  PlainRegistry registry(files.registry);
  EXPECT_EQ(registry.OpenScan(), 0x900001BFu);
  PlainRegistry directory(folder.path());
  EXPECT_EQ(directory.OpenScan(), 0x900001BFu);
  PlainRegistry without("");
  EXPECT_EQ(without.OpenScan(), 0x900001BFu);
}

TEST_F(RegistryScan, LinkedRegistryIsScanned) {
  ASSERT_EQ(symlink("reg", folder.file("link").c_str()), 0);
  PlainRegistry registry(folder.file("link"));
  ASSERT_EQ(registry.OpenScan(), 0u);
  EXPECT_EQ(next(registry), "one");
}

// Whether another handle is granted this lock on the registry at once.
bool canLock(const std::string& path, unsigned type) {
  OSSHFile file;
  const OSSFileOpenParams open = {
      kOssFileStructureVersion, path.c_str(), kOssOpenExisting, kOssAccessReadWrite, 0, 0, 0};
  const OSSFileLockParams lock = {kOssFileStructureVersion, type, kOssLockNoWait};
  EXPECT_EQ(file.open(&open), 0u);
  return file.lock(&lock) == 0;
}

TEST_F(RegistryScan, SharedLockLastsUntilTheScanIsClosed) {
  PlainRegistry registry(files.registry);
  ASSERT_EQ(registry.OpenScan(), 0u);
  while (next(registry) != "end") {
  }
  EXPECT_TRUE(canLock(files.registry, kOssLockShared));
  EXPECT_FALSE(canLock(files.registry, kOssLockExclusive));
  EXPECT_FALSE(pathExists(files.lock)) << "scans leave the lock file alone";
  EXPECT_EQ(registry.CloseScan(), 0u);
  EXPECT_TRUE(canLock(files.registry, kOssLockExclusive));
}

TEST_F(RegistryScan, OpeningAgainStartsAnew) {
  PlainRegistry registry(files.registry);
  ASSERT_EQ(registry.OpenScan(), 0u);
  while (next(registry) != "end") {
  }
  const int descriptors = vrxtest::openDescriptorCount();
  ASSERT_EQ(registry.OpenScan(), 0u);
  EXPECT_EQ(vrxtest::openDescriptorCount(), descriptors);
  EXPECT_EQ(registry.state & kScanBits, kGenRegStateScanning);
  EXPECT_EQ(next(registry), "one");
}

TEST_F(RegistryScan, OpeningClosesAStreamLeftByOpenReg) {
  PlainRegistry registry(files.registry);
  ASSERT_EQ(registry.OpenReg(kGenRegRead), 0u);
  const int descriptors = vrxtest::openDescriptorCount();
  ASSERT_EQ(registry.OpenScan(), 0u);
  EXPECT_EQ(vrxtest::openDescriptorCount(), descriptors);
}

TEST_F(RegistryScan, RewindStartsOverAndClearsTheEnd) {
  PlainRegistry registry(files.registry);
  ASSERT_EQ(registry.OpenScan(), 0u);
  while (next(registry) != "end") {
  }
  EXPECT_EQ(registry.Rewind(), 0u);
  EXPECT_EQ(registry.state & kScanBits, kGenRegStateScanning);
  EXPECT_EQ(next(registry), "one");
  EXPECT_EQ(registry.Rewind(), 0u);
  EXPECT_EQ(next(registry), "one");
}

TEST_F(RegistryScan, RewindNeedsAStreamAndNoScan) {
  PlainRegistry registry(files.registry);
  EXPECT_EQ(registry.Rewind(), 0x900001E0u);
  ASSERT_EQ(registry.OpenReg(kGenRegRead), 0u);
  EXPECT_EQ(registry.Rewind(), 0u);
}

TEST_F(RegistryScan, FailedRewindKeepsTheEndFlag) {
  PlainRegistry registry(files.registry);
  ASSERT_EQ(registry.OpenScan(), 0u);
  registry.state |= kGenRegStateScanEnd;
  const FailCall fault(Call::kFseeko, 1, EIO);
  EXPECT_EQ(registry.Rewind(), 0x900001E0u);
  EXPECT_NE(registry.state & kGenRegStateScanEnd, 0u);
}

TEST_F(RegistryScan, PositionLeadsBackToTheSameRecord) {
  PlainRegistry registry(files.registry);
  ASSERT_EQ(registry.OpenScan(), 0u);
  EXPECT_EQ(next(registry), "one");
  long long position = 0;
  EXPECT_EQ(registry.getRegFilePosition(&position), 0u);
  EXPECT_EQ(next(registry), "two");
  EXPECT_EQ(next(registry), "three");
  EXPECT_EQ(registry.setRegFilePosition(&position), 0u);
  EXPECT_EQ(next(registry), "two");
}

TEST_F(RegistryScan, SettingAPositionLeavesTheEndFlag) {
  PlainRegistry registry(files.registry);
  ASSERT_EQ(registry.OpenScan(), 0u);
  long long start = -1;
  EXPECT_EQ(registry.getRegFilePosition(&start), 0u);
  while (next(registry) != "end") {
  }
  EXPECT_EQ(registry.setRegFilePosition(&start), 0u);
  EXPECT_EQ(next(registry), "end");
  EXPECT_EQ(registry.Rewind(), 0u);
  EXPECT_EQ(next(registry), "one");
}

TEST_F(RegistryScan, PositionsBeyondTwoGigabytesAreKept) {
  constexpr long long kFar = 3LL << 30;
  ASSERT_EQ(truncate(files.registry.c_str(), kFar), 0);
  PlainRegistry registry(files.registry);
  ASSERT_EQ(registry.OpenScan(), 0u);
  EXPECT_EQ(registry.registrySize, 3ULL << 30);
  long long position = kFar - 1;
  EXPECT_EQ(registry.setRegFilePosition(&position), 0u);
  position = 0;
  EXPECT_EQ(registry.getRegFilePosition(&position), 0u);
  EXPECT_EQ(position, kFar - 1);
}

TEST_F(RegistryScan, PositionsNeedAScanThenAPointer) {
  PlainRegistry registry(files.registry);
  long long position = 7;
  EXPECT_EQ(registry.getRegFilePosition(nullptr), 0x9000025Au);
  EXPECT_EQ(registry.setRegFilePosition(nullptr), 0x9000025Au);
  EXPECT_EQ(registry.getRegFilePosition(&position), 0x9000025Au);
  ASSERT_EQ(registry.OpenReg(kGenRegRead), 0u);
  EXPECT_EQ(registry.getRegFilePosition(&position), 0x9000025Au);
  ASSERT_EQ(registry.OpenScan(), 0u);
  EXPECT_EQ(registry.getRegFilePosition(nullptr), 0x9000000Cu);
  EXPECT_EQ(registry.setRegFilePosition(nullptr), 0x9000000Cu);
  EXPECT_EQ(position, 7);
}

TEST_F(RegistryScan, PositionsWithoutAStreamAreReported) {
  PlainRegistry registry(files.registry);
  registry.state |= kGenRegStateScanning;
  long long position = 7;
  EXPECT_EQ(registry.getRegFilePosition(&position), 0x90000287u);
  EXPECT_EQ(registry.setRegFilePosition(&position), 0x90000288u);
  EXPECT_EQ(position, 7);
}

TEST_F(RegistryScan, PositionsThatTheStreamRefusesAreReportedAndLogged) {
  const vrxtest::CapturedLog log;
  PlainRegistry registry(files.registry);
  ASSERT_EQ(registry.OpenScan(), 0u);
  long long position = -1;
  EXPECT_EQ(registry.setRegFilePosition(&position), 0x90000288u);
  {
    const FailCall fault(Call::kFtello, 1, EIO);
    EXPECT_EQ(registry.getRegFilePosition(&position), 0x90000287u);
    EXPECT_EQ(position, -1);
  }
  EXPECT_EQ(next(registry), "one") << "the scan stands where it stood";
  EXPECT_EQ(log.count(0x082A0013, 0x90000287u), 1);
  EXPECT_EQ(log.count(0x082A0014, 0x90000288u), 1);
}

TEST_F(RegistryScan, LookupWithoutTheFeatureIsRefusedAndLeavesTheScan) {
  PlainRegistry registry(files.registry);
  ASSERT_EQ(registry.OpenScan(), 0u);
  EXPECT_EQ(next(registry), "one");
  PlainRecord key = plainRecord("three", 0);
  PlainRecord found{};
  EXPECT_EQ(statusOf(registry.Get(vrxtest::kPlainName, &key, &found)), 0x900001C5u);
  EXPECT_EQ(next(registry), "two");
}

TEST_F(RegistryScan, LookupWithTheFeatureGivesThePositionBack) {
  PlainRegistry registry(files.registry, kGenRegKeepPosition);
  ASSERT_EQ(registry.OpenScan(), 0u);
  EXPECT_EQ(next(registry), "one");
  for (const char* name : {"three", "one"}) {
    PlainRecord key = plainRecord(name, 0);
    PlainRecord found{};
    EXPECT_EQ(registry.Get(vrxtest::kPlainName, &key, &found), 0);
    EXPECT_STREQ(found.name, name);
  }
  EXPECT_EQ(next(registry), "two");
}

TEST_F(RegistryScan, UpdatesOfTheScanningObjectAreRefused) {
  PlainRegistry registry(files.registry);
  ASSERT_EQ(registry.OpenScan(), 0u);
  PlainRecord record = plainRecord("four", 4);
  EXPECT_EQ(statusOf(registry.Add(vrxtest::kPlainName, &record)), 0x900001C5u);
  EXPECT_EQ(statusOf(registry.Delete(vrxtest::kPlainName, &record)), 0x900001C5u);
  EXPECT_EQ(registry.state & kGenRegStateLocked, 0u);
  EXPECT_EQ(next(registry), "one") << "the scan is disturbed";
}

TEST_F(RegistryScan, UpdateOfAnotherObjectNeitherWaitsNorShowsInTheScan) {
  const NoWaiting limit;
  PlainRegistry reader(files.registry);
  ASSERT_EQ(reader.OpenScan(), 0u);
  EXPECT_EQ(next(reader), "one");
  PlainRegistry writer(files.registry);
  PlainRecord record = plainRecord("four", 4);
  EXPECT_EQ(statusOf(writer.Add(vrxtest::kPlainName, &record)), 0u);
  for (const char* name : {"two", "three", "end"})
    EXPECT_EQ(next(reader), name);
}

TEST_F(RegistryScan, ScanWaitsForAnAppendInPlace) {
  const NoWaiting limit;
  PlainRegistry writer(files.registry, kGenRegDuplicates);
  ASSERT_EQ(writer.OpenReg(kGenRegAdd), 0u);
  PlainRegistry reader(files.registry);
  EXPECT_EQ(reader.OpenScan(), 0x90000272u);
  EXPECT_EQ(reader.state & kScanBits, 0u);
}

// A call that fails while a scan is opened.
struct ScanFault {
  Call call;
  int nth;
  GenRegStatus expected;
};
constexpr ScanFault kScanFaults[] = {
    {Call::kHandleOpen, 1, 0x900001BFu}, {Call::kOpen, 1, 0x900001BFu},
    {Call::kFstat, 1, 0x900001BFu},      {Call::kHandleLock, 1, 0x90000272u},
    {Call::kFdopen, 1, 0x900001BFu},
};

TEST_F(RegistryScan, HeaderThatCannotBeSteppedOverLeavesNoScan) {
  PlainRegistry registry(files.registry, kGenRegChecksumHeader);
  const FailCall fault(Call::kFseeko, 2, EIO);  // the first asks whether there is one
  EXPECT_EQ(registry.OpenScan(), 0x900001CDu);
  EXPECT_EQ(registry.state & kScanBits, 0u);
  EXPECT_EQ(registry.registryStream, nullptr);
}

// The stream is up to a block ahead of the scan, which nobody is to notice.
TEST_F(RegistryScan, PositionIsTheRecordsNotTheStreams) {
  PlainRegistry registry(files.registry);
  ASSERT_EQ(registry.OpenScan(), 0u);
  long long second = -1;
  EXPECT_EQ(next(registry), "one");
  ASSERT_EQ(registry.getRegFilePosition(&second), 0u);
  EXPECT_EQ(second, 24);
  EXPECT_EQ(next(registry), "two");
  EXPECT_EQ(next(registry), "three");
  ASSERT_EQ(registry.setRegFilePosition(&second), 0u);
  EXPECT_EQ(next(registry), "two");
}

TEST_F(RegistryScan, RecordReadFromTheStreamBehindAPositionIsNotReadTwice) {
  PlainRegistry registry(files.registry);
  ASSERT_EQ(registry.OpenScan(), 0u);
  EXPECT_EQ(next(registry), "one");
  long long position = 0;
  ASSERT_EQ(registry.setRegFilePosition(&position), 0u);
  void* block = nullptr;
  unsigned long length = 0;
  ASSERT_EQ(ossMemAlloc(&block, sizeof(PlainRecord), __FILE__, __LINE__), 0u);
  EXPECT_EQ(registry.ReadRecord(registry.registryStream, &block, &length), 0);
  EXPECT_EQ(std::string(static_cast<PlainRecord*>(block)->name), "one");
  EXPECT_EQ(ossMemFree(block, __FILE__, __LINE__), 0u);
  ASSERT_EQ(registry.getRegFilePosition(&position), 0u);
  EXPECT_EQ(position, 24);
  EXPECT_EQ(next(registry), "two");
}

TEST_F(RegistryScan, RecordReadFromTheStreamIsTheOneAfterTheScansLast) {
  PlainRegistry registry(files.registry);
  ASSERT_EQ(registry.OpenScan(), 0u);
  EXPECT_EQ(next(registry), "one");
  void* block = nullptr;
  unsigned long length = 0;
  ASSERT_EQ(ossMemAlloc(&block, sizeof(PlainRecord), __FILE__, __LINE__), 0u);
  EXPECT_EQ(registry.ReadRecord(registry.registryStream, &block, &length), 0);
  EXPECT_EQ(std::string(static_cast<PlainRecord*>(block)->name), "two");
  EXPECT_EQ(ossMemFree(block, __FILE__, __LINE__), 0u);
  EXPECT_EQ(next(registry), "three");
}

TEST_F(RegistryScan, RecordReadFromTheStreamOfAFreshScanIsTheFirst) {
  PlainRegistry registry(files.registry);
  ASSERT_EQ(registry.OpenScan(), 0u);
  void* block = nullptr;
  unsigned long length = 0;
  EXPECT_EQ(registry.ReadRecord(registry.registryStream, &block, &length), 0);
  EXPECT_EQ(std::string(static_cast<PlainRecord*>(block)->name), "one");
  EXPECT_EQ(ossMemFree(block, __FILE__, __LINE__), 0u);
  EXPECT_EQ(next(registry), "two");
}

TEST_F(RegistryScan, StreamThatCannotBePutBackGivesNoRecord) {
  PlainRegistry registry(files.registry);
  ASSERT_EQ(registry.OpenScan(), 0u);
  EXPECT_EQ(next(registry), "one");
  void* block = nullptr;
  unsigned long length = 0;
  {
    const FailCall fault(Call::kFseeko, 1, EIO);
    EXPECT_EQ(statusOf(registry.ReadRecord(registry.registryStream, &block, &length)),
              status::length_read_failed);
  }
  EXPECT_EQ(block, nullptr);
  EXPECT_EQ(next(registry), "two");
}

// Even at a block's edge, where nothing of the field is in memory.
TEST_F(RegistryScan, CutLengthFieldAtTheEndIsMetOnce) {
  writeFile(files.registry, plainFrame("one", 1) + std::string(3, '\0'));
  PlainRegistry registry(files.registry);
  ASSERT_EQ(registry.OpenScan(), 0u);
  for (long long position : {0LL, 24LL}) {
    PlainRecord key{};
    PlainRecord found{};
    ASSERT_EQ(registry.Rewind(), 0u);
    ASSERT_EQ(registry.setRegFilePosition(&position), 0u);
    if (position == 0) {
      EXPECT_EQ(next(registry), "one");
    }
    EXPECT_EQ(statusOf(registry.GetNext(0, &key, &found)), 0x900001CDu);
    EXPECT_EQ(next(registry), "end");
  }
}

TEST_F(RegistryScan, EveryFailureOfTheOpeningLeavesNoScan) {
  for (const ScanFault& row : kScanFaults) {
    const LeakCheck none;
    const vrxtest::CapturedLog log;
    PlainRegistry registry(files.registry);
    const FailCall fault(row.call, row.nth, EIO);
    EXPECT_EQ(registry.OpenScan(), row.expected) << static_cast<int>(row.call);
    EXPECT_TRUE(fault.fired());
    EXPECT_EQ(registry.state & kScanBits, 0u);
    EXPECT_EQ(registry.registryStream, nullptr);
    EXPECT_EQ(log.count(0x082A0010, row.expected), 1);
  }
}

TEST_F(RegistryScan, FailedReopeningEndsTheScanBefore) {
  PlainRegistry registry(files.registry);
  ASSERT_EQ(registry.OpenScan(), 0u);
  const FailCall fault(Call::kHandleOpen, 1, EMFILE);
  EXPECT_EQ(registry.OpenScan(), 0x900001BFu);
  EXPECT_EQ(registry.state & kScanBits, 0u);
  EXPECT_EQ(registry.registryStream, nullptr);
}

TEST_F(RegistryScan, FailedCloseIsReportedAndTheScanIsOver) {
  PlainRegistry registry(files.registry);
  ASSERT_EQ(registry.OpenScan(), 0u);
  const FailCall fault(Call::kFclose, 1, EIO);
  EXPECT_EQ(registry.CloseScan(), 0x900001C7u);
  EXPECT_EQ(registry.state & kScanBits, 0u);
  EXPECT_EQ(registry.registryStream, nullptr);
  EXPECT_EQ(registry.CloseScan(), 0u);
}

TEST_F(RegistryScan, StreamThatCannotTellWhereItStandsIsReported) {
  PlainRegistry registry(files.registry);
  ASSERT_EQ(registry.OpenScan(), 0u);
  EXPECT_EQ(next(registry), "one");
  ASSERT_EQ(registry.Rewind(), 0u);
  long long position = 7;
  PlainRecord key{};
  const FailCall fault(Call::kFtello, 1, EIO, vrxtest::Extent::kFromThenOn);
  EXPECT_EQ(registry.getRegFilePosition(&position), status::position_not_read);
  EXPECT_EQ(position, 7);
  EXPECT_EQ(statusOf(registry.GetNext(0, &key, &key)), status::read_failed);
}

TEST_F(RegistryScan, UnreadableRegistryIsAFailure) {
  if (geteuid() != 0) GTEST_SKIP() << "takes root to give root up";
  ASSERT_EQ(chmod(folder.path().c_str(), 0755), 0);
  ASSERT_EQ(chmod(files.registry.c_str(), 0600), 0);
  vrxtest::inChildProcess([&] {
    ASSERT_EQ(setreuid(65534, 65534), 0);
    PlainRegistry registry(files.registry);
    EXPECT_EQ(registry.OpenScan(), 0x900001BFu);
    PlainRegistry missing(folder.file("missing"));
    EXPECT_EQ(missing.OpenScan(), 0x900001BFu) << "may not create a file here";
  });
}

}  // namespace
