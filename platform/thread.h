// Threads, thread-local slots and calls queued to a thread.
//
// A thread handle is waitable: it becomes signalled when the thread has
// ended (after the thread's own thread-local clean-up has run).
#pragma once

#include "platform/handle.h"

#if !defined(_WIN32)

typedef DWORD (*LPTHREAD_START_ROUTINE)(LPVOID parameter);
typedef void (*PAPCFUNC)(ULONG_PTR data);

constexpr DWORD CREATE_SUSPENDED = 0x4;
constexpr DWORD STACK_SIZE_PARAM_IS_A_RESERVATION = 0x10000;
constexpr DWORD STILL_ACTIVE = 259;
constexpr DWORD TLS_OUT_OF_INDEXES = 0xFFFFFFFF;

// Starts `start(parameter)` on a new thread.  `stackSize` 0 takes the
// default; other sizes are rounded up to what the system accepts.
// CREATE_SUSPENDED holds the thread before `start` until ResumeThread.
// `threadId` (optional) receives the new thread's id.  Null with the last
// error set on failure.  The thread runs detached: closing the handle does
// not affect it.  An exception leaving `start` ends the process, as it would
// on the original.
ZQ_EXTERN_C HANDLE CreateThread(LPSECURITY_ATTRIBUTES security, size_t stackSize,
                                LPTHREAD_START_ROUTINE start, LPVOID parameter, DWORD flags,
                                DWORD* threadId);
// Releases a thread created with CREATE_SUSPENDED; answers the previous
// suspend count (1, then 0 for a thread already running).  Suspending a
// running thread is not offered.
ZQ_EXTERN_C DWORD ResumeThread(HANDLE thread);
// STILL_ACTIVE while the thread runs, then the value `start` returned.
ZQ_EXTERN_C BOOL GetExitCodeThread(HANDLE thread, DWORD* exitCode);
// The id of the thread behind a handle (0 with ERROR_INVALID_HANDLE).
ZQ_EXTERN_C DWORD GetThreadId(HANDLE thread);

// The calling thread's id: the system's thread id (as tools such as a
// debugger show it), never 0, unique among running threads.
ZQ_EXTERN_C DWORD GetCurrentThreadId();
// A pseudo handle meaning "the calling thread" for the functions of this
// header and the waits.  It needs no closing.
ZQ_EXTERN_C HANDLE GetCurrentThread();

// Sleep(0) gives the processor to another ready thread.
ZQ_EXTERN_C void Sleep(DWORD milliseconds);
// With `alertable`, returns WAIT_IO_COMPLETION early after running the calls
// queued to this thread; otherwise 0.
ZQ_EXTERN_C DWORD SleepEx(DWORD milliseconds, BOOL alertable);
ZQ_EXTERN_C BOOL SwitchToThread();

// Queues `fn(data)` to run on `thread` the next time it waits alertably
// (WaitForSingleObjectEx, WaitForMultipleObjectsEx, SleepEx,
// MsgWaitForMultipleObjectsEx with MWMO_ALERTABLE).  0 on failure.  Calls
// queued to a thread that ends are dropped.
ZQ_EXTERN_C DWORD QueueUserAPC(PAPCFUNC fn, HANDLE thread, ULONG_PTR data);

// Thread-local slots (at least 1024 are available).  TlsGetValue sets the
// last error to 0 on success, so that a null value can be told from an
// error.
ZQ_EXTERN_C DWORD TlsAlloc();
ZQ_EXTERN_C LPVOID TlsGetValue(DWORD index);
ZQ_EXTERN_C BOOL TlsSetValue(DWORD index, LPVOID value);
ZQ_EXTERN_C BOOL TlsFree(DWORD index);

#endif  // !_WIN32
