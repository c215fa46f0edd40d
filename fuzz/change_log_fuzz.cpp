// SPDX-License-Identifier: Apache-2.0
// The change log as the command line reads it. The bytes are a log themselves, cut and read; and
// they choose an update whose line the library writes, a second account of the line's syntax writes
// too, and the reader must read back or call ambiguous.
#include <algorithm>
#include <cstring>
#include <iterator>
#include <optional>
#include <vector>

#include "cli/log_cutter.h"
#include "cli/log_entry.h"
#include "fuzz/file_support.h"
#include "globalreg/internal/change_line.h"
#include "tests/support/global_records.h"

namespace {

using cli::EntryState;
using cli::LogEntry;
using cli::LoggedRecord;
using cli::LoggedText;
using cli::Value;
using vrxfuzz::ByteChoices;
using vrxfuzz::require;

std::string printed(const Value& value, bool isCharacter) {
  if (const auto* text = std::get_if<std::string>(&value)) return *text;
  if (const auto* yes = std::get_if<bool>(&value)) return *yes ? "1" : "0";
  if (const auto* version = std::get_if<vrx::Version>(&value)) return version->text();
  if (cli::isAbsent(value)) return "";
  const auto number = static_cast<std::uint32_t>(std::get<std::uint64_t>(value));
  if (isCharacter) return std::string(1, static_cast<char>(number));
  return std::to_string(static_cast<std::int32_t>(number));
}

std::string printed(const LoggedRecord& record) {
  const bool isService = record.noun == "service";
  std::string text = record.noun == "instance" ? "I" : isService ? "S" : "V";
  for (std::size_t i = 0; i < record.values.size(); ++i)
    text += "," + printed(record.values[i], isService && i == 7);
  return text;
}

// An entry from the build level on, written again; the time's form is another one than the log's.
std::string printedEnd(const LogEntry& entry) {
  std::string action = entry.action;
  action[0] = static_cast<char>(action[0] - 'a' + 'A');
  std::string text = ";BL=" + entry.buildLevel + ";FP=" + std::to_string(entry.fixpack) +
                     ";PATH=" + entry.registry + ";ACT=" + action + ";CL=";
  text += (entry.command ? "\"" + *entry.command + "\"" : "N/A") + ";REC=";
  if (entry.first) text += printed(*entry.first);
  if (entry.second) text += "!" + printed(*entry.second);
  return text;
}

// What was read says all that the text said. A second record of no known type is a "!" only.
void judgeRead(const std::string& text, const LogEntry& entry) {
  const std::string end = printedEnd(entry);
  const std::size_t front = text.find(";BL=");
  require(front != text.npos, "read without a level", text);
  const std::string rest = text.substr(front);
  require(rest == end || rest == end + "!", "read otherwise than written", text + "\n" + end);
}

bool standsAt(const std::string& text, std::size_t at, const std::string& what) {
  return text.compare(at, what.size(), what) == 0;
}

// Whether a record is there and has as many commas as its letter says; nothing is a record, too.
bool isRecord(const std::string& text) {
  if (text.empty()) return true;
  const auto commas = std::count(text.begin(), text.end(), ',');
  const bool isVariable = standsAt(text, 0, "V,");
  return isVariable ? commas == 4
                    : (standsAt(text, 0, "I,") || standsAt(text, 0, "S,")) && commas == 10;
}

unsigned waysOfRecords(const std::string& text, bool isChange) {
  unsigned ways = isRecord(text) ? 1 : 0;
  for (std::size_t at = 0; isChange && at < text.size(); ++at) {
    if (text[at] == '!' && isRecord(text.substr(0, at)) && isRecord(text.substr(at + 1))) ++ways;
  }
  return ways;
}

// A command line may end wherever something that begins like records follows.
unsigned waysOfCommand(const std::string& text, std::size_t at, bool isChange) {
  if (standsAt(text, at, "N/A;REC=")) return waysOfRecords(text.substr(at + 8), isChange);
  unsigned ways = 0;
  for (std::size_t end = at + 1; text[at] == '"' && end < text.size(); ++end) {
    if (!standsAt(text, end, "\";REC=")) continue;
    const std::string records = text.substr(end + 6);
    const bool begins = records.empty() || records[0] == '!' ||
                        (records.size() > 1 && records[1] == ',' &&
                         std::string("ISV").find(records[0]) != records.npos);
    if (begins) ways += std::max(1U, waysOfRecords(records, isChange));
  }
  return ways;
}

unsigned waysOfPath(const std::string& text, std::size_t from) {
  unsigned ways = 0;
  for (std::size_t at = from; at < text.size(); ++at) {
    for (const char* word : {"Add", "Change", "Delete", "Unknown"}) {
      const std::string mark = std::string(";ACT=") + word + ";CL=";
      if (standsAt(text, at, mark)) ways += waysOfCommand(text, at + mark.size(), word[0] == 'C');
    }
  }
  return ways;
}

// Of 32 bits, without zeros in front.
bool isNumber(const std::string& digits) {
  if (digits.empty() || digits.size() > 10 || (digits[0] == '0' && digits.size() > 1)) return false;
  return std::stoull(digits) <= 0xFFFFFFFF;
}

// In how many ways a text can be read from the build level on, by trying them all.
unsigned waysOf(const std::string& text) {
  unsigned ways = 0;
  for (std::size_t at = text.find(";BL=") + 4; at < text.size(); ++at) {
    if (!standsAt(text, at, ";FP=")) continue;
    const std::size_t end = text.find_first_not_of("0123456789", at + 4);
    if (end == text.npos || !isNumber(text.substr(at + 4, end - at - 4))) continue;
    if (standsAt(text, end, ";PATH=")) ways += waysOfPath(text, end + 6);
  }
  return ways;
}

void readOne(const std::string& text) {
  LogEntry entry;
  if (cli::readLogEntry(text, &entry) != EntryState::read) return;
  require(text.find('\n') == text.npos, "read over a line end", text);
  require(text.find("TS=\"", 1) == text.npos, "read over the beginning of another", text);
  judgeRead(text, entry);
  constexpr std::size_t kShort = 600;  // trying all ways takes its time
  require(text.size() > kShort || waysOf(text) == 1, "read in one of several ways", text);
}

// Nothing is lost between the entries, and their line numbers count the line ends before them.
void readLog(const std::string& bytes, std::size_t piece) {
  cli::EntryCutter cutter;
  std::string again;
  std::size_t line = 1;
  const auto take = [&](const LoggedText& entry) {
    require(entry.line == line, "line number", entry.text);
    require(entry.text.find("\nTS=\"") == entry.text.npos, "two entries in one", entry.text);
    const std::string whole = entry.text + (entry.ended ? "\n" : "");
    for (const char c : whole)
      line += c == '\n' ? 1 : 0;
    again += whole;
    readOne(entry.text);
  };
  LoggedText entry;
  for (std::size_t at = 0; at < bytes.size(); at += piece) {
    cutter.add(std::string_view(bytes).substr(at, piece));
    while (cutter.next(&entry))
      take(entry);
  }
  if (cutter.last(cli::Unended::taken, &entry)) take(entry);
  require(again == bytes, "bytes lost between entries", bytes);
}

// Few bytes, so that separators and the names of an entry's parts come up.
std::string textOf(ByteChoices& choices) {
  constexpr const char* kPieces[] = {
      ",", "!", "\n", "\"", ";REC=", ";ACT=", "V,", "Add;CL=", "N/A", ";FP=", "1;PATH=", "TS=\""};
  std::string text;
  for (unsigned count = choices.below(4); count > 0; --count) {
    const unsigned which = choices.below(3 * std::size(kPieces));
    if (which < std::size(kPieces)) {
      text += kPieces[which];
    } else {
      text += static_cast<char>(1 + choices.below(255));
    }
  }
  return text;
}

std::uint32_t numberOf(ByteChoices& choices) {
  constexpr std::uint32_t kNumbers[] = {0, 1, 2, 7, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
  return kNumbers[choices.below(std::size(kNumbers))];
}

// A record, and its values as they must be read back.
struct Chosen {
  GlobalRegRecord record{};
  std::optional<LoggedRecord> logged;
};

class Chooser {
 public:
  Chooser(ByteChoices& choices, Chosen* chosen) : choices_(choices), chosen_(*chosen) {}

  template <std::size_t width>
  void text(char (&field)[width]) {
    const std::string text = textOf(choices_);
    vrxtest::setText(field, text);
    add(cli::textOrAbsent(text));
  }
  template <class Number>
  void version(Number* field) {
    vrx::Version version;
    for (int i = 0; i < 4; ++i)
      version.code = version.code << 16 | (numberOf(choices_) & 0xFFFF);
    *field = version.code;
    add(version);
  }
  template <class Number>
  void number(Number* field) {
    const std::uint32_t number = numberOf(choices_);
    *field = number;
    add(std::uint64_t{number});
  }
  template <class Number>
  void boolean(Number* field) {
    const std::uint32_t number = numberOf(choices_);
    *field = number;
    if (number < 2) return add(number == 1);
    add(std::uint64_t{number});
  }
  template <class Number>
  void character(Number* field) {
    const unsigned byte = choices_.below(256);
    *field = byte;
    add(std::uint64_t{byte});
  }

 private:
  void add(const Value& value) {
    std::vector<Value>& values = chosen_.logged->values;
    const std::size_t bit = values.size();
    const bool present = choices_.below(4) != 1;
    if (present) chosen_.record.FieldMask |= 1ULL << bit;
    Value& logged = values.emplace_back();
    if (present) logged = value;
  }

  ByteChoices& choices_;
  Chosen& chosen_;
};

// The members of a record stand at any address: they are copied in and out.
template <class Body, class Fill>
void fill(void* at, const Fill& choose) {
  Body body{};
  choose(body);
  std::memcpy(at, &body, sizeof body);
}

void chooseInstance(Chooser& choose, GlobalRegRecord* record) {
  record->RecordType = kGlobalRegInstance;
  fill<GlobalRegInstanceBody>(&record->Instance, [&](GlobalRegInstanceBody& body) {
    choose.text(body.Service);
    choose.version(&body.VersionCode);
    choose.text(body.InstanceName);
    choose.text(body.InstancePath);
    choose.text(body.Usage);
    choose.boolean(&body.StartAtBoot);
    choose.boolean(&body.Maintenance);
    choose.text(body.AuxPath);
    choose.text(body.AuxName);
    choose.text(body.Comment);
  });
}

void chooseService(Chooser& choose, GlobalRegRecord* record) {
  record->RecordType = kGlobalRegService;
  fill<GlobalRegServiceBody>(&record->Services, [&](GlobalRegServiceBody& body) {
    choose.text(body.Service);
    choose.version(&body.VersionCode);
    choose.text(body.Text1);
    choose.text(body.Text2);
    choose.text(body.Text3);
    choose.number(&body.FixpackNumber);
    choose.number(&body.Num2);
    choose.character(&body.Flag);
    choose.number(&body.Num3);
    choose.number(&body.Num4);
  });
}

void chooseVariable(Chooser& choose, GlobalRegRecord* record) {
  record->RecordType = kGlobalRegVariable;
  fill<GlobalRegVariableBody>(&record->Variable, [&](GlobalRegVariableBody& body) {
    choose.text(body.Service);
    choose.text(body.Variable);
    choose.text(body.Value);
    choose.text(body.Comment);
  });
}

// Of one of the three types, or of another, which the log does not show.
Chosen chooseRecord(ByteChoices& choices) {
  constexpr struct {
    const char* noun;
    void (*fill)(Chooser& choose, GlobalRegRecord* record);
  } kTypes[] = {
      {"instance", &chooseInstance}, {"service", &chooseService}, {"variable", &chooseVariable}};
  Chosen chosen;
  const unsigned type = choices.below(std::size(kTypes) + 1);
  if (type == std::size(kTypes)) return chosen;
  chosen.logged = {kTypes[type].noun, {}};
  Chooser chooser(choices, &chosen);
  kTypes[type].fill(chooser, &chosen.record);
  return chosen;
}

struct Update {
  LogEntry entry;
  std::string text;  // as the library writes it
};

// setenv keeps every value that it was ever given.
void useRegistry(const std::string& path) {
  static std::string assignment;
  (void)unsetenv("VRX_GLOBAL_REG_PATHNAME");  // its name is in order
  assignment = "VRX_GLOBAL_REG_PATHNAME=" + path;
  require(putenv(assignment.data()) == 0, "no place in the environment");
}

std::string write(unsigned action, const LogEntry& entry, const GlobalRegRecord& first,
                  const GlobalRegRecord* second) {
  useRegistry(entry.registry);
  GlobalReg registry;
  std::string command = entry.command.value_or("");
  char* arguments[] = {command.data()};
  registry.CallerArgCount = entry.command ? 1 : 0;
  registry.CallerArgs = arguments;
  globalreg::LineBuffer line;
  globalreg::appendHeader(line, registry, action);
  globalreg::appendRecord(line, &first);
  if (second != nullptr) {
    line.append("!");
    globalreg::appendRecord(line, second);
  }
  return std::string(line.data(), line.size());
}

Update chooseUpdate(ByteChoices& choices) {
  constexpr struct {
    unsigned action;
    const char* word;
  } kActions[] = {{4, "add"}, {2, "change"}, {8, "delete"}, {1, "unknown"}};
  const auto action = kActions[choices.below(std::size(kActions))];
  Update update;
  update.entry.action = action.word;
  update.entry.registry = textOf(choices);
  if (choices.below(3) != 1) update.entry.command = textOf(choices);
  const Chosen first = chooseRecord(choices);
  update.entry.first = first.logged;
  if (action.action != 2) {
    update.text = write(action.action, update.entry, first.record, nullptr);
    return update;
  }
  const Chosen second = chooseRecord(choices);
  update.entry.second = second.logged;
  update.text = write(action.action, update.entry, first.record, &second.record);
  return update;
}

// Whether one text in a record, or where two records end, could be taken for something else.
bool hasSeparators(const std::optional<LoggedRecord>& record) {
  if (!record) return false;
  const std::string text = printed(*record);
  const auto commas = static_cast<std::size_t>(std::count(text.begin(), text.end(), ','));
  return text.find_first_of(";\n!\"") != text.npos || commas != record->values.size();
}

bool hasSeparators(const LogEntry& entry) {
  const std::string header = entry.registry + entry.command.value_or("");
  const bool mayBeOne = entry.action == "change" && entry.first && !entry.second;
  return header.find_first_of(";\n\"") != header.npos || mayBeOne || hasSeparators(entry.first) ||
         hasSeparators(entry.second);
}

void judgeUpdate(const Update& update) {
  const LogEntry& chosen = update.entry;
  const bool isBare = chosen.action == "change" && !chosen.second;
  const std::string wanted = printedEnd(chosen) + (isBare ? "!" : "");
  const std::size_t front = update.text.find(";BL=");
  require(front != update.text.npos && update.text.substr(front) == wanted, "line of an update",
          update.text + "\n" + wanted);
  LogEntry entry;
  const EntryState state = cli::readLogEntry(update.text, &entry);
  require(state != EntryState::unreadable, "the library's own line is unreadable", update.text);
  if (state == EntryState::read) {
    require(printedEnd(entry) == printedEnd(chosen), "another update was read", update.text);
    require(entry.registry == chosen.registry && entry.command == chosen.command,
            "the path or the command ends elsewhere", update.text);
    require(entry.first.has_value() == chosen.first.has_value() &&
                entry.second.has_value() == chosen.second.has_value(),
            "other records were read", update.text);
    return;
  }
  require(hasSeparators(chosen), "ambiguous for nothing", update.text);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string bytes = vrxfuzz::bytesOf(data, size);
  readOne(bytes);
  readLog(bytes, size == 0 ? 1 : 1 + data[0]);
  ByteChoices choices(bytes);
  judgeUpdate(chooseUpdate(choices));
  return 0;
}
