// A bare host for the plug-in tests: loads a module through the platform's
// loader, enters it, opens the effect and offers typed calls.  Its callback
// answers only audioMasterVersion.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "aplugins/zqvstwrap/vst2abi.h"
#include "platform/module.h"

namespace zqtest {

class Plugin {
 public:
  // Loads `file` from the plug-in folder, enters it and sends effOpen; the
  // destructor sends effClose and unloads.
  explicit Plugin(const char* file);
  ~Plugin();
  Plugin(const Plugin&) = delete;
  Plugin& operator=(const Plugin&) = delete;

  AEffect* effect() const { return effect_; }
  bool ok() const { return effect_ != nullptr && effect_->magic == kEffectMagic; }

  intptr_t Call(int32_t opcode, int32_t index = 0, intptr_t value = 0, void* ptr = nullptr,
                float opt = 0.0f);
  std::string Text(int32_t opcode, int32_t index = 0);
  void Resume(float rate = 44100.0f, int32_t block = 512);  // rate, block, mains on, start

  float Get(int32_t index) { return effect_->getParameter(effect_, index); }
  void Set(int32_t index, float value) { effect_->setParameter(effect_, index, value); }

  // Runs processReplacing over whole planes, in blocks whose sizes cycle
  // through `blocks`.  Inputs: one plane per input; answers one per output.
  std::vector<std::vector<float>> Run(const std::vector<std::vector<float>>& inputs, int32_t frames,
                                      const std::vector<int32_t>& blocks = {512});
  std::vector<std::vector<double>> RunDouble(const std::vector<std::vector<double>>& inputs,
                                             int32_t frames);
  // A state slot of the module's test record (plugins/README.md).
  long long State(int what);

 private:
  HMODULE module_ = nullptr;
  AEffect* effect_ = nullptr;
};

// "abcd" as the 32-bit value whose big-endian bytes those are.
int32_t Id(const char* text);

}  // namespace zqtest
