// IZqVstMaster: the host side of one effect, as the effect's plug-in sees it.
//
// An effect holds one master (IZqVstEffect::SetMaster).  What the plug-in asks
// of its host through the audioMaster callback and the effect cannot answer
// alone -- automation, idle requests, display updates, time and tempo, editor
// size, edit gestures -- arrives here.  The filter implements it; tests use a
// master of their own.
//
// Threads: called on whichever thread the plug-in calls its host from (the
// streaming thread inside ProcessAudio, the page's thread inside editor and
// parameter calls, or a thread of the plug-in's own).  The effect takes no
// lock around the calls.  Failures are ignored by the effect: the plug-in
// sees the callback's own answers.
#pragma once

#include "kernel/com/unknown.h"
#include "base/types.h"

// The transport and musical position that the filter reports for the
// present sample position (GetTime).  Items are valid with their flag.
struct VstMasterTime {
  double samplePos;           // always present
  LONG timeSigNumerator;      // ZQVST_TIME_TIMESIG
  LONG timeSigDenominator;    // ZQVST_TIME_TIMESIG
  double tempo;               // beats per minute, ZQVST_TIME_TEMPO
  double ppqPos;              // ZQVST_TIME_PPQ
  double barStartPos;         // ZQVST_TIME_BARS
  double cycleStartPos;       // ZQVST_TIME_CYCLE
  double cycleEndPos;         // ZQVST_TIME_CYCLE
  LONG smpteFrameRate;        // a VstSmpteFrameRate
  LONG smpteOffset;           // 0 from the filter
  DWORD flags;                // ZQVST_TIME_*
};

// Flag bits of VstMasterTime.
constexpr DWORD ZQVST_TIME_TIMESIG = 1u << 0;
constexpr DWORD ZQVST_TIME_TEMPO = 1u << 1;
constexpr DWORD ZQVST_TIME_PPQ = 1u << 2;
constexpr DWORD ZQVST_TIME_BARS = 1u << 3;
constexpr DWORD ZQVST_TIME_CYCLE = 1u << 4;
constexpr DWORD ZQVST_TIME_TRANSPORT_CHANGED = 1u << 5;
constexpr DWORD ZQVST_TIME_TRANSPORT_PLAYING = 1u << 6;
constexpr DWORD ZQVST_TIME_CYCLE_ACTIVE = 1u << 7;
constexpr DWORD ZQVST_TIME_RECORDING = 1u << 8;

class IZqVstMaster : public IUnknown {
 public:
  using Base = IUnknown;
  static constexpr GUID kIid = ZqGuid("{0E2B8CCD-26B6-41EA-AC4E-470747C4F990}");

  // The plug-in changed parameter `index` to `value` itself (audioMasterAutomate).
  virtual HRESULT STDMETHODCALLTYPE Automate(LONG index, float value) = 0;
  // The plug-in asks for idle time (audioMasterIdle).
  virtual HRESULT STDMETHODCALLTYPE Idle() = 0;
  // The plug-in changed more than one parameter (audioMasterUpdateDisplay).
  // S_FALSE when nothing was read back.
  virtual HRESULT STDMETHODCALLTYPE UpdateDisplay() = 0;
  // The time at the present position.  S_FALSE without an active time source.
  virtual HRESULT STDMETHODCALLTYPE GetTime(VstMasterTime* time) = 0;
  // The tempo at `samplePos` in 1/10,000 beat per minute.  S_OK when not 0;
  // S_FALSE with tempo 0 without an active time source.
  virtual HRESULT STDMETHODCALLTYPE GetTempoAt(LONGLONG samplePos, LONG* tempo) = 0;
  // The plug-in's editor wants this size (audioMasterSizeWindow).
  virtual HRESULT STDMETHODCALLTYPE SizeWindow(LONG width, LONG height) = 0;
  // Gestures around a change of parameter `index` (audioMasterBeginEdit/EndEdit).
  virtual HRESULT STDMETHODCALLTYPE BeginEdit(LONG index) = 0;
  virtual HRESULT STDMETHODCALLTYPE EndEdit(LONG index) = 0;
};

inline constexpr GUID IID_IZqVstMaster = IZqVstMaster::kIid;
