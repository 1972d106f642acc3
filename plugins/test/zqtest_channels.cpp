// Test plug-ins with odd channel layouts and exact outputs, one module per
// value of ZQTEST_KIND:
//   1 zqtest_1in2out       'Zq12'  1 in / 2 out: out0 = in0, out1 = -in0
//   2 zqtest_1in2out_mono  'Zq1M'  the same with effFlagsCanMono
//   3 zqtest_2in2out       'Zq22'  2 in / 2 out: out k = 2 * in k
//   4 zqtest_2in2out_mono  'Zq2M'  the same with effFlagsCanMono
//   5 zqtest_2in1out       'Zq21'  2 in / 1 out: out0 = in0 + in1
//   6 zqtest_6x6           'Zq66'  6 in / 6 out: out k = in k * (k + 1)
// Kinds 1 to 5 have one parameter ("Dummy", no effect on the sound) and two
// programs ("First", "Second") whose names they do not give by index
// (effGetProgramNameIndexed answers 0).
//
// zqtest_6x6 answers effSetSpeakerArrangement with 1, keeps copies of the
// input (value) and output (ptr) arrangements with up to 32 speakers, and
// exports
//   const VstSpeakerArrangement* zqtest_6x6_arrangement(int output)
// (null until the first call; output 0 the input record, 1 the output one).
#include <cstring>
#include <mutex>
#include <string>

#include "plugins/common/zqplugin.h"

#ifndef ZQTEST_KIND
#error ZQTEST_KIND selects the module
#endif

namespace {

using namespace zqplug;

struct Kind {
  const char* name;
  int32_t id;
  int32_t inputs;
  int32_t outputs;
  int32_t extraFlags;
};

constexpr Kind kKinds[] = {
    {"", 0, 0, 0, 0},
    {"ZqTest 1in2out", ZqVstFourCC("Zq12"), 1, 2, 0},
    {"ZqTest 1in2out mono", ZqVstFourCC("Zq1M"), 1, 2, effFlagsCanMono},
    {"ZqTest 2in2out", ZqVstFourCC("Zq22"), 2, 2, 0},
    {"ZqTest 2in2out mono", ZqVstFourCC("Zq2M"), 2, 2, effFlagsCanMono},
    {"ZqTest 2in1out", ZqVstFourCC("Zq21"), 2, 1, 0},
    {"ZqTest 6x6", ZqVstFourCC("Zq66"), 6, 6, 0},
};
constexpr Kind kKind = kKinds[ZQTEST_KIND];

constexpr int32_t kMaxSpeakers = 32;
constexpr size_t kArrangementBytes =
    offsetof(VstSpeakerArrangement, speakers) + sizeof(VstSpeakerProperties) * kMaxSpeakers;

struct Recorded {
  std::mutex lock;
  alignas(VstSpeakerArrangement) unsigned char bytes[2][kArrangementBytes] = {};
  bool have = false;
};

Recorded& Arrangements() {
  static Recorded recorded;
  return recorded;
}

[[maybe_unused]] VstSpeakerArrangement* Slot(int which) {
  return reinterpret_cast<VstSpeakerArrangement*>(Arrangements().bytes[which]);
}

Info KindInfo() {
  Info info;
  info.effectName = kKind.name;
  info.uniqueId = kKind.id;
  info.numInputs = kKind.inputs;
  info.numOutputs = kKind.outputs;
  info.flags = effFlagsCanReplacing | kKind.extraFlags;
  if (ZQTEST_KIND != 6) {
    info.params = {{"Dummy", "", 0.0f}};
    info.programs = {{"First", {0.0f}}, {"Second", {1.0f}}};
    info.indexedProgramNames = false;
  }
  return info;
}

class Channels final : public Plugin {
 public:
  explicit Channels(audioMasterCallback host) : Plugin(host, KindInfo()) {}

 protected:
  void Process(float** in, float** out, int32_t frames) override {
    for (int32_t i = 0; i < frames; ++i) {
      if constexpr (ZQTEST_KIND == 1 || ZQTEST_KIND == 2) {
        const float x = in[0][i];
        out[0][i] = x;
        out[1][i] = -x;
      } else if constexpr (ZQTEST_KIND == 3 || ZQTEST_KIND == 4) {
        const float l = in[0][i], r = in[1][i];
        out[0][i] = 2.0f * l;
        out[1][i] = 2.0f * r;
      } else if constexpr (ZQTEST_KIND == 5) {
        out[0][i] = in[0][i] + in[1][i];
      } else {
        float x[6];
        for (int k = 0; k < 6; ++k) x[k] = in[k][i];
        for (int k = 0; k < 6; ++k) out[k][i] = x[k] * static_cast<float>(k + 1);
      }
    }
  }

  intptr_t DispatchExtra(int32_t opcode, int32_t, intptr_t value, void* ptr, float) override {
    if (ZQTEST_KIND != 6) return 0;
    if (opcode == effSetSpeakerArrangement) {
      CountArrangement(this);
      Recorded& r = Arrangements();
      std::lock_guard<std::mutex> hold(r.lock);
      const auto* given = reinterpret_cast<const VstSpeakerArrangement*>(value);
      const auto* sources = static_cast<const VstSpeakerArrangement*>(ptr);
      const VstSpeakerArrangement* both[2] = {given, sources};
      for (int which = 0; which < 2; ++which) {
        const VstSpeakerArrangement* a = both[which];
        std::memset(r.bytes[which], 0, kArrangementBytes);
        if (a == nullptr) continue;
        int32_t n = a->numChannels;
        if (n < 0) n = 0;
        if (n > kMaxSpeakers) n = kMaxSpeakers;
        std::memcpy(r.bytes[which], a,
                    offsetof(VstSpeakerArrangement, speakers) + sizeof(VstSpeakerProperties) * static_cast<size_t>(n));
      }
      r.have = true;
      return 1;
    }
    return 0;
  }
};

}  // namespace

ZQ_PLUGIN_EXPORT AEffect* VSTPluginMain(audioMasterCallback host) {
  return zqplug::Create<Channels>(host);
}

#if ZQTEST_KIND == 6
ZQ_PLUGIN_EXPORT const VstSpeakerArrangement* zqtest_6x6_arrangement(int output) {
  Recorded& r = Arrangements();
  std::lock_guard<std::mutex> hold(r.lock);
  if (!r.have || output < 0 || output > 1) return nullptr;
  return Slot(output);
}
#endif
