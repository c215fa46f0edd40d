// SPDX-License-Identifier: Apache-2.0
// StripWhiteSpace, CleanString and ExtractNextField.
#include "genreg/text/fields.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "genreg/internal/function_ids.h"
#include "genreg/text/internal/line_builder.h"
#include "tests/support/captured_log.h"
#include "tests/support/faults.h"
#include "tests/support/leak_check.h"

namespace {

using vrxtest::Call;
using vrxtest::CapturedLog;
using vrxtest::FailCall;
using vrxtest::LeakCheck;
namespace status = genreg::status;

std::string stripped(std::string text) {
  EXPECT_EQ(StripWhiteSpace(text.data()), 0U);
  return text.c_str();
}

std::string cleaned(std::string text) {
  EXPECT_EQ(CleanString(text.data()), 0U);
  return text;
}

std::string randomText(std::mt19937& random, const std::string& bytes, unsigned longest = 23) {
  std::string text(random() % (longest + 1), ' ');
  for (char& c : text)
    c = bytes[random() % bytes.size()];
  return text;
}

TEST(StripWhiteSpace, CollapsesRunsOutsideQuotes) {
  EXPECT_EQ(stripped("  a \t  b   \"x   y\"  c  "), "a b \"x   y\" c");
  EXPECT_EQ(stripped("a\t\r\nb"), "a b");
  EXPECT_EQ(stripped("plain"), "plain");
  EXPECT_EQ(stripped("a b"), "a b");
}

TEST(StripWhiteSpace, BlanksOnlyBecomeEmpty) {
  for (const char* text : {"", " ", "   ", "\t", "\n", " \t\r\n "})
    EXPECT_EQ(stripped(text), "");
}

TEST(StripWhiteSpace, QuotedTextKeepsItsBlanks) {
  EXPECT_EQ(stripped("\"\""), "\"\"");
  EXPECT_EQ(stripped("  \"\"  "), "\"\"");
  EXPECT_EQ(stripped("\" a  b \""), "\" a  b \"");
  EXPECT_EQ(stripped("\"a  b\"   \"c  d\""), "\"a  b\" \"c  d\"");
  EXPECT_EQ(stripped("x\"a  b\"y"), "x\"a  b\"y");
}

TEST(StripWhiteSpace, TabsInQuotesBecomeBlanksToo) {
  EXPECT_EQ(stripped("\"a\t\tb\""), "\"a  b\"");
}

TEST(StripWhiteSpace, UnclosedQuoteQuotesTheRestButLosesTrailingBlanks) {
  EXPECT_EQ(stripped("a  \"b  c"), "a \"b  c");
  EXPECT_EQ(stripped("\"b   "), "\"b");
}

TEST(StripWhiteSpace, OtherControlBytesStay) {
  EXPECT_EQ(stripped(" a\v\f\x01 "), "a\v\f\x01");
}

TEST(StripWhiteSpace, NullIsRefusedAndLogged) {
  const CapturedLog log;
  EXPECT_EQ(StripWhiteSpace(nullptr), status::null_argument);
  EXPECT_EQ(log.count(genreg::kStripWhiteSpace, status::null_argument), 1);
}

TEST(StripWhiteSpace, WithoutMemoryTheTextIsUnchanged) {
  const LeakCheck leaks;
  const CapturedLog log;
  std::string text = "  a \t b ";
  const FailCall fault(Call::kMemAlloc, 1, ENOMEM);
  EXPECT_EQ(StripWhiteSpace(text.data()), status::no_record_memory);
  EXPECT_EQ(text, "  a \t b ");
  EXPECT_EQ(log.count(genreg::kStripWhiteSpace, status::no_record_memory), 1);
}

TEST(StripWhiteSpace, MemoryThatIsNotReleasedIsReportedWithTheTextDone) {
  const LeakCheck leaks;
  std::string text = "  a \t b ";
  const FailCall fault(Call::kMemFree, 1, EINVAL);
  EXPECT_EQ(StripWhiteSpace(text.data()), status::record_memory_not_released);
  EXPECT_STREQ(text.c_str(), "a b");
}

TEST(StripWhiteSpace, AStrippedTextStaysAsItIs) {
  std::mt19937 random(20);
  for (int i = 0; i < 5000; ++i) {
    const std::string once = stripped(randomText(random, "ab \t\r\n\"="));
    EXPECT_EQ(stripped(once), once);
  }
}

// What stripping does, one byte after the other.
std::string strippedByBytes(const std::string& text) {
  std::string out;
  bool quoted = false;
  for (const char c : text) {
    const bool blank = std::strchr(" \t\r\n", c) != nullptr;
    if (c == '"') quoted = !quoted;
    if (!blank) out += c;
    if (blank && (quoted || (!out.empty() && out.back() != ' '))) out += ' ';
  }
  while (!out.empty() && out.back() == ' ')
    out.pop_back();
  return out;
}

TEST(StripWhiteSpace, DoesWithWordsWhatItDoesWithBytes) {
  const std::string words = "abcdefghij!#~\x7F\x80\xA2\xFF\x01\x1F";
  std::mt19937 random(22);
  for (int i = 0; i < 30000; ++i) {
    std::string bytes = words + std::string(random() % 12, ' ');
    if (random() % 2 != 0) bytes += "\t\r\n";
    if (random() % 2 != 0) bytes += '"';
    const std::string text = randomText(random, bytes, 70);
    ASSERT_EQ(stripped(text), strippedByBytes(text)) << text;
  }
}

// A line is taken in one walk; the exported functions do the same one after the other.
const char* take(char (&own)[kGenRegLineSize], const std::string& line) {
  return genreg::takeStripped(own, line.c_str(), genreg::takenLength(line.c_str()));
}

TEST(TakeStripped, AgreesWithStrippingAndCleaningTheParts) {
  std::mt19937 random(21);
  for (int i = 0; i < 5000; ++i) {
    const std::string line = randomText(random, "ab \t\r\"=#\x01\n");
    const std::string taken = line.substr(0, line.find('\n'));
    const std::size_t mark = taken.find('#');
    char own[kGenRegLineSize];
    const char* comment = take(own, line);
    ASSERT_STREQ(own, stripped(taken.substr(0, mark)).c_str()) << line;
    ASSERT_EQ(comment != nullptr, mark != std::string::npos) << line;
    if (comment == nullptr) continue;
    ASSERT_STREQ(comment, cleaned(taken.substr(mark + 1)).c_str()) << line;
  }
}

TEST(TakeStripped, StopsAtItsSizeBeforeAndBehindTheMark) {
  char own[kGenRegLineSize];
  EXPECT_EQ(take(own, std::string(5000, 'x')), nullptr);
  EXPECT_EQ(std::strlen(own), 2047U);
  EXPECT_STREQ(take(own, std::string(2046, 'x') + "#c"), "");
  EXPECT_EQ(take(own, std::string(2047, ' ') + "#c"), nullptr);
  EXPECT_STREQ(own, "");
  const char* comment = take(own, "#" + std::string(5000, 'x'));
  ASSERT_NE(comment, nullptr);
  EXPECT_EQ(std::strlen(comment), 2046U);
}

TEST(CleanString, ReplacesWhatIsNotPrintableAscii) {
  EXPECT_EQ(cleaned("a\x01"
                    "b\xe9\tc"),
            "a.b.\tc");
  EXPECT_EQ(cleaned(" ~\x7f\x80\xff\x1f\n"), " ~.....");
  EXPECT_EQ(cleaned(""), "");
}

TEST(CleanString, EveryByteIsEitherKeptOrADot) {
  for (int byte = 1; byte < 256; ++byte) {
    const bool kept = byte == '\t' || (byte >= 0x20 && byte <= 0x7E);
    const std::string text(1, static_cast<char>(byte));
    EXPECT_EQ(cleaned(text), kept ? text : ".") << byte;
  }
}

TEST(CleanString, NullIsLeftAlone) {
  EXPECT_EQ(CleanString(nullptr), 0U);
}

TEST(ExtractNextField, TakesFieldByField) {
  std::string text = "  one\t two  ";
  char* cursor = text.data();
  char* field = nullptr;
  ASSERT_EQ(ExtractNextField(&field, &cursor), 0U);
  EXPECT_STREQ(field, "one");
  ASSERT_EQ(ExtractNextField(&field, &cursor), 0U);
  EXPECT_STREQ(field, "two");
  EXPECT_NE(cursor, nullptr);
  EXPECT_EQ(ExtractNextField(&field, &cursor), status::end_of_input);
  EXPECT_EQ(field, nullptr);
}

TEST(ExtractNextField, LastFieldWithoutASeparatorEndsTheCursor) {
  std::string text = "only";
  char* cursor = text.data();
  char* field = nullptr;
  ASSERT_EQ(ExtractNextField(&field, &cursor), 0U);
  EXPECT_STREQ(field, "only");
  EXPECT_EQ(cursor, nullptr);
  EXPECT_EQ(ExtractNextField(&field, &cursor), status::end_of_input);
  EXPECT_EQ(field, nullptr);
}

TEST(ExtractNextField, BlanksOnlyHoldNoField) {
  for (std::string text : {"", " ", "\t \t"}) {
    char* cursor = text.data();
    char* field = text.data();
    EXPECT_EQ(ExtractNextField(&field, &cursor), status::end_of_input);
    EXPECT_EQ(field, nullptr);
  }
}

TEST(ExtractNextField, QuotesAndNewlinesAreOrdinaryBytes) {
  std::string text = "\"a b\"\n";
  char* cursor = text.data();
  std::vector<std::string> fields;
  for (char* field = nullptr; ExtractNextField(&field, &cursor) == 0U;)
    fields.emplace_back(field);
  EXPECT_EQ(fields, (std::vector<std::string>{"\"a", "b\"\n"}));
}

TEST(ExtractNextField, NullPointersAreTheEnd) {
  char* none = nullptr;
  std::string text = "a";
  char* cursor = text.data();
  EXPECT_EQ(ExtractNextField(nullptr, &cursor), status::end_of_input);
  EXPECT_EQ(ExtractNextField(&none, nullptr), status::end_of_input);
}

}  // namespace
