// The language handle: opening and closing, the string table, string
// resources and their cache, the temporary ring, and the language choice.
#include "kernel/lang.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <iterator>

#include "kernel/langres.h"
#include "kernel/langtable.h"
#include "kernel/langsys.h"
#include "kernel/memory.h"
#include "platform/module.h"
#include "platform/text.h"

namespace {

constexpr HRESULT kOutOfMemory = static_cast<HRESULT>(0x8007000Eu);

// The shared empty text: a failed lookup answers it and clears it again, in
// case a caller wrote into it.
WCHAR g_empty[1];

LPCWSTR Empty() {
  g_empty[0] = 0;
  return g_empty;
}

std::atomic<HZQLANG> g_kernelLang{nullptr};

UINT Primary(UINT lcid) { return lcid & 0x3FF; }

// One record of the string cache: the resource number and the text with its
// terminator.
struct CachedString {
  UINT id;
  UINT reserved;
  WCHAR text[1];
};
constexpr size_t kCachedHeader = offsetof(CachedString, text);

int ZQ_STDCALL CompareCached(UINT_PTR, const void* key, const void* item) {
  const UINT a = *static_cast<const UINT*>(key);
  const UINT b = static_cast<const CachedString*>(item)->id;
  return a < b ? -1 : a > b ? 1 : 0;
}

// The language at 0-based `index` of the table's language list.  Index 18
// lies one word past the list, on the first entry's marker and column
// count: the resource path of the last column reads exactly that.
DWORD LanguageAtIndex(int index) {
  DWORD lcid;
  std::memcpy(&lcid, reinterpret_cast<const BYTE*>(&g_zqLangTable) + sizeof(DWORD) * index, sizeof lcid);
  return lcid;
}

int ColumnOf(HZQLANG h) {
  int index = h->langIndex;
  if (index >= 1) return index;
  index = 1;
  const UINT wanted = ZqLang_GetConditionedLCID(h->lcid ? h->lcid : GetUserDefaultUILanguage());
  for (int i = 0; i < ZQLANG_COLUMNS; ++i) {
    if (ZqLang_GetConditionedLCID(g_zqLangTable.lcids[i]) == wanted) {
      index = i + 1;
      break;
    }
  }
  // Racing threads compute the same value.
  __atomic_store_n(&h->langIndex, index, __ATOMIC_RELAXED);
  return index;
}

// Removes a leading "^*" in place; answers the characters removed.
int StripMarker(WCHAR* text) {
  if (text[0] != u'^' || text[1] != u'*') return 0;
  std::memmove(text, text + 2, (lstrlenW(text + 2) + 1) * sizeof(WCHAR));
  return 2;
}

// Copies a counted string resource into dst, without a terminator inside the
// count; answers the length copied.
int CopyCounted(const WCHAR* text, int count, LPWSTR dst, int cch) {
  if (count > 0 && text[count - 1] == 0) --count;
  const int n = std::min(count, cch - 1);
  std::memcpy(dst, text, n * sizeof(WCHAR));
  dst[n] = 0;
  return n;
}

void FlushCache(HZQLANG h) {
  if (!h->stringCache) return;
  EnterCriticalSection(&h->lock);
  ZqList_DeleteList(h->stringCache, 0, -1, 1);
  LeaveCriticalSection(&h->lock);
}

}  // namespace

// ---------------------------------------------------------------------------
// Opening and closing.
// ---------------------------------------------------------------------------

ZQ_API HRESULT ZqLang_Open(HZQLANG* handle, HMODULE instance, UINT lcid, UINT tempChars) {
  if (*handle) return ZQLANG_S_ALREADY_OPEN;
  auto* h = static_cast<HZQLANG>(ZqMemory_AllocZ(sizeof(tZQLANG)));
  if (!h) return kOutOfMemory;
  h->instance = instance;
  InitializeCriticalSection(&h->lock);
  h->lockReady = 1;
  h->tempChars = tempChars == 0 ? ZQLANG_TEMP_DEFAULT : tempChars <= ZQLANG_TEMP_MINIMUM ? ZQLANG_TEMP_MINIMUM : tempChars;
  h->tempReserve = ZQLANG_TEMP_RESERVE;
  h->tempBuffer = static_cast<WCHAR*>(ZqMemory_AllocZ(h->tempChars * sizeof(WCHAR)));
  if (!h->tempBuffer) {
    ZqLang_Close(h);
    return kOutOfMemory;
  }
  h->lcid = lcid;
  h->useLangModule = lcid != 0 && !ZqLang_IsLCIDEnglish(lcid);
  h->langModule = ZqLang_LoadLanguageModule(instance);
  const HRESULT hr = ZqList_CreateExZ(&h->stringCache, 0, 16, 16, ZQLIST_HEAPITEMS, 0, 0, 0);
  if (FAILED(hr)) {
    // Nothing is left behind: the ring and the record go too.
    h->stringCache = nullptr;
    ZqLang_Close(h);
    return hr;
  }
  *handle = h;
  return 0;
}

ZQ_API HRESULT ZqLang_Close(HZQLANG h) {
  if (!h) return 0;
  if (h->lockReady) DeleteCriticalSection(&h->lock);
  if (h->langModule && h->langModule != h->instance) FreeLibrary(h->langModule);
  ZqMemory_Free(h->tempBuffer);
  ZqList_Destroy(h->stringCache);
  ZqMemory_Free(h);
  return 0;
}

ZQ_API HZQLANG ZqLang_GetKernelLang() { return g_kernelLang.load(); }

void ZqLang_SetKernelLang(HZQLANG h) { g_kernelLang.store(h); }

// ---------------------------------------------------------------------------
// Strings.
// ---------------------------------------------------------------------------

const WCHAR* ZqLangStatusEntry(HRESULT status) {
  const DWORD code = static_cast<DWORD>(status);
  const auto* end = std::end(kZqStatusEntries);
  const auto* row = std::lower_bound(std::begin(kZqStatusEntries), end, code,
                                     [](const ZqStatusEntry& e, DWORD c) { return e.code < c; });
  return row != end && row->code == code ? ZqLangEntry(row->entry) : nullptr;
}

ZQ_API BOOL IsZQLANGSTRINGID(HZQLANG, LPCWSTR p) {
  const auto v = reinterpret_cast<UINT_PTR>(p);
  return p && v > 0xFFFF && (v & 3) == 0 && p[0] == ZQLANG_ENTRY_MARKER;
}

ZQ_EXPORT LPCWSTR ZqGetString(HZQLANG h, const WCHAR* const* entryRef) {
  auto* entry = reinterpret_cast<tZQLANGENTRY*>(const_cast<WCHAR**>(entryRef));
  if (!entry) return Empty();
  if (!h) h = g_kernelLang.load();
  const int columns = entry->columns & 0xFF;
  int column = h ? ColumnOf(h) : 1;
  column = std::clamp(column, 1, std::max(columns, 1));
  UINT_PTR* slot = &entry->values[column - 1];
  const UINT_PTR value = __atomic_load_n(slot, __ATOMIC_ACQUIRE);
  if (value >= 0x10000) return reinterpret_cast<LPCWSTR>(value);
  // A resource number: fetched once, then the column holds the text.
  const WCHAR* text = nullptr;
  const int count =
      h ? ZqResource_FindString(h->langModule, static_cast<UINT>(value),
                                static_cast<WORD>(LanguageAtIndex(column)), &text)
        : 0;
  UINT_PTR final = count > 0 && text[count - 1] == 0 ? reinterpret_cast<UINT_PTR>(text)
                                                       : __atomic_load_n(&entry->values[0], __ATOMIC_ACQUIRE);
  __atomic_store_n(slot, final, __ATOMIC_RELEASE);
  return reinterpret_cast<LPCWSTR>(final);
}

ZQ_EXPORT int ZqLoadString(HZQLANG h, UINT id, LPWSTR dst, int cch) {
  if (!dst || cch < 1) return 0;
  dst[0] = 0;
  if (!h) return 0;
  const WCHAR* text = nullptr;
  int count = 0;
  if (h->langModule && h->useLangModule) count = ZqResource_FindString(h->langModule, id, h->lcid, &text);
  if (count == 0) {
    if (h->instance == h->langModule) {
      count = ZqResource_FindString(h->langModule, id, 0x409, &text);
    } else {
      // The module's own strings: its neutral form, else English.
      count = ZqResource_FindString(h->instance, id, ZQ_LANG_NEUTRAL, &text);
      if (count == 0) count = ZqResource_FindString(h->instance, id, 0x409, &text);
    }
  }
  if (count == 0) return 0;
  const int n = CopyCounted(text, count, dst, cch);
  return n - StripMarker(dst);
}

ZQ_EXPORT int ZqLoadString(HZQLANG h, const WCHAR* const* entry, LPWSTR dst, int cch) {
  if (!dst || cch < 1) return 0;
  lstrcpynW(dst, ZqGetString(h, entry), cch);
  return lstrlenW(dst) - StripMarker(dst);
}

ZQ_EXPORT LPCWSTR ZqGetString(HZQLANG h, UINT id) {
  if (!h || !h->stringCache) return Empty();
  EnterCriticalSection(&h->lock);
  tZQLIST* cache = h->stringCache;
  const int found = ZqList_FindSortedItemRange(cache, &id, 0, -1, CompareCached);
  LPCWSTR result = nullptr;
  if (found >= 0) {
    result = static_cast<CachedString*>(cache->items[found])->text;
  } else {
    WCHAR buffer[1024];
    const int length = ZqLoadString(h, id, buffer, 1024);
    if (length > 0) {
      const UINT size = static_cast<UINT>(kCachedHeader + (length + 1) * sizeof(WCHAR));
      void* item = nullptr;
      if (SUCCEEDED(ZqList_AllocItem(cache, size, &item))) {
        auto* record = static_cast<CachedString*>(item);
        record->id = id;
        std::memcpy(record->text, buffer, (length + 1) * sizeof(WCHAR));
        const int at = ZqList_FindSortedInsertIndexRange(cache, &id, 0, -1, CompareCached);
        if (SUCCEEDED(ZqList_InsertList(cache, at, nullptr, -1))) {
          result = record->text;
        } else {
          ZqList_DeleteList(cache, -1, -1, 0);
        }
      }
    }
  }
  LeaveCriticalSection(&h->lock);
  return result ? result : Empty();
}

ZQ_API LPCWSTR ZqGetStringSmart(HZQLANG h, LPCWSTR p) {
  if (!p) return nullptr;
  const auto v = reinterpret_cast<UINT_PTR>(p);
  if (v < 0x10000) return ZqGetString(h, static_cast<UINT>(v));
  if (!IsZQLANGSTRINGID(h, p)) return p;
  return ZqGetString(h, reinterpret_cast<const WCHAR* const*>(p));
}

ZQ_API LPWSTR ZqGetTempStringBuffer(HZQLANG h, UINT cch) {
  if (!h || !h->tempBuffer) return nullptr;
  EnterCriticalSection(&h->lock);
  if (h->tempPos > h->tempChars - h->tempReserve) h->tempPos = 0;
  WCHAR* result = h->tempBuffer + h->tempPos;
  if (cch == 0) result[0] = 0;
  h->tempPos = (h->tempPos + cch + 2) & ~1u;
  LeaveCriticalSection(&h->lock);
  return result;
}

ZQ_API LPCWSTR ZqGetWideFromPrintString(HZQLANG h, LPCWSTR text) {
  return h && h->tempBuffer ? text : Empty();
}

ZQ_API LPCWSTR ZqGetPrintFromWideString(HZQLANG h, LPCWSTR text) {
  return h && h->tempBuffer ? text : Empty();
}

ZQ_API LPCSTR ZqGetMultiByteFromPrintString(HZQLANG h, LPCWSTR text) {
  static char empty[1];
  const int length = lstrlenW(text);
  const UINT chars = 2 * length + 2;
  char* dst = reinterpret_cast<char*>(ZqGetTempStringBuffer(h, chars));
  if (!dst) {
    empty[0] = 0;
    return empty;
  }
  const int bytes = chars * sizeof(WCHAR);
  const int n = length ? WideCharToMultiByte(CP_ACP, 0, text, length, dst, bytes - 1, nullptr, nullptr) : 0;
  dst[std::max(n, 0)] = 0;
  return dst;
}

ZQ_API LPCWSTR ZqGetPrintFromMultiByteString(HZQLANG h, LPCSTR text) {
  const int length = text ? static_cast<int>(std::strlen(text)) : 0;
  WCHAR* dst = ZqGetTempStringBuffer(h, length);
  if (!dst) return Empty();
  // UTF-8 never yields more characters than bytes, and the ring gives two
  // characters beyond the length asked for.
  const int n = length ? MultiByteToWideChar(CP_ACP, 0, text, length, dst, length + 1) : 0;
  dst[std::max(n, 0)] = 0;
  return dst;
}

// ---------------------------------------------------------------------------
// Language.
// ---------------------------------------------------------------------------

ZQ_API UINT ZqLang_GetLCID(HZQLANG h) { return h ? h->lcid : 0; }

ZQ_API UINT ZqLang_GetConditionedLCID(UINT lcid) {
  const UINT primary = Primary(lcid);
  const UINT sub = (lcid & 0xFFFF) >> 10;
  if (primary == 4) return sub == 1 || sub == 3 || sub == 5 ? 0x404 : 0x804;
  if (primary == 22) return lcid;
  return primary | 0x400;
}

ZQ_API BOOL ZqLang_IsLCIDEnglish(UINT lcid) { return Primary(lcid) == 9; }

ZQ_API BOOL ZqLang_UseRTL(HZQLANG h) {
  if (!h) return 0;
  const UINT p = Primary(h->lcid);
  return p == 1 || p == 13 || p == 32 || p == 41;
}

ZQ_API void ZqLang_EnableProcessMirroring() { SetProcessDefaultLayout(1); }

ZQ_API void ZqLang_DisableProcessMirroring() { SetProcessDefaultLayout(0); }

ZQ_API BOOL ZqLang_ChangeLangInst(HZQLANG h, HMODULE module) {
  HZQLANG kernel = g_kernelLang.load();
  if (!kernel || !h) return 0;
  if (!module) return 1;
  h->langModule = module;
  kernel->langModule = module;
  return 1;
}

ZQ_API HMODULE ZqLang_InstFromLang(HZQLANG h) {
  if (!h) return nullptr;
  return h->langModule && h->useLangModule ? h->langModule : h->instance;
}

ZQ_API BOOL ZqLang_UpdateKernelLCID(HZQLANG h, UINT lcid, UINT) {
  HZQLANG kernel = g_kernelLang.load();
  if (!h || !kernel) return 0;
  if (lcid == 0) lcid = 0x409;
  for (HZQLANG each : {h, kernel}) {
    if (each->lcid == lcid) continue;
    __atomic_store_n(&each->langIndex, 0, __ATOMIC_RELAXED);
    each->lcid = lcid;
    FlushCache(each);
  }
  const DWORD use = ZqLang_IsLCIDEnglish(h->lcid) ? 0 : 1;
  h->useLangModule = use;
  kernel->useLangModule = use;
  SetProcessDefaultLayout(ZqLang_UseRTL(h) ? 1 : 0);
  return 1;
}

ZQ_API void ZqLang_UpdateThreadLocale(HZQLANG h) {
  if (!h) return;
  SetThreadLocale(h->lcid);
  SetThreadUILanguage(static_cast<WORD>(h->lcid));
}

ZQ_API BOOL ZqLang_IsNameOrderReversed(HZQLANG h) { return h && h->lcid == 1041; }

ZQ_API int ZqLang_LocalizeUserName(HZQLANG h, LPCWSTR first, LPCWSTR last, LPWSTR dst, int size) {
  if (!dst || size < 1) return 0;
  const bool reversed = ZqLang_IsNameOrderReversed(h);
  LPCWSTR a = reversed ? last : first;
  LPCWSTR b = reversed ? first : last;
  lstrcpynW(dst, a ? a : u"", size);
  int length = lstrlenW(dst);
  if (length + 1 < size) {
    dst[length++] = u' ';
    lstrcpynW(dst + length, b ? b : u"", size - length);
  }
  return lstrlenW(dst);
}

ZQ_API int ZqLang_GetLangllCC(HZQLANG h, LPWSTR dst, int size) {
  static constexpr struct {
    UINT primary;
    const WCHAR* text;
  } kCodes[] = {{4, u"zh-CN"}, {7, u"de-DE"}, {10, u"es-ES"}, {12, u"fr-FR"},
                {17, u"ja-JP"}, {21, u"pl-PL"}, {25, u"ru-RU"}};
  if (dst && size > 0) dst[0] = 0;
  const UINT primary = Primary(ZqLang_GetLCID(h));
  for (const auto& c : kCodes) {
    if (c.primary == primary) {
      if (dst && size > 0) lstrcpynW(dst, c.text, size);
      return 0;
    }
  }
  return 1;
}

ZQ_API BOOL ZqLang_DetectMultiByteCharacters(LPCSTR bytes, int size) {
  if (!bytes || size < 2) return 0;
  const auto* p = reinterpret_cast<const unsigned char*>(bytes);
  // The system's multibyte code page is UTF-8: a lead byte followed by a
  // continuation byte.
  for (int i = 0; i + 1 < size; ++i)
    if (p[i] >= 0xC2 && p[i] <= 0xF4 && (p[i + 1] & 0xC0) == 0x80) return 1;
  return 0;
}

ZQ_API HRESULT ZqLang_DetectPossibleCodepage(LPCSTR, int, UINT* cp) {
  if (cp) *cp = 0;
  return ZQLANG_E_NO_CODEPAGE;
}

// ---------------------------------------------------------------------------
// Resources, language first.
// ---------------------------------------------------------------------------

namespace {

bool LangModuleInUse(HZQLANG h) { return h->langModule && h->useLangModule; }

// The resource and the module it was found in.
HRSRC FindLanguageFirst(HZQLANG h, const WCHAR* name, const WCHAR* type, HMODULE* where) {
  if (!h || !name || !type) return nullptr;
  if (LangModuleInUse(h)) {
    if (HRSRC r = ZqFindResourceExW(h->langModule, type, name, static_cast<WORD>(h->lcid))) {
      *where = h->langModule;
      return r;
    }
  }
  *where = h->instance;
  return ZqFindResourceW(h->instance, name, type);
}

bool Holds(HMODULE module, HRSRC resource) {
  const tZQRESOURCEDIR* dir = ZqResource_GetDirectory(module);
  return dir && resource >= dir->items && resource < dir->items + dir->count;
}

}  // namespace

ZQ_API HRSRC ZqFindResource(HZQLANG h, const WCHAR* name, const WCHAR* type) {
  HMODULE where;
  return FindLanguageFirst(h, name, type, &where);
}

ZQ_API HMODULE ZqFindResInstance(HZQLANG h, const WCHAR* name, const WCHAR* type) {
  HMODULE where = nullptr;
  return FindLanguageFirst(h, name, type, &where) ? where : nullptr;
}

ZQ_API HRSRC ZqFindResourceMulti(HZQLANG h, const WCHAR* name, const WCHAR* const* types, int count, int* which) {
  if (which) *which = -1;
  if (!h || !name || !types || count < 1) return nullptr;
  for (int pass = 0; pass < 2; ++pass) {
    if (pass == 0 && !LangModuleInUse(h)) continue;
    for (int i = 0; i < count; ++i) {
      HRSRC r = pass == 0 ? ZqFindResourceExW(h->langModule, types[i], name, static_cast<WORD>(h->lcid))
                          : ZqFindResourceW(h->instance, name, types[i]);
      if (r) {
        if (which) *which = i;
        return r;
      }
    }
  }
  return nullptr;
}

ZQ_API const void* ZqLoadResource(HZQLANG, HRSRC resource) { return ZqLockResource(resource); }

ZQ_API DWORD ZqSizeofResource(HZQLANG h, HRSRC resource) {
  if (!h || !resource) return 0;
  return Holds(LangModuleInUse(h) ? h->langModule : h->instance, resource) ? ZqSizeofResourceRaw(resource) : 0;
}

ZQ_API const void* ZqLoadResourceCustom(HZQLANG h, UINT id, const WCHAR* type, UINT* size) {
  HMODULE where;
  HRSRC r = FindLanguageFirst(h, MAKEINTRESOURCEW(id), type, &where);
  if (size) *size = r ? ZqSizeofResourceRaw(r) : 0;
  return ZqLockResource(r);
}

ZQ_API UINT ZqLang_GetUserDefaultUILanguage() { return GetUserDefaultUILanguage(); }
