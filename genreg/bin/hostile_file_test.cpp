// SPDX-License-Identifier: Apache-2.0
// Registries of three records, cut at every byte and damaged in every byte, against an account of
// the file format that shares no code with the library. Run under a sanitizer, this is also the
// proof that nothing is read or written outside of a block.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "genreg/bin/bin_store.h"
#include "platform/osse/files.h"
#include "tests/support/global_records.h"
#include "tests/support/packed_registry.h"
#include "tests/support/plain_registry.h"
#include "tests/support/quiet_global_reg.h"
#include "tests/support/store_watch.h"

namespace {

using namespace vrxtest;
using genreg::statusOf;
namespace status = genreg::status;

// What a damaged file still holds: the bodies of its sound frames up to the damage, and how reading
// ends.
struct Reading {
  std::vector<std::string> bodies;
  GenRegStatus end = status::end_of_registry;
};

// Whether a frame of this body holds a record.
using ImageCheck = std::function<bool(const std::string& body)>;

Reading readingOf(const std::string& file, const ImageCheck& isSound) {
  Reading reading;
  for (std::size_t at = 0; at < file.size();) {
    std::uint32_t length = 0;
    if (file.size() - at < 4) return reading.end = status::read_failed, reading;
    std::memcpy(&length, file.data() + at, 4);
    at += 4;
    if (file.size() - at < length) return reading.end = status::read_failed, reading;
    const std::string body = file.substr(at, length);
    at += length;
    if (!isSound(body)) return reading.end = status::unpack_failed, reading;
    reading.bodies.push_back(body);
  }
  return reading;
}

// Whether `body` holds entries for the first `bits` bits of `mask` from `at` on, and `trailer`
// bytes behind them.
bool holdsEntries(const std::string& body, std::uint64_t mask, unsigned bits, std::size_t at,
                  std::size_t trailer) {
  for (unsigned index = 0; index < bits; ++index) {
    if ((mask >> index & 1) == 0) continue;
    if (at + 2 > body.size()) return false;
    std::uint16_t length = 0;
    std::memcpy(&length, body.data() + at, 2);
    at += std::size_t{2} + length;
  }
  return at + trailer <= body.size();
}

bool anyBody(const std::string&) {
  return true;
}

bool isSmallImage(const std::string& body) {
  std::uint32_t mask = 0;
  if (body.size() < sizeof mask) return false;
  std::memcpy(&mask, body.data(), sizeof mask);
  return holdsEntries(body, mask, 32, 4, 0);
}

bool isGlobalImage(const std::string& body) {
  if (body.size() < 24) return false;
  std::uint32_t type = 0;
  std::uint64_t mask = 0;
  std::memcpy(&type, body.data(), sizeof type);
  std::memcpy(&mask, body.data() + 4, sizeof mask);
  return (type == 1 || type == 2 || type == 4) && holdsEntries(body, mask, 63, 20, 4);
}

// One format with a three-record file and a record that can be added to it.
template <class Registry, class Record>
class Hostile {
 public:
  Hostile(std::string file, ImageCheck isSound, const Record& record, unsigned long long mask)
      : file_(std::move(file)), isSound_(std::move(isSound)), record_(record), mask_(mask) {
    ossSetSyncPolicy(OSSSyncPolicy::none);  // thousands of commits that no power cut threatens
  }
  ~Hostile() { ossSetSyncPolicy(OSSSyncPolicy::standard); }
  Hostile(const Hostile&) = delete;
  Hostile& operator=(const Hostile&) = delete;

  void cutEverywhere() {
    for (std::size_t size = 0; size <= file_.size(); ++size) {
      check(file_.substr(0, size), "cut to " + std::to_string(size));
    }
  }
  void damageEveryByte() {
    for (std::size_t at = 0; at < file_.size(); ++at) {
      const auto good = static_cast<unsigned char>(file_[at]);
      for (const unsigned value : {0x00U, 0x01U, 0x03U, 0x7FU, 0x80U, 0xFFU, good ^ 0x10U}) {
        std::string damaged = file_;
        damaged[at] = static_cast<char>(value);
        check(damaged, "byte " + std::to_string(at) + " = " + std::to_string(value));
        if (testing::Test::HasFailure()) return;
      }
    }
  }

 private:
  void check(const std::string& file, const std::string& what) {
    SCOPED_TRACE(what);
    const NothingKept watch;
    const Reading reading = readingOf(file, isSound_);
    writeFile(path_, file);
    scan(reading);
    const bool damaged = reading.end != status::end_of_registry;
    update(file, damaged, [this](Registry& r, Record& key) { return r.Add(mask_, &key); });
    update(file, damaged, [this](Registry& r, Record& key) { return r.Delete(mask_, &key); });
    update(file, damaged, [this](Registry& r, Record& key) {
      Record record = record_;
      return r.Change(mask_, &key, &record);
    });
  }

  void scan(const Reading& reading) {
    Registry registry(path_);
    Record key{};
    Record found{};
    ASSERT_EQ(registry.OpenScan(), 0U);
    for (std::size_t i = 0; i < reading.bodies.size(); ++i) {
      ASSERT_EQ(registry.GetNext(0, &key, &found), 0) << i;
    }
    EXPECT_EQ(statusOf(registry.GetNext(0, &key, &found)), reading.end);
  }

  // A sound file may be updated into another sound one; a damaged one must not be touched.
  template <class Operation>
  void update(const std::string& file, bool damaged, Operation operation) {
    writeFile(path_, file);
    {
      Registry registry(path_);
      Record key = record_;
      const GenRegStatus rc = statusOf(operation(registry, key));
      const std::string after = readFile(path_);
      if (damaged) {
        EXPECT_NE(rc, 0U);
      }
      if (rc != 0) {
        EXPECT_EQ(after, file);
      } else {
        EXPECT_EQ(readingOf(after, isSound_).end, GenRegStatus{status::end_of_registry});
      }
    }
    EXPECT_TRUE(lockIsFree(path_));
  }

  TempDir folder_;
  const std::string path_ = folder_.file("reg");
  const std::string file_;
  const ImageCheck isSound_;
  const Record record_;
  const unsigned long long mask_;
};

using HostilePlain = Hostile<PlainRegistry, PlainRecord>;
using HostilePacked = Hostile<PackedRegistry, PackedRecord>;
using HostileGlobal = Hostile<QuietGlobalReg, GlobalRegRecord>;

std::string plainFile() {
  return plainFrame("a", 1) + plainFrame("b", 2) + plainFrame("c", 3);
}

std::string packedFile() {
  const CarriedEntries unknown{
      1U << 9 | 1U << 31, PackedRegistry::entryOf("nine") + PackedRegistry::entryOf("thirty-one")};
  return frameOf(PackedRegistry::imageOf(packedRecord("a", 1))) +
         frameOf(PackedRegistry::imageOf(packedRecord("b", 2), unknown)) +
         frameOf(PackedRegistry::imageOf(packedRecord("c", 3)));
}

std::string textEntry(const std::string& text) {
  return entryOf(text + '\0');
}

std::string globalFile() {
  const std::string version = entryOf(bytesOf(kVersion3107));
  const std::string flag = entryOf("\x2C");
  return frameOf(
             imageOf(1, 0x47, {textEntry("V"), version, textEntry("i1"), entryOf(bytesOf(1))})) +
         frameOf(imageOf(2, 0x1083, {textEntry("V"), version, flag, entryOf("later")})) +
         frameOf(imageOf(4, 0x7, {textEntry("V"), textEntry("NAME"), textEntry("1")}, 8, 77));
}

TEST(HostileFile, PlainRegistryCutAnywhere) {
  HostilePlain(plainFile(), anyBody, plainRecord("b", 9), kPlainName).cutEverywhere();
}

TEST(HostileFile, PlainRegistryDamagedAnywhere) {
  HostilePlain(plainFile(), anyBody, plainRecord("b", 9), kPlainName).damageEveryByte();
}

TEST(HostileFile, PackedRegistryCutAnywhere) {
  HostilePacked(packedFile(), isSmallImage, packedRecord("b", 9), kPackedName).cutEverywhere();
}

TEST(HostileFile, PackedRegistryDamagedAnywhere) {
  HostilePacked(packedFile(), isSmallImage, packedRecord("b", 9), kPackedName).damageEveryByte();
}

TEST(HostileFile, GlobalRegistryCutAnywhere) {
  HostileGlobal(globalFile(), isGlobalImage, variableRecord("V", "NAME", "2"), kVariableKey)
      .cutEverywhere();
}

TEST(HostileFile, GlobalRegistryDamagedAnywhere) {
  HostileGlobal(globalFile(), isGlobalImage, variableRecord("V", "NAME", "2"), kVariableKey)
      .damageEveryByte();
}

}  // namespace
