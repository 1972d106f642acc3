// Fills the cache's store with keys and values made from the input, then
// reads it, writes what was read, and reads and writes once more: nothing may
// crash, and the second read must give back exactly what the first write
// stored (a store the library wrote is always one it reads whole).
//
// Input: a run of records.  Byte 0 picks the record: 0 a value in a mapping
// key, 1 a value in a folder key, 2 a complete mapping key, 3 a complete
// folder key.  Then a key name (a braced identifier of 16 bytes, or a short
// text), a value name, a type and the value's bytes.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <unistd.h>

#include "aplugins/zqvstwrap/discovery/zqvstcache.h"
#include "platform/environment.h"
#include "platform/registry.h"
#include "platform/text.h"

namespace {

constexpr const char16_t* kKey = u"Software\\Ostrand\\ZqFuzz\\1.0\\Metrics\\VstCache";
constexpr const char16_t* kValues[] = {u"Path",  u"Name",  u"Vendor",    u"Product",  u"Properties",
                                       u"FileTime", u"Flags", u"UserFlags", u"CheckSum", u"Other"};
constexpr DWORD kTypes[] = {REG_SZ, REG_BINARY, REG_DWORD, REG_MULTI_SZ, REG_NONE};

struct Input {
  const uint8_t* at;
  size_t left;
  uint8_t Byte() {
    if (!left) return 0;
    --left;
    return *at++;
  }
};

std::u16string KeyName(Input& in, bool folder) {
  const uint8_t form = in.Byte();
  if (folder && (form & 1)) return u"Path " + ZqUtf8ToUtf16(std::to_string(form >> 1));
  if (form & 1) {
    GUID id;
    uint8_t bytes[16];
    for (uint8_t& b : bytes) b = in.Byte();
    std::memcpy(&id, bytes, 16);
    WCHAR text[40];
    StringFromGUID2(id, text, 40);
    return text;
  }
  std::u16string name;
  for (int n = (form >> 1) % 48; n > 0; --n) name += static_cast<char16_t>(u' ' + in.Byte() % 95);
  return name.empty() ? u"x" : name;
}

void SetValue(HKEY key, const char16_t* name, DWORD type, const void* data, size_t size) {
  RegSetValueExW(key, name, 0, type, static_cast<const BYTE*>(data), static_cast<DWORD>(size));
}

// A key with every value it needs, of the right types and sizes.
void WholeKey(HKEY key, Input& in, bool folder) {
  WCHAR text[64] = {};
  const int chars = in.Byte() % 63;
  for (int i = 0; i < chars; ++i) text[i] = static_cast<WCHAR>(u'a' + in.Byte() % 26);
  BYTE words[36];
  for (BYTE& b : words) b = in.Byte();
  const size_t textBytes = (static_cast<size_t>(chars) + 1) * 2;
  SetValue(key, u"Path", REG_SZ, text, textBytes);
  SetValue(key, u"Flags", REG_DWORD, words, 4);
  if (folder) {
    SetValue(key, u"CheckSum", REG_BINARY, words, 16);
    return;
  }
  for (const char16_t* name : {u"Name", u"Vendor", u"Product"}) SetValue(key, name, REG_SZ, text, textBytes);
  SetValue(key, u"Properties", REG_BINARY, words, 36);
  SetValue(key, u"FileTime", REG_BINARY, words + 4, 8);
  SetValue(key, u"UserFlags", REG_DWORD, words + 8, 4);
}

void Fill(Input in) {
  while (in.left) {
    const uint8_t record = in.Byte() % 4;
    const bool folder = record & 1;
    const std::u16string path =
        std::u16string(kKey) + (folder ? u"\\SearchPaths\\" : u"\\Mappings\\") + KeyName(in, folder);
    HKEY key = nullptr;
    if (RegCreateKeyExW(HKEY_CURRENT_USER, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr) !=
        ERROR_SUCCESS)
      continue;
    if (record >= 2) {
      WholeKey(key, in, folder);
    } else {
      const char16_t* name = kValues[in.Byte() % 10];
      const DWORD type = kTypes[in.Byte() % 5];
      const size_t size = in.Byte() % 140;
      BYTE data[140];
      for (size_t i = 0; i < size; ++i) data[i] = in.Byte();
      SetValue(key, name, type, data, size);
    }
    RegCloseKey(key);
  }
}

void Check(bool ok) {
  if (!ok) abort();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  const std::filesystem::path store =
      std::filesystem::temp_directory_path() / ("zqfuzz-cache-" + std::to_string(getpid()));
  std::filesystem::create_directories(store);
  SetEnvironmentVariableW(u"ZQ_REGISTRY_DIR", ZqUtf8ToUtf16(store.string()).c_str());
  ZqVstCache_Bind(u"ZqFuzz", 0x01000000, nullptr);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  ZqVstDeleteCache();
  Fill(Input{data, size});
  const BOOL stale = size && (data[0] & 0x80);

  tZQLIST* folders = nullptr;
  Check(SUCCEEDED(ZqVstReadSearchPaths(&folders)));
  tZQLIST** mappings = ZqVstCache_Mappings();
  Check(SUCCEEDED(ZqVstReadMappings(mappings, stale, FALSE)));
  for (int round = 0; round < 2; ++round) {
    Check(ZqVstWriteSearchPaths(folders, FALSE, nullptr, nullptr) == S_OK);
    Check(ZqVstWriteMappings(*mappings, stale, FALSE, nullptr, nullptr) == S_OK);
    tZQLIST* again = nullptr;
    Check(ZqVstReadSearchPaths(&again) == S_OK && again->count == folders->count);
    ZqList_Destroy(folders);
    folders = again;
    const INT written = ZqVstCache_MappingCount();
    Check(ZqVstReadMappings(mappings, FALSE, FALSE) == S_OK);
    if (round == 1) Check((*mappings)->count == written);
  }
  ZqList_Destroy(folders);
  ZqList_Destroy(*mappings);
  *mappings = nullptr;
  return 0;
}
