// The framework's object base: CBaseObject (a live-object count) and
// CUnknown, which implements reference counting and QueryInterface so that an
// object can be used alone or aggregated inside an outer object.
//
// Aggregation: every CUnknown has two IUnknowns.  The non-delegating one
// (INonDelegatingUnknown, reachable as a plain IUnknown through
// GetNonDelegatingUnknown) counts and answers for the object itself; the
// delegating one, which every interface of the object inherits, forwards to
// the owner: the outer unknown when there is one, otherwise the object's own
// non-delegating unknown.  An outer object keeps the inner's non-delegating
// unknown and hands out the inner's interfaces, whose AddRef and Release
// then count on the outer.
//
// Counts start at 0: whoever creates the object takes the first reference
// (NonDelegatingAddRef), and the object deletes itself through its virtual
// destructor when NonDelegatingRelease reaches 0.
#pragma once

#include <atomic>

#include "kernel/com/unknown.h"

class INonDelegatingUnknown {
 public:
  virtual HRESULT STDMETHODCALLTYPE NonDelegatingQueryInterface(REFIID riid, void** ppv) = 0;
  virtual ULONG STDMETHODCALLTYPE NonDelegatingAddRef() = 0;
  virtual ULONG STDMETHODCALLTYPE NonDelegatingRelease() = 0;
};

// Counts live framework objects, so that a module can tell whether it may be
// unloaded and tests can see that nothing leaked.
class CBaseObject {
 public:
  explicit CBaseObject(const WCHAR* name);
  CBaseObject(const CBaseObject&) = delete;
  CBaseObject& operator=(const CBaseObject&) = delete;
  ~CBaseObject();

  // Objects constructed and not yet destroyed, in the whole process.
  static LONG ObjectsActive();
  // The name given at construction (not copied); for diagnostics.
  const WCHAR* ObjectName() const { return m_pObjectName; }

 private:
  const WCHAR* m_pObjectName;
};

class CUnknown : public INonDelegatingUnknown, public CBaseObject {
 public:
  // `outer` null: the object is its own owner.  `phr` is accepted for the
  // shape of the framework's constructors; CUnknown itself never fails.
  CUnknown(const WCHAR* name, IUnknown* outer, HRESULT* phr = nullptr);
  virtual ~CUnknown();

  // Answers IID_IUnknown with the non-delegating unknown; anything else
  // E_NOINTERFACE.  Subclasses answer their interfaces and call this last.
  HRESULT STDMETHODCALLTYPE NonDelegatingQueryInterface(REFIID riid, void** ppv) override;
  ULONG STDMETHODCALLTYPE NonDelegatingAddRef() override;
  ULONG STDMETHODCALLTYPE NonDelegatingRelease() override;

  // Where the delegating IUnknown of every interface goes.
  IUnknown* GetOwner() const { return m_pUnknown; }
  // The object's own, counting IUnknown: what an outer object keeps.
  IUnknown* GetNonDelegatingUnknown() { return &m_inner; }

 protected:
  std::atomic<LONG> m_cRef{0};

 private:
  // Presents the non-delegating methods under IUnknown's slot order.
  class Inner final : public IUnknown {
   public:
    explicit Inner(CUnknown* self) : m_self(self) {}
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
      return m_self->NonDelegatingQueryInterface(riid, ppv);
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return m_self->NonDelegatingAddRef(); }
    ULONG STDMETHODCALLTYPE Release() override { return m_self->NonDelegatingRelease(); }

   private:
    CUnknown* m_self;
  };

  Inner m_inner;
  IUnknown* m_pUnknown;
};

// Hands out `unk` (already cast to the interface asked for) with a new
// reference.  E_POINTER for a null `ppv`.
HRESULT GetInterface(IUnknown* unk, void** ppv);

// The delegating IUnknown for a class that derives from CUnknown and from
// interfaces: put it in the class body once; it covers every interface base.
#define DECLARE_IUNKNOWN                                                             \
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {       \
    return GetOwner()->QueryInterface(riid, ppv);                                    \
  }                                                                                  \
  ULONG STDMETHODCALLTYPE AddRef() override { return GetOwner()->AddRef(); }         \
  ULONG STDMETHODCALLTYPE Release() override { return GetOwner()->Release(); }
