// SPDX-License-Identifier: Apache-2.0
// Entries cut out of a change log, whatever pieces its bytes come in.
#include "cli/log_cutter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace cli {
namespace {

struct Cut {
  std::size_t line;
  std::string text;
  bool whole;
};

bool operator==(const Cut& a, const Cut& b) {
  return a.line == b.line && a.text == b.text && a.whole == b.whole;
}

void takeAll(EntryCutter* cutter, std::vector<Cut>* cuts) {
  LoggedText entry;
  while (cutter->next(&entry))
    cuts->push_back({entry.line, entry.text, entry.whole});
}

std::vector<Cut> cut(const std::string& bytes, std::size_t piece) {
  EntryCutter cutter;
  std::vector<Cut> cuts;
  for (std::size_t at = 0; at < bytes.size(); at += piece) {
    cutter.add(std::string_view(bytes).substr(at, piece));
    takeAll(&cutter, &cuts);
  }
  LoggedText entry;
  if (cutter.last(Unended::taken, &entry)) cuts.push_back({entry.line, entry.text, entry.whole});
  return cuts;
}

TEST(LogCutter, EntriesEndWhereTheNextBegins) {
  const std::string log = "TS=\"1\"\nTS=\"2\"\nmore of 2\n\nTS=\"3\"\n";
  const std::vector<Cut> wanted = {
      {1, "TS=\"1\"", true}, {2, "TS=\"2\"\nmore of 2\n", true}, {5, "TS=\"3\"", true}};
  for (std::size_t piece = 1; piece <= log.size(); ++piece)
    EXPECT_EQ(cut(log, piece), wanted) << piece;
}

TEST(LogCutter, WhatStandsBeforeTheFirstEntryIsOne) {
  const std::vector<Cut> wanted = {{1, "foreign\nlines", true}, {3, "TS=\"1\"", true}};
  EXPECT_EQ(cut("foreign\nlines\nTS=\"1\"\n", 4), wanted);
  EXPECT_EQ(cut("\nTS=\"\n", 9), (std::vector<Cut>{{1, "", true}, {2, "TS=\"", true}}));
}

TEST(LogCutter, NothingIsNoEntry) {
  EXPECT_TRUE(cut("", 1).empty());
}

TEST(LogCutter, EndThatIsMissingIsTold) {
  EXPECT_EQ(cut("TS=\"1\"\nTS=\"2", 5),
            (std::vector<Cut>{{1, "TS=\"1\"", true}, {2, "TS=\"2", false}}));
}

TEST(LogCutter, EntryWithoutItsEndWaitsForIt) {
  EntryCutter cutter;
  LoggedText entry;
  cutter.add("TS=\"1");
  EXPECT_FALSE(cutter.next(&entry));
  EXPECT_FALSE(cutter.last(Unended::awaited, &entry));
  cutter.add("23\"\n");
  EXPECT_FALSE(cutter.next(&entry));
  ASSERT_TRUE(cutter.last(Unended::awaited, &entry));
  EXPECT_EQ(entry.text, "TS=\"123\"");
  cutter.add("TS=\"4\"\n");
  ASSERT_TRUE(cutter.last(Unended::awaited, &entry));
  EXPECT_EQ(entry.line, 2u);
}

TEST(LogCutter, WhatIsTooLongComesInPieces) {
  const std::string filler(EntryCutter::kLongest, 'x');
  const std::string log = filler + filler + "y\nTS=\"1\"\n" + filler + "\nTS=\"2\"\n";
  const std::vector<Cut> wanted = {{1, filler, false},
                                   {1, filler, false},
                                   {1, "y", false},
                                   {2, "TS=\"1\"\n" + filler.substr(0, filler.size() - 7), false},
                                   {3, filler.substr(0, 7), false},
                                   {4, "TS=\"2\"", true}};
  EXPECT_EQ(cut(log, 1000), wanted);
  EXPECT_EQ(cut(log, log.size()), wanted);
}

}  // namespace
}  // namespace cli
