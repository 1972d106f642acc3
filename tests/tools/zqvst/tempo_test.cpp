// The time map zqvst builds from tempo and meter changes in seconds.
#include <gtest/gtest.h>

#include "aplugins/zqvstwrap/filter/zqvsttimemap.h"
#include "tools/zqvst/tempo.h"

namespace {

struct MapHolder {
  CZqVstTimeMap* map = nullptr;
  ~MapHolder() {
    if (map) map->Release();
  }
};

ZqvstTempoEntry Tempo(double time, double bpm) { return {time, false, bpm, 0, 0, 1}; }
ZqvstTempoEntry Meter(double time, int n, int d) { return {time, true, 0.0, n, d, 1}; }

TEST(ZqvstTimeMap, SecondsBecomeTicksThroughTheTempoChangesBeforeThem) {
  MapHolder h;
  ZqvstFailure failure;
  // Given out of order: the builder sorts by time.
  ASSERT_TRUE(ZqvstBuildTimeMap({Tempo(1.5, 60), Tempo(0, 90), Tempo(1.0, 120)}, 48000, &h.map, &failure))
      << failure.what;
  LONG count = 0, ticks = 0, bpm100 = 0;
  ASSERT_EQ(h.map->GetTempoCount(&count), S_OK);
  ASSERT_EQ(count, 3);
  // 1 s at 90 bpm is 1.5 quarters; then 0.5 s at 120 is one more.
  const LONG expected[][2] = {{0, 9000}, {1440, 12000}, {2400, 6000}};
  for (LONG i = 0; i < 3; ++i) {
    ASSERT_EQ(h.map->GetTempoAt(i, &ticks, &bpm100), S_OK);
    EXPECT_EQ(ticks, expected[i][0]) << i;
    EXPECT_EQ(bpm100, expected[i][1]) << i;
  }
  VstTimeInfo info{};
  ASSERT_EQ(h.map->GetTimeInfo(48000 * 2, 0, &info), S_OK);
  EXPECT_DOUBLE_EQ(info.tempo, 60.0);
  EXPECT_NEAR(info.ppqPos, 3.0, 1e-9);
}

TEST(ZqvstTimeMap, WithoutATempoBeforeIt120BeatsAMinuteHold) {
  MapHolder h;
  ZqvstFailure failure;
  ASSERT_TRUE(ZqvstBuildTimeMap({Tempo(0.25, 100)}, 44100, &h.map, &failure));
  LONG ticks = 0, bpm100 = 0;
  ASSERT_EQ(h.map->GetTempoAt(1, &ticks, &bpm100), S_OK);
  EXPECT_EQ(ticks, 480);  // half a quarter at 120
  EXPECT_EQ(bpm100, 10000);
}

TEST(ZqvstTimeMap, AMeterChangeWaitsForTheNextBarStart) {
  MapHolder h;
  ZqvstFailure failure;
  // 120 bpm: a 4/4 bar is 2 s.  3/4 asked at 1.1 s starts with bar 2 (2 s);
  // 6/8 asked at exactly 3.5 s, the start of bar 3 (2 s + 1.5 s), starts
  // there; 7/8 at 3.6 s waits for bar 4 (3.5 s + 1.5 s).
  ASSERT_TRUE(ZqvstBuildTimeMap({Meter(1.1, 3, 4), Meter(3.5, 6, 8), Meter(3.6, 7, 8)}, 48000, &h.map, &failure))
      << failure.what;
  LONG count = 0;
  ASSERT_EQ(h.map->GetMeterCount(&count), S_OK);
  ASSERT_EQ(count, 4);  // 4/4 at bar 1, and the three
  const LONG expected[][3] = {{1, 4, 2}, {2, 3, 2}, {3, 6, 3}, {4, 7, 3}};
  for (LONG i = 0; i < count; ++i) {
    LONG measure = 0, numerator = 0, power = 0;
    ASSERT_EQ(h.map->GetMeterAt(i, &measure, &numerator, &power), S_OK);
    EXPECT_EQ(measure, expected[i][0]) << i;
    EXPECT_EQ(numerator, expected[i][1]) << i;
    EXPECT_EQ(power, expected[i][2]) << i;
  }
  LONG ticks = 0;
  ASSERT_EQ(h.map->MbtToTicks(4, 1, 0, &ticks), S_OK);
  EXPECT_EQ(ticks, 3840 + 2880 + 2880);  // 5 s at 120 bpm
}

TEST(ZqvstTimeMap, AMeterAtTheStartReplacesTheDefault) {
  MapHolder h;
  ZqvstFailure failure;
  ASSERT_TRUE(ZqvstBuildTimeMap({Meter(0, 3, 4), Tempo(0, 90)}, 48000, &h.map, &failure));
  LONG count = 0, measure = 0, numerator = 0, power = 0;
  ASSERT_EQ(h.map->GetMeterCount(&count), S_OK);
  EXPECT_EQ(count, 1);
  ASSERT_EQ(h.map->GetMeterAt(0, &measure, &numerator, &power), S_OK);
  EXPECT_EQ(measure, 1);
  EXPECT_EQ(numerator, 3);
}

}  // namespace
