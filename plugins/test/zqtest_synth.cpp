// zqtest_synth: an instrument (effFlagsIsSynth, 0 in / 2 out) producing a
// known signal.  With t the frame count since mains last switched on (0 at
// creation):  left = (t mod 64) / 64,  right = -left  (exact in floats).
// It accepts effProcessEvents and counts MIDI events (state slot 17).
// Its module exports only the old entry name "main", not "VSTPluginMain".
#include "plugins/common/zqplugin.h"

namespace {

using namespace zqplug;

Info SynthInfo() {
  Info info;
  info.effectName = "ZqTestSynth";
  info.uniqueId = ZqVstFourCC("ZqSy");
  info.numInputs = 0;
  info.numOutputs = 2;
  info.flags = effFlagsCanReplacing | effFlagsIsSynth;
  info.category = kPlugCategSynth;
  info.params = {{"Level", "", 1.0f}};
  info.programs = {{"Ramp", {1.0f}}};
  return info;
}

class Synth final : public Plugin {
 public:
  explicit Synth(audioMasterCallback host) : Plugin(host, SynthInfo()) {}

 protected:
  void Resume() override { t_ = 0; }

  void Process(float**, float** out, int32_t frames) override {
    for (int32_t i = 0; i < frames; ++i, ++t_) {
      const float v = static_cast<float>(t_ % 64) / 64.0f;
      out[0][i] = v;
      out[1][i] = -v;
    }
  }

  int64_t PluginState(int32_t slot) override { return slot == kStatePluginSpecific ? events_ : -1; }

  intptr_t DispatchExtra(int32_t opcode, int32_t, intptr_t, void* ptr, float) override {
    if (opcode != effProcessEvents || ptr == nullptr) return 0;
    const auto* events = static_cast<const VstEvents*>(ptr);
    for (int32_t i = 0; i < events->numEvents; ++i)
      if (events->events[i] != nullptr && events->events[i]->type == kVstMidiType) ++events_;
    return 1;
  }

 private:
  uint64_t t_ = 0;
  int64_t events_ = 0;
};

}  // namespace

ZQ_PLUGIN_EXPORT AEffect* ZqSynthMain(audioMasterCallback host) __asm__("main");
AEffect* ZqSynthMain(audioMasterCallback host) { return Create<Synth>(host); }
