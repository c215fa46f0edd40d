// SPDX-License-Identifier: Apache-2.0
// The road of an update by itself: an edit that only notes where it is, on a real registry, with
// the steps failing one after the other.
#include "genreg/internal/update.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/captured_log.h"
#include "tests/support/faults.h"
#include "tests/support/leak_check.h"
#include "tests/support/plain_registry.h"
#include "tests/support/process_settings.h"
#include "tests/support/temp_dir.h"

namespace {

using namespace genreg;
using vrxtest::Call;
using vrxtest::FailCall;
using vrxtest::LeakCheck;
using vrxtest::pathExists;
using vrxtest::PlainFiles;
using vrxtest::PlainRegistry;
using vrxtest::readFile;
using vrxtest::TempDir;
using vrxtest::writeFile;

// The steps visited, those under the lock in brackets: "prepare allocate [rewrite] release".
std::string trail;
std::vector<void*> logged;  // what the log slot was given
int logResult = 0;
int notifyResult = 0;

void visit(const char* step) {
  trail += (trail.empty() ? "" : " ") + std::string(step);
}

int logSlot(void* registry, unsigned int action, void* first, void* second) {
  visit(("log" + std::to_string(action)).c_str());
  logged = {registry, first, second};
  return logResult;
}

int notifySlot() {
  visit("notify");
  return notifyResult;
}

// Writes "new" as the copy. One step may be told to fail.
class NotingEdit {
 public:
  NotingEdit(GenRegFile& registry, std::string failing)
      : registry_(registry), failing_(std::move(failing)) {}

  void prepare(Operation& op) { step(op, "prepare", status::invalid_record); }
  void allocate(Operation& op) { step(op, "allocate", status::no_scratch_memory); }
  void rewrite(Operation& op) {
    (void)std::fwrite("new", 1, 3, registry_.temporaryStream);  // seen in the registry afterwards
    step(op, "rewrite", status::duplicate_record);
  }
  bool keeps(const Operation& op) const { return keepsAlways || !op.failed(); }
  GenRegStatus verify(Operation& op) {
    step(op, "verify", status::ok);
    if (failing_ == "verify") return status::verify_no_change;
    const GenRegStatus rc = registry_.OpenReg(kGenRegVerify);
    return rc == status::ok ? registry_.CloseReg(kGenRegVerify) : rc;
  }
  void release() {
    visit(name("release").c_str());
    if (failing_ == "release") released->fail(1, status::scratch_not_released);
  }
  void* firstRecord() { return &first; }
  void* secondRecord() { return &second; }

  bool keepsAlways = false;
  int first = 0;
  int second = 0;
  Operation* released = nullptr;  // where a failing release reports

 private:
  std::string name(const std::string& step) const {
    const bool locked = (registry_.state & kGenRegStateLocked) != 0;
    return locked ? "[" + step + "]" : step;
  }
  void step(Operation& op, const std::string& step, GenRegStatus code) {
    visit(name(step).c_str());
    if (failing_ == step && code != status::ok) op.fail(1, code);
  }

  GenRegFile& registry_;
  const std::string failing_;
};

constexpr unsigned kEverything = kGenRegVerifyCommit | kGenRegChangeLog | kGenRegNotify;
constexpr GenRegMode kUpdates[] = {kGenRegAdd, kGenRegChange, kGenRegDelete};

class UpdateRoad : public testing::Test {
 protected:
  UpdateRoad() {
    trail.clear();
    logged.clear();
    logResult = 0;
    notifyResult = 0;
    begin(kEverything);
  }

  // A registry of the contents "old" and a fresh object on it.
  void begin(unsigned features) {
    registry.reset();
    (void)unlink(files.temporary.c_str());
    (void)unlink(files.backup.c_str());
    writeFile(files.registry, "old");
    registry = std::make_unique<PlainRegistry>(files.registry, features);
    registry->log = logSlot;
    registry->notify = notifySlot;
    trail.clear();
  }
  GenRegStatus run(GenRegMode mode, const std::string& failing = "") {
    NotingEdit edit(*registry, failing);
    return run(mode, edit);
  }
  GenRegStatus run(GenRegMode mode, NotingEdit& edit, ChangeLog log = ChangeLog::kLogSlot) {
    Operation op(kGenRegBinAdd, registry->registryPath);
    edit.released = &op;
    runUpdate(op, *registry, planOf(mode, log), edit);
    EXPECT_EQ(registry->state & kGenRegStateLocked, 0u);
    return op.status();
  }
  // Registry and copy: "new -" after a commit, "-" for nothing.
  std::string onDisk() const {
    const std::string copy = pathExists(files.temporary) ? readFile(files.temporary) : "-";
    return readFile(files.registry) + " " + copy;
  }

  const LeakCheck leaks;
  const TempDir folder;
  const PlainFiles files{folder};
  std::unique_ptr<PlainRegistry> registry;
};

TEST(UpdatePlan, AddCreatesItsDirectoryAndLeavesItsCopy) {
  const UpdatePlan plan = planOf(kGenRegAdd, ChangeLog::kLogSlot);
  EXPECT_EQ(plan.mode, kGenRegAdd);
  EXPECT_EQ(plan.lockFlags, 0x15u);
  EXPECT_EQ(plan.abandonedCopy, AbandonedCopy::kLeave);
  EXPECT_EQ(plan.changeLog, ChangeLog::kLogSlot);
  EXPECT_EQ(plan.logRefusal, LogRefusal::kIgnored);
}

TEST(UpdatePlan, ChangeAndDeleteTidyUpAndHeedTheLog) {
  for (const GenRegMode mode : {kGenRegChange, kGenRegDelete}) {
    const UpdatePlan plan = planOf(mode, ChangeLog::kNone);
    EXPECT_EQ(plan.mode, mode);
    EXPECT_EQ(plan.lockFlags, 0x5u);
    EXPECT_EQ(plan.abandonedCopy, AbandonedCopy::kDelete);
    EXPECT_EQ(plan.changeLog, ChangeLog::kNone);
    EXPECT_EQ(plan.logRefusal, LogRefusal::kSilencesNotify);
  }
}

TEST_F(UpdateRoad, StepsAreTakenInOrderAndTheMiddleUnderTheLock) {
  for (const GenRegMode mode : kUpdates) {
    begin(kEverything);
    EXPECT_EQ(run(mode), 0u);
    EXPECT_EQ(trail,
              "prepare allocate [rewrite] [verify] release log" + std::to_string(mode) + " notify");
    EXPECT_EQ(onDisk(), "new -");
  }
}

TEST_F(UpdateRoad, WithoutVerificationTheCloseCommits) {
  for (const GenRegMode mode : kUpdates) {
    begin(0);
    EXPECT_EQ(run(mode), 0u);
    EXPECT_EQ(trail, "prepare allocate [rewrite] release");
    EXPECT_EQ(onDisk(), "new -");
  }
}

TEST_F(UpdateRoad, LogIsToldTheObjectTheActionAndTheRecords) {
  NotingEdit edit(*registry, "");
  EXPECT_EQ(run(kGenRegChange, edit), 0u);
  EXPECT_EQ(logged, (std::vector<void*>{registry.get(), &edit.first, &edit.second}));
}

// One failing step of the edit, and what the road makes of it.
struct StepFailure {
  const char* step;
  GenRegStatus expected;
  const char* trail;
  const char* afterAdd;     // registry and copy
  const char* afterChange;  // the same for Change and Delete
};
constexpr StepFailure kStepFailures[] = {
    {"prepare", 0x900001FCu, "prepare", "old -", "old -"},
    {"allocate", 0x900001E7u, "prepare allocate release", "old -", "old -"},
    {"rewrite", 0x900001F1u, "prepare allocate [rewrite] release", "old new", "old -"},
    {"verify", 0x900001FBu, "prepare allocate [rewrite] [verify] release", "old new", "old new"},
    {"release", 0x900001EEu, "prepare allocate [rewrite] [verify] release", "new -", "new -"},
};

TEST_F(UpdateRoad, FailingStepEndsTheUpdateAndEverythingIsGivenBack) {
  for (const StepFailure& row : kStepFailures) {
    for (const GenRegMode mode : kUpdates) {
      const LeakCheck none;
      begin(kEverything);
      EXPECT_EQ(run(mode, row.step), row.expected) << row.step;
      EXPECT_EQ(trail, row.trail) << row.step << ": neither logged nor notified";
      EXPECT_EQ(onDisk(), mode == kGenRegAdd ? row.afterAdd : row.afterChange) << row.step;
      registry.reset();
    }
  }
}

TEST_F(UpdateRoad, NothingIsTouchedBeforeThePreparationPasses) {
  EXPECT_EQ(run(kGenRegAdd, "prepare"), 0x900001FCu);
  EXPECT_EQ(run(kGenRegAdd, "allocate"), 0x900001E7u);
  EXPECT_FALSE(pathExists(files.lock));
}

// One failing call of the steps that belong to the road. The lock file is the first file opened.
struct RoadFailure {
  const char* what;
  Call call;
  int nth;
  GenRegStatus expected;
  const char* trail;
  const char* afterAdd;
  const char* afterChange;
};
constexpr RoadFailure kRoadFailures[] = {
    {"lock file", Call::kHandleOpen, 1, 0x900001BCu, "prepare allocate release", "old -", "old -"},
    {"lock", Call::kHandleLock, 1, 0x900001BCu, "prepare allocate release", "old -", "old -"},
    {"registry", Call::kHandleOpen, 2, 0x900001C5u, "prepare allocate release", "old -", "old -"},
    {"copy's stream", Call::kFdopen, 2, 0x900001C5u, "prepare allocate release", "old -", "old -"},
    {"copy's permissions", Call::kFchmod, 1, 0x900001C5u, "prepare allocate release", "old ",
     "old -"},
    {"close", Call::kFclose, 1, 0x900001C6u, "prepare allocate [rewrite] release", "old new",
     "old new"},
    {"sync", Call::kFsync, 1, 0x900001C6u, "prepare allocate [rewrite] release", "old new",
     "old new"},
    {"commit", Call::kRename, 1, 0x900001FBu, "prepare allocate [rewrite] [verify] release",
     "old new", "old new"},
    {"unlock", Call::kHandleClose, 1, 0x900001BDu, "prepare allocate [rewrite] [verify] release",
     "new -", "new -"},
};

TEST_F(UpdateRoad, FailureOfTheRoadItselfEndsTheUpdateAndEverythingIsGivenBack) {
  for (const RoadFailure& row : kRoadFailures) {
    for (const GenRegMode mode : kUpdates) {
      const LeakCheck none;
      begin(kEverything);
      {
        const FailCall fault(row.call, row.nth, EIO);
        EXPECT_EQ(run(mode), row.expected) << row.what;
        EXPECT_TRUE(fault.fired()) << row.what;
        EXPECT_EQ(trail, row.trail) << row.what;
        EXPECT_EQ(onDisk(), mode == kGenRegAdd ? row.afterAdd : row.afterChange) << row.what;
      }
      EXPECT_EQ(run(mode), 0u) << "the object is of use again after " << row.what;
      registry.reset();
    }
  }
}

TEST_F(UpdateRoad, LockHeldElsewhereIsAFailureWithoutWaiting) {
  const vrxtest::NoWaiting limit;
  PlainRegistry holder(files.registry);
  ASSERT_EQ(holder.Lock(kGenRegLockExclusive | kGenRegLockNoWait, 0), 0u);
  EXPECT_EQ(run(kGenRegAdd), 0x900001BCu);
  EXPECT_EQ(trail, "prepare allocate release");
}

TEST_F(UpdateRoad, FirstFailureStaysWhateverFailsAfterwards) {
  const FailCall closing(Call::kHandleClose, 1, EIO);
  const FailCall tidying(Call::kUnlink, 1, EACCES);
  const vrxtest::CapturedLog log;
  EXPECT_EQ(run(kGenRegChange, "rewrite"), 0x900001F1u);
  EXPECT_TRUE(closing.fired());
  EXPECT_TRUE(tidying.fired());
  EXPECT_EQ(log.count(kGenRegBinAdd, 0x900001D3u), 1);
  EXPECT_EQ(log.count(kGenRegBinAdd, 0x900001BDu), 1);
  EXPECT_EQ(onDisk(), "old new") << "the copy could not be deleted";
}

TEST_F(UpdateRoad, AbandonedCopyStaysWithoutVerification) {
  for (const GenRegMode mode : kUpdates) {
    begin(0);
    EXPECT_EQ(run(mode, "rewrite"), 0x900001F1u);
    EXPECT_EQ(onDisk(), "old new");
  }
}

TEST_F(UpdateRoad, CopyThatThisUpdateDidNotCreateIsNotDeleted) {
  writeFile(files.temporary, "leftover");
  const FailCall fault(Call::kRename, 1, EACCES);
  EXPECT_EQ(run(kGenRegChange), 0x900001C5u);
  EXPECT_EQ(onDisk(), "old leftover");
}

TEST_F(UpdateRoad, LeftoverIsSetAsideByTheNextUpdateAndDeletedByTheOneAfter) {
  EXPECT_EQ(run(kGenRegAdd, "rewrite"), 0x900001F1u);
  EXPECT_EQ(readFile(files.temporary), "new");
  EXPECT_EQ(run(kGenRegChange), 0u);
  EXPECT_EQ(readFile(files.corrupt), "new");
  EXPECT_EQ(run(kGenRegChange), 0u);
  EXPECT_FALSE(pathExists(files.corrupt));
}

TEST_F(UpdateRoad, EditThatKeepsAFailedCopyClosesWithItsOwnMode) {
  begin(0);
  NotingEdit edit(*registry, "rewrite");
  edit.keepsAlways = true;
  EXPECT_EQ(run(kGenRegChange, edit), 0x900001F1u);
  EXPECT_EQ(onDisk(), "new -");
}

TEST_F(UpdateRoad, KeptCopyOfAFailedChangeIsDeletedBeforeAnyVerification) {
  NotingEdit edit(*registry, "rewrite");
  edit.keepsAlways = true;
  EXPECT_EQ(run(kGenRegChange, edit), 0x900001F1u);
  EXPECT_EQ(trail, "prepare allocate [rewrite] release");
  EXPECT_EQ(onDisk(), "old -");
}

TEST_F(UpdateRoad, EditIsNotAskedToKeepACopyThatWasNeverOpened) {
  begin(0);
  writeFile(files.temporary, "leftover");
  NotingEdit edit(*registry, "");
  edit.keepsAlways = true;
  const FailCall fault(Call::kRename, 1, EACCES);
  EXPECT_EQ(run(kGenRegChange, edit), 0x900001C5u);
  EXPECT_EQ(onDisk(), "old leftover") << "a leftover was committed";
}

TEST_F(UpdateRoad, RefusingLogSilencesNotificationInChangeAndDeleteOnly) {
  logResult = statusInt(status::lock_held);
  EXPECT_EQ(run(kGenRegAdd), 0u);
  EXPECT_EQ(trail.substr(trail.find("log")), "log4 notify");
  for (const GenRegMode mode : {kGenRegChange, kGenRegDelete}) {
    begin(kEverything);
    EXPECT_EQ(run(mode), 0u) << "the update stands";
    EXPECT_EQ(trail.substr(trail.find("log")), "log" + std::to_string(mode));
  }
}

TEST_F(UpdateRoad, LogAndNotificationFollowTheirFeatures) {
  begin(kGenRegChangeLog);
  EXPECT_EQ(run(kGenRegAdd), 0u);
  EXPECT_EQ(trail, "prepare allocate [rewrite] release log4");
  begin(kGenRegNotify);
  EXPECT_EQ(run(kGenRegAdd), 0u);
  EXPECT_EQ(trail, "prepare allocate [rewrite] release notify");
}

TEST_F(UpdateRoad, StoreWithoutAChangeLogOnlyNotifies) {
  NotingEdit edit(*registry, "");
  EXPECT_EQ(run(kGenRegAdd, edit, ChangeLog::kNone), 0u);
  EXPECT_EQ(trail, "prepare allocate [rewrite] [verify] release notify");
}

TEST_F(UpdateRoad, EmptyLogSlotIsPassedOver) {
  registry->log = nullptr;
  EXPECT_EQ(run(kGenRegChange), 0u);
  EXPECT_EQ(trail, "prepare allocate [rewrite] [verify] release notify");
}

TEST_F(UpdateRoad, EmptyNotifySlotIsReportedAfterTheUpdateStands) {
  registry->notify = nullptr;
  EXPECT_EQ(run(kGenRegChange), 0x900003F2u);
  EXPECT_EQ(onDisk(), "new -");
}

TEST_F(UpdateRoad, FailingNotificationIsLoggedOnly) {
  notifyResult = statusInt(status::lock_held);
  const vrxtest::CapturedLog log;
  EXPECT_EQ(run(kGenRegDelete), 0u);
  EXPECT_EQ(log.count(kGenRegBinAdd, 0x90000014u), 1);
}

}  // namespace
