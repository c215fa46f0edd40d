// SPDX-License-Identifier: Apache-2.0
// Memory blocks: contents, alignment, limits, damage.
#include "platform/osse/memory.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "platform/osse/log.h"

namespace {

using namespace oss;

using Allocate = decltype(&ossMemAlloc);
constexpr Allocate kBoth[] = {ossMemAlloc, ossMemAllocUncleared};

unsigned char* allocated(unsigned long size, Allocate allocate = ossMemAlloc) {
  void* block = nullptr;
  EXPECT_EQ(allocate(&block, size, __FILE__, __LINE__), status::ok);
  EXPECT_NE(block, nullptr);
  return static_cast<unsigned char*>(block);
}

void release(void* block) {
  EXPECT_EQ(ossMemFree(block, __FILE__, __LINE__), status::ok);
}

TEST(OssMemory, BlocksAreZeroFilledAfterUseToo) {
  for (int round = 0; round < 3; ++round) {
    unsigned char* block = allocated(1000);
    for (int i = 0; i < 1000; ++i)
      ASSERT_EQ(block[i], 0) << i;
    std::memset(block, 0xA5, 1000);
    release(block);
  }
}

TEST(OssMemory, UnclearedBlocksAreCountedAndNoticeOverruns) {
  const unsigned long before = ossMemLiveBlocks();
  unsigned char* block = allocated(20, ossMemAllocUncleared);
  EXPECT_EQ(ossMemLiveBlocks(), before + 1);
  const unsigned char behind = block[20];
  block[20] = static_cast<unsigned char>(~behind);
  EXPECT_EQ(ossMemFree(block, __FILE__, __LINE__), status::memory_damaged);
  block[20] = behind;
  release(block);
  EXPECT_EQ(ossMemLiveBlocks(), before);
}

TEST(OssMemory, SizeZeroGivesABlock) {
  unsigned char* block = allocated(0);
  EXPECT_EQ(ossMemCapacity(block), 0u);
  release(block);
}

TEST(OssMemory, EverySizeKeepsTheLargestAlignmentAndItsCapacity) {
  for (unsigned long size = 0; size < 400; ++size) {
    unsigned char* block = allocated(size / 2, kBoth[size % 2]);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % alignof(std::max_align_t), 0u) << size;
    EXPECT_EQ(ossMemCapacity(block), size / 2);
    std::memset(block, 0xFF, size / 2);
    release(block);
  }
}

TEST(OssMemory, NullFreesAndHasNoCapacity) {
  release(nullptr);
  EXPECT_EQ(ossMemCapacity(nullptr), 0u);
}

TEST(OssMemory, NullOutputIsAnInvalidArgument) {
  for (const Allocate allocate : kBoth)
    EXPECT_EQ(allocate(nullptr, 1, __FILE__, __LINE__), status::invalid_argument);
}

TEST(OssMemory, AbsurdSizesFailAndLeaveTheOutput) {
  int marker = 0;
  for (const unsigned long size :
       {ULONG_MAX, ULONG_MAX - 1, ULONG_MAX - 64, ULONG_MAX / 2, ULONG_MAX / 2 - 8}) {
    void* block = &marker;
    for (const Allocate allocate : kBoth) {
      EXPECT_EQ(allocate(&block, size, __FILE__, __LINE__), status::no_memory) << size;
      EXPECT_EQ(block, &marker);
    }
  }
}

TEST(OssMemory, LiveBlocksCountsAllocationsLessFrees) {
  const unsigned long before = ossMemLiveBlocks();
  unsigned char* one = allocated(10);
  unsigned char* other = allocated(20);
  EXPECT_EQ(ossMemLiveBlocks(), before + 2);
  release(one);
  release(other);
  release(nullptr);
  EXPECT_EQ(ossMemLiveBlocks(), before);
}

TEST(OssMemory, LiveBlocksCountsAcrossThreads) {
  const unsigned long before = ossMemLiveBlocks();
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([] {
      for (unsigned long i = 0; i < 500; ++i)
        release(allocated(i));
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(ossMemLiveBlocks(), before);
}

// Overwrites one byte at `offset` from the block, expects the damage to be found and nothing to be
// freed, repairs the byte and frees.
void expectDamageFound(unsigned long size, std::ptrdiff_t offset) {
  unsigned char* block = allocated(size);
  const unsigned long live = ossMemLiveBlocks();
  volatile unsigned char* victim = block + offset;  // keeps the compiler from judging the overrun
  *victim = static_cast<unsigned char>(*victim ^ 0x40);
  EXPECT_EQ(ossMemFree(block, __FILE__, __LINE__), status::memory_damaged) << offset;
  EXPECT_EQ(ossMemLiveBlocks(), live);
  *victim = static_cast<unsigned char>(*victim ^ 0x40);
  release(block);
}

constexpr std::ptrdiff_t kWord = sizeof(void*);

TEST(OssMemory, AnOverrunIsFound) {
  for (const unsigned long size : {0ul, 1ul, 7ul, 64ul, 1000ul}) {
    const auto end = static_cast<std::ptrdiff_t>(size);
    for (std::ptrdiff_t i = 0; i < kWord; ++i)
      expectDamageFound(size, end + i);
  }
}

TEST(OssMemory, ADamagedCapacityOrGuardIsFound) {
  const std::ptrdiff_t header = kWord == 8 ? 32 : 16;
  for (std::ptrdiff_t i = 0; i < 2 * kWord; ++i)
    expectDamageFound(100, i - header);
}

TEST(OssMemory, ADamagedHeaderHasNoCapacity) {
  unsigned char* block = allocated(100);
  volatile unsigned char* capacity = block - (kWord == 8 ? 32 : 16);
  *capacity = static_cast<unsigned char>(*capacity ^ 1);
  EXPECT_EQ(ossMemCapacity(block), 0u);
  *capacity = static_cast<unsigned char>(*capacity ^ 1);
  release(block);
}

TEST(OssMemory, ACopiedHeaderIsNoHeader) {
  unsigned char* block = allocated(200);
  std::memcpy(block, block - 32, 32);
  EXPECT_EQ(ossMemFree(block + 32, __FILE__, __LINE__), status::memory_damaged);
  release(block);
}

void keepText(const OSSLogEntry* entry, void* context) {
  *static_cast<std::string*>(context) = entry->text;
}

TEST(OssMemory, DamageIsLoggedWithThePlaceOfTheFree) {
  std::string text;
  ASSERT_EQ(ossSetLogCallback(keepText, &text), status::ok);
  unsigned char* block = allocated(3);
  volatile unsigned char* victim = block + 3;
  *victim = static_cast<unsigned char>(*victim ^ 1);
  EXPECT_EQ(ossMemFree(block, "some_file.cpp", 77), status::memory_damaged);
  *victim = static_cast<unsigned char>(*victim ^ 1);
  ASSERT_EQ(ossSetLogSink(OSSLogSink::none), status::ok);
  release(block);
  EXPECT_NE(text.find("some_file.cpp:77"), std::string::npos) << text;
}

}  // namespace
