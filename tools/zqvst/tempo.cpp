// Building a host time map from tempo and meter changes given in seconds.
#include "tools/zqvst/tempo.h"

#include <algorithm>
#include <cmath>

#include "aplugins/zqvstwrap/filter/zqvsttimemap.h"

bool ZqvstBuildTimeMap(const std::vector<ZqvstTempoEntry>& entries, DWORD rate, CZqVstTimeMap** out,
                       ZqvstFailure* failure) {
  *out = nullptr;
  std::vector<ZqvstTempoEntry> tempos, meters;
  for (const auto& e : entries) (e.isMeter ? meters : tempos).push_back(e);
  auto byTime = [](const ZqvstTempoEntry& a, const ZqvstTempoEntry& b) { return a.time < b.time; };
  std::stable_sort(tempos.begin(), tempos.end(), byTime);
  std::stable_sort(meters.begin(), meters.end(), byTime);

  // Ticks at `seconds`, walking the tempo changes before it (120 beats a
  // minute until the first).
  auto ticksAt = [&](double seconds) {
    double ticks = 0.0, time = 0.0, bpm = 120.0;
    for (const auto& t : tempos) {
      if (t.time > seconds) break;
      ticks += (t.time - time) * bpm / 60.0 * kZqvstTicksPerQuarter;
      time = t.time;
      bpm = t.bpm;
    }
    return ticks + (seconds - time) * bpm / 60.0 * kZqvstTicksPerQuarter;
  };

  CZqVstTimeMap* map = nullptr;
  HRESULT hr = ZqVstCreateTimeMap(rate, kZqvstTicksPerQuarter, &map);
  if (FAILED(hr)) {
    *failure = {"cannot make the tempo map", hr};
    return false;
  }
  for (const auto& t : tempos) {
    hr = map->AddTempo(LONG(std::llround(ticksAt(t.time))), t.bpm);
    if (FAILED(hr)) {
      *failure = {"tempo map: line " + std::to_string(t.line) + ": tempo not accepted", hr};
      map->Release();
      return false;
    }
  }
  // A meter change takes effect at the first bar start at or after its time,
  // counted in the meter in force before it.
  double barStart = 0.0;
  LONG measure = 1, numerator = 4, denominator = 4;
  for (const auto& m : meters) {
    const double bar = double(numerator) * kZqvstTicksPerQuarter * 4.0 / double(denominator);
    const double ticks = ticksAt(m.time);
    double bars = std::ceil((ticks - barStart) / bar - 1e-9);
    if (bars < 0) bars = 0;
    measure += LONG(bars);
    barStart += bars * bar;
    numerator = m.numerator;
    denominator = m.denominator;
    hr = map->AddMeter(measure, numerator, denominator);
    if (FAILED(hr)) {
      *failure = {"tempo map: line " + std::to_string(m.line) + ": meter not accepted", hr};
      map->Release();
      return false;
    }
  }
  *out = map;
  return true;
}

