// SPDX-License-Identifier: Apache-2.0
// add, set, remove. A change is made to exactly the record that was read, or read and made again.
#include <fmt/format.h>

#include <set>

#include "cli/change_target.h"
#include "cli/edits.h"
#include "cli/key.h"
#include "cli/verbs.h"
#include "vrx/records.h"

namespace cli {

namespace {

namespace status = genreg::status;

// Every round that fails is a round in which somebody else succeeded.
constexpr int kMaxRounds = vrx::kMaxRounds;

[[noreturn]] void changedMeanwhile(const Command& command, const Target& target,
                                   const KeyQuery& query) {
  Failure failure(Exit::conflict, fmt::format("{} {}: changed meanwhile, {} times in a row",
                                              command.noun->name, query.text(), kMaxRounds));
  failure.path = target.path();
  throw failure;
}

[[noreturn]] void refuseExisting(const Command& command, const Target& target,
                                 const std::string& key) {
  Failure failure(Exit::conflict,
                  fmt::format("{} {}: exists in {}", command.noun->name, key, target.path()));
  failure.code = status::duplicate_record;
  failure.path = target.path();
  throw failure;
}

// A store that cannot tell the new record from the old one has written nothing.
[[noreturn]] void refuseInvisible(const Command& command, const std::string& key) {
  Failure failure(Exit::refused,
                  fmt::format("{} {}: not changed, the format takes the new record for the old one",
                              command.noun->name, key));
  failure.code = status::unchanged;
  throw failure;
}

[[noreturn]] void fail(const Command& command, Target& target, const std::string& key,
                       const vrx::Status& outcome) {
  const GenRegStatus rc = outcome.code();
  if (rc == status::unchanged) refuseInvisible(command, key);
  const bool aboutRecord = exitOf(rc) == Exit::refused || exitOf(rc) == Exit::conflict;
  const std::string subject =
      aboutRecord ? fmt::format("{} {}", command.noun->name, key) : target.path();
  Failure failure = failureOf(rc, subject, target.path());
  if (!outcome.detail().empty()) {
    failure.message = fmt::format("{}: {}", subject, outcome.detail());
  }
  throw failure;
}

std::string remarkOf(const Command& command, const Target& target, Action action) {
  if (action == Action::none) return {};
  if (action == Action::add && target.wasMissing() &&
      command.noun->missingFile == MissingFile::made) {
    return "new file " + target.path();
  }
  return command.arguments.dryRun ? "" : command.noun->afterwards;
}

Exit report(Command& command, const Target& target, Action action, const Done& done,
            const std::string& key) {
  const Arguments& arguments = command.arguments;
  ChangeReport result;
  result.noun = command.noun;
  result.key = key;
  result.action = action;
  result.dryRun = arguments.dryRun;
  result.count = done.count;
  result.before = done.before;
  result.after = done.after;
  result.remark = remarkOf(command, target, action);
  if (arguments.dryRun || arguments.diff) result.diff = target.difference(done);
  command.output = render(result, arguments);
  const bool tells = arguments.detailedExitCode && action != Action::none;
  return tells ? Exit::changed : Exit::done;
}

// The records that a change is for: one, or with --all every one that the key names.
std::vector<const Record*> chosen(const Command& command, const KeyQuery& query,
                                  const std::vector<Record>& records) {
  std::vector<const Record*> found = query.select(records);
  if (found.size() > 1 && !command.arguments.all) {
    throw ambiguous(*command.noun, query.text(), found);
  }
  return found;
}

// Looking first spares the registry a refused update, which would leave a temporary copy behind.
vrx::Status addRow(const Command& command, Target& target, const std::vector<Record>& records,
                   const Row& row) {
  requireFields(*command.noun, nullptr, row);
  target.store().check(nullptr, row);
  for (const Record& record : records) {
    if (sameKey(*command.noun, record.row, row)) refuseExisting(command, target, row.key);
  }
  target.requirePlace();
  return target.run([&] { return target.store().add(row); });
}

// One attempt of `set` where the key names nothing; nothing when somebody else was faster.
std::optional<Exit> addOnce(Command& command, Target& target, const KeyQuery& query,
                            const std::vector<Edit>& edits, const std::vector<Record>& records) {
  const Noun& noun = *command.noun;
  if (command.arguments.mustExist) target.requireFile();
  if (command.arguments.mustExist || !query.canBegin()) {
    throw notFound(noun, query.text(), target.path());
  }
  const Row row = newRow(noun, query, edits);
  if (!hasWholeKey(noun, row)) throw notFound(noun, query.text(), target.path());
  const vrx::Status added = addRow(command, target, records, row);
  if (added.exists()) return {};
  if (!added) fail(command, target, row.key, added);
  Done done;
  done.note(noun, {}, row, target.newRemark());
  return report(command, target, Action::add, done, row.key);
}

struct Replacement {
  const Record* old;
  Row row;
};

// What `set` makes of the records found, without those that are so already. Throws Failure
// (refused) before any of them is changed.
std::vector<Replacement> replacementsFor(const Command& command, const Target& target,
                                         const std::vector<Edit>& edits,
                                         const std::vector<const Record*>& found) {
  std::vector<Replacement> replacements;
  for (const Record* old : found) {
    Row row = editedRow(*command.noun, command.arguments, edits, old->row);
    if (row.values == old->row.values) continue;
    requireFields(*command.noun, &old->row, row);
    target.store().check(old, row);
    replacements.push_back({old, std::move(row)});
  }
  return replacements;
}

// One attempt of `set` on records that exist; false when one of them is not what it was. An update
// changes records that are the same to the byte together.
bool changeOnce(Command& command, Target& target, const std::vector<Replacement>& replacements,
                Done* done) {
  std::set<std::string> changed;
  for (const auto& [old, row] : replacements) {
    vrx::Status outcome;
    if (changed.insert(old->kept->bytes()).second) {
      outcome =
          target.run([&, &was = *old, &now = row] { return target.store().change(was, now); });
    }
    if (outcome.notFound()) return false;
    if (!outcome) fail(command, target, row.key, outcome);
    done->note(*command.noun, old->row, row, target.newRemark());
  }
  return true;
}

}  // namespace

Exit runAdd(Command& command) {
  const Noun& noun = *command.noun;
  const KeyQuery query(noun, command.arguments, &command.words);
  const std::vector<Edit> edits = parseEdits(command);
  const Row row = newRow(noun, query, edits);
  requireWholeKey(noun, row);
  Target target(command);
  const vrx::Status added = addRow(command, target, target.read({}), row);
  if (added.exists()) refuseExisting(command, target, row.key);
  if (!added) fail(command, target, row.key, added);
  Done done;
  done.note(noun, {}, row, target.newRemark());
  return report(command, target, Action::add, done, row.key);
}

Exit runSet(Command& command) {
  const KeyQuery query(*command.noun, command.arguments, &command.words);
  const std::vector<Edit> edits = parseEdits(command);
  Target target(command);
  Done done;
  for (int round = 0; round < kMaxRounds; ++round) {
    const std::vector<Record> records = target.read(done);
    const std::vector<const Record*> found = chosen(command, query, records);
    if (found.empty()) {
      const std::optional<Exit> settled = addOnce(command, target, query, edits, records);
      if (settled) return *settled;
      continue;
    }
    const auto replacements = replacementsFor(command, target, edits, found);
    if (changeOnce(command, target, replacements, &done)) {
      const Action action = done.count == 0 ? Action::none : Action::change;
      return report(command, target, action, done, found.front()->row.key);
    }
  }
  changedMeanwhile(command, target, query);
}

Exit runRemove(Command& command) {
  const KeyQuery query(*command.noun, command.arguments, &command.words);
  refuseWords(command);
  Target target(command);
  target.requireFile();
  for (int round = 0; round < kMaxRounds; ++round) {
    Done done;
    const std::vector<Record> records = target.read(done);
    const std::vector<const Record*> found = chosen(command, query, records);
    if (found.empty() && !command.arguments.missingOk) {
      throw notFound(*command.noun, query.text(), target.path());
    }
    if (found.empty()) return report(command, target, Action::none, done, query.text());
    const Record& first = *found.front();
    const vrx::Status removed = target.run([&] { return target.store().remove(first); });
    if (removed.notFound()) continue;
    if (!removed) fail(command, target, first.row.key, removed);
    for (const Record* record : found)
      done.note(*command.noun, record->row, {}, target.newRemark());
    return report(command, target, Action::remove, done, first.row.key);
  }
  changedMeanwhile(command, target, query);
}

}  // namespace cli
