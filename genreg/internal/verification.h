// SPDX-License-Identifier: Apache-2.0
// Verification, for both stores: the registry and its temporary copy, record by record in lockstep.
// They must differ exactly as the update intended; only the close of a verification that passed
// replaces the registry.
//
// A Comparison is the store's part, a small type with
//
//     void allocate(Operation&, unsigned long maxRecord)
//         scratch memory
//     void begin()
//         the two streams are open, each at its first record
//     void passOverSame()
//         steps over records of both that need no reading to be equal; none is an answer, too
//     bool readEarlier(Operation&), readCurrent(Operation&)
//         the next record of the registry, of the copy; false at the end, or on a failure
//     bool isLastEarlier()
//         whether a deletion must have ended by this earlier record
//     bool isSelected(Operation&), isSame(Operation&), isGiven(Operation&)
//         the earlier record agrees with the key; the two records are equal; the current record is
//         the caller's new one
//     SeveralChanged kSeveralChanged
//         what becomes of an update that touched too many records
#pragma once

#include "genreg/internal/operation.h"
#include "genreg/internal/record_checks.h"
#include "genreg/registry.h"

namespace genreg {

// Whether a copy in which more records changed than the format allows is committed all the same.
enum class SeveralChanged { kAbandon, kCommit };

template <class Comparison>
class Verification {
 public:
  Verification(Operation& op, GenRegFile& registry, unsigned mode, Comparison& comparison)
      : op_(op), registry_(registry), mode_(mode), comparison_(comparison) {}

  void run() {
    GenRegStatus rc = registry_.OpenReg(kGenRegVerify);
    if (rc != status::ok) op_.fail(110, status::open_failed, rc);
    if (!op_.failed()) compareAll();
    rc = registry_.CloseReg(closeMode());
    if (rc == status::ok) return;
    op_.fail(111, status::close_failed, rc);
    (void)registry_.CloseReg(kGenRegRead);  // may have left the copy open, which is now abandoned
  }

 private:
  unsigned closeMode() const {
    if (!op_.failed()) return kGenRegVerify;
    const bool tooMany = op_.status() == status::verify_several_changed;
    const bool commits = tooMany && Comparison::kSeveralChanged == SeveralChanged::kCommit;
    return commits ? kGenRegVerify : kGenRegRead;
  }

  void readEarlier() { hasEarlier_ = !op_.failed() && comparison_.readEarlier(op_); }
  void readCurrent() { hasCurrent_ = !op_.failed() && comparison_.readCurrent(op_); }
  void readBoth() {
    comparison_.passOverSame();
    readEarlier();
    readCurrent();
  }

  void compareAll() {
    comparison_.begin();
    readBoth();
    while (hasEarlier_ && hasCurrent_ && !op_.failed()) {
      if (comparison_.isSame(op_)) {
        readBoth();
      } else if (!op_.failed()) {
        judgeDifference();
      }
    }
    if (!op_.failed()) finish();
    if (!op_.failed()) checkCount();
  }

  void judgeDifference() {
    if (mode_ == kGenRegChange) return judgeChange();
    if (mode_ == kGenRegDelete) return skipDeleted();
    op_.fail(120, status::verify_difference);
  }

  void judgeChange() {
    if (!comparison_.isSelected(op_)) {
      op_.fail(130, status::verify_unselected_change);
    } else if (!comparison_.isGiven(op_)) {
      op_.fail(131, status::verify_wrong_record);
    }
    ++count_;
    readBoth();
  }

  // One earlier record is gone; the comparison goes on with the next one and the same current
  // record.
  void skipDeleted() {
    if (!comparison_.isSelected(op_)) op_.fail(140, status::verify_unselected_delete);
    ++count_;
    readEarlier();
    if (op_.failed()) return;
    if (!hasEarlier_ || (comparison_.isLastEarlier() && !comparison_.isSame(op_))) {
      op_.fail(141, status::verify_records_missing);
    }
  }

  void finish() {
    if (mode_ == kGenRegAdd) return finishAdd();
    if (mode_ == kGenRegDelete) return finishDelete();
    if (hasEarlier_ != hasCurrent_) op_.fail(150, status::verify_ends_early);
  }

  void finishAdd() {
    if (!hasCurrent_) {
      op_.fail(160, status::verify_nothing_added);
      return;
    }
    if (!comparison_.isGiven(op_)) op_.fail(161, status::verify_added_differs);
    ++count_;
    readCurrent();
    if (hasCurrent_) op_.fail(162, status::verify_more_added);
  }

  void finishDelete() {
    if (hasCurrent_) op_.fail(170, status::verify_records_missing);
    while (hasEarlier_) {  // not once anything has failed
      if (!comparison_.isSelected(op_)) op_.fail(171, status::verify_wrong_record);
      ++count_;
      readEarlier();
    }
  }

  void checkCount() {
    if (count_ == 0) op_.fail(180, status::verify_no_change);
    if (count_ > 1 && !registry_.isFeatureSet(kGenRegDuplicates)) {
      op_.fail(181, status::verify_several_changed);
    }
  }

  Operation& op_;
  GenRegFile& registry_;
  const unsigned mode_;
  Comparison& comparison_;
  bool hasEarlier_ = false;
  bool hasCurrent_ = false;
  unsigned long count_ = 0;  // records that the update accounts for
};

// The steps of a store's Verify behind its check of the slots, whose outcome is `slots`. The
// buffers that `make` takes (given the largest record's size) are given back before this returns.
template <class MakeComparison>
void runVerification(Operation& op, GenRegFile& registry, unsigned mode, GenRegStatus slots,
                     MakeComparison make) {
  if (slots != status::ok) {
    op.fail(100, status::slots_incomplete, slots);
    return;
  }
  const unsigned long maxRecord = measureMaxRecord(op, registry);
  if (op.failed()) return;
  auto comparison = make();
  comparison.allocate(op, maxRecord);
  if (!op.failed()) Verification(op, registry, mode, comparison).run();
}

}  // namespace genreg
