// SPDX-License-Identifier: Apache-2.0
// The services format, line by line.
#include "genreg/formats/services.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "genreg/internal/function_ids.h"
#include "genreg/status.h"
#include "tests/support/captured_log.h"
#include "tests/support/text_records.h"

namespace {

using genreg::statusOf;
using vrxtest::CapturedLog;
using vrxtest::LineBuffer;
using vrxtest::ServiceLine;
using vrxtest::TempDir;
using vrxtest::Text;
namespace status = genreg::status;
using Names = std::vector<std::string>;

Text textAt(const char* text) {
  return text != nullptr ? Text(text) : Text();
}

struct Parsed {
  explicit Parsed(std::string line) {
    std::memset(&record, 0x5A, sizeof record);  // nothing of it may be believed
    rc = statusOf(GenRegServices::ParseLine(&record, line.data()));
    name = textAt(record.name);
    protocol = textAt(record.protocol);
    comment = textAt(record.comment);
    port = ntohs(static_cast<unsigned short>(record.port));
    EXPECT_EQ(record.port >> 16, 0U);
    if (record.aliases == nullptr) return;
    EXPECT_EQ(record.aliases, record.aliasTable);
    for (char** alias = record.aliases; *alias != nullptr; ++alias)
      aliases.emplace_back(*alias);
  }
  GenRegServicesRecord record;
  GenRegStatus rc;
  Text name, protocol, comment;
  int port = 0;
  Names aliases;
};

TEST(ServicesParse, TakesALineApart) {
  const Parsed parsed("ftp 21/tcp\n");
  EXPECT_EQ(parsed.rc, 0U);
  EXPECT_EQ(parsed.record.flags, kServicesHasEntry);
  EXPECT_EQ(parsed.name, "ftp");
  EXPECT_EQ(parsed.record.port, 0x1500U);
  EXPECT_EQ(parsed.protocol, "tcp");
  EXPECT_EQ(parsed.record.aliases, nullptr);
  EXPECT_EQ(parsed.comment, Text());
}

TEST(ServicesParse, AliasesAndComment) {
  const Parsed parsed("\twebcache  80/tcp cache\tproxy # web\x01\n");
  EXPECT_EQ(parsed.rc, 0U);
  EXPECT_EQ(parsed.record.flags, kServicesHasEntry | kServicesHasComment);
  EXPECT_EQ(parsed.name, "webcache");
  EXPECT_EQ(parsed.aliases, (Names{"cache", "proxy"}));
  EXPECT_EQ(parsed.comment, " web.");
}

TEST(ServicesParse, KnownProtocols) {
  for (const char* protocol : {"udp", "tcp", "ddp", "divert"}) {
    const Parsed parsed(std::string("x 1/") + protocol + " y");
    EXPECT_EQ(parsed.record.flags, kServicesHasEntry) << protocol;
    EXPECT_EQ(parsed.protocol, protocol);
    EXPECT_EQ(parsed.aliases, Names{"y"});
  }
}

TEST(ServicesParse, UnknownProtocolIsKeptWithAWarning) {
  for (const char* protocol : {"xyz", "TCP", "tcp4", "sctp", "", "tcp/udp"}) {
    const CapturedLog log;
    const Parsed parsed(std::string("svc 99/") + protocol + " alias");
    EXPECT_EQ(parsed.rc, 0U) << protocol;
    EXPECT_EQ(parsed.record.flags, kServicesHasEntry | kServicesNotUnderstood) << protocol;
    EXPECT_EQ(parsed.protocol, protocol);
    EXPECT_EQ(parsed.port, 99);
    EXPECT_TRUE(parsed.aliases.empty());
    EXPECT_EQ(log.count(genreg::kGenRegServicesParseLine, status::service_unknown_protocol), 1);
  }
}

TEST(ServicesParse, EntryWithoutASlashIsKeptWithAWarning) {
  const CapturedLog log;
  const Parsed parsed("svc tcp alias # c");
  EXPECT_EQ(parsed.rc, 0U);
  EXPECT_EQ(parsed.record.flags, 7U);
  EXPECT_EQ(parsed.name, "svc");
  EXPECT_EQ(parsed.port, 0);
  EXPECT_EQ(parsed.protocol, Text());
  EXPECT_EQ(log.count(genreg::kGenRegServicesParseLine, status::service_without_slash), 1);
}

TEST(ServicesParse, EntryWithoutAPortFails) {
  const CapturedLog log;
  const Parsed parsed("svc # c");
  EXPECT_EQ(parsed.rc, status::service_without_port);
  EXPECT_EQ(parsed.record.flags, kServicesHasEntry | kServicesHasComment);
  EXPECT_EQ(log.count(genreg::kGenRegServicesParseLine, status::service_without_port), 1);
}

TEST(ServicesParse, BlankAndCommentLines) {
  const Parsed newline("\n");
  EXPECT_EQ(newline.record.flags, kServicesHasComment);
  EXPECT_EQ(newline.comment, Text());
  for (const char* line : {"", "  ", "  \n", "\t\n", "\r\n"}) {
    const Parsed blank(line);
    EXPECT_EQ(blank.rc, 0U);
    EXPECT_EQ(blank.record.flags, 0U);
  }
  const Parsed comment("# only\n");
  EXPECT_EQ(comment.record.flags, kServicesHasComment);
  EXPECT_EQ(comment.comment, " only");
  EXPECT_EQ(comment.name, Text());
}

TEST(ServicesParse, PortsAreSixteenBitsInEveryBuild) {
  const struct {
    const char* digits;
    int port;
  } kPorts[] = {{"0", 0},
                {"65535", 65535},
                {"65536", 0},
                {"65537", 1},
                {"-1", 65535},
                {"+80", 80},
                {"80x", 80},
                {"x", 0},
                {"", 0},
                {"2147483648", 65535},
                {"99999999999999999999", 65535},
                {"-2147483649", 0},
                {"0080", 80}};
  for (const auto& row : kPorts) {
    const Parsed parsed(std::string("x ") + row.digits + "/tcp");
    EXPECT_EQ(parsed.rc, 0U) << row.digits;
    EXPECT_EQ(parsed.port, row.port) << row.digits;
  }
}

std::string lineWithAliases(int count) {
  std::string line = "x 1/tcp";
  for (int i = 0; i < count; ++i)
    line += " a" + std::to_string(i);
  return line;
}

TEST(ServicesParse, KeepsAHundredAndTwentySevenAliases) {
  EXPECT_EQ(Parsed(lineWithAliases(127)).aliases.size(), 127U);
  const CapturedLog log;
  const Parsed more(lineWithAliases(300));
  EXPECT_EQ(more.rc, 0U);
  EXPECT_EQ(more.aliases.size(), 127U);
  EXPECT_EQ(more.aliases.back(), "a126");
  EXPECT_EQ(more.record.aliasTable[kServicesMaxAliases], nullptr);
  EXPECT_EQ(log.count(genreg::kGenRegServicesParseLine), 1);
}

TEST(ServicesParse, NullIsRefused) {
  GenRegServicesRecord record{};
  char line[] = "x 1/tcp";
  EXPECT_EQ(statusOf(GenRegServices::ParseLine(nullptr, line)), status::null_argument);
  EXPECT_EQ(statusOf(GenRegServices::ParseLine(&record, nullptr)), status::null_argument);
}

TEST(ServicesParse, QuotesKeepNoBlanksInAField) {
  const Parsed parsed("\"a  b\" 1/tcp");
  EXPECT_EQ(parsed.name, "\"a");
  EXPECT_EQ(parsed.record.flags & kServicesNotUnderstood, kServicesNotUnderstood);
}

// --- laying out

std::string formatted(GenRegServicesRecord* record, const std::string& old = "") {
  LineBuffer line(old);
  EXPECT_EQ(GenRegServices::FormatLine(record, line.bytes), 0);
  return line.bytes;
}

std::string formatted(ServiceLine&& line) {
  return formatted(line.record());
}

TEST(ServicesFormat, NameDecidesTheFirstTabs) {
  EXPECT_EQ(formatted(ServiceLine("ftp", 21, "tcp")), "ftp\t\t21/tcp\n");
  EXPECT_EQ(formatted(ServiceLine("seven77", 21, "tcp")), "seven77\t\t21/tcp\n");
  EXPECT_EQ(formatted(ServiceLine("eight888", 21, "tcp")), "eight888\t21/tcp\n");
}

// The tabs follow the port as it is stored: 0x5000 for port 80, 0x0001 for port 256.
TEST(ServicesFormat, StoredPortDecidesTheTabsOfTheAliases) {
  EXPECT_EQ(formatted(ServiceLine("webcache", 80, "tcp", {"cache", "proxy"}, " web")),
            "webcache\t80/tcp\tcache proxy\t\t#  web\n");
  EXPECT_EQ(formatted(ServiceLine("x", 256, "tcp", {"y"})), "x\t\t256/tcp\t\ty\n");
  EXPECT_EQ(formatted(ServiceLine("x", ntohs(999), "tcp", {"y"})), "x\t\t59139/tcp\t\ty\n");
  EXPECT_EQ(formatted(ServiceLine("x", ntohs(1000), "tcp", {"y"})), "x\t\t59395/tcp\ty\n");
}

TEST(ServicesFormat, FirstAliasDecidesTheTabsOfTheComment) {
  EXPECT_EQ(formatted(ServiceLine("x", 80, "tcp", {"seven77", "more"}, "c")),
            "x\t\t80/tcp\tseven77 more\t\t# c\n");
  EXPECT_EQ(formatted(ServiceLine("x", 80, "tcp", {"eight888"}, "c")),
            "x\t\t80/tcp\teight888\t# c\n");
  EXPECT_EQ(formatted(ServiceLine("x", 80, "tcp", {}, "c")), "x\t\t80/tcp\t\t\t# c\n");
  EXPECT_EQ(formatted(ServiceLine("x", 256, "tcp", {}, "c")), "x\t\t256/tcp\t\t\t\t# c\n");
}

TEST(ServicesFormat, CommentOnlyRecordBeginsWithFourTabs) {
  EXPECT_EQ(formatted(ServiceLine({}, 0, {}, {}, "only")), "\t\t\t\t# only\n");
  GenRegServicesRecord blank{};
  blank.flags = kServicesHasComment;
  EXPECT_EQ(formatted(&blank), "\t\t\t\t# \n") << "a missing comment prints as nothing";
  GenRegServicesRecord nothing{};
  EXPECT_EQ(formatted(&nothing), "\n");
}

TEST(ServicesFormat, OldLineIsNotLookedAt) {
  ServiceLine line("ftp", 21, "tcp");
  EXPECT_EQ(formatted(line.record(), "  other   1/udp   z # c\n"), "ftp\t\t21/tcp\n");
}

TEST(ServicesFormat, CallersAliasesAreAllWritten) {
  const Names many(200, "a");
  const std::string line = formatted(ServiceLine("x", 80, "tcp", many));
  EXPECT_EQ(line.size(), std::strlen("x\t\t80/tcp\t\n") + 399);
}

TEST(ServicesFormat, EmptyAliasListIsLaidOutAsItsTabsAlone) {
  ServiceLine line("x", 80, "tcp", {}, "c");
  char* none[] = {nullptr};
  line.record()->aliases = none;
  EXPECT_EQ(formatted(line.record()), "x\t\t80/tcp\t\t\t\t# c\n");
}

void expectUnformatted(GenRegServicesRecord* record, GenRegStatus code) {
  const CapturedLog log;
  LineBuffer line("old\n");
  EXPECT_EQ(statusOf(GenRegServices::FormatLine(record, line.bytes)), code);
  EXPECT_STREQ(line.bytes, "old\n");
  EXPECT_EQ(log.count(genreg::kGenRegServicesFormatLine, code), 1);
}

TEST(ServicesFormat, RefusesIncompleteEntriesWithTheLineUnchanged) {
  ServiceLine noName({}, 1, "tcp");
  ServiceLine noPort("x", 0, "tcp");
  ServiceLine noProtocol("x", 1);
  expectUnformatted(noName.record(), status::service_line_without_name);
  expectUnformatted(noPort.record(), status::service_line_without_port);
  expectUnformatted(noProtocol.record(), status::service_line_without_protocol);
  expectUnformatted(nullptr, status::null_argument);
  EXPECT_EQ(statusOf(GenRegServices::FormatLine(ServiceLine("x").record(), nullptr)),
            status::null_argument);
  Parsed unslashed("svc tcp");
  expectUnformatted(&unslashed.record, status::service_line_without_port);
}

TEST(ServicesFormat, LongestLine) {
  const std::string fits(2046 - std::strlen("\t80/tcp"), 'n');
  EXPECT_EQ(formatted(ServiceLine(fits, 80, "tcp")), fits + "\t80/tcp\n");
  ServiceLine tooLong(fits + "n", 80, "tcp");
  expectUnformatted(tooLong.record(), status::line_too_long);
  ServiceLine aliases("x", 80, "tcp", Names(3000, "alias"), "c");
  expectUnformatted(aliases.record(), status::line_too_long);
}

// --- comparing and checking

int matched(unsigned long long mask, ServiceLine&& stored, ServiceLine&& given) {
  return GenRegServices::MatchRecord(mask, stored.record(), given.record());
}

TEST(ServicesMatch, ComparesTheFieldsOfTheMask) {
  EXPECT_EQ(matched(1, ServiceLine("a", 1, "tcp"), ServiceLine("a", 2, "udp")), 1);
  EXPECT_EQ(matched(2, ServiceLine("a", 1, "tcp"), ServiceLine("b", 1, "udp")), 1);
  EXPECT_EQ(matched(4, ServiceLine("a", 1, "tcp"), ServiceLine("b", 2, "tcp")), 1);
  EXPECT_EQ(matched(1, ServiceLine("a", 1, "tcp"), ServiceLine("A", 1, "tcp")), 0);
  EXPECT_EQ(matched(2, ServiceLine("a", 1, "tcp"), ServiceLine("a", 2, "tcp")), 0);
  EXPECT_EQ(matched(4, ServiceLine("a", 1, "tcp"), ServiceLine("a", 1, "udp")), 0);
  EXPECT_EQ(matched(0, ServiceLine("a", 1, "tcp"), ServiceLine("b", 2, "udp")), 1);
  EXPECT_EQ(matched(~7ULL, ServiceLine("a", 1, "tcp"), ServiceLine("b", 2, "udp")), 1);
}

TEST(ServicesMatch, AliasesAndCommentsOfEntriesDoNotCount) {
  EXPECT_EQ(matched(~0ULL, ServiceLine("a", 1, "tcp", {"x"}, "c"), ServiceLine("a", 1, "tcp")), 1);
}

TEST(ServicesMatch, CommentsMatchByTheirTextUnderAnyMask) {
  for (const unsigned long long mask : {0ULL, 1ULL, ~0ULL}) {
    EXPECT_EQ(matched(mask, ServiceLine({}, 0, {}, {}, "c"), ServiceLine({}, 0, {}, {}, "c")), 1);
    EXPECT_EQ(matched(mask, ServiceLine({}, 0, {}, {}, "c"), ServiceLine({}, 0, {}, {}, "d")), 0);
    EXPECT_EQ(matched(mask, ServiceLine({}, 0, {}, {}, "c"), ServiceLine("a", 1, "tcp")), 0);
    EXPECT_EQ(matched(mask, ServiceLine("a", 1, "tcp"), ServiceLine({}, 0, {}, {}, "c")), 0);
  }
}

TEST(ServicesMatch, BlankLinesMatchEachOtherButNoComment) {
  Parsed blank("\n");
  Parsed other("\n");
  ServiceLine empty({}, 0, {}, {}, "");
  EXPECT_EQ(GenRegServices::MatchRecord(0, &blank.record, &other.record), 1);
  EXPECT_EQ(GenRegServices::MatchRecord(0, &blank.record, empty.record()), 0);
  EXPECT_EQ(GenRegServices::MatchRecord(0, empty.record(), &blank.record), 0);
}

TEST(ServicesMatch, RecordWithoutFlagsMatchesNothing) {
  GenRegServicesRecord nothing{};
  ServiceLine line("a", 1, "tcp");
  EXPECT_EQ(GenRegServices::MatchRecord(0, &nothing, line.record()), 0);
  EXPECT_EQ(GenRegServices::MatchRecord(0, &nothing, &nothing), 0);
}

GenRegStatus validated(unsigned long long mask, GenRegServicesRecord* record) {
  return statusOf(GenRegServices::ValidateRecord(mask, record));
}

TEST(ServicesValidate, NamesWhatIsMissing) {
  GenRegServicesRecord nothing{};
  ServiceLine comment({}, 0, {}, {}, "c");
  ServiceLine whole("a", 1, "tcp");
  EXPECT_EQ(validated(0, nullptr), status::null_argument);
  EXPECT_EQ(validated(7, &nothing), status::empty_record);
  EXPECT_EQ(validated(7, comment.record()), status::service_key_without_name);
  EXPECT_EQ(validated(6, comment.record()), status::service_key_without_port);
  EXPECT_EQ(validated(4, comment.record()), status::service_key_without_protocol);
  EXPECT_EQ(validated(0, comment.record()), 0U);
  EXPECT_EQ(validated(7, whole.record()), 0U);
  EXPECT_EQ(validated(~0ULL, whole.record()), 0U);
}

// --- the rest of the slots, and the constructor

std::string printed(GenRegServicesRecord* record) {
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(GenRegServices::PrintRecord(record), 0);
  return ::testing::internal::GetCapturedStdout();
}

TEST(ServicesPrint, PrintsThePortAsItIsStored) {
  ServiceLine line("ftp", 21, "tcp", {"x"}, "c");
  EXPECT_EQ(printed(line.record()),
            "   name     = |ftp|\n   port     = 5376\n   protocol = |tcp|\n   comment  = |c|\n");
  GenRegServicesRecord nothing{};
  EXPECT_EQ(printed(&nothing),
            "   name     = NULL\n   port     = 0\n   protocol = NULL\n   comment  = NULL\n");
}

TEST(ServicesSize, IsTheRecordsOwn) {
  unsigned long size = 0;
  EXPECT_EQ(GenRegServices::GetMaxRecordSize(&size), 0);
  EXPECT_EQ(size, sizeof(GenRegServicesRecord));
  if (sizeof(void*) == 4) {
    EXPECT_EQ(size, 2584U);
  }
  EXPECT_EQ(GenRegServices::GetRecordSize(nullptr, &size), 0);
  EXPECT_EQ(size, sizeof(GenRegServicesRecord));
}

TEST(ServicesConstructor, FillsSlotsAndSetsFeatureOneOnly) {
  const TempDir folder;
  vrxtest::ServicesFile services(folder.file("services"));
  EXPECT_EQ(services->features, kGenRegVerifyCommit);
  EXPECT_EQ(services->state, kGenRegStateInitial | kGenRegStatePathsSet);
  EXPECT_EQ(services->CheckFuncPtrs(), 0U);
  EXPECT_TRUE(services->printRecord && services->getRecordSize);
  EXPECT_TRUE(!services->log && !services->notify);
}

TEST(ServicesConstructor, UnusablePathLeavesNoSlotsAndNoFeatures) {
  const std::string kPaths[] = {"", std::string(1018, 'p'), "folder/"};
  const unsigned int kCodes[] = {status::null_argument, status::path_too_long,
                                 status::no_base_name};
  for (int i = 0; i < 3; ++i) {
    std::string path = kPaths[i];
    unsigned int rc = 0;
    GenRegServices services(path.data(), &rc);
    EXPECT_EQ(rc, kCodes[i]);
    EXPECT_EQ(services.features, 0U);
    EXPECT_EQ(services.state, 1U);
    EXPECT_EQ(services.CheckFuncPtrs(), status::no_validate_slot);
    EXPECT_EQ(services.printRecord, nullptr);
  }
  unsigned int rc = 0;
  const GenRegServices services(nullptr, &rc);
  EXPECT_EQ(rc, status::null_argument);
}

}  // namespace
