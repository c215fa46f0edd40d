// SPDX-License-Identifier: Apache-2.0
// service sync-fixpack: brings the fix-pack numbers of the service records in line with the
// installed level. The library's own function does the work, in a dry run on a private copy of the
// registry.
#include <fmt/format.h>

#include "cli/change_target.h"
#include "cli/verbs.h"
#include "globalreg/fixpack_sync.h"
#include "platform/install/level_info.h"

namespace cli {

namespace {

namespace status = genreg::status;

// Looking first gives the level file's own failures, before the registry is touched.
sqleLevelInfo installedLevel() {
  sqleLevelInfo level{};
  const GenRegStatus rc = sqleGetLevelInfo(kSqleLevelInfoVersion, &level);
  if (rc != status::ok) throw failureOf(rc, "service sync-fixpack", "");
  return level;
}

// The global registry in the file that the command is for: the host's, or a dry run's private copy.
class ChosenRegistry : public GlobalReg {
 public:
  ChosenRegistry(const std::string& path, GenRegStatus* rc) : GlobalReg(true) {
    *rc = setRegistryPaths(path.c_str());
  }
};

// One synchronisation of the registry at `path`; a dry run's tells nobody.
vrx::Status synchronise(const Arguments& arguments, const std::string& path) {
  GenRegStatus rc = status::ok;
  ChosenRegistry registry(path, &rc);
  if (rc != status::ok) return vrx::Status(rc, path);
  registry.CallerArgCount = arguments.count;
  registry.CallerArgs = arguments.strings;
  if (arguments.dryRun) {
    // Both are set by every global registry, so there is nothing that could fail.
    (void)registry.unsetFeature(kGenRegChangeLog);
    (void)registry.unsetFeature(kGenRegNotify);
  }
  unsigned int changed = 0;
  return vrx::Status(genregSyncGlobalRegFixpackNumber(&registry, &changed));
}

// Notes what has become of each record.
void compare(const Command& command, const Target& target, const std::vector<Record>& before,
             const std::vector<Record>& after, Done* done, std::string* firstKey) {
  for (const Record& old : before) {
    for (const Record& now : after) {
      if (!sameKey(*command.noun, old.row, now.row)) continue;
      if (old.kept->bytes() == now.kept->bytes()) continue;
      if (done->count == 0) *firstKey = now.row.key;
      done->note(*command.noun, old.row, now.row, target.newRemark());
    }
  }
}

// Changes made before a failure stand.
[[noreturn]] void failAfter(const Done& done, Failure failure) {
  if (done.count > 0) {
    const std::string untrue = "; nothing changed";
    const std::size_t at = failure.message.find(untrue);
    if (at != std::string::npos) failure.message.erase(at, untrue.size());
    failure.message += fmt::format("; {} had been changed before", done.count);
  }
  throw failure;
}

Exit report(Command& command, const Target& target, const Done& done, const std::string& key,
            const sqleLevelInfo& level) {
  ChangeReport result;
  result.noun = command.noun;
  result.key = done.count == 0 ? level.version : key;
  result.action = done.count == 0 ? Action::none : Action::change;
  result.dryRun = command.arguments.dryRun;
  result.count = done.count;
  result.before = done.before;
  result.after = done.after;
  result.remark = fmt::format("fix pack {}", level.fixpackNumber);
  if (command.arguments.dryRun || command.arguments.diff) result.diff = target.difference(done);
  command.output = render(result, command.arguments);
  return command.arguments.detailedExitCode && done.count > 0 ? Exit::changed : Exit::done;
}

}  // namespace

Exit runSyncFixpack(Command& command) {
  refuseWords(command);
  const sqleLevelInfo level = installedLevel();
  Target target(command);
  target.requireFile();
  Done done;
  std::string key;
  const std::vector<Record> before = target.read(done);
  const auto look = [&] { compare(command, target, before, target.read(done), &done, &key); };
  vrx::Status synced;
  try {
    synced = target.run([&] { return synchronise(command.arguments, target.store().path()); });
  } catch (const Failure& busy) {
    look();
    failAfter(done, busy);
  }
  look();
  if (!synced) failAfter(done, failureOf(synced.code(), target.path(), target.path()));
  return report(command, target, done, key, level);
}

}  // namespace cli
