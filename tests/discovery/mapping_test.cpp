#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "aplugins/zqvstwrap/discovery/zqvstfactory.h"
#include "aplugins/zqvstwrap/discovery/zqvstmapping.h"
#include "kernel/com/object.h"
#include "base/status.h"
#include "mediafw/interfaces.h"
#include "platform/environment.h"
#include "platform/file.h"
#include "platform/module.h"
#include "platform/text.h"

namespace {

std::u16string Plugin(const char* file) {
  return ZqUtf8ToUtf16(std::string(ZQ_PLUGIN_DIR) + "/" + file);
}

constexpr LONG FourCC(const char (&id)[5]) {
  return static_cast<LONG>((static_cast<unsigned>(id[0]) << 24) | (static_cast<unsigned>(id[1]) << 16) |
                           (static_cast<unsigned>(id[2]) << 8) | static_cast<unsigned>(id[3]));
}

TEST(NameHash, KnownValuesEmptyTextAndCase) {
  EXPECT_EQ(ZqVstNameHash(u"123456789"), 0xE5CC);
  EXPECT_EQ(ZqVstNameHash(u"A"), 0x9479);
  // An empty text is 0, not the CRC of no bytes (0x1D0F).
  EXPECT_EQ(ZqVstNameHash(u""), 0);
  EXPECT_EQ(ZqVstNameHash(nullptr), 0);
  EXPECT_EQ(ZqVstNameHash(u"a"), 0x9479);
  EXPECT_EQ(ZqVstNameHash(u"zqDelay.SO"), ZqVstNameHash(u"ZQDELAY.so"));
  EXPECT_NE(ZqVstNameHash(u"zqdelay.so"), ZqVstNameHash(u"zqdelay.so "));
}

TEST(MapModule, IdentifiersAreMadeOfThePlugInAndResolve) {
  const std::u16string path = Plugin("zqdelay.so");
  VstMapping m;
  ASSERT_EQ(ZqVstMapModule(path.c_str(), 0, 10000, &m), S_OK);

  EXPECT_EQ(m.Properties.uniqueID, FourCC("ZqDl"));
  EXPECT_EQ(std::u16string(m.Path), path);
  EXPECT_NE(m.Name[0], 0);
  EXPECT_NE(m.FileTime.dwLowDateTime | m.FileTime.dwHighDateTime, 0u);
  EXPECT_EQ(m.Flags & (VMF_ENABLED | VMF_EFFECT | VMF_SYNTH | VMF_SHELL_ITEM), VMF_ENABLED | VMF_EFFECT);

  EXPECT_EQ(m.Clsid.Data1, static_cast<DWORD>(FourCC("ZqDl")));
  EXPECT_EQ(m.Clsid.Data2, ZqVstNameHash(u"zqdelay.so"));
  EXPECT_EQ(m.Clsid.Data3, ZqVstNameHash(m.Name));
  const WORD host = ZqVstHostPathHash();
  EXPECT_NE(host, 0);
  EXPECT_EQ(m.Clsid.Data4[0] | (m.Clsid.Data4[1] << 8), host);
  EXPECT_EQ(std::memcmp(&m.Clsid.Data4[2], kZqVstFilterTag, 6), 0);
  EXPECT_EQ(std::memcmp(&m.EditorPageClsid, &m.Clsid, 10), 0);
  EXPECT_EQ(std::memcmp(&m.EditorPageClsid.Data4[2], kZqVstEditorPageTag, 6), 0);
  EXPECT_EQ(std::memcmp(&m.ParamsPageClsid.Data4[2], kZqVstParamsPageTag, 6), 0);

  CLSID again;
  ZqVstMakeMappingClsids(m.Properties.uniqueID, m.Path, m.Name, &again, nullptr, nullptr);
  EXPECT_TRUE(IsEqualGUID(again, m.Clsid));

  // The filter and both pages resolve through the library's class object.
  for (const CLSID* id : {&m.Clsid, &m.EditorPageClsid, &m.ParamsPageClsid}) {
    ZqComPtr<IClassFactory> factory;
    EXPECT_EQ(DllGetClassObject(*id, IID_IClassFactory, factory.PutVoid()), S_OK);
  }
  ZqComPtr<IClassFactory> factory;
  ASSERT_EQ(DllGetClassObject(m.Clsid, IID_IClassFactory, factory.PutVoid()), S_OK);
  ZqComPtr<IBaseFilter> filter;
  EXPECT_EQ(factory->CreateInstance(nullptr, IBaseFilter::kIid, filter.PutVoid()), S_OK);
  EXPECT_TRUE(filter);

  LONG latency = -1;
  LONG tail = -1;
  EXPECT_EQ(ZqVstGetModuleTiming(m.Clsid, &latency, &tail), S_OK);
  EXPECT_EQ(latency, 64);
  EXPECT_GE(tail, 0);
  CLSID unknown = m.Clsid;
  unknown.Data1 ^= 1;
  EXPECT_EQ(ZqVstGetModuleTiming(unknown, &latency, &tail), ZQ_E_NOT_FOUND);
}

// A plug-in that faults while it is entered the first time only is made on
// the class factory's one retry.
TEST(MapModule, AFilterIsMadeOnTheRetryAfterAFaultInConstruction) {
  VstMapping m;
  ASSERT_EQ(ZqVstMapModule(Plugin("zqtest_quirks.so").c_str(), 0, 10000, &m), S_OK);
  ZqComPtr<IClassFactory> factory;
  ASSERT_EQ(DllGetClassObject(m.Clsid, IID_IClassFactory, factory.PutVoid()), S_OK);
  ASSERT_TRUE(SetEnvironmentVariableW(u"ZQTEST_QUIRKS_FAULT", u"once"));
  ZqComPtr<IBaseFilter> filter;
  EXPECT_EQ(factory->CreateInstance(nullptr, IBaseFilter::kIid, filter.PutVoid()), S_OK);
  EXPECT_TRUE(filter);
  WCHAR state[8] = {};
  EXPECT_EQ(GetEnvironmentVariableW(u"ZQTEST_QUIRKS_FAULT", state, 8), 4u);
  EXPECT_EQ(std::u16string(state), u"done") << "the first attempt faulted";
  SetEnvironmentVariableW(u"ZQTEST_QUIRKS_FAULT", nullptr);
}

TEST(MapModule, RelativeAndAbsolutePathsGiveOneIdentifier) {
  const std::u16string path = Plugin("zqgain.so");
  VstMapping a;
  VstMapping b;
  ASSERT_EQ(ZqVstMapModule(path.c_str(), 0, 10000, &a), S_OK);
  WCHAR folder[260];
  ASSERT_GT(GetCurrentDirectoryW(260, folder), 0u);
  ASSERT_TRUE(SetCurrentDirectoryW(ZqUtf8ToUtf16(ZQ_PLUGIN_DIR).c_str()));
  const HRESULT hr = ZqVstMapModule(u"./zqgain.so", 0, 10000, &b);
  SetCurrentDirectoryW(folder);
  ASSERT_EQ(hr, S_OK);
  EXPECT_TRUE(IsEqualGUID(a.Clsid, b.Clsid));
  EXPECT_EQ(std::u16string(a.Path), std::u16string(b.Path));
}

TEST(MapModule, ShellsAreMappedByTheirSubPlugIns) {
  const std::u16string path = Plugin("zqtest_shell.so");
  VstMapping m;
  EXPECT_EQ(ZqVstMapModule(path.c_str(), 0, 10000, &m), ZQ_S_IS_SHELL);
  ASSERT_EQ(ZqVstMapModule(path.c_str(), FourCC("ZqS2"), 10000, &m), S_OK);
  EXPECT_EQ(std::u16string(m.Name), u"ZqShell Invert");
  EXPECT_EQ(m.Clsid.Data1, static_cast<DWORD>(FourCC("ZqS2")));
  EXPECT_TRUE(m.Flags & VMF_SHELL_ITEM);
  VstMapping other;
  ASSERT_EQ(ZqVstMapModule(path.c_str(), FourCC("ZqS1"), 10000, &other), S_OK);
  EXPECT_NE(other.Clsid.Data3, m.Clsid.Data3);
  EXPECT_EQ(other.Clsid.Data2, m.Clsid.Data2);
}

struct Refusal {
  const char* file;
  DWORD timeLimit;
  HRESULT status;
  DWORD flags;  // failure flags left in the mapping
};

TEST(MapModule, EveryKindOfBadModuleAnswersAndMapsNothing) {
  const Refusal cases[] = {
      {"no_such_module.so", 10000, HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND), 0},
      {"zqbad_no_entry.so", 10000, HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND), VMF_NO_ENTRY},
      {"zqbad_not_elf.so", 10000, HRESULT_FROM_WIN32(ERROR_BAD_EXE_FORMAT), VMF_BAD_IMAGE},
      {"zqbad_missing_dep.so", 10000, HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND), VMF_FAILED},
      {"zqbad_magic.so", 10000, ZQ_E_COMPONENT, VMF_FAILED},
      {"zqbad_null_entry.so", 10000, ZQ_E_COMPONENT, VMF_FAILED},
      {"zqbad_entry_fault.so", 10000, ZQ_E_EXCEPTION, VMF_FAILED},
      {"zqbad_open_exit.so", 10000, ZQ_E_EXCEPTION, VMF_FAILED},
      {"zqbad_entry_hang.so", 300, ZQ_E_CANCELLED, VMF_FAILED},
  };
  for (const Refusal& c : cases) {
    SCOPED_TRACE(c.file);
    VstMapping m;
    const std::u16string path = Plugin(c.file);
    EXPECT_EQ(ZqVstMapModule(path.c_str(), 0, c.timeLimit, &m), c.status);
    if (c.flags) {
      EXPECT_EQ(m.Flags, c.flags);
    }
    EXPECT_EQ(m.Clsid.Data1, 0u);
  }
  EXPECT_EQ(ZqVstMapModule(nullptr, 0, 1000, nullptr), E_INVALIDARG);
  EXPECT_EQ(ZqVstMapModule(u"", 0, 1000, nullptr), E_INVALIDARG);
  EXPECT_EQ(ZqVstMapModule(ZqUtf8ToUtf16(ZQ_PLUGIN_DIR).c_str(), 0, 1000, nullptr),
            HRESULT_FROM_WIN32(ERROR_BAD_EXE_FORMAT));
}

}  // namespace
