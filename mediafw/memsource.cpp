#include "mediafw/memsource.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "platform/thread.h"

namespace {

// Frames whose duration in 100-ns units still fits a time.
constexpr LONGLONG kMaxSegmentFrames = std::numeric_limits<LONGLONG>::max() / 10000000LL;

}  // namespace

class CZqMemorySource::Pin final : public CBaseOutputPin {
 public:
  Pin(CZqMemorySource* source, HRESULT* phr)
      : CBaseOutputPin(u"memory source pin", source, &source->m_csFilter, phr, u"Out"), m_source(source) {}

  HRESULT CheckMediaType(const CMediaType* pmt) override {
    CMediaType mine;
    HRESULT hr = GetMediaType(0, &mine);
    if (hr != S_OK) return E_UNEXPECTED;
    return mine == *pmt ? S_OK : VFW_E_TYPE_NOT_ACCEPTED;
  }

  HRESULT GetMediaType(int iPosition, CMediaType* pmt) override {
    if (iPosition < 0) return E_INVALIDARG;
    if (iPosition > 0 || m_source->m_format.empty()) return VFW_S_NO_MORE_ITEMS;
    FreeMediaType(*pmt);
    return CreateAudioMediaType(reinterpret_cast<const WAVEFORMATEX*>(m_source->m_format.data()), pmt, TRUE);
  }

  HRESULT DecideBufferSize(IMemAllocator* pAlloc, ALLOCATOR_PROPERTIES* pRequest) override {
    const auto* wfx = reinterpret_cast<const WAVEFORMATEX*>(m_source->m_format.data());
    LONG needed = static_cast<LONG>(m_source->m_framesPerSample * wfx->nBlockAlign);
    if (pRequest->cBuffers < m_source->m_bufferCount) pRequest->cBuffers = m_source->m_bufferCount;
    if (pRequest->cbBuffer < needed) pRequest->cbBuffer = needed;
    if (pRequest->cbAlign < 1) pRequest->cbAlign = 1;
    ALLOCATOR_PROPERTIES actual{};
    HRESULT hr = pAlloc->SetProperties(pRequest, &actual);
    if (FAILED(hr)) return hr;
    return actual.cbBuffer < needed ? E_FAIL : S_OK;
  }

  HRESULT Active() override {
    HRESULT hr = CBaseOutputPin::Active();
    if (FAILED(hr)) return hr;
    return m_source->StartStreaming();
  }

  HRESULT Inactive() override {
    // Decommit first: a streaming thread waiting for a buffer wakes and ends.
    m_source->m_stopRequested = true;
    HRESULT hr = CBaseOutputPin::Inactive();
    m_source->StopStreaming();
    return hr;
  }

 private:
  CZqMemorySource* m_source;
};

CZqMemorySource::CZqMemorySource(IUnknown* outer)
    : CBaseFilter(u"memory source", outer, &m_csFilter, kClsid) {
  HRESULT hr = S_OK;
  m_pPin = new Pin(this, &hr);
  m_done.Set();
}

CZqMemorySource::~CZqMemorySource() {
  StopStreaming();
  delete m_pPin;
}

HRESULT CZqMemorySource::Create(CZqMemorySource** source) {
  if (source == nullptr) return E_POINTER;
  *source = new (std::nothrow) CZqMemorySource();
  if (*source == nullptr) return E_OUTOFMEMORY;
  (*source)->NonDelegatingAddRef();
  return S_OK;
}

CBasePin* CZqMemorySource::GetPin(int n) { return n == 0 ? m_pPin : nullptr; }

CBaseOutputPin* CZqMemorySource::OutputPin() { return m_pPin; }

HRESULT CZqMemorySource::SetFormat(const WAVEFORMATEX* pwfx) {
  if (pwfx == nullptr) return E_POINTER;
  if (pwfx->nChannels == 0 || pwfx->nSamplesPerSec == 0 || pwfx->nBlockAlign == 0) return E_INVALIDARG;
  CAutoLock lock(&m_csFilter);
  const auto* bytes = reinterpret_cast<const BYTE*>(pwfx);
  m_format.assign(bytes, bytes + sizeof(WAVEFORMATEX) + pwfx->cbSize);
  return S_OK;
}

HRESULT CZqMemorySource::SetData(const void* data, size_t bytes) {
  if (data == nullptr && bytes != 0) return E_POINTER;
  CAutoLock lock(&m_csFilter);
  const auto* p = static_cast<const BYTE*>(data);
  m_data.assign(p, p + bytes);
  return S_OK;
}

void CZqMemorySource::SetFramesPerSample(ULONG frames) { SetLocked(m_framesPerSample, frames > 0 ? frames : 1); }

void CZqMemorySource::SetStartTime(REFERENCE_TIME start) { SetLocked(m_startTime, start); }

void CZqMemorySource::SetStartMediaTime(LONGLONG frame) { SetLocked(m_startMediaTime, frame); }

void CZqMemorySource::SetDiscontinuities(std::set<ULONG> sampleIndexes) {
  SetLocked(m_discontinuities, std::move(sampleIndexes));
}

void CZqMemorySource::SetSilentSamples(std::set<ULONG> sampleIndexes) { SetLocked(m_silent, std::move(sampleIndexes)); }

void CZqMemorySource::SetBufferCount(LONG buffers) { SetLocked(m_bufferCount, buffers > 0 ? buffers : 1); }

void CZqMemorySource::SetThreaded(bool threaded) { SetLocked(m_threaded, threaded); }

void CZqMemorySource::SetSendNewSegment(bool send) { SetLocked(m_sendNewSegment, send); }

ULONG CZqMemorySource::SampleCount() {
  CAutoLock lock(&m_csFilter);
  if (m_format.empty()) return 0;
  bool exact = true;
  const LONGLONG frames = StreamFrames(&exact);
  if (!exact || frames <= 0) return 0;
  return static_cast<ULONG>((ULONGLONG(frames) + m_framesPerSample - 1) / m_framesPerSample);
}

LONGLONG CZqMemorySource::StreamFrames(bool* exact) {
  *exact = true;
  const WAVEFORMATEX* wfx = Format();
  return wfx ? LONGLONG(m_data.size() / wfx->nBlockAlign) : 0;
}

HRESULT CZqMemorySource::ReadFrames(ULONGLONG first, ULONG frames, BYTE* out, ULONG* got) {
  const ULONG block = Format()->nBlockAlign;
  const ULONGLONG total = m_data.size() / block;
  const ULONGLONG n = first >= total ? 0 : std::min<ULONGLONG>(frames, total - first);
  if (n > 0) std::memcpy(out, m_data.data() + first * block, size_t(n * block));
  *got = ULONG(n);
  return S_OK;
}

void CZqMemorySource::ResetStream() {
  m_next = 0;
  m_eosSent = false;
  m_segmentSent = false;
  m_delivered = 0;
  m_framesDelivered = 0;
  m_streamStatus = S_OK;
  m_stopRequested = false;
}

HRESULT CZqMemorySource::StartStreaming() {
  ResetStream();
  if (!m_threaded) return S_OK;
  m_done.Reset();
  m_thread = CreateThread(nullptr, 0, &CZqMemorySource::ThreadProc, this, 0, nullptr);
  if (m_thread == nullptr) {
    m_done.Set();
    return HRESULT_FROM_WIN32(GetLastError());
  }
  return S_OK;
}

void CZqMemorySource::StopStreaming() {
  m_stopRequested = true;
  if (m_thread != nullptr) {
    WaitForSingleObject(m_thread, INFINITE);
    CloseHandle(m_thread);
    m_thread = nullptr;
  }
}

DWORD CZqMemorySource::ThreadProc(LPVOID self) {
  auto* source = static_cast<CZqMemorySource*>(self);
  source->StreamLoop();
  source->m_done.Set();
  return 0;
}

void CZqMemorySource::StreamLoop() {
  for (;;) {
    if (m_stopRequested) return;
    HRESULT hr = DeliverNext();
    if (hr == S_OK) continue;
    return;
  }
}

HRESULT CZqMemorySource::PushNext() {
  {
    CAutoLock lock(&m_csFilter);
    if (m_threaded) return E_UNEXPECTED;
    if (IsStopped()) return VFW_E_WRONG_STATE;
  }
  return DeliverNext();
}

HRESULT CZqMemorySource::DeliverNext() {
  if (m_eosSent) return S_FALSE;
  if (!m_segmentSent) {
    m_segmentSent = true;
    if (m_sendNewSegment) {
      bool exact = true;
      const LONGLONG frames = std::max<LONGLONG>(0, StreamFrames(&exact));
      // A count too large to be a time (a header that does not know the
      // length) leaves the segment open.
      const REFERENCE_TIME stop = frames <= kMaxSegmentFrames
                                      ? m_startTime + frames * 10000000LL / Format()->nSamplesPerSec
                                      : std::numeric_limits<REFERENCE_TIME>::max();
      m_pPin->DeliverNewSegment(m_startTime, stop, 1.0);
    }
  }
  HRESULT hr = DeliverSample(m_next);
  if (hr == S_OK) {
    ++m_next;
    ++m_delivered;
    return S_OK;
  }
  // Stopping: downstream stops first, so the buffers or the receiving pin
  // may go away before we are told.  That is no failure of the stream.
  if (m_stopRequested || hr == VFW_E_NOT_COMMITTED || hr == VFW_E_WRONG_STATE) return hr;
  if (FAILED(hr)) {
    m_streamStatus = hr;
    NotifyEvent(EC_ERRORABORT, hr, 0);
  }
  // The data ran out, downstream asked us to stop (Receive answered
  // S_FALSE) or delivery failed: the stream ends here.
  m_eosSent = true;
  m_pPin->DeliverEndOfStream();
  return FAILED(hr) ? hr : S_FALSE;
}

HRESULT CZqMemorySource::DeliverSample(ULONG index) {
  const WAVEFORMATEX* wfx = Format();
  const ULONG block = wfx->nBlockAlign;
  const ULONGLONG first = ULONGLONG(index) * m_framesPerSample;
  // With the length known, the end needs no buffer: a downstream allocator
  // whose buffers are all held must not keep the end of stream waiting.
  bool exact = true;
  const LONGLONG total = StreamFrames(&exact);
  if (exact && first >= ULONGLONG(std::max<LONGLONG>(0, total))) return S_FALSE;

  IMediaSample* sample = nullptr;
  HRESULT hr = m_pPin->GetDeliveryBuffer(&sample, nullptr, nullptr, 0);
  if (FAILED(hr)) return hr;
  BYTE* p = nullptr;
  ULONG frames = 0;
  hr = sample->GetPointer(&p);
  if (SUCCEEDED(hr) && ULONGLONG(sample->GetSize()) < ULONGLONG(m_framesPerSample) * block) hr = VFW_E_BUFFER_OVERFLOW;
  if (SUCCEEDED(hr)) hr = ReadFrames(first, m_framesPerSample, p, &frames);
  if (SUCCEEDED(hr) && frames == 0) {
    sample->Release();
    return S_FALSE;
  }
  if (SUCCEEDED(hr)) hr = sample->SetActualDataLength(static_cast<LONG>(frames * block));
  if (SUCCEEDED(hr)) {
    REFERENCE_TIME start = m_startTime + REFERENCE_TIME(first * 10000000ULL / wfx->nSamplesPerSec);
    REFERENCE_TIME stop = m_startTime + REFERENCE_TIME((first + frames) * 10000000ULL / wfx->nSamplesPerSec);
    hr = sample->SetTime(&start, &stop);
  }
  if (SUCCEEDED(hr)) {
    LONGLONG mediaStart = m_startMediaTime + LONGLONG(first);
    LONGLONG mediaStop = mediaStart + LONGLONG(frames);
    hr = sample->SetMediaTime(&mediaStart, &mediaStop);
  }
  if (SUCCEEDED(hr)) hr = sample->SetSyncPoint(TRUE);
  if (SUCCEEDED(hr)) hr = sample->SetDiscontinuity(m_discontinuities.count(index) != 0);
  if (SUCCEEDED(hr)) {
    IZqSampleSilence* silence = nullptr;
    if (SUCCEEDED(sample->QueryInterface(IID_IZqSampleSilence, reinterpret_cast<void**>(&silence)))) {
      hr = silence->SetSilent(m_silent.count(index) != 0);
      silence->Release();
    }
  }
  if (SUCCEEDED(hr)) {
    hr = m_pPin->Deliver(sample);
    if (SUCCEEDED(hr)) m_framesDelivered += frames;
  }
  sample->Release();
  return hr;
}

HRESULT CZqMemorySource::WaitUntilDone(DWORD milliseconds) { return m_done.Wait(milliseconds) ? S_OK : E_ABORT; }
