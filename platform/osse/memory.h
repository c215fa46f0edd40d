// SPDX-License-Identifier: Apache-2.0
// Memory blocks that know their size and notice overruns.
//
//     void* block = nullptr;
//     OSSStatus rc = ossMemAlloc(&block, size, __FILE__, __LINE__);
//     ...
//     rc = ossMemFree(block, __FILE__, __LINE__);
//
// Every block carries a hidden header with its capacity and a guard word, and a guard word behind
// its last byte. Blocks are thread-safe in the way of malloc: any thread may free any block.
#pragma once

#include "platform/osse/export.h"
#include "platform/osse/status.h"

// Allocates a zero-filled block of `size` bytes, aligned for any type; size 0 succeeds with a block
// that holds no byte. `file` (a string with static lifetime, or null) and `line` tell who asked.
// *out receives the block, to be given back with ossMemFree; it is untouched on failure.
// invalid_argument: out is null. no_memory: the system has none, or the size is absurd.
[[nodiscard]] VRXOSSE_API OSSStatus ossMemAlloc(void** out, unsigned long size, const char* file,
                                                unsigned int line);

// The same with whatever the memory holds instead of zeros: for a block that is filled before it is
// looked at.
[[nodiscard]] VRXOSSE_API OSSStatus ossMemAllocUncleared(void** out, unsigned long size,
                                                         const char* file, unsigned int line);

// Gives a block back; null succeeds. `file` and `line` tell who frees.
// memory_damaged: a guard word was overwritten. The block is then logged and left allocated, since
// the allocator's own words may be damaged too.
[[nodiscard]] VRXOSSE_API OSSStatus ossMemFree(void* block, const char* file, unsigned int line);

// The size in bytes that the block was allocated with; 0 for null and for a damaged header.
[[nodiscard]] VRXOSSE_API unsigned long ossMemCapacity(const void* block);

// How many blocks this process holds at this moment: a leak check compares two values.
[[nodiscard]] VRXOSSE_API unsigned long ossMemLiveBlocks();
