// The filter a host gets for one VST plug-in: a transform filter with one
// audio input pin and one audio output pin, behind which sits one
// IZqVstEffect.
//
// CZqVstWrapTransform holds what the filter is to the effect: the effect,
// its description, the formats, the streaming counters, the notification
// table and the two small control interfaces IZqVstWrapProp (used by the
// pages) and IVstWrapper.  CZqVstWrap adds the host-facing interfaces
// (property pages, saved state, presets) and the per-run time fields.
//
// Threads and locks:
//   - graph control (connection, StartStreaming, StopStreaming) runs under
//     the framework's filter lock;
//   - Receive and EndOfStream run on the streaming thread under the
//     framework's receive lock, taken by the input pin;
//   - the pages call IZqVstWrapProp on their own thread; the editor and text
//     calls and the notification table are serialised by the notification
//     lock.
// No operation takes two of these locks.  The effect may call back through
// CVstMaster while the filter is inside an effect call; the master's
// operations take the notification lock only.
#pragma once

#include "aplugins/zqvstwrap/izqvsteffect.h"
#include "aplugins/zqvstwrap/izqvstmaster.h"
#include "aplugins/zqvstwrap/izqvstwrap.h"
#include "aplugins/zqvstwrap/vst2abi.h"
#include "aplugins/zqvstwrap/filter/zqvstparams.h"
#include "aplugins/zqvstwrap/filter/zqvsttempo.h"
#include "kernel/audio/waveformat.h"
#include "kernel/com/object.h"
#include "kernel/com/stream.h"
#include "mediafw/transform.h"
#include "platform/message.h"
#include "platform/sync.h"

class CZqPlugInInputPin;
class CZqVstWrap;


// Makes an effect for `path` and plug-in `id`: in this process when the
// module is an object this process can load, otherwise through the server
// (REGDB_E_CLASSNOTREG while no server is available).
HRESULT ZqVstCreateEffect(const WCHAR* path, LONG id, REFIID riid, void** object);

// --- The effect's master ------------------------------------------------------------

// What the plug-in's calls to its host reach: a small object that points
// back at the filter without counting it (the filter clears the effect's
// master before it goes).
class CVstMaster final : public ZqComObject<CVstMaster, IZqVstMaster>, public ZqZeroFilled {
 public:
  explicit CVstMaster(class CZqVstWrapTransform* filter) : m_filter(filter) {}

  HRESULT STDMETHODCALLTYPE Automate(LONG index, float value) override;
  HRESULT STDMETHODCALLTYPE Idle() override;
  HRESULT STDMETHODCALLTYPE UpdateDisplay() override;
  HRESULT STDMETHODCALLTYPE GetTime(VstMasterTime* time) override;
  HRESULT STDMETHODCALLTYPE GetTempoAt(LONGLONG samplePos, LONG* tempo) override;
  HRESULT STDMETHODCALLTYPE SizeWindow(LONG width, LONG height) override;
  HRESULT STDMETHODCALLTYPE BeginEdit(LONG index) override;
  HRESULT STDMETHODCALLTYPE EndEdit(LONG index) override;

 private:
  friend class ZqComObject<CVstMaster, IZqVstMaster>;
  ~CVstMaster() = default;
  class CZqVstWrapTransform* m_filter;
};

// --- The filter -----------------------------------------------------------------------

class CZqVstWrapTransform : public CTransformFilter,
                            public IZqVstWrapProp,
                            public IVstWrapper,
                            public CZqPlugInParams,
                            public CMFXTempo {
 public:
  DECLARE_IUNKNOWN

  CZqVstWrapTransform(const WCHAR* name, IUnknown* outer, REFCLSID clsid, const WCHAR* path, DWORD recordFlags,
                      HRESULT* status);
  ~CZqVstWrapTransform() override;

  HRESULT STDMETHODCALLTYPE NonDelegatingQueryInterface(REFIID riid, void** ppv) override;
  HRESULT STDMETHODCALLTYPE JoinFilterGraph(IFilterGraph* graph, LPCWSTR name) override;

  // --- transform filter ---
  CBasePin* GetPin(int n) override;
  HRESULT Transform(IMediaSample*, IMediaSample*) override { return E_INVALIDARG; }
  HRESULT CheckInputType(const CMediaType* mt) override;
  HRESULT CheckTransform(const CMediaType* in, const CMediaType* out) override;
  HRESULT GetMediaType(int position, CMediaType* mt) override;
  HRESULT SetMediaType(PIN_DIRECTION direction, const CMediaType* mt) override;
  HRESULT DecideBufferSize(IMemAllocator* allocator, ALLOCATOR_PROPERTIES* request) override;
  HRESULT CompleteConnect(PIN_DIRECTION direction, IPin* pin) override;

  // Whether the filter takes `channels` interleaved channels in.
  bool AcceptsChannelCount(int channels) const;
  // Rewrites `format` for the plug-in's output channels.
  void SetOutputChannels(WAVEFORMATEX* format) const;

  // --- IZqVstWrapProp ---
  using CZqPlugInParams::GetParamCount;
  HRESULT STDMETHODCALLTYPE GetAllParams(float* values) override;
  HRESULT STDMETHODCALLTYPE SetAllParams(const float* values) override;
  int STDMETHODCALLTYPE GetParamCount() override;
  HRESULT STDMETHODCALLTYPE GetParamValue(int index, float* value) override;
  HRESULT STDMETHODCALLTYPE SetParamValue(int index, float value) override;
  HRESULT STDMETHODCALLTYPE GetParamProperties(int index, VstParamProperties* properties) override;
  HRESULT STDMETHODCALLTYPE GetParamName(int index, WCHAR* buffer, int length) override;
  HRESULT STDMETHODCALLTYPE GetParamDisplay(int index, WCHAR* buffer, int length) override;
  HRESULT STDMETHODCALLTYPE GetParamLabel(int index, WCHAR* buffer, int length) override;
  HRESULT STDMETHODCALLTYPE BeginParamEdit(int index) override;
  HRESULT STDMETHODCALLTYPE EndParamEdit(int index) override;
  BOOL STDMETHODCALLTYPE IsParamFree(int index) override;
  HRESULT STDMETHODCALLTYPE GetFilterName(WCHAR* buffer, int length) override;
  HRESULT STDMETHODCALLTYPE GetHelpDocPath(WCHAR* buffer, int length) override;
  HRESULT STDMETHODCALLTYPE GetEditorRect(ZQVSTRECT* rect) override;
  BOOL STDMETHODCALLTYPE HasNoEditor() override;
  HRESULT STDMETHODCALLTYPE OpenEditor(ZQVSTWINDOW window) override;
  HRESULT STDMETHODCALLTYPE IdleEditor() override;
  HRESULT STDMETHODCALLTYPE CloseEditor() override;
  // Also IMfxSoftSynth's.
  HRESULT STDMETHODCALLTYPE GetFormat(WAVEFORMATEX* format, LONG direction) override;
  HRESULT STDMETHODCALLTYPE SetNotifyWindow(HWND window, DWORD id) override;

  // --- IVstWrapper ---
  HRESULT STDMETHODCALLTYPE SuspendEffect() override;
  HRESULT STDMETHODCALLTYPE ResumeEffect() override;
  BOOL STDMETHODCALLTYPE IsOrdinaryVendor() override;

  // Posts WM_COMMAND with `code` in the high word to every registered
  // window; windows that no longer exist are dropped.
  void NotifyWindows(DWORD code);

  IZqVstEffect* Effect() const { return m_effect; }
  const VstEffectInfo& EffectInfo() const { return m_info; }
  // Frames of the largest block, from DecideBufferSize (0 when stopped).
  ULONG MaxBlock() const { return m_maxBlock; }

 protected:
  friend class CZqPlugInInputPin;
  friend class CVstMaster;

  // Marks the filter's state dirty and modified for every value the plug-in
  // reports itself, whether or not it moved.
  HRESULT StoreParamFromEffect(DWORD index, float normalized) override;
  // A host's SetParam reached the plug-in (or not).
  void OnParamSetByHost(DWORD index, HRESULT effectResult) override;

  // The streaming path (zqvststreaming.cpp): one block through the effect
  // with the latency discarded and the tail counted.  A tail block takes no
  // input and at most `*outFrames` frames (the buffer's room, 0 for none).
  enum class BlockKind { First, Ordinary, Tail };
  HRESULT ProcessBlock(BlockKind kind, const BYTE* input, ULONG* frames, BYTE* output, ULONG* outFrames);

  void FreeParamTables();
  bool ValidIndex(int index) const { return index >= 0 && index < m_paramCountProp; }

  IZqVstEffect* m_effect = nullptr;
  VstEffectInfo m_info{};
  WCHAR m_displayName[256]{};
  WCHAR m_modulePath[260]{};
  WCHAR m_helpPath[260]{};
  LONG m_editorWidth = 0;
  LONG m_editorHeight = 0;
  int m_paramCountProp = 0;
  VstParamProperties* m_paramProps = nullptr;
  ZqVstParamInfo* m_paramInfos = nullptr;
  BOOL m_latencyOff = FALSE;
  LONG m_latencyToDiscard = 0;
  BOOL m_tailStarted = FALSE;
  LONG m_tailRemaining = 0;
  ULONG m_maxBlock = 0;
  ZqVstWrapTimeRecord m_timeRecord{};
  CRITICAL_SECTION m_notifyLock;
  BOOL m_dirty = TRUE;
  BOOL m_modified = FALSE;
  struct NotifyEntry {
    HWND window;
    DWORD id;
  } m_notify[4]{};
  const WAVEFORMATEX* m_inputFormat = nullptr;
  const WAVEFORMATEX* m_outputFormat = nullptr;
  IFilterGraph* m_graphRef = nullptr;  // counted
  BOOL m_counted = FALSE;              // raised the library's live object count
  BOOL m_reconnectOutput = FALSE;      // the input's new type no longer fits the output's

  // Set by CZqVstWrap: where the format copies live.
  WAVEFORMATEX* m_inputStore = nullptr;
  WAVEFORMATEX* m_outputStore = nullptr;
};

class CZqVstWrap final : public CZqVstWrapTransform,
                         public ISpecifyPropertyPages,
                         public IPersistStream,
                         public IVstFilterPreset,
                         public IZqTranslationInfo,
                         public ZqZeroFilled {
 public:
  DECLARE_IUNKNOWN

  // `status` reports the construction; a failed object is destroyed by
  // `delete` without having been handed out.
  CZqVstWrap(IUnknown* outer, REFCLSID clsid, const WCHAR* path, const WCHAR* name, DWORD recordFlags,
             HRESULT* status);
  ~CZqVstWrap() override;

  HRESULT STDMETHODCALLTYPE NonDelegatingQueryInterface(REFIID riid, void** ppv) override;

  // --- streaming (zqvststreaming.cpp) ---
  // The framework receives in the frame way: buffers, output times and
  // marks, delivery and end of stream are its; each step cuts the sample at
  // tempo changes, envelope steps and the output buffer's room and runs one
  // block through the effect.
  HRESULT StartStreaming() override;
  HRESULT StopStreaming() override;
  ZqFrameLayout FrameLayout() override;
  // The envelope clock starts at the sample's start time.
  void BeginSample(REFERENCE_TIME start, REFERENCE_TIME stop) override;
  HRESULT ProcessFrames(ZqFrameBlock* block) override;
  // The plug-in's tail, in chunks of at most the largest block.
  HRESULT DrainFrames(BYTE* output, ULONG* frames) override;

  // --- ISpecifyPropertyPages ---
  HRESULT STDMETHODCALLTYPE GetPages(CAUUID* pages) override;

  // --- IPersistStream (zqvstfilterstate.cpp but GetClassID and IsDirty) ---
  // The stream: the current program index (32-bit little-endian), then that
  // program in the fxp form.
  HRESULT STDMETHODCALLTYPE GetClassID(CLSID* clsid) override;
  HRESULT STDMETHODCALLTYPE IsDirty() override { return m_modified ? S_OK : S_FALSE; }
  HRESULT STDMETHODCALLTYPE Load(IStream* stream) override;
  HRESULT STDMETHODCALLTYPE Save(IStream* stream, BOOL clearDirty) override;
  HRESULT STDMETHODCALLTYPE GetSizeMax(ULARGE_INTEGER* size) override;

  // --- IVstFilterPreset (zqvstfilterstate.cpp) ---
  HRESULT STDMETHODCALLTYPE GetPresetCount(LONG* count) override;
  HRESULT STDMETHODCALLTYPE GetPresetName(LONG index, WCHAR* buffer, int length) override;
  HRESULT STDMETHODCALLTYPE SetPreset(LONG index) override;
  HRESULT STDMETHODCALLTYPE LoadPresetFile(const WCHAR* path) override;
  HRESULT STDMETHODCALLTYPE SavePresetFile(const WCHAR* path) override;
  HRESULT STDMETHODCALLTYPE LoadBankFile(const WCHAR* path) override;
  HRESULT STDMETHODCALLTYPE SaveBankFile(const WCHAR* path) override;
  // The file dialogs need a window layer this build does not have; a host
  // uses the path forms instead.
  HRESULT STDMETHODCALLTYPE LoadPresetDialog(ZQVSTWINDOW parent) override;
  HRESULT STDMETHODCALLTYPE SavePresetDialog(ZQVSTWINDOW parent) override;
  HRESULT STDMETHODCALLTYPE LoadBankDialog(ZQVSTWINDOW parent) override;
  HRESULT STDMETHODCALLTYPE SaveBankDialog(ZQVSTWINDOW parent) override;
  HRESULT STDMETHODCALLTYPE GetCurrentPresetName(WCHAR* buffer, int length) override;
  HRESULT STDMETHODCALLTYPE GetCurrentPreset(LONG* index) override;
  HRESULT STDMETHODCALLTYPE SetCurrentPresetName(const WCHAR* name) override;

  // --- IZqTranslationInfo ---
  HRESULT STDMETHODCALLTYPE SetLanguage(LCID language) override;

  LONG InstanceNumber() const { return m_instance; }

 private:
  // The parameter cache and the pages follow the plug-in after it changed
  // programs or took a preset or a bank.
  void RefreshAfterLoad();
  // Every envelope-driven value that differs from the plug-in's goes to it
  // (on the stack: no allocation on the streaming path).
  void PushEnvelopeValues();
  // Opens `path` for reading and hands the effect a stream over it.
  HRESULT LoadFromFile(const WCHAR* path, bool bank);
  // Creates `path` and hands the effect a stream over it; a file the effect
  // failed to write is deleted.
  HRESULT SaveToFile(const WCHAR* path, bool bank);

  LONG m_instance = 0;
  WAVEFORMATEX m_inFormat{};
  WAVEFORMATEX m_outFormat{};
  DWORD m_spare = 0;
  BOOL m_effectStarted = FALSE;
  ULONG m_segmentLeft = 0;  // frames to the next tempo or meter change (0: ask again)
  CLSID m_clsid2{};
  WCHAR m_modulePath2[260]{};
};
