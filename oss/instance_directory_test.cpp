// SPDX-License-Identifier: Apache-2.0
// The instance directory over real registries, each in a private mount namespace.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "genreg/internal/function_ids.h"
#include "globalreg/global_reg.h"
#include "oss/directory.h"
#include "platform/osse/memory.h"
#include "tests/support/captured_log.h"
#include "tests/support/faults.h"
#include "tests/support/global_records.h"
#include "tests/support/instance_records.h"
#include "tests/support/memory_drought.h"
#include "tests/support/private_mounts.h"
#include "tests/support/temp_dir.h"

namespace {

using namespace vrxtest;

// The only record of the registry.
GlobalRegRecord onlyRecord() {
  GlobalReg registry;
  GlobalRegRecord key{};
  GlobalRegRecord found{};
  EXPECT_EQ(registry.OpenScan(), 0U);
  EXPECT_EQ(registry.GetNext(0, &key, &found), 0);
  GlobalRegRecord second{};
  EXPECT_EQ(genreg::statusOf(registry.GetNext(0, &key, &second)), 0x900001BEU);
  return found;
}

TEST(InstanceDirectory, EveryFieldIsStoredAndReadBack) {
  withRegistry([] {
    OSSInstanceInfo_t value = info("VRX", "inst1", "/home/inst1");
    value.flags = kInstanceFlagStartAtBoot | kInstanceFlagMaintenance;
    setText(value.usage, "use");
    setText(value.auxPath, "/aux");
    setText(value.auxName, "aux");
    setText(value.comment, "why");
    ASSERT_EQ(ossSetInstanceInfo(&value), 0U);
    EXPECT_EQ(vrxtest::valueOf(onlyRecord().FieldMask), 0x3FFU);
    OSSInstanceInfo_t read{};
    ASSERT_EQ(ossGetInstanceInfo(kService, kVersion3107, kName, &read), 0U);
    EXPECT_EQ(std::memcmp(&read, &value, sizeof value), 0);
  });
}

TEST(InstanceDirectory, LongestTextsAreKeptAndUnterminatedOnesCut) {
  withRegistry([] {
    OSSInstanceInfo_t value = info("VRX", "");
    setText(value.instanceName, std::string(64, 'n'));
    setText(value.instancePath, std::string(1023, 'p'));
    setText(value.comment, std::string(256, 'c'));
    ASSERT_EQ(ossSetInstanceInfo(&value), 0U);
    OSSInstanceInfo_t read{};
    ASSERT_EQ(ossGetInstanceInfo(nullptr, 0, value.instanceName, &read), 0U);
    EXPECT_EQ(std::string(read.instanceName), std::string(63, 'n'));
    EXPECT_EQ(std::string(read.instancePath), std::string(1023, 'p'));
    EXPECT_EQ(std::string(read.comment), std::string(255, 'c'));
  });
}

TEST(InstanceDirectory, SettingTwiceLeavesOneRecordWithTheSecondPath) {
  withRegistry([] {
    ASSERT_EQ(set(info("VRX", "inst1", "/one")), 0U);
    ASSERT_EQ(set(info("VRX", "inst1", "/two")), 0U);
    EXPECT_STREQ(onlyRecord().Instance.InstancePath, "/two");
  });
}

TEST(InstanceDirectory, SettingReplacesTheWholeRecord) {
  withRegistry([] {
    OSSInstanceInfo_t value = info("VRX", "inst1", "/one");
    setText(value.comment, "gone");
    value.flags = kInstanceFlagStartAtBoot;
    ASSERT_EQ(set(value), 0U);
    ASSERT_EQ(set(info("VRX", "inst1", "/two")), 0U);
    EXPECT_EQ(vrxtest::valueOf(onlyRecord().FieldMask),
              std::uint64_t{kInstanceKey | kInstancePath});
  });
}

TEST(InstanceDirectory, SettingTheSameValuesIsReportedAsUnchanged) {
  withRegistry([] {
    ASSERT_EQ(set(info("VRX", "inst1", "/one")), 0U);
    const CapturedLog log;
    EXPECT_EQ(set(info("VRX", "inst1", "/one")), 0x900001F7U);
    EXPECT_EQ(log.count(genreg::kOssSetInstanceInfo, 0x900001F7), 1);
  });
}

TEST(InstanceDirectory, EachPartOfTheKeyMakesAnotherInstance) {
  withRegistry([] {
    ASSERT_EQ(set(info("VRX", "inst1")), 0U);
    ASSERT_EQ(set(info("VRX", "inst2")), 0U);
    ASSERT_EQ(set(info("KRN", "inst1")), 0U);
    OSSInstanceInfo_t newer = info("VRX", "inst1");
    newer.versionCode = kVersion3107 + 1;
    ASSERT_EQ(set(newer), 0U);
    EXPECT_EQ(namesOf(kService), (std::vector<std::string>{"inst1", "inst2", "inst1"}));
  });
}

TEST(InstanceDirectory, ClearFlagsStoreNoFieldsAndLeaveTheCallersFlags) {
  withRegistry([] {
    ASSERT_EQ(set(info("VRX", "inst1")), 0U);
    EXPECT_EQ(vrxtest::valueOf(onlyRecord().FieldMask), std::uint64_t{kInstanceKey});
    OSSInstanceInfo_t read{};
    read.flags = 0x8000000000000001ULL;
    ASSERT_EQ(ossGetInstanceInfo(kService, 0, nullptr, &read), 0U);
    EXPECT_EQ(vrxtest::valueOf(read.flags), 0x8000000000000001ULL);
  });
}

TEST(InstanceDirectory, OnlySwitchesOfExactlyOneSetFlags) {
  withRegistry([] {
    const auto number = [](std::uint32_t value) {
      return vrxtest::entryOf(vrxtest::bytesOf(value));
    };
    const std::string image = vrxtest::imageOf(1, 0x60, {number(2), number(1)});
    vrxtest::writeFile(kRegistry,
                       vrxtest::bytesOf(static_cast<std::uint32_t>(image.size())) + image);
    OSSInstanceInfo_t read{};
    ASSERT_EQ(ossGetInstanceInfo(nullptr, 0, nullptr, &read), 0U);
    EXPECT_EQ(vrxtest::valueOf(read.flags), kInstanceFlagMaintenance);
  });
}

TEST(InstanceDirectory, SetChecksItsArgumentsInOrder) {
  withRegistry([] {
    const CapturedLog log;
    EXPECT_EQ(ossSetInstanceInfo(nullptr), 0x90000261U);
    OSSInstanceInfo_t value{};
    EXPECT_EQ(set(value), 0x9000026FU);
    value.versionCode = 1;
    EXPECT_EQ(set(value), 0x90000270U);
    setText(value.service, "VRX");
    EXPECT_EQ(set(value), 0x90000271U);
    EXPECT_EQ(log.count(genreg::kOssSetInstanceInfo), 4);
    EXPECT_FALSE(vrxtest::pathExists(kRegistry));
  });
}

TEST(InstanceDirectory, RefusedAddAndChangeHaveTheirCodes) {
  withRegistry([] {
    ASSERT_EQ(set(info("VRX", "inst1", "/one")), 0U);
    // A folder in the place of the old copy of a leftover keeps every update from starting.
    ASSERT_EQ(mkdir("/tmp/reg.cor", 0755), 0);
    const CapturedLog log;
    EXPECT_EQ(set(info("VRX", "inst2")), 0x9000026AU);
    EXPECT_EQ(log.count(genreg::kOssSetInstanceInfo, 0x9000026A), 1);
    EXPECT_EQ(ossRemoveInstanceInfo(kService, kVersion3107, kName), 0x9000026EU);
    EXPECT_EQ(log.count(genreg::kOssRemoveInstanceInfo, 0x9000026E), 1);
    EXPECT_STREQ(onlyRecord().Instance.InstancePath, "/one");
  });
}

TEST(InstanceDirectory, ChangeOfAnInstanceRegisteredTwiceIsRefused) {
  withRegistry([] {
    ASSERT_EQ(set(info("VRX", "inst1", "/one")), 0U);
    const std::string once = vrxtest::readFile(kRegistry);
    vrxtest::writeFile(kRegistry, once + once);
    EXPECT_EQ(set(info("VRX", "inst1", "/two")), 0x9000026CU);
    EXPECT_EQ(ossRemoveInstanceInfo(kService, kVersion3107, kName), 0x9000026EU);
    EXPECT_EQ(vrxtest::readFile(kRegistry), once + once);
  });
}

TEST(InstanceDirectory, GetTakesTheFirstThatAgreesWithWhatIsGiven) {
  withRegistry([] {
    ASSERT_EQ(set(info("VRX", "inst1", "/one")), 0U);
    ASSERT_EQ(set(info("KRN", "inst1", "/two")), 0U);
    OSSInstanceInfo_t read{};
    ASSERT_EQ(ossGetInstanceInfo(nullptr, 0, nullptr, &read), 0U);
    EXPECT_STREQ(read.instancePath, "/one");
    ASSERT_EQ(ossGetInstanceInfo(kOther, 0, nullptr, &read), 0U);
    EXPECT_STREQ(read.instancePath, "/two");
    ASSERT_EQ(ossGetInstanceInfo(nullptr, 0, kName, kEmpty, &read), 0U);
    EXPECT_STREQ(read.instancePath, "/one");
  });
}

TEST(InstanceDirectory, GetPassesOverRecordsOfOtherTypes) {
  withRegistry([] {
    GlobalReg registry;
    GlobalRegRecord service = vrxtest::serviceRecord("VRX");
    ASSERT_EQ(registry.Add(kServiceKey, &service), 0);
    OSSInstanceInfo_t read{};
    EXPECT_EQ(ossGetInstanceInfo(nullptr, 0, nullptr, &read), 0x90000268U);
    ASSERT_EQ(set(info("VRX", "inst1")), 0U);
    EXPECT_EQ(ossGetInstanceInfo(nullptr, 0, nullptr, &read), 0U);
    EXPECT_STREQ(read.instanceName, "inst1");
  });
}

TEST(InstanceDirectory, FailedGetLeavesTheOutputAndLogsAllButNoMatch) {
  withRegistry([] {
    const OSSInstanceInfo_t before = info("kept", "kept");
    OSSInstanceInfo_t read = before;
    const CapturedLog log;
    EXPECT_EQ(ossGetInstanceInfo(kService, 0, nullptr, nullptr), 0x90000261U);
    EXPECT_EQ(ossGetInstanceInfo(kService, 0, nullptr, &read), 0x90000268U);  // no file
    EXPECT_EQ(log.count(genreg::kOssGetInstanceInfo, 0x90000268), 1);
    EXPECT_EQ(ossGetInstanceInfo(kEmpty, 0, nullptr, &read), 0x90000268U);  // an empty key
    EXPECT_EQ(log.count(genreg::kOssGetInstanceInfo, 0x90000268), 2);
    ASSERT_EQ(set(info("VRX", "inst1")), 0U);
    EXPECT_EQ(ossGetInstanceInfo(kOther, 0, nullptr, &read), 0x90000268U);  // no match
    EXPECT_EQ(log.count(genreg::kOssGetInstanceInfo, 0x90000268), 2);
    damageRegistry(kGlobalRegInstance);
    EXPECT_EQ(ossGetInstanceInfo(kService, 0, nullptr, &read), 0x90000268U);
    EXPECT_EQ(log.count(genreg::kOssGetInstanceInfo, 0x90000268), 3);
    EXPECT_EQ(std::memcmp(&read, &before, sizeof read), 0);
  });
}

TEST(InstanceDirectory, RemoveTakesTheInstanceOut) {
  withRegistry([] {
    ASSERT_EQ(set(info("VRX", "inst1")), 0U);
    ASSERT_EQ(set(info("VRX", "inst2")), 0U);
    const CapturedLog log;
    EXPECT_EQ(ossRemoveInstanceInfo(kService, kVersion3107, kName), 0U);
    EXPECT_EQ(namesOf(kService), std::vector<std::string>{"inst2"});
    EXPECT_EQ(ossRemoveInstanceInfo(kService, kVersion3107, kName), 0x900001F6U);
    EXPECT_EQ(log.count(genreg::kOssRemoveInstanceInfo), 0);
  });
}

TEST(InstanceDirectory, RemoveChecksItsArgumentsInOrder) {
  const CapturedLog log;
  EXPECT_EQ(ossRemoveInstanceInfo(nullptr, 0, nullptr), 0x9000026FU);
  EXPECT_EQ(ossRemoveInstanceInfo(nullptr, 1, kName), 0x90000270U);
  EXPECT_EQ(ossRemoveInstanceInfo(kEmpty, 1, kName), 0x90000270U);
  EXPECT_EQ(ossRemoveInstanceInfo(kService, 1, nullptr), 0x90000271U);
  EXPECT_EQ(ossRemoveInstanceInfo(kService, 1, kEmpty), 0x90000271U);
  EXPECT_EQ(log.count(genreg::kOssRemoveInstanceInfo), 5);
}

TEST(InstanceDirectory, ChangesNameTheirFunctionInTheChangeLog) {
  withRegistry([] {
    ASSERT_EQ(set(info("VRX", "inst1", "/one")), 0U);
    ASSERT_EQ(set(info("VRX", "inst1", "/two")), 0U);
    ASSERT_EQ(ossRemoveInstanceInfo(kService, kVersion3107, kName), 0U);
    const std::string log = vrxtest::readFile("/tmp/globalreg.debug");
    EXPECT_NE(log.find(";ACT=Add;CL=N/A;REC=I,VRX,3.1.0.7,inst1,/one,,,,,,\n"), std::string::npos);
    EXPECT_NE(log.find(";ACT=Change;CL=N/A;REC=I,VRX,3.1.0.7,inst1,/two,,,,,,!I,VRX,3.1.0.7,"
                       "inst1,/two,,,,,,\n"),
              std::string::npos);
    EXPECT_NE(log.find(";ACT=Delete;CL=N/A;REC=I,VRX,3.1.0.7,inst1,,,,,,,\n"), std::string::npos);
    EXPECT_NE(log.find(";CALLER=ossSetInstanceInfo;"), std::string::npos);
    EXPECT_NE(log.find(";CALLER=ossRemoveInstanceInfo;"), std::string::npos);
  });
}

}  // namespace
