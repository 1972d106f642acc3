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

// A field of a line of the prober's record, -1 when it is not there.
double Field(const std::string& line, const std::string& name) {
  const size_t at = line.find(" " + name + "=");
  return at == std::string::npos ? -1.0 : std::strtod(line.c_str() + at + name.size() + 2, nullptr);
}

// The first full answer (every item asked for) to audioMasterGetTime in the
// prober's record; "" when none was given.
std::string FirstTime(const std::string& report) {
  const size_t at = report.find("audioMasterGetTime 0 32512 -> 1 ");
  return at == std::string::npos ? "" : report.substr(at, report.find('\n', at) - at);
}

struct Seen {
  const char* name;
  double value;
};

struct Case {
  Args args;
  std::vector<Seen> seen;  // none: the host has no time to give
};

class ZqvstTempoSeen : public ZqvstTest {};

TEST_F(ZqvstTempoSeen, TheOptionsAndTheMapAreSeenInQuartersAndBars) {
  HMODULE module = LoadLibraryW(ZqUtf8ToUtf16(Plugin("zqtest_prober")).c_str());
  ASSERT_NE(module, nullptr);
  const auto function = [&](const char* name) { return reinterpret_cast<void (*)()>(GetProcAddress(module, name)); };
  const auto report = reinterpret_cast<const char* (*)()>(function("zqtest_prober_report"));
  const auto clear = function("zqtest_prober_clear");
  ASSERT_TRUE(report && clear);
  // 240 bpm in 2/4 (a bar is half a second); 6/8 asked at 0.3 s waits for
  // the next bar at 0.5 s (2 quarters); 120 bpm from 0.6 s (2.4 quarters).
  // The envelope arms the prober at 0.75 s, which the filter reaches at the
  // 20 ms step of 0.76 s: 2.4 + 0.16 s at 2 quarters a second = 2.72
  // quarters, in the 6/8 bar that started at 2 quarters.
  WriteAll(Path("map.txt"), "0 240\n0 meter 2/4\n0.3 meter 6/8\n0.6 120\n");
  WriteAll(Path("arm.txt"), "Arm 0.75 0.77 100 100 jump\n");
  // Entries of a map at the start come after the options.
  WriteAll(Path("start.txt"), "0 100\n0 meter 7/8\n0.5 140\n");
  const Case cases[] = {
      {{"--seconds", "0.05", "--tempo", "90", "--meter", "3/4", "--set", "Arm=100"},
       {{"samplePos", 0}, {"sampleRate", 48000}, {"tempo", 90}, {"timeSigNumerator", 3},
        {"timeSigDenominator", 4}, {"ppqPos", 0}}},
      {{"--seconds", "1", "--block", "960", "--tempo-map", Path("map.txt"), "--automation", Path("arm.txt")},
       {{"samplePos", 36480}, {"tempo", 120}, {"ppqPos", 2.72}, {"barStartPos", 2}, {"timeSigNumerator", 6},
        {"timeSigDenominator", 8}}},
      {{"--seconds", "0.05", "--tempo", "90", "--meter", "6/8", "--tempo-map", Path("start.txt"), "--set", "Arm=100"},
       {{"tempo", 100}, {"timeSigNumerator", 7}, {"timeSigDenominator", 8}}},
      {{"--seconds", "0.05", "--set", "Arm=100"}, {}},
  };
  for (const Case& c : cases) {
    Args args = {"zqvst", "render", "--plugin", Plugin("zqtest_prober")};
    args.insert(args.end(), c.args.begin(), c.args.end());
    args.insert(args.end(), {"--output", Path("out.wav")});
    std::vector<char*> argv;
    for (auto& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    clear();
    ASSERT_EQ(ZqvstRenderCommand(int(args.size()), argv.data(), 2), 0);
    const std::string line = FirstTime(report());
    EXPECT_EQ(line.empty(), c.seen.empty()) << report();
    for (const Seen& s : c.seen) EXPECT_NEAR(Field(line, s.name), s.value, 1e-9) << s.name << " in " << line;
    if (c.seen.empty()) {
      EXPECT_NE(std::string(report()).find("audioMasterGetTime 0 32512 -> 0"), std::string::npos);
    }
  }
  FreeLibrary(module);
}

}  // namespace
