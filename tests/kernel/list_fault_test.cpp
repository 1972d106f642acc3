// Lists under allocation failures: every failure answers E_OUTOFMEMORY and
// leaves the list exactly as it was, byte for byte, with nothing leaked.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "tests/kernel/fault_injection.h"
#include "tests/kernel/list_test_util.h"

namespace {

struct OneList {
  ListPtr l;
  ListImage before;
};

// Runs `op` on a fresh list from `build` with the N-th allocation failing,
// N = 1, 2, ... until it succeeds.
void ExpectAllOrNothing(const std::string& name, std::function<ListPtr()> build,
                        std::function<HRESULT(tZQLIST*)> op) {
  LONG points = ZqForEachAllocFailure(
      [&] {
        OneList s;
        s.l = build();
        s.before = Capture(s.l.get());
        return s;
      },
      [&](OneList& s) { return op(s.l.get()); },
      [&](OneList& s, const ZqFaultRun& run) {
        if (run.failed) {
          EXPECT_EQ(run.status, E_OUTOFMEMORY) << name << ", allocation " << run.n << " failing";
          EXPECT_EQ(Capture(s.l.get()), s.before) << name << ", allocation " << run.n << " failing";
        } else {
          EXPECT_EQ(run.status, S_OK) << name;
        }
      });
  EXPECT_GT(points, 0) << name << " should allocate";
}

ListPtr Full(DWORD options, UINT itemSize, int n) {
  ListPtr l = MakeList(options, itemSize, 4, 4);
  for (int i = 0; i < n; ++i) {
    if (options & ZQLIST_HEAPITEMS)
      EXPECT_EQ(HeapKind::Add(l.get(), -1, i), S_OK);
    else if (options & ZQLIST_ARRAY) {
      std::vector<BYTE> element(l->itemSize, static_cast<BYTE>(i));
      std::memcpy(element.data(), &i, sizeof i);
      EXPECT_EQ(ZqList_InsertList(l.get(), -1, element.data(), 1), S_OK);
    }
    else
      EXPECT_EQ(PlainKind::Add(l.get(), -1, i), S_OK);
  }
  return l;
}

TEST(ListFaults, GrowingOperationsAreAllOrNothing) {
  const DWORD kinds[] = {0, ZQLIST_LOCKED, ZQLIST_HEAPITEMS, ZQLIST_HEAPITEMS | ZQLIST_PRIVATEHEAP, ZQLIST_ARRAY};
  for (DWORD options : kinds) {
    UINT size = (options & ZQLIST_ARRAY) ? sizeof(Item) : 0;
    std::string kind = "options " + std::to_string(options);
    auto full = [=] { return Full(options, size, 4); };
    ExpectAllOrNothing(kind + " grow", full, [](tZQLIST* l) { return ZqList_GrowAllocated(l, 9); });
    ExpectAllOrNothing(
        kind + " shrink",
        [=] {
          ListPtr l = Full(options, size, 30);
          EXPECT_EQ(ZqList_DeleteList(l.get(), 0, -1, 0), S_OK);
          return l;
        },
        [](tZQLIST* l) { return ZqList_ShrinkAllocated(l, -1); });
    if (!(options & ZQLIST_HEAPITEMS)) {
      // The source lies in the block that the growth replaces.
      ExpectAllOrNothing(kind + " own elements inserted again", full,
                         [](tZQLIST* l) { return ZqList_InsertList(l, 1, l->items, -2); });
    }
    if (options & ZQLIST_HEAPITEMS) {
      ExpectAllOrNothing(kind + " alloc item", full, [](tZQLIST* l) { return ZqList_AllocItem(l, 40, nullptr); });
      ExpectAllOrNothing(kind + " alloc and insert", full, [](tZQLIST* l) {
        Item item(7, 7);
        return ZqList_AllocAndInsertItem(l, &item, sizeof item, 2, nullptr);
      });
      ExpectAllOrNothing(kind + " realloc item", full, [](tZQLIST* l) { return ZqList_ReAllocItem(l, 3, 4096); });
    } else {
      ExpectAllOrNothing(kind + " insert", full, [](tZQLIST* l) {
        Item items[3] = {{1, 1}, {2, 2}, {3, 3}};
        UINT_PTR values[3] = {1, 2, 3};
        return (l->options & ZQLIST_ARRAY) ? ZqList_InsertList(l, 0, items, 3) : ZqList_InsertList(l, 0, values, 3);
      });
    }
  }
}

TEST(ListFaults, LargeMovesAndForcedCountsAreAllOrNothing) {
  ExpectAllOrNothing("move range through the heap", [] { return Full(ZQLIST_ARRAY, 200, 8); },
                     [](tZQLIST* l) { return ZqList_MoveRange(l, 0, 4, 4); });
  ExpectAllOrNothing("force item count", [] { return Full(ZQLIST_ARRAY, 8, 4); },
                     [](tZQLIST* l) { return ZqList_ArrayForceItemCount(l, 40, 1); });
}

TEST(ListFaults, TwoListOperationsLeaveBothAsTheyWere) {
  struct Two {
    ListPtr dst, src;
    ListImage dstBefore, srcBefore;
  };
  auto check = [](const char* name) {
    return [name](Two& s, const ZqFaultRun& run) {
      if (run.failed) {
        EXPECT_EQ(run.status, E_OUTOFMEMORY) << name << ", allocation " << run.n;
        EXPECT_EQ(Capture(s.dst.get()), s.dstBefore) << name << ", allocation " << run.n;
        EXPECT_EQ(Capture(s.src.get()), s.srcBefore) << name << ", allocation " << run.n;
      } else {
        EXPECT_EQ(run.status, S_OK) << name;
      }
    };
  };
  LONG points = ZqForEachAllocFailure(
      [] {
        Two s{Full(ZQLIST_HEAPITEMS | ZQLIST_PRIVATEHEAP, 0, 4), Full(ZQLIST_HEAPITEMS, 0, 10), {}, {}};
        s.dstBefore = Capture(s.dst.get());
        s.srcBefore = Capture(s.src.get());
        return s;
      },
      [](Two& s) { return ZqList_MoveItemsBetweenHeapLists(s.dst.get(), 1, s.src.get(), 0, 10); }, check("move"));
  EXPECT_GT(points, 0);

  points = ZqForEachAllocFailure(
      [] {
        Two s{Full(ZQLIST_ARRAY, sizeof(Item), 3), Full(ZQLIST_ARRAY, sizeof(Item), 10), {}, {}};
        s.dstBefore = Capture(s.dst.get());
        s.srcBefore = Capture(s.src.get());
        return s;
      },
      [](Two& s) { return ZqList_SortTo(s.dst.get(), s.src.get(), 0, CompareKeys<ArrayKind>); }, check("sort to"));
  EXPECT_GT(points, 0);
}

TEST(ListFaults, CreationFailsCleanly) {
  const DWORD kinds[] = {0, ZQLIST_LOCKED, ZQLIST_HEAPITEMS | ZQLIST_PRIVATEHEAP, ZQLIST_ARRAY};
  for (DWORD options : kinds) {
    LONG_PTR live = ZqMemory_GetLiveBlocks();
    LONG points = ZqForEachAllocFailure(
        [] { return static_cast<tZQLIST*>(nullptr); },
        [options](tZQLIST*& l) { return ZqList_CreateExZ(&l, 12, 0, 0, options, 0, 0, 0); },
        [&](tZQLIST*& l, const ZqFaultRun& run) {
          if (run.failed) {
            EXPECT_EQ(run.status, E_OUTOFMEMORY) << "options " << options << ", allocation " << run.n;
            EXPECT_EQ(l, nullptr);
            EXPECT_EQ(ZqMemory_GetLiveBlocks(), live) << "options " << options << ", allocation " << run.n;
          } else {
            EXPECT_EQ(run.status, S_OK);
            EXPECT_EQ(ZqList_Destroy(l), S_OK);
          }
        });
    EXPECT_EQ(points, (options & ZQLIST_PRIVATEHEAP) ? 3 : 2) << "header, slots and the heap";
  }

  // In place: only the slots are allocated.
  tZQLIST record;
  LONG points = ZqForEachAllocFailure(
      [&record] { return &record; },
      [](tZQLIST*& l) { return ZqList_CreateExZ(&l, 0, 0, 0, ZQLIST_INPLACE, 0, 0, 0); },
      [](tZQLIST*& l, const ZqFaultRun& run) {
        if (run.failed) {
          EXPECT_EQ(run.status, E_OUTOFMEMORY);
          EXPECT_FALSE(ZqList_IsListFast(l));
        } else {
          EXPECT_EQ(ZqList_Destroy(l), S_OK);
        }
      });
  EXPECT_EQ(points, 1);
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
