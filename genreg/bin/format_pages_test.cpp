// SPDX-License-Identifier: Apache-2.0
// The examples of the pages about the file formats are what the code writes, byte for byte, and the
// code reads them back.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <string>

#include "genreg/bin/bin_store.h"
#include "tests/support/global_records.h"
#include "tests/support/plain_registry.h"
#include "tests/support/quiet_global_reg.h"
#include "tests/support/store_watch.h"
#include "tests/support/temp_dir.h"

namespace {

using namespace vrxtest;
using genreg::statusOf;
namespace status = genreg::status;

bool hostIsLittleEndian() {
  const std::uint16_t one = 1;
  unsigned char first = 0;
  std::memcpy(&first, &one, sizeof first);
  return first == 1;
}

// The bytes of one line of a dump, "offset  bytes  meaning"; the offset must be where they stand.
std::string bytesOfLine(const std::string& line, std::size_t offset) {
  std::istringstream columns(line.substr(0, 48));
  std::string column;
  columns >> column;
  EXPECT_EQ(std::strtoul(column.c_str(), nullptr, 16), offset) << line;
  std::string bytes;
  while (columns >> column) {
    EXPECT_EQ(column.size(), 2U) << line;
    bytes.push_back(static_cast<char>(std::strtoul(column.c_str(), nullptr, 16)));
  }
  EXPECT_FALSE(bytes.empty()) << line;
  return bytes;
}

// The bytes of the dump that follows `<!-- example: title -->` in a page below docs/.
std::string exampleOf(const std::string& page, const std::string& title) {
  const auto docs = std::filesystem::path(__FILE__).parent_path() / ".." / ".." / "docs";
  std::istringstream lines(readFile((docs / page).string()));
  std::string line;
  while (std::getline(lines, line) && line != "<!-- example: " + title + " -->") {
  }
  std::getline(lines, line);  // the fence
  std::string bytes;
  while (std::getline(lines, line) && line != "```")
    bytes += bytesOfLine(line, bytes.size());
  EXPECT_FALSE(bytes.empty()) << page << " has no example of " << title;
  return bytes;
}

class FormatPages : public testing::Test {
 protected:
  void SetUp() override {
    if (!hostIsLittleEndian()) GTEST_SKIP() << "the examples are a little-endian host's";
  }

  TempDir folder_;
  const std::string path_ = folder_.file("reg");
};

TEST_F(FormatPages, PlainFrameIsWhatTheStoreWritesAndReads) {
  const std::string example = exampleOf("frame-format.md", "one plain frame");
  PlainRegistry registry(path_);
  PlainRecord record = plainRecord("a", 1);
  ASSERT_EQ(registry.Add(kPlainName, &record), 0);
  EXPECT_EQ(readFile(path_), example);
  writeFile(path_, example);
  PlainRecord found{};
  ASSERT_EQ(registry.Get(kPlainName, &record, &found), 0);
  EXPECT_EQ(found, record);
}

TEST_F(FormatPages, ChecksumHeaderIsWhatACommitStamps) {
  const std::string example =
      exampleOf("frame-format.md", "one plain frame with its checksum header");
  PlainRegistry registry(path_, kGenRegChecksumHeader);
  PlainRecord record = plainRecord("a", 1);
  CapturedOutput progress;  // stamping prints a line
  ASSERT_EQ(registry.Add(kPlainName, &record), 0);
  EXPECT_EQ(progress.take(), "Copy file into buffer done 24\n");
  EXPECT_EQ(readFile(path_), example);
  PlainRegistry reader(path_, kGenRegChecksumHeader);
  PlainRecord found{};
  ASSERT_EQ(reader.Get(kPlainName, &record, &found), 0);
  EXPECT_EQ(found, record);
}

TEST_F(FormatPages, VerifiedUpdatesOfARegistryWithAHeaderAreRefused) {
  PlainRegistry registry(path_, kGenRegChecksumHeader);
  PlainRecord key = plainRecord("a", 1);
  PlainRecord second = plainRecord("b", 2);
  PlainRecord third = plainRecord("c", 3);
  const CapturedOutput progress;
  ASSERT_EQ(registry.Add(kPlainName, &key), 0);
  ASSERT_EQ(registry.Add(kPlainName, &second), 0);
  const std::string before = readFile(path_);
  registry.features |= kGenRegVerifyCommit;
  EXPECT_EQ(statusOf(registry.Add(kPlainName, &third)), status::verify_failed);
  EXPECT_EQ(statusOf(registry.Change(kPlainName, &key, &third)), status::verify_failed);
  EXPECT_EQ(statusOf(registry.Delete(kPlainName, &key)), status::verify_failed);
  EXPECT_EQ(readFile(path_), before);
}

GlobalRegRecord exampleInstance() {
  GlobalRegRecord record = instanceRecord("VRX", "tp1");
  record.FieldMask |= kInstancePath | kInstanceStartAtBoot;
  setText(record.Instance.InstancePath, "/home/tp1/reg");
  record.Instance.StartAtBoot = 1;
  return record;
}

TEST_F(FormatPages, PackedInstanceIsWhatTheGlobalRegistryWritesAndReads) {
  const std::string example = exampleOf("packed-record-format.md", "one instance");
  QuietGlobalReg registry(path_);
  GlobalRegRecord record = exampleInstance();
  ASSERT_EQ(registry.Add(kInstanceKey, &record), 0);
  EXPECT_EQ(readFile(path_), example);

  writeFile(path_, example);
  GlobalRegRecord found{};
  ASSERT_EQ(registry.Get(kInstanceKey, &record, &found), 0);
  record.MissingFieldMask = kInstanceKnown & ~record.FieldMask;
  EXPECT_EQ(std::memcmp(&found, &record, sizeof found), 0);
}

// What the page says of records that an update copies, and of the entries of unknown fields.
TEST_F(FormatPages, CopiedRecordsStateWhatTheyLackAndKeepWhatIsUnknown) {
  const std::string name = entryOf(std::string("V\0", 2));
  const std::string later = entryOf("later");
  writeFile(path_, frameOf(imageOf(kGlobalRegVariable, 0x1001, {name, later})));
  QuietGlobalReg registry(path_);
  GlobalRegRecord record = variableRecord("V", "N", "1");
  ASSERT_EQ(registry.Add(kVariableKey, &record), 0);
  const std::string variable = entryOf(std::string("N\0", 2));
  const std::string value = entryOf(std::string("1\0", 2));
  EXPECT_EQ(readFile(path_),
            frameOf(imageOf(kGlobalRegVariable, 0x1001, {name, later}, 0xE)) +
                frameOf(imageOf(kGlobalRegVariable, 0x7, {name, variable, value}, 0)));
}

}  // namespace
