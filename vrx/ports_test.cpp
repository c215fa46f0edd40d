// SPDX-License-Identifier: Apache-2.0
// What is particular about services files and init tables.
#include "vrx/ports.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/leak_check.h"
#include "tests/support/temp_dir.h"
#include "vrx/init_table.h"

namespace {

using vrx::InitEntry;
using vrx::Port;
using vrx::Status;
using vrxtest::readFile;
using vrxtest::writeFile;
namespace status = genreg::status;

class FacePorts : public testing::Test {
 protected:
  FacePorts() { writeFile(path, "ssh 22/tcp # login\ndns 53/tcp domain name\ndns 53/udp\n"); }

  const vrxtest::LeakCheck leaks;
  const vrxtest::TempDir dir;
  const std::string path = dir.file("services");
};

using FaceInitTable = FacePorts;

TEST_F(FacePorts, PortsAreInHostOrderAndComeWithAliasesAndComment) {
  const vrx::Ports ports(path);
  const auto ssh = ports.find({"ssh"});
  ASSERT_TRUE(ssh);
  EXPECT_EQ(ssh->port, 22);
  EXPECT_EQ(ssh->comment.value_or(""), "login");
  EXPECT_TRUE(ssh->aliases.empty());
  const auto dns = ports.find({"dns", "tcp"});
  ASSERT_TRUE(dns);
  EXPECT_EQ(dns->aliases, (std::vector<std::string>{"domain", "name"}));
  EXPECT_EQ(ports.find({"dns", "udp"})->image.line, 3U);
  EXPECT_TRUE(ports.find({"ssh", "udp"}).status().notFound());
}

TEST_F(FacePorts, LookUpTakesNamesAliasesAndNumbers) {
  const vrx::Ports ports(path);
  EXPECT_EQ(ports.lookUp("domain")->port, 53);
  EXPECT_EQ(ports.lookUp("ssh")->port, 22);
  EXPECT_EQ(ports.lookUp(53, "udp")->name, "dns");
  EXPECT_TRUE(ports.lookUp("domain", "udp").status().notFound());
  EXPECT_TRUE(ports.lookUp(54).status().notFound());
}

TEST_F(FacePorts, SetChangesAnEntryInPlace) {
  vrx::Ports ports(path);
  EXPECT_TRUE(ports.set({"dns", 5353, "udp", {"mdns"}, "multicast"}));
  EXPECT_EQ(readFile(path),
            "ssh 22/tcp # login\ndns 53/tcp domain name\ndns\t\t5353/udp\tmdns\t\t# multicast\n");
}

TEST_F(FacePorts, ValuesThatNoLineHoldsAreRefusedByName) {
  const std::string before = readFile(path);
  const struct {
    Port port;
    const char* field;
  } rows[] = {
      {{"a b", 1, "tcp"}, "name"},
      {{"a", 0, "tcp"}, "port"},
      {{"a", 1, "sctp"}, "protocol"},
      {{"a", 1, ""}, "protocol"},
      {{"a", 1, "tcp", {"x y"}}, "aliases"},
      {{"a", 1, "tcp", {""}}, "aliases"},
      {{"a", 1, "tcp", std::vector<std::string>(128, "x")}, "aliases"},
      {{"a", 1, "tcp", {}, "x\xFF"}, "comment"},
  };
  for (const auto& row : rows) {
    const Status refused = vrx::Ports(path).add(row.port);
    EXPECT_STREQ(refused.name(), "invalid_record") << row.field;
    EXPECT_EQ(refused.field(), row.field);
  }
  EXPECT_EQ(readFile(path), before);
}

TEST_F(FacePorts, WhatIsNotUnderstoodIsShownAndLeftAlone) {
  writeFile(path, "odd 7/sctp\nzero 0/tcp\n");
  vrx::Ports ports(path);
  const auto all = ports.all();
  ASSERT_TRUE(all);
  ASSERT_EQ(all->size(), 2U);
  EXPECT_FALSE((*all)[0].image.understood);
  EXPECT_FALSE((*all)[1].image.understood);
  const Status refused = ports.remove((*all)[0]);
  EXPECT_STREQ(refused.name(), "invalid_record");
  EXPECT_EQ(refused.detail(), "line 1 is not understood and is left alone: \"odd 7/sctp\"");
  EXPECT_STREQ(ports.remove({"zero"}).name(), "invalid_record");
  EXPECT_STREQ(ports.replace((*all)[1], {"zero", 1, "tcp"}).name(), "invalid_record");
  EXPECT_EQ(readFile(path), "odd 7/sctp\nzero 0/tcp\n");
}

TEST_F(FacePorts, APortInAnotherSpellingIsNotRewrittenUnasked) {
  writeFile(path, "a 021/tcp\n");
  vrx::Ports ports(path);
  const auto old = ports.find({"a"});
  ASSERT_TRUE(old);
  Port next = *old;
  next.comment = "c";
  EXPECT_EQ(ports.replace(*old, next).detail(),
            "its line holds \"021/tcp\", which would not be kept as it stands");
  next.port = 22;
  EXPECT_TRUE(ports.replace(*old, next));
}

TEST_F(FaceInitTable, EntriesKeepTheirColonsAndContinuations) {
  writeFile(path, "a:2:respawn:/bin/x a:b \\\nmore # c\n:rem\nb::wait:/bin/y\n");
  vrx::InitTable table(path);
  const auto a = table.find("a");
  ASSERT_TRUE(a) << a.status().message();
  EXPECT_EQ(a->command, "/bin/x a:b more");
  EXPECT_EQ(a->comment.value_or(""), " c");
  EXPECT_EQ(table.find("b")->runlevels, "");
  EXPECT_EQ(table.find("b")->image.line, 4U);
  EXPECT_TRUE(table.update("b", [](InitEntry& entry) { entry.runlevels = "5"; }));
  EXPECT_EQ(readFile(path), "a:2:respawn:/bin/x a:b \\\nmore # c\n:rem\nb:5:wait:/bin/y\n");
}

TEST_F(FaceInitTable, ValuesThatNoLineHoldsAreRefusedByName) {
  writeFile(path, "");
  vrx::InitTable table(path);
  EXPECT_EQ(table.add({"a:b", "2", "wait", "x"}).field(), "id");
  EXPECT_EQ(table.add({"a", "2:", "wait", "x"}).field(), "runlevels");
  EXPECT_EQ(table.add({"a", "2", "wa#it", "x"}).field(), "action");
  EXPECT_EQ(table.add({"a", "2", "wait", "x # y"}).field(), "command");
  EXPECT_FALSE(table.add({"a", "2", "wait", "x\\"}));
  EXPECT_EQ(readFile(path), "");
}

TEST_F(FaceInitTable, AnOpenLastLineTakesNoEntry) {
  writeFile(path, "a:2:wait:/bin/x \\");
  vrx::InitTable table(path);
  const Status added = table.add({"b", "2", "wait", "/bin/y"});
  EXPECT_STREQ(added.name(), "verify_failed");
  EXPECT_EQ(added.detail(), "line 1 ends in a backslash, which would join the next one to it");
  EXPECT_EQ(readFile(path), "a:2:wait:/bin/x \\");
}

}  // namespace
