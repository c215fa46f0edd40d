// SPDX-License-Identifier: Apache-2.0
// Packed records in the binary store: private copies with room for the packed form, images bounded
// by their frames, entries of unknown fields carried over, no allocation per record.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "genreg/bin/bin_store.h"
#include "genreg/internal/function_ids.h"
#include "platform/osse/memory.h"
#include "tests/support/captured_log.h"
#include "tests/support/faults.h"
#include "tests/support/global_records.h"
#include "tests/support/packed_registry.h"
#include "tests/support/quiet_global_reg.h"
#include "tests/support/store_watch.h"

namespace {

using namespace vrxtest;
using genreg::statusOf;
namespace status = genreg::status;

std::string packedFrame(std::string_view name, std::uint32_t value,
                        const CarriedEntries& carried = {}) {
  return frameOf(PackedRegistry::imageOf(packedRecord(name, value), carried));
}

// The entry of an unknown field.
CarriedEntries carriedBit(unsigned index, const std::string& bytes) {
  return {std::uint32_t{1} << index, PackedRegistry::entryOf(bytes)};
}

// An image of this mask whose entries are these bytes, well formed or not.
std::string rawImage(std::uint32_t mask, const std::string& entries) {
  return bytesOf(mask) + entries;
}

class PackedStore : public testing::Test {
 protected:
  std::string contents() const { return readFile(files_.registry); }

  TempDir folder_;
  const PlainFiles files_{folder_};
  PackedRegistry registry_{files_.registry};
};

// --- caller's records

TEST_F(PackedStore, AddNeitherWritesToTheCallersRecordNorBehindIt) {
  Fenced<PackedRecord> record(packedRecord("sixteen-bytes-ok", 0xFFFFFFFF));
  ASSERT_GT(PackedRegistry::imageOf(*record.record()).size(), sizeof(PackedRecord));
  EXPECT_EQ(registry_.Add(kPackedName, record.record()), 0);
  EXPECT_TRUE(record.isUntouched());
  EXPECT_EQ(contents(), packedFrame("sixteen-bytes-ok", 0xFFFFFFFF));
}

TEST_F(PackedStore, ChangeAndDeleteLeaveTheCallersRecordsAlone) {
  writeFile(files_.registry, packedFrame("a", 1) + packedFrame("sixteen-bytes-ok", 2));
  Fenced<PackedRecord> key(packedRecord("sixteen-bytes-ok", 0));
  Fenced<PackedRecord> record(packedRecord("sixteen-bytes-ok", 0xFFFFFFFF));
  EXPECT_EQ(registry_.Change(kPackedName, key.record(), record.record()), 0);
  EXPECT_EQ(registry_.Delete(kPackedName, key.record()), 0);
  EXPECT_TRUE(key.isUntouched());
  EXPECT_TRUE(record.isUntouched());
  EXPECT_EQ(contents(), packedFrame("a", 1));
}

TEST_F(PackedStore, LookupsWriteTheRecordsSizeAndNothingBehindIt) {
  writeFile(files_.registry, packedFrame("a", 1) + packedFrame("sixteen-bytes-ok", 2));
  Fenced<PackedRecord> key(packedRecord("sixteen-bytes-ok", 0));
  Fenced<PackedRecord> result(packedRecord("", 0));
  ASSERT_EQ(registry_.Get(kPackedName, key.record(), result.record()), 0);
  EXPECT_TRUE(key.isUntouched());
  EXPECT_EQ(result.record()->value, 2U);
  *result.record() = packedRecord("", 0);
  EXPECT_TRUE(result.isUntouched());
}

// --- unknown entries

TEST_F(PackedStore, UnknownEntriesSurviveAnUpdateOfTheirRecordAndOfOthers) {
  const CarriedEntries first = carriedBit(7, "seven");
  const CarriedEntries second = carriedBit(31, std::string(300, 'z'));
  writeFile(files_.registry, packedFrame("a", 1, first) + packedFrame("b", 2, second));
  PackedRecord key = packedRecord("a", 0);
  PackedRecord record = packedRecord("a", 9);
  ASSERT_EQ(registry_.Change(kPackedName, &key, &record), 0);
  EXPECT_EQ(contents(), packedFrame("a", 9, first) + packedFrame("b", 2, second));
}

TEST_F(PackedStore, EveryMatchOfAChangeKeepsItsOwnUnknownEntries) {
  registry_.features |= kGenRegDuplicates;
  const CarriedEntries wide = carriedBit(9, std::string(60000, 'w'));
  const CarriedEntries narrow = carriedBit(4, "n");
  writeFile(files_.registry,
            packedFrame("a", 1, wide) + packedFrame("a", 2, narrow) + packedFrame("a", 3));
  PackedRecord key = packedRecord("a", 0);
  PackedRecord record = packedRecord("a", 9);
  ASSERT_EQ(registry_.Change(kPackedName, &key, &record), 0);
  EXPECT_EQ(contents(),
            packedFrame("a", 9, wide) + packedFrame("a", 9, narrow) + packedFrame("a", 9));
}

TEST_F(PackedStore, UnknownEntriesAreNoPartOfAComparison) {
  writeFile(files_.registry, packedFrame("a", 1, carriedBit(5, "five")));
  PackedRecord key = packedRecord("a", 0);
  PackedRecord record = packedRecord("a", 1);
  EXPECT_EQ(statusOf(registry_.Change(kPackedName, &key, &record)), status::unchanged);
}

TEST_F(PackedStore, ImageBeyondTheFrameLimitFailsTheUpdateAndNotTheLookup) {
  registry_.features |= kGenRegDuplicates;
  CarriedEntries huge;
  for (unsigned index = 4; index < 21; ++index) {
    huge.mask |= std::uint32_t{1} << index;
    huge.entries += PackedRegistry::entryOf(std::string(0xFFFF, 'h'));
  }
  const std::string before = packedFrame("huge", 1, huge) + packedFrame("a", 2);
  writeFile(files_.registry, before);
  PackedRecord key = packedRecord("a", 0);
  PackedRecord result{};
  EXPECT_EQ(registry_.Get(kPackedName, &key, &result), 0);
  EXPECT_EQ(statusOf(registry_.Delete(kPackedName, &key)), status::copy_write_failed);
  EXPECT_EQ(contents(), before);
}

// --- comparing as the record would read back

TEST_F(PackedStore, ChangeToWhatPacksToTheStoredImageIsNoChange) {
  const std::string before = packedFrame("a", 1);
  writeFile(files_.registry, before);
  PackedRecord key = packedRecord("a", 0);
  PackedRecord record = packedRecord("a", 1);
  std::memcpy(record.name + 2, "behind", 6);  // the terminator hides it, and it is not packed
  EXPECT_EQ(statusOf(registry_.Change(kPackedName, &key, &record)), status::unchanged);
  EXPECT_EQ(contents(), before);
}

TEST_F(PackedStore, ChangeIsVerifiedAgainstTheRecordAsItReadsBack) {
  writeFile(files_.registry, packedFrame("a", 1));
  PackedRecord key = packedRecord("a", 0);
  PackedRecord record = packedRecord("a", 2);
  std::memcpy(record.name + 2, "behind", 6);
  EXPECT_EQ(registry_.Change(kPackedName, &key, &record), 0);
  EXPECT_EQ(contents(), packedFrame("a", 2));
}

TEST_F(PackedStore, AddIsVerifiedAgainstTheRecordAsItReadsBack) {
  PackedRecord record = packedRecord("a", 2);
  record.mask = kPackedName;  // the value is not stored
  EXPECT_EQ(registry_.Add(kPackedName, &record), 0);
  EXPECT_EQ(contents(), frameOf(PackedRegistry::imageOf(record)));
}

// The three words of a global registry's frame that stand before its fields.
std::uint64_t missingFieldsOf(const std::string& file, std::size_t frame) {
  std::uint64_t missing = 0;
  std::memcpy(&missing, file.data() + frame + 4 + 12, sizeof missing);
  return missing;
}

TEST_F(PackedStore, ChangeStoresTheRecordAsGivenAndNotAsItReadsBack) {
  QuietGlobalReg registry(files_.registry);
  GlobalRegRecord record = variableRecord("VRX", "NAME", "1");
  ASSERT_EQ(registry.Add(kVariableKey, &record), 0);
  EXPECT_EQ(missingFieldsOf(contents(), 0), 0U);
  GlobalRegRecord key = record;
  setText(record.Variable.Value, "2");
  ASSERT_EQ(registry.Change(kVariableKey, &key, &record), 0);
  EXPECT_EQ(missingFieldsOf(contents(), 0), 0U);
}

// --- images that do not end within their frames

struct HostileImage {
  const char* what;
  std::string image;
};

std::vector<HostileImage> hostileImages() {
  const std::string zeroEntry(2, '\0');
  return {
      {"shorter than its mask", std::string(3, '\0')},
      {"empty", ""},
      {"a mask whose entry is missing", rawImage(1, "")},
      {"half of an entry's length", rawImage(1, "\1")},
      {"an entry one byte too long", rawImage(1, PackedRegistry::entryOf("ab").substr(0, 3))},
      {"an entry of the largest length", rawImage(1, "\xFF\xFF")},
      {"every bit and no entry", rawImage(~0U, "")},
      {"every bit, the first of the largest length", rawImage(~0U, "\xFF\xFF")},
      {"an unknown bit whose entry is missing", rawImage(1U << 31, "")},
      {"a known entry, an unknown one missing", rawImage(3, PackedRegistry::entryOf("n"))},
      {"all entries but the last", rawImage(7, zeroEntry + zeroEntry)},
  };
}

TEST_F(PackedStore, LookupsRefuseImagesThatRunPastTheirFrame) {
  for (const HostileImage& hostile : hostileImages()) {
    // The frame behind offers bytes to run into.
    const std::string before = frameOf(hostile.image) + packedFrame("\xFF\xFF\xFF\xFF", ~0U);
    writeFile(files_.registry, before);
    PackedRecord key = packedRecord("a", 0);
    PackedRecord result = packedRecord("kept", 5);
    EXPECT_EQ(statusOf(registry_.Get(kPackedName, &key, &result)), status::unpack_failed)
        << hostile.what;
    EXPECT_EQ(result.value, 5U) << hostile.what;
    ASSERT_EQ(registry_.OpenScan(), 0U);
    EXPECT_EQ(statusOf(registry_.GetNext(0, &key, &result)), status::unpack_failed) << hostile.what;
    EXPECT_EQ(result.value, 0U) << hostile.what;
    EXPECT_EQ(registry_.state & kGenRegStateScanEnd, 0U) << hostile.what;
    ASSERT_EQ(registry_.CloseScan(), 0U);
  }
}

TEST_F(PackedStore, UpdatesRefuseImagesThatRunPastTheirFrameAndChangeNothing) {
  for (const HostileImage& hostile : hostileImages()) {
    const std::string before = packedFrame("a", 1) + frameOf(hostile.image);
    writeFile(files_.registry, before);
    PackedRecord key = packedRecord("a", 0);
    PackedRecord record = packedRecord("new", 2);
    EXPECT_EQ(statusOf(registry_.Add(kPackedName, &record)), status::unpack_failed) << hostile.what;
    EXPECT_EQ(statusOf(registry_.Change(kPackedName, &key, &record)), status::unpack_failed)
        << hostile.what;
    EXPECT_EQ(statusOf(registry_.Delete(kPackedName, &key)), status::unpack_failed) << hostile.what;
    EXPECT_EQ(contents(), before) << hostile.what;
  }
}

TEST_F(PackedStore, MalformedImageIsLoggedWithItsOwnCode) {
  writeFile(files_.registry, frameOf(rawImage(1, "")));
  PackedRecord key = packedRecord("a", 0);
  const LoggedReasons log;
  EXPECT_EQ(statusOf(registry_.Get(0, &key, &key)), status::unpack_failed);
  EXPECT_EQ(log.count(status::unpack_failed, status::packed_malformed), 1);
}

TEST_F(PackedStore, BytesBehindAnImageInItsFrameAreLeftOutByTheNextUpdate) {
  const std::string image = PackedRegistry::imageOf(packedRecord("a", 1));
  writeFile(files_.registry, frameOf(image + "tail"));
  PackedRecord record = packedRecord("b", 2);
  ASSERT_EQ(registry_.Add(kPackedName, &record), 0);
  EXPECT_EQ(contents(), frameOf(image) + packedFrame("b", 2));
}

// The store owes every image zeros behind it, so that a walk over a hostile one comes to an end.
std::string watchedImage;
bool zerosBehind = false;
int watchZeros(void* image, unsigned long* size) {
  const auto* bytes = static_cast<const char*>(image);
  if (std::memcmp(bytes, watchedImage.data(), watchedImage.size()) == 0) {
    const std::string behind(bytes + watchedImage.size(), 0x10000 + 2 * kPackedBits);
    zerosBehind = behind.find_first_not_of('\0') == std::string::npos;
  }
  return PackedRegistry::packedSize(image, size);
}

TEST_F(PackedStore, ImageIsFollowedByZerosWhateverTheBlockHeldBefore) {
  registry_.features |= kGenRegDuplicates;
  registry_.getPackedRecordSize = watchZeros;
  const std::string wide(60000, '\xFF');
  watchedImage = rawImage(~0U, std::string("\x00\x40", 2) + std::string(40, 'q'));
  for (const char* name : {"kept", "match"}) {
    writeFile(files_.registry, packedFrame(name, 1, carriedBit(9, wide)) + frameOf(watchedImage));
    PackedRecord key = packedRecord("match", 0);
    PackedRecord record = packedRecord("match", 7);
    zerosBehind = false;
    EXPECT_EQ(statusOf(registry_.Change(kPackedName, &key, &record)), status::unpack_failed);
    EXPECT_TRUE(zerosBehind) << name;
  }
}

// On a 32-bit host the room for a frame of nearly 4 GiB must not wrap around to a small number.
TEST_F(PackedStore, FrameOfNearlyFourGibibytesIsRefusedForWantOfMemory) {
  constexpr unsigned int kLength = 0xFFFFFFF0U;
  writeFile(files_.registry, bytesOf(kLength));
  ASSERT_EQ(truncate(files_.registry.c_str(), 4 + off_t{kLength}), 0);
  PackedRecord key = packedRecord("a", 0);
  const CapturedLog log;
  const FailCall fault(Call::kMemAlloc, sizeof(long) > 4 ? 3 : INT_MAX, ENOMEM);
  EXPECT_EQ(statusOf(registry_.Get(0, &key, &key)), status::read_failed);
  EXPECT_EQ(log.count(genreg::kGenRegBinReadRecord, status::no_record_memory), 1);
}

// --- slots

TEST_F(PackedStore, EmptyUnpackSlotIsNoticedAtTheFirstFrame) {
  registry_.unpackRecord = nullptr;
  PackedRecord key = packedRecord("a", 0);
  writeFile(files_.registry, "");
  EXPECT_EQ(statusOf(registry_.Get(kPackedName, &key, &key)), status::no_match);
  key = packedRecord("a", 0);
  EXPECT_EQ(statusOf(registry_.Change(kPackedName, &key, &key)), status::no_match);
  EXPECT_EQ(statusOf(registry_.Delete(kPackedName, &key)), status::no_match);
  writeFile(files_.registry, packedFrame("a", 1));
  PackedRecord result = packedRecord("kept", 5);
  EXPECT_EQ(statusOf(registry_.Get(kPackedName, &key, &result)), status::no_unpack_slot);
  EXPECT_EQ(result.value, 5U);
  EXPECT_EQ(statusOf(registry_.Change(kPackedName, &key, &key)), status::no_unpack_slot);
  EXPECT_EQ(statusOf(registry_.Delete(kPackedName, &key)), status::no_unpack_slot);
  ASSERT_EQ(registry_.OpenScan(), 0U);
  EXPECT_EQ(statusOf(registry_.GetNext(0, &key, &result)), status::no_unpack_slot);
  EXPECT_EQ(result.value, 0U);
  EXPECT_EQ(registry_.state & kGenRegStateScanEnd, 0U);
}

TEST_F(PackedStore, EmptyPackSlotIsNoticedWhenARecordIsWritten) {
  registry_.packRecord = nullptr;
  writeFile(files_.registry, packedFrame("a", 1) + packedFrame("b", 2));
  PackedRecord key = packedRecord("a", 0);
  PackedRecord same = packedRecord("a", 1);
  PackedRecord record = packedRecord("a", 9);
  EXPECT_EQ(statusOf(registry_.Change(kPackedName, &key, &same)), status::unchanged);
  EXPECT_EQ(statusOf(registry_.Change(kPackedName, &key, &record)), status::no_pack_slot);
  EXPECT_EQ(statusOf(registry_.Delete(kPackedName, &key)), status::no_pack_slot);
  EXPECT_EQ(statusOf(registry_.Add(kPackedName, &record)), status::slots_incomplete);
  EXPECT_EQ(contents(), packedFrame("a", 1) + packedFrame("b", 2));
}

TEST_F(PackedStore, EmptyPackedSizeSlotRefusesTheWriting) {
  registry_.getPackedRecordSize = nullptr;
  const std::string before = packedFrame("a", 1) + packedFrame("b", 2);
  writeFile(files_.registry, before);
  PackedRecord key = packedRecord("a", 0);
  PackedRecord record = packedRecord("c", 9);
  PackedRecord result{};
  EXPECT_EQ(registry_.Get(kPackedName, &key, &result), 0);
  EXPECT_EQ(statusOf(registry_.Add(kPackedName, &record)), status::copy_write_failed);
  EXPECT_EQ(statusOf(registry_.Change(kPackedName, &key, &record)), status::copy_write_failed);
  EXPECT_EQ(statusOf(registry_.Delete(kPackedName, &key)), status::copy_write_failed);
  EXPECT_EQ(contents(), before);
  writeFile(files_.registry, "");
  EXPECT_EQ(statusOf(registry_.Add(kPackedName, &record)), status::record_write_failed);
}

TEST_F(PackedStore, ImageWhoseSizeCannotBeToldIsNotUnpacked) {
  writeFile(files_.registry, packedFrame("a", 1));
  registry_.getPackedRecordSize = [](void*, unsigned long*) {
    return genreg::statusInt(status::packed_malformed);
  };
  PackedRecord key = packedRecord("a", 0);
  PackedRecord result = packedRecord("kept", 5);
  EXPECT_EQ(statusOf(registry_.Get(kPackedName, &key, &result)), status::unpack_failed);
  EXPECT_EQ(result.value, 5U);
  EXPECT_EQ(PackedRegistry::unpacking.calls, 0);
}

// Without the size slot nothing proves that a stored image ends within its frame.
bool carriesAnything = false;
int watchPrevious(void** record, void* previous) {
  carriesAnything = previous != nullptr;
  return PackedRegistry::pack(record, previous);
}

TEST_F(PackedStore, ImageWhoseEndIsUnprovenIsNotWalkedForWhatItCarries) {
  registry_.packRecord = watchPrevious;
  PackedRecord key = packedRecord("none", 0);
  writeFile(files_.registry, packedFrame("a", 1));
  carriesAnything = false;
  EXPECT_EQ(statusOf(registry_.Delete(kPackedName, &key)), status::no_match);
  EXPECT_TRUE(carriesAnything);
  registry_.getPackedRecordSize = nullptr;
  writeFile(files_.registry, frameOf(rawImage(~0U, "\xFF\xFF")));
  EXPECT_EQ(statusOf(registry_.Delete(kPackedName, &key)), status::copy_write_failed);
  EXPECT_FALSE(carriesAnything);
}

TEST_F(PackedStore, PackingThatFailsAbandonsTheUpdate) {
  const std::string before = packedFrame("a", 1) + packedFrame("b", 2);
  writeFile(files_.registry, before);
  PackedRecord key = packedRecord("b", 0);
  PackedRecord record = packedRecord("b", 9);
  PackedRecord added = packedRecord("c", 9);
  const NothingKept watch;
  for (int nth = 1; nth <= 3; ++nth) {
    PackedRegistry::packing = {0, nth, status::no_packing_memory};
    EXPECT_EQ(statusOf(registry_.Change(kPackedName, &key, &record)), status::pack_failed) << nth;
    PackedRegistry::packing = {0, nth, status::no_packing_memory};
    EXPECT_EQ(statusOf(registry_.Add(kPackedName, &added)), status::pack_failed) << nth;
  }
  PackedRegistry::packing = {0, 1, status::no_packing_memory};
  EXPECT_EQ(statusOf(registry_.Delete(kPackedName, &key)), status::pack_failed);
  EXPECT_EQ(contents(), before);
  EXPECT_TRUE(lockIsFree(files_.registry));
}

TEST_F(PackedStore, AddedRecordThatDoesNotUnpackIsNotCommitted) {
  PackedRecord record = packedRecord("a", 1);
  PackedRegistry::unpacking = {0, 1, status::unknown_record_type};
  EXPECT_EQ(statusOf(registry_.Add(kPackedName, &record)), status::unpack_failed);
  EXPECT_EQ(contents(), "");
  EXPECT_EQ(readFile(files_.temporary), packedFrame("a", 1));
}

// --- memory

class PackedMemory : public PackedStore {
 protected:
  // Allocations of one operation on a registry of `count` records.
  template <class Body>
  int allocations(int count, Body body) {
    std::string frames;
    for (int i = 0; i < count; ++i)
      frames += packedFrame("n" + std::to_string(i % 9), 1);
    frames += packedFrame("last", 0);
    writeFile(files_.registry, frames);
    const CallCount calls(Call::kMemAlloc);
    EXPECT_EQ(body(), 0);
    return calls.calls();
  }
};

TEST_F(PackedMemory, NoOperationAllocatesPerRecord) {
  PackedRecord key = packedRecord("last", 0);
  PackedRecord record = packedRecord("last", 7);
  PackedRecord added = packedRecord("added", 7);
  PackedRecord result{};
  const auto get = [&] { return registry_.Get(kPackedName, &key, &result); };
  const auto add = [&] { return registry_.Add(kPackedName, &added); };
  const auto change = [&] { return registry_.Change(kPackedName, &key, &record); };
  const auto remove = [&] { return registry_.Delete(kPackedName, &key); };
  EXPECT_EQ(allocations(10, get), allocations(1000, get));
  EXPECT_EQ(allocations(10, add), allocations(1000, add));
  EXPECT_EQ(allocations(10, change), allocations(1000, change));
  EXPECT_EQ(allocations(10, remove), allocations(1000, remove));
}

}  // namespace
