// SPDX-License-Identifier: Apache-2.0
// The list of nouns, and what can be said about any of them.
#include "cli/noun.h"

#include "cli/file_nouns.h"
#include "cli/global_nouns.h"
#include "cli/text.h"

namespace cli {

void Store::check(const Record*, const Row&) const {}

vrx::Status Store::readLines(std::vector<vrx::Line>*) {
  return {};
}

const std::vector<Noun>& nouns() {
  static const std::vector<Noun> all = [] {
    std::vector<Noun> list = globalNouns();
    for (Noun (*noun)() : {&profileNoun, &portsNoun, &inittabNoun, &binvarNoun})
      list.push_back(noun());
    return list;
  }();
  return all;
}

const Noun* findNoun(std::string_view name) {
  for (const Noun& noun : nouns()) {
    if (name == noun.name) return &noun;
  }
  return nullptr;
}

std::vector<std::size_t> keyFields(const Noun& noun) {
  std::vector<std::size_t> indices;
  for (std::size_t i = 0; i < noun.fields.size(); ++i) {
    if (isKeyField(noun.fields[i])) indices.push_back(i);
  }
  return indices;
}

bool isKeyField(const Field& field) {
  return field.keyPart != KeyPart::none && field.keyPart != KeyPart::alternative;
}

std::string keyOf(const Noun& noun, const Row& row) {
  std::vector<std::string> parts;
  for (const std::size_t index : keyFields(noun)) {
    if (!isAbsent(row.values[index])) parts.push_back(valueText(row.values[index]));
  }
  return join(parts, "/");
}

bool sameKey(const Noun& noun, const Row& a, const Row& b) {
  for (const std::size_t field : keyFields(noun)) {
    if (!(a.values[field] == b.values[field])) return false;
  }
  return true;
}

}  // namespace cli
