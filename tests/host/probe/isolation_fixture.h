// What the isolation tests share: paths of the modules and of the probe, a
// variable of the environment set for one scope, and a bare host that calls
// a plug-in under the fault guard and tells what each call raised.
#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "aplugins/zqvstwrap/vst2abi.h"
#include "base/status.h"
#include "platform/environment.h"
#include "platform/guard.h"
#include "platform/module.h"
#include "platform/text.h"

namespace zqtest {

inline std::string PluginPath8(const char* name) { return std::string(ZQ_PLUGIN_DIR) + "/" + name + ".so"; }
inline std::u16string PluginPath(const char* name) { return ZqUtf8ToUtf16(PluginPath8(name)); }
inline std::string ProbePath8() { return std::string(ZQ_BINARY_DIR) + "/bin/zqprobe"; }

// Sets (or with null removes) a variable until the end of the scope, then
// puts back what was there.  Only while no other thread reads the
// environment: the plug-ins read it with getenv.
class ScopedVariable {
 public:
  ScopedVariable(const char16_t* name, const char16_t* value) : name_(name) {
    WCHAR old[1024];
    const DWORD n = GetEnvironmentVariableW(name, old, 1024);
    if (n > 0 && n < 1024) {
      old_ = std::u16string(old, n);
    } else if (n == 0 && GetLastError() == ERROR_SUCCESS) {
      old_ = std::u16string();
    }
    EXPECT_TRUE(SetEnvironmentVariableW(name, value));
  }
  ~ScopedVariable() { SetEnvironmentVariableW(name_.c_str(), old_ ? old_->c_str() : nullptr); }
  ScopedVariable(const ScopedVariable&) = delete;
  ScopedVariable& operator=(const ScopedVariable&) = delete;

 private:
  std::u16string name_;
  std::optional<std::u16string> old_;
};

// One module entered in this process.  Every call runs under the guard and
// records the code of what it raised (0: nothing).
class RawEffect {
 public:
  explicit RawEffect(const char* name) {
    module_ = LoadLibraryW(PluginPath(name).c_str());
    if (module_ == nullptr) return;
    auto entry = reinterpret_cast<VstPluginMainProc>(reinterpret_cast<void*>(GetProcAddress(module_, "VSTPluginMain")));
    if (entry == nullptr) return;
    entryFault_ = ZqGuardedAll([&] { effect_ = entry(&Host); });
  }
  ~RawEffect() {
    if (effect_ != nullptr && effect_->magic == kEffectMagic) Call(effClose);
    if (module_ != nullptr && entryFault_ == 0) FreeLibrary(module_);
  }
  RawEffect(const RawEffect&) = delete;
  RawEffect& operator=(const RawEffect&) = delete;

  AEffect* effect() const { return effect_; }
  DWORD entryFault() const { return entryFault_; }
  // The exception code of the last call (0 when it completed).
  DWORD fault() const { return fault_; }

  intptr_t Call(int32_t opcode, int32_t index = 0, intptr_t value = 0, void* ptr = nullptr) {
    intptr_t answer = -1;
    fault_ = ZqGuardedAll([&] { answer = effect_->dispatcher(effect_, opcode, index, value, ptr, 0.0f); });
    return answer;
  }
  // The code raised by `opcode` with a text buffer, as the text calls take.
  DWORD FaultOf(int32_t opcode) {
    char text[260] = {};
    Call(opcode, 0, 0, text);
    return fault_;
  }
  DWORD Process(float** in, float** out, int32_t frames) {
    return fault_ = ZqGuardedAll([&] { effect_->processReplacing(effect_, in, out, frames); });
  }

 private:
  // A version, and 0 to the rest (so a shell gives its container).
  static intptr_t Host(AEffect*, int32_t opcode, int32_t, intptr_t, void*, float) {
    return opcode == audioMasterVersion ? 2400 : 0;
  }

  HMODULE module_ = nullptr;
  AEffect* effect_ = nullptr;
  DWORD entryFault_ = 0;
  DWORD fault_ = 0;
};

}  // namespace zqtest
