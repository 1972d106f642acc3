#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "aplugins/zqvstwrap/discovery/zqvstfactory.h"
#include "aplugins/zqvstwrap/zqvstclasses.h"
#include "platform/file.h"
#include "platform/registry.h"
#include "tests/discovery/cache_fixture.h"
#include "tests/support/test_folder.h"

namespace {

using zqtest::Mapping;
using zqtest::MappingList;
using zqtest::Names;

constexpr const char16_t* kKey = u"Software\\Ostrand\\ZqCacheTest\\2.5\\Metrics\\VstCache";

std::u16string KeyOf(REFCLSID clsid) {
  WCHAR text[40];
  StringFromGUID2(clsid, text, 40);
  return std::u16string(kKey) + u"\\Mappings\\" + text;
}

// Type and size of a stored value; 0 and 0 when it is missing.
std::pair<DWORD, DWORD> Stored(const std::u16string& key, const char16_t* value) {
  HKEY h = nullptr;
  DWORD type = 0, size = 0;
  if (RegOpenKeyExW(HKEY_CURRENT_USER, key.c_str(), 0, KEY_READ, &h) == ERROR_SUCCESS) {
    if (RegQueryValueExW(h, value, nullptr, &type, nullptr, &size) != ERROR_SUCCESS) type = size = 0;
    RegCloseKey(h);
  }
  return {type, size};
}

void Store(const std::u16string& key, const char16_t* value, DWORD type, const void* data, DWORD size) {
  HKEY h = nullptr;
  ASSERT_EQ(RegCreateKeyExW(HKEY_CURRENT_USER, key.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &h, nullptr),
            ERROR_SUCCESS);
  if (value) {
    EXPECT_EQ(RegSetValueExW(h, value, 0, type, static_cast<const BYTE*>(data), size), ERROR_SUCCESS);
  }
  RegCloseKey(h);
}

using CacheStore = zqtest::CacheTest;

TEST_F(CacheStore, TheTreeHasTheNamesTypesAndSizesOfTheLayout) {
  const VstMapping m = Mapping(0x5A71, u"gain.so", u"Gain");
  ASSERT_EQ(RoundTrip({m}), S_OK);
  tZQLIST* folders = nullptr;
  ASSERT_EQ(ZqList_CreateExZ(&folders, sizeof(VstSearchPath), 0, 0, ZQLIST_ARRAY, 0, 0, 0), S_OK);
  VstSearchPath folder{u"/vst/", VSP_RECURSE | VSP_EFFECTS, {1, 2, 3, 4}, 1};
  ASSERT_EQ(ZqList_InsertList(folders, -1, &folder, 1), S_OK);
  ASSERT_EQ(ZqVstWriteSearchPaths(folders, TRUE, nullptr, nullptr), S_OK);
  ZqList_Destroy(folders);

  const std::u16string path = std::u16string(kKey) + u"\\SearchPaths\\Path 1";
  const struct {
    std::u16string key;
    const char16_t* value;
    DWORD type, size;
  } cases[] = {
      {path, u"Path", REG_SZ, 12},           {path, u"Flags", REG_DWORD, 4},
      {path, u"CheckSum", REG_BINARY, 16},   {KeyOf(m.Clsid), u"Path", REG_SZ, 34},
      {KeyOf(m.Clsid), u"Name", REG_SZ, 10}, {KeyOf(m.Clsid), u"Vendor", REG_SZ, 14},
      {KeyOf(m.Clsid), u"Product", REG_SZ, 16}, {KeyOf(m.Clsid), u"Properties", REG_BINARY, 36},
      {KeyOf(m.Clsid), u"FileTime", REG_BINARY, 8}, {KeyOf(m.Clsid), u"Flags", REG_DWORD, 4},
      {KeyOf(m.Clsid), u"UserFlags", REG_DWORD, 4}, {KeyOf(m.Clsid), u"State", 0, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(ZqUtf16ToUtf8(c.value));
    EXPECT_EQ(Stored(c.key, c.value), std::make_pair(c.type, c.size));
  }
}

TEST_F(CacheStore, AReadGivesBackEveryStoredFieldSortedWithFailedMappingsLast) {
  VstMapping failed = Mapping(3, u"crash.so", u"Aardvark", VMF_FAILED | VMF_EFFECT);
  VstMapping b = Mapping(2, u"b.so", u"beta");
  VstMapping a = Mapping(1, u"a.so", u"Alpha", VMF_SYNTH | VMF_NO_LATENCY | VMF_BAD_IMAGE);
  a.State = VMS_LOADED;  // never stored
  ASSERT_EQ(RoundTrip({failed, b, a}, TRUE), S_OK);
  EXPECT_EQ(Names(list_), (std::vector<std::u16string>{u"Alpha", u"beta", u"Aardvark"}));
  const VstMapping* got = At(0);
  EXPECT_EQ(std::memcmp(&got->Clsid, &a.Clsid, 48), 0) << "the three identifiers";
  EXPECT_EQ(std::memcmp(got->Path, a.Path, offsetof(VstMapping, State) - offsetof(VstMapping, Path)), 0);
  EXPECT_EQ(got->State, VMS_STALE);
}

TEST_F(CacheStore, ARereadKeepsWhatIsLoadedAndAFailedReadKeepsTheList) {
  const VstMapping m = Mapping(1, u"a.so", u"A");
  ASSERT_EQ(RoundTrip({m, Mapping(2, u"b.so", u"B")}), S_OK);
  ZqVstMappingAt(list_, 0)->State = VMS_LOADED;
  ASSERT_EQ(ZqVstReadMappings(&list_, TRUE, FALSE), S_OK);
  EXPECT_EQ(At(0)->State, VMS_STALE | VMS_LOADED);
  EXPECT_EQ(At(1)->State, VMS_STALE);
  ASSERT_EQ(ZqVstDeleteCache(), S_OK);
  EXPECT_EQ(ZqVstReadMappings(&list_, FALSE, FALSE), S_FALSE) << "no mappings key: the first start";
  EXPECT_EQ(list_->count, 0);
}

// A folder numbered 12 comes before the one numbered 2: the store's order.
TEST_F(CacheStore, FoldersComeInTheStoresKeyOrder) {
  for (const char16_t* n : {u"2", u"12"}) {
    const std::u16string key = std::u16string(kKey) + u"\\SearchPaths\\Path " + n;
    const std::u16string path = std::u16string(u"/folder") + n + u"/";
    const DWORD flags = 3, sums[4] = {};
    Store(key, u"Path", REG_SZ, path.c_str(), static_cast<DWORD>((path.size() + 1) * 2));
    Store(key, u"Flags", REG_DWORD, &flags, 4);
    Store(key, u"CheckSum", REG_BINARY, sums, 16);
  }
  tZQLIST* folders = nullptr;
  ASSERT_EQ(ZqVstReadSearchPaths(&folders), S_OK);
  ASSERT_EQ(folders->count, 2);
  EXPECT_EQ(std::u16string(static_cast<VstSearchPath*>(ZqList_ArrayItem(folders, 0))->Path), u"/folder12/");
  EXPECT_EQ(static_cast<VstSearchPath*>(ZqList_ArrayItem(folders, 1))->Found, 1u);
  ZqList_Destroy(folders);
  ZqVstDeleteCache();
  EXPECT_EQ(ZqVstReadSearchPaths(&folders), S_FALSE) << "never written";
  ASSERT_NE(folders, nullptr);
  EXPECT_EQ(folders->count, 0);
  ZqList_Destroy(folders);
}

// Every damage drops the one entry and nothing else; what was dropped is gone
// from the store after the next write.
TEST_F(CacheStore, DamagedEntriesAreDroppedAndGoneAfterTheNextWrite) {
  const BYTE shortBinary[35] = {};
  const DWORD word = 7;
  const std::u16string longName(64, u'x');
  const struct {
    const char* what;
    const char16_t* value;  // null: delete it
    DWORD type;
    const void* data;
    DWORD size;
  } cases[] = {
      {"no UserFlags", u"UserFlags", 0, nullptr, 0},
      {"Flags as a text", u"Flags", REG_SZ, u"7", 4},
      {"Flags of two bytes", u"Flags", REG_DWORD, &word, 2},
      {"Properties short", u"Properties", REG_BINARY, shortBinary, 35},
      {"Path as a word", u"Path", REG_DWORD, &word, 4},
      {"Name too long", u"Name", REG_SZ, longName.c_str(), 130},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    const VstMapping keep = Mapping(1, u"keep.so", u"Keep");
    const VstMapping hurt = Mapping(2, u"hurt.so", u"Hurt");
    ASSERT_EQ(RoundTrip({keep, hurt}), S_OK);
    HKEY h = nullptr;
    ASSERT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, KeyOf(hurt.Clsid).c_str(), 0, KEY_ALL_ACCESS, &h), ERROR_SUCCESS);
    if (c.data)
      RegSetValueExW(h, c.value, 0, c.type, static_cast<const BYTE*>(c.data), c.size);
    else
      RegDeleteValueW(h, c.value);
    RegCloseKey(h);
    ASSERT_EQ(ZqVstReadMappings(&list_, FALSE, FALSE), S_OK);
    EXPECT_EQ(Names(list_), std::vector<std::u16string>{u"Keep"});
    ASSERT_EQ(ZqVstWriteMappings(list_, TRUE, FALSE, nullptr, nullptr), S_OK);
    EXPECT_EQ(Stored(KeyOf(hurt.Clsid), u"Path").first, 0u);
  }
}

// A key name that is no identifier reads as the null identifier, which no
// class object answers; a name too long for one is passed over.
TEST_F(CacheStore, KeysThatAreNoIdentifierNeverResolve) {
  const VstMapping m = Mapping(1, u"a.so", u"A");
  ASSERT_EQ(RoundTrip({m}), S_OK);
  HKEY from = nullptr;
  ASSERT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, KeyOf(m.Clsid).c_str(), 0, KEY_READ, &from), ERROR_SUCCESS);
  for (const std::u16string& name : {std::u16string(u"{not-an-identifier}"), std::u16string(45, u'7')}) {
    const std::u16string to = std::u16string(kKey) + u"\\Mappings\\" + name;
    WCHAR value[32];
    BYTE data[600];
    for (DWORD i = 0, chars = 32, size = 600, type = 0;
         RegEnumValueW(from, i, value, &chars, nullptr, &type, data, &size) == ERROR_SUCCESS;
         ++i, chars = 32, size = 600)
      Store(to, value, type, data, size);
  }
  RegCloseKey(from);
  ASSERT_EQ(ZqVstReadMappings(ZqVstCache_Mappings(), FALSE, FALSE), S_OK);
  const tZQLIST* list = *ZqVstCache_Mappings();
  ASSERT_EQ(list->count, 2);
  const VstMapping* nameless = ZqVstMappingAt(list, IsEqualGUID(ZqVstMappingAt(list, 0)->Clsid, m.Clsid) ? 1 : 0);
  EXPECT_EQ(nameless->Clsid, GUID_NULL);
  for (const CLSID& id : {nameless->Clsid, m.Clsid}) {
    IClassFactory* factory = nullptr;
    EXPECT_EQ(DllGetClassObject(id, IID_IClassFactory, reinterpret_cast<void**>(&factory)),
              IsEqualGUID(id, m.Clsid) ? S_OK : CLASS_E_CLASSNOTAVAILABLE);
    if (factory) factory->Release();
  }
}

TEST_F(CacheStore, APurgeDropsStaleMappingsButKeepsThoseInUse) {
  VstMapping fresh = Mapping(1, u"fresh.so", u"Fresh");
  VstMapping gone = Mapping(2, u"gone.so", u"Gone");
  VstMapping used = Mapping(3, u"used.so", u"Used");
  gone.State = VMS_STALE;
  used.State = VMS_STALE | VMS_LOADED;
  tZQLIST* list = MappingList({fresh, gone, used});
  ASSERT_EQ(ZqVstWriteMappings(list, TRUE, FALSE, nullptr, nullptr), S_OK);
  EXPECT_EQ(Names(list), (std::vector<std::u16string>{u"Fresh", u"Used"}));
  EXPECT_EQ(ZqVstCache_MappingCount(), 1);
  EXPECT_EQ(Stored(KeyOf(used.Clsid), u"Path").first, 0u) << "in use, so neither stored nor dropped";
  EXPECT_EQ(Stored(KeyOf(fresh.Clsid), u"Path").first, REG_SZ);
  ASSERT_EQ(ZqVstWriteMappings(list, FALSE, FALSE, nullptr, nullptr), S_OK);
  EXPECT_EQ(ZqVstCache_MappingCount(), 2) << "without a purge stale mappings are written";
  ZqList_Destroy(list);
}

// A rename changes the stored name and not the identifier, which then no
// longer agrees with its mapping; another host's identifier is bridged.
TEST_F(CacheStore, RenamedPlugInsAndOtherHostsTranslate) {
  ASSERT_EQ(RoundTrip({Mapping(7, u"a.so", u"Echo"), Mapping(7, u"b.so", u"Echo B")}), S_OK);
  VstMapping* echo = ZqVstMappingAt(list_, 0);
  const CLSID saved = echo->Clsid;

  CLSID id = saved;
  EXPECT_EQ(ZqVstTranslateClsid(list_, &id), S_FALSE);
  CLSID otherHost = echo->EditorPageClsid;
  otherHost.Data4[0] ^= 0xFF;
  EXPECT_EQ(ZqVstTranslateClsid(list_, &otherHost), S_OK);
  EXPECT_EQ(otherHost, echo->EditorPageClsid) << "the role is kept";
  // The file of the first and the name of the second: the name decides.
  CLSID otherFile = ZqVstMappingAt(list_, 1)->Clsid;
  otherFile.Data2 = saved.Data2;
  otherFile.Data4[1] ^= 1;
  EXPECT_EQ(ZqVstTranslateClsid(list_, &otherFile), S_OK);
  EXPECT_EQ(otherFile, ZqVstMappingAt(list_, 1)->Clsid);
  CLSID unknown = saved;
  unknown.Data1 = 8;
  unknown.Data4[0] ^= 1;
  EXPECT_EQ(ZqVstTranslateClsid(list_, &unknown), ZQ_E_NOT_FOUND);
  EXPECT_EQ(ZqVstTranslateClsid(list_, nullptr), ZQ_E_NOT_FOUND);

  ASSERT_EQ(ZqVstRenameMapping(echo, u"Echo renamed"), S_OK);
  EXPECT_EQ(echo->Clsid, saved);
  id = saved;
  EXPECT_EQ(ZqVstTranslateClsid(list_, &id), E_UNEXPECTED);
  ASSERT_EQ(ZqVstReadMappings(&list_, FALSE, FALSE), S_OK);
  EXPECT_EQ(std::u16string(At(ZqVstFindMapping(list_, saved))->Name), u"Echo renamed");

  CLSID missing = saved;
  missing.Data1 = 99;
  const DWORD flags = VMF_ENABLED;
  EXPECT_EQ(ZqVstUpdateMapping(missing, u"/x.so", u"X", &flags, &flags), S_OK) << "nothing stored, nothing changed";
  EXPECT_EQ(Stored(KeyOf(missing), u"Path").first, 0u);
}

// The four words wrap each by itself; only equality counts.
TEST_F(CacheStore, FolderSumsWrapAndAreComparedForEquality) {
  zqtest::TestFolder folder("zqcache");
  const FILETIME time = {0xF0000001, 0x01D20000};
  const struct {
    const char* name;
    int bytes;
  } files[] = {{"a.so", 10}, {"B.SO", 20}, {"notes.txt", 40}, {"sub/c.so", 80}, {".hidden/d.so", 160}};
  for (const auto& f : files) {
    std::filesystem::create_directories((folder.path() / f.name).parent_path());
    const HANDLE h = CreateFileW(ZqUtf8ToUtf16((folder.path() / f.name).string()).c_str(), GENERIC_WRITE, 0,
                                 nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(h, INVALID_HANDLE_VALUE);
    const std::string bytes(static_cast<size_t>(f.bytes), 'x');
    DWORD written = 0;
    WriteFile(h, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
    ASSERT_TRUE(SetFileTime(h, nullptr, nullptr, &time));
    CloseHandle(h);
  }
  VstSearchPath now{};
  lstrcpynW(now.Path, ZqUtf8ToUtf16(folder.path().string() + "/").c_str(), 260);
  const struct {
    DWORD flags;
    DWORD sums[4];
  } sums[] = {
      {VSP_EFFECTS, {0xE0000002, 0x03A40000, 30, 0}},
      {VSP_EFFECTS | VSP_RECURSE, {0xD0000003, 0x05760000, 110, 0}},
  };
  for (const auto& s : sums) {
    now.Flags = s.flags;
    ASSERT_EQ(ZqVstComputeCheckSum(&now, nullptr), S_OK);
    EXPECT_EQ(std::vector<DWORD>(now.CheckSum, now.CheckSum + 4), std::vector<DWORD>(s.sums, s.sums + 4));
  }

  tZQLIST* current = nullptr;
  tZQLIST* stored = nullptr;
  ZqList_CreateExZ(&current, sizeof(VstSearchPath), 0, 0, ZQLIST_ARRAY, 0, 0, 0);
  ZqList_CreateExZ(&stored, sizeof(VstSearchPath), 0, 0, ZQLIST_ARRAY, 0, 0, 0);
  ZqList_InsertList(current, -1, &now, 1);
  VstSearchPath same = now;
  for (WCHAR* c = same.Path; *c; ++c) *c = ZqToUpperW(*c);
  ZqList_InsertList(stored, -1, &same, 1);
  const struct {
    const char* what;
    int word;  // changed CheckSum word, -1 none
    DWORD flags;
    bool extraFolder;
    BOOL changed;
    DWORD found;
  } cases[] = {
      {"same but for case", -1, now.Flags, false, FALSE, 1}, {"one sum", 3, now.Flags, false, TRUE, 0},
      {"the flags", -1, VSP_EFFECTS, false, TRUE, 0},        {"one folder more", -1, now.Flags, true, TRUE, 1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    auto* s = static_cast<VstSearchPath*>(ZqList_ArrayItem(stored, 0));
    *s = same;
    s->Flags = c.flags;
    if (c.word >= 0) s->CheckSum[c.word] += 1;
    if (c.extraFolder) ZqList_InsertList(stored, -1, &same, 1);
    EXPECT_EQ(ZqVstSearchPathsChanged(current, stored), c.changed);
    EXPECT_EQ(static_cast<VstSearchPath*>(ZqList_ArrayItem(current, 0))->Found, c.found);
  }
  ZqList_Destroy(current);
  ZqList_Destroy(stored);
}

// Another process writes; this one reads what it committed.
TEST_F(CacheStore, AStoreWrittenByAnotherProcessReadsTheSame) {
  const VstMapping a = Mapping(1, u"a.so", u"A");
  const VstMapping b = Mapping(2, u"b.so", u"B", VMF_SYNTH);
  EXPECT_EXIT(
      {
        tZQLIST* list = MappingList({a, b});
        std::_Exit(ZqVstWriteMappings(list, FALSE, FALSE, nullptr, nullptr) == S_OK ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
  ASSERT_EQ(ZqVstReadMappings(&list_, FALSE, FALSE), S_OK);
  ASSERT_EQ(Names(list_), (std::vector<std::u16string>{u"A", u"B"}));
  EXPECT_EQ(std::memcmp(At(1), &b, offsetof(VstMapping, State)), 0);
}

// Identifiers resolve through the mappings in memory, whichever role they name.
TEST_F(CacheStore, ClassObjectsResolveThroughTheMappingList) {
  const VstMapping m = Mapping(0x5A71, u"zqgain.so", u"Gain");
  CLSID unknownTail = m.Clsid;
  unknownTail.Data4[7] ^= 1;
  const struct {
    const char* what;
    bool read;
    CLSID id;
    HRESULT hr;
  } cases[] = {
      {"before the cache is read", false, m.Clsid, CLASS_E_CLASSNOTAVAILABLE},
      {"the Params page", true, m.ParamsPageClsid, S_OK},
      {"the Editor page", true, m.EditorPageClsid, S_OK},
      {"no role", true, unknownTail, CLASS_E_CLASSNOTAVAILABLE},
  };
  tZQLIST* list = MappingList({m});
  ASSERT_EQ(ZqVstWriteMappings(list, FALSE, FALSE, nullptr, nullptr), S_OK);
  ZqList_Destroy(list);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    if (c.read) {
      ASSERT_EQ(ZqVstReadMappings(ZqVstCache_Mappings(), FALSE, FALSE), S_OK);
    }
    IClassFactory* factory = nullptr;
    EXPECT_EQ(DllGetClassObject(c.id, IID_IClassFactory, reinterpret_cast<void**>(&factory)), c.hr);
    if (factory) factory->Release();
  }
}

}  // namespace
