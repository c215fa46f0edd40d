// SPDX-License-Identifier: Apache-2.0
// The text store by itself: its slots, and opening and closing by hand.
#include "genreg/text/text_store.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

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
