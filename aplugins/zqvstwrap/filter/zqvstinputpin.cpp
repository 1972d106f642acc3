#include "aplugins/zqvstwrap/filter/zqvstinputpin.h"

#include "aplugins/zqvstwrap/filter/zqvstwrap.h"
#include "kernel/com/taskmem.h"

CZqPlugInInputPin::CZqPlugInInputPin(CZqVstWrapTransform* filter, HRESULT* phr)
    : CTransformInputPin(u"plug-in input pin", filter, phr, u"Input"), m_owner(filter) {}

HRESULT CZqPlugInInputPin::CheckMediaType(const CMediaType* mt) {
  HRESULT hr = m_owner->CheckInputType(mt);
  if (hr != S_OK) return hr;
  CTransformOutputPin* out = m_owner->m_pOutput;
  if (out == nullptr || !out->IsConnected()) return S_OK;
  if (m_owner->CheckTransform(mt, &out->CurrentMediaType()) == S_OK) return S_OK;

  // The present output connection does not fit this input type: ask the
  // downstream pin whether it would take what the output would become.
  CMediaType copy;
  if (FAILED(copy.Set(*mt))) return E_OUTOFMEMORY;
  if (copy.cbFormat < sizeof(WAVEFORMATEX) && copy.ReallocFormatBuffer(sizeof(WAVEFORMATEX)) == nullptr)
    return E_OUTOFMEMORY;
  WAVEFORMATEX* w = reinterpret_cast<WAVEFORMATEX*>(copy.pbFormat);
  if (copy.cbFormat > 16) w->cbSize = 0;
  m_owner->SetOutputChannels(w);
  return out->GetConnected()->QueryAccept(&copy);
}

HRESULT CZqPlugInInputPin::QueryId(LPWSTR* id) {
  if (id == nullptr) return E_POINTER;
  *id = ZqCoTaskStrDup(u"In");
  return *id ? S_OK : E_OUTOFMEMORY;
}

HRESULT CZqPlugInInputPin::Receive(IMediaSample* sample) {
  CAutoLock lock(&m_owner->m_csReceive);
  if (sample == nullptr) return E_POINTER;
  HRESULT hr = CheckStreaming();
  if (hr != S_OK) return hr;
  return m_owner->Receive(sample);
}

// The output is reconnected here rather than in CompleteConnect, where the
// input's new type is set: the output's buffers are sized from the input's
// allocator, which upstream chooses only after CompleteConnect.  The pending
// flag set there is cleared by the first allocator upstream then accepts
// from us, whether or not a graph and a connected output are still there to
// reconnect; an allocator refused by the base leaves it pending.
HRESULT CZqPlugInInputPin::NotifyAllocator(IMemAllocator* allocator, BOOL readOnly) {
  HRESULT hr = CTransformInputPin::NotifyAllocator(allocator, readOnly);
  if (FAILED(hr) || !m_owner->m_reconnectOutput) return hr;
  m_owner->m_reconnectOutput = FALSE;
  IFilterGraph* graph = m_owner->GetFilterGraph();
  CTransformOutputPin* out = m_owner->m_pOutput;
  if (graph == nullptr || out == nullptr || !out->IsConnected()) return hr;
  return graph->Reconnect(out);
}
