// SPDX-License-Identifier: Apache-2.0
// The line-oriented forms (csv, tsv, sh, name, value), change reports as text, and the way out.
#include "cli/output.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "cli/filter.h"
#include "cli/text.h"
#include "platform/osse/interruptions.h"

namespace cli {

namespace {

std::string columnName(const Answer& answer, int column) {
  return column == kKeyColumn ? "key" : answer.fields[static_cast<std::size_t>(column)].name;
}

// A stored empty text is told from an absent field by its quotes.
std::string csvValue(const Value& value) {
  const std::string text = valueText(value);
  return text.empty() && !isAbsent(value) ? "\"\"" : csvCell(text);
}

std::string tsvValue(const Value& value) {
  return tsvCell(valueText(value));
}

struct Separated {
  const char* separator;
  const char* lineEnd;
  std::string (*cell)(const Value& value);
};

std::string renderSeparated(const Answer& answer, bool headings, const Separated& how) {
  std::string text;
  std::vector<std::string> cells;
  for (const int column : answer.columns)
    cells.push_back(columnName(answer, column));
  if (headings) text = join(cells, how.separator) + how.lineEnd;
  for (const Row& row : answer.rows) {
    cells.clear();
    for (const int column : answer.columns)
      cells.push_back(how.cell(cellOf(row, column)));
    text += join(cells, how.separator) + how.lineEnd;
  }
  return text;
}

// The prefix keeps shells' own variables ("path" among them) out of reach; absent fields are empty,
// so that a loop over records sees nothing of the record before.
std::string renderShell(const Answer& answer) {
  std::string text;
  for (const Row& row : answer.rows) {
    std::vector<std::string> words;
    for (const int column : answer.columns) {
      words.push_back(fmt::format("vrx_{}={}", columnName(answer, column),
                                  shellWord(valueText(cellOf(row, column)))));
    }
    text += join(words, " ") + "\n";
  }
  return text;
}

std::string renderValues(const Answer& answer, char end) {
  std::string text;
  for (const Row& row : answer.rows) {
    for (const int column : answer.columns)
      text += valueText(cellOf(row, column)) + end;
  }
  return text;
}

std::string renderNames(const Answer& answer, char end) {
  std::string text;
  for (const Row& row : answer.rows)
    text += row.key + end;
  return text;
}

std::string changedFields(const ChangeReport& report) {
  std::vector<std::string> names;
  for (std::size_t i = 0; i < report.noun->fields.size(); ++i) {
    if (report.before->values[i] == report.after->values[i]) continue;
    names.emplace_back(report.noun->fields[i].name);
  }
  return join(names, ", ");
}

std::string whatWasDone(const ChangeReport& report) {
  const std::string key = displayText(report.key);
  switch (report.action) {
    case Action::add:
      return fmt::format("{} {}", report.dryRun ? "would add" : "added", key);
    case Action::change:
      return fmt::format("{} {}: {}", report.dryRun ? "would change" : "changed", key,
                         changedFields(report));
    case Action::remove:
      return fmt::format("{} {}", report.dryRun ? "would remove" : "removed", key);
    case Action::none:
      break;
  }
  return "unchanged " + key;
}

std::string reportLine(const ChangeReport& report) {
  std::string line = whatWasDone(report);
  if (report.count > 1) line += fmt::format(" ({} records)", report.count);
  if (!report.remark.empty()) line += fmt::format(" ({})", report.remark);
  return line + "\n";
}

}  // namespace

Value cellOf(const Row& row, int column) {
  if (column == kKeyColumn) return row.key;
  return row.values[static_cast<std::size_t>(column)];
}

std::vector<int> allColumns(const std::vector<Field>& fields) {
  std::vector<int> columns;
  for (std::size_t i = 0; i < fields.size(); ++i) {
    if (fields[i].presence != Presence::derived) columns.push_back(static_cast<int>(i));
  }
  return columns;
}

std::string render(const Answer& answer, const Arguments& arguments) {
  const char end = arguments.zero ? '\0' : '\n';
  switch (arguments.form) {
    case Form::json:
      return renderJson(answer);
    case Form::ndjson:
      return renderNdjson(answer);
    case Form::csv:
      return renderSeparated(answer, !arguments.noHeadings, {",", "\r\n", &csvValue});
    case Form::tsv:
      return renderSeparated(answer, !arguments.noHeadings, {"\t", "\n", &tsvValue});
    case Form::sh:
      return renderShell(answer);
    case Form::name:
      return renderNames(answer, end);
    case Form::value:
      return renderValues(answer, end);
    case Form::table:
    case Form::wide:
      break;
  }
  return answer.plain ? *answer.plain : renderTable(answer, arguments);
}

std::string render(const ChangeReport& report, const Arguments& arguments) {
  if (arguments.form == Form::json || arguments.form == Form::ndjson) return renderJson(report);
  if (arguments.form == Form::name) return report.key + (arguments.zero ? '\0' : '\n');
  if (arguments.quiet) return {};
  const std::string diff = report.diff.value_or("");
  return (arguments.color ? colorDiff(diff) : diff) + reportLine(report);
}

int writeAll(int to, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written =
        oss::repeatInterrupted([&] { return write(to, bytes.data(), bytes.size()); });
    if (written <= 0) return written < 0 ? errno : EIO;
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return 0;
}

void writeOutput(const std::string& text) {
  const int error = writeAll(STDOUT_FILENO, text);
  if (error == 0) return;
  throw Failure(Exit::io, fmt::format("standard output: {}", std::strerror(error)));
}

}  // namespace cli
