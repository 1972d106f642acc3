// Parameters through a whole filter in a graph: an envelope's clock follows
// the stream and the frames processed, and a plug-in's own automation and
// edits reach the host's callback.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "base/status.h"
#include "params_harness.h"
#include "tests/filter/filter_fixture.h"

namespace {

using namespace zqtest;

TEST(FilterParams, TheEnvelopeClockMovesByWhatTheOutputBufferTook) {
  // Mono into the stereo gain: an output buffer, sized like the input's,
  // holds half a sample, so a sample of 512 frames goes out in chunks of at
  // most 256.  The stream starts at one second, where the clock starts:
  // silence for the first 384 frames (96,000 units at 40 kHz), then unit
  // gain.
  FilterChain chain(Register("zqgain", FourCC("ZqGn")));
  ASSERT_EQ(chain.made, S_OK);
  IMediaParams* media = Query<IMediaParams>(chain.filter);
  ASSERT_NE(media, nullptr);
  MP_ENVELOPE_SEGMENT steps[] = {Segment(kSecond, kSecond + 96000, 0, 0),
                                 Segment(kSecond + 96000, 2 * kSecond, 50, 50)};
  ASSERT_EQ(media->AddEnvelope(0, 2, steps), S_OK);
  std::vector<BYTE> data(512 * 2);
  for (size_t i = 0; i < 512; ++i) reinterpret_cast<int16_t*>(data.data())[i] = 1000;
  chain.Feed(Wave(WAVE_FORMAT_PCM, 1, 40000, 16), data, 512);
  chain.source->SetStartTime(kSecond);
  ASSERT_EQ(chain.ConnectAll(), S_OK);
  ASSERT_EQ(chain.Play(), S_OK);

  std::vector<BYTE> all = chain.sink->AllBytes();
  ASSERT_EQ(all.size(), 512u * 4);
  const auto* out = reinterpret_cast<const int16_t*>(all.data());
  size_t silent = 0;
  while (silent < 512 && out[silent * 2] == 0) ++silent;
  EXPECT_EQ(silent, 384u);
  EXPECT_EQ(out[511 * 2], 1000);
  media->Release();
}

TEST(FilterParams, ThePlugInsOwnChangesReachTheHost) {
  FilterChain chain(Register("zqtest_prober", FourCC("ZqPr")));
  ASSERT_EQ(chain.made, S_OK);
  IMediaParams* media = Query<IMediaParams>(chain.filter);
  IMediaParamsSetUICallback* set = Query<IMediaParamsSetUICallback>(chain.filter);
  ASSERT_TRUE(media && set);
  auto* callback = new RecordingCallback(nullptr);
  ASSERT_EQ(set->SetUICallback(callback), S_OK);

  chain.Feed(Wave(WAVE_FORMAT_IEEE_FLOAT, 2, 44100, 32), std::vector<BYTE>(256 * 8), 128);
  ASSERT_EQ(chain.ConnectAll(), S_OK);
  // Arming through the host's SetParam: the plug-in runs its probes (an
  // automation of parameter 1 to 0.25, then an edit of it) in its next block.
  ASSERT_EQ(media->SetParam(0, 100.0f), S_OK);
  ASSERT_EQ(chain.Play(), S_OK);

  MP_DATA target = 0;
  media->GetParam(1, &target);
  EXPECT_FLOAT_EQ(target, 25.0f);
  const std::vector<std::string>& calls = callback->calls;
  auto changed = std::find(calls.begin(), calls.end(), "changed 1 25");
  ASSERT_NE(changed, calls.end());
  auto begin = std::find(changed, calls.end(), "begin 1");
  ASSERT_NE(begin, calls.end());
  EXPECT_NE(std::find(begin, calls.end(), "end 1"), calls.end());

  set->SetUICallback(nullptr);
  EXPECT_EQ(callback->RefCount(), 1u);
  callback->Release();
  set->Release();
  media->Release();
}

}  // namespace
