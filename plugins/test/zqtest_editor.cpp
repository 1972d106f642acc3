// zqtest_editor: a pass-through with an editor that tells its size only by
// effEditGetRect and remembers the parent window it was opened in, so that
// a host's measuring of the editor can be checked.
//
// 2 in / 2 out, effFlagsHasEditor.  effEditGetRect answers 320 x 200
// (top 0, left 0, bottom 200, right 320).  effEditOpen records its parent
// window and the display connection (the value); nothing is drawn.  What a
// test reads (exported by name):
//   unsigned long zqtest_editor_last_window(void)  parent of the last
//                                                  effEditOpen, 0 before one
//   int zqtest_editor_last_display(void)           1 when that call's value
//                                                  was not 0
//   long long zqtest_editor_open_count(void)       effEditOpen calls
//   long long zqtest_editor_close_count(void)      effEditClose calls
#include <atomic>
#include <cstdint>

#include "plugins/common/zqplugin.h"

namespace {

using namespace zqplug;

std::atomic<unsigned long> g_lastWindow{0};
std::atomic<int> g_lastDisplay{0};
std::atomic<long long> g_openCount{0};
std::atomic<long long> g_closeCount{0};

// Static: the pointer handed out must stay valid after the call.
ERect g_rect = {0, 0, 200, 320};

Info EditorInfo() {
  Info info;
  info.effectName = "ZqTest Editor";
  info.uniqueId = ZqVstFourCC("ZqEd");
  info.flags = effFlagsCanReplacing | effFlagsHasEditor;
  info.programs = {{"Default", {}}};
  return info;
}

class EditorPlugin final : public Plugin {
 public:
  explicit EditorPlugin(audioMasterCallback host) : Plugin(host, EditorInfo()) {}

 protected:
  void Process(float** in, float** out, int32_t frames) override {
    for (int c = 0; c < 2; ++c) {
      if (out[c] != in[c]) {
        for (int32_t i = 0; i < frames; ++i) out[c][i] = in[c][i];
      }
    }
  }

  intptr_t DispatchExtra(int32_t opcode, int32_t index, intptr_t value, void* ptr,
                         float opt) override {
    switch (opcode) {
      case effEditGetRect:
        if (ptr != nullptr) *static_cast<ERect**>(ptr) = &g_rect;
        return 1;
      case effEditOpen:
        g_lastWindow = static_cast<unsigned long>(reinterpret_cast<uintptr_t>(ptr));
        g_lastDisplay = value != 0 ? 1 : 0;
        ++g_openCount;
        return 1;
      case effEditClose:
        ++g_closeCount;
        return 1;
      default:
        return Plugin::DispatchExtra(opcode, index, value, ptr, opt);
    }
  }
};

}  // namespace

ZQ_PLUGIN_EXPORT unsigned long zqtest_editor_last_window(void) { return g_lastWindow; }
ZQ_PLUGIN_EXPORT int zqtest_editor_last_display(void) { return g_lastDisplay; }
ZQ_PLUGIN_EXPORT long long zqtest_editor_open_count(void) { return g_openCount; }
ZQ_PLUGIN_EXPORT long long zqtest_editor_close_count(void) { return g_closeCount; }

ZQ_PLUGIN_EXPORT AEffect* VSTPluginMain(audioMasterCallback host) {
  return zqplug::Create<EditorPlugin>(host);
}
