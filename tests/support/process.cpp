// SPDX-License-Identifier: Apache-2.0
// Child processes that are stepped through.
#include "tests/support/process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <fstream>
#include <string>

#include "tests/support/leave_child.h"

namespace vrxtest {
namespace {

bool sendByte(int pipe) {
  const char byte = 0;
  ssize_t sent = 0;
  do {
    sent = write(pipe, &byte, 1);
  } while (sent < 0 && errno == EINTR);
  return sent == 1;
}

bool receiveByte(int pipe) {
  char byte = 0;
  ssize_t received = 0;
  do {
    received = read(pipe, &byte, 1);
  } while (received < 0 && errno == EINTR);
  return received == 1;
}

[[noreturn]] void runBody(const std::function<void(Child::Gate&)>& body, Child::Gate& gate) {
  try {
    body(gate);
  } catch (const std::exception& error) {
    ADD_FAILURE() << "the body threw " << error.what();
  }
  std::fflush(nullptr);
  leaveChild(testing::Test::HasFailure() ? 1 : 0);
}

}  // namespace

void Child::Gate::pass() {
  if (!sendByte(toParent_)) _exit(1);
}

void Child::Gate::pause() {
  pass();
  if (!receiveByte(fromParent_)) _exit(1);
}

Child::Child(const std::function<void(Gate&)>& body) {
  int up[2];
  int down[2];
  if (pipe2(up, O_CLOEXEC) != 0 || pipe2(down, O_CLOEXEC) != 0) {
    ADD_FAILURE() << "no pipes";
    return;
  }
  std::fflush(nullptr);
  id_ = fork();
  if (id_ == 0) {
    (void)::close(up[0]);  // the other side's ends
    (void)::close(down[1]);
    Gate gate(up[1], down[0]);
    runBody(body, gate);
  }
  EXPECT_GT(id_, 0) << "no child process";
  (void)::close(up[1]);
  (void)::close(down[0]);
  fromChild_ = up[0];
  toChild_ = down[1];
}

Child::~Child() {
  if (id_ > 0) {
    kill();
    (void)wait();  // only ended
  }
  if (fromChild_ >= 0) (void)::close(fromChild_);
  if (toChild_ >= 0) (void)::close(toChild_);
}

bool Child::awaitPause() {
  return receiveByte(fromChild_);
}

void Child::awaitSleep() const {
  char state = 'R';
  while (state != 'S' && state != 'Z' && state != '?') {
    std::ifstream in("/proc/" + std::to_string(id_) + "/stat");
    std::string text;
    std::getline(in, text);
    const std::size_t end = text.rfind(") ");  // behind the program's name
    state = end != std::string::npos ? text[end + 2] : '?';
    (void)sched_yield();  // cannot fail
  }
}

void Child::resume() {
  EXPECT_TRUE(sendByte(toChild_)) << "the child is gone";
}

void Child::kill() {
  if (id_ > 0)
    (void)::kill(id_, SIGKILL);  // a child that has ended meanwhile is waited for all the same
}

int Child::wait() {
  if (id_ <= 0) return -1;
  int status = 0;
  while (waitpid(id_, &status, 0) < 0 && errno == EINTR) {
  }
  id_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

}  // namespace vrxtest
