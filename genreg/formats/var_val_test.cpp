// SPDX-License-Identifier: Apache-2.0
// The slots of the profile format, line by line. Lookups by type are var_val_values_test's.
#include "genreg/formats/var_val.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "genreg/internal/function_ids.h"
#include "genreg/status.h"
#include "tests/support/captured_log.h"
#include "tests/support/faults.h"
#include "tests/support/text_records.h"

namespace {

using genreg::statusOf;
using vrxtest::CapturedLog;
using vrxtest::LineBuffer;
using vrxtest::ProfileLine;
using vrxtest::TempDir;
using vrxtest::Text;
namespace status = genreg::status;

static_assert(sizeof(bCompactFormattedLine) == 1);

Text textAt(const char* text) {
  return text != nullptr ? Text(text) : Text();
}

struct Parsed {
  explicit Parsed(std::string line) {
    std::memset(&record, 0x5A, sizeof record);  // nothing of it may be believed
    rc = statusOf(GenRegVarVal::ParseLine(&record, line.data()));
    variable = textAt(record.variable);
    value = textAt(record.value);
    comment = textAt(record.comment);
    pointsInside(record.variable);
    pointsInside(record.value);
    pointsInside(record.comment);
  }
  void pointsInside(const char* text) const {
    if (text == nullptr) return;
    EXPECT_GE(text, record.line);
    EXPECT_LT(text, record.line + sizeof record.line);
  }
  GenRegVarValRecord record;
  GenRegStatus rc;
  Text variable, value, comment;
};

void expectAssignment(const std::string& line, const char* variable, const char* value) {
  const Parsed parsed(line);
  EXPECT_EQ(parsed.rc, 0U) << line;
  EXPECT_EQ(parsed.record.contents & kVarValHasValue, kVarValHasValue) << line;
  EXPECT_EQ(parsed.variable, variable) << line;
  EXPECT_EQ(parsed.value, value) << line;
}

TEST(VarValParse, TakesALineApart) {
  const Parsed parsed("  DIAG = 3   # level");
  EXPECT_EQ(parsed.rc, 0U);
  EXPECT_EQ(parsed.record.contents, kVarValHasComment | kVarValHasValue);
  EXPECT_EQ(parsed.variable, "DIAG");
  EXPECT_EQ(parsed.value, "3");
  EXPECT_EQ(parsed.comment, " level");
}

TEST(VarValParse, BlanksAroundTheEqualsSignDoNotCount) {
  for (const char* line : {"A=B", "A = B", "A  =  B", "\tA\t=\tB\t\n", "A =B", "A= B", "A=B\r\n"})
    expectAssignment(line, "A", "B");
}

TEST(VarValParse, InnerBlanksOfAValueAreCollapsed) {
  expectAssignment("A = b   c\td", "A", "b c d");
  expectAssignment("A B = c", "A B", "c");
}

TEST(VarValParse, ValueMayBeEmptyAndHoldEqualsSigns) {
  expectAssignment("A=", "A", "");
  expectAssignment("A = ", "A", "");
  expectAssignment("A = b=c=d", "A", "b=c=d");
  expectAssignment("=b", "", "b");
  expectAssignment(" = b", "", "b");
  expectAssignment("=", "", "");
}

TEST(VarValParse, QuotedValueKeepsItsQuotesAndBlanks) {
  expectAssignment("PATH = \"a b\" tail", "PATH", "\"a b\"");
  expectAssignment("PATH = \"a   b\"", "PATH", "\"a   b\"");
  expectAssignment("PATH=\"\"", "PATH", "\"\"");
  expectAssignment("PATH = a \"b   c\" d", "PATH", "a \"b   c\" d");
}

TEST(VarValParse, UnterminatedQuoteFails) {
  const CapturedLog log;
  const Parsed parsed("X = \"abc");
  EXPECT_EQ(parsed.rc, status::unterminated_quote);
  EXPECT_EQ(log.count(genreg::kGenRegVarValParseLine, status::unterminated_quote), 1);
  expectAssignment("X = a\"bc", "X", "a\"bc");
}

TEST(VarValParse, HashAlwaysStartsAComment) {
  const Parsed parsed("X = a#b");
  EXPECT_EQ(parsed.value, "a");
  EXPECT_EQ(parsed.comment, "b");
  EXPECT_EQ(Parsed("X = \"a#b\"").rc, status::unterminated_quote);
  EXPECT_EQ(Parsed("X = 1 # b # c").comment, " b # c");
}

TEST(VarValParse, CommentIsCleanedButNotStripped) {
  EXPECT_EQ(Parsed("#a\x01\xe9\t b  \n").comment, "a..\t b  ");
  EXPECT_EQ(Parsed("A = \xe9").value, "\xe9") << "values are kept as they are";
}

TEST(VarValParse, LinesWithoutAVariable) {
  for (const char* line : {"", "\n", "   ", "\t\n"}) {
    const Parsed parsed(line);
    EXPECT_EQ(parsed.rc, 0U);
    EXPECT_EQ(parsed.record.contents, 0U);
    EXPECT_TRUE(!parsed.variable && !parsed.value && !parsed.comment);
  }
  const Parsed comment("   # only");
  EXPECT_EQ(comment.rc, 0U);
  EXPECT_EQ(comment.record.contents, kVarValHasComment);
  EXPECT_EQ(comment.comment, " only");
  EXPECT_TRUE(!comment.variable && !comment.value);
}

TEST(VarValParse, TextWithoutEqualsSignFailsWithEveryPointerSet) {
  const CapturedLog log;
  const Parsed parsed("just text # note");
  EXPECT_EQ(parsed.rc, status::no_equals_sign);
  EXPECT_EQ(log.count(genreg::kGenRegVarValParseLine, status::no_equals_sign), 1);
  EXPECT_EQ(parsed.record.contents, kVarValHasComment | kVarValHasValue);
  EXPECT_EQ(parsed.comment, " note");
  EXPECT_TRUE(!parsed.variable && !parsed.value);
}

TEST(VarValParse, LongLineIsCut) {
  const Parsed parsed("A=" + std::string(5000, 'x'));
  EXPECT_EQ(parsed.rc, 0U);
  EXPECT_EQ(parsed.value, std::string(2045, 'x'));
}

TEST(VarValParse, NullIsRefused) {
  GenRegVarValRecord record{};
  char line[] = "A=1";
  EXPECT_EQ(statusOf(GenRegVarVal::ParseLine(nullptr, line)), status::null_argument);
  EXPECT_EQ(statusOf(GenRegVarVal::ParseLine(&record, nullptr)), status::null_argument);
}

// --- laying out

std::string formatted(GenRegVarValRecord* record, const std::string& old = "") {
  LineBuffer line(old);
  EXPECT_EQ(GenRegVarVal::FormatLine(record, line.bytes), 0) << old;
  return line.bytes;
}

void expectUnformatted(GenRegVarValRecord* record, const std::string& old, GenRegStatus code) {
  LineBuffer line(old);
  EXPECT_EQ(statusOf(GenRegVarVal::FormatLine(record, line.bytes)), code) << old;
  EXPECT_EQ(line.bytes, old);
}

// Whatever a test does to the switch, the next test starts with padded lines.
class VarValFormat : public ::testing::Test {
 protected:
  void TearDown() override { bCompactFormattedLine = false; }
};

TEST_F(VarValFormat, NewLineIsPaddedOrCompact) {
  ProfileLine line("A", "1");
  ProfileLine noted("A", "1", "why");
  EXPECT_EQ(formatted(line.record()), "A = 1\n");
  EXPECT_EQ(formatted(noted.record()), "A = 1 # why\n");
  bCompactFormattedLine = true;
  EXPECT_EQ(formatted(line.record()), "A=1\n");
  EXPECT_EQ(formatted(noted.record()), "A=1 # why\n");
}

TEST_F(VarValFormat, OldLineGivesIndentationAndSpacing) {
  ProfileLine line("A", "1");
  EXPECT_EQ(formatted(line.record(), "\tA\t=  7\n"), "\tA\t=  1\n");
  EXPECT_EQ(formatted(line.record(), "A=7\n"), "A=1\n");
  EXPECT_EQ(formatted(line.record(), "  OLD  =7   \n"), "  A  =1\n");
  EXPECT_EQ(formatted(line.record(), "A=7"), "A=1\n");
  EXPECT_EQ(formatted(line.record(), "A ="), "A =1\n");
  EXPECT_EQ(formatted(line.record(), "=x"), "A=1\n");
}

TEST_F(VarValFormat, SwitchForCompactLinesDoesNotTouchOldSpacing) {
  bCompactFormattedLine = true;
  ProfileLine line("A", "1");
  EXPECT_EQ(formatted(line.record(), "A = 7\n"), "A = 1\n");
}

TEST_F(VarValFormat, OldCommentIsReplacedOrDropped) {
  ProfileLine line("A", "1");
  ProfileLine noted("A", "1", " new");
  EXPECT_EQ(formatted(line.record(), "A = 7 # old\n"), "A = 1\n");
  EXPECT_EQ(formatted(noted.record(), "A = 7 # old\n"), "A = 1 #  new\n");
}

TEST_F(VarValFormat, CommentReadAndWrittenGainsABlank) {
  Parsed parsed("A = 1 # note\n");
  EXPECT_EQ(formatted(&parsed.record), "A = 1 #  note\n");
}

TEST_F(VarValFormat, CommentsAndEmptyRecords) {
  ProfileLine comment({}, {}, "only");
  EXPECT_EQ(formatted(comment.record()), "# only\n");
  EXPECT_EQ(formatted(comment.record(), "  A = 1\n"), "# only\n");
  ProfileLine nothing({});
  EXPECT_EQ(formatted(nothing.record()), "\n");
  EXPECT_EQ(formatted(nothing.record(), "A = 1\n"), "\n");
}

TEST_F(VarValFormat, MissingTextsPrintAsNothing) {
  GenRegVarValRecord record{};
  record.contents = kVarValHasComment | kVarValHasValue;
  EXPECT_EQ(formatted(&record), " =  # \n");
}

TEST_F(VarValFormat, OldLineWithoutEqualsSignIsRefusedAndUnchanged) {
  ProfileLine line("A", "1");
  const CapturedLog log;
  for (const char* old : {"A\n", "just text\n", "two words = 1\n", "\n", "# A = 1\n"})
    expectUnformatted(line.record(), old, status::no_equals_sign);
  EXPECT_EQ(log.count(genreg::kGenRegVarValFormatLine, status::no_equals_sign), 5);
}

TEST_F(VarValFormat, NullIsRefused) {
  ProfileLine line("A", "1");
  LineBuffer buffer("A = 7\n");
  EXPECT_EQ(statusOf(GenRegVarVal::FormatLine(nullptr, buffer.bytes)), status::null_argument);
  EXPECT_STREQ(buffer.bytes, "A = 7\n");
  EXPECT_EQ(statusOf(GenRegVarVal::FormatLine(line.record(), nullptr)), status::null_argument);
}

TEST_F(VarValFormat, LongestLine) {
  ProfileLine fits("A", std::string(2042, 'x'));
  EXPECT_EQ(formatted(fits.record()), "A = " + std::string(2042, 'x') + "\n");
  ProfileLine tooLong("A", std::string(2043, 'x'));
  expectUnformatted(tooLong.record(), "", status::line_too_long);
  expectUnformatted(tooLong.record(), "A = 1\n", status::line_too_long);
  ProfileLine huge(std::string(5000, 'n'), std::string(5000, 'v'), std::string(5000, 'c'));
  expectUnformatted(huge.record(), "", status::line_too_long);
}

TEST_F(VarValFormat, OldSpacingCountsTowardsTheLength) {
  ProfileLine line("A", std::string(2000, 'x'));
  expectUnformatted(line.record(), std::string(60, ' ') + "A = 1\n", status::line_too_long);
}

TEST_F(VarValFormat, EveryConstructorSetsTheSwitchBack) {
  const TempDir folder;
  unsigned int rc = 0;
  bCompactFormattedLine = true;
  const GenRegVarVal good(folder.file("p").c_str(), &rc);
  EXPECT_FALSE(bCompactFormattedLine);
  bCompactFormattedLine = true;
  const GenRegVarVal bad("", &rc);
  EXPECT_EQ(rc, status::null_argument);
  EXPECT_FALSE(bCompactFormattedLine);
}

// --- comparing and checking

TEST(VarValMatch, ComparesTheFieldsOfTheMask) {
  ProfileLine a("A", "1");
  ProfileLine a2("A", "2", "note");
  ProfileLine b("b", "1");
  const auto match = [](unsigned long long mask, ProfileLine& stored, ProfileLine& given) {
    return GenRegVarVal::MatchRecord(mask, stored.record(), given.record());
  };
  EXPECT_EQ(match(kVarValVariable, a, a2), 1);
  EXPECT_EQ(match(kVarValValue, a, a2), 0);
  EXPECT_EQ(match(kVarValValue, a, b), 1);
  EXPECT_EQ(match(kVarValVariable | kVarValValue, a, a), 1);
  EXPECT_EQ(match(kVarValVariable, a, b), 0);
  EXPECT_EQ(match(0, a, b), 1);
  EXPECT_EQ(match(~3ULL, a, b), 1) << "other bits are ignored";
}

TEST(VarValMatch, CaseAndQuotesCount) {
  ProfileLine quoted("A", "\"1\"");
  ProfileLine plain("A", "1");
  ProfileLine lower("a", "1");
  EXPECT_EQ(GenRegVarVal::MatchRecord(kVarValValue, quoted.record(), plain.record()), 0);
  EXPECT_EQ(GenRegVarVal::MatchRecord(kVarValVariable, lower.record(), plain.record()), 0);
}

TEST(VarValMatch, LinesWithoutAVariableNeverMatch) {
  ProfileLine comment({}, {}, "c");
  ProfileLine blank({});
  ProfileLine key("A", "1");
  for (const unsigned long long mask : {0ULL, 1ULL, ~0ULL}) {
    EXPECT_EQ(GenRegVarVal::MatchRecord(mask, comment.record(), comment.record()), 0);
    EXPECT_EQ(GenRegVarVal::MatchRecord(mask, blank.record(), key.record()), 0);
  }
}

TEST(VarValMatch, MissingAndEmptyTextsAreEqual) {
  GenRegVarValRecord missing{};
  missing.contents = kVarValHasValue;
  ProfileLine empty("", "");
  EXPECT_EQ(GenRegVarVal::MatchRecord(~0ULL, &missing, empty.record()), 1);
  EXPECT_EQ(GenRegVarVal::MatchRecord(~0ULL, empty.record(), &missing), 1);
}

GenRegStatus validated(unsigned long long mask, GenRegVarValRecord* record) {
  const CapturedLog log;
  const GenRegStatus rc = statusOf(GenRegVarVal::ValidateRecord(mask, record));
  EXPECT_EQ(log.count(genreg::kGenRegVarValValidateRecord), rc == 0 ? 0 : 1);
  return rc;
}

TEST(VarValValidate, NamesWhatIsMissing) {
  ProfileLine nothing({});
  ProfileLine comment({}, {}, "c");
  ProfileLine onlyName("A");
  ProfileLine onlyValue({}, "1");
  ProfileLine both("A", "1");
  EXPECT_EQ(validated(0, nullptr), status::null_argument);
  EXPECT_EQ(validated(0, nothing.record()), status::empty_record);
  EXPECT_EQ(validated(1, onlyValue.record()), status::required_field_missing);
  EXPECT_EQ(validated(2, onlyName.record()), status::value_missing);
  EXPECT_EQ(validated(3, comment.record()), status::required_field_missing);
  EXPECT_EQ(validated(1, onlyName.record()), 0U);
  EXPECT_EQ(validated(3, both.record()), 0U);
  EXPECT_EQ(validated(0, comment.record()), 0U);
  EXPECT_EQ(validated(~3ULL, comment.record()), 0U);
}

// --- the rest of the slots

std::string printed(GenRegVarValRecord* record) {
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(GenRegVarVal::PrintRecord(record), 0);
  return ::testing::internal::GetCapturedStdout();
}

TEST(VarValPrint, PrintsWhatIsThere) {
  ProfileLine all("A", "1", " c");
  EXPECT_EQ(printed(all.record()),
            "Record Dump:\n   Variable = |A|\n   Value    = |1|\n   Contains = 3\n"
            "   Comment  = | c|\n");
  ProfileLine nothing({});
  EXPECT_EQ(printed(nothing.record()), "Record Dump:\n   Contains = 0\n");
}

TEST(VarValSize, IsTheRecordsOwn) {
  unsigned long size = 0;
  EXPECT_EQ(GenRegVarVal::GetMaxRecordSize(&size), 0);
  EXPECT_EQ(size, sizeof(GenRegVarValRecord));
  if (sizeof(void*) == 4) {
    EXPECT_EQ(size, 2064U);
  }
  size = 0;
  EXPECT_EQ(GenRegVarVal::GetRecordSize(nullptr, &size), 0);
  EXPECT_EQ(size, sizeof(GenRegVarValRecord));
}

// --- the constructor

TEST(VarValConstructor, FillsSlotsPathsAndFeatures) {
  const TempDir folder;
  unsigned int rc = ~0U;
  const GenRegVarVal profile(folder.file("p").c_str(), &rc);
  EXPECT_EQ(rc, 0U);
  EXPECT_EQ(profile.features, kGenRegVerifyCommit | kGenRegDuplicates);
  EXPECT_EQ(profile.state, kGenRegStateInitial | kGenRegStatePathsSet);
  EXPECT_EQ(profile.storeType, kGenRegTextStore);
  EXPECT_TRUE(profile.matchRecord && profile.validateRecord && profile.printRecord &&
              profile.getRecordSize && profile.getMaxRecordSize && profile.formatLine &&
              profile.parseLine);
  EXPECT_TRUE(!profile.log && !profile.notify);
  EXPECT_EQ(profile.registryPath, folder.file("p"));
  EXPECT_EQ(profile.temporaryPath, folder.file("p.tmp"));
  EXPECT_EQ(profile.corruptPath, folder.file("p.cor"));
  EXPECT_EQ(profile.lockPath, folder.file(".p.lock"));
  EXPECT_EQ(profile.backupPath, folder.file(".p.bkp"));
}

void expectRefused(const char* path, unsigned int code) {
  unsigned int rc = 0;
  GenRegVarVal profile(path, &rc);
  EXPECT_EQ(rc, code);
  EXPECT_EQ(profile.features, 0U);
  EXPECT_EQ(profile.parseLine, nullptr);
  EXPECT_EQ(profile.CheckFuncPtrs(), status::no_validate_slot);
}

TEST(VarValConstructor, RefusesUnusablePathsWithoutSlots) {
  expectRefused(nullptr, status::null_argument);
  expectRefused("", status::null_argument);
  expectRefused(std::string(1018, 'p').c_str(), status::path_too_long);
  unsigned int rc = ~0U;
  const GenRegVarVal longest(std::string(1017, 'p').c_str(), &rc);
  EXPECT_EQ(rc, 0U);
}

TEST(VarValConstructor, PathWithoutABaseNameKeepsTheSlotsButSetsNoFeatures) {
  unsigned int rc = 0;
  GenRegVarVal profile("folder/", &rc);
  EXPECT_EQ(rc, status::no_base_name);
  EXPECT_EQ(profile.features, 0U);
  EXPECT_EQ(profile.state, 1U);
  EXPECT_EQ(profile.CheckFuncPtrs(), 0U);
}

TEST(VarValConstructor, PathWhoseDirectoryCannotBeTaken) {
  const vrxtest::FailCall fault(vrxtest::Call::kDirectoryName, 1, EINVAL);
  unsigned int rc = 0;
  const GenRegVarVal profile("folder/p", &rc);
  EXPECT_EQ(rc, status::no_directory_name);
  EXPECT_EQ(profile.state, 1U);
}

TEST(VarValConstructor, StatusPointerMayBeNull) {
  const GenRegVarVal profile("p", nullptr);
  EXPECT_EQ(profile.state, kGenRegStateInitial | kGenRegStatePathsSet);
}

}  // namespace
