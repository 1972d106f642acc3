// ProcessAudio on a 512-frame stereo 16-bit block through the biquad example,
// side by side with calling its processReplacing directly on float planes.
// The ratio of the two is what counts, not the times.
//
// BM_ProcessAudioShare runs both on one effect in alternating batches, so
// that a change of clock speed or load hits both alike, and reports the
// ratio as the counter "ratio".  The remaining benchmarks take ProcessAudio
// apart: the guard, the routines it picks for a 16-bit stream (their variant
// names are the labels) and the clear and dry copy of the channel buffers.
// On a processor with 512-bit vectors a 16-bit stereo stream goes instead
// through the kernel's wide stereo routines (kernel/audio/stereo16.h), which
// fuse the split, the dry copy and the check of the cleared bytes; the
// routines measured here are then what other processors and other stream
// shapes get.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "aplugins/zqvstwrap/host/zqvsteffect.h"
#include "kernel/audio/convert.h"
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

// The same signal both ways: the 16-bit stream and the float planes that
// ProcessAudio makes of it.
std::vector<int16_t> Pcm16Stereo() {
  std::vector<int16_t> in(kFrames * 2);
  for (int f = 0; f < kFrames; ++f) {
    in[2 * f] = static_cast<int16_t>(10000.0 * std::sin(0.01 * f));
    in[2 * f + 1] = static_cast<int16_t>(10000.0 * std::cos(0.01 * f));
  }
  return in;
}

struct FloatPlanes {
  std::vector<float> left, right, outLeft, outRight;
  float* inputs[2];
  float* outputs[2];
  explicit FloatPlanes(const std::vector<int16_t>& pcm)
      : left(kFrames), right(kFrames), outLeft(kFrames), outRight(kFrames) {
    for (int f = 0; f < kFrames; ++f) {
      left[f] = static_cast<float>(pcm[2 * f]) / 32768.0f;
      right[f] = static_cast<float>(pcm[2 * f + 1]) / 32768.0f;
    }
    inputs[0] = left.data();
    inputs[1] = right.data();
    outputs[0] = outLeft.data();
    outputs[1] = outRight.data();
  }
};

void BM_ProcessAudioInt16Stereo(benchmark::State& state) {
  Biquad biquad;
  if (FAILED(biquad.hr)) {
    state.SkipWithError("zqbiquad.so did not load");
    return;
  }
  std::vector<int16_t> in = Pcm16Stereo(), out(kFrames * 2);
  for (auto _ : state) {
    biquad.effect->ProcessAudio(in.data(), 2, out.data(), 2, kFrames, 2);
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
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
  FloatPlanes planes(Pcm16Stereo());
  for (auto _ : state) {
    effect->processReplacing(effect, planes.inputs, planes.outputs, kFrames);
    benchmark::DoNotOptimize(planes.outputs[0]);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kFrames);
}

// Both on one instance, in alternating batches.  "ratio" is ProcessAudio's
// fastest batch over the direct call's fastest: a batch that another process
// interrupted is slower, never faster, so the minimum is what the code
// costs.  "ratio_total" compares the sums, interruptions included.
void BM_ProcessAudioShare(benchmark::State& state) {
  Biquad biquad;
  if (FAILED(biquad.hr)) {
    state.SkipWithError("zqbiquad.so did not load");
    return;
  }
  AEffect* effect = biquad.effect->Effect();
  std::vector<int16_t> in = Pcm16Stereo(), out(kFrames * 2);
  FloatPlanes planes(in);
  constexpr int kBatch = 16;
  using Clock = std::chrono::steady_clock;
  Clock::duration wrapped{}, direct{};
  Clock::duration fastestWrapped = Clock::duration::max(), fastestDirect = Clock::duration::max();
  for (auto _ : state) {
    const auto t0 = Clock::now();
    for (int i = 0; i < kBatch; ++i) {
      biquad.effect->ProcessAudio(in.data(), 2, out.data(), 2, kFrames, 2);
      benchmark::ClobberMemory();
    }
    const auto t1 = Clock::now();
    for (int i = 0; i < kBatch; ++i) {
      effect->processReplacing(effect, planes.inputs, planes.outputs, kFrames);
      benchmark::ClobberMemory();
    }
    const auto t2 = Clock::now();
    wrapped += t1 - t0;
    direct += t2 - t1;
    fastestWrapped = std::min(fastestWrapped, t1 - t0);
    fastestDirect = std::min(fastestDirect, t2 - t1);
  }
  auto share = [](Clock::duration a, Clock::duration b) {
    return b.count() > 0 ? static_cast<double>(a.count()) / static_cast<double>(b.count()) : 0.0;
  };
  state.counters["ratio"] = share(fastestWrapped, fastestDirect);
  state.counters["ratio_total"] = share(wrapped, direct);
  state.SetItemsProcessed(state.iterations() * kBatch * kFrames * 2);
}

// --- The parts ----------------------------------------------------------------

void BM_GuardEntry(benchmark::State& state) {
  int counter = 0;
  for (auto _ : state) {
    ZqVstGuarded([&] { benchmark::DoNotOptimize(++counter); });
  }
}

void BM_CopyInPerChannelInt16(benchmark::State& state) {
  auto copy = ZqAudio_GetCopyChannelsFunction2(ZQSAMPLE_FLOAT32, ZQSAMPLE_PCM16);
  std::vector<int16_t> in = Pcm16Stereo();
  std::vector<float> left(kFrames), right(kFrames);
  state.SetLabel(ZqAudio_GetRoutineName(reinterpret_cast<const void*>(copy)));
  for (auto _ : state) {
    copy(left.data(), 1, 0, in.data(), 2, 0, kFrames);
    copy(right.data(), 1, 0, in.data(), 2, 1, kFrames);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kFrames * 2);
}

void BM_CopyOutPerChannelInt16(benchmark::State& state) {
  auto copy = ZqAudio_GetCopyChannelsFunction2(ZQSAMPLE_PCM16, ZQSAMPLE_FLOAT32);
  FloatPlanes planes(Pcm16Stereo());
  std::vector<int16_t> out(kFrames * 2);
  state.SetLabel(ZqAudio_GetRoutineName(reinterpret_cast<const void*>(copy)));
  for (auto _ : state) {
    copy(out.data(), 2, 0, planes.left.data(), 1, 0, kFrames);
    copy(out.data(), 2, 1, planes.right.data(), 1, 0, kFrames);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kFrames * 2);
}

void BM_StereoSplitInt16(benchmark::State& state) {
  auto split = ZqAudio_GetStereoDeInterleaveFunction(ZQSAMPLE_FLOAT32, ZQSAMPLE_PCM16);
  std::vector<int16_t> in = Pcm16Stereo();
  std::vector<float> left(kFrames), right(kFrames);
  state.SetLabel(ZqAudio_GetRoutineName(reinterpret_cast<const void*>(split)));
  for (auto _ : state) {
    split(left.data(), right.data(), in.data(), kFrames);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kFrames * 2);
}

void BM_StereoMergeInt16(benchmark::State& state) {
  auto merge = ZqAudio_GetStereoInterleaveFunction(ZQSAMPLE_PCM16, ZQSAMPLE_FLOAT32);
  FloatPlanes planes(Pcm16Stereo());
  std::vector<int16_t> out(kFrames * 2);
  state.SetLabel(ZqAudio_GetRoutineName(reinterpret_cast<const void*>(merge)));
  for (auto _ : state) {
    merge(out.data(), planes.left.data(), planes.right.data(), kFrames);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kFrames * 2);
}

void BM_StereoRoutineLookup(benchmark::State& state) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(ZqAudio_GetStereoDeInterleaveFunction(ZQSAMPLE_FLOAT32, ZQSAMPLE_PCM16));
    benchmark::DoNotOptimize(ZqAudio_GetStereoInterleaveFunction(ZQSAMPLE_PCM16, ZQSAMPLE_FLOAT32));
  }
}

// The channel blocks as ProcessAudio keeps them (two channels, double
// stride): arg 0 the whole clear of both blocks' first channels,
// arg 1 only the bytes the copy-in and dry copy do not write; then the dry
// copy of both channels.
void BM_ClearAndDryCopy(benchmark::State& state) {
  const size_t capacity = kFrames * sizeof(float);
  std::vector<float> inputs(kFrames * 4), outputs(kFrames * 4);
  const bool partial = state.range(0) != 0;
  for (auto _ : state) {
    auto* in = reinterpret_cast<unsigned char*>(inputs.data());
    auto* out = reinterpret_cast<unsigned char*>(outputs.data());
    if (partial) {
      std::memset(in + capacity, 0, capacity);
      std::memset(out + capacity, 0, capacity);
    } else {
      std::memset(in, 0, 2 * capacity);
      std::memset(out, 0, 2 * capacity);
    }
    std::memcpy(out, in, capacity);
    std::memcpy(out + 2 * capacity, in + 2 * capacity, capacity);
    benchmark::ClobberMemory();
  }
}

BENCHMARK(BM_DirectProcessReplacingFloat);
BENCHMARK(BM_ProcessAudioInt16Stereo);
BENCHMARK(BM_ProcessAudioShare);
BENCHMARK(BM_GuardEntry);
BENCHMARK(BM_CopyInPerChannelInt16);
BENCHMARK(BM_CopyOutPerChannelInt16);
BENCHMARK(BM_StereoSplitInt16);
BENCHMARK(BM_StereoMergeInt16);
BENCHMARK(BM_StereoRoutineLookup);
BENCHMARK(BM_ClearAndDryCopy)->Arg(0)->Arg(1);

}  // namespace

BENCHMARK_MAIN();
