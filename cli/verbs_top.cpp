// SPDX-License-Identifier: Apache-2.0
// where, version, explain: verbs that need no record.
#include <fmt/format.h>

#include <cctype>

#include "cli/location.h"
#include "cli/text.h"
#include "cli/verbs.h"
#include "oss/version_code.h"

namespace cli {

namespace {

Field textField(const char* name, const char* heading) {
  return {name, heading, Kind::text};
}

Answer flatAnswer(const char* schema, std::vector<Field> fields, std::vector<Value> values) {
  Answer answer;
  answer.schema = schema;
  answer.shape = Shape::flat;
  answer.fields = std::move(fields);
  answer.columns = allColumns(answer.fields);
  answer.rows = {Row{"", std::move(values), {}}};
  return answer;
}

// The one word that the verb is about.
std::string takeWord(Command& command, const char* what) {
  if (command.words.empty()) throw usageFailure(fmt::format("{} is missing", what));
  std::string word = command.words.front();
  command.words.erase(command.words.begin());
  refuseWords(command);
  return word;
}

// Dotted text, a 64-bit code in hexadecimal, or a level number, which is above any single part.
Version versionOf(const std::string& text) {
  constexpr std::uint64_t kLargestPart = 0xFFFF;
  Version version;
  std::uint64_t number = 0;
  if (parseVersion(text, &version)) return version;
  const bool hexadecimal = text.rfind("0x", 0) == 0;
  if (hexadecimal && parseNumber(text, UINT64_MAX, &number)) return {number};
  if (!hexadecimal && parseNumber(text, UINT32_MAX, &number) && number > kLargestPart) {
    return {ossVersionCodeVRXToService(static_cast<unsigned int>(number))};
  }
  Failure failure(
      Exit::refused,
      fmt::format("\"{}\" is no version: 3.1.0.7, 0x0003000100000007 or 3010007", text));
  failure.code = genreg::status::version_malformed;
  throw failure;
}

// Parts above 99 do not fit into a level number; it is then left out rather than wrong.
Value levelOf(Version version) {
  const int level = ossVersionCodeServiceToVRX(version.code);
  if (level < 0 || ossVersionCodeVRXToService(static_cast<unsigned int>(level)) != version.code) {
    return {};
  }
  return static_cast<std::uint64_t>(level);
}

// The code as programs print it: hexadecimal with or without 0x, a negative number, or its name.
const GenRegStatusInfo* rowByName(const std::string& name) {
  unsigned long count = 0;
  const GenRegStatusInfo* rows = genregStatusTable(&count);
  for (unsigned long i = 0; i < count; ++i) {
    if (name == rows[i].name) return &rows[i];
  }
  return nullptr;
}

bool parseCode(const std::string& text, GenRegStatus* code) {
  constexpr std::uint64_t kTwoTo32 = 0x100000000u;
  if (const GenRegStatusInfo* row = rowByName(text)) {
    *code = row->code;
    return true;
  }
  std::uint64_t number = 0;
  const bool negative = text.rfind('-', 0) == 0;
  const bool bare =
      text.size() == 8 && text.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
  const std::string digits = negative ? text.substr(1) : (bare ? "0x" + text : text);
  if (!parseNumber(digits, UINT32_MAX, &number)) return false;
  *code = static_cast<GenRegStatus>(negative ? kTwoTo32 - number : number);
  return true;
}

struct Remedy {
  GenRegStatus code;
  const char* text;
};

// Where the command line knows more to do than the library's own table.
constexpr Remedy kRemedies[] = {
    {genreg::status::several_match,
     "name the record fully (`ports`: NAME/PROTOCOL), or --all where the format allows "
     "duplicates."},
};

std::string remedyOf(const GenRegStatusInfo& info) {
  for (const Remedy& remedy : kRemedies) {
    if (remedy.code == info.code) return remedy.text;
  }
  std::string text = info.remedy;
  if (text.size() > 1 && std::islower(static_cast<unsigned char>(text[1])) != 0) {
    text[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(text[0])));
  }
  return text;
}

std::string explanation(const std::string& code, const std::string& meaning, Exit exit) {
  return fmt::format("{}: {} (exit {})\n", code, meaning, static_cast<int>(exit));
}

}  // namespace

Exit runWhere(Command& command) {
  refuseWords(command);
  const Arguments& arguments = command.arguments;
  if (arguments.registry) useRegistry(*arguments.registry);
  const std::string path = registryPathOf(vrx::GlobalRegistry(scopeOf(arguments)));
  const std::string reason = registryReason(arguments);
  Answer answer = flatAnswer("vrxreg.where/1", {textField("registry", "REGISTRY")}, {path});
  if (arguments.why) {
    answer.fields.push_back(textField("reason", "REASON"));
    answer.fields.push_back({"exists", "EXISTS", Kind::boolean});
    answer.columns = allColumns(answer.fields);
    answer.rows.front().values.insert(answer.rows.front().values.end(),
                                      {Value(reason), Value(registryExists(path))});
  }
  answer.plain = displayText(path) + "\n" + (arguments.why ? displayText(reason) + "\n" : "");
  command.output = render(answer, arguments);
  return Exit::done;
}

Exit runVersion(Command& command) {
  const Version version = versionOf(takeWord(command, "a version (3.1.0.7)"));
  const std::vector<Field> fields = {{"version", "VERSION", Kind::version},
                                     textField("code", "CODE"),
                                     {"level", "LEVEL", Kind::number}};
  Answer answer = flatAnswer("vrxreg.version/1", fields,
                             {version, fmt::format("0x{:016X}", version.code), levelOf(version)});
  const bool json = command.arguments.form == Form::json || command.arguments.form == Form::ndjson;
  if (json) answer.columns = {0, 2};  // a version brings its code along
  command.output = render(answer, command.arguments);
  return Exit::done;
}

Exit runExplain(Command& command) {
  const std::string word = takeWord(command, "a status code (0x900001F6)");
  GenRegStatus code = 0;
  if (!parseCode(word, &code)) throw usageFailure(fmt::format("{}: no status code", word));
  const GenRegStatusInfo* info = genregStatusInfo(code);
  const std::string meaning = meaningOf(code);
  const bool system = meaning.rfind("system error", 0) == 0;
  if (info == nullptr && !system) {
    throw Failure(Exit::no, fmt::format("{}: no status code of this library", codeText(code)));
  }
  const Exit exit = exitOf(code);
  const std::string name = info == nullptr ? "system_error" : info->name;
  const Value raisedBy = info == nullptr ? Value{} : Value(std::string(info->raisedBy));
  const Value remedy = info == nullptr ? Value{} : Value(remedyOf(*info));
  Answer answer = flatAnswer("vrxreg.explain/1",
                             {textField("code", "CODE"),
                              textField("name", "NAME"),
                              textField("meaning", "MEANING"),
                              textField("raised_by", "RAISED_BY"),
                              textField("remedy", "REMEDY"),
                              {"exit", "EXIT", Kind::number}},
                             {codeText(code), name, meaning, raisedBy, remedy,
                              static_cast<std::uint64_t>(static_cast<int>(exit))});
  answer.plain = explanation(codeText(code), meaning, exit);
  if (info != nullptr) {
    *answer.plain += fmt::format("Raised by: {}. Do: {}\n", info->raisedBy, remedyOf(*info));
  }
  command.output = render(answer, command.arguments);
  return Exit::done;
}

}  // namespace cli
