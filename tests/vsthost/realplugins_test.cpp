// Third-party plug-ins installed from the distribution (lsp-plugins-vst,
// dragonfly-reverb-vst): load, describe, process and unload them.
#include <cmath>
#include <filesystem>

#include "vsthost_fixture.h"

using namespace zqtest;

namespace {

struct Installed {
  const char* path;
  const char* package;
};

constexpr Installed kPlugins[] = {
    {"/usr/lib/lxvst/DragonflyRoomReverb-vst.so", "dragonfly-reverb-vst"},
    {"/usr/lib/lxvst/DragonflyPlateReverb-vst.so", "dragonfly-reverb-vst"},
    {"/usr/lib/vst/lsp-plugins/comp-delay-stereo.so", "lsp-plugins-vst"},
    {"/usr/lib/vst/lsp-plugins/compressor-stereo.so", "lsp-plugins-vst"},
};

// Under LeakSanitizer, allocations made while an object of this class lives
// are not reported as leaks; without it, nothing happens.
extern "C" void __lsan_disable() __attribute__((weak));
extern "C" void __lsan_enable() __attribute__((weak));
struct LeakCheckPause {
  LeakCheckPause() {
    if (__lsan_disable) __lsan_disable();
  }
  ~LeakCheckPause() {
    if (__lsan_enable) __lsan_enable();
  }
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
    // Silence in after silence in, once the plug-in settled, stays bounded.
    std::vector<int16_t> silence(512 * 2, 0);
    ASSERT_EQ(effect->ProcessAudio(silence.data(), 2, out.data(), 2, 512, 2), S_OK);
    EXPECT_EQ(effect->Suspend(TRUE), S_OK);
  }
  EXPECT_EQ(ZqVstGetEffectCount(), live);
}

INSTANTIATE_TEST_SUITE_P(Installed, RealPlugin, ::testing::ValuesIn(kPlugins),
                         [](const ::testing::TestParamInfo<Installed>& info) {
                           std::string name = std::filesystem::path(info.param.path).stem().string();
                           for (char& c : name)
                             if (!isalnum(static_cast<unsigned char>(c))) c = '_';
                           return name;
                         });

}  // namespace
