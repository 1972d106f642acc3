// CZqVstTimeMap: a host's musical time for hosts that keep none of their own.
//
// A tempo list and a meter list with the four host time interfaces over
// them, ready to hand to a filter's IMfxSoftSynth::Connect:
//
//   CZqVstTimeMap* map = nullptr;
//   ZqVstCreateTimeMap(48000, 960, &map);
//   map->AddTempo(0, 90.0);
//   map->AddMeter(5, 3, 4);                 // 3/4 from measure 5
//   synth->Connect(map);                    // takes over the reference
//
// Ticks count from the start at `ticksPerQuarter` a quarter; measures and
// beats count from 1.  Without entries the map holds 120 beats a minute and
// 4/4.  Conversions are exact (in double) and rounded to the nearest tick,
// millisecond or sample.
//
// Threads: the lists are set up before the map is connected (AddTempo and
// AddMeter take no lock); the interfaces may then be called from any thread.
// The transport bits and the cycle may change at any time.
#pragma once

#include <atomic>
#include <vector>

#include "aplugins/zqvstwrap/mfxtempo.h"
#include "kernel/com/object.h"

// Which interfaces a map answers (all by default).
constexpr DWORD ZQTIMEMAP_TEMPO_MAP = 0x1;
constexpr DWORD ZQTIMEMAP_METER_MAP = 0x2;
constexpr DWORD ZQTIMEMAP_CONVERTER = 0x4;
constexpr DWORD ZQTIMEMAP_INFO_SOURCE = 0x8;
constexpr DWORD ZQTIMEMAP_ALL = 0xF;

class CZqVstTimeMap final
    : public ZqComObject<CZqVstTimeMap, IZqTempoMap, IZqMeterMap, IZqTimeConverter, IZqTimeInfoSource> {
 public:
  CZqVstTimeMap(DWORD sampleRate, LONG ticksPerQuarter);

  // Sets the tempo from `ticks` on (replacing an entry at the same tick).
  // E_INVALIDARG for a negative tick or a tempo not above 0.
  HRESULT AddTempo(LONG ticks, double bpm);
  // Sets the meter from the start of `measure` on (1-based), replacing an
  // entry at the same measure.  `denominator` is a power of two from 1 to 64.
  HRESULT AddMeter(LONG measure, LONG numerator, LONG denominator);
  // Which interfaces QueryInterface answers (ZQTIMEMAP_*).
  void SetInterfaces(DWORD interfaces) { m_interfaces = interfaces; }
  // Transport bits (kVstTransport*) reported by GetTimeInfo.
  void SetTransport(LONG bits) { m_transport.store(bits); }
  // A cycle in ticks reported by GetTimeInfo; an empty one reports none.
  void SetCycle(LONG startTicks, LONG endTicks);
  // Makes GetTimeInfo fail with `status` (0 to succeed again), as a host
  // whose source has nothing for a position does.
  void SetInfoFailure(HRESULT status) { m_infoFailure.store(status); }

  DWORD SampleRate() const { return m_rate; }
  LONG TicksPerQuarter() const { return m_ticksPerQuarter; }
  // Exact conversions, the ones the interfaces round.
  double TicksToSeconds(double ticks) const;
  double SecondsToTicks(double seconds) const;

  // IUnknown: answers the interfaces SetInterfaces allows.
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override;

  // IZqTempoMap
  HRESULT STDMETHODCALLTYPE TicksToMsecs(LONG ticks, LONG* msecs) override;
  HRESULT STDMETHODCALLTYPE MsecsToTicks(LONG msecs, LONG* ticks) override;
  HRESULT STDMETHODCALLTYPE GetTicksPerQuarterNote(LONG* ticksPerQuarter) override;
  HRESULT STDMETHODCALLTYPE GetTempoIndexForTime(LONG ticks, LONG* index) override;
  HRESULT STDMETHODCALLTYPE GetTempoCount(LONG* count) override;
  HRESULT STDMETHODCALLTYPE GetTempoAt(LONG index, LONG* ticks, LONG* bpm100) override;

  // IZqMeterMap
  HRESULT STDMETHODCALLTYPE TicksToMbt(LONG ticks, LONG* measure, LONG* beat, LONG* tick) override;
  HRESULT STDMETHODCALLTYPE MbtToTicks(LONG measure, LONG beat, LONG tick, LONG* ticks) override;
  HRESULT STDMETHODCALLTYPE GetMeterIndexForTime(LONG ticks, LONG* index) override;
  HRESULT STDMETHODCALLTYPE GetMeterCount(LONG* count) override;
  HRESULT STDMETHODCALLTYPE GetMeterAt(LONG index, LONG* measure, LONG* numerator, LONG* denominatorPow2) override;

  // IZqTimeConverter: between ZQTIMEFMT_SAMPLES and ZQTIMEFMT_TICKS;
  // E_INVALIDARG for other formats.
  HRESULT STDMETHODCALLTYPE ConvertTime(ZqTimeValue* time, LONG format) override;

  // IZqTimeInfoSource: position, rate, tempo, meter, quarters, bar start,
  // cycle and transport at `samplePos`, all marked valid.
  HRESULT STDMETHODCALLTYPE GetTimeInfo(LONGLONG samplePos, LONG flags, VstTimeInfo* info) override;

 private:
  friend class ZqComObject<CZqVstTimeMap, IZqTempoMap, IZqMeterMap, IZqTimeConverter, IZqTimeInfoSource>;
  ~CZqVstTimeMap() = default;

  struct Tempo {
    LONG ticks;
    LONG bpm100;
  };
  struct Meter {
    LONG measure;
    LONG numerator;
    LONG denominatorPow2;
    LONG startTicks;  // derived from the entries before it
  };

  LONG TempoIndexFor(LONG ticks) const;
  LONG MeterIndexFor(LONG ticks) const;
  LONG BarTicks(const Meter& meter) const;
  void RestartMeters();

  DWORD m_rate;
  LONG m_ticksPerQuarter;
  DWORD m_interfaces;
  std::vector<Tempo> m_tempos;  // ordered by tick, the first at 0
  std::vector<Meter> m_meters;  // ordered by measure, the first at 1
  std::atomic<LONG> m_transport;
  std::atomic<HRESULT> m_infoFailure;
  std::atomic<LONGLONG> m_cycle;  // start ticks in the low half, end in the high
};

// Makes a map at `sampleRate` with `ticksPerQuarter` (960 when 0), 120 beats
// a minute and 4/4.  E_INVALIDARG for a rate of 0 or a negative tick count.
HRESULT ZqVstCreateTimeMap(DWORD sampleRate, LONG ticksPerQuarter, CZqVstTimeMap** map);
