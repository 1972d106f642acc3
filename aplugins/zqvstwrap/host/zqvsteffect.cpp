// CZqVstEffect: load and unload, the typed operations over the dispatcher,
// and the plug-in's state machine.  The guarded calls are in zqvstdispatch.cpp,
// the audio path in zqvstaudiopath.cpp, the host callback in
// zqvsthostcallback.cpp.
#include "aplugins/zqvstwrap/host/zqvsteffect.h"

#include <atomic>
#include <cstddef>
#include <cstring>
#include <new>
#include <utility>

#include "kernel/memory.h"
#include "platform/atomic.h"
#include "platform/module.h"
#include "platform/text.h"
#include "platform/thread.h"
#include "platform/x11window.h"

namespace {

std::atomic<LONG> g_effectCount{0};

// Plug-ins that forget their parameter 0 when the block size changes: it is
// read and written back after they took a new size.
constexpr VstInt32 kBlockSizeQuirkIds[] = {
    ZqVstFourCC("OMxS"), ZqVstFourCC("OctC"), ZqVstFourCC("OEQS"),
    ZqVstFourCC("ExpS"), ZqVstFourCC("LF15"), ZqVstFourCC("LFCS"),
};

HRESULT StatusFromLastError() {
  DWORD error = GetLastError();
  return static_cast<LONG>(error) > 0 ? ZqMakeStatus(0x80070000u | (error & 0xFFFFu)) : static_cast<HRESULT>(error);
}

VstPluginMainProc EntryPoint(HMODULE module, const char* name) {
  // Through the generic function type, which converts to any other.
  return reinterpret_cast<VstPluginMainProc>(reinterpret_cast<void (*)()>(GetProcAddress(module, name)));
}

struct Speaker {
  const char* name;
  float azimuth;
  float elevation;
  float radius;
  VstInt32 type;
};

// The arrangements the effect names.  The centre's type 2 and the LFE's
// angles are what plug-ins have always been told.
constexpr Speaker kMono[] = {{"M", 1.5707965f, 0.0f, 1.0f, 0}};
constexpr Speaker kStereo[] = {{"L", 2.0943954f, 0.0f, 1.0f, 1}, {"R", 1.0471977f, 0.0f, 1.0f, 2}};
constexpr Speaker kSurround51[] = {
    {"L", 2.0943954f, 0.0f, 1.154701f, 1},  {"R", 1.0471977f, 0.0f, 1.154701f, 2},
    {"C", 1.5707965f, 0.0f, 1.0f, 2},       {"Lfe", 10.0f, 10.0f, 0.0f, 4},
    {"Ls", -2.7925272f, 0.0f, 1.064178f, 5}, {"Rs", -0.3490659f, 0.0f, 1.064178f, 6},
};

template <size_t N>
void FillSpeakers(VstSpeakerArrangement* arrangement, VstInt32 type, const Speaker (&speakers)[N]) {
  arrangement->type = type;
  for (size_t i = 0; i < N; ++i) {
    VstSpeakerProperties& p = arrangement->speakers[i];
    strncpy(p.name, speakers[i].name, 63);
    p.azimuth = speakers[i].azimuth;
    p.elevation = speakers[i].elevation;
    p.radius = speakers[i].radius;
    p.type = speakers[i].type;
  }
}

void AnsiFieldToWide(WCHAR* out, int length, const char* text, size_t bytes) {
  ZqVstAnsiToWide(out, length, text, bytes);
}

}  // namespace

LONG ZqVstGetEffectCount() { return g_effectCount.load(); }

// Every field is set here although the object comes zero-filled: the
// compiler may treat storage before a constructor as undefined.
CZqVstEffect::CZqVstEffect(const WCHAR* path, LONG id, HRESULT* result)
    : m_loadLock{},
      m_path{},
      m_module(nullptr),
      m_effect(nullptr),
      m_master(nullptr),
      m_stateFlags(0),
      m_sampleRate(0.0f),
      m_blockSize(0),
      m_inIdle(0),
      m_inEditIdle(0),
      m_timeInfo{},
      m_inputs(nullptr),
      m_outputs(nullptr),
      m_channelCapacity(0),
      m_streamType(ZQSAMPLE_FLOAT32),
      m_pluginType(ZQSAMPLE_FLOAT32),
      m_routines{},
      m_editorDisplay(nullptr),
      m_exitPause(0),
      m_log(nullptr),
      m_directory{},
      m_id(id) {
  InitializeCriticalSection(&m_loadLock);
  g_effectCount.fetch_add(1);
  // The stream is float until told otherwise.
  ChooseRoutines();
  if (path) {
    for (int i = 0; i < MAX_PATH - 1 && path[i] != 0; ++i) m_path[i] = path[i];
  }
  HRESULT hr = Load(id);
  if (result) *result = hr;
}

CZqVstEffect::~CZqVstEffect() {
  Unload();
  DeleteCriticalSection(&m_loadLock);
  // The keep-alive test of a server process follows this count.
  g_effectCount.fetch_sub(1);
  if (m_exitPause != 0) Sleep(m_exitPause);
}

// --- Load and unload ---------------------------------------------------------

HRESULT CZqVstEffect::Load(LONG id) {
  ZqResetFloatingPointState();
  HRESULT hr = S_OK;
  // One guard around it all: a fault in the module's constructors lands
  // here, and the release unloads what stood.
  DWORD code = ZqVstGuarded([&] {
    HMODULE module = LoadLibraryW(m_path);
    m_module = module;
    if (module == nullptr) {
      hr = StatusFromLastError();
      if (FAILED(hr)) Unload();
      return;
    }
    VstPluginMainProc entry = EntryPoint(module, "VSTPluginMain");
    if (entry == nullptr) entry = EntryPoint(module, "main");
    if (entry == nullptr) {
      hr = StatusFromLastError();
      if (FAILED(hr)) Unload();
      return;
    }
    // A plug-in may ask its id and for idle time before an instance exists;
    // the callback answers those from the process-wide words set here.
    EnterCriticalSection(&m_loadLock);
    g_zqVstCurrentId = id;
    g_zqVstNeedIdle = 0;
    AEffect* effect = nullptr;
    DWORD entryCode = ZqVstGuarded([&] { effect = entry(ZqVstHostCallback); });
    m_effect = entryCode == 0 ? effect : nullptr;
    if (g_zqVstNeedIdle) m_stateFlags |= ZQVST_STATE_WANTS_IDLE;
    g_zqVstNeedIdle = 0;
    LeaveCriticalSection(&m_loadLock);
    if (entryCode != 0) {
      hr = ZQ_E_EXCEPTION;
      return;
    }
    if (effect == nullptr || effect->magic != kEffectMagic) {
      // Not an effect: nothing of it is called, not even effClose.
      m_effect = nullptr;
      Unload();
      hr = E_INVALIDARG;
      return;
    }
    if (Dispatch(effGetPlugCategory) == kPlugCategShell) {
      m_stateFlags |= ZQVST_STATE_SHELL;
      if (id == 0) {
        // The container stays loaded and unopened for GetNextShellPlugin.
        hr = ZQ_S_IS_SHELL;
        return;
      }
      if (effect->uniqueID != id) {
        Unload();
        hr = E_UNEXPECTED;
        return;
      }
    }
    effect->resvd1 = reinterpret_cast<VstIntPtr>(this);
    effect->resvd2 = 0;
    Dispatch(effOpen);
  });
  if (code != 0) hr = ZQ_E_EXCEPTION;
  return hr;
}

// Sends neither effStopProcess nor effMainsChanged: callers suspend first.
void CZqVstEffect::Unload() {
  DWORD code = ZqVstGuarded([&] {
    EditClose();
    if (m_effect != nullptr) {
      if (m_stateFlags & ZQVST_STATE_SHELL_SCAN) SendShellScanEnd();
      Dispatch(effClose);
      m_effect = nullptr;
    }
    if (IZqVstMaster* master = m_master) {
      m_master = nullptr;
      master->Release();
    }
    if (HMODULE module = m_module) {
      m_module = nullptr;
      FreeLibrary(module);
    }
  });
  if (code != 0 && m_module != nullptr) {
    HMODULE module = m_module;
    m_module = nullptr;
    FreeLibrary(module);
  }
  m_effect = nullptr;
  m_channelCapacity = 0;
  FreeChannelBuffers();
}

ZQ_EXPORT HRESULT ZqVstCreateEffectInProcess(const WCHAR* path, LONG id, REFIID riid, void** object) {
  if (object == nullptr) return E_POINTER;
  HRESULT hr = S_OK;
  CZqVstEffect* effect = new (std::nothrow) CZqVstEffect(path, id, &hr);
  if (effect == nullptr) return S_FALSE;
  *object = nullptr;
  if (SUCCEEDED(hr)) {
    HRESULT query = effect->QueryInterface(riid, object);
    if (FAILED(query)) hr = query;
  }
  effect->Release();
  return hr;
}

// --- Names and information ---------------------------------------------------

// The container of a shell, loaded with id 0, is no plug-in of its own: it
// only lists the ids of its members.
bool CZqVstEffect::IsShellContainer() const { return (m_stateFlags & ZQVST_STATE_SHELL) && m_id == 0; }

HRESULT CZqVstEffect::GetString(VstInt32 opcode, WCHAR* buffer, int length) {
  if (buffer == nullptr) return E_INVALIDARG;
  if (length > 0) buffer[0] = 0;
  if (IsShellContainer()) return ZQ_E_COMPONENT;
  DispatchForText(opcode, 0, buffer, length);
  return S_OK;
}

HRESULT CZqVstEffect::GetEffectName(WCHAR* buffer, int length) {
  HRESULT hr = GetString(effGetEffectName, buffer, length);
  if (hr == S_OK && length > 0 && buffer[0] == 0) {
    // The file name without folder and extension stands in for an empty name.
    const WCHAR* name = m_path;
    for (const WCHAR* c = m_path; *c; ++c)
      if (*c == u'/' || *c == u'\\') name = c + 1;
    int end = 0;
    while (name[end] != 0) ++end;
    for (int i = end - 1; i >= 0; --i) {
      if (name[i] == u'.') {
        end = i;
        break;
      }
    }
    int n = end < length - 1 ? end : length - 1;
    for (int i = 0; i < n; ++i) buffer[i] = name[i];
    buffer[n] = 0;
  }
  return hr;
}

HRESULT CZqVstEffect::GetVendorString(WCHAR* buffer, int length) {
  return GetString(effGetVendorString, buffer, length);
}

HRESULT CZqVstEffect::GetProductString(WCHAR* buffer, int length) {
  return GetString(effGetProductString, buffer, length);
}

HRESULT CZqVstEffect::GetEffectInfo(VstEffectInfo* info) {
  if (info == nullptr) return E_INVALIDARG;
  AEffect* effect = m_effect;
  if (effect == nullptr || IsShellContainer()) return ZQ_E_COMPONENT;
  info->uniqueID = effect->uniqueID;
  info->version = effect->version;
  info->vendorVersion = static_cast<LONG>(Dispatch(effGetVendorVersion));
  info->numPrograms = effect->numPrograms;
  info->numParams = effect->numParams;
  info->numInputs = effect->numInputs;
  info->numOutputs = effect->numOutputs;
  info->initialDelay = effect->initialDelay;
  info->flags = effect->flags;
  return S_OK;
}

void CZqVstEffect::SendShellScanEnd() {
  Dispatch(effVendorSpecific, kZqVstShellScanIndex, kZqVstShellScanEnd);
  m_stateFlags &= ~ZQVST_STATE_SHELL_SCAN;
}

HRESULT CZqVstEffect::GetNextShellPlugin(LONG* id, WCHAR* buffer, int length) {
  if (buffer != nullptr && length > 0) buffer[0] = 0;
  if (!(m_stateFlags & ZQVST_STATE_SHELL)) return S_FALSE;
  if (!(m_stateFlags & ZQVST_STATE_SHELL_SCAN)) {
    Dispatch(effVendorSpecific, kZqVstShellScanIndex, kZqVstShellScanStart);
    m_stateFlags |= ZQVST_STATE_SHELL_SCAN;
  }
  char name[1024] = {};
  VstIntPtr next = Dispatch(effShellGetNextPlugin, 0, 0, name);
  if (id) *id = static_cast<LONG>(next);
  if (buffer != nullptr && length > 0) AnsiFieldToWide(buffer, length, name, sizeof name);
  if (next == 0) {
    SendShellScanEnd();
    return S_FALSE;
  }
  return S_OK;
}

// --- Master and idle -----------------------------------------------------------

HRESULT CZqVstEffect::SetMaster(IUnknown* master) {
  if (IZqVstMaster* held = m_master) {
    m_master = nullptr;
    held->Release();
  }
  if (master == nullptr) return S_FALSE;
  return master->QueryInterface(IID_IZqVstMaster, reinterpret_cast<void**>(&m_master));
}

// The guard words stop re-entry from this thread through audioMasterIdle;
// tested first and set afterwards, so two threads may pass together.
HRESULT CZqVstEffect::Idle() {
  if (m_inIdle) return S_OK;
  InterlockedExchange(&m_inIdle, 1);
  Dispatch(effIdle);
  InterlockedExchange(&m_inIdle, 0);
  return S_OK;
}

HRESULT CZqVstEffect::EditIdle() {
  if ((m_stateFlags & ZQVST_STATE_EDITOR_OPEN) && !m_inEditIdle) {
    InterlockedExchange(&m_inEditIdle, 1);
    Dispatch(effEditIdle);
    InterlockedExchange(&m_inEditIdle, 0);
  }
  if ((m_stateFlags & ZQVST_STATE_WANTS_IDLE) && !m_inIdle) {
    InterlockedExchange(&m_inIdle, 1);
    Dispatch(effIdle);
    InterlockedExchange(&m_inIdle, 0);
  }
  return S_OK;
}

// --- State ---------------------------------------------------------------------

HRESULT CZqVstEffect::Resume(BOOL forceMainsOn) {
  HRESULT hr = S_FALSE;
  if (forceMainsOn || !(m_stateFlags & ZQVST_STATE_MAINS_ON)) {
    Dispatch(effMainsChanged, 0, 1);
    hr = S_OK;
  }
  constexpr DWORD running = ZQVST_STATE_PROCESS_STARTED | ZQVST_STATE_MAINS_ON;
  if ((m_stateFlags & running) != running) {
    Dispatch(effStartProcess);
    m_stateFlags |= ZQVST_STATE_PROCESS_STARTED;
    hr = S_OK;
  }
  m_stateFlags |= ZQVST_STATE_MAINS_ON;
  return hr;
}

HRESULT CZqVstEffect::Suspend(BOOL mainsOff) {
  HRESULT hr = S_FALSE;
  if (m_stateFlags & ZQVST_STATE_PROCESS_STARTED) {
    Dispatch(effStopProcess);
    m_stateFlags &= ~ZQVST_STATE_PROCESS_STARTED;
    hr = S_OK;
  }
  if (mainsOff && (m_stateFlags & ZQVST_STATE_MAINS_ON)) {
    Dispatch(effMainsChanged, 0, 0);
    m_stateFlags &= ~ZQVST_STATE_MAINS_ON;
    hr = S_OK;
  }
  return hr;
}

HRESULT CZqVstEffect::SetSampleRate(double rate) {
  // Compared in double: a rate that differs below float precision is sent.
  if (rate == static_cast<double>(m_sampleRate)) return S_FALSE;
  m_sampleRate = static_cast<float>(rate);
  Dispatch(effSetSampleRate, 0, 0, nullptr, m_sampleRate);
  return S_OK;
}

HRESULT CZqVstEffect::SetSampleType(ZQSAMPLETYPE type) {
  m_streamType = type;
  m_pluginType = ZQSAMPLE_FLOAT32;
  ChooseRoutines();
  return S_OK;
}

HRESULT CZqVstEffect::SetBlockSize(int frames) {
  if (frames == m_blockSize) return S_FALSE;
  m_blockSize = frames;
  Dispatch(effSetBlockSize, 0, frames);
  if (AEffect* effect = m_effect) {
    for (VstInt32 quirk : kBlockSizeQuirkIds) {
      if (effect->uniqueID == quirk) {
        float value = 0.0f;
        GetParameter(0, &value);
        SetParameter(0, value);
        break;
      }
    }
  }
  return S_OK;
}

HRESULT CZqVstEffect::SetChannelCount(int channels) {
  const size_t speakers = channels > 8 ? static_cast<size_t>(channels) : 8;
  const size_t size = offsetof(VstSpeakerArrangement, speakers) + speakers * sizeof(VstSpeakerProperties);
  auto* arrangement = static_cast<VstSpeakerArrangement*>(ZqMemory_AllocZ(size));
  if (arrangement == nullptr) return E_OUTOFMEMORY;
  arrangement->type = kSpeakerArrEmpty;
  arrangement->numChannels = channels;
  switch (channels) {
    case 1:
      FillSpeakers(arrangement, kSpeakerArrMono, kMono);
      break;
    case 2:
      FillSpeakers(arrangement, kSpeakerArrStereo, kStereo);
      break;
    case 6:
      FillSpeakers(arrangement, kSpeakerArr51, kSurround51);
      break;
    default:
      for (int i = 0; i < channels; ++i) arrangement->speakers[i].type = kSpeakerUndefined;
      break;
  }
  // The same record for input and output; the mains flag is left alone.
  Dispatch(effMainsChanged, 0, 0);
  Dispatch(effSetSpeakerArrangement, 0, reinterpret_cast<VstIntPtr>(arrangement), arrangement);
  Dispatch(effMainsChanged, 0, 1);
  ZqMemory_Free(arrangement);
  return S_OK;
}

// --- Parameters ------------------------------------------------------------------

HRESULT CZqVstEffect::GetParameterProperties(int index, VstParamProperties* properties) {
  VstParameterProperties vst = {};
  if (Dispatch(effGetParameterProperties, index, 0, &vst) == 0) return E_NOTIMPL;
  if (properties != nullptr) {
    AnsiFieldToWide(properties->label, 64, vst.label, sizeof vst.label);
    AnsiFieldToWide(properties->shortLabel, 8, vst.shortLabel, sizeof vst.shortLabel);
    properties->stepFloat = vst.stepFloat;
    properties->smallStepFloat = vst.smallStepFloat;
    properties->largeStepFloat = vst.largeStepFloat;
    properties->minInteger = vst.minInteger;
    properties->maxInteger = vst.maxInteger;
    properties->stepInteger = vst.stepInteger;
    properties->largeStepInteger = vst.largeStepInteger;
    properties->flags = vst.flags;
  }
  return S_OK;
}

HRESULT CZqVstEffect::GetParameterName(int index, WCHAR* buffer, int length) {
  DispatchForText(effGetParamName, index, buffer, length);
  return S_OK;
}

HRESULT CZqVstEffect::GetParameterDisplay(int index, WCHAR* buffer, int length) {
  DispatchForText(effGetParamDisplay, index, buffer, length);
  return S_OK;
}

HRESULT CZqVstEffect::GetParameterLabel(int index, WCHAR* buffer, int length) {
  DispatchForText(effGetParamLabel, index, buffer, length);
  return S_OK;
}

HRESULT CZqVstEffect::GetLatency(LONG* frames) {
  if (frames == nullptr) return E_POINTER;
  LONG delay = m_effect ? m_effect->initialDelay : 0;
  *frames = delay < 0 ? 0 : delay;
  return S_OK;
}

HRESULT CZqVstEffect::GetTailSize(LONG* frames) {
  if (frames == nullptr) return E_POINTER;
  // 0 is "don't know" and 1 "no tail"; both read as none.
  VstIntPtr tail = Dispatch(effGetTailSize);
  *frames = tail < 2 ? 0 : static_cast<LONG>(tail);
  return S_OK;
}

// --- Programs --------------------------------------------------------------------

void CZqVstEffect::SwitchProgram(VstIntPtr index) {
  Dispatch(effBeginSetProgram);
  Dispatch(effSetProgram, 0, index);
  Dispatch(effEndSetProgram);
}

HRESULT CZqVstEffect::GetProgram(LONG* index) {
  if (index == nullptr) return E_POINTER;
  if (m_effect == nullptr || m_effect->numPrograms < 1) {
    *index = 0;
    return S_FALSE;
  }
  *index = static_cast<LONG>(Dispatch(effGetProgram));
  return S_OK;
}

HRESULT CZqVstEffect::SetProgram(LONG index) {
  const LONG programs = m_effect ? m_effect->numPrograms : 0;
  if (programs < 1) return S_FALSE;
  if (index < 0 || index >= programs) return E_INVALIDARG;
  if (Dispatch(effGetProgram) == index) return S_FALSE;
  SwitchProgram(index);
  return S_OK;
}

HRESULT CZqVstEffect::GetProgramName(LONG index, WCHAR* buffer, int length) {
  if (buffer != nullptr && length > 0) buffer[0] = 0;
  const LONG programs = m_effect ? m_effect->numPrograms : 0;
  if (programs < 1) return S_FALSE;
  if (index == -1) {
    DispatchForText(effGetProgramName, 0, buffer, length);
    return S_OK;
  }
  if (index < 0 || index >= programs) return E_INVALIDARG;
  if (DispatchForText(effGetProgramNameIndexed, index, buffer, length) == 0) {
    // No indexed names: visit the program, read its name, and come back.
    VstIntPtr current = Dispatch(effGetProgram);
    if (current != index) {
      SwitchProgram(index);
      DispatchForText(effGetProgramName, 0, buffer, length);
      SwitchProgram(current);
    } else {
      DispatchForText(effGetProgramName, 0, buffer, length);
    }
  }
  return S_OK;
}

HRESULT CZqVstEffect::SetProgramName(const WCHAR* name) {
  const LONG programs = m_effect ? m_effect->numPrograms : 0;
  if (programs < 1) return S_FALSE;
  WCHAR current[64];
  DispatchForText(effGetProgramName, 0, current, 64);
  if (lstrcmpW(current, name ? name : u"") == 0) return S_FALSE;
  DispatchWithText(effSetProgramName, 0, name ? name : u"");
  return S_OK;
}

// --- Editor ----------------------------------------------------------------------

HRESULT CZqVstEffect::EditOpen(ZQVSTWINDOW window, ZQVSTRECT* rect) {
  HRESULT hr = S_FALSE;
  if (!(m_stateFlags & ZQVST_STATE_EDITOR_OPEN)) {
    // The editor gets the display with its parent window, as Linux plug-ins
    // expect; one connection per open editor, closed after it.
    m_editorDisplay = ZqOpenEditorDisplay();
    Dispatch(effEditOpen, 0, reinterpret_cast<VstIntPtr>(m_editorDisplay), reinterpret_cast<void*>(window));
    m_stateFlags |= ZQVST_STATE_EDITOR_OPEN;
    Dispatch(effSetEditKnobMode, 0, 2);
    hr = S_OK;
  }
  if (rect != nullptr) {
    *rect = ZQVSTRECT{};
    ERect* plugRect = nullptr;
    Dispatch(effEditGetRect, 0, 0, &plugRect);
    if (plugRect != nullptr) {
      // The record is the plug-in's memory: read it under a guard as well.
      ERect copy = {};
      if (ZqVstGuarded([&] { copy = *plugRect; }) == 0) {
        LONG left = copy.left, top = copy.top, right = copy.right, bottom = copy.bottom;
        if (right < left) std::swap(left, right);
        if (bottom < top) std::swap(top, bottom);
        *rect = ZQVSTRECT{left, top, right, bottom};
      }
    }
  }
  return hr;
}

HRESULT CZqVstEffect::EditClose() {
  if (!(m_stateFlags & ZQVST_STATE_EDITOR_OPEN)) return S_FALSE;
  Dispatch(effEditClose);
  m_stateFlags &= ~ZQVST_STATE_EDITOR_OPEN;
  ZqCloseEditorDisplay(m_editorDisplay);
  m_editorDisplay = nullptr;
  return S_OK;
}
