// SPDX-License-Identifier: Apache-2.0
// Lists read instances from their images; a lookup of one goes by its record. Both give the same.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "globalreg/global_reg.h"
#include "oss/directory.h"
#include "tests/support/global_records.h"
#include "tests/support/instance_records.h"
#include "tests/support/temp_dir.h"

namespace {

using namespace vrxtest;

constexpr std::uint64_t kKeyBits = 0x7;

std::string text(const std::string& value) {
  return entryOf(value + std::string(1, '\0'));
}

// The frame of an instance with these entries behind its key, whose bits are `bits`.
std::string frame(const std::string& name, std::uint64_t bits,
                  const std::vector<std::string>& entries, std::uint32_t type = 1) {
  std::vector<std::string> all = {text("VRX"), entryOf(bytesOf(kVersion3107)), text(name)};
  all.insert(all.end(), entries.begin(), entries.end());
  const std::string image = imageOf(type, kKeyBits | bits, all);
  return bytesOf(static_cast<std::uint32_t>(image.size())) + image;
}

// Instances of every kind, a long one before a short one.
std::string everyKind() {
  return frame("long", 0x3F8,
               {text(std::string(1023, 'p')), text(std::string(63, 'u')), entryOf(bytesOf(1)),
                entryOf(bytesOf(1)), text(std::string(1023, 'a')), text(std::string(63, 'n')),
                text(std::string(255, 'c'))}) +
         frame("bare", 0, {}) +
         frame("cut", 0x208, {entryOf(std::string(1024, 'p')), entryOf(std::string(256, 'c'))}) +
         frame("untidy", 0x18, {entryOf("open"), entryOf("")}) +
         frame("numbers", 0x60, {entryOf(bytesOf(2)), entryOf(std::string(1, '\1'))}) +
         frame("running on", 0x18, {entryOf(std::string(1100, 'x')), text("usage")}) +
         frame("later", 0x18 | std::uint64_t{1} << 40, {text("/p"), text("u"), entryOf("new")}) +
         frame("last", 0x8, {text("/last")});
}

const std::vector<std::string> kNames = {"long",    "bare",       "cut",   "untidy",
                                         "numbers", "running on", "later", "last"};

OSSInstanceInfo_t lookedUp(std::string name) {
  OSSInstanceInfo_t found{};
  EXPECT_EQ(ossGetInstanceInfo(kService, kVersion3107, name.data(), &found), 0U) << name;
  return found;
}

// Nothing is said of what stands behind a terminator.
bool same(const OSSInstanceInfo_t& a, const OSSInstanceInfo_t& b) {
  const auto textsOf = [](const OSSInstanceInfo_t& info) {
    return std::vector<std::string>{info.service, info.instanceName, info.instancePath, info.usage,
                                    info.auxPath, info.auxName,      info.comment};
  };
  return a.flags == b.flags && a.versionCode == b.versionCode && textsOf(a) == textsOf(b);
}

// Passes the list what `choose(nth)` returns, with its flags cleared.
template <class Choose>
void expectListed(const Choose& choose) {
  void* list = nullptr;
  ASSERT_EQ(ossOpenInstanceList(kService, &list), 0U);
  for (std::size_t nth = 0; nth < kNames.size(); ++nth) {
    OSSInstanceInfo_t* const out = choose(nth);
    out->flags = 0;
    ASSERT_EQ(ossGetNextInstance(list, out), 0U) << kNames[nth];
    EXPECT_TRUE(same(*out, lookedUp(kNames[nth]))) << kNames[nth];
  }
  OSSInstanceInfo_t unused{};
  EXPECT_EQ(ossGetNextInstance(list, &unused), 0x900001BEU);
  EXPECT_EQ(ossCloseInstanceList(list), 0U);
}

TEST(InstanceImage, ListGivesWhatALookupGives) {
  withRegistry([] {
    writeFile(kRegistry, everyKind());
    std::vector<OSSInstanceInfo_t> fresh(kNames.size());
    for (OSSInstanceInfo_t& each : fresh)
      std::memset(&each, '#', sizeof each);
    expectListed([&](std::size_t nth) { return &fresh[nth]; });
  });
}

TEST(InstanceImage, NothingOfTheInstanceBeforeIsLeft) {
  withRegistry([] {
    writeFile(kRegistry, everyKind());
    OSSInstanceInfo_t reused;
    std::memset(&reused, '#', sizeof reused);
    expectListed([&](std::size_t) { return &reused; });
  });
}

TEST(InstanceImage, WhatTheCallerWroteIntoATextIsNotTakenForOneOfTheNext) {
  withRegistry([] {
    writeFile(kRegistry, frame("first", 0, {}) + frame("second", 0, {}));
    void* list = nullptr;
    ASSERT_EQ(ossOpenInstanceList(kService, &list), 0U);
    OSSInstanceInfo_t next{};
    ASSERT_EQ(ossGetNextInstance(list, &next), 0U);
    setText(next.comment, "scribbled");
    setText(next.instanceName, "scribbled over");
    ASSERT_EQ(ossGetNextInstance(list, &next), 0U);
    EXPECT_STREQ(next.comment, "");
    EXPECT_STREQ(next.instanceName, "second");
    EXPECT_EQ(ossCloseInstanceList(list), 0U);
  });
}

TEST(InstanceImage, WhoeverElseReadsFromAListsRegistryGetsRecords) {
  withRegistry([] {
    writeFile(kRegistry, frame("first", 0x8, {text("/first")}) + frame("a service", 0, {}, 2) +
                             frame("second", 0x8, {text("/second")}));
    void* list = nullptr;
    ASSERT_EQ(ossOpenInstanceList(kService, &list), 0U);
    OSSServiceInfo_t service{};
    ASSERT_EQ(ossGetNextService(list, &service), 0U);
    EXPECT_STREQ(service.text1, "a service");
    GlobalRegRecord key{};
    key.RecordType = kGlobalRegInstance;
    GlobalRegRecord found;
    ASSERT_EQ(static_cast<GlobalReg*>(list)->GetNext(0, &key, &found), 0);
    EXPECT_STREQ(found.Instance.InstancePath, "/second");
    EXPECT_EQ(ossCloseInstanceList(list), 0U);
  });
}

TEST(InstanceImage, AListOfServicesHasNoFilterForInstances) {
  withRegistry([] {
    const std::string other = imageOf(1, 5, {text("KRN"), text("other")});
    writeFile(kRegistry,
              frame("first", 0, {}) + bytesOf(static_cast<std::uint32_t>(other.size())) + other);
    void* list = nullptr;
    ASSERT_EQ(ossOpenServiceList(&list), 0U);
    OSSInstanceInfo_t next{};
    ASSERT_EQ(ossGetNextInstance(list, &next), 0U);
    EXPECT_STREQ(next.instanceName, "first");
    ASSERT_EQ(ossGetNextInstance(list, &next), 0U);
    EXPECT_STREQ(next.instanceName, "other");
    EXPECT_EQ(ossCloseServiceList(list), 0U);
  });
}

TEST(InstanceImage, RecordsOfOtherTypesAndServicesArePassedOver) {
  withRegistry([] {
    const std::string other = imageOf(1, 1, {text("KRN")});
    writeFile(kRegistry, frame("a service", 0, {}, 2) +
                             bytesOf(static_cast<std::uint32_t>(other.size())) + other +
                             frame("mine", 0, {}));
    EXPECT_EQ(namesOf(kService), std::vector<std::string>{"mine"});
  });
}

}  // namespace
