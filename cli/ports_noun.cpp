// SPDX-License-Identifier: Apache-2.0
// The noun `ports`: the entries of the host's services file.
#include <arpa/inet.h>
#include <fmt/format.h>

#include <algorithm>
#include <sstream>

#include "cli/file_nouns.h"
#include "cli/text.h"
#include "cli/text_store.h"

namespace cli {

namespace {

enum PortsField : std::size_t {
  kName,
  kPort,
  kProtocol,
  kAliases,
  kComment,
  kUnderstood,
  kText,
  kFieldCount
};

constexpr const char* kDefaultFile = "/etc/services";
constexpr std::size_t kMaxText = kGenRegLineSize - 2;  // a line's text, without its line end
constexpr const char* kProtocols[] = {"udp", "tcp", "ddp", "divert"};

std::vector<Field> portsFields() {
  return {
      {"name", "NAME", Kind::text, kMaxText, KeyPart::name, Presence::required},
      {"port", "PORT", Kind::port, 0, KeyPart::alternative, Presence::required},
      {"protocol", "PROTOCOL", Kind::text, kMaxText, KeyPart::protocol, Presence::required},
      {"aliases", "ALIASES", Kind::list, 0, KeyPart::none, Presence::optional},
      {"comment", "COMMENT", Kind::text, kMaxText, KeyPart::none, Presence::optional},
      {"understood", "UNDERSTOOD", Kind::boolean, 0, KeyPart::none, Presence::derived},
      {"text", "TEXT", Kind::text, 0, KeyPart::none, Presence::derived},
  };
}

Value aliasesOf(const GenRegServicesRecord& record) {
  if (record.aliases == nullptr) return {};
  List list;
  for (char* const* alias = record.aliases; *alias != nullptr; ++alias)
    list.items.emplace_back(*alias);
  return list;
}

Value textOrAbsent(const char* text) {
  if (text == nullptr) return {};
  return std::string(text);
}

void refuseProtocol(const Field& field, const std::string& protocol) {
  const auto isIt = [&](const char* known) { return protocol == known; };
  if (std::any_of(std::begin(kProtocols), std::end(kProtocols), isIt)) return;
  refuseValue(field, fmt::format("\"{}\" is none of {}", protocol, fmt::join(kProtocols, ", ")));
}

// The fields of the line, before its comment.
std::vector<std::string> wordsOf(const std::string& line) {
  std::istringstream stream(line.substr(0, line.find_first_of("#\n")));
  std::vector<std::string> words;
  for (std::string word; stream >> word;)
    words.push_back(word);
  return words;
}

struct PortsFormat {
  using Registry = ExactServices;
  using RecordType = GenRegServicesRecord;
  static constexpr Joining kJoining = Joining::none;
  static constexpr unsigned long long kKeyMask = kServicesName | kServicesProtocol;

  static LineKind kindOf(const RecordType& record) {
    if ((record.flags & kServicesHasEntry) != 0) return LineKind::entry;
    return record.comment != nullptr ? LineKind::comment : LineKind::blank;
  }

  // A port of 0 could not be written again, so that such a line is left alone as well.
  static std::vector<Value> valuesOf(const RecordType& record, const std::string& line) {
    std::vector<Value> values(kFieldCount);
    values[kName] = std::string(record.name);
    values[kPort] = std::uint64_t{ntohs(static_cast<std::uint16_t>(record.port))};
    values[kProtocol] = textOrAbsent(record.protocol);
    values[kAliases] = aliasesOf(record);
    values[kComment] = shownComment(record.comment);
    if (record.protocol == nullptr) values[kPort] = Value{};
    if ((record.flags & kServicesNotUnderstood) == 0 && record.port != 0) return values;
    values[kUnderstood] = false;
    values[kText] = withoutLineEnd(line);
    return values;
  }

  static GenRegStatus layOut(const Row& row, char* line) {
    LineTexts texts;
    RecordType record{};
    record.flags = kServicesHasEntry;
    record.name = texts.keep(row.values[kName]);
    record.port = htons(static_cast<std::uint16_t>(std::get<std::uint64_t>(row.values[kPort])));
    record.protocol = texts.keep(row.values[kProtocol]);
    record.aliases = texts.keepList(row.values[kAliases]);
    record.comment = texts.keepOrNull(row.values[kComment]);
    if (record.comment != nullptr) record.flags |= kServicesHasComment;
    return genreg::statusOf(GenRegServices::FormatLine(&record, line));
  }

  static void refuse(const Noun& noun, const Row& row) {
    refuseLineEnds(noun, row);
    for (const PortsField field : {kName, kAliases}) {
      refuseBytes(noun.fields[field], row.values[field], " \t", "a blank ends it");
      refuseBytes(noun.fields[field], row.values[field], "#", kBeginsComment);
    }
    refuseUnprintable(noun.fields[kComment], row.values[kComment]);
    refuseProtocol(noun.fields[kProtocol], valueText(row.values[kProtocol]));
    const auto* aliases = std::get_if<List>(&row.values[kAliases]);
    if (aliases == nullptr || aliases->items.size() <= kServicesMaxAliases) return;
    refuseValue(noun.fields[kAliases], fmt::format("{} are too many, the limit is {}",
                                                   aliases->items.size(), kServicesMaxAliases));
  }

  static bool isUnderstood(const Row& row) { return isAbsent(row.values[kUnderstood]); }

  // A port written in some other way, and aliases beyond those that a record holds.
  static std::string lostText(const Record& old, const Row& row) {
    const Row& was = old.row;
    std::vector<std::string> kept = {
        valueText(was.values[kName]),
        valueText(was.values[kPort]) + "/" + valueText(was.values[kProtocol])};
    if (const auto* aliases = std::get_if<List>(&was.values[kAliases])) {
      kept.insert(kept.end(), aliases->items.begin(), aliases->items.end());
    }
    std::vector<std::string> words = wordsOf(old.text);
    if (!(was.values[kPort] == row.values[kPort]) && words.size() > 1) words[1] = kept[1];
    if (words == kept) return {};
    const auto mismatch = std::mismatch(words.begin(), words.end(), kept.begin(), kept.end());
    return mismatch.first == words.end() ? join(words, " ") : *mismatch.first;
  }
};

std::unique_ptr<Store> openPorts(const Noun& noun, const Arguments& arguments,
                                 const std::string& path, SideEffects) {
  return std::make_unique<TextStore<PortsFormat>>(noun, arguments,
                                                  chosenFile(noun, arguments, kDefaultFile, path));
}

}  // namespace

Noun portsNoun() {
  Noun noun = {"ports",
               "the host's services file, /etc/services or -f",
               "NAME/PROTOCOL or PORT/PROTOCOL",
               "name,port,protocol,aliases,comment",
               KeyPart::name,
               portsFields(),
               &openPorts,
               kAcceptsFile | kAcceptsAllLines};
  noun.missingFile = MissingFile::refused;
  noun.difference = Difference::file;
  noun.slashInName = true;
  return noun;
}

}  // namespace cli
