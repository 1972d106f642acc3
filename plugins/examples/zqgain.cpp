// ZqGain: stereo gain, phase, channel mode and balance.
//
// Parameters (all 0..1 on the wire):
//   0 Gain     g = 2 * v (0.5 is unity); shown in dB, label "dB"
//   1 Phase    a switch: v >= 0.5 inverts both channels
//   2 Mode     m = round(3 * v): 0 Stereo, 1 Mono ((L + R) / 2 on both),
//              2 Swap (L and R exchanged), 3 Mute
//   3 Balance  b = 2 * v - 1; left is scaled by 1 - b for b > 0, right by
//              1 + b for b < 0; steps of 0.01
//
// Output, per frame, after the mode: L' = L * g * s * bl, R' = R * g * s * br
// with s = -1 when inverted, else 1, each factor a 32-bit float product in
// that order.
#include <cmath>
#include <cstdio>

#include "plugins/common/zqplugin.h"

namespace {

using namespace zqplug;

enum { kGain, kPhase, kMode, kBalance };

const char* const kModeNames[] = {"Stereo", "Mono", "Swap", "Mute"};

Info GainInfo() {
  Info info;
  info.effectName = "ZqGain";
  info.productName = "ZqVstWrap Examples";
  info.uniqueId = ZqVstFourCC("ZqGn");
  info.version = 1;
  info.vendorVersion = 1000;
  info.numInputs = 2;
  info.numOutputs = 2;
  info.flags = effFlagsCanReplacing | effFlagsCanDoubleReplacing | effFlagsNoSoundInStop;
  info.params = {{"Gain", "dB", 0.5f}, {"Phase", "", 0.0f}, {"Mode", "", 0.0f}, {"Balance", "", 0.5f}};
  info.programs = {{"Unity", {0.5f, 0.0f, 0.0f, 0.5f}},
                   {"Quiet", {0.25f, 0.0f, 0.0f, 0.5f}},
                   {"Inverted", {0.5f, 1.0f, 0.0f, 0.5f}},
                   {"Mono Left", {0.5f, 0.0f, 1.0f / 3.0f, 0.0f}}};
  return info;
}

class Gain final : public Plugin {
 public:
  explicit Gain(audioMasterCallback host) : Plugin(host, GainInfo()) { Update(); }

 protected:
  void ParameterChanged(int32_t) override { Update(); }

  void Process(float** in, float** out, int32_t frames) override { Run(in, out, frames); }
  void ProcessDouble(double** in, double** out, int32_t frames) override { Run(in, out, frames); }

  void FormatDisplay(int32_t index, float value, char* text) override {
    char buffer[32];
    switch (index) {
      case kGain: {
        const float g = 2.0f * value;
        if (g <= 0.0f) std::snprintf(buffer, sizeof buffer, "-inf");
        else std::snprintf(buffer, sizeof buffer, "%.2f", 20.0 * std::log10(static_cast<double>(g)));
        break;
      }
      case kPhase:
        std::snprintf(buffer, sizeof buffer, "%s", value >= 0.5f ? "On" : "Off");
        break;
      case kMode:
        std::snprintf(buffer, sizeof buffer, "%s", kModeNames[ModeOf(value)]);
        break;
      default:
        std::snprintf(buffer, sizeof buffer, "%+.2f", static_cast<double>(2.0f * value - 1.0f));
        break;
    }
    CopyText(text, buffer, kVstMaxParamStrLen);
  }

  bool ParameterProperties(int32_t index, VstParameterProperties* p) override {
    *p = VstParameterProperties{};
    switch (index) {
      case kGain:
        CopyText(p->label, "Gain", sizeof p->label);
        CopyText(p->shortLabel, "Gain", sizeof p->shortLabel);
        p->flags = kVstParameterCanRamp;
        break;
      case kPhase:
        CopyText(p->label, "Phase invert", sizeof p->label);
        CopyText(p->shortLabel, "Phase", sizeof p->shortLabel);
        p->flags = kVstParameterIsSwitch;
        break;
      case kMode:
        CopyText(p->label, "Channel mode", sizeof p->label);
        CopyText(p->shortLabel, "Mode", sizeof p->shortLabel);
        p->flags = kVstParameterUsesIntegerMinMax | kVstParameterUsesIntStep |
                   kVstParameterSupportsDisplayCategory;
        p->minInteger = 0;
        p->maxInteger = 3;
        p->stepInteger = 1;
        p->largeStepInteger = 1;
        p->category = 1;
        p->numParametersInCategory = 2;
        CopyText(p->categoryLabel, "Stereo", sizeof p->categoryLabel);
        break;
      default:
        CopyText(p->label, "Balance", sizeof p->label);
        CopyText(p->shortLabel, "Bal", sizeof p->shortLabel);
        p->flags = kVstParameterUsesFloatStep | kVstParameterSupportsDisplayCategory;
        p->stepFloat = 0.01f;
        p->smallStepFloat = 0.001f;
        p->largeStepFloat = 0.1f;
        p->category = 1;
        p->numParametersInCategory = 2;
        CopyText(p->categoryLabel, "Stereo", sizeof p->categoryLabel);
        break;
    }
    return true;
  }

 private:
  static int ModeOf(float value) {
    const long m = std::lround(3.0f * value);
    return m < 0 ? 0 : (m > 3 ? 3 : static_cast<int>(m));
  }

  void Update() {
    const float g = 2.0f * Param(kGain);
    const float s = Param(kPhase) >= 0.5f ? -1.0f : 1.0f;
    const float b = 2.0f * Param(kBalance) - 1.0f;
    const float bl = b > 0.0f ? 1.0f - b : 1.0f;
    const float br = b < 0.0f ? 1.0f + b : 1.0f;
    mode_ = ModeOf(Param(kMode));
    left_ = g * s * bl;
    right_ = g * s * br;
  }

  template <typename T>
  void Run(T** in, T** out, int32_t frames) {
    const T kl = static_cast<T>(left_), kr = static_cast<T>(right_);
    for (int32_t i = 0; i < frames; ++i) {
      T l = in[0][i], r = in[1][i];
      switch (mode_) {
        case 1: l = r = (l + r) * static_cast<T>(0.5); break;
        case 2: { const T t = l; l = r; r = t; break; }
        case 3: l = r = 0; break;
        default: break;
      }
      out[0][i] = l * kl;
      out[1][i] = r * kr;
    }
  }

  int mode_ = 0;
  float left_ = 1.0f;
  float right_ = 1.0f;
};

}  // namespace

ZQ_PLUGIN_EXPORT AEffect* VSTPluginMain(audioMasterCallback host) {
  return zqplug::Create<Gain>(host);
}

// Older hosts look for "main".
ZQ_PLUGIN_EXPORT AEffect* ZqGainMain(audioMasterCallback host) __asm__("main");
AEffect* ZqGainMain(audioMasterCallback host) { return VSTPluginMain(host); }
