// SPDX-License-Identifier: Apache-2.0
// The service directory over real registries, each in a private mount namespace.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "genreg/internal/function_ids.h"
#include "globalreg/global_reg.h"
#include "oss/directory.h"
#include "platform/osse/memory.h"
#include "tests/support/captured_log.h"
#include "tests/support/global_records.h"
#include "tests/support/memory_drought.h"
#include "tests/support/private_mounts.h"
#include "tests/support/temp_dir.h"

namespace {

using vrxtest::CapturedLog;
using vrxtest::inPrivateMounts;
using vrxtest::kVersion3107;
using vrxtest::setText;

constexpr char kRegistry[] = "/tmp/reg";

char kService[] = "VRX";
char kOther[] = "KRN";
char kEmpty[] = "";

void withRegistry(const std::function<void()>& body) {
  inPrivateMounts([&body] {
    setenv("VRX_GLOBAL_REG_PATHNAME", kRegistry, 1);
    body();
  });
}

OSSServiceInfo_t info(const char* service, const char* text1 = "") {
  OSSServiceInfo_t result{};
  result.versionCode = kVersion3107;
  setText(result.service, service);
  setText(result.text1, text1);
  return result;
}

GenRegStatus set(OSSServiceInfo_t value) {
  return ossSetServiceInfo(&value);
}

// The service record in the store's own form.
GlobalRegRecord storedRecord(const char* service) {
  GlobalReg registry;
  GlobalRegRecord key = vrxtest::serviceRecord(service);
  GlobalRegRecord found{};
  EXPECT_EQ(registry.Get(kServiceKey, &key, &found), 0);
  return found;
}

OSSServiceInfo_t get(char* service) {
  OSSServiceInfo_t read{};
  EXPECT_EQ(ossGetServiceInfo(service, kVersion3107, nullptr, &read), 0U);
  return read;
}

TEST(ServiceDirectory, EveryFieldIsStoredAndReadBack) {
  withRegistry([] {
    OSSServiceInfo_t value = info("VRX", "/opt/vrx");
    setText(value.text2, "two");
    setText(value.text3, "three");
    value.fixpackNumber = 7;
    value.num2 = 0xFFFFFFFF;
    value.flag = 'F';
    value.num3 = 3;
    value.num4 = 4;
    ASSERT_EQ(ossSetServiceInfo(&value), 0U);
    EXPECT_EQ(vrxtest::valueOf(storedRecord("VRX").FieldMask), 0x3FFU);
    const OSSServiceInfo_t read = get(kService);
    EXPECT_EQ(std::memcmp(&read, &value, sizeof value), 0);
  });
}

TEST(ServiceDirectory, ZeroNumbersAreAbsentAndReadBackAsZeroAndBlank) {
  withRegistry([] {
    ASSERT_EQ(set(info("VRX")), 0U);
    EXPECT_EQ(vrxtest::valueOf(storedRecord("VRX").FieldMask), std::uint64_t{kServiceKey});
    OSSServiceInfo_t read;
    std::memset(&read, 'x', sizeof read);
    ASSERT_EQ(ossGetServiceInfo(kService, 0, nullptr, &read), 0U);
    EXPECT_EQ(vrxtest::valueOf(read.num2), 0U);
    EXPECT_EQ(vrxtest::valueOf(read.num3), 0U);
    EXPECT_EQ(vrxtest::valueOf(read.num4), 0U);
    EXPECT_EQ(vrxtest::valueOf(read.fixpackNumber), 0U);
    EXPECT_EQ(read.flag, ' ');
    EXPECT_STREQ(read.text1, "");
    EXPECT_EQ(read.reserved[0], 'x');
  });
}

// Writes a registry of one service record with this image.
void writeImage(const std::string& image) {
  vrxtest::writeFile(kRegistry, vrxtest::bytesOf(static_cast<std::uint32_t>(image.size())) + image);
}

TEST(ServiceDirectory, AbsentNumbersAreZeroWhateverALongEntryHasLeftThere) {
  withRegistry([] {
    // An entry of text3 that runs on over everything behind it.
    writeImage(vrxtest::imageOf(2, 0x10, {vrxtest::entryOf(std::string(300, 'x'))}));
    OSSServiceInfo_t read{};
    ASSERT_EQ(ossGetServiceInfo(nullptr, 0, nullptr, &read), 0U);
    EXPECT_EQ(std::string(read.text3), std::string(255, 'x'));
    EXPECT_EQ(vrxtest::valueOf(read.fixpackNumber), 0U);
    EXPECT_EQ(vrxtest::valueOf(read.num2), 0U);
    EXPECT_EQ(read.flag, ' ');
    EXPECT_EQ(vrxtest::valueOf(read.num3), 0U);
    EXPECT_EQ(vrxtest::valueOf(read.num4), 0U);
  });
}

TEST(ServiceDirectory, FlagOfZeroThatIsPresentIsNoBlank) {
  withRegistry([] {
    writeImage(vrxtest::imageOf(2, 0x80, {vrxtest::entryOf(std::string(1, '\0'))}));
    OSSServiceInfo_t read{};
    read.flag = 'x';
    ASSERT_EQ(ossGetServiceInfo(nullptr, 0, nullptr, &read), 0U);
    EXPECT_EQ(read.flag, '\0');
  });
}

TEST(ServiceDirectory, EmptyTextsGivenToGetAreKeysThatNothingMayHave) {
  withRegistry([] {
    ASSERT_EQ(set(info("VRX")), 0U);
    OSSServiceInfo_t read{};
    const CapturedLog log;
    EXPECT_EQ(ossGetServiceInfo(kEmpty, 0, nullptr, &read), 0x90000267U);
    EXPECT_EQ(ossGetServiceInfo(nullptr, 0, kEmpty, &read), 0x90000267U);
    EXPECT_EQ(log.count(genreg::kOssGetServiceInfo, 0x90000267), 2);
  });
}

TEST(ServiceDirectory, EachNumberThatIsNotZeroIsAFieldOfItsOwn) {
  withRegistry([] {
    const struct {
      unsigned int OSSServiceInfo_t::*member;
      std::uint64_t bit;
    } numbers[] = {{&OSSServiceInfo_t::fixpackNumber, kServiceFixpackNumber},
                   {&OSSServiceInfo_t::num2, kServiceNum2},
                   {&OSSServiceInfo_t::num3, kServiceNum3},
                   {&OSSServiceInfo_t::num4, kServiceNum4}};
    for (const auto& number : numbers) {
      OSSServiceInfo_t value = info("VRX");
      value.*number.member = 5;
      ASSERT_EQ(set(value), 0U);
      EXPECT_EQ(vrxtest::valueOf(storedRecord("VRX").FieldMask), kServiceKey | number.bit);
      const OSSServiceInfo_t read = get(kService);
      EXPECT_EQ(vrxtest::valueOf(read.*number.member), 5U);
    }
  });
}

TEST(ServiceDirectory, EachPartOfTheKeyMakesAnotherService) {
  withRegistry([] {
    ASSERT_EQ(set(info("VRX", "/one")), 0U);
    OSSServiceInfo_t newer = info("VRX", "/two");
    newer.versionCode = kVersion3107 + 1;
    ASSERT_EQ(set(newer), 0U);
    ASSERT_EQ(set(info("KRN", "/three")), 0U);
    EXPECT_STREQ(get(kService).text1, "/one");
    OSSServiceInfo_t read{};
    ASSERT_EQ(ossGetServiceInfo(kService, kVersion3107 + 1, nullptr, &read), 0U);
    EXPECT_STREQ(read.text1, "/two");
  });
}

TEST(ServiceDirectory, FlagIsAnUnsignedByte) {
  withRegistry([] {
    OSSServiceInfo_t value = info("VRX");
    value.flag = '\xE9';
    ASSERT_EQ(set(value), 0U);
    EXPECT_EQ(vrxtest::valueOf(storedRecord("VRX").Services.Flag), 0xE9U);
    EXPECT_EQ(get(kService).flag, '\xE9');
    EXPECT_EQ(set(value), 0x900001F7U);
  });
}

TEST(ServiceDirectory, SettingTwiceReplacesTheWholeRecord) {
  withRegistry([] {
    OSSServiceInfo_t value = info("VRX", "/one");
    value.num3 = 3;
    ASSERT_EQ(set(value), 0U);
    ASSERT_EQ(set(info("VRX", "/two")), 0U);
    EXPECT_EQ(vrxtest::valueOf(storedRecord("VRX").FieldMask),
              std::uint64_t{kServiceKey | kServiceText1});
    EXPECT_STREQ(get(kService).text1, "/two");
    const CapturedLog log;
    EXPECT_EQ(set(info("VRX", "/two")), 0x900001F7U);
    EXPECT_EQ(log.count(genreg::kOssSetServiceInfo, 0x900001F7), 1);
  });
}

TEST(ServiceDirectory, SetChecksItsArgumentsInOrder) {
  withRegistry([] {
    const CapturedLog log;
    EXPECT_EQ(ossSetServiceInfo(nullptr), 0x90000260U);
    EXPECT_EQ(set(OSSServiceInfo_t{}), 0x9000026FU);
    EXPECT_EQ(set(info("")), 0x90000270U);
    EXPECT_EQ(log.count(genreg::kOssSetServiceInfo), 3);
  });
}

TEST(ServiceDirectory, RefusedUpdatesHaveTheirCodes) {
  withRegistry([] {
    ASSERT_EQ(set(info("VRX", "/one")), 0U);
    const std::string once = vrxtest::readFile(kRegistry);
    vrxtest::writeFile(kRegistry, once + once);
    const CapturedLog log;
    EXPECT_EQ(set(info("VRX", "/two")), 0x9000026BU);
    EXPECT_EQ(ossRemoveServiceInfo(kService, kVersion3107), 0x9000026DU);
    vrxtest::writeFile(kRegistry, once.substr(0, once.size() - 1));  // a cut frame
    EXPECT_EQ(set(info("KRN")), 0x90000269U);
    EXPECT_EQ(log.count(genreg::kOssSetServiceInfo), 2);
    EXPECT_EQ(log.count(genreg::kOssRemoveServiceInfo), 1);
  });
}

TEST(ServiceDirectory, GetCutsText2At255CharactersAndTheListDoesNot) {
  withRegistry([] {
    OSSServiceInfo_t value = info("VRX");
    setText(value.text2, std::string(1023, 't'));
    setText(value.text3, std::string(255, 'u'));
    ASSERT_EQ(set(value), 0U);
    const OSSServiceInfo_t read = get(kService);
    EXPECT_EQ(std::string(read.text2), std::string(255, 't'));
    EXPECT_EQ(reinterpret_cast<const char*>(&read)[1359], '\0');
    EXPECT_EQ(std::string(read.text3), std::string(255, 'u'));
    void* list = nullptr;
    ASSERT_EQ(ossOpenServiceList(&list), 0U);
    OSSServiceInfo_t next{};
    ASSERT_EQ(ossGetNextService(list, &next), 0U);
    EXPECT_EQ(std::string(next.text2), std::string(1023, 't'));
    EXPECT_EQ(std::string(next.text3), std::string(255, 'u'));
    EXPECT_EQ(ossCloseServiceList(list), 0U);
  });
}

TEST(ServiceDirectory, GetTakesTheFirstThatAgreesWithWhatIsGiven) {
  withRegistry([] {
    char wanted[] = "/two";
    ASSERT_EQ(set(info("VRX", "/one")), 0U);
    ASSERT_EQ(set(info("KRN", "/two")), 0U);
    OSSServiceInfo_t read{};
    ASSERT_EQ(ossGetServiceInfo(nullptr, 0, nullptr, &read), 0U);
    EXPECT_STREQ(read.service, "VRX");
    ASSERT_EQ(ossGetServiceInfo(nullptr, 0, wanted, &read), 0U);
    EXPECT_STREQ(read.service, "KRN");
    ASSERT_EQ(ossGetServiceInfo(kOther, kVersion3107, wanted, kEmpty, &read), 0U);
    EXPECT_STREQ(read.service, "KRN");
  });
}

TEST(ServiceDirectory, FailedGetLeavesTheOutputAndLogsAllButNoMatch) {
  withRegistry([] {
    const OSSServiceInfo_t before = info("kept", "kept");
    OSSServiceInfo_t read = before;
    const CapturedLog log;
    EXPECT_EQ(ossGetServiceInfo(kService, 0, nullptr, nullptr), 0x90000260U);
    EXPECT_EQ(ossGetServiceInfo(kService, 0, nullptr, &read), 0x90000267U);  // no file
    EXPECT_EQ(log.count(genreg::kOssGetServiceInfo, 0x90000267), 1);
    ASSERT_EQ(set(info("VRX")), 0U);
    EXPECT_EQ(ossGetServiceInfo(kOther, 0, nullptr, &read), 0x90000267U);  // no match
    EXPECT_EQ(log.count(genreg::kOssGetServiceInfo, 0x90000267), 1);
    EXPECT_EQ(std::memcmp(&read, &before, sizeof read), 0);
  });
}

TEST(ServiceDirectory, RemoveTakesTheServiceOut) {
  withRegistry([] {
    ASSERT_EQ(set(info("VRX")), 0U);
    EXPECT_EQ(ossRemoveServiceInfo(kService, kVersion3107 + 1), 0x900001F6U);
    EXPECT_EQ(ossRemoveServiceInfo(kService, kVersion3107), 0U);
    EXPECT_EQ(ossRemoveServiceInfo(kService, kVersion3107), 0x900001F6U);
    EXPECT_EQ(vrxtest::readFile(kRegistry), "");
  });
}

TEST(ServiceDirectory, RemoveChecksItsArgumentsInOrder) {
  EXPECT_EQ(ossRemoveServiceInfo(nullptr, 0), 0x9000026FU);
  EXPECT_EQ(ossRemoveServiceInfo(nullptr, 1), 0x90000270U);
  EXPECT_EQ(ossRemoveServiceInfo(kEmpty, 1), 0x90000270U);
}

TEST(ServiceDirectory, ChangesNameTheirFunctionInTheChangeLog) {
  withRegistry([] {
    ASSERT_EQ(set(info("VRX", "/one")), 0U);
    ASSERT_EQ(ossRemoveServiceInfo(kService, kVersion3107), 0U);
    const std::string log = vrxtest::readFile("/tmp/globalreg.debug");
    EXPECT_NE(log.find(";CALLER=ossSetServiceInfo;"), std::string::npos);
    EXPECT_NE(log.find(";ACT=Add;CL=N/A;REC=S,VRX,3.1.0.7,/one,,,,,,,\n"), std::string::npos);
    EXPECT_NE(log.find(";CALLER=ossRemoveServiceInfo;"), std::string::npos);
  });
}

TEST(ServiceList, GivesEveryServiceAndPassesOverOtherRecords) {
  withRegistry([] {
    GlobalReg registry;
    GlobalRegRecord instance = vrxtest::instanceRecord("VRX", "inst1");
    ASSERT_EQ(set(info("VRX")), 0U);
    ASSERT_EQ(registry.Add(kInstanceKey, &instance), 0);
    ASSERT_EQ(set(info("KRN")), 0U);
    const unsigned long blocks = ossMemLiveBlocks();
    void* list = nullptr;
    ASSERT_EQ(ossOpenServiceList(&list), 0U);
    OSSServiceInfo_t next{};
    ASSERT_EQ(ossGetNextService(list, &next), 0U);
    EXPECT_STREQ(next.service, "VRX");
    ASSERT_EQ(ossGetNextService(list, &next), 0U);
    EXPECT_STREQ(next.service, "KRN");
    const CapturedLog log;
    EXPECT_EQ(ossGetNextService(list, &next), 0x900001BEU);
    EXPECT_EQ(ossGetNextService(list, &next), 0x900001BEU);
    EXPECT_EQ(log.count(genreg::kOssGetNextService), 0);
    EXPECT_STREQ(next.service, "KRN");
    EXPECT_EQ(ossCloseServiceList(list), 0U);
    EXPECT_EQ(ossMemLiveBlocks(), blocks);
  });
}

TEST(ServiceList, NullArgumentsAreRefused) {
  withRegistry([] {
    OSSServiceInfo_t next{};
    void* list = nullptr;
    EXPECT_EQ(ossOpenServiceList(nullptr), 0x90000262U);
    EXPECT_EQ(ossGetNextService(nullptr, &next), 0x90000262U);
    ASSERT_EQ(ossOpenServiceList(&list), 0U);
    EXPECT_EQ(ossGetNextService(list, nullptr), 0x90000260U);
    EXPECT_EQ(ossCloseServiceList(list), 0U);
    EXPECT_EQ(ossCloseServiceList(nullptr), 0x90000262U);
  });
}

TEST(ServiceList, FailuresHaveTheirCodesAndLeaveNoMemory) {
  withRegistry([] {
    const unsigned long blocks = ossMemLiveBlocks();
    void* list = nullptr;
    const CapturedLog log;
    ASSERT_EQ(mkdir(kRegistry, 0755), 0);
    EXPECT_EQ(ossOpenServiceList(&list), 0x90000263U);
    EXPECT_EQ(log.count(genreg::kOssOpenServiceList, 0x90000263), 1);
    EXPECT_EQ(list, nullptr);
    ASSERT_EQ(rmdir(kRegistry), 0);
    vrxtest::writeFile(kRegistry, "xx");  // a cut length field
    OSSServiceInfo_t next{};
    ASSERT_EQ(ossOpenServiceList(&list), 0U);
    EXPECT_EQ(ossGetNextService(list, &next), 0x90000265U);
    EXPECT_EQ(log.count(genreg::kOssGetNextService, 0x90000265), 1);
    ASSERT_EQ(close(fileno(static_cast<GlobalReg*>(list)->registryStream)), 0);
    EXPECT_EQ(ossCloseServiceList(list), 0x90000264U);
    EXPECT_EQ(ossMemLiveBlocks(), blocks);
  });
}

TEST(ServiceList, WithoutMemoryIsRefused) {
  if (!vrxtest::kMemoryCanRunOut) GTEST_SKIP() << "a sanitizer keeps its own memory";
  withRegistry([] {
    void* list = nullptr;
    GenRegStatus rc = 0;
    {
      const vrxtest::MemoryDrought drought;
      rc = ossOpenServiceList(&list);
    }
    EXPECT_EQ(rc, 0x9000027FU);
    EXPECT_EQ(list, nullptr);
  });
}

}  // namespace
