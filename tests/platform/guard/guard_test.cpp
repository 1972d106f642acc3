// The fault guard on one thread: the codes and records of each kind of
// fault, the filter's three answers, nesting, raised exceptions, the
// floating-point state and what happens to a fault nobody takes.
#include "platform/guard.h"

#include <gtest/gtest.h>

#include <csignal>
#include <stdexcept>
#include <typeinfo>

#include "base/status.h"

namespace {

// Faulting helpers.  Addresses are small but not null so that the undefined
// behaviour checker leaves the access to the processor.
constexpr uintptr_t kBadReadAddress = 0x40;
constexpr uintptr_t kBadWriteAddress = 0x48;
constexpr uintptr_t kBadCodeAddress = 0x1000;

// The addresses pass through volatile variables so that the compiler sees
// no constant address to reason about.
__attribute__((noinline)) int ReadBad() {
  volatile uintptr_t address = kBadReadAddress;
  return *reinterpret_cast<volatile int*>(address);
}
__attribute__((noinline)) void WriteBad() {
  volatile uintptr_t address = kBadWriteAddress;
  *reinterpret_cast<volatile int*>(address) = 1;
}
__attribute__((noinline)) void JumpBad() {
  volatile uintptr_t address = kBadCodeAddress;
  reinterpret_cast<void (*)()>(address)();
}

__attribute__((noinline)) int DivideInteger(int a, int b) {
  int q;
  __asm__ volatile("cltd\n\tidivl %2" : "=a"(q) : "a"(a), "r"(b) : "rdx", "cc");
  return q;
}

// The divisor in memory, addressed through the stack.
__attribute__((noinline)) int DivideIntegerByMemory(int a, int b) {
  volatile int divisor = b;
  int q;
  __asm__ volatile("cltd\n\tidivl %2" : "=a"(q) : "a"(a), "m"(divisor) : "rdx", "cc");
  return q;
}

__attribute__((noinline)) long long DivideWide(long long a, long long b) {
  long long q;
  __asm__ volatile("cqto\n\tidivq %2" : "=a"(q) : "a"(a), "r"(b) : "rdx", "cc");
  return q;
}

__attribute__((noinline)) unsigned DivideByte(unsigned a, unsigned char b) {
  unsigned q;
  __asm__ volatile("divb %b2" : "=a"(q) : "a"(a), "q"(b) : "cc");
  return q;
}

__attribute__((noinline)) void IllegalInstruction() { __asm__ volatile("ud2"); }
__attribute__((noinline)) void PrivilegedInstruction() { __asm__ volatile("hlt"); }

__attribute__((noinline)) float DivideSse(float a, float b) {
  __asm__ volatile("divss %1, %0" : "+x"(a) : "x"(b));
  return a;
}

LONG TakeAll(EXCEPTION_POINTERS*, void*) { return EXCEPTION_EXECUTE_HANDLER; }

// The guard catches the filter's view of the record; what it answers is
// programmed per test.
struct Probe {
  LONG answer = EXCEPTION_EXECUTE_HANDLER;
  int calls = 0;
  EXCEPTION_RECORD seen{};
  CONTEXT context{};
  ZqFloatingPointState stateInFilter{};
};

LONG ProbeFilter(EXCEPTION_POINTERS* p, void* ctx) {
  auto* probe = static_cast<Probe*>(ctx);
  ++probe->calls;
  probe->seen = *p->ExceptionRecord;
  probe->context = *p->ContextRecord;
  probe->stateInFilter = ZqGetFloatingPointState();
  return probe->answer;
}

// Restores the test thread's floating-point state whatever a test did.
class FloatingPointScope {
 public:
  FloatingPointScope() : saved_(ZqGetFloatingPointState()) {}
  ~FloatingPointScope() { ZqSetFloatingPointState(saved_); }

 private:
  ZqFloatingPointState saved_;
};

TEST(FaultGuard, CompletedBodyAnswersZeroAndLeavesRecordAlone) {
  int ran = 0;
  EXCEPTION_RECORD rec{};
  rec.ExceptionCode = 0x1234;
  Probe probe;
  EXPECT_EQ(0u, ZqGuarded([&] { ++ran; }, [&](EXCEPTION_POINTERS* p) { return ProbeFilter(p, &probe); }, &rec));
  EXPECT_EQ(1, ran);
  EXPECT_EQ(0, probe.calls);
  EXPECT_EQ(0x1234u, rec.ExceptionCode);
}

TEST(FaultGuard, AccessViolationCarriesKindAndAddress) {
  struct Case {
    void (*body)();
    ULONG_PTR kind;
    uintptr_t address;
  } cases[] = {
      {[] { (void)ReadBad(); }, 0, kBadReadAddress},
      {[] { WriteBad(); }, 1, kBadWriteAddress},
      {[] { JumpBad(); }, 8, kBadCodeAddress},
  };
  for (const Case& c : cases) {
    EXCEPTION_RECORD rec{};
    Probe probe;
    const DWORD code = ZqGuardedCall([](void* f) { reinterpret_cast<void (*)()>(f)(); },
                                     reinterpret_cast<void*>(c.body), ProbeFilter, &probe, &rec);
    SCOPED_TRACE(testing::Message() << "kind " << c.kind);
    EXPECT_EQ(EXCEPTION_ACCESS_VIOLATION, code);
    EXPECT_EQ(EXCEPTION_ACCESS_VIOLATION, rec.ExceptionCode);
    ASSERT_EQ(2u, rec.NumberParameters);
    EXPECT_EQ(c.kind, rec.ExceptionInformation[0]);
    EXPECT_EQ(c.address, rec.ExceptionInformation[1]);
    EXPECT_EQ(nullptr, rec.ExceptionRecord);
    EXPECT_EQ(1, probe.calls);
    // The context is the faulting one: the instruction pointer is where the
    // record says, and for a jump into nowhere it is that address.
    EXPECT_EQ(reinterpret_cast<ULONG_PTR>(rec.ExceptionAddress), probe.context.Rip);
    if (c.kind == 8) {
      EXPECT_EQ(kBadCodeAddress, probe.context.Rip);
    }
    EXPECT_NE(0u, probe.context.Rsp);
  }
}

TEST(FaultGuard, ProcessorFaultsGetTheOriginalCodes) {
  struct Case {
    const char* name;
    void (*body)();
    DWORD code;
  } cases[] = {
      {"integer divide by zero", [] { (void)DivideInteger(7, 0); }, EXCEPTION_INT_DIVIDE_BY_ZERO},
      {"divide by zero in memory", [] { (void)DivideIntegerByMemory(7, 0); }, EXCEPTION_INT_DIVIDE_BY_ZERO},
      {"64-bit divide by zero", [] { (void)DivideWide(7, 0); }, EXCEPTION_INT_DIVIDE_BY_ZERO},
      {"8-bit divide by zero", [] { (void)DivideByte(7, 0); }, EXCEPTION_INT_DIVIDE_BY_ZERO},
      // The same processor fault for a quotient too large: the original
      // reports an overflow.
      {"integer overflow", [] { (void)DivideInteger(INT32_MIN, -1); }, EXCEPTION_INT_OVERFLOW},
      {"overflow, divisor in memory", [] { (void)DivideIntegerByMemory(INT32_MIN, -1); }, EXCEPTION_INT_OVERFLOW},
      {"64-bit overflow", [] { (void)DivideWide(INT64_MIN, -1); }, EXCEPTION_INT_OVERFLOW},
      {"8-bit quotient too large", [] { (void)DivideByte(0x1000, 2); }, EXCEPTION_INT_OVERFLOW},
      {"illegal instruction", [] { IllegalInstruction(); }, EXCEPTION_ILLEGAL_INSTRUCTION},
      {"privileged instruction", [] { PrivilegedInstruction(); }, EXCEPTION_PRIV_INSTRUCTION},
      {"builtin trap", [] { __builtin_trap(); }, EXCEPTION_ILLEGAL_INSTRUCTION},
  };
  for (const Case& c : cases) {
    EXCEPTION_RECORD rec{};
    const DWORD code = ZqGuardedCall([](void* f) { reinterpret_cast<void (*)()>(f)(); },
                                     reinterpret_cast<void*>(c.body), TakeAll, nullptr, &rec);
    EXPECT_EQ(c.code, code) << c.name;
    EXPECT_EQ(c.code, rec.ExceptionCode) << c.name;
    EXPECT_NE(nullptr, rec.ExceptionAddress) << c.name;
  }
}

TEST(FaultGuard, UnmaskedFloatFaultsAreReportedAndTheStateIsReset) {
  FloatingPointScope scope;
  struct Case {
    DWORD unmask;  // MXCSR mask bit cleared for the fault
    float a, b;
    DWORD code;
  } cases[] = {
      {0x0200, 1.0f, 0.0f, EXCEPTION_FLT_DIVIDE_BY_ZERO},
      {0x0080, 0.0f, 0.0f, EXCEPTION_FLT_INVALID_OPERATION},
      {0x1000, 1.0f, 3.0f, EXCEPTION_FLT_INEXACT_RESULT},
  };
  for (const Case& c : cases) {
    Probe probe;
    EXCEPTION_RECORD rec{};
    const DWORD mxcsr = 0x1F80 & ~c.unmask;
    const DWORD code = ZqGuarded(
        [&] {
          ZqSetFloatingPointState({0x37F, mxcsr});
          volatile float q = DivideSse(c.a, c.b);
          (void)q;
        },
        [&](EXCEPTION_POINTERS* p) { return ProbeFilter(p, &probe); }, &rec);
    EXPECT_EQ(c.code, code);
    // The filter sees the plug-in's control register in the context, and
    // runs itself with the default state, which the guard leaves behind.
    EXPECT_EQ(mxcsr, probe.context.MxCsr & 0xFF80u);
    EXPECT_EQ(0x1F80u, probe.stateInFilter.mxcsr);
    const ZqFloatingPointState after = ZqGetFloatingPointState();
    EXPECT_EQ(0x1F80u, after.mxcsr);
    EXPECT_EQ(0x37F, after.x87Control);
  }
}

TEST(FaultGuard, StateLeftChangedByFaultingCodeIsReset) {
  FloatingPointScope scope;
  Probe probe;
  // Flush-to-zero, denormals-are-zero, round toward zero; x87 at double
  // precision: a plug-in's typical leftovers.
  const ZqFloatingPointState changed{0x27F, 0xFFC0};
  const DWORD code = ZqGuarded(
      [&] {
        ZqSetFloatingPointState(changed);
        (void)ReadBad();
      },
      [&](EXCEPTION_POINTERS* p) { return ProbeFilter(p, &probe); });
  EXPECT_EQ(EXCEPTION_ACCESS_VIOLATION, code);
  EXPECT_EQ(changed.x87Control, probe.context.FltSave.ControlWord);
  EXPECT_EQ(changed.mxcsr, probe.context.MxCsr);
  const ZqFloatingPointState after = ZqGetFloatingPointState();
  EXPECT_EQ(0x37F, after.x87Control);
  EXPECT_EQ(0x1F80u, after.mxcsr);
}

TEST(FaultGuard, CppExceptionKeepsStateUntilTheFilterResetsIt) {
  FloatingPointScope scope;
  const ZqFloatingPointState changed{0x27F, 0x9FC0};
  bool resetInFilter = false;
  auto body = [&] {
    ZqSetFloatingPointState(changed);
    throw std::runtime_error("plug-in gave up");
  };
  auto filter = [&](EXCEPTION_POINTERS* p) {
    EXPECT_EQ(changed.mxcsr, p->ContextRecord->MxCsr);
    if (resetInFilter) ZqResetFloatingPointState();
    return EXCEPTION_EXECUTE_HANDLER;
  };
  EXPECT_EQ(EXCEPTION_CPP, ZqGuarded(body, filter));
  EXPECT_EQ(changed.mxcsr, ZqGetFloatingPointState().mxcsr);
  resetInFilter = true;
  EXPECT_EQ(EXCEPTION_CPP, ZqGuarded(body, filter));
  EXPECT_EQ(0x1F80u, ZqGetFloatingPointState().mxcsr);
  EXPECT_EQ(0x37F, ZqGetFloatingPointState().x87Control);
}

TEST(FaultGuard, ResetRestoresDefaultsFromAnyState) {
  FloatingPointScope scope;
  ZqSetFloatingPointState({0x0C7F, 0xFFFF & ~0x0001u});
  ZqResetFloatingPointState();
  EXPECT_EQ(0x37F, ZqGetFloatingPointState().x87Control);
  EXPECT_EQ(0x1F80u, ZqGetFloatingPointState().mxcsr);
}

TEST(FaultGuard, ThousandFaultsInARowOnOneThread) {
  int handled = 0;
  for (int i = 0; i < 1000; ++i) {
    EXCEPTION_RECORD rec{};
    const DWORD code = ZqGuardedAll([] { WriteBad(); }, &rec);
    if (code == EXCEPTION_ACCESS_VIOLATION && rec.ExceptionInformation[1] == kBadWriteAddress) ++handled;
  }
  EXPECT_EQ(1000, handled);
  // The thread is in order afterwards: a body runs to its end, deep calls
  // and all.
  int sum = 0;
  EXPECT_EQ(0u, ZqGuardedAll([&] {
              for (int i = 0; i < 100; ++i) sum += i;
            }));
  EXPECT_EQ(4950, sum);
}

TEST(FaultGuard, CppExceptionRecordNamesTheThrownType) {
  EXCEPTION_RECORD rec{};
  Probe probe;
  const DWORD code = ZqGuarded([] { throw std::out_of_range("index"); },
                               [&](EXCEPTION_POINTERS* p) { return ProbeFilter(p, &probe); }, &rec);
  EXPECT_EQ(EXCEPTION_CPP, code);
  EXPECT_EQ(1, probe.calls);
  ASSERT_EQ(3u, rec.NumberParameters);
  EXPECT_EQ(ZQ_CPP_EXCEPTION_MAGIC, rec.ExceptionInformation[0]);
  EXPECT_EQ(reinterpret_cast<ULONG_PTR>(&typeid(std::out_of_range)), rec.ExceptionInformation[2]);
  EXPECT_EQ(EXCEPTION_CPP, ZqGuardedAll([] { throw 42; }));
}

TEST(FaultGuard, CppExceptionNobodyTakesReachesTheCaller) {
  Probe inner, outer;
  inner.answer = outer.answer = EXCEPTION_CONTINUE_SEARCH;
  bool caught = false;
  try {
    ZqGuarded(
        [&] {
          ZqGuarded([] { throw std::logic_error("x"); },
                    [&](EXCEPTION_POINTERS* p) { return ProbeFilter(p, &inner); });
        },
        [&](EXCEPTION_POINTERS* p) { return ProbeFilter(p, &outer); });
  } catch (const std::logic_error&) {
    caught = true;
  }
  EXPECT_TRUE(caught);
  EXPECT_EQ(1, inner.calls);
  EXPECT_EQ(1, outer.calls);
  // Both guards are gone from the thread: a fault now goes to a new guard.
  EXPECT_EQ(EXCEPTION_ACCESS_VIOLATION, ZqGuardedAll([] { (void)ReadBad(); }));
}

TEST(FaultGuard, InnerContinueSearchReachesTheOuterGuard) {
  for (int kind = 0; kind < 2; ++kind) {
    Probe inner, outer;
    inner.answer = EXCEPTION_CONTINUE_SEARCH;
    bool afterInner = false;
    EXCEPTION_RECORD rec{};
    const DWORD code = ZqGuarded(
        [&] {
          ZqGuarded(
              [&] {
                if (kind == 0) WriteBad();
                throw std::runtime_error("thrown");
              },
              [&](EXCEPTION_POINTERS* p) { return ProbeFilter(p, &inner); });
          afterInner = true;
        },
        [&](EXCEPTION_POINTERS* p) { return ProbeFilter(p, &outer); }, &rec);
    const DWORD expected = kind == 0 ? EXCEPTION_ACCESS_VIOLATION : EXCEPTION_CPP;
    EXPECT_EQ(expected, code);
    EXPECT_EQ(expected, rec.ExceptionCode);
    EXPECT_EQ(1, inner.calls);
    EXPECT_EQ(1, outer.calls);
    EXPECT_FALSE(afterInner);
  }
}

TEST(FaultGuard, InnerGuardThatTakesTheFaultHidesItFromTheOuter) {
  Probe inner, outer;
  bool afterInner = false;
  const DWORD code = ZqGuarded(
      [&] {
        EXPECT_EQ(EXCEPTION_ILLEGAL_INSTRUCTION,
                  ZqGuarded([] { IllegalInstruction(); }, [&](EXCEPTION_POINTERS* p) { return ProbeFilter(p, &inner); }));
        afterInner = true;
      },
      [&](EXCEPTION_POINTERS* p) { return ProbeFilter(p, &outer); });
  EXPECT_EQ(0u, code);
  EXPECT_TRUE(afterInner);
  EXPECT_EQ(1, inner.calls);
  EXPECT_EQ(0, outer.calls);
}

TEST(FaultGuard, GuardInsideAFilterAndInsideAHandlerWork) {
  int nestedInFilter = -1;
  int nestedAfter = -1;
  const DWORD code = ZqGuarded([] { (void)ReadBad(); },
                               [&](EXCEPTION_POINTERS*) {
                                 // A filter that itself runs foreign code.
                                 nestedInFilter = static_cast<int>(ZqGuardedAll([] { WriteBad(); }));
                                 return EXCEPTION_EXECUTE_HANDLER;
                               });
  EXPECT_EQ(EXCEPTION_ACCESS_VIOLATION, code);
  EXPECT_EQ(static_cast<int>(EXCEPTION_ACCESS_VIOLATION), nestedInFilter);
  // And the code after a handled fault (the handler's part) guards again.
  nestedAfter = static_cast<int>(ZqGuardedAll([] { (void)DivideInteger(1, 0); }));
  EXPECT_EQ(static_cast<int>(EXCEPTION_INT_DIVIDE_BY_ZERO), nestedAfter);
}

TEST(FaultGuard, FaultInAFilterGoesToTheGuardsOutsideIt) {
  Probe outer;
  int middleFilterCalls = 0;
  EXCEPTION_RECORD rec{};
  const DWORD code = ZqGuarded(
      [&] {
        ZqGuarded([] { IllegalInstruction(); },
                  [&](EXCEPTION_POINTERS*) -> LONG {
                    // The filter faults: its own guard must not be asked again.
                    if (++middleFilterCalls > 1) return EXCEPTION_EXECUTE_HANDLER;
                    WriteBad();
                    return EXCEPTION_EXECUTE_HANDLER;
                  });
      },
      [&](EXCEPTION_POINTERS* p) { return ProbeFilter(p, &outer); }, &rec);
  EXPECT_EQ(EXCEPTION_ACCESS_VIOLATION, code);
  EXPECT_EQ(1, middleFilterCalls);
  EXPECT_EQ(1, outer.calls);
  EXPECT_EQ(kBadWriteAddress, rec.ExceptionInformation[1]);
}

TEST(FaultGuard, ContinueExecutionResumesWithTheFiltersContext) {
  bool resumed = false;
  int filterCalls = 0;
  const DWORD code = ZqGuarded(
      [&] {
        IllegalInstruction();  // ud2 is two bytes long
        resumed = true;
      },
      [&](EXCEPTION_POINTERS* p) -> LONG {
        ++filterCalls;
        if (p->ExceptionRecord->ExceptionCode != EXCEPTION_ILLEGAL_INSTRUCTION) return EXCEPTION_EXECUTE_HANDLER;
        p->ContextRecord->Rip += 2;
        return EXCEPTION_CONTINUE_EXECUTION;
      });
  EXPECT_EQ(0u, code);
  EXPECT_TRUE(resumed);
  EXPECT_EQ(1, filterCalls);
}

TEST(FaultGuard, ContinueExecutionCannotContinueACppException) {
  const DWORD code = ZqGuarded([] { throw 1; }, [](EXCEPTION_POINTERS*) { return EXCEPTION_CONTINUE_EXECUTION; });
  EXPECT_EQ(EXCEPTION_CPP, code);
}

// The system's filter for plug-in calls passes the worker stop code on and
// takes everything else.
LONG PluginFilter(EXCEPTION_POINTERS* p, void* calls) {
  ++*static_cast<int*>(calls);
  return p->ExceptionRecord->ExceptionCode == ZQ_EXCEPTION_STOP_WORKER ? EXCEPTION_CONTINUE_SEARCH
                                                                       : EXCEPTION_EXECUTE_HANDLER;
}

TEST(FaultGuard, StopCodePassesPluginGuardsToTheThreadGuard) {
  int pluginCalls = 0;
  bool pastRaise = false;
  EXCEPTION_RECORD rec{};
  struct Ctx {
    int* pluginCalls;
    bool* pastRaise;
  } ctx{&pluginCalls, &pastRaise};
  const DWORD code = ZqGuardedCall(
      [](void* p) {
        auto* c = static_cast<Ctx*>(p);
        ZqGuardedCall(
            [](void* p2) {
              auto* c2 = static_cast<Ctx*>(p2);
              ZqGuardedCall(
                  [](void* p3) {
                    const ULONG_PTR args[2] = {7, 9};
                    ZqRaiseException(ZQ_EXCEPTION_STOP_WORKER, 0, 2, args);
                    *static_cast<Ctx*>(p3)->pastRaise = true;
                  },
                  p2, PluginFilter, c2->pluginCalls, nullptr);
            },
            c, PluginFilter, c->pluginCalls, nullptr);
      },
      &ctx,
      [](EXCEPTION_POINTERS* p, void*) -> LONG {
        return p->ExceptionRecord->ExceptionCode == ZQ_EXCEPTION_STOP_WORKER ? EXCEPTION_EXECUTE_HANDLER
                                                                             : EXCEPTION_CONTINUE_SEARCH;
      },
      nullptr, &rec);
  EXPECT_EQ(ZQ_EXCEPTION_STOP_WORKER, code);
  EXPECT_EQ(2, pluginCalls);
  EXPECT_FALSE(pastRaise);
  ASSERT_EQ(2u, rec.NumberParameters);
  EXPECT_EQ(7u, rec.ExceptionInformation[0]);
  EXPECT_EQ(9u, rec.ExceptionInformation[1]);
  EXPECT_EQ(0u, rec.ExceptionFlags);
}

TEST(FaultGuard, RaisedExceptionContinuesOnlyWhenContinuable) {
  int returned = 0;
  auto continueAll = [](EXCEPTION_POINTERS*) { return EXCEPTION_CONTINUE_EXECUTION; };
  EXPECT_EQ(0u, ZqGuarded(
                    [&] {
                      ZqRaiseException(0xE0000002, 0, 0, nullptr);
                      ++returned;
                    },
                    continueAll));
  EXPECT_EQ(1, returned);
  EXCEPTION_RECORD rec{};
  EXPECT_EQ(0xE0000003u, ZqGuarded(
                             [&] {
                               ZqRaiseException(0xE0000003, EXCEPTION_NONCONTINUABLE, 0, nullptr);
                               ++returned;
                             },
                             continueAll, &rec));
  EXPECT_EQ(1, returned);
  EXPECT_EQ(EXCEPTION_NONCONTINUABLE, rec.ExceptionFlags);
}

TEST(FaultGuard, RaisedExceptionKeepsAtMostFifteenArguments) {
  ULONG_PTR args[20];
  for (int i = 0; i < 20; ++i) args[i] = static_cast<ULONG_PTR>(100 + i);
  EXCEPTION_RECORD rec{};
  EXPECT_EQ(0xE0000010u, ZqGuardedAll([&] { ZqRaiseException(0xE0000010, 0, 20, args); }, &rec));
  ASSERT_EQ(EXCEPTION_MAXIMUM_PARAMETERS, rec.NumberParameters);
  EXPECT_EQ(114u, rec.ExceptionInformation[14]);
}

volatile int g_recursionLimit = 1 << 30;  // never reached: the stack ends first

__attribute__((noinline)) int Recurse(int depth) {
  volatile char frame[512];
  frame[0] = static_cast<char>(depth);
  if (depth >= g_recursionLimit) return frame[0];
  return Recurse(depth + 1) + frame[0];
}

TEST(FaultGuard, StackOverflowIsCaughtOnTheAlternateStack) {
  EXCEPTION_RECORD rec{};
  CONTEXT context{};
  const DWORD code = ZqGuarded([] { (void)Recurse(0); },
                               [&](EXCEPTION_POINTERS* p) {
                                 context = *p->ContextRecord;
                                 return EXCEPTION_EXECUTE_HANDLER;
                               },
                               &rec);
  EXPECT_EQ(EXCEPTION_STACK_OVERFLOW, code) << std::hex << "fault at 0x" << rec.ExceptionInformation[1]
                                            << " with the stack pointer at 0x" << context.Rsp;
  // The thread goes on normally.
  EXPECT_EQ(0u, ZqGuardedAll([] {}));
}

class FaultGuardDeath : public testing::Test {
 protected:
  void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(FaultGuardDeath, FaultOutsideAnyGuardStillKillsTheProcess) {
  EXPECT_EXIT(
      {
        ZqGuardPrepareThread();
        EXPECT_EQ(0u, ZqGuardedAll([] {}));
        WriteBad();
      },
      testing::KilledBySignal(SIGSEGV), "");
}

TEST_F(FaultGuardDeath, FaultNoFilterTakesGoesToTheDefaultAction) {
  EXPECT_EXIT(
      {
        ZqGuarded([] { (void)ReadBad(); }, [](EXCEPTION_POINTERS*) { return EXCEPTION_CONTINUE_SEARCH; });
      },
      testing::KilledBySignal(SIGSEGV), "");
  EXPECT_EXIT(
      {
        ZqGuarded([] { IllegalInstruction(); }, [](EXCEPTION_POINTERS*) { return EXCEPTION_CONTINUE_SEARCH; });
      },
      testing::KilledBySignal(SIGILL), "");
}

TEST_F(FaultGuardDeath, RaisedExceptionNobodyTakesAborts) {
  EXPECT_EXIT(ZqRaiseException(0xE0000001, 0, 0, nullptr), testing::KilledBySignal(SIGABRT), "0xE0000001");
}

}  // namespace
