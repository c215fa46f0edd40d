// SPDX-License-Identifier: Apache-2.0
// The table of fields against the record's layout.
#include "globalreg/internal/fields.h"

#include <gtest/gtest.h>

#include "tests/support/global_records.h"

namespace {

using globalreg::Field;
using globalreg::FieldKind;
using globalreg::Layout;
using globalreg::layoutOf;

const unsigned char* bytes(const GlobalRegRecord& record) {
  return reinterpret_cast<const unsigned char*>(&record);
}

TEST(Fields, FillTheBodyInOrderWithoutOverlap) {
  for (const std::uint32_t type : {1U, 2U, 4U}) {
    const Layout* layout = layoutOf(type);
    ASSERT_NE(layout, nullptr);
    EXPECT_EQ(layout->type, type);
    std::size_t next = 20;
    for (const Field& field : *layout) {
      EXPECT_EQ(field.offset, next) << field.name;
      next = std::size_t{field.offset} + field.width;
    }
    EXPECT_LE(next, 2596U);
  }
}

TEST(Fields, KnownBitsAreOneForEachField) {
  EXPECT_EQ(layoutOf(kGlobalRegInstance)->known, 0x3FFU);
  EXPECT_EQ(layoutOf(kGlobalRegService)->known, 0x3FFU);
  EXPECT_EQ(layoutOf(kGlobalRegVariable)->known, 0xFU);
}

TEST(Fields, OtherTypesHaveNoLayout) {
  for (const std::uint32_t type : {0U, 3U, 5U, 8U, 0xFFFFFFFFU})
    EXPECT_EQ(layoutOf(type), nullptr);
}

TEST(Fields, VariableCommentRunsUpToTheCheckSum) {
  const Layout* layout = layoutOf(kGlobalRegVariable);
  const Field& comment = layout->fields[3];
  EXPECT_EQ(std::size_t{comment.offset} + comment.width, globalreg::kCheckSumOffset);
}

TEST(Fields, FlagCountsByItsLowByteOnly) {
  GlobalRegRecord record = vrxtest::serviceRecord("VRX");
  record.Services.Flag = 300;
  const Field& flag = layoutOf(kGlobalRegService)->fields[7];
  EXPECT_EQ(flag.kind, FieldKind::lowByte);
  EXPECT_EQ(globalreg::fieldNumber(bytes(record), flag), 44U);
}

TEST(Fields, UnterminatedTextEndsWithItsArray) {
  GlobalRegRecord record = vrxtest::instanceRecord(std::string(64, 's'), "i");
  const Field& service = layoutOf(kGlobalRegInstance)->fields[0];
  EXPECT_EQ(globalreg::fieldLength(bytes(record), service), 64U);
}

}  // namespace
