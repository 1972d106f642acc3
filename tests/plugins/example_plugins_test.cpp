// The example plug-ins: the answers a host reads from them, their
// parameters and programs, and their exactly predictable outputs.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <iterator>
#include <limits>
#include <vector>

#include "tests/plugins/plugin_host.h"

namespace {

using zqtest::Id;
using zqtest::Plugin;
using Planes = std::vector<std::vector<float>>;

std::vector<float> Ramp(int32_t frames, float start, float step) {
  std::vector<float> v(static_cast<size_t>(frames));
  for (int32_t i = 0; i < frames; ++i) v[static_cast<size_t>(i)] = start + step * static_cast<float>(i);
  return v;
}

TEST(ExamplePlugins, AnswerWhatAHostAsksOfEveryModule) {
  struct Row {
    const char* file;
    const char* name;
    int32_t id;
    int32_t params;
    int32_t programs;
    int32_t latency;
    int32_t flags;
  };
  const Row rows[] = {
      {"zqgain.so", "ZqGain", Id("ZqGn"), 4, 4, 0,
       effFlagsCanReplacing | effFlagsCanDoubleReplacing | effFlagsNoSoundInStop},
      {"zqdelay.so", "ZqDelay", Id("ZqDl"), 3, 2, 64, effFlagsCanReplacing},
      {"zqchunk.so", "ZqChunk", Id("ZqCk"), 3, 3, 0, effFlagsCanReplacing | effFlagsProgramChunks},
      {"zqbiquad.so", "ZqBiquad", Id("ZqBq"), 2, 3, 0, effFlagsCanReplacing | effFlagsCanDoubleReplacing},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.file);
    Plugin p(row.file);
    ASSERT_TRUE(p.ok());
    const AEffect* e = p.effect();
    EXPECT_EQ(row.id, e->uniqueID);
    EXPECT_EQ(2, e->numInputs);
    EXPECT_EQ(2, e->numOutputs);
    EXPECT_EQ(row.params, e->numParams);
    EXPECT_EQ(row.programs, e->numPrograms);
    EXPECT_EQ(row.latency, e->initialDelay);
    EXPECT_EQ(row.flags, e->flags);
    EXPECT_EQ(row.flags & effFlagsCanDoubleReplacing ? 1 : 0, e->processDoubleReplacing != nullptr ? 1 : 0);
    EXPECT_EQ(row.name, p.Text(effGetEffectName));
    EXPECT_EQ("Ostrand", p.Text(effGetVendorString));
    EXPECT_EQ("ZqVstWrap Examples", p.Text(effGetProductString));
    EXPECT_EQ(1000, p.Call(effGetVendorVersion));
    EXPECT_EQ(2400, p.Call(effGetVstVersion));
    EXPECT_EQ(kPlugCategEffect, p.Call(effGetPlugCategory));
    EXPECT_EQ(-1, p.Call(effCanDo, 0, 0, const_cast<char*>("receiveVstEvents")));
    EXPECT_EQ(1, p.Call(effCanDo, 0, 0, const_cast<char*>("plugAsChannelInsert")));
    EXPECT_EQ(0, p.Call(effCanDo, 0, 0, const_cast<char*>("somethingNobodyKnows")));
    // Every text stays within the published limits.
    for (int32_t i = 0; i < e->numParams; ++i) {
      EXPECT_LT(p.Text(effGetParamName, i).size(), size_t{kVstMaxParamStrLen}) << i;
      EXPECT_LT(p.Text(effGetParamDisplay, i).size(), size_t{kVstMaxParamStrLen}) << i;
      EXPECT_LT(p.Text(effGetParamLabel, i).size(), size_t{kVstMaxParamStrLen}) << i;
    }
  }
}

// Parameter kinds and program names reach a host through the wrapper's
// tables and zqvst info; here the texts a value gives and the limits.
TEST(ZqGain, TextsFollowTheValuesAndStayWithinTheLimits) {
  Plugin p("zqgain.so");
  ASSERT_TRUE(p.ok());
  EXPECT_EQ("dB", p.Text(effGetParamLabel, 0));
  EXPECT_EQ("", p.Text(effGetParamLabel, 1));
  const struct {
    int32_t index;
    float value;
    const char* text;
  } rows[] = {{0, 0.5f, "0.00"}, {0, 0.25f, "-6.02"}, {0, 0.0f, "-inf"},    {1, 1.0f, "On"},
              {2, 1.0f / 3, "Mono"}, {2, 2.0f / 3, "Swap"}, {2, 1.0f, "Mute"}, {3, 0.0f, "-1.00"}};
  for (const auto& row : rows) {
    p.Set(row.index, row.value);
    EXPECT_EQ(row.text, p.Text(effGetParamDisplay, row.index)) << row.index << " at " << row.value;
  }
  char buffer[260] = {};
  EXPECT_EQ(0, p.Call(effGetProgramNameIndexed, 4, 0, buffer));
  EXPECT_STREQ("", buffer);
  char longName[] = "A name far longer than twenty-three characters";
  p.Call(effSetProgramName, 0, 0, longName);
  EXPECT_EQ(std::string(longName, kVstMaxProgNameLen - 1), p.Text(effGetProgramName));
}

TEST(ZqGain, OutputFollowsTheDocumentedFormula) {
  Plugin p("zqgain.so");
  ASSERT_TRUE(p.ok());
  p.Resume();
  const int32_t n = 37;
  const Planes in = {Ramp(n, -1.0f, 0.0625f), Ramp(n, 0.5f, -0.03125f)};
  using Side = float (*)(float l, float r);
  const struct {
    int32_t program;
    float mode, balance;  // set when not negative
    Side left, right;
  } rows[] = {
      {0, -1, -1, [](float l, float) { return l; }, [](float, float r) { return r; }},
      {1, -1, -1, [](float l, float) { return 0.5f * l; }, [](float, float r) { return 0.5f * r; }},
      {2, -1, -1, [](float l, float) { return -l; }, [](float, float r) { return -r; }},
      {3, -1, -1, [](float l, float r) { return (l + r) * 0.5f; }, [](float, float) { return 0.0f; }},  // mono left
      {0, 2.0f / 3, 0.5f, [](float, float r) { return r; }, [](float l, float) { return l; }},  // swap
      {0, 1, 0.5f, [](float, float) { return 0.0f; }, [](float, float) { return 0.0f; }},     // mute
      {0, 0, 0.75f, [](float l, float) { return 0.5f * l; }, [](float, float r) { return r; }},  // balance right
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::to_string(row.program) + " " + std::to_string(row.mode) + " " + std::to_string(row.balance));
    p.Call(effSetProgram, 0, row.program);
    if (row.mode >= 0) p.Set(2, row.mode);
    if (row.balance >= 0) p.Set(3, row.balance);
    const Planes out = p.Run(in, n, {1, 3, 33});
    for (size_t i = 0; i < static_cast<size_t>(n); ++i) {
      EXPECT_EQ(row.left(in[0][i], in[1][i]), out[0][i]) << i;
      EXPECT_EQ(row.right(in[0][i], in[1][i]), out[1][i]) << i;
    }
  }
  // The double path computes the same products.
  p.Call(effSetProgram, 0, 1);
  const std::vector<std::vector<double>> din = {{0.25, -0.5, 1.0}, {2.0, 0.125, -4.0}};
  const auto dout = p.RunDouble(din, 3);
  EXPECT_EQ((std::vector<double>{0.125, -0.25, 0.5}), dout[0]);
  EXPECT_EQ((std::vector<double>{1.0, 0.0625, -2.0}), dout[1]);
}

// The impulse response of ZqDelay: out[L] = x, out[L + k*D] = m * f^(k-1) * x.
std::vector<float> DelayImpulse(int32_t frames, int32_t at, float height, int32_t d, float f, float m) {
  std::vector<float> v(static_cast<size_t>(frames), 0.0f);
  const int32_t latency = 64;
  if (at + latency < frames) v[static_cast<size_t>(at + latency)] = height;
  float g = m * height;
  for (int32_t t = at + latency + d; t < frames; t += d, g *= f) v[static_cast<size_t>(t)] = g;
  return v;
}

TEST(ZqDelay, ImpulseResponseIsExactAcrossAwkwardBlocks) {
  Plugin p("zqdelay.so");
  ASSERT_TRUE(p.ok());
  p.Resume();
  const int32_t n = 64 + 100 * 6 + 17;
  Planes in(2, std::vector<float>(n, 0.0f));
  in[0][0] = 1.0f;
  in[1][5] = 2.0f;
  const Planes out = p.Run(in, n, {1, 3, 253, 64});
  EXPECT_EQ(DelayImpulse(n, 0, 1.0f, 100, 0.5f, 0.5f), out[0]);
  EXPECT_EQ(DelayImpulse(n, 5, 2.0f, 100, 0.5f, 0.5f), out[1]);
}

TEST(ZqDelay, ParametersSetDelayFeedbackMixAndTail) {
  Plugin p("zqdelay.so");
  ASSERT_TRUE(p.ok());
  EXPECT_EQ(64 + 100 * 19, p.Call(effGetTailSize));
  p.Set(0, 9.0f / 4095.0f);  // D = 10
  p.Set(1, 0.25f);
  EXPECT_EQ("10", p.Text(effGetParamDisplay, 0));
  p.Resume();
  const int32_t n = 200;
  Planes in(2, std::vector<float>(n, 0.0f));
  in[0][0] = 1.0f;
  const Planes out = p.Run(in, n, {7});
  EXPECT_EQ(DelayImpulse(n, 0, 1.0f, 10, 0.25f, 0.5f), out[0]);
  EXPECT_EQ(std::vector<float>(n, 0.0f), out[1]);
  // Echoes 0.5 * 0.25^(k-1) stay at or above 1e-6 for k = 1..10.
  EXPECT_EQ(64 + 10 * 10, p.Call(effGetTailSize));
  p.Set(1, 0.0f);
  EXPECT_EQ(64 + 10, p.Call(effGetTailSize));
  p.Set(2, 0.0f);
  EXPECT_EQ(64, p.Call(effGetTailSize));
  // Mains on clears what is still in the lines: an impulse not yet out.
  p.Run(Planes(2, std::vector<float>(1, 1.0f)), 1);
  p.Call(effMainsChanged, 0, 0);
  p.Resume();
  const Planes silence(2, std::vector<float>(400, 0.0f));
  EXPECT_EQ(silence, p.Run(silence, 400));
}

// Chunk layout of ZqChunk: 16-byte header, 36-byte program records.
std::vector<unsigned char> GetChunk(Plugin& p, int32_t index) {
  void* data = nullptr;
  const intptr_t size = p.Call(effGetChunk, index, 0, &data);
  if (size <= 0 || data == nullptr) return {};
  const auto* bytes = static_cast<const unsigned char*>(data);
  return std::vector<unsigned char>(bytes, bytes + size);
}

intptr_t SetChunk(Plugin& p, int32_t index, std::vector<unsigned char> chunk) {
  return p.Call(effSetChunk, index, static_cast<intptr_t>(chunk.size()), chunk.data());
}

TEST(ZqChunk, DamagedChunksAreRefusedAndChangeNothing) {
  Plugin p("zqchunk.so");
  ASSERT_TRUE(p.ok());
  const auto program = GetChunk(p, 1);
  const auto bank = GetChunk(p, 0);
  ASSERT_FALSE(program.empty());
  ASSERT_FALSE(bank.empty());
  p.Set(0, 0.375f);

  auto with = [](std::vector<unsigned char> c, size_t at, unsigned char byte) {
    c[at] = byte;
    return c;
  };
  auto withFloat = [](std::vector<unsigned char> c, size_t at, float value) {
    std::memcpy(c.data() + at, &value, sizeof value);
    return c;
  };
  std::vector<unsigned char> longer = program;
  longer.push_back(0);
  std::vector<unsigned char> unterminated = program;
  std::memset(unterminated.data() + 16, 'x', 24);

  const struct {
    const char* what;
    int32_t index;
    std::vector<unsigned char> chunk;
  } cases[] = {
      {"magic", 1, with(program, 0, 0)},
      {"version", 1, with(program, 4, 2)},
      {"program chunk as bank", 0, program},
      {"bank chunk as program", 1, bank},
      {"one byte short", 1, std::vector<unsigned char>(program.begin(), program.end() - 1)},
      {"one byte long", 1, longer},
      {"header only", 1, std::vector<unsigned char>(program.begin(), program.begin() + 16)},
      {"value above 1", 1, withFloat(program, 16 + 24, 1.5f)},
      {"value not a number", 1, withFloat(program, 16 + 24 + 4, std::numeric_limits<float>::quiet_NaN())},
      {"name not terminated", 1, unterminated},
      {"current program out of range", 0, with(bank, 12, 3)},
      {"count", 0, with(bank, 8, 2)},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(0, SetChunk(p, c.index, c.chunk)) << c.what;
    EXPECT_EQ(0.375f, p.Get(0)) << c.what;
    EXPECT_EQ("Init", p.Text(effGetProgramName)) << c.what;
    EXPECT_EQ(0, p.Call(effGetProgram)) << c.what;
  }
  EXPECT_EQ(0, p.Call(effSetChunk, 1, 52, nullptr));
  EXPECT_EQ(0, p.State(17));
  EXPECT_EQ(static_cast<long long>(std::size(cases)) + 1, p.State(18));
}

TEST(ZqBiquad, PassesLowFrequenciesAndStopsHighOnes) {
  Plugin p("zqbiquad.so");
  ASSERT_TRUE(p.ok());
  EXPECT_EQ("1000", p.Text(effGetParamDisplay, 0));
  p.Resume(44100.0f);
  const int32_t n = 4096;
  std::vector<float> nyquist(n);
  for (int32_t i = 0; i < n; ++i) nyquist[static_cast<size_t>(i)] = (i & 1) ? -1.0f : 1.0f;
  const Planes out = p.Run({std::vector<float>(n, 1.0f), nyquist}, n, {1, 3, 253});
  EXPECT_NEAR(1.0f, out[0][n - 1], 1e-4f);
  float peak = 0.0f;
  for (int32_t i = n - 256; i < n; ++i) peak = std::max(peak, std::fabs(out[1][static_cast<size_t>(i)]));
  EXPECT_LT(peak, 0.01f);

  // The double path is the same filter.
  p.Call(effMainsChanged, 0, 0);
  p.Call(effMainsChanged, 0, 1);
  const auto dout = p.RunDouble({std::vector<double>(256, 1.0)}, 256);
  for (size_t i = 0; i < 256; ++i) EXPECT_NEAR(out[0][i], dout[0][i], 1e-6) << i;
}

}  // namespace
