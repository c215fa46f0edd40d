// SPDX-License-Identifier: Apache-2.0
// The parts of a change-log line: records, the command line, and a line that is too long.
#include "globalreg/internal/change_line.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "globalreg/global_reg.h"
#include "tests/support/global_records.h"

namespace {

using vrxtest::instanceRecord;
using vrxtest::serviceRecord;
using vrxtest::setText;
using vrxtest::variableRecord;

std::string recordText(const GlobalRegRecord& record) {
  globalreg::LineBuffer line;
  globalreg::appendRecord(line, &record);
  return std::string(line.data(), line.size());
}

std::string commandLine(std::vector<std::string> arguments) {
  std::vector<char*> pointers;
  for (std::string& argument : arguments)
    pointers.push_back(argument.data());
  GlobalReg registry;
  registry.CallerArgCount = static_cast<int>(pointers.size());
  registry.CallerArgs = pointers.data();
  char text[globalreg::kCommandLineSize];
  globalreg::formatCommandLine(registry, text);
  return text;
}

TEST(ChangeLine, InstanceRecordWithEveryField) {
  GlobalRegRecord record = instanceRecord("VRX", "inst1");
  record.FieldMask = kInstanceKnown;
  setText(record.Instance.InstancePath, "/home/inst1");
  setText(record.Instance.Usage, "use");
  record.Instance.StartAtBoot = 1;
  setText(record.Instance.AuxPath, "/aux");
  setText(record.Instance.AuxName, "auxname");
  setText(record.Instance.Comment, "a, comment");
  EXPECT_EQ(recordText(record), "I,VRX,3.1.0.7,inst1,/home/inst1,use,1,0,/aux,auxname,a, comment");
}

TEST(ChangeLine, AbsentFieldsLeaveTheirCommas) {
  EXPECT_EQ(recordText(instanceRecord("VRX", "inst1")), "I,VRX,3.1.0.7,inst1,,,,,,,");
  EXPECT_EQ(recordText(serviceRecord("VRX")), "S,VRX,3.1.0.7,,,,,,,,");
  EXPECT_EQ(recordText(variableRecord("VRX", "A", "1")), "V,VRX,A,1,");
}

TEST(ChangeLine, ServiceRecordWithEveryField) {
  GlobalRegRecord record = serviceRecord("VRX");
  record.FieldMask = kServiceKnown;
  setText(record.Services.Text1, "one");
  setText(record.Services.Text2, "two");
  setText(record.Services.Text3, "three");
  record.Services.FixpackNumber = 7;
  record.Services.Num2 = 0xFFFFFFFF;
  record.Services.Flag = 'F';
  record.Services.Num4 = 4;
  EXPECT_EQ(recordText(record), "S,VRX,3.1.0.7,one,two,three,7,-1,F,0,4");
}

TEST(ChangeLine, VariableRecordWithComment) {
  GlobalRegRecord record = variableRecord("VRX", "A", "1");
  record.FieldMask |= kVariableComment;
  setText(record.Variable.Comment, "why");
  EXPECT_EQ(recordText(record), "V,VRX,A,1,why");
}

TEST(ChangeLine, RecordOfAnotherTypeWritesNothing) {
  for (const std::uint32_t type : {0U, 3U, 9U}) {
    GlobalRegRecord record{};
    record.RecordType = type;
    record.FieldMask = ~0ULL;
    EXPECT_EQ(recordText(record), "");
  }
}

TEST(ChangeLine, UnterminatedTextsStopAtTheirWidth) {
  GlobalRegRecord record;
  std::memset(&record, 'x', sizeof record);
  record.RecordType = kGlobalRegVariable;
  record.FieldMask = kVariableKnown;
  EXPECT_EQ(recordText(record), "V," + std::string(64, 'x') + "," + std::string(256, 'x') + "," +
                                    std::string(256, 'x') + "," + std::string(2000, 'x'));
}

TEST(ChangeLine, CommandLineOrNotAvailable) {
  EXPECT_EQ(commandLine({}), "N/A");
  EXPECT_EQ(commandLine({"vrxreg"}), "\"vrxreg\"");
  EXPECT_EQ(commandLine({"vrxreg", "", "add"}), "\"vrxreg  add\"");
  GlobalReg registry;
  registry.CallerArgCount = 2;  // and no strings
  char text[globalreg::kCommandLineSize];
  globalreg::formatCommandLine(registry, text);
  EXPECT_STREQ(text, "N/A");
  char* arguments[] = {text};
  registry.CallerArgs = arguments;
  registry.CallerArgCount = -1;
  globalreg::formatCommandLine(registry, text);
  EXPECT_STREQ(text, "N/A");
}

TEST(ChangeLine, FirstArgumentThatDoesNotFitEndsTheCommandLine) {
  // 1 quote is there already: an argument of 1019 bytes fits, one of 1020 does not.
  EXPECT_EQ(commandLine({std::string(1019, 'a')}), "\"" + std::string(1019, 'a') + "\"");
  EXPECT_EQ(commandLine({std::string(1020, 'a'), "b"}), "\"\"");
  EXPECT_EQ(commandLine({"v", std::string(1018, 'a')}), "\"v " + std::string(1018, 'a') + "\"");
  EXPECT_EQ(commandLine({"v", std::string(1019, 'a'), "b"}), "\"v\"");
  // An empty one takes a blank, for which there is room once.
  EXPECT_EQ(commandLine({std::string(1019, 'a'), "", ""}), "\"" + std::string(1019, 'a') + " \"");
}

TEST(ChangeLine, LineBufferCutsWhatDoesNotFitAndKeepsTheNewline) {
  globalreg::LineBuffer line;
  const std::string much(5000, 'x');
  line.append(much.c_str());
  line.append(much.c_str());
  line.endLine();
  EXPECT_EQ(line.size(), globalreg::LineBuffer::kCapacity);
  EXPECT_EQ(line.data()[line.size() - 1], '\n');
}

}  // namespace
