// SPDX-License-Identifier: Apache-2.0
// Opening and reading the change log.
#include "cli/log_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "cli/failure.h"
#include "platform/osse/errors.h"
#include "platform/osse/interruptions.h"

namespace cli {

void LogFile::fail(int error) const {
  const bool isLink = error == ELOOP && links_ == LinkPolicy::refused;
  if (!isLink) throw failureOf(ossErrorMapSystem(error), path_, path_);
  Failure failure(Exit::io, path_ + ": a symbolic link, which is not followed");
  failure.path = path_;
  throw failure;
}

bool LogFile::open() {
  close();
  const int careful = O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC |
                      (links_ == LinkPolicy::refused ? O_NOFOLLOW : 0);
  descriptor_ = oss::repeatInterrupted([&] { return ::open(path_.c_str(), careful); });
  if (descriptor_ < 0 && errno == ENOENT) return false;
  struct stat info {};
  if (descriptor_ < 0 || fstat(descriptor_, &info) != 0) fail(errno);
  if (S_ISREG(info.st_mode)) return true;
  Failure failure(Exit::io, path_ + ": no regular file");
  failure.path = path_;
  throw failure;
}

void LogFile::close() {
  if (isOpen()) (void)::close(descriptor_);  // nothing was written
  descriptor_ = -1;
  offset_ = 0;
}

bool LogFile::isReplaced() const {
  struct stat own {};
  struct stat named {};
  if (fstat(descriptor_, &own) != 0) fail(errno);
  if (own.st_size < offset_) return true;
  if (stat(path_.c_str(), &named) != 0) return false;
  return own.st_dev != named.st_dev || own.st_ino != named.st_ino;
}

std::string_view LogFile::read() {
  const ssize_t count = oss::repeatInterrupted(
      [&] { return pread(descriptor_, block_.data(), block_.size(), offset_); });
  if (count < 0) fail(errno);
  offset_ += count;
  return std::string_view(block_).substr(0, static_cast<std::size_t>(count));
}

}  // namespace cli
