// zqvst render and preset save: what reaches the output file.
#include <cmath>

#include "platform/environment.h"
#include "tests/tools/zqvst/zqvst_fixture.h"

namespace {

using namespace zqvsttest;

class ZqvstRender : public ZqvstTest {};

double Energy(const Audio& a) {
  double sum = 0;
  for (double s : a.samples) sum += s * s;
  return sum;
}

TEST_F(ZqvstRender, ImpulseThroughTheDelayHasItsEchoesWithLatencyRemovedAndTheTailDrawn) {
  const Result r = Run({"render", "--plugin", Plugin("zqdelay"), "--signal", "impulse", "--seconds", "0.1",
                        "--output", Path("out.wav")});
  ASSERT_EQ(r.exitCode, 0u) << r.err;
  EXPECT_NE(r.out.find("4800 frames in, 6764 frames out, latency 64 removed, tail 1964 frames"), std::string::npos)
      << r.out;
  EXPECT_EQ(r.err, "") << "no progress bar without a terminal";
  EXPECT_EQ(Files(), std::vector<std::string>{"out.wav"}) << "no temporary file is left";
  const Audio a = ReadAudio(Path("out.wav"));
  ASSERT_TRUE(a.ok);
  EXPECT_EQ(a.channels, 2);
  EXPECT_EQ(a.rate, 48000);
  EXPECT_EQ(a.Subformat(), SF_FORMAT_FLOAT);
  ASSERT_EQ(a.Frames(), 4800u + 1964u);
  // The impulse, then echoes every 100 frames: 0.5, halved each time.
  for (size_t n = 0; n < a.Frames(); ++n) {
    const double expected = n == 0 ? 1.0 : n % 100 ? 0.0 : std::ldexp(1.0, -int(n / 100));
    ASSERT_NEAR(a.At(n, 0), expected, 1e-6) << "frame " << n;
    ASSERT_NEAR(a.At(n, 1), expected, 1e-6) << "frame " << n;
  }
}

TEST_F(ZqvstRender, AFileThroughTheDelayWithSettingsKeepsEveryFrame) {
  // Mix 0 leaves only the latency, which the filter removes, and a tail of
  // 64 silent frames; the settings name a parameter and an index.
  std::vector<float> samples;
  for (int n = 0; n < 3000; ++n) samples.insert(samples.end(), {float(n) / 4096.0f, -float(n) / 8192.0f});
  ASSERT_TRUE(WriteFloatWav(Path("in.wav"), 2, 44100, samples));
  const Audio a = Render("zqdelay", {"--input", Path("in.wav"), "--set", "Mix=0", "--set", "0=300", "--block", "333"});
  ASSERT_TRUE(a.ok);
  EXPECT_EQ(a.rate, 44100);
  EXPECT_EQ(a.Subformat(), SF_FORMAT_FLOAT) << "the input's format by default";
  ASSERT_EQ(a.Frames(), 3000u + 64u);
  samples.resize(2 * a.Frames(), 0.0f);
  for (size_t n = 0; n < a.samples.size(); ++n) ASSERT_EQ(a.samples[n], double(samples[n])) << n;
}

// A 10 ms stream is shorter than one block: the tail is drawn from input
// planes that held the whole stream, and none of it may come back on any
// channel.  Integer formats pass through float exactly: 24 bits fit a
// float's mantissa; 32-bit full scale rounds to 2^31 and is clipped back.
TEST_F(ZqvstRender, EveryFormatAndContainerCarriesAFullScaleImpulseAndASilentTail) {
  const struct {
    const char* format;
    const char* file;
    int type;  // container and encoding
    double fullScale;  // as read back, scaled to +-1
  } cases[] = {
      {"s16", "s16.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 32767.0 / 32768.0},
      {"s24", "s24.aiff", SF_FORMAT_AIFF | SF_FORMAT_PCM_24, 8388607.0 / 8388608.0},
      {"s32", "s32.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_32, 2147483647.0 / 2147483648.0},
      {"f32", "f32.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 1.0},
      {"f64", "f64.wav", SF_FORMAT_WAV | SF_FORMAT_DOUBLE, 1.0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.file);
    const Audio a = Render("zqdelay", {"--signal", "impulse", "--seconds", "0.01", "--rate", "44100", "--format",
                                       c.format, "--set", "Mix=0", "--block", "512"}, c.file);
    ASSERT_TRUE(a.ok);
    EXPECT_EQ(a.format, c.type);
    ASSERT_EQ(a.Frames(), 441u + 64u);
    const double tolerance = (c.type & SF_FORMAT_SUBMASK) == SF_FORMAT_PCM_32 ? 1.0 / 2147483648.0 : 0.0;
    for (int channel = 0; channel < 2; ++channel) {
      EXPECT_NEAR(a.At(0, channel), c.fullScale, tolerance);
      for (size_t n = 1; n < a.Frames(); ++n) ASSERT_EQ(a.At(n, channel), 0.0) << n << " on " << channel;
    }
  }
}

TEST_F(ZqvstRender, BlockSizeDoesNotChangeTheOutputAndNoiseIsTheSameEveryTime) {
  std::vector<Audio> outputs;
  for (const char* block : {"512", "16", "333", "4096"}) {
    outputs.push_back(Render("zqdelay", {"--signal", "noise", "--seconds", "0.2", "--set", "Delay=37", "--block",
                                         block}, std::string("b") + block + ".wav"));
    ASSERT_TRUE(outputs.back().ok);
  }
  EXPECT_GT(Energy(outputs[0]), 1.0) << "noise is not silence";
  // The stream itself is the same whatever the block size.  In the tail the
  // effect clears only the start of its first input, so the other channel
  // keeps what the last block left there, and that depends on the block.
  const size_t streamFrames = 9600;
  for (size_t i = 1; i < outputs.size(); ++i) {
    ASSERT_EQ(outputs[i].Frames(), outputs[0].Frames()) << i;
    for (size_t n = 0; n < outputs[0].Frames(); ++n) {
      ASSERT_EQ(outputs[i].At(n, 0), outputs[0].At(n, 0)) << "output " << i << " frame " << n;
      if (n < streamFrames) {
        ASSERT_EQ(outputs[i].At(n, 1), outputs[0].At(n, 1)) << "output " << i << " frame " << n;
      }
    }
  }
}

// Values, a saved preset of them and a program reach the gain before the
// stream; a saved bank shows its programs and loads.
TEST_F(ZqvstRender, ValuesPresetsProgramsAndBanksReachThePlugIn) {
  const Args sets = {"--set", "Gain=25", "--set", "Balance=70", "--set", "Phase=1"};
  Args save = {"preset", "save", "--plugin", Plugin("zqgain"), "--output", Path("p.fxp")};
  save.insert(save.end(), sets.begin(), sets.end());
  ASSERT_EQ(Run(save).exitCode, 0u);
  ASSERT_EQ(Run({"preset", "save", "--plugin", Plugin("zqgain"), "--program", "1", "--output", Path("b.fxb")}).exitCode,
            0u);
  const Result shown = Run({"preset", "show", Path("b.fxb")});
  EXPECT_EQ(shown.exitCode, 0u) << shown.err;
  EXPECT_NE(shown.out.find("Quiet"), std::string::npos) << shown.out;

  Args withSets = {"--seconds", "0.05"};
  withSets.insert(withSets.end(), sets.begin(), sets.end());
  const Audio plain = Render("zqgain", {"--seconds", "0.05"}, "plain.wav");
  const Audio a = Render("zqgain", withSets, "sets.wav");
  const Audio preset = Render("zqgain", {"--seconds", "0.05", "--preset", Path("p.fxp")}, "preset.wav");
  const Audio program = Render("zqgain", {"--seconds", "0.05", "--program", "1"}, "program.wav");
  const Audio bank = Render("zqgain", {"--seconds", "0.05", "--bank", Path("b.fxb")}, "bank.wav");
  ASSERT_TRUE(plain.ok && a.ok && preset.ok && program.ok && bank.ok);
  EXPECT_EQ(a.samples, preset.samples);
  ASSERT_EQ(a.Frames(), plain.Frames());
  // Gain 25 % gives g = 0.5, inverted; balance 70 % (b = 0.4) leaves the
  // left at 0.6 and the right whole.  Program 1, "Quiet", halves the level.
  for (size_t n = 1; n < plain.Frames(); n += 97) {
    EXPECT_NEAR(a.At(n, 0), -0.5 * 0.6 * plain.At(n, 0), 1e-6) << n;
    EXPECT_NEAR(a.At(n, 1), -0.5 * plain.At(n, 1), 1e-6) << n;
    EXPECT_NEAR(program.At(n, 1), 0.5 * plain.At(n, 1), 1e-6) << n;
  }
  EXPECT_GT(Energy(plain), 1.0);
}

// Channels reach plug-ins of other shapes, and one without parameters or
// programs: a mono impulse through 1 in / 2 out (out0 = in, out1 = -in), six
// through 6 in / 6 out (out k = in k * (k + 1); floats keep what exceeds
// full scale).
TEST_F(ZqvstRender, ImpulsesReachPlugInsOfOtherChannelCounts) {
  const struct {
    const char* plugin;
    const char* channels;
    std::vector<double> first;  // the first frame out
  } cases[] = {{"zqtest_1in2out", "1", {1, -1}}, {"zqtest_6x6", "6", {1, 2, 3, 4, 5, 6}}};
  for (const auto& c : cases) {
    const Audio a = Render(c.plugin, {"--channels", c.channels, "--signal", "impulse", "--seconds", "0.01"});
    ASSERT_TRUE(a.ok) << c.plugin;
    ASSERT_EQ(a.channels, int(c.first.size())) << c.plugin;
    ASSERT_EQ(a.Frames(), 480u) << c.plugin;
    EXPECT_EQ(std::vector<double>(a.samples.begin(), a.samples.begin() + a.channels), c.first) << c.plugin;
    EXPECT_EQ(Energy(a), Energy(Audio{true, 1, 0, 0, c.first})) << c.plugin << ": more than the first frame";
  }
}

// The envelope moves the gain in steps of 20 ms (960 frames at 48 kHz): each
// step runs at the ramp's value at its start.  With samples of 960 frames
// the steps and the samples line up.
TEST_F(ZqvstRender, AutomationMovesTheGainAtEachEnvelopeStep) {
  ASSERT_TRUE(WriteFloatWav(Path("in.wav"), 2, 48000, std::vector<float>(2 * 9600, 0.25f)));
  WriteAll(Path("gain.txt"),
           "# gain from silence to +6 dB over 100 ms\n"
           "Gain 0 0.1 0 100 linear\n"
           "\"Balance\" 0 0.2 50 50 jump\n");
  const Audio a = Render("zqgain", {"--input", Path("in.wav"), "--automation", Path("gain.txt"), "--block", "960"});
  ASSERT_TRUE(a.ok);
  ASSERT_EQ(a.Frames(), 9600u);
  // Past its end the ramp moves the gain no more: it holds the value of the
  // last step inside the segment (80 %, g = 1.6).
  for (size_t n : {0, 959, 960, 1919, 3840, 4799, 4800, 9599}) {
    const double gain = 2.0 * std::min(4, int(n / 960)) * 960.0 / 48000.0 / 0.1;
    EXPECT_NEAR(a.At(n, 0), 0.25 * gain, 1e-5) << "frame " << n;
    EXPECT_NEAR(a.At(n, 1), 0.25 * gain, 1e-5) << "frame " << n;
  }
}

// Real plug-ins of the distribution, when installed.  They are foreign code
// built without the sanitizers, and some keep allocations to the end of the
// process: the leak check of a sanitized program is not theirs to pass.
TEST_F(ZqvstRender, DistributionPlugInsRenderASignal) {
  WCHAR saved[1024] = {};
  const DWORD savedLength = GetEnvironmentVariableW(u"ASAN_OPTIONS", saved, 1024);
  const std::u16string options = std::u16string(saved, savedLength < 1024 ? savedLength : 0) + u":detect_leaks=0";
  SetEnvironmentVariableW(u"ASAN_OPTIONS", options.c_str());
  int found = 0;
  for (const char* module :
       {"/usr/lib/lxvst/DragonflyRoomReverb-vst.so", "/usr/lib/vst/lsp-plugins/comp-delay-stereo.so"}) {
    if (!fs::exists(module)) continue;
    ++found;
    const Result r = Run({"render", "--plugin", module, "--seconds", "0.5", "--rate", "44100", "--output",
                          Path("out.wav")});
    EXPECT_EQ(r.exitCode, 0u) << module << ": " << r.err;
    const Audio a = ReadAudio(Path("out.wav"));
    EXPECT_GE(a.Frames(), 22050u) << module;
    EXPECT_GT(Energy(a), 0.0) << module << " gave silence for a sine";
    fs::remove(Path("out.wav"));
  }
  SetEnvironmentVariableW(u"ASAN_OPTIONS", savedLength > 0 && savedLength < 1024 ? saved : nullptr);
  if (found == 0) GTEST_SKIP() << "no distribution plug-ins installed";
}

}  // namespace
