// SPDX-License-Identifier: Apache-2.0
// A hostile level file beside a second reading of its rules.
#include <cstdlib>
#include <cstring>
#include <map>
#include <optional>
#include <sstream>

#include "fuzz/file_support.h"
#include "platform/install/level_info.h"

namespace {

using std::string;
using vrxfuzz::require;

constexpr std::size_t kLargestFile = 64 * 1024;

string stripped(const string& text) {
  const std::size_t first = text.find_first_not_of(" \t\r");
  if (first == string::npos) return "";
  return text.substr(first, text.find_last_not_of(" \t\r") + 1 - first);
}

// A decimal number up to `most`; more digits than fit 64 bits hold only behind zeros.
std::optional<std::uint64_t> number(const string& text, std::uint64_t most) {
  if (text.empty() || text.find_first_not_of("0123456789") != string::npos) return {};
  const std::size_t first = text.find_first_not_of('0');
  const string digits = first == string::npos ? "0" : text.substr(first);
  if (digits.size() > 10) return {};
  const std::uint64_t value = std::strtoull(digits.c_str(), nullptr, 10);
  return value <= most ? std::optional(value) : std::nullopt;
}

bool isVersion(const string& text) {
  std::size_t parts = 1;
  for (std::size_t at = 0, point = 0; point != string::npos; at = point + 1, ++parts) {
    point = text.find('.', at);
    if (!number(text.substr(at, point == string::npos ? point : point - at), 65535)) return false;
  }
  return parts - 1 <= 4 && text.size() < 24;
}

bool isBuildLevel(const string& text) {
  for (const char c : text) {
    if (c < ' ' || c > '~') return false;
  }
  return !text.empty() && text.size() < 64;
}

// The values of the three names; nothing when a line is wrong or a name stands twice.
std::optional<std::map<string, string>> valuesOf(const string& bytes) {
  std::map<string, string> values;
  std::istringstream lines(bytes);
  for (string line; std::getline(lines, line);) {
    if (line.size() > 255) return {};
    if (line[0] == '#' || stripped(line).empty()) continue;
    const std::size_t sign = line.find('=');
    const string name = stripped(line.substr(0, sign));
    if (sign == string::npos || name.empty()) return {};
    if (name != "version" && name != "build_level" && name != "fixpack") continue;
    if (!values.emplace(name, stripped(line.substr(sign + 1))).second) return {};
  }
  return values;
}

std::optional<sqleLevelInfo> expected(const string& bytes) {
  if (bytes.size() > kLargestFile || bytes.find('\0') != string::npos) return {};
  auto values = valuesOf(bytes);
  if (!values || values->size() != 3) return {};
  const string& version = (*values)["version"];
  const string& build = (*values)["build_level"];
  const auto fixpack = number((*values)["fixpack"], 0xFFFFFFFF);
  if (!isVersion(version) || !isBuildLevel(build) || !fixpack) return {};
  sqleLevelInfo info{};
  std::memcpy(info.version, version.data(), version.size());
  std::memcpy(info.buildLevel, build.data(), build.size());
  info.fixpackNumber = static_cast<unsigned>(*fixpack);
  return info;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const string path = vrxfuzz::scratchFile("level");
  static const int named = setenv("VRX_LEVEL_FILE", path.c_str(), 1);
  require(named == 0, "no environment");
  const string bytes = vrxfuzz::bytesOf(data, size);
  vrxtest::putBytes(path, bytes);
  sqleLevelInfo info;
  std::memset(&info, '#', sizeof info);
  const sqleLevelInfo before = info;
  const vrxfuzz::Bounded bounded(size);
  const unsigned rc = bounded.call([&] { return sqleGetLevelInfo(kSqleLevelInfoVersion, &info); });
  const auto wanted = expected(bytes);
  require(rc == (wanted ? 0U : oss::status::level_file_malformed), "status of a level file", bytes);
  const sqleLevelInfo& shown = wanted ? *wanted : before;
  require(std::memcmp(&info, &shown, sizeof info) == 0, "values of a level file", bytes);
  return 0;
}
