#include <gtest/gtest.h>

#include <csignal>
#include <string>

#include "platform/file.h"
#include "platform/process.h"
#include "platform/sync.h"
#include "platform/text.h"
#include "platform/thread.h"

namespace {

DWORD RunShell(const char* script, const ZqSpawnDescriptor* fds = nullptr, size_t count = 0) {
  const char* argv[] = {"sh", "-c", script, nullptr};
  HANDLE p = nullptr;
  DWORD pid = 0;
  EXPECT_TRUE(ZqSpawnProcess("/bin/sh", argv, fds, count, &p, &pid));
  if (p == nullptr) return 0xFFFFFFFF;
  EXPECT_EQ(GetProcessId(p), pid);
  EXPECT_EQ(WaitForSingleObject(p, 20000), WAIT_OBJECT_0);
  DWORD code = 0;
  EXPECT_TRUE(GetExitCodeProcess(p, &code));
  CloseHandle(p);
  return code;
}

TEST(Spawn, ExitCodeAndHandleSignals) {
  EXPECT_EQ(RunShell("exit 3"), 3u);
  EXPECT_EQ(RunShell("kill -TERM $$"), ZQ_EXIT_CODE_SIGNALED | SIGTERM);
}

TEST(Spawn, MissingProgramFails) {
  const char* argv[] = {"nothing", nullptr};
  HANDLE p = nullptr;
  EXPECT_FALSE(ZqSpawnProcess("/nonexistent/program", argv, nullptr, 0, &p, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(p, nullptr);
}

TEST(Spawn, TerminateReportsTheGivenCode) {
  const char* argv[] = {"sleep", "30", nullptr};
  HANDLE p = nullptr;
  ASSERT_TRUE(ZqSpawnProcess("sleep", argv, nullptr, 0, &p, nullptr));
  DWORD code = 0;
  EXPECT_TRUE(GetExitCodeProcess(p, &code));
  EXPECT_EQ(code, STILL_ACTIVE);
  EXPECT_EQ(WaitForSingleObject(p, 0), WAIT_TIMEOUT);
  EXPECT_TRUE(TerminateProcess(p, 77));
  EXPECT_EQ(WaitForSingleObject(p, 20000), WAIT_OBJECT_0);
  EXPECT_TRUE(GetExitCodeProcess(p, &code));
  EXPECT_EQ(code, 77u);
  EXPECT_TRUE(TerminateProcess(p, 1)) << "an ended child is no error";
  CloseHandle(p);
}

TEST(Spawn, DescriptorPassedAtItsNumber) {
  int pair[2];
  ASSERT_TRUE(ZqCreateSocketPair(pair));
  // The child writes through descriptor 5 and 7 swapped with our numbers.
  int other[2];
  ASSERT_TRUE(ZqCreateSocketPair(other));
  const ZqSpawnDescriptor fds[] = {{pair[1], 5}, {other[1], 7}};
  EXPECT_EQ(RunShell("printf five >&5; printf seven >&7; exec 2>/dev/null; printf leak >&8 && exit 9; exit 0",
                     fds, 2),
            0u)
      << "only the listed descriptors reach the child";
  char buf[16];
  long long n = ZqSocketReceive(pair[0], buf, sizeof buf, nullptr, nullptr, 5000);
  ASSERT_EQ(n, 4);
  EXPECT_EQ(std::string(buf, 4), "five");
  n = ZqSocketReceive(other[0], buf, sizeof buf, nullptr, nullptr, 5000);
  ASSERT_EQ(n, 5);
  EXPECT_EQ(std::string(buf, 5), "seven");
  for (int fd : {pair[0], pair[1], other[0], other[1]}) ZqCloseDescriptor(fd);
}

TEST(SocketPairs, MessagesKeepBoundariesAndCarryDescriptors) {
  int pair[2];
  ASSERT_TRUE(ZqCreateSocketPair(pair));
  int inner[2];
  ASSERT_TRUE(ZqCreateSocketPair(inner));
  EXPECT_EQ(ZqSocketSend(pair[0], "one", 3, &inner[1], 1), 3);
  EXPECT_EQ(ZqSocketSend(pair[0], "second", 6, nullptr, 0), 6);
  char buf[16];
  int got[4] = {-1, -1, -1, -1};
  size_t count = 4;
  ASSERT_EQ(ZqSocketReceive(pair[1], buf, sizeof buf, got, &count, INFINITE), 3);
  ASSERT_EQ(count, 1u);
  // The received descriptor reaches the same socket.
  EXPECT_EQ(ZqSocketSend(got[0], "via", 3, nullptr, 0), 3);
  EXPECT_EQ(ZqSocketReceive(inner[0], buf, sizeof buf, nullptr, nullptr, 5000), 3);
  EXPECT_EQ(std::string(buf, 3), "via");

  EXPECT_EQ(ZqSocketReceive(pair[1], buf, 3, nullptr, nullptr, 5000), -1);
  EXPECT_EQ(GetLastError(), ERROR_MORE_DATA);
  EXPECT_EQ(ZqSocketReceive(pair[1], buf, sizeof buf, nullptr, nullptr, 0), -1);
  EXPECT_EQ(GetLastError(), ERROR_TIMEOUT);

  ZqCloseDescriptor(pair[0]);
  EXPECT_EQ(ZqSocketReceive(pair[1], buf, sizeof buf, nullptr, nullptr, 5000), 0) << "hang-up";
  EXPECT_EQ(ZqSocketSend(pair[1], "x", 1, nullptr, 0), -1);
  EXPECT_EQ(GetLastError(), ERROR_BROKEN_PIPE);
  for (int fd : {pair[1], inner[0], inner[1], got[0]}) ZqCloseDescriptor(fd);
}

}  // namespace
