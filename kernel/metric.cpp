// Metrics: see metric.h.
#include "kernel/metric.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <vector>

#include "kernel/com/stream.h"
#include "kernel/kformat.h"
#include "kernel/memory.h"
#include "platform/text.h"

namespace {

constexpr const WCHAR* kCompany = u"Ostrand";
constexpr DWORD kStreamLimit = 2048;

std::atomic<HZQMETRIC> g_default{nullptr};

// The record behind a handle value (the default value resolved), or null.
HZQMETRIC Resolve(HZQMETRIC h) { return h == ZQMETRIC_DEFAULT ? g_default.load() : h; }
HKEY KeyOf(HZQMETRIC h) {
  const HZQMETRIC r = Resolve(h);
  return r ? r->key : nullptr;
}
// The forms that refuse the default value.
HKEY OwnKeyOf(HZQMETRIC h) { return h == ZQMETRIC_DEFAULT || !h ? nullptr : h->key; }

HRESULT StoreStatus(LSTATUS status) {
  return status == ERROR_SUCCESS ? S_OK : static_cast<HRESULT>(0x80070000u | (static_cast<DWORD>(status) & 0xFFFF));
}

unsigned Number(int id) { return id < 0 ? 0u - static_cast<unsigned>(id) : static_cast<unsigned>(id); }

// The value name of a metric of `type` as it is stored.
struct Name {
  WCHAR text[16];
  Name(int id, DWORD type) {
    const WCHAR* format = type == REG_SZ ? u"S%u" : type == REG_BINARY ? u"B%u" : type == REG_DWORD ? u"%u" : u"Z%u";
    ZqKernelFormat(text, 16, format, Number(id));
  }
};

// Application root or Metrics key path.
void KeyPath(WCHAR (&dst)[MAX_PATH], LPCWSTR company, LPCWSTR app, DWORD version, const WCHAR* leaf) {
  const DWORD major = version >> 24, minor = (version >> 16) & 0xFF;
  company = company ? company : kCompany;
  app = app ? app : u"";
  const int n = major ? ZqKernelFormat(dst, MAX_PATH, u"Software\\%s\\%s\\%u.%u", company, app, major, minor)
                      : ZqKernelFormat(dst, MAX_PATH, u"Software\\%s\\%s", company, app);
  if (leaf) ZqKernelCopy(dst + n, MAX_PATH - n, leaf);
}

void Append(WCHAR (&dst)[MAX_PATH], LPCWSTR subKey) {
  if (!subKey || !subKey[0]) return;
  const int n = lstrlenW(dst);
  ZqKernelFormat(dst + n, MAX_PATH - n, u"\\%s", subKey);
}

bool ReadDword(HKEY key, const WCHAR* name, DWORD* value) {
  DWORD type = 0, size = sizeof *value;
  return key && RegQueryValueExW(key, name, nullptr, &type, reinterpret_cast<BYTE*>(value), &size) == ERROR_SUCCESS &&
         type == REG_DWORD && size == sizeof *value;
}

HRESULT Write(HKEY key, const WCHAR* name, DWORD type, const void* data, DWORD size) {
  if (!key) return E_FAIL;
  return RegSetValueExW(key, name, 0, type, static_cast<const BYTE*>(data), size) == ERROR_SUCCESS ? S_OK : E_FAIL;
}

int Clip(int value, int min, int max) {
  return min == max ? value : std::clamp(value, std::min(min, max), std::max(min, max));
}

int ReadText(HZQMETRIC h, int id, DWORD type, LPWSTR dst, int dstChars, LPCWSTR def, BOOL keepEmpty) {
  if (!dst || dstChars < 1) return 0;
  const Name name(id, type);
  HKEY key = KeyOf(h);
  DWORD got = 0, found = 0, bytes = static_cast<DWORD>(dstChars) * 2;
  if (key && RegQueryValueExW(key, name.text, nullptr, &found, reinterpret_cast<BYTE*>(dst), &bytes) == ERROR_SUCCESS &&
      found == type)
    got = bytes;
  std::memset(reinterpret_cast<BYTE*>(dst) + got, 0, static_cast<size_t>(dstChars) * 2 - got);
  if (got > 2) return static_cast<int>(got / 2 - 1);
  if ((got > 0 && keepEmpty) || !def) {
    dst[0] = 0;
    return 0;
  }
  return ZqKernelCopy(dst, dstChars, def);
}

}  // namespace

// ---------------------------------------------------------------------------
// Opening and closing.
// ---------------------------------------------------------------------------

ZQ_API HRESULT ZqMetric_OpenAppVersion(HZQMETRIC* out, LPCWSTR keyPath, LPCWSTR subKey) {
  if (!out) return E_POINTER;
  *out = nullptr;
  auto* record = static_cast<HZQMETRIC>(ZqMemory_AllocZ(sizeof(tZQMETRIC)));
  if (!record) return E_OUTOFMEMORY;
  ZqKernelCopy(record->keyPath, MAX_PATH, keyPath);
  Append(record->keyPath, subKey);
  const LSTATUS status = RegCreateKeyExW(HKEY_CURRENT_USER, record->keyPath, 0, nullptr, 0, KEY_ALL_ACCESS,
                                         nullptr, &record->key, nullptr);
  if (status != ERROR_SUCCESS) record->key = nullptr;
  *out = record;
  return StoreStatus(status);
}

ZQ_API HRESULT ZqMetric_OpenRegHiveAndVersion(HZQMETRIC* out, LPCWSTR app, DWORD version, LPCWSTR company,
                                              LPCWSTR subKey) {
  WCHAR path[MAX_PATH];
  KeyPath(path, company, app, version, u"\\Metrics");
  return ZqMetric_OpenAppVersion(out, path, subKey);
}

ZQ_API HRESULT ZqMetric_Open(HZQMETRIC* out, LPCWSTR app, DWORD version, LPCWSTR subKey) {
  return ZqMetric_OpenRegHiveAndVersion(out, app, version, kCompany, subKey);
}

ZQ_API HRESULT ZqMetric_OpenSubKey(HZQMETRIC* out, HZQMETRIC parent, LPCWSTR subKey) {
  if (out) *out = nullptr;
  parent = Resolve(parent);
  if (!parent) return E_FAIL;
  WCHAR path[MAX_PATH];
  ZqKernelCopy(path, MAX_PATH, parent->keyPath);
  for (int i = 0; path[i]; ++i)
    if (path[i] == u'\\' && ZqCompareNoCaseW(std::u16string_view(path + i, std::min(lstrlenW(path + i), 8)),
                                              u"\\Metrics") == 0) {
      path[i] = 0;
      break;
    }
  const int n = lstrlenW(path);
  ZqKernelCopy(path + n, MAX_PATH - n, u"\\Metrics");
  return ZqMetric_OpenAppVersion(out, path, subKey);
}

ZQ_API HRESULT ZqMetric_Close(HZQMETRIC h) {
  if (!h || h == ZQMETRIC_DEFAULT) return S_OK;
  if (h->parentKey) RegCloseKey(h->parentKey);
  if (h->key) RegCloseKey(h->key);
  ZqMemory_Free(h);
  return S_OK;
}

ZQ_API HRESULT ZqMetric_CloseAndDeleteKey(HZQMETRIC h) {
  if (!h || h == ZQMETRIC_DEFAULT) return E_FAIL;
  WCHAR path[MAX_PATH];
  ZqKernelCopy(path, MAX_PATH, h->keyPath);
  ZqMetric_Close(h);
  ZqRegDeleteKey(HKEY_CURRENT_USER, path);
  return S_OK;
}

ZQ_API HZQMETRIC ZqMetric_SetDefault(HZQMETRIC h) { return g_default.exchange(h); }

// ---------------------------------------------------------------------------
// Deleting.
// ---------------------------------------------------------------------------

ZQ_API BOOL ZqRegDeleteKey(HKEY hive, LPCWSTR path) {
  if (RegDeleteKeyW(hive, path) == ERROR_SUCCESS) return 1;
  HKEY key = nullptr;
  const LSTATUS status = RegOpenKeyExW(hive, path, 0, KEY_ALL_ACCESS, &key);
  if (status == ERROR_FILE_NOT_FOUND) return 1;
  if (status != ERROR_SUCCESS) return 0;
  WCHAR name[256];
  while (RegEnumKeyW(key, 0, name, 256) == ERROR_SUCCESS && ZqRegDeleteKey(key, name)) {
  }
  RegCloseKey(key);
  return RegDeleteKeyW(hive, path) == ERROR_SUCCESS;
}

ZQ_API DWORD ZqRegGetSubKeyCount(HKEY key, LPCWSTR subKey, UINT* longest) {
  if (longest) *longest = 0;
  HKEY opened = nullptr;
  if (RegOpenKeyExW(key, subKey, 0, KEY_READ, &opened) != ERROR_SUCCESS) return 0;
  DWORD count = 0, maxName = 0;
  const LSTATUS status =
      RegQueryInfoKeyW(opened, nullptr, nullptr, nullptr, &count, &maxName, nullptr, nullptr, nullptr, nullptr,
                       nullptr, nullptr);
  RegCloseKey(opened);
  if (status != ERROR_SUCCESS) return 0;
  if (longest) *longest = maxName + 1;
  return count;
}

namespace {

void DeleteBoth(const WCHAR* path, bool machineToo) {
  if (machineToo) ZqRegDeleteKey(HKEY_LOCAL_MACHINE, path);
  ZqRegDeleteKey(HKEY_CURRENT_USER, path);
}

}  // namespace

ZQ_API HRESULT ZqMetric_DeleteAllHiveAndVersion(LPCWSTR app, DWORD version, LPCWSTR company) {
  WCHAR path[MAX_PATH];
  KeyPath(path, company, app, version, nullptr);
  DeleteBoth(path, true);
  return S_OK;
}

ZQ_API HRESULT ZqMetric_DeleteAll(LPCWSTR app, DWORD version) {
  return ZqMetric_DeleteAllHiveAndVersion(app, version, kCompany);
}

ZQ_API HRESULT ZqMetric_DeleteUserMetrics(LPCWSTR app, DWORD version) {
  WCHAR path[MAX_PATH];
  KeyPath(path, kCompany, app, version, nullptr);
  DeleteBoth(path, false);
  return S_OK;
}

ZQ_API HRESULT ZqMetric_DeleteKeyHiveAndVersion(LPCWSTR app, DWORD version, LPCWSTR company, LPCWSTR subKey) {
  WCHAR path[MAX_PATH];
  KeyPath(path, company, app, version, u"\\Metrics");
  Append(path, subKey);
  DeleteBoth(path, true);
  return S_OK;
}

ZQ_API HRESULT ZqMetric_DeleteKey(LPCWSTR app, DWORD version, LPCWSTR subKey) {
  return ZqMetric_DeleteKeyHiveAndVersion(app, version, kCompany, subKey);
}

// ---------------------------------------------------------------------------
// Reading and writing.
// ---------------------------------------------------------------------------

ZQ_API int ZqMetricGetName(int id, DWORD type, LPWSTR dst) {
  const WCHAR* format = type == REG_SZ ? u"S%u" : type == REG_BINARY ? u"B%u" : type == REG_DWORD ? u"D%u" : u"Z%u";
  return ZqKernelFormat(dst, 16, format, Number(id));
}

ZQ_API int ZqGetMetric(HZQMETRIC h, int id) {
  DWORD value = 0;
  return ReadDword(KeyOf(h), Name(id, REG_DWORD).text, &value) ? static_cast<int>(value) : 0;
}

ZQ_API int ZqGetMetricEx(HZQMETRIC h, int id, int min, int max, int def) {
  HKEY key = KeyOf(h);
  if (!key) return def;
  DWORD value = 0;
  return Clip(ReadDword(key, Name(id, REG_DWORD).text, &value) ? static_cast<int>(value) : def, min, max);
}

ZQ_API BOOL ZqGetMetricBool(HZQMETRIC h, int id, BOOL def) {
  HKEY key = KeyOf(h);
  if (!key) return def;
  DWORD value = 0;
  return ReadDword(key, Name(id, REG_DWORD).text, &value) ? value != 0 : def != 0;
}

ZQ_API HRESULT ZqSetMetric(HZQMETRIC h, int id, int value) {
  const DWORD v = static_cast<DWORD>(value);
  return Write(KeyOf(h), Name(id, REG_DWORD).text, REG_DWORD, &v, sizeof v);
}

ZQ_API int ZqGetMetricUsingName(HZQMETRIC h, LPCWSTR name, int def) {
  DWORD value = 0;
  return ReadDword(KeyOf(h), name, &value) ? static_cast<int>(value) : def;
}

ZQ_API HRESULT ZqSetMetricUsingName(HZQMETRIC h, LPCWSTR name, int value) {
  HKEY key = KeyOf(h);
  if (!key) return E_FAIL;
  const DWORD v = static_cast<DWORD>(value);
  return StoreStatus(RegSetValueExW(key, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&v), sizeof v));
}

ZQ_API HRESULT ZqGetMetricBinaryEx(HZQMETRIC h, int id, void* data, DWORD size, DWORD* got) {
  if (!got) return E_INVALIDARG;
  HKEY key = KeyOf(h);
  if (!key) return ZQ_E_NOT_FOUND;
  const Name name(id, REG_BINARY);
  DWORD type = 0, needed = 0;
  const bool exists = RegQueryValueExW(key, name.text, nullptr, &type, nullptr, &needed) == ERROR_SUCCESS;
  if (exists && needed > size) {
    *got = needed;
    return ZQ_E_BUFFER_TOO_SMALL;
  }
  DWORD read = size;
  if (!exists || type != REG_BINARY ||
      RegQueryValueExW(key, name.text, nullptr, &type, static_cast<BYTE*>(data), &read) != ERROR_SUCCESS) {
    if (data) std::memset(data, 0, size);
    *got = 0;
    return S_FALSE;
  }
  if (data) std::memset(static_cast<BYTE*>(data) + read, 0, size - read);
  *got = read;
  return S_OK;
}

ZQ_API DWORD ZqGetMetricBinary(HZQMETRIC h, int id, void* data, DWORD size) {
  DWORD got = 0;
  if (ZqGetMetricBinaryEx(h, id, data, size, &got) == S_OK) return got;
  if (data) std::memset(data, 0, size);
  return 0;
}

ZQ_API HRESULT ZqSetMetricBinary(HZQMETRIC h, int id, const void* data, DWORD size) {
  return Write(OwnKeyOf(h), Name(id, REG_BINARY).text, REG_BINARY, data, size);
}

ZQ_API HRESULT ZqSetMetricStream(HZQMETRIC h, int id, IStream* stream) {
  if (!stream) return E_POINTER;
  LARGE_INTEGER zero{};
  ULARGE_INTEGER position{};
  if (FAILED(stream->Seek(zero, STREAM_SEEK_CUR, &position))) return E_UNEXPECTED;
  if (position.QuadPart > kStreamLimit) return E_INVALIDARG;
  if (position.QuadPart == 0) return E_UNEXPECTED;
  std::vector<BYTE> bytes(static_cast<size_t>(position.QuadPart));
  ULONG read = 0;
  const HRESULT hr = stream->Seek(zero, STREAM_SEEK_SET, nullptr);
  if (FAILED(hr) || FAILED(stream->Read(bytes.data(), static_cast<ULONG>(bytes.size()), &read)) || read != bytes.size())
    return E_UNEXPECTED;
  return ZqSetMetricBinary(h, id, bytes.data(), read);
}

ZQ_API HRESULT ZqGetMetricStream(HZQMETRIC h, int id, IStream* stream) {
  if (!stream) return E_POINTER;
  DWORD size = 0;
  ZqGetMetricBinaryEx(h, id, nullptr, 0, &size);
  if (size == 0) return E_UNEXPECTED;
  std::vector<BYTE> bytes(size);
  DWORD got = 0;
  if (ZqGetMetricBinaryEx(h, id, bytes.data(), size, &got) != S_OK || got != size) return E_UNEXPECTED;
  LARGE_INTEGER zero{};
  ULONG written = 0;
  if (FAILED(stream->Seek(zero, STREAM_SEEK_SET, nullptr)) || FAILED(stream->Write(bytes.data(), size, &written)) ||
      written != size)
    return E_UNEXPECTED;
  return S_OK;
}

ZQ_API int ZqGetMetricStringEx(HZQMETRIC h, int id, LPWSTR dst, int dstChars, LPCWSTR def, BOOL keepEmpty) {
  return ReadText(h, id, REG_SZ, dst, dstChars, def, keepEmpty);
}

ZQ_API HRESULT ZqSetMetricString(HZQMETRIC h, int id, LPCWSTR text) {
  if (!text) return E_FAIL;
  return Write(OwnKeyOf(h), Name(id, REG_SZ).text, REG_SZ, text, static_cast<DWORD>(lstrlenW(text) + 1) * 2);
}

ZQ_API int ZqGetMetricMultiStringEx(HZQMETRIC h, int id, LPWSTR dst, int dstChars, LPCWSTR def, BOOL keepEmpty) {
  return ReadText(h, id, REG_MULTI_SZ, dst, dstChars, def, keepEmpty);
}

ZQ_API HRESULT ZqSetMetricMultiString(HZQMETRIC h, int id, LPCWSTR data, DWORD chars) {
  if (!data && chars) return E_FAIL;
  return Write(OwnKeyOf(h), Name(id, REG_MULTI_SZ).text, REG_MULTI_SZ, data, chars * 2);
}

ZQ_API HRESULT ZqGetMetricAny(HZQMETRIC h, int id, DWORD type, void* data, DWORD size, DWORD* got) {
  HKEY key = KeyOf(h);
  if (!key || !got) return E_UNEXPECTED;
  const Name name(id, REG_DWORD);
  DWORD found = 0, needed = 0;
  const bool exists = RegQueryValueExW(key, name.text, nullptr, &found, nullptr, &needed) == ERROR_SUCCESS;
  if (exists && needed > size) {
    *got = needed;
    return ZQ_E_BUFFER_TOO_SMALL;
  }
  // The sense of this refusal is what callers rely on: the type asked for is
  // the one that is not read.
  if (exists && found == type) return ZQ_E_NOT_FOUND;
  DWORD read = size;
  if (!exists || RegQueryValueExW(key, name.text, nullptr, &found, static_cast<BYTE*>(data), &read) != ERROR_SUCCESS) {
    *got = size;
    return S_OK;
  }
  *got = read;
  if (found == REG_SZ && data) {
    auto* bytes = static_cast<BYTE*>(data);
    if (read + 2 <= size) {
      bytes[read] = bytes[read + 1] = 0;
    } else if (size >= 2 && (bytes[size - 2] || bytes[size - 1])) {
      bytes[size - 2] = bytes[size - 1] = 0;
      *got += 2;
      return ZQ_E_BUFFER_TOO_SMALL;
    }
  }
  return S_OK;
}

ZQ_API int ZqDoesMetricExist(HZQMETRIC h, int id, DWORD type) {
  HKEY key = KeyOf(h);
  DWORD found = 0;
  if (!key || RegQueryValueExW(key, Name(id, type).text, nullptr, &found, nullptr, nullptr) != ERROR_SUCCESS) return 1;
  return found == type ? 0 : 1;
}

ZQ_API HRESULT ZqDeleteMetricUsingName(HZQMETRIC h, LPCWSTR name, DWORD) {
  HKEY key = KeyOf(h);
  if (!key) return S_FALSE;
  return RegDeleteValueW(key, name) == ERROR_SUCCESS ? S_OK : E_FAIL;
}

ZQ_API HRESULT ZqDeleteMetric(HZQMETRIC h, int id, DWORD type) {
  return ZqDeleteMetricUsingName(h, Name(id, type).text, type);
}
