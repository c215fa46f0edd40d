// SPDX-License-Identifier: Apache-2.0
// The generic row model: what every noun's records are once they have left their store.
//
// A row is a list of typed values, one a field; a field describes its name, its type and its
// limits. Verbs, filters, sorting and every form of output work on rows alone and know no record
// layout. Not here: where records come from (noun.h), how rows are printed (output.h).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "vrx/version.h"

namespace cli {

// The types of a field. A byte is a number from 0 to 255 that may be typed as one character; a port
// one from 1 to 65535; an integer has a sign and 32 bits; a list is typed with commas; a time is a
// text that sorts, as 2024-01-01T12:00:00 does.
enum class Kind { text, number, boolean, version, byte, port, integer, list, time };

// Prints dotted and compares by its parts.
using vrx::Version;

// Several texts in order.
struct List {
  std::vector<std::string> items;
};
inline bool operator==(const List& a, const List& b) {
  return a.items == b.items;
}

// Named values in order: a record within a record.
struct NamedValue;
struct Details {
  std::vector<NamedValue> items;
};
bool operator==(const Details& a, const Details& b);

// The value of one field; std::monostate is an absent field, which is neither empty nor 0 nor "no".
using Value = std::variant<std::monostate, std::string, std::uint64_t, bool, Version, std::int64_t,
                           List, Details>;

struct NamedValue {
  std::string name;
  Value value;
};

inline bool isAbsent(const Value& value) {
  return std::holds_alternative<std::monostate>(value);
}

// An empty text as an absent value.
inline Value textOrAbsent(const std::string& text) {
  return text.empty() ? Value{} : Value(text);
}

// Which part of a key a field is, and so which option names it (--service, --version-of, --name).
// An alternative may be typed in place of the name, and is no part of the key as it is printed.
enum class KeyPart { none, service, version, name, protocol, alternative };

// Whether a record can do without a field: yes; no; no, but an empty text will do; or the field
// only tells something about the record and cannot be set, and is shown where it is present.
enum class Presence { optional, required, maybeEmpty, derived };

// One field of a noun, or one column of an answer.
struct Field {
  const char* name;     // as typed and as in JSON
  const char* heading;  // as in tables
  Kind kind;
  std::size_t maxBytes = 0;  // of a text, without terminator
  KeyPart keyPart = KeyPart::none;
  Presence presence = Presence::optional;
};

// A field that this revision does not know, kept as it lies in its record.
struct UnknownField {
  unsigned bit;
  std::string bytes;
};

struct Row {
  std::string key;            // as printed and accepted; empty when rows have no key
  std::vector<Value> values;  // one a field, in the order of the fields
  std::vector<UnknownField> unknown;
};

// The value as plain text: dotted, decimal, yes or no, with commas (named values as NAME=VALUE), or
// the bytes; empty when absent.
std::string valueText(const Value& value);

// The value that `text` names; an empty text is an absent field. Throws Failure (refused) with the
// field and the limit named when it is none of this field's type or too long.
Value parseValue(const Field& field, const std::string& text);

// Reads a version as dotted text, strictly: one to four numbers up to 65535. False when it is none.
bool parseVersion(const std::string& text, Version* version);

// Reads a whole decimal or 0x number up to `limit`; false when it is none.
bool parseNumber(std::string_view text, std::uint64_t limit, std::uint64_t* number);

// Reads a whole number of 32 bits that may begin with "-"; false when it is none.
bool parseInteger(std::string_view text, std::int64_t* number);

// Throws Failure (refused): "field: why".
[[noreturn]] void refuseValue(const Field& field, const std::string& why);

// Below, equal or above 0 as `a` sorts before, with or after `b`: numbers and versions by size,
// "no" before "yes", texts by their bytes, absent values last.
int compareValues(const Value& a, const Value& b);

// The field of this name, or -1.
int findField(const std::vector<Field>& fields, std::string_view name);

}  // namespace cli
