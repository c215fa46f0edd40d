// SPDX-License-Identifier: Apache-2.0
// CloseReg: when a temporary copy is committed, in which steps, and what each failure leaves. The
// append in place is in registry_append_test.cpp.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <string>
#include <vector>

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
using vrxtest::CallCount;
using vrxtest::FailCall;
using vrxtest::LeakCheck;
using vrxtest::pathExists;
using vrxtest::PlainFiles;
using vrxtest::PlainRegistry;
using vrxtest::readFile;
using vrxtest::TempDir;
using vrxtest::writeFile;

constexpr unsigned kModes[] = {kGenRegRead, kGenRegChange, kGenRegAdd, kGenRegDelete,
                               kGenRegVerify};

class RegistryClose : public testing::Test {
 protected:
  RegistryClose() { writeFile(files.registry, "old"); }

  // Opens for an update and writes "new" into the copy, without flushing it.
  void beginUpdate(PlainRegistry& registry, unsigned mode = kGenRegChange) const {
    ASSERT_EQ(registry.OpenReg(mode), 0u);
    ASSERT_EQ(std::fwrite("new", 1, 3, registry.temporaryStream), 3u);
  }
  void expectOld() const { EXPECT_EQ(readFile(files.registry), "old"); }
  void expectCommitted() const {
    EXPECT_EQ(readFile(files.registry), "new");
    EXPECT_FALSE(pathExists(files.temporary));
    EXPECT_FALSE(pathExists(files.backup));
  }

  const LeakCheck leaks;
  const TempDir folder;
  const PlainFiles files{folder};
};

// The modes whose close commits, by feature bits.
struct CommitRow {
  unsigned features;
  unsigned committing;  // sum of the modes
};
constexpr CommitRow kCommitTable[] = {
    {0x0, kGenRegChange | kGenRegAdd | kGenRegDelete},
    {0x1, kGenRegVerify},
    {0x2, kGenRegChange | kGenRegDelete},
    {0x3, kGenRegVerify},
};

TEST_F(RegistryClose, CommitDependsOnModeAndFeaturesAlone) {
  for (const CommitRow& row : kCommitTable) {
    for (const unsigned mode : kModes) {
      writeFile(files.registry, "old");
      writeFile(files.temporary, "new");
      PlainRegistry registry(files.registry, row.features);
      EXPECT_EQ(registry.CloseReg(mode), 0u) << "no stream was open";
      const bool commits = (row.committing & mode) != 0;
      EXPECT_EQ(readFile(files.registry), commits ? "new" : "old") << row.features << mode;
      EXPECT_EQ(pathExists(files.temporary), !commits) << row.features << mode;
      EXPECT_FALSE(pathExists(files.backup));
    }
  }
}

TEST_F(RegistryClose, UpdateReplacesTheRegistry) {
  for (const unsigned mode : {kGenRegChange, kGenRegAdd, kGenRegDelete}) {
    writeFile(files.registry, "old");
    PlainRegistry registry(files.registry, 0);
    beginUpdate(registry, mode);
    EXPECT_EQ(registry.CloseReg(mode), 0u) << mode;
    expectCommitted();
  }
}

TEST_F(RegistryClose, VerifiedUpdateReplacesTheRegistryAtTheSecondClose) {
  PlainRegistry registry(files.registry, kGenRegVerifyCommit);
  beginUpdate(registry);
  EXPECT_EQ(registry.CloseReg(kGenRegChange), 0u);
  expectOld();
  EXPECT_EQ(readFile(files.temporary), "new");
  ASSERT_EQ(registry.OpenReg(kGenRegVerify), 0u);
  EXPECT_EQ(registry.CloseReg(kGenRegVerify), 0u);
  expectCommitted();
}

TEST_F(RegistryClose, AbandonedUpdateLeavesRegistryAndCopy) {
  PlainRegistry registry(files.registry, 0);
  beginUpdate(registry);
  EXPECT_EQ(registry.CloseReg(kGenRegRead), 0u);
  expectOld();
  EXPECT_EQ(readFile(files.temporary), "new") << "the next update sets it aside";
}

TEST_F(RegistryClose, ClosingWithoutAnythingOpenSucceeds) {
  PlainRegistry registry(files.registry);
  EXPECT_EQ(registry.CloseReg(kGenRegRead), 0u);
  EXPECT_EQ(registry.CloseReg(kGenRegChange), 0u);
  expectOld();
}

TEST_F(RegistryClose, OpenScanExcludesEveryMode) {
  PlainRegistry registry(files.registry, 0);
  writeFile(files.temporary, "new");
  ASSERT_EQ(registry.OpenScan(), 0u);
  for (const unsigned mode : kModes)
    EXPECT_EQ(registry.CloseReg(mode), 0x9000025Bu) << mode;
  EXPECT_NE(registry.registryStream, nullptr);
  expectOld();
}

TEST_F(RegistryClose, CommittedRegistryKeepsItsPermissions) {
  ASSERT_EQ(chmod(files.registry.c_str(), 0604), 0);
  PlainRegistry registry(files.registry, 0);
  beginUpdate(registry);
  EXPECT_EQ(registry.CloseReg(kGenRegChange), 0u);
  EXPECT_EQ(vrxtest::modeOf(files.registry), 0604);
}

TEST_F(RegistryClose, ReaderKeepsTheOldContentsThroughTheCommit) {
  PlainRegistry reader(files.registry, 0);
  ASSERT_EQ(reader.OpenScan(), 0u);
  PlainRegistry registry(files.registry, 0);
  beginUpdate(registry);
  EXPECT_EQ(registry.CloseReg(kGenRegChange), 0u);
  char bytes[4] = {};
  EXPECT_EQ(std::fread(bytes, 1, sizeof bytes, reader.registryStream), 3u);
  EXPECT_STREQ(bytes, "old");
  expectCommitted();
}

TEST_F(RegistryClose, BackupOfADeadUpdateIsReplaced) {
  writeFile(files.backup, "stale");
  PlainRegistry registry(files.registry, 0);
  beginUpdate(registry);
  const BeforeCall look(Call::kRename, 1, [&] { EXPECT_EQ(readFile(files.backup), "old"); });
  EXPECT_EQ(registry.CloseReg(kGenRegChange), 0u);
  EXPECT_TRUE(look.fired());
  expectCommitted();
}

TEST_F(RegistryClose, PlantedBackupLinkIsRemovedUnfollowed) {
  writeFile(folder.file("victim"), "precious");
  ASSERT_EQ(symlink("victim", files.backup.c_str()), 0);
  PlainRegistry registry(files.registry, 0);
  beginUpdate(registry);
  EXPECT_EQ(registry.CloseReg(kGenRegChange), 0u);
  expectCommitted();
  EXPECT_EQ(readFile(folder.file("victim")), "precious");
}

TEST_F(RegistryClose, LinkToTheRegistryStaysALink) {
  const PlainFiles real(folder, "real");
  writeFile(real.registry, "old");
  ASSERT_EQ(unlink(files.registry.c_str()), 0);
  ASSERT_EQ(symlink("real", files.registry.c_str()), 0);
  PlainRegistry registry(files.registry, 0);
  beginUpdate(registry);
  EXPECT_EQ(registry.CloseReg(kGenRegChange), 0u);
  struct stat info {};
  ASSERT_EQ(lstat(files.registry.c_str(), &info), 0);
  EXPECT_TRUE(S_ISLNK(info.st_mode));
  EXPECT_EQ(readFile(real.registry), "new");
  EXPECT_FALSE(pathExists(real.backup));
}

// What stands at the registry's paths at one moment: contents, "-" for nothing.
std::string onDisk(const PlainFiles& files) {
  std::string all;
  for (const std::string& path : {files.registry, files.temporary, files.backup}) {
    all += (all.empty() ? "" : " ") + (pathExists(path) ? readFile(path) : "-");
  }
  return all;
}

TEST_F(RegistryClose, StepsOfACommitLeaveTheDocumentedFiles) {
  PlainRegistry registry(files.registry, 0);
  beginUpdate(registry);
  std::vector<std::string> seen;
  const auto note = [&] { seen.push_back(onDisk(files)); };
  const BeforeCall flush(Call::kFflush, 1, note);
  const BeforeCall copySync(Call::kFsync, 1, note);
  const BeforeCall backup(Call::kLink, 1, note);
  const BeforeCall replace(Call::kRename, 1, note);
  const BeforeCall directorySync(Call::kFsync, 2, note);
  const BeforeCall tidy(Call::kUnlink, 2, note);
  EXPECT_EQ(registry.CloseReg(kGenRegChange), 0u);
  note();
  const std::vector<std::string> expected = {
      "old  -",       // the copy's bytes are in the stream
      "old new -",    // written, not yet on the medium
      "old new -",    // the copy is durable
      "old new old",  // the old contents have a second name
      "new - old",    // replaced, not yet durable
      "new - old",    // the new name is durable
      "new - -",
  };
  EXPECT_EQ(seen, expected);
}

TEST_F(RegistryClose, CommitHasExactlyTwoSyncs) {
  PlainRegistry registry(files.registry, 0);
  beginUpdate(registry);
  const CallCount syncs(Call::kFsync);
  EXPECT_EQ(registry.CloseReg(kGenRegChange), 0u);
  EXPECT_EQ(syncs.calls(), 2);
}

TEST_F(RegistryClose, VerifiedCommitHasExactlyTwoSyncsToo) {
  PlainRegistry registry(files.registry);
  beginUpdate(registry);
  const CallCount syncs(Call::kFsync);
  EXPECT_EQ(registry.CloseReg(kGenRegChange), 0u);
  EXPECT_EQ(syncs.calls(), 1);
  ASSERT_EQ(registry.OpenReg(kGenRegVerify), 0u);
  EXPECT_EQ(registry.CloseReg(kGenRegVerify), 0u);
  EXPECT_EQ(syncs.calls(), 2);
}

TEST_F(RegistryClose, AbandoningSyncsNothing) {
  PlainRegistry registry(files.registry, 0);
  beginUpdate(registry);
  const CallCount syncs(Call::kFsync);
  EXPECT_EQ(registry.CloseReg(kGenRegRead), 0u);
  EXPECT_EQ(syncs.calls(), 0);
}

TEST_F(RegistryClose, SyncingCanBeTurnedOffForBulkWork) {
  const vrxtest::SyncPolicy none(OSSSyncPolicy::none);
  PlainRegistry registry(files.registry, 0);
  beginUpdate(registry);
  const CallCount syncs(Call::kFsync);
  EXPECT_EQ(registry.CloseReg(kGenRegChange), 0u);
  EXPECT_EQ(syncs.calls(), 0);
  expectCommitted();
}

TEST_F(RegistryClose, FullPolicyHasTheBackupsNameOnDiskBeforeTheRename) {
  const vrxtest::SyncPolicy full(OSSSyncPolicy::full);
  PlainRegistry registry(files.registry, 0);
  beginUpdate(registry);
  std::string seen;
  const BeforeCall directorySync(Call::kFsync, 2, [&] { seen = onDisk(files); });
  const CallCount syncs(Call::kFsync);
  EXPECT_EQ(registry.CloseReg(kGenRegChange), 0u);
  EXPECT_EQ(seen, "old new old");
  EXPECT_EQ(syncs.calls(), 3);
  expectCommitted();
}

TEST_F(RegistryClose, BackupWhoseNameIsNotOnDiskStopsTheCommitOfTheFullPolicy) {
  const vrxtest::SyncPolicy full(OSSSyncPolicy::full);
  PlainRegistry registry(files.registry, 0);
  beginUpdate(registry);
  const FailCall fault(Call::kFsync, 2, EIO);
  EXPECT_EQ(registry.CloseReg(kGenRegChange), 0x900001E1u);
  expectOld();
}

TEST_F(RegistryClose, BackupIsTheOldRegistryItself) {
  struct stat before {};
  struct stat during {};
  ASSERT_EQ(stat(files.registry.c_str(), &before), 0);
  PlainRegistry registry(files.registry, 0);
  beginUpdate(registry);
  const BeforeCall look(Call::kRename, 1,
                        [&] { ASSERT_EQ(stat(files.backup.c_str(), &during), 0); });
  EXPECT_EQ(registry.CloseReg(kGenRegChange), 0u);
  EXPECT_EQ(during.st_ino, before.st_ino);
}

// A call that fails during CloseReg(2) of an update without verification, the status, and what is
// then on disk.
struct CloseFault {
  Call call;
  int nth;
  GenRegStatus expected;
  const char* onDisk;
};
constexpr CloseFault kCloseFaults[] = {
    {Call::kFclose, 1, 0x900001C7u, "old  -"},
    {Call::kFflush, 1, 0x900001C8u, "old new -"},
    {Call::kFsync, 1, 0x900001C8u, "old new -"},
    {Call::kFclose, 2, 0x900001C8u, "old new -"},
    {Call::kLink, 1, 0x900001E1u, "old new -"},
    {Call::kRename, 1, 0x900001E2u, "old new old"},
    {Call::kDirectoryName, 1, 0x900003F6u, "new - old"},
    {Call::kOpen, 1, 0x900003F6u, "new - old"},
    {Call::kFsync, 2, 0x900003F6u, "new - old"},
    {Call::kUnlink, 2, 0x900003F6u, "new - old"},
};

TEST_F(RegistryClose, EveryFailureOfACommitIsReportedAndLeavesTheDocumentedFiles) {
  for (const CloseFault& row : kCloseFaults) {
    const LeakCheck none;
    (void)unlink(files.temporary.c_str());
    (void)unlink(files.backup.c_str());
    writeFile(files.registry, "old");
    const vrxtest::CapturedLog log;
    PlainRegistry registry(files.registry, 0);
    beginUpdate(registry);
    const FailCall fault(row.call, row.nth, EIO);
    EXPECT_EQ(registry.CloseReg(kGenRegChange), row.expected) << static_cast<int>(row.call);
    EXPECT_TRUE(fault.fired()) << static_cast<int>(row.call);
    EXPECT_EQ(onDisk(files), row.onDisk) << static_cast<int>(row.call) << '/' << row.nth;
    EXPECT_EQ(log.count(0x082A000E, row.expected), 1);
    EXPECT_EQ(registry.registryStream, nullptr);
  }
}

TEST_F(RegistryClose, UpdateAfterEveryFailureSucceeds) {
  for (const CloseFault& row : kCloseFaults) {
    writeFile(files.registry, "old");
    PlainRegistry registry(files.registry, 0);
    beginUpdate(registry);
    {
      const FailCall fault(row.call, row.nth, EIO);
      EXPECT_EQ(registry.CloseReg(kGenRegChange), row.expected);
    }
    beginUpdate(registry);
    EXPECT_EQ(registry.CloseReg(kGenRegChange), 0u) << static_cast<int>(row.call);
    expectCommitted();
  }
}

TEST_F(RegistryClose, RegistryThatCannotBeClosedLeavesTheCopyOpen) {
  PlainRegistry registry(files.registry, 0);
  beginUpdate(registry);
  {
    const FailCall fault(Call::kFclose, 1, EIO);
    EXPECT_EQ(registry.CloseReg(kGenRegChange), 0x900001C7u);
  }
  EXPECT_NE(registry.temporaryStream, nullptr);
  EXPECT_EQ(registry.CloseReg(kGenRegRead), 0u);
  EXPECT_EQ(registry.temporaryStream, nullptr);
  expectOld();
}

TEST_F(RegistryClose, FailedRenameSyncsNoDirectory) {
  PlainRegistry registry(files.registry, 0);
  beginUpdate(registry);
  const CallCount syncs(Call::kFsync);
  const FailCall fault(Call::kRename, 1, EIO);
  EXPECT_EQ(registry.CloseReg(kGenRegChange), 0x900001E2u);
  EXPECT_EQ(syncs.calls(), 1) << "the copy's";
}

TEST_F(RegistryClose, FailedSyncIsNotAskedAgain) {
  PlainRegistry registry(files.registry, 0);
  beginUpdate(registry);
  const FailCall fault(Call::kFsync, 1, EIO);
  EXPECT_EQ(registry.CloseReg(kGenRegChange), 0x900001C8u);
  EXPECT_EQ(fault.calls(), 1);
}

TEST_F(RegistryClose, InterruptedSyncIsRepeated) {
  PlainRegistry registry(files.registry, 0);
  beginUpdate(registry);
  const FailCall fault(Call::kFsync, 1, EINTR);
  EXPECT_EQ(registry.CloseReg(kGenRegChange), 0u);
  EXPECT_EQ(fault.calls(), 3);
  expectCommitted();
}

TEST_F(RegistryClose, MissingStaleBackupIsNoFailure) {
  PlainRegistry registry(files.registry, 0);
  beginUpdate(registry);
  const FailCall fault(Call::kUnlink, 1, ENOENT);
  EXPECT_EQ(registry.CloseReg(kGenRegChange), 0u);
}

TEST_F(RegistryClose, BackupThatCannotBeRemovedStopsTheCommit) {
  ASSERT_EQ(mkdir(files.backup.c_str(), 0755), 0);
  PlainRegistry registry(files.registry, 0);
  beginUpdate(registry);
  EXPECT_EQ(registry.CloseReg(kGenRegChange), 0x900001E1u);
  expectOld();
  EXPECT_EQ(readFile(files.temporary), "new");
}

TEST_F(RegistryClose, MissingCopyStopsTheCommitAndTheBackupStays) {
  PlainRegistry registry(files.registry);
  EXPECT_EQ(registry.CloseReg(kGenRegVerify), 0x900001E2u);
  expectOld();
  EXPECT_EQ(readFile(files.backup), "old");
}

TEST_F(RegistryClose, MissingRegistryStopsTheCommit) {
  writeFile(files.temporary, "new");
  ASSERT_EQ(unlink(files.registry.c_str()), 0);
  PlainRegistry registry(files.registry);
  EXPECT_EQ(registry.CloseReg(kGenRegVerify), 0x900001E1u);
  EXPECT_EQ(readFile(files.temporary), "new");
}

TEST_F(RegistryClose, WriteErrorBeforeTheCloseIsNotForgotten) {
  PlainRegistry registry(files.registry, 0);
  beginUpdate(registry);
  {
    const FailCall fault(Call::kFwrite, 1, ENOSPC);
    EXPECT_EQ(std::fwrite("more", 1, 4, registry.temporaryStream), 0u);
  }
  EXPECT_EQ(registry.CloseReg(kGenRegChange), 0x900001C8u);
  expectOld();
}

// A real limit of the system: files may not grow beyond `bytes`.
void limitFileSize(rlim_t bytes) {
  std::signal(SIGXFSZ, SIG_IGN);
  const rlimit limit = {bytes, bytes};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
}

TEST_F(RegistryClose, CopyThatCannotBeWrittenIsNotCommitted) {
  vrxtest::inChildProcess([&] {
    limitFileSize(2000);
    PlainRegistry registry(files.registry, 0);
    beginUpdate(registry);
    const std::string large(3000, 'x');
    EXPECT_EQ(std::fwrite(large.data(), 1, large.size(), registry.temporaryStream), large.size());
    EXPECT_EQ(registry.CloseReg(kGenRegChange), 0x900001C8u);
    EXPECT_EQ(registry.temporaryStream, nullptr);
  });
  expectOld();
}

TEST_F(RegistryClose, ForeignRegistryMayRefuseItsBackup) {
  if (geteuid() != 0) GTEST_SKIP() << "takes root to give root up";
  ASSERT_EQ(chmod(folder.path().c_str(), 01777), 0);
  ASSERT_EQ(chmod(files.registry.c_str(), 0666), 0);
  vrxtest::inChildProcess([&] {
    ASSERT_EQ(setreuid(65534, 65534), 0);
    PlainRegistry registry(files.registry, 0);
    beginUpdate(registry);
    EXPECT_EQ(registry.CloseReg(kGenRegChange), 0x900001E2u) << "the folder is sticky";
  });
  expectOld();
  EXPECT_EQ(readFile(files.backup), "old");
}

}  // namespace
