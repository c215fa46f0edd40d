// SPDX-License-Identifier: Apache-2.0
// The verbs that every registry has, on every registry: each test runs once for each kind of
// record. What is particular about a kind stands beside its header.
#include "vrx/records.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/leak_check.h"
#include "tests/support/temp_dir.h"
#include "vrx/vrx.h"

namespace {

using vrx::Result;
using vrx::Status;
using vrxtest::LeakCheck;
using vrxtest::TempDir;
namespace status = genreg::status;

// A registry of the host's would be told to the host; these tell nobody.
template <class Views>
Views quietly(Views views) {
  (void)views.native().unsetFeature(kGenRegChangeLog);
  (void)views.native().unsetFeature(kGenRegNotify);
  return views;
}

// How to make registries and records of one kind. `edit` changes what is no key, `spoil` puts a NUL
// into a text.
struct InstanceSamples {
  static constexpr const char* kName = "Instance";
  using Registry = vrx::Instances;
  using Record = vrx::Instance;
  static constexpr bool kMakesFile = true;
  static Registry open(const std::string& path) {
    return quietly(vrx::GlobalRegistry::at(path).instances());
  }
  static Record record(int n) {
    return {"VRX", vrx::Version::of(3, 1), "tp" + std::to_string(n), "/home"};
  }
  static vrx::InstanceKey key(int n) { return {"VRX", vrx::Version::of(3, 1), record(n).name}; }
  static void edit(Record& record) { record.maintenance = !record.maintenance.value_or(false); }
  static std::string& text(Record& record) { return record.path.emplace("p"); }
};

struct ServiceSamples {
  static constexpr const char* kName = "Service";
  using Registry = vrx::Services;
  using Record = vrx::Service;
  static constexpr bool kMakesFile = true;
  static Registry open(const std::string& path) {
    return quietly(vrx::GlobalRegistry::at(path).services());
  }
  static Record record(int n) { return {"VRX", vrx::Version::of(3, 1, 0, number(n)), "/opt"}; }
  static vrx::ServiceKey key(int n) { return {"VRX", record(n).version}; }
  static void edit(Record& record) { record.fixpack = record.fixpack.value_or(0) + 1; }
  static std::string& text(Record& record) { return record.text3.emplace("t"); }
  static std::uint16_t number(int n) { return static_cast<std::uint16_t>(n); }
};

struct VariableSamples {
  static constexpr const char* kName = "Variable";
  using Registry = vrx::Variables;
  using Record = vrx::Variable;
  static constexpr bool kMakesFile = true;
  static Registry open(const std::string& path) {
    return quietly(vrx::GlobalRegistry::at(path).variables());
  }
  static Record record(int n) { return {"VRX", "LEVEL" + std::to_string(n), "1"}; }
  static vrx::VariableKey key(int n) { return {"VRX", record(n).name}; }
  static void edit(Record& record) { record.value = record.value.value_or("") + "0"; }
  static std::string& text(Record& record) { return record.comment.emplace("c"); }
};

struct ProfileSamples {
  static constexpr const char* kName = "Profile";
  using Registry = vrx::Profile;
  using Record = vrx::ProfileEntry;
  static constexpr bool kMakesFile = true;
  static Registry open(const std::string& path) { return vrx::Profile(path); }
  static Record record(int n) { return {"NAME" + std::to_string(n), "1"}; }
  static std::string key(int n) { return record(n).name; }
  static void edit(Record& record) { record.value += "0"; }
  static std::string& text(Record& record) { return record.value; }
};

struct PortSamples {
  static constexpr const char* kName = "Port";
  using Registry = vrx::Ports;
  using Record = vrx::Port;
  static constexpr bool kMakesFile = false;
  static Registry open(const std::string& path) { return vrx::Ports(path); }
  static Record record(int n) { return {"svc" + std::to_string(n), 60000, "tcp"}; }
  static vrx::PortKey key(int n) { return {record(n).name}; }
  static void edit(Record& record) { ++record.port; }
  static std::string& text(Record& record) { return record.comment.emplace("c"); }
};

struct InitSamples {
  static constexpr const char* kName = "Init";
  using Registry = vrx::InitTable;
  using Record = vrx::InitEntry;
  static constexpr bool kMakesFile = false;
  static Registry open(const std::string& path) { return vrx::InitTable(path); }
  static Record record(int n) { return {"v" + std::to_string(n), "2345", "respawn", "/bin/x"}; }
  static std::string key(int n) { return record(n).id; }
  static void edit(Record& record) { record.command += "x"; }
  static std::string& text(Record& record) { return record.command; }
};

struct BinarySamples {
  static constexpr const char* kName = "Binary";
  using Registry = vrx::BinaryVariables;
  using Record = vrx::BinaryVariable;
  static constexpr bool kMakesFile = true;
  static Registry open(const std::string& path) { return vrx::BinaryVariables(path); }
  static Record record(int n) { return {"LEVEL" + std::to_string(n), 1}; }
  static std::string key(int n) { return record(n).name; }
  static void edit(Record& record) { ++record.value; }
  static std::string& text(Record& record) { return record.comment; }
};

template <class Samples>
class FaceRecords : public testing::Test {
 protected:
  using Record = typename Samples::Record;

  void SetUp() override {
    if (!Samples::kMakesFile) vrxtest::writeFile(path, "");
  }
  auto open() { return Samples::open(path); }
  static Record edited(Record record) {
    Samples::edit(record);
    return record;
  }
  // What has been written, in order.
  std::vector<Record> contents() {
    std::vector<Record> records;
    for (const auto& record : open().all().value_or({}))
      records.push_back(record);
    return records;
  }

  const LeakCheck leaks;
  const TempDir dir;
  const std::string path = dir.file("file");
};

using AllSamples = testing::Types<InstanceSamples, ServiceSamples, VariableSamples, ProfileSamples,
                                  PortSamples, InitSamples, BinarySamples>;
struct KindNames {
  template <class Samples>
  static std::string GetName(int) {
    return Samples::kName;
  }
};
TYPED_TEST_SUITE(FaceRecords, AllSamples, KindNames);

TYPED_TEST(FaceRecords, WhatIsAddedIsFoundAndListed) {
  auto registry = this->open();
  EXPECT_EQ(registry.add(TypeParam::record(1)).message(), "success");
  EXPECT_TRUE(registry.add(TypeParam::record(2)));
  const auto found = registry.find(TypeParam::key(2));
  ASSERT_TRUE(found) << found.status().message();
  EXPECT_TRUE(*found == TypeParam::record(2));
  const auto all = registry.all();
  ASSERT_TRUE(all);
  ASSERT_EQ(all->size(), 2U);
  EXPECT_TRUE((*all)[0] == TypeParam::record(1));
  EXPECT_TRUE((*all)[1] == TypeParam::record(2));
}

TYPED_TEST(FaceRecords, ARecordThatIsNotThereIsToldApartFromFailure) {
  auto registry = this->open();
  ASSERT_TRUE(registry.add(TypeParam::record(1)));
  const Status missing = registry.find(TypeParam::key(2)).status();
  EXPECT_TRUE(missing.notFound());
  EXPECT_EQ(missing.path(), this->path);
  EXPECT_TRUE(registry.remove(TypeParam::key(2)).notFound());
  EXPECT_TRUE(registry.removeAll(TypeParam::key(2)).notFound());
  EXPECT_TRUE(registry.update(TypeParam::key(2), &TypeParam::edit).notFound());
  EXPECT_EQ(this->contents().size(), 1U);
}

TYPED_TEST(FaceRecords, AMissingFileIsNotMadeByReading) {
  auto registry = TypeParam::open(this->dir.file("none"));
  EXPECT_TRUE(registry.find(TypeParam::key(1)).status().noFile());
  EXPECT_TRUE(registry.all().status().noFile());
  EXPECT_TRUE(registry.remove(TypeParam::key(1)).noFile());
  EXPECT_FALSE(vrxtest::pathExists(this->dir.file("none")));
  const Status added = registry.set(TypeParam::record(1));
  EXPECT_EQ(added.ok(), TypeParam::kMakesFile) << added.message();
  EXPECT_EQ(added.noFile(), !TypeParam::kMakesFile);
  EXPECT_EQ(vrxtest::pathExists(this->dir.file("none")), TypeParam::kMakesFile);
}

TYPED_TEST(FaceRecords, ASecondRecordOfOneKeyIsRefused) {
  auto registry = this->open();
  ASSERT_TRUE(registry.add(TypeParam::record(1)));
  const Status second = registry.add(this->edited(TypeParam::record(1)));
  EXPECT_TRUE(second.exists()) << second.message();
  EXPECT_STREQ(second.name(), "duplicate_record");
  EXPECT_EQ(this->contents(), (std::vector{TypeParam::record(1)}));
}

TYPED_TEST(FaceRecords, ReplaceChangesTheRecordThatWasRead) {
  auto registry = this->open();
  ASSERT_TRUE(registry.add(TypeParam::record(1)));
  ASSERT_TRUE(registry.add(TypeParam::record(2)));
  const auto old = registry.find(TypeParam::key(1));
  ASSERT_TRUE(old);
  EXPECT_TRUE(registry.replace(*old, this->edited(*old)));
  EXPECT_EQ(this->contents(),
            (std::vector{this->edited(TypeParam::record(1)), TypeParam::record(2)}));
}

TYPED_TEST(FaceRecords, ReplaceIsLostWhenSomebodyElseWasFaster) {
  auto registry = this->open();
  ASSERT_TRUE(registry.add(TypeParam::record(1)));
  const auto old = registry.find(TypeParam::key(1));
  ASSERT_TRUE(old);
  auto other = this->open();
  ASSERT_TRUE(other.update(TypeParam::key(1), &TypeParam::edit));
  const auto mine = this->edited(this->edited(*old));
  EXPECT_TRUE(registry.replace(*old, mine).notFound());
  EXPECT_TRUE(registry.remove(*old).notFound());
  EXPECT_EQ(this->contents(), (std::vector{this->edited(TypeParam::record(1))}));
}

TYPED_TEST(FaceRecords, ReplaceByTheSameIsUnchanged) {
  auto registry = this->open();
  ASSERT_TRUE(registry.add(TypeParam::record(1)));
  const auto old = registry.find(TypeParam::key(1));
  ASSERT_TRUE(old);
  EXPECT_EQ(registry.replace(*old, *old).code(), status::unchanged);
}

TYPED_TEST(FaceRecords, ANewKeyMustBeFree) {
  auto registry = this->open();
  ASSERT_TRUE(registry.add(TypeParam::record(1)));
  ASSERT_TRUE(registry.add(TypeParam::record(2)));
  const auto takeTwo = [](auto& record) { record = TypeParam::record(2); };
  EXPECT_TRUE(registry.update(TypeParam::key(1), takeTwo).exists());
  const auto old = registry.find(TypeParam::key(1));
  ASSERT_TRUE(old);
  EXPECT_TRUE(registry.replace(*old, TypeParam::record(2)).exists());
  EXPECT_EQ(this->contents(), (std::vector{TypeParam::record(1), TypeParam::record(2)}));
  EXPECT_TRUE(registry.replace(*old, TypeParam::record(3)));
  EXPECT_EQ(this->contents(), (std::vector{TypeParam::record(3), TypeParam::record(2)}));
}

TYPED_TEST(FaceRecords, ARegistryThatWasMovedFromIsAsItWas) {
  auto registry = this->open();
  ASSERT_TRUE(registry.add(TypeParam::record(1)));
  auto other = std::move(registry);
  EXPECT_TRUE(other.add(TypeParam::record(2)));
  EXPECT_EQ(registry.path(), this->path);  // NOLINT(bugprone-use-after-move): it is what we test
  EXPECT_TRUE(registry.remove(TypeParam::key(1)));
  EXPECT_EQ(this->contents(), (std::vector{TypeParam::record(2)}));
}

TYPED_TEST(FaceRecords, UpdateReadsAgainWhenItWasLost) {
  auto registry = this->open();
  ASSERT_TRUE(registry.add(TypeParam::record(1)));
  int rounds = 0;
  const Status updated = registry.update(TypeParam::key(1), [&](auto& record) {
    if (++rounds == 1) {
      EXPECT_TRUE(this->open().update(TypeParam::key(1), &TypeParam::edit));
    }
    TypeParam::edit(record);
  });
  EXPECT_TRUE(updated) << updated.message();
  EXPECT_EQ(rounds, 2);
  EXPECT_EQ(this->contents(), (std::vector{this->edited(this->edited(TypeParam::record(1)))}));
}

TYPED_TEST(FaceRecords, SetAddsChangesAndIsContent) {
  auto registry = this->open();
  EXPECT_TRUE(registry.set(TypeParam::record(1)));
  EXPECT_TRUE(registry.set(TypeParam::record(1))) << "as it is already";
  EXPECT_TRUE(registry.set(this->edited(TypeParam::record(1))));
  EXPECT_EQ(this->contents(), (std::vector{this->edited(TypeParam::record(1))}));
}

TYPED_TEST(FaceRecords, RemoveTakesTheRecordOfItsKeyAlone) {
  auto registry = this->open();
  for (const int n : {1, 2, 3})
    ASSERT_TRUE(registry.add(TypeParam::record(n)));
  EXPECT_TRUE(registry.remove(TypeParam::key(2)));
  EXPECT_TRUE(registry.removeAll(TypeParam::key(3)));
  const auto first = registry.find(TypeParam::key(1));
  ASSERT_TRUE(first);
  EXPECT_EQ(this->contents(), (std::vector{TypeParam::record(1)}));
  EXPECT_TRUE(registry.remove(*first));
  EXPECT_TRUE(this->contents().empty());
}

TYPED_TEST(FaceRecords, ANulByteIsRefusedBeforeAnythingIsWritten) {
  auto registry = this->open();
  ASSERT_TRUE(registry.add(TypeParam::record(1)));
  const std::string before = vrxtest::readFile(this->path);
  auto spoilt = TypeParam::record(2);
  TypeParam::text(spoilt) = std::string("a\0b", 3);
  const Status added = registry.add(spoilt);
  EXPECT_STREQ(added.name(), "invalid_record");
  EXPECT_FALSE(added.field().empty());
  EXPECT_EQ(added.path(), this->path);
  EXPECT_STREQ(registry.set(spoilt).name(), "invalid_record");
  const auto old = registry.find(TypeParam::key(1));
  ASSERT_TRUE(old);
  EXPECT_STREQ(registry.replace(*old, spoilt).name(), "invalid_record");
  EXPECT_EQ(vrxtest::readFile(this->path), before);
  EXPECT_FALSE(vrxtest::pathExists(this->path + ".tmp"));
}

TYPED_TEST(FaceRecords, ATextTooLongForItsFieldIsRefusedAndNeverCut) {
  auto registry = this->open();
  ASSERT_TRUE(registry.add(TypeParam::record(1)));
  const std::string before = vrxtest::readFile(this->path);
  auto spoilt = TypeParam::record(2);
  TypeParam::text(spoilt) = std::string(3000, 'x');
  const Status added = registry.add(spoilt);
  EXPECT_TRUE(added.code() == status::invalid_record || added.code() == status::line_too_long)
      << added.message();
  EXPECT_FALSE(registry.set(spoilt));
  EXPECT_EQ(vrxtest::readFile(this->path), before);
}

TYPED_TEST(FaceRecords, ACursorGoesThroughTheFileAndEndsInSuccess) {
  auto registry = this->open();
  for (const int n : {1, 2, 3})
    ASSERT_TRUE(registry.add(TypeParam::record(n)));
  auto cursor = registry.cursor();
  int n = 0;
  for (const auto& record : cursor)
    EXPECT_TRUE(record == TypeParam::record(++n));
  EXPECT_EQ(n, 3);
  EXPECT_EQ(cursor.next(), nullptr);
  EXPECT_TRUE(cursor.status());
}

TYPED_TEST(FaceRecords, WhileACursorIsOpenEverythingElseIsRefused) {
  auto registry = this->open();
  ASSERT_TRUE(registry.add(TypeParam::record(1)));
  {
    auto cursor = registry.cursor();
    ASSERT_NE(cursor.next(), nullptr);
    EXPECT_EQ(registry.add(TypeParam::record(2)).code(), status::scan_is_open);
    EXPECT_EQ(registry.set(TypeParam::record(2)).code(), status::scan_is_open);
    EXPECT_EQ(registry.all().status().code(), status::scan_is_open);
    EXPECT_EQ(registry.remove(TypeParam::key(1)).code(), status::scan_is_open);
    EXPECT_TRUE(cursor.status());
  }
  EXPECT_TRUE(registry.add(TypeParam::record(2))) << "the cursor has closed its scan";
}

TYPED_TEST(FaceRecords, AnUnusablePathIsToldByEveryVerb) {
  const std::string nul("/tmp/x\0y", 8);
  for (const std::string& bad : {std::string(), nul, "/" + std::string(2000, 'x')}) {
    auto registry = TypeParam::open(bad);
    const GenRegStatus code = registry.status().code();
    EXPECT_NE(code, status::ok);
    EXPECT_EQ(registry.add(TypeParam::record(1)).code(), code);
    EXPECT_EQ(registry.all().status().code(), code);
    EXPECT_EQ(registry.remove(TypeParam::key(1)).code(), code);
  }
}

TYPED_TEST(FaceRecords, AFolderIsNoFile) {
  auto registry = TypeParam::open(this->dir.path());
  EXPECT_STREQ(registry.all().status().name(), "not_a_regular_file");
  EXPECT_FALSE(registry.add(TypeParam::record(1)));
}

TYPED_TEST(FaceRecords, ForEachAndFindIfSeeWhatAllSees) {
  auto registry = this->open();
  for (const int n : {1, 2, 3})
    ASSERT_TRUE(registry.add(TypeParam::record(n)));
  int seen = 0;
  EXPECT_TRUE(registry.forEach([&](const auto&) { ++seen; }));
  EXPECT_EQ(seen, 3);
  const auto third =
      registry.findIf([](const auto& record) { return record == TypeParam::record(3); });
  EXPECT_TRUE(third) << third.status().message();
}

TYPED_TEST(FaceRecords, EveryFieldIsVisitedByAName) {
  std::vector<std::string> names;
  const auto record = TypeParam::record(1);
  TypeParam::Record::visitFields(record,
                                 [&](const char* name, const auto&) { names.emplace_back(name); });
  EXPECT_GE(names.size(), 3U);
  EXPECT_EQ(std::count(names.begin(), names.end(), ""), 0);
}

}  // namespace
