// Descriptions derived from a plug-in's parameter properties, and what
// IMediaParamInfo hands out of them.
#include <gtest/gtest.h>

#include "base/status.h"
#include "kernel/com/taskmem.h"
#include "kernel/memory.h"
#include "params_harness.h"

namespace {

using namespace zqtest;
using Text = std::u16string;

TEST(ParamTables, KindsRangesUnitsAndNeutralValues) {
  ZqVstParamInfo plain = Info(Props(0));
  EXPECT_EQ(plain.mpi.mpType, MPT_FLOAT);
  EXPECT_EQ(plain.mpi.mpdMaxValue, 100.0f);
  EXPECT_EQ(plain.mpi.mpdNeutralValue, 50.0f);
  EXPECT_EQ(Text(plain.mpi.szUnitText), u"%");

  VstParamProperties p = Props(0x1 | 0x2);  // a switch wins over a range
  p.minInteger = 5;
  p.maxInteger = 9;
  EXPECT_EQ(Info(p, u"dB").mpi.mpType, MPT_BOOL);
  EXPECT_EQ(Text(Info(p, u"dB").mpi.szUnitText), u"");

  p = Props(0x2);  // a range of 0 and 1 is a switch too, but keeps its unit
  p.maxInteger = 1;
  EXPECT_EQ(Info(p).mpi.mpType, MPT_BOOL);
  EXPECT_EQ(Info(p).mpi.mopCaps, 1u);
  EXPECT_EQ(Text(Info(p, u" on ").mpi.szUnitText), u"on");

  p = Props(0x2 | 0x8);  // 1..10 step 2: half of 9 is 4, on the grid 4
  p.minInteger = 1;
  p.maxInteger = 10;
  p.stepInteger = 2;
  EXPECT_EQ(Info(p).mpi.mpType, MPT_INT);
  EXPECT_EQ(Info(p).mpi.mpdNeutralValue, 5.0f);
  p.minInteger = 0;
  p.maxInteger = 9;
  p.stepInteger = 3;
  EXPECT_EQ(Info(p).mpi.mpdNeutralValue, 3.0f);
  p.stepInteger = 0;  // raised to 1
  EXPECT_EQ(Info(p).mpi.mpdNeutralValue, 4.0f);
  EXPECT_EQ(Text(Info(p, u"Value").mpi.szUnitText), u"");
  EXPECT_EQ(Text(Info(p, u"AMOUNT").mpi.szUnitText), u"");
  EXPECT_EQ(Text(Info(p, u"values").mpi.szUnitText), u"values");

  p = Props(0x4);
  p.smallStepFloat = 0.3f;
  EXPECT_FLOAT_EQ(Info(p).mpi.mpdNeutralValue, 30.0f);
  p.smallStepFloat = 0.0f;
  EXPECT_EQ(Info(p).mpi.mpdNeutralValue, 50.0f);

  // Labels keep 31 characters; a short label is preferred.
  p = Props(0, u"A very long parameter name, longer than thirty-two");
  EXPECT_EQ(Text(Info(p).mpi.szLabel), u"A very long parameter name, lon");
  p.shortLabel[0] = u'S';
  EXPECT_EQ(Text(Info(p).mpi.szLabel), u"S");
}

TEST(ParamTables, BuiltFromAPlugIn) {
  Effect gain("zqgain");
  ASSERT_EQ(gain.hr, S_OK);
  VstParamProperties* props = nullptr;
  ZqVstParamInfo* infos = nullptr;
  ASSERT_EQ(ZqVstBuildParamTables(gain.effect, 4, &props, &infos), S_OK);
  // Gain: no kind flag; Phase: a switch; Mode: 0..3 step 1; Balance: a fine
  // step of 0.001, and 0.5 / 0.001 falls just below 500 in float.
  EXPECT_EQ(Text(props[3].label), u"Balance");
  EXPECT_EQ(Text(infos[3].mpi.szLabel), u"Bal");
  EXPECT_EQ(infos[0].mpi.mpType, MPT_FLOAT);
  EXPECT_EQ(infos[1].mpi.mpType, MPT_BOOL);
  EXPECT_EQ(infos[2].mpi.mpType, MPT_INT);
  EXPECT_EQ(infos[2].mpi.mpdNeutralValue, 1.0f);
  EXPECT_NEAR(infos[3].mpi.mpdNeutralValue, 49.9f, 1e-4);
  EXPECT_EQ(infos[3].storageOffset, 12u);
  ZqVstFreeParamTables(props, infos);

  for (LONG n = 1; n <= 2; ++n) {
    ZqScopedAllocFailure fail(n, ZQMEMFAIL_CALLING_THREAD);
    EXPECT_EQ(ZqVstBuildParamTables(gain.effect, 4, &props, &infos), E_OUTOFMEMORY);
    EXPECT_TRUE(props == nullptr && infos == nullptr);
  }
}

TEST(ParamTables, FailedSetUpLeavesNoParameters) {
  std::vector<ZqVstParamInfo> table = FloatTable(3);
  Params params;
  HRESULT hr = E_FAIL;
  for (LONG n = 1; n < 20 && hr != S_OK; ++n) {
    ZqScopedAllocFailure fail(n, ZQMEMFAIL_CALLING_THREAD);
    hr = params.InitParams(table.data(), 3);
    DWORD count = 99;
    params.GetParamCount(&count);
    if (hr != S_OK) {
      EXPECT_TRUE(hr == E_OUTOFMEMORY && count == 0 && !params.IsParamsReady()) << n;
    }
  }
  EXPECT_EQ(hr, S_OK);
}

TEST(ParamInfo, TextAndTimeFormats) {
  std::vector<ZqVstParamInfo> table = {Info(Props(0, u"Drive")), Info(Props(0x1, u"Bypass"))};
  table[1].enumText = u"Off,On";
  Params params;
  ASSERT_EQ(params.InitParams(table.data(), 2), S_OK);
  MP_PARAMINFO info;
  EXPECT_EQ(params.GetParamInfo(2, &info), E_INVALIDARG);

  // label NUL unit NUL [each name NUL] NUL
  WCHAR* text = nullptr;
  ASSERT_EQ(params.GetParamText(0, &text), S_OK);
  EXPECT_EQ(Text(text, 9), Text(u"Drive\0%\0\0", 9));
  CoTaskMemFree(text);
  ASSERT_EQ(params.GetParamText(1, &text), S_OK);
  EXPECT_EQ(Text(text, 16), Text(u"Bypass\0\0Off\0On\0\0", 16));
  CoTaskMemFree(text);

  // One format, answered at index 0 and also at 1.
  GUID format{};
  EXPECT_EQ(params.GetSupportedTimeFormat(1, &format), S_OK);
  EXPECT_TRUE(IsEqualGUID(format, GUID_TIME_REFERENCE));
  EXPECT_EQ(params.GetSupportedTimeFormat(2, &format), E_INVALIDARG);
  // Reference time is refused; another format is stored without its data.
  MP_TIMEDATA data = 7;
  EXPECT_EQ(params.SetTimeFormat(GUID_TIME_MUSIC, 5), S_OK);
  EXPECT_EQ(params.SetTimeFormat(GUID_TIME_REFERENCE, 0), E_FAIL);
  ASSERT_EQ(params.GetCurrentTimeFormat(&format, &data), S_OK);
  EXPECT_TRUE(IsEqualGUID(format, GUID_TIME_MUSIC));
  EXPECT_EQ(data, 0u);
}

}  // namespace
