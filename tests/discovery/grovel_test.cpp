#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "aplugins/zqvstwrap/discovery/zqvstgrovel.h"
#include "aplugins/zqvstwrap/discovery/zqvstmapper.h"
#include "aplugins/zqvstwrap/discovery/zqvstprobeserver.h"
#include "kernel/com/object.h"
#include "platform/process.h"
#include "platform/sync.h"
#include "platform/thread.h"
#include "kernel/com/taskmem.h"
#include "platform/text.h"

namespace fs = std::filesystem;

namespace {

constexpr DWORD kVersion = 0x01020000;
constexpr DWORD kLimitMs = 2000;

class Progress final : public ZqComObject<Progress, IZqProgress> {
 public:
  // Stops at the question after `questions` questions, or after `texts` lines.
  Progress(int questions, int texts) : m_questions(questions), m_texts(texts) {}
  HRESULT STDMETHODCALLTYPE Begin(const WCHAR*, DWORD, DWORD) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE SetText(const WCHAR*) override {
    --m_texts;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE SetProgress(DWORD, DWORD) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE SetCount(DWORD, DWORD) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE IsCancelled() override {
    return m_questions-- == 0 || m_texts == 0 ? ZQ_E_CANCELLED : S_OK;
  }
  HRESULT STDMETHODCALLTYPE End(HRESULT) override { return S_OK; }

 private:
  int m_questions;
  int m_texts;
};

fs::path NewFolder(const char* name) {
  const fs::path folder = fs::path(std::getenv("ZQ_TEST_SETTINGS_ROOT")) / name;
  fs::create_directories(folder);
  return folder;
}

void Copy(const std::string& plugin, const fs::path& to) {
  fs::copy_file(fs::path(ZQ_PLUGIN_DIR) / plugin, to, fs::copy_options::overwrite_existing);
}

// A folder of every misbehaving module, the examples and the shell.
fs::path Zoo() {
  const fs::path folder = NewFolder("zoo");
  for (const auto& entry : fs::directory_iterator(ZQ_PLUGIN_DIR)) {
    const std::string name = entry.path().filename().string();
    if (entry.path().extension() == ".so") Copy(name, folder / name);
  }
  fs::copy_file(fs::path(ZQ_TEST_SOURCE_DIR) / "../../plugins/test/zqbad_not_elf.txt", folder / "zqbad_not_elf.so",
                fs::copy_options::overwrite_existing);
  return folder;
}

ZqComPtr<IVstFilterMapper> NewMapper(const fs::path& folder, DWORD flags = 7) {
  ZqComPtr<IVstFilterMapper> mapper;
  EXPECT_EQ(ZqVstCreateFilterMapper(nullptr, IID_IVstFilterMapper, mapper.PutVoid()), S_OK);
  EXPECT_EQ(mapper->Init(u"GrovelTest", u"Grovel Test", kVersion, nullptr), S_OK);
  ZqComPtr<IZqVstWrapPrefs> prefs;
  mapper->QueryInterface(IID_IZqVstWrapPrefs, prefs.PutVoid());
  // The machine's own plug-in folders are no business of these tests.
  if (!folder.empty()) {
    prefs->ClearSearchPaths();
    EXPECT_EQ(prefs->SetSearchPath(0, ZqUtf8ToUtf16(folder.string()).c_str(), flags), S_OK);
  }
  return mapper;
}

HRESULT Scan(IVstFilterMapper* mapper, DWORD flags = 0, int questions = -1, int texts = -1) {
  Progress* progress = new Progress(questions, texts);
  const HRESULT hr = mapper->Grovel(nullptr, flags, progress, kLimitMs, nullptr);
  progress->Release();
  return hr;
}

const VstMapping* Find(IVstFilterMapper* mapper, const fs::path& file, int nth = 0) {
  ZqComPtr<IZqVstWrapPrefs> prefs;
  mapper->QueryInterface(IID_IZqVstWrapPrefs, prefs.PutVoid());
  VstMapping* m = nullptr;
  const std::u16string path = ZqUtf8ToUtf16(file.string());
  for (INT i = 0; prefs->GetMapping(i, &m) == S_OK; ++i)
    if (path == m->Path && nth-- == 0) return m;
  return nullptr;
}

std::string Log() {
  const fs::path log = fs::path(std::getenv("XDG_STATE_HOME")) / "Ostrand/GrovelTest/1.2/vst_grovel.log";
  std::ifstream in(log);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// Runs this test binary's child case with the scan of `folder`.
HANDLE StartChild(const fs::path& folder) {
  setenv("ZQTEST_GROVEL_FOLDER", folder.c_str(), 1);
  const std::string self = ZqUtf16ToUtf8(ZqGetExecutablePath());
  const char* const argv[] = {"grovel_child", "--gtest_filter=GrovelChild.Scan", nullptr};
  HANDLE process = nullptr;
  EXPECT_TRUE(ZqSpawnProcess(self.c_str(), argv, nullptr, 0, &process, nullptr));
  unsetenv("ZQTEST_GROVEL_FOLDER");
  return process;
}

// What the scan must leave for each kind of module.
struct Expected {
  const char* file;
  DWORD flagsSet;
  DWORD flagsClear;
};
constexpr Expected kZoo[] = {
    {"zqgain.so", VMF_ENABLED | VMF_EFFECT, VMF_FAILED},
    {"zqtest_synth.so", VMF_ENABLED | VMF_SYNTH, VMF_FAILED},
    {"zqbad_entry_fault.so", VMF_FAILED, VMF_ENABLED},
    {"zqbad_entry_hang.so", VMF_FAILED, VMF_ENABLED},   // killed at the limit
    {"zqbad_open_exit.so", VMF_FAILED, VMF_ENABLED},    // ended the probe server
    {"zqbad_open_hang.so", VMF_FAILED, VMF_ENABLED},
    {"zqbad_no_entry.so", VMF_NO_ENTRY, VMF_ENABLED},
    {"zqbad_not_elf.so", VMF_BAD_IMAGE, VMF_ENABLED},
    {"zqbad_missing_dep.so", 0, VMF_ENABLED},
    {"zqtest_shell.so", VMF_SHELL_ITEM | VMF_ENABLED, 0},
};

}  // namespace

// Not a test of its own: the scan a parent test starts in a child process.
TEST(GrovelChild, Scan) {
  const char* folder = std::getenv("ZQTEST_GROVEL_FOLDER");
  if (!folder) GTEST_SKIP();
  ZqComPtr<IVstFilterMapper> mapper = NewMapper(folder);
  EXPECT_EQ(Scan(mapper.Get(), GROVEL_FORCE), S_OK);
}

TEST(Grovel, EveryModuleOfTheZooGetsAnEntryAndTheHostLives) {
  const fs::path zoo = Zoo();
  ZqComPtr<IVstFilterMapper> mapper = NewMapper(zoo);
  ASSERT_EQ(Scan(mapper.Get()), S_OK);
  for (const auto& entry : fs::directory_iterator(zoo)) {
    SCOPED_TRACE(entry.path().string());
    EXPECT_NE(Find(mapper.Get(), entry.path()), nullptr);
  }
  for (const Expected& e : kZoo) {
    SCOPED_TRACE(e.file);
    const VstMapping* m = Find(mapper.Get(), zoo / e.file);
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(m->Flags & e.flagsSet, e.flagsSet);
    EXPECT_EQ(m->Flags & e.flagsClear, 0u);
  }
  const std::string log = Log();
  EXPECT_NE(log.find("Grovel failed unexpectedly (hr = 0x800106ba)"), std::string::npos);
  EXPECT_NE(log.find("**** Grovel completed with no critical errors ****"), std::string::npos);

  // The next start finds everything stored and loads nothing.
  const LONG loads = ZqVstProbeServer::RequestCount();
  ZqComPtr<IVstFilterMapper> again = NewMapper(zoo);
  ZqComPtr<IEnumVstFilters> filters;
  Progress progress(-1, -1);
  ASSERT_EQ(again->Grovel(filters.Put(), 0, &progress, kLimitMs, nullptr), S_OK);
  EXPECT_EQ(ZqVstProbeServer::RequestCount(), loads);
  ULONG offered = 0;
  HRESULT hr = S_OK;
  while (hr == S_OK) {
    VstFilterInfo* info[64] = {};
    ULONG fetched = 0;
    hr = filters->Next(64, info, &fetched);
    offered += fetched;
    for (ULONG i = 0; i < fetched; ++i) CoTaskMemFree(info[i]);
  }
  EXPECT_EQ(hr, S_FALSE);
  EXPECT_GT(offered, 3u);
}

TEST(Grovel, ShellsListEachIdOnceAndEndlessShellsAreCut) {
  const struct {
    const char* plugin;
    int items;
  } kCases[] = {{"zqtest_shell_repeat.so", 2}, {"zqtest_shell_endless.so", kZqVstMaxShellItems - 1}};
  // The round that opens the container counts as one of the items.
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.plugin);
    const fs::path folder = NewFolder(c.plugin);
    Copy(c.plugin, folder / c.plugin);
    ZqComPtr<IVstFilterMapper> mapper = NewMapper(folder);
    EXPECT_EQ(Scan(mapper.Get()), S_OK);
    int items = 0;
    while (Find(mapper.Get(), folder / c.plugin, items)) ++items;
    EXPECT_EQ(items, c.items);
  }
}

TEST(Grovel, WalkTakesCapitalExtensionsAndSkipsDottedFolders) {
  const fs::path folder = NewFolder("walk");
  fs::create_directories(folder / ".hidden");
  fs::create_directories(folder / "sub");
  Copy("zqgain.so", folder / "GAIN.SO");
  Copy("zqdelay.so", folder / ".hidden" / "zqdelay.so");
  Copy("zqdelay.so", folder / "sub" / "zqdelay.so");
  Copy("zqgain.so", folder / "zqgain.so.txt");
  // In the probe server and in this process alike (without a limit, which
  // would send the probe to the companion server).
  for (const DWORD flags : {GROVEL_RESCAN, GROVEL_RESCAN | GROVEL_IN_PROCESS}) {
    SCOPED_TRACE(flags);
    ZqComPtr<IVstFilterMapper> mapper = NewMapper(folder);
    Progress progress(-1, -1);
    ASSERT_EQ(mapper->Grovel(nullptr, flags, &progress, 0, nullptr), S_OK);
    const VstMapping* gain = Find(mapper.Get(), folder / "GAIN.SO");
    ASSERT_NE(gain, nullptr);
    EXPECT_EQ(gain->Flags & (VMF_ENABLED | VMF_EFFECT | VMF_FAILED), VMF_ENABLED | VMF_EFFECT);
    EXPECT_NE(Find(mapper.Get(), folder / "sub" / "zqdelay.so"), nullptr);
    EXPECT_EQ(Find(mapper.Get(), folder / ".hidden" / "zqdelay.so"), nullptr);
    EXPECT_EQ(Find(mapper.Get(), folder / "zqgain.so.txt"), nullptr);
  }
}

TEST(Grovel, CancelInTheFingerprintLeavesTheStoreAndInTheWalkKeepsWhatWasFound) {
  const fs::path folder = NewFolder("cancel");
  Copy("zqgain.so", folder / "a.so");
  Copy("zqdelay.so", folder / "b.so");
  ZqComPtr<IVstFilterMapper> mapper = NewMapper(folder);
  // The first question is the fingerprint of the only folder.
  EXPECT_EQ(Scan(mapper.Get(), 0, 0), S_FALSE);
  ZqComPtr<IZqVstWrapPrefs> prefs;
  mapper->QueryInterface(IID_IZqVstWrapPrefs, prefs.PutVoid());
  EXPECT_EQ(prefs->GetMappingCount(), 0);
  EXPECT_TRUE(Log().empty());
  // "Loading" and "Adding" of the first module; the next entry stops.
  EXPECT_EQ(Scan(mapper.Get(), 0, -1, 2), ZQ_E_CANCELLED);
  EXPECT_EQ(prefs->GetMappingCount(), 1);
  EXPECT_NE(Log().find("Grovel process cancelled by user"), std::string::npos);
  // The sums were stored: the next start sees no change.
  const LONG loads = ZqVstProbeServer::RequestCount();
  EXPECT_EQ(Scan(NewMapper(folder).Get()), S_OK);
  EXPECT_EQ(ZqVstProbeServer::RequestCount(), loads);
}

TEST(Grovel, FirstStartWithoutFoldersAnswersOneAndWritesNoLog) {
  setenv("VST_PATH", (fs::path(std::getenv("ZQ_TEST_SETTINGS_ROOT")) / "none").c_str(), 1);
  ZqComPtr<IVstFilterMapper> mapper = NewMapper(fs::path());
  unsetenv("VST_PATH");
  EXPECT_EQ(Scan(mapper.Get()), S_FALSE);
  EXPECT_TRUE(Log().empty());
}

TEST(Grovel, AScanKilledAtAnyMomentLeavesAStoreTheNextScanCompletes) {
  const fs::path folder = NewFolder("killed");
  for (const char* plugin : {"zqgain.so", "zqdelay.so", "zqchunk.so", "zqbiquad.so", "zqtest_shell.so"})
    Copy(plugin, folder / plugin);
  std::mt19937 random(std::random_device{}());
  HANDLE child = StartChild(folder);
  ASSERT_NE(child, nullptr);
  Sleep(std::uniform_int_distribution<DWORD>(0, 400)(random));
  TerminateProcess(child, 9);
  WaitForSingleObject(child, INFINITE);
  CloseHandle(child);
  ZqComPtr<IVstFilterMapper> mapper = NewMapper(folder);
  ASSERT_EQ(Scan(mapper.Get(), GROVEL_FORCE), S_OK);
  for (const char* plugin : {"zqgain.so", "zqdelay.so", "zqchunk.so", "zqbiquad.so", "zqtest_shell.so"})
    EXPECT_NE(Find(mapper.Get(), folder / plugin), nullptr) << plugin;
}

TEST(Grovel, TwoProcessesScanningAtOnceLeaveAConsistentStore) {
  const fs::path folder = NewFolder("twice");
  for (const char* plugin : {"zqgain.so", "zqdelay.so", "zqchunk.so", "zqtest_synth.so"})
    Copy(plugin, folder / plugin);
  HANDLE children[2] = {StartChild(folder), StartChild(folder)};
  for (HANDLE child : children) {
    ASSERT_NE(child, nullptr);
    WaitForSingleObject(child, INFINITE);
    DWORD code = 1;
    GetExitCodeProcess(child, &code);
    EXPECT_EQ(code, 0u);
    CloseHandle(child);
  }
  // Read back, nothing probed: each module once.
  const LONG loads = ZqVstProbeServer::RequestCount();
  ZqComPtr<IVstFilterMapper> mapper = NewMapper(folder);
  ASSERT_EQ(Scan(mapper.Get()), S_OK);
  EXPECT_EQ(ZqVstProbeServer::RequestCount(), loads);
  ZqComPtr<IZqVstWrapPrefs> prefs;
  mapper->QueryInterface(IID_IZqVstWrapPrefs, prefs.PutVoid());
  EXPECT_EQ(prefs->GetMappingCount(), 4);
  for (const char* plugin : {"zqgain.so", "zqdelay.so", "zqchunk.so", "zqtest_synth.so"}) {
    EXPECT_NE(Find(mapper.Get(), folder / plugin), nullptr) << plugin;
    EXPECT_EQ(Find(mapper.Get(), folder / plugin, 1), nullptr) << plugin;
  }
}
