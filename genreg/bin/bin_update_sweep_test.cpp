// SPDX-License-Identifier: Apache-2.0
// Every call that an update makes to the system fails once, one after the other, for every way of
// updating: the registry holds the old records or the new ones, success means the new ones, nothing
// is kept, and the next update works.
#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "genreg/bin/bin_store.h"
#include "tests/support/faults.h"
#include "tests/support/packed_registry.h"
#include "tests/support/plain_registry.h"
#include "tests/support/store_watch.h"

namespace {

using namespace vrxtest;
using genreg::statusOf;
namespace status = genreg::status;

constexpr Call kCalls[] = {
    Call::kOpen,    Call::kClose,      Call::kLockFcntl,  Call::kOtherFcntl,   Call::kFstat,
    Call::kStat,    Call::kLstat,      Call::kAccess,     Call::kLink,         Call::kRename,
    Call::kUnlink,  Call::kMkdir,      Call::kReadlink,   Call::kFtruncate,    Call::kFchmod,
    Call::kFsync,   Call::kFdopen,     Call::kFclose,     Call::kFflush,       Call::kFseeko,
    Call::kFtello,  Call::kFread,      Call::kFwrite,     Call::kSetvbuf,      Call::kMemAlloc,
    Call::kMemFree, Call::kHandleOpen, Call::kHandleLock, Call::kHandleUnlock, Call::kHandleClose};

enum class Action { kAdd, kChange, kDelete };

struct Road {
  const char* name;
  unsigned features;
};

constexpr Road kRoads[] = {
    {"unverified", 0},           {"verified", kGenRegVerifyCommit},
    {"many", kGenRegDuplicates}, {"verifiedMany", kGenRegVerifyCommit | kGenRegDuplicates},
    {"packed", kGenRegPacked},   {"verifiedPacked", kGenRegVerifyCommit | kGenRegPacked}};

// A registry of records a, b; the update adds c, changes b or deletes b.
template <class Registry, class Record>
class Subject {
 public:
  using Make = Record (*)(std::string_view, std::uint32_t);
  using Frame = std::string (*)(std::string_view, std::uint32_t);

  Subject(const std::string& path, unsigned features, Action action, Make make, Frame frame)
      : path_(path), features_(features), action_(action), make_(make), frame_(frame) {}

  std::string before() const { return frame_("a", 1) + frame_("b", 2); }
  std::string after() const {
    if (action_ == Action::kAdd) return before() + frame_("c", 3);
    return action_ == Action::kChange ? frame_("a", 1) + frame_("c", 3) : frame_("a", 1);
  }
  std::unique_ptr<GenRegBin> open() const { return std::make_unique<Registry>(path_, features_); }
  GenRegStatus run(GenRegBin& registry) const {
    Record record = make_("c", 3);
    Record key = make_("b", 0);
    if (action_ == Action::kAdd) return statusOf(registry.Add(1, &record));
    if (action_ == Action::kDelete) return statusOf(registry.Delete(1, &key));
    return statusOf(registry.Change(1, &key, &record));
  }

 private:
  const std::string path_;
  const unsigned features_;
  const Action action_;
  const Make make_;
  const Frame frame_;
};

// Statuses that may come with the new records in place: they speak of what follows the commit.
bool mayHaveCommitted(GenRegStatus rc) {
  return rc == 0 || rc == status::close_failed || rc == status::verify_failed ||
         rc == status::lock_not_released || rc == status::scratch_not_released;
}

class BinUpdateSweep : public testing::TestWithParam<std::tuple<Road, Action>> {
 protected:
  template <class Subject>
  void sweep(const Subject& subject) {
    int failures = 0;
    for (const Call call : kCalls) {
      for (int nth = 1; failOnce(subject, call, nth); ++nth)
        ++failures;
    }
    EXPECT_GT(failures, 30);
  }

  // False when the update makes no nth call of this kind.
  template <class Subject>
  bool failOnce(const Subject& subject, Call call, int nth) {
    SCOPED_TRACE("call " + std::to_string(static_cast<int>(call)) + " no " + std::to_string(nth));
    const NothingKept watch;
    writeFile(files_.registry, subject.before());
    bool fired = false;
    GenRegStatus rc = 0;
    {
      const auto registry = subject.open();
      {
        const FailCall fault(call, nth, EIO);
        rc = subject.run(*registry);
        fired = fault.fired();
      }
      EXPECT_EQ(registry->registryStream, nullptr);
      EXPECT_EQ(registry->temporaryStream, nullptr);
    }
    judge(subject, rc);
    return fired && !HasFailure();
  }

  template <class Subject>
  void judge(const Subject& subject, GenRegStatus rc) {
    const std::string now = readFile(files_.registry);
    if (rc == 0 || now != subject.before()) {
      EXPECT_EQ(now, subject.after());
      EXPECT_TRUE(mayHaveCommitted(rc)) << std::hex << rc;
    }
    writeFile(files_.registry, subject.before());
    EXPECT_EQ(subject.run(*subject.open()), 0U);
    EXPECT_EQ(readFile(files_.registry), subject.after());
    EXPECT_TRUE(lockIsFree(files_.registry));
  }

  TempDir folder_;
  const PlainFiles files_{folder_};
};

PlainRecord makePlain(std::string_view name, std::uint32_t value) {
  return plainRecord(name, static_cast<int>(value));
}
std::string framePlain(std::string_view name, std::uint32_t value) {
  return plainFrame(name, static_cast<int>(value));
}
std::string framePacked(std::string_view name, std::uint32_t value) {
  return frameOf(PackedRegistry::imageOf(packedRecord(name, value)));
}

TEST_P(BinUpdateSweep, EachCallFailsOnce) {
  const auto [road, action] = GetParam();
  if ((road.features & kGenRegPacked) != 0) {
    sweep(Subject<PackedRegistry, PackedRecord>(files_.registry, road.features, action,
                                                packedRecord, framePacked));
  } else {
    sweep(Subject<PlainRegistry, PlainRecord>(files_.registry, road.features, action, makePlain,
                                              framePlain));
  }
}

std::string nameOf(const testing::TestParamInfo<std::tuple<Road, Action>>& info) {
  constexpr const char* kActions[] = {"Add", "Change", "Delete"};
  const auto [road, action] = info.param;
  return std::string(road.name) + kActions[static_cast<int>(action)];
}

INSTANTIATE_TEST_SUITE_P(Roads, BinUpdateSweep,
                         testing::Combine(testing::ValuesIn(kRoads),
                                          testing::Values(Action::kAdd, Action::kChange,
                                                          Action::kDelete)),
                         nameOf);

}  // namespace
