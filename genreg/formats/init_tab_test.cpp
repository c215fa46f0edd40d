// SPDX-License-Identifier: Apache-2.0
// The init table format, line by line.
#include "genreg/formats/init_tab.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "genreg/internal/function_ids.h"
#include "genreg/status.h"
#include "tests/support/captured_log.h"
#include "tests/support/text_records.h"

namespace {

using genreg::statusOf;
using vrxtest::CapturedLog;
using vrxtest::InitLine;
using vrxtest::LineBuffer;
using vrxtest::TempDir;
using vrxtest::Text;
namespace status = genreg::status;

constexpr unsigned int kBoth = kInitTabHasEntry | kInitTabHasComment;

Text textAt(const char* text) {
  return text != nullptr ? Text(text) : Text();
}

struct Parsed {
  explicit Parsed(std::string line) {
    std::memset(&record, 0x5A, sizeof record);  // nothing of it may be believed
    rc = statusOf(GenRegInitTab::ParseLine(&record, line.data()));
    id = textAt(record.id);
    runlevel = textAt(record.runlevel);
    action = textAt(record.action);
    command = textAt(record.command);
    comment = textAt(record.comment);
  }
  GenRegInitTabRecord record;
  GenRegStatus rc;
  Text id, runlevel, action, command, comment;
};

std::string formatted(GenRegInitTabRecord* record, const std::string& old = "") {
  LineBuffer line(old);
  EXPECT_EQ(GenRegInitTab::FormatLine(record, line.bytes), 0);
  return line.bytes;
}

std::string formatted(InitLine&& line) {
  return formatted(line.record());
}

// What becomes of a line that is read and written.
std::string rewritten(const std::string& line) {
  Parsed parsed(line);
  EXPECT_EQ(parsed.rc, 0U) << line;
  return formatted(&parsed.record);
}

TEST(InitTabParse, TakesALineApart) {
  const std::string line = "id1:2345:respawn:/sbin/getty 9600 tty1";
  const Parsed parsed(line + "\n");
  EXPECT_EQ(parsed.rc, 0U);
  EXPECT_EQ(parsed.record.flags, kInitTabHasEntry);
  EXPECT_EQ(parsed.id, "id1");
  EXPECT_EQ(parsed.runlevel, "2345");
  EXPECT_EQ(parsed.action, "respawn");
  EXPECT_EQ(parsed.command, "/sbin/getty 9600 tty1");
  EXPECT_EQ(parsed.comment, Text());
  EXPECT_EQ(rewritten(line), line);
}

TEST(InitTabParse, CommandKeepsItsColons) {
  EXPECT_EQ(Parsed("a:3:once:/bin/run a:b").command, "/bin/run a:b");
  EXPECT_EQ(Parsed("a:3:once::").command, ":");
}

TEST(InitTabParse, CommandLosesItsTrailingBlanksButNotItsFirstByte) {
  EXPECT_EQ(Parsed("a:3:once:/bin/x   \n").command, "/bin/x");
  EXPECT_EQ(Parsed("a:3:once:   ").command, " ");
  EXPECT_EQ(Parsed("a:3:once: ").command, " ");
  EXPECT_EQ(Parsed("a:3:once:").command, "");
  EXPECT_EQ(Parsed("a:3:once:/bin/x\t").command, "/bin/x\t");
}

TEST(InitTabParse, FieldsMayBeEmptyAndBlanksCount) {
  const Parsed parsed(" a ::  : b");
  EXPECT_EQ(parsed.id, " a ");
  EXPECT_EQ(parsed.runlevel, "");
  EXPECT_EQ(parsed.action, "  ");
  EXPECT_EQ(parsed.command, " b");
}

TEST(InitTabParse, CommentBehindAnEntry) {
  const std::string line = "x:1:wait:/bin/y # note";
  const Parsed parsed(line);
  EXPECT_EQ(parsed.record.flags, kBoth);
  EXPECT_EQ(parsed.command, "/bin/y");
  EXPECT_EQ(parsed.comment, " note");
  EXPECT_EQ(rewritten(line), line);
}

TEST(InitTabParse, CommentBytesStayAsTheyAre) {
  EXPECT_EQ(Parsed("# caf\xe9\x01").comment, " caf\xe9\x01");
}

TEST(InitTabParse, LineThatBeginsWithAColonIsAComment) {
  const Parsed parsed(":old comment\n");
  EXPECT_EQ(parsed.record.flags, kInitTabHasComment);
  EXPECT_EQ(parsed.comment, "old comment");
  EXPECT_TRUE(!parsed.id && !parsed.runlevel && !parsed.action && !parsed.command);
  EXPECT_EQ(rewritten(":old comment\n"), "#old comment");
  EXPECT_EQ(Parsed("::sysinit:/etc/rc # x").comment, ":sysinit:/etc/rc # x");
  EXPECT_EQ(Parsed(":").comment, "");
}

TEST(InitTabParse, BlankLineHasNoFlags) {
  for (const char* line : {"", "\n"}) {
    const Parsed parsed(line);
    EXPECT_EQ(parsed.rc, 0U);
    EXPECT_EQ(parsed.record.flags, 0U);
    EXPECT_TRUE(!parsed.id && !parsed.comment);
  }
}

TEST(InitTabParse, CommentOnlyLine) {
  const Parsed parsed("# note\n");
  EXPECT_EQ(parsed.rc, 0U);
  EXPECT_EQ(parsed.record.flags, kInitTabHasComment);
  EXPECT_EQ(parsed.comment, " note");
}

TEST(InitTabParse, MissingFieldsFail) {
  const struct {
    const char* line;
    GenRegStatus code;
  } kRows[] = {
      {"x", status::inittab_no_runlevel},        {" ", status::inittab_no_runlevel},
      {"  # note", status::inittab_no_runlevel}, {"x:1", status::inittab_no_action},
      {"x:1:wait", status::inittab_no_command},  {"x:1:wait#:c", status::inittab_no_command}};
  for (const auto& row : kRows) {
    const CapturedLog log;
    const Parsed parsed(row.line);
    EXPECT_EQ(parsed.rc, row.code) << row.line;
    EXPECT_EQ(log.count(genreg::kGenRegInitTabParseLine, row.code), 1);
    EXPECT_EQ(parsed.command, Text()) << "every pointer is set on every path";
  }
}

TEST(InitTabParse, LongLineIsCut) {
  EXPECT_EQ(Parsed("a:1:b:" + std::string(5000, 'x')).command, std::string(2041, 'x'));
}

TEST(InitTabParse, NullIsRefused) {
  GenRegInitTabRecord record{};
  char line[] = "a:1:b:c";
  EXPECT_EQ(statusOf(GenRegInitTab::ParseLine(nullptr, line)), status::null_argument);
  EXPECT_EQ(statusOf(GenRegInitTab::ParseLine(&record, nullptr)), status::null_argument);
}

// --- laying out

TEST(InitTabFormat, EntriesAndComments) {
  EXPECT_EQ(formatted(InitLine("x", "1", "wait", "/bin/y")), "x:1:wait:/bin/y");
  EXPECT_EQ(formatted(InitLine("x", "1", "wait", "/bin/y", "c")), "x:1:wait:/bin/y #c");
  EXPECT_EQ(formatted(InitLine({}, {}, {}, {}, "c")), "#c");
}

TEST(InitTabFormat, MissingTextsPrintAsNothing) {
  GenRegInitTabRecord record{};
  record.flags = kBoth;
  EXPECT_EQ(formatted(&record), "::: #");
}

TEST(InitTabFormat, OldLineIsReplacedWhole) {
  InitLine line("x", "1", "wait", "/bin/y");
  EXPECT_EQ(formatted(line.record(), "  old:2:once:/bin/z # c\n"), "x:1:wait:/bin/y");
}

TEST(InitTabFormat, RecordWithoutFlagsWritesNothing) {
  GenRegInitTabRecord nothing{};
  EXPECT_EQ(formatted(&nothing, "old\n"), "old\n");
}

TEST(InitTabFormat, LongestLine) {
  EXPECT_EQ(formatted(InitLine("x", "1", "w", std::string(2040, 'c'))).size(), 2046U);
  InitLine tooLong("x", "1", "w", std::string(2041, 'c'));
  LineBuffer line("old\n");
  EXPECT_EQ(statusOf(GenRegInitTab::FormatLine(tooLong.record(), line.bytes)),
            status::line_too_long);
  EXPECT_STREQ(line.bytes, "old\n");
}

TEST(InitTabFormat, NullIsRefused) {
  LineBuffer line("old\n");
  GenRegInitTabRecord record{};
  EXPECT_EQ(statusOf(GenRegInitTab::FormatLine(nullptr, line.bytes)), status::null_argument);
  EXPECT_STREQ(line.bytes, "old\n");
  EXPECT_EQ(statusOf(GenRegInitTab::FormatLine(&record, nullptr)), status::null_argument);
}

// --- comparing and checking

int matched(unsigned long long mask, InitLine&& stored, InitLine&& given) {
  return GenRegInitTab::MatchRecord(mask, stored.record(), given.record());
}

TEST(InitTabMatch, ComparesTheFieldsOfTheMask) {
  const auto stored = [] { return InitLine("a", "1", "b", "c"); };
  EXPECT_EQ(matched(1, stored(), InitLine("a", "2", "x", "y")), 1);
  EXPECT_EQ(matched(2, stored(), InitLine("z", "1", "x", "y")), 1);
  EXPECT_EQ(matched(4, stored(), InitLine("z", "2", "b", "y")), 1);
  EXPECT_EQ(matched(8, stored(), InitLine("z", "2", "x", "c")), 1);
  EXPECT_EQ(matched(1, stored(), InitLine("z", "1", "b", "c")), 0);
  EXPECT_EQ(matched(2, stored(), InitLine("a", "2", "b", "c")), 0);
  EXPECT_EQ(matched(4, stored(), InitLine("a", "1", "x", "c")), 0);
  EXPECT_EQ(matched(8, stored(), InitLine("a", "1", "b", "y")), 0);
  EXPECT_EQ(matched(15, stored(), InitLine("a", "1", "b", "c")), 1);
}

TEST(InitTabMatch, MaskOfZeroMatchesEverything) {
  GenRegInitTabRecord blank{};
  InitLine key("a", "1", "b", "c", "d");
  EXPECT_EQ(GenRegInitTab::MatchRecord(0, &blank, key.record()), 1);
}

TEST(InitTabMatch, EntryMatchesNoComment) {
  EXPECT_EQ(matched(1, InitLine({}, {}, {}, {}, "c"), InitLine("a")), 0);
  GenRegInitTabRecord blank{};
  InitLine empty("");
  EXPECT_EQ(GenRegInitTab::MatchRecord(1, &blank, empty.record()), 0);
}

TEST(InitTabMatch, CommentOfTheKeyCountsUnderEveryMask) {
  EXPECT_EQ(matched(1, InitLine("a", "1", "b", "c", "x"), InitLine("a", "1", "b", "c", "x")), 1);
  EXPECT_EQ(matched(1, InitLine("a", "1", "b", "c", "x"), InitLine("a", "1", "b", "c", "y")), 0);
  EXPECT_EQ(matched(1, InitLine("a", "1", "b", "c"), InitLine("a", "1", "b", "c", "x")), 0);
  EXPECT_EQ(matched(~0ULL, InitLine("a", "1", "b", "c", "x"), InitLine("a", "1", "b", "c")), 1)
      << "a comment that is not asked for does not count";
  EXPECT_EQ(matched(1, InitLine("a", "1", "b", "c", "x"), InitLine({}, {}, {}, {}, "x")), 1);
}

TEST(InitTabMatch, MissingAndEmptyTextsAreEqual) {
  EXPECT_EQ(matched(15, InitLine("a", "", "b", ""), InitLine("a", {}, "b", {})), 1);
  GenRegInitTabRecord missing{};
  missing.flags = kInitTabHasComment;
  InitLine empty({}, {}, {}, {}, "");
  EXPECT_EQ(GenRegInitTab::MatchRecord(1, &missing, empty.record()), 1);
}

GenRegStatus validated(unsigned long long mask, InitLine&& line) {
  return statusOf(GenRegInitTab::ValidateRecord(mask, line.record()));
}

TEST(InitTabValidate, NamesWhatIsMissing) {
  EXPECT_EQ(statusOf(GenRegInitTab::ValidateRecord(0, nullptr)), status::null_argument);
  EXPECT_EQ(validated(0, InitLine({})), status::empty_record);
  EXPECT_EQ(validated(1, InitLine({}, "1", "b", "c")), status::required_field_missing);
  EXPECT_EQ(validated(4, InitLine("a", "1", {}, "c")), status::required_field_missing);
  EXPECT_EQ(validated(8, InitLine("a", "1", "b", {})), status::required_field_missing);
  EXPECT_EQ(validated(15, InitLine("a", {}, "b", "c")), 0U) << "run levels are never required";
  EXPECT_EQ(validated(15, InitLine({}, {}, {}, {}, "c")), 0U);
  EXPECT_EQ(validated(0, InitLine({}, "1")), 0U);
}

// --- the rest of the slots, and the constructors

std::string printed(InitLine&& line) {
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(GenRegInitTab::PrintRecord(line.record()), 0);
  return ::testing::internal::GetCapturedStdout();
}

TEST(InitTabPrint, PrintsRecordsWithACommentOnly) {
  EXPECT_EQ(printed(InitLine("a", "1", "b", "c")), "");
  EXPECT_EQ(printed(InitLine("a", "1", "b", "c", "d")),
            "   ID       : |a|\n   RunLevel : |1|\n   Action   : |b|\n   Command  : |c|\n"
            "   Comment  : |d|\n");
  EXPECT_EQ(printed(InitLine({}, {}, {}, {}, "d")), "   Comment  : |d|\n");
}

TEST(InitTabSize, IsTheRecordsOwn) {
  unsigned long size = 0;
  EXPECT_EQ(GenRegInitTab::GetMaxRecordSize(&size), 0);
  EXPECT_EQ(size, sizeof(GenRegInitTabRecord));
  if (sizeof(void*) == 4) {
    EXPECT_EQ(size, 2072U);
  }
  EXPECT_EQ(GenRegInitTab::GetRecordSize(nullptr, &size), 0);
  EXPECT_EQ(size, sizeof(GenRegInitTabRecord));
}

TEST(InitTabConstructor, DefaultHasSlotsAndFeaturesButNoPaths) {
  GenRegInitTab table;
  EXPECT_EQ(table.features, kGenRegVerifyCommit | kGenRegJoinLines);
  EXPECT_EQ(table.state, 1U);
  EXPECT_EQ(table.CheckFuncPtrs(), 0U);
  EXPECT_TRUE(table.printRecord && table.getRecordSize);
  InitLine line("a", "1", "b", "c");
  EXPECT_EQ(table.Add(1, line.record()), status::lock_not_taken) << "there is no file yet";
}

TEST(InitTabConstructor, PathConstructorHasPathsButNeitherSlotsNorFeatures) {
  const TempDir folder;
  std::string path = folder.file("inittab");
  unsigned int rc = ~0U;
  GenRegInitTab table(path.data(), &rc);
  EXPECT_EQ(rc, 0U);
  EXPECT_EQ(table.features, 0U);
  EXPECT_EQ(table.registryPath, path);
  EXPECT_EQ(table.CheckFuncPtrs(), status::no_validate_slot);
  InitLine line("a", "1", "b", "c");
  GenRegInitTabRecord found{};
  EXPECT_EQ(table.Add(1, line.record()), status::slots_incomplete);
  EXPECT_EQ(table.Get(1, line.record(), &found), status::no_validate_slot);
  GenRegInitTab unusable(nullptr, &rc);
  EXPECT_EQ(rc, status::null_argument);
  const GenRegInitTab unasked(path.data(), nullptr);
  EXPECT_EQ(unasked.registryPath, path);
}

TEST(InitTabSetPaths, ReturnsTheSetUpsStatus) {
  GenRegInitTab table;
  std::string empty;
  std::string tooLong(1018, 'p');
  std::string baseless = "folder/";
  std::string good = "folder/inittab";
  EXPECT_EQ(table.setPaths(nullptr), status::null_argument);
  EXPECT_EQ(table.setPaths(empty.data()), status::null_argument);
  EXPECT_EQ(table.setPaths(tooLong.data()), status::path_too_long);
  EXPECT_EQ(table.setPaths(baseless.data()), status::no_base_name);
  EXPECT_EQ(table.state, 1U);
  EXPECT_EQ(table.setPaths(good.data()), 0U);
  EXPECT_STREQ(table.lockPath, "folder/.inittab.lock");
}

}  // namespace
