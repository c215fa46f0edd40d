// SPDX-License-Identifier: Apache-2.0
// The noun `profile`: the variables of a file of name = value lines.
#include "cli/file_nouns.h"
#include "cli/text_store.h"

namespace cli {

namespace {

enum ProfileField : std::size_t { kName, kValue, kComment };

constexpr std::size_t kMaxText = kGenRegLineSize - 2;  // a line's text, without its line end

std::vector<Field> profileFields() {
  return {
      {"name", "NAME", Kind::text, kMaxText, KeyPart::name, Presence::required},
      {"value", "VALUE", Kind::text, kMaxText, KeyPart::none, Presence::maybeEmpty},
      {"comment", "COMMENT", Kind::text, kMaxText, KeyPart::none, Presence::optional},
  };
}

// What stands between the "=" and the comment, as it stands.
std::string valueTextOf(const std::string& line) {
  constexpr const char* kBlanks = " \t\r";
  std::string text = line.substr(0, line.find_first_of("#\n"));
  text.erase(0, text.find('=') + 1);
  text.erase(0, text.find_first_not_of(kBlanks));
  text.erase(text.find_last_not_of(kBlanks) + 1);
  return text;
}

struct ProfileFormat {
  using Registry = ExactVarVal;
  using RecordType = GenRegVarValRecord;
  static constexpr Joining kJoining = Joining::none;
  static constexpr unsigned long long kKeyMask = kVarValVariable;

  static LineKind kindOf(const RecordType& record) {
    if ((record.contents & kVarValHasValue) != 0) return LineKind::entry;
    return (record.contents & kVarValHasComment) != 0 ? LineKind::comment : LineKind::blank;
  }

  static std::vector<Value> valuesOf(const RecordType& record, const std::string&) {
    return {std::string(record.variable), std::string(record.value), shownComment(record.comment)};
  }

  static GenRegStatus layOut(const Row& row, char* line) {
    LineTexts texts;
    RecordType record{};
    record.contents = kVarValHasValue;
    record.variable = texts.keep(row.values[kName]);
    record.value = texts.keep(row.values[kValue]);
    record.comment = texts.keepOrNull(row.values[kComment]);
    if (record.comment != nullptr) record.contents |= kVarValHasComment;
    return genreg::statusOf(GenRegVarVal::FormatLine(&record, line));
  }

  static void refuse(const Noun& noun, const Row& row) {
    refuseLineEnds(noun, row);
    refuseBytes(noun.fields[kName], row.values[kName], " \t", "a blank ends a name");
    refuseBytes(noun.fields[kName], row.values[kName], "=", "\"=\" ends a name");
    refuseBytes(noun.fields[kName], row.values[kName], "#", kBeginsComment);
    refuseBytes(noun.fields[kValue], row.values[kValue], "#", kBeginsComment);
    refuseBytes(noun.fields[kValue], row.values[kValue], "\t", "a tab becomes a blank");
    refuseUnprintable(noun.fields[kComment], row.values[kComment]);
  }

  static bool isUnderstood(const Row&) { return true; }

  // Text behind a quoted value and white space that the parser collapses belong to the old value,
  // and go with it.
  static std::string lostText(const Record& old, const Row& row) {
    if (!(old.row.values[kValue] == row.values[kValue])) return {};
    const std::string text = valueTextOf(old.text);
    return text == valueText(old.row.values[kValue]) ? "" : text;
  }
};

std::unique_ptr<Store> openProfile(const Noun& noun, const Arguments& arguments,
                                   const std::string& path, SideEffects) {
  return std::make_unique<TextStore<ProfileFormat>>(noun, arguments,
                                                    chosenFile(noun, arguments, nullptr, path));
}

}  // namespace

Noun profileNoun() {
  Noun noun = {"profile",     "the variables of a name = value file, named by -f",
               "NAME",        "name,value,comment",
               KeyPart::name, profileFields(),
               &openProfile,  kAcceptsFile | kAcceptsAll | kAcceptsAllLines};
  noun.missingFile = MissingFile::made;
  noun.difference = Difference::file;
  noun.slashInName = true;
  return noun;
}

}  // namespace cli
