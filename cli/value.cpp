// SPDX-License-Identifier: Apache-2.0
// Typed values: reading what was typed, printing what is stored, putting values in order.
#include "cli/value.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <limits>

#include "cli/failure.h"
#include "cli/text.h"
#include "platform/osse/strings.h"

namespace cli {

namespace {

constexpr std::uint64_t kMaxPort = 65535;

struct TextOf {
  std::string operator()(std::monostate) const { return {}; }
  std::string operator()(const std::string& text) const { return text; }
  std::string operator()(std::uint64_t number) const { return std::to_string(number); }
  std::string operator()(std::int64_t number) const { return std::to_string(number); }
  std::string operator()(const List& list) const { return join(list.items, ","); }
  std::string operator()(const Details& details) const {
    std::vector<std::string> texts;
    for (const NamedValue& item : details.items)
      texts.push_back(item.name + "=" + valueText(item.value));
    return join(texts, ",");
  }
  std::string operator()(bool yes) const { return yes ? "yes" : "no"; }
  std::string operator()(Version version) const { return version.text(); }
};

Value parseText(const Field& field, const std::string& text) {
  if (text.size() > field.maxBytes) {
    refuseValue(field,
                fmt::format("{} bytes are too long, the limit is {}", text.size(), field.maxBytes));
  }
  return text;
}

Value parseBoolean(const Field& field, const std::string& text) {
  bool yes = false;
  if (ossStrToBoolean(text.c_str(), &yes) != genreg::status::ok) {
    refuseValue(field, fmt::format("\"{}\" is neither yes nor no", text));
  }
  return yes;
}

Value parseUnsigned(const Field& field, const std::string& text, std::uint64_t limit) {
  std::uint64_t number = 0;
  if (!parseNumber(text, limit, &number)) {
    refuseValue(field, fmt::format("\"{}\" is no number from 0 to {}", text, limit));
  }
  return number;
}

// A digit is a number, so that what is printed reads back as the same byte.
Value parseByte(const Field& field, const std::string& text) {
  const auto first = static_cast<unsigned char>(text.front());
  if (text.size() == 1 && std::isdigit(first) == 0) return std::uint64_t{first};
  std::uint64_t number = 0;
  if (!parseNumber(text, std::numeric_limits<unsigned char>::max(), &number)) {
    refuseValue(field,
                fmt::format("\"{}\" is neither one character nor a number from 0 to 255", text));
  }
  return number;
}

Value parsePort(const Field& field, const std::string& text) {
  std::uint64_t number = 0;
  if (!parseNumber(text, kMaxPort, &number) || number == 0) {
    refuseValue(field, fmt::format("\"{}\" is no port from 1 to {}", text, kMaxPort));
  }
  return number;
}

Value parseSigned(const Field& field, const std::string& text) {
  std::int64_t number = 0;
  if (!parseInteger(text, &number)) {
    refuseValue(field, fmt::format("\"{}\" is no number from -2147483648 to 2147483647", text));
  }
  return number;
}

Value parseList(const Field& field, const std::string& text) {
  List list{split(text, ',')};
  for (const std::string& item : list.items) {
    if (item.empty()) refuseValue(field, fmt::format("an empty one in \"{}\"", text));
  }
  return list;
}

Value parseVersionField(const Field& field, const std::string& text) {
  Version version;
  if (!parseVersion(text, &version)) {
    refuseValue(field,
                fmt::format("\"{}\" is no version: four numbers up to 65535, as in 3.1.0.7", text));
  }
  return version;
}

template <typename T>
int compareOrdered(const T& a, const T& b) {
  if (a < b) return -1;
  return b < a ? 1 : 0;
}

}  // namespace

bool operator==(const Details& a, const Details& b) {
  const auto same = [](const NamedValue& x, const NamedValue& y) {
    return x.name == y.name && x.value == y.value;
  };
  return std::equal(a.items.begin(), a.items.end(), b.items.begin(), b.items.end(), same);
}

std::string valueText(const Value& value) {
  return std::visit(TextOf{}, value);
}

bool parseNumber(std::string_view text, std::uint64_t limit, std::uint64_t* number) {
  const bool hexadecimal = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
  const std::uint64_t base = hexadecimal ? 16 : 10;
  if (hexadecimal) text.remove_prefix(2);
  if (text.empty()) return false;
  std::uint64_t sum = 0;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (std::isxdigit(byte) == 0 || (!hexadecimal && std::isdigit(byte) == 0)) return false;
    const int digit = std::isdigit(byte) != 0 ? c - '0' : std::tolower(byte) - 'a' + 10;
    const auto next = static_cast<std::uint64_t>(digit);
    if (sum > limit / base || next > limit - sum * base) return false;
    sum = sum * base + next;
  }
  *number = sum;
  return true;
}

bool parseInteger(std::string_view text, std::int64_t* number) {
  const bool negative = !text.empty() && text.front() == '-';
  if (negative) text.remove_prefix(1);
  const auto largest = static_cast<std::uint64_t>(std::numeric_limits<std::int32_t>::max());
  std::uint64_t size = 0;
  if (!parseNumber(text, largest + (negative ? 1 : 0), &size)) return false;
  *number = negative ? -static_cast<std::int64_t>(size) : static_cast<std::int64_t>(size);
  return true;
}

void refuseValue(const Field& field, const std::string& why) {
  Failure failure(Exit::refused, fmt::format("{}: {}", field.name, why));
  failure.field = field.name;
  throw failure;
}

bool parseVersion(const std::string& text, Version* version) {
  const vrx::Result<Version> parsed = Version::parse(text);
  if (parsed) *version = *parsed;
  return parsed.has_value();
}

Value parseValue(const Field& field, const std::string& text) {
  if (text.empty()) return {};
  switch (field.kind) {
    case Kind::number:
      return parseUnsigned(field, text, std::numeric_limits<std::uint32_t>::max());
    case Kind::boolean:
      return parseBoolean(field, text);
    case Kind::version:
      return parseVersionField(field, text);
    case Kind::byte:
      return parseByte(field, text);
    case Kind::port:
      return parsePort(field, text);
    case Kind::integer:
      return parseSigned(field, text);
    case Kind::list:
      return parseList(field, text);
    case Kind::text:
    case Kind::time:
      break;
  }
  return parseText(field, text);
}

int compareValues(const Value& a, const Value& b) {
  if (isAbsent(a) || isAbsent(b)) return compareOrdered(isAbsent(a), isAbsent(b));
  if (a.index() != b.index()) return compareOrdered(valueText(a), valueText(b));
  if (const auto* version = std::get_if<Version>(&a)) {
    return compareOrdered(version->code, std::get<Version>(b).code);
  }
  if (const auto* number = std::get_if<std::uint64_t>(&a)) {
    return compareOrdered(*number, std::get<std::uint64_t>(b));
  }
  if (const auto* number = std::get_if<std::int64_t>(&a)) {
    return compareOrdered(*number, std::get<std::int64_t>(b));
  }
  if (const auto* yes = std::get_if<bool>(&a)) return compareOrdered(*yes, std::get<bool>(b));
  if (const auto* list = std::get_if<List>(&a)) {
    return compareOrdered(list->items, std::get<List>(b).items);
  }
  if (const auto* text = std::get_if<std::string>(&a)) {
    return compareOrdered(*text, std::get<std::string>(b));
  }
  return compareOrdered(valueText(a), valueText(b));
}

int findField(const std::vector<Field>& fields, std::string_view name) {
  for (std::size_t i = 0; i < fields.size(); ++i) {
    if (name == fields[i].name) return static_cast<int>(i);
  }
  return -1;
}

}  // namespace cli
