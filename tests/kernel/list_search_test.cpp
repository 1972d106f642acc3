// Lists: the four searches with their exact walk, and the three sorts.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "tests/kernel/list_test_util.h"

namespace {

template <class Kind = PlainKind>
ListPtr ListOf(const std::vector<int>& keys) {
  ListPtr l = MakeList(Kind::kOptions, Kind::kItemSize);
  for (size_t i = 0; i < keys.size(); ++i) EXPECT_EQ(Kind::Add(l.get(), -1, keys[i], static_cast<int>(i)), S_OK);
  return l;
}

const void* K(int k) { return reinterpret_cast<const void*>(static_cast<UINT_PTR>(k)); }

// Records the index of every element the walk compares with.
std::vector<int> g_probes;
const tZQLIST* g_probed = nullptr;
int ZQ_STDCALL RecordingCompare(UINT_PTR, const void* a, const void* b) {
  for (int i = 0; i < g_probed->count; ++i)
    if (g_probed->items[i] == b) g_probes.push_back(i);
  return CompareKeys<PlainKind>(0, a, b);
}

TEST(ListSortedSearch, TheWalkProbesInItsOwnOrder) {
  ListPtr l = ListOf({0, 10, 20, 30, 40, 50, 60, 70, 80, 90});
  g_probed = l.get();
  struct Case { bool insertIndex; int key, start, n, answer; std::vector<int> probes; } cases[] = {
      // Ten elements: the probe stands at the end of the lower half (4), then
      // 1 of the four below it, then 2, then the last single one, 3.
      {false, 35, 0, -1, -1, {4, 1, 2, 3}},
      {true, 35, 0, -1, 4, {4, 1, 2, 3}},
      {false, 70, 2, 7, 7, {5, 7}},  // range 2..8: odd count, probe in the middle
  };
  for (const Case& c : cases) {
    g_probes.clear();
    int answer = c.insertIndex ? ZqList_FindSortedInsertIndexRange(l.get(), K(c.key), c.start, c.n, RecordingCompare)
                               : ZqList_FindSortedItemRange(l.get(), K(c.key), c.start, c.n, RecordingCompare);
    EXPECT_EQ(answer, c.answer) << c.key;
    EXPECT_EQ(g_probes, c.probes) << c.key;
  }
}

TEST(ListSortedSearch, AnswersAtTheEdgesAndAmongDuplicates) {
  struct Case { std::vector<int> keys; bool insertIndex; int key, start, n, answer; } cases[] = {
      {{1, 2, 2, 2, 3}, false, 2, 0, -1, 2},  // the duplicate the walk meets first
      {{2, 2, 2, 2}, false, 2, 0, -1, 1},
      {{2, 2, 2, 2}, true, 2, 0, -1, 1},  // a tie answers the probe: the new element goes before it
      {{2, 2, 2, 2}, true, 3, 0, -1, 4},
      {{2, 2, 2, 2}, true, 1, 0, -1, 0},
      {{}, true, 5, 0, -1, 0},
      {{}, false, 5, 0, -1, -1},
      {{10, 20, 30}, true, 5, 4, -1, -1},  // start beyond the end
      {{10, 20, 30}, true, 50, 3, -1, 0},  // no element in range gives 0, also when start is not 0
      {{10, 20, 30}, true, 50, 1, 0, 0},
      {{10, 20, 30}, true, 25, -4, 100, 2},
      {{10, 20, 30}, true, 35, 2, 1, 3},
      {{10, 20, 30}, false, 10, 1, -1, -1},  // outside the range
      {{10, 20, 30}, false, 30, 3, -1, -1},
  };
  for (const Case& c : cases) {
    ListPtr l = ListOf(c.keys);
    auto compare = CompareKeys<PlainKind>;
    int answer = c.insertIndex ? ZqList_FindSortedInsertIndexRange(l.get(), K(c.key), c.start, c.n, compare)
                               : ZqList_FindSortedItemRange(l.get(), K(c.key), c.start, c.n, compare);
    EXPECT_EQ(answer, c.answer) << "key " << c.key << " in " << testing::PrintToString(c.keys) << " from " << c.start;
  }
  EXPECT_EQ(ZqList_FindSortedItemRange(ListOf({30}).get(), K(30), 0, -1, nullptr), -1);
}

int ZQ_STDCALL MatchKey(const void* key, const void* element) { return key == element ? 0 : 1; }

TEST(ListLinearSearch, SpecificAndMatchingItemsWithinRanges) {
  ListPtr l = ListOf({5, 6, 7, 6, 5});
  struct Case {
    int start, n, key, specific;
  } cases[] = {{0, -1, 6, 1}, {2, -1, 6, 3}, {2, 1, 6, -1}, {-3, 2, 6, 1}, {5, -1, 6, -1}, {0, 0, 6, -1},
               {2, 99, 5, 4}, {1, 3, 5, -1}};
  for (const Case& c : cases) {
    EXPECT_EQ(ZqList_FindSpecificItemRange(l.get(), c.start, c.n, K(c.key)), c.specific) << c.start << " " << c.n;
    EXPECT_EQ(ZqList_FindItemRange(l.get(), c.start, c.n, K(c.key), MatchKey), c.specific) << c.start << " " << c.n;
  }
  EXPECT_EQ(ZqList_FindItemRange(l.get(), 0, -1, K(5), nullptr), -1);

  // Array lists compare the item's bytes; heap lists the item's address.
  ListPtr array = ListOf<ArrayKind>({1, 2, 3});
  Item probe{2, 1}, wrongTag{2, 21};
  EXPECT_EQ(ZqList_FindSpecificItemRange(array.get(), 0, -1, &probe), 1);
  EXPECT_EQ(ZqList_FindSpecificItemRange(array.get(), 0, -1, &wrongTag), -1);
  ListPtr heap = ListOf<HeapKind>({1, 2, 3});
  EXPECT_EQ(ZqList_FindSpecificItemRange(heap.get(), 0, -1, heap->items[2]), 2);
  EXPECT_EQ(ZqList_FindSpecificItemRange(heap.get(), 0, -1, &probe), -1);
}

// --- Sorting ----------------------------------------------------------------------------

template <class Kind>
class ListSortKinds : public ::testing::Test {};
using SortKinds = ::testing::Types<PlainKind, HeapKind, ArrayKind, LockedArrayKind>;
TYPED_TEST_SUITE(ListSortKinds, SortKinds);

std::vector<int> Shuffled(int n, int range, unsigned seed) {
  std::vector<int> v(n);
  for (int& x : v) x = static_cast<int>((seed = seed * 1664525u + 1013904223u) >> 8) % range;
  return v;
}

TYPED_TEST(ListSortKinds, BothSortsOrderAnyInput) {
  using Kind = TypeParam;
  for (int n : {0, 1, 2, 3, 4, 5, 7, 8, 16, 33, 100}) {
    for (int range : {3, 1000}) {
      std::vector<int> keys = Shuffled(n, range, 77u + n);
      std::vector<int> sorted = keys;
      std::sort(sorted.begin(), sorted.end());
      for (auto sort : {ZqList_Sort, ZqList_HeapSort}) {
        ListPtr l = ListOf<Kind>(keys);
        ASSERT_EQ(sort(l.get(), 0x5EED, CompareKeys<Kind>), S_OK);
        EXPECT_EQ(Keys<Kind>(l.get()), sorted) << (sort == ZqList_Sort ? "selection" : "heap") << " sort, n " << n;
        EXPECT_EQ(l->sortCriteria, 0x5EEDu);
      }
    }
  }
}

TEST(ListSort, SelectionSortKeepsTheFirstOfEqualsAsTheLargest) {
  // Of equal keys the first stays the best and is swapped to the end
  // position: a b c -> (end 2 takes a) c b a -> (end 1 takes c) b c a.
  ListPtr l = ListOf<ArrayKind>({1, 1, 1});
  ASSERT_EQ(ZqList_Sort(l.get(), 0, CompareKeys<ArrayKind>), S_OK);
  std::vector<int> tags;
  for (int i = 0; i < 3; ++i) tags.push_back(ArrayKind::TagOfElement(ZqList_ArrayItem(l.get(), i)));
  EXPECT_EQ(tags, (std::vector<int>{1, 2, 0}));
  // A null compare only stores the criteria.
  ListPtr p = ListOf({3, 1, 2});
  EXPECT_EQ(ZqList_HeapSort(p.get(), 10, nullptr), S_OK);
  EXPECT_EQ(ZqList_GetSortCriteria(p.get()), 10u);
  EXPECT_EQ(Keys<PlainKind>(p.get()), (std::vector<int>{3, 1, 2}));
}

TYPED_TEST(ListSortKinds, SortedInsertionKeepsTheListSortedAndFindsEveryKey) {
  using Kind = TypeParam;
  ListPtr l = MakeList(Kind::kOptions, Kind::kItemSize);
  l->sortCriteria = 0x5EED;
  std::vector<int> keys = Shuffled(300, 20, 5u);  // many equal keys
  for (int k : keys) {
    typename Kind::Key key(k);
    int index = ZqList_FindSortedInsertIndexRange(l.get(), key.get(), 0, -1, CompareKeys<Kind>);
    ASSERT_GE(index, 0);
    ASSERT_EQ(Kind::Add(l.get(), index, k), S_OK);
  }
  std::vector<int> sorted = keys;
  std::sort(sorted.begin(), sorted.end());
  EXPECT_EQ(Keys<Kind>(l.get()), sorted);
  for (int k = 0; k < 21; ++k) {
    typename Kind::Key key(k);
    int found = ZqList_FindSortedItemRange(l.get(), key.get(), 0, -1, CompareKeys<Kind>);
    if (std::count(keys.begin(), keys.end(), k) == 0) {
      EXPECT_EQ(found, -1) << k;
    } else {
      ASSERT_GE(found, 0) << k;
      EXPECT_EQ(Kind::KeyOfElement(Kind::ElementOf(l.get(), found)), k);
    }
  }
}

TEST(ListSort, SortToCopiesInOrderAndRefusesHeapTargets) {
  ListPtr src = ListOf<ArrayKind>({5, 3, 9, 1, 3});
  ListPtr dst = ListOf<ArrayKind>({4});
  ASSERT_EQ(ZqList_SortTo(dst.get(), src.get(), 0x5EED, CompareKeys<ArrayKind>), S_OK);
  EXPECT_EQ(Keys<ArrayKind>(dst.get()), (std::vector<int>{1, 3, 3, 4, 5, 9}));
  EXPECT_EQ(Keys<ArrayKind>(src.get()), (std::vector<int>{5, 3, 9, 1, 3})) << "the source stays";
  EXPECT_EQ(dst->sortCriteria, 0x5EEDu);
  // Pointers of a heap list into a plain one, which does not own them.
  ListPtr heapSrc = ListOf<HeapKind>({30, 10, 20});
  ListPtr pointers = MakeList(ZQLIST_LOCKED);
  ASSERT_EQ(ZqList_SortTo(pointers.get(), heapSrc.get(), 0, CompareKeys<HeapKind>), S_OK);
  EXPECT_EQ(Keys<HeapKind>(pointers.get()), (std::vector<int>{10, 20, 30}));

  EXPECT_EQ(ZqList_SortTo(MakeList(ZQLIST_HEAPITEMS).get(), heapSrc.get(), 0, CompareKeys<HeapKind>), E_FAIL);
  EXPECT_EQ(ZqList_SortTo(MakeList(ZQLIST_ARRAY, 4).get(), src.get(), 0, CompareKeys<ArrayKind>), E_FAIL)
      << "item sizes differ";
  ListPtr empty = MakeList(ZQLIST_ARRAY, sizeof(Item));
  EXPECT_EQ(ZqList_SortTo(empty.get(), src.get(), 7, nullptr), S_OK);
  EXPECT_EQ(empty->count, 0) << "no compare: nothing copied";
  EXPECT_EQ(empty->sortCriteria, 7u);
}

}  // namespace
