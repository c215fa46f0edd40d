// SPDX-License-Identifier: Apache-2.0
// Reading edits and applying them to rows.
#include "cli/edits.h"

#include <fmt/format.h>

#include "cli/filter.h"

namespace cli {

namespace {

void addEdit(const Noun& noun, const std::string& name, const std::string& text,
             std::vector<Edit>* edits) {
  const int column = columnsOf(noun.fields, {name}, noun.name).front();
  if (column == kKeyColumn)
    throw usageFailure("key: to change a key, remove the record and add it");
  const auto index = static_cast<std::size_t>(column);
  if (noun.fields[index].presence == Presence::derived) {
    throw usageFailure(fmt::format("{}: is shown and cannot be set", name));
  }
  for (const Edit& edit : *edits) {
    if (edit.field == index) throw usageFailure(fmt::format("{} is given twice", name));
  }
  edits->push_back({index, parseValue(noun.fields[index], text)});
}

// Whether a field of the row is settled by the key: its parts, and for a new record also what was
// typed in the place of one.
enum class RowOrigin { file, key };

bool isSettled(const Field& field, const Value& value, RowOrigin origin) {
  const bool byKey =
      isKeyField(field) || (origin == RowOrigin::key && field.keyPart == KeyPart::alternative);
  return byKey && !isAbsent(value);
}

void applyEdits(const Noun& noun, const std::vector<Edit>& edits, RowOrigin origin, Row* row) {
  for (const Edit& edit : edits) {
    const Field& field = noun.fields[edit.field];
    Value& value = row->values[edit.field];
    if (isSettled(field, value, origin) && !(value == edit.value)) {
      throw usageFailure(fmt::format("{} is part of the key of {}; remove the record and add it",
                                     field.name, row->key));
    }
    value = edit.value;
  }
  for (std::size_t i = 0; i < noun.fields.size(); ++i) {
    const bool fills = noun.fields[i].presence == Presence::maybeEmpty;
    if (fills && isAbsent(row->values[i])) row->values[i] = std::string();
  }
  row->key = keyOf(noun, *row);
}

}  // namespace

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

Row newRow(const Noun& noun, const KeyQuery& query, const std::vector<Edit>& edits) {
  Row row = query.newRow();
  applyEdits(noun, edits, RowOrigin::key, &row);
  return row;
}

Row editedRow(const Noun& noun, const Arguments& arguments, const std::vector<Edit>& edits,
              const Row& old) {
  Row row = old;
  for (std::size_t i = 0; i < row.values.size() && arguments.replace; ++i) {
    if (!isKeyField(noun.fields[i])) row.values[i] = Value{};
  }
  applyEdits(noun, edits, RowOrigin::file, &row);
  return row;
}

void requireFields(const Noun& noun, const Row* old, const Row& row) {
  for (std::size_t i = 0; i < noun.fields.size(); ++i) {
    const bool required = noun.fields[i].presence == Presence::required;
    const bool lackedIt = old != nullptr && isAbsent(old->values[i]);
    if (required && isAbsent(row.values[i]) && !lackedIt) {
      refuseValue(noun.fields[i], "is missing");
    }
  }
}

}  // namespace cli
