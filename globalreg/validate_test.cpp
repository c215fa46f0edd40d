// SPDX-License-Identifier: Apache-2.0
// Validation, rule by rule, and the dump.
#include <gtest/gtest.h>

#include <string>

#include "genreg/internal/function_ids.h"
#include "globalreg/global_reg.h"
#include "globalreg/internal/fields.h"
#include "tests/support/captured_log.h"
#include "tests/support/global_records.h"

namespace {

using vrxtest::CapturedLog;
using vrxtest::instanceRecord;
using vrxtest::serviceRecord;
using vrxtest::variableRecord;

constexpr GenRegStatus kOk = 0;

GenRegStatus validate(unsigned long long required, GlobalRegRecord& record) {
  return genreg::statusOf(GlobalReg::ValidateRecord(required, &record));
}

// One field of one type: what its empty (or wrong) content and its absence give; 0 for no rule.
struct Rule {
  std::uint32_t type;
  std::uint64_t bit;
  GenRegStatus content;
  GenRegStatus absent;
};

constexpr Rule kRules[] = {
    {1, 0x1, 0x90000229, 0x90000233},   {1, 0x2, 0, 0x90000234},
    {1, 0x4, 0x9000022B, 0x90000235},   {1, 0x8, 0x9000022C, 0x90000236},
    {1, 0x10, 0x9000022D, 0x90000237},  {1, 0x20, 0x9000022E, 0x90000238},
    {1, 0x40, 0x9000022F, 0x90000239},  {1, 0x80, 0x90000230, 0x9000023A},
    {1, 0x100, 0x90000231, 0x9000023B}, {1, 0x200, 0x90000232, 0x9000023C},
    {2, 0x1, 0x9000023D, 0x90000242},   {2, 0x2, 0, 0x90000243},
    {2, 0x4, 0x9000023F, 0x90000244},   {2, 0x8, 0x90000240, 0x90000245},
    {2, 0x10, 0x90000241, 0x90000246},  {2, 0x20, 0, 0},
    {2, 0x40, 0, 0x9000050E},           {2, 0x80, 0, 0x90000510},
    {2, 0x100, 0, 0x9000050F},          {2, 0x200, 0, 0x90000511},
    {4, 0x1, 0x90000247, 0x9000024B},   {4, 0x2, 0x90000248, 0x9000024C},
    {4, 0x4, 0x90000249, 0x9000024D},   {4, 0x8, 0x9000024A, 0x9000024E},
};

// A record of which every known field is present and acceptable.
GlobalRegRecord fullRecord(std::uint32_t type) {
  GlobalRegRecord record{};
  record.RecordType = type;
  const globalreg::Layout* layout = globalreg::layoutOf(type);
  record.FieldMask = layout->known;
  for (const globalreg::Field& field : *layout) {
    const unsigned char content = field.kind == globalreg::FieldKind::text ? 'x' : 1;
    reinterpret_cast<unsigned char*>(&record)[field.offset] = content;
  }
  return record;
}

// Breaks the field's content rule: an emptied text, a switch of 2.
void spoil(GlobalRegRecord& record, std::uint64_t bit) {
  const globalreg::Layout* layout = globalreg::layoutOf(record.RecordType);
  for (const globalreg::Field& field : *layout) {
    if (layout->bit(field) != bit) continue;
    const unsigned char content = field.kind == globalreg::FieldKind::text ? '\0' : 2;
    reinterpret_cast<unsigned char*>(&record)[field.offset] = content;
  }
}

TEST(Validate, FullRecordsOfEveryTypePassWithEverythingRequired) {
  for (const std::uint32_t type : {1U, 2U, 4U}) {
    GlobalRegRecord record = fullRecord(type);
    EXPECT_EQ(validate(~0ULL, record), kOk) << type;
  }
}

TEST(Validate, EveryContentRuleHasItsCodeAndHoldsForPresentFieldsOnly) {
  for (const Rule& rule : kRules) {
    GlobalRegRecord record = fullRecord(rule.type);
    spoil(record, rule.bit);
    EXPECT_EQ(validate(1ULL << 40, record), rule.content) << rule.type << " " << rule.bit;
    record.FieldMask &= ~rule.bit;
    EXPECT_EQ(validate(1ULL << 40, record), kOk) << rule.type << " " << rule.bit;
  }
}

TEST(Validate, EveryPresenceRuleHasItsCode) {
  for (const Rule& rule : kRules) {
    GlobalRegRecord record = fullRecord(rule.type);
    record.FieldMask &= ~rule.bit;
    EXPECT_EQ(validate(rule.bit, record), rule.absent) << rule.type << " " << rule.bit;
    EXPECT_EQ(validate(~rule.bit, record), kOk) << rule.type << " " << rule.bit;
  }
}

TEST(Validate, ContentRulesComeBeforePresenceRulesAndLowerBitsFirst) {
  GlobalRegRecord record = fullRecord(kGlobalRegInstance);
  spoil(record, kInstanceComment);
  record.FieldMask &= ~std::uint64_t{kInstanceService};
  EXPECT_EQ(validate(kInstanceService, record), 0x90000232U);
  spoil(record, kInstancePath);
  EXPECT_EQ(validate(kInstanceService, record), 0x9000022CU);
}

TEST(Validate, NothingRequiredAcceptsEverything) {
  GlobalRegRecord record{};
  record.RecordType = 9;
  record.MissingFieldMask = 7;
  EXPECT_EQ(validate(0, record), kOk);
  EXPECT_EQ(vrxtest::valueOf(record.MissingFieldMask), 7U);
}

TEST(Validate, TypesOutsideTheRangeAreRefused) {
  for (const std::uint32_t type : {0U, 5U, 8U, 0x80000000U}) {
    GlobalRegRecord record{};
    record.RecordType = type;
    record.FieldMask = 1;
    EXPECT_EQ(validate(1, record), 0x90000226U) << type;
  }
}

TEST(Validate, TypeThreeHasNoRules) {
  GlobalRegRecord record{};
  record.RecordType = 3;
  record.FieldMask = 1;
  EXPECT_EQ(validate(~0ULL, record), kOk);
}

TEST(Validate, RecordWithoutFieldsIsRefused) {
  GlobalRegRecord record{};
  record.RecordType = kGlobalRegVariable;
  EXPECT_EQ(validate(1, record), 0x90000227U);
}

TEST(Validate, ClearsMissingFieldMask) {
  GlobalRegRecord record = instanceRecord("VRX", "a");
  record.MissingFieldMask = 0x3F8;
  EXPECT_EQ(validate(kInstanceKey, record), kOk);
  EXPECT_EQ(vrxtest::valueOf(record.MissingFieldMask), 0U);
}

TEST(Validate, AbsentStartAtBootMayHoldAnyValue) {
  GlobalRegRecord record = instanceRecord("VRX", "a");
  record.Instance.StartAtBoot = 2;
  EXPECT_EQ(validate(kInstanceKey, record), kOk);
  record.FieldMask |= kInstanceStartAtBoot;
  EXPECT_EQ(validate(kInstanceKey, record), 0x9000022EU);
}

TEST(Validate, FailuresAreLoggedOnce) {
  GlobalRegRecord record = serviceRecord("");
  const CapturedLog log;
  EXPECT_EQ(validate(kServiceKey, record), 0x9000023DU);
  EXPECT_EQ(log.count(genreg::kGlobalRegValidateRecord), 1);
  EXPECT_EQ(log.count(genreg::kGlobalRegValidateRecord, 0x9000023D), 1);
}

TEST(Validate, WorksAtAnyAddress) {
  std::string buffer(sizeof(GlobalRegRecord) + 1, '\0');
  const GlobalRegRecord record = fullRecord(kGlobalRegInstance);
  std::memcpy(buffer.data() + 1, &record, sizeof record);
  EXPECT_EQ(GlobalReg::ValidateRecord(~0ULL, buffer.data() + 1), 0);
}

std::string dumpOf(GlobalRegRecord& record) {
  testing::internal::CaptureStdout();
  EXPECT_EQ(GlobalReg::PrintRecord(&record), 0);
  return testing::internal::GetCapturedStdout();
}

TEST(Dump, InstanceRecordShowsAllButTheAuxiliaryFields) {
  GlobalRegRecord record = instanceRecord("VRX", "inst1");
  vrxtest::setText(record.Instance.InstancePath, "/home/inst1");
  vrxtest::setText(record.Instance.Comment, "hi");
  record.Instance.StartAtBoot = 1;
  record.MissingFieldMask = 0x80;
  record.CheckSum = 0xFFFFFFFF;
  EXPECT_EQ(dumpOf(record),
            "   RecordType   = 1\n"
            "   FieldMask    = 7\n"
            "   MissingFieldMask = 128\n"
            "   InstanceRecord:\n"
            "      Service      = |VRX|\n"
            "      VersionCode  = 844429225099271\n"
            "      InstanceName = |inst1|\n"
            "      InstancePath = |/home/inst1|\n"
            "      Usage        = ||\n"
            "      StartAtBoot  = 1\n"
            "      Maintenance  = 0\n"
            "      Comment      = |hi|\n"
            "      CheckSum    = -1\n");
}

TEST(Dump, ServiceRecordIsNotDumped) {
  GlobalRegRecord record = serviceRecord("VRX");
  EXPECT_EQ(dumpOf(record),
            "   RecordType   = 2\n"
            "   FieldMask    = 3\n"
            "   MissingFieldMask = 0\n"
            "Services record not yet implemented\n");
}

TEST(Dump, VariableRecordStopsAtTheWidthOfUnterminatedTexts) {
  GlobalRegRecord record = variableRecord("VRX", std::string(256, 'v'), "1");
  EXPECT_EQ(dumpOf(record),
            "   RecordType   = 4\n"
            "   FieldMask    = 7\n"
            "   MissingFieldMask = 0\n"
            "   VariableRecord:\n"
            "      Service  = |VRX|\n"
            "      Variable = |" +
                std::string(256, 'v') +
                "|\n"
                "      Value    = |1|\n"
                "      Comment  = ||\n"
                "      CheckSum    = 0\n");
}

TEST(Dump, OtherTypesShowTheHeaderWithMasksCutToTheirLowHalf) {
  GlobalRegRecord record{};
  record.RecordType = 7;
  record.FieldMask = 0x1200000003ULL;
  EXPECT_EQ(dumpOf(record),
            "   RecordType   = 7\n"
            "   FieldMask    = 3\n"
            "   MissingFieldMask = 0\n");
}

}  // namespace
