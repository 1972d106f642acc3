#include "mediafw/allocator.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "platform/handle.h"

// --- CMediaSample ------------------------------------------------------------

CMediaSample::CMediaSample(CMemAllocator* allocator, BYTE* buffer, LONG length)
    : m_pAllocator(allocator), m_pBuffer(buffer), m_cbBuffer(length), m_lActual(length) {}

CMediaSample::~CMediaSample() { DeleteMediaType(m_pMediaType); }

void CMediaSample::Clear() {
  m_dwFlags = 0;
  m_Start = m_End = 0;
  m_MediaStart = m_MediaEnd = 0;
  m_lActual = m_cbBuffer;
  m_bSilent = FALSE;
  DeleteMediaType(m_pMediaType);
  m_pMediaType = nullptr;
}

HRESULT CMediaSample::Fault(DWORD call) { return m_pAllocator->SampleFault(call); }

HRESULT CMediaSample::QueryInterface(REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  *ppv = nullptr;
  // Silence first: filters ask for it on every sample they stream.
  if (IsEqualGUID(riid, IID_IZqSampleSilence)) {
    if (!m_pAllocator->OffersSilence()) return E_NOINTERFACE;
    *ppv = static_cast<IZqSampleSilence*>(this);
  } else if (IsEqualGUID(riid, IID_IUnknown) || IsEqualGUID(riid, IID_IMediaSample)) {
    *ppv = static_cast<IMediaSample*>(this);
  } else {
    return E_NOINTERFACE;
  }
  AddRef();
  return S_OK;
}

ULONG CMediaSample::AddRef() { return static_cast<ULONG>(m_cRef.fetch_add(1) + 1); }

ULONG CMediaSample::Release() {
  LONG left = m_cRef.fetch_sub(1) - 1;
  if (left == 0) {
    Clear();
    // May delete this sample and the allocator: nothing after this line.
    m_pAllocator->SampleReturned(this);
  }
  return static_cast<ULONG>(left);
}

HRESULT CMediaSample::GetPointer(BYTE** ppBuffer) {
  if (ppBuffer == nullptr) return E_POINTER;
  *ppBuffer = nullptr;
  if (HRESULT hr = Fault(ZQ_SAMPLE_GETPOINTER); FAILED(hr)) return hr;
  *ppBuffer = m_pBuffer;
  return S_OK;
}

LONG CMediaSample::GetSize() { return m_cbBuffer; }

HRESULT CMediaSample::GetTime(REFERENCE_TIME* pTimeStart, REFERENCE_TIME* pTimeEnd) {
  if (pTimeStart == nullptr || pTimeEnd == nullptr) return E_POINTER;
  if (HRESULT hr = Fault(ZQ_SAMPLE_GETTIME); FAILED(hr)) return hr;
  if (!(m_dwFlags & kTimeValid)) return VFW_E_SAMPLE_TIME_NOT_SET;
  *pTimeStart = m_Start;
  if (m_dwFlags & kStopValid) {
    *pTimeEnd = m_End;
    return S_OK;
  }
  *pTimeEnd = m_Start + 1;
  return VFW_S_NO_STOP_TIME;
}

HRESULT CMediaSample::SetTime(REFERENCE_TIME* pTimeStart, REFERENCE_TIME* pTimeEnd) {
  if (HRESULT hr = Fault(ZQ_SAMPLE_SETTIME); FAILED(hr)) return hr;
  if (pTimeStart == nullptr) {
    m_dwFlags &= ~(kTimeValid | kStopValid);
    return S_OK;
  }
  m_Start = *pTimeStart;
  m_dwFlags |= kTimeValid;
  if (pTimeEnd != nullptr) {
    m_End = *pTimeEnd;
    m_dwFlags |= kStopValid;
  } else {
    m_dwFlags &= ~kStopValid;
  }
  return S_OK;
}

HRESULT CMediaSample::IsSyncPoint() { return (m_dwFlags & kSyncPoint) ? S_OK : S_FALSE; }

HRESULT CMediaSample::SetSyncPoint(BOOL bIsSyncPoint) {
  if (HRESULT hr = Fault(ZQ_SAMPLE_SETSYNCPOINT); FAILED(hr)) return hr;
  m_dwFlags = bIsSyncPoint ? (m_dwFlags | kSyncPoint) : (m_dwFlags & ~kSyncPoint);
  return S_OK;
}

HRESULT CMediaSample::IsPreroll() { return (m_dwFlags & kPreroll) ? S_OK : S_FALSE; }

HRESULT CMediaSample::SetPreroll(BOOL bIsPreroll) {
  if (HRESULT hr = Fault(ZQ_SAMPLE_SETPREROLL); FAILED(hr)) return hr;
  m_dwFlags = bIsPreroll ? (m_dwFlags | kPreroll) : (m_dwFlags & ~kPreroll);
  return S_OK;
}

LONG CMediaSample::GetActualDataLength() { return m_lActual; }

HRESULT CMediaSample::SetActualDataLength(LONG length) {
  if (HRESULT hr = Fault(ZQ_SAMPLE_SETACTUALDATALENGTH); FAILED(hr)) return hr;
  if (length < 0) return E_INVALIDARG;
  if (length > m_cbBuffer) return VFW_E_BUFFER_OVERFLOW;
  m_lActual = length;
  return S_OK;
}

HRESULT CMediaSample::GetMediaType(AM_MEDIA_TYPE** ppMediaType) {
  if (ppMediaType == nullptr) return E_POINTER;
  *ppMediaType = nullptr;
  if (!(m_dwFlags & kTypeChanged) || m_pMediaType == nullptr) return S_FALSE;
  *ppMediaType = CreateMediaType(m_pMediaType);
  return *ppMediaType ? S_OK : E_OUTOFMEMORY;
}

HRESULT CMediaSample::SetMediaType(AM_MEDIA_TYPE* pMediaType) {
  DeleteMediaType(m_pMediaType);
  m_pMediaType = nullptr;
  if (pMediaType == nullptr) {
    m_dwFlags &= ~kTypeChanged;
    return S_OK;
  }
  m_pMediaType = CreateMediaType(pMediaType);
  if (m_pMediaType == nullptr) {
    m_dwFlags &= ~kTypeChanged;
    return E_OUTOFMEMORY;
  }
  m_dwFlags |= kTypeChanged;
  return S_OK;
}

HRESULT CMediaSample::IsDiscontinuity() { return (m_dwFlags & kDiscontinuity) ? S_OK : S_FALSE; }

HRESULT CMediaSample::SetDiscontinuity(BOOL bDiscontinuity) {
  if (HRESULT hr = Fault(ZQ_SAMPLE_SETDISCONTINUITY); FAILED(hr)) return hr;
  m_dwFlags = bDiscontinuity ? (m_dwFlags | kDiscontinuity) : (m_dwFlags & ~kDiscontinuity);
  return S_OK;
}

HRESULT CMediaSample::GetMediaTime(LONGLONG* pTimeStart, LONGLONG* pTimeEnd) {
  if (pTimeStart == nullptr || pTimeEnd == nullptr) return E_POINTER;
  if (HRESULT hr = Fault(ZQ_SAMPLE_GETMEDIATIME); FAILED(hr)) return hr;
  if (!(m_dwFlags & kMediaTimeValid)) return VFW_E_MEDIA_TIME_NOT_SET;
  *pTimeStart = m_MediaStart;
  *pTimeEnd = m_MediaEnd;
  return S_OK;
}

HRESULT CMediaSample::SetMediaTime(LONGLONG* pTimeStart, LONGLONG* pTimeEnd) {
  if (HRESULT hr = Fault(ZQ_SAMPLE_SETMEDIATIME); FAILED(hr)) return hr;
  if (pTimeStart == nullptr) {
    m_dwFlags &= ~kMediaTimeValid;
    return S_OK;
  }
  if (pTimeEnd == nullptr) return E_POINTER;
  m_MediaStart = *pTimeStart;
  m_MediaEnd = *pTimeEnd;
  m_dwFlags |= kMediaTimeValid;
  return S_OK;
}

BOOL CMediaSample::IsSilent() { return m_bSilent; }

HRESULT CMediaSample::SetSilent(BOOL silent) {
  if (HRESULT hr = Fault(ZQ_SAMPLE_SETSILENT); FAILED(hr)) return hr;
  m_bSilent = silent ? TRUE : FALSE;
  return S_OK;
}

// --- CMemAllocator -----------------------------------------------------------

CMemAllocator::CMemAllocator(const WCHAR* name, IUnknown* outer, HRESULT* phr)
    : CUnknown(name, outer, phr), m_hSem(CreateSemaphoreW(nullptr, 0, 0x7FFFFFFF, nullptr)) {
  if (m_hSem == nullptr && phr != nullptr) *phr = E_OUTOFMEMORY;
}

CMemAllocator::~CMemAllocator() {
  FreeSamples();
  if (m_hSem) CloseHandle(m_hSem);
}

HRESULT CMemAllocator::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
  if (IsEqualGUID(riid, IID_IMemAllocator)) return GetInterface(static_cast<IMemAllocator*>(this), ppv);
  return CUnknown::NonDelegatingQueryInterface(riid, ppv);
}

HRESULT CMemAllocator::SetProperties(ALLOCATOR_PROPERTIES* pRequest, ALLOCATOR_PROPERTIES* pActual) {
  if (pRequest == nullptr || pActual == nullptr) return E_POINTER;
  CAutoLock lock(&m_lock);
  std::memset(pActual, 0, sizeof(*pActual));
  if (HRESULT hr = m_setPropertiesFault.Next(); FAILED(hr)) return hr;
  if (m_bCommitted) return VFW_E_ALREADY_COMMITTED;
  if (m_free.size() < m_all.size()) return VFW_E_BUFFERS_OUTSTANDING;
  LONG align = pRequest->cbAlign;
  if (align <= 0 || (align & (align - 1)) != 0) return VFW_E_BADALIGN;
  if (pRequest->cBuffers < 0 || pRequest->cbBuffer < 0 || pRequest->cbPrefix < 0) return E_INVALIDARG;
  m_props = *pRequest;
  *pActual = m_props;
  return S_OK;
}

HRESULT CMemAllocator::GetProperties(ALLOCATOR_PROPERTIES* pProps) {
  if (pProps == nullptr) return E_POINTER;
  CAutoLock lock(&m_lock);
  *pProps = m_props;
  return S_OK;
}

HRESULT CMemAllocator::Commit() {
  CAutoLock lock(&m_lock);
  if (HRESULT hr = m_commitFault.Next(); FAILED(hr)) return hr;
  if (m_bCommitted) return S_OK;
  if (m_bDecommitInProgress) {
    // The samples still out come back to a live pool.
    m_bDecommitInProgress = false;
    m_bCommitted = true;
    return S_OK;
  }
  if (m_props.cBuffers <= 0 || m_props.cbBuffer <= 0) return VFW_E_SIZENOTSET;
  FreeSamples();
  const LONG align = m_props.cbAlign > 0 ? m_props.cbAlign : 1;
  for (LONG i = 0; i < m_props.cBuffers; ++i) {
    size_t size = size_t(m_props.cbPrefix) + size_t(m_props.cbBuffer) + size_t(align);
    auto* block = static_cast<BYTE*>(std::calloc(size, 1));
    CMediaSample* sample = nullptr;
    if (block != nullptr) {
      uintptr_t usable = reinterpret_cast<uintptr_t>(block) + uintptr_t(m_props.cbPrefix);
      usable = (usable + uintptr_t(align) - 1) & ~(uintptr_t(align) - 1);
      sample = new (std::nothrow) CMediaSample(this, reinterpret_cast<BYTE*>(usable), m_props.cbBuffer);
    }
    if (sample == nullptr) {
      std::free(block);
      FreeSamples();
      return E_OUTOFMEMORY;
    }
    m_blocks.push_back(block);
    m_all.push_back(sample);
    m_free.push_back(sample);
  }
  m_bCommitted = true;
  return S_OK;
}

HRESULT CMemAllocator::Decommit() {
  CAutoLock lock(&m_lock);
  if (!m_bCommitted) return S_OK;
  m_bCommitted = false;
  if (m_free.size() < m_all.size()) {
    m_bDecommitInProgress = true;
  } else {
    FreeSamples();
  }
  // Waiters wake and find the pool decommitted.
  if (m_lWaiting > 0) {
    ReleaseSemaphore(m_hSem, m_lWaiting, nullptr);
    m_lWaiting = 0;
  }
  return S_OK;
}

HRESULT CMemAllocator::GetBuffer(IMediaSample** ppBuffer, REFERENCE_TIME*, REFERENCE_TIME*, DWORD dwFlags) {
  if (ppBuffer == nullptr) return E_POINTER;
  *ppBuffer = nullptr;
  CMediaSample* sample = nullptr;
  // One lock covers the fault plan and the first look at the pool: this is
  // on every buffer of the streaming path.
  m_lock.Lock();
  if (HRESULT hr = m_getBufferFault.Next(); FAILED(hr)) {
    m_lock.Unlock();
    return hr;
  }
  for (;;) {
    if (!m_bCommitted) {
      m_lock.Unlock();
      return VFW_E_NOT_COMMITTED;
    }
    if (!m_free.empty()) {
      sample = m_free.back();
      m_free.pop_back();
      break;
    }
    if (dwFlags & AM_GBF_NOWAIT) {
      m_lock.Unlock();
      return VFW_E_TIMEOUT;
    }
    ++m_lWaiting;
    m_lock.Unlock();
    WaitForSingleObject(m_hSem, INFINITE);
    m_lock.Lock();
  }
  m_lock.Unlock();
  sample->m_cRef.store(1);
  AddRef();  // the sample keeps its allocator alive
  *ppBuffer = sample;
  return S_OK;
}

HRESULT CMemAllocator::ReleaseBuffer(IMediaSample* pBuffer) {
  if (pBuffer == nullptr) return E_POINTER;
  // Samples come back through their own Release; an explicit call is the
  // same as dropping the reference GetBuffer gave.
  pBuffer->Release();
  return S_OK;
}

void CMemAllocator::SampleReturned(CMediaSample* sample) {
  {
    CAutoLock lock(&m_lock);
    m_free.push_back(sample);
    if (m_lWaiting > 0) {
      --m_lWaiting;
      ReleaseSemaphore(m_hSem, 1, nullptr);
    }
    if (m_bDecommitInProgress && m_free.size() == m_all.size()) {
      m_bDecommitInProgress = false;
      FreeSamples();
    }
  }
  Release();  // the reference GetBuffer took; may delete this allocator
}

void CMemAllocator::FreeSamples() {
  for (CMediaSample* s : m_all) delete s;
  for (BYTE* b : m_blocks) std::free(b);
  m_all.clear();
  m_blocks.clear();
  m_free.clear();
}

HRESULT CMemAllocator::SampleFault(DWORD call) {
  // Calls outside the planned set are not counted, so they need no lock.
  if (!(m_sampleFaultCalls.load(std::memory_order_acquire) & call)) return S_OK;
  CAutoLock lock(&m_lock);
  if (!(m_sampleFaultCalls.load(std::memory_order_relaxed) & call)) return S_OK;
  return m_sampleFault.Next();
}

void CMemAllocator::FailGetBuffer(LONG nth, LONG count, HRESULT status) {
  CAutoLock lock(&m_lock);
  m_getBufferFault = ZqFaultPlan{nth, count, status, 0};
}

void CMemAllocator::FailSampleCalls(DWORD calls, LONG nth, LONG count, HRESULT status) {
  CAutoLock lock(&m_lock);
  m_sampleFault = ZqFaultPlan{nth, count, status, 0};
  m_sampleFaultCalls.store(calls, std::memory_order_release);
}

void CMemAllocator::FailCommit(LONG nth, LONG count, HRESULT status) {
  CAutoLock lock(&m_lock);
  m_commitFault = ZqFaultPlan{nth, count, status, 0};
}

void CMemAllocator::FailSetProperties(LONG nth, LONG count, HRESULT status) {
  CAutoLock lock(&m_lock);
  m_setPropertiesFault = ZqFaultPlan{nth, count, status, 0};
}

void CMemAllocator::SetOffersSilence(BOOL offers) { m_bOffersSilence.store(offers ? TRUE : FALSE); }

LONG CMemAllocator::GetBufferCalls() {
  CAutoLock lock(&m_lock);
  return m_getBufferFault.calls;
}

LONG CMemAllocator::SamplesOutstanding() {
  CAutoLock lock(&m_lock);
  return static_cast<LONG>(m_all.size() - m_free.size());
}

BOOL CMemAllocator::IsCommitted() {
  CAutoLock lock(&m_lock);
  return m_bCommitted;
}

HRESULT CreateMemoryAllocator(IMemAllocator** ppAllocator) {
  if (ppAllocator == nullptr) return E_POINTER;
  *ppAllocator = nullptr;
  HRESULT hr = S_OK;
  auto* allocator = new (std::nothrow) CMemAllocator(u"memory allocator", nullptr, &hr);
  if (allocator == nullptr) return E_OUTOFMEMORY;
  allocator->NonDelegatingAddRef();
  if (FAILED(hr)) {
    allocator->NonDelegatingRelease();
    return hr;
  }
  *ppAllocator = allocator;
  return S_OK;
}
