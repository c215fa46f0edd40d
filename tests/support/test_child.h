// SPDX-License-Identifier: Apache-2.0
// For the tests of the platform: child processes, and this test program once more with an
// environment of its own.
#pragma once

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <initializer_list>
#include <string>
#include <vector>

#include "tests/support/leave_child.h"

namespace osstest {

// The exit status of a child; -1 when a signal ended it or there is no such child.
inline int waitForExit(pid_t child) {
  int status = 0;
  if (child < 0 || waitpid(child, &status, 0) != child) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Runs `body` in a forked child and returns its result, 0 to 255, as the child's exit status.
template <typename Body>
int inChild(const Body& body) {
  const pid_t child = fork();
  if (child == 0) vrxtest::leaveChild(body());
  return waitForExit(child);
}

// Runs `program` (a copy of this test program) with one disabled test, with nothing in the
// environment but `environment` ("NAME=value"), its output discarded. The exit status.
inline int runDisabledTest(const std::string& program, const std::string& test,
                           std::initializer_list<std::string> environment) {
  std::vector<std::string> texts = {program, "--gtest_filter=" + test,
                                    "--gtest_also_run_disabled_tests"};
  std::vector<char*> arguments;
  for (std::string& text : texts)
    arguments.push_back(text.data());
  arguments.push_back(nullptr);
  std::vector<std::string> settings(environment);
  std::vector<char*> variables;
  for (std::string& text : settings)
    variables.push_back(text.data());
  variables.push_back(nullptr);
  return inChild([&] {
    const int nowhere = open("/dev/null", O_RDWR);
    dup2(nowhere, STDOUT_FILENO);
    execve(program.c_str(), arguments.data(), variables.data());
    return 126;
  });
}

// The path of this program, as a child sees it too.
inline std::string thisProgram() {
  char path[4096];
  const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
  return length > 0 ? std::string(path, static_cast<std::size_t>(length)) : std::string();
}

}  // namespace osstest
