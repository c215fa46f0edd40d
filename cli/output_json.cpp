// SPDX-License-Identifier: Apache-2.0
// JSON: one envelope for every answer, change and failure. Keys keep their order; absent fields are
// left out; bytes that are not UTF-8 travel in base64 under the key with "_b64" behind it.
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "cli/filter.h"
#include "cli/output.h"
#include "cli/text.h"

namespace cli {

namespace {

using Json = nlohmann::ordered_json;

void putText(Json* object, const std::string& name, const std::string& text) {
  if (isUtf8(text)) {
    (*object)[name] = text;
  } else {
    (*object)[name + "_b64"] = base64(text);
  }
}

// One text that is not UTF-8 sends the whole list in base64.
void putList(Json* object, const std::string& name, const List& list) {
  bool readable = true;
  for (const std::string& item : list.items)
    readable = readable && isUtf8(item);
  Json items = Json::array();
  for (const std::string& item : list.items)
    items.push_back(readable ? item : base64(item));
  (*object)[readable ? name : name + "_b64"] = std::move(items);
}

void putValue(Json* object, const std::string& name, const Value& value);

Json detailsJson(const Details& details) {
  Json object = Json::object();
  for (const NamedValue& item : details.items)
    putValue(&object, item.name, item.value);
  return object;
}

void putValue(Json* object, const std::string& name, const Value& value) {
  if (isAbsent(value)) return;
  if (const auto* version = std::get_if<Version>(&value)) {
    (*object)[name] = valueText(value);
    (*object)[name + "_code"] = fmt::format("0x{:016X}", version->code);
  } else if (const auto* number = std::get_if<std::uint64_t>(&value)) {
    (*object)[name] = *number;
  } else if (const auto* integer = std::get_if<std::int64_t>(&value)) {
    (*object)[name] = *integer;
  } else if (const auto* yes = std::get_if<bool>(&value)) {
    (*object)[name] = *yes;
  } else if (const auto* list = std::get_if<List>(&value)) {
    putList(object, name, *list);
  } else if (const auto* details = std::get_if<Details>(&value)) {
    (*object)[name] = detailsJson(*details);
  } else {
    putText(object, name, std::get<std::string>(value));
  }
}

void putUnknown(Json* object, const std::vector<UnknownField>& fields) {
  if (fields.empty()) return;
  Json list = Json::array();
  for (const UnknownField& field : fields) {
    list.push_back(Json{{"bit", field.bit}, {"hex", hexText(field.bytes)}});
  }
  (*object)["unknown_fields"] = std::move(list);
}

// What only some records have to tell is told whatever fields were asked for.
void putDerived(Json* object, const Answer& answer, const Row& row) {
  for (std::size_t i = 0; i < answer.fields.size(); ++i) {
    if (answer.fields[i].presence != Presence::derived) continue;
    putValue(object, answer.fields[i].name, row.values[i]);
  }
}

void putRow(Json* object, const Answer& answer, const Row& row) {
  if (!row.key.empty()) putText(object, "key", row.key);
  for (const int column : answer.columns) {
    if (column == kKeyColumn) continue;
    putValue(object, answer.fields[static_cast<std::size_t>(column)].name, cellOf(row, column));
  }
  putDerived(object, answer, row);
  putUnknown(object, row.unknown);
}

Json rowJson(const Answer& answer, const Row& row) {
  Json object = Json::object();
  putRow(&object, answer, row);
  return object;
}

std::string line(const Json& json) {
  return json.dump() + "\n";
}

const char* actionName(Action action) {
  switch (action) {
    case Action::add:
      return "add";
    case Action::change:
      return "change";
    case Action::remove:
      return "remove";
    case Action::none:
      break;
  }
  return "unchanged";
}

// A value beside its counterpart: both in the same form, so that they can be compared.
void putPair(Json* fields, const std::string& name, const Value& before, const Value& after) {
  const bool readable = isUtf8(valueText(before)) && isUtf8(valueText(after));
  Json pair = Json::object();
  const auto put = [&pair, readable](const char* side, const Value& value) {
    if (isAbsent(value)) return;
    if (!readable) {
      pair[side] = base64(valueText(value));
    } else if (std::holds_alternative<Version>(value)) {
      pair[side] = valueText(value);
    } else {
      putValue(&pair, side, value);
    }
  };
  put("old", before);
  put("new", after);
  (*fields)[readable ? name : name + "_b64"] = std::move(pair);
}

Json changedFields(const ChangeReport& report) {
  Json fields = Json::object();
  if (report.action == Action::none) return fields;
  for (std::size_t i = 0; i < report.noun->fields.size(); ++i) {
    const Value before = report.before ? report.before->values[i] : Value{};
    const Value after = report.after ? report.after->values[i] : Value{};
    if (!(before == after)) putPair(&fields, report.noun->fields[i].name, before, after);
  }
  return fields;
}

}  // namespace

std::string renderJson(const Answer& answer) {
  Json object = {{"schema", answer.schema}};
  if (!answer.kind.empty()) object["kind"] = answer.kind;
  if (!answer.registry.empty()) putText(&object, "registry", answer.registry);
  if (answer.shape == Shape::record) {
    object["record"] = rowJson(answer, answer.rows.front());
  } else if (answer.shape == Shape::flat) {
    putRow(&object, answer, answer.rows.front());
  } else {
    object["count"] = answer.rows.size();
    Json records = Json::array();
    for (const Row& row : answer.rows)
      records.push_back(rowJson(answer, row));
    object["records"] = std::move(records);
  }
  return line(object);
}

std::string renderNdjson(const Answer& answer) {
  if (answer.shape == Shape::flat) return renderJson(answer);
  std::string text;
  for (const Row& row : answer.rows)
    text += line(rowJson(answer, row));
  return text;
}

std::string renderJson(const ChangeReport& report) {
  Json object = {{"schema", "vrxreg.change/1"}, {"kind", report.noun->name}};
  putText(&object, "key", report.key);
  object["action"] = actionName(report.action);
  object["changed"] = report.action != Action::none;
  object["dry_run"] = report.dryRun;
  if (report.count > 1) object["count"] = report.count;
  object["fields"] = changedFields(report);
  if (report.diff) object["diff"] = *report.diff;
  return line(object);
}

std::string renderJson(const Failure& failure) {
  Json object = {{"schema", "vrxreg.error/1"}, {"exit", static_cast<int>(failure.exit)}};
  if (failure.code != genreg::status::ok) {
    object["code"] = codeText(failure.code);
    const GenRegStatusInfo* info = genregStatusInfo(failure.code);
    object["name"] = info == nullptr ? "system_error" : info->name;
  }
  object["message"] = displayText(failure.message);
  if (!failure.path.empty()) putText(&object, "path", failure.path);
  if (!failure.field.empty()) object["field"] = failure.field;
  for (const std::string& key : failure.candidates)
    object["candidates"].push_back(displayText(key));
  return line(object);
}

}  // namespace cli
