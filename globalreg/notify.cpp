// SPDX-License-Identifier: Apache-2.0
// Telling the fault monitor that the global registry has changed: SIGHUP to whoever holds the lock
// on the monitor's lock file. The monitor itself, and taking that lock, are not here.
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <mutex>

#include "genreg/internal/operation.h"
#include "globalreg/global_reg.h"
#include "globalreg/internal/fixed_names.h"
#include "platform/osse/errors.h"
#include "platform/osse/files.h"
#include "platform/osse/paths.h"

namespace {

using globalreg::kMonitorLockPath;
namespace status = genreg::status;

enum class Step { done, askFailed, signalFailed };

// How far the notification came, and the errno of the step that failed.
struct Outcome {
  Step step;
  int error;
};

bool stillNamed(int fd) {
  bool same = false;
  return fd >= 0 && ossDescriptorNamesPath(fd, kMonitorLockPath, &same) == status::ok && same;
}

// A descriptor of the monitor's lock file, or -1 with errno. It is never closed, since closing any
// descriptor of a file drops every lock that this process holds on it, and this process may be the
// monitor. So one is kept and used again for as long as the path names the same file.
int monitorDescriptor() {
  static std::mutex mutex;
  static int kept = -1;
  const std::lock_guard<std::mutex> guard(mutex);
  if (stillNamed(kept)) return kept;
  const int fd = open(kMonitorLockPath, O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (fd >= 0) kept = fd;
  return fd;
}

// Sets *holder to the process that keeps others from locking the file; below 1 when none does.
int askForHolder(int fd, pid_t* holder) {
  struct flock request {};
  request.l_type = F_WRLCK;
  request.l_whence = SEEK_SET;
  request.l_pid = -1;
  const int rc = fcntl(fd, F_GETLK, &request);
  *holder = request.l_pid;
  return rc;
}

Outcome signalMonitor() {
  if (!ossIsFile(kMonitorLockPath)) return {Step::done, 0};
  const int fd = monitorDescriptor();
  if (fd < 0 && errno == ENOENT) return {Step::done, 0};  // gone since: the monitor has ended
  pid_t holder = -1;
  if (fd < 0 || askForHolder(fd, &holder) != 0) return {Step::askFailed, errno};
  if (holder < 1) return {Step::done, 0};
  if (kill(holder, SIGHUP) != 0) return {Step::signalFailed, errno};
  return {Step::done, 0};
}

}  // namespace

int GlobalReg::Notify() {
  genreg::Operation op(genreg::kGlobalRegNotify, kMonitorLockPath);
  const Outcome outcome = signalMonitor();
  if (outcome.step == Step::done || outcome.error == 0) return op.result();
  const GenRegStatus inner = ossErrorMapSystem(outcome.error);
  if (outcome.step == Step::askFailed) {
    return genreg::statusInt(op.fail(1, status::notify_failed, inner));
  }
  op.note(2, status::signal_not_sent, inner);
  return genreg::statusInt(op.conclude(status::notify_failed));
}

GenRegStatus fmcNotify() {
  genreg::Operation op(genreg::kFmcNotify, kMonitorLockPath);
  const Outcome outcome = signalMonitor();
  if (outcome.step == Step::done || outcome.error == 0) return op.status();
  const GenRegStatus inner = ossErrorMapSystem(outcome.error);
  if (outcome.step == Step::askFailed) return op.fail(1, inner);
  return op.fail(2, status::signal_not_sent, inner);
}
