// zqtest_latency: a pure delay whose latency and tail are chosen by the test,
// so that a host's latency discard and tail can be checked frame by frame.
//
// 2 in / 2 out.  Per channel, with x[k] = 0 for k < 0 and n counted from the
// last time mains switched on (the line is cleared then):
//   out[n] = x[n - L]
// L is the latency (initialDelay) and T the answer to effGetTailSize.  Both
// come from the environment when the instance is created: ZQTEST_LATENCY
// (default 1000) and ZQTEST_TAIL (default 0), decimal frames, 0..100000.
// Parameters give the same (0..1 on the wire, frames = round(100000 * v)):
//   0 Latency   sets L and initialDelay, and clears the line
//   1 Tail      sets T
// Samples are copied, never computed, so the output is exact.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "plugins/common/zqplugin.h"

namespace {

using namespace zqplug;

enum { kLatencyParam, kTailParam };
constexpr int32_t kMaxFrames = 100000;

int32_t FramesOf(float value) {
  const long frames = std::lround(static_cast<double>(value) * kMaxFrames);
  return frames < 0 ? 0 : (frames > kMaxFrames ? kMaxFrames : static_cast<int32_t>(frames));
}

float ValueOf(int32_t frames) { return static_cast<float>(frames) / static_cast<float>(kMaxFrames); }

int32_t EnvFrames(const char* name, int32_t fallback) {
  const char* text = std::getenv(name);
  if (text == nullptr || *text == '\0') return fallback;
  const long frames = std::strtol(text, nullptr, 10);
  return frames < 0 ? 0 : (frames > kMaxFrames ? kMaxFrames : static_cast<int32_t>(frames));
}

Info LatencyInfo() {
  const int32_t latency = EnvFrames("ZQTEST_LATENCY", 1000);
  const int32_t tail = EnvFrames("ZQTEST_TAIL", 0);
  Info info;
  info.effectName = "ZqTest Latency";
  info.uniqueId = ZqVstFourCC("ZqLt");
  info.numInputs = 2;
  info.numOutputs = 2;
  info.initialDelay = latency;
  info.params = {{"Latency", "smp", ValueOf(latency)}, {"Tail", "smp", ValueOf(tail)}};
  info.programs = {{"Default", {ValueOf(latency), ValueOf(tail)}}};
  return info;
}

class LatencyDelay final : public Plugin {
 public:
  explicit LatencyDelay(audioMasterCallback host) : Plugin(host, LatencyInfo()) {
    latency_ = FramesOf(Param(kLatencyParam));
    tail_ = FramesOf(Param(kTailParam));
    Clear();
  }

 protected:
  void ParameterChanged(int32_t index) override {
    if (index == kTailParam) {
      tail_ = FramesOf(Param(kTailParam));
      return;
    }
    const int32_t latency = FramesOf(Param(kLatencyParam));
    if (latency == latency_) return;
    // A new latency is a new line: what the old one held would come out
    // at the wrong time.
    latency_ = latency;
    effect()->initialDelay = latency;
    Clear();
  }

  void Resume() override { Clear(); }

  int32_t TailSize() override { return tail_; }

  void FormatDisplay(int32_t, float value, char* text) override {
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%d", FramesOf(value));
    CopyText(text, buffer, kVstMaxParamStrLen);
  }

  void Process(float** in, float** out, int32_t frames) override {
    if (latency_ == 0) {
      for (int c = 0; c < 2; ++c) {
        if (out[c] != in[c]) {
          for (int32_t i = 0; i < frames; ++i) out[c][i] = in[c][i];
        }
      }
      return;
    }
    const size_t length = static_cast<size_t>(latency_);
    for (int32_t i = 0; i < frames; ++i) {
      for (int c = 0; c < 2; ++c) {
        // Read before write: the slot holds the frame from L frames ago.
        const float delayed = line_[c][pos_];
        line_[c][pos_] = in[c][i];
        out[c][i] = delayed;
      }
      pos_ = pos_ + 1 == length ? 0 : pos_ + 1;
    }
  }

 private:
  void Clear() {
    for (auto& line : line_) line.assign(static_cast<size_t>(latency_), 0.0f);
    pos_ = 0;
  }

  std::vector<float> line_[2];
  size_t pos_ = 0;
  int32_t latency_ = 0;
  int32_t tail_ = 0;
};

}  // namespace

ZQ_PLUGIN_EXPORT AEffect* VSTPluginMain(audioMasterCallback host) {
  return zqplug::Create<LatencyDelay>(host);
}
