// The framework's filter and pin bases: CBaseFilter, CBasePin, and the pins
// of the memory transport, CBaseInputPin and CBaseOutputPin.
//
// Locks: every filter has one state lock (passed in by the subclass), which
// connection, disconnection and state changes take; a pin uses its filter's
// lock.  Streaming calls (Receive, EndOfStream) do not take it: a filter
// that needs to order them against Stop has its own receive lock.
//
// Lifetime: pins are parts of their filter.  Their reference counts are the
// filter's, so a pin handed out keeps the whole filter alive.
#pragma once

#include <atomic>
#include <string>

#include "mediafw/allocator.h"
#include "mediafw/interfaces.h"
#include "mediafw/sync.h"
#include "mediafw/unknown.h"

class CBasePin;

class CBaseFilter : public CUnknown, public IBaseFilter {
 public:
  CBaseFilter(const WCHAR* objectName, IUnknown* outer, CCritSec* lock, REFCLSID clsid, HRESULT* phr = nullptr);
  ~CBaseFilter() override;

  DECLARE_IUNKNOWN
  // IBaseFilter, IMediaFilter and IPersist.
  HRESULT STDMETHODCALLTYPE NonDelegatingQueryInterface(REFIID riid, void** ppv) override;

  HRESULT STDMETHODCALLTYPE GetClassID(CLSID* pClsID) override;

  // Stop: Inactive on every connected pin, then stopped; the first failure
  // is answered but the state changes all the same.
  HRESULT STDMETHODCALLTYPE Stop() override;
  // From stopped: Active on every connected pin (a failure stops there).
  HRESULT STDMETHODCALLTYPE Pause() override;
  // From stopped pauses first; then Run on every connected pin.
  HRESULT STDMETHODCALLTYPE Run(REFERENCE_TIME tStart) override;
  HRESULT STDMETHODCALLTYPE GetState(DWORD dwMilliSecsTimeout, FILTER_STATE* State) override;
  HRESULT STDMETHODCALLTYPE SetSyncSource(IReferenceClock* pClock) override;
  HRESULT STDMETHODCALLTYPE GetSyncSource(IReferenceClock** pClock) override;

  HRESULT STDMETHODCALLTYPE EnumPins(IEnumPins** ppEnum) override;
  // Finds a pin by its name.  VFW_E_NOT_FOUND.
  HRESULT STDMETHODCALLTYPE FindPin(LPCWSTR Id, IPin** ppPin) override;
  HRESULT STDMETHODCALLTYPE QueryFilterInfo(FILTER_INFO* pInfo) override;
  HRESULT STDMETHODCALLTYPE JoinFilterGraph(IFilterGraph* pGraph, LPCWSTR pName) override;
  HRESULT STDMETHODCALLTYPE QueryVendorInfo(LPWSTR* pVendorInfo) override;

  virtual int GetPinCount() = 0;
  // The n-th pin, not counted; null past the end.
  virtual CBasePin* GetPin(int n) = 0;
  // Changes whenever the set of pins changes (enumerators compare it).
  virtual LONG GetPinVersion() { return m_PinVersion.load(); }
  void IncrementPinVersion() { m_PinVersion.fetch_add(1); }

  BOOL IsActive() {
    CAutoLock lock(m_pLock);
    return m_State != State_Stopped;
  }
  BOOL IsStopped() { return m_State == State_Stopped; }
  FILTER_STATE State() const { return m_State; }
  CCritSec* pStateLock() { return m_pLock; }
  // The graph the filter is in (not counted), or null.
  IFilterGraph* GetFilterGraph() { return m_pGraph; }
  // Reports an event to the graph; E_NOTIMPL outside a graph with events.
  HRESULT NotifyEvent(LONG eventCode, LONG_PTR param1, LONG_PTR param2);
  // Asks the graph to reconnect `pin`.  VFW_E_NOT_IN_GRAPH outside a graph.
  HRESULT ReconnectPin(IPin* pin, const AM_MEDIA_TYPE* pmt);

 protected:
  FILTER_STATE m_State = State_Stopped;
  IReferenceClock* m_pClock = nullptr;  // counted
  REFERENCE_TIME m_tStart = 0;
  CLSID m_clsid;
  CCritSec* m_pLock;
  std::u16string m_name;                 // the name given by the graph
  IFilterGraph* m_pGraph = nullptr;      // not counted
  IMediaEventSink* m_pSink = nullptr;    // not counted, the graph's
  std::atomic<LONG> m_PinVersion{1};
};

class CBasePin : public CUnknown, public IPin {
 public:
  CBasePin(const WCHAR* objectName, CBaseFilter* filter, CCritSec* lock, HRESULT* phr, LPCWSTR pinName,
           PIN_DIRECTION dir);
  ~CBasePin() override;

  DECLARE_IUNKNOWN
  HRESULT STDMETHODCALLTYPE NonDelegatingQueryInterface(REFIID riid, void** ppv) override;
  // The filter's count.
  ULONG STDMETHODCALLTYPE NonDelegatingAddRef() override;
  ULONG STDMETHODCALLTYPE NonDelegatingRelease() override;

  // Output side: agrees a type with `pReceivePin` (the given type when it is
  // complete, otherwise the receiver's types, then our own, that match it).
  // VFW_E_ALREADY_CONNECTED, VFW_E_NOT_STOPPED, VFW_E_NO_ACCEPTABLE_TYPES or
  // the specific failure of the one type tried.
  HRESULT STDMETHODCALLTYPE Connect(IPin* pReceivePin, const AM_MEDIA_TYPE* pmt) override;
  // Input side: CheckConnect, CheckMediaType (S_OK only; other answers are
  // VFW_E_TYPE_NOT_ACCEPTED unless specific), SetMediaType, CompleteConnect.
  HRESULT STDMETHODCALLTYPE ReceiveConnection(IPin* pConnector, const AM_MEDIA_TYPE* pmt) override;
  HRESULT STDMETHODCALLTYPE Disconnect() override;
  HRESULT STDMETHODCALLTYPE ConnectedTo(IPin** pPin) override;
  HRESULT STDMETHODCALLTYPE ConnectionMediaType(AM_MEDIA_TYPE* pmt) override;
  HRESULT STDMETHODCALLTYPE QueryPinInfo(PIN_INFO* pInfo) override;
  HRESULT STDMETHODCALLTYPE QueryDirection(PIN_DIRECTION* pPinDir) override;
  // The pin's name, in task memory.
  HRESULT STDMETHODCALLTYPE QueryId(LPWSTR* Id) override;
  // CheckMediaType; a failure is S_FALSE.
  HRESULT STDMETHODCALLTYPE QueryAccept(const AM_MEDIA_TYPE* pmt) override;
  HRESULT STDMETHODCALLTYPE EnumMediaTypes(IEnumMediaTypes** ppEnum) override;
  HRESULT STDMETHODCALLTYPE QueryInternalConnections(IPin** apPin, ULONG* nPin) override;
  HRESULT STDMETHODCALLTYPE EndOfStream() override;
  // Records the segment.
  HRESULT STDMETHODCALLTYPE NewSegment(REFERENCE_TIME tStart, REFERENCE_TIME tStop, double dRate) override;

  // --- what subclasses answer ---
  virtual HRESULT CheckMediaType(const CMediaType* pmt) = 0;
  virtual HRESULT SetMediaType(const CMediaType* pmt);
  virtual HRESULT CheckConnect(IPin* pPin);
  virtual HRESULT BreakConnect();
  virtual HRESULT CompleteConnect(IPin* pReceivePin);
  // The types offered, from 0: S_OK, VFW_S_NO_MORE_ITEMS past the end.
  virtual HRESULT GetMediaType(int iPosition, CMediaType* pMediaType);
  virtual LONG GetMediaTypeVersion() { return m_TypeVersion; }
  void IncrementTypeVersion() { ++m_TypeVersion; }
  // State changes of the filter, for connected pins.
  virtual HRESULT Active() { return S_OK; }
  virtual HRESULT Inactive() {
    m_bRunTimeError = FALSE;
    return S_OK;
  }
  virtual HRESULT Run(REFERENCE_TIME) { return S_OK; }

  virtual HRESULT AgreeMediaType(IPin* pReceivePin, const CMediaType* pmt);
  virtual HRESULT AttemptConnection(IPin* pReceivePin, const CMediaType* pmt);
  virtual HRESULT TryMediaTypes(IPin* pReceivePin, const CMediaType* pmt, IEnumMediaTypes* pEnum);
  HRESULT DisconnectInternal();

  BOOL IsConnected() const { return m_Connected != nullptr; }
  // Not counted.
  IPin* GetConnected() const { return m_Connected; }
  BOOL IsStopped() { return m_pFilter->IsStopped(); }
  CMediaType& CurrentMediaType() { return m_mt; }
  LPCWSTR Name() const { return m_name.c_str(); }
  PIN_DIRECTION Direction() const { return m_dir; }
  CBaseFilter* Filter() const { return m_pFilter; }
  REFERENCE_TIME CurrentStartTime() const { return m_tStart; }
  REFERENCE_TIME CurrentStopTime() const { return m_tStop; }
  double CurrentRate() const { return m_dRate; }

 protected:
  std::u16string m_name;
  IPin* m_Connected = nullptr;  // counted
  PIN_DIRECTION m_dir;
  CCritSec* m_pLock;
  BOOL m_bRunTimeError = FALSE;
  BOOL m_bTryMyTypesFirst = FALSE;
  CBaseFilter* m_pFilter;
  CMediaType m_mt;
  REFERENCE_TIME m_tStart = 0;
  REFERENCE_TIME m_tStop = 0x7FFFFFFFFFFFFFFFLL;
  double m_dRate = 1.0;
  LONG m_TypeVersion = 1;
};

class CBaseInputPin : public CBasePin, public IMemInputPin {
 public:
  CBaseInputPin(const WCHAR* objectName, CBaseFilter* filter, CCritSec* lock, HRESULT* phr, LPCWSTR pinName);
  ~CBaseInputPin() override;

  DECLARE_IUNKNOWN
  // Adds IMemInputPin.
  HRESULT STDMETHODCALLTYPE NonDelegatingQueryInterface(REFIID riid, void** ppv) override;

  // Our own CMemAllocator, made on first request, unless one was notified.
  HRESULT STDMETHODCALLTYPE GetAllocator(IMemAllocator** ppAllocator) override;
  HRESULT STDMETHODCALLTYPE NotifyAllocator(IMemAllocator* pAllocator, BOOL bReadOnly) override;
  HRESULT STDMETHODCALLTYPE GetAllocatorRequirements(ALLOCATOR_PROPERTIES* pProps) override;
  // CheckStreaming; subclasses process the sample after it.
  HRESULT STDMETHODCALLTYPE Receive(IMediaSample* pSample) override;
  // Receive for each until one answers anything but S_OK.
  HRESULT STDMETHODCALLTYPE ReceiveMultiple(IMediaSample** pSamples, LONG nSamples, LONG* nSamplesProcessed) override;
  HRESULT STDMETHODCALLTYPE ReceiveCanBlock() override;

  // Flushing: Receive answers S_FALSE until EndFlush.
  HRESULT STDMETHODCALLTYPE BeginFlush() override;
  HRESULT STDMETHODCALLTYPE EndFlush() override;

  // Decommits the allocator.
  HRESULT Inactive() override;
  // Lets go of the allocator.
  HRESULT BreakConnect() override;

  // S_OK when samples may be processed now: VFW_E_NOT_CONNECTED,
  // VFW_E_WRONG_STATE when stopped, S_FALSE while flushing,
  // VFW_E_RUNTIME_ERROR after a run-time error.
  virtual HRESULT CheckStreaming();
  BOOL IsReadOnly() const { return m_bReadOnly; }
  BOOL IsFlushing() const { return m_bFlushing; }
  // The allocator in use (not counted), or null.
  IMemAllocator* Allocator() const { return m_pAllocator; }

 protected:
  IMemAllocator* m_pAllocator = nullptr;  // counted
  BOOL m_bReadOnly = FALSE;
  std::atomic<BOOL> m_bFlushing{FALSE};
};

class CBaseOutputPin : public CBasePin {
 public:
  CBaseOutputPin(const WCHAR* objectName, CBaseFilter* filter, CCritSec* lock, HRESULT* phr, LPCWSTR pinName);
  ~CBaseOutputPin() override;

  // The peer must offer IMemInputPin.
  HRESULT CheckConnect(IPin* pPin) override;
  // Chooses the allocator (DecideAllocator).
  HRESULT CompleteConnect(IPin* pReceivePin) override;
  HRESULT BreakConnect() override;
  // Commits and decommits the allocator.
  HRESULT Active() override;
  HRESULT Inactive() override;

  // The input's allocator if DecideBufferSize and NotifyAllocator take it,
  // otherwise our own (InitAllocator) on the same terms.  The input's
  // requirements seed the request (alignment at least 1).
  virtual HRESULT DecideAllocator(IMemInputPin* pPin, IMemAllocator** ppAlloc);
  virtual HRESULT DecideBufferSize(IMemAllocator* pAlloc, ALLOCATOR_PROPERTIES* pRequest) = 0;
  virtual HRESULT InitAllocator(IMemAllocator** ppAlloc);

  // A sample from the chosen allocator.  E_NOINTERFACE without one.
  virtual HRESULT GetDeliveryBuffer(IMediaSample** ppSample, REFERENCE_TIME* pStartTime, REFERENCE_TIME* pEndTime,
                                    DWORD dwFlags);
  // Receive of the connected input.  VFW_E_NOT_CONNECTED.
  virtual HRESULT Deliver(IMediaSample* pSample);
  virtual HRESULT DeliverEndOfStream();
  virtual HRESULT DeliverBeginFlush();
  virtual HRESULT DeliverEndFlush();
  virtual HRESULT DeliverNewSegment(REFERENCE_TIME tStart, REFERENCE_TIME tStop, double dRate);

  // Calls meant for input pins: E_UNEXPECTED.
  HRESULT STDMETHODCALLTYPE EndOfStream() override;
  HRESULT STDMETHODCALLTYPE BeginFlush() override;
  HRESULT STDMETHODCALLTYPE EndFlush() override;

  // The chosen allocator (not counted), or null.
  IMemAllocator* Allocator() const { return m_pAllocator; }

 protected:
  IMemAllocator* m_pAllocator = nullptr;  // counted
  IMemInputPin* m_pInputPin = nullptr;    // counted
};
