// The companion server's costs: ProcessAudio of one block through the
// server next to the floor of any such design (the same bytes through a
// shared block to another process and back, woken by a futex), measured in
// the same run; and the start of a server with its first effect next to a
// bare start of a trivial program.
//
// The floor's other process is this program, started again with
// --echo-child: it copies the input area to the output area, as a plug-in
// that does nothing would.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <string>
#include <vector>

#include "aplugins/zqvstwrap/host/zqvsteffect.h"
#include "aplugins/zqvstwrap/host/zqvstfactory_effect.h"
#include "kernel/com/object.h"
#include "platform/ipc.h"
#include "platform/process.h"
#include "platform/sync.h"
#include "platform/text.h"

namespace {

constexpr int kFrames = 512;
constexpr int kChannels = 2;
constexpr size_t kBytes = size_t(kFrames) * kChannels * sizeof(float);
constexpr size_t kBlock = 64 + 2 * kBytes;
constexpr int kEchoFd = 3;

std::atomic_ref<uint32_t> Word(void* block) { return std::atomic_ref<uint32_t>(*static_cast<uint32_t*>(block)); }

// The server's way of waiting: a short spin, then the futex.
uint32_t WaitWhile(void* block, uint32_t current) {
  for (int spin = 0; spin < 2000; ++spin) {
    const uint32_t s = Word(block).load(std::memory_order_acquire);
    if (s != current) return s;
    __builtin_ia32_pause();
  }
  for (;;) {
    const uint32_t s = Word(block).load(std::memory_order_acquire);
    if (s != current) return s;
    ZqFutexWait(static_cast<uint32_t*>(block), current, 1000);
  }
}

void Set(void* block, uint32_t value) {
  Word(block).store(value, std::memory_order_release);
  ZqFutexWake(static_cast<uint32_t*>(block), 1);
}

// 0 idle/done, 1 request, 2 quit.
int EchoChild() {
  const size_t size = ZqSharedMemorySealedSize(kEchoFd);
  auto* block = static_cast<uint8_t*>(ZqSharedMemoryMap(kEchoFd, size, TRUE));
  if (block == nullptr) return 1;
  for (;;) {
    uint32_t s = Word(block).load(std::memory_order_acquire);
    if (s == 0 || s == 3) s = WaitWhile(block, s);
    if (s == 2) return 0;
    if (s != 1) continue;
    std::memcpy(block + 64 + kBytes, block + 64, kBytes);
    Set(block, 3);
  }
}

struct Floor {
  int fd = -1;
  uint8_t* block = nullptr;
  HANDLE child = nullptr;
  Floor() {
    fd = ZqSharedMemoryCreate(kBlock);
    block = static_cast<uint8_t*>(ZqSharedMemoryMap(fd, kBlock, TRUE));
    const std::string self = ZqUtf16ToUtf8(ZqGetExecutablePath());
    const char* argv[] = {"zq_server_bench", "--echo-child", nullptr};
    const ZqSpawnDescriptor handed{fd, kEchoFd};
    ZqSpawnProcess(self.c_str(), argv, &handed, 1, &child, nullptr);
  }
  ~Floor() {
    Set(block, 2);
    WaitForSingleObject(child, INFINITE);
    CloseHandle(child);
    ZqSharedMemoryUnmap(block, kBlock);
    ZqCloseDescriptor(fd);
  }
  void RoundTrip(const float* in, float* out) {
    std::memcpy(block + 64, in, kBytes);
    Set(block, 1);
    WaitWhile(block, 1);
    std::memcpy(out, block + 64 + kBytes, kBytes);
  }
};

struct Remote {
  ZqComPtr<IZqVstEffect> effect;
  Remote() {
    ZqComPtr<IZqVstEffectFactory> factory;
    ZqVstGetEffectFactory(FALSE, IID_IZqVstEffectFactory, factory.PutVoid(), nullptr, nullptr, nullptr, nullptr);
    const std::u16string path = ZqUtf8ToUtf16(std::string(ZQ_PLUGIN_DIR) + "/zqgain.so");
    factory->CreateEffect(path.c_str(), 0, IID_IZqVstEffect, effect.PutVoid());
    ZqVstReleaseEffectFactory(FALSE, factory.Detach());
    effect->SetSampleRate(48000);
    effect->SetSampleType(ZQSAMPLE_FLOAT32);
    effect->SetChannelCount(kChannels);
    effect->SetBlockSize(kFrames);
    effect->Resume(FALSE);
  }
};

double Percentile(std::vector<double> v, double p) {
  if (v.empty()) return 0;
  std::sort(v.begin(), v.end());
  return v[std::min(v.size() - 1, size_t(p * double(v.size())))];
}

void Report(benchmark::State& state, const std::vector<double>& floor, const std::vector<double>& server) {
  const double f50 = Percentile(floor, 0.5), f99 = Percentile(floor, 0.99);
  const double s50 = Percentile(server, 0.5), s99 = Percentile(server, 0.99);
  state.counters["floor_p50_us"] = f50;
  state.counters["floor_p99_us"] = f99;
  state.counters["server_p50_us"] = s50;
  state.counters["server_p99_us"] = s99;
  state.counters["ratio_p50"] = f50 > 0 ? s50 / f50 : 0;
  state.counters["ratio_p99"] = f99 > 0 ? s99 / f99 : 0;
}

// Floor round trips and ProcessAudio calls in alternating runs of 250, so
// that both see the same machine; an idle side spins for a while after its
// last call, so runs rather than single calls alternate.
void BM_ProcessAudioAgainstTheFloor(benchmark::State& state) {
  Floor floor;
  Remote remote;
  std::vector<float> in(size_t(kFrames) * kChannels, 0.25f), out(in.size());
  std::vector<double> floorTimes, serverTimes;
  using Clock = std::chrono::steady_clock;
  auto time = [](auto&& call) {
    const auto t0 = Clock::now();
    call();
    return std::chrono::duration<double, std::micro>(Clock::now() - t0).count();
  };
  constexpr int kRun = 250;
  for (auto _ : state) {
    for (int i = 0; i < kRun; ++i) floorTimes.push_back(time([&] { floor.RoundTrip(in.data(), out.data()); }));
    for (int i = 0; i < kRun; ++i)
      serverTimes.push_back(time(
          [&] { remote.effect->ProcessAudio(in.data(), kChannels, out.data(), kChannels, kFrames, 4); }));
    benchmark::DoNotOptimize(out.data());
  }
  Report(state, floorTimes, serverTimes);
  state.SetItemsProcessed(int64_t(state.iterations()) * kRun);
}
BENCHMARK(BM_ProcessAudioAgainstTheFloor)->Iterations(80)->Unit(benchmark::kMillisecond);

// The same block in this process, for scale.
void BM_ProcessAudioInProcess(benchmark::State& state) {
  ZqComPtr<IZqVstEffect> effect;
  const std::u16string path = ZqUtf8ToUtf16(std::string(ZQ_PLUGIN_DIR) + "/zqgain.so");
  ZqVstCreateEffectInProcess(path.c_str(), 0, IID_IZqVstEffect, effect.PutVoid());
  effect->SetSampleRate(48000);
  effect->SetSampleType(ZQSAMPLE_FLOAT32);
  effect->SetChannelCount(kChannels);
  effect->SetBlockSize(kFrames);
  effect->Resume(FALSE);
  std::vector<float> in(size_t(kFrames) * kChannels, 0.25f), out(in.size());
  for (auto _ : state) {
    effect->ProcessAudio(in.data(), kChannels, out.data(), kChannels, kFrames, 4);
    benchmark::DoNotOptimize(out.data());
  }
}
BENCHMARK(BM_ProcessAudioInProcess)->Unit(benchmark::kMicrosecond);

// A new server and its first effect, ready to process.
void BM_ServerStartAndFirstEffect(benchmark::State& state) {
  for (auto _ : state) {
    Remote remote;
    benchmark::DoNotOptimize(remote.effect.Get());
    state.PauseTiming();
    remote.effect.Reset();  // the server ends by itself
    state.ResumeTiming();
  }
}
BENCHMARK(BM_ServerStartAndFirstEffect)->Unit(benchmark::kMillisecond)->Iterations(30);

// A bare start of a trivial program, to its end.
void BM_SpawnTrivialProgram(benchmark::State& state) {
  const char* argv[] = {"true", nullptr};
  for (auto _ : state) {
    HANDLE child = nullptr;
    ZqSpawnProcess("/bin/true", argv, nullptr, 0, &child, nullptr);
    WaitForSingleObject(child, INFINITE);
    CloseHandle(child);
  }
}
BENCHMARK(BM_SpawnTrivialProgram)->Unit(benchmark::kMillisecond)->Iterations(30);

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1 && std::string(argv[1]) == "--echo-child") return EchoChild();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
