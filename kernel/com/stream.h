// IStream and its relatives with the published slot orders, and STATSTG.
#pragma once

#include "kernel/com/unknown.h"

#if !defined(_WIN32)

typedef WCHAR* LPOLESTR;
typedef const WCHAR* LPCOLESTR;

enum STREAM_SEEK : DWORD { STREAM_SEEK_SET = 0, STREAM_SEEK_CUR = 1, STREAM_SEEK_END = 2 };
enum STGTY : DWORD { STGTY_STORAGE = 1, STGTY_STREAM = 2, STGTY_LOCKBYTES = 3, STGTY_PROPERTY = 4 };
enum STATFLAG : DWORD { STATFLAG_DEFAULT = 0, STATFLAG_NONAME = 1, STATFLAG_NOOPEN = 2 };
enum STGC : DWORD { STGC_DEFAULT = 0 };
enum LOCKTYPE : DWORD { LOCK_WRITE = 1, LOCK_EXCLUSIVE = 2, LOCK_ONLYONCE = 4 };

constexpr DWORD STGM_READ = 0x00000000;
constexpr DWORD STGM_WRITE = 0x00000001;
constexpr DWORD STGM_READWRITE = 0x00000002;
constexpr DWORD STGM_SHARE_DENY_NONE = 0x00000040;
constexpr DWORD STGM_SHARE_DENY_READ = 0x00000030;
constexpr DWORD STGM_SHARE_DENY_WRITE = 0x00000020;
constexpr DWORD STGM_SHARE_EXCLUSIVE = 0x00000010;
constexpr DWORD STGM_CREATE = 0x00001000;

struct STATSTG {
  LPOLESTR pwcsName;  // CoTaskMemAlloc'ed, freed by the caller; null with STATFLAG_NONAME
  DWORD type;
  ULARGE_INTEGER cbSize;
  FILETIME mtime;
  FILETIME ctime;
  FILETIME atime;
  DWORD grfMode;
  DWORD grfLocksSupported;
  CLSID clsid;
  DWORD grfStateBits;
  DWORD reserved;
};

class ISequentialStream : public IUnknown {
 public:
  using Base = IUnknown;
  static constexpr GUID kIid = ZqGuid("{0C733A30-2A1C-11CE-ADE5-00AA0044773D}");
  virtual HRESULT STDMETHODCALLTYPE Read(void* buffer, ULONG size, ULONG* read) = 0;
  virtual HRESULT STDMETHODCALLTYPE Write(const void* buffer, ULONG size, ULONG* written) = 0;
};

class IStream : public ISequentialStream {
 public:
  using Base = ISequentialStream;
  static constexpr GUID kIid = ZqGuid("{0000000C-0000-0000-C000-000000000046}");
  virtual HRESULT STDMETHODCALLTYPE Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* newPosition) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetSize(ULARGE_INTEGER newSize) = 0;
  virtual HRESULT STDMETHODCALLTYPE CopyTo(IStream* target, ULARGE_INTEGER size, ULARGE_INTEGER* read,
                                           ULARGE_INTEGER* written) = 0;
  virtual HRESULT STDMETHODCALLTYPE Commit(DWORD flags) = 0;
  virtual HRESULT STDMETHODCALLTYPE Revert() = 0;
  virtual HRESULT STDMETHODCALLTYPE LockRegion(ULARGE_INTEGER offset, ULARGE_INTEGER size, DWORD lockType) = 0;
  virtual HRESULT STDMETHODCALLTYPE UnlockRegion(ULARGE_INTEGER offset, ULARGE_INTEGER size, DWORD lockType) = 0;
  virtual HRESULT STDMETHODCALLTYPE Stat(STATSTG* stat, DWORD statFlag) = 0;
  virtual HRESULT STDMETHODCALLTYPE Clone(IStream** clone) = 0;
};
typedef IStream* LPSTREAM;

class IPersist : public IUnknown {
 public:
  using Base = IUnknown;
  static constexpr GUID kIid = ZqGuid("{0000010C-0000-0000-C000-000000000046}");
  virtual HRESULT STDMETHODCALLTYPE GetClassID(CLSID* clsid) = 0;
};

class IPersistStream : public IPersist {
 public:
  using Base = IPersist;
  static constexpr GUID kIid = ZqGuid("{00000109-0000-0000-C000-000000000046}");
  virtual HRESULT STDMETHODCALLTYPE IsDirty() = 0;
  virtual HRESULT STDMETHODCALLTYPE Load(IStream* stream) = 0;
  virtual HRESULT STDMETHODCALLTYPE Save(IStream* stream, BOOL clearDirty) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetSizeMax(ULARGE_INTEGER* size) = 0;
};

inline constexpr GUID IID_ISequentialStream = ISequentialStream::kIid;
inline constexpr GUID IID_IStream = IStream::kIid;
inline constexpr GUID IID_IPersist = IPersist::kIid;
inline constexpr GUID IID_IPersistStream = IPersistStream::kIid;

#endif  // !_WIN32
