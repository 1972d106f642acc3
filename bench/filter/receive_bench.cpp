// The filter's whole Receive path for a 512-frame stereo 16-bit sample
// through the biquad example, side by side with the effect's ProcessAudio
// alone on the same block.  The ratio of the two is what counts, not the
// times; the path is also to make no heap allocation, which the counter
// "allocs" (operator new calls per sample) shows.
//
// BM_ReceiveShare runs both in alternating batches, so that a change of
// clock speed or load hits both alike, and reports the ratio as "ratio".
#include <benchmark/benchmark.h>

#include <atomic>
#include <ctime>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "aplugins/zqvstwrap/host/zqvsteffect.h"
#include "aplugins/zqvstwrap/discovery/zqvstfactory.h"
#include "aplugins/zqvstwrap/filter/zqvstwrap.h"
#include "mediafw/graph.h"
#include "mediafw/memsource.h"
#include "platform/text.h"

namespace {
std::atomic<long long> g_news{0};
}  // namespace

// Every operator new of the process is counted; the replacement pair below
// is matched (malloc and free), which GCC cannot see through inlining.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif
void* operator new(size_t size) {
  g_news.fetch_add(1, std::memory_order_relaxed);
  if (void* p = std::malloc(size ? size : 1)) return p;
  throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, size_t) noexcept { ::operator delete(p); }

namespace {

constexpr int kFrames = 512;
constexpr LONG kBiquadId = LONG(0x5A714271);  // 'ZqBq'

std::u16string BiquadPath() { return ZqUtf8ToUtf16(std::string(ZQ_PLUGIN_DIR) + "/zqbiquad.so"); }

std::vector<int16_t> Pcm16Stereo() {
  std::vector<int16_t> in(kFrames * 2);
  for (int f = 0; f < kFrames; ++f) {
    in[2 * f] = static_cast<int16_t>(10000.0 * std::sin(0.01 * f));
    in[2 * f + 1] = static_cast<int16_t>(10000.0 * std::cos(0.01 * f));
  }
  return in;
}

// A renderer that takes audio and throws it away.
class NullSink final : public CBaseFilter {
 public:
  NullSink() : CBaseFilter(u"null sink", nullptr, &m_lock, kClsid), m_pin(u"null sink pin", this, &m_lock, &m_hr, u"In") {}
  int GetPinCount() override { return 1; }
  CBasePin* GetPin(int n) override { return n == 0 ? &m_pin : nullptr; }

 private:
  static constexpr CLSID kClsid = ZqGuid("{2B7E0C4D-9A13-4F6B-8E21-3D5C7A9B1E40}");
  class Pin final : public CBaseInputPin {
   public:
    using CBaseInputPin::CBaseInputPin;
    HRESULT CheckMediaType(const CMediaType* mt) override {
      return IsEqualGUID(mt->majortype, MEDIATYPE_Audio) ? S_OK : S_FALSE;
    }
  };
  CCritSec m_lock;
  HRESULT m_hr = S_OK;
  Pin m_pin;
};

// source -> biquad filter -> null sink, running; samples are handed to the
// filter's input pin directly.
struct Path {
  CZqFilterGraph* graph = nullptr;
  CZqMemorySource* source = nullptr;
  IBaseFilter* filter = nullptr;
  NullSink* sink = nullptr;
  IMemInputPin* input = nullptr;
  CMemAllocator* allocator = nullptr;
  IMediaSample* sample = nullptr;

  Path() {
    ZqVstPluginRecord record{};
    record.clsid.Data1 = DWORD(kBiquadId);
    ZqVstMakeRoleClsids(record.clsid, &record.clsid, nullptr, nullptr);
    lstrcpynW(record.path, BiquadPath().c_str(), 260);
    ZqVstRecords_Add(record);
    IClassFactory* factory = nullptr;
    DllGetClassObject(record.clsid, IID_IClassFactory, reinterpret_cast<void**>(&factory));
    factory->CreateInstance(nullptr, IID_IBaseFilter, reinterpret_cast<void**>(&filter));
    factory->Release();

    CZqFilterGraph::Create(&graph);
    CZqMemorySource::Create(&source);
    sink = new NullSink();
    sink->NonDelegatingAddRef();
    graph->AddFilter(source, u"source");
    graph->AddFilter(filter, u"biquad");
    graph->AddFilter(sink, u"sink");
    WAVEFORMATEX w{};
    w.wFormatTag = WAVE_FORMAT_PCM;
    w.nChannels = 2;
    w.nSamplesPerSec = 48000;
    w.wBitsPerSample = 16;
    w.nBlockAlign = 4;
    w.nAvgBytesPerSec = 48000 * 4;
    source->SetFormat(&w);
    std::vector<int16_t> pcm = Pcm16Stereo();
    source->SetData(pcm.data(), pcm.size() * 2);
    source->SetFramesPerSample(kFrames);
    source->SetThreaded(false);
    IPin *in = nullptr, *out = nullptr;
    filter->FindPin(u"In", &in);
    filter->FindPin(u"Out", &out);
    graph->ConnectDirect(source->OutputPin(), in, nullptr);
    graph->ConnectDirect(out, sink->GetPin(0), nullptr);
    in->QueryInterface(IID_IMemInputPin, reinterpret_cast<void**>(&input));
    in->Release();
    out->Release();
    graph->Run();

    HRESULT hr = S_OK;
    allocator = new CMemAllocator(u"bench allocator", nullptr, &hr);
    allocator->NonDelegatingAddRef();
    ALLOCATOR_PROPERTIES want{1, kFrames * 4, 1, 0}, actual{};
    allocator->SetProperties(&want, &actual);
    allocator->Commit();
    allocator->GetBuffer(&sample, nullptr, nullptr, 0);
    BYTE* p = nullptr;
    sample->GetPointer(&p);
    std::memcpy(p, pcm.data(), kFrames * 4);
  }
  ~Path() {
    graph->Stop();
    sample->Release();
    allocator->Decommit();
    allocator->Release();
    input->Release();
    graph->RemoveAllFilters();
    filter->Release();
    source->Release();
    sink->Release();
    graph->Release();
  }
  bool Receive() {
    // Receive states in the input sample the length of its last chunk.
    sample->SetActualDataLength(kFrames * 4);
    return input->Receive(sample) == S_OK;
  }
};

struct Alone {
  IZqVstEffect* effect = nullptr;
  std::vector<int16_t> in = Pcm16Stereo();
  std::vector<int16_t> out = std::vector<int16_t>(kFrames * 2);
  Alone() {
    ZqVstCreateEffectInProcess(BiquadPath().c_str(), 0, IID_IZqVstEffect, reinterpret_cast<void**>(&effect));
    effect->SetSampleType(ZQSAMPLE_PCM16);
    effect->SetSampleRate(48000.0);
    effect->SetChannelCount(2);
    effect->SetBlockSize(kFrames);
    effect->Resume(FALSE);
  }
  ~Alone() {
    effect->Suspend(TRUE);
    effect->Release();
  }
  bool Process() { return effect->ProcessAudio(in.data(), 2, out.data(), 2, kFrames, 2) == S_OK; }
};

void BM_ProcessAudioAlone(benchmark::State& state) {
  Alone alone;
  for (auto _ : state) benchmark::DoNotOptimize(alone.Process());
  state.SetItemsProcessed(state.iterations() * kFrames);
}
BENCHMARK(BM_ProcessAudioAlone);

void BM_FilterReceive(benchmark::State& state) {
  Path path;
  path.Receive();  // the first sample starts the plug-in
  const long long before = g_news.load();
  for (auto _ : state) benchmark::DoNotOptimize(path.Receive());
  state.counters["allocs"] = double(g_news.load() - before) / double(state.iterations());
  state.SetItemsProcessed(state.iterations() * kFrames);
}
BENCHMARK(BM_FilterReceive);

void BM_ReceiveShare(benchmark::State& state) {
  Path path;
  Alone alone;
  path.Receive();
  // Processor time, not wall time: the machine may be shared, and a
  // preemption inside one batch would otherwise count against it alone.
  std::clock_t receive = 0, process = 0;
  constexpr int kBatch = 256;
  for (auto _ : state) {
    std::clock_t t0 = std::clock();
    for (int i = 0; i < kBatch; ++i) benchmark::DoNotOptimize(path.Receive());
    std::clock_t t1 = std::clock();
    for (int i = 0; i < kBatch; ++i) benchmark::DoNotOptimize(alone.Process());
    std::clock_t t2 = std::clock();
    receive += t1 - t0;
    process += t2 - t1;
  }
  state.counters["ratio"] = process ? double(receive) / double(process) : 0.0;
}
BENCHMARK(BM_ReceiveShare);

}  // namespace

BENCHMARK_MAIN();
