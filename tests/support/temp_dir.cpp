// SPDX-License-Identifier: Apache-2.0
// Private test folders and file bytes.
#include "tests/support/temp_dir.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace vrxtest {

TempDir::TempDir() {
  const char* base = std::getenv("TMPDIR");
  std::string name =
      std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/vrxtest.XXXXXX";
  if (mkdtemp(name.data()) == nullptr) {
    ADD_FAILURE() << "no private folder " << name;
    return;
  }
  path_ = name;
}

TempDir::~TempDir() {
  if (path_.empty()) return;
  std::error_code ignored;  // a folder left behind fails no test
  std::filesystem::remove_all(path_, ignored);
}

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  EXPECT_TRUE(in.is_open()) << path;
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void writeFile(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  out.close();
  EXPECT_TRUE(out.good()) << path;
}

bool pathExists(const std::string& path) {
  struct stat info {};
  return lstat(path.c_str(), &info) == 0;
}

int modeOf(const std::string& path) {
  struct stat info {};
  if (lstat(path.c_str(), &info) != 0) return -1;
  return static_cast<int>(info.st_mode & 07777);
}

int openDescriptorCount() {
  const std::filesystem::directory_iterator entries("/proc/self/fd");
  return static_cast<int>(std::distance(begin(entries), end(entries))) - 1;
}

}  // namespace vrxtest
