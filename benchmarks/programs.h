// SPDX-License-Identifier: Apache-2.0
// Running other programs to their end.
#pragma once

#include <string>
#include <vector>

namespace vrxbench {

// Runs the program, looked up in PATH, with its standard output thrown away. Ends this one unless
// it exits with 0.
void runProgram(const std::vector<std::string>& arguments);

}  // namespace vrxbench
