// SPDX-License-Identifier: Apache-2.0
// The time limit on locks, and the search for a lock's holder through /proc.
#include "cli/lock_wait.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "platform/osse/file_handle.h"

namespace cli {

namespace {

namespace fs = std::filesystem;
namespace status = genreg::status;
using Clock = std::chrono::steady_clock;

// How long somebody at a terminal waits before the holder is named.
constexpr long long kPatience = 1000;

std::string firstLine(const fs::path& path) {
  std::ifstream file(path);
  std::string line;
  std::getline(file, line);
  return line;
}

// Locks that belong to an open file show no process in /proc/locks; the descriptor that holds one
// does in its own information.
bool descriptorHoldsLock(const fs::path& information) {
  std::ifstream file(information);
  std::string line;
  while (std::getline(file, line)) {
    if (line.rfind("lock:", 0) == 0) return true;
  }
  return false;
}

bool processHoldsLock(const fs::path& process, const struct stat& wanted) {
  std::error_code failed;  // another user's process, or one that has ended
  for (fs::directory_iterator at(process / "fd", failed), end; !failed && at != end;
       at.increment(failed)) {
    struct stat info {};
    if (stat(at->path().c_str(), &info) != 0) continue;
    if (info.st_dev != wanted.st_dev || info.st_ino != wanted.st_ino) continue;
    if (descriptorHoldsLock(process / "fdinfo" / at->path().filename())) return true;
  }
  return false;
}

long long elapsed(Clock::time_point start) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

// What is left of the limit; the first round of somebody at a terminal ends when patience does.
long long nextLimit(long long limit, Clock::time_point start, bool firstRound) {
  const bool shortened = firstRound && isatty(STDERR_FILENO) == 1;
  if (limit < 0) return shortened ? kPatience : limit;
  const long long left = std::max(0LL, limit - elapsed(start));
  return shortened ? std::min(left, kPatience) : left;
}

void announce(const Store& store) {
  const std::string path = store.lockPath();
  const std::string text =
      fmt::format("vrxreg: waiting for {}, held by {}, 1 s\n", path, lockHolder(path));
  std::fputs(text.c_str(), stderr);
}

[[noreturn]] void giveUp(const Store& store, long long limit) {
  const std::string path = store.lockPath();
  Failure failure(Exit::busy, fmt::format("{} still held by {} after {:g} s; nothing changed", path,
                                          lockHolder(path), static_cast<double>(limit) / 1000));
  failure.code = status::lock_not_taken;
  failure.path = path;
  throw failure;
}

bool isBusy(GenRegStatus probed) {
  return probed == status::ok || probed == status::locked_elsewhere || probed == status::lock_held;
}

}  // namespace

std::string lockHolder(const std::string& path) {
  struct stat wanted {};
  if (stat(path.c_str(), &wanted) != 0) return "another process";
  std::error_code failed;
  for (fs::directory_iterator at("/proc", failed), end; !failed && at != end;
       at.increment(failed)) {
    const std::string name = at->path().filename();
    if (name.find_first_not_of("0123456789") != std::string::npos) continue;
    if (name == std::to_string(getpid()) || !processHoldsLock(at->path(), wanted)) continue;
    return fmt::format("pid {} ({})", name, firstLine(at->path() / "comm"));
  }
  return "another process";
}

vrx::Status runUpdate(const Arguments& arguments, Store& store,
                      const std::function<vrx::Status()>& update) {
  const Clock::time_point start = Clock::now();
  for (bool firstRound = true;; firstRound = false) {
    ossSetLockTimeLimit(nextLimit(arguments.timeLimit, start, firstRound));
    vrx::Status outcome = update();
    if (outcome.code() != status::lock_not_taken) return outcome;
    const GenRegStatus probed = store.probeLock();
    if (!isBusy(probed)) return vrx::Status(probed);
    const bool timeIsUp = arguments.timeLimit >= 0 && elapsed(start) >= arguments.timeLimit;
    if (timeIsUp) giveUp(store, arguments.timeLimit);
    if (firstRound && isatty(STDERR_FILENO) == 1) announce(store);
  }
}

}  // namespace cli
