// zqvst info, help and version.
#include "tests/tools/zqvst/zqvst_fixture.h"

namespace {

using namespace zqvsttest;

std::string Golden(const char* name) { return ReadAll(fs::path(ZQ_TEST_SOURCE_DIR) / "golden" / name); }

// The module's folder differs from build to build.
std::string WithoutPluginDir(std::string text) {
  const std::string dir = ZQ_PLUGIN_DIR;
  for (size_t at; (at = text.find(dir)) != std::string::npos;) text.replace(at, dir.size(), "<plugins>");
  return text;
}

class ZqvstInfo : public ZqvstTest {};

TEST_F(ZqvstInfo, TextOfTheExamplesMatchesTheirGoldenFiles) {
  for (const char* name : {"zqgain", "zqdelay"}) {
    const Result r = Run({"info", "--plugin", Plugin(name)});
    EXPECT_EQ(r.exitCode, 0u) << name << ": " << r.err;
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(WithoutPluginDir(r.out), Golden((std::string(name) + ".txt").c_str())) << name;
  }
}

TEST_F(ZqvstInfo, WithoutAPluginDescribesTheBundledDelay) {
  const Result r = Run({"info"});
  EXPECT_EQ(r.exitCode, 0u) << r.err;
  EXPECT_NE(r.out.find("'ZqDl' (0x5A71446C)"), std::string::npos) << r.out;
}

TEST_F(ZqvstInfo, JsonGivesTheSameFacts) {
  const Result r = Run({"info", "--plugin", Plugin("zqgain"), "--json"});
  ASSERT_EQ(r.exitCode, 0u) << r.err;
  EXPECT_EQ(WithoutPluginDir(r.out), Golden("zqgain.json"));
}

TEST_F(ZqvstInfo, NamesWithQuotesAndControlCharactersAreEscapedInJson) {
  // The shell's sub-plug-ins carry no such names; the program's own
  // escaping is seen through a module path that needs it.
  const std::string odd = Path("odd \"name\"\\x.so");
  fs::copy_file(Plugin("zqgain"), odd);
  const Result r = Run({"info", "--plugin", odd, "--json"});
  ASSERT_EQ(r.exitCode, 0u) << r.err;
  EXPECT_NE(r.out.find("odd \\\"name\\\"\\\\x.so\""), std::string::npos) << r.out;
}

TEST_F(ZqvstInfo, HelpAndVersionAnswerEverywhere) {
  for (const auto& args : std::vector<std::vector<std::string>>{{"--help"},
                                                                {"help"},
                                                                {"help", "render"},
                                                                {"info", "--help"},
                                                                {"render", "--help"},
                                                                {"preset", "--help"},
                                                                {"preset", "save", "--help"}}) {
    const Result r = Run(args);
    EXPECT_EQ(r.exitCode, 0u) << args[0];
    EXPECT_EQ(r.out.rfind("Usage: zqvst", 0), 0u) << args[0] << ": " << r.out;
  }
  const Result version = Run({"--version"});
  EXPECT_EQ(version.exitCode, 0u);
  EXPECT_EQ(version.out.rfind("zqvst ", 0), 0u) << version.out;
}

}  // namespace
