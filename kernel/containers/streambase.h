// What the kernel's streams share: allocation, the operations none of them
// offers, and the translation of platform errors into statuses.
#pragma once

#include <new>

#include "kernel/com/object.h"
#include "base/status.h"
#include "kernel/com/stream.h"
#include "kernel/memory.h"
#include "base/types.h"

// Stream objects come zero-filled from the kernel's allocation hook, so that
// a field the constructor does not set reads as zero and tests can make the
// allocation fail.  Only the non-throwing form of `new` exists: a failure is
// a null pointer, answered as E_OUTOFMEMORY.
struct ZqStreamMemory {
  static void* operator new(size_t size, const std::nothrow_t&) noexcept { return ZqMemory_AllocZ(size); }
  static void operator delete(void* block) noexcept { ZqMemory_Free(block); }
  static void operator delete(void* block, const std::nothrow_t&) noexcept { ZqMemory_Free(block); }
};

// Reference counting and QueryInterface from ZqComObject; every operation
// that a stream does not offer answers E_NOTIMPL here.  A class that offers
// Stat or Clone overrides them.
template <class Derived, class Interface = IStream>
class ZqStreamObject : public ZqComObject<Derived, Interface>, public ZqStreamMemory {
 public:
  HRESULT STDMETHODCALLTYPE SetSize(ULARGE_INTEGER) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE CopyTo(IStream*, ULARGE_INTEGER, ULARGE_INTEGER*, ULARGE_INTEGER*) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE Commit(DWORD) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Revert() override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Stat(STATSTG*, DWORD) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Clone(IStream**) override { return E_NOTIMPL; }

 protected:
  using ComBase = ZqComObject<Derived, Interface>;
  ZqStreamObject() = default;
  ~ZqStreamObject() = default;
};

// Makes a `Stream`, lets `init` set it up and hands it out in *stream; one
// whose set-up fails is released and the failure answered.
template <class Stream, class Out, class Init>
HRESULT ZqStreamMake(Out** stream, Init init) {
  Stream* made = new (std::nothrow) Stream();
  if (made == nullptr) return E_OUTOFMEMORY;
  const HRESULT hr = init(made);
  if (FAILED(hr)) {
    made->Release();
    return hr;
  }
  *stream = made;
  return S_OK;
}

// Seek arithmetic on unsigned positions: whether `base` + `offset` would lie
// before 0, or wrap round past the largest position.
inline bool ZqStreamBeforeZero(ULONGLONG base, LONGLONG offset) {
  return offset < 0 && static_cast<ULONGLONG>(-(offset + 1)) >= base;
}
inline bool ZqStreamWrapsRound(ULONGLONG base, LONGLONG offset) {
  return offset > 0 && base + static_cast<ULONGLONG>(offset) < base;
}

// Where a seek of a stream that keeps its own position lands: `offset` from
// 0, from `position` or from `end`, by `origin`.  STG_E_INVALIDFUNCTION (and
// *target untouched) for an unknown origin, a move forward from the end, and
// a target before 0 or past the largest position.
HRESULT ZqStreamSeekTarget(LONGLONG offset, DWORD origin, ULONGLONG position, ULONGLONG end, ULONGLONG* target);

// The status for a platform error number, by the kernel's error table: the
// numbers it singles out get their own status, every other number
// (including those it does not list) E_FAIL, and 0 gives S_OK.  This belongs
// with the error handler's translation once that exists.
HRESULT ZqStreamStatusFromPlatformError(DWORD error);

// The kernel's plain file read: ReadFile at the file pointer, no more.
BOOL ZqStreamReadFile(HANDLE file, void* buffer, DWORD size, DWORD* read);
