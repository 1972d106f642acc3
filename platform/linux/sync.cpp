// Handles, the wait engine, events, semaphores, mutexes and critical
// sections.
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <unordered_map>

#include "platform/linux/object.h"
#include "platform/sync.h"
#include "platform/thread.h"

namespace zq::platform {

namespace {

// Process-wide state is made once and never destroyed, so that threads still
// running while the process exits never meet a destroyed lock or table.
struct HandleTable {
  std::mutex lock;
  std::unordered_map<uintptr_t, Object*> objects;
  uintptr_t next = 0x1000;
};

HandleTable& Handles() {
  static HandleTable* table = new HandleTable;
  return *table;
}

const HANDLE kCurrentThreadPseudoHandle = reinterpret_cast<HANDLE>(static_cast<intptr_t>(-2));

bool TrySatisfy(Waiter& w) {
  if (w.all) {
    for (DWORD i = 0; i < w.count; ++i) {
      if (!w.objects[i]->IsSignaledFor(w)) return false;
    }
    bool abandoned = false;
    for (DWORD i = 0; i < w.count; ++i) abandoned |= w.objects[i]->Acquire(w);
    w.result = abandoned ? WAIT_ABANDONED_0 : WAIT_OBJECT_0;
    return true;
  }
  for (DWORD i = 0; i < w.count; ++i) {
    if (w.objects[i]->IsSignaledFor(w)) {
      bool abandoned = w.objects[i]->Acquire(w);
      w.result = (abandoned ? WAIT_ABANDONED_0 : WAIT_OBJECT_0) + i;
      return true;
    }
  }
  return false;
}

void Attach(Waiter& w) {
  for (DWORD i = 0; i < w.count; ++i) w.objects[i]->waiters.push_back(&w);
  if (w.alertable) w.thread->alertableWait = &w;
}

void Detach(Waiter& w) {
  for (DWORD i = 0; i < w.count; ++i) std::erase(w.objects[i]->waiters, &w);
  if (w.alertable && w.thread->alertableWait == &w) w.thread->alertableWait = nullptr;
}

}  // namespace

std::mutex& WaitLock() {
  static std::mutex* lock = new std::mutex;
  return *lock;
}

HANDLE NewHandle(Ref<Object> object) {
  HandleTable& t = Handles();
  std::lock_guard<std::mutex> guard(t.lock);
  uintptr_t value = t.next;
  t.next += 4;
  t.objects.emplace(value, object.Detach());
  return reinterpret_cast<HANDLE>(value);
}

Ref<Object> LookupHandle(HANDLE handle) {
  if (handle == kCurrentThreadPseudoHandle) return Ref<Object>::Share(CurrentThreadObject());
  HandleTable& t = Handles();
  {
    std::lock_guard<std::mutex> guard(t.lock);
    auto it = t.objects.find(reinterpret_cast<uintptr_t>(handle));
    if (it != t.objects.end()) return Ref<Object>::Share(it->second);
  }
  SetLastError(ERROR_INVALID_HANDLE);
  return Ref<Object>();
}

void Wake(Object* object) {
  if (object->waiters.empty()) return;
  std::vector<Waiter*> waiting = object->waiters;
  for (Waiter* w : waiting) {
    if (w->done) continue;
    if (TrySatisfy(*w)) {
      w->done = true;
      Detach(*w);
      w->cv.notify_one();
    }
  }
}

void Nudge(Waiter* w) { w->cv.notify_one(); }

DWORD WaitForObjects(DWORD count, Object* const* objects, bool all, DWORD milliseconds,
                     bool alertable, DWORD wakeMask) {
  Waiter w;
  w.count = count;
  std::copy(objects, objects + count, w.objects);
  w.all = all;
  w.threadId = GetCurrentThreadId();
  w.thread = CurrentThreadObject();
  w.alertable = alertable;
  w.wakeMask = wakeMask;

  std::unique_lock<std::mutex> lock(WaitLock());
  if (alertable && !w.thread->calls.empty()) {
    lock.unlock();
    RunQueuedCalls();
    return WAIT_IO_COMPLETION;
  }
  if (count > 0 && TrySatisfy(w)) return w.result;
  if (milliseconds == 0) return WAIT_TIMEOUT;

  const Clock::time_point deadline = milliseconds == INFINITE
                                         ? Clock::time_point::max()
                                         : Clock::now() + std::chrono::milliseconds(milliseconds);
  Attach(w);
  for (;;) {
    if (w.done) return w.result;
    if (alertable && !w.thread->calls.empty()) {
      Detach(w);
      lock.unlock();
      RunQueuedCalls();
      return WAIT_IO_COMPLETION;
    }
    if (count > 0 && TrySatisfy(w)) {
      Detach(w);
      return w.result;
    }
    const Clock::time_point now = Clock::now();
    if (now >= deadline) {
      Detach(w);
      return WAIT_TIMEOUT;
    }
    Clock::time_point wake = deadline;
    for (DWORD i = 0; i < count; ++i) wake = std::min(wake, objects[i]->WakeTime(w));
    if (wake == Clock::time_point::max()) {
      w.cv.wait(lock);
    } else {
      w.cv.wait_until(lock, wake);
    }
  }
}

DWORD WaitForHandles(DWORD count, const HANDLE* handles, bool all, DWORD milliseconds,
                     bool alertable, Object* extra, DWORD wakeMask) {
  if (count > MAXIMUM_WAIT_OBJECTS || (count > 0 && handles == nullptr) ||
      (count == 0 && extra == nullptr && !alertable)) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return WAIT_FAILED;
  }
  std::vector<Ref<Object>> refs;
  refs.reserve(count + 1);
  Object* objects[MAXIMUM_WAIT_OBJECTS + 1];
  for (DWORD i = 0; i < count; ++i) {
    Ref<Object> o = LookupHandle(handles[i]);
    if (!o) return WAIT_FAILED;
    if (!o->Waitable()) {
      SetLastError(ERROR_INVALID_HANDLE);
      return WAIT_FAILED;
    }
    if (all) {
      for (DWORD j = 0; j < i; ++j) {
        if (objects[j] == o.get()) {
          SetLastError(ERROR_INVALID_PARAMETER);
          return WAIT_FAILED;
        }
      }
    }
    objects[i] = o.get();
    refs.push_back(std::move(o));
  }
  DWORD n = count;
  if (extra) objects[n++] = extra;
  return WaitForObjects(n, objects, all, milliseconds, alertable, wakeMask);
}

bool RunQueuedCalls() {
  ThreadObject* self = CurrentThreadObject();
  std::vector<ThreadObject::Call> calls;
  {
    std::lock_guard<std::mutex> guard(WaitLock());
    calls.swap(self->calls);
  }
  for (const ThreadObject::Call& c : calls) c.fn(c.data);
  return !calls.empty();
}

namespace {

class EventObject : public Object {
 public:
  EventObject(bool manual, bool signaled) : Object(Kind::Event), manual_(manual), signaled_(signaled) {}
  bool IsSignaledFor(const Waiter&) const override { return signaled_; }
  bool Acquire(const Waiter&) override {
    if (!manual_) signaled_ = false;
    return false;
  }
  void Set(bool value) { signaled_ = value; }

 private:
  const bool manual_;
  bool signaled_;
};

class SemaphoreObject : public Object {
 public:
  SemaphoreObject(LONG count, LONG maximum) : Object(Kind::Semaphore), count_(count), max_(maximum) {}
  bool IsSignaledFor(const Waiter&) const override { return count_ > 0; }
  bool Acquire(const Waiter&) override {
    --count_;
    return false;
  }
  bool Post(LONG n, LONG* previous) {
    if (n <= 0) {
      SetLastError(ERROR_INVALID_PARAMETER);
      return false;
    }
    if (n > max_ - count_) {
      SetLastError(ERROR_TOO_MANY_POSTS);
      return false;
    }
    if (previous) *previous = count_;
    count_ += n;
    return true;
  }

 private:
  LONG count_;
  const LONG max_;
};

class MutexObject : public Object {
 public:
  MutexObject() : Object(Kind::Mutex) {}
  bool IsSignaledFor(const Waiter& w) const override { return owner == 0 || owner == w.threadId; }
  bool Acquire(const Waiter& w) override {
    if (owner == 0) {
      owner = w.threadId;
      recursion = 0;
      Ref<Object> self = Ref<Object>::Share(this);
      w.thread->ownedMutexes.push_back(std::move(self));
    }
    ++recursion;
    bool wasAbandoned = abandoned;
    abandoned = false;
    return wasAbandoned;
  }

  DWORD owner = 0;
  DWORD recursion = 0;
  bool abandoned = false;
};

bool NamedObjectRefused(LPCWSTR name) {
  if (name == nullptr) return false;
  SetLastError(ERROR_NOT_SUPPORTED);
  return true;
}

template <class T>
Ref<T> Lookup(HANDLE h, Object::Kind kind) {
  return LookupHandleAs<T>(h, kind);
}

}  // namespace

bool CloseHandleValue(HANDLE handle) {
  Object* object = nullptr;
  {
    HandleTable& t = Handles();
    std::lock_guard<std::mutex> guard(t.lock);
    auto it = t.objects.find(reinterpret_cast<uintptr_t>(handle));
    if (it != t.objects.end()) {
      object = it->second;
      t.objects.erase(it);
    }
  }
  if (object == nullptr) {
    // The pseudo handle of the calling thread needs no closing.
    if (handle == kCurrentThreadPseudoHandle) return true;
    SetLastError(ERROR_INVALID_HANDLE);
    return false;
  }
  object->Release();
  return true;
}

void AbandonMutexes(ThreadObject* thread) {
  std::vector<Ref<Object>> owned;
  owned.swap(thread->ownedMutexes);
  for (Ref<Object>& o : owned) {
    auto* m = static_cast<MutexObject*>(o.get());
    if (m->owner != thread->id) continue;
    m->owner = 0;
    m->recursion = 0;
    m->abandoned = true;
    Wake(m);
  }
}

}  // namespace zq::platform


using namespace zq::platform;

BOOL CloseHandle(HANDLE handle) { return CloseHandleValue(handle) ? TRUE : FALSE; }

HANDLE ZqDuplicateHandle(HANDLE handle) {
  Ref<Object> o = LookupHandle(handle);
  if (!o) return nullptr;
  return NewHandle(std::move(o));
}

// ---------------------------------------------------------------------------
// Critical sections: a futex word with an owner and a recursion count.
// ---------------------------------------------------------------------------
namespace {

long Futex(LONG* word, int op, LONG value) {
  return syscall(SYS_futex, reinterpret_cast<int*>(word), op | FUTEX_PRIVATE_FLAG, value, nullptr,
                 nullptr, 0);
}

DWORD OwnerOf(const CRITICAL_SECTION* cs) {
  return static_cast<DWORD>(reinterpret_cast<uintptr_t>(
      __atomic_load_n(&cs->OwningThread, __ATOMIC_RELAXED)));
}

void SetOwner(CRITICAL_SECTION* cs, DWORD owner) {
  __atomic_store_n(&cs->OwningThread, reinterpret_cast<HANDLE>(static_cast<uintptr_t>(owner)),
                   __ATOMIC_RELAXED);
}

bool TryLockWord(CRITICAL_SECTION* cs) {
  LONG expected = 0;
  return __atomic_compare_exchange_n(&cs->LockCount, &expected, 1, false, __ATOMIC_ACQUIRE,
                                     __ATOMIC_RELAXED);
}

void LockWord(CRITICAL_SECTION* cs) {
  if (TryLockWord(cs)) return;
  for (ULONG_PTR spin = cs->SpinCount; spin > 0; --spin) {
    __builtin_ia32_pause();
    if (__atomic_load_n(&cs->LockCount, __ATOMIC_RELAXED) == 0 && TryLockWord(cs)) return;
  }
  // 2 marks "held with possible waiters", so that the unlock knows to wake.
  while (__atomic_exchange_n(&cs->LockCount, 2, __ATOMIC_ACQUIRE) != 0) {
    Futex(&cs->LockCount, FUTEX_WAIT, 2);
  }
}

}  // namespace

void InitializeCriticalSection(CRITICAL_SECTION* section) {
  *section = CRITICAL_SECTION{};
}

BOOL InitializeCriticalSectionAndSpinCount(CRITICAL_SECTION* section, DWORD spinCount) {
  *section = CRITICAL_SECTION{};
  // Spinning only helps with more than one processor; the high bit of the
  // original's argument (pre-allocation of the event) has no meaning here.
  section->SpinCount = sysconf(_SC_NPROCESSORS_ONLN) > 1 ? (spinCount & 0x00FFFFFF) : 0;
  return TRUE;
}

void EnterCriticalSection(CRITICAL_SECTION* section) {
  const DWORD me = GetCurrentThreadId();
  if (OwnerOf(section) == me) {
    ++section->RecursionCount;
    return;
  }
  LockWord(section);
  SetOwner(section, me);
  section->RecursionCount = 1;
}

BOOL TryEnterCriticalSection(CRITICAL_SECTION* section) {
  const DWORD me = GetCurrentThreadId();
  if (OwnerOf(section) == me) {
    ++section->RecursionCount;
    return TRUE;
  }
  if (!TryLockWord(section)) return FALSE;
  SetOwner(section, me);
  section->RecursionCount = 1;
  return TRUE;
}

void LeaveCriticalSection(CRITICAL_SECTION* section) {
  if (OwnerOf(section) != GetCurrentThreadId() || section->RecursionCount <= 0) return;
  if (--section->RecursionCount > 0) return;
  SetOwner(section, 0);
  if (__atomic_exchange_n(&section->LockCount, 0, __ATOMIC_RELEASE) == 2) {
    Futex(&section->LockCount, FUTEX_WAKE, 1);
  }
}

void DeleteCriticalSection(CRITICAL_SECTION* section) { *section = CRITICAL_SECTION{}; }

// ---------------------------------------------------------------------------
// Waits.
// ---------------------------------------------------------------------------
DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds) {
  return WaitForHandles(1, &handle, false, milliseconds, false, nullptr, 0);
}

DWORD WaitForSingleObjectEx(HANDLE handle, DWORD milliseconds, BOOL alertable) {
  return WaitForHandles(1, &handle, false, milliseconds, alertable != FALSE, nullptr, 0);
}

DWORD WaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL waitAll, DWORD milliseconds) {
  if (count == 0) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return WAIT_FAILED;
  }
  return WaitForHandles(count, handles, waitAll != FALSE, milliseconds, false, nullptr, 0);
}

DWORD WaitForMultipleObjectsEx(DWORD count, const HANDLE* handles, BOOL waitAll,
                               DWORD milliseconds, BOOL alertable) {
  if (count == 0) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return WAIT_FAILED;
  }
  return WaitForHandles(count, handles, waitAll != FALSE, milliseconds, alertable != FALSE,
                        nullptr, 0);
}

// ---------------------------------------------------------------------------
// Events, semaphores, mutexes.
// ---------------------------------------------------------------------------
HANDLE CreateEventW(LPSECURITY_ATTRIBUTES, BOOL manualReset, BOOL initialState, LPCWSTR name) {
  if (NamedObjectRefused(name)) return nullptr;
  return NewHandle(MakeRef<EventObject>(manualReset != FALSE, initialState != FALSE));
}

namespace {
BOOL ChangeEvent(HANDLE event, bool set, bool pulse) {
  Ref<EventObject> e = Lookup<EventObject>(event, Object::Kind::Event);
  if (!e) return FALSE;
  std::lock_guard<std::mutex> guard(WaitLock());
  e->Set(set);
  if (set) Wake(e.get());
  if (pulse) e->Set(false);
  return TRUE;
}
}  // namespace

BOOL SetEvent(HANDLE event) { return ChangeEvent(event, true, false); }
BOOL ResetEvent(HANDLE event) { return ChangeEvent(event, false, false); }
BOOL PulseEvent(HANDLE event) { return ChangeEvent(event, true, true); }

HANDLE CreateSemaphoreW(LPSECURITY_ATTRIBUTES, LONG initialCount, LONG maximumCount, LPCWSTR name) {
  if (NamedObjectRefused(name)) return nullptr;
  if (maximumCount <= 0 || initialCount < 0 || initialCount > maximumCount) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  return NewHandle(MakeRef<SemaphoreObject>(initialCount, maximumCount));
}

BOOL ReleaseSemaphore(HANDLE semaphore, LONG releaseCount, LONG* previousCount) {
  Ref<SemaphoreObject> s = Lookup<SemaphoreObject>(semaphore, Object::Kind::Semaphore);
  if (!s) return FALSE;
  std::lock_guard<std::mutex> guard(WaitLock());
  if (!s->Post(releaseCount, previousCount)) return FALSE;
  Wake(s.get());
  return TRUE;
}

HANDLE CreateMutexW(LPSECURITY_ATTRIBUTES, BOOL initialOwner, LPCWSTR name) {
  if (NamedObjectRefused(name)) return nullptr;
  Ref<MutexObject> m = MakeRef<MutexObject>();
  if (initialOwner) {
    Waiter self;
    self.threadId = GetCurrentThreadId();
    self.thread = CurrentThreadObject();
    std::lock_guard<std::mutex> guard(WaitLock());
    m->Acquire(self);
  }
  return NewHandle(std::move(m));
}

BOOL ReleaseMutex(HANDLE mutex) {
  Ref<MutexObject> m = Lookup<MutexObject>(mutex, Object::Kind::Mutex);
  if (!m) return FALSE;
  ThreadObject* self = CurrentThreadObject();
  std::lock_guard<std::mutex> guard(WaitLock());
  if (m->owner != self->id || m->recursion == 0) {
    SetLastError(ERROR_NOT_OWNER);
    return FALSE;
  }
  if (--m->recursion == 0) {
    m->owner = 0;
    std::erase_if(self->ownedMutexes, [&](const Ref<Object>& o) { return o.get() == m.get(); });
    Wake(m.get());
  }
  return TRUE;
}
