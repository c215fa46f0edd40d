// SPDX-License-Identifier: Apache-2.0
// What a new GlobalReg is, and the record operations through the store.
#include "globalreg/global_reg.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "genreg/internal/function_ids.h"
#include "tests/support/captured_log.h"
#include "tests/support/global_records.h"
#include "tests/support/private_mounts.h"
#include "tests/support/temp_dir.h"

namespace {

using vrxtest::CapturedLog;
using vrxtest::entryOf;
using vrxtest::imageOf;
using vrxtest::inChildProcess;
using vrxtest::inPrivateMounts;
using vrxtest::instanceRecord;
using vrxtest::setText;
using vrxtest::variableRecord;

constexpr char kVariable[] = "VRX_GLOBAL_REG_PATHNAME";
constexpr char kRegistry[] = "/tmp/reg";

// The frame that holds an image.
std::string frameOf(const std::string& image) {
  return vrxtest::bytesOf(static_cast<std::uint32_t>(image.size())) + image;
}

TEST(GlobalReg, FillsEverySlotOfAPackedBinaryStore) {
  GlobalReg registry;
  EXPECT_EQ(registry.storeType, kGenRegBinaryStore);
  EXPECT_EQ(registry.matchRecord, &GlobalReg::MatchRecord);
  EXPECT_EQ(registry.validateRecord, &GlobalReg::ValidateRecord);
  EXPECT_EQ(registry.printRecord, &GlobalReg::PrintRecord);
  EXPECT_EQ(registry.getRecordSize, &GlobalReg::GetRecordSize);
  EXPECT_EQ(registry.getMaxRecordSize, &GlobalReg::GetMaxRecordSize);
  EXPECT_EQ(registry.packRecord, &GlobalReg::PackRecord);
  EXPECT_EQ(registry.unpackRecord, &GlobalReg::UnpackRecord);
  EXPECT_EQ(registry.getPackedRecordSize, &GlobalReg::GetPackedRecordSize);
  EXPECT_EQ(registry.log, &GlobalReg::Log);
  EXPECT_EQ(registry.notify, &GlobalReg::Notify);
  EXPECT_EQ(registry.CheckFuncPtrs(), 0);
}

TEST(GlobalReg, IsVerifiedPackedLoggedAndNotifyingWithoutDuplicates) {
  const GlobalReg registry;
  EXPECT_EQ(registry.features, 0x65U);
  EXPECT_EQ(registry.changeLoggingFuncID, 0U);
  EXPECT_EQ(registry.CallerArgCount, 0);
  EXPECT_EQ(registry.ListService, nullptr);
}

TEST(GlobalReg, InitClearsWhatCallersSet) {
  GlobalReg registry;
  ASSERT_EQ(registry.setFeature(kGenRegDuplicates), 0U);
  registry.SetChangeLoggingFuncID(7);
  registry.CallerArgCount = 3;
  registry.ListService = "VRX";
  registry.init(true);
  EXPECT_EQ(registry.features, 0x65U);
  EXPECT_EQ(registry.GetChangeLoggingFuncID(), 0U);
  EXPECT_EQ(registry.CallerArgCount, 0);
  EXPECT_EQ(registry.ListService, nullptr);
}

TEST(GlobalReg, BuildingOneLogsNothing) {
  inChildProcess([] {
    setenv(kVariable, kRegistry, 1);
    const CapturedLog log;
    const GlobalReg registry;
    EXPECT_EQ(log.count(genreg::kGlobalRegInit), 0);
    EXPECT_EQ(log.count(genreg::kGenRegBaseUnsetFeature), 0);
  });
}

TEST(GlobalReg, HostWideRegistryHasItsCompanionsBeside) {
  inChildProcess([] {
    unsetenv(kVariable);
    const GlobalReg registry(true);
    EXPECT_STREQ(registry.registryPath, "/var/vrx/global.reg");
    EXPECT_STREQ(registry.temporaryPath, "/var/vrx/global.reg.tmp");
    EXPECT_STREQ(registry.corruptPath, "/var/vrx/global.reg.cor");
    EXPECT_STREQ(registry.lockPath, "/var/vrx/.global.reg.lock");
    EXPECT_STREQ(registry.backupPath, "/var/vrx/.global.reg.bkp");
    EXPECT_NE(registry.state & kGenRegStatePathsSet, 0U);
  });
}

TEST(GlobalReg, BareNameHasBareCompanions) {
  inChildProcess([] {
    setenv(kVariable, "reg", 1);
    const GlobalReg registry;
    EXPECT_STREQ(registry.lockPath, ".reg.lock");
    EXPECT_STREQ(registry.backupPath, ".reg.bkp");
  });
}

void expectNoCompanions(const GlobalReg& registry) {
  EXPECT_STREQ(registry.temporaryPath, "");
  EXPECT_STREQ(registry.corruptPath, "");
  EXPECT_STREQ(registry.lockPath, "");
  EXPECT_STREQ(registry.backupPath, "");
  EXPECT_EQ(registry.state & kGenRegStatePathsSet, 0U);
}

TEST(GlobalReg, PathWithoutRoomForItsCompanionsStandsAlone) {
  inChildProcess([] {
    for (const std::size_t size : {1018U, 1023U}) {
      setenv(kVariable, ("/" + std::string(size - 1, 'p')).c_str(), 1);
      const GlobalReg registry;
      EXPECT_EQ(std::string(registry.registryPath).size(), size);
      expectNoCompanions(registry);
    }
  });
}

TEST(GlobalReg, LongestPathHasCompanions) {
  inChildProcess([] {
    // No component may be longer than a name in a folder.
    std::string path;
    while (path.size() + 204 < 1017)
      path += "/" + std::string(203, 'p');
    path += "/" + std::string(1016 - path.size(), 'q');
    ASSERT_EQ(path.size(), 1017U);
    setenv(kVariable, path.c_str(), 1);
    const GlobalReg registry;
    EXPECT_EQ(registry.registryPath, path);
    EXPECT_NE(registry.state & kGenRegStatePathsSet, 0U);
  });
}

TEST(GlobalReg, UnusablePathLeavesAllFiveEmptyAndIsLogged) {
  inChildProcess([] {
    for (const std::string& path : {std::string(), std::string("/tmp/"), std::string(1024, 'p')}) {
      setenv(kVariable, path.c_str(), 1);
      const CapturedLog log;
      const GlobalReg registry;
      EXPECT_STREQ(registry.registryPath, "");
      expectNoCompanions(registry);
      EXPECT_EQ(log.count(genreg::kGlobalRegInit), 1);
    }
  });
}

TEST(GlobalReg, UpdatesWithoutPathsFailWithTheLock) {
  inChildProcess([] {
    setenv(kVariable, "", 1);
    GlobalReg registry;
    GlobalRegRecord record = instanceRecord("VRX", "a");
    EXPECT_EQ(genreg::statusOf(registry.Add(kInstanceKey, &record)), 0x900001BCU);
  });
}

TEST(GlobalReg, InitAgainForgetsTheOldPaths) {
  inChildProcess([] {
    setenv(kVariable, kRegistry, 1);
    GlobalReg registry;
    setenv(kVariable, "", 1);
    registry.init(false);
    EXPECT_STREQ(registry.registryPath, "");
    expectNoCompanions(registry);
    setenv(kVariable, "/tmp/other", 1);
    registry.init(false);
    EXPECT_STREQ(registry.lockPath, "/tmp/.other.lock");
  });
}

TEST(GlobalReg, FirstAddWritesOneFrame) {
  inPrivateMounts([] {
    setenv(kVariable, kRegistry, 1);
    GlobalReg registry;
    GlobalRegRecord record = variableRecord("VRX", "A", "1");
    ASSERT_EQ(registry.Add(kVariableKey, &record), 0);
    const auto text = [](const char* value) { return entryOf(std::string(value) + '\0'); };
    EXPECT_EQ(vrxtest::readFile(kRegistry),
              frameOf(imageOf(4, 7, {text("VRX"), text("A"), text("1")})));
    EXPECT_EQ(genreg::statusOf(registry.Add(kVariableKey, &record)), 0x900001F1U);
  });
}

TEST(GlobalReg, ChangeKeepsFieldsOfLaterRevisions) {
  inPrivateMounts([] {
    setenv(kVariable, kRegistry, 1);
    const auto text = [](const char* value) { return entryOf(std::string(value) + '\0'); };
    vrxtest::writeFile(
        kRegistry,
        frameOf(imageOf(4, 0x1007, {text("VRX"), text("A"), text("1"), entryOf("later")})));
    GlobalReg registry;
    GlobalRegRecord key = variableRecord("VRX", "A", "");
    GlobalRegRecord changed = variableRecord("VRX", "A", "2");
    ASSERT_EQ(registry.Change(kVariableKey, &key, &changed), 0);
    EXPECT_EQ(vrxtest::readFile(kRegistry),
              frameOf(imageOf(4, 0x1007, {text("VRX"), text("A"), text("2"), entryOf("later")})));
  });
}

TEST(GlobalReg, DamagedImageIsReportedAndChangesNothing) {
  inPrivateMounts([] {
    setenv(kVariable, kRegistry, 1);
    std::string image = imageOf(4, 1, {entryOf(std::string("VRX\0", 4))});
    image[20] = '\x7F';  // the entry now runs past the frame
    vrxtest::writeFile(kRegistry, frameOf(image));
    GlobalReg registry;
    GlobalRegRecord record = variableRecord("VRX", "A", "1");
    GlobalRegRecord found{};
    EXPECT_EQ(genreg::statusOf(registry.Get(kVariableKey, &record, &found)), 0x90000254U);
    EXPECT_EQ(genreg::statusOf(registry.Add(kVariableKey, &record)), 0x90000254U);
    EXPECT_EQ(vrxtest::readFile(kRegistry), frameOf(image));
  });
}

}  // namespace
