// SPDX-License-Identifier: Apache-2.0
// Signals to a monitor: a real child process that holds the lock.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <thread>
#include <vector>

#include "genreg/internal/function_ids.h"
#include "globalreg/global_reg.h"
#include "platform/osse/errors.h"
#include "tests/support/captured_log.h"
#include "tests/support/faults.h"
#include "tests/support/global_records.h"
#include "tests/support/private_mounts.h"
#include "tests/support/temp_dir.h"

namespace {

using vrxtest::CapturedLog;
using vrxtest::inPrivateMounts;

constexpr char kLock[] = "/var/vrx/.fmcd.lock";

bool lockWhole(int fd) {
  struct flock request {};
  request.l_type = F_WRLCK;
  request.l_whence = SEEK_SET;
  return fcntl(fd, F_SETLK, &request) == 0;
}

// A process that holds the monitor's lock. It exits with the number of hang-ups that it received
// before its pipe was closed, or with 99 when none came in time.
class Monitor {
 public:
  explicit Monitor(int hangUps) {
    int ready[2];
    EXPECT_EQ(pipe(ready), 0);
    child_ = fork();
    if (child_ == 0) run(ready[1], hangUps);
    close(ready[1]);
    char byte = 0;
    EXPECT_EQ(read(ready[0], &byte, 1), 1) << "the monitor holds no lock";
    close(ready[0]);
  }
  // Waits for the monitor to end.
  int received() const {
    int status = 0;
    while (waitpid(child_, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  pid_t process() const { return child_; }

 private:
  [[noreturn]] static void run(int ready, int hangUps) {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGHUP);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    const int fd = open(kLock, O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0 || !lockWhole(fd) || write(ready, "r", 1) != 1) _exit(98);
    const timespec limit = {20, 0};
    for (int i = 0; i < hangUps; ++i) {
      if (sigtimedwait(&signals, nullptr, &limit) != SIGHUP) _exit(99);
    }
    _exit(hangUps);
  }

  pid_t child_ = -1;
};

// This process's descriptors of the file at `path`.
std::vector<int> descriptorsOf(const char* path) {
  std::vector<int> found;
  struct stat wanted {};
  if (stat(path, &wanted) != 0) return found;
  for (int fd = 0; fd < 256; ++fd) {
    struct stat info {};
    if (fstat(fd, &info) != 0) continue;
    if (info.st_ino == wanted.st_ino && info.st_dev == wanted.st_dev) found.push_back(fd);
  }
  return found;
}

TEST(Notify, WithoutALockFileNobodyIsAskedAndNothingCreated) {
  inPrivateMounts([] {
    EXPECT_EQ(GlobalReg::Notify(), 0);
    EXPECT_EQ(fmcNotify(), 0U);
    EXPECT_FALSE(vrxtest::pathExists(kLock));
  });
}

TEST(Notify, WithoutALockNobodyIsSignalled) {
  inPrivateMounts([] {
    vrxtest::writeFile(kLock, "");
    EXPECT_EQ(GlobalReg::Notify(), 0);
    EXPECT_EQ(fmcNotify(), 0U);
  });
}

TEST(Notify, OtherThanARegularFileCountsAsNoMonitor) {
  inPrivateMounts([] {
    ASSERT_EQ(mkfifo(kLock, 0666), 0);
    EXPECT_EQ(GlobalReg::Notify(), 0);
    ASSERT_EQ(unlink(kLock), 0);
    ASSERT_EQ(mkdir(kLock, 0755), 0);
    EXPECT_EQ(fmcNotify(), 0U);
  });
}

TEST(Notify, MonitorReceivesTheHangUpOfBothFunctions) {
  inPrivateMounts([] {
    const Monitor first(1);
    EXPECT_EQ(GlobalReg::Notify(), 0);
    EXPECT_EQ(first.received(), 1);
    const Monitor second(1);
    EXPECT_EQ(fmcNotify(), 0U);
    EXPECT_EQ(second.received(), 1);
  });
}

// The monitor hears of the update before the update returns.
template <class Update>
void expectHangUpFrom(const Update& update) {
  const Monitor monitor(1);
  EXPECT_EQ(update(), 0);
  EXPECT_EQ(monitor.received(), 1);
}

TEST(Notify, EveryUpdateOfTheRegistrySignalsTheMonitor) {
  inPrivateMounts([] {
    setenv("VRX_GLOBAL_REG_PATHNAME", "/tmp/reg", 1);
    GlobalReg registry;
    GlobalRegRecord record = vrxtest::variableRecord("VRX", "A", "1");
    GlobalRegRecord changed = vrxtest::variableRecord("VRX", "A", "2");
    expectHangUpFrom([&] { return registry.Add(kVariableKey, &record); });
    expectHangUpFrom([&] { return registry.Change(kVariableKey, &record, &changed); });
    expectHangUpFrom([&] { return registry.Delete(kVariableKey, &record); });
  });
}

TEST(Notify, LockThatCannotBeAskedForIsReported) {
  inPrivateMounts([] {
    vrxtest::writeFile(kLock, "");
    const CapturedLog log;
    {
      const vrxtest::FailCall fault(vrxtest::Call::kLockFcntl, 1, EOVERFLOW);
      EXPECT_EQ(genreg::statusOf(GlobalReg::Notify()), 0x900003F3U);
      EXPECT_TRUE(fault.fired());
    }
    EXPECT_EQ(log.count(genreg::kGlobalRegNotify), 1);
    EXPECT_EQ(log.count(genreg::kGlobalRegNotify, 0x900003F3), 1);
    {
      const vrxtest::FailCall fault(vrxtest::Call::kLockFcntl, 1, EOVERFLOW);
      EXPECT_EQ(fmcNotify(), ossErrorMapSystem(EOVERFLOW));
      EXPECT_TRUE(fault.fired());
    }
    EXPECT_EQ(log.count(genreg::kFmcNotify, ossErrorMapSystem(EOVERFLOW)), 1);
    EXPECT_EQ(descriptorsOf(kLock).size(), 1U) << "the descriptor stays";
  });
}

TEST(Notify, LockFileThatCannotBeOpenedIsReported) {
  inPrivateMounts([] {
    vrxtest::writeFile(kLock, "");
    {
      const vrxtest::FailCall fault(vrxtest::Call::kOpen, 1, EACCES);
      EXPECT_EQ(genreg::statusOf(GlobalReg::Notify()), 0x900003F3U);
    }
    const vrxtest::FailCall fault(vrxtest::Call::kOpen, 1, EACCES);
    EXPECT_EQ(fmcNotify(), ossErrorMapSystem(EACCES));
    EXPECT_TRUE(fault.fired());
  });
}

TEST(Notify, LockFileThatVanishesMeanwhileCountsAsNoMonitor) {
  inPrivateMounts([] {
    vrxtest::writeFile(kLock, "");
    const vrxtest::BeforeCall vanish(vrxtest::Call::kOpen, 1, [] { (void)unlink(kLock); });
    EXPECT_EQ(GlobalReg::Notify(), 0);
    EXPECT_TRUE(vanish.fired());
    EXPECT_FALSE(vrxtest::pathExists(kLock));
  });
}

TEST(Notify, FailedNotificationFailsNoUpdate) {
  inPrivateMounts([] {
    setenv("VRX_GLOBAL_REG_PATHNAME", "/tmp/reg", 1);
    vrxtest::writeFile("/var/vrx/elsewhere", "");
    ASSERT_EQ(symlink("elsewhere", kLock), 0);
    GlobalReg registry;
    GlobalRegRecord record = vrxtest::variableRecord("VRX", "A", "1");
    const CapturedLog log;
    EXPECT_EQ(registry.Add(kVariableKey, &record), 0);
    EXPECT_EQ(log.count(genreg::kGlobalRegNotify, 0x900003F3), 1);
  });
}

TEST(Notify, TenThousandCallsHoldOneDescriptor) {
  inPrivateMounts([] {
    vrxtest::writeFile(kLock, "");
    const int before = vrxtest::openDescriptorCount();
    for (int i = 0; i < 10000; ++i)
      ASSERT_EQ(GlobalReg::Notify(), 0);
    EXPECT_EQ(vrxtest::openDescriptorCount(), before + 1);
    EXPECT_EQ(descriptorsOf(kLock).size(), 1U);
    EXPECT_EQ(fcntl(descriptorsOf(kLock).at(0), F_GETFD), FD_CLOEXEC);
  });
}

TEST(Notify, ThreadsShareTheDescriptor) {
  inPrivateMounts([] {
    vrxtest::writeFile(kLock, "");
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
      threads.emplace_back([] {
        for (int n = 0; n < 200; ++n)
          EXPECT_EQ(GlobalReg::Notify(), 0);
      });
    }
    for (std::thread& thread : threads)
      thread.join();
    EXPECT_EQ(descriptorsOf(kLock).size(), 1U);
  });
}

TEST(Notify, NewLockFileIsOpenedAndTheOldDescriptorKept) {
  inPrivateMounts([] {
    vrxtest::writeFile(kLock, "");
    ASSERT_EQ(GlobalReg::Notify(), 0);
    const int before = vrxtest::openDescriptorCount();
    ASSERT_EQ(rename(kLock, "/var/vrx/old"), 0);
    const Monitor monitor(1);
    EXPECT_EQ(GlobalReg::Notify(), 0);
    EXPECT_EQ(monitor.received(), 1);
    EXPECT_EQ(vrxtest::openDescriptorCount(), before + 1);
    EXPECT_EQ(descriptorsOf("/var/vrx/old").size(), 1U);
  });
}

TEST(Notify, DescriptorClosedByTheProgramIsOpenedAgain) {
  inPrivateMounts([] {
    vrxtest::writeFile(kLock, "");
    ASSERT_EQ(GlobalReg::Notify(), 0);
    const int kept = descriptorsOf(kLock).at(0);
    vrxtest::writeFile("/tmp/other", "");
    const int other = open("/tmp/other", O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(dup2(other, kept), kept);  // the number now belongs to another file
    EXPECT_EQ(GlobalReg::Notify(), 0);
    EXPECT_EQ(descriptorsOf(kLock).size(), 1U);
    EXPECT_EQ(descriptorsOf("/tmp/other").size(), 2U);
  });
}

TEST(Notify, ProcessKeepsItsOwnLockAndDoesNotSignalItself) {
  inPrivateMounts([] {
    const int fd = open(kLock, O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    ASSERT_TRUE(lockWhole(fd));
    EXPECT_EQ(GlobalReg::Notify(), 0);  // SIGHUP would end this process
    const pid_t child = fork();
    if (child == 0) _exit(lockWhole(open(kLock, O_RDWR | O_CLOEXEC)) ? 1 : 0);
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0) << "the lock was dropped";
  });
}

TEST(Notify, LinkAtTheLockFilesPathCannotBeAsked) {
  inPrivateMounts([] {
    vrxtest::writeFile("/var/vrx/elsewhere", "");
    ASSERT_EQ(symlink("elsewhere", kLock), 0);
    const CapturedLog log;
    EXPECT_EQ(genreg::statusOf(GlobalReg::Notify()), 0x900003F3U);
    EXPECT_EQ(log.count(genreg::kGlobalRegNotify, 0x900003F3), 1);
    EXPECT_EQ(fmcNotify(), ossErrorMapSystem(ELOOP));
    EXPECT_EQ(log.count(genreg::kFmcNotify, ossErrorMapSystem(ELOOP)), 1);
  });
}

TEST(Notify, SignalThatMayNotBeSentIsReported) {
  if (getuid() != 0) GTEST_SKIP() << "takes a process of root's";
  inPrivateMounts([] {
    vrxtest::writeFile(kLock, "");
    ASSERT_EQ(chmod(kLock, 0666), 0);
    const Monitor monitor(1);
    ASSERT_EQ(setuid(7002), 0);
    const CapturedLog log;
    EXPECT_EQ(genreg::statusOf(GlobalReg::Notify()), 0x900003F3U);
    EXPECT_EQ(log.count(genreg::kGlobalRegNotify, 0x900003F4), 1);
    EXPECT_EQ(log.count(genreg::kGlobalRegNotify), 1);
    EXPECT_EQ(fmcNotify(), 0x900003F4U);
    EXPECT_EQ(log.count(genreg::kFmcNotify, 0x900003F4), 1);
  });
}

}  // namespace
