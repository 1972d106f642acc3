// The filter object: construction, interfaces, media negotiation, the
// control interfaces of the pages and the effect's master.  The streaming
// path is in zqvststreaming.cpp.
#include "aplugins/zqvstwrap/filter/zqvstwrap.h"

#include <atomic>
#include <cstring>
#include <string_view>

#include "aplugins/zqvstwrap/filter/zqvstinputpin.h"
#include "aplugins/zqvstwrap/filter/zqvstwrap_build.h"
#include "aplugins/zqvstwrap/host/zqvsteffect.h"
#include "aplugins/zqvstwrap/host/zqvstfactory_effect.h"
#include "aplugins/zqvstwrap/zqvstclasses.h"
#include "kernel/audio/convert.h"
#include "kernel/com/taskmem.h"
#include "kernel/lang.h"
#include "platform/exeinfo.h"
#include "platform/text.h"
#include "platform/x11window.h"

namespace {

std::atomic<LONG> g_instances{0};

// Plug-ins of one vendor ship their help as a document next to the module.
constexpr std::u16string_view kHelpVendor = u"iZotope";
constexpr const char* kHelpIds[] = {"ZnDk", "ZnDn", "ZnDp", "ZnMC", "ZnMI", "ZnML", "ZnMQ", "ZnMR", "ZnMX"};
constexpr std::u16string_view kHelpFile = u"iZotope Mastering and Repair Suite Help Docs.pdf";

constexpr LONG FourCC(const char* s) {
  return LONG((DWORD(BYTE(s[0])) << 24) | (DWORD(BYTE(s[1])) << 16) | (DWORD(BYTE(s[2])) << 8) | DWORD(BYTE(s[3])));
}

bool Contains(const WCHAR* text, std::u16string_view part) {
  return std::u16string_view(text).find(part) != std::u16string_view::npos;
}

HRESULT CopyOut(WCHAR* buffer, int length, const WCHAR* text) {
  if (buffer == nullptr || length <= 0) return E_INVALIDARG;
  lstrcpynW(buffer, text, length);
  return S_OK;
}

// The format block of an audio type as a plain WAVEFORMATEX: the bytes the
// type has, the rest zero, cbSize limited to what the block holds.
WAVEFORMATEXTENSIBLE ReadFormat(const AM_MEDIA_TYPE* mt) {
  WAVEFORMATEXTENSIBLE w{};
  ULONG n = mt->cbFormat < sizeof(w) ? mt->cbFormat : ULONG(sizeof(w));
  if (mt->pbFormat) std::memcpy(&w, mt->pbFormat, n);
  if (mt->cbFormat < sizeof(WAVEFORMATEX))
    w.Format.cbSize = 0;
  else if (w.Format.cbSize > mt->cbFormat - sizeof(WAVEFORMATEX))
    w.Format.cbSize = WORD(mt->cbFormat - sizeof(WAVEFORMATEX));
  return w;
}

bool IsAudioBlock(const AM_MEDIA_TYPE* mt) {
  return IsEqualGUID(mt->majortype, MEDIATYPE_Audio) && !mt->bTemporalCompression && mt->cbFormat >= 16 &&
         mt->pbFormat != nullptr;
}

}  // namespace

// --- Making an effect -----------------------------------------------------------

HRESULT ZqVstCreateEffect(const WCHAR* path, LONG id, REFIID riid, void** object) {
  if (object == nullptr) return E_POINTER;
  *object = nullptr;
  HRESULT hr = ZqVstCreateEffectInChosenProcess(path, id, riid, object);
  return hr == S_FALSE && *object == nullptr ? E_OUTOFMEMORY : hr;
}

ZqVstBuiltObject ZqVstBuildFilter(IUnknown* outer, REFCLSID clsid, const WCHAR* path, const WCHAR* name,
                                  DWORD recordFlags, HRESULT* status) {
  ZqVstBuiltObject built;
  CZqVstWrap* filter = new (std::nothrow) CZqVstWrap(outer, clsid, path, name, recordFlags, status);
  if (filter == nullptr) return built;
  built.unknown = filter->GetNonDelegatingUnknown();
  built.destroy = [](IUnknown* unknown) {
    // The non-delegating unknown is a member of the filter; the filter's
    // count is 0, so one reference taken and given back destroys it.
    unknown->AddRef();
    unknown->Release();
  };
  return built;
}

// --- CVstMaster -------------------------------------------------------------------

HRESULT CVstMaster::Automate(LONG index, float value) { return m_filter->SetParamValue(index, value); }

HRESULT CVstMaster::Idle() {
  m_filter->NotifyWindows(ZQVSTNOTIFY_PROGRAM);
  return S_OK;
}

HRESULT CVstMaster::UpdateDisplay() {
  HRESULT hr = m_filter->PullParamsFromEffect();
  if (hr != S_OK) return S_FALSE;
  m_filter->NotifyWindows(ZQVSTNOTIFY_DISPLAY);
  return S_OK;
}

HRESULT CVstMaster::GetTime(VstMasterTime* time) { return m_filter->MasterTime(m_filter->m_timeRecord, time); }

HRESULT CVstMaster::GetTempoAt(LONGLONG samplePos, LONG* tempo) { return m_filter->MasterTempoAt(samplePos, tempo); }

HRESULT CVstMaster::SizeWindow(LONG width, LONG height) {
  EnterCriticalSection(&m_filter->m_notifyLock);
  m_filter->m_editorWidth = width;
  m_filter->m_editorHeight = height;
  LeaveCriticalSection(&m_filter->m_notifyLock);
  m_filter->NotifyWindows(ZQVSTNOTIFY_EDITOR_SIZE);
  return S_OK;
}

HRESULT CVstMaster::BeginEdit(LONG index) { return m_filter->BeginParamEdit(index); }

HRESULT CVstMaster::EndEdit(LONG index) { return m_filter->EndParamEdit(index); }

// --- CZqVstWrapTransform: life ------------------------------------------------------

CZqVstWrapTransform::CZqVstWrapTransform(const WCHAR* name, IUnknown* outer, REFCLSID clsid, const WCHAR* path,
                                         DWORD recordFlags, HRESULT* status)
    : CTransformFilter(name, outer, clsid, ZqTransformMode::Frames) {
  InitializeCriticalSection(&m_notifyLock);
  // The effect may call back through the master while it is being set up;
  // those calls wait here until the tables they touch exist.
  LockParams();
  lstrcpynW(m_displayName, name ? name : u"", 256);
  lstrcpynW(m_modulePath, path ? path : u"", 260);
  m_helpPath[0] = 0;

  HRESULT hr = S_OK;
  CVstMaster* master = nullptr;
  IUnknown* made = nullptr;
  hr = ZqVstCreateEffect(m_modulePath, LONG(clsid.Data1), IID_IZqVstEffect, reinterpret_cast<void**>(&made));
  if (SUCCEEDED(hr) && made == nullptr) hr = E_UNEXPECTED;
  if (SUCCEEDED(hr)) {
    HRESULT query = made->QueryInterface(IID_IZqVstEffect, reinterpret_cast<void**>(&m_effect));
    made->Release();
    if (FAILED(query)) hr = query;
  }
  if (SUCCEEDED(hr)) hr = m_effect->GetEffectInfo(&m_info);
  if (SUCCEEDED(hr)) {
    master = new (std::nothrow) CVstMaster(this);
    if (master == nullptr) {
      hr = E_OUTOFMEMORY;
    } else {
      m_effect->SetMaster(static_cast<IZqVstMaster*>(master));
      master->Release();
    }
  }
  if (SUCCEEDED(hr) && m_info.numParams > 0) {
    hr = ZqVstBuildParamTables(m_effect, m_info.numParams, &m_paramProps, &m_paramInfos);
    if (SUCCEEDED(hr)) hr = InitParams(m_paramInfos, DWORD(m_info.numParams));
    if (SUCCEEDED(hr)) m_paramCountProp = m_info.numParams;
  }
  if (FAILED(hr)) {
    FreeParamTables();
    if (m_effect) {
      m_effect->SetMaster(nullptr);
      m_effect->Release();
      m_effect = nullptr;
    }
    UnlockParams();
    *status = hr;
    return;
  }
  SetParamEffect(m_effect);

  m_latencyOff = (recordFlags & ZQVST_VMF_NO_LATENCY) != 0;

  ZqVstWrap_ObjectCreated();
  m_counted = TRUE;

  WCHAR vendor[1024] = {};
  m_effect->GetVendorString(vendor, 1024);
  if (Contains(vendor, kHelpVendor)) {
    for (const char* id : kHelpIds) {
      if (m_info.uniqueID != FourCC(id)) continue;
      WCHAR folder[260];
      lstrcpynW(folder, m_modulePath, 260);
      WCHAR* slash = nullptr;
      for (WCHAR* p = folder; *p; ++p)
        if (*p == u'/' || *p == u'\\') slash = p;
      if (slash) {
        slash[1] = 0;
        std::u16string help = std::u16string(folder) + std::u16string(kHelpFile);
        lstrcpynW(m_helpPath, help.c_str(), 260);
      }
      break;
    }
  }
  UnlockParams();
}

CZqVstWrapTransform::~CZqVstWrapTransform() {
  if (m_graphRef) {
    m_graphRef->Release();
    m_graphRef = nullptr;
  }
  SuspendEffect();
  std::memset(&m_timeRecord, 0, sizeof(m_timeRecord));
  m_maxBlock = 0;
  SetParamEffect(nullptr);
  FreeParams();
  FreeParamTables();
  if (m_effect) {
    m_effect->SetMaster(nullptr);
    m_effect->Release();
    m_effect = nullptr;
  }
  if (m_counted) ZqVstWrap_ObjectDestroyed();
  DeleteCriticalSection(&m_notifyLock);
}

void CZqVstWrapTransform::FreeParamTables() {
  ZqVstFreeParamTables(m_paramProps, m_paramInfos);
  m_paramProps = nullptr;
  m_paramInfos = nullptr;
  m_paramCountProp = 0;
}

HRESULT CZqVstWrapTransform::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  if (IsEqualGUID(riid, IID_IZqVstWrapProp)) return GetInterface(static_cast<IZqVstWrapProp*>(this), ppv);
  if (IsEqualGUID(riid, IID_IVstWrapper)) return GetInterface(static_cast<IVstWrapper*>(this), ppv);
  // The plug-in's host is the filter itself, as far as a query can tell.
  if (IsEqualGUID(riid, IID_IZqVstMaster)) return GetInterface(GetNonDelegatingUnknown(), ppv);
  if (IsEqualGUID(riid, IID_IMfxSoftSynth)) return GetInterface(static_cast<IMfxSoftSynth*>(this), ppv);
  bool automatable = false;
  if (m_paramInfos != nullptr && m_paramCountProp >= 1)
    for (int i = 0; i < m_paramCountProp && !automatable; ++i) automatable = m_paramInfos[i].automatable != 0;
  if (automatable) {
    if (IsEqualGUID(riid, IID_IMediaParams)) return GetInterface(static_cast<IMediaParams*>(this), ppv);
    if (IsEqualGUID(riid, IID_IMediaParamInfo)) return GetInterface(static_cast<IMediaParamInfo*>(this), ppv);
    if (IsEqualGUID(riid, IID_IMediaParamsSetUICallback))
      return GetInterface(static_cast<IMediaParamsSetUICallback*>(this), ppv);
  }
  return CTransformFilter::NonDelegatingQueryInterface(riid, ppv);
}

HRESULT CZqVstWrapTransform::JoinFilterGraph(IFilterGraph* graph, LPCWSTR name) {
  CAutoLock lock(&m_csFilter);
  if (m_graphRef) {
    m_graphRef->Release();
    m_graphRef = nullptr;
  }
  HRESULT hr = CTransformFilter::JoinFilterGraph(graph, name);
  if (SUCCEEDED(hr) && graph) {
    m_graphRef = graph;
    m_graphRef->AddRef();
  }
  return hr;
}

CBasePin* CZqVstWrapTransform::GetPin(int n) {
  if (m_pInput == nullptr) {
    HRESULT hr = S_OK;
    CZqPlugInInputPin* pin = new (std::nothrow) CZqPlugInInputPin(this, &hr);
    if (pin && FAILED(hr)) {
      delete pin;
      pin = nullptr;
    }
    m_pInput = pin;
  }
  if (m_pOutput == nullptr) {
    HRESULT hr = S_OK;
    CTransformOutputPin* pin = new (std::nothrow) CTransformOutputPin(u"output pin", this, &hr, u"Output");
    if (pin && FAILED(hr)) {
      delete pin;
      pin = nullptr;
    }
    m_pOutput = pin;
  }
  if (n == 0) return m_pInput;
  if (n == 1) return m_pOutput;
  return nullptr;
}

// --- Media negotiation ------------------------------------------------------------

bool CZqVstWrapTransform::AcceptsChannelCount(int channels) const {
  const int in = m_info.numInputs;
  const int out = m_info.numOutputs;
  if (channels == in) return true;
  if (channels == 1 && (m_info.flags & effFlagsCanMono)) return true;
  if (channels <= in && channels <= out) return true;
  return in > 2 || out >= 3;
}

void CZqVstWrapTransform::SetOutputChannels(WAVEFORMATEX* format) const {
  format->nChannels = WORD(m_info.numOutputs);
  format->nBlockAlign = WORD((format->wBitsPerSample / 8) * m_info.numOutputs);
  format->nAvgBytesPerSec = DWORD(format->nBlockAlign) * format->nSamplesPerSec;
  format->cbSize = 0;
}

HRESULT CZqVstWrapTransform::CheckInputType(const CMediaType* mt) {
  if (!IsAudioBlock(mt)) return E_INVALIDARG;
  WAVEFORMATEXTENSIBLE w = ReadFormat(mt);
  if (!AcceptsChannelCount(w.Format.nChannels)) return E_INVALIDARG;
  ZQSAMPLETYPE type = ZqAudio_GetSampleType(&w.Format);
  if (ZqAudio_GetCopyFunction2(ZQSAMPLE_FLOAT32, type) == nullptr ||
      ZqAudio_GetCopyFunction2(type, ZQSAMPLE_FLOAT32) == nullptr)
    return E_INVALIDARG;
  return S_OK;
}

HRESULT CZqVstWrapTransform::CheckTransform(const CMediaType* in, const CMediaType* out) {
  if (!IsAudioBlock(in) || !IsAudioBlock(out)) return E_INVALIDARG;
  const WAVEFORMATEX* a = reinterpret_cast<const WAVEFORMATEX*>(in->pbFormat);
  const WAVEFORMATEX* b = reinterpret_cast<const WAVEFORMATEX*>(out->pbFormat);
  if (a->wFormatTag != b->wFormatTag || a->wBitsPerSample != b->wBitsPerSample ||
      a->nSamplesPerSec != b->nSamplesPerSec)
    return E_INVALIDARG;
  return S_OK;
}

HRESULT CZqVstWrapTransform::GetMediaType(int position, CMediaType* mt) {
  if (m_pInput == nullptr || !m_pInput->IsConnected()) return E_UNEXPECTED;
  if (position < 0) return E_INVALIDARG;
  if (position > 0) return VFW_S_NO_MORE_ITEMS;
  HRESULT hr = mt->Set(m_pInput->CurrentMediaType());
  if (FAILED(hr)) return hr;
  // The rewrite below needs the whole 18 bytes.
  if (mt->cbFormat < sizeof(WAVEFORMATEX) && mt->ReallocFormatBuffer(sizeof(WAVEFORMATEX)) == nullptr)
    return E_OUTOFMEMORY;
  WAVEFORMATEX* w = reinterpret_cast<WAVEFORMATEX*>(mt->pbFormat);
  if (mt->cbFormat > 16) w->cbSize = 0;
  SetOutputChannels(w);
  if (mt->bFixedSizeSamples) mt->lSampleSize = w->nBlockAlign;
  return S_OK;
}

HRESULT CZqVstWrapTransform::SetMediaType(PIN_DIRECTION direction, const CMediaType* mt) {
  WAVEFORMATEXTENSIBLE given = ReadFormat(mt);
  WAVEFORMATEX canonical{};
  canonical.wFormatTag = given.Format.wFormatTag;
  canonical.nChannels = given.Format.nChannels;
  canonical.nSamplesPerSec = given.Format.nSamplesPerSec;
  canonical.wBitsPerSample = given.Format.wBitsPerSample;
  canonical.nBlockAlign = WORD((canonical.wBitsPerSample / 8) * canonical.nChannels);
  canonical.nAvgBytesPerSec = DWORD(canonical.nBlockAlign) * canonical.nSamplesPerSec;
  canonical.cbSize = 0;
  if (direction == PINDIR_INPUT) {
    *m_inputStore = canonical;
  } else {
    *m_outputStore = canonical;
  }
  CTransformFilter::SetMediaType(direction, mt);
  if (direction == PINDIR_INPUT) {
    m_inputFormat = m_inputStore;
    if (m_effect) {
      m_effect->SetSampleRate(double(canonical.nSamplesPerSec));
      m_effect->SetSampleType(ZqAudio_GetSampleType(&given.Format));
      m_effect->SetChannelCount(canonical.nChannels);
    }
    NotifyWindows(ZQVSTNOTIFY_INPUT_TYPE);
  } else {
    m_outputFormat = m_outputStore;
    NotifyWindows(ZQVSTNOTIFY_OUTPUT_TYPE);
  }
  return S_OK;
}

HRESULT CZqVstWrapTransform::DecideBufferSize(IMemAllocator* allocator, ALLOCATOR_PROPERTIES* request) {
  if (m_pInput != nullptr && m_pInput->IsConnected()) {
    IMemAllocator* upstream = nullptr;
    if (SUCCEEDED(m_pInput->GetAllocator(&upstream)) && upstream) {
      upstream->GetProperties(request);
      upstream->Release();
    }
  }
  ALLOCATOR_PROPERTIES actual{};
  HRESULT hr = allocator->SetProperties(request, &actual);
  if (FAILED(hr)) return hr;
  *request = actual;
  if (actual.cbBuffer < 128) return E_FAIL;
  // Four bytes a sample whatever the stream's type: the plug-in's floats.
  WORD channels = m_inputFormat ? m_inputFormat->nChannels : 0;
  ULONG block = channels ? ULONG(actual.cbBuffer) / (ULONG(channels) * 4) : 0;
  if (m_effect && SUCCEEDED(m_effect->SetBlockSize(int(block)))) m_maxBlock = block;
  return S_OK;
}

HRESULT CZqVstWrapTransform::CompleteConnect(PIN_DIRECTION direction, IPin*) {
  if (direction == PINDIR_OUTPUT) return S_OK;
  if (m_pOutput != nullptr && m_pOutput->IsConnected() &&
      FAILED(CheckTransform(&m_pInput->CurrentMediaType(), &m_pOutput->CurrentMediaType()))) {
    if (m_pGraph == nullptr) return VFW_E_NOT_IN_GRAPH;
    // The graph reconnects at once, and the output's buffers are sized from
    // the input's allocator, which upstream chooses only after this; so the
    // output is reconnected when upstream has told the input its allocator.
    m_reconnectOutput = TRUE;
  }
  return S_OK;
}

// --- IZqVstWrapProp ----------------------------------------------------------------

HRESULT CZqVstWrapTransform::GetAllParams(float* values) {
  if (ParamCount() == 0) return S_OK;
  if (values == nullptr) return E_POINTER;
  return GetAllNormalizedParams(values);
}

HRESULT CZqVstWrapTransform::SetAllParams(const float* values) {
  if (values == nullptr) return E_POINTER;
  for (DWORD i = 0; i < ParamCount(); ++i) SetNormalizedParam(i, values[i]);
  m_dirty = TRUE;
  m_modified = TRUE;
  return S_OK;
}

int CZqVstWrapTransform::GetParamCount() {
  EnterCriticalSection(&m_notifyLock);
  int count = m_paramCountProp;
  LeaveCriticalSection(&m_notifyLock);
  return count;
}

HRESULT CZqVstWrapTransform::GetParamValue(int index, float* value) {
  if (!ValidIndex(index)) return E_INVALIDARG;
  return GetNormalizedParam(DWORD(index), value);
}

HRESULT CZqVstWrapTransform::SetParamValue(int index, float value) {
  if (!ValidIndex(index)) return E_INVALIDARG;
  HRESULT hr = SetNormalizedParam(DWORD(index), value);
  m_dirty = TRUE;
  m_modified = TRUE;
  // A plug-in with an editor of its own made the change itself.
  if (HasNoEditor() && m_effect) {
    float present = 0.0f;
    m_effect->GetParameter(index, &present);
    if (present != value) m_effect->SetParameter(index, value);
  }
  return hr;
}

HRESULT CZqVstWrapTransform::GetParamProperties(int index, VstParamProperties* properties) {
  if (!ValidIndex(index)) return E_INVALIDARG;
  if (properties == nullptr) return E_POINTER;
  *properties = m_paramProps[index];
  return S_OK;
}

HRESULT CZqVstWrapTransform::GetParamName(int index, WCHAR* buffer, int length) {
  if (!ValidIndex(index)) return E_INVALIDARG;
  if (buffer == nullptr || length <= 0) return E_INVALIDARG;
  WCHAR text[64] = {};
  EnterCriticalSection(&m_notifyLock);
  HRESULT hr = m_effect->GetParameterName(index, text, 64);
  lstrcpynW(buffer, text, length);
  LeaveCriticalSection(&m_notifyLock);
  return hr;
}

HRESULT CZqVstWrapTransform::GetParamDisplay(int index, WCHAR* buffer, int length) {
  if (!ValidIndex(index)) return E_INVALIDARG;
  if (buffer == nullptr || length <= 0) return E_INVALIDARG;
  WCHAR text[64] = {};
  EnterCriticalSection(&m_notifyLock);
  HRESULT hr = m_effect->GetParameterDisplay(index, text, 64);
  lstrcpynW(buffer, text, length);
  LeaveCriticalSection(&m_notifyLock);
  return hr;
}

HRESULT CZqVstWrapTransform::GetParamLabel(int index, WCHAR* buffer, int length) {
  if (!ValidIndex(index)) return E_INVALIDARG;
  if (buffer == nullptr || length <= 0) return E_INVALIDARG;
  WCHAR text[64] = {};
  EnterCriticalSection(&m_notifyLock);
  m_effect->GetParameterLabel(index, text, 64);
  lstrcpynW(buffer, text, length);
  LeaveCriticalSection(&m_notifyLock);
  // Pages written against this interface never test this answer; it has
  // always been a failure and stays one.
  return E_INVALIDARG;
}

HRESULT CZqVstWrapTransform::BeginParamEdit(int index) {
  if (!ValidIndex(index)) return E_INVALIDARG;
  return BeginParamCapture(DWORD(index));
}

HRESULT CZqVstWrapTransform::EndParamEdit(int index) {
  if (!ValidIndex(index)) return E_INVALIDARG;
  HRESULT hr = EndParamCapture(DWORD(index));
  m_dirty = TRUE;
  return hr;
}

BOOL CZqVstWrapTransform::IsParamFree(int index) {
  if (!ValidIndex(index)) return FALSE;
  return IsParamDrivenByEnvelope(DWORD(index)) ? FALSE : TRUE;
}

HRESULT CZqVstWrapTransform::GetFilterName(WCHAR* buffer, int length) {
  EnterCriticalSection(&m_notifyLock);
  HRESULT hr = CopyOut(buffer, length, m_displayName);
  LeaveCriticalSection(&m_notifyLock);
  return hr;
}

HRESULT CZqVstWrapTransform::GetHelpDocPath(WCHAR* buffer, int length) {
  EnterCriticalSection(&m_notifyLock);
  HRESULT hr = CopyOut(buffer, length, m_helpPath);
  LeaveCriticalSection(&m_notifyLock);
  return hr;
}

HRESULT CZqVstWrapTransform::GetEditorRect(ZQVSTRECT* rect) {
  if (rect == nullptr) return E_POINTER;
  EnterCriticalSection(&m_notifyLock);
  HRESULT hr = S_OK;
  if (m_editorWidth != 0 && m_editorHeight != 0) {
    *rect = ZQVSTRECT{0, 0, m_editorWidth, m_editorHeight};
  } else if (m_effect == nullptr) {
    hr = E_UNEXPECTED;
  } else {
    // Many editors only know their size once opened, so open one in a
    // window nobody sees, measure it and close it again.  The size is kept:
    // later calls answer without opening the editor.
    ZqNativeWindow window{};
    if (!ZqCreateTemporaryNativeWindow(&window)) {
      hr = ZQ_E_CREATE_WINDOW;
    } else {
      ZQVSTRECT measured{};
      m_effect->EditOpen(ZQVSTWINDOW(window.window), &measured);
      m_effect->EditClose();
      m_editorWidth = measured.right - measured.left;
      m_editorHeight = measured.bottom - measured.top;
      ZqDestroyTemporaryNativeWindow(&window);
      *rect = ZQVSTRECT{0, 0, m_editorWidth, m_editorHeight};
    }
  }
  LeaveCriticalSection(&m_notifyLock);
  return hr;
}

BOOL CZqVstWrapTransform::HasNoEditor() { return (m_info.flags & effFlagsHasEditor) ? FALSE : TRUE; }

HRESULT CZqVstWrapTransform::OpenEditor(ZQVSTWINDOW window) {
  if (m_effect == nullptr) return E_UNEXPECTED;
  EnterCriticalSection(&m_notifyLock);
  ZQVSTRECT rect{};
  HRESULT hr = m_effect->EditOpen(window, &rect);
  LeaveCriticalSection(&m_notifyLock);
  return hr;
}

HRESULT CZqVstWrapTransform::IdleEditor() { return m_effect ? m_effect->EditIdle() : E_UNEXPECTED; }

HRESULT CZqVstWrapTransform::CloseEditor() {
  if (m_effect == nullptr) return E_UNEXPECTED;
  EnterCriticalSection(&m_notifyLock);
  HRESULT hr = m_effect->EditClose();
  LeaveCriticalSection(&m_notifyLock);
  return hr;
}

HRESULT CZqVstWrapTransform::GetFormat(WAVEFORMATEX* format, LONG direction) {
  const WAVEFORMATEX* source = direction == 0 ? m_inputFormat : direction == 1 ? m_outputFormat : nullptr;
  if (source == nullptr) return VFW_E_NOT_CONNECTED;
  if (format == nullptr) return E_POINTER;
  std::memcpy(format, source, sizeof(WAVEFORMATEX));
  return S_OK;
}

HRESULT CZqVstWrapTransform::SetNotifyWindow(HWND window, DWORD id) {
  EnterCriticalSection(&m_notifyLock);
  NotifyEntry* chosen = nullptr;
  for (auto& entry : m_notify) {
    if (entry.window == window) {
      chosen = &entry;
      break;
    }
    if (entry.window == nullptr) chosen = &entry;
  }
  HRESULT hr = S_OK;
  if (chosen) {
    chosen->id = id;
    chosen->window = id != 0 ? window : nullptr;
  } else if (id != 0) {
    hr = E_OUTOFMEMORY;
  }
  LeaveCriticalSection(&m_notifyLock);
  return hr;
}

void CZqVstWrapTransform::NotifyWindows(DWORD code) {
  EnterCriticalSection(&m_notifyLock);
  for (auto& entry : m_notify) {
    if (entry.window == nullptr) continue;
    if (!IsWindow(entry.window)) {
      entry.window = nullptr;
      entry.id = 0;
      continue;
    }
    PostMessageW(entry.window, WM_COMMAND, WPARAM((entry.id & 0xFFFF) | (code << 16)), 0);
  }
  LeaveCriticalSection(&m_notifyLock);
}

// --- IVstWrapper -------------------------------------------------------------------

HRESULT CZqVstWrapTransform::SuspendEffect() { return m_effect ? m_effect->Suspend(TRUE) : S_FALSE; }

HRESULT CZqVstWrapTransform::ResumeEffect() { return m_effect ? m_effect->Resume(TRUE) : S_FALSE; }

BOOL CZqVstWrapTransform::IsOrdinaryVendor() {
  if (m_effect == nullptr) return TRUE;
  WCHAR vendor[64] = {};
  m_effect->GetVendorString(vendor, 64);
  return Contains(vendor, u"Universal Audio") ? FALSE : TRUE;
}

// --- Parameters as the plug-in reports them -----------------------------------------

HRESULT CZqVstWrapTransform::StoreParamFromEffect(DWORD index, float normalized) {
  HRESULT hr = CZqPlugInParams::StoreParamFromEffect(index, normalized);
  // Every value taken from the plug-in counts as a change, moved or not:
  // after a load the host saves again whatever the plug-in made of it.
  if (SUCCEEDED(hr)) {
    m_dirty = TRUE;
    m_modified = TRUE;
  }
  return hr;
}

void CZqVstWrapTransform::OnParamSetByHost(DWORD, HRESULT effectResult) {
  BOOL worked = SUCCEEDED(effectResult) ? TRUE : FALSE;
  m_dirty = worked;
  m_modified = worked;
  NotifyWindows(ZQVSTNOTIFY_INPUT_TYPE);
}

// --- CZqVstWrap -----------------------------------------------------------------------

CZqVstWrap::CZqVstWrap(IUnknown* outer, REFCLSID clsid, const WCHAR* path, const WCHAR* name, DWORD recordFlags,
                       HRESULT* status)
    : CZqVstWrapTransform(name, outer, clsid, path, recordFlags, status) {
  m_inputStore = &m_inFormat;
  m_outputStore = &m_outFormat;
  m_clsid2 = clsid;
  lstrcpynW(m_modulePath2, path ? path : u"", 260);
  m_instance = g_instances.fetch_add(1) + 1;
  if (SUCCEEDED(*status)) {
    m_effect->SetProgram(0);
    PullParamsFromEffect();
    NotifyWindows(ZQVSTNOTIFY_PROGRAM);
  }
}

CZqVstWrap::~CZqVstWrap() = default;

HRESULT CZqVstWrap::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  if (IsEqualGUID(riid, IID_ISpecifyPropertyPages)) return GetInterface(static_cast<ISpecifyPropertyPages*>(this), ppv);
  if (IsEqualGUID(riid, IID_IPersistStream)) return GetInterface(static_cast<IPersistStream*>(this), ppv);
  if (IsEqualGUID(riid, IID_IStaticFilterPreset) || IsEqualGUID(riid, IID_IVstFilterPreset))
    return GetInterface(static_cast<IVstFilterPreset*>(this), ppv);
  return CZqVstWrapTransform::NonDelegatingQueryInterface(riid, ppv);
}

HRESULT CZqVstWrap::GetPages(CAUUID* pages) {
  if (pages == nullptr) return E_POINTER;
  pages->cElems = 0;
  pages->pElems = static_cast<GUID*>(CoTaskMemAlloc(2 * sizeof(GUID)));
  if (pages->pElems == nullptr) return E_OUTOFMEMORY;
  CLSID editor, params;
  ZqVstMakeRoleClsids(m_clsid2, nullptr, &editor, &params);
  pages->pElems[0] = HasNoEditor() ? params : editor;
  pages->cElems = 1;
  return S_OK;
}

HRESULT CZqVstWrap::GetClassID(CLSID* clsid) {
  if (clsid == nullptr) return E_POINTER;
  *clsid = m_clsid2;
  return S_OK;
}

HRESULT CZqVstWrap::SetLanguage(LCID language) {
  // The kernel's texts follow the host; any language but English also
  // conditions the kernel's locale-dependent parts.
  return ZqLang_UpdateKernelLCID(ZqLang_GetKernelLang(), language, !ZqLang_IsLCIDEnglish(language)) ? S_OK : E_FAIL;
}
