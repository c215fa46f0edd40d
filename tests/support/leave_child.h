// SPDX-License-Identifier: Apache-2.0
// How the tests' forked children end: at once, without the destructors and checks that belong to
// the parent, but not without what a coverage build has counted in them.
#pragma once

namespace vrxtest {

// Ends this process with the exit code. What a coverage build has counted is added to its files
// first, where this process may still write them.
[[noreturn]] void leaveChild(int code);

}  // namespace vrxtest
