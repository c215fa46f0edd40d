// SPDX-License-Identifier: Apache-2.0
// The options as data for the parser, and what CLI11 leaves to us: words, unknown options, values.
#include "cli/arguments.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <map>

#include "cli/failure.h"
#include "cli/text.h"

namespace cli {

namespace {

constexpr const char* kForms[] = {"table", "wide", "json", "ndjson", "csv",
                                  "tsv",   "sh",   "name", "value"};

constexpr double kLongestWait = 1e9;  // seconds; the next larger wait is "inf"

// What the parser leaves as text until all of it has been read.
struct Raw {
  std::string form = "table";
  std::string fields;
  std::string timeout;
  std::string color = "auto";
  bool harmless = false;
};

// One option for help: its spelling and its Accepts bit, 0 when it is harmless everywhere.
struct OptionRow {
  const char* name;   // as the parser knows it
  const char* usage;  // as help shows it
  unsigned bit;
  const char* text;
};

constexpr OptionRow kOptions[] = {
    {"--registry", "--registry FILE", kAcceptsRegistry, "the global registry to use"},
    {"--host-wide", "--host-wide", kAcceptsRegistry, "skip the instance's own registry"},
    {"--file", "-f, --file FILE", kAcceptsFile, "the file to use"},
    {"--output", "-o, --output FORM", 0, "table, wide, json, ndjson, csv, tsv, sh, name, value"},
    {"--fields", "--fields A,B", kAcceptsFields, "these fields, in this order"},
    {"--where", "--where EXPR", kAcceptsWhere, "F=GLOB, F!=GLOB, F~REGEX, F>=V ...; all must hold"},
    {"--sort", "--sort [-]FIELD", kAcceptsSort, "in the order of a field; - turns it round"},
    {"--all-lines", "--all-lines", kAcceptsAllLines, "every line of the file, with its number"},
    {"--no-headings", "--no-headings", kAcceptsHeadings, "no headings in tables, csv and tsv"},
    {"-0", "-0", kAcceptsZero, "end names and values with a NUL byte"},
    {"--service", "--service S", kAcceptsKeyParts, "the key's service, when a name holds \"/\""},
    {"--version-of", "--version-of V", kAcceptsKeyParts, "the key's version"},
    {"--name", "--name N", kAcceptsKeyParts, "the key's last part"},
    {"--unset", "--unset FIELD", kAcceptsUnset, "make a field absent, as FIELD= does"},
    {"--must-exist", "--must-exist", kAcceptsMustExist, "refuse to add"},
    {"--replace", "--replace", kAcceptsReplace, "exactly the fields given, all others absent"},
    {"--missing-ok", "--missing-ok", kAcceptsMissingOk, "a record that is not there is no failure"},
    {"--all", "--all", kAcceptsAll, "all records of this key, where a format allows several"},
    {"--dry-run", "-n, --dry-run", kAcceptsDryRun, "show what would change, write nothing"},
    {"--diff", "--diff", kAcceptsDryRun, "show the difference, and write"},
    {"--detailed-exitcode", "--detailed-exitcode", kAcceptsDetailed, "10 changed, 0 unchanged"},
    {"--timeout", "--timeout S", 0, "wait at most S seconds for a lock (30; 0; inf)"},
    {"--why", "--why", kAcceptsWhy, "what chose the registry"},
    {"--follow", "-F, --follow", kAcceptsFollow, "go on with what is logged from now on"},
    {"--quiet", "-q, --quiet", 0, "no reports of what was done or not found"},
    {"--verbose", "-v, --verbose", 0, "the library's own log on standard error"},
    {"--color", "--color WHEN", 0, "auto, always, never"},
    {"--yes", "--yes", 0, "do what leftovers promote and clean only show without it"},
    {"--no-history", "--no-history", 0, "accepted everywhere"},
    {"--help", "-h, --help", 0, "this help, also behind a noun or a verb"},
    {"--version", "--version", 0, "the version of vrxreg"},
};

void addReadingOptions(CLI::App& app, Arguments& arguments, Raw& raw) {
  app.add_option("--registry", arguments.registry);
  app.add_flag("--host-wide", arguments.hostWide);
  app.add_option("-f,--file", arguments.file);
  app.add_option("-o,--output", raw.form);
  app.add_option("--fields", raw.fields);
  app.add_option("--where", arguments.where)->allow_extra_args(false);
  app.add_option("--sort", arguments.sort);
  app.add_flag("--all-lines", arguments.allLines);
  app.add_flag("--no-headings", arguments.noHeadings);
  app.add_flag("-0", arguments.zero);
  app.add_option("--service", arguments.service);
  app.add_option("--version-of", arguments.version);
  app.add_option("--name", arguments.name);
  app.add_flag("--why", arguments.why);
  app.add_flag("-F,--follow", arguments.follow);
}

void addChangingOptions(CLI::App& app, Arguments& arguments, Raw& raw) {
  app.add_option("--unset", arguments.unset)->allow_extra_args(false);
  app.add_flag("--must-exist", arguments.mustExist);
  app.add_flag("--replace", arguments.replace);
  app.add_flag("--missing-ok", arguments.missingOk);
  app.add_flag("--all", arguments.all);
  app.add_flag("-n,--dry-run", arguments.dryRun);
  app.add_flag("--diff", arguments.diff);
  app.add_flag("--detailed-exitcode", arguments.detailedExitCode);
  app.add_option("--timeout", raw.timeout);
  app.add_flag("-q,--quiet", arguments.quiet);
  app.add_flag("-v,--verbose", arguments.verbose);
  app.add_option("--color", raw.color);
  app.add_flag("--yes", arguments.yes);
  app.add_flag("--no-history", raw.harmless);
  app.add_flag("-h,--help", arguments.help);
  app.add_flag("--version", arguments.showVersion);
}

Form parseForm(const std::string& text) {
  std::vector<std::string> names(std::begin(kForms), std::end(kForms));
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (text == names[i]) return static_cast<Form>(i);
  }
  throw usageFailure(fmt::format("-o {}: no such form{}; there are {}", text,
                                 suggestion(text, names), join(names, ", ")));
}

long long parseTimeout(const std::string& text) {
  if (text.empty()) return kDefaultTimeLimit;
  if (text == "inf") return kNoTimeLimit;
  char* end = nullptr;
  const double seconds = std::strtod(text.c_str(), &end);
  const bool plain = text.find_first_not_of("0123456789.") == std::string::npos;
  if (!plain || *end != '\0' || !(seconds <= kLongestWait)) {
    throw usageFailure(fmt::format("--timeout {}: give seconds (0, 2, 0.5) or inf", text));
  }
  return std::llround(seconds * 1000);
}

bool parseColor(const std::string& text) {
  if (text == "always") return true;
  if (text == "never") return false;
  if (text != "auto") {
    throw usageFailure(fmt::format("--color {}: give auto, always or never", text));
  }
  const char* noColor = std::getenv("NO_COLOR");
  const char* terminal = std::getenv("TERM");
  if (noColor != nullptr && *noColor != '\0') return false;
  if (terminal == nullptr || std::strcmp(terminal, "dumb") == 0) return false;
  return isatty(STDOUT_FILENO) == 1;
}

std::vector<std::string> optionNames() {
  std::vector<std::string> names;
  for (const OptionRow& option : kOptions)
    names.emplace_back(option.name);
  return names;
}

// A negative number is a word: programs print status codes as such.
bool isOption(const std::string& word) {
  return word.size() > 1 && word[0] == '-' && (word[1] < '0' || word[1] > '9');
}

void takeWords(const std::vector<std::string>& rest, Arguments* arguments) {
  bool wordsOnly = false;
  for (const std::string& word : rest) {
    if (!wordsOnly && word == "--") {
      wordsOnly = true;
    } else if (!wordsOnly && isOption(word)) {
      const std::string name = word.substr(0, word.find('='));
      throw usageFailure(
          fmt::format("{}: no such option{}", name, suggestion(name, optionNames())));
    } else {
      arguments->words.push_back(word);
    }
  }
}

void noteGivenOptions(const CLI::App& app, Arguments* arguments) {
  for (const OptionRow& option : kOptions) {
    if (option.bit != 0 && app.count(option.name) != 0) arguments->given.emplace_back(option.name);
  }
}

// "--name=" would take the next word for its value.
void refuseEmptyValues(int count, char** strings) {
  for (int i = 1; i < count && std::strcmp(strings[i], "--") != 0; ++i) {
    const std::string_view word = strings[i];
    if (word.substr(0, 2) == "--" && word.find('=') == word.size() - 1) {
      throw usageFailure(fmt::format("{}: a value is missing", word));
    }
  }
}

// What only shapes the output may be given again, by an alias and behind it; the last one counts.
// Of two registries or two sorting orders one would be ignored.
void applyRepetitionPolicy(CLI::App& app) {
  for (CLI::Option* option : app.get_options()) {
    if (option->get_items_expected_max() != 1) continue;
    option->multi_option_policy(CLI::MultiOptionPolicy::Throw);
  }
  for (const char* name : {"--output", "--timeout", "--color"}) {
    app.get_option(name)->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
  }
}

// The parser's own words name types and counts that say nothing to the reader.
std::string plainMessage(const CLI::ParseError& error) {
  std::string text = error.what();
  const bool missing = text.find("missing") != std::string::npos;
  if (error.get_name() != "ArgumentMismatch") return text;
  return text.substr(0, text.find(':')) + (missing ? ": a value is missing" : " is given twice");
}

void finish(const CLI::App& app, const Raw& raw, Arguments* arguments) {
  arguments->form = parseForm(raw.form);
  arguments->timeLimit = parseTimeout(raw.timeout);
  arguments->color = parseColor(raw.color);
  if (app.count("--fields") != 0) arguments->fields = split(raw.fields, ',');
  if (arguments->registry && arguments->hostWide) {
    throw usageFailure("--registry and --host-wide exclude each other");
  }
  if (arguments->registry && arguments->registry->empty()) {
    throw usageFailure("--registry: the file's name is empty");
  }
  if (arguments->file && arguments->file->empty()) {
    throw usageFailure("-f: the file's name is empty");
  }
  noteGivenOptions(app, arguments);
  takeWords(app.remaining(), arguments);
}

}  // namespace

Arguments parseArguments(int count, char** strings) {
  refuseEmptyValues(count, strings);
  Arguments arguments;
  Raw raw;
  CLI::App app;
  app.set_help_flag();
  app.allow_extras();
  addReadingOptions(app, arguments, raw);
  addChangingOptions(app, arguments, raw);
  applyRepetitionPolicy(app);
  try {
    app.parse(count, strings);
  } catch (const CLI::ParseError& error) {
    throw usageFailure(plainMessage(error));
  }
  arguments.count = count;
  arguments.strings = strings;
  finish(app, raw, &arguments);
  return arguments;
}

bool asksForJson(int count, char** strings) {
  bool json = false;
  for (int i = 1; i < count && std::strcmp(strings[i], "--") != 0; ++i) {
    std::string word = strings[i];
    if ((word == "-o" || word == "--output") && i + 1 < count)
      word = "-o" + std::string(strings[i + 1]);
    if (word.rfind("--output=", 0) == 0) word = "-o" + word.substr(std::strlen("--output="));
    if (word.rfind("-o", 0) == 0) json = word == "-ojson" || word == "-ondjson";
  }
  return json;
}

std::string firstForeignOption(const Arguments& arguments, unsigned accepts) {
  for (const std::string& name : arguments.given) {
    for (const OptionRow& option : kOptions) {
      if (name == option.name && (option.bit & accepts) == 0) return name;
    }
  }
  return {};
}

std::string optionsHelp(unsigned accepts) {
  std::string text;
  for (const OptionRow& option : kOptions) {
    if (option.bit != 0 && (option.bit & accepts) == 0) continue;
    text += fmt::format("  {:<20} {}\n", option.usage, option.text);
  }
  return text;
}

}  // namespace cli
