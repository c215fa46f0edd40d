// SPDX-License-Identifier: Apache-2.0
// Reading a store for a verb, and the failures that all verbs name alike.
#include <fmt/format.h>

#include <set>

#include "cli/key.h"
#include "cli/text.h"
#include "cli/verbs.h"

namespace cli {

std::vector<Record> readRecords(Store& store, const std::string& path, const RowVisitor& wanted) {
  std::vector<Record> records;
  long long offset = 0;
  const vrx::Status read = store.read(wanted, &records, &offset);
  if (read) return records;
  Failure failure = failureOf(read.code(), path, path);
  if (failure.exit == Exit::damaged) failure.message += fmt::format(", at byte {}", offset);
  throw failure;
}

namespace {

// Records of the same key are told apart by what may be typed in its place.
std::vector<std::string> candidateKeys(const Noun& noun, const std::vector<const Record*>& found) {
  std::vector<std::string> keys;
  std::vector<std::string> others;
  for (const Record* record : found) {
    keys.push_back(record->row.key);
    others.push_back(alternativeKey(noun, record->row));
  }
  const std::set<std::string> distinct(keys.begin(), keys.end());
  return distinct.size() == 1 && !others.front().empty() ? others : keys;
}

// Where records stand that no key tells apart.
std::string linesOf(const std::vector<const Record*>& found) {
  std::vector<std::string> places;
  for (const Record* record : found) {
    places.push_back(record->row.key);
    if (record->line != 0) places.back() += fmt::format(" (line {})", record->line);
  }
  return join(places, ", ");
}

}  // namespace

Failure ambiguous(const Noun& noun, const std::string& key,
                  const std::vector<const Record*>& found) {
  const std::vector<std::string> keys = candidateKeys(noun, found);
  std::string list = join(keys, ", ");
  if (keys.front() == keys.back()) {
    list = linesOf(found);
    if ((noun.accepts & kAcceptsAll) != 0) list += "; --all takes all of them";
  }
  Failure failure(Exit::conflict,
                  fmt::format("{} {}: {} records match: {}", noun.name, key, keys.size(), list));
  failure.code = genreg::status::several_match;
  failure.candidates = keys;
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
