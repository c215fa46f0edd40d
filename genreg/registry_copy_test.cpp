// SPDX-License-Identifier: Apache-2.0
// OpenReg's temporary copy: how leftovers are set aside, how the copy is created, what it inherits
// from the registry, and what may be planted in its way.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "platform/osse/errors.h"
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
using vrxtest::pathExists;
using vrxtest::PlainFiles;
using vrxtest::PlainRegistry;
using vrxtest::readFile;
using vrxtest::TempDir;
using vrxtest::Umask;
using vrxtest::writeFile;

constexpr unsigned kUpdates[] = {kGenRegChange, kGenRegAdd, kGenRegDelete};

class RegistryCopy : public testing::Test {
 protected:
  RegistryCopy() { writeFile(files.registry, "old"); }

  // OpenReg of a fresh object, which closes everything again.
  GenRegStatus open(unsigned mode) const {
    PlainRegistry registry(files.registry);
    return registry.OpenReg(mode);
  }

  const LeakCheck leaks;
  const Umask mask{022};
  const TempDir folder;
  const PlainFiles files{folder};
};

struct stat infoOf(const std::string& path) {
  struct stat info {};
  EXPECT_EQ(lstat(path.c_str(), &info), 0) << path;
  return info;
}

TEST_F(RegistryCopy, UpdateStartsWithAnEmptyCopy) {
  for (const unsigned mode : kUpdates) {
    PlainRegistry registry(files.registry);
    ASSERT_EQ(registry.OpenReg(mode), 0u) << mode;
    EXPECT_EQ(readFile(files.temporary), "");
    EXPECT_EQ(registry.temporarySize, 0u);
    EXPECT_EQ(readFile(files.registry), "old");
  }
}

TEST_F(RegistryCopy, FirstUpdateSetsNothingAside) {
  EXPECT_EQ(open(kGenRegChange), 0u);
  EXPECT_FALSE(pathExists(files.corrupt));
}

TEST_F(RegistryCopy, LeftoverCopyIsSetAside) {
  for (const unsigned mode : kUpdates) {
    (void)unlink(files.corrupt.c_str());
    writeFile(files.temporary, "leftover");
    EXPECT_EQ(open(mode), 0u) << mode;
    EXPECT_EQ(readFile(files.corrupt), "leftover");
    EXPECT_EQ(readFile(files.temporary), "");
  }
}

TEST_F(RegistryCopy, NewerLeftoverReplacesTheOlderOne) {
  writeFile(files.temporary, "newer");
  writeFile(files.corrupt, "older");
  EXPECT_EQ(open(kGenRegChange), 0u);
  EXPECT_EQ(readFile(files.corrupt), "newer");
}

TEST_F(RegistryCopy, CorruptCopyIsDeletedByTheNextUpdateAlsoWithoutALeftover) {
  for (const unsigned mode : kUpdates) {
    (void)unlink(files.temporary.c_str());
    writeFile(files.corrupt, "older");
    EXPECT_EQ(open(mode), 0u) << mode;
    EXPECT_FALSE(pathExists(files.corrupt));
  }
}

TEST_F(RegistryCopy, ReadingBackSetsNothingAside) {
  writeFile(files.temporary, "copy");
  writeFile(files.corrupt, "older");
  PlainRegistry registry(files.registry);
  ASSERT_EQ(registry.OpenReg(kGenRegVerify), 0u);
  EXPECT_EQ(readFile(files.temporary), "copy");
  EXPECT_EQ(readFile(files.corrupt), "older");
  EXPECT_EQ(registry.temporarySize, 4u);
  char bytes[10];
  EXPECT_EQ(std::fread(bytes, 1, sizeof bytes, registry.temporaryStream), 4u);
  EXPECT_EQ(fcntl(fileno(registry.temporaryStream), F_GETFL) & O_ACCMODE, O_RDONLY);
}

TEST_F(RegistryCopy, ReadingBackWithoutACopyIsAFailure) {
  EXPECT_EQ(open(kGenRegVerify), 0x900001C0u);
  EXPECT_FALSE(pathExists(files.temporary));
}

TEST_F(RegistryCopy, ReadingOnlyTouchesNoLeftover) {
  writeFile(files.temporary, "copy");
  writeFile(files.corrupt, "older");
  EXPECT_EQ(open(kGenRegRead), 0u);
  EXPECT_EQ(readFile(files.temporary), "copy");
  EXPECT_EQ(readFile(files.corrupt), "older");
}

TEST_F(RegistryCopy, BackupOfADeadUpdateIsLeftToTheCommit) {
  writeFile(files.backup, "backup");
  EXPECT_EQ(open(kGenRegChange), 0u);
  EXPECT_EQ(readFile(files.backup), "backup");
}

TEST_F(RegistryCopy, CopyHasTheRegistrysPermissionsWhateverTheUmask) {
  const Umask narrow(077);
  for (const mode_t mode : {0644u, 0600u, 0666u, 0604u, 0400u, 04755u, 02664u}) {
    ASSERT_EQ(chmod(files.registry.c_str(), mode), 0);
    PlainRegistry registry(files.registry);
    ASSERT_EQ(registry.OpenReg(kGenRegChange), 0u) << std::oct << mode;
    EXPECT_EQ(vrxtest::modeOf(files.temporary), static_cast<int>(mode));
  }
}

TEST_F(RegistryCopy, CopyIsPrivateUntilItHasItsPermissions) {
  const Umask wide(0);
  ASSERT_EQ(chmod(files.registry.c_str(), 0666), 0);
  PlainRegistry registry(files.registry);
  const BeforeCall look(Call::kFchmod, 1,
                        [&] { EXPECT_EQ(vrxtest::modeOf(files.temporary), 0600); });
  EXPECT_EQ(registry.OpenReg(kGenRegChange), 0u);
  EXPECT_TRUE(look.fired());
  EXPECT_EQ(vrxtest::modeOf(files.temporary), 0666);
}

TEST_F(RegistryCopy, ReadingBackGivesTheCopyTheRegistrysPermissions) {
  writeFile(files.temporary, "copy");
  ASSERT_EQ(chmod(files.registry.c_str(), 0640), 0);
  EXPECT_EQ(open(kGenRegVerify), 0u);
  EXPECT_EQ(vrxtest::modeOf(files.temporary), 0640);
}

TEST_F(RegistryCopy, CopyHasTheRegistrysOwnerAndGroup) {
  if (geteuid() != 0) GTEST_SKIP() << "takes root to give files away";
  ASSERT_EQ(chown(files.registry.c_str(), 1234, 2345), 0);
  ASSERT_EQ(chmod(files.registry.c_str(), 06751), 0);
  PlainRegistry registry(files.registry);
  ASSERT_EQ(registry.OpenReg(kGenRegDelete), 0u);
  const struct stat copy = infoOf(files.temporary);
  EXPECT_EQ(copy.st_uid, 1234u);
  EXPECT_EQ(copy.st_gid, 2345u);
  EXPECT_EQ(copy.st_mode & 07777u, 06751u) << "a change of owner clears set-id bits";
}

TEST_F(RegistryCopy, CopyHasTheRegistrysExtendedAttributes) {
  if (setxattr(files.registry.c_str(), "user.note", "kept", 4, 0) != 0) {
    GTEST_SKIP() << "no extended attributes here";
  }
  PlainRegistry registry(files.registry);
  ASSERT_EQ(registry.OpenReg(kGenRegChange), 0u);
  char value[10] = {};
  EXPECT_EQ(getxattr(files.temporary.c_str(), "user.note", value, sizeof value), 4);
  EXPECT_STREQ(value, "kept");
}

TEST_F(RegistryCopy, OwnerThatCannotBeGivenIsNoFailure) {
  if (geteuid() != 0) GTEST_SKIP() << "takes root to give root up";
  ASSERT_EQ(chmod(folder.path().c_str(), 0777), 0);
  vrxtest::inChildProcess([&] {
    ASSERT_EQ(setreuid(65534, 65534), 0);
    PlainRegistry registry(files.registry);
    ASSERT_EQ(registry.OpenReg(kGenRegChange), 0u);
    EXPECT_EQ(infoOf(files.temporary).st_uid, 65534u);
    EXPECT_EQ(vrxtest::modeOf(files.temporary), 0644);
  });
}

// What may be planted at the leftovers' paths.
// Its frames would stand behind a header that nothing has checked.
TEST_F(RegistryCopy, ReadingBackACopyWithAHeaderEmptiesIt) {
  writeFile(files.temporary, "copy");
  PlainRegistry registry(files.registry, kGenRegVerifyCommit | kGenRegChecksumHeader);
  {
    const FailCall fault(Call::kFtruncate, 1, EIO);
    EXPECT_EQ(registry.OpenReg(kGenRegVerify), 0x900001C0u);
    EXPECT_EQ(registry.temporaryStream, nullptr);
  }
  EXPECT_EQ(readFile(files.temporary), "copy");
  ASSERT_EQ(registry.OpenReg(kGenRegVerify), 0u);
  EXPECT_EQ(readFile(files.temporary), "");
}

TEST_F(RegistryCopy, PlantedLinkAtTheCopyIsSetAsideUnfollowed) {
  writeFile(folder.file("victim"), "precious");
  for (const char* target : {"victim", "missing"}) {
    (void)unlink(files.temporary.c_str());
    ASSERT_EQ(symlink(target, files.temporary.c_str()), 0);
    EXPECT_EQ(open(kGenRegChange), 0u);
    EXPECT_TRUE(S_ISREG(infoOf(files.temporary).st_mode));
    EXPECT_TRUE(S_ISLNK(infoOf(files.corrupt).st_mode)) << "the link itself was moved";
  }
  EXPECT_EQ(readFile(folder.file("victim")), "precious");
  EXPECT_FALSE(pathExists(folder.file("missing")));
}

TEST_F(RegistryCopy, PlantedHardLinkAtTheCopyKeepsItsContents) {
  writeFile(folder.file("victim"), "precious");
  ASSERT_EQ(chmod(folder.file("victim").c_str(), 0600), 0);
  ASSERT_EQ(link(folder.file("victim").c_str(), files.temporary.c_str()), 0);
  EXPECT_EQ(open(kGenRegChange), 0u);
  EXPECT_EQ(open(kGenRegChange), 0u);
  EXPECT_EQ(readFile(folder.file("victim")), "precious");
  EXPECT_EQ(vrxtest::modeOf(folder.file("victim")), 0600);
}

TEST_F(RegistryCopy, PlantedFifoAndDirectoryAtTheCopyAreSetAside) {
  ASSERT_EQ(mkfifo(files.temporary.c_str(), 0600), 0);
  EXPECT_EQ(open(kGenRegChange), 0u);
  EXPECT_TRUE(S_ISFIFO(infoOf(files.corrupt).st_mode));
  ASSERT_EQ(unlink(files.temporary.c_str()), 0);
  ASSERT_EQ(mkdir(files.temporary.c_str(), 0700), 0);
  EXPECT_EQ(open(kGenRegChange), 0u) << "the FIFO is deleted, the directory moved";
  EXPECT_TRUE(S_ISDIR(infoOf(files.corrupt).st_mode));
}

TEST_F(RegistryCopy, DirectoryAtTheCorruptCopyIsReported) {
  ASSERT_EQ(mkdir(files.corrupt.c_str(), 0700), 0);
  writeFile(files.temporary, "leftover");
  for (const unsigned mode : kUpdates)
    EXPECT_EQ(open(mode), 0x90000225u) << mode;
  EXPECT_EQ(readFile(files.temporary), "leftover");
}

TEST_F(RegistryCopy, PlantedLinkAtTheCorruptCopyIsDeletedItself) {
  writeFile(folder.file("victim"), "precious");
  ASSERT_EQ(symlink("victim", files.corrupt.c_str()), 0);
  EXPECT_EQ(open(kGenRegChange), 0u);
  EXPECT_FALSE(pathExists(files.corrupt));
  ASSERT_EQ(symlink("missing", files.corrupt.c_str()), 0);
  writeFile(files.temporary, "leftover");
  EXPECT_EQ(open(kGenRegChange), 0u);
  EXPECT_TRUE(S_ISREG(infoOf(files.corrupt).st_mode));
  EXPECT_EQ(readFile(folder.file("victim")), "precious");
}

TEST_F(RegistryCopy, ReadingBackNeverFollowsALinkOrWaitsForAPipe) {
  writeFile(folder.file("victim"), "precious");
  ASSERT_EQ(chmod(folder.file("victim").c_str(), 0600), 0);
  ASSERT_EQ(symlink("victim", files.temporary.c_str()), 0);
  EXPECT_EQ(open(kGenRegVerify), 0x900001C0u);
  EXPECT_EQ(vrxtest::modeOf(folder.file("victim")), 0600);
  ASSERT_EQ(unlink(files.temporary.c_str()), 0);
  ASSERT_EQ(mkfifo(files.temporary.c_str(), 0600), 0);
  EXPECT_EQ(open(kGenRegVerify), 0x900001C0u);
  ASSERT_EQ(unlink(files.temporary.c_str()), 0);
  ASSERT_EQ(mkdir(files.temporary.c_str(), 0700), 0);
  EXPECT_EQ(open(kGenRegVerify), 0x900001C0u);
}

TEST_F(RegistryCopy, ReadingBackRefusesACopyWithASecondName) {
  for (const unsigned features : {0x1u, 0x101u}) {
    writeFile(folder.file("victim"), "precious");
    ASSERT_EQ(chmod(folder.file("victim").c_str(), 0600), 0);
    ASSERT_EQ(link(folder.file("victim").c_str(), files.temporary.c_str()), 0);
    PlainRegistry registry(files.registry, features);
    EXPECT_EQ(registry.OpenReg(kGenRegVerify), 0x900001C0u);
    EXPECT_EQ(readFile(folder.file("victim")), "precious");
    EXPECT_EQ(vrxtest::modeOf(folder.file("victim")), 0600);
    ASSERT_EQ(unlink(files.temporary.c_str()), 0);
  }
}

TEST_F(RegistryCopy, FilePlantedBetweenSettingAsideAndCreationIsRefused) {
  writeFile(folder.file("victim"), "precious");
  const BeforeCall plant(Call::kOpen, 2, [&] {
    ASSERT_EQ(link(folder.file("victim").c_str(), files.temporary.c_str()), 0);
  });
  EXPECT_EQ(open(kGenRegChange), 0x900001C0u);
  EXPECT_TRUE(plant.fired());
  EXPECT_EQ(readFile(folder.file("victim")), "precious");
}

TEST_F(RegistryCopy, NewFilePlantedBetweenSettingAsideAndCreationIsRefusedAndStays) {
  const BeforeCall plant(Call::kOpen, 2, [&] { writeFile(files.temporary, "planted"); });
  EXPECT_EQ(open(kGenRegChange), 0x900001C0u);
  EXPECT_EQ(readFile(files.temporary), "planted");
}

TEST_F(RegistryCopy, LinkPlantedBetweenSettingAsideAndCreationIsRefused) {
  const BeforeCall plant(Call::kOpen, 2,
                         [&] { ASSERT_EQ(symlink("victim", files.temporary.c_str()), 0); });
  EXPECT_EQ(open(kGenRegChange), 0x900001C0u);
  EXPECT_FALSE(pathExists(folder.file("victim")));
}

// A call that fails on the way to the copy, what OpenReg reports, and whether a copy that this call
// created stays for the caller to delete.
enum class CopyStays { kNo, kYes };
struct CopyFault {
  Call call;
  int nth;
  GenRegStatus expected;
  CopyStays stays;
};
constexpr CopyFault kCopyFaults[] = {
    {Call::kFstat, 2, 0x90000256u, CopyStays::kNo},
    {Call::kOpen, 2, 0x900001C0u, CopyStays::kNo},
    {Call::kFstat, 3, 0x900001C0u, CopyStays::kNo},
    {Call::kFdopen, 2, 0x900001C0u, CopyStays::kNo},
    {Call::kFchmod, 1, 0x90000257u, CopyStays::kYes},
};

TEST_F(RegistryCopy, EveryFailureOfTheCopyIsReported) {
  for (const CopyFault& row : kCopyFaults) {
    for (const unsigned mode : kUpdates) {
      (void)unlink(files.temporary.c_str());
      PlainRegistry registry(files.registry);
      const FailCall fault(row.call, row.nth, EIO);
      EXPECT_EQ(registry.OpenReg(mode), row.expected) << static_cast<int>(row.call);
      EXPECT_TRUE(fault.fired()) << static_cast<int>(row.call);
      EXPECT_NE(registry.registryStream, nullptr) << "open until CloseReg";
      EXPECT_EQ(registry.temporaryStream != nullptr, row.stays == CopyStays::kYes);
      EXPECT_EQ(pathExists(files.temporary), row.stays == CopyStays::kYes);
      EXPECT_EQ(registry.CloseReg(kGenRegRead), 0u);
      EXPECT_EQ(registry.registryStream, nullptr);
      EXPECT_EQ(registry.temporaryStream, nullptr);
    }
  }
  EXPECT_EQ(readFile(files.registry), "old");
}

TEST_F(RegistryCopy, EveryFailureOfReadingBackIsReportedAndKeepsTheCopy) {
  for (const CopyFault& row : kCopyFaults) {
    writeFile(files.temporary, "copy");
    ASSERT_EQ(chmod(files.temporary.c_str(), 0600), 0);
    PlainRegistry registry(files.registry);
    const FailCall fault(row.call, row.nth, EIO);
    EXPECT_EQ(registry.OpenReg(kGenRegVerify), row.expected) << static_cast<int>(row.call);
    EXPECT_TRUE(fault.fired()) << static_cast<int>(row.call);
    EXPECT_EQ(readFile(files.temporary), "copy");
  }
}

TEST_F(RegistryCopy, LeftoverThatCannotBeMovedIsReported) {
  writeFile(files.temporary, "leftover");
  const FailCall fault(Call::kRename, 1, EACCES);
  EXPECT_EQ(open(kGenRegChange), 0x90000224u);
  EXPECT_EQ(readFile(files.temporary), "leftover");
}

TEST_F(RegistryCopy, CorruptCopyThatCannotBeDeletedIsReported) {
  writeFile(files.corrupt, "older");
  const FailCall fault(Call::kUnlink, 1, EACCES);
  EXPECT_EQ(open(kGenRegChange), 0x90000225u);
  EXPECT_EQ(readFile(files.corrupt), "older");
}

TEST_F(RegistryCopy, LeftoversOfAnotherUserInAStickyFolderAreReported) {
  if (geteuid() != 0) GTEST_SKIP() << "takes root to give root up";
  ASSERT_EQ(chmod(folder.path().c_str(), 01777), 0);
  writeFile(files.temporary, "leftover");
  vrxtest::inChildProcess([&] {
    ASSERT_EQ(setreuid(65534, 65534), 0);
    EXPECT_EQ(open(kGenRegChange), 0x90000224u);
  });
  ASSERT_EQ(unlink(files.temporary.c_str()), 0);
  writeFile(files.corrupt, "older");
  vrxtest::inChildProcess([&] {
    ASSERT_EQ(setreuid(65534, 65534), 0);
    EXPECT_EQ(open(kGenRegChange), 0x90000225u);
  });
}

}  // namespace
