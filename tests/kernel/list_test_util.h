// Helpers for the list tests: owned lists, the kinds of list that typed
// tests run over, and an image of a list for "nothing changed" checks.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "base/status.h"
#include "kernel/list.h"
#include "kernel/memory.h"

struct ListDeleter {
  void operator()(tZQLIST* l) const { EXPECT_EQ(ZqList_Destroy(l), S_OK); }
};
using ListPtr = std::unique_ptr<tZQLIST, ListDeleter>;

inline ListPtr MakeList(DWORD options, UINT itemSize = 0, INT initial = 0, INT grow = 0) {
  tZQLIST* l = nullptr;
  EXPECT_EQ(ZqList_CreateExZ(&l, itemSize, initial, grow, options, 0, 0, 0), S_OK);
  return ListPtr(l);
}

struct Item { int key; int tag; };

// The ways a list holds its elements, each with the same small interface:
// Add an element with a key (and a tag where the kind can keep one), read
// the key of an element, and turn a key into what a compare function gets.
struct PlainKind {
  static constexpr DWORD kOptions = 0;
  static constexpr UINT kItemSize = 0;
  static constexpr bool kOwnsItems = false;
  static HRESULT Add(tZQLIST* l, int index, int key, int /*tag*/ = 0) {
    UINT_PTR value = static_cast<UINT_PTR>(key);
    return ZqList_InsertList(l, index, &value, 1);
  }
  static int KeyOfElement(const void* element) { return static_cast<int>(reinterpret_cast<UINT_PTR>(element)); }
  static const void* ElementOf(const tZQLIST* l, int i) { return l->items[i]; }
  struct Key {
    explicit Key(int k) : value(k) {}
    const void* get() const { return reinterpret_cast<const void*>(static_cast<UINT_PTR>(value)); }
    int value;
  };
};
struct LockedPlainKind : PlainKind {
  static constexpr DWORD kOptions = ZQLIST_LOCKED;
};

// Heap and array lists hold an Item; they differ in where it stands.
template <DWORD Options, bool Heap>
struct ItemKindT {
  static constexpr DWORD kOptions = (Heap ? ZQLIST_HEAPITEMS : ZQLIST_ARRAY) | Options;
  static constexpr UINT kItemSize = Heap ? 0 : sizeof(Item);
  static constexpr bool kOwnsItems = Heap;
  static HRESULT Add(tZQLIST* l, int index, int key, int tag = 0) {
    Item item{key, tag};
    if (!Heap) return ZqList_InsertList(l, index, &item, 1);
    void* memory = nullptr;
    HRESULT hr = ZqList_AllocItem(l, sizeof(Item), &memory);
    if (FAILED(hr)) return hr;
    std::memcpy(memory, &item, sizeof item);
    return ZqList_InsertList(l, index, nullptr, -1);
  }
  static int KeyOfElement(const void* element) { return static_cast<const Item*>(element)->key; }
  static int TagOfElement(const void* element) { return static_cast<const Item*>(element)->tag; }
  static const void* ElementOf(const tZQLIST* l, int i) { return Heap ? l->items[i] : ZqList_ArrayItem(l, i); }
  struct Key {
    explicit Key(int k) : item{k, 0} {}
    const void* get() const { return &item; }
    Item item;
  };
};
using HeapKind = ItemKindT<0, true>;
using PrivateHeapKind = ItemKindT<ZQLIST_PRIVATEHEAP, true>;
using LockedHeapKind = ItemKindT<ZQLIST_LOCKED, true>;
using ArrayKind = ItemKindT<0, false>;
using LockedArrayKind = ItemKindT<ZQLIST_LOCKED, false>;

// Ascending by key; the criteria word, when not 0, must be 0x5EED (it tells
// that the list handed its sortCriteria on).
template <class Kind>
int ZQ_STDCALL CompareKeys(UINT_PTR criteria, const void* a, const void* b) {
  if (criteria != 0 && criteria != 0x5EED) ADD_FAILURE() << "unexpected criteria " << criteria;
  int ka = Kind::KeyOfElement(a), kb = Kind::KeyOfElement(b);
  return ka < kb ? -1 : ka > kb ? 1 : 0;
}

template <class Kind>
std::vector<int> Keys(const tZQLIST* l) {
  std::vector<int> keys;
  for (int i = 0; i < l->count; ++i) keys.push_back(Kind::KeyOfElement(Kind::ElementOf(l, i)));
  return keys;
}

// Everything a list is made of, byte for byte: header, slot block and the
// items of a heap list, plus the number of live blocks of the process.
struct ListImage {
  std::vector<BYTE> header;
  std::vector<BYTE> slots;
  std::vector<std::vector<BYTE>> items;
  LONG_PTR liveBlocks = 0;
  bool operator==(const ListImage&) const = default;
};

inline ListImage Capture(const tZQLIST* l) {
  ListImage image;
  const BYTE* h = reinterpret_cast<const BYTE*>(l);
  image.header.assign(h, h + sizeof(tZQLIST));
  const BYTE* s = reinterpret_cast<const BYTE*>(l->items);
  image.slots.assign(s, s + static_cast<size_t>(l->allocated) * l->itemSize);
  if (l->options & ZQLIST_HEAPITEMS) {
    for (int i = 0; i < l->count; ++i) {
      const BYTE* p = static_cast<const BYTE*>(l->items[i]);
      image.items.emplace_back(p, p + ZqMemory_Size(p));
    }
  }
  image.liveBlocks = ZqMemory_GetLiveBlocks();
  return image;
}
