// Queues: ordering operations, the event rule, the waits of ZqQueueRemoveEx
// with their flags, deletion under waiters, and many threads on one queue.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <memory>
#include <thread>
#include <vector>

#include "kernel/queue.h"
#include "platform/message.h"
#include "platform/thread.h"

namespace {

struct Rec {
  tZQQELM link{};
  int id = 0;
};

struct Queue {
  tZQQHEAD head{};
  Queue() { EXPECT_TRUE(ZqQueueInitialize(&head)); }
  ~Queue() { ZqQueueDelete(&head); }
  tZQQHEAD* operator&() { return &head; }
};

std::vector<int> Ids(tZQQHEAD* head) {
  std::vector<int> ids;
  for (tZQQELM* e = head->next; e != reinterpret_cast<tZQQELM*>(head); e = e->next)
    ids.push_back(reinterpret_cast<Rec*>(e)->id);
  return ids;
}

bool Signalled(tZQQHEAD* head) { return WaitForSingleObject(head->event, 0) == WAIT_OBJECT_0; }

BOOL ZQ_STDCALL IdIs(tZQQELM* e, void* context) { return reinterpret_cast<Rec*>(e)->id == *static_cast<int*>(context); }
BOOL ZQ_STDCALL Never(tZQQELM*, void*) { return FALSE; }

int IdOf(tZQQELM* e) { return e ? reinterpret_cast<Rec*>(e)->id : -1; }

class QueueOrder : public ::testing::Test {
 protected:
  void SetUp() override {
    for (int i = 0; i < 5; ++i) recs[i].id = 'a' + i;
  }
  void Fill(const char* ids) {
    for (; *ids; ++ids) ZqQueueInsert(&q, &recs[*ids - 'a'].link);
  }
  tZQQELM* R(char id) { return &recs[id - 'a'].link; }
  std::vector<int> Order() { return Ids(&q); }
  static std::vector<int> L(const char* s) { return std::vector<int>(s, s + std::strlen(s)); }
  Queue q;
  Rec recs[5];
};

TEST_F(QueueOrder, InsertAndMove) {
  Fill("abc");
  EXPECT_TRUE(ZqQueueMoveToHead(&q, R('c')));
  EXPECT_EQ(Order(), L("cab"));
  EXPECT_FALSE(ZqQueueMoveToHead(&q, R('c'))) << "already at the head";
  EXPECT_TRUE(ZqQueueMoveToTail(&q, R('a')));
  EXPECT_EQ(Order(), L("cba"));
  EXPECT_FALSE(ZqQueueMoveToTail(&q, R('a')));
  EXPECT_FALSE(ZqQueueMoveToTail(&q, R('e'))) << "not in the queue";
  ZqQueueInsertHead(&q, R('d'));
  EXPECT_EQ(Order(), L("dcba"));
}

TEST_F(QueueOrder, PredicateInsertionFromEitherEnd) {
  Fill("abc");
  int b = 'b';
  EXPECT_EQ(IdOf(ZqQueueInsertExRev(&q, IdIs, &b, R('d'))), 'b');
  EXPECT_EQ(Order(), L("adbc")) << "before the found element, also from the tail";
  EXPECT_EQ(IdOf(ZqQueueInsertEx(&q, IdIs, &b, R('e'))), 'b');
  EXPECT_EQ(Order(), L("adebc"));

  Queue other;
  Rec x, y;
  x.id = 'x';
  y.id = 'y';
  EXPECT_EQ(ZqQueueInsertEx(&other, Never, nullptr, &x.link), nullptr) << "empty: at the tail";
  EXPECT_EQ(ZqQueueInsertExRev(&other, Never, nullptr, &y.link), nullptr) << "no hit: at the tail";
  EXPECT_EQ(Ids(&other), L("xy"));
  EXPECT_TRUE(Signalled(&other));
  int xid = 'x';
  EXPECT_EQ(ZqQueueInsertEx(&other, IdIs, &xid, nullptr), &x.link) << "a null element only searches";
  EXPECT_EQ(Ids(&other), L("xy"));
  while (ZqQueueRemove(&other, 0)) {
  }
}

TEST_F(QueueOrder, FindRemoveAndMoveByPredicate) {
  recs[3].id = 'a';  // two elements for each of a and b: a b c a' b'
  recs[4].id = 'b';
  for (Rec& r : recs) ZqQueueInsert(&q, &r.link);
  int a = 'a', b = 'b', z = 'z';
  EXPECT_EQ(ZqQueueFind(&q, IdIs, &a), &recs[0].link);
  EXPECT_EQ(ZqQueueFindRev(&q, IdIs, &a), &recs[3].link);
  EXPECT_EQ(ZqQueueFind(&q, IdIs, &z), nullptr);
  EXPECT_EQ(ZqQueueFindAndMoveToTail(&q, IdIs, &a), &recs[0].link);  // b c a' b' a
  EXPECT_EQ(ZqQueueFindAndMoveToHead(&q, IdIs, &b), &recs[1].link) << "returned even when already there";
  EXPECT_EQ(ZqQueueFindAndRemoveRev(&q, IdIs, &b), &recs[4].link);  // b c a' a
  EXPECT_EQ(recs[4].link.next, nullptr);
  EXPECT_EQ(recs[4].link.prev, nullptr);
  EXPECT_EQ(Order(), L("bcaa"));
  EXPECT_EQ(ZqQueueFindAndRemove(&q, IdIs, &a), &recs[3].link);
  EXPECT_EQ(ZqQueueFindAndRemove(&q, IdIs, &z), nullptr);
  EXPECT_EQ(ZqQueueRemoveTail(&q, 0), &recs[0].link);
  EXPECT_EQ(ZqQueueRemove(&q, 0), &recs[1].link);
  EXPECT_TRUE(Signalled(&q));
  EXPECT_EQ(ZqQueueFindAndRemove(&q, IdIs, &(recs[2].id)), &recs[2].link);
  EXPECT_FALSE(Signalled(&q)) << "emptied by a find-and-remove: the event is reset";
}

TEST_F(QueueOrder, MembershipTestsTheLinksFirst) {
  Fill("ab");
  EXPECT_TRUE(IsInZqQueue(&q, R('a')));
  EXPECT_FALSE(IsInZqQueue(&q, R('c')));
  EXPECT_EQ(ZqQueueRemove(&q, 0), R('a'));
  EXPECT_FALSE(IsInZqQueue(&q, R('a')));
  // A removed element is refused without the lock: prove it by holding the
  // lock on another thread.
  std::atomic<bool> held{false}, release{false};
  std::thread holder([&] {
    EnterCriticalSection(&q.head.lock);
    held = true;
    while (!release) Sleep(1);
    LeaveCriticalSection(&q.head.lock);
  });
  while (!held) Sleep(1);
  EXPECT_FALSE(IsInZqQueue(&q, R('a')));
  release = true;
  holder.join();
  EXPECT_EQ(ZqQueueRemove(&q, 0), R('b'));
}

// --- The event ----------------------------------------------------------------------

TEST(QueueEvent, SignalledExactlyWhileNotEmpty) {
  Queue q;
  Rec a, b;
  EXPECT_FALSE(Signalled(&q));
  EXPECT_FALSE(ZqQueueWait(&q, 0));
  EXPECT_EQ(ZqQueueRemove(&q, 0), nullptr) << "no wait on an empty queue with timeout 0";
  ZqQueueInsert(&q, &a.link);
  EXPECT_TRUE(Signalled(&q));
  EXPECT_TRUE(ZqQueueWait(&q, INFINITE));
  ZqQueueInsertHead(&q, &b.link);
  EXPECT_EQ(ZqQueueRemove(&q, 0), &b.link);
  EXPECT_TRUE(Signalled(&q));
  EXPECT_EQ(ZqQueueRemove(&q, INFINITE), &a.link);
  EXPECT_FALSE(Signalled(&q));
  EXPECT_EQ(a.link.next, nullptr);
  EXPECT_FALSE(ZqQueueWait(&q, 5));
  EXPECT_EQ(ZqQueueRemoveTail(&q, 5), nullptr);
}

TEST(QueueEvent, FlushLeavesTheEventSetUntilTheNextRemoval) {
  Queue q;
  Rec a, b, c;
  ZqQueueInsert(&q, &a.link);
  ZqQueueInsert(&q, &b.link);
  ZqQueueFlush(&q);
  EXPECT_EQ(Ids(&q), std::vector<int>{});
  EXPECT_EQ(a.link.next, &b.link) << "the elements keep their links";
  EXPECT_TRUE(Signalled(&q));
  DWORD result = 12345;
  EXPECT_EQ(ZqQueueRemoveEx(&q, nullptr, 0, 0, INFINITE, &result), nullptr) << "the set event ends the wait";
  EXPECT_EQ(result, WAIT_OBJECT_0);
  ZqQueueInsert(&q, &c.link);
  EXPECT_EQ(ZqQueueRemove(&q, 0), &c.link);
  EXPECT_FALSE(Signalled(&q));
  EXPECT_EQ(ZqQueueRemoveEx(&q, nullptr, 0, 0, 5, &result), nullptr);
  EXPECT_EQ(result, WAIT_TIMEOUT);
}

TEST(QueueEvent, InitialiseAgainKeepsTheEventAndDeleteAllowsANewStart) {
  Queue q;
  Rec a;
  HANDLE event = q.head.event;
  ZqQueueInsert(&q, &a.link);
  EXPECT_TRUE(ZqQueueInitialize(&q));
  EXPECT_EQ(q.head.event, event);
  EXPECT_EQ(ZqQueueRemove(&q, 0), nullptr) << "the links were emptied";
  ZqQueueDelete(&q);
  EXPECT_EQ(q.head.event, nullptr);
  ZqQueueDelete(&q);  // a second delete does nothing
  EXPECT_EQ(ZqQueueRemove(&q, INFINITE), nullptr) << "a deleted queue never waits";
  EXPECT_FALSE(ZqQueueWait(&q, INFINITE));
  EXPECT_EQ(ZqQueueRemoveTail(&q, INFINITE), nullptr);
  ASSERT_TRUE(ZqQueueInitialize(&q));
  EXPECT_NE(q.head.event, nullptr);
  Rec b;
  ZqQueueInsert(&q, &b.link);
  EXPECT_EQ(ZqQueueRemove(&q, INFINITE), &b.link);
}

// --- Waiting on more than the queue ------------------------------------------------------------

struct Events {
  std::vector<HANDLE> handles;
  explicit Events(int n) {
    for (int i = 0; i < n; ++i) handles.push_back(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  }
  ~Events() {
    for (HANDLE h : handles) CloseHandle(h);
  }
};

TEST(QueueRemoveEx, FurtherHandlesEndTheWaitAndTellWhich) {
  Queue q;
  Events events(63);
  DWORD result = 12345;
  EXPECT_EQ(ZqQueueRemoveEx(&q, events.handles.data(), 63, 0, INFINITE, &result), nullptr);
  EXPECT_EQ(result, 12345u) << "63 handles are refused before any wait";

  SetEvent(events.handles[61]);
  EXPECT_EQ(ZqQueueRemoveEx(&q, events.handles.data(), 62, 0, INFINITE, &result), nullptr);
  EXPECT_EQ(result, WAIT_OBJECT_0 + 62) << "62 handles and the queue: 63 objects";

  Rec a;
  ZqQueueInsert(&q, &a.link);
  EXPECT_EQ(ZqQueueRemoveEx(&q, events.handles.data(), 62, 0, INFINITE, &result), &a.link)
      << "an element is taken before any wait";

  ResetEvent(events.handles[61]);
  EXPECT_EQ(ZqQueueRemoveEx(&q, events.handles.data(), 2, 0, 5, &result), nullptr);
  EXPECT_EQ(result, WAIT_TIMEOUT);
}

std::atomic<int> g_apcRuns{0};
HANDLE g_apcEvent = nullptr;
void ZQ_STDCALL CountApc(ULONG_PTR) {
  ++g_apcRuns;
  SetEvent(g_apcEvent);
}

TEST(QueueRemoveEx, AlertableRemovalKeepsWaitingThroughQueuedCalls) {
  Queue q;
  Rec a;
  g_apcRuns = 0;
  g_apcEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  ASSERT_NE(QueueUserAPC(CountApc, GetCurrentThread(), 0), 0u);
  // The element arrives only after the queued call has run inside the wait.
  std::thread producer([&] {
    WaitForSingleObject(g_apcEvent, INFINITE);
    ZqQueueInsert(&q, &a.link);
  });
  EXPECT_EQ(ZqQueueRemoveAlertable(&q, 30000), &a.link);
  producer.join();
  EXPECT_EQ(g_apcRuns, 1);

  // Alertable without "keep going": the call ends the wait.
  ASSERT_NE(QueueUserAPC(CountApc, GetCurrentThread(), 0), 0u);
  DWORD result = 0;
  EXPECT_EQ(ZqQueueRemoveEx(&q, nullptr, 0, ZQQUEUE_ALERTABLE, 30000, &result), nullptr);
  EXPECT_EQ(result, WAIT_IO_COMPLETION);
  EXPECT_EQ(g_apcRuns, 2);
  CloseHandle(g_apcEvent);
}

tZQQHEAD* g_windowQueue = nullptr;
Rec g_windowRec;
LRESULT InsertingProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  if (message == WM_USER) {
    ZqQueueInsert(g_windowQueue, &g_windowRec.link);
    return 7;
  }
  return DefWindowProcW(window, message, wParam, lParam);
}

TEST(QueueRemoveEx, KeepGoingServesSentMessagesDuringTheWait) {
  Queue q;
  g_windowQueue = &q;
  HWND window = ZqCreateWindow(InsertingProc, 0);
  ASSERT_NE(window, nullptr);
  LRESULT answer = 0;
  std::thread sender([&] { answer = SendMessageW(window, WM_USER, 0, 0); });
  DWORD result = 0;
  EXPECT_EQ(ZqQueueRemoveEx(&q, nullptr, 0, ZQQUEUE_KEEPGOING, 30000, &result), &g_windowRec.link);
  sender.join();
  EXPECT_EQ(answer, 7);
  DestroyWindow(window);
}

TEST(QueueRemoveEx, AMessageEndsTheWaitWithoutKeepGoing) {
  Queue q;
  MSG message;
  PeekMessageW(&message, nullptr, 0, 0, PM_NOREMOVE);  // make sure the thread has a queue
  ASSERT_TRUE(PostMessageW(nullptr, WM_USER + 1, 0, 0));
  DWORD result = 0;
  EXPECT_EQ(ZqQueueRemoveEx(&q, nullptr, 0, QS_POSTMESSAGE, 30000, &result), nullptr);
  EXPECT_EQ(result, WAIT_OBJECT_0 + 1) << "the message's value is count + 1";
  while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
  }
}

// --- Many threads -----------------------------------------------------------------------------

TEST(QueueThreads, DeletionWakesEveryInfiniteWaiter) {
  auto q = std::make_unique<Queue>();
  constexpr int kWaiters = 4;
  std::atomic<int> started{0}, returnedNull{0};
  std::vector<std::thread> waiters;
  for (int i = 0; i < kWaiters; ++i) {
    waiters.emplace_back([&, i] {
      ++started;
      tZQQELM* got = nullptr;
      if (i == 0) got = ZqQueueRemove(&q->head, INFINITE);
      if (i == 1) got = ZqQueueRemoveTail(&q->head, INFINITE);
      if (i == 2) got = ZqQueueRemoveAlertable(&q->head, INFINITE);
      if (i == 3 && ZqQueueWait(&q->head, INFINITE)) got = q->head.next;
      if (!got) ++returnedNull;
    });
  }
  while (started < kWaiters) Sleep(1);
  Sleep(20);  // most likely all inside their waits now; either way the result is the same
  ZqQueueDelete(&q->head);
  for (auto& t : waiters) t.join();
  EXPECT_EQ(returnedNull, kWaiters);
}

TEST(QueueThreads, ProducersAndConsumersDeliverEveryElementOnce) {
  constexpr int kProducers = 4, kConsumers = 3, kEach = 2000;
  Queue q;
  std::vector<Rec> recs(kProducers * kEach);
  for (size_t i = 0; i < recs.size(); ++i) recs[i].id = static_cast<int>(i);
  std::vector<std::atomic<int>> seen(recs.size());
  std::atomic<int> delivered{0}, foreign{0};

  std::vector<std::thread> consumers;
  for (int c = 0; c < kConsumers; ++c) {
    consumers.emplace_back([&, c] {
      for (;;) {
        tZQQELM* e = nullptr;
        if (c == 0) e = ZqQueueRemove(&q, INFINITE);
        if (c == 1) e = ZqQueueRemoveTail(&q, INFINITE);
        if (c == 2) e = ZqQueueRemoveEx(&q, nullptr, 0, ZQQUEUE_KEEPGOING | ZQQUEUE_ALERTABLE, INFINITE, nullptr);
        if (!e) {
          if (!q.head.event) return;  // deleted
          continue;                   // a competitor was faster
        }
        if (e->next || e->prev) ++foreign;  // links must be cleared on removal
        ++seen[reinterpret_cast<Rec*>(e)->id];
        ++delivered;
      }
    });
  }
  std::vector<std::thread> producers;
  for (int p = 0; p < kProducers; ++p) {
    producers.emplace_back([&, p] {
      for (int i = 0; i < kEach; ++i) {
        Rec& r = recs[p * kEach + i];
        if (i % 3 == 0)
          ZqQueueInsertHead(&q, &r.link);
        else
          ZqQueueInsert(&q, &r.link);
      }
    });
  }
  for (auto& t : producers) t.join();
  while (delivered < static_cast<int>(recs.size())) Sleep(1);
  ZqQueueDelete(&q);  // the consumers wait with an infinite timeout now
  for (auto& t : consumers) t.join();

  EXPECT_EQ(delivered, static_cast<int>(recs.size()));
  EXPECT_EQ(foreign, 0);
  int wrong = 0;
  for (auto& s : seen) wrong += s != 1;
  EXPECT_EQ(wrong, 0) << "every element exactly once";
}

}  // namespace
