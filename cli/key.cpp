// SPDX-License-Identifier: Apache-2.0
// Reading keys and finding what they name.
#include "cli/key.h"

#include <fmt/format.h>

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

}  // namespace

KeyQuery::KeyQuery(const Noun& noun, const Arguments& arguments, std::vector<std::string>* words)
    : noun_(noun), fields_(keyFields(noun)) {
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
  parts_ = split(text_, '/');
  words->erase(words->begin());
}

bool KeyQuery::matchesFrom(const Row& row, std::size_t part, std::size_t position,
                           bool sawShort) const {
  if (part == parts_.size()) return sawShort || parts_.size() == fields_.size();
  for (std::size_t i = position; i < fields_.size(); ++i) {
    const Field& field = noun_.fields[fields_[i]];
    if (!partMatches(field, row.values[fields_[i]], parts_[part])) continue;
    const bool isShort = sawShort || field.keyPart == noun_.shortKey;
    if (matchesFrom(row, part + 1, i + 1, isShort)) return true;
  }
  return false;
}

bool KeyQuery::holdsParts(const Row& row) const {
  if (!named_) return matchesFrom(row, 0, 0, false);
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
    if (!named_ && record.row.key == text_) exact.push_back(&record);
    if (holdsParts(record.row)) holding.push_back(&record);
  }
  return exact.empty() ? holding : exact;
}

bool KeyQuery::isWhole() const {
  if (!named_) return parts_.size() == fields_.size();
  for (const std::string& part : parts_) {
    if (part.empty()) return false;
  }
  return true;
}

Row KeyQuery::newRow() const {
  if (!isWhole()) {
    const char* hint =
        parts_.size() > fields_.size()
            ? "; name the parts (--service, --version-of, --name) when one holds \"/\""
            : "";
    throw usageFailure(fmt::format("{} {}: a new record needs its whole key, {}{}", noun_.name,
                                   text_, noun_.keyForm, hint));
  }
  Row row;
  row.values.resize(noun_.fields.size());
  for (std::size_t i = 0; i < fields_.size(); ++i) {
    const Field& field = noun_.fields[fields_[i]];
    Value value = parseValue(field, parts_[i]);
    const bool zeroVersion = value == Value(Version{});
    if (isAbsent(value) || zeroVersion) {
      Failure failure(
          Exit::refused,
          fmt::format("{}: {}", field.name, zeroVersion ? "0.0.0.0 is no version" : "is empty"));
      failure.field = field.name;
      throw failure;
    }
    row.values[fields_[i]] = std::move(value);
  }
  row.key = keyOf(noun_, row);
  return row;
}

}  // namespace cli
