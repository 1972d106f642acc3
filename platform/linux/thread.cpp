// Threads, thread-local slots, sleeping and queued calls.
#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <limits.h>
#include <semaphore>

#include "platform/linux/object.h"
#include "platform/thread.h"

namespace zq::platform {

namespace {

// The thread object of the calling thread.  Made first thing on threads that
// CreateThread starts, so that its clean-up runs after every other
// thread-local clean-up of the layer (message queue, ...), and the thread's
// handle is signalled only when nothing of the thread is left to do.
struct ThreadSlot {
  Ref<ThreadObject> object;
  bool exitCodeSet = false;
  ~ThreadSlot() {
    if (!object) return;
    std::lock_guard<std::mutex> guard(WaitLock());
    AbandonMutexes(object.get());
    object->calls.clear();
    if (!exitCodeSet) object->exitCode = 0;
    object->ended = true;
    Wake(object.get());
  }
};

thread_local ThreadSlot t_slot;
thread_local DWORD t_threadId = 0;

class StartedThread : public ThreadObject {
 public:
  std::binary_semaphore started{0};
  std::binary_semaphore resume{0};
  bool suspended = false;  // under WaitLock
};

struct StartRecord {
  Ref<StartedThread> thread;
  LPTHREAD_START_ROUTINE start;
  LPVOID parameter;
  bool suspended;
};

void* ThreadMain(void* p) {
  StartRecord* record = static_cast<StartRecord*>(p);
  Ref<StartedThread> thread = std::move(record->thread);
  const LPTHREAD_START_ROUTINE start = record->start;
  LPVOID const parameter = record->parameter;
  const bool suspended = record->suspended;
  delete record;

  thread->id = GetCurrentThreadId();
  t_slot.object = Ref<ThreadObject>::Share(thread.get());
  thread->started.release();
  if (suspended) thread->resume.acquire();

  const DWORD code = start(parameter);
  {
    std::lock_guard<std::mutex> guard(WaitLock());
    thread->exitCode = code;
  }
  t_slot.exitCodeSet = true;
  return nullptr;
}

}  // namespace

ThreadObject* CurrentThreadObject() {
  if (!t_slot.object) {
    Ref<ThreadObject> t = MakeRef<ThreadObject>();
    t->id = GetCurrentThreadId();
    t_slot.object = std::move(t);
  }
  return t_slot.object.get();
}

}  // namespace zq::platform

using namespace zq::platform;

DWORD GetCurrentThreadId() {
  if (t_threadId == 0) t_threadId = static_cast<DWORD>(gettid());
  return t_threadId;
}

HANDLE GetCurrentThread() { return reinterpret_cast<HANDLE>(static_cast<intptr_t>(-2)); }

HANDLE CreateThread(LPSECURITY_ATTRIBUTES, size_t stackSize, LPTHREAD_START_ROUTINE start,
                    LPVOID parameter, DWORD flags, DWORD* threadId) {
  if (start == nullptr || (flags & ~(CREATE_SUSPENDED | STACK_SIZE_PARAM_IS_A_RESERVATION)) != 0) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  Ref<StartedThread> thread = MakeRef<StartedThread>();
  thread->suspended = (flags & CREATE_SUSPENDED) != 0;

  pthread_attr_t attr;
  pthread_attr_init(&attr);
  pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
  if (stackSize != 0) {
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    size_t size = std::max<size_t>(stackSize, PTHREAD_STACK_MIN);
    size = (size + page - 1) / page * page;
    pthread_attr_setstacksize(&attr, size);
  }
  auto* record = new StartRecord{thread, start, parameter, thread->suspended};
  pthread_t id;
  const int error = pthread_create(&id, &attr, ThreadMain, record);
  pthread_attr_destroy(&attr);
  if (error != 0) {
    delete record;
    ZqSetLastErrorFromErrno(error == EAGAIN ? ENOMEM : error);
    return nullptr;
  }
  // The new thread publishes its id before anything else.
  thread->started.acquire();
  if (threadId) *threadId = thread->id;
  return NewHandle(std::move(thread));
}

DWORD ResumeThread(HANDLE handle) {
  Ref<ThreadObject> t = LookupHandleAs<ThreadObject>(handle, Object::Kind::Thread);
  if (!t) return static_cast<DWORD>(-1);
  auto* started = dynamic_cast<StartedThread*>(t.get());
  if (started == nullptr) return 0;
  bool wasSuspended;
  {
    std::lock_guard<std::mutex> guard(WaitLock());
    wasSuspended = started->suspended;
    started->suspended = false;
  }
  if (!wasSuspended) return 0;
  started->resume.release();
  return 1;
}

BOOL GetExitCodeThread(HANDLE handle, DWORD* exitCode) {
  Ref<ThreadObject> t = LookupHandleAs<ThreadObject>(handle, Object::Kind::Thread);
  if (!t) return FALSE;
  if (exitCode == nullptr) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
  }
  std::lock_guard<std::mutex> guard(WaitLock());
  *exitCode = t->ended ? t->exitCode : STILL_ACTIVE;
  return TRUE;
}

DWORD GetThreadId(HANDLE handle) {
  Ref<ThreadObject> t = LookupHandleAs<ThreadObject>(handle, Object::Kind::Thread);
  if (!t) return 0;
  return t->id;
}

void Sleep(DWORD milliseconds) { SleepEx(milliseconds, FALSE); }

DWORD SleepEx(DWORD milliseconds, BOOL alertable) {
  if (alertable) {
    const DWORD r = WaitForHandles(0, nullptr, false, milliseconds, true, nullptr, 0);
    return r == WAIT_IO_COMPLETION ? WAIT_IO_COMPLETION : 0;
  }
  if (milliseconds == 0) {
    sched_yield();
    return 0;
  }
  if (milliseconds == INFINITE) {
    for (;;) pause();
  }
  timespec rest{static_cast<time_t>(milliseconds / 1000),
                static_cast<long>(milliseconds % 1000) * 1000000L};
  while (nanosleep(&rest, &rest) != 0 && errno == EINTR) {
  }
  return 0;
}

BOOL SwitchToThread() { return sched_yield() == 0 ? TRUE : FALSE; }

DWORD QueueUserAPC(PAPCFUNC fn, HANDLE thread, ULONG_PTR data) {
  if (fn == nullptr) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return 0;
  }
  Ref<ThreadObject> t = LookupHandleAs<ThreadObject>(thread, Object::Kind::Thread);
  if (!t) return 0;
  std::lock_guard<std::mutex> guard(WaitLock());
  if (t->ended) {
    SetLastError(ERROR_INVALID_HANDLE);
    return 0;
  }
  t->calls.push_back({fn, data});
  if (t->alertableWait) Nudge(t->alertableWait);
  return 1;
}

DWORD TlsAlloc() {
  pthread_key_t key;
  if (pthread_key_create(&key, nullptr) != 0) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return TLS_OUT_OF_INDEXES;
  }
  return static_cast<DWORD>(key);
}

LPVOID TlsGetValue(DWORD index) {
  SetLastError(ERROR_SUCCESS);
  return pthread_getspecific(static_cast<pthread_key_t>(index));
}

BOOL TlsSetValue(DWORD index, LPVOID value) {
  if (pthread_setspecific(static_cast<pthread_key_t>(index), value) != 0) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
  }
  return TRUE;
}

BOOL TlsFree(DWORD index) {
  if (pthread_key_delete(static_cast<pthread_key_t>(index)) != 0) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
  }
  return TRUE;
}
