// Every way a job fails: one line on standard error with the status in
// hexadecimal, exit status 1 (2 for a misused command line, which points to
// --help), nothing on standard output, and no output file -- an existing one
// is left as it was.
#include "platform/environment.h"
#include "tests/tools/zqvst/zqvst_fixture.h"

namespace {

using namespace zqvsttest;

struct Failure {
  Args args;
  DWORD exitCode;
  std::vector<std::string> parts;  // found in the message
  bool missingLibrary = false;     // ZQVST_LIBRARY names a library that is not there
};

class ZqvstErrors : public ZqvstTest {};

TEST_F(ZqvstErrors, EachFailureIsOneLineAndLeavesTheFilesAlone) {
  const std::vector<std::pair<const char*, const char*>> inputs = {
      {"out.wav", "precious"},
      {"text.wav", "this is no audio file at all\n"},
      {"wobbly.txt", "Gain 0 0.1 0 100 wobbly\n"},
      {"volume.txt", "Gain 0 0.1 0 100 linear\nVolume 0 0.1 0 1 jump\n"},
      {"loud.txt", "Gain 0 0.1 0 150 linear\n"},
      {"meter.txt", "0 meter 3/5\n"},
  };
  for (const auto& [name, text] : inputs) WriteAll(Path(name), text);
  WriteAll(Path("bad.fxp"), std::string("CcnK\0\0\0\x10" "FxCkdamaged", 19));
  const std::vector<std::string> files = Files();
  const std::string out = Path("out.wav");
  const auto render = [&](Args extra, const char* plugin = "zqgain") {
    extra.insert(extra.begin(), {"render", "--plugin", Plugin(plugin), "--seconds", "0.05", "--output", out});
    return extra;
  };
  const auto from = [&](const char* input) {
    return Args{"render", "--plugin", Plugin("zqgain"), "--input", Path(input), "--output", out};
  };
  const auto misuse = [&](Args args) { return Failure{std::move(args), 2, {"--help"}}; };
  const Failure cases[] = {
      {from("missing.wav"), 1, {"cannot read the input", "missing.wav", "(0x8004E007)"}},
      {from("text.wav"), 1, {"text.wav", "(0x8004E00B)"}},
      {render({}, "no_such_plugin"), 1, {"no_such_plugin.so", "(0x8007007E)"}},
      {render({}, "zqbad_not_elf"), 1, {"zqbad_not_elf.so", "(0x800700C1)"}},
      {{"info", "--plugin", Plugin("zqbad_no_entry")}, 1, {"(0x8007007F)"}},
      {{"info", "--plugin", Plugin("zqtest_shell")}, 1, {"is a shell", "(0x0004E005)"}},
      {render({}), 1, {"cannot load the library " + Path("libnone.so"), "(0x8007007E)"}, true},
      {render({"--set", "Nope=1"}), 1, {"no parameter 'Nope'", "(0x8004E00A)"}},
      {render({"--set", "9=1"}), 1, {"no parameter '9'", "(0x8004E00A)"}},
      {render({"--set", "Gain=100.5"}), 1, {"outside 0..100", "(0x80070057)"}},
      {render({"--set", "Mode=-1"}), 1, {"outside 0..3", "(0x80070057)"}},
      {{"preset", "save", "--plugin", Plugin("zqgain"), "--set", "Gain=101", "--output", Path("p.fxp")}, 1,
       {"outside 0..100"}},
      {render({"--program", "4"}), 1, {"no program 4", "(0x8004E00A)"}},
      {render({"--preset", Path("bad.fxp")}), 1, {"cannot load the preset", "bad.fxp", "(0x"}},
      {render({"--bank", Path("none.fxb")}), 1, {"cannot load the bank", "none.fxb", "(0x"}},
      {{"preset", "show", Path("bad.fxp")}, 1, {"bad.fxp"}},
      {render({"--automation", Path("wobbly.txt")}), 1, {"wobbly.txt: line 1", "(0x8004E00B)"}},
      {render({"--automation", Path("volume.txt")}), 1, {"line 2", "'Volume'", "(0x8004E00A)"}},
      {render({"--automation", Path("loud.txt")}), 1, {"line 1", "150", "(0x80070057)"}},
      {render({"--automation", Path("none.txt")}), 1, {"none.txt", "(0x8004E007)"}},
      {render({"--tempo-map", Path("meter.txt")}), 1, {"meter.txt: line 1", "(0x8004E00B)"}},
      {{"render", "--plugin", Plugin("zqgain"), "--seconds", "0.05", "--output", Path("none/out.wav")}, 1, {"none/out.wav"}},
      {{"render", "--plugin", Plugin("zqgain"), "--seconds", "0.05", "--output", Path("out.xyz")}, 1, {"out.xyz", "(0x8004E00D)"}},
      {render({"--block", "8"}), 1, {"64 bytes", "larger --block", "(0x80040207)"}},
      misuse({}),
      misuse({"frobnicate"}),
      misuse({"--frobnicate"}),
      misuse({"render", "--output", out, "--bogus"}),
      misuse({"render", "--output"}),
      misuse({"render", "--seconds", "1"}),
      misuse({"render", "--output", out, "--block", "12x"}),
      misuse({"render", "--output", out, "--block", "0"}),
      misuse({"render", "--output", out, "--seconds", "-1"}),
      misuse({"render", "--output", out, "--tempo", "fast"}),
      misuse({"render", "--output", out, "--meter", "3/5"}),
      misuse({"render", "--output", out, "--format", "s8"}),
      misuse({"render", "--output", out, "--signal", "square"}),
      misuse({"render", "--output", out, "--set", "Gain"}),
      misuse({"render", "--output", out, "--set", "Gain=loud"}),
      misuse({"render", "--output", out, "--input", Path("text.wav"), "--rate", "44100"}),
      misuse({"render", "--output", out, "--output", Path("b.wav")}),
      misuse({"info", "--json=yes"}),
      misuse({"info", "extra"}),
      misuse({"preset"}),
      misuse({"preset", "load"}),
      misuse({"preset", "save", "--output", Path("p.txt")}),
      misuse({"preset", "show"}),
  };
  for (const Failure& c : cases) {
    std::string line;
    for (const auto& a : c.args) line += a + " ";
    SCOPED_TRACE(line);
    // The child inherits the variable.
    if (c.missingLibrary) SetEnvironmentVariableW(u"ZQVST_LIBRARY", ZqUtf8ToUtf16(Path("libnone.so")).c_str());
    const Result r = Run(c.args);
    if (c.missingLibrary) SetEnvironmentVariableW(u"ZQVST_LIBRARY", nullptr);
    EXPECT_EQ(r.exitCode, c.exitCode) << r.err;
    EXPECT_EQ(r.err.rfind("zqvst: ", 0), 0u) << r.err;
    if (c.exitCode == 1) {
      EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
    }
    for (const auto& part : c.parts) EXPECT_NE(r.err.find(part), std::string::npos) << "'" << part << "' in " << r.err;
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(Files(), files);
    EXPECT_EQ(ReadAll(out), "precious");
  }
}

}  // namespace
