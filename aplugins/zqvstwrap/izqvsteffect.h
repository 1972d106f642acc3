// IZqVstEffect: one loaded VST 2.x module, with typed operations in place of
// its untyped dispatcher.
//
// Every argument is plain data or an interface, so that the same calls cross
// a process border; nothing hands out the module's AEffect.  Text is 16-bit
// here and 8-bit (UTF-8) at the plug-in; buffer lengths are in characters.
//
// Calling order expected of a filter: create, SetMaster, SetSampleType,
// SetSampleRate, SetBlockSize, SetChannelCount as needed, Resume,
// ProcessAudio any number of times, Suspend, SetMaster(null), Release.  The
// names, GetEffectInfo and the parameter calls work in any state with an
// effect.
//
// Threads: the streaming thread calls ProcessAudio, a page's thread the
// parameter, program and editor calls.  The effect has no lock around the
// plug-in: callers order their calls.  Every call into the plug-in is guarded;
// a fault in plug-in code becomes an ordinary answer (-1 from the
// dispatcher, ZQ_E_EXCEPTION, or silence) and the plug-in stays loaded.
#pragma once

#include "kernel/audio/waveformat.h"
#include "kernel/com/stream.h"
#include "kernel/com/unknown.h"
#include "base/types.h"

// What GetEffectInfo reports: nine 32-bit words, from the plug-in's AEffect
// except the vendor version (effGetVendorVersion).
struct VstEffectInfo {
  LONG uniqueID;
  LONG version;
  LONG vendorVersion;
  LONG numPrograms;
  LONG numParams;
  LONG numInputs;
  LONG numOutputs;
  LONG initialDelay;
  LONG flags;
};
static_assert(sizeof(VstEffectInfo) == 36);

// What GetParameterProperties reports; the labels are terminated in their
// last character.
struct VstParamProperties {
  WCHAR label[64];
  WCHAR shortLabel[8];
  float stepFloat;
  float smallStepFloat;
  float largeStepFloat;
  LONG minInteger;
  LONG maxInteger;
  LONG stepInteger;
  LONG largeStepInteger;
  LONG flags;
};

// The editor's parent window: an X11 window id here (a window handle on the
// original platform).
typedef UINT_PTR ZQVSTWINDOW;

// The editor's rectangle, normalised so that right >= left, bottom >= top.
struct ZQVSTRECT {
  LONG left;
  LONG top;
  LONG right;
  LONG bottom;
};

// State flags of an effect (what it has told its plug-in and been told).
constexpr DWORD ZQVST_STATE_EDITOR_OPEN = 0x1;      // between effEditOpen and effEditClose
constexpr DWORD ZQVST_STATE_WANTS_IDLE = 0x2;       // the plug-in asked audioMasterNeedIdle
constexpr DWORD ZQVST_STATE_SHELL = 0x4;            // effGetPlugCategory answered kPlugCategShell
constexpr DWORD ZQVST_STATE_SHELL_SCAN = 0x8;       // "StSc" sent and "EnSc" not yet
constexpr DWORD ZQVST_STATE_PROCESS_STARTED = 0x10; // effStartProcess sent, effStopProcess not
constexpr DWORD ZQVST_STATE_MAINS_ON = 0x20;        // effMainsChanged(1) sent, (0) not

class IZqVstEffect : public IUnknown {
 public:
  using Base = IUnknown;
  static constexpr GUID kIid = ZqGuid("{4D527680-0D3E-495F-8344-02A6036B5814}");

  // The plug-in's names.  E_INVALIDARG for a null buffer; ZQ_E_COMPONENT for
  // a shell container (uniqueID 0).  An empty effect name reads as the
  // module's file name without folder and extension.
  virtual HRESULT STDMETHODCALLTYPE GetEffectName(WCHAR* buffer, int length) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetVendorString(WCHAR* buffer, int length) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetProductString(WCHAR* buffer, int length) = 0;
  // E_INVALIDARG for null; ZQ_E_COMPONENT without an effect or for a shell
  // container.
  virtual HRESULT STDMETHODCALLTYPE GetEffectInfo(VstEffectInfo* info) = 0;
  // The next sub-plug-in of a shell container: S_OK with its id and name,
  // S_FALSE at the end (or for a module that is no shell).
  virtual HRESULT STDMETHODCALLTYPE GetNextShellPlugin(LONG* id, WCHAR* buffer, int length) = 0;
  // Takes an IZqVstMaster from `master` (null: none).  The effect holds it.
  virtual HRESULT STDMETHODCALLTYPE SetMaster(IUnknown* master) = 0;
  // effIdle, unless already inside it on this thread.  S_OK.
  virtual HRESULT STDMETHODCALLTYPE Idle() = 0;
  // Stops processing; with `mainsOff` also switches the plug-in off.
  // S_OK when anything was sent, else S_FALSE.
  virtual HRESULT STDMETHODCALLTYPE Suspend(BOOL mainsOff) = 0;
  // Switches on (again, with `forceMainsOn`) and starts processing.  S_OK
  // when anything was sent, else S_FALSE.
  virtual HRESULT STDMETHODCALLTYPE Resume(BOOL forceMainsOn) = 0;
  // S_FALSE when the rate equals the stored one (compared as doubles).
  virtual HRESULT STDMETHODCALLTYPE SetSampleRate(double rate) = 0;
  // The sample type of ProcessAudio's interleaved buffers.
  virtual HRESULT STDMETHODCALLTYPE SetSampleType(ZQSAMPLETYPE type) = 0;
  // Tells the plug-in a speaker arrangement for `channels`.  S_OK, or
  // E_OUTOFMEMORY (and nothing sent).
  virtual HRESULT STDMETHODCALLTYPE SetChannelCount(int channels) = 0;
  // The largest block to come.  S_FALSE when unchanged.
  virtual HRESULT STDMETHODCALLTYPE SetBlockSize(int frames) = 0;
  // E_NOTIMPL when the plug-in has no properties for `index`.
  virtual HRESULT STDMETHODCALLTYPE GetParameterProperties(int index, VstParamProperties* properties) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetParameterName(int index, WCHAR* buffer, int length) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetParameterDisplay(int index, WCHAR* buffer, int length) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetParameterLabel(int index, WCHAR* buffer, int length) = 0;
  // Clamped to 0..1 (a NaN passes).  ZQ_E_EXCEPTION and 0.0 after a fault.
  virtual HRESULT STDMETHODCALLTYPE GetParameter(int index, float* value) = 0;
  // ZQ_E_EXCEPTION after a fault.
  virtual HRESULT STDMETHODCALLTYPE SetParameter(int index, float value) = 0;
  // initialDelay; a negative one reads as 0.
  virtual HRESULT STDMETHODCALLTYPE GetLatency(LONG* frames) = 0;
  // effGetTailSize; an answer below 2 reads as 0.
  virtual HRESULT STDMETHODCALLTYPE GetTailSize(LONG* frames) = 0;
  // One block: `source` (null: silence) and `destination` are interleaved
  // buffers of the stream sample type.  E_INVALIDARG when `bytesPerSample`
  // does not fit that type, E_OUTOFMEMORY when the channel buffers cannot
  // grow; S_OK otherwise, also after a fault in the plug-in.
  virtual HRESULT STDMETHODCALLTYPE ProcessAudio(const void* source, int sourceChannels, void* destination,
                                                 int destinationChannels, int frames, int bytesPerSample) = 0;
  // Kept for the slot order; always E_NOTIMPL.
  virtual HRESULT STDMETHODCALLTYPE ProcessReserved(UINT_PTR, UINT_PTR, UINT_PTR, UINT_PTR, UINT_PTR, UINT_PTR,
                                                    UINT_PTR, UINT_PTR, UINT_PTR, UINT_PTR, UINT_PTR, UINT_PTR,
                                                    UINT_PTR, UINT_PTR, UINT_PTR, UINT_PTR, UINT_PTR, UINT_PTR,
                                                    UINT_PTR, UINT_PTR, UINT_PTR) = 0;
  // S_FALSE when the plug-in has no programs.
  virtual HRESULT STDMETHODCALLTYPE GetProgram(LONG* index) = 0;
  // S_FALSE without programs or for the current one; E_INVALIDARG out of range.
  virtual HRESULT STDMETHODCALLTYPE SetProgram(LONG index) = 0;
  // `index` -1: the current program.  S_FALSE without programs.
  virtual HRESULT STDMETHODCALLTYPE GetProgramName(LONG index, WCHAR* buffer, int length) = 0;
  // S_FALSE without programs or when the name is unchanged.
  virtual HRESULT STDMETHODCALLTYPE SetProgramName(const WCHAR* name) = 0;
  // Preset (fxp) and bank (fxb) data.
  virtual HRESULT STDMETHODCALLTYPE SavePreset(IStream* stream, ULONG* size) = 0;
  virtual HRESULT STDMETHODCALLTYPE LoadPreset(IStream* stream) = 0;
  virtual HRESULT STDMETHODCALLTYPE SaveBank(IStream* stream, ULONG* size) = 0;
  virtual HRESULT STDMETHODCALLTYPE LoadBank(IStream* stream, LONG program) = 0;
  // Opens the plug-in's editor in `window`; S_OK when opened now, S_FALSE
  // when it already was.  `rect` (may be null) receives the editor's size.
  virtual HRESULT STDMETHODCALLTYPE EditOpen(ZQVSTWINDOW window, ZQVSTRECT* rect) = 0;
  // Idle time for the open editor (and effIdle when the plug-in wants it).
  virtual HRESULT STDMETHODCALLTYPE EditIdle() = 0;
  // S_FALSE when the editor is not open.
  virtual HRESULT STDMETHODCALLTYPE EditClose() = 0;
};

inline constexpr GUID IID_IZqVstEffect = IZqVstEffect::kIid;
