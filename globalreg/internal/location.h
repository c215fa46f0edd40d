// SPDX-License-Identifier: Apache-2.0
// Where the global registry is: one decision for the registry object, the exported function and the
// change log.
#pragma once

#include "genreg/registry.h"
#include "genreg/status.h"

namespace globalreg {

// Which registries the decision considers.
enum class Scope { instanceOrHost, hostOnly };

// Holds the path that was found. Not to be copied: `path` may point into the object.
struct Location {
  Location() = default;
  Location(const Location&) = delete;
  Location& operator=(const Location&) = delete;

  const char* path = "";  // into the environment, into `home`, or static
  char home[kGenRegPathSize] = {};
};

// Decides, and leaves the path in `found`. After a failure, which is the code of the lookup of the
// instance owner's home directory, the path is empty.
[[nodiscard]] GenRegStatus locateRegistry(Scope scope, Location* found);

}  // namespace globalreg
