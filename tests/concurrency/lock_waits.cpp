// SPDX-License-Identifier: Apache-2.0
// A holder, a waiter and the clock that they share.
#include "tests/concurrency/lock_waits.h"

#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <new>

#include "globalreg/global_reg.h"
#include "tests/concurrency/crew.h"

namespace vrxtest {
namespace {

// Every process of the machine sees the same steady clock.
using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;
using std::chrono::seconds;

constexpr seconds kPatience(30);
constexpr unsigned kExclusiveWait = kGenRegLockExclusive | kGenRegLockWait;

struct Board {
  std::atomic<std::uint32_t> held;    // by the holder
  std::atomic<std::uint32_t> asking;  // the waiter is about to ask for the lock
  std::atomic<std::uint32_t> granted;
  Clock::time_point grantedAt;  // complete before `granted`
};

void hold(Board* board) {
  GlobalReg registry;
  board->held = registry.Lock(kExclusiveWait, 0) == 0 ? 1 : 0;
  for (;;)
    (void)pause();  // until it is killed
}

void wait(Board* board) {
  GlobalReg registry;
  board->asking = 1;
  const GenRegStatus status = registry.Lock(kExclusiveWait, 0);
  board->grantedAt = Clock::now();
  board->granted = status == 0 ? 1 : 0;
  if (status == 0) (void)registry.UnLock();  // its end would give the lock back just as well
}

// Looks until the condition holds; false when it does not come to hold.
template <class Condition>
bool await(Condition condition) {
  const Clock::time_point limit = Clock::now() + kPatience;
  while (!condition()) {
    if (Clock::now() > limit) return false;
    (void)usleep(100);  // the others need the processor
  }
  return true;
}

void finish(pid_t process) {
  (void)kill(process, SIGKILL);  // it may have ended
  (void)waitpid(process, nullptr, 0);
}

bool oneDeath(Board* board, microseconds* taken) {
  new (board) Board();
  const pid_t holder = inProcess([board] { hold(board); });
  bool good = await([board] { return board->held != 0; });
  const pid_t waiter = inProcess([board] { wait(board); });
  // Between asking and waiting nothing else puts it to sleep.
  good = good && await([=] { return board->asking != 0 && stateOf(waiter) == 'S'; });
  good = good && board->granted == 0;
  const Clock::time_point killed = Clock::now();
  finish(holder);
  good = good && await([board] { return board->granted != 0; });
  if (good) *taken = std::chrono::duration_cast<microseconds>(board->grantedAt - killed);
  finish(waiter);
  return good;
}

}  // namespace

std::vector<microseconds> waitsAfterDeaths(unsigned deaths) {
  Board* const board = static_cast<Board*>(sharedMemory(sizeof(Board)));
  std::vector<microseconds> waits;
  for (unsigned i = 0; i < deaths; ++i) {
    microseconds taken{};
    if (oneDeath(board, &taken)) waits.push_back(taken);
  }
  (void)munmap(board, sizeof(Board));  // the process keeps it otherwise
  return waits;
}

}  // namespace vrxtest
