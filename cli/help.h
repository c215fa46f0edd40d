// SPDX-License-Identifier: Apache-2.0
// Help texts, made from the tables of nouns, verbs and options.
#pragma once

#include <string>

#include "cli/noun.h"
#include "cli/verbs.h"

namespace cli {

std::string generalHelp();
std::string nounHelp(const Noun& noun);
// `noun` is null for a verb that stands alone.
std::string verbHelp(const Noun* noun, const Verb& verb);

// The verbs of two words that begin with this one.
std::string groupHelp(const std::string& first);

}  // namespace cli
