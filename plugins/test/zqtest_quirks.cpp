// zqtest_quirks: a 2 in / 2 out pass-through whose identity comes from its
// environment, so that a host's handling of particular plug-ins and of a
// plug-in that fails once can be reached.
//   ZQTEST_QUIRKS_ID     four characters: the uniqueID (default "ZqQk")
//   ZQTEST_QUIRKS_FAULT  "once": the entry point faults, and sets the
//                        variable to "done" first, so the next load works
// Its effect name is empty: a host shows the module's file name instead.
// State slot 17 counts the host's setParameter calls on parameter 0.
#include <cstdlib>
#include <cstring>

#include "plugins/common/zqplugin.h"

namespace {

using namespace zqplug;

int32_t IdFromEnvironment() {
  const char* text = std::getenv("ZQTEST_QUIRKS_ID");
  if (text == nullptr || std::strlen(text) != 4) return ZqVstFourCC("ZqQk");
  uint32_t id = 0;
  for (int i = 0; i < 4; ++i) id = id << 8 | static_cast<unsigned char>(text[i]);
  return static_cast<int32_t>(id);
}

Info QuirksInfo() {
  Info info;
  info.uniqueId = IdFromEnvironment();
  info.params = {{"Level", "", 0.5f}};
  return info;
}

class Quirks final : public Plugin {
 public:
  explicit Quirks(audioMasterCallback host) : Plugin(host, QuirksInfo()) {}

 protected:
  void ParameterChanged(int32_t index) override {
    if (index == 0) ++sets_;
  }
  int64_t PluginState(int32_t slot) override { return slot == kStatePluginSpecific ? sets_ : -1; }
  void Process(float** in, float** out, int32_t frames) override {
    for (int c = 0; c < 2; ++c)
      for (int32_t i = 0; i < frames; ++i) out[c][i] = in[c][i];
  }

 private:
  int64_t sets_ = 0;
};

}  // namespace

ZQ_PLUGIN_EXPORT AEffect* VSTPluginMain(audioMasterCallback host) {
  const char* fault = std::getenv("ZQTEST_QUIRKS_FAULT");
  if (fault != nullptr && std::strcmp(fault, "once") == 0) {
    setenv("ZQTEST_QUIRKS_FAULT", "done", 1);
    volatile int* volatile target = nullptr;
    *target = 0x5A71;
  }
  return zqplug::Create<Quirks>(host);
}
