# SPDX-License-Identifier: Apache-2.0
"""More mistakes, as tests/mutants/commit_path.py: on the road of an update, in what the stores write, in
verification, and in the platform below.
"""

ROAD = "genreg/internal/update.h"
STEPS = "genreg/update.cpp"
GUARDS = "genreg/guards.cpp"
VERIFY = "genreg/internal/verification.h"
BIN = "genreg/bin/bin_update.cpp"
BIN_VERIFY = "genreg/bin/bin_verify.cpp"
TEXT = "genreg/text/text_update.cpp"
TEXT_VERIFY = "genreg/text/text_verify.cpp"
SYNC = "platform/osse/sync.cpp"
FILES = "platform/osse/files.cpp"
FILE_LOCK = "platform/osse/file_lock.cpp"
INTERRUPTIONS = "platform/osse/interruptions.h"
HANDLE = "platform/osse/file_handle.cpp"

MUTANTS = {
    ROAD: [
        ("the update takes no lock", "    const HeldLock lock(op, registry, plan.lockFlags);\n", ""),
        ("the update goes on without the lock", "if (!op.failed()) rewriteRegistry(", "rewriteRegistry("),
        ("a broken copy is kept", "opened && edit.keeps(op) ? CopyFate::kKeep : CopyFate::kAbandon",
         "CopyFate::kKeep"),
        ("a registry that did not open is rewritten", "if (opened) edit.rewrite(op);", "edit.rewrite(op);"),
        ("useless copies stay", "  steps.tidyUp();\n", ""),
        ("nothing is verified", "rc = edit.verify(op);", "rc = status::ok;"),
        ("a failed update is verified", "if (op.failed() || !steps.awaitsVerification())",
         "if (!steps.awaitsVerification())"),
        ("a failed verification is passed over",
         "  if (!op.failed() && rc != status::ok) op.fail(50, status::verify_failed, rc);\n", ""),
        ("failures are announced", "if (!op.failed()) steps.announce(", "steps.announce("),
    ],
    STEPS: [
        ("updates share their lock", "kGenRegLockExclusive | kGenRegLockWait", "kGenRegLockShared | kGenRegLockWait"),
        ("updates do not wait for each other", "kGenRegLockExclusive | kGenRegLockWait",
         "kGenRegLockExclusive | kGenRegLockNoWait"),
        ("a failed opening is passed over",
         "  if (rc != status::ok) op_.fail(60, status::open_failed, rc);\n", ""),
        ("an abandoned copy is committed", "fate == CopyFate::kKeep ? plan_.mode : kGenRegRead", "plan_.mode"),
        ("a failed close is passed over", "  op_.fail(61, status::close_failed, rc);\n", ""),
        ("a failed close leaves the copy open", "  (void)registry_.CloseReg(kGenRegRead);", "  "),
        ("somebody else's copy is tidied up", "!useless_ || !createdCopy_ ||", "!useless_ ||"),
        ("a kept copy is tidied up", "!useless_ || !createdCopy_ ||", "!createdCopy_ ||"),
        ("Add tidies up", "return {mode, kExclusive | kGenRegLockCreateDirectory, AbandonedCopy::kLeave,",
         "return {mode, kExclusive | kGenRegLockCreateDirectory, AbandonedCopy::kDelete,"),
        ("nothing is tidied up", "rc = ossFileDelete(registry_.temporaryPath);", "rc = status::ok;"),
        ("a copy that stays is passed over",
         "  if (rc != status::ok) op_.fail(62, status::copy_not_deleted, rc);\n", ""),
    ],
    GUARDS: [
        ("an untaken lock is no failure", "  if (!held_) op_.fail(310, status::lock_not_taken, rc);\n", ""),
        ("the guard keeps its lock", "rc = registry_.UnLock();", "rc = status::ok;"),
        ("an untaken lock is released", "HeldLock::~HeldLock() {\n  if (!held_) return;", "HeldLock::~HeldLock() {"),
        ("a lock that stays is passed over",
         "  if (rc != status::ok) op_.fail(311, status::lock_not_released, rc);\n", ""),
    ],
    VERIFY: [
        ("every verification commits", "if (!op_.failed()) return kGenRegVerify;", "return kGenRegVerify;"),
        ("no verification commits", "if (!op_.failed()) return kGenRegVerify;", ""),
        ("too many changes are committed", "tooMany && Comparison::kSeveralChanged == SeveralChanged::kCommit",
         "tooMany"),
        ("too many changes are never committed", "tooMany && Comparison::kSeveralChanged == SeveralChanged::kCommit",
         "false"),
        ("a copy that cannot be opened verifies",
         "    if (rc != status::ok) op_.fail(110, status::open_failed, rc);\n", ""),
        ("a commit that failed is passed over", "    op_.fail(111, status::close_failed, rc);\n", ""),
        ("a failed commit leaves the copy open", "    (void)registry_.CloseReg(kGenRegRead);", "    "),
        ("adding may change records", "    op_.fail(120, status::verify_difference);", "    readBoth();"),
        ("any record may be changed", "      op_.fail(130, status::verify_unselected_change);\n", ""),
        ("a record may change into any", "      op_.fail(131, status::verify_wrong_record);\n", ""),
        ("changed records are not counted", "    }\n    ++count_;\n    readBoth();", "    }\n    readBoth();"),
        ("any record may be deleted",
         "    if (!comparison_.isSelected(op_)) op_.fail(140, status::verify_unselected_delete);\n", ""),
        ("the end may be missing", "      op_.fail(141, status::verify_records_missing);\n", ""),
        ("deleted records are not counted",
         "verify_unselected_delete);\n    ++count_;", "verify_unselected_delete);"),
        ("a changed registry may end early",
         "    if (hasEarlier_ != hasCurrent_) op_.fail(150, status::verify_ends_early);\n", ""),
        ("adding nothing verifies", "      op_.fail(160, status::verify_nothing_added);\n", ""),
        ("adding may drop the end", "if (!hasCurrent_) {", "if (!hasCurrent_ && !hasEarlier_) {"),
        ("anything may be added",
         "    if (!comparison_.isGiven(op_)) op_.fail(161, status::verify_added_differs);\n", ""),
        ("more may be added", "    if (hasCurrent_) op_.fail(162, status::verify_more_added);\n", ""),
        ("deleting may add", "    if (hasCurrent_) op_.fail(170, status::verify_records_missing);\n", ""),
        ("the end may be deleted",
         "      if (!comparison_.isSelected(op_)) op_.fail(171, status::verify_wrong_record);\n", ""),
        ("no change verifies", "    if (count_ == 0) op_.fail(180, status::verify_no_change);\n", ""),
        ("two changes verify", "count_ > 1 &&", "count_ > 2 &&"),
        ("duplicates may not change together", " && !registry_.isFeatureSet(kGenRegDuplicates)", ""),
        ("the end is not looked at", "    if (!op_.failed()) finish();\n", ""),
    ],
    BIN: [
        ("duplicates are added", "    op.fail(731, status::duplicate_record);\n", ""),
        ("several records are edited", "    op.fail(640, status::several_match);\n    return;\n", ""),
        ("editing nothing succeeds", "if (!op.failed() && matchCount_ == 0) op.fail(600, status::no_match);", ""),
        ("a failed write of a run is passed over", "  if (written) return;\n", "  return;\n"),
        ("a failed write of a record is passed over",
         "  if (rc != status::ok) op.fail(621, status::copy_write_failed, rc);\n", ""),
        ("the last run is not written", "  writeRun(op);  // an abandoned copy, too, has what comes before the end\n", ""),
        ("a frame that cannot be read ends the copy", "op.fail(610, status::read_failed, rc);", "(void)rc;"),
        ("a new record that cannot be written is passed over",
         "  if (rc != status::ok) op.fail(741, status::record_write_failed, rc);\n", ""),
        ("every copy is kept", "{ return !op.failed(); }\n  void release()", "{ return true; }\n  void release()"),
        ("unchanged records are replaced", "    op.fail(810, status::unchanged);\n    return Verdict::kKeep;\n", ""),
    ],
    BIN_VERIFY: [
        ("a damaged frame verifies", "op.fail(210, side.failure, rc);", "(void)rc;"),
        ("frames of one beginning are the same", "earlier.frameLength() == current.frameLength() &&", ""),
        ("one record's fields decide",
         "matches(op, store_, kAllFields, a, b) && matches(op, store_, kAllFields, b, a)",
         "matches(op, store_, kAllFields, a, b)"),
    ],
    TEXT: [
        ("duplicate lines are added", "    return stop(op, 721, status::duplicate_record);\n", ""),
        ("several lines are edited", "    return stop(op, 631, status::several_match);\n", ""),
        ("editing no line succeeds", "if (!op.failed() && matchCount_ == 0) stop(op, 610, status::no_match);", ""),
        ("a failed write of lines is passed over", "  stop(op, 640, status::copy_write_failed);\n", ""),
        ("the last lines are not written",
         "  writeOut(op);  // an abandoned copy, too, has what comes before the end\n", ""),
    ],
    TEXT_VERIFY: [
        ("one line's fields decide",
         "matches(op, store_, kAllFields, a, b) && matches(op, store_, kAllFields, b, a)",
         "matches(op, store_, kAllFields, a, b)"),
        ("a piece of a line is a record", "!current_.text().isPiece() &&", ""),
    ],
    SYNC: [
        ("nothing is ever synced", "  return fsync(descriptor);", "  return 0 * descriptor;"),
        ("an interrupted sync has failed", "repeatInterrupted([&] { return syncOnce(descriptor); })",
         "syncOnce(descriptor)"),
        ("a failed sync is asked again", "return syncOnce(descriptor); })",
         "return syncOnce(descriptor) == 0 ? 0 : syncOnce(descriptor); })"),
        ("files are synced against the policy",
         "ossFileSync(int descriptor) {\n  if (ossGetSyncPolicy() == OSSSyncPolicy::none) return status::ok;",
         "ossFileSync(int descriptor) {"),
        ("directories are synced against the policy",
         "  if (ossGetSyncPolicy() == OSSSyncPolicy::none) return status::ok;\n  const int descriptor",
         "  const int descriptor"),
        ("a directory that cannot be synced is passed over",
         "return error == EINVAL ? status::ok : ossErrorMapSystem(error);", "return status::ok;"),
        ("a directory that cannot be opened is passed over",
         "if (descriptor < 0) return ossErrorMapSystem(errno);", "if (descriptor < 0) return status::ok;"),
        ("nothing is synced unless asked for", "syncPolicy{OSSSyncPolicy::standard}", "syncPolicy{OSSSyncPolicy::none}"),
    ],
    FILES: [
        ("a failed rename succeeds", "return resultOf(std::rename(from, to));", "return resultOf(std::rename(from, to) * 0);"),
        ("a failed delete succeeds", "return resultOf(unlink(path));", "return resultOf(unlink(path) * 0);"),
        ("any file of the disk has the name", " && held.st_ino == named.st_ino", ""),
        ("a link to the lock file has its name", "lstat(path, &named)", "stat(path, &named)"),
    ],
    FILE_LOCK: [
        ("locks are the process's", "kTryLock = F_OFD_SETLK;", "kTryLock = F_SETLK;"),
        ("waiting locks are the process's", "kWaitLock = F_OFD_SETLKW;", "kWaitLock = F_SETLKW;"),
        ("a signal ends the wait", "repeatInterrupted([&] { return fcntl(descriptor, command, &whole); })",
         "fcntl(descriptor, command, &whole)"),
        ("a held lock is a system error", "  if (errno == EAGAIN || errno == EACCES) return status::lock_held;\n", ""),
        ("every lock is shared", "== kOssLockExclusive ? F_WRLCK : F_RDLCK", "== kOssLockExclusive ? F_RDLCK : F_RDLCK"),
        ("unlocking does nothing", "return request(descriptor_, kTryLock, F_UNLCK);", "return status::ok;"),
        ("the limit on waiting is not heeded", "if (limit < 0) return request(", "return request("),
    ],
    INTERRUPTIONS: [
        ("an interrupted call has failed", "result != -1 || errno != EINTR", "true"),
        ("a failed call is made again", "result != -1 || errno != EINTR", "result != -1"),
        ("a call is made for ever", "return now - since_ >= kFastest;", "return true;"),
        ("a thousand interruptions are too many", "return now - since_ >= kFastest;", "return false;"),
    ],
    HANDLE: [
        ("links are followed", "params.options & kOssOpenNoFollow) != 0 ? O_NOFOLLOW : 0", "params.options & kOssOpenNoFollow) != 0 ? 0 : 0"),
        ("a failed close is none", "if (::close(descriptor) == 0 || errno == EINTR) return status::ok;",
         "if (::close(descriptor) == 0 || errno != 0) return status::ok;"),
    ],
}  # fmt: skip
