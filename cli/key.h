// SPDX-License-Identifier: Apache-2.0
// Keys as they are typed: whole, shorter while they are unique, or in named parts.
#pragma once

#include <string>
#include <vector>

#include "cli/arguments.h"
#include "cli/noun.h"

namespace cli {

class KeyQuery {
 public:
  // The key that the options --service, --version-of and --name give, or else the first word, which
  // is then taken from `words`. Throws Failure (usage) without a key, or with an option that names
  // no part of this noun's key.
  KeyQuery(const Noun& noun, const Arguments& arguments, std::vector<std::string>* words);

  // The key as it was typed.
  const std::string& text() const { return text_; }

  // The records that the key names. A record whose whole key is the text wins over records that
  // merely hold the parts.
  std::vector<const Record*> select(const std::vector<Record>& records) const;

  // A row with just the key fields, for a record to be added. Throws Failure: usage when the key
  // does not give every part, refused when a part is no value for its field.
  Row newRow() const;

  // Whether every part of the key is given.
  bool isWhole() const;

 private:
  bool holdsParts(const Row& row) const;
  bool matchesFrom(const Row& row, std::size_t part, std::size_t position, bool sawShort) const;

  const Noun& noun_;
  std::vector<std::size_t> fields_;  // the key's fields
  std::vector<std::string> parts_;   // as typed; with named parts one a key field, "" for not given
  bool named_ = false;
  std::string text_;
};

}  // namespace cli
