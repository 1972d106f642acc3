#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "platform/atomic.h"
#include "platform/sync.h"
#include "platform/thread.h"

namespace {

// Closes a handle at the end of a scope.
struct Owned {
  HANDLE h;
  explicit Owned(HANDLE handle) : h(handle) {}
  ~Owned() {
    if (h) CloseHandle(h);
  }
  operator HANDLE() const { return h; }
};

// Starts `n` threads that each wait once on `h`; answers how many got through.
int WaitersThrough(HANDLE h, int n, DWORD timeout, void (*release)(HANDLE)) {
  std::atomic<int> through{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < n; ++i)
    threads.emplace_back([&] { through += WaitForSingleObject(h, timeout) == WAIT_OBJECT_0; });
  Sleep(50);
  release(h);
  for (auto& t : threads) t.join();
  return through;
}

TEST(Events, AutoResetReleasesOneWaiterPerSetAndManualResetAll) {
  Owned e(CreateEventW(nullptr, FALSE, TRUE, nullptr));
  EXPECT_EQ(WaitForSingleObject(e, 0), WAIT_OBJECT_0);
  EXPECT_EQ(WaitForSingleObject(e, 0), WAIT_TIMEOUT) << "an auto-reset event resets when taken";
  EXPECT_EQ(WaitersThrough(e, 2, 500, [](HANDLE h) { SetEvent(h); }), 1);
  // Back to back: the first set is handed over at once, so the second is not lost.
  EXPECT_EQ(WaitersThrough(e, 2, 5000, [](HANDLE h) { SetEvent(h), SetEvent(h); }), 2);
  Owned m(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  EXPECT_EQ(WaitersThrough(m, 8, INFINITE, [](HANDLE h) { SetEvent(h); }), 8);
  EXPECT_EQ(WaitForSingleObject(m, 0), WAIT_OBJECT_0) << "a manual-reset event stays set";
  ResetEvent(m);
  EXPECT_EQ(WaitForSingleObject(m, 10), WAIT_TIMEOUT);
}

TEST(Events, BadHandlesAndNamesAreRefusedAndDuplicatesKeepTheObject) {
  EXPECT_EQ(CreateEventW(nullptr, TRUE, FALSE, u"name"), nullptr);
  EXPECT_EQ(GetLastError(), ERROR_NOT_SUPPORTED);
  HANDLE e = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  HANDLE d = ZqDuplicateHandle(e);
  ASSERT_NE(d, nullptr);
  ASSERT_TRUE(CloseHandle(e));
  EXPECT_FALSE(CloseHandle(e));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
  EXPECT_FALSE(SetEvent(e)) << "a closed handle never reaches another object";
  EXPECT_EQ(WaitForSingleObject(e, 0), WAIT_FAILED);
  EXPECT_EQ(WaitForSingleObject(nullptr, 0), WAIT_FAILED);
  EXPECT_TRUE(SetEvent(d));
  EXPECT_EQ(WaitForSingleObject(d, 0), WAIT_OBJECT_0);
  CloseHandle(d);
}

TEST(MultipleWaits, AnyAnswersTheLowestSignalledIndex) {
  Owned a(CreateEventW(nullptr, TRUE, FALSE, nullptr)), b(CreateEventW(nullptr, TRUE, TRUE, nullptr)),
      c(CreateEventW(nullptr, TRUE, TRUE, nullptr));
  HANDLE hs[3] = {a, b, c};
  EXPECT_EQ(WaitForMultipleObjects(3, hs, FALSE, 0), WAIT_OBJECT_0 + 1);
  ResetEvent(b);
  ResetEvent(c);
  EXPECT_EQ(WaitForMultipleObjects(3, hs, FALSE, 10), WAIT_TIMEOUT);
  std::thread setter([&] { Sleep(20), SetEvent(c); });
  EXPECT_EQ(WaitForMultipleObjects(3, hs, FALSE, 5000), WAIT_OBJECT_0 + 2);
  setter.join();
  HANDLE twice[2] = {a, a};
  EXPECT_EQ(WaitForMultipleObjects(2, twice, TRUE, 0), WAIT_FAILED) << "the same object twice for all";
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(WaitForMultipleObjects(0, twice, FALSE, 0), WAIT_FAILED);
  std::vector<HANDLE> many(65, b.h);
  SetEvent(b);
  EXPECT_EQ(WaitForMultipleObjects(65, many.data(), FALSE, 0), WAIT_FAILED);
  EXPECT_EQ(WaitForMultipleObjects(64, many.data(), FALSE, 0), WAIT_OBJECT_0);
}

TEST(MultipleWaits, WaitAllTakesAllOrNone) {
  Owned a(CreateEventW(nullptr, FALSE, TRUE, nullptr)), b(CreateEventW(nullptr, FALSE, FALSE, nullptr));
  HANDLE hs[2] = {a, b};
  EXPECT_EQ(WaitForMultipleObjects(2, hs, TRUE, 10), WAIT_TIMEOUT);
  EXPECT_EQ(WaitForSingleObject(a, 0), WAIT_OBJECT_0) << "a failed wait-all must not take a";
  SetEvent(a);
  SetEvent(b);
  EXPECT_EQ(WaitForMultipleObjects(2, hs, TRUE, 0), WAIT_OBJECT_0);
  EXPECT_EQ(WaitForSingleObject(a, 0), WAIT_TIMEOUT);
  EXPECT_EQ(WaitForSingleObject(b, 0), WAIT_TIMEOUT);
  // A waiting wait-all does not hold a while b is missing: another thread can take a.
  SetEvent(a);
  std::thread all([&] { EXPECT_EQ(WaitForMultipleObjects(2, hs, TRUE, 5000), WAIT_OBJECT_0); });
  Sleep(30);
  EXPECT_EQ(WaitForSingleObject(a, 0), WAIT_OBJECT_0);
  SetEvent(b);
  Sleep(30);
  SetEvent(a);
  all.join();
  EXPECT_EQ(WaitForSingleObject(b, 0), WAIT_TIMEOUT);
}

TEST(Semaphores, CountsAndLimit) {
  Owned s(CreateSemaphoreW(nullptr, 1, 2, nullptr));
  EXPECT_EQ(WaitForSingleObject(s, 0), WAIT_OBJECT_0);
  EXPECT_EQ(WaitForSingleObject(s, 0), WAIT_TIMEOUT);
  LONG previous = -1;
  EXPECT_TRUE(ReleaseSemaphore(s, 2, &previous));
  EXPECT_EQ(previous, 0);
  EXPECT_FALSE(ReleaseSemaphore(s, 1, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_TOO_MANY_POSTS);
  EXPECT_EQ(WaitForSingleObject(s, 0), WAIT_OBJECT_0);
  EXPECT_EQ(WaitForSingleObject(s, 0), WAIT_OBJECT_0);
  EXPECT_EQ(WaitForSingleObject(s, 0), WAIT_TIMEOUT);
  EXPECT_EQ(CreateSemaphoreW(nullptr, 3, 2, nullptr), nullptr);
}

TEST(Mutexes, RecursiveOwnershipAndAbandonment) {
  Owned m(CreateMutexW(nullptr, TRUE, nullptr));
  EXPECT_EQ(WaitForSingleObject(m, 0), WAIT_OBJECT_0) << "the owner may take it again";
  std::thread other([&] {
    EXPECT_EQ(WaitForSingleObject(m, 0), WAIT_TIMEOUT);
    EXPECT_FALSE(ReleaseMutex(m));
    EXPECT_EQ(GetLastError(), ERROR_NOT_OWNER);
  });
  other.join();
  EXPECT_TRUE(ReleaseMutex(m));
  EXPECT_TRUE(ReleaseMutex(m));
  EXPECT_FALSE(ReleaseMutex(m));
  std::thread quitter([&] { EXPECT_EQ(WaitForSingleObject(m, 0), WAIT_OBJECT_0); });
  quitter.join();
  EXPECT_EQ(WaitForSingleObject(m, 1000), WAIT_ABANDONED);
  EXPECT_TRUE(ReleaseMutex(m));
}

bool OthersCanEnter(CRITICAL_SECTION* cs) {
  bool entered = false;
  std::thread([&] {
    if ((entered = TryEnterCriticalSection(cs))) LeaveCriticalSection(cs);
  }).join();
  return entered;
}

TEST(CriticalSections, ZeroFilledRecursiveAndExclusive) {
  struct { int before; CRITICAL_SECTION cs; long counter; } h{};
  InitializeCriticalSectionAndSpinCount(&h.cs, 100);
  EnterCriticalSection(&h.cs);
  EXPECT_TRUE(TryEnterCriticalSection(&h.cs));
  EXPECT_FALSE(OthersCanEnter(&h.cs));
  LeaveCriticalSection(&h.cs);
  LeaveCriticalSection(&h.cs);
  EXPECT_TRUE(OthersCanEnter(&h.cs));
  // Unprotected read-modify-write under the lock from several threads.
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 20000; ++i) {
        EnterCriticalSection(&h.cs);
        const long v = h.counter;
        h.counter = v + 1;
        LeaveCriticalSection(&h.cs);
      }
    });
  }
  for (auto& t : threads) t.join();
  EXPECT_EQ(h.counter, 80000);
  DeleteCriticalSection(&h.cs);
}

// The scoped lock lets go early once on Unlock, and never leaves a second
// time (which would release a level that belongs to an outer owner).
TEST(CriticalSections, ScopedLockReleasesOnceEarlyOrAtTheEnd) {
  CRITICAL_SECTION cs{};
  EnterCriticalSection(&cs);  // an outer owner
  {
    ZqCriticalSectionLock lock(&cs);
    lock.Unlock();
    lock.Unlock();
    EXPECT_FALSE(OthersCanEnter(&cs)) << "the outer level must still be held";
  }
  LeaveCriticalSection(&cs);
  {
    ZqCriticalSectionLock lock(&cs);
    EXPECT_FALSE(OthersCanEnter(&cs));
  }
  EXPECT_TRUE(OthersCanEnter(&cs));
  DeleteCriticalSection(&cs);
}

TEST(Threads, SuspendedThreadRunsAfterResumeAndItsHandleSignalsWithTheCode) {
  auto body = [](void* p) -> DWORD { return static_cast<DWORD>(reinterpret_cast<uintptr_t>(p)); };
  DWORD id = 0;
  Owned t(CreateThread(nullptr, 64 * 1024, body, reinterpret_cast<void*>(42), CREATE_SUSPENDED, &id));
  ASSERT_NE(t.h, nullptr);
  EXPECT_EQ(GetThreadId(t), id);
  EXPECT_EQ(WaitForSingleObject(t, 30), WAIT_TIMEOUT);
  DWORD code = 0;
  GetExitCodeThread(t, &code);
  EXPECT_EQ(code, STILL_ACTIVE);
  EXPECT_EQ(ResumeThread(t), 1u);
  EXPECT_EQ(WaitForSingleObject(t, 5000), WAIT_OBJECT_0);
  EXPECT_TRUE(GetExitCodeThread(t, &code));
  EXPECT_EQ(code, 42u);
}

TEST(Threads, QueuedCallsRunInAlertableWaits) {
  static std::atomic<int> calls;
  calls = 0;
  Owned go(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  struct Ctx { HANDLE go; DWORD sleepResult, waitResult; } ctx{go, 0, 0};
  auto body = [](void* p) -> DWORD {
    auto* c = static_cast<Ctx*>(p);
    c->sleepResult = SleepEx(INFINITE, TRUE);
    c->waitResult = WaitForSingleObjectEx(c->go, INFINITE, TRUE);
    return 0;
  };
  Owned t(CreateThread(nullptr, 0, body, &ctx, 0, nullptr));
  EXPECT_EQ(QueueUserAPC([](ULONG_PTR d) { calls += static_cast<int>(d); }, t, 5), 1u);
  Sleep(30);
  SetEvent(go);
  EXPECT_EQ(WaitForSingleObject(t, 5000), WAIT_OBJECT_0);
  EXPECT_EQ(ctx.sleepResult, WAIT_IO_COMPLETION);
  EXPECT_EQ(ctx.waitResult, WAIT_OBJECT_0);
  EXPECT_EQ(calls.load(), 5);
}

TEST(Threads, TlsSlotsArePerThread) {
  const DWORD slot = TlsAlloc();
  ASSERT_NE(slot, TLS_OUT_OF_INDEXES);
  int here = 1, there = 2;
  EXPECT_TRUE(TlsSetValue(slot, &here));
  std::thread other([&] {
    EXPECT_EQ(TlsGetValue(slot), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
    TlsSetValue(slot, &there);
  });
  other.join();
  EXPECT_EQ(TlsGetValue(slot), &here);
  EXPECT_TRUE(TlsFree(slot));
}

// Which value each operation answers: the new one or the old one.
TEST(Interlocked, ResultsFollowTheOriginal) {
  volatile LONG v = 5;
  EXPECT_EQ(InterlockedIncrement(&v), 6);
  EXPECT_EQ(InterlockedDecrement(&v), 5);
  EXPECT_EQ(InterlockedExchange(&v, 9), 5);
  EXPECT_EQ(InterlockedExchangeAdd(&v, 3), 9);
  EXPECT_EQ(InterlockedCompareExchange(&v, 1, 0), 12) << "no store when the comparand differs";
  EXPECT_EQ(InterlockedCompareExchange(&v, 1, 12), 12);
  EXPECT_EQ(v, 1);
  volatile LONGLONG w = 1LL << 40;
  EXPECT_EQ(InterlockedIncrement64(&w), (1LL << 40) + 1);
  EXPECT_EQ(InterlockedCompareExchange64(&w, 3, (1LL << 40) + 1), (1LL << 40) + 1);
  EXPECT_EQ(w, 3);
  int a = 0, b = 0;
  void* volatile p = &a;
  EXPECT_EQ(InterlockedCompareExchangePointer(&p, &b, &a), &a);
  EXPECT_EQ(InterlockedExchangePointer(&p, nullptr), &b);
}

}  // namespace
