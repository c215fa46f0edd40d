// SPDX-License-Identifier: Apache-2.0
// A registry of three records of any format in a private folder, its updates, and what must not
// change around it.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <map>
#include <string>
#include <vector>

#include "tests/support/plain_registry.h"
#include "tests/support/process_settings.h"
#include "tests/support/subjects.h"
#include "tests/support/temp_dir.h"

namespace vrxtest {

constexpr unsigned kScanned = 0x900001BE;

// What a store makes of a failure behind the copying: verifying formats commit while they verify.
inline unsigned notCommitted(const Subject& subject) {
  return std::string(subject.name) == "checksum" ? 0x900001C6 : 0x900001FB;
}

// One update of each kind, by a fresh object each. They succeed in any order, once.
enum class Kind { kAdd, kChange, kDelete };
constexpr Kind kKinds[] = {Kind::kAdd, Kind::kChange, Kind::kDelete};

inline unsigned update(const Subject& subject, const std::string& path, Kind kind) {
  unsigned status = 0;
  const auto registry = subject.open(path, &status);
  if (registry == nullptr) return status;
  if (kind == Kind::kAdd) return registry->add({"vadded", 7, "new"});
  if (kind == Kind::kDelete) return registry->remove("vthree");
  return registry->change("stwo", {"stwo", 8, "changed"});
}

inline unsigned lookUp(const Subject& subject, const std::string& path, const std::string& name) {
  unsigned status = 0;
  const auto registry = subject.open(path, &status);
  std::string found;
  return registry == nullptr ? status : registry->get(name, &found);
}

inline void fillRegistry(const Subject& subject, const std::string& path, unsigned more = 0) {
  unsigned status = 0;
  const auto registry = subject.open(path, &status);
  ASSERT_NE(registry, nullptr) << std::hex << status;
  for (const Item& item : {Item{"ione", 1, "note"}, Item{"stwo", 2, ""}, Item{"vthree", 3, ""}})
    ASSERT_EQ(registry->add(item), 0U) << item.name;
  for (unsigned i = 0; i < more; ++i)
    ASSERT_EQ(registry->add({"v" + std::to_string(i), i + 1, "filling"}), 0U) << i;
}

// All three updates succeed, and what they make of the three records is there.
inline void expectUpdates(const Subject& subject, const std::string& path) {
  for (const Kind kind : kKinds)
    EXPECT_EQ(update(subject, path, kind), 0U) << static_cast<int>(kind);
  EXPECT_EQ(contentsOf(subject, path).records.size(), 3U);
  EXPECT_EQ(lookUp(subject, path, "vadded"), 0U);
  EXPECT_EQ(lookUp(subject, path, "vthree"), 0x900001F6U);
}

// All three are refused with this status, the file is as it was and can be read.
inline void expectRefusals(const Subject& subject, const std::string& path, unsigned status) {
  const std::string before = readFile(path);
  for (const Kind kind : kKinds) {
    EXPECT_EQ(update(subject, path, kind), status) << static_cast<int>(kind);
    EXPECT_EQ(readFile(path), before);
  }
  EXPECT_EQ(lookUp(subject, path, "vthree"), 0U);
}

// Everything in a folder: kinds, permissions, owners, sizes, times and bytes.
inline std::map<std::string, std::string> snapshotOf(const std::string& folder,
                                                     const std::vector<std::string>& names) {
  std::map<std::string, std::string> snapshot;
  for (const std::string& name : names) {
    struct stat info {};
    const std::string path = folder + "/" + name;
    if (lstat(path.c_str(), &info) != 0) continue;
    snapshot[name] = std::to_string(info.st_mode) + " " + std::to_string(info.st_uid) + " " +
                     std::to_string(info.st_size) + " " + std::to_string(info.st_mtim.tv_sec) +
                     "." + std::to_string(info.st_mtim.tv_nsec) + " " +
                     (S_ISREG(info.st_mode) ? readFile(path) : "");
  }
  return snapshot;
}

class Around : public testing::TestWithParam<Subject> {
 protected:
  void SetUp() override { fillRegistry(subject, path); }

  const SyncPolicy unsynced{OSSSyncPolicy::none};
  const Umask mask{022};
  const Subject& subject = GetParam();
  const TempDir folder;
  const std::string path = folder.file("reg");
};

inline std::string subjectName(const testing::TestParamInfo<Subject>& info) {
  return info.param.name;
}

}  // namespace vrxtest
