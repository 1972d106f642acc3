// zqtest_shell: a shell module holding three sub-plug-ins.
//
// The entry point asks the host for audioMasterCurrentId:
//   0                      the container: category kPlugCategShell, uniqueID
//                          'ZqSh', 2 in / 2 out, passes audio through
//   'ZqS1' "ZqShell Gain"   2 in / 2 out effect, out = 0.5 * in
//   'ZqS2' "ZqShell Invert" 1 in / 1 out effect, out = -in
//   'ZqS3' "ZqShell Tone"   instrument, 0 in / 2 out, left 0.25, right -0.25
//   any other id           the container as well (its uniqueID then differs
//                          from the id asked for); with ZQTEST_SHELL_UNKNOWN_NULL=1
//                          in the environment the entry point answers null
// The container's effShellGetNextPlugin gives 'ZqS1', 'ZqS2', 'ZqS3' with
// their names, then 0 (and 0 again until the next 'StSc').
// effVendorSpecific 'stCa' 'StSc' restarts the enumeration, 'stCa' 'EnSc'
// ends the scan; both answer 1 and appear in zqplugin_log.  State slots:
// 17 scan open (1/0), 18 count of 'StSc', 19 count of 'EnSc'.
#include <cstdlib>
#include <cstring>

#include "plugins/common/zqplugin.h"

namespace {

using namespace zqplug;

bool EnvSet(const char* name) {
  const char* v = std::getenv(name);
  return v != nullptr && std::strcmp(v, "1") == 0;
}

struct SubSpec {
  int32_t id;
  const char* name;
  int32_t inputs;
  int32_t outputs;
  bool synth;
};

const SubSpec kSubs[] = {
    {ZqVstFourCC("ZqS1"), "ZqShell Gain", 2, 2, false},
    {ZqVstFourCC("ZqS2"), "ZqShell Invert", 1, 1, false},
    {ZqVstFourCC("ZqS3"), "ZqShell Tone", 0, 2, true},
};

Info ContainerInfo() {
  Info info;
  info.effectName = "ZqShell";
  info.uniqueId = ZqVstFourCC("ZqSh");
  info.category = kPlugCategShell;
  return info;
}

Info SubInfo(const SubSpec& s) {
  Info info;
  info.effectName = s.name;
  info.uniqueId = s.id;
  info.numInputs = s.inputs;
  info.numOutputs = s.outputs;
  info.category = s.synth ? kPlugCategSynth : kPlugCategEffect;
  if (s.synth) info.flags |= effFlagsIsSynth;
  info.params = {{"Level", "", 1.0f}};
  return info;
}

class Container final : public Plugin {
 public:
  explicit Container(audioMasterCallback host) : Plugin(host, ContainerInfo()) {}

 protected:
  void Process(float** in, float** out, int32_t frames) override {
    for (int c = 0; c < 2; ++c)
      if (out[c] != in[c]) std::memmove(out[c], in[c], sizeof(float) * static_cast<size_t>(frames));
  }

  intptr_t CanDo(const char* text) override {
    return std::strcmp(text, "shellCategory") == 0 ? 1 : Plugin::CanDo(text);
  }

  int64_t PluginState(int32_t slot) override {
    switch (slot - kStatePluginSpecific) {
      case 0: return scanning_ ? 1 : 0;
      case 1: return starts_;
      case 2: return ends_;
      default: return -1;
    }
  }

  intptr_t DispatchExtra(int32_t opcode, int32_t index, intptr_t value, void* ptr, float) override {
    if (opcode == effVendorSpecific && index == kZqVstShellScanIndex) {
      if (value == kZqVstShellScanStart) {
        scanning_ = true;
        ++starts_;
        next_ = 0;
        return 1;
      }
      if (value == kZqVstShellScanEnd) {
        scanning_ = false;
        ++ends_;
        return 1;
      }
      return 0;
    }
    if (opcode == effShellGetNextPlugin) return Next(static_cast<char*>(ptr));
    return 0;
  }

 private:
  intptr_t Next(char* name) {
    const int count = static_cast<int>(sizeof kSubs / sizeof kSubs[0]);
    if (next_ >= count) {
      CopyText(name, "", kVstMaxProductStrLen);
      return 0;
    }
    const SubSpec& s = kSubs[next_++];
    CopyText(name, s.name, kVstMaxProductStrLen);
    return s.id;
  }

  int next_ = 0;
  bool scanning_ = false;
  int64_t starts_ = 0;
  int64_t ends_ = 0;
};

class Sub final : public Plugin {
 public:
  Sub(audioMasterCallback host, const SubSpec& def) : Plugin(host, SubInfo(def)), spec_(def) {}

 protected:
  void Process(float** in, float** out, int32_t frames) override {
    const float level = Param(0);
    for (int32_t i = 0; i < frames; ++i) {
      if (spec_.synth) {
        out[0][i] = 0.25f * level;
        out[1][i] = -0.25f * level;
      } else if (spec_.inputs == 1) {
        out[0][i] = -in[0][i] * level;
      } else {
        out[0][i] = 0.5f * in[0][i] * level;
        out[1][i] = 0.5f * in[1][i] * level;
      }
    }
  }

 private:
  SubSpec spec_;
};

}  // namespace

ZQ_PLUGIN_EXPORT AEffect* VSTPluginMain(audioMasterCallback host) {
  const intptr_t id = host != nullptr ? host(nullptr, audioMasterCurrentId, 0, 0, nullptr, 0.0f) : 0;
  Log("entry audioMasterCurrentId -> " + FourCCText(id));
  if (id == 0) return Create<Container>(host);
  for (const SubSpec& s : kSubs)
    if (s.id == static_cast<int32_t>(id)) return Create<Sub>(host, s);
  if (EnvSet("ZQTEST_SHELL_UNKNOWN_NULL")) return nullptr;
  return Create<Container>(host);
}
