// SPDX-License-Identifier: Apache-2.0
// The road of one lookup, for both stores: Get and GetNext take the same steps around a store's own
// record loop.
//
// A Search is the store's part of one call, a small type with
//
//     void checkKey(Operation&)   the slot for it, then the caller's key
//     void measure(Operation&)    the size of the largest record
//     void allocate(Operation&)   its reader: one of its own for Get, the scan's for GetNext
//     BlockCursor& cursor()       what the reader reads from
//     Found find(Operation&)      reads records until one matches, and copies it out
//     void clearResult()          zeroes the caller's result record
//     void release()              gives back what allocate took
#pragma once

#include "genreg/internal/guards.h"
#include "genreg/internal/operation.h"
#include "genreg/registry.h"

namespace genreg {

// How a record loop ended: with a match, at the end of the file, or with a failure of the
// operation.
enum class Found { kMatch, kEnd, kFailed };

// Which of the two a search is for.
enum class LookupKind { kGet, kGetNext };

// Get: checks, opens the registry or borrows an open scan, finds the first match, gives all back.
template <class Search>
void runGet(Operation& op, GenRegFile& registry, Search& search) {
  search.checkKey(op);
  if (!op.failed()) search.measure(op);
  if (!op.failed()) search.allocate(op);
  if (!op.failed()) {
    const LookupAccess access(op, registry);
    if (!op.failed()) access.giveTo(search.cursor());
    if (!op.failed() && search.find(op) == Found::kEnd) {
      search.clearResult();
      op.conclude(status::no_match);
    }
  }
  search.release();
}

// GetNext: checks, then goes on from where the open scan stands. The scan owns the stream.
template <class Search>
void runGetNext(Operation& op, GenRegFile& registry, Search& search) {
  if ((registry.state & kGenRegStateScanning) == 0) {
    op.fail(1, status::no_scan);
    return;
  }
  search.checkKey(op);
  if (op.failed()) return;
  if ((registry.state & kGenRegStateScanEnd) != 0) {
    op.conclude(status::end_of_registry);
    return;
  }
  search.measure(op);
  if (!op.failed()) search.allocate(op);
  if (!op.failed() && search.find(op) == Found::kEnd) {
    registry.state |= kGenRegStateScanEnd;
    search.clearResult();
    op.conclude(status::end_of_registry);
  }
  search.release();
}

}  // namespace genreg
