// Preset and bank data of an effect: the exact bytes of the four forms, round
// trips into a fresh instance, and every kind of damaged or foreign file,
// which must leave the plug-in as it was.
#include <cstring>
#include <filesystem>

#include "kernel/containers/streams.h"
#include "tests/host/presets/preset_fixture.h"

using namespace zqtest;

namespace {

constexpr ULONG kFxpHeader = 56, kFxpChunkHeader = 60, kFxbHeader = 156, kFxbChunkHeader = 160;

// Program values of the gain plug-in that differ from every built-in program.
void Detune(CZqVstEffect* effect, float base) {
  for (int i = 0; i < 4; ++i) ASSERT_EQ(effect->SetParameter(i, base + 0.1f * static_cast<float>(i)), S_OK);
}

std::vector<float> Parameters(CZqVstEffect* effect) {
  std::vector<float> values(static_cast<size_t>(effect->Effect()->numParams));
  for (size_t i = 0; i < values.size(); ++i) effect->GetParameter(static_cast<int>(i), &values[i]);
  return values;
}

std::string ProgramName(CZqVstEffect* effect, LONG index) {
  WCHAR name[64];
  effect->GetProgramName(index, name, 64);
  return Narrow(name);
}

// The six words every form opens with.
void ExpectCommonHeader(const Bytes& file, const char* form, const char* id, uint32_t version) {
  ASSERT_GE(file.size(), 24u);
  EXPECT_EQ(Text(file, 0, 4), "CcnK");
  EXPECT_EQ(Be(file, 4), file.size() - 8) << "byte size";
  EXPECT_EQ(Text(file, 8, 4), form);
  EXPECT_EQ(Be(file, 12), 0u);
  EXPECT_EQ(Text(file, 16, 4), id);
  EXPECT_EQ(Be(file, 20), version);
}

TEST(PresetFormat, ParameterProgramAndBankAreByteExact) {
  Loaded gain("zqgain");
  ASSERT_EQ(gain.hr, S_OK);
  ASSERT_EQ(gain->SetProgram(1), S_OK);
  ASSERT_EQ(gain->SetParameter(2, 1.0f), S_OK);

  ULONG size = 1;
  EXPECT_EQ(gain->SavePreset(nullptr, &size), S_OK);
  EXPECT_EQ(size, 4 * 4 + kFxpHeader);
  const Bytes fxp = Save(gain.effect, false);
  ASSERT_EQ(fxp.size(), 4 * 4 + kFxpHeader);
  ExpectCommonHeader(fxp, "FxCk", "ZqGn", 1);
  EXPECT_EQ(Be(fxp, 24), 4u);
  EXPECT_EQ(Bytes(fxp.begin() + 28, fxp.begin() + 56), Field("Quiet", 28));
  const float quiet[] = {0.25f, 0.0f, 1.0f, 0.5f};
  for (int i = 0; i < 4; ++i) EXPECT_EQ(Be(fxp, 56 + 4 * i), Bits(quiet[i])) << "parameter " << i;

  // A bank is the programs in order, and ends where it began.
  ASSERT_EQ(gain->SetProgram(2), S_OK);
  const Bytes fxb = Save(gain.effect, true);
  ASSERT_EQ(fxb.size(), kFxbHeader + 4 * (4 * 4 + kFxpHeader));
  ExpectCommonHeader(fxb, "FxBk", "ZqGn", 1);
  EXPECT_EQ(Be(fxb, 24), 4u);
  EXPECT_EQ(Bytes(fxb.begin() + 28, fxb.begin() + 156), Bytes(128, 0));
  const char* names[] = {"Unity", "Quiet", "Inverted", "Mono Left"};
  for (size_t p = 0; p < 4; ++p) {
    const Bytes program(fxb.begin() + kFxbHeader + 72 * p, fxb.begin() + kFxbHeader + 72 * (p + 1));
    ExpectCommonHeader(program, "FxCk", "ZqGn", 1);
    EXPECT_EQ(Text(program, 28, 28), names[p]);
    if (p == 1) {
      EXPECT_EQ(program, fxp);
    }
  }
  LONG current = -1;
  EXPECT_EQ(gain->GetProgram(&current), S_OK);
  EXPECT_EQ(current, 2);
}

TEST(PresetFormat, ChunkProgramAndBankAreByteExact) {
  Loaded chunk("zqchunk");
  ASSERT_EQ(chunk.hr, S_OK);
  constexpr ULONG kProgramChunk = 16 + 36, kBankChunk = 16 + 3 * 36;
  ULONG size = 0;
  EXPECT_EQ(chunk->SavePreset(nullptr, &size), S_OK);
  EXPECT_EQ(size, kProgramChunk + kFxpChunkHeader);
  EXPECT_EQ(chunk->SaveBank(nullptr, &size), S_OK);
  EXPECT_EQ(size, kBankChunk + kFxbChunkHeader);

  const Bytes fxp = Save(chunk.effect, false);
  ASSERT_EQ(fxp.size(), kProgramChunk + kFxpChunkHeader);
  ExpectCommonHeader(fxp, "FPCh", "ZqCk", 2);
  EXPECT_EQ(Be(fxp, 24), 3u) << "the plug-in's parameter count";
  EXPECT_EQ(Text(fxp, 28, 28), "Init");
  EXPECT_EQ(Be(fxp, 56), kProgramChunk);
  EXPECT_EQ(Text(fxp, 60, 4), "SCqZ") << "the plug-in's own bytes follow unchanged";

  const Bytes fxb = Save(chunk.effect, true);
  ASSERT_EQ(fxb.size(), kBankChunk + kFxbChunkHeader);
  ExpectCommonHeader(fxb, "FBCh", "ZqCk", 2);
  EXPECT_EQ(Be(fxb, 24), 3u);
  EXPECT_EQ(Bytes(fxb.begin() + 28, fxb.begin() + 156), Bytes(128, 0));
  EXPECT_EQ(Be(fxb, 156), kBankChunk);
  EXPECT_EQ(Text(fxb, 160, 4), "SCqZ");
}

TEST(PresetRoundTrip, ParameterFormsRestoreProgramsIntoAFreshInstance) {
  Bytes fxp, fxb;
  std::vector<std::vector<float>> values(4);
  {
    Loaded gain("zqgain");
    ASSERT_EQ(gain.hr, S_OK);
    for (LONG p = 0; p < 4; ++p) {
      ASSERT_GE(gain->SetProgram(p), S_OK);
      Detune(gain.effect, 0.05f * static_cast<float>(p));
      ASSERT_EQ(gain->SetProgramName((u"Mine " + std::u16string(1, u'A' + p)).c_str()), S_OK);
      values[static_cast<size_t>(p)] = Parameters(gain.effect);
    }
    ASSERT_EQ(gain->SetProgram(1), S_OK);
    fxp = Save(gain.effect, false);
    fxb = Save(gain.effect, true);
  }
  {
    Loaded fresh("zqgain");
    ASSERT_EQ(Load(fresh.effect, fxp, false), S_OK);
    EXPECT_EQ(Parameters(fresh.effect), values[1]);
    EXPECT_EQ(ProgramName(fresh.effect, -1), "Mine B");
  }
  {
    Loaded fresh("zqgain");
    // The bank ends on its last program, so selecting it again is S_FALSE.
    ASSERT_EQ(Load(fresh.effect, fxb, true, 3), S_FALSE);
    LONG current = -1;
    fresh->GetProgram(&current);
    EXPECT_EQ(current, 3);
    for (LONG p = 0; p < 4; ++p) {
      fresh->SetProgram(p);
      EXPECT_EQ(Parameters(fresh.effect), values[static_cast<size_t>(p)]) << "program " << p;
      EXPECT_EQ(ProgramName(fresh.effect, p), std::string("Mine ") + static_cast<char>('A' + p));
    }
    // A program to select that does not exist falls back to the first.
    ASSERT_EQ(fresh->SetProgram(2), S_OK);
    EXPECT_EQ(Load(fresh.effect, fxb, true, 9), S_OK);
    fresh->GetProgram(&current);
    EXPECT_EQ(current, 0);
  }
}

TEST(PresetRoundTrip, ChunkFormsReachTheFreshInstanceAsTheSameChunk) {
  Bytes fxp, fxb;
  std::vector<float> wide;
  {
    Loaded chunk("zqchunk");
    ASSERT_EQ(chunk.hr, S_OK);
    ASSERT_EQ(chunk->SetProgram(2), S_OK);
    ASSERT_EQ(chunk->SetParameter(1, 0.125f), S_OK);
    ASSERT_EQ(chunk->SetProgramName(u"Wider"), S_OK);
    wide = Parameters(chunk.effect);
    fxp = Save(chunk.effect, false);
    fxb = Save(chunk.effect, true);
  }
  PluginRecord record("zqchunk");
  {
    Loaded fresh("zqchunk");
    ASSERT_TRUE(SUCCEEDED(Load(fresh.effect, fxb, true, 2)));
    EXPECT_EQ(record.State(kStatePluginSpecific), 1) << "the bank chunk was accepted";
    EXPECT_EQ(Parameters(fresh.effect), wide);
    EXPECT_EQ(ProgramName(fresh.effect, 2), "Wider");
  }
  {
    Loaded fresh("zqchunk");
    ASSERT_EQ(Load(fresh.effect, fxp, false), S_OK);
    EXPECT_EQ(record.State(kStatePluginSpecific), 1) << "the program chunk was accepted";
    EXPECT_EQ(Parameters(fresh.effect), wide);
    EXPECT_EQ(ProgramName(fresh.effect, -1), "Wider");
  }
}

TEST(PresetRoundTrip, VersionsUpToThePluginsOwnLoadAndAPlainFileReachesAChunkPlugin) {
  Loaded chunk("zqchunk");  // version 2
  ASSERT_EQ(chunk.hr, S_OK);
  // An "FxCk" program for it, written by hand, from version 1 with an odd
  // version word: read by parameters.
  Bytes plain = Header("FxCk", "ZqCk", 1, 3, 12);
  PutBe(plain, 12, 0xDEADBEEF);
  const Bytes name = Field("Handmade", 28);
  plain.insert(plain.end(), name.begin(), name.end());
  for (float v : {0.75f, 0.25f, 0.0f}) AppendBe(plain, Bits(v));
  ASSERT_EQ(Load(chunk.effect, plain, false), S_OK);
  EXPECT_EQ(Parameters(chunk.effect), (std::vector<float>{0.75f, 0.25f, 0.0f}));
  EXPECT_EQ(ProgramName(chunk.effect, -1), "Handmade");

  Bytes fxp = Save(chunk.effect, false);
  PutBe(fxp, 20, 1);
  EXPECT_EQ(Load(chunk.effect, fxp, false), S_OK);
  PutBe(fxp, 20, 3);
  EXPECT_EQ(Load(chunk.effect, fxp, false), ZQ_E_BAD_FILE) << "a newer plug-in's file";
}

// Each damaged file is refused with its status before anything reaches the
// plug-in.  Cut preset files are the next test's.
struct Damage {
  const char* name;
  const char* plugin;
  bool bank;
  HRESULT expected;
  void (*apply)(Bytes& file);
};

const Damage kDamages[] = {
    {"ChunkMagic", "zqgain", false, ZQ_E_BAD_FILE, [](Bytes& f) { f[0] = 'X'; }},
    {"UniqueId", "zqgain", false, ZQ_E_BAD_FILE, [](Bytes& f) { PutBe(f, 16, ZqVstFourCC("ZqGo")); }},
    {"NewerVersion", "zqgain", true, ZQ_E_BAD_FILE, [](Bytes& f) { PutBe(f, 20, 2); }},
    {"UnknownForm", "zqgain", false, ZQ_E_BAD_FILE, [](Bytes& f) { f[10] = 'X'; }},
    {"PresetFormInBank", "zqgain", true, ZQ_E_BAD_FILE, [](Bytes& f) { f[10] = 'C'; }},
    {"MoreParameters", "zqgain", false, ZQ_E_BAD_FILE, [](Bytes& f) { PutBe(f, 24, 5); }},
    {"ChunkPresetWithoutFlag", "zqgain", false, ZQ_E_BAD_FILE, [](Bytes& f) { std::memcpy(&f[8], "FPCh", 4); }},
    {"ChunkBankWithoutFlag", "zqgain", true, ZQ_E_BAD_FILE, [](Bytes& f) { std::memcpy(&f[8], "FBCh", 4); }},
    {"ShortBankHeader", "zqgain", true, E_UNEXPECTED, [](Bytes& f) { f.resize(155); }},
    {"ZeroPresetChunk", "zqchunk", false, E_UNEXPECTED, [](Bytes& f) { PutBe(f, 56, 0); }},
    {"NegativePresetChunk", "zqchunk", false, E_UNEXPECTED, [](Bytes& f) { PutBe(f, 56, 0x80000000u); }},
    {"ZeroBankChunk", "zqchunk", true, E_UNEXPECTED, [](Bytes& f) { PutBe(f, 156, 0); }},
    {"HugeBankChunk", "zqchunk", true, E_UNEXPECTED, [](Bytes& f) { PutBe(f, 156, 0x7FFFFFFF); }},
};

class DamagedFile : public ::testing::TestWithParam<Damage> {};

TEST_P(DamagedFile, IsRefusedAndThePluginHearsNothing) {
  const Damage& d = GetParam();
  Loaded effect(d.plugin);
  ASSERT_EQ(effect.hr, S_OK);
  Bytes file = Save(effect.effect, d.bank);
  d.apply(file);
  PluginRecord record(d.plugin);
  record.Clear();
  EXPECT_EQ(Load(effect.effect, file, d.bank), d.expected);
  EXPECT_EQ(record.Lines(), std::vector<std::string>{});
}

INSTANTIATE_TEST_SUITE_P(Refusals, DamagedFile, ::testing::ValuesIn(kDamages),
                         [](const ::testing::TestParamInfo<Damage>& info) { return std::string(info.param.name); });

TEST(PresetRefusal, EveryCutOrFailingReadOfAValidFileIsRefusedUntouched) {
  for (const char* plugin : {"zqgain", "zqchunk"}) {
    Loaded effect(plugin);
    ASSERT_EQ(effect.hr, S_OK);
    const Bytes file = Save(effect.effect, false);
    PluginRecord record(plugin);
    record.Clear();
    for (size_t cut = 0; cut < file.size(); ++cut) {
      EXPECT_EQ(Load(effect.effect, Bytes(file.begin(), file.begin() + static_cast<ptrdiff_t>(cut)), false),
                E_UNEXPECTED)
          << plugin << " cut at " << cut;
      EXPECT_EQ(LoadFailing(effect.effect, file, cut, false), STG_E_READFAULT) << plugin << " failing at " << cut;
    }
    EXPECT_EQ(record.Lines(), std::vector<std::string>{}) << plugin;
  }
}

TEST(PresetRefusal, NoStreamAndAFullStream) {
  Loaded gain("zqgain");
  ASSERT_EQ(gain.hr, S_OK);
  EXPECT_EQ(gain->LoadPreset(nullptr), E_INVALIDARG);
  EXPECT_EQ(gain->LoadBank(nullptr, 0), E_INVALIDARG);
  EXPECT_EQ(gain->SaveBank(nullptr, nullptr), E_INVALIDARG) << "a parameter bank is sized by writing it";
  // A stream too small for the bank: the save fails and the program stays.
  ASSERT_EQ(gain->SetProgram(3), S_OK);
  Bytes room(200);
  IStream* stream = nullptr;
  ASSERT_EQ(ZqCreateStreamFromMemory(room.data(), 200, 0, &stream, FALSE), S_OK);
  ULONG size = 0;
  EXPECT_EQ(gain->SaveBank(stream, &size), STG_E_MEDIUMFULL);
  stream->Release();
  LONG current = -1;
  gain->GetProgram(&current);
  EXPECT_EQ(current, 3);
}

TEST(PresetRefusal, ABankWithMoreProgramsStopsAtTheFirstExtraOne) {
  Loaded gain("zqgain");
  ASSERT_EQ(gain.hr, S_OK);
  ASSERT_EQ(gain->SetProgram(3), S_OK);
  Detune(gain.effect, 0.3f);
  const std::vector<float> last = Parameters(gain.effect);
  Bytes fxb = Save(gain.effect, true);
  const Bytes extra(fxb.end() - 72, fxb.end());
  fxb.insert(fxb.end(), extra.begin(), extra.end());
  PutBe(fxb, 24, 5);
  PutBe(fxb, 4, static_cast<uint32_t>(fxb.size() - 8));

  Loaded fresh("zqgain");
  EXPECT_EQ(Load(fresh.effect, fxb, true), E_INVALIDARG);
  LONG current = -1;
  fresh->GetProgram(&current);
  EXPECT_EQ(current, 3) << "the programs read so far stay";
  EXPECT_EQ(Parameters(fresh.effect), last);
}

// Plug-ins installed from the distribution.
constexpr const char* kDragonfly = "/usr/lib/lxvst/DragonflyRoomReverb-vst.so";
constexpr const char* kLsp = "/usr/lib/vst/lsp-plugins/comp-delay-stereo.so";

void ExpectNear(const std::vector<float>& got, const std::vector<float>& want) {
  ASSERT_EQ(got.size(), want.size());
  for (size_t i = 0; i < got.size(); ++i) EXPECT_NEAR(got[i], want[i], 1e-3) << "parameter " << i;
}

// Its state travels as text in its chunk; the program and the bank each come
// back into a fresh instance.
TEST(InstalledPluginPresets, TextChunkRoundTrips) {
  if (!std::filesystem::exists(kDragonfly)) GTEST_SKIP() << kDragonfly << " is absent (dragonfly-reverb-vst)";
  LeakCheckPause pause;
  Bytes fxp, fxb;
  std::vector<float> values;
  {
    Loaded plugin(ZqUtf8ToUtf16(kDragonfly), 0);
    ASSERT_EQ(plugin.hr, S_OK);
    ASSERT_TRUE(plugin->Effect()->flags & effFlagsProgramChunks);
    const std::vector<float> defaults = Parameters(plugin.effect);
    ASSERT_GE(defaults.size(), 3u);
    for (int i = 0; i < 3; ++i) plugin->SetParameter(i, defaults[static_cast<size_t>(i)] > 0.5f ? 0.2f : 0.8f);
    values = Parameters(plugin.effect);
    fxp = Save(plugin.effect, false);
    fxb = Save(plugin.effect, true);
    ASSERT_GT(fxp.size(), 60u);
    EXPECT_EQ(Text(fxp, 8, 4), "FPCh");
    EXPECT_EQ(Be(fxp, 56), fxp.size() - 60);
    EXPECT_EQ(Text(fxb, 8, 4), "FBCh");
  }
  for (bool bank : {false, true}) {
    Loaded fresh(ZqUtf8ToUtf16(kDragonfly), 0);
    ASSERT_EQ(fresh.hr, S_OK);
    EXPECT_TRUE(SUCCEEDED(Load(fresh.effect, bank ? fxb : fxp, bank))) << (bank ? "bank" : "program");
    ExpectNear(Parameters(fresh.effect), values);
  }
}

// Its chunk is a whole preset record of its own, but it has no programs: the
// four operations have nothing to do and touch no stream.
TEST(InstalledPluginPresets, PluginWithoutProgramsAnswersSFalseAndTouchesNoStream) {
  if (!std::filesystem::exists(kLsp)) GTEST_SKIP() << kLsp << " is absent (lsp-plugins-vst)";
  LeakCheckPause pause;
  Loaded plugin(ZqUtf8ToUtf16(kLsp), 0);
  ASSERT_EQ(plugin.hr, S_OK);
  ASSERT_EQ(plugin->Effect()->numPrograms, 0);
  auto* untouchable = new (std::nothrow) FailingStream({}, 0);  // any read fails
  ULONG size = 5;
  EXPECT_EQ(plugin->SavePreset(untouchable, &size), S_FALSE);
  EXPECT_EQ(size, 0u);
  EXPECT_EQ(plugin->SaveBank(untouchable, &size), S_FALSE);
  EXPECT_EQ(plugin->LoadPreset(untouchable), S_FALSE);
  EXPECT_EQ(plugin->LoadBank(untouchable, 0), S_FALSE);
  untouchable->Release();
}

}  // namespace
