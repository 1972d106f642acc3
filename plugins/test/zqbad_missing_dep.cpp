// zqbad_missing_dep: a well-formed module whose dependency libzqgone.so
// cannot be found by the loader, so loading it fails as for a missing
// dependency.
#include "plugins/common/zqplugin.h"

extern "C" int zqgone_value();

namespace {

zqplug::Info MissingDepInfo() {
  zqplug::Info info;
  info.effectName = "ZqBad missing dependency";
  info.uniqueId = ZqVstFourCC("ZqBz");
  return info;
}

class MissingDep final : public zqplug::Plugin {
 public:
  explicit MissingDep(audioMasterCallback host) : Plugin(host, MissingDepInfo()) {}

 protected:
  void Process(float** in, float** out, int32_t frames) override {
    const float g = static_cast<float>(zqgone_value()) / 42.0f;
    for (int c = 0; c < 2; ++c)
      for (int32_t i = 0; i < frames; ++i) out[c][i] = in[c][i] * g;
  }
};

}  // namespace

ZQ_PLUGIN_EXPORT AEffect* VSTPluginMain(audioMasterCallback host) {
  return zqplug::Create<MissingDep>(host);
}
