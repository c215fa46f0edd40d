// SPDX-License-Identifier: Apache-2.0
// The model's lines, records and updates.
#include "tests/support/text_model.h"

#include <cstdlib>

namespace vrxtest::model {
namespace {

using std::optional;
using std::string;

constexpr size_t kMostRaw = 2047;
constexpr size_t kMostText = 2046;
constexpr size_t kMostAliases = 127;
constexpr unsigned long long kEverything = ~0ULL;

enum Status : unsigned {
  kDone = 0,
  kTooSmall = 0x90000008,
  kUnreadable = 0x900001CD,
  kDuplicate = 0x900001F1,
  kNoMatch = 0x900001F6,
  kUnchanged = 0x900001F7,
  kSeveral = 0x900001F8,
  kNotVerified = 0x900001FB,
  kBadRecord = 0x900001FC,
  kNotFormatted = 0x90000201
};

bool endsWith(const string& text, const string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

string textOf(const optional<string>& text) {
  return text.value_or("");
}

bool holdsDuplicates(Format format) {
  return format == Format::kProfile;
}

// --- lines

// Appends one physical line to `line`; true when the next one belongs to it.
bool takePhysical(const string& physical, bool joins, Line& line) {
  line.raw += physical;
  string seen = physical.substr(0, physical.find('\0'));
  if (joins && endsWith(seen, "\\\n")) {
    line.text += seen.substr(0, seen.size() - 2);
    return true;
  }
  if (endsWith(seen, "\\")) seen.pop_back();
  line.text += seen;
  return false;
}

Line takeLine(const string& bytes, size_t& at, bool joins, bool& continues) {
  Line line;
  bool open = true;
  while (open && at < bytes.size() && line.raw.size() < kMostRaw) {
    const size_t newline = bytes.find('\n', at);
    size_t length = newline == string::npos ? bytes.size() - at : newline + 1 - at;
    if (length > kMostRaw - line.raw.size()) length = kMostRaw - line.raw.size();
    open = takePhysical(bytes.substr(at, length), joins, line);
    at += length;
  }
  const bool cut =
      line.raw.size() == kMostRaw && (open || line.raw.back() != '\n') && at < bytes.size();
  line.piece = cut || continues;
  continues = cut;
  return line;
}

// --- texts

// One blank for each run of white space outside of quotes, none at the ends.
string squeezed(const string& text) {
  string out;
  bool quoted = false;
  bool mayBlank = false;
  for (char c : text) {
    if (c == '\t' || c == '\r') c = ' ';
    if (quoted || c != ' ' || mayBlank) out += c;
    if (c == '"') {
      quoted = !quoted;
      mayBlank = true;
    } else {
      mayBlank = c != ' ';
    }
  }
  while (!out.empty() && out.back() == ' ')
    out.pop_back();
  return out;
}

string printable(string text) {
  for (char& c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte != '\t' && (byte < ' ' || byte > '~')) c = '.';
  }
  return text;
}

std::vector<string> words(const string& text) {
  std::vector<string> found;
  string word;
  for (const char c : text + " ") {
    if (c != ' ' && c != '\t') {
      word += c;
    } else if (!word.empty()) {
      found.push_back(word);
      word.clear();
    }
  }
  return found;
}

// Splits the note off, which begins at the first "#".
string withoutNote(const string& text, bool clean, Record& record) {
  const size_t mark = text.find('#');
  if (mark == string::npos) return text;
  record.comment = true;
  record.note = text.substr(mark + 1);
  if (clean) record.note = printable(*record.note);
  return text.substr(0, mark);
}

// --- records

optional<Record> parseProfile(const string& line) {
  Record record;
  const string body = squeezed(withoutNote(line, true, record));
  if (body.empty()) return record;
  const size_t equals = body.find('=');
  if (equals == string::npos) return {};
  record.entry = true;
  record.name = body.substr(0, equals);
  if (endsWith(*record.name, " ")) record.name->pop_back();
  record.value = body.substr(equals + 1);
  if (record.value->substr(0, 1) == " ") record.value->erase(0, 1);
  if (record.value->substr(0, 1) != "\"") return record;
  const size_t closing = record.value->find('"', 1);
  if (closing == string::npos) return {};
  record.value->erase(closing + 1);
  return record;
}

unsigned portOf(const string& digits) {
  long long value = std::strtoll(digits.c_str(), nullptr, 10);
  if (value > 2147483647LL) value = 2147483647LL;
  if (value < -2147483648LL) value = -2147483648LL;
  return static_cast<unsigned>(((value % 65536) + 65536) % 65536);
}

optional<Record> parseService(const string& text, const string& line) {
  Record record;
  const std::vector<string> fields = words(squeezed(withoutNote(line, true, record)));
  if (fields.empty()) {
    if (text == "\n") record.comment = true;
    return record;
  }
  if (fields.size() == 1) return {};
  record.entry = true;
  record.name = fields[0];
  const size_t slash = fields[1].find('/');
  record.notKnown = true;
  if (slash == string::npos) return record;
  record.port = portOf(fields[1].substr(0, slash));
  record.value = fields[1].substr(slash + 1);
  for (const char* known : {"udp", "tcp", "ddp", "divert"})
    record.notKnown = record.notKnown && *record.value != known;
  for (size_t i = 2; !record.notKnown && i < fields.size() && i < 2 + kMostAliases; ++i)
    record.aliases.push_back(fields[i]);
  return record;
}

optional<Record> parseInit(const string& line) {
  Record record;
  if (line.substr(0, 1) == ":") {
    record.comment = true;
    record.note = line.substr(1);
    return record;
  }
  const string body = withoutNote(line, false, record);
  if (body.empty()) return record;
  const size_t first = body.find(':');
  const size_t second = first == string::npos ? first : body.find(':', first + 1);
  const size_t third = second == string::npos ? second : body.find(':', second + 1);
  if (third == string::npos) return {};
  record.entry = true;
  record.name = body.substr(0, first);
  record.runlevel = body.substr(first + 1, second - first - 1);
  record.value = body.substr(second + 1, third - second - 1);
  record.command = body.substr(third + 1);
  while (record.command->size() > 1 && record.command->back() == ' ')
    record.command->pop_back();
  return record;
}

bool sameNote(const Record& a, const Record& b) {
  return a.note.has_value() == b.note.has_value() && a.note == b.note;
}

bool matchesInit(unsigned long long mask, const Record& stored, const Record& given) {
  if (mask == 0) return true;
  if (given.entry) {
    if (!stored.entry) return false;
    if ((mask & 1) != 0 && textOf(stored.name) != textOf(given.name)) return false;
    if ((mask & 2) != 0 && textOf(stored.runlevel) != textOf(given.runlevel)) return false;
    if ((mask & 4) != 0 && textOf(stored.value) != textOf(given.value)) return false;
    if ((mask & 8) != 0 && textOf(stored.command) != textOf(given.command)) return false;
  }
  return !given.comment || (stored.comment && textOf(stored.note) == textOf(given.note));
}

// --- layouts

size_t blanksAt(const string& text, size_t at) {
  const size_t end = text.find_first_not_of(" \t", at);
  return (end == string::npos ? text.size() : end) - at;
}

optional<string> profileLine(const Record& record, const string& old) {
  string out;
  if (record.entry && old.empty()) {
    out = textOf(record.name) + " = " + textOf(record.value);
  } else if (record.entry) {
    const size_t indent = blanksAt(old, 0);
    size_t name = old.find_first_of(" \t=", indent);
    if (name == string::npos) name = old.size();
    const size_t before = blanksAt(old, name);
    if (old.substr(name + before, 1) != "=") return {};
    const size_t after = blanksAt(old, name + before + 1);
    out = old.substr(0, indent) + textOf(record.name) + old.substr(name, before) + "=" +
          old.substr(name + before + 1, after) + textOf(record.value);
  }
  if (record.comment) out += (record.entry ? " # " : "# ") + textOf(record.note);
  return out;
}

// The port as it lies in the record: its two bytes swapped.
bool isNarrow(unsigned port) {
  return (port % 256) * 256 + port / 256 <= 999;
}

optional<string> serviceLine(const Record& record) {
  string out;
  if (record.entry) {
    if (!record.name || record.port == 0 || !record.value) return {};
    out = *record.name + (record.name->size() <= 7 ? "\t\t" : "\t");
    out += std::to_string(record.port) + "/" + *record.value;
    for (size_t i = 0; i < record.aliases.size(); ++i)
      out += (i > 0 ? " " : isNarrow(record.port) ? "\t\t" : "\t") + record.aliases[i];
  }
  if (!record.comment) return out;
  const char* gap = isNarrow(record.port) ? "\t\t\t\t" : "\t\t\t";
  if (!record.aliases.empty()) gap = record.aliases[0].size() <= 7 ? "\t\t" : "\t";
  return out + gap + "# " + textOf(record.note);
}

string initLine(const Record& record) {
  string out;
  if (record.entry) {
    out = textOf(record.name) + ":" + textOf(record.runlevel) + ":" + textOf(record.value) + ":" +
          textOf(record.command);
  }
  if (record.comment) out += (record.entry ? " #" : "#") + textOf(record.note);
  return out;
}

// --- updates

bool hasNul(const Line& line) {
  return line.raw.find('\0') != string::npos;
}

bool areEqual(Format format, const optional<Record>& a, const optional<Record>& b) {
  return a && b && matches(format, kEverything, *a, *b) && matches(format, kEverything, *b, *a);
}

// Whether a line is still what it was, but for a newline behind the last one.
bool isStill(Format format, const Line& before, const Line& now, bool last) {
  return before.raw == now.raw || (last && before.raw + "\n" == now.raw) ||
         areEqual(format, before.record, now.record);
}

bool holds(Format format, const Line& line, const Record& record) {
  return !line.piece && areEqual(format, line.record, record);
}

bool isSelected(Format format, unsigned long long mask, const Line& line, const Record& key) {
  return line.record && matches(format, mask, *line.record, key);
}

}  // namespace

std::vector<Line> linesOf(Format format, const string& bytes) {
  std::vector<Line> lines;
  bool continues = false;
  for (size_t at = 0; at < bytes.size();) {
    Line line = takeLine(bytes, at, format == Format::kInitTable, continues);
    line.record = parse(format, line.text);
    lines.push_back(line);
  }
  return lines;
}

optional<Record> parse(Format format, const string& text) {
  const string line = text.substr(0, text.find('\n'));
  if (format == Format::kProfile) return parseProfile(line);
  return format == Format::kServices ? parseService(text, line) : parseInit(line);
}

bool matches(Format format, unsigned long long mask, const Record& stored, const Record& given) {
  if (format == Format::kInitTable) return matchesInit(mask, stored, given);
  const bool services = format == Format::kServices;
  if (services && stored.comment && !stored.entry && given.comment && !given.entry) {
    return sameNote(stored, given);
  }
  if (!stored.entry || (services && !given.entry)) return false;
  if ((mask & 1) != 0 && textOf(stored.name) != textOf(given.name)) return false;
  if (!services) return (mask & 2) == 0 || textOf(stored.value) == textOf(given.value);
  if ((mask & 2) != 0 && stored.port != given.port) return false;
  return (mask & 4) == 0 || textOf(stored.value) == textOf(given.value);
}

bool isAcceptable(Format format, unsigned long long mask, const Record& record) {
  if (!record.comment && !record.entry) return false;
  if (format == Format::kProfile) {
    return ((mask & 1) == 0 || record.name) && ((mask & 2) == 0 || record.value);
  }
  if (format == Format::kServices) {
    return ((mask & 1) == 0 || record.name) && ((mask & 2) == 0 || record.port != 0) &&
           ((mask & 4) == 0 || record.value);
  }
  return !record.entry || (((mask & 1) == 0 || record.name) && ((mask & 4) == 0 || record.value) &&
                           ((mask & 8) == 0 || record.command));
}

optional<string> lineFor(Format format, const Record& record, const string& old) {
  optional<string> line;
  if (format == Format::kProfile) line = profileLine(record, old);
  if (format == Format::kServices) line = serviceLine(record);
  if (format == Format::kInitTable) line = initLine(record);
  if (!line || line->size() > kMostText) return {};
  // Init table lines get their newline from the store, which gives none to a text that has one.
  if (format == Format::kInitTable && line->find('\n') != string::npos) return line;
  return *line + "\n";
}

Outcome add(Format format, const string& bytes, unsigned long long mask, const Record& record) {
  if (!isAcceptable(format, mask, record)) return {kBadRecord, bytes};
  const std::vector<Line> before = linesOf(format, bytes);
  string out;
  for (const Line& line : before) {
    if (hasNul(line)) return {kUnreadable, bytes};
    if (!holdsDuplicates(format) && isSelected(format, mask, line, record)) {
      return {kDuplicate, bytes};
    }
    if (line.piece) return {kTooSmall, bytes};
    out += line.raw;
    if (endsWith(out, "\n")) continue;
    if (line.raw.size() > kMostText) return {kTooSmall, bytes};
    out += "\n";
  }
  const optional<string> added = lineFor(format, record, "");
  if (!added) return {kNotFormatted, bytes};
  out += *added;
  const std::vector<Line> now = linesOf(format, out);
  bool right = now.size() == before.size() + 1 && holds(format, now.back(), record);
  for (size_t i = 0; right && i < before.size(); ++i)
    right = isStill(format, before[i], now[i], i + 1 == before.size());
  return right ? Outcome{kDone, out} : Outcome{kNotVerified, bytes};
}

Outcome change(Format format, const string& bytes, unsigned long long mask, const Record& key,
               const Record& record) {
  if (!isAcceptable(format, mask, key)) return {kBadRecord, bytes};
  const std::vector<Line> before = linesOf(format, bytes);
  string out;
  size_t changed = 0;
  bool unchanged = false;
  const auto fails = [&](unsigned status) {
    return Outcome{unchanged ? kUnchanged : status, bytes};
  };
  for (const Line& line : before) {
    if (hasNul(line)) return fails(kUnreadable);
    const bool selected = isSelected(format, mask, line, key);
    if (selected && line.piece) return fails(kUnreadable);
    if (!selected || matches(format, kEverything, *line.record, record)) {
      unchanged = unchanged || selected;
      out += line.raw;
      if (!line.piece && line.raw.find('\n') == string::npos) out += "\n";
      continue;
    }
    if (changed > 0 && !holdsDuplicates(format)) return fails(kSeveral);
    ++changed;
    const optional<string> text = lineFor(format, record, line.raw);
    if (!text) return fails(kNotFormatted);
    out += *text;
  }
  if (unchanged || changed == 0) return fails(kNoMatch);
  const std::vector<Line> now = linesOf(format, out);
  bool right = now.size() == before.size();
  size_t differing = 0;
  for (size_t i = 0; right && i < before.size(); ++i) {
    if (isStill(format, before[i], now[i], i + 1 == before.size())) continue;
    right = isSelected(format, mask, before[i], key) && holds(format, now[i], record);
    ++differing;
  }
  return right && differing > 0 ? Outcome{kDone, out} : Outcome{kNotVerified, bytes};
}

Outcome remove(Format format, const string& bytes, unsigned long long mask, const Record& key) {
  if (!isAcceptable(format, mask, key)) return {kBadRecord, bytes};
  string out;
  std::vector<Line> kept;
  size_t count = 0;
  for (const Line& line : linesOf(format, bytes)) {
    if (hasNul(line)) return {kUnreadable, bytes};
    const bool selected = isSelected(format, mask, line, key);
    if (selected && line.piece) return {kUnreadable, bytes};
    if (selected && ++count > 1 && !holdsDuplicates(format)) return {kSeveral, bytes};
    if (selected) continue;
    out += line.raw;
    kept.push_back(line);
  }
  if (count == 0) return {kNoMatch, bytes};
  const std::vector<Line> now = linesOf(format, out);
  bool right = now.size() == kept.size();
  for (size_t i = 0; right && i < kept.size(); ++i)
    right = isStill(format, kept[i], now[i], false);
  return right ? Outcome{kDone, out} : Outcome{kNotVerified, bytes};
}

optional<string> find(Format format, const string& bytes, unsigned long long mask,
                      const Record& key) {
  for (const Line& line : linesOf(format, bytes)) {
    if (isSelected(format, mask, line, key)) return line.text;
  }
  return {};
}

}  // namespace vrxtest::model
