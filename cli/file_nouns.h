// SPDX-License-Identifier: Apache-2.0
// The nouns that are kept in files of their own: lines of a text, or frames of a binary file.
#pragma once

#include "cli/noun.h"

namespace cli {

Noun profileNoun();
Noun portsNoun();
Noun inittabNoun();
Noun binvarNoun();

}  // namespace cli
