// SPDX-License-Identifier: Apache-2.0
// Whole updates of every format, and what is known of a registry beside its contents: links, names,
// permissions, owners, attributes, paths. The steps by themselves are tested beside their sources.
#include <fcntl.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "tests/support/private_mounts.h"
#include "tests/surroundings/around.h"

namespace {

using namespace vrxtest;

constexpr unsigned kNobody = 65534;
constexpr char kAcl[] = "system.posix_acl_access";

struct stat infoOf(const std::string& path) {
  struct stat info {};
  EXPECT_EQ(lstat(path.c_str(), &info), 0) << path;
  return info;
}

std::string attributeOf(const std::string& path, const char* name) {
  char value[256];
  const ssize_t size = getxattr(path.c_str(), name, value, sizeof value);
  return size < 0 ? "absent" : std::string(value, static_cast<std::size_t>(size));
}

bool setAttribute(const std::string& path, const char* name, const std::string& value) {
  return setxattr(path.c_str(), name, value.data(), value.size(), 0) == 0;
}

// Owner and group may read and write, user 4321 too.
std::string aclBytes() {
  std::string bytes("\x02\0\0\0", 4);
  const auto entry = [&bytes](char tag, char permissions, unsigned id) {
    bytes += std::string{tag, '\0', permissions, '\0'};
    for (int shift = 0; shift < 32; shift += 8)
      bytes += static_cast<char>(id >> shift);
  };
  constexpr unsigned kNone = 0xFFFFFFFF;
  entry(0x01, 6, kNone);
  entry(0x02, 6, 4321);
  entry(0x04, 6, kNone);
  entry(0x10, 6, kNone);
  entry(0x20, 4, kNone);
  return bytes;
}

void becomeNobody() {
  ASSERT_EQ(setregid(kNobody, kNobody), 0);
  ASSERT_EQ(setreuid(kNobody, kNobody), 0);
}

// What others than root may do to a file that they may not write.
bool linksAreProtected() {
  std::ifstream setting("/proc/sys/fs/protected_hardlinks");
  int value = 0;
  return setting >> value && value != 0;
}

class Attributes : public Around {
 protected:
  // Everybody may make files here, and the lock file is not root's.
  void openToAll(mode_t mode) const {
    ASSERT_EQ(chmod(folder.path().c_str(), 0777), 0);
    ASSERT_EQ(chmod(path.c_str(), mode), 0);
    ASSERT_EQ(unlink(folder.file(".reg.lock").c_str()), 0);
  }
};

TEST_P(Attributes, LinksOfAChainStayAndTheirFoldersStayEmpty) {
  ASSERT_EQ(mkdir(folder.file("near").c_str(), 0755), 0);
  ASSERT_EQ(mkdir(folder.file("far").c_str(), 0755), 0);
  ASSERT_EQ(symlink("../far/second", folder.file("near/first").c_str()), 0);
  ASSERT_EQ(symlink(path.c_str(), folder.file("far/second").c_str()), 0);
  expectUpdates(subject, folder.file("near/first"));
  EXPECT_EQ(contentsOf(subject, path).records,
            contentsOf(subject, folder.file("near/first")).records);
  for (const char* name : {"near", "far"}) {
    const std::filesystem::directory_iterator entries(folder.file(name));
    EXPECT_EQ(std::distance(begin(entries), end(entries)), 1) << name;
  }
  EXPECT_TRUE(S_ISLNK(infoOf(folder.file("near/first")).st_mode));
  EXPECT_TRUE(S_ISLNK(infoOf(folder.file("far/second")).st_mode));
  EXPECT_TRUE(S_ISREG(infoOf(path).st_mode));
}

TEST_P(Attributes, CycleOfLinksIsNoRegistryAndStays) {
  const std::string first = folder.file("first");
  ASSERT_EQ(symlink("second", first.c_str()), 0);
  ASSERT_EQ(symlink("first", folder.file("second").c_str()), 0);
  for (const Kind kind : kKinds)
    EXPECT_EQ(update(subject, first, kind), 0x900001C5U);
  EXPECT_NE(lookUp(subject, first, "stwo"), 0U);
  EXPECT_EQ(contentsOf(subject, first).status, 0x900001BFU);
  EXPECT_TRUE(S_ISLNK(infoOf(first).st_mode));
  EXPECT_TRUE(S_ISLNK(infoOf(folder.file("second")).st_mode));
}

TEST_P(Attributes, SecondNameKeepsTheOldContents) {
  const std::string other = folder.file("other");
  ASSERT_EQ(link(path.c_str(), other.c_str()), 0);
  const std::string before = readFile(path);
  expectUpdates(subject, path);
  EXPECT_EQ(readFile(other), before);
  EXPECT_EQ(infoOf(path).st_nlink, 1U);
}

TEST_P(Attributes, OwnerGroupPermissionsAndAttributesStay) {
  if (geteuid() != 0) GTEST_SKIP() << "giving files away takes privileges";
  ASSERT_EQ(chown(path.c_str(), 1234, 2345), 0);
  ASSERT_EQ(chmod(path.c_str(), 06751), 0);
  const bool user = setAttribute(path, "user.note", "kept");
  const bool security = setAttribute(path, "security.vrxtest", "kept too");
  for (const Kind kind : kKinds) {
    ASSERT_EQ(update(subject, path, kind), 0U);
    EXPECT_EQ(infoOf(path).st_uid, 1234U);
    EXPECT_EQ(infoOf(path).st_gid, 2345U);
    EXPECT_EQ(modeOf(path), 06751);
    if (user) {
      EXPECT_EQ(attributeOf(path, "user.note"), "kept");
    }
    if (security) {
      EXPECT_EQ(attributeOf(path, "security.vrxtest"), "kept too");
    }
  }
  if (!user || !security) GTEST_SKIP() << "not all attributes are to be had here";
}

TEST_P(Attributes, AclStays) {
  if (!setAttribute(path, kAcl, aclBytes())) GTEST_SKIP() << "no ACLs here";
  const int mode = modeOf(path);
  for (const Kind kind : kKinds) {
    ASSERT_EQ(update(subject, path, kind), 0U);
    EXPECT_EQ(attributeOf(path, kAcl), aclBytes());
    EXPECT_EQ(modeOf(path), mode);
  }
}

TEST_P(Attributes, FolderThatGivesItsGroupGivesNoBits) {
  if (geteuid() != 0) GTEST_SKIP() << "giving files away takes privileges";
  ASSERT_EQ(chown(folder.path().c_str(), 0, 2345), 0);
  ASSERT_EQ(chmod(folder.path().c_str(), 02755), 0);
  ASSERT_EQ(chmod(path.c_str(), 0664), 0);
  const gid_t group = infoOf(path).st_gid;
  expectUpdates(subject, path);
  EXPECT_EQ(modeOf(path), 0664);
  EXPECT_EQ(infoOf(path).st_gid, group);
}

TEST_P(Attributes, OtherUserKeepsWhatItMayAndUpdatesAllTheSame) {
  if (geteuid() != 0) GTEST_SKIP() << "giving root up takes root";
  const bool user = setAttribute(path, "user.note", "kept");
  (void)setAttribute(path, "security.vrxtest", "lost");  // nobody else may write it
  openToAll(0666);
  inChildProcess([&] {
    becomeNobody();
    expectUpdates(subject, path);
    EXPECT_EQ(modeOf(path), 0666);
    EXPECT_EQ(infoOf(path).st_uid, kNobody);
    if (user) {
      EXPECT_EQ(attributeOf(path, "user.note"), "kept");
    }
  });
}

TEST_P(Attributes, RegistryThatMayNotBeLinkedIsNotReplaced) {
  if (geteuid() != 0 || !linksAreProtected()) GTEST_SKIP() << "everybody may link files here";
  openToAll(0644);
  inChildProcess([&] {
    becomeNobody();
    expectRefusals(subject, path, notCommitted(subject));
  });
}

TEST_P(Attributes, FolderThatMayNotBeWrittenRefusesTheLockFile) {
  if (geteuid() != 0) GTEST_SKIP() << "giving root up takes root";
  ASSERT_EQ(chmod(folder.path().c_str(), 0755), 0);
  ASSERT_EQ(unlink(folder.file(".reg.lock").c_str()), 0);
  inChildProcess([&] {
    becomeNobody();
    expectRefusals(subject, path, 0x900001BC);
  });
}

TEST_P(Attributes, FolderThatMayNotBeWrittenRefusesTheCopy) {
  if (geteuid() != 0) GTEST_SKIP() << "giving root up takes root";
  ASSERT_EQ(chmod(folder.path().c_str(), 0755), 0);
  ASSERT_EQ(chmod(folder.file(".reg.lock").c_str(), 0666), 0);
  inChildProcess([&] {
    becomeNobody();
    expectRefusals(subject, path, 0x900001C5);
  });
}

TEST_P(Attributes, PathOf1017BytesHoldsARegistryAndOneOf1018IsRefused) {
  std::string deep = folder.path();
  while (deep.size() < 800) {
    deep += "/" + std::string(99, 'd');
    ASSERT_EQ(mkdir(deep.c_str(), 0755), 0);
  }
  const std::string longest = deep + "/" + std::string(1016 - deep.size(), 'r');
  ASSERT_EQ(longest.size(), 1017U);
  fillRegistry(subject, longest);
  expectUpdates(subject, longest);
  for (const Kind kind : kKinds)
    EXPECT_EQ(update(subject, longest + "r", kind), 0x900001F4U);
  EXPECT_FALSE(pathExists(longest + "r"));
}

INSTANTIATE_TEST_SUITE_P(Formats, Attributes, testing::ValuesIn(subjects()), subjectName);

}  // namespace
