// SPDX-License-Identifier: Apache-2.0
// What the targets that work on whole files share: a folder in memory, choices made by the fuzzer's
// bytes, and what every call of the library must leave as it was.
#pragma once

#include <unistd.h>

#include <cstdio>
#include <string>
#include <utility>

#include "fuzz/fuzz_support.h"
#include "platform/osse/memory.h"
#include "tests/support/allocation_watch.h"
#include "tests/support/campaign.h"
#include "tests/support/text_model_driver.h"

namespace vrxfuzz {

// The process's own folder, gone with it.
inline std::string scratchFile(const std::string& name) {
  static const vrxtest::ScratchFolder folder;
  return folder.file(name);
}

// Takes choices from the front of a string; 0 when it is used up.
class ByteChoices : public vrxtest::model::Choices {
 public:
  explicit ByteChoices(std::string bytes) : bytes_(std::move(bytes)) {}
  unsigned below(unsigned bound) override {
    if (at_ == bytes_.size()) return 0;
    return static_cast<unsigned char>(bytes_[at_++]) % bound;
  }

 private:
  const std::string bytes_;
  std::size_t at_ = 0;
};

// No call asks for a larger block than the file has bytes, but for the blocks of fixed size; and at
// the object's end no block and no descriptor is kept.
class Bounded {
 public:
  explicit Bounded(std::size_t fileSize)
      : most_(fileSize + kFixedBlocks),
        blocks_(ossMemLiveBlocks()),
        descriptor_(freeDescriptor()) {}
  ~Bounded() {
    require(ossMemLiveBlocks() == blocks_, "a block is kept");
    require(freeDescriptor() == descriptor_, "a descriptor is kept");
  }
  Bounded(const Bounded&) = delete;
  Bounded& operator=(const Bounded&) = delete;

  // The file has grown by as many bytes.
  void allow(std::size_t more) { most_ += more; }
  template <class Work>
  unsigned call(const Work& work) const {
    const vrxtest::AllocationWatch watch;
    const auto status = static_cast<unsigned>(work());
    require(watch.largest() <= most_, "a block too large", std::to_string(watch.largest()));
    return status;
  }

 private:
  // A record with room for the walk over its entries, or a stream's buffer.
  static constexpr std::size_t kFixedBlocks = 72 * 1024;

  static int freeDescriptor() {
    const int descriptor = dup(STDERR_FILENO);
    (void)close(descriptor);  // only its number counts
    return descriptor;
  }

  std::size_t most_;
  const unsigned long blocks_;
  const int descriptor_;
};

// Drops what the library prints while it lives.
class DroppedOutput {
 public:
  DroppedOutput() : kept_(stdout) {
    static std::FILE* const nowhere = std::fopen("/dev/null", "w");
    require(nowhere != nullptr, "no /dev/null");
    stdout = nowhere;
  }
  ~DroppedOutput() { stdout = kept_; }
  DroppedOutput(const DroppedOutput&) = delete;
  DroppedOutput& operator=(const DroppedOutput&) = delete;

 private:
  std::FILE* const kept_;
};

}  // namespace vrxfuzz
