// SPDX-License-Identifier: Apache-2.0
// Filter expressions, sorting and column lists over the generic rows.
#include "cli/filter.h"

#include <fmt/format.h>
#include <fnmatch.h>
#include <regex.h>

#include <algorithm>
#include <memory>

#include "cli/failure.h"
#include "cli/text.h"
#include "platform/osse/strings.h"

namespace cli {

namespace {

enum class Relation { glob, notGlob, regex, atLeast, atMost, above, below };

struct RelationSign {
  const char* sign;
  Relation relation;
};

// Longer signs first, so that ">=" is not read as ">".
constexpr RelationSign kSigns[] = {{"!=", Relation::notGlob}, {">=", Relation::atLeast},
                                   {"<=", Relation::atMost},  {"=", Relation::glob},
                                   {"~", Relation::regex},    {">", Relation::above},
                                   {"<", Relation::below}};

struct FreeRegex {
  void operator()(regex_t* compiled) const {
    regfree(compiled);
    delete compiled;
  }
};

struct Condition {
  int column = kKeyColumn;
  Relation relation = Relation::glob;
  std::string text;  // the pattern
  Value value;       // what it means as this field's value, if at all
  std::unique_ptr<regex_t, FreeRegex> compiled;
};

Value cell(const Row& row, int column) {
  if (column == kKeyColumn) return row.key;
  return row.values[static_cast<std::size_t>(column)];
}

std::vector<std::string> namesOf(const std::vector<Field>& fields) {
  std::vector<std::string> names = {"key"};
  for (const Field& field : fields)
    names.emplace_back(field.name);
  return names;
}

void compileRegex(const std::string& expression, Condition* condition) {
  auto compiled = std::make_unique<regex_t>();
  const int rc = regcomp(compiled.get(), condition->text.c_str(), REG_EXTENDED | REG_NOSUB);
  if (rc != 0) {
    char why[128];
    regerror(rc, compiled.get(), why, sizeof why);
    throw usageFailure(fmt::format("--where {}: {}", expression, why));
  }
  condition->compiled.reset(compiled.release());
}

// Words for yes and no are values; other patterns of a boolean are globs over "yes" and "no".
void readPattern(const std::vector<Field>& fields, const std::string& expression,
                 Condition* condition) {
  const bool ordered = condition->relation >= Relation::atLeast;
  const Kind kind = condition->column == kKeyColumn
                        ? Kind::text
                        : fields[static_cast<std::size_t>(condition->column)].kind;
  if (condition->relation == Relation::regex) compileRegex(expression, condition);
  bool yes = false;
  if (kind == Kind::boolean && ossStrToBoolean(condition->text.c_str(), &yes) == 0) {
    condition->text = yes ? "yes" : "no";
  }
  if (!ordered) return;
  Version version;
  std::uint64_t number = 0;
  std::int64_t integer = 0;
  if (kind == Kind::version && parseVersion(condition->text, &version)) condition->value = version;
  const bool counts = kind == Kind::number || kind == Kind::byte || kind == Kind::port;
  if (counts && parseNumber(condition->text, UINT64_MAX, &number)) condition->value = number;
  if (kind == Kind::integer && parseInteger(condition->text, &integer)) condition->value = integer;
  if (kind == Kind::time) condition->value = textOrAbsent(condition->text);
  if (isAbsent(condition->value)) {
    throw usageFailure(
        fmt::format("--where {}: < and > compare versions, numbers and times", expression));
  }
}

Condition parseCondition(const std::vector<Field>& fields, const std::string& expression) {
  const std::string field = fieldOf(expression);
  Condition condition;
  for (const RelationSign& sign : kSigns) {
    const std::string_view text = sign.sign;
    if (expression.compare(field.size(), text.size(), text) != 0) continue;
    condition.column = columnsOf(fields, {field}, "--where").front();
    condition.relation = sign.relation;
    condition.text = expression.substr(field.size() + text.size());
    readPattern(fields, expression, &condition);
    return condition;
  }
  throw usageFailure(fmt::format(
      "--where {}: write F=GLOB, F!=GLOB, F~REGEX, F>=V, F<=V, F>V or F<V", expression));
}

bool globMatches(const Condition& condition, const Value& value) {
  if (isAbsent(value) || condition.text.empty()) {
    return condition.text.empty() && valueText(value).empty();
  }
  return fnmatch(condition.text.c_str(), valueText(value).c_str(), 0) == 0;
}

bool orderHolds(Relation relation, int order) {
  if (relation == Relation::atLeast) return order >= 0;
  if (relation == Relation::atMost) return order <= 0;
  return relation == Relation::above ? order > 0 : order < 0;
}

bool holds(const Condition& condition, const Row& row) {
  const Value value = cell(row, condition.column);
  if (condition.relation == Relation::glob) return globMatches(condition, value);
  if (condition.relation == Relation::notGlob) return !globMatches(condition, value);
  if (isAbsent(value)) return false;
  if (condition.relation == Relation::regex) {
    return regexec(condition.compiled.get(), valueText(value).c_str(), 0, nullptr, 0) == 0;
  }
  return orderHolds(condition.relation, compareValues(value, condition.value));
}

}  // namespace

std::vector<int> columnsOf(const std::vector<Field>& fields, const std::vector<std::string>& names,
                           const std::string& option) {
  std::vector<int> columns;
  for (const std::string& name : names) {
    const int index = findField(fields, name);
    if (index < 0 && name != "key") {
      throw usageFailure(fmt::format("{}: no field \"{}\"{}; there are {}", option, name,
                                     suggestion(name, namesOf(fields)),
                                     join(namesOf(fields), ", ")));
    }
    columns.push_back(index < 0 ? kKeyColumn : index);
  }
  return columns;
}

std::string fieldOf(const std::string& expression) {
  return expression.substr(0, expression.find_first_of("!<>=~"));
}

RowTest parseFilter(const std::vector<Field>& fields, const std::vector<std::string>& expressions) {
  auto conditions = std::make_shared<std::vector<Condition>>();
  for (const std::string& expression : expressions) {
    conditions->push_back(parseCondition(fields, expression));
  }
  return [conditions](const Row& row) {
    const auto holdsHere = [&row](const Condition& condition) { return holds(condition, row); };
    return std::all_of(conditions->begin(), conditions->end(), holdsHere);
  };
}

RowOrder parseOrder(const std::vector<Field>& fields, const std::string& text) {
  if (text.empty()) return {};
  const bool descending = text.front() == '-';
  const int column = columnsOf(fields, {text.substr(descending ? 1 : 0)}, "--sort").front();
  return [column, descending](const Row& a, const Row& b) {
    const int comparison = compareValues(cell(a, column), cell(b, column));
    return descending ? comparison > 0 : comparison < 0;
  };
}

void keepRows(const RowTest& test, std::vector<Row>* rows) {
  rows->erase(std::remove_if(rows->begin(), rows->end(), std::not_fn(test)), rows->end());
}

void sortRows(const RowOrder& order, std::vector<Row>* rows) {
  if (order) std::stable_sort(rows->begin(), rows->end(), order);
}

}  // namespace cli
