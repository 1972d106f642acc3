// Filters, pins and the filter graph, with the platform's published slot
// orders and identifiers.
//
// Threads: connection, disconnection and state changes come from the thread
// that controls the graph and run under the filter's lock; Receive,
// EndOfStream and NewSegment come from the upstream streaming thread;
// BeginFlush and EndFlush from the controlling thread, while streaming may
// be under way.  Everything handed out through an out-pointer carries a
// reference (interfaces) or belongs to the caller (task memory, media types
// that the caller frees with FreeMediaType or DeleteMediaType).
#pragma once

#include "kernel/com/stream.h"
#include "mediafw/sample.h"

#if !defined(_WIN32)

class IBaseFilter;
class IPin;
class IFilterGraph;

enum PIN_DIRECTION : int32_t { PINDIR_INPUT = 0, PINDIR_OUTPUT = 1 };
enum FILTER_STATE : int32_t { State_Stopped = 0, State_Paused = 1, State_Running = 2 };

constexpr int MAX_PIN_NAME = 128;
constexpr int MAX_FILTER_NAME = 128;

struct PIN_INFO {
  IBaseFilter* pFilter;  // counted: the caller releases it
  PIN_DIRECTION dir;
  WCHAR achName[MAX_PIN_NAME];
};

struct FILTER_INFO {
  WCHAR achName[MAX_FILTER_NAME];
  IFilterGraph* pGraph;  // counted when not null: the caller releases it
};

typedef void* HEVENT;
typedef void* HSEMAPHORE;

// A clock; declared for the shape of IMediaFilter, no clock is offered.
class IReferenceClock : public IUnknown {
 public:
  using Base = IUnknown;
  static constexpr GUID kIid = ZqGuid("{56A86897-0AD4-11CE-B03A-0020AF0BA770}");
  virtual HRESULT STDMETHODCALLTYPE GetTime(REFERENCE_TIME* pTime) = 0;
  virtual HRESULT STDMETHODCALLTYPE AdviseTime(REFERENCE_TIME baseTime, REFERENCE_TIME streamTime, HEVENT hEvent,
                                               DWORD_PTR* pdwAdviseCookie) = 0;
  virtual HRESULT STDMETHODCALLTYPE AdvisePeriodic(REFERENCE_TIME startTime, REFERENCE_TIME periodTime,
                                                   HSEMAPHORE hSemaphore, DWORD_PTR* pdwAdviseCookie) = 0;
  virtual HRESULT STDMETHODCALLTYPE Unadvise(DWORD_PTR dwAdviseCookie) = 0;
};

class IEnumMediaTypes : public IUnknown {
 public:
  using Base = IUnknown;
  static constexpr GUID kIid = ZqGuid("{89C31040-846B-11CE-97D3-00AA0055595A}");
  // Each type handed out is task memory: the caller frees it with
  // DeleteMediaType.  S_FALSE when fewer than asked were left.
  virtual HRESULT STDMETHODCALLTYPE Next(ULONG cMediaTypes, AM_MEDIA_TYPE** ppMediaTypes, ULONG* pcFetched) = 0;
  virtual HRESULT STDMETHODCALLTYPE Skip(ULONG cMediaTypes) = 0;
  virtual HRESULT STDMETHODCALLTYPE Reset() = 0;
  virtual HRESULT STDMETHODCALLTYPE Clone(IEnumMediaTypes** ppEnum) = 0;
};

// One connection point of a filter.  Connect is called on an output pin,
// which proposes types to the input's ReceiveConnection until one is taken.
class IPin : public IUnknown {
 public:
  using Base = IUnknown;
  static constexpr GUID kIid = ZqGuid("{56A86891-0AD4-11CE-B03A-0020AF0BA770}");
  // `pmt` may be null or partly specified (GUID_NULL members match any).
  virtual HRESULT STDMETHODCALLTYPE Connect(IPin* pReceivePin, const AM_MEDIA_TYPE* pmt) = 0;
  virtual HRESULT STDMETHODCALLTYPE ReceiveConnection(IPin* pConnector, const AM_MEDIA_TYPE* pmt) = 0;
  // Breaks this side only; S_FALSE when not connected.
  virtual HRESULT STDMETHODCALLTYPE Disconnect() = 0;
  virtual HRESULT STDMETHODCALLTYPE ConnectedTo(IPin** pPin) = 0;
  virtual HRESULT STDMETHODCALLTYPE ConnectionMediaType(AM_MEDIA_TYPE* pmt) = 0;
  virtual HRESULT STDMETHODCALLTYPE QueryPinInfo(PIN_INFO* pInfo) = 0;
  virtual HRESULT STDMETHODCALLTYPE QueryDirection(PIN_DIRECTION* pPinDir) = 0;
  // Task memory the caller frees with CoTaskMemFree.
  virtual HRESULT STDMETHODCALLTYPE QueryId(LPWSTR* Id) = 0;
  // S_OK when the pin would take `pmt` now, S_FALSE otherwise.
  virtual HRESULT STDMETHODCALLTYPE QueryAccept(const AM_MEDIA_TYPE* pmt) = 0;
  virtual HRESULT STDMETHODCALLTYPE EnumMediaTypes(IEnumMediaTypes** ppEnum) = 0;
  virtual HRESULT STDMETHODCALLTYPE QueryInternalConnections(IPin** apPin, ULONG* nPin) = 0;
  virtual HRESULT STDMETHODCALLTYPE EndOfStream() = 0;
  virtual HRESULT STDMETHODCALLTYPE BeginFlush() = 0;
  virtual HRESULT STDMETHODCALLTYPE EndFlush() = 0;
  virtual HRESULT STDMETHODCALLTYPE NewSegment(REFERENCE_TIME tStart, REFERENCE_TIME tStop, double dRate) = 0;
};

class IEnumPins : public IUnknown {
 public:
  using Base = IUnknown;
  static constexpr GUID kIid = ZqGuid("{56A86892-0AD4-11CE-B03A-0020AF0BA770}");
  virtual HRESULT STDMETHODCALLTYPE Next(ULONG cPins, IPin** ppPins, ULONG* pcFetched) = 0;
  virtual HRESULT STDMETHODCALLTYPE Skip(ULONG cPins) = 0;
  virtual HRESULT STDMETHODCALLTYPE Reset() = 0;
  virtual HRESULT STDMETHODCALLTYPE Clone(IEnumPins** ppEnum) = 0;
};

class IMediaFilter : public IPersist {
 public:
  using Base = IPersist;
  static constexpr GUID kIid = ZqGuid("{56A86899-0AD4-11CE-B03A-0020AF0BA770}");
  virtual HRESULT STDMETHODCALLTYPE Stop() = 0;
  virtual HRESULT STDMETHODCALLTYPE Pause() = 0;
  virtual HRESULT STDMETHODCALLTYPE Run(REFERENCE_TIME tStart) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetState(DWORD dwMilliSecsTimeout, FILTER_STATE* State) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetSyncSource(IReferenceClock* pClock) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetSyncSource(IReferenceClock** pClock) = 0;
};

class IBaseFilter : public IMediaFilter {
 public:
  using Base = IMediaFilter;
  static constexpr GUID kIid = ZqGuid("{56A86895-0AD4-11CE-B03A-0020AF0BA770}");
  virtual HRESULT STDMETHODCALLTYPE EnumPins(IEnumPins** ppEnum) = 0;
  virtual HRESULT STDMETHODCALLTYPE FindPin(LPCWSTR Id, IPin** ppPin) = 0;
  virtual HRESULT STDMETHODCALLTYPE QueryFilterInfo(FILTER_INFO* pInfo) = 0;
  // The graph calls this when it takes the filter in (and with null when it
  // lets it go).  The filter does not count its graph.
  virtual HRESULT STDMETHODCALLTYPE JoinFilterGraph(IFilterGraph* pGraph, LPCWSTR pName) = 0;
  virtual HRESULT STDMETHODCALLTYPE QueryVendorInfo(LPWSTR* pVendorInfo) = 0;
};

class IEnumFilters : public IUnknown {
 public:
  using Base = IUnknown;
  static constexpr GUID kIid = ZqGuid("{56A86893-0AD4-11CE-B03A-0020AF0BA770}");
  virtual HRESULT STDMETHODCALLTYPE Next(ULONG cFilters, IBaseFilter** ppFilter, ULONG* pcFetched) = 0;
  virtual HRESULT STDMETHODCALLTYPE Skip(ULONG cFilters) = 0;
  virtual HRESULT STDMETHODCALLTYPE Reset() = 0;
  virtual HRESULT STDMETHODCALLTYPE Clone(IEnumFilters** ppEnum) = 0;
};

class IFilterGraph : public IUnknown {
 public:
  using Base = IUnknown;
  static constexpr GUID kIid = ZqGuid("{56A8689F-0AD4-11CE-B03A-0020AF0BA770}");
  virtual HRESULT STDMETHODCALLTYPE AddFilter(IBaseFilter* pFilter, LPCWSTR pName) = 0;
  virtual HRESULT STDMETHODCALLTYPE RemoveFilter(IBaseFilter* pFilter) = 0;
  virtual HRESULT STDMETHODCALLTYPE EnumFilters(IEnumFilters** ppEnum) = 0;
  virtual HRESULT STDMETHODCALLTYPE FindFilterByName(LPCWSTR pName, IBaseFilter** ppFilter) = 0;
  // Connects an output pin to an input pin with no filters in between.
  virtual HRESULT STDMETHODCALLTYPE ConnectDirect(IPin* ppinOut, IPin* ppinIn, const AM_MEDIA_TYPE* pmt) = 0;
  // Breaks the connection of `ppin` and makes it again between the same two
  // pins, negotiating the type afresh.
  virtual HRESULT STDMETHODCALLTYPE Reconnect(IPin* ppin) = 0;
  virtual HRESULT STDMETHODCALLTYPE Disconnect(IPin* ppin) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetDefaultSyncSource() = 0;
};

// How filters report events to their graph (end of stream at a renderer,
// a streaming failure).
class IMediaEventSink : public IUnknown {
 public:
  using Base = IUnknown;
  static constexpr GUID kIid = ZqGuid("{56A868A2-0AD4-11CE-B03A-0020AF0BA770}");
  virtual HRESULT STDMETHODCALLTYPE Notify(LONG EventCode, LONG_PTR EventParam1, LONG_PTR EventParam2) = 0;
};

inline constexpr GUID IID_IReferenceClock = IReferenceClock::kIid;
inline constexpr GUID IID_IEnumMediaTypes = IEnumMediaTypes::kIid;
inline constexpr GUID IID_IPin = IPin::kIid;
inline constexpr GUID IID_IEnumPins = IEnumPins::kIid;
inline constexpr GUID IID_IMediaFilter = IMediaFilter::kIid;
inline constexpr GUID IID_IBaseFilter = IBaseFilter::kIid;
inline constexpr GUID IID_IEnumFilters = IEnumFilters::kIid;
inline constexpr GUID IID_IFilterGraph = IFilterGraph::kIid;
inline constexpr GUID IID_IMediaEventSink = IMediaEventSink::kIid;

#endif  // !_WIN32
