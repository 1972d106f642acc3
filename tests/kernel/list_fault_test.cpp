// Lists under allocation failures: every failure answers E_OUTOFMEMORY and
// leaves the list (both lists, for the operations on two) exactly as it was,
// byte for byte, with nothing leaked.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "tests/kernel/fault_injection.h"
#include "tests/kernel/list_test_util.h"

namespace {

ListPtr Full(DWORD options, UINT itemSize, int n) {
  ListPtr l = MakeList(options, itemSize, 4, 4);
  for (int i = 0; i < n; ++i) {
    std::vector<BYTE> element(l->itemSize, static_cast<BYTE>(i));  // an array element, or a plain value
    EXPECT_EQ((options & ZQLIST_HEAPITEMS) ? HeapKind::Add(l.get(), -1, i) : ZqList_InsertList(l.get(), -1, element.data(), 1),
              S_OK);
  }
  return l;
}

struct Case {
  std::string name;
  DWORD options;
  UINT itemSize;
  int n;  // elements of the list operated on
  std::function<HRESULT(tZQLIST*, tZQLIST*)> op;  // (list, second list)
  DWORD secondOptions = ZQLIST_HEAPITEMS;
  int spare = 0;  // free slots added before the operation
};

TEST(ListFaults, EveryFailingAllocationLeavesTheListsAsTheyWere) {
  const DWORD kHeap = ZQLIST_HEAPITEMS, kArray = ZQLIST_ARRAY, kPrivate = ZQLIST_HEAPITEMS | ZQLIST_PRIVATEHEAP;
  std::vector<Case> cases;
  for (DWORD options : {0u, ZQLIST_LOCKED, kHeap, kPrivate, kArray}) {
    UINT size = (options & kArray) ? sizeof(Item) : 0;
    std::string kind = "options " + std::to_string(options);
    cases.push_back({kind + " grow", options, size, 4, [](tZQLIST* l, tZQLIST*) { return ZqList_GrowAllocated(l, 9); }});
    cases.push_back({kind + " shrink", options, size, 1,
                     [](tZQLIST* l, tZQLIST*) { return ZqList_ShrinkAllocated(l, -1); }, kHeap, 40});
    if (options & kHeap) {
      cases.push_back({kind + " alloc item", options, 0, 4,
                       [](tZQLIST* l, tZQLIST*) { return ZqList_AllocItem(l, 40, nullptr); }});
      cases.push_back({kind + " alloc and insert", options, 0, 4, [](tZQLIST* l, tZQLIST*) {
                         Item item{7, 7};
                         return ZqList_AllocAndInsertItem(l, &item, sizeof item, 2, nullptr);
                       }});
      cases.push_back({kind + " realloc item", options, 0, 4,
                       [](tZQLIST* l, tZQLIST*) { return ZqList_ReAllocItem(l, 3, 4096); }});
    } else {
      // The source lies in the block that the growth replaces.
      cases.push_back({kind + " own elements inserted again", options, size, 4,
                       [](tZQLIST* l, tZQLIST*) { return ZqList_InsertList(l, 1, l->items, -2); }});
      cases.push_back({kind + " insert", options, size, 4, [](tZQLIST* l, tZQLIST*) {
                         Item items[3] = {{1, 1}, {2, 2}, {3, 3}};
                         return ZqList_InsertList(l, 0, items, (l->options & ZQLIST_ARRAY) ? 3 : -3);
                       }});
    }
  }
  cases.push_back({"move range through the heap", kArray, 200, 8,
                   [](tZQLIST* l, tZQLIST*) { return ZqList_MoveRange(l, 0, 4, 4); }});
  cases.push_back({"force item count", kArray, 8, 4,
                   [](tZQLIST* l, tZQLIST*) { return ZqList_ArrayForceItemCount(l, 40, 1); }});
  cases.push_back({"move between heap lists", kPrivate, 0, 4,
                   [](tZQLIST* l, tZQLIST* src) { return ZqList_MoveItemsBetweenHeapLists(l, 1, src, 0, 10); }});
  cases.push_back({"sort to", kArray, sizeof(Item), 3,
                   [](tZQLIST* l, tZQLIST* src) { return ZqList_SortTo(l, src, 0, CompareKeys<ArrayKind>); },
                   kArray});

  struct State { ListPtr l, second; ListImage before, secondBefore; };
  for (const Case& c : cases) {
    auto setup = [&] {
      State s{Full(c.options, c.itemSize, c.n), Full(c.secondOptions, c.itemSize, 10), {}, {}};
      EXPECT_EQ(c.spare ? ZqList_GrowAllocated(s.l.get(), c.spare) : S_OK, S_OK);
      s.before = Capture(s.l.get());
      s.secondBefore = Capture(s.second.get());
      return s;
    };
    auto check = [&](State& s, const ZqFaultRun& run) {
      SCOPED_TRACE(c.name + ", allocation " + std::to_string(run.n) + (run.failed ? " failing" : ""));
      EXPECT_EQ(run.status, run.failed ? E_OUTOFMEMORY : S_OK);
      if (run.failed) {
        EXPECT_EQ(Capture(s.l.get()), s.before);
        EXPECT_EQ(Capture(s.second.get()), s.secondBefore);
      }
    };
    LONG points = ZqForEachAllocFailure(setup, [&](State& s) { return c.op(s.l.get(), s.second.get()); }, check);
    EXPECT_GT(points, 0) << c.name << " should allocate";
  }
}

TEST(ListFaults, CreationFailsCleanly) {
  tZQLIST record;
  struct Kind {
    DWORD options;
    LONG points;  // header, slots and the heap
  } kinds[] = {{0, 2}, {ZQLIST_LOCKED, 2}, {ZQLIST_HEAPITEMS | ZQLIST_PRIVATEHEAP, 3}, {ZQLIST_ARRAY, 2},
               {ZQLIST_INPLACE, 1}};
  for (const Kind& k : kinds) {
    LONG_PTR live = ZqMemory_GetLiveBlocks();
    auto check = [&](tZQLIST*& l, const ZqFaultRun& run) {
      SCOPED_TRACE(testing::Message() << "options " << k.options << ", allocation " << run.n);
      if (!run.failed) {
        EXPECT_EQ(ZqList_Destroy(l), S_OK);
        return;
      }
      EXPECT_EQ(run.status, E_OUTOFMEMORY);
      EXPECT_FALSE(ZqList_IsListFast(l));
      EXPECT_TRUE((k.options & ZQLIST_INPLACE) || l == nullptr);
      EXPECT_EQ(ZqMemory_GetLiveBlocks(), live);
    };
    LONG points = ZqForEachAllocFailure([&] { return (k.options & ZQLIST_INPLACE) ? &record : nullptr; },
                                        [&](tZQLIST*& l) { return ZqList_CreateExZ(&l, 12, 0, 0, k.options, 0, 0, 0); },
                                        check);
    EXPECT_EQ(points, k.points) << "options " << k.options;
  }
}

TEST(ListFaults, AFailedShrinkAfterDeletionKeepsTheCapacity) {
  ListPtr l = Full(ZQLIST_HEAPITEMS, 0, 40);
  int allocated = l->allocated;
  LONG_PTR live = ZqMemory_GetLiveBlocks();
  {
    ZqScopedAllocFailure fail(1, ZQMEMFAIL_CALLING_THREAD);
    EXPECT_EQ(ZqList_DeleteList(l.get(), 2, -1, 1), S_OK) << "the elements are deleted all the same";
    EXPECT_TRUE(fail.Triggered());
  }
  EXPECT_EQ(l->count, 2);
  EXPECT_EQ(l->allocated, allocated);
  EXPECT_EQ(ZqMemory_GetLiveBlocks(), live - 38);
}

}  // namespace
