// SPDX-License-Identifier: Apache-2.0
// Owner, group, extended attributes and ACLs of a file that replaces another.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <initializer_list>
#include <string>

#include "platform/osse/errors.h"
#include "platform/osse/files.h"
#include "platform/osse/log.h"
#include "tests/support/faults.h"
#include "tests/support/memory_drought.h"
#include "tests/support/temp_dir.h"
#include "tests/support/test_child.h"

namespace {

using namespace oss;
using vrxtest::BeforeCall;
using vrxtest::Call;
using vrxtest::Extent;
using vrxtest::FailCall;
using vrxtest::TempDir;

constexpr char kAccessAcl[] = "system.posix_acl_access";
constexpr char kDefaultAcl[] = "system.posix_acl_default";

// An ACL as the kernel reads and writes it: user 4321 may read and write, the group may read.
std::string aclBytes() {
  struct Entry {
    unsigned char tag, permissions;
    unsigned id;
  };
  constexpr unsigned kNobody = 0xFFFFFFFF;
  std::string bytes("\x02\0\0\0", 4);
  for (const Entry& entry : {Entry{0x01, 6, kNobody}, Entry{0x02, 6, 4321}, Entry{0x04, 4, kNobody},
                             Entry{0x10, 6, kNobody}, Entry{0x20, 0, kNobody}}) {
    const unsigned char raw[] = {entry.tag, 0, entry.permissions, 0};
    bytes.append(reinterpret_cast<const char*>(raw), sizeof raw);
    for (int shift = 0; shift < 32; shift += 8)
      bytes += static_cast<char>(entry.id >> shift);
  }
  return bytes;
}

// Two files of one folder, open for reading and writing.
class OssCopyOwnership : public testing::Test {
 protected:
  void SetUp() override {
    from_ = open(fromPath().c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0640);
    to_ = open(toPath().c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_GE(from_, 0);
    ASSERT_GE(to_, 0);
  }
  void TearDown() override {
    close(from_);
    close(to_);
  }
  std::string fromPath() const { return dir_.file("from"); }
  std::string toPath() const { return dir_.file("to"); }

  // False when the file system has no such attributes.
  bool setOnSource(const char* name, const std::string& value) const {
    return fsetxattr(from_, name, value.data(), value.size(), 0) == 0;
  }
  // The attribute's value on the copy; "absent" without one.
  std::string onCopy(const char* name) const {
    std::string value(70000, '\0');
    const ssize_t size = fgetxattr(to_, name, value.data(), value.size());
    return size < 0 ? "absent" : value.substr(0, static_cast<std::size_t>(size));
  }

  const TempDir dir_;
  int from_ = -1;
  int to_ = -1;
};

TEST_F(OssCopyOwnership, OwnerAndGroupAreCarriedOver) {
  if (geteuid() != 0) GTEST_SKIP() << "giving files away needs privileges";
  ASSERT_EQ(fchown(from_, 1234, 5678), 0);
  ossFileCopyOwnership(from_, to_);
  struct stat info {};
  ASSERT_EQ(fstat(to_, &info), 0);
  EXPECT_EQ(info.st_uid, 1234u);
  EXPECT_EQ(info.st_gid, 5678u);
}

TEST_F(OssCopyOwnership, EveryUserAttributeIsCarriedOver) {
  const std::string value("a\0b", 3);
  if (!setOnSource("user.first", value)) GTEST_SKIP() << "no user attributes here";
  ASSERT_TRUE(setOnSource("user.empty", ""));
  ASSERT_TRUE(setOnSource("user.long", std::string(1500, 'v')));
  ossFileCopyOwnership(from_, to_);
  EXPECT_EQ(onCopy("user.first"), value);
  EXPECT_EQ(onCopy("user.empty"), "");
  EXPECT_EQ(onCopy("user.long"), std::string(1500, 'v'));
}

TEST_F(OssCopyOwnership, ManyAttributesWithLongNamesAreCarriedOver) {
  if (!setOnSource("user.probe", "")) GTEST_SKIP() << "no user attributes here";
  int count = 0;
  const auto name = [](int i) { return "user." + std::string(200, 'n') + std::to_string(i); };
  while (count < 100 && setOnSource(name(count).c_str(), ""))
    ++count;
  ASSERT_GT(count, 0);
  ossFileCopyOwnership(from_, to_);
  for (int i = 0; i < count; ++i)
    EXPECT_EQ(onCopy(name(i).c_str()), "") << i;
}

TEST_F(OssCopyOwnership, AttributesOfOtherClassesAreCarriedOverByRoot) {
  if (geteuid() != 0 || !setOnSource("trusted.vrx", "t")) GTEST_SKIP() << "needs privileges";
  ossFileCopyOwnership(from_, to_);
  EXPECT_EQ(onCopy("trusted.vrx"), "t");
}

TEST_F(OssCopyOwnership, AnAclIsCarriedOverAndThePermissionsSetAfterwardsAgree) {
  if (!setOnSource(kAccessAcl, aclBytes())) GTEST_SKIP() << "no ACLs here";
  ossFileCopyOwnership(from_, to_);
  const int mode = vrxtest::modeOf(fromPath());
  ASSERT_EQ(ossFileSetPermissions(to_, static_cast<unsigned>(mode)), status::ok);
  EXPECT_EQ(onCopy(kAccessAcl), aclBytes());
  EXPECT_EQ(vrxtest::modeOf(toPath()), 0660);
}

TEST_F(OssCopyOwnership, AnAclInheritedFromTheFolderIsTakenAway) {
  const std::string acl = aclBytes();
  if (setxattr(dir_.path().c_str(), kDefaultAcl, acl.data(), acl.size(), 0) != 0) {
    GTEST_SKIP() << "no ACLs here";
  }
  close(to_);
  ASSERT_EQ(unlink(toPath().c_str()), 0);
  to_ = open(toPath().c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0660);
  ASSERT_NE(onCopy(kAccessAcl), "absent");
  ossFileCopyOwnership(from_, to_);
  EXPECT_EQ(onCopy(kAccessAcl), "absent");
}

TEST_F(OssCopyOwnership, ContentsPermissionsAndErrnoStay) {
  ASSERT_EQ(write(to_, "bytes", 5), 5);
  errno = EXDEV;
  ossFileCopyOwnership(from_, to_);
  EXPECT_EQ(errno, EXDEV);
  EXPECT_EQ(vrxtest::readFile(toPath()), "bytes");
  EXPECT_EQ(vrxtest::modeOf(toPath()), 0600);
}

void countEntry(const OSSLogEntry*, void* context) {
  ++*static_cast<int*>(context);
}

TEST_F(OssCopyOwnership, WhatCannotBeSetIsLoggedAndTheRestCarriedOver) {
  if (geteuid() != 0) GTEST_SKIP() << "giving up privileges needs privileges";
  if (!setOnSource("user.kept", "k") || !setOnSource("trusted.lost", "l")) {
    GTEST_SKIP() << "no attributes here";
  }
  ASSERT_EQ(fchown(from_, 1234, 5678), 0);
  ASSERT_EQ(fchmod(from_, 0644), 0);
  ASSERT_EQ(fchown(to_, 65534, 65534), 0);
  const int logged = osstest::inChild([&] {
    int count = 0;
    if (setgid(65534) != 0 || setuid(65534) != 0) return 100;
    if (ossSetLogCallback(countEntry, &count) != status::ok) return 101;
    ossFileCopyOwnership(from_, to_);
    return count;
  });
  // Owner and group; an attribute that the process may not even see is not missed.
  EXPECT_EQ(logged, 2);
  EXPECT_EQ(onCopy("user.kept"), "k");
  EXPECT_EQ(onCopy("trusted.lost"), "absent");
}

TEST_F(OssCopyOwnership, ClosedDescriptorsAreLoggedOnly) {
  int count = 0;
  ASSERT_EQ(ossSetLogCallback(countEntry, &count), status::ok);
  ossFileCopyOwnership(-1, to_);
  ossFileCopyOwnership(from_, -1);
  ASSERT_EQ(ossSetLogSink(OSSLogSink::none), status::ok);
  EXPECT_GE(count, 2);
}

// Counts the log entries while it lives.
class Logged {
 public:
  Logged() { (void)ossSetLogCallback(countEntry, &count); }  // a callback cannot be refused
  ~Logged() { (void)ossSetLogSink(OSSLogSink::none); }
  Logged(const Logged&) = delete;
  Logged& operator=(const Logged&) = delete;
  int count = 0;
};

TEST_F(OssCopyOwnership, GroupThatIsRefusedDoesNotKeepTheOwnerBackNorTheOtherWayRound) {
  if (geteuid() != 0) GTEST_SKIP() << "giving files away needs privileges";
  for (const int refused : {1, 2}) {
    ASSERT_EQ(fchown(from_, 1234, 5678), 0);
    ASSERT_EQ(fchown(to_, 0, 0), 0);
    const Logged log;
    const FailCall fault(Call::kFchown, refused, EPERM);
    ossFileCopyOwnership(from_, to_);
    struct stat info {};
    ASSERT_EQ(fstat(to_, &info), 0);
    EXPECT_EQ(info.st_gid, refused == 1 ? 0u : 5678u);
    EXPECT_EQ(info.st_uid, refused == 2 ? 0u : 1234u);
    EXPECT_EQ(log.count, 1);
  }
}

TEST_F(OssCopyOwnership, FileSystemWithoutAttributesHasNoneToLose) {
  const Logged log;
  const FailCall fault(Call::kListAttributes, 1, ENOTSUP);
  ossFileCopyOwnership(from_, to_);
  EXPECT_TRUE(fault.fired());
  EXPECT_EQ(log.count, 0);
}

TEST_F(OssCopyOwnership, AttributesThatCannotBeListedReadOrSetAreLogged) {
  if (!setOnSource("user.lost", "l")) GTEST_SKIP() << "no user attributes here";
  struct Row {
    Call call;
    int nth;
  };
  for (const Row& row :
       {Row{Call::kListAttributes, 1}, Row{Call::kListAttributes, 2}, Row{Call::kGetAttribute, 1},
        Row{Call::kGetAttribute, 2}, Row{Call::kSetAttribute, 1}}) {
    const Logged log;
    {
      const FailCall fault(row.call, row.nth, EIO);
      ossFileCopyOwnership(from_, to_);
      EXPECT_TRUE(fault.fired());
    }
    EXPECT_EQ(log.count, 1) << static_cast<int>(row.call) << '/' << row.nth;
    EXPECT_EQ(onCopy("user.lost"), "absent");
  }
}

TEST_F(OssCopyOwnership, AttributeThatGrowsMeanwhileIsReadAgain) {
  if (!setOnSource("user.grows", "g")) GTEST_SKIP() << "no user attributes here";
  {
    const BeforeCall growth(Call::kGetAttribute, 2, [&] { setOnSource("user.grows", "grown"); });
    ossFileCopyOwnership(from_, to_);
    EXPECT_TRUE(growth.fired());
  }
  EXPECT_EQ(onCopy("user.grows"), "grown");
}

TEST_F(OssCopyOwnership, AttributeThatKeepsGrowingIsGivenUp) {
  if (!setOnSource("user.grows", "g")) GTEST_SKIP() << "no user attributes here";
  const Logged log;
  std::string value;
  const auto grow = [&] { setOnSource("user.grows", value += 'x'); };
  {
    const BeforeCall growth(Call::kGetAttribute, 1, grow, Extent::kFromThenOn);
    ossFileCopyOwnership(from_, to_);
  }
  EXPECT_EQ(log.count, 1);
  EXPECT_EQ(onCopy("user.grows"), "absent");
}

TEST_F(OssCopyOwnership, AttributeWithoutMemoryForItIsLogged) {
  if (!vrxtest::kMemoryCanRunOut) GTEST_SKIP() << "sanitizers have memory of their own";
  if (!setOnSource("user.long", std::string(1500, 'v'))) GTEST_SKIP() << "no user attributes here";
  const int logged = osstest::inChild([&] {
    const Logged log;
    const vrxtest::MemoryDrought drought;
    ossFileCopyOwnership(from_, to_);
    return log.count;
  });
  EXPECT_EQ(logged, 1);
  EXPECT_EQ(onCopy("user.long"), "absent");
}

TEST_F(OssCopyOwnership, InheritedAclThatStaysIsLogged) {
  const std::string acl = aclBytes();
  if (fsetxattr(to_, kAccessAcl, acl.data(), acl.size(), 0) != 0) GTEST_SKIP() << "no ACLs here";
  const Logged log;
  const FailCall fault(Call::kRemoveAttribute, 1, EPERM);
  ossFileCopyOwnership(from_, to_);
  EXPECT_EQ(log.count, 1);
  EXPECT_EQ(onCopy(kAccessAcl), acl);
}

TEST_F(OssCopyOwnership, AnAclIsCarriedOverBesideOtherAttributes) {
  if (!setOnSource(kAccessAcl, aclBytes())) GTEST_SKIP() << "no ACLs here";
  ASSERT_TRUE(setOnSource("user.beside", "b"));
  ossFileCopyOwnership(from_, to_);
  EXPECT_EQ(onCopy(kAccessAcl), aclBytes());
  EXPECT_EQ(onCopy("user.beside"), "b");
}

}  // namespace
