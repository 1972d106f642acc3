// zqvst render and preset save: what reaches the output file.
#include <cmath>

#include "platform/environment.h"
#include "tests/tools/zqvst/zqvst_fixture.h"

namespace {

using namespace zqvsttest;

class ZqvstRender : public ZqvstTest {};

// zqdelay's output for input `x` with delay D, feedback f and mix m, with
// its latency of 64 removed, for `frames` frames.
std::vector<double> DelayReference(const std::vector<double>& x, int D, double f, double m, size_t frames) {
  auto in = [&](long n) { return n >= 0 && size_t(n) < x.size() ? x[size_t(n)] : 0.0; };
  std::vector<double> e(frames + 64, 0.0), out(frames, 0.0);
  for (long n = 0; n < long(frames + 64); ++n) {
    e[size_t(n)] = in(n - 64 - D) + (n >= D ? f * e[size_t(n - D)] : 0.0);
    if (n >= 64) out[size_t(n - 64)] = in(n - 64) + m * e[size_t(n)];
  }
  return out;
}

TEST_F(ZqvstRender, ImpulseThroughTheDelayHasItsEchoesWithLatencyRemovedAndTheTailDrawn) {
  const Result r = Run({"render", "--plugin", Plugin("zqdelay"), "--signal", "impulse", "--seconds", "0.1",
                        "--output", Path("out.wav")});
  ASSERT_EQ(r.exitCode, 0u) << r.err;
  EXPECT_NE(r.out.find("4800 frames in, 6764 frames out, latency 64 removed, tail 1964 frames"), std::string::npos)
      << r.out;
  EXPECT_EQ(r.err, "") << "no progress bar without a terminal";

  const Audio a = ReadAudio(Path("out.wav"));
  ASSERT_TRUE(a.ok);
  EXPECT_EQ(a.channels, 2);
  EXPECT_EQ(a.rate, 48000);
  EXPECT_EQ(a.subformat, SF_FORMAT_FLOAT);
  ASSERT_EQ(a.Frames(), 4800u + 1964u);
  std::vector<double> x(4800, 0.0);
  x[0] = 1.0;
  const std::vector<double> expected = DelayReference(x, 100, 0.5, 0.5, a.Frames());
  for (size_t n = 0; n < a.Frames(); ++n) {
    ASSERT_NEAR(a.At(n, 0), expected[n], 1e-6) << "frame " << n;
    ASSERT_NEAR(a.At(n, 1), expected[n], 1e-6) << "frame " << n;
  }
  EXPECT_EQ(a.At(0), 1.0);
  EXPECT_EQ(a.At(100), 0.5);
  EXPECT_EQ(Files(), std::vector<std::string>{"out.wav"}) << "no temporary file is left";
}

TEST_F(ZqvstRender, AFileThroughTheDelayWithSettingsKeepsEveryFrame) {
  // A ramp in a mono-free stereo file; Mix 0 leaves only the latency, which
  // the filter removes, and a tail of 64 silent frames.
  std::vector<float> samples;
  for (int n = 0; n < 3000; ++n) {
    samples.push_back(float(n) / 4096.0f);
    samples.push_back(-float(n) / 8192.0f);
  }
  ASSERT_TRUE(WriteFloatWav(Path("in.wav"), 2, 44100, samples));
  const Result r = Run({"render", "--plugin", Plugin("zqdelay"), "--input", Path("in.wav"), "--output",
                        Path("out.wav"), "--set", "Mix=0", "--set", "0=300", "--block", "333"});
  ASSERT_EQ(r.exitCode, 0u) << r.err;
  const Audio a = ReadAudio(Path("out.wav"));
  ASSERT_TRUE(a.ok);
  EXPECT_EQ(a.rate, 44100);
  EXPECT_EQ(a.subformat, SF_FORMAT_FLOAT) << "the input's format by default";
  ASSERT_EQ(a.Frames(), 3000u + 64u);
  for (size_t n = 0; n < 3000; ++n) {
    ASSERT_EQ(a.At(n, 0), double(samples[2 * n])) << n;
    ASSERT_EQ(a.At(n, 1), double(samples[2 * n + 1])) << n;
  }
  for (size_t n = 3000; n < a.Frames(); ++n) ASSERT_EQ(a.At(n, 0), 0.0) << n;
}

TEST_F(ZqvstRender, EveryFormatCarriesAFullScaleImpulseThroughUnchanged) {
  const struct {
    const char* name;
    int subformat;
    double fullScale;  // as read back, scaled to +-1
  } formats[] = {
      {"s16", SF_FORMAT_PCM_16, 32767.0 / 32768.0},
      {"s24", SF_FORMAT_PCM_24, 8388607.0 / 8388608.0},
      {"s32", SF_FORMAT_PCM_32, 2147483647.0 / 2147483648.0},
      {"f32", SF_FORMAT_FLOAT, 1.0},
      {"f64", SF_FORMAT_DOUBLE, 1.0},
  };
  for (const auto& f : formats) {
    const std::string out = Path(std::string(f.name) + ".wav");
    const Result r = Run({"render", "--plugin", Plugin("zqdelay"), "--signal", "impulse", "--seconds", "0.01",
                          "--rate", "44100", "--channels", "2", "--format", f.name, "--set", "Mix=0", "--block",
                          "100", "--output", out});
    ASSERT_EQ(r.exitCode, 0u) << f.name << ": " << r.err;
    const Audio a = ReadAudio(out);
    ASSERT_TRUE(a.ok) << f.name;
    EXPECT_EQ(a.subformat, f.subformat) << f.name;
    ASSERT_EQ(a.Frames(), 441u + 64u) << f.name;
    // Integer formats pass through float exactly: 24 bits fit a float's
    // mantissa; 32-bit full scale rounds to 2^31 and is clipped back.
    const double tolerance = f.subformat == SF_FORMAT_PCM_32 ? 1.0 / 2147483648.0 : 0.0;
    EXPECT_NEAR(a.At(0, 0), f.fullScale, tolerance) << f.name;
    EXPECT_NEAR(a.At(0, 1), f.fullScale, tolerance) << f.name;
    double rest = 0;
    for (size_t n = 1; n < a.Frames(); ++n) rest += std::fabs(a.At(n, 0)) + std::fabs(a.At(n, 1));
    EXPECT_EQ(rest, 0.0) << f.name;
  }
}

TEST_F(ZqvstRender, TheOutputsExtensionChoosesTheContainer) {
  const struct {
    const char* name;
    int major;
  } containers[] = {{"out.flac", SF_FORMAT_FLAC}, {"out.aiff", SF_FORMAT_AIFF}, {"out.wav", SF_FORMAT_WAV}};
  for (const auto& c : containers) {
    const Result r = Run({"render", "--plugin", Plugin("zqgain"), "--seconds", "0.02", "--format", "s24", "--output",
                          Path(c.name)});
    ASSERT_EQ(r.exitCode, 0u) << c.name << ": " << r.err;
    SF_INFO info{};
    SNDFILE* file = sf_open(Path(c.name).c_str(), SFM_READ, &info);
    ASSERT_NE(file, nullptr) << c.name;
    sf_close(file);
    EXPECT_EQ(info.format & SF_FORMAT_TYPEMASK, c.major) << c.name;
    EXPECT_EQ(info.format & SF_FORMAT_SUBMASK, SF_FORMAT_PCM_24) << c.name;
    EXPECT_EQ(info.frames, 960) << c.name;
  }
}

TEST_F(ZqvstRender, BlockSizeDoesNotChangeTheOutputAndNoiseIsTheSameEveryTime) {
  const std::vector<std::string> common = {"render", "--plugin", Plugin("zqdelay"), "--signal", "noise",
                                           "--seconds", "0.2", "--set", "Delay=37"};
  std::vector<Audio> outputs;
  for (const char* block : {"512", "16", "333", "4096", "512"}) {
    std::vector<std::string> args = common;
    const std::string out = Path(std::string("b") + block + "_" + std::to_string(outputs.size()) + ".wav");
    args.insert(args.end(), {"--block", block, "--output", out});
    const Result r = Run(args);
    ASSERT_EQ(r.exitCode, 0u) << block << ": " << r.err;
    outputs.push_back(ReadAudio(out));
    ASSERT_TRUE(outputs.back().ok);
  }
  double energy = 0;
  for (double s : outputs[0].samples) energy += s * s;
  EXPECT_GT(energy, 1.0) << "noise is not silence";
  // The stream itself is the same whatever the block size.  In the tail the
  // effect clears only the start of its first input, so the other channel
  // keeps what the last block left there, and that depends on the block.
  const size_t streamFrames = 9600;
  for (size_t i = 1; i < outputs.size(); ++i) {
    ASSERT_EQ(outputs[i].Frames(), outputs[0].Frames()) << i;
    ASSERT_GE(outputs[0].Frames(), streamFrames);
    for (size_t n = 0; n < outputs[0].Frames(); ++n) {
      ASSERT_EQ(outputs[i].At(n, 0), outputs[0].At(n, 0)) << "output " << i << " frame " << n;
      if (n < streamFrames) {
        ASSERT_EQ(outputs[i].At(n, 1), outputs[0].At(n, 1)) << "output " << i << " frame " << n;
      }
    }
  }
}

TEST_F(ZqvstRender, APresetSavedWithValuesRendersLikeTheValues) {
  const std::vector<std::string> sets = {"--set", "Gain=25", "--set", "Balance=70", "--set", "Phase=1"};
  std::vector<std::string> save = {"preset", "save", "--plugin", Plugin("zqgain"), "--output", Path("p.fxp")};
  save.insert(save.end(), sets.begin(), sets.end());
  Result r = Run(save);
  ASSERT_EQ(r.exitCode, 0u) << r.err;

  const std::vector<std::string> render = {"render", "--plugin", Plugin("zqgain"), "--seconds", "0.05"};
  std::vector<std::string> withSets = render, withPreset = render, plain = render;
  withSets.insert(withSets.end(), sets.begin(), sets.end());
  withSets.insert(withSets.end(), {"--output", Path("sets.wav")});
  withPreset.insert(withPreset.end(), {"--preset", Path("p.fxp"), "--output", Path("preset.wav")});
  plain.insert(plain.end(), {"--output", Path("plain.wav")});
  for (const auto* args : {&withSets, &withPreset, &plain}) {
    r = Run(*args);
    ASSERT_EQ(r.exitCode, 0u) << r.err;
  }
  const Audio a = ReadAudio(Path("sets.wav")), b = ReadAudio(Path("preset.wav")), c = ReadAudio(Path("plain.wav"));
  ASSERT_TRUE(a.ok && b.ok && c.ok);
  EXPECT_EQ(a.samples, b.samples);
  EXPECT_NE(a.samples, c.samples);
  // Gain 25 % gives g = 0.5, inverted; balance 70 % (b = 0.4) leaves the
  // left at 0.6 and the right whole.
  for (size_t n : {size_t(1), size_t(100), size_t(2000)}) {
    EXPECT_NEAR(a.At(n, 0), -0.5 * 0.6 * c.At(n, 0), 1e-6) << n;
    EXPECT_NEAR(a.At(n, 1), -0.5 * c.At(n, 1), 1e-6) << n;
  }
}

TEST_F(ZqvstRender, AMonoSignalThroughAOneInTwoOutPlugInGivesTwoChannels) {
  const Result r = Run({"render", "--plugin", Plugin("zqtest_1in2out"), "--channels", "1", "--seconds", "0.05",
                        "--format", "s16", "--output", Path("out.wav")});
  ASSERT_EQ(r.exitCode, 0u) << r.err;
  const Audio a = ReadAudio(Path("out.wav"));
  ASSERT_TRUE(a.ok);
  EXPECT_EQ(a.channels, 2);
  EXPECT_EQ(a.subformat, SF_FORMAT_PCM_16);
  ASSERT_EQ(a.Frames(), 2400u);
  // out0 = in, out1 = -in: the sine at -6 dBFS, 440 Hz.
  for (size_t n = 0; n < a.Frames(); n += 7) {
    const double x = std::round(std::pow(10.0, -6.0 / 20.0) * std::sin(2 * M_PI * 440.0 * n / 48000.0) * 32767.0);
    EXPECT_NEAR(a.At(n, 0), x / 32768.0, 1.5 / 32768.0) << n;
    EXPECT_NEAR(a.At(n, 1), -x / 32768.0, 1.5 / 32768.0) << n;
  }
}

TEST_F(ZqvstRender, SixChannelsReachAPlugInWithoutParametersOrPrograms) {
  // out k = in k * (k + 1); floats keep what exceeds full scale.
  const Result r = Run({"render", "--plugin", Plugin("zqtest_6x6"), "--channels", "6", "--signal", "impulse",
                        "--seconds", "0.01", "--output", Path("out.wav")});
  ASSERT_EQ(r.exitCode, 0u) << r.err;
  const Audio a = ReadAudio(Path("out.wav"));
  ASSERT_TRUE(a.ok);
  ASSERT_EQ(a.channels, 6);
  ASSERT_EQ(a.Frames(), 480u);
  for (int c = 0; c < 6; ++c) EXPECT_EQ(a.At(0, c), double(c + 1)) << c;
  double rest = 0;
  for (size_t n = 6; n < a.samples.size(); ++n) rest += std::fabs(a.samples[n]);
  EXPECT_EQ(rest, 0.0);
}

TEST_F(ZqvstRender, ABankSavedWithAProgramIsShownAndLoads) {
  Result r = Run({"preset", "save", "--plugin", Plugin("zqgain"), "--program", "1", "--output", Path("b.fxb")});
  ASSERT_EQ(r.exitCode, 0u) << r.err;
  r = Run({"preset", "show", Path("b.fxb")});
  EXPECT_EQ(r.exitCode, 0u) << r.err;
  EXPECT_NE(r.out.find("Quiet"), std::string::npos) << r.out;
  r = Run({"render", "--plugin", Plugin("zqgain"), "--seconds", "0.05", "--bank", Path("b.fxb"), "--output",
           Path("out.wav")});
  EXPECT_EQ(r.exitCode, 0u) << r.err;
}

TEST_F(ZqvstRender, AProgramIsSelectedBeforeTheStream) {
  // Program 1 of the gain is "Quiet": half the level.
  Result r = Run({"render", "--plugin", Plugin("zqgain"), "--seconds", "0.05", "--program", "1", "--output",
                  Path("quiet.wav")});
  ASSERT_EQ(r.exitCode, 0u) << r.err;
  r = Run({"render", "--plugin", Plugin("zqgain"), "--seconds", "0.05", "--output", Path("unity.wav")});
  ASSERT_EQ(r.exitCode, 0u) << r.err;
  const Audio quiet = ReadAudio(Path("quiet.wav")), unity = ReadAudio(Path("unity.wav"));
  ASSERT_TRUE(quiet.ok && unity.ok);
  ASSERT_EQ(quiet.Frames(), unity.Frames());
  for (size_t n = 0; n < unity.Frames(); n += 97) EXPECT_NEAR(quiet.At(n), 0.5 * unity.At(n), 1e-6) << n;
}

// The envelope moves the gain in steps of 20 ms (960 frames at 48 kHz): each
// step runs at the ramp's value at its start.  With samples of 960 frames
// the steps and the samples line up.
TEST_F(ZqvstRender, AutomationMovesTheGainAtEachEnvelopeStep) {
  std::vector<float> samples(2 * 9600, 0.25f);
  ASSERT_TRUE(WriteFloatWav(Path("in.wav"), 2, 48000, samples));
  WriteAll(Path("gain.txt"),
           "# gain from silence to +6 dB over 100 ms\n"
           "Gain 0 0.1 0 100 linear\n"
           "\"Balance\" 0 0.2 50 50 jump\n");
  const Result r = Run({"render", "--plugin", Plugin("zqgain"), "--input", Path("in.wav"), "--automation",
                        Path("gain.txt"), "--block", "960", "--output", Path("out.wav")});
  ASSERT_EQ(r.exitCode, 0u) << r.err;
  const Audio a = ReadAudio(Path("out.wav"));
  ASSERT_TRUE(a.ok);
  ASSERT_EQ(a.Frames(), 9600u);
  for (size_t step = 0; step < 5; ++step) {
    const double seconds = double(step * 960) / 48000.0;
    const double gain = 2.0 * (seconds / 0.1);
    for (size_t n : {step * 960, step * 960 + 959}) {
      EXPECT_NEAR(a.At(n, 0), 0.25 * gain, 1e-5) << "frame " << n;
      EXPECT_NEAR(a.At(n, 1), 0.25 * gain, 1e-5) << "frame " << n;
    }
  }
  // Past its end the ramp moves the gain no more: it holds the value of
  // the last step inside the segment (80 %, g = 1.6).
  for (size_t n : {size_t(4800), size_t(9599)}) EXPECT_NEAR(a.At(n, 0), 0.25 * 1.6, 1e-5) << n;
}

// A stream of a single sample: the tail that follows it is drawn from
// silence.  Only the first input is cleared for the tail (the effect's
// buffer rule clears the start of its first input block and no more), so the
// second channel plays what the last block left in its input again.
TEST_F(ZqvstRender, TheTailAfterAOneSampleStreamIsSilentOnEveryChannel) {
  // A 10 ms stream is shorter than one block: the tail is drawn from input
  // planes that held the whole stream, and none of it may come back.
  const Result r = Run({"render", "--plugin", Plugin("zqdelay"), "--signal", "impulse", "--seconds", "0.01",
                        "--rate", "44100", "--set", "Mix=0", "--block", "512", "--output", Path("out.wav")});
  ASSERT_EQ(r.exitCode, 0u) << r.err;
  const Audio a = ReadAudio(Path("out.wav"));
  ASSERT_EQ(a.Frames(), 441u + 64u);
  for (size_t channel = 0; channel < 2; ++channel) {
    EXPECT_EQ(a.At(0, channel), 1.0) << "channel " << channel;
    for (size_t n = 1; n < a.Frames(); ++n) EXPECT_EQ(a.At(n, channel), 0.0) << "frame " << n << " channel " << channel;
  }
}

TEST_F(ZqvstRender, TempoMeterAndTempoMapAreTakenAndTheStreamRuns) {
  WriteAll(Path("map.txt"), "0 100\n0 meter 3/4\n0.5 140\n0.7 meter 7/8\n");
  const Result r = Run({"render", "--plugin", Plugin("zqtest_prober"), "--seconds", "0.2", "--tempo", "90",
                        "--meter", "6/8", "--tempo-map", Path("map.txt"), "--set", "Arm=100", "--output",
                        Path("out.wav")});
  EXPECT_EQ(r.exitCode, 0u) << r.err;
  EXPECT_EQ(ReadAudio(Path("out.wav")).Frames(), 9600u);
}

// Real plug-ins of the distribution, when installed.  They are foreign code
// built without the sanitizers, and some keep allocations to the end of the
// process: the leak check of a sanitized program is not theirs to pass.
TEST_F(ZqvstRender, DistributionPlugInsRenderASignal) {
  WCHAR saved[1024] = {};
  const DWORD savedLength = GetEnvironmentVariableW(u"ASAN_OPTIONS", saved, 1024);
  const std::u16string options = std::u16string(saved, savedLength < 1024 ? savedLength : 0) + u":detect_leaks=0";
  SetEnvironmentVariableW(u"ASAN_OPTIONS", options.c_str());
  struct Restore {
    const WCHAR* value;
    ~Restore() { SetEnvironmentVariableW(u"ASAN_OPTIONS", value); }
  } restore{savedLength > 0 && savedLength < 1024 ? saved : nullptr};
  int found = 0;
  for (const char* module :
       {"/usr/lib/lxvst/DragonflyRoomReverb-vst.so", "/usr/lib/vst/lsp-plugins/comp-delay-stereo.so"}) {
    if (!fs::exists(module)) continue;
    ++found;
    const Result r = Run({"render", "--plugin", module, "--seconds", "0.5", "--rate", "44100", "--output",
                          Path("out.wav")});
    ASSERT_EQ(r.exitCode, 0u) << module << ": " << r.err;
    const Audio a = ReadAudio(Path("out.wav"));
    ASSERT_TRUE(a.ok) << module;
    EXPECT_GE(a.Frames(), 22050u) << module;
    double energy = 0;
    for (double s : a.samples) energy += s * s;
    EXPECT_GT(energy, 0.0) << module << " gave silence for a sine";
    fs::remove(Path("out.wav"));
  }
  if (found == 0) GTEST_SKIP() << "no distribution plug-ins installed";
}

}  // namespace
