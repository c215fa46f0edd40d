// SPDX-License-Identifier: Apache-2.0
// leftovers promote, leftovers clean: what interrupted updates left is put in the registry's place
// or removed, under the registry's lock and never through a link.
//
// Promoting follows the order of an update's commit: the file is on disk before it gets the
// registry's name, and what had that name has a second one on disk before it loses it.
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "cli/leftovers_files.h"
#include "cli/lock_wait.h"
#include "cli/text.h"
#include "genreg/registry.h"
#include "platform/osse/errors.h"
#include "platform/osse/files.h"
#include "platform/osse/paths.h"

namespace cli {

namespace {

namespace status = genreg::status;

enum class Doing { keeps, promotes, removes, leaves };

// One step of a plan, as it is shown and as it is taken.
struct Step {
  Doing doing;
  Companion companion;  // the one that is made, takes the registry's place, is removed or left
  std::string path;
  std::string to;  // the new name; empty for none
  Value records;   // absent when they cannot be read
  std::string note;
};

using Plan = std::vector<Step>;

enum class Tense { would, did };

struct Verbs {
  const char* key;
  const char* would;
  const char* did;
  const char* preposition;
};

constexpr Verbs kVerbs[] = {
    {"keep", "would keep", "kept", "as"},
    {"promote", "would promote", "promoted", "to"},
    {"remove", "would remove", "removed", ""},
    {"leave", "would leave alone", "left alone", ""},
};

const Verbs& verbsOf(Doing doing) {
  return kVerbs[static_cast<std::size_t>(doing)];
}

std::string lineOf(const Step& step, Tense tense) {
  const Verbs& verbs = verbsOf(step.doing);
  std::string line =
      fmt::format("{} {}", tense == Tense::did ? verbs.did : verbs.would, displayText(step.path));
  if (!step.to.empty()) line += fmt::format(" {} {}", verbs.preposition, displayText(step.to));
  if (!isAbsent(step.records)) line += fmt::format(" (records: {})", valueText(step.records));
  if (!step.note.empty()) line += ": " + displayText(step.note);
  return line + "\n";
}

std::string renderPlan(const Command& command, const Subject& subject, const Plan& plan,
                       Tense tense) {
  Answer answer;
  answer.schema = "vrxreg.leftovers.steps/1";
  answer.registry = subject.path;
  answer.fields = {{"action", "ACTION", Kind::text}, {"path", "PATH", Kind::text},
                   {"to", "TO", Kind::text},         {"records", "RECORDS", Kind::number},
                   {"note", "NOTE", Kind::text},     {"done", "DONE", Kind::boolean}};
  answer.columns = allColumns(answer.fields);
  answer.plain = plan.empty() ? "nothing to do\n" : "";
  for (const Step& step : plan) {
    const bool done = tense == Tense::did && step.doing != Doing::leaves;
    answer.rows.push_back({wordOf(step.companion),
                           {std::string(verbsOf(step.doing).key), step.path, textOrAbsent(step.to),
                            step.records, textOrAbsent(step.note), done},
                           {}});
    *answer.plain += lineOf(step, tense);
  }
  if (command.arguments.quiet) answer.plain = "";
  return render(answer, command.arguments);
}

[[noreturn]] void fail(GenRegStatus code, const std::string& path) {
  throw failureOf(code, path, path);
}

void require(GenRegStatus code, const std::string& path) {
  if (code != status::ok) fail(code, path);
}

void giveName(const std::string& from, const std::string& to) {
  if (link(from.c_str(), to.c_str()) != 0) fail(ossErrorMapSystem(errno), to);
}

// --- promote

// What is judged, and what is promoted, is the file that is open here.
struct Source {
  OSSHFile file;
  std::uint64_t records = 0;
};

// A planted second name would let somebody else go on writing into the registry.
void requireOneName(const Found& found) {
  if (found.links == 1) return;
  throw pathFailure(Exit::io, found.path,
                    fmt::format("has {} names, so that other programs may change it unnoticed; "
                                "copy it, and promote the copy",
                                found.links));
}

// What stands at the registry's name must be a file, or nothing.
void requireReplaceable(const Found& registry) {
  if (registry.stands() && !registry.isFile()) fail(oss::status::not_a_regular_file, registry.path);
}

void openSource(const Command& command, const Subject& subject, const Found& found,
                Source* source) {
  openFile(found, &source->file);
  requireOneName(found);
  source->records = readContents(command, subject, found, source->file).recordCount();
}

[[noreturn]] void refuseLoss(const Surroundings& seen) {
  throw pathFailure(Exit::conflict, seen.registry.path,
                    "there is no free name to keep it under: clean bkp or cor first");
}

Value recordsOf(const Command& command, const Subject& subject, const Found& found,
                std::string* note) {
  try {
    return readContents(command, subject, found).recordCount();
  } catch (const Failure& failure) {
    *note = failure.message;
    return {};
  }
}

Step keepingStep(const Command& command, const Subject& subject, const Surroundings& seen,
                 Companion source) {
  const std::optional<Companion> place = placeToKeep(seen, source);
  if (!place) refuseLoss(seen);
  Step step{Doing::keeps, *place, seen.registry.path, seen.at(*place).path, {}, ""};
  std::string problem;
  step.records = recordsOf(command, subject, seen.registry, &problem);
  step.note = "until the next update deletes it" + (problem.empty() ? "" : "; " + problem);
  return step;
}

// The steps that make the source the registry; none when it is the registry already.
Plan planPromotion(const Command& command, const Subject& subject, const Surroundings& seen,
                   Companion companion, Source* source) {
  const Found& found = seen.at(companion);
  requireCompanion(subject, seen, companion);
  requireReplaceable(seen.registry);
  if (isSameFile(found, seen.registry)) return {};
  openSource(command, subject, found, source);
  Plan plan;
  if (seen.registry.stands()) plan.push_back(keepingStep(command, subject, seen, companion));
  plan.push_back(
      {Doing::promotes, companion, found.path, seen.registry.path, Value(source->records), ""});
  return plan;
}

// An interrupted update may not have come to give its copy the registry's owner and mode.
void dressLike(const Found& registry, const OSSHFile& source) {
  OSSHFile standing;
  openFile(registry, &standing);
  ossFileCopyOwnership(standing.getFileHandle(), source.getFileHandle());
  require(ossFileSetPermissions(source.getFileHandle(), registry.mode), registry.path);
}

// The name must still lead to the file that was judged.
void requireUnmoved(const Found& found, const OSSHFile& file) {
  bool same = false;
  require(ossDescriptorNamesPath(file.getFileHandle(), found.path.c_str(), &same), found.path);
  if (same) return;
  throw Failure(Exit::conflict, found.path + ": changed meanwhile");
}

// Waits until the names beside the registry are on the disk.
void syncNames(const Found& registry) {
  char folder[kGenRegPathSize];
  require(ossDirectoryName(registry.path.c_str(), folder, sizeof folder), registry.path);
  require(ossDirectorySync(folder), folder);
}

// Where a registry stands, it has its second name on disk before the rename takes the first away.
void replaceRegistry(const Surroundings& seen, const Found& found, const Found& place) {
  if (!isSameFile(place, seen.registry)) giveName(seen.registry.path, place.path);
  syncNames(seen.registry);
  require(ossFileRename(found.path.c_str(), seen.registry.path.c_str()), seen.registry.path);
}

// Where none stands, a link replaces nothing that a reader may have made meanwhile, and the file
// keeps its old name until the new one is on disk.
void restoreRegistry(const Surroundings& seen, const Found& found) {
  giveName(found.path, seen.registry.path);
  syncNames(seen.registry);
  require(ossFileDelete(found.path.c_str()), found.path);
}

void takePromotion(const Subject& subject, const Surroundings& seen, const Plan& plan,
                   const Source& source) {
  const Step& last = plan.back();
  const Found& found = seen.at(last.companion);
  if (seen.registry.stands()) dressLike(seen.registry, source.file);
  require(ossFileSync(source.file.getFileHandle()), found.path);
  requireUnmoved(found, source.file);
  if (seen.registry.stands()) {
    replaceRegistry(seen, found, seen.at(plan.front().companion));
  } else {
    restoreRegistry(seen, found);
  }
  syncNames(seen.registry);
  const GenRegFile& file = subject.store->file();
  if ((file.features & kGenRegNotify) != 0 && file.notify != nullptr) {
    (void)file.notify();  // the change stands without a listener
  }
}

// --- clean

std::vector<Companion> chosenOrAll(std::vector<Companion> chosen) {
  // The lock file is no leftover: it goes when it is named, and as the last one.
  if (chosen.empty()) chosen = {Companion::temporary, Companion::setAside, Companion::backup};
  std::sort(chosen.begin(), chosen.end());
  chosen.erase(std::unique(chosen.begin(), chosen.end()), chosen.end());
  return chosen;
}

[[noreturn]] void refuseLast(const Subject& subject, const Surroundings& seen,
                             Companion companion) {
  Failure failure(Exit::conflict,
                  fmt::format("{} is {}, and {} may be all that is left of it: promote it, or name "
                              "what to remove ({})",
                              subject.path, seen.registry.stands() ? "empty" : "missing",
                              seen.at(companion).path, wordOf(companion)));
  failure.path = seen.at(companion).path;
  throw failure;
}

Step cleaningStep(const Command& command, const Subject& subject, const Found& found,
                  Companion companion) {
  Step step{Doing::removes, companion, found.path, "", {}, ""};
  if (!found.isFile()) {
    step.doing = Doing::leaves;
    step.note = std::string(describe(found.type)) + ", and no update makes one here";
  } else if (companion != Companion::lock) {
    step.records = recordsOf(command, subject, found, &step.note);
  }
  return step;
}

Plan planCleaning(const Command& command, const Subject& subject, const Surroundings& seen,
                  const std::vector<Companion>& named) {
  Plan plan;
  for (const Companion companion : chosenOrAll(named)) {
    const Found& found = seen.at(companion);
    if (!found.stands()) continue;
    if (named.empty() && mayBeLast(seen, companion)) refuseLast(subject, seen, companion);
    plan.push_back(cleaningStep(command, subject, found, companion));
  }
  return plan;
}

void takeCleaning(const Plan& plan) {
  for (const Step& step : plan) {
    if (step.doing == Doing::removes) require(ossFileDelete(step.path.c_str()), step.path);
  }
}

// --- both

// Holds the registry's lock; the library waits for it as long as the process may.
class UpdateLock {
 public:
  explicit UpdateLock(GenRegFile& file) : file_(file) {
    const GenRegStatus rc = file.Lock(kGenRegLockExclusive | kGenRegLockWait, 0);
    status_ = rc == status::ok ? rc : GenRegStatus{status::lock_not_taken};
  }
  ~UpdateLock() {
    if (status_ == status::ok) (void)file_.UnLock();  // what was done stands, and is on disk
  }
  UpdateLock(const UpdateLock&) = delete;
  UpdateLock& operator=(const UpdateLock&) = delete;
  GenRegStatus status() const { return status_; }

 private:
  GenRegFile& file_;
  GenRegStatus status_ = status::ok;
};

// Runs `work` under the lock. Throws Failure: busy, and what the work throws.
void underLock(const Command& command, const Subject& subject, const std::function<void()>& work) {
  const vrx::Status done = runUpdate(command.arguments, *subject.store, [&] {
    const UpdateLock lock(subject.store->file());
    if (lock.status() == status::ok) work();
    return vrx::Status(lock.status());
  });
  if (!done) fail(done.code(), subject.store->file().lockPath);
}

bool onlyShows(const Arguments& arguments) {
  return arguments.dryRun || !arguments.yes;
}

// What is no file was left alone, and is an error for whoever wanted it removed.
void requireNothingLeft(const Plan& plan) {
  const auto left = [](const Step& step) { return step.doing == Doing::leaves; };
  const auto at = std::find_if(plan.begin(), plan.end(), left);
  if (at == plan.end()) return;
  Failure failure = pathFailure(Exit::io, at->path, at->note + "; left alone");
  failure.code = oss::status::not_a_regular_file;
  throw failure;
}

// Prints the plan, then tells how it ended.
Exit conclude(Command& command, const Subject& subject, const Plan& plan) {
  const Arguments& arguments = command.arguments;
  const Tense tense = onlyShows(arguments) ? Tense::would : Tense::did;
  const std::string text = renderPlan(command, subject, plan, tense);
  const bool refuses = !plan.empty() && !arguments.yes && !arguments.dryRun;
  const auto left = [](const Step& step) { return step.doing == Doing::leaves; };
  if (!refuses && std::none_of(plan.begin(), plan.end(), left)) {
    command.output = text;
    return arguments.detailedExitCode && !plan.empty() ? Exit::changed : Exit::done;
  }
  writeOutput(text);
  requireNothingLeft(plan);
  throw usageFailure("nothing done: --yes does what is shown");
}

}  // namespace

Exit runLeftoversPromote(Command& command) {
  const Subject subject = takeSubject(command);
  const Companion companion = takeCopy(command);
  Surroundings seen = lookAround(subject, LockQuestion::asked);
  Plan plan;
  if (onlyShows(command.arguments)) {
    if (seen.lockIsHeld) throw busyFailure(subject);
    Source source;
    plan = planPromotion(command, subject, seen, companion, &source);
    return conclude(command, subject, plan);
  }
  requireCompanion(subject, seen, companion);
  underLock(command, subject, [&] {
    Source source;
    seen = lookAround(subject, LockQuestion::taken);
    plan = planPromotion(command, subject, seen, companion, &source);
    if (!plan.empty()) takePromotion(subject, seen, plan, source);
  });
  return conclude(command, subject, plan);
}

Exit runLeftoversClean(Command& command) {
  const Subject subject = takeSubject(command);
  const std::vector<Companion> named = takeCompanions(command);
  const Surroundings first = lookAround(subject, LockQuestion::asked);
  if (onlyShows(command.arguments)) {
    if (first.lockIsHeld) throw busyFailure(subject);
    return conclude(command, subject, planCleaning(command, subject, first, named));
  }
  const auto stands = [&](Companion companion) { return first.at(companion).stands(); };
  const std::vector<Companion> chosen = chosenOrAll(named);
  Plan plan;
  if (std::any_of(chosen.begin(), chosen.end(), stands)) {
    underLock(command, subject, [&] {
      const Surroundings seen = lookAround(subject, LockQuestion::taken);
      plan = planCleaning(command, subject, seen, named);
      takeCleaning(plan);
    });
  }
  return conclude(command, subject, plan);
}

}  // namespace cli
