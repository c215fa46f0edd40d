// SPDX-License-Identifier: Apache-2.0
// leftovers list, leftovers diff: what stands beside a registry, explained and compared. Both only
// read. Not here: promote and clean (leftovers_change.cpp).
#include <fmt/chrono.h>
#include <fmt/format.h>

#include "cli/filter.h"
#include "cli/leftovers_files.h"
#include "cli/lock_wait.h"
#include "cli/text.h"

namespace cli {

namespace {

// The order of the values that rowOf makes.
const std::vector<Field>& companionFields() {
  static const std::vector<Field> fields = {
      {"what", "WHAT", Kind::text},         {"path", "PATH", Kind::text},
      {"type", "TYPE", Kind::text},         {"size", "SIZE", Kind::number},
      {"mode", "MODE", Kind::text},         {"time", "TIME", Kind::time},
      {"records", "RECORDS", Kind::number}, {"lines", "LINES", Kind::number},
      {"age", "AGE", Kind::text},           {"locked", "LOCKED", Kind::boolean},
      {"holder", "HOLDER", Kind::text},     {"problem", "PROBLEM", Kind::text},
      {"meaning", "MEANING", Kind::text},
  };
  return fields;
}

// What reading a companion gave, or why it gave nothing.
struct Reading {
  Value records;
  Value lines;
  Value problem;
};

std::string withoutPath(const std::string& message, const std::string& path) {
  const std::string begin = path + ": ";
  return message.rfind(begin, 0) == 0 ? message.substr(begin.size()) : message;
}

Reading readingOf(const Command& command, const Subject& subject, const Found& found) {
  Reading reading;
  if (!found.isFile()) return reading;
  try {
    const Contents contents = readContents(command, subject, found);
    reading.records = contents.recordCount();
    if (contents.text) reading.lines = contents.lineCount();
  } catch (const Failure& failure) {
    reading.problem = withoutPath(failure.message, found.path);
  }
  return reading;
}

std::string typeWord(FileType type) {
  const std::string described = describe(type);
  return described.substr(described.find(' ') + 1);
}

Row rowOf(const Command& command, const Subject& subject, const Surroundings& seen,
          Companion companion) {
  const Found& found = seen.at(companion);
  const bool isLock = companion == Companion::lock;
  const Reading reading = isLock ? Reading() : readingOf(command, subject, found);
  const auto readable = isAbsent(reading.problem) ? Readable::whole : Readable::damaged;
  Row row;
  row.key = wordOf(companion);
  row.values = {std::string(nameOf(companion)),
                found.path,
                typeWord(found.type),
                found.size,
                fmt::format("{:04o}", found.mode),
                fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", fmt::gmtime(found.seconds)),
                reading.records,
                reading.lines,
                isLock ? Value{} : textOrAbsent(ageOf(seen, companion)),
                isLock ? Value(seen.lockIsHeld) : Value{},
                isLock && seen.lockIsHeld ? Value(lockHolder(found.path)) : Value{},
                reading.problem,
                meaningOf(seen, companion, readable)};
  return row;
}

std::vector<int> columnsFor(const Subject& subject, const Arguments& arguments) {
  const std::vector<Field>& fields = companionFields();
  if (!arguments.fields.empty()) return columnsOf(fields, arguments.fields, "--fields");
  if (arguments.form == Form::table) {
    const bool lines = subject.nouns.front()->difference == Difference::file;
    const char* count = lines ? "lines" : "records";
    return columnsOf(fields, {"key", "size", "mode", "time", count, "age", "meaning"}, "table");
  }
  std::vector<int> columns = allColumns(fields);
  if (arguments.form != Form::json && arguments.form != Form::ndjson)
    columns.insert(columns.begin(), kKeyColumn);
  return columns;
}

// Rows that have one key, which only foreign programs write, are compared in their order.
std::string recordsDiff(const Noun& noun, const std::vector<Row>& before,
                        const std::vector<Row>& after, const std::string& newRemark) {
  std::string text;
  std::multimap<std::string, std::size_t> unmet;
  for (std::size_t i = 0; i < after.size(); ++i)
    unmet.emplace(after[i].key, i);
  for (const Row& row : before) {
    const auto at = unmet.find(row.key);
    if (at == unmet.end()) {
      text += recordDiff(noun, row, {}, newRemark);
    } else {
      text += recordDiff(noun, row, after[at->second], newRemark);
      unmet.erase(at);
    }
  }
  for (const auto& [key, i] : unmet)
    text += recordDiff(noun, {}, after[i], newRemark);
  return text;
}

std::string contentsDiff(const Subject& subject, const Contents& registry, const Contents& copy,
                         const std::string& newRemark) {
  std::string text;
  for (const Noun* noun : subject.nouns) {
    if (noun->difference == Difference::file) {
      text += fileDiff(subject.path, registry.text, copy.text, newRemark);
      continue;
    }
    const auto rows = [&](const Contents& contents) {
      const auto at = contents.records.find(noun->name);
      return at == contents.records.end() ? std::vector<Row>() : at->second;
    };
    text += recordsDiff(*noun, rows(registry), rows(copy), newRemark);
  }
  return text;
}

}  // namespace

Exit runLeftoversList(Command& command) {
  const Subject subject = takeSubject(command);
  refuseWords(command);
  Answer answer;
  answer.fields = companionFields();
  answer.columns = columnsFor(subject, command.arguments);
  const RowTest wanted = parseFilter(answer.fields, command.arguments.where);
  const RowOrder order = parseOrder(answer.fields, command.arguments.sort);
  answer.schema = "vrxreg.leftovers/1";
  answer.registry = subject.path;
  const Surroundings seen = lookAround(subject, LockQuestion::asked);
  for (const Companion companion : kCompanions) {
    if (seen.at(companion).stands())
      answer.rows.push_back(rowOf(command, subject, seen, companion));
  }
  if (answer.rows.empty())
    answer.plain = fmt::format("nothing beside {}\n", displayText(subject.path));
  keepRows(wanted, &answer.rows);
  sortRows(order, &answer.rows);
  command.output = render(answer, command.arguments);
  return Exit::done;
}

Exit runLeftoversDiff(Command& command) {
  const Subject subject = takeSubject(command);
  const Companion companion = takeCopy(command);
  const Surroundings seen = lookAround(subject, LockQuestion::asked);
  if (seen.lockIsHeld && companion != Companion::setAside) throw busyFailure(subject);
  requireCompanion(subject, seen, companion);
  const Contents copy = readContents(command, subject, seen.at(companion));
  Contents registry;
  if (seen.registry.stands()) registry = readContents(command, subject, seen.registry);
  const std::string remark = fmt::format(" ({})", nameOf(companion));
  const std::string diff = contentsDiff(subject, registry, copy, remark);
  Answer answer;
  answer.schema = "vrxreg.leftovers.diff/1";
  answer.shape = Shape::flat;
  answer.registry = subject.path;
  answer.fields = {{"path", "PATH", Kind::text},
                   {"differs", "DIFFERS", Kind::boolean},
                   {"diff", "DIFF", Kind::text}};
  answer.columns = allColumns(answer.fields);
  answer.rows = {Row{wordOf(companion), {seen.at(companion).path, !diff.empty(), diff}, {}}};
  answer.plain = command.arguments.color ? colorDiff(diff) : diff;
  command.output = render(answer, command.arguments);
  return diff.empty() ? Exit::done : Exit::no;
}

}  // namespace cli
