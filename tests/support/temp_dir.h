// SPDX-License-Identifier: Apache-2.0
// A private folder for one test, removed with everything in it, and files as plain bytes.
#pragma once

#include <string>

namespace vrxtest {

// A new folder below TMPDIR (or /tmp), mode 0700. The destructor removes the whole tree.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return path_; }
  // The path of `name` inside the folder.
  std::string file(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

// The bytes of a file; a failed assertion and an empty string when it cannot be read.
std::string readFile(const std::string& path);

// Replaces or creates a file (mode 0644 less the umask) with exactly these bytes.
void writeFile(const std::string& path, const std::string& bytes);

// Whether something (a dangling link included) stands at this path.
bool pathExists(const std::string& path);

// The permission bits (octal 07777) of the file, link or folder at this path; -1 when nothing is
// there.
int modeOf(const std::string& path);

// How many descriptors this process has open.
int openDescriptorCount();

}  // namespace vrxtest
