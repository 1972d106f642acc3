// Values in both forms, a host's SetParam, capture, the user-interface
// callback, and reading a real effect.
#include <gtest/gtest.h>

#include <limits>

#include "base/status.h"
#include "params_harness.h"

namespace {

using namespace zqtest;

// The parameter object over our gain plug-in, tables built from it.
struct GainParams {
  Effect gain{"zqgain"};
  VstParamProperties* props = nullptr;
  ZqVstParamInfo* infos = nullptr;
  Params params;

  GainParams() {
    EXPECT_EQ(ZqVstBuildParamTables(gain.effect, 4, &props, &infos), S_OK);
    EXPECT_EQ(params.InitParams(infos, 4), S_OK);
    params.SetParamEffect(gain.effect);
  }
  ~GainParams() {
    params.FreeParams();
    ZqVstFreeParamTables(props, infos);
  }
  float InEffect(int index) {
    float v = -1;
    gain->GetParameter(index, &v);
    return v;
  }
  float Cached(DWORD index) {
    MP_DATA v = -1;
    params.GetParam(index, &v);
    return v;
  }
};

TEST(ParamValues, HostSetParam) {
  GainParams g;
  // The present (neutral) value: nothing stored, nothing sent to the plug-in.
  ASSERT_EQ(g.gain->SetParameter(0, 0.9f), S_OK);
  EXPECT_EQ(g.params.SetParam(0, 50.0f), S_FALSE);
  EXPECT_FLOAT_EQ(g.InEffect(0), 0.9f);
  // Beyond the outward range, or NaN.
  EXPECT_EQ(g.params.SetParam(0, 100.5f), E_INVALIDARG);
  EXPECT_EQ(g.params.SetParam(0, std::numeric_limits<float>::quiet_NaN()), E_INVALIDARG);
  EXPECT_EQ(g.params.SetParam(2, 4.0f), E_INVALIDARG);
  EXPECT_TRUE(g.params.hostSets.empty());
  // A new value reaches the plug-in normalised: mode 0..3, 2 is two thirds.
  EXPECT_EQ(g.params.SetParam(2, 2.0f), S_OK);
  EXPECT_FLOAT_EQ(g.InEffect(2), 2.0f / 3.0f);
  float normal = 0;
  g.params.GetNormalizedParam(2, &normal);
  EXPECT_FLOAT_EQ(normal, 2.0f / 3.0f);
  ASSERT_EQ(g.params.hostSets.size(), 1u);
  EXPECT_EQ(g.params.hostSets[0], std::make_pair(DWORD{2}, S_OK));
}

TEST(ParamValues, CaptureAndCallbackOutsideTheLock) {
  GainParams g;
  auto* callback = new RecordingCallback(&g.params);
  g.params.SetUICallback(callback);
  EXPECT_EQ(g.params.BeginParamCapture(1), S_OK);
  EXPECT_EQ(g.params.BeginParamCapture(1), S_FALSE);
  EXPECT_EQ(g.params.SetNormalizedParam(1, 1.0f), S_OK);
  EXPECT_EQ(g.params.SetNormalizedParam(1, 1.0f), S_FALSE);  // unchanged: no call
  EXPECT_EQ(g.params.EndParamCapture(1), S_OK);
  EXPECT_EQ(g.params.EndParamCapture(1), S_FALSE);
  EXPECT_EQ(g.params.Automate(0, 0.75f), S_OK);
  EXPECT_EQ(callback->calls, (std::vector<std::string>{"begin 1", "changed 1 1", "end 1", "changed 0 75"}));
  EXPECT_TRUE(callback->lockAlwaysFree);
  EXPECT_FLOAT_EQ(g.InEffect(0), 0.5f) << "the plug-in's own change is not sent back to it";
  g.params.SetUICallback(nullptr);
  EXPECT_EQ(callback->RefCount(), 1u);
  callback->Release();
}

TEST(ParamValues, PullFromTheEffect) {
  GainParams g;
  // Program "Unity" differs from the neutral values in Mode (0) and Balance (0.5).
  EXPECT_EQ(g.params.PullParamsFromEffect(), S_OK);
  EXPECT_EQ(g.params.PullParamsFromEffect(), S_FALSE);
  EXPECT_EQ(g.Cached(2), 0.0f);
  EXPECT_FLOAT_EQ(g.Cached(3), 50.0f);
  ASSERT_EQ(g.gain->SetProgram(1), S_OK);  // "Quiet": gain 0.25
  EXPECT_EQ(g.params.PullParamsFromEffect(), S_OK);
  EXPECT_FLOAT_EQ(g.Cached(0), 25.0f);
  Params none;
  EXPECT_EQ(none.PullParamsFromEffect(), S_FALSE);
}

}  // namespace
