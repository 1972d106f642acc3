// Third-party plug-ins installed from the distribution (lsp-plugins-vst,
// dragonfly-reverb-vst): load, describe, process and unload them.
#include <cmath>
#include <filesystem>

#include "vsthost_fixture.h"

using namespace zqtest;

namespace {

struct Installed { const char* path; const char* package; };

constexpr Installed kPlugins[] = {
    {"/usr/lib/lxvst/DragonflyRoomReverb-vst.so", "dragonfly-reverb-vst"},
    {"/usr/lib/lxvst/DragonflyPlateReverb-vst.so", "dragonfly-reverb-vst"},
    {"/usr/lib/vst/lsp-plugins/comp-delay-stereo.so", "lsp-plugins-vst"},
    {"/usr/lib/vst/lsp-plugins/compressor-stereo.so", "lsp-plugins-vst"},
    {"/usr/lib/vst/lsp-plugins/limiter-stereo.so", "lsp-plugins-vst"},
    {"/usr/lib/vst/lsp-plugins/sc-mb-dyna-processor-lr.so", "lsp-plugins-vst"},
};

class RealPlugin : public ::testing::TestWithParam<Installed> {};

TEST_P(RealPlugin, LoadsDescribesProcessesAndUnloads) {
  const Installed& p = GetParam();
  if (!std::filesystem::exists(p.path)) GTEST_SKIP() << p.path << " is absent; the package " << p.package << " provides it";
  // Some of these modules keep blocks that only their own (later unloaded)
  // libraries point to: what they allocate is not counted by a leak check.
  LeakCheckPause pause;
  const LONG live = ZqVstGetEffectCount();
  {
    Loaded effect(ZqUtf8ToUtf16(p.path), 0);
    ASSERT_EQ(effect.hr, S_OK) << p.path;
    VstEffectInfo info;
    ASSERT_EQ(effect->GetEffectInfo(&info), S_OK);
    EXPECT_EQ(info.uniqueID, effect->Effect()->uniqueID);
    EXPECT_GE(info.numOutputs, 1);
    WCHAR text[64];
    EXPECT_EQ(effect->GetEffectName(text, 64), S_OK);
    EXPECT_NE(text[0], 0);
    for (int i = 0; i < info.numParams; ++i) {
      float value = -1.0f;
      ASSERT_EQ(effect->GetParameter(i, &value), S_OK) << i;
      ASSERT_TRUE(std::isnan(value) || (value >= 0.0f && value <= 1.0f)) << i;
    }
    LONG latency = -1;
    EXPECT_EQ(effect->GetLatency(&latency), S_OK);
    EXPECT_GE(latency, 0);

    ASSERT_EQ(effect->SetSampleType(ZQSAMPLE_PCM16), S_OK);
    effect->SetSampleRate(48000.0);
    effect->SetBlockSize(512);
    EXPECT_EQ(effect->Resume(FALSE), S_OK);
    std::vector<int16_t> in(512 * 2), out(512 * 2, 7);
    for (size_t i = 0; i < in.size(); ++i) in[i] = static_cast<int16_t>(8000.0 * std::sin(0.05 * static_cast<double>(i / 2)));
    for (int block = 0; block < 8; ++block) ASSERT_EQ(effect->ProcessAudio(in.data(), 2, out.data(), 2, 512, 2), S_OK);
    // Silence through a float stream, where nothing clips what comes out:
    // every sample is a finite number.
    ASSERT_EQ(effect->SetSampleType(ZQSAMPLE_FLOAT32), S_OK);
    std::vector<float> silence(512 * 2, 0.0f), result(512 * 2);
    for (int block = 0; block < 4; ++block) {
      ASSERT_EQ(effect->ProcessAudio(silence.data(), 2, result.data(), 2, 512, 4), S_OK);
      for (size_t i = 0; i < result.size(); ++i) ASSERT_TRUE(std::isfinite(result[i])) << block << " " << i;
    }
    EXPECT_EQ(effect->Suspend(TRUE), S_OK);
  }
  EXPECT_EQ(ZqVstGetEffectCount(), live);
}

std::string TestName(const ::testing::TestParamInfo<Installed>& info) {
  std::string name = std::filesystem::path(info.param.path).stem().string();
  for (char& c : name)
    if (!isalnum(static_cast<unsigned char>(c))) c = '_';
  return name;
}

INSTANTIATE_TEST_SUITE_P(Installed, RealPlugin, ::testing::ValuesIn(kPlugins), TestName);

// A stereo float effect, ready to process 512-frame blocks at 48 kHz.
void Prepare(CZqVstEffect* effect) {
  ASSERT_EQ(effect->SetSampleType(ZQSAMPLE_FLOAT32), S_OK);
  effect->SetSampleRate(48000.0);
  effect->SetBlockSize(512);
  ASSERT_EQ(effect->Resume(FALSE), S_OK);
}

// A look-ahead limiter tells its latency only once it has processed: the
// delay line is sized at the first block.  The latency it then tells is the
// lag of its output exactly.
TEST(RealPluginLatency, LookAheadLimiterTellsItsLatencyAfterTheFirstBlockAndLagsByIt) {
  const Installed p{"/usr/lib/vst/lsp-plugins/limiter-stereo.so", "lsp-plugins-vst"};
  if (!std::filesystem::exists(p.path)) GTEST_SKIP() << p.path << " is absent; the package " << p.package << " provides it";
  LeakCheckPause pause;
  Loaded effect(ZqUtf8ToUtf16(p.path), 0);
  ASSERT_EQ(effect.hr, S_OK);
  Prepare(effect.effect);
  LONG before = -1, after = -1;
  ASSERT_EQ(effect->GetLatency(&before), S_OK);
  EXPECT_EQ(before, 0);

  std::vector<float> block(512 * 2, 0.0f), out(512 * 2);
  ASSERT_EQ(effect->ProcessAudio(block.data(), 2, out.data(), 2, 512, 4), S_OK);
  ASSERT_EQ(effect->GetLatency(&after), S_OK);
  ASSERT_GT(after, 0);
  ASSERT_LT(after, 4 * 512);

  // A click well below the limit, in the left channel only.
  block[0] = 0.125f;
  long first = -1;
  for (int n = 0; n < 6 && first < 0; ++n) {
    ASSERT_EQ(effect->ProcessAudio(block.data(), 2, out.data(), 2, 512, 4), S_OK);
    block[0] = 0.0f;
    for (int f = 0; f < 512 && first < 0; ++f)
      if (std::fabs(out[2 * f]) > 1e-4f) first = n * 512L + f;
  }
  EXPECT_EQ(first, after);
  EXPECT_EQ(effect->Suspend(TRUE), S_OK);
}

}  // namespace
