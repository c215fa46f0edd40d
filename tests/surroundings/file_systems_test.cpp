// SPDX-License-Identifier: Apache-2.0
// Registries on file systems that refuse: mounted over, read-only, full, without hard links.
#include <fcntl.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>

#include "platform/osse/log.h"
#include "tests/support/private_mounts.h"
#include "tests/surroundings/around.h"

namespace {

using namespace vrxtest;

constexpr char kMountPoint[] = "/tmp/mounted";

class FileSystems : public testing::TestWithParam<Subject> {
 protected:
  const SyncPolicy unsynced{OSSSyncPolicy::none};
  const Subject& subject = GetParam();
  const std::string path = std::string(kMountPoint) + "/reg";

  static void mountMemory(const char* options) {
    ASSERT_EQ(mkdir(kMountPoint, 0755), 0);
    ASSERT_EQ(mount("none", kMountPoint, "tmpfs", 0, options), 0);
  }
};

TEST_P(FileSystems, RegistryThatIsMountedOverIsNotReplaced) {
  inPrivateMounts([this] {
    ASSERT_EQ(mkdir(kMountPoint, 0755), 0);
    fillRegistry(subject, path);
    ASSERT_EQ(mount(path.c_str(), path.c_str(), nullptr, MS_BIND, nullptr), 0);
    expectRefusals(subject, path, notCommitted(subject));
    ASSERT_EQ(umount(path.c_str()), 0);
    expectUpdates(subject, path);
  });
}

void noteReplacing(const OSSLogEntry* entry, void* context) {
  if (entry->code == 0x900001E2) ++*static_cast<int*>(context);
}

// Seen through another mount of its folder the file can be linked, but the system knows that
// something is mounted on it.
TEST_P(FileSystems, RegistryThatIsMountedOverElsewhereIsBusy) {
  inPrivateMounts([this] {
    const std::string here = "/tmp/here";
    ASSERT_EQ(mkdir(here.c_str(), 0755), 0);
    fillRegistry(subject, here + "/reg");
    ASSERT_EQ(mkdir(kMountPoint, 0755), 0);
    ASSERT_EQ(mount(here.c_str(), kMountPoint, nullptr, MS_BIND, nullptr), 0);
    ASSERT_EQ(mount((here + "/reg").c_str(), (here + "/reg").c_str(), nullptr, MS_BIND, nullptr),
              0);
    int refusals = 0;
    ASSERT_EQ(ossSetLogCallback(noteReplacing, &refusals), 0U);
    expectRefusals(subject, path, notCommitted(subject));
    ASSERT_EQ(ossSetLogSink(OSSLogSink::none), 0U);
    EXPECT_GE(refusals, 3);
    EXPECT_EQ(readFile(std::string(kMountPoint) + "/.reg.bkp"), readFile(path));
    ASSERT_EQ(umount((here + "/reg").c_str()), 0);
    expectUpdates(subject, path);
  });
}

TEST_P(FileSystems, ReadOnlyOneIsReadAndRefusesUpdates) {
  inPrivateMounts([this] {
    mountMemory("size=1m");
    fillRegistry(subject, path);
    ASSERT_EQ(mount("none", kMountPoint, nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
    expectRefusals(subject, path, 0x900001BC);
    EXPECT_EQ(contentsOf(subject, path).status, kScanned);
    ASSERT_EQ(mount("none", kMountPoint, nullptr, MS_REMOUNT, nullptr), 0);
    expectUpdates(subject, path);
  });
}

// Leaves as many pages free as asked for.
void fillUpTo(unsigned long freePages) {
  const std::string ballast = std::string(kMountPoint) + "/ballast";
  const auto page = static_cast<unsigned long>(sysconf(_SC_PAGESIZE));
  struct statvfs info {};
  ASSERT_EQ(statvfs(kMountPoint, &info), 0);
  const auto pages = static_cast<unsigned long>(info.f_bavail * info.f_frsize / page);
  ASSERT_GE(pages, freePages);
  const int fd = open(ballast.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  ASSERT_GE(fd, 0);
  const std::string bytes(page, 'x');
  for (unsigned long i = freePages; i < pages; ++i)
    ASSERT_EQ(write(fd, bytes.data(), page), static_cast<ssize_t>(page));
  ASSERT_EQ(close(fd), 0);
}

// Wholly old with a failure, wholly new with success; true for success.
bool tryOnFull(const Subject& subject, const std::string& path, Kind kind) {
  const std::string before = readFile(path);
  const std::size_t count = contentsOf(subject, path).records.size();
  const unsigned rc = update(subject, path, kind);
  const Contents after = contentsOf(subject, path);
  EXPECT_EQ(after.status, kScanned);
  if (rc != 0) {
    EXPECT_EQ(readFile(path), before) << std::hex << rc;
    const bool documented = rc == 0x900001D0 || rc == 0x900001D2 || rc == 0x900001C6 ||
                            rc == 0x900001C5 || rc == notCommitted(subject);
    EXPECT_TRUE(documented) << std::hex << rc;
    return false;
  }
  const std::size_t wanted = count + (kind == Kind::kAdd ? 1 : 0) - (kind == Kind::kDelete ? 1 : 0);
  EXPECT_EQ(after.records.size(), wanted);
  return true;
}

TEST_P(FileSystems, FullOneKeepsTheOldContentsUntilThereIsRoom) {
  constexpr unsigned kMore = 150;
  constexpr unsigned long kMostPages = 40;
  inPrivateMounts([this] {
    mountMemory("size=400k");
    for (const Kind kind : kKinds) {
      fillRegistry(subject, path, kMore);
      bool done = false;
      for (unsigned long pages = 0; pages <= kMostPages && !done; ++pages) {
        (void)unlink((path + ".tmp").c_str());
        (void)unlink((path + ".cor").c_str());
        (void)unlink((std::string(kMountPoint) + "/ballast").c_str());
        fillUpTo(pages);
        done = tryOnFull(subject, path, kind);
        if (pages == 0) {
          EXPECT_FALSE(done) << "no page was free";
        }
      }
      EXPECT_TRUE(done);
      ASSERT_EQ(unlink((std::string(kMountPoint) + "/ballast").c_str()), 0);
      ASSERT_EQ(unlink(path.c_str()), 0);
    }
  });
}

// The system answers every request for a hard link as file systems without them do.
void refuseHardLinks() {
  sock_filter program[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_link, 1, 0),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_linkat, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  const sock_fprog filter = {sizeof program / sizeof program[0], program};
  ASSERT_EQ(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), 0);
  ASSERT_EQ(prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter), 0);
}

TEST_P(FileSystems, RefusedHardLinksLeaveTheOldContents) {
  const TempDir folder;
  const std::string here = folder.file("reg");
  fillRegistry(subject, here);
  inChildProcess([&] {
    refuseHardLinks();
    expectRefusals(subject, here, notCommitted(subject));
  });
  expectUpdates(subject, here);
}

// Mounts a new file system without hard links: the kernel's own where it has one, else one that is
// a process. Its device goes with the last who uses it.
constexpr char kMountWithoutLinks[] =
    "mkdir /tmp/mounted && truncate -s 4M /tmp/image && "
    "if grep -qw vfat /proc/filesystems; then "
    "  mkfs.vfat /tmp/image && mount -o loop /tmp/image /tmp/mounted; "
    "else "
    "  mkfs.exfat /tmp/image && device=$(losetup -f --show /tmp/image) && "
    "  { mount.exfat-fuse $device /tmp/mounted; mounted=$?; losetup -d $device; test $mounted = 0; "
    "}; "
    "fi >/dev/null 2>&1";

class Unmounted {
 public:
  Unmounted() = default;
  ~Unmounted() { (void)umount2(kMountPoint, MNT_DETACH); }  // also where an assertion has failed
  Unmounted(const Unmounted&) = delete;
  Unmounted& operator=(const Unmounted&) = delete;
};

bool canMountWithoutLinks() {
  static const bool can = [] {
    const std::string probe = std::string("unshare -m sh -c 'mount -t tmpfs none /tmp && ") +
                              kMountWithoutLinks + " && umount /tmp/mounted' >/dev/null 2>&1";
    return std::system(probe.c_str()) == 0;
  }();
  return can;
}

TEST_P(FileSystems, OneWithoutHardLinksKeepsTheOldContents) {
  if (!canMountWithoutLinks()) GTEST_SKIP() << "no such file system can be mounted here";
  inPrivateMounts([this] {
    const Unmounted atTheEnd;
    ASSERT_EQ(std::system(kMountWithoutLinks), 0);
    const TempDir folder;
    fillRegistry(subject, folder.file("reg"));
    writeFile(path, readFile(folder.file("reg")));
    ASSERT_EQ(link(path.c_str(), (path + "-link").c_str()), -1);
    expectRefusals(subject, path, notCommitted(subject));
  });
}

INSTANTIATE_TEST_SUITE_P(Formats, FileSystems, testing::ValuesIn(subjects()), subjectName);

}  // namespace
