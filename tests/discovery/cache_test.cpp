#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "aplugins/zqvstwrap/discovery/zqvstcache.h"
#include "aplugins/zqvstwrap/discovery/zqvstfactory.h"
#include "kernel/errorhandler.h"
#include "platform/file.h"
#include "platform/registry.h"
#include "platform/text.h"
#include "tests/support/test_folder.h"

namespace {

constexpr const char16_t* kKey = u"Software\\Ostrand\\ZqCacheTest\\2.5\\Metrics\\VstCache";

VstMapping Mapping(LONG id, const char16_t* file, const char16_t* name, DWORD flags = VMF_EFFECT | VMF_ENABLED) {
  VstMapping m{};
  lstrcpynW(m.Path, (u"/vst/" + std::u16string(file)).c_str(), 260);
  lstrcpynW(m.Name, name, 64);
  lstrcpynW(m.Vendor, u"Vendor", 64);
  lstrcpynW(m.Product, u"Product", 64);
  m.Properties = {id, 3, 7, 2, 5, 2, 2, 64, 0x111};
  m.FileTime = {0x89ABCDEF, 0x01D00000};
  m.UserFlags = 0x5A000000u | static_cast<DWORD>(id);
  m.Flags = flags;
  ZqVstMakeMappingClsids(id, m.Path, m.Name, &m.Clsid, &m.EditorPageClsid, &m.ParamsPageClsid);
  return m;
}

tZQLIST* List(const std::vector<VstMapping>& mappings) {
  tZQLIST* list = nullptr;
  ZqList_CreateExZ(&list, 0, 0, 64, ZQLIST_HEAPITEMS, 0, 0, 0);
  for (const VstMapping& m : mappings) ZqList_AllocAndInsertItem(list, &m, sizeof(m), -1, nullptr);
  return list;
}

tZQLIST* Folders(std::initializer_list<VstSearchPath> folders) {
  tZQLIST* list = nullptr;
  ZqList_CreateExZ(&list, sizeof(VstSearchPath), 0, 0, ZQLIST_ARRAY, 0, 0, 0);
  for (const VstSearchPath& f : folders) ZqList_InsertList(list, -1, &f, 1);
  return list;
}

VstSearchPath* FolderAt(const tZQLIST* list, INT i) { return static_cast<VstSearchPath*>(ZqList_ArrayItem(list, i)); }

std::vector<std::u16string> Names(const tZQLIST* list) {
  std::vector<std::u16string> names;
  for (INT i = 0; i < list->count; ++i) names.emplace_back(ZqVstMappingAt(list, i)->Name);
  return names;
}

std::u16string KeyOf(REFCLSID clsid) {
  WCHAR text[40];
  StringFromGUID2(clsid, text, 40);
  return std::u16string(kKey) + u"\\Mappings\\" + text;
}

// Type and size of a stored value: {0, 0} when it is missing.
std::pair<DWORD, DWORD> Stored(const std::u16string& key, const char16_t* value) {
  HKEY h = nullptr;
  DWORD type = 0, size = 0;
  RegOpenKeyExW(HKEY_CURRENT_USER, key.c_str(), 0, KEY_READ, &h);
  if (RegQueryValueExW(h, value, nullptr, &type, nullptr, &size) != ERROR_SUCCESS) type = size = 0;
  RegCloseKey(h);
  return {type, size};
}

void Store(const std::u16string& key, const char16_t* value, DWORD type, const void* data, size_t size) {
  HKEY h = nullptr;
  RegCreateKeyExW(HKEY_CURRENT_USER, key.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &h, nullptr);
  RegSetValueExW(h, value, 0, type, static_cast<const BYTE*>(data), static_cast<DWORD>(size));
  RegCloseKey(h);
}

// A host's cache kept in memory, as a host would keep it.
class MemoryHostCache final : public IVstHostCache {
 public:
  std::vector<VstHostCacheItem> items, partials;
  std::vector<CLSID> removed, loaded;
  std::vector<DWORD> kinds;
  std::u16string folder;
  LONG synths = 0;
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
  ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
  ULONG STDMETHODCALLTYPE Release() override { return 1; }
  HRESULT STDMETHODCALLTYPE GetSearchPath(DWORD i, WCHAR* p, DWORD n, DWORD* r, DWORD* e, DWORD* s, BYTE*) override {
    if (i > 0 || folder.empty()) return S_FALSE;
    return lstrcpynW(p, folder.c_str(), int(n)), *r = *e = 2, *s = DWORD(synths), S_OK;
  }
  HRESULT STDMETHODCALLTYPE AddSearchPath(DWORD*, const WCHAR* p, LONG, LONG, LONG s, const BYTE*) override {
    return folder = p, synths = s, S_OK;
  }
  HRESULT STDMETHODCALLTYPE Unused3() override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE BeginMappings(DWORD kind) override { return kinds.push_back(kind), S_OK; }
  HRESULT STDMETHODCALLTYPE GetMapping(DWORD i, VstHostCacheItem* item) override {
    return i < items.size() ? (*item = items[i], S_OK) : S_FALSE;
  }
  HRESULT STDMETHODCALLTYPE Unused6() override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE PutMapping(const VstHostCacheItem* item) override {
    return (item->FieldMask ? partials : items).push_back(*item), S_OK;
  }
  HRESULT STDMETHODCALLTYPE ClearMappings(DWORD kind) override { return items.clear(), kinds.push_back(kind), S_OK; }
  HRESULT STDMETHODCALLTYPE RemoveMapping(const VstHostCacheItem* item) override {
    return removed.push_back(item->Clsid), S_OK;
  }
  HRESULT STDMETHODCALLTYPE InitMappingItem(REFCLSID id, VstHostCacheItem* item) override {
    return item->Clsid = id, item->Capabilities = 0xFFFF0000u, S_OK;  // the host's own bits
  }
  HRESULT STDMETHODCALLTYPE SetMappingLoaded(REFCLSID id, LONG yes) override {
    return yes == -1 ? loaded.push_back(id) : void(), S_OK;
  }
};

class Cache : public ::testing::Test {
 protected:
  void SetUp() override { Bind(nullptr); }
  void TearDown() override {
    ZqList_Destroy(list_);
    ZqVstDeleteCache();
    ZqVstCache_Destroy();
  }
  void Bind(IVstHostCache* host) {
    ZqVstCache_Bind(u"ZqCacheTest", 0x02050000, host);
    ZqVstDeleteCache();
  }
  // Writes `mappings` (as they stand, no purge) and reads them into list_.
  HRESULT RoundTrip(const std::vector<VstMapping>& mappings, BOOL markStale = FALSE) {
    tZQLIST* written = List(mappings);
    HRESULT hr = ZqVstWriteMappings(written, FALSE, FALSE, nullptr, nullptr);
    ZqList_Destroy(written);
    return SUCCEEDED(hr) ? ZqVstReadMappings(&list_, markStale, FALSE) : hr;
  }
  VstMapping* At(INT i) const { return ZqVstMappingAt(list_, i); }
  tZQLIST* list_ = nullptr;
  MemoryHostCache host_;  // outlives TearDown, which lets it go
};

// Folders come in the store's key order, "Path 12" before "Path 2", and are
// written back numbered from 1; every value has its name, type and size.
TEST_F(Cache, TheStoredTreeHasItsOrderNamesTypesAndSizes) {
  tZQLIST* folders = nullptr;
  EXPECT_EQ(ZqVstReadSearchPaths(&folders), S_FALSE) << "never written: the first start";
  EXPECT_EQ(folders->count, 0);
  ZqList_Destroy(folders);
  for (const std::u16string n : {u"2", u"12"}) {
    const std::u16string key = std::u16string(kKey) + u"\\SearchPaths\\Path " + n, path = u"/f" + n + u"/";
    const DWORD flags = 3, sums[4] = {};
    Store(key, u"Path", REG_SZ, path.c_str(), (path.size() + 1) * 2);
    Store(key, u"Flags", REG_DWORD, &flags, 4);
    Store(key, u"CheckSum", REG_BINARY, sums, 16);
  }
  ASSERT_EQ(ZqVstReadSearchPaths(&folders), S_OK);
  ASSERT_EQ(folders->count, 2);
  EXPECT_EQ(std::u16string(FolderAt(folders, 0)->Path), u"/f12/");
  ASSERT_EQ(ZqVstWriteSearchPaths(folders, TRUE, nullptr, nullptr), S_OK);
  ZqList_Destroy(folders);
  const VstMapping m = Mapping(0x5A71, u"gain.so", u"Gain");
  ASSERT_EQ(RoundTrip({m}), S_OK);
  const std::u16string path = std::u16string(kKey) + u"\\SearchPaths\\Path 1", map = KeyOf(m.Clsid);
  const struct {
    const std::u16string& key;
    const char16_t* value;
    DWORD type, size;
  } cases[] = {
      {path, u"Path", REG_SZ, 12},          {path, u"Flags", REG_DWORD, 4},    {path, u"CheckSum", REG_BINARY, 16},
      {map, u"Path", REG_SZ, 26},           {map, u"Name", REG_SZ, 10},        {map, u"Product", REG_SZ, 16},
      {map, u"Properties", REG_BINARY, 36}, {map, u"FileTime", REG_BINARY, 8}, {map, u"UserFlags", REG_DWORD, 4},
      {map, u"State", 0, 0},
  };
  for (const auto& c : cases) EXPECT_EQ(Stored(c.key, c.value), std::make_pair(c.type, c.size)) << c.size;
}

TEST_F(Cache, AReadGivesBackEveryStoredFieldSortedAndKeepsWhatIsLoaded) {
  const VstMapping a = Mapping(1, u"a.so", u"Alpha", VMF_SYNTH | VMF_NO_LATENCY | VMF_BAD_IMAGE);
  ASSERT_EQ(RoundTrip({Mapping(3, u"crash.so", u"Aardvark", VMF_FAILED), Mapping(2, u"b.so", u"beta"), a}), S_OK);
  EXPECT_EQ(Names(list_), (std::vector<std::u16string>{u"Alpha", u"beta", u"Aardvark"}));
  EXPECT_EQ(std::memcmp(At(0), &a, offsetof(VstMapping, State)), 0);
  At(0)->State = VMS_LOADED;
  ASSERT_EQ(ZqVstReadMappings(&list_, TRUE, FALSE), S_OK);
  EXPECT_EQ(At(0)->State, VMS_STALE | VMS_LOADED);
  EXPECT_EQ(At(1)->State, VMS_STALE);
}

// A damaged key is dropped alone, and is gone from the store after the next
// write; a name that is no identifier reads as the null one, which nothing
// resolves.
TEST_F(Cache, DamagedKeysAreDroppedAndGoneAfterTheNextWrite) {
  const VstMapping keep = Mapping(1, u"keep.so", u"Keep"), hurt = Mapping(2, u"hurt.so", u"Hurt");
  const DWORD word = 7;
  const BYTE binary[35] = {};
  const std::u16string longName(64, u'x');
  const struct {
    const char16_t* value;  // changed or, without data, deleted
    DWORD type;
    const void* data;
    DWORD size;
    std::u16string moveTo;  // the key's new name, if any
    int read;
  } cases[] = {
      {u"UserFlags", 0, nullptr, 0, u"", 1},
      {u"Flags", REG_SZ, u"7", 4, u"", 1},
      {u"Flags", REG_DWORD, &word, 2, u"", 1},
      {u"Properties", REG_BINARY, binary, 35, u"", 1},
      {u"Name", REG_SZ, longName.c_str(), 130, u"", 1},
      {nullptr, 0, nullptr, 0, u"{no identifier}", 2},
      {nullptr, 0, nullptr, 0, std::u16string(45, u'7'), 1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(&c - cases);
    ASSERT_EQ(RoundTrip({keep, hurt}), S_OK);
    HKEY h = nullptr;
    RegOpenKeyExW(HKEY_CURRENT_USER, KeyOf(hurt.Clsid).c_str(), 0, KEY_ALL_ACCESS, &h);
    if (c.data) RegSetValueExW(h, c.value, 0, c.type, static_cast<const BYTE*>(c.data), c.size);
    if (c.value && !c.data) RegDeleteValueW(h, c.value);
    WCHAR value[32];
    BYTE data[600];
    for (DWORD i = 0, chars = 32, size = 600, type = 0;
         !c.moveTo.empty() && RegEnumValueW(h, i, value, &chars, nullptr, &type, data, &size) == ERROR_SUCCESS;
         ++i, chars = 32, size = 600)
      Store(std::u16string(kKey) + u"\\Mappings\\" + c.moveTo, value, type, data, size);
    RegCloseKey(h);
    if (!c.moveTo.empty()) RegDeleteTreeW(HKEY_CURRENT_USER, KeyOf(hurt.Clsid).c_str());
    ASSERT_EQ(ZqVstReadMappings(ZqVstCache_Mappings(), FALSE, FALSE), S_OK);
    const tZQLIST* list = *ZqVstCache_Mappings();
    ASSERT_EQ(list->count, c.read);
    IClassFactory* factory = nullptr;
    EXPECT_EQ(DllGetClassObject(ZqVstMappingAt(list, 0)->Clsid, IID_IClassFactory,
                                reinterpret_cast<void**>(&factory)),
              c.read == 1 ? S_OK : CLASS_E_CLASSNOTAVAILABLE);
    if (factory) factory->Release();
    ASSERT_EQ(ZqVstWriteMappings(*ZqVstCache_Mappings(), TRUE, FALSE, nullptr, nullptr), S_OK);
    EXPECT_EQ(Stored(KeyOf(hurt.Clsid), u"Path").first, 0u);
  }
}

TEST_F(Cache, APurgeDropsStaleMappingsButKeepsThoseInUseUnwritten) {
  VstMapping gone = Mapping(2, u"gone.so", u"Gone"), used = Mapping(3, u"used.so", u"Used");
  gone.State = VMS_STALE;
  used.State = VMS_STALE | VMS_LOADED;
  list_ = List({Mapping(1, u"fresh.so", u"Fresh"), gone, used});
  ASSERT_EQ(ZqVstWriteMappings(list_, TRUE, FALSE, nullptr, nullptr), S_OK);
  EXPECT_EQ(Names(list_), (std::vector<std::u16string>{u"Fresh", u"Used"}));
  EXPECT_EQ(ZqVstCache_MappingCount(), 1);
  EXPECT_EQ(Stored(KeyOf(used.Clsid), u"Path").first, 0u);
  HRESULT told = S_OK;
  const WCHAR* details = ZqErrorHandler_DetailsInfo(&told, nullptr, nullptr);
  EXPECT_EQ(told, ZQ_E_PLUGINS_NOT_INSTALLED);
  EXPECT_TRUE(details && std::u16string(details).find(u"Used") != std::u16string::npos);
  ZqErrorHandler_DetailsInit();
}

// A rename changes the stored name and not the identifier, which then no
// longer agrees with its mapping; another host's identifier is bridged, and
// a name match decides before a file match.
TEST_F(Cache, RenamedPlugInsAndOtherHostsTranslate) {
  ASSERT_EQ(RoundTrip({Mapping(7, u"a.so", u"Echo"), Mapping(7, u"b.so", u"Echo B")}), S_OK);
  const CLSID saved = At(0)->Clsid;
  CLSID id = saved, otherHost = At(0)->EditorPageClsid, byName = At(1)->Clsid, none = saved;
  otherHost.Data4[0] ^= 0xFF;
  byName.Data2 = saved.Data2;
  byName.Data4[1] ^= 1;
  none.Data1 = 8;
  none.Data4[1] ^= 1;
  EXPECT_EQ(ZqVstTranslateClsid(list_, &id), S_FALSE);
  EXPECT_EQ(ZqVstTranslateClsid(list_, &otherHost), S_OK);
  EXPECT_EQ(otherHost, At(0)->EditorPageClsid);
  EXPECT_EQ(ZqVstTranslateClsid(list_, &byName), S_OK);
  EXPECT_EQ(byName, At(1)->Clsid);
  EXPECT_EQ(ZqVstTranslateClsid(list_, &none), ZQ_E_NOT_FOUND);

  ASSERT_EQ(ZqVstRenameMapping(At(0), u"Renamed"), S_OK);
  EXPECT_EQ(ZqVstTranslateClsid(list_, &id), E_UNEXPECTED);
  ASSERT_EQ(ZqVstReadMappings(&list_, FALSE, FALSE), S_OK);
  EXPECT_EQ(std::u16string(At(ZqVstFindMapping(list_, saved))->Name), u"Renamed");
}

// The four words wrap each by itself, and only equality counts.
TEST_F(Cache, FolderSumsWrapWordByWord) {
  zqtest::TestFolder folder("zqcache");
  const FILETIME time = {0xF0000001, 0x01D20000};
  for (const char* name : {"a.so", "B.SO", "notes.txt", "sub/c.so", ".hidden/d.so"}) {
    std::filesystem::create_directories((folder.path() / name).parent_path());
    const HANDLE h = CreateFileW(ZqUtf8ToUtf16((folder.path() / name).string()).c_str(), GENERIC_WRITE, 0, nullptr,
                                 CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    DWORD written = 0;
    WriteFile(h, "0123456789", 10, &written, nullptr);
    ASSERT_TRUE(SetFileTime(h, nullptr, nullptr, &time));
    CloseHandle(h);
  }
  VstSearchPath now{};
  lstrcpynW(now.Path, ZqUtf8ToUtf16(folder.path().string() + "/").c_str(), 260);
  const struct {
    DWORD flags;
    std::vector<DWORD> sums;
  } cases[] = {{VSP_EFFECTS, {0xE0000002, 0x03A40000, 20, 0}},
               {VSP_EFFECTS | VSP_RECURSE, {0xD0000003, 0x05760000, 30, 0}}};
  for (const auto& c : cases) {
    now.Flags = c.flags;
    ASSERT_EQ(ZqVstComputeCheckSum(&now, nullptr), S_OK);
    EXPECT_EQ(std::vector<DWORD>(now.CheckSum, now.CheckSum + 4), c.sums);
  }
  tZQLIST* current = Folders({now});
  tZQLIST* stored = Folders({now});
  EXPECT_FALSE(ZqVstSearchPathsChanged(current, stored));
  FolderAt(stored, 0)->CheckSum[1] += 1;
  EXPECT_TRUE(ZqVstSearchPathsChanged(current, stored));
  EXPECT_EQ(FolderAt(current, 0)->Found, 0u);
  ZqList_Destroy(current);
  ZqList_Destroy(stored);
}

TEST_F(Cache, AStoreWrittenByAnotherProcessReadsTheSame) {
  const VstMapping a = Mapping(1, u"a.so", u"A"), b = Mapping(2, u"b.so", u"B", VMF_SYNTH);
  EXPECT_EXIT(std::_Exit(ZqVstWriteMappings(List({a, b}), FALSE, FALSE, nullptr, nullptr) == S_OK ? 0 : 1),
              ::testing::ExitedWithCode(0), "");
  ASSERT_EQ(ZqVstReadMappings(&list_, FALSE, FALSE), S_OK);
  ASSERT_EQ(list_->count, 2);
  EXPECT_EQ(std::memcmp(At(1), &b, offsetof(VstMapping, State)), 0);
}

// What an item's words say of a mapping's flags, and what comes back.
TEST(HostCacheItem, KindsFlagsAndPropertiesComeBackWithTheirLosses) {
  const struct {
    DWORD flags, kind;
    LONG failed, enabled;
    DWORD back;
  } cases[] = {
      {VMF_SYNTH | VMF_EFFECT | VMF_ENABLED, VHC_KIND_SYNTH, 0, -1, VMF_SYNTH | VMF_ENABLED},
      {VMF_EFFECT | VMF_FAILED | VMF_HAS_EDITOR, VHC_KIND_EFFECT, -1, 0, VMF_EFFECT | VMF_FAILED | VMF_HAS_EDITOR},
      {VMF_NO_ENTRY | VMF_SYNTH | VMF_ENABLED, VHC_KIND_NO_ENTRY, 0, -1, VMF_ENABLED},
      {VMF_ENABLED | VMF_BAD_IMAGE, VHC_KIND_NEITHER, 1, 0, VMF_SYNTH | VMF_EFFECT | VMF_FAILED},
      {VMF_EFFECT | VMF_SHELL_ITEM | VMF_NO_LATENCY, VHC_KIND_EFFECT, 0, 0, VMF_EFFECT | VMF_SHELL_ITEM | VMF_NO_LATENCY},
  };
  VstHostCacheItem item;
  VstMapping back;
  for (const auto& c : cases) {
    ZqVstMappingToHostItem(Mapping(9, u"x.so", u"X", c.flags), &item);
    EXPECT_EQ(std::vector<LONG>({LONG(item.Kind), item.Failed, item.Enabled}),
              std::vector<LONG>({LONG(c.kind), c.failed, c.enabled}));
    ZqVstMappingFromHostItem(item, &back);
    EXPECT_EQ(back.Flags, c.back) << c.flags;
  }
  VstMapping m = Mapping(0x41424344, u"syn.so", u"Syn", VMF_SYNTH);
  m.Properties.flags = 0xFFF;
  ZqVstMappingToHostItem(m, &item);
  EXPECT_EQ(item.Capabilities, 0x17FDu) << "P8, P0..P5, P9..P11, P7; P6 has no bit";
  item.StateBits = 4;
  ZqVstMappingFromHostItem(item, &back);
  EXPECT_EQ(back.Properties.flags, 0xFFF) << "bit 12 gives P6 too, the synth kind P8";
  EXPECT_EQ(back.State, VMS_LOADED);
  EXPECT_EQ(back.Product[0], 0) << "never read back";
  EXPECT_EQ(std::memcmp(&back, &m, offsetof(VstMapping, Product)), 0);
  EXPECT_EQ(std::memcmp(&back.Properties, &m.Properties, offsetof(VstMapping, Flags) - offsetof(VstMapping, Properties)), 0);
}

TEST_F(Cache, AHostCacheTakesEveryReadAndWriteAndLeavesTheStoreAlone) {
  MemoryHostCache& host = host_;
  Bind(&host);  // the last binding decides
  VstMapping gone = Mapping(2, u"gone.so", u"Gone");
  gone.State = VMS_STALE;
  list_ = List({Mapping(1, u"a.so", u"A"), gone});
  ASSERT_EQ(ZqVstWriteMappings(list_, TRUE, FALSE, nullptr, nullptr), S_OK);
  EXPECT_EQ(host.removed, std::vector<CLSID>{gone.Clsid});
  ASSERT_EQ(ZqVstReadMappings(&list_, TRUE, FALSE), S_OK);
  EXPECT_EQ(Names(list_), std::vector<std::u16string>{u"A"});
  EXPECT_EQ(At(0)->Product[0], 0);
  EXPECT_EQ(host.kinds, (std::vector<DWORD>{14, 14}));

  ASSERT_EQ(ZqVstCache_EnterMapping(*At(0)), S_OK);
  ASSERT_EQ(ZqVstCache_SetLoaded(At(0)->ParamsPageClsid), S_OK);
  EXPECT_EQ(host.loaded, std::vector<CLSID>{At(0)->Clsid});
  const DWORD flags = VMF_SHELL_ITEM | VMF_ENABLED | VMF_EFFECT;
  ASSERT_EQ(ZqVstUpdateMapping(At(0)->Clsid, nullptr, u"New", nullptr, &flags), S_OK);
  ASSERT_EQ(host.partials.size(), 1u);
  EXPECT_EQ(host.partials[0].FieldMask, VHC_MASK_ITEM | VHC_MASK_NAME | VHC_MASK_FLAGS);
  EXPECT_EQ(host.partials[0].Capabilities, 0xFFFF0000u | VHC_CAP_SHELL_ITEM);

  tZQLIST* folders = Folders({{u"/vst/", VSP_SYNTHS | 0x10, {}, 0}});
  ASSERT_EQ(ZqVstWriteSearchPaths(folders, FALSE, nullptr, nullptr), S_OK);
  ZqList_Destroy(folders);
  ASSERT_EQ(ZqVstReadSearchPaths(&folders), S_OK);
  EXPECT_EQ(FolderAt(folders, 0)->Flags, VSP_SYNTHS) << "the host's words count by their low bit";
  ZqList_Destroy(folders);
  HKEY key = nullptr;
  EXPECT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, kKey, 0, KEY_READ, &key), ERROR_FILE_NOT_FOUND);
}

}  // namespace
