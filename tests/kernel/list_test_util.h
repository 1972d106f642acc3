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

// An item that counts how often it was built; the kernel frees items as raw
// blocks, so frees are counted through the hook's live blocks.
struct Item {
  int key;
  int tag;
  static inline int constructed = 0;
  Item(int k, int t) : key(k), tag(t) { ++constructed; }
};

// The ways a list holds its elements, each with the same small interface:
// Add an element with a key (and a tag where the kind can keep one), read
// the key of element i, and turn a key into the form that a compare
// function receives.
struct PlainKind {
  static constexpr DWORD kOptions = 0;
  static constexpr UINT kItemSize = 0;
  static constexpr bool kKeepsTags = false;
  static constexpr bool kOwnsItems = false;
  static HRESULT Add(tZQLIST* l, int index, int key, int /*tag*/ = 0) {
    UINT_PTR value = static_cast<UINT_PTR>(key);
    return ZqList_InsertList(l, index, &value, 1);
  }
  static int KeyOfElement(const void* element) { return static_cast<int>(reinterpret_cast<UINT_PTR>(element)); }
  static int TagOfElement(const void*) { return 0; }
  static const void* ElementOf(const tZQLIST* l, int i) { return l->items[i]; }
  struct Key {
    explicit Key(int k) : value(k) {}
    const void* get() const { return reinterpret_cast<const void*>(static_cast<UINT_PTR>(value)); }
    int value;
  };
};

template <DWORD Options>
struct HeapKindT {
  static constexpr DWORD kOptions = ZQLIST_HEAPITEMS | Options;
  static constexpr UINT kItemSize = 0;
  static constexpr bool kKeepsTags = true;
  static constexpr bool kOwnsItems = true;
  static HRESULT Add(tZQLIST* l, int index, int key, int tag = 0) {
    void* memory = nullptr;
    HRESULT hr = ZqList_AllocItem(l, sizeof(Item), &memory);
    if (FAILED(hr)) return hr;
    new (memory) Item(key, tag);
    return ZqList_InsertList(l, index, nullptr, -1);
  }
  static int KeyOfElement(const void* element) { return static_cast<const Item*>(element)->key; }
  static int TagOfElement(const void* element) { return static_cast<const Item*>(element)->tag; }
  static const void* ElementOf(const tZQLIST* l, int i) { return l->items[i]; }
  struct Key {
    explicit Key(int k) : item(k, 0) {}
    const void* get() const { return &item; }
    Item item;
  };
};
using HeapKind = HeapKindT<0>;
using PrivateHeapKind = HeapKindT<ZQLIST_PRIVATEHEAP>;
using LockedHeapKind = HeapKindT<ZQLIST_LOCKED>;

template <DWORD Options>
struct ArrayKindT {
  static constexpr DWORD kOptions = ZQLIST_ARRAY | Options;
  static constexpr UINT kItemSize = sizeof(Item);
  static constexpr bool kKeepsTags = true;
  static constexpr bool kOwnsItems = false;
  static HRESULT Add(tZQLIST* l, int index, int key, int tag = 0) {
    Item item(key, tag);
    return ZqList_InsertList(l, index, &item, 1);
  }
  static int KeyOfElement(const void* element) { return static_cast<const Item*>(element)->key; }
  static int TagOfElement(const void* element) { return static_cast<const Item*>(element)->tag; }
  static const void* ElementOf(const tZQLIST* l, int i) { return ZqList_ArrayItem(l, i); }
  struct Key {
    explicit Key(int k) : item(k, 0) {}
    const void* get() const { return &item; }
    Item item;
  };
};
using ArrayKind = ArrayKindT<0>;
using LockedArrayKind = ArrayKindT<ZQLIST_LOCKED>;
struct LockedPlainKind : PlainKind {
  static constexpr DWORD kOptions = ZQLIST_LOCKED;
};

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
