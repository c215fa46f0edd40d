// SPDX-License-Identifier: Apache-2.0
// The text store by itself: its slots, and opening and closing by hand.
#include "genreg/text/text_store.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "genreg/formats/services.h"
#include "genreg/formats/var_val.h"
#include "tests/support/faults.h"
#include "tests/support/leak_check.h"
#include "tests/support/temp_dir.h"
#include "tests/support/text_lines.h"

namespace {

using vrxtest::LeakCheck;
using vrxtest::TempDir;

TEST(TextStore, UpdateByHandIsOpenedAndClosedAsAnyRegistry) {
  const LeakCheck leaks;
  const TempDir folder;
  const std::string path = folder.file("profile");
  vrxtest::writeFile(path, "A = 1\n");
  unsigned int rc = 1;
  GenRegVarVal profile(path.c_str(), &rc);
  ASSERT_EQ(rc, 0u);
  profile.features = 0;
  GenRegText& store = profile;
  ASSERT_EQ(store.OpenReg(kGenRegChange), 0u);
  ASSERT_NE(store.temporaryStream, nullptr);
  ASSERT_EQ(std::fputs("B = 2\n", store.temporaryStream), 1);
  EXPECT_EQ(store.CloseReg(kGenRegChange), 0u);
  EXPECT_EQ(vrxtest::readFile(path), "B = 2\n");
  EXPECT_EQ(store.temporaryStream, nullptr);
}

TEST(TextStore, MissingRegistryIsNotOpened) {
  const LeakCheck leaks;
  const TempDir folder;
  unsigned int rc = 1;
  GenRegVarVal profile(folder.file("profile").c_str(), &rc);
  ASSERT_EQ(rc, 0u);
  GenRegText& store = profile;
  EXPECT_EQ(store.OpenReg(kGenRegRead), 0x90000513u);
  EXPECT_EQ(store.CloseReg(kGenRegRead), 0u);
}

// Slots that a program puts before the format's own, and how often they are called.
int slotCalls = 0;
decltype(GenRegText::parseLine) ownParse = nullptr;
decltype(GenRegText::matchRecord) ownMatch = nullptr;

TEST(TextStore, SlotOfTheProgramsOwnIsNotPassedOver) {
  const TempDir folder;
  const std::string path = folder.file("profile");
  vrxtest::writeFile(path, "A = 1\nB = 2\n");
  for (const bool parses : {true, false}) {
    unsigned int rc = 1;
    GenRegVarVal profile(path.c_str(), &rc);
    ASSERT_EQ(rc, 0u);
    ownParse = profile.parseLine;
    ownMatch = profile.matchRecord;
    slotCalls = 0;
    if (parses) {
      profile.parseLine = [](void* record, char* line) {
        ++slotCalls;
        return ownParse(record, line);
      };
    } else {
      profile.matchRecord = [](unsigned long long mask, void* stored, void* given) {
        ++slotCalls;
        return ownMatch(mask, stored, given);
      };
    }
    vrxtest::ProfileLine key("B");
    EXPECT_EQ(profile.Delete(kVarValVariable, key.record()), 0u);
    EXPECT_GE(slotCalls, 2) << "each line is looked at";
    vrxtest::writeFile(path, "A = 1\nB = 2\n");
  }
}

int countParse(void* record, char* line) {
  ++slotCalls;
  return GenRegVarVal::ParseLine(record, line);
}

// How often the parser is asked for until the line of B has been handed out.
int parsesUntilB(const GenRegLineSlots* slots) {
  const TempDir folder;
  const std::string path = folder.file("profile");
  vrxtest::writeFile(path, "A = 1\nB = 2\nC = 3\n");
  unsigned int rc = 1;
  GenRegVarVal profile(path.c_str(), &rc);
  EXPECT_EQ(rc, 0u);
  profile.parseLine = countParse;
  profile.lineSlots = slots;
  slotCalls = 0;
  vrxtest::ProfileLine key("B");
  GenRegVarValRecord found{};
  EXPECT_EQ(profile.Get(kVarValVariable, key.record(), &found), 0u);
  EXPECT_STREQ(found.value, "2");
  return slotCalls;
}

TEST(TextStore, ParserIsAskedWhereTheFormatHasNoWayRoundIt) {
  unsigned int rc = 1;
  const GenRegVarVal profile("/", &rc);
  GenRegLineSlots slots = *profile.lineSlots;
  slots.parseLine = countParse;
  EXPECT_EQ(parsesUntilB(&slots), 0);
  slots.parseText = nullptr;
  EXPECT_EQ(parsesUntilB(&slots), 2) << "to compare it, and for the caller";
  EXPECT_EQ(parsesUntilB(nullptr), 3) << "the line before as well";
}

TEST(TextStore, KeyWithoutANameThatTheProgramAdmitsFindsALineWithoutOne) {
  const TempDir folder;
  const std::string path = folder.file("profile");
  vrxtest::writeFile(path, "A = 1\n= 2\n");
  unsigned int rc = 1;
  GenRegVarVal profile(path.c_str(), &rc);
  ASSERT_EQ(rc, 0u);
  profile.validateRecord = [](unsigned long long, void*) { return 0; };
  vrxtest::ProfileLine key({}, "not compared");
  GenRegVarValRecord found{};
  EXPECT_EQ(profile.Get(kVarValVariable, key.record(), &found), 0u);
  EXPECT_STREQ(found.value, "2");
}

TEST(TextStore, NameInAKeyThatIsACommentPassesNoCommentOver) {
  const TempDir folder;
  std::string path = folder.file("services");
  vrxtest::writeFile(path, "ftp 21/tcp\n# note\n");
  unsigned int rc = 1;
  GenRegServices services(path.data(), &rc);
  ASSERT_EQ(rc, 0u);
  vrxtest::ServiceLine key("ftp", 0, {}, {}, " note");
  key.record()->flags = kServicesHasComment;
  GenRegServicesRecord found{};
  EXPECT_EQ(services.Get(kServicesName, key.record(), &found), 0u);
  EXPECT_EQ(found.flags, kServicesHasComment);
  EXPECT_STREQ(found.comment, " note");
}

TEST(TextStore, ScanWithoutItsReaderIsReportedAndGoesOnLater) {
  const TempDir folder;
  const std::string path = folder.file("profile");
  vrxtest::writeFile(path, "A = 1\n");
  unsigned int rc = 1;
  GenRegVarVal profile(path.c_str(), &rc);
  ASSERT_EQ(rc, 0u);
  ASSERT_EQ(profile.OpenScan(), 0u);
  vrxtest::ProfileLine key("A");
  std::vector<unsigned char> found(kGenRegLineSize * 2);
  {
    const vrxtest::FailCall fault(vrxtest::Call::kNew, 1, ENOMEM);
    EXPECT_EQ(profile.GetNext(kVarValVariable, key.record(), found.data()), 0x900001E7u);
    EXPECT_TRUE(fault.fired());
  }
  EXPECT_EQ(profile.GetNext(kVarValVariable, key.record(), found.data()), 0u);
}

}  // namespace
