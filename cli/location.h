// SPDX-License-Identifier: Apache-2.0
// Which global registry the arguments and the environment choose, and why.
#pragma once

#include <string>

#include "cli/arguments.h"
#include "vrx/global_registry.h"

namespace cli {

// Makes the global registry objects built from here on use this file. --registry works through the
// environment, as it does for every other program of the library.
void useRegistry(const std::string& path);

// The registries that the environment may choose under these arguments.
vrx::Scope scopeOf(const Arguments& arguments);

// The path of this registry. Throws Failure (noRegistry) when it has none that can be
// used.
std::string registryPathOf(const vrx::GlobalRegistry& registry);

// One clause: which rule chose the registry.
std::string registryReason(const Arguments& arguments);

// Throws Failure when the file at `path` is missing (noRegistry), cannot be looked at or is not a
// regular file (io). Reading would create a missing one.
void requireRegistry(const std::string& path);

// Throws Failure (noRegistry) when there is no folder for a file at `path`.
void requireFolder(const std::string& path);

// Whether anything stands at `path`.
bool registryExists(const std::string& path);

}  // namespace cli
