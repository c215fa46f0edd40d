// SPDX-License-Identifier: Apache-2.0
// Making and removing the private copy of a dry run.
#include "cli/private_copy.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <vector>

#include "cli/failure.h"
#include "cli/output.h"
#include "platform/osse/interruptions.h"

namespace cli {

namespace fs = std::filesystem;

namespace {

// Copies at most `limit` bytes: 0 or an errno value, EFBIG when there are more.
int copyBytes(int from, int to, long long limit) {
  std::vector<char> block(std::size_t{1} << 16);
  off_t offset = 0;
  for (;;) {
    const ssize_t count =
        oss::repeatInterrupted([&] { return pread(from, block.data(), block.size(), offset); });
    if (count <= 0) return count < 0 ? errno : 0;
    offset += count;
    if (offset > limit) return EFBIG;
    const int error = writeAll(to, {block.data(), static_cast<std::size_t>(count)});
    if (error != 0) return error;
  }
}

}  // namespace

PrivateCopy::PrivateCopy(const std::string& original) {
  makeFolder();
  std::error_code failed;
  fs::copy_file(original, path(), failed);
  if (!failed || failed == std::errc::no_such_file_or_directory) return;
  removeFolder();
  throw Failure(Exit::io, fmt::format("{}: cannot be copied for a dry run", original));
}

PrivateCopy::PrivateCopy(int original, const std::string& name) {
  makeFolder();
  const int copy = open(path().c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  const int error = copy < 0 ? errno : copyBytes(original, copy, kMaxBytes);
  if (copy >= 0) (void)close(copy);  // what did not reach the disk reads back all the same
  if (error == 0) return;
  removeFolder();
  throw pathFailure(Exit::io, name, std::strerror(error));
}

PrivateCopy::~PrivateCopy() {
  removeFolder();
}

void PrivateCopy::makeFolder() {
  const char* base = std::getenv("TMPDIR");
  std::string name = base != nullptr && *base != '\0' ? base : "/tmp";
  name += "/vrxreg.XXXXXX";
  if (mkdtemp(name.data()) == nullptr) {
    throw Failure(Exit::io, fmt::format("no private folder {}: {}", name, std::strerror(errno)));
  }
  folder_ = name;
}

void PrivateCopy::removeFolder() {
  std::error_code ignored;  // a folder left behind changes no registry
  fs::remove_all(folder_, ignored);
}

}  // namespace cli
