// tZQLIST: the kernel's one general container.
//
// A growable array of slots with an optional recursive lock, holding its
// elements in one of three ways:
//   - plain:      each slot holds a pointer-sized value that the caller owns;
//   - heap items: each slot points to an item that the list allocated (or
//                 was handed as a raw slot) and owns; destruction frees them;
//   - array:      the items stand in the slots themselves, `itemSize` bytes
//                 each.
// Heap lists build an item in `pending` (ZqList_AllocItem) before it is
// placed by ZqList_InsertList(list, index, nullptr, -1).
//
// Readers index `items` directly (`count` elements): a slot of a plain or
// heap list is `items[i]`, an element of an array list is at
// `(BYTE*)items + i * itemSize`.  The inline helpers at the end do exactly
// that.  A reader of a shared (ZQLIST_LOCKED) list takes `lock` itself when it
// needs a stable view; every operation here takes it, and the lock is
// recursive, so a caller may hold it across several operations.
//
// Memory comes from the kernel's allocation hook (kernel/memory.h): the slot
// block from the general heap, heap items from the list's private heap when
// it has one.  Every block that a heap list owns, including raw slots handed
// to ZqList_InsertList, must therefore come from that hook (ZqMemory_Alloc,
// ZqHeap_Alloc or another list's ZqList_AllocItem); the list takes it over.
//
// Statuses: E_FAIL (0x80004005) for misuse, E_OUTOFMEMORY (0x8007000E) when
// memory runs out (the list is then left exactly as it was), E_INVALIDARG
// (0x80070057) for a null or destroyed list and the argument checks named
// below.  The finders answer -1 instead of a status.
//
// Owner test: when neither ZQLIST_LOCKED nor ZQLIST_ANYTHREAD is set, a call
// from a thread other than `ownerThread` fails (E_FAIL, -1 or 0 by the type
// of the result) and changes nothing.  Creation always sets
// ZQLIST_ANYTHREAD, so the test matters only for a record whose options were
// changed afterwards.
#pragma once

#include <cstddef>

#include "base/types.h"
#include "platform/sync.h"

// Option bits.
constexpr DWORD ZQLIST_HEAPITEMS = 0x2;           // slots point to items the list owns
constexpr DWORD ZQLIST_ARRAY = 0x4;               // items stand in the slots
constexpr DWORD ZQLIST_INPLACE = 0x8;             // the header is the caller's record
constexpr DWORD ZQLIST_PRIVATEHEAP = 0x10000000;  // with ZQLIST_HEAPITEMS: a heap of its own
constexpr DWORD ZQLIST_ANYTHREAD = 0x40000000;    // no owner check; creation sets it
constexpr DWORD ZQLIST_LOCKED = 0x80000000;       // operations take `lock`

// "CURT" in memory.
constexpr DWORD ZQLIST_MAGIC = 0x54525543;

// The header.  Fields keep the order of the original record; words that held
// a pointer or a handle there (slots, userData, sortCriteria, heap, pending)
// are pointer-sized here.  `reserved` is the alignment gap before `heap`,
// made explicit so that the record has no hidden padding.
struct tZQLIST {
  INT count;              // elements in use
  UINT itemSize;          // bytes per slot: a pointer, or an array item rounded up to 4
  void** items;           // the slots: one zeroed block whose address changes only on growth and shrinkage
  CRITICAL_SECTION lock;  // initialised only for ZQLIST_LOCKED
  DWORD magic;            // ZQLIST_MAGIC while alive
  DWORD options;          // ZQLIST_* bits
  UINT_PTR userData;      // caller's word
  UINT_PTR sortCriteria;  // handed first to every compare function
  DWORD ownerThread;      // creating thread
  INT allocated;          // capacity in slots
  INT growBy;             // capacity step, 4 to 0x10400
  DWORD reserved;         // always 0
  HANDLE heap;            // private heap, or null
  DWORD heapAllocFlags;   // 9 for heap lists: zeroed, unserialised
  DWORD heapFreeFlags;    // 1 for heap lists
  void* pending;          // item allocated and not yet inserted, or null
};

static_assert(offsetof(tZQLIST, count) == 0);
static_assert(offsetof(tZQLIST, itemSize) == 4);
static_assert(offsetof(tZQLIST, items) == 8);
static_assert(offsetof(tZQLIST, lock) == 8 + sizeof(void*));
static_assert(offsetof(tZQLIST, magic) == offsetof(tZQLIST, lock) + sizeof(CRITICAL_SECTION));
static_assert(offsetof(tZQLIST, userData) == offsetof(tZQLIST, magic) + 8);
static_assert(offsetof(tZQLIST, ownerThread) == offsetof(tZQLIST, userData) + 2 * sizeof(UINT_PTR));
static_assert(offsetof(tZQLIST, heap) == offsetof(tZQLIST, ownerThread) + 16);
static_assert(offsetof(tZQLIST, pending) == offsetof(tZQLIST, heap) + sizeof(HANDLE) + 8);
static_assert(sizeof(tZQLIST) == offsetof(tZQLIST, pending) + sizeof(void*));

// The header size that ZqList_IsList compares against (84 on the original
// 32-bit target).
constexpr int ZQLIST_HEADER_SIZE = static_cast<int>(sizeof(tZQLIST));

// Capacity rules of creation and growth.
constexpr int ZQLIST_DEFAULT_SLOTS = 16;
constexpr int ZQLIST_MIN_GROW = 4;
constexpr int ZQLIST_MAX_GROW = 0x10400;

// compare(criteria, a, b): negative, 0 or positive.  The searches pass the key
// as `a` and the element as `b`.  An element is the slot's value (plain and
// heap lists) or the slot's address (array lists).
typedef int(ZQ_STDCALL* ZQLISTCOMPAREPROC)(UINT_PTR criteria, const void* a, const void* b);
// match(key, element): 0 on a match.
typedef int(ZQ_STDCALL* ZQLISTMATCHPROC)(const void* key, const void* element);

// --- Life -------------------------------------------------------------------

// Creates a list into *list.  With ZQLIST_INPLACE *list must point to the
// caller's record, which is zeroed and used as the header; otherwise *list is
// cleared and set to a new header on success.  `itemSize` counts for array
// lists only; `initial` slots (16 when not positive, at least 4) rounded up
// to a multiple of the step `grow` (16 when below 1, clipped to 4..0x10400).
ZQ_API HRESULT ZqList_CreateExZ(tZQLIST** list, UINT itemSize, INT initial, INT grow, DWORD options,
                                UINT_PTR reserved1, UINT_PTR reserved2, UINT_PTR reserved3);
// Frees the items of a heap list (a private heap in one step), the slots and
// the header unless it is in place; clears `magic`.  Null is fine.
ZQ_API HRESULT ZqList_Destroy(tZQLIST* list);

// --- Tests and fields ---------------------------------------------------------

// 1 when `size` is ZQLIST_HEADER_SIZE, the whole header is readable memory
// (asked of the platform first, so a stray pointer answers 0 instead of
// faulting) and `magic` fits.
ZQ_API BOOL ZqList_IsList(const void* list, INT size);
ZQ_API BOOL ZqList_IsListFast(const void* list);
// 1 when 0 <= index <= count - 1, under the lock.
ZQ_API BOOL ZqList_IsValidIndexSlow(tZQLIST* list, INT index);
// (UINT_PTR)-1 when the owner test fails.  Set is an atomic exchange that
// answers the old word.
ZQ_API UINT_PTR ZqList_GetUserData(tZQLIST* list);
ZQ_API UINT_PTR ZqList_SetUserData(tZQLIST* list, UINT_PTR data);
ZQ_API DWORD ZqList_GetCreateOptions(tZQLIST* list);
ZQ_API UINT_PTR ZqList_GetSortCriteria(tZQLIST* list);
ZQ_API DWORD ZqList_GetThreadOwner(tZQLIST* list);
// 0 as thread id means the calling thread.
ZQ_API HRESULT ZqList_SetThreadOwner(tZQLIST* list, DWORD threadId);
// The record keeps no source position: clears the buffer's first character
// and answers -1.
ZQ_API INT ZqList_GetFileAndLine(tZQLIST* list, WCHAR* buffer, INT size);

// --- Capacity -----------------------------------------------------------------

// Grows by `extra` slots (growBy when not positive) rounded up to a multiple
// of growBy: a new zeroed block, a copy of the whole old block.
ZQ_API HRESULT ZqList_GrowAllocated(tZQLIST* list, INT extra);
// Gives back free slots (all of them when negative), rounded up to growBy
// and kept within the free slots; at least one slot stays.
ZQ_API HRESULT ZqList_ShrinkAllocated(tZQLIST* list, INT slots);

// --- Insertion and items ----------------------------------------------------------

// Three forms, by (items, n):
//   items != null, n > 0, not a heap list: n elements copied from `items`;
//   items != null, n < 0: -n raw slots (heap lists take over the items);
//   items == null, n == -1, pending set: the pending item as one slot.
// Anything else is E_FAIL.  An index below 0 or at count or above is the end.
// A list short of room grows by the number of elements inserted, rounded up
// to a multiple of growBy (4 allocated, 3 used, grow-by 4: inserting 5 gives
// 12 slots).
ZQ_API HRESULT ZqList_InsertList(tZQLIST* list, INT index, const void* items, INT n);
// Heap lists only: a zeroed item of `size` bytes into `pending` (and *item).
ZQ_API HRESULT ZqList_AllocItem(tZQLIST* list, UINT size, void** item);
// Allocates, copies `size` bytes from `source` unless it is null, inserts;
// *where (optional) receives the index, or -1 on failure.
ZQ_API HRESULT ZqList_AllocAndInsertItem(tZQLIST* list, const void* source, UINT size, INT index, INT* where);
// Heap lists only: resizes the item at `index`; its slot receives the new
// address and a grown part is zero.
ZQ_API HRESULT ZqList_ReAllocItem(tZQLIST* list, INT index, UINT size);
// Bytes of one item (array lists: itemSize), or for a negative index the
// items, the slot block and the header together.  -1 for a plain list or an
// index out of range.
ZQ_API LONG_PTR ZqList_AllocSize(tZQLIST* list, INT index);

// --- Deletion and moves ---------------------------------------------------------------

// (-1, -1): frees the pending item (E_FAIL without one).  A negative `n`
// from `index` means to the end; n below 1 does nothing; heap items are
// freed.  `shrink` gives back the free slots when they exceed growBy (a
// failure to give them back keeps the capacity and is not reported).
ZQ_API HRESULT ZqList_DeleteList(tZQLIST* list, INT index, INT n, INT shrink);
// Moves `n` elements so that the first ends at `to`.
ZQ_API HRESULT ZqList_MoveRange(tZQLIST* list, INT from, INT to, INT n);
// Moves items between two heap lists in their order; locks dst, then src.
ZQ_API HRESULT ZqList_MoveItemsBetweenHeapLists(tZQLIST* dst, INT dstIndex, tZQLIST* src, INT srcIndex, INT n);
// Moves a header to the caller's record `place`; *list becomes null.
ZQ_API HRESULT ZqList_ConvertToInPlace(tZQLIST** list, tZQLIST* place);
// Array lists only: sets count directly, growing the capacity as needed.
// `shrink` never gives memory back.
ZQ_API HRESULT ZqList_ArrayForceItemCount(tZQLIST* list, INT newCount, INT shrink);

// --- Searching and sorting ---------------------------------------------------------------

// Index or -1.  `start` below 0 means 0; `n` negative or too large means to
// the end.
ZQ_API INT ZqList_FindSpecificItemRange(tZQLIST* list, INT start, INT n, const void* item);
ZQ_API INT ZqList_FindItemRange(tZQLIST* list, INT start, INT n, const void* key, ZQLISTMATCHPROC compare);
ZQ_API INT ZqList_FindSortedItemRange(tZQLIST* list, const void* key, INT start, INT n, ZQLISTCOMPAREPROC compare);
ZQ_API INT ZqList_FindSortedInsertIndexRange(tZQLIST* list, const void* key, INT start, INT n,
                                             ZQLISTCOMPAREPROC compare);
// Selection sort (not stable; for short lists).
ZQ_API HRESULT ZqList_Sort(tZQLIST* list, UINT_PTR criteria, ZQLISTCOMPAREPROC compare);
ZQ_API HRESULT ZqList_HeapSort(tZQLIST* list, UINT_PTR criteria, ZQLISTCOMPAREPROC compare);
// Copies src's elements into dst (not a heap list, same itemSize) in sorted order.
ZQ_API HRESULT ZqList_SortTo(tZQLIST* dst, tZQLIST* src, UINT_PTR criteria, ZQLISTCOMPAREPROC compare);

// --- Reading ---------------------------------------------------------------------------

#ifdef __cplusplus
// Slot i of a plain or heap list.
inline void* ZqList_Slot(const tZQLIST* list, int i) { return list->items[i]; }
// Element i of an array list.
inline void* ZqList_ArrayItem(const tZQLIST* list, int i) {
  return reinterpret_cast<BYTE*>(list->items) + static_cast<size_t>(i) * list->itemSize;
}
#endif
