// The musical time that zqvst render hands the filter, as the plug-in sees
// it.  The render command runs in this process (the library loads here as
// it does in the program), so that the prober's record of its host's answers
// can be read afterwards: the module stays loaded by the test.
#include <cstdlib>

#include "platform/module.h"
#include "tests/tools/zqvst/zqvst_fixture.h"
#include "tools/zqvst/commands.h"

namespace {

using namespace zqvsttest;

struct Prober {
  HMODULE module = LoadLibraryW(ZqUtf8ToUtf16(Plugin("zqtest_prober")).c_str());
  const char* (*report)() = Get<const char* (*)()>("zqtest_prober_report");
  void (*clear)() = Get<void (*)()>("zqtest_prober_clear");

  ~Prober() {
    if (module) FreeLibrary(module);
  }
  template <class F>
  F Get(const char* name) {
    return module ? reinterpret_cast<F>(reinterpret_cast<void (*)()>(GetProcAddress(module, name))) : nullptr;
  }
  bool ok() const { return report && clear; }
};

// The fields of the first full answer (every item asked for) to
// audioMasterGetTime in the prober's record.
struct SeenTime {
  bool found = false;
  std::string line;
  double Field(const std::string& name) const {
    const size_t at = line.find(" " + name + "=");
    return at == std::string::npos ? -1.0 : std::strtod(line.c_str() + at + name.size() + 2, nullptr);
  }
};

SeenTime FirstTime(const std::string& report) {
  SeenTime seen;
  const std::string prefix = "audioMasterGetTime 0 32512 -> 1 ";
  const size_t at = report.find(prefix);
  if (at == std::string::npos) return seen;
  seen.found = true;
  seen.line = report.substr(at, report.find('\n', at) - at);
  return seen;
}

class ZqvstTempoSeen : public ZqvstTest {
 protected:
  int Render(std::vector<std::string> args) {
    args.insert(args.begin(), {"zqvst", "render", "--plugin", Plugin("zqtest_prober")});
    std::vector<char*> argv;
    for (auto& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    return ZqvstRenderCommand(int(args.size()), argv.data(), 2);
  }
};

TEST_F(ZqvstTempoSeen, TempoAndMeterOptionsHoldFromTheStart) {
  Prober prober;
  ASSERT_TRUE(prober.ok());
  prober.clear();
  // Arm makes the prober ask its host in the first block.
  ASSERT_EQ(Render({"--seconds", "0.05", "--tempo", "90", "--meter", "3/4", "--set", "Arm=100", "--output",
                    Path("out.wav")}),
            0);
  const SeenTime t = FirstTime(prober.report());
  ASSERT_TRUE(t.found) << prober.report();
  EXPECT_EQ(t.Field("samplePos"), 0.0);
  EXPECT_EQ(t.Field("sampleRate"), 48000.0);
  EXPECT_EQ(t.Field("tempo"), 90.0);
  EXPECT_EQ(t.Field("timeSigNumerator"), 3.0);
  EXPECT_EQ(t.Field("timeSigDenominator"), 4.0);
  EXPECT_EQ(t.Field("ppqPos"), 0.0);
}

// 240 bpm in 2/4 (a bar is half a second); 6/8 asked at 0.3 s waits for the
// next bar at 0.5 s (2 quarters); 120 bpm from 0.6 s (2.4 quarters).  An
// envelope arms the prober at 0.75 s, which the filter reaches at the 20 ms
// step of 0.76 s: 2.4 + 0.16 s at 2 quarters a second = 2.72 quarters, in
// the 6/8 bar that started at 2 quarters.
TEST_F(ZqvstTempoSeen, ATempoMapInSecondsIsSeenInQuartersAndBars) {
  Prober prober;
  ASSERT_TRUE(prober.ok());
  WriteAll(Path("map.txt"), "0 240\n0 meter 2/4\n0.3 meter 6/8\n0.6 120\n");
  WriteAll(Path("arm.txt"), "Arm 0.75 0.77 100 100 jump\n");
  prober.clear();
  ASSERT_EQ(Render({"--seconds", "1", "--block", "960", "--tempo-map", Path("map.txt"), "--automation",
                    Path("arm.txt"), "--output", Path("out.wav")}),
            0);
  const SeenTime t = FirstTime(prober.report());
  ASSERT_TRUE(t.found) << prober.report();
  EXPECT_EQ(t.Field("samplePos"), 36480.0) << t.line;
  EXPECT_EQ(t.Field("tempo"), 120.0) << t.line;
  EXPECT_NEAR(t.Field("ppqPos"), 2.72, 1e-9) << t.line;
  EXPECT_NEAR(t.Field("barStartPos"), 2.0, 1e-9) << t.line;
  EXPECT_EQ(t.Field("timeSigNumerator"), 6.0) << t.line;
  EXPECT_EQ(t.Field("timeSigDenominator"), 8.0) << t.line;
}

// Without tempo options no map is connected, and the filter has no time to
// tell the plug-in.
TEST_F(ZqvstTempoSeen, WithoutTempoOptionsThePlugInIsToldNoTime) {
  Prober prober;
  ASSERT_TRUE(prober.ok());
  prober.clear();
  ASSERT_EQ(Render({"--seconds", "0.05", "--set", "Arm=100", "--output", Path("out.wav")}), 0);
  const std::string report = prober.report();
  EXPECT_FALSE(FirstTime(report).found) << report;
  EXPECT_NE(report.find("audioMasterGetTime 0 32512 -> 0"), std::string::npos) << report;
}

}  // namespace
