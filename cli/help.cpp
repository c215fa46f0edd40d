// SPDX-License-Identifier: Apache-2.0
// Help for all of the command line, for a noun, for a verb.
#include "cli/help.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>

#include "cli/text.h"

namespace cli {

namespace {

std::string verbLines(const std::vector<Verb>& verbs) {
  std::size_t names = 8;
  std::size_t usages = 22;
  for (const Verb& verb : verbs) {
    names = std::max(names, std::strlen(verb.name));
    usages = std::max(usages, std::strlen(verb.usage));
  }
  std::string text;
  for (const Verb& verb : verbs)
    text += fmt::format("  {:<{}} {:<{}} {}\n", verb.name, names, verb.usage, usages, verb.summary);
  return text;
}

// The verbs that only this noun has.
std::string ownVerbLines(const Noun& noun) {
  std::vector<Verb> verbs = verbsOf(noun);
  verbs.erase(verbs.begin(), verbs.begin() + static_cast<std::ptrdiff_t>(nounVerbs().size()));
  return verbLines(verbs);
}

std::string describe(const Field& field) {
  switch (field.kind) {
    case Kind::number:
      return "a number, 0 to 4294967295";
    case Kind::boolean:
      return "yes or no";
    case Kind::version:
      return "a version, as 3.1.0.7";
    case Kind::byte:
      return "a number, 0 to 255, or one character other than a digit";
    case Kind::port:
      return "a number, 1 to 65535";
    case Kind::integer:
      return "a number, -2147483648 to 2147483647";
    case Kind::list:
      return "texts with commas between them";
    case Kind::text:
    case Kind::time:
      break;
  }
  return fmt::format("text, at most {} bytes", field.maxBytes);
}

std::string fieldLines(const Noun& noun) {
  std::string text;
  for (const Field& field : noun.fields) {
    if (field.presence == Presence::derived) continue;
    const char* remark = isKeyField(field) ? ", part of the key" : "";
    text += fmt::format("  {:<14} {}{}\n", field.name, describe(field), remark);
  }
  return text;
}

constexpr const char* kExits =
    "Exit status: 0 done, 1 not found, 2 usage, 3 lock busy, 4 registry missing,\n"
    "  5 exists or ambiguous, 6 damaged, 7 value refused, 8 permission or input/output,\n"
    "  9 verification failed, 10 changed (--detailed-exitcode), 70 a defect of vrxreg\n";

}  // namespace

std::string generalHelp() {
  std::string text =
      "Usage: vrxreg [OPTIONS] NOUN VERB [KEY] [FIELD=VALUE ...]\n"
      "       vrxreg [OPTIONS] VERB ...\n\nNouns:\n";
  for (const Noun& noun : nouns()) {
    text += fmt::format("  {:<10} {} ({})\n", noun.name, noun.what, noun.keyForm);
  }
  text += "\nVerbs of every noun:\n" + verbLines(nounVerbs());
  for (const Noun& noun : nouns()) {
    const std::string own = ownVerbLines(noun);
    if (!own.empty()) text += fmt::format("\nVerbs of {} alone:\n{}", noun.name, own);
  }
  return text + "\nOther verbs:\n" + verbLines(topVerbs()) + "\nOptions (anywhere):\n" +
         optionsHelp() + "\n" + kExits;
}

std::string nounHelp(const Noun& noun) {
  return fmt::format("Usage: vrxreg {0} VERB ...: {1}\n\nKey: {2}, shorter while it is unique\n\n",
                     noun.name, noun.what, noun.keyForm) +
         "Verbs:\n" + verbLines(verbsOf(noun)) + "\nFields:\n" + fieldLines(noun);
}

std::string groupHelp(const std::string& first) {
  std::vector<Verb> verbs;
  for (const std::string& second : wordsBehind(first))
    verbs.push_back(*findVerb(topVerbs(), fmt::format("{} {}", first, second)));
  return fmt::format("Usage: vrxreg {} VERB ...\n\nVerbs:\n", first) + verbLines(verbs);
}

std::string verbHelp(const Noun* noun, const Verb& verb) {
  const std::string subject = noun == nullptr ? "" : std::string(noun->name) + " ";
  std::string text =
      fmt::format("Usage: vrxreg {}{} {}\n{}\n", subject, verb.name, verb.usage, verb.summary);
  if (noun != nullptr)
    text += fmt::format("\nKey: {}\n\nFields:\n{}", noun->keyForm, fieldLines(*noun));
  return text + "\nOptions (those that the verb understands):\n" +
         optionsHelp(acceptsOf(verb, noun));
}

}  // namespace cli
