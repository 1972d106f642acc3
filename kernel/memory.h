// The kernel's allocation hook and its private heaps.
//
// Every block the kernel allocates comes from ZqMemory_Alloc, ZqMemory_AllocZ
// or ZqMemory_ReAlloc, or from a private heap (ZqHeap_*), and all of them pass
// through one counting hook.  That hook is the single place where tests
// inject allocation failures ("fail the N-th call from now") and where later
// code counts allocations.
//
// Blocks carry a small header that records their size and the heap that owns
// them, so that:
//   - ZqMemory_Size answers the size that was asked for, for any block;
//   - ZqMemory_Free frees a block whatever heap it came from;
//   - a private heap tracks its blocks and frees them all in one step when it
//     is destroyed (a list of many small items dies at once).
//
// Thread safety: every function may be called from any thread.  A private
// heap serialises its own bookkeeping, whatever flags are passed.
#pragma once

#include "base/types.h"

// Flags of the private heap functions, with the original platform's values.
constexpr DWORD ZQHEAP_NO_SERIALIZE = 0x1;  // accepted; the heap serialises anyway
constexpr DWORD ZQHEAP_ZERO_MEMORY = 0x8;   // the new block (or the grown part) is zero

// How ZqMemory_SetFailAt counts.
constexpr DWORD ZQMEMFAIL_ONCE = 0x0;           // only the N-th call fails
constexpr DWORD ZQMEMFAIL_PERSISTENT = 0x1;     // the N-th call and every later one fail
constexpr DWORD ZQMEMFAIL_CALLING_THREAD = 0x2; // count only calls of the thread that armed it

// --- Blocks of the kernel ---------------------------------------------------

// A block of `size` bytes (0 is allowed and gives a unique block); null when
// out of memory.  The contents are undefined for ZqMemory_Alloc and zero for
// ZqMemory_AllocZ.
ZQ_API void* ZqMemory_Alloc(size_t size);
ZQ_API void* ZqMemory_AllocZ(size_t size);
// Resizes a block, keeping it in the heap that owns it; the grown part is
// zero.  A null block allocates.  On failure null is returned and the block
// is left as it was.
ZQ_API void* ZqMemory_ReAlloc(void* block, size_t size);
// Frees a block of any heap; null is fine.
ZQ_API void ZqMemory_Free(void* block);
// The size asked for when the block was (re)allocated; 0 for null.
ZQ_API size_t ZqMemory_Size(const void* block);

// --- Private heaps ----------------------------------------------------------

// A growable heap of its own.  `initialSize` is a hint only; `maximumSize` 0
// means no limit.  Null when out of memory.
ZQ_API HANDLE ZqHeap_Create(DWORD options, size_t initialSize, size_t maximumSize);
// Frees every block that the heap still owns, and the heap.  FALSE for null.
ZQ_API BOOL ZqHeap_Destroy(HANDLE heap);
ZQ_API void* ZqHeap_Alloc(HANDLE heap, DWORD flags, size_t size);
// Resizes a block of this heap; null on failure, and the block stays.
ZQ_API void* ZqHeap_ReAlloc(HANDLE heap, DWORD flags, void* block, size_t size);
// FALSE for a null heap or block, or a block that this heap does not own.
ZQ_API BOOL ZqHeap_Free(HANDLE heap, DWORD flags, void* block);
// The size of a block of this heap, or (size_t)-1 when it is not one.
ZQ_API size_t ZqHeap_Size(HANDLE heap, DWORD flags, const void* block);
// Moves the ownership of a block of any heap to `heap` (null: the kernel's
// general heap) without moving its bytes.  Cannot fail.
ZQ_API void ZqHeap_Adopt(HANDLE heap, void* block);
// The number of blocks the heap owns.
ZQ_API size_t ZqHeap_BlockCount(HANDLE heap);

// --- The hook: counting and fault injection ---------------------------------

// Arms the failure of the N-th allocation call from now on (N = 1: the next
// one).  N of 0 or less disarms.  `flags` are ZQMEMFAIL_*.  Every kernel
// allocation counts: blocks, reallocations and heap creation.
ZQ_API void ZqMemory_SetFailAt(LONG n, DWORD flags);
// How many calls have been made to fail since the hook was last armed.
ZQ_API LONG ZqMemory_GetInjectedFailures();
// Allocation calls made since the process started (successful or not).
ZQ_API ULONGLONG ZqMemory_GetAllocCalls();
// Blocks alive now, in every heap.
ZQ_API LONG_PTR ZqMemory_GetLiveBlocks();

#ifdef __cplusplus
// Arms a failure for the life of the object and disarms it at the end.
class ZqScopedAllocFailure {
 public:
  explicit ZqScopedAllocFailure(LONG n, DWORD flags = ZQMEMFAIL_ONCE) { ZqMemory_SetFailAt(n, flags); }
  ~ZqScopedAllocFailure() { ZqMemory_SetFailAt(0, 0); }
  ZqScopedAllocFailure(const ZqScopedAllocFailure&) = delete;
  ZqScopedAllocFailure& operator=(const ZqScopedAllocFailure&) = delete;
  // True when the armed call was reached and failed.
  bool Triggered() const { return ZqMemory_GetInjectedFailures() > 0; }
};
#endif
