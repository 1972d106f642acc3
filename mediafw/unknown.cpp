#include "mediafw/unknown.h"

namespace {
std::atomic<LONG> g_objectsActive{0};
}

CBaseObject::CBaseObject(const WCHAR* name) : m_pObjectName(name) { g_objectsActive.fetch_add(1); }

CBaseObject::~CBaseObject() { g_objectsActive.fetch_sub(1); }

LONG CBaseObject::ObjectsActive() { return g_objectsActive.load(); }

CUnknown::CUnknown(const WCHAR* name, IUnknown* outer, HRESULT*)
    : CBaseObject(name), m_inner(this), m_pUnknown(outer != nullptr ? outer : &m_inner) {}

CUnknown::~CUnknown() = default;

HRESULT CUnknown::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  if (IsEqualGUID(riid, IID_IUnknown)) return GetInterface(&m_inner, ppv);
  *ppv = nullptr;
  return E_NOINTERFACE;
}

ULONG CUnknown::NonDelegatingAddRef() { return static_cast<ULONG>(m_cRef.fetch_add(1) + 1); }

ULONG CUnknown::NonDelegatingRelease() {
  LONG left = m_cRef.fetch_sub(1) - 1;
  if (left == 0) {
    // A count above zero during destruction keeps a stray AddRef/Release
    // pair in a destructor from deleting the object twice.
    m_cRef.store(1);
    delete this;
    return 0;
  }
  return static_cast<ULONG>(left);
}

HRESULT GetInterface(IUnknown* unk, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  *ppv = unk;
  unk->AddRef();
  return S_OK;
}
