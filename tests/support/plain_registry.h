// SPDX-License-Identifier: Apache-2.0
// A small record format on the binary store, for tests of what lies below and around formats: a
// name and a number, stored as they lie in memory.
#pragma once

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

#include "genreg/bin/bin_store.h"
#include "tests/support/temp_dir.h"

namespace vrxtest {

struct PlainRecord {
  char name[16];
  int value;
};
static_assert(sizeof(PlainRecord) == 20, "one layout in every build");

// Bits of a plain record's field mask.
constexpr unsigned long long kPlainName = 0x1;
constexpr unsigned long long kPlainValue = 0x2;

inline PlainRecord plainRecord(std::string_view name, int value) {
  PlainRecord record{};
  std::memcpy(record.name, name.data(), std::min(name.size(), sizeof record.name - 1));
  record.value = value;
  return record;
}

inline bool operator==(const PlainRecord& a, const PlainRecord& b) {
  return std::memcmp(a.name, b.name, sizeof a.name) == 0 && a.value == b.value;
}

// A registry of plain records with the features that the test chooses; 0x1 is what real formats
// set.
class PlainRegistry : public GenRegBin {
 public:
  explicit PlainRegistry(const std::string& path, unsigned int chosen = kGenRegVerifyCommit) {
    matchRecord = matchPlain;
    validateRecord = validatePlain;
    printRecord = printPlain;
    getRecordSize = plainSize;
    getMaxRecordSize = largestPlainSize;
    pathStatus = setRegistryPaths(path.c_str());
    features = chosen;
  }

  // What the path set-up gave.
  GenRegStatus pathStatus = 0;

  using GenRegFile::setRegistryPaths;

  // Slots. A record with an empty name is not acceptable where the name counts.
  static int matchPlain(unsigned long long mask, void* stored, void* given) {
    PlainRecord a{};
    PlainRecord b{};
    std::memcpy(&a, stored, sizeof a);
    std::memcpy(&b, given, sizeof b);
    if ((mask & kPlainName) != 0 && std::memcmp(a.name, b.name, sizeof a.name) != 0) return 0;
    if ((mask & kPlainValue) != 0 && a.value != b.value) return 0;
    return 1;
  }
  static int validatePlain(unsigned long long mask, void* record) {
    if (record == nullptr) return genreg::statusInt(genreg::status::null_argument);
    const bool empty = static_cast<PlainRecord*>(record)->name[0] == '\0';
    const bool refused = (mask & kPlainName) != 0 && empty;
    return genreg::statusInt(refused ? genreg::status::empty_record : genreg::status::ok);
  }
  static int printPlain(void*) { return 0; }
  static int plainSize(void*, unsigned long* size) {
    *size = sizeof(PlainRecord);
    return 0;
  }
  static int largestPlainSize(unsigned long* size) {
    *size = sizeof(PlainRecord);
    return 0;
  }
};

// A frame around `body`, its length in host byte order.
inline std::string frameOf(const std::string& body) {
  const auto length = static_cast<unsigned int>(body.size());
  std::string bytes(sizeof length, '\0');
  std::memcpy(bytes.data(), &length, sizeof length);
  return bytes + body;
}

// A plain record as it stands in a registry file.
inline std::string plainFrame(std::string_view name, int value) {
  const PlainRecord record = plainRecord(name, value);
  std::string body(sizeof record, '\0');
  std::memcpy(body.data(), &record, sizeof record);
  return frameOf(body);
}

// The companions of a registry, spelled out: no name is taken from the library.
struct PlainFiles {
  explicit PlainFiles(const TempDir& folder, const std::string& name = "reg")
      : registry(folder.file(name)),
        temporary(folder.file(name + ".tmp")),
        corrupt(folder.file(name + ".cor")),
        lock(folder.file("." + name + ".lock")),
        backup(folder.file("." + name + ".bkp")) {}

  const std::string registry;
  const std::string temporary;
  const std::string corrupt;
  const std::string lock;
  const std::string backup;
};

}  // namespace vrxtest
