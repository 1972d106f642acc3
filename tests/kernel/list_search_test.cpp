// Lists: the four searches with their exact walk, and the three sorts.
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <vector>

#include "tests/kernel/list_test_util.h"

namespace {

ListPtr PlainOf(const std::vector<int>& keys) {
  ListPtr l = MakeList(0);
  for (int k : keys) EXPECT_EQ(PlainKind::Add(l.get(), -1, k), S_OK);
  return l;
}

// Records the index of every element the walk compares with.
std::vector<int> g_probes;
const tZQLIST* g_probed = nullptr;
int ZQ_STDCALL RecordingCompare(UINT_PTR, const void* a, const void* b) {
  for (int i = 0; i < g_probed->count; ++i)
    if (g_probed->items[i] == b) g_probes.push_back(i);
  int ka = PlainKind::KeyOfElement(a), kb = PlainKind::KeyOfElement(b);
  return ka < kb ? -1 : ka > kb ? 1 : 0;
}

TEST(ListSortedSearch, TheWalkProbesInItsOwnOrder) {
  ListPtr l = PlainOf({0, 10, 20, 30, 40, 50, 60, 70, 80, 90});
  g_probed = l.get();
  g_probes.clear();
  EXPECT_EQ(ZqList_FindSortedItemRange(l.get(), PlainKind::Key(35).get(), 0, -1, RecordingCompare), -1);
  // Ten elements: the probe stands at the end of the lower half (index 4),
  // then 1 of the four below it, then 2, then the last single one, 3.
  EXPECT_EQ(g_probes, (std::vector<int>{4, 1, 2, 3}));

  g_probes.clear();
  EXPECT_EQ(ZqList_FindSortedInsertIndexRange(l.get(), PlainKind::Key(35).get(), 0, -1, RecordingCompare), 4);
  EXPECT_EQ(g_probes, (std::vector<int>{4, 1, 2, 3}));

  g_probes.clear();
  EXPECT_EQ(ZqList_FindSortedItemRange(l.get(), PlainKind::Key(70).get(), 2, 7, RecordingCompare), 7);
  EXPECT_EQ(g_probes, (std::vector<int>{5, 7})) << "range 2..8: odd count, probe in the middle";
}

TEST(ListSortedSearch, DuplicatesFindTheElementTheWalkMeetsFirst) {
  ListPtr l = PlainOf({1, 2, 2, 2, 3});
  EXPECT_EQ(ZqList_FindSortedItemRange(l.get(), PlainKind::Key(2).get(), 0, -1, CompareKeys<PlainKind>), 2);
  ListPtr four = PlainOf({2, 2, 2, 2});
  EXPECT_EQ(ZqList_FindSortedItemRange(four.get(), PlainKind::Key(2).get(), 0, -1, CompareKeys<PlainKind>), 1);
  EXPECT_EQ(ZqList_FindSortedInsertIndexRange(four.get(), PlainKind::Key(2).get(), 0, -1, CompareKeys<PlainKind>), 1)
      << "a tie answers the probe: the new element goes before it";
  EXPECT_EQ(ZqList_FindSortedInsertIndexRange(four.get(), PlainKind::Key(3).get(), 0, -1, CompareKeys<PlainKind>), 4);
  EXPECT_EQ(ZqList_FindSortedInsertIndexRange(four.get(), PlainKind::Key(1).get(), 0, -1, CompareKeys<PlainKind>), 0);
}

TEST(ListSortedSearch, RangeEdges) {
  auto compare = CompareKeys<PlainKind>;
  ListPtr empty = MakeList(0);
  EXPECT_EQ(ZqList_FindSortedInsertIndexRange(empty.get(), PlainKind::Key(5).get(), 0, -1, compare), 0);
  EXPECT_EQ(ZqList_FindSortedItemRange(empty.get(), PlainKind::Key(5).get(), 0, -1, compare), -1);

  ListPtr l = PlainOf({10, 20, 30});
  EXPECT_EQ(ZqList_FindSortedInsertIndexRange(l.get(), PlainKind::Key(5).get(), 4, -1, compare), -1) << "start beyond";
  EXPECT_EQ(ZqList_FindSortedInsertIndexRange(l.get(), PlainKind::Key(50).get(), 3, -1, compare), 0)
      << "no element in range gives 0, also when start is not 0";
  EXPECT_EQ(ZqList_FindSortedInsertIndexRange(l.get(), PlainKind::Key(50).get(), 1, 0, compare), 0);
  EXPECT_EQ(ZqList_FindSortedInsertIndexRange(l.get(), PlainKind::Key(25).get(), -4, 100, compare), 2);
  EXPECT_EQ(ZqList_FindSortedInsertIndexRange(l.get(), PlainKind::Key(25).get(), 2, 1, compare), 2);
  EXPECT_EQ(ZqList_FindSortedInsertIndexRange(l.get(), PlainKind::Key(35).get(), 2, 1, compare), 3);
  EXPECT_EQ(ZqList_FindSortedItemRange(l.get(), PlainKind::Key(10).get(), 1, -1, compare), -1) << "outside the range";
  EXPECT_EQ(ZqList_FindSortedItemRange(l.get(), PlainKind::Key(30).get(), 3, -1, compare), -1);
  EXPECT_EQ(ZqList_FindSortedItemRange(l.get(), PlainKind::Key(30).get(), 0, -1, nullptr), -1);
}

int ZQ_STDCALL MatchKey(const void* key, const void* element) {
  return PlainKind::KeyOfElement(key) == PlainKind::KeyOfElement(element) ? 0 : 1;
}

TEST(ListLinearSearch, SpecificAndMatchingItemsWithinRanges) {
  ListPtr l = PlainOf({5, 6, 7, 6, 5});
  auto* six = PlainKind::Key(6).get();
  EXPECT_EQ(ZqList_FindSpecificItemRange(l.get(), 0, -1, six), 1);
  EXPECT_EQ(ZqList_FindSpecificItemRange(l.get(), 2, -1, six), 3);
  EXPECT_EQ(ZqList_FindSpecificItemRange(l.get(), 2, 1, six), -1);
  EXPECT_EQ(ZqList_FindSpecificItemRange(l.get(), -3, 2, six), 1);
  EXPECT_EQ(ZqList_FindSpecificItemRange(l.get(), 5, -1, six), -1);
  EXPECT_EQ(ZqList_FindSpecificItemRange(l.get(), 0, 0, six), -1);
  EXPECT_EQ(ZqList_FindItemRange(l.get(), 2, 99, PlainKind::Key(5).get(), MatchKey), 4);
  EXPECT_EQ(ZqList_FindItemRange(l.get(), 0, 4, PlainKind::Key(5).get(), MatchKey), 0);
  EXPECT_EQ(ZqList_FindItemRange(l.get(), 1, 3, PlainKind::Key(5).get(), MatchKey), -1);
  EXPECT_EQ(ZqList_FindItemRange(l.get(), 0, -1, PlainKind::Key(5).get(), nullptr), -1);

  // Array lists compare the item's bytes; heap lists the item's address.
  ListPtr array = MakeList(ZQLIST_ARRAY, sizeof(Item));
  for (int k : {1, 2, 3}) ASSERT_EQ(ArrayKind::Add(array.get(), -1, k, k * 10), S_OK);
  Item probe(2, 20), wrongTag(2, 21);
  EXPECT_EQ(ZqList_FindSpecificItemRange(array.get(), 0, -1, &probe), 1);
  EXPECT_EQ(ZqList_FindSpecificItemRange(array.get(), 0, -1, &wrongTag), -1);
  ListPtr heap = MakeList(ZQLIST_HEAPITEMS);
  for (int k : {1, 2, 3}) ASSERT_EQ(HeapKind::Add(heap.get(), -1, k), S_OK);
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

template <class Kind>
ListPtr ListOf(const std::vector<int>& keys) {
  ListPtr l = MakeList(Kind::kOptions, Kind::kItemSize);
  for (size_t i = 0; i < keys.size(); ++i) EXPECT_EQ(Kind::Add(l.get(), -1, keys[i], static_cast<int>(i)), S_OK);
  return l;
}

TYPED_TEST(ListSortKinds, BothSortsOrderAnyInput) {
  using Kind = TypeParam;
  for (int n : {0, 1, 2, 3, 4, 5, 7, 8, 16, 33, 100}) {
    for (int range : {3, 1000}) {
      std::vector<int> keys = Shuffled(n, range, 77u + n);
      std::vector<int> sorted = keys;
      std::sort(sorted.begin(), sorted.end());
      ListPtr a = ListOf<Kind>(keys);
      ASSERT_EQ(ZqList_Sort(a.get(), 0x5EED, CompareKeys<Kind>), S_OK);
      EXPECT_EQ(Keys<Kind>(a.get()), sorted) << "selection sort, n " << n;
      EXPECT_EQ(a->sortCriteria, 0x5EEDu);
      ListPtr b = ListOf<Kind>(keys);
      ASSERT_EQ(ZqList_HeapSort(b.get(), 0x5EED, CompareKeys<Kind>), S_OK);
      EXPECT_EQ(Keys<Kind>(b.get()), sorted) << "heap sort, n " << n;
    }
  }
}

TEST(ListSort, HeapSortOrdersEveryPermutation) {
  for (int n = 2; n <= 7; ++n) {
    std::vector<int> p(n);
    std::iota(p.begin(), p.end(), 0);
    do {
      ListPtr l = ListOf<ArrayKind>(p);
      ASSERT_EQ(ZqList_HeapSort(l.get(), 0, CompareKeys<ArrayKind>), S_OK);
      std::vector<int> expected(n);
      std::iota(expected.begin(), expected.end(), 0);
      ASSERT_EQ(Keys<ArrayKind>(l.get()), expected);
    } while (std::next_permutation(p.begin(), p.end()));
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
}

TEST(ListSort, NullCompareOrShortListsOnlyStoreTheCriteria) {
  ListPtr l = PlainOf({3, 1, 2});
  EXPECT_EQ(ZqList_Sort(l.get(), 9, nullptr), S_OK);
  EXPECT_EQ(ZqList_GetSortCriteria(l.get()), 9u);
  EXPECT_EQ(ZqList_HeapSort(l.get(), 10, nullptr), S_OK);
  EXPECT_EQ(ZqList_GetSortCriteria(l.get()), 10u);
  EXPECT_EQ(Keys<PlainKind>(l.get()), (std::vector<int>{3, 1, 2}));
}

TYPED_TEST(ListSortKinds, SortedInsertionKeepsTheListSorted) {
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
  for (int k = 0; k < 20; ++k) {
    typename Kind::Key key(k);
    int found = ZqList_FindSortedItemRange(l.get(), key.get(), 0, -1, CompareKeys<Kind>);
    bool present = std::count(keys.begin(), keys.end(), k) > 0;
    if (present) {
      ASSERT_GE(found, 0);
      EXPECT_EQ(Kind::KeyOfElement(Kind::ElementOf(l.get(), found)), k);
    } else {
      EXPECT_EQ(found, -1);
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

  // Values of a plain list, and pointers of a heap list into a plain one.
  ListPtr plainSrc = PlainOf({3, 2, 1});
  ListPtr plainDst = MakeList(ZQLIST_LOCKED);
  ASSERT_EQ(ZqList_SortTo(plainDst.get(), plainSrc.get(), 0, CompareKeys<PlainKind>), S_OK);
  EXPECT_EQ(Keys<PlainKind>(plainDst.get()), (std::vector<int>{1, 2, 3}));
  ListPtr heapSrc = ListOf<HeapKind>({30, 10, 20});
  ListPtr pointers = MakeList(0);
  ASSERT_EQ(ZqList_SortTo(pointers.get(), heapSrc.get(), 0, CompareKeys<HeapKind>), S_OK);
  EXPECT_EQ(Keys<HeapKind>(pointers.get()), (std::vector<int>{10, 20, 30})) << "the target does not own them";

  ListPtr heapDst = MakeList(ZQLIST_HEAPITEMS);
  EXPECT_EQ(ZqList_SortTo(heapDst.get(), heapSrc.get(), 0, CompareKeys<HeapKind>), E_FAIL);
  ListPtr empty = MakeList(ZQLIST_ARRAY, sizeof(Item));
  EXPECT_EQ(ZqList_SortTo(empty.get(), src.get(), 7, nullptr), S_OK);
  EXPECT_EQ(empty->count, 0) << "no compare: nothing copied";
  EXPECT_EQ(empty->sortCriteria, 7u);
  ListPtr narrow = MakeList(ZQLIST_ARRAY, 4);
  EXPECT_EQ(ZqList_SortTo(narrow.get(), src.get(), 0, CompareKeys<ArrayKind>), E_FAIL) << "item sizes differ";
}

}  // namespace
