// The fault guard on one thread: the codes and records of each kind of
// fault, the filter's three answers, nesting, raised exceptions, the
// floating-point state and what happens to a fault nobody takes.
#include "platform/guard.h"

#include <gtest/gtest.h>

#include <csignal>
#include <functional>
#include <numeric>
#include <stdexcept>
#include <typeinfo>

#include "base/status.h"

namespace {

// Faulting helpers.  Addresses are small but not null so that the undefined
// behaviour checker leaves the access to the processor; they pass through
// volatile variables so that the compiler sees no constant address.
constexpr uintptr_t kBadReadAddress = 0x40;
constexpr uintptr_t kBadWriteAddress = 0x48;
constexpr uintptr_t kBadCodeAddress = 0x1000;

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

// Records what the filter saw; answers as programmed.
struct Probe {
  LONG answer = EXCEPTION_EXECUTE_HANDLER;
  int calls = 0;
  EXCEPTION_RECORD seen{};
  CONTEXT context{};
  ZqFloatingPointState stateInFilter{};
  LONG operator()(EXCEPTION_POINTERS* p) {
    ++calls;
    seen = *p->ExceptionRecord;
    context = *p->ContextRecord;
    stateInFilter = ZqGetFloatingPointState();
    return answer;
  }
};

DWORD RunGuarded(void (*body)(), ZqGuardFilter filter, void* filterContext, EXCEPTION_RECORD* rec) {
  return ZqGuardedCall([](void* f) { reinterpret_cast<void (*)()>(f)(); }, reinterpret_cast<void*>(body), filter,
                       filterContext, rec);
}

TEST(FaultGuard, AccessViolationCarriesKindAddressAndTheFaultingContext) {
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
    SCOPED_TRACE(testing::Message() << "kind " << c.kind);
    EXCEPTION_RECORD rec{};
    Probe probe;
    EXPECT_EQ(EXCEPTION_ACCESS_VIOLATION, ZqGuarded(c.body, std::ref(probe), &rec));
    ASSERT_EQ(2u, rec.NumberParameters);
    EXPECT_EQ(c.kind, rec.ExceptionInformation[0]);
    EXPECT_EQ(c.address, rec.ExceptionInformation[1]);
    EXPECT_EQ(nullptr, rec.ExceptionRecord);
    EXPECT_EQ(1, probe.calls);
    EXPECT_EQ(reinterpret_cast<ULONG_PTR>(rec.ExceptionAddress), probe.context.Rip);
    if (c.kind == 8) {
      EXPECT_EQ(kBadCodeAddress, probe.context.Rip);
    }
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
      // The same processor fault for a quotient too large: an overflow.
      {"integer overflow", [] { (void)DivideInteger(INT32_MIN, -1); }, EXCEPTION_INT_OVERFLOW},
      {"overflow, divisor in memory", [] { (void)DivideIntegerByMemory(INT32_MIN, -1); }, EXCEPTION_INT_OVERFLOW},
      {"64-bit overflow", [] { (void)DivideWide(INT64_MIN, -1); }, EXCEPTION_INT_OVERFLOW},
      {"8-bit quotient too large", [] { (void)DivideByte(0x1000, 2); }, EXCEPTION_INT_OVERFLOW},
      {"illegal instruction", [] { IllegalInstruction(); }, EXCEPTION_ILLEGAL_INSTRUCTION},
      {"privileged instruction", [] { PrivilegedInstruction(); }, EXCEPTION_PRIV_INSTRUCTION},
  };
  for (const Case& c : cases) {
    EXCEPTION_RECORD rec{};
    EXPECT_EQ(c.code, RunGuarded(c.body, TakeAll, nullptr, &rec)) << c.name;
    EXPECT_EQ(c.code, rec.ExceptionCode) << c.name;
    EXPECT_NE(nullptr, rec.ExceptionAddress) << c.name;
  }
}

// What the filter and the code after the guard run with: the default after a
// floating-point fault, the state the guard was entered with after any other
// fault, and the foreign code's own state after a C++ exception.
TEST(FaultGuard, FloatingPointStateAfterEachKindOfException) {
  const ZqFloatingPointState saved = ZqGetFloatingPointState();
  const ZqFloatingPointState kDefault{0x37F, 0x1F80};
  const ZqFloatingPointState kCaller{0x27F, 0x7F80};  // double precision; round toward zero
  // Flush-to-zero, denormals-are-zero, round down; x87 at single precision:
  // a plug-in's typical leftovers.
  const ZqFloatingPointState kForeign{0x07F, 0xBFC0};
  const ZqFloatingPointState kUnmasked{0x37F, 0x1F80 & ~0x0200u};  // divide by zero unmasked
  struct Case {
    const char* name;
    void (*fault)();
    ZqFloatingPointState foreign;
    DWORD code;
    ZqFloatingPointState after;
  } cases[] = {
      {"access violation", [] { (void)ReadBad(); }, kForeign, EXCEPTION_ACCESS_VIOLATION, kCaller},
      {"integer divide", [] { (void)DivideInteger(1, 0); }, kForeign, EXCEPTION_INT_DIVIDE_BY_ZERO, kCaller},
      {"illegal instruction", [] { IllegalInstruction(); }, kForeign, EXCEPTION_ILLEGAL_INSTRUCTION, kCaller},
      {"float divide by zero", [] { (void)DivideSse(1.0f, 0.0f); }, kUnmasked, EXCEPTION_FLT_DIVIDE_BY_ZERO,
       kDefault},
      {"C++ exception", [] { throw std::runtime_error("gave up"); }, kForeign, EXCEPTION_CPP, kForeign},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ZqSetFloatingPointState(kCaller);
    Probe probe;
    auto body = [&] { ZqSetFloatingPointState(c.foreign), c.fault(); };
    EXPECT_EQ(c.code, ZqGuarded(body, std::ref(probe)));
    const ZqFloatingPointState after = ZqGetFloatingPointState();
    ZqSetFloatingPointState(saved);
    EXPECT_EQ(c.foreign.mxcsr, probe.context.MxCsr & 0xFFC0u) << "the filter sees the foreign state";
    EXPECT_EQ(c.foreign.x87Control, probe.context.FltSave.ControlWord);
    EXPECT_EQ(c.after.mxcsr, probe.stateInFilter.mxcsr & 0xFFC0u);
    EXPECT_EQ(c.after.x87Control, after.x87Control);
    EXPECT_EQ(c.after.mxcsr, after.mxcsr & 0xFFC0u);
  }
}

TEST(FaultGuard, ACompletedBodyAnswersZeroAndLeavesTheRecordAlone) {
  int ran = 0;
  EXCEPTION_RECORD rec{};
  rec.ExceptionCode = 0x1234;
  Probe probe;
  EXPECT_EQ(0u, ZqGuarded([&] { ++ran; }, std::ref(probe), &rec));
  EXPECT_EQ(1, ran);
  EXPECT_EQ(0, probe.calls);
  EXPECT_EQ(0x1234u, rec.ExceptionCode);
}

TEST(FaultGuard, CppExceptionRecordNamesTheThrownTypeAndCannotContinue) {
  EXCEPTION_RECORD rec{};
  Probe probe;
  EXPECT_EQ(EXCEPTION_CPP, ZqGuarded([] { throw std::out_of_range("index"); }, std::ref(probe), &rec));
  EXPECT_EQ(1, probe.calls);
  ASSERT_EQ(3u, rec.NumberParameters);
  EXPECT_EQ(ZQ_CPP_EXCEPTION_MAGIC, rec.ExceptionInformation[0]);
  EXPECT_EQ(reinterpret_cast<ULONG_PTR>(&typeid(std::out_of_range)), rec.ExceptionInformation[2]);
  EXPECT_EQ(EXCEPTION_CPP, ZqGuarded([] { throw 1; }, [](EXCEPTION_POINTERS*) { return EXCEPTION_CONTINUE_EXECUTION; }));
}

// An inner guard inside an outer one, for a fault and a C++ exception, with
// each of the inner filter's answers that do not continue.
TEST(FaultGuard, NestedGuardsPassOnOrHideWhatTheInnerFilterSays) {
  struct Case { bool cpp; LONG innerAnswer, outerAnswer; DWORD outerCode; int outerCalls; } cases[] = {
      {false, EXCEPTION_EXECUTE_HANDLER, EXCEPTION_EXECUTE_HANDLER, 0, 0},
      {true, EXCEPTION_EXECUTE_HANDLER, EXCEPTION_EXECUTE_HANDLER, 0, 0},
      {false, EXCEPTION_CONTINUE_SEARCH, EXCEPTION_EXECUTE_HANDLER, EXCEPTION_ACCESS_VIOLATION, 1},
      {true, EXCEPTION_CONTINUE_SEARCH, EXCEPTION_EXECUTE_HANDLER, EXCEPTION_CPP, 1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "C++ " << c.cpp << ", inner answer " << c.innerAnswer);
    Probe inner, outer;
    inner.answer = c.innerAnswer;
    outer.answer = c.outerAnswer;
    bool afterInner = false;
    EXCEPTION_RECORD rec{};
    auto fault = [&] {
      if (!c.cpp) WriteBad();
      throw std::runtime_error("thrown");
    };
    auto body = [&] { ZqGuarded(fault, std::ref(inner)), afterInner = true; };
    EXPECT_EQ(c.outerCode, ZqGuarded(body, std::ref(outer), &rec));
    EXPECT_EQ(1, inner.calls);
    EXPECT_EQ(c.outerCalls, outer.calls);
    EXPECT_EQ(c.outerCalls == 0, afterInner);
  }
  // Nobody takes a C++ exception: it reaches the caller, and both guards are
  // gone from the thread.
  Probe inner, outer;
  inner.answer = outer.answer = EXCEPTION_CONTINUE_SEARCH;
  EXPECT_THROW(ZqGuarded([&] { ZqGuarded([] { throw std::logic_error("x"); }, std::ref(inner)); }, std::ref(outer)),
               std::logic_error);
  EXPECT_EQ(1, outer.calls);
  EXPECT_EQ(EXCEPTION_ACCESS_VIOLATION, ZqGuardedAll([] { (void)ReadBad(); }));
}

TEST(FaultGuard, GuardsWorkInsideAFilterAndAFaultInAFilterGoesOutward) {
  int nestedInFilter = -1;
  EXPECT_EQ(EXCEPTION_ACCESS_VIOLATION, ZqGuarded([] { (void)ReadBad(); }, [&](EXCEPTION_POINTERS*) {
              nestedInFilter = static_cast<int>(ZqGuardedAll([] { WriteBad(); }));
              return EXCEPTION_EXECUTE_HANDLER;
            }));
  EXPECT_EQ(static_cast<int>(EXCEPTION_ACCESS_VIOLATION), nestedInFilter);

  Probe outer;
  int middleFilterCalls = 0;
  EXCEPTION_RECORD rec{};
  auto middleFilter = [&](EXCEPTION_POINTERS*) -> LONG {
    if (++middleFilterCalls == 1) WriteBad();  // its own guard must not be asked again
    return EXCEPTION_EXECUTE_HANDLER;
  };
  auto middle = [&] { ZqGuarded([] { IllegalInstruction(); }, middleFilter); };
  EXPECT_EQ(EXCEPTION_ACCESS_VIOLATION, ZqGuarded(middle, std::ref(outer), &rec));
  EXPECT_EQ(1, middleFilterCalls);
  EXPECT_EQ(1, outer.calls);
  EXPECT_EQ(kBadWriteAddress, rec.ExceptionInformation[1]);
}

TEST(FaultGuard, ContinueExecutionResumesWithTheFiltersContext) {
  bool resumed = false;
  int filterCalls = 0;
  auto skip = [&](EXCEPTION_POINTERS* p) -> LONG {
    ++filterCalls;
    p->ContextRecord->Rip += 2;  // ud2 is two bytes long
    return EXCEPTION_CONTINUE_EXECUTION;
  };
  EXPECT_EQ(0u, ZqGuarded([&] { IllegalInstruction(), resumed = true; }, skip));
  EXPECT_TRUE(resumed);
  EXPECT_EQ(1, filterCalls);
}

// The plug-in guards pass the worker's stop code on and take everything else.
TEST(FaultGuard, StopCodePassesPluginGuardsToTheThreadGuard) {
  int pluginCalls = 0;
  bool pastRaise = false;
  auto plugin = [&](EXCEPTION_POINTERS* p) -> LONG {
    ++pluginCalls;
    return p->ExceptionRecord->ExceptionCode == ZQ_EXCEPTION_STOP_WORKER ? EXCEPTION_CONTINUE_SEARCH
                                                                         : EXCEPTION_EXECUTE_HANDLER;
  };
  auto thread = [](EXCEPTION_POINTERS* p) -> LONG {
    return p->ExceptionRecord->ExceptionCode == ZQ_EXCEPTION_STOP_WORKER ? EXCEPTION_EXECUTE_HANDLER
                                                                         : EXCEPTION_CONTINUE_SEARCH;
  };
  EXCEPTION_RECORD rec{};
  const ULONG_PTR args[2] = {7, 9};
  auto raise = [&] { ZqRaiseException(ZQ_EXCEPTION_STOP_WORKER, 0, 2, args), pastRaise = true; };
  auto inner = [&] { ZqGuarded(raise, plugin); };
  EXPECT_EQ(ZQ_EXCEPTION_STOP_WORKER, ZqGuarded([&] { ZqGuarded(inner, plugin); }, thread, &rec));
  EXPECT_EQ(2, pluginCalls);
  EXPECT_FALSE(pastRaise);
  ASSERT_EQ(2u, rec.NumberParameters);
  EXPECT_EQ(9u, rec.ExceptionInformation[1]);
  EXPECT_EQ(0u, rec.ExceptionFlags);
}

TEST(FaultGuard, RaisedExceptionContinuesOnlyWhenContinuableAndKeepsFifteenArguments) {
  int returned = 0;
  auto continueAll = [](EXCEPTION_POINTERS*) { return EXCEPTION_CONTINUE_EXECUTION; };
  EXPECT_EQ(0u, ZqGuarded([&] { ZqRaiseException(0xE0000002, 0, 0, nullptr), ++returned; }, continueAll));
  EXPECT_EQ(1, returned);
  EXCEPTION_RECORD rec{};
  ULONG_PTR args[20];
  std::iota(args, args + 20, ULONG_PTR{100});
  auto raise = [&] { ZqRaiseException(0xE0000003, EXCEPTION_NONCONTINUABLE, 20, args), ++returned; };
  EXPECT_EQ(0xE0000003u, ZqGuarded(raise, continueAll, &rec));
  EXPECT_EQ(1, returned);
  EXPECT_EQ(EXCEPTION_NONCONTINUABLE, rec.ExceptionFlags);
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
  EXPECT_EQ(EXCEPTION_STACK_OVERFLOW, ZqGuardedAll([] { (void)Recurse(0); }, &rec))
      << std::hex << "fault at 0x" << rec.ExceptionInformation[1];
  EXPECT_EQ(0u, ZqGuardedAll([] {}));
}

class FaultGuardDeath : public testing::Test {
 protected:
  void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(FaultGuardDeath, FaultsNobodyTakesGetTheDefaultAction) {
  EXPECT_EXIT(
      {
        ZqGuardPrepareThread();
        EXPECT_EQ(0u, ZqGuardedAll([] {}));
        WriteBad();
      },
      testing::KilledBySignal(SIGSEGV), "");
  auto passOn = [](EXCEPTION_POINTERS*) { return EXCEPTION_CONTINUE_SEARCH; };
  EXPECT_EXIT(ZqGuarded([] { (void)ReadBad(); }, passOn), testing::KilledBySignal(SIGSEGV), "");
  EXPECT_EXIT(ZqGuarded([] { IllegalInstruction(); }, passOn), testing::KilledBySignal(SIGILL), "");
  EXPECT_EXIT(ZqRaiseException(0xE0000001, 0, 0, nullptr), testing::KilledBySignal(SIGABRT), "0xE0000001");
}

}  // namespace
