// Reference counting and QueryInterface, written once.
//
//   class CThing final : public ZqComObject<CThing, IStream, IPersistStream> { ... };
//   CThing* thing = new CThing(...);   // count starts at 1
//   thing->Release();                  // destroys at 0
//
// QueryInterface answers every listed interface and the interfaces each of
// them extends (through its `Base`); IUnknown is answered with the first
// listed interface, so that the identity of the object is one pointer.  The
// count is atomic: AddRef and Release may come from any thread.  A class that
// needs more (aggregation, interfaces of members) overrides
// QueryInterfaceExtra.
#pragma once

#include <atomic>
#include <new>
#include <type_traits>
#include <utility>

#include "kernel/com/unknown.h"

namespace zq::detail {

template <class I>
concept HasBase = requires { typename I::Base; };

// Whether `riid` names `I` or an interface `I` extends.
template <class I>
constexpr bool InterfaceChainHas(REFIID riid) {
  if (IsEqualGUID(riid, ZqIidOf<I>)) return true;
  if constexpr (HasBase<I>) {
    if constexpr (!std::is_same_v<typename I::Base, IUnknown>) return InterfaceChainHas<typename I::Base>(riid);
  }
  return false;
}

template <class First, class... Rest>
struct FirstOf {
  using type = First;
};

}  // namespace zq::detail

template <class Derived, class... Interfaces>
class ZqComObject : public Interfaces... {
  static_assert(sizeof...(Interfaces) > 0, "a COM object implements at least one interface");

 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override {
    if (object == nullptr) return E_POINTER;
    *object = nullptr;
    using Primary = typename zq::detail::FirstOf<Interfaces...>::type;
    if (IsEqualGUID(riid, IID_IUnknown)) {
      *object = static_cast<IUnknown*>(static_cast<Primary*>(this));
    } else if (!(FindInterface<Interfaces>(riid, object) || ...)) {
      HRESULT hr = static_cast<Derived*>(this)->QueryInterfaceExtra(riid, object);
      if (FAILED(hr)) {
        *object = nullptr;
        return hr;
      }
      return hr;  // QueryInterfaceExtra took its own reference
    }
    AddRef();
    return S_OK;
  }

  ULONG STDMETHODCALLTYPE AddRef() override { return m_refs.fetch_add(1, std::memory_order_relaxed) + 1; }

  ULONG STDMETHODCALLTYPE Release() override {
    ULONG left = m_refs.fetch_sub(1, std::memory_order_acq_rel) - 1;
    if (left == 0) delete static_cast<Derived*>(this);
    return left;
  }

  // The count as it is now; for tests and diagnostics only.
  ULONG RefCount() const { return m_refs.load(std::memory_order_relaxed); }

 protected:
  ZqComObject() = default;
  ZqComObject(const ZqComObject&) = delete;
  ZqComObject& operator=(const ZqComObject&) = delete;
  ~ZqComObject() = default;

  // Interfaces the object answers beyond its list.  Must AddRef what it
  // hands out.
  HRESULT QueryInterfaceExtra(REFIID, void**) { return E_NOINTERFACE; }

 private:
  template <class I>
  bool FindInterface(REFIID riid, void** object) {
    if (!zq::detail::InterfaceChainHas<I>(riid)) return false;
    *object = static_cast<I*>(this);
    return true;
  }

  std::atomic<ULONG> m_refs{1};
};

// Objects of the wrapper are allocated zero-filled, so that a field the
// constructor does not set reads as zero, as it always has.
struct ZqZeroFilled {
  static void* operator new(size_t size) {
    void* p = ::operator new(size);
    __builtin_memset(p, 0, size);
    return p;
  }
  static void* operator new(size_t size, const std::nothrow_t&) noexcept {
    void* p = ::operator new(size, std::nothrow);
    if (p) __builtin_memset(p, 0, size);
    return p;
  }
  static void operator delete(void* p) { ::operator delete(p); }
};

// An owning interface pointer.
template <class T>
class ZqComPtr {
 public:
  ZqComPtr() = default;
  ZqComPtr(std::nullptr_t) {}
  // Takes a new reference on `p`.
  explicit ZqComPtr(T* p) : m_p(p) {
    if (m_p) m_p->AddRef();
  }
  ZqComPtr(const ZqComPtr& other) : ZqComPtr(other.m_p) {}
  ZqComPtr(ZqComPtr&& other) noexcept : m_p(std::exchange(other.m_p, nullptr)) {}
  ~ZqComPtr() { Reset(); }

  ZqComPtr& operator=(const ZqComPtr& other) {
    ZqComPtr(other).Swap(*this);
    return *this;
  }
  ZqComPtr& operator=(ZqComPtr&& other) noexcept {
    ZqComPtr(std::move(other)).Swap(*this);
    return *this;
  }

  // Adopts a reference the caller already owns.
  static ZqComPtr Adopt(T* p) {
    ZqComPtr r;
    r.m_p = p;
    return r;
  }
  T* Detach() { return std::exchange(m_p, nullptr); }
  void Reset() {
    if (T* p = std::exchange(m_p, nullptr)) p->Release();
  }
  void Swap(ZqComPtr& other) noexcept { std::swap(m_p, other.m_p); }

  // For out-parameters: releases what is held and gives the slot.
  T** Put() {
    Reset();
    return &m_p;
  }
  void** PutVoid() { return reinterpret_cast<void**>(Put()); }

  template <class Q>
  HRESULT As(ZqComPtr<Q>* out) const {
    if (!m_p) return E_POINTER;
    return m_p->QueryInterface(ZqIidOf<Q>, out->PutVoid());
  }

  T* Get() const { return m_p; }
  T* operator->() const { return m_p; }
  T& operator*() const { return *m_p; }
  explicit operator bool() const { return m_p != nullptr; }

 private:
  T* m_p = nullptr;
};
