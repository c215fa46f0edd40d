// SPDX-License-Identifier: Apache-2.0
// Tables: aligned columns by libsmartcols, the cells made safe for terminals first.
#include <fmt/format.h>
#include <libsmartcols.h>

#include <clocale>
#include <cstdlib>
#include <memory>

#include "cli/filter.h"
#include "cli/output.h"
#include "cli/text.h"

namespace cli {

namespace {

struct UnrefTable {
  void operator()(libscols_table* table) const { scols_unref_table(table); }
};
using TablePointer = std::unique_ptr<libscols_table, UnrefTable>;

struct FreeText {
  void operator()(char* text) const { std::free(text); }
};

void require(bool done) {
  if (!done) throw std::bad_alloc();
}

std::string displayCell(const Value& value) {
  if (isAbsent(value)) return "-";
  const std::string text = displayText(valueText(value));
  return text.empty() ? "\"\"" : text;
}

// Columns are measured in characters whatever the environment's language is.
void useUtf8() {
  (void)std::setlocale(LC_CTYPE, "C.UTF-8"); /* without it, bytes are counted */
}

void addLine(libscols_table* table, const std::vector<std::string>& cells) {
  libscols_line* line = scols_table_new_line(table, nullptr);
  require(line != nullptr);
  for (std::size_t i = 0; i < cells.size(); ++i) {
    require(scols_line_set_data(line, i, cells[i].c_str()) == 0);
  }
}

std::string heading(const Answer& answer, int column) {
  return column == kKeyColumn ? "KEY" : answer.fields[static_cast<std::size_t>(column)].heading;
}

// The headings in bold, where colour is wanted.
std::string emphasize(const std::string& text, const Arguments& arguments) {
  const std::size_t end = text.find('\n');
  if (arguments.noHeadings || !arguments.color || end == std::string::npos) return text;
  return "\033[1m" + text.substr(0, end) + "\033[0m" + text.substr(end);
}

std::string print(libscols_table* table, const Arguments& arguments) {
  char* raw = nullptr;
  require(scols_print_table_to_string(table, &raw) == 0);
  const std::unique_ptr<char, FreeText> owner(raw);
  std::string text = raw == nullptr ? "" : raw;
  if (!text.empty() && text.back() != '\n') text += '\n';
  return emphasize(text, arguments);
}

TablePointer newTable(const std::vector<std::string>& headings, const Arguments& arguments) {
  useUtf8();
  TablePointer table(scols_new_table());
  require(table != nullptr);
  // The width of a terminal never cuts a value.
  require(scols_table_set_termforce(table.get(), SCOLS_TERMFORCE_NEVER) == 0);
  require(scols_table_enable_noheadings(table.get(), arguments.noHeadings ? 1 : 0) == 0);
  require(scols_table_enable_noencoding(table.get(), 1) == 0);
  for (const std::string& text : headings) {
    // A heading that is left out must not widen its column.
    const char* name = arguments.noHeadings ? "" : text.c_str();
    require(scols_table_new_column(table.get(), name, 0, 0) != nullptr);
  }
  return table;
}

// The columns asked for; of a whole record also what only some records have to tell.
std::vector<int> withDerived(const Answer& answer, const Row& row) {
  std::vector<int> columns = answer.columns;
  if (columns != allColumns(answer.fields)) return columns;
  for (std::size_t i = 0; i < answer.fields.size(); ++i) {
    const bool derived = answer.fields[i].presence == Presence::derived;
    if (derived && !isAbsent(row.values[i])) columns.push_back(static_cast<int>(i));
  }
  return columns;
}

// One record: a line a field.
std::string renderUpright(const Answer& answer, const Arguments& arguments) {
  const TablePointer table = newTable({"FIELD", "VALUE"}, arguments);
  for (const Row& row : answer.rows) {
    for (const int column : withDerived(answer, row)) {
      const std::string name =
          column == kKeyColumn ? "key" : answer.fields[static_cast<std::size_t>(column)].name;
      addLine(table.get(), {name, displayCell(cellOf(row, column))});
    }
  }
  return print(table.get(), arguments);
}

}  // namespace

std::string renderTable(const Answer& answer, const Arguments& arguments) {
  if (answer.shape == Shape::record) return renderUpright(answer, arguments);
  std::vector<std::string> cells;
  for (const int column : answer.columns)
    cells.push_back(heading(answer, column));
  if (answer.rows.empty()) {  // the library prints no headings above nothing
    return arguments.noHeadings ? "" : emphasize(join(cells, " ") + "\n", arguments);
  }
  const TablePointer table = newTable(cells, arguments);
  for (const Row& row : answer.rows) {
    cells.clear();
    for (const int column : answer.columns)
      cells.push_back(displayCell(cellOf(row, column)));
    addLine(table.get(), cells);
  }
  return print(table.get(), arguments);
}

}  // namespace cli
