// SPDX-License-Identifier: Apache-2.0
// The change log: one line for each update of the global registry, in one file that every user of
// the host appends to. What a line says is change_line.cpp's.
//
// The file has a fixed name in a folder where everybody may create files, so what stands there may
// have been put there by anybody: only a regular file with one name is written to, and nothing is
// followed, waited for or created over.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "genreg/internal/operation.h"
#include "globalreg/global_reg.h"
#include "globalreg/internal/change_line.h"
#include "platform/osse/errors.h"
#include "platform/osse/interruptions.h"

namespace {

namespace status = genreg::status;

// Everybody's updates go into the log, whoever made the first.
constexpr mode_t kLogMode = 0666;

constexpr int kOpenFlags = O_WRONLY | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

// Whether the log was there before this line.
enum class Origin { existing, created };

struct OpenLog {
  int descriptor;
  Origin origin;
};

// An existing log is opened without the create flag: in a sticky folder the system may refuse that
// flag for another user's file. A log that appears in between is opened as an existing one.
OpenLog openLog() {
  int fd = open(kGlobalRegChangeLog, kOpenFlags);
  if (fd >= 0 || errno != ENOENT) return {fd, Origin::existing};
  fd = open(kGlobalRegChangeLog, kOpenFlags | O_CREAT | O_EXCL, kLogMode);
  if (fd >= 0 || errno != EEXIST) return {fd, Origin::created};
  return {open(kGlobalRegChangeLog, kOpenFlags), Origin::existing};
}

// A file with a second name may be another program's.
bool isPlainLog(const struct stat& info) {
  return S_ISREG(info.st_mode) && info.st_nlink == 1;
}

// Leaves the log to everybody, and an existing one to its owner. Best effort: only the owner may.
void settleLog(const OpenLog& log, const struct stat& info) {
  (void)!fchmod(log.descriptor, kLogMode);
  if (log.origin == Origin::existing) {
    (void)!fchown(log.descriptor, info.st_uid, info.st_gid);
  }
}

// Whether the next write would end the process, as one behind the largest file that it may write
// does.
bool isAtSizeLimit(int fd) {
  rlimit limit{};
  const off_t end = lseek(fd, 0, SEEK_CUR);
  return getrlimit(RLIMIT_FSIZE, &limit) == 0 && end >= 0 &&
         static_cast<rlim_t>(end) >= limit.rlim_cur;
}

// One call, so that lines of several processes do not mix; where the system takes a part only, the
// rest follows at once.
void writeLine(genreg::Operation& op, int fd, const globalreg::LineBuffer& line) {
  for (std::size_t done = 0; done < line.size();) {
    const ssize_t written =
        oss::repeatInterrupted([&] { return write(fd, line.data() + done, line.size() - done); });
    if (written < 0) return op.note(4, ossErrorMapSystem(errno), status::ok);
    done += static_cast<std::size_t>(written);
    if (done < line.size() && (written == 0 || isAtSizeLimit(fd))) {
      return op.note(5, ossErrorMapSystem(ENOSPC), status::ok);
    }
  }
}

void appendToLog(genreg::Operation& op, const globalreg::LineBuffer& line) {
  const OpenLog log = openLog();
  if (log.descriptor < 0) return op.note(1, ossErrorMapSystem(errno), status::ok);
  struct stat info {};
  if (fstat(log.descriptor, &info) != 0 || !isPlainLog(info)) {
    op.note(2, ossErrorMapSystem(EPERM), status::ok);
  } else {
    writeLine(op, log.descriptor, line);
    settleLog(log, info);
  }
  if (close(log.descriptor) != 0) op.note(3, ossErrorMapSystem(errno), status::ok);
}

}  // namespace

int GlobalReg::Log(void* registry, unsigned int action, void* record, void* second) {
  genreg::Operation op(genreg::kGlobalRegLog, kGlobalRegChangeLog);
  globalreg::LineBuffer line;
  globalreg::appendHeader(line, *static_cast<GlobalReg*>(registry), action);
  globalreg::appendRecord(line, record);
  if (action == kGenRegChange && second != nullptr) {
    line.append("!");
    globalreg::appendRecord(line, second);
  }
  line.endLine();
  appendToLog(op, line);
  return op.result();
}
