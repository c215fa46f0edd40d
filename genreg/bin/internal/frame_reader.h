// SPDX-License-Identifier: Apache-2.0
// Reads the frames of one stream, one after the other, where they lie in the stream's blocks; a
// record is copied out of there only to be unpacked. No system call and no allocation per record.
#pragma once

#include "genreg/bin/internal/frame.h"
#include "genreg/bin/internal/record_block.h"
#include "genreg/internal/block_cursor.h"
#include "genreg/internal/features.h"

namespace genreg {

// Replaces *block, from ossMemAlloc, by one of `capacity` bytes when it is shorter. Its contents
// are lost. Fails `op` with 0x90000219, or with 0x9000021A when the old block cannot be released;
// *block is then unchanged.
void growBlock(Operation& op, void** block, unsigned long capacity);

// The length order that the store's features ask for.
inline LengthOrder lengthOrderOf(const GenRegBin& store) {
  return hasFeature(store, kGenRegBigEndian) ? LengthOrder::kBigEndian : LengthOrder::kHost;
}

class FrameReader : public RecordBlock {
 public:
  using RecordBlock::RecordBlock;

  // What next() reads from, and where it stands.
  BlockCursor& cursor() { return cursor_; }

  // Steps to the next frame: 0, 0x900001BE at the end, or what ReadRecord reports.
  GenRegStatus next() { return isNextInMemory() ? take(nextLength()) : nextFromStream(); }
  // Whether next() will leave the frames before where they are in memory.
  bool isNextInMemory() const {
    return cursor_.available() >= kLengthFieldSize &&
           nextLength() <= cursor_.available() - kLengthFieldSize;
  }

  // The frame's bytes as they are stored, in memory until the next step, and before them its length
  // field.
  unsigned char* frame() const { return frame_; }
  unsigned long frameLength() const { return frameLength_; }

  // Copies the frame into the block, as the record. Fails `op` with `failure` for want of memory.
  void load(Operation& op, GenRegStatus failure, ImageEnd imageEnd);

 private:
  // What the length field in memory states.
  unsigned long nextLength() const { return decodeLength(cursor_.bytes(), lengthOrderOf(store_)); }
  GenRegStatus take(unsigned long length) {
    frame_ = cursor_.bytes() + kLengthFieldSize;
    frameLength_ = length;
    cursor_.skip(kLengthFieldSize + length);
    return status::ok;
  }
  GenRegStatus nextFromStream();

  BlockCursor cursor_;
  unsigned char* frame_ = nullptr;
  unsigned long frameLength_ = 0;
};

}  // namespace genreg
