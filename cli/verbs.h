// SPDX-License-Identifier: Apache-2.0
// Verbs as data: their names, the options that they understand, their help, and what they do.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "cli/arguments.h"
#include "cli/noun.h"
#include "cli/output.h"

namespace cli {

// Which forms of output a verb has: every one, or text, JSON and the record's name.
enum class Forms { all, report };

// One command in progress.
struct Command {
  const Arguments& arguments;
  const Noun* noun;                // null for a top verb
  std::vector<std::string> words;  // what stands behind the verb
  std::string output;              // what the command will have printed
};

struct Verb {
  const char* name;   // of one word or, for a verb that stands alone, of two
  const char* usage;  // what stands behind the verb
  const char* summary;
  unsigned accepts;  // Accepts bits
  Forms forms;
  Exit (*run)(Command& command);
};

// The verbs of every noun, those of one noun (with its own), and the verbs that stand alone.
const std::vector<Verb>& nounVerbs();
std::vector<Verb> verbsOf(const Noun& noun);
const std::vector<Verb>& topVerbs();

// The Accepts bits of a verb on a noun (null: on none).
unsigned acceptsOf(const Verb& verb, const Noun* noun);

// The second words of the verbs that stand alone and have this first one; mostly none.
std::vector<std::string> wordsBehind(std::string_view first);

// The verb of that name among them; null for none.
const Verb* findVerb(const std::vector<Verb>& verbs, std::string_view name);

// verbs_read.cpp
Exit runList(Command& command);
Exit runGet(Command& command);
Exit runCount(Command& command);
Exit runExists(Command& command);

// verbs_change.cpp
Exit runAdd(Command& command);
Exit runSet(Command& command);
Exit runRemove(Command& command);

// sync_fixpack.cpp
Exit runSyncFixpack(Command& command);

// verbs_top.cpp
Exit runWhere(Command& command);
Exit runVersion(Command& command);
Exit runExplain(Command& command);

// log.cpp
Exit runLog(Command& command);

// leftovers.cpp, leftovers_change.cpp
Exit runLeftoversList(Command& command);
Exit runLeftoversDiff(Command& command);
Exit runLeftoversPromote(Command& command);
Exit runLeftoversClean(Command& command);

// What reading verbs and changing verbs share (records.cpp).

// The wanted records of the store. The whole file is read and judged, but only these are kept.
// Throws Failure, which names the registry as `path` and, when it is damaged, the place.
std::vector<Record> readRecords(Store& store, const std::string& path, const RowVisitor& wanted);

// The failure of a key that names several records, or none.
Failure ambiguous(const Noun& noun, const std::string& key,
                  const std::vector<const Record*>& found);
Failure notFound(const Noun& noun, const std::string& key, const std::string& path);

// Throws Failure (usage) when words are left that the verb does not understand.
void refuseWords(const Command& command);

}  // namespace cli
