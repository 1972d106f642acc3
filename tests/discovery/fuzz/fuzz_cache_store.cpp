// Fills the cache's store with keys and values made from the input, then
// reads it, writes what was read, reads and writes once more: nothing may
// crash, and the last read must give back exactly what the last write stored
// (a store the library wrote is always one it reads whole).
//
// Input: a run of records.  Byte 0 picks the record (bit 0: a folder key or
// a mapping key; bit 1: one value, or every value of the key made well);
// then the key's name (a braced identifier or "Path n" when bit 0 of the next
// byte is set, a short text otherwise), then the value's name, type and bytes.
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "aplugins/zqvstwrap/discovery/zqvstcache.h"
#include "platform/environment.h"
#include "platform/registry.h"
#include "platform/text.h"

namespace {

constexpr const char16_t* kValues[] = {u"Path",     u"Name",  u"Vendor",    u"Product",  u"Properties",
                                       u"FileTime", u"Flags", u"UserFlags", u"CheckSum", u"Other"};
constexpr DWORD kTypes[] = {REG_SZ, REG_BINARY, REG_DWORD, REG_MULTI_SZ, REG_NONE};

struct Input {
  const uint8_t* at;
  size_t left;
  uint8_t Byte() { return left ? (--left, *at++) : 0; }
};

std::u16string KeyName(Input& in, bool folder) {
  const uint8_t form = in.Byte();
  if (folder && (form & 1)) return u"Path " + ZqUtf8ToUtf16(std::to_string(form >> 1));
  if (form & 1) {
    GUID id;
    for (size_t i = 0; i < sizeof(id); ++i) reinterpret_cast<uint8_t*>(&id)[i] = in.Byte();
    WCHAR text[40];
    StringFromGUID2(id, text, 40);
    return text;
  }
  std::u16string name = u"x";
  for (int n = (form >> 1) % 48; n > 0; --n) name += static_cast<char16_t>(u' ' + in.Byte() % 95);
  return name;
}

void Fill(Input in) {
  while (in.left) {
    const uint8_t record = in.Byte();
    const bool folder = record & 1;
    const std::u16string path = std::u16string(ZqVstCache_KeyName()) +
                                (folder ? u"\\SearchPaths\\" : u"\\Mappings\\") + KeyName(in, folder);
    HKEY key = nullptr;
    if (RegCreateKeyExW(HKEY_CURRENT_USER, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr))
      continue;
    auto set = [key](const char16_t* name, DWORD type, const void* data, size_t size) {
      RegSetValueExW(key, name, 0, type, static_cast<const BYTE*>(data), static_cast<DWORD>(size));
    };
    BYTE bytes[256] = {};
    if (record & 2) {  // a well made key, its texts and words from the input
      const size_t chars = in.Byte() % 63;
      for (size_t i = 0; i < 2 * chars; i += 2) bytes[i] = static_cast<BYTE>('a' + in.Byte() % 26);
      for (size_t i = 0; i < 36; ++i) bytes[64 + 2 * chars + i] = in.Byte();
      const BYTE* words = bytes + 64 + 2 * chars;
      for (const char16_t* name : {u"Path", u"Name", u"Vendor", u"Product"}) set(name, REG_SZ, bytes, 2 * chars + 2);
      set(u"Flags", REG_DWORD, words, 4);
      set(u"CheckSum", REG_BINARY, words, 16);
      set(u"Properties", REG_BINARY, words, 36);
      set(u"FileTime", REG_BINARY, words + 4, 8);
      set(u"UserFlags", REG_DWORD, words + 8, 4);
    } else {
      const char16_t* name = kValues[in.Byte() % 10];
      const DWORD type = kTypes[in.Byte() % 5];
      const size_t size = in.Byte() % 140;
      for (size_t i = 0; i < size; ++i) bytes[i] = in.Byte();
      set(name, type, bytes, size);
    }
    RegCloseKey(key);
  }
}

void Check(bool ok) {
  if (!ok) abort();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  const auto store = std::filesystem::temp_directory_path() / ("zqfuzz-cache-" + std::to_string(getpid()));
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
  tZQLIST** mappings = ZqVstCache_Mappings();
  Check(SUCCEEDED(ZqVstReadSearchPaths(&folders)) && SUCCEEDED(ZqVstReadMappings(mappings, stale, FALSE)));
  for (int round = 0; round < 2; ++round) {
    Check(ZqVstWriteSearchPaths(folders, FALSE, nullptr, nullptr) == S_OK);
    Check(ZqVstWriteMappings(*mappings, stale, FALSE, nullptr, nullptr) == S_OK);
    const INT count = folders->count, written = ZqVstCache_MappingCount();
    ZqList_Destroy(folders);
    Check(ZqVstReadSearchPaths(&folders) == S_OK && folders->count == count);
    Check(ZqVstReadMappings(mappings, FALSE, FALSE) == S_OK && (round == 0 || (*mappings)->count == written));
  }
  ZqList_Destroy(folders);
  ZqVstCache_Destroy();
  ZqVstCache_Bind(u"ZqFuzz", 0x01000000, nullptr);
  return 0;
}
