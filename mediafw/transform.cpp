#include "mediafw/transform.h"

#include <string_view>

#include "kernel/com/taskmem.h"

// --- CTransformInputPin ------------------------------------------------------

CTransformInputPin::CTransformInputPin(const WCHAR* objectName, CTransformFilter* filter, HRESULT* phr,
                                       LPCWSTR pinName)
    : CBaseInputPin(objectName, filter, &filter->m_csFilter, phr, pinName), m_pTransformFilter(filter) {}

HRESULT CTransformInputPin::CheckConnect(IPin* pPin) {
  HRESULT hr = m_pTransformFilter->CheckConnect(PINDIR_INPUT, pPin);
  if (FAILED(hr)) return hr;
  return CBaseInputPin::CheckConnect(pPin);
}

HRESULT CTransformInputPin::BreakConnect() {
  m_pTransformFilter->BreakConnect(PINDIR_INPUT);
  return CBaseInputPin::BreakConnect();
}

HRESULT CTransformInputPin::CompleteConnect(IPin* pReceivePin) {
  HRESULT hr = m_pTransformFilter->CompleteConnect(PINDIR_INPUT, pReceivePin);
  if (FAILED(hr)) return hr;
  return CBaseInputPin::CompleteConnect(pReceivePin);
}

HRESULT CTransformInputPin::CheckMediaType(const CMediaType* mtIn) {
  HRESULT hr = m_pTransformFilter->CheckInputType(mtIn);
  if (hr != S_OK) return hr;
  CTransformOutputPin* out = m_pTransformFilter->m_pOutput;
  if (out != nullptr && out->IsConnected()) return m_pTransformFilter->CheckTransform(mtIn, &out->CurrentMediaType());
  return hr;
}

HRESULT CTransformInputPin::SetMediaType(const CMediaType* mt) {
  HRESULT hr = CBasePin::SetMediaType(mt);
  if (FAILED(hr)) return hr;
  return m_pTransformFilter->SetMediaType(PINDIR_INPUT, mt);
}

HRESULT CTransformInputPin::QueryId(LPWSTR* Id) {
  if (Id == nullptr) return E_POINTER;
  *Id = ZqCoTaskStrDup(u"In");
  return *Id ? S_OK : E_OUTOFMEMORY;
}

HRESULT CTransformInputPin::Receive(IMediaSample* pSample) {
  CAutoLock lock(&m_pTransformFilter->m_csReceive);
  HRESULT hr = CBaseInputPin::Receive(pSample);
  if (hr != S_OK) return hr;
  return m_pTransformFilter->Receive(pSample);
}

HRESULT CTransformInputPin::EndOfStream() {
  CAutoLock lock(&m_pTransformFilter->m_csReceive);
  HRESULT hr = CheckStreaming();
  if (hr != S_OK) return hr;
  return m_pTransformFilter->EndOfStream();
}

HRESULT CTransformInputPin::BeginFlush() {
  CAutoLock lock(&m_pTransformFilter->m_csFilter);
  CTransformOutputPin* out = m_pTransformFilter->m_pOutput;
  if (!IsConnected() || out == nullptr || !out->IsConnected()) return VFW_E_NOT_CONNECTED;
  HRESULT hr = CBaseInputPin::BeginFlush();
  if (FAILED(hr)) return hr;
  return m_pTransformFilter->BeginFlush();
}

HRESULT CTransformInputPin::EndFlush() {
  CAutoLock lock(&m_pTransformFilter->m_csFilter);
  CTransformOutputPin* out = m_pTransformFilter->m_pOutput;
  if (!IsConnected() || out == nullptr || !out->IsConnected()) return VFW_E_NOT_CONNECTED;
  HRESULT hr = m_pTransformFilter->EndFlush();
  if (FAILED(hr)) return hr;
  return CBaseInputPin::EndFlush();
}

HRESULT CTransformInputPin::NewSegment(REFERENCE_TIME tStart, REFERENCE_TIME tStop, double dRate) {
  CBasePin::NewSegment(tStart, tStop, dRate);
  return m_pTransformFilter->NewSegment(tStart, tStop, dRate);
}

// --- CTransformOutputPin -----------------------------------------------------

CTransformOutputPin::CTransformOutputPin(const WCHAR* objectName, CTransformFilter* filter, HRESULT* phr,
                                         LPCWSTR pinName)
    : CBaseOutputPin(objectName, filter, &filter->m_csFilter, phr, pinName), m_pTransformFilter(filter) {}

HRESULT CTransformOutputPin::CheckConnect(IPin* pPin) {
  CTransformInputPin* in = m_pTransformFilter->m_pInput;
  if (in == nullptr || !in->IsConnected()) return E_UNEXPECTED;
  HRESULT hr = m_pTransformFilter->CheckConnect(PINDIR_OUTPUT, pPin);
  if (FAILED(hr)) return hr;
  return CBaseOutputPin::CheckConnect(pPin);
}

HRESULT CTransformOutputPin::BreakConnect() {
  m_pTransformFilter->BreakConnect(PINDIR_OUTPUT);
  return CBaseOutputPin::BreakConnect();
}

HRESULT CTransformOutputPin::CompleteConnect(IPin* pReceivePin) {
  HRESULT hr = m_pTransformFilter->CompleteConnect(PINDIR_OUTPUT, pReceivePin);
  if (FAILED(hr)) return hr;
  return CBaseOutputPin::CompleteConnect(pReceivePin);
}

HRESULT CTransformOutputPin::DecideBufferSize(IMemAllocator* pAlloc, ALLOCATOR_PROPERTIES* pProp) {
  return m_pTransformFilter->DecideBufferSize(pAlloc, pProp);
}

HRESULT CTransformOutputPin::CheckMediaType(const CMediaType* mtOut) {
  CTransformInputPin* in = m_pTransformFilter->m_pInput;
  if (in == nullptr || !in->IsConnected()) return E_INVALIDARG;
  return m_pTransformFilter->CheckTransform(&in->CurrentMediaType(), mtOut);
}

HRESULT CTransformOutputPin::SetMediaType(const CMediaType* mtOut) {
  HRESULT hr = CBasePin::SetMediaType(mtOut);
  if (FAILED(hr)) return hr;
  return m_pTransformFilter->SetMediaType(PINDIR_OUTPUT, mtOut);
}

HRESULT CTransformOutputPin::GetMediaType(int iPosition, CMediaType* pMediaType) {
  CTransformInputPin* in = m_pTransformFilter->m_pInput;
  if (in != nullptr && in->IsConnected()) return m_pTransformFilter->GetMediaType(iPosition, pMediaType);
  return VFW_S_NO_MORE_ITEMS;
}

HRESULT CTransformOutputPin::QueryId(LPWSTR* Id) {
  if (Id == nullptr) return E_POINTER;
  *Id = ZqCoTaskStrDup(u"Out");
  return *Id ? S_OK : E_OUTOFMEMORY;
}

// --- CTransformFilter --------------------------------------------------------

CTransformFilter::CTransformFilter(const WCHAR* objectName, IUnknown* outer, REFCLSID clsid, ZqTransformMode mode)
    : CBaseFilter(objectName, outer, &m_csFilter, clsid), m_mode(mode) {}

CTransformFilter::~CTransformFilter() {
  delete m_pInput;
  delete m_pOutput;
}

CBasePin* CTransformFilter::GetPin(int n) {
  if (m_pInput == nullptr) {
    HRESULT hr = S_OK;
    m_pInput = new (std::nothrow) CTransformInputPin(u"transform input pin", this, &hr, u"XForm In");
    if (m_pInput == nullptr) return nullptr;
    if (FAILED(hr)) {
      delete m_pInput;
      m_pInput = nullptr;
      return nullptr;
    }
    m_pOutput = new (std::nothrow) CTransformOutputPin(u"transform output pin", this, &hr, u"XForm Out");
    if (m_pOutput == nullptr || FAILED(hr)) {
      delete m_pOutput;
      m_pOutput = nullptr;
      delete m_pInput;
      m_pInput = nullptr;
      return nullptr;
    }
  }
  if (n == 0) return m_pInput;
  if (n == 1) return m_pOutput;
  return nullptr;
}

HRESULT CTransformFilter::FindPin(LPCWSTR Id, IPin** ppPin) {
  if (ppPin == nullptr || Id == nullptr) return E_POINTER;
  *ppPin = nullptr;
  CBasePin* pin = nullptr;
  if (std::u16string_view(Id) == u"In") {
    pin = GetPin(0);
  } else if (std::u16string_view(Id) == u"Out") {
    pin = GetPin(1);
  } else {
    return VFW_E_NOT_FOUND;
  }
  if (pin == nullptr) return E_OUTOFMEMORY;
  *ppPin = pin;
  pin->AddRef();
  return S_OK;
}

HRESULT CTransformFilter::Stop() {
  CAutoLock lock(&m_csFilter);
  if (m_State == State_Stopped) return S_OK;
  if (m_pInput == nullptr || !m_pInput->IsConnected() || m_pOutput == nullptr || !m_pOutput->IsConnected()) {
    m_State = State_Stopped;
    m_bEOSDelivered = FALSE;
    return S_OK;
  }
  // Decommit the input first: a Receive blocked upstream of us, or waiting
  // for one of our buffers, is let go before we wait for the receive lock.
  m_pInput->Inactive();
  CAutoLock receive(&m_csReceive);
  m_pOutput->Inactive();
  HRESULT hr = StopStreaming();
  if (SUCCEEDED(hr)) {
    m_State = State_Stopped;
    m_bEOSDelivered = FALSE;
  }
  return hr;
}

HRESULT CTransformFilter::Pause() {
  CAutoLock lock(&m_csFilter);
  HRESULT hr = S_OK;
  if (m_State == State_Paused) {
    // Nothing to do.
  } else if (m_pInput == nullptr || !m_pInput->IsConnected()) {
    // Nothing can ever arrive: tell downstream at once so that it does not
    // wait for us.
    if (m_pOutput != nullptr && m_pOutput->IsConnected() && !m_bEOSDelivered) {
      m_pOutput->DeliverEndOfStream();
      m_bEOSDelivered = TRUE;
    }
    m_State = State_Paused;
  } else if (!m_pOutput->IsConnected()) {
    m_State = State_Paused;
  } else {
    if (m_State == State_Stopped) {
      CAutoLock receive(&m_csReceive);
      hr = StartStreaming();
    }
    if (SUCCEEDED(hr)) hr = CBaseFilter::Pause();
  }
  m_bSampleSkipped = FALSE;
  m_bQualityChanged = FALSE;
  return hr;
}

HRESULT CTransformFilter::Transform(IMediaSample*, IMediaSample*) { return E_UNEXPECTED; }

HRESULT CTransformFilter::InitializeOutputSample(IMediaSample* pSample, IMediaSample** ppOutSample) {
  *ppOutSample = nullptr;
  IMediaSample* out = nullptr;
  DWORD flags = m_bSampleSkipped ? AM_GBF_PREVFRAMESKIPPED : 0;
  if (pSample->IsSyncPoint() != S_OK) flags |= AM_GBF_NOTASYNCPOINT;
  REFERENCE_TIME start = 0, stop = 0;
  HRESULT timeHr = pSample->GetTime(&start, &stop);
  bool hasTime = SUCCEEDED(timeHr);
  HRESULT hr = m_pOutput->GetDeliveryBuffer(&out, hasTime ? &start : nullptr, hasTime ? &stop : nullptr, flags);
  if (FAILED(hr)) return hr;
  if (hasTime) hr = out->SetTime(&start, timeHr == S_OK ? &stop : nullptr);
  if (SUCCEEDED(hr)) hr = out->SetSyncPoint(pSample->IsSyncPoint() == S_OK);
  if (SUCCEEDED(hr)) hr = out->SetDiscontinuity(m_bSampleSkipped || pSample->IsDiscontinuity() == S_OK);
  if (SUCCEEDED(hr)) hr = out->SetPreroll(pSample->IsPreroll() == S_OK);
  LONGLONG mediaStart = 0, mediaStop = 0;
  if (SUCCEEDED(hr) && pSample->GetMediaTime(&mediaStart, &mediaStop) == S_OK)
    hr = out->SetMediaTime(&mediaStart, &mediaStop);
  if (FAILED(hr)) {
    out->Release();
    return hr;
  }
  *ppOutSample = out;
  return S_OK;
}

HRESULT CTransformFilter::Receive(IMediaSample* pSample) {
  if (m_mode == ZqTransformMode::Frames) return ReceiveFrames(pSample);
  IMediaSample* out = nullptr;
  HRESULT hr = InitializeOutputSample(pSample, &out);
  if (FAILED(hr)) return hr;
  hr = Transform(pSample, out);
  if (hr == S_OK) {
    hr = m_pOutput->Deliver(out);
    m_bSampleSkipped = FALSE;
  } else if (hr == S_FALSE) {
    // Skipped: the next delivered sample is marked as a discontinuity.
    m_bSampleSkipped = TRUE;
    hr = S_OK;
  }
  out->Release();
  return hr;
}

HRESULT CTransformFilter::EndOfStream() {
  if (m_pOutput == nullptr) return S_OK;
  if (m_mode == ZqTransformMode::Frames) return DrainAndEndStream();
  return m_pOutput->DeliverEndOfStream();
}

// --- The frame way -------------------------------------------------------------

namespace {

IZqSampleSilence* SilenceOf(IMediaSample* sample) {
  IZqSampleSilence* silence = nullptr;
  if (FAILED(sample->QueryInterface(IID_IZqSampleSilence, reinterpret_cast<void**>(&silence)))) return nullptr;
  return silence;
}

}  // namespace

void CTransformFilter::StampFrames(IMediaSample* out, ULONG frames, DWORD framesPerSecond, BOOL silent) {
  if (m_bPendingDiscontinuity) {
    out->SetDiscontinuity(TRUE);
    m_bPendingDiscontinuity = FALSE;
  } else {
    m_rtOutStart = m_rtOutStop;
    m_llMediaStart = m_llMediaStop;
  }
  const LONGLONG duration =
      framesPerSecond == 0 ? 0 : LONGLONG(double(frames) / double(framesPerSecond) * 10000000.0 + 0.5);
  m_rtOutStop = m_rtOutStart + duration;
  m_llMediaStop = m_llMediaStart + LONGLONG(frames);
  out->SetTime(&m_rtOutStart, &m_rtOutStop);
  out->SetMediaTime(&m_llMediaStart, &m_llMediaStop);
  m_rtOutStart = m_rtOutStop;
  m_llMediaStart = m_llMediaStop;
  if (m_bPendingSyncPoint) {
    out->SetSyncPoint(TRUE);
    m_bPendingSyncPoint = FALSE;
  }
  if (IZqSampleSilence* silence = SilenceOf(out)) {
    silence->SetSilent(silent);
    silence->Release();
  }
}

HRESULT CTransformFilter::ReceiveFrames(IMediaSample* pSample) {
  REFERENCE_TIME sampleStart = 0, sampleStop = 0;
  pSample->GetTime(&sampleStart, &sampleStop);
  BeginSample(sampleStart, sampleStop);

  IMediaSample* out = nullptr;
  HRESULT status = m_pOutput->GetDeliveryBuffer(&out, nullptr, nullptr, 0);
  if (FAILED(status)) return status;

  bool restart = pSample->IsDiscontinuity() == S_OK;
  if (pSample->IsSyncPoint() == S_OK) m_bPendingSyncPoint = TRUE;
  if (restart) {
    // Times are rebased to the sample that follows a break in the stream.
    m_bPendingDiscontinuity = TRUE;
    m_rtOutStart = sampleStart;
    m_rtOutStop = sampleStop;
    LONGLONG mediaStart = 0, mediaStop = 0;
    pSample->GetMediaTime(&mediaStart, &mediaStop);
    m_llMediaStart = mediaStart;
    m_llMediaStop = mediaStop;
  }

  LONG remaining = pSample->GetActualDataLength();

  // A sample is passed as silence only when the one before was silent too;
  // the silent state is only ever given that verdict, so as it starts clear
  // every sample reaches the subclass.  The branches stay as the stream's
  // contract with hosts that mark silence.
  BOOL flagged = FALSE;
  if (IZqSampleSilence* silence = SilenceOf(pSample)) {
    flagged = silence->IsSilent();
    silence->Release();
  }
  const BOOL silent = flagged && m_bSampleSilent;
  BYTE* in = nullptr;
  if (!silent) pSample->GetPointer(&in);
  if (m_bSampleSilent && !flagged) restart = true;

  const ZqFrameLayout layout = FrameLayout();
  const WORD inAlign = layout.inputFrameBytes;
  const WORD outAlign = layout.outputFrameBytes;
  const ULONG total = inAlign ? ULONG(remaining) / inAlign : 0;
  ULONG done = 0;
  bool resumed = true;

  do {
    if (out == nullptr) {
      // The last buffer could not be replaced; without one nothing more of
      // this sample can go out.
      status = m_pOutput->GetDeliveryBuffer(&out, nullptr, nullptr, 0);
      if (FAILED(status)) break;
    }
    ZqFrameBlock block;
    block.input = in;
    block.inputFrames = total - done;
    block.sampleFrames = total;
    block.outputCapacity = outAlign ? ULONG(out->GetSize()) / outAlign : 0;
    out->GetPointer(&block.output);
    block.restart = restart;
    block.resumed = resumed;
    resumed = false;

    m_bSampleSilent = silent;
    if (silent) {
      block.usedFrames = total;
      block.producedFrames = total;
      status = S_OK;
    } else {
      status = ProcessFrames(&block);
    }

    const LONG outBytes = LONG(outAlign * block.producedFrames);
    const LONG inBytes = LONG(inAlign * block.usedFrames);
    done += block.usedFrames;
    out->SetActualDataLength(outBytes);
    if (FAILED(status)) {
      resumed = true;
      continue;
    }
    if (outBytes > 0) {
      StampFrames(out, block.producedFrames, layout.framesPerSecond, silent);
      status = m_pOutput->Deliver(out);
      if (FAILED(status)) {
        resumed = true;
        continue;
      }
    }

    if (inBytes >= remaining) break;
    if (in) in += inBytes;
    remaining -= inBytes;
    restart = false;

    // A step that produced nothing keeps its buffer for the next.
    if (outBytes > 0) {
      out->Release();
      out = nullptr;
      status = m_pOutput->GetDeliveryBuffer(&out, nullptr, nullptr, 0);
      if (FAILED(status)) resumed = true;
    }
  } while (done < total);

  // The sample is left stating the size of its last step.
  pSample->SetActualDataLength(remaining);
  if (out) out->Release();
  return status;
}

HRESULT CTransformFilter::DrainAndEndStream() {
  IMediaSample* out = nullptr;
  HRESULT hr = m_pOutput->GetDeliveryBuffer(&out, nullptr, nullptr, 0);
  if (FAILED(hr)) return hr;

  const WORD outAlign = FrameLayout().outputFrameBytes;
  LONG outBytes = 0;
  for (;;) {
    ULONG frames = outAlign ? ULONG(out->GetSize()) / outAlign : 0;
    BYTE* dst = nullptr;
    out->GetPointer(&dst);
    HRESULT status = DrainFrames(dst, &frames);
    outBytes = LONG(outAlign * frames);
    out->SetActualDataLength(outBytes);
    if (status == S_FALSE) break;
    if (SUCCEEDED(status)) {
      HRESULT delivered = m_pOutput->Deliver(out);
      out->Release();
      out = nullptr;
      if (FAILED(delivered)) {
        m_pOutput->DeliverEndOfStream();
        return delivered;
      }
    } else {
      out->Release();
      out = nullptr;
    }
    hr = m_pOutput->GetDeliveryBuffer(&out, nullptr, nullptr, 0);
    if (FAILED(hr)) return hr;
  }

  HRESULT delivered = S_OK;
  if (outBytes > 0) delivered = m_pOutput->Deliver(out);
  out->Release();
  HRESULT eos = m_pOutput->DeliverEndOfStream();
  return FAILED(delivered) ? delivered : eos;
}

HRESULT CTransformFilter::BeginFlush() {
  if (m_pOutput == nullptr) return S_OK;
  return m_pOutput->DeliverBeginFlush();
}

HRESULT CTransformFilter::EndFlush() {
  if (m_pOutput == nullptr) return S_OK;
  return m_pOutput->DeliverEndFlush();
}

HRESULT CTransformFilter::NewSegment(REFERENCE_TIME tStart, REFERENCE_TIME tStop, double dRate) {
  if (m_pOutput == nullptr) return S_OK;
  return m_pOutput->DeliverNewSegment(tStart, tStop, dRate);
}
