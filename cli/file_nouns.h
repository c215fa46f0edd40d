// SPDX-License-Identifier: Apache-2.0
// The nouns that are kept in files of their own: lines of a text, or frames of a binary file.
#pragma once

#include "cli/noun.h"
#include "genreg/text/line_io.h"

namespace cli {

// The text of a line, without its line end.
constexpr std::size_t kMaxLineText = kGenRegLineSize - 2;

Noun profileNoun();
Noun portsNoun();
Noun inittabNoun();
Noun binvarNoun();

}  // namespace cli
