// SPDX-License-Identifier: Apache-2.0
// Lists of instances over real registries, each in a private mount namespace.
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

TEST(InstanceList, GivesTheServicesInstancesOneByOneAndThenItsEnd) {
  withRegistry([] {
    ASSERT_EQ(set(info("VRX", "inst1")), 0U);
    ASSERT_EQ(set(info("KRN", "inst2")), 0U);
    ASSERT_EQ(set(info("VRX", "inst3")), 0U);
    EXPECT_EQ(namesOf(kOther), std::vector<std::string>{"inst2"});
    const unsigned long blocks = ossMemLiveBlocks();
    void* list = nullptr;
    ASSERT_EQ(ossOpenInstanceList(kService, &list), 0U);
    OSSInstanceInfo_t next{};
    ASSERT_EQ(ossGetNextInstance(list, &next), 0U);
    EXPECT_STREQ(next.instanceName, "inst1");
    ASSERT_EQ(ossGetNextInstance(list, &next), 0U);
    EXPECT_STREQ(next.instanceName, "inst3");
    const OSSInstanceInfo_t last = next;
    const CapturedLog log;
    EXPECT_EQ(ossGetNextInstance(list, &next), 0x900001BEU);
    EXPECT_EQ(ossGetNextInstance(list, &next), 0x900001BEU);
    EXPECT_EQ(log.count(genreg::kOssGetNextInstance), 0);
    EXPECT_EQ(std::memcmp(&next, &last, sizeof next), 0);
    EXPECT_EQ(ossCloseInstanceList(list), 0U);
    EXPECT_EQ(ossMemLiveBlocks(), blocks);
  });
}

TEST(InstanceList, FilterIsTheCallersStringAndNoCopy) {
  withRegistry([] {
    ASSERT_EQ(set(info("VRX", "inst1")), 0U);
    ASSERT_EQ(set(info("KRN", "inst2")), 0U);
    char filter[] = "VRX";
    void* list = nullptr;
    ASSERT_EQ(ossOpenInstanceList(filter, &list), 0U);
    EXPECT_EQ(static_cast<GlobalReg*>(list)->ListService, filter);
    OSSInstanceInfo_t next{};
    ASSERT_EQ(ossGetNextInstance(list, &next), 0U);
    EXPECT_STREQ(next.instanceName, "inst1");
    setText(filter, "KRN");
    ASSERT_EQ(ossGetNextInstance(list, &next), 0U);
    EXPECT_STREQ(next.instanceName, "inst2");
    EXPECT_EQ(ossCloseInstanceList(list), 0U);
  });
}

TEST(InstanceList, FlagsGatherOverTheList) {
  withRegistry([] {
    OSSInstanceInfo_t booting = info("VRX", "inst1");
    booting.flags = kInstanceFlagStartAtBoot;
    ASSERT_EQ(set(booting), 0U);
    OSSInstanceInfo_t serviced = info("VRX", "inst2");
    serviced.flags = kInstanceFlagMaintenance;
    ASSERT_EQ(set(serviced), 0U);
    void* list = nullptr;
    ASSERT_EQ(ossOpenInstanceList(kService, &list), 0U);
    OSSInstanceInfo_t next{};
    ASSERT_EQ(ossGetNextInstance(list, &next), 0U);
    EXPECT_EQ(vrxtest::valueOf(next.flags), kInstanceFlagStartAtBoot);
    ASSERT_EQ(ossGetNextInstance(list, &next), 0U);
    EXPECT_EQ(vrxtest::valueOf(next.flags), kInstanceFlagStartAtBoot | kInstanceFlagMaintenance);
    EXPECT_EQ(ossCloseInstanceList(list), 0U);
  });
}

TEST(InstanceList, EmptyFilterIsRefusedWhenReading) {
  withRegistry([] {
    ASSERT_EQ(set(info("VRX", "inst1")), 0U);
    void* list = nullptr;
    ASSERT_EQ(ossOpenInstanceList(kEmpty, &list), 0U);
    OSSInstanceInfo_t next{};
    EXPECT_EQ(ossGetNextInstance(list, &next), 0x90000266U);  // an empty service is no service
    EXPECT_EQ(ossCloseInstanceList(list), 0U);
  });
}

TEST(InstanceList, WithoutABlockIsRefusedAndOneThatIsNotReleasedIsOnlyLogged) {
  withRegistry([] {
    void* list = nullptr;
    const CapturedLog log;
    {
      const vrxtest::FailCall fault(vrxtest::Call::kMemAlloc, 1, ENOMEM);
      EXPECT_EQ(ossOpenInstanceList(kService, &list), 0x9000027FU);
      EXPECT_EQ(list, nullptr);
    }
    EXPECT_EQ(log.count(genreg::kOssOpenInstanceList, 0x9000027F), 1);
    const vrxtest::CallCount releases(vrxtest::Call::kMemFree);
    ASSERT_EQ(ossOpenInstanceList(kService, &list), 0U);
    const int ofOpening = releases.calls();
    ASSERT_EQ(ossCloseInstanceList(list), 0U);
    const int last = releases.calls() - ofOpening;  // the list itself
    ASSERT_EQ(ossOpenInstanceList(kService, &list), 0U);
    const vrxtest::FailCall fault(vrxtest::Call::kMemFree, last, EINVAL);
    EXPECT_EQ(ossCloseInstanceList(list), 0U);
    EXPECT_TRUE(fault.fired());
    EXPECT_EQ(log.count(genreg::kOssCloseInstanceList), 1);
  });
}

TEST(InstanceList, OfARegistryWithoutAFileIsEmpty) {
  withRegistry([] { EXPECT_TRUE(namesOf(kService).empty()); });
}

TEST(InstanceList, HostWideListPassesByTheInstancesOwnRegistry) {
  inPrivateMounts([] {
    unsetenv("VRX_GLOBAL_REG_PATHNAME");
    setenv("VRXINSTANCE", "no such user", 1);
    void* list = nullptr;
    EXPECT_NE(ossOpenInstanceList(kService, &list, false), 0U);
    EXPECT_EQ(list, nullptr);
    ASSERT_EQ(ossOpenInstanceList(kService, &list, true), 0U);
    EXPECT_STREQ(static_cast<GlobalReg*>(list)->registryPath, "/var/vrx/global.reg");
    EXPECT_EQ(ossCloseInstanceList(list), 0U);
  });
}

TEST(InstanceList, NullArgumentsAreRefused) {
  withRegistry([] {
    void* list = nullptr;
    const CapturedLog log;
    const unsigned long blocks = ossMemLiveBlocks();
    EXPECT_EQ(ossOpenInstanceList(kService, nullptr), 0x90000262U);
    EXPECT_EQ(ossOpenInstanceList(nullptr, &list), 0x90000280U);
    EXPECT_EQ(list, nullptr);
    EXPECT_EQ(log.count(genreg::kOssOpenInstanceList), 2);
    OSSInstanceInfo_t next{};
    EXPECT_EQ(ossGetNextInstance(nullptr, &next), 0x90000262U);
    ASSERT_EQ(ossOpenInstanceList(kService, &list), 0U);
    EXPECT_EQ(ossGetNextInstance(list, nullptr), 0x90000261U);
    EXPECT_EQ(ossCloseInstanceList(list), 0U);
    EXPECT_EQ(ossCloseInstanceList(nullptr), 0x90000262U);
    EXPECT_EQ(log.count(genreg::kOssGetNextInstance), 2);
    EXPECT_EQ(log.count(genreg::kOssCloseInstanceList), 1);
    EXPECT_EQ(ossMemLiveBlocks(), blocks);
  });
}

TEST(InstanceList, ThatCannotBeOpenedGivesTheScansCodeAndLeavesNoMemory) {
  withRegistry([] {
    ASSERT_EQ(mkdir(kRegistry, 0755), 0);
    const unsigned long blocks = ossMemLiveBlocks();
    const int descriptors = vrxtest::openDescriptorCount();
    void* list = nullptr;
    EXPECT_EQ(ossOpenInstanceList(kService, &list), 0x900001BFU);
    EXPECT_EQ(list, nullptr);
    EXPECT_EQ(ossMemLiveBlocks(), blocks);
    EXPECT_EQ(vrxtest::openDescriptorCount(), descriptors);
  });
}

TEST(InstanceList, WithoutMemoryIsRefused) {
  if (!vrxtest::kMemoryCanRunOut) GTEST_SKIP() << "a sanitizer keeps its own memory";
  withRegistry([] {
    void* list = nullptr;
    GenRegStatus rc = 0;
    {
      const vrxtest::MemoryDrought drought;
      rc = ossOpenInstanceList(kService, &list);
    }
    EXPECT_EQ(rc, 0x9000027FU);
    EXPECT_EQ(list, nullptr);
  });
}

TEST(InstanceList, DamagedRegistryIsReportedAndLogged) {
  withRegistry([] {
    damageRegistry(kGlobalRegInstance);
    void* list = nullptr;
    ASSERT_EQ(ossOpenInstanceList(kService, &list), 0U);
    OSSInstanceInfo_t next{};
    const CapturedLog log;
    EXPECT_EQ(ossGetNextInstance(list, &next), 0x90000266U);
    EXPECT_EQ(log.count(genreg::kOssGetNextInstance, 0x90000266), 1);
    EXPECT_EQ(ossCloseInstanceList(list), 0U);
  });
}

TEST(InstanceList, CloseThatFailsFreesTheListAllTheSame) {
  withRegistry([] {
    const unsigned long blocks = ossMemLiveBlocks();
    void* list = nullptr;
    ASSERT_EQ(ossOpenInstanceList(kService, &list), 0U);
    ASSERT_EQ(close(fileno(static_cast<GlobalReg*>(list)->registryStream)), 0);
    const CapturedLog log;
    EXPECT_EQ(ossCloseInstanceList(list), 0x90000264U);
    EXPECT_EQ(log.count(genreg::kOssCloseInstanceList, 0x90000264), 1);
    EXPECT_EQ(ossMemLiveBlocks(), blocks);
  });
}

}  // namespace
