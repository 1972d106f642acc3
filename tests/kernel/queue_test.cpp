// Queues: ordering operations, the event rule, the waits of ZqQueueRemoveEx
// with their flags, deletion under waiters, and many threads on one queue.
#include <gtest/gtest.h>

#include <atomic>
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

bool Signalled(tZQQHEAD* head) { return WaitForSingleObject(head->event, 0) == WAIT_OBJECT_0; }
BOOL ZQ_STDCALL IdIs(tZQQELM* e, void* context) { return reinterpret_cast<Rec*>(e)->id == *static_cast<int*>(context); }
BOOL ZQ_STDCALL Never(tZQQELM*, void*) { return FALSE; }

// Five records a to e; the tests speak of them by letter.
class QueueOrder : public ::testing::Test {
 protected:
  void Fill(const char* ids) {
    for (; *ids; ++ids) ZqQueueInsert(&q, R(*ids));
  }
  tZQQELM* R(char id) { return &recs[id - 'a'].link; }
  static char Id(tZQQELM* e) { return e ? static_cast<char>(reinterpret_cast<Rec*>(e)->id) : '-'; }
  std::string Order() {
    std::string s;
    for (tZQQELM* e = q.head.next; e != reinterpret_cast<tZQQELM*>(&q.head); e = e->next) s += Id(e);
    return s;
  }
  Queue q;
  Rec recs[5] = {{{}, 'a'}, {{}, 'b'}, {{}, 'c'}, {{}, 'd'}, {{}, 'e'}};
};

TEST_F(QueueOrder, InsertAndMove) {
  Fill("abc");
  EXPECT_TRUE(ZqQueueMoveToHead(&q, R('c')));
  EXPECT_EQ(Order(), "cab");
  EXPECT_FALSE(ZqQueueMoveToHead(&q, R('c'))) << "already at the head";
  EXPECT_TRUE(ZqQueueMoveToTail(&q, R('a')));
  EXPECT_FALSE(ZqQueueMoveToTail(&q, R('a')));
  EXPECT_FALSE(ZqQueueMoveToTail(&q, R('e'))) << "not in the queue";
  ZqQueueInsertHead(&q, R('d'));
  EXPECT_EQ(Order(), "dcba");
}

TEST_F(QueueOrder, PredicateInsertionFromEitherEnd) {
  Fill("abc");
  int b = 'b';
  EXPECT_EQ(Id(ZqQueueInsertExRev(&q, IdIs, &b, R('d'))), 'b');
  EXPECT_EQ(Order(), "adbc") << "before the found element, also from the tail";
  EXPECT_EQ(Id(ZqQueueInsertEx(&q, IdIs, &b, R('e'))), 'b');
  EXPECT_EQ(Order(), "adebc");
  int a = 'a';
  EXPECT_EQ(ZqQueueInsertEx(&q, IdIs, &a, nullptr), R('a')) << "a null element only searches";
  EXPECT_EQ(Order(), "adebc");

  Queue other;
  Rec x, y;
  EXPECT_EQ(ZqQueueInsertEx(&other, Never, nullptr, &x.link), nullptr) << "empty: at the tail";
  EXPECT_EQ(ZqQueueInsertExRev(&other, Never, nullptr, &y.link), nullptr) << "no hit: at the tail";
  EXPECT_TRUE(Signalled(&other));
  EXPECT_EQ(ZqQueueRemove(&other, 0), &x.link);
  EXPECT_EQ(ZqQueueRemove(&other, 0), &y.link);
}

TEST_F(QueueOrder, FindRemoveAndMoveByPredicate) {
  recs[3].id = 'a';  // two elements for each of a and b: a b c a' b'
  recs[4].id = 'b';
  for (Rec& r : recs) ZqQueueInsert(&q, &r.link);
  int a = 'a', b = 'b', c = 'c', z = 'z';
  EXPECT_EQ(ZqQueueFind(&q, IdIs, &a), &recs[0].link);
  EXPECT_EQ(ZqQueueFindRev(&q, IdIs, &a), &recs[3].link);
  EXPECT_EQ(ZqQueueFind(&q, IdIs, &z), nullptr);
  EXPECT_EQ(ZqQueueFindAndMoveToTail(&q, IdIs, &a), &recs[0].link);  // b c a' b' a
  EXPECT_EQ(ZqQueueFindAndMoveToHead(&q, IdIs, &b), &recs[1].link) << "returned even when already there";
  EXPECT_EQ(ZqQueueFindAndRemoveRev(&q, IdIs, &b), &recs[4].link);  // b c a' a
  EXPECT_EQ(recs[4].link.next, nullptr);
  EXPECT_EQ(recs[4].link.prev, nullptr);
  EXPECT_EQ(Order(), "bcaa");
  EXPECT_EQ(ZqQueueFindAndRemove(&q, IdIs, &a), &recs[3].link);
  EXPECT_EQ(ZqQueueFindAndRemove(&q, IdIs, &z), nullptr);
  EXPECT_EQ(ZqQueueRemoveTail(&q, 0), &recs[0].link);
  EXPECT_EQ(ZqQueueRemove(&q, 0), &recs[1].link);
  EXPECT_TRUE(Signalled(&q));
  EXPECT_EQ(ZqQueueFindAndRemove(&q, IdIs, &c), &recs[2].link);
  EXPECT_FALSE(Signalled(&q)) << "emptied by a find-and-remove: the event is reset";
}

TEST_F(QueueOrder, MembershipTestsTheLinksBeforeTheLock) {
  Fill("ab");
  EXPECT_TRUE(IsInZqQueue(&q, R('a')));
  EXPECT_FALSE(IsInZqQueue(&q, R('c')));
  EXPECT_EQ(ZqQueueRemove(&q, 0), R('a'));
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
}

// --- The event ----------------------------------------------------------------------

TEST(QueueEvent, SignalledExactlyWhileNotEmpty) {
  Queue q;
  Rec a, b;
  EXPECT_FALSE(ZqQueueWait(&q, 0));
  EXPECT_EQ(ZqQueueRemove(&q, 0), nullptr) << "no wait on an empty queue with timeout 0";
  ZqQueueInsert(&q, &a.link);
  EXPECT_TRUE(ZqQueueWait(&q, INFINITE));
  ZqQueueInsertHead(&q, &b.link);
  EXPECT_EQ(ZqQueueRemove(&q, 0), &b.link);
  EXPECT_TRUE(Signalled(&q));
  EXPECT_EQ(ZqQueueRemove(&q, INFINITE), &a.link);
  EXPECT_FALSE(Signalled(&q));
  EXPECT_EQ(ZqQueueRemoveTail(&q, 5), nullptr);
}

TEST(QueueEvent, FlushLeavesTheEventSetUntilTheNextRemoval) {
  Queue q;
  Rec a, b, c;
  ZqQueueInsert(&q, &a.link);
  ZqQueueInsert(&q, &b.link);
  ZqQueueFlush(&q);
  EXPECT_EQ(q.head.next, reinterpret_cast<tZQQELM*>(&q.head));
  EXPECT_EQ(a.link.next, &b.link) << "the elements keep their links";
  DWORD result = 12345;
  EXPECT_EQ(ZqQueueRemoveEx(&q, nullptr, 0, 0, INFINITE, &result), nullptr) << "the set event ends the wait";
  EXPECT_EQ(result, WAIT_OBJECT_0);
  ZqQueueInsert(&q, &c.link);
  EXPECT_EQ(ZqQueueRemove(&q, 0), &c.link);
  EXPECT_EQ(ZqQueueRemoveEx(&q, nullptr, 0, 0, 5, &result), nullptr);
  EXPECT_EQ(result, WAIT_TIMEOUT) << "reset by the removal";
}

TEST(QueueEvent, InitialiseAgainKeepsTheEventAndDeleteAllowsANewStart) {
  Queue q;
  Rec a, b;
  HANDLE event = q.head.event;
  ZqQueueInsert(&q, &a.link);
  EXPECT_TRUE(ZqQueueInitialize(&q));
  EXPECT_EQ(q.head.event, event);
  EXPECT_EQ(ZqQueueRemove(&q, 0), nullptr) << "the links were emptied";
  ZqQueueDelete(&q);
  ZqQueueDelete(&q);  // a second delete does nothing
  EXPECT_EQ(ZqQueueRemove(&q, INFINITE), nullptr) << "a deleted queue never waits";
  EXPECT_FALSE(ZqQueueWait(&q, INFINITE));
  EXPECT_EQ(ZqQueueRemoveTail(&q, INFINITE), nullptr);
  ASSERT_TRUE(ZqQueueInitialize(&q));
  ZqQueueInsert(&q, &b.link);
  EXPECT_EQ(ZqQueueRemove(&q, INFINITE), &b.link);
}

// --- Waiting on more than the queue ------------------------------------------------------------

TEST(QueueRemoveEx, FurtherHandlesEndTheWaitAndTellWhich) {
  Queue q;
  std::vector<HANDLE> events;
  for (int i = 0; i < 63; ++i) events.push_back(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  DWORD result = 12345;
  EXPECT_EQ(ZqQueueRemoveEx(&q, events.data(), 63, 0, INFINITE, &result), nullptr);
  EXPECT_EQ(result, 12345u) << "63 handles are refused before any wait";
  SetEvent(events[61]);
  EXPECT_EQ(ZqQueueRemoveEx(&q, events.data(), 62, 0, INFINITE, &result), nullptr);
  EXPECT_EQ(result, WAIT_OBJECT_0 + 62) << "62 handles and the queue: 63 objects";
  Rec a;
  ZqQueueInsert(&q, &a.link);
  EXPECT_EQ(ZqQueueRemoveEx(&q, events.data(), 62, 0, INFINITE, &result), &a.link)
      << "an element is taken before any wait";
  for (HANDLE h : events) CloseHandle(h);
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
  CloseHandle(g_apcEvent);
}

tZQQHEAD* g_windowQueue = nullptr;
Rec g_windowRec;
LRESULT InsertingProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  if (message != WM_USER) return DefWindowProcW(window, message, wParam, lParam);
  ZqQueueInsert(g_windowQueue, &g_windowRec.link);
  return 7;
}

TEST(QueueRemoveEx, KeepGoingServesSentMessagesAndWithoutItAMessageEndsTheWait) {
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

  ASSERT_TRUE(PostMessageW(nullptr, WM_USER + 1, 0, 0));
  EXPECT_EQ(ZqQueueRemoveEx(&q, nullptr, 0, QS_POSTMESSAGE, 30000, &result), nullptr);
  EXPECT_EQ(result, WAIT_OBJECT_0 + 1) << "the message's value is count + 1";
  MSG message;
  while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
  }
}

// --- Many threads -----------------------------------------------------------------------------

TEST(QueueThreads, DeletionWakesEveryInfiniteWaiter) {
  auto q = std::make_unique<Queue>();
  std::atomic<int> started{0}, returnedNull{0};
  std::vector<std::thread> waiters;
  for (int i = 0; i < 4; ++i) {
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
  while (started < 4) Sleep(1);
  Sleep(20);  // most likely all inside their waits now; either way the result is the same
  ZqQueueDelete(&q->head);
  for (auto& t : waiters) t.join();
  EXPECT_EQ(returnedNull, 4);
}

TEST(QueueThreads, ProducersAndConsumersDeliverEveryElementOnce) {
  constexpr int kProducers = 4, kConsumers = 3, kEach = 2000;
  Queue q;
  std::vector<Rec> recs(kProducers * kEach);
  for (size_t i = 0; i < recs.size(); ++i) recs[i].id = static_cast<int>(i);
  std::vector<std::atomic<int>> seen(recs.size());
  std::atomic<int> delivered{0}, linked{0};
  std::vector<std::thread> consumers;
  for (int c = 0; c < kConsumers; ++c) {
    consumers.emplace_back([&, c] {
      for (;;) {
        tZQQELM* e = c == 0   ? ZqQueueRemove(&q, INFINITE)
                     : c == 1 ? ZqQueueRemoveTail(&q, INFINITE)
                              : ZqQueueRemoveEx(&q, nullptr, 0, ZQQUEUE_KEEPGOING | ZQQUEUE_ALERTABLE, INFINITE, nullptr);
        if (!e) {
          if (!q.head.event) return;  // deleted
          continue;                   // a competitor was faster
        }
        if (e->next || e->prev) ++linked;  // links must be cleared on removal
        ++seen[reinterpret_cast<Rec*>(e)->id];
        ++delivered;
      }
    });
  }
  std::vector<std::thread> producers;
  for (int p = 0; p < kProducers; ++p) {
    producers.emplace_back([&, p] {
      for (int i = 0; i < kEach; ++i) {
        tZQQELM* e = &recs[p * kEach + i].link;
        i % 3 == 0 ? ZqQueueInsertHead(&q, e) : ZqQueueInsert(&q, e);
      }
    });
  }
  for (auto& t : producers) t.join();
  while (delivered < static_cast<int>(recs.size())) Sleep(1);
  ZqQueueDelete(&q);  // the consumers wait with an infinite timeout now
  for (auto& t : consumers) t.join();
  EXPECT_EQ(linked, 0);
  int wrong = 0;
  for (auto& s : seen) wrong += s != 1;
  EXPECT_EQ(wrong, 0) << "every element exactly once";
}

}  // namespace
