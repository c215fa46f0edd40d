// SPDX-License-Identifier: Apache-2.0
// Taking and giving back what an operation holds.
#include "genreg/internal/guards.h"

#include "platform/osse/memory.h"

namespace genreg {

bool ScratchBuffer::reserve(unsigned probe, unsigned long capacity) {
  if (block_ != nullptr && capacity <= ossMemCapacity(block_)) return true;
  release();
  void* block = nullptr;
  const GenRegStatus rc = ossMemAlloc(&block, capacity, __FILE__, __LINE__);
  if (rc != status::ok) {
    op_->fail(probe, noMemory_, rc);
    return false;
  }
  block_ = block;
  return true;
}

void ScratchBuffer::release() {
  if (block_ == nullptr) return;
  const GenRegStatus rc = ossMemFree(block_, __FILE__, __LINE__);
  if (rc != status::ok && op_ != nullptr) op_->fail(300, notReleased_, rc);
  block_ = nullptr;
}

void ScratchBuffer::releaseLoggedOnly() {
  if (block_ == nullptr) return;
  const GenRegStatus rc = ossMemFree(block_, __FILE__, __LINE__);
  if (rc != status::ok) op_->note(301, notReleased_, rc);
  block_ = nullptr;
}

HeldLock::HeldLock(Operation& op, GenRegFile& registry, unsigned flags)
    : op_(op), registry_(registry) {
  // Lock takes no notice of its second argument; every caller gives it this one.
  constexpr unsigned kIgnored = 10;
  const GenRegStatus rc = registry_.Lock(flags, kIgnored);
  held_ = rc == status::ok;
  if (!held_) op_.fail(310, status::lock_not_taken, rc);
}

HeldLock::~HeldLock() {
  if (!held_) return;
  const GenRegStatus rc = registry_.UnLock();
  if (rc != status::ok) op_.fail(311, status::lock_not_released, rc);
}

LookupAccess::LookupAccess(Operation& op, GenRegFile& registry) : op_(op), registry_(registry) {
  const bool scanning = (registry_.state & kGenRegStateScanning) != 0;
  if (scanning && registry_.isFeatureSet(kGenRegKeepPosition)) {
    (void)registry_.getRegFilePosition(&scanPosition_);  // a stream that fails here fails the read
    (void)registry_.Rewind();                            // that follows, which reports it
    kind_ = Kind::kBorrowed;
    return;
  }
  const GenRegStatus rc = registry_.OpenReg(kGenRegRead);
  if (rc == status::ok) {
    kind_ = Kind::kOpened;
    return;
  }
  // Only the binary store's lookups tell a missing registry from one that cannot be opened.
  const bool tells = rc == status::no_registry && registry_.storeType == kGenRegBinaryStore;
  op_.fail(320, tells ? rc : GenRegStatus{status::open_failed}, rc);
  // Half-opened streams are closed; an undisturbed scan refuses the close.
  if (!scanning) (void)registry_.CloseReg(kGenRegRead);
}

LookupAccess::~LookupAccess() {
  if (kind_ == Kind::kBorrowed) {
    (void)registry_.setRegFilePosition(&scanPosition_);  // as above
    return;
  }
  if (kind_ == Kind::kNone) return;
  const GenRegStatus rc = registry_.CloseReg(kGenRegRead);
  if (rc != status::ok) op_.fail(321, status::close_failed, rc);
}

}  // namespace genreg
