// SPDX-License-Identifier: Apache-2.0
// Profiles: files of name = value lines. docs/text-formats.md tells their syntax.
//
//     vrx::Profile profile("/etc/vrx/profile");
//     std::string level = profile.get("DIAG").value_or("3");
//     vrx::Status status = profile.set("DIAG", "4");        // its comment and layout stay
//     status = profile.add({"TRACE", "off", "until May"});
//     status = profile.remove("TRACE");
//
// All other lines, comments among them, stay byte for byte. A value that would not read back the
// same (a line end, "#", two blanks in a row outside of double quotes) is refused with 0x900001FC
// before anything is written.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "vrx/detail/text_records.h"

namespace vrx {

// One name = value line.
struct ProfileEntry {
  using Image = LineImage;

  std::string name;
  std::string value = {};                   // with the double quotes that stand around it
  std::optional<std::string> comment = {};  // without the blank behind the "#"

  // Calls visit("name", field) for each field in turn.
  template <class Self, class Visit>
  static void visitFields(Self& self, Visit&& visit) {
    visit("name", self.name);
    visit("value", self.value);
    visit("comment", self.comment);
  }
};

inline bool operator==(const ProfileEntry& a, const ProfileEntry& b) {
  return a.name == b.name && a.value == b.value && a.comment == b.comment;
}

namespace detail {

struct ProfileFormat {
  using Record = ProfileEntry;
  using Key = std::string;
  using Registry = ExactVarVal;
  using Native = GenRegVarValRecord;
  static constexpr Joining kJoining = Joining::none;
  static constexpr unsigned long long kKeyMask = kVarValVariable;
  static constexpr bool kMakesFile = true;

  static Key keyOf(const Record& record) { return record.name; }

  static LineKind kindOf(const Native& native) {
    if ((native.contents & kVarValHasValue) != 0) return LineKind::entry;
    return (native.contents & kVarValHasComment) != 0 ? LineKind::comment : LineKind::blank;
  }

  static bool understood(const Native&) { return true; }

  static void read(const Native& native, Record* record) {
    record->name = textOrEmpty(native.variable);
    record->value = textOrEmpty(native.value);
    record->comment = shownComment(native.comment);
  }

  static GenRegStatus layOut(const Record& record, char* line) {
    LineTexts texts;
    Native native{};
    native.contents = kVarValHasValue;
    native.variable = texts.keep(record.name);
    native.value = texts.keep(record.value);
    native.comment = texts.keep(record.comment);
    if (native.comment != nullptr) native.contents |= kVarValHasComment;
    return genreg::statusOf(GenRegVarVal::FormatLine(&native, line));
  }

  static Status refuse(const Record& record) {
    Refusals refusals;
    refusals << refuseBytes("name", record.name, " \t", "a blank ends a name")
             << refuseBytes("name", record.name, "=", "\"=\" ends a name")
             << refuseBytes("name", record.name, "#", kBeginsComment)
             << refuseBytes("value", record.value, "#", kBeginsComment)
             << refuseBytes("value", record.value, "\t", "a tab becomes a blank")
             << refuseUnprintable("comment", record.comment);
    return refusals.status();
  }

  // Text behind a quoted value and white space that the parser collapses belong to the old value,
  // and go with it.
  static std::string lost(const Stored<Record>& old, const Record& next) {
    if (old.value != next.value) return {};
    const std::string text = valueText(old.image.text);
    return text == old.value ? "" : text;
  }

 private:
  // What stands between the "=" and the comment, as it stands.
  static std::string valueText(const std::string& line) {
    constexpr const char* kBlanks = " \t\r";
    std::string text = line.substr(0, line.find_first_of("#\n"));
    text.erase(0, text.find('=') + 1);
    text.erase(0, text.find_first_not_of(kBlanks));
    text.erase(text.find_last_not_of(kBlanks) + 1);
    return text;
  }
};

}  // namespace detail

// The verbs are those of Records (vrx/records.h), the key is the name. Several lines may give one
// name: get and find take the first, removeAll takes all, the other verbs refuse them (0x900001F8).
class Profile : public detail::TextRecords<detail::ProfileFormat> {
 public:
  // The file at `path`. Nothing is opened yet; status() and every verb tell of an unusable path.
  explicit Profile(std::string path) : TextRecords(std::move(path)) {}

  // The value of the first line for `name`; notFound(), noFile(). "" is a value.
  Result<std::string> get(const std::string& name) const {
    Result<StoredRecord> entry = find(name);
    if (!entry) return entry.status();
    return std::move(entry->value);
  }

  using TextRecords::set;
  // Gives `name` this value: changes its line, of which the comment and the layout stay, or adds
  // one.
  [[nodiscard]] Status set(const std::string& name, const std::string& value) {
    return setWith(name, {name, value, {}}, [&](ProfileEntry& entry) { entry.value = value; });
  }
};

}  // namespace vrx
