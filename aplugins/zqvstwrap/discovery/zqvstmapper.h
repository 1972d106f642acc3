// CZqVstWrapFilterMapper: what a host talks to about plug-ins as a whole.
// It binds the cache to one application and version, runs the scan, lets
// the host walk the offered filters, keeps the search folders and
// translates the class ids of old projects.
//
// Each object has its own folders and cursor; the mapping list, the count
// of offered mappings and the host cache are process-wide (zqvstcache.h),
// so the last Init decides for all objects.  Aggregation is refused.
//
// Threads: one caller thread at a time, not during a Grovel; the count of
// references is atomic.
#pragma once

#include "aplugins/zqvstwrap/discovery/ivstfiltermapper.h"
#include "aplugins/zqvstwrap/discovery/zqvstcache.h"
#include "aplugins/zqvstwrap/host/izqvsteffectfactory.h"
#include "kernel/com/object.h"
#include "kernel/list.h"

class CZqVstWrapFilterMapper final
    : public ZqComObject<CZqVstWrapFilterMapper, IVstFilterMapper, IEnumVstFilters, IZqTranslationInfo,
                         IZqVstWrapPrefs>,
      public ZqZeroFilled {
 public:
  CZqVstWrapFilterMapper();

  // IVstFilterMapper
  HRESULT STDMETHODCALLTYPE Init(const WCHAR* appName, const WCHAR* productName, DWORD version,
                                 IVstHostCache* hostCache) override;
  HRESULT STDMETHODCALLTYPE CreatePrefsPage(REFIID riid, void** page) override;
  HRESULT STDMETHODCALLTYPE Grovel(IEnumVstFilters** enumOut, DWORD flags, IZqProgress* progress, DWORD timeLimitMs,
                                   IVstHostCache* hostCache) override;

  // IEnumVstFilters
  HRESULT STDMETHODCALLTYPE Clone(IEnumVstFilters** clone) override;
  HRESULT STDMETHODCALLTYPE Next(ULONG count, VstFilterInfo** entries, ULONG* fetched) override;
  HRESULT STDMETHODCALLTYPE Reset() override;
  HRESULT STDMETHODCALLTYPE Skip(ULONG count) override;
  HRESULT STDMETHODCALLTYPE Seek(REFCLSID clsid) override;
  HRESULT STDMETHODCALLTYPE TestCurrent(DWORD timeLimitMs, IZqProgress* progress) override;
  HRESULT STDMETHODCALLTYPE SetFilterName(const WCHAR* name) override;
  HRESULT STDMETHODCALLTYPE GetUserFlags(DWORD* flags) override;
  HRESULT STDMETHODCALLTYPE SetUserFlags(DWORD flags) override;
  HRESULT STDMETHODCALLTYPE IsVstClsid(REFCLSID clsid) override;
  HRESULT STDMETHODCALLTYPE TranslateClsid(GUID* clsid) override;

  // IZqTranslationInfo
  HRESULT STDMETHODCALLTYPE SetLanguage(LCID lcid) override;

  // IZqVstWrapPrefs
  INT STDMETHODCALLTYPE GetSearchPathCount() override;
  HRESULT STDMETHODCALLTYPE GetSearchPath(INT index, WCHAR* buffer, INT size, DWORD* flags) override;
  HRESULT STDMETHODCALLTYPE SetSearchPath(INT index, const WCHAR* path, DWORD flags) override;
  HRESULT STDMETHODCALLTYPE RemoveSearchPath(const WCHAR* path) override;
  HRESULT STDMETHODCALLTYPE ClearSearchPaths() override;
  INT STDMETHODCALLTYPE GetMappingCount() override;
  HRESULT STDMETHODCALLTYPE GetMapping(INT index, VstMapping** mapping) override;
  HRESULT STDMETHODCALLTYPE SaveMapping(const VstMapping* mapping) override;
  HRESULT STDMETHODCALLTYPE Refresh(IZqProgress* progress, BOOL rescan, BOOL inProcess) override;
  HRESULT STDMETHODCALLTYPE TestLoad(VstMapping* mapping, DWORD timeLimitMs, IZqProgress* progress) override;

 private:
  friend class ZqComObject<CZqVstWrapFilterMapper, IVstFilterMapper, IEnumVstFilters, IZqTranslationInfo,
                           IZqVstWrapPrefs>;
  ~CZqVstWrapFilterMapper();
  HRESULT EnterFirstStartFolders();
  VstMapping* Current();
  void Blank();

  WCHAR m_appName[64];
  WCHAR m_productName[64];
  DWORD m_version;
  WCHAR m_cacheKey[260];
  tZQLIST* m_searchPaths;  // array list of VstSearchPath
  DWORD m_position;
  DWORD m_firstStart;
  IZqVstEffectFactory* m_factory;       // in-process, for TestLoad
  IZqVstEffectFactory* m_otherFactory;  // stays null
};

// A new mapper, queried for `riid`.  CLASS_E_NOAGGREGATION with an outer.
HRESULT ZqVstCreateFilterMapper(IUnknown* outer, REFIID riid, void** object);
