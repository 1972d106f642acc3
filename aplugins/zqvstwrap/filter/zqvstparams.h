// CZqPlugInParams: a plug-in's parameters presented through the media
// parameter interfaces, with a cached value per parameter, timed envelopes
// run in step with the stream, capture by the user, and the host's
// user-interface callback.
//
// Three value forms exist.  The plug-in's own form is a normalised float from
// 0 to 1.  The outward form (MP_DATA) depends on the parameter's kind: 0..100
// for a continuous parameter, 0 or 1 for a switch, the plug-in's integer range
// for a stepped one.  outward = min + normalised * (max - min).
//
// The class is a base of the filter.  The filter builds the parameter tables
// (ZqVstBuildParamTables), hands them to InitParams, links the effect with
// SetParamEffect (not counted: the filter owns its reference) and implements
// IUnknown for the three interfaces.  The filter's Receive calls
// SetSampleTimes and then UpdateEnvelopes for each chunk; when a change is
// reported it reads GetAllNormalizedParams and calls
// PushChangedParamsToEffect.
//
// Threads and the lock: everything on the tables happens under the parameter
// lock (m_paramLock, recursive).  The streaming thread holds it inside
// UpdateEnvelopes, a user-interface thread for each single access.  Calls into
// the effect and to the host's callback are made outside it, so SetParam and
// the plug-in's own automation may run during a chunk; what they change
// appears at the next step.
#pragma once

#include <cstddef>

#include "aplugins/zqvstwrap/izqvsteffect.h"
#include "aplugins/zqvstwrap/mediaparams.h"
#include "kernel/list.h"
#include "base/types.h"
#include "platform/sync.h"

// Storage types of ZqVstParamInfo.
constexpr DWORD ZQVSTPARAM_STORE_INT = 0;
constexpr DWORD ZQVSTPARAM_STORE_FLOAT = 2;

// The longest step of an envelope: 200,000 units of 100 ns, 20 ms.
constexpr LONGLONG ZQVSTPARAM_MAX_STEP = 200000;

// The description of one parameter.  It begins with the MP_PARAMINFO that
// GetParamInfo hands out as it stands.
struct ZqVstParamInfo {
  MP_PARAMINFO mpi;
  DWORD automatable;       // 1 for every parameter built from a plug-in
  DWORD changeMask;        // or-ed into UpdateEnvelopes' flag when the value moves
  LONG scaleHigh;          // continuous: 100, integer: max, switch: 1
  LONG scaleLow;           // continuous: 0, integer: min, switch: 0
  const WCHAR* enumText;   // comma-separated names, or null
  DWORD storageType;       // ZQVSTPARAM_STORE_*
  DWORD storageOffset;     // running byte offset, 4 a parameter
  DWORD localised;         // when set, label and unit come from the string ids
  LONG labelStringId;      // negative: an empty text
  LONG unitStringId;
  LONG enumStringId;
};
static_assert(offsetof(ZqVstParamInfo, mpi) == 0);
static_assert(offsetof(ZqVstParamInfo, automatable) == sizeof(MP_PARAMINFO));

// An element of a parameter's envelope list: the segment, whether a step has
// already been taken in it, and a spare word.  40 bytes.
struct ZqVstEnvelopeItem {
  MP_ENVELOPE_SEGMENT segment;
  DWORD started;
  DWORD spare;
};
static_assert(sizeof(ZqVstEnvelopeItem) == 40);

// The running state of one parameter.
struct ZqVstParamState {
  tZQLIST envelope;      // in place: ZqVstEnvelopeItem elements sorted by rtStart
  float value;           // present value, outward form
  double rate;           // outward units per second; only tested for motion
  double curvature;      // likewise, the second derivative
  DWORD captureOpen;     // the user holds this parameter
  DWORD captureEnded;    // one-shot: report a change at the next step
  DWORD envelopeActive;  // the last step found a segment at the clock
  DWORD segmentIndex;    // where the last search ended; the next starts here
  DWORD mute;            // when set, no callback for this parameter (stays 0)
};
static_assert(offsetof(ZqVstParamState, envelope) == 0);

// Derives the description of one parameter from its plug-in properties.
// `properties->label` must already hold the stripped name ("Unknown" when the
// plug-in gave none).  `unitLabel` is what GetParameterLabel gave; it is read
// only for an integer parameter (null reads as empty).  `offset` is the
// storage offset to give out.
void ZqVstMakeParamInfo(const VstParamProperties* properties, const WCHAR* unitLabel, DWORD offset,
                        ZqVstParamInfo* info);

// Builds both tables of a plug-in with `count` parameters from the effect:
// the properties records kept for GetParamProperties and the descriptions.
// Both are zero-filled blocks of the kernel's allocator, freed with
// ZqVstFreeParamTables.  With `count` 0 both are null and the result S_OK.
// E_OUTOFMEMORY leaves both null.
HRESULT ZqVstBuildParamTables(IZqVstEffect* effect, LONG count, VstParamProperties** properties,
                              ZqVstParamInfo** infos);
void ZqVstFreeParamTables(VstParamProperties* properties, ZqVstParamInfo* infos);

class CZqPlugInParams : public IMediaParamInfo, public IMediaParams, public IMediaParamsSetUICallback {
 public:
  // No parameters: the tables come later through InitParams.
  CZqPlugInParams();
  // Frees the states and releases the callback.
  virtual ~CZqPlugInParams();
  CZqPlugInParams(const CZqPlugInParams&) = delete;
  CZqPlugInParams& operator=(const CZqPlugInParams&) = delete;

  // --- IMediaParamInfo ---------------------------------------------------------
  HRESULT STDMETHODCALLTYPE GetParamCount(DWORD* count) override;
  HRESULT STDMETHODCALLTYPE GetParamInfo(DWORD index, MP_PARAMINFO* info) override;
  HRESULT STDMETHODCALLTYPE GetParamText(DWORD index, WCHAR** text) override;
  HRESULT STDMETHODCALLTYPE GetNumTimeFormats(DWORD* count) override;
  // Index 0 and also index 1 answer GUID_TIME_REFERENCE; hosts rely on it.
  HRESULT STDMETHODCALLTYPE GetSupportedTimeFormat(DWORD index, GUID* format) override;
  HRESULT STDMETHODCALLTYPE GetCurrentTimeFormat(GUID* format, MP_TIMEDATA* data) override;

  // --- IMediaParams ------------------------------------------------------------
  HRESULT STDMETHODCALLTYPE GetParam(DWORD index, MP_DATA* value) override;
  // S_FALSE while streaming with this parameter's envelope active, or for the
  // present value; E_INVALIDARG outside the range.  A stored value goes to
  // the effect (when linked) and then to OnParamSetByHost.
  HRESULT STDMETHODCALLTYPE SetParam(DWORD index, MP_DATA value) override;
  // Clears the range of each new segment, then merges the segments in.
  HRESULT STDMETHODCALLTYPE AddEnvelope(DWORD index, DWORD count, MP_ENVELOPE_SEGMENT* segments) override;
  // Removes whole segments that overlap [start, end); never trims.  Index
  // 0xFFFFFFFF: every parameter, stopping at the first failure; another index
  // beyond the count is E_INVALIDARG.
  HRESULT STDMETHODCALLTYPE FlushEnvelope(DWORD index, REFERENCE_TIME start, REFERENCE_TIME end) override;
  // E_FAIL for GUID_TIME_REFERENCE (nothing stored); any other format is
  // stored with data 0.  Envelopes stay in 100 ns units whatever is stored.
  HRESULT STDMETHODCALLTYPE SetTimeFormat(GUID format, MP_TIMEDATA data) override;

  // --- IMediaParamsSetUICallback --------------------------------------------------
  HRESULT STDMETHODCALLTYPE SetUICallback(IMediaParamsUICallback* callback) override;

  // --- Set-up (filter construction) -------------------------------------------
  // Frees earlier states, resets time format, clock and factors, and makes a
  // state for each of `count` descriptions (kept, not copied: the filter owns
  // `infos`), its value the neutral value and its envelope list empty.
  // E_OUTOFMEMORY (or a list failure) leaves the count 0 and not ready.
  HRESULT InitParams(const ZqVstParamInfo* infos, DWORD count);
  // Frees the states and their envelopes; the count becomes 0.
  void FreeParams();
  BOOL IsParamsReady() const { return m_ready; }
  DWORD ParamCount() const { return m_paramCount; }
  // The effect that PullParamsFromEffect, PushChangedParamsToEffect and
  // SetParam talk to; not counted.  Null unlinks.
  void SetParamEffect(IZqVstEffect* effect) { m_paramEffect = effect; }
  // The lock, for a filter that must hold it across its own set-up.
  void LockParams() { EnterCriticalSection(&m_paramLock); }
  void UnlockParams() { LeaveCriticalSection(&m_paramLock); }

  // --- Streaming ------------------------------------------------------------------
  // Start: streaming on and the unit factors from the sample rate (a unit is
  // 100 ns).  Stop: streaming off and every envelope-active mark cleared.
  // Envelopes stay in their lists over stop and start.
  void StartParamStreaming(DWORD samplesPerSecond);
  void StopParamStreaming();
  void ClearEnvelopeState();
  BOOL IsParamStreaming() const { return m_streaming; }
  // A sample's times; the envelope clock goes to its start, so a host seeks
  // by sending samples with new times.
  void SetSampleTimes(REFERENCE_TIME start, REFERENCE_TIME stop);
  REFERENCE_TIME EnvelopeClock() const { return m_clock; }
  // For each chunk: how many of `frames` may run before the next envelope
  // step (at most 20 ms with an envelope anywhere, at least one sample);
  // advances the clock by that.  Parameters whose value moved or-in their
  // change mask into *changed (may be null).  `rate` scales the rate of
  // motion and is 1.0 from the filter.
  DWORD UpdateEnvelopes(DWORD frames, DWORD* changed, double rate);

  // --- Values in the plug-in's form ---------------------------------------------------
  // E_INVALIDARG for an index out of range, E_POINTER for null.
  HRESULT GetNormalizedParam(DWORD index, float* value);
  // Stores; S_FALSE when the value did not change.  A change is told to the
  // host's callback outside the lock.
  HRESULT SetNormalizedParam(DWORD index, float value);
  // Every parameter, into `values` (one float each).
  HRESULT GetAllNormalizedParams(float* values);
  // The user takes hold of a parameter and lets it go.  S_OK when the state
  // changed, S_FALSE when not.  While held, envelopes leave the parameter
  // alone; after release, one change is reported at the next step.
  HRESULT BeginParamCapture(DWORD index);
  HRESULT EndParamCapture(DWORD index);
  // TRUE when streaming is on and an envelope drives this parameter now.
  BOOL IsParamDrivenByEnvelope(DWORD index);

  // --- The effect -------------------------------------------------------------------
  // After a program change, a preset load or a display update: reads every
  // parameter from the effect into the cache (through StoreParamFromEffect).
  // S_FALSE when nothing moved or there are no parameters, S_OK when any
  // moved, else the failure at which it stopped.
  HRESULT PullParamsFromEffect();
  // Writes to the effect each parameter whose envelope drives it now and
  // whose value in `values` (normalised) differs from the effect's.  S_OK.
  HRESULT PushChangedParamsToEffect(const float* values);
  // A change the plug-in made itself (its own editor): lands in the cache and
  // the callback, not again in the plug-in.
  HRESULT Automate(DWORD index, float value);

 protected:
  // How PullParamsFromEffect and Automate store a value; the filter extends
  // it to mark itself dirty.  The default is SetNormalizedParam.
  virtual HRESULT StoreParamFromEffect(DWORD index, float normalized);
  // After SetParam stored a value and handed it to the effect (`effectResult`
  // is the effect's answer, or S_FALSE without an effect).  Nothing by default.
  virtual void OnParamSetByHost(DWORD index, HRESULT effectResult);

  // Fields, in their order of old.
  BOOL m_ready = FALSE;
  ZqVstParamState* m_states = nullptr;
  CRITICAL_SECTION m_paramLock;
  GUID m_timeFormat;
  MP_TIMEDATA m_timeData = 0;
  BOOL m_streaming = FALSE;
  REFERENCE_TIME m_sampleStart = 0;
  REFERENCE_TIME m_sampleStop = 0;
  REFERENCE_TIME m_clock = 0;
  LONGLONG m_maxStep = ZQVSTPARAM_MAX_STEP;
  double m_samplesPerUnit = 0;
  double m_unitsPerSample = 0;
  const ZqVstParamInfo* m_infos = nullptr;
  DWORD m_paramCount = 0;
  IMediaParamsUICallback* m_callback = nullptr;
  IZqVstEffect* m_paramEffect = nullptr;
  // The parameters whose envelope list is not empty, in no order, and their
  // count.  A parameter with an empty list is at rest (not active, not
  // moving) unless a sweep is pending, so a step need only visit these.
  DWORD* m_envelopeIndexes = nullptr;
  DWORD m_envelopeParams = 0;
  // A list became empty while its parameter may still be marked active or
  // moving: the next step visits every parameter once.
  BOOL m_sweepPending = FALSE;

 private:
  // One parameter at the clock: bit 0 in a segment (time left in *left),
  // bit 1 the value changed.
  DWORD StepParam(DWORD index, REFERENCE_TIME clock, LONGLONG* left, double rate);
  HRESULT FlushOne(DWORD index, REFERENCE_TIME start, REFERENCE_TIME end);
  void NoteListFilled(DWORD index);
  void NoteListEmptied(DWORD index);
  // The callback with a reference, or null; taken under the lock.
  IMediaParamsUICallback* TakeCallback(DWORD index);
  // The state of parameter `index`, or null beyond the count; under the lock.
  ZqVstParamState* StateAt(DWORD index) const { return index < m_paramCount ? &m_states[index] : nullptr; }
  // Opens or closes the user's hold on a parameter and tells the callback
  // (outside the lock) when that changed its state.
  HRESULT ChangeCapture(DWORD index, bool open);
};
