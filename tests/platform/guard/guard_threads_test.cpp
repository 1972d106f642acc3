// The fault guard on several threads at once: each thread's faults reach its
// own guards, and threads come and go with guards in use.
#include "platform/guard.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "base/status.h"

namespace {

__attribute__((noinline)) void WriteAt(uintptr_t address) {
  volatile uintptr_t target = address;
  *reinterpret_cast<volatile int*>(target) = 1;
}

TEST(FaultGuardThreads, FaultsOnSeveralThreadsAtOnceReachTheirOwnGuards) {
  constexpr int kThreads = 4;
  constexpr int kFaults = 250;
  std::atomic<int> ready{0};
  std::vector<int> handled(kThreads, 0);
  std::vector<int> wrongAddress(kThreads, 0);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      ready.fetch_add(1);
      while (ready.load() < kThreads) std::this_thread::yield();
      // Each thread faults at an address of its own, so a record that went
      // to the wrong thread's guard shows.
      const uintptr_t address = 0x100 + 0x10 * static_cast<uintptr_t>(t);
      for (int i = 0; i < kFaults; ++i) {
        EXCEPTION_RECORD rec{};
        const DWORD code = ZqGuarded([&] { WriteAt(address); },
                                     [&](EXCEPTION_POINTERS* p) {
                                       if (p->ExceptionRecord->ExceptionInformation[1] != address) ++wrongAddress[t];
                                       return EXCEPTION_EXECUTE_HANDLER;
                                     },
                                     &rec);
        if (code == EXCEPTION_ACCESS_VIOLATION && rec.ExceptionInformation[1] == address) ++handled[t];
      }
    });
  }
  for (auto& th : threads) th.join();
  for (int t = 0; t < kThreads; ++t) {
    EXPECT_EQ(kFaults, handled[t]) << "thread " << t;
    EXPECT_EQ(0, wrongAddress[t]) << "thread " << t;
  }
}

TEST(FaultGuardThreads, ShortLivedThreadsEachGetAWorkingGuard) {
  // Threads that end release their alternate stacks; new ones get theirs.
  int handled = 0;
  for (int round = 0; round < 20; ++round) {
    DWORD code = 0;
    std::thread th([&] { code = ZqGuardedAll([] { WriteAt(0x80); }); });
    th.join();
    if (code == EXCEPTION_ACCESS_VIOLATION) ++handled;
  }
  EXPECT_EQ(20, handled);
}

TEST(FaultGuardThreads, GuardOnOneThreadDoesNotCatchAnotherThreadsRaise) {
  // A thread with no guard of its own must not jump into the guard of a
  // thread that happens to be inside one.
  std::atomic<bool> inside{false}, done{false};
  DWORD mainCode = 1;
  std::thread waiter([&] {
    mainCode = ZqGuardedAll([&] {
      inside = true;
      while (!done.load()) std::this_thread::yield();
    });
  });
  while (!inside.load()) std::this_thread::yield();
  const DWORD otherCode = ZqGuardedAll([] { WriteAt(0x90); });
  done = true;
  waiter.join();
  EXPECT_EQ(EXCEPTION_ACCESS_VIOLATION, otherCode);
  EXPECT_EQ(0u, mainCode);
}

}  // namespace
