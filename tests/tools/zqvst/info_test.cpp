// zqvst info, help and version.
#include "tests/tools/zqvst/zqvst_fixture.h"

namespace {

using namespace zqvsttest;

// The module's folder differs from build to build.
std::string WithoutPluginDir(std::string text) {
  const std::string dir = ZQ_PLUGIN_DIR;
  for (size_t at; (at = text.find(dir)) != std::string::npos;) text.replace(at, dir.size(), "<plugins>");
  return text;
}

class ZqvstInfo : public ZqvstTest {};

TEST_F(ZqvstInfo, TextAndJsonOfTheExamplesMatchTheirGoldenFiles) {
  for (const auto& [plugin, golden] : {std::pair{"zqgain", "zqgain.txt"}, {"zqdelay", "zqdelay.txt"},
                                       {"zqgain", "zqgain.json"}}) {
    Args args = {"info", "--plugin", Plugin(plugin)};
    if (fs::path(golden).extension() == ".json") args.push_back("--json");
    const Result r = Run(args);
    EXPECT_EQ(r.exitCode, 0u) << golden << ": " << r.err;
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(WithoutPluginDir(r.out), ReadAll(fs::path(ZQ_TEST_SOURCE_DIR) / "golden" / golden)) << golden;
  }
}

TEST_F(ZqvstInfo, NamesWithQuotesAndBackslashesAreEscapedInJson) {
  // The example plug-ins carry no such names; the program's own escaping is
  // seen through a module path that needs it.
  const std::string odd = Path("odd \"name\"\\x.so");
  fs::copy_file(Plugin("zqgain"), odd);
  const Result r = Run({"info", "--plugin", odd, "--json"});
  ASSERT_EQ(r.exitCode, 0u) << r.err;
  EXPECT_NE(r.out.find("odd \\\"name\\\"\\\\x.so\""), std::string::npos) << r.out;
}

// What a command answers without a plug-in named.
TEST_F(ZqvstInfo, HelpVersionAndTheBundledDelayAnswerWithoutAPlugIn) {
  const std::pair<Args, const char*> cases[] = {
      {{"--help"}, "Usage: zqvst COMMAND"},
      {{"help"}, "Usage: zqvst COMMAND"},
      {{"help", "render"}, "Usage: zqvst render"},
      {{"render", "--help"}, "Usage: zqvst render"},
      {{"info", "--help"}, "Usage: zqvst info"},
      {{"preset", "--help"}, "Usage: zqvst preset"},
      {{"preset", "save", "--help"}, "Usage: zqvst preset"},
      {{"--version"}, "zqvst "},
      {{"info"}, "'ZqDl' (0x5A71446C)"},
  };
  for (const auto& [args, start] : cases) {
    const Result r = Run(args);
    EXPECT_EQ(r.exitCode, 0u) << args[0] << ": " << r.err;
    EXPECT_NE(r.out.find(start), std::string::npos) << args[0] << ": " << r.out;
  }
}

}  // namespace
