// SPDX-License-Identifier: Apache-2.0
// Counts the allocations of this process, the libraries' own and the C library's among them.
#pragma once

namespace vrxbench {

unsigned long allocationCount();

}  // namespace vrxbench
