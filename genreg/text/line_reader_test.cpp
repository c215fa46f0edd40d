// SPDX-License-Identifier: Apache-2.0
// LineReader: what a C string cannot tell of a line, and the builder of lines.
#include "genreg/text/internal/line_reader.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <random>
#include <string>

#include "genreg/text/internal/line_builder.h"
#include "tests/support/temp_dir.h"

namespace {

using genreg::Continuations;
using genreg::LineBuilder;
using genreg::LineReader;
using vrxtest::TempDir;

// A reader over a file with these bytes.
class Reader {
 public:
  explicit Reader(const std::string& bytes, Continuations continuations = Continuations::kKept)
      : reader_(continuations) {
    vrxtest::writeFile(folder_.file("text"), bytes);
    file_ = std::fopen(folder_.file("text").c_str(), "r");
    EXPECT_NE(file_, nullptr);
    reader_.cursor().readFrom(file_, 0, bytes.size());
  }
  ~Reader() { std::fclose(file_); }
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

  LineReader* operator->() { return &reader_; }
  FILE* stream() { return file_; }
  std::string raw() { return std::string(reader_.raw(), reader_.rawLength()); }

 private:
  const TempDir folder_;
  LineReader reader_;
  FILE* file_ = nullptr;
};

TEST(LineReader, CountsTheBytesBehindANul) {
  Reader reader(std::string("a\0b\nc\n", 6));
  ASSERT_TRUE(reader->next());
  EXPECT_EQ(reader.raw(), std::string("a\0b\n", 4));
  EXPECT_STREQ(reader->line(), "a");
  EXPECT_TRUE(reader->hasNul());
  EXPECT_TRUE(reader->endsWithNewline());
  ASSERT_TRUE(reader->next());
  EXPECT_FALSE(reader->hasNul());
  EXPECT_EQ(reader.raw(), "c\n");
  EXPECT_FALSE(reader->next());
  EXPECT_EQ(reader->rawLength(), 0U);
}

// The bytes of all lines together are the file's, whatever is in it.
TEST(LineReader, LosesNoByte) {
  std::mt19937 random(11);
  const std::string bytes("ab\\\\\n\n\0#:=\r", 11);
  for (int i = 0; i < 150; ++i) {
    std::string text(random() % 9000, 'x');
    for (char& c : text) {
      if (random() % 8 == 0) c = bytes[random() % bytes.size()];
    }
    for (const Continuations how : {Continuations::kKept, Continuations::kJoined}) {
      Reader reader(text, how);
      std::string all;
      while (reader->next()) {
        ASSERT_LE(reader->rawLength(), 2047U);
        ASSERT_LE(std::strlen(reader->line()), reader->rawLength());
        all += reader.raw();
      }
      ASSERT_EQ(all, text);
      ASSERT_FALSE(reader->hasError());
    }
  }
}

TEST(LineReader, PiecesOfALongLineAreKnownAsSuch) {
  Reader reader("a\n" + std::string(5000, 'x') + "\nb\n");
  ASSERT_TRUE(reader->next());
  EXPECT_FALSE(reader->isPiece());
  for (int piece = 0; piece < 3; ++piece) {
    ASSERT_TRUE(reader->next());
    EXPECT_TRUE(reader->isPiece()) << piece;
  }
  EXPECT_TRUE(reader->endsWithNewline());
  ASSERT_TRUE(reader->next());
  EXPECT_EQ(reader.raw(), "b\n");
  EXPECT_FALSE(reader->isPiece());
}

TEST(LineReader, LongestWholeLinesAreNoPieces) {
  const std::string text(2046, 'x');
  Reader reader(text + "\n" + text + "\n" + text + "y");
  for (int line = 0; line < 3; ++line) {
    ASSERT_TRUE(reader->next());
    EXPECT_FALSE(reader->isPiece()) << line;
    EXPECT_EQ(reader->rawLength(), 2047U);
  }
  EXPECT_FALSE(reader->endsWithNewline());
  EXPECT_FALSE(reader->next());
}

TEST(LineReader, OneByteTooManyMakesPieces) {
  Reader reader(std::string(2047, 'x') + "\n");
  ASSERT_TRUE(reader->next());
  EXPECT_TRUE(reader->isPiece());
  ASSERT_TRUE(reader->next());
  EXPECT_TRUE(reader->isPiece());
  EXPECT_EQ(reader.raw(), "\n");
}

TEST(LineReader, JoinedLineThatDoesNotFitIsInPieces) {
  const std::string half(1500, 'x');
  Reader reader(half + "\\\n" + half + "\nb\n", Continuations::kJoined);
  ASSERT_TRUE(reader->next());
  EXPECT_TRUE(reader->isPiece());
  EXPECT_EQ(std::strlen(reader->line()), 2045U);
  ASSERT_TRUE(reader->next());
  EXPECT_TRUE(reader->isPiece());
  ASSERT_TRUE(reader->next());
  EXPECT_FALSE(reader->isPiece());
}

TEST(LineReader, ContinuationAtTheVeryEndOfTheBufferMakesPieces) {
  const std::string text = std::string(2045, 'x') + "\\\n";
  Reader reader(text + "b\n", Continuations::kJoined);
  ASSERT_TRUE(reader->next());
  EXPECT_TRUE(reader->isPiece());
  ASSERT_TRUE(reader->next());
  EXPECT_TRUE(reader->isPiece());
  Reader last(text, Continuations::kJoined);
  ASSERT_TRUE(last->next());
  EXPECT_FALSE(last->isPiece()) << "nothing follows that could belong to it";
}

TEST(LineReader, KnowsTheLastLine) {
  Reader reader("a\nb");
  EXPECT_FALSE(reader->isLast());
  ASSERT_TRUE(reader->next());
  EXPECT_FALSE(reader->isLast());
  ASSERT_TRUE(reader->next());
  EXPECT_TRUE(reader->isLast());
  EXPECT_FALSE(reader->endsWithNewline());
  EXPECT_FALSE(reader->next());
  EXPECT_TRUE(reader->isLast());
}

TEST(LineReader, HasNoNewlineBeforeTheFirstLineNorBehindTheLast) {
  Reader reader("a\n");
  EXPECT_FALSE(reader->endsWithNewline());
  ASSERT_TRUE(reader->next());
  EXPECT_TRUE(reader->endsWithNewline());
  EXPECT_FALSE(reader->next());
  EXPECT_FALSE(reader->endsWithNewline());
}

TEST(LineReader, KeepsTheRawBytesWhileItLooksForAFurtherLine) {
  Reader reader("a\nb\n");
  ASSERT_TRUE(reader->next());
  EXPECT_FALSE(reader->isLast());
  EXPECT_EQ(reader.raw(), "a\n");
  ASSERT_TRUE(reader->next());
  EXPECT_TRUE(reader->isLast());
  EXPECT_EQ(reader.raw(), "b\n");
}

TEST(LineReader, DropsABackslashBeforeANulWhereverTheLineLies) {
  Reader reader(std::string("a\\\0b\\\nc\\\0\n", 11));
  ASSERT_TRUE(reader->next());
  EXPECT_STREQ(reader->line(), "a");
  ASSERT_TRUE(reader->next());
  EXPECT_STREQ(reader->line(), "c");
}

std::string passedOver(Reader& reader, const std::string& text) {
  const genreg::Passage lines = reader->passOver(text.data(), text.size());
  return std::string(reinterpret_cast<const char*>(lines.bytes), lines.length);
}

TEST(LineReader, PassesOverWholeLinesBeforeTheText) {
  Reader reader("a\nb x\ny key\nc\n");
  EXPECT_EQ(passedOver(reader, "key"), "a\nb x\n");
  EXPECT_EQ(passedOver(reader, "key"), "");
  ASSERT_TRUE(reader->next());
  EXPECT_STREQ(reader->line(), "y key\n");
  EXPECT_EQ(passedOver(reader, "key"), "c\n");
  EXPECT_FALSE(reader->next());
}

TEST(LineReader, LeavesLinesThatAreJoinedToNext) {
  Reader reader("a\nb\\\nkey\nc\nd\\x\nkey\n", Continuations::kJoined);
  EXPECT_EQ(passedOver(reader, "key"), "a\n");
  ASSERT_TRUE(reader->next());
  EXPECT_STREQ(reader->line(), "bkey\n");
  EXPECT_EQ(passedOver(reader, "key"), "c\n");
  ASSERT_TRUE(reader->next());
  EXPECT_STREQ(reader->line(), "d\\x\n");
  EXPECT_EQ(passedOver(reader, "key"), "");
  ASSERT_TRUE(reader->next());
  EXPECT_STREQ(reader->line(), "key\n");
}

TEST(LineReader, PassesOverNothingInsideAPieceOfAJoinedLine) {
  const std::string text = std::string(2045, 'x') + "\\\n";
  Reader reader(text + "b\nc\n", Continuations::kJoined);
  ASSERT_TRUE(reader->next());
  EXPECT_EQ(passedOver(reader, "key"), "");
  ASSERT_TRUE(reader->next());
  EXPECT_TRUE(reader->isPiece());
  EXPECT_EQ(passedOver(reader, "key"), "c\n");
}

TEST(LineReader, ReadErrorEndsTheLinesAndIsTold) {
  const TempDir folder;
  Reader reader("a\n");
  const int directory = open(folder.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  ASSERT_GE(dup2(directory, fileno(reader.stream())), 0);
  close(directory);
  EXPECT_FALSE(reader->next());
  EXPECT_TRUE(reader->hasError());
}

// --- lines that are built

TEST(LineBuilder, HoldsTwoThousandAndFortySixBytes) {
  LineBuilder line;
  line.append(std::string(2045, 'x').c_str());
  line.append("y");
  line.append("");
  line.append(nullptr);
  EXPECT_FALSE(line.isTooLong());
  EXPECT_EQ(line.length(), 2046U);
  char out[kGenRegLineSize];
  line.copyToWithNewline(out);
  EXPECT_EQ(std::string(out), std::string(2045, 'x') + "y\n");
  line.copyTo(out);
  EXPECT_EQ(std::strlen(out), 2046U);
  line.append("z");
  EXPECT_TRUE(line.isTooLong());
}

TEST(LineBuilder, StaysTooLong) {
  LineBuilder line;
  line.append(std::string(3000, 'x').c_str());
  EXPECT_TRUE(line.isTooLong());
  line.append("y");
  EXPECT_TRUE(line.isTooLong());
  EXPECT_EQ(line.length(), 0U);
}

TEST(TakenLength, StopsAtTheNewlineAndAtTheRoom) {
  EXPECT_EQ(genreg::takenLength("ab\ncd"), 2U);
  EXPECT_EQ(genreg::takenLength("ab"), 2U);
  EXPECT_EQ(genreg::takenLength(std::string(5000, 'x').c_str()), 2047U);
  EXPECT_EQ(genreg::takenLength(""), 0U);
}

TEST(TakeLine, TakesWhatItIsToldAndTerminatesIt) {
  char own[kGenRegLineSize];
  genreg::takeLine(own, "ab\ncd", 2);
  EXPECT_STREQ(own, "ab");
  genreg::takeLine(own, std::string(2047, 'x').c_str(), 2047);
  EXPECT_EQ(std::strlen(own), 2047U);
  genreg::takeLine(own, "", 0);
  EXPECT_STREQ(own, "");
}

TEST(FindMark, GivesTheFirstOne) {
  char line[] = "a # b # c";
  EXPECT_EQ(genreg::findMark(line, '#'), line + 2);
  EXPECT_EQ(genreg::findMark(line, ':'), nullptr);
}

}  // namespace
