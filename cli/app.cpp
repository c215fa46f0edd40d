// SPDX-License-Identifier: Apache-2.0
// From words to a verb, and from a verb's answer or failure to the streams and the exit status.
#include "cli/app.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>

#include "cli/help.h"
#include "cli/text.h"
#include "cli/verbs.h"
#include "platform/osse/file_handle.h"
#include "platform/osse/log.h"
#include "platform/osse/names.h"

namespace cli {

namespace {

// Words of the same language that this version does not speak yet.
constexpr const char* kLaterWords[] = {
    "export", "import", "diff",    "batch",      "check",  "repair", "salvage", "history",
    "show",   "undo",   "restore", "watch",      "wait",   "status", "lock",    "monitor",
    "report", "facts",  "schema",  "completion", "rename", "edit"};

bool isLaterWord(const std::string& word) {
  for (const char* later : kLaterWords) {
    if (word == later) return true;
  }
  return false;
}

template <typename Table>
void addNames(const Table& table, std::vector<std::string>* names) {
  for (const auto& entry : table)
    names->emplace_back(entry.name);
}

// Verbs of two words that share the first follow each other.
void addFirstWords(const std::vector<Verb>& verbs, std::vector<std::string>* names) {
  for (const Verb& verb : verbs) {
    const std::string first = split(verb.name, ' ').front();
    if (names->empty() || names->back() != first) names->push_back(first);
  }
}

[[noreturn]] void unknownWord(const std::string& word) {
  if (word == "services") {
    throw usageFailure(
        "services: which one? `service` (installed copies) or `ports` (the host's services file)");
  }
  if (isLaterWord(word)) throw usageFailure(fmt::format("{}: not in this version of vrxreg", word));
  std::vector<std::string> names;
  addNames(nouns(), &names);
  addFirstWords(topVerbs(), &names);
  throw usageFailure(fmt::format("{}: no such noun or verb{}; there are {}", word,
                                 suggestion(word, names), join(names, ", ")));
}

[[noreturn]] void unknownVerb(const Noun& noun, const std::string& word) {
  if (isLaterWord(word)) {
    throw usageFailure(fmt::format("{} {}: not in this version of vrxreg", noun.name, word));
  }
  const std::vector<Verb> verbs = verbsOf(noun);
  std::vector<std::string> names;
  addNames(verbs, &names);
  throw usageFailure(fmt::format("{} {}: no such verb{}; there are {}", noun.name, word,
                                 suggestion(word, names), join(names, ", ")));
}

void refuseForeignOptions(const Arguments& arguments, const Noun* noun, const Verb& verb) {
  const std::string what = (noun == nullptr ? "" : std::string(noun->name) + " ") + verb.name;
  const std::string foreign = firstForeignOption(arguments, acceptsOf(verb, noun));
  if (!foreign.empty()) throw usageFailure(fmt::format("{} does not apply to {}", foreign, what));
  const bool listForm = arguments.form == Form::csv || arguments.form == Form::tsv ||
                        arguments.form == Form::sh || arguments.form == Form::value;
  if (verb.forms == Forms::report && listForm) {
    throw usageFailure(fmt::format("{} reports as table, json, ndjson or name only", what));
  }
  if (arguments.zero && arguments.form != Form::name && arguments.form != Form::value) {
    throw usageFailure("-0 goes with -o name and -o value");
  }
}

Exit runVerb(const Arguments& arguments, const Noun* noun, const Verb& verb, std::size_t taken,
             std::string* output) {
  if (arguments.help) {
    *output = verbHelp(noun, verb);
    return Exit::done;
  }
  refuseForeignOptions(arguments, noun, verb);
  const auto rest = arguments.words.begin() + static_cast<std::ptrdiff_t>(taken);
  Command command{arguments, noun, {rest, arguments.words.end()}, ""};
  const Exit exit = verb.run(command);
  *output = std::move(command.output);
  return exit;
}

Exit runNoun(const Arguments& arguments, const Noun& noun, std::string* output) {
  const std::vector<Verb> verbs = verbsOf(noun);
  if (arguments.words.size() > 1) {
    const Verb* verb = findVerb(verbs, arguments.words[1]);
    if (verb == nullptr) unknownVerb(noun, arguments.words[1]);
    return runVerb(arguments, &noun, *verb, 2, output);
  }
  if (arguments.help) {
    *output = nounHelp(noun);
    return Exit::done;
  }
  std::vector<std::string> names;
  addNames(verbs, &names);
  throw usageFailure(
      fmt::format("{}: a verb is missing; there are {}", noun.name, join(names, ", ")));
}

// A verb of two words, of which the first stands for several.
Exit runSecondWord(const Arguments& arguments, const std::vector<std::string>& seconds,
                   std::string* output) {
  const std::string& first = arguments.words.front();
  if (arguments.words.size() > 1) {
    const std::string& second = arguments.words[1];
    const Verb* verb = findVerb(topVerbs(), first + " " + second);
    if (verb != nullptr) return runVerb(arguments, nullptr, *verb, 2, output);
    throw usageFailure(fmt::format("{} {}: no such verb{}; there are {}", first, second,
                                   suggestion(second, seconds), join(seconds, ", ")));
  }
  if (!arguments.help) {
    throw usageFailure(
        fmt::format("{}: a verb is missing; there are {}", first, join(seconds, ", ")));
  }
  *output = groupHelp(first);
  return Exit::done;
}

Exit dispatch(const Arguments& arguments, std::string* output) {
  if (arguments.showVersion) {
    *output = "vrxreg " VRXREG_VERSION "\n";
    return Exit::done;
  }
  if (arguments.words.empty()) {
    if (!arguments.help) throw usageFailure("what to do? See vrxreg --help");
    *output = generalHelp();
    return Exit::done;
  }
  if (const Noun* noun = findNoun(arguments.words.front()))
    return runNoun(arguments, *noun, output);
  const std::vector<std::string> seconds = wordsBehind(arguments.words.front());
  if (!seconds.empty()) return runSecondWord(arguments, seconds, output);
  const Verb* verb = findVerb(topVerbs(), arguments.words.front());
  if (verb == nullptr) unknownWord(arguments.words.front());
  return runVerb(arguments, nullptr, *verb, 1, output);
}

void printFailure(const Failure& failure, bool json, bool quiet) {
  if (quiet && failure.exit == Exit::no) return;
  std::string text = fmt::format("vrxreg: {}", displayText(failure.message));
  if (failure.code != genreg::status::ok) text += fmt::format(" ({})", codeText(failure.code));
  text += '\n';
  std::fputs(json ? renderJson(failure).c_str() : text.c_str(), stderr);
}

void printLogEntry(const OSSLogEntry* entry, void*) {
  const std::string inner = entry->inner == 0 ? "" : fmt::format(" ({})", meaningOf(entry->inner));
  const std::string text = fmt::format(
      "vrxreg: log: {} {}: {} {}{} {}\n", ecfGetFunctionName(entry->function), entry->probe,
      codeText(entry->code), meaningOf(entry->code), inner, displayText(entry->text));
  std::fputs(text.c_str(), stderr);
}

void prepareProcess(const Arguments& arguments) {
  ossSetLockTimeLimit(arguments.timeLimit);
  if (!arguments.verbose) return;
  (void)ossSetLogCallback(&printLogEntry, nullptr);  // without it there is just less to read
}

// A standard stream that the caller has closed must not become the registry's descriptor: what is
// printed would end in the registry. The stand-ins refuse every write.
void reserveStandardStreams() {
  for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
    if (fcntl(descriptor, F_GETFD) == -1) (void)open("/dev/null", O_RDONLY);
  }
}

}  // namespace

int run(int count, char** strings) {
  reserveStandardStreams();
  std::signal(SIGPIPE, SIG_IGN);  // a reader that goes away is a failed write
  const bool json = asksForJson(count, strings);
  bool quiet = false;
  try {
    const Arguments arguments = parseArguments(count, strings);
    quiet = arguments.quiet;
    prepareProcess(arguments);
    std::string output;
    const Exit exit = dispatch(arguments, &output);
    writeOutput(output);
    return static_cast<int>(exit);
  } catch (const Failure& failure) {
    printFailure(failure, json, quiet);
    return static_cast<int>(failure.exit);
  }
}

}  // namespace cli
