// SPDX-License-Identifier: Apache-2.0
// The nouns of the global registry.
#pragma once

#include <vector>

#include "cli/noun.h"

namespace cli {

// instance, service, variable.
std::vector<Noun> globalNouns();

}  // namespace cli
