// SPDX-License-Identifier: Apache-2.0
// Matching records by mask.
#include <gtest/gtest.h>

#include "globalreg/global_reg.h"
#include "globalreg/internal/fields.h"
#include "tests/support/global_records.h"

namespace {

using vrxtest::instanceRecord;
using vrxtest::serviceRecord;
using vrxtest::setText;
using vrxtest::variableRecord;

constexpr unsigned long long kAll = ~0ULL;

int match(unsigned long long mask, GlobalRegRecord& candidate, GlobalRegRecord& key) {
  return GlobalReg::MatchRecord(mask, &candidate, &key);
}

TEST(Match, TypesThatDifferNeverMatch) {
  GlobalRegRecord stored = instanceRecord("VRX", "a");
  GlobalRegRecord key{};
  key.RecordType = kGlobalRegService;
  EXPECT_EQ(match(0, stored, key), 0);
}

TEST(Match, KeyOfTypeZeroAndMaskZeroMatchesEveryRecord) {
  GlobalRegRecord key{};
  for (const std::uint32_t type : {0U, 1U, 2U, 3U, 4U, 9U}) {
    GlobalRegRecord stored{};
    stored.RecordType = type;
    EXPECT_EQ(match(0, stored, key), 1) << type;
  }
}

TEST(Match, CandidateOfAnotherTypeMatchesWhateverTheMask) {
  GlobalRegRecord stored{};
  stored.RecordType = 9;
  GlobalRegRecord key{};
  key.Bytes[0] = 1;
  EXPECT_EQ(match(kAll, stored, key), 1);
}

TEST(Match, TextsAreCaseSensitive) {
  GlobalRegRecord stored = instanceRecord("VRX", "abc");
  GlobalRegRecord key = instanceRecord("VRX", "ABC");
  EXPECT_EQ(match(kInstanceName, stored, key), 0);
  EXPECT_EQ(match(kInstanceService, stored, key), 1);
}

TEST(Match, BytesBehindATerminatorDoNotCount) {
  GlobalRegRecord stored = variableRecord("VRX", "A", "1");
  GlobalRegRecord key = stored;
  key.Variable.Value[2] = 'x';
  EXPECT_EQ(match(kAll, stored, key), 1);
}

TEST(Match, UnterminatedTextsAreComparedToTheirWidth) {
  GlobalRegRecord stored = instanceRecord(std::string(64, 's'), "a");
  GlobalRegRecord key = stored;
  key.Instance.VersionCode = 1;  // the bytes behind Service
  EXPECT_EQ(match(kInstanceService, stored, key), 1);
  key.Instance.Service[63] = '\0';
  EXPECT_EQ(match(kInstanceService, stored, key), 0);
}

TEST(Match, FieldMasksAreNotLookedAt) {
  GlobalRegRecord stored = instanceRecord("VRX", "a");
  GlobalRegRecord key = stored;
  key.FieldMask = 0;
  key.MissingFieldMask = 5;
  EXPECT_EQ(match(kAll, stored, key), 1);
}

TEST(Match, EveryKnownFieldOfEveryTypeCounts) {
  for (const std::uint32_t type : {1U, 2U, 4U}) {
    const globalreg::Layout* layout = globalreg::layoutOf(type);
    for (const globalreg::Field& field : *layout) {
      GlobalRegRecord stored{};
      stored.RecordType = type;
      GlobalRegRecord key = stored;
      reinterpret_cast<unsigned char*>(&key)[field.offset] = 'x';
      const std::uint64_t bit = layout->bit(field);
      EXPECT_EQ(match(bit, stored, key), 0) << field.name;
      EXPECT_EQ(match(kAll & ~bit, stored, key), 1) << field.name;
    }
  }
}

TEST(Match, WholeWordsAreComparedButOfTheFlagTheStoredByte) {
  GlobalRegRecord stored = serviceRecord("VRX");
  GlobalRegRecord key = stored;
  key.Services.Num4 = 0x01000000;
  EXPECT_EQ(match(kServiceNum4, stored, key), 0);
  stored.Services.Flag = 44;
  key.Services.Flag = 300;
  EXPECT_EQ(match(kServiceFlag, stored, key), 1);
  key.Services.Flag = 45;
  EXPECT_EQ(match(kServiceFlag, stored, key), 0);
}

TEST(Match, BitsOutsideTheTypeAreIgnored) {
  GlobalRegRecord stored = variableRecord("VRX", "A", "1");
  GlobalRegRecord key = stored;
  setText(key.Variable.Service, "KRN");
  EXPECT_EQ(match(kAll & ~0xFULL, stored, key), 1);
}

}  // namespace
