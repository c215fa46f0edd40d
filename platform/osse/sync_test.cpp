// SPDX-License-Identifier: Apache-2.0
// Syncing files and directories, and the policy that turns it off.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "platform/osse/errors.h"
#include "platform/osse/files.h"
#include "tests/support/faults.h"
#include "tests/support/temp_dir.h"

namespace {

using namespace oss;
using vrxtest::Call;
using vrxtest::Extent;
using vrxtest::FailCall;
using vrxtest::TempDir;

class Policy {
 public:
  explicit Policy(OSSSyncPolicy policy) : before_(ossGetSyncPolicy()) { ossSetSyncPolicy(policy); }
  ~Policy() { ossSetSyncPolicy(before_); }
  Policy(const Policy&) = delete;
  Policy& operator=(const Policy&) = delete;

 private:
  const OSSSyncPolicy before_;
};

class OpenFile {
 public:
  explicit OpenFile(const std::string& path)
      : descriptor(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {}
  ~OpenFile() { close(descriptor); }
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;
  const int descriptor;
};

TEST(OssSync, FilesAndDirectoriesAreSynced) {
  const TempDir dir;
  const OpenFile file(dir.file("file"));
  for (const OSSSyncPolicy policy : {OSSSyncPolicy::standard, OSSSyncPolicy::full}) {
    const Policy chosen(policy);
    EXPECT_EQ(ossFileSync(file.descriptor), status::ok);
    EXPECT_EQ(ossDirectorySync(dir.path().c_str()), status::ok);
  }
}

TEST(OssSync, ADescriptorThatCannotBeSyncedFails) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  EXPECT_EQ(ossFileSync(ends[1]), status::invalid_argument);
  EXPECT_EQ(ossFileSync(-1), ossErrorMapSystem(EBADF));
  close(ends[0]);
  close(ends[1]);
}

TEST(OssSync, OnlyDirectoriesAreSyncedByName) {
  const TempDir dir;
  const int before = vrxtest::openDescriptorCount();
  vrxtest::writeFile(dir.file("file"), "x");
  EXPECT_EQ(ossDirectorySync(dir.file("file").c_str()), ossErrorMapSystem(ENOTDIR));
  EXPECT_EQ(ossDirectorySync(dir.file("missing").c_str()), ossErrorMapSystem(ENOENT));
  EXPECT_EQ(ossDirectorySync(nullptr), status::invalid_argument);
  EXPECT_EQ(ossDirectorySync(""), status::invalid_argument);
  EXPECT_EQ(ossDirectorySync(dir.path().c_str()), status::ok);
  EXPECT_EQ(vrxtest::openDescriptorCount(), before);
}

TEST(OssSync, AFileSystemWithoutDirectorySyncIsNoFailure) {
  EXPECT_EQ(ossDirectorySync("/proc"), status::ok);
}

TEST(OssSync, AnInterruptedSyncIsRepeated) {
  const TempDir dir;
  const OpenFile file(dir.file("file"));
  const FailCall fault(Call::kFsync, 1, EINTR);
  EXPECT_EQ(ossFileSync(file.descriptor), status::ok);
  EXPECT_EQ(fault.calls(), 2);
}

TEST(OssSync, ASyncThatIsAlwaysInterruptedFails) {
  const TempDir dir;
  const OpenFile file(dir.file("file"));
  const FailCall fault(Call::kFsync, 1, EINTR, Extent::kFromThenOn);
  EXPECT_EQ(ossFileSync(file.descriptor), ossErrorMapSystem(EINTR));
  EXPECT_EQ(ossDirectorySync(dir.path().c_str()), ossErrorMapSystem(EINTR));
}

TEST(OssSync, AnInterruptedOpeningOfADirectoryIsRepeated) {
  const TempDir dir;
  const FailCall fault(Call::kOpen, 1, EINTR);
  EXPECT_EQ(ossDirectorySync(dir.path().c_str()), status::ok);
  EXPECT_EQ(fault.calls(), 2);
}

TEST(OssSync, AFailedSyncIsNotRepeated) {
  const TempDir dir;
  const OpenFile file(dir.file("file"));
  for (const int error : {EIO, ENOSPC, EDQUOT}) {
    const FailCall fault(Call::kFsync, 1, error);
    EXPECT_EQ(ossFileSync(file.descriptor), ossErrorMapSystem(error));
    EXPECT_EQ(fault.calls(), 1);
  }
}

TEST(OssSync, ADirectorySyncFailsAsAFileSyncDoesButForInvalid) {
  const TempDir dir;
  const int before = vrxtest::openDescriptorCount();
  {
    const FailCall fault(Call::kFsync, 1, EIO, Extent::kFromThenOn);
    EXPECT_EQ(ossDirectorySync(dir.path().c_str()), ossErrorMapSystem(EIO));
    EXPECT_EQ(fault.calls(), 1);
  }
  {
    const FailCall fault(Call::kFsync, 1, EINVAL);
    EXPECT_EQ(ossDirectorySync(dir.path().c_str()), status::ok);
    EXPECT_TRUE(fault.fired());
  }
  EXPECT_EQ(vrxtest::openDescriptorCount(), before);
}

TEST(OssSync, PolicyNoneDoesNothing) {
  const TempDir dir;
  const Policy chosen(OSSSyncPolicy::none);
  EXPECT_EQ(ossFileSync(-1), status::ok);
  EXPECT_EQ(ossDirectorySync(dir.file("missing").c_str()), status::ok);
}

TEST(OssSync, TheDefaultPolicyIsStandard) {
  EXPECT_EQ(ossGetSyncPolicy(), OSSSyncPolicy::standard);
}

}  // namespace
