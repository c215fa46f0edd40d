// SPDX-License-Identifier: Apache-2.0
// GenRegReadLine over real files, and GenRegWriteLine.
#include "genreg/text/line_io.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <random>
#include <string>
#include <vector>

#include "tests/support/faults.h"
#include "tests/support/leak_check.h"
#include "tests/support/temp_dir.h"

namespace {

using vrxtest::Call;
using vrxtest::FailCall;
using vrxtest::LeakCheck;
using vrxtest::TempDir;
namespace status = genreg::status;

// One call's outcome. The buffers are filled with rubbish before it and sit between fences.
struct Reading {
  bool some = false;
  unsigned int rc = ~0U;
  std::string raw;
  std::string line;

  bool operator==(const Reading& other) const {
    return some == other.some && rc == other.rc && raw == other.raw && line == other.line;
  }
};

std::ostream& operator<<(std::ostream& out, const Reading& reading) {
  return out << (reading.some ? "raw " : "null ") << std::hex << reading.rc << " <" << reading.raw
             << "> <" << reading.line << ">";
}

class TextFile {
 public:
  explicit TextFile(const std::string& bytes, bool join = false) : join_(join) {
    vrxtest::writeFile(folder_.file("text"), bytes);
    file_ = std::fopen(folder_.file("text").c_str(), "r");
    EXPECT_NE(file_, nullptr);
  }
  ~TextFile() { std::fclose(file_); }
  TextFile(const TextFile&) = delete;
  TextFile& operator=(const TextFile&) = delete;

  FILE* stream() { return file_; }

  Reading next(unsigned long size = kGenRegLineSize) {
    constexpr char kFence = '\x5A';
    std::vector<char> raw(size + 16, kFence);
    std::vector<char> line(size + 16, kFence);
    Reading reading;
    char* got = GenRegReadLine(raw.data(), line.data(), size, file_, &reading.rc, join_);
    EXPECT_TRUE(got == nullptr || got == raw.data());
    for (unsigned long i = size; i < size + 16; ++i)
      EXPECT_TRUE(raw[i] == kFence && line[i] == kFence) << "written past the buffer";
    EXPECT_NE(std::find(raw.begin(), raw.begin() + static_cast<long>(size), '\0'),
              raw.begin() + static_cast<long>(size));
    reading.some = got != nullptr;
    reading.raw = raw.data();
    reading.line = line.data();
    return reading;
  }

 private:
  const TempDir folder_;
  const bool join_;
  FILE* file_ = nullptr;
};

const Reading kNothing{false, status::end_of_input, "", ""};

Reading whole(const std::string& text) {
  return {true, 0, text, text};
}

TEST(ReadLine, GivesALineWithItsNewlineThenTheEnd) {
  TextFile file("abc\n");
  EXPECT_EQ(file.next(), whole("abc\n"));
  EXPECT_EQ(file.next(), kNothing);
  EXPECT_EQ(file.next(), kNothing);
}

TEST(ReadLine, EmptyFileGivesNullAtOnce) {
  TextFile file("");
  EXPECT_EQ(file.next(), kNothing);
}

TEST(ReadLine, EmptyPhysicalLineIsANewline) {
  TextFile file("\n\na");
  EXPECT_EQ(file.next(), whole("\n"));
  EXPECT_EQ(file.next(), whole("\n"));
  EXPECT_EQ(file.next(), whole("a"));
  EXPECT_EQ(file.next(), kNothing);
}

TEST(ReadLine, JoinsABackslashNewline) {
  TextFile file("a\\\nb\nc\n", true);
  EXPECT_EQ(file.next(), (Reading{true, 0, "a\\\nb\n", "ab\n"}));
  EXPECT_EQ(file.next(), whole("c\n"));
}

TEST(ReadLine, WithoutJoiningBothBytesStay) {
  TextFile file("a\\\nb\n");
  EXPECT_EQ(file.next(), whole("a\\\n"));
  EXPECT_EQ(file.next(), whole("b\n"));
}

TEST(ReadLine, EscapedBytesKeepTheirBackslash) {
  for (const bool join : {false, true}) {
    TextFile file("x\\y\n\\\\z\n", join);
    EXPECT_EQ(file.next(), whole("x\\y\n"));
    EXPECT_EQ(file.next(), whole("\\\\z\n"));
  }
}

TEST(ReadLine, BackslashBeforeABackslashDoesNotProtectTheNewline) {
  TextFile file("a\\\\\nb\n", true);
  EXPECT_EQ(file.next(), (Reading{true, 0, "a\\\\\nb\n", "a\\b\n"}));
}

TEST(ReadLine, JoinsOverSeveralAndEmptyLines) {
  TextFile file("\\\n\\\n\\\nx\n", true);
  EXPECT_EQ(file.next(), (Reading{true, 0, "\\\n\\\n\\\nx\n", "x\n"}));
}

TEST(ReadLine, EndBehindAContinuationStillGivesTheLine) {
  TextFile file("a\\\n", true);
  EXPECT_EQ(file.next(), (Reading{true, status::end_of_input, "a\\\n", "a"}));
  EXPECT_EQ(file.next(), kNothing);
}

TEST(ReadLine, LoneBackslashAtTheEndIsDroppedButReturned) {
  for (const bool join : {false, true}) {
    TextFile file("\\", join);
    EXPECT_EQ(file.next(), (Reading{true, 0, "\\", ""}));
    TextFile tail("ab\\", join);
    EXPECT_EQ(tail.next(), (Reading{true, 0, "ab\\", "ab"}));
  }
}

TEST(ReadLine, NulHidesTheRestOfItsLineOnly) {
  TextFile file(std::string("a\0b\nc\n", 6));
  EXPECT_EQ(file.next(), whole("a"));
  EXPECT_EQ(file.next(), whole("c\n"));
}

TEST(ReadLine, LineThatBeginsWithANulIsReturnedEmpty) {
  TextFile file(std::string("\0b\nc\n", 5));
  EXPECT_EQ(file.next(), whole(""));
  EXPECT_EQ(file.next(), whole("c\n"));
}

TEST(ReadLine, CommentsBlanksAndCarriageReturnsStay) {
  TextFile file(" \t# c \r\n", true);
  EXPECT_EQ(file.next(), whole(" \t# c \r\n"));
}

TEST(ReadLine, LongLineComesInPieces) {
  const std::string text(5000, 'x');
  TextFile file(text + "\n");
  EXPECT_EQ(file.next(), whole(text.substr(0, 2047)));
  EXPECT_EQ(file.next(), whole(text.substr(0, 2047)));
  EXPECT_EQ(file.next(), whole(text.substr(0, 906) + "\n"));
  EXPECT_EQ(file.next(), kNothing);
}

TEST(ReadLine, LineThatJustFitsIsWhole) {
  const std::string text(2046, 'x');
  TextFile file(text + "\n" + text + "y");
  EXPECT_EQ(file.next(), whole(text + "\n"));
  EXPECT_EQ(file.next(), whole(text + "y"));
  EXPECT_EQ(file.next(), kNothing);
}

TEST(ReadLine, JoinedLineStopsWhenTheBufferIsFull) {
  TextFile file("abc\\\ndefgh\n", true);
  EXPECT_EQ(file.next(8), (Reading{true, 0, "abc\\\nde", "abcde"}));
  EXPECT_EQ(file.next(8), whole("fgh\n"));
}

TEST(ReadLine, ContinuationThatEndsWithTheBufferIsCut) {
  TextFile file("abc\\\ndef\n", true);
  EXPECT_EQ(file.next(6), (Reading{true, 0, "abc\\\n", "abc"}));
  EXPECT_EQ(file.next(6), whole("def\n"));
}

TEST(ReadLine, SmallestBuffers) {
  TextFile file("ab\n");
  EXPECT_EQ(file.next(1), (Reading{false, 0, "", ""}));
  EXPECT_EQ(file.next(2), whole("a"));
  EXPECT_EQ(file.next(2), whole("b"));
  EXPECT_EQ(file.next(2), whole("\n"));
  EXPECT_EQ(file.next(2), kNothing);
}

TEST(ReadLine, BadArgumentsAreRefused) {
  TextFile file("a\n");
  char raw[8];
  char line[8];
  unsigned int rc = 0;
  EXPECT_EQ(GenRegReadLine(nullptr, line, 8, file.stream(), &rc, false), nullptr);
  EXPECT_EQ(rc, status::bad_argument);
  rc = 0;
  EXPECT_EQ(GenRegReadLine(raw, nullptr, 8, file.stream(), &rc, false), nullptr);
  EXPECT_EQ(rc, status::bad_argument);
  rc = 0;
  EXPECT_EQ(GenRegReadLine(raw, line, 0, file.stream(), &rc, false), nullptr);
  EXPECT_EQ(rc, status::bad_argument);
  rc = 0;
  EXPECT_EQ(GenRegReadLine(raw, line, 8, nullptr, &rc, false), nullptr);
  EXPECT_EQ(rc, status::bad_argument);
  EXPECT_EQ(GenRegReadLine(nullptr, line, 8, file.stream(), nullptr, false), nullptr);
  EXPECT_EQ(GenRegReadLine(raw, line, 8, file.stream(), nullptr, false), raw);
}

// --- the folding writer

class Folded {
 public:
  GenRegStatus write(std::string line, unsigned long width) {
    FILE* file = std::fopen(path().c_str(), "w");
    const GenRegStatus rc = GenRegWriteLine(line.data(), width, file);
    std::fclose(file);
    return rc;
  }
  std::string of(const std::string& line, unsigned long width) {
    EXPECT_EQ(write(line, width), 0U);
    return vrxtest::readFile(path());
  }

 private:
  std::string path() const { return folder_.file("folded"); }
  const TempDir folder_;
};

TEST(WriteLine, InsertedPairsCountAsWidth) {
  Folded folded;
  EXPECT_EQ(folded.of("abcdefghij", 5), "abcd\\\nefg\\\nhij\\\n");
  EXPECT_EQ(folded.of("abcdefghi", 5), "abcd\\\nefg\\\nhi");
}

TEST(WriteLine, ShortLineStaysAsItIs) {
  Folded folded;
  EXPECT_EQ(folded.of("abc\n", 80), "abc\n");
  EXPECT_EQ(folded.of("abc\n", ~0UL), "abc\n");
}

TEST(WriteLine, OwnNewlineCountsLikeAnyByte) {
  Folded folded;
  EXPECT_EQ(folded.of("abcd\n", 5), "abcd\\\n\n");
  EXPECT_EQ(folded.of("abc\n", 5), "abc\n\\\n");
}

TEST(WriteLine, EmptyLineWritesNothing) {
  Folded folded;
  for (const unsigned long width : {1UL, 2UL, 80UL})
    EXPECT_EQ(folded.of("", width), "");
}

// At these widths the rule holds again right behind a fold: it is asked once a byte, so it ends.
TEST(WriteLine, NarrowestWidthsEnd) {
  Folded folded;
  EXPECT_EQ(folded.of("abc", 1), "\\\na\\\nb\\\nc\\\n");
  EXPECT_EQ(folded.of("abc", 2), "a\\\nbc\\\n");
  EXPECT_EQ(folded.of("abcd", 3), "ab\\\nc\\\nd\\\n");
}

TEST(WriteLine, LineBeyondALineBufferIsWrittenWhole) {
  Folded folded;
  const std::string text(10000, 'x');
  const std::string out = folded.of(text, 7);
  EXPECT_EQ(std::count(out.begin(), out.end(), 'x'), 10000);
  EXPECT_EQ(folded.of(text, 1).size(), 30002U);
}

TEST(WriteLine, JoiningReaderGivesTheLineBack) {
  std::mt19937 random(7);
  const TempDir folder;
  for (int i = 0; i < 300; ++i) {
    const unsigned long width = 3 + random() % 40;
    std::string text(1 + random() % 500, 'a');
    for (char& c : text)
      c = static_cast<char>('a' + random() % 26);
    Folded folded;
    TextFile file(folded.of(text, width) + "\n", true);
    EXPECT_EQ(file.next().line, text + "\n") << width;
  }
}

TEST(WriteLine, BadArgumentsAreRefused) {
  const TempDir folder;
  FILE* file = std::fopen(folder.file("x").c_str(), "w");
  char line[] = "a";
  EXPECT_EQ(GenRegWriteLine(nullptr, 5, file), status::bad_argument);
  EXPECT_EQ(GenRegWriteLine(line, 0, file), status::bad_argument);
  EXPECT_EQ(GenRegWriteLine(line, 5, nullptr), status::bad_argument);
  std::fclose(file);
  EXPECT_EQ(vrxtest::readFile(folder.file("x")), "");
}

TEST(WriteLine, WhatTheStreamRefusesIsLeftToItsOwner) {
  Folded folded;
  const FailCall fault(Call::kFwrite, 1, ENOSPC);
  EXPECT_EQ(folded.write("abc", 5), 0U);
  EXPECT_TRUE(fault.fired());
}

TEST(WriteLine, MemoryFailuresAreReported) {
  const LeakCheck leaks;
  Folded folded;
  {
    const FailCall fault(Call::kMemAlloc, 1, ENOMEM);
    EXPECT_EQ(folded.write("abc", 5), status::no_record_memory);
  }
  const FailCall fault(Call::kMemFree, 1, EINVAL);
  EXPECT_EQ(folded.write("abc", 5), status::record_memory_not_released);
}

}  // namespace
