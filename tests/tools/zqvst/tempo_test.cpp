// The time map zqvst builds from tempo and meter changes in seconds.
#include <gtest/gtest.h>

#include "aplugins/zqvstwrap/filter/zqvsttimemap.h"
#include "tools/zqvst/tempo.h"

namespace {

ZqvstTempoEntry Tempo(double time, double bpm) { return {time, false, bpm, 0, 0, 1}; }
ZqvstTempoEntry Meter(double time, int n, int d) { return {time, true, 0.0, n, d, 1}; }

struct Case {
  std::vector<ZqvstTempoEntry> entries;
  std::vector<std::vector<LONG>> tempos;  // ticks, bpm * 100
  std::vector<std::vector<LONG>> meters;  // measure, numerator, power of two of the denominator
};

// Tempo changes are placed in ticks through the tempo changes before them
// (120 beats a minute until the first); a meter change waits for the next
// bar start.
TEST(ZqvstTimeMap, ChangesInSecondsLandAtTheirTicksAndBars) {
  const Case cases[] = {
      // Given out of order: 1 s at 90 bpm is 1.5 quarters, then 0.5 s at 120
      // one more.
      {{Tempo(1.5, 60), Tempo(0, 90), Tempo(1.0, 120)}, {{0, 9000}, {1440, 12000}, {2400, 6000}}, {{1, 4, 2}}},
      {{Tempo(0.25, 100)}, {{0, 12000}, {480, 10000}}, {{1, 4, 2}}},
      // 120 bpm: a 4/4 bar is 2 s.  3/4 asked at 1.1 s starts with bar 2
      // (2 s); 6/8 asked at exactly 3.5 s, the start of bar 3, starts there;
      // 7/8 at 3.6 s waits for bar 4 (3.5 s + 1.5 s).
      {{Meter(1.1, 3, 4), Meter(3.5, 6, 8), Meter(3.6, 7, 8)},
       {{0, 12000}},
       {{1, 4, 2}, {2, 3, 2}, {3, 6, 3}, {4, 7, 3}}},
      // A meter at the start replaces the default.
      {{Meter(0, 3, 4), Tempo(0, 90)}, {{0, 9000}}, {{1, 3, 2}}},
  };
  for (const Case& c : cases) {
    CZqVstTimeMap* map = nullptr;
    ZqvstFailure failure;
    ASSERT_TRUE(ZqvstBuildTimeMap(c.entries, 48000, &map, &failure)) << failure.what;
    std::vector<std::vector<LONG>> tempos, meters;
    LONG count = 0, a = 0, b = 0, d = 0;
    map->GetTempoCount(&count);
    for (LONG i = 0; i < count && map->GetTempoAt(i, &a, &b) == S_OK; ++i) tempos.push_back({a, b});
    map->GetMeterCount(&count);
    for (LONG i = 0; i < count && map->GetMeterAt(i, &a, &b, &d) == S_OK; ++i) meters.push_back({a, b, d});
    EXPECT_EQ(tempos, c.tempos);
    EXPECT_EQ(meters, c.meters);
    map->Release();
  }
}

TEST(ZqvstTimeMap, TheMapRunsAtTheRateOfTheStream) {
  CZqVstTimeMap* map = nullptr;
  ZqvstFailure failure;
  ASSERT_TRUE(ZqvstBuildTimeMap({Tempo(0, 90), Tempo(1.0, 60)}, 44100, &map, &failure));
  VstTimeInfo info{};
  ASSERT_EQ(map->GetTimeInfo(44100 * 2, 0, &info), S_OK);
  EXPECT_DOUBLE_EQ(info.tempo, 60.0);
  EXPECT_NEAR(info.ppqPos, 2.5, 1e-9);
  map->Release();
}

}  // namespace
