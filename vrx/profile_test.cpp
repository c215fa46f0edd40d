// SPDX-License-Identifier: Apache-2.0
// What is particular about profiles and, as they are the simplest text, about files of lines.
#include "vrx/profile.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/leak_check.h"
#include "tests/support/temp_dir.h"

namespace {

using vrx::LineKind;
using vrx::Loss;
using vrx::ProfileEntry;
using vrx::Status;
using vrxtest::readFile;
using vrxtest::writeFile;
namespace status = genreg::status;

class FaceProfile : public testing::Test {
 protected:
  Status setOn(const std::string& before, const ProfileEntry& entry) {
    writeFile(path, before);
    return vrx::Profile(path).set(entry);
  }

  const vrxtest::LeakCheck leaks;
  const vrxtest::TempDir dir;
  const std::string path = dir.file("profile");
};

TEST_F(FaceProfile, GetGivesTheFirstValueAndEmptyIsOne) {
  writeFile(path, "A = 1\nB =\nA = 2\nQ = \"x  y\"\n");
  const vrx::Profile profile(path);
  EXPECT_EQ(profile.get("A").value_or("-"), "1");
  EXPECT_EQ(profile.get("B").value_or("-"), "");
  EXPECT_EQ(profile.get("Q").value_or("-"), "\"x  y\"");
  EXPECT_TRUE(profile.get("C").status().notFound());
  EXPECT_TRUE(vrx::Profile(dir.file("none")).get("A").status().noFile());
}

TEST_F(FaceProfile, SetKeepsCommentAndLayoutAndEveryOtherByte) {
  writeFile(path, "# head\n  A=1   #  caf\xC3\xA9\n\nno line of it\n");
  vrx::Profile profile(path);
  EXPECT_TRUE(profile.set("A", "2"));
  EXPECT_EQ(readFile(path), "# head\n  A=2 #  caf\xC3\xA9\n\nno line of it\n");
  EXPECT_TRUE(profile.set("B", "3"));
  EXPECT_EQ(readFile(path), "# head\n  A=2 #  caf\xC3\xA9\n\nno line of it\nB = 3\n");
}

TEST_F(FaceProfile, AbsentAndEmptyCommentsDiffer) {
  writeFile(path, "A = 1\nB = 2 #\n");
  const auto all = vrx::Profile(path).all();
  ASSERT_TRUE(all);
  ASSERT_EQ(all->size(), 2U);
  EXPECT_FALSE((*all)[0].comment.has_value());
  EXPECT_EQ((*all)[1].comment.value_or("-"), "");
}

TEST_F(FaceProfile, ValuesThatWouldNotReadBackAreRefusedByName) {
  const struct {
    ProfileEntry entry;
    const char* field;
  } rows[] = {
      {{"A", "1 # x"}, "value"},       {{"A", "1\n2"}, "value"},        {{"A", "1\t2"}, "value"},
      {{"A", "1  2"}, "value"},        {{"A", " 1"}, "value"},          {{"A B", "1"}, "name"},
      {{"A=B", "1"}, "name"},          {{"#A", "1"}, "name"},           {{"A\n", "1"}, "name"},
      {{"A", "1", "\x01"}, "comment"}, {{"A", "1", "x\ny"}, "comment"},
  };
  for (const auto& row : rows) {
    const Status refused = setOn("B = 1\n", row.entry);
    EXPECT_STREQ(refused.name(), "invalid_record") << row.entry.value;
    EXPECT_EQ(refused.field(), row.field) << row.entry.value;
    EXPECT_FALSE(refused.detail().empty());
    EXPECT_EQ(readFile(path), "B = 1\n");
  }
}

TEST_F(FaceProfile, WhatNoLineHoldsHasTheLibrarysCode) {
  EXPECT_EQ(setOn("", {"A", "\"open"}).code(), status::unterminated_quote);
  EXPECT_EQ(setOn("", {"A", std::string(2100, 'x')}).code(), status::line_too_long);
  EXPECT_EQ(readFile(path), "");
}

TEST_F(FaceProfile, TextThatNoFieldShowsIsNotDroppedUnasked) {
  writeFile(path, "A = \"1\" rest\n");
  vrx::Profile profile(path);
  const auto old = profile.find("A");
  ASSERT_TRUE(old);
  ProfileEntry next = *old;
  next.comment = "new";
  EXPECT_EQ(profile.lostText(*old, next), "\"1\" rest");
  const Status refused = profile.replace(*old, next);
  EXPECT_STREQ(refused.name(), "invalid_record");
  EXPECT_EQ(refused.field(), "");
  EXPECT_EQ(readFile(path), "A = \"1\" rest\n");
  EXPECT_TRUE(profile.replace(*old, next, Loss::accepted));
  EXPECT_EQ(readFile(path), "A = \"1\" # new\n");
}

TEST_F(FaceProfile, SeveralLinesOfOneNameAreTakenTogetherOrNotAtAll) {
  writeFile(path, "A = 1\nB = 2\nA = 3\n");
  vrx::Profile profile(path);
  EXPECT_EQ(profile.set("A", "4").code(), status::several_match);
  EXPECT_EQ(profile.remove("A").code(), status::several_match);
  const auto first = profile.find("A");
  ASSERT_TRUE(first);
  EXPECT_TRUE(profile.remove(*first)) << "that very line";
  EXPECT_EQ(readFile(path), "B = 2\nA = 3\n");
  writeFile(path, "A = 1\nB = 2\nA = 3\n");
  EXPECT_TRUE(profile.removeAll("A"));
  EXPECT_EQ(readFile(path), "B = 2\n");
}

TEST_F(FaceProfile, TwinsAreReplacedTogetherOnRequestOnly) {
  writeFile(path, "A = 1\nA = 1\n");
  vrx::Profile profile(path);
  const auto old = profile.find("A");
  ASSERT_TRUE(old);
  EXPECT_EQ(profile.replace(*old, {"A", "2"}).code(), status::several_match);
  EXPECT_TRUE(profile.replaceAll(*old, {"A", "2"}));
  EXPECT_EQ(readFile(path), "A = 2\nA = 2\n");
  EXPECT_TRUE(profile.add({"A", "2"}).exists()) << "the wish holds for one call";
}

TEST_F(FaceProfile, LinesShowCommentsBlanksAndWhatDoesNotParse) {
  writeFile(path, "# c\n\nA = 1\nwords\nA = \"x\n");
  const auto lines = vrx::Profile(path).lines();
  ASSERT_TRUE(lines);
  std::string kinds;
  for (const vrx::Line& line : *lines)
    kinds += std::to_string(line.number) + "cbeu"[line.kind == LineKind::comment ? 0
                                                  : line.kind == LineKind::blank ? 1
                                                  : line.kind == LineKind::entry ? 2
                                                                                 : 3];
  EXPECT_EQ(kinds, "1c2b3e4u5u");
  EXPECT_EQ((*lines)[3].text, "words");
  EXPECT_TRUE(vrx::Profile(dir.file("none")).lines().status().noFile());
}

TEST_F(FaceProfile, AnUpdateThatALineStopsNamesIt) {
  writeFile(path, std::string("A = 1\nB = \0\n", 12));
  vrx::Profile profile(path);
  EXPECT_EQ(profile.add({"C", "1"}).message(), path + ": line 2 holds a NUL byte (0x900001CD)");
  EXPECT_EQ(profile.set("A", "2").detail(), "line 2 holds a NUL byte");
  writeFile(path, "A = 1\n" + std::string(3000, 'x') + "\n");
  const Status added = profile.add({"C", "1"});
  EXPECT_STREQ(added.name(), "buffer_too_small");
  EXPECT_EQ(added.detail(), "line 2 is longer than 2047 bytes, with its line end");
  EXPECT_TRUE(profile.set("A", "2")) << "long lines are carried through";
  EXPECT_FALSE(vrxtest::pathExists(path + ".tmp"));
}

TEST_F(FaceProfile, EntriesKnowTheirLines) {
  writeFile(path, "# c\nA = 1\n");
  const auto entry = vrx::Profile(path).find("A");
  ASSERT_TRUE(entry);
  EXPECT_EQ(entry->image.line, 2U);
  EXPECT_EQ(entry->image.text, "A = 1\n");
}

}  // namespace
