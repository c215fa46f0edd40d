// SPDX-License-Identifier: Apache-2.0
// The rules about leftovers, over surroundings that stand on no disk.
#include "cli/leftovers_rules.h"

#include <gtest/gtest.h>

namespace cli {
namespace {

Found file(std::uint64_t inode, std::int64_t seconds = 100) {
  Found found;
  found.type = FileType::file;
  found.inode = inode;
  found.seconds = seconds;
  found.size = 8;
  found.links = 1;
  return found;
}

Found& companion(Surroundings& seen, Companion which) {
  return seen.companions[static_cast<std::size_t>(which)];
}

bool mentions(const std::string& text, const char* part) {
  return text.find(part) != std::string::npos;
}

TEST(LeftoversRules, WordsNameTheirCompanions) {
  for (const Companion which : kCompanions)
    EXPECT_EQ(companionOf(wordOf(which)), which);
  EXPECT_FALSE(companionOf("registry").has_value());
  EXPECT_FALSE(companionOf("").has_value());
}

TEST(LeftoversRules, AgesAreToldToTheNanosecond) {
  Surroundings seen;
  seen.registry = file(1, 100);
  Found& copy = companion(seen, Companion::temporary);
  EXPECT_EQ(ageOf(seen, Companion::temporary), "");
  copy = file(2, 100);
  EXPECT_EQ(ageOf(seen, Companion::temporary), "same time");
  copy.nanoseconds = 1;
  EXPECT_EQ(ageOf(seen, Companion::temporary), "newer");
  copy.seconds = 99;
  EXPECT_EQ(ageOf(seen, Companion::temporary), "older");
  copy.inode = 1;
  EXPECT_EQ(ageOf(seen, Companion::temporary), "same file");
  seen.registry.type = FileType::nothing;
  EXPECT_EQ(ageOf(seen, Companion::temporary), "");
}

TEST(LeftoversRules, FilesOfTwoDevicesAreNeverTheSame) {
  Found other = file(1);
  other.device = 2;
  EXPECT_FALSE(isSameFile(file(1), other));
  EXPECT_TRUE(isSameFile(file(1), file(1)));
  EXPECT_FALSE(isSameFile(Found(), Found()));
}

TEST(LeftoversRules, WhatStandsIsKeptAsBackupWhenThatNameIsFree) {
  Surroundings seen;
  seen.registry = file(1);
  companion(seen, Companion::temporary) = file(2);
  EXPECT_EQ(placeToKeep(seen, Companion::temporary), Companion::backup);
}

TEST(LeftoversRules, ABackupThatIsTheRegistryKeepsItAlready) {
  Surroundings seen;
  seen.registry = file(1);
  companion(seen, Companion::temporary) = file(2);
  companion(seen, Companion::setAside) = file(3);
  companion(seen, Companion::backup) = file(1);
  EXPECT_EQ(placeToKeep(seen, Companion::temporary), Companion::backup);
}

TEST(LeftoversRules, NothingIsKeptWhereSomethingWouldBeLost) {
  Surroundings seen;
  seen.registry = file(1);
  companion(seen, Companion::backup) = file(2);
  EXPECT_EQ(placeToKeep(seen, Companion::temporary), Companion::setAside);
  EXPECT_EQ(placeToKeep(seen, Companion::backup), Companion::setAside);
  EXPECT_FALSE(placeToKeep(seen, Companion::setAside).has_value());
  companion(seen, Companion::setAside) = file(3);
  EXPECT_FALSE(placeToKeep(seen, Companion::temporary).has_value());
  EXPECT_FALSE(placeToKeep(seen, Companion::backup).has_value());
}

TEST(LeftoversRules, BesideAMissingOrEmptyRegistryALeftoverMayBeTheLast) {
  Surroundings seen;
  companion(seen, Companion::backup) = file(2);
  EXPECT_TRUE(mayBeLast(seen, Companion::backup));
  EXPECT_FALSE(mayBeLast(seen, Companion::temporary));  // stands nowhere
  seen.registry = file(1);
  EXPECT_FALSE(mayBeLast(seen, Companion::backup));
  seen.registry.size = 0;
  EXPECT_TRUE(mayBeLast(seen, Companion::backup));
  companion(seen, Companion::backup).size = 0;
  EXPECT_FALSE(mayBeLast(seen, Companion::backup));
  companion(seen, Companion::lock) = file(3);
  EXPECT_FALSE(mayBeLast(seen, Companion::lock));
}

TEST(LeftoversRules, MeaningsFollowWhatWasSeen) {
  Surroundings seen;
  seen.registry = file(1);
  for (const Companion which : kCompanions)
    companion(seen, which) = file(10 + static_cast<std::uint64_t>(which));
  const auto meaning = [&](Companion which, Readable readable = Readable::whole) {
    return meaningOf(seen, which, readable);
  };
  EXPECT_TRUE(mentions(meaning(Companion::temporary), "before its commit; the registry does not"));
  EXPECT_TRUE(mentions(meaning(Companion::temporary, Readable::damaged), "; damaged; the"));
  EXPECT_TRUE(mentions(meaning(Companion::setAside), "set aside"));
  EXPECT_TRUE(mentions(meaning(Companion::backup), "behind its commit"));
  EXPECT_TRUE(mentions(meaning(Companion::lock), "free"));
  companion(seen, Companion::backup) = file(1);
  EXPECT_TRUE(mentions(meaning(Companion::backup), "second name"));
  seen.lockIsHeld = true;
  EXPECT_TRUE(mentions(meaning(Companion::temporary), "wait"));
  EXPECT_TRUE(mentions(meaning(Companion::lock), "held"));
}

TEST(LeftoversRules, MeaningsTellWhenTheRegistryIsMissing) {
  Surroundings seen;
  for (const Companion which : kCompanions)
    companion(seen, which) = file(10 + static_cast<std::uint64_t>(which));
  EXPECT_TRUE(mentions(meaningOf(seen, Companion::temporary, Readable::whole), "after"));
  EXPECT_TRUE(mentions(meaningOf(seen, Companion::backup, Readable::whole), "before"));
  EXPECT_TRUE(mentions(meaningOf(seen, Companion::setAside, Readable::whole), "older"));
  EXPECT_TRUE(mentions(meaningOf(seen, Companion::backup, Readable::damaged), "damaged"));
}

TEST(LeftoversRules, WhatIsNoFileIsNamed) {
  Surroundings seen;
  seen.registry = file(1);
  companion(seen, Companion::temporary).type = FileType::link;
  companion(seen, Companion::setAside).type = FileType::folder;
  companion(seen, Companion::lock).type = FileType::other;
  EXPECT_TRUE(mentions(meaningOf(seen, Companion::temporary, Readable::damaged), "a link"));
  EXPECT_TRUE(mentions(meaningOf(seen, Companion::setAside, Readable::damaged), "by hand"));
  EXPECT_TRUE(mentions(meaningOf(seen, Companion::lock, Readable::damaged), "no updates"));
}

}  // namespace
}  // namespace cli
