// Locks, events, semaphores, mutexes and waits on several objects.
//
// Win32 names, signatures and semantics.  Waitable objects are handles (see
// platform/handle.h); every call may come from any thread.
#pragma once

#include "platform/handle.h"

#if !defined(_WIN32)

// ---------------------------------------------------------------------------
// Critical sections: recursive locks owned by a thread.
//
// A plain record without a constructor or any allocation: it may be a member
// of a zero-filled record, and an all-zero CRITICAL_SECTION is an unlocked
// one (InitializeCriticalSection only writes zeros and the spin count).
// DeleteCriticalSection releases nothing and may be skipped; a deleted
// section may be initialised again.  The record is trivially copyable but
// must not be copied while in use.  Leaving a section that the calling thread
// does not own is a programming error (ignored).
// ---------------------------------------------------------------------------
struct CRITICAL_SECTION {
  void* DebugInfo;         // unused
  LONG LockCount;          // 0 free, 1 held, 2 held with waiters (a futex word)
  LONG RecursionCount;     // entries of the owning thread
  HANDLE OwningThread;     // thread id of the owner, 0 when free
  HANDLE LockSemaphore;    // unused
  ULONG_PTR SpinCount;     // spins before sleeping on a contended section
};
typedef CRITICAL_SECTION* LPCRITICAL_SECTION;

ZQ_EXTERN_C void InitializeCriticalSection(CRITICAL_SECTION* section);
ZQ_EXTERN_C BOOL InitializeCriticalSectionAndSpinCount(CRITICAL_SECTION* section, DWORD spinCount);
ZQ_EXTERN_C void EnterCriticalSection(CRITICAL_SECTION* section);
// TRUE when the section is now held by the calling thread (possibly again).
ZQ_EXTERN_C BOOL TryEnterCriticalSection(CRITICAL_SECTION* section);
ZQ_EXTERN_C void LeaveCriticalSection(CRITICAL_SECTION* section);
ZQ_EXTERN_C void DeleteCriticalSection(CRITICAL_SECTION* section);

// ---------------------------------------------------------------------------
// Waits.
// ---------------------------------------------------------------------------
constexpr DWORD INFINITE = 0xFFFFFFFF;
constexpr DWORD MAXIMUM_WAIT_OBJECTS = 64;
constexpr DWORD WAIT_OBJECT_0 = 0;
constexpr DWORD WAIT_ABANDONED_0 = 0x80;
constexpr DWORD WAIT_ABANDONED = WAIT_ABANDONED_0;
constexpr DWORD WAIT_IO_COMPLETION = 0xC0;  // an alertable wait ran queued calls
constexpr DWORD WAIT_TIMEOUT = 258;
constexpr DWORD WAIT_FAILED = 0xFFFFFFFF;

// Waits until `handle` is signalled and takes it (an auto-reset event is
// reset, a semaphore's count drops by one, a mutex becomes owned).
// WAIT_OBJECT_0, WAIT_ABANDONED (a mutex whose owner ended while owning it,
// now owned by the caller), WAIT_TIMEOUT, or WAIT_FAILED with the last error
// set (ERROR_INVALID_HANDLE; a file or search handle is not waitable).
ZQ_EXTERN_C DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds);
// Alertable form: with `alertable`, calls queued to this thread with
// QueueUserAPC run during the wait and the wait answers WAIT_IO_COMPLETION.
ZQ_EXTERN_C DWORD WaitForSingleObjectEx(HANDLE handle, DWORD milliseconds, BOOL alertable);

// Waits on 1 to MAXIMUM_WAIT_OBJECTS handles.  Without `waitAll` the answer
// is WAIT_OBJECT_0 + the lowest index that is signalled (and only that one is
// taken).  With `waitAll` the wait ends when all are signalled at the same
// time and takes all of them in one step (it never holds some while waiting
// for others); the answer is WAIT_OBJECT_0, or WAIT_ABANDONED_0 when a mutex
// among them was abandoned.  The same object twice with `waitAll` fails with
// ERROR_INVALID_PARAMETER.  Auto-reset events and semaphores serve waiters
// first come, first served; a manual-reset event releases every waiter.
ZQ_EXTERN_C DWORD WaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL waitAll,
                                         DWORD milliseconds);
ZQ_EXTERN_C DWORD WaitForMultipleObjectsEx(DWORD count, const HANDLE* handles, BOOL waitAll,
                                           DWORD milliseconds, BOOL alertable);

// ---------------------------------------------------------------------------
// Events.  `name` must be null (named objects do not exist here:
// ERROR_NOT_SUPPORTED); `security` is ignored.  An auto-reset event that is
// set while threads wait releases exactly one of them and stays reset; a
// manual-reset event stays set and releases every waiter.
// ---------------------------------------------------------------------------
ZQ_EXTERN_C HANDLE CreateEventW(LPSECURITY_ATTRIBUTES security, BOOL manualReset, BOOL initialState,
                                LPCWSTR name);
ZQ_EXTERN_C BOOL SetEvent(HANDLE event);
ZQ_EXTERN_C BOOL ResetEvent(HANDLE event);
// Sets the event, releases the threads that wait for it at this moment (one
// for an auto-reset event) and resets it.  Kept for completeness: the
// original discourages it for the same reasons.
ZQ_EXTERN_C BOOL PulseEvent(HANDLE event);

// Semaphores: counts from 0 to `maximumCount`; a wait takes one.
// ReleaseSemaphore beyond the maximum fails with ERROR_TOO_MANY_POSTS and
// changes nothing.
ZQ_EXTERN_C HANDLE CreateSemaphoreW(LPSECURITY_ATTRIBUTES security, LONG initialCount,
                                    LONG maximumCount, LPCWSTR name);
ZQ_EXTERN_C BOOL ReleaseSemaphore(HANDLE semaphore, LONG releaseCount, LONG* previousCount);

// Mutexes: recursive, owned by a thread; a wait takes ownership.  A thread
// that ends while owning one abandons it: the next waiter gets it with
// WAIT_ABANDONED.  ReleaseMutex by a thread that does not own it fails with
// ERROR_NOT_OWNER.
ZQ_EXTERN_C HANDLE CreateMutexW(LPSECURITY_ATTRIBUTES security, BOOL initialOwner, LPCWSTR name);
ZQ_EXTERN_C BOOL ReleaseMutex(HANDLE mutex);

#endif  // !_WIN32

// Holds a critical section for the life of a scope.  Unlock() leaves it
// before the scope ends, for work that must run outside the section (a call
// out to code that may take other locks); the destructor then does nothing.
// Written with only the two section calls so that it serves on every
// platform.
class ZqCriticalSectionLock {
 public:
  explicit ZqCriticalSectionLock(CRITICAL_SECTION* section) : m_section(section) { EnterCriticalSection(section); }
  ~ZqCriticalSectionLock() { Unlock(); }
  ZqCriticalSectionLock(const ZqCriticalSectionLock&) = delete;
  ZqCriticalSectionLock& operator=(const ZqCriticalSectionLock&) = delete;

  void Unlock() {
    if (m_section != nullptr) {
      LeaveCriticalSection(m_section);
      m_section = nullptr;
    }
  }

 private:
  CRITICAL_SECTION* m_section;
};
