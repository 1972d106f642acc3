// Envelopes: merging and flushing, the steps that cut a sample into chunks,
// the curves, and capture against a running envelope.
#include <gtest/gtest.h>

#include <algorithm>

#include "base/status.h"
#include "params_harness.h"

namespace {

using namespace zqtest;

// Two continuous parameters (0..100), streaming at 44.1 kHz.
class Envelopes : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(params.InitParams(table.data(), 2), S_OK);
    params.StartParamStreaming(44100);
  }
  float Value(DWORD index) {
    MP_DATA v = -1;
    params.GetParam(index, &v);
    return v;
  }
  // One chunk at `start`: its frames; *changed gets the reported flag.
  DWORD ChunkAt(REFERENCE_TIME start, DWORD frames, DWORD* changed = nullptr) {
    params.SetSampleTimes(start, 0);
    return Chunk(frames, changed);
  }
  DWORD Chunk(DWORD frames, DWORD* changed = nullptr) {
    DWORD flag = 0;
    DWORD n = params.UpdateEnvelopes(frames, &flag, 1.0);
    if (changed) *changed = flag;
    return n;
  }

  std::vector<ZqVstParamInfo> table = FloatTable(2);
  Params params;
};

TEST_F(Envelopes, LinearSegmentStepsEvery20Milliseconds) {
  // Without an envelope a chunk is what was asked, and the clock runs on.
  EXPECT_EQ(ChunkAt(1000, 4410), 4410u);
  EXPECT_EQ(params.EnvelopeClock(), 1000 + kSecond / 10);

  MP_ENVELOPE_SEGMENT ramp = Segment(0, kSecond, 0, 100);
  ASSERT_EQ(params.AddEnvelope(0, 1, &ramp), S_OK);
  float expected = 0;
  for (int block = 0; block < 10; ++block) {  // samples of 4410 frames
    params.SetSampleTimes(block * kSecond / 10, 0);
    for (DWORD done = 0; done < 4410;) {
      DWORD changed = 0;
      DWORD n = std::min(Chunk(4410 - done, &changed), 4410 - done);
      ASSERT_EQ(n, 882u) << "block " << block << " at " << done;
      EXPECT_NEAR(Value(0), expected, 1e-3);
      EXPECT_EQ(changed, 1u);
      expected += 2;
      done += n;
    }
  }
  EXPECT_EQ(Value(1), 50.0f);
}

TEST_F(Envelopes, ChunksEndAtSegmentsAndLastAtLeastOneSample) {
  MP_ENVELOPE_SEGMENT steps[] = {Segment(0, 1000, 10, 10, MP_CURVE_JUMP),
                                 Segment(1000, 1000, 99, 99, MP_CURVE_JUMP),  // zero length
                                 Segment(1000, 50000, 30, 30, MP_CURVE_JUMP)};
  ASSERT_EQ(params.AddEnvelope(0, 3, steps), S_OK);
  DWORD changed = 0;
  EXPECT_EQ(ChunkAt(0, 4410, &changed), 4u);  // 1000 units are 4.41 frames
  EXPECT_EQ(Value(0), 10.0f);
  EXPECT_EQ(changed, 1u);
  EXPECT_EQ(ChunkAt(500, 4410, &changed), 2u);
  EXPECT_EQ(changed, 0u) << "a jump is reported once";
  // The zero-length segment is never found: the step lands on the next one.
  ChunkAt(1000, 10, &changed);
  EXPECT_EQ(Value(0), 30.0f);
  EXPECT_EQ(changed, 1u);
  // 10 units before an end the chunk is still one sample (227 units).
  EXPECT_EQ(ChunkAt(49990, 4410), 1u);
  EXPECT_EQ(params.EnvelopeClock(), 49990 + 227);
  // After the last segment nothing is driven; a seek back finds the first.
  ChunkAt(60000, 10);
  EXPECT_FALSE(params.IsParamDrivenByEnvelope(0));
  ChunkAt(100, 10);
  EXPECT_TRUE(params.IsParamDrivenByEnvelope(0));
  EXPECT_EQ(Value(0), 10.0f);
}

TEST_F(Envelopes, CurvesAndTheEndOfMotion) {
  MP_ENVELOPE_SEGMENT square = Segment(0, kSecond, 0, 100, MP_CURVE_SQUARE);
  MP_ENVELOPE_SEGMENT inverse = Segment(0, kSecond, 0, 100, MP_CURVE_INVSQUARE);
  params.AddEnvelope(0, 1, &square);
  params.AddEnvelope(1, 1, &inverse);
  DWORD changed = 0;
  ChunkAt(kSecond / 2, 100);
  EXPECT_NEAR(Value(0), 25.0f, 1e-3);
  EXPECT_NEAR(Value(1), 75.0f, 1e-3);
  Chunk(100, &changed);
  EXPECT_EQ(changed, 1u) << "a moving segment reports at every step";
  // A parameter whose envelope went is free at the next step, even while
  // another envelope runs.
  params.FlushEnvelope(0, 0, kSecond);
  Chunk(100);
  EXPECT_FALSE(params.IsParamDrivenByEnvelope(0));
  EXPECT_TRUE(params.IsParamDrivenByEnvelope(1));
  // A curve not drawn here holds its start value.
  MP_ENVELOPE_SEGMENT sine = Segment(0, kSecond, 20, 100, MP_CURVE_SINE);
  params.AddEnvelope(0, 1, &sine);
  ChunkAt(kSecond / 2, 100);
  EXPECT_EQ(Value(0), 20.0f);
  // With every envelope flushed, the motion that stops is reported once.
  params.FlushEnvelope(0xFFFFFFFF, 0, kSecond);
  Chunk(100, &changed);
  EXPECT_EQ(changed, 1u);
  Chunk(100, &changed);
  EXPECT_EQ(changed, 0u);
}

TEST_F(Envelopes, AddAndFlushRemoveWholeSegments) {
  MP_ENVELOPE_SEGMENT first[] = {Segment(0, 1000, 10, 10, MP_CURVE_JUMP),
                                 Segment(2000, 4000, 20, 20, MP_CURVE_JUMP)};
  ASSERT_EQ(params.AddEnvelope(0, 2, first), S_OK);
  // Overlapping only the end of the second segment removes all of it.
  MP_ENVELOPE_SEGMENT over = Segment(3500, 5000, 40, 40, MP_CURVE_JUMP);
  ASSERT_EQ(params.AddEnvelope(0, 1, &over), S_OK);
  ChunkAt(2500, 1);
  EXPECT_EQ(Value(0), 50.0f);
  ChunkAt(4000, 1);
  EXPECT_EQ(Value(0), 40.0f);
  // A segment that ends where the flushed range starts stays.
  EXPECT_EQ(params.FlushEnvelope(0, 1000, 3600), S_OK);
  ChunkAt(0, 1);
  EXPECT_EQ(Value(0), 10.0f);
  ChunkAt(4000, 1);
  EXPECT_FALSE(params.IsParamDrivenByEnvelope(0));
  EXPECT_EQ(params.AddEnvelope(0, 0, first), E_INVALIDARG);
  EXPECT_EQ(params.AddEnvelope(2, 1, first), E_INVALIDARG);
}

TEST_F(Envelopes, CaptureHoldsAParameterAgainstItsEnvelope) {
  MP_ENVELOPE_SEGMENT ramp = Segment(0, kSecond, 0, 100);
  params.AddEnvelope(0, 1, &ramp);
  ChunkAt(kSecond / 10, 441);
  EXPECT_NEAR(Value(0), 10.0f, 1e-3);
  EXPECT_EQ(params.SetParam(0, 70.0f), S_FALSE) << "a host can't set against a running envelope";

  params.BeginParamCapture(0);
  params.SetNormalizedParam(0, 0.7f);
  DWORD changed = 0;
  ChunkAt(kSecond / 5, 441, &changed);
  EXPECT_NEAR(Value(0), 70.0f, 1e-4);
  EXPECT_EQ(changed, 0u);

  // After release a change is reported once, even on a segment at rest.
  params.EndParamCapture(0);
  MP_ENVELOPE_SEGMENT hold = Segment(0, kSecond, 33, 33, MP_CURVE_JUMP);
  params.AddEnvelope(0, 1, &hold);
  ChunkAt(kSecond / 2, 441);
  Chunk(441, &changed);
  EXPECT_EQ(changed, 0u);
  params.BeginParamCapture(0);
  params.EndParamCapture(0);
  Chunk(441, &changed);
  EXPECT_EQ(changed, 1u);
  Chunk(441, &changed);
  EXPECT_EQ(changed, 0u);
  params.StopParamStreaming();
  EXPECT_EQ(params.SetParam(0, 70.0f), S_OK);

  // A flush during a hold ends the envelope's claim on the parameter, also
  // while another parameter's envelope runs on.
  params.StartParamStreaming(44100);
  MP_ENVELOPE_SEGMENT other = Segment(0, kSecond, 0, 100);
  params.AddEnvelope(1, 1, &other);
  ChunkAt(kSecond / 2, 441);
  params.BeginParamCapture(0);
  params.FlushEnvelope(0, 0, kSecond);
  Chunk(441);
  params.EndParamCapture(0);
  Chunk(441);
  EXPECT_EQ(params.SetParam(0, 20.0f), S_OK);
}

}  // namespace
