// SPDX-License-Identifier: Apache-2.0
// list, get, count, exists: a missing registry is a failure and is not created.
#include <fmt/format.h>

#include <algorithm>

#include "cli/filter.h"
#include "cli/key.h"
#include "cli/location.h"
#include "cli/text.h"
#include "cli/verbs.h"

namespace cli {

namespace {

// The rows that the test holds for. Nothing else of the records is kept, which for a long registry
// is most of the memory.
std::vector<Row> readRows(Store& store, const RowTest& wanted) {
  std::vector<Row> rows;
  (void)readRecords(store, store.path(), [&](Row& row) {  // it keeps none
    if (wanted(row)) rows.push_back(std::move(row));
    return false;
  });
  return rows;
}

// The records that the key may name: what a short key names, the last record can still tell.
std::vector<Record> readNamed(Store& store, const KeyQuery& query) {
  return readRecords(store, store.path(), [&](const Row& row) { return query.mayName(row); });
}

Answer answerFor(const Command& command, const char* schema, Shape shape, const Store& store) {
  Answer answer;
  answer.schema = schema;
  answer.shape = shape;
  answer.kind = command.noun->name;
  answer.registry = store.path();
  answer.fields = command.noun->fields;
  return answer;
}

std::unique_ptr<Store> openForReading(const Command& command) {
  auto store = command.noun->open(*command.noun, command.arguments, "", SideEffects::wanted);
  requireRegistry(store->path());
  return store;
}

// A wide table begins like a table and goes on with all other fields.
std::vector<int> wideColumns(const Noun& noun) {
  std::vector<int> columns = columnsOf(noun.fields, split(noun.tableFields, ','), "table");
  for (const int column : allColumns(noun.fields)) {
    if (std::find(columns.begin(), columns.end(), column) == columns.end())
      columns.push_back(column);
  }
  return columns;
}

const char* kindName(vrx::LineKind kind) {
  switch (kind) {
    case vrx::LineKind::entry:
      return "entry";
    case vrx::LineKind::comment:
      return "comment";
    case vrx::LineKind::blank:
      return "blank";
    case vrx::LineKind::unparsed:
      break;
  }
  return "unparsed";
}

const std::vector<Field>& lineFields() {
  static const std::vector<Field> fields = {
      {"line", "LINE", Kind::number},
      {"kind", "KIND", Kind::text},
      {"text", "TEXT", Kind::text},
  };
  return fields;
}

std::vector<Row> lineRows(Store& store, const RowTest& wanted) {
  std::vector<vrx::Line> lines;
  const vrx::Status read = store.readLines(&lines);
  if (!read) throw failureOf(read.code(), store.path(), store.path());
  std::vector<Row> rows;
  for (vrx::Line& line : lines) {
    rows.push_back(
        {"", {std::uint64_t{line.number}, std::string(kindName(line.kind)), line.text}, {}});
  }
  keepRows(wanted, &rows);
  return rows;
}

std::vector<int> lineColumns(const Arguments& arguments) {
  if (arguments.form == Form::name) throw usageFailure("-o name: lines have no names");
  if (arguments.fields.empty()) return allColumns(lineFields());
  return columnsOf(lineFields(), arguments.fields, "--fields");
}

std::vector<int> listColumns(const Noun& noun, const Arguments& arguments) {
  if (!arguments.fields.empty()) return columnsOf(noun.fields, arguments.fields, "--fields");
  if (arguments.form == Form::wide) return wideColumns(noun);
  if (arguments.form != Form::table) return allColumns(noun.fields);
  return columnsOf(noun.fields, split(noun.tableFields, ','), "table");
}

std::vector<int> getColumns(const Command& command) {
  const Noun& noun = *command.noun;
  const std::vector<std::string>& asked = command.arguments.fields;
  if (!asked.empty() && !command.words.empty()) {
    throw usageFailure("name the fields behind the key or with --fields, not both");
  }
  if (!asked.empty()) return columnsOf(noun.fields, asked, "--fields");
  if (!command.words.empty()) return columnsOf(noun.fields, command.words, noun.name);
  return allColumns(noun.fields);
}

const Record& findOne(const Command& command, const KeyQuery& query,
                      const std::vector<Record>& records, const std::string& path) {
  const std::vector<const Record*> found = query.select(records);
  if (found.empty()) throw notFound(*command.noun, query.text(), path);
  if (found.size() > 1) throw ambiguous(*command.noun, query.text(), found);
  return *found.front();
}

// One number or yes/no about the registry, in the same forms as everything else.
Answer singleValue(Answer answer, const Field& field, Value value) {
  answer.fields = {field};
  answer.columns = {0};
  answer.rows = {Row{"", {std::move(value)}, {}}};
  return answer;
}

}  // namespace

Exit runList(Command& command) {
  refuseWords(command);
  const Noun& noun = *command.noun;
  const Arguments& arguments = command.arguments;
  const bool lines = arguments.allLines;
  const std::vector<Field>& fields = lines ? lineFields() : noun.fields;
  const std::vector<int> columns = lines ? lineColumns(arguments) : listColumns(noun, arguments);
  const RowTest wanted = parseFilter(fields, arguments.where);
  const RowOrder order = parseOrder(fields, arguments.sort);
  const std::unique_ptr<Store> store = openForReading(command);
  Answer answer =
      answerFor(command, lines ? "vrxreg.lines/1" : "vrxreg.list/1", Shape::list, *store);
  answer.fields = fields;
  answer.columns = columns;
  answer.rows = lines ? lineRows(*store, wanted) : readRows(*store, wanted);
  sortRows(order, &answer.rows);
  command.output = render(answer, command.arguments);
  return Exit::done;
}

Exit runGet(Command& command) {
  const Noun& noun = *command.noun;
  const KeyQuery query(noun, command.arguments, &command.words);
  const std::vector<int> columns = getColumns(command);
  const std::unique_ptr<Store> store = openForReading(command);
  const std::vector<Record> records = readNamed(*store, query);
  const Record& record = findOne(command, query, records, store->path());
  if (command.words.size() == 1 && isAbsent(cellOf(record.row, columns.front()))) {
    throw Failure(Exit::no,
                  fmt::format("{} {}: no {}", noun.name, record.row.key, command.words.front()));
  }
  Answer answer = answerFor(command, "vrxreg.record/1", Shape::record, *store);
  answer.columns = columns;
  answer.rows = {record.row};
  command.output = render(answer, command.arguments);
  return Exit::done;
}

Exit runCount(Command& command) {
  refuseWords(command);
  const RowTest wanted = parseFilter(command.noun->fields, command.arguments.where);
  const std::unique_ptr<Store> store = openForReading(command);
  std::size_t count = 0;
  (void)readRecords(*store, store->path(), [&](const Row& row) {  // it keeps none
    count += wanted(row) ? 1 : 0;
    return false;
  });
  Answer answer = singleValue(answerFor(command, "vrxreg.count/1", Shape::flat, *store),
                              {"count", "COUNT", Kind::number}, std::uint64_t{count});
  answer.plain = fmt::format("{}\n", count);
  command.output = render(answer, command.arguments);
  return Exit::done;
}

// Says nothing in plain form: the exit status is the answer.
Exit runExists(Command& command) {
  const KeyQuery query(*command.noun, command.arguments, &command.words);
  refuseWords(command);
  const std::unique_ptr<Store> store = openForReading(command);
  const std::vector<Record> records = readNamed(*store, query);
  const std::vector<const Record*> found = query.select(records);
  if (found.size() > 1) throw ambiguous(*command.noun, query.text(), found);
  Answer answer = singleValue(answerFor(command, "vrxreg.exists/1", Shape::flat, *store),
                              {"exists", "EXISTS", Kind::boolean}, !found.empty());
  answer.rows.front().key = found.empty() ? query.text() : found.front()->row.key;
  answer.plain = "";
  command.output = render(answer, command.arguments);
  return found.empty() ? Exit::no : Exit::done;
}

}  // namespace cli
