// The interfaces a host uses for plug-ins as a whole: the mapper
// (IVstFilterMapper) that binds the cache to an application and scans, the
// enumerator of offered filters (IEnumVstFilters), the preferences interface
// (IZqVstWrapPrefs) and the language switch (IZqTranslationInfo).  One object
// answers all four; the slot order below is the binary interface.
//
// Threads: a host calls the mapper from one thread at a time, and not during
// a Grovel (its progress sink is called from the scan's worker thread).
#pragma once

#include "aplugins/zqvstwrap/discovery/izqprogress.h"
#include "aplugins/zqvstwrap/izqtranslationinfo.h"
#include "aplugins/zqvstwrap/discovery/zqvsthostcache.h"
#include "kernel/com/unknown.h"
#include "base/types.h"

struct VstMapping;

// Flags of Grovel.
constexpr DWORD GROVEL_TRUST_PATHS = 0x1;  // do not compare the folders with what is stored
constexpr DWORD GROVEL_RESCAN = 0x2;       // forget the cache and probe everything again
constexpr DWORD GROVEL_IN_PROCESS = 0x4;   // probe in this process, not in the probe server
constexpr DWORD GROVEL_FORCE = 0x8;        // walk the folders even if nothing seems changed

// One offered filter, one block from CoTaskMemAlloc owned by the caller:
// the class id, a pointer to the name, then the name itself.
struct VstFilterInfo {
  CLSID clsid;
  WCHAR* name;  // points at the text behind this record
};

class IEnumVstFilters;

class IVstFilterMapper : public IUnknown {
 public:
  using Base = IUnknown;
  static constexpr GUID kIid = ZqGuid("{2B2B6AA8-F726-40E9-B2D4-90DA50B40945}");
  // Binds the cache to `appName` (64 characters at most; names the store's
  // key and the log's folder) and version (top byte major, next minor).
  // With no stored folders the first-start folders are entered.  0, or
  // E_FAIL (or a negative result of entering a folder) with the object blank.
  virtual HRESULT STDMETHODCALLTYPE Init(const WCHAR* appName, const WCHAR* productName, DWORD version,
                                         IVstHostCache* hostCache) = 0;
  // The preferences page; E_NOTIMPL in a build without pages.
  virtual HRESULT STDMETHODCALLTYPE CreatePrefsPage(REFIID riid, void** page) = 0;
  // Brings the cache up to date with the folders: 0 when it ran (or had
  // nothing to do), 1 when there are no folders on a first start or the
  // caller cancelled during the fingerprint, or a negative result.
  // `progress` must be given when there are folders.  `timeLimitMs` bounds
  // each module's probe (0: none).  `enumOut` (may be null) receives the
  // enumerator on success.
  virtual HRESULT STDMETHODCALLTYPE Grovel(IEnumVstFilters** enumOut, DWORD flags, IZqProgress* progress,
                                           DWORD timeLimitMs, IVstHostCache* hostCache) = 0;
};

class IEnumVstFilters : public IUnknown {
 public:
  using Base = IUnknown;
  static constexpr GUID kIid = ZqGuid("{9CA8DFC6-AC9C-4D72-ACC7-2E6589743D3B}");
  // E_NOTIMPL always.
  virtual HRESULT STDMETHODCALLTYPE Clone(IEnumVstFilters** clone) = 0;
  // Fills up to `count` entries with the enabled filters from the cursor
  // on, passing disabled mappings over.  0 when `count` were filled, 1 at
  // the end (with what was found), E_OUTOFMEMORY.
  virtual HRESULT STDMETHODCALLTYPE Next(ULONG count, VstFilterInfo** entries, ULONG* fetched) = 0;
  virtual HRESULT STDMETHODCALLTYPE Reset() = 0;
  // 1 with the cursor unmoved when cursor + count reaches the count of
  // mappings (also exactly), else 0.
  virtual HRESULT STDMETHODCALLTYPE Skip(ULONG count) = 0;
  // Moves the cursor to the mapping of `clsid`; 0x8004E00A if none.
  virtual HRESULT STDMETHODCALLTYPE Seek(REFCLSID clsid) = 0;
  // The operations below act on the mapping at the cursor and answer 1
  // when there is none.
  virtual HRESULT STDMETHODCALLTYPE TestCurrent(DWORD timeLimitMs, IZqProgress* progress) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetFilterName(const WCHAR* name) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetUserFlags(DWORD* flags) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetUserFlags(DWORD flags) = 0;
  // 0 when `clsid` carries one of the three role tags, else 1.
  virtual HRESULT STDMETHODCALLTYPE IsVstClsid(REFCLSID clsid) = 0;
  // Finds the plug-in a class id saved elsewhere means and rewrites *clsid:
  // 1 exact here, 0 rewritten, E_UNEXPECTED renamed, 0x8004E00A unknown.
  virtual HRESULT STDMETHODCALLTYPE TranslateClsid(GUID* clsid) = 0;
};

class IZqVstWrapPrefs : public IUnknown {
 public:
  using Base = IUnknown;
  static constexpr GUID kIid = ZqGuid("{2F022A35-E94F-42AE-B89C-13B8BA9A0A5A}");
  virtual INT STDMETHODCALLTYPE GetSearchPathCount() = 0;
  // Copies folder `index` (its path ends in "/"); 1 with an empty buffer
  // past the end.
  virtual HRESULT STDMETHODCALLTYPE GetSearchPath(INT index, WCHAR* buffer, INT size, DWORD* flags) = 0;
  // Enters an existing folder at `index` (appends past the end); an empty
  // path removes the slot.  E_INVALIDARG for no folder, 0x8004E0A9 when
  // another slot holds it, 1 when this slot holds it already.
  virtual HRESULT STDMETHODCALLTYPE SetSearchPath(INT index, const WCHAR* path, DWORD flags) = 0;
  virtual HRESULT STDMETHODCALLTYPE RemoveSearchPath(const WCHAR* path) = 0;
  virtual HRESULT STDMETHODCALLTYPE ClearSearchPaths() = 0;
  virtual INT STDMETHODCALLTYPE GetMappingCount() = 0;
  // The mapping in the list itself, valid until the list is next rebuilt.
  virtual HRESULT STDMETHODCALLTYPE GetMapping(INT index, VstMapping** mapping) = 0;
  // Stores the mapping's Path, Name, UserFlags and Flags.
  virtual HRESULT STDMETHODCALLTYPE SaveMapping(const VstMapping* mapping) = 0;
  virtual HRESULT STDMETHODCALLTYPE Refresh(IZqProgress* progress, BOOL rescan, BOOL inProcess) = 0;
  // Probes the mapping's module again and stores what it is now.
  virtual HRESULT STDMETHODCALLTYPE TestLoad(VstMapping* mapping, DWORD timeLimitMs, IZqProgress* progress) = 0;
};

inline constexpr GUID IID_IVstFilterMapper = IVstFilterMapper::kIid;
inline constexpr GUID IID_IEnumVstFilters = IEnumVstFilters::kIid;
inline constexpr GUID IID_IZqVstWrapPrefs = IZqVstWrapPrefs::kIid;
