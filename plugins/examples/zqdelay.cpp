// ZqDelay: an echo with a fixed latency whose output is exact sample by
// sample, so that a host's latency and tail handling can be checked.
//
// Latency L = 64 frames (initialDelay).  Parameters (0..1 on the wire):
//   0 Delay     D = 1 + round(4095 * v) frames, 1..4096 (default 100)
//   1 Feedbk    f = v, at most 0.99 (default 0.5)
//   2 Mix       m = v (default 0.5)
//
// For each channel independently, with x[k] = e[k] = 0 for k < 0 and n
// counted from the last time mains switched on (the lines are cleared then):
//   e[n]   = x[n - L - D] + f * e[n - D]
//   out[n] = x[n - L] + m * e[n]
// So a unit impulse at frame 0 gives out[L] = 1, out[L + k*D] = m * f^(k-1)
// for k >= 1, and 0 elsewhere; with the defaults every value is a power of
// two and exact in 32-bit floats.  Each product and sum is one float
// operation in the order written.
//
// Tail (effGetTailSize): L + D * K, K the number of echoes k with
// m * f^(k-1) >= 1e-6 (at most 1000); L when m is 0.  Defaults: 64 + 100*19.
#include <cmath>
#include <cstdio>
#include <vector>

#include "plugins/common/zqplugin.h"

namespace {

using namespace zqplug;

enum { kDelay, kFeedback, kMix };
constexpr int32_t kLatency = 64;
constexpr int32_t kMaxDelay = 4096;
constexpr size_t kRing = 8192;  // power of two above kLatency + kMaxDelay
constexpr size_t kMask = kRing - 1;

float DelayValue(int32_t frames) { return static_cast<float>(frames - 1) / 4095.0f; }

Info DelayInfo() {
  Info info;
  info.effectName = "ZqDelay";
  info.productName = "ZqVstWrap Examples";
  info.uniqueId = ZqVstFourCC("ZqDl");
  info.version = 1;
  info.vendorVersion = 1000;
  info.numInputs = 2;
  info.numOutputs = 2;
  info.initialDelay = kLatency;
  info.params = {{"Delay", "smp", DelayValue(100)}, {"Feedbk", "%", 0.5f}, {"Mix", "%", 0.5f}};
  info.programs = {{"Slapback", {DelayValue(100), 0.5f, 0.5f}},
                   {"Long", {DelayValue(1000), 0.25f, 0.5f}}};
  return info;
}

class Delay final : public Plugin {
 public:
  explicit Delay(audioMasterCallback host) : Plugin(host, DelayInfo()) {
    for (auto& line : x_) line.assign(kRing, 0.0f);
    for (auto& line : e_) line.assign(kRing, 0.0f);
    Update();
  }

 protected:
  void ParameterChanged(int32_t) override { Update(); }

  void Resume() override {
    for (auto& line : x_) line.assign(kRing, 0.0f);
    for (auto& line : e_) line.assign(kRing, 0.0f);
    pos_ = 0;
  }

  int32_t TailSize() override {
    if (mix_ == 0.0f) return kLatency;
    int32_t echoes = 0;
    for (float g = mix_; g >= 1e-6f && echoes < 1000; g *= feedback_) ++echoes;
    return kLatency + delay_ * echoes;
  }

  void FormatDisplay(int32_t index, float value, char* text) override {
    char buffer[32];
    if (index == kDelay) std::snprintf(buffer, sizeof buffer, "%d", DelayOf(value));
    else std::snprintf(buffer, sizeof buffer, "%.0f", static_cast<double>(value) * 100.0);
    CopyText(text, buffer, kVstMaxParamStrLen);
  }

  bool ParameterProperties(int32_t index, VstParameterProperties* p) override {
    *p = VstParameterProperties{};
    if (index != kDelay) return false;
    CopyText(p->label, "Delay time", sizeof p->label);
    CopyText(p->shortLabel, "Delay", sizeof p->shortLabel);
    p->flags = kVstParameterUsesIntegerMinMax | kVstParameterUsesIntStep;
    p->minInteger = 1;
    p->maxInteger = kMaxDelay;
    p->stepInteger = 1;
    p->largeStepInteger = 100;
    return true;
  }

  void Process(float** in, float** out, int32_t frames) override {
    size_t pos = pos_;
    for (int32_t i = 0; i < frames; ++i, pos = (pos + 1) & kMask) {
      for (int c = 0; c < 2; ++c) {
        float* x = x_[c].data();
        float* e = e_[c].data();
        x[pos] = in[c][i];
        const float dry = x[(pos - kLatency) & kMask];
        const float fed = feedback_ * e[(pos - static_cast<size_t>(delay_)) & kMask];
        const float echo = x[(pos - kLatency - static_cast<size_t>(delay_)) & kMask] + fed;
        e[pos] = echo;
        const float wet = mix_ * echo;
        out[c][i] = dry + wet;
      }
    }
    pos_ = pos;
  }

 private:
  static int32_t DelayOf(float value) {
    const long d = 1 + std::lround(4095.0f * value);
    return d < 1 ? 1 : (d > kMaxDelay ? kMaxDelay : static_cast<int32_t>(d));
  }

  void Update() {
    delay_ = DelayOf(Param(kDelay));
    const float f = Param(kFeedback);
    feedback_ = f < 0.0f ? 0.0f : (f > 0.99f ? 0.99f : f);
    mix_ = Param(kMix);
  }

  std::vector<float> x_[2];
  std::vector<float> e_[2];
  size_t pos_ = 0;
  int32_t delay_ = 100;
  float feedback_ = 0.5f;
  float mix_ = 0.5f;
};

}  // namespace

ZQ_PLUGIN_EXPORT AEffect* VSTPluginMain(audioMasterCallback host) {
  return zqplug::Create<Delay>(host);
}
