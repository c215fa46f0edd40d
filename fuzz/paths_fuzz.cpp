// SPDX-License-Identifier: Apache-2.0
// Hostile paths: split, given to a registry as an argument and in the environment, and found in a
// symbolic link. No registry is opened.
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <vector>

#include "fuzz/file_support.h"
#include "globalreg/global_reg.h"
#include "platform/osse/paths.h"
#include "tests/support/plain_registry.h"

namespace {

using std::string;
using vrxfuzz::require;

constexpr const char* kVariable = "VRX_GLOBAL_REG_PATHNAME";

string baseOf(const string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == string::npos ? path : path.substr(slash + 1);
}

string folderOf(const string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == string::npos) return ".";
  const std::size_t last = path.substr(0, slash).find_last_not_of('/');
  return last == string::npos ? "/" : path.substr(0, last + 1);
}

void split(const string& path) {
  for (const std::size_t size : {std::size_t{1}, std::size_t{8}, path.size() + 3}) {
    std::vector<char> out(size + 1, '#');
    unsigned rc = ossBaseName(path.c_str(), out.data(), size);
    const string base = baseOf(path);
    require((rc == 0) == (!base.empty() && base.size() < size), "base name or not", path);
    require(rc != 0 ? out[0] == '#' : base == out.data(), "base name", path);
    out.assign(size + 1, '#');
    rc = ossDirectoryName(path.c_str(), out.data(), size);
    const string folder = folderOf(path);
    require((rc == 0) == (!path.empty() && folder.size() < size), "folder or not", path);
    require(rc != 0 ? out[0] == '#' : folder == out.data(), "folder", path);
    require(out[size] == '#', "written past the buffer", path);
  }
}

// The five paths; all of them empty where one would be cut.
std::vector<string> companions(const string& path) {
  const bool bare = path.find('/') == string::npos;
  const string prefix = bare || folderOf(path) == "." ? "" : folderOf(path) + "/";
  const string hidden = prefix + "." + baseOf(path);
  std::vector<string> names{path, path + ".tmp", path + ".cor", hidden + ".lock", hidden + ".bkp"};
  for (const string& name : names) {
    if (name.size() >= kGenRegPathSize) return std::vector<string>(5);
  }
  return names;
}

std::vector<string> pathsOf(const GenRegFile& registry) {
  const auto text = [](const char(&path)[kGenRegPathSize]) {
    require(std::memchr(path, '\0', sizeof path) != nullptr, "a path without end");
    return string(path);
  };
  return {text(registry.registryPath), text(registry.temporaryPath), text(registry.corruptPath),
          text(registry.lockPath), text(registry.backupPath)};
}

bool isUsable(const string& path) {
  return !baseOf(path).empty() && path.size() <= kGenRegMaxPathLength &&
         !companions(path)[0].empty();
}

void asArgument(const string& path) {
  const vrxtest::PlainRegistry registry(path);
  const bool usable = isUsable(path);
  require((registry.pathStatus == 0) == usable, "taken or not", path);
  require(pathsOf(registry) == (usable ? companions(path) : std::vector<string>(5)), "paths", path);
}

// The C library keeps every value that setenv has ever stored, which hours of this would turn into
// gigabytes: the entry is ours, until it is taken out again.
void setVariable(const string& value) {
  static string entry;
  entry = string(kVariable) + "=" + value;
  require(putenv(entry.data()) == 0, "no environment");
}

void inTheEnvironment(const string& path) {
  setVariable(path);
  const GlobalReg registry(true);
  const bool set = (registry.state & kGenRegStatePathsSet) != 0;
  require(set == isUsable(path), "taken or not", path);
  if (set) require(pathsOf(registry) == companions(path), "paths", path);
  for (const std::size_t room : {std::size_t{0}, path.size(), path.size() + 1}) {
    std::vector<char> buffer(room + 1, '#');
    auto length = static_cast<unsigned short>(room);
    const unsigned rc = GetGlobalRegPathname(buffer.data(), &length);
    require((rc == 0) == (room > path.size()), "pathname or not", path);
    require(length == path.size() + 1, "length of the pathname", path);
    require(rc != 0 ? buffer[0] == '#' : path == buffer.data(), "pathname", path);
    require(buffer[room] == '#', "written past the buffer", path);
  }
  require(unsetenv(kVariable) == 0, "no environment");
}

// All five change, or none; and they are each other's companions.
void inALink(const string& target) {
  const string link = vrxfuzz::scratchFile("link");
  (void)unlink(link.c_str());                              // of the last run
  if (symlink(target.c_str(), link.c_str()) != 0) return;  // no name of a file
  vrxtest::PlainRegistry registry(link);
  const std::vector<string> before = pathsOf(registry);
  (void)registry.GetAndSetRealRegistryPaths();  // always 0
  const std::vector<string> after = pathsOf(registry);
  require(after == before || after == companions(after[0]), "companions of another", after[0]);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const string bytes = vrxfuzz::bytesOf(data, size);
  const string path = bytes.substr(0, bytes.find('\0'));
  const vrxfuzz::Bounded bounded(size);
  split(path);
  asArgument(path);
  inTheEnvironment(path);
  inALink(path);
  return 0;
}
