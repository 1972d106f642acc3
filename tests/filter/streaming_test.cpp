// The audio path of the plug-in filter, exact to the frame: a pure delay
// whose latency and tail the test chooses shows what is held back, what
// comes out when and with which times, and how the tail completes the
// stream; then breaks, flushes, restarts, empty samples, a faulting plug-in
// and the sample widths the plug-in is handed.
#include <algorithm>
#include <cstring>
#include <string>

#include "filter_fixture.h"

namespace {

using namespace zqtest;

constexpr LONG kLatencyId = FourCC("ZqLt");

// The variables the test plug-in reads when an instance is made.
struct PluginEnvironment {
  PluginEnvironment(int latency, int tail)
      : latency_(u"ZQTEST_LATENCY", ZqUtf8ToUtf16(std::to_string(latency)).c_str()),
        tail_(u"ZQTEST_TAIL", ZqUtf8ToUtf16(std::to_string(tail)).c_str()) {}
  ScopedVariable latency_;
  ScopedVariable tail_;
};

// 16-bit stereo where neighbouring frames and channels all differ, so that
// a frame out of place shows.
std::vector<BYTE> Ramp(size_t frames) {
  std::vector<BYTE> bytes(frames * 4);
  auto* s = reinterpret_cast<int16_t*>(bytes.data());
  for (size_t i = 0; i < frames * 2; ++i) s[i] = int16_t(int((i * 7919) % 30011) - 15005);
  return bytes;
}

REFERENCE_TIME Duration(size_t frames, DWORD rate) { return REFERENCE_TIME(double(frames) / rate * 10000000.0 + 0.5); }

// The delay with latency `latency` and tail `tail`, behind the filter.
struct LatencyChain : PluginEnvironment, FilterChain {
  LatencyChain(int latency, int tail, DWORD flags = 0, WORD salt = 0x5A71)
      : PluginEnvironment(latency, tail), FilterChain(Register("zqtest_latency", kLatencyId, flags, salt)) {}
  ULONG MaxBlock() const { return static_cast<CZqVstWrapTransform*>(prop)->MaxBlock(); }
  // Connects and runs `frames` of the ramp in samples of `perSample`.
  void Start(size_t frames, ULONG perSample, DWORD rate = 48000) {
    ramp = Ramp(frames);
    Feed(Wave(WAVE_FORMAT_PCM, 2, rate, 16), ramp, perSample);
    ASSERT_EQ(ConnectAll(), S_OK);
    ASSERT_EQ(graph->Run(), S_OK);
  }
  std::vector<BYTE> ramp;
};

// The samples delivered while the stream ran carry times; the tail after
// them carries none.
size_t StreamedCount(const std::vector<ZqReceivedSample>& samples) {
  size_t n = 0;
  while (n < samples.size() && samples[n].timeStatus == S_OK) ++n;
  return n;
}

struct LatencyCase {
  const char* name;
  int latency;
  int tail;
  bool compensated;
  size_t streamed;  // frames out while the stream runs (of 1000)
  size_t extra;     // the plug-in's own tail after the input
};

TEST(FilterLatency, WhatIsHeldBackComesOutAsTailAndTheStreamKeepsItsLength) {
  const LatencyCase cases[] = {
      {"latency and tail", 100, 50, true, 900, 50},
      {"latency of the whole stream", 1000, 20, true, 0, 20},
      {"latency longer than the stream", 4000, 20, true, 0, 20},
      {"neither", 0, 0, true, 1000, 0},
      {"a tail of one means none", 0, 1, true, 1000, 0},
      {"a tail alone", 0, 300, true, 1000, 300},
      {"compensation off", 100, 50, false, 1000, 50},
  };
  for (const LatencyCase& c : cases) {
    SCOPED_TRACE(c.name);
    LatencyChain chain(c.latency, c.tail, c.compensated ? 0 : ZQVST_VMF_NO_LATENCY, c.compensated ? 0x5A71 : 0x6B02);
    ASSERT_EQ(chain.made, S_OK);
    chain.source->SetStartTime(1000);
    ASSERT_NO_FATAL_FAILURE(chain.Start(1000, 250));
    while (chain.source->PushNext() == S_OK) {
    }
    const std::vector<ZqReceivedSample> got = chain.sink->Samples();
    const size_t streamedCount = StreamedCount(got);
    size_t streamed = 0;
    for (size_t i = 0; i < streamedCount; ++i) {
      SCOPED_TRACE(i);
      const size_t frames = got[i].data.size() / 4;
      streamed += frames;
      EXPECT_EQ(got[i].discontinuity, i == 0);
      EXPECT_EQ(got[i].start, i == 0 ? 1000 : got[i - 1].stop) << "times run on without gaps";
      EXPECT_EQ(got[i].stop, got[i].start + Duration(frames, 48000));
      EXPECT_EQ(got[i].mediaStart, i == 0 ? 0 : got[i - 1].mediaStop);
      EXPECT_EQ(got[i].mediaStop, got[i].mediaStart + LONGLONG(frames));
    }
    EXPECT_EQ(streamed, c.streamed);
    // The tail: chunks of the largest block but the last (blocks swallowed
    // whole by the latency go out empty), with no times and no marks.
    std::vector<size_t> chunks;
    for (size_t i = streamedCount; i < got.size(); ++i) {
      EXPECT_EQ(got[i].mediaTimeStatus, VFW_E_MEDIA_TIME_NOT_SET);
      EXPECT_FALSE(got[i].discontinuity || got[i].syncPoint);
      if (!got[i].data.empty()) chunks.push_back(got[i].data.size() / 4);
    }
    for (size_t i = 0; i + 1 < chunks.size(); ++i) EXPECT_EQ(chunks[i], chain.MaxBlock()) << "tail chunk " << i;
    if (c.extra + c.latency < 2) {
      EXPECT_EQ(got.size(), streamedCount) << "only the end of stream follows";
    }
    EXPECT_EQ(chain.sink->EndOfStreamCount(), 1);

    // The stream is the input frame for frame, then the plug-in's tail from
    // silence (on the first channel: the effect does not clear the second
    // input while it draws a tail).  Without compensation the plug-in's
    // latency leads as silence.
    const std::vector<BYTE> all = chain.sink->AllBytes();
    ASSERT_EQ(all.size(), (1000 + c.extra) * 4);
    const size_t lead = c.compensated ? 0 : size_t(c.latency);
    const size_t echoed = std::min<size_t>(1000, 1000 + c.extra - lead);
    EXPECT_EQ(all.begin() + ptrdiff_t(lead * 4), std::find_if(all.begin(), all.end(), [](BYTE b) { return b; }));
    EXPECT_EQ(std::memcmp(all.data() + lead * 4, chain.ramp.data(), echoed * 4), 0);
    for (size_t k = lead + echoed; k < 1000 + c.extra; ++k) EXPECT_EQ(all[k * 4] | all[k * 4 + 1], 0) << k;
  }
}

TEST(FilterLatency, ALatencyLongerThanASampleHoldsTheFirstOutputBackAndKeepsTheFirstTime) {
  LatencyChain chain(1000, 0);
  ASSERT_EQ(chain.made, S_OK);
  chain.source->SetStartTime(20000000);
  chain.source->SetStartMediaTime(500);
  ASSERT_NO_FATAL_FAILURE(chain.Start(512 * 4, 512, 44100));
  // 512 of the 1000 frames to discard: nothing goes out; then 24 frames,
  // the stream's first, marked as the break it began with.
  ASSERT_EQ(chain.source->PushNext(), S_OK);
  EXPECT_TRUE(chain.sink->Samples().empty());
  ASSERT_EQ(chain.source->PushNext(), S_OK);
  const std::vector<ZqReceivedSample> got = chain.sink->Samples();
  ASSERT_EQ(got.size(), 1u);
  EXPECT_EQ(got[0].data, std::vector<BYTE>(chain.ramp.begin(), chain.ramp.begin() + 24 * 4));
  EXPECT_TRUE(got[0].discontinuity && got[0].syncPoint);
  EXPECT_EQ(got[0].start, 20000000);
  EXPECT_EQ(got[0].stop, 20000000 + Duration(24, 44100));
  EXPECT_EQ(got[0].mediaStart, 500);
  EXPECT_EQ(got[0].mediaStop, 524);
}

TEST(FilterLatency, TheLatencyIsReadWhenTheStreamStartsNotWhenTheFilterIsMade) {
  // Made with neither; the plug-in's parameters then give it latency 300
  // and tail 50.
  LatencyChain chain(0, 0);
  ASSERT_EQ(chain.made, S_OK);
  ASSERT_EQ(chain.prop->SetParamValue(0, 300.0f / 100000.0f), S_OK);
  ASSERT_EQ(chain.prop->SetParamValue(1, 50.0f / 100000.0f), S_OK);
  ASSERT_NO_FATAL_FAILURE(chain.Start(1000, 250));
  while (chain.source->PushNext() == S_OK) {
  }
  const std::vector<ZqReceivedSample> got = chain.sink->Samples();
  size_t streamed = 0;
  for (size_t i = 0; i < StreamedCount(got); ++i) streamed += got[i].data.size() / 4;
  EXPECT_EQ(streamed, 700u);
  EXPECT_EQ(chain.FramesOut(4), 1050u);
}

TEST(FilterStream, ADiscontinuityRestartsTheLatencyAndRebasesTime) {
  PluginRecord plugin("zqtest_latency");
  LatencyChain chain(64, 0);
  chain.source->SetDiscontinuities({0, 4});
  ASSERT_NO_FATAL_FAILURE(chain.Start(48 * 8, 48, 44100));
  for (int i = 0; i < 6; ++i) ASSERT_EQ(chain.source->PushNext(), S_OK);
  // Four samples before the break: 192 - 64 frames.  The break drops the
  // rest of the earlier count and starts a new one: sample 4 gives nothing,
  // sample 5 gives 32 frames marked and stamped as the break.
  EXPECT_EQ(chain.FramesOut(4), 128u + 32u);
  const ZqReceivedSample rebased = chain.sink->Samples().back();
  EXPECT_EQ(rebased.data.size(), 32u * 4);
  EXPECT_TRUE(rebased.discontinuity);
  EXPECT_EQ(rebased.start, Duration(48 * 4, 44100));
  EXPECT_EQ(rebased.mediaStart, 48 * 4);
  EXPECT_EQ(plugin.State(kSlotStartCount), 2) << "processing was restarted at the break";
}

TEST(FilterStream, AFlushKeepsTheLatencyStillToDiscardAndTheTimes) {
  LatencyChain chain(64, 0);
  chain.source->SetStartTime(5000000);
  ASSERT_NO_FATAL_FAILURE(chain.Start(48 * 3, 48, 44100));
  ASSERT_EQ(chain.source->PushNext(), S_OK);
  ASSERT_EQ(chain.in->BeginFlush(), S_OK);
  ASSERT_EQ(chain.in->EndFlush(), S_OK);
  ASSERT_EQ(chain.source->PushNext(), S_OK);
  // Only the next discontinuity resets them: 64 - 48 frames are still
  // discarded, and the first output keeps the stream's first time.
  const std::vector<ZqReceivedSample> got = chain.sink->Samples();
  ASSERT_EQ(got.size(), 1u);
  EXPECT_EQ(got[0].data.size(), 32u * 4);
  EXPECT_TRUE(got[0].discontinuity);
  EXPECT_EQ(got[0].start, 5000000);
  const std::vector<ZqSinkEvent> events = chain.sink->Events();
  ASSERT_GE(events.size(), 3u);
  EXPECT_EQ(events[events.size() - 3].kind, ZqSinkEventKind::BeginFlush);
  EXPECT_EQ(events[events.size() - 2].kind, ZqSinkEventKind::EndFlush);
}

TEST(FilterStream, EndOfStreamAfterStopAndRestartWithoutReconnectionHasNoTail) {
  LatencyChain chain(64, 0);
  ASSERT_NO_FATAL_FAILURE(chain.Start(1024, 256));
  ASSERT_EQ(chain.Play(), S_OK);
  EXPECT_EQ(chain.FramesOut(4), 1024u);
  ASSERT_EQ(chain.graph->Stop(), S_OK);
  // Stopping forgets the largest block, and only a connection sets it
  // again: the second run ends without its tail.
  chain.sink->Clear();
  ASSERT_EQ(chain.Play(), S_OK);
  EXPECT_EQ(chain.FramesOut(4), 1024u - 64);
  EXPECT_EQ(chain.sink->EndOfStreamCount(), 1);
}

TEST(FilterStream, TheInputPinGuardsReceiveAndEmptySamplesDeliverNothing) {
  PluginRecord plugin("zqtest_latency");
  LatencyChain chain(64, 0);
  chain.Feed(Wave(WAVE_FORMAT_PCM, 2, 44100, 16), Ramp(256), 64);
  ASSERT_EQ(chain.ConnectAll(), S_OK);
  auto* input = Query<IMemInputPin>(chain.in);
  ASSERT_NE(input, nullptr);
  HRESULT hr = S_OK;
  auto* allocator = new CMemAllocator(u"test allocator", nullptr, &hr);
  allocator->NonDelegatingAddRef();
  ALLOCATOR_PROPERTIES want{1, 256, 1, 0}, actual{};
  ASSERT_EQ(allocator->SetProperties(&want, &actual), S_OK);
  ASSERT_EQ(allocator->Commit(), S_OK);
  IMediaSample* sample = nullptr;
  ASSERT_EQ(allocator->GetBuffer(&sample, nullptr, nullptr, 0), S_OK);
  sample->SetDiscontinuity(TRUE);

  const long long processed = plugin.State(kSlotProcessCount);
  EXPECT_EQ(input->Receive(sample), VFW_E_WRONG_STATE) << "stopped";
  ASSERT_EQ(chain.graph->Run(), S_OK);
  EXPECT_EQ(input->Receive(nullptr), E_POINTER);
  sample->SetActualDataLength(0);
  EXPECT_EQ(input->Receive(sample), S_OK);
  EXPECT_EQ(chain.sink->ReceiveCalls(), 0);
  EXPECT_EQ(plugin.State(kSlotProcessCount), processed) << "nothing to process";

  chain.graph->Stop();
  sample->Release();
  allocator->Decommit();
  allocator->Release();
  input->Release();
}

TEST(FilterStream, APluginThatFaultsOnEveryBlockKeepsTheStreamGoing) {
  FilterChain chain(Register("zqbad_process_fault", FourCC("ZqBc")));
  ASSERT_EQ(chain.made, S_OK);
  chain.Feed(Wave(WAVE_FORMAT_PCM, 2, 44100, 16), Ramp(128 * 5), 128);
  ASSERT_EQ(chain.ConnectAll(), S_OK);
  ASSERT_EQ(chain.Play(), S_OK);
  EXPECT_EQ(chain.sink->Samples().size(), 5u);
  EXPECT_EQ(chain.FramesOut(4), 128u * 5);
  EXPECT_EQ(chain.sink->EndOfStreamCount(), 1);
}

// The plug-in is handed samples of one, three and eight bytes: the stream
// comes back byte for byte, shifted past the latency within each buffer.
TEST(FilterStream, EveryWidthOfSampleComesBackExactly) {
  const struct {
    const char* name;
    WORD tag;
    WORD bits;
  } widths[] = {{"pcm8", WAVE_FORMAT_PCM, 8}, {"pcm24", WAVE_FORMAT_PCM, 24}, {"float64", WAVE_FORMAT_IEEE_FLOAT, 64}};
  for (const auto& w : widths) {
    SCOPED_TRACE(w.name);
    LatencyChain chain(100, 0);
    const WAVEFORMATEX format = Wave(w.tag, 2, 48000, w.bits);
    std::vector<BYTE> data(3000 * format.nBlockAlign);
    for (size_t i = 0; i < data.size(); ++i) data[i] = BYTE(i * 7 + i / 5);
    if (w.bits == 64) {
      // Values a float holds exactly.
      for (size_t i = 0; i < data.size() / 8; ++i) {
        const double v = double(float(int(i * 7919 % 2001) - 1000) / 1024.0f);
        std::memcpy(&data[i * 8], &v, 8);
      }
    }
    chain.Feed(format, data, 512);
    ASSERT_EQ(chain.ConnectAll(), S_OK);
    ASSERT_EQ(chain.Play(), S_OK);
    EXPECT_EQ(chain.sink->AllBytes(), data);
  }
}

}  // namespace
