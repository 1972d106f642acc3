#include <gtest/gtest.h>

#include <cstring>
#include <thread>

#include "platform/ipc.h"
#include "platform/process.h"
#include "platform/sync.h"

namespace {

TEST(SharedMemory, TwoViewsOfOneSealedBlock) {
  const int fd = ZqSharedMemoryCreate(8192);
  ASSERT_GE(fd, 0);
  EXPECT_EQ(ZqSharedMemorySealedSize(fd), 8192u);
  auto* a = static_cast<char*>(ZqSharedMemoryMap(fd, 8192, TRUE));
  auto* b = static_cast<const char*>(ZqSharedMemoryMap(fd, 8192, FALSE));
  ASSERT_NE(a, nullptr);
  ASSERT_NE(b, nullptr);
  EXPECT_EQ(b[8191], 0) << "a new block is zero-filled";
  std::strcpy(a + 100, "shared");
  EXPECT_STREQ(b + 100, "shared");
  ZqSharedMemoryUnmap(a, 8192);
  ZqSharedMemoryUnmap(const_cast<char*>(b), 8192);
  ZqCloseDescriptor(fd);
}

TEST(SharedMemory, RefusesWhatIsNoSealedBlock) {
  int pair[2];
  ASSERT_TRUE(ZqCreateSocketPair(pair));
  EXPECT_EQ(ZqSharedMemorySealedSize(pair[0]), 0u) << "a socket is no block";
  EXPECT_EQ(ZqSharedMemorySealedSize(-1), 0u);
  EXPECT_EQ(ZqSharedMemoryCreate(0), -1);
  ZqCloseDescriptor(pair[0]);
  ZqCloseDescriptor(pair[1]);
}

TEST(Futex, WaitEndsAtOnceOnAnotherValueAndWakesFromAnotherThread) {
  alignas(4) volatile uint32_t word = 1;
  EXPECT_TRUE(ZqFutexWait(&word, 0, INFINITE)) << "the word already differs";
  EXPECT_FALSE(ZqFutexWait(&word, 1, 1)) << "nobody wakes it";
  std::thread waker([&] {
    word = 2;
    ZqFutexWake(&word, INT32_MAX);
  });
  while (word == 1) ZqFutexWait(&word, 1, 1000);
  waker.join();
  EXPECT_EQ(word, 2u);
}

TEST(OtherProcess, MemoryAndDescriptorsOfThisProcessAsIfForeign) {
  char source[16] = "in this process";
  char copy[16] = {};
  const DWORD self = GetCurrentProcessId();
  EXPECT_EQ(ZqReadProcessMemory(self, uint64_t(uintptr_t(source)), copy, sizeof copy), sizeof copy);
  EXPECT_STREQ(copy, source);
  EXPECT_EQ(ZqWriteProcessMemory(self, uint64_t(uintptr_t(source)), "written", 8), 8u);
  EXPECT_STREQ(source, "written");
  EXPECT_EQ(ZqReadProcessMemory(self, 16, copy, sizeof copy), 0u) << "an address mapped nowhere";
  EXPECT_EQ(ZqReadProcessMemory(0x7FFFFFF0, uint64_t(uintptr_t(source)), copy, 1), 0u) << "no such process";

  const int fd = ZqSharedMemoryCreate(4096);
  ASSERT_GE(fd, 0);
  const int copyFd = ZqDuplicateDescriptorFrom(self, fd);
  if (copyFd < 0) GTEST_SKIP() << "this system does not let a process take descriptors of another";
  EXPECT_NE(copyFd, fd);
  EXPECT_EQ(ZqSharedMemorySealedSize(copyFd), 4096u) << "the same block";
  EXPECT_EQ(ZqDuplicateDescriptorFrom(self, 9999), -1);
  ZqCloseDescriptor(copyFd);
  ZqCloseDescriptor(fd);
}

}  // namespace
