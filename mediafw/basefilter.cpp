#include "mediafw/basefilter.h"

#include <cstring>
#include <string_view>
#include <vector>

#include "kernel/com/object.h"
#include "kernel/com/taskmem.h"
#include "mediafw/enumsnapshot.h"

namespace {

void CopyName(WCHAR* dst, size_t size, const std::u16string& src) {
  size_t n = src.size() < size - 1 ? src.size() : size - 1;
  std::memcpy(dst, src.data(), n * sizeof(WCHAR));
  dst[n] = 0;
}

// Pins of a filter as they were when the enumerator was made; the filter
// is kept alive by the references on its pins.
using CEnumPins = CEnumCounted<IEnumPins, IPin>;

// The types a pin offered when the enumerator was made.
class CEnumMediaTypes final : public CEnumSnapshot<CEnumMediaTypes, IEnumMediaTypes, CMediaType> {
 public:
  explicit CEnumMediaTypes(std::vector<CMediaType> types) : CEnumSnapshot(std::move(types)) {}

  HRESULT STDMETHODCALLTYPE Next(ULONG cTypes, AM_MEDIA_TYPE** ppTypes, ULONG* pcFetched) override {
    if (ppTypes == nullptr) return E_POINTER;
    if (pcFetched == nullptr && cTypes != 1) return E_INVALIDARG;
    ULONG n = 0;
    while (n < cTypes && m_pos < m_items.size()) {
      AM_MEDIA_TYPE* copy = CreateMediaType(&m_items[m_pos]);
      if (copy == nullptr) {
        while (n > 0) DeleteMediaType(ppTypes[--n]);
        if (pcFetched) *pcFetched = 0;
        return E_OUTOFMEMORY;
      }
      ppTypes[n++] = copy;
      ++m_pos;
    }
    if (pcFetched) *pcFetched = n;
    return n == cTypes ? S_OK : S_FALSE;
  }
};

// Failures that only say "no" become the status that says which "no".
HRESULT TypeRefusal(HRESULT hr) {
  if (SUCCEEDED(hr) || hr == E_FAIL || hr == E_INVALIDARG) return VFW_E_TYPE_NOT_ACCEPTED;
  return hr;
}

}  // namespace

// --- CBaseFilter -------------------------------------------------------------

CBaseFilter::CBaseFilter(const WCHAR* objectName, IUnknown* outer, CCritSec* lock, REFCLSID clsid, HRESULT* phr)
    : CUnknown(objectName, outer, phr), m_clsid(clsid), m_pLock(lock) {}

CBaseFilter::~CBaseFilter() {
  if (m_pClock) m_pClock->Release();
}

HRESULT CBaseFilter::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
  if (IsEqualGUID(riid, IID_IBaseFilter) || IsEqualGUID(riid, IID_IMediaFilter) || IsEqualGUID(riid, IID_IPersist))
    return GetInterface(static_cast<IBaseFilter*>(this), ppv);
  return CUnknown::NonDelegatingQueryInterface(riid, ppv);
}

HRESULT CBaseFilter::GetClassID(CLSID* pClsID) {
  if (pClsID == nullptr) return E_POINTER;
  *pClsID = m_clsid;
  return S_OK;
}

HRESULT CBaseFilter::Stop() {
  CAutoLock lock(m_pLock);
  HRESULT result = S_OK;
  if (m_State != State_Stopped) {
    for (int i = 0, n = GetPinCount(); i < n; ++i) {
      CBasePin* pin = GetPin(i);
      if (pin == nullptr || !pin->IsConnected()) continue;
      HRESULT hr = pin->Inactive();
      if (FAILED(hr) && SUCCEEDED(result)) result = hr;
    }
  }
  m_State = State_Stopped;
  return result;
}

HRESULT CBaseFilter::Pause() {
  CAutoLock lock(m_pLock);
  if (m_State == State_Stopped) {
    for (int i = 0, n = GetPinCount(); i < n; ++i) {
      CBasePin* pin = GetPin(i);
      if (pin == nullptr || !pin->IsConnected()) continue;
      HRESULT hr = pin->Active();
      if (FAILED(hr)) return hr;
    }
  }
  m_State = State_Paused;
  return S_OK;
}

HRESULT CBaseFilter::Run(REFERENCE_TIME tStart) {
  CAutoLock lock(m_pLock);
  m_tStart = tStart;
  if (m_State == State_Stopped) {
    HRESULT hr = Pause();
    if (FAILED(hr)) return hr;
  }
  if (m_State != State_Running) {
    for (int i = 0, n = GetPinCount(); i < n; ++i) {
      CBasePin* pin = GetPin(i);
      if (pin == nullptr || !pin->IsConnected()) continue;
      HRESULT hr = pin->Run(tStart);
      if (FAILED(hr)) return hr;
    }
  }
  m_State = State_Running;
  return S_OK;
}

HRESULT CBaseFilter::GetState(DWORD, FILTER_STATE* State) {
  if (State == nullptr) return E_POINTER;
  *State = m_State;
  return S_OK;
}

HRESULT CBaseFilter::SetSyncSource(IReferenceClock* pClock) {
  CAutoLock lock(m_pLock);
  if (pClock) pClock->AddRef();
  if (m_pClock) m_pClock->Release();
  m_pClock = pClock;
  return S_OK;
}

HRESULT CBaseFilter::GetSyncSource(IReferenceClock** pClock) {
  if (pClock == nullptr) return E_POINTER;
  CAutoLock lock(m_pLock);
  *pClock = m_pClock;
  if (m_pClock) m_pClock->AddRef();
  return S_OK;
}

HRESULT CBaseFilter::EnumPins(IEnumPins** ppEnum) {
  if (ppEnum == nullptr) return E_POINTER;
  *ppEnum = nullptr;
  std::vector<IPin*> pins;
  {
    CAutoLock lock(m_pLock);
    for (int i = 0, n = GetPinCount(); i < n; ++i)
      if (CBasePin* pin = GetPin(i)) pins.push_back(pin);
  }
  auto* e = new (std::nothrow) CEnumPins(std::move(pins));
  if (e == nullptr) return E_OUTOFMEMORY;
  *ppEnum = e;
  return S_OK;
}

HRESULT CBaseFilter::FindPin(LPCWSTR Id, IPin** ppPin) {
  if (ppPin == nullptr || Id == nullptr) return E_POINTER;
  *ppPin = nullptr;
  CAutoLock lock(m_pLock);
  for (int i = 0, n = GetPinCount(); i < n; ++i) {
    CBasePin* pin = GetPin(i);
    if (pin != nullptr && std::u16string_view(pin->Name()) == std::u16string_view(Id)) {
      *ppPin = pin;
      pin->AddRef();
      return S_OK;
    }
  }
  return VFW_E_NOT_FOUND;
}

HRESULT CBaseFilter::QueryFilterInfo(FILTER_INFO* pInfo) {
  if (pInfo == nullptr) return E_POINTER;
  CAutoLock lock(m_pLock);
  CopyName(pInfo->achName, MAX_FILTER_NAME, m_name);
  pInfo->pGraph = m_pGraph;
  if (m_pGraph) m_pGraph->AddRef();
  return S_OK;
}

HRESULT CBaseFilter::JoinFilterGraph(IFilterGraph* pGraph, LPCWSTR pName) {
  CAutoLock lock(m_pLock);
  m_pGraph = pGraph;
  m_pSink = nullptr;
  if (m_pGraph != nullptr) {
    // Not counted: the graph owns the filter, not the other way round.
    IMediaEventSink* sink = nullptr;
    if (SUCCEEDED(m_pGraph->QueryInterface(IID_IMediaEventSink, reinterpret_cast<void**>(&sink)))) {
      m_pSink = sink;
      sink->Release();
    }
  }
  m_name = pName ? std::u16string(pName) : std::u16string();
  return S_OK;
}

HRESULT CBaseFilter::QueryVendorInfo(LPWSTR* pVendorInfo) {
  if (pVendorInfo) *pVendorInfo = nullptr;
  return E_NOTIMPL;
}

HRESULT CBaseFilter::NotifyEvent(LONG eventCode, LONG_PTR param1, LONG_PTR param2) {
  IMediaEventSink* sink = m_pSink;
  if (sink == nullptr) return E_NOTIMPL;
  if (eventCode == EC_COMPLETE && param2 == 0) param2 = reinterpret_cast<LONG_PTR>(static_cast<IBaseFilter*>(this));
  return sink->Notify(eventCode, param1, param2);
}

HRESULT CBaseFilter::ReconnectPin(IPin* pin, const AM_MEDIA_TYPE*) {
  CAutoLock lock(m_pLock);
  if (m_pGraph == nullptr) return VFW_E_NOT_IN_GRAPH;
  return m_pGraph->Reconnect(pin);
}

// --- CBasePin ----------------------------------------------------------------

CBasePin::CBasePin(const WCHAR* objectName, CBaseFilter* filter, CCritSec* lock, HRESULT* phr, LPCWSTR pinName,
                   PIN_DIRECTION dir)
    : CUnknown(objectName, nullptr, phr),
      m_name(pinName ? pinName : u""),
      m_dir(dir),
      m_pLock(lock),
      m_pFilter(filter) {}

CBasePin::~CBasePin() {
  if (m_Connected) m_Connected->Release();
}

HRESULT CBasePin::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
  if (IsEqualGUID(riid, IID_IPin)) return GetInterface(static_cast<IPin*>(this), ppv);
  return CUnknown::NonDelegatingQueryInterface(riid, ppv);
}

ULONG CBasePin::NonDelegatingAddRef() { return m_pFilter->AddRef(); }

ULONG CBasePin::NonDelegatingRelease() { return m_pFilter->Release(); }

HRESULT CBasePin::Connect(IPin* pReceivePin, const AM_MEDIA_TYPE* pmt) {
  if (pReceivePin == nullptr) return E_POINTER;
  CAutoLock lock(m_pLock);
  if (m_Connected) return VFW_E_ALREADY_CONNECTED;
  if (!IsStopped()) return VFW_E_NOT_STOPPED;
  CMediaType partial;
  if (pmt != nullptr) {
    if (FAILED(partial.Set(*pmt))) return E_OUTOFMEMORY;
  } else {
    partial.InitMediaType();
  }
  return AgreeMediaType(pReceivePin, &partial);
}

HRESULT CBasePin::AgreeMediaType(IPin* pReceivePin, const CMediaType* pmt) {
  if (pmt != nullptr && !pmt->IsPartiallySpecified()) return AttemptConnection(pReceivePin, pmt);
  HRESULT failure = VFW_E_NO_ACCEPTABLE_TYPES;
  for (int pass = 0; pass < 2; ++pass) {
    const bool mine = (pass == 0) == static_cast<bool>(m_bTryMyTypesFirst);
    IEnumMediaTypes* types = nullptr;
    HRESULT hr = mine ? EnumMediaTypes(&types) : pReceivePin->EnumMediaTypes(&types);
    if (SUCCEEDED(hr) && types != nullptr) {
      hr = TryMediaTypes(pReceivePin, pmt, types);
      types->Release();
      if (SUCCEEDED(hr)) return S_OK;
      // Keep the most telling reason.
      if (hr != E_FAIL && hr != E_INVALIDARG && hr != VFW_E_TYPE_NOT_ACCEPTED && hr != VFW_E_NO_ACCEPTABLE_TYPES)
        failure = hr;
    }
  }
  return failure;
}

HRESULT CBasePin::TryMediaTypes(IPin* pReceivePin, const CMediaType* pmt, IEnumMediaTypes* pEnum) {
  HRESULT failure = VFW_E_NO_ACCEPTABLE_TYPES;
  pEnum->Reset();
  for (;;) {
    AM_MEDIA_TYPE* candidate = nullptr;
    ULONG fetched = 0;
    if (pEnum->Next(1, &candidate, &fetched) != S_OK || fetched != 1) break;
    CMediaType type(*candidate);
    DeleteMediaType(candidate);
    if (pmt != nullptr && !type.MatchesPartial(pmt)) continue;
    HRESULT hr = AttemptConnection(pReceivePin, &type);
    if (SUCCEEDED(hr)) return hr;
    // Remember the first failure that says more than "not this type".
    if (failure == VFW_E_NO_ACCEPTABLE_TYPES && hr != E_FAIL && hr != E_INVALIDARG && hr != VFW_E_TYPE_NOT_ACCEPTED)
      failure = hr;
  }
  return failure;
}

HRESULT CBasePin::AttemptConnection(IPin* pReceivePin, const CMediaType* pmt) {
  HRESULT hr = CheckConnect(pReceivePin);
  if (FAILED(hr)) {
    BreakConnect();
    return hr;
  }
  hr = CheckMediaType(pmt);
  if (hr == S_OK) {
    m_Connected = pReceivePin;
    m_Connected->AddRef();
    hr = SetMediaType(pmt);
    if (SUCCEEDED(hr)) {
      hr = pReceivePin->ReceiveConnection(static_cast<IPin*>(this), pmt);
      if (SUCCEEDED(hr)) {
        hr = CompleteConnect(pReceivePin);
        if (SUCCEEDED(hr)) return hr;
        pReceivePin->Disconnect();
      }
    }
  } else {
    hr = TypeRefusal(hr);
  }
  if (m_Connected) {
    m_Connected->Release();
    m_Connected = nullptr;
  }
  BreakConnect();
  return hr;
}

HRESULT CBasePin::ReceiveConnection(IPin* pConnector, const AM_MEDIA_TYPE* pmt) {
  if (pConnector == nullptr || pmt == nullptr) return E_POINTER;
  CAutoLock lock(m_pLock);
  if (m_Connected) return VFW_E_ALREADY_CONNECTED;
  if (!IsStopped()) return VFW_E_NOT_STOPPED;
  HRESULT hr = CheckConnect(pConnector);
  if (FAILED(hr)) {
    BreakConnect();
    return hr;
  }
  CMediaType type;
  if (FAILED(type.Set(*pmt))) {
    BreakConnect();
    return E_OUTOFMEMORY;
  }
  hr = CheckMediaType(&type);
  if (hr != S_OK) {
    BreakConnect();
    return TypeRefusal(hr);
  }
  m_Connected = pConnector;
  m_Connected->AddRef();
  hr = SetMediaType(&type);
  if (SUCCEEDED(hr)) {
    hr = CompleteConnect(pConnector);
    if (SUCCEEDED(hr)) return S_OK;
  }
  m_Connected->Release();
  m_Connected = nullptr;
  BreakConnect();
  return hr;
}

HRESULT CBasePin::Disconnect() {
  CAutoLock lock(m_pLock);
  if (!IsStopped()) return VFW_E_NOT_STOPPED;
  return DisconnectInternal();
}

HRESULT CBasePin::DisconnectInternal() {
  if (m_Connected == nullptr) return S_FALSE;
  HRESULT hr = BreakConnect();
  if (FAILED(hr)) return hr;
  m_Connected->Release();
  m_Connected = nullptr;
  return S_OK;
}

HRESULT CBasePin::ConnectedTo(IPin** pPin) {
  if (pPin == nullptr) return E_POINTER;
  CAutoLock lock(m_pLock);
  *pPin = m_Connected;
  if (m_Connected == nullptr) return VFW_E_NOT_CONNECTED;
  m_Connected->AddRef();
  return S_OK;
}

HRESULT CBasePin::ConnectionMediaType(AM_MEDIA_TYPE* pmt) {
  if (pmt == nullptr) return E_POINTER;
  CAutoLock lock(m_pLock);
  if (m_Connected == nullptr) {
    std::memset(pmt, 0, sizeof(*pmt));
    return VFW_E_NOT_CONNECTED;
  }
  return CopyMediaType(pmt, &m_mt);
}

HRESULT CBasePin::QueryPinInfo(PIN_INFO* pInfo) {
  if (pInfo == nullptr) return E_POINTER;
  pInfo->pFilter = m_pFilter;
  m_pFilter->AddRef();
  pInfo->dir = m_dir;
  CopyName(pInfo->achName, MAX_PIN_NAME, m_name);
  return S_OK;
}

HRESULT CBasePin::QueryDirection(PIN_DIRECTION* pPinDir) {
  if (pPinDir == nullptr) return E_POINTER;
  *pPinDir = m_dir;
  return S_OK;
}

HRESULT CBasePin::QueryId(LPWSTR* Id) {
  if (Id == nullptr) return E_POINTER;
  *Id = ZqCoTaskStrDup(m_name.c_str());
  return *Id ? S_OK : E_OUTOFMEMORY;
}

HRESULT CBasePin::QueryAccept(const AM_MEDIA_TYPE* pmt) {
  if (pmt == nullptr) return E_POINTER;
  CMediaType type;
  if (FAILED(type.Set(*pmt))) return E_OUTOFMEMORY;
  HRESULT hr = CheckMediaType(&type);
  return FAILED(hr) ? S_FALSE : hr;
}

HRESULT CBasePin::EnumMediaTypes(IEnumMediaTypes** ppEnum) {
  if (ppEnum == nullptr) return E_POINTER;
  *ppEnum = nullptr;
  std::vector<CMediaType> types;
  {
    CAutoLock lock(m_pLock);
    for (int i = 0;; ++i) {
      CMediaType type;
      if (GetMediaType(i, &type) != S_OK) break;
      types.push_back(type);
    }
  }
  auto* e = new (std::nothrow) CEnumMediaTypes(std::move(types));
  if (e == nullptr) return E_OUTOFMEMORY;
  *ppEnum = e;
  return S_OK;
}

HRESULT CBasePin::QueryInternalConnections(IPin**, ULONG*) { return E_NOTIMPL; }

HRESULT CBasePin::EndOfStream() { return S_OK; }

HRESULT CBasePin::NewSegment(REFERENCE_TIME tStart, REFERENCE_TIME tStop, double dRate) {
  m_tStart = tStart;
  m_tStop = tStop;
  m_dRate = dRate;
  return S_OK;
}

HRESULT CBasePin::SetMediaType(const CMediaType* pmt) { return m_mt.Set(*pmt); }

HRESULT CBasePin::CheckConnect(IPin* pPin) {
  PIN_DIRECTION dir;
  HRESULT hr = pPin->QueryDirection(&dir);
  if (FAILED(hr)) return hr;
  return dir == m_dir ? VFW_E_INVALID_DIRECTION : S_OK;
}

HRESULT CBasePin::BreakConnect() { return S_OK; }

HRESULT CBasePin::CompleteConnect(IPin*) { return S_OK; }

HRESULT CBasePin::GetMediaType(int iPosition, CMediaType*) {
  return iPosition < 0 ? E_INVALIDARG : VFW_S_NO_MORE_ITEMS;
}

// --- CBaseInputPin -----------------------------------------------------------

CBaseInputPin::CBaseInputPin(const WCHAR* objectName, CBaseFilter* filter, CCritSec* lock, HRESULT* phr,
                             LPCWSTR pinName)
    : CBasePin(objectName, filter, lock, phr, pinName, PINDIR_INPUT) {}

CBaseInputPin::~CBaseInputPin() {
  if (m_pAllocator) m_pAllocator->Release();
}

HRESULT CBaseInputPin::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
  if (IsEqualGUID(riid, IID_IMemInputPin)) return GetInterface(static_cast<IMemInputPin*>(this), ppv);
  return CBasePin::NonDelegatingQueryInterface(riid, ppv);
}

HRESULT CBaseInputPin::GetAllocator(IMemAllocator** ppAllocator) {
  if (ppAllocator == nullptr) return E_POINTER;
  CAutoLock lock(m_pLock);
  if (m_pAllocator == nullptr) {
    HRESULT hr = CreateMemoryAllocator(&m_pAllocator);
    if (FAILED(hr)) return hr;
  }
  *ppAllocator = m_pAllocator;
  m_pAllocator->AddRef();
  return S_OK;
}

HRESULT CBaseInputPin::NotifyAllocator(IMemAllocator* pAllocator, BOOL bReadOnly) {
  if (pAllocator == nullptr) return E_POINTER;
  CAutoLock lock(m_pLock);
  pAllocator->AddRef();
  if (m_pAllocator) m_pAllocator->Release();
  m_pAllocator = pAllocator;
  m_bReadOnly = bReadOnly;
  return S_OK;
}

HRESULT CBaseInputPin::GetAllocatorRequirements(ALLOCATOR_PROPERTIES*) { return E_NOTIMPL; }

HRESULT CBaseInputPin::Receive(IMediaSample* pSample) {
  if (pSample == nullptr) return E_POINTER;
  return CheckStreaming();
}

HRESULT CBaseInputPin::ReceiveMultiple(IMediaSample** pSamples, LONG nSamples, LONG* nSamplesProcessed) {
  if (pSamples == nullptr || nSamplesProcessed == nullptr) return E_POINTER;
  HRESULT hr = S_OK;
  *nSamplesProcessed = 0;
  while (nSamples-- > 0) {
    hr = Receive(pSamples[*nSamplesProcessed]);
    if (hr != S_OK) break;
    ++*nSamplesProcessed;
  }
  return hr;
}

HRESULT CBaseInputPin::ReceiveCanBlock() { return S_OK; }

HRESULT CBaseInputPin::BeginFlush() {
  m_bFlushing = TRUE;
  return S_OK;
}

HRESULT CBaseInputPin::EndFlush() {
  m_bFlushing = FALSE;
  m_bRunTimeError = FALSE;
  return S_OK;
}

HRESULT CBaseInputPin::Inactive() {
  m_bRunTimeError = FALSE;
  m_bFlushing = FALSE;
  if (m_pAllocator == nullptr) return VFW_E_NO_ALLOCATOR;
  return m_pAllocator->Decommit();
}

HRESULT CBaseInputPin::BreakConnect() {
  if (m_pAllocator) {
    m_pAllocator->Decommit();
    m_pAllocator->Release();
    m_pAllocator = nullptr;
  }
  return S_OK;
}

HRESULT CBaseInputPin::CheckStreaming() {
  if (!IsConnected()) return VFW_E_NOT_CONNECTED;
  if (IsStopped()) return VFW_E_WRONG_STATE;
  if (m_bFlushing) return S_FALSE;
  if (m_bRunTimeError) return VFW_E_RUNTIME_ERROR;
  return S_OK;
}

// --- CBaseOutputPin ----------------------------------------------------------

CBaseOutputPin::CBaseOutputPin(const WCHAR* objectName, CBaseFilter* filter, CCritSec* lock, HRESULT* phr,
                               LPCWSTR pinName)
    : CBasePin(objectName, filter, lock, phr, pinName, PINDIR_OUTPUT) {}

CBaseOutputPin::~CBaseOutputPin() {
  if (m_pAllocator) m_pAllocator->Release();
  if (m_pInputPin) m_pInputPin->Release();
}

HRESULT CBaseOutputPin::CheckConnect(IPin* pPin) {
  HRESULT hr = CBasePin::CheckConnect(pPin);
  if (FAILED(hr)) return hr;
  IMemInputPin* input = nullptr;
  hr = pPin->QueryInterface(IID_IMemInputPin, reinterpret_cast<void**>(&input));
  if (FAILED(hr)) return hr;
  if (m_pInputPin) m_pInputPin->Release();
  m_pInputPin = input;
  return S_OK;
}

HRESULT CBaseOutputPin::CompleteConnect(IPin*) {
  if (m_pInputPin == nullptr) return E_UNEXPECTED;
  return DecideAllocator(m_pInputPin, &m_pAllocator);
}

HRESULT CBaseOutputPin::BreakConnect() {
  if (m_pAllocator) {
    m_pAllocator->Decommit();
    m_pAllocator->Release();
    m_pAllocator = nullptr;
  }
  if (m_pInputPin) {
    m_pInputPin->Release();
    m_pInputPin = nullptr;
  }
  return S_OK;
}

HRESULT CBaseOutputPin::Active() {
  if (m_pAllocator == nullptr) return VFW_E_NO_ALLOCATOR;
  return m_pAllocator->Commit();
}

HRESULT CBaseOutputPin::Inactive() {
  m_bRunTimeError = FALSE;
  if (m_pAllocator == nullptr) return VFW_E_NO_ALLOCATOR;
  return m_pAllocator->Decommit();
}

HRESULT CBaseOutputPin::DecideAllocator(IMemInputPin* pPin, IMemAllocator** ppAlloc) {
  *ppAlloc = nullptr;
  ALLOCATOR_PROPERTIES props{};
  pPin->GetAllocatorRequirements(&props);
  if (props.cbAlign == 0) props.cbAlign = 1;

  // The receiver's allocator first, then one of our own; each is sized and
  // offered to the receiver, and let go when either step fails.
  auto tryAllocator = [&](HRESULT hr) {
    if (SUCCEEDED(hr)) hr = DecideBufferSize(*ppAlloc, &props);
    if (SUCCEEDED(hr)) hr = pPin->NotifyAllocator(*ppAlloc, FALSE);
    if (FAILED(hr) && *ppAlloc) {
      (*ppAlloc)->Release();
      *ppAlloc = nullptr;
    }
    return hr;
  };
  if (SUCCEEDED(tryAllocator(pPin->GetAllocator(ppAlloc)))) return S_OK;
  return tryAllocator(InitAllocator(ppAlloc));
}

HRESULT CBaseOutputPin::InitAllocator(IMemAllocator** ppAlloc) { return CreateMemoryAllocator(ppAlloc); }

HRESULT CBaseOutputPin::GetDeliveryBuffer(IMediaSample** ppSample, REFERENCE_TIME* pStartTime,
                                          REFERENCE_TIME* pEndTime, DWORD dwFlags) {
  if (ppSample == nullptr) return E_POINTER;
  *ppSample = nullptr;
  if (m_pAllocator == nullptr) return E_NOINTERFACE;
  return m_pAllocator->GetBuffer(ppSample, pStartTime, pEndTime, dwFlags);
}

HRESULT CBaseOutputPin::Deliver(IMediaSample* pSample) {
  if (m_pInputPin == nullptr) return VFW_E_NOT_CONNECTED;
  return m_pInputPin->Receive(pSample);
}

HRESULT CBaseOutputPin::DeliverEndOfStream() {
  if (m_Connected == nullptr) return VFW_E_NOT_CONNECTED;
  return m_Connected->EndOfStream();
}

HRESULT CBaseOutputPin::DeliverBeginFlush() {
  if (m_Connected == nullptr) return VFW_E_NOT_CONNECTED;
  return m_Connected->BeginFlush();
}

HRESULT CBaseOutputPin::DeliverEndFlush() {
  if (m_Connected == nullptr) return VFW_E_NOT_CONNECTED;
  return m_Connected->EndFlush();
}

HRESULT CBaseOutputPin::DeliverNewSegment(REFERENCE_TIME tStart, REFERENCE_TIME tStop, double dRate) {
  if (m_Connected == nullptr) return VFW_E_NOT_CONNECTED;
  return m_Connected->NewSegment(tStart, tStop, dRate);
}

HRESULT CBaseOutputPin::EndOfStream() { return E_UNEXPECTED; }
HRESULT CBaseOutputPin::BeginFlush() { return E_UNEXPECTED; }
HRESULT CBaseOutputPin::EndFlush() { return E_UNEXPECTED; }
