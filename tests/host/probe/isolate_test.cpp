// A child under a time limit: how it ended, its message, and that nothing is
// left running afterwards.
#include <gtest/gtest.h>

#include <csignal>
#include <string>

#include "aplugins/zqvstwrap/host/zqvstprobe.h"
#include "platform/file.h"
#include "platform/isolate.h"
#include "platform/process.h"
#include "platform/sync.h"
#include "tests/host/probe/isolation_fixture.h"

namespace {

ZqChildOutcome RunShell(const char* script, DWORD limitMs, const ZqChildAnswer* answer = nullptr) {
  const char* argv[] = {"sh", "-c", script, nullptr};
  ZqChildOutcome outcome{};
  EXPECT_TRUE(ZqRunChildWithTimeLimit("/bin/sh", argv, limitMs, answer, &outcome)) << script;
  return outcome;
}

bool ProcessExists(DWORD pid) {
  return GetFileAttributesW(ZqUtf8ToUtf16("/proc/" + std::to_string(pid)).c_str()) != INVALID_FILE_ATTRIBUTES;
}

TEST(ChildWithTimeLimit, TellsHowTheChildEnded) {
  ZqChildOutcome o = RunShell("exit 3", 20000);
  EXPECT_EQ(o.end, ZqChildEnd::Exited);
  EXPECT_EQ(o.exitCode, 3u);
  EXPECT_EQ(o.answerSize, 0u);

  o = RunShell("kill -SEGV $$", 20000);
  EXPECT_EQ(o.end, ZqChildEnd::DiedOfSignal);
  EXPECT_EQ(o.signal, SIGSEGV);
  EXPECT_EQ(o.exitCode, 0u);

  // Killed at the limit, and gone by the time the answer comes.
  const char* argv[] = {"sleep", "30", nullptr};
  ASSERT_TRUE(ZqRunChildWithTimeLimit("sleep", argv, 300, nullptr, &o));
  EXPECT_EQ(o.end, ZqChildEnd::KilledAtLimit);
  EXPECT_NE(o.processId, 0u);
  EXPECT_FALSE(ProcessExists(o.processId)) << "the killed child was reaped";
}

TEST(ChildWithTimeLimit, CarriesTheChildsFirstMessageOnly) {
  char buffer[16] = {};
  ZqChildAnswer answer{3, buffer, sizeof buffer};
  ZqChildOutcome o = RunShell("printf hello >&3; printf again >&3; exit 4", 20000, &answer);
  EXPECT_EQ(o.end, ZqChildEnd::Exited);
  EXPECT_EQ(o.exitCode, 4u);
  ASSERT_EQ(o.answerSize, 5u);
  EXPECT_EQ(std::string(buffer, 5), "hello");

  // Too long for the buffer: dropped, not cut.
  char small[4] = {};
  ZqChildAnswer tight{5, small, sizeof small};
  o = RunShell("printf toolong >&5", 20000, &tight);
  EXPECT_EQ(o.answerSize, 0u);
}

// A probe stuck in a module must not outlive the program that started it:
// when its report socket hangs up, it ends itself.
TEST(ChildWithTimeLimit, ProbeEndsWhenItsHostHangsUp) {
  int pair[2];
  ASSERT_TRUE(ZqCreateSocketPair(pair));
  const std::string module = zqtest::PluginPath8("zqbad_entry_hang");
  const char* argv[] = {"zqprobe", "--quiet", "--report-fd", "3", module.c_str(), nullptr};
  const ZqSpawnDescriptor passed{pair[1], 3};
  HANDLE probe = nullptr;
  ASSERT_TRUE(ZqSpawnProcess(zqtest::ProbePath8().c_str(), argv, &passed, 1, &probe, nullptr));
  ZqCloseDescriptor(pair[1]);
  ZqCloseDescriptor(pair[0]);
  const DWORD waited = WaitForSingleObject(probe, 20000);
  if (waited != WAIT_OBJECT_0) TerminateProcess(probe, 1);
  EXPECT_EQ(waited, WAIT_OBJECT_0);
  DWORD code = 0;
  EXPECT_TRUE(GetExitCodeProcess(probe, &code));
  EXPECT_EQ(code, static_cast<DWORD>(kZqProbeOrphaned));
  WaitForSingleObject(probe, INFINITE);
  CloseHandle(probe);
}

}  // namespace
