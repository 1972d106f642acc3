// Latency and tail of the plug-in filter, exact to the frame: a pure delay
// whose latency and tail the test chooses shows what is held back, what
// comes out when, with which times, and how the tail completes the stream.
#include <cstring>
#include <string>

#include "filter_fixture.h"
#include "platform/environment.h"

namespace {

using namespace zqtest;

constexpr LONG kLatencyId = FourCC("ZqLt");

// Sets the variables the test plug-in reads when an instance is made, and
// puts back what was there before.
class PluginEnvironment {
 public:
  PluginEnvironment(int latency, int tail) {
    Set(u"ZQTEST_LATENCY", latency, 0);
    Set(u"ZQTEST_TAIL", tail, 1);
  }
  ~PluginEnvironment() {
    Restore(u"ZQTEST_LATENCY", 0);
    Restore(u"ZQTEST_TAIL", 1);
  }
  PluginEnvironment(const PluginEnvironment&) = delete;
  PluginEnvironment& operator=(const PluginEnvironment&) = delete;

 private:
  void Set(const WCHAR* name, int value, int slot) {
    WCHAR old[64] = {};
    const DWORD length = GetEnvironmentVariableW(name, old, 64);
    had_[slot] = length > 0 && length < 64;
    if (had_[slot]) old_[slot] = old;
    SetEnvironmentVariableW(name, ZqUtf8ToUtf16(std::to_string(value)).c_str());
  }
  void Restore(const WCHAR* name, int slot) {
    SetEnvironmentVariableW(name, had_[slot] ? old_[slot].c_str() : nullptr);
  }
  bool had_[2] = {};
  std::u16string old_[2];
};

// 16-bit stereo where neighbouring frames and channels all differ, so that
// a frame out of place shows.
std::vector<BYTE> Ramp(size_t frames) {
  std::vector<BYTE> bytes(frames * 4);
  auto* s = reinterpret_cast<int16_t*>(bytes.data());
  for (size_t i = 0; i < frames * 2; ++i) s[i] = int16_t(int((i * 7919) % 30011) - 15005);
  return bytes;
}

// The length of the stream most tests play.
constexpr size_t kFrames = 1000;

// The delay with latency `latency` and tail `tail`, behind the filter.
struct LatencyChain : PluginEnvironment, FilterChain {
  LatencyChain(int latency, int tail, DWORD flags = 0, WORD salt = 0x5A71)
      : PluginEnvironment(latency, tail), FilterChain(Register("zqtest_latency", kLatencyId, flags, salt)) {}
  ULONG MaxBlock() const { return static_cast<CZqVstWrapTransform*>(prop)->MaxBlock(); }

  // Plays `ramp` (kFrames) at 48 kHz in samples of 250 frames to its end.
  ::testing::AssertionResult PlayRamp() {
    Feed(Wave(WAVE_FORMAT_PCM, 2, 48000, 16), ramp, 250);
    HRESULT hr = ConnectAll();
    if (hr != S_OK) return ::testing::AssertionFailure() << "connecting: " << std::hex << hr;
    hr = Play();
    if (hr != S_OK) return ::testing::AssertionFailure() << "playing: " << std::hex << hr;
    return ::testing::AssertionSuccess();
  }

  const std::vector<BYTE> ramp = Ramp(kFrames);
};

REFERENCE_TIME Duration(size_t frames, DWORD rate) {
  return REFERENCE_TIME(double(frames) / rate * 10000000.0 + 0.5);
}

int16_t At(const std::vector<BYTE>& bytes, size_t frame, int channel) {
  int16_t v;
  std::memcpy(&v, &bytes[(frame * 2 + size_t(channel)) * 2], 2);
  return v;
}

// Frames [outFrom, outFrom + count) of `out` on `channel` against frames
// from `inFrom` of `in` (or silence when `in` is null); the first few
// differences are reported.
void ExpectFrames(const std::vector<BYTE>& out, size_t outFrom, const std::vector<BYTE>* in, size_t inFrom,
                  size_t count, int channel) {
  int wrong = 0;
  for (size_t k = 0; k < count && wrong < 5; ++k) {
    const int16_t want = in ? At(*in, inFrom + k, channel) : 0;
    const int16_t got = At(out, outFrom + k, channel);
    if (got != want) {
      ++wrong;
      ADD_FAILURE() << "channel " << channel << " output frame " << outFrom + k << ": " << got << " instead of "
                    << want;
    }
  }
}

// Splits what the sink got into the samples that carry a time (delivered
// while the stream ran) and the tail after them, which carries none.
struct Split {
  size_t streamedFrames = 0;
  size_t tailFrames = 0;
  std::vector<ZqReceivedSample> streamed, tail;
};

Split SplitOutput(const std::vector<ZqReceivedSample>& samples) {
  Split s;
  size_t i = 0;
  for (; i < samples.size() && samples[i].timeStatus == S_OK; ++i) {
    s.streamed.push_back(samples[i]);
    s.streamedFrames += samples[i].data.size() / 4;
  }
  for (; i < samples.size(); ++i) {
    s.tail.push_back(samples[i]);
    s.tailFrames += samples[i].data.size() / 4;
  }
  return s;
}

// Everything the sink got: the input frame for frame, then `tail` frames of
// the plug-in's own tail, drawn from silence on the first channel (the
// effect does not clear the second input while it draws a tail).
void ExpectInputThenTail(const std::vector<BYTE>& all, const std::vector<BYTE>& input, size_t tail) {
  const size_t frames = input.size() / 4;
  ASSERT_EQ(all.size(), (frames + tail) * 4);
  ExpectFrames(all, 0, &input, 0, frames, 0);
  ExpectFrames(all, 0, &input, 0, frames, 1);
  ExpectFrames(all, frames, nullptr, 0, tail, 0);
}

// The tail goes out in chunks of at most the largest block, with no time,
// no media time and no marks.
void ExpectTailChunks(const std::vector<ZqReceivedSample>& tail, ULONG maxBlock) {
  for (size_t i = 0; i < tail.size(); ++i) {
    SCOPED_TRACE("tail sample " + std::to_string(i));
    EXPECT_LE(tail[i].data.size(), size_t(maxBlock) * 4);
    EXPECT_EQ(tail[i].timeStatus, VFW_E_SAMPLE_TIME_NOT_SET);
    EXPECT_EQ(tail[i].mediaTimeStatus, VFW_E_MEDIA_TIME_NOT_SET);
    EXPECT_FALSE(tail[i].discontinuity);
    EXPECT_FALSE(tail[i].syncPoint);
  }
}

TEST(FilterLatency, ALatencyLongerThanASampleHoldsTheFirstOutputBackAndKeepsTheFirstTime) {
  LatencyChain chain(1000, 0);
  ASSERT_EQ(chain.made, S_OK);
  const size_t frames = 512 * 4;
  const std::vector<BYTE> data = Ramp(frames);
  chain.Feed(Wave(WAVE_FORMAT_PCM, 2, 44100, 16), data, 512);
  chain.source->SetStartTime(20000000);
  chain.source->SetStartMediaTime(500);
  ASSERT_EQ(chain.ConnectAll(), S_OK);
  ASSERT_EQ(chain.graph->Run(), S_OK);

  // 512 of the 1000 frames to discard: nothing goes out.
  ASSERT_EQ(chain.source->PushNext(), S_OK);
  EXPECT_TRUE(chain.sink->Samples().empty());

  // The second sample ends the latency 24 frames before its end; those 24
  // are the stream's first frames and go out as the stream's first sample:
  // marked as the break it began with, stamped with its time.
  ASSERT_EQ(chain.source->PushNext(), S_OK);
  std::vector<ZqReceivedSample> got = chain.sink->Samples();
  ASSERT_EQ(got.size(), 1u);
  ASSERT_EQ(got[0].data.size(), 24u * 4);
  EXPECT_TRUE(got[0].discontinuity);
  EXPECT_TRUE(got[0].syncPoint);
  EXPECT_EQ(got[0].start, 20000000);
  EXPECT_EQ(got[0].stop, 20000000 + Duration(24, 44100));
  EXPECT_EQ(got[0].mediaStart, 500);
  EXPECT_EQ(got[0].mediaStop, 524);
  ExpectFrames(got[0].data, 0, &data, 0, 24, 0);
  ExpectFrames(got[0].data, 0, &data, 0, 24, 1);

  while (chain.source->PushNext() == S_OK) {
  }
  const Split out = SplitOutput(chain.sink->Samples());
  ASSERT_EQ(out.streamed.size(), 3u);
  for (size_t i = 1; i < out.streamed.size(); ++i) {
    SCOPED_TRACE("sample " + std::to_string(i));
    EXPECT_EQ(out.streamed[i].data.size(), 512u * 4);
    EXPECT_FALSE(out.streamed[i].discontinuity);
    EXPECT_EQ(out.streamed[i].start, out.streamed[i - 1].stop) << "times run on from the first output";
    EXPECT_EQ(out.streamed[i].stop, out.streamed[i].start + Duration(512, 44100));
    EXPECT_EQ(out.streamed[i].mediaStart, out.streamed[i - 1].mediaStop);
    EXPECT_EQ(out.streamed[i].mediaStop, out.streamed[i].mediaStart + 512);
  }
  // The 1000 frames still held come out as the tail, in chunks, and the
  // stream is the input exactly, frame for frame.
  EXPECT_EQ(out.streamedFrames, frames - 1000);
  ASSERT_LT(chain.MaxBlock(), 1000u);
  EXPECT_GT(out.tail.size(), 1u);
  ExpectTailChunks(out.tail, chain.MaxBlock());
  ExpectInputThenTail(chain.sink->AllBytes(), data, 0);
  EXPECT_EQ(chain.sink->EndOfStreamCount(), 1);
}

TEST(FilterLatency, TheTailIsTheLatencyStillHeldPlusThePluginsTail) {
  // Samples of 250 frames make the largest block 125, less than the tail.
  LatencyChain chain(100, 50);
  ASSERT_EQ(chain.made, S_OK);
  ASSERT_TRUE(chain.PlayRamp());

  const Split out = SplitOutput(chain.sink->Samples());
  EXPECT_EQ(out.streamedFrames, 900u);
  ASSERT_EQ(out.streamed.size(), 4u);
  EXPECT_EQ(out.streamed[0].data.size(), 150u * 4);
  EXPECT_EQ(out.streamed[0].mediaStart, 0);
  EXPECT_EQ(out.streamed.back().mediaStop, 900);

  const ULONG maxBlock = chain.MaxBlock();
  ASSERT_GT(maxBlock, 0u);
  ASSERT_LT(maxBlock, 150u);
  EXPECT_EQ(out.tailFrames, 150u);
  ExpectTailChunks(out.tail, maxBlock);
  // Full chunks first, the rest last.
  for (size_t i = 0; i + 1 < out.tail.size(); ++i) EXPECT_EQ(out.tail[i].data.size(), size_t(maxBlock) * 4) << i;

  // The 100 held frames are the input's last; after them the plug-in's own
  // tail.
  ExpectInputThenTail(chain.sink->AllBytes(), chain.ramp, 50);
  EXPECT_EQ(chain.sink->EndOfStreamCount(), 1);
}

TEST(FilterLatency, ALatencyLongerThanTheStreamComesOutWholeAsTail) {
  // Equal to the stream, and four times as long.
  for (int latency : {1000, 4000}) {
    SCOPED_TRACE("latency " + std::to_string(latency));
    LatencyChain chain(latency, 20);
    ASSERT_EQ(chain.made, S_OK);
    ASSERT_TRUE(chain.PlayRamp());

    const Split out = SplitOutput(chain.sink->Samples());
    EXPECT_EQ(out.streamedFrames, 0u);
    EXPECT_TRUE(out.streamed.empty());
    ExpectTailChunks(out.tail, chain.MaxBlock());
    // Blocks swallowed whole by what is still to discard go out empty; the
    // others are full blocks but the last.
    std::vector<size_t> sizes;
    for (const auto& s : out.tail) {
      if (!s.data.empty()) sizes.push_back(s.data.size() / 4);
    }
    ASSERT_FALSE(sizes.empty());
    for (size_t i = 0; i + 1 < sizes.size(); ++i) EXPECT_EQ(sizes[i], chain.MaxBlock()) << i;
    ExpectInputThenTail(chain.sink->AllBytes(), chain.ramp, 20);
    EXPECT_EQ(chain.sink->EndOfStreamCount(), 1);
  }
}

TEST(FilterLatency, WithoutLatencyTheStreamPassesAsItIsAndOnlyATailOfTwoOrMoreAddsFrames) {
  // A tail of 1 means "none" to the host.
  const struct {
    int tail;
    size_t extra;
  } cases[] = {{0, 0}, {1, 0}, {300, 300}};
  for (const auto& c : cases) {
    SCOPED_TRACE("tail " + std::to_string(c.tail));
    LatencyChain chain(0, c.tail);
    ASSERT_EQ(chain.made, S_OK);
    chain.source->SetStartTime(1000);
    ASSERT_TRUE(chain.PlayRamp());

    const Split out = SplitOutput(chain.sink->Samples());
    ASSERT_EQ(out.streamed.size(), 4u);
    for (const auto& s : out.streamed) EXPECT_EQ(s.data.size(), 250u * 4);
    EXPECT_EQ(out.streamed[0].start, 1000);
    EXPECT_TRUE(out.streamed[0].discontinuity);
    EXPECT_EQ(out.tailFrames, c.extra);
    if (c.extra == 0) {
      EXPECT_TRUE(out.tail.empty()) << "the end of stream alone goes out";
    }
    ExpectTailChunks(out.tail, chain.MaxBlock());
    ExpectInputThenTail(chain.sink->AllBytes(), chain.ramp, c.extra);
    EXPECT_EQ(chain.sink->EndOfStreamCount(), 1);
  }
}

TEST(FilterLatency, TheLatencyIsReadWhenTheStreamStartsNotWhenTheFilterIsMade) {
  // Made with neither; the plug-in's parameters then give it latency 300
  // and tail 50.
  LatencyChain chain(0, 0);
  ASSERT_EQ(chain.made, S_OK);
  ASSERT_EQ(chain.prop->SetParamValue(0, 300.0f / 100000.0f), S_OK);
  ASSERT_EQ(chain.prop->SetParamValue(1, 50.0f / 100000.0f), S_OK);
  ASSERT_TRUE(chain.PlayRamp());

  EXPECT_EQ(SplitOutput(chain.sink->Samples()).streamedFrames, kFrames - 300);
  ExpectInputThenTail(chain.sink->AllBytes(), chain.ramp, 50);
}

TEST(FilterLatency, WithLatencyCompensationOffNothingIsDiscardedAndTheTailIsThePluginsAlone) {
  LatencyChain chain(100, 50, ZQVST_VMF_NO_LATENCY, 0x6B02);
  ASSERT_EQ(chain.made, S_OK);
  ASSERT_TRUE(chain.PlayRamp());

  const Split out = SplitOutput(chain.sink->Samples());
  EXPECT_EQ(out.streamedFrames, kFrames);
  ASSERT_FALSE(out.streamed.empty());
  EXPECT_EQ(out.streamed[0].data.size(), 250u * 4);
  const std::vector<BYTE> all = chain.sink->AllBytes();
  ASSERT_EQ(all.size(), (kFrames + 50) * 4);
  // The plug-in's own output: its latency as silence, then the input, the
  // last frames of which its tail brings out of the line.
  for (int channel = 0; channel < 2; ++channel) {
    ExpectFrames(all, 0, nullptr, 0, 100, channel);
    ExpectFrames(all, 100, &chain.ramp, 0, kFrames - 50, channel);
  }
}

}  // namespace
