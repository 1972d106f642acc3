// CZqVstTimeMap: tempo and meter lists behind the host time interfaces.
#include "aplugins/zqvstwrap/filter/zqvsttimemap.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>

#include "base/status.h"

namespace {

constexpr LONG kDefaultTicksPerQuarter = 960;

LONG RoundToLong(double value) {
  if (!(value == value)) return 0;
  value = std::floor(value + 0.5);
  if (value >= 2147483647.0) return 2147483647;
  if (value <= -2147483648.0) return static_cast<LONG>(-2147483647 - 1);
  return static_cast<LONG>(value);
}

LONGLONG RoundToLongLong(double value) {
  if (!(value == value)) return 0;
  value = std::floor(value + 0.5);
  if (value >= 9.2e18) return static_cast<LONGLONG>(9.2e18);
  if (value <= -9.2e18) return static_cast<LONGLONG>(-9.2e18);
  return static_cast<LONGLONG>(value);
}

// The power of two of a denominator, -1 when it is none from 1 to 64.
LONG PowerOf(LONG denominator) {
  for (LONG power = 0; power <= 6; ++power)
    if (denominator == (1 << power)) return power;
  return -1;
}

}  // namespace

CZqVstTimeMap::CZqVstTimeMap(DWORD sampleRate, LONG ticksPerQuarter)
    : m_rate(sampleRate),
      m_ticksPerQuarter(ticksPerQuarter > 0 ? ticksPerQuarter : kDefaultTicksPerQuarter),
      m_interfaces(ZQTIMEMAP_ALL),
      m_tempos{{0, 12000}},
      m_meters{{1, 4, 2, 0}},
      m_transport(0),
      m_infoFailure(S_OK),
      m_cycle(0) {}

HRESULT ZqVstCreateTimeMap(DWORD sampleRate, LONG ticksPerQuarter, CZqVstTimeMap** map) {
  if (map == nullptr) return E_POINTER;
  *map = nullptr;
  if (sampleRate == 0 || ticksPerQuarter < 0) return E_INVALIDARG;
  *map = new (std::nothrow) CZqVstTimeMap(sampleRate, ticksPerQuarter);
  return *map ? S_OK : E_OUTOFMEMORY;
}

// ---------------------------------------------------------------------------
// Setting up

HRESULT CZqVstTimeMap::AddTempo(LONG ticks, double bpm) {
  if (ticks < 0 || !(bpm > 0.0) || bpm > 10000.0) return E_INVALIDARG;
  const Tempo entry = {ticks, std::max<LONG>(1, RoundToLong(bpm * 100.0))};
  auto at = std::lower_bound(m_tempos.begin(), m_tempos.end(), ticks,
                             [](const Tempo& t, LONG value) { return t.ticks < value; });
  if (at != m_tempos.end() && at->ticks == ticks)
    *at = entry;
  else
    m_tempos.insert(at, entry);
  return S_OK;
}

HRESULT CZqVstTimeMap::AddMeter(LONG measure, LONG numerator, LONG denominator) {
  const LONG power = PowerOf(denominator);
  if (measure < 1 || numerator < 1 || numerator > 256 || power < 0) return E_INVALIDARG;
  const Meter entry = {measure, numerator, power, 0};
  auto at = std::lower_bound(m_meters.begin(), m_meters.end(), measure,
                             [](const Meter& m, LONG value) { return m.measure < value; });
  if (at != m_meters.end() && at->measure == measure)
    *at = entry;
  else
    m_meters.insert(at, entry);
  RestartMeters();
  return S_OK;
}

void CZqVstTimeMap::SetCycle(LONG startTicks, LONG endTicks) {
  const ULONGLONG packed = static_cast<ULONGLONG>(static_cast<DWORD>(startTicks)) |
                           (static_cast<ULONGLONG>(static_cast<DWORD>(endTicks)) << 32);
  m_cycle.store(static_cast<LONGLONG>(packed));
}

LONG CZqVstTimeMap::BarTicks(const Meter& meter) const {
  return static_cast<LONG>(static_cast<LONGLONG>(m_ticksPerQuarter) * meter.numerator * 4 >> meter.denominatorPow2);
}

void CZqVstTimeMap::RestartMeters() {
  m_meters[0].startTicks = 0;
  for (size_t i = 1; i < m_meters.size(); ++i) {
    const Meter& before = m_meters[i - 1];
    m_meters[i].startTicks = before.startTicks + (m_meters[i].measure - before.measure) * BarTicks(before);
  }
}

// ---------------------------------------------------------------------------
// Exact conversions

double CZqVstTimeMap::TicksToSeconds(double ticks) const {
  auto secondsPerTick = [this](size_t i) { return 60.0 * 100.0 / (static_cast<double>(m_tempos[i].bpm100) * m_ticksPerQuarter); };
  // Before the first entry its tempo holds.
  if (ticks <= 0.0) return ticks * secondsPerTick(0);
  double seconds = 0.0;
  for (size_t i = 0; i < m_tempos.size(); ++i) {
    const bool last = i + 1 == m_tempos.size();
    const double from = m_tempos[i].ticks;
    const double to = last ? ticks : std::min<double>(ticks, m_tempos[i + 1].ticks);
    seconds += (to - from) * secondsPerTick(i);
    if (last || ticks <= m_tempos[i + 1].ticks) break;
  }
  return seconds;
}

double CZqVstTimeMap::SecondsToTicks(double seconds) const {
  double segmentStart = 0.0;  // seconds at the start of entry i
  for (size_t i = 0; i < m_tempos.size(); ++i) {
    const double bpm = m_tempos[i].bpm100 / 100.0;
    const double ticksPerSecond = bpm * m_ticksPerQuarter / 60.0;
    const bool last = i + 1 == m_tempos.size();
    const double length = last ? 0.0 : (m_tempos[i + 1].ticks - m_tempos[i].ticks) / ticksPerSecond;
    if (last || seconds < segmentStart + length) return m_tempos[i].ticks + (seconds - segmentStart) * ticksPerSecond;
    segmentStart += length;
  }
  return 0.0;
}

LONG CZqVstTimeMap::TempoIndexFor(LONG ticks) const {
  auto after = std::upper_bound(m_tempos.begin(), m_tempos.end(), ticks,
                                [](LONG value, const Tempo& t) { return value < t.ticks; });
  return after == m_tempos.begin() ? 0 : static_cast<LONG>(after - m_tempos.begin() - 1);
}

LONG CZqVstTimeMap::MeterIndexFor(LONG ticks) const {
  auto after = std::upper_bound(m_meters.begin(), m_meters.end(), ticks,
                                [](LONG value, const Meter& m) { return value < m.startTicks; });
  return after == m_meters.begin() ? 0 : static_cast<LONG>(after - m_meters.begin() - 1);
}

// ---------------------------------------------------------------------------
// IUnknown

HRESULT CZqVstTimeMap::QueryInterface(REFIID riid, void** object) {
  DWORD needed = 0;
  if (IsEqualGUID(riid, IID_IZqTempoMap))
    needed = ZQTIMEMAP_TEMPO_MAP;
  else if (IsEqualGUID(riid, IID_IZqMeterMap))
    needed = ZQTIMEMAP_METER_MAP;
  else if (IsEqualGUID(riid, IID_IZqTimeConverter))
    needed = ZQTIMEMAP_CONVERTER;
  else if (IsEqualGUID(riid, IID_IZqTimeInfoSource))
    needed = ZQTIMEMAP_INFO_SOURCE;
  if (needed != 0 && (m_interfaces & needed) == 0) {
    if (object == nullptr) return E_POINTER;
    *object = nullptr;
    return E_NOINTERFACE;
  }
  return ZqComObject::QueryInterface(riid, object);
}

// ---------------------------------------------------------------------------
// IZqTempoMap

HRESULT CZqVstTimeMap::TicksToMsecs(LONG ticks, LONG* msecs) {
  if (msecs == nullptr) return E_POINTER;
  *msecs = RoundToLong(TicksToSeconds(ticks) * 1000.0);
  return S_OK;
}

HRESULT CZqVstTimeMap::MsecsToTicks(LONG msecs, LONG* ticks) {
  if (ticks == nullptr) return E_POINTER;
  *ticks = RoundToLong(SecondsToTicks(msecs / 1000.0));
  return S_OK;
}

HRESULT CZqVstTimeMap::GetTicksPerQuarterNote(LONG* ticksPerQuarter) {
  if (ticksPerQuarter == nullptr) return E_POINTER;
  *ticksPerQuarter = m_ticksPerQuarter;
  return S_OK;
}

HRESULT CZqVstTimeMap::GetTempoIndexForTime(LONG ticks, LONG* index) {
  if (index == nullptr) return E_POINTER;
  *index = TempoIndexFor(ticks);
  return S_OK;
}

HRESULT CZqVstTimeMap::GetTempoCount(LONG* count) {
  if (count == nullptr) return E_POINTER;
  *count = static_cast<LONG>(m_tempos.size());
  return S_OK;
}

HRESULT CZqVstTimeMap::GetTempoAt(LONG index, LONG* ticks, LONG* bpm100) {
  if (ticks == nullptr || bpm100 == nullptr) return E_POINTER;
  if (index < 0 || index >= static_cast<LONG>(m_tempos.size())) return E_INVALIDARG;
  *ticks = m_tempos[index].ticks;
  *bpm100 = m_tempos[index].bpm100;
  return S_OK;
}

// ---------------------------------------------------------------------------
// IZqMeterMap

HRESULT CZqVstTimeMap::TicksToMbt(LONG ticks, LONG* measure, LONG* beat, LONG* tick) {
  if (measure == nullptr || beat == nullptr || tick == nullptr) return E_POINTER;
  if (ticks < 0) ticks = 0;
  const Meter& meter = m_meters[MeterIndexFor(ticks)];
  const LONG bar = BarTicks(meter);
  const LONG beatTicks = (m_ticksPerQuarter * 4) >> meter.denominatorPow2;
  const LONG into = ticks - meter.startTicks;
  *measure = meter.measure + (bar > 0 ? into / bar : 0);
  const LONG inBar = bar > 0 ? into % bar : 0;
  *beat = 1 + (beatTicks > 0 ? inBar / beatTicks : 0);
  *tick = beatTicks > 0 ? inBar % beatTicks : 0;
  return S_OK;
}

HRESULT CZqVstTimeMap::MbtToTicks(LONG measure, LONG beat, LONG tick, LONG* ticks) {
  if (ticks == nullptr) return E_POINTER;
  size_t i = 0;
  while (i + 1 < m_meters.size() && m_meters[i + 1].measure <= measure) ++i;
  const Meter& meter = m_meters[i];
  const LONG beatTicks = (m_ticksPerQuarter * 4) >> meter.denominatorPow2;
  const LONGLONG result = static_cast<LONGLONG>(meter.startTicks) +
                          static_cast<LONGLONG>(measure - meter.measure) * BarTicks(meter) +
                          static_cast<LONGLONG>(beat - 1) * beatTicks + tick;
  *ticks = RoundToLong(static_cast<double>(result));
  return S_OK;
}

HRESULT CZqVstTimeMap::GetMeterIndexForTime(LONG ticks, LONG* index) {
  if (index == nullptr) return E_POINTER;
  *index = MeterIndexFor(ticks);
  return S_OK;
}

HRESULT CZqVstTimeMap::GetMeterCount(LONG* count) {
  if (count == nullptr) return E_POINTER;
  *count = static_cast<LONG>(m_meters.size());
  return S_OK;
}

HRESULT CZqVstTimeMap::GetMeterAt(LONG index, LONG* measure, LONG* numerator, LONG* denominatorPow2) {
  if (measure == nullptr || numerator == nullptr || denominatorPow2 == nullptr) return E_POINTER;
  if (index < 0 || index >= static_cast<LONG>(m_meters.size())) return E_INVALIDARG;
  *measure = m_meters[index].measure;
  *numerator = m_meters[index].numerator;
  *denominatorPow2 = m_meters[index].denominatorPow2;
  return S_OK;
}

// ---------------------------------------------------------------------------
// IZqTimeConverter

HRESULT CZqVstTimeMap::ConvertTime(ZqTimeValue* time, LONG format) {
  if (time == nullptr) return E_POINTER;
  const bool known = [](LONG f) { return f == ZQTIMEFMT_SAMPLES || f == ZQTIMEFMT_TICKS; }(time->format);
  if (!known || (format != ZQTIMEFMT_SAMPLES && format != ZQTIMEFMT_TICKS)) return E_INVALIDARG;
  if (time->format == format) return S_OK;
  if (format == ZQTIMEFMT_SAMPLES)
    time->value = RoundToLongLong(TicksToSeconds(static_cast<double>(time->value)) * m_rate);
  else
    time->value = RoundToLongLong(SecondsToTicks(static_cast<double>(time->value) / m_rate));
  time->format = format;
  return S_OK;
}

// ---------------------------------------------------------------------------
// IZqTimeInfoSource

HRESULT CZqVstTimeMap::GetTimeInfo(LONGLONG samplePos, LONG, VstTimeInfo* info) {
  if (info == nullptr) return E_POINTER;
  const HRESULT failure = m_infoFailure.load();
  if (failure != S_OK) return failure;
  memset(info, 0, sizeof *info);
  info->samplePos = static_cast<double>(samplePos);
  info->sampleRate = static_cast<double>(m_rate);
  const double ticks = SecondsToTicks(static_cast<double>(samplePos) / m_rate);
  const LONG wholeTicks = RoundToLong(std::floor(ticks));
  info->tempo = m_tempos[TempoIndexFor(wholeTicks)].bpm100 / 100.0;
  info->ppqPos = ticks / m_ticksPerQuarter;
  const Meter& meter = m_meters[MeterIndexFor(wholeTicks)];
  info->timeSigNumerator = meter.numerator;
  info->timeSigDenominator = 1 << meter.denominatorPow2;
  LONG measure = 0, beat = 0, tick = 0, barStart = 0;
  TicksToMbt(wholeTicks, &measure, &beat, &tick);
  MbtToTicks(measure, 1, 0, &barStart);
  info->barStartPos = static_cast<double>(barStart) / m_ticksPerQuarter;
  info->flags = kVstTempoValid | kVstPpqPosValid | kVstBarsValid | kVstTimeSigValid;
  const ULONGLONG cycle = static_cast<ULONGLONG>(m_cycle.load());
  const LONG cycleStart = static_cast<LONG>(static_cast<DWORD>(cycle));
  const LONG cycleEnd = static_cast<LONG>(static_cast<DWORD>(cycle >> 32));
  if (cycleEnd > cycleStart) {
    info->cycleStartPos = static_cast<double>(cycleStart) / m_ticksPerQuarter;
    info->cycleEndPos = static_cast<double>(cycleEnd) / m_ticksPerQuarter;
    info->flags |= kVstCyclePosValid;
  }
  info->flags |= m_transport.load() & 0xF;
  return S_OK;
}
