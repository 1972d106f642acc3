// The allocation hook and private heaps.
#include <gtest/gtest.h>

#include <cstring>
#include <thread>

#include "kernel/memory.h"

namespace {

TEST(MemoryHook, FailsExactlyTheArmedCall) {
  ULONGLONG calls = ZqMemory_GetAllocCalls();
  ZqMemory_SetFailAt(3, ZQMEMFAIL_ONCE);
  void* a = ZqMemory_Alloc(8);
  void* b = ZqMemory_AllocZ(8);
  void* c = ZqMemory_Alloc(8);
  void* d = ZqMemory_Alloc(8);
  EXPECT_EQ(ZqMemory_GetInjectedFailures(), 1);
  ZqMemory_SetFailAt(0, 0);
  EXPECT_NE(a, nullptr);
  EXPECT_NE(b, nullptr);
  EXPECT_EQ(c, nullptr);
  EXPECT_NE(d, nullptr) << "only the armed call fails";
  EXPECT_EQ(ZqMemory_GetAllocCalls() - calls, 4u) << "failed calls count as calls";
  for (void* p : {a, b, d}) ZqMemory_Free(p);
}

TEST(MemoryHook, PersistentFailureAndScopedDisarm) {
  void* ok = nullptr;
  {
    ZqScopedAllocFailure fail(2, ZQMEMFAIL_PERSISTENT);
    ok = ZqMemory_Alloc(1);
    EXPECT_EQ(ZqMemory_Alloc(1), nullptr);
    EXPECT_EQ(ZqMemory_AllocZ(1), nullptr);
    EXPECT_EQ(ZqHeap_Create(0, 0, 0), nullptr) << "heap creation goes through the hook too";
    EXPECT_EQ(ZqMemory_ReAlloc(ok, 100), nullptr);
    EXPECT_EQ(ZqMemory_Size(ok), 1u) << "a failed resize keeps the block";
    EXPECT_TRUE(fail.Triggered());
  }
  void* after = ZqMemory_Alloc(1);
  EXPECT_NE(after, nullptr) << "disarmed at the end of the scope";
  ZqMemory_Free(after);
  ZqMemory_Free(ok);
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
  EXPECT_EQ(ZqMemory_Size(empty), 0u);
  EXPECT_EQ(ZqMemory_GetLiveBlocks(), live + 2);
  ZqMemory_Free(p);
  ZqMemory_Free(empty);
  ZqMemory_Free(nullptr);
  EXPECT_EQ(ZqMemory_Size(nullptr), 0u);
  EXPECT_EQ(ZqMemory_GetLiveBlocks(), live);
  EXPECT_EQ(ZqMemory_Alloc(SIZE_MAX - 8), nullptr) << "sizes that overflow the header";
}

TEST(MemoryHeaps, DestroyFreesEveryBlockAtOnce) {
  LONG_PTR live = ZqMemory_GetLiveBlocks();
  HANDLE heap = ZqHeap_Create(0, 4096, 0);
  ASSERT_NE(heap, nullptr);
  void* blocks[20];
  for (int i = 0; i < 20; ++i) blocks[i] = ZqHeap_Alloc(heap, ZQHEAP_ZERO_MEMORY, 16 + i);
  EXPECT_EQ(ZqHeap_BlockCount(heap), 20u);
  EXPECT_EQ(ZqHeap_Size(heap, 0, blocks[3]), 19u);
  EXPECT_TRUE(ZqHeap_Free(heap, 0, blocks[0]));
  blocks[5] = ZqHeap_ReAlloc(heap, 0, blocks[5], 500);
  ASSERT_NE(blocks[5], nullptr);
  EXPECT_EQ(ZqHeap_BlockCount(heap), 19u);
  EXPECT_EQ(ZqMemory_GetLiveBlocks(), live + 19);
  EXPECT_TRUE(ZqHeap_Destroy(heap));
  EXPECT_EQ(ZqMemory_GetLiveBlocks(), live);
  EXPECT_FALSE(ZqHeap_Destroy(nullptr));
}

TEST(MemoryHeaps, BlocksBelongToOneHeapAndCanChangeOwner) {
  HANDLE a = ZqHeap_Create(0, 0, 0);
  HANDLE b = ZqHeap_Create(0, 0, 0);
  void* block = ZqHeap_Alloc(a, 0, 32);
  void* general = ZqMemory_Alloc(32);
  EXPECT_FALSE(ZqHeap_Free(b, 0, block)) << "not b's block";
  EXPECT_EQ(ZqHeap_Size(b, 0, block), static_cast<size_t>(-1));
  EXPECT_EQ(ZqHeap_ReAlloc(b, 0, block, 64), nullptr);
  EXPECT_FALSE(ZqHeap_Free(a, 0, general));

  ZqHeap_Adopt(b, block);    // from a to b
  ZqHeap_Adopt(b, general);  // from the general heap to b
  EXPECT_EQ(ZqHeap_BlockCount(a), 0u);
  EXPECT_EQ(ZqHeap_BlockCount(b), 2u);
  EXPECT_TRUE(ZqHeap_Destroy(a));
  std::memset(block, 1, 32);  // still alive: b owns it now
  ZqHeap_Adopt(nullptr, block);  // back to the general heap
  EXPECT_TRUE(ZqHeap_Destroy(b));  // frees `general`, not `block`
  EXPECT_EQ(ZqMemory_Size(block), 32u);
  ZqMemory_Free(block);
}

}  // namespace
