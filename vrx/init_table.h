// SPDX-License-Identifier: Apache-2.0
// The host's init table: id:runlevels:action:command. docs/text-formats.md tells its syntax.
//
//     vrx::InitTable table("/etc/inittab");
//     vrx::Status status = table.set({"vrx1", "2345", "respawn", "/opt/vrx/bin/fmcd"});
//     auto entry = table.find("vrx1");
//     if (entry) std::puts(entry->command.c_str());
//
// A change takes effect when init reads the table: `telinit q`.
#pragma once

#include <cstring>
#include <optional>
#include <string>
#include <utility>

#include "vrx/detail/text_records.h"

namespace vrx {

// One entry. The format does not tell an empty field from an absent one.
struct InitEntry {
  using Image = LineImage;

  std::string id;
  std::string runlevels = {};
  std::string action = {};
  std::string command = {};
  std::optional<std::string> comment = {};  // with the blank behind the "#", as it stands

  // Calls visit("id", field) for each field in turn.
  template <class Self, class Visit>
  static void visitFields(Self& self, Visit&& visit) {
    visit("id", self.id);
    visit("runlevels", self.runlevels);
    visit("action", self.action);
    visit("command", self.command);
    visit("comment", self.comment);
  }
};

inline bool operator==(const InitEntry& a, const InitEntry& b) {
  return a.id == b.id && a.runlevels == b.runlevels && a.action == b.action &&
         a.command == b.command && a.comment == b.comment;
}

namespace detail {

struct InitTableFormat {
  using Record = InitEntry;
  using Key = std::string;
  using Registry = ExactInitTab;
  using Native = GenRegInitTabRecord;
  static constexpr Joining kJoining = Joining::continuations;
  static constexpr unsigned long long kKeyMask = kInitTabId;
  static constexpr bool kMakesFile = false;

  static Key keyOf(const Record& record) { return record.id; }

  static LineKind kindOf(const Native& native) {
    if ((native.flags & kInitTabHasEntry) != 0) return LineKind::entry;
    return (native.flags & kInitTabHasComment) != 0 ? LineKind::comment : LineKind::blank;
  }

  static bool understood(const Native&) { return true; }

  // One blank stands between an empty command and a comment. The comment keeps its own: the
  // formatter gives it back as it is.
  static void read(const Native& native, Record* record) {
    record->id = textOrEmpty(native.id);
    record->runlevels = textOrEmpty(native.runlevel);
    record->action = textOrEmpty(native.action);
    record->command = sameText(native.command, " ") ? "" : textOrEmpty(native.command);
    record->comment.reset();
    if (native.comment != nullptr) record->comment = native.comment;
  }

  static GenRegStatus layOut(const Record& record, char* line) {
    LineTexts texts;
    Native native{};
    native.flags = kInitTabHasEntry;
    native.id = texts.keep(record.id);
    native.runlevel = texts.keep(record.runlevels);
    native.action = texts.keep(record.action);
    native.command = texts.keep(record.command);
    native.comment = texts.keep(record.comment);
    if (native.comment != nullptr) native.flags |= kInitTabHasComment;
    return genreg::statusOf(GenRegInitTab::FormatLine(&native, line));
  }

  static Status refuse(const Record& record) {
    Refusals refusals;
    constexpr const char* kEndsField = "\":\" ends a field";
    refusals << refuseBytes("id", record.id, ":", kEndsField)
             << refuseBytes("runlevels", record.runlevels, ":", kEndsField)
             << refuseBytes("action", record.action, ":", kEndsField)
             << refuseBytes("id", record.id, "#", kBeginsComment)
             << refuseBytes("runlevels", record.runlevels, "#", kBeginsComment)
             << refuseBytes("action", record.action, "#", kBeginsComment)
             << refuseBytes("command", record.command, "#", kBeginsComment);
    return refusals.status();
  }

  // Every byte of an entry is in a field, but for blanks behind the command.
  static std::string lost(const Stored<Record>&, const Record&) { return {}; }
};

}  // namespace detail

// The verbs are those of Records (vrx/records.h), the key is the id. A missing file is never made
// (0x90000513). An entry cannot follow a last line that ends in a backslash (0x900001FB).
class InitTable : public detail::TextRecords<detail::InitTableFormat> {
 public:
  static constexpr const char* kHostTable = "/etc/inittab";

  // The file at `path`. Nothing is opened yet; status() and every verb tell of an unusable path.
  explicit InitTable(std::string path = kHostTable) : TextRecords(std::move(path)) {}
};

}  // namespace vrx
