#include "mediafw/sink.h"

class CZqCollectSink::Pin final : public CBaseInputPin {
 public:
  Pin(CZqCollectSink* sink, HRESULT* phr)
      : CBaseInputPin(u"collect sink pin", sink, &sink->m_csFilter, phr, u"In"), m_sink(sink) {}

  HRESULT CheckMediaType(const CMediaType* pmt) override {
    CAutoLock lock(&m_sink->m_csData);
    if (HRESULT hr = m_sink->CheckConnectionType(pmt); hr != S_OK) return hr;
    if (m_sink->m_typeFilter) return m_sink->m_typeFilter(*pmt) ? S_OK : VFW_E_TYPE_NOT_ACCEPTED;
    if (!IsEqualGUID(pmt->majortype, MEDIATYPE_Audio) || !IsEqualGUID(pmt->formattype, FORMAT_WaveFormatEx) ||
        pmt->cbFormat < 16 || pmt->pbFormat == nullptr)
      return VFW_E_TYPE_NOT_ACCEPTED;
    return S_OK;
  }

  HRESULT GetMediaType(int iPosition, CMediaType* pmt) override {
    CAutoLock lock(&m_sink->m_csData);
    if (iPosition < 0) return E_INVALIDARG;
    if (size_t(iPosition) >= m_sink->m_offered.size()) return VFW_S_NO_MORE_ITEMS;
    return pmt->Set(m_sink->m_offered[size_t(iPosition)]);
  }

  HRESULT STDMETHODCALLTYPE QueryAccept(const AM_MEDIA_TYPE* pmt) override {
    {
      CAutoLock lock(&m_sink->m_csData);
      ++m_sink->m_queryAcceptCalls;
      if (HRESULT hr = m_sink->CheckQueryAccept(); hr != S_OK) return hr;
    }
    return CBaseInputPin::QueryAccept(pmt);
  }

  HRESULT STDMETHODCALLTYPE GetAllocator(IMemAllocator** ppAllocator) override {
    if (ppAllocator == nullptr) return E_POINTER;
    *ppAllocator = m_sink->m_pOwnAllocator;
    (*ppAllocator)->AddRef();
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE GetAllocatorRequirements(ALLOCATOR_PROPERTIES* pProps) override {
    if (pProps == nullptr) return E_POINTER;
    CAutoLock lock(&m_sink->m_csData);
    if (!m_sink->m_hasRequirements) return E_NOTIMPL;
    *pProps = m_sink->m_requirements;
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE Receive(IMediaSample* pSample) override {
    HRESULT hr = CBaseInputPin::Receive(pSample);
    if (hr != S_OK) return hr;
    return m_sink->Collect(pSample);
  }

  HRESULT STDMETHODCALLTYPE EndOfStream() override {
    HRESULT hr = CheckStreaming();
    if (hr != S_OK) return hr;
    {
      CAutoLock lock(&m_sink->m_csData);
      hr = m_sink->CheckEndOfStream();
      if (FAILED(hr)) return hr;
      ++m_sink->m_eosCount;
      m_sink->m_events.push_back(ZqSinkEvent{ZqSinkEventKind::EndOfStream});
    }
    m_sink->m_eos.Set();
    m_sink->NotifyEvent(EC_COMPLETE, S_OK, 0);
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE BeginFlush() override {
    {
      CAutoLock lock(&m_sink->m_csData);
      m_sink->m_events.push_back(ZqSinkEvent{ZqSinkEventKind::BeginFlush});
    }
    return CBaseInputPin::BeginFlush();
  }

  HRESULT STDMETHODCALLTYPE EndFlush() override {
    {
      CAutoLock lock(&m_sink->m_csData);
      m_sink->m_events.push_back(ZqSinkEvent{ZqSinkEventKind::EndFlush});
    }
    return CBaseInputPin::EndFlush();
  }

  HRESULT STDMETHODCALLTYPE NewSegment(REFERENCE_TIME tStart, REFERENCE_TIME tStop, double dRate) override {
    {
      CAutoLock lock(&m_sink->m_csData);
      m_sink->m_events.push_back(ZqSinkEvent{ZqSinkEventKind::NewSegment, 0, tStart, tStop, dRate});
    }
    return CBaseInputPin::NewSegment(tStart, tStop, dRate);
  }

 private:
  CZqCollectSink* m_sink;
};

CZqCollectSink::CZqCollectSink(IUnknown* outer) : CBaseFilter(u"collect sink", outer, &m_csFilter, kClsid) {
  HRESULT hr = S_OK;
  m_pOwnAllocator = new CMemAllocator(u"collect sink allocator", nullptr, &hr);
  m_pOwnAllocator->NonDelegatingAddRef();
  m_pPin = new Pin(this, &hr);
}

CZqCollectSink::~CZqCollectSink() {
  delete m_pPin;
  m_pOwnAllocator->Release();
}

HRESULT CZqCollectSink::Create(CZqCollectSink** sink) {
  if (sink == nullptr) return E_POINTER;
  *sink = new (std::nothrow) CZqCollectSink();
  if (*sink == nullptr) return E_OUTOFMEMORY;
  (*sink)->NonDelegatingAddRef();
  return S_OK;
}

CBasePin* CZqCollectSink::GetPin(int n) { return n == 0 ? m_pPin : nullptr; }

CBaseInputPin* CZqCollectSink::InputPin() { return m_pPin; }

HRESULT CZqCollectSink::Collect(IMediaSample* sample) {
  CAutoLock lock(&m_csData);
  ++m_receiveCalls;
  if (HRESULT hr = CheckReceive(); hr != S_OK) return hr;
  ZqReceivedSample r;
  r.size = sample->GetSize();
  BYTE* p = nullptr;
  LONG length = sample->GetActualDataLength();
  if (SUCCEEDED(sample->GetPointer(&p)) && p != nullptr && length > 0) r.data.assign(p, p + length);
  r.timeStatus = sample->GetTime(&r.start, &r.stop);
  r.mediaTimeStatus = sample->GetMediaTime(&r.mediaStart, &r.mediaStop);
  r.discontinuity = sample->IsDiscontinuity() == S_OK;
  r.syncPoint = sample->IsSyncPoint() == S_OK;
  r.preroll = sample->IsPreroll() == S_OK;
  IZqSampleSilence* silence = nullptr;
  if (SUCCEEDED(sample->QueryInterface(IID_IZqSampleSilence, reinterpret_cast<void**>(&silence)))) {
    r.answersSilence = true;
    r.silent = silence->IsSilent() != FALSE;
    silence->Release();
  }
  m_samples.push_back(std::move(r));
  m_events.push_back(ZqSinkEvent{ZqSinkEventKind::Sample, m_samples.size() - 1});
  return S_OK;
}

void CZqCollectSink::SetTypeFilter(std::function<bool(const AM_MEDIA_TYPE&)> accept) {
  CAutoLock lock(&m_csData);
  m_typeFilter = std::move(accept);
}

void CZqCollectSink::SetAllocatorRequirements(const ALLOCATOR_PROPERTIES& props) {
  CAutoLock lock(&m_csData);
  m_requirements = props;
  m_hasRequirements = true;
}

void CZqCollectSink::OfferTypes(std::vector<CMediaType> types) {
  CAutoLock lock(&m_csData);
  m_offered = std::move(types);
}

std::vector<ZqReceivedSample> CZqCollectSink::Samples() {
  CAutoLock lock(&m_csData);
  return m_samples;
}

std::vector<ZqSinkEvent> CZqCollectSink::Events() {
  CAutoLock lock(&m_csData);
  return m_events;
}

std::vector<BYTE> CZqCollectSink::AllBytes() {
  CAutoLock lock(&m_csData);
  std::vector<BYTE> all;
  for (const ZqReceivedSample& s : m_samples) all.insert(all.end(), s.data.begin(), s.data.end());
  return all;
}

LONG CZqCollectSink::EndOfStreamCount() {
  CAutoLock lock(&m_csData);
  return m_eosCount;
}

LONG CZqCollectSink::ReceiveCalls() {
  CAutoLock lock(&m_csData);
  return m_receiveCalls;
}

LONG CZqCollectSink::QueryAcceptCalls() {
  CAutoLock lock(&m_csData);
  return m_queryAcceptCalls;
}

CMediaType CZqCollectSink::ConnectedType() {
  CAutoLock lock(&m_csFilter);
  if (!m_pPin->IsConnected()) return CMediaType();
  return m_pPin->CurrentMediaType();
}

HRESULT CZqCollectSink::WaitForEndOfStream(DWORD milliseconds) { return m_eos.Wait(milliseconds) ? S_OK : E_ABORT; }

void CZqCollectSink::Clear() {
  CAutoLock lock(&m_csData);
  m_samples.clear();
  m_events.clear();
  m_eosCount = 0;
  m_eos.Reset();
}
