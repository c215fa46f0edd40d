// SPDX-License-Identifier: Apache-2.0
// Reading a store for a verb, and the failures that all verbs name alike.
#include <fmt/format.h>

#include "cli/text.h"
#include "cli/verbs.h"

namespace cli {

std::vector<Record> readRecords(Store& store, const std::string& path) {
  std::vector<Record> records;
  long long offset = 0;
  const GenRegStatus rc = store.readAll(&records, &offset);
  if (rc == genreg::status::ok) return records;
  Failure failure = failureOf(rc, path, path);
  if (failure.exit == Exit::damaged) failure.message += fmt::format(", at byte {}", offset);
  throw failure;
}

Failure ambiguous(const Noun& noun, const std::string& key,
                  const std::vector<const Record*>& found) {
  std::vector<std::string> keys;
  for (const Record* record : found)
    keys.push_back(record->row.key);
  Failure failure(Exit::conflict, fmt::format("{} {}: {} records match: {}", noun.name, key,
                                              keys.size(), join(keys, ", ")));
  failure.code = genreg::status::several_match;
  failure.candidates = std::move(keys);
  return failure;
}

Failure notFound(const Noun& noun, const std::string& key, const std::string& path) {
  Failure failure(Exit::no, fmt::format("{} {}: not in {}", noun.name, key, path));
  failure.code = genreg::status::no_match;
  failure.path = path;
  return failure;
}

void refuseWords(const Command& command) {
  if (command.words.empty()) return;
  throw usageFailure(fmt::format("\"{}\" is one word too many", command.words.front()));
}

}  // namespace cli
