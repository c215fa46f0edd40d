// SPDX-License-Identifier: Apache-2.0
// The wrappers of malloc, calloc and realloc.
#include "tests/support/allocation_watch.h"

#include <algorithm>
#include <limits>

namespace {

thread_local bool watching = false;
thread_local std::size_t largestBlock = 0;

void note(std::size_t size) {
  if (watching) largestBlock = std::max(largestBlock, size);
}

}  // namespace

extern "C" {
void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void* __real_realloc(void* block, std::size_t size);

void* __wrap_malloc(std::size_t size) {
  note(size);
  return __real_malloc(size);
}
void* __wrap_calloc(std::size_t count, std::size_t size) {
  const bool fits = size == 0 || count <= std::numeric_limits<std::size_t>::max() / size;
  note(fits ? count * size : std::numeric_limits<std::size_t>::max());
  return __real_calloc(count, size);
}
void* __wrap_realloc(void* block, std::size_t size) {
  note(size);
  return __real_realloc(block, size);
}
}

namespace vrxtest {

AllocationWatch::AllocationWatch() {
  largestBlock = 0;
  watching = true;
}

AllocationWatch::~AllocationWatch() {
  watching = false;
}

std::size_t AllocationWatch::largest() const {
  return largestBlock;
}

}  // namespace vrxtest
