#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "platform/message.h"
#include "platform/sync.h"
#include "platform/thread.h"

namespace {

struct Log { std::vector<UINT> messages; std::vector<WPARAM> params; };

// Records what reaches it in the Log of its user data; WM_USER + 1 answers
// 2 * wParam + lParam.
LRESULT Recorder(HWND w, UINT m, WPARAM wp, LPARAM lp) {
  auto* log = reinterpret_cast<Log*>(GetWindowLongPtrW(w, GWLP_USERDATA));
  if (log && m != WM_CREATE) {
    log->messages.push_back(m);
    log->params.push_back(wp);
  }
  if (m == WM_USER + 1) return static_cast<LRESULT>(wp * 2 + lp);
  return DefWindowProcW(w, m, wp, lp);
}

// A window with a message loop on a thread of its own until WM_QUIT.
struct LoopThread {
  std::atomic<HWND> window{nullptr};
  std::atomic<DWORD> id{0};
  Log log;
  std::thread thread;
  explicit LoopThread(WNDPROC proc = Recorder) {
    HANDLE ready = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    thread = std::thread([this, proc, ready] {
      MSG m;
      PeekMessageW(&m, nullptr, 0, 0, PM_NOREMOVE);
      window = ZqCreateWindow(proc, reinterpret_cast<LONG_PTR>(&log));
      id = GetCurrentThreadId();
      SetEvent(ready);
      while (GetMessageW(&m, nullptr, 0, 0)) DispatchMessageW(&m);
      DestroyWindow(window);
    });
    WaitForSingleObject(ready, INFINITE);
    CloseHandle(ready);
  }
  ~LoopThread() {
    PostThreadMessageW(id, WM_QUIT, 0, 0);
    thread.join();
  }
};

TEST(Messages, PostedFromOtherThreadsArriveInOrder) {
  Log log;
  HWND w = ZqCreateWindow(Recorder, reinterpret_cast<LONG_PTR>(&log));
  ASSERT_NE(w, nullptr);
  std::thread poster([&] {
    for (WPARAM i = 0; i < 100; ++i) EXPECT_TRUE(PostMessageW(w, WM_APP, i, 0));
    EXPECT_TRUE(PostMessageW(w, WM_CLOSE, 0, 0));
  });
  poster.join();
  MSG m;
  while (IsWindow(w) && GetMessageW(&m, nullptr, 0, 0)) DispatchMessageW(&m);
  ASSERT_EQ(log.messages.size(), 103u);  // 100, WM_CLOSE, WM_DESTROY, WM_NCDESTROY
  for (WPARAM i = 0; i < 100; ++i) EXPECT_EQ(log.params[i], i);
  EXPECT_EQ(log.messages[101], WM_DESTROY);
  EXPECT_FALSE(PostMessageW(w, WM_APP, 0, 0));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_WINDOW_HANDLE);
}

TEST(Messages, PeekFiltersAndQuitEndsTheLoopAfterPostedMessages) {
  MSG m;
  PostMessageW(nullptr, WM_USER, 1, 0);
  PostMessageW(nullptr, WM_APP, 2, 0);
  ASSERT_TRUE(PeekMessageW(&m, nullptr, WM_APP, WM_APP, PM_NOREMOVE));
  EXPECT_EQ(m.wParam, 2u);
  ASSERT_TRUE(PeekMessageW(&m, nullptr, WM_APP, WM_APP, PM_REMOVE));
  PostQuitMessage(3);
  PostMessageW(nullptr, WM_APP, 4, 0);
  std::vector<WPARAM> seen;
  while (GetMessageW(&m, nullptr, 0, 0)) seen.push_back(m.wParam);
  EXPECT_EQ(m.message, WM_QUIT);
  EXPECT_EQ(m.wParam, 3u);
  EXPECT_EQ(seen, (std::vector<WPARAM>{1, 4})) << "posted messages go before the quit";
  EXPECT_FALSE(PeekMessageW(&m, nullptr, 0, 0, PM_REMOVE));
}

// The receiver sends back to the sender while the sender waits for its answer.
HWND g_back = nullptr;
LRESULT CallsBack(HWND w, UINT m, WPARAM wp, LPARAM lp) {
  if (m == WM_USER + 2) return SendMessageW(g_back, WM_USER + 1, wp, 1) + 1;
  return DefWindowProcW(w, m, wp, lp);
}

TEST(Messages, SendAcrossThreadsServesSentMessagesWhileWaiting) {
  Log local;
  g_back = ZqCreateWindow(Recorder, reinterpret_cast<LONG_PTR>(&local));
  EXPECT_EQ(SendMessageW(g_back, WM_USER + 1, 1, 1), 3) << "same thread: a direct call";
  {
    LoopThread loop;
    EXPECT_EQ(SendMessageW(loop.window, WM_USER + 1, 20, 2), 42);
    LoopThread calling(CallsBack);
    EXPECT_EQ(SendMessageW(calling.window, WM_USER + 2, 10, 0), 22);
    EXPECT_FALSE(DestroyWindow(loop.window)) << "only on the owning thread";
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
  }
  DestroyWindow(g_back);
  EXPECT_EQ(SendMessageW(g_back, WM_USER + 1, 1, 1), 0);
}

TEST(Messages, ThreadEndDestroysWindowsAndThreadsWithoutAQueueTakeNoPosts) {
  HWND w;
  {
    LoopThread loop;
    w = loop.window;
    DWORD pid = 0;
    EXPECT_EQ(GetWindowThreadProcessId(w, &pid), loop.id.load());
  }
  EXPECT_FALSE(IsWindow(w));
  EXPECT_EQ(SendMessageW(w, WM_USER + 1, 1, 1), 0);
  HANDLE release = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  std::atomic<DWORD> id{0};
  std::thread bare([&] {
    id = GetCurrentThreadId();
    WaitForSingleObject(release, INFINITE);
  });
  while (!id) Sleep(1);
  EXPECT_FALSE(PostThreadMessageW(id, WM_APP, 0, 0));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_THREAD_ID);
  SetEvent(release);
  bare.join();
  CloseHandle(release);
}

TEST(MessageWaits, PostedMessagesAndObjectsWakeTheWait) {
  HANDLE never = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  MSG m;
  PeekMessageW(&m, nullptr, 0, 0, PM_NOREMOVE);
  const DWORD me = GetCurrentThreadId();
  EXPECT_EQ(MsgWaitForMultipleObjects(1, &never, FALSE, 10, QS_ALLINPUT), WAIT_TIMEOUT);
  std::thread poster([&] {
    Sleep(20);
    PostThreadMessageW(me, WM_APP, 5, 0);
  });
  EXPECT_EQ(MsgWaitForMultipleObjects(1, &never, FALSE, 5000, QS_ALLINPUT), WAIT_OBJECT_0 + 1);
  poster.join();
  // Input that waits still counts; a mask without posted messages ignores it.
  EXPECT_EQ(MsgWaitForMultipleObjects(1, &never, FALSE, 0, QS_ALLINPUT), WAIT_OBJECT_0 + 1);
  EXPECT_EQ(MsgWaitForMultipleObjects(1, &never, FALSE, 0, QS_SENDMESSAGE), WAIT_TIMEOUT);
  ASSERT_TRUE(PeekMessageW(&m, nullptr, 0, 0, PM_REMOVE));
  SetEvent(never);
  EXPECT_EQ(MsgWaitForMultipleObjects(1, &never, FALSE, 0, QS_ALLINPUT), WAIT_OBJECT_0);
  EXPECT_EQ(MsgWaitForMultipleObjectsEx(0, nullptr, 0, QS_ALLINPUT, 0), WAIT_TIMEOUT);
  CloseHandle(never);
  // A thread's handle signals at its end also in a wait that takes all input.
  HANDLE t = CreateThread(nullptr, 0, [](void*) -> DWORD { return Sleep(20), 9; }, nullptr, 0, nullptr);
  DWORD r;
  while ((r = MsgWaitForMultipleObjects(1, &t, FALSE, INFINITE, QS_ALLINPUT)) == WAIT_OBJECT_0 + 1)
    while (PeekMessageW(&m, nullptr, 0, 0, PM_REMOVE)) DispatchMessageW(&m);
  EXPECT_EQ(r, WAIT_OBJECT_0);
  CloseHandle(t);
}

std::atomic<int> g_timerCalls{0};
void TimerCallback(HWND, UINT m, UINT_PTR, DWORD) { g_timerCalls += m == WM_TIMER; }

TEST(Timers, WindowAndThreadTimersFireWhileWaitingAndStopWhenKilled) {
  Log log;
  HWND w = ZqCreateWindow(Recorder, reinterpret_cast<LONG_PTR>(&log));
  EXPECT_EQ(SetTimer(w, 7, 10, nullptr), 7u);
  g_timerCalls = 0;
  const UINT_PTR id = SetTimer(nullptr, 0, 10, TimerCallback);
  ASSERT_NE(id, 0u);
  MSG m;
  int ticks = 0;
  while ((ticks < 3 || g_timerCalls < 2) && GetMessageW(&m, nullptr, 0, 0)) {
    if (m.message == WM_TIMER && m.hwnd == w) ticks += m.wParam == 7;
    DispatchMessageW(&m);
  }
  EXPECT_TRUE(KillTimer(w, 7));
  EXPECT_FALSE(KillTimer(w, 7));
  EXPECT_TRUE(KillTimer(nullptr, id));
  while (PeekMessageW(&m, nullptr, 0, 0, PM_REMOVE)) {
  }
  EXPECT_EQ(MsgWaitForMultipleObjectsEx(0, nullptr, 40, QS_ALLINPUT, 0), WAIT_TIMEOUT);
  DestroyWindow(w);
}

TEST(Windows, CreateCanBeCancelledAndUserDataKept) {
  auto refuse = [](HWND, UINT m, WPARAM, LPARAM) -> LRESULT { return m == WM_CREATE ? -1 : 0; };
  EXPECT_EQ(ZqCreateWindow(refuse, 0), nullptr);
  Log log;
  HWND w = ZqCreateWindow(Recorder, 0);
  EXPECT_EQ(SetWindowLongPtrW(w, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(&log)), 0);
  EXPECT_EQ(GetWindowLongPtrW(w, GWLP_USERDATA), reinterpret_cast<LONG_PTR>(&log));
  EXPECT_EQ(GetWindowLongPtrW(w, GWLP_WNDPROC), reinterpret_cast<LONG_PTR>(&Recorder));
  DestroyWindow(w);
  EXPECT_EQ(log.messages, (std::vector<UINT>{WM_DESTROY, WM_NCDESTROY}));
}

}  // namespace
