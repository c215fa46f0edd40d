// SPDX-License-Identifier: Apache-2.0
// Waiting for a registry's lock no longer than asked for, and telling who holds it.
#pragma once

#include <functional>
#include <string>

#include "cli/arguments.h"
#include "cli/noun.h"

namespace cli {

// Runs `update`, which takes the store's lock, again and again while the lock is busy, until it has
// run or the time limit has passed. Its status, with lock_not_taken replaced by the reason why the
// lock could not be taken. Throws Failure (busy) when the time has passed; the holder is named.
vrx::Status runUpdate(const Arguments& arguments, Store& store,
                      const std::function<vrx::Status()>& update);

// "pid 4312 (vrxinst)" for the process that holds a lock on this file, as far as /proc shows it to
// this user; "another process" otherwise.
std::string lockHolder(const std::string& path);

}  // namespace cli
