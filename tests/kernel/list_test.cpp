// Lists: creation, capacity, the insertion and deletion forms, moves,
// ownership of heap items, the owner test and misuse.
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <thread>

#include "platform/thread.h"
#include "tests/kernel/list_test_util.h"

namespace {

// --- Creation ----------------------------------------------------------------

TEST(ListCreate, CapacityIsRoundedToTheStep) {
  struct Case {
    int initial, grow, allocated, growBy;
  } cases[] = {
      {10, 8, 16, 8},            // rounded up to a multiple of the step
      {10, 1, 12, 4},            // a step below 4 becomes 4
      {10, 1000000, 0x10400, 0x10400},  // the largest step honoured
      {0, 0, 16, 16},            // defaults
      {-5, -1, 16, 16},
      {1, 4, 4, 4},              // at least 4 slots
      {17, 16, 32, 16},
  };
  for (const Case& c : cases) {
    ListPtr l = MakeList(0, 0, c.initial, c.grow);
    ASSERT_TRUE(l);
    EXPECT_EQ(l->allocated, c.allocated) << "initial " << c.initial << " grow " << c.grow;
    EXPECT_EQ(l->growBy, c.growBy) << "initial " << c.initial << " grow " << c.grow;
    EXPECT_EQ(l->count, 0);
  }
}

TEST(ListCreate, ItemSizeAndFlagsByKind) {
  ListPtr plain = MakeList(ZQLIST_LOCKED, 100);
  EXPECT_EQ(plain->itemSize, sizeof(void*)) << "slots are pointer-sized whatever was passed";
  EXPECT_EQ(plain->options, ZQLIST_LOCKED | ZQLIST_ANYTHREAD);
  EXPECT_EQ(plain->heapAllocFlags, 0u);

  ListPtr array = MakeList(ZQLIST_ARRAY, 10);
  EXPECT_EQ(array->itemSize, 12u);
  ListPtr array4 = MakeList(ZQLIST_ARRAY, 4);
  EXPECT_EQ(array4->itemSize, 4u);

  ListPtr heap = MakeList(ZQLIST_HEAPITEMS | ZQLIST_PRIVATEHEAP);
  EXPECT_EQ(heap->heapAllocFlags, 9u);
  EXPECT_EQ(heap->heapFreeFlags, 1u);
  EXPECT_NE(heap->heap, nullptr);
  EXPECT_EQ(heap->magic, ZQLIST_MAGIC);
  EXPECT_EQ(std::memcmp(&heap->magic, "CURT", 4), 0);
  EXPECT_EQ(heap->ownerThread, GetCurrentThreadId());
  EXPECT_EQ(MakeList(ZQLIST_HEAPITEMS)->heap, nullptr);
}

TEST(ListCreate, MisuseFailsAndAllocatesNothing) {
  LONG_PTR live = ZqMemory_GetLiveBlocks();
  tZQLIST* l = reinterpret_cast<tZQLIST*>(0x1234);
  EXPECT_EQ(ZqList_CreateExZ(&l, 0, 0, 0, ZQLIST_HEAPITEMS | ZQLIST_ARRAY, 0, 0, 0), E_FAIL);
  EXPECT_EQ(l, nullptr) << "the out-pointer is cleared first";
  l = nullptr;
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
  EXPECT_EQ(record.count, 0);
  EXPECT_EQ(record.pending, nullptr) << "the record is zeroed first";
  EXPECT_EQ(record.options, 0x4000000Cu);
  EXPECT_EQ(ZqMemory_GetLiveBlocks(), live + 1) << "only the slots are allocated";
  short value[4] = {1, 2, 3, 0};  // one element of 6 bytes takes a slot of 8
  EXPECT_EQ(ZqList_InsertList(&record, -1, value, 1), S_OK);
  EXPECT_EQ(record.itemSize, 8u);
  EXPECT_EQ(ZqList_Destroy(&record), S_OK);
  EXPECT_EQ(ZqMemory_GetLiveBlocks(), live);
  EXPECT_FALSE(ZqList_IsListFast(&record));
}

// --- Tests and fields ------------------------------------------------------------

TEST(ListFields, IdentityUserDataOwnerAndSourcePosition) {
  ListPtr l = MakeList(ZQLIST_LOCKED);
  EXPECT_TRUE(ZqList_IsList(l.get(), ZQLIST_HEADER_SIZE));
  EXPECT_FALSE(ZqList_IsList(l.get(), ZQLIST_HEADER_SIZE + 1));
  tZQLIST zero{};
  EXPECT_FALSE(ZqList_IsListFast(&zero));
  UINT_PTR v = 1;
  EXPECT_EQ(ZqList_InsertList(&zero, 0, &v, 1), E_INVALIDARG) << "not a live list";
  EXPECT_EQ(ZqList_Destroy(nullptr), S_OK);
  ASSERT_EQ(ZqList_InsertList(l.get(), 0, &v, 1), S_OK);
  EXPECT_TRUE(ZqList_IsValidIndexSlow(l.get(), 0));
  EXPECT_FALSE(ZqList_IsValidIndexSlow(l.get(), 1));
  EXPECT_EQ(ZqList_SetUserData(l.get(), 42), 0u);
  EXPECT_EQ(ZqList_SetUserData(l.get(), 43), 42u) << "answers the old word";
  EXPECT_EQ(ZqList_GetUserData(l.get()), 43u);
  EXPECT_EQ(ZqList_GetCreateOptions(l.get()), ZQLIST_LOCKED | ZQLIST_ANYTHREAD);

  EXPECT_EQ(ZqList_SetThreadOwner(l.get(), 777), S_OK);
  EXPECT_EQ(ZqList_GetThreadOwner(l.get()), 777u);
  EXPECT_EQ(ZqList_SetThreadOwner(l.get(), 0), S_OK);
  EXPECT_EQ(ZqList_GetThreadOwner(l.get()), GetCurrentThreadId()) << "0 means the calling thread";

  WCHAR buffer[8] = {u'x', u'y'};
  EXPECT_EQ(ZqList_GetFileAndLine(l.get(), buffer, 8), -1);
  EXPECT_EQ(buffer[0], 0);
}

TEST(ListFields, OwnerTestRefusesOtherThreadsAndChangesNothing) {
  ListPtr l = MakeList(0);
  UINT_PTR v[2] = {1, 2};
  ASSERT_EQ(ZqList_InsertList(l.get(), 0, v, 2), S_OK);
  l->options &= ~ZQLIST_ANYTHREAD;  // a record changed after creation
  ListImage before = Capture(l.get());

  HRESULT insert = S_OK, del = S_OK, setOwner = S_OK;
  UINT_PTR user = 0, setUser = 0;
  INT found = 0;
  std::thread other([&] {
    insert = ZqList_InsertList(l.get(), 0, v, 1);
    del = ZqList_DeleteList(l.get(), 0, -1, 0);
    user = ZqList_GetUserData(l.get());
    setUser = ZqList_SetUserData(l.get(), 5);
    found = ZqList_FindSpecificItemRange(l.get(), 0, -1, reinterpret_cast<void*>(2));
    setOwner = ZqList_SetThreadOwner(l.get(), 0);
  });
  other.join();
  EXPECT_EQ(insert, E_FAIL);
  EXPECT_EQ(del, E_FAIL);
  EXPECT_EQ(setOwner, E_FAIL);
  EXPECT_EQ(user, static_cast<UINT_PTR>(-1));
  EXPECT_EQ(setUser, static_cast<UINT_PTR>(-1));
  EXPECT_EQ(found, -1);
  EXPECT_EQ(Capture(l.get()), before);

  // The owner itself is served.
  EXPECT_EQ(ZqList_FindSpecificItemRange(l.get(), 0, -1, reinterpret_cast<void*>(2)), 1);
  EXPECT_EQ(ZqList_DeleteList(l.get(), 0, 1, 0), S_OK);
}

// --- Capacity -------------------------------------------------------------------------

TEST(ListCapacity, GrowthIsByRoundedStepsAndKeepsTheSlots) {
  ListPtr l = MakeList(0, 0, 8, 8);
  UINT_PTR v[8];
  std::iota(v, v + 8, 100);
  ASSERT_EQ(ZqList_InsertList(l.get(), 0, v, 8), S_OK);
  EXPECT_EQ(l->allocated, 8);
  EXPECT_EQ(ZqList_GrowAllocated(l.get(), 0), S_OK);
  EXPECT_EQ(l->allocated, 16) << "a non-positive extra means one step";
  EXPECT_EQ(ZqList_GrowAllocated(l.get(), 9), S_OK);
  EXPECT_EQ(l->allocated, 32) << "9 rounds up to two steps of 8";
  for (int i = 0; i < 8; ++i) EXPECT_EQ(reinterpret_cast<UINT_PTR>(l->items[i]), v[i]);
  for (int i = 8; i < 32; ++i) EXPECT_EQ(l->items[i], nullptr) << "new slots are zero";

  // One more element than fits grows by the number of elements, rounded.
  ListPtr m = MakeList(0, 0, 4, 4);
  UINT_PTR w[6] = {};
  ASSERT_EQ(ZqList_InsertList(m.get(), 0, w, 3), S_OK);
  ASSERT_EQ(ZqList_InsertList(m.get(), 0, w, 6), S_OK);
  EXPECT_EQ(m->allocated, 12);
}

TEST(ListCapacity, ShrinkKeepsWithinTheFreeSlots) {
  ListPtr l = MakeList(0, 0, 64, 16);
  UINT_PTR v[5] = {1, 2, 3, 4, 5};
  ASSERT_EQ(ZqList_InsertList(l.get(), 0, v, 5), S_OK);
  // 59 free: all of them rounds up to 64, which is more than free: 48 go.
  EXPECT_EQ(ZqList_ShrinkAllocated(l.get(), -1), S_OK);
  EXPECT_EQ(l->allocated, 16);
  EXPECT_EQ(ZqList_ShrinkAllocated(l.get(), 3), S_OK) << "3 rounds to 16 > 11 free: nothing";
  EXPECT_EQ(l->allocated, 16);
  EXPECT_EQ(ZqList_ShrinkAllocated(l.get(), 1000), S_OK) << "never more than the free slots";
  EXPECT_EQ(l->allocated, 16);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(reinterpret_cast<UINT_PTR>(l->items[i]), v[i]);

  ListPtr empty = MakeList(0, 0, 16, 16);
  EXPECT_EQ(ZqList_ShrinkAllocated(empty.get(), -1), S_OK);
  EXPECT_EQ(empty->allocated, 1) << "one slot is kept";
  ASSERT_EQ(ZqList_InsertList(empty.get(), 0, v, 5), S_OK);
  EXPECT_EQ(empty->allocated, 17);
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

  // A raw slot: the list takes the block over and frees it.
  void* raw = ZqMemory_AllocZ(24);
  EXPECT_EQ(ZqList_InsertList(heap.get(), 0, &raw, -1), S_OK);
  EXPECT_EQ(heap->count, 1);
  EXPECT_EQ(heap->items[0], raw);

  // The pending item.
  void* item = nullptr;
  ASSERT_EQ(ZqList_AllocItem(heap.get(), 8, &item), S_OK);
  EXPECT_EQ(heap->pending, item);
  void* second = &value;
  EXPECT_EQ(ZqList_AllocItem(heap.get(), 8, &second), E_FAIL) << "one pending item at a time";
  EXPECT_EQ(second, nullptr);
  EXPECT_EQ(ZqList_InsertList(heap.get(), 0, nullptr, -1), S_OK);
  EXPECT_EQ(heap->pending, nullptr);
  EXPECT_EQ(heap->items[0], item);

  ListPtr plain = MakeList(0);
  EXPECT_EQ(ZqList_AllocItem(plain.get(), 8, &item), E_FAIL);
  EXPECT_EQ(item, nullptr);
  UINT_PTR values[3] = {1, 2, 3};
  EXPECT_EQ(ZqList_InsertList(plain.get(), 0, values, -3), S_OK) << "raw slots are fine for any list";
  EXPECT_EQ(plain->count, 3);
}

TEST(ListInsert, SlotsOfTheListItselfCanBeInsertedAgain) {
  ListPtr l = MakeList(0, 0, 4, 4);
  UINT_PTR v[4] = {1, 2, 3, 4};
  ASSERT_EQ(ZqList_InsertList(l.get(), 0, v, 4), S_OK);
  // The source lies in the block that the growth replaces.
  ASSERT_EQ(ZqList_InsertList(l.get(), 0, &l->items[2], 2), S_OK);
  EXPECT_EQ(Keys<PlainKind>(l.get()), (std::vector<int>{3, 4, 1, 2, 3, 4}));
}

TEST(ListInsert, AllocAndInsertWritesTheIndex) {
  ListPtr l = MakeList(ZQLIST_HEAPITEMS | ZQLIST_LOCKED);
  int where = 0;
  Item a(1, 0), b(2, 0);
  ASSERT_EQ(ZqList_AllocAndInsertItem(l.get(), &a, sizeof a, 50, &where), S_OK);
  EXPECT_EQ(where, 0);
  ASSERT_EQ(ZqList_AllocAndInsertItem(l.get(), &b, sizeof b, -1, &where), S_OK);
  EXPECT_EQ(where, 1);
  ASSERT_EQ(ZqList_AllocAndInsertItem(l.get(), nullptr, 16, 0, &where), S_OK);
  EXPECT_EQ(where, 0);
  EXPECT_EQ(ZqMemory_Size(l->items[0]), 16u);
  EXPECT_EQ(static_cast<const Item*>(l->items[0])->key, 0) << "items are zeroed";
  EXPECT_EQ(Keys<HeapKind>(l.get()), (std::vector<int>{0, 1, 2}));
  EXPECT_EQ(l->pending, nullptr);

  // With an item pending already, nothing is inserted and the pending item stays.
  void* pending = nullptr;
  ASSERT_EQ(ZqList_AllocItem(l.get(), 4, &pending), S_OK);
  EXPECT_EQ(ZqList_AllocAndInsertItem(l.get(), &a, sizeof a, 0, &where), E_FAIL);
  EXPECT_EQ(where, -1);
  EXPECT_EQ(l->pending, pending);
  EXPECT_EQ(ZqList_DeleteList(l.get(), -1, -1, 0), S_OK) << "frees the pending item";
  EXPECT_EQ(l->pending, nullptr);
  EXPECT_EQ(ZqList_DeleteList(l.get(), -1, -1, 0), E_FAIL) << "nothing pending any more";
  EXPECT_EQ(l->count, 3);

  ListPtr plain = MakeList(0);
  EXPECT_EQ(ZqList_AllocAndInsertItem(plain.get(), &a, sizeof a, 0, &where), E_FAIL);
}

TEST(ListItems, ReAllocKeepsTheContentsAndZeroesTheGrowth) {
  ListPtr l = MakeList(ZQLIST_HEAPITEMS | ZQLIST_PRIVATEHEAP);
  const char text[] = "abcdef";
  ASSERT_EQ(ZqList_AllocAndInsertItem(l.get(), text, sizeof text, -1, nullptr), S_OK);
  ASSERT_EQ(ZqList_ReAllocItem(l.get(), 0, 4000), S_OK);
  const char* grown = static_cast<const char*>(l->items[0]);
  EXPECT_STREQ(grown, "abcdef");
  EXPECT_TRUE(std::all_of(grown + sizeof text, grown + 4000, [](char c) { return c == 0; }));
  EXPECT_EQ(ZqList_AllocSize(l.get(), 0), 4000);
  EXPECT_EQ(ZqList_ReAllocItem(l.get(), 1, 8), E_FAIL);
  EXPECT_EQ(ZqList_ReAllocItem(l.get(), -1, 8), E_FAIL);
  EXPECT_EQ(ZqHeap_BlockCount(l->heap), 1u) << "the item stays in the list's heap";
}

TEST(ListItems, AllocSizeByKind) {
  ListPtr heap = MakeList(ZQLIST_HEAPITEMS, 0, 16, 16);
  ASSERT_EQ(ZqList_AllocAndInsertItem(heap.get(), nullptr, 10, -1, nullptr), S_OK);
  ASSERT_EQ(ZqList_AllocAndInsertItem(heap.get(), nullptr, 30, -1, nullptr), S_OK);
  EXPECT_EQ(ZqList_AllocSize(heap.get(), 1), 30);
  EXPECT_EQ(ZqList_AllocSize(heap.get(), 2), -1);
  EXPECT_EQ(ZqList_AllocSize(heap.get(), -1),
            static_cast<LONG_PTR>(10 + 30 + 16 * sizeof(void*) + ZQLIST_HEADER_SIZE));

  ListPtr array = MakeList(ZQLIST_ARRAY, 10, 8, 8);
  EXPECT_EQ(ZqList_AllocSize(array.get(), 5), 12) << "any index of an array list";
  EXPECT_EQ(ZqList_AllocSize(array.get(), -1), 8 * 12 + ZQLIST_HEADER_SIZE);

  ListPtr plain = MakeList(0);
  EXPECT_EQ(ZqList_AllocSize(plain.get(), -1), -1) << "plain values are not measured";
}

// --- Deletion ----------------------------------------------------------------------------

TEST(ListDelete, RangeRules) {
  ListPtr l = MakeList(0, 0, 16, 4);
  UINT_PTR v[10];
  std::iota(v, v + 10, 0);
  ASSERT_EQ(ZqList_InsertList(l.get(), 0, v, 10), S_OK);
  EXPECT_EQ(ZqList_DeleteList(l.get(), -1, 2, 0), E_FAIL) << "index negative, count not";
  EXPECT_EQ(ZqList_DeleteList(l.get(), 10, 1, 0), E_FAIL);
  EXPECT_EQ(ZqList_DeleteList(l.get(), 3, 0, 0), S_OK);
  EXPECT_EQ(ZqList_DeleteList(l.get(), 12, -1, 0), S_OK) << "to the end of nothing: nothing";
  EXPECT_EQ(l->count, 10);
  EXPECT_EQ(ZqList_DeleteList(l.get(), 8, 5, 0), S_OK) << "clipped to what is there";
  EXPECT_EQ(ZqList_DeleteList(l.get(), 1, 2, 0), S_OK);
  EXPECT_EQ(Keys<PlainKind>(l.get()), (std::vector<int>{0, 3, 4, 5, 6, 7}));
  EXPECT_EQ(l->items[6], nullptr) << "vacated slots are zeroed";
  EXPECT_EQ(l->items[7], nullptr);
  EXPECT_EQ(ZqList_DeleteList(l.get(), 4, -1, 0), S_OK);
  EXPECT_EQ(Keys<PlainKind>(l.get()), (std::vector<int>{0, 3, 4, 5}));
}

TEST(ListDelete, EmptyingKeepsCapacityUnlessShrinkIsAsked) {
  ListPtr l = MakeList(0, 0, 8, 8);
  std::vector<UINT_PTR> v(40, 1);
  ASSERT_EQ(ZqList_InsertList(l.get(), 0, v.data(), 40), S_OK);
  ASSERT_EQ(l->allocated, 40);
  ASSERT_EQ(ZqList_DeleteList(l.get(), 0, -1, 0), S_OK);
  EXPECT_EQ(l->count, 0);
  EXPECT_EQ(l->allocated, 40);

  ASSERT_EQ(ZqList_InsertList(l.get(), 0, v.data(), 30), S_OK);
  ASSERT_EQ(ZqList_DeleteList(l.get(), 25, -1, 1), S_OK);
  EXPECT_EQ(l->allocated, 32) << "15 free slots exceed one step: 8 of them go";
  ASSERT_EQ(ZqList_DeleteList(l.get(), 20, -1, 1), S_OK);
  EXPECT_EQ(l->allocated, 24) << "12 free: one step goes";
  ASSERT_EQ(ZqList_DeleteList(l.get(), 19, -1, 1), S_OK);
  EXPECT_EQ(l->allocated, 24) << "5 free do not exceed the step";
}

// --- Moving ---------------------------------------------------------------------------------

std::vector<int> Letters(const char* s) {
  std::vector<int> v;
  for (; *s; ++s) v.push_back(*s);
  return v;
}

ListPtr LetterList(const char* s, DWORD options = 0) {
  ListPtr l = MakeList(options);
  for (; *s; ++s) EXPECT_EQ(PlainKind::Add(l.get(), -1, *s), S_OK);
  return l;
}

TEST(ListMove, MoveRangeBothWaysAndItsLimits) {
  ListPtr l = LetterList("abcdefgh");
  ASSERT_EQ(ZqList_MoveRange(l.get(), 0, 5, 2), S_OK);
  EXPECT_EQ(Keys<PlainKind>(l.get()), Letters("cdefgabh"));

  l = LetterList("abcdefgh");
  ASSERT_EQ(ZqList_MoveRange(l.get(), 5, 1, 2), S_OK);
  EXPECT_EQ(Keys<PlainKind>(l.get()), Letters("afgbcdeh"));

  l = LetterList("abcdefgh");
  ASSERT_EQ(ZqList_MoveRange(l.get(), 6, -3, -1), S_OK) << "to 0, up to the end";
  EXPECT_EQ(Keys<PlainKind>(l.get()), Letters("ghabcdef"));

  l = LetterList("abcdefgh");
  ListImage before = Capture(l.get());
  EXPECT_EQ(ZqList_MoveRange(l.get(), -1, 3, 2), E_INVALIDARG);
  EXPECT_EQ(ZqList_MoveRange(l.get(), 0, 7, 2), E_FAIL) << "passes the end at the target";
  EXPECT_EQ(ZqList_MoveRange(l.get(), 7, 0, 2), E_FAIL) << "passes the end at the source";
  EXPECT_EQ(ZqList_MoveRange(l.get(), 3, 3, 2), S_OK);
  EXPECT_EQ(ZqList_MoveRange(l.get(), 3, 1, 0), S_OK);
  EXPECT_EQ(Capture(l.get()), before);
}

template <class Kind>
ListPtr HeapListOf(std::initializer_list<int> keys, DWORD extra = 0) {
  ListPtr l = MakeList(Kind::kOptions | extra);
  for (int k : keys) EXPECT_EQ(Kind::Add(l.get(), -1, k), S_OK);
  return l;
}

TEST(ListMove, ItemsMoveBetweenHeapListsInOrderAndChangeOwner) {
  LONG_PTR live = ZqMemory_GetLiveBlocks();
  {
    ListPtr dst = HeapListOf<PrivateHeapKind>({1, 2, 3});
    ListPtr src = HeapListOf<PrivateHeapKind>({10, 11, 12, 13, 14});
    ASSERT_EQ(ZqList_MoveItemsBetweenHeapLists(dst.get(), 1, src.get(), 1, 3), S_OK);
    EXPECT_EQ(Keys<HeapKind>(dst.get()), (std::vector<int>{1, 11, 12, 13, 2, 3}));
    EXPECT_EQ(Keys<HeapKind>(src.get()), (std::vector<int>{10, 14}));
    EXPECT_EQ(ZqHeap_BlockCount(dst->heap), 6u);
    EXPECT_EQ(ZqHeap_BlockCount(src->heap), 2u);
    EXPECT_EQ(src->options & ZQLIST_HEAPITEMS, ZQLIST_HEAPITEMS) << "restored";
    // The source dies first: the moved items must survive it.
    src.reset();
    EXPECT_EQ(Keys<HeapKind>(dst.get()), (std::vector<int>{1, 11, 12, 13, 2, 3}));

    ListPtr general = HeapListOf<HeapKind>({});
    ASSERT_EQ(ZqList_MoveItemsBetweenHeapLists(general.get(), -1, dst.get(), 0, -1), S_OK);
    EXPECT_EQ(Keys<HeapKind>(general.get()), (std::vector<int>{1, 11, 12, 13, 2, 3}));
    EXPECT_EQ(dst->count, 0);
  }
  EXPECT_EQ(ZqMemory_GetLiveBlocks(), live) << "every item freed exactly once";
}

TEST(ListMove, MoveBetweenHeapListsRefusesMisuse) {
  ListPtr a = HeapListOf<HeapKind>({1, 2});
  ListPtr b = HeapListOf<HeapKind>({3});
  ListPtr plain = MakeList(0);
  ListImage ia = Capture(a.get()), ib = Capture(b.get());
  EXPECT_EQ(ZqList_MoveItemsBetweenHeapLists(plain.get(), 0, a.get(), 0, 1), E_FAIL);
  EXPECT_EQ(ZqList_MoveItemsBetweenHeapLists(a.get(), 0, plain.get(), 0, 1), E_FAIL);
  EXPECT_EQ(ZqList_MoveItemsBetweenHeapLists(a.get(), 0, b.get(), 0, 2), E_FAIL) << "beyond src";
  EXPECT_EQ(ZqList_MoveItemsBetweenHeapLists(a.get(), 0, b.get(), 0, 0), S_OK);
  EXPECT_EQ(ZqList_MoveItemsBetweenHeapLists(a.get(), 0, a.get(), 0, 1), E_FAIL);
  EXPECT_EQ(Capture(a.get()), ia);
  EXPECT_EQ(Capture(b.get()), ib);
  void* pending = nullptr;
  ASSERT_EQ(ZqList_AllocItem(a.get(), 4, &pending), S_OK);
  EXPECT_EQ(ZqList_MoveItemsBetweenHeapLists(a.get(), 0, b.get(), 0, 1), E_FAIL) << "dst has a pending item";
}

TEST(ListMove, ConvertToInPlace) {
  tZQLIST place;
  tZQLIST* l = LetterList("xyz", ZQLIST_LOCKED).release();
  ASSERT_EQ(ZqList_ConvertToInPlace(&l, &place), S_OK);
  EXPECT_EQ(l, nullptr);
  EXPECT_EQ(place.options & ZQLIST_INPLACE, ZQLIST_INPLACE);
  EXPECT_EQ(Keys<PlainKind>(&place), Letters("xyz"));
  EXPECT_EQ(PlainKind::Add(&place, 0, 'w'), S_OK) << "the moved lock works";
  EXPECT_EQ(Keys<PlainKind>(&place), Letters("wxyz"));

  tZQLIST* inPlace = &place;
  tZQLIST other;
  EXPECT_EQ(ZqList_ConvertToInPlace(&inPlace, &other), E_FAIL) << "already in place";
  EXPECT_EQ(ZqList_ConvertToInPlace(nullptr, &other), E_INVALIDARG);
  tZQLIST* none = nullptr;
  EXPECT_EQ(ZqList_ConvertToInPlace(&none, &other), E_INVALIDARG);
  tZQLIST zero{};
  tZQLIST* bad = &zero;
  EXPECT_EQ(ZqList_ConvertToInPlace(&bad, &other), E_INVALIDARG);
  EXPECT_EQ(ZqList_Destroy(&place), S_OK);
}

TEST(ListMove, ArrayForceItemCountNeverGivesMemoryBack) {
  ListPtr l = MakeList(ZQLIST_ARRAY, 4, 8, 8);
  EXPECT_EQ(ZqList_ArrayForceItemCount(l.get(), 20, 0), S_OK);
  EXPECT_EQ(l->count, 20);
  EXPECT_EQ(l->allocated, 24) << "grown by 12 rounded to the step";
  EXPECT_EQ(*static_cast<int*>(ZqList_ArrayItem(l.get(), 19)), 0);
  *static_cast<int*>(ZqList_ArrayItem(l.get(), 19)) = 77;
  EXPECT_EQ(ZqList_ArrayForceItemCount(l.get(), 2, 1), S_OK);
  EXPECT_EQ(l->count, 2);
  EXPECT_EQ(l->allocated, 24) << "the shrink request returns nothing";
  EXPECT_EQ(ZqList_ArrayForceItemCount(l.get(), 20, 0), S_OK);
  EXPECT_EQ(*static_cast<int*>(ZqList_ArrayItem(l.get(), 19)), 77) << "whatever the slots held";
  EXPECT_EQ(ZqList_ArrayForceItemCount(l.get(), -1, 0), E_INVALIDARG);

  ListPtr plain = MakeList(0);
  EXPECT_EQ(ZqList_ArrayForceItemCount(plain.get(), 3, 0), E_FAIL);
}

// --- Every kind of list behaves alike ---------------------------------------------------------

template <class Kind>
class ListKinds : public ::testing::Test {};
using AllKinds = ::testing::Types<PlainKind, LockedPlainKind, HeapKind, PrivateHeapKind, LockedHeapKind, ArrayKind,
                                  LockedArrayKind>;
TYPED_TEST_SUITE(ListKinds, AllKinds);

TYPED_TEST(ListKinds, InsertDeleteMoveKeepTheSequence) {
  using Kind = TypeParam;
  ListPtr l = MakeList(Kind::kOptions, Kind::kItemSize, 4, 4);
  std::vector<int> model;
  // Deterministic mix of operations against a model.
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
  int built = Item::constructed;
  {
    ListPtr l = MakeList(Kind::kOptions, Kind::kItemSize);
    for (int i = 0; i < 50; ++i) ASSERT_EQ(Kind::Add(l.get(), i % 3 == 0 ? 0 : -1, i), S_OK);
    LONG_PTR items = Kind::kOwnsItems ? 50 : 0;
    EXPECT_EQ(ZqMemory_GetLiveBlocks() - live, 1 + 1 + items) << "header, slots and the items";
    ASSERT_EQ(ZqList_DeleteList(l.get(), 10, 20, 0), S_OK);
    EXPECT_EQ(ZqMemory_GetLiveBlocks() - live, 2 + items * 30 / 50) << "the 20 deleted items are freed";
    if (Kind::kOwnsItems) {
      void* pending = nullptr;
      ASSERT_EQ(ZqList_AllocItem(l.get(), 64, &pending), S_OK) << "destruction frees a pending item too";
    }
  }
  EXPECT_EQ(ZqMemory_GetLiveBlocks(), live);
  EXPECT_EQ(Item::constructed - built, Kind::kOwnsItems || Kind::kKeepsTags ? 50 : 0);
}

}  // namespace
