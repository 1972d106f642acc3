#include "kernel/queue.h"

#include "platform/atomic.h"
#include "platform/message.h"
#include "platform/time.h"

namespace {

tZQQELM* Sentinel(tZQQHEAD* head) { return reinterpret_cast<tZQQELM*>(head); }

// A head that was never initialised has null links: it is empty as well.
bool IsEmpty(tZQQHEAD* head) { return head->next == nullptr || head->next == Sentinel(head); }

// Waiters read the event without the lock; deletion clears it atomically.
HANDLE LoadEvent(tZQQHEAD* head) { return __atomic_load_n(&head->event, __ATOMIC_ACQUIRE); }

class Locked {
 public:
  explicit Locked(tZQQHEAD* head) : head_(head) { EnterCriticalSection(&head_->lock); }
  ~Locked() { LeaveCriticalSection(&head_->lock); }
  Locked(const Locked&) = delete;
  Locked& operator=(const Locked&) = delete;

 private:
  tZQQHEAD* head_;
};

void EmptyLinks(tZQQHEAD* head) { head->next = head->prev = Sentinel(head); }

// Links `element` in front of `before` (which may be the head: the tail).
void LinkBefore(tZQQHEAD* head, tZQQELM* before, tZQQELM* element) {
  bool wasEmpty = IsEmpty(head);
  if (head->next == nullptr) EmptyLinks(head);
  element->next = before;
  element->prev = before->prev;
  before->prev->next = element;
  before->prev = element;
  if (wasEmpty) SetEvent(head->event);
}

void Unlink(tZQQHEAD* head, tZQQELM* element) {
  element->prev->next = element->next;
  element->next->prev = element->prev;
  element->next = element->prev = nullptr;
  if (IsEmpty(head)) ResetEvent(head->event);
}

// Walks from the head (or from the tail) to the first element for which the
// predicate holds.
tZQQELM* FindLocked(tZQQHEAD* head, ZQQUEUEPREDICATE predicate, void* context, bool reverse) {
  if (IsEmpty(head) || !predicate) return nullptr;
  tZQQELM* end = Sentinel(head);
  for (tZQQELM* e = reverse ? head->prev : head->next; e != end; e = reverse ? e->prev : e->next)
    if (predicate(e, context)) return e;
  return nullptr;
}

bool ContainsLocked(tZQQHEAD* head, tZQQELM* element) {
  if (IsEmpty(head)) return false;
  for (tZQQELM* e = head->next; e != Sentinel(head); e = e->next)
    if (e == element) return true;
  return false;
}

tZQQELM* TakeFirstLocked(tZQQHEAD* head) {
  tZQQELM* first = head->next;
  Unlink(head, first);
  return first;
}

tZQQELM* InsertExImpl(tZQQHEAD* head, ZQQUEUEPREDICATE predicate, void* context, tZQQELM* element,
                      bool reverse) {
  Locked lock(head);
  tZQQELM* hit = FindLocked(head, predicate, context, reverse);
  if (element) {
    if (hit)
      LinkBefore(head, hit, element);
    else
      ZqQueueInsert(head, element);  // the lock is recursive
  }
  return hit;
}

tZQQELM* FindAndRemoveImpl(tZQQHEAD* head, ZQQUEUEPREDICATE predicate, void* context, bool reverse) {
  Locked lock(head);
  tZQQELM* hit = FindLocked(head, predicate, context, reverse);
  if (hit) Unlink(head, hit);
  return hit;
}

// Moves a queued element to the head or the tail; false when it already
// stands there.  The queue stays non-empty, so the event does not change.
bool MoveLocked(tZQQHEAD* head, tZQQELM* element, bool toHead) {
  if ((toHead ? head->next : head->prev) == element) return false;
  element->prev->next = element->next;
  element->next->prev = element->prev;
  tZQQELM* before = toHead ? head->next : Sentinel(head);
  element->next = before;
  element->prev = before->prev;
  before->prev->next = element;
  before->prev = element;
  return true;
}

tZQQELM* FindAndMoveImpl(tZQQHEAD* head, ZQQUEUEPREDICATE predicate, void* context, bool toHead) {
  Locked lock(head);
  tZQQELM* hit = FindLocked(head, predicate, context, false);
  if (hit) MoveLocked(head, hit, toHead);
  return hit;
}

BOOL MoveImpl(tZQQHEAD* head, tZQQELM* element, bool toHead) {
  if (!element) return FALSE;
  Locked lock(head);
  if (!ContainsLocked(head, element)) return FALSE;
  return MoveLocked(head, element, toHead) ? TRUE : FALSE;
}

}  // namespace

BOOL ZqQueueInitialize(tZQQHEAD* head) {
  if (!head) return FALSE;
  if (LoadEvent(head)) {
    Locked lock(head);
    EmptyLinks(head);
    return TRUE;
  }
  HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  if (!event) return FALSE;
  InitializeCriticalSection(&head->lock);
  EmptyLinks(head);
  __atomic_store_n(&head->event, event, __ATOMIC_RELEASE);
  return TRUE;
}

void ZqQueueDelete(tZQQHEAD* head) {
  if (!head) return;
  HANDLE event = InterlockedExchangePointer(&head->event, nullptr);
  if (!event) return;
  SetEvent(event);  // every waiter wakes and finds the event gone
  CloseHandle(event);
  // A thread inside an operation finishes before the links go.
  EnterCriticalSection(&head->lock);
  LeaveCriticalSection(&head->lock);
  EmptyLinks(head);
  DeleteCriticalSection(&head->lock);
}

void ZqQueueFlush(tZQQHEAD* head) {
  if (!head) return;
  Locked lock(head);
  EmptyLinks(head);
  SetEvent(head->event);
}

void ZqQueueInsert(tZQQHEAD* head, tZQQELM* element) {
  if (!head || !element) return;
  Locked lock(head);
  if (head->next == nullptr) EmptyLinks(head);
  LinkBefore(head, Sentinel(head), element);
}

void ZqQueueInsertHead(tZQQHEAD* head, tZQQELM* element) {
  if (!head || !element) return;
  Locked lock(head);
  if (head->next == nullptr) EmptyLinks(head);
  LinkBefore(head, head->next, element);
}

tZQQELM* ZqQueueInsertEx(tZQQHEAD* head, ZQQUEUEPREDICATE predicate, void* context, tZQQELM* element) {
  if (!head) return nullptr;
  return InsertExImpl(head, predicate, context, element, false);
}

tZQQELM* ZqQueueInsertExRev(tZQQHEAD* head, ZQQUEUEPREDICATE predicate, void* context, tZQQELM* element) {
  if (!head) return nullptr;
  return InsertExImpl(head, predicate, context, element, true);
}

tZQQELM* ZqQueueRemove(tZQQHEAD* head, DWORD timeout) {
  return ZqQueueRemoveEx(head, nullptr, 0, 0, timeout, nullptr);
}

tZQQELM* ZqQueueRemoveAlertable(tZQQHEAD* head, DWORD timeout) {
  return ZqQueueRemoveEx(head, nullptr, 0, ZQQUEUE_KEEPGOING | ZQQUEUE_ALERTABLE, timeout, nullptr);
}

tZQQELM* ZqQueueRemoveEx(tZQQHEAD* head, const HANDLE* handles, DWORD count, DWORD flags, DWORD timeout,
                         DWORD* result) {
  if (!head) return nullptr;
  if (handles && count > ZQQUEUE_MAX_HANDLES) return nullptr;
  if (!handles) count = 0;
  const bool finite = timeout != 0 && timeout != INFINITE;
  const DWORD started = finite ? GetTickCount() : 0;
  const bool keepGoing = (flags & ZQQUEUE_KEEPGOING) != 0;
  DWORD wakeMask = flags & ZQQUEUE_WAKEMASK;
  if (keepGoing) wakeMask |= QS_SENDMESSAGE;
  const DWORD waitFlags = (flags >> 16) & (MWMO_WAITALL | MWMO_ALERTABLE | MWMO_INPUTAVAILABLE);
  DWORD remaining = timeout;
  bool goOn = true;

  EnterCriticalSection(&head->lock);
  for (;;) {
    if (!IsEmpty(head)) {
      tZQQELM* first = TakeFirstLocked(head);
      LeaveCriticalSection(&head->lock);
      return first;
    }
    HANDLE event = LoadEvent(head);
    if (remaining == 0 || !event || !goOn) {
      LeaveCriticalSection(&head->lock);
      return nullptr;
    }
    LeaveCriticalSection(&head->lock);

    DWORD value;
    if (count == 0 && wakeMask == 0 && waitFlags == 0) {
      value = WaitForSingleObject(event, timeout);
      if (result) *result = value;
      // One wait with the whole time: whatever ended it, this is the last pass.
      goOn = false;
    } else {
      HANDLE objects[ZQQUEUE_MAX_HANDLES + 1];
      objects[0] = event;
      for (DWORD i = 0; i < count; ++i) objects[i + 1] = handles[i];
      value = MsgWaitForMultipleObjectsEx(count + 1, objects, remaining, wakeMask, waitFlags);
      if (result) *result = value;
      if (value == WAIT_OBJECT_0) {
        // The event: look again; only "keep going" waits once more when the
        // queue turns out empty.
        goOn = keepGoing;
      } else if (keepGoing && value == WAIT_IO_COMPLETION) {
        goOn = true;
      } else if (keepGoing && value == WAIT_OBJECT_0 + count + 1) {
        MSG message;
        PeekMessageW(&message, nullptr, 0, 0, PM_NOREMOVE | PM_QS_SENDMESSAGE);
        goOn = true;
      } else {
        // A timeout, one of the caller's handles, a failed wait, or anything
        // else without "keep going".
        return nullptr;
      }
    }
    if (value != WAIT_OBJECT_0) {
      if (!goOn) return nullptr;
    }
    if (finite) {
      DWORD elapsed = GetTickCount() - started;
      remaining = elapsed >= timeout ? 0 : timeout - elapsed;
    }
    if (!LoadEvent(head)) return nullptr;  // deleted during the wait
    EnterCriticalSection(&head->lock);
  }
}

tZQQELM* ZqQueueRemoveTail(tZQQHEAD* head, DWORD timeout) {
  if (!head) return nullptr;
  for (int pass = 0; pass < 2; ++pass) {
    {
      Locked lock(head);
      if (!IsEmpty(head)) {
        tZQQELM* last = head->prev;
        Unlink(head, last);
        return last;
      }
    }
    HANDLE event = LoadEvent(head);
    if (pass == 1 || timeout == 0 || !event) return nullptr;
    WaitForSingleObject(event, timeout);
    if (!LoadEvent(head)) return nullptr;  // deleted during the wait
  }
  return nullptr;
}

BOOL ZqQueueWait(tZQQHEAD* head, DWORD timeout) {
  if (!head) return FALSE;
  auto holds = [head] {
    tZQQELM* next = __atomic_load_n(&head->next, __ATOMIC_ACQUIRE);
    return next != nullptr && next != Sentinel(head);
  };
  if (holds()) return TRUE;
  HANDLE event = LoadEvent(head);
  if (timeout == 0 || !event) return FALSE;
  WaitForSingleObject(event, timeout);
  return holds() ? TRUE : FALSE;
}

tZQQELM* ZqQueueFind(tZQQHEAD* head, ZQQUEUEPREDICATE predicate, void* context) {
  if (!head) return nullptr;
  Locked lock(head);
  return FindLocked(head, predicate, context, false);
}

tZQQELM* ZqQueueFindRev(tZQQHEAD* head, ZQQUEUEPREDICATE predicate, void* context) {
  if (!head) return nullptr;
  Locked lock(head);
  return FindLocked(head, predicate, context, true);
}

tZQQELM* ZqQueueFindAndRemove(tZQQHEAD* head, ZQQUEUEPREDICATE predicate, void* context) {
  if (!head) return nullptr;
  return FindAndRemoveImpl(head, predicate, context, false);
}

tZQQELM* ZqQueueFindAndRemoveRev(tZQQHEAD* head, ZQQUEUEPREDICATE predicate, void* context) {
  if (!head) return nullptr;
  return FindAndRemoveImpl(head, predicate, context, true);
}

tZQQELM* ZqQueueFindAndMoveToHead(tZQQHEAD* head, ZQQUEUEPREDICATE predicate, void* context) {
  if (!head) return nullptr;
  return FindAndMoveImpl(head, predicate, context, true);
}

tZQQELM* ZqQueueFindAndMoveToTail(tZQQHEAD* head, ZQQUEUEPREDICATE predicate, void* context) {
  if (!head) return nullptr;
  return FindAndMoveImpl(head, predicate, context, false);
}

BOOL ZqQueueMoveToHead(tZQQHEAD* head, tZQQELM* element) {
  if (!head) return FALSE;
  return MoveImpl(head, element, true);
}

BOOL ZqQueueMoveToTail(tZQQHEAD* head, tZQQELM* element) {
  if (!head) return FALSE;
  return MoveImpl(head, element, false);
}

BOOL IsInZqQueue(tZQQHEAD* head, tZQQELM* element) {
  if (!head || !element || !element->next || !element->prev) return FALSE;
  Locked lock(head);
  return ContainsLocked(head, element) ? TRUE : FALSE;
}
