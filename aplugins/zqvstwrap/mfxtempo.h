// The host's musical time, as a host hands it to the filter.
//
// A host that knows tempo and meter connects to the filter through
// IMfxSoftSynth, handing it one object.  The filter queries that object for
// up to four interfaces and keeps each it gets:
//
//   IZqTempoMap        tempo entries and the conversion between ticks and
//                      milliseconds
//   IZqMeterMap        meter entries and the tick of a (measure, beat, tick)
//   IZqTimeConverter   exact conversion between samples and ticks
//   IZqTimeInfoSource  a ready VstTimeInfo for a sample position
//
// Every operation returns an HRESULT; results come through out-parameters.
// A caller initialises each out-parameter to zero before the call and uses
// it whatever the status, so a map that fails reads as zeros.
//
// Threads: the four host interfaces are called by the filter on the
// streaming thread (while it builds the time of a block) and on the host's
// transport thread (OnStart, OnLoop), always under the filter's tempo lock.
// A host object must answer from either thread.
//
// ZqVstWrapTimeRecord is the time of the present block as the filter keeps
// it: written by CMFXTempo::BuildTimeInfo on the streaming thread, read
// without a lock by the plug-in's audioMasterGetTime on the same thread.
#pragma once

#include "aplugins/zqvstwrap/vst2abi.h"
#include "kernel/audio/waveformat_types.h"
#include "kernel/com/unknown.h"
#include "base/types.h"

// ---------------------------------------------------------------------------
// The time record of one block.

struct ZqVstWrapTimeRecord {
  DWORD flags;              // ZQTIME_* validity bits
  double tempo;             // beats a minute, 120.0 by default
  LONG numerator;           // 4 by default
  LONG denominator;         // 4 by default
  double samplePos;         // samples since start, loops taken out
  double sampleRate;        // from the time information source
  double ppqPos;            // quarters since start
  double barStartPos;       // quarters
  double cycleStartPos;     // quarters
  double cycleEndPos;       // quarters
  LONG samplesToNextClock;  //
  LONG frameRate;           // a VstSmpteFrameRate
  DWORD transport;          // low four bits: changed, playing, cycle active, recording
};

// Bits of ZqVstWrapTimeRecord::flags, which are also the bits of the mask
// that asks BuildTimeInfo for items.
constexpr DWORD ZQTIME_TEMPO_VALID = 0x1;
constexpr DWORD ZQTIME_TEMPO_CHANGED = 0x2;  // tempo changed in this block
constexpr DWORD ZQTIME_METER_VALID = 0x4;
constexpr DWORD ZQTIME_METER_CHANGED = 0x8;  // meter changed in this block
constexpr DWORD ZQTIME_PPQ_VALID = 0x10;
constexpr DWORD ZQTIME_BARS_VALID = 0x20;
constexpr DWORD ZQTIME_CYCLE_VALID = 0x40;
constexpr DWORD ZQTIME_CLOCK_VALID = 0x80;
// One bit for each transport bit of ZqVstWrapTimeRecord::transport, in its order.
constexpr DWORD ZQTIME_TRANSPORT_CHANGED_VALID = 0x1000;
constexpr DWORD ZQTIME_TRANSPORT_PLAYING_VALID = 0x2000;
constexpr DWORD ZQTIME_CYCLE_ACTIVE_VALID = 0x4000;
constexpr DWORD ZQTIME_RECORDING_VALID = 0x8000;
constexpr DWORD ZQTIME_TRANSPORT_VALID = 0xF000;
constexpr DWORD ZQTIME_SMPTE_VALID = 0x10000;
// Mask only: ask the host's time information source for what it knows.
constexpr DWORD ZQTIME_ASK_SOURCE = 0x8000000;
// The mask the filter asks every block with.
constexpr DWORD ZQTIME_FILTER_MASK = 0x0801F1F5;

// Formats of ZqTimeValue.
constexpr LONG ZQTIMEFMT_SAMPLES = 2;
constexpr LONG ZQTIMEFMT_TICKS = 3;

// A time in one of the host's formats.
struct ZqTimeValue {
  LONG format;     // ZQTIMEFMT_*
  LONGLONG value;  // in units of `format`
};

// ---------------------------------------------------------------------------
// Host interfaces.

// The host's tempo map.  Ticks count from the start of the project; tempo
// entries are ordered by tick, the first at tick 0.
class IZqTempoMap : public IUnknown {
 public:
  using Base = IUnknown;
  static constexpr GUID kIid = ZqGuid("{FF76F7C3-F166-11D1-A8E0-0000A0090DAF}");

  virtual HRESULT STDMETHODCALLTYPE TicksToMsecs(LONG ticks, LONG* msecs) = 0;
  virtual HRESULT STDMETHODCALLTYPE MsecsToTicks(LONG msecs, LONG* ticks) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetTicksPerQuarterNote(LONG* ticksPerQuarter) = 0;
  // The index of the entry in force at `ticks`.
  virtual HRESULT STDMETHODCALLTYPE GetTempoIndexForTime(LONG ticks, LONG* index) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetTempoCount(LONG* count) = 0;
  // Entry `index`: its tick and its tempo in hundredths of a beat a minute.
  virtual HRESULT STDMETHODCALLTYPE GetTempoAt(LONG index, LONG* ticks, LONG* bpm100) = 0;
};

// The host's meter map.  Measures and beats count from 1; meter entries are
// ordered by measure, the first at measure 1.
class IZqMeterMap : public IUnknown {
 public:
  using Base = IUnknown;
  static constexpr GUID kIid = ZqGuid("{FF76F7C4-F166-11D1-A8E0-0000A0090DAF}");

  // (measure, beat, tick) of a tick.  The filter does not use it.
  virtual HRESULT STDMETHODCALLTYPE TicksToMbt(LONG ticks, LONG* measure, LONG* beat, LONG* tick) = 0;
  // The tick of (measure, beat, tick).
  virtual HRESULT STDMETHODCALLTYPE MbtToTicks(LONG measure, LONG beat, LONG tick, LONG* ticks) = 0;
  // The index of the entry in force at `ticks`.
  virtual HRESULT STDMETHODCALLTYPE GetMeterIndexForTime(LONG ticks, LONG* index) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetMeterCount(LONG* count) = 0;
  // Entry `index`: the measure it starts at, its numerator and the power of
  // two of its denominator (2 for a quarter).
  virtual HRESULT STDMETHODCALLTYPE GetMeterAt(LONG index, LONG* measure, LONG* numerator, LONG* denominatorPow2) = 0;
};

// Exact conversion between the host's time formats.
class IZqTimeConverter : public IUnknown {
 public:
  using Base = IUnknown;
  static constexpr GUID kIid = ZqGuid("{FF94ABA0-4DF9-4120-947D-5E303E49B81F}");

  // Converts `time` in place into `format`.
  virtual HRESULT STDMETHODCALLTYPE ConvertTime(ZqTimeValue* time, LONG format) = 0;
};

// A ready VstTimeInfo for a sample position.
class IZqTimeInfoSource : public IUnknown {
 public:
  using Base = IUnknown;
  static constexpr GUID kIid = ZqGuid("{F7C3B880-0557-44BB-8C30-3A77D5E910BA}");

  // Fills `info` for `samplePos` with at least the items of `flags` (the
  // kVst*Valid bits, transport bits in the low nibble).  `info->flags`
  // arrives holding what was valid in the previous block.  0 is success.
  virtual HRESULT STDMETHODCALLTYPE GetTimeInfo(LONGLONG samplePos, LONG flags, VstTimeInfo* info) = 0;
};

// ---------------------------------------------------------------------------
// The filter's side.

// The soft-synth interface through which a host connects its time to the
// filter and reports its transport.  Of it the filter implements connection
// and transport; it takes no events.  Runs on the host's transport thread.
class IMfxSoftSynth : public IUnknown {
 public:
  using Base = IUnknown;
  static constexpr GUID kIid = ZqGuid("{5BBDF239-3046-4DAA-8ADD-3B9373545B74}");

  // Takes the host's time interfaces from `host` and takes over the
  // caller's reference on `host`.
  virtual HRESULT STDMETHODCALLTYPE Connect(IUnknown* host) = 0;
  virtual HRESULT STDMETHODCALLTYPE Disconnect() = 0;
  // The transport started at `ticks`.
  virtual HRESULT STDMETHODCALLTYPE OnStart(LONG ticks) = 0;
  // Playback jumped back from `endTicks` to `restartTicks`.
  virtual HRESULT STDMETHODCALLTYPE OnLoop(LONG restartTicks, LONG endTicks) = 0;
  virtual HRESULT STDMETHODCALLTYPE OnStop(LONG ticks) = 0;
  // Accepted and ignored: the filter takes no events.
  virtual HRESULT STDMETHODCALLTYPE OnInput(LONG_PTR a, LONG_PTR b, LONG_PTR c, LONG_PTR d) = 0;
  // Not implemented by the filter: E_NOTIMPL.
  virtual HRESULT STDMETHODCALLTYPE Unused1() = 0;
  virtual HRESULT STDMETHODCALLTYPE Unused2() = 0;
  virtual HRESULT STDMETHODCALLTYPE Unused3() = 0;
  virtual HRESULT STDMETHODCALLTYPE Unused4() = 0;
  virtual HRESULT STDMETHODCALLTYPE Unused5() = 0;
  virtual HRESULT STDMETHODCALLTYPE Unused6() = 0;
  virtual HRESULT STDMETHODCALLTYPE Unused7() = 0;
  virtual HRESULT STDMETHODCALLTYPE Unused8() = 0;
  virtual HRESULT STDMETHODCALLTYPE Unused9() = 0;
  // The filter's format: `direction` 0 input, 1 output; the 18 bytes of a
  // WAVEFORMATEX.  VFW_E_NOT_CONNECTED for another direction or a format not
  // yet set.  The same operation as IZqVstWrapProp::GetFormat.
  virtual HRESULT STDMETHODCALLTYPE GetFormat(WAVEFORMATEX* format, LONG direction) = 0;
};

inline constexpr GUID IID_IMfxSoftSynth = IMfxSoftSynth::kIid;
inline constexpr GUID IID_IZqTempoMap = IZqTempoMap::kIid;
inline constexpr GUID IID_IZqMeterMap = IZqMeterMap::kIid;
inline constexpr GUID IID_IZqTimeConverter = IZqTimeConverter::kIid;
inline constexpr GUID IID_IZqTimeInfoSource = IZqTimeInfoSource::kIid;
