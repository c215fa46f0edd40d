// SPDX-License-Identifier: Apache-2.0
// Death at each step of an update: what is on disk afterwards and what the next update makes of it,
// as docs/update-protocol.md tells. tests/crash kills at every system call.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <string>

#include "tests/support/faults.h"
#include "tests/support/leak_check.h"
#include "tests/support/plain_registry.h"
#include "tests/support/process.h"
#include "tests/support/temp_dir.h"

namespace {

using namespace genreg;
using vrxtest::BeforeCall;
using vrxtest::Call;
using vrxtest::Child;
using vrxtest::LeakCheck;
using vrxtest::pathExists;
using vrxtest::PlainFiles;
using vrxtest::plainFrame;
using vrxtest::PlainRecord;
using vrxtest::plainRecord;
using vrxtest::PlainRegistry;
using vrxtest::readFile;
using vrxtest::TempDir;

// What stands at a path after the death.
enum class Holds { kNothing, kOld, kNew, kPart };

struct Death {
  const char* before;  // the step that is not taken any more
  Call call;
  int nth;
  Holds registry;
  Holds temporary;
  Holds backup;
};

// The calls of one Change with verification, in their order: the registry's stream and the copy's
// are closed twice each, first after writing and then after verifying.
constexpr Death kDeaths[] = {
    {"creating the copy", Call::kOpen, 3, Holds::kOld, Holds::kNothing, Holds::kNothing},
    {"the copy's permissions", Call::kFchmod, 1, Holds::kOld, Holds::kPart, Holds::kNothing},
    {"writing the copy out", Call::kFflush, 1, Holds::kOld, Holds::kPart, Holds::kNothing},
    {"syncing the copy", Call::kFsync, 1, Holds::kOld, Holds::kNew, Holds::kNothing},
    {"verifying", Call::kHandleOpen, 3, Holds::kOld, Holds::kNew, Holds::kNothing},
    {"linking the backup", Call::kLink, 1, Holds::kOld, Holds::kNew, Holds::kNothing},
    {"replacing the registry", Call::kRename, 1, Holds::kOld, Holds::kNew, Holds::kOld},
    {"syncing the directory", Call::kFsync, 2, Holds::kNew, Holds::kNothing, Holds::kOld},
    {"deleting the backup", Call::kUnlink, 2, Holds::kNew, Holds::kNothing, Holds::kOld},
    {"releasing the lock", Call::kHandleUnlock, 1, Holds::kNew, Holds::kNothing, Holds::kNothing},
};

class UpdateCrash : public testing::Test {
 protected:
  GenRegStatus change(int value) const {
    PlainRegistry registry(files.registry);
    PlainRecord key = plainRecord("one", 0);
    PlainRecord record = plainRecord("one", value);
    return statusOf(registry.Change(vrxtest::kPlainName, &key, &record));
  }
  void begin() const {
    for (const std::string& path : {files.temporary, files.corrupt, files.backup}) {
      (void)unlink(path.c_str());
    }
    vrxtest::writeFile(files.registry, old);
    vrxtest::writeFile(files.lock, "");  // opened at once, so that the calls can be counted
  }
  void dieBefore(Call call, int nth) const {
    Child child([&](Child::Gate&) {
      const BeforeCall death(call, nth, [] { (void)raise(SIGKILL); });
      (void)change(2);  // never returns
    });
    ASSERT_EQ(child.wait(), -SIGKILL);
  }
  void expectHolds(Holds what, const std::string& path, const char* before) const {
    EXPECT_EQ(pathExists(path), what != Holds::kNothing) << path << " before " << before;
    if (what != Holds::kOld && what != Holds::kNew) return;
    EXPECT_EQ(readFile(path), what == Holds::kOld ? old : changed) << path << " before " << before;
  }

  const LeakCheck leaks;
  const TempDir folder;
  const PlainFiles files{folder};
  const std::string old = plainFrame("one", 1) + plainFrame("two", 1);
  const std::string changed = plainFrame("one", 2) + plainFrame("two", 1);
};

TEST_F(UpdateCrash, EveryDeathLeavesTheOldOrTheNewRegistryAndTheDocumentedLeftovers) {
  for (const Death& death : kDeaths) {
    begin();
    dieBefore(death.call, death.nth);
    expectHolds(death.registry, files.registry, death.before);
    expectHolds(death.temporary, files.temporary, death.before);
    expectHolds(death.backup, files.backup, death.before);
    EXPECT_FALSE(pathExists(files.corrupt)) << death.before;
  }
}

TEST_F(UpdateCrash, NextUpdateSucceedsAndSetsTheCopyAside) {
  for (const Death& death : kDeaths) {
    begin();
    dieBefore(death.call, death.nth);
    EXPECT_EQ(change(3), 0u) << "after dying before " << death.before;
    EXPECT_EQ(readFile(files.registry), plainFrame("one", 3) + plainFrame("two", 1));
    EXPECT_FALSE(pathExists(files.temporary)) << death.before;
    EXPECT_FALSE(pathExists(files.backup)) << death.before;
    EXPECT_EQ(pathExists(files.corrupt), death.temporary != Holds::kNothing) << death.before;
    EXPECT_EQ(change(4), 0u);
    EXPECT_FALSE(pathExists(files.corrupt)) << "deleted by the update after the next";
  }
}

TEST_F(UpdateCrash, LookupAfterADeathReadsTheRegistryAndTouchesNothing) {
  for (const Death& death : kDeaths) {
    begin();
    dieBefore(death.call, death.nth);
    const bool copy = pathExists(files.temporary);
    const bool backup = pathExists(files.backup);
    PlainRegistry registry(files.registry);
    PlainRecord key = plainRecord("one", 0);
    PlainRecord found{};
    EXPECT_EQ(registry.Get(vrxtest::kPlainName, &key, &found), 0) << death.before;
    EXPECT_EQ(found.value, death.registry == Holds::kOld ? 1 : 2) << death.before;
    EXPECT_EQ(pathExists(files.temporary), copy);
    EXPECT_EQ(pathExists(files.backup), backup);
  }
}

}  // namespace
