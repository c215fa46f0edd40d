# SPDX-License-Identifier: Apache-2.0
"""Mistakes that somebody could make in the code that locks, copies, verifies and commits.

One row each: a name, and the exact text that is replaced. The text stands once in its file; when the code
changes, the rows that no longer fit are refused by name. A mutant whose text is replaced by nothing is a
step left out. Not here: how mutants are built and tried (scripts/mutants.py), those of the stores
(tests/mutants/stores.py).
"""

LOCK = "genreg/registry_lock.cpp"
FILES = "genreg/internal/registry_files.h"
OPEN = "genreg/registry_open.cpp"
STREAM = "genreg/registry_stream.cpp"
CLOSE = "genreg/registry_close.cpp"

# Files with their (name, text, replacement) rows.
MUTANTS = {
    LOCK: [
        ("the lock is not asked for", "rc = registry.lockFile.lock(&request);", "rc = status::ok;"),
        ("writers share the lock", "exclusive ? kOssLockExclusive : kOssLockShared", "kOssLockShared"),
        ("nobody waits for the lock", "waits ? kOssLockWait : kOssLockNoWait", "kOssLockNoWait"),
        ("everybody waits for the lock", "waits ? kOssLockWait : kOssLockNoWait", "kOssLockWait"),
        ("a held lock has no status of its own", "if (!waits && rc == status::lock_held) {", "if (false) {"),
        ("a refused lock counts as taken", "  op.fail(21, rc);\n", ""),
        ("a planted lock file link is followed", "kOssOpenOrCreate | kOssOpenNoFollow", "kOssOpenOrCreate"),
        ("a lock file that cannot be opened is passed over",
         "  if (rc != status::ok) op.fail(10, status::lock_file_not_opened, rc);\n", ""),
        ("a lock file that lost its name will do", "if (lockFileKeepsItsName(op, registry)) return;", "return;"),
        ("an unchecked name will do",
         "  if (rc != status::ok) op.fail(30, status::lock_file_not_opened, rc);\n", ""),
        ("an unusable grant is kept", "    (void)registry.lockFile.unlock();", "   "),
        ("one deleted lock file ends the update", "kMaxLockAttempts = 100", "kMaxLockAttempts = 1"),
        ("giving up counts as holding", "  op.fail(40, status::lock_file_not_opened);\n", ""),
        ("the same object locks twice",
         "  if ((state & kGenRegStateLocked) != 0) return op.fail(4, status::lock_already_held);\n", ""),
        ("a failed lock sets the bit", "if (!op.failed()) state |=", "state |="),
        ("the lock stands beside the link", "  GetAndSetRealRegistryPaths();\n", ""),
        ("the directory is not created", "ensureDirectoryOf(op, registryPath);", "(void)flags;"),
        ("the lock is not released", "rc = lockFile.unlock();", "rc = status::ok;"),
        ("the bit outlives the lock", "  state &= ~kGenRegStateLocked;\n", ""),
        ("the lock file stays open", "rc = lockFile.close();", "rc = status::ok;"),
    ],
    FILES: [
        ("readers do not look where a link leads", "  request.options |= kOssOpenNoFollow;\n", ""),
    ],
    OPEN: [
        ("updates follow a link in the registry's place", "  request.options |= kOssOpenNoFollow;\n", ""),
        ("adding follows a link in the registry's place",
         "request.options = kOssOpenOrCreate | kOssOpenNoFollow;", "request.options = kOssOpenOrCreate;"),
        ("a created registry is not locked exclusively", "  request.lockType = kOssLockExclusive;\n", ""),
        ("creating waits for a reader", "request.sharedWhenBusy = !appendsInPlace(registry);", ""),
        ("appending does not wait for readers", "= !appendsInPlace(registry);\n  return request;",
         "= true;\n  return request;"),
        ("the older corrupt copy stays", "if (isTaken(registry.corruptPath)) {", "if (false) {"),
        ("a corrupt copy that stays is passed over",
         "      op.fail(20, status::corrupt_copy_not_deleted, rc);\n      return;\n", ""),
        ("leftovers are not set aside", "if (!isTaken(registry.temporaryPath)) return;", "return;"),
        ("leftovers are thrown away", "ossFileRename(registry.temporaryPath, registry.corruptPath)",
         "ossFileDelete(registry.temporaryPath)"),
        ("a leftover that stays is passed over",
         "  if (rc != status::ok) op.fail(21, status::leftover_not_moved, rc);\n", ""),
        ("a dangling link is no leftover", "return lstat(path, &info) == 0;", "return stat(path, &info) == 0;"),
        ("verification sets its own copy aside", "if (mode != kGenRegVerify) setLeftoversAside",
         "setLeftoversAside"),
        ("the copy keeps its maker's owner", "if (isUpdate(mode)) ossFileCopyOwnership(", "if (false) ossFileCopyOwnership("),
        ("the copy keeps its private mode", "rc = ossFileSetPermissions(copy, wanted);",
         "rc = status::ok;"),
        ("permissions that cannot be set are passed over",
         "  if (rc != status::ok) op.fail(31, status::copy_permissions_not_set, rc);\n", ""),
        ("a registry that vanished is passed over", "    op.failErrno(30, status::no_registry_info, errno);\n    return;\n", ""),
        ("streams of an earlier failure stay", "  (void)closeTemporaryStream(*this);", " "),
        ("updates rewrite the link", "if (mode != kGenRegRead) GetAndSetRealRegistryPaths();", ""),
        ("a verified Add appends in place", "!hasFeature(registry, kGenRegVerifyCommit)", "true"),
    ],
    STREAM: [
        ("a planted copy is opened", "O_CREAT | O_EXCL;", "O_CREAT;"),
        ("a link in the copy's place is followed", "O_CLOEXEC | O_NOFOLLOW |", "O_CLOEXEC |"),
        ("the copy's descriptor is inherited", "kGuards = O_CLOEXEC | ", "kGuards = "),
        ("a copy that is a pipe is waited for", "O_NONBLOCK | O_NOCTTY", "O_NOCTTY"),
        ("everybody may open the fresh copy", "kPrivateMode = 0600", "kPrivateMode = 0666"),
        ("a copy with a second name will do", " && info.st_nlink == 1 ?", " ?"),
        ("anything is a copy", "S_ISREG(info.st_mode) && ", ""),
        ("an unusable copy stays", "  if (use == CopyUse::kCreate) (void)unlink(path);\n", ""),
        ("somebody else's copy is deleted", "if (use == CopyUse::kCreate) (void)unlink(path);",
         "(void)unlink(path);"),
        ("a stamped copy is not emptied", "ftruncate(descriptor, 0) != 0", "false"),
        ("the registry is not locked", "GenRegStatus rc = file.lock(&lock);", "GenRegStatus rc = status::ok;"),
        ("a registry that cannot be locked is passed over",
         "  if (rc != status::ok) op.fail(110, status::registry_not_locked, rc);\n", ""),
        ("any file is a registry", "} else if (!S_ISREG(info.st_mode)) {", "} else if (false) {"),
        ("a failed close goes unnoticed", "std::fclose(file) == 0 ? 0 : errno", "std::fclose(file) * 0"),
        ("updates follow the link they meet", " && request.resolvesLink) {", ") {"),
        ("a missing registry has no status of its own", "missing ? status::no_registry :", ""),
    ],
    CLOSE: [
        ("the copy is not flushed", "if (std::fflush(copy) != 0 || std::ferror(copy) != 0) {",
         "if (std::ferror(copy) != 0) {"),
        ("an earlier write error is forgotten", "std::fflush(copy) != 0 || std::ferror(copy) != 0",
         "std::fflush(copy) != 0"),
        ("the copy is not synced", "rc = ossFileSync(fileno(copy));", "rc = status::ok;"),
        ("a failed sync of the copy is passed over",
         "  if (rc != status::ok) op.fail(21, status::copy_not_closed, rc);\n", ""),
        ("the copy is synced before it is flushed",
         "  if (std::fflush(copy) != 0 || std::ferror(copy) != 0) {\n"
         "    op.failErrno(20, status::copy_not_closed, errno);\n    return;\n  }\n"
         "  const GenRegStatus rc = ossFileSync(fileno(copy));\n",
         "  const GenRegStatus rc = ossFileSync(fileno(copy));\n"
         "  if (std::fflush(copy) != 0 || std::ferror(copy) != 0) {\n"
         "    op.failErrno(20, status::copy_not_closed, errno);\n    return;\n  }\n"),
        ("a copy that cannot be closed is passed over",
         "  if (error != 0) op.failErrno(22, status::copy_not_closed, error);\n", ""),
        ("verification flushes, updates do not", "  if (isUpdate(mode)) {", "  if (!isUpdate(mode)) {"),
        ("a failed stamp is flushed", "if (!op.failed()) flushCopy(", "flushCopy("),
        ("an unstamped header counts as stamped", "if (!op.failed() && stamped) copyLacksHeader",
         "copyLacksHeader"),
        ("the backup of a dead update stays", "  (void)ossFileDelete(registry.backupPath);\n", ""),
        ("no backup is linked", "if (link(registry.registryPath, registry.backupPath) != 0) {", "if (false) {"),
        ("the backup has the new contents", "link(registry.registryPath, registry.backupPath)",
         "link(registry.temporaryPath, registry.backupPath)"),
        ("a missing backup is passed over",
         "    op.failErrno(30, status::backup_not_linked, errno);\n    return;\n", ""),
        ("the full policy is as the standard one", "if (ossGetSyncPolicy() == OSSSyncPolicy::full) {",
         "if (false) {"),
        ("the standard policy is as the full one", "ossGetSyncPolicy() == OSSSyncPolicy::full",
         "ossGetSyncPolicy() != OSSSyncPolicy::none"),
        ("the full policy goes on without its backup", "status::backup_not_linked);\n    if (op.failed()) return;",
         "status::backup_not_linked);"),
        ("a failed rename syncs the directory", "    op.fail(31, status::registry_not_replaced, rc);\n    return;",
         "    op.fail(31, status::registry_not_replaced, rc);"),
        ("a failed rename is passed over", "    op.fail(31, status::registry_not_replaced, rc);\n    return;", ""),
        ("the new name is not synced",
         "  syncDirectory(op, registry.registryPath, status::backup_not_deleted);\n", ""),
        ("the directory is synced before the rename",
         "  GenRegStatus rc = ossFileRename(registry.temporaryPath, registry.registryPath);\n"
         "  if (rc != status::ok) {\n    op.fail(31, status::registry_not_replaced, rc);\n    return;\n  }\n"
         "  // The rename must be on disk before the old contents lose their second name.\n"
         "  syncDirectory(op, registry.registryPath, status::backup_not_deleted);\n",
         "  syncDirectory(op, registry.registryPath, status::backup_not_deleted);\n"
         "  GenRegStatus rc = ossFileRename(registry.temporaryPath, registry.registryPath);\n"
         "  if (rc != status::ok) {\n    op.fail(31, status::registry_not_replaced, rc);\n    return;\n  }\n"),
        ("the directory is synced after the backup is gone",
         "  syncDirectory(op, registry.registryPath, status::backup_not_deleted);\n  if (op.failed()) return;\n"
         "  rc = ossFileDelete(registry.backupPath);\n",
         "  rc = ossFileDelete(registry.backupPath);\n"
         "  syncDirectory(op, registry.registryPath, status::backup_not_deleted);\n"),
        ("a failed sync loses the backup", "status::backup_not_deleted);\n  if (op.failed()) return;",
         "status::backup_not_deleted);"),
        ("a failed sync of the directory is passed over",
         "  if (rc != status::ok) op.fail(33, failure, rc);\n", ""),
        ("the backup stays", "  rc = ossFileDelete(registry.backupPath);", "  rc = status::ok;"),
        ("a backup that stays is passed over",
         "  if (rc != status::ok) op.fail(32, status::backup_not_deleted, rc);\n", ""),
        ("an unverified copy is committed", "return mode == kGenRegVerify;", "return mode != kGenRegRead;"),
        ("a reading close commits", "return mode == kGenRegVerify;", "return true;"),
        ("a copy that failed is committed", "if (op.failed() || !commits(*this, mode))",
         "if (!commits(*this, mode))"),
        ("a registry that cannot be closed is passed over",
         "  if (error != 0) return op.failErrno(2, status::registry_not_closed, error);\n", ""),
        ("an appended record is not synced", "ossFileSync(fileno(registry)) == status::ok;", "true;"),
        ("an abandoned append stays", "  if (!kept) {", "  if (false) {"),
        ("an append is cut off in the wrong place",
         "cutBack(fileno(stream), registry.registrySize)", "cutBack(fileno(stream), 0)"),
        ("an append that fails at its close stays",
         "  if (closeError != 0 && spare >= 0) (void)cutBack(spare, registry.registrySize);", "  "),
        ("the spare descriptor leaks", "  if (spare >= 0) (void)close(spare);", "  "),
    ],
}  # fmt: skip
