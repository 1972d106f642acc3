// CZqVstEffect: one VST 2.x module loaded into this process, behind
// IZqVstEffect (see izqvsteffect.h for the contract of each operation).
//
// The object owns the module and its AEffect, turns the dispatcher into typed
// operations, keeps the plug-in's state machine (editor, mains, process,
// shell scan) and converts between the host's interleaved audio and the
// plug-in's float channels.  It is the plug-in's host as far as the plug-in
// can tell: ZqVstHostCallback finds the object through AEffect::resvd1.
//
// Every call into plug-in code stands inside a fault guard; a fault becomes
// an ordinary answer and the plug-in stays loaded (zqvstdispatch.cpp).  The
// audio path is in zqvstaudiopath.cpp.
#pragma once

#include "aplugins/zqvstwrap/izqvsteffect.h"
#include "aplugins/zqvstwrap/izqvstmaster.h"
#include "aplugins/zqvstwrap/vst2abi.h"
#include "aplugins/zqvstwrap/host/zqvstaudiopath.h"
#include "aplugins/zqvstwrap/host/zqvstdispatch.h"
#include "kernel/audio/waveformat.h"
#include "kernel/com/object.h"
#include "kernel/log.h"
#include "platform/guard.h"
#include "platform/sync.h"

class CZqVstEffect final : public ZqComObject<CZqVstEffect, IZqVstEffect>, public ZqZeroFilled {
 public:
  // Loads the module at `path` and opens the plug-in `id` (its uniqueID, or
  // 0).  `*result` is the only report of failure: the object exists
  // afterwards in every case and must be released, which unloads.
  //   module does not load / no entry point: HRESULT_FROM_WIN32(last error)
  //   entry point gives null or a wrong magic: E_INVALIDARG
  //   a shell with id 0: ZQ_S_IS_SHELL, the container stays loaded, unopened
  //   a shell whose product is not `id`: E_UNEXPECTED
  //   a fault during the load: ZQ_E_EXCEPTION
  CZqVstEffect(const WCHAR* path, LONG id, HRESULT* result);

  // IZqVstEffect
  HRESULT STDMETHODCALLTYPE GetEffectName(WCHAR* buffer, int length) override;
  HRESULT STDMETHODCALLTYPE GetVendorString(WCHAR* buffer, int length) override;
  HRESULT STDMETHODCALLTYPE GetProductString(WCHAR* buffer, int length) override;
  HRESULT STDMETHODCALLTYPE GetEffectInfo(VstEffectInfo* info) override;
  HRESULT STDMETHODCALLTYPE GetNextShellPlugin(LONG* id, WCHAR* buffer, int length) override;
  HRESULT STDMETHODCALLTYPE SetMaster(IUnknown* master) override;
  HRESULT STDMETHODCALLTYPE Idle() override;
  HRESULT STDMETHODCALLTYPE Suspend(BOOL mainsOff) override;
  HRESULT STDMETHODCALLTYPE Resume(BOOL forceMainsOn) override;
  HRESULT STDMETHODCALLTYPE SetSampleRate(double rate) override;
  HRESULT STDMETHODCALLTYPE SetSampleType(ZQSAMPLETYPE type) override;
  HRESULT STDMETHODCALLTYPE SetChannelCount(int channels) override;
  HRESULT STDMETHODCALLTYPE SetBlockSize(int frames) override;
  HRESULT STDMETHODCALLTYPE GetParameterProperties(int index, VstParamProperties* properties) override;
  HRESULT STDMETHODCALLTYPE GetParameterName(int index, WCHAR* buffer, int length) override;
  HRESULT STDMETHODCALLTYPE GetParameterDisplay(int index, WCHAR* buffer, int length) override;
  HRESULT STDMETHODCALLTYPE GetParameterLabel(int index, WCHAR* buffer, int length) override;
  HRESULT STDMETHODCALLTYPE GetParameter(int index, float* value) override;
  HRESULT STDMETHODCALLTYPE SetParameter(int index, float value) override;
  HRESULT STDMETHODCALLTYPE GetLatency(LONG* frames) override;
  HRESULT STDMETHODCALLTYPE GetTailSize(LONG* frames) override;
  HRESULT STDMETHODCALLTYPE ProcessAudio(const void* source, int sourceChannels, void* destination,
                                         int destinationChannels, int frames, int bytesPerSample) override;
  HRESULT STDMETHODCALLTYPE ProcessReserved(UINT_PTR, UINT_PTR, UINT_PTR, UINT_PTR, UINT_PTR, UINT_PTR, UINT_PTR,
                                            UINT_PTR, UINT_PTR, UINT_PTR, UINT_PTR, UINT_PTR, UINT_PTR, UINT_PTR,
                                            UINT_PTR, UINT_PTR, UINT_PTR, UINT_PTR, UINT_PTR, UINT_PTR,
                                            UINT_PTR) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE GetProgram(LONG* index) override;
  HRESULT STDMETHODCALLTYPE SetProgram(LONG index) override;
  HRESULT STDMETHODCALLTYPE GetProgramName(LONG index, WCHAR* buffer, int length) override;
  HRESULT STDMETHODCALLTYPE SetProgramName(const WCHAR* name) override;
  HRESULT STDMETHODCALLTYPE SavePreset(IStream* stream, ULONG* size) override;
  HRESULT STDMETHODCALLTYPE LoadPreset(IStream* stream) override;
  HRESULT STDMETHODCALLTYPE SaveBank(IStream* stream, ULONG* size) override;
  HRESULT STDMETHODCALLTYPE LoadBank(IStream* stream, LONG program) override;
  HRESULT STDMETHODCALLTYPE EditOpen(ZQVSTWINDOW window, ZQVSTRECT* rect) override;
  HRESULT STDMETHODCALLTYPE EditIdle() override;
  HRESULT STDMETHODCALLTYPE EditClose() override;

  // --- Guarded calls into the plug-in (zqvstdispatch.cpp) ------------------

  // The dispatcher with the five arguments; -1 after a fault.
  VstIntPtr Dispatch(VstInt32 opcode, VstInt32 index = 0, VstIntPtr value = 0, void* ptr = nullptr,
                     float opt = 0.0f);
  // A dispatch whose pointer is a 260-byte text buffer; the text arrives in
  // `buffer` (`length` characters, cleared first, terminated in its last).
  VstIntPtr DispatchForText(VstInt32 opcode, VstInt32 index, WCHAR* buffer, int length);
  // A dispatch whose pointer is `text` in the plug-in's 8-bit code.
  VstIntPtr DispatchWithText(VstInt32 opcode, VstInt32 index, const WCHAR* text);

  // --- What the host callback reads and changes ---------------------------

  AEffect* Effect() const { return m_effect; }
  IZqVstMaster* Master() const { return m_master; }
  DWORD StateFlags() const { return m_stateFlags; }
  void SetStateFlags(DWORD bits) { m_stateFlags |= bits; }
  float SampleRate() const { return m_sampleRate; }
  LONG BlockSize() const { return m_blockSize; }
  const WCHAR* Path() const { return m_path; }
  VstTimeInfo* TimeInfo() { return &m_timeInfo; }
  // Whether this thread (or another) is inside the effect's own effIdle.
  bool InIdle() const { return m_inIdle != 0; }

  // The trace of every dispatch and callback goes to `log` when it is set
  // (null: no trace).  The log must outlive the effect or be cleared first.
  void SetLog(CLog* log) { m_log = log; }
  CLog* Log() const { return m_log; }
  // The destructor sleeps this long as its last act (0: not at all).
  void SetExitPause(DWORD milliseconds) { m_exitPause = milliseconds; }

  // Bytes per channel the channel buffers hold now (0 before the first block).
  LONG ChannelCapacity() const { return m_channelCapacity; }
  // audioMasterGetDirectory's answer: the module's full file name in 8-bit
  // text, kept by the effect so that the address stays readable.
  const char* DirectoryText();
  // The plug-in's channel tables, as processReplacing gets them.
  float* const* InputChannels() const { return m_inputs; }
  float* const* OutputChannels() const { return m_outputs; }

 private:
  friend class ZqComObject<CZqVstEffect, IZqVstEffect>;
  ~CZqVstEffect();

  HRESULT Load(LONG id);
  void Unload();
  // Effect name, vendor, product: the common part.
  HRESULT GetString(VstInt32 opcode, WCHAR* buffer, int length);
  // A shell container (loaded with id 0) answers no names or info.
  bool IsShellContainer() const;
  void SendShellScanEnd();
  // Switches programs as effSetProgram is bracketed.
  void SwitchProgram(VstIntPtr index);
  // Makes the channel buffers hold `frames`; false when out of memory.
  bool EnsureChannelBuffers(int frames);
  void FreeChannelBuffers();
  // The copy routines of the stream and plug-in types and the plug-in's
  // channel counts, chosen when one of them changes rather than per block.
  void ChooseRoutines();
  void CopyIn(const void* source, int sourceChannels, int frames);
  void CopyOut(void* destination, int destinationChannels, int frames);

  CRITICAL_SECTION m_loadLock;
  WCHAR m_path[MAX_PATH];
  HMODULE m_module;
  AEffect* m_effect;
  IZqVstMaster* m_master;
  DWORD m_stateFlags;
  float m_sampleRate;
  LONG m_blockSize;
  volatile LONG m_inIdle;
  volatile LONG m_inEditIdle;
  VstTimeInfo m_timeInfo;
  float** m_inputs;
  float** m_outputs;
  LONG m_channelCapacity;
  ZQSAMPLETYPE m_streamType;
  ZQSAMPLETYPE m_pluginType;
  ZqVstAudioRoutines m_routines;
  void* m_editorDisplay;  // the X display the open editor was given, or null
  DWORD m_exitPause;
  CLog* m_log;
  char m_directory[MAX_PATH];
  LONG m_id;  // the plug-in asked for at construction; 0 for a shell's container
};

// --- Process-wide state of in-process hosting -------------------------------

// Sets the identity that audioMasterGetVendorString / GetProductString answer
// (8-bit, at most 63 bytes each).  A null text leaves its part as it is; an
// empty one clears it.
ZQ_EXPORT void ZqVstSetHostIdentity(const WCHAR* vendor, const WCHAR* product);

// The count of live CZqVstEffect objects in this process.
ZQ_EXPORT LONG ZqVstGetEffectCount();

// Makes an effect in this process: loads `path` for plug-in `id` and answers
// the interface `riid` of it.  The load's result is answered (a shell opened
// with id 0 gives ZQ_S_IS_SHELL with a live interface); a failed load
// releases the object, and *object stays null.  S_FALSE when the object
// itself could not be allocated (the out word is not written then).
ZQ_EXPORT HRESULT ZqVstCreateEffectInProcess(const WCHAR* path, LONG id, REFIID riid, void** object);

// The audioMaster callback every module loaded here is given.
VstIntPtr VSTCALLBACK ZqVstHostCallback(AEffect* effect, VstInt32 opcode, VstInt32 index, VstIntPtr value,
                                        void* ptr, float opt);

// The id that audioMasterCurrentId answers while a module's entry point runs
// (no instance exists yet), and the flag that audioMasterNeedIdle sets then.
// Written under the loading effect's load lock.
extern LONG g_zqVstCurrentId;
extern volatile BYTE g_zqVstNeedIdle;
