// SPDX-License-Identifier: Apache-2.0
// The tables of verbs.
#include "cli/verbs.h"

namespace cli {

namespace {

constexpr unsigned kPlace = kAcceptsRegistry | kAcceptsFile;
constexpr unsigned kShown = kAcceptsFields | kAcceptsHeadings | kAcceptsZero;
constexpr unsigned kRows = kPlace | kShown;
constexpr unsigned kChange =
    kPlace | kAcceptsKeyParts | kAcceptsDryRun | kAcceptsDetailed | kAcceptsZero;
constexpr unsigned kSteps = kPlace | kAcceptsDryRun | kAcceptsDetailed | kAcceptsZero;
constexpr unsigned kPlain = kAcceptsRegistry | kAcceptsHeadings | kAcceptsZero;

}  // namespace

const std::vector<Verb>& nounVerbs() {
  static const std::vector<Verb> verbs = {
      {"list", "", "all records, or those that --where selects",
       kRows | kAcceptsWhere | kAcceptsSort | kAcceptsAllLines, Forms::all, &runList},
      {"get", "KEY [FIELD...]", "one record, or some of its fields", kRows | kAcceptsKeyParts,
       Forms::all, &runGet},
      {"exists", "KEY", "exit 0 when the record exists, 1 when it does not",
       kPlace | kAcceptsKeyParts | kAcceptsHeadings | kAcceptsZero, Forms::all, &runExists},
      {"count", "", "how many records there are",
       kPlace | kAcceptsWhere | kAcceptsHeadings | kAcceptsZero, Forms::all, &runCount},
      {"add", "KEY [FIELD=VALUE...]", "a new record; refuses one that exists",
       kChange | kAcceptsUnset, Forms::report, &runAdd},
      {"set", "KEY [FIELD=VALUE...]", "change these fields, or add the record",
       kChange | kAcceptsUnset | kAcceptsMustExist | kAcceptsReplace | kAcceptsAll, Forms::report,
       &runSet},
      {"remove", "KEY", "remove the record", kChange | kAcceptsMissingOk | kAcceptsAll,
       Forms::report, &runRemove},
  };
  return verbs;
}

std::vector<Verb> verbsOf(const Noun& noun) {
  std::vector<Verb> verbs = nounVerbs();
  if (std::string_view(noun.name) == "service") {
    verbs.push_back({"sync-fixpack", "", "the installed fix-pack number into the service records",
                     kAcceptsRegistry | kAcceptsDryRun | kAcceptsDetailed | kAcceptsZero,
                     Forms::report, &runSyncFixpack});
  }
  return verbs;
}

const std::vector<Verb>& topVerbs() {
  static const std::vector<Verb> verbs = {
      {"where", "[--why]", "the global registry in use, and what chose it", kPlain | kAcceptsWhy,
       Forms::all, &runWhere},
      {"version", "V", "a version as text, code and level number", kPlain, Forms::all, &runVersion},
      {"explain", "CODE", "what a status code means and what to do next", kPlain, Forms::all,
       &runExplain},
      {"log", "[-F]", "the changes of global registries, as they were logged",
       kShown | kAcceptsFile | kAcceptsWhere | kAcceptsSort | kAcceptsFollow, Forms::all, &runLog},
      {"leftovers list", "[NOUN]", "what interrupted updates left beside a registry",
       kRows | kAcceptsWhere | kAcceptsSort, Forms::all, &runLeftoversList},
      {"leftovers diff", "[NOUN] tmp|cor|bkp", "what a leftover holds that the registry does not",
       kPlace | kAcceptsHeadings | kAcceptsZero, Forms::all, &runLeftoversDiff},
      {"leftovers promote", "[NOUN] tmp|cor|bkp", "make a leftover the registry; needs --yes",
       kSteps, Forms::report, &runLeftoversPromote},
      {"leftovers clean", "[NOUN] [tmp|cor|bkp|lock...]", "remove leftovers; needs --yes", kSteps,
       Forms::report, &runLeftoversClean},
  };
  return verbs;
}

unsigned acceptsOf(const Verb& verb, const Noun* noun) {
  return noun == nullptr ? verb.accepts : verb.accepts & (~kAcceptsOfNouns | noun->accepts);
}

std::vector<std::string> wordsBehind(std::string_view first) {
  const std::string begin = std::string(first) + " ";
  std::vector<std::string> words;
  for (const Verb& verb : topVerbs()) {
    const std::string name = verb.name;
    if (name.rfind(begin, 0) == 0) words.push_back(name.substr(begin.size()));
  }
  return words;
}

const Verb* findVerb(const std::vector<Verb>& verbs, std::string_view name) {
  for (const Verb& verb : verbs) {
    if (name == verb.name) return &verb;
  }
  return nullptr;
}

}  // namespace cli
