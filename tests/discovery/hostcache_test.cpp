#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "aplugins/zqvstwrap/discovery/zqvstfactory.h"
#include "platform/registry.h"
#include "tests/discovery/cache_fixture.h"

namespace {

using zqtest::Mapping;
using zqtest::MappingList;
using zqtest::Names;

// A host's cache kept in memory, as a host would keep it.
class MemoryHostCache final : public IVstHostCache {
 public:
  struct Folder {
    std::u16string path;
    DWORD recursive, effects, synths;
    BYTE sums[16];
  };
  std::vector<Folder> folders;
  std::vector<VstHostCacheItem> items;
  std::vector<VstHostCacheItem> partials;
  std::vector<DWORD> kinds;  // of BeginMappings and ClearMappings
  std::vector<CLSID> removed, loaded;
  DWORD failAt = ~0u;  // GetMapping fails at this index
  ULONG refs = 1;

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** object) override {
    *object = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++refs; }
  ULONG STDMETHODCALLTYPE Release() override { return --refs; }
  HRESULT STDMETHODCALLTYPE GetSearchPath(DWORD index, WCHAR* path, DWORD size, DWORD* r, DWORD* e, DWORD* s,
                                          BYTE* sums) override {
    if (index >= folders.size()) return S_FALSE;
    lstrcpynW(path, folders[index].path.c_str(), static_cast<int>(size));
    *r = folders[index].recursive, *e = folders[index].effects, *s = folders[index].synths;
    std::memcpy(sums, folders[index].sums, 16);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE AddSearchPath(DWORD* index, const WCHAR* path, LONG r, LONG e, LONG s,
                                          const BYTE* sums) override {
    Folder f{path, static_cast<DWORD>(r), static_cast<DWORD>(e), static_cast<DWORD>(s), {}};
    std::memcpy(f.sums, sums, 16);
    *index = static_cast<DWORD>(folders.size());
    folders.push_back(f);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Unused3() override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE BeginMappings(DWORD kind) override {
    kinds.push_back(kind);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetMapping(DWORD index, VstHostCacheItem* item) override {
    if (index == failAt) return E_FAIL;
    if (index >= items.size()) return S_FALSE;
    *item = items[index];
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Unused6() override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE PutMapping(const VstHostCacheItem* item) override {
    (item->FieldMask ? partials : items).push_back(*item);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE ClearMappings(DWORD kind) override {
    kinds.push_back(kind);
    items.clear();
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE RemoveMapping(const VstHostCacheItem* item) override {
    removed.push_back(item->Clsid);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE InitMappingItem(REFCLSID clsid, VstHostCacheItem* item) override {
    item->Clsid = clsid;
    item->Capabilities = 0xFFFF0000u;  // the host's own bits, to be kept
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE SetMappingLoaded(REFCLSID clsid, LONG yes) override {
    if (yes == -1) loaded.push_back(clsid);
    return S_OK;
  }
};

// What the item's words say of a mapping's flags, and what comes back.
TEST(HostCacheItem, KindsAndYesNoWordsRoundTripWithTheirLosses) {
  const struct {
    DWORD flags;
    DWORD kind;
    LONG failed, enabled;
    DWORD neither;
    DWORD back;
  } cases[] = {
      {VMF_SYNTH | VMF_EFFECT | VMF_ENABLED, VHC_KIND_SYNTH, 0, -1, 0, VMF_SYNTH | VMF_ENABLED},
      {VMF_EFFECT | VMF_FAILED | VMF_HAS_EDITOR, VHC_KIND_EFFECT, -1, 0, 0, VMF_EFFECT | VMF_FAILED | VMF_HAS_EDITOR},
      {VMF_NO_ENTRY | VMF_SYNTH | VMF_ENABLED, VHC_KIND_NO_ENTRY, 0, -1, 0, VMF_ENABLED},
      {VMF_ENABLED | VMF_BAD_IMAGE, VHC_KIND_NEITHER, 1, 0, 1, VMF_SYNTH | VMF_EFFECT | VMF_FAILED},
      {VMF_EFFECT | VMF_SHELL_ITEM | VMF_NO_LATENCY, VHC_KIND_EFFECT, 0, 0, 0,
       VMF_EFFECT | VMF_SHELL_ITEM | VMF_NO_LATENCY},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.flags);
    VstMapping m = Mapping(9, u"x.so", u"X", c.flags);
    m.State = VMS_STALE | VMS_LOADED;
    VstHostCacheItem item;
    ZqVstMappingToHostItem(m, &item);
    EXPECT_EQ(item.Kind, c.kind);
    EXPECT_EQ(item.Failed, c.failed);
    EXPECT_EQ(item.Enabled, c.enabled);
    EXPECT_EQ(item.Neither, c.neither);
    EXPECT_EQ(item.StateBits, 2u) << "stale is written, loaded is not";
    VstMapping back;
    ZqVstMappingFromHostItem(item, &back);
    EXPECT_EQ(back.Flags, c.back);
  }
}

TEST(HostCacheItem, FieldsAndPropertyFlagsComeBackThroughTheirMap) {
  VstMapping m = Mapping(0x41424344, u"syn.so", u"Syn", VMF_SYNTH);
  m.Properties.flags = 0xFFF;
  VstHostCacheItem item;
  ZqVstMappingToHostItem(m, &item);
  EXPECT_EQ(item.UniqueID, 0x41424344);
  EXPECT_EQ(item.EditorParams, 2u) << "parameters, and no editor in the flags";
  EXPECT_EQ(std::u16string(item.ProgressName), u"Syn");
  EXPECT_EQ(std::memcmp(item.PropertyWords, &m.Properties, 32), 0);
  // bits 0..12 from P8, shell, P0..P5, P9..P11, no latency, P7
  EXPECT_EQ(item.Capabilities, 0x17FDu);
  item.StateBits = 4;
  VstMapping back;
  ZqVstMappingFromHostItem(item, &back);
  EXPECT_EQ(back.Properties.flags, 0xFFF) << "P6 comes from bit 12, P8 from the synth kind";
  EXPECT_EQ(back.State, VMS_LOADED);
  EXPECT_EQ(back.Product[0], 0) << "never read back";
  EXPECT_EQ(std::memcmp(&back, &m, offsetof(VstMapping, Product)), 0);
  EXPECT_EQ(std::memcmp(&back.Properties, &m.Properties, offsetof(VstMapping, Flags) - offsetof(VstMapping, Properties)),
            0);
  item.Kind = VHC_KIND_EFFECT;
  item.Capabilities = 1;  // P8 alone is not read back from bit 0
  ZqVstMappingFromHostItem(item, &back);
  EXPECT_EQ(back.Properties.flags, 0);
}

class HostCache : public zqtest::CacheTest {
 protected:
  void SetUp() override { Bind(&host_); }
  MemoryHostCache host_;
};

TEST_F(HostCache, MappingsAndFoldersTravelThroughTheHostAndNotTheStore) {
  VstMapping gone = Mapping(2, u"gone.so", u"Gone");
  gone.State = VMS_STALE;
  tZQLIST* list = MappingList({Mapping(1, u"a.so", u"A"), gone, Mapping(3, u"b.so", u"B")});
  ASSERT_EQ(ZqVstWriteMappings(list, TRUE, FALSE, nullptr, nullptr), S_OK);
  ZqList_Destroy(list);
  ASSERT_EQ(host_.removed.size(), 1u);
  EXPECT_EQ(host_.removed[0], gone.Clsid);
  EXPECT_EQ(ZqVstCache_MappingCount(), 2);

  ASSERT_EQ(ZqVstReadMappings(&list_, TRUE, FALSE), S_OK);
  EXPECT_EQ(Names(list_), (std::vector<std::u16string>{u"A", u"B"}));
  EXPECT_EQ(At(0)->State, VMS_STALE);
  EXPECT_EQ(At(0)->Product[0], 0);
  EXPECT_EQ(host_.kinds, (std::vector<DWORD>{14, 14}));
  host_.failAt = 1;
  ASSERT_EQ(ZqVstReadMappings(&list_, FALSE, FALSE), E_FAIL);
  EXPECT_EQ(list_->count, 2) << "the list before the failed read stays";
  ASSERT_EQ(ZqVstReadMappings(&list_, FALSE, TRUE), S_OK);
  EXPECT_EQ(list_->count, 0) << "the host cache skipped";

  tZQLIST* folders = nullptr;
  ASSERT_EQ(ZqList_CreateExZ(&folders, sizeof(VstSearchPath), 0, 0, ZQLIST_ARRAY, 0, 0, 0), S_OK);
  VstSearchPath folder{u"/vst/", VSP_SYNTHS | 0x10, {0xFFFFFFFF, 2, 3, 4}, 0};
  ZqList_InsertList(folders, -1, &folder, 1);
  ASSERT_EQ(ZqVstWriteSearchPaths(folders, FALSE, nullptr, nullptr), S_OK);
  ZqList_Destroy(folders);
  ASSERT_EQ(host_.folders.size(), 1u);
  EXPECT_EQ(host_.folders[0].recursive, 0u);
  EXPECT_EQ(host_.folders[0].synths, 0xFFFFFFFFu);
  ASSERT_EQ(ZqVstReadSearchPaths(&folders), S_OK);
  ASSERT_EQ(folders->count, 1);
  const auto* read = static_cast<const VstSearchPath*>(ZqList_ArrayItem(folders, 0));
  EXPECT_EQ(read->Flags, VSP_SYNTHS) << "other bits do not travel";
  EXPECT_EQ(read->CheckSum[0], 0xFFFFFFFFu);
  EXPECT_EQ(read->Found, 1u);
  ZqList_Destroy(folders);

  HKEY key = nullptr;
  EXPECT_NE(RegOpenKeyExW(HKEY_CURRENT_USER, ZqVstCache_KeyName(), 0, KEY_READ, &key), ERROR_SUCCESS);
}

TEST_F(HostCache, UpdatesArePartialItemsAndLoadingIsTold) {
  const VstMapping m = Mapping(5, u"a.so", u"A");
  ASSERT_EQ(ZqVstCache_EnterMapping(m), S_OK);
  IClassFactory* factory = nullptr;
  ASSERT_EQ(DllGetClassObject(m.ParamsPageClsid, IID_IClassFactory, reinterpret_cast<void**>(&factory)), S_OK);
  factory->Release();
  ASSERT_EQ(ZqVstCache_SetLoaded(m.EditorPageClsid), S_OK);
  ASSERT_EQ(host_.loaded.size(), 1u);
  EXPECT_EQ(host_.loaded[0], m.Clsid);

  const DWORD user = 0x77;
  const DWORD flags = VMF_SHELL_ITEM | VMF_ENABLED | VMF_EFFECT;
  const struct {
    const WCHAR* name;
    const DWORD* userFlags;
    const DWORD* flags;
    DWORD mask;
  } cases[] = {
      {u"New", nullptr, nullptr, VHC_MASK_ITEM | VHC_MASK_NAME},
      {nullptr, &user, nullptr, VHC_MASK_ITEM | VHC_MASK_USERFLAGS},
      {nullptr, nullptr, &flags, VHC_MASK_ITEM | VHC_MASK_FLAGS},
  };
  for (const auto& c : cases) ASSERT_EQ(ZqVstUpdateMapping(m.Clsid, nullptr, c.name, c.userFlags, c.flags), S_OK);
  ASSERT_EQ(host_.partials.size(), 3u);
  for (size_t i = 0; i < 3; ++i) EXPECT_EQ(host_.partials[i].FieldMask, cases[i].mask);
  EXPECT_EQ(std::u16string(host_.partials[0].Name), u"New");
  EXPECT_EQ(host_.partials[1].UserFlags, user);
  const VstHostCacheItem& f = host_.partials[2];
  EXPECT_EQ(f.Kind, VHC_KIND_EFFECT);
  EXPECT_EQ(f.Enabled, -1);
  EXPECT_EQ(f.Capabilities, 0xFFFF0000u | VHC_CAP_SHELL_ITEM) << "the host's bits stay";
}

}  // namespace
