// SPDX-License-Identifier: Apache-2.0
// Which file the environment leads to. Homes and their tools stand in private mount namespaces.
#include "globalreg/internal/location.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "genreg/internal/function_ids.h"
#include "globalreg/global_reg.h"
#include "globalreg/internal/fixed_names.h"
#include "tests/support/captured_log.h"
#include "tests/support/leave_child.h"
#include "tests/support/private_mounts.h"
#include "tests/support/temp_dir.h"

namespace {

using vrxtest::CapturedLog;
using vrxtest::inChildProcess;
using vrxtest::inPrivateMounts;

constexpr char kHostPath[] = "/var/vrx/global.reg";

void setVariables(const char* path, const char* instance) {
  unsetenv("VRX_GLOBAL_REG_PATHNAME");
  unsetenv("VRXINSTANCE");
  if (path != nullptr) setenv("VRX_GLOBAL_REG_PATHNAME", path, 1);
  if (instance != nullptr) setenv("VRXINSTANCE", instance, 1);
}

std::string pathname() {
  char path[2048] = {};
  unsigned short length = sizeof path;
  EXPECT_EQ(GetGlobalRegPathname(path, &length), 0U);
  EXPECT_EQ(length, std::string(path).size() + 1);
  return path;
}

std::string pathOf(bool hostWideOnly) {
  const GlobalReg registry(hostWideOnly);
  return registry.registryPath;
}

// Inside private mounts: a user "inst1" whose home holds the instance tool with these bits.
bool makeInstance(mode_t toolMode) {
  const std::string home = "/tmp/home";
  std::filesystem::create_directories(home + "/sqllib/adm");
  vrxtest::writeFile(home + "/sqllib/adm/vrxperm", "tool");
  EXPECT_EQ(chmod((home + "/sqllib/adm/vrxperm").c_str(), toolMode), 0);
  return vrxtest::replaceFile(
      "/etc/passwd", "root:x:0:0::/root:/bin/sh\ninst1:x:7001:7001::" + home + ":/bin/sh\n");
}

TEST(Location, HostWideRegistryWithoutVariables) {
  inChildProcess([] {
    setVariables(nullptr, nullptr);
    EXPECT_EQ(pathname(), kHostPath);
    EXPECT_EQ(pathOf(false), kHostPath);
    EXPECT_EQ(pathOf(true), kHostPath);
  });
}

TEST(Location, PathnameVariableWinsOverEverything) {
  inPrivateMounts([] {
    (void)makeInstance(04755);
    setVariables("/tmp/mine.reg", "inst1");
    EXPECT_EQ(pathname(), "/tmp/mine.reg");
    EXPECT_EQ(pathOf(false), "/tmp/mine.reg");
    EXPECT_EQ(pathOf(true), "/tmp/mine.reg");
  });
}

TEST(Location, EmptyPathnameVariableStillWins) {
  inChildProcess([] {
    setVariables("", nullptr);
    EXPECT_EQ(pathname(), "");
    EXPECT_EQ(pathOf(false), "");
  });
}

TEST(Location, EmptyInstanceVariableCountsAsUnset) {
  inChildProcess([] {
    setVariables(nullptr, "");
    EXPECT_EQ(pathname(), kHostPath);
  });
}

TEST(Location, InstanceWithASetuidRootToolKeepsItsOwnRegistry) {
  if (getuid() != 0) GTEST_SKIP() << "takes a process of root's";
  inPrivateMounts([] {
    if (!makeInstance(04755)) return;
    setVariables(nullptr, "inst1");
    EXPECT_EQ(pathname(), "/tmp/home/sqllib/global.reg");
    EXPECT_EQ(pathOf(false), "/tmp/home/sqllib/global.reg");
    EXPECT_EQ(pathOf(true), kHostPath);
  });
}

TEST(Location, ToolWithoutTheBitLeadsToTheHostWideRegistry) {
  if (getuid() != 0) GTEST_SKIP() << "takes a process of root's";
  inPrivateMounts([] {
    if (!makeInstance(0755)) return;
    setVariables(nullptr, "inst1");
    EXPECT_EQ(pathname(), kHostPath);
    EXPECT_EQ(unlink("/tmp/home/sqllib/adm/vrxperm"), 0);
    EXPECT_EQ(pathname(), kHostPath);
  });
}

TEST(Location, ToolOfAnotherOwnerLeadsToTheHostWideRegistry) {
  if (getuid() != 0) GTEST_SKIP() << "takes a process of root's";
  inPrivateMounts([] {
    if (!makeInstance(04755)) return;
    const char* tool = "/tmp/home/sqllib/adm/vrxperm";
    ASSERT_EQ(chown(tool, 7001, 7001), 0);
    ASSERT_EQ(chmod(tool, 04755), 0);  // the change of owner has taken the bit away
    setVariables(nullptr, "inst1");
    EXPECT_EQ(pathname(), kHostPath);
    EXPECT_EQ(pathOf(false), kHostPath);
  });
}

TEST(Location, UnknownInstanceOwnerIsAFailureOfTheFunctionAndAnEmptyPathOfTheObject) {
  inChildProcess([] {
    setVariables(nullptr, "no such user");
    char path[64] = "kept";
    unsigned short length = sizeof path;
    const CapturedLog log;
    const GenRegStatus rc = GetGlobalRegPathname(path, &length);
    EXPECT_NE(rc, 0U);
    EXPECT_EQ(log.count(genreg::kGetGlobalRegPathname, rc), 1);
    EXPECT_STREQ(path, "kept");
    EXPECT_EQ(length, sizeof path);
    EXPECT_EQ(pathOf(false), "");
    EXPECT_EQ(pathOf(true), kHostPath);
  });
}

TEST(Pathname, SizeIsCheckedAndReturned) {
  inChildProcess([] {
    setVariables(nullptr, nullptr);
    char path[20] = "kept";
    unsigned short length = 10;
    EXPECT_EQ(GetGlobalRegPathname(path, &length), 0x90000258U);
    EXPECT_EQ(length, 20);
    EXPECT_STREQ(path, "kept");
    length = 19;
    EXPECT_EQ(GetGlobalRegPathname(path, &length), 0x90000258U);
    length = 20;
    EXPECT_EQ(GetGlobalRegPathname(path, &length), 0U);
    EXPECT_STREQ(path, kHostPath);
    EXPECT_EQ(length, 20);
  });
}

TEST(Pathname, NullPointersAreRefused) {
  char path[20] = "kept";
  unsigned short length = 7;
  const CapturedLog log;
  EXPECT_EQ(GetGlobalRegPathname(nullptr, &length), 0x90000259U);
  EXPECT_EQ(length, 7);
  EXPECT_EQ(GetGlobalRegPathname(path, nullptr), 0x9000000CU);
  EXPECT_STREQ(path, "kept");
  EXPECT_EQ(log.count(genreg::kGetGlobalRegPathname), 2);
}

TEST(Pathname, MoreThan65535BytesAreReportedAs65535) {
  inChildProcess([] {
    for (const std::size_t size : {65534U, 65535U, 65536U, 100000U}) {
      setVariables(std::string(size, 'p').c_str(), nullptr);
      std::string path(65535, 'k');
      unsigned short length = 0xFFFF;
      const GenRegStatus rc = GetGlobalRegPathname(path.data(), &length);
      EXPECT_EQ(rc, size < 65535 ? 0U : 0x90000258U) << size;
      EXPECT_EQ(length, 0xFFFF) << size;
      EXPECT_EQ(path[0], size < 65535 ? 'p' : 'k') << size;
    }
  });
}

// Not a test of its own: what the set-user-id copy of this program runs. It leaves without the
// checks at a program's end, for which a sanitizer may not look into such programs.
TEST(Pathname, DISABLED_IsTheHostWideOne) {
  char path[1024] = {};
  unsigned short length = sizeof path;
  EXPECT_EQ(GetGlobalRegPathname(path, &length), 0U);
  EXPECT_STREQ(path, kHostPath);
  vrxtest::leaveChild(HasFailure() ? 1 : 0);
}

// Runs the disabled test in a copy of this program, as user and group 7002.
int runCopy(const std::string& program) {
  const pid_t child = fork();
  if (child == 0) {
    (void)!freopen("/dev/null", "w", stdout);
    if (setgid(7002) != 0 || setuid(7002) != 0) _exit(70);
    execl(program.c_str(), program.c_str(), "--gtest_also_run_disabled_tests",
          "--gtest_filter=Pathname.DISABLED_IsTheHostWideOne", nullptr);
    _exit(71);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(Pathname, SetuidProgramIgnoresThePathnameVariable) {
  if (getuid() != 0) GTEST_SKIP() << "takes a process of root's";
  const vrxtest::TempDir folder;
  ASSERT_EQ(chmod(folder.path().c_str(), 0755), 0);
  const std::string program = folder.file("program");
  std::filesystem::copy_file("/proc/self/exe", program);
  inChildProcess([&program] {
    setVariables("/tmp/mine.reg", nullptr);
    ASSERT_EQ(chmod(program.c_str(), 0755), 0);
    EXPECT_EQ(runCopy(program), 1) << "an ordinary program heeds the variable";
    ASSERT_EQ(chown(program.c_str(), 7003, 7003), 0);
    ASSERT_EQ(chmod(program.c_str(), 04755), 0);
    EXPECT_EQ(runCopy(program), 0) << "a set-user-id program does not";
    ASSERT_EQ(chmod(program.c_str(), 02755), 0);
    EXPECT_EQ(runCopy(program), 0) << "nor does a set-group-id program";
  });
}

}  // namespace
