// What the framework's enumerators share: a snapshot of items taken when the
// enumerator was made and a cursor over it.  CEnumCounted serves every
// enumerator of counted interface pointers (pins, filters); an enumerator of
// other items derives from CEnumSnapshot and writes its own Next.
#pragma once

#include <new>
#include <utility>
#include <vector>

#include "kernel/com/object.h"

template <class Derived, class Interface, class Item>
class CEnumSnapshot : public ZqComObject<Derived, Interface> {
 public:
  HRESULT STDMETHODCALLTYPE Skip(ULONG count) override {
    if (m_items.size() - m_pos < count) {
      m_pos = m_items.size();
      return S_FALSE;
    }
    m_pos += count;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Reset() override {
    m_pos = 0;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Clone(Interface** ppEnum) override {
    if (ppEnum == nullptr) return E_POINTER;
    auto* clone = new (std::nothrow) Derived(m_items);
    if (clone == nullptr) return E_OUTOFMEMORY;
    clone->m_pos = m_pos;
    *ppEnum = clone;
    return S_OK;
  }

 protected:
  explicit CEnumSnapshot(std::vector<Item> items) : m_items(std::move(items)) {}
  ~CEnumSnapshot() = default;

  std::vector<Item> m_items;
  size_t m_pos = 0;
};

// An enumerator of interface pointers that holds a reference on each for its
// whole life, so the objects outlive any change to where they came from.
template <class Interface, class Item>
class CEnumCounted final : public CEnumSnapshot<CEnumCounted<Interface, Item>, Interface, Item*> {
  using Snapshot = CEnumSnapshot<CEnumCounted<Interface, Item>, Interface, Item*>;

 public:
  explicit CEnumCounted(std::vector<Item*> items) : Snapshot(std::move(items)) {
    for (Item* item : this->m_items) item->AddRef();
  }
  ~CEnumCounted() {
    for (Item* item : this->m_items) item->Release();
  }

  HRESULT STDMETHODCALLTYPE Next(ULONG count, Item** items, ULONG* fetched) override {
    if (items == nullptr) return E_POINTER;
    if (fetched == nullptr && count != 1) return E_INVALIDARG;
    ULONG n = 0;
    while (n < count && this->m_pos < this->m_items.size()) {
      items[n] = this->m_items[this->m_pos++];
      items[n]->AddRef();
      ++n;
    }
    if (fetched) *fetched = n;
    return n == count ? S_OK : S_FALSE;
  }
};
