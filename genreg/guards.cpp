// SPDX-License-Identifier: Apache-2.0
// Taking and giving back what an operation holds.
#include "genreg/internal/guards.h"

#include "genreg/internal/checksum_header.h"
#include "genreg/internal/registry_files.h"
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
    borrowScan();
  } else {
    open();
  }
}

void LookupAccess::borrowScan() {
  (void)registry_.getRegFilePosition(&scanPosition_);  // a stream that fails here fails the read
  (void)registry_.Rewind();                            // that follows, which reports it
  kind_ = Kind::kBorrowed;
}

// OpenReg(kGenRegRead) without a stream, which a lookup that reads in blocks has no use for.
GenRegStatus LookupAccess::openBare() {
  Operation opening(kGenRegFileOpenReg, registry_.registryPath);
  (void)closeRegistryStream(registry_);  // as OpenReg does
  (void)closeTemporaryStream(registry_);
  openRegistryFile(opening, registry_, readRequest(), file_);
  registry_.firstRecord = 0;
  return opening.status();
}

void LookupAccess::open() {
  const bool scanning = (registry_.state & kGenRegStateScanning) != 0;
  const bool bare = !scanning && !usesChecksumHeader(registry_);
  const GenRegStatus rc = bare ? openBare() : registry_.OpenReg(kGenRegRead);
  if (rc == status::ok) {
    kind_ = bare ? Kind::kBare : Kind::kOpened;
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
  const GenRegStatus rc = kind_ == Kind::kBare ? closeBare() : registry_.CloseReg(kGenRegRead);
  if (rc != status::ok) op_.fail(321, status::close_failed, rc);
}

GenRegStatus LookupAccess::closeBare() {
  Operation closing(kGenRegFileCloseReg, registry_.registryPath);
  const GenRegStatus rc = file_.close();
  if (rc != status::ok) return closing.fail(2, status::registry_not_closed, rc);
  return closing.status();
}

void LookupAccess::giveTo(BlockCursor& cursor) const {
  if (kind_ == Kind::kBare) {
    cursor.readFrom(file_.getFileHandle(), registry_.registrySize);
  } else {
    cursor.readFrom(registry_.registryStream, registry_.firstRecord, registry_.registrySize);
  }
}

}  // namespace genreg
