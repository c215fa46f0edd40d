// SPDX-License-Identifier: Apache-2.0
// Registries of the text formats, streams that are made to fail, and what a failed operation must
// leave as it was.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "tests/support/leak_check.h"
#include "tests/support/plain_registry.h"
#include "tests/support/temp_dir.h"
#include "tests/support/text_lines.h"

namespace vrxtest {

// An init table with its paths set.
class InitTable : public GenRegInitTab {
 public:
  explicit InitTable(std::string path) { EXPECT_EQ(setPaths(path.data()), 0U); }
};

// A services file whose constructor must succeed.
class ServicesFile {
 public:
  explicit ServicesFile(std::string path) : registry_(path.data(), &status_) {
    EXPECT_EQ(status_, 0U);
  }
  GenRegServices& operator*() { return registry_; }
  GenRegServices* operator->() { return &registry_; }

 private:
  unsigned int status_ = ~0U;
  GenRegServices registry_;
};

// Whether another object can take the registry's lock at once.
inline bool textLockIsFree(const std::string& path) {
  PlainRegistry other(path);
  if (other.Lock(kGenRegLockExclusive | kGenRegLockNoWait, 0) != 0) return false;
  return other.UnLock() == 0;
}

// Makes every further write of the stream fail at once: its descriptor becomes a full device's.
inline void breakWriting(FILE* stream) {
  EXPECT_EQ(std::setvbuf(stream, nullptr, _IONBF, 0), 0);  // while it can still write
  const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
  ASSERT_GE(full, 0);
  EXPECT_GE(dup3(full, fileno(stream), O_CLOEXEC), 0);
  close(full);
}

// A buffer for one line, as FormatLine wants it.
struct LineBuffer {
  explicit LineBuffer(const std::string& text = "") {
    EXPECT_LT(text.size(), sizeof bytes);
    std::memcpy(bytes, text.data(), text.size());
  }
  char bytes[kGenRegLineSize] = {};
};

}  // namespace vrxtest
