// SPDX-License-Identifier: Apache-2.0
// The frame reader where it meets the end of its block, and the growth of its record's block.
#include "genreg/bin/internal/frame_reader.h"

#include <limits>

#include "platform/osse/memory.h"

namespace genreg {
namespace {

using Step = BlockCursor::Step;

// Makes the length field available. Concludes or fails `op` as readFrameLength does.
void wantLength(Operation& op, BlockCursor& cursor) {
  switch (cursor.want(kLengthFieldSize)) {  // Unreached: there are four steps, each with its case
    case Step::kReady:
      return;
    case Step::kEnd:
      if (cursor.available() == 0 && cursor.left() == 0) {
        op.conclude(status::end_of_registry);
        return;
      }
      op.fail(30, status::frame_past_end);
      (void)cursor.want(static_cast<std::size_t>(cursor.left()));  // to be stepped over, too
      return;
    case Step::kUnread:
      op.fail(31, status::length_read_failed);
      return;
    case Step::kNoMemory:
      op.fail(32, status::no_record_memory);
      return;
  }
}

// Makes a frame available that lies within its file.
void wantFrame(Operation& op, BlockCursor& cursor, unsigned long length) {
  constexpr auto kMost = std::numeric_limits<std::size_t>::max() - kLengthFieldSize;
  // Unreached: with 64 bits every length fits; with 32 bits one of nearly 4 GiB is beyond its file.
  const Step step = length <= kMost ? cursor.want(kLengthFieldSize + length) : Step::kNoMemory;
  if (step == Step::kReady) return;
  op.explain(33, status::body_read_failed, "length", length);
  op.fail(34, step == Step::kNoMemory ? status::no_record_memory : status::body_read_failed);
}

}  // namespace

void growBlock(Operation& op, void** block, unsigned long capacity) {
  if (*block != nullptr && ossMemCapacity(*block) >= capacity) return;
  void* larger = nullptr;
  GenRegStatus rc = ossMemAlloc(&larger, capacity, __FILE__, __LINE__);
  if (rc != status::ok) {
    op.fail(20, status::no_record_memory, rc);
    return;
  }
  rc = ossMemFree(*block, __FILE__, __LINE__);
  if (rc != status::ok) {
    op.fail(21, status::record_memory_not_released, rc);
    (void)ossMemFree(larger, __FILE__, __LINE__);  // was never used
    return;
  }
  *block = larger;
}

// A frame that cannot be read is stepped over as far as it was read, so that a scan that goes on
// does not meet it again.
GenRegStatus FrameReader::nextFromStream() {
  Operation op(kGenRegBinReadRecord, store_.registryPath);
  wantLength(op, cursor_);
  if (op.failed()) {
    cursor_.skip(cursor_.available());
    return op.status();
  }
  const unsigned long length = nextLength();
  const auto position = static_cast<unsigned long long>(cursor_.position());
  checkFrameEnd(op, position + kLengthFieldSize, length, position + cursor_.left());
  if (op.failed()) {
    cursor_.skip(kLengthFieldSize);
    return op.status();
  }
  wantFrame(op, cursor_, length);
  if (!op.failed()) return take(length);
  cursor_.skip(cursor_.available());
  return op.status();
}

void FrameReader::load(Operation& op, GenRegStatus failure, ImageEnd imageEnd) {
  Operation read(kGenRegBinReadRecord, store_.registryPath);
  growBlock(read, block_.address(), roomFor(frameLength_, imageEnd));
  if (read.failed()) {
    op.fail(35, failure, read.status());
    return;
  }
  takeStored(frame_, frameLength_);
}

}  // namespace genreg
