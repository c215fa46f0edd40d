// SPDX-License-Identifier: Apache-2.0
// Reading keys and finding what they name.
#include "cli/key.h"

#include <fmt/format.h>

#include <algorithm>

#include "cli/text.h"

namespace cli {

namespace {

bool partMatches(const Field& field, const Value& value, const std::string& part) {
  if (field.kind != Kind::version) return valueText(value) == part;
  Version wanted;
  const auto* version = std::get_if<Version>(&value);
  return version != nullptr && parseVersion(part, &wanted) && *version == wanted;
}

const std::optional<std::string>& namedPart(const Arguments& arguments, KeyPart part) {
  static const std::optional<std::string> kNothing;
  switch (part) {
    case KeyPart::service:
      return arguments.service;
    case KeyPart::version:
      return arguments.version;
    case KeyPart::name:
      return arguments.name;
    case KeyPart::protocol:
    case KeyPart::alternative:
    case KeyPart::none:
      break;
  }
  return kNothing;
}

const char* optionOf(KeyPart part) {
  if (part == KeyPart::service) return "--service";
  return part == KeyPart::version ? "--version-of" : "--name";
}

void refuseForeignParts(const Noun& noun, const Arguments& arguments) {
  for (const KeyPart part : {KeyPart::service, KeyPart::version, KeyPart::name}) {
    if (!namedPart(arguments, part)) continue;
    bool known = false;
    for (const Field& field : noun.fields)
      known = known || field.keyPart == part;
    if (!known) {
      throw usageFailure(
          fmt::format("{}: the key of {} is {}", optionOf(part), noun.name, noun.keyForm));
    }
  }
}

// The key's fields with the alternative in the place of the name; empty when there is none.
std::vector<std::size_t> alternativeFields(const Noun& noun) {
  std::vector<std::size_t> fields = keyFields(noun);
  for (std::size_t i = 0; i < noun.fields.size(); ++i) {
    if (noun.fields[i].keyPart != KeyPart::alternative) continue;
    for (std::size_t& field : fields) {
      if (noun.fields[field].keyPart == KeyPart::name) field = i;
    }
    return fields;
  }
  return {};
}

bool isNumber(const std::string& text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

Value keyValue(const Field& field, const std::string& part) {
  Value value = parseValue(field, part);
  if (value == Value(Version{})) refuseValue(field, "0.0.0.0 is no version");
  if (isAbsent(value)) refuseValue(field, "is empty");
  return value;
}

}  // namespace

KeyQuery::KeyQuery(const Noun& noun, const Arguments& arguments, std::vector<std::string>* words)
    : noun_(noun), fields_(keyFields(noun)), alternatives_(alternativeFields(noun)) {
  named_ = arguments.service || arguments.version || arguments.name;
  if (named_) {
    refuseForeignParts(noun, arguments);
    for (const std::size_t field : fields_) {
      parts_.push_back(namedPart(arguments, noun.fields[field].keyPart).value_or(""));
      if (!parts_.back().empty()) text_ += (text_.empty() ? "" : "/") + parts_.back();
    }
    return;
  }
  if (words->empty() || words->front().empty()) {
    throw usageFailure(fmt::format("which {}? Give its key, {}", noun.name, noun.keyForm));
  }
  text_ = words->front();
  parts_ = splitText();
  words->erase(words->begin());
}

std::vector<std::string> KeyQuery::splitText() const {
  if (!noun_.slashInName) return split(text_, '/');
  const std::size_t slash = text_.rfind('/');
  if (fields_.size() == 1 || slash == std::string::npos) return {text_};
  return {text_.substr(0, slash), text_.substr(slash + 1)};
}

bool KeyQuery::matchesFrom(const Row& row, const Places& places, std::size_t part,
                           std::size_t position, bool sawShort) const {
  if (part == parts_.size()) return sawShort || parts_.size() == places.size();
  for (std::size_t i = position; i < places.size(); ++i) {
    const Field& field = noun_.fields[places[i]];
    if (!partMatches(field, row.values[places[i]], parts_[part])) continue;
    const bool isShort =
        sawShort || field.keyPart == noun_.shortKey || field.keyPart == KeyPart::alternative;
    if (matchesFrom(row, places, part + 1, i + 1, isShort)) return true;
  }
  return false;
}

bool KeyQuery::holdsParts(const Row& row) const {
  if (!named_) {
    const bool isName = noun_.slashInName && valueText(row.values[fields_.front()]) == text_;
    return isName || matchesFrom(row, fields_, 0, 0, false) ||
           matchesFrom(row, alternatives_, 0, 0, false);
  }
  for (std::size_t i = 0; i < fields_.size(); ++i) {
    if (parts_[i].empty()) continue;
    if (!partMatches(noun_.fields[fields_[i]], row.values[fields_[i]], parts_[i])) return false;
  }
  return true;
}

std::vector<const Record*> KeyQuery::select(const std::vector<Record>& records) const {
  std::vector<const Record*> exact;
  std::vector<const Record*> holding;
  for (const Record& record : records) {
    if (isWhole(record.row)) exact.push_back(&record);
    if (holdsParts(record.row)) holding.push_back(&record);
  }
  return exact.empty() ? holding : exact;
}

const KeyQuery::Places& KeyQuery::placesOfParts() const {
  return !named_ && !alternatives_.empty() && isNumber(parts_.front()) ? alternatives_ : fields_;
}

Row KeyQuery::newRow() const {
  if (!canBegin()) {
    const char* hint =
        parts_.size() > fields_.size()
            ? "; name the parts (--service, --version-of, --name) when one holds \"/\""
            : "";
    throw usageFailure(fmt::format("{} {}: a new record needs its whole key, {}{}", noun_.name,
                                   text_, noun_.keyForm, hint));
  }
  Row row;
  row.values.resize(noun_.fields.size());
  const Places& places = placesOfParts();
  for (std::size_t i = 0; i < places.size(); ++i) {
    if (named_ && parts_[i].empty()) continue;
    row.values[places[i]] = keyValue(noun_.fields[places[i]], parts_[i]);
  }
  row.key = keyOf(noun_, row);
  return row;
}

std::string alternativeKey(const Noun& noun, const Row& row) {
  std::vector<std::string> parts;
  for (const std::size_t field : alternativeFields(noun))
    parts.push_back(valueText(row.values[field]));
  return join(parts, "/");
}

bool hasWholeKey(const Noun& noun, const Row& row) {
  for (const std::size_t field : keyFields(noun)) {
    if (isAbsent(row.values[field])) return false;
  }
  return true;
}

void requireWholeKey(const Noun& noun, const Row& row) {
  if (hasWholeKey(noun, row)) return;
  throw usageFailure(
      fmt::format("{} {}: a new record needs its whole key, {}", noun.name, row.key, noun.keyForm));
}

}  // namespace cli
