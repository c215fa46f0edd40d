// SPDX-License-Identifier: Apache-2.0
// The host's services file: which service listens on which port. docs/text-formats.md tells its
// syntax.
//
//     vrx::Ports ports;  // the host's own, /etc/services
//     auto ssh = ports.find({"ssh", "tcp"});
//     if (ssh) std::printf("%u\n", ssh->port);
//     vrx::Status status = ports.set({"vrx_tp1", 60000, "tcp", {}, "instance tp1"});
#pragma once

#include <arpa/inet.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "vrx/detail/text_records.h"

namespace vrx {

// One entry. An entry whose port or protocol the library does not understand is read with port 0 or
// an empty protocol, and with image.understood false: it is never changed.
struct Port {
  using Image = LineImage;

  std::string name;
  std::uint16_t port = 0;                   // in host order
  std::string protocol = {};                // "tcp", "udp", "ddp" or "divert"
  std::vector<std::string> aliases = {};    // at most 127
  std::optional<std::string> comment = {};  // without the blank behind the "#"

  // Calls visit("name", field) for each field in turn.
  template <class Self, class Visit>
  static void visitFields(Self& self, Visit&& visit) {
    visit("name", self.name);
    visit("port", self.port);
    visit("protocol", self.protocol);
    visit("aliases", self.aliases);
    visit("comment", self.comment);
  }
};

inline bool operator==(const Port& a, const Port& b) {
  return a.name == b.name && a.port == b.port && a.protocol == b.protocol &&
         a.aliases == b.aliases && a.comment == b.comment;
}

struct PortKey {
  std::string name;
  std::string protocol = "tcp";
};

inline bool operator==(const PortKey& a, const PortKey& b) {
  return a.name == b.name && a.protocol == b.protocol;
}

namespace detail {

struct PortsFormat {
  using Record = Port;
  using Key = PortKey;
  using Registry = ExactServices;
  using Native = GenRegServicesRecord;
  static constexpr Joining kJoining = Joining::none;
  static constexpr unsigned long long kKeyMask = kServicesName | kServicesProtocol;
  static constexpr bool kMakesFile = false;

  static Key keyOf(const Record& record) { return {record.name, record.protocol}; }

  static LineKind kindOf(const Native& native) {
    if ((native.flags & kServicesHasEntry) != 0) return LineKind::entry;
    return native.comment != nullptr ? LineKind::comment : LineKind::blank;
  }

  // A port of 0 could not be written again, so that such a line is left alone as well.
  static bool understood(const Native& native) {
    return (native.flags & kServicesNotUnderstood) == 0 && native.port != 0;
  }

  static void read(const Native& native, Record* record) {
    record->name = textOrEmpty(native.name);
    record->port = ntohs(static_cast<std::uint16_t>(native.port));
    record->protocol = textOrEmpty(native.protocol);
    record->aliases.clear();
    for (char* const* alias = native.aliases; alias != nullptr && *alias != nullptr; ++alias)
      record->aliases.emplace_back(*alias);
    record->comment = shownComment(native.comment);
  }

  static GenRegStatus layOut(const Record& record, char* line) {
    LineTexts texts;
    Native native{};
    native.flags = kServicesHasEntry;
    native.name = texts.keep(record.name);
    native.port = htons(record.port);
    native.protocol = texts.keep(record.protocol);
    native.aliases = texts.keep(record.aliases);
    native.comment = texts.keep(record.comment);
    if (native.comment != nullptr) native.flags |= kServicesHasComment;
    return genreg::statusOf(GenRegServices::FormatLine(&native, line));
  }

  static Status refuse(const Record& record) {
    Refusals refusals;
    refusals << refuseBytes("name", record.name, " \t", "a blank ends it")
             << refuseBytes("name", record.name, "#", kBeginsComment)
             << refuseBytes("aliases", record.aliases, " \t", "a blank ends it")
             << refuseBytes("aliases", record.aliases, "#", kBeginsComment)
             << refuseUnprintable("comment", record.comment) << refuseProtocol(record.protocol)
             << refuseAliases(record.aliases) << refusePort(record.port);
    return refusals.status();
  }

  // A port written in some other way, and aliases beyond those that a record holds.
  static std::string lost(const Stored<Record>& old, const Record& next) {
    std::vector<std::string> kept = {old.name, std::to_string(old.port) + "/" + old.protocol};
    kept.insert(kept.end(), old.aliases.begin(), old.aliases.end());
    std::vector<std::string> words = wordsOf(old.image.text);
    if (old.port != next.port && words.size() > 1) words[1] = kept[1];
    if (words == kept) return {};
    const auto mismatch = std::mismatch(words.begin(), words.end(), kept.begin(), kept.end());
    return mismatch.first == words.end() ? joined(words) : *mismatch.first;
  }

 private:
  static Status refuseProtocol(const std::string& protocol) {
    for (const char* known : {"udp", "tcp", "ddp", "divert"}) {
      if (protocol == known) return {};
    }
    return Status::refused("protocol", quoted(protocol) + " is none of udp, tcp, ddp, divert");
  }

  static Status refuseAliases(const std::vector<std::string>& aliases) {
    if (aliases.size() > kServicesMaxAliases) {
      return Status::refused("aliases", std::to_string(aliases.size()) +
                                            " are too many, the limit is " +
                                            std::to_string(kServicesMaxAliases));
    }
    const bool empty = std::find(aliases.begin(), aliases.end(), "") != aliases.end();
    return empty ? Status::refused("aliases", "an empty one") : Status();
  }

  static Status refusePort(std::uint16_t port) {
    return port == 0 ? Status::refused("port", "0 is no port") : Status();
  }

  // The fields of the line, before its comment.
  static std::vector<std::string> wordsOf(const std::string& line) {
    std::istringstream stream(line.substr(0, line.find_first_of("#\n")));
    std::vector<std::string> words;
    for (std::string word; stream >> word;)
      words.push_back(word);
    return words;
  }

  static std::string joined(const std::vector<std::string>& words) {
    std::string all;
    for (const std::string& word : words)
      all += (all.empty() ? "" : " ") + word;
    return all;
  }
};

}  // namespace detail

// The verbs are those of Records (vrx/records.h), the key is name and protocol. A missing file is
// never made (0x90000513): a mistyped path is a failure.
class Ports : public detail::TextRecords<detail::PortsFormat> {
 public:
  static constexpr const char* kHostFile = "/etc/services";

  // The file at `path`. Nothing is opened yet; status() and every verb tell of an unusable path.
  explicit Ports(std::string path = kHostFile) : TextRecords(std::move(path)) {}

  // The first entry of this name or alias; notFound(). As programs look a service up.
  Result<StoredRecord> lookUp(const std::string& name, const std::string& protocol = "tcp") const {
    return findIf([&](const StoredRecord& entry) {
      const auto& aliases = entry.aliases;
      const bool named =
          entry.name == name || std::find(aliases.begin(), aliases.end(), name) != aliases.end();
      return named && entry.protocol == protocol && entry.image.understood;
    });
  }

  // The first entry of this port; notFound().
  Result<StoredRecord> lookUp(std::uint16_t port, const std::string& protocol = "tcp") const {
    return findIf([&](const StoredRecord& entry) {
      return entry.port == port && entry.protocol == protocol && entry.image.understood;
    });
  }
};

}  // namespace vrx
