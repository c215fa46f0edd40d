// SPDX-License-Identifier: Apache-2.0
// Options, files, counts and the watchdog.
#include "tests/support/campaign.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "platform/osse/files.h"

namespace vrxtest {
namespace {

constexpr unsigned kPatience = 60;
constexpr unsigned long kToldComplaints = 10;

[[noreturn]] void giveUp(const std::string& what) {
  std::fprintf(stderr, "%s\n", what.c_str());
  std::exit(2);
}

unsigned long numberOf(const std::string& text) {
  char* end = nullptr;
  const unsigned long number = std::strtoul(text.c_str(), &end, 10);
  if (text.empty() || *end != '\0' || number == 0) giveUp("no number: " + text);
  return number;
}

// Where results go; -1 before parseCampaign.
int resultDescriptor = -1;

void keepOutputForResults() {
  resultDescriptor = dup(STDOUT_FILENO);
  const int dropped = open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (resultDescriptor < 0 || dropped < 0 || dup2(dropped, STDOUT_FILENO) < 0) {
    giveUp("standard output cannot be set aside");
  }
  (void)close(dropped);  // its copy is what counts
}

}  // namespace

CampaignOptions parseCampaign(int argc, char** argv, const std::vector<std::string>& formats) {
  CampaignOptions options;
  for (int i = 1; i < argc; i += 2) {
    const std::string name = argv[i];
    if (i + 1 == argc) giveUp("a value is missing: " + name);
    const std::string value = argv[i + 1];
    if (name == "--stride") {
      options.stride = numberOf(value);
    } else if (name == "--operations") {
      options.operations = numberOf(value);
    } else if (name == "--seed") {
      options.seed = numberOf(value);
    } else if (name == "--format") {
      if (std::find(formats.begin(), formats.end(), value) == formats.end()) {
        giveUp("no such format: " + value);
      }
      options.formats.push_back(value);
    } else {
      giveUp("no such option: " + name);
    }
  }
  if (options.formats.empty()) options.formats = formats;
  keepOutputForResults();
  return options;
}

ScratchFolder::ScratchFolder() {
  const char* const wanted = std::getenv("TMPDIR");
  const char* const base = access("/dev/shm", W_OK) == 0 ? "/dev/shm"
                           : wanted != nullptr           ? wanted
                                                         : "/tmp";
  path_ = std::string(base) + "/vrxcampaign.XXXXXX";
  if (mkdtemp(path_.data()) == nullptr) giveUp("no folder " + path_);
  ossSetSyncPolicy(OSSSyncPolicy::none);
}

ScratchFolder::~ScratchFolder() {
  std::error_code ignored;  // a folder left behind fails no check
  std::filesystem::remove_all(path_, ignored);
}

std::string bytesAt(const std::string& path) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  std::string bytes;
  char block[4096];
  ssize_t got = fd < 0 ? -1 : 0;
  while (fd >= 0 && (got = read(fd, block, sizeof block)) > 0)
    bytes.append(block, static_cast<std::size_t>(got));
  if (got < 0 || close(fd) != 0) giveUp("cannot be read: " + path);
  return bytes;
}

void putBytes(const std::string& path, const std::string& bytes) {
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  const bool written =
      fd >= 0 && write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
  if (!written || close(fd) != 0) giveUp("cannot be written: " + path);
}

void Score::begin() {
  ++made_;
  (void)alarm(kPatience);  // replaces the last check's
}

void Score::end(const std::string& what, const std::string& complaint) {
  (void)alarm(0);
  if (complaint.empty()) {
    ++passed_;
  } else if (made_ - passed_ <= kToldComplaints) {
    std::fprintf(stderr, "%s: %s: %s\n", title_.c_str(), what.c_str(), complaint.c_str());
  }
}

bool Score::tell() const {
  dprintf(resultDescriptor, "%s: %lu/%lu\n", title_.c_str(), passed_, made_);
  return made_ > 0 && passed_ == made_;
}

}  // namespace vrxtest
