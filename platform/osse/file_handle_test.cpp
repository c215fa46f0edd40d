// SPDX-License-Identifier: Apache-2.0
// Opening, closing and giving away one regular file.
#include "platform/osse/file_handle.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "platform/osse/errors.h"
#include "platform/osse/internal/function_ids.h"
#include "tests/support/captured_log.h"
#include "tests/support/faults.h"
#include "tests/support/temp_dir.h"
#include "tests/support/test_child.h"

namespace {

using namespace oss;
using vrxtest::BeforeCall;
using vrxtest::Call;
using vrxtest::FailCall;
using vrxtest::openDescriptorCount;
using vrxtest::pathExists;
using vrxtest::TempDir;
using vrxtest::writeFile;

OSSFileOpenParams params(const std::string& path, unsigned options, unsigned access,
                         unsigned permissions = 0644) {
  return {kOssFileStructureVersion, path.c_str(), options, access, 0, permissions, 0};
}

OSSStatus openWith(OSSHFile* file, const std::string& path, unsigned options, unsigned access,
                   unsigned permissions = 0644) {
  const OSSFileOpenParams how = params(path, options, access, permissions);
  return file->open(&how);
}

TEST(OssFileHandle, StartsClosed) {
  OSSHFile file;
  EXPECT_EQ(file.getFileHandle(), -1);
  EXPECT_EQ(file.detach(), -1);
  EXPECT_EQ(file.close(), status::ok);
}

TEST(OssFileHandle, OpenOrCreateMakesTheFileThroughTheUmask) {
  const TempDir dir;
  const std::string path = dir.file("file");
  const mode_t before = umask(027);
  OSSHFile file;
  const OSSStatus rc = openWith(&file, path, kOssOpenOrCreate, kOssAccessReadWrite, 0666);
  umask(before);
  ASSERT_EQ(rc, status::ok);
  EXPECT_EQ(vrxtest::modeOf(path), 0640);
}

TEST(OssFileHandle, OpenOrCreateLeavesAnExistingFileAsItIs) {
  const TempDir dir;
  const std::string path = dir.file("file");
  writeFile(path, "contents");
  ASSERT_EQ(chmod(path.c_str(), 0600), 0);
  OSSHFile file;
  ASSERT_EQ(openWith(&file, path, kOssOpenOrCreate, kOssAccessReadWrite, 0666), status::ok);
  EXPECT_EQ(vrxtest::modeOf(path), 0600);
  EXPECT_EQ(vrxtest::readFile(path), "contents");
}

TEST(OssFileHandle, OpenOrCreateForReadingCreatesToo) {
  const TempDir dir;
  OSSHFile file;
  ASSERT_EQ(openWith(&file, dir.file("file"), kOssOpenOrCreate, kOssAccessRead), status::ok);
  EXPECT_TRUE(pathExists(dir.file("file")));
}

TEST(OssFileHandle, OpenExistingCreatesNothing) {
  const TempDir dir;
  OSSHFile file;
  EXPECT_EQ(openWith(&file, dir.file("file"), kOssOpenExisting, kOssAccessReadWrite),
            ossErrorMapSystem(ENOENT));
  EXPECT_FALSE(pathExists(dir.file("file")));
  EXPECT_EQ(file.getFileHandle(), -1);
}

TEST(OssFileHandle, AccessDecidesWhatTheDescriptorMay) {
  const TempDir dir;
  const std::string path = dir.file("file");
  writeFile(path, "123");
  OSSHFile reading;
  ASSERT_EQ(openWith(&reading, path, kOssOpenExisting, kOssAccessRead), status::ok);
  EXPECT_EQ(write(reading.getFileHandle(), "x", 1), -1);

  OSSHFile appending;
  ASSERT_EQ(openWith(&appending, path, kOssOpenExisting, kOssAccessAppend), status::ok);
  ASSERT_EQ(lseek(appending.getFileHandle(), 0, SEEK_SET), 0);
  EXPECT_EQ(write(appending.getFileHandle(), "4", 1), 1);
  EXPECT_EQ(vrxtest::readFile(path), "1234");

  OSSHFile writing;
  ASSERT_EQ(openWith(&writing, path, kOssOpenExisting, kOssAccessReadWrite), status::ok);
  EXPECT_EQ(write(writing.getFileHandle(), "0", 1), 1);
  EXPECT_EQ(vrxtest::readFile(path), "0234");
}

TEST(OssFileHandle, DescriptorsAreCloseOnExec) {
  const TempDir dir;
  OSSHFile file;
  ASSERT_EQ(openWith(&file, dir.file("file"), kOssOpenOrCreate, kOssAccessRead), status::ok);
  EXPECT_EQ(fcntl(file.getFileHandle(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
}

TEST(OssFileHandle, OpeningAnOpenHandleClosesTheOldFile) {
  const TempDir dir;
  const int before = openDescriptorCount();
  OSSHFile file;
  ASSERT_EQ(openWith(&file, dir.file("one"), kOssOpenOrCreate, kOssAccessRead), status::ok);
  ASSERT_EQ(openWith(&file, dir.file("two"), kOssOpenOrCreate, kOssAccessRead), status::ok);
  EXPECT_EQ(openDescriptorCount(), before + 1);
  EXPECT_NE(openWith(&file, dir.file("none"), kOssOpenExisting, kOssAccessRead), status::ok);
  EXPECT_EQ(file.getFileHandle(), -1);
  EXPECT_EQ(openDescriptorCount(), before);
}

TEST(OssFileHandle, DestructorClosesAndDetachGivesAway) {
  const TempDir dir;
  const int before = openDescriptorCount();
  int given = -1;
  {
    OSSHFile kept;
    OSSHFile detached;
    ASSERT_EQ(openWith(&kept, dir.file("a"), kOssOpenOrCreate, kOssAccessRead), status::ok);
    ASSERT_EQ(openWith(&detached, dir.file("b"), kOssOpenOrCreate, kOssAccessRead), status::ok);
    given = detached.detach();
    EXPECT_EQ(detached.getFileHandle(), -1);
  }
  EXPECT_EQ(openDescriptorCount(), before + 1);
  EXPECT_EQ(close(given), 0);
}

TEST(OssFileHandle, CloseReportsADescriptorClosedBehindItsBack) {
  const TempDir dir;
  OSSHFile file;
  ASSERT_EQ(openWith(&file, dir.file("file"), kOssOpenOrCreate, kOssAccessRead), status::ok);
  ASSERT_EQ(close(file.getFileHandle()), 0);
  EXPECT_EQ(file.close(), ossErrorMapSystem(EBADF));
  EXPECT_EQ(file.getFileHandle(), -1);
  EXPECT_EQ(file.close(), status::ok);
}

// Every way to open what stands at `path` fails at once as no regular file and leaves nothing open.
void expectNotRegular(const std::string& path) {
  const int before = openDescriptorCount();
  for (const unsigned options : {kOssOpenExisting, kOssOpenOrCreate}) {
    for (const unsigned access : {kOssAccessRead, kOssAccessReadWrite, kOssAccessAppend}) {
      OSSHFile file;
      EXPECT_EQ(openWith(&file, path, options, access), status::not_a_regular_file) << path;
      EXPECT_EQ(file.getFileHandle(), -1);
    }
  }
  EXPECT_EQ(openDescriptorCount(), before);
}

TEST(OssFileHandle, AFifoNeverBlocks) {
  const TempDir dir;
  ASSERT_EQ(mkfifo(dir.file("fifo").c_str(), 0600), 0);
  expectNotRegular(dir.file("fifo"));
}

TEST(OssFileHandle, WhatIsOpenedUncheckedIsForTheCallerToLookAt) {
  const TempDir dir;
  ASSERT_EQ(mkfifo(dir.file("fifo").c_str(), 0600), 0);
  OSSHFile file;
  const unsigned options = kOssOpenExisting | kOssOpenUnchecked;
  EXPECT_EQ(openWith(&file, dir.file("fifo"), options, kOssAccessRead), status::ok);
  EXPECT_EQ(openWith(&file, dir.file("none"), options, kOssAccessRead), ossErrorMapSystem(ENOENT));
  EXPECT_EQ(file.getFileHandle(), -1);
}

TEST(OssFileHandle, DirectoriesDevicesAndSocketsAreRefused) {
  const TempDir dir;
  expectNotRegular(dir.path());
  expectNotRegular("/dev/null");

  const int listening = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  struct sockaddr_un address {};
  address.sun_family = AF_UNIX;
  const std::string name = dir.file("socket");
  ASSERT_LT(name.size(), sizeof address.sun_path);
  std::memcpy(address.sun_path, name.c_str(), name.size() + 1);
  ASSERT_EQ(bind(listening, reinterpret_cast<struct sockaddr*>(&address), sizeof address), 0);
  expectNotRegular(name);
  close(listening);
}

TEST(OssFileHandle, LinksAreFollowedUnlessForbidden) {
  const TempDir dir;
  writeFile(dir.file("file"), "x");
  ASSERT_EQ(symlink("file", dir.file("link").c_str()), 0);
  ASSERT_EQ(symlink("created", dir.file("dangling").c_str()), 0);
  OSSHFile file;
  EXPECT_EQ(openWith(&file, dir.file("link"), kOssOpenExisting, kOssAccessRead), status::ok);
  const unsigned careful = kOssOpenOrCreate | kOssOpenNoFollow;
  EXPECT_EQ(openWith(&file, dir.file("link"), careful, kOssAccessRead), ossErrorMapSystem(ELOOP));
  EXPECT_EQ(openWith(&file, dir.file("dangling"), careful, kOssAccessRead),
            ossErrorMapSystem(ELOOP));
  EXPECT_FALSE(pathExists(dir.file("created")));
  EXPECT_EQ(openWith(&file, dir.file("file"), careful, kOssAccessRead), status::ok);
  EXPECT_EQ(openWith(&file, dir.file("new"), careful, kOssAccessRead), status::ok);
}

TEST(OssFileHandle, InvalidParametersLeaveTheHandleAsItIs) {
  const TempDir dir;
  const std::string path = dir.file("file");
  OSSHFile file;
  ASSERT_EQ(openWith(&file, path, kOssOpenOrCreate, kOssAccessRead), status::ok);
  const int descriptor = file.getFileHandle();
  const OSSFileOpenParams good = params(path, kOssOpenExisting, kOssAccessRead);

  EXPECT_EQ(file.open(nullptr), status::invalid_argument);
  OSSFileOpenParams bad = good;
  bad.version = 0x09050001;
  EXPECT_EQ(file.open(&bad), status::invalid_argument);
  bad = good;
  bad.path = nullptr;
  EXPECT_EQ(file.open(&bad), status::invalid_argument);
  bad.path = "";
  EXPECT_EQ(file.open(&bad), status::invalid_argument);
  for (const unsigned options : {0u, 3u, 4u, 0x100u, 0x200u, 0x401u}) {
    EXPECT_EQ(openWith(&file, path, options, kOssAccessRead), status::invalid_argument) << options;
  }
  for (const unsigned access : {0u, 4u, 0xFFFFFFFFu}) {
    EXPECT_EQ(openWith(&file, path, kOssOpenExisting, access), status::invalid_argument) << access;
  }
  EXPECT_EQ(openWith(&file, path, kOssOpenOrCreate, kOssAccessRead, 010000),
            status::invalid_argument);
  EXPECT_EQ(file.getFileHandle(), descriptor);
}

TEST(OssFileHandle, LongNamesFailCleanly) {
  const TempDir dir;
  OSSHFile file;
  EXPECT_EQ(openWith(&file, dir.file(std::string(255, 'n')), kOssOpenOrCreate, kOssAccessRead),
            status::ok);
  EXPECT_EQ(openWith(&file, dir.file(std::string(256, 'n')), kOssOpenOrCreate, kOssAccessRead),
            status::buffer_too_small);
  EXPECT_EQ(openWith(&file, std::string(5000, 'n'), kOssOpenOrCreate, kOssAccessRead),
            status::buffer_too_small);
}

TEST(OssFileHandle, AnInterruptedOpeningIsRepeated) {
  const TempDir dir;
  for (const int nth : {1, 2}) {  // opening an existing file, creating a missing one
    OSSHFile file;
    const FailCall fault(Call::kOpen, nth, EINTR);
    EXPECT_EQ(openWith(&file, dir.file(std::to_string(nth)), kOssOpenOrCreate, kOssAccessRead),
              status::ok);
    EXPECT_EQ(fault.calls(), 3);
  }
}

TEST(OssFileHandle, AnOpeningThatIsAlwaysInterruptedFails) {
  const TempDir dir;
  OSSHFile file;
  const FailCall fault(Call::kOpen, 1, EINTR, vrxtest::Extent::kFromThenOn);
  EXPECT_EQ(openWith(&file, dir.file("a"), kOssOpenOrCreate, kOssAccessRead),
            ossErrorMapSystem(EINTR));
  EXPECT_LT(file.getFileHandle(), 0);
}

TEST(OssFileHandle, AFileCreatedByAnotherInTheMeantimeIsOpened) {
  const TempDir dir;
  OSSHFile file;
  const BeforeCall race(Call::kOpen, 2, [&] { writeFile(dir.file("file"), "theirs"); });
  EXPECT_EQ(openWith(&file, dir.file("file"), kOssOpenOrCreate, kOssAccessRead), status::ok);
  EXPECT_TRUE(race.fired());
  EXPECT_EQ(vrxtest::readFile(dir.file("file")), "theirs");
}

TEST(OssFileHandle, AFileThatCannotBeLookedAtIsClosedAgain) {
  const TempDir dir;
  const int before = openDescriptorCount();
  OSSHFile file;
  const FailCall fault(Call::kFstat, 1, EIO);
  EXPECT_EQ(openWith(&file, dir.file("file"), kOssOpenOrCreate, kOssAccessRead),
            ossErrorMapSystem(EIO));
  EXPECT_TRUE(fault.fired());
  EXPECT_EQ(file.getFileHandle(), -1);
  EXPECT_EQ(openDescriptorCount(), before);
}

TEST(OssFileHandle, ClosingReportsLostDataButNoInterruption) {
  const TempDir dir;
  OSSHFile file;
  ASSERT_EQ(openWith(&file, dir.file("file"), kOssOpenOrCreate, kOssAccessRead), status::ok);
  {
    const FailCall fault(Call::kClose, 1, EINTR);
    EXPECT_EQ(file.close(), status::ok);
    EXPECT_EQ(fault.calls(), 1);
  }
  ASSERT_EQ(openWith(&file, dir.file("file"), kOssOpenOrCreate, kOssAccessRead), status::ok);
  const FailCall fault(Call::kClose, 1, EIO);
  EXPECT_EQ(file.close(), ossErrorMapSystem(EIO));
  EXPECT_EQ(fault.calls(), 1);
  EXPECT_EQ(file.getFileHandle(), -1);
}

TEST(OssFileHandle, HandleWhoseOldFileLosesDataOpensNoOther) {
  const TempDir dir;
  OSSHFile file;
  ASSERT_EQ(openWith(&file, dir.file("old"), kOssOpenOrCreate, kOssAccessRead), status::ok);
  const FailCall fault(Call::kClose, 1, EIO);
  EXPECT_EQ(openWith(&file, dir.file("new"), kOssOpenOrCreate, kOssAccessRead),
            ossErrorMapSystem(EIO));
  EXPECT_EQ(file.getFileHandle(), -1);
  EXPECT_FALSE(vrxtest::pathExists(dir.file("new")));
}

TEST(OssFileHandle, DestructorLogsLostData) {
  const TempDir dir;
  const vrxtest::CapturedLog log;
  {
    OSSHFile file;
    ASSERT_EQ(openWith(&file, dir.file("file"), kOssOpenOrCreate, kOssAccessRead), status::ok);
  }
  EXPECT_EQ(log.count(internal::kOssFileHandleDestructor), 0);
  const FailCall fault(Call::kClose, 1, EIO);
  {
    OSSHFile file;
    ASSERT_EQ(openWith(&file, dir.file("file"), kOssOpenOrCreate, kOssAccessRead), status::ok);
  }
  EXPECT_EQ(log.count(internal::kOssFileHandleDestructor, ossErrorMapSystem(EIO)), 1);
}

TEST(OssFileHandle, AForbiddenFileGivesItsSystemError) {
  if (geteuid() != 0) GTEST_SKIP() << "giving up privileges needs privileges";
  const TempDir dir;
  ASSERT_EQ(chmod(dir.path().c_str(), 0755), 0);
  writeFile(dir.file("file"), "x");
  ASSERT_EQ(chmod(dir.file("file").c_str(), 0600), 0);
  const int result = osstest::inChild([&] {
    if (setgid(65534) != 0 || setuid(65534) != 0) return 2;
    OSSHFile file;
    const OSSStatus rc = openWith(&file, dir.file("file"), kOssOpenOrCreate, kOssAccessRead);
    return rc == ossErrorMapSystem(EACCES) ? 0 : 1;
  });
  EXPECT_EQ(result, 0);
}

TEST(OssFileHandle, AnExistingFileIsOpenedWithoutTheCreationFlag) {
  if (geteuid() != 0) GTEST_SKIP() << "giving up privileges needs privileges";
  const TempDir dir;
  ASSERT_EQ(chmod(dir.path().c_str(), 01777), 0);
  writeFile(dir.file("file"), "x");
  ASSERT_EQ(chmod(dir.file("file").c_str(), 0666), 0);
  ASSERT_EQ(chown(dir.file("file").c_str(), 1234, 1234), 0);
  const int result = osstest::inChild([&] {
    if (setgid(65534) != 0 || setuid(65534) != 0) return 2;
    OSSHFile file;
    const OSSStatus rc = openWith(&file, dir.file("file"), kOssOpenOrCreate, kOssAccessReadWrite);
    return rc == status::ok ? 0 : 1;
  });
  EXPECT_EQ(result, 0);
}

}  // namespace
