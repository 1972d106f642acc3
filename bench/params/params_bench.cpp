// The envelope step that the filter takes before each chunk, measured beside
// the conversion of one 512-frame stereo block (16-bit interleaved to float
// planes), which every chunk costs anyway.
//
//   - With no envelope anywhere the step must cost less than that block even
//     for a plug-in with 1,000 parameters.
//   - With one moving envelope the cost per chunk must not grow with the
//     length of its segment list: the search starts where the last one ended.
//
// After the runs a table gives each step's time as a ratio to the block.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "aplugins/zqvstwrap/filter/zqvstparams.h"
#include "kernel/audio/convert.h"

namespace {

constexpr REFERENCE_TIME kStep = 200000;  // one 20 ms chunk at 44.1 kHz: 882 frames

class BenchParams final : public CZqPlugInParams {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
  ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
  ULONG STDMETHODCALLTYPE Release() override { return 1; }
};

std::vector<ZqVstParamInfo> Table(int count) {
  VstParamProperties plain{};
  ZqVstParamInfo info;
  ZqVstMakeParamInfo(&plain, nullptr, 0, &info);
  return std::vector<ZqVstParamInfo>(count, info);
}

void BM_ConvertBlock512Stereo(benchmark::State& state) {
  constexpr DWORD kFrames = 512;
  std::vector<short> source(kFrames * 2);
  for (size_t i = 0; i < source.size(); ++i) source[i] = static_cast<short>(i * 37);
  std::vector<float> left(kFrames), right(kFrames);
  ZqAudioDeInterleaveFunction convert = ZqAudio_GetStereoDeInterleaveFunction(32, 17);
  if (convert == nullptr) {
    state.SkipWithError("no 16-bit to float de-interleave routine");
    return;
  }
  for (auto _ : state) {
    convert(left.data(), right.data(), source.data(), kFrames);
    benchmark::DoNotOptimize(left.data());
    benchmark::DoNotOptimize(right.data());
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_ConvertBlock512Stereo);

// Steady streaming without envelopes: what nearly every chunk costs.
void BM_StepNoEnvelope(benchmark::State& state) {
  const int count = static_cast<int>(state.range(0));
  std::vector<ZqVstParamInfo> table = Table(count);
  BenchParams params;
  params.InitParams(table.data(), count);
  params.StartParamStreaming(44100);
  params.SetSampleTimes(0, 0);
  DWORD changed = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(params.UpdateEnvelopes(512, &changed, 1.0));
  }
  benchmark::DoNotOptimize(changed);
}
BENCHMARK(BM_StepNoEnvelope)->Arg(1)->Arg(1000);

// One parameter with a list of `segments` linear segments, each one chunk
// long, among `count` parameters; the clock runs through the list and starts
// over at its end (a seek backwards, once per pass).
void BM_StepOneMovingEnvelope(benchmark::State& state) {
  const int count = static_cast<int>(state.range(0));
  const int segments = static_cast<int>(state.range(1));
  std::vector<ZqVstParamInfo> table = Table(count);
  BenchParams params;
  params.InitParams(table.data(), count);
  params.StartParamStreaming(44100);
  std::vector<MP_ENVELOPE_SEGMENT> list(segments);
  for (int i = 0; i < segments; ++i) {
    list[i] = MP_ENVELOPE_SEGMENT{i * kStep, (i + 1) * kStep, static_cast<float>(i % 100),
                                  static_cast<float>((i + 1) % 100), MP_CURVE_LINEAR, MPF_ENVLP_STANDARD};
  }
  params.AddEnvelope(0, segments, list.data());
  const REFERENCE_TIME end = segments * kStep;
  params.SetSampleTimes(0, 0);
  DWORD changed = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(params.UpdateEnvelopes(882, &changed, 1.0));
    if (params.EnvelopeClock() >= end) params.SetSampleTimes(0, 0);
  }
  benchmark::DoNotOptimize(changed);
}
BENCHMARK(BM_StepOneMovingEnvelope)
    ->Args({1, 1})
    ->Args({1, 64})
    ->Args({1, 4096})
    ->Args({1000, 1})
    ->Args({1000, 64})
    ->Args({1000, 4096});

// Prints the usual table and then every step as a ratio to the block, in CPU
// time, which a busy machine disturbs less than wall time.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type == Run::RT_Iteration || run.aggregate_name == "median")
        times_[run.run_name.str()] = run.GetAdjustedCPUTime();
    }
    ConsoleReporter::ReportRuns(runs);
  }
  void Finalize() override {
    ConsoleReporter::Finalize();
    auto block = times_.find("BM_ConvertBlock512Stereo");
    if (block == times_.end() || block->second <= 0) return;
    std::printf("\nstep cost as a ratio to converting one 512-frame stereo block:\n");
    for (const auto& [name, time] : times_) {
      if (name != block->first) std::printf("  %-40s %8.3f\n", name.c_str(), time / block->second);
    }
  }

 private:
  std::map<std::string, double> times_;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}
