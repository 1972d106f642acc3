#include "kernel/list.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdint>
#include <cstring>

#include "base/status.h"
#include "kernel/memory.h"
#include "platform/memory.h"
#include "platform/thread.h"

namespace {

constexpr DWORD kHeapAllocFlags = ZQHEAP_NO_SERIALIZE | ZQHEAP_ZERO_MEMORY;  // 9
constexpr DWORD kHeapFreeFlags = ZQHEAP_NO_SERIALIZE;                        // 1
constexpr size_t kMoveStackBytes = 512;

bool Alive(const tZQLIST* l) { return l != nullptr && l->magic == ZQLIST_MAGIC; }
bool IsHeapList(const tZQLIST* l) { return (l->options & ZQLIST_HEAPITEMS) != 0; }
bool IsArrayList(const tZQLIST* l) { return (l->options & ZQLIST_ARRAY) != 0; }

bool OwnerOk(const tZQLIST* l) {
  return (l->options & (ZQLIST_LOCKED | ZQLIST_ANYTHREAD)) != 0 || l->ownerThread == GetCurrentThreadId();
}

// Holds the list's lock for a scope when the list has one.
class Guard {
 public:
  explicit Guard(tZQLIST* l) : l_((l->options & ZQLIST_LOCKED) ? l : nullptr) {
    if (l_) EnterCriticalSection(&l_->lock);
  }
  ~Guard() {
    if (l_) LeaveCriticalSection(&l_->lock);
  }
  Guard(const Guard&) = delete;
  Guard& operator=(const Guard&) = delete;

 private:
  tZQLIST* l_;
};

BYTE* SlotAt(const tZQLIST* l, int64_t i) {
  return reinterpret_cast<BYTE*>(l->items) + static_cast<size_t>(i) * l->itemSize;
}
size_t SlotBytes(const tZQLIST* l, int64_t n) { return static_cast<size_t>(n) * l->itemSize; }

// What a compare function receives for element i.
const void* ElementAt(const tZQLIST* l, int i) {
  return IsArrayList(l) ? static_cast<const void*>(SlotAt(l, i)) : l->items[i];
}

void SwapElements(tZQLIST* l, int a, int b) {
  if (a == b) return;
  std::swap_ranges(SlotAt(l, a), SlotAt(l, a) + l->itemSize, SlotAt(l, b));
}

int64_t RoundUp(int64_t value, int64_t step) { return (value + step - 1) / step * step; }

void* AllocItemBlock(tZQLIST* l, size_t size) {
  return l->heap ? ZqHeap_Alloc(l->heap, l->heapAllocFlags, size) : ZqMemory_AllocZ(size);
}

// Items may have been handed over from another heap: whatever heap they came
// from, the block header says how to free them.
void FreeItemBlock(void* item) { ZqMemory_Free(item); }

// --- Capacity ---------------------------------------------------------------------

HRESULT GrowLocked(tZQLIST* l, int64_t extra) {
  if (extra <= 0) extra = l->growBy;
  int64_t step = RoundUp(extra, l->growBy);
  int64_t slots = static_cast<int64_t>(l->allocated) + step;
  if (slots > INT_MAX) return E_OUTOFMEMORY;
  void* block = ZqMemory_AllocZ(SlotBytes(l, slots));
  if (!block) return E_OUTOFMEMORY;
  if (l->items) std::memcpy(block, l->items, SlotBytes(l, l->allocated));
  ZqMemory_Free(l->items);
  l->items = static_cast<void**>(block);
  l->allocated = static_cast<INT>(slots);
  return S_OK;
}

// Makes room for `needed` elements in all by the smallest number of growBy
// steps: the capacity that placing the elements one at a time would reach.
// Operations that place elements one by one reserve with it up front so that
// they cannot stop half-way.
HRESULT ReserveLocked(tZQLIST* l, int64_t needed) {
  if (needed > INT_MAX) return E_OUTOFMEMORY;
  if (needed <= l->allocated) return S_OK;
  return GrowLocked(l, needed - l->allocated);
}

HRESULT ShrinkLocked(tZQLIST* l, int slots) {
  int free = l->allocated - l->count;
  // Never give back more than the free slots: the elements stay.
  if (slots < 0 || slots > free) slots = free;
  int64_t give = RoundUp(slots, l->growBy);
  if (give > free) give -= l->growBy;
  if (give <= 0) return S_OK;
  int64_t keep = std::max<int64_t>(l->allocated - give, 1);
  void* block = ZqMemory_ReAlloc(l->items, SlotBytes(l, keep));
  if (!block) return E_OUTOFMEMORY;
  l->items = static_cast<void**>(block);
  l->allocated = static_cast<INT>(keep);
  return S_OK;
}

// --- Insertion and deletion -------------------------------------------------------

// Inserts k slots copied from `source`; the caller has chosen the form.
HRESULT InsertLocked(tZQLIST* l, int index, const void* source, int64_t k, int* where = nullptr) {
  if (static_cast<int64_t>(l->count) + k > INT_MAX) return E_OUTOFMEMORY;
  // Elements copied from the list's own slots must be read before the slots
  // move or the block is replaced.
  auto from = reinterpret_cast<uintptr_t>(source);
  auto block = reinterpret_cast<uintptr_t>(l->items);
  void* copy = nullptr;
  if (from + SlotBytes(l, k) > block && from < block + SlotBytes(l, l->allocated)) {
    copy = ZqMemory_Alloc(SlotBytes(l, k));
    if (!copy) return E_OUTOFMEMORY;
    std::memcpy(copy, source, SlotBytes(l, k));
    source = copy;
  }
  // A list short of room grows by the number of elements inserted, rounded
  // up to growBy, not merely by what is missing: an insertion of k elements
  // leaves room for about k more.
  HRESULT hr = S_OK;
  if (static_cast<int64_t>(l->count) + k > l->allocated) hr = GrowLocked(l, k);
  if (SUCCEEDED(hr)) {
    if (index < 0 || index >= l->count) index = l->count;
    std::memmove(SlotAt(l, index + k), SlotAt(l, index), SlotBytes(l, l->count - index));
    std::memcpy(SlotAt(l, index), source, SlotBytes(l, k));
    l->count += static_cast<INT>(k);
    if (where) *where = index;
  }
  ZqMemory_Free(copy);
  return hr;
}

// Removes n elements at index without freeing anything.
void RemoveSlotsLocked(tZQLIST* l, int index, int n) {
  int tail = l->count - index - n;
  std::memmove(SlotAt(l, index), SlotAt(l, index + n), SlotBytes(l, tail));
  std::memset(SlotAt(l, index + tail), 0, SlotBytes(l, n));
  l->count -= n;
}

HRESULT DeleteLocked(tZQLIST* l, int index, int n, int shrink) {
  if (index < 0 && n < 0) {
    if (!l->pending) return E_FAIL;
    FreeItemBlock(l->pending);
    l->pending = nullptr;
    return S_OK;
  }
  if (index >= 0 && n < 0) n = l->count - index;
  if (n < 1) return S_OK;
  if (index < 0 || index >= l->count) return E_FAIL;
  n = std::min(n, l->count - index);
  if (IsHeapList(l))
    for (int i = index; i < index + n; ++i) FreeItemBlock(l->items[i]);
  RemoveSlotsLocked(l, index, n);
  // The elements are gone whatever happens here; a failed shrink keeps the
  // capacity as it was.
  if (shrink && l->allocated - l->count > l->growBy) (void)ShrinkLocked(l, -1);
  return S_OK;
}

// --- Searching ------------------------------------------------------------------------

// Clips (start, n) to the list; false when the range is empty.
bool NormaliseRange(const tZQLIST* l, int& start, int& n) {
  if (start < 0) start = 0;
  if (start >= l->count) return false;
  if (n < 0 || n > l->count - start) n = l->count - start;
  return n >= 1;
}

// The binary walk shared by both sorted searches.  Answers the match (or -1)
// and, through `insertAt`, the index of the last probe, plus one when the key
// compared greater with it.
int SortedWalk(const tZQLIST* l, const void* key, int start, int n, ZQLISTCOMPAREPROC compare, int* insertAt) {
  int lo = start, hi = start + n - 1, num = n;
  int last = start;
  while (lo <= hi) {
    int half = num / 2;
    if (half != 0) {
      bool odd = (num & 1) != 0;
      int probe = lo + (odd ? half : half - 1);
      int c = compare(l->sortCriteria, key, ElementAt(l, probe));
      last = c > 0 ? probe + 1 : probe;
      if (c == 0) {
        *insertAt = probe;
        return probe;
      }
      if (c < 0) {
        hi = probe - 1;
        num = odd ? half : half - 1;
      } else {
        lo = probe + 1;
        num = half;
      }
    } else {
      if (num != 1) break;
      int c = compare(l->sortCriteria, key, ElementAt(l, lo));
      *insertAt = c > 0 ? lo + 1 : lo;
      return c == 0 ? lo : -1;
    }
  }
  *insertAt = last;
  return -1;
}

void SiftLocked(tZQLIST* l, UINT_PTR criteria, ZQLISTCOMPAREPROC compare, int i, int m) {
  // 1-based element numbers.
  auto element = [l](int k) { return ElementAt(l, k - 1); };
  int j = 2 * i;
  do {
    if (j < m && compare(criteria, element(j + 1), element(j)) > 0) ++j;
    if (compare(criteria, element(j), element(i)) > 0) SwapElements(l, i - 1, j - 1);
    i = j;
    j = 2 * j;
  } while (j < m);
}

}  // namespace

// --- Life ------------------------------------------------------------------------------

HRESULT ZqList_CreateExZ(tZQLIST** list, UINT itemSize, INT initial, INT grow, DWORD options, UINT_PTR, UINT_PTR,
                         UINT_PTR) {
  if (!list) return E_INVALIDARG;
  tZQLIST* l = nullptr;
  if (options & ZQLIST_INPLACE) {
    if (!*list) return E_FAIL;
    l = *list;
    std::memset(static_cast<void*>(l), 0, sizeof(*l));
  } else {
    *list = nullptr;
  }
  if ((options & ZQLIST_HEAPITEMS) && (options & ZQLIST_ARRAY)) return E_FAIL;
  if (!l) {
    l = static_cast<tZQLIST*>(ZqMemory_AllocZ(sizeof(tZQLIST)));
    if (!l) return E_OUTOFMEMORY;
  }
  l->magic = ZQLIST_MAGIC;
  l->options = options;  // the in-place bit tells Destroy whose header this is
  l->itemSize = (options & ZQLIST_ARRAY) ? ((itemSize + 3) & ~3u) : static_cast<UINT>(sizeof(void*));
  l->growBy = std::clamp(grow < 1 ? ZQLIST_DEFAULT_SLOTS : grow, ZQLIST_MIN_GROW, ZQLIST_MAX_GROW);
  int64_t slots = std::max(initial > 0 ? initial : ZQLIST_DEFAULT_SLOTS, 4);
  slots = RoundUp(slots, l->growBy);
  void* block = slots <= INT_MAX ? ZqMemory_AllocZ(SlotBytes(l, slots)) : nullptr;
  if (!block) {
    l->magic = 0;
    if (!(options & ZQLIST_INPLACE)) ZqMemory_Free(l);
    return E_OUTOFMEMORY;
  }
  l->items = static_cast<void**>(block);
  l->allocated = static_cast<INT>(slots);
  if (options & ZQLIST_LOCKED) InitializeCriticalSection(&l->lock);
  l->ownerThread = GetCurrentThreadId();
  l->options = options | ZQLIST_ANYTHREAD;
  if (options & ZQLIST_HEAPITEMS) {
    l->heapFreeFlags = kHeapFreeFlags;
    l->heapAllocFlags = kHeapAllocFlags;
    if (options & ZQLIST_PRIVATEHEAP) {
      l->heap = ZqHeap_Create(0, 4096, 0);
      if (!l->heap) {
        ZqList_Destroy(l);
        return E_OUTOFMEMORY;
      }
    }
  }
  if (!(options & ZQLIST_INPLACE)) *list = l;
  return S_OK;
}

HRESULT ZqList_Destroy(tZQLIST* l) {
  if (!l) return S_OK;
  if (!Alive(l)) return E_INVALIDARG;
  bool locked = (l->options & ZQLIST_LOCKED) != 0;
  if (locked) EnterCriticalSection(&l->lock);
  if (!locked && !OwnerOk(l)) return E_FAIL;
  l->magic = 0;
  if (IsHeapList(l)) {
    if (l->heap) {
      ZqHeap_Destroy(l->heap);
    } else {
      for (int i = 0; i < l->count; ++i) FreeItemBlock(l->items[i]);
      FreeItemBlock(l->pending);
    }
  }
  ZqMemory_Free(l->items);
  if (locked) {
    LeaveCriticalSection(&l->lock);
    DeleteCriticalSection(&l->lock);
  }
  if (l->options & ZQLIST_INPLACE)
    std::memset(static_cast<void*>(l), 0, sizeof(*l));
  else
    ZqMemory_Free(l);
  return S_OK;
}

// --- Tests and fields ----------------------------------------------------------------------

BOOL ZqList_IsList(const void* list, INT size) {
  if (size != ZQLIST_HEADER_SIZE || !list) return FALSE;
  // Callers ask about pointers they cannot vouch for: look before reading.
  if (!ZqIsMemoryReadable(list, sizeof(tZQLIST))) return FALSE;
  return Alive(static_cast<const tZQLIST*>(list)) ? TRUE : FALSE;
}

BOOL ZqList_IsListFast(const void* list) { return Alive(static_cast<const tZQLIST*>(list)) ? TRUE : FALSE; }

BOOL ZqList_IsValidIndexSlow(tZQLIST* l, INT index) {
  if (!Alive(l)) return FALSE;
  Guard g(l);
  if (!OwnerOk(l)) return FALSE;
  return index >= 0 && index <= l->count - 1 ? TRUE : FALSE;
}

UINT_PTR ZqList_GetUserData(tZQLIST* l) {
  if (!Alive(l)) return static_cast<UINT_PTR>(-1);
  Guard g(l);
  if (!OwnerOk(l)) return static_cast<UINT_PTR>(-1);
  return std::atomic_ref<UINT_PTR>(l->userData).load();
}

UINT_PTR ZqList_SetUserData(tZQLIST* l, UINT_PTR data) {
  if (!Alive(l)) return static_cast<UINT_PTR>(-1);
  Guard g(l);
  if (!OwnerOk(l)) return static_cast<UINT_PTR>(-1);
  return std::atomic_ref<UINT_PTR>(l->userData).exchange(data);
}

DWORD ZqList_GetCreateOptions(tZQLIST* l) {
  if (!Alive(l)) return 0;
  Guard g(l);
  return OwnerOk(l) ? l->options : 0;
}

UINT_PTR ZqList_GetSortCriteria(tZQLIST* l) {
  if (!Alive(l)) return 0;
  Guard g(l);
  return OwnerOk(l) ? l->sortCriteria : 0;
}

DWORD ZqList_GetThreadOwner(tZQLIST* l) {
  if (!Alive(l)) return 0;
  Guard g(l);
  return OwnerOk(l) ? l->ownerThread : 0;
}

HRESULT ZqList_SetThreadOwner(tZQLIST* l, DWORD threadId) {
  if (!Alive(l)) return E_INVALIDARG;
  Guard g(l);
  if (!OwnerOk(l)) return E_FAIL;
  l->ownerThread = threadId ? threadId : GetCurrentThreadId();
  return S_OK;
}

INT ZqList_GetFileAndLine(tZQLIST*, WCHAR* buffer, INT size) {
  if (buffer && size > 0) buffer[0] = 0;
  return -1;
}

// --- Capacity ------------------------------------------------------------------------------

HRESULT ZqList_GrowAllocated(tZQLIST* l, INT extra) {
  if (!Alive(l)) return E_INVALIDARG;
  Guard g(l);
  if (!OwnerOk(l)) return E_FAIL;
  return GrowLocked(l, extra);
}

HRESULT ZqList_ShrinkAllocated(tZQLIST* l, INT slots) {
  if (!Alive(l)) return E_INVALIDARG;
  Guard g(l);
  if (!OwnerOk(l)) return E_FAIL;
  return ShrinkLocked(l, slots);
}

// --- Insertion and items -------------------------------------------------------------------

HRESULT ZqList_InsertList(tZQLIST* l, INT index, const void* items, INT n) {
  if (!Alive(l)) return E_INVALIDARG;
  Guard g(l);
  if (!OwnerOk(l)) return E_FAIL;
  if (items && n > 0 && !IsHeapList(l)) return InsertLocked(l, index, items, n);
  if (items && n < 0) {
    int64_t k = -static_cast<int64_t>(n);
    void* const* raw = static_cast<void* const*>(items);
    bool takesPending = false;
    if (IsHeapList(l) && l->pending)
      for (int64_t i = 0; i < k && !takesPending; ++i) takesPending = raw[i] == l->pending;
    int at = 0;
    HRESULT hr = InsertLocked(l, index, items, k, &at);
    if (FAILED(hr)) return hr;
    if (IsHeapList(l)) {
      // The list owns these items from now on, in its own heap.
      for (int64_t i = 0; i < k; ++i) ZqHeap_Adopt(l->heap, l->items[at + i]);
      if (takesPending) l->pending = nullptr;
    }
    return S_OK;
  }
  if (!items && n == -1 && l->pending) {
    void* item = l->pending;
    HRESULT hr = InsertLocked(l, index, &item, 1);
    if (SUCCEEDED(hr)) l->pending = nullptr;
    return hr;
  }
  return E_FAIL;
}

HRESULT ZqList_AllocItem(tZQLIST* l, UINT size, void** item) {
  if (item) *item = nullptr;
  if (!Alive(l)) return E_INVALIDARG;
  Guard g(l);
  if (!OwnerOk(l)) return E_FAIL;
  if (!IsHeapList(l) || l->pending) return E_FAIL;
  void* block = AllocItemBlock(l, size);
  if (!block) return E_OUTOFMEMORY;
  l->pending = block;
  if (item) *item = block;
  return S_OK;
}

HRESULT ZqList_AllocAndInsertItem(tZQLIST* l, const void* source, UINT size, INT index, INT* where) {
  if (where) *where = -1;
  if (!Alive(l)) return E_INVALIDARG;
  Guard g(l);
  if (!OwnerOk(l)) return E_FAIL;
  void* item = nullptr;
  HRESULT hr = ZqList_AllocItem(l, size, &item);
  if (FAILED(hr)) return hr;
  if (source && size) std::memcpy(item, source, size);
  int at = -1;
  hr = InsertLocked(l, index, &item, 1, &at);
  if (FAILED(hr)) {
    FreeItemBlock(item);
    l->pending = nullptr;
    return hr;
  }
  l->pending = nullptr;
  if (where) *where = at;
  return S_OK;
}

HRESULT ZqList_ReAllocItem(tZQLIST* l, INT index, UINT size) {
  if (!Alive(l)) return E_INVALIDARG;
  Guard g(l);
  if (!OwnerOk(l)) return E_FAIL;
  if (!IsHeapList(l) || index < 0 || index >= l->count) return E_FAIL;
  void* item = l->items[index];
  void* block = item ? ZqMemory_ReAlloc(item, size) : AllocItemBlock(l, size);
  if (!block) return E_OUTOFMEMORY;
  l->items[index] = block;
  return S_OK;
}

LONG_PTR ZqList_AllocSize(tZQLIST* l, INT index) {
  if (!Alive(l)) return -1;
  Guard g(l);
  if (!OwnerOk(l)) return -1;
  if (!IsHeapList(l) && !IsArrayList(l)) return -1;
  if (index < 0) {
    LONG_PTR total = static_cast<LONG_PTR>(SlotBytes(l, l->allocated)) + ZQLIST_HEADER_SIZE;
    if (IsHeapList(l))
      for (int i = 0; i < l->count; ++i) total += static_cast<LONG_PTR>(ZqMemory_Size(l->items[i]));
    return total;
  }
  if (IsArrayList(l)) return l->itemSize;
  if (index >= l->count) return -1;
  return static_cast<LONG_PTR>(ZqMemory_Size(l->items[index]));
}

// --- Deletion and moves ----------------------------------------------------------------------

HRESULT ZqList_DeleteList(tZQLIST* l, INT index, INT n, INT shrink) {
  if (!Alive(l)) return E_INVALIDARG;
  Guard g(l);
  if (!OwnerOk(l)) return E_FAIL;
  return DeleteLocked(l, index, n, shrink);
}

HRESULT ZqList_MoveRange(tZQLIST* l, INT from, INT to, INT n) {
  if (!Alive(l)) return E_INVALIDARG;
  Guard g(l);
  if (!OwnerOk(l)) return E_FAIL;
  if (to < 0) to = 0;
  if (from < 0) return E_INVALIDARG;
  if (n < 0) n = l->count - std::max(from, to);
  if (static_cast<int64_t>(from) + n > l->count || static_cast<int64_t>(to) + n > l->count) return E_FAIL;
  if (n < 1 || from == to) return S_OK;

  size_t bytes = SlotBytes(l, n);
  alignas(std::max_align_t) BYTE stackBuffer[kMoveStackBytes];
  BYTE* saved = stackBuffer;
  if (bytes > sizeof(stackBuffer)) {
    saved = static_cast<BYTE*>(ZqMemory_Alloc(bytes));
    if (!saved) return E_OUTOFMEMORY;
  }
  std::memcpy(saved, SlotAt(l, from), bytes);
  if (from < to)
    std::memmove(SlotAt(l, from), SlotAt(l, from + n), SlotBytes(l, to - from));
  else
    std::memmove(SlotAt(l, to + n), SlotAt(l, to), SlotBytes(l, from - to));
  std::memcpy(SlotAt(l, to), saved, bytes);
  if (saved != stackBuffer) ZqMemory_Free(saved);
  return S_OK;
}

HRESULT ZqList_MoveItemsBetweenHeapLists(tZQLIST* dst, INT dstIndex, tZQLIST* src, INT srcIndex, INT n) {
  if (!Alive(dst) || !Alive(src)) return E_INVALIDARG;
  Guard gd(dst);
  Guard gs(src);
  if (!OwnerOk(dst) || !OwnerOk(src)) return E_FAIL;
  if (dst == src || !IsHeapList(dst) || !IsHeapList(src) || dst->pending) return E_FAIL;
  if (n < 0) n = src->count;
  if (n == 0) return S_OK;
  if (srcIndex < 0 || static_cast<int64_t>(srcIndex) + n > src->count) return E_FAIL;
  if (dstIndex < 0 || dstIndex > dst->count) dstIndex = dst->count;
  // All the room first, so that the move cannot stop half-way.
  HRESULT hr = ReserveLocked(dst, static_cast<int64_t>(dst->count) + n);
  if (FAILED(hr)) return hr;
  // Last to first, each into the same index, which keeps their order.
  for (int i = n - 1; i >= 0; --i) {
    void* item = src->items[srcIndex + i];
    ZqHeap_Adopt(dst->heap, item);
    dst->pending = item;
    (void)InsertLocked(dst, dstIndex, &item, 1);
    dst->pending = nullptr;
  }
  RemoveSlotsLocked(src, srcIndex, n);
  return S_OK;
}

HRESULT ZqList_ConvertToInPlace(tZQLIST** list, tZQLIST* place) {
  if (!list || !place || !Alive(*list)) return E_INVALIDARG;
  tZQLIST* l = *list;
  if (l->options & ZQLIST_INPLACE) return E_FAIL;
  if (!OwnerOk(l)) return E_FAIL;
  std::memcpy(static_cast<void*>(place), l, sizeof(*l));
  place->options |= ZQLIST_INPLACE;
  if (l->options & ZQLIST_LOCKED) {
    // A lock cannot move bytewise: the record gets a fresh one.
    InitializeCriticalSection(&place->lock);
    DeleteCriticalSection(&l->lock);
  }
  l->magic = 0;
  ZqMemory_Free(l);
  *list = nullptr;
  return S_OK;
}

HRESULT ZqList_ArrayForceItemCount(tZQLIST* l, INT newCount, INT shrink) {
  if (!Alive(l)) return E_INVALIDARG;
  Guard g(l);
  if (!OwnerOk(l)) return E_FAIL;
  if (!IsArrayList(l)) return E_FAIL;
  if (newCount < 0) return E_INVALIDARG;
  if (newCount > l->allocated) {
    HRESULT hr = GrowLocked(l, newCount - l->allocated);
    if (FAILED(hr)) return hr;
  }
  l->count = newCount;
  // Deleting no element returns at once: the capacity stays as it is.
  if (shrink) return DeleteLocked(l, 0, 0, 1);
  return S_OK;
}

// --- Searching and sorting -----------------------------------------------------------------------

INT ZqList_FindSpecificItemRange(tZQLIST* l, INT start, INT n, const void* item) {
  if (!Alive(l)) return -1;
  Guard g(l);
  if (!OwnerOk(l)) return -1;
  if (!NormaliseRange(l, start, n)) return -1;
  if (IsArrayList(l)) {
    if (!item) return -1;
    for (int i = start; i < start + n; ++i)
      if (std::memcmp(item, SlotAt(l, i), l->itemSize) == 0) return i;
  } else {
    for (int i = start; i < start + n; ++i)
      if (l->items[i] == item) return i;
  }
  return -1;
}

INT ZqList_FindItemRange(tZQLIST* l, INT start, INT n, const void* key, ZQLISTMATCHPROC compare) {
  if (!Alive(l) || !compare) return -1;
  Guard g(l);
  if (!OwnerOk(l)) return -1;
  if (!NormaliseRange(l, start, n)) return -1;
  for (int i = start; i < start + n; ++i)
    if (compare(key, ElementAt(l, i)) == 0) return i;
  return -1;
}

INT ZqList_FindSortedItemRange(tZQLIST* l, const void* key, INT start, INT n, ZQLISTCOMPAREPROC compare) {
  if (!Alive(l) || !compare) return -1;
  Guard g(l);
  if (!OwnerOk(l)) return -1;
  if (!NormaliseRange(l, start, n)) return -1;
  int insertAt = 0;
  return SortedWalk(l, key, start, n, compare, &insertAt);
}

INT ZqList_FindSortedInsertIndexRange(tZQLIST* l, const void* key, INT start, INT n, ZQLISTCOMPAREPROC compare) {
  if (!Alive(l) || !compare) return -1;
  Guard g(l);
  if (!OwnerOk(l)) return -1;
  if (start < 0) start = 0;
  if (start > l->count) return -1;
  if (n < 0 || n > l->count - start) n = l->count - start;
  if (n < 1) return 0;
  int insertAt = 0;
  (void)SortedWalk(l, key, start, n, compare, &insertAt);
  return insertAt;
}

HRESULT ZqList_Sort(tZQLIST* l, UINT_PTR criteria, ZQLISTCOMPAREPROC compare) {
  if (!Alive(l)) return E_INVALIDARG;
  Guard g(l);
  if (!OwnerOk(l)) return E_FAIL;
  l->sortCriteria = criteria;
  if (!compare || l->count < 2) return S_OK;
  for (int end = l->count - 1; end > 0; --end) {
    int best = 0;
    for (int c = 1; c <= end; ++c)
      if (compare(criteria, ElementAt(l, c), ElementAt(l, best)) > 0) best = c;
    if (best != end) SwapElements(l, best, end);
  }
  return S_OK;
}

HRESULT ZqList_HeapSort(tZQLIST* l, UINT_PTR criteria, ZQLISTCOMPAREPROC compare) {
  if (!Alive(l)) return E_INVALIDARG;
  Guard g(l);
  if (!OwnerOk(l)) return E_FAIL;
  l->sortCriteria = criteria;
  if (!compare || l->count < 2) return S_OK;
  int count = l->count;
  for (int i = count / 2; i >= 2; --i) SiftLocked(l, criteria, compare, i, count);
  for (int m = count; m >= 2; --m) {
    SiftLocked(l, criteria, compare, 1, m);
    SwapElements(l, 0, m - 1);
  }
  return S_OK;
}

HRESULT ZqList_SortTo(tZQLIST* dst, tZQLIST* src, UINT_PTR criteria, ZQLISTCOMPAREPROC compare) {
  if (!Alive(dst) || !Alive(src)) return E_INVALIDARG;
  Guard gd(dst);
  Guard gs(src);
  if (!OwnerOk(dst) || !OwnerOk(src)) return E_FAIL;
  if (dst == src) return E_FAIL;
  dst->sortCriteria = criteria;
  if (!compare) return S_OK;
  if (IsHeapList(dst) || dst->itemSize != src->itemSize) return E_FAIL;
  // All the room first, so that a failure leaves dst as it was.
  HRESULT hr = ReserveLocked(dst, static_cast<int64_t>(dst->count) + src->count);
  if (FAILED(hr)) return hr;
  for (int i = 0; i < src->count; ++i) {
    int index = 0;
    if (dst->count > 0) (void)SortedWalk(dst, ElementAt(src, i), 0, dst->count, compare, &index);
    (void)InsertLocked(dst, index, SlotAt(src, i), 1);
  }
  return S_OK;
}
