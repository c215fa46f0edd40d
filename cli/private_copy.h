// SPDX-License-Identifier: Apache-2.0
// A file's private copy, on which a dry run does in earnest what it shows.
#pragma once

#include <string>

namespace cli {

// A folder of mode 0700 below TMPDIR (or /tmp) with a copy of one file; a missing file stays
// missing. The destructor removes the folder.
class PrivateCopy {
 public:
  // Throws Failure (io) when the folder or the copy cannot be made.
  explicit PrivateCopy(const std::string& original);
  // The same of an open file, from its beginning; `name` names it in failures. Also throws Failure
  // (io) when it is longer than kMaxBytes: a planted file could be any size.
  PrivateCopy(int original, const std::string& name);
  ~PrivateCopy();
  PrivateCopy(const PrivateCopy&) = delete;
  PrivateCopy& operator=(const PrivateCopy&) = delete;

  static constexpr long long kMaxBytes = 1LL << 30;

  std::string path() const { return folder_ + "/copy"; }

 private:
  void makeFolder();
  void removeFolder();

  std::string folder_;
};

}  // namespace cli
