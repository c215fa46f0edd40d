// SPDX-License-Identifier: Apache-2.0
// The one dispatcher: command line in, exit status out.
#pragma once

namespace cli {

// Runs one command; never throws what is foreseen. The exit status.
int run(int count, char** strings);

}  // namespace cli
