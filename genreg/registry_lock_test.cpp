// SPDX-License-Identifier: Apache-2.0
// The lock file: requests, contention between objects and processes, failures, and what may be
// planted at its path.
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
#include "tests/support/process.h"
#include "tests/support/process_settings.h"
#include "tests/support/temp_dir.h"

namespace {

using namespace genreg;
using vrxtest::BeforeCall;
using vrxtest::Call;
using vrxtest::Child;
using vrxtest::Extent;
using vrxtest::FailCall;
using vrxtest::LeakCheck;
using vrxtest::NoWaiting;
using vrxtest::PlainFiles;
using vrxtest::PlainRegistry;
using vrxtest::TempDir;
using vrxtest::Umask;

constexpr unsigned kExclusiveNoWait = kGenRegLockExclusive | kGenRegLockNoWait;
constexpr unsigned kSharedNoWait = kGenRegLockShared | kGenRegLockNoWait;
constexpr unsigned kExclusiveWait = kGenRegLockExclusive | kGenRegLockWait;
constexpr unsigned kAdd = kExclusiveWait | kGenRegLockCreateDirectory;

GenRegStatus systemError(int error) {
  return 0x90000080u + static_cast<unsigned>(error);
}

class RegistryLock : public testing::Test {
 protected:
  const LeakCheck leaks;
  const TempDir folder;
  const PlainFiles files{folder};

  // Whether another object can take the lock in the way asked for.
  bool othersCan(unsigned flags) const {
    PlainRegistry other(files.registry);
    const GenRegStatus rc = other.Lock(flags, 0);
    EXPECT_TRUE(rc == status::ok || rc == status::locked_elsewhere) << std::hex << rc;
    return rc == status::ok;
  }
  bool isFree() const { return othersCan(kExclusiveNoWait); }
};

bool holdsLock(const GenRegFile& registry) {
  return (registry.state & kGenRegStateLocked) != 0;
}

int accessOf(const GenRegFile& registry) {
  return fcntl(registry.lockFile.getFileHandle(), F_GETFL) & O_ACCMODE;
}

TEST_F(RegistryLock, ExclusiveLockKeepsAllOthersOut) {
  PlainRegistry registry(files.registry);
  ASSERT_EQ(registry.Lock(kExclusiveWait, 10), 0u);
  EXPECT_TRUE(holdsLock(registry));
  EXPECT_EQ(accessOf(registry), O_RDWR);
  EXPECT_FALSE(othersCan(kExclusiveNoWait));
  EXPECT_FALSE(othersCan(kSharedNoWait));
  EXPECT_EQ(registry.UnLock(), 0u);
  EXPECT_FALSE(holdsLock(registry));
  EXPECT_EQ(registry.lockFile.getFileHandle(), -1);
  EXPECT_TRUE(isFree());
}

TEST_F(RegistryLock, SharedLockLetsReadersIn) {
  PlainRegistry registry(files.registry);
  ASSERT_EQ(registry.Lock(kSharedNoWait, 0), 0u);
  EXPECT_EQ(accessOf(registry), O_RDONLY);
  EXPECT_TRUE(othersCan(kSharedNoWait));
  EXPECT_FALSE(othersCan(kExclusiveNoWait));
}

TEST_F(RegistryLock, ExclusiveWinsOverShared) {
  PlainRegistry registry(files.registry);
  ASSERT_EQ(registry.Lock(0x1 | 0x2 | 0x4, 0), 0u);
  EXPECT_EQ(accessOf(registry), O_RDWR);
  EXPECT_FALSE(othersCan(kSharedNoWait));
}

TEST_F(RegistryLock, NotWaitingWinsOverWaiting) {
  PlainRegistry holder(files.registry);
  ASSERT_EQ(holder.Lock(kExclusiveWait, 0), 0u);
  PlainRegistry registry(files.registry);
  EXPECT_EQ(registry.Lock(0x1 | 0x4 | 0x8, 0), 0x900001C4u);
  EXPECT_FALSE(holdsLock(registry));
}

TEST_F(RegistryLock, RequestWithoutKindOrWaitModeTouchesNoFile) {
  PlainRegistry registry(folder.file("missing/reg"));
  for (const unsigned flags : {0x0u, 0x1u, 0x2u, 0x3u, 0x4u, 0x8u, 0xCu, 0x11u, 0x14u, 0x40u}) {
    EXPECT_EQ(registry.Lock(flags, 0), 0x900001F2u) << flags;
  }
  EXPECT_FALSE(vrxtest::pathExists(folder.file("missing")));
  EXPECT_EQ(registry.lockFile.getFileHandle(), -1);
}

TEST_F(RegistryLock, SecondLockOfTheSameObjectIsRefusedAndKeepsTheFirst) {
  PlainRegistry registry(files.registry);
  ASSERT_EQ(registry.Lock(kExclusiveWait, 0), 0u);
  const int descriptor = registry.lockFile.getFileHandle();
  EXPECT_EQ(registry.Lock(kExclusiveWait, 0), 0x900001BBu);
  EXPECT_EQ(registry.Lock(kSharedNoWait, 0), 0x900001BBu);
  EXPECT_EQ(registry.lockFile.getFileHandle(), descriptor);
  EXPECT_FALSE(othersCan(kSharedNoWait));
}

TEST_F(RegistryLock, ObjectWithoutPathsIsRefused) {
  PlainRegistry registry("");
  EXPECT_EQ(registry.Lock(kExclusiveWait, 0), 0x900001BAu);
  GenRegFile bare;
  EXPECT_EQ(bare.Lock(kExclusiveWait, 0), 0x900001BAu);
}

TEST_F(RegistryLock, BadFlagsAreReportedBeforeMissingPathsAndThoseBeforeAHeldLock) {
  PlainRegistry registry(files.registry);
  ASSERT_EQ(registry.Lock(kExclusiveWait, 0), 0u);
  EXPECT_EQ(registry.Lock(0x1, 0), 0x900001F2u);
  registry.state &= ~static_cast<unsigned>(kGenRegStatePathsSet);
  EXPECT_EQ(registry.Lock(kExclusiveWait, 0), 0x900001BAu);
}

TEST_F(RegistryLock, SecondArgumentIsIgnored) {
  for (const unsigned ignored : {0u, 10u, 0xFFFFFFFFu}) {
    PlainRegistry registry(files.registry);
    EXPECT_EQ(registry.Lock(kExclusiveNoWait, ignored), 0u);
  }
}

TEST_F(RegistryLock, LockFileIsHiddenEmptyAndStays) {
  const Umask mask(022);
  struct stat before {};
  struct stat after {};
  PlainRegistry registry(files.registry);
  ASSERT_EQ(registry.Lock(kExclusiveWait, 0), 0u);
  ASSERT_EQ(stat(files.lock.c_str(), &before), 0);
  EXPECT_EQ(registry.UnLock(), 0u);
  ASSERT_EQ(registry.Lock(kExclusiveWait, 0), 0u);
  ASSERT_EQ(stat(files.lock.c_str(), &after), 0);
  EXPECT_EQ(before.st_ino, after.st_ino);
  EXPECT_EQ(before.st_size, 0);
  EXPECT_EQ(vrxtest::modeOf(files.lock), 0644);
  EXPECT_FALSE(vrxtest::pathExists(files.registry));
}

TEST_F(RegistryLock, LockFileTakesItsCreationModeAndTheUmask) {
  const Umask mask(027);
  PlainRegistry registry(files.registry);
  registry.lockCreationMode = 0666;
  ASSERT_EQ(registry.Lock(kExclusiveWait, 0), 0u);
  EXPECT_EQ(vrxtest::modeOf(files.lock), 0640);
  EXPECT_EQ(registry.lockFileOpen.permissions, 0666u);
}

TEST_F(RegistryLock, OpenRequestStandsInTheObject) {
  PlainRegistry registry(files.registry);
  ASSERT_EQ(registry.Lock(kExclusiveWait, 0), 0u);
  EXPECT_EQ(registry.lockFileOpen.version, 0x09050000u);
  EXPECT_EQ(registry.lockFileOpen.path, files.lock);
  EXPECT_EQ(registry.lockFileOpen.options & ~kOssOpenNoFollow, kOssOpenOrCreate);
  EXPECT_EQ(registry.lockFileOpen.access, kOssAccessReadWrite);
  EXPECT_EQ(registry.lockFileOpen.permissions, 0644u);
}

TEST_F(RegistryLock, MissingDirectoryIsCreatedWhenAskedFor) {
  const Umask mask(022);
  PlainRegistry registry(folder.file("a/b/reg"));
  ASSERT_EQ(registry.Lock(0x2 | 0x4 | 0x10, 0), 0u);
  EXPECT_EQ(vrxtest::modeOf(folder.file("a")), 0755);
  EXPECT_EQ(vrxtest::modeOf(folder.file("a/b")), 0755);
  EXPECT_EQ(vrxtest::modeOf(folder.file("a/b/.reg.lock")), 0644);
  EXPECT_FALSE(vrxtest::pathExists(folder.file("a/b/reg")));
}

TEST_F(RegistryLock, CreatedDirectoryHasItsPermissionsWhateverTheUmask) {
  const Umask mask(077);
  PlainRegistry registry(folder.file("a/reg"));
  ASSERT_EQ(registry.Lock(kAdd, 0), 0u);
  EXPECT_EQ(vrxtest::modeOf(folder.file("a")), 0755);
}

TEST_F(RegistryLock, MissingDirectoryIsAFailureWhenNotAskedFor) {
  PlainRegistry registry(folder.file("a/reg"));
  EXPECT_EQ(registry.Lock(kExclusiveWait, 0), 0x900001DAu);
  EXPECT_FALSE(vrxtest::pathExists(folder.file("a")));
}

TEST_F(RegistryLock, DirectoryThatCannotBeCreatedIsReportedAndLogged) {
  const vrxtest::CapturedLog log;
  vrxtest::writeFile(folder.file("a"), "a file in the way");
  PlainRegistry registry(folder.file("a/reg"));
  EXPECT_EQ(registry.Lock(kAdd, 0), 0x90000512u);
  EXPECT_EQ(log.count(0x082A000B, 0x90000512u), 1);
  PlainRegistry refused(folder.file("b/reg"));
  const FailCall fault(Call::kMkdir, 1, EACCES);
  EXPECT_EQ(refused.Lock(kAdd, 0), 0x90000512u);
  EXPECT_FALSE(holdsLock(refused));
}

TEST_F(RegistryLock, DirectoryNameFailureIsPassedOn) {
  PlainRegistry registry(files.registry);
  const FailCall fault(Call::kDirectoryName, 1, ENAMETOOLONG);
  EXPECT_EQ(registry.Lock(kAdd, 0), 0x90000008u);
  EXPECT_FALSE(vrxtest::pathExists(files.lock));
}

TEST_F(RegistryLock, LinkedRegistryIsLockedBesideTheRealFile) {
  const PlainFiles real(folder, "real");
  ASSERT_EQ(symlink("real", files.registry.c_str()), 0);
  PlainRegistry registry(files.registry);
  ASSERT_EQ(registry.Lock(kExclusiveWait, 0), 0u);
  EXPECT_TRUE(vrxtest::pathExists(real.lock));
  EXPECT_FALSE(vrxtest::pathExists(files.lock));
  PlainRegistry direct(real.registry);
  EXPECT_EQ(direct.Lock(kExclusiveNoWait, 0), 0x900001C4u);
}

TEST_F(RegistryLock, DirectoryOfTheRealFileIsTheOneCreated) {
  ASSERT_EQ(symlink("data/real", files.registry.c_str()), 0);
  PlainRegistry registry(files.registry);
  ASSERT_EQ(registry.Lock(kAdd, 0), 0u);
  EXPECT_TRUE(vrxtest::pathExists(folder.file("data/.real.lock")));
}

// What may stand at the lock file's path.
TEST_F(RegistryLock, PlantedLinkIsNotFollowed) {
  const std::string victim = folder.file("victim");
  ASSERT_EQ(symlink(victim.c_str(), files.lock.c_str()), 0);
  PlainRegistry registry(files.registry);
  EXPECT_EQ(registry.Lock(kExclusiveWait, 0), 0x900001DAu);
  EXPECT_FALSE(vrxtest::pathExists(victim)) << "created through the link";
  vrxtest::writeFile(victim, "precious");
  EXPECT_EQ(registry.Lock(kSharedNoWait, 0), 0x900001DAu);
  EXPECT_EQ(vrxtest::readFile(victim), "precious");
}

TEST_F(RegistryLock, PlantedFifoNeitherHangsNorCounts) {
  ASSERT_EQ(mkfifo(files.lock.c_str(), 0644), 0);
  PlainRegistry registry(files.registry);
  EXPECT_EQ(registry.Lock(kExclusiveWait, 0), 0x900001DAu);
  EXPECT_EQ(registry.Lock(kGenRegLockShared | kGenRegLockWait, 0), 0x900001DAu);
}

TEST_F(RegistryLock, PlantedDirectoryDoesNotCount) {
  ASSERT_EQ(mkdir(files.lock.c_str(), 0755), 0);
  PlainRegistry registry(files.registry);
  EXPECT_EQ(registry.Lock(kExclusiveWait, 0), 0x900001DAu);
  EXPECT_EQ(registry.Lock(kSharedNoWait, 0), 0x900001DAu);
}

TEST_F(RegistryLock, PlantedHardLinkIsLockedAndKeepsItsContents) {
  vrxtest::writeFile(folder.file("victim"), "precious");
  ASSERT_EQ(link(folder.file("victim").c_str(), files.lock.c_str()), 0);
  PlainRegistry registry(files.registry);
  EXPECT_EQ(registry.Lock(kExclusiveWait, 0), 0u);
  EXPECT_EQ(vrxtest::readFile(folder.file("victim")), "precious");
}

TEST_F(RegistryLock, LockOfAnotherProcessIsReportedAtOnce) {
  Child holder([&](Child::Gate& gate) {
    PlainRegistry other(files.registry);
    EXPECT_EQ(other.Lock(kExclusiveWait, 0), 0u);
    gate.pause();
    EXPECT_EQ(other.UnLock(), 0u);
    gate.pause();
  });
  ASSERT_TRUE(holder.awaitPause());
  {
    const vrxtest::CapturedLog log;
    PlainRegistry registry(files.registry);
    EXPECT_EQ(registry.Lock(kExclusiveNoWait, 0), 0x900001C4u);
    EXPECT_EQ(log.count(0x082A000B, 0x900001C4u), 1);
  }
  holder.resume();
  ASSERT_TRUE(holder.awaitPause());
  EXPECT_TRUE(isFree());
  holder.resume();
  EXPECT_EQ(holder.wait(), 0);
}

TEST_F(RegistryLock, LockOfADeadProcessIsGone) {
  Child holder([&](Child::Gate& gate) {
    PlainRegistry other(files.registry);
    EXPECT_EQ(other.Lock(kExclusiveWait, 0), 0u);
    gate.pause();
  });
  ASSERT_TRUE(holder.awaitPause());
  EXPECT_FALSE(isFree());
  holder.kill();
  EXPECT_EQ(holder.wait(), -SIGKILL);
  EXPECT_TRUE(isFree());
}

TEST_F(RegistryLock, WaitingLockIsGrantedOnlyAfterTheRelease) {
  PlainRegistry registry(files.registry);
  ASSERT_EQ(registry.Lock(kExclusiveWait, 0), 0u);
  Child waiter([&](Child::Gate& gate) {
    PlainRegistry other(files.registry);
    const vrxtest::BeforeCall asking(Call::kLockFcntl, 1, [&] { gate.pass(); });
    EXPECT_EQ(other.Lock(kExclusiveWait, 0), 0u);
    EXPECT_TRUE(vrxtest::pathExists(files.registry)) << "granted while it was held";
  });
  ASSERT_TRUE(waiter.awaitPause());
  waiter.awaitSleep();
  vrxtest::writeFile(files.registry, "");
  EXPECT_EQ(registry.UnLock(), 0u);
  EXPECT_EQ(waiter.wait(), 0);
}

TEST_F(RegistryLock, ClosingAnotherDescriptorOfTheLockFileDropsNothing) {
  PlainRegistry registry(files.registry);
  ASSERT_EQ(registry.Lock(kExclusiveWait, 0), 0u);
  EXPECT_EQ(vrxtest::readFile(files.lock), "");
  EXPECT_FALSE(isFree());
}

TEST_F(RegistryLock, OtherFailuresOfTheRequestArePassedOn) {
  for (const unsigned flags : {kExclusiveWait, kExclusiveNoWait}) {
    PlainRegistry registry(files.registry);
    const FailCall fault(Call::kHandleLock, 1, ENOLCK);
    EXPECT_EQ(registry.Lock(flags, 0), systemError(ENOLCK));
    EXPECT_FALSE(holdsLock(registry));
    EXPECT_GE(registry.lockFile.getFileHandle(), 0) << "stays open until the next Lock";
    EXPECT_EQ(registry.Lock(flags, 0), 0u);
  }
}

TEST_F(RegistryLock, FailureOfTheSystemCallIsPassedOn) {
  PlainRegistry registry(files.registry);
  const FailCall fault(Call::kLockFcntl, 1, ENOLCK);
  EXPECT_EQ(registry.Lock(kExclusiveWait, 0), systemError(ENOLCK));
}

TEST_F(RegistryLock, LimitOnWaitingIsPassedOn) {
  PlainRegistry holder(files.registry);
  ASSERT_EQ(holder.Lock(kExclusiveWait, 0), 0u);
  const NoWaiting limit;
  PlainRegistry registry(files.registry);
  EXPECT_EQ(registry.Lock(kExclusiveWait, 0), 0x90000014u);
  EXPECT_FALSE(holdsLock(registry));
}

TEST_F(RegistryLock, LockFileThatCannotBeOpenedIsReported) {
  PlainRegistry registry(files.registry);
  const FailCall fault(Call::kHandleOpen, 1, EMFILE);
  EXPECT_EQ(registry.Lock(kExclusiveWait, 0), 0x900001DAu);
  EXPECT_EQ(registry.Lock(kExclusiveWait, 0), 0u);
}

TEST_F(RegistryLock, LockFileDeletedBeforeTheGrantIsOpenedAfresh) {
  PlainRegistry registry(files.registry);
  const BeforeCall deleter(Call::kHandleLock, 1, [&] { ASSERT_EQ(unlink(files.lock.c_str()), 0); });
  ASSERT_EQ(registry.Lock(kExclusiveWait, 0), 0u);
  EXPECT_TRUE(deleter.fired());
  EXPECT_TRUE(vrxtest::pathExists(files.lock));
  EXPECT_FALSE(isFree()) << "the lock is on a file without a name";
}

TEST_F(RegistryLock, LockFileReplacedBeforeTheGrantIsOpenedAfresh) {
  PlainRegistry registry(files.registry);
  vrxtest::writeFile(folder.file("new"), "");
  const BeforeCall replacer(Call::kHandleLock, 1, [&] {
    ASSERT_EQ(rename(folder.file("new").c_str(), files.lock.c_str()), 0);
  });
  ASSERT_EQ(registry.Lock(kExclusiveNoWait, 0), 0u);
  EXPECT_FALSE(isFree());
}

TEST_F(RegistryLock, LockFileThatKeepsVanishingIsGivenUp) {
  PlainRegistry registry(files.registry);
  {
    const BeforeCall deleter(
        Call::kHandleLock, 1, [&] { ASSERT_EQ(unlink(files.lock.c_str()), 0); },
        Extent::kFromThenOn);
    EXPECT_EQ(registry.Lock(kExclusiveWait, 0), 0x900001DAu);
    EXPECT_GT(deleter.calls(), 1);
  }
  EXPECT_FALSE(holdsLock(registry));
  EXPECT_TRUE(isFree());
}

TEST_F(RegistryLock, GrantThatCannotBeCheckedIsGivenBack) {
  for (const Call call : {Call::kLstat, Call::kFstat}) {
    PlainRegistry registry(files.registry);
    const FailCall fault(call, call == Call::kFstat ? 2 : 1, EIO);
    EXPECT_EQ(registry.Lock(kExclusiveWait, 0), 0x900001DAu);
    EXPECT_TRUE(fault.fired());
    EXPECT_FALSE(holdsLock(registry));
    EXPECT_TRUE(isFree()) << "held without the state bit";
  }
}

TEST_F(RegistryLock, UnlockFailureKeepsTheLockAndTheBit) {
  PlainRegistry registry(files.registry);
  ASSERT_EQ(registry.Lock(kExclusiveWait, 0), 0u);
  {
    const vrxtest::CapturedLog log;
    const FailCall fault(Call::kHandleUnlock, 1, EIO);
    EXPECT_EQ(registry.UnLock(), 0x900003F7u);
    EXPECT_EQ(log.count(0x082A000C, 0x900003F7u), 1);
  }
  EXPECT_TRUE(holdsLock(registry));
  EXPECT_FALSE(isFree());
  EXPECT_EQ(registry.UnLock(), 0u);
  EXPECT_TRUE(isFree());
}

TEST_F(RegistryLock, CloseFailureIsReportedAfterTheRelease) {
  PlainRegistry registry(files.registry);
  ASSERT_EQ(registry.Lock(kExclusiveWait, 0), 0u);
  const FailCall fault(Call::kHandleClose, 1, EIO);
  EXPECT_EQ(registry.UnLock(), 0x900001DCu);
  EXPECT_FALSE(holdsLock(registry));
  EXPECT_TRUE(isFree());
}

TEST_F(RegistryLock, UnlockWithoutALockIsReported) {
  PlainRegistry registry(files.registry);
  EXPECT_EQ(registry.UnLock(), 0x900003F7u);
  ASSERT_EQ(registry.Lock(kExclusiveWait, 0), 0u);
  EXPECT_EQ(registry.UnLock(), 0u);
  EXPECT_EQ(registry.UnLock(), 0x900003F7u);
}

TEST_F(RegistryLock, DestructorReleasesAHeldLockAndAFailedOne) {
  std::optional<PlainRegistry> holder(files.registry);
  ASSERT_EQ(holder->Lock(kExclusiveWait, 0), 0u);
  std::optional<PlainRegistry> refused(files.registry);
  EXPECT_EQ(refused->Lock(kExclusiveNoWait, 0), 0x900001C4u);
  holder.reset();
  EXPECT_TRUE(isFree());
  refused.reset();
  EXPECT_TRUE(isFree());
}

TEST_F(RegistryLock, DestructorOnlyLogsACloseFailure) {
  const vrxtest::CapturedLog log;
  std::optional<PlainRegistry> registry(files.registry);
  ASSERT_EQ(registry->Lock(kExclusiveWait, 0), 0u);
  {
    const FailCall fault(Call::kHandleClose, 1, EIO);
    registry.reset();
  }
  EXPECT_EQ(log.count(0x082A000F, 0x900001DCu), 1);
  EXPECT_TRUE(isFree());
}

TEST_F(RegistryLock, LockFileIsNotInherited) {
  PlainRegistry registry(files.registry);
  ASSERT_EQ(registry.Lock(kExclusiveWait, 0), 0u);
  EXPECT_NE(fcntl(registry.lockFile.getFileHandle(), F_GETFD) & FD_CLOEXEC, 0);
}

TEST_F(RegistryLock, UnprivilegedProcessMayOnlyShareALockFileThatItCannotWrite) {
  if (geteuid() != 0) GTEST_SKIP() << "takes root to give root up";
  const Umask mask(022);
  ASSERT_EQ(chmod(folder.path().c_str(), 0755), 0);
  {
    PlainRegistry registry(files.registry);
    ASSERT_EQ(registry.Lock(kExclusiveWait, 0), 0u);
  }
  vrxtest::inChildProcess([&] {
    ASSERT_EQ(seteuid(65534), 0);
    PlainRegistry registry(files.registry);
    EXPECT_EQ(registry.Lock(kExclusiveNoWait, 0), 0x900001DAu);
    EXPECT_EQ(registry.Lock(kSharedNoWait, 0), 0u);
    PlainRegistry elsewhere(folder.file("other"));
    EXPECT_EQ(elsewhere.Lock(kSharedNoWait, 0), 0x900001DAu) << "cannot create the lock file";
    PlainRegistry below(folder.file("new/reg"));
    EXPECT_EQ(below.Lock(kAdd, 0), 0x90000512u);
  });
}

}  // namespace
