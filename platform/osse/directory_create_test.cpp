// SPDX-License-Identifier: Apache-2.0
// Making folders with their parents: permissions, races, what stands in the way.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <string>
#include <thread>
#include <vector>

#include "platform/osse/errors.h"
#include "platform/osse/paths.h"
#include "tests/support/faults.h"
#include "tests/support/temp_dir.h"
#include "tests/support/test_child.h"

namespace {

using namespace oss;
using vrxtest::BeforeCall;
using vrxtest::Call;
using vrxtest::FailCall;
using vrxtest::modeOf;
using vrxtest::TempDir;

class Umask {
 public:
  explicit Umask(mode_t mask) : before_(umask(mask)) {}
  ~Umask() { umask(before_); }
  Umask(const Umask&) = delete;
  Umask& operator=(const Umask&) = delete;

 private:
  const mode_t before_;
};

TEST(OssDirectoryCreate, MakesParentsWithExactPermissionsWhateverTheUmask) {
  for (const mode_t mask : {mode_t{0}, mode_t{022}, mode_t{077}, mode_t{0777}}) {
    const TempDir dir;
    const Umask changed(mask);
    ASSERT_EQ(ossDirectoryCreate(dir.file("a/b/c").c_str(), 0755), status::ok);
    EXPECT_EQ(modeOf(dir.file("a")), 0755);
    EXPECT_EQ(modeOf(dir.file("a/b")), 0755);
    EXPECT_EQ(modeOf(dir.file("a/b/c")), 0755);
    EXPECT_EQ(modeOf(dir.path()), 0700);
  }
}

TEST(OssDirectoryCreate, AnExistingDirectoryKeepsItsPermissions) {
  const TempDir dir;
  ASSERT_EQ(mkdir(dir.file("a").c_str(), 0711), 0);
  EXPECT_EQ(ossDirectoryCreate(dir.file("a").c_str(), 0755), status::ok);
  EXPECT_EQ(ossDirectoryCreate(dir.file("a/b").c_str(), 0750), status::ok);
  EXPECT_EQ(modeOf(dir.file("a")), 0711);
  EXPECT_EQ(modeOf(dir.file("a/b")), 0750);
}

TEST(OssDirectoryCreate, KeepsAnInheritedSetGroupIdBit) {
  const TempDir dir;
  ASSERT_EQ(mkdir(dir.file("shared").c_str(), 0755), 0);
  ASSERT_EQ(chmod(dir.file("shared").c_str(), 02775), 0);
  const Umask changed(077);
  ASSERT_EQ(ossDirectoryCreate(dir.file("shared/a").c_str(), 0775), status::ok);
  EXPECT_EQ(modeOf(dir.file("shared/a")), 02775);
}

TEST(OssDirectoryCreate, SlashesAtTheEndAndInARowDoNotCount) {
  const TempDir dir;
  EXPECT_EQ(ossDirectoryCreate((dir.path() + "//a///b//").c_str(), 0755), status::ok);
  EXPECT_TRUE(ossIsDirectory(dir.file("a/b").c_str()));
  EXPECT_EQ(ossDirectoryCreate("/", 0755), status::ok);
}

TEST(OssDirectoryCreate, AFileOrADanglingLinkInTheWayFails) {
  const TempDir dir;
  vrxtest::writeFile(dir.file("file"), "x");
  ASSERT_EQ(symlink("nowhere", dir.file("dangling").c_str()), 0);
  EXPECT_EQ(ossDirectoryCreate(dir.file("file").c_str(), 0755), status::not_a_directory);
  EXPECT_EQ(ossDirectoryCreate(dir.file("file/a").c_str(), 0755), status::not_a_directory);
  EXPECT_EQ(ossDirectoryCreate(dir.file("dangling").c_str(), 0755), status::not_a_directory);
  EXPECT_EQ(ossDirectoryCreate(dir.file("dangling/a").c_str(), 0755), status::not_a_directory);
  EXPECT_EQ(vrxtest::readFile(dir.file("file")), "x");
}

TEST(OssDirectoryCreate, ALinkToADirectoryIsADirectory) {
  const TempDir dir;
  ASSERT_EQ(mkdir(dir.file("real").c_str(), 0755), 0);
  ASSERT_EQ(symlink("real", dir.file("link").c_str()), 0);
  EXPECT_EQ(ossDirectoryCreate(dir.file("link").c_str(), 0700), status::ok);
  EXPECT_EQ(ossDirectoryCreate(dir.file("link/a").c_str(), 0700), status::ok);
  EXPECT_TRUE(ossIsDirectory(dir.file("real/a").c_str()));
  EXPECT_EQ(modeOf(dir.file("real")), 0755);
}

TEST(OssDirectoryCreate, LongestNameSucceedsLongerOnesFail) {
  const TempDir dir;
  EXPECT_EQ(ossDirectoryCreate(dir.file(std::string(255, 'n')).c_str(), 0755), status::ok);
  EXPECT_EQ(ossDirectoryCreate(dir.file(std::string(256, 'n')).c_str(), 0755),
            status::buffer_too_small);
  std::string deep = dir.path();
  while (deep.size() < 4096)
    deep += "/d";
  EXPECT_EQ(ossDirectoryCreate(deep.c_str(), 0755), status::buffer_too_small);
  EXPECT_FALSE(vrxtest::pathExists(dir.file("d")));
}

TEST(OssDirectoryCreate, BadArgumentsMakeNothing) {
  const TempDir dir;
  EXPECT_EQ(ossDirectoryCreate(nullptr, 0755), status::invalid_argument);
  EXPECT_EQ(ossDirectoryCreate("", 0755), status::invalid_argument);
  EXPECT_EQ(ossDirectoryCreate(dir.file("a").c_str(), 010000), status::invalid_argument);
  EXPECT_FALSE(vrxtest::pathExists(dir.file("a")));
}

TEST(OssDirectoryCreate, WhatAnotherMakesInTheMeantimeIsLeftAsItIs) {
  const TempDir dir;
  const std::string path = dir.file("a");
  {
    const BeforeCall race(Call::kMkdir, 1, [&] { EXPECT_EQ(mkdir(path.c_str(), 0711), 0); });
    EXPECT_EQ(ossDirectoryCreate(path.c_str(), 0755), status::ok);
    EXPECT_TRUE(race.fired());
  }
  EXPECT_EQ(modeOf(path), 0711);
  ASSERT_EQ(rmdir(path.c_str()), 0);
  const BeforeCall race(Call::kMkdir, 1, [&] { vrxtest::writeFile(path, "x"); });
  EXPECT_EQ(ossDirectoryCreate(path.c_str(), 0755), status::not_a_directory);
  EXPECT_TRUE(race.fired());
}

TEST(OssDirectoryCreate, EachSystemErrorIsPassedOn) {
  const TempDir dir;
  const Umask changed(077);
  const int before = vrxtest::openDescriptorCount();
  for (const Call call : {Call::kMkdir, Call::kOpen, Call::kFstat, Call::kFchmod}) {
    const FailCall fault(call, 1, EIO);
    const std::string path = dir.file(std::to_string(static_cast<int>(call)));
    EXPECT_EQ(ossDirectoryCreate(path.c_str(), 0755), ossErrorMapSystem(EIO));
    EXPECT_TRUE(fault.fired());
  }
  EXPECT_EQ(vrxtest::openDescriptorCount(), before);
}

TEST(OssDirectoryCreate, ManyThreadsMakeTheSameFoldersAtOnce) {
  const TempDir dir;
  constexpr int kThreads = 8;
  for (int round = 0; round < 40; ++round) {
    const std::string path = dir.file(std::to_string(round) + "/b/c/d");
    std::atomic<int> arrived{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([&] {
        ++arrived;
        while (arrived < kThreads)
          std::this_thread::yield();
        EXPECT_EQ(ossDirectoryCreate(path.c_str(), 0755), status::ok);
      });
    }
    for (std::thread& thread : threads)
      thread.join();
    EXPECT_EQ(modeOf(path), 0755);
  }
}

TEST(OssDirectoryCreate, ADirectoryItsMakerMayNotReadGetsItsPermissions) {
  if (geteuid() != 0) GTEST_SKIP() << "giving up privileges needs privileges";
  const TempDir dir;
  ASSERT_EQ(chmod(dir.path().c_str(), 0777), 0);
  const std::string made = dir.file("made");
  const int result = osstest::inChild([&] {
    if (setgid(65534) != 0 || setuid(65534) != 0) return 2;
    umask(0777);
    return ossDirectoryCreate(made.c_str(), 0755) == status::ok ? 0 : 1;
  });
  EXPECT_EQ(result, 0);
  EXPECT_EQ(modeOf(made), 0755);
}

TEST(OssDirectoryCreate, AFolderThatRefusesNewNamesGivesItsSystemError) {
  if (geteuid() != 0) GTEST_SKIP() << "giving up privileges needs privileges";
  const TempDir dir;
  ASSERT_EQ(chmod(dir.path().c_str(), 0555), 0);
  const int result = osstest::inChild([&] {
    if (setgid(65534) != 0 || setuid(65534) != 0) return 2;
    const OSSStatus rc = ossDirectoryCreate(dir.file("a").c_str(), 0755);
    return rc == ossErrorMapSystem(EACCES) ? 0 : 1;
  });
  EXPECT_EQ(result, 0);
}

TEST(OssDirectoryCreate, FolderThatItsMakerMayNotReadGetsItsPermissionsByName) {
  const TempDir dir;
  const Umask changed(077);
  const FailCall fault(Call::kOpen, 1, EACCES);
  ASSERT_EQ(ossDirectoryCreate(dir.file("a").c_str(), 0755), status::ok);
  EXPECT_TRUE(fault.fired());
  EXPECT_EQ(modeOf(dir.file("a")), 0755);
}

TEST(OssDirectoryCreate, FolderThatCannotBeLookedAtByNameIsAFailure) {
  const TempDir dir;
  const FailCall unread(Call::kOpen, 1, EACCES);
  const FailCall unseen(Call::kLstat, 1, EIO);
  EXPECT_EQ(ossDirectoryCreate(dir.file("a").c_str(), 0755), ossErrorMapSystem(EIO));
  EXPECT_TRUE(unseen.fired());
}

TEST(OssDirectoryCreate, LinkPutInTheFoldersPlaceIsNotFollowedByName) {
  const TempDir dir;
  const std::string path = dir.file("a");
  ASSERT_EQ(mkdir(dir.file("other").c_str(), 0700), 0);
  const FailCall unread(Call::kOpen, 1, EACCES);
  const BeforeCall swap(Call::kLstat, 1, [&] {
    ASSERT_EQ(rmdir(path.c_str()), 0);
    ASSERT_EQ(symlink("other", path.c_str()), 0);
  });
  EXPECT_NE(ossDirectoryCreate(path.c_str(), 0755), status::ok);
  EXPECT_TRUE(swap.fired());
  EXPECT_EQ(modeOf(dir.file("other")), 0700);
}

TEST(OssDirectoryCreate, ParentThatTurnsIntoAFileIsNoDirectory) {
  const TempDir dir;
  const std::string parent = dir.file("a");
  const BeforeCall swap(Call::kMkdir, 2, [&] {
    ASSERT_EQ(rmdir(parent.c_str()), 0);
    vrxtest::writeFile(parent, "x");
  });
  EXPECT_EQ(ossDirectoryCreate((parent + "/b").c_str(), 0755), status::not_a_directory);
  EXPECT_TRUE(swap.fired());
}

}  // namespace
