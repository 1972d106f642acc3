// What the zqvst tests share: the built program run as a child with its
// standard output and error captured, a folder of the test's own, and audio
// files read back.
#pragma once

#include <gtest/gtest.h>
#include <sndfile.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "platform/environment.h"
#include "platform/file.h"
#include "platform/process.h"
#include "platform/sync.h"
#include "platform/text.h"
#include "tests/support/test_folder.h"

namespace zqvsttest {

namespace fs = std::filesystem;
using Args = std::vector<std::string>;

// A bound against a hung program, not a measurement.
constexpr DWORD kRunLimitMs = 120000;

struct Result {
  DWORD exitCode = 0xFFFFFFFF;
  std::string out;
  std::string err;
};

inline std::string Plugin(const char* name) { return std::string(ZQ_PLUGIN_DIR) + "/" + name + ".so"; }

inline std::string ReadAll(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

inline void WriteAll(const fs::path& path, const std::string& text) { std::ofstream(path, std::ios::binary) << text; }

// An audio file read back: its frames as doubles, interleaved.
struct Audio {
  bool ok = false;
  int channels = 0;
  int rate = 0;
  int format = 0;  // SF_FORMAT_WAV | SF_FORMAT_PCM_16 ...
  std::vector<double> samples;
  int Subformat() const { return format & SF_FORMAT_SUBMASK; }
  size_t Frames() const { return channels ? samples.size() / size_t(channels) : 0; }
  double At(size_t frame, int channel = 0) const { return samples[frame * size_t(channels) + size_t(channel)]; }
};

inline Audio ReadAudio(const std::string& path) {
  Audio a;
  SF_INFO info{};
  SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
  if (!file) return a;
  // Integer files read as doubles scaled by 1/2^(bits-1), exactly.
  sf_command(file, SFC_SET_NORM_DOUBLE, nullptr, SF_TRUE);
  a.channels = info.channels;
  a.rate = info.samplerate;
  a.format = info.format;
  a.samples.resize(size_t(info.frames) * size_t(info.channels));
  a.ok = sf_readf_double(file, a.samples.data(), info.frames) == info.frames;
  sf_close(file);
  return a;
}

// Writes interleaved float samples as a 32-bit float WAV file.
inline bool WriteFloatWav(const std::string& path, int channels, int rate, const std::vector<float>& samples) {
  SF_INFO info{};
  info.channels = channels;
  info.samplerate = rate;
  info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
  SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
  if (!file) return false;
  const sf_count_t frames = sf_count_t(samples.size() / size_t(channels));
  const bool ok = sf_writef_float(file, samples.data(), frames) == frames;
  sf_close(file);
  return ok;
}

class ZqvstTest : public ::testing::Test {
 protected:
  // The messages the tests read are the English ones, whatever the language
  // of the machine that runs them.
  ZqvstTest() { SetEnvironmentVariableW(u"LANGUAGE", u"en"); }

  std::string Path(const std::string& name) const { return (dir_ / name).string(); }

  // Runs zqvst with `args`; standard output and error go to files of the
  // test folder.
  Result Run(const Args& args) {
    Result r;
    const std::string outPath = Path(".stdout"), errPath = Path(".stderr");
    HANDLE out = CreateFileW(ZqUtf8ToUtf16(outPath).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    HANDLE err = CreateFileW(ZqUtf8ToUtf16(errPath).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    EXPECT_TRUE(out != INVALID_HANDLE_VALUE && err != INVALID_HANDLE_VALUE);
    const ZqSpawnDescriptor descriptors[] = {{ZqGetFileDescriptor(out), 1}, {ZqGetFileDescriptor(err), 2}};
    const std::string program = std::string(ZQ_BINARY_DIR) + "/bin/zqvst";
    std::vector<const char*> argv{"zqvst"};
    for (const auto& a : args) argv.push_back(a.c_str());
    argv.push_back(nullptr);
    HANDLE process = nullptr;
    const BOOL started = ZqSpawnProcess(program.c_str(), argv.data(), descriptors, 2, &process, nullptr);
    CloseHandle(out);
    CloseHandle(err);
    EXPECT_TRUE(started) << program;
    if (!started) return r;
    if (WaitForSingleObject(process, kRunLimitMs) != WAIT_OBJECT_0) {
      TerminateProcess(process, 99);
      WaitForSingleObject(process, INFINITE);
      ADD_FAILURE() << "zqvst did not finish";
    }
    GetExitCodeProcess(process, &r.exitCode);
    CloseHandle(process);
    r.out = ReadAll(outPath);
    r.err = ReadAll(errPath);
    fs::remove(outPath);
    fs::remove(errPath);
    return r;
  }

  // zqvst render of `plugin` with `extra` into `out` of the test folder,
  // which must succeed; the file written.
  Audio Render(const char* plugin, Args extra, const std::string& out = "out.wav") {
    extra.insert(extra.begin(), {"render", "--plugin", Plugin(plugin)});
    extra.insert(extra.end(), {"--output", Path(out)});
    const Result r = Run(extra);
    EXPECT_EQ(r.exitCode, 0u) << r.err;
    return ReadAudio(Path(out));
  }

  // Files left in the test folder (the captured streams aside).
  std::vector<std::string> Files() const {
    std::vector<std::string> names;
    for (const auto& e : fs::directory_iterator(dir_)) {
      const std::string name = e.path().filename().string();
      if (name != ".stdout" && name != ".stderr") names.push_back(name);
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  zqtest::TestFolder folder_{"zq_zqvst_"};
  const fs::path& dir_ = folder_.path();
};

}  // namespace zqvsttest
