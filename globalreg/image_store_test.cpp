// SPDX-License-Identifier: Apache-2.0
// Lookups and updates of stored images do and report what they do without the image slots, where
// every record is unpacked. What single images tell is image_test's.
#include <gtest/gtest.h>
#include <unistd.h>

#include <random>
#include <string>
#include <vector>

#include "genreg/status.h"
#include "globalreg/internal/fields.h"
#include "tests/support/global_records.h"
#include "tests/support/plain_registry.h"
#include "tests/support/quiet_global_reg.h"
#include "tests/support/temp_dir.h"

namespace {

using namespace vrxtest;
using genreg::statusOf;
namespace status = genreg::status;

std::string text(const std::string& value) {
  return entryOf(value + '\0');
}

class ImageStore : public testing::Test {
 protected:
  void fill(const std::string& bytes) { writeFile(path_, bytes); }
  GenRegStatus get(GlobalRegRecord key) {
    return statusOf(registry_.Get(kVariableKey, &key, &found_));
  }

  const TempDir folder_;
  const std::string path_ = folder_.file("reg");
  QuietGlobalReg registry_{path_};
  GlobalRegRecord found_{};
};

TEST_F(ImageStore, DamageBehindWhatDiffersEndsALookup) {
  std::string damaged = imageOf(kGlobalRegVariable, 3, {text("other"), text("A")});
  damaged[28] = '\x7F';  // the second entry now runs past the frame
  const std::string wanted = imageOf(kGlobalRegVariable, 3, {text("VRX"), text("A")});
  fill(frameOf(damaged) + frameOf(wanted));
  GlobalRegRecord key = variableRecord("VRX", "A", "x");
  EXPECT_EQ(get(key), status::unpack_failed);
  ASSERT_EQ(registry_.OpenScan(), 0U);
  EXPECT_EQ(statusOf(registry_.GetNext(kVariableKey, &key, &found_)), status::unpack_failed);
  EXPECT_EQ(registry_.GetNext(kVariableKey, &key, &found_), 0);
}

TEST_F(ImageStore, RecordBeyondTheFrameLimitRefusesTheUpdateOfAnother) {
  std::vector<std::string> entries{text("other"), text("A"), text("1"), text("c")};
  std::uint64_t mask = kVariableKnown;
  for (unsigned bit = 4; bit < 21; ++bit) {
    mask |= std::uint64_t{1} << bit;
    entries.push_back(entryOf(std::string(0xFFFF, 'h')));
  }
  const std::string before = frameOf(imageOf(kGlobalRegVariable, mask, entries)) +
                             frameOf(imageOf(kGlobalRegVariable, 3, {text("VRX"), text("A")}));
  fill(before);
  GlobalRegRecord key = variableRecord("VRX", "A", "x");
  EXPECT_EQ(get(key), 0U);
  EXPECT_EQ(statusOf(registry_.Delete(kVariableKey, &key)), status::copy_write_failed);
  EXPECT_TRUE(readFile(path_) == before) << "a mebibyte is not worth printing";
}

// Files of many small records, some with fields of a later revision, some damaged.
class Files {
 public:
  explicit Files(unsigned seed) : random_(seed) {}

  unsigned below(unsigned limit) { return static_cast<unsigned>(random_() % limit); }

  GlobalRegRecord key() {
    GlobalRegRecord made = variableRecord(word(), word(), word());
    if (below(4) == 0) made.FieldMask = kVariableKey;
    return made;
  }

  std::string file() {
    std::string bytes;
    for (unsigned i = below(8) == 0 ? 700 : below(8); i > 0; --i)
      bytes += frame();
    if (below(12) == 0 && !bytes.empty()) bytes.resize(bytes.size() - 1 - below(20));
    return bytes;
  }

 private:
  std::string word() { return std::string(1 + below(2), static_cast<char>('a' + below(2))); }

  std::string frame() {
    std::uint64_t mask = kVariableKey;
    std::vector<std::string> entries{text(word()), text(word())};
    for (const std::uint64_t field : {kVariableValue, kVariableComment}) {
      if (below(2) == 0) continue;
      mask |= field;
      entries.push_back(text(word()));
    }
    if (below(5) == 0) {
      mask |= 1U << 14;
      entries.push_back(entryOf(std::string(below(20) == 0 ? 40000 : below(9), 'l')));
    }
    const std::uint64_t missing = below(4) == 0 ? 0 : kVariableKnown & ~mask;
    std::string image = imageOf(kGlobalRegVariable, mask, entries, missing, below(3));
    if (below(60) == 0)
      image[below(static_cast<unsigned>(image.size()))] = static_cast<char>(random_());
    if (below(60) == 0) image += "tail";
    return frameOf(image);
  }

  std::mt19937_64 random_;
};

// What one operation gives, and leaves in the folder.
std::string outcome(Files files, const TempDir& folder, bool unpacksAll) {
  const std::string path = folder.file(unpacksAll ? "slow" : "fast");
  writeFile(path, files.file());
  QuietGlobalReg registry(path);
  if (unpacksAll) registry.imageSlots = nullptr;
  if (files.below(2) == 0) registry.features |= kGenRegDuplicates;
  if (files.below(2) == 0) registry.features &= ~static_cast<unsigned>(kGenRegVerifyCommit);
  GlobalRegRecord key = files.key();
  GlobalRegRecord second = files.key();
  const unsigned long long mask = files.below(8);
  int rc = 0;
  switch (files.below(4)) {
    case 0:
      rc = registry.Get(mask, &key, &second);
      break;
    case 1:
      rc = registry.Add(mask, &second);
      break;
    case 2:
      rc = registry.Change(mask, &key, &second);
      break;
    default:
      rc = registry.Delete(mask, &key);
  }
  std::string told = std::to_string(rc) + bytesOf(second) + readFile(path);
  for (const char* copy : {".tmp", ".cor"}) {
    if (!pathExists(path + copy)) continue;
    told += copy + readFile(path + copy);
    EXPECT_EQ(unlink((path + copy).c_str()), 0);
  }
  return told;
}

TEST_F(ImageStore, EverythingIsAsWithoutTheImageSlots) {
  for (unsigned seed = 0; seed < 400; ++seed) {
    const Files files(seed);
    EXPECT_TRUE(outcome(files, folder_, false) == outcome(files, folder_, true)) << seed;
  }
}

// Slots that a program puts before the format's own, and how often they are called.
int slotCalls = 0;
struct Slots {
  decltype(GenRegBin::matchRecord) matchRecord;
  decltype(GenRegBin::packRecord) packRecord;
  decltype(GenRegBin::unpackRecord) unpackRecord;
  decltype(GenRegBin::getPackedRecordSize) getPackedRecordSize;
  decltype(GenRegBin::getMaxRecordSize) getMaxRecordSize;
};
Slots formats;

int countMatch(unsigned long long mask, void* stored, void* given) {
  ++slotCalls;
  return formats.matchRecord(mask, stored, given);
}
int countPack(void** record, void* previous) {
  ++slotCalls;
  return formats.packRecord(record, previous);
}
int countUnpack(void** image) {
  ++slotCalls;
  return formats.unpackRecord(image);
}
int countPackedSize(void* image, unsigned long* size) {
  ++slotCalls;
  return formats.getPackedRecordSize(image, size);
}
int countMaxSize(unsigned long* size) {
  ++slotCalls;
  return formats.getMaxRecordSize(size);
}

TEST_F(ImageStore, SlotOfTheProgramsOwnIsNotPassedOver) {
  formats = {registry_.matchRecord, registry_.packRecord, registry_.unpackRecord,
             registry_.getPackedRecordSize, registry_.getMaxRecordSize};
  const std::vector<void (*)(GenRegBin&)> replacements = {
      [](GenRegBin& registry) { registry.matchRecord = countMatch; },
      [](GenRegBin& registry) { registry.packRecord = countPack; },
      [](GenRegBin& registry) { registry.unpackRecord = countUnpack; },
      [](GenRegBin& registry) { registry.getPackedRecordSize = countPackedSize; },
      [](GenRegBin& registry) { registry.getMaxRecordSize = countMaxSize; }};
  for (const auto replace : replacements) {
    fill(frameOf(imageOf(kGlobalRegVariable, 3, {text("VRX"), text("A")})));
    QuietGlobalReg replaced(path_);
    replace(replaced);
    slotCalls = 0;
    GlobalRegRecord key = variableRecord("VRX", "A", "x");
    GlobalRegRecord added = variableRecord("VRX", "B", "y");
    EXPECT_EQ(statusOf(replaced.Get(kVariableKey, &key, &found_)), 0U);
    EXPECT_EQ(statusOf(replaced.Add(kVariableKey, &added)), 0U);
    EXPECT_GT(slotCalls, 0);
    EXPECT_EQ(get(added), 0U);
  }
}

TEST_F(ImageStore, PlainRecordsOfTheFormatAreReadAsTheyLie) {
  QuietGlobalReg plain(path_);
  plain.features = kGenRegVerifyCommit;
  GlobalRegRecord record = variableRecord("VRX", "A", "x");
  ASSERT_EQ(statusOf(plain.Add(kVariableKey, &record)), 0U);
  EXPECT_EQ(readFile(path_).size(), sizeof(unsigned) + sizeof record);
  EXPECT_EQ(statusOf(plain.Get(kVariableKey, &record, &found_)), 0U);
  EXPECT_STREQ(found_.Variable.Value, "x");
}

}  // namespace
