// The allocation hook and private heaps.
#include <gtest/gtest.h>

#include <cstring>
#include <thread>

#include "kernel/memory.h"

namespace {

TEST(MemoryHook, FailsTheArmedCallOnceOrFromThereOn) {
  for (DWORD flags : {ZQMEMFAIL_ONCE, ZQMEMFAIL_PERSISTENT}) {
    const bool persistent = flags == ZQMEMFAIL_PERSISTENT;
    ULONGLONG calls = ZqMemory_GetAllocCalls();
    void* blocks[4] = {};
    {
      ZqScopedAllocFailure fail(2, flags);
      blocks[0] = ZqMemory_Alloc(8);
      blocks[1] = ZqMemory_AllocZ(8);
      blocks[2] = ZqMemory_ReAlloc(blocks[0], 100);
      blocks[3] = ZqHeap_Create(0, 0, 0);  // heap creation goes through the hook too
      EXPECT_TRUE(fail.Triggered());
    }
    EXPECT_NE(blocks[0], nullptr);
    EXPECT_EQ(blocks[1], nullptr);
    EXPECT_EQ(blocks[2] != nullptr, !persistent);
    EXPECT_EQ(blocks[3] != nullptr, !persistent);
    EXPECT_EQ(ZqMemory_GetAllocCalls() - calls, 4u) << "failed calls count as calls";
    if (persistent) {
      EXPECT_EQ(ZqMemory_Size(blocks[0]), 8u) << "a failed resize keeps the block";
    }
    ZqMemory_Free(blocks[2] ? blocks[2] : blocks[0]);
    ZqHeap_Destroy(blocks[3]);
    void* after = ZqMemory_Alloc(1);
    EXPECT_NE(after, nullptr) << "disarmed at the end of the scope";
    ZqMemory_Free(after);
  }
}

TEST(MemoryHook, CallingThreadModeIgnoresOtherThreads) {
  ZqScopedAllocFailure fail(1, ZQMEMFAIL_CALLING_THREAD);
  void* elsewhere = nullptr;
  std::thread other([&] { elsewhere = ZqMemory_Alloc(16); });
  other.join();
  EXPECT_NE(elsewhere, nullptr);
  EXPECT_FALSE(fail.Triggered());
  EXPECT_EQ(ZqMemory_Alloc(16), nullptr);
  EXPECT_TRUE(fail.Triggered());
  ZqMemory_Free(elsewhere);
}

TEST(MemoryBlocks, SizesZeroingAndLiveCount) {
  LONG_PTR live = ZqMemory_GetLiveBlocks();
  auto* p = static_cast<unsigned char*>(ZqMemory_AllocZ(10));
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % alignof(std::max_align_t), 0u);
  std::memset(p, 0xEE, 10);
  p = static_cast<unsigned char*>(ZqMemory_ReAlloc(p, 1000));
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(ZqMemory_Size(p), 1000u);
  EXPECT_EQ(p[9], 0xEE);
  EXPECT_EQ(p[10], 0) << "the grown part is zero";
  EXPECT_EQ(p[999], 0);
  void* empty = ZqMemory_Alloc(0);
  EXPECT_NE(empty, nullptr);
  EXPECT_EQ(ZqMemory_GetLiveBlocks(), live + 2);
  ZqMemory_Free(p);
  ZqMemory_Free(empty);
  ZqMemory_Free(nullptr);
  EXPECT_EQ(ZqMemory_GetLiveBlocks(), live);
  EXPECT_EQ(ZqMemory_Alloc(SIZE_MAX - 8), nullptr) << "sizes that overflow the header";
}

TEST(MemoryHeaps, BlocksBelongToOneHeapChangeOwnerAndDieWithIt) {
  LONG_PTR live = ZqMemory_GetLiveBlocks();
  HANDLE a = ZqHeap_Create(0, 4096, 0);
  HANDLE b = ZqHeap_Create(0, 0, 0);
  void* blocks[20];
  for (int i = 0; i < 20; ++i) blocks[i] = ZqHeap_Alloc(a, ZQHEAP_ZERO_MEMORY, 16 + i);
  EXPECT_EQ(ZqHeap_Size(a, 0, blocks[3]), 19u);
  EXPECT_TRUE(ZqHeap_Free(a, 0, blocks[0]));
  blocks[5] = ZqHeap_ReAlloc(a, 0, blocks[5], 500);
  ASSERT_NE(blocks[5], nullptr);
  EXPECT_EQ(ZqHeap_BlockCount(a), 19u);
  void* general = ZqMemory_Alloc(32);
  EXPECT_FALSE(ZqHeap_Free(b, 0, blocks[1])) << "not b's block";
  EXPECT_EQ(ZqHeap_Size(b, 0, blocks[1]), static_cast<size_t>(-1));
  EXPECT_EQ(ZqHeap_ReAlloc(b, 0, blocks[1], 64), nullptr);
  EXPECT_FALSE(ZqHeap_Free(a, 0, general));
  ZqHeap_Adopt(b, blocks[1]);  // from a to b
  ZqHeap_Adopt(b, general);    // from the general heap to b
  EXPECT_EQ(ZqHeap_BlockCount(a), 18u);
  EXPECT_EQ(ZqMemory_GetLiveBlocks(), live + 20);
  EXPECT_TRUE(ZqHeap_Destroy(a));
  std::memset(blocks[1], 1, 17);  // still alive: b owns it now
  ZqHeap_Adopt(nullptr, blocks[1]);  // back to the general heap
  EXPECT_TRUE(ZqHeap_Destroy(b));    // frees `general`, not blocks[1]
  EXPECT_EQ(ZqMemory_Size(blocks[1]), 17u);
  ZqMemory_Free(blocks[1]);
  EXPECT_EQ(ZqMemory_GetLiveBlocks(), live);
  EXPECT_FALSE(ZqHeap_Destroy(nullptr));
}

}  // namespace
