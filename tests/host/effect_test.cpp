// The effect instance: loading and its failures, the state machine, shells,
// names, programs, block size and rate, speaker arrangements, latency, tail
// and the editor operations, against the plug-ins we build.
#include <cmath>
#include <cstring>

#include "kernel/memory.h"
#include "vsthost_fixture.h"

using namespace zqtest;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

namespace {

TEST(EffectLoad, FailuresAnswerTheirStatusAndLeaveNothingLoaded) {
  struct Case {
    const char* name;
    HRESULT expected;
  } cases[] = {
      {"zq_no_such_module", HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND)},
      {"zqbad_missing_dep", HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND)},
      {"zqbad_no_entry", HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND)},
      {"zqbad_not_elf", HRESULT_FROM_WIN32(ERROR_BAD_EXE_FORMAT)},
      {"zqbad_null_entry", E_INVALIDARG},
      {"zqbad_magic", E_INVALIDARG},
  };
  for (const Case& c : cases) {
    Loaded effect(c.name);
    EXPECT_EQ(effect.hr, c.expected) << c.name;
    EXPECT_EQ(effect->Effect(), nullptr) << c.name;
    VstEffectInfo info;
    EXPECT_EQ(effect->GetEffectInfo(&info), ZQ_E_COMPONENT) << c.name;
  }
}

TEST(EffectLoad, FaultInEntryPointAnswersExceptionAndReleaseStillWorks) {
  Loaded effect("zqbad_entry_fault");
  EXPECT_EQ(effect.hr, ZQ_E_EXCEPTION);
  EXPECT_EQ(effect->Effect(), nullptr);
}

TEST(EffectLoad, FaultInEffOpenIsAnOrdinaryAnswerAndThePluginStaysUsable) {
  for (const char* name : {"zqbad_open_fault", "zqbad_throw"}) {
    Loaded effect(name);
    EXPECT_EQ(effect.hr, S_OK) << name;
    ASSERT_NE(effect->Effect(), nullptr) << name;
    WCHAR text[64];
    EXPECT_EQ(effect->GetEffectName(text, 64), S_OK);
    EXPECT_THAT(Narrow(text), HasSubstr("ZqBad")) << name;
  }
}

TEST(EffectLoad, CreateInProcessGivesTheInterfaceOrNothing) {
  IZqVstEffect* effect = nullptr;
  EXPECT_EQ(ZqVstCreateEffectInProcess(PluginPath("zqgain").c_str(), 0, IID_IZqVstEffect,
                                       reinterpret_cast<void**>(&effect)),
            S_OK);
  ASSERT_NE(effect, nullptr);
  IUnknown* unknown = nullptr;
  EXPECT_EQ(effect->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&unknown)), S_OK);
  unknown->Release();
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

  EXPECT_EQ(effect->Suspend(TRUE), S_FALSE);  // nothing to stop yet
  EXPECT_EQ(effect->Resume(FALSE), S_OK);
  EXPECT_EQ(effect->StateFlags() & (ZQVST_STATE_MAINS_ON | ZQVST_STATE_PROCESS_STARTED),
            ZQVST_STATE_MAINS_ON | ZQVST_STATE_PROCESS_STARTED);
  EXPECT_EQ(effect->Resume(FALSE), S_FALSE);  // running already

  // Mains stay on across a plain suspend; the next resume only starts.
  EXPECT_EQ(effect->Suspend(FALSE), S_OK);
  EXPECT_EQ(effect->StateFlags() & (ZQVST_STATE_MAINS_ON | ZQVST_STATE_PROCESS_STARTED), ZQVST_STATE_MAINS_ON);
  EXPECT_EQ(effect->Resume(FALSE), S_OK);

  // A forced resume sends mains on a second time and no second start.
  EXPECT_EQ(effect->Resume(TRUE), S_OK);

  EXPECT_EQ(effect->Suspend(TRUE), S_OK);
  EXPECT_EQ(effect->StateFlags() & (ZQVST_STATE_MAINS_ON | ZQVST_STATE_PROCESS_STARTED), 0u);

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
  EXPECT_EQ(effect->SampleRate(), 48000.0f);
  EXPECT_EQ(effect->SetBlockSize(512), S_OK);
  EXPECT_EQ(effect->SetBlockSize(512), S_FALSE);
  EXPECT_EQ(effect->BlockSize(), 512);
  EXPECT_THAT(record.Lines(), ElementsAre("effSetSampleRate 0 0 48000", "effSetSampleRate 0 0 48000",
                                          "effSetBlockSize 0 512"));
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
  EXPECT_EQ(text[0], 0);
  EXPECT_EQ(members, (std::vector<std::pair<LONG, std::string>>{{ZqVstFourCC("ZqS1"), "ZqShell Gain"},
                                                                 {ZqVstFourCC("ZqS2"), "ZqShell Invert"},
                                                                 {ZqVstFourCC("ZqS3"), "ZqShell Tone"}}));
  EXPECT_EQ(shell->StateFlags() & ZQVST_STATE_SHELL_SCAN, 0u);
  auto lines = record.Lines();
  EXPECT_TRUE(Matching(lines, "effOpen").empty());
  EXPECT_EQ(Matching(lines, "effVendorSpecific").size(), 2u);
}

TEST(EffectShell, MemberByIdAndWrongId) {
  Loaded invert("zqtest_shell", ZqVstFourCC("ZqS2"));
  EXPECT_EQ(invert.hr, S_OK);
  WCHAR name[64];
  EXPECT_EQ(invert->GetEffectName(name, 64), S_OK);
  EXPECT_EQ(Narrow(name), "ZqShell Invert");
  VstEffectInfo info;
  ASSERT_EQ(invert->GetEffectInfo(&info), S_OK);
  EXPECT_EQ(info.numInputs, 1);
  EXPECT_EQ(info.numOutputs, 1);

  Loaded wrong("zqtest_shell", 0x12345678);
  EXPECT_EQ(wrong.hr, E_UNEXPECTED);
  EXPECT_EQ(wrong->Effect(), nullptr);

  // The id is not compared for a plug-in that is no shell.
  Loaded gain("zqgain", 0x12345678);
  EXPECT_EQ(gain.hr, S_OK);
}

TEST(EffectShell, ReleaseDuringAnOpenScanEndsTheScanBeforeClosing) {
  PluginRecord record("zqtest_shell");
  {
    Loaded shell("zqtest_shell", 0);
    ASSERT_EQ(shell.hr, ZQ_S_IS_SHELL);
    LONG id = 0;
    WCHAR name[64];
    ASSERT_EQ(shell->GetNextShellPlugin(&id, name, 64), S_OK);
    record.Clear();
  }
  auto lines = record.Lines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0], "effVendorSpecific stCa EnSc");
  EXPECT_EQ(lines[1], "effClose 0 0");
}

TEST(EffectNames, InfoAndStringsOfAnOrdinaryPlugin) {
  Loaded effect("zqgain");
  ASSERT_EQ(effect.hr, S_OK);
  WCHAR text[64];
  EXPECT_EQ(effect->GetEffectName(nullptr, 64), E_INVALIDARG);
  EXPECT_EQ(effect->GetEffectName(text, 64), S_OK);
  EXPECT_EQ(Narrow(text), "ZqGain");
  EXPECT_EQ(effect->GetProductString(text, 64), S_OK);
  EXPECT_EQ(Narrow(text), "ZqVstWrap Examples");
  EXPECT_EQ(effect->GetVendorString(text, 4), S_OK);  // cut to fit
  EXPECT_EQ(Narrow(text), "Ost");
  VstEffectInfo info;
  EXPECT_EQ(effect->GetEffectInfo(nullptr), E_INVALIDARG);
  ASSERT_EQ(effect->GetEffectInfo(&info), S_OK);
  EXPECT_EQ(info.uniqueID, ZqVstFourCC("ZqGn"));
  EXPECT_EQ(info.vendorVersion, 1000);
  EXPECT_EQ(info.numParams, 4);
  EXPECT_EQ(info.numInputs, 2);
  EXPECT_EQ(info.numOutputs, 2);

  EXPECT_EQ(effect->GetParameterName(0, text, 64), S_OK);
  EXPECT_EQ(Narrow(text), "Gain");
  EXPECT_EQ(effect->GetParameterLabel(0, text, 64), S_OK);
  EXPECT_EQ(Narrow(text), "dB");
  VstParamProperties props;
  ASSERT_EQ(effect->GetParameterProperties(2, &props), S_OK);
  EXPECT_EQ(Narrow(props.label), "Channel mode");
  EXPECT_EQ(Narrow(props.shortLabel), "Mode");
  EXPECT_EQ(props.maxInteger, 3);
  EXPECT_EQ(props.flags, kVstParameterUsesIntegerMinMax | kVstParameterUsesIntStep | kVstParameterSupportsDisplayCategory);
}

TEST(EffectParameters, ClampedValuesAndPropertiesAbsentAnswerNotImplemented) {
  Loaded effect("zqdelay");
  ASSERT_EQ(effect.hr, S_OK);
  EXPECT_EQ(effect->GetParameterProperties(1, nullptr), E_NOTIMPL);
  EXPECT_EQ(effect->GetParameterProperties(0, nullptr), S_OK);
  EXPECT_EQ(effect->SetParameter(2, 0.25f), S_OK);
  float value = -1.0f;
  EXPECT_EQ(effect->GetParameter(2, &value), S_OK);
  EXPECT_EQ(value, 0.25f);
}

TEST(EffectLatencyAndTail, ReadAsTheyAre) {
  Loaded delay("zqdelay");
  ASSERT_EQ(delay.hr, S_OK);
  LONG frames = -1;
  EXPECT_EQ(delay->GetLatency(&frames), S_OK);
  EXPECT_EQ(frames, 64);
  EXPECT_EQ(delay->GetTailSize(&frames), S_OK);
  EXPECT_EQ(frames, 64 + 100 * 19);
  // A negative initialDelay reads as 0, and so does a tail answer of 1.
  delay->Effect()->initialDelay = -5;
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
  LONG current = -1;
  EXPECT_EQ(effect->GetProgram(&current), S_OK);
  EXPECT_EQ(current, 0);
  auto lines = record.Lines();
  EXPECT_EQ(Matching(lines, "effBeginSetProgram").size(), 2u);
  EXPECT_EQ(Matching(lines, "effEndSetProgram").size(), 2u);
  EXPECT_THAT(Matching(lines, "effSetProgram "), ElementsAre("effSetProgram 0 1", "effSetProgram 0 0"));

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
}

TEST(EffectPrograms, APluginWithoutProgramsAnswersFalse) {
  Loaded effect("zqtest_shell", ZqVstFourCC("ZqS3"));
  ASSERT_EQ(effect.hr, S_OK);
  if (effect->Effect()->numPrograms > 0) GTEST_SKIP() << "the member has programs";
  LONG index = 7;
  WCHAR name[8];
  EXPECT_EQ(effect->GetProgram(&index), S_FALSE);
  EXPECT_EQ(effect->SetProgram(0), S_FALSE);
  EXPECT_EQ(effect->GetProgramName(0, name, 8), S_FALSE);
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
  EXPECT_THAT(Matching(record.Lines(), "effMainsChanged"), ElementsAre("effMainsChanged 0 0", "effMainsChanged 0 1"));
  for (int which : {0, 1}) {
    const VstSpeakerArrangement* a = arrangement(which);
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(a->type, kSpeakerArr51);
    EXPECT_EQ(a->numChannels, 6);
    const char* names[] = {"L", "R", "C", "Lfe", "Ls", "Rs"};
    const int types[] = {1, 2, 2, 4, 5, 6};
    for (int i = 0; i < 6; ++i) {
      EXPECT_STREQ(a->speakers[i].name, names[i]);
      EXPECT_EQ(a->speakers[i].type, types[i]) << names[i];
    }
    EXPECT_EQ(a->speakers[0].azimuth, 2.0943954f);
    EXPECT_EQ(a->speakers[0].radius, 1.154701f);
    EXPECT_EQ(a->speakers[3].azimuth, 10.0f);
    EXPECT_EQ(a->speakers[3].elevation, 10.0f);
    EXPECT_EQ(a->speakers[3].radius, 0.0f);
    EXPECT_EQ(a->speakers[4].azimuth, -2.7925272f);
    EXPECT_EQ(a->speakers[5].radius, 1.064178f);
  }

  EXPECT_EQ(effect->SetChannelCount(3), S_OK);
  const VstSpeakerArrangement* a = arrangement(1);
  EXPECT_EQ(a->type, kSpeakerArrEmpty);
  EXPECT_EQ(a->numChannels, 3);
  for (int i = 0; i < 3; ++i) {
    EXPECT_STREQ(a->speakers[i].name, "");
    EXPECT_EQ(a->speakers[i].type, kSpeakerUndefined);
  }

  EXPECT_EQ(effect->SetChannelCount(2), S_OK);
  EXPECT_EQ(arrangement(0)->type, kSpeakerArrStereo);
  EXPECT_STREQ(arrangement(0)->speakers[1].name, "R");
  EXPECT_EQ(effect->SetChannelCount(1), S_OK);
  EXPECT_EQ(arrangement(0)->type, kSpeakerArrMono);
  EXPECT_EQ(arrangement(0)->speakers[0].azimuth, 1.5707965f);
}

TEST(EffectChannels, OutOfMemorySendsNothing) {
  PluginRecord record("zqtest_6x6");
  Loaded effect("zqtest_6x6");
  ASSERT_EQ(effect.hr, S_OK);
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
  EXPECT_NE(effect->StateFlags() & ZQVST_STATE_EDITOR_OPEN, 0u);
  EXPECT_EQ(effect->EditIdle(), S_OK);
  EXPECT_EQ(effect->EditClose(), S_OK);
  EXPECT_EQ(effect->EditClose(), S_FALSE);
  EXPECT_EQ(effect->EditIdle(), S_OK);  // closed, and no idle wanted: nothing
  auto lines = record.Lines();
  EXPECT_THAT(Matching(lines, "effEdit"),
              ElementsAre("effEditOpen 0 0", "effEditGetRect 0 0", "effEditIdle 0 0", "effEditClose 0 0"));
  EXPECT_THAT(Matching(lines, "effSetEditKnobMode"), ElementsAre("effSetEditKnobMode 0 2"));
  EXPECT_TRUE(Matching(lines, "effIdle").empty());
}

}  // namespace
