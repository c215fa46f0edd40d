// SPDX-License-Identifier: Apache-2.0
// The folder that a registry stands in: when it is made, and when the names that lead to it are put
// on disk.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <iterator>
#include <set>
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

// A child's result where the test's folder cannot be come to.
constexpr int kOutOfReach = 77;

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
std::multiset<std::string> openFolders() {
  std::multiset<std::string> folders;
  for (const fs::directory_entry& entry : fs::directory_iterator("/proc/self/fd")) {
    std::error_code ignored;  // the descriptor of this very loop is among them
    const fs::path target = fs::read_symlink(entry.path(), ignored);
    if (target.string().rfind("/proc/", 0) != 0 && fs::is_directory(target, ignored))
      folders.insert(target);
  }
  return folders;
}

// This folder and those above it on its file system that may be read, the nearest first.
std::vector<std::string> foldersUpwards(const std::string& folder) {
  struct stat own {};
  struct stat above {};
  EXPECT_EQ(stat(folder.c_str(), &own), 0);
  std::vector<std::string> found;
  for (fs::path path = folder; stat(path.c_str(), &above) == 0 && above.st_dev == own.st_dev;
       path = path.parent_path()) {
    if (access(path.c_str(), R_OK) == 0) found.push_back(path);
    if (path == path.root_path()) break;
  }
  return found;
}

class RegistryFolder : public testing::Test {
 protected:
  // The folders that an Add to this registry syncs, in their order.
  static std::vector<std::string> syncedByAdd(const std::string& registry, const char* name) {
    const std::multiset<std::string> before = openFolders();
    std::vector<std::string> synced;
    const auto note = [&] {
      const std::multiset<std::string> now = openFolders();
      std::set_difference(now.begin(), now.end(), before.begin(), before.end(),
                          std::back_inserter(synced));
    };
    const BeforeCall look(Call::kFsync, 1, note, Extent::kFromThenOn);
    EXPECT_EQ(addTo(registry, name), 0u);
    return synced;
  }
  // Those of a first record: the update's own comes last.
  static std::vector<std::string> expectedOf(const std::string& folder) {
    std::vector<std::string> expected = foldersUpwards(folder);
    expected.push_back(folder);
    return expected;
  }

  const LeakCheck leaks;
  const Umask mask{022};
  const TempDir dir;
  const std::string top = fs::canonical(dir.path());
};

TEST_F(RegistryFolder, FirstRecordHasEveryNameThatLeadsToItOnDisk) {
  const std::vector<std::string> synced = syncedByAdd(dir.file("a/b/reg"), "first");
  EXPECT_EQ(synced, expectedOf(top + "/a/b"));
  ASSERT_GE(synced.size(), 3u);
  EXPECT_EQ(synced[1], top + "/a");
  EXPECT_EQ(synced[2], top);
}

TEST_F(RegistryFolder, LaterRecordsSyncTheFolderOnly) {
  ASSERT_EQ(addTo(dir.file("a/reg"), "first"), 0u);
  EXPECT_EQ(syncedByAdd(dir.file("a/reg"), "second"), std::vector<std::string>{top + "/a"});
}

TEST_F(RegistryFolder, FoldersThatStoodThereAreSyncedForTheFirstRecordToo) {
  ASSERT_EQ(mkdir(dir.file("made").c_str(), 0755), 0);
  EXPECT_EQ(syncedByAdd(dir.file("made/reg"), "first"), expectedOf(top + "/made"));
}

TEST_F(RegistryFolder, RegistryThatAScanHasMadeHasItsFirstRecordStillToCome) {
  ASSERT_EQ(mkdir(dir.file("a").c_str(), 0755), 0);
  PlainRegistry registry(dir.file("a/reg"));
  ASSERT_EQ(registry.OpenScan(), 0u);
  ASSERT_EQ(registry.CloseScan(), 0u);
  EXPECT_EQ(syncedByAdd(dir.file("a/reg"), "first"), expectedOf(top + "/a"));
}

TEST_F(RegistryFolder, OfALinkTheRealFoldersNamesAreSynced) {
  ASSERT_EQ(mkdir(dir.file("elsewhere").c_str(), 0755), 0);
  ASSERT_EQ(mkdir(dir.file("elsewhere/real").c_str(), 0755), 0);
  ASSERT_EQ(symlink("elsewhere/real", dir.file("link").c_str()), 0);
  EXPECT_EQ(syncedByAdd(dir.file("link/reg"), "first"), expectedOf(top + "/elsewhere/real"));
}

TEST_F(RegistryFolder, AppendInPlaceHasTheRegistrysOwnNameOnDiskToo) {
  PlainRegistry registry(dir.file("a/reg"), kGenRegDuplicates);
  const CallCount syncs(Call::kFsync);
  ASSERT_EQ(add(registry, "first"), 0u);
  const int first = syncs.calls();
  EXPECT_EQ(first, static_cast<int>(foldersUpwards(top + "/a").size()) + 1);
  ASSERT_EQ(add(registry, "second"), 0u);
  EXPECT_EQ(syncs.calls(), first + 1);
}

TEST_F(RegistryFolder, RelativePathDeeperThanAPathMayBeIsWritten) {
  const std::string name(200, 'd');
  const int result = osstest::inChild([&] {
    if (chdir(top.c_str()) != 0) return 2;
    for (int depth = 0; depth < 25; ++depth) {
      if (mkdir(name.c_str(), 0755) != 0 || chdir(name.c_str()) != 0) return 3;
    }
    return addTo("a/reg", "first") == 0 ? 0 : 1;
  });
  EXPECT_EQ(result, 0);
}

TEST_F(RegistryFolder, WayUpEndsWhereItsPathHasNoMoreRoom) {
  constexpr int kDepth = 1400;
  const int result = osstest::inChild([&] {
    if (chdir(top.c_str()) != 0) return 2;
    for (int depth = 0; depth < kDepth; ++depth) {
      if (mkdir("d", 0755) != 0 || chdir("d") != 0) return 3;
    }
    PlainRegistry registry("reg");
    const FailCall unsynced(Call::kFsync, 1, EACCES, Extent::kFromThenOn);  // not for their sake
    const bool opened = registry.OpenReg(kGenRegAdd) == 0 && registry.CloseReg(kGenRegRead) == 0;
    if (unlink("reg") != 0 || unlink("reg.tmp") != 0) return 4;
    for (int depth = 0; depth < kDepth; ++depth) {
      if (chdir("..") != 0 || rmdir("d") != 0) return 5;
    }
    return opened && unsynced.calls() > 1000 && unsynced.calls() < kDepth ? 0 : 1;
  });
  EXPECT_EQ(result, 0);
}

TEST_F(RegistryFolder, FailedSyncAboveFailsTheAddAndIsAskedForAgainByTheNext) {
  {
    const FailCall fault(Call::kFsync, 1, EIO);
    EXPECT_NE(addTo(dir.file("a/reg"), "first"), 0u);
    EXPECT_TRUE(fault.fired());
  }
  EXPECT_EQ(syncedByAdd(dir.file("a/reg"), "first"), expectedOf(top + "/a"));
}

// Opens an empty registry for its first record.
class RegistryFolderOpen : public RegistryFolder {
 protected:
  RegistryFolderOpen() {
    EXPECT_EQ(mkdir(dir.file("a").c_str(), 0755), 0);
    vrxtest::writeFile(dir.file("a/reg"), "");
  }
  ~RegistryFolderOpen() override { EXPECT_EQ(registry.CloseReg(kGenRegRead), 0u); }

  PlainRegistry registry{dir.file("a/reg")};
};

TEST_F(RegistryFolderOpen, FailedSyncAboveIsARegistryThatCannotBeOpened) {
  const FailCall fault(Call::kFsync, 1, EIO);
  EXPECT_EQ(registry.OpenReg(kGenRegAdd), 0x900001BFu);
  EXPECT_TRUE(fault.fired());
}

TEST_F(RegistryFolderOpen, SoIsOneWhoseFolderCannotBeNamed) {
  const FailCall fault(Call::kDirectoryName, 1, EIO);
  EXPECT_EQ(registry.OpenReg(kGenRegAdd), 0x900001BFu);
  EXPECT_TRUE(fault.fired());
}

TEST_F(RegistryFolderOpen, SoIsOneWhoseFolderOrOneAboveCannotBeLookedAt) {
  for (const int nth : {1, 2}) {
    const FailCall fault(Call::kStat, nth, EIO);
    EXPECT_EQ(registry.OpenReg(kGenRegAdd), 0x900001BFu);
    EXPECT_TRUE(fault.fired());
    EXPECT_EQ(registry.CloseReg(kGenRegRead), 0u);
  }
}

TEST_F(RegistryFolderOpen, SoIsOneWhoseFolderIsMovedAway) {
  const BeforeCall move(Call::kDirectoryName, 1,
                        [&] { fs::rename(dir.file("a"), dir.file("away")); });
  EXPECT_EQ(registry.OpenReg(kGenRegAdd), 0x900001BFu);
  EXPECT_TRUE(move.fired());
}

TEST_F(RegistryFolderOpen, FolderThatMayNotBeReadIsPassedOver) {
  for (const int error : {EACCES, EPERM}) {
    const FailCall fault(Call::kOpen, 3, error);  // the registry's and its folder's come first
    const CallCount syncs(Call::kFsync);
    EXPECT_EQ(registry.OpenReg(kGenRegAdd), 0u);
    EXPECT_TRUE(fault.fired());
    EXPECT_EQ(syncs.calls(), static_cast<int>(foldersUpwards(top + "/a").size()) - 1);
    EXPECT_EQ(registry.CloseReg(kGenRegRead), 0u);
  }
}

TEST_F(RegistryFolderOpen, FolderThatMayNotBePassedThroughEndsTheWayUp) {
  const FailCall fault(Call::kStat, 3, EACCES);
  const CallCount syncs(Call::kFsync);
  EXPECT_EQ(registry.OpenReg(kGenRegAdd), 0u);
  EXPECT_TRUE(fault.fired());
  EXPECT_EQ(syncs.calls(), 2);
}

TEST_F(RegistryFolder, FolderAboveThatMayNotBeReadIsPassedOver) {
  if (geteuid() != 0) GTEST_SKIP() << "giving up privileges needs privileges";
  const std::string registry = dir.file("a/reg");
  ASSERT_EQ(mkdir(dir.file("a").c_str(), 0777), 0);
  ASSERT_EQ(chmod(dir.file("a").c_str(), 0777), 0);
  ASSERT_EQ(chmod(dir.path().c_str(), 0711), 0);
  const int result = osstest::inChild([&] {
    if (setgid(65534) != 0 || setuid(65534) != 0) return 2;
    if (access(dir.path().c_str(), X_OK) != 0) return kOutOfReach;
    return addTo(registry, "first") == 0 ? 0 : 1;
  });
  if (result == kOutOfReach) GTEST_SKIP() << "the temporary folder is closed to others";
  EXPECT_EQ(result, 0);
}

TEST_F(RegistryFolder, RelativePathBelowAClosedFolderIsSyncedUpToIt) {
  if (geteuid() != 0) GTEST_SKIP() << "giving up privileges needs privileges";
  ASSERT_EQ(mkdir(dir.file("closed").c_str(), 0755), 0);
  ASSERT_EQ(mkdir(dir.file("closed/open").c_str(), 0777), 0);
  ASSERT_EQ(chmod(dir.file("closed/open").c_str(), 0777), 0);
  ASSERT_EQ(chmod(dir.file("closed").c_str(), 0700), 0);
  const int result = osstest::inChild([&] {
    if (chdir(dir.file("closed/open").c_str()) != 0) return 3;
    if (setgid(65534) != 0 || setuid(65534) != 0) return 2;
    const CallCount syncs(Call::kFsync);
    if (addTo("a/b/reg", "first") != 0) return 1;
    return syncs.calls() == 3 + kSyncsOfAnUpdate ? 0 : 4;  // b, a and open
  });
  EXPECT_EQ(result, 0);
}

TEST_F(RegistryFolder, PolicyNoneLooksAtNoFolderAbove) {
  const vrxtest::SyncPolicy none(OSSSyncPolicy::none);
  PlainRegistry registry(dir.file("reg"));
  const CallCount syncs(Call::kFsync);
  const CallCount looks(Call::kStat);
  EXPECT_EQ(registry.OpenReg(kGenRegAdd), 0u);
  EXPECT_EQ(registry.CloseReg(kGenRegRead), 0u);
  EXPECT_EQ(syncs.calls(), 0);
  EXPECT_EQ(looks.calls(), 1);  // for the folder of a missing registry
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

TEST_F(RegistryFolder, WayUpEndsAtTheRoot) {
  if (geteuid() != 0) GTEST_SKIP() << "another root needs privileges";
  const int result = osstest::inChild([&] {
    if (chroot(dir.path().c_str()) != 0 || chdir("/") != 0) return 2;
    const CallCount syncs(Call::kFsync);
    if (addTo("/a/reg", "first") != 0) return 1;
    return syncs.calls() == 2 + kSyncsOfAnUpdate ? 0 : 4;  // a and the root
  });
  EXPECT_EQ(result, 0);
}

// /var is a file system of its own there.
TEST_F(RegistryFolder, WayUpEndsWhereTheFileSystemIsMounted) {
  vrxtest::inPrivateMounts([] {
    const std::vector<std::string> expected = {"/var/vrx/a", "/var/vrx", "/var", "/var/vrx/a"};
    EXPECT_EQ(syncedByAdd("/var/vrx/a/reg", "first"), expected);
  });
}

}  // namespace
