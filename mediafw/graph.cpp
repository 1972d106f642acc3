#include "mediafw/graph.h"

#include <algorithm>
#include <functional>
#include <string_view>

#include "kernel/com/object.h"
#include "mediafw/enumsnapshot.h"

namespace {

using CEnumFilters = CEnumCounted<IEnumFilters, IBaseFilter>;

// Calls `fn` for every pin of `filter`, each counted for the call only.
void ForEachPin(IBaseFilter* filter, const std::function<void(IPin*)>& fn) {
  IEnumPins* pins = nullptr;
  if (FAILED(filter->EnumPins(&pins)) || pins == nullptr) return;
  IPin* pin = nullptr;
  ULONG fetched = 0;
  while (pins->Next(1, &pin, &fetched) == S_OK && fetched == 1) {
    fn(pin);
    pin->Release();
  }
  pins->Release();
}

// The filter of a pin (counted), or null.
IBaseFilter* FilterOf(IPin* pin) {
  PIN_INFO info{};
  if (FAILED(pin->QueryPinInfo(&info))) return nullptr;
  return info.pFilter;
}

std::u16string NumberText(LONG n) {
  std::u16string s;
  do {
    s.insert(s.begin(), char16_t(u'0' + n % 10));
    n /= 10;
  } while (n > 0);
  return s;
}

}  // namespace

CZqFilterGraph::CZqFilterGraph(IUnknown* outer) : CUnknown(u"filter graph", outer) {}

CZqFilterGraph::~CZqFilterGraph() { RemoveAllFilters(); }

HRESULT CZqFilterGraph::Create(CZqFilterGraph** graph) {
  if (graph == nullptr) return E_POINTER;
  *graph = new (std::nothrow) CZqFilterGraph();
  if (*graph == nullptr) return E_OUTOFMEMORY;
  (*graph)->NonDelegatingAddRef();
  return S_OK;
}

HRESULT CZqFilterGraph::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
  if (IsEqualGUID(riid, IID_IFilterGraph)) return GetInterface(static_cast<IFilterGraph*>(this), ppv);
  if (IsEqualGUID(riid, IID_IMediaEventSink)) return GetInterface(static_cast<IMediaEventSink*>(this), ppv);
  return CUnknown::NonDelegatingQueryInterface(riid, ppv);
}

bool CZqFilterGraph::Contains(IBaseFilter* filter) {
  return std::any_of(m_filters.begin(), m_filters.end(), [&](const Entry& e) { return e.filter == filter; });
}

bool CZqFilterGraph::PinInGraph(IPin* pin) {
  IBaseFilter* filter = FilterOf(pin);
  if (filter == nullptr) return false;
  bool in = Contains(filter);
  filter->Release();
  return in;
}

HRESULT CZqFilterGraph::AddFilter(IBaseFilter* pFilter, LPCWSTR pName) {
  if (pFilter == nullptr) return E_POINTER;
  CAutoLock lock(&m_lock);
  if (m_state != State_Stopped) return VFW_E_NOT_STOPPED;
  if (Contains(pFilter)) return VFW_E_DUPLICATE_NAME;
  HRESULT result = S_OK;
  std::u16string name = pName ? std::u16string(pName) : u"Filter " + NumberText(++m_nameCounter);
  auto taken = [&](const std::u16string& n) {
    return std::any_of(m_filters.begin(), m_filters.end(), [&](const Entry& e) { return e.name == n; });
  };
  if (taken(name)) {
    std::u16string base = name;
    do name = base + u" " + NumberText(++m_nameCounter);
    while (taken(name));
    result = VFW_S_DUPLICATE_NAME;
  }
  HRESULT hr = pFilter->JoinFilterGraph(this, name.c_str());
  if (FAILED(hr)) return hr;
  pFilter->AddRef();
  m_filters.push_back(Entry{pFilter, name});
  return result;
}

HRESULT CZqFilterGraph::RemoveFilter(IBaseFilter* pFilter) {
  if (pFilter == nullptr) return E_POINTER;
  CAutoLock lock(&m_lock);
  auto it = std::find_if(m_filters.begin(), m_filters.end(), [&](const Entry& e) { return e.filter == pFilter; });
  if (it == m_filters.end()) return VFW_E_NOT_FOUND;
  if (m_state != State_Stopped) pFilter->Stop();
  ForEachPin(pFilter, [](IPin* pin) {
    IPin* peer = nullptr;
    if (SUCCEEDED(pin->ConnectedTo(&peer)) && peer != nullptr) {
      peer->Disconnect();
      peer->Release();
    }
    pin->Disconnect();
  });
  m_filters.erase(it);
  pFilter->JoinFilterGraph(nullptr, nullptr);
  pFilter->Release();
  return S_OK;
}

HRESULT CZqFilterGraph::RemoveAllFilters() {
  for (;;) {
    IBaseFilter* filter = nullptr;
    {
      CAutoLock lock(&m_lock);
      if (m_filters.empty()) break;
      filter = m_filters.back().filter;
    }
    RemoveFilter(filter);
  }
  return S_OK;
}

LONG CZqFilterGraph::FilterCount() {
  CAutoLock lock(&m_lock);
  return static_cast<LONG>(m_filters.size());
}

HRESULT CZqFilterGraph::EnumFilters(IEnumFilters** ppEnum) {
  if (ppEnum == nullptr) return E_POINTER;
  std::vector<IBaseFilter*> filters;
  {
    CAutoLock lock(&m_lock);
    for (const Entry& e : m_filters) filters.push_back(e.filter);
  }
  *ppEnum = new (std::nothrow) CEnumFilters(std::move(filters));
  return *ppEnum ? S_OK : E_OUTOFMEMORY;
}

HRESULT CZqFilterGraph::FindFilterByName(LPCWSTR pName, IBaseFilter** ppFilter) {
  if (pName == nullptr || ppFilter == nullptr) return E_POINTER;
  *ppFilter = nullptr;
  CAutoLock lock(&m_lock);
  for (const Entry& e : m_filters) {
    if (e.name == std::u16string_view(pName)) {
      *ppFilter = e.filter;
      e.filter->AddRef();
      return S_OK;
    }
  }
  return VFW_E_NOT_FOUND;
}

HRESULT CZqFilterGraph::ConnectDirect(IPin* ppinOut, IPin* ppinIn, const AM_MEDIA_TYPE* pmt) {
  if (ppinOut == nullptr || ppinIn == nullptr) return E_POINTER;
  CAutoLock lock(&m_lock);
  if (!PinInGraph(ppinOut) || !PinInGraph(ppinIn)) return VFW_E_NOT_IN_GRAPH;
  PIN_DIRECTION dir;
  HRESULT hr = ppinOut->QueryDirection(&dir);
  if (FAILED(hr)) return hr;
  if (dir != PINDIR_OUTPUT) return VFW_E_INVALID_DIRECTION;
  return ppinOut->Connect(ppinIn, pmt);
}

HRESULT CZqFilterGraph::Reconnect(IPin* ppin) {
  if (ppin == nullptr) return E_POINTER;
  CAutoLock lock(&m_lock);
  if (m_state != State_Stopped) return VFW_E_NOT_STOPPED;
  if (!PinInGraph(ppin)) return VFW_E_NOT_IN_GRAPH;
  IPin* peer = nullptr;
  HRESULT hr = ppin->ConnectedTo(&peer);
  if (FAILED(hr) || peer == nullptr) return VFW_E_NOT_CONNECTED;
  PIN_DIRECTION dir;
  hr = ppin->QueryDirection(&dir);
  if (SUCCEEDED(hr)) {
    IPin* out = dir == PINDIR_OUTPUT ? ppin : peer;
    IPin* in = dir == PINDIR_OUTPUT ? peer : ppin;
    out->Disconnect();
    in->Disconnect();
    hr = out->Connect(in, nullptr);
  }
  peer->Release();
  return hr;
}

HRESULT CZqFilterGraph::Disconnect(IPin* ppin) {
  if (ppin == nullptr) return E_POINTER;
  return ppin->Disconnect();
}

HRESULT CZqFilterGraph::SetDefaultSyncSource() {
  CAutoLock lock(&m_lock);
  for (const Entry& e : m_filters) e.filter->SetSyncSource(nullptr);
  return S_OK;
}

std::vector<IBaseFilter*> CZqFilterGraph::OrderDownstreamFirst() {
  std::vector<IBaseFilter*> order;
  std::vector<IBaseFilter*> visiting;
  std::function<void(IBaseFilter*)> visit = [&](IBaseFilter* f) {
    if (std::find(order.begin(), order.end(), f) != order.end()) return;
    if (std::find(visiting.begin(), visiting.end(), f) != visiting.end()) return;  // a cycle
    visiting.push_back(f);
    ForEachPin(f, [&](IPin* pin) {
      PIN_DIRECTION dir;
      if (FAILED(pin->QueryDirection(&dir)) || dir != PINDIR_OUTPUT) return;
      IPin* peer = nullptr;
      if (FAILED(pin->ConnectedTo(&peer)) || peer == nullptr) return;
      IBaseFilter* down = FilterOf(peer);
      peer->Release();
      if (down == nullptr) return;
      if (Contains(down)) visit(down);
      down->Release();
    });
    order.push_back(f);
  };
  for (const Entry& e : m_filters) visit(e.filter);
  return order;
}

void CZqFilterGraph::ResetCompletion(const std::vector<IBaseFilter*>& filters) {
  LONG renderers = 0;
  for (IBaseFilter* f : filters) {
    bool hasOutput = false;
    ForEachPin(f, [&](IPin* pin) {
      PIN_DIRECTION dir;
      if (SUCCEEDED(pin->QueryDirection(&dir)) && dir == PINDIR_OUTPUT) hasOutput = true;
    });
    if (!hasOutput) ++renderers;
  }
  CAutoLock lock(&m_eventLock);
  m_renderers = renderers;
  m_completed = 0;
  m_endEvent = 0;
  m_endStatus = S_OK;
  m_complete.Reset();
}

HRESULT CZqFilterGraph::Notify(LONG EventCode, LONG_PTR EventParam1, LONG_PTR) {
  CAutoLock lock(&m_eventLock);
  if (EventCode == EC_COMPLETE) {
    if (++m_completed >= m_renderers && m_endEvent == 0) {
      m_endEvent = EC_COMPLETE;
      m_endStatus = static_cast<HRESULT>(EventParam1);
      m_complete.Set();
    }
  } else if (EventCode == EC_ERRORABORT || EventCode == EC_USERABORT) {
    if (m_endEvent == 0) {
      m_endEvent = EventCode;
      m_endStatus = static_cast<HRESULT>(EventParam1);
      m_complete.Set();
    }
  }
  return S_OK;
}

HRESULT CZqFilterGraph::Pause() {
  CAutoLock lock(&m_lock);
  std::vector<IBaseFilter*> order = OrderDownstreamFirst();
  if (m_state == State_Stopped) ResetCompletion(order);
  for (IBaseFilter* f : order) {
    HRESULT hr = f->Pause();
    if (FAILED(hr)) return hr;
  }
  m_state = State_Paused;
  return S_OK;
}

HRESULT CZqFilterGraph::Run() {
  CAutoLock lock(&m_lock);
  if (m_state == State_Stopped) {
    HRESULT hr = Pause();
    if (FAILED(hr)) return hr;
  }
  for (IBaseFilter* f : OrderDownstreamFirst()) {
    HRESULT hr = f->Run(0);
    if (FAILED(hr)) return hr;
  }
  m_state = State_Running;
  return S_OK;
}

HRESULT CZqFilterGraph::Stop() {
  CAutoLock lock(&m_lock);
  HRESULT result = S_OK;
  for (IBaseFilter* f : OrderDownstreamFirst()) {
    HRESULT hr = f->Stop();
    if (FAILED(hr) && SUCCEEDED(result)) result = hr;
  }
  m_state = State_Stopped;
  return result;
}

FILTER_STATE CZqFilterGraph::GetGraphState() {
  CAutoLock lock(&m_lock);
  return m_state;
}

HRESULT CZqFilterGraph::WaitForCompletion(DWORD milliseconds, LONG* eventCode, HRESULT* status) {
  if (eventCode) *eventCode = 0;
  if (!m_complete.Wait(milliseconds)) return E_ABORT;
  CAutoLock lock(&m_eventLock);
  if (eventCode) *eventCode = m_endEvent;
  if (status) *status = m_endStatus;
  return S_OK;
}
