#include "kernel/memory.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>

namespace {

struct Heap;

// Stands in front of every block.  Blocks of the general heap have a null
// `heap` and no links; blocks of a private heap sit in its ring.
struct alignas(16) BlockHeader {
  BlockHeader* prev;
  BlockHeader* next;
  Heap* heap;
  size_t size;
};
static_assert(sizeof(BlockHeader) % alignof(std::max_align_t) == 0,
              "blocks must keep the allocator's alignment");

constexpr uint32_t kHeapMagic = 0x50414548;  // "HEAP"

struct Heap {
  uint32_t magic = kHeapMagic;
  std::mutex mutex;
  BlockHeader ring{};  // sentinel
  size_t blocks = 0;
  size_t bytes = 0;
  size_t maximum = 0;
  Heap() { ring.prev = ring.next = &ring; }
};

// --- The hook -----------------------------------------------------------------

std::atomic<ULONGLONG> g_calls{0};
std::atomic<LONG_PTR> g_live{0};
std::atomic<bool> g_armed{false};
std::atomic<LONG> g_countdown{0};
std::atomic<DWORD> g_failFlags{0};
std::atomic<const void*> g_failThread{nullptr};
std::atomic<LONG> g_injected{0};
thread_local char t_threadMarker;

// Every allocation of the kernel asks here first.
bool HookAllows() {
  g_calls.fetch_add(1, std::memory_order_relaxed);
  if (!g_armed.load(std::memory_order_acquire)) return true;
  DWORD flags = g_failFlags.load(std::memory_order_relaxed);
  if ((flags & ZQMEMFAIL_CALLING_THREAD) && g_failThread.load(std::memory_order_relaxed) != &t_threadMarker)
    return true;
  LONG left = g_countdown.fetch_sub(1, std::memory_order_acq_rel) - 1;
  bool fail = (flags & ZQMEMFAIL_PERSISTENT) ? left <= 0 : left == 0;
  if (fail) g_injected.fetch_add(1, std::memory_order_relaxed);
  return !fail;
}

BlockHeader* HeaderOf(const void* block) {
  return const_cast<BlockHeader*>(static_cast<const BlockHeader*>(block) - 1);
}
void* PayloadOf(BlockHeader* h) { return h + 1; }

bool SizeFits(size_t size) { return size <= SIZE_MAX - sizeof(BlockHeader); }

void LinkLocked(Heap* heap, BlockHeader* h) {
  h->heap = heap;
  h->prev = heap->ring.prev;
  h->next = &heap->ring;
  heap->ring.prev->next = h;
  heap->ring.prev = h;
  ++heap->blocks;
  heap->bytes += h->size;
}

void UnlinkLocked(Heap* heap, BlockHeader* h) {
  h->prev->next = h->next;
  h->next->prev = h->prev;
  h->prev = h->next = nullptr;
  h->heap = nullptr;
  --heap->blocks;
  heap->bytes -= h->size;
}

// A new block owned by `heap` (null: the general heap).
void* AllocateIn(Heap* heap, size_t size, bool zero) {
  if (!SizeFits(size) || !HookAllows()) return nullptr;
  if (heap && heap->maximum) {
    std::lock_guard<std::mutex> guard(heap->mutex);
    if (heap->bytes + size > heap->maximum) return nullptr;
  }
  auto* h = static_cast<BlockHeader*>(zero ? std::calloc(1, sizeof(BlockHeader) + size)
                                           : std::malloc(sizeof(BlockHeader) + size));
  if (!h) return nullptr;
  h->prev = h->next = nullptr;
  h->heap = nullptr;
  h->size = size;
  if (heap) {
    std::lock_guard<std::mutex> guard(heap->mutex);
    LinkLocked(heap, h);
  }
  g_live.fetch_add(1, std::memory_order_relaxed);
  return PayloadOf(h);
}

void FreeBlock(void* block) {
  if (!block) return;
  BlockHeader* h = HeaderOf(block);
  if (Heap* heap = h->heap) {
    std::lock_guard<std::mutex> guard(heap->mutex);
    UnlinkLocked(heap, h);
  }
  g_live.fetch_sub(1, std::memory_order_relaxed);
  std::free(h);
}

void* ResizeBlock(void* block, size_t size) {
  if (!block) return AllocateIn(nullptr, size, true);
  if (!SizeFits(size) || !HookAllows()) return nullptr;
  BlockHeader* h = HeaderOf(block);
  Heap* heap = h->heap;
  std::unique_lock<std::mutex> guard;
  if (heap) {
    guard = std::unique_lock<std::mutex>(heap->mutex);
    if (heap->maximum && size > h->size && heap->bytes + (size - h->size) > heap->maximum) return nullptr;
    UnlinkLocked(heap, h);
  }
  size_t old = h->size;
  auto* moved = static_cast<BlockHeader*>(std::realloc(h, sizeof(BlockHeader) + size));
  if (!moved) {
    if (heap) LinkLocked(heap, h);
    return nullptr;
  }
  moved->size = size;
  if (size > old) std::memset(reinterpret_cast<char*>(PayloadOf(moved)) + old, 0, size - old);
  if (heap) LinkLocked(heap, moved);
  return PayloadOf(moved);
}

Heap* AsHeap(HANDLE handle) {
  auto* heap = static_cast<Heap*>(handle);
  return heap && heap->magic == kHeapMagic ? heap : nullptr;
}

}  // namespace

// --- Blocks of the kernel --------------------------------------------------------

void* ZqMemory_Alloc(size_t size) { return AllocateIn(nullptr, size, false); }
void* ZqMemory_AllocZ(size_t size) { return AllocateIn(nullptr, size, true); }
void* ZqMemory_ReAlloc(void* block, size_t size) { return ResizeBlock(block, size); }
void ZqMemory_Free(void* block) { FreeBlock(block); }
size_t ZqMemory_Size(const void* block) { return block ? HeaderOf(block)->size : 0; }

// --- Private heaps -----------------------------------------------------------------

HANDLE ZqHeap_Create(DWORD /*options*/, size_t /*initialSize*/, size_t maximumSize) {
  if (!HookAllows()) return nullptr;
  auto* heap = new (std::nothrow) Heap;
  if (!heap) return nullptr;
  heap->maximum = maximumSize;
  return heap;
}

BOOL ZqHeap_Destroy(HANDLE handle) {
  Heap* heap = AsHeap(handle);
  if (!heap) return FALSE;
  {
    std::lock_guard<std::mutex> guard(heap->mutex);
    BlockHeader* h = heap->ring.next;
    while (h != &heap->ring) {
      BlockHeader* next = h->next;
      g_live.fetch_sub(1, std::memory_order_relaxed);
      std::free(h);
      h = next;
    }
    heap->ring.prev = heap->ring.next = &heap->ring;
    heap->blocks = heap->bytes = 0;
    heap->magic = 0;
  }
  delete heap;
  return TRUE;
}

void* ZqHeap_Alloc(HANDLE handle, DWORD flags, size_t size) {
  Heap* heap = AsHeap(handle);
  if (!heap) return nullptr;
  return AllocateIn(heap, size, (flags & ZQHEAP_ZERO_MEMORY) != 0);
}

void* ZqHeap_ReAlloc(HANDLE handle, DWORD /*flags*/, void* block, size_t size) {
  Heap* heap = AsHeap(handle);
  if (!heap || !block || HeaderOf(block)->heap != heap) return nullptr;
  return ResizeBlock(block, size);
}

BOOL ZqHeap_Free(HANDLE handle, DWORD /*flags*/, void* block) {
  Heap* heap = AsHeap(handle);
  if (!heap || !block || HeaderOf(block)->heap != heap) return FALSE;
  FreeBlock(block);
  return TRUE;
}

size_t ZqHeap_Size(HANDLE handle, DWORD /*flags*/, const void* block) {
  Heap* heap = AsHeap(handle);
  if (!heap || !block || HeaderOf(block)->heap != heap) return static_cast<size_t>(-1);
  return HeaderOf(block)->size;
}

void ZqHeap_Adopt(HANDLE handle, void* block) {
  if (!block) return;
  Heap* target = AsHeap(handle);
  BlockHeader* h = HeaderOf(block);
  if (h->heap == target) return;
  if (Heap* from = h->heap) {
    std::lock_guard<std::mutex> guard(from->mutex);
    UnlinkLocked(from, h);
  }
  if (target) {
    std::lock_guard<std::mutex> guard(target->mutex);
    LinkLocked(target, h);
  }
}

size_t ZqHeap_BlockCount(HANDLE handle) {
  Heap* heap = AsHeap(handle);
  if (!heap) return 0;
  std::lock_guard<std::mutex> guard(heap->mutex);
  return heap->blocks;
}

// --- The hook ----------------------------------------------------------------------

void ZqMemory_SetFailAt(LONG n, DWORD flags) {
  g_armed.store(false, std::memory_order_release);
  g_injected.store(0, std::memory_order_relaxed);
  if (n <= 0) return;
  g_countdown.store(n, std::memory_order_relaxed);
  g_failFlags.store(flags, std::memory_order_relaxed);
  g_failThread.store(&t_threadMarker, std::memory_order_relaxed);
  g_armed.store(true, std::memory_order_release);
}

LONG ZqMemory_GetInjectedFailures() { return g_injected.load(std::memory_order_relaxed); }
ULONGLONG ZqMemory_GetAllocCalls() { return g_calls.load(std::memory_order_relaxed); }
LONG_PTR ZqMemory_GetLiveBlocks() { return g_live.load(std::memory_order_relaxed); }
