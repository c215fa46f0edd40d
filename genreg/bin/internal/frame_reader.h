// SPDX-License-Identifier: Apache-2.0
// Reads the frames of one stream, one after the other, into a block that is reused and only grows.
// No system call and no allocation per record.
#pragma once

#include "genreg/bin/internal/frame.h"
#include "genreg/bin/internal/record_block.h"

namespace genreg {

// Replaces *block, from ossMemAlloc, by one of `capacity` bytes when it is shorter. Its contents
// are lost. Fails `op` with 0x90000219, or with 0x9000021A when the old block cannot be released;
// *block is then unchanged.
void growBlock(Operation& op, void** block, unsigned long capacity);

// The length order that the store's features ask for.
LengthOrder lengthOrderOf(const GenRegBin& store);

class FrameReader : public RecordBlock {
 public:
  using RecordBlock::RecordBlock;

  // Where next() reads from: a stream and the size in bytes of the file behind it.
  void readFrom(FILE* stream, unsigned long long fileSize);

  // Reads the next frame: 0, 0x900001BE at the end, or what ReadRecord reports.
  GenRegStatus next();

  // The frame's bytes as they were read, until the record is unpacked or replaced.
  const void* frame() { return block_.block(); }
  unsigned long frameLength() const { return length_; }

 private:
  FrameSource source_{};
};

}  // namespace genreg
