// SPDX-License-Identifier: Apache-2.0
// The processes of one contention: they are started, some are killed and replaced, and all are
// waited for, but not for ever.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <vector>

#include "tests/concurrency/contenders.h"

namespace vrxtest {

// Runs the body in a child process, which ends without running this one's exit handlers.
pid_t inProcess(const std::function<void()>& body);

// Zeroed memory that this process shares with all that it forks from then on.
void* sharedMemory(std::size_t size);

// The letter that the system gives for what a process does: R when it runs or could, S when it
// waits for something, the lock for one. '\0' for a process that is gone.
char stateOf(pid_t process);

// How a contention of processes went, as far as the ledger does not tell.
struct Outcome {
  unsigned deaths = 0;    // writers killed
  unsigned holders = 0;   // of these, writers that held the lock
  unsigned replaced = 0;  // of these, writers whose replacements came to their end
  bool stuck = false;     // nobody made an update for a minute: all were killed
  unsigned crashes = 0;   // ends that nobody asked for
};

// The pace at which writers are killed; zero for never.
using Pace = std::chrono::milliseconds;

// Runs the arena's writers and `readers` readers to the writers' end. The readers go on and are for
// the caller to end, with endReaders.
class Crew {
 public:
  Crew(const Arena& arena, unsigned readers);
  Outcome runWriters(Pace pace, unsigned seed);
  // Waits until each reader has made a list that it began after this call; false after a minute.
  bool awaitLists() const;
  // False when one did not end by itself.
  bool endReaders();

 private:
  void startWriter(unsigned writer);
  void reap(Outcome* outcome);
  void killOne(Outcome* outcome);
  unsigned anyWriter();
  unsigned lockHolder();
  bool isStuck();
  void signalWriters(int signal) const;
  bool runs(unsigned writer) const { return writers_[writer] > 0; }
  unsigned running() const;
  unsigned ended() const;

  const Arena& arena_;
  std::vector<pid_t> writers_;
  std::vector<unsigned> deaths_;  // by writer
  std::vector<pid_t> readers_;
  unsigned long long chance_ = 1;
  unsigned progress_ = 0;  // steps that had ended when it was looked at last
  std::chrono::steady_clock::time_point progressed_;
};

}  // namespace vrxtest
