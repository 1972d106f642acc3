// The library's class objects: the identifiers it answers, the process-wide
// list of plug-in records they are resolved against, the two counters that
// decide whether the library may be unloaded, and CZqVstFactory.
//
// Nothing is registered anywhere.  Every plug-in has three class identifiers
// of its own (filter, Editor page, Params page) which share their first ten
// bytes; the last six bytes name the role.  One identifier is fixed: the
// mapper's.  A class identifier resolves only while the cache's mapping list
// holds a mapping for it, which the mapper fills when it loads its cache.
//
// Threads: factories are per-call objects and share nothing; the counters
// are atomic.  The mapping list is written by the mapper's thread while no
// filter is being created, and read without a lock otherwise.
#pragma once

#include "aplugins/zqvstwrap/filter/zqvstwrap_build.h"
#include "aplugins/zqvstwrap/zqvstclasses.h"
#include "kernel/com/object.h"
#include "kernel/com/unknown.h"
#include "base/types.h"

// What the filter and the factory need of one plug-in's mapping, for hosts
// and tests that enter plug-ins by hand instead of through a scan.
struct ZqVstPluginRecord {
  CLSID clsid;            // the filter's identifier
  CLSID editorPageClsid;  // derived
  CLSID paramsPageClsid;  // derived
  WCHAR path[260];        // the module file
  WCHAR name[64];         // display name
  DWORD flags;            // VMF_*
  DWORD state;            // VMS_*
  LONG latencyFrames;     // as the plug-in reported them when it was mapped
  LONG tailFrames;
};

// --- The process-wide mapping list, record by record -------------------------
// These work on the cache's mapping list (zqvstcache.h).

// Enters a mapping made of `record` (the page identifiers are derived from
// `clsid`), or replaces the one with the same filter identifier.  Creates the
// list on first use.  E_INVALIDARG when `clsid` is not a filter identifier.
HRESULT ZqVstRecords_Add(const ZqVstPluginRecord& record);
// Finds the mapping that has `clsid` as any of its three identifiers.
// ZQ_E_NOT_FOUND when the list does not exist, the identifier fits no role
// (the list is not searched then) or no mapping matches.  `out` may be null.
HRESULT ZqVstRecords_Find(REFCLSID clsid, ZqVstPluginRecord* out);
// Ors `bits` into the State of the mapping found for `clsid`.
HRESULT ZqVstRecords_SetState(REFCLSID clsid, DWORD bits);
// Remembers the latency and tail a plug-in reported when it was opened.
HRESULT ZqVstRecords_SetTiming(REFCLSID clsid, LONG latencyFrames, LONG tailFrames);
// Deletes the list and lets the host cache go: afterwards no plug-in
// identifier resolves.
void ZqVstRecords_Destroy();
// Whether the list exists.
bool ZqVstRecords_Exist();

// --- The objects the factory makes ------------------------------------------

class CZqVstFactory final : public ZqComObject<CZqVstFactory, IClassFactory>, public ZqZeroFilled {
 public:
  explicit CZqVstFactory(REFCLSID requested);

  // Resolves the requested identifier.  CLASS_E_CLASSNOTAVAILABLE when it is
  // not the mapper's and no record has it.
  HRESULT Initialize();

  // IClassFactory
  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID riid, void** object) override;
  HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) override;

 private:
  friend class ZqComObject<CZqVstFactory, IClassFactory>;
  ~CZqVstFactory() = default;
  ZqVstBuiltObject BuildFilter(IUnknown* outer, HRESULT* status);

  BOOL m_ready;
  CLSID m_requested;
  CLSID m_filter;
  CLSID m_editorPage;
  CLSID m_paramsPage;
  DWORD m_flags;
  WCHAR m_path[260];
  WCHAR m_name[64];
};

// --- The library's entry points (zqvstentry.cpp) ------------------------------

// A new factory for `rclsid`, queried for `riid`.  CLASS_E_CLASSNOTAVAILABLE
// for an identifier that is neither the mapper's nor in the record list.
ZQ_API HRESULT DllGetClassObject(REFCLSID rclsid, REFIID riid, void** ppv);
// S_OK only when no object of the library lives and no lock is held.
ZQ_API HRESULT DllCanUnloadNow();
// Nothing is registered: both answer S_FALSE.
ZQ_API HRESULT DllRegisterServer();
ZQ_API HRESULT DllUnregisterServer();
