// Parameters through a whole filter in a graph: an envelope moves a real
// plug-in's gain in 20 ms steps, and a plug-in's own automation and edits
// reach the host's callback.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "base/status.h"
#include "params_harness.h"
#include "tests/filter/filter_fixture.h"

namespace {

using namespace zqtest;

std::vector<BYTE> ConstantFloatStereo(size_t frames, float value) {
  std::vector<BYTE> bytes(frames * 8);
  for (size_t i = 0; i < frames * 2; ++i) std::memcpy(&bytes[i * 4], &value, 4);
  return bytes;
}

TEST(FilterParams, EnvelopeMovesThePlugInInSteps) {
  FilterChain chain(Register("zqgain", FourCC("ZqGn")));
  ASSERT_EQ(chain.made, S_OK);
  IMediaParams* media = Query<IMediaParams>(chain.filter);
  ASSERT_NE(media, nullptr);
  // Gain (outward 0..100, the plug-in's g = 2v) from 0 to 100 over one
  // second: at each 20 ms step the gain rises by 0.04.
  MP_ENVELOPE_SEGMENT ramp = Segment(0, kSecond, 0, 100);
  ASSERT_EQ(media->AddEnvelope(0, 1, &ramp), S_OK);

  const size_t frames = 44100;
  chain.Feed(Wave(WAVE_FORMAT_IEEE_FLOAT, 2, 44100, 32), ConstantFloatStereo(frames, 0.25f), 4410);
  ASSERT_EQ(chain.ConnectAll(), S_OK);
  ASSERT_EQ(chain.Play(), S_OK);

  std::vector<BYTE> all = chain.sink->AllBytes();
  ASSERT_EQ(all.size(), frames * 8);
  for (size_t n = 0; n < frames; n += 441) {  // twice per chunk
    float left;
    std::memcpy(&left, &all[n * 8], 4);
    const size_t step = n / 882;
    EXPECT_NEAR(left, 0.25f * 0.04f * float(step), 1e-5) << "frame " << n;
  }
  MP_DATA value = 0;
  media->GetParam(0, &value);
  EXPECT_NEAR(value, 98.0f, 1e-3);  // the last step started at 0.98 s
  media->Release();
}

TEST(FilterParams, TheEnvelopeClockMovesByWhatTheOutputBufferTook) {
  // Mono into the stereo gain: an output buffer, sized like the input's,
  // holds half a sample, so a sample of 512 frames goes out in chunks of at
  // most 256.  Silence for the first 384 frames (96,000 units at 40 kHz),
  // then unit gain.
  FilterChain chain(Register("zqgain", FourCC("ZqGn")));
  ASSERT_EQ(chain.made, S_OK);
  IMediaParams* media = Query<IMediaParams>(chain.filter);
  ASSERT_NE(media, nullptr);
  MP_ENVELOPE_SEGMENT steps[] = {Segment(0, 96000, 0, 0), Segment(96000, kSecond, 50, 50)};
  ASSERT_EQ(media->AddEnvelope(0, 2, steps), S_OK);
  std::vector<BYTE> data(512 * 2);
  for (size_t i = 0; i < 512; ++i) reinterpret_cast<int16_t*>(data.data())[i] = 1000;
  chain.Feed(Wave(WAVE_FORMAT_PCM, 1, 40000, 16), data, 512);
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

  chain.Feed(Wave(WAVE_FORMAT_IEEE_FLOAT, 2, 44100, 32), ConstantFloatStereo(256, 0.0f), 128);
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
