// Running foreign code safely: the fault guard.
//
// A guard runs a callable with the semantics of a structured exception block
// (__try/__except) of the original platform.  When the callable, or anything
// it calls, faults (SIGSEGV, SIGBUS, SIGFPE, SIGILL raised by the processor)
// or lets a C++ exception escape, the guard's filter is asked what to do with
// an EXCEPTION_POINTERS that carries the original platform's exception code:
//
//   SIGSEGV (page fault)          0xC0000005 access violation; information
//                                 [0] = 0 read, 1 write, 8 execute,
//                                 [1] = the faulting address
//   SIGSEGV within 64 KiB of the  0xC00000FD stack overflow (information as
//   stack pointer                 for an access violation)
//   SIGSEGV (general protection)  0xC0000096 for a privileged instruction,
//                                 else 0xC0000005 with address ~0 (what the
//                                 original reports for such faults)
//   SIGBUS                        0xC0000006 in-page error; information as
//                                 for an access violation, [2] = 0;
//                                 0x80000002 datatype misalignment for an
//                                 alignment-check fault
//   SIGFPE                        0xC0000094 integer divide by zero,
//                                 0xC0000095 integer overflow (a quotient
//                                 that does not fit, told apart by reading
//                                 the divisor of the faulting div or idiv),
//                                 0xC000008D to
//                                 0xC0000093 for the float faults (denormal,
//                                 divide by zero, inexact, invalid, overflow,
//                                 stack check, underflow), 0xC000008C for a
//                                 subscript range fault
//   SIGILL                        0xC000001D illegal instruction, 0xC0000096
//                                 privileged instruction or register
//   C++ exception                 0xE06D7363; information [0] = 0x19930520,
//                                 [1] = 0, [2] = the std::type_info* of the
//                                 thrown object (or 0)
//   ZqRaiseException(code, ...)   the code, flags and arguments given
//
// The filter answers as a __except filter expression does:
//   EXCEPTION_EXECUTE_HANDLER (1, any positive value): the guard returns the
//     exception code and, when asked, a copy of the record;
//   EXCEPTION_CONTINUE_SEARCH (0): the next outer guard of the same thread is
//     asked; when none is left a processor fault goes on to the signal
//     handler that was installed before ours (with the default action the
//     process dies of the signal, as it would have without us), a C++
//     exception propagates out of the outermost guard to its caller, and a
//     raised exception ends the process with SIGABRT;
//   EXCEPTION_CONTINUE_EXECUTION (-1, any negative value): for a processor
//     fault, execution resumes in the faulting context as the filter left it
//     in ContextRecord (general registers, Rip, EFlags); without a change the
//     instruction faults again.  For ZqRaiseException without
//     EXCEPTION_NONCONTINUABLE, ZqRaiseException returns.  A C++ exception
//     and a non-continuable raise cannot continue: the answer is taken as
//     EXCEPTION_EXECUTE_HANDLER.
//
// How it works.  The handlers for the four signals are installed once per
// process, at the first guard, with SA_ONSTACK | SA_NODEFER, and remember the
// handlers installed before them.  Each thread gets an alternate signal stack
// when it first enters a guard (one it already has is kept when it is large
// enough); it is released when the thread ends.  Guards of a thread form a
// stack; a fault runs the filters, innermost first, inside the signal handler
// and on the alternate stack, so that a filter sees the faulting context and
// an unhandled fault can still be chained with its context intact.  The
// chosen guard is reached with siglongjmp.  While a filter runs, its own guard
// and the guards inside it are out of the search, as on the original
// platform: a fault in a filter goes to guards entered inside the filter, then
// to the guards outside the one whose filter faulted.  The handlers block no
// signal while they run, so after the jump the thread's signal mask is the
// one it had at the fault, which is the one it had at the guard unless the
// foreign code changed it (entering a guard makes no system call to save
// it).  Guards nest freely, in
// bodies, filters and after a handled fault, and work on every thread.
//
// A C++ exception is caught where it leaves the body, after the body's frames
// have been unwound; the filter is then asked on the ordinary stack, and
// EXCEPTION_CONTINUE_SEARCH rethrows it to the next outer guard.  A thread's
// forced unwind (thread cancellation, pthread_exit) is never caught.
//
// Floating-point state.  A filter sees the foreign code's state in
// ContextRecord (FltSave.ControlWord, MxCsr).  For every processor fault the
// guard reinitialises the unit before the first filter runs (the x87
// register stack is emptied and its status cleared, as foreign code that
// died in mid-computation may leave anything there), then:
//   - after a floating-point fault (0xC000008D to 0xC0000093) the state is
//     the default, x87 control word 0x37F and MXCSR 0x1F80: the foreign
//     code's unmasked exceptions would only fault again;
//   - after any other fault (access violation, integer divide, illegal
//     instruction, ...) the x87 control word and MXCSR are those the thread
//     had when the innermost guard was entered, so the caller goes on with
//     its own rounding and exception masks.
// The filters and the code after a handled fault start from that state; a
// filter that changes it leaves it changed.  For a C++ exception and a
// raised exception the guard leaves the state as the foreign code left it; a
// filter that wants it reset calls ZqResetFloatingPointState itself.
//
// Limits, honestly.  This is best effort.  Whatever the foreign code
// corrupted stays corrupted; locks it held stay held (a fault inside malloc
// leaves the allocator's lock taken, and the next allocation on that thread
// deadlocks); objects with destructors that were live in the abandoned
// frames are not destroyed.  Filters run inside a signal handler for
// processor faults: they should be short and avoid locks the faulting code
// may hold.  A filter must not throw (a throw from a filter ends the
// process).  Only synchronous faults raised by the processor are handled: a
// signal sent by kill or raise always goes to the previous handler.  A
// library that replaces our handlers later disables the guards.  A thread
// whose stack is exhausted is caught (0xC00000FD) because the handler runs on
// the alternate stack.  Exception code 0 cannot be told apart from a body
// that completed.
#pragma once

#include "base/types.h"

#include <type_traits>
#include <utility>

#if !defined(_WIN32)

#if !defined(__x86_64__)
#error "the fault guard's context record is written for x86-64"
#endif

constexpr DWORD EXCEPTION_MAXIMUM_PARAMETERS = 15;
// ExceptionFlags: the exception cannot be continued.
constexpr DWORD EXCEPTION_NONCONTINUABLE = 1;

// The filter's answers.
constexpr LONG EXCEPTION_EXECUTE_HANDLER = 1;
constexpr LONG EXCEPTION_CONTINUE_SEARCH = 0;
constexpr LONG EXCEPTION_CONTINUE_EXECUTION = -1;

// What happened.  The same fields as the original platform's record.
// ExceptionRecord (a chained record) is always null here.
struct EXCEPTION_RECORD {
  DWORD ExceptionCode;
  DWORD ExceptionFlags;
  EXCEPTION_RECORD* ExceptionRecord;
  void* ExceptionAddress;
  DWORD NumberParameters;
  ULONG_PTR ExceptionInformation[EXCEPTION_MAXIMUM_PARAMETERS];
};

// The x87 part of the saved floating-point state.
struct ZQ_FLOATING_SAVE {
  WORD ControlWord;
  WORD StatusWord;
};

// The processor state at the fault: the part of the original platform's
// x86-64 CONTEXT that foreign-code filters use, under the same names.  For a
// C++ exception Rip is 0 (the throwing frames are gone); for a raised
// exception it is the caller of ZqRaiseException.
struct CONTEXT {
  DWORD ContextFlags;
  DWORD MxCsr;
  DWORD EFlags;
  ULONG_PTR Rax, Rcx, Rdx, Rbx, Rsp, Rbp, Rsi, Rdi;
  ULONG_PTR R8, R9, R10, R11, R12, R13, R14, R15;
  ULONG_PTR Rip;
  ZQ_FLOATING_SAVE FltSave;
};

struct EXCEPTION_POINTERS {
  EXCEPTION_RECORD* ExceptionRecord;
  CONTEXT* ContextRecord;
};
typedef EXCEPTION_POINTERS* PEXCEPTION_POINTERS;

#endif  // !_WIN32

// The magic number of information [0] in a C++ exception's record.
constexpr ULONG_PTR ZQ_CPP_EXCEPTION_MAGIC = 0x19930520;

// A filter: the exception pointers and the context given to the guard.
typedef LONG (*ZqGuardFilter)(EXCEPTION_POINTERS* pointers, void* filterContext);

// Runs fn(context) under a guard.  Answers 0 when fn completed; otherwise
// the code of the exception a filter took (EXCEPTION_EXECUTE_HANDLER), with
// the record copied to *outRecord when outRecord is not null.  A null filter
// takes every exception.  Not noexcept: a C++ exception that no filter takes
// goes on to the caller.
DWORD ZqGuardedCall(void (*fn)(void* context), void* context, ZqGuardFilter filter,
                    void* filterContext, EXCEPTION_RECORD* outRecord);

// Raises an exception through the guards of the calling thread, as the
// original platform's RaiseException does.  flags: EXCEPTION_NONCONTINUABLE
// or 0; at most EXCEPTION_MAXIMUM_PARAMETERS arguments are kept.  Returns
// only when a filter answers EXCEPTION_CONTINUE_EXECUTION to a continuable
// exception.  With no guard taking it the process ends with SIGABRT.
void ZqRaiseException(DWORD code, DWORD flags, DWORD argumentCount, const ULONG_PTR* arguments);

// Installs the process-wide handlers and this thread's alternate signal stack
// now instead of at the first guard.  Optional.
void ZqGuardPrepareThread();

// The floating-point control state of the calling thread.
struct ZqFloatingPointState {
  WORD x87Control;  // x87 control word
  DWORD mxcsr;      // SSE control and status register
};
ZqFloatingPointState ZqGetFloatingPointState();
void ZqSetFloatingPointState(const ZqFloatingPointState& state);
// Reinitialises the floating-point unit: x87 as after FNINIT (control word
// 0x37F, empty register stack, status clear) and MXCSR 0x1F80 (all
// exceptions masked, round to nearest, no flush to zero, flags clear).
void ZqResetFloatingPointState();

// The same guard over any callables: body() and filter(EXCEPTION_POINTERS*)
// returning a filter answer.
template <class Body, class Filter>
DWORD ZqGuarded(Body&& body, Filter&& filter, EXCEPTION_RECORD* outRecord = nullptr) {
  using BodyT = std::remove_reference_t<Body>;
  using FilterT = std::remove_reference_t<Filter>;
  return ZqGuardedCall([](void* b) { (*static_cast<BodyT*>(b))(); },
                       const_cast<void*>(static_cast<const void*>(std::addressof(body))),
                       [](EXCEPTION_POINTERS* p, void* f) -> LONG {
                         return static_cast<LONG>((*static_cast<FilterT*>(f))(p));
                       },
                       const_cast<void*>(static_cast<const void*>(std::addressof(filter))),
                       outRecord);
}

// A guard that takes every exception.
template <class Body>
DWORD ZqGuardedAll(Body&& body, EXCEPTION_RECORD* outRecord = nullptr) {
  using BodyT = std::remove_reference_t<Body>;
  return ZqGuardedCall([](void* b) { (*static_cast<BodyT*>(b))(); },
                       const_cast<void*>(static_cast<const void*>(std::addressof(body))), nullptr,
                       nullptr, outRecord);
}
