// SPDX-License-Identifier: Apache-2.0
// Entries of the change log read back: as the library writes them, ambiguous ones, foreign ones.
#include "cli/log_entry.h"

#include <gtest/gtest.h>

#include "globalreg/internal/change_line.h"
#include "tests/support/global_records.h"

namespace cli {
namespace {

using vrxtest::instanceRecord;
using vrxtest::serviceRecord;
using vrxtest::setText;
using vrxtest::variableRecord;

constexpr char kFront[] = "TS=\"Mon Jan  1 12:00:00 2024\";CALLER=ossSetInstanceInfo;PID=42;U=-2;";
constexpr char kVariable[] = "V,VRX,A,1,";

std::string entryText(const std::string& command, const std::string& records,
                      const std::string& action = "Add", const std::string& path = "/r",
                      const std::string& level = "s1") {
  return kFront + ("BL=" + level + ";FP=7;PATH=" + path + ";ACT=" + action) + ";CL=" + command +
         ";REC=" + records;
}

EntryState stateOf(const std::string& text) {
  LogEntry entry;
  return readLogEntry(text, &entry);
}

EntryState stateOfRecords(const std::string& records, const std::string& action = "Add") {
  return stateOf(entryText("N/A", records, action));
}

LogEntry entryOf(const std::string& text) {
  LogEntry entry;
  EXPECT_EQ(readLogEntry(text, &entry), EntryState::read) << text;
  return entry;
}

// The entry that the library writes, without its line end.
std::string written(const GlobalRegRecord& record, const GlobalRegRecord* second = nullptr) {
  GlobalReg registry;
  globalreg::LineBuffer line;
  globalreg::appendHeader(line, registry, second == nullptr ? 4 : 2);
  globalreg::appendRecord(line, &record);
  if (second != nullptr) {
    line.append("!");
    globalreg::appendRecord(line, second);
  }
  return std::string(line.data(), line.size());
}

std::vector<std::string> textsOf(const LoggedRecord& record) {
  std::vector<std::string> texts;
  for (const Value& value : record.values) {
    const auto* text = std::get_if<std::string>(&value);
    texts.push_back(isAbsent(value) ? "-" : text != nullptr ? *text : "other");
  }
  return texts;
}

TEST(LogEntry, HeaderIsRead) {
  const LogEntry entry = entryOf(entryText("\"vrxreg variable add\"", kVariable));
  EXPECT_EQ(entry.time, "2024-01-01T12:00:00");
  EXPECT_EQ(entry.caller, "ossSetInstanceInfo");
  EXPECT_EQ(entry.process, 42);
  EXPECT_EQ(entry.user, 4294967294u);
  EXPECT_EQ(entry.buildLevel, "s1");
  EXPECT_EQ(entry.fixpack, 7u);
  EXPECT_EQ(entry.registry, "/r");
  EXPECT_EQ(entry.action, "add");
  EXPECT_EQ(entry.command, "vrxreg variable add");
  ASSERT_TRUE(entry.first.has_value());
  EXPECT_EQ(textsOf(*entry.first), (std::vector<std::string>{"VRX", "A", "1", "-"}));
  EXPECT_FALSE(entry.second.has_value());
}

TEST(LogEntry, EveryActionIsRead) {
  EXPECT_EQ(entryOf(entryText("N/A", kVariable, "Delete")).action, "delete");
  EXPECT_EQ(entryOf(entryText("N/A", kVariable, "Unknown")).action, "unknown");
  EXPECT_EQ(entryOf(entryText("N/A", kVariable, "Change")).action, "change");
  EXPECT_EQ(stateOf(entryText("N/A", kVariable, "add")), EntryState::unreadable);
}

TEST(LogEntry, CommandNobodyToldIsAbsent) {
  EXPECT_FALSE(entryOf(entryText("N/A", kVariable)).command.has_value());
  EXPECT_EQ(entryOf(entryText("\"\"", kVariable)).command, "");
  EXPECT_EQ(stateOf(entryText("\"", kVariable)), EntryState::unreadable);
  EXPECT_EQ(stateOf(entryText("none", kVariable)), EntryState::unreadable);
}

TEST(LogEntry, LibrarysOwnLineOfAnInstanceIsRead) {
  GlobalRegRecord record = instanceRecord("VRX", "tp1");
  record.FieldMask = kInstanceKnown;
  setText(record.Instance.InstancePath, "/home/tp1");
  setText(record.Instance.Usage, "oltp");
  record.Instance.StartAtBoot = 1;
  record.Instance.Maintenance = 2;
  setText(record.Instance.AuxPath, "/aux");
  setText(record.Instance.Comment, "orders!");
  const LogEntry entry = entryOf(written(record));
  ASSERT_TRUE(entry.first.has_value());
  EXPECT_EQ(entry.first->noun, "instance");
  const std::vector<Value> wanted = {std::string("VRX"),
                                     Version{vrxtest::kVersion3107},
                                     std::string("tp1"),
                                     std::string("/home/tp1"),
                                     std::string("oltp"),
                                     true,
                                     std::uint64_t{2},
                                     std::string("/aux"),
                                     Value{},
                                     std::string("orders!")};
  ASSERT_EQ(entry.first->values.size(), wanted.size());
  EXPECT_EQ(textsOf(*entry.first), textsOf({"", wanted}));
  EXPECT_EQ(std::get<Version>(entry.first->values[1]), std::get<Version>(wanted[1]));
  EXPECT_EQ(std::get<bool>(entry.first->values[5]), true);
  EXPECT_EQ(std::get<std::uint64_t>(entry.first->values[6]), 2u);
}

TEST(LogEntry, LibrarysOwnLineOfAServiceIsRead) {
  GlobalRegRecord record = serviceRecord("VRX");
  record.FieldMask = kServiceKnown & ~static_cast<unsigned long long>(kServiceNum2);
  setText(record.Services.Text1, "/opt/vrx");
  record.Services.FixpackNumber = 0xFFFFFFFF;
  record.Services.Flag = 0xE9;
  const LogEntry entry = entryOf(written(record));
  ASSERT_TRUE(entry.first.has_value());
  EXPECT_EQ(entry.first->noun, "service");
  EXPECT_EQ(std::get<std::uint64_t>(entry.first->values[5]), 0xFFFFFFFFu);
  EXPECT_TRUE(isAbsent(entry.first->values[6]));
  EXPECT_EQ(std::get<std::uint64_t>(entry.first->values[7]), 0xE9u);
}

TEST(LogEntry, LibrarysOwnLineOfAChangeHasBothRecords) {
  const GlobalRegRecord before = variableRecord("VRX", "A", "!V,");
  const GlobalRegRecord after = variableRecord("VRX", "A", "2!");
  EXPECT_EQ(stateOf(written(before, &after)), EntryState::ambiguous);
  const GlobalRegRecord plain = variableRecord("VRX", "A", "!V");
  const LogEntry entry = entryOf(written(plain, &after));
  ASSERT_TRUE(entry.first.has_value() && entry.second.has_value());
  EXPECT_EQ(textsOf(*entry.first)[2], "!V");
  EXPECT_EQ(textsOf(*entry.second)[2], "2!");
}

TEST(LogEntry, RecordOfNoKnownTypeIsNone) {
  EXPECT_FALSE(entryOf(entryText("N/A", "")).first.has_value());
  const LogEntry change = entryOf(entryText("\"x\"", "!", "Change"));
  EXPECT_FALSE(change.first.has_value() || change.second.has_value());
}

TEST(LogEntry, RecordThatMayHaveASecondOfNoKnownTypeIsAmbiguous) {
  EXPECT_EQ(stateOfRecords("V,VRX,A,1,why!", "Change"), EntryState::ambiguous);
  EXPECT_EQ(stateOfRecords("V,VRX,A,1,why!", "Add"), EntryState::read);
}

TEST(LogEntry, RecordWithMoreCommasThanFieldsIsAmbiguous) {
  EXPECT_EQ(stateOfRecords("V,VRX,A,1,2,"), EntryState::ambiguous);
  EXPECT_EQ(stateOfRecords("I,VRX,3.1.0.7,tp1,/p,u,1,0,,,moved, twice"), EntryState::ambiguous);
  EXPECT_EQ(stateOfRecords("V,VRX,A,1,2,!V,VRX,A,1,", "Change"), EntryState::ambiguous);
  EXPECT_EQ(stateOfRecords("V,VRX,A,1,,!V,VRX,A,1,", "Change"), EntryState::ambiguous);
}

TEST(LogEntry, RecordWithFewerCommasThanFieldsIsUnreadable) {
  EXPECT_EQ(stateOfRecords("V,VRX,A,1"), EntryState::unreadable);
  EXPECT_EQ(stateOfRecords("V"), EntryState::unreadable);
  EXPECT_EQ(stateOfRecords("X,a,b,c,d"), EntryState::unreadable);
}

TEST(LogEntry, ChangeWithMoreCommasThanItsFirstRecordHasIsAmbiguous) {
  // The first record's text may hold a comma, or the second be cut.
  EXPECT_EQ(stateOfRecords("V,VRX,A,1,!V,VRX", "Change"), EntryState::ambiguous);
  EXPECT_EQ(stateOfRecords("I,VRX,3.1.0.7,tp1,,,,,,,moved, twice!V,VRX,A,1,", "Change"),
            EntryState::ambiguous);
  EXPECT_EQ(stateOfRecords("V,VRX,A,a,b,", "Change"), EntryState::ambiguous);
  EXPECT_EQ(stateOfRecords("V,VRX,A,a,b,!", "Change"), EntryState::ambiguous);
  EXPECT_EQ(stateOfRecords("!V,VRX,A,a,b,", "Change"), EntryState::ambiguous);
  EXPECT_EQ(stateOfRecords("!V,VRX,A", "Change"), EntryState::unreadable);
}

TEST(LogEntry, RecordsOfAChangeMayBeOfTwoTypes) {
  const LogEntry entry = entryOf(entryText("N/A", "V,VRX,A,1,!S,VRX,3.1.0.7,,,,,,,,", "Change"));
  EXPECT_EQ(entry.first->noun, "variable");
  EXPECT_EQ(entry.second->noun, "service");
  EXPECT_FALSE(entryOf(entryText("N/A", "!V,VRX,A,1,", "Change")).first.has_value());
}

TEST(LogEntry, SecondRecordBelongsToAChangeOnly) {
  EXPECT_EQ(stateOfRecords("V,VRX,A,1,!V,VRX,A,2,", "Change"), EntryState::read);
  EXPECT_EQ(stateOfRecords("V,VRX,A,1,!V,VRX,A,2,", "Add"), EntryState::ambiguous);
}

TEST(LogEntry, ValueThatIsNoneOfItsFieldIsUnreadable) {
  for (const char* version : {"3.1", "3.1.0.70000", "03.1.0.7", "x"}) {
    const std::string text = std::string("S,VRX,") + version + ",,,,,,,,";
    EXPECT_EQ(stateOfRecords(text), EntryState::unreadable) << version;
  }
  for (const char* number : {"+1", "01", "-0", "4294967296", "1x", " 1"}) {
    const std::string text = std::string("S,VRX,3.1.0.7,,,,") + number + ",,,,";
    EXPECT_EQ(stateOfRecords(text), EntryState::unreadable) << number;
  }
  EXPECT_EQ(stateOfRecords("S,VRX,3.1.0.7,,,,,,AB,,"), EntryState::unreadable);
}

TEST(LogEntry, CommandLineThatMayEndTwiceIsAmbiguous) {
  EXPECT_EQ(stateOf(entryText("\"x \";REC=V,a,b,c, y\"", kVariable)), EntryState::ambiguous);
  EXPECT_EQ(stateOf(entryText("\"x \";REC=\"", kVariable)), EntryState::read);  // no record there
  EXPECT_EQ(stateOf(entryText("\"x\"", "V,VRX,A,\";REC=!,")), EntryState::ambiguous);
}

TEST(LogEntry, PathThatMayEndTwiceIsAmbiguous) {
  const std::string path = "/r;ACT=Add;CL=N/A;REC=x";
  EXPECT_EQ(stateOf(entryText("N/A", kVariable, "Add", path)), EntryState::ambiguous);
  EXPECT_EQ(entryOf(entryText("N/A", kVariable, "Add", "/r;ACT=Put;CL=N/A")).registry,
            "/r;ACT=Put;CL=N/A");
  EXPECT_EQ(stateOf(entryText("\";ACT=Add;CL=\" x\"", kVariable)), EntryState::ambiguous);
}

TEST(LogEntry, BuildLevelThatMayEndTwiceIsAmbiguous) {
  EXPECT_EQ(stateOf(entryText("N/A", kVariable, "Add", "/r", "s1;FP=1;PATH=/q")),
            EntryState::ambiguous);
  EXPECT_EQ(stateOf(entryText("N/A", kVariable, "Add", "/r;FP=1;PATH=/q")), EntryState::ambiguous);
  EXPECT_EQ(entryOf(entryText("N/A", kVariable, "Add", "/r", "s1;FP=x")).buildLevel, "s1;FP=x");
}

TEST(LogEntry, LineEndInATextIsAmbiguous) {
  EXPECT_EQ(stateOf(entryText("N/A", "V,VRX,A,1,two\nlines")), EntryState::ambiguous);
  EXPECT_EQ(stateOf(entryText("\"a\nb\"", kVariable)), EntryState::ambiguous);
}

TEST(LogEntry, EntryThatWasCutBeforeTheNextIsNotReadAsOne) {
  const std::string cut = entryText("\"a\"", kVariable);
  const std::string next = entryText("\"b\"", kVariable);
  for (std::size_t size = 1; size <= cut.size(); ++size)
    EXPECT_NE(stateOf(cut.substr(0, size) + next), EntryState::read) << size;
}

TEST(LogEntry, BeginningOfAnEntryInTheCallersNameIsAmbiguous) {
  EXPECT_EQ(stateOf("TS=\"\";CALLER=aTS=\"b;PID=1;U=0;BL=;FP=0;PATH=;ACT=Add;CL=N/A;REC="),
            EntryState::ambiguous);
}

TEST(LogEntry, WhatIsNoEntryIsUnreadable) {
  EXPECT_EQ(stateOf(""), EntryState::unreadable);
  EXPECT_EQ(stateOf("TS=\""), EntryState::unreadable);
  EXPECT_EQ(stateOf("anything"), EntryState::unreadable);
  const std::string whole = entryText("\"x\"", kVariable);
  for (std::size_t size = 0; size < whole.size(); ++size)
    EXPECT_NE(stateOf(whole.substr(0, size)), EntryState::ambiguous) << size;
}

TEST(LogEntry, TimeIsAsThePrintedCalendarOrAbsent) {
  const auto withTime = [](const std::string& time) {
    return "TS=\"" + time + "\";CALLER=UNKNOWN;PID=1;U=0;BL=;FP=0;PATH=;ACT=Add;CL=N/A;REC=";
  };
  EXPECT_EQ(entryOf(withTime("")).time, "");
  EXPECT_EQ(entryOf(withTime("Sat Nov 21 14:52:09 2026")).time, "2026-11-21T14:52:09");
  for (const char* time : {"Sat Nov 21 14:52:09", "Sat Nov 21 14:52:09 2026 ", "now",
                           "Sat Nov  1 25:52:09 2026", "sat Nov 21 14:52:09 2026"})
    EXPECT_EQ(stateOf(withTime(time)), EntryState::unreadable) << time;
}

}  // namespace
}  // namespace cli
