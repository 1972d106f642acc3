// tZQQHEAD: a blocking, intrusive, doubly linked queue for passing records
// between threads.
//
// The links (tZQQELM) stand at the very start of every record that travels,
// so insertion and removal allocate nothing and cannot fail.  The queue owns
// nothing: the head is the caller's record and the elements are the callers'
// records.  While an element is in no queue both its links are null; every
// remove clears them.
//
// The head is a sentinel of the same shape as an element: the ring closes
// through it, and an empty queue points at the head itself.  `event` is a
// manual-reset event that is signalled exactly while the queue holds
// elements, except after ZqQueueFlush (see there); it is null while the
// queue is not initialised or after ZqQueueDelete.
//
// Threads: any number may insert and remove.  Every link change, and every
// change of the event, happens under `lock` (recursive).  No operation waits
// while it holds the lock.  Predicates run with the lock held and must not
// wait; they answer non-zero for "yes".
#pragma once

#include <cstddef>

#include "base/types.h"
#include "platform/sync.h"

// The head takes part in the ring as an element, so the links of a head are
// written through tZQQELM pointers and read as tZQQHEAD fields.  The links
// type may therefore alias any record: without this an optimising compiler
// may keep a head's fields in registers across a change through the ring.
#if defined(__GNUC__)
#define ZQ_MAY_ALIAS __attribute__((__may_alias__))
#else
#define ZQ_MAY_ALIAS
#endif

struct ZQ_MAY_ALIAS tZQQELM {
  tZQQELM* next;  // next element, or the head
  tZQQELM* prev;  // previous element, or the head
};

struct tZQQHEAD {
  tZQQELM* next;          // first element; the head itself when empty
  tZQQELM* prev;          // last element; the head itself when empty
  CRITICAL_SECTION lock;  // guards the links
  HANDLE event;           // manual-reset; null when not initialised or deleted
};

// The head stands in the ring as an element.
static_assert(offsetof(tZQQHEAD, next) == offsetof(tZQQELM, next));
static_assert(offsetof(tZQQHEAD, prev) == offsetof(tZQQELM, prev));
static_assert(offsetof(tZQQHEAD, lock) == sizeof(tZQQELM));
static_assert(offsetof(tZQQHEAD, event) == sizeof(tZQQELM) + sizeof(CRITICAL_SECTION));

typedef BOOL(ZQ_STDCALL* ZQQUEUEPREDICATE)(tZQQELM* element, void* context);

// Flags of ZqQueueRemoveEx.
constexpr DWORD ZQQUEUE_WAKEMASK = 0x0000FFFF;   // message wake mask (QS_*) of the wait
constexpr DWORD ZQQUEUE_WAITALL = 0x10000;       // wait for all
constexpr DWORD ZQQUEUE_ALERTABLE = 0x20000;     // calls queued to the thread run during the wait
constexpr DWORD ZQQUEUE_INPUTAVAILABLE = 0x40000;
// Keep going: adds sent messages (64) to the wake mask; a message or a
// queued call runs and the wait goes on instead of ending.
constexpr DWORD ZQQUEUE_KEEPGOING = 0x80000;

// ZqQueueRemoveEx with non-null `handles` accepts at most this many.
constexpr DWORD ZQQUEUE_MAX_HANDLES = 62;

// 1, or 0 when the event cannot be created.  A second call keeps the event
// and the lock and only empties the links.  A deleted head may be
// initialised again.
ZQ_API BOOL ZqQueueInitialize(tZQQHEAD* head);
// Wakes every waiter (they return null), closes the event, waits for the
// threads inside an operation to finish, empties the links and deletes the
// lock.  The elements are not touched: drain the queue first and free the
// records yourself.  A second call does nothing.
ZQ_API void ZqQueueDelete(tZQQHEAD* head);
// Empties the links and sets the event; the elements keep their links.
// Until the next element has been inserted and removed, removers with a
// timeout find the event set and return null at once (with ZQQUEUE_KEEPGOING
// they keep looking until their time is spent).
ZQ_API void ZqQueueFlush(tZQQHEAD* head);

// At the tail / at the head; sets the event when the queue was empty.
ZQ_API void ZqQueueInsert(tZQQHEAD* head, tZQQELM* element);
ZQ_API void ZqQueueInsertHead(tZQQHEAD* head, tZQQELM* element);
// Inserts before the first element (from the head) for which the predicate
// holds, or at the tail when none does.  Answers the element found, or null.
// A null element only searches.
ZQ_API tZQQELM* ZqQueueInsertEx(tZQQHEAD* head, ZQQUEUEPREDICATE predicate, void* context, tZQQELM* element);
// The same search from the tail; a hit also inserts before the found element.
ZQ_API tZQQELM* ZqQueueInsertExRev(tZQQHEAD* head, ZQQUEUEPREDICATE predicate, void* context, tZQQELM* element);

// The first element, waiting up to `timeout` milliseconds (INFINITE, or 0
// for no wait); null when nothing was taken.
ZQ_API tZQQELM* ZqQueueRemove(tZQQHEAD* head, DWORD timeout);
// The same, alertable and keeping on through queued calls and messages.
ZQ_API tZQQELM* ZqQueueRemoveAlertable(tZQQHEAD* head, DWORD timeout);
// The first element, waiting on the queue and on up to 62 further `handles`
// (null with 63 or more).  `result` (optional) receives the value of the
// last wait: WAIT_OBJECT_0 + 1 .. + count for one of `handles`, count + 1 for
// a message, WAIT_IO_COMPLETION, WAIT_TIMEOUT.  See the ZQQUEUE_* flags.
ZQ_API tZQQELM* ZqQueueRemoveEx(tZQQHEAD* head, const HANDLE* handles, DWORD count, DWORD flags, DWORD timeout,
                                DWORD* result);
// The last element; on an empty queue one wait on the event, then a second
// look.
ZQ_API tZQQELM* ZqQueueRemoveTail(tZQQHEAD* head, DWORD timeout);
// 1 when the queue holds something; on an empty queue one wait on the event
// for a non-zero timeout.  A hint: a later remove confirms it.
ZQ_API BOOL ZqQueueWait(tZQQHEAD* head, DWORD timeout);

// The first hit from the head / from the tail, or null; it stays queued.
ZQ_API tZQQELM* ZqQueueFind(tZQQHEAD* head, ZQQUEUEPREDICATE predicate, void* context);
ZQ_API tZQQELM* ZqQueueFindRev(tZQQHEAD* head, ZQQUEUEPREDICATE predicate, void* context);
// The hit taken out with its links cleared, or null.
ZQ_API tZQQELM* ZqQueueFindAndRemove(tZQQHEAD* head, ZQQUEUEPREDICATE predicate, void* context);
ZQ_API tZQQELM* ZqQueueFindAndRemoveRev(tZQQHEAD* head, ZQQUEUEPREDICATE predicate, void* context);
// The hit moved to the head / tail and returned, or null.
ZQ_API tZQQELM* ZqQueueFindAndMoveToHead(tZQQHEAD* head, ZQQUEUEPREDICATE predicate, void* context);
ZQ_API tZQQELM* ZqQueueFindAndMoveToTail(tZQQHEAD* head, ZQQUEUEPREDICATE predicate, void* context);
// 1 when moved; 0 when the queue is empty, the element is not in it or it
// already stands there.
ZQ_API BOOL ZqQueueMoveToHead(tZQQHEAD* head, tZQQELM* element);
ZQ_API BOOL ZqQueueMoveToTail(tZQQHEAD* head, tZQQELM* element);
// 0 at once when either link of the element is null; otherwise walks the
// queue under the lock.
ZQ_API BOOL IsInZqQueue(tZQQHEAD* head, tZQQELM* element);
