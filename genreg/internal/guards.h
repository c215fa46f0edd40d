// SPDX-License-Identifier: Apache-2.0
// What an operation must give back however it ends: scratch memory, the held lock, a lookup's
// access to the registry stream. Each guard reports a failure to give back into its operation,
// where it becomes the result only when nothing failed before.
//
// A destructor runs after `return op.status()` has copied the value. Guards therefore live in a
// void function, or in an inner block, and the result is read after it.
#pragma once

#include "genreg/internal/block_cursor.h"
#include "genreg/internal/operation.h"
#include "genreg/registry.h"

namespace genreg {

// A zero-filled block from ossMemAlloc that can grow and is released with the guard.
class ScratchBuffer {
 public:
  // The codes under which `op` reports that memory cannot be had, or given back.
  ScratchBuffer(Operation& op, GenRegStatus noMemory, GenRegStatus notReleased)
      : op_(&op), noMemory_(noMemory), notReleased_(notReleased) {}
  ~ScratchBuffer() { release(); }
  ScratchBuffer(const ScratchBuffer&) = delete;
  ScratchBuffer& operator=(const ScratchBuffer&) = delete;

  // For a block that outlives the operation: reports to another one from now on, or with null to
  // nobody. Only a release may be reported to nobody.
  void reportTo(Operation* op) { op_ = op; }

  // Makes the block at least `capacity` bytes long. Growing it loses its contents: the new block is
  // zero-filled. False when that fails, which `op` then reports.
  [[nodiscard]] bool reserve(unsigned probe, unsigned long capacity);
  void release();
  // The same, but what fails is logged only.
  void releaseLoggedOnly();

  unsigned char* data() { return static_cast<unsigned char*>(block_); }
  void* block() { return block_; }
  // For those who replace the block by a larger one from ossMemAlloc.
  void** address() { return &block_; }

 private:
  Operation* op_;
  const GenRegStatus noMemory_;
  const GenRegStatus notReleased_;
  void* block_ = nullptr;
};

// The registry lock of one update. When it cannot be taken, `op` has failed with 0x900001BC; when
// it cannot be released, with 0x900001BD.
class HeldLock {
 public:
  HeldLock(Operation& op, GenRegFile& registry, unsigned flags);
  ~HeldLock();
  HeldLock(const HeldLock&) = delete;
  HeldLock& operator=(const HeldLock&) = delete;

 private:
  Operation& op_;
  GenRegFile& registry_;
  bool held_ = false;
};

// A lookup's access to the registry: an open scan's stream, borrowed from its start and given back
// where it stood, or the file, opened for the lookup alone. When it cannot be had, `op` has failed
// with 0x900001C5, in the binary store with 0x90000513 for a missing file; when it cannot be
// closed, with 0x900001C6.
class LookupAccess {
 public:
  LookupAccess(Operation& op, GenRegFile& registry);
  ~LookupAccess();
  LookupAccess(const LookupAccess&) = delete;
  LookupAccess& operator=(const LookupAccess&) = delete;

  // Lets the cursor read the records from the first one on.
  void giveTo(BlockCursor& cursor) const;

 private:
  enum class Kind { kNone, kBorrowed, kOpened, kBare };

  void borrowScan();
  void open();
  GenRegStatus openBare();
  GenRegStatus closeBare();

  Operation& op_;
  GenRegFile& registry_;
  Kind kind_ = Kind::kNone;
  long long scanPosition_ = 0;
  OSSHFile file_;  // what no stream is made of
};

}  // namespace genreg
