// SPDX-License-Identifier: Apache-2.0
// Looking at a registry and what stands beside it, and reading what is found there. Nothing here
// makes, changes or follows anything. Not here: what it means (leftovers_rules.h).
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cli/leftovers_rules.h"
#include "cli/private_copy.h"
#include "cli/verbs.h"
#include "platform/osse/file_handle.h"

namespace cli {

// The registry that a command about leftovers is for.
struct Subject {
  std::vector<const Noun*> nouns;  // the kinds of record that are read from its file
  std::unique_ptr<Store> store;    // of the first of them; has the names and the lock
  std::string path;                // the registry, as it was chosen
};

// The subject that the noun among the command's words names, which is taken from them, or else the
// global registry. Throws Failure: usage, or when the registry has no usable path.
Subject takeSubject(Command& command);

// The companion that the one word left names. Throws Failure (usage), for the lock file too, which
// holds nothing.
Companion takeCopy(Command& command);

// The companions that the words left name; none for no words. Throws Failure (usage).
std::vector<Companion> takeCompanions(Command& command);

// Whether it is to be found out if the lock is held. Who has taken it knows.
enum class LockQuestion { asked, taken };

// What stands at the registry's name and beside it. Throws Failure (io) when a name cannot be
// looked at.
Surroundings lookAround(const Subject& subject, LockQuestion question);

// Throws Failure (noRegistry) when the companion is missing.
void requireCompanion(const Subject& subject, const Surroundings& seen, Companion companion);

// Opens a file for reading, through no link and without waiting. Throws Failure (io) when that
// fails, and when something else than a file stands there.
void openFile(const Found& found, OSSHFile* file);

// What a registry or a companion holds, read from a copy, so that nothing is made, locked or
// waited for, and what is read does not move.
struct Contents {
  std::map<std::string, std::vector<Row>> records;  // by the noun's name
  std::optional<std::string> text;                  // the bytes, where records are lines

  std::uint64_t recordCount() const;
  std::uint64_t lineCount() const;
};

// Reads an open file to its end. Throws Failure: damaged, with the place; io.
Contents readContents(const Command& command, const Subject& subject, const Found& found,
                      const OSSHFile& file);
// The same of a file by its name.
Contents readContents(const Command& command, const Subject& subject, const Found& found);

// The failure of an update that is going on, with its holder named.
Failure busyFailure(const Subject& subject);

}  // namespace cli
