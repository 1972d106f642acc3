// The tempo and meter lists a host without its own maps hands to a filter.
#include <gmock/gmock.h>

#include "tempo_fixture.h"

using namespace zqtest;

namespace {

TEST(TimeMap, CreationAndEntriesRejectNonsense) {
  CZqVstTimeMap* map = nullptr;
  EXPECT_EQ(ZqVstCreateTimeMap(0, 960, &map), E_INVALIDARG);
  EXPECT_EQ(map, nullptr);
  ASSERT_EQ(ZqVstCreateTimeMap(48000, 0, &map), S_OK);
  EXPECT_EQ(map->TicksPerQuarter(), 960);
  EXPECT_EQ(map->AddTempo(0, 0.0), E_INVALIDARG);
  EXPECT_EQ(map->AddMeter(0, 4, 4), E_INVALIDARG);
  EXPECT_EQ(map->AddMeter(2, 4, 3), E_INVALIDARG);
  // Replacing the entry at a tick keeps one entry there.
  EXPECT_EQ(map->AddTempo(0, 100.0), S_OK);
  LONG count = 0, ticks = -1, bpm100 = 0;
  map->GetTempoCount(&count);
  map->GetTempoAt(0, &ticks, &bpm100);
  EXPECT_EQ(count, 1);
  EXPECT_EQ(bpm100, 10000);
  EXPECT_EQ(map->GetTempoAt(1, &ticks, &bpm100), E_INVALIDARG);
  EXPECT_EQ(map->Release(), 0u);
}

TEST(TimeMap, ConversionsAcrossTempoChanges) {
  auto map = MakeMap();
  ASSERT_EQ(map->AddTempo(1920, 60.0), S_OK);   // at 1 s
  ASSERT_EQ(map->AddTempo(3840, 240.0), S_OK);  // at 3 s
  ASSERT_EQ(map->AddTempo(960, 120.0), S_OK);   // inserted in order, no change of tempo
  struct Case {
    LONG ticks;
    LONG msecs;
    LONGLONG samples;
  };
  for (const Case& c : {Case{0, 0, 0}, Case{1, 1, 25}, Case{1920, 1000, 48000}, Case{2400, 1500, 72000},
                        Case{3840, 3000, 144000}, Case{4032, 3050, 146400}, Case{-960, -500, -24000}}) {
    LONG msecs = 0, ticks = 0;
    ASSERT_EQ(map->TicksToMsecs(c.ticks, &msecs), S_OK);
    EXPECT_EQ(msecs, c.msecs) << "tick " << c.ticks;
    ZqTimeValue time = {ZQTIMEFMT_TICKS, c.ticks};
    ASSERT_EQ(map->ConvertTime(&time, ZQTIMEFMT_SAMPLES), S_OK);
    EXPECT_EQ(time.format, ZQTIMEFMT_SAMPLES);
    EXPECT_EQ(time.value, c.samples) << "tick " << c.ticks;
    ASSERT_EQ(map->ConvertTime(&time, ZQTIMEFMT_TICKS), S_OK);
    EXPECT_EQ(time.value, c.ticks);
    if (c.ticks % 8 == 0) {  // whole milliseconds
      ASSERT_EQ(map->MsecsToTicks(c.msecs, &ticks), S_OK);
      EXPECT_EQ(ticks, c.ticks) << "msecs " << c.msecs;
    }
  }
  LONG index = -1;
  map->GetTempoIndexForTime(3839, &index);
  EXPECT_EQ(index, 2);
  map->GetTempoIndexForTime(3840, &index);
  EXPECT_EQ(index, 3);
  ZqTimeValue bad = {1, 0};
  EXPECT_EQ(map->ConvertTime(&bad, ZQTIMEFMT_TICKS), E_INVALIDARG);
}

TEST(TimeMap, MeasuresAcrossMeterChanges) {
  auto map = MakeMap();
  ASSERT_EQ(map->AddMeter(3, 3, 4), S_OK);  // 4/4 bars before: starts at 7680
  ASSERT_EQ(map->AddMeter(5, 6, 8), S_OK);  // starts at 7680 + 2 * 2880
  ASSERT_EQ(map->AddMeter(3, 3, 4), S_OK);  // the same entry again
  LONG count = 0;
  map->GetMeterCount(&count);
  EXPECT_EQ(count, 3);

  struct Case {
    LONG measure, beat, tick, ticks;
  };
  for (const Case& c : {Case{2, 4, 959, 7679}, Case{3, 1, 0, 7680}, Case{4, 3, 0, 10560 + 1920},
                        Case{5, 2, 10, 13440 + 480 + 10}, Case{7, 6, 0, 13440 + 2 * 2880 + 2400}}) {
    LONG ticks = -1;
    ASSERT_EQ(map->MbtToTicks(c.measure, c.beat, c.tick, &ticks), S_OK);
    EXPECT_EQ(ticks, c.ticks) << c.measure << ":" << c.beat << ":" << c.tick;
    LONG measure = 0, beat = 0, tick = 0;
    ASSERT_EQ(map->TicksToMbt(c.ticks, &measure, &beat, &tick), S_OK);
    EXPECT_EQ(measure, c.measure) << "tick " << c.ticks;
    EXPECT_EQ(beat, c.beat) << "tick " << c.ticks;
    EXPECT_EQ(tick, c.tick) << "tick " << c.ticks;
  }
  LONG index = -1;
  map->GetMeterIndexForTime(13439, &index);
  EXPECT_EQ(index, 1);
  map->GetMeterIndexForTime(13440, &index);
  EXPECT_EQ(index, 2);
}

}  // namespace
