// SPDX-License-Identifier: Apache-2.0
// The steps of an update that depend on no store.
#include "genreg/internal/update.h"

#include "platform/osse/files.h"

namespace genreg {

UpdatePlan planOf(GenRegMode mode, ChangeLog changeLog) {
  constexpr unsigned kExclusive = kGenRegLockExclusive | kGenRegLockWait;
  if (mode == kGenRegAdd) {
    return {mode, kExclusive | kGenRegLockCreateDirectory, AbandonedCopy::kLeave, changeLog,
            LogRefusal::kIgnored};
  }
  return {mode, kExclusive, AbandonedCopy::kDelete, changeLog, LogRefusal::kSilencesNotify};
}

void UpdateSteps::open() {
  const GenRegStatus rc = registry_.OpenReg(plan_.mode);
  // A copy that stands there although opening failed before it may be another update's remains.
  createdCopy_ = registry_.temporaryStream != nullptr;
  if (rc != status::ok) op_.fail(60, status::open_failed, rc);
}

void UpdateSteps::close(CopyFate fate) {
  useless_ = op_.failed();
  const GenRegStatus rc = registry_.CloseReg(fate == CopyFate::kKeep ? plan_.mode : kGenRegRead);
  if (rc == status::ok) return;
  op_.fail(61, status::close_failed, rc);
  (void)registry_.CloseReg(kGenRegRead);  // may have left the copy open, which is now abandoned
}

bool UpdateSteps::awaitsVerification() const {
  return registry_.isFeatureSet(kGenRegVerifyCommit);
}

void UpdateSteps::tidyUp() {
  if (!useless_ || !createdCopy_ || plan_.abandonedCopy == AbandonedCopy::kLeave) return;
  if (!registry_.isFeatureSet(kGenRegVerifyCommit)) return;
  const GenRegStatus rc = ossFileDelete(registry_.temporaryPath);
  if (rc != status::ok) op_.fail(62, status::copy_not_deleted, rc);
}

bool UpdateSteps::loggedOrIgnored(void* first, void* second) {
  const bool logs = plan_.changeLog == ChangeLog::kLogSlot && registry_.log != nullptr &&
                    registry_.isFeatureSet(kGenRegChangeLog);
  if (!logs) return true;
  const GenRegStatus rc = statusOf(registry_.log(&registry_, plan_.mode, first, second));
  if (rc == status::ok) return true;
  op_.note(63, rc, status::ok);
  return plan_.logRefusal == LogRefusal::kIgnored;
}

void UpdateSteps::announce(void* first, void* second) {
  if (!loggedOrIgnored(first, second) || !registry_.isFeatureSet(kGenRegNotify)) return;
  if (registry_.notify == nullptr) {
    op_.fail(64, status::no_notify_slot);
    return;
  }
  const GenRegStatus rc = statusOf(registry_.notify());
  if (rc != status::ok) op_.note(65, rc, status::ok);  // the update stands without a listener
}

}  // namespace genreg
