// SPDX-License-Identifier: Apache-2.0
// A child process that a test steps through without sleeping: pipes tell each side how far the
// other has come.
//
//     vrxtest::Child holder([&](vrxtest::Child::Gate& gate) {
//       PlainRegistry other(path);
//       EXPECT_EQ(other.Lock(0x5, 0), 0u);
//       gate.pause();  // the test goes on, and this side waits for resume()
//       EXPECT_EQ(other.UnLock(), 0u);
//     });
//     ASSERT_TRUE(holder.awaitPause());
//     ...
//     holder.resume();
//     EXPECT_EQ(holder.wait(), 0);
#pragma once

#include <sys/types.h>

#include <functional>

namespace vrxtest {

class Child {
 public:
  // The child's end of the pipes.
  class Gate {
   public:
    Gate(int toParent, int fromParent) : toParent_(toParent), fromParent_(fromParent) {}
    // Says that this point is reached, and goes on.
    void pass();
    // Says so, and waits until the parent resumes the child. A child whose parent is gone ends.
    void pause();

   private:
    const int toParent_;
    const int fromParent_;
  };

  // Starts `body` in a child. Its failed assertions become exit code 1.
  explicit Child(const std::function<void(Gate&)>& body);
  // Kills a child that has not been waited for.
  ~Child();
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  // Waits until the child has paused or passed once more. False when it ended instead.
  bool awaitPause();
  // Returns when the child sleeps in a system call, or is no more.
  void awaitSleep() const;
  // Lets a paused child go on.
  void resume();
  // Ends the child as a crash would.
  void kill();
  // The child's exit code, 0 when all its assertions held, or minus the signal that ended it.
  int wait();

  pid_t id() const { return id_; }

 private:
  pid_t id_ = -1;
  int fromChild_ = -1;
  int toChild_ = -1;
};

}  // namespace vrxtest
