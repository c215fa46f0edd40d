// SPDX-License-Identifier: Apache-2.0
// The rules about leftovers, and their words.
#include "cli/leftovers_rules.h"

#include <utility>

namespace cli {

namespace {

struct Words {
  const char* word;
  const char* name;
};

constexpr std::array<Words, kCompanions.size()> kWords = {{{"tmp", "temporary copy"},
                                                           {"cor", "set-aside copy"},
                                                           {"bkp", "backup"},
                                                           {"lock", "lock file"}}};

const Words& wordsOf(Companion companion) {
  return kWords[static_cast<std::size_t>(companion)];
}

// What an update does about something that is no file and stands in the companion's place.
std::string meaningOfForeign(const Found& found, Companion companion) {
  const std::string what = std::string(describe(found.type)) + " in the place of the " +
                           nameOf(companion) + ", which no update makes";
  if (companion == Companion::lock) return what + ": as long as it stands, there are no updates";
  if (found.type == FileType::folder) {
    return what + ": as long as it stands, updates fail; remove it by hand";
  }
  return what + "; the next update moves or removes it without following it";
}

// What the companion is while the registry's own name is missing.
std::string meaningOfLast(Companion companion, Readable readable) {
  if (readable == Readable::damaged) {
    return "the registry is missing, and this file is damaged or cannot be read";
  }
  if (companion == Companion::setAside) {
    return "the registry is missing; this copy of an earlier update reads whole, and may be older "
           "than the registry was";
  }
  const bool isBackup = companion == Companion::backup;
  return std::string(
             "the registry is missing; this file reads whole and most likely has what it "
             "held ") +
         (isBackup ? "before" : "after") + " the last update: look at its time";
}

constexpr const char* kNotNeeded = "; the registry does not need it";

std::string meaningOfCopy(Companion companion, Readable readable) {
  std::string text = "an update failed or was interrupted before its commit";
  if (companion == Companion::setAside) {
    text =
        "an earlier update's temporary copy, set aside by the one after it, or what the registry "
        "held before a promotion";
  }
  if (readable == Readable::damaged) text += "; damaged";
  return text + kNotNeeded;
}

std::string meaningOfBackup(bool sameFile) {
  const std::string text =
      sameFile
          ? "a second name of the registry, which an update or a promotion that was interrupted "
            "left"
          : "what the registry held before an update that was interrupted behind its commit, or "
            "before a promotion";
  return text + kNotNeeded;
}

std::string meaningOfLock(bool held) {
  if (held) return "held: an update is going on";
  return "free; it stands from the first update on and means nothing";
}

}  // namespace

const char* wordOf(Companion companion) {
  return wordsOf(companion).word;
}

const char* nameOf(Companion companion) {
  return wordsOf(companion).name;
}

std::optional<Companion> companionOf(std::string_view word) {
  for (const Companion companion : kCompanions) {
    if (word == wordOf(companion)) return companion;
  }
  return {};
}

const char* describe(FileType type) {
  switch (type) {
    case FileType::nothing:
      return "nothing";
    case FileType::file:
      return "a file";
    case FileType::link:
      return "a link";
    case FileType::folder:
      return "a folder";
    case FileType::other:
      break;
  }
  return "a device, a FIFO or a socket";
}

bool isSameFile(const Found& a, const Found& b) {
  return a.stands() && b.stands() && a.device == b.device && a.inode == b.inode;
}

std::string ageOf(const Surroundings& seen, Companion companion) {
  const Found& found = seen.at(companion);
  if (!found.stands() || !seen.registry.stands()) return {};
  if (isSameFile(found, seen.registry)) return "same file";
  const auto mine = std::make_pair(found.seconds, found.nanoseconds);
  const auto its = std::make_pair(seen.registry.seconds, seen.registry.nanoseconds);
  if (mine == its) return "same time";
  return mine < its ? "older" : "newer";
}

std::string meaningOf(const Surroundings& seen, Companion companion, Readable readable) {
  const Found& found = seen.at(companion);
  if (!found.isFile()) return meaningOfForeign(found, companion);
  if (companion == Companion::lock) return meaningOfLock(seen.lockIsHeld);
  if (seen.lockIsHeld && companion != Companion::setAside) {
    return "an update is going on, and this file belongs to it; wait";
  }
  if (!seen.registry.stands()) return meaningOfLast(companion, readable);
  const bool sameFile = isSameFile(found, seen.registry);
  if (companion == Companion::backup || sameFile) return meaningOfBackup(sameFile);
  return meaningOfCopy(companion, readable);
}

std::optional<Companion> placeToKeep(const Surroundings& seen, Companion source) {
  for (const Companion place : {Companion::backup, Companion::setAside}) {
    if (place == source) continue;
    const Found& found = seen.at(place);
    if (!found.stands() || isSameFile(found, seen.registry)) return place;
  }
  return {};
}

bool mayBeLast(const Surroundings& seen, Companion companion) {
  if (companion == Companion::lock || !seen.at(companion).isFile()) return false;
  const bool isEmpty = seen.registry.isFile() && seen.registry.size == 0;
  return !seen.registry.stands() || (isEmpty && seen.at(companion).size != 0);
}

}  // namespace cli
