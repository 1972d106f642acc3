// The musical time zqvst hands a plug-in's filter: tempo and meter changes
// given in seconds, turned into a host time map.
#pragma once

#include <vector>

#include "tools/zqvst/host.h"
#include "tools/zqvst/timefiles.h"

class CZqVstTimeMap;

// Ticks a quarter of the maps made here.
constexpr LONG kZqvstTicksPerQuarter = 960;

// A time map at `rate` from tempo and meter entries in seconds (in any
// order; a later entry at the same time wins).  Seconds become ticks by
// walking the tempo changes before them, 120 beats a minute until the first;
// a meter change takes effect at the first bar start at or after its time,
// bars counted in the meter before it (4/4 until the first).
bool ZqvstBuildTimeMap(const std::vector<ZqvstTempoEntry>& entries, DWORD rate, CZqVstTimeMap** map,
                       ZqvstFailure* failure);
