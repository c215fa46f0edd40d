// SPDX-License-Identifier: Apache-2.0
// The largest block that the library asks the system for while the object lives. A program that
// uses it links the library's objects, and has the linker wrap malloc, calloc and realloc; blocks
// that the C library takes for itself are not seen.
#pragma once

#include <cstddef>

namespace vrxtest {

class AllocationWatch {
 public:
  AllocationWatch();
  ~AllocationWatch();
  AllocationWatch(const AllocationWatch&) = delete;
  AllocationWatch& operator=(const AllocationWatch&) = delete;

  std::size_t largest() const;
};

}  // namespace vrxtest
