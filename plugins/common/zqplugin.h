// A small base for the VST 2.x modules that this project builds: the
// examples a user keeps and the test plug-ins, well-behaved or not.
//
// A plug-in derives from zqplug::Plugin, describes itself with an Info
// record, and overrides narrow hooks (process, display text, parameter
// properties, extra opcodes).  The base owns the AEffect and the protocol
// every plug-in shares: programs with names and per-program parameter
// values, text answers within the published limits, mains/process tracking,
// sample rate and block size, and a record of every dispatcher call.
//
// These modules stand for foreign code: they depend on nothing of the
// project but the binary interface header, only on libc, libstdc++ and libm.
//
// What a test can read from any module built on this base (C functions
// exported by name, next to the entry point; see plugins/README.md):
//
//   const char* zqplugin_log(void)      every dispatcher call of every
//                                       instance of this module, one line
//                                       each: "<opcode name> <index> <value>"
//                                       (+ " <opt>" when opt is not 0,
//                                       + " \"text\"" for text given to the
//                                       plug-in).  The text stays valid until
//                                       the next call of a zqplugin_ function.
//   void zqplugin_log_clear(void)
//   long long zqplugin_state(int what)  a StateSlot of the most recently
//                                       created instance (kept after its
//                                       effClose), -1 for an unknown slot.
//
// The same state slots answer effVendorSpecific with index kZqPlugStateIndex
// ('ZqSt') and the slot number as value.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "aplugins/zqvstwrap/vst2abi.h"

#define ZQ_PLUGIN_EXPORT extern "C" __attribute__((visibility("default")))

namespace zqplug {

// effVendorSpecific index that reads a state slot (value: the slot).
constexpr int32_t kZqPlugStateIndex = ZqVstFourCC("ZqSt");

// State slots of zqplugin_state and of the 'ZqSt' vendor call.
enum StateSlot : int32_t {
  kStateFlags = 0,  // kFlag* bits below
  kStateSampleRate = 1,  // last effSetSampleRate, rounded to an integer
  kStateBlockSize = 2,  // last effSetBlockSize
  kStateMainsOnCount = 3,  // effMainsChanged with value 1
  kStateMainsOffCount = 4,  // effMainsChanged with value 0
  kStateStartCount = 5,  // effStartProcess
  kStateStopCount = 6,  // effStopProcess
  kStateProcessCount = 7,  // processReplacing calls
  kStateLastFrames = 8,  // frames of the last processReplacing call
  kStateProgram = 9,  // current program
  kStateProcessDoubleCount = 10,  // processDoubleReplacing calls
  kStateArrangementCount = 11,  // effSetSpeakerArrangement calls
  kStateOpenCount = 12,  // effOpen
  kStateCloseCount = 13,  // effClose
  kStateInstancesCreated = 14,  // instances this module made, all time
  kStateInstancesAlive = 15,  // instances not yet closed
  kStateProcessWhileOff = 16,  // processReplacing calls that came with mains off
  kStatePluginSpecific = 17,  // first slot a plug-in may answer itself
  kStateSlotCount = 24,
};

enum StateFlag : int64_t {
  kFlagMainsOn = 1,  // effMainsChanged(1) seen, effMainsChanged(0) not since
  kFlagProcessing = 2,  // effStartProcess seen, effStopProcess not since
  kFlagOpen = 4,  // effOpen seen, effClose not
};

struct ParamSpec {
  const char* name;  // at most 7 characters
  const char* label;  // unit, at most 7 characters
  float defaultValue;
};

struct ProgramSpec {
  const char* name;  // at most 23 characters
  std::vector<float> values;  // one per parameter; missing ones take the default
};

struct Info {
  const char* effectName = "";  // at most 31 characters
  const char* productName = "ZqVstWrap Test Plug-ins";
  const char* vendorName = "Ostrand";
  int32_t uniqueId = 0;
  int32_t version = 1;
  int32_t vendorVersion = 1000;
  int32_t numInputs = 2;
  int32_t numOutputs = 2;
  int32_t flags = effFlagsCanReplacing;
  int32_t category = kPlugCategEffect;
  int32_t initialDelay = 0;
  bool indexedProgramNames = true;  // answer effGetProgramNameIndexed
  std::vector<ParamSpec> params;
  std::vector<ProgramSpec> programs;
};

// Copies at most limit-1 bytes and always terminates.
void CopyText(char* dest, const char* text, size_t limit);

// Appends one line to the module's call record (thread-safe).
void Log(const std::string& line);

// The published name of a dispatcher or host callback opcode, or a number.
std::string DispatcherOpcodeName(int32_t opcode);
std::string HostOpcodeName(int32_t opcode);

// "abcd" when all four bytes are printable, else the decimal number.
std::string FourCCText(intptr_t value);

class Plugin {
 public:
  Plugin(audioMasterCallback host, Info info);
  virtual ~Plugin();
  Plugin(const Plugin&) = delete;
  Plugin& operator=(const Plugin&) = delete;

  AEffect* effect() { return &effect_; }
  static Plugin* From(AEffect* effect) { return static_cast<Plugin*>(effect->object); }

 protected:
  // Replaces outputs from inputs.  Called with any frame count from 0 up.
  virtual void Process(float** inputs, float** outputs, int32_t frames) = 0;
  // Only called when the flags have effFlagsCanDoubleReplacing.
  virtual void ProcessDouble(double** inputs, double** outputs, int32_t frames);

  virtual void ParameterChanged(int32_t /*index*/) {}
  virtual void Resume() {}  // mains switched on
  virtual void Suspend() {}  // mains switched off
  // Display text of a parameter, at most kVstMaxParamStrLen bytes.
  virtual void FormatDisplay(int32_t index, float value, char* text);
  // Fill and answer true to support effGetParameterProperties for index.
  virtual bool ParameterProperties(int32_t /*index*/, VstParameterProperties* /*props*/) {
    return false;
  }
  virtual intptr_t CanDo(const char* text);
  virtual int32_t TailSize() { return 0; }
  // Slots from kStatePluginSpecific up; -1 when not known.
  virtual int64_t PluginState(int32_t /*slot*/) { return -1; }
  // Opcodes the base does not answer itself; also effVendorSpecific calls
  // other than the state query, effGetChunk/effSetChunk and the speaker and
  // shell opcodes.  Answer 0 for what is not known.
  virtual intptr_t DispatchExtra(int32_t opcode, int32_t index, intptr_t value, void* ptr,
                                 float opt);

  float Param(int32_t index) const { return params_[static_cast<size_t>(index)]; }
  // Sets a parameter as if the host had, with the program kept in step.
  void SetParam(int32_t index, float value);
  int32_t NumParams() const { return effect_.numParams; }
  int32_t CurrentProgram() const { return program_; }
  const std::string& ProgramName(int32_t index) const {
    return programs_[static_cast<size_t>(index)].name;
  }
  void SetProgramName(int32_t index, const char* name);
  std::vector<float>& ProgramValues(int32_t index) {
    return programs_[static_cast<size_t>(index)].values;
  }
  void SelectProgram(int32_t index);

  bool MainsOn() const { return mainsOn_; }
  float SampleRate() const { return sampleRate_; }
  int32_t BlockSize() const { return blockSize_; }

 public:
  // State slot of this instance, or -1.
  int64_t State(int32_t slot);

  audioMasterCallback host_;

 private:
  struct Program {
    std::string name;
    std::vector<float> values;
  };

  intptr_t Dispatch(int32_t opcode, int32_t index, intptr_t value, void* ptr, float opt);
  void LogDispatch(int32_t opcode, int32_t index, intptr_t value, void* ptr, float opt);

  static intptr_t DispatcherEntry(AEffect* e, int32_t opcode, int32_t index, intptr_t value,
                                  void* ptr, float opt);
  static void ProcessEntry(AEffect* e, float** inputs, float** outputs, int32_t frames);
  static void ProcessReplacingEntry(AEffect* e, float** inputs, float** outputs, int32_t frames);
  static void ProcessDoubleEntry(AEffect* e, double** inputs, double** outputs, int32_t frames);
  static void SetParameterEntry(AEffect* e, int32_t index, float value);
  static float GetParameterEntry(AEffect* e, int32_t index);

  AEffect effect_{};
  Info info_;
  std::vector<float> params_;
  std::vector<Program> programs_;
  int32_t program_ = 0;
  bool mainsOn_ = false;
  bool processing_ = false;
  bool open_ = false;
  float sampleRate_ = 44100.0f;
  int32_t blockSize_ = 1024;
  int64_t counts_[kStateSlotCount] = {};
  std::atomic<int64_t> processCount_{0};
  std::atomic<int64_t> processDoubleCount_{0};
  std::atomic<int64_t> lastFrames_{0};
  std::atomic<int64_t> processWhileOff_{0};

  friend void CountArrangement(Plugin* plugin);
};

// Counts an effSetSpeakerArrangement for the state slot.
void CountArrangement(Plugin* plugin);

// Makes a new instance and answers its effect, for an entry point.
template <typename T, typename... Args>
AEffect* Create(audioMasterCallback host, Args&&... args) {
  T* plugin = new T(host, static_cast<Args&&>(args)...);
  return plugin->effect();
}

}  // namespace zqplug
