// Inputs whose channels do not match the plug-in's inputs, and the output
// layout --channels asks for: what reaches each output channel, and what is
// refused.  The channel test plug-ins compute exact values (zqtest_channels).
#include "tests/tools/zqvst/zqvst_fixture.h"

namespace zqvsttest {
namespace {

using Frames = std::vector<std::vector<double>>;  // the first frames of the output

class LayoutTest : public ZqvstTest {};

TEST_F(LayoutTest, ChannelsAreFittedToThePlugInOrRefused) {
  // Channel k of each input has its own value, at its own frame.
  ASSERT_TRUE(WriteFloatWav(Path("mono.wav"), 1, 48000, {0.25f, 0.125f, 0, 0}));
  ASSERT_TRUE(WriteFloatWav(Path("stereo.wav"), 2, 48000, {0.25f, 0, 0, -0.5f, 0, 0}));
  std::vector<float> six(6 * 4, 0.0f);
  for (int k = 0; k < 6; ++k) six[size_t(k)] = 0.0625f * float(k + 1);
  ASSERT_TRUE(WriteFloatWav(Path("six.wav"), 6, 48000, six));
  const std::vector<std::string> inputs = Files();

  const struct {
    const char* plugin;
    Args args;
    Frames first;           // empty: refused
    const char* refusal = "";
  } kCases[] = {
      // One filter per channel, each channel's own output.
      {"zqtest_1in2out", {"--input", Path("stereo.wav")}, {{0.25, 0}, {0, -0.5}}},
      {"zqtest_1in2out", {"--input", Path("six.wav")}, {{0.0625, 0.125, 0.1875, 0.25, 0.3125, 0.375}}},
      {"zqtest_1in2out", {"--signal", "impulse", "--channels", "2", "--seconds", "0.01"}, {{1, 1}, {0, 0}}},
      // The mono input on both inputs (out k = 2 in k).
      {"zqtest_2in2out", {"--input", Path("mono.wav")}, {{0.5, 0.5}, {0.25, 0.25}}},
      {"zqtest_2in2out", {"--input", Path("six.wav")}, {}, "give it 2 channels or fewer"},
      // The output's layout: mixed down, or one output copied.
      {"zqtest_2in2out", {"--input", Path("mono.wav"), "--channels", "1"}, {{0.5}, {0.25}}},
      {"zqtest_2in1out", {"--input", Path("stereo.wav"), "--channels", "2"}, {{0.25, 0.25}, {-0.5, -0.5}}},
      {"zqtest_2in2out", {"--input", Path("stereo.wav"), "--channels", "3"}, {}, "--channels can be 2 or 1"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(std::string(c.plugin) + " " + c.args[1] + (c.args.size() > 2 ? " " + c.args[2] : ""));
    Args args{"render", "--plugin", Plugin(c.plugin), "--output", Path("out.wav")};
    args.insert(args.end(), c.args.begin(), c.args.end());
    const Result r = Run(args);
    if (c.first.empty()) {
      EXPECT_EQ(r.exitCode, 1u);
      EXPECT_NE(r.err.find(c.refusal), std::string::npos) << r.err;
      EXPECT_EQ(Files(), inputs);  // nothing written, nothing left over
      continue;
    }
    ASSERT_EQ(r.exitCode, 0u) << r.err;
    const Audio a = ReadAudio(Path("out.wav"));
    ASSERT_EQ(a.channels, int(c.first[0].size()));
    for (size_t f = 0; f < c.first.size(); ++f)
      for (int k = 0; k < a.channels; ++k) EXPECT_EQ(a.At(f, k), c.first[f][size_t(k)]) << f << " " << k;
    fs::remove(Path("out.wav"));
    EXPECT_EQ(Files(), inputs);
  }
}

}  // namespace
}  // namespace zqvsttest
