// The well-behaved test plug-ins: the shell and its sub-plug-ins, the
// instrument, the odd channel layouts, the state a test can read back, and
// the callback prober's record.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "tests/plugins/plugin_host.h"

namespace {

using zqtest::Host;
using zqtest::Id;
using zqtest::Plugin;
using zqtest::TestHost;
using Planes = std::vector<std::vector<float>>;

std::vector<float> Signal(int32_t frames, float scale) {
  std::vector<float> v(static_cast<size_t>(frames));
  for (int32_t i = 0; i < frames; ++i) v[static_cast<size_t>(i)] = scale * static_cast<float>(i % 7 - 3);
  return v;
}

TEST(ShellPlugin, ContainerEnumeratesItsSubPluginsInsideAScan) {
  Host() = TestHost{};
  Plugin shell("zqtest_shell.so", false);
  ASSERT_TRUE(shell.ok());
  EXPECT_EQ(Id("ZqSh"), shell.effect()->uniqueID);
  EXPECT_EQ(kPlugCategShell, shell.Call(effGetPlugCategory));
  EXPECT_EQ(1, shell.Call(effCanDo, 0, 0, const_cast<char*>("shellCategory")));

  EXPECT_EQ(1, shell.Call(effVendorSpecific, kZqVstShellScanIndex, kZqVstShellScanStart));
  EXPECT_EQ(1, shell.State(17));
  const struct {
    int32_t id;
    const char* name;
  } expected[] = {{Id("ZqS1"), "ZqShell Gain"}, {Id("ZqS2"), "ZqShell Invert"}, {Id("ZqS3"), "ZqShell Tone"}};
  for (const auto& sub : expected) {
    char name[1024] = {};
    EXPECT_EQ(sub.id, shell.Call(effShellGetNextPlugin, 0, 0, name));
    EXPECT_STREQ(sub.name, name);
  }
  char name[1024] = {};
  EXPECT_EQ(0, shell.Call(effShellGetNextPlugin, 0, 0, name));
  EXPECT_EQ(0, shell.Call(effShellGetNextPlugin, 0, 0, name));
  EXPECT_EQ(1, shell.Call(effVendorSpecific, kZqVstShellScanIndex, kZqVstShellScanEnd));
  EXPECT_EQ(0, shell.State(17));

  // A new scan starts the list again.
  shell.Call(effVendorSpecific, kZqVstShellScanIndex, kZqVstShellScanStart);
  EXPECT_EQ(Id("ZqS1"), shell.Call(effShellGetNextPlugin, 0, 0, name));
  EXPECT_EQ(2, shell.State(18));
  EXPECT_EQ(1, shell.State(19));

  const std::string log = shell.Log();
  const size_t start = log.find("effVendorSpecific stCa StSc\n");
  const size_t end = log.find("effVendorSpecific stCa EnSc\n");
  ASSERT_NE(std::string::npos, start) << log;
  ASSERT_NE(std::string::npos, end) << log;
  EXPECT_LT(start, end);
  EXPECT_NE(std::string::npos, log.find("entry audioMasterCurrentId -> 0\n")) << log;
}

TEST(ShellPlugin, CurrentIdChoosesTheSubPlugin) {
  const struct {
    const char* id;
    const char* name;
    int32_t inputs, outputs;
    intptr_t category;
  } subs[] = {{"ZqS1", "ZqShell Gain", 2, 2, kPlugCategEffect},
              {"ZqS2", "ZqShell Invert", 1, 1, kPlugCategEffect},
              {"ZqS3", "ZqShell Tone", 0, 2, kPlugCategSynth}};
  const int32_t n = 9;
  for (const auto& sub : subs) {
    SCOPED_TRACE(sub.id);
    Host() = TestHost{};
    Host().currentId = Id(sub.id);
    Plugin p("zqtest_shell.so");
    ASSERT_TRUE(p.ok());
    EXPECT_EQ(Host().currentId, p.effect()->uniqueID);
    EXPECT_EQ(sub.name, p.Text(effGetEffectName));
    EXPECT_EQ(sub.inputs, p.effect()->numInputs);
    EXPECT_EQ(sub.outputs, p.effect()->numOutputs);
    EXPECT_EQ(sub.category, p.Call(effGetPlugCategory));
    p.Resume();
    const std::vector<float> x = Signal(n, 0.5f);
    const Planes out = p.Run({x, x}, n);
    for (size_t i = 0; i < static_cast<size_t>(n); ++i) {
      if (sub.inputs == 0) {
        EXPECT_EQ(0.25f, out[0][i]);
        EXPECT_EQ(-0.25f, out[1][i]);
      } else if (sub.inputs == 1) {
        EXPECT_EQ(-x[i], out[0][i]);
      } else {
        EXPECT_EQ(0.5f * x[i], out[0][i]);
        EXPECT_EQ(0.5f * x[i], out[1][i]);
      }
    }
  }
  // An id the shell does not hold gives the container, whose uniqueID then
  // differs from the id asked for.
  Host() = TestHost{};
  Host().currentId = Id("Nope");
  Plugin p("zqtest_shell.so", false);
  ASSERT_TRUE(p.ok());
  EXPECT_EQ(Id("ZqSh"), p.effect()->uniqueID);
  EXPECT_EQ(kPlugCategShell, p.Call(effGetPlugCategory));
}

TEST(TestSynth, RampIsExactAcrossBlocksAndRestartsWithMains) {
  Host() = TestHost{};
  Plugin p("zqtest_synth.so");
  ASSERT_TRUE(p.ok());
  EXPECT_EQ(nullptr, p.Export("VSTPluginMain"));  // only the old entry name
  EXPECT_NE(nullptr, p.Export("main"));
  EXPECT_EQ(0, p.effect()->numInputs);
  EXPECT_EQ(2, p.effect()->numOutputs);
  EXPECT_TRUE(p.effect()->flags & effFlagsIsSynth);
  EXPECT_EQ(kPlugCategSynth, p.Call(effGetPlugCategory));
  EXPECT_EQ(1, p.Call(effCanDo, 0, 0, const_cast<char*>("receiveVstMidiEvent")));

  p.Resume();
  const int32_t n = 200;
  Planes out = p.Run({}, n, {1, 3, 253, 17});
  for (int32_t i = 0; i < n; ++i) {
    const float v = static_cast<float>(i % 64) / 64.0f;
    ASSERT_EQ(v, out[0][static_cast<size_t>(i)]) << i;
    ASSERT_EQ(-v, out[1][static_cast<size_t>(i)]) << i;
  }
  p.Call(effMainsChanged, 0, 0);
  p.Call(effMainsChanged, 0, 1);
  out = p.Run({}, 3);
  EXPECT_EQ((std::vector<float>{0.0f, 1.0f / 64.0f, 2.0f / 64.0f}), out[0]);

  VstMidiEvent note{};
  note.type = kVstMidiType;
  note.byteSize = sizeof note;
  note.midiData[0] = static_cast<char>(0x90);
  VstEvents events{};
  events.numEvents = 2;
  events.events[0] = reinterpret_cast<VstEvent*>(&note);
  events.events[1] = reinterpret_cast<VstEvent*>(&note);
  EXPECT_EQ(1, p.Call(effProcessEvents, 0, 0, &events));
  EXPECT_EQ(2, p.State(17));
}

TEST(ChannelPlugins, OutputsAreExactForEachLayout) {
  const int32_t n = 11;
  const std::vector<float> a = Signal(n, 0.25f), b = Signal(n, -0.125f);
  struct Row {
    const char* file;
    const char* id;
    int32_t inputs, outputs;
    bool mono;
  };
  const Row rows[] = {{"zqtest_1in2out.so", "Zq12", 1, 2, false},   {"zqtest_1in2out_mono.so", "Zq1M", 1, 2, true},
                      {"zqtest_2in2out.so", "Zq22", 2, 2, false},   {"zqtest_2in2out_mono.so", "Zq2M", 2, 2, true},
                      {"zqtest_2in1out.so", "Zq21", 2, 1, false},   {"zqtest_6x6.so", "Zq66", 6, 6, false}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.file);
    Plugin p(row.file);
    ASSERT_TRUE(p.ok());
    EXPECT_EQ(Id(row.id), p.effect()->uniqueID);
    EXPECT_EQ(row.inputs, p.effect()->numInputs);
    EXPECT_EQ(row.outputs, p.effect()->numOutputs);
    EXPECT_EQ(row.mono, (p.effect()->flags & effFlagsCanMono) != 0);
    p.Resume();
    Planes in;
    for (int32_t k = 0; k < row.inputs; ++k) in.push_back(k % 2 ? b : a);
    const Planes out = p.Run(in, n, {4});
    for (size_t i = 0; i < static_cast<size_t>(n); ++i) {
      if (row.inputs == 1) {
        EXPECT_EQ(a[i], out[0][i]);
        EXPECT_EQ(-a[i], out[1][i]);
      } else if (row.outputs == 1) {
        EXPECT_EQ(a[i] + b[i], out[0][i]);
      } else if (row.inputs == 2) {
        EXPECT_EQ(2.0f * a[i], out[0][i]);
        EXPECT_EQ(2.0f * b[i], out[1][i]);
      } else {
        for (size_t k = 0; k < 6; ++k) EXPECT_EQ(in[k][i] * static_cast<float>(k + 1), out[k][i]) << k;
      }
    }
  }
}

TEST(ChannelPlugins, ProgramNamesAreNotGivenByIndex) {
  Plugin p("zqtest_1in2out.so");
  ASSERT_TRUE(p.ok());
  ASSERT_EQ(2, p.effect()->numPrograms);
  char buffer[260] = {};
  EXPECT_EQ(0, p.Call(effGetProgramNameIndexed, 1, 0, buffer));
  EXPECT_STREQ("", buffer);
  EXPECT_EQ("First", p.Text(effGetProgramName));
  p.Call(effSetProgram, 0, 1);
  EXPECT_EQ("Second", p.Text(effGetProgramName));
}

VstSpeakerArrangement FiveOne() {
  VstSpeakerArrangement a{};
  a.type = kSpeakerArr51;
  a.numChannels = 6;
  const char* names[] = {"L", "R", "C", "Lfe", "Ls", "Rs"};
  const int32_t types[] = {kSpeakerL, kSpeakerR, 2, kSpeakerLfe, kSpeakerLs, kSpeakerRs};
  for (int i = 0; i < 6; ++i) {
    std::strcpy(a.speakers[i].name, names[i]);
    a.speakers[i].type = types[i];
    a.speakers[i].azimuth = 0.5f * static_cast<float>(i);
  }
  return a;
}

TEST(SixBySix, RecordsTheSpeakerArrangementsItIsGiven) {
  Plugin p("zqtest_6x6.so");
  ASSERT_TRUE(p.ok());
  using Reader = const VstSpeakerArrangement* (*)(int);
  auto read = reinterpret_cast<Reader>(p.Export("zqtest_6x6_arrangement"));
  ASSERT_NE(nullptr, read);
  EXPECT_EQ(nullptr, read(0));

  VstSpeakerArrangement in = FiveOne();
  VstSpeakerArrangement out = FiveOne();
  out.type = kSpeakerArrEmpty;
  out.speakers[5].type = kSpeakerUndefined;
  EXPECT_EQ(1, p.Call(effSetSpeakerArrangement, 0, reinterpret_cast<intptr_t>(&in), &out));
  in = VstSpeakerArrangement{};  // the plug-in keeps its own copies

  const VstSpeakerArrangement* gotIn = read(0);
  const VstSpeakerArrangement* gotOut = read(1);
  ASSERT_NE(nullptr, gotIn);
  ASSERT_NE(nullptr, gotOut);
  EXPECT_EQ(kSpeakerArr51, gotIn->type);
  EXPECT_EQ(6, gotIn->numChannels);
  EXPECT_STREQ("Lfe", gotIn->speakers[3].name);
  EXPECT_EQ(2, gotIn->speakers[2].type);
  EXPECT_EQ(2.5f, gotIn->speakers[5].azimuth);
  EXPECT_EQ(kSpeakerArrEmpty, gotOut->type);
  EXPECT_EQ(kSpeakerUndefined, gotOut->speakers[5].type);
  EXPECT_EQ(nullptr, read(2));
  EXPECT_EQ(1, p.State(11));

  VstSpeakerArrangement* back[2] = {};
  EXPECT_EQ(1, p.Call(effGetSpeakerArrangement, 0, reinterpret_cast<intptr_t>(&back[0]), &back[1]));
  EXPECT_EQ(gotIn, back[0]);
  EXPECT_EQ(gotOut, back[1]);
  EXPECT_NE(std::string::npos, p.Log().find("arrangement in type=15 n=6 L:1 R:2 C:2 Lfe:4 Ls:5 Rs:6\n"))
      << p.Log();
}

TEST(PluginState, MainsProcessAndSettingsAreReadableAndSurviveClose) {
  Plugin p("zqgain.so");
  ASSERT_TRUE(p.ok());
  const int32_t kState = ZqVstFourCC("ZqSt");
  EXPECT_EQ(4, p.State(0));  // open
  EXPECT_EQ(4, p.Call(effVendorSpecific, kState, 0));
  p.Call(effSetSampleRate, 0, 0, nullptr, 48000.0f);
  p.Call(effSetBlockSize, 0, 333);
  p.Call(effMainsChanged, 0, 1);
  EXPECT_EQ(5, p.State(0));
  p.Call(effStartProcess);
  EXPECT_EQ(7, p.Call(effVendorSpecific, kState, 0));
  p.Run({std::vector<float>(10, 0.0f), std::vector<float>(10, 0.0f)}, 10, {4});
  p.Call(effStopProcess);
  EXPECT_EQ(5, p.State(0));
  p.Call(effMainsChanged, 0, 0);
  p.Call(effMainsChanged, 0, 1);
  p.Call(effMainsChanged, 0, 0);
  EXPECT_EQ(4, p.State(0));
  EXPECT_EQ(48000, p.State(1));
  EXPECT_EQ(333, p.Call(effVendorSpecific, kState, 2));
  EXPECT_EQ(2, p.State(3));   // mains on
  EXPECT_EQ(2, p.State(4));   // mains off
  EXPECT_EQ(1, p.State(5));   // start
  EXPECT_EQ(1, p.State(6));   // stop
  EXPECT_EQ(3, p.State(7));   // blocks of 4, 4, 2
  EXPECT_EQ(2, p.State(8));   // frames of the last
  EXPECT_EQ(0, p.State(16));  // none with mains off
  p.Run({std::vector<float>(1, 0.0f), std::vector<float>(1, 0.0f)}, 1);
  EXPECT_EQ(1, p.State(16));
  EXPECT_EQ(-1, p.State(99));

  p.Close();
  EXPECT_EQ(0, p.State(0));
  EXPECT_EQ(1, p.State(13));  // effClose
  EXPECT_EQ(0, p.State(15));  // none alive
  const std::string log = p.Log();
  EXPECT_NE(std::string::npos,
            log.find("effOpen 0 0\neffVendorSpecific ZqSt 0\neffSetSampleRate 0 0 48000\neffSetBlockSize 0 333\n"
                     "effMainsChanged 0 1\neffStartProcess 0 0\n"))
      << log;
  EXPECT_EQ(log.size() - std::string("effClose 0 0\n").size(), log.rfind("effClose 0 0\n")) << log;
}

// The value after "name=" in a prober line.
std::string Field(const std::string& line, const std::string& name) {
  const size_t at = line.find(' ' + name + '=');
  if (at == std::string::npos) return "(missing)";
  const size_t from = at + name.size() + 2;
  return line.substr(from, line.find(' ', from) - from);
}

std::string LineStarting(const std::string& report, const std::string& start) {
  size_t at = report.find(start);
  if (at == std::string::npos) return "(missing: " + start + ")";
  return report.substr(at, report.find('\n', at) - at);
}

TEST(Prober, RecordsTheAnswersOfTheEntryPointAndOfTheArmedProbes) {
  Host() = TestHost{};
  Host().currentId = 0;
  Host().needIdleAnswer = 1;
  Host().haveTime = true;
  Host().time.samplePos = 1234.5;
  Host().time.sampleRate = 48000.0;
  Host().time.tempo = 120.25;
  Host().time.timeSigNumerator = 7;
  Host().time.timeSigDenominator = 8;
  Host().time.flags = kVstTransportPlaying | kVstTempoValid;
  Host().vendor = "TestVendor";
  Host().directory = "/plug/ins";
  Plugin p("zqtest_prober.so");
  ASSERT_TRUE(p.ok());
  using Text = const char* (*)();
  auto report = reinterpret_cast<Text>(p.Export("zqtest_prober_report"));
  auto clear = reinterpret_cast<void (*)()>(p.Export("zqtest_prober_clear"));
  auto arm = reinterpret_cast<void (*)()>(p.Export("zqtest_prober_arm"));
  ASSERT_NE(nullptr, report);
  ASSERT_NE(nullptr, clear);
  ASSERT_NE(nullptr, arm);
  EXPECT_EQ("audioMasterVersion 0 0 -> 2400\naudioMasterCurrentId 0 0 -> 0\naudioMasterNeedIdle 0 0 -> 1\n",
            std::string(report()));

  // Not armed: processing asks nothing.
  p.Resume();
  const Planes in = {std::vector<float>(8, 0.5f), std::vector<float>(8, -0.5f)};
  Planes out = p.Run(in, 8);
  EXPECT_EQ(in, out);
  EXPECT_EQ(0, p.State(17));

  clear();
  p.Set(0, 1.0f);
  p.Run(in, 8);
  EXPECT_EQ(0.0f, p.Get(0));
  EXPECT_EQ(1, p.State(17));
  const std::string r = report();
  const std::string time = LineStarting(r, "audioMasterGetTime 0 256 -> 1");
  EXPECT_EQ("1234.5", Field(time, "samplePos")) << time;
  EXPECT_EQ("48000", Field(time, "sampleRate")) << time;
  EXPECT_EQ("120.25", Field(time, "tempo")) << time;
  EXPECT_EQ("7", Field(time, "timeSigNumerator")) << time;
  EXPECT_EQ("8", Field(time, "timeSigDenominator")) << time;
  EXPECT_EQ("0x402", Field(time, "flags")) << time;
  EXPECT_NE("(missing", LineStarting(r, "audioMasterGetTime 0 0 -> 1").substr(0, 8));
  EXPECT_NE("(missing", LineStarting(r, "audioMasterGetTime 0 65280 -> 1").substr(0, 8));
  EXPECT_NE(std::string::npos, r.find("audioMasterCanDo 0 0 -> 1 \"sizeWindow\"\n")) << r;
  EXPECT_NE(std::string::npos, r.find("audioMasterCanDo 0 0 -> 0 \"SendVstTimeInfo\"\n")) << r;
  EXPECT_NE(std::string::npos, r.find("audioMasterCanDo 0 0 -> 0 (null)\n")) << r;
  EXPECT_NE(std::string::npos, r.find("audioMasterGetDirectory 0 0 -> 1 \"/plug/ins\"\n")) << r;
  EXPECT_NE(std::string::npos, r.find("audioMasterGetVendorString 0 0 -> 1 \"TestVendor\"\n")) << r;
  EXPECT_NE(std::string::npos, r.find("audioMasterGetProductString 0 0 -> 0 \"(untouched)\"\n")) << r;
  EXPECT_NE(std::string::npos, r.find("audioMasterSizeWindow 320 200 -> 0\n")) << r;
  EXPECT_NE(std::string::npos, r.find("audioMasterAutomate 1 0 -> 0\n")) << r;
  EXPECT_NE(std::string::npos, r.find("audioMasterOpenFileSelector 0 0 -> 0\naudioMaster50 0 0 -> 0\n")) << r;

  // The host saw the calls in the documented order.
  const std::vector<int32_t>& seen = Host().opcodes;
  ASSERT_GE(seen.size(), 6u);
  EXPECT_EQ(audioMasterGetTime, seen[3]);
  EXPECT_EQ(50, seen.back());

  // The vendor call runs the list at once or arms it; so does the export.
  clear();
  EXPECT_EQ(1, p.Call(effVendorSpecific, ZqVstFourCC("ZqPr"), 1));
  EXPECT_EQ(2, p.State(17));
  EXPECT_EQ(1, p.Call(effVendorSpecific, ZqVstFourCC("ZqPr"), 0));
  EXPECT_EQ(2, p.State(17));
  p.Run(in, 8);
  EXPECT_EQ(3, p.State(17));
  arm();
  p.Run(in, 8);
  EXPECT_EQ(4, p.State(17));
}

}  // namespace
