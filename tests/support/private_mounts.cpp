// SPDX-License-Identifier: Apache-2.0
// Child processes with mounts of their own.
#include "tests/support/private_mounts.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <exception>

#include "tests/support/leave_child.h"
#include "tests/support/temp_dir.h"

namespace vrxtest {
namespace {

enum ExitCode : int { kPassed = 0, kFailed = 1, kRefused = 77 };

bool writeText(const char* path, const std::string& text) {
  const int fd = open(path, O_WRONLY | O_CLOEXEC);
  if (fd < 0) return false;
  const ssize_t written = write(fd, text.data(), text.size());
  return close(fd) == 0 && written == static_cast<ssize_t>(text.size());
}

std::string identityMap(unsigned id) {
  return std::to_string(id) + " " + std::to_string(id) + " 1\n";
}

// Mounting takes privileges, which a user namespace gives inside it.
bool enterNamespaces() {
  const uid_t user = getuid();
  const gid_t group = getgid();
  if (user == 0) return unshare(CLONE_NEWNS) == 0;
  if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return false;
  return writeText("/proc/self/setgroups", "deny") &&
         writeText("/proc/self/uid_map", identityMap(user)) &&
         writeText("/proc/self/gid_map", identityMap(group));
}

bool coverFolder(const char* path, const char* options) {
  return mount("none", path, "tmpfs", MS_NOSUID | MS_NODEV, options) == 0;
}

bool makePrivate() {
  return enterNamespaces() && mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) == 0 &&
         coverFolder("/tmp", "mode=1777") && coverFolder("/var", "mode=755") &&
         mkdir("/var/vrx", 0755) == 0;
}

void runBody(const std::function<void()>& body) {
  try {
    body();
  } catch (const std::exception& error) {
    ADD_FAILURE() << "the body threw " << error.what();
  }
}

enum class Mounts { shared, own };

[[noreturn]] void runChild(Mounts mounts, const std::function<void()>& body) {
  if (mounts == Mounts::own && !makePrivate()) _exit(kRefused);
  runBody(body);
  std::fflush(nullptr);
  leaveChild(testing::Test::HasFailure() ? kFailed : kPassed);
}

// The child's exit code, or minus the signal that ended it.
int waitFor(pid_t child) {
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

void runInChild(Mounts mounts, const std::function<void()>& body) {
  std::fflush(nullptr);
  const pid_t child = fork();
  ASSERT_GE(child, 0) << "no child process";
  if (child == 0) runChild(mounts, body);
  const int result = waitFor(child);
  if (result == kRefused) GTEST_SKIP() << "mount namespaces are refused here";
  EXPECT_EQ(result, kPassed) << "the child's own messages stand above";
}

}  // namespace

void inPrivateMounts(const std::function<void()>& body) {
  runInChild(Mounts::own, body);
}

void inChildProcess(const std::function<void()>& body) {
  runInChild(Mounts::shared, body);
}

bool replaceFile(const std::string& path, const std::string& contents) {
  static int count = 0;
  const std::string copy = "/tmp/.replacement" + std::to_string(++count);
  writeFile(copy, contents);
  if (mount(copy.c_str(), path.c_str(), "none", MS_BIND, nullptr) != 0) return false;
  return unlink(copy.c_str()) == 0;
}

}  // namespace vrxtest
