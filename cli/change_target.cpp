// SPDX-License-Identifier: Apache-2.0
// Opening, reading and comparing what a change is made to.
#include "cli/change_target.h"

#include <fstream>
#include <iterator>

#include "cli/location.h"
#include "cli/lock_wait.h"

namespace cli {

namespace {

std::optional<std::string> contentsOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return {};
  return std::string(std::istreambuf_iterator<char>(file), {});
}

// Keeps the first value that each field had.
void keepFirst(const std::optional<Row>& row, std::optional<Row>* first) {
  if (!row) return;
  if (!*first) {
    *first = row;
    return;
  }
  for (std::size_t i = 0; i < row->values.size(); ++i) {
    if (isAbsent((*first)->values[i])) (*first)->values[i] = row->values[i];
  }
}

}  // namespace

void Done::note(const Noun& noun, const std::optional<Row>& old, const std::optional<Row>& row,
                const std::string& newRemark) {
  ++count;
  keepFirst(old, &before);
  keepFirst(row, &after);
  if (noun.difference == Difference::record) recordDiffs += recordDiff(noun, old, row, newRemark);
}

Target::Target(const Command& command) : command_(command) {
  const Noun& noun = *command.noun;
  store_ = noun.open(noun, command.arguments, "", SideEffects::wanted);
  path_ = store_->path();
  wasMissing_ = !registryExists(path_);
  if (!wasMissing_ || noun.missingFile == MissingFile::refused) requireRegistry(path_);
  if (!command.arguments.dryRun) return;
  copy_ = std::make_unique<PrivateCopy>(path_);
  store_ = noun.open(noun, command.arguments, copy_->path(), SideEffects::none);
}

void Target::requireFile() const {
  requireRegistry(path_);
}

void Target::requirePlace() const {
  if (wasMissing_ && command_.noun->missingFile == MissingFile::made) requireFolder(path_);
}

std::vector<Record> Target::read(const Done& done) {
  if (!registryExists(store_->path())) return {};
  if (done.count == 0 && showsFile()) before_ = contentsOf(store_->path());
  return readRecords(*store_, path_, [](const Row&) { return true; });
}

vrx::Status Target::run(const std::function<vrx::Status()>& update) {
  return runUpdate(command_.arguments, *store_, update);
}

bool Target::showsFile() const {
  const Arguments& arguments = command_.arguments;
  return (arguments.dryRun || arguments.diff) && command_.noun->difference == Difference::file;
}

std::string Target::difference(const Done& done) const {
  if (done.count == 0) return {};
  if (!showsFile()) return done.recordDiffs;
  return fileDiff(path_, before_, contentsOf(store_->path()), newRemark());
}

const char* Target::newRemark() const {
  return command_.arguments.dryRun ? " (dry run)" : " (new)";
}

}  // namespace cli
