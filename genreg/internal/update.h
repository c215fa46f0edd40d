// SPDX-License-Identifier: Apache-2.0
// The road of one update, for both stores and for Add, Change and Delete:
//
//   check slots, validate, size -> scratch -> lock -> open -> copy records with the edit
//   -> close (keep or abandon) -> verify, or delete the copy -> unlock -> release -> log -> notify
//
// What differs between the operations is data (UpdatePlan) and a small Edit type of the store:
//
//     void prepare(Operation&)     slots, the caller's records, sizes; nothing is touched yet
//     void allocate(Operation&)    scratch memory
//     void rewrite(Operation&)     copies the registry into the temporary copy, with the edit made
//     bool keeps(const Operation&) whether the copy is whole and may be kept
//     GenRegStatus verify(Operation&)  compares old and new contents and commits
//     void release()               gives the scratch memory back
//     void* firstRecord(), *secondRecord()  what the change log is told
//
// The first failure is the result of the update; what fails while cleaning up becomes the result
// only when nothing failed before.
#pragma once

#include "genreg/internal/guards.h"
#include "genreg/internal/operation.h"
#include "genreg/registry.h"

namespace genreg {

// A later update sets an abandoned copy aside, so Add leaves its own for whoever wants to look;
// Change and Delete, which find nothing to do in ordinary use, tidy up after themselves.
enum class AbandonedCopy { kLeave, kDelete };

// Whether a change log that refuses an entry keeps the monitor from being told.
enum class LogRefusal { kIgnored, kSilencesNotify };

// Only the binary store's updates are written to a change log.
enum class ChangeLog { kNone, kLogSlot };

// Whether a copy may replace the registry.
enum class CopyFate { kKeep, kAbandon };

struct UpdatePlan {
  GenRegMode mode;
  unsigned lockFlags;
  AbandonedCopy abandonedCopy;
  ChangeLog changeLog;
  LogRefusal logRefusal;
};

// The plan of one operation of a store.
UpdatePlan planOf(GenRegMode mode, ChangeLog changeLog);

// The steps of the road that depend on no store.
class UpdateSteps {
 public:
  UpdateSteps(Operation& op, GenRegFile& registry, const UpdatePlan& plan)
      : op_(op), registry_(registry), plan_(plan) {}

  // Opens the registry and its temporary copy. Fails with 0x900001C5.
  void open();
  // Keeps the copy or abandons it. Fails with 0x900001C6.
  void close(CopyFate fate);
  // Whether a kept copy waits for verification to commit it.
  bool awaitsVerification() const;
  // Deletes an abandoned copy that this update created, where the plan says so. Fails with
  // 0x900001D3.
  void tidyUp();
  // Tells the change log and the monitor of the update that stands. Fails with 0x900003F2.
  void announce(void* first, void* second);

 private:
  bool loggedOrIgnored(void* first, void* second);

  Operation& op_;
  GenRegFile& registry_;
  const UpdatePlan& plan_;
  bool createdCopy_ = false;
  bool useless_ = false;
};

template <class Edit>
void rewriteRegistry(Operation& op, UpdateSteps& steps, Edit& edit) {
  steps.open();
  const bool opened = !op.failed();
  if (opened) edit.rewrite(op);
  steps.close(opened && edit.keeps(op) ? CopyFate::kKeep : CopyFate::kAbandon);
  steps.tidyUp();
  if (op.failed() || !steps.awaitsVerification()) return;
  const GenRegStatus rc = edit.verify(op);
  if (!op.failed() && rc != status::ok) op.fail(50, status::verify_failed, rc);
}

template <class Edit>
void runUpdate(Operation& op, GenRegFile& registry, const UpdatePlan& plan, Edit& edit) {
  edit.prepare(op);
  if (op.failed()) return;
  UpdateSteps steps(op, registry, plan);
  edit.allocate(op);
  if (!op.failed()) {
    const HeldLock lock(op, registry, plan.lockFlags);
    if (!op.failed()) rewriteRegistry(op, steps, edit);
  }
  edit.release();
  if (!op.failed()) steps.announce(edit.firstRecord(), edit.secondRecord());
}

}  // namespace genreg
