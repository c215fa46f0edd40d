// SPDX-License-Identifier: Apache-2.0
// Add, Change and Delete of the binary store: what they make of a registry, and whom they tell.
// What they do when something fails is bin_update_faults_test's.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "genreg/bin/bin_store.h"
#include "genreg/internal/function_ids.h"
#include "platform/osse/trace.h"
#include "tests/support/captured_log.h"
#include "tests/support/faults.h"
#include "tests/support/plain_registry.h"
#include "tests/support/store_watch.h"

namespace {

using namespace vrxtest;
using genreg::statusOf;
namespace status = genreg::status;

using Names = std::set<std::string>;

// Every combination of the bits that decide how an update commits and what it takes for a
// duplicate.
constexpr unsigned kUnique = 0;
constexpr unsigned kVerified = kGenRegVerifyCommit;
constexpr unsigned kMany = kGenRegDuplicates;

class BinUpdate : public testing::Test {
 protected:
  void fill(const std::string& bytes) { writeFile(files_.registry, bytes); }
  void fillThree() { fill(three_); }
  std::string contents() const { return readFile(files_.registry); }

  GenRegStatus add(PlainRecord record, unsigned long long mask = kPlainName) {
    return statusOf(registry_.Add(mask, &record));
  }
  GenRegStatus change(PlainRecord key, PlainRecord record, unsigned long long mask = kPlainName) {
    return statusOf(registry_.Change(mask, &key, &record));
  }
  GenRegStatus remove(PlainRecord key, unsigned long long mask = kPlainName) {
    return statusOf(registry_.Delete(mask, &key));
  }

  TempDir folder_;
  const PlainFiles files_{folder_};
  PlainRegistry registry_{files_.registry};
  const std::string three_ = plainFrame("a", 1) + plainFrame("b", 2) + plainFrame("c", 3);
  const std::string twins_ = plainFrame("a", 1) + plainFrame("b", 2) + plainFrame("a", 3);
};

// The commit roads on which copying updates must agree.
class BinUpdateRoads : public BinUpdate, public testing::WithParamInterface<unsigned> {
 protected:
  void SetUp() override { registry_.features = GetParam(); }
};
INSTANTIATE_TEST_SUITE_P(Features, BinUpdateRoads,
                         testing::Values(kUnique, kVerified, kUnique | kGenRegBigEndian,
                                         kVerified | kGenRegBigEndian));

std::string inOrderOf(PlainRegistry& registry, std::string frames) {
  if (!registry.isFeatureSet(kGenRegBigEndian)) return frames;
  for (std::size_t at = 0; at < frames.size(); at += 24) {
    std::reverse(frames.begin() + static_cast<long>(at),
                 frames.begin() + static_cast<long>(at + 4));
  }
  return frames;
}

TEST_P(BinUpdateRoads, AddToAMissingRegistryCreatesItsFolderAndOneFrame) {
  const NothingKept watch;
  const TempDir outer;
  const std::string path = outer.file("new/folder/reg");
  PlainRegistry registry(path, GetParam());
  PlainRecord record = plainRecord("a", 1);
  ASSERT_EQ(registry.Add(kPlainName, &record), 0);
  EXPECT_EQ(readFile(path), inOrderOf(registry, plainFrame("a", 1)));
  EXPECT_EQ(modeOf(outer.file("new/folder")), 0755);
}

TEST_P(BinUpdateRoads, AddToAnEmptyRegistryWritesOneFrame) {
  fill("");
  const CallCount reads(Call::kFread);
  ASSERT_EQ(add(plainRecord("a", 1)), 0U);
  EXPECT_EQ(contents(), inOrderOf(registry_, plainFrame("a", 1)));
  if ((GetParam() & kVerified) == 0) {
    EXPECT_EQ(reads.calls(), 0);
  }
  EXPECT_EQ(namesIn(folder_), (Names{"reg", ".reg.lock"}));
}

TEST_P(BinUpdateRoads, AddAppendsAndKeepsTheOrder) {
  fill(inOrderOf(registry_, three_));
  const NothingKept watch;
  ASSERT_EQ(add(plainRecord("0", 0)), 0U);
  ASSERT_EQ(add(plainRecord("d", 4)), 0U);
  EXPECT_EQ(contents(), inOrderOf(registry_, three_ + plainFrame("0", 0) + plainFrame("d", 4)));
  EXPECT_EQ(namesIn(folder_), (Names{"reg", ".reg.lock"}));
}

TEST_P(BinUpdateRoads, AddFindsADuplicateAnywhereAndChangesNothing) {
  fill(inOrderOf(registry_, three_));
  const NothingKept watch;
  for (const char* name : {"a", "b", "c"}) {
    EXPECT_EQ(add(plainRecord(name, 77)), status::duplicate_record);
    EXPECT_EQ(contents(), inOrderOf(registry_, three_));
  }
  EXPECT_TRUE(lockIsFree(files_.registry));
}

TEST_P(BinUpdateRoads, AddedRecordIsADuplicateUnderItsMaskOnly) {
  fill(inOrderOf(registry_, plainFrame("a", 1)));
  EXPECT_EQ(add(plainRecord("a", 2), kPlainValue), 0U);
  EXPECT_EQ(add(plainRecord("d", 2), kPlainValue), status::duplicate_record);
}

TEST_P(BinUpdateRoads, ChangeReplacesTheRecordInItsPlace) {
  fill(inOrderOf(registry_, three_));
  const NothingKept watch;
  ASSERT_EQ(change(plainRecord("b", 0), plainRecord("new", 9)), 0U);
  EXPECT_EQ(contents(),
            inOrderOf(registry_, plainFrame("a", 1) + plainFrame("new", 9) + plainFrame("c", 3)));
  EXPECT_EQ(namesIn(folder_), (Names{"reg", ".reg.lock"}));
}

TEST_P(BinUpdateRoads, DeleteTakesTheRecordOut) {
  for (const char* name : {"a", "b", "c"}) {
    fill(inOrderOf(registry_, three_));
    ASSERT_EQ(remove(plainRecord(name, 0)), 0U);
    std::string expected = three_;
    expected.erase(static_cast<std::size_t>(name[0] - 'a') * 24, 24);
    EXPECT_EQ(contents(), inOrderOf(registry_, expected));
  }
  EXPECT_EQ(namesIn(folder_), (Names{"reg", ".reg.lock"}));
}

TEST_P(BinUpdateRoads, DeleteOfTheOnlyRecordLeavesAnEmptyRegistry) {
  fill(inOrderOf(registry_, plainFrame("a", 1)));
  ASSERT_EQ(remove(plainRecord("a", 0)), 0U);
  EXPECT_TRUE(pathExists(files_.registry));
  EXPECT_EQ(contents(), "");
  EXPECT_EQ(remove(plainRecord("a", 0)), status::no_match);
}

TEST_P(BinUpdateRoads, ChangeToTheSameValuesIsRefused) {
  fill(inOrderOf(registry_, three_));
  EXPECT_EQ(change(plainRecord("b", 0), plainRecord("b", 2)), status::unchanged);
  EXPECT_EQ(contents(), inOrderOf(registry_, three_));
}

TEST_P(BinUpdateRoads, NoMatchIsReportedAndChangesNothing) {
  fill(inOrderOf(registry_, three_));
  EXPECT_EQ(change(plainRecord("x", 0), plainRecord("y", 9)), status::no_match);
  EXPECT_EQ(remove(plainRecord("x", 0)), status::no_match);
  EXPECT_EQ(contents(), inOrderOf(registry_, three_));
}

TEST_P(BinUpdateRoads, SeveralMatchesAreRefused) {
  fill(inOrderOf(registry_, twins_));
  EXPECT_EQ(change(plainRecord("a", 0), plainRecord("y", 9)), status::several_match);
  EXPECT_EQ(remove(plainRecord("a", 0)), status::several_match);
  EXPECT_EQ(contents(), inOrderOf(registry_, twins_));
}

TEST_P(BinUpdateRoads, UnchangedComesBeforeSeveral) {
  fill(inOrderOf(registry_, twins_));
  EXPECT_EQ(change(plainRecord("a", 0), plainRecord("a", 3)), status::unchanged);
}

TEST_P(BinUpdateRoads, CallersRecordsAreNotWrittenTo) {
  fill(inOrderOf(registry_, three_));
  Fenced<PlainRecord> key(plainRecord("b", 0));
  Fenced<PlainRecord> record(plainRecord("d", 4));
  ASSERT_EQ(registry_.Change(kPlainName, key.record(), record.record()), 0);
  ASSERT_EQ(registry_.Delete(kPlainName, record.record()), 0);
  ASSERT_EQ(registry_.Add(kPlainName, record.record()), 0);
  EXPECT_TRUE(key.isUntouched());
  EXPECT_TRUE(record.isUntouched());
}

// --- odd frames

class BinUpdateFrames : public BinUpdateRoads {
 protected:
  std::string frame(std::string body) {
    std::string bytes = frameOf(body);
    if (registry_.isFeatureSet(kGenRegBigEndian)) std::reverse(bytes.begin(), bytes.begin() + 4);
    return bytes;
  }
  std::string record(std::string_view name, int value) {
    return frame(plainFrame(name, value).substr(4));
  }
};
INSTANTIATE_TEST_SUITE_P(Features, BinUpdateFrames,
                         testing::Values(kUnique, kVerified, kVerified | kGenRegBigEndian));

TEST_P(BinUpdateFrames, OfOtherLengthsAreCarriedOverByteForByte) {
  std::string odd = frame("") + frame("x") + frame("yz") + frame(std::string(19, 'n'));
  odd += frame(std::string(21, 'l')) + frame(std::string(0x100001, 'h'));
  fill(odd + record("a", 1));
  ASSERT_EQ(add(plainRecord("b", 2)), 0U);
  EXPECT_TRUE(contents() == odd + record("a", 1) + record("b", 2));
  ASSERT_EQ(change(plainRecord("a", 0), plainRecord("c", 3)), 0U);
  EXPECT_TRUE(contents() == odd + record("c", 3) + record("b", 2));
  ASSERT_EQ(remove(plainRecord("b", 0)), 0U);
  EXPECT_TRUE(contents() == odd + record("c", 3));
}

TEST_P(BinUpdateFrames, OfOtherLengthsAreChangedAndDeletedWhenTheyMatch) {
  fill(frame("ab") + frame(plainFrame("long", 5).substr(4) + "tail"));
  ASSERT_EQ(change(plainRecord("ab", 0), plainRecord("ab", 1)), 0U);
  EXPECT_EQ(contents(), record("ab", 1) + frame(plainFrame("long", 5).substr(4) + "tail"));
  ASSERT_EQ(remove(plainRecord("long", 0)), 0U);
  EXPECT_EQ(contents(), record("ab", 1));
}

// --- several records may match

TEST_F(BinUpdate, EveryMatchIsChangedAndDeletedWithFeature2) {
  for (const unsigned verified : {0U, 1U}) {
    registry_.features = kMany | verified;
    fill(twins_);
    ASSERT_EQ(change(plainRecord("a", 0), plainRecord("z", 9)), 0U);
    EXPECT_EQ(contents(), plainFrame("z", 9) + plainFrame("b", 2) + plainFrame("z", 9));
    ASSERT_EQ(remove(plainRecord("z", 0)), 0U);
    EXPECT_EQ(contents(), plainFrame("b", 2));
  }
}

TEST_F(BinUpdate, OneMatchThatHoldsTheNewValuesRefusesAChangeOfAll) {
  registry_.features = kMany | kVerified;
  fill(twins_);
  EXPECT_EQ(change(plainRecord("a", 0), plainRecord("a", 3)), status::unchanged);
  EXPECT_EQ(contents(), twins_);
}

TEST_F(BinUpdate, AddWithFeatures1And2KeepsDuplicatesAndNeverAsksTheMatchSlot) {
  registry_.features = kMany | kVerified;
  fill(three_);
  ASSERT_EQ(add(plainRecord("a", 1)), 0U);
  EXPECT_EQ(contents(), three_ + plainFrame("a", 1));
  registry_.features = kMany;
  registry_.matchRecord = nullptr;
  EXPECT_EQ(add(plainRecord("a", 1)), 0U);
}

// --- in place

TEST_F(BinUpdate, AddWithFeature2AloneAppendsInPlaceAndCopiesNothing) {
  registry_.features = kMany;
  fill("damage that nobody reads");
  const std::string before = contents();
  struct stat first {};
  ASSERT_EQ(stat(files_.registry.c_str(), &first), 0);
  const NothingKept watch;
  const CallCount reads(Call::kFread);
  const CallCount renames(Call::kRename);
  ASSERT_EQ(add(plainRecord("a", 1)), 0U);
  ASSERT_EQ(add(plainRecord("a", 1)), 0U);
  EXPECT_EQ(contents(), before + plainFrame("a", 1) + plainFrame("a", 1));
  struct stat last {};
  ASSERT_EQ(stat(files_.registry.c_str(), &last), 0);
  EXPECT_EQ(last.st_ino, first.st_ino);
  EXPECT_EQ(reads.calls(), 0);
  EXPECT_EQ(renames.calls(), 0);
  EXPECT_EQ(namesIn(folder_), (Names{"reg", ".reg.lock"}));
}

TEST_F(BinUpdate, AppendInPlaceLeavesALeftoverCopyAlone) {
  registry_.features = kMany;
  writeFile(files_.temporary, "left over");
  ASSERT_EQ(add(plainRecord("a", 1)), 0U);
  EXPECT_EQ(contents(), plainFrame("a", 1));
  EXPECT_EQ(readFile(files_.temporary), "left over");
}

// A header that is stamped on commit cannot stay true under an append.
TEST_F(BinUpdate, AddWithFeatures2And256CopiesAndCommits) {
  registry_.features = kMany | kGenRegChecksumHeader;
  const CapturedOutput progress;  // stamping prints a line
  ASSERT_EQ(add(plainRecord("a", 1)), 0U);
  ASSERT_EQ(add(plainRecord("a", 2)), 0U);
  EXPECT_EQ(contents().size(), 32U + 2 * 24U);
  PlainRecord key{};
  PlainRecord result{};
  EXPECT_EQ(registry_.Get(kPlainValue, &(key = plainRecord("", 2)), &result), 0);
}

// --- formats that disagree with themselves

unsigned long reportedSize = 0;
int reportSize(void*, unsigned long* size) {
  *size = reportedSize;
  return 0;
}

TEST_F(BinUpdate, RecordLongerThanTheFormatsLargestIsWrittenFromTheCallersOwn) {
  registry_.features = kUnique;
  registry_.getRecordSize = reportSize;
  reportedSize = 40000;
  std::string record(reportedSize, 'r');
  ASSERT_EQ(registry_.Add(kPlainName, record.data()), 0);
  EXPECT_TRUE(contents() == frameOf(record));
}

TEST_F(BinUpdate, RecordShorterThanTheFormatsLargestIsReadNoFurther) {
  registry_.getRecordSize = reportSize;
  reportedSize = 5;
  const auto record = std::make_unique<char[]>(5);
  std::memcpy(record.get(), "short", 5);
  registry_.validateRecord = [](unsigned long long, void*) { return 0; };
  registry_.features = kMany | kVerified;  // nothing is compared with the caller's own bytes
  ASSERT_EQ(registry_.Add(kPlainName, record.get()), 0);
  EXPECT_EQ(contents(), frameOf("short"));
}

// --- whom an update tells

TEST_F(BinUpdate, LogAndNotifyAreCalledInOrderWithTheCallersRecords) {
  Announcements told(registry_);
  PlainRecord first = plainRecord("a", 1);
  PlainRecord second = plainRecord("b", 2);
  ASSERT_EQ(registry_.Add(kPlainName, &first), 0);
  ASSERT_EQ(registry_.Change(kPlainName, &first, &second), 0);
  ASSERT_EQ(registry_.Delete(kPlainName, &second), 0);
  void* const self = &registry_;
  const Announcement notified{Announcement::kNotify, nullptr, 0, nullptr, nullptr};
  const std::vector<Announcement> expected = {
      {Announcement::kLog, self, 4, &first, nullptr},  notified,
      {Announcement::kLog, self, 2, &first, &second},  notified,
      {Announcement::kLog, self, 8, &second, nullptr}, notified};
  EXPECT_EQ(Announcements::calls, expected);
}

TEST_F(BinUpdate, FailedUpdatesTellNobody) {
  fill(twins_);
  const Announcements told(registry_);
  EXPECT_EQ(add(plainRecord("a", 9)), status::duplicate_record);
  EXPECT_EQ(change(plainRecord("a", 0), plainRecord("x", 1)), status::several_match);
  EXPECT_EQ(change(plainRecord("b", 0), plainRecord("b", 2)), status::unchanged);
  EXPECT_EQ(remove(plainRecord("x", 0)), status::no_match);
  EXPECT_TRUE(Announcements::calls.empty());
}

// The registry is unlocked, and what it holds is committed, when others are told.
PlainRegistry* toldRegistry = nullptr;
std::string toldContents;
bool toldUnlocked = false;
int noteState() {
  toldContents = readFile(toldRegistry->registryPath);
  toldUnlocked = lockIsFree(toldRegistry->registryPath);
  return 0;
}

TEST_F(BinUpdate, OthersAreToldWhenTheUpdateStandsAndTheLockIsFree) {
  toldRegistry = &registry_;
  registry_.features |= kGenRegNotify;
  registry_.notify = noteState;
  ASSERT_EQ(add(plainRecord("a", 1)), 0U);
  EXPECT_EQ(toldContents, plainFrame("a", 1));
  EXPECT_TRUE(toldUnlocked);
}

TEST_F(BinUpdate, RefusingLogSilencesTheNotificationOfChangeAndDeleteOnly) {
  const Announcements told(registry_);
  Announcements::logResult = status::invalid_argument;
  const auto slotsCalled = [] {
    std::vector<Announcement::Slot> slots;
    for (const Announcement& call : Announcements::calls)
      slots.push_back(call.slot);
    Announcements::calls.clear();
    return slots;
  };
  using Slots = std::vector<Announcement::Slot>;
  EXPECT_EQ(add(plainRecord("a", 1)), 0U);
  EXPECT_EQ(slotsCalled(), (Slots{Announcement::kLog, Announcement::kNotify}));
  EXPECT_EQ(change(plainRecord("a", 1), plainRecord("b", 2)), 0U);
  EXPECT_EQ(slotsCalled(), Slots{Announcement::kLog});
  EXPECT_EQ(remove(plainRecord("b", 2)), 0U);
  EXPECT_EQ(slotsCalled(), Slots{Announcement::kLog});
}

TEST_F(BinUpdate, FailingNotificationIsLoggedAndTheUpdateSucceeds) {
  const Announcements told(registry_);
  Announcements::notifyResult = status::notify_failed;
  const CapturedLog log;
  EXPECT_EQ(add(plainRecord("a", 1)), 0U);
  EXPECT_EQ(log.count(genreg::kGenRegBinAdd, status::notify_failed), 1);
  EXPECT_EQ(contents(), plainFrame("a", 1));
}

TEST_F(BinUpdate, MissingNotifySlotIsReportedAlthoughTheUpdateStands) {
  registry_.features |= kGenRegNotify;
  EXPECT_EQ(add(plainRecord("a", 1)), status::no_notify_slot);
  EXPECT_EQ(change(plainRecord("a", 0), plainRecord("b", 2)), status::no_notify_slot);
  EXPECT_EQ(contents(), plainFrame("b", 2));
  EXPECT_EQ(remove(plainRecord("b", 0)), status::no_notify_slot);
  EXPECT_EQ(contents(), "");
}

TEST_F(BinUpdate, RefusingLogHidesTheMissingNotifySlotOfAChange) {
  fill(three_);
  const Announcements told(registry_);
  registry_.notify = nullptr;
  Announcements::logResult = status::invalid_argument;
  EXPECT_EQ(change(plainRecord("a", 0), plainRecord("x", 2)), 0U);
  EXPECT_EQ(add(plainRecord("y", 1)), status::no_notify_slot);
}

TEST_F(BinUpdate, SlotsAreNotCalledWithoutTheirFeatures) {
  const Announcements told(registry_);
  registry_.features = kVerified;
  EXPECT_EQ(add(plainRecord("a", 1)), 0U);
  EXPECT_TRUE(Announcements::calls.empty());
}

TEST_F(BinUpdate, MissingLogSlotIsSkipped) {
  registry_.features |= kGenRegChangeLog;
  EXPECT_EQ(add(plainRecord("a", 1)), 0U);
}

// --- trace

void keepFinding(const GTraceEvent* event, void* context) {
  if (event->kind != GTraceKind::variable || event->function != genreg::kGenRegBinAdd) return;
  static_cast<std::string*>(context)->append(static_cast<const char*>(event->data), event->size);
}

TEST_F(BinUpdate, DuplicateIsNamedInTheTrace) {
  fill(three_);
  std::string finding;
  ASSERT_EQ(gtraceAttach(keepFinding, &finding), 0U);
  EXPECT_EQ(add(plainRecord("a", 9)), status::duplicate_record);
  ASSERT_EQ(gtraceDetach(), 0U);
  EXPECT_EQ(finding, "Match found; duplicate record");
}

TEST_F(BinUpdate, RecordWhoseSizeIsNotToldAtFirstIsTakenAsTheLargest) {
  static int calls = 0;
  calls = 0;
  registry_.getRecordSize = [](void* record, unsigned long* size) {
    if (++calls == 1) return genreg::statusInt(status::invalid_argument);
    return PlainRegistry::plainSize(record, size);
  };
  EXPECT_EQ(add(plainRecord("z", 9)), 0U);
  EXPECT_GT(calls, 1);
  PlainRecord found{};
  PlainRecord key = plainRecord("z", 0);
  EXPECT_EQ(registry_.Get(kPlainName, &key, &found), 0);
  EXPECT_EQ(found.value, 9);
}

}  // namespace
