// The companion server through the factory, as the filter and the mapper
// use it: the real server program of this build and the plug-ins we build.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "aplugins/zqvstwrap/host/zqvsteffect.h"
#include "aplugins/zqvstwrap/host/zqvstfactory_effect.h"
#include "aplugins/zqvstwrap/host/zqvstremote.h"
#include "kernel/com/object.h"
#include "kernel/containers/streams.h"
#include "platform/environment.h"
#include "platform/message.h"
#include "platform/process.h"
#include "platform/sync.h"
#include "platform/text.h"
#include "platform/thread.h"

namespace {

std::u16string PluginPath(const char* name) {
  return ZqUtf8ToUtf16(std::string(ZQ_PLUGIN_DIR) + "/" + name + ".so");
}

// A factory of the server, given back at the end of the scope.
struct ServerFactory {
  ZqComPtr<IZqVstEffectFactory> factory;
  DWORD pid = 0;
  LONG uses = 0;
  HRESULT hr;
  ServerFactory() {
    hr = ZqVstGetEffectFactory(FALSE, IID_IZqVstEffectFactory, factory.PutVoid(), nullptr, nullptr, &pid, &uses);
  }
  ~ServerFactory() { ZqVstReleaseEffectFactory(FALSE, factory.Detach()); }
  ZqComPtr<IZqVstEffect> Create(const char* name, HRESULT* result = nullptr) {
    ZqComPtr<IZqVstEffect> effect;
    const HRESULT made = factory->CreateEffect(PluginPath(name).c_str(), 0, IID_IZqVstEffect, effect.PutVoid());
    if (result) *result = made;
    return effect;
  }
};

// A master that counts what reaches it; `onTime` runs inside GetTime.
class TestMaster final : public ZqComObject<TestMaster, IZqVstMaster> {
 public:
  std::function<void()> onTime;
  std::atomic<int> times{0}, automations{0};
  std::atomic<DWORD> timeThread{0}, automateThread{0};
  LONG lastIndex = -1;
  float lastValue = 0;

  HRESULT STDMETHODCALLTYPE Automate(LONG index, float value) override {
    ++automations;
    automateThread = GetCurrentThreadId();
    lastIndex = index;
    lastValue = value;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetTime(VstMasterTime* time) override {
    ++times;
    timeThread = GetCurrentThreadId();
    *time = VstMasterTime{4096, 4, 4, 90, 0, 0, 0, 0, 0, 0, ZQVST_TIME_TEMPO | ZQVST_TIME_TIMESIG};
    if (onTime) onTime();
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Idle() override { return S_OK; }
  HRESULT STDMETHODCALLTYPE UpdateDisplay() override { return S_FALSE; }
  HRESULT STDMETHODCALLTYPE GetTempoAt(LONGLONG, LONG*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE SizeWindow(LONG, LONG) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE BeginEdit(LONG) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE EndEdit(LONG) override { return S_OK; }

 private:
  friend class ZqComObject<TestMaster, IZqVstMaster>;
  ~TestMaster() = default;
};

void Prepare(IZqVstEffect* effect, int channels, int frames) {
  ASSERT_GE(effect->SetSampleRate(44100.0), 0);
  ASSERT_GE(effect->SetSampleType(ZQSAMPLE_FLOAT32), 0);
  ASSERT_GE(effect->SetChannelCount(channels), 0);
  ASSERT_GE(effect->SetBlockSize(frames), 0);
  ASSERT_GE(effect->Resume(FALSE), 0);
}

// Blocks of a deterministic signal through `effect`; all the output bytes.
std::vector<float> Render(IZqVstEffect* effect, int channels, int frames, int blocks, bool silentSource) {
  std::vector<float> in(size_t(channels) * frames), out(in.size()), all;
  for (int b = 0; b < blocks; ++b) {
    for (size_t i = 0; i < in.size(); ++i) in[i] = float(int((size_t(b) * 7919 + i * 104729) % 2001) - 1000) / 1000.0f;
    EXPECT_EQ(effect->ProcessAudio(silentSource ? nullptr : in.data(), channels, out.data(), channels, frames, 4), S_OK);
    all.insert(all.end(), out.begin(), out.end());
  }
  return all;
}

TEST(ServerFactory, SharesOneServerCountsItsUsesAndKnowsItsClassId) {
  EXPECT_EQ(ZqVstServerClassId(0x1234).Data1, 0x3E805CC4u);
  ServerFactory first;
  ASSERT_EQ(first.hr, S_OK);
  EXPECT_NE(first.pid, GetCurrentProcessId());
  ServerFactory second;
  ASSERT_EQ(second.hr, S_OK);
  EXPECT_EQ(second.pid, first.pid) << "a running server starts nothing";
  EXPECT_EQ(second.uses, first.uses + 1);

  ZqComPtr<IZqVstEffectFactory> local;
  ASSERT_EQ(ZqVstGetEffectFactory(TRUE, IID_IZqVstEffectFactory, local.PutVoid(), nullptr, nullptr, nullptr, nullptr),
            S_OK);
  for (IZqVstEffectFactory* f : {local.Get(), first.factory.Get()}) {
    void* object = nullptr;
    EXPECT_EQ(f->CreateInstance(local.Get(), IID_IUnknown, &object), CLASS_E_NOAGGREGATION);
    WCHAR name[64];
    EXPECT_EQ(f->ProbeEffect(u"/no/such/folder/WNASPI32.DLL", 0, name, nullptr, nullptr, nullptr, 0), E_INVALIDARG);
    ZqComPtr<IZqVstEffectFactory> same;
    EXPECT_EQ(f->CreateInstance(nullptr, IID_IZqVstEffectFactory, same.PutVoid()), S_OK);
    EXPECT_TRUE(same);
  }
}

TEST(ServerFactory, AServerThatDoesNotComeUpLeavesTheLookUpsFailure) {
  SetEnvironmentVariableW(u"ZQ_SERVER_PATH", u"/no/such/folder/zqvstserver");
  ServerFactory missing;
  SetEnvironmentVariableW(u"ZQ_SERVER_PATH", nullptr);
  EXPECT_EQ(missing.hr, REGDB_E_CLASSNOTREG);
  EXPECT_FALSE(missing.factory);
}

struct Chain {
  const char* plugin;
  int channels;
  bool silentSource;
};

class ThroughTheServer : public testing::TestWithParam<Chain> {};

TEST_P(ThroughTheServer, AnswersAndOutputAreThoseInProcess) {
  const Chain& c = GetParam();
  ServerFactory server;
  ASSERT_EQ(server.hr, S_OK);
  HRESULT hr;
  ZqComPtr<IZqVstEffect> remote = server.Create(c.plugin, &hr);
  ASSERT_EQ(hr, S_OK);
  ZqComPtr<IZqVstEffect> local;
  ASSERT_EQ(ZqVstCreateEffectInProcess(PluginPath(c.plugin).c_str(), 0, IID_IZqVstEffect, local.PutVoid()), S_OK);

  WCHAR a[64], b[64];
  ASSERT_EQ(remote->GetEffectName(a, 64), local->GetEffectName(b, 64));
  EXPECT_EQ(std::u16string(a), std::u16string(b));
  std::vector<WCHAR> longBuffer(10000, u'x');
  EXPECT_EQ(remote->GetEffectName(longBuffer.data(), int(longBuffer.size())), S_OK) << "a buffer longer than any text";
  EXPECT_EQ(std::u16string(longBuffer.data()), std::u16string(b));
  VstEffectInfo ra{}, la{};
  EXPECT_EQ(remote->GetEffectInfo(&ra), local->GetEffectInfo(&la));
  EXPECT_EQ(std::memcmp(&ra, &la, sizeof ra), 0);
  if (la.numParams > 0) {
    EXPECT_EQ(remote->SetParameter(0, 0.3f), local->SetParameter(0, 0.3f));
    EXPECT_EQ(remote->GetParameterDisplay(0, a, 64), local->GetParameterDisplay(0, b, 64));
    EXPECT_EQ(std::u16string(a), std::u16string(b));
    VstParamProperties rp{}, lp{};
    EXPECT_EQ(remote->GetParameterProperties(0, &rp), local->GetParameterProperties(0, &lp));
    EXPECT_EQ(std::memcmp(&rp, &lp, sizeof rp), 0);
  }
  LONG rl = -1, ll = -2;
  EXPECT_EQ(remote->GetLatency(&rl), local->GetLatency(&ll));
  EXPECT_EQ(rl, ll);
  EXPECT_EQ(remote->GetEffectName(nullptr, 64), E_INVALIDARG) << "a null buffer stays null across";

  Prepare(remote.Get(), c.channels, 512);
  Prepare(local.Get(), c.channels, 512);
  const std::vector<float> far = Render(remote.Get(), c.channels, 512, 6, c.silentSource);
  const std::vector<float> near = Render(local.Get(), c.channels, 512, 6, c.silentSource);
  ASSERT_EQ(far.size(), near.size());
  EXPECT_EQ(std::memcmp(far.data(), near.data(), far.size() * sizeof(float)), 0) << "bit for bit";
  // A block larger than the shared block asks for a new one.
  const std::vector<float> large = Render(remote.Get(), c.channels, 20000, 1, c.silentSource);
  const std::vector<float> largeNear = Render(local.Get(), c.channels, 20000, 1, c.silentSource);
  EXPECT_EQ(std::memcmp(large.data(), largeNear.data(), large.size() * sizeof(float)), 0);
}

INSTANTIATE_TEST_SUITE_P(Plugins, ThroughTheServer,
                         testing::Values(Chain{"zqgain", 2, false}, Chain{"zqdelay", 2, false},
                                         Chain{"zqbiquad", 2, false}, Chain{"zqtest_synth", 2, true},
                                         Chain{"zqtest_6x6", 6, false}),
                         [](const auto& info) { return std::string(info.param.plugin); });

// Preset (false) or bank (true) data through a memory stream.
std::vector<uint8_t> Save(IZqVstEffect* effect, bool bank) {
  std::vector<uint8_t> data(1 << 20);
  ZqComPtr<IStream> stream;
  EXPECT_EQ(ZqCreateStreamFromMemory(data.data(), ULONG(data.size()), 0, stream.Put(), FALSE), S_OK);
  ULONG size = 0;
  EXPECT_EQ(bank ? effect->SaveBank(stream.Get(), &size) : effect->SavePreset(stream.Get(), &size), S_OK);
  data.resize(size);
  return data;
}

TEST(ThroughTheServer, PresetsAndBanksCrossBothWays) {
  ServerFactory server;
  for (const char* name : {"zqgain", "zqchunk"}) {
    for (bool bank : {false, true}) {
      SCOPED_TRACE(std::string(name) + (bank ? " bank" : " preset"));
      ZqComPtr<IZqVstEffect> remote = server.Create(name);
      ZqComPtr<IZqVstEffect> local;
      ASSERT_EQ(ZqVstCreateEffectInProcess(PluginPath(name).c_str(), 0, IID_IZqVstEffect, local.PutVoid()), S_OK);
      ASSERT_EQ(remote->SetParameter(0, 0.125f), S_OK);
      ASSERT_EQ(local->SetParameter(0, 0.125f), S_OK);
      std::vector<uint8_t> saved = Save(remote.Get(), bank);
      EXPECT_EQ(saved, Save(local.Get(), bank));
      // Loaded back into both after a change: the same answers.
      HRESULT loaded[2];
      float value[2] = {};
      for (int i = 0; i < 2; ++i) {
        IZqVstEffect* e = i ? local.Get() : remote.Get();
        ASSERT_EQ(e->SetParameter(0, 0.75f), S_OK);
        ZqComPtr<IStream> stream;
        ASSERT_EQ(ZqCreateStreamFromMemory(saved.data(), ULONG(saved.size()), ULONG(saved.size()), stream.Put(),
                                           FALSE),
                  S_OK);
        loaded[i] = bank ? e->LoadBank(stream.Get(), -1) : e->LoadPreset(stream.Get());
        EXPECT_EQ(e->GetParameter(0, &value[i]), S_OK);
      }
      EXPECT_EQ(loaded[0], loaded[1]);
      EXPECT_TRUE(SUCCEEDED(loaded[0]));
      EXPECT_EQ(value[0], value[1]);
      EXPECT_EQ(value[0], 0.125f);
    }
  }
}

TEST(ThroughTheServer, APluginAsksItsHostDuringProcessingAndIsAnsweredByTheWaitingThread) {
  ServerFactory server;
  ZqComPtr<IZqVstEffect> effect = server.Create("zqtest_prober");
  ASSERT_TRUE(effect);
  TestMaster* master = new TestMaster();
  ASSERT_EQ(effect->SetMaster(static_cast<IZqVstMaster*>(master)), S_OK);
  Prepare(effect.Get(), 2, 256);
  ASSERT_EQ(effect->SetParameter(0, 1.0f), S_OK);  // arms the probe list for the next block
  Render(effect.Get(), 2, 256, 1, false);
  EXPECT_GE(master->times.load(), 4) << "each audioMasterGetTime reached the master";
  EXPECT_EQ(master->timeThread.load(), GetCurrentThreadId());
  EXPECT_EQ(master->automations.load(), 1);
  EXPECT_EQ(master->lastIndex, 1);
  EXPECT_EQ(master->lastValue, 0.25f);
  EXPECT_TRUE(SUCCEEDED(effect->SetMaster(nullptr)));
  EXPECT_EQ(master->RefCount(), 1u) << "the server let go of the master";
  master->Release();
}

TEST(ThroughTheServer, APluginsOwnThreadReachesTheHost) {
  ServerFactory server;
  ZqComPtr<IZqVstEffect> effect = server.Create("zqtest_ownthread");
  ASSERT_TRUE(effect);
  TestMaster* master = new TestMaster();
  ASSERT_EQ(effect->SetMaster(static_cast<IZqVstMaster*>(master)), S_OK);
  ASSERT_EQ(effect->SetParameter(0, 0.375f), S_OK);
  EXPECT_EQ(master->automations.load(), 1);
  EXPECT_EQ(master->lastValue, 0.375f);
  EXPECT_NE(master->automateThread.load(), GetCurrentThreadId()) << "answered by the connection's own thread";
  effect->SetMaster(nullptr);
  master->Release();
}

TEST(ThroughTheServer, APluginThatFaultsOnEveryBlockKeepsTheStreamRunning) {
  ServerFactory server;
  ZqComPtr<IZqVstEffect> effect = server.Create("zqbad_process_fault");
  ASSERT_TRUE(effect);
  Prepare(effect.Get(), 2, 128);
  Render(effect.Get(), 2, 128, 20, false);  // every block S_OK
  WCHAR name[64];
  EXPECT_EQ(effect->GetEffectName(name, 64), S_OK) << "the server goes on";
}

TEST(ThroughTheServer, ManyEffectsShareOneServerWhichEndsWithTheLastOne) {
  std::vector<ZqComPtr<IZqVstEffect>> effects;
  DWORD pid;
  {
    ServerFactory server;
    pid = server.pid;
    for (const char* name : {"zqgain", "zqdelay", "zqbiquad", "zqgain"}) {
      effects.push_back(server.Create(name));
      ASSERT_TRUE(effects.back());
      Prepare(effects.back().Get(), 2, 64);
    }
  }
  for (auto& e : effects) Render(e.Get(), 2, 64, 2, false);
  while (effects.size() > 1) {
    effects.pop_back();
    EXPECT_EQ(ZqVstWaitForServerEnd(pid, 0), S_FALSE) << "an effect still holds the server";
  }
  effects.clear();
  EXPECT_EQ(ZqVstWaitForServerEnd(pid, 60000), S_OK);
}

TEST(ServerDeath, KilledDuringProcessAudioEveryCallFailsAtOnceAndANewServerServes) {
  DWORD pid;
  ZqComPtr<IZqVstEffect> effect;
  {
    ServerFactory server;
    pid = server.pid;
    effect = server.Create("zqtest_prober");
  }
  ASSERT_TRUE(effect);
  TestMaster* master = new TestMaster();
  master->onTime = [&] { ZqVstTerminateServer(pid); };
  ASSERT_EQ(effect->SetMaster(static_cast<IZqVstMaster*>(master)), S_OK);
  Prepare(effect.Get(), 2, 256);
  ASSERT_EQ(effect->SetParameter(0, 1.0f), S_OK);
  std::vector<float> in(512, 0.5f), out(512);
  EXPECT_EQ(effect->ProcessAudio(in.data(), 2, out.data(), 2, 256, 4), ZQ_E_RPC_CALL_FAILED);
  WCHAR name[64];
  EXPECT_EQ(effect->GetEffectName(name, 64), ZQ_E_RPC_CALL_FAILED);
  EXPECT_EQ(effect->ProcessAudio(in.data(), 2, out.data(), 2, 256, 4), ZQ_E_RPC_CALL_FAILED);
  EXPECT_EQ(effect->SetMaster(nullptr), ZQ_E_RPC_CALL_FAILED);
  effect.Reset();
  EXPECT_EQ(master->RefCount(), 1u) << "a dead server's references are dropped";
  master->Release();

  ServerFactory next;
  ASSERT_EQ(next.hr, S_OK);
  EXPECT_NE(next.pid, pid);
  ZqComPtr<IZqVstEffect> fresh = next.Create("zqgain");
  ASSERT_TRUE(fresh);
  Prepare(fresh.Get(), 2, 64);
  Render(fresh.Get(), 2, 64, 1, false);
}

struct ProbeCase {
  const char* plugin;
  DWORD limit;
  HRESULT status;
  const char16_t* name;  // null: not looked at
};

class Probe : public testing::TestWithParam<ProbeCase> {};

TEST_P(Probe, AnswersWithinItsLimit) {
  const ProbeCase& c = GetParam();
  ZqComPtr<IZqVstEffectFactory> factory;
  ASSERT_EQ(ZqVstGetEffectFactory(TRUE, IID_IZqVstEffectFactory, factory.PutVoid(), nullptr, nullptr, nullptr,
                                  nullptr),
            S_OK);
  WCHAR name[64], vendor[64], product[64];
  VstEffectInfo info{};
  EXPECT_EQ(factory->ProbeEffect(PluginPath(c.plugin).c_str(), 0, name, vendor, product, &info, c.limit), c.status);
  if (c.name) {
    EXPECT_EQ(std::u16string(name), std::u16string(c.name));
    EXPECT_EQ(std::u16string(vendor), *c.name ? u"Ostrand" : u"") << "a shell's container has no texts";
  }
}

INSTANTIATE_TEST_SUITE_P(
    Factory, Probe,
    testing::Values(ProbeCase{"zqgain", 0, S_OK, u"ZqGain"}, ProbeCase{"zqgain", INFINITE, S_OK, u"ZqGain"},
                    ProbeCase{"zqgain", 30000, S_OK, u"ZqGain"},
                    ProbeCase{"zqtest_shell", 30000, ZQ_S_IS_SHELL, u""},
                    ProbeCase{"zqbad_open_hang", 300, ZQ_E_CANCELLED, nullptr},
                    ProbeCase{"zqbad_open_exit", 30000, ZQ_E_EXCEPTION, nullptr}),
    [](const auto& info) {
      return std::string(info.param.plugin) + "_" + std::to_string(info.param.limit == INFINITE ? 1 : info.param.limit);
    });

TEST(ProcessChoice, IsolationAndForeignFilesGoToTheServer) {
  const LONG before = ZqVstGetEffectCount();
  ZqVstSetIsolation(TRUE);
  ZqComPtr<IZqVstEffect> effect;
  EXPECT_EQ(ZqVstCreateEffectInChosenProcess(PluginPath("zqgain").c_str(), 0, IID_IZqVstEffect, effect.PutVoid()),
            S_OK);
  EXPECT_TRUE(effect);
  EXPECT_EQ(ZqVstGetEffectCount(), before) << "the effect lives in the server";
  ZqVstSetIsolation(FALSE);
  ZqComPtr<IZqVstEffect> local;
  EXPECT_EQ(ZqVstCreateEffectInChosenProcess(PluginPath("zqgain").c_str(), 0, IID_IZqVstEffect, local.PutVoid()), S_OK);
  EXPECT_EQ(ZqVstGetEffectCount(), before + 1);
  // A text file is handed to the server, whose load says what it is.
  ZqComPtr<IZqVstEffect> text;
  EXPECT_EQ(ZqVstCreateEffectInChosenProcess(PluginPath("zqbad_not_elf").c_str(), 0, IID_IZqVstEffect,
                                             text.PutVoid()),
            HRESULT_FROM_WIN32(ERROR_BAD_EXE_FORMAT));
  EXPECT_FALSE(text);
}

TEST(KeepAlive, TheLastLockPostsQuitOnceToTheRegisteredThread) {
  ZqComPtr<IZqVstEffectFactory> factory;
  ASSERT_EQ(ZqVstGetEffectFactory(TRUE, IID_IZqVstEffectFactory, factory.PutVoid(), nullptr, nullptr, nullptr,
                                  nullptr),
            S_OK);
  MSG message;
  PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE);
  ASSERT_EQ(factory->LockServer(TRUE), S_OK);
  ASSERT_EQ(ZqVstServerRegister(GetCurrentThreadId(), nullptr, nullptr), S_OK);
  EXPECT_EQ(ZqVstServerRegister(GetCurrentThreadId(), nullptr, nullptr), S_FALSE);
  EXPECT_TRUE(ZqVstServerIsBusy());
  EXPECT_FALSE(PeekMessageW(&message, nullptr, WM_QUIT, WM_QUIT, PM_REMOVE));
  EXPECT_EQ(factory->LockServer(FALSE), S_OK);
  EXPECT_FALSE(ZqVstServerIsBusy());
  ZqVstServerCheckQuit();
  EXPECT_TRUE(PeekMessageW(&message, nullptr, WM_QUIT, WM_QUIT, PM_REMOVE));
  EXPECT_FALSE(PeekMessageW(&message, nullptr, WM_QUIT, WM_QUIT, PM_REMOVE)) << "exactly once";
  EXPECT_EQ(ZqVstServerRevoke(), S_OK);
  EXPECT_EQ(ZqVstServerRevoke(), S_FALSE);
}

// --- Messages that break the format -----------------------------------------------------

struct BrokenCase {
  const char* name;
  std::vector<uint8_t> message;
};

std::vector<uint8_t> Message(ZqRemoteHeader h, std::vector<uint8_t> body = {}) {
  const auto* bytes = reinterpret_cast<const uint8_t*>(&h);
  body.insert(body.begin(), bytes, bytes + sizeof h);
  return body;
}

constexpr ZqRemoteHeader kGood{kZqRemoteMagic, kZqRemoteVersion, kZqRemoteCall, kZqRemoteClassObject,
                               kZqRemoteFactory, kZqRemoteGetClassObject, 0, 0};

ZqRemoteHeader With(std::function<void(ZqRemoteHeader&)> change) {
  ZqRemoteHeader h = kGood;
  change(h);
  return h;
}

class BrokenMessage : public testing::TestWithParam<BrokenCase> {};

TEST_P(BrokenMessage, EndsTheConnectionAndTheServer) {
  int pair[2];
  ASSERT_TRUE(ZqCreateSocketPair(pair));
  const std::string path = ZqUtf16ToUtf8(ZqVstFindServer());
  const char* argv[] = {"zqvstserver", "-Event", "3", nullptr};
  const ZqSpawnDescriptor handed{pair[1], 3};
  HANDLE process = nullptr;
  ASSERT_TRUE(ZqSpawnProcess(path.c_str(), argv, &handed, 1, &process, nullptr));
  ZqCloseDescriptor(pair[1]);
  uint8_t buffer[256];
  ASSERT_EQ(ZqSocketReceive(pair[0], buffer, sizeof buffer, nullptr, nullptr, 30000), static_cast<long long>(sizeof(ZqRemoteHeader)));
  const std::vector<uint8_t>& m = GetParam().message;
  ASSERT_EQ(ZqSocketSend(pair[0], m.data(), m.size(), nullptr, 0), static_cast<long long>(m.size()));
  EXPECT_EQ(ZqSocketReceive(pair[0], buffer, sizeof buffer, nullptr, nullptr, 30000), 0) << "hung up, no answer";
  ASSERT_EQ(WaitForSingleObject(process, 30000), WAIT_OBJECT_0);
  DWORD code = 0;
  EXPECT_TRUE(GetExitCodeProcess(process, &code));
  EXPECT_EQ(code, 1u);
  CloseHandle(process);
  ZqCloseDescriptor(pair[0]);
}

INSTANTIATE_TEST_SUITE_P(
    Server, BrokenMessage,
    testing::Values(
        BrokenCase{"ShorterThanAHeader", {1, 2, 3}},
        BrokenCase{"WrongMagic", Message(With([](auto& h) { h.magic = 0x12345678; }))},
        BrokenCase{"OtherVersion", Message(With([](auto& h) { h.version = kZqRemoteVersion + 1; }))},
        BrokenCase{"SizeDisagrees", Message(With([](auto& h) { h.size = 4; }))},
        BrokenCase{"AReplyNobodyAskedFor", Message(With([](auto& h) { h.kind = kZqRemoteReply; }))},
        BrokenCase{"WrongInterface", Message(With([](auto& h) { h.iface = kZqRemoteEffect; }))},
        BrokenCase{"TruncatedArguments",
                   Message(With([](auto& h) {
                             h.method = 6;  // CreateEffect: path, id, IID, out flag
                             h.size = 6;
                           }),
                           {2, 0, 0, 0, 'a', 0})}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
