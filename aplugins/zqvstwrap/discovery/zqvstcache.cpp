#include "aplugins/zqvstwrap/discovery/zqvstcache.h"

#include <cstring>
#include <string>

#include "aplugins/zqvstwrap/discovery/zqvstgrovel.h"
#include "aplugins/zqvstwrap/zqvstclasses.h"
#include "kernel/errorhandler.h"
#include "kernel/lang.h"
#include "platform/file.h"
#include "platform/message.h"
#include "platform/registry.h"
#include "platform/text.h"

namespace {

constexpr const WCHAR* kSource = u"zqvstcache.cpp";
#define ZQVST_CACHE_LOG(log, level, ...)                         \
  do {                                                           \
    if (log) (log)->Write(level, kSource, __LINE__, __VA_ARGS__); \
  } while (0)

// Progress texts of the string resources.
constexpr UINT kTextWritingMappings = 1047;
constexpr UINT kTextWritingPaths = 1048;
constexpr UINT kTextWritingOne = 3;

struct CacheState {
  tZQLIST* mappings = nullptr;
  INT mappingCount = 0;
  IVstHostCache* hostCache = nullptr;
  WCHAR key[260] = {};
};
CacheState g_cache;

// --- Values -------------------------------------------------------------------------

// Binary values are little-endian words whatever the machine.
void PackWords(const DWORD* words, int n, BYTE* bytes) {
  for (int i = 0; i < n; ++i)
    for (int b = 0; b < 4; ++b) bytes[i * 4 + b] = static_cast<BYTE>(words[i] >> (8 * b));
}
void UnpackWords(const BYTE* bytes, int n, DWORD* words) {
  for (int i = 0; i < n; ++i) {
    words[i] = 0;
    for (int b = 0; b < 4; ++b) words[i] |= static_cast<DWORD>(bytes[i * 4 + b]) << (8 * b);
  }
}

// A value of exactly `type` whose bytes fit `size`; binary and word values
// must fill it exactly.  Anything else reads as missing.
bool ReadValue(HKEY key, const WCHAR* name, DWORD type, void* data, DWORD size, bool exact) {
  DWORD actualType = 0;
  DWORD bytes = size;
  if (RegQueryValueExW(key, name, nullptr, &actualType, static_cast<BYTE*>(data), &bytes) != ERROR_SUCCESS)
    return false;
  return actualType == type && (!exact || bytes == size);
}

bool ReadText(HKEY key, const WCHAR* name, WCHAR* text, int chars) {
  std::memset(text, 0, static_cast<size_t>(chars) * sizeof(WCHAR));
  if (!ReadValue(key, name, REG_SZ, text, static_cast<DWORD>(chars) * sizeof(WCHAR), false)) return false;
  text[chars - 1] = 0;  // a stored text need not carry its terminator
  return true;
}

bool ReadDword(HKEY key, const WCHAR* name, DWORD* value) {
  BYTE bytes[4];
  if (!ReadValue(key, name, REG_DWORD, bytes, 4, true)) return false;
  UnpackWords(bytes, 1, value);
  return true;
}

bool ReadWords(HKEY key, const WCHAR* name, DWORD* words, int n) {
  BYTE bytes[64];
  if (!ReadValue(key, name, REG_BINARY, bytes, static_cast<DWORD>(n) * 4, true)) return false;
  UnpackWords(bytes, n, words);
  return true;
}

LSTATUS WriteText(HKEY key, const WCHAR* name, const WCHAR* text, int chars) {
  WCHAR cut[260];
  lstrcpynW(cut, text ? text : u"", chars);
  return RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(cut),
                        static_cast<DWORD>(lstrlenW(cut) + 1) * sizeof(WCHAR));
}

LSTATUS WriteDword(HKEY key, const WCHAR* name, DWORD value) {
  BYTE bytes[4];
  PackWords(&value, 1, bytes);
  return RegSetValueExW(key, name, 0, REG_DWORD, bytes, 4);
}

LSTATUS WriteWords(HKEY key, const WCHAR* name, const DWORD* words, int n) {
  BYTE bytes[64];
  PackWords(words, n, bytes);
  return RegSetValueExW(key, name, 0, REG_BINARY, bytes, static_cast<DWORD>(n) * 4);
}

class Key {
 public:
  Key() = default;
  ~Key() { Close(); }
  Key(const Key&) = delete;
  Key& operator=(const Key&) = delete;
  HKEY* Put() {
    Close();
    return &h_;
  }
  operator HKEY() const { return h_; }
  void Close() {
    if (h_) RegCloseKey(h_);
    h_ = nullptr;
  }

 private:
  HKEY h_ = nullptr;
};

// Opens the cache key and `sub` below it for reading.
bool OpenForReading(const WCHAR* sub, Key* parent, Key* child) {
  if (!g_cache.key[0]) return false;
  if (RegOpenKeyExW(HKEY_CURRENT_USER, g_cache.key, 0, KEY_READ, parent->Put()) != ERROR_SUCCESS) return false;
  return RegOpenKeyExW(*parent, sub, 0, KEY_READ, child->Put()) == ERROR_SUCCESS;
}

// Creates the cache key and `sub` below it, emptied first when the cache
// key existed, so that the subtree is replaced whole.
HRESULT CreateReplaced(const WCHAR* sub, Key* parent, Key* child, CLog* log) {
  DWORD disposition = 0;
  if (RegCreateKeyExW(HKEY_CURRENT_USER, g_cache.key, 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_WRITE, nullptr,
                      parent->Put(), &disposition) != ERROR_SUCCESS) {
    ZQVST_CACHE_LOG(log, ZQLOG_ERROR, u"Failed to open HKCU\\%s for write", g_cache.key);
    return E_FAIL;
  }
  if (disposition == REG_OPENED_EXISTING_KEY) RegDeleteTreeW(*parent, sub);
  if (RegCreateKeyExW(*parent, sub, 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_WRITE, nullptr, child->Put(),
                      nullptr) != ERROR_SUCCESS) {
    ZQVST_CACHE_LOG(log, ZQLOG_ERROR, u"Failed to open HKCU\\%s\\%s for write", g_cache.key, sub);
    return E_FAIL;
  }
  return S_OK;
}

// --- Texts --------------------------------------------------------------------------

void ShowText(IZqProgress* progress, UINT id, const WCHAR* argument = nullptr) {
  if (!progress) return;
  std::u16string text = ZqGetString(ZqLang_GetKernelLang(), id);
  if (argument) {
    const size_t at = text.find(u"%s");
    if (at != std::u16string::npos) text.replace(at, 2, argument);
  }
  progress->SetText(text.c_str());
}

// A plug-in in use that is no longer installed is told to the user with the
// next message box of the action, by name.
void NoteKeptInUse(const VstMapping& m, CLog* log) {
  ZqErrorHandler_DetailsAddString(ZQ_E_PLUGINS_NOT_INSTALLED, u"%s", m.Name);
  ZQVST_CACHE_LOG(log, ZQLOG_WARNING, u"\"%s\" is in use and no longer installed.", m.Name);
}

// --- Lists --------------------------------------------------------------------------

HRESULT CreateMappingList(tZQLIST** list) { return ZqList_CreateExZ(list, 0, 0, 64, ZQLIST_HEAPITEMS, 0, 0, 0); }

HRESULT AppendMapping(tZQLIST* list, const VstMapping& m) {
  return ZqList_AllocAndInsertItem(list, &m, sizeof(m), -1, nullptr);
}

const WCHAR* FileNameOf(const WCHAR* path) {
  const WCHAR* name = path;
  for (const WCHAR* p = path; *p; ++p)
    if (*p == u'/' || *p == u'\\') name = p + 1;
  return name;
}

bool HasModuleExtension(const WCHAR* name) {
  const WCHAR* dot = nullptr;
  for (const WCHAR* p = name; *p; ++p)
    if (*p == u'.') dot = p;
  return dot && lstrcmpiW(dot, u".so") == 0;
}

// --- Reading ------------------------------------------------------------------------

bool ReadStoredMapping(HKEY mappings, const WCHAR* keyName, VstMapping* m) {
  Key key;
  if (RegOpenKeyExW(mappings, keyName, 0, KEY_READ, key.Put()) != ERROR_SUCCESS) return false;
  std::memset(m, 0, sizeof(*m));
  CLSIDFromString(keyName, &m->Clsid);  // a name that is no identifier reads as the null one
  ZqVstMakeClassIds(m->Clsid, nullptr, &m->EditorPageClsid, &m->ParamsPageClsid);
  DWORD properties[9];
  DWORD fileTime[2];
  if (!ReadText(key, u"Path", m->Path, 260) || !ReadText(key, u"Name", m->Name, 64) ||
      !ReadText(key, u"Vendor", m->Vendor, 64) || !ReadText(key, u"Product", m->Product, 64) ||
      !ReadWords(key, u"Properties", properties, 9) || !ReadWords(key, u"FileTime", fileTime, 2) ||
      !ReadDword(key, u"Flags", &m->Flags) || !ReadDword(key, u"UserFlags", &m->UserFlags))
    return false;
  std::memcpy(&m->Properties, properties, sizeof(properties));
  m->FileTime.dwLowDateTime = fileTime[0];
  m->FileTime.dwHighDateTime = fileTime[1];
  return true;
}

// Fills `list` from the store; 1 when there is no mappings key.
HRESULT ReadStoredMappings(tZQLIST* list, BOOL markStale, const tZQLIST* current) {
  Key cache;
  Key mappings;
  if (!OpenForReading(u"Mappings", &cache, &mappings)) return S_FALSE;
  for (DWORD index = 0;; ++index) {
    WCHAR name[40];
    const LSTATUS status = RegEnumKeyW(mappings, index, name, 40);
    if (status == ERROR_MORE_DATA) continue;  // too long for an identifier: not a mapping
    if (status != ERROR_SUCCESS) break;
    VstMapping m;
    if (!ReadStoredMapping(mappings, name, &m)) continue;
    if (markStale) m.State |= VMS_STALE;
    const INT known = ZqVstFindMapping(current, m.Clsid);
    if (known >= 0) m.State |= ZqVstMappingAt(current, known)->State & VMS_LOADED;
    const HRESULT hr = AppendMapping(list, m);
    if (FAILED(hr)) return hr;
  }
  return S_OK;
}

HRESULT ReadHostMappings(tZQLIST* list, BOOL markStale, const tZQLIST* current) {
  IVstHostCache* host = g_cache.hostCache;
  host->BeginMappings(ZQVST_HOSTCACHE_KIND);
  for (DWORD index = 0;; ++index) {
    VstHostCacheItem item;
    std::memset(&item, 0, sizeof(item));
    const HRESULT got = host->GetMapping(index, &item);
    if (FAILED(got)) return got;
    if (got != S_OK) break;
    VstMapping m;
    ZqVstMappingFromHostItem(item, &m);
    if (markStale) m.State |= VMS_STALE;
    const INT known = ZqVstFindMapping(current, m.Clsid);
    if (known >= 0) m.State |= ZqVstMappingAt(current, known)->State & VMS_LOADED;
    const HRESULT hr = AppendMapping(list, m);
    if (FAILED(hr)) return hr;
  }
  return S_OK;
}

// --- Writing ------------------------------------------------------------------------

HRESULT WriteStoredMapping(HKEY mappings, const VstMapping& m, CLog* log) {
  WCHAR name[40];
  StringFromGUID2(m.Clsid, name, 40);
  Key key;
  LSTATUS status = RegCreateKeyExW(mappings, name, 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_WRITE, nullptr,
                                   key.Put(), nullptr);
  if (status == ERROR_SUCCESS) {
    DWORD properties[9];
    std::memcpy(properties, &m.Properties, sizeof(properties));
    const DWORD fileTime[2] = {m.FileTime.dwLowDateTime, m.FileTime.dwHighDateTime};
    if ((status = WriteText(key, u"Path", m.Path, 260)) == ERROR_SUCCESS &&
        (status = WriteText(key, u"Name", m.Name, 64)) == ERROR_SUCCESS &&
        (status = WriteText(key, u"Vendor", m.Vendor, 64)) == ERROR_SUCCESS &&
        (status = WriteText(key, u"Product", m.Product, 64)) == ERROR_SUCCESS &&
        (status = WriteWords(key, u"Properties", properties, 9)) == ERROR_SUCCESS &&
        (status = WriteWords(key, u"FileTime", fileTime, 2)) == ERROR_SUCCESS &&
        (status = WriteDword(key, u"Flags", m.Flags)) == ERROR_SUCCESS)
      status = WriteDword(key, u"UserFlags", m.UserFlags);
  }
  if (status == ERROR_SUCCESS) return S_OK;
  key.Close();
  ZQVST_CACHE_LOG(log, ZQLOG_ERROR, u"Failed while writing mapping subkey for \"%s\".", name);
  RegDeleteTreeW(mappings, name);
  return E_FAIL;
}

bool SameFolder(const VstSearchPath& a, const VstSearchPath& b) {
  return lstrcmpiW(a.Path, b.Path) == 0 && a.Flags == b.Flags &&
         std::memcmp(a.CheckSum, b.CheckSum, sizeof(a.CheckSum)) == 0;
}

// --- Folders ------------------------------------------------------------------------

void DispatchWaitingMessages() {
  MSG msg;
  while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) {
    TranslateMessage(&msg);
    DispatchMessageW(&msg);
  }
}

HRESULT SumFolder(const WCHAR* folder, DWORD flags, IZqProgress* progress, DWORD sums[4]) {
  DispatchWaitingMessages();
  if (progress) {
    const HRESULT asked = progress->IsCancelled();
    if (FAILED(asked)) return asked;
  }
  std::u16string pattern = std::u16string(folder) + u"*";
  WIN32_FIND_DATAW found;
  const HANDLE search = FindFirstFileW(pattern.c_str(), &found);
  if (search == INVALID_HANDLE_VALUE) return S_OK;
  HRESULT hr = S_OK;
  do {
    if (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
      if (!(flags & VSP_RECURSE) || found.cFileName[0] == u'.') continue;
      const std::u16string sub = std::u16string(folder) + found.cFileName + u"/";
      if (sub.size() >= 260) continue;
      hr = SumFolder(sub.c_str(), flags, progress, sums);
    } else if (HasModuleExtension(found.cFileName)) {
      sums[0] += found.ftLastWriteTime.dwLowDateTime;
      sums[1] += found.ftLastWriteTime.dwHighDateTime;
      sums[2] += found.nFileSizeLow;
      sums[3] += found.nFileSizeHigh;
    }
  } while (SUCCEEDED(hr) && FindNextFileW(search, &found));
  FindClose(search);
  return hr;
}

GUID WithHostHash(GUID guid, WORD host) {
  guid.Data4[0] = static_cast<BYTE>(host & 0xFF);
  guid.Data4[1] = static_cast<BYTE>(host >> 8);
  return guid;
}

// The identifier of `m` in the role of `like`.
CLSID InRoleOf(const VstMapping& m, REFCLSID like) {
  switch (ZqVstRoleOf(like)) {
    case ZQVSTROLE_EDITOR_PAGE:
      return m.EditorPageClsid;
    case ZQVSTROLE_PARAMS_PAGE:
      return m.ParamsPageClsid;
    default:
      return m.Clsid;
  }
}

}  // namespace

// --- Process-wide state ------------------------------------------------------------------

void ZqVstCache_Bind(const WCHAR* appName, DWORD version, IVstHostCache* hostCache) {
  if (hostCache) hostCache->AddRef();
  if (g_cache.hostCache) g_cache.hostCache->Release();
  g_cache.hostCache = hostCache;
  WCHAR app[64];
  lstrcpynW(app, appName ? appName : u"", 64);
  const std::string numbers = "\\" + std::to_string(version >> 24) + "." + std::to_string((version >> 16) & 0xFF);
  std::u16string key = std::u16string(u"Software\\Ostrand\\") + app + std::u16string(numbers.begin(), numbers.end()) +
                       u"\\Metrics\\VstCache";
  lstrcpynW(g_cache.key, key.c_str(), 260);
}

const WCHAR* ZqVstCache_KeyName() { return g_cache.key; }

IVstHostCache* ZqVstCache_HostCache() { return g_cache.hostCache; }

tZQLIST** ZqVstCache_Mappings() { return &g_cache.mappings; }

INT ZqVstCache_MappingCount() { return g_cache.mappingCount; }

void ZqVstCache_SetMappingCount(INT count) { g_cache.mappingCount = count; }

void ZqVstCache_Destroy() {
  ZqList_Destroy(g_cache.mappings);
  g_cache.mappings = nullptr;
  g_cache.mappingCount = 0;
  if (g_cache.hostCache) g_cache.hostCache->Release();
  g_cache.hostCache = nullptr;
  g_cache.key[0] = 0;
}

// --- The mapping list ------------------------------------------------------------------

INT ZqVstFindMapping(const tZQLIST* list, REFCLSID clsid) {
  if (!list || ZqVstRoleOf(clsid) == ZQVSTROLE_NONE) return -1;
  for (INT i = 0; i < list->count; ++i) {
    const VstMapping* m = ZqVstMappingAt(list, i);
    if (IsEqualGUID(m->Clsid, clsid) || IsEqualGUID(m->EditorPageClsid, clsid) ||
        IsEqualGUID(m->ParamsPageClsid, clsid))
      return i;
  }
  return -1;
}

HRESULT ZqVstCache_EnterMapping(const VstMapping& mapping) {
  if (ZqVstRoleOf(mapping.Clsid) != ZQVSTROLE_FILTER) return E_INVALIDARG;
  if (!g_cache.mappings) {
    const HRESULT made = CreateMappingList(&g_cache.mappings);
    if (FAILED(made)) return made;
  }
  VstMapping copy = mapping;
  ZqVstMakeClassIds(copy.Clsid, nullptr, &copy.EditorPageClsid, &copy.ParamsPageClsid);
  copy.Path[259] = 0;
  copy.Name[63] = 0;
  copy.Vendor[63] = 0;
  copy.Product[63] = 0;
  const INT known = ZqVstFindMapping(g_cache.mappings, copy.Clsid);
  if (known >= 0) {
    VstMapping* old = ZqVstMappingAt(g_cache.mappings, known);
    copy.State |= old->State & VMS_LOADED;
    *old = copy;
    return S_OK;
  }
  tZQLIST* list = g_cache.mappings;
  const INT at = g_cache.mappingCount < list->count ? g_cache.mappingCount : list->count;
  const HRESULT hr = ZqList_AllocAndInsertItem(list, &copy, sizeof(copy), at, nullptr);
  if (SUCCEEDED(hr)) g_cache.mappingCount = at + 1;
  return hr;
}

HRESULT ZqVstCache_SetLoaded(REFCLSID clsid) {
  const INT index = ZqVstFindMapping(g_cache.mappings, clsid);
  if (index < 0) return ZQ_E_NOT_FOUND;
  VstMapping* m = ZqVstMappingAt(g_cache.mappings, index);
  m->State |= VMS_LOADED;
  if (g_cache.hostCache) g_cache.hostCache->SetMappingLoaded(m->Clsid, -1);
  return S_OK;
}

int ZQ_STDCALL ZqVstCompareMappings(UINT_PTR, const void* a, const void* b) {
  const auto* x = static_cast<const VstMapping*>(a);
  const auto* y = static_cast<const VstMapping*>(b);
  if (y->Flags & VMF_FAILED) return (x->Flags & VMF_FAILED) ? 0 : -1;
  if (x->Flags & VMF_FAILED) return 1;
  return lstrcmpW(x->Name, y->Name);
}

void ZqVstMakeClassIds(REFGUID base, CLSID* filter, CLSID* editorPage, CLSID* paramsPage) {
  ZqVstMakeRoleClsids(base, filter, editorPage, paramsPage);
}

// --- Search folders ------------------------------------------------------------------------

HRESULT ZqVstReadSearchPaths(tZQLIST** list) {
  *list = nullptr;
  tZQLIST* made = nullptr;
  HRESULT hr = ZqList_CreateExZ(&made, sizeof(VstSearchPath), 0, 0, ZQLIST_ARRAY, 0, 0, 0);
  if (FAILED(hr)) return hr;
  auto append = [&made](VstSearchPath& folder) {
    folder.Found = 1;
    const HRESULT added = ZqList_InsertList(made, -1, &folder, 1);
    if (FAILED(added)) {
      ZqList_Destroy(made);
      made = nullptr;
    }
    return added;
  };

  if (IVstHostCache* host = g_cache.hostCache) {
    for (DWORD index = 0;; ++index) {
      VstSearchPath folder{};
      DWORD recursive = 0, effects = 0, synths = 0;
      BYTE sums[16] = {};
      if (host->GetSearchPath(index, folder.Path, 260, &recursive, &effects, &synths, sums) != S_OK) break;
      folder.Path[259] = 0;
      folder.Flags = ((recursive & 1) ? VSP_RECURSE : 0) | ((effects & 1) ? VSP_EFFECTS : 0) |
                     ((synths & 1) ? VSP_SYNTHS : 0);
      UnpackWords(sums, 4, folder.CheckSum);
      if (FAILED(hr = append(folder))) return hr;
    }
    *list = made;
    return S_OK;
  }

  Key cache;
  Key paths;
  if (!OpenForReading(u"SearchPaths", &cache, &paths)) {
    *list = made;
    return S_FALSE;
  }
  for (DWORD index = 0;; ++index) {
    WCHAR name[260];
    const LSTATUS status = RegEnumKeyW(paths, index, name, 260);
    if (status == ERROR_MORE_DATA) continue;
    if (status != ERROR_SUCCESS) break;
    Key sub;
    VstSearchPath folder{};
    if (RegOpenKeyExW(paths, name, 0, KEY_READ, sub.Put()) != ERROR_SUCCESS ||
        !ReadText(sub, u"Path", folder.Path, 260) || !ReadDword(sub, u"Flags", &folder.Flags) ||
        !ReadWords(sub, u"CheckSum", folder.CheckSum, 4))
      continue;
    if (FAILED(hr = append(folder))) return hr;
  }
  *list = made;
  return S_OK;
}

HRESULT ZqVstWriteSearchPaths(const tZQLIST* list, BOOL flush, IZqProgress* progress, CLog* log) {
  ShowText(progress, kTextWritingPaths);
  const INT count = list ? list->count : 0;
  auto folderAt = [list](INT i) { return static_cast<const VstSearchPath*>(ZqList_ArrayItem(list, i)); };

  if (IVstHostCache* host = g_cache.hostCache) {
    ZQVST_CACHE_LOG(log, ZQLOG_INFO, u"**** Writing search paths to host cache****");
    for (INT i = 0; i < count; ++i) {
      const VstSearchPath* f = folderAt(i);
      ZQVST_CACHE_LOG(log, ZQLOG_INFO, u"Adding path \"%s\"...", f->Path);
      BYTE sums[16];
      PackWords(f->CheckSum, 4, sums);
      DWORD index = static_cast<DWORD>(i);
      if (FAILED(host->AddSearchPath(&index, f->Path, (f->Flags & VSP_RECURSE) ? -1 : 0,
                                     (f->Flags & VSP_EFFECTS) ? -1 : 0, (f->Flags & VSP_SYNTHS) ? -1 : 0, sums))) {
        ZQVST_CACHE_LOG(log, ZQLOG_ERROR, u"Failed while writing path cache item.");
        return E_FAIL;
      }
    }
    return S_OK;
  }

  ZQVST_CACHE_LOG(log, ZQLOG_INFO, u"**** Writing search paths to registry ****");
  Key cache;
  Key paths;
  HRESULT hr = CreateReplaced(u"SearchPaths", &cache, &paths, log);
  if (FAILED(hr)) return hr;
  for (INT i = 0; i < count; ++i) {
    const VstSearchPath* f = folderAt(i);
    ZQVST_CACHE_LOG(log, ZQLOG_INFO, u"Adding path \"%s\"...", f->Path);
    const std::string number = "Path " + std::to_string(i + 1);
    const std::u16string name(number.begin(), number.end());
    Key sub;
    LSTATUS status = RegCreateKeyExW(paths, name.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_WRITE, nullptr,
                                     sub.Put(), nullptr);
    if (status == ERROR_SUCCESS && (status = WriteText(sub, u"Path", f->Path, 260)) == ERROR_SUCCESS &&
        (status = WriteDword(sub, u"Flags", f->Flags)) == ERROR_SUCCESS)
      status = WriteWords(sub, u"CheckSum", f->CheckSum, 4);
    if (status != ERROR_SUCCESS) {
      sub.Close();
      ZQVST_CACHE_LOG(log, ZQLOG_ERROR, u"Failed while writing path subkey.");
      RegDeleteTreeW(paths, name.c_str());
      return E_FAIL;
    }
  }
  if (flush) RegFlushKey(paths);
  return S_OK;
}

// --- Mappings ------------------------------------------------------------------------------

HRESULT ZqVstReadMappings(tZQLIST** list, BOOL markStale, BOOL skipHostCache) {
  tZQLIST* made = nullptr;
  HRESULT hr = CreateMappingList(&made);
  if (FAILED(hr)) return hr;
  if (g_cache.hostCache)
    hr = skipHostCache ? S_OK : ReadHostMappings(made, markStale, *list);
  else
    hr = ReadStoredMappings(made, markStale, *list);
  if (FAILED(hr)) {
    ZqList_Destroy(made);
    return hr;
  }
  ZqList_Sort(made, 0, ZqVstCompareMappings);
  ZqList_Destroy(*list);
  *list = made;
  return hr;
}

HRESULT ZqVstWriteMappings(tZQLIST* list, BOOL purge, BOOL flush, IZqProgress* progress, CLog* log) {
  ShowText(progress, kTextWritingMappings);
  g_cache.mappingCount = 0;
  IVstHostCache* host = g_cache.hostCache;
  Key cache;
  Key mappings;
  if (host) {
    ZQVST_CACHE_LOG(log, ZQLOG_INFO, u"**** Writing mappings to cache ****");
    host->ClearMappings(ZQVST_HOSTCACHE_KIND);
  } else {
    ZQVST_CACHE_LOG(log, ZQLOG_INFO, u"**** Writing mappings to registry ****");
    const HRESULT hr = CreateReplaced(u"Mappings", &cache, &mappings, log);
    if (FAILED(hr)) return hr;
  }

  VstHostCacheItem item;
  for (INT i = (list ? list->count : 0) - 1; i >= 0; --i) {
    VstMapping* m = ZqVstMappingAt(list, i);
    // The host's cache may be slow; its window stays alive meanwhile.
    if (host) ZqVstPumpCheckCancel();
    if (purge && (m->State & VMS_STALE)) {
      if (m->State & VMS_LOADED) {
        NoteKeptInUse(*m, log);
        continue;
      }
      if (host) {
        ZqVstMappingToHostItem(*m, &item);
        host->RemoveMapping(&item);
      } else {
        WCHAR name[40];
        StringFromGUID2(m->Clsid, name, 40);
        RegDeleteTreeW(mappings, name);
      }
      ZqList_DeleteList(list, i, 1, 0);
      continue;
    }
    if (host) {
      if (m->Name[0]) ShowText(progress, kTextWritingOne, m->Name);
      ZqVstMappingToHostItem(*m, &item);
      if (FAILED(host->PutMapping(&item))) {
        ZQVST_CACHE_LOG(log, ZQLOG_ERROR, u"Failed while writing mapping cache for \"%s\".", m->Name);
        return E_FAIL;
      }
    } else if (FAILED(WriteStoredMapping(mappings, *m, log))) {
      return E_FAIL;
    }
    ++g_cache.mappingCount;
  }
  if (flush && !host) RegFlushKey(mappings);
  return S_OK;
}

HRESULT ZqVstUpdateMapping(REFCLSID clsid, const WCHAR* path, const WCHAR* name, const DWORD* userFlags,
                           const DWORD* flags) {
  if (IVstHostCache* host = g_cache.hostCache) {
    VstHostCacheItem item;
    std::memset(&item, 0, sizeof(item));
    host->InitMappingItem(clsid, &item);
    ZqVstFillPartialHostItem(path, name, userFlags, flags, &item);
    return host->PutMapping(&item);
  }
  if (!g_cache.key[0]) return S_OK;
  WCHAR id[40];
  StringFromGUID2(clsid, id, 40);
  const std::u16string at = std::u16string(g_cache.key) + u"\\Mappings\\" + id;
  Key key;
  if (RegOpenKeyExW(HKEY_CURRENT_USER, at.c_str(), 0, KEY_SET_VALUE, key.Put()) != ERROR_SUCCESS) return S_OK;
  LSTATUS status = ERROR_SUCCESS;
  if (path) status = WriteText(key, u"Path", path, 260);
  if (status == ERROR_SUCCESS && name) status = WriteText(key, u"Name", name, 64);
  if (status == ERROR_SUCCESS && userFlags) status = WriteDword(key, u"UserFlags", *userFlags);
  if (status == ERROR_SUCCESS && flags) status = WriteDword(key, u"Flags", *flags);
  return HRESULT_FROM_WIN32(status);
}

HRESULT ZqVstRenameMapping(VstMapping* mapping, const WCHAR* name) {
  if (!mapping || !name) return E_POINTER;
  const HRESULT hr = ZqVstUpdateMapping(mapping->Clsid, nullptr, name, nullptr, nullptr);
  if (SUCCEEDED(hr)) lstrcpynW(mapping->Name, name, 64);
  return hr;
}

HRESULT ZqVstDeleteCache() {
  if (!g_cache.key[0]) return S_OK;
  const LSTATUS status = RegDeleteTreeW(HKEY_CURRENT_USER, g_cache.key);
  return status == ERROR_FILE_NOT_FOUND ? S_OK : HRESULT_FROM_WIN32(status);
}

// --- Folders -----------------------------------------------------------------------------------

HRESULT ZqVstComputeCheckSum(VstSearchPath* folder, IZqProgress* progress) {
  DWORD sums[4] = {};
  const HRESULT hr = SumFolder(folder->Path, folder->Flags, progress, sums);
  if (FAILED(hr)) return hr;
  std::memcpy(folder->CheckSum, sums, sizeof(sums));
  return S_OK;
}

BOOL ZqVstSearchPathsChanged(const tZQLIST* current, const tZQLIST* stored) {
  const INT count = current ? current->count : 0;
  const INT storedCount = stored ? stored->count : 0;
  BOOL changed = count != storedCount;
  for (INT i = 0; i < count; ++i) {
    auto* folder = static_cast<VstSearchPath*>(ZqList_ArrayItem(current, i));
    folder->Found = 0;
    for (INT j = 0; j < storedCount && !folder->Found; ++j)
      if (SameFolder(*folder, *static_cast<const VstSearchPath*>(ZqList_ArrayItem(stored, j)))) folder->Found = 1;
    if (!folder->Found) changed = TRUE;
  }
  return changed;
}

// --- Identifiers of projects saved elsewhere ---------------------------------------------------

HRESULT ZqVstTranslateClsid(const tZQLIST* list, GUID* guid) {
  const GUID given = guid ? *guid : GUID_NULL;
  if (ZqVstRoleOf(given) == ZQVSTROLE_NONE) return ZQ_E_NOT_FOUND;
  INT exact = ZqVstFindMapping(list, given);
  if (exact >= 0) {
    const VstMapping* m = ZqVstMappingAt(list, exact);
    const bool agrees = given.Data1 == static_cast<DWORD>(m->Properties.uniqueID) &&
                        given.Data3 == ZqVstNameHash(m->Name) && given.Data2 == ZqVstNameHash(FileNameOf(m->Path));
    return agrees ? S_FALSE : E_UNEXPECTED;
  }
  INT chosen = ZqVstFindMapping(list, WithHostHash(given, ZqVstHostPathHash()));
  if (chosen < 0 && list) {
    // Same unique id; a name hash match beats a file hash match, which beats
    // the id alone.
    bool idMark = false, fileMark = false, nameMark = false;
    INT fileIndex = -1;
    for (INT i = 0; i < list->count && !(idMark && fileMark && nameMark); ++i) {
      const VstMapping* m = ZqVstMappingAt(list, i);
      if (m->Properties.uniqueID != static_cast<LONG>(given.Data1)) continue;
      if (!idMark) {
        chosen = i;
        idMark = true;
      }
      if (!fileMark && !nameMark && m->Clsid.Data2 == given.Data2) {
        chosen = fileIndex = i;
        fileMark = true;
      }
      if (!nameMark && m->Clsid.Data3 == given.Data3) {
        chosen = i;
        nameMark = true;
        fileMark = fileIndex == i;
      }
    }
  }
  if (chosen < 0) return ZQ_E_NOT_FOUND;
  if (guid) *guid = InRoleOf(*ZqVstMappingAt(list, chosen), given);
  return S_OK;
}
