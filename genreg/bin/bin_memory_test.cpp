// SPDX-License-Identifier: Apache-2.0
// The binary store's operations where memory fails, at one allocation after the other: the status
// tells, the registry is as it was, and nothing is kept or held.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "tests/support/faults.h"
#include "tests/support/global_records.h"
#include "tests/support/leak_check.h"
#include "tests/support/packed_registry.h"
#include "tests/support/plain_registry.h"
#include "tests/support/quiet_global_reg.h"
#include "tests/support/store_watch.h"
#include "tests/support/temp_dir.h"

namespace {

using namespace vrxtest;
using genreg::statusOf;
namespace status = genreg::status;

enum class Work { kGet, kGetNext, kAdd, kChange, kDelete };
constexpr Work kEveryWork[] = {Work::kGet, Work::kGetNext, Work::kAdd, Work::kChange,
                               Work::kDelete};
constexpr int kMostAllocations = 100;

template <class Record>
GenRegStatus run(GenRegBin& registry, Work work, unsigned long long mask, Record key,
                 Record other) {
  Record found{};
  switch (work) {
    case Work::kGet:
      return statusOf(registry.Get(mask, &key, &found));
    case Work::kGetNext:
      if (registry.OpenScan() != 0) return status::open_failed;
      return statusOf(registry.GetNext(mask, &key, &found));
    case Work::kAdd:
      return statusOf(registry.Add(mask, &other));
    case Work::kChange:
      return statusOf(registry.Change(mask, &key, &other));
    case Work::kDelete:
      break;
  }
  return statusOf(registry.Delete(mask, &key));
}

// Lets each allocation of the operation fail, until it has no further one. `operate` runs it on a
// fresh object.
template <class Operate>
void failEachAllocation(const PlainFiles& files, const std::string& before, Operate operate) {
  int nth = 1;
  for (bool fired = true; fired; ++nth) {
    ASSERT_LT(nth, kMostAllocations);
    writeFile(files.registry, before);
    const LeakCheck none;
    GenRegStatus rc = 0;
    {
      const FailCall fault(Call::kMemAlloc, nth, ENOMEM);
      rc = operate();
      fired = fault.fired();
    }
    EXPECT_TRUE(fired || rc == 0) << nth;
    EXPECT_TRUE(rc == 0 || readFile(files.registry) == before) << nth;
    EXPECT_TRUE(lockIsFree(files.registry)) << nth;
    EXPECT_FALSE(pathExists(files.backup)) << nth;
    (void)unlink(files.temporary.c_str());  // may be left
  }
  EXPECT_GT(nth, 2) << "no allocation has failed";
}

TEST(BinMemory, PlainRecordsLongerThanTheLargestSurviveEveryFailure) {
  const TempDir folder;
  const PlainFiles files(folder);
  const PlainRecord key = plainRecord("b", 2);
  const std::string before =
      plainFrame("a", 1) + frameOf(std::string(60, 'l')) + plainFrame("b", 2);
  for (const Work work : kEveryWork) {
    const PlainRecord other = plainRecord(work == Work::kAdd ? "c" : "b", 3);
    failEachAllocation(files, before, [&] {
      PlainRegistry registry(files.registry);
      return run(registry, work, kPlainName, key, other);
    });
  }
}

TEST(BinMemory, PackedRecordsSurviveEveryFailure) {
  const TempDir folder;
  const PlainFiles files(folder);
  const PackedRecord key = packedRecord("b", 2);
  const CarriedEntries unknown = {0x10, PackedRegistry::entryOf(std::string(4000, 'u'))};
  const std::string before = frameOf(PackedRegistry::imageOf(packedRecord("a", 1), unknown)) +
                             frameOf(PackedRegistry::imageOf(key, unknown));
  for (const Work work : kEveryWork) {
    const PackedRecord other = packedRecord(work == Work::kAdd ? "c" : "b", 3);
    failEachAllocation(files, before, [&] {
      PackedRegistry registry(files.registry);
      return run(registry, work, kPackedName, key, other);
    });
  }
}

TEST(BinMemory, RecordsThatAreComparedAsTheyLieSurviveEveryFailure) {
  const TempDir folder;
  const PlainFiles files(folder);
  const GlobalRegRecord key = variableRecord("VRX", "B", "2");
  const auto image = [](const char* variable, const char* value) {
    return frameOf(
        imageOf(kGlobalRegVariable, kVariableKey | kVariableValue,
                {entryOf(std::string("VRX") + '\0'), entryOf(variable + std::string(1, '\0')),
                 entryOf(value + std::string(1, '\0'))}));
  };
  const auto failEach = [&](const std::string& before, Work work) {
    const GlobalRegRecord other = variableRecord("VRX", work == Work::kAdd ? "D" : "B", "4");
    failEachAllocation(files, before, [&] {
      QuietGlobalReg registry(files.registry);
      return run(registry, work, kVariableKey, key, other);
    });
  };
  for (const Work work : kEveryWork)
    failEach(image("A", "1") + image("B", "2") + image("C", "3"), work);
  failEach("", Work::kAdd);  // verified without any other record to read first
  failEach(image("B", "2"), Work::kDelete);
}

TEST(BinMemory, ScanWithoutItsReaderIsReportedAndGoesOnLater) {
  const TempDir folder;
  const PlainFiles files(folder);
  writeFile(files.registry, plainFrame("a", 1));
  PlainRegistry registry(files.registry);
  ASSERT_EQ(registry.OpenScan(), 0U);
  PlainRecord key{};
  PlainRecord found{};
  {
    const FailCall fault(Call::kNew, 1, ENOMEM);
    EXPECT_EQ(statusOf(registry.GetNext(0, &key, &found)), status::no_scratch_memory);
    EXPECT_TRUE(fault.fired());
  }
  EXPECT_EQ(registry.GetNext(0, &key, &found), 0);
  EXPECT_TRUE(found == plainRecord("a", 1));
}

}  // namespace
