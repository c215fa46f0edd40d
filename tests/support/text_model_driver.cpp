// SPDX-License-Identifier: Apache-2.0
// Random files and operations, and the library's three formats behind one interface.
#include "tests/support/text_model_driver.h"

#include <cstdio>
#include <initializer_list>

#include "tests/support/text_lines.h"

namespace vrxtest::model {
namespace {

using std::string;

template <class T>
T pick(Choices& choices, std::initializer_list<T> from) {
  return from.begin()[choices.below(static_cast<unsigned>(from.size()))];
}

bool oneIn(Choices& choices, unsigned n) {
  return choices.below(n) == n - 1;
}

// --- files

string wildLine(Choices& choices) {
  static const string kBytes = " \t\"=#:/\\aAB1\r\v\x7f\xe9.-xx";
  string line(choices.below(24), ' ');
  for (char& c : line)
    c = kBytes[choices.below(static_cast<unsigned>(kBytes.size()))];
  if (oneIn(choices, 60)) line += '\0';
  return line;
}

string blanks(Choices& choices) {
  return pick<const char*>(choices, {"", " ", "\t", "  ", " \t "});
}

string note(Choices& choices) {
  return pick<const char*>(choices, {"", "", "", "# note", " # two # marks", "#", " #\x01"});
}

string profileText(Choices& choices) {
  const string name = pick<const char*>(choices, {"A", "B", "C", "export A", "a"});
  const string value =
      pick<const char*>(choices, {"1", "2", "", "x y", "\"x  y\"", "\"\"", "\"open", "a=b", "x\\"});
  return blanks(choices) + name + blanks(choices) +
         pick<const char*>(choices, {"=", "=", "=", ""}) + blanks(choices) + value +
         blanks(choices) + note(choices);
}

string serviceText(Choices& choices) {
  const string name = pick<const char*>(choices, {"a", "b", "longname", "a"});
  const string port = pick<const char*>(choices, {" 1/tcp", "\t1/udp", " 80/tcp", " 256/tcp",
                                                  " 9/sctp", " 1/", " tcp", "", " x/tcp"});
  const string aliases = pick<const char*>(choices, {"", "", " b", " b c", "\tlongalias  b"});
  return blanks(choices) + name + port + aliases + blanks(choices) + note(choices);
}

string initText(Choices& choices) {
  const string head = pick<const char*>(
      choices, {"a:1:wait:", "b::once:", "a:2:wait:", "::x:", ":", "a:1:", "c", " a:1:wait:", ""});
  const string command =
      pick<const char*>(choices, {"/bin/x", "/bin/x a:b ", "", " ", "/bin/y \\\n -z", "x\\"});
  return head + command + note(choices);
}

string ordinaryLine(Format format, Choices& choices) {
  if (format == Format::kProfile) return profileText(choices);
  return format == Format::kServices ? serviceText(choices) : initText(choices);
}

string longLine(Format format, Choices& choices) {
  const unsigned length =
      pick(choices, {2040U, 2046U, 2047U, 2048U, 4094U, 6000U}) + choices.below(4);
  const string head = ordinaryLine(format, choices);
  string line = head + pick<const char*>(choices, {"", "#"}) + string(length, 'x');
  if (oneIn(choices, 2)) line.insert(length - choices.below(30), "\\\n");
  if (oneIn(choices, 2)) line.resize(length, '\\');
  return line;
}

// --- operations

std::optional<string> text(Choices& choices, std::initializer_list<const char*> from) {
  if (oneIn(choices, 12)) return {};
  return string(pick<const char*>(choices, from));
}

std::optional<string> randomNote(Choices& choices) {
  if (!oneIn(choices, 4)) return {};
  return string(pick<const char*>(choices, {"", " note", "x#y", "x\ny", "end\\"}));
}

void fillEntry(Format format, Choices& choices, Record& record) {
  if (format == Format::kProfile) {
    record.name = text(choices, {"A", "B", "C", "export A", "a", "x=y"});
    record.value = text(choices, {"1", "2", "", "x y", "\"x  y\"", "a#b", "x  y", "\"open", "\n"});
    return;
  }
  if (format == Format::kServices) {
    record.name = text(choices, {"a", "b", "longname", "new", "x y"});
    record.value = text(choices, {"tcp", "tcp", "udp", "sctp"});
    record.port = pick(choices, {0U, 1U, 80U, 256U, 65535U});
    const unsigned count = oneIn(choices, 40) ? 150 : choices.below(3);
    for (unsigned i = 0; i < count; ++i)
      record.aliases.emplace_back(pick<const char*>(choices, {"b", "longalias", "c#d"}));
    return;
  }
  record.name = text(choices, {"a", "b", "new", "", "#x"});
  record.runlevel = text(choices, {"1", "2", ""});
  record.value = text(choices, {"wait", "once", "x:y"});
  record.command = text(choices, {"/bin/x", "/bin/new", "end\\", "x ", "a#b", "a\nb"});
}

Record randomRecord(Format format, Choices& choices) {
  Record record;
  if (!oneIn(choices, 15)) fillEntry(format, choices, record);
  if (oneIn(choices, 60)) record.value = string(2030 + choices.below(20), 'v');
  record.note = randomNote(choices);
  record.comment = record.note.has_value();
  record.entry =
      record.name || record.value || record.runlevel || record.command || record.port != 0;
  return record;
}

// --- the library

ProfileLine profileFrom(const Record& record) {
  return ProfileLine(record.name, record.value, record.note);
}
ServiceLine serviceFrom(const Record& record) {
  return ServiceLine(record.name, static_cast<int>(record.port), record.value, record.aliases,
                     record.note);
}
InitLine initFrom(const Record& record) {
  return InitLine(record.name, record.runlevel, record.value, record.command, record.note);
}

template <class Registry, class Line>
unsigned runOn(Registry& registry, const Operation& operation, Line key, Line record,
               void* result) {
  switch (operation.verb) {
    case Verb::kAdd:
      return registry.Add(operation.mask, record.record());
    case Verb::kChange:
      return registry.Change(operation.mask, key.record(), record.record());
    case Verb::kRemove:
      return registry.Delete(operation.mask, key.record());
    case Verb::kFind:
      break;
  }
  return registry.Get(operation.mask, key.record(), result);
}

string shown(const char* name, const char* comment) {
  const auto text = [](const char* given) { return given != nullptr ? string(given) : "(none)"; };
  return text(name) + "|" + text(comment);
}

class ProfileLibrary : public Library {
 public:
  explicit ProfileLibrary(const string& path) : registry_(path.c_str(), nullptr) {}
  unsigned run(const Operation& operation) override {
    return runOn<GenRegVarVal, ProfileLine>(registry_, operation, profileFrom(operation.key),
                                            profileFrom(operation.record), &found_);
  }
  unsigned next(const Operation& operation) override {
    return registry_.GetNext(operation.mask, profileFrom(operation.key).record(), &found_);
  }
  GenRegText& registry() override { return registry_; }
  string found() const override { return shown(found_.variable, found_.comment); }

 private:
  GenRegVarVal registry_;
  GenRegVarValRecord found_{};
};

class ServicesLibrary : public Library {
 public:
  explicit ServicesLibrary(string path) : registry_(path.data(), nullptr) {}
  unsigned run(const Operation& operation) override {
    return runOn<GenRegServices, ServiceLine>(registry_, operation, serviceFrom(operation.key),
                                              serviceFrom(operation.record), &found_);
  }
  unsigned next(const Operation& operation) override {
    return registry_.GetNext(operation.mask, serviceFrom(operation.key).record(), &found_);
  }
  GenRegText& registry() override { return registry_; }
  string found() const override { return shown(found_.name, found_.comment); }

 private:
  GenRegServices registry_;
  GenRegServicesRecord found_{};
};

class InitLibrary : public Library {
 public:
  // Without its paths the first update would report that the lock cannot be taken.
  explicit InitLibrary(string path) { (void)registry_.setPaths(path.data()); }
  unsigned run(const Operation& operation) override {
    return runOn<GenRegInitTab, InitLine>(registry_, operation, initFrom(operation.key),
                                          initFrom(operation.record), &found_);
  }
  unsigned next(const Operation& operation) override {
    return registry_.GetNext(operation.mask, initFrom(operation.key).record(), &found_);
  }
  GenRegText& registry() override { return registry_; }
  string found() const override { return shown(found_.id, found_.comment); }

 private:
  GenRegInitTab registry_;
  GenRegInitTabRecord found_{};
};

string described(const Record& record) {
  const auto text = [](const std::optional<string>& given) {
    return given ? "'" + escaped(*given) + "'" : string("-");
  };
  return "{" + text(record.name) + " " + text(record.runlevel) + " " + text(record.value) + " " +
         text(record.command) + " " + std::to_string(record.port) + " aliases " +
         std::to_string(record.aliases.size()) + " note " + text(record.note) + "}";
}

}  // namespace

string escaped(const string& bytes) {
  string out;
  for (const char c : bytes) {
    char code[8];
    const bool plain = c >= ' ' && c <= '~' && c != '\\';
    std::snprintf(code, sizeof code, plain ? "%c" : "\\x%02x",
                  static_cast<unsigned>(static_cast<unsigned char>(c)));
    out += code;
  }
  return out;
}

string randomFile(Format format, Choices& choices) {
  string bytes;
  for (unsigned lines = choices.below(9); lines > 0; --lines) {
    const unsigned kind = choices.below(40);
    if (kind == 39) {
      bytes += longLine(format, choices);
    } else {
      bytes += kind < 6 ? wildLine(choices) : ordinaryLine(format, choices);
    }
    bytes += '\n';
  }
  if (!bytes.empty() && oneIn(choices, 4)) bytes.pop_back();
  return bytes;
}

Operation randomOperation(Format format, Choices& choices) {
  Operation operation;
  operation.verb = pick(choices, {Verb::kAdd, Verb::kChange, Verb::kChange, Verb::kRemove,
                                  Verb::kRemove, Verb::kFind});
  operation.mask = pick(choices, {1ULL, 1ULL, 1ULL, 3ULL, 5ULL, 2ULL, 9ULL, 0ULL, ~0ULL});
  operation.key = randomRecord(format, choices);
  operation.record = randomRecord(format, choices);
  return operation;
}

std::unique_ptr<Library> libraryFor(Format format, const string& path) {
  if (format == Format::kProfile) return std::make_unique<ProfileLibrary>(path);
  if (format == Format::kServices) return std::make_unique<ServicesLibrary>(path);
  return std::make_unique<InitLibrary>(path);
}

Outcome expected(Format format, const string& bytes, const Operation& operation) {
  constexpr unsigned kBadRecord = 0x900001FC;
  constexpr unsigned kNoMatch = 0x900001F6;
  switch (operation.verb) {
    case Verb::kAdd:
      return add(format, bytes, operation.mask, operation.record);
    case Verb::kChange:
      return change(format, bytes, operation.mask, operation.key, operation.record);
    case Verb::kRemove:
      return remove(format, bytes, operation.mask, operation.key);
    case Verb::kFind:
      break;
  }
  if (!isAcceptable(format, operation.mask, operation.key)) return {kBadRecord, bytes};
  const bool found = find(format, bytes, operation.mask, operation.key).has_value();
  return {found ? 0U : kNoMatch, bytes};
}

string expectedFound(Format format, const string& bytes, const Operation& operation) {
  const std::optional<string> line = find(format, bytes, operation.mask, operation.key);
  if (!line) return "nothing";
  const std::optional<Record> record = parse(format, *line);
  const auto pointer = [](const std::optional<string>& text) {
    return text ? text->c_str() : nullptr;
  };
  return shown(pointer(record->name), pointer(record->note));
}

string described(Format format, const string& bytes, const Operation& operation) {
  const char* const kFormats[] = {"profile", "services", "init table"};
  const char* const kVerbs[] = {"add", "change", "remove", "find"};
  return string(kFormats[static_cast<int>(format)]) + " " +
         kVerbs[static_cast<int>(operation.verb)] + " mask " + std::to_string(operation.mask) +
         " key " + described(operation.key) + " record " + described(operation.record) + "\n" +
         escaped(bytes);
}

}  // namespace vrxtest::model
