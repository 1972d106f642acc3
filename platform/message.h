// The system's small window and message layer.
//
// Every thread has a message queue, created when the thread first calls a
// function of this header.  A window is a handle with a window procedure,
// owned by the thread that created it; messages posted to it go to the
// owner's queue and are handed to the procedure by DispatchMessageW on that
// thread.  Nothing here draws: the pages draw with a display connection of
// their own and use windows of this layer only for messages and timers.
//
// Window handles are never reused while the process lives: IsWindow of a
// destroyed window is FALSE from every thread.  When a thread ends, its
// windows are destroyed (without messages), its timers stop and sends
// waiting for it are answered 0.
#pragma once

#include "platform/handle.h"

#if !defined(_WIN32)

struct HWND__;
typedef HWND__* HWND;

typedef LRESULT (*WNDPROC)(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
typedef void (*TIMERPROC)(HWND window, UINT message, UINT_PTR id, DWORD tickCount);

struct POINT {
  LONG x;
  LONG y;
};

struct MSG {
  HWND hwnd;
  UINT message;
  WPARAM wParam;
  LPARAM lParam;
  DWORD time;  // GetTickCount() when the message was posted
  POINT pt;    // always 0, 0
};

constexpr UINT WM_NULL = 0x0000;
constexpr UINT WM_CREATE = 0x0001;
constexpr UINT WM_DESTROY = 0x0002;
constexpr UINT WM_CLOSE = 0x0010;
constexpr UINT WM_QUIT = 0x0012;
constexpr UINT WM_NCDESTROY = 0x0082;
constexpr UINT WM_COMMAND = 0x0111;
constexpr UINT WM_TIMER = 0x0113;
constexpr UINT WM_USER = 0x0400;
constexpr UINT WM_APP = 0x8000;

// PeekMessageW
constexpr UINT PM_NOREMOVE = 0x0000;
constexpr UINT PM_REMOVE = 0x0001;
constexpr UINT PM_NOYIELD = 0x0002;

// Wake masks of MsgWaitForMultipleObjects and the PM_QS_ filters.
constexpr DWORD QS_KEY = 0x0001;
constexpr DWORD QS_MOUSEMOVE = 0x0002;
constexpr DWORD QS_MOUSEBUTTON = 0x0004;
constexpr DWORD QS_POSTMESSAGE = 0x0008;
constexpr DWORD QS_TIMER = 0x0010;
constexpr DWORD QS_PAINT = 0x0020;
constexpr DWORD QS_SENDMESSAGE = 0x0040;
constexpr DWORD QS_HOTKEY = 0x0080;
constexpr DWORD QS_ALLPOSTMESSAGE = 0x0100;
constexpr DWORD QS_RAWINPUT = 0x0400;
constexpr DWORD QS_MOUSE = QS_MOUSEMOVE | QS_MOUSEBUTTON;
constexpr DWORD QS_INPUT = QS_MOUSE | QS_KEY | QS_RAWINPUT;
constexpr DWORD QS_ALLEVENTS = QS_INPUT | QS_POSTMESSAGE | QS_TIMER | QS_PAINT | QS_HOTKEY;
constexpr DWORD QS_ALLINPUT = QS_ALLEVENTS | QS_SENDMESSAGE;  // 0x4FF
constexpr UINT PM_QS_SENDMESSAGE = QS_SENDMESSAGE << 16;
constexpr UINT PM_QS_POSTMESSAGE = (QS_POSTMESSAGE | QS_HOTKEY | QS_TIMER) << 16;

// MsgWaitForMultipleObjectsEx
constexpr DWORD MWMO_WAITALL = 0x1;
constexpr DWORD MWMO_ALERTABLE = 0x2;
constexpr DWORD MWMO_INPUTAVAILABLE = 0x4;

constexpr int GWLP_WNDPROC = -4;
constexpr int GWLP_USERDATA = -21;
constexpr UINT USER_TIMER_MINIMUM = 10;
constexpr UINT USER_TIMER_MAXIMUM = 0x7FFFFFFF;

// Creates a window owned by the calling thread with procedure `procedure`
// and user data `userData` (GWLP_USERDATA).  The procedure receives
// WM_CREATE (lParam = userData) before this returns; answering -1 cancels the
// creation (null, no further messages).  Null with the last error on
// failure.
ZQ_EXTERN_C HWND ZqCreateWindow(WNDPROC procedure, LONG_PTR userData);
// On the owning thread only (ERROR_ACCESS_DENIED otherwise): sends
// WM_DESTROY and WM_NCDESTROY, stops the window's timers, drops the messages
// posted to it that wait in the queue, and invalidates the handle.
ZQ_EXTERN_C BOOL DestroyWindow(HWND window);
ZQ_EXTERN_C BOOL IsWindow(HWND window);
// The owning thread's id (and, through `processId`, the process id); 0 with
// ERROR_INVALID_WINDOW_HANDLE for a window that does not exist.
ZQ_EXTERN_C DWORD GetWindowThreadProcessId(HWND window, DWORD* processId);
// GWLP_USERDATA or GWLP_WNDPROC; answers the previous value.
ZQ_EXTERN_C LONG_PTR GetWindowLongPtrW(HWND window, int index);
ZQ_EXTERN_C LONG_PTR SetWindowLongPtrW(HWND window, int index, LONG_PTR value);
// Default handling: WM_CLOSE destroys the window; everything else answers 0.
ZQ_EXTERN_C LRESULT DefWindowProcW(HWND window, UINT message, WPARAM wParam, LPARAM lParam);

// Appends a message to the queue of the window's owner, from any thread.
// A null window posts to the calling thread's queue.  FALSE with
// ERROR_INVALID_WINDOW_HANDLE for a window that does not exist (any more).
ZQ_EXTERN_C BOOL PostMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
// Posts a message without a window to a thread; FALSE with
// ERROR_INVALID_THREAD_ID when that thread has no queue (yet).  A thread
// makes sure it has one by calling PeekMessageW once.
ZQ_EXTERN_C BOOL PostThreadMessageW(DWORD threadId, UINT message, WPARAM wParam, LPARAM lParam);
// Calls the window's procedure and answers its result.  On the owning
// thread this is a direct call; from another thread the message waits in
// the owner's queue for the owner to take messages (GetMessageW,
// PeekMessageW, or its own SendMessageW), while the calling thread keeps
// serving messages sent to it.  0 for a window that does not exist or whose
// owner ended before answering.
ZQ_EXTERN_C LRESULT SendMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam);

// Takes the next message, waiting for one.  Messages sent from other
// threads are handed to their procedures first (inside the call); then
// posted messages in order, then WM_QUIT after PostQuitMessage, then due
// timers.  `window` filters (null: all; (HWND)-1: messages without a
// window), `first`/`last` give a range of message numbers (both 0: all;
// WM_QUIT always passes).  Answers 0 for WM_QUIT, -1 for a filter window
// that does not exist, otherwise nonzero.
ZQ_EXTERN_C BOOL GetMessageW(MSG* message, HWND window, UINT first, UINT last);
// The same without waiting: FALSE when no message is there.  PM_REMOVE takes
// the message; PM_NOREMOVE leaves it.  A PM_QS_ filter in the high word limits
// the kinds looked at (PM_QS_SENDMESSAGE only serves sent messages).
ZQ_EXTERN_C BOOL PeekMessageW(MSG* message, HWND window, UINT first, UINT last, UINT remove);
// No keyboard here: answers FALSE and does nothing.
ZQ_EXTERN_C BOOL TranslateMessage(const MSG* message);
// Calls the procedure of the message's window (on the owning thread), or
// the TIMERPROC of a WM_TIMER that carries one.  Answers its result (0 for a
// window that does not exist).
ZQ_EXTERN_C LRESULT DispatchMessageW(const MSG* message);
// Makes the calling thread's queue answer WM_QUIT (wParam = exitCode) once
// the posted messages before it are taken.
ZQ_EXTERN_C void PostQuitMessage(int exitCode);
// Waits until the calling thread's queue holds input.
ZQ_EXTERN_C BOOL WaitMessage();

// Starts or restarts a timer of `window` (which may belong to any thread;
// the timer fires in its owner's queue) or, with a null window, of the
// calling thread.  Every `elapse` ms (10 at least) a WM_TIMER (wParam = id,
// lParam = `procedure`) becomes due; at most one is pending per timer.
// Answers `id` for a window, a new nonzero id for a null window (or `id`
// when it names an existing timer of the thread), 0 on failure.
ZQ_EXTERN_C UINT_PTR SetTimer(HWND window, UINT_PTR id, UINT elapse, TIMERPROC procedure);
ZQ_EXTERN_C BOOL KillTimer(HWND window, UINT_PTR id);

// WaitForMultipleObjects that also ends when the calling thread's queue
// holds input of the kinds in `wakeMask` (QS_ALLINPUT: any): the answer is
// then WAIT_OBJECT_0 + count.  Input that is waiting counts, whether or not
// an earlier call already saw it.  `count` may be 0.  With `waitAll` the
// wait ends when all objects are signalled and input is there (answer
// WAIT_OBJECT_0).  Timers of the thread become due during the wait.
ZQ_EXTERN_C DWORD MsgWaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL waitAll,
                                            DWORD milliseconds, DWORD wakeMask);
// `flags`: MWMO_WAITALL, MWMO_ALERTABLE (calls queued with QueueUserAPC run
// and the answer is WAIT_IO_COMPLETION), MWMO_INPUTAVAILABLE (accepted;
// waiting input always counts here).
ZQ_EXTERN_C DWORD MsgWaitForMultipleObjectsEx(DWORD count, const HANDLE* handles,
                                              DWORD milliseconds, DWORD wakeMask, DWORD flags);

#endif  // !_WIN32
