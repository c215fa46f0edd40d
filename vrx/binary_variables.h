// SPDX-License-Identifier: Apache-2.0
// Binary variable files: short names with a number and a short comment, 36 bytes each.
//
//     vrx::BinaryVariables variables("/var/vrx/vars.bin");
//     std::int32_t level = variables.get("LEVEL").value_or(3);
//     vrx::Status status = variables.set("LEVEL", -5);  // its comment stays
//     status = variables.add({"RETRIES", 4, "since 3.1"});
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include "vrx/detail/binary_store.h"
#include "vrx/detail/exact_formats.h"
#include "vrx/records.h"

namespace vrx {

// Texts hold at most 15 bytes. A record without a comment holds an empty one.
struct BinaryVariable {
  using Image = GenRegBinVarValRecord;

  std::string name;
  std::int32_t value = 0;
  std::string comment = {};

  // Calls visit("name", field) for each field in turn.
  template <class Self, class Visit>
  static void visitFields(Self& self, Visit&& visit) {
    visit("name", self.name);
    visit("value", self.value);
    visit("comment", self.comment);
  }
};

inline bool operator==(const BinaryVariable& a, const BinaryVariable& b) {
  return a.name == b.name && a.value == b.value && a.comment == b.comment;
}

namespace detail {

struct BinaryVariableFormat {
  using Record = BinaryVariable;
  using Key = std::string;
  using Registry = ExactBinVarVal;
  using Native = GenRegBinVarValRecord;
  static constexpr unsigned long long kKeyMask = kBinVarValVariable;
  static constexpr unsigned long long kAllMask = kWholeRecord;
  static constexpr std::size_t kMaxText = sizeof Native::variable - 1;

  static Key keyOf(const Record& record) { return record.name; }
  static bool isOne(const Native&) { return true; }
  static const Native& native(const Native& image) { return image; }

  static void read(Registry&, long long, const Native& native, Stored<Record>* stored) {
    stored->name = textIn(native.variable);
    stored->value = native.value;
    stored->comment = textIn(native.comment);
    stored->image = native;
  }

  // Fields that stay keep their bytes, those behind a terminator too.
  static void put(const Record* old, const Record& next, Native* native) {
    if (old == nullptr || old->name != next.name) putText(next.name, native->variable);
    if (old == nullptr || old->comment != next.comment) putText(next.comment, native->comment);
    native->value = next.value;
  }

  static Status refuse(const Record& next) {
    Refusals refusals;
    refusals << refuseLonger("name", next.name, kMaxText)
             << refuseLonger("comment", next.comment, kMaxText);
    return refusals.status();
  }

  static GenRegStatus rule(Native*) { return genreg::status::ok; }

 private:
  template <std::size_t N>
  static std::string textIn(const char (&array)[N]) {
    return {array, strnlen(array, N)};
  }
  template <std::size_t N>
  static void putText(const std::string& text, char (&array)[N]) {
    std::memset(array, 0, N);
    std::memcpy(array, text.data(), std::min(text.size(), N - 1));  // refuse has seen to it
  }
};

}  // namespace detail

// The verbs are those of Records (vrx/records.h), the key is the name. Several records may have one
// name: get and find take the first, removeAll takes all, the other verbs refuse them (0x900001F8).
class BinaryVariables : public Records<detail::BinaryStore<detail::BinaryVariableFormat>> {
 public:
  // The file at `path`. Nothing is opened yet; status() and every verb tell of an unusable path.
  explicit BinaryVariables(const std::string& path)
      : Records(detail::BinaryStore<detail::BinaryVariableFormat>(
            std::make_shared<detail::Opened<detail::ExactBinVarVal>>(path, path))) {}

  // The value of the first record of this name; notFound(), noFile().
  Result<std::int32_t> get(const std::string& name) const {
    const Result<StoredRecord> variable = find(name);
    if (!variable) return variable.status();
    return variable->value;
  }

  using Records::set;
  // Gives `name` this value: changes its record, of which the comment stays, or adds one.
  [[nodiscard]] Status set(const std::string& name, std::int32_t value) {
    return setWith(name, {name, value, ""}, [&](BinaryVariable& stored) { stored.value = value; });
  }
};

}  // namespace vrx
