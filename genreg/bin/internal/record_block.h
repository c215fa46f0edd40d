// SPDX-License-Identifier: Apache-2.0
// One record in a block of the store's own, with room for its packed form and followed by zeros.
#pragma once

#include "genreg/bin/bin_store.h"
#include "genreg/internal/guards.h"

namespace genreg {

// Whether an image is known to end within its length. One that may not is walked beyond it, and
// must be followed by zeros that end the walk.
enum class ImageEnd { kKnown, kUnknown };

class RecordBlock {
 public:
  // `op` learns of memory that cannot be had or released, under these codes.
  RecordBlock(Operation& op, GenRegBin& store, GenRegStatus noMemory, GenRegStatus notReleased)
      : store_(store), block_(op, noMemory, notReleased) {}

  // Records have up to `maxRecord` bytes from now on.
  void prepare(unsigned long maxRecord) { maxRecord_ = maxRecord; }
  // Takes the block for such records; what fails is reported to the operation.
  void allocate(unsigned probe, ImageEnd imageEnd);
  // As the block's.
  void reportTo(Operation* op) { block_.reportTo(op); }
  void release() { block_.release(); }

  // The record, in its stored or in the caller's form. It lies in the block, or where the format's
  // slots have put it.
  void* record() { return record_; }

  // Copies `size` bytes of a record in, at most `maxRecord`.
  void takeIn(const void* record, unsigned long size);

  // Packs the record where records are packed, carrying over what `previous`, the image that it
  // replaces, holds besides. Fails `op` with 0x90000223 or 0x90000255.
  void pack(Operation& op, void* previous);

  // The way back. Fails `op` with 0x90000222 or 0x90000254, the latter also for an image that does
  // not end within its length.
  void unpack(Operation& op);

 protected:
  // The bytes of block that a stored record of `length` bytes needs.
  unsigned long roomFor(unsigned long length, ImageEnd imageEnd) const;
  // Makes the record a stored one, copied to the start of the block, which has room for it.
  void takeStored(const void* image, unsigned long length);

  GenRegBin& store_;
  ScratchBuffer block_;
  unsigned long length_ = 0;  // of the record in its stored form

 private:
  void holdStored(unsigned long length);
  GenRegStatus checkImageEnd();

  void* record_ = nullptr;
  unsigned long maxRecord_ = 0;
  unsigned long used_ = 0;  // bytes from the start of the block that may not be zero
};

}  // namespace genreg
