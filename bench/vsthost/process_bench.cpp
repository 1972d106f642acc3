// ProcessAudio on a 512-frame stereo 16-bit block through the biquad example,
// side by side with calling its processReplacing directly on float planes.
// The ratio of the two is what counts, not the times.
#include <benchmark/benchmark.h>

#include <cmath>
#include <string>
#include <vector>

#include "aplugins/zqvstwrap/zqvsteffect.h"
#include "platform/text.h"

namespace {

constexpr int kFrames = 512;

struct Biquad {
  CZqVstEffect* effect = nullptr;
  HRESULT hr = E_FAIL;
  Biquad() {
    std::u16string path = ZqUtf8ToUtf16(std::string(ZQ_PLUGIN_DIR) + "/zqbiquad.so");
    effect = new CZqVstEffect(path.c_str(), 0, &hr);
    effect->SetSampleType(ZQSAMPLE_PCM16);
    effect->SetSampleRate(48000.0);
    effect->SetBlockSize(kFrames);
    effect->Resume(FALSE);
  }
  ~Biquad() {
    effect->Suspend(TRUE);
    effect->Release();
  }
};

void BM_ProcessAudioInt16Stereo(benchmark::State& state) {
  Biquad biquad;
  if (FAILED(biquad.hr)) {
    state.SkipWithError("zqbiquad.so did not load");
    return;
  }
  std::vector<int16_t> in(kFrames * 2), out(kFrames * 2);
  for (size_t i = 0; i < in.size(); ++i) in[i] = static_cast<int16_t>(10000.0 * std::sin(0.01 * static_cast<double>(i)));
  for (auto _ : state) {
    biquad.effect->ProcessAudio(in.data(), 2, out.data(), 2, kFrames, 2);
    benchmark::DoNotOptimize(out.data());
  }
  state.SetItemsProcessed(state.iterations() * kFrames);
}

void BM_DirectProcessReplacingFloat(benchmark::State& state) {
  Biquad biquad;
  if (FAILED(biquad.hr)) {
    state.SkipWithError("zqbiquad.so did not load");
    return;
  }
  AEffect* effect = biquad.effect->Effect();
  std::vector<float> left(kFrames), right(kFrames), outLeft(kFrames), outRight(kFrames);
  for (int i = 0; i < kFrames; ++i) {
    left[i] = static_cast<float>(0.3 * std::sin(0.01 * i));
    right[i] = static_cast<float>(0.3 * std::cos(0.01 * i));
  }
  float* inputs[2] = {left.data(), right.data()};
  float* outputs[2] = {outLeft.data(), outRight.data()};
  for (auto _ : state) {
    effect->processReplacing(effect, inputs, outputs, kFrames);
    benchmark::DoNotOptimize(outputs[0]);
  }
  state.SetItemsProcessed(state.iterations() * kFrames);
}

BENCHMARK(BM_DirectProcessReplacingFloat);
BENCHMARK(BM_ProcessAudioInt16Stereo);

}  // namespace

BENCHMARK_MAIN();
