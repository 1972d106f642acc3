// A bare host for the plug-in tests: loads a module through the platform's
// loader, enters it, opens the effect and offers typed calls.  The host
// callback answers from TestHost, which each test sets up.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "aplugins/zqvstwrap/vst2abi.h"
#include "platform/module.h"

namespace zqtest {

// What the host callback answers.
struct TestHost {
  int32_t currentId = 0;  // audioMasterCurrentId
  intptr_t needIdleAnswer = 0;  // audioMasterNeedIdle
  bool haveTime = false;  // audioMasterGetTime answers &time when set
  VstTimeInfo time{};
  std::string vendor;  // audioMasterGetVendorString copies it when not empty
  std::string directory;  // audioMasterGetDirectory answers its address when not empty
  std::vector<int32_t> opcodes;  // every opcode the callback saw
};
TestHost& Host();  // a test that needs other answers assigns TestHost{} first

std::string PluginPath(const char* file);

class Plugin {
 public:
  // Loads `file` from the plug-in folder and enters it at "VSTPluginMain"
  // (or "main").  With open, sends effOpen when the entry gave an effect
  // with the right magic.  An effect with the right magic gets effClose at
  // the end, opened or not, as a host unloads it.
  explicit Plugin(const char* file, bool open = true);
  ~Plugin();
  Plugin(const Plugin&) = delete;
  Plugin& operator=(const Plugin&) = delete;

  AEffect* effect() const { return effect_; }
  HMODULE module() const { return module_; }
  bool ok() const { return effect_ != nullptr && effect_->magic == kEffectMagic; }

  intptr_t Call(int32_t opcode, int32_t index = 0, intptr_t value = 0, void* ptr = nullptr,
                float opt = 0.0f);
  std::string Text(int32_t opcode, int32_t index = 0);
  void Close();  // effClose now, once (the destructor does it otherwise)
  void Resume(float rate = 44100.0f, int32_t block = 512);  // rate, block, mains on, start

  float Get(int32_t index) { return effect_->getParameter(effect_, index); }
  void Set(int32_t index, float value) { effect_->setParameter(effect_, index, value); }

  // Runs processReplacing over whole planes, in blocks whose sizes cycle
  // through `blocks`.  Inputs: one plane per input; answers one per output.
  std::vector<std::vector<float>> Run(const std::vector<std::vector<float>>& inputs, int32_t frames,
                                      const std::vector<int32_t>& blocks = {512});
  std::vector<std::vector<double>> RunDouble(const std::vector<std::vector<double>>& inputs,
                                             int32_t frames);

  // The module's exported test functions.
  std::string Log();
  void ClearLog();
  long long State(int what);
  void* Export(const char* name);

 private:
  HMODULE module_ = nullptr;
  AEffect* effect_ = nullptr;
  bool closed_ = false;
};

// "abcd" as the 32-bit value whose big-endian bytes those are.
int32_t Id(const char* text);

}  // namespace zqtest
