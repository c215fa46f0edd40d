// SPDX-License-Identifier: Apache-2.0
// What an open scan keeps from one GetNext to the next: its store's reader, with the block read
// last and the scratch record. It is made by the first GetNext and ends with the scan.
#pragma once

#include <new>

#include "genreg/internal/block_cursor.h"
#include "genreg/internal/operation.h"
#include "genreg/registry.h"

namespace genreg {

class ScanReader {
 public:
  ScanReader() = default;
  virtual ~ScanReader() = default;
  ScanReader(const ScanReader&) = delete;
  ScanReader& operator=(const ScanReader&) = delete;

  // Where the scan stands; the stream itself is up to a block ahead.
  virtual BlockCursor& cursor() = 0;
};

template <class Reader>
class ScanReaderOf : public ScanReader {
 public:
  template <class Store>
  ScanReaderOf(Operation& op, Store& store)
      : reader_(op, store, status::no_scratch_memory, status::scratch_not_released) {}

  BlockCursor& cursor() override { return reader_.cursor(); }
  Reader& reader() { return reader_; }

 private:
  Reader reader_;
};

// Gives the store's open scan a reader that reads on from where the stream stands. False after a
// failure with 0x900001E7.
template <class Reader, class Store>
bool makeScanReader(Operation& op, Store& store) {
  // Unreached: constructors do not throw, so what the compiler keeps for that is never run.
  auto* made = new (std::nothrow) ScanReaderOf<Reader>(op, store);
  if (made == nullptr) {
    op.fail(530, status::no_scratch_memory);
    return false;
  }
  made->cursor().readFrom(store.registryStream, store.firstRecord, store.registrySize);
  made->cursor().forgetBlock();  // the stream may have been moved since it was opened
  store.scanReader = made;
  return true;
}

// The reader of the store's open scan, which reports to `op` until it is told otherwise. The scan's
// first call makes it: null when that fails.
template <class Reader, class Store>
Reader* scanReaderOf(Operation& op, Store& store) {
  if (store.scanReader == nullptr && !makeScanReader<Reader>(op, store)) return nullptr;
  Reader& reader = static_cast<ScanReaderOf<Reader>*>(store.scanReader)->reader();
  reader.reportTo(&op);
  return &reader;
}

}  // namespace genreg
