// The host's time through a whole filter: samples are cut at tempo changes
// and a plug-in asking for the time while it processes sees its block.
#include <gmock/gmock.h>

#include <string>

#include "tempo_fixture.h"
#include "tests/filter/filter_fixture.h"

namespace {

using namespace zqtest;
using ::testing::HasSubstr;

// The prober module's own exports, kept loaded by the test.
struct Prober {
  HMODULE module = LoadLibraryW(PluginPath("zqtest_prober").c_str());
  const char* (*report)() = Get<const char* (*)()>("zqtest_prober_report");
  void (*clear)() = Get<void (*)()>("zqtest_prober_clear");
  void (*arm)() = Get<void (*)()>("zqtest_prober_arm");
  long long (*state)(int) = Get<long long (*)(int)>("zqplugin_state");

  ~Prober() {
    if (module) FreeLibrary(module);
  }
  template <class F>
  F Get(const char* name) {
    return module ? reinterpret_cast<F>(reinterpret_cast<void (*)()>(GetProcAddress(module, name))) : nullptr;
  }
  bool ok() const { return report && clear && arm && state; }
  std::string Line(const std::string& prefix) const {
    const std::string text = report();
    const size_t at = text.find(prefix);
    return at == std::string::npos ? "(no line " + prefix + ")" : text.substr(at, text.find('\n', at) - at);
  }
};

TEST(TempoFilter, ReceiveCutsAtATempoChangeAndThePluginSeesItsBlock) {
  Prober prober;
  ASSERT_TRUE(prober.ok());
  FilterChain chain(Register("zqtest_prober", FourCC("ZqPr")));
  ASSERT_EQ(chain.made, S_OK);
  const WAVEFORMATEX format = Wave(WAVE_FORMAT_PCM, 2, 48000, 16);
  chain.Feed(format, std::vector<BYTE>(1024 * format.nBlockAlign), 512);
  ASSERT_EQ(chain.ConnectAll(), S_OK);

  // Before a host connects its time the plug-in is told there is none.
  ASSERT_EQ(chain.graph->Run(), S_OK);
  prober.clear();
  prober.arm();
  const long long before = prober.state(kSlotProcessCount);
  ASSERT_EQ(chain.source->PushNext(), S_OK);
  EXPECT_EQ(prober.state(kSlotProcessCount) - before, 1) << "a sample without time runs whole";
  EXPECT_EQ(prober.Line("audioMasterGetTime 0 32512 "), "audioMasterGetTime 0 32512 -> 0");
  ASSERT_EQ(chain.graph->Stop(), S_OK);

  IMfxSoftSynth* synth = Query<IMfxSoftSynth>(chain.filter);
  ASSERT_NE(synth, nullptr);
  auto map = MakeMap(48000);
  ASSERT_EQ(map->AddTempo(4, 90.0), S_OK);  // 100 frames in at 48 kHz
  map->AddRef();
  ASSERT_EQ(synth->Connect(static_cast<IZqTempoMap*>(map.Get())), S_OK);
  ASSERT_EQ(synth->OnStart(0), S_OK);

  ASSERT_EQ(chain.graph->Run(), S_OK);  // the source starts over
  prober.clear();
  prober.arm();
  const long long first = prober.state(kSlotProcessCount);
  ASSERT_EQ(chain.source->PushNext(), S_OK);
  EXPECT_EQ(prober.state(kSlotProcessCount) - first, 2) << "cut at the tempo change";
  EXPECT_EQ(prober.state(8), 412) << "the second piece runs to the end of the sample";
  std::string time = prober.Line("audioMasterGetTime 0 32512 ");
  EXPECT_THAT(time, HasSubstr("samplePos=0 sampleRate=48000 "));
  EXPECT_THAT(time, HasSubstr("tempo=120 "));

  prober.clear();
  prober.arm();
  ASSERT_EQ(chain.source->PushNext(), S_OK);
  EXPECT_EQ(prober.state(kSlotProcessCount) - first, 3);
  time = prober.Line("audioMasterGetTime 0 32512 ");
  EXPECT_THAT(time, HasSubstr("samplePos=512 "));
  EXPECT_THAT(time, HasSubstr("tempo=90 "));
  EXPECT_EQ(prober.Line("audioMasterTempoAt "), "audioMasterTempoAt 0 0 -> 1200000");

  ASSERT_EQ(chain.graph->Stop(), S_OK);
  EXPECT_EQ(synth->Disconnect(), S_OK);
  EXPECT_EQ(map->RefCount(), 1u);
  synth->Release();
}

}  // namespace
