// Internal: the reference-counted objects behind handles, and the one wait
// engine that every waitable object, message queue and alertable wait uses.
//
// All waitable state (signalled flags, counts, waiter lists, message queues,
// windows, timers) is guarded by one process-wide lock, WaitLock().  That
// makes a wait on several objects atomic and keeps the hand-over rules
// simple: whoever changes an object's state calls Wake() with the lock held,
// and Wake() satisfies waiters in arrival order, taking the objects for them
// before they run again.  Waits are short bookkeeping under the lock; no
// lock is held while user code (window procedures, queued calls) runs.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <vector>

#include "platform/handle.h"
#include "platform/sync.h"
#include "platform/thread.h"

namespace zq::platform {

using Clock = std::chrono::steady_clock;

std::mutex& WaitLock();

struct Waiter;
class ThreadObject;

class Object {
 public:
  enum class Kind { Event, Semaphore, Mutex, Thread, Process, File, Find, Queue };

  explicit Object(Kind kind) : kind_(kind) {}
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;
  virtual ~Object() = default;

  Kind kind() const { return kind_; }
  void AddRef() { refs_.fetch_add(1, std::memory_order_relaxed); }
  void Release() {
    if (refs_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
  }

  // Under WaitLock.  Whether a wait of `w` could take the object now.
  virtual bool Waitable() const { return true; }
  virtual bool IsSignaledFor(const Waiter& w) const = 0;
  // Under WaitLock, after IsSignaledFor answered true: takes the object for
  // `w`.  Answers true when the object was an abandoned mutex.
  virtual bool Acquire(const Waiter& w) { (void)w; return false; }
  // Under WaitLock: when the object turns signalled by itself (a timer of a
  // message queue), so that a waiter sleeps no longer than that.
  virtual Clock::time_point WakeTime(const Waiter& w) const {
    (void)w;
    return Clock::time_point::max();
  }

  std::vector<Waiter*> waiters;  // under WaitLock

 private:
  const Kind kind_;
  std::atomic<long> refs_{1};
};

// A counted reference.
template <class T>
class Ref {
 public:
  Ref() = default;
  explicit Ref(T* p) : p_(p) {}  // adopts one reference
  Ref(const Ref& o) : p_(o.p_) { if (p_) p_->AddRef(); }
  Ref(Ref&& o) noexcept : p_(o.p_) { o.p_ = nullptr; }
  template <class U>
  Ref(Ref<U>&& o) noexcept : p_(o.Detach()) {}
  Ref& operator=(Ref o) noexcept { std::swap(p_, o.p_); return *this; }
  ~Ref() { if (p_) p_->Release(); }
  T* get() const { return p_; }
  T* operator->() const { return p_; }
  T& operator*() const { return *p_; }
  explicit operator bool() const { return p_ != nullptr; }
  T* Detach() { T* p = p_; p_ = nullptr; return p; }
  static Ref Share(T* p) { if (p) p->AddRef(); return Ref(p); }

 private:
  T* p_ = nullptr;
};

template <class T, class... A>
Ref<T> MakeRef(A&&... args) {
  return Ref<T>(new T(std::forward<A>(args)...));
}

// The handle table.  NewHandle takes over one reference of `object`; null
// with ERROR_NOT_ENOUGH_MEMORY-like failure is not expected (allocation
// failure throws).
HANDLE NewHandle(Ref<Object> object);
// Removes `handle` from the table and releases its reference.
bool CloseHandleValue(HANDLE handle);
// The object behind `handle` (also the GetCurrentThread pseudo handle), or
// null with ERROR_INVALID_HANDLE.
Ref<Object> LookupHandle(HANDLE handle);
// The same, checked for a kind (ERROR_INVALID_HANDLE for another kind).
template <class T>
Ref<T> LookupHandleAs(HANDLE handle, Object::Kind kind) {
  Ref<Object> o = LookupHandle(handle);
  if (!o) return Ref<T>();
  if (o->kind() != kind) {
    SetLastError(ERROR_INVALID_HANDLE);
    return Ref<T>();
  }
  return Ref<T>(static_cast<T*>(o.Detach()));
}


// One thread's pending wait.  Lives on the waiting thread's stack.
struct Waiter {
  DWORD count = 0;             // objects in `objects`
  Object* objects[MAXIMUM_WAIT_OBJECTS + 1] = {};
  bool all = false;
  DWORD threadId = 0;
  ThreadObject* thread = nullptr;  // the waiting thread
  bool alertable = false;
  DWORD wakeMask = 0;          // for a queue among the objects
  std::condition_variable cv;
  bool done = false;           // set by whoever satisfied the wait
  DWORD result = WAIT_TIMEOUT;
};

// Under WaitLock: offers every waiter of `object` the chance to be satisfied
// (in arrival order).
void Wake(Object* object);
// Under WaitLock: wakes `w` so that it looks again (for queued calls).
void Nudge(Waiter* w);

// The wait engine.  `objects` stay referenced by the caller; a message
// queue among them is asked with `wakeMask`.  Answers a WAIT_ value, or
// WAIT_IO_COMPLETION after running queued calls when `alertable`.
DWORD WaitForObjects(DWORD count, Object* const* objects, bool all, DWORD milliseconds,
                     bool alertable, DWORD wakeMask);

// Resolves handles, checks them, and runs WaitForObjects; `extra` (may be
// null) is appended as the last object.
DWORD WaitForHandles(DWORD count, const HANDLE* handles, bool all, DWORD milliseconds,
                     bool alertable, Object* extra, DWORD wakeMask);

// Threads.  Every thread that uses the layer has one (lazily made for
// threads not started by CreateThread).
class ThreadObject : public Object {
 public:
  ThreadObject() : Object(Kind::Thread) {}
  bool IsSignaledFor(const Waiter&) const override { return ended; }

  // Under WaitLock.
  DWORD id = 0;
  bool ended = false;
  DWORD exitCode = STILL_ACTIVE;
  struct Call { PAPCFUNC fn; ULONG_PTR data; };
  std::vector<Call> calls;       // queued with QueueUserAPC
  Waiter* alertableWait = nullptr;
  std::vector<Ref<Object>> ownedMutexes;
};
// Under WaitLock: the mutexes still owned by a thread that ends become
// abandoned.
void AbandonMutexes(ThreadObject* thread);
// The calling thread's object (made on first use).
ThreadObject* CurrentThreadObject();
// Runs the calls queued to the calling thread (without the lock); answers
// whether there were any.
bool RunQueuedCalls();

// The file error for a failed operation on `path` (UTF-8): ENOENT becomes
// ERROR_PATH_NOT_FOUND when the folder that should hold `path` is missing.
DWORD PathError(int error, const char* path);

}  // namespace zq::platform
