// SPDX-License-Identifier: Apache-2.0
// Filling and growing the block.
#include "genreg/internal/block_cursor.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "genreg/status.h"
#include "platform/osse/interruptions.h"
#include "platform/osse/memory.h"

namespace genreg {
namespace {

// Large enough that the system call is not felt, small enough to stay in the cache. An update has
// three blocks beside the buffer that it writes from: of larger ones the C library would give the
// memory back to the system each time.
constexpr std::size_t kStreamBlock = 32 * 1024;
constexpr std::size_t kLookupBlock = 64 * 1024;

// What a lookup reads first.
constexpr std::size_t kFirstRead = 4096;
constexpr std::size_t kAllThereIs = std::numeric_limits<std::size_t>::max();

}  // namespace

BlockCursor::~BlockCursor() {
  if (block_ == nullptr) return;
  (void)ossMemFree(block_, __FILE__, __LINE__);  // a damaged block has nowhere better to go
}

void BlockCursor::readFrom(FILE* stream, unsigned long long position, unsigned long long fileSize) {
  stream_ = stream;
  start(position, fileSize, kAllThereIs);
}

void BlockCursor::readFrom(int descriptor, unsigned long long fileSize) {
  stream_ = nullptr;
  descriptor_ = descriptor;
  start(0, fileSize, kFirstRead);
}

void BlockCursor::start(unsigned long long position, unsigned long long fileSize,
                        std::size_t firstRead) {
  nextRead_ = firstRead;
  fileSize_ = fileSize;
  streamPosition_ = position;
  located_ = true;
  failed_ = false;
  at_ = end_ = block_;
}

void BlockCursor::forgetBlock() {
  at_ = end_ = block_;
  located_ = false;
  failed_ = false;
}

bool BlockCursor::locate() {
  if (located_) return true;
  const off_t position = ftello(stream_);
  if (position < 0) return false;
  streamPosition_ = static_cast<unsigned long long>(position);
  located_ = true;
  return true;
}

unsigned long long BlockCursor::left() {
  if (!locate()) return 0;
  return available() + (fileSize_ > streamPosition_ ? fileSize_ - streamPosition_ : 0);
}

long long BlockCursor::position() {
  if (!locate()) return -1;
  return static_cast<long long>(streamPosition_ - available());
}

// Makes the block at least `count` bytes long, keeping what is available at its start.
bool BlockCursor::reserve(std::size_t count) {
  const std::size_t kept = available();
  if (count <= capacity_) {
    if (kept > 0) std::memmove(block_, at_, kept);
    at_ = block_;
    end_ = block_ + kept;
    return true;
  }
  void* larger = nullptr;
  if (ossMemAllocUncleared(&larger, count, __FILE__, __LINE__) != status::ok) return false;
  if (kept > 0) std::memcpy(larger, at_, kept);
  if (block_ != nullptr) (void)ossMemFree(block_, __FILE__, __LINE__);  // as in the destructor
  block_ = static_cast<unsigned char*>(larger);
  capacity_ = count;
  at_ = block_;
  end_ = block_ + kept;
  return true;
}

// As many bytes as there are, up to `count`; fewer after an error as well.
std::size_t BlockCursor::read(void* to, std::size_t count) {
  if (stream_ != nullptr) return std::fread(to, 1, count, stream_);
  std::size_t got = 0;
  (void)oss::readFully(descriptor_, to, count, &got);  // what is missing tells the caller
  return got;
}

BlockCursor::Step BlockCursor::fail(Step reason) {
  failed_ = true;
  return reason;
}

BlockCursor::Step BlockCursor::refill(std::size_t count) {
  if (failed_) return Step::kUnread;
  const unsigned long long left = this->left();
  if (!located_) return fail(Step::kUnread);
  if (count > left) return Step::kEnd;
  const std::size_t largest = stream_ != nullptr ? kStreamBlock : kLookupBlock;
  const auto block = static_cast<std::size_t>(std::min<unsigned long long>(left, largest));
  const std::size_t useful = std::max(count, block);
  if (!reserve(useful)) return fail(Step::kNoMemory);
  const std::size_t needed = count - available();
  const std::size_t room = std::min(capacity_ - available(), std::max(needed, nextRead_));
  nextRead_ = kAllThereIs;
  const auto wanted =
      static_cast<std::size_t>(std::min<unsigned long long>(left - available(), room));
  const std::size_t got = read(end_, wanted);
  end_ += got;
  streamPosition_ += got;
  return available() >= count ? Step::kReady : fail(Step::kUnread);
}

}  // namespace genreg
