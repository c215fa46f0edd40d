// SPDX-License-Identifier: Apache-2.0
// --where, --sort and --fields: which rows, in which order, which columns.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "cli/value.h"

namespace cli {

// The column that stands for a row's key rather than for one of its fields.
constexpr int kKeyColumn = -1;

// The indices of the named fields ("key" gives kKeyColumn). Throws Failure (usage) on an unknown
// name; `option` is named in the message.
std::vector<int> columnsOf(const std::vector<Field>& fields, const std::vector<std::string>& names,
                           const std::string& option);

// The name of the field that an expression is about.
std::string fieldOf(const std::string& expression);

// Whether a row is wanted, and whether one row comes before another.
using RowTest = std::function<bool(const Row& row)>;
using RowOrder = std::function<bool(const Row& a, const Row& b)>;

// The test that holds when every expression does: F=GLOB, F!=GLOB, F~REGEX (an extended regular
// expression found anywhere), and F>=V, F<=V, F>V, F<V for versions, numbers and times. An absent
// field is equal to the empty glob only and is in no relation to any value. Throws Failure (usage)
// on an expression that cannot be understood.
RowTest parseFilter(const std::vector<Field>& fields, const std::vector<std::string>& expressions);

// The order of "FIELD" or "-FIELD"; no function for an empty text. Throws Failure (usage).
RowOrder parseOrder(const std::vector<Field>& fields, const std::string& text);

// Keeps the rows that the test holds for.
void keepRows(const RowTest& test, std::vector<Row>* rows);

// Puts the rows in order, if there is one; rows that compare equal keep theirs.
void sortRows(const RowOrder& order, std::vector<Row>* rows);

}  // namespace cli
