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
  ~PrivateCopy();
  PrivateCopy(const PrivateCopy&) = delete;
  PrivateCopy& operator=(const PrivateCopy&) = delete;

  std::string path() const { return folder_ + "/copy"; }

 private:
  std::string folder_;
};

}  // namespace cli
