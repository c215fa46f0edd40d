// SPDX-License-Identifier: Apache-2.0
// Ending forked children.
#include "tests/support/leave_child.h"

#include <sys/resource.h>
#include <unistd.h>

#ifdef VRX_COVERAGE
extern "C" void __gcov_dump(void);
#endif

namespace vrxtest {
namespace {

#ifdef VRX_COVERAGE
// Half a file of counters is worse than none: a child that gave itself no room for files must be
// able to take the limit back.
bool mayWriteFiles() {
  constexpr rlimit kNone = {RLIM_INFINITY, RLIM_INFINITY};
  rlimit limit{};
  if (getrlimit(RLIMIT_FSIZE, &limit) != 0) return false;
  return limit.rlim_cur == RLIM_INFINITY || setrlimit(RLIMIT_FSIZE, &kNone) == 0;
}

void keepCounters() {
  if (mayWriteFiles()) __gcov_dump();
}
#else
void keepCounters() {}
#endif

}  // namespace

void leaveChild(int code) {
  keepCounters();
  _exit(code);
}

}  // namespace vrxtest
