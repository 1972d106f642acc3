// zqtest_shell_repeat, zqtest_shell_endless: shells whose listing a host
// must not trust (ZQTEST_SHELL_KIND picks the build).
//   1 repeat   lists 'ZqR1', 'ZqR1', 'ZqR2', 'ZqR2', then 0: every id twice
//              in a row
//   2 endless  lists 'Zq' followed by a 16-bit counter and never ends
// The container is id 0 (uniqueID 'ZqSo'); any other id asked for is a
// 2 in / 2 out pass-through effect of that id named "Odd <n>".
#include <cstring>
#include <string>

#include "plugins/common/zqplugin.h"

#ifndef ZQTEST_SHELL_KIND
#error ZQTEST_SHELL_KIND selects the module
#endif

namespace {

using namespace zqplug;

class Container final : public Plugin {
 public:
  explicit Container(audioMasterCallback host) : Plugin(host, MakeInfo()) {}

 protected:
  static Info MakeInfo() {
    Info info;
    info.effectName = "ZqShellOdd";
    info.uniqueId = ZqVstFourCC("ZqSo");
    info.category = kPlugCategShell;
    return info;
  }
  void Process(float** in, float** out, int32_t frames) override {
    for (int c = 0; c < 2; ++c)
      if (out[c] != in[c]) std::memmove(out[c], in[c], sizeof(float) * static_cast<size_t>(frames));
  }
  intptr_t DispatchExtra(int32_t opcode, int32_t, intptr_t, void* ptr, float) override {
    if (opcode != effShellGetNextPlugin) return 0;
    const int n = next_++;
    int32_t id = 0;
    if (ZQTEST_SHELL_KIND == 1) {
      if (n < 4) id = ZqVstFourCC(n < 2 ? "ZqR1" : "ZqR2");
    } else {
      id = static_cast<int32_t>((static_cast<uint32_t>('Z') << 24) | (static_cast<uint32_t>('q') << 16) |
                                (static_cast<uint32_t>(n + 1) & 0xFFFF));
    }
    CopyText(static_cast<char*>(ptr), id != 0 ? ("Odd " + std::to_string(n)).c_str() : "", kVstMaxProductStrLen);
    return id;
  }

 private:
  int next_ = 0;
};

std::string g_name;

class Sub final : public Plugin {
 public:
  Sub(audioMasterCallback host, int32_t id) : Plugin(host, MakeInfo(id)) {}

 protected:
  static Info MakeInfo(int32_t id) {
    g_name = "Odd " + std::to_string(id & 0xFFFF);
    Info info;
    info.effectName = g_name.c_str();
    info.uniqueId = id;
    info.category = kPlugCategEffect;
    return info;
  }
  void Process(float** in, float** out, int32_t frames) override {
    for (int c = 0; c < 2; ++c)
      if (out[c] != in[c]) std::memmove(out[c], in[c], sizeof(float) * static_cast<size_t>(frames));
  }
};

}  // namespace

ZQ_PLUGIN_EXPORT AEffect* VSTPluginMain(audioMasterCallback host) {
  const intptr_t id = host != nullptr ? host(nullptr, audioMasterCurrentId, 0, 0, nullptr, 0.0f) : 0;
  if (id == 0) return Create<Container>(host);
  return Create<Sub>(host, static_cast<int32_t>(id));
}
