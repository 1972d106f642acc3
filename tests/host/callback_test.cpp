// The host callback as plug-ins see it: the prober module asks its questions
// and records the answers; a few are asked directly with no effect.
#include <map>

#include "vsthost_fixture.h"

using namespace zqtest;
using ::testing::HasSubstr;
using ::testing::StartsWith;

namespace {

class ProberTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(record_.ok());
    report_ = record_.Function<const char* (*)()>("zqtest_prober_report");
    clear_ = record_.Function<void (*)()>("zqtest_prober_clear");
    ASSERT_NE(report_, nullptr);
    ASSERT_NE(clear_, nullptr);
    clear_();
  }

  // The report's lines keyed by their beginning "<opcode name> <index> <value>".
  std::vector<std::string> Report() const { return SplitLines(report_()); }
  std::string Line(const std::string& prefix) const {
    const auto lines = Matching(Report(), prefix);
    return lines.empty() ? "(no line " + prefix + ")" : lines[0];
  }
  void RunProbes(CZqVstEffect* effect) {
    clear_();
    ASSERT_EQ(effect->Dispatch(effVendorSpecific, ZqVstFourCC("ZqPr"), 1), 1);
  }

  PluginRecord record_{"zqtest_prober"};
  const char* (*report_)() = nullptr;
  void (*clear_)() = nullptr;
};

TEST_F(ProberTest, EntryPointCallsAreAnsweredWithoutAnInstance) {
  Loaded effect("zqtest_prober", 4321);
  ASSERT_EQ(effect.hr, S_OK);
  EXPECT_EQ(Line("audioMasterVersion"), "audioMasterVersion 0 0 -> 2300");
  EXPECT_EQ(Line("audioMasterCurrentId"), "audioMasterCurrentId 0 0 -> 4321");
  EXPECT_EQ(Line("audioMasterNeedIdle"), "audioMasterNeedIdle 0 0 -> 0");
  // NeedIdle came before any instance existed, and still reached the effect.
  EXPECT_NE(effect->StateFlags() & ZQVST_STATE_WANTS_IDLE, 0u);
  PluginRecord plugin("zqtest_prober");
  plugin.Clear();
  EXPECT_EQ(effect->EditIdle(), S_OK);  // editor closed, idle wanted
  EXPECT_EQ(plugin.Lines(), std::vector<std::string>{"effIdle 0 0"});
}

TEST_F(ProberTest, AnswersWithoutAMaster) {
  Loaded effect("zqtest_prober", 0);
  ASSERT_EQ(effect.hr, S_OK);
  ZqVstSetHostIdentity(u"", u"");
  RunProbes(effect.effect);
  for (const std::string& expected : std::vector<std::string>{
           "audioMasterGetTime 0 256 -> 0", "audioMasterTempoAt 0 0 -> 0",
        "audioMasterGetVendorString 0 0 -> 0 \"(untouched)\"", "audioMasterGetProductString 0 0 -> 0 \"(untouched)\"",
        "audioMasterCurrentId 0 0 -> " + std::to_string(ZqVstFourCC("ZqPr")),
        "audioMasterGetNumAutomatableParameters 0 0 -> 1024", "audioMasterWillReplaceOrAccumulate 0 0 -> 1",
        "audioMasterGetVendorVersion 0 0 -> 0", "audioMasterGetLanguage 0 0 -> 0",
        "audioMasterOpenFileSelector 0 0 -> 0", "audioMasterUpdateDisplay 0 0 -> 1"})
    EXPECT_EQ(Line(expected.substr(0, expected.find(" -> "))), expected);
  EXPECT_THAT(Line("audioMasterGetDirectory"),
              StartsWith("audioMasterGetDirectory 0 0 -> 1 \"" + std::string(ZQ_PLUGIN_DIR) + "/zqtest_prober.so\""));

  std::map<std::string, std::string> canDo = {
      {"\"sendVstTimeInfo\"", "1"}, {"\"sizeWindow\"", "1"},       {"\"supplyIdle\"", "1"},
      {"\"shellCategory\"", "1"},   {"\"startStopProcess\"", "1"}, {"\"SendVstTimeInfo\"", "0"},
      {"\"receiveVstEvents\"", "0"}, {"\"noSuchCapability\"", "0"}, {"(null)", "0"}};
  int seen = 0;
  for (const auto& line : Report()) {
    if (line.rfind("audioMasterCanDo", 0) != 0) continue;
    const std::string text = line.substr(line.rfind(' ') + 1);
    ASSERT_TRUE(canDo.count(text)) << line;
    EXPECT_EQ(line, "audioMasterCanDo 0 0 -> " + canDo[text] + " " + text);
    ++seen;
  }
  EXPECT_EQ(seen, 9);
}

TEST_F(ProberTest, MasterAnswersTimeTempoAndGestures) {
  Loaded effect("zqtest_prober", 0);
  ASSERT_EQ(effect.hr, S_OK);
  ZqVstSetHostIdentity(u"Ostrand", u"Test Host");
  auto* master = new RecordingMaster;
  master->time.samplePos = 96000.0;
  master->time.tempo = 120.0;
  master->time.ppqPos = 4.0;
  master->time.barStartPos = 4.0;
  master->time.timeSigNumerator = 3;
  master->time.timeSigDenominator = 4;
  master->time.smpteFrameRate = 1;
  master->time.flags = ZQVST_TIME_TEMPO | ZQVST_TIME_PPQ | ZQVST_TIME_BARS | ZQVST_TIME_TIMESIG | ZQVST_TIME_TRANSPORT_PLAYING;
  EXPECT_EQ(effect->SetMaster(master), S_OK);
  EXPECT_EQ(effect->SetSampleRate(48000.0), S_OK);
  RunProbes(effect.effect);

  // Filter word 0: only the transport the filter reports.
  EXPECT_THAT(Line("audioMasterGetTime 0 0 "), HasSubstr("samplePos=96000 sampleRate=48000 nanoSeconds=0 "));
  EXPECT_THAT(Line("audioMasterGetTime 0 0 "), HasSubstr("flags=0x2"));
  // Whole seconds of position, in 100-nanosecond units.
  EXPECT_THAT(Line("audioMasterGetTime 0 256 "), HasSubstr("nanoSeconds=20000000 "));
  EXPECT_THAT(Line("audioMasterGetTime 0 256 "), HasSubstr("flags=0x102"));
  const std::string all = Line("audioMasterGetTime 0 32512 ");  // 0x7F00
  EXPECT_THAT(all, HasSubstr("ppqPos=4 tempo=120 barStartPos=4 cycleStartPos=0"));
  EXPECT_THAT(all, HasSubstr("timeSigNumerator=3 timeSigDenominator=4 smpteOffset=0 smpteFrameRate=1"));
  EXPECT_THAT(all, HasSubstr("flags=0x6f02"));  // no cycle: the master has none
  EXPECT_EQ(Line("audioMasterTempoAt"), "audioMasterTempoAt 0 0 -> 1200000");
  EXPECT_EQ(Line("audioMasterGetSampleRate"), "audioMasterGetSampleRate 0 0 -> 48000");
  EXPECT_EQ(Line("audioMasterGetVendorString"), "audioMasterGetVendorString 0 0 -> 1 \"Ostrand\"");
  EXPECT_EQ(Line("audioMasterGetProductString"), "audioMasterGetProductString 0 0 -> 1 \"Test Host\"");
  EXPECT_EQ(Line("audioMasterSizeWindow"), "audioMasterSizeWindow 320 200 -> 0");

  // The editor is closed: SizeWindow reaches no window.
  EXPECT_EQ(master->calls, (std::vector<std::string>{"GetTempoAt 0", "Automate 1 0.250000", "BeginEdit 1",
                                                     "EndEdit 1", "UpdateDisplay", "Idle"}));

  // With the editor open it does, and the answer stays 0.
  master->calls.clear();
  effect->EditOpen(0, nullptr);
  RunProbes(effect.effect);
  EXPECT_EQ(Line("audioMasterSizeWindow"), "audioMasterSizeWindow 320 200 -> 0");
  EXPECT_EQ(std::count(master->calls.begin(), master->calls.end(), "SizeWindow 320 200"), 1);

  // A master without an active time source gives no time.
  master->timeResult = S_FALSE;
  RunProbes(effect.effect);
  EXPECT_EQ(Line("audioMasterGetTime 0 0 "), "audioMasterGetTime 0 0 -> 0");
  EXPECT_EQ(effect->SetMaster(nullptr), S_FALSE);
  EXPECT_EQ(master->Release(), 0u);
  ZqVstSetHostIdentity(u"", u"");
}

TEST_F(ProberTest, RateZeroWithNanosecondsAsked) {
  Loaded effect("zqtest_prober", 0);
  auto* master = new RecordingMaster;
  master->time.samplePos = 12345.0;
  ASSERT_EQ(effect->SetMaster(master), S_OK);
  RunProbes(effect.effect);
  EXPECT_THAT(Line("audioMasterGetTime 0 256 "), HasSubstr("sampleRate=0 nanoSeconds=0 "));
  EXPECT_THAT(Line("audioMasterGetTime 0 256 "), HasSubstr("flags=0x100"));
  effect->SetMaster(nullptr);
  master->Release();
}

TEST(HostCallback, WithoutAnEffect) {
  g_zqVstCurrentId = 77;
  g_zqVstNeedIdle = 0;
  const struct {
    VstInt32 opcode;
    VstIntPtr value, answer;
  } rows[] = {{audioMasterCurrentId, 0, 77},   {audioMasterVersion, 0, 2300},      {audioMasterGetSampleRate, 0, 0},
              {audioMasterGetBlockSize, 0, 0}, {audioMasterGetDirectory, 0, 0},   {audioMasterUpdateDisplay, 0, 0},
              {audioMasterGetTime, 0x100, 0},  {audioMasterNeedIdle, 0, 0},       {45, 1, 0},
              {50, 1, 0},                      {1000, 1, 0},                      {-1, 1, 0}};
  for (const auto& row : rows)
    EXPECT_EQ(ZqVstHostCallback(nullptr, row.opcode, 1, row.value, nullptr, 1.0f), row.answer) << row.opcode;
  EXPECT_EQ(g_zqVstNeedIdle, 1);
  g_zqVstNeedIdle = 0;
}

}  // namespace
