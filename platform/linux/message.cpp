// The window and message layer: per-thread queues, windows, sent messages
// and timers, all kept under the wait engine's lock so that a queue can be
// one of the objects of a multi-object wait.
#include <deque>
#include <unordered_map>

#include "platform/linux/object.h"
#include "platform/message.h"
#include "platform/process.h"
#include "platform/thread.h"
#include "platform/time.h"

namespace zq::platform {

namespace {

// A message sent from another thread; signalled once answered.
class SentRecord : public Object {
 public:
  SentRecord(HWND w, UINT m, WPARAM wp, LPARAM lp)
      : Object(Kind::Event), window(w), message(m), wParam(wp), lParam(lp) {}
  bool IsSignaledFor(const Waiter&) const override { return answered; }

  const HWND window;
  const UINT message;
  const WPARAM wParam;
  const LPARAM lParam;
  LRESULT result = 0;    // under WaitLock
  bool answered = false;  // under WaitLock
};

struct Timer {
  HWND window;
  UINT_PTR id;
  UINT elapse;
  TIMERPROC procedure;
  Clock::time_point due;
};

bool TimerWanted(DWORD mask) { return (mask & QS_TIMER) != 0; }
bool PostedWanted(DWORD mask) { return (mask & (QS_POSTMESSAGE | QS_ALLPOSTMESSAGE)) != 0; }
bool SentWanted(DWORD mask) { return (mask & QS_SENDMESSAGE) != 0; }

class QueueObject : public Object {
 public:
  explicit QueueObject(DWORD thread) : Object(Kind::Queue), threadId(thread) {}

  bool IsSignaledFor(const Waiter& w) const override {
    if (PostedWanted(w.wakeMask) && (!posted.empty() || quit)) return true;
    if (SentWanted(w.wakeMask) && !sent.empty()) return true;
    if (TimerWanted(w.wakeMask) && !timers.empty()) {
      const Clock::time_point now = Clock::now();
      for (const Timer& t : timers) {
        if (t.due <= now) return true;
      }
    }
    return false;
  }

  Clock::time_point WakeTime(const Waiter& w) const override {
    Clock::time_point first = Clock::time_point::max();
    if (TimerWanted(w.wakeMask)) {
      for (const Timer& t : timers) first = std::min(first, t.due);
    }
    return first;
  }

  // Under WaitLock.
  const DWORD threadId;
  std::deque<MSG> posted;
  std::deque<Ref<SentRecord>> sent;
  std::vector<Timer> timers;
  bool quit = false;
  int quitCode = 0;
};

struct WindowRecord {
  WNDPROC procedure;
  LONG_PTR userData;
  QueueObject* queue;  // valid while the window exists
  bool destroying = false;
};

// Process-wide tables, under WaitLock; made once and never destroyed.
struct Tables {
  std::unordered_map<uintptr_t, WindowRecord> windows;
  std::unordered_map<DWORD, QueueObject*> queues;
  uintptr_t nextWindow = 0x10010;
  UINT_PTR nextThreadTimer = 0x7F00;
};

Tables& T() {
  static Tables* tables = new Tables;
  return *tables;
}

const HWND kThreadMessagesOnly = reinterpret_cast<HWND>(static_cast<intptr_t>(-1));

WindowRecord* FindWindow(HWND window) {
  auto it = T().windows.find(reinterpret_cast<uintptr_t>(window));
  return it == T().windows.end() ? nullptr : &it->second;
}

// The window's record, or null with ERROR_INVALID_WINDOW_HANDLE.
WindowRecord* FindWindowOrFail(HWND window) {
  WindowRecord* w = FindWindow(window);
  if (w == nullptr) SetLastError(ERROR_INVALID_WINDOW_HANDLE);
  return w;
}

// A window of the calling thread's, or null with the error: only its owner
// may run its procedure or destroy it.
WindowRecord* FindOwnWindowOrFail(HWND window) {
  WindowRecord* w = FindWindowOrFail(window);
  if (w != nullptr && w->queue->threadId != GetCurrentThreadId()) {
    SetLastError(ERROR_ACCESS_DENIED);
    return nullptr;
  }
  return w;
}

// The queue that messages and timers for `window` go to: `own` when given
// (the caller's queue, taken before the lock, for a null window), else the
// window's; null with the error for an unknown window.
QueueObject* TargetQueueOrFail(QueueObject* own, HWND window) {
  if (own != nullptr) return own;
  WindowRecord* w = FindWindowOrFail(window);
  return w != nullptr ? w->queue : nullptr;
}

// The window is gone: its record, its timers and what was posted to it.
void ForgetWindow(QueueObject* q, HWND window) {
  T().windows.erase(reinterpret_cast<uintptr_t>(window));
  std::erase_if(q->timers, [&](const Timer& t) { return t.window == window; });
  std::erase_if(q->posted, [&](const MSG& m) { return m.hwnd == window; });
}

// The calling thread's queue; on thread exit its windows disappear, its
// timers stop and the threads waiting for answers from it get 0.
struct QueueSlot {
  Ref<QueueObject> queue;
  ~QueueSlot() {
    if (!queue) return;
    std::lock_guard<std::mutex> guard(WaitLock());
    Tables& t = T();
    t.queues.erase(queue->threadId);
    std::erase_if(t.windows, [&](const auto& entry) { return entry.second.queue == queue.get(); });
    for (Ref<SentRecord>& r : queue->sent) {
      r->answered = true;
      Wake(r.get());
    }
    queue->sent.clear();
    queue->posted.clear();
    queue->timers.clear();
  }
};

thread_local QueueSlot t_queue;

QueueObject* CurrentQueue() {
  if (!t_queue.queue) {
    // Make sure the thread object outlives the queue on this thread.
    CurrentThreadObject();
    Ref<QueueObject> q = MakeRef<QueueObject>(GetCurrentThreadId());
    std::lock_guard<std::mutex> guard(WaitLock());
    T().queues[q->threadId] = q.get();
    t_queue.queue = std::move(q);
  }
  return t_queue.queue.get();
}

// Hands the messages sent from other threads to their procedures.
void ServeSentMessages(QueueObject* q) {
  for (;;) {
    Ref<SentRecord> r;
    WNDPROC procedure = nullptr;
    {
      std::lock_guard<std::mutex> guard(WaitLock());
      if (q->sent.empty()) return;
      r = std::move(q->sent.front());
      q->sent.pop_front();
      WindowRecord* w = FindWindow(r->window);
      if (w && w->queue == q) procedure = w->procedure;
    }
    const LRESULT result =
        procedure ? procedure(r->window, r->message, r->wParam, r->lParam) : 0;
    std::lock_guard<std::mutex> guard(WaitLock());
    r->result = result;
    r->answered = true;
    Wake(r.get());
  }
}

bool Matches(const MSG& m, HWND window, UINT first, UINT last) {
  if (window == kThreadMessagesOnly) {
    if (m.hwnd != nullptr) return false;
  } else if (window != nullptr && m.hwnd != window) {
    return false;
  }
  if (m.message == WM_QUIT || (first == 0 && last == 0)) return true;
  return m.message >= first && m.message <= last;
}

bool Peek(QueueObject* q, MSG* out, HWND window, UINT first, UINT last, UINT flags) {
  DWORD kinds = flags >> 16;
  if (kinds == 0) kinds = QS_ALLINPUT;
  const bool remove = (flags & PM_REMOVE) != 0;
  if (SentWanted(kinds)) ServeSentMessages(q);

  std::lock_guard<std::mutex> guard(WaitLock());
  if (PostedWanted(kinds)) {
    for (auto it = q->posted.begin(); it != q->posted.end(); ++it) {
      if (!Matches(*it, window, first, last)) continue;
      *out = *it;
      if (remove) q->posted.erase(it);
      return true;
    }
    if (q->quit) {
      *out = MSG{nullptr, WM_QUIT, static_cast<WPARAM>(q->quitCode), 0, GetTickCount(), {0, 0}};
      if (remove) q->quit = false;
      return true;
    }
  }
  if (TimerWanted(kinds) && !q->timers.empty()) {
    const MSG probe{nullptr, WM_TIMER, 0, 0, 0, {0, 0}};
    const Clock::time_point now = Clock::now();
    for (Timer& t : q->timers) {
      if (t.due > now) continue;
      MSG m = probe;
      m.hwnd = t.window;
      if (!Matches(m, window, first, last)) continue;
      m.wParam = t.id;
      m.lParam = reinterpret_cast<LPARAM>(t.procedure);
      m.time = GetTickCount();
      *out = m;
      if (remove) t.due = now + std::chrono::milliseconds(t.elapse);
      return true;
    }
  }
  return false;
}

UINT ClampElapse(UINT elapse) {
  return std::min(std::max(elapse, USER_TIMER_MINIMUM), USER_TIMER_MAXIMUM);
}

}  // namespace

}  // namespace zq::platform

using namespace zq::platform;

HWND ZqCreateWindow(WNDPROC procedure, LONG_PTR userData) {
  if (procedure == nullptr) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  QueueObject* q = CurrentQueue();
  HWND window;
  {
    std::lock_guard<std::mutex> guard(WaitLock());
    Tables& t = T();
    window = reinterpret_cast<HWND>(t.nextWindow);
    t.nextWindow += 4;
    t.windows.emplace(reinterpret_cast<uintptr_t>(window), WindowRecord{procedure, userData, q});
  }
  if (procedure(window, WM_CREATE, 0, userData) == -1) {
    std::lock_guard<std::mutex> guard(WaitLock());
    ForgetWindow(q, window);
    SetLastError(ERROR_SUCCESS);
    return nullptr;
  }
  return window;
}

BOOL DestroyWindow(HWND window) {
  WNDPROC procedure;
  QueueObject* q;
  {
    std::lock_guard<std::mutex> guard(WaitLock());
    WindowRecord* w = FindOwnWindowOrFail(window);
    if (w == nullptr) return FALSE;
    if (w->destroying) return TRUE;
    w->destroying = true;
    procedure = w->procedure;
    q = w->queue;
  }
  procedure(window, WM_DESTROY, 0, 0);
  procedure(window, WM_NCDESTROY, 0, 0);
  std::lock_guard<std::mutex> guard(WaitLock());
  ForgetWindow(q, window);
  return TRUE;
}

BOOL IsWindow(HWND window) {
  std::lock_guard<std::mutex> guard(WaitLock());
  return FindWindow(window) != nullptr ? TRUE : FALSE;
}

DWORD GetWindowThreadProcessId(HWND window, DWORD* processId) {
  DWORD thread;
  {
    std::lock_guard<std::mutex> guard(WaitLock());
    WindowRecord* w = FindWindowOrFail(window);
    if (w == nullptr) return 0;
    thread = w->queue->threadId;
  }
  if (processId) *processId = GetCurrentProcessId();
  return thread;
}

LONG_PTR GetWindowLongPtrW(HWND window, int index) {
  std::lock_guard<std::mutex> guard(WaitLock());
  WindowRecord* w = FindWindowOrFail(window);
  if (w == nullptr) return 0;
  switch (index) {
    case GWLP_USERDATA: return w->userData;
    case GWLP_WNDPROC: return reinterpret_cast<LONG_PTR>(w->procedure);
    default: SetLastError(ERROR_INVALID_PARAMETER); return 0;
  }
}

LONG_PTR SetWindowLongPtrW(HWND window, int index, LONG_PTR value) {
  std::lock_guard<std::mutex> guard(WaitLock());
  WindowRecord* w = FindWindowOrFail(window);
  if (w == nullptr) return 0;
  SetLastError(ERROR_SUCCESS);
  LONG_PTR previous;
  switch (index) {
    case GWLP_USERDATA:
      previous = w->userData;
      w->userData = value;
      return previous;
    case GWLP_WNDPROC:
      if (value == 0) break;
      previous = reinterpret_cast<LONG_PTR>(w->procedure);
      w->procedure = reinterpret_cast<WNDPROC>(value);
      return previous;
    default:
      break;
  }
  SetLastError(ERROR_INVALID_PARAMETER);
  return 0;
}

LRESULT DefWindowProcW(HWND window, UINT message, WPARAM, LPARAM) {
  if (message == WM_CLOSE) DestroyWindow(window);
  return 0;
}

BOOL PostMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  QueueObject* own = window == nullptr ? CurrentQueue() : nullptr;
  const MSG m{window, message, wParam, lParam, GetTickCount(), {0, 0}};
  std::lock_guard<std::mutex> guard(WaitLock());
  QueueObject* q = TargetQueueOrFail(own, window);
  if (q == nullptr) return FALSE;
  q->posted.push_back(m);
  Wake(q);
  return TRUE;
}

BOOL PostThreadMessageW(DWORD threadId, UINT message, WPARAM wParam, LPARAM lParam) {
  const MSG m{nullptr, message, wParam, lParam, GetTickCount(), {0, 0}};
  std::lock_guard<std::mutex> guard(WaitLock());
  auto it = T().queues.find(threadId);
  if (it == T().queues.end()) {
    SetLastError(ERROR_INVALID_THREAD_ID);
    return FALSE;
  }
  it->second->posted.push_back(m);
  Wake(it->second);
  return TRUE;
}

LRESULT SendMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  QueueObject* own = CurrentQueue();
  Ref<SentRecord> record;
  WNDPROC direct = nullptr;
  {
    std::lock_guard<std::mutex> guard(WaitLock());
    WindowRecord* w = FindWindowOrFail(window);
    if (w == nullptr) return 0;
    if (w->queue == own) {
      direct = w->procedure;
    } else {
      record = MakeRef<SentRecord>(window, message, wParam, lParam);
      w->queue->sent.push_back(record);
      Wake(w->queue);
    }
  }
  if (direct) return direct(window, message, wParam, lParam);

  // Wait for the answer, serving what other threads send to this one
  // meanwhile (the owner may call back before it answers).
  Object* objects[2] = {record.get(), own};
  for (;;) {
    const DWORD r = WaitForObjects(2, objects, false, INFINITE, false, QS_SENDMESSAGE);
    if (r == WAIT_OBJECT_0) break;
    ServeSentMessages(own);
  }
  std::lock_guard<std::mutex> guard(WaitLock());
  return record->result;
}

BOOL GetMessageW(MSG* message, HWND window, UINT first, UINT last) {
  if (message == nullptr) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return -1;
  }
  if (window != nullptr && window != kThreadMessagesOnly && !IsWindow(window)) {
    SetLastError(ERROR_INVALID_WINDOW_HANDLE);
    return -1;
  }
  QueueObject* q = CurrentQueue();
  Object* objects[1] = {q};
  for (;;) {
    if (Peek(q, message, window, first, last, PM_REMOVE)) {
      return message->message == WM_QUIT ? FALSE : TRUE;
    }
    WaitForObjects(1, objects, false, INFINITE, false, QS_ALLINPUT);
  }
}

BOOL PeekMessageW(MSG* message, HWND window, UINT first, UINT last, UINT remove) {
  if (message == nullptr) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
  }
  return Peek(CurrentQueue(), message, window, first, last, remove) ? TRUE : FALSE;
}

BOOL TranslateMessage(const MSG*) { return FALSE; }

LRESULT DispatchMessageW(const MSG* message) {
  if (message == nullptr) return 0;
  if (message->message == WM_TIMER && message->lParam != 0) {
    reinterpret_cast<TIMERPROC>(message->lParam)(message->hwnd, WM_TIMER, message->wParam,
                                                 GetTickCount());
    return 0;
  }
  if (message->hwnd == nullptr) return 0;
  WNDPROC procedure;
  {
    std::lock_guard<std::mutex> guard(WaitLock());
    WindowRecord* w = FindOwnWindowOrFail(message->hwnd);
    if (w == nullptr) return 0;
    procedure = w->procedure;
  }
  return procedure(message->hwnd, message->message, message->wParam, message->lParam);
}

void PostQuitMessage(int exitCode) {
  QueueObject* q = CurrentQueue();
  std::lock_guard<std::mutex> guard(WaitLock());
  q->quit = true;
  q->quitCode = exitCode;
  Wake(q);
}

BOOL WaitMessage() {
  Object* objects[1] = {CurrentQueue()};
  return WaitForObjects(1, objects, false, INFINITE, false, QS_ALLINPUT) == WAIT_OBJECT_0;
}

UINT_PTR SetTimer(HWND window, UINT_PTR id, UINT elapse, TIMERPROC procedure) {
  QueueObject* own = window == nullptr ? CurrentQueue() : nullptr;
  const UINT ms = ClampElapse(elapse);
  const Clock::time_point due = Clock::now() + std::chrono::milliseconds(ms);
  std::lock_guard<std::mutex> guard(WaitLock());
  QueueObject* q = TargetQueueOrFail(own, window);
  if (q == nullptr) return 0;
  Timer* existing = nullptr;
  if (window != nullptr || id != 0) {
    for (Timer& t : q->timers) {
      if (t.window == window && t.id == id) existing = &t;
    }
  }
  UINT_PTR result = id;
  if (existing) {
    existing->elapse = ms;
    existing->procedure = procedure;
    existing->due = due;
  } else {
    if (window == nullptr) result = T().nextThreadTimer++;
    q->timers.push_back(Timer{window, result, ms, procedure, due});
  }
  // A thread waiting on this queue recomputes how long it may sleep.
  for (Waiter* w : q->waiters) Nudge(w);
  return window != nullptr && result == 0 ? 1 : result;
}

BOOL KillTimer(HWND window, UINT_PTR id) {
  QueueObject* own = window == nullptr ? CurrentQueue() : nullptr;
  std::lock_guard<std::mutex> guard(WaitLock());
  QueueObject* q = TargetQueueOrFail(own, window);
  if (q == nullptr) return FALSE;
  const size_t removed =
      std::erase_if(q->timers, [&](const Timer& t) { return t.window == window && t.id == id; });
  if (removed == 0) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
  }
  return TRUE;
}

DWORD MsgWaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL waitAll,
                                DWORD milliseconds, DWORD wakeMask) {
  return MsgWaitForMultipleObjectsEx(count, handles, milliseconds, wakeMask,
                                     waitAll ? MWMO_WAITALL : 0);
}

DWORD MsgWaitForMultipleObjectsEx(DWORD count, const HANDLE* handles, DWORD milliseconds,
                                  DWORD wakeMask, DWORD flags) {
  if (count >= MAXIMUM_WAIT_OBJECTS) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return WAIT_FAILED;
  }
  QueueObject* q = CurrentQueue();
  return WaitForHandles(count, handles, (flags & MWMO_WAITALL) != 0, milliseconds,
                        (flags & MWMO_ALERTABLE) != 0, q, wakeMask);
}
