// zqtest_prober: asks its host questions and records every answer.
//
// In the entry point it calls audioMasterVersion and audioMasterCurrentId
// with a null effect, then audioMasterNeedIdle with its new effect (whose
// resvd1 the host has not set yet).
//
// Armed, it runs the probe list once, at the start of the next
// processReplacing (then disarms).  Three ways to arm:
//   - parameter 0 "Arm" set to 0.5 or more (it reads 0 again after the run);
//   - effVendorSpecific with index 'ZqPr' (value 0 arms, value 1 runs the
//     list at once, outside processReplacing); answers 1;
//   - the exported C function zqtest_prober_arm().
// Parameter 1 "Target" is what audioMasterAutomate names.
//
// The probe list, in this order (index, value, ptr, opt as given):
//   audioMasterGetTime value 0, 0x100 (nanos), 0x7F00, 0xFF00;
//   audioMasterTempoAt value 0; audioMasterAutomate index 1 opt 0.25;
//   audioMasterBeginEdit 1; audioMasterEndEdit 1; audioMasterSizeWindow
//   index 320 value 200; audioMasterUpdateDisplay; audioMasterIdle;
//   audioMasterCanDo with "sendVstTimeInfo", "sizeWindow", "supplyIdle",
//   "shellCategory", "startStopProcess", "SendVstTimeInfo", "receiveVstEvents",
//   "noSuchCapability" and a null pointer; audioMasterGetDirectory;
//   audioMasterGetVendorString; audioMasterGetProductString;
//   audioMasterGetSampleRate; audioMasterGetBlockSize; audioMasterCurrentId;
//   audioMasterVersion; audioMasterGetNumAutomatableParameters;
//   audioMasterWillReplaceOrAccumulate; audioMasterGetVendorVersion;
//   audioMasterGetLanguage; opcodes 45 and 50.
//
// Report: const char* zqtest_prober_report(void), one line per call:
//   "<opcode name> <index> <value> -> <answer>[ <details>]"
// Details: for CanDo the text asked ("(null)" for none); for GetTime with a
// non-zero answer every VstTimeInfo field as name=value (doubles with 17
// significant digits, flags in hex); for GetDirectory the text at the
// answered address; for the vendor and product strings the buffer's text
// after the call (it holds "(untouched)" before).  Lines of the entry point
// come first.  void zqtest_prober_clear(void) empties the report.  State
// slot 17 counts the runs of the list.
#include <atomic>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>

#include "plugins/common/zqplugin.h"

namespace {

using namespace zqplug;

constexpr int32_t kProbeIndex = ZqVstFourCC("ZqPr");

struct Report {
  std::mutex lock;
  std::string text;
  std::string snapshot;
};

Report& TheReport() {
  static Report report;
  return report;
}

std::atomic<bool> g_armed{false};

void Record(const std::string& line) {
  Report& r = TheReport();
  std::lock_guard<std::mutex> hold(r.lock);
  r.text += line;
  r.text += '\n';
}

std::string Quoted(const char* text) { return text == nullptr ? "(null)" : '"' + std::string(text) + '"'; }

std::string Line(int32_t opcode, int32_t index, intptr_t value, intptr_t answer) {
  return HostOpcodeName(opcode) + ' ' + std::to_string(index) + ' ' + std::to_string(value) + " -> " +
         std::to_string(answer);
}

std::string TimeText(const VstTimeInfo* t) {
  char buffer[640];
  std::snprintf(buffer, sizeof buffer,
                "samplePos=%.17g sampleRate=%.17g nanoSeconds=%.17g ppqPos=%.17g tempo=%.17g "
                "barStartPos=%.17g cycleStartPos=%.17g cycleEndPos=%.17g timeSigNumerator=%d "
                "timeSigDenominator=%d smpteOffset=%d smpteFrameRate=%d samplesToNextClock=%d "
                "flags=0x%x",
                t->samplePos, t->sampleRate, t->nanoSeconds, t->ppqPos, t->tempo, t->barStartPos,
                t->cycleStartPos, t->cycleEndPos, t->timeSigNumerator, t->timeSigDenominator,
                t->smpteOffset, t->smpteFrameRate, t->samplesToNextClock,
                static_cast<unsigned>(t->flags));
  return buffer;
}

Info ProberInfo() {
  Info info;
  info.effectName = "ZqTestProber";
  info.uniqueId = ZqVstFourCC("ZqPr");
  info.params = {{"Arm", "", 0.0f}, {"Target", "", 0.0f}};
  return info;
}

class Prober final : public Plugin {
 public:
  explicit Prober(audioMasterCallback host) : Plugin(host, ProberInfo()) {}

  intptr_t Call(int32_t opcode, int32_t index, intptr_t value, void* ptr, float opt) {
    return host_ != nullptr ? host_(effect(), opcode, index, value, ptr, opt) : 0;
  }

  void Plain(int32_t opcode, int32_t index = 0, intptr_t value = 0, float opt = 0.0f) {
    Record(Line(opcode, index, value, Call(opcode, index, value, nullptr, opt)));
  }

  void RunProbes() {
    ++runs_;
    for (intptr_t filter : {intptr_t{0}, intptr_t{0x100}, intptr_t{0x7F00}, intptr_t{0xFF00}}) {
      const intptr_t answer = Call(audioMasterGetTime, 0, filter, nullptr, 0.0f);
      std::string line = Line(audioMasterGetTime, 0, filter, answer != 0 ? 1 : 0);
      if (answer != 0) line += ' ' + TimeText(reinterpret_cast<const VstTimeInfo*>(answer));
      Record(line);
    }
    Plain(audioMasterTempoAt, 0, 0);
    Plain(audioMasterAutomate, 1, 0, 0.25f);
    Plain(audioMasterBeginEdit, 1);
    Plain(audioMasterEndEdit, 1);
    Plain(audioMasterSizeWindow, 320, 200);
    Plain(audioMasterUpdateDisplay);
    Plain(audioMasterIdle);
    for (const char* text : {"sendVstTimeInfo", "sizeWindow", "supplyIdle", "shellCategory",
                             "startStopProcess", "SendVstTimeInfo", "receiveVstEvents",
                             "noSuchCapability", static_cast<const char*>(nullptr)}) {
      const intptr_t answer = Call(audioMasterCanDo, 0, 0, const_cast<char*>(text), 0.0f);
      Record(Line(audioMasterCanDo, 0, 0, answer) + ' ' + Quoted(text));
    }
    {
      const intptr_t answer = Call(audioMasterGetDirectory, 0, 0, nullptr, 0.0f);
      Record(Line(audioMasterGetDirectory, 0, 0, answer != 0 ? 1 : 0) +
             (answer != 0 ? ' ' + Quoted(reinterpret_cast<const char*>(answer)) : std::string()));
    }
    for (int32_t opcode : {int32_t{audioMasterGetVendorString}, int32_t{audioMasterGetProductString}}) {
      char buffer[260] = "(untouched)";
      const intptr_t answer = Call(opcode, 0, 0, buffer, 0.0f);
      buffer[sizeof buffer - 1] = '\0';
      Record(Line(opcode, 0, 0, answer) + ' ' + Quoted(buffer));
    }
    for (int32_t opcode : {audioMasterGetSampleRate, audioMasterGetBlockSize, audioMasterCurrentId,
                           audioMasterVersion, audioMasterGetNumAutomatableParameters,
                           audioMasterWillReplaceOrAccumulate, audioMasterGetVendorVersion,
                           audioMasterGetLanguage})
      Plain(opcode);
    Plain(45);
    Plain(50);
  }

 protected:
  void ParameterChanged(int32_t index) override {
    if (index == 0 && Param(0) >= 0.5f) g_armed.store(true);
  }

  void Process(float** in, float** out, int32_t frames) override {
    if (g_armed.exchange(false)) {
      RunProbes();
      SetParamQuietly();
    }
    for (int c = 0; c < 2; ++c)
      if (out[c] != in[c]) std::memmove(out[c], in[c], sizeof(float) * static_cast<size_t>(frames));
  }

  int64_t PluginState(int32_t slot) override { return slot == kStatePluginSpecific ? runs_ : -1; }

  intptr_t DispatchExtra(int32_t opcode, int32_t index, intptr_t value, void*, float) override {
    if (opcode != effVendorSpecific || index != kProbeIndex) return 0;
    if (value == 1) RunProbes();
    else g_armed.store(true);
    return 1;
  }

 private:
  void SetParamQuietly() {
    if (Param(0) != 0.0f) SetParam(0, 0.0f);
  }

  int64_t runs_ = 0;
};

}  // namespace

ZQ_PLUGIN_EXPORT AEffect* VSTPluginMain(audioMasterCallback host) {
  if (host == nullptr) return nullptr;
  Record(Line(audioMasterVersion, 0, 0, host(nullptr, audioMasterVersion, 0, 0, nullptr, 0.0f)));
  Record(Line(audioMasterCurrentId, 0, 0, host(nullptr, audioMasterCurrentId, 0, 0, nullptr, 0.0f)));
  auto* prober = new Prober(host);
  Record(Line(audioMasterNeedIdle, 0, 0, host(prober->effect(), audioMasterNeedIdle, 0, 0, nullptr, 0.0f)));
  return prober->effect();
}

ZQ_PLUGIN_EXPORT const char* zqtest_prober_report() {
  Report& r = TheReport();
  std::lock_guard<std::mutex> hold(r.lock);
  r.snapshot = r.text;
  return r.snapshot.c_str();
}

ZQ_PLUGIN_EXPORT void zqtest_prober_clear() {
  Report& r = TheReport();
  std::lock_guard<std::mutex> hold(r.lock);
  r.text.clear();
}

ZQ_PLUGIN_EXPORT void zqtest_prober_arm() { g_armed.store(true); }
