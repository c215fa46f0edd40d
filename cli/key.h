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

  // Whether the key may name the row's record.
  bool mayName(const Row& row) const { return isWhole(row) || holdsParts(row); }

  // The records that the key names, of all those that it may name and perhaps others. A record
  // whose whole key is the text wins over records that merely hold the parts.
  std::vector<const Record*> select(const std::vector<Record>& records) const;

  // A row with just the fields that the key gives, for a record to be added. Throws Failure:
  // usage when it cannot be told which parts are given, refused when one is no value for its field.
  Row newRow() const;

  // Whether a record could be added under this key: every part is given, or parts are named, so
  // that others may follow as fields.
  bool canBegin() const { return named_ || parts_.size() == fields_.size(); }

 private:
  using Places = std::vector<std::size_t>;  // fields, in the order of the key's parts

  std::vector<std::string> splitText() const;
  bool isWhole(const Row& row) const { return !named_ && row.key == text_; }
  bool holdsParts(const Row& row) const;
  bool matchesFrom(const Row& row, const Places& places, std::size_t part, std::size_t position,
                   bool sawShort) const;
  const Places& placesOfParts() const;

  const Noun& noun_;
  Places fields_;                   // the key's fields
  Places alternatives_;             // the same with the alternative in the name's place, or empty
  std::vector<std::string> parts_;  // as typed; with named parts one a key field, "" for not given
  bool named_ = false;
  std::string text_;
};

// The row's key with the alternative in the name's place; empty where there is none.
std::string alternativeKey(const Noun& noun, const Row& row);

// Whether the row has every part of its key.
bool hasWholeKey(const Noun& noun, const Row& row);

// Throws Failure (usage) when it has not.
void requireWholeKey(const Noun& noun, const Row& row);

}  // namespace cli
