// SPDX-License-Identifier: Apache-2.0
// What is particular about the two registries of binary frames.
#include "vrx/global_registry.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "tests/support/global_records.h"
#include "tests/support/leak_check.h"
#include "tests/support/temp_dir.h"
#include "vrx/binary_variables.h"

namespace {

using vrx::Instance;
using vrx::InstanceKey;
using vrx::Status;
using vrx::Version;
namespace status = genreg::status;

class FaceGlobal : public testing::Test {
 protected:
  FaceGlobal() : registry(vrx::GlobalRegistry::at(path)) {
    (void)registry.native().unsetFeature(kGenRegChangeLog);
    (void)registry.native().unsetFeature(kGenRegNotify);
  }

  // The frame of an instance with a later field (bit 40) and with StartAtBoot as it is given.
  void writeForeign(std::uint32_t startAtBoot) {
    GlobalRegRecord record = vrxtest::instanceRecord("VRX", "tp1");
    record.FieldMask |= kInstanceStartAtBoot;
    record.Instance.StartAtBoot = startAtBoot;
    unsigned char image[4096] = {};
    std::memcpy(image, &record, sizeof record);
    void* at = image;
    ASSERT_EQ(GlobalReg::PackRecord(&at, nullptr), 0);
    unsigned long size = 0;
    ASSERT_EQ(GlobalReg::GetPackedRecordSize(image, &size), 0);
    std::string packed(reinterpret_cast<const char*>(image), size);
    packed.insert(packed.size() - sizeof record.CheckSum, std::string("\x02\x00later", 2 + 2));
    packed[4 + 5] = static_cast<char>(packed[4 + 5] | 1);  // bit 40 of the mask
    const auto length = static_cast<std::uint32_t>(packed.size());
    const std::string frame(reinterpret_cast<const char*>(&length), sizeof length);
    vrxtest::writeFile(path, frame + packed);
  }

  const vrxtest::LeakCheck leaks;
  const vrxtest::TempDir dir;
  const std::string path = dir.file("global.reg");
  vrx::GlobalRegistry registry;
  const InstanceKey tp1 = {"VRX", Version::of(3, 1, 0, 7), "tp1"};
};

TEST_F(FaceGlobal, EveryFieldOfEveryKindComesBack) {
  const Version version = Version::of(3, 1, 0, 7);
  const Instance instance = {"VRX", version, "tp1", "/p", "oltp", true, false, "/a", "n", "c"};
  const vrx::Service service = {"VRX", version, "1", "2", "3", 7, 0, 'A', 4000000000U, 4};
  const vrx::Variable variable = {"VRX", "LEVEL", "3", "c"};
  ASSERT_TRUE(registry.instances().add(instance));
  ASSERT_TRUE(registry.services().add(service));
  ASSERT_TRUE(registry.variables().add(variable));
  EXPECT_TRUE(*registry.instances().find(tp1) == instance);
  EXPECT_TRUE(*registry.services().find({"VRX", version}) == service);
  EXPECT_TRUE(*registry.variables().find({"VRX", "LEVEL"}) == variable);
  EXPECT_EQ(registry.instances().all()->size(), 1U) << "kinds do not meet";
}

TEST_F(FaceGlobal, AbsentIsNeitherEmptyNorNoNorZero) {
  ASSERT_TRUE(registry.instances().add({"VRX", tp1.version, "tp1"}));
  const auto bare = registry.instances().find(tp1);
  ASSERT_TRUE(bare);
  EXPECT_FALSE(bare->path.has_value());
  EXPECT_FALSE(bare->maintenance.has_value());
  Instance next = *bare;
  next.maintenance = false;
  EXPECT_TRUE(registry.instances().replace(*bare, next)) << "no is not absent";
  EXPECT_EQ(registry.instances().find(tp1)->maintenance, std::optional<bool>(false));
  EXPECT_TRUE(registry.instances().set({"VRX", tp1.version, "tp1"}));
  EXPECT_FALSE(registry.instances().find(tp1)->maintenance.has_value());
}

TEST_F(FaceGlobal, TextsAreRefusedBeyondTheirWidthAndKeptUpToIt) {
  Instance instance = {"VRX", tp1.version, "tp1", std::string(1023, 'p'), std::string(63, 'u')};
  instance.comment = std::string(255, 'c');
  EXPECT_TRUE(registry.instances().add(instance));
  EXPECT_TRUE(*registry.instances().find(tp1) == instance);
  instance.usage = std::string(64, 'u');
  const Status refused = registry.instances().set(instance);
  EXPECT_STREQ(refused.name(), "invalid_record");
  EXPECT_EQ(refused.field(), "usage");
  EXPECT_EQ(refused.detail(), "64 bytes are too long, the limit is 63");
  EXPECT_EQ(registry.instances().find(tp1)->usage->size(), 63U);
}

TEST_F(FaceGlobal, TheRuleThatARecordBreaksIsNamed) {
  EXPECT_STREQ(registry.instances().add({"VRX", tp1.version, "tp1", ""}).name(),
               "instance_path_empty");
  EXPECT_STREQ(registry.instances().add({"", tp1.version, "tp1"}).name(), "instance_service_empty");
  EXPECT_FALSE(vrxtest::pathExists(path));
}

TEST_F(FaceGlobal, FieldsOfLaterRevisionsAreShownAndKept) {
  writeForeign(1);
  const auto old = registry.instances().find(tp1);
  ASSERT_TRUE(old) << old.status().message();
  ASSERT_EQ(old->image.laterFields.size(), 1U);
  EXPECT_EQ(old->image.laterFields[0].bit, 40U);
  EXPECT_EQ(old->image.laterFields[0].bytes, "la");
  EXPECT_TRUE(registry.instances().set({"VRX", tp1.version, "tp1", "/new"}));
  const auto now = registry.instances().find(tp1);
  ASSERT_TRUE(now);
  EXPECT_EQ(now->path.value_or(""), "/new");
  EXPECT_FALSE(now->startAtBoot.has_value());
  ASSERT_EQ(now->image.laterFields.size(), 1U);
  EXPECT_EQ(now->image.laterFields[0].bytes, "la");
}

TEST_F(FaceGlobal, ANumberThatIsNoBooleanIsNeitherAndCanBePutRight) {
  writeForeign(7);
  const auto odd = registry.instances().find(tp1);
  ASSERT_TRUE(odd);
  EXPECT_FALSE(odd->startAtBoot.has_value());
  EXPECT_EQ(vrxtest::valueOf(odd->image.record.Instance.StartAtBoot), 7U);
  EXPECT_EQ(registry.instances().update(tp1, [](Instance& i) { i.path = "/p"; }).code(),
            status::instance_start_invalid);
  EXPECT_TRUE(registry.instances().update(tp1, [](Instance& i) { i.startAtBoot = false; }));
  EXPECT_EQ(registry.instances().find(tp1)->startAtBoot, std::optional<bool>(false));
}

TEST_F(FaceGlobal, ADamagedFileEndsTheCursorWhereTheDamageBegins) {
  ASSERT_TRUE(registry.instances().add({"VRX", tp1.version, "tp1"}));
  const std::string good = vrxtest::readFile(path);
  vrxtest::writeFile(path, good + "\x10");
  const auto instances = registry.instances();
  {
    auto cursor = instances.cursor();
    EXPECT_NE(cursor.next(), nullptr);
    EXPECT_EQ(cursor.next(), nullptr);
    EXPECT_FALSE(cursor.status());
    EXPECT_EQ(cursor.position(), static_cast<long long>(good.size()));
  }
  EXPECT_FALSE(instances.all());
  EXPECT_TRUE(instances.find(tp1)) << "it stands before the damage";
}

TEST_F(FaceGlobal, ViewsAndCursorsOutliveTheRegistry) {
  ASSERT_TRUE(registry.instances().add({"VRX", tp1.version, "tp1"}));
  const auto instances = vrx::GlobalRegistry::at(path).instances();
  EXPECT_TRUE(instances.find(tp1));
  auto cursor = vrx::GlobalRegistry::at(path).instances().cursor();
  EXPECT_NE(cursor.next(), nullptr);
  EXPECT_TRUE(cursor.status());
}

TEST_F(FaceGlobal, TheEnvironmentChoosesTheFile) {
  ASSERT_EQ(setenv("VRX_GLOBAL_REG_PATHNAME", path.c_str(), 1), 0);
  EXPECT_EQ(vrx::GlobalRegistry().path(), path);
  EXPECT_EQ(vrx::GlobalRegistry(vrx::Scope::hostWide).path(), path);
  EXPECT_EQ(vrx::GlobalRegistry::at("/elsewhere").path(), "/elsewhere");
  ASSERT_EQ(setenv("VRX_GLOBAL_REG_PATHNAME", "", 1), 0);
  EXPECT_STREQ(vrx::GlobalRegistry().status().name(), "paths_not_set");
  EXPECT_STREQ(vrx::GlobalRegistry().instances().all().status().name(), "paths_not_set");
  ASSERT_EQ(unsetenv("VRX_GLOBAL_REG_PATHNAME"), 0);
  EXPECT_EQ(vrx::GlobalRegistry(vrx::Scope::hostWide).path(), "/var/vrx/global.reg");
}

TEST_F(FaceGlobal, BinaryVariablesKeepValuesCommentsAndWidths) {
  vrx::BinaryVariables variables(dir.file("vars.bin"));
  EXPECT_TRUE(variables.add({"LEVEL", -5, "fifteen bytes!!"}));
  EXPECT_TRUE(variables.set("LEVEL", INT32_MIN));
  EXPECT_EQ(variables.get("LEVEL").value_or(0), INT32_MIN);
  EXPECT_EQ(variables.find("LEVEL")->comment, "fifteen bytes!!");
  EXPECT_TRUE(variables.set("NEW", 1));
  EXPECT_EQ(variables.add({"sixteen bytes!!!", 1}).field(), "name");
  EXPECT_EQ(variables.set({"LEVEL", 1, "sixteen bytes!!!"}).field(), "comment");
  EXPECT_EQ(variables.get("LEVEL").value_or(0), INT32_MIN);
  EXPECT_TRUE(variables.get("OLD").status().notFound());
  EXPECT_EQ(vrxtest::readFile(dir.file("vars.bin")).size(), 80U);
}

TEST_F(FaceGlobal, AChangeOfACommentAloneIsMade) {
  vrx::BinaryVariables variables(dir.file("vars.bin"));
  ASSERT_TRUE(variables.add({"LEVEL", 1, "old"}));
  EXPECT_TRUE(variables.set({"LEVEL", 1, "new"}));
  EXPECT_EQ(variables.find("LEVEL")->comment, "new");
}

TEST_F(FaceGlobal, NativeIsTheExportedObject) {
  GlobalReg& native = registry.native();
  EXPECT_EQ(native.lockPath, dir.file(".global.reg.lock"));
  EXPECT_EQ(&registry.instances().native(), &native);
}

}  // namespace
