// SPDX-License-Identifier: Apache-2.0
// The list of nouns, and what can be said about any of them.
#include "cli/noun.h"

#include "cli/global_store.h"
#include "cli/text.h"

namespace cli {

const std::vector<Noun>& nouns() {
  static const std::vector<Noun> all = globalNouns();
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
    if (noun.fields[i].keyPart != KeyPart::none) indices.push_back(i);
  }
  return indices;
}

std::string keyOf(const Noun& noun, const Row& row) {
  std::vector<std::string> parts;
  for (const std::size_t index : keyFields(noun))
    parts.push_back(valueText(row.values[index]));
  return join(parts, "/");
}

}  // namespace cli
