// The fault guard on Linux x86-64: signal handlers on a per-thread alternate
// stack, a per-thread stack of guards, siglongjmp back to the guard whose
// filter takes the fault.  See platform/guard.h for the contract.
#include "platform/guard.h"

#include "base/status.h"

#include <cxxabi.h>
#include <setjmp.h>
#include <signal.h>
#include <sys/mman.h>
#include <ucontext.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <typeinfo>

namespace {

// One guard on a thread's stack of guards.  Lives in ZqGuardedCall's frame.
struct ThreadState;
struct GuardFrame {
  sigjmp_buf jump;
  ThreadState* thread;
  GuardFrame* outer;
  ZqGuardFilter filter;
  void* filterContext;
  ZqFloatingPointState entryFp;  // the caller's control state when the guard was entered
  EXCEPTION_RECORD record;       // filled when a filter took an exception
};

struct ThreadState {
  // Innermost guard that a new exception is offered to.  Written by the
  // thread itself and by its own signal handler.
  GuardFrame* volatile top = nullptr;
  void* altStackBase = nullptr;  // our mapping, guard page included
  size_t altStackMapped = 0;
  stack_t previousAltStack{};
  bool ownsAltStack = false;
};

// The handler reads this: initial-exec TLS needs no allocation on first
// access, which matters inside a signal handler when this code sits in a
// shared library.
__attribute__((tls_model("initial-exec"))) thread_local ThreadState* t_state = nullptr;

// Releases the thread's state when the thread ends.
void ReleaseThreadState();
struct ThreadCleanup {
  bool armed = false;
  ~ThreadCleanup() {
    if (armed) ReleaseThreadState();
  }
};
thread_local ThreadCleanup t_cleanup;

#if defined(__SANITIZE_ADDRESS__)
// Instrumented filters use far more stack.
constexpr size_t kAltStackSize = 512 * 1024;
#else
constexpr size_t kAltStackSize = 128 * 1024;
#endif
// An alternate stack the thread already has is kept when at least this big.
constexpr size_t kAltStackKeep = 64 * 1024;

constexpr int kSignals[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL};
constexpr int kSignalCount = sizeof(kSignals) / sizeof(kSignals[0]);
struct sigaction g_previous[kSignalCount];
std::once_flag g_installOnce;

int SignalIndex(int sig) {
  for (int i = 0; i < kSignalCount; ++i) {
    if (kSignals[i] == sig) return i;
  }
  return -1;
}

void OnFault(int sig, siginfo_t* info, void* ucontext);

void InstallHandlers() {
  for (int i = 0; i < kSignalCount; ++i) {
    struct sigaction action;
    std::memset(&action, 0, sizeof(action));
    action.sa_sigaction = OnFault;
    // SA_NODEFER: a fault inside a filter (or inside a guard entered by a
    // filter) must be delivered while the handler still runs.
    action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER;
    sigemptyset(&action.sa_mask);
    sigaction(kSignals[i], &action, &g_previous[i]);
  }
}

void InstallAltStack(ThreadState* ts) {
  stack_t current;
  if (sigaltstack(nullptr, &current) != 0) return;
  // Running on an alternate stack right now (some other library's handler
  // called us): it cannot be changed, and it is evidently usable.
  if (current.ss_flags & SS_ONSTACK) return;
  if (!(current.ss_flags & SS_DISABLE) && current.ss_size >= kAltStackKeep) return;

  const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  const size_t mapped = kAltStackSize + page;
  void* base = mmap(nullptr, mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE,
                    -1, 0);
  if (base == MAP_FAILED) return;
  // The lowest page stays inaccessible so that a filter that overruns the
  // alternate stack dies instead of writing over memory below it.
  mprotect(base, page, PROT_NONE);
  stack_t ours;
  ours.ss_sp = static_cast<char*>(base) + page;
  ours.ss_size = kAltStackSize;
  ours.ss_flags = 0;
  if (sigaltstack(&ours, nullptr) != 0) {
    munmap(base, mapped);
    return;
  }
  ts->altStackBase = base;
  ts->altStackMapped = mapped;
  ts->previousAltStack = current;
  ts->ownsAltStack = true;
}

// The first guard of a thread.
__attribute__((noinline)) ThreadState* SetUpThread() {
  std::call_once(g_installOnce, InstallHandlers);
  ThreadState* ts = new ThreadState;
  InstallAltStack(ts);
  t_state = ts;
  t_cleanup.armed = true;
  return ts;
}

// Every guard after the first costs one thread-local load here.
inline ThreadState* PrepareThread() {
  ThreadState* ts = t_state;
  return ts ? ts : SetUpThread();
}

void ReleaseThreadState() {
  ThreadState* ts = t_state;
  if (!ts) return;
  t_state = nullptr;
  if (ts->ownsAltStack) {
    stack_t current;
    if (sigaltstack(nullptr, &current) == 0 && !(current.ss_flags & SS_ONSTACK)) {
      stack_t restore = ts->previousAltStack;
      if (restore.ss_flags & SS_DISABLE) {
        restore.ss_sp = nullptr;
        restore.ss_size = 0;
        restore.ss_flags = SS_DISABLE;
      } else {
        restore.ss_flags = 0;
      }
      sigaltstack(&restore, nullptr);
      munmap(ts->altStackBase, ts->altStackMapped);
    }
  }
  delete ts;
}

// ---------------------------------------------------------------------------
// Translation of a processor fault into the original platform's record.

bool IsPrivilegedInstruction(const unsigned char* ip) {
  // Skip legacy and REX prefixes.
  int i = 0;
  for (; i < 14; ++i) {
    const unsigned char b = ip[i];
    const bool prefix = b == 0x66 || b == 0x67 || b == 0xF0 || b == 0xF2 || b == 0xF3 || b == 0x2E ||
                        b == 0x36 || b == 0x3E || b == 0x26 || b == 0x64 || b == 0x65 ||
                        (b >= 0x40 && b <= 0x4F);
    if (!prefix) break;
  }
  const unsigned char op = ip[i];
  if (op == 0xF4 || op == 0xFA || op == 0xFB) return true;               // hlt, cli, sti
  if ((op >= 0xE4 && op <= 0xE7) || (op >= 0xEC && op <= 0xEF)) return true;  // in, out
  if (op >= 0x6C && op <= 0x6F) return true;                           // ins, outs
  if (op == 0x0F) {
    switch (ip[i + 1]) {
      case 0x00: case 0x01: case 0x06: case 0x07: case 0x08: case 0x09:  // system tables, clts, sysret, invd
      case 0x20: case 0x21: case 0x22: case 0x23:                      // mov to/from control and debug registers
      case 0x30: case 0x32: case 0x35:                                 // wrmsr, rdmsr, sysexit
        return true;
      default:
        break;
    }
  }
  return false;
}

greg_t RegisterValue(const ucontext_t* uc, int number) {
  static constexpr int kIndex[16] = {REG_RAX, REG_RCX, REG_RDX, REG_RBX, REG_RSP, REG_RBP, REG_RSI, REG_RDI,
                                     REG_R8,  REG_R9,  REG_R10, REG_R11, REG_R12, REG_R13, REG_R14, REG_R15};
  return uc->uc_mcontext.gregs[kIndex[number & 15]];
}

// The processor raises the same divide error for a zero divisor and for a
// quotient that does not fit (INT_MIN / -1); the original tells them apart
// by the divisor.  Decodes the faulting div or idiv far enough to read it.
// Answers false when the divisor is not zero; true when it is, or when the
// instruction is not understood (segment-relative operands and the like).
bool DivisorIsZero(const ucontext_t* uc) {
  const auto* ip = reinterpret_cast<const unsigned char*>(uc->uc_mcontext.gregs[REG_RIP]);
  int i = 0;
  int size = 4;
  unsigned rex = 0;
  for (; i < 14; ++i) {
    const unsigned char b = ip[i];
    if (b == 0x66) {
      size = 2;
    } else if (b == 0x64 || b == 0x65) {
      return true;  // fs- or gs-relative: the base is not in the context
    } else if (b == 0x67 || b == 0xF0 || b == 0xF2 || b == 0xF3 || b == 0x2E || b == 0x36 || b == 0x3E ||
               b == 0x26) {
    } else if (b >= 0x40 && b <= 0x4F) {
      rex = b;
    } else {
      break;
    }
  }
  const unsigned char op = ip[i++];
  if (op != 0xF6 && op != 0xF7) return true;
  if (op == 0xF6) size = 1;
  if (rex & 0x8) size = 8;
  const unsigned char modrm = ip[i++];
  const int mod = modrm >> 6;
  const int reg = (modrm >> 3) & 7;
  int rm = modrm & 7;
  if (reg != 6 && reg != 7) return true;
  uint64_t divisor = 0;
  if (mod == 3) {
    if (size == 1 && !rex && rm >= 4) {
      divisor = static_cast<uint64_t>(RegisterValue(uc, rm - 4)) >> 8;  // ah, ch, dh, bh
    } else {
      divisor = static_cast<uint64_t>(RegisterValue(uc, rm | ((rex & 1) << 3)));
    }
  } else {
    uint64_t address = 0;
    bool ripRelative = false;
    if (rm == 4) {
      const unsigned char sib = ip[i++];
      const int scale = sib >> 6;
      const int index = ((sib >> 3) & 7) | ((rex & 2) << 2);
      const int base = (sib & 7) | ((rex & 1) << 3);
      if (index != 4) address += static_cast<uint64_t>(RegisterValue(uc, index)) << scale;
      if ((sib & 7) == 5 && mod == 0) {
        int32_t disp;
        std::memcpy(&disp, ip + i, 4);
        i += 4;
        address += static_cast<uint64_t>(static_cast<int64_t>(disp));
      } else {
        address += static_cast<uint64_t>(RegisterValue(uc, base));
      }
    } else if (rm == 5 && mod == 0) {
      ripRelative = true;
    } else {
      rm |= (rex & 1) << 3;
      address = static_cast<uint64_t>(RegisterValue(uc, rm));
    }
    if (mod == 1) {
      address += static_cast<uint64_t>(static_cast<int64_t>(static_cast<int8_t>(ip[i])));
      i += 1;
    } else if (mod == 2 || ripRelative) {
      int32_t disp;
      std::memcpy(&disp, ip + i, 4);
      i += 4;
      address += static_cast<uint64_t>(static_cast<int64_t>(disp));
    }
    if (ripRelative) address += reinterpret_cast<uint64_t>(ip + i);
    // The processor has just read it: it is readable.
    std::memcpy(&divisor, reinterpret_cast<const void*>(address), static_cast<size_t>(size));
  }
  if (size < 8) divisor &= (uint64_t{1} << (8 * size)) - 1;
  return divisor == 0;
}

DWORD FloatCode(int siCode, const ucontext_t* uc) {
  switch (siCode) {
    case FPE_INTDIV: return DivisorIsZero(uc) ? EXCEPTION_INT_DIVIDE_BY_ZERO : EXCEPTION_INT_OVERFLOW;
    case FPE_INTOVF: return EXCEPTION_INT_OVERFLOW;
    case FPE_FLTDIV: return EXCEPTION_FLT_DIVIDE_BY_ZERO;
    case FPE_FLTOVF: return EXCEPTION_FLT_OVERFLOW;
    case FPE_FLTRES: return EXCEPTION_FLT_INEXACT_RESULT;
    case FPE_FLTSUB: return EXCEPTION_ARRAY_BOUNDS_EXCEEDED;
    default: break;
  }
  // Which unit raised it, and which of its unmasked flags are up.
  unsigned flags = 0;
  bool x87 = false;
  if (uc && uc->uc_mcontext.fpregs) {
    const auto* fp = uc->uc_mcontext.fpregs;
    x87 = uc->uc_mcontext.gregs[REG_TRAPNO] == 16;
    if (x87) {
      flags = fp->swd & ~(fp->cwd & 0x3Fu) & 0x7Fu;  // with the stack fault bit
    } else {
      flags = fp->mxcsr & ~((fp->mxcsr >> 7) & 0x3Fu) & 0x3Fu;
    }
  }
  if (siCode == FPE_FLTINV) {
    return (x87 && (flags & 0x40u)) ? EXCEPTION_FLT_STACK_CHECK : EXCEPTION_FLT_INVALID_OPERATION;
  }
  if (siCode == FPE_FLTUND) {
    return (flags & 0x10u) || !(flags & 0x02u) ? EXCEPTION_FLT_UNDERFLOW : EXCEPTION_FLT_DENORMAL_OPERAND;
  }
  return EXCEPTION_FLT_INVALID_OPERATION;
}

void FillContext(const ucontext_t* uc, CONTEXT* ctx) {
  std::memset(ctx, 0, sizeof(*ctx));
  const greg_t* g = uc->uc_mcontext.gregs;
  ctx->Rax = static_cast<ULONG_PTR>(g[REG_RAX]);
  ctx->Rcx = static_cast<ULONG_PTR>(g[REG_RCX]);
  ctx->Rdx = static_cast<ULONG_PTR>(g[REG_RDX]);
  ctx->Rbx = static_cast<ULONG_PTR>(g[REG_RBX]);
  ctx->Rsp = static_cast<ULONG_PTR>(g[REG_RSP]);
  ctx->Rbp = static_cast<ULONG_PTR>(g[REG_RBP]);
  ctx->Rsi = static_cast<ULONG_PTR>(g[REG_RSI]);
  ctx->Rdi = static_cast<ULONG_PTR>(g[REG_RDI]);
  ctx->R8 = static_cast<ULONG_PTR>(g[REG_R8]);
  ctx->R9 = static_cast<ULONG_PTR>(g[REG_R9]);
  ctx->R10 = static_cast<ULONG_PTR>(g[REG_R10]);
  ctx->R11 = static_cast<ULONG_PTR>(g[REG_R11]);
  ctx->R12 = static_cast<ULONG_PTR>(g[REG_R12]);
  ctx->R13 = static_cast<ULONG_PTR>(g[REG_R13]);
  ctx->R14 = static_cast<ULONG_PTR>(g[REG_R14]);
  ctx->R15 = static_cast<ULONG_PTR>(g[REG_R15]);
  ctx->Rip = static_cast<ULONG_PTR>(g[REG_RIP]);
  ctx->EFlags = static_cast<DWORD>(g[REG_EFL]);
  if (uc->uc_mcontext.fpregs) {
    ctx->MxCsr = uc->uc_mcontext.fpregs->mxcsr;
    ctx->FltSave.ControlWord = uc->uc_mcontext.fpregs->cwd;
    ctx->FltSave.StatusWord = uc->uc_mcontext.fpregs->swd;
  }
}

// Writes back what a filter may change before execution continues.
void ApplyContext(const CONTEXT* ctx, ucontext_t* uc) {
  greg_t* g = uc->uc_mcontext.gregs;
  g[REG_RAX] = static_cast<greg_t>(ctx->Rax);
  g[REG_RCX] = static_cast<greg_t>(ctx->Rcx);
  g[REG_RDX] = static_cast<greg_t>(ctx->Rdx);
  g[REG_RBX] = static_cast<greg_t>(ctx->Rbx);
  g[REG_RSP] = static_cast<greg_t>(ctx->Rsp);
  g[REG_RBP] = static_cast<greg_t>(ctx->Rbp);
  g[REG_RSI] = static_cast<greg_t>(ctx->Rsi);
  g[REG_RDI] = static_cast<greg_t>(ctx->Rdi);
  g[REG_R8] = static_cast<greg_t>(ctx->R8);
  g[REG_R9] = static_cast<greg_t>(ctx->R9);
  g[REG_R10] = static_cast<greg_t>(ctx->R10);
  g[REG_R11] = static_cast<greg_t>(ctx->R11);
  g[REG_R12] = static_cast<greg_t>(ctx->R12);
  g[REG_R13] = static_cast<greg_t>(ctx->R13);
  g[REG_R14] = static_cast<greg_t>(ctx->R14);
  g[REG_R15] = static_cast<greg_t>(ctx->R15);
  g[REG_RIP] = static_cast<greg_t>(ctx->Rip);
  // Only the status flags and the direction flag are the filter's to change.
  constexpr greg_t kUserFlags = 0x08D5 | 0x0400;
  g[REG_EFL] = (g[REG_EFL] & ~kUserFlags) | (static_cast<greg_t>(ctx->EFlags) & kUserFlags);
  if (uc->uc_mcontext.fpregs) {
    uc->uc_mcontext.fpregs->mxcsr = ctx->MxCsr & 0xFFFFu;
    uc->uc_mcontext.fpregs->cwd = ctx->FltSave.ControlWord;
  }
}

void SetAccess(EXCEPTION_RECORD* rec, ULONG_PTR kind, const void* address) {
  rec->NumberParameters = 2;
  rec->ExceptionInformation[0] = kind;
  rec->ExceptionInformation[1] = reinterpret_cast<ULONG_PTR>(address);
}

void TranslateFault(int sig, const siginfo_t* info, const ucontext_t* uc, EXCEPTION_RECORD* rec) {
  std::memset(rec, 0, sizeof(*rec));
  const greg_t* g = uc->uc_mcontext.gregs;
  rec->ExceptionAddress = reinterpret_cast<void*>(g[REG_RIP]);
  const ULONG_PTR error = static_cast<ULONG_PTR>(g[REG_ERR]);
  const ULONG_PTR accessKind = (error & 0x10) ? 8 : (error & 0x2) ? 1 : 0;
  switch (sig) {
    case SIGSEGV:
      if (g[REG_TRAPNO] == 13 || info->si_code == SI_KERNEL) {
        // General protection: a privileged instruction, or an address that
        // is not canonical, which the original reports with address ~0.
        if (IsPrivilegedInstruction(reinterpret_cast<const unsigned char*>(g[REG_RIP]))) {
          rec->ExceptionCode = EXCEPTION_PRIV_INSTRUCTION;
        } else {
          rec->ExceptionCode = EXCEPTION_ACCESS_VIOLATION;
          SetAccess(rec, 0, reinterpret_cast<const void*>(~static_cast<uintptr_t>(0)));
        }
        break;
      }
      {
        const uintptr_t address = reinterpret_cast<uintptr_t>(info->si_addr);
        const uintptr_t sp = static_cast<uintptr_t>(g[REG_RSP]);
        // An access close to the stack pointer that faults: the stack ran
        // out (a stack in order is mapped around where the pointer points;
        // a frame being built is written just above or below it).
        constexpr uintptr_t kNear = 64 * 1024;
        const bool stack = accessKind != 8 && (address <= sp ? sp - address <= kNear : address - sp <= kNear);
        rec->ExceptionCode = stack ? EXCEPTION_STACK_OVERFLOW : EXCEPTION_ACCESS_VIOLATION;
        SetAccess(rec, accessKind, info->si_addr);
      }
      break;
    case SIGBUS:
      if (info->si_code == BUS_ADRALN) {
        rec->ExceptionCode = 0x80000002;  // datatype misalignment
      } else {
        rec->ExceptionCode = EXCEPTION_IN_PAGE_ERROR;
        SetAccess(rec, accessKind, info->si_addr);
        rec->NumberParameters = 3;
        rec->ExceptionInformation[2] = 0;
      }
      break;
    case SIGFPE:
      rec->ExceptionCode = FloatCode(info->si_code, uc);
      break;
    case SIGILL:
      rec->ExceptionCode = (info->si_code == ILL_PRVOPC || info->si_code == ILL_PRVREG)
                               ? EXCEPTION_PRIV_INSTRUCTION
                               : EXCEPTION_ILLEGAL_INSTRUCTION;
      break;
    default:
      rec->ExceptionCode = EXCEPTION_ILLEGAL_INSTRUCTION;
      break;
  }
}

bool IsFloatingPointCode(DWORD code) {
  return code >= EXCEPTION_FLT_DENORMAL_OPERAND && code <= EXCEPTION_FLT_UNDERFLOW;
}

// ---------------------------------------------------------------------------
// The search.

enum class Verdict { Handle, Continue, Unhandled };

LONG CallFilter(GuardFrame* g, EXCEPTION_POINTERS* pointers) noexcept {
  if (!g->filter) return EXCEPTION_EXECUTE_HANDLER;
  return g->filter(pointers, g->filterContext);
}

// Offers the exception to the guards from the innermost outwards.  On
// Verdict::Handle *taker is the guard whose filter took it.
Verdict Dispatch(ThreadState* ts, EXCEPTION_RECORD* rec, CONTEXT* ctx, GuardFrame** taker) {
  GuardFrame* const searchStart = ts->top;
  const bool continuable = !(rec->ExceptionFlags & EXCEPTION_NONCONTINUABLE);
  EXCEPTION_POINTERS pointers{rec, ctx};
  for (GuardFrame* g = searchStart; g; g = g->outer) {
    // While its filter runs, this guard and those inside it are out of the
    // search: a fault in the filter goes to guards entered by the filter,
    // then to the guards outside this one.
    ts->top = g->outer;
    const LONG answer = CallFilter(g, &pointers);
    if (answer > 0 || (answer < 0 && !continuable)) {
      *taker = g;
      return Verdict::Handle;
    }
    if (answer < 0) {
      ts->top = searchStart;
      return Verdict::Continue;
    }
  }
  ts->top = searchStart;
  return Verdict::Unhandled;
}

[[noreturn]] void JumpTo(ThreadState* ts, GuardFrame* g, const EXCEPTION_RECORD& rec) {
  g->record = rec;
  g->record.ExceptionRecord = nullptr;
  ts->top = g->outer;
  siglongjmp(g->jump, 1);
}

void ChainToPrevious(int sig, siginfo_t* info, void* ucontext) {
  const int index = SignalIndex(sig);
  if (index < 0) return;
  const struct sigaction& previous = g_previous[index];
  if ((previous.sa_flags & SA_SIGINFO) && previous.sa_sigaction) {
    previous.sa_sigaction(sig, info, ucontext);
    return;
  }
  if (!(previous.sa_flags & SA_SIGINFO) && previous.sa_handler != SIG_DFL && previous.sa_handler != SIG_IGN) {
    previous.sa_handler(sig);
    return;
  }
  const bool sent = info->si_code <= 0;
  if (sent && !(previous.sa_flags & SA_SIGINFO) && previous.sa_handler == SIG_IGN) return;
  // The default action: restore it.  A processor fault recurs as soon as the
  // handler returns, now with the default action, and the process dies of
  // the signal where it faulted; a sent signal is sent again.
  struct sigaction fallback;
  std::memset(&fallback, 0, sizeof(fallback));
  fallback.sa_handler = SIG_DFL;
  sigemptyset(&fallback.sa_mask);
  sigaction(sig, &fallback, nullptr);
  if (sent) raise(sig);
}

void OnFault(int sig, siginfo_t* info, void* ucontext) {
  const int savedErrno = errno;
  ThreadState* ts = t_state;
  auto* uc = static_cast<ucontext_t*>(ucontext);
  // Only faults raised by the processor are ours (si_code > 0); a sent
  // signal goes on as it came.
  if (ts && ts->top && info && info->si_code > 0 && uc) {
    EXCEPTION_RECORD rec;
    CONTEXT ctx;
    TranslateFault(sig, info, uc, &rec);
    FillContext(uc, &ctx);
    // The foreign code's floating-point state stays in ctx (and returns with
    // it when execution continues).  Filters and the code after the guard
    // start from a clean unit: the default after a floating-point fault,
    // whose flags and unmasked exceptions would otherwise fault again, and
    // the caller's own control words after any other fault.
    ZqResetFloatingPointState();
    if (!IsFloatingPointCode(rec.ExceptionCode)) ZqSetFloatingPointState(ts->top->entryFp);
    GuardFrame* taker = nullptr;
    switch (Dispatch(ts, &rec, &ctx, &taker)) {
      case Verdict::Handle:
        JumpTo(ts, taker, rec);
      case Verdict::Continue:
        ApplyContext(&ctx, uc);
        errno = savedErrno;
        return;
      case Verdict::Unhandled:
        break;
    }
  }
  errno = savedErrno;
  ChainToPrevious(sig, info, ucontext);
}

// Runs the body; a C++ exception leaving it is offered to this guard's filter
// and, when the filter passes it on, rethrown to the next outer guard.
DWORD RunBody(GuardFrame* frame, void (*fn)(void*), void* context) {
  ThreadState* const ts = frame->thread;
  try {
    fn(context);
  } catch (abi::__forced_unwind&) {
    ts->top = frame->outer;
    throw;
  } catch (...) {
    EXCEPTION_RECORD rec;
    std::memset(&rec, 0, sizeof(rec));
    rec.ExceptionCode = EXCEPTION_CPP;
    rec.ExceptionFlags = EXCEPTION_NONCONTINUABLE;
    rec.NumberParameters = 3;
    rec.ExceptionInformation[0] = ZQ_CPP_EXCEPTION_MAGIC;
    rec.ExceptionInformation[1] = 0;
    rec.ExceptionInformation[2] = reinterpret_cast<ULONG_PTR>(abi::__cxa_current_exception_type());
    CONTEXT ctx;
    std::memset(&ctx, 0, sizeof(ctx));
    const ZqFloatingPointState fp = ZqGetFloatingPointState();
    ctx.MxCsr = fp.mxcsr;
    ctx.FltSave.ControlWord = fp.x87Control;
    EXCEPTION_POINTERS pointers{&rec, &ctx};
    ts->top = frame->outer;
    const LONG answer = CallFilter(frame, &pointers);
    if (answer == EXCEPTION_CONTINUE_SEARCH) throw;
    frame->record = rec;
    return rec.ExceptionCode;
  }
  ts->top = frame->outer;
  return 0;
}

}  // namespace

DWORD ZqGuardedCall(void (*fn)(void*), void* context, ZqGuardFilter filter, void* filterContext,
                    EXCEPTION_RECORD* outRecord) {
  GuardFrame frame;
  frame.thread = PrepareThread();
  frame.outer = frame.thread->top;
  frame.filter = filter;
  frame.filterContext = filterContext;
  frame.entryFp = ZqGetFloatingPointState();
  // frame.record needs no clearing: it is read only after JumpTo or RunBody
  // has written it whole.
  frame.thread->top = &frame;
  // After a jump only `frame` (in memory) and the unchanged arguments are used.
  // The signal mask is not saved: that would cost a system call on every
  // entry.  The handlers block nothing (SA_NODEFER, empty sa_mask), so after
  // a jump the thread has the mask it had at the fault.
  if (sigsetjmp(frame.jump, 0) != 0) {
    // Back from a signal handler or ZqRaiseException; top is the outer guard.
    if (outRecord) *outRecord = frame.record;
    return frame.record.ExceptionCode;
  }
  const DWORD code = RunBody(&frame, fn, context);
  if (code != 0 && outRecord) *outRecord = frame.record;
  return code;
}

void ZqRaiseException(DWORD code, DWORD flags, DWORD argumentCount, const ULONG_PTR* arguments) {
  EXCEPTION_RECORD rec;
  std::memset(&rec, 0, sizeof(rec));
  rec.ExceptionCode = code;
  rec.ExceptionFlags = flags & EXCEPTION_NONCONTINUABLE;
  rec.ExceptionAddress = __builtin_return_address(0);
  if (arguments) {
    rec.NumberParameters = argumentCount < EXCEPTION_MAXIMUM_PARAMETERS ? argumentCount : EXCEPTION_MAXIMUM_PARAMETERS;
    for (DWORD i = 0; i < rec.NumberParameters; ++i) rec.ExceptionInformation[i] = arguments[i];
  }
  CONTEXT ctx;
  std::memset(&ctx, 0, sizeof(ctx));
  ctx.Rip = reinterpret_cast<ULONG_PTR>(__builtin_return_address(0));
  ctx.Rsp = reinterpret_cast<ULONG_PTR>(__builtin_frame_address(0)) + 2 * sizeof(void*);
  const ZqFloatingPointState fp = ZqGetFloatingPointState();
  ctx.MxCsr = fp.mxcsr;
  ctx.FltSave.ControlWord = fp.x87Control;

  ThreadState* ts = PrepareThread();
  GuardFrame* taker = nullptr;
  switch (Dispatch(ts, &rec, &ctx, &taker)) {
    case Verdict::Handle:
      JumpTo(ts, taker, rec);
    case Verdict::Continue:
      return;
    case Verdict::Unhandled:
      break;
  }
  std::fprintf(stderr, "unhandled exception 0x%08X at %p\n", static_cast<unsigned>(code), rec.ExceptionAddress);
  std::abort();
}

void ZqGuardPrepareThread() { PrepareThread(); }

ZqFloatingPointState ZqGetFloatingPointState() {
  ZqFloatingPointState state;
  unsigned short control;
  unsigned int mxcsr;
  __asm__ volatile("fnstcw %0" : "=m"(control));
  __asm__ volatile("stmxcsr %0" : "=m"(mxcsr));
  state.x87Control = control;
  state.mxcsr = mxcsr;
  return state;
}

void ZqSetFloatingPointState(const ZqFloatingPointState& state) {
  const unsigned short control = state.x87Control;
  const unsigned int mxcsr = state.mxcsr;
  __asm__ volatile("fldcw %0" : : "m"(control));
  __asm__ volatile("ldmxcsr %0" : : "m"(mxcsr));
}

void ZqResetFloatingPointState() {
  const unsigned int mxcsr = 0x1F80;
  __asm__ volatile("fninit");
  __asm__ volatile("ldmxcsr %0" : : "m"(mxcsr));
}
