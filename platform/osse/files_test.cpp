// SPDX-License-Identifier: Apache-2.0
// Delete, rename, describe, permissions, and whether a path names an open file.
#include "platform/osse/files.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "platform/osse/errors.h"
#include "tests/support/temp_dir.h"

namespace {

using namespace oss;
using vrxtest::modeOf;
using vrxtest::pathExists;
using vrxtest::TempDir;
using vrxtest::writeFile;

TEST(OssFileDelete, RemovesTheNameItself) {
  const TempDir dir;
  writeFile(dir.file("file"), "x");
  ASSERT_EQ(symlink("file", dir.file("link").c_str()), 0);
  EXPECT_EQ(ossFileDelete(dir.file("link").c_str()), status::ok);
  EXPECT_FALSE(pathExists(dir.file("link")));
  EXPECT_TRUE(pathExists(dir.file("file")));
  EXPECT_EQ(ossFileDelete(dir.file("file").c_str()), status::ok);
  EXPECT_EQ(ossFileDelete(dir.file("file").c_str()), ossErrorMapSystem(ENOENT));
}

TEST(OssFileDelete, RefusesDirectoriesAndBadArguments) {
  const TempDir dir;
  EXPECT_NE(ossFileDelete(dir.path().c_str()), status::ok);
  EXPECT_TRUE(pathExists(dir.path()));
  EXPECT_EQ(ossFileDelete(nullptr), status::invalid_argument);
  EXPECT_EQ(ossFileDelete(""), status::invalid_argument);
  EXPECT_EQ(ossFileDelete(dir.file(std::string(256, 'n')).c_str()), status::buffer_too_small);
}

TEST(OssFileRename, ReplacesWhatHasTheName) {
  const TempDir dir;
  writeFile(dir.file("new"), "new");
  writeFile(dir.file("old"), "old");
  EXPECT_EQ(ossFileRename(dir.file("new").c_str(), dir.file("old").c_str()), status::ok);
  EXPECT_EQ(vrxtest::readFile(dir.file("old")), "new");
  EXPECT_FALSE(pathExists(dir.file("new")));
}

TEST(OssFileRename, FailsWithoutASource) {
  const TempDir dir;
  writeFile(dir.file("old"), "old");
  EXPECT_EQ(ossFileRename(dir.file("new").c_str(), dir.file("old").c_str()),
            ossErrorMapSystem(ENOENT));
  EXPECT_EQ(vrxtest::readFile(dir.file("old")), "old");
  EXPECT_EQ(ossFileRename(nullptr, "x"), status::invalid_argument);
  EXPECT_EQ(ossFileRename("x", nullptr), status::invalid_argument);
  EXPECT_EQ(ossFileRename("", "x"), status::invalid_argument);
  EXPECT_EQ(ossFileRename("x", ""), status::invalid_argument);
}

TEST(OssFileInfo, DescribesAFileThroughLinks) {
  const TempDir dir;
  const std::string file = dir.file("file");
  writeFile(file, "12345");
  ASSERT_EQ(chmod(file.c_str(), 06640), 0);
  ASSERT_EQ(link(file.c_str(), dir.file("second").c_str()), 0);
  ASSERT_EQ(symlink("file", dir.file("symbolic").c_str()), 0);
  struct stat expected {};
  ASSERT_EQ(stat(file.c_str(), &expected), 0);

  OSSFileInfo info{};
  ASSERT_EQ(ossFileGetInfoV9(dir.file("symbolic").c_str(), &info), status::ok);
  EXPECT_EQ(info.size, 5u);
  EXPECT_EQ(info.permissions, 06640u);
  EXPECT_EQ(info.links, 2u);
  EXPECT_EQ(info.owner, expected.st_uid);
  EXPECT_EQ(info.group, expected.st_gid);
  EXPECT_EQ(info.device, expected.st_dev);
  EXPECT_EQ(info.inode, expected.st_ino);
  EXPECT_EQ(info.modified, expected.st_mtim.tv_sec);
  EXPECT_EQ(info.modifiedNanoseconds, static_cast<unsigned>(expected.st_mtim.tv_nsec));
  EXPECT_TRUE(info.regular);
  EXPECT_FALSE(info.directory);
}

TEST(OssFileInfo, DescribesDirectoriesAndSizesBeyond32Bits) {
  const TempDir dir;
  OSSFileInfo info{};
  ASSERT_EQ(ossFileGetInfoV9(dir.path().c_str(), &info), status::ok);
  EXPECT_TRUE(info.directory);
  EXPECT_FALSE(info.regular);

  writeFile(dir.file("sparse"), "");
  const off_t large = (off_t{1} << 32) + 7;
  ASSERT_EQ(truncate(dir.file("sparse").c_str(), large), 0);
  ASSERT_EQ(ossFileGetInfoV9(dir.file("sparse").c_str(), &info), status::ok);
  EXPECT_EQ(info.size, 0x100000007ull);
}

TEST(OssFileInfo, FailureLeavesTheOutput) {
  const TempDir dir;
  OSSFileInfo info{};
  info.size = 77;
  EXPECT_EQ(ossFileGetInfoV9(dir.file("missing").c_str(), &info), ossErrorMapSystem(ENOENT));
  EXPECT_EQ(ossFileGetInfoV9(nullptr, &info), status::invalid_argument);
  EXPECT_EQ(ossFileGetInfoV9("", &info), status::invalid_argument);
  EXPECT_EQ(ossFileGetInfoV9(dir.path().c_str(), nullptr), status::invalid_argument);
  EXPECT_EQ(info.size, 77u);
}

TEST(OssFilePermissions, AreSetByPathAndByDescriptorWhateverTheUmask) {
  const TempDir dir;
  const std::string file = dir.file("file");
  writeFile(file, "x");
  const mode_t before = umask(0777);
  EXPECT_EQ(ossFileSetPermissions(file.c_str(), 0664), status::ok);
  EXPECT_EQ(modeOf(file), 0664);
  const int descriptor = open(file.c_str(), O_RDONLY | O_CLOEXEC);
  EXPECT_EQ(ossFileSetPermissions(descriptor, 04711), status::ok);
  EXPECT_EQ(modeOf(file), 04711);
  umask(before);
  close(descriptor);
}

TEST(OssFilePermissions, BadArgumentsChangeNothing) {
  const TempDir dir;
  const std::string file = dir.file("file");
  writeFile(file, "x");
  ASSERT_EQ(chmod(file.c_str(), 0600), 0);
  EXPECT_EQ(ossFileSetPermissions(file.c_str(), 010000), status::invalid_argument);
  EXPECT_EQ(ossFileSetPermissions(static_cast<const char*>(nullptr), 0600),
            status::invalid_argument);
  EXPECT_EQ(ossFileSetPermissions("", 0600), status::invalid_argument);
  EXPECT_EQ(ossFileSetPermissions(-1, 0600), ossErrorMapSystem(EBADF));
  EXPECT_EQ(ossFileSetPermissions(0, 010000), status::invalid_argument);
  EXPECT_EQ(modeOf(file), 0600);
}

TEST(OssDescriptorNamesPath, FollowsTheNameThroughRenames) {
  const TempDir dir;
  const std::string file = dir.file("file");
  writeFile(file, "x");
  const int descriptor = open(file.c_str(), O_RDONLY | O_CLOEXEC);
  bool same = false;
  EXPECT_EQ(ossDescriptorNamesPath(descriptor, file.c_str(), &same), status::ok);
  EXPECT_TRUE(same);

  ASSERT_EQ(rename(file.c_str(), dir.file("moved").c_str()), 0);
  EXPECT_EQ(ossDescriptorNamesPath(descriptor, file.c_str(), &same), status::ok);
  EXPECT_FALSE(same);
  EXPECT_EQ(ossDescriptorNamesPath(descriptor, dir.file("moved").c_str(), &same), status::ok);
  EXPECT_TRUE(same);

  writeFile(file, "another");
  EXPECT_EQ(ossDescriptorNamesPath(descriptor, file.c_str(), &same), status::ok);
  EXPECT_FALSE(same);
  close(descriptor);
}

TEST(OssDescriptorNamesPath, ALinkToTheFileIsNotTheFile) {
  const TempDir dir;
  const std::string file = dir.file("file");
  writeFile(file, "x");
  ASSERT_EQ(symlink("file", dir.file("link").c_str()), 0);
  const int descriptor = open(file.c_str(), O_RDONLY | O_CLOEXEC);
  bool same = true;
  EXPECT_EQ(ossDescriptorNamesPath(descriptor, dir.file("link").c_str(), &same), status::ok);
  EXPECT_FALSE(same);
  same = true;
  EXPECT_EQ(ossDescriptorNamesPath(descriptor, (file + "/below").c_str(), &same), status::ok);
  EXPECT_FALSE(same);
  close(descriptor);
}

TEST(OssDescriptorNamesPath, FailureLeavesTheOutput) {
  const TempDir dir;
  bool same = true;
  EXPECT_EQ(ossDescriptorNamesPath(-1, dir.path().c_str(), &same), ossErrorMapSystem(EBADF));
  EXPECT_EQ(ossDescriptorNamesPath(0, nullptr, &same), status::invalid_argument);
  EXPECT_EQ(ossDescriptorNamesPath(0, "", &same), status::invalid_argument);
  EXPECT_EQ(ossDescriptorNamesPath(0, "x", nullptr), status::invalid_argument);
  EXPECT_TRUE(same);
}

}  // namespace
