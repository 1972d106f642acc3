// Every way a job fails: one line on standard error with the status in
// hexadecimal, exit status 1 (2 for a misused command line), and no output
// file -- an existing one is left as it was.
#include "platform/environment.h"
#include "tests/tools/zqvst/zqvst_fixture.h"

namespace {

using namespace zqvsttest;

class ZqvstErrors : public ZqvstTest {
 protected:
  // Runs a job that must fail; checks the exit status, the one line and
  // that only `keep` remains in the folder.
  void ExpectFailure(const std::vector<std::string>& args, DWORD exitCode, const std::vector<std::string>& parts,
                     const std::vector<std::string>& keep = {}) {
    const Result r = Run(args);
    EXPECT_EQ(r.exitCode, exitCode) << r.err;
    EXPECT_EQ(r.err.rfind("zqvst: ", 0), 0u) << r.err;
    if (exitCode == 1) {
      EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
    }
    for (const auto& part : parts) EXPECT_NE(r.err.find(part), std::string::npos) << "'" << part << "' in " << r.err;
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(Files(), keep);
  }
  std::vector<std::string> Render(std::vector<std::string> extra, const char* plugin = "zqgain") {
    std::vector<std::string> args = {"render", "--plugin", Plugin(plugin), "--seconds", "0.05", "--output",
                                     Path("out.wav")};
    args.insert(args.end(), extra.begin(), extra.end());
    return args;
  }
};

TEST_F(ZqvstErrors, InputThatIsMissingOrNoAudio) {
  const auto withInput = [&](const char* name) {
    return std::vector<std::string>{"render", "--plugin", Plugin("zqgain"), "--input", Path(name), "--output",
                                    Path("out.wav")};
  };
  ExpectFailure(withInput("missing.wav"), 1, {"cannot read the input", "missing.wav", "(0x8004E007)"});
  WriteAll(Path("text.wav"), "this is no audio file at all\n");
  ExpectFailure(withInput("text.wav"), 1, {"text.wav", "(0x8004E00B)"}, {"text.wav"});
}

TEST_F(ZqvstErrors, PlugInThatIsMissingOrNoModule) {
  ExpectFailure(Render({}, "no_such_plugin"), 1, {"no_such_plugin.so", "(0x8007007E)"});
  ExpectFailure(Render({}, "zqbad_not_elf"), 1, {"zqbad_not_elf.so", "(0x800700C1)"});
  ExpectFailure({"info", "--plugin", Plugin("zqbad_no_entry")}, 1, {"(0x8007007F)"});
  ExpectFailure({"info", "--plugin", Plugin("zqtest_shell")}, 1, {"is a shell", "(0x0004E005)"});
}

TEST_F(ZqvstErrors, ParameterThatIsUnknownOrOutOfRange) {
  ExpectFailure(Render({"--set", "Nope=1"}), 1, {"no parameter 'Nope'", "(0x8004E00A)"});
  ExpectFailure(Render({"--set", "9=1"}), 1, {"no parameter '9'", "(0x8004E00A)"});
  ExpectFailure(Render({"--set", "Gain=100.5"}), 1, {"outside 0..100", "(0x80070057)"});
  ExpectFailure(Render({"--set", "Mode=-1"}), 1, {"outside 0..3", "(0x80070057)"});
  ExpectFailure({"preset", "save", "--plugin", Plugin("zqgain"), "--set", "Gain=101", "--output", Path("p.fxp")}, 1,
                {"outside 0..100"});
  ExpectFailure(Render({"--program", "4"}), 1, {"no program 4", "(0x8004E00A)"});
}

TEST_F(ZqvstErrors, PresetOrBankThatIsDamagedOrMissing) {
  WriteAll(Path("bad.fxp"), std::string("CcnK\0\0\0\x10" "FxCkdamaged", 19));
  ExpectFailure(Render({"--preset", Path("bad.fxp")}), 1, {"cannot load the preset", "bad.fxp", "(0x"}, {"bad.fxp"});
  ExpectFailure(Render({"--bank", Path("none.fxb")}), 1, {"cannot load the bank", "(0x"}, {"bad.fxp"});
  ExpectFailure({"preset", "show", Path("bad.fxp")}, 1, {"bad.fxp"}, {"bad.fxp"});
}

TEST_F(ZqvstErrors, AutomationOrTempoMapThatDoesNotFit) {
  WriteAll(Path("a.txt"), "Gain 0 0.1 0 100 wobbly\n");
  ExpectFailure(Render({"--automation", Path("a.txt")}), 1, {"a.txt: line 1", "(0x8004E00B)"}, {"a.txt"});
  WriteAll(Path("a.txt"), "Gain 0 0.1 0 100 linear\nVolume 0 0.1 0 1 jump\n");
  ExpectFailure(Render({"--automation", Path("a.txt")}), 1, {"line 2", "'Volume'", "(0x8004E00A)"}, {"a.txt"});
  WriteAll(Path("a.txt"), "Gain 0 0.1 0 150 linear\n");
  ExpectFailure(Render({"--automation", Path("a.txt")}), 1, {"line 1", "150", "(0x80070057)"}, {"a.txt"});
  ExpectFailure(Render({"--automation", Path("none.txt")}), 1, {"none.txt"}, {"a.txt"});
  WriteAll(Path("t.txt"), "0 meter 3/5\n");
  ExpectFailure(Render({"--tempo-map", Path("t.txt")}), 1, {"t.txt: line 1"}, {"a.txt", "t.txt"});
}

TEST_F(ZqvstErrors, AFailedJobLeavesAnExistingOutputAlone) {
  WriteAll(Path("out.wav"), "precious");
  ExpectFailure(Render({"--set", "Gain=1000"}), 1, {"outside"}, {"out.wav"});
  EXPECT_EQ(ReadAll(Path("out.wav")), "precious");
}

TEST_F(ZqvstErrors, OutputThatCannotBeWritten) {
  ExpectFailure({"render", "--plugin", Plugin("zqgain"), "--seconds", "0.05", "--output", Path("none/out.wav")}, 1,
                {"none/out.wav"});
  ExpectFailure({"render", "--plugin", Plugin("zqgain"), "--seconds", "0.05", "--output", Path("out.xyz")}, 1,
                {"out.xyz", "(0x8004E00D)"});
}

TEST_F(ZqvstErrors, SamplesTooSmallForTheFilterAreExplained) {
  ExpectFailure(Render({"--block", "8"}), 1, {"64 bytes", "larger --block", "(0x80040207)"});
}

TEST_F(ZqvstErrors, ALibraryThatCannotBeLoaded) {
  // The child inherits the variable; the library named there is missing.
  ASSERT_TRUE(SetEnvironmentVariableW(u"ZQVST_LIBRARY", ZqUtf8ToUtf16(Path("libnone.so")).c_str()));
  const Result r = Run(Render({}));
  SetEnvironmentVariableW(u"ZQVST_LIBRARY", nullptr);
  EXPECT_EQ(r.exitCode, 1u);
  EXPECT_NE(r.err.find("cannot load the library " + Path("libnone.so")), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("(0x8007007E)"), std::string::npos) << r.err;
  EXPECT_EQ(Files(), std::vector<std::string>{});
}

TEST_F(ZqvstErrors, MisusedCommandLinesExitWithTwo) {
  const std::vector<std::vector<std::string>> misuses = {
      {},
      {"frobnicate"},
      {"--frobnicate"},
      {"render", "--output", Path("out.wav"), "--bogus"},
      {"render", "--output"},
      {"render", "--seconds", "1"},
      {"render", "--output", Path("out.wav"), "--block", "12x"},
      {"render", "--output", Path("out.wav"), "--block", "0"},
      {"render", "--output", Path("out.wav"), "--seconds", "-1"},
      {"render", "--output", Path("out.wav"), "--tempo", "fast"},
      {"render", "--output", Path("out.wav"), "--meter", "3/5"},
      {"render", "--output", Path("out.wav"), "--format", "s8"},
      {"render", "--output", Path("out.wav"), "--signal", "square"},
      {"render", "--output", Path("out.wav"), "--set", "Gain"},
      {"render", "--output", Path("out.wav"), "--set", "Gain=loud"},
      {"render", "--output", Path("out.wav"), "--input", Path("in.wav"), "--rate", "44100"},
      {"render", "--output", Path("out.wav"), "--output", Path("b.wav")},
      {"info", "--json=yes"},
      {"info", "extra"},
      {"preset"},
      {"preset", "load"},
      {"preset", "save", "--output", Path("p.txt")},
      {"preset", "show"},
  };
  for (const auto& args : misuses) {
    const Result r = Run(args);
    std::string line;
    for (const auto& a : args) line += a + " ";
    EXPECT_EQ(r.exitCode, 2u) << line << "\n" << r.err;
    EXPECT_EQ(r.err.rfind("zqvst: ", 0), 0u) << line << "\n" << r.err;
    EXPECT_NE(r.err.find("--help"), std::string::npos) << line << "\n" << r.err;
  }
  EXPECT_EQ(Files(), std::vector<std::string>{});
}

}  // namespace
