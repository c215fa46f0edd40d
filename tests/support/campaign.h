// SPDX-License-Identifier: Apache-2.0
// What the programs that make very many small checks share: their options, their count of checks
// made and passed, and the watchdog that ends a check that hangs.
#pragma once

#include <string>
#include <vector>

namespace vrxtest {

// Options as --name NUMBER, and --format NAME any number of times.
struct CampaignOptions {
  unsigned long stride = 1;      // of the values that stand in for a byte
  unsigned long operations = 0;  // how many
  unsigned long seed = 1;
  std::vector<std::string> formats;  // all of the program's when none is named
};

// Ends the program with exit status 2 when an option or a format is unknown. From then on standard
// output is Score::tell's alone: what the library prints is dropped.
CampaignOptions parseCampaign(int argc, char** argv, const std::vector<std::string>& formats);

// A folder in memory where the system has one, removed with the object: hundreds of thousands of
// commits wear no disk. Turns syncing off for the process.
class ScratchFolder {
 public:
  ScratchFolder();
  ~ScratchFolder();
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;
  std::string file(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

// Files as bytes; the program ends when one cannot be read or written.
std::string bytesAt(const std::string& path);
void putBytes(const std::string& path, const std::string& bytes);

// Counts checks and tells the first few that fail.
class Score {
 public:
  explicit Score(std::string title) : title_(std::move(title)) {}
  // Arms the watchdog for one check: a process that is stuck for a minute ends by SIGALRM.
  void begin();
  // An empty complaint is a passed check.
  void end(const std::string& what, const std::string& complaint);
  // Prints "title: passed/made"; true when they are equal and not 0.
  bool tell() const;

 private:
  const std::string title_;
  unsigned long made_ = 0;
  unsigned long passed_ = 0;
};

}  // namespace vrxtest
