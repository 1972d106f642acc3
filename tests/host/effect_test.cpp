// The effect instance: loading and its failures, the state machine, shells,
// names, programs, block size and rate, speaker arrangements, latency, tail
// and the editor operations, against the plug-ins we build.
#include <cstdlib>

#include "kernel/memory.h"
#include "vsthost_fixture.h"

using namespace zqtest;
using ::testing::ElementsAre;

namespace {

// The opcode names of the plug-in's record lines that start with `prefix`.
std::vector<std::string> Opcodes(const PluginRecord& record, const std::string& prefix) {
  std::vector<std::string> names;
  for (const auto& line : Matching(record.Lines(), prefix)) names.push_back(line.substr(0, line.find(' ')));
  return names;
}

TEST(EffectLoad, FailuresAnswerTheirStatusAndLeaveNothingLoaded) {
  const struct { const char* name; HRESULT expected; } cases[] = {
      {"zq_no_such_module", HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND)},
      {"zqbad_missing_dep", HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND)},
      {"zqbad_no_entry", HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND)},
      {"zqbad_not_elf", HRESULT_FROM_WIN32(ERROR_BAD_EXE_FORMAT)},
      {"zqbad_null_entry", E_INVALIDARG},
      {"zqbad_magic", E_INVALIDARG},
      {"zqbad_entry_fault", ZQ_E_EXCEPTION},
  };
  for (const auto& c : cases) {
    Loaded effect(c.name);
    EXPECT_EQ(effect.hr, c.expected) << c.name;
    EXPECT_EQ(effect->Effect(), nullptr) << c.name;
    VstEffectInfo info;
    EXPECT_EQ(effect->GetEffectInfo(&info), ZQ_E_COMPONENT) << c.name;
  }
  // A fault in effOpen is an ordinary answer: the plug-in stays usable.
  for (const char* name : {"zqbad_open_fault", "zqbad_throw"}) {
    Loaded effect(name);
    EXPECT_EQ(effect.hr, S_OK) << name;
    WCHAR text[64];
    EXPECT_EQ(effect->GetEffectName(text, 64), S_OK);
    EXPECT_EQ(Narrow(text).substr(0, 5), "ZqBad") << name;
  }
}

TEST(EffectLoad, CreateInProcessGivesTheInterfaceOrNothing) {
  IZqVstEffect* effect = nullptr;
  ASSERT_EQ(ZqVstCreateEffectInProcess(PluginPath("zqgain").c_str(), 0, IID_IZqVstEffect,
                                       reinterpret_cast<void**>(&effect)),
            S_OK);
  void* other = nullptr;
  EXPECT_EQ(effect->QueryInterface(IID_IZqVstMaster, &other), E_NOINTERFACE);
  const LONG live = ZqVstGetEffectCount();
  EXPECT_EQ(effect->Release(), 0u);
  EXPECT_EQ(ZqVstGetEffectCount(), live - 1);

  void* failed = reinterpret_cast<void*>(1);
  EXPECT_EQ(ZqVstCreateEffectInProcess(PluginPath("zqbad_magic").c_str(), 0, IID_IZqVstEffect, &failed),
            E_INVALIDARG);
  EXPECT_EQ(failed, nullptr);
}

TEST(EffectState, SuspendAndResumeFollowTheMainsAndProcessFlags) {
  PluginRecord record("zqgain");
  ASSERT_TRUE(record.ok());
  Loaded effect("zqgain");
  ASSERT_EQ(effect.hr, S_OK);
  record.Clear();
  constexpr DWORD running = ZQVST_STATE_MAINS_ON | ZQVST_STATE_PROCESS_STARTED;
  const struct { bool resume; BOOL argument; HRESULT answer; DWORD flags; } steps[] = {
      {false, TRUE, S_FALSE, 0},                  // nothing to stop yet
      {true, FALSE, S_OK, running},
      {true, FALSE, S_FALSE, running},            // running already
      {false, FALSE, S_OK, ZQVST_STATE_MAINS_ON},  // mains stay on across a plain suspend
      {true, FALSE, S_OK, running},               // and the next resume only starts
      {true, TRUE, S_OK, running},                // a forced resume: mains on again, no second start
      {false, TRUE, S_OK, 0},
  };
  for (const auto& s : steps) {
    EXPECT_EQ(s.resume ? effect->Resume(s.argument) : effect->Suspend(s.argument), s.answer);
    EXPECT_EQ(effect->StateFlags() & running, s.flags);
  }
  EXPECT_THAT(record.Lines(),
              ElementsAre("effMainsChanged 0 1", "effStartProcess 0 0", "effStopProcess 0 0", "effStartProcess 0 0",
                          "effMainsChanged 0 1", "effStopProcess 0 0", "effMainsChanged 0 0"));
}

TEST(EffectState, SampleRateIsComparedInDoubleAndBlockSizeOnlyWhenItChanges) {
  PluginRecord record("zqgain");
  Loaded effect("zqgain");
  ASSERT_EQ(effect.hr, S_OK);
  record.Clear();
  EXPECT_EQ(effect->SetSampleRate(48000.0), S_OK);
  EXPECT_EQ(effect->SetSampleRate(48000.0), S_FALSE);
  // Differs from the stored float only below float precision: still sent.
  EXPECT_EQ(effect->SetSampleRate(48000.0 + 1e-9), S_OK);
  EXPECT_EQ(effect->SetBlockSize(512), S_OK);
  EXPECT_EQ(effect->SetBlockSize(512), S_FALSE);
  EXPECT_THAT(record.Lines(), ElementsAre("effSetSampleRate 0 0 48000", "effSetSampleRate 0 0 48000",
                                          "effSetBlockSize 0 512"));
}

// Plug-ins known to forget parameter 0 with a new block size get it written
// back; others are left alone.
TEST(EffectState, BlockSizeQuirkWritesParameterZeroBackForTheListedPlugins) {
  PluginRecord record("zqtest_quirks");
  ASSERT_TRUE(record.ok());
  for (const char* id : {"OMxS", "OctC", "OEQS", "ExpS", "LF15", "LFCS", "ZqQk", "OMxT"}) {
    setenv("ZQTEST_QUIRKS_ID", id, 1);
    Loaded effect("zqtest_quirks");
    ASSERT_EQ(effect.hr, S_OK) << id;
    const long long before = record.State(kStatePluginSpecific);
    ASSERT_EQ(effect->SetBlockSize(256), S_OK);
    const bool listed = std::string(id) != "ZqQk" && std::string(id) != "OMxT";
    EXPECT_EQ(record.State(kStatePluginSpecific) - before, listed ? 1 : 0) << id;
    float value = 0.0f;
    EXPECT_EQ(effect->GetParameter(0, &value), S_OK);
    EXPECT_EQ(value, 0.5f) << id;
  }
  unsetenv("ZQTEST_QUIRKS_ID");
}

TEST(EffectShell, ContainerListsItsMembersAndAnswersNoNames) {
  PluginRecord record("zqtest_shell");
  ASSERT_TRUE(record.ok());
  record.Clear();
  Loaded shell("zqtest_shell", 0);
  EXPECT_EQ(shell.hr, ZQ_S_IS_SHELL);
  ASSERT_NE(shell->Effect(), nullptr);
  EXPECT_EQ(shell->Effect()->resvd1, 0);  // unopened
  WCHAR text[64];
  EXPECT_EQ(shell->GetEffectName(text, 64), ZQ_E_COMPONENT);
  EXPECT_EQ(shell->GetVendorString(text, 64), ZQ_E_COMPONENT);
  VstEffectInfo info;
  EXPECT_EQ(shell->GetEffectInfo(&info), ZQ_E_COMPONENT);

  std::vector<std::pair<LONG, std::string>> members;
  LONG id = -1;
  HRESULT hr;
  while ((hr = shell->GetNextShellPlugin(&id, text, 64)) == S_OK) members.emplace_back(id, Narrow(text));
  EXPECT_EQ(hr, S_FALSE);
  EXPECT_EQ(id, 0);
  EXPECT_EQ(members, (std::vector<std::pair<LONG, std::string>>{{ZqVstFourCC("ZqS1"), "ZqShell Gain"},
                                                                 {ZqVstFourCC("ZqS2"), "ZqShell Invert"},
                                                                 {ZqVstFourCC("ZqS3"), "ZqShell Tone"}}));
  EXPECT_TRUE(Matching(record.Lines(), "effOpen").empty());
  EXPECT_EQ(Matching(record.Lines(), "effVendorSpecific").size(), 2u);

  // Released during a scan: the scan ends before the close.
  ASSERT_EQ(shell->GetNextShellPlugin(&id, text, 64), S_OK);
  record.Clear();
  shell.effect->Release();
  shell.effect = nullptr;
  EXPECT_THAT(record.Lines(), ElementsAre("effVendorSpecific stCa EnSc", "effClose 0 0"));
}

TEST(EffectShell, MemberByIdAndWrongId) {
  Loaded invert("zqtest_shell", ZqVstFourCC("ZqS2"));
  EXPECT_EQ(invert.hr, S_OK);
  WCHAR name[64];
  EXPECT_EQ(invert->GetEffectName(name, 64), S_OK);
  EXPECT_EQ(Narrow(name), "ZqShell Invert");

  Loaded wrong("zqtest_shell", 0x12345678);
  EXPECT_EQ(wrong.hr, E_UNEXPECTED);
  EXPECT_EQ(wrong->Effect(), nullptr);
  // The id is not compared for a plug-in that is no shell.
  Loaded gain("zqgain", 0x12345678);
  EXPECT_EQ(gain.hr, S_OK);
}

TEST(EffectNames, InfoStringsAndTheFileNameForAnEmptyName) {
  Loaded effect("zqgain");
  ASSERT_EQ(effect.hr, S_OK);
  WCHAR text[64];
  EXPECT_EQ(effect->GetEffectName(nullptr, 64), E_INVALIDARG);
  EXPECT_EQ(effect->GetEffectName(text, 64), S_OK);
  EXPECT_EQ(Narrow(text), "ZqGain");
  EXPECT_EQ(effect->GetVendorString(text, 4), S_OK);  // cut to fit
  EXPECT_EQ(Narrow(text), "Ost");
  VstEffectInfo info;
  EXPECT_EQ(effect->GetEffectInfo(nullptr), E_INVALIDARG);
  ASSERT_EQ(effect->GetEffectInfo(&info), S_OK);
  EXPECT_EQ(info.uniqueID, ZqVstFourCC("ZqGn"));
  EXPECT_EQ(info.vendorVersion, 1000);
  EXPECT_EQ(info.numParams, 4);
  Loaded uneven("zqtest_2in1out");
  ASSERT_EQ(uneven->GetEffectInfo(&info), S_OK);
  EXPECT_EQ(info.numInputs * 10 + info.numOutputs, 21);
  VstParamProperties props;
  ASSERT_EQ(effect->GetParameterProperties(2, &props), S_OK);
  EXPECT_EQ(Narrow(props.label), "Channel mode");
  EXPECT_EQ(Narrow(props.shortLabel), "Mode");
  EXPECT_EQ(props.maxInteger, 3);

  // A plug-in without a name is known by its module's file name, without
  // folder and extension, cut to the buffer.
  Loaded nameless("zqtest_quirks");
  ASSERT_EQ(nameless.hr, S_OK);
  EXPECT_EQ(nameless->GetEffectName(text, 64), S_OK);
  EXPECT_EQ(Narrow(text), "zqtest_quirks");
  EXPECT_EQ(nameless->GetEffectName(text, 5), S_OK);
  EXPECT_EQ(Narrow(text), "zqte");
}

TEST(EffectParameters, LatencyTailAndPropertiesAbsent) {
  Loaded delay("zqdelay");
  ASSERT_EQ(delay.hr, S_OK);
  EXPECT_EQ(delay->GetParameterProperties(1, nullptr), E_NOTIMPL);
  EXPECT_EQ(delay->GetParameterProperties(0, nullptr), S_OK);
  LONG frames = -1;
  EXPECT_EQ(delay->GetLatency(&frames), S_OK);
  EXPECT_EQ(frames, 64);
  EXPECT_EQ(delay->GetTailSize(&frames), S_OK);
  EXPECT_EQ(frames, 64 + 100 * 19);
  delay->Effect()->initialDelay = -5;  // reads as 0
  EXPECT_EQ(delay->GetLatency(&frames), S_OK);
  EXPECT_EQ(frames, 0);
  Loaded gain("zqgain");  // answers 0: no tail
  EXPECT_EQ(gain->GetTailSize(&frames), S_OK);
  EXPECT_EQ(frames, 0);
}

TEST(EffectPrograms, NamesWithoutIndexedNamesVisitTheProgramAndComeBack) {
  PluginRecord record("zqtest_1in2out");
  Loaded effect("zqtest_1in2out");
  ASSERT_EQ(effect.hr, S_OK);
  record.Clear();
  WCHAR name[64];
  EXPECT_EQ(effect->GetProgramName(1, name, 64), S_OK);
  EXPECT_EQ(Narrow(name), "Second");
  EXPECT_THAT(Opcodes(record, "eff"),
              ElementsAre("effGetProgramNameIndexed", "effGetProgram", "effBeginSetProgram", "effSetProgram",
                          "effEndSetProgram", "effGetProgramName", "effBeginSetProgram", "effSetProgram",
                          "effEndSetProgram"));
  EXPECT_THAT(Matching(record.Lines(), "effSetProgram "), ElementsAre("effSetProgram 0 1", "effSetProgram 0 0"));
  EXPECT_EQ(effect->GetProgramName(-1, name, 64), S_OK);
  EXPECT_EQ(Narrow(name), "First");
  EXPECT_EQ(effect->GetProgramName(2, name, 64), E_INVALIDARG);

  record.Clear();
  EXPECT_EQ(effect->SetProgram(0), S_FALSE);  // the current one: nothing sent
  EXPECT_EQ(effect->SetProgram(5), E_INVALIDARG);
  EXPECT_EQ(effect->SetProgramName(u"First"), S_FALSE);
  EXPECT_TRUE(Matching(record.Lines(), "effSetProgram").empty());
  EXPECT_EQ(effect->SetProgramName(u"Renamed"), S_OK);
  EXPECT_EQ(effect->GetProgramName(-1, name, 64), S_OK);
  EXPECT_EQ(Narrow(name), "Renamed");
  EXPECT_EQ(effect->SetProgram(1), S_OK);
  EXPECT_EQ(record.State(kStateProgram), 1);

  Loaded none("zqtest_shell", ZqVstFourCC("ZqS3"));  // no programs
  LONG index = 7;
  EXPECT_EQ(none->GetProgram(&index), S_FALSE);
  EXPECT_EQ(none->SetProgram(0), S_FALSE);
  EXPECT_EQ(none->GetProgramName(0, name, 8), S_FALSE);
}

TEST(EffectChannels, SpeakerArrangementsAreAsTabled) {
  PluginRecord record("zqtest_6x6");
  Loaded effect("zqtest_6x6");
  ASSERT_EQ(effect.hr, S_OK);
  auto arrangement = record.Function<const VstSpeakerArrangement* (*)(int)>("zqtest_6x6_arrangement");
  ASSERT_NE(arrangement, nullptr);
  record.Clear();
  const DWORD flagsBefore = effect->StateFlags();
  EXPECT_EQ(effect->SetChannelCount(6), S_OK);
  EXPECT_EQ(effect->StateFlags(), flagsBefore);  // the mains flag is not touched
  EXPECT_THAT(Opcodes(record, "eff"), ElementsAre("effMainsChanged", "effSetSpeakerArrangement", "effMainsChanged"));
  EXPECT_THAT(Matching(record.Lines(), "effMainsChanged"), ElementsAre("effMainsChanged 0 0", "effMainsChanged 0 1"));
  const struct {
    const char* name;
    float azimuth, elevation, radius;
    VstInt32 type;
  } surround[] = {{"L", 2.0943954f, 0, 1.154701f, 1},  {"R", 1.0471977f, 0, 1.154701f, 2},
                  {"C", 1.5707965f, 0, 1, 2},          {"Lfe", 10, 10, 0, 4},
                  {"Ls", -2.7925272f, 0, 1.064178f, 5}, {"Rs", -0.3490659f, 0, 1.064178f, 6}};
  for (int which : {0, 1}) {
    const VstSpeakerArrangement* a = arrangement(which);
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(a->type, kSpeakerArr51);
    EXPECT_EQ(a->numChannels, 6);
    for (int i = 0; i < 6; ++i) {
      const VstSpeakerProperties& p = a->speakers[i];
      EXPECT_STREQ(p.name, surround[i].name);
      EXPECT_EQ(p.azimuth, surround[i].azimuth) << i;
      EXPECT_EQ(p.elevation, surround[i].elevation) << i;
      EXPECT_EQ(p.radius, surround[i].radius) << i;
      EXPECT_EQ(p.type, surround[i].type) << i;
    }
  }
  const struct {
    int channels;
    VstInt32 type;
    const char* lastName;
    VstInt32 firstType;
    float firstAzimuth;
  } others[] = {{3, kSpeakerArrEmpty, "", kSpeakerUndefined, 0.0f},
                {2, kSpeakerArrStereo, "R", 1, 2.0943954f},
                {1, kSpeakerArrMono, "M", 0, 1.5707965f}};
  for (const auto& o : others) {
    EXPECT_EQ(effect->SetChannelCount(o.channels), S_OK);
    const VstSpeakerArrangement* a = arrangement(0);
    EXPECT_EQ(a->type, o.type) << o.channels;
    EXPECT_EQ(a->numChannels, o.channels);
    EXPECT_STREQ(a->speakers[o.channels - 1].name, o.lastName) << o.channels;
    EXPECT_EQ(a->speakers[0].type, o.firstType) << o.channels;
    EXPECT_EQ(a->speakers[0].azimuth, o.firstAzimuth) << o.channels;
  }

  record.Clear();
  {
    ZqScopedAllocFailure failure(1, ZQMEMFAIL_CALLING_THREAD);
    EXPECT_EQ(effect->SetChannelCount(6), E_OUTOFMEMORY);
  }
  EXPECT_TRUE(record.Lines().empty());
}

TEST(EffectEditor, OpenCloseAndIdleSendWhatTheStateAllows) {
  PluginRecord record("zqgain");
  Loaded effect("zqgain");
  ASSERT_EQ(effect.hr, S_OK);
  record.Clear();
  ZQVSTRECT rect{1, 2, 3, 4};
  EXPECT_EQ(effect->EditOpen(0x1234, &rect), S_OK);
  EXPECT_EQ(effect->EditOpen(0x1234, nullptr), S_FALSE);
  EXPECT_EQ(rect.right, 0);  // no rectangle from a plug-in without an editor
  EXPECT_EQ(effect->EditIdle(), S_OK);
  EXPECT_EQ(effect->EditClose(), S_OK);
  EXPECT_EQ(effect->EditClose(), S_FALSE);
  EXPECT_EQ(effect->EditIdle(), S_OK);  // closed, and no idle wanted: nothing
  EXPECT_THAT(Opcodes(record, "eff"), ElementsAre("effEditOpen", "effSetEditKnobMode", "effEditGetRect", "effEditIdle",
                                                  "effEditClose"));
  EXPECT_THAT(Matching(record.Lines(), "effSetEditKnobMode"), ElementsAre("effSetEditKnobMode 0 2"));
}

}  // namespace
