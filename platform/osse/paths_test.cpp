// SPDX-License-Identifier: Apache-2.0
// Names of files and folders, home directories, questions about paths.
#include "platform/osse/paths.h"

#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "tests/support/temp_dir.h"

namespace {

using namespace oss;
using vrxtest::TempDir;

std::string baseName(const std::string& path) {
  char out[300] = "untouched";
  return ossBaseName(path.c_str(), out, sizeof out) == status::ok ? out : "failed";
}

std::string directoryName(const std::string& path) {
  char out[300] = "untouched";
  return ossDirectoryName(path.c_str(), out, sizeof out) == status::ok ? out : "failed";
}

TEST(OssBaseName, IsWhatFollowsTheLastSlash) {
  EXPECT_EQ(baseName("/var/vrx/global.reg"), "global.reg");
  EXPECT_EQ(baseName("global.reg"), "global.reg");
  EXPECT_EQ(baseName("/x"), "x");
  EXPECT_EQ(baseName("a//b"), "b");
  EXPECT_EQ(baseName("."), ".");
  EXPECT_EQ(baseName("a/.."), "..");
}

TEST(OssBaseName, FailsWhenNothingFollows) {
  for (const char* path : {"", "/", "//", "a/", "/a/b/"}) {
    char out[16] = "untouched";
    EXPECT_EQ(ossBaseName(path, out, sizeof out), status::no_file_name) << path;
    EXPECT_STREQ(out, "untouched");
  }
}

TEST(OssBaseName, NeedsRoomForTheTerminator) {
  char out[8] = "old";
  EXPECT_EQ(ossBaseName("/a/bcd", out, 3), status::buffer_too_small);
  EXPECT_EQ(ossBaseName("/a/bcd", out, 0), status::buffer_too_small);
  EXPECT_STREQ(out, "old");
  EXPECT_EQ(ossBaseName("/a/bcd", out, 4), status::ok);
  EXPECT_STREQ(out, "bcd");
}

TEST(OssDirectoryName, IsWhatPrecedesTheLastComponent) {
  EXPECT_EQ(directoryName("/var/vrx/global.reg"), "/var/vrx");
  EXPECT_EQ(directoryName("a/b/c"), "a/b");
  EXPECT_EQ(directoryName("global.reg"), ".");
  EXPECT_EQ(directoryName("/global.reg"), "/");
  EXPECT_EQ(directoryName("//global.reg"), "/");
  EXPECT_EQ(directoryName("/"), "/");
  EXPECT_EQ(directoryName("a//b"), "a");
  EXPECT_EQ(directoryName("a/b/"), "a/b");
  EXPECT_EQ(directoryName("./x"), ".");
}

TEST(OssDirectoryName, NeedsRoomForTheTerminator) {
  char out[8] = "old";
  EXPECT_EQ(ossDirectoryName("/abc/d", out, 4), status::buffer_too_small);
  EXPECT_EQ(ossDirectoryName("d", out, 1), status::buffer_too_small);
  EXPECT_EQ(ossDirectoryName("/d", out, 0), status::buffer_too_small);
  EXPECT_STREQ(out, "old");
  EXPECT_EQ(ossDirectoryName("/abc/d", out, 5), status::ok);
  EXPECT_STREQ(out, "/abc");
}

TEST(OssDirectoryName, AnEmptyPathHasNone) {
  char out[8] = "old";
  EXPECT_EQ(ossDirectoryName("", out, sizeof out), status::invalid_argument);
  EXPECT_STREQ(out, "old");
}

TEST(OssPaths, LongNamesPassWhole) {
  const std::string name(255, 'n');
  const std::string directory = "/" + std::string(280, 'd');
  EXPECT_EQ(baseName("/dir/" + name), name);
  EXPECT_EQ(directoryName(directory + "/x"), directory);
  EXPECT_EQ(baseName(std::string(300, 'n')), "failed");
}

TEST(OssPaths, NamesCanBeTakenInPlace) {
  char path[] = "/some/folder/file";
  ASSERT_EQ(ossBaseName(path, path, sizeof path), status::ok);
  EXPECT_STREQ(path, "file");
  char again[] = "/some/folder/file";
  ASSERT_EQ(ossDirectoryName(again, again, sizeof again), status::ok);
  EXPECT_STREQ(again, "/some/folder");
}

TEST(OssPaths, NullIsAnInvalidArgument) {
  char out[8];
  EXPECT_EQ(ossBaseName(nullptr, out, sizeof out), status::invalid_argument);
  EXPECT_EQ(ossBaseName("a", nullptr, 8), status::invalid_argument);
  EXPECT_EQ(ossDirectoryName(nullptr, out, sizeof out), status::invalid_argument);
  EXPECT_EQ(ossDirectoryName("a", nullptr, 8), status::invalid_argument);
  EXPECT_EQ(ossBuildHomeDirectoryRelativePath(nullptr, "", out, 8), status::invalid_argument);
  EXPECT_EQ(ossBuildHomeDirectoryRelativePath("root", nullptr, out, 8), status::invalid_argument);
  EXPECT_EQ(ossBuildHomeDirectoryRelativePath("root", "", nullptr, 8), status::invalid_argument);
}

TEST(OssPaths, FileAndDirectoryAreToldApartThroughLinks) {
  const TempDir dir;
  const std::string file = dir.file("file");
  const std::string link = dir.file("link");
  const std::string directoryLink = dir.file("directory-link");
  const std::string dangling = dir.file("dangling");
  vrxtest::writeFile(file, "x");
  ASSERT_EQ(symlink(file.c_str(), link.c_str()), 0);
  ASSERT_EQ(symlink(dir.path().c_str(), directoryLink.c_str()), 0);
  ASSERT_EQ(symlink("nowhere", dangling.c_str()), 0);

  EXPECT_TRUE(ossIsFile(file.c_str()) && ossIsFile(link.c_str()));
  EXPECT_FALSE(ossIsDirectory(file.c_str()) || ossIsDirectory(link.c_str()));
  EXPECT_TRUE(ossIsDirectory(dir.path().c_str()) && ossIsDirectory(directoryLink.c_str()));
  EXPECT_FALSE(ossIsFile(dir.path().c_str()) || ossIsFile(directoryLink.c_str()));
  EXPECT_FALSE(ossIsFile(dangling.c_str()) || ossIsDirectory(dangling.c_str()));
  EXPECT_FALSE(ossIsFile(nullptr) || ossIsDirectory(nullptr) || ossIsFile("") ||
               ossIsDirectory(""));
}

TEST(OssPaths, AFifoIsNeitherFileNorDirectory) {
  const TempDir dir;
  const std::string fifo = dir.file("fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_FALSE(ossIsFile(fifo.c_str()) || ossIsDirectory(fifo.c_str()));
}

std::string homeOf(const char* user) {
  const struct passwd* entry = getpwnam(user);
  return entry != nullptr ? entry->pw_dir : "";
}

TEST(OssHomeDirectory, IsFollowedByTheRelativePathAsItStands) {
  const std::string home = homeOf("root");
  ASSERT_FALSE(home.empty());
  char out[1024];
  ASSERT_EQ(ossBuildHomeDirectoryRelativePath("root", "/sqllib/adm", out, sizeof out), status::ok);
  EXPECT_EQ(out, home + "/sqllib/adm");
  ASSERT_EQ(ossBuildHomeDirectoryRelativePath("root", "", out, sizeof out), status::ok);
  EXPECT_EQ(out, home);
}

TEST(OssHomeDirectory, AnUnknownUserHasACodeOfItsOwn) {
  char out[16] = "untouched";
  const std::string longName(5000, 'u');
  for (const char* user : {"no-such-user-here", "", "a/b", "root:x", longName.c_str()}) {
    EXPECT_EQ(ossBuildHomeDirectoryRelativePath(user, "/x", out, sizeof out), status::unknown_user);
    EXPECT_STREQ(out, "untouched");
  }
}

TEST(OssHomeDirectory, NeedsRoomForBothPartsAndTheTerminator) {
  const unsigned long whole = homeOf("root").size() + 4;
  char out[256] = "untouched";
  for (const unsigned long size : {0ul, 1ul, 4ul, whole}) {
    EXPECT_EQ(ossBuildHomeDirectoryRelativePath("root", "/abc", out, size),
              status::buffer_too_small);
    EXPECT_STREQ(out, "untouched");
  }
  EXPECT_EQ(ossBuildHomeDirectoryRelativePath("root", "/abc", out, whole + 1), status::ok);
  EXPECT_EQ(std::strlen(out), whole);
}

TEST(OssSetuidRoot, NeedsOwnerBitAndARegularFileItself) {
  if (geteuid() != 0) GTEST_SKIP() << "making a file of user 0 needs user 0";
  const TempDir dir;
  const std::string tool = dir.file("tool");
  const std::string link = dir.file("link");
  vrxtest::writeFile(tool, "x");
  ASSERT_EQ(symlink(tool.c_str(), link.c_str()), 0);
  EXPECT_FALSE(ossPathIsSetuidRoot(tool.c_str()));
  ASSERT_EQ(chmod(tool.c_str(), 04755), 0);
  EXPECT_TRUE(ossPathIsSetuidRoot(tool.c_str()));
  EXPECT_FALSE(ossPathIsSetuidRoot(link.c_str()));
  ASSERT_EQ(chown(tool.c_str(), 1234, 0), 0);
  ASSERT_EQ(chmod(tool.c_str(), 04755), 0);
  EXPECT_FALSE(ossPathIsSetuidRoot(tool.c_str()));
}

TEST(OssSetuidRoot, DirectoriesAndMissingFilesAreNot) {
  const TempDir dir;
  const std::string folder = dir.file("folder");
  ASSERT_EQ(mkdir(folder.c_str(), 0755), 0);
  ASSERT_EQ(chmod(folder.c_str(), 04755), 0);
  EXPECT_FALSE(ossPathIsSetuidRoot(folder.c_str()));
  EXPECT_FALSE(ossPathIsSetuidRoot(dir.file("missing").c_str()));
  EXPECT_FALSE(ossPathIsSetuidRoot(nullptr));
}

}  // namespace
