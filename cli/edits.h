// SPDX-License-Identifier: Apache-2.0
// FIELD=VALUE words and --unset, and the rows that they make.
#pragma once

#include <vector>

#include "cli/key.h"
#include "cli/verbs.h"

namespace cli {

struct Edit {
  std::size_t field;
  Value value;  // absent makes the field absent
};

// The edits that the command's words and options ask for. Throws Failure: usage, or refused for a
// value that is none of its field.
std::vector<Edit> parseEdits(const Command& command);

// The row of a new record: what the key gives, and the edits. Throws Failure (usage) when an edit
// contradicts the key. The key may still be incomplete.
Row newRow(const Noun& noun, const KeyQuery& query, const std::vector<Edit>& edits);

// The row that takes the place of `old`. Throws Failure (usage) when an edit would change the key.
Row editedRow(const Noun& noun, const Arguments& arguments, const std::vector<Edit>& edits,
              const Row& old);

// Throws Failure (refused) when the row lacks a field that no record can do without, unless `old`,
// which may be null, lacks it too.
void requireFields(const Noun& noun, const Row* old, const Row& row);

}  // namespace cli
