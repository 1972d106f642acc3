// What the cache tests share: mappings made of a few words, lists of them,
// and a cache bound to an application of the test's own with an empty store.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "aplugins/zqvstwrap/discovery/zqvstcache.h"
#include "platform/text.h"

namespace zqtest {

inline VstMapping Mapping(LONG id, const char16_t* file, const char16_t* name, DWORD flags = VMF_EFFECT | VMF_ENABLED) {
  VstMapping m{};
  const std::u16string path = std::u16string(u"/plugins/") + file;
  lstrcpynW(m.Path, path.c_str(), 260);
  lstrcpynW(m.Name, name, 64);
  lstrcpynW(m.Vendor, u"Vendor", 64);
  lstrcpynW(m.Product, u"Product", 64);
  m.Properties = {id, 3, 7, 2, 5, 2, 2, 64, 0x111};
  m.FileTime = {0x89ABCDEF, 0x01D00000};
  m.UserFlags = 0x5A5A0000u ^ static_cast<DWORD>(id);
  m.Flags = flags;
  ZqVstMakeMappingClsids(id, m.Path, m.Name, &m.Clsid, &m.EditorPageClsid, &m.ParamsPageClsid);
  return m;
}

inline tZQLIST* MappingList(const std::vector<VstMapping>& mappings) {
  tZQLIST* list = nullptr;
  EXPECT_EQ(ZqList_CreateExZ(&list, 0, 0, 64, ZQLIST_HEAPITEMS, 0, 0, 0), S_OK);
  for (const VstMapping& m : mappings) EXPECT_EQ(ZqList_AllocAndInsertItem(list, &m, sizeof(m), -1, nullptr), S_OK);
  return list;
}

inline std::vector<std::u16string> Names(const tZQLIST* list) {
  std::vector<std::u16string> names;
  for (INT i = 0; list && i < list->count; ++i) names.emplace_back(ZqVstMappingAt(list, i)->Name);
  return names;
}

// A cache bound to this test's application, its store key empty, and no
// process-wide mappings before or after.
class CacheTest : public ::testing::Test {
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
  // Writes `mappings` and reads them back into list_.
  HRESULT RoundTrip(const std::vector<VstMapping>& mappings, BOOL markStale = FALSE) {
    tZQLIST* written = MappingList(mappings);
    HRESULT hr = ZqVstWriteMappings(written, FALSE, FALSE, nullptr, nullptr);
    ZqList_Destroy(written);
    if (SUCCEEDED(hr)) hr = ZqVstReadMappings(&list_, markStale, FALSE);
    return hr;
  }
  const VstMapping* At(INT i) const { return ZqVstMappingAt(list_, i); }

  tZQLIST* list_ = nullptr;
};

}  // namespace zqtest
