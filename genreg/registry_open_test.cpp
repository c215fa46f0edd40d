// SPDX-License-Identifier: Apache-2.0
// OpenReg: which files each mode opens, creates and locks, and its failures. The temporary copy and
// the leftovers of earlier updates are in registry_copy_test.cpp.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <string>

#include "platform/osse/file_handle.h"
#include "tests/support/captured_log.h"
#include "tests/support/faults.h"
#include "tests/support/leak_check.h"
#include "tests/support/plain_registry.h"
#include "tests/support/private_mounts.h"
#include "tests/support/process_settings.h"
#include "tests/support/temp_dir.h"

namespace {

using namespace genreg;
using vrxtest::BeforeCall;
using vrxtest::Call;
using vrxtest::FailCall;
using vrxtest::LeakCheck;
using vrxtest::NoWaiting;
using vrxtest::PlainFiles;
using vrxtest::PlainRegistry;
using vrxtest::TempDir;
using vrxtest::Umask;
using vrxtest::writeFile;

constexpr unsigned kAppendInPlace = kGenRegDuplicates;
constexpr unsigned kUpdates[] = {kGenRegChange, kGenRegAdd, kGenRegDelete};
constexpr unsigned kNeedsFile[] = {kGenRegRead, kGenRegChange, kGenRegDelete, kGenRegVerify};
constexpr unsigned kAllModes[] = {kGenRegRead, kGenRegChange, kGenRegAdd, kGenRegDelete,
                                  kGenRegVerify};

class RegistryOpen : public testing::Test {
 protected:
  const LeakCheck leaks;
  const Umask mask{022};
  const TempDir folder;
  const PlainFiles files{folder};

  void writeRegistry(const std::string& bytes = "old") const { writeFile(files.registry, bytes); }
  void writeCopy() const { writeFile(files.temporary, "copy"); }
  // A registry of another name, which a link in the registry's place leads to.
  PlainFiles linkRegistry() const {
    const PlainFiles real(folder, "real");
    writeFile(real.registry, "real contents");
    EXPECT_EQ(symlink("real", files.registry.c_str()), 0);
    return real;
  }
};

// Whether another handle is granted a lock on the file at `path` at once.
bool canLock(const std::string& path, unsigned type) {
  OSSHFile file;
  const OSSFileOpenParams open = {
      kOssFileStructureVersion, path.c_str(), kOssOpenExisting, kOssAccessReadWrite, 0, 0, 0};
  const OSSFileLockParams lock = {kOssFileStructureVersion, type, kOssLockNoWait};
  EXPECT_EQ(file.open(&open), 0u);
  return file.lock(&lock) == 0;
}

bool isShared(const std::string& path) {
  return canLock(path, kOssLockShared) && !canLock(path, kOssLockExclusive);
}

bool isExclusive(const std::string& path) {
  return !canLock(path, kOssLockShared);
}

std::string readStream(FILE* stream) {
  char buffer[100];
  return {buffer, std::fread(buffer, 1, sizeof buffer, stream)};
}

TEST_F(RegistryOpen, MissingRegistryIsReportedAndNothingIsCreated) {
  for (const unsigned mode : kNeedsFile) {
    const vrxtest::CapturedLog log;
    PlainRegistry registry(files.registry);
    EXPECT_EQ(registry.OpenReg(mode), 0x90000513u) << mode;
    EXPECT_EQ(registry.registryStream, nullptr);
    EXPECT_EQ(log.count(0x082A000D, 0x90000513u), 1);
  }
  EXPECT_FALSE(vrxtest::pathExists(files.registry));
  EXPECT_FALSE(vrxtest::pathExists(files.temporary));
}

TEST_F(RegistryOpen, UnknownModeTouchesNothing) {
  writeRegistry();
  writeCopy();
  writeFile(files.corrupt, "older");
  for (const unsigned mode : {0u, 3u, 5u, 6u, 7u, 17u, 32u, 0xFFFFFFFFu}) {
    PlainRegistry registry(files.registry);
    EXPECT_EQ(registry.OpenReg(mode), 0x9000000Cu) << mode;
    EXPECT_EQ(registry.registryStream, nullptr);
  }
  EXPECT_EQ(vrxtest::readFile(files.temporary), "copy");
  EXPECT_EQ(vrxtest::readFile(files.corrupt), "older");
}

TEST_F(RegistryOpen, ReadingOpensTheRegistryAlone) {
  writeRegistry("contents");
  writeCopy();
  PlainRegistry registry(files.registry);
  ASSERT_EQ(registry.OpenReg(kGenRegRead), 0u);
  EXPECT_EQ(registry.temporaryStream, nullptr);
  EXPECT_EQ(readStream(registry.registryStream), "contents");
  EXPECT_EQ(registry.registrySize, 8u);
  EXPECT_TRUE(isShared(files.registry));
  EXPECT_EQ(vrxtest::readFile(files.temporary), "copy") << "reading leaves leftovers alone";
}

TEST_F(RegistryOpen, EveryModeOnAnExistingRegistrySharesIt) {
  for (const unsigned mode : kAllModes) {
    writeRegistry();
    writeCopy();
    PlainRegistry registry(files.registry);
    ASSERT_EQ(registry.OpenReg(mode), 0u) << mode;
    EXPECT_TRUE(isShared(files.registry)) << mode;
    EXPECT_EQ(readStream(registry.registryStream), "old") << mode;
    EXPECT_EQ(registry.CloseReg(kGenRegRead), 0u);
    EXPECT_TRUE(canLock(files.registry, kOssLockExclusive)) << mode;
  }
}

TEST_F(RegistryOpen, AddingCreatesDirectoryAndFile) {
  PlainRegistry registry(folder.file("a/b/reg"));
  ASSERT_EQ(registry.OpenReg(kGenRegAdd), 0u);
  EXPECT_EQ(vrxtest::modeOf(folder.file("a/b")), 0755);
  EXPECT_EQ(vrxtest::modeOf(folder.file("a/b/reg")), 0644);
  EXPECT_TRUE(isExclusive(folder.file("a/b/reg")));
  EXPECT_NE(registry.temporaryStream, nullptr);
}

TEST_F(RegistryOpen, CreatedRegistryTakesItsCreationModeAndTheUmask) {
  const Umask narrow(027);
  PlainRegistry registry(files.registry);
  registry.registryCreationMode = 0666;
  ASSERT_EQ(registry.OpenReg(kGenRegAdd), 0u);
  EXPECT_EQ(vrxtest::modeOf(files.registry), 0640);
  EXPECT_EQ(vrxtest::modeOf(files.temporary), 0640);
}

TEST_F(RegistryOpen, CreationModeDoesNotTouchAnExistingRegistry) {
  writeRegistry();
  ASSERT_EQ(chmod(files.registry.c_str(), 0604), 0);
  PlainRegistry registry(files.registry);
  registry.registryCreationMode = 0666;
  ASSERT_EQ(registry.OpenReg(kGenRegAdd), 0u);
  EXPECT_EQ(vrxtest::modeOf(files.registry), 0604);
}

TEST_F(RegistryOpen, AppendingInPlaceOpensTheRegistryAloneAndExclusively) {
  writeRegistry();
  writeCopy();
  PlainRegistry registry(files.registry, kAppendInPlace);
  ASSERT_EQ(registry.OpenReg(kGenRegAdd), 0u);
  EXPECT_EQ(registry.temporaryStream, nullptr);
  EXPECT_TRUE(isExclusive(files.registry));
  EXPECT_NE(fcntl(fileno(registry.registryStream), F_GETFL) & O_APPEND, 0);
  EXPECT_EQ(vrxtest::readFile(files.temporary), "copy") << "no copy, so nothing is set aside";
}

TEST_F(RegistryOpen, FeaturesThatCopyDoNotAppend) {
  for (const unsigned features : {0u, 0x1u, 0x3u, 0x4u}) {
    writeRegistry();
    PlainRegistry registry(files.registry, features);
    ASSERT_EQ(registry.OpenReg(kGenRegAdd), 0u) << features;
    EXPECT_NE(registry.temporaryStream, nullptr) << features;
    EXPECT_EQ(fcntl(fileno(registry.registryStream), F_GETFL) & O_APPEND, 0) << features;
  }
}

TEST_F(RegistryOpen, OpenScanExcludesEveryMode) {
  writeRegistry();
  PlainRegistry registry(files.registry);
  ASSERT_EQ(registry.OpenScan(), 0u);
  FILE* const stream = registry.registryStream;
  for (const unsigned mode : kAllModes)
    EXPECT_EQ(registry.OpenReg(mode), 0x9000025Bu) << mode;
  EXPECT_EQ(registry.registryStream, stream) << "the scan is disturbed";
  EXPECT_FALSE(vrxtest::pathExists(files.temporary));
}

TEST_F(RegistryOpen, OpeningAgainClosesTheStreamsBefore) {
  writeRegistry();
  PlainRegistry registry(files.registry);
  ASSERT_EQ(registry.OpenReg(kGenRegChange), 0u);
  const int descriptors = vrxtest::openDescriptorCount();
  ASSERT_EQ(registry.OpenReg(kGenRegChange), 0u);
  EXPECT_EQ(vrxtest::openDescriptorCount(), descriptors);
  EXPECT_EQ(vrxtest::readFile(files.corrupt), "") << "the copy before, set aside";
  ASSERT_EQ(registry.OpenReg(kGenRegRead), 0u);
  EXPECT_EQ(vrxtest::openDescriptorCount(), descriptors - 1);
}

TEST_F(RegistryOpen, DescriptorsAreNotInherited) {
  writeRegistry();
  PlainRegistry registry(files.registry);
  ASSERT_EQ(registry.OpenReg(kGenRegChange), 0u);
  for (FILE* stream : {registry.registryStream, registry.temporaryStream}) {
    EXPECT_NE(fcntl(fileno(stream), F_GETFD) & FD_CLOEXEC, 0);
  }
}

TEST_F(RegistryOpen, LinkedRegistryIsOpenedAtItsRealPath) {
  const PlainFiles real = linkRegistry();
  PlainRegistry registry(files.registry);
  ASSERT_EQ(registry.OpenReg(kGenRegChange), 0u);
  EXPECT_EQ(registry.registryPath, real.registry);
  EXPECT_EQ(readStream(registry.registryStream), "real contents");
  EXPECT_TRUE(vrxtest::pathExists(real.temporary));
  EXPECT_FALSE(vrxtest::pathExists(files.temporary));
}

TEST_F(RegistryOpen, ReaderOfALinkKnowsTheRealPath) {
  const PlainFiles real = linkRegistry();
  PlainRegistry registry(files.registry);
  ASSERT_EQ(registry.OpenReg(kGenRegRead), 0u);
  EXPECT_EQ(registry.registryPath, real.registry);
  EXPECT_EQ(registry.lockPath, real.lock);
}

TEST_F(RegistryOpen, DanglingLinkIsAMissingRegistryUnlessAdding) {
  ASSERT_EQ(symlink("data/real", files.registry.c_str()), 0);
  PlainRegistry registry(files.registry);
  EXPECT_EQ(registry.OpenReg(kGenRegRead), 0x90000513u);
  EXPECT_EQ(registry.OpenReg(kGenRegAdd), 0u);
  EXPECT_TRUE(vrxtest::pathExists(folder.file("data/real")));
}

TEST_F(RegistryOpen, CyclicLinkIsNoRegistry) {
  ASSERT_EQ(symlink("reg", files.registry.c_str()), 0);
  PlainRegistry registry(files.registry);
  EXPECT_EQ(registry.OpenReg(kGenRegRead), 0x90000513u);
  EXPECT_EQ(registry.OpenReg(kGenRegAdd), 0x900001BFu);
}

TEST_F(RegistryOpen, NothingButARegularFileIsARegistry) {
  ASSERT_EQ(mkfifo(files.registry.c_str(), 0644), 0);
  ASSERT_EQ(mkdir(folder.file("directory").c_str(), 0755), 0);
  for (const std::string& path :
       {files.registry, folder.file("directory"), std::string("/dev/zero")}) {
    for (const unsigned mode : kAllModes) {
      PlainRegistry registry(path);
      EXPECT_EQ(registry.OpenReg(mode), 0x900001BFu) << path << mode;
    }
  }
}

// The moments in which another process may act.
TEST_F(RegistryOpen, FileThatVanishesBeforeTheOpeningIsMissing) {
  for (const unsigned mode : kNeedsFile) {
    writeRegistry();
    PlainRegistry registry(files.registry);
    const BeforeCall vanish(Call::kHandleOpen, 1,
                            [&] { ASSERT_EQ(unlink(files.registry.c_str()), 0); });
    EXPECT_EQ(registry.OpenReg(mode), 0x90000513u) << mode;
    EXPECT_TRUE(vanish.fired());
    EXPECT_FALSE(vrxtest::pathExists(files.registry)) << "only adding creates a registry";
  }
}

TEST_F(RegistryOpen, LinkPutInTheRegistrysPlaceIsFollowedByReadersOnly) {
  for (const unsigned mode : kAllModes) {
    (void)unlink(files.registry.c_str());  // the link of the round before
    writeRegistry();
    writeCopy();
    writeFile(folder.file("victim"), "victim");
    PlainRegistry registry(files.registry);
    const BeforeCall swap(Call::kHandleOpen, 1, [&] {
      ASSERT_EQ(unlink(files.registry.c_str()), 0);
      ASSERT_EQ(symlink("victim", files.registry.c_str()), 0);
    });
    const GenRegStatus expected = mode == kGenRegRead ? 0u : 0x900001BFu;
    EXPECT_EQ(registry.OpenReg(mode), expected) << mode;
  }
}

TEST_F(RegistryOpen, AddingDoesNotWaitForAReaderThatCreatedTheRegistryMeanwhile) {
  const NoWaiting limit;
  PlainRegistry reader(files.registry);
  PlainRegistry registry(files.registry);
  const BeforeCall create(Call::kHandleOpen, 1, [&] { ASSERT_EQ(reader.OpenScan(), 0u); });
  EXPECT_EQ(registry.OpenReg(kGenRegAdd), 0u);
  EXPECT_TRUE(isShared(files.registry));
  EXPECT_NE(registry.temporaryStream, nullptr);
}

TEST_F(RegistryOpen, AppendingInPlaceWaitsForThatReader) {
  const NoWaiting limit;
  PlainRegistry reader(files.registry);
  PlainRegistry registry(files.registry, kAppendInPlace);
  const BeforeCall create(Call::kHandleOpen, 1, [&] { ASSERT_EQ(reader.OpenScan(), 0u); });
  EXPECT_EQ(registry.OpenReg(kGenRegAdd), 0x90000272u);
}

TEST_F(RegistryOpen, AppendingInPlaceWaitsForReaders) {
  const NoWaiting limit;
  writeRegistry();
  PlainRegistry reader(files.registry);
  ASSERT_EQ(reader.OpenScan(), 0u);
  PlainRegistry registry(files.registry, kAppendInPlace);
  EXPECT_EQ(registry.OpenReg(kGenRegAdd), 0x90000272u);
  PlainRegistry copying(files.registry);
  EXPECT_EQ(copying.OpenReg(kGenRegAdd), 0u) << "a copying update disturbs no reader";
}

// A call that fails while a registry is opened, and what OpenReg reports.
struct OpenFault {
  Call call;
  int nth;
  int error;
  GenRegStatus expected;
};
constexpr OpenFault kReadFaults[] = {
    {Call::kHandleOpen, 1, EMFILE, 0x900001BFu}, {Call::kOpen, 1, EIO, 0x900001BFu},
    {Call::kOpen, 1, ENOENT, 0x90000513u},       {Call::kFstat, 1, EIO, 0x900001BFu},
    {Call::kHandleLock, 1, ENOLCK, 0x90000272u}, {Call::kLockFcntl, 1, ENOLCK, 0x90000272u},
    {Call::kFdopen, 1, ENOMEM, 0x900001BFu},
};

TEST_F(RegistryOpen, EveryFailureOfReadingIsReportedAndLeavesNothing) {
  writeRegistry();
  for (const OpenFault& row : kReadFaults) {
    const LeakCheck none;
    PlainRegistry registry(files.registry);
    const FailCall fault(row.call, row.nth, row.error);
    EXPECT_EQ(registry.OpenReg(kGenRegRead), row.expected) << static_cast<int>(row.call);
    EXPECT_TRUE(fault.fired()) << static_cast<int>(row.call);
    EXPECT_EQ(registry.CloseReg(kGenRegRead), 0u);
    EXPECT_EQ(registry.OpenReg(kGenRegRead), 0u) << "the object is of use again";
  }
  EXPECT_EQ(vrxtest::readFile(files.registry), "old");
}

constexpr OpenFault kAddFaults[] = {
    {Call::kDirectoryName, 1, ENAMETOOLONG, 0x90000008u}, {Call::kMkdir, 1, EACCES, 0x90000512u},
    {Call::kHandleOpen, 1, ENOSPC, 0x900001BFu},          {Call::kOpen, 3, ENOSPC, 0x900001BFu},
    {Call::kHandleLock, 1, ENOLCK, 0x90000272u},          {Call::kFdopen, 1, ENOMEM, 0x900001BFu},
};

TEST_F(RegistryOpen, EveryFailureOfCreatingIsReported) {
  for (const OpenFault& row : kAddFaults) {
    const TempDir fresh;
    PlainRegistry registry(fresh.file("new/reg"));
    const FailCall fault(row.call, row.nth, row.error);
    EXPECT_EQ(registry.OpenReg(kGenRegAdd), row.expected) << static_cast<int>(row.call);
    EXPECT_TRUE(fault.fired()) << static_cast<int>(row.call);
    EXPECT_EQ(registry.registryStream, nullptr);
  }
}

TEST_F(RegistryOpen, DirectoryThatCannotBeCreatedIsReported) {
  writeFile(folder.file("a"), "in the way");
  PlainRegistry registry(folder.file("a/reg"));
  EXPECT_EQ(registry.OpenReg(kGenRegAdd), 0x90000512u);
}

TEST_F(RegistryOpen, StreamsKeepTheirOwnBuffersWithoutMemory) {
  writeRegistry();
  for (const Call call : {Call::kMemAlloc, Call::kSetvbuf}) {
    PlainRegistry registry(files.registry);
    const FailCall fault(call, 1, ENOMEM, vrxtest::Extent::kFromThenOn);
    ASSERT_EQ(registry.OpenReg(kGenRegChange), 0u);
    EXPECT_TRUE(fault.fired());
    EXPECT_EQ(readStream(registry.registryStream), "old");
  }
}

TEST_F(RegistryOpen, DestructorClosesWhatIsOpen) {
  writeRegistry();
  const int descriptors = vrxtest::openDescriptorCount();
  {
    PlainRegistry registry(files.registry);
    ASSERT_EQ(registry.OpenReg(kGenRegChange), 0u);
    EXPECT_EQ(vrxtest::openDescriptorCount(), descriptors + 2);
  }
  EXPECT_EQ(vrxtest::openDescriptorCount(), descriptors);
  EXPECT_EQ(vrxtest::readFile(files.registry), "old") << "nothing is committed";
}

TEST_F(RegistryOpen, DestructorOnlyLogsFailures) {
  writeRegistry();
  const vrxtest::CapturedLog log;
  std::optional<PlainRegistry> registry(files.registry);
  ASSERT_EQ(registry->OpenReg(kGenRegChange), 0u);
  {
    const FailCall fault(Call::kFclose, 1, EIO, vrxtest::Extent::kFromThenOn);
    registry.reset();
  }
  EXPECT_EQ(log.count(0x082A000F, 0x900001C7u), 1);
  EXPECT_EQ(log.count(0x082A000F, 0x900001C8u), 1);
}

TEST_F(RegistryOpen, UnreadableRegistryIsReported) {
  if (geteuid() != 0) GTEST_SKIP() << "takes root to give root up";
  writeRegistry();
  ASSERT_EQ(chmod(folder.path().c_str(), 0755), 0);
  ASSERT_EQ(chmod(files.registry.c_str(), 0600), 0);
  vrxtest::inChildProcess([&] {
    ASSERT_EQ(setreuid(65534, 65534), 0);
    for (const unsigned mode : kAllModes) {
      PlainRegistry registry(files.registry);
      EXPECT_EQ(registry.OpenReg(mode), 0x900001BFu) << mode;
    }
  });
}

TEST_F(RegistryOpen, ReadOnlyFolderRefusesUpdatesAndAllowsReading) {
  if (geteuid() != 0) GTEST_SKIP() << "takes root to give root up";
  writeRegistry();
  ASSERT_EQ(chmod(folder.path().c_str(), 0755), 0);
  vrxtest::inChildProcess([&] {
    ASSERT_EQ(setreuid(65534, 65534), 0);
    PlainRegistry registry(files.registry);
    EXPECT_EQ(registry.OpenReg(kGenRegRead), 0u);
    for (const unsigned mode : kUpdates)
      EXPECT_EQ(registry.OpenReg(mode), 0x900001C0u) << mode;
  });
  EXPECT_EQ(vrxtest::readFile(files.registry), "old");
}

}  // namespace
