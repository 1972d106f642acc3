// A parameter envelope and the host's tempo map acting on one stream at once:
// the filter cuts each sample both at the envelope's 20 ms steps and at the
// tempo change, and every block the plug-in runs sees its own position,
// tempo and parameter value.
#include <gmock/gmock.h>

#include <cstring>
#include <cstdlib>
#include <string>
#include <vector>

#include "tempo_fixture.h"
#include "tests/filter/filter_fixture.h"

namespace {

using namespace zqtest;

// The prober's exports.
struct ProberModule : PluginRecord {
  ProberModule() : PluginRecord("zqtest_prober") {}
  std::string report() const { return Call<const char*>("zqtest_prober_report", ""); }
  void clear() const { Function<void (*)()>("zqtest_prober_clear")(); }
  void arm() const { Function<void (*)()>("zqtest_prober_arm")(); }
  long long state(int slot) const { return State(slot); }
  bool ok() const { return Function<void (*)()>("zqtest_prober_arm") != nullptr; }
};

// One answer to audioMasterGetTime as the prober wrote it down.
struct SeenTime {
  double samplePos;
  double tempo;
  double ppqPos;
};

double Field(const std::string& line, const std::string& name) {
  const size_t at = line.find(" " + name + "=");
  if (at == std::string::npos) return -1.0;
  return std::strtod(line.c_str() + at + name.size() + 2, nullptr);
}

// The full answers (every field asked for, filter 0x7F00) of each probe run.
std::vector<SeenTime> TimesIn(const std::string& report) {
  const std::string prefix = "audioMasterGetTime 0 32512 -> 1 ";
  std::vector<SeenTime> seen;
  size_t at = 0;
  while ((at = report.find(prefix, at)) != std::string::npos) {
    const std::string line = report.substr(at, report.find('\n', at) - at);
    seen.push_back({Field(line, "samplePos"), Field(line, "tempo"), Field(line, "ppqPos")});
    at += prefix.size();
  }
  return seen;
}

// Frames of each block the filter sent on, one output sample per block.
std::vector<size_t> BlockFrames(const std::vector<ZqReceivedSample>& samples, size_t blockAlign) {
  std::vector<size_t> frames;
  for (const auto& s : samples) frames.push_back(s.data.size() / blockAlign);
  return frames;
}

constexpr REFERENCE_TIME kMs = 10000;

// What both tests put on the filter: parameter 0 rises linearly from 0 to
// 100 over 120 ms, and the host's map runs at 48 kHz, 960 ticks a quarter,
// 120 bpm until tick 96 (50 ms, frame 2400), then 90 bpm, from position 0.
struct RampAndTempo {
  // A fatal failure ends it early: call under ASSERT_NO_FATAL_FAILURE.
  void Attach(IBaseFilter* filter) {
    media = Query<IMediaParams>(filter);
    ASSERT_NE(media, nullptr);
    MP_ENVELOPE_SEGMENT ramp{0, 120 * kMs, 0.0f, 100.0f, MP_CURVE_LINEAR, MPF_ENVLP_STANDARD};
    ASSERT_EQ(media->AddEnvelope(0, 1, &ramp), S_OK);
    synth = Query<IMfxSoftSynth>(filter);
    ASSERT_NE(synth, nullptr);
    ASSERT_EQ(map->AddTempo(96, 90.0), S_OK);
    map->AddRef();  // the filter's, handed over with the map
    ASSERT_EQ(synth->Connect(static_cast<IZqTempoMap*>(map.Get())), S_OK);
    ASSERT_EQ(synth->OnStart(0), S_OK);
  }
  // After the graph stopped: the filter lets go of the map.
  void ExpectDetached() {
    EXPECT_EQ(synth->Disconnect(), S_OK);
    EXPECT_EQ(map->RefCount(), 1u);
  }
  ~RampAndTempo() {
    if (synth) synth->Release();
    if (media) media->Release();
  }

  IMediaParams* media = nullptr;
  IMfxSoftSynth* synth = nullptr;
  ZqComPtr<CZqVstTimeMap> map = MakeMap(48000, 960);
};

// The blocks of a first sample of 120 ms (5760 frames): steps of 20 ms from
// the start, the third cut short at the tempo change, then 20 ms steps again
// counted from there until the sample runs out.
const std::vector<size_t> kFirstSampleBlocks{960, 960, 480, 960, 960, 960, 480};

// The prober's "Arm" parameter carries the ramp; the plug-in runs its probe
// in any block that starts with the parameter at 0.5 or more (and sets it
// back to 0 itself), so the blocks probed are exactly those whose value the
// ramp has taken past half way.
TEST(AutomationTime, EnvelopeStepsAndTempoChangeCutOneStreamAndEachBlockSeesItsOwn) {
  ProberModule prober;
  ASSERT_TRUE(prober.ok());
  FilterChain chain(Register("zqtest_prober", FourCC("ZqPr")));
  ASSERT_EQ(chain.made, S_OK);
  RampAndTempo maps;
  ASSERT_NO_FATAL_FAILURE(maps.Attach(chain.filter));

  const WAVEFORMATEX format = Wave(WAVE_FORMAT_PCM, 2, 48000, 16);
  const size_t frames = 5760;  // 120 ms a sample: the whole ramp in the first
  chain.Feed(format, std::vector<BYTE>(2 * frames * format.nBlockAlign), ULONG(frames));
  ASSERT_EQ(chain.ConnectAll(), S_OK);
  ASSERT_EQ(chain.graph->Run(), S_OK);

  prober.clear();
  prober.arm();  // the first block is probed whatever the parameter says
  const long long processBefore = prober.state(kSlotProcessCount);
  const long long runsBefore = prober.state(17);
  ASSERT_EQ(chain.source->PushNext(), S_OK);

  EXPECT_EQ(BlockFrames(chain.sink->Samples(), format.nBlockAlign), kFirstSampleBlocks);
  EXPECT_EQ(prober.state(kSlotProcessCount) - processBefore, static_cast<long long>(kFirstSampleBlocks.size()));

  // Probed: the first block (armed by hand), then the blocks starting at 70,
  // 90 and 110 ms, where the ramp stands at 58.3, 75 and 91.7.  Those at 20,
  // 40 and 50 ms (16.7, 33.3, 41.7) must not have armed it.
  const std::vector<SeenTime> seen = TimesIn(prober.report());
  EXPECT_EQ(prober.state(17) - runsBefore, 4);
  ASSERT_EQ(seen.size(), 4u) << prober.report();

  // The time is built once per tempo segment: every block of a segment sees
  // the position, tempo and quarters of the segment's start, and the second
  // segment starts exactly where the blocks before it ended (960 + 960 + 480),
  // at 90 bpm and 0.1 quarters (50 ms at 120 bpm).
  const double positions[] = {0, 2400, 2400, 2400};
  const double tempos[] = {120, 90, 90, 90};
  const double quarters[] = {0.0, 0.1, 0.1, 0.1};
  for (size_t i = 0; i < seen.size(); ++i) {
    EXPECT_EQ(seen[i].samplePos, positions[i]) << "probe " << i;
    EXPECT_EQ(seen[i].tempo, tempos[i]) << "probe " << i;
    EXPECT_NEAR(seen[i].ppqPos, quarters[i], 1e-12) << "probe " << i;
  }

  // The next sample goes on from the end of this one: 5760 frames in, of
  // which 3360 at 90 bpm (1/32000 quarter a frame).
  chain.sink->Clear();
  prober.clear();
  prober.arm();
  ASSERT_EQ(chain.source->PushNext(), S_OK);
  const std::vector<SeenTime> next = TimesIn(prober.report());
  ASSERT_FALSE(next.empty());
  EXPECT_EQ(next[0].samplePos, 5760.0);
  EXPECT_EQ(next[0].tempo, 90.0);
  EXPECT_NEAR(next[0].ppqPos, 0.1 + 3360.0 / 32000.0, 1e-12);
  EXPECT_EQ(BlockFrames(chain.sink->Samples(), format.nBlockAlign), std::vector<size_t>(6, 960))
      << "the envelope's list stays, so blocks stay at 20 ms";

  ASSERT_EQ(chain.graph->Stop(), S_OK);
  maps.ExpectDetached();
}

// The same maps over a gain plug-in, whose output gives the value the plug-in
// held in each block: gain g = 2v, the ramp's value at the block's start.  The
// block cut at the tempo change takes the ramp's value there, 50 ms in, not
// the one of the step it cut short.
TEST(AutomationTime, EachBlockRunsAtTheRampsValueAtItsStartEvenWhenCutByTheTempo) {
  FilterChain chain(Register("zqgain", FourCC("ZqGn")));
  ASSERT_EQ(chain.made, S_OK);
  RampAndTempo maps;
  ASSERT_NO_FATAL_FAILURE(maps.Attach(chain.filter));

  const size_t frames = 5760;
  const float level = 0.25f;
  std::vector<BYTE> bytes(frames * 8);
  for (size_t i = 0; i < frames * 2; ++i) std::memcpy(&bytes[i * 4], &level, 4);
  const WAVEFORMATEX format = Wave(WAVE_FORMAT_IEEE_FLOAT, 2, 48000, 32);
  chain.Feed(format, bytes, ULONG(frames));
  ASSERT_EQ(chain.ConnectAll(), S_OK);
  ASSERT_EQ(chain.Play(), S_OK);

  const std::vector<ZqReceivedSample> blocks = chain.sink->Samples();
  const std::vector<size_t>& expected = kFirstSampleBlocks;
  ASSERT_EQ(BlockFrames(blocks, 8), expected);
  // Block starts 0, 20, 40, 50, 70, 90 and 110 ms; the ramp there is
  // 100·t/120 ms, so g = 2·t/120 ms.
  size_t start = 0;
  for (size_t b = 0; b < blocks.size(); ++b) {
    const double ms = double(start) / 48.0;
    const float gain = float(2.0 * ms / 120.0);
    for (size_t n : {size_t{0}, expected[b] - 1}) {
      float left, right;
      std::memcpy(&left, &blocks[b].data[n * 8], 4);
      std::memcpy(&right, &blocks[b].data[n * 8 + 4], 4);
      EXPECT_NEAR(left, level * gain, 1e-5) << "block " << b << " frame " << n;
      EXPECT_NEAR(right, level * gain, 1e-5) << "block " << b << " frame " << n;
    }
    start += expected[b];
  }

  ASSERT_EQ(chain.graph->Stop(), S_OK);
  maps.ExpectDetached();
}

}  // namespace
