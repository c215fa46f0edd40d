// SPDX-License-Identifier: Apache-2.0
// Verification of the binary store: the registry and its temporary copy, frame by frame in
// lockstep. Only the close of a verification that passed replaces the registry.
#include "genreg/bin/bin_store.h"
#include "genreg/bin/internal/bin_checks.h"
#include "genreg/bin/internal/frame_reader.h"
#include "genreg/internal/operation.h"

using namespace genreg;

namespace {

class BinVerification {
 public:
  BinVerification(Operation& op, GenRegBin& store, unsigned mode, unsigned long long mask,
                  void* newRecord, void* key)
      : op_(op),
        store_(store),
        mode_(mode),
        mask_(mask),
        newRecord_(newRecord),
        key_(key),
        earlier_(op, store, status::no_first_buffer, status::first_buffer_not_released),
        current_(op, store, status::no_second_buffer, status::second_buffer_not_released) {}

  void allocate(unsigned long maxRecord);
  void run();

 private:
  void compareAll();
  void compareDifference();
  void judgeChange();
  void skipDeleted();
  void finish();
  void finishAdd();
  void finishDelete();
  void checkCount();

  void readEarlier() { hasEarlier_ = read(earlier_, status::read_failed); }
  void readCurrent() { hasCurrent_ = read(current_, status::verify_read_failed); }
  bool read(FrameReader& reader, GenRegStatus failure);
  bool isSelected() { return matches(op_, store_, mask_, earlier_.record(), key_); }
  bool areEqual(void* a, void* b);

  Operation& op_;
  GenRegBin& store_;
  const unsigned mode_;
  const unsigned long long mask_;
  void* const newRecord_;
  void* const key_;
  FrameReader earlier_;  // the registry as it is
  FrameReader current_;  // the copy that is to replace it
  bool hasEarlier_ = false;
  bool hasCurrent_ = false;
  unsigned long count_ = 0;  // records that the update accounts for
};

void BinVerification::allocate(unsigned long maxRecord) {
  earlier_.allocate(100, maxRecord);
  if (!op_.failed()) current_.allocate(101, maxRecord);
}

void BinVerification::run() {
  GenRegStatus rc = store_.OpenReg(kGenRegVerify);
  if (rc != status::ok) op_.fail(110, status::open_failed, rc);
  if (!op_.failed()) compareAll();
  rc = store_.CloseReg(op_.failed() ? kGenRegRead : kGenRegVerify);
  if (rc != status::ok) op_.fail(111, status::close_failed, rc);
}

// False at the end of the file and on a failure, which `op_` then holds.
bool BinVerification::read(FrameReader& reader, GenRegStatus failure) {
  const GenRegStatus rc = reader.next();
  if (rc == status::end_of_registry) return false;
  if (rc != status::ok) {
    op_.fail(120, failure, rc);
    return false;
  }
  reader.unpack(op_);
  return !op_.failed();
}

// A record may hold a field that the other's kind does not compare, so both are asked.
bool BinVerification::areEqual(void* a, void* b) {
  return matches(op_, store_, kAllFields, a, b) && matches(op_, store_, kAllFields, b, a);
}

void BinVerification::compareAll() {
  earlier_.readFrom(store_.registryStream, store_.registrySize);
  current_.readFrom(store_.temporaryStream, store_.temporarySize);
  readEarlier();
  if (!op_.failed()) readCurrent();
  while (!op_.failed() && hasEarlier_ && hasCurrent_) {
    if (!areEqual(earlier_.record(), current_.record())) {
      compareDifference();
      continue;
    }
    readEarlier();
    if (!op_.failed()) readCurrent();
  }
  if (!op_.failed()) finish();
  if (!op_.failed()) checkCount();
}

void BinVerification::compareDifference() {
  if (op_.failed()) return;
  if (mode_ == kGenRegChange) return judgeChange();
  if (mode_ == kGenRegDelete) return skipDeleted();
  op_.fail(130, status::verify_difference);
}

void BinVerification::judgeChange() {
  if (!isSelected()) {
    op_.fail(140, status::verify_unselected_change);
  } else if (!areEqual(current_.record(), newRecord_)) {
    op_.fail(141, status::verify_wrong_record);
  }
  if (op_.failed()) return;
  ++count_;
  readEarlier();
  if (!op_.failed()) readCurrent();
}

// One earlier record is gone; the comparison goes on with the next one and the same current record.
void BinVerification::skipDeleted() {
  if (!isSelected()) op_.fail(150, status::verify_unselected_delete);
  if (op_.failed()) return;
  ++count_;
  readEarlier();
  if (!op_.failed() && !hasEarlier_) op_.fail(151, status::verify_records_missing);
}

void BinVerification::finish() {
  if (mode_ == kGenRegAdd) return finishAdd();
  if (mode_ == kGenRegDelete) return finishDelete();
  if (hasEarlier_ != hasCurrent_) op_.fail(160, status::verify_ends_early);
}

void BinVerification::finishAdd() {
  if (hasEarlier_ || !hasCurrent_) {
    op_.fail(170, status::verify_nothing_added);
    return;
  }
  if (!areEqual(current_.record(), newRecord_)) op_.fail(171, status::verify_added_differs);
  if (op_.failed()) return;
  ++count_;
  readCurrent();
  if (!op_.failed() && hasCurrent_) op_.fail(172, status::verify_more_added);
}

void BinVerification::finishDelete() {
  if (hasCurrent_) {
    op_.fail(180, status::verify_records_missing);
    return;
  }
  while (!op_.failed() && hasEarlier_) {
    if (!isSelected()) op_.fail(181, status::verify_wrong_record);
    if (op_.failed()) return;
    ++count_;
    readEarlier();
  }
}

void BinVerification::checkCount() {
  if (count_ == 0) op_.fail(190, status::verify_no_change);
  if (count_ > 1 && !store_.isFeatureSet(kGenRegDuplicates)) {
    op_.fail(191, status::verify_several_changed);
  }
}

// The buffers are given back when this returns, so that the caller's result includes that.
void verify(Operation& op, GenRegBin& store, unsigned mode, unsigned long long mask,
            void* newRecord, void* key) {
  const GenRegStatus rc = statusOf(store.CheckFuncPtrs());
  if (rc != status::ok) {
    op.fail(1, status::slots_incomplete, rc);
    return;
  }
  const unsigned long maxRecord = measureMaxRecord(op, store);
  if (op.failed()) return;
  BinVerification verification(op, store, mode, mask, newRecord, key);
  verification.allocate(maxRecord);
  if (!op.failed()) verification.run();
}

}  // namespace

int GenRegBin::Verify(unsigned int mode, unsigned long long mask, void* newRecord, void* key) {
  Operation op(kGenRegBinVerify, registryPath);
  verify(op, *this, mode, mask, newRecord, key);
  return op.result();
}
