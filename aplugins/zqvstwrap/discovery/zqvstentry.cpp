// The library's four entry points.  A host loads the library by file name
// and calls DllGetClassObject itself; nothing is ever registered, so the
// registration entry points only say that there was nothing to do.
#include "aplugins/zqvstwrap/discovery/zqvstfactory.h"

ZQ_API HRESULT DllGetClassObject(REFCLSID rclsid, REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  *ppv = nullptr;
  // A new factory for every call: the factory is resolved against the record
  // list as it is now, and nothing is cached between calls.
  CZqVstFactory* factory = new (std::nothrow) CZqVstFactory(rclsid);
  if (factory == nullptr) return E_OUTOFMEMORY;
  HRESULT hr = factory->Initialize();
  if (SUCCEEDED(hr)) hr = factory->QueryInterface(riid, ppv);
  factory->Release();
  return hr;
}

ZQ_API HRESULT DllCanUnloadNow() {
  return (ZqVstWrap_ObjectCount() == 0 && ZqVstWrap_LockCount() == 0) ? S_OK : S_FALSE;
}

ZQ_API HRESULT DllRegisterServer() { return S_FALSE; }

ZQ_API HRESULT DllUnregisterServer() { return S_FALSE; }
