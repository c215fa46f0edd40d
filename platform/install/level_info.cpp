// SPDX-License-Identifier: Apache-2.0
// Reading and checking the level file. Its format stands in the header.
#include "platform/install/level_info.h"

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <new>

#include "platform/osse/errors.h"
#include "platform/osse/file_handle.h"
#include "platform/osse/interruptions.h"

#ifndef VRX_LEVEL_FILE
#error "VRX_LEVEL_FILE is the path of the level file, given by the build"
#endif

static_assert(sizeof(sqleLevelInfo) == 92 && offsetof(sqleLevelInfo, buildLevel) == 24 &&
                  offsetof(sqleLevelInfo, fixpackNumber) == 88,
              "sqleLevelInfo has one layout in every build");

namespace {

using namespace oss;

constexpr std::size_t kMaxFileSize = 64 * 1024;
constexpr std::size_t kMaxLineLength = 255;
constexpr std::size_t kMaxVersionParts = 4;
constexpr std::uint64_t kMaxVersionPart = 65535;

// A stretch of the file's bytes.
struct Span {
  const char* begin;
  const char* end;

  std::size_t size() const { return static_cast<std::size_t>(end - begin); }
  bool empty() const { return begin == end; }
  bool equals(const char* text) const {
    return size() == std::strlen(text) && std::memcmp(begin, text, size()) == 0;
  }
};

bool isBlank(char c) {
  return c == ' ' || c == '\t' || c == '\r';
}
bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

Span trimmed(Span span) {
  while (!span.empty() && isBlank(*span.begin))
    ++span.begin;
  while (!span.empty() && isBlank(span.end[-1]))
    --span.end;
  return span;
}

// The part before the first `separator`; `rest` becomes what follows it, or null without one.
Span splitFirst(Span span, char separator, Span* rest) {
  const void* found = std::memchr(span.begin, separator, span.size());
  if (found == nullptr) {
    *rest = {nullptr, nullptr};
    return span;
  }
  const char* at = static_cast<const char*>(found);
  *rest = {at + 1, span.end};
  return {span.begin, at};
}

bool parseNumber(Span text, std::uint64_t most, std::uint64_t* value) {
  if (text.empty()) return false;
  std::uint64_t number = 0;
  for (const char* p = text.begin; p != text.end; ++p) {
    if (!isDigit(*p)) return false;
    number = number * 10 + static_cast<std::uint64_t>(*p - '0');
    if (number > most) return false;
  }
  *value = number;
  return true;
}

// Copies a value that leaves room for the terminator into a zeroed field.
template <std::size_t kSize>
bool copyValue(Span value, char (&field)[kSize]) {
  if (value.empty() || value.size() >= kSize) return false;
  std::memcpy(field, value.begin, value.size());
  return true;
}

bool isVersion(Span text) {
  std::size_t parts = 0;
  for (Span rest = text; rest.begin != nullptr; ++parts) {
    std::uint64_t ignored = 0;
    const Span part = splitFirst(rest, '.', &rest);
    if (!parseNumber(part, kMaxVersionPart, &ignored)) return false;
  }
  return parts <= kMaxVersionParts;
}

bool isPrintable(Span text) {
  for (const char* p = text.begin; p != text.end; ++p) {
    if (*p < 0x20 || *p > 0x7E) return false;
  }
  return true;
}

// Collects the three values; each setter refuses a second value and a malformed one.
class Parser {
 public:
  bool parse(Span file) {
    if (std::memchr(file.begin, '\0', file.size()) != nullptr) return false;
    for (Span rest = file; rest.begin != nullptr;) {
      if (!parseLine(splitFirst(rest, '\n', &rest))) return false;
    }
    return hasVersion_ && hasBuildLevel_ && hasFixpack_;
  }
  const sqleLevelInfo& info() const { return info_; }

 private:
  bool parseLine(Span line) {
    if (line.size() > kMaxLineLength) return false;
    if (!line.empty() && *line.begin == '#') return true;
    line = trimmed(line);
    if (line.empty()) return true;
    Span value{};
    const Span name = trimmed(splitFirst(line, '=', &value));
    return value.begin != nullptr && !name.empty() && take(name, trimmed(value));
  }

  bool take(Span name, Span value) {
    if (name.equals("version")) return takeVersion(value);
    if (name.equals("build_level")) return takeBuildLevel(value);
    if (name.equals("fixpack")) return takeFixpack(value);
    return true;
  }

  bool takeVersion(Span value) {
    if (hasVersion_) return false;
    hasVersion_ = true;
    return isVersion(value) && copyValue(value, info_.version);
  }

  bool takeBuildLevel(Span value) {
    if (hasBuildLevel_) return false;
    hasBuildLevel_ = true;
    return isPrintable(value) && copyValue(value, info_.buildLevel);
  }

  bool takeFixpack(Span value) {
    if (hasFixpack_) return false;
    hasFixpack_ = true;
    std::uint64_t number = 0;
    if (!parseNumber(value, std::numeric_limits<std::uint32_t>::max(), &number)) return false;
    info_.fixpackNumber = static_cast<unsigned int>(number);
    return true;
  }

  sqleLevelInfo info_{};
  bool hasVersion_ = false;
  bool hasBuildLevel_ = false;
  bool hasFixpack_ = false;
};

const char* levelFilePath() {
#ifdef __GLIBC__
  const char* relocated = secure_getenv("VRX_LEVEL_FILE");
#else
  const bool elevated = getuid() != geteuid() || getgid() != getegid();
  const char* relocated = elevated ? nullptr : std::getenv("VRX_LEVEL_FILE");
#endif
  return relocated != nullptr && *relocated != '\0' ? relocated : VRX_LEVEL_FILE;
}

OSSStatus openLevelFile(OSSHFile* file) {
  const OSSFileOpenParams how = {
      kOssFileStructureVersion, levelFilePath(), kOssOpenExisting, kOssAccessRead, 0, 0, 0};
  const OSSStatus rc = file->open(&how);
  if (rc == ossErrorMapSystem(ENOENT) || rc == ossErrorMapSystem(ENOTDIR)) {
    return status::level_file_missing;
  }
  return rc == status::not_a_regular_file ? status::level_file_malformed : rc;
}

}  // namespace

OSSStatus sqleGetLevelInfo(unsigned int structureVersion, sqleLevelInfo* info) {
  if (structureVersion != kSqleLevelInfoVersion || info == nullptr) return status::invalid_argument;
  OSSHFile file;
  const OSSStatus rc = openLevelFile(&file);
  if (rc != status::ok) return rc;

  // One byte more than the limit, to see whether there is more.
  constexpr std::size_t kRoom = kMaxFileSize + 1;
  const std::unique_ptr<char[]> bytes(new (std::nothrow) char[kRoom]);
  if (bytes == nullptr) return status::no_memory;
  std::size_t size = 0;
  if (!readFully(file.getFileHandle(), bytes.get(), kRoom, &size)) return ossErrorMapSystem(errno);

  Parser parser;
  const bool sound = size <= kMaxFileSize && parser.parse({bytes.get(), bytes.get() + size});
  if (!sound) return status::level_file_malformed;
  *info = parser.info();
  return status::ok;
}
