// SPDX-License-Identifier: Apache-2.0
// Fix-pack synchronisation over real registries and level files, each in a private mount namespace.
#include "globalreg/fixpack_sync.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "genreg/internal/function_ids.h"
#include "platform/osse/memory.h"
#include "tests/support/captured_log.h"
#include "tests/support/faults.h"
#include "tests/support/global_records.h"
#include "tests/support/private_mounts.h"
#include "tests/support/temp_dir.h"

namespace {

using vrxtest::Call;
using vrxtest::CapturedLog;
using vrxtest::entryOf;
using vrxtest::FailCall;
using vrxtest::imageOf;
using vrxtest::inPrivateMounts;
using vrxtest::kVersion3107;
using vrxtest::serviceRecord;

constexpr char kRegistry[] = "/tmp/reg";
constexpr char kLevel[] = "/tmp/level";

// What *changed holds before a call, to be found again after a failure.
constexpr unsigned int kUntouched = 4711;

// Runs the body with a registry of its own and an installation of 3.1.0.7 with fix pack 9.
void withInstallation(const std::function<void()>& body) {
  inPrivateMounts([&body] {
    setenv("VRX_GLOBAL_REG_PATHNAME", kRegistry, 1);
    setenv("VRX_LEVEL_FILE", kLevel, 1);
    vrxtest::writeFile(kLevel, "version=3.1.0.7\nbuild_level=s250131\nfixpack=9\n");
    body();
  });
}

GlobalRegRecord service(const char* name, unsigned int fixpack,
                        unsigned long long version = kVersion3107) {
  GlobalRegRecord record = serviceRecord(name, version);
  record.FieldMask |= kServiceFixpackNumber;
  record.Services.FixpackNumber = fixpack;
  return record;
}

std::string frameOf(const std::string& image) {
  return vrxtest::bytesOf(static_cast<std::uint32_t>(image.size())) + image;
}

// The frame of a service record with a fix-pack number, and with more entries behind it.
std::string serviceFrame(const std::string& name, unsigned int fixpack, std::uint64_t more = 0,
                         const std::string& entries = "", std::uint64_t missing = 0) {
  const std::string own = entryOf(name + '\0') + entryOf(vrxtest::bytesOf(kVersion3107)) +
                          entryOf(vrxtest::bytesOf(fixpack));
  return frameOf(imageOf(2, 0x23 | more, {own, entries}, missing));
}

void add(GlobalRegRecord record) {
  GlobalReg registry;
  ASSERT_EQ(registry.Add(record.FieldMask, &record), 0);
}

// The fix-pack numbers in file order; 0 stands for a record without one.
std::vector<unsigned int> fixpacks() {
  std::vector<unsigned int> found;
  GlobalReg registry;
  GlobalRegRecord key{};
  GlobalRegRecord record{};
  EXPECT_EQ(registry.OpenScan(), 0U);
  while (registry.GetNext(0, &key, &record) == 0)
    found.push_back(record.Services.FixpackNumber);
  return found;
}

// Synchronises and gives the number of changes.
unsigned int sync() {
  GlobalReg registry;
  unsigned int changed = kUntouched;
  EXPECT_EQ(genregSyncGlobalRegFixpackNumber(&registry, &changed), 0U);
  return changed;
}

// Synchronises in vain: gives the code after a look at what a failure must leave.
GenRegStatus failedSync() {
  GlobalReg registry;
  unsigned int changed = kUntouched;
  const unsigned long blocks = ossMemLiveBlocks();
  const int descriptors = vrxtest::openDescriptorCount();
  const CapturedLog log;
  const GenRegStatus rc = genregSyncGlobalRegFixpackNumber(&registry, &changed);
  EXPECT_NE(rc, 0U);
  EXPECT_EQ(changed, kUntouched);
  EXPECT_EQ(registry.registryStream, nullptr) << "the scan is closed";
  EXPECT_EQ(ossMemLiveBlocks(), blocks);
  EXPECT_EQ(vrxtest::openDescriptorCount(), descriptors);
  EXPECT_GE(log.count(genreg::kGenregSyncGlobalRegFixpackNumber), 1);
  return rc;
}

using Numbers = std::vector<unsigned int>;

TEST(FixpackSync, RewritesWhatIsBehindAndTheSecondRunFindsNothing) {
  withInstallation([] {
    add(service("VRX", 7));
    add(service("KRN", 8));
    add(service("VRX", 9));
    EXPECT_EQ(sync(), 2U);
    EXPECT_EQ(fixpacks(), (Numbers{9, 9, 9}));
    const std::string once = vrxtest::readFile(kRegistry);
    EXPECT_EQ(sync(), 0U);
    EXPECT_EQ(vrxtest::readFile(kRegistry), once);
  });
}

TEST(FixpackSync, NumbersThatAreAheadAreSetBackToo) {
  withInstallation([] {
    add(service("VRX", 0xFFFFFFFF));
    EXPECT_EQ(sync(), 1U);
    EXPECT_EQ(fixpacks(), Numbers{9});
  });
}

TEST(FixpackSync, InstallationWithoutAFixPackSetsZeroAndKeepsTheField) {
  withInstallation([] {
    vrxtest::writeFile(kLevel, "version=3.1.0.7\nbuild_level=s250131\nfixpack=0\n");
    add(service("VRX", 7));
    EXPECT_EQ(sync(), 1U);
    EXPECT_EQ(vrxtest::readFile(kRegistry).substr(8, 8), vrxtest::bytesOf(std::uint64_t{0x23}));
    EXPECT_EQ(fixpacks(), Numbers{0});
    EXPECT_EQ(sync(), 0U);
  });
}

TEST(FixpackSync, OtherVersionsNamesAndKindsAreLeftAlone) {
  withInstallation([] {
    add(service("VRX", 7, kVersion3107 + 1));
    for (const char* name : {"vrx", "VRX2", "VR", "krn", "OTHER"})
      add(service(name, 7));
    add(vrxtest::instanceRecord("VRX", "inst1"));
    add(vrxtest::variableRecord("VRX", "A", "1"));
    const std::string before = vrxtest::readFile(kRegistry);
    EXPECT_EQ(sync(), 0U);
    EXPECT_EQ(vrxtest::readFile(kRegistry), before);
  });
}

TEST(FixpackSync, RecordWithoutTheFieldIsLeftAlone) {
  withInstallation([] {
    add(serviceRecord("VRX"));
    EXPECT_EQ(sync(), 0U);
    EXPECT_EQ(fixpacks(), Numbers{0});
  });
}

TEST(FixpackSync, RegistryThatDoesNotExistHasNothingToChange) {
  withInstallation([] { EXPECT_EQ(sync(), 0U); });
}

TEST(FixpackSync, ShortVersionOfTheInstallationMeansItsZeros) {
  withInstallation([] {
    vrxtest::writeFile(kLevel, "version=3.1\nbuild_level=s250131\nfixpack=9\n");
    add(service("VRX", 7));
    add(service("KRN", 7, 0x0003000100000000ULL));
    EXPECT_EQ(sync(), 1U);
    EXPECT_EQ(fixpacks(), (Numbers{7, 9}));
  });
}

TEST(FixpackSync, OtherFieldsAndThoseOfLaterRevisionsStay) {
  withInstallation([] {
    constexpr std::uint64_t kLater = 1ULL << 12;
    const std::string more =
        entryOf("F") + entryOf(vrxtest::bytesOf(4U)) + entryOf("a later field");
    const std::uint64_t bits = kServiceFlag | kServiceNum4 | kLater;
    constexpr std::uint64_t kMissing = 1ULL << 13;
    vrxtest::writeFile(kRegistry, serviceFrame("VRX", 7, bits, more, kMissing));
    EXPECT_EQ(sync(), 1U);
    // The mask of missing fields tells of a read: validation clears it before a write.
    EXPECT_EQ(vrxtest::readFile(kRegistry), serviceFrame("VRX", 9, bits, more));
  });
}

TEST(FixpackSync, ChangesNameTheFunctionInTheChangeLog) {
  withInstallation([] {
    add(service("VRX", 7));
    ASSERT_EQ(unlink("/tmp/globalreg.debug"), 0);
    EXPECT_EQ(sync(), 1U);
    const std::string log = vrxtest::readFile("/tmp/globalreg.debug");
    EXPECT_NE(log.find(";CALLER=genregSyncGlobalRegFixpackNumber;"), std::string::npos);
    EXPECT_NE(log.find(";ACT=Change;CL=N/A;REC=S,VRX,3.1.0.7,,,,7,,,,!S,VRX,3.1.0.7,,,,9,,,,\n"),
              std::string::npos)
        << log;
  });
}

TEST(FixpackSync, AllAreFoundBeforeTheFirstIsChanged) {
  withInstallation([] {
    const std::string good = serviceFrame("VRX", 7);
    vrxtest::writeFile(kRegistry, good + good.substr(0, good.size() - 1));  // a cut frame
    EXPECT_EQ(failedSync(), 0x900001CDU);
    EXPECT_EQ(vrxtest::readFile(kRegistry), good + good.substr(0, good.size() - 1));
  });
}

TEST(FixpackSync, NullArgumentsAreRefused) {
  withInstallation([] {
    GlobalReg registry;
    unsigned int changed = kUntouched;
    EXPECT_EQ(genregSyncGlobalRegFixpackNumber(nullptr, &changed), 0x9000000CU);
    EXPECT_EQ(genregSyncGlobalRegFixpackNumber(&registry, nullptr), 0x9000000CU);
    EXPECT_EQ(changed, kUntouched);
  });
}

TEST(FixpackSync, LevelFileThatIsMissingOrMalformedGivesItsOwnCode) {
  withInstallation([] {
    add(service("VRX", 7));
    ASSERT_EQ(unlink(kLevel), 0);
    EXPECT_EQ(failedSync(), GenRegStatus{oss::status::level_file_missing});
    vrxtest::writeFile(kLevel, "version=3.1.0.7\n");
    EXPECT_EQ(failedSync(), GenRegStatus{oss::status::level_file_malformed});
    EXPECT_EQ(fixpacks(), Numbers{7});
  });
}

TEST(FixpackSync, ScanThatCannotBeOpenedIsReported) {
  withInstallation([] {
    ASSERT_EQ(mkdir(kRegistry, 0755), 0);
    EXPECT_EQ(failedSync(), 0x900001C5U);
  });
}

TEST(FixpackSync, ScanThatCannotBeClosedIsReportedAndNothingChanged) {
  withInstallation([] {
    add(service("VRX", 7));
    const CapturedLog log;
    GlobalReg registry;
    unsigned int changed = kUntouched;
    const FailCall fault(Call::kFclose, 1, EIO);
    EXPECT_EQ(genregSyncGlobalRegFixpackNumber(&registry, &changed), 0x900001C5U);
    EXPECT_TRUE(fault.fired());
    EXPECT_EQ(changed, kUntouched);
    EXPECT_EQ(log.count(genreg::kGenregSyncGlobalRegFixpackNumber, 0x900001C6), 1);
    EXPECT_EQ(log.count(genreg::kGenregSyncGlobalRegFixpackNumber), 1);
    EXPECT_EQ(fixpacks(), Numbers{7});
  });
}

TEST(FixpackSync, FailureOfReadingCountsBeforeThatOfClosing) {
  withInstallation([] {
    vrxtest::writeFile(kRegistry, "xx");  // a cut length
    const FailCall fault(Call::kFclose, 1, EIO);
    EXPECT_EQ(failedSync(), 0x900001CDU);
    EXPECT_TRUE(fault.fired());
  });
}

TEST(FixpackSync, ChangeThatFailsKeepsTheEarlierOnesAndMakesNoLaterOnes) {
  withInstallation([] {
    vrxtest::writeFile(kRegistry, serviceFrame("VRX", 7) + serviceFrame("KRN", 7) +
                                      serviceFrame("KRN", 7, 0x1000, entryOf("x")) +
                                      serviceFrame("VRX", 8));
    // The two records of KRN agree in every field that the first of them has.
    EXPECT_EQ(failedSync(), 0x900001F8U);
    EXPECT_EQ(fixpacks(), (Numbers{9, 7, 7, 8}));
  });
}

// Each allocation is refused in turn: of the two records' nodes, of what the scan and the changes
// take, and of what an update can do without.
TEST(FixpackSync, WithoutMemoryEverythingIsGivenBack) {
  withInstallation([] {
    const std::string before = serviceFrame("VRX", 7) + serviceFrame("KRN", 7);
    int refusedNodes = 0;
    for (int nth = 1;; ++nth) {
      vrxtest::writeFile(kRegistry, before);
      const FailCall fault(Call::kMemAlloc, nth, ENOMEM);
      unsigned int changed = kUntouched;
      GlobalReg registry;
      const unsigned long blocks = ossMemLiveBlocks();
      const GenRegStatus rc = genregSyncGlobalRegFixpackNumber(&registry, &changed);
      EXPECT_EQ(ossMemLiveBlocks(), blocks) << nth;
      EXPECT_EQ(registry.registryStream, nullptr) << nth;
      if (!fault.fired()) break;
      ASSERT_LT(nth, 100);
      EXPECT_EQ(changed, rc == 0 ? 2U : kUntouched) << nth;
      if (rc != 0x9000000DU) continue;
      ++refusedNodes;
      EXPECT_EQ(vrxtest::readFile(kRegistry), before) << nth;
    }
    EXPECT_EQ(refusedNodes, 2);
    EXPECT_EQ(fixpacks(), (Numbers{9, 9}));
  });
}

}  // namespace
