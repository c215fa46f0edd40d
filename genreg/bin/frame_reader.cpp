// SPDX-License-Identifier: Apache-2.0
// The frame reader and the growth of its block.
#include "genreg/bin/internal/frame_reader.h"

#include "genreg/internal/features.h"
#include "platform/osse/memory.h"

namespace genreg {

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

LengthOrder lengthOrderOf(const GenRegBin& store) {
  return hasFeature(store, kGenRegBigEndian) ? LengthOrder::kBigEndian : LengthOrder::kHost;
}

void FrameReader::readFrom(FILE* stream, unsigned long long fileSize) {
  source_ = {stream, fileSize, lengthOrderOf(store_)};
}

GenRegStatus FrameReader::next() {
  Operation op(kGenRegBinReadRecord, store_.registryPath);
  unsigned long length = 0;
  readFrameLength(op, source_, &length);
  if (!op.failed()) growBlock(op, block_.address(), roomFor(length));
  if (op.failed()) return op.status();
  holdStored(length);
  readFrameBody(op, source_.stream, block_.block(), length);
  return op.status();
}

}  // namespace genreg
