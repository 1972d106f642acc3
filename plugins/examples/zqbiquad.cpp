// ZqBiquad: a stereo second-order low-pass filter, the plug-in used where
// the cost of the host around a cheap plug-in is measured.
//
// Parameters (0..1 on the wire):
//   0 Cutoff  fc = 20 * 1000^v Hz (20 Hz .. 20 kHz), kept below 0.49 * rate
//   1 Q       q = 0.1 * 100^v (0.1 .. 10), default 0.7071
// Coefficients are the usual bilinear-transform low-pass ones (unity gain at
// DC); the filter runs in transposed direct form II in 64-bit arithmetic and
// its state is cleared when mains switch on.
#include <cmath>
#include <cstdio>
#include <numbers>

#include "plugins/common/zqplugin.h"

namespace {

using namespace zqplug;

enum { kCutoff, kQ };

float CutoffValue(double hz) { return static_cast<float>(std::log(hz / 20.0) / std::log(1000.0)); }
float QValue(double q) { return static_cast<float>(std::log(q / 0.1) / std::log(100.0)); }

Info BiquadInfo() {
  Info info;
  info.effectName = "ZqBiquad";
  info.productName = "ZqVstWrap Examples";
  info.uniqueId = ZqVstFourCC("ZqBq");
  info.version = 1;
  info.vendorVersion = 1000;
  info.numInputs = 2;
  info.numOutputs = 2;
  info.flags = effFlagsCanReplacing | effFlagsCanDoubleReplacing;
  info.params = {{"Cutoff", "Hz", CutoffValue(1000.0)}, {"Q", "", QValue(0.7071)}};
  info.programs = {{"Low 1k", {CutoffValue(1000.0), QValue(0.7071)}},
                   {"Low 200 resonant", {CutoffValue(200.0), QValue(4.0)}},
                   {"Low 8k", {CutoffValue(8000.0), QValue(0.7071)}}};
  return info;
}

class Biquad final : public Plugin {
 public:
  explicit Biquad(audioMasterCallback host) : Plugin(host, BiquadInfo()) { Update(); }

 protected:
  void ParameterChanged(int32_t) override { Update(); }

  void Resume() override {
    Update();
    for (auto& s : state_) s[0] = s[1] = 0.0;
  }

  void FormatDisplay(int32_t index, float value, char* text) override {
    char buffer[32];
    if (index == kCutoff) std::snprintf(buffer, sizeof buffer, "%.0f", CutoffHz(value));
    else std::snprintf(buffer, sizeof buffer, "%.2f", QOf(value));
    CopyText(text, buffer, kVstMaxParamStrLen);
  }

  void Process(float** in, float** out, int32_t frames) override { Run(in, out, frames); }
  void ProcessDouble(double** in, double** out, int32_t frames) override { Run(in, out, frames); }

 private:
  static double CutoffHz(float v) { return 20.0 * std::pow(1000.0, static_cast<double>(v)); }
  static double QOf(float v) { return 0.1 * std::pow(100.0, static_cast<double>(v)); }

  void Update() {
    rate_ = SampleRate() > 0.0f ? SampleRate() : 44100.0f;
    double fc = CutoffHz(Param(kCutoff));
    if (fc > 0.49 * rate_) fc = 0.49 * rate_;
    const double q = QOf(Param(kQ));
    const double w0 = 2.0 * std::numbers::pi * fc / rate_;
    const double cw = std::cos(w0);
    const double alpha = std::sin(w0) / (2.0 * q);
    const double a0 = 1.0 + alpha;
    b0_ = (1.0 - cw) / 2.0 / a0;
    b1_ = (1.0 - cw) / a0;
    b2_ = b0_;
    a1_ = -2.0 * cw / a0;
    a2_ = (1.0 - alpha) / a0;
  }

  template <typename T>
  void Run(T** in, T** out, int32_t frames) {
    if (rate_ != SampleRate()) Update();
    const double b0 = b0_, b1 = b1_, b2 = b2_, a1 = a1_, a2 = a2_;
    for (int c = 0; c < 2; ++c) {
      double z1 = state_[c][0], z2 = state_[c][1];
      const T* x = in[c];
      T* y = out[c];
      for (int32_t i = 0; i < frames; ++i) {
        const double xi = x[i];
        const double yi = b0 * xi + z1;
        z1 = b1 * xi - a1 * yi + z2;
        z2 = b2 * xi - a2 * yi;
        y[i] = static_cast<T>(yi);
      }
      // Keep denormals out of the state once the input has gone quiet.
      state_[c][0] = std::fabs(z1) < 1e-30 ? 0.0 : z1;
      state_[c][1] = std::fabs(z2) < 1e-30 ? 0.0 : z2;
    }
  }

  float rate_ = 0.0f;
  double b0_ = 1, b1_ = 0, b2_ = 0, a1_ = 0, a2_ = 0;
  double state_[2][2] = {};
};

}  // namespace

ZQ_PLUGIN_EXPORT AEffect* VSTPluginMain(audioMasterCallback host) {
  return zqplug::Create<Biquad>(host);
}
