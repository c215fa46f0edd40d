// SPDX-License-Identifier: Apache-2.0
// What one writer and one reader of a contended registry do, each with an object of its own, in a
// process or a thread of its own. What stands afterwards is judged by whoever started them.
#pragma once

#include <string>

#include "tests/concurrency/ledger.h"

namespace vrxtest {

// What everybody contends for.
struct Arena {
  const SignedFormat* format;
  std::string path;
  unsigned writers;
  unsigned updates;  // of each writer, until as many are acknowledged
  Ledger* ledger;
};

// Reads the whole registry with the object.
Listing listWith(AnyRegistry& registry, const SignedFormat& format);
// Likewise, with an object for it.
Listing listOf(const Arena& arena);

// Makes the writer's updates. One that takes the place of a dead writer finds out first whether the
// update in which that died was made, and goes on behind it.
void writeAll(const Arena& arena, unsigned writer);

// Lists the registry again and again, and once more when the ledger says that it is over, and
// judges every list.
void readAll(const Arena& arena, unsigned reader);

}  // namespace vrxtest
