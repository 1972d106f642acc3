// IZqProgress: what a long operation of the mapper (a scan, writing the
// cache) tells its caller, and how the caller asks it to stop.  The caller
// implements it; it may be called from a worker thread of the operation.
#pragma once

#include "base/types.h"
#include "kernel/com/object.h"
#include "kernel/com/unknown.h"

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

// The sink of an operation nobody watches: it shows nothing and never asks
// to stop.  Its count starts at 1 and its holder keeps that reference, so it
// may live on the stack or for the whole process.
class CZqSilentProgress final : public ZqComObject<CZqSilentProgress, IZqProgress> {
 public:
  HRESULT STDMETHODCALLTYPE Begin(const WCHAR*, DWORD, DWORD) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE SetText(const WCHAR*) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE SetProgress(DWORD, DWORD) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE SetCount(DWORD, DWORD) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE IsCancelled() override { return S_OK; }
  HRESULT STDMETHODCALLTYPE End(HRESULT) override { return S_OK; }
};
