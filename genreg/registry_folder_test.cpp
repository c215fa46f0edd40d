// SPDX-License-Identifier: Apache-2.0
// The folder that a registry stands in: when it is made, and when the names that lead to it are put
// on disk.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/faults.h"
#include "tests/support/leak_check.h"
#include "tests/support/plain_registry.h"
#include "tests/support/private_mounts.h"
#include "tests/support/process_settings.h"
#include "tests/support/temp_dir.h"
#include "tests/support/test_child.h"

namespace {

using namespace genreg;
using vrxtest::BeforeCall;
using vrxtest::Call;
using vrxtest::CallCount;
using vrxtest::Extent;
using vrxtest::FailCall;
using vrxtest::LeakCheck;
using vrxtest::plainRecord;
using vrxtest::PlainRecord;
using vrxtest::PlainRegistry;
using vrxtest::TempDir;
using vrxtest::Umask;

namespace fs = std::filesystem;

// Of every update: the copy, and the folder.
constexpr int kSyncsOfAnUpdate = 2;

GenRegStatus add(PlainRegistry& registry, const char* name) {
  PlainRecord record = plainRecord(name, 1);
  return statusOf(registry.Add(vrxtest::kPlainName, &record));
}

GenRegStatus addTo(const std::string& path, const char* name) {
  PlainRegistry registry(path);
  return add(registry, name);
}

// The folders that this process has open.
std::vector<std::string> openFolders() {
  std::vector<std::string> folders;
  for (const fs::directory_entry& entry : fs::directory_iterator("/proc/self/fd")) {
    std::error_code ignored;  // the descriptor of this very loop is among them
    const fs::path target = fs::read_symlink(entry.path(), ignored);
    if (target.string().rfind("/proc/", 0) != 0 && fs::is_directory(target, ignored))
      folders.push_back(target);
  }
  return folders;
}

// The folders above `folder` on its file system, the nearest first.
std::vector<std::string> foldersAbove(const std::string& folder) {
  struct stat own {};
  struct stat above {};
  EXPECT_EQ(stat(folder.c_str(), &own), 0);
  std::vector<std::string> found;
  for (fs::path path = folder; path != path.root_path();) {
    path = path.parent_path();
    if (stat(path.c_str(), &above) != 0 || above.st_dev != own.st_dev) break;
    found.push_back(path);
  }
  return found;
}

class RegistryFolder : public testing::Test {
 protected:
  // The folders that an Add to this registry syncs, in their order.
  static std::vector<std::string> syncedByAdd(const std::string& registry, const char* name) {
    std::vector<std::string> synced;
    const auto note = [&] {
      for (const std::string& folder : openFolders())
        synced.push_back(folder);
    };
    const BeforeCall look(Call::kFsync, 1, note, Extent::kFromThenOn);
    EXPECT_EQ(addTo(registry, name), 0u);
    return synced;
  }

  const LeakCheck leaks;
  const Umask mask{022};
  const TempDir dir;
  const std::string top = fs::canonical(dir.path());
};

TEST_F(RegistryFolder, FirstRecordHasTheNamesOfAllFoldersAboveOnDisk) {
  std::vector<std::string> expected = foldersAbove(top);
  expected.insert(expected.begin(), {top + "/a", top});
  expected.push_back(top + "/a/b");  // the update's own
  EXPECT_EQ(syncedByAdd(dir.file("a/b/reg"), "first"), expected);
}

TEST_F(RegistryFolder, LaterRecordsSyncTheFolderOnly) {
  ASSERT_EQ(addTo(dir.file("a/reg"), "first"), 0u);
  EXPECT_EQ(syncedByAdd(dir.file("a/reg"), "second"), std::vector<std::string>{top + "/a"});
}

TEST_F(RegistryFolder, FoldersThatStoodThereAreSyncedForTheFirstRecordToo) {
  ASSERT_EQ(mkdir(dir.file("made").c_str(), 0755), 0);
  std::vector<std::string> expected = foldersAbove(top);
  expected.insert(expected.begin(), top);
  expected.push_back(top + "/made");
  EXPECT_EQ(syncedByAdd(dir.file("made/reg"), "first"), expected);
}

TEST_F(RegistryFolder, RegistryThatAScanHasMadeHasItsFirstRecordStillToCome) {
  ASSERT_EQ(mkdir(dir.file("a").c_str(), 0755), 0);
  PlainRegistry registry(dir.file("a/reg"));
  ASSERT_EQ(registry.OpenScan(), 0u);
  ASSERT_EQ(registry.CloseScan(), 0u);
  const std::vector<std::string> synced = syncedByAdd(dir.file("a/reg"), "first");
  ASSERT_FALSE(synced.empty());
  EXPECT_EQ(synced.front(), top);
}

TEST_F(RegistryFolder, OfALinkTheRealFoldersNamesAreSynced) {
  ASSERT_EQ(mkdir(dir.file("elsewhere").c_str(), 0755), 0);
  ASSERT_EQ(mkdir(dir.file("elsewhere/real").c_str(), 0755), 0);
  ASSERT_EQ(symlink("elsewhere/real", dir.file("link").c_str()), 0);
  const std::vector<std::string> synced = syncedByAdd(dir.file("link/reg"), "first");
  ASSERT_GE(synced.size(), 2u);
  EXPECT_EQ(synced[0], top + "/elsewhere");
  EXPECT_EQ(synced[1], top);
}

TEST_F(RegistryFolder, FailedSyncAboveFailsTheAddAndIsAskedForAgainByTheNext) {
  {
    const FailCall fault(Call::kFsync, 1, EIO);
    EXPECT_NE(addTo(dir.file("a/reg"), "first"), 0u);
    EXPECT_TRUE(fault.fired());
  }
  const std::vector<std::string> synced = syncedByAdd(dir.file("a/reg"), "first");
  ASSERT_FALSE(synced.empty());
  EXPECT_EQ(synced.front(), top);
}

// Opens an empty registry for its first record.
class RegistryFolderOpen : public RegistryFolder {
 protected:
  RegistryFolderOpen() {
    EXPECT_EQ(mkdir(dir.file("a").c_str(), 0755), 0);
    vrxtest::writeFile(dir.file("a/reg"), "");
    EXPECT_EQ(registry.setRegistryPaths(dir.file("a/reg").c_str()), 0u);
  }
  ~RegistryFolderOpen() override { EXPECT_EQ(registry.CloseReg(kGenRegRead), 0u); }

  PlainRegistry registry{dir.file("reg")};
};

TEST_F(RegistryFolderOpen, FailedSyncAboveIsARegistryThatCannotBeOpened) {
  const FailCall fault(Call::kFsync, 1, EIO);
  EXPECT_EQ(registry.OpenReg(kGenRegAdd), 0x900001BFu);
  EXPECT_TRUE(fault.fired());
}

TEST_F(RegistryFolderOpen, SoIsOneWhoseFolderOrOneAboveCannotBeNamedOrLookedAt) {
  for (const Call call : {Call::kDirectoryName, Call::kStat}) {
    for (const int nth : {1, 2}) {
      const FailCall fault(call, nth, EIO);
      EXPECT_EQ(registry.OpenReg(kGenRegAdd), 0x900001BFu);
      EXPECT_TRUE(fault.fired());
      EXPECT_EQ(registry.CloseReg(kGenRegRead), 0u);
    }
  }
}

TEST_F(RegistryFolderOpen, SoIsOneWhoseFolderIsMovedAway) {
  const BeforeCall move(Call::kDirectoryName, 1,
                        [&] { fs::rename(dir.file("a"), dir.file("away")); });
  EXPECT_EQ(registry.OpenReg(kGenRegAdd), 0x900001BFu);
  EXPECT_TRUE(move.fired());
}

TEST_F(RegistryFolderOpen, FolderAboveThatMayNotBeOpenedOrLookedAtIsPassedOver) {
  for (const Call call : {Call::kOpen, Call::kStat}) {
    for (const int error : {EACCES, EPERM}) {
      const FailCall fault(call, 2, error);  // the first is the registry's, or its folder's
      const CallCount syncs(Call::kFsync);
      EXPECT_EQ(registry.OpenReg(kGenRegAdd), 0u);
      EXPECT_TRUE(fault.fired());
      EXPECT_EQ(syncs.calls(), static_cast<int>(foldersAbove(top).size()));
      EXPECT_EQ(registry.CloseReg(kGenRegRead), 0u);
    }
  }
}

TEST_F(RegistryFolder, FolderAboveThatMayNotBeReadIsPassedOver) {
  if (geteuid() != 0) GTEST_SKIP() << "giving up privileges needs privileges";
  const std::string registry = dir.file("a/reg");
  ASSERT_EQ(mkdir(dir.file("a").c_str(), 0777), 0);
  ASSERT_EQ(chmod(dir.file("a").c_str(), 0777), 0);
  ASSERT_EQ(chmod(dir.path().c_str(), 0711), 0);
  const int result = osstest::inChild([&] {
    if (setgid(65534) != 0 || setuid(65534) != 0) return 2;
    return addTo(registry, "first") == 0 ? 0 : 1;
  });
  EXPECT_EQ(result, 0);
}

TEST_F(RegistryFolder, RelativePathBelowAClosedFolderIsWrittenUnsynced) {
  if (geteuid() != 0) GTEST_SKIP() << "giving up privileges needs privileges";
  ASSERT_EQ(mkdir(dir.file("closed").c_str(), 0755), 0);
  ASSERT_EQ(mkdir(dir.file("closed/open").c_str(), 0777), 0);
  ASSERT_EQ(chmod(dir.file("closed/open").c_str(), 0777), 0);
  ASSERT_EQ(chmod(dir.file("closed").c_str(), 0700), 0);
  const int result = osstest::inChild([&] {
    if (chdir(dir.file("closed/open").c_str()) != 0) return 3;
    if (setgid(65534) != 0 || setuid(65534) != 0) return 2;
    return addTo("reg", "first") == 0 ? 0 : 1;
  });
  EXPECT_EQ(result, 0);
}

TEST_F(RegistryFolder, PolicyNoneSyncsNothingAbove) {
  const vrxtest::SyncPolicy none(OSSSyncPolicy::none);
  const CallCount syncs(Call::kFsync);
  EXPECT_EQ(addTo(dir.file("a/b/reg"), "first"), 0u);
  EXPECT_EQ(syncs.calls(), 0);
}

TEST_F(RegistryFolder, ChangeAndDeleteSyncNothingAbove) {
  ASSERT_EQ(addTo(dir.file("a/reg"), "first"), 0u);
  PlainRegistry registry(dir.file("a/reg"));
  PlainRecord key = plainRecord("first", 1);
  PlainRecord other = plainRecord("first", 2);
  const CallCount syncs(Call::kFsync);
  EXPECT_EQ(registry.Change(vrxtest::kPlainName, &key, &other), 0);
  EXPECT_EQ(syncs.calls(), kSyncsOfAnUpdate);
  EXPECT_EQ(registry.Delete(vrxtest::kPlainName, &key), 0);
  EXPECT_EQ(syncs.calls(), 2 * kSyncsOfAnUpdate);
}

// /var is a file system of its own there.
TEST_F(RegistryFolder, WayUpEndsWhereTheFileSystemIsMounted) {
  vrxtest::inPrivateMounts([] {
    const std::vector<std::string> expected = {"/var/vrx", "/var", "/var/vrx/a"};
    EXPECT_EQ(syncedByAdd("/var/vrx/a/reg", "first"), expected);
  });
}

}  // namespace
