// SPDX-License-Identifier: Apache-2.0
// The ways in which an entry of the change log can be read, counted.
//
// The time, the caller and the two numbers behind it hold none of the names that separate them.
// From the build level on every text may: each place where the level, the path or the command line
// could end is a mark, and a way to read the entry is one mark of each kind in their order.
#include "cli/log_entry.h"

#include <algorithm>
#include <charconv>
#include <ctime>

namespace cli {

namespace {

constexpr std::string_view kBegin = "TS=\"";  // of an entry

struct RecordShape {
  char letter;
  const char* noun;
  std::vector<Kind> kinds;  // of its noun's fields, in their order

  std::size_t commas() const { return kinds.size(); }  // one behind the letter, no last one
};

const RecordShape* shapeOf(char letter) {
  constexpr Kind kText = Kind::text, kNumber = Kind::number, kBoolean = Kind::boolean;
  static const RecordShape shapes[] = {
      {'I',
       "instance",
       {kText, Kind::version, kText, kText, kText, kBoolean, kBoolean, kText, kText, kText}},
      {'S',
       "service",
       {kText, Kind::version, kText, kText, kText, kNumber, kNumber, Kind::byte, kNumber, kNumber}},
      {'V', "variable", {kText, kText, kText, kText}},
  };
  const auto has = [letter](const RecordShape& shape) { return shape.letter == letter; };
  const auto* at = std::find_if(std::begin(shapes), std::end(shapes), has);
  return at == std::end(shapes) ? nullptr : at;
}

// The shape of the record that begins here; null when none does.
const RecordShape* shapeAt(std::string_view text) {
  return text.size() > 1 && text[1] == ',' ? shapeOf(text[0]) : nullptr;
}

// Takes `what` from the front of *text.
bool take(std::string_view what, std::string_view* text) {
  if (text->substr(0, what.size()) != what) return false;
  text->remove_prefix(what.size());
  return true;
}

// Takes everything before the first `end`, and the end itself.
bool takeUntil(std::string_view end, std::string_view* text, std::string* taken) {
  const std::size_t at = text->find(end);
  if (at == std::string_view::npos) return false;
  taken->assign(*text, 0, at);
  text->remove_prefix(at + end.size());
  return true;
}

// Takes a decimal number as it is printed: no sign but "-", no zeros in front.
template <class Number>
bool takeNumber(std::string_view* text, Number* number) {
  const auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), *number);
  if (error != std::errc{}) return false;
  const auto count = static_cast<std::size_t>(end - text->data());
  if (text->substr(0, count) != std::to_string(*number)) return false;
  text->remove_prefix(count);
  return true;
}

// "Mon Jan  1 12:00:00 2024" as 2024-01-01T12:00:00.
bool readTime(const std::string& text, std::string* time) {
  time->clear();
  if (text.empty()) return true;
  std::tm parts{};
  const char* end = strptime(text.c_str(), "%a %b %d %H:%M:%S %Y", &parts);
  if (end != text.c_str() + text.size()) return false;
  char again[32];
  const std::size_t size = std::strftime(again, sizeof again, "%a %b %e %H:%M:%S %Y", &parts);
  if (text != std::string_view(again, size)) return false;
  time->assign(again, std::strftime(again, sizeof again, "%Y-%m-%dT%H:%M:%S", &parts));
  return true;
}

// Up to where the build level begins.
bool takeFront(std::string_view* text, LogEntry* entry) {
  std::string time;
  std::int32_t process = 0;
  std::int32_t user = 0;
  const bool taken = take(kBegin, text) && takeUntil("\";CALLER=", text, &time) &&
                     takeUntil(";PID=", text, &entry->caller) && takeNumber(text, &process) &&
                     take(";U=", text) && takeNumber(text, &user) && take(";BL=", text);
  entry->process = process;
  entry->user = static_cast<std::uint32_t>(user);  // printed with a sign, which users have none of
  return taken && readTime(time, &entry->time) && entry->caller.find(';') == std::string::npos;
}

// Calls visit(at, behind) for each place where `what` stands.
template <class Visit>
void forEach(std::string_view what, std::string_view text, const Visit& visit) {
  for (std::size_t at = text.find(what); at != text.npos; at = text.find(what, at + 1))
    visit(at, at + what.size());
}

// Where the build level may end: ";FP=" NUMBER ";PATH=".
struct LevelEnd {
  std::size_t at;
  std::uint32_t fixpack;
  std::size_t path;  // where the path would begin
};

std::vector<LevelEnd> levelEnds(std::string_view text) {
  std::vector<LevelEnd> ends;
  forEach(";FP=", text, [&](std::size_t at, std::size_t behind) {
    std::string_view rest = text.substr(behind);
    std::uint32_t fixpack = 0;
    if (!takeNumber(&rest, &fixpack) || !take(";PATH=", &rest)) return;
    ends.push_back({at, fixpack, text.size() - rest.size()});
  });
  return ends;
}

// Where the path may end: ";ACT=" WORD ";CL=".
struct PathEnd {
  std::size_t at;
  const char* action;
  std::size_t command;  // where the command line would begin
};

std::vector<PathEnd> pathEnds(std::string_view text) {
  constexpr struct {
    std::string_view logged;
    const char* action;
  } kActions[] = {
      {"Add", "add"}, {"Change", "change"}, {"Delete", "delete"}, {"Unknown", "unknown"}};
  std::vector<PathEnd> ends;
  forEach(";ACT=", text, [&](std::size_t at, std::size_t behind) {
    for (const auto& each : kActions) {
      std::string_view rest = text.substr(behind);
      if (!take(each.logged, &rest) || !take(";CL=", &rest)) continue;
      ends.push_back({at, each.action, text.size() - rest.size()});
    }
  });
  return ends;
}

// Where the command line may end: a quote and ";REC=".
struct CommandEnd {
  std::size_t at;
  std::size_t records;  // where the records would begin
};

std::vector<CommandEnd> commandEnds(std::string_view text) {
  std::vector<CommandEnd> ends;
  forEach("\";REC=", text, [&](std::size_t at, std::size_t behind) {
    const std::string_view records = text.substr(behind);
    if (records.empty() || records[0] == '!' || shapeAt(records) != nullptr)
      ends.push_back({at, behind});
  });
  return ends;
}

// One way to read what follows the build level's beginning.
struct Way {
  LevelEnd level;
  PathEnd path;
  std::optional<CommandEnd> command;  // nothing where nobody has told the command line
  std::size_t records;
};

// Keeps the first way, and how many there are up to two.
class Ways {
 public:
  explicit Ways(std::string_view text)
      : text_(text), levels_(levelEnds(text)), commands_(commandEnds(text)) {
    for (const PathEnd& path : pathEnds(text)) {
      if (count_ < 2) addCommands(path);
    }
  }
  std::size_t count() const { return count_; }
  const Way& first() const { return *first_; }

 private:
  // Only marks in their order are looked at, so that many of each cost no more than they must.
  void addCommands(const PathEnd& path) {
    if (levels_.empty() || levels_.front().path > path.at) return;
    constexpr std::string_view kUntold = "N/A;REC=";
    if (text_.substr(path.command, kUntold.size()) == kUntold)
      addLevels({{}, path, {}, path.command + kUntold.size()});
    if (text_.substr(path.command, 1) != "\"") return;
    const auto isBefore = [](std::size_t at, const CommandEnd& end) { return at < end.at; };
    auto end = std::upper_bound(commands_.begin(), commands_.end(), path.command, isBefore);
    for (; end != commands_.end() && count_ < 2; ++end)
      addLevels({{}, path, *end, end->records});
  }
  void addLevels(Way way) {
    for (const LevelEnd& level : levels_) {
      if (count_ == 2 || level.path > way.path.at) return;
      way.level = level;
      if (count_++ == 0) first_ = way;
    }
  }

  const std::string_view text_;
  const std::vector<LevelEnd> levels_;
  const std::vector<CommandEnd> commands_;
  std::size_t count_ = 0;
  std::optional<Way> first_;
};

bool readNumber(std::string_view text, Kind kind, Value* value) {
  std::int32_t number = 0;  // printed with a sign, which the fields have none of
  if (!takeNumber(&text, &number) || !text.empty()) return false;
  if (kind == Kind::boolean && (number == 0 || number == 1)) {
    *value = number == 1;
  } else {
    *value = std::uint64_t{static_cast<std::uint32_t>(number)};
  }
  return true;
}

bool readVersion(std::string_view text, Value* value) {
  const vrx::Result<Version> version = Version::parse(text);
  if (!version || version->text() != text) return false;
  *value = *version;
  return true;
}

bool readValue(std::string_view text, Kind kind, Value* value) {
  if (text.empty()) return true;
  switch (kind) {
    case Kind::text:
      *value = std::string(text);
      return true;
    case Kind::version:
      return readVersion(text, value);
    case Kind::byte:
      *value = std::uint64_t{static_cast<unsigned char>(text[0])};
      return text.size() == 1;
    default:
      return readNumber(text, kind, value);
  }
}

// Reads a record whose commas have been counted; an empty text is a record of no known type.
bool readRecord(std::string_view text, std::optional<LoggedRecord>* record) {
  record->reset();
  if (text.empty()) return true;
  const RecordShape& shape = *shapeAt(text);
  LoggedRecord found{shape.noun, {}};
  text.remove_prefix(1);
  for (const Kind kind : shape.kinds) {
    text.remove_prefix(1);
    const std::string_view cell = text.substr(0, text.find(','));
    if (!readValue(cell, kind, &found.values.emplace_back())) return false;
    text.remove_prefix(cell.size());
  }
  *record = std::move(found);
  return true;
}

// Whether a record that begins here and holds as many commas has them between its fields only.
bool fits(std::string_view text, std::size_t commas) {
  if (text.empty()) return commas == 0;
  const RecordShape* shape = shapeAt(text);
  return shape != nullptr && shape->commas() == commas;
}

// How many records an entry may have.
std::size_t mostRecords(const LogEntry& entry) {
  return entry.action == "change" ? 2 : 1;
}

std::size_t commasIn(std::string_view text) {
  return static_cast<std::size_t>(std::count(text.begin(), text.end(), ','));
}

// The places where the first record may end: "!", and the end of the text.
std::vector<std::size_t> recordEnds(std::string_view text, std::size_t most) {
  const std::size_t total = commasIn(text);
  std::vector<std::size_t> ends;
  if (fits(text, total)) ends.push_back(text.size());
  std::size_t commas = 0;
  for (std::size_t at = 0; most == 2 && at < text.size(); ++at) {
    if (text[at] == ',') ++commas;
    if (text[at] != '!' || !fits(text.substr(at + 1), total - commas)) continue;
    if (fits(text.substr(0, at), commas)) ends.push_back(at);
  }
  return ends;
}

// Whether texts with commas in them could make a record of this.
bool hasSpareCommas(std::string_view text, std::size_t most) {
  if (most == 2 && text.substr(0, 1) == "!") text.remove_prefix(1);
  const RecordShape* shape = shapeAt(text);
  return shape != nullptr && commasIn(text) > shape->commas();
}

EntryState readRecords(std::string_view text, LogEntry* entry) {
  const std::size_t most = mostRecords(*entry);
  const std::vector<std::size_t> ends = recordEnds(text, most);
  if (ends.size() > 1) return EntryState::ambiguous;
  if (ends.empty())
    return hasSpareCommas(text, most) ? EntryState::ambiguous : EntryState::unreadable;
  const std::size_t end = ends.front();
  const std::string_view rest = text.substr(std::min(text.size(), end + 1));
  const bool read =
      readRecord(text.substr(0, end), &entry->first) && readRecord(rest, &entry->second);
  return read ? EntryState::read : EntryState::unreadable;
}

void takeWay(std::string_view text, const Way& way, LogEntry* entry) {
  const auto between = [text](std::size_t begin, std::size_t end) {
    return std::string(text.substr(begin, end - begin));
  };
  entry->buildLevel = between(0, way.level.at);
  entry->fixpack = way.level.fixpack;
  entry->registry = between(way.level.path, way.path.at);
  entry->action = way.path.action;
  entry->command.reset();
  if (way.command) entry->command = between(way.path.command + 1, way.command->at);
}

}  // namespace

EntryState readLogEntry(std::string_view text, LogEntry* entry) {
  std::string_view rest = text;
  if (!takeFront(&rest, entry)) return EntryState::unreadable;
  const Ways ways(rest);
  if (ways.count() == 0) return EntryState::unreadable;
  // Whether a line end belongs to a text, or what follows it to somebody else, nobody can tell; nor
  // whether the beginning of an entry does, or this one was cut there.
  const bool goesOn = text.find('\n') != text.npos || text.find(kBegin, 1) != text.npos;
  if (ways.count() > 1 || goesOn) return EntryState::ambiguous;
  takeWay(rest, ways.first(), entry);
  return readRecords(rest.substr(ways.first().records), entry);
}

}  // namespace cli
