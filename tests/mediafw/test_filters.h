// A transform whose every hook a test can set, and functions that build audio
// formats and a source -> transform -> sink chain in a graph.
#pragma once

#include <algorithm>
#include <functional>
#include <vector>

#include "mediafw/graph.h"
#include "mediafw/memsource.h"
#include "tests/mediafw/failing_sink.h"
#include "mediafw/transform.h"

namespace zqtest {

inline constexpr CLSID kFakeClsid = ZqGuid("{6A0F3B7C-2D4E-4F81-9C3A-1B2D3E4F5A6B}");

inline WAVEFORMATEX Pcm16(WORD channels, DWORD rate) {
  WAVEFORMATEX w{};
  w.wFormatTag = WAVE_FORMAT_PCM;
  w.nChannels = channels;
  w.nSamplesPerSec = rate;
  w.wBitsPerSample = 16;
  w.nBlockAlign = WORD(2 * channels);
  w.nAvgBytesPerSec = rate * w.nBlockAlign;
  w.cbSize = 0;
  return w;
}

inline std::vector<BYTE> Ramp(size_t bytes) {
  std::vector<BYTE> data(bytes);
  for (size_t i = 0; i < bytes; ++i) data[i] = BYTE(i * 7 + 3);
  return data;
}

// Copies input to output unless a test changes a hook.  In the frame way it
// passes at most `step` frames a step and drains `tail` frames of 0x5A at
// end of stream; steps and drains fail where the plans say.
class CFakeTransform : public CTransformFilter {
 public:
  explicit CFakeTransform(ZqTransformMode mode = ZqTransformMode::SampleForSample)
      : CTransformFilter(u"fake transform", nullptr, kFakeClsid, mode) {}

  ULONG step = 10;
  LONG tail = 0;
  ZqFaultPlan processFault;
  ZqFaultPlan drainFault;

  ZqFrameLayout FrameLayout() override {
    const auto* w = reinterpret_cast<const WAVEFORMATEX*>(m_pInput->CurrentMediaType().Format());
    return {w->nBlockAlign, w->nBlockAlign, w->nSamplesPerSec};
  }
  HRESULT ProcessFrames(ZqFrameBlock* b) override {
    const WORD align = FrameLayout().outputFrameBytes;
    b->usedFrames = b->producedFrames = std::min({b->inputFrames, step, b->outputCapacity});
    std::copy(b->input, b->input + b->usedFrames * align, b->output);
    return processFault.Next();
  }
  HRESULT DrainFrames(BYTE* out, ULONG* frames) override {
    if (tail <= 0) {
      *frames = 0;
      return S_FALSE;
    }
    *frames = std::min({*frames, step, ULONG(tail)});
    tail -= LONG(*frames);
    std::fill(out, out + *frames * FrameLayout().outputFrameBytes, BYTE(0x5A));
    return drainFault.Next();
  }

  std::function<HRESULT(const CMediaType*)> checkInput = [](const CMediaType* mt) {
    return IsEqualGUID(mt->majortype, MEDIATYPE_Audio) ? S_OK : E_INVALIDARG;
  };
  std::function<HRESULT(const CMediaType*, const CMediaType*)> checkTransform =
      [](const CMediaType* in, const CMediaType* out) { return *in == *out ? S_OK : E_INVALIDARG; };
  // Default: the input's type as the only output type.
  std::function<HRESULT(int, CMediaType*)> getMediaType;
  std::function<HRESULT(IMemAllocator*, ALLOCATOR_PROPERTIES*)> decideBufferSize =
      [](IMemAllocator* a, ALLOCATOR_PROPERTIES* p) {
        if (p->cBuffers < 2) p->cBuffers = 2;
        if (p->cbBuffer < 4096) p->cbBuffer = 4096;
        ALLOCATOR_PROPERTIES actual{};
        return a->SetProperties(p, &actual);
      };
  std::function<HRESULT(IMediaSample*, IMediaSample*)> transform = [](IMediaSample* in, IMediaSample* out) {
    BYTE* src = nullptr;
    BYTE* dst = nullptr;
    HRESULT hr = in->GetPointer(&src);
    if (SUCCEEDED(hr)) hr = out->GetPointer(&dst);
    if (FAILED(hr)) return hr;
    LONG n = in->GetActualDataLength();
    if (n > out->GetSize()) return E_FAIL;
    std::copy(src, src + n, dst);
    return out->SetActualDataLength(n);
  };
  std::function<HRESULT(PIN_DIRECTION, IPin*)> completeConnect = [](PIN_DIRECTION, IPin*) { return S_OK; };
  std::function<HRESULT()> startStreaming = [] { return S_OK; };
  ALLOCATOR_PROPERTIES lastRequest{};
  int starts = 0;
  int stops = 0;
  int setTypes[2] = {0, 0};

  HRESULT CheckInputType(const CMediaType* mt) override { return checkInput(mt); }
  HRESULT CheckTransform(const CMediaType* in, const CMediaType* out) override { return checkTransform(in, out); }
  HRESULT GetMediaType(int pos, CMediaType* mt) override {
    if (getMediaType) return getMediaType(pos, mt);
    if (pos < 0) return E_INVALIDARG;
    if (pos > 0) return VFW_S_NO_MORE_ITEMS;
    return mt->Set(m_pInput->CurrentMediaType());
  }
  HRESULT DecideBufferSize(IMemAllocator* a, ALLOCATOR_PROPERTIES* p) override {
    lastRequest = *p;
    return decideBufferSize(a, p);
  }
  HRESULT Transform(IMediaSample* in, IMediaSample* out) override { return transform(in, out); }
  HRESULT CompleteConnect(PIN_DIRECTION dir, IPin* pin) override { return completeConnect(dir, pin); }
  HRESULT SetMediaType(PIN_DIRECTION dir, const CMediaType*) override {
    ++setTypes[dir];
    return S_OK;
  }
  HRESULT StartStreaming() override {
    ++starts;
    return startStreaming();
  }
  HRESULT StopStreaming() override {
    ++stops;
    return S_OK;
  }

  CTransformInputPin* Input() { return static_cast<CTransformInputPin*>(GetPin(0)); }
  CTransformOutputPin* Output() { return static_cast<CTransformOutputPin*>(GetPin(1)); }
  IFilterGraph* Graph() { return m_pGraph; }
};

// source -> fake -> sink in one graph; each object holds one reference here.
struct Chain {
  CZqFilterGraph* graph = nullptr;
  CZqMemorySource* source = nullptr;
  CFakeTransform* fake = nullptr;
  CZqFailingSink* sink = nullptr;

  explicit Chain(ZqTransformMode mode = ZqTransformMode::SampleForSample) {
    CZqFilterGraph::Create(&graph);
    CZqMemorySource::Create(&source);
    CZqFailingSink::Create(&sink);
    fake = new CFakeTransform(mode);
    fake->NonDelegatingAddRef();
    graph->AddFilter(source, u"source");
    graph->AddFilter(fake, u"fake");
    graph->AddFilter(sink, u"sink");
  }
  ~Chain() {
    graph->Stop();
    graph->RemoveAllFilters();
    source->Release();
    fake->Release();
    sink->Release();
    graph->Release();
  }
  Chain(const Chain&) = delete;
  Chain& operator=(const Chain&) = delete;

  // Source data: `frames` of a ramp in `format`, `framesPerSample` a sample.
  void Feed(const WAVEFORMATEX& format, size_t frames, ULONG framesPerSample, bool threaded) {
    source->SetFormat(&format);
    data = Ramp(frames * format.nBlockAlign);
    source->SetData(data.data(), data.size());
    source->SetFramesPerSample(framesPerSample);
    source->SetThreaded(threaded);
  }
  HRESULT ConnectInput() { return graph->ConnectDirect(source->OutputPin(), fake->Input(), nullptr); }
  HRESULT ConnectOutput() { return graph->ConnectDirect(fake->Output(), sink->InputPin(), nullptr); }
  HRESULT ConnectAll() {
    HRESULT hr = ConnectInput();
    return FAILED(hr) ? hr : ConnectOutput();
  }

  std::vector<BYTE> data;
};

}  // namespace zqtest
