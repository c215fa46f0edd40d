// SPDX-License-Identifier: Apache-2.0
// What a change is made to: the noun's file, or in a dry run a private copy that tells nobody.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cli/private_copy.h"
#include "cli/verbs.h"

namespace cli {

// What a command has done so far. Several records are told as one.
struct Done {
  std::size_t count = 0;
  std::optional<Row> before;  // of several records: of each field the first value
  std::optional<Row> after;
  std::string recordDiffs;

  // Notes one change; the difference is named by the remark behind its new side.
  void note(const Noun& noun, const std::optional<Row>& old, const std::optional<Row>& row,
            const std::string& newRemark);
};

class Target {
 public:
  // Throws Failure when the file is missing and the noun's files are never made, or when what
  // stands in its place is no file.
  explicit Target(const Command& command);

  Store& store() const { return *store_; }
  const std::string& path() const { return path_; }  // of the real file
  bool wasMissing() const { return wasMissing_; }

  // Throws Failure (noRegistry) when the file is missing.
  void requireFile() const;
  // Throws Failure (noRegistry) when the file is missing and there is no folder to make it in.
  void requirePlace() const;

  // All records; none when the file is missing. What the file holds is noted for the difference
  // unless something has been done already.
  std::vector<Record> read(const Done& done);

  // Runs an update under the command's time limit.
  [[nodiscard]] vrx::Status run(const std::function<vrx::Status()>& update);

  // The difference that the command has made.
  std::string difference(const Done& done) const;
  // What stands behind a new side's label.
  const char* newRemark() const;

 private:
  bool showsFile() const;

  const Command& command_;
  std::unique_ptr<PrivateCopy> copy_;
  std::unique_ptr<Store> store_;
  std::string path_;
  bool wasMissing_ = false;
  std::optional<std::string> before_;  // what the file held
};

}  // namespace cli
