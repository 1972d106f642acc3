// The library's entry points and class objects, and the filter's identity
// and control interfaces as a host and a page see them.
#include <cstring>

#include "filter_fixture.h"
#include "aplugins/zqvstwrap/host/zqvsteffect.h"
#include "kernel/com/taskmem.h"

namespace {

using namespace zqtest;

constexpr LONG kGain = FourCC("ZqGn");

IClassFactory* GetFactory(REFCLSID clsid, HRESULT* hr) {
  IClassFactory* factory = nullptr;
  *hr = DllGetClassObject(clsid, IID_IClassFactory, reinterpret_cast<void**>(&factory));
  return factory;
}

TEST(FilterEntry, IdentifiersResolveOnlyThroughTheRecordList) {
  ZqVstRecords_Destroy();
  const CLSID gain = FilterClsid(kGain);
  HRESULT hr = S_OK;
  // Before the list exists only the mapper's identifier has a class object.
  EXPECT_EQ(GetFactory(gain, &hr), nullptr);
  EXPECT_EQ(hr, CLASS_E_CLASSNOTAVAILABLE);
  IClassFactory* mapper = GetFactory(CLSID_ZqVstWrapFilterMapper, &hr);
  ASSERT_EQ(hr, S_OK);
  mapper->Release();

  Register("zqgain", kGain);
  CLSID filter, editor, params;
  ZqVstMakeRoleClsids(gain, &filter, &editor, &params);
  EXPECT_EQ(ZqVstRoleOf(filter), ZQVSTROLE_FILTER);
  EXPECT_EQ(ZqVstRoleOf(editor), ZQVSTROLE_EDITOR_PAGE);
  EXPECT_EQ(ZqVstRoleOf(params), ZQVSTROLE_PARAMS_PAGE);
  EXPECT_EQ(std::memcmp(&filter, &params, 10), 0);
  // Every role of the family finds the one record; the page objects
  // themselves are not part of this build.
  for (const CLSID& id : {filter, editor, params}) {
    IClassFactory* factory = GetFactory(id, &hr);
    ASSERT_EQ(hr, S_OK);
    factory->Release();
  }
  IClassFactory* page = GetFactory(params, &hr);
  IUnknown* object = nullptr;
  EXPECT_EQ(page->CreateInstance(nullptr, IID_IUnknown, reinterpret_cast<void**>(&object)), E_NOTIMPL);
  EXPECT_EQ(object, nullptr);
  // Aggregation is offered only through IUnknown, and checked before anything is built.
  EXPECT_EQ(page->CreateInstance(page, IID_IBaseFilter, reinterpret_cast<void**>(&object)), CLASS_E_NOAGGREGATION);
  page->Release();

  // Same first ten bytes, a tail of no role: refused before any search.
  CLSID odd = gain;
  odd.Data4[7] ^= 0xFF;
  EXPECT_EQ(GetFactory(odd, &hr), nullptr);
  EXPECT_EQ(hr, CLASS_E_CLASSNOTAVAILABLE);
  EXPECT_EQ(DllRegisterServer(), S_FALSE);
  EXPECT_EQ(DllUnregisterServer(), S_FALSE);
}

TEST(FilterEntry, UnloadIsAllowedOnlyWithoutLiveFiltersAndLocks) {
  const CLSID gain = Register("zqgain", kGain);
  ASSERT_EQ(DllCanUnloadNow(), S_OK);
  IBaseFilter* filter = nullptr;
  ASSERT_EQ(MakeFilter(gain, &filter), S_OK);
  EXPECT_EQ(DllCanUnloadNow(), S_FALSE);
  filter->Release();
  EXPECT_EQ(DllCanUnloadNow(), S_OK);

  HRESULT hr = S_OK;
  IClassFactory* factory = GetFactory(gain, &hr);
  factory->LockServer(TRUE);
  factory->Release();
  EXPECT_EQ(DllCanUnloadNow(), S_FALSE);
  factory = GetFactory(gain, &hr);
  factory->LockServer(FALSE);
  factory->Release();
  EXPECT_EQ(DllCanUnloadNow(), S_OK);
}

TEST(FilterEntry, FailedConstructionsReportTheirStatusAndLeaveNothingAlive) {
  IBaseFilter* filter = nullptr;
  // A fault while the module is opened is an exception of plug-in code; the
  // factory builds a second, fresh filter once before it gives up.
  EXPECT_EQ(MakeFilter(Register("zqbad_entry_fault", FourCC("ZqBa")), &filter), ZQ_E_EXCEPTION);
  EXPECT_EQ(filter, nullptr);
  EXPECT_EQ(MakeFilter(Register("zqbad_null_entry", FourCC("ZqBl")), &filter), E_INVALIDARG);
  // A module this process cannot load goes to the server, whose load says what it is.
  EXPECT_EQ(MakeFilter(Register("zqbad_not_elf", FourCC("ZqBn")), &filter), HRESULT_FROM_WIN32(ERROR_BAD_EXE_FORMAT));
  EXPECT_EQ(filter, nullptr);
  EXPECT_EQ(DllCanUnloadNow(), S_OK);
  EXPECT_EQ(ZqVstGetEffectCount(), 0);
}

TEST(FilterIdentity, InterfacesPagesAndRecordStateOfAFilter) {
  const CLSID gain = Register("zqgain", kGain);
  IBaseFilter* filter = nullptr;
  ASSERT_EQ(MakeFilter(gain, &filter), S_OK);
  ZqVstPluginRecord record{};
  ASSERT_EQ(ZqVstRecords_Find(gain, &record), S_OK);
  EXPECT_TRUE(record.state & ZQVST_VMS_LOADED);

  CLSID id{};
  EXPECT_EQ(filter->GetClassID(&id), S_OK);
  EXPECT_EQ(id, gain);
  auto* pages = Query<ISpecifyPropertyPages>(filter);
  ASSERT_NE(pages, nullptr);
  CAUUID list{};
  ASSERT_EQ(pages->GetPages(&list), S_OK);
  ASSERT_EQ(list.cElems, 1u);
  CLSID params;
  ZqVstMakeRoleClsids(gain, nullptr, nullptr, &params);
  EXPECT_EQ(list.pElems[0], params) << "the gain has no editor of its own";
  CoTaskMemFree(list.pElems);
  pages->Release();

  // The plug-in's host, as a query sees it, is the filter's own unknown.
  IUnknown* identity = Query<IUnknown>(filter);
  IUnknown* master = Query<IZqVstMaster>(filter);
  EXPECT_EQ(master, identity);
  master->Release();
  identity->Release();
  auto* statik = Query<IStaticFilterPreset>(filter);
  auto* preset = Query<IVstFilterPreset>(filter);
  EXPECT_EQ(static_cast<IStaticFilterPreset*>(preset), statik);
  statik->Release();
  preset->Release();
  EXPECT_EQ(Query<IZqTranslationInfo>(filter), nullptr);
  for (IUnknown* u : {static_cast<IUnknown*>(Query<IMediaParams>(filter)), static_cast<IUnknown*>(Query<IMfxSoftSynth>(filter)),
                      static_cast<IUnknown*>(Query<IPersistStream>(filter)), static_cast<IUnknown*>(Query<IVstWrapper>(filter))}) {
    EXPECT_NE(u, nullptr);
    if (u) u->Release();
  }
  filter->Release();

  // A plug-in without parameters offers no media parameters.
  IBaseFilter* plain = nullptr;
  ASSERT_EQ(MakeFilter(Register("zqtest_6x6", FourCC("Zq66")), &plain), S_OK);
  auto* prop = Query<IZqVstWrapProp>(plain);
  if (prop->GetParamCount() == 0) {
    EXPECT_EQ(Query<IMediaParams>(plain), nullptr);
  }
  prop->Release();
  plain->Release();
}

TEST(FilterIdentity, ParameterCallsOfThePagesReachThePlugin) {
  IBaseFilter* filter = nullptr;
  ASSERT_EQ(MakeFilter(Register("zqgain", kGain), &filter), S_OK);
  auto* prop = Query<IZqVstWrapProp>(filter);
  ASSERT_EQ(prop->GetParamCount(), 4);
  WCHAR text[8] = {u'x'};
  EXPECT_EQ(prop->GetParamLabel(0, text, 8), E_INVALIDARG) << "filled, and a failure all the same";
  EXPECT_EQ(ZqUtf16ToUtf8(text), "dB");
  EXPECT_EQ(prop->GetParamName(3, text, 4), S_OK);
  EXPECT_EQ(ZqUtf16ToUtf8(text), "Bal") << "a truncating copy";
  EXPECT_EQ(prop->GetParamValue(4, nullptr), E_INVALIDARG);
  EXPECT_EQ(prop->GetParamValue(-1, nullptr), E_INVALIDARG);

  // Without an editor of its own the plug-in hears a page's change at once.
  EXPECT_EQ(prop->SetParamValue(0, 0.25f), S_OK);
  IZqVstEffect* effect = static_cast<CZqVstWrapTransform*>(prop)->Effect();
  float value = 0;
  effect->GetParameter(0, &value);
  EXPECT_FLOAT_EQ(value, 0.25f);
  float all[4] = {};
  EXPECT_EQ(prop->GetAllParams(all), S_OK);
  EXPECT_FLOAT_EQ(all[0], 0.25f);
  auto* persist = Query<IPersistStream>(filter);
  EXPECT_EQ(persist->IsDirty(), S_OK);
  persist->Release();

  WCHAR name[64] = {};
  EXPECT_EQ(prop->GetFilterName(name, 64), S_OK);
  EXPECT_EQ(ZqUtf16ToUtf8(name), "zqgain");
  ZQVSTRECT rect{};
  EXPECT_TRUE(FAILED(prop->GetEditorRect(&rect))) << "no size is known and nothing can measure it";
  auto* wrapper = Query<IVstWrapper>(filter);
  EXPECT_TRUE(wrapper->IsOrdinaryVendor());
  wrapper->Release();
  prop->Release();
  filter->Release();
}

}  // namespace
