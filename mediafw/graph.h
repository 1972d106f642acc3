// A small filter graph: holds filters, connects their pins directly,
// reconnects, changes the state of all filters in order and tells when the
// stream has ended at every renderer.
//
// State changes go from the most downstream filters to the sources, so
// that no filter receives samples in a state it cannot take them in.  A
// renderer is a filter without output pins; the stream is complete when
// every renderer has reported EC_COMPLETE since the graph left the stopped
// state, or when a filter reported EC_ERRORABORT.
//
// A filter that counts its graph (some do) keeps the graph alive: remove
// the filters (RemoveFilter or RemoveAllFilters) before the last release.
// Events come from streaming threads under a lock of their own, so a Stop
// that waits for a streaming thread cannot deadlock with it.
#pragma once

#include <string>
#include <vector>

#include "mediafw/basefilter.h"

class CZqFilterGraph : public CUnknown, public IFilterGraph, public IMediaEventSink {
 public:
  explicit CZqFilterGraph(IUnknown* outer = nullptr);
  ~CZqFilterGraph() override;
  // A new graph with one reference.
  static HRESULT Create(CZqFilterGraph** graph);

  DECLARE_IUNKNOWN
  HRESULT STDMETHODCALLTYPE NonDelegatingQueryInterface(REFIID riid, void** ppv) override;

  // Adds and counts the filter and calls its JoinFilterGraph.  A name in use
  // is made unique and answered with VFW_S_DUPLICATE_NAME; without a name
  // one is made up.  VFW_E_NOT_STOPPED while the graph runs.
  HRESULT STDMETHODCALLTYPE AddFilter(IBaseFilter* pFilter, LPCWSTR pName) override;
  // Disconnects every pin of the filter (both sides), lets it leave the
  // graph and releases it.  VFW_E_NOT_FOUND.
  HRESULT STDMETHODCALLTYPE RemoveFilter(IBaseFilter* pFilter) override;
  HRESULT STDMETHODCALLTYPE EnumFilters(IEnumFilters** ppEnum) override;
  HRESULT STDMETHODCALLTYPE FindFilterByName(LPCWSTR pName, IBaseFilter** ppFilter) override;
  // Both pins' filters must be in the graph (VFW_E_NOT_IN_GRAPH);
  // `ppinOut` must be an output (VFW_E_INVALID_DIRECTION).
  HRESULT STDMETHODCALLTYPE ConnectDirect(IPin* ppinOut, IPin* ppinIn, const AM_MEDIA_TYPE* pmt) override;
  // Synchronous: both sides are disconnected and connected again with a
  // fresh negotiation.  VFW_E_NOT_STOPPED unless stopped,
  // VFW_E_NOT_CONNECTED.
  HRESULT STDMETHODCALLTYPE Reconnect(IPin* ppin) override;
  HRESULT STDMETHODCALLTYPE Disconnect(IPin* ppin) override;
  // There is no clock: every filter is left without one.
  HRESULT STDMETHODCALLTYPE SetDefaultSyncSource() override;

  HRESULT STDMETHODCALLTYPE Notify(LONG EventCode, LONG_PTR EventParam1, LONG_PTR EventParam2) override;

  // State of all filters, downstream first.  A failure stops the change
  // there (Pause and Run) and is answered; Stop goes on and answers the
  // first failure.
  HRESULT Run();
  HRESULT Pause();
  HRESULT Stop();
  FILTER_STATE GetGraphState();
  // Waits until the stream is complete.  S_OK with the event that ended it
  // (EC_COMPLETE, EC_ERRORABORT) or E_ABORT when `milliseconds` passed.
  // `status` (optional) receives the status an abort reported.
  HRESULT WaitForCompletion(DWORD milliseconds, LONG* eventCode, HRESULT* status = nullptr);
  // Removes every filter.
  HRESULT RemoveAllFilters();
  LONG FilterCount();

 private:
  struct Entry {
    IBaseFilter* filter;  // counted
    std::u16string name;
  };
  std::vector<IBaseFilter*> OrderDownstreamFirst();
  bool Contains(IBaseFilter* filter);
  bool PinInGraph(IPin* pin);
  void ResetCompletion(const std::vector<IBaseFilter*>& filters);

  CCritSec m_lock;
  std::vector<Entry> m_filters;
  FILTER_STATE m_state = State_Stopped;
  LONG m_nameCounter = 0;

  CCritSec m_eventLock;
  CAMEvent m_complete{TRUE};
  LONG m_renderers = 0;
  LONG m_completed = 0;
  LONG m_endEvent = 0;
  HRESULT m_endStatus = S_OK;
};
