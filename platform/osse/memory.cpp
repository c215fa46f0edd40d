// SPDX-License-Identifier: Apache-2.0
// Memory blocks that know their size and notice overruns.
//
//     | Header: capacity, guard, file, line | the caller's bytes | guard |
#include "platform/osse/memory.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>

#include "platform/osse/internal/function_ids.h"
#include "platform/osse/log.h"
#include "platform/osse/strings.h"

namespace {

using namespace oss::internal;

struct alignas(alignof(std::max_align_t)) Header {
  unsigned long capacity;
  std::uintptr_t guard;  // depends on the address and the capacity: a copied header is no header
  const char* file;
  unsigned int line;
};
static_assert(sizeof(Header) % alignof(std::max_align_t) == 0, "blocks keep malloc's alignment");

constexpr std::uintptr_t kMagic = static_cast<std::uintptr_t>(0x5AFE3E3B10C4B10Cull);
constexpr unsigned long kOverhead = sizeof(Header) + sizeof(std::uintptr_t);

std::atomic<unsigned long> liveBlocks{0};

std::uintptr_t guardOf(const Header* header) {
  return kMagic ^ reinterpret_cast<std::uintptr_t>(header) ^ header->capacity;
}

Header* headerOf(void* block) {
  return static_cast<Header*>(block) - 1;
}
const Header* headerOf(const void* block) {
  return static_cast<const Header*>(block) - 1;
}

unsigned char* trailerOf(Header* header) {
  return reinterpret_cast<unsigned char*>(header + 1) + header->capacity;
}

// The header first: only a sound capacity tells where the trailing guard is.
bool isIntact(Header* header) {
  if (header->guard != guardOf(header)) return false;
  std::uintptr_t trailing = 0;
  std::memcpy(&trailing, trailerOf(header), sizeof trailing);
  return trailing == header->guard;
}

// Of the header only its address is trusted.
void logDamage(const void* block, const char* file, unsigned int line) {
  if (!ossLogIsEnabled()) return;
  char text[256];
  (void)ossSnprintf(text, sizeof text, "block %p freed at %s:%u",  // cut when long: only a log
                    block, file != nullptr ? file : "?", line);
  ossLog(kOssMemFree, 1, oss::status::memory_damaged, text);
}

void logNoMemory(unsigned long size, const char* file, unsigned int line) {
  if (!ossLogIsEnabled()) return;
  char text[256];
  (void)ossSnprintf(text, sizeof text, "%lu bytes wanted at %s:%u",  // cut when long: only a log
                    size, file != nullptr ? file : "?", line);
  ossLog(kOssMemAlloc, 1, oss::status::no_memory, text);
}

bool isAbsurd(unsigned long size) {
  return size > std::numeric_limits<std::size_t>::max() / 2 - kOverhead;
}

// Makes `memory` a block, or reports that there is none.
OSSStatus handOut(void* memory, void** out, unsigned long size, const char* file,
                  unsigned int line) {
  if (memory == nullptr) {
    logNoMemory(size, file, line);
    return oss::status::no_memory;
  }
  auto* header = new (memory) Header{size, 0, file, line};
  header->guard = guardOf(header);
  std::memcpy(trailerOf(header), &header->guard, sizeof header->guard);
  liveBlocks.fetch_add(1, std::memory_order_relaxed);
  *out = header + 1;
  return oss::status::ok;
}

}  // namespace

OSSStatus ossMemAlloc(void** out, unsigned long size, const char* file, unsigned int line) {
  if (out == nullptr) return oss::status::invalid_argument;
  void* const memory = isAbsurd(size) ? nullptr : std::calloc(1, kOverhead + size);
  return handOut(memory, out, size, file, line);
}

OSSStatus ossMemAllocUncleared(void** out, unsigned long size, const char* file,
                               unsigned int line) {
  if (out == nullptr) return oss::status::invalid_argument;
  void* const memory = isAbsurd(size) ? nullptr : std::malloc(kOverhead + size);
  return handOut(memory, out, size, file, line);
}

OSSStatus ossMemFree(void* block, const char* file, unsigned int line) {
  if (block == nullptr) return oss::status::ok;
  Header* header = headerOf(block);
  if (!isIntact(header)) {
    logDamage(block, file, line);
    return oss::status::memory_damaged;
  }
  // A second free of the block is then noticed, mostly; volatile, or the store would be dropped.
  *const_cast<volatile std::uintptr_t*>(&header->guard) = 0;
  liveBlocks.fetch_sub(1, std::memory_order_relaxed);
  std::free(header);
  return oss::status::ok;
}

unsigned long ossMemCapacity(const void* block) {
  if (block == nullptr) return 0;
  const Header* header = headerOf(block);
  return header->guard == guardOf(header) ? header->capacity : 0;
}

unsigned long ossMemLiveBlocks() {
  return liveBlocks.load(std::memory_order_relaxed);
}
