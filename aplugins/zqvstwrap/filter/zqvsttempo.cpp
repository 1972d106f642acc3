// CMFXTempo: connection, transport and the time of each block.
#include "aplugins/zqvstwrap/filter/zqvsttempo.h"

#include <cstring>
#include <type_traits>

#include "base/status.h"

namespace {

constexpr double kDefaultTempo = 120.0;
constexpr LONG kDefaultTempoAt = 1200000;  // 120 beats a minute in 1/10,000

// Scoped hold of the tempo lock.
class TempoLock {
 public:
  explicit TempoLock(CRITICAL_SECTION* section) : m_section(section) { EnterCriticalSection(m_section); }
  ~TempoLock() { LeaveCriticalSection(m_section); }
  TempoLock(const TempoLock&) = delete;
  TempoLock& operator=(const TempoLock&) = delete;

 private:
  CRITICAL_SECTION* m_section;
};

// A host's answer may be nonsense; turning it into a 32-bit word must not be
// undefined for that.
LONG ClampToLong(double value) {
  if (!(value == value)) return 0;  // NaN
  if (value >= 2147483647.0) return 2147483647;
  if (value <= -2147483648.0) return static_cast<LONG>(-2147483647 - 1);
  return static_cast<LONG>(value);
}

LONGLONG ClampToLongLong(double value) {
  if (!(value == value)) return 0;
  if (value >= 9.2e18) return static_cast<LONGLONG>(9.2e18);
  if (value <= -9.2e18) return static_cast<LONGLONG>(-9.2e18);
  return static_cast<LONGLONG>(value);
}

LONG DenominatorOf(LONG power) { return (power >= 0 && power < 31) ? (1 << power) : 0; }

// The VST time-information flags that correspond to the record's bits, with
// the transport bits in the low nibble.  The low four bits of `mask` are
// or-ed in as well, as sources have always been asked.
LONG VstFlagsOf(DWORD bits, DWORD mask) {
  LONG flags = 0;
  if (bits & ZQTIME_TEMPO_VALID) flags |= kVstTempoValid;
  if (bits & ZQTIME_METER_VALID) flags |= kVstTimeSigValid;
  if (bits & ZQTIME_PPQ_VALID) flags |= kVstPpqPosValid;
  if (bits & ZQTIME_BARS_VALID) flags |= kVstBarsValid;
  if (bits & ZQTIME_CYCLE_VALID) flags |= kVstCyclePosValid;
  if (bits & ZQTIME_CLOCK_VALID) flags |= kVstClockValid;
  if (bits & ZQTIME_SMPTE_VALID) flags |= kVstSmpteValid;
  flags |= static_cast<LONG>((bits >> 12) & 0xF);
  flags |= static_cast<LONG>(mask & 0xF);
  return flags;
}

template <class I>
void ReleaseAndClear(I*& p) {
  if (I* q = p) {
    p = nullptr;
    q->Release();
  }
}

}  // namespace

CMFXTempo::CMFXTempo()
    : m_connected(FALSE),
      m_running(FALSE),
      m_firstBlock(FALSE),
      m_timeCursor(0),
      m_loopRestart(0),
      m_loopEnd(0),
      m_loopOffset(0),
      m_loopStartTicks(0),
      m_loopEndTicks(0),
      m_lastTempo(kDefaultTempo),
      m_lastNumerator(4),
      m_lastDenominator(4),
      m_tempoSearchValid(FALSE),
      m_meterSearchValid(FALSE),
      m_tempoIndex(0),
      m_meterIndex(0),
      m_ticksPerQuarter(0),
      m_tempoMap(nullptr),
      m_meterMap(nullptr),
      m_timeConverter(nullptr),
      m_timeInfoSource(nullptr) {
  InitializeCriticalSection(&m_tempoLock);
}

CMFXTempo::~CMFXTempo() {
  {
    TempoLock lock(&m_tempoLock);
    ReleaseHostLocked();
  }
  DeleteCriticalSection(&m_tempoLock);
}

void CMFXTempo::ReleaseHostLocked() {
  ReleaseAndClear(m_tempoMap);
  ReleaseAndClear(m_meterMap);
  ReleaseAndClear(m_timeConverter);
  ReleaseAndClear(m_timeInfoSource);
  m_connected = FALSE;
}

// ---------------------------------------------------------------------------
// IMfxSoftSynth

HRESULT CMFXTempo::Connect(IUnknown* host) {
  TempoLock lock(&m_tempoLock);
  if (host == nullptr) return E_POINTER;
  if (m_connected) return E_UNEXPECTED;
  // A host may offer any subset; what it lacks stays null and the
  // connection stands with the rest.
  auto query = [host](REFIID iid, auto** slot) {
    void* p = nullptr;
    if (FAILED(host->QueryInterface(iid, &p))) p = nullptr;
    *slot = static_cast<std::remove_pointer_t<decltype(slot)>>(p);
  };
  query(IID_IZqTempoMap, &m_tempoMap);
  query(IID_IZqMeterMap, &m_meterMap);
  query(IID_IZqTimeConverter, &m_timeConverter);
  query(IID_IZqTimeInfoSource, &m_timeInfoSource);
  host->Release();
  m_connected = TRUE;
  return S_OK;
}

HRESULT CMFXTempo::Disconnect() {
  TempoLock lock(&m_tempoLock);
  ReleaseHostLocked();
  return S_OK;
}

HRESULT CMFXTempo::OnStart(LONG ticks) {
  TempoLock lock(&m_tempoLock);
  m_ticksPerQuarter = 1;
  if (m_tempoMap) {
    LONG ticksPerQuarter = 0;
    m_tempoMap->GetTicksPerQuarterNote(&ticksPerQuarter);
    m_ticksPerQuarter = ticksPerQuarter;
  }
  m_timeCursor = TicksToSamples(ticks);
  m_lastTempo = kDefaultTempo;
  m_loopRestart = 0;
  m_loopEnd = 0;
  m_loopOffset = 0;
  m_loopStartTicks = 0;
  m_loopEndTicks = 0;
  m_running = TRUE;
  m_firstBlock = TRUE;
  m_lastNumerator = 4;
  m_lastDenominator = 4;
  m_tempoSearchValid = FALSE;
  m_meterSearchValid = FALSE;
  m_tempoIndex = 0;
  m_meterIndex = 0;
  return S_OK;
}

HRESULT CMFXTempo::OnLoop(LONG restartTicks, LONG endTicks) {
  TempoLock lock(&m_tempoLock);
  m_loopRestart = TicksToSamples(restartTicks);
  m_loopEnd = TicksToSamples(endTicks);
  m_loopOffset += m_loopEnd - m_loopRestart;
  m_loopStartTicks = restartTicks;
  m_loopEndTicks = endTicks;
  return S_OK;
}

HRESULT CMFXTempo::OnStop(LONG) {
  TempoLock lock(&m_tempoLock);
  m_running = FALSE;
  m_loopOffset = 0;
  m_tempoSearchValid = FALSE;
  m_meterSearchValid = FALSE;
  m_tempoIndex = 0;
  m_meterIndex = 0;
  return S_OK;
}

// The filter takes no events: accepted and dropped, so that a host sending
// them goes on.
HRESULT CMFXTempo::OnInput(LONG_PTR, LONG_PTR, LONG_PTR, LONG_PTR) { return S_OK; }
HRESULT CMFXTempo::Unused1() { return E_NOTIMPL; }
HRESULT CMFXTempo::Unused2() { return E_NOTIMPL; }
HRESULT CMFXTempo::Unused3() { return E_NOTIMPL; }
HRESULT CMFXTempo::Unused4() { return E_NOTIMPL; }
HRESULT CMFXTempo::Unused5() { return E_NOTIMPL; }
HRESULT CMFXTempo::Unused6() { return E_NOTIMPL; }
HRESULT CMFXTempo::Unused7() { return E_NOTIMPL; }
HRESULT CMFXTempo::Unused8() { return E_NOTIMPL; }
HRESULT CMFXTempo::Unused9() { return E_NOTIMPL; }

// ---------------------------------------------------------------------------
// Conversions

bool CMFXTempo::HasTimeSource() {
  TempoLock lock(&m_tempoLock);
  return m_tempoMap != nullptr || m_timeInfoSource != nullptr;
}

DWORD CMFXTempo::RateLocked() {
  WAVEFORMATEX format;
  memset(&format, 0, sizeof format);
  if (FAILED(GetFormat(&format, 0))) return 0;
  return format.nSamplesPerSec;
}

LONGLONG CMFXTempo::TicksToSamples(LONG ticks) {
  TempoLock lock(&m_tempoLock);
  if (m_timeConverter) {
    ZqTimeValue time = {ZQTIMEFMT_TICKS, ticks};
    if (FAILED(m_timeConverter->ConvertTime(&time, ZQTIMEFMT_SAMPLES))) return 0;
    return time.value;
  }
  if (m_tempoMap) {
    LONG msecs = 0;
    m_tempoMap->TicksToMsecs(ticks, &msecs);
    const double rate = static_cast<double>(RateLocked());
    return ClampToLongLong(rate / 1000.0 * msecs + 0.5);
  }
  return 0;
}

LONG CMFXTempo::SamplesToTicks(LONGLONG samples) {
  TempoLock lock(&m_tempoLock);
  if (m_timeConverter) {
    ZqTimeValue time = {ZQTIMEFMT_SAMPLES, samples};
    if (FAILED(m_timeConverter->ConvertTime(&time, ZQTIMEFMT_TICKS))) return 0;
    return ClampToLong(static_cast<double>(time.value));
  }
  if (m_tempoMap) {
    const DWORD rate = RateLocked();
    // Without a format there is no rate to turn samples into time.
    const LONG msecs = rate ? ClampToLong(static_cast<double>(samples) * 1000.0 / rate + 0.5) : 0;
    LONG ticks = 0;
    m_tempoMap->MsecsToTicks(msecs, &ticks);
    return ticks;
  }
  return 0;
}

LONG CMFXTempo::TicksIntoBar(LONG ticks) {
  TempoLock lock(&m_tempoLock);
  LONG numerator = 4;
  LONG denominator = 4;
  LONG barStart = 0;
  if (m_meterMap) {
    LONG index = 0;
    m_meterMap->GetMeterIndexForTime(ticks, &index);
    LONG measure = 0, power = 0;
    numerator = 0;
    m_meterMap->GetMeterAt(index, &measure, &numerator, &power);
    denominator = DenominatorOf(power);
    m_meterMap->MbtToTicks(measure, 1, 0, &barStart);
  }
  if (denominator == 0) return 0;
  const LONGLONG barLength = static_cast<LONGLONG>(m_ticksPerQuarter) * numerator * 4 / denominator;
  if (barLength <= 0) return 0;
  return static_cast<LONG>((static_cast<LONGLONG>(ticks) - barStart) % barLength);
}

LONGLONG CMFXTempo::MeterEntryPosition(LONG measure) {
  LONG ticks = 0;
  m_meterMap->MbtToTicks(measure, 1, 0, &ticks);
  return TicksToSamples(ticks);
}

// ---------------------------------------------------------------------------
// The time of a block

// Where a block lies in samples (loops taken out): its start, and its end
// as far as the maps have let it run so far.
struct CMFXTempo::BlockSpan {
  LONGLONG start;
  LONGLONG end;
  LONG distance;  // end - start
};

namespace {

// Where a search that stopped at `stored` resumes in a map of `count` entries.
LONG ResumeIndex(LONG stored, LONG count) {
  const LONG index = stored < count - 1 ? stored : count - 1;
  return index < 0 ? 0 : index;
}

// Walks the entries after `index`.  `read(next)` fetches an entry and gives
// its position in samples; `take()` makes the entry last read the one in
// force.  Entries at or before the block's start are taken, and so is one
// lying exactly at the end of the block after the first step; the first
// entry inside the block cuts it there and is named in `*cut`.  True when
// an entry cut the block.
template <class Span, class Read, class Take>
bool CutAtNextEntry(LONG index, LONG count, Span* span, LONG* cut, Read read, Take take) {
  for (LONG next = index + 1, steps = 0; next < count; ++next, ++steps) {
    const LONGLONG position = read(next);
    if (position <= span->start || (steps > 0 && position == span->end)) {
      take();
      continue;
    }
    if (position < span->end) {
      span->end = position;
      span->distance = static_cast<LONG>(position - span->start);
      *cut = next;
      return true;
    }
    break;
  }
  return false;
}

}  // namespace

bool CMFXTempo::TempoForBlock(LONG ticks, BlockSpan* span, ZqVstWrapTimeRecord* record) {
  // The entry in force at the start, then a walk over the entries that
  // follow until one lies ahead.  The first change inside the block ends
  // the block there; the stored index lets the next block start from that
  // entry without a search.
  LONG count = 0;
  m_tempoMap->GetTempoCount(&count);
  LONG index = 0;
  if (m_tempoSearchValid) {
    index = ResumeIndex(m_tempoIndex, count);
  } else {
    m_tempoMap->GetTempoIndexForTime(ticks, &index);
  }
  LONG entryTicks = 0, bpm100 = 0;
  m_tempoMap->GetTempoAt(index, &entryTicks, &bpm100);
  record->tempo = bpm100 / 100.0;
  record->flags |= ZQTIME_TEMPO_VALID;
  if (m_firstBlock || m_lastTempo != record->tempo) record->flags |= ZQTIME_TEMPO_CHANGED;
  m_lastTempo = record->tempo;

  m_tempoSearchValid = FALSE;
  m_tempoIndex = 0;
  LONG cut = 0;
  const bool stopped = CutAtNextEntry(
      index, count, span, &cut,
      [&](LONG next) {
        m_tempoMap->GetTempoAt(next, &entryTicks, &bpm100);
        return TicksToSamples(entryTicks);
      },
      [&] {
        record->tempo = bpm100 / 100.0;
        record->flags |= ZQTIME_TEMPO_VALID | ZQTIME_TEMPO_CHANGED;
        m_lastTempo = record->tempo;
      });
  if (stopped) {
    m_tempoSearchValid = TRUE;
    m_tempoIndex = cut;
  }
  return stopped;
}

bool CMFXTempo::MeterForBlock(LONG ticks, BlockSpan* span, ZqVstWrapTimeRecord* record) {
  // As the tempo; an entry's position is the start of its measure.
  LONG count = 0;
  m_meterMap->GetMeterCount(&count);
  LONG index = 0;
  if (m_meterSearchValid) {
    index = ResumeIndex(m_meterIndex, count);
  } else {
    m_meterMap->GetMeterIndexForTime(ticks, &index);
  }
  LONG measure = 0, numerator = 0, power = 0;
  m_meterMap->GetMeterAt(index, &measure, &numerator, &power);
  record->numerator = numerator;
  record->denominator = DenominatorOf(power);
  record->flags |= ZQTIME_METER_VALID;
  if (m_firstBlock || record->numerator != m_lastNumerator || record->denominator != m_lastDenominator)
    record->flags |= ZQTIME_METER_CHANGED;
  m_lastNumerator = record->numerator;
  m_lastDenominator = record->denominator;

  m_meterSearchValid = FALSE;
  m_meterIndex = 0;
  LONG cut = 0;
  const bool stopped = CutAtNextEntry(
      index, count, span, &cut,
      [&](LONG next) {
        m_meterMap->GetMeterAt(next, &measure, &numerator, &power);
        return MeterEntryPosition(measure);
      },
      [&] {
        record->numerator = numerator;
        record->denominator = DenominatorOf(power);
        record->flags |= ZQTIME_METER_VALID | ZQTIME_METER_CHANGED;
        m_lastNumerator = record->numerator;
        m_lastDenominator = record->denominator;
      });
  if (stopped) {
    m_meterSearchValid = TRUE;
    m_meterIndex = cut;
  }
  return stopped;
}

bool CMFXTempo::TimeFromSource(LONGLONG start, DWORD mask, DWORD previousFlags, ZqVstWrapTimeRecord* record) {
  VstTimeInfo info;
  memset(&info, 0, sizeof info);
  info.flags = VstFlagsOf(previousFlags, mask);
  if (m_timeInfoSource->GetTimeInfo(start, VstFlagsOf(mask, mask), &info) != 0) return false;
  record->samplePos = info.samplePos;
  record->sampleRate = info.sampleRate;
  record->tempo = info.tempo;
  record->numerator = info.timeSigNumerator;
  record->denominator = info.timeSigDenominator;
  if (mask & ZQTIME_PPQ_VALID) {
    record->ppqPos = info.ppqPos;
    record->flags |= ZQTIME_PPQ_VALID;
  }
  if (mask & ZQTIME_BARS_VALID) {
    record->barStartPos = info.barStartPos;
    record->flags |= ZQTIME_BARS_VALID;
  }
  if (mask & ZQTIME_CYCLE_VALID) {
    record->cycleStartPos = info.cycleStartPos;
    record->cycleEndPos = info.cycleEndPos;
    record->flags |= ZQTIME_CYCLE_VALID;
  }
  if (mask & ZQTIME_SMPTE_VALID) {
    record->frameRate = info.smpteFrameRate;
    record->flags |= ZQTIME_SMPTE_VALID;
  }
  if (mask & ZQTIME_CLOCK_VALID) {
    record->samplesToNextClock = info.samplesToNextClock;
    record->flags |= ZQTIME_CLOCK_VALID;
  }
  record->transport = static_cast<DWORD>(info.flags) & 0xF;
  record->flags |= ZQTIME_TRANSPORT_VALID;
  return true;
}

void CMFXTempo::TimeFromTicks(LONG ticks, DWORD mask, ZqVstWrapTimeRecord* record) {
  const double perQuarter = static_cast<double>(m_ticksPerQuarter);
  auto quarters = [perQuarter](LONGLONG t) { return perQuarter != 0 ? static_cast<double>(t) / perQuarter : 0.0; };
  if (mask & ZQTIME_PPQ_VALID) {
    record->ppqPos = quarters(ticks);
    record->flags |= ZQTIME_PPQ_VALID;
  }
  if (mask & ZQTIME_BARS_VALID) {
    record->barStartPos = quarters(static_cast<LONGLONG>(ticks) - TicksIntoBar(ticks));
    record->flags |= ZQTIME_BARS_VALID;
  }
  if (mask & ZQTIME_CYCLE_VALID) {
    record->cycleStartPos = quarters(m_loopStartTicks);
    record->cycleEndPos = quarters(m_loopEndTicks);
    record->flags |= ZQTIME_CYCLE_VALID;
  }
  if (mask & ZQTIME_CLOCK_VALID) record->samplesToNextClock = 0;
}

LONG CMFXTempo::BuildTimeInfo(LONG frames, DWORD mask, ZqVstWrapTimeRecord* record) {
  ZqVstWrapTimeRecord scratch;
  if (record == nullptr) {
    memset(&scratch, 0, sizeof scratch);
    record = &scratch;
  }
  TempoLock lock(&m_tempoLock);

  const DWORD previousFlags = record->flags;
  record->flags = 0;
  record->tempo = kDefaultTempo;
  record->numerator = 4;
  record->denominator = 4;

  const LONGLONG start = m_timeCursor - m_loopOffset;
  BlockSpan span{start, start + frames, frames};
  const LONG ticks = SamplesToTicks(start);
  const bool tempoCut = m_tempoMap && (mask & ZQTIME_TEMPO_VALID) && TempoForBlock(ticks, &span, record);
  const bool meterCut = m_meterMap && (mask & ZQTIME_METER_VALID) && MeterForBlock(ticks, &span, record);
  if (tempoCut && meterCut) {
    // The meter cut the block before the tempo entry it was going to end
    // at, which now lies beyond it: starting the next block from that entry
    // would report its tempo early, so the next block looks its tempo up
    // again.  (Keeping the stored index, as the plain order of the two
    // walks would, gives that early tempo.)
    m_tempoSearchValid = FALSE;
    m_tempoIndex = 0;
  }

  record->samplePos = static_cast<double>(start);
  // Without an answer from the source the musical position still follows
  // from the ticks.
  if ((mask & ZQTIME_ASK_SOURCE) && m_timeInfoSource && !TimeFromSource(start, mask, previousFlags, record))
    TimeFromTicks(ticks, mask, record);

  m_timeCursor += span.distance;
  m_firstBlock = FALSE;
  return span.distance;
}

LONG CMFXTempo::TempoAt(LONGLONG samplePos) {
  TempoLock lock(&m_tempoLock);
  if (m_timeInfoSource) {
    VstTimeInfo info;
    memset(&info, 0, sizeof info);
    if (m_timeInfoSource->GetTimeInfo(samplePos, kVstTempoValid, &info) == 0) return ClampToLong(info.tempo * 10000.0);
  }
  if (m_tempoMap) {
    LONG index = 0, entryTicks = 0, bpm100 = 0;
    m_tempoMap->GetTempoIndexForTime(SamplesToTicks(samplePos), &index);
    m_tempoMap->GetTempoAt(index, &entryTicks, &bpm100);
    return ClampToLong(static_cast<double>(bpm100) * 100.0);
  }
  return kDefaultTempoAt;
}

// ---------------------------------------------------------------------------
// What the plug-in sees

HRESULT CMFXTempo::MasterTime(const ZqVstWrapTimeRecord& record, VstMasterTime* time) {
  if (time == nullptr) return E_POINTER;
  if (!HasTimeSource()) return S_FALSE;
  memset(time, 0, sizeof *time);
  time->samplePos = record.samplePos;
  const DWORD flags = record.flags;
  if (flags & ZQTIME_METER_VALID) {
    time->timeSigNumerator = record.numerator;
    time->timeSigDenominator = record.denominator;
    time->flags |= ZQVST_TIME_TIMESIG;
  }
  if (flags & ZQTIME_TEMPO_VALID) {
    time->tempo = record.tempo;
    time->flags |= ZQVST_TIME_TEMPO;
  }
  if (flags & ZQTIME_PPQ_VALID) {
    time->ppqPos = record.ppqPos;
    time->flags |= ZQVST_TIME_PPQ;
  }
  if (flags & ZQTIME_BARS_VALID) {
    time->barStartPos = record.barStartPos;
    time->flags |= ZQVST_TIME_BARS;
  }
  if (flags & ZQTIME_CYCLE_VALID) {
    time->cycleStartPos = record.cycleStartPos;
    time->cycleEndPos = record.cycleEndPos;
    time->flags |= ZQVST_TIME_CYCLE;
  }
  // Each transport bit goes along only where the record says it is known.
  static constexpr DWORD kTransport[4] = {ZQVST_TIME_TRANSPORT_CHANGED, ZQVST_TIME_TRANSPORT_PLAYING,
                                          ZQVST_TIME_CYCLE_ACTIVE, ZQVST_TIME_RECORDING};
  for (int bit = 0; bit < 4; ++bit) {
    if ((flags & (ZQTIME_TRANSPORT_CHANGED_VALID << bit)) && (record.transport & (1u << bit)))
      time->flags |= kTransport[bit];
  }
  if (flags & ZQTIME_SMPTE_VALID) time->smpteFrameRate = record.frameRate;
  return S_OK;
}

HRESULT CMFXTempo::MasterTempoAt(LONGLONG samplePos, LONG* tempo) {
  if (tempo == nullptr) return E_POINTER;
  *tempo = 0;
  if (!HasTimeSource()) return S_FALSE;
  *tempo = TempoAt(samplePos);
  return *tempo != 0 ? S_OK : S_FALSE;
}
