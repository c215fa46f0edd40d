// SPDX-License-Identifier: Apache-2.0
// findText and findLineEnd: the first place, whatever the bytes and wherever they end.
#include "genreg/text/internal/find_text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>

namespace {

constexpr std::size_t kNone = std::string::npos;

// In memory of exactly that size, so that a sanitizer sees a look behind its end.
template <class Search>
std::size_t placeIn(const std::string& bytes, const Search& search) {
  const auto exact = std::make_unique<unsigned char[]>(bytes.size());
  std::copy(bytes.begin(), bytes.end(), exact.get());
  const unsigned char* found = search(exact.get());
  return found != nullptr ? static_cast<std::size_t>(found - exact.get()) : kNone;
}

std::size_t placeOf(const std::string& bytes, const std::string& text) {
  return placeIn(bytes, [&](const unsigned char* exact) {
    return genreg::findText(exact, bytes.size(), text.data(), text.size());
  });
}

std::size_t lineEndOf(const std::string& bytes) {
  return placeIn(
      bytes, [&](const unsigned char* exact) { return genreg::findLineEnd(exact, bytes.size()); });
}

TEST(FindText, FindsTheTextWhereverItStands) {
  constexpr std::size_t kLengths[] = {1, 2, 3, 15, 16, 17, 63, 64, 65, 300};
  for (const std::size_t length : kLengths) {
    const std::string text = "<" + std::string(length - 1, '-');
    for (std::size_t before = 0; before < 70; ++before) {
      for (std::size_t behind = 0; behind < 35; ++behind) {
        const std::string bytes = std::string(before, '-') + text + std::string(behind, '-');
        ASSERT_EQ(placeOf(bytes, text), before) << length << " bytes, " << behind << " behind";
      }
    }
  }
}

TEST(FindText, FindsTheFirstOfSeveral) {
  EXPECT_EQ(placeOf(std::string(40, 'a') + "xy" + std::string(40, 'a') + "xy", "xy"), 40U);
  EXPECT_EQ(placeOf("xyxy", "xy"), 0U);
}

TEST(FindText, FindsNothingWhereItIsNot) {
  EXPECT_EQ(placeOf("", "a"), kNone);
  EXPECT_EQ(placeOf("abc", "abcd"), kNone);
  EXPECT_EQ(placeOf(std::string(100, 'a') + "b", "ba"), kNone);
  EXPECT_EQ(placeOf("a" + std::string(100, 'x') + "b", "ab"), kNone);
}

TEST(FindText, LooksBehindANul) {
  EXPECT_EQ(placeOf(std::string("a\0b", 3), "b"), 2U);
}

TEST(FindText, AgreesWithAPlainSearch) {
  std::mt19937 random(22);
  for (int i = 0; i < 20000; ++i) {
    std::string bytes(random() % 120, 'a');
    for (char& byte : bytes)
      byte = "abc\0"[random() % 4];
    const std::string text = std::string("abacabaab").substr(random() % 5, 1 + random() % 4);
    ASSERT_EQ(placeOf(bytes, text), bytes.find(text)) << text << " in " << bytes;
  }
}

TEST(FindLineEnd, FindsTheFirstNewlineOrNulWhereverItStands) {
  for (std::size_t before = 0; before < 70; ++before) {
    for (std::size_t behind = 0; behind < 35; ++behind) {
      const std::string text(before, 'a');
      const std::string rest = std::string(behind, 'a') + std::string("\0\n", 2);
      ASSERT_EQ(lineEndOf(text + "\n" + rest), before) << behind << " behind";
      ASSERT_EQ(lineEndOf(text + std::string(1, '\0') + rest), before) << behind << " behind";
    }
  }
}

TEST(FindLineEnd, FindsNothingInALineThatGoesOn) {
  for (std::size_t length = 0; length < 70; ++length)
    ASSERT_EQ(lineEndOf(std::string(length, '\xFF')), kNone) << length;
}

}  // namespace
