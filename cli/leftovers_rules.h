// SPDX-License-Identifier: Apache-2.0
// What may stand beside a registry, what that means, and what may be done with it: rules over what
// was seen, without a look at any file. docs/update-protocol.md tells when each file stands.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace cli {

// The companions of a registry, in the order in which they are told.
enum class Companion : std::size_t { temporary, setAside, backup, lock };
constexpr std::array<Companion, 4> kCompanions = {Companion::temporary, Companion::setAside,
                                                  Companion::backup, Companion::lock};

// "tmp", "cor", "bkp", "lock": as typed and as in keys.
const char* wordOf(Companion companion);
std::optional<Companion> companionOf(std::string_view word);
// "temporary copy", "set-aside copy", "backup", "lock file".
const char* nameOf(Companion companion);

enum class FileType { nothing, file, link, folder, other };

// "a file", "a link", ...
const char* describe(FileType type);

// What stands at one name; a link itself, not what it leads to.
struct Found {
  std::string path;
  FileType type = FileType::nothing;
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  std::uint64_t size = 0;    // bytes
  std::uint64_t links = 0;   // how many names the file has
  unsigned mode = 0;         // octal 07777
  std::int64_t seconds = 0;  // last change of the contents, since the epoch, UTC
  std::int64_t nanoseconds = 0;

  bool stands() const { return type != FileType::nothing; }
  bool isFile() const { return type == FileType::file; }
};

// Whether both names lead to one file.
bool isSameFile(const Found& a, const Found& b);

// A registry and all that stands beside it, at one moment.
struct Surroundings {
  Found registry;
  std::array<Found, kCompanions.size()> companions;
  bool lockIsHeld = false;  // by somebody else: an update is going on

  const Found& at(Companion companion) const {
    return companions[static_cast<std::size_t>(companion)];
  }
};

// "older", "newer", "same time", "same file": the companion beside the registry; empty when one of
// them is missing.
std::string ageOf(const Surroundings& seen, Companion companion);

// Whether the file could be read from its beginning to its end.
enum class Readable { whole, damaged };

// One sentence without its full stop: what the companion is there for, and whether anybody needs
// it. It stands.
std::string meaningOf(const Surroundings& seen, Companion companion, Readable readable);

// The free name under which what stands at the registry's name is kept when `source` takes its
// place: the backup's when that is free, or leads to the registry already, since a failing update
// leaves a backup alone; else that of the set-aside copy. None when both are taken.
std::optional<Companion> placeToKeep(const Surroundings& seen, Companion source);

// Whether the companion may be all that is left of the registry, which is missing or empty.
bool mayBeLast(const Surroundings& seen, Companion companion);

}  // namespace cli
