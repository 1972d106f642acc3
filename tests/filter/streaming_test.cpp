// The audio path of the plug-in filter: latency, tail, times, marks, failures
// and the exact output of the delay example in every sample format.
#include <cmath>
#include <cstring>
#include <functional>

#include "filter_fixture.h"

namespace {

using namespace zqtest;

constexpr LONG kDelay = FourCC("ZqDl");
constexpr int kLatency = 64;  // the delay example's

// The delay example with its mix at 0: a pure delay of its latency, which
// the filter takes out again, so output equals input.
struct PureDelayChain : FilterChain {
  PureDelayChain() : FilterChain(Register("zqdelay", kDelay)) { prop->SetParamValue(2, 0.0f); }
};

std::vector<BYTE> Pcm16Ramp(size_t frames) {
  std::vector<BYTE> bytes(frames * 4);
  auto* s = reinterpret_cast<int16_t*>(bytes.data());
  for (size_t i = 0; i < frames * 2; ++i) s[i] = int16_t((i * 37) % 20000 - 10000);
  return bytes;
}

REFERENCE_TIME Duration(size_t frames, DWORD rate) {
  return REFERENCE_TIME(double(frames) / rate * 10000000.0 + 0.5);
}

TEST(FilterStream, LatencyIsTakenFromTheHeadAndTheFirstOutputKeepsTheFirstTime) {
  PureDelayChain chain;
  const size_t frames = 48 * 6;
  std::vector<BYTE> data = Pcm16Ramp(frames);
  chain.Feed(Wave(WAVE_FORMAT_PCM, 2, 44100, 16), data, 48);
  chain.source->SetStartTime(5000000);
  chain.source->SetStartMediaTime(1000);
  ASSERT_EQ(chain.ConnectAll(), S_OK);
  ASSERT_EQ(chain.graph->Run(), S_OK);

  // 48 frames vanish whole into a latency of 64...
  ASSERT_EQ(chain.source->PushNext(), S_OK);
  EXPECT_TRUE(chain.sink->Samples().empty());
  // ...and the next sample gives the 32 that are left, stamped with the
  // time of the stream's first sample.
  ASSERT_EQ(chain.source->PushNext(), S_OK);
  std::vector<ZqReceivedSample> got = chain.sink->Samples();
  ASSERT_EQ(got.size(), 1u);
  EXPECT_EQ(got[0].data.size(), 32u * 4);
  EXPECT_TRUE(got[0].discontinuity);
  EXPECT_EQ(got[0].start, 5000000);
  EXPECT_EQ(got[0].stop, 5000000 + Duration(32, 44100));
  EXPECT_EQ(got[0].mediaStart, 1000);
  EXPECT_EQ(got[0].mediaStop, 1032);

  while (chain.source->PushNext() == S_OK) {
  }
  got = chain.sink->Samples();
  ASSERT_GE(got.size(), 3u);
  EXPECT_FALSE(got[1].discontinuity);
  EXPECT_EQ(got[1].start, got[0].stop) << "output times run on without gaps";
  EXPECT_EQ(got[1].mediaStart, 1032);
  // The tail brings the stream to its full length: input plus the plug-in's
  // own tail (its latency, with the mix at 0), and carries no time.
  std::vector<BYTE> all = chain.sink->AllBytes();
  ASSERT_EQ(all.size(), (frames + kLatency) * 4);
  EXPECT_EQ(std::memcmp(all.data(), data.data(), data.size()), 0);
  // The left channel of the tail is silence (the right one holds what the
  // effect leaves in its second input while it draws a tail).
  for (size_t k = frames; k < frames + kLatency; ++k) EXPECT_EQ(all[k * 4] | all[k * 4 + 1], 0) << k;
  EXPECT_EQ(got.back().timeStatus, VFW_E_SAMPLE_TIME_NOT_SET);
  EXPECT_FALSE(got.back().discontinuity);
  EXPECT_EQ(chain.sink->EndOfStreamCount(), 1);
}

TEST(FilterStream, ADiscontinuityRestartsTheLatencyAndRebasesTime) {
  PluginRecord delay("zqdelay");
  PureDelayChain chain;
  const size_t frames = 48 * 8;
  std::vector<BYTE> data = Pcm16Ramp(frames);
  chain.Feed(Wave(WAVE_FORMAT_PCM, 2, 44100, 16), data, 48);
  chain.source->SetDiscontinuities({0, 4});
  ASSERT_EQ(chain.ConnectAll(), S_OK);
  ASSERT_EQ(chain.graph->Run(), S_OK);
  for (int i = 0; i < 6; ++i) ASSERT_EQ(chain.source->PushNext(), S_OK);

  std::vector<ZqReceivedSample> got = chain.sink->Samples();
  size_t before = 0;
  for (const auto& s : got) before += s.data.size() / 4;
  // Four samples before the break: 192 - 64 frames.  The break drops the
  // rest of the earlier latency count and starts a new one, so sample 4
  // gives nothing and sample 5 gives 32 frames marked and stamped as the
  // break.
  ASSERT_GE(got.size(), 2u);
  EXPECT_EQ(before, 128u + 32u);
  const ZqReceivedSample& rebased = got.back();
  EXPECT_EQ(rebased.data.size(), 32u * 4);
  EXPECT_TRUE(rebased.discontinuity);
  EXPECT_EQ(rebased.start, Duration(48 * 4, 44100));
  EXPECT_EQ(rebased.mediaStart, 48 * 4);
  EXPECT_EQ(delay.State(kSlotStartCount), 2) << "processing was restarted at the break";
}

TEST(FilterStream, AFlushKeepsTheLatencyStillToDiscardAndTheTimes) {
  PureDelayChain chain;
  chain.Feed(Wave(WAVE_FORMAT_PCM, 2, 44100, 16), Pcm16Ramp(48 * 3), 48);
  chain.source->SetStartTime(5000000);
  ASSERT_EQ(chain.ConnectAll(), S_OK);
  ASSERT_EQ(chain.graph->Run(), S_OK);
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
  PureDelayChain chain;
  const size_t frames = 256 * 4;
  std::vector<BYTE> data = Pcm16Ramp(frames);
  chain.Feed(Wave(WAVE_FORMAT_PCM, 2, 44100, 16), data, 256);
  ASSERT_EQ(chain.ConnectAll(), S_OK);
  ASSERT_EQ(chain.Play(), S_OK);
  EXPECT_EQ(chain.FramesOut(4), frames + kLatency);
  ASSERT_EQ(chain.graph->Stop(), S_OK);

  // Stopping forgets the largest block, and only a connection sets it
  // again: the second run ends without its tail.
  chain.sink->Clear();
  ASSERT_EQ(chain.Play(), S_OK);
  EXPECT_EQ(chain.FramesOut(4), frames - kLatency);
  EXPECT_EQ(chain.sink->EndOfStreamCount(), 1);
}

TEST(FilterStream, TheInputPinGuardsReceiveAndEmptySamplesDeliverNothing) {
  PluginRecord delay("zqdelay");
  PureDelayChain chain;
  std::vector<BYTE> data = Pcm16Ramp(256);
  chain.Feed(Wave(WAVE_FORMAT_PCM, 2, 44100, 16), data, 64);
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

  const long long processed = delay.State(kSlotProcessCount);
  EXPECT_EQ(input->Receive(sample), VFW_E_WRONG_STATE) << "stopped";
  EXPECT_EQ(delay.State(kSlotProcessCount), processed);
  ASSERT_EQ(chain.graph->Run(), S_OK);
  EXPECT_EQ(input->Receive(nullptr), E_POINTER);
  sample->SetActualDataLength(0);
  EXPECT_EQ(input->Receive(sample), S_OK);
  EXPECT_EQ(chain.sink->ReceiveCalls(), 0);
  EXPECT_EQ(delay.State(kSlotProcessCount), processed) << "nothing to process";

  chain.graph->Stop();
  sample->Release();
  allocator->Decommit();
  allocator->Release();
  input->Release();
}

TEST(FilterStream, APluginThatFaultsOnEveryBlockKeepsTheStreamGoing) {
  FilterChain chain(Register("zqbad_process_fault", FourCC("ZqBc")));
  ASSERT_EQ(chain.made, S_OK);
  const size_t frames = 128 * 5;
  std::vector<BYTE> data = Pcm16Ramp(frames);
  chain.Feed(Wave(WAVE_FORMAT_PCM, 2, 44100, 16), data, 128);
  ASSERT_EQ(chain.ConnectAll(), S_OK);
  ASSERT_EQ(chain.Play(), S_OK);
  EXPECT_EQ(chain.sink->Samples().size(), 5u);
  EXPECT_EQ(chain.FramesOut(4), frames);
  EXPECT_EQ(chain.sink->EndOfStreamCount(), 1);
}

// --- The delay example, sample by sample, in every format ---------------------------

struct Format {
  const char* name;
  WORD tag;
  WORD bits;
  double tolerance;
  std::function<void(BYTE*, double)> encode;
  std::function<double(const BYTE*)> decode;
};

int64_t Clamp(double v, double scale) {
  return int64_t(std::fmax(-scale, std::fmin(scale - 1, std::nearbyint(v * scale))));
}

// An integer format of `bytes` bytes a sample, full scale `scale`, in either
// byte order.
Format Integer(const char* name, WORD tag, int bytes, double scale, bool bigEndian, double tolerance) {
  auto at = [bytes, bigEndian](int i) { return bigEndian ? bytes - 1 - i : i; };
  return {name, tag, WORD(bytes * 8), tolerance,
          [=](BYTE* p, double v) {
            const int64_t q = Clamp(v, scale);
            for (int i = 0; i < bytes; ++i) p[at(i)] = BYTE(uint64_t(q) >> (8 * i));
          },
          [=](const BYTE* p) {
            uint64_t u = 0;
            for (int i = bytes - 1; i >= 0; --i) u = (u << 8) | p[at(i)];
            return double(int64_t(u << (64 - 8 * bytes)) >> (64 - 8 * bytes)) / scale;
          }};
}

template <class T>
Format Floating(const char* name) {
  return {name, WAVE_FORMAT_IEEE_FLOAT, WORD(sizeof(T) * 8), 1e-5,
          [](BYTE* p, double v) {
            T t = T(v);
            std::memcpy(p, &t, sizeof t);
          },
          [](const BYTE* p) {
            T t;
            std::memcpy(&t, p, sizeof t);
            return double(t);
          }};
}

std::vector<Format> Formats() {
  constexpr double k8 = 128.0, k16 = 32768.0, k24 = 8388608.0, k32 = 2147483648.0;
  Format pcm8 = Integer("pcm8", WAVE_FORMAT_PCM, 1, k8, false, 2.5 / k8);  // unsigned: silence at 128
  auto signedEncode = pcm8.encode;
  auto signedDecode = pcm8.decode;
  pcm8.encode = [signedEncode](BYTE* p, double v) {
    signedEncode(p, v);
    p[0] ^= 0x80;
  };
  pcm8.decode = [signedDecode](const BYTE* p) {
    BYTE b = BYTE(p[0] ^ 0x80);
    return signedDecode(&b);
  };
  return {pcm8,
          Integer("pcm8s", ZQ_WAVE_FORMAT_PCM_SIGNED8, 1, k8, false, 2.5 / k8),
          Integer("pcm16", WAVE_FORMAT_PCM, 2, k16, false, 2.5 / k16),
          Integer("pcm24", WAVE_FORMAT_PCM, 3, k24, false, 1e-5),
          Integer("pcm32", WAVE_FORMAT_PCM, 4, k32, false, 1e-5),
          Integer("24in32", ZQ_WAVE_FORMAT_24IN32, 4, k24, false, 1e-5),
          Integer("be16", ZQ_WAVE_FORMAT_PCM_BIGENDIAN, 2, k16, true, 2.5 / k16),
          Integer("be24", ZQ_WAVE_FORMAT_PCM_BIGENDIAN, 3, k24, true, 1e-5),
          Integer("be32", ZQ_WAVE_FORMAT_PCM_BIGENDIAN, 4, k32, true, 1e-5),
          Floating<float>("float32"),
          Floating<double>("float64")};
}

// The delay example's output for one channel of input `x`, in its own
// numbering (before the filter takes the latency out): n frames.
std::vector<double> DelayModel(const std::vector<double>& x, size_t n, int delayFrames, double feedback, double mix) {
  auto in = [&](long i) { return i >= 0 && size_t(i) < x.size() ? x[size_t(i)] : 0.0; };
  std::vector<double> e(n), out(n);
  for (size_t i = 0; i < n; ++i) {
    long k = long(i);
    e[i] = in(k - kLatency - delayFrames) + (k >= delayFrames ? feedback * e[i - delayFrames] : 0.0);
    out[i] = in(k - kLatency) + mix * e[i];
  }
  return out;
}

TEST(FilterStream, DelayOutputIsExactInEverySampleFormat) {
  constexpr size_t kFrames = 3000;
  constexpr ULONG kPerSample = 512;
  constexpr int kDelayFrames = 100;  // the defaults: 100 frames, feedback 0.5, mix 0.5
  constexpr size_t kTail = kLatency + kDelayFrames * 19;  // echoes down to 1e-6 of the input
  for (const Format& f : Formats()) {
    SCOPED_TRACE(f.name);
    FilterChain chain(Register("zqdelay", kDelay));
    ASSERT_EQ(chain.made, S_OK);
    const WORD bytes = f.bits / 8;
    const WAVEFORMATEX format = Wave(f.tag, 2, 48000, f.bits);
    std::vector<BYTE> data(kFrames * format.nBlockAlign);
    std::vector<double> x[2];
    for (size_t i = 0; i < kFrames; ++i) {
      for (int c = 0; c < 2; ++c) {
        double v = 0.2 * std::sin(0.01 * double(i) * (c + 1)) + (i % 97 == 0 ? 0.05 : 0.0);
        BYTE* p = &data[(i * 2 + c) * bytes];
        f.encode(p, v);
        x[c].push_back(f.decode(p));  // what the plug-in really gets
      }
    }
    chain.Feed(format, data, kPerSample);
    ASSERT_EQ(chain.ConnectAll(), S_OK);
    ASSERT_EQ(chain.Play(), S_OK);
    const ULONG maxBlock = static_cast<CZqVstWrapTransform*>(chain.prop)->MaxBlock();

    std::vector<BYTE> all = chain.sink->AllBytes();
    ASSERT_EQ(all.size(), (kFrames + kTail) * format.nBlockAlign);
    const std::vector<ZqReceivedSample> samples = chain.sink->Samples();
    size_t streamed = 0, i = 0;
    for (; i < samples.size() && samples[i].timeStatus == S_OK; ++i) streamed += samples[i].data.size();
    EXPECT_EQ(streamed, (kFrames - kLatency) * format.nBlockAlign);
    for (; i < samples.size(); ++i) EXPECT_LE(samples[i].data.size(), maxBlock * format.nBlockAlign) << "tail chunk";

    for (int c = 0; c < 2; ++c) {
      std::vector<double> model = DelayModel(x[c], kFrames + kTail + kLatency, kDelayFrames, 0.5, 0.5);
      // While the tail is drawn the effect clears only the first of its
      // input channels (see its processing), so the second channel is
      // compared up to the end of the input.
      const size_t compared = c == 0 ? kFrames + kTail : kFrames;
      int wrong = 0;
      for (size_t k = 0; k < compared && wrong < 5; ++k) {
        double got = f.decode(&all[(k * 2 + c) * bytes]);
        if (std::fabs(got - model[k + kLatency]) > f.tolerance) {
          ++wrong;
          ADD_FAILURE() << "channel " << c << " frame " << k << ": " << got << " instead of " << model[k + kLatency];
        }
      }
    }
  }
}

}  // namespace
