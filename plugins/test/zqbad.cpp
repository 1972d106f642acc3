// Misbehaving modules, one per value of ZQBAD_KIND (see the enum below and
// plugins/README.md).  Apart from its one misbehaviour each is a plain
// 2 in / 2 out pass-through effect named "ZqBad <kind>" with uniqueID 'ZqB'
// followed by the letter of its kind.
//
// Faults are real: a write through a null pointer (SIGSEGV), an integer
// division by zero (SIGFPE on x86-64), a C++ exception that leaves the
// plug-in, a call that never returns, exit().
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <thread>

#include "plugins/common/zqplugin.h"

#ifndef ZQBAD_KIND
#error ZQBAD_KIND selects the module
#endif

namespace {

using namespace zqplug;

enum BadKind {
  kEntryFault = 1,  // SIGSEGV inside VSTPluginMain
  kOpenFault,  // SIGSEGV in effOpen
  kProcessFault,  // SIGSEGV in processReplacing
  kGetParamFault,  // SIGSEGV in getParameter
  kOpcodeFault,  // SIGSEGV on the opcode named by ZQBAD_FAULT_OPCODE (default 47)
  kThrow,  // C++ exception from ZQBAD_THROW_OPCODE (default 0) / processReplacing
  kDivide,  // integer division by zero in processReplacing
  kEntryHang,  // VSTPluginMain never returns
  kOpenHang,  // effOpen never returns
  kOpenExit,  // exit(7) in effOpen
  kMagic,  // an effect with a wrong magic number
  kNullEntry,  // VSTPluginMain answers null
};

constexpr BadKind kKind = static_cast<BadKind>(ZQBAD_KIND);
constexpr char kKindLetter = static_cast<char>('a' + ZQBAD_KIND - 1);

[[noreturn]] void Fault() {
  volatile int* volatile target = nullptr;
  *target = 0x5A71;
  std::abort();  // not reached: the write faults
}

void DivideByZero() {
  volatile int divisor = 0;
  volatile int dividend = 0x5A71;
  volatile int result = dividend / divisor;  // idiv with a zero divisor
  (void)result;
}

[[noreturn]] void HangForever() {
  for (;;) std::this_thread::sleep_for(std::chrono::milliseconds(50));
}

// An opcode number from the environment, read at each call; "none" or an
// empty value means no opcode.
int32_t OpcodeFromEnvironment(const char* name, int32_t fallback) {
  const char* text = std::getenv(name);
  if (text == nullptr) return fallback;
  if (*text == '\0' || std::strcmp(text, "none") == 0) return -1;
  return static_cast<int32_t>(std::strtol(text, nullptr, 0));
}

Info BadInfo() {
  Info info;
  static char name[32];
  CopyText(name, (std::string("ZqBad ") + kKindLetter).c_str(), sizeof name);
  info.effectName = name;
  info.uniqueId = static_cast<int32_t>((static_cast<uint32_t>(ZqVstFourCC("ZqB ")) & 0xFFFFFF00u) |
                                       static_cast<unsigned char>(kKindLetter));
  info.params = {{"Level", "", 1.0f}};
  return info;
}

AEffectDispatcherProc g_plainDispatcher = nullptr;
AEffectGetParameterProc g_plainGetParameter = nullptr;

void Misbehave(int32_t opcode) {
  if (kKind == kOpenFault && opcode == effOpen) Fault();
  if (kKind == kOpenHang && opcode == effOpen) HangForever();
  if (kKind == kOpenExit && opcode == effOpen) std::exit(7);
  if (kKind == kOpcodeFault && opcode == OpcodeFromEnvironment("ZQBAD_FAULT_OPCODE", effGetVendorString))
    Fault();
  if (kKind == kThrow && opcode == OpcodeFromEnvironment("ZQBAD_THROW_OPCODE", effOpen))
    throw std::runtime_error("zqbad: thrown from dispatcher opcode " + std::to_string(opcode));
}

// Runs the misbehaviour around the ordinary dispatcher: before the call, or
// for effClose after it, so that the instance is freed all the same.
intptr_t BadDispatcher(AEffect* e, int32_t opcode, int32_t index, intptr_t value, void* ptr, float opt) {
  if (opcode != effClose) Misbehave(opcode);
  const intptr_t answer = g_plainDispatcher(e, opcode, index, value, ptr, opt);
  if (opcode == effClose) Misbehave(opcode);
  return answer;
}

float BadGetParameter(AEffect* e, int32_t index) {
  if (kKind == kGetParamFault) Fault();
  return g_plainGetParameter(e, index);
}

class Bad final : public Plugin {
 public:
  explicit Bad(audioMasterCallback host) : Plugin(host, BadInfo()) {
    g_plainDispatcher = effect()->dispatcher;
    g_plainGetParameter = effect()->getParameter;
    effect()->dispatcher = &BadDispatcher;
    effect()->getParameter = &BadGetParameter;
  }

 protected:
  void Process(float** in, float** out, int32_t frames) override {
    if (kKind == kProcessFault) Fault();
    if (kKind == kDivide) DivideByZero();
    if (kKind == kThrow) {
      const char* flag = std::getenv("ZQBAD_THROW_PROCESS");
      if (flag != nullptr && std::strcmp(flag, "1") == 0) throw std::runtime_error("zqbad: thrown from processReplacing");
    }
    for (int c = 0; c < 2; ++c)
      if (out[c] != in[c]) std::memmove(out[c], in[c], sizeof(float) * static_cast<size_t>(frames));
  }
};

// The wrong-magic effect is static: the host refuses it and may unload the
// module without effClose.  Its functions are harmless should it be called.
intptr_t InertDispatcher(AEffect*, int32_t, int32_t, intptr_t, void*, float) { return 0; }
void InertProcess(AEffect*, float**, float**, int32_t) {}
void InertSetParameter(AEffect*, int32_t, float) {}
float InertGetParameter(AEffect*, int32_t) { return 0.0f; }

AEffect g_wrongMagic = {
    ZqVstFourCC("VstQ"), &InertDispatcher, &InertProcess, &InertSetParameter, &InertGetParameter,
    0, 0, 2, 2, effFlagsCanReplacing, 0, 0, 0, 0, 0, 1.0f, nullptr, nullptr,
    ZqVstFourCC("ZqBk"), 1, &InertProcess, nullptr, {}};

}  // namespace

ZQ_PLUGIN_EXPORT AEffect* VSTPluginMain(audioMasterCallback host) {
  if constexpr (kKind == kEntryFault) Fault();
  if constexpr (kKind == kEntryHang) HangForever();
  if constexpr (kKind == kNullEntry) return nullptr;
  if constexpr (kKind == kMagic) return &g_wrongMagic;
  return Create<Bad>(host);
}
