// Lists: creation, capacity, the insertion and deletion forms, moves,
// ownership of heap items, the owner test and misuse.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <thread>

#include "platform/thread.h"
#include "tests/kernel/list_test_util.h"

namespace {

std::vector<int> Letters(const char* s) { return std::vector<int>(s, s + std::strlen(s)); }

ListPtr LetterList(const char* s, DWORD options = 0, INT initial = 0, INT grow = 0) {
  ListPtr l = MakeList(options, 0, initial, grow);
  for (; *s; ++s) EXPECT_EQ(PlainKind::Add(l.get(), -1, *s), S_OK);
  return l;
}

// --- Creation ----------------------------------------------------------------

TEST(ListCreate, CapacityIsRoundedToTheStep) {
  struct Case { int initial, grow, allocated, growBy; } cases[] = {
      {10, 8, 16, 8},                   // rounded up to a multiple of the step
      {10, 1, 12, 4},                   // a step below 4 becomes 4
      {10, 1000000, 0x10400, 0x10400},  // the largest step honoured
      {-5, -1, 16, 16},                 // defaults
      {1, 4, 4, 4},                     // at least 4 slots
  };
  for (const Case& c : cases) {
    ListPtr l = MakeList(0, 0, c.initial, c.grow);
    EXPECT_EQ(l->allocated, c.allocated) << "initial " << c.initial << " grow " << c.grow;
    EXPECT_EQ(l->growBy, c.growBy) << "initial " << c.initial << " grow " << c.grow;
  }
}

TEST(ListCreate, FieldsByKind) {
  ListPtr plain = MakeList(ZQLIST_LOCKED, 100);
  EXPECT_EQ(plain->itemSize, sizeof(void*)) << "slots are pointer-sized whatever was passed";
  EXPECT_EQ(plain->options, ZQLIST_LOCKED | ZQLIST_ANYTHREAD);
  EXPECT_EQ(MakeList(ZQLIST_ARRAY, 10)->itemSize, 12u);
  ListPtr heap = MakeList(ZQLIST_HEAPITEMS | ZQLIST_PRIVATEHEAP);
  EXPECT_EQ(heap->heapAllocFlags, 9u);
  EXPECT_EQ(heap->heapFreeFlags, 1u);
  EXPECT_NE(heap->heap, nullptr);
  EXPECT_EQ(std::memcmp(&heap->magic, "CURT", 4), 0);
  EXPECT_EQ(heap->ownerThread, GetCurrentThreadId());
  EXPECT_EQ(MakeList(ZQLIST_HEAPITEMS)->heap, nullptr);
}

TEST(ListCreate, MisuseFailsAndAllocatesNothing) {
  LONG_PTR live = ZqMemory_GetLiveBlocks();
  tZQLIST* l = reinterpret_cast<tZQLIST*>(0x1234);
  EXPECT_EQ(ZqList_CreateExZ(&l, 0, 0, 0, ZQLIST_HEAPITEMS | ZQLIST_ARRAY, 0, 0, 0), E_FAIL);
  EXPECT_EQ(l, nullptr) << "the out-pointer is cleared first";
  EXPECT_EQ(ZqList_CreateExZ(&l, 0, 0, 0, ZQLIST_INPLACE, 0, 0, 0), E_FAIL) << "in place needs a record";
  EXPECT_EQ(ZqList_CreateExZ(nullptr, 0, 0, 0, 0, 0, 0, 0), E_INVALIDARG);
  EXPECT_EQ(ZqMemory_GetLiveBlocks(), live);
}

TEST(ListCreate, InPlaceHeaderIsTheCallersAndIsNotFreed) {
  tZQLIST record;
  std::memset(static_cast<void*>(&record), 0xAB, sizeof(record));
  tZQLIST* l = &record;
  LONG_PTR live = ZqMemory_GetLiveBlocks();
  ASSERT_EQ(ZqList_CreateExZ(&l, 6, 0, 0, ZQLIST_ARRAY | ZQLIST_INPLACE | ZQLIST_ANYTHREAD, 0, 0, 0), S_OK);
  EXPECT_EQ(l, &record);
  EXPECT_EQ(record.pending, nullptr) << "the record is zeroed first";
  EXPECT_EQ(record.options, 0x4000000Cu);
  EXPECT_EQ(ZqMemory_GetLiveBlocks(), live + 1) << "only the slots are allocated";
  EXPECT_EQ(ZqList_Destroy(&record), S_OK);
  EXPECT_EQ(ZqMemory_GetLiveBlocks(), live);
  EXPECT_FALSE(ZqList_IsListFast(&record));
}

// --- Tests and fields ------------------------------------------------------------

TEST(ListFields, IsListLooksBeforeItReads) {
  ListPtr l = MakeList(0);
  const long page = sysconf(_SC_PAGESIZE);
  // Two pages: the first readable, the second not; a header placed so that
  // it ends in the second page must be refused without a fault.
  auto* map = static_cast<BYTE*>(mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  ASSERT_NE(map, MAP_FAILED);
  ASSERT_EQ(mprotect(map + page, page, PROT_NONE), 0);
  const size_t head = (offsetof(tZQLIST, magic) + sizeof(DWORD) + 7) & ~size_t{7};  // through magic, aligned
  BYTE* straddling = map + page - head;
  std::memcpy(straddling, l.get(), head);  // magic fits
  tZQLIST zero{};
  struct Case { const void* p; INT size; BOOL is; } cases[] = {
      {l.get(), ZQLIST_HEADER_SIZE, TRUE},      {l.get(), ZQLIST_HEADER_SIZE + 1, FALSE},
      {&zero, ZQLIST_HEADER_SIZE, FALSE},       {nullptr, ZQLIST_HEADER_SIZE, FALSE},
      {map + page, ZQLIST_HEADER_SIZE, FALSE},  {straddling, ZQLIST_HEADER_SIZE, FALSE},
  };
  for (const Case& c : cases) EXPECT_EQ(ZqList_IsList(c.p, c.size), c.is) << c.p << " size " << c.size;
  EXPECT_TRUE(ZqList_IsListFast(straddling)) << "the fast test reads the magic only";
  munmap(map, 2 * page);
}

TEST(ListFields, UserDataOwnerIndexAndSourcePosition) {
  ListPtr l = LetterList("a", ZQLIST_LOCKED);
  EXPECT_TRUE(ZqList_IsValidIndexSlow(l.get(), 0));
  EXPECT_FALSE(ZqList_IsValidIndexSlow(l.get(), 1));
  EXPECT_EQ(ZqList_SetUserData(l.get(), 42), 0u);
  EXPECT_EQ(ZqList_SetUserData(l.get(), 43), 42u) << "answers the old word";
  EXPECT_EQ(ZqList_SetThreadOwner(l.get(), 777), S_OK);
  EXPECT_EQ(ZqList_GetThreadOwner(l.get()), 777u);
  EXPECT_EQ(ZqList_SetThreadOwner(l.get(), 0), S_OK);
  EXPECT_EQ(ZqList_GetThreadOwner(l.get()), GetCurrentThreadId()) << "0 means the calling thread";
  WCHAR buffer[8] = {u'x', u'y'};
  EXPECT_EQ(ZqList_GetFileAndLine(l.get(), buffer, 8), -1);
  EXPECT_EQ(buffer[0], 0);
  tZQLIST zero{};
  UINT_PTR v = 1;
  EXPECT_EQ(ZqList_InsertList(&zero, 0, &v, 1), E_INVALIDARG) << "not a live list";
  EXPECT_EQ(ZqList_Destroy(nullptr), S_OK);
}

TEST(ListFields, OwnerTestRefusesOtherThreadsAndChangesNothing) {
  ListPtr l = LetterList("ab");
  l->options &= ~ZQLIST_ANYTHREAD;  // a record changed after creation
  ListImage before = Capture(l.get());
  UINT_PTR v = 1;
  HRESULT insert = S_OK, del = S_OK;
  UINT_PTR setUser = 0;
  INT found = 0;
  std::thread other([&] {
    insert = ZqList_InsertList(l.get(), 0, &v, 1);
    del = ZqList_DeleteList(l.get(), 0, -1, 0);
    setUser = ZqList_SetUserData(l.get(), 5);
    found = ZqList_FindSpecificItemRange(l.get(), 0, -1, reinterpret_cast<void*>('b'));
  });
  other.join();
  EXPECT_EQ(insert, E_FAIL);
  EXPECT_EQ(del, E_FAIL);
  EXPECT_EQ(setUser, static_cast<UINT_PTR>(-1));
  EXPECT_EQ(found, -1);
  EXPECT_EQ(Capture(l.get()), before);
  EXPECT_EQ(ZqList_FindSpecificItemRange(l.get(), 0, -1, reinterpret_cast<void*>('b')), 1) << "the owner is served";
}

// --- Capacity -------------------------------------------------------------------------

TEST(ListCapacity, InsertionGrowsByTheElementCountRoundedToTheStep) {
  struct Case { int initial, grow, used, inserted, allocated; } cases[] = {
      {4, 4, 3, 5, 12},     // 5 elements round to 8 more slots, not the 4 missing
      {4, 4, 4, 1, 8},      // one step
      {8, 8, 0, 40, 48},    // 40 is five steps
      {16, 16, 15, 1, 16},  // it fits: no growth
  };
  for (const Case& c : cases) {
    ListPtr l = MakeList(0, 0, c.initial, c.grow);
    std::vector<UINT_PTR> v(static_cast<size_t>(c.used + c.inserted), 7);
    ASSERT_EQ(ZqList_InsertList(l.get(), 0, v.data(), c.used), c.used ? S_OK : E_FAIL);
    ASSERT_EQ(ZqList_InsertList(l.get(), 0, v.data(), c.inserted), S_OK);
    EXPECT_EQ(l->allocated, c.allocated) << c.used << " used of " << c.initial << ", " << c.inserted << " inserted";
  }
}

TEST(ListCapacity, GrowAndShrinkByRoundedStepsKeepTheSlots) {
  ListPtr l = LetterList("abcdefgh", 0, 8, 8);
  EXPECT_EQ(ZqList_GrowAllocated(l.get(), 0), S_OK);
  EXPECT_EQ(l->allocated, 16) << "a non-positive extra means one step";
  EXPECT_EQ(ZqList_GrowAllocated(l.get(), 9), S_OK);
  EXPECT_EQ(l->allocated, 32) << "9 rounds up to two steps of 8";
  EXPECT_TRUE(std::all_of(l->items + 8, l->items + 32, [](void* p) { return p == nullptr; })) << "new slots are zero";
  // 24 free: all of them rounds to 24, which fits; then 3 rounds to 8 > 0 free.
  EXPECT_EQ(ZqList_ShrinkAllocated(l.get(), -1), S_OK);
  EXPECT_EQ(l->allocated, 8);
  EXPECT_EQ(Keys<PlainKind>(l.get()), Letters("abcdefgh"));

  ListPtr m = LetterList("abcde", 0, 64, 16);
  EXPECT_EQ(ZqList_ShrinkAllocated(m.get(), -1), S_OK) << "59 free round to 64, more than free: 48 go";
  EXPECT_EQ(m->allocated, 16);
  EXPECT_EQ(ZqList_ShrinkAllocated(m.get(), 3), S_OK) << "3 rounds to 16 > 11 free: nothing";
  EXPECT_EQ(m->allocated, 16);
  ListPtr empty = MakeList(0, 0, 16, 16);
  EXPECT_EQ(ZqList_ShrinkAllocated(empty.get(), -1), S_OK);
  EXPECT_EQ(empty->allocated, 1) << "one slot is kept";
}

// --- Insertion ---------------------------------------------------------------------------

TEST(ListInsert, TheThreeFormsAndWhatTheyRefuse) {
  ListPtr heap = MakeList(ZQLIST_HEAPITEMS);
  UINT_PTR value = 5;
  EXPECT_EQ(ZqList_InsertList(heap.get(), 0, &value, 1), E_FAIL) << "a heap list takes no copies";
  EXPECT_EQ(ZqList_InsertList(heap.get(), 5, nullptr, -1), E_FAIL) << "no pending item";
  EXPECT_EQ(ZqList_InsertList(heap.get(), 0, nullptr, -2), E_FAIL);
  EXPECT_EQ(ZqList_InsertList(heap.get(), 0, &value, 0), E_FAIL);
  EXPECT_EQ(heap->count, 0);
  void* raw = ZqMemory_AllocZ(24);  // a raw slot: the list takes the block over
  EXPECT_EQ(ZqList_InsertList(heap.get(), 0, &raw, -1), S_OK);
  void* item = nullptr;
  ASSERT_EQ(ZqList_AllocItem(heap.get(), 8, &item), S_OK);
  EXPECT_EQ(heap->pending, item);
  void* second = &value;
  EXPECT_EQ(ZqList_AllocItem(heap.get(), 8, &second), E_FAIL) << "one pending item at a time";
  EXPECT_EQ(second, nullptr);
  EXPECT_EQ(ZqList_InsertList(heap.get(), 0, nullptr, -1), S_OK);
  EXPECT_EQ(heap->pending, nullptr);
  EXPECT_EQ(heap->items[0], item);
  EXPECT_EQ(heap->items[1], raw);

  ListPtr plain = MakeList(0);
  EXPECT_EQ(ZqList_AllocItem(plain.get(), 8, &item), E_FAIL);
  UINT_PTR values[3] = {1, 2, 3};
  EXPECT_EQ(ZqList_InsertList(plain.get(), 0, values, -3), S_OK) << "raw slots are fine for any list";
  EXPECT_EQ(plain->count, 3);
}

TEST(ListInsert, SlotsOfTheListItselfCanBeInsertedAgain) {
  ListPtr l = LetterList("abcd", 0, 4, 4);
  // The source lies in the block that the growth replaces.
  ASSERT_EQ(ZqList_InsertList(l.get(), 0, &l->items[2], 2), S_OK);
  EXPECT_EQ(Keys<PlainKind>(l.get()), Letters("cdabcd"));
}

TEST(ListInsert, AllocAndInsertWritesTheIndexAndLeavesAPendingItemAlone) {
  ListPtr l = MakeList(ZQLIST_HEAPITEMS | ZQLIST_LOCKED);
  int where = 0;
  Item a{1, 0}, b{2, 0};
  ASSERT_EQ(ZqList_AllocAndInsertItem(l.get(), &a, sizeof a, 50, &where), S_OK);
  EXPECT_EQ(where, 0);
  ASSERT_EQ(ZqList_AllocAndInsertItem(l.get(), &b, sizeof b, -1, &where), S_OK);
  EXPECT_EQ(where, 1);
  ASSERT_EQ(ZqList_AllocAndInsertItem(l.get(), nullptr, 16, 0, &where), S_OK);
  EXPECT_EQ(where, 0);
  EXPECT_EQ(ZqMemory_Size(l->items[0]), 16u);
  EXPECT_EQ(Keys<HeapKind>(l.get()), (std::vector<int>{0, 1, 2})) << "a null source gives a zeroed item";

  void* pending = nullptr;
  ASSERT_EQ(ZqList_AllocItem(l.get(), 4, &pending), S_OK);
  EXPECT_EQ(ZqList_AllocAndInsertItem(l.get(), &a, sizeof a, 0, &where), E_FAIL);
  EXPECT_EQ(where, -1);
  EXPECT_EQ(l->pending, pending);
  EXPECT_EQ(ZqList_DeleteList(l.get(), -1, -1, 0), S_OK) << "frees the pending item";
  EXPECT_EQ(ZqList_DeleteList(l.get(), -1, -1, 0), E_FAIL) << "nothing pending any more";
  EXPECT_EQ(l->count, 3);
}

TEST(ListItems, ReAllocAndAllocSize) {
  ListPtr l = MakeList(ZQLIST_HEAPITEMS | ZQLIST_PRIVATEHEAP, 0, 16, 16);
  const char text[] = "abcdef";
  ASSERT_EQ(ZqList_AllocAndInsertItem(l.get(), text, sizeof text, -1, nullptr), S_OK);
  ASSERT_EQ(ZqList_AllocAndInsertItem(l.get(), nullptr, 30, -1, nullptr), S_OK);
  ASSERT_EQ(ZqList_ReAllocItem(l.get(), 0, 4000), S_OK);
  const char* grown = static_cast<const char*>(l->items[0]);
  EXPECT_STREQ(grown, "abcdef");
  EXPECT_TRUE(std::all_of(grown + sizeof text, grown + 4000, [](char c) { return c == 0; }));
  EXPECT_EQ(ZqList_ReAllocItem(l.get(), 2, 8), E_FAIL);
  EXPECT_EQ(ZqList_ReAllocItem(l.get(), -1, 8), E_FAIL);
  EXPECT_EQ(ZqHeap_BlockCount(l->heap), 2u) << "the item stays in the list's heap";
  EXPECT_EQ(ZqList_AllocSize(l.get(), 0), 4000);
  EXPECT_EQ(ZqList_AllocSize(l.get(), 2), -1);
  EXPECT_EQ(ZqList_AllocSize(l.get(), -1), static_cast<LONG_PTR>(4000 + 30 + 16 * sizeof(void*) + ZQLIST_HEADER_SIZE));
  ListPtr array = MakeList(ZQLIST_ARRAY, 10, 8, 8);
  EXPECT_EQ(ZqList_AllocSize(array.get(), 5), 12) << "any index of an array list";
  EXPECT_EQ(ZqList_AllocSize(array.get(), -1), 8 * 12 + ZQLIST_HEADER_SIZE);
  EXPECT_EQ(ZqList_AllocSize(MakeList(0).get(), -1), -1) << "plain values are not measured";
}

// --- Deletion and moves ----------------------------------------------------------------------------

TEST(ListDelete, RangeRules) {
  struct Case { int index, n; HRESULT status; const char* left; } cases[] = {
      {-1, 2, E_FAIL, "abcdefghij"},  // index negative, count not
      {10, 1, E_FAIL, "abcdefghij"},  {3, 0, S_OK, "abcdefghij"},
      {12, -1, S_OK, "abcdefghij"},  // to the end of nothing: nothing
      {8, 5, S_OK, "abcdefgh"},      // clipped to what is there
      {1, 2, S_OK, "adefghij"},       {4, -1, S_OK, "abcd"},
  };
  for (const Case& c : cases) {
    ListPtr l = LetterList("abcdefghij", 0, 16, 4);
    EXPECT_EQ(ZqList_DeleteList(l.get(), c.index, c.n, 0), c.status) << c.index << ", " << c.n;
    EXPECT_EQ(Keys<PlainKind>(l.get()), Letters(c.left)) << c.index << ", " << c.n;
    EXPECT_EQ(l->items[l->count], nullptr) << "vacated slots are zeroed";
    EXPECT_EQ(l->allocated, 16) << "no shrink asked for";
  }
}

TEST(ListDelete, ShrinkGivesBackFreeSlotsBeyondOneStep) {
  ListPtr l = MakeList(0, 0, 32, 8);
  std::vector<UINT_PTR> v(30, 1);
  ASSERT_EQ(ZqList_InsertList(l.get(), 0, v.data(), 30), S_OK);
  ASSERT_EQ(ZqList_DeleteList(l.get(), 25, -1, 1), S_OK);
  EXPECT_EQ(l->allocated, 32) << "7 free do not exceed the step";
  ASSERT_EQ(ZqList_DeleteList(l.get(), 20, -1, 1), S_OK);
  EXPECT_EQ(l->allocated, 24) << "12 free round to 16, more than free: one step goes";
  ASSERT_EQ(ZqList_DeleteList(l.get(), 5, -1, 1), S_OK);
  EXPECT_EQ(l->allocated, 8) << "19 free round to 24, more than free: 16 go";
}

TEST(ListMove, MoveRangeBothWaysAndItsLimits) {
  struct Case { int from, to, n; HRESULT status; const char* after; } cases[] = {
      {0, 5, 2, S_OK, "cdefgabh"},     {5, 1, 2, S_OK, "afgbcdeh"},
      {6, -3, -1, S_OK, "ghabcdef"},   // to 0, up to the end
      {-1, 3, 2, E_INVALIDARG, "abcdefgh"},
      {0, 7, 2, E_FAIL, "abcdefgh"},   // passes the end at the target
      {7, 0, 2, E_FAIL, "abcdefgh"},   // passes the end at the source
      {3, 3, 2, S_OK, "abcdefgh"},     {3, 1, 0, S_OK, "abcdefgh"},
  };
  for (const Case& c : cases) {
    ListPtr l = LetterList("abcdefgh");
    EXPECT_EQ(ZqList_MoveRange(l.get(), c.from, c.to, c.n), c.status) << c.from << " " << c.to << " " << c.n;
    EXPECT_EQ(Keys<PlainKind>(l.get()), Letters(c.after)) << c.from << " " << c.to << " " << c.n;
  }
}

template <class Kind>
ListPtr ListOfKeys(std::initializer_list<int> keys) {
  ListPtr l = MakeList(Kind::kOptions);
  for (int k : keys) EXPECT_EQ(Kind::Add(l.get(), -1, k), S_OK);
  return l;
}

TEST(ListMove, ItemsMoveBetweenHeapListsInOrderAndChangeOwner) {
  LONG_PTR live = ZqMemory_GetLiveBlocks();
  {
    ListPtr dst = ListOfKeys<PrivateHeapKind>({1, 2, 3});
    ListPtr src = ListOfKeys<PrivateHeapKind>({10, 11, 12, 13, 14});
    ASSERT_EQ(ZqList_MoveItemsBetweenHeapLists(dst.get(), 1, src.get(), 1, 3), S_OK);
    EXPECT_EQ(Keys<HeapKind>(dst.get()), (std::vector<int>{1, 11, 12, 13, 2, 3}));
    EXPECT_EQ(Keys<HeapKind>(src.get()), (std::vector<int>{10, 14}));
    EXPECT_EQ(ZqHeap_BlockCount(dst->heap), 6u);
    EXPECT_EQ(src->options & ZQLIST_HEAPITEMS, ZQLIST_HEAPITEMS) << "restored";
    src.reset();  // the moved items must survive their old heap
    ListPtr general = ListOfKeys<HeapKind>({});
    ASSERT_EQ(ZqList_MoveItemsBetweenHeapLists(general.get(), -1, dst.get(), 0, -1), S_OK);
    EXPECT_EQ(Keys<HeapKind>(general.get()), (std::vector<int>{1, 11, 12, 13, 2, 3}));
    EXPECT_EQ(dst->count, 0);
  }
  EXPECT_EQ(ZqMemory_GetLiveBlocks(), live) << "every item freed exactly once";
}

TEST(ListMove, MoveBetweenHeapListsRefusesMisuse) {
  ListPtr a = ListOfKeys<HeapKind>({1, 2});
  ListPtr b = ListOfKeys<HeapKind>({3});
  ListPtr plain = MakeList(0);
  ListImage ia = Capture(a.get()), ib = Capture(b.get());
  EXPECT_EQ(ZqList_MoveItemsBetweenHeapLists(plain.get(), 0, a.get(), 0, 1), E_FAIL);
  EXPECT_EQ(ZqList_MoveItemsBetweenHeapLists(a.get(), 0, plain.get(), 0, 1), E_FAIL);
  EXPECT_EQ(ZqList_MoveItemsBetweenHeapLists(a.get(), 0, b.get(), 0, 2), E_FAIL) << "beyond src";
  EXPECT_EQ(ZqList_MoveItemsBetweenHeapLists(a.get(), 0, b.get(), 0, 0), S_OK);
  EXPECT_EQ(ZqList_MoveItemsBetweenHeapLists(a.get(), 0, a.get(), 0, 1), E_FAIL);
  EXPECT_EQ(Capture(a.get()), ia);
  EXPECT_EQ(Capture(b.get()), ib);
  ASSERT_EQ(ZqList_AllocItem(a.get(), 4, nullptr), S_OK);
  EXPECT_EQ(ZqList_MoveItemsBetweenHeapLists(a.get(), 0, b.get(), 0, 1), E_FAIL) << "dst has a pending item";
}

TEST(ListMove, ConvertToInPlace) {
  tZQLIST place, other;
  tZQLIST* l = LetterList("xyz", ZQLIST_LOCKED).release();
  ASSERT_EQ(ZqList_ConvertToInPlace(&l, &place), S_OK);
  EXPECT_EQ(l, nullptr);
  EXPECT_EQ(PlainKind::Add(&place, 0, 'w'), S_OK) << "the moved lock works";
  EXPECT_EQ(Keys<PlainKind>(&place), Letters("wxyz"));
  tZQLIST* inPlace = &place;
  EXPECT_EQ(ZqList_ConvertToInPlace(&inPlace, &other), E_FAIL) << "already in place";
  EXPECT_EQ(ZqList_ConvertToInPlace(nullptr, &other), E_INVALIDARG);
  tZQLIST zero{};
  tZQLIST* bad = &zero;
  EXPECT_EQ(ZqList_ConvertToInPlace(&bad, &other), E_INVALIDARG);
  EXPECT_EQ(ZqList_Destroy(&place), S_OK);
}

TEST(ListMove, ArrayForceItemCountNeverGivesMemoryBack) {
  ListPtr l = MakeList(ZQLIST_ARRAY, 4, 8, 8);
  EXPECT_EQ(ZqList_ArrayForceItemCount(l.get(), 20, 0), S_OK);
  EXPECT_EQ(l->allocated, 24) << "grown by the 12 missing, rounded to the step";
  *static_cast<int*>(ZqList_ArrayItem(l.get(), 19)) = 77;
  EXPECT_EQ(ZqList_ArrayForceItemCount(l.get(), 2, 1), S_OK);
  EXPECT_EQ(l->count, 2);
  EXPECT_EQ(l->allocated, 24) << "the shrink request returns nothing";
  EXPECT_EQ(ZqList_ArrayForceItemCount(l.get(), 20, 0), S_OK);
  EXPECT_EQ(*static_cast<int*>(ZqList_ArrayItem(l.get(), 19)), 77) << "whatever the slots held";
  EXPECT_EQ(ZqList_ArrayForceItemCount(l.get(), -1, 0), E_INVALIDARG);
  EXPECT_EQ(ZqList_ArrayForceItemCount(MakeList(0).get(), 3, 0), E_FAIL);
}

// --- Every kind of list behaves alike ---------------------------------------------------------

template <class Kind>
class ListKinds : public ::testing::Test {};
using AllKinds = ::testing::Types<PlainKind, LockedPlainKind, HeapKind, PrivateHeapKind, LockedHeapKind, ArrayKind,
                                  LockedArrayKind>;
TYPED_TEST_SUITE(ListKinds, AllKinds);

// A deterministic mix of insertions, deletions and moves against a model.
TYPED_TEST(ListKinds, InsertDeleteMoveKeepTheSequence) {
  using Kind = TypeParam;
  ListPtr l = MakeList(Kind::kOptions, Kind::kItemSize, 4, 4);
  std::vector<int> model;
  unsigned seed = 12345;
  auto next = [&seed] { return seed = seed * 1103515245u + 12345u, (seed >> 16) & 0x7FFF; };
  for (int step = 0; step < 400; ++step) {
    int op = next() % 4;
    int size = static_cast<int>(model.size());
    if (op <= 1 || size == 0) {
      int index = static_cast<int>(next() % (size + 2)) - 1;
      int key = static_cast<int>(next() % 1000);
      ASSERT_EQ(Kind::Add(l.get(), index, key), S_OK);
      model.insert(index < 0 || index >= size ? model.end() : model.begin() + index, key);
    } else if (op == 2) {
      int index = next() % size;
      int n = static_cast<int>(next() % 3);
      ASSERT_EQ(ZqList_DeleteList(l.get(), index, n, step & 1), S_OK);
      model.erase(model.begin() + index, model.begin() + std::min(size, index + n));
    } else {
      int n = 1 + next() % std::max(1, size / 3);
      int from = next() % (size - n + 1);
      int to = next() % (size - n + 1);
      ASSERT_EQ(ZqList_MoveRange(l.get(), from, to, n), S_OK);
      std::vector<int> moved(model.begin() + from, model.begin() + from + n);
      model.erase(model.begin() + from, model.begin() + from + n);
      model.insert(model.begin() + to, moved.begin(), moved.end());
    }
    ASSERT_EQ(Keys<Kind>(l.get()), model) << "after step " << step;
    ASSERT_LE(l->count, l->allocated);
  }
}

TYPED_TEST(ListKinds, HeapListsOwnTheirItemsAndFreeEachOnce) {
  using Kind = TypeParam;
  LONG_PTR live = ZqMemory_GetLiveBlocks();
  {
    ListPtr l = MakeList(Kind::kOptions, Kind::kItemSize);
    for (int i = 0; i < 50; ++i) ASSERT_EQ(Kind::Add(l.get(), i % 3 == 0 ? 0 : -1, i), S_OK);
    LONG_PTR items = Kind::kOwnsItems ? 50 : 0;
    EXPECT_EQ(ZqMemory_GetLiveBlocks() - live, 2 + items) << "header, slots and the items";
    ASSERT_EQ(ZqList_DeleteList(l.get(), 10, 20, 0), S_OK);
    EXPECT_EQ(ZqMemory_GetLiveBlocks() - live, 2 + items * 30 / 50) << "the 20 deleted items are freed";
    if (Kind::kOwnsItems) {
      ASSERT_EQ(ZqList_AllocItem(l.get(), 64, nullptr), S_OK) << "a pending item dies too";
    }
  }
  EXPECT_EQ(ZqMemory_GetLiveBlocks(), live);
}

}  // namespace
