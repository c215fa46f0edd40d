// SPDX-License-Identifier: Apache-2.0
// The command line, parsed: options by name, everything else as words in their order.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace cli {

enum class Form { table, wide, json, ndjson, csv, tsv, sh, name, value };

// Which options a verb understands, one bit each; an option that a verb does not understand is a
// usage failure, never ignored. Options without a bit are harmless everywhere.
enum Accepts : unsigned {
  kAcceptsFields = 0x1,
  kAcceptsWhere = 0x2,
  kAcceptsSort = 0x4,
  kAcceptsHeadings = 0x8,
  kAcceptsZero = 0x10,
  kAcceptsKeyParts = 0x20,
  kAcceptsDryRun = 0x40,
  kAcceptsDetailed = 0x80,
  kAcceptsUnset = 0x100,
  kAcceptsMustExist = 0x200,
  kAcceptsReplace = 0x400,
  kAcceptsMissingOk = 0x800,
  kAcceptsAll = 0x1000,
  kAcceptsWhy = 0x2000,
  kAcceptsRegistry = 0x4000,
  kAcceptsFile = 0x8000,
  kAcceptsAllLines = 0x10000,
  kAcceptsFollow = 0x20000
};

// The bits that a verb has only on nouns that have them too.
constexpr unsigned kAcceptsOfNouns =
    kAcceptsAll | kAcceptsRegistry | kAcceptsFile | kAcceptsAllLines;

constexpr long long kNoTimeLimit = -1;
constexpr long long kDefaultTimeLimit = 30000;

struct Arguments {
  std::optional<std::string> registry;
  bool hostWide = false;
  std::optional<std::string> file;

  Form form = Form::table;
  std::vector<std::string> fields;
  std::string sort;
  std::vector<std::string> where;
  bool allLines = false;
  bool noHeadings = false;
  bool zero = false;

  std::optional<std::string> service;
  std::optional<std::string> version;
  std::optional<std::string> name;

  std::vector<std::string> unset;
  bool mustExist = false;
  bool replace = false;
  bool missingOk = false;
  bool all = false;

  bool dryRun = false;
  bool diff = false;
  bool detailedExitCode = false;
  bool yes = false;
  long long timeLimit = kDefaultTimeLimit;  // milliseconds
  bool why = false;
  bool follow = false;

  bool quiet = false;
  bool verbose = false;
  bool color = false;
  bool help = false;
  bool showVersion = false;

  std::vector<std::string> words;  // noun, verb, key, fields
  std::vector<std::string> given;  // the options given that have an Accepts bit

  int count = 0;  // the command line as it was, for the change log
  char** strings = nullptr;
};

// Parses the command line; throws Failure (usage) when it cannot.
Arguments parseArguments(int count, char** strings);

// Whether the command line asks for JSON: for failures met before it is parsed.
bool asksForJson(int count, char** strings);

// The first option given that is not among the Accepts bits; empty for none.
std::string firstForeignOption(const Arguments& arguments, unsigned accepts);

// The table of options for help, one line each: those among the Accepts bits and the general ones.
std::string optionsHelp(unsigned accepts = ~0u);

}  // namespace cli
