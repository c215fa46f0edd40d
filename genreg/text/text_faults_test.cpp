// SPDX-License-Identifier: Apache-2.0
// Updates of the text store whose calls fail: the status tells the truth, the file is as it was or
// as it should be, and nothing is kept or held.
#include <gtest/gtest.h>

#include <cerrno>
#include <set>
#include <string>

#include "genreg/internal/function_ids.h"
#include "genreg/text/text_store.h"
#include "tests/support/captured_log.h"
#include "tests/support/faults.h"
#include "tests/support/text_records.h"

namespace {

using genreg::statusInt;
using vrxtest::BeforeCall;
using vrxtest::Call;
using vrxtest::CapturedLog;
using vrxtest::Extent;
using vrxtest::FailCall;
using vrxtest::LeakCheck;
using vrxtest::ProfileLine;
using vrxtest::TempDir;
namespace status = genreg::status;

enum class Update { kAdd, kChange, kDelete };
constexpr Update kUpdates[] = {Update::kAdd, Update::kChange, Update::kDelete};

const char kBefore[] = "# head\nA = 1\n\nB = 2\n";
const char kLastLine[] = "# head\nA = 1\n\nB = 2";

std::string expectedAfter(Update update) {
  switch (update) {
    case Update::kAdd:
      return "# head\nA = 1\n\nB = 2\nC = 3\n";
    case Update::kChange:
      return "# head\nA = 3\n\nB = 2\n";
    case Update::kDelete:
      break;
  }
  return "# head\n\nB = 2\n";
}

// A profile in a folder of its own.
class Profile {
 public:
  explicit Profile(const std::string& bytes = kBefore) { vrxtest::writeFile(path_, bytes); }

  GenRegStatus run(Update update) {
    ProfileLine key("A");
    ProfileLine changed("A", "3");
    ProfileLine added("C", "3");
    switch (update) {
      case Update::kAdd:
        return profile_.Add(kVarValVariable, added.record());
      case Update::kChange:
        return profile_.Change(kVarValVariable, key.record(), changed.record());
      case Update::kDelete:
        break;
    }
    return profile_.Delete(kVarValVariable, key.record());
  }
  GenRegVarVal& operator*() { return profile_; }
  GenRegVarVal* operator->() { return &profile_; }
  std::string bytes() const { return vrxtest::readFile(path_); }
  const std::string& path() const { return path_; }
  std::string file(const char* name) const { return folder_.file(name); }
  bool copyIsLeft() const { return vrxtest::pathExists(file("reg.tmp")); }

 private:
  const TempDir folder_;
  const std::string path_ = folder_.file("reg");
  unsigned int rc_ = ~0U;
  GenRegVarVal profile_{path_.c_str(), &rc_};
};

// Whether an update that reports this may all the same be in the file.
bool mayStand(GenRegStatus rc) {
  return rc == status::verify_failed || rc == status::lock_not_released ||
         rc == status::scratch_not_released;
}

// The file after a failing call: old or new, and new only where the status allows it.
void judgeFile(const Profile& profile, Update update, GenRegStatus rc) {
  const std::string bytes = profile.bytes();
  const bool done = bytes == expectedAfter(update);
  EXPECT_TRUE(done || bytes == kBefore) << bytes;
  if (rc == 0) {
    EXPECT_TRUE(done);
  }
  if (rc != 0 && !mayStand(rc)) {
    EXPECT_FALSE(done) << std::hex << rc;
  }
}

// Lets the nth call fail and looks. False when the update makes no such call.
bool tryFault(Update update, Call call, int nth, std::set<GenRegStatus>& seen) {
  const LeakCheck leaks;
  bool fired = false;
  Profile profile;
  {
    const FailCall fault(call, nth, EIO);
    const GenRegStatus rc = profile.run(update);
    fired = fault.fired();
    seen.insert(rc);
    judgeFile(profile, update, rc);
  }
  // A lock whose release failed is still held: the caller may try again.
  if ((profile->state & kGenRegStateLocked) != 0) {
    EXPECT_EQ(profile->UnLock(), 0U);
  }
  ProfileLine line("D", "4");
  EXPECT_EQ(profile->Add(kVarValVariable, line.record()), 0U) << "the next update";
  EXPECT_TRUE(vrxtest::textLockIsFree(profile.path()));
  return fired;
}

constexpr Call kCalls[] = {
    Call::kOpen,         Call::kClose,       Call::kLockFcntl,    Call::kOtherFcntl,
    Call::kFstat,        Call::kStat,        Call::kLstat,        Call::kAccess,
    Call::kLink,         Call::kRename,      Call::kUnlink,       Call::kReadlink,
    Call::kFchmod,       Call::kFsync,       Call::kFdopen,       Call::kFclose,
    Call::kFflush,       Call::kFread,       Call::kFwrite,       Call::kSetvbuf,
    Call::kMemAlloc,     Call::kMemFree,     Call::kHandleOpen,   Call::kHandleLock,
    Call::kHandleUnlock, Call::kHandleClose, Call::kDirectoryName};

std::set<GenRegStatus> tryEveryFault(Update update) {
  std::set<GenRegStatus> seen;
  for (const Call call : kCalls) {
    int nth = 1;
    while (tryFault(update, call, nth, seen) && nth < 100)
      ++nth;
    EXPECT_LT(nth, 100) << "call " << static_cast<int>(call);
  }
  return seen;
}

void expectSeen(const std::set<GenRegStatus>& seen, std::initializer_list<GenRegStatus> codes) {
  for (const GenRegStatus code : codes)
    EXPECT_EQ(seen.count(code), 1U) << std::hex << code;
}

TEST(TextFaults, AddWithEveryCallFailingOnce) {
  expectSeen(
      tryEveryFault(Update::kAdd),
      {0, status::no_scratch_memory, status::lock_not_taken, status::open_failed,
       status::no_file_info, status::copy_write_failed, status::read_failed, status::close_failed,
       status::verify_failed, status::lock_not_released, status::scratch_not_released});
}

TEST(TextFaults, ChangeWithEveryCallFailingOnce) {
  expectSeen(tryEveryFault(Update::kChange),
             {0, status::no_scratch_memory, status::lock_not_taken, status::open_failed,
              status::copy_write_failed, status::close_failed, status::verify_failed,
              status::lock_not_released, status::scratch_not_released});
}

TEST(TextFaults, DeleteWithEveryCallFailingOnce) {
  expectSeen(tryEveryFault(Update::kDelete),
             {0, status::no_scratch_memory, status::lock_not_taken, status::open_failed,
              status::copy_write_failed, status::close_failed, status::verify_failed,
              status::lock_not_released, status::scratch_not_released});
}

TEST(TextFaults, LockThatIsHeldElsewhereStopsEveryUpdateBeforeTheFile) {
  for (const Update update : kUpdates) {
    Profile profile;
    const FailCall fault(Call::kHandleLock, 1, EAGAIN);
    EXPECT_EQ(profile.run(update), status::lock_not_taken);
    EXPECT_EQ(profile.bytes(), kBefore);
    EXPECT_FALSE(profile.copyIsLeft());
  }
}

// --- real conditions on the streams, brought about between two lines

GenRegVarVal* victim = nullptr;

int breakWritingThenMatch(unsigned long long mask, void* stored, void* given) {
  vrxtest::breakWriting(victim->temporaryStream);
  return GenRegVarVal::MatchRecord(mask, stored, given);
}
int breakWritingThenFormat(void* record, char* line) {
  vrxtest::breakWriting(victim->temporaryStream);
  return GenRegVarVal::FormatLine(record, line);
}
int refuseToFormat(void*, char*) {
  return statusInt(status::line_too_long);
}

TEST(TextFaults, ReadErrorAbandonsEveryUpdate) {
  for (const Update update : kUpdates) {
    Profile profile;
    const LeakCheck leaks;
    const FailCall fault(Call::kFread, 1, EIO);
    EXPECT_EQ(profile.run(update), status::read_failed);
    EXPECT_EQ(profile.bytes(), kBefore);
    EXPECT_EQ(profile.copyIsLeft(), update == Update::kAdd);
  }
}

TEST(TextFaults, ReadErrorBehindAMatchIsNotSuccess) {
  std::string lines = "A = 1\n";
  while (lines.size() < 40000)
    lines += "NAME = value\n";
  for (const Update update : {Update::kChange, Update::kDelete}) {
    Profile profile(lines);
    const FailCall fault(Call::kFread, 2, EIO);
    EXPECT_EQ(profile.run(update), status::read_failed);
    EXPECT_EQ(profile.bytes(), lines);
    EXPECT_FALSE(profile.copyIsLeft());
  }
}

TEST(TextFaults, FullDiskAbandonsEveryUpdate) {
  for (const Update update : kUpdates) {
    Profile profile;
    const LeakCheck leaks;
    victim = &*profile;
    profile->features = kGenRegVerifyCommit;
    profile->matchRecord = breakWritingThenMatch;
    EXPECT_EQ(profile.run(update), status::copy_write_failed);
    EXPECT_EQ(profile.bytes(), kBefore);
  }
}

TEST(TextFaults, FullDiskUnderTheLinesThatAreKeptIsReported) {
  Profile profile(kLastLine);
  const LeakCheck leaks;
  const FailCall fault(Call::kFwrite, 1, ENOSPC);
  EXPECT_EQ(profile.run(Update::kAdd), status::copy_write_failed);
  EXPECT_TRUE(fault.fired());
  EXPECT_EQ(profile.bytes(), kLastLine);
}

TEST(TextFaults, FullDiskUnderManyLinesIsReportedOnce) {
  std::string lines;
  while (lines.size() < 40000)
    lines += "A = 1\n";
  for (const Update update : {Update::kAdd, Update::kChange}) {
    Profile profile(lines);
    const LeakCheck leaks;
    const CapturedLog log;
    const FailCall fault(Call::kFwrite, 1, ENOSPC);
    EXPECT_EQ(profile.run(update), status::copy_write_failed);
    EXPECT_TRUE(fault.fired());
    EXPECT_EQ(log.count(update == Update::kAdd ? genreg::kGenRegTextAdd : genreg::kGenRegTextChange,
                        status::copy_write_failed),
              1);
    EXPECT_EQ(profile.bytes(), lines);
  }
}

TEST(TextFaults, FullDiskUnderTheAddedLineIsToldApart) {
  Profile profile;
  const LeakCheck leaks;
  victim = &*profile;
  profile->formatLine = breakWritingThenFormat;
  EXPECT_EQ(profile.run(Update::kAdd), status::record_write_failed);
  EXPECT_EQ(profile.bytes(), kBefore);
  EXPECT_TRUE(profile.copyIsLeft());
}

TEST(TextFaults, LineThatCannotBeLaidOutIsReportedWithTheFileAsItWas) {
  for (const Update update : {Update::kAdd, Update::kChange}) {
    Profile profile;
    const LeakCheck leaks;
    const CapturedLog log;
    profile->formatLine = refuseToFormat;
    EXPECT_EQ(profile.run(update), status::record_not_formatted);
    EXPECT_EQ(profile.bytes(), kBefore);
    EXPECT_EQ(log.count(update == Update::kAdd ? genreg::kGenRegTextAdd : genreg::kGenRegTextChange,
                        status::record_not_formatted),
              1);
  }
}

TEST(TextFaults, AbandonedCopyThatCannotBeDeletedIsLoggedBehindTheReason) {
  Profile profile("B = 2\n");
  const LeakCheck leaks;
  const CapturedLog log;
  const FailCall fault(Call::kUnlink, 1, EACCES);
  EXPECT_EQ(profile.run(Update::kDelete), status::no_match);
  EXPECT_EQ(log.count(genreg::kGenRegTextDelete, status::copy_not_deleted), 1);
  EXPECT_TRUE(profile.copyIsLeft());
}

TEST(TextFaults, AppendWhoseEndCannotBeFoundChangesNothing) {
  Profile profile;
  const LeakCheck leaks;
  profile->features = kGenRegDuplicates;
  const FailCall fault(Call::kFseeko, 1, EIO);
  EXPECT_EQ(profile.run(Update::kAdd), status::seek_end_failed);
  EXPECT_TRUE(fault.fired());
  EXPECT_EQ(profile.bytes(), kBefore);
}

TEST(TextFaults, LeftoversOfADeadUpdateAreSetAside) {
  Profile profile;
  vrxtest::writeFile(profile.file("reg.tmp"), "half a copy");
  vrxtest::writeFile(profile.file("reg.cor"), "an older one");
  ASSERT_EQ(profile.run(Update::kChange), 0U);
  EXPECT_EQ(profile.bytes(), expectedAfter(Update::kChange));
  EXPECT_EQ(vrxtest::readFile(profile.file("reg.cor")), "half a copy");
}

TEST(TextFaults, CopyOfAnUpdateThatCouldNotOpenIsNotDeleted) {
  Profile profile;
  vrxtest::writeFile(profile.file("reg.tmp"), "half a copy");
  const FailCall fault(Call::kHandleOpen, 2, EACCES);
  EXPECT_EQ(profile.run(Update::kChange), status::open_failed);
  EXPECT_EQ(vrxtest::readFile(profile.file("reg.tmp")), "half a copy");
}

}  // namespace
