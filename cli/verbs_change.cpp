// SPDX-License-Identifier: Apache-2.0
// add, set, remove. A change is made to exactly the record that was read, or read and made again.
#include <fmt/format.h>

#include "cli/filter.h"
#include "cli/key.h"
#include "cli/location.h"
#include "cli/lock_wait.h"
#include "cli/private_copy.h"
#include "cli/text.h"
#include "cli/verbs.h"

namespace cli {

namespace {

namespace status = genreg::status;

// Every round that fails is a round in which somebody else succeeded.
constexpr int kMaxRounds = 100;

struct Edit {
  std::size_t field;
  Value value;  // absent makes the field absent
};

// The store to change: the real one, or in a dry run a private copy that tells nobody.
struct Target {
  std::unique_ptr<PrivateCopy> copy;
  std::unique_ptr<Store> store;
  std::string path;  // of the real one
};

Target openTarget(const Command& command) {
  const Noun& noun = *command.noun;
  Target target;
  target.store = noun.open(noun, command.arguments, "", SideEffects::wanted);
  target.path = target.store->path();
  if (registryExists(target.path)) requireRegistry(target.path);
  if (!command.arguments.dryRun) return target;
  target.copy = std::make_unique<PrivateCopy>(target.path);
  target.store = noun.open(noun, command.arguments, target.copy->path(), SideEffects::none);
  return target;
}

void addEdit(const Noun& noun, const std::string& name, const std::string& text,
             std::vector<Edit>* edits) {
  const int column = columnsOf(noun.fields, {name}, noun.name).front();
  if (column == kKeyColumn)
    throw usageFailure("key: to change a key, remove the record and add it");
  const auto index = static_cast<std::size_t>(column);
  for (const Edit& edit : *edits) {
    if (edit.field == index) throw usageFailure(fmt::format("{} is given twice", name));
  }
  edits->push_back({index, parseValue(noun.fields[index], text)});
}

std::vector<Edit> parseEdits(const Command& command) {
  std::vector<Edit> edits;
  for (const std::string& word : command.words) {
    const std::size_t sign = word.find('=');
    if (sign == std::string::npos) {
      throw usageFailure(fmt::format("\"{}\": write FIELD=VALUE", word));
    }
    addEdit(*command.noun, word.substr(0, sign), word.substr(sign + 1), &edits);
  }
  for (const std::string& name : command.arguments.unset) {
    addEdit(*command.noun, name, "", &edits);
  }
  return edits;
}

void applyEdits(const Noun& noun, const std::vector<Edit>& edits, Row* row) {
  for (const Edit& edit : edits) {
    const Field& field = noun.fields[edit.field];
    if (field.keyPart != KeyPart::none && !(row->values[edit.field] == edit.value)) {
      throw usageFailure(fmt::format("{} is part of the key of {}; remove the record and add it",
                                     field.name, row->key));
    }
    row->values[edit.field] = edit.value;
  }
}

// The one record that the key names, with its copy of the store's form.
std::optional<Record> findRecord(const Command& command, const Target& target,
                                 const KeyQuery& query) {
  if (!registryExists(target.store->path())) return {};
  const std::vector<Record> records = readRecords(*target.store, target.path);
  const std::vector<const Record*> found = query.select(records);
  if (found.size() > 1) throw ambiguous(*command.noun, query.text(), found);
  if (found.empty()) return {};
  return *found.front();
}

[[noreturn]] void fail(const Command& command, const Target& target, const std::string& key,
                       GenRegStatus rc) {
  const bool aboutRecord = exitOf(rc) == Exit::refused || exitOf(rc) == Exit::conflict;
  const std::string subject =
      aboutRecord ? fmt::format("{} {}", command.noun->name, key) : target.path;
  throw failureOf(rc, subject, target.path);
}

GenRegStatus runOn(const Command& command, const Target& target,
                   const std::function<GenRegStatus()>& update) {
  return runUpdate(command.arguments, *target.store, update);
}

Exit report(Command& command, Action action, std::optional<Row> before, std::optional<Row> after,
            const std::string& key) {
  const Arguments& arguments = command.arguments;
  ChangeReport result;
  result.noun = command.noun;
  result.key = key;
  result.action = action;
  result.dryRun = arguments.dryRun;
  result.before = std::move(before);
  result.after = std::move(after);
  if (arguments.dryRun || arguments.diff) {
    result.diff = action == Action::none ? ""
                                         : recordDiff(*command.noun, result.before, result.after,
                                                      arguments.dryRun ? " (dry run)" : " (new)");
  }
  command.output = render(result, arguments);
  const bool tells = arguments.detailedExitCode && action != Action::none;
  return tells ? Exit::changed : Exit::done;
}

// The row that `set` wants in place of `old`.
Row editedRow(const Command& command, const std::vector<Edit>& edits, const Row& old) {
  Row row = old;
  if (command.arguments.replace) {
    for (std::size_t i = 0; i < row.values.size(); ++i) {
      if (command.noun->fields[i].keyPart == KeyPart::none) row.values[i] = Value{};
    }
  }
  applyEdits(*command.noun, edits, &row);
  return row;
}

// One attempt of `set`; nothing when somebody else was faster and the record must be read again.
std::optional<Exit> setOnce(Command& command, const Target& target, const KeyQuery& query,
                            const std::vector<Edit>& edits) {
  const std::optional<Record> old = findRecord(command, target, query);
  if (!old && command.arguments.mustExist) requireRegistry(target.path);
  if (!old && (command.arguments.mustExist || !query.isWhole())) {
    throw notFound(*command.noun, query.text(), target.path);
  }
  const Row row = editedRow(command, edits, old ? old->row : query.newRow());
  if (old && old->row.values == row.values) {
    return report(command, Action::none, old->row, row, row.key);
  }
  const GenRegStatus rc = runOn(command, target, [&] {
    return old ? target.store->change(*old, row) : target.store->add(row);
  });
  if (rc == (old ? status::no_match : status::duplicate_record)) return {};
  if (rc != status::ok) fail(command, target, row.key, rc);
  if (!old) return report(command, Action::add, {}, row, row.key);
  return report(command, Action::change, old->row, row, row.key);
}

bool sameKey(const Noun& noun, const Row& a, const Row& b) {
  for (const std::size_t field : keyFields(noun)) {
    if (!(a.values[field] == b.values[field])) return false;
  }
  return true;
}

// Looking first spares the registry a refused update, which would leave a temporary copy behind.
GenRegStatus addNew(const Command& command, const Target& target, const Row& row) {
  if (registryExists(target.store->path())) {
    for (const Record& record : readRecords(*target.store, target.path)) {
      if (sameKey(*command.noun, record.row, row)) return status::duplicate_record;
    }
  }
  return runOn(command, target, [&] { return target.store->add(row); });
}

}  // namespace

Exit runAdd(Command& command) {
  const KeyQuery query(*command.noun, command.arguments, &command.words);
  const std::vector<Edit> edits = parseEdits(command);
  Row row = query.newRow();
  applyEdits(*command.noun, edits, &row);
  const Target target = openTarget(command);
  const GenRegStatus rc = addNew(command, target, row);
  if (rc == status::duplicate_record) {
    Failure failure(Exit::conflict,
                    fmt::format("{} {}: exists in {}", command.noun->name, row.key, target.path));
    failure.code = rc;
    failure.path = target.path;
    throw failure;
  }
  if (rc != status::ok) fail(command, target, row.key, rc);
  return report(command, Action::add, {}, row, row.key);
}

Exit runSet(Command& command) {
  const KeyQuery query(*command.noun, command.arguments, &command.words);
  const std::vector<Edit> edits = parseEdits(command);
  const Target target = openTarget(command);
  for (int round = 0; round < kMaxRounds; ++round) {
    const std::optional<Exit> settled = setOnce(command, target, query, edits);
    if (settled) return *settled;
  }
  Failure failure(Exit::conflict, fmt::format("{} {}: changed meanwhile, {} times in a row",
                                              command.noun->name, query.text(), kMaxRounds));
  failure.path = target.path;
  throw failure;
}

Exit runRemove(Command& command) {
  const KeyQuery query(*command.noun, command.arguments, &command.words);
  refuseWords(command);
  const Target target = openTarget(command);
  requireRegistry(target.path);
  const std::optional<Record> old = findRecord(command, target, query);
  GenRegStatus rc = status::no_match;
  if (old) rc = runOn(command, target, [&] { return target.store->remove(*old); });
  if (rc == status::no_match) {
    if (!command.arguments.missingOk) throw notFound(*command.noun, query.text(), target.path);
    return report(command, Action::none, {}, {}, query.text());
  }
  if (rc != status::ok) fail(command, target, old->row.key, rc);
  return report(command, Action::remove, old->row, {}, old->row.key);
}

}  // namespace cli
