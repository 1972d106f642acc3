#include "aplugins/zqvstwrap/discovery/zqvstmapper.h"

#include <cstring>
#include <string>

#include "aplugins/zqvstwrap/discovery/zqvstgrovel.h"
#include "aplugins/zqvstwrap/host/zqvstfactory_effect.h"
#include "aplugins/zqvstwrap/zqvstclasses.h"
#include "kernel/com/taskmem.h"
#include "kernel/errorhandler.h"
#include "kernel/lang.h"
#include "platform/environment.h"
#include "platform/exeinfo.h"
#include "platform/file.h"
#include "platform/registry.h"
#include "platform/text.h"

namespace {

constexpr HRESULT ZQ_E_DUPLICATE = ZqMakeStatus(0x8004E0A9);

VstSearchPath* FolderAt(const tZQLIST* list, INT i) { return static_cast<VstSearchPath*>(ZqList_ArrayItem(list, i)); }

bool IsDirectory(const WCHAR* path) {
  const DWORD attributes = GetFileAttributesW(path);
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY);
}

std::u16string Environment(const char16_t* name) {
  WCHAR value[4096];
  const DWORD n = GetEnvironmentVariableW(name, value, 4096);
  return n > 0 && n < 4096 ? std::u16string(value, n) : std::u16string();
}

}  // namespace

CZqVstWrapFilterMapper::CZqVstWrapFilterMapper() { ZqVstWrap_ObjectCreated(); }

CZqVstWrapFilterMapper::~CZqVstWrapFilterMapper() {
  if (m_searchPaths) ZqList_Destroy(m_searchPaths);
  if (m_factory) ZqVstReleaseEffectFactory(TRUE, m_factory);
  if (m_otherFactory) ZqVstReleaseEffectFactory(FALSE, m_otherFactory);
  ZqVstWrap_ObjectDestroyed();
}

void CZqVstWrapFilterMapper::Blank() {
  ClearSearchPaths();
  m_appName[0] = m_productName[0] = m_cacheKey[0] = 0;
  m_version = 0;
}

// --- IVstFilterMapper -------------------------------------------------------------------

HRESULT CZqVstWrapFilterMapper::Init(const WCHAR* appName, const WCHAR* productName, DWORD version,
                                     IVstHostCache* hostCache) {
  lstrcpynW(m_appName, appName ? appName : u"", 64);
  lstrcpynW(m_productName, productName ? productName : u"", 64);
  m_version = version;
  ZqVstCache_Bind(m_appName, version, hostCache);
  lstrcpynW(m_cacheKey, ZqVstCache_KeyName(), 260);
  HRESULT hr = S_OK;
  if (!hostCache) {
    HKEY key = nullptr;
    if (RegCreateKeyW(HKEY_CURRENT_USER, m_cacheKey, &key) != ERROR_SUCCESS) {
      Blank();
      return E_FAIL;
    }
    RegCloseKey(key);
  }
  if (m_searchPaths) ZqList_Destroy(m_searchPaths);
  m_searchPaths = nullptr;
  hr = ZqVstReadSearchPaths(&m_searchPaths);
  if (hr == S_FALSE) {
    m_firstStart = 1;
    hr = EnterFirstStartFolders();
    if (FAILED(hr)) {
      Blank();
      return hr;
    }
  } else if (FAILED(hr)) {
    Blank();
    return E_FAIL;
  }
  if (!m_factory)
    ZqVstGetEffectFactory(TRUE, IID_IZqVstEffectFactory, reinterpret_cast<void**>(&m_factory), u"Ostrand",
                          m_productName, nullptr, nullptr);
  return S_OK;
}

// The machine's "VSTPluginsPath" is the one folder when it is set; without
// it the folders of VST_PATH, else the usual places plug-ins are installed.
HRESULT CZqVstWrapFilterMapper::EnterFirstStartFolders() {
  WCHAR value[260] = {};
  HKEY key = nullptr;
  if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, u"Software\\VST\\", 0, KEY_READ, &key) == ERROR_SUCCESS) {
    DWORD bytes = sizeof value - sizeof(WCHAR);
    if (RegQueryValueExW(key, u"VSTPluginsPath", nullptr, nullptr, reinterpret_cast<BYTE*>(value), &bytes) !=
        ERROR_SUCCESS)
      value[0] = 0;
    RegCloseKey(key);
  }
  std::u16string candidates[8];
  int n = 0;
  if (value[0]) {
    candidates[n++] = value;
  } else if (std::u16string list = Environment(u"VST_PATH"); !list.empty()) {
    size_t from = 0;
    while (n < 8 && from <= list.size()) {
      const size_t colon = list.find(u':', from);
      const std::u16string part = list.substr(from, colon == std::u16string::npos ? std::u16string::npos : colon - from);
      if (!part.empty()) candidates[n++] = part;
      if (colon == std::u16string::npos) break;
      from = colon + 1;
    }
  } else {
    const std::u16string home = Environment(u"HOME");
    if (!home.empty()) candidates[n++] = home + u"/.vst";
    candidates[n++] = u"/usr/local/lib/vst";
    candidates[n++] = u"/usr/lib/vst";
    candidates[n++] = u"/usr/lib/lxvst";
  }
  for (int i = 0; i < n; ++i) {
    WCHAR path[260];
    lstrcpynW(path, candidates[i].c_str(), 260);
    ZqVstAddSlash(path, 260);
    if (!IsDirectory(path)) continue;
    const HRESULT hr = SetSearchPath(GetSearchPathCount(), path, VSP_RECURSE | VSP_EFFECTS);
    if (FAILED(hr) && hr != ZQ_E_DUPLICATE) return hr;
  }
  return S_OK;
}

HRESULT CZqVstWrapFilterMapper::CreatePrefsPage(REFIID, void** page) {
  if (page) *page = nullptr;
  return E_NOTIMPL;
}

HRESULT CZqVstWrapFilterMapper::Grovel(IEnumVstFilters** enumOut, DWORD flags, IZqProgress* progress,
                                       DWORD timeLimitMs, IVstHostCache* hostCache) {
  if (progress) progress->Begin(u"", 0, 0);
  HRESULT result = S_OK;
  const INT count = m_searchPaths ? m_searchPaths->count : 0;
  bool rescan = (flags & GROVEL_RESCAN) != 0;
  bool changed = false;
  bool markStale = false;
  bool skipHostCache = false;
  tZQLIST** list = ZqVstCache_Mappings();
  bool cancelled = false;
  CLog log;

  // The fingerprint of every folder; a cancel here leaves everything alone.
  for (INT i = 0; i < count; ++i) {
    if (FAILED(ZqVstComputeCheckSum(FolderAt(m_searchPaths, i), progress))) {
      result = S_FALSE;
      goto end;
    }
  }
  if (count == 0) {
    if (m_firstStart) {
      result = S_FALSE;
      goto end;
    }
    if (!(flags & GROVEL_TRUST_PATHS)) rescan = true;
  }
  {
    bool readHostCacheStep = true;
    if (rescan && m_cacheKey[0]) {
      if (hostCache) {
        hostCache->ClearMappings(14);
      } else {
        ZqVstDeleteCache();
        markStale = true;
        readHostCacheStep = false;
      }
    }
    if (readHostCacheStep) {
      if (!rescan && !(flags & GROVEL_TRUST_PATHS)) {
        tZQLIST* stored = nullptr;
        if (ZqVstReadSearchPaths(&stored) >= 0) changed = ZqVstSearchPathsChanged(m_searchPaths, stored);
        if (stored) ZqList_Destroy(stored);
      }
      if (!hostCache) {
        markStale = changed || rescan;
      } else {
        markStale = changed || (flags & GROVEL_FORCE);
        skipHostCache = rescan;
      }
    }
  }
  result = ZqVstReadMappings(list, markStale, skipHostCache);
  if (FAILED(result)) goto end;
  ZqVstCache_SetMappingCount(*list ? (*list)->count : 0);
  // The usual start: a listing of the folders, nothing loaded, no log.
  if (!rescan && !changed && !(flags & GROVEL_FORCE)) {
    result = S_OK;
    goto end;
  }
  ZqErrorHandler_DetailsInit();
  ZqVstOpenGrovelLog(m_appName, m_version, TRUE, &log);
  {
    BOOL inProcess = (flags & GROVEL_IN_PROCESS) != 0;
    bool retried = false;
    for (INT i = 0; i < count; ++i) {
      VstSearchPath* folder = FolderAt(m_searchPaths, i);
      folder->Found = 0;
      const HRESULT hr = ZqVstGrovelFolder(*folder, nullptr, list, progress, &log, timeLimitMs, inProcess,
                                           m_productName);
      if (SUCCEEDED(hr)) {
        folder->Found = 1;
        continue;
      }
      if (hr == ZQ_E_CANCELLED) {
        cancelled = true;
        break;
      }
      if (inProcess || retried) {
        ZQVST_GROVEL_LOG(&log, ZQLOG_WARNING, u"Grovel of %s unexpectedly failed, continuing...", folder->Path);
        continue;
      }
      // A probe server that cannot be used: this folder again, and the rest,
      // in this process.
      inProcess = TRUE;
      retried = true;
      --i;
    }
  }
  ZqList_Sort(*list, 0, &ZqVstCompareMappings);
  if (SUCCEEDED(ZqVstWriteSearchPaths(m_searchPaths, FALSE, progress, &log)) &&
      SUCCEEDED(ZqVstWriteMappings(*list, TRUE, FALSE, progress, &log)))
    ZQVST_GROVEL_LOG(&log, ZQLOG_INFO, u"**** Grovel completed with no critical errors ****");
  log.Shutdown();
  // A stale plug-in in use was kept; the user is not told.
  ZqErrorHandler_DetailsInit();
  result = cancelled ? ZQ_E_CANCELLED : S_OK;

end:
  if (progress) progress->End(result);
  if (result >= 0 && enumOut) return QueryInterface(IID_IEnumVstFilters, reinterpret_cast<void**>(enumOut));
  return result;
}

// --- IEnumVstFilters -------------------------------------------------------------------

VstMapping* CZqVstWrapFilterMapper::Current() {
  tZQLIST* list = *ZqVstCache_Mappings();
  if (!list || m_position >= static_cast<DWORD>(ZqVstCache_MappingCount())) return nullptr;
  return ZqVstMappingAt(list, static_cast<INT>(m_position));
}

HRESULT CZqVstWrapFilterMapper::Clone(IEnumVstFilters**) { return E_NOTIMPL; }

HRESULT CZqVstWrapFilterMapper::Next(ULONG count, VstFilterInfo** entries, ULONG* fetched) {
  for (ULONG i = 0; i < count; ++i) entries[i] = nullptr;
  const DWORD total = static_cast<DWORD>(ZqVstCache_MappingCount());
  ULONG filled = 0;
  HRESULT hr = S_FALSE;
  if (m_position < total && count > 0) {
    tZQLIST* list = *ZqVstCache_Mappings();
    for (;;) {
      const VstMapping* m = ZqVstMappingAt(list, static_cast<INT>(m_position++));
      if (m->Flags & VMF_ENABLED) {
        const size_t chars = static_cast<size_t>(lstrlenW(m->Name)) + 1;
        auto* info = static_cast<VstFilterInfo*>(CoTaskMemAlloc(sizeof(VstFilterInfo) + chars * sizeof(WCHAR)));
        if (!info) {
          hr = E_OUTOFMEMORY;
          break;
        }
        info->clsid = m->Clsid;
        info->name = reinterpret_cast<WCHAR*>(info + 1);
        std::memcpy(info->name, m->Name, chars * sizeof(WCHAR));
        entries[filled++] = info;
        if (filled == count) {
          hr = S_OK;
          break;
        }
      }
      if (m_position >= total) break;
    }
  }
  if (fetched) *fetched = filled;
  return hr;
}

HRESULT CZqVstWrapFilterMapper::Reset() {
  m_position = 0;
  return S_OK;
}

HRESULT CZqVstWrapFilterMapper::Skip(ULONG count) {
  // Landing exactly on the end fails too, unlike the usual enumerator.
  if (static_cast<ULONGLONG>(m_position) + count >= static_cast<ULONGLONG>(ZqVstCache_MappingCount())) return S_FALSE;
  m_position += count;
  return S_OK;
}

HRESULT CZqVstWrapFilterMapper::Seek(REFCLSID clsid) {
  tZQLIST* list = *ZqVstCache_Mappings();
  for (INT i = 0; list && i < list->count; ++i)
    if (IsEqualGUID(ZqVstMappingAt(list, i)->Clsid, clsid)) {
      m_position = static_cast<DWORD>(i);
      return S_OK;
    }
  return ZQ_E_NOT_FOUND;
}

HRESULT CZqVstWrapFilterMapper::TestCurrent(DWORD timeLimitMs, IZqProgress* progress) {
  VstMapping* m = Current();
  return m ? TestLoad(m, timeLimitMs, progress) : S_FALSE;
}

HRESULT CZqVstWrapFilterMapper::SetFilterName(const WCHAR* name) {
  VstMapping* m = Current();
  if (!m) return S_FALSE;
  const HRESULT hr = ZqVstUpdateMapping(m->Clsid, nullptr, name, nullptr, nullptr);
  if (SUCCEEDED(hr)) lstrcpynW(m->Name, name ? name : u"", 64);
  return hr;
}

HRESULT CZqVstWrapFilterMapper::GetUserFlags(DWORD* flags) {
  VstMapping* m = Current();
  if (!m) return S_FALSE;
  if (flags) *flags = m->UserFlags;
  return S_OK;
}

HRESULT CZqVstWrapFilterMapper::SetUserFlags(DWORD flags) {
  VstMapping* m = Current();
  if (!m) return S_FALSE;
  const HRESULT hr = ZqVstUpdateMapping(m->Clsid, nullptr, nullptr, &flags, nullptr);
  if (SUCCEEDED(hr)) m->UserFlags = flags;
  return hr;
}

HRESULT CZqVstWrapFilterMapper::IsVstClsid(REFCLSID clsid) {
  return ZqVstRoleOf(clsid) != ZQVSTROLE_NONE ? S_OK : S_FALSE;
}

HRESULT CZqVstWrapFilterMapper::TranslateClsid(GUID* clsid) {
  return ZqVstTranslateClsid(*ZqVstCache_Mappings(), clsid);
}

// --- IZqTranslationInfo ------------------------------------------------------------------

HRESULT CZqVstWrapFilterMapper::SetLanguage(LCID lcid) {
  return ZqLang_UpdateKernelLCID(ZqLang_GetKernelLang(), lcid, lcid) ? S_OK : E_FAIL;
}

// --- IZqVstWrapPrefs ------------------------------------------------------------------------

INT CZqVstWrapFilterMapper::GetSearchPathCount() { return m_searchPaths ? m_searchPaths->count : 0; }

HRESULT CZqVstWrapFilterMapper::GetSearchPath(INT index, WCHAR* buffer, INT size, DWORD* flags) {
  if (index < 0 || index >= GetSearchPathCount()) {
    if (buffer && size > 0) buffer[0] = 0;
    return S_FALSE;
  }
  const VstSearchPath* folder = FolderAt(m_searchPaths, index);
  if (buffer && size > 0) lstrcpynW(buffer, folder->Path, size);
  if (flags) *flags = folder->Flags;
  return S_OK;
}

HRESULT CZqVstWrapFilterMapper::SetSearchPath(INT index, const WCHAR* path, DWORD flags) {
  if (!m_searchPaths) {
    const HRESULT made = ZqList_CreateExZ(&m_searchPaths, sizeof(VstSearchPath), 0, 0, ZQLIST_ARRAY, 0, 0, 0);
    if (FAILED(made)) return made;
  }
  const INT count = m_searchPaths->count;
  if (!path || !path[0]) return index >= 0 && index < count ? ZqList_DeleteList(m_searchPaths, index, 1, 0) : S_FALSE;
  if (!IsDirectory(path)) return E_INVALIDARG;
  VstSearchPath folder{};
  lstrcpynW(folder.Path, path, 260);
  if (!ZqVstAddSlash(folder.Path, 260)) return E_INVALIDARG;
  folder.Flags = flags & (VSP_RECURSE | VSP_EFFECTS | VSP_SYNTHS);
  for (INT i = 0; i < count; ++i) {
    const VstSearchPath* held = FolderAt(m_searchPaths, i);
    if (lstrcmpiW(held->Path, folder.Path) == 0 && held->Flags == folder.Flags) return i == index ? S_FALSE : ZQ_E_DUPLICATE;
  }
  if (index < 0 || index >= count) return ZqList_InsertList(m_searchPaths, -1, &folder, 1);
  const HRESULT hr = ZqList_DeleteList(m_searchPaths, index, 1, 0);
  return FAILED(hr) ? hr : ZqList_InsertList(m_searchPaths, index, &folder, 1);
}

HRESULT CZqVstWrapFilterMapper::RemoveSearchPath(const WCHAR* path) {
  for (INT i = 0; path && i < GetSearchPathCount(); ++i)
    if (lstrcmpiW(FolderAt(m_searchPaths, i)->Path, path) == 0) return ZqList_DeleteList(m_searchPaths, i, 1, 0);
  return S_FALSE;
}

HRESULT CZqVstWrapFilterMapper::ClearSearchPaths() {
  if (!m_searchPaths) return S_FALSE;
  return ZqList_DeleteList(m_searchPaths, 0, m_searchPaths->count, 0);
}

INT CZqVstWrapFilterMapper::GetMappingCount() { return ZqVstCache_MappingCount(); }

HRESULT CZqVstWrapFilterMapper::GetMapping(INT index, VstMapping** mapping) {
  tZQLIST* list = *ZqVstCache_Mappings();
  if (!list || index < 0 || index >= list->count) return S_FALSE;
  if (mapping) *mapping = ZqVstMappingAt(list, index);
  return S_OK;
}

HRESULT CZqVstWrapFilterMapper::SaveMapping(const VstMapping* m) {
  if (!m) return E_POINTER;
  return ZqVstUpdateMapping(m->Clsid, m->Path, m->Name, &m->UserFlags, &m->Flags);
}

HRESULT CZqVstWrapFilterMapper::Refresh(IZqProgress* progress, BOOL rescan, BOOL inProcess) {
  return Grovel(nullptr, (rescan ? GROVEL_RESCAN : 0) | (inProcess ? GROVEL_IN_PROCESS : 0), progress, 0, nullptr);
}

HRESULT CZqVstWrapFilterMapper::TestLoad(VstMapping* m, DWORD timeLimitMs, IZqProgress* progress) {
  if (!m) return E_POINTER;
  const bool own = ZqIsFileLoadableInProcess(m->Path);
  IZqVstEffectFactory* factory = own ? m_factory : m_otherFactory;
  if (!factory) return ZQ_E_COMPONENT;
  const HRESULT status = factory->ProbeEffect(m->Path, m->Properties.uniqueID, m->Name, m->Vendor, m->Product,
                                              &m->Properties, timeLimitMs);
  if (status == ZQ_S_IS_SHELL) {
    // The module turned out to be a shell: list it again as one.
    m->Flags |= VMF_NO_ENTRY;
    m->FileTime = FILETIME{};
    SaveMapping(m);
    CLog log;
    ZqVstOpenGrovelLog(m_appName, m_version, FALSE, &log);
    VstSearchPath folder{};
    const WCHAR* fileName = ZqVstFileNameOf(m->Path);
    lstrcpynW(folder.Path, m->Path, static_cast<int>(fileName - m->Path) + 1);
    folder.Flags = VSP_EFFECTS | VSP_SYNTHS;
    WCHAR mask[260];
    lstrcpynW(mask, fileName, 260);
    tZQLIST** list = ZqVstCache_Mappings();
    HRESULT hr = ZqVstGrovelFolder(folder, mask, list, progress, &log, timeLimitMs, own, m_productName);
    if (SUCCEEDED(hr)) hr = ZqVstWriteMappings(*list, TRUE, FALSE, progress, &log);
    log.Shutdown();
    return hr;
  }
  m->Flags &= ~(VMF_SYNTH | VMF_EFFECT | VMF_HAS_EDITOR | VMF_ENABLED | VMF_FAILED | VMF_NO_ENTRY | VMF_BAD_IMAGE);
  if (m->Properties.flags & 0x100) m->Flags |= VMF_SYNTH;
  if (m->Properties.numInputs > 0) m->Flags |= VMF_EFFECT;
  if (m->Properties.flags & 0x1) m->Flags |= VMF_HAS_EDITOR;
  m->Flags |= FAILED(status) ? VMF_FAILED : VMF_ENABLED;
  if (status == HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND)) m->Flags |= VMF_NO_ENTRY;
  if (status == HRESULT_FROM_WIN32(ERROR_BAD_EXE_FORMAT)) m->Flags |= VMF_BAD_IMAGE;
  SaveMapping(m);
  return status;
}

HRESULT ZqVstCreateFilterMapper(IUnknown* outer, REFIID riid, void** object) {
  if (!object) return E_POINTER;
  *object = nullptr;
  if (outer) return CLASS_E_NOAGGREGATION;
  auto* mapper = new (std::nothrow) CZqVstWrapFilterMapper();
  if (!mapper) return E_OUTOFMEMORY;
  const HRESULT hr = mapper->QueryInterface(riid, object);
  mapper->Release();
  return hr;
}
