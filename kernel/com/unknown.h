// IUnknown and IClassFactory with the published slot order, and the trait
// that ties an interface type to its identifier.
//
// Interfaces are abstract classes without a virtual destructor, so that a
// host built against these headers calls them through the vtable exactly as
// on the original platform.  Objects are destroyed by Release only.
#pragma once

#include "kernel/com/guid.h"

#if !defined(_WIN32)
#define STDMETHODCALLTYPE
#endif

// The identifier of an interface type.  An interface declares it as a static
// member `kIid`; interfaces that come from the platform's own headers get a
// specialisation instead.  `Base` names the interface it extends, so that
// QueryInterface answers for the whole chain.
template <class I>
struct ZqInterfaceTraits {
  static constexpr GUID iid = I::kIid;
};

template <class I>
inline constexpr GUID ZqIidOf = ZqInterfaceTraits<I>::iid;

#if !defined(_WIN32)

class IUnknown {
 public:
  static constexpr GUID kIid = ZqGuid("{00000000-0000-0000-C000-000000000046}");
  virtual HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) = 0;
  virtual ULONG STDMETHODCALLTYPE AddRef() = 0;
  virtual ULONG STDMETHODCALLTYPE Release() = 0;
};
typedef IUnknown* LPUNKNOWN;

class IClassFactory : public IUnknown {
 public:
  using Base = IUnknown;
  static constexpr GUID kIid = ZqGuid("{00000001-0000-0000-C000-000000000046}");
  virtual HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID riid, void** object) = 0;
  virtual HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) = 0;
};

inline constexpr GUID IID_IUnknown = IUnknown::kIid;
inline constexpr GUID IID_IClassFactory = IClassFactory::kIid;

#endif  // !_WIN32
