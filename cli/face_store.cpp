// SPDX-License-Identifier: Apache-2.0
// What the stores of all nouns share: the choice of the file, values, and refusals in words.
#include "cli/face_store.h"

#include <fmt/format.h>

#include "cli/text.h"

namespace cli {

namespace {

namespace status = genreg::status;

std::string quoted(const std::string& text) {
  return "\"" + text + "\"";
}

}  // namespace

std::string chosenFile(const Noun& noun, const Arguments& arguments, const char* fallback,
                       const std::string& path) {
  if (!path.empty()) return path;
  if (arguments.file) return *arguments.file;
  if (fallback != nullptr) return fallback;
  throw usageFailure(fmt::format("{}: which file? Give -f FILE", noun.name));
}

void requirePath(const vrx::Status& chosen) {
  if (chosen) return;
  Failure failure = failureOf(chosen.code(), chosen.path(), chosen.path());
  failure.exit = Exit::noRegistry;
  throw failure;
}

void requireAccepted(const Noun& noun, const Row& row, const vrx::Status& checked) {
  if (checked) return;
  const int field = findField(noun.fields, checked.field());
  if (field >= 0) refuseValue(noun.fields[static_cast<std::size_t>(field)], checked.detail());
  if (checked.code() == status::invalid_record && !checked.detail().empty()) {
    throw Failure(Exit::refused, fmt::format("{} {}: {}", noun.name, row.key, checked.detail()));
  }
}

void refuseLine(const Noun& noun, const Row& row, const vrx::Status& refusal) {
  std::vector<std::string> values;
  for (std::size_t i = 0; i < noun.fields.size(); ++i) {
    if (isAbsent(row.values[i])) continue;
    values.push_back(fmt::format("{}={}", noun.fields[i].name, quoted(valueText(row.values[i]))));
  }
  const std::string why = refusal.detail().empty() ? refusal.meaning() : refusal.detail();
  Failure failure(Exit::refused, fmt::format("{} {}: no line can hold {}: {}", noun.name, row.key,
                                             join(values, " "), why));
  if (refusal.detail().empty()) failure.code = refusal.code();
  throw failure;
}

void refuseLoss(const Noun& noun, const Row& row, const std::string& lost) {
  throw Failure(Exit::refused,
                fmt::format("{} {}: its line holds {}, which would not be kept as it stands; "
                            "with --replace it is given up",
                            noun.name, row.key, quoted(lost)));
}

Value valueOf(const Field& field, const std::string& text) {
  const bool kept = field.keyPart == KeyPart::name || field.presence == Presence::maybeEmpty;
  return text.empty() && !kept ? Value{} : Value(text);
}

Value valueOf(const Field&, const std::vector<std::string>& texts) {
  return texts.empty() ? Value{} : Value(List{texts});
}

void setField(const Value& value, std::string* text) {
  *text = isAbsent(value) ? "" : std::get<std::string>(value);
}

void setField(const Value& value, std::vector<std::string>* texts) {
  *texts = isAbsent(value) ? std::vector<std::string>() : std::get<List>(value).items;
}

void setField(const Value& value, std::int32_t* number) {
  *number = isAbsent(value) ? 0 : static_cast<std::int32_t>(std::get<std::int64_t>(value));
}

void setField(const Value& value, std::optional<std::string>* text) {
  text->reset();
  if (!isAbsent(value)) *text = std::get<std::string>(value);
}

void setField(const Value& value, std::optional<bool>* yes) {
  yes->reset();
  if (const bool* set = std::get_if<bool>(&value)) *yes = *set;
}

}  // namespace cli
