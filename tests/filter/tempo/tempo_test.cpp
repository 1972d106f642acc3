// The filter's musical time: connection, cutting samples at tempo and meter
// changes, loops, the time information source, and what a plug-in sees.
#include <gmock/gmock.h>

#include <string>

#include "tempo_fixture.h"

using namespace zqtest;
using ::testing::ElementsAre;

namespace {

// At 48 kHz, 960 ticks a quarter and 120 beats a minute a tick is 25 samples.
constexpr LONG kSamplesPerTick = 25;

TEST(TempoConnection, ConnectTakesTheHostsInterfacesAndItsReference) {
  TempoHost host;
  EXPECT_EQ(host.Connect(nullptr), E_POINTER);
  EXPECT_FALSE(host.HasTimeSource());

  auto map = MakeMap();
  ASSERT_EQ(host.ConnectKeeping(map.Get()), S_OK);
  // Four interfaces held; the reference handed over is gone.
  EXPECT_EQ(map->RefCount(), 5u);
  EXPECT_TRUE(host.HasTimeSource());
  EXPECT_EQ(host.ConnectKeeping(map.Get()), E_UNEXPECTED);
  map->Release();  // the reference the refused Connect did not take
  EXPECT_EQ(host.Disconnect(), S_OK);
  EXPECT_EQ(map->RefCount(), 1u);
  EXPECT_FALSE(host.HasTimeSource());

  // A host with a meter map only is connected but gives no time source;
  // the plug-in is told there is no time.
  map->SetInterfaces(ZQTIMEMAP_METER_MAP);
  ASSERT_EQ(host.ConnectKeeping(map.Get()), S_OK);
  EXPECT_EQ(map->RefCount(), 2u);
  EXPECT_FALSE(host.HasTimeSource());
  VstMasterTime time{};
  EXPECT_EQ(host.MasterTime(host.record, &time), S_FALSE);
  LONG tempo = -1;
  EXPECT_EQ(host.MasterTempoAt(0, &tempo), S_FALSE);
  EXPECT_EQ(tempo, 0);
  EXPECT_EQ(host.Disconnect(), S_OK);
}

TEST(TempoConnection, DestroyingTheFilterReleasesTheHost) {
  auto map = MakeMap();
  {
    TempoHost host;
    ASSERT_EQ(host.ConnectKeeping(map.Get()), S_OK);
  }
  EXPECT_EQ(map->RefCount(), 1u);
}

TEST(TempoBlocks, WithoutATimeSourceSamplesGoThroughWhole) {
  TempoHost host;
  host.OnStart(960);
  EXPECT_EQ(host.Build(512), 512);
  EXPECT_EQ(host.record.flags, 0u);
  EXPECT_EQ(host.record.tempo, 120.0);
  EXPECT_EQ(host.TempoAt(0), 1200000);
  EXPECT_EQ(host.TicksToSamples(960), 0);
  VstMasterTime time{};
  EXPECT_EQ(host.MasterTime(host.record, &time), S_FALSE);
}

TEST(TempoBlocks, TempoChangeInsideASampleCutsItThere) {
  TempoHost host;
  auto map = MakeMap();
  ASSERT_EQ(map->AddTempo(4, 90.0), S_OK);  // 100 frames in
  ASSERT_EQ(host.ConnectKeeping(map.Get()), S_OK);
  host.OnStart(0);

  auto pieces = CutSample(host, 512);
  ASSERT_THAT(FramesOf(pieces), ElementsAre(100, 412));
  EXPECT_EQ(pieces[0].record.tempo, 120.0);
  EXPECT_EQ(pieces[0].record.samplePos, 0.0);
  EXPECT_EQ(pieces[1].record.tempo, 90.0);
  EXPECT_EQ(pieces[1].record.samplePos, 100.0);
  EXPECT_TRUE(pieces[1].record.flags & ZQTIME_TEMPO_CHANGED);
  EXPECT_FALSE(pieces[1].record.flags & ZQTIME_METER_CHANGED);

  // The next sample runs whole at the new tempo, no longer changed.
  pieces = CutSample(host, 512);
  ASSERT_THAT(FramesOf(pieces), ElementsAre(512));
  EXPECT_EQ(pieces[0].record.tempo, 90.0);
  EXPECT_EQ(pieces[0].record.samplePos, 512.0);
  EXPECT_EQ(pieces[0].record.flags & (ZQTIME_TEMPO_CHANGED | ZQTIME_METER_CHANGED), 0u);

  // Without the converter the map's milliseconds place the change: 4 ticks
  // are 2 ms, 96 frames at the input format's rate.
  host.Disconnect();
  map->SetInterfaces(ZQTIMEMAP_TEMPO_MAP | ZQTIMEMAP_METER_MAP);
  ASSERT_EQ(host.ConnectKeeping(map.Get()), S_OK);
  host.OnStart(0);
  EXPECT_THAT(FramesOf(CutSample(host, 512)), ElementsAre(96, 416));
  host.Disconnect();
}

TEST(TempoBlocks, FirstBlockAfterStartAlwaysReportsTempoAndMeterChanged) {
  TempoHost host;
  auto map = MakeMap();  // 120 and 4/4 throughout, the values assumed before
  ASSERT_EQ(host.ConnectKeeping(map.Get()), S_OK);
  const DWORD changed = ZQTIME_TEMPO_CHANGED | ZQTIME_METER_CHANGED;
  for (int start = 0; start < 2; ++start) {
    host.OnStart(start * 960);
    host.Build(256);
    EXPECT_EQ(host.record.flags & changed, changed) << "start " << start;
    EXPECT_EQ(host.record.flags & (ZQTIME_TEMPO_VALID | ZQTIME_METER_VALID), ZQTIME_TEMPO_VALID | ZQTIME_METER_VALID);
    EXPECT_EQ(host.record.samplePos, start * 960.0 * kSamplesPerTick);
    host.Build(256);
    EXPECT_EQ(host.record.flags & changed, 0u) << "start " << start;
    host.OnStop(0);
  }
  host.Disconnect();
}

TEST(TempoBlocks, TempoAndMeterChangesAtDifferentPlacesInOneSample) {
  TempoHost host;
  auto map = MakeMap();
  ASSERT_EQ(map->AddMeter(2, 3, 4), S_OK);      // tick 3840
  ASSERT_EQ(map->AddTempo(3848, 90.0), S_OK);   // 200 frames later
  ASSERT_EQ(map->AddTempo(3856, 150.0), S_OK);  // 8 ticks at 90: 266.67 frames later
  ASSERT_EQ(host.ConnectKeeping(map.Get()), S_OK);
  host.OnStart(3836);  // 100 frames before the meter change

  auto pieces = CutSample(host, 1024);
  ASSERT_THAT(FramesOf(pieces), ElementsAre(100, 200, 267, 457));
  EXPECT_EQ(pieces[0].record.numerator, 4);
  EXPECT_EQ(pieces[1].record.numerator, 3);
  EXPECT_TRUE(pieces[1].record.flags & ZQTIME_METER_CHANGED);
  // The tempo ahead is not reported before its time.
  EXPECT_EQ(pieces[1].record.tempo, 120.0);
  EXPECT_FALSE(pieces[1].record.flags & ZQTIME_TEMPO_CHANGED);
  EXPECT_EQ(pieces[2].record.tempo, 90.0);
  EXPECT_TRUE(pieces[2].record.flags & ZQTIME_TEMPO_CHANGED);
  EXPECT_FALSE(pieces[2].record.flags & ZQTIME_METER_CHANGED);
  EXPECT_EQ(pieces[3].record.tempo, 150.0);
  EXPECT_EQ(pieces[3].record.samplePos, 96000.0 + 467);

  // Starting past all changes, the ones behind are taken at once.
  host.OnStart(7680);
  host.Build(64);
  EXPECT_EQ(host.record.tempo, 150.0);
  EXPECT_EQ(host.record.numerator, 3);
  host.Disconnect();
}

TEST(TempoBlocks, LoopTakesThePositionBackWhileTheCursorRuns) {
  TempoHost host;
  host.rate = 44100;
  auto map = MakeMap(44100);  // 1920 ticks are one second
  map->SetInfoFailure(E_FAIL);
  ASSERT_EQ(host.ConnectKeeping(map.Get()), S_OK);
  host.OnStart(0);
  host.Build(30000);
  host.Build(30000);
  EXPECT_EQ(host.record.samplePos, 30000.0);

  ASSERT_EQ(host.OnLoop(1920, 3840), S_OK);  // 44,100 samples
  host.Build(1000);
  EXPECT_EQ(host.record.samplePos, 60000.0 - 44100);
  EXPECT_EQ(host.record.cycleStartPos, 2.0);
  EXPECT_EQ(host.record.cycleEndPos, 4.0);
  host.Build(1000);
  EXPECT_EQ(host.record.samplePos, 61000.0 - 44100);
  host.Build(44100);  // round the loop once more
  ASSERT_EQ(host.OnLoop(1920, 3840), S_OK);  // loops add up
  host.Build(1000);
  EXPECT_EQ(host.record.samplePos, 106100.0 - 2 * 44100);

  // Stop forgets the loops but not the cursor.
  host.OnStop(0);
  host.Build(1000);
  EXPECT_EQ(host.record.samplePos, 107100.0);
  host.Disconnect();
}

TEST(TempoSource, FailingSourceLeavesThePositionToTheTicks) {
  TempoHost host;
  auto map = MakeMap();
  ASSERT_EQ(map->AddMeter(1, 3, 4), S_OK);
  map->SetInfoFailure(E_FAIL);
  ASSERT_EQ(host.ConnectKeeping(map.Get()), S_OK);
  host.OnStart(5280);  // 5.5 quarters: bar 2 of 3/4 began at 3 quarters
  host.record.samplesToNextClock = 77;
  host.Build(64);
  const auto& r = host.record;
  EXPECT_EQ(r.samplePos, 5280.0 * kSamplesPerTick);
  EXPECT_EQ(r.ppqPos, 5.5);
  EXPECT_EQ(r.barStartPos, 3.0);
  EXPECT_EQ(r.samplesToNextClock, 0);
  const DWORD valid = ZQTIME_PPQ_VALID | ZQTIME_BARS_VALID | ZQTIME_CYCLE_VALID;
  EXPECT_EQ(r.flags & valid, valid);
  EXPECT_EQ(r.flags & (ZQTIME_CLOCK_VALID | ZQTIME_TRANSPORT_VALID | ZQTIME_SMPTE_VALID), 0u);

  // The same host answering: its values and its transport.
  map->SetInfoFailure(S_OK);
  map->SetTransport(kVstTransportPlaying);
  map->SetCycle(960, 1920);
  host.Build(64);
  EXPECT_EQ(r.samplePos, 5280.0 * kSamplesPerTick + 64);
  EXPECT_EQ(r.sampleRate, 48000.0);
  EXPECT_DOUBLE_EQ(r.ppqPos, 5.5 + 64.0 / 24000);
  EXPECT_EQ(r.barStartPos, 3.0);
  EXPECT_EQ(r.cycleStartPos, 1.0);
  EXPECT_EQ(r.cycleEndPos, 2.0);
  EXPECT_EQ(r.transport, static_cast<DWORD>(kVstTransportPlaying));
  EXPECT_EQ(r.flags & (valid | ZQTIME_CLOCK_VALID | ZQTIME_TRANSPORT_VALID), valid | ZQTIME_CLOCK_VALID | ZQTIME_TRANSPORT_VALID);

  host.Disconnect();
}

TEST(TempoSource, SourceIsAskedInVstTermsWithThePreviousValidity) {
  TempoHost host;
  auto* source = new RecordingSource;
  source->answer.samplePos = 1234;
  source->answer.sampleRate = 44100;
  source->answer.tempo = 99.5;
  source->answer.timeSigNumerator = 7;
  source->answer.timeSigDenominator = 8;
  source->answer.smpteFrameRate = kVstSmpte25fps;
  source->answer.flags = kVstTransportPlaying | kVstTransportRecording;
  ASSERT_EQ(host.ConnectKeeping(source), S_OK);
  EXPECT_TRUE(host.HasTimeSource());  // a source alone is one
  host.OnStart(0);
  host.Build(128);
  host.Build(128);
  ASSERT_EQ(source->calls.size(), 2u);
  // Tempo, meter, quarters, bars, cycle, clock, SMPTE and the transport.
  EXPECT_EQ(source->calls[0].flags, 0xFE0F);
  EXPECT_EQ(source->calls[0].samplePos, 0);
  EXPECT_EQ(source->calls[0].flagsIn, 0x5);
  // What the first answer made valid comes back in the second question.
  EXPECT_EQ(source->calls[1].flagsIn, kVstPpqPosValid | kVstBarsValid | kVstCyclePosValid | kVstSmpteValid |
                                          kVstClockValid | 0xF);
  EXPECT_EQ(source->calls[1].samplePos, 128);

  VstMasterTime time{};
  ASSERT_EQ(host.MasterTime(host.record, &time), S_OK);
  EXPECT_EQ(time.samplePos, 1234.0);
  EXPECT_EQ(time.smpteFrameRate, kVstSmpte25fps);
  EXPECT_EQ(time.flags & (ZQVST_TIME_TRANSPORT_PLAYING | ZQVST_TIME_RECORDING | ZQVST_TIME_TRANSPORT_CHANGED),
            ZQVST_TIME_TRANSPORT_PLAYING | ZQVST_TIME_RECORDING);
  EXPECT_EQ(host.TempoAt(0), 995000);
  host.Disconnect();
  EXPECT_EQ(source->Release(), 0u);
}

TEST(TempoSource, TempoAtFollowsTheSourceTheMapOrTheDefault) {
  TempoHost host;
  auto map = MakeMap();
  ASSERT_EQ(map->AddTempo(1920, 90.0), S_OK);  // one second in
  ASSERT_EQ(host.ConnectKeeping(map.Get()), S_OK);
  LONG tempo = 0;
  EXPECT_EQ(host.MasterTempoAt(47999, &tempo), S_OK);
  EXPECT_EQ(tempo, 1200000);
  EXPECT_EQ(host.MasterTempoAt(48000, &tempo), S_OK);
  EXPECT_EQ(tempo, 900000);
  // A source with nothing to say leaves the answer to the map.
  map->SetInfoFailure(E_FAIL);
  EXPECT_EQ(host.TempoAt(48000), 900000);
  EXPECT_EQ(host.TempoAt(0), 1200000);
  host.Disconnect();
  map->SetInterfaces(ZQTIMEMAP_TEMPO_MAP);
  ASSERT_EQ(host.ConnectKeeping(map.Get()), S_OK);
  EXPECT_EQ(host.TempoAt(60000), 900000);
  host.Disconnect();
  EXPECT_EQ(host.TempoAt(60000), 1200000);
}

TEST(TempoConversions, TicksAndSamplesAcrossSeveralTempoChanges) {
  TempoHost host;
  auto map = MakeMap();
  ASSERT_EQ(map->AddTempo(1920, 60.0), S_OK);   // at 1 s
  ASSERT_EQ(map->AddTempo(3840, 240.0), S_OK);  // at 3 s
  const LONG ticks[] = {0, 960, 1920, 2880, 3840, 4800};
  const LONGLONG samples[] = {0, 24000, 48000, 96000, 144000, 156000};

  // Through the converter and through the tempo map's milliseconds alike.
  for (DWORD interfaces : {ZQTIMEMAP_ALL, ZQTIMEMAP_TEMPO_MAP}) {
    map->SetInterfaces(interfaces);
    ASSERT_EQ(host.ConnectKeeping(map.Get()), S_OK);
    for (size_t i = 0; i < std::size(ticks); ++i) {
      EXPECT_EQ(host.TicksToSamples(ticks[i]), samples[i]) << "interfaces " << interfaces << " tick " << ticks[i];
      EXPECT_EQ(host.SamplesToTicks(samples[i]), ticks[i]) << "interfaces " << interfaces << " tick " << ticks[i];
    }
    host.Disconnect();
  }

  // The converter is exact to the tick everywhere.
  map->SetInterfaces(ZQTIMEMAP_ALL);
  ASSERT_EQ(host.ConnectKeeping(map.Get()), S_OK);
  for (LONG t = 0; t < 6000; t += 7) ASSERT_EQ(host.SamplesToTicks(host.TicksToSamples(t)), t);
  host.Disconnect();

  // Without a format there is no rate: the map's milliseconds give nothing.
  map->SetInterfaces(ZQTIMEMAP_TEMPO_MAP);
  ASSERT_EQ(host.ConnectKeeping(map.Get()), S_OK);
  host.rate = 0;
  EXPECT_EQ(host.TicksToSamples(1920), 0);
  EXPECT_EQ(host.SamplesToTicks(48000), 0);
  host.Disconnect();
}

TEST(TempoConversions, TicksIntoBarFollowsMeterChanges) {
  TempoHost host;
  host.OnStart(0);  // one tick a quarter without a tempo map
  EXPECT_EQ(host.TicksIntoBar(9), 1);  // 4/4 from 0 without a meter map

  auto map = MakeMap();
  ASSERT_EQ(map->AddMeter(2, 3, 4), S_OK);  // from tick 3840, 2880 ticks a bar
  ASSERT_EQ(map->AddMeter(4, 6, 8), S_OK);  // from tick 9600, 2880 ticks a bar
  ASSERT_EQ(host.ConnectKeeping(map.Get()), S_OK);
  host.OnStart(0);
  EXPECT_EQ(host.TicksIntoBar(3839), 3839);
  EXPECT_EQ(host.TicksIntoBar(3840 + 2880 + 5), 5);
  EXPECT_EQ(host.TicksIntoBar(9600 + 2880 + 1440), 1440);
  host.Disconnect();
}

TEST(TempoHostile, FailingMapsNeitherStallNorCorruptTheStream) {
  TempoHost host;
  auto* maps = new FailingMaps;
  ASSERT_EQ(host.ConnectKeeping(maps), S_OK);
  ASSERT_TRUE(host.HasTimeSource());
  host.OnStart(100);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(host.Build(512), 512);
  EXPECT_EQ(host.record.samplePos, 1024.0);
  EXPECT_EQ(host.TicksIntoBar(1000), 0);
  LONG tempo = -1;
  EXPECT_EQ(host.MasterTempoAt(0, &tempo), S_FALSE);
  EXPECT_EQ(tempo, 0);
  host.Disconnect();
  EXPECT_EQ(maps->Release(), 0u);
}

}  // namespace
