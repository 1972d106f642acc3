#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "aplugins/zqvstwrap/discovery/zqvstfactory.h"
#include "aplugins/zqvstwrap/discovery/zqvstgrovel.h"
#include "aplugins/zqvstwrap/discovery/zqvstmapper.h"
#include "kernel/com/object.h"
#include "kernel/com/taskmem.h"
#include "kernel/kernel_init.h"
#include "kernel/lang.h"
#include "platform/text.h"

namespace fs = std::filesystem;

namespace {

// A plug-in as a probe would have found it.
struct Plugin {
  const char16_t* path;
  const char16_t* name;
  LONG id;
  LONG version;
  DWORD time;
};

VstMapping Candidate(const Plugin& p) {
  VstMapping m{};
  lstrcpynW(m.Path, p.path, 260);
  lstrcpynW(m.Name, p.name, 64);
  m.Properties.uniqueID = p.id;
  m.Properties.version = p.version;
  m.FileTime.dwLowDateTime = p.time;
  m.Flags = VMF_EFFECT | VMF_ENABLED;
  return m;
}

struct Outcome {
  const char16_t* path;
  const char16_t* name;
  bool enabled;
};

struct AddCase {
  const char* what;
  std::vector<Plugin> added;
  std::vector<Outcome> list;  // in list order
};

const AddCase kAddCases[] = {
    {"the same plug-in in two folders: the higher version wins, the loser is numbered",
     {{u"/a/fx.so", u"Fx", 1, 1, 5}, {u"/b/fx.so", u"Fx", 1, 2, 5}},
     {{u"/b/fx.so", u"Fx", true}, {u"/a/fx.so", u"Fx (2)", false}}},
    {"equal versions: the later file wins",
     {{u"/a/fx.so", u"Fx", 1, 1, 9}, {u"/b/fx.so", u"Fx", 1, 1, 5}},
     {{u"/a/fx.so", u"Fx", true}, {u"/b/fx.so", u"Fx (2)", false}}},
    {"two plug-ins named alike in different files are named after their files",
     {{u"/a/one.so", u"Fx", 1, 1, 5}, {u"/a/two.so", u"Fx", 2, 1, 5}},
     {{u"/a/one.so", u"one", true}, {u"/a/two.so", u"two", true}}},
    {"three of one name: the third keeps it",
     {{u"/a/one.so", u"Fx", 1, 1, 5}, {u"/a/two.so", u"Fx", 2, 1, 5}, {u"/a/three.so", u"Fx", 3, 1, 5}},
     {{u"/a/one.so", u"one", true}, {u"/a/two.so", u"two", true}, {u"/a/three.so", u"Fx", true}}},
    {"one file name and one plug-in name under different ids: numbered from 2",
     {{u"/a/fx.so", u"Fx", 1, 1, 5}, {u"/b/fx.so", u"Fx", 2, 1, 5}},
     {{u"/a/fx.so", u"Fx", true}, {u"/b/fx.so", u"Fx (2)", true}}},
    {"the same plug-in at the same path is known",
     {{u"/a/fx.so", u"Fx", 1, 1, 5}, {u"/a/fx.so", u"Fx", 1, 1, 7}},
     {{u"/a/fx.so", u"Fx", true}}},
};

class AddMapping : public testing::TestWithParam<AddCase> {};

TEST_P(AddMapping, TellsModulesAndNamesApart) {
  const AddCase& c = GetParam();
  tZQLIST* list = nullptr;
  ASSERT_EQ(ZqList_CreateExZ(&list, 0, 0, 64, ZQLIST_HEAPITEMS, 0, 0, 0), S_OK);
  for (const Plugin& p : c.added) {
    VstMapping m = Candidate(p);
    EXPECT_GE(ZqVstAddMapping(list, &m), 0);
  }
  ASSERT_EQ(list->count, static_cast<INT>(c.list.size()));
  for (size_t i = 0; i < c.list.size(); ++i) {
    const VstMapping* m = ZqVstMappingAt(list, static_cast<INT>(i));
    EXPECT_EQ(std::u16string(m->Path), c.list[i].path) << i;
    EXPECT_EQ(std::u16string(m->Name), c.list[i].name) << i;
    EXPECT_EQ((m->Flags & VMF_ENABLED) != 0, c.list[i].enabled) << i;
  }
  ZqList_Destroy(list);
}

INSTANTIATE_TEST_SUITE_P(Cases, AddMapping, testing::ValuesIn(kAddCases),
                         [](const testing::TestParamInfo<AddCase>& info) { return std::to_string(info.index); });

class Mapper : public testing::Test {
 protected:
  void SetUp() override {
    ZqComPtr<IClassFactory> factory;
    ASSERT_EQ(DllGetClassObject(CLSID_ZqVstWrapFilterMapper, IID_IClassFactory, factory.PutVoid()), S_OK);
    ASSERT_EQ(factory->CreateInstance(nullptr, IID_IVstFilterMapper, mapper.PutVoid()), S_OK);
    ASSERT_EQ(mapper->Init(u"MapperTest", u"Mapper Test", 0x01000000, nullptr), S_OK);
    mapper->QueryInterface(IID_IEnumVstFilters, filters.PutVoid());
    mapper->QueryInterface(IID_IZqVstWrapPrefs, prefs.PutVoid());
    prefs->ClearSearchPaths();
    folder = fs::path(std::getenv("ZQ_TEST_SETTINGS_ROOT")) / "plugins";
    fs::create_directories(folder);
    for (const char* p : {"zqgain.so", "zqdelay.so", "zqtest_synth.so"})
      fs::copy_file(fs::path(ZQ_PLUGIN_DIR) / p, folder / p, fs::copy_options::overwrite_existing);
  }
  void Scan() {
    // Effects only: the synth stays disabled.
    ASSERT_EQ(prefs->SetSearchPath(0, ZqUtf8ToUtf16(folder.string()).c_str(), VSP_EFFECTS), S_OK);
    ASSERT_EQ(prefs->Refresh(&progress, FALSE, FALSE), S_OK);
  }
  CZqSilentProgress progress;
  ZqComPtr<IVstFilterMapper> mapper;
  ZqComPtr<IEnumVstFilters> filters;
  ZqComPtr<IZqVstWrapPrefs> prefs;
  fs::path folder;
};

TEST_F(Mapper, EnumeratorCursorRules) {
  Scan();
  const ULONG total = static_cast<ULONG>(prefs->GetMappingCount());
  ASSERT_EQ(total, 3u);
  // Skip to exactly the end fails and leaves the cursor.
  EXPECT_EQ(filters->Skip(total), S_FALSE);
  EXPECT_EQ(filters->Skip(total - 1), S_OK);
  EXPECT_EQ(filters->Skip(1), S_FALSE);
  // Next with room for more than there are answers 1 with the enabled ones.
  filters->Reset();
  VstFilterInfo* info[8] = {};
  ULONG fetched = 0;
  EXPECT_EQ(filters->Next(8, info, &fetched), S_FALSE);
  EXPECT_EQ(fetched, 2u);
  for (ULONG i = 0; i < fetched; ++i) {
    EXPECT_EQ(info[i]->name, reinterpret_cast<WCHAR*>(info[i] + 1));
    EXPECT_EQ(filters->IsVstClsid(info[i]->clsid), S_OK);
    GUID same = info[i]->clsid;
    EXPECT_EQ(filters->TranslateClsid(&same), S_FALSE);  // exact here
  }
  EXPECT_EQ(filters->IsVstClsid(CLSID_ZqVstWrapFilterMapper), S_FALSE);
  // Seek, then the user's word and name stick to the mapping.
  ASSERT_EQ(filters->Seek(info[1]->clsid), S_OK);
  EXPECT_EQ(filters->TestCurrent(0, &progress), S_OK);  // probed again, still enabled
  EXPECT_EQ(filters->SetUserFlags(0x55), S_OK);
  EXPECT_EQ(filters->SetFilterName(u"Renamed"), S_OK);
  DWORD flags = 0;
  EXPECT_EQ(filters->GetUserFlags(&flags), S_OK);
  EXPECT_EQ(flags, 0x55u);
  GUID renamed = info[1]->clsid;
  EXPECT_EQ(filters->TranslateClsid(&renamed), E_UNEXPECTED);
  for (ULONG i = 0; i < fetched; ++i) CoTaskMemFree(info[i]);
  // At the end every cursor operation answers 1.
  EXPECT_EQ(filters->Skip(0), S_OK);
  while (filters->Skip(1) == S_OK) {
  }
  EXPECT_EQ(filters->Skip(1), S_FALSE);
  GUID missing = CLSID_ZqVstWrapFilterMapper;
  EXPECT_EQ(filters->Seek(missing), ZQ_E_NOT_FOUND);
}

TEST_F(Mapper, TheHostsLanguageReachesTheKernel) {
  ASSERT_EQ(ZqKernel_EarlyInitialize(GetModuleHandleW(nullptr), 0), 1);
  ZqComPtr<IZqTranslationInfo> translation;
  ASSERT_EQ(mapper->QueryInterface(ZqGuid("{9E43494C-2217-425F-B36A-762C9D4EE58A}"), translation.PutVoid()), S_OK);
  EXPECT_EQ(translation->SetLanguage(0x407), S_OK);
  EXPECT_EQ(ZqLang_GetLCID(ZqLang_GetKernelLang()), 0x407u);
  ZqKernel_LateTerminate();
}

TEST_F(Mapper, SearchPathSlots) {
  const std::u16string path = ZqUtf8ToUtf16(folder.string());
  const std::u16string other = ZqUtf8ToUtf16(fs::path(std::getenv("ZQ_TEST_SETTINGS_ROOT")).string());
  const struct {
    INT index;
    const char16_t* path;
    DWORD flags;
    HRESULT result;
    INT count;
  } kSteps[] = {
      {0, path.c_str(), 0xF, S_OK, 1},                    // only the low three bits are kept
      {0, path.c_str(), 0x7, S_FALSE, 1},                 // same folder, same flags, same slot
      {5, path.c_str(), 0x7, ZqMakeStatus(0x8004E0A9), 1},     // the same in another slot
      {5, other.c_str(), 0x2, S_OK, 2},                   // past the end appends
      {0, u"/no/such/folder", 0x2, E_INVALIDARG, 2},
      {0, u"", 0, S_OK, 1},                               // empty removes the slot
      {3, u"", 0, S_FALSE, 1},
  };
  for (const auto& s : kSteps) {
    EXPECT_EQ(prefs->SetSearchPath(s.index, s.path, s.flags), s.result) << ZqUtf16ToUtf8(s.path);
    EXPECT_EQ(prefs->GetSearchPathCount(), s.count);
  }
  WCHAR buffer[260];
  DWORD flags = 0;
  ASSERT_EQ(prefs->GetSearchPath(0, buffer, 260, &flags), S_OK);
  EXPECT_EQ(std::u16string(buffer), other + u"/");
  EXPECT_EQ(prefs->GetSearchPath(1, buffer, 260, &flags), S_FALSE);
  EXPECT_EQ(buffer[0], 0);
  EXPECT_EQ(prefs->RemoveSearchPath(u"/not/held/"), S_FALSE);
  EXPECT_EQ(prefs->RemoveSearchPath((other + u"/").c_str()), S_OK);
}

}  // namespace
