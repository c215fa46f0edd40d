// SPDX-License-Identifier: Apache-2.0
// Making and removing the private copy of a dry run.
#include "cli/private_copy.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "cli/failure.h"

namespace cli {

namespace fs = std::filesystem;

PrivateCopy::PrivateCopy(const std::string& original) {
  const char* base = std::getenv("TMPDIR");
  std::string name = base != nullptr && *base != '\0' ? base : "/tmp";
  name += "/vrxreg.XXXXXX";
  if (mkdtemp(name.data()) == nullptr) {
    throw Failure(Exit::io, fmt::format("no private folder {}: {}", name, std::strerror(errno)));
  }
  folder_ = name;
  std::error_code failed;
  fs::copy_file(original, path(), failed);
  if (!failed || failed == std::errc::no_such_file_or_directory) return;
  fs::remove_all(folder_, failed);
  throw Failure(Exit::io, fmt::format("{}: cannot be copied for a dry run", original));
}

PrivateCopy::~PrivateCopy() {
  std::error_code ignored;  // a folder left behind changes no registry
  fs::remove_all(folder_, ignored);
}

}  // namespace cli
