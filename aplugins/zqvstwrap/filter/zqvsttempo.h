// CMFXTempo: the filter's link to the host's musical time.
//
// A base class of the filter.  It implements IMfxSoftSynth (connection and
// transport) and, for every tempo segment of every sample, builds the time
// record a plug-in gets from audioMasterGetTime: the musical position, tempo
// and meter at the present sample, and how many frames may run before the
// tempo or meter changes (BuildTimeInfo).
//
// The derived class supplies IUnknown (the filter's non-delegating unknown)
// and GetFormat (the filter's own; the input format's rate turns the tempo
// map's milliseconds into samples).  Everything else is here.
//
// Threads and locks: the host's transport calls (Connect ... OnStop) arrive
// on its thread, BuildTimeInfo on the streaming thread, TempoAt,
// MasterTime and MasterTempoAt on whichever thread the plug-in asks from.
// The tempo lock (a recursive critical section) covers every field below; the host's
// interfaces are called only under it.  The record BuildTimeInfo writes is
// the caller's and is not covered once BuildTimeInfo returns.
#pragma once

#include "aplugins/zqvstwrap/izqvstmaster.h"
#include "aplugins/zqvstwrap/mfxtempo.h"
#include "platform/sync.h"

class CMFXTempo : public IMfxSoftSynth {
 public:
  CMFXTempo();
  CMFXTempo(const CMFXTempo&) = delete;
  CMFXTempo& operator=(const CMFXTempo&) = delete;

  // IMfxSoftSynth.  GetFormat stays with the derived class.
  //
  // Connect: E_POINTER for a null host, E_UNEXPECTED when connected already.
  // Each of the four host interfaces that `host` answers is kept (a failed
  // query leaves that one out, which is no failure), and the caller's
  // reference on `host` is released.
  HRESULT STDMETHODCALLTYPE Connect(IUnknown* host) override;
  // Releases the host's interfaces.  S_OK also when not connected.
  HRESULT STDMETHODCALLTYPE Disconnect() override;
  // Sets the time cursor to `ticks`, restarts the tempo and meter state and
  // marks the next block as the first one (its tempo and meter count as
  // changed).
  HRESULT STDMETHODCALLTYPE OnStart(LONG ticks) override;
  // Playback jumps back from `endTicks` to `restartTicks`: from now on sample
  // positions are the cursor minus the lengths of all loops passed.
  HRESULT STDMETHODCALLTYPE OnLoop(LONG restartTicks, LONG endTicks) override;
  // Stops the transport and forgets loops and the searches.  The cursor stays.
  HRESULT STDMETHODCALLTYPE OnStop(LONG ticks) override;
  HRESULT STDMETHODCALLTYPE OnInput(LONG_PTR a, LONG_PTR b, LONG_PTR c, LONG_PTR d) override;
  HRESULT STDMETHODCALLTYPE Unused1() override;
  HRESULT STDMETHODCALLTYPE Unused2() override;
  HRESULT STDMETHODCALLTYPE Unused3() override;
  HRESULT STDMETHODCALLTYPE Unused4() override;
  HRESULT STDMETHODCALLTYPE Unused5() override;
  HRESULT STDMETHODCALLTYPE Unused6() override;
  HRESULT STDMETHODCALLTYPE Unused7() override;
  HRESULT STDMETHODCALLTYPE Unused8() override;
  HRESULT STDMETHODCALLTYPE Unused9() override;

  // True when the host gave a tempo map or a time information source: only
  // then does the filter cut samples at tempo changes and answer the
  // plug-in's time requests.
  bool HasTimeSource();

  // Rewrites `record` for the next `frames` frames (ZQTIME_* bits in `mask`
  // ask for items; the filter asks with ZQTIME_FILTER_MASK), advances the
  // time cursor and returns how many frames may run before the tempo or the
  // meter changes: from 1 to `frames` for `frames` > 0, whatever the maps
  // answer, so a caller cutting a sample always gets through it.
  LONG BuildTimeInfo(LONG frames, DWORD mask, ZqVstWrapTimeRecord* record);

  // Tempo at a sample position in 1/10,000 beat a minute: from the time
  // information source, else from the tempo map, else 1,200,000 (120 BPM).
  LONG TempoAt(LONGLONG samplePos);

  // Conversions through the host's converter or else its tempo map; 0
  // without either.
  LONGLONG TicksToSamples(LONG ticks);
  LONG SamplesToTicks(LONGLONG samples);
  // Ticks since the start of the bar that holds `ticks` (4/4 from tick 0
  // without a meter map).
  LONG TicksIntoBar(LONG ticks);

  // The filter's IZqVstMaster::GetTime: `record` as the plug-in sees it.
  // S_FALSE with nothing written without a time source.
  HRESULT MasterTime(const ZqVstWrapTimeRecord& record, VstMasterTime* time);
  // The filter's IZqVstMaster::GetTempoAt: S_FALSE with 0 without a time
  // source or when the tempo is 0.
  HRESULT MasterTempoAt(LONGLONG samplePos, LONG* tempo);

 protected:
  // Releases what the host gave.  Not virtual: only the derived class
  // destroys.
  ~CMFXTempo();

 private:
  DWORD RateLocked();
  void ReleaseHostLocked();
  LONGLONG MeterEntryPosition(LONG measure);

  // The parts of BuildTimeInfo, under the tempo lock.
  struct BlockSpan;
  // Tempo (meter) in force at the block's start into `record`; true when a
  // change inside the block cut `span` short there.
  bool TempoForBlock(LONG ticks, BlockSpan* span, ZqVstWrapTimeRecord* record);
  bool MeterForBlock(LONG ticks, BlockSpan* span, ZqVstWrapTimeRecord* record);
  // The time information source's answer for `start` into `record`; false
  // (and `record` untouched) when it has none.
  bool TimeFromSource(LONGLONG start, DWORD mask, DWORD previousFlags, ZqVstWrapTimeRecord* record);
  // The musical position from the ticks alone.
  void TimeFromTicks(LONG ticks, DWORD mask, ZqVstWrapTimeRecord* record);

  CRITICAL_SECTION m_tempoLock;
  BOOL m_connected;
  BOOL m_running;
  BOOL m_firstBlock;
  LONGLONG m_timeCursor;  // samples since start in host time, loops not taken out
  LONGLONG m_loopRestart;
  LONGLONG m_loopEnd;
  LONGLONG m_loopOffset;  // sum of the lengths of the loops passed
  LONG m_loopStartTicks;
  LONG m_loopEndTicks;
  double m_lastTempo;
  LONG m_lastNumerator;
  LONG m_lastDenominator;
  BOOL m_tempoSearchValid;
  BOOL m_meterSearchValid;
  LONG m_tempoIndex;
  LONG m_meterIndex;
  LONG m_ticksPerQuarter;
  IZqTempoMap* m_tempoMap;
  IZqMeterMap* m_meterMap;
  IZqTimeConverter* m_timeConverter;
  IZqTimeInfoSource* m_timeInfoSource;
};
