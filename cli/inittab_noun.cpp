// SPDX-License-Identifier: Apache-2.0
// The noun `inittab`: the entries of the host's init table.
#include <cstring>

#include "cli/file_nouns.h"
#include "cli/text_store.h"

namespace cli {

namespace {

enum InittabField : std::size_t { kId, kRunlevels, kAction, kCommand, kComment };

constexpr const char* kDefaultFile = "/etc/inittab";
constexpr std::size_t kMaxText = kGenRegLineSize - 2;  // a line's text, without its line end

std::vector<Field> inittabFields() {
  return {
      {"id", "ID", Kind::text, kMaxText, KeyPart::name, Presence::required},
      {"runlevels", "RUNLEVELS", Kind::text, kMaxText, KeyPart::none, Presence::optional},
      {"action", "ACTION", Kind::text, kMaxText, KeyPart::none, Presence::required},
      {"command", "COMMAND", Kind::text, kMaxText, KeyPart::none, Presence::optional},
      {"comment", "COMMENT", Kind::text, kMaxText, KeyPart::none, Presence::optional},
  };
}

// An empty field of a line is an absent one.
Value filled(const char* text) {
  if (text == nullptr || *text == '\0') return {};
  return std::string(text);
}

// What stands between an empty command and a comment.
bool isBlank(const char* command) {
  return command != nullptr && std::strcmp(command, " ") == 0;
}

struct InittabFormat {
  using Registry = ExactInitTab;
  using RecordType = GenRegInitTabRecord;
  static constexpr Joining kJoining = Joining::continuations;
  static constexpr unsigned long long kKeyMask = kInitTabId;

  static LineKind kindOf(const RecordType& record) {
    if ((record.flags & kInitTabHasEntry) != 0) return LineKind::entry;
    return (record.flags & kInitTabHasComment) != 0 ? LineKind::comment : LineKind::blank;
  }

  // The comment keeps its blank: the formatter gives it back as it is.
  static std::vector<Value> valuesOf(const RecordType& record, const std::string&) {
    const Value comment = record.comment == nullptr ? Value{} : Value(std::string(record.comment));
    return {std::string(record.id), filled(record.runlevel), filled(record.action),
            isBlank(record.command) ? Value{} : filled(record.command), comment};
  }

  static GenRegStatus layOut(const Row& row, char* line) {
    LineTexts texts;
    RecordType record{};
    record.flags = kInitTabHasEntry;
    record.id = texts.keep(row.values[kId]);
    record.runlevel = texts.keep(row.values[kRunlevels]);
    record.action = texts.keep(row.values[kAction]);
    record.command = texts.keep(row.values[kCommand]);
    record.comment = texts.keepOrNull(row.values[kComment]);
    if (record.comment != nullptr) record.flags |= kInitTabHasComment;
    return genreg::statusOf(GenRegInitTab::FormatLine(&record, line));
  }

  static void refuse(const Noun& noun, const Row& row) {
    refuseLineEnds(noun, row);
    for (const InittabField field : {kId, kRunlevels, kAction}) {
      refuseBytes(noun.fields[field], row.values[field], ":", "\":\" ends a field");
    }
    for (const InittabField field : {kId, kRunlevels, kAction, kCommand}) {
      refuseBytes(noun.fields[field], row.values[field], "#", kBeginsComment);
    }
  }

  static bool isUnderstood(const Row&) { return true; }

  // Every byte of an entry is in a field, but for blanks behind the command.
  static std::string lostText(const Record&, const Row&) { return {}; }
};

std::unique_ptr<Store> openInittab(const Noun& noun, const Arguments& arguments,
                                   const std::string& path, SideEffects) {
  return std::make_unique<TextStore<InittabFormat>>(
      noun, arguments, chosenFile(noun, arguments, kDefaultFile, path));
}

}  // namespace

Noun inittabNoun() {
  Noun noun = {"inittab",     "the host's init table, /etc/inittab or -f",
               "ID",          "id,runlevels,action,command,comment",
               KeyPart::name, inittabFields(),
               &openInittab,  kAcceptsFile | kAcceptsAllLines};
  noun.missingFile = MissingFile::refused;
  noun.difference = Difference::file;
  noun.afterwards = "run `telinit q` to make init read it";
  noun.slashInName = true;
  return noun;
}

}  // namespace cli
