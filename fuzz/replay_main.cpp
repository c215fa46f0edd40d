// SPDX-License-Identifier: Apache-2.0
// Feeds a fuzz target the files that are named, or that stand in the folders that are named.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "fuzz/fuzz_support.h"

namespace {

std::vector<std::filesystem::path> filesOf(const std::filesystem::path& path) {
  if (!std::filesystem::is_directory(path)) return {path};
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(path))
    files.push_back(entry.path());
  std::sort(files.begin(), files.end());
  return files;
}

// False when the file cannot be read.
bool feed(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return false;
  const std::string bytes{std::istreambuf_iterator<char>(file), {}};
  (void)LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()),
                               bytes.size());  // always 0: a finding does not return
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  int count = 0;
  for (int i = 1; i < argc; ++i) {
    for (const auto& file : filesOf(argv[i])) {
      if (!feed(file)) {
        std::fprintf(stderr, "cannot read %s\n", file.c_str());
        return 1;
      }
      ++count;
    }
  }
  std::printf("%d inputs replayed\n", count);
  return count > 0 ? 0 : 1;
}
