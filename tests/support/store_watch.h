// SPDX-License-Identifier: Apache-2.0
// What a store's operation must leave as it was: memory, descriptors, the lock, the neighbouring
// files; and what it tells the slots behind an update.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "genreg/bin/bin_store.h"
#include "platform/osse/log.h"
#include "platform/osse/memory.h"
#include "tests/support/plain_registry.h"
#include "tests/support/temp_dir.h"

namespace vrxtest {

// Fails the test when its end of life finds more memory blocks or descriptors than its beginning.
class NothingKept {
 public:
  NothingKept() : blocks_(ossMemLiveBlocks()), descriptors_(openDescriptorCount()) {}
  ~NothingKept() {
    EXPECT_EQ(ossMemLiveBlocks(), blocks_);
    EXPECT_EQ(openDescriptorCount(), descriptors_);
  }
  NothingKept(const NothingKept&) = delete;
  NothingKept& operator=(const NothingKept&) = delete;

 private:
  const unsigned long blocks_;
  const int descriptors_;
};

// Whether another object can take the registry's lock at once.
inline bool lockIsFree(const std::string& path) {
  PlainRegistry other(path);
  if (other.Lock(kGenRegLockExclusive | kGenRegLockNoWait, 0) != 0) return false;
  return other.UnLock() == 0;
}

// The names in a folder.
inline std::set<std::string> namesIn(const TempDir& folder) {
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
    names.insert(entry.path().filename().string());
  }
  return names;
}

// A caller's record between two fences: any byte written to it or beside it shows.
template <class Record>
class Fenced {
 public:
  explicit Fenced(const Record& record) {
    std::memset(&space_, kFence, sizeof space_);
    std::memcpy(&space_.record, &record, sizeof record);
    std::memcpy(&before_, &space_, sizeof space_);
  }
  Record* record() { return &space_.record; }
  bool isUntouched() const { return std::memcmp(&space_, &before_, sizeof space_) == 0; }

 private:
  static constexpr int kFence = 0xA5;
  struct Space {
    char front[256];
    Record record;
    char back[256];
  };
  Space space_;
  Space before_;
};

// The log's entries as (code, inner code) while the object lives.
class LoggedReasons {
 public:
  LoggedReasons() { (void)ossSetLogCallback(keep, this); }  // a callback cannot be refused
  ~LoggedReasons() { (void)ossSetLogSink(OSSLogSink::none); }
  LoggedReasons(const LoggedReasons&) = delete;
  LoggedReasons& operator=(const LoggedReasons&) = delete;

  long count(GenRegStatus code, GenRegStatus inner) const {
    return std::count(entries_.begin(), entries_.end(), std::make_pair(code, inner));
  }

 private:
  static void keep(const OSSLogEntry* entry, void* context) {
    static_cast<LoggedReasons*>(context)->entries_.emplace_back(entry->code, entry->inner);
  }

  std::vector<std::pair<GenRegStatus, GenRegStatus>> entries_;
};

// Keeps standard output from the terminal until it is taken or the object ends.
class CapturedOutput {
 public:
  CapturedOutput() { testing::internal::CaptureStdout(); }
  ~CapturedOutput() {
    if (!taken_) (void)take();
  }
  CapturedOutput(const CapturedOutput&) = delete;
  CapturedOutput& operator=(const CapturedOutput&) = delete;

  std::string take() {
    taken_ = true;
    return testing::internal::GetCapturedStdout();
  }

 private:
  bool taken_ = false;
};

// What the Log and Notify slots were called with, in order.
struct Announcement {
  enum Slot { kLog, kNotify } slot;
  void* registry;
  unsigned int action;
  void* first;
  void* second;
};

inline bool operator==(const Announcement& a, const Announcement& b) {
  return a.slot == b.slot && a.registry == b.registry && a.action == b.action &&
         a.first == b.first && a.second == b.second;
}

// Fills a registry's Log and Notify slots, and its features, with slots that note their calls.
class Announcements {
 public:
  explicit Announcements(GenRegBin& registry) {
    calls.clear();
    logResult = 0;
    notifyResult = 0;
    registry.log = log;
    registry.notify = notify;
    registry.features |= kGenRegChangeLog | kGenRegNotify;
  }

  static inline std::vector<Announcement> calls;
  static inline GenRegStatus logResult = 0;
  static inline GenRegStatus notifyResult = 0;

 private:
  static int log(void* registry, unsigned int action, void* first, void* second) {
    calls.push_back({Announcement::kLog, registry, action, first, second});
    return genreg::statusInt(logResult);
  }
  static int notify() {
    calls.push_back({Announcement::kNotify, nullptr, 0, nullptr, nullptr});
    return genreg::statusInt(notifyResult);
  }
};

}  // namespace vrxtest
