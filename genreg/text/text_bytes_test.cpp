// SPDX-License-Identifier: Apache-2.0
// Updates of files with unusual lines: every byte that an update does not concern survives it, or
// the update is refused and the file is as it was.
#include <gtest/gtest.h>

#include <string>

#include "genreg/text/text_store.h"
#include "tests/support/text_records.h"

namespace {

using vrxtest::InitLine;
using vrxtest::InitTable;
using vrxtest::LeakCheck;
using vrxtest::ProfileLine;
using vrxtest::ServiceLine;
using vrxtest::ServicesFile;
using vrxtest::TempDir;
namespace status = genreg::status;

class TextBytes : public ::testing::Test {
 protected:
  void fill(const std::string& bytes) { vrxtest::writeFile(path_, bytes); }
  std::string bytes() const { return vrxtest::readFile(path_); }

  GenRegStatus add(const std::string& name) {
    ProfileLine line(name, "1");
    return profile_.Add(1, line.record());
  }
  GenRegStatus change(const std::string& name, const std::string& value) {
    ProfileLine key(name);
    ProfileLine line(name, value);
    return profile_.Change(1, key.record(), line.record());
  }
  GenRegStatus remove(const std::string& name) {
    ProfileLine key(name);
    return profile_.Delete(1, key.record());
  }
  GenRegStatus addInit(const std::string& id) {
    InitLine line(id, "1", "wait", "/bin/new");
    return InitTable(path_).Add(kInitTabId, line.record());
  }
  GenRegStatus changeInit(const std::string& id) {
    InitLine key(id);
    InitLine line(id, "1", "wait", "/bin/new");
    return InitTable(path_).Change(kInitTabId, key.record(), line.record());
  }
  GenRegStatus removeInit(const std::string& id) {
    InitLine key(id);
    return InitTable(path_).Delete(kInitTabId, key.record());
  }
  // Runs `update`, which must give `code` and leave file and folder as they were.
  template <class Update>
  void expectRefused(const std::string& file, GenRegStatus code, Update update) {
    fill(file);
    const LeakCheck leaks;
    EXPECT_EQ(update(), code);
    EXPECT_EQ(bytes(), file);
    EXPECT_TRUE(vrxtest::textLockIsFree(path_));
  }

  const TempDir folder_;
  const std::string path_ = folder_.file("reg");
  unsigned int rc_ = ~0U;
  GenRegVarVal profile_{path_.c_str(), &rc_};
};

// --- bytes that a C string cannot carry

TEST_F(TextBytes, FileWithANulIsNeverRewritten) {
  for (const std::string& nul :
       {std::string("x\0y\n", 4), std::string("\0\n", 2), std::string("\0", 1)}) {
    const std::string file = "A = 1\n" + nul;
    expectRefused(file, status::read_failed, [&] { return add("B"); });
    expectRefused(file, status::read_failed, [&] { return change("A", "2"); });
    expectRefused(file, status::read_failed, [&] { return remove("A"); });
    expectRefused(nul + "A = 1\n", status::read_failed, [&] { return change("A", "2"); });
  }
}

TEST_F(TextBytes, NulInAJoinedLineIsSeenToo) {
  const std::string file("a:1:w:x\\\n y\0z\nb:1:w:x\n", 22);
  expectRefused(file, status::read_failed, [&] { return changeInit("b"); });
  expectRefused(file, status::read_failed, [&] { return addInit("c"); });
}

TEST_F(TextBytes, OtherControlAndHighBytesSurvive) {
  std::string odd;
  for (int byte = 1; byte < 256; ++byte) {
    if (byte != '\n') odd += static_cast<char>(byte);
  }
  const std::string file = "#" + odd + "\n" + odd + "\nA = 1\r\n" + odd;
  fill(file);
  ASSERT_EQ(change("A", "2"), 0U);
  EXPECT_EQ(bytes(), "#" + odd + "\n" + odd + "\nA = 2\n" + odd + "\n");
  fill(file + "\n");
  ASSERT_EQ(remove("A"), 0U);
  EXPECT_EQ(bytes(), "#" + odd + "\n" + odd + "\n" + odd + "\n");
}

// --- lines that do not fit the buffer

const std::string kLong = "L = " + std::string(6000, 'x') + "\n";

TEST_F(TextBytes, LongLinesPassThroughChangeAndDelete) {
  fill("A = 1\n" + kLong + "B = 2\n");
  ASSERT_EQ(change("A", "3"), 0U);
  EXPECT_EQ(bytes(), "A = 3\n" + kLong + "B = 2\n");
  ASSERT_EQ(remove("B"), 0U);
  EXPECT_EQ(bytes(), "A = 3\n" + kLong);
  ASSERT_EQ(remove("A"), 0U);
  EXPECT_EQ(bytes(), kLong);
}

TEST_F(TextBytes, UnterminatedLongLineGetsNoNewline) {
  const std::string open = kLong.substr(0, kLong.size() - 1);
  fill("A = 1\n" + open);
  ASSERT_EQ(change("A", "3"), 0U);
  EXPECT_EQ(bytes(), "A = 3\n" + open);
}

TEST_F(TextBytes, PieceThatMatchesIsRefused) {
  expectRefused(kLong, status::read_failed, [&] { return change("L", "1"); });
  expectRefused(kLong, status::read_failed, [&] { return remove("L"); });
  const std::string tail = "# " + std::string(2045, 'x') + "T = 1\nA = 1\n";
  expectRefused(tail, status::read_failed, [&] { return change("T", "2"); });
  expectRefused(tail, status::read_failed, [&] { return remove("T"); });
  const std::string cut = "L = 1 # " + std::string(3000, 'x') + "\n";
  expectRefused(cut, status::read_failed, [&] { return change("L", "1"); });
}

TEST_F(TextBytes, AddRefusesAFileWithALongLine) {
  expectRefused(kLong, status::buffer_too_small, [&] { return add("A"); });
  expectRefused("A = 1\n" + kLong + "B = 2\n", status::buffer_too_small, [&] { return add("C"); });
  expectRefused("A = 1\n" + std::string(2047, '#') + "\n", status::buffer_too_small,
                [&] { return add("C"); });
}

TEST_F(TextBytes, LongestLinesPassThroughAdd) {
  const std::string line(2046, '#');
  fill(line + "\n" + line);
  ASSERT_EQ(add("A"), 0U);
  EXPECT_EQ(bytes(), line + "\n" + line + "\nA = 1\n");
}

// With its newline and a terminator it would not fit the next reader's buffer.
TEST_F(TextBytes, UnterminatedLineWithoutRoomForItsNewlineIsRefusedByAdd) {
  expectRefused(std::string(2047, '#'), status::buffer_too_small, [&] { return add("A"); });
}

TEST_F(TextBytes, JoinedLineThatDoesNotFitIsTreatedLikewise) {
  const std::string joined =
      "j:1:w:" + std::string(1500, 'x') + "\\\n" + std::string(1500, 'y') + "\n";
  const std::string file = "a:1:w:c\n" + joined + "b:1:w:c\n";
  expectRefused(file, status::buffer_too_small, [&] { return addInit("n"); });
  expectRefused(file, status::read_failed, [&] { return changeInit("j"); });
  expectRefused(file, status::read_failed, [&] { return removeInit("j"); });
  fill(file);
  ASSERT_EQ(changeInit("b"), 0U);
  EXPECT_EQ(bytes(), "a:1:w:c\n" + joined + "b:1:wait:/bin/new\n");
  ASSERT_EQ(removeInit("a"), 0U);
  EXPECT_EQ(bytes(), joined + "b:1:wait:/bin/new\n");
}

TEST_F(TextBytes, RecordThatDoesNotFitIsRefused) {
  const std::string value(2043, 'x');
  expectRefused("A = 1\n", status::record_not_formatted, [&] { return change("A", value); });
  ProfileLine line("B", value);
  expectRefused("A = 1\n", status::record_not_formatted,
                [&] { return profile_.Add(1, line.record()); });
  fill("A = 1\n");
  ASSERT_EQ(change("A", value.substr(1)), 0U);
  EXPECT_EQ(bytes(), "A = " + value.substr(1) + "\n");
}

// --- continuation lines

const std::string kJoined = "# head \\\nstill a comment\na:1:wait:/bin/a \\\n  -x \\\n  -y\n\n";

TEST_F(TextBytes, ContinuationLinesSurvive) {
  fill(kJoined + "b:2:once:/bin/b\n");
  ASSERT_EQ(changeInit("b"), 0U);
  EXPECT_EQ(bytes(), kJoined + "b:1:wait:/bin/new\n");
  ASSERT_EQ(addInit("c"), 0U);
  EXPECT_EQ(bytes(), kJoined + "b:1:wait:/bin/new\nc:1:wait:/bin/new\n");
  ASSERT_EQ(removeInit("b"), 0U);
  EXPECT_EQ(bytes(), kJoined + "c:1:wait:/bin/new\n");
}

TEST_F(TextBytes, ChangedContinuationLineBecomesOneLine) {
  fill(kJoined);
  ASSERT_EQ(changeInit("a"), 0U);
  EXPECT_EQ(bytes(), "# head \\\nstill a comment\na:1:wait:/bin/new\n\n");
}

TEST_F(TextBytes, DeletedContinuationLineGoesWhole) {
  fill(kJoined);
  ASSERT_EQ(removeInit("a"), 0U);
  EXPECT_EQ(bytes(), "# head \\\nstill a comment\n\n");
}

// The new entry would continue the last line.
TEST_F(TextBytes, AddBehindAnOpenContinuationIsRefused) {
  for (const char* file : {"a:1:w:c\\\n", "a:1:w:c\\", "a:1:w:c\n# note \\\n", "\\\n", "\\"})
    expectRefused(file, status::verify_failed, [&] { return addInit("n"); });
}

TEST_F(TextBytes, AddBehindAnOpenContinuationThatFillsTheBufferIsRefused) {
  const std::string file = "#" + std::string(2044, 'x') + "\\\n";
  expectRefused(file, status::verify_failed, [&] { return addInit("n"); });
}

TEST_F(TextBytes, CommandThatWouldContinueIsRefused) {
  fill("a:1:w:c\nb:1:w:c\n");
  InitTable table(path_);
  InitLine line("n", "1", "wait", "/bin/new\\");
  EXPECT_EQ(table.Add(kInitTabId, line.record()), status::verify_failed);
  InitLine key("a");
  EXPECT_EQ(table.Change(kInitTabId, key.record(), line.record()), status::verify_failed);
  EXPECT_EQ(bytes(), "a:1:w:c\nb:1:w:c\n");
}

// A copied line that holds a newline is printed as it stands, though it may not end with one.
TEST_F(TextBytes, UnterminatedLastContinuationStaysSoInChange) {
  const std::string tail = "b:1:w:c\\\n  -x";
  fill("a:1:w:c\n" + tail);
  ASSERT_EQ(changeInit("a"), 0U);
  EXPECT_EQ(bytes(), "a:1:wait:/bin/new\n" + tail);
  fill("a:1:w:c\n" + tail);
  ASSERT_EQ(addInit("n"), 0U);
  EXPECT_EQ(bytes(), "a:1:w:c\n" + tail + "\nn:1:wait:/bin/new\n");
}

TEST_F(TextBytes, ProfilesAndServicesDoNotJoin) {
  fill("A = 1\\\nB = 2\n");
  ASSERT_EQ(change("B", "3"), 0U);
  EXPECT_EQ(bytes(), "A = 1\\\nB = 3\n");
  fill("a 1/tcp \\\nb 2/tcp\n");
  ServicesFile services(path_);
  ServiceLine key("b");
  ServiceLine line("b", 3, "tcp");
  ASSERT_EQ(services->Change(kServicesName, key.record(), line.record()), 0U);
  EXPECT_EQ(bytes(), "a 1/tcp \\\nb\t\t3/tcp\n");
}

// --- lines of the three formats that are kept though they are not understood

TEST_F(TextBytes, ServiceLinesThatAreNotUnderstoodSurvive) {
  const std::string odd = "  sctp-one   9/sctp  a b # c\nnoslash tcp\nnoport\n80/tcp\n\t\n";
  fill(odd + "ftp 21/tcp\n");
  ServicesFile services(path_);
  ServiceLine key("ftp");
  ServiceLine line("ftp", 2121, "tcp", {"alias"}, " note");
  ASSERT_EQ(services->Change(kServicesName, key.record(), line.record()), 0U);
  EXPECT_EQ(bytes(), odd + "ftp\t\t2121/tcp\talias\t\t#  note\n");
  EXPECT_EQ(services->Change(kServicesName, key.record(), line.record()), status::unchanged);
  ASSERT_EQ(services->Delete(kServicesName, key.record()), 0U);
  EXPECT_EQ(bytes(), odd);
  ASSERT_EQ(services->Add(kServicesName, line.record()), 0U);
  EXPECT_EQ(bytes(), odd + "ftp\t\t2121/tcp\talias\t\t#  note\n");
}

TEST_F(TextBytes, ServiceTwinsAreToldApartByTheirProtocol) {
  fill("dns 53/tcp\ndns 53/udp\n");
  ServicesFile services(path_);
  ServiceLine both("dns");
  ServiceLine udp("dns", 0, "udp");
  ServiceLine line("dns", 54, "udp");
  EXPECT_EQ(services->Change(kServicesName, both.record(), line.record()), status::several_match);
  EXPECT_EQ(services->Delete(kServicesName, both.record()), status::several_match);
  EXPECT_EQ(services->Add(kServicesName, line.record()), status::duplicate_record);
  ASSERT_EQ(services->Change(kServicesName | kServicesProtocol, udp.record(), line.record()), 0U);
  EXPECT_EQ(bytes(), "dns 53/tcp\ndns\t\t54/udp\n");
}

TEST_F(TextBytes, InitLinesThatBeginWithColonsSurvive) {
  const std::string odd =
      "::sysinit:/etc/init.d/rcS\n::respawn:/bin/sh \\\n  -l\n:note\nbad\n x:1\n";
  fill(odd + "a:1:w:c # note\n");
  ASSERT_EQ(changeInit("a"), 0U);
  EXPECT_EQ(bytes(), odd + "a:1:wait:/bin/new\n");
  EXPECT_EQ(changeInit("a"), status::unchanged);
  ASSERT_EQ(addInit("b"), 0U);
  ASSERT_EQ(removeInit("a"), 0U);
  EXPECT_EQ(bytes(), odd + "b:1:wait:/bin/new\n");
}

TEST_F(TextBytes, InitTableChangeToLessThanTheStoredLineIsNoChange) {
  fill("a:1:w:c # note\n");
  InitTable table(path_);
  InitLine key("a");
  InitLine line("a", "1", "w", "c");
  EXPECT_EQ(table.Change(kInitTabId, key.record(), line.record()), status::unchanged);
  InitLine noted("a", "1", "w", "c", " other");
  ASSERT_EQ(table.Change(kInitTabId, key.record(), noted.record()), 0U);
  EXPECT_EQ(bytes(), "a:1:w:c # other\n");
}

TEST_F(TextBytes, InitTableDuplicatesAreFoundByTheMask) {
  fill("\na:1:w:c\n");
  InitTable table(path_);
  InitLine line("a", "2", "once", "/bin/z");
  EXPECT_EQ(table.Add(kInitTabId, line.record()), status::duplicate_record);
  EXPECT_EQ(table.Add(0, line.record()), status::duplicate_record) << "a blank line matches too";
  ASSERT_EQ(table.Add(kInitTabId | kInitTabAction, line.record()), 0U);
  EXPECT_EQ(bytes(), "\na:1:w:c\na:2:once:/bin/z\n");
}

}  // namespace
