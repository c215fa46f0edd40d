// SPDX-License-Identifier: Apache-2.0
// What a command answers, and every form in which it can be printed.
//
// A verb makes an Answer (rows of typed values) or a ChangeReport; render makes text of it. Nothing
// is written until the command has finished, so that an answer is whole or not there at all.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cli/arguments.h"
#include "cli/failure.h"
#include "cli/noun.h"
#include "cli/value.h"

namespace cli {

// How an answer lies in JSON: {..., "records":[...]}, {..., "record":{...}}, or its fields
// directly.
enum class Shape { list, record, flat };

struct Answer {
  std::string schema;  // as in "vrxreg.list/1"
  Shape shape = Shape::list;
  std::string kind;      // the noun; empty for none
  std::string registry;  // the file; empty for none
  std::vector<Field> fields;
  std::vector<int> columns;  // indices of fields, or kKeyColumn
  std::vector<Row> rows;
  std::optional<std::string> plain;  // what -o table prints, where it is no table
};

enum class Action { none, add, change, remove };

struct ChangeReport {
  const Noun* noun = nullptr;
  std::string key;
  Action action = Action::none;
  bool dryRun = false;
  std::size_t count = 1;  // records concerned; of several, the first speaks for all
  std::optional<Row> before;
  std::optional<Row> after;
  std::optional<std::string> diff;
  std::string remark;  // behind the report, for people
};

// The answer in the form that the arguments ask for.
std::string render(const Answer& answer, const Arguments& arguments);
std::string render(const ChangeReport& report, const Arguments& arguments);

// One cell of a row; a column of kKeyColumn gives the key.
Value cellOf(const Row& row, int column);

// All of the noun's fields, in order, but for those that only some records show.
std::vector<int> allColumns(const std::vector<Field>& fields);

// output_table.cpp: columns aligned, with the headings in bold when `color` is wanted.
std::string renderTable(const Answer& answer, const Arguments& arguments);

// output_json.cpp
std::string renderJson(const Answer& answer);
std::string renderNdjson(const Answer& answer);
std::string renderJson(const ChangeReport& report);
std::string renderJson(const Failure& failure);

// diff.cpp: a unified diff of two lists of lines, with its two header lines; empty when they agree.
std::string unifiedDiff(const std::vector<std::string>& before,
                        const std::vector<std::string>& after, const std::string& oldLabel,
                        const std::string& newLabel);
// The diff of a record as "field=value" lines; an absent row is /dev/null.
std::string recordDiff(const Noun& noun, const std::optional<Row>& before,
                       const std::optional<Row>& after, const std::string& newRemark);
// The diff of two contents of the file at `path`; absent contents are /dev/null. Tabs stand as they
// are.
std::string fileDiff(const std::string& path, const std::optional<std::string>& before,
                     const std::optional<std::string>& after, const std::string& newRemark);
// Removed lines red, added lines green.
std::string colorDiff(const std::string& diff);

// Writes all of `bytes` to a descriptor: 0 or an errno value.
int writeAll(int to, std::string_view bytes);

// Writes all of `text` to standard output. Throws Failure (io).
void writeOutput(const std::string& text);

}  // namespace cli
