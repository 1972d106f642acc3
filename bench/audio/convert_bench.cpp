// Conversions between the host's interleaved stereo formats and float
// planes, as the effect uses them (the routine fetched once, then called per
// block), measured beside memcpy of the same float bytes and beside
// libswresample.  After the runs a table gives each routine's throughput as
// a ratio to both; with --benchmark_repetitions the table takes the medians.
//
// The large size is meant to measure memory, not cache: each iteration
// works on the next of several buffer sets, together far larger than any
// last-level cache, so no iteration finds its data cached by the one before.
// Run with --benchmark_enable_random_interleaving=true on a busy machine.
//
// The flat copy routines (the copy family on one 512-frame stereo block: one
// call for the interleaved stream, or one call per channel plane, and with a
// gain of 0.5) are measured against libswresample's packed conversion of the
// same block in the same loop, each iteration timing a batch of both, in
// every processor variant the machine has; the counter x_swr is the time of
// libswresample's best batch over that of ours.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "kernel/audio/convert.h"

#if defined(ZQ_BENCH_HAVE_SWR)
extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/samplefmt.h>
#include <libswresample/swresample.h>
}
#endif

namespace {

struct Size {
  const char* name;
  size_t frames;     // stereo frames; float bytes are frames * 8
  int iterations;    // 0: let the library decide
  bool uncached;     // rotate through buffer sets that the cache cannot hold
};
constexpr Size kSizes[] = {
    {"block512", 512, 0, false},
    {"64KiB", 64 * 1024 / 8, 0, false},
    {"64MiB", 64 * 1024 * 1024 / 8, 16, true},
};
// Bytes the buffer sets of an uncached size add up to, at least.
constexpr size_t kUncachedFootprint = size_t(768) << 20;

struct Pair {
  const char* name;
  ZQSAMPLETYPE host;
  bool toPlanes;  // host interleaved -> float planes, else back
#if defined(ZQ_BENCH_HAVE_SWR)
  AVSampleFormat swrHost;  // AV_SAMPLE_FMT_NONE: libswresample has no such format
#endif
};

#if defined(ZQ_BENCH_HAVE_SWR)
#define ZQ_SWR(x) , x
#else
#define ZQ_SWR(x)
#endif
const Pair kPairs[] = {
    {"s16->f32planes", 17, true ZQ_SWR(AV_SAMPLE_FMT_S16)},   {"f32planes->s16", 17, false ZQ_SWR(AV_SAMPLE_FMT_S16)},
    {"s24->f32planes", 18, true ZQ_SWR(AV_SAMPLE_FMT_NONE)},  {"f32planes->s24", 18, false ZQ_SWR(AV_SAMPLE_FMT_NONE)},
    {"s32->f32planes", 19, true ZQ_SWR(AV_SAMPLE_FMT_S32)},   {"f32planes->s32", 19, false ZQ_SWR(AV_SAMPLE_FMT_S32)},
    {"f64->f32planes", 33, true ZQ_SWR(AV_SAMPLE_FMT_DBL)},   {"f32planes->f64", 33, false ZQ_SWR(AV_SAMPLE_FMT_DBL)},
    {"f32->f32planes", 32, true ZQ_SWR(AV_SAMPLE_FMT_FLT)},   {"f32planes->f32", 32, false ZQ_SWR(AV_SAMPLE_FMT_FLT)},
};
#undef ZQ_SWR

struct Buffers {
  std::vector<uint8_t> host;
  std::vector<float> left, right;
  explicit Buffers(size_t frames, int hostBytes)
      : host(frames * 2 * size_t(hostBytes)), left(frames), right(frames) {
    for (size_t i = 0; i < host.size(); ++i) host[i] = uint8_t(i * 37 + 11);
    if (hostBytes == 8) {  // finite values in range for the double host
      for (size_t i = 0; i < frames * 2; ++i) {
        const double v = double(int(i % 2001) - 1000) / 1100.0;
        std::memcpy(host.data() + 8 * i, &v, 8);
      }
    }
    for (size_t i = 0; i < frames; ++i) left[i] = right[i] = float(int(i % 2001) - 1000) / 1100.0f;
  }
};

// One buffer set, or for an uncached size enough of them to defeat the cache.
struct Ring {
  std::vector<Buffers> sets;
  size_t next = 0;
  Ring(const Size& s, int hostBytes) {
    const size_t footprint = s.frames * (8 + 2 * size_t(hostBytes));
    const size_t count = s.uncached ? (kUncachedFootprint + footprint - 1) / footprint : 1;
    sets.reserve(count);
    for (size_t i = 0; i < count; ++i) sets.emplace_back(s.frames, hostBytes);
  }
  Buffers& Next() {
    Buffers& b = sets[next];
    next = next + 1 == sets.size() ? 0 : next + 1;
    return b;
  }
};

void SetCounters(benchmark::State& state, size_t frames) {
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(frames * 8));
}

void RunKernel(benchmark::State& state, const Pair& p, const Size& s) {
  const int hostBytes = ZqAudio_BytesFromSampleType(p.host);
  Ring ring(s, hostBytes);
  const DWORD frames = DWORD(s.frames);
  if (p.toPlanes) {
    const ZqAudioDeInterleaveFunction f = ZqAudio_GetStereoDeInterleaveFunction(32, p.host);
    if (!f) return state.SkipWithError("no routine");
    for (auto _ : state) {
      Buffers& b = ring.Next();
      f(b.left.data(), b.right.data(), b.host.data(), frames);
      benchmark::ClobberMemory();
    }
  } else {
    const ZqAudioInterleaveFunction f = ZqAudio_GetStereoInterleaveFunction(p.host, 32);
    if (!f) return state.SkipWithError("no routine");
    for (auto _ : state) {
      Buffers& b = ring.Next();
      f(b.host.data(), b.left.data(), b.right.data(), frames);
      benchmark::ClobberMemory();
    }
  }
  SetCounters(state, s.frames);
}

void RunMemcpy(benchmark::State& state, const Size& s) {
  const size_t bytes = s.frames * 8;
  const size_t count = s.uncached ? (kUncachedFootprint + 2 * bytes - 1) / (2 * bytes) : 1;
  std::vector<std::vector<uint8_t>> from(count, std::vector<uint8_t>(bytes, 0x3E)), to(count);
  for (auto& v : to) v.assign(bytes, 0);
  size_t k = 0;
  for (auto _ : state) {
    std::memcpy(to[k].data(), from[k].data(), bytes);
    k = k + 1 == count ? 0 : k + 1;
    benchmark::ClobberMemory();
  }
  SetCounters(state, s.frames);
}

#if defined(ZQ_BENCH_HAVE_SWR)
void RunSwr(benchmark::State& state, const Pair& p, const Size& s) {
  AVChannelLayout stereo;
  av_channel_layout_default(&stereo, 2);
  SwrContext* swr = nullptr;
  const AVSampleFormat in = p.toPlanes ? p.swrHost : AV_SAMPLE_FMT_FLTP;
  const AVSampleFormat out = p.toPlanes ? AV_SAMPLE_FMT_FLTP : p.swrHost;
  if (swr_alloc_set_opts2(&swr, &stereo, out, 48000, &stereo, in, 48000, 0, nullptr) < 0 || swr_init(swr) < 0) {
    state.SkipWithError("libswresample refused the formats");
    swr_free(&swr);
    return;
  }
  Ring ring(s, av_get_bytes_per_sample(p.swrHost));
  for (auto _ : state) {
    Buffers& b = ring.Next();
    uint8_t* planes[2] = {reinterpret_cast<uint8_t*>(b.left.data()), reinterpret_cast<uint8_t*>(b.right.data())};
    uint8_t* packed[1] = {b.host.data()};
    const int n = p.toPlanes ? swr_convert(swr, planes, int(s.frames), const_cast<const uint8_t**>(packed),
                                           int(s.frames))
                             : swr_convert(swr, packed, int(s.frames), const_cast<const uint8_t**>(planes),
                                           int(s.frames));
    benchmark::DoNotOptimize(n);
    benchmark::ClobberMemory();
  }
  SetCounters(state, s.frames);
  swr_free(&swr);
}
#endif

// ---- flat copy routines beside libswresample ---------------------------------

#if defined(ZQ_BENCH_HAVE_SWR)
struct FlatPair {
  const char* name;
  ZQSAMPLETYPE dst, src;
  // libswresample's packed formats of the same conversion.  It has no packed
  // 24-bit format: the 24-bit pairs are held against its 32-bit conversion.
  AVSampleFormat swrDst, swrSrc;
};
const FlatPair kFlatPairs[] = {
    {"s16->f32", 32, 17, AV_SAMPLE_FMT_FLT, AV_SAMPLE_FMT_S16},
    {"f32->s16", 17, 32, AV_SAMPLE_FMT_S16, AV_SAMPLE_FMT_FLT},
    {"s24->f32(swr:s32)", 32, 18, AV_SAMPLE_FMT_FLT, AV_SAMPLE_FMT_S32},
    {"f32->s24(swr:s32)", 18, 32, AV_SAMPLE_FMT_S32, AV_SAMPLE_FMT_FLT},
    {"s32->f32", 32, 19, AV_SAMPLE_FMT_FLT, AV_SAMPLE_FMT_S32},
    {"f32->s32", 19, 32, AV_SAMPLE_FMT_S32, AV_SAMPLE_FMT_FLT},
};
enum class FlatMode { kInterleaved, kPerChannel };
constexpr size_t kFlatFrames = 512;
constexpr int kFlatBatch = 32;  // calls between two readings of the clock

// `samples` samples of `type`: floats in [-1.1, 1.1], so some beyond full
// scale, integers spread over their range.
std::vector<uint8_t> FlatData(ZQSAMPLETYPE type, size_t samples) {
  const int bytes = ZqAudio_BytesFromSampleType(type);
  std::vector<uint8_t> v(samples * size_t(bytes) + 64);
  for (size_t i = 0; i < samples; ++i) {
    if (type == 32) {
      const float f = float(int(i * 7919 % 2001) - 1000) / 910.0f;
      std::memcpy(v.data() + 4 * i, &f, 4);
    } else {
      for (int b = 0; b < bytes; ++b) v[i * size_t(bytes) + size_t(b)] = uint8_t(i * 37 + size_t(b) * 101 + 11);
    }
  }
  return v;
}

// The processor variants the flat routines are measured in: the widest the
// machine has, and the ones below it pinned through the allowed mask.
struct FlatVariant {
  const char* name;
  DWORD allowed;
};
constexpr FlatVariant kFlatVariants[] = {
    {"best", 0xFFFFFFFFu},
    {"avx2", ZQCPU_SSE2 | ZQCPU_AVX | ZQCPU_AVX2},
    {"sse2", ZQCPU_SSE2},
};

void RunFlat(benchmark::State& state, const FlatPair& p, FlatMode mode, float gain, const FlatVariant& v) {
  using Clock = std::chrono::steady_clock;
  AVChannelLayout stereo;
  av_channel_layout_default(&stereo, 2);
  SwrContext* swr = nullptr;
  if (swr_alloc_set_opts2(&swr, &stereo, p.swrDst, 48000, &stereo, p.swrSrc, 48000, 0, nullptr) < 0 ||
      swr_init(swr) < 0) {
    state.SkipWithError("libswresample refused the formats");
    swr_free(&swr);
    return;
  }
  const DWORD previous = ZqSetCPUSupportAllowed(v.allowed);
  const ZqAudioCopyFunction f = ZqAudio_GetCopyFunction2(p.dst, p.src);
  ZqSetCPUSupportAllowed(previous);
  if (!f) return state.SkipWithError("no routine");
  state.SetLabel(ZqAudio_GetRoutineName(reinterpret_cast<const void*>(f)));
  const size_t samples = 2 * kFlatFrames;
  const std::vector<uint8_t> zqIn = FlatData(p.src, samples);
  const ZQSAMPLETYPE swrType = p.swrSrc == AV_SAMPLE_FMT_FLT ? 32 : p.swrSrc == AV_SAMPLE_FMT_S16 ? 17 : 19;
  const std::vector<uint8_t> swrIn = FlatData(swrType, samples);
  std::vector<uint8_t> zqOut(samples * 8 + 64), swrOut(samples * 8 + 64);
  const size_t inPlane = kFlatFrames * size_t(ZqAudio_BytesFromSampleType(p.src));
  const size_t outPlane = kFlatFrames * size_t(ZqAudio_BytesFromSampleType(p.dst));
  double zqBest = 1e9, swrBest = 1e9;
  for (auto _ : state) {
    const auto t0 = Clock::now();
    for (int k = 0; k < kFlatBatch; ++k) {
      uint8_t* out[1] = {swrOut.data()};
      const uint8_t* in[1] = {swrIn.data()};
      benchmark::DoNotOptimize(swr_convert(swr, out, int(kFlatFrames), in, int(kFlatFrames)));
      benchmark::ClobberMemory();
    }
    const auto t1 = Clock::now();
    for (int k = 0; k < kFlatBatch; ++k) {
      if (mode == FlatMode::kInterleaved) {
        f(zqOut.data(), zqIn.data(), DWORD(samples), gain);
      } else {
        f(zqOut.data(), zqIn.data(), DWORD(kFlatFrames), gain);
        f(zqOut.data() + outPlane, zqIn.data() + inPlane, DWORD(kFlatFrames), gain);
      }
      benchmark::ClobberMemory();
    }
    const auto t2 = Clock::now();
    const double zq = std::chrono::duration<double>(t2 - t1).count();
    swrBest = std::min(swrBest, std::chrono::duration<double>(t1 - t0).count());
    zqBest = std::min(zqBest, zq);
    state.SetIterationTime(zq);
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * kFlatBatch * int64_t(samples * 4));
  // The best batch of each: on a shared machine a batch that lost the
  // processor part of the way says nothing about either routine.
  state.counters["x_swr"] = zqBest > 0 ? swrBest / zqBest : 0;
  swr_free(&swr);
}

void RegisterFlat() {
  const DWORD detected = ZqGetCPUSupportDetected();
  for (const FlatVariant& v : kFlatVariants) {
    if (v.allowed != 0xFFFFFFFFu && (detected & v.allowed) != v.allowed) continue;
    for (const FlatPair& p : kFlatPairs)
      for (FlatMode mode : {FlatMode::kInterleaved, FlatMode::kPerChannel})
        for (float gain : {1.0f, 0.5f}) {
          if (gain != 1.0f && mode == FlatMode::kPerChannel) continue;
          std::string name = std::string("flat/") + p.name +
                             (mode == FlatMode::kInterleaved ? "/interleaved" : "/per-channel") +
                             (gain != 1.0f ? "/gain0.5/" : "/") + v.name;
          benchmark::RegisterBenchmark(name.c_str(),
                                       [p, mode, gain, v](benchmark::State& st) { RunFlat(st, p, mode, gain, v); })
              ->UseManualTime();
        }
  }
}
#else
void RegisterFlat() {}
#endif

// Keeps every run's throughput for the table printed at the end.
class TableReporter : public benchmark::ConsoleReporter {
 public:
  std::map<std::string, double> bytesPerSecond;
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& r : runs) {
      auto it = r.counters.find("bytes_per_second");
      if (it == r.counters.end() || r.error_occurred) continue;
      // A single run, or the median of repetitions; never the spread.
      const bool median = r.run_type == Run::RT_Aggregate && r.aggregate_name == "median";
      if (r.run_type == Run::RT_Aggregate && !median) continue;
      const std::string name = r.run_name.function_name;
      if (median || !medians_.count(name)) bytesPerSecond[name] = it->second;
      if (median) medians_.insert(name);
    }
  }

 private:
  std::set<std::string> medians_;
};

void Register() {
  for (const Size& s : kSizes) {
    auto* m = benchmark::RegisterBenchmark((std::string("memcpy/") + s.name).c_str(),
                                           [s](benchmark::State& st) { RunMemcpy(st, s); });
    m->UseRealTime();
    if (s.iterations) m->Iterations(s.iterations);
    for (const Pair& p : kPairs) {
      auto* k = benchmark::RegisterBenchmark((std::string(p.name) + "/" + s.name + "/zq").c_str(),
                                             [p, s](benchmark::State& st) { RunKernel(st, p, s); });
      k->UseRealTime();
      if (s.iterations) k->Iterations(s.iterations);
#if defined(ZQ_BENCH_HAVE_SWR)
      if (p.swrHost != AV_SAMPLE_FMT_NONE) {
        auto* w = benchmark::RegisterBenchmark((std::string(p.name) + "/" + s.name + "/swr").c_str(),
                                               [p, s](benchmark::State& st) { RunSwr(st, p, s); });
        w->UseRealTime();
        if (s.iterations) w->Iterations(s.iterations);
      }
#endif
    }
  }
}

void PrintTable(const std::map<std::string, double>& bps) {
  std::printf("\n%-16s %-9s %10s %10s %10s\n", "pair", "size", "GB/s", "x memcpy", "x swr");
  for (const Pair& p : kPairs)
    for (const Size& s : kSizes) {
      const std::string key = std::string(p.name) + "/" + s.name;
      auto zq = bps.find(key + "/zq");
      auto mc = bps.find(std::string("memcpy/") + s.name);
      auto sw = bps.find(key + "/swr");
      if (zq == bps.end()) continue;
      const double ratioMemcpy = mc != bps.end() ? zq->second / mc->second : 0;
      char swr[16] = "-";
      if (sw != bps.end()) std::snprintf(swr, sizeof swr, "%.2f", zq->second / sw->second);
      std::printf("%-16s %-9s %10.2f %10.2f %10s\n", p.name, s.name, zq->second / 1e9, ratioMemcpy, swr);
    }
}

}  // namespace

int main(int argc, char** argv) {
  Register();
  RegisterFlat();
  benchmark::Initialize(&argc, argv);
  TableReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  PrintTable(reporter.bytesPerSecond);
  benchmark::Shutdown();
  return 0;
}
