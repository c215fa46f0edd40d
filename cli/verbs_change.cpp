// SPDX-License-Identifier: Apache-2.0
// add, set, remove. A change is made to exactly the record that was read, or read and made again.
#include <fmt/format.h>

#include <set>

#include "cli/change_target.h"
#include "cli/edits.h"
#include "cli/key.h"
#include "cli/verbs.h"

namespace cli {

namespace {

namespace status = genreg::status;

// Every round that fails is a round in which somebody else succeeded.
constexpr int kMaxRounds = 100;

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
                       GenRegStatus rc) {
  if (rc == status::unchanged) refuseInvisible(command, key);
  const bool aboutRecord = exitOf(rc) == Exit::refused || exitOf(rc) == Exit::conflict;
  const std::string subject =
      aboutRecord ? fmt::format("{} {}", command.noun->name, key) : target.path();
  Failure failure = failureOf(rc, subject, target.path());
  const std::string blame = target.store().blame(rc);
  if (!blame.empty()) failure.message = fmt::format("{}: {}", subject, blame);
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
GenRegStatus addRow(const Command& command, Target& target, const std::vector<Record>& records,
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
  const GenRegStatus rc = addRow(command, target, records, row);
  if (rc == status::duplicate_record) return {};
  if (rc != status::ok) fail(command, target, row.key, rc);
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
    GenRegStatus rc = status::ok;
    if (changed.insert(old->image).second) {
      rc = target.run([&, &was = *old, &now = row] { return target.store().change(was, now); });
    }
    if (rc == status::no_match) return false;
    if (rc != status::ok) fail(command, target, row.key, rc);
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
  const GenRegStatus rc = addRow(command, target, target.read({}), row);
  if (rc == status::duplicate_record) refuseExisting(command, target, row.key);
  if (rc != status::ok) fail(command, target, row.key, rc);
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
    const GenRegStatus rc = target.run([&] { return target.store().remove(first); });
    if (rc == status::no_match) continue;
    if (rc != status::ok) fail(command, target, first.row.key, rc);
    for (const Record* record : found)
      done.note(*command.noun, record->row, {}, target.newRemark());
    return report(command, target, Action::remove, done, first.row.key);
  }
  changedMeanwhile(command, target, query);
}

}  // namespace cli
