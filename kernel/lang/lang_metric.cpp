// The user's language setting in the store: the 32-bit value "ULangID"
// under "Software\<company>\<app>[\<major>.<minor>]\Lang".
#include <string>

#include "kernel/lang.h"
#include "platform/registry.h"
#include "platform/text.h"

namespace {

constexpr const WCHAR* kCompany = u"Ostrand";
constexpr const WCHAR* kValue = u"ULangID";

std::u16string KeyName(LPCWSTR company, LPCWSTR app, DWORD version, bool ignoreVersion) {
  const DWORD major = version >> 24;
  const DWORD minor = (version >> 16) & 0xFF;
  std::u16string key = u"Software\\";
  key += company ? company : kCompany;
  key += u"\\";
  key += app ? app : u"";
  if (major != 0 && !ignoreVersion) {
    key += u"\\" + ZqUtf8ToUtf16(std::to_string(major)) + u"." + ZqUtf8ToUtf16(std::to_string(minor));
  }
  return key + u"\\Lang";
}

BOOL Load(const std::u16string& key, UINT* lcid) {
  for (HKEY hive : {HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE}) {
    HKEY k = nullptr;
    if (RegOpenKeyExW(hive, key.c_str(), 0, KEY_READ, &k) != 0) continue;
    DWORD type = 0, value = 0, size = sizeof value;
    const LSTATUS status = RegQueryValueExW(k, kValue, nullptr, &type, reinterpret_cast<BYTE*>(&value), &size);
    RegCloseKey(k);
    if (status == 0 && type == REG_DWORD && size == sizeof value) {
      if (lcid) *lcid = value & 0xFFFF;
      return 1;
    }
  }
  return 0;
}

BOOL Save(const std::u16string& key, UINT lcid) {
  HKEY k = nullptr;
  if (RegCreateKeyExW(HKEY_CURRENT_USER, key.c_str(), 0, nullptr, 0, KEY_WRITE, nullptr, &k, nullptr) != 0) return 0;
  const DWORD value = lcid;
  const LSTATUS status = RegSetValueExW(k, kValue, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value), sizeof value);
  RegCloseKey(k);
  return status == 0;
}

}  // namespace

ZQ_API BOOL ZqLang_LoadUserLCIDMetric(LPCWSTR app, DWORD version, UINT* lcid, bool ignoreVersion) {
  return Load(KeyName(kCompany, app, version, ignoreVersion), lcid);
}

ZQ_API BOOL ZqLang_LoadUserLCIDMetricAppReg(LPCWSTR app, DWORD version, UINT* lcid, LPCWSTR company) {
  return Load(KeyName(company, app, version, false), lcid);
}

ZQ_API BOOL ZqLang_SaveUserLCIDMetric(LPCWSTR app, DWORD version, UINT lcid, bool ignoreVersion) {
  return Save(KeyName(kCompany, app, version, ignoreVersion), lcid);
}

ZQ_API BOOL ZqLang_SaveUserLCIDMetricAppReg(LPCWSTR app, DWORD version, UINT lcid, LPCWSTR company) {
  return Save(KeyName(company, app, version, false), lcid);
}

ZQ_API HRESULT ZqLang_CheckUserSettingsStore(LPWSTR path, DWORD size) {
  if (path && size) path[0] = 0;
  // Opening any key reads the store file; a missing key is a readable store.
  HKEY key = nullptr;
  const LSTATUS status = RegOpenKeyExW(HKEY_CURRENT_USER, u"Software", 0, KEY_READ, &key);
  if (status == ERROR_SUCCESS) RegCloseKey(key);
  if (status == ERROR_SUCCESS || status == ERROR_FILE_NOT_FOUND) return S_OK;
  if (path && size) {
    DWORD length = size;
    if (ZqRegistryGetStorePath(HKEY_CURRENT_USER, path, &length) != ERROR_SUCCESS) path[0] = 0;
  }
  return HRESULT_FROM_WIN32(static_cast<DWORD>(status));
}
