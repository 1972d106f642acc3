// zqvst --isolated: the command-line host, run as any user runs it, writes
// and prints the same with the plug-in in the server as in its own process.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "platform/file.h"
#include "platform/process.h"
#include "platform/sync.h"
#include "platform/text.h"
#include "tests/support/test_folder.h"

namespace {

std::string ReadFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

// A float file's PEAK chunk carries the second it was written in; two renders
// that straddle a second differ there and nowhere else.
std::string WithoutPeakTime(std::string file) {
  const size_t peak = file.find("PEAK");
  if (peak != std::string::npos && peak + 16 <= file.size()) file.replace(peak + 12, 4, 4, '\0');
  return file;
}

// Runs zqvst with `args`; its exit status, and its standard output in `*out`.
DWORD Zqvst(const std::filesystem::path& folder, std::vector<std::string> args, std::string* out) {
  const std::filesystem::path printed = folder / "stdout";
  HANDLE file = CreateFileW(ZqUtf8ToUtf16(printed.string()).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0,
                            nullptr);
  const ZqSpawnDescriptor descriptor{ZqGetFileDescriptor(file), 1};
  std::vector<const char*> argv{"zqvst"};
  for (const auto& a : args) argv.push_back(a.c_str());
  argv.push_back(nullptr);
  const std::string program = std::string(ZQ_BINARY_DIR) + "/bin/zqvst";
  HANDLE process = nullptr;
  const BOOL started = ZqSpawnProcess(program.c_str(), argv.data(), &descriptor, 1, &process, nullptr);
  CloseHandle(file);
  if (!started) return 0xFFFFFFFF;
  DWORD code = 0xFFFFFFFF;
  if (WaitForSingleObject(process, 120000) == WAIT_OBJECT_0) GetExitCodeProcess(process, &code);
  CloseHandle(process);
  *out = ReadFile(printed);
  return code;
}

TEST(ZqvstIsolated, RendersAndDescribesByteForByteAsInProcess) {
  const std::vector<std::vector<std::string>> cases = {
      {"zqdelay", "--signal", "noise", "--seconds", "0.2"},
      {"zqbiquad", "--format", "s24", "--block", "300", "--tempo", "97", "--seconds", "0.2"},
  };
  zqtest::TestFolder folder("zqvst_isolated_");
  for (const auto& c : cases) {
    const std::string plugin = std::string(ZQ_PLUGIN_DIR) + "/" + c[0] + ".so";
    std::string files[2], printed[2];
    for (int isolated = 0; isolated < 2; ++isolated) {
      const std::filesystem::path output = folder.path() / (std::to_string(isolated) + ".wav");
      std::vector<std::string> render{"render", "--plugin", plugin, "--output", output.string()};
      render.insert(render.end(), c.begin() + 1, c.end());
      std::vector<std::string> info{"info", "--plugin", plugin};
      if (isolated) {
        render.push_back("--isolated");
        info.push_back("--isolated");
      }
      std::string ignored;
      ASSERT_EQ(Zqvst(folder.path(), render, &ignored), 0u) << c[0] << (isolated ? " isolated" : "");
      files[isolated] = WithoutPeakTime(ReadFile(output));
      ASSERT_EQ(Zqvst(folder.path(), info, &printed[isolated]), 0u) << c[0];
    }
    EXPECT_FALSE(files[0].empty());
    EXPECT_TRUE(files[0] == files[1]) << c[0] << ": the rendered files differ";
    EXPECT_EQ(printed[0], printed[1]) << c[0];
  }
}

}  // namespace
