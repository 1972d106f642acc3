// zqvst's catalogue commands run as a user would: scan, list, folders,
// enable, disable, and plug-ins named by what the catalogue knows.  Each
// test has a settings store and search folder of its own, filled with
// copies of the test plug-ins.
#include <signal.h>

#include "tests/tools/zqvst/zqvst_fixture.h"

namespace zqvsttest {
namespace {

class CatalogTest : public ZqvstTest {
 protected:
  void SetUp() override {
    for (const auto& [variable, leaf] : kOwnFolders) {
      WCHAR old[4096] = {};
      const DWORD n = GetEnvironmentVariableW(variable, old, 4096);
      saved_.emplace_back(variable, n > 0 && n < 4096 ? std::u16string(old) : std::u16string());
      fs::create_directories(dir_ / "home" / leaf);
      SetEnvironmentVariableW(variable, ZqUtf8ToUtf16((dir_ / "home" / leaf).string()).c_str());
    }
    vst_ = dir_ / "home" / "vst";
    for (const char* module : {"zqgain", "zqtest_synth", "zqtest_shell", "zqbad_no_entry", "zqbad_not_elf"})
      fs::copy_file(Plugin(module), vst_ / (std::string(module) + ".so"));
  }
  void TearDown() override {
    for (const auto& [variable, value] : saved_) SetEnvironmentVariableW(variable, value.c_str());
  }

  Result Scan() {
    const Result r = Run({"scan"});
    EXPECT_EQ(r.exitCode, 0u) << r.err;
    return r;
  }

  static constexpr std::pair<const char16_t*, const char*> kOwnFolders[] = {
      {u"ZQ_REGISTRY_DIR", "store"}, {u"XDG_STATE_HOME", "state"}, {u"XDG_CACHE_HOME", "cache"},
      {u"VST_PATH", "vst"}};
  std::vector<std::pair<const char16_t*, std::u16string>> saved_;
  fs::path vst_;
};

// One scan of the first-start folder: what it says of each module, and how
// each shows in the lists.  A module that failed says why.
TEST_F(CatalogTest, ScanTellsEachModuleAndListShowsWhatIsOffered) {
  const Result scan = Scan();
  const struct {
    const char* name;
    const char* scanLine;  // in the scan's summary
    bool listed;           // by a plain list
    const char* state;     // in list --all
  } kModules[] = {
      {"ZqGain", "new      ZqGain", true, "enabled"},
      {"ZqShell Invert", "new      ZqShell Invert", true, "enabled"},
      // A synth in a folder entered at first start is found but not offered.
      {"ZqTestSynth", "new      ZqTestSynth", false, "disabled"},
      {"zqbad_no_entry", "zqbad_no_entry.so: no VST entry point", false, "failed"},
      {"zqbad_not_elf", "zqbad_not_elf.so: not a loadable module", false, "failed"},
  };
  const Result list = Run({"list"});
  const Result all = Run({"list", "--all"});
  const Result json = Run({"list", "--json"});
  ASSERT_EQ(list.exitCode + all.exitCode + json.exitCode, 0u) << list.err << all.err << json.err;
  for (const auto& m : kModules) {
    SCOPED_TRACE(m.name);
    EXPECT_NE(scan.out.find(m.scanLine), std::string::npos) << scan.out;
    EXPECT_EQ(list.out.find(m.name) != std::string::npos, m.listed) << list.out;
    const size_t line = all.out.find(std::string(m.name) + " ");
    ASSERT_NE(line, std::string::npos) << all.out;
    EXPECT_NE(all.out.substr(line, all.out.find('\n', line) - line).find(m.state), std::string::npos) << all.out;
  }
  EXPECT_NE(scan.out.find("2 failed"), std::string::npos) << scan.out;
  EXPECT_NE(list.out.find("ZqGn  2/2   {"), std::string::npos) << list.out;
  EXPECT_NE(json.out.find("\"uniqueId\": \"ZqGn\""), std::string::npos) << json.out;
  EXPECT_EQ(json.out.find("zqbad"), std::string::npos) << json.out;
  // Not a terminal: one plain line per module looked at.
  EXPECT_NE(scan.err.find("zqgain.so\n"), std::string::npos) << scan.err;
  EXPECT_EQ(scan.err.find('\r'), std::string::npos);
  // Nothing changed: a second scan finds nothing new and keeps everything.
  const Result again = Run({"scan"});
  EXPECT_NE(again.out.find("0 changed, 0 failed, 0 removed"), std::string::npos) << again.out;
  EXPECT_EQ(Run({"list"}).out, list.out);
}

// Every way of naming a plug-in, through a command that opens it.
TEST_F(CatalogTest, CommandsTakePluginsByWhatTheCatalogueKnows) {
  fs::copy_file(vst_ / "zqgain.so", vst_ / "zqgain_copy.so");  // same unique id, another module
  Scan();
  const std::string json = Run({"list", "--all", "--json"}).out;
  const size_t at = json.find("\"clsid\": \"", json.find("ZqTestSynth"));
  const std::string synthClsid = json.substr(at + 10, 38);
  const std::string shell = (vst_ / "zqtest_shell.so").string();
  const struct {
    std::string plugin;
    DWORD exitCode;
    const char* text;  // in the output, or in the error when it fails
  } kCases[] = {
      {"zqtestsynth", 0, "name:        ZqTestSynth"},  // a name, case ignored, also of a disabled plug-in
      {"ZqS2", 0, "name:        ZqShell Invert"},       // a unique id of a shell's sub-plug-in
      {synthClsid, 0, "name:        ZqTestSynth"},
      {(vst_ / "zqgain.so").string(), 0, "name:        ZqGain"},
      {shell + ":ZqS1", 0, "name:        ZqShell Gain"},
      {shell + ":zqshell invert", 0, "name:        ZqShell Invert"},
      {shell, 1, "is a shell of several plug-ins; name one as"},
      {shell + ":ZqS9", 1, "has no sub-plug-in 'ZqS9'"},
      {"ZqGn", 2, "'ZqGn' names 2 plug-ins"},
      {"no such plug-in", 1, "no plug-in 'no such plug-in' in the catalogue"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.plugin);
    const Result r = Run({"info", "--plugin", c.plugin});
    EXPECT_EQ(r.exitCode, c.exitCode) << r.err;
    EXPECT_NE((c.exitCode ? r.err : r.out).find(c.text), std::string::npos) << r.out << r.err;
  }
}

// Folders and the offered set change as told, and a command refused
// changes nothing.
TEST_F(CatalogTest, FoldersAndEnablingChangeTheCatalogueOrNothing) {
  Scan();
  const fs::path more = dir_ / "more";
  fs::create_directories(more);
  fs::copy_file(Plugin("zqtest_latency"), more / "zqtest_latency.so");
  const std::string listed = Run({"list"}).out;
  const struct {
    Args args;
    DWORD exitCode;
    bool latencyListed;  // afterwards
    bool gainListed;
  } kSteps[] = {
      {{"folders", "add", (dir_ / "missing").string()}, 1, false, true},
      {{"folders", "add", more.string()}, 0, true, true},
      {{"disable", "ZqGain", "nothing by this name"}, 1, true, true},  // a bad name stores nothing
      {{"disable", "zqgain"}, 0, true, false},
      {{"folders", "remove", more.string()}, 0, false, false},
      {{"folders", "remove", more.string()}, 1, false, false},
      {{"enable", "ZqGn"}, 0, false, true},
      {{"enable"}, 2, false, true},
      {{"folders", "frob"}, 2, false, true},
  };
  for (const auto& step : kSteps) {
    SCOPED_TRACE(step.args[0] + " " + (step.args.size() > 1 ? step.args[1] : ""));
    const Result r = Run(step.args);
    EXPECT_EQ(r.exitCode, step.exitCode) << r.err;
    if (step.exitCode) {
      EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), step.exitCode == 2 ? 2 : 1) << r.err;
    }
    const std::string list = Run({"list"}).out;
    EXPECT_EQ(list.find("ZqTest Latency") != std::string::npos, step.latencyListed) << list;
    EXPECT_EQ(list.find("ZqGain") != std::string::npos, step.gainListed) << list;
  }
  EXPECT_EQ(Run({"list"}).out, listed);
  EXPECT_EQ(Run({"folders"}).out, vst_.string() + "/\n");
}

// What cannot be done is one line and exit status 1.
TEST_F(CatalogTest, NothingToWorkWithIsOneLine) {
  fs::path file = dir_ / "a file";
  WriteAll(file, "x");
  const struct {
    const char* variable;
    std::string value;
    Args args;
    const char* error;
  } kCases[] = {
      {"VST_PATH", "/nonexistent", {"scan"}, "no folders to scan"},
      {"VST_PATH", "/nonexistent", {"list"}, "the catalogue is empty"},
      {"ZQ_REGISTRY_DIR", (file / "store").string(), {"scan"}, "cannot open the plug-in catalogue"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.error);
    SetEnvironmentVariableW(ZqUtf8ToUtf16(c.variable).c_str(), ZqUtf8ToUtf16(c.value).c_str());
    const Result r = Run(c.args);
    EXPECT_EQ(r.exitCode, 1u);
    EXPECT_NE(r.err.find(c.error), std::string::npos) << r.err;
    EXPECT_TRUE(r.out.empty()) << r.out;
  }
}

// Ctrl-C while a module hangs ends the scan once that module's time is up,
// keeps what was found and says so.
TEST_F(CatalogTest, InterruptCancelsTheScanAndKeepsWhatWasFound) {
  fs::copy_file(Plugin("zqbad_entry_hang"), vst_ / "zqbad_entry_hang.so");
  const std::string errPath = Path("scan.err");
  HANDLE err = CreateFileW(ZqUtf8ToUtf16(errPath).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
  const ZqSpawnDescriptor descriptors[] = {{ZqGetFileDescriptor(err), 2}};
  const std::string program = std::string(ZQ_BINARY_DIR) + "/bin/zqvst";
  const char* argv[] = {"zqvst", "scan", "--time-limit", "0.5", nullptr};
  HANDLE process = nullptr;
  ASSERT_TRUE(ZqSpawnProcess(program.c_str(), argv, descriptors, 1, &process, nullptr));
  CloseHandle(err);
  // Until the hanging module is being looked at (or the scan is over).
  while (ReadAll(errPath).find("zqbad_entry_hang.so") == std::string::npos &&
         WaitForSingleObject(process, 10) == WAIT_TIMEOUT) {
  }
  kill(pid_t(GetProcessId(process)), SIGINT);
  ASSERT_EQ(WaitForSingleObject(process, kRunLimitMs), WAIT_OBJECT_0);
  DWORD code = 0;
  GetExitCodeProcess(process, &code);
  CloseHandle(process);
  EXPECT_EQ(code, 1u);
  EXPECT_NE(ReadAll(errPath).find("the scan was cancelled; what it found is kept"), std::string::npos)
      << ReadAll(errPath);
  EXPECT_EQ(Run({"list", "--all"}).exitCode, 0u);
}

}  // namespace
}  // namespace zqvsttest
