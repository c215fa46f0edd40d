// SPDX-License-Identifier: Apache-2.0
// Opening and reading the change log.
#include "cli/log_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "cli/failure.h"
#include "platform/osse/errors.h"
#include "platform/osse/interruptions.h"

namespace cli {

void LogFile::fail(OSSStatus code) const {
  if (code == oss::status::not_a_regular_file)
    throw pathFailure(Exit::io, path_, "no regular file");
  if (code == ossErrorMapSystem(ELOOP) && links_ == LinkPolicy::refused)
    throw pathFailure(Exit::io, path_, "a symbolic link, which is not followed");
  throw failureOf(code, path_, path_);
}

bool LogFile::open() {
  const unsigned links = links_ == LinkPolicy::refused ? kOssOpenNoFollow : 0;
  const OSSFileOpenParams how = {
      kOssFileStructureVersion, path_.c_str(), kOssOpenExisting | links, kOssAccessRead, 0, 0, 0};
  offset_ = 0;
  const OSSStatus rc = file_.open(&how);
  if (rc == ossErrorMapSystem(ENOENT)) return false;
  if (rc != oss::status::ok) fail(rc);
  return true;
}

bool LogFile::isReplaced() const {
  struct stat own {};
  struct stat named {};
  if (fstat(file_.getFileHandle(), &own) != 0) fail(ossErrorMapSystem(errno));
  if (own.st_size < offset_) return true;
  if (stat(path_.c_str(), &named) != 0) return false;
  return own.st_dev != named.st_dev || own.st_ino != named.st_ino;
}

std::string_view LogFile::read() {
  const ssize_t count = oss::repeatInterrupted(
      [&] { return pread(file_.getFileHandle(), block_.data(), block_.size(), offset_); });
  if (count < 0) fail(ossErrorMapSystem(errno));
  offset_ += count;
  return std::string_view(block_).substr(0, static_cast<std::size_t>(count));
}

}  // namespace cli
