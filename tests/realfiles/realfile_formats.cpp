// SPDX-License-Identifier: Apache-2.0
// Entries to records and back, for each format.
#include "tests/realfiles/realfile_formats.h"

#include <arpa/inet.h>

#include <cstdlib>
#include <cstring>
#include <utility>

#include "tests/support/text_lines.h"

namespace vrxtest::realfiles {
namespace {

using std::string;

string textOf(const char* text) {
  return text != nullptr ? text : "";
}

Text noteOf(const Entry& entry) {
  return entry.hasNote ? Text(entry.note) : Text();
}

// What the formats share. Traits names the registry, its record and its line, and translates.
template <class Traits>
class FormatOf : public Format {
 public:
  using Registry = typename Traits::Registry;
  using Record = typename Traits::Record;

  std::vector<Entry> entries(const string& path) override {
    const auto registry = Traits::open(path);
    const auto record = std::make_unique<Record>();
    std::vector<Entry> found;
    if (registry->OpenScan() != 0) std::abort();
    while (registry->GetNext(0, nullptr, record.get()) == 0) {
      ++lineCount_;
      if (Traits::isNotUnderstood(*record)) ++notUnderstood_;
      if (!Traits::isEntry(*record)) continue;
      Entry entry = Traits::entryOf(*record);
      entry.hasNote = record->comment != nullptr;
      entry.note = textOf(record->comment);
      found.push_back(std::move(entry));
    }
    return found;
  }
  string keyOf(const Entry& entry) const override { return Traits::keyOf(entry); }
  bool canChange(const Entry& entry) const override { return Traits::canChange(entry); }
  bool allowsDuplicates() const override { return Traits::kDuplicates; }
  Entry changed(const Entry& entry) const override { return Traits::changed(entry); }
  Entry fresh() const override { return Traits::fresh(); }

  string laidOut(const Entry& entry, const string& old) override {
    char line[kGenRegLineSize] = {};
    if (old.size() >= sizeof line) return "";
    std::memcpy(line, old.data(), old.size());
    if (Registry::FormatLine(Traits::lineOf(entry).record(), line) != 0) return "";
    const string text = line;
    return !text.empty() && text.back() == '\n' ? text : text + "\n";
  }
  unsigned add(const string& path, const Entry& entry) override {
    return Traits::open(path)->Add(Traits::kMask, Traits::lineOf(entry).record());
  }
  unsigned change(const string& path, const Entry& key, const Entry& entry) override {
    return Traits::open(path)->Change(Traits::kMask, Traits::keyLineOf(key).record(),
                                      Traits::lineOf(entry).record());
  }
  unsigned remove(const string& path, const Entry& key) override {
    return Traits::open(path)->Delete(Traits::kMask, Traits::keyLineOf(key).record());
  }
};

struct ProfileTraits {
  using Registry = GenRegVarVal;
  using Record = GenRegVarValRecord;
  static constexpr unsigned long long kMask = kVarValVariable;
  static constexpr bool kDuplicates = true;

  static std::unique_ptr<Registry> open(const string& path) {
    return std::make_unique<Registry>(path.c_str(), nullptr);
  }
  static bool isNotUnderstood(const Record& record) {
    return (record.contents & kVarValHasValue) != 0 && record.value == nullptr;
  }
  static bool isEntry(const Record& record) {
    return (record.contents & kVarValHasValue) != 0 && record.value != nullptr;
  }
  static Entry entryOf(const Record& record) {
    return {{record.variable, record.value}, {}, false, ""};
  }
  static string keyOf(const Entry& entry) { return entry.fields[0]; }
  // Of a name of two words the layout keeps the first only, so such a line is not rewritten.
  static bool canChange(const Entry& entry) { return entry.fields[0].find(' ') == string::npos; }
  static Entry changed(Entry entry) {
    entry.fields[1] = "\"changed  value\"";
    return entry;
  }
  static Entry fresh() { return {{"VRX_ADDED", "1"}, {}, false, ""}; }
  static ProfileLine lineOf(const Entry& entry) {
    return ProfileLine(entry.fields[0], entry.fields[1], noteOf(entry));
  }
  static ProfileLine keyLineOf(const Entry& entry) { return ProfileLine(entry.fields[0]); }
};

struct ServicesTraits {
  using Registry = GenRegServices;
  using Record = GenRegServicesRecord;
  static constexpr unsigned long long kMask = kServicesName | kServicesPort | kServicesProtocol;
  static constexpr bool kDuplicates = false;

  static std::unique_ptr<Registry> open(string path) {
    return std::make_unique<Registry>(path.data(), nullptr);
  }
  static bool isNotUnderstood(const Record& record) {
    return (record.flags & kServicesNotUnderstood) != 0;
  }
  static bool isEntry(const Record& record) {
    return record.flags == kServicesHasEntry ||
           record.flags == (kServicesHasEntry | kServicesHasComment);
  }
  static Entry entryOf(const Record& record) {
    const unsigned port = ntohs(static_cast<unsigned short>(record.port));
    Entry entry{
        {textOf(record.name), std::to_string(port), textOf(record.protocol)}, {}, false, ""};
    for (char** alias = record.aliases; alias != nullptr && *alias != nullptr; ++alias)
      entry.aliases.emplace_back(*alias);
    return entry;
  }
  static string keyOf(const Entry& entry) {
    return entry.fields[0] + " " + entry.fields[1] + "/" + entry.fields[2];
  }
  // A port of 0 is no key.
  static bool canChange(const Entry& entry) { return entry.fields[1] != "0"; }
  static Entry changed(Entry entry) {
    entry.fields[0] += "-renamed";
    entry.aliases.emplace_back("alias-added");
    return entry;
  }
  static Entry fresh() { return {{"vrx-added", "65000", "tcp"}, {"vrx-alias"}, true, "added"}; }
  static ServiceLine lineOf(const Entry& entry) {
    return ServiceLine(entry.fields[0], std::atoi(entry.fields[1].c_str()), entry.fields[2],
                       entry.aliases, noteOf(entry));
  }
  static ServiceLine keyLineOf(const Entry& entry) {
    return ServiceLine(entry.fields[0], std::atoi(entry.fields[1].c_str()), entry.fields[2]);
  }
};

struct InitTraits {
  using Registry = GenRegInitTab;
  using Record = GenRegInitTabRecord;
  static constexpr unsigned long long kMask = kInitTabId;
  static constexpr bool kDuplicates = false;

  static std::unique_ptr<Registry> open(string path) {
    auto registry = std::make_unique<Registry>();
    if (registry->setPaths(path.data()) != 0) std::abort();
    return registry;
  }
  static bool isNotUnderstood(const Record& record) {
    return (record.flags & kInitTabHasEntry) != 0 && record.command == nullptr;
  }
  static bool isEntry(const Record& record) {
    return (record.flags & kInitTabHasEntry) != 0 && record.command != nullptr;
  }
  static Entry entryOf(const Record& record) {
    return {
        {textOf(record.id), textOf(record.runlevel), textOf(record.action), textOf(record.command)},
        {},
        false,
        ""};
  }
  static string keyOf(const Entry& entry) { return entry.fields[0]; }
  static bool canChange(const Entry&) { return true; }
  static Entry changed(Entry entry) {
    entry.fields[3] = "/bin/changed a:b";
    return entry;
  }
  static Entry fresh() { return {{"vrx9", "2345", "once", "/bin/added"}, {}, true, " added"}; }
  static InitLine lineOf(const Entry& entry) {
    return InitLine(entry.fields[0], entry.fields[1], entry.fields[2], entry.fields[3],
                    noteOf(entry));
  }
  static InitLine keyLineOf(const Entry& entry) { return InitLine(entry.fields[0]); }
};

}  // namespace

std::unique_ptr<Format> formatNamed(const string& name) {
  if (name == "profile") return std::make_unique<FormatOf<ProfileTraits>>();
  if (name == "services") return std::make_unique<FormatOf<ServicesTraits>>();
  if (name == "inittab") return std::make_unique<FormatOf<InitTraits>>();
  return nullptr;
}

}  // namespace vrxtest::realfiles
