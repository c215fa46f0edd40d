// SPDX-License-Identifier: Apache-2.0
// malloc and its kin, in front of the C library's: a program's own definitions are taken by every
// library that it loads.
#include "benchmarks/costs/allocations.h"

#include <atomic>
#include <cstddef>

extern "C" {
// The C library's own, which it exports for this.
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
}

namespace {

std::atomic<unsigned long> allocations{0};

void count() {
  allocations.fetch_add(1, std::memory_order_relaxed);
}

}  // namespace

extern "C" {

void* malloc(std::size_t size) {
  count();
  return __libc_malloc(size);
}

void* calloc(std::size_t number, std::size_t size) {
  count();
  return __libc_calloc(number, size);
}

void* realloc(void* block, std::size_t size) {
  count();
  return __libc_realloc(block, size);
}

}  // extern "C"

unsigned long vrxbench::allocationCount() {
  return allocations.load(std::memory_order_relaxed);
}
