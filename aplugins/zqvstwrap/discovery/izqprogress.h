// IZqProgress: what a long operation of the mapper (a scan, writing the
// cache) tells its caller, and how the caller asks it to stop.  The caller
// implements it; it may be called from a worker thread of the operation.
#pragma once

#include "kernel/com/unknown.h"
#include "base/types.h"

class IZqProgress : public IUnknown {
 public:
  using Base = IUnknown;
  static constexpr GUID kIid = ZqGuid("{D6EBCEC1-766C-11D3-9627-00C04F68BE42}");
  // Starts the operation with a first line of text.
  virtual HRESULT STDMETHODCALLTYPE Begin(const WCHAR* text, DWORD reserved1, DWORD reserved2) = 0;
  // One line of progress text.
  virtual HRESULT STDMETHODCALLTYPE SetText(const WCHAR* text) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetProgress(DWORD done, DWORD total) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetCount(DWORD done, DWORD total) = 0;
  // Negative when the operation is to stop (ZQ_E_CANCELLED normally).
  virtual HRESULT STDMETHODCALLTYPE IsCancelled() = 0;
  // The operation ended with `result`.
  virtual HRESULT STDMETHODCALLTYPE End(HRESULT result) = 0;
};
