// Helpers of the hosting tests: loading the plug-ins we build, reading what
// they recorded, and a master that records what the effect asked of it.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "aplugins/zqvstwrap/host/zqvsteffect.h"
#include "kernel/com/object.h"
#include "platform/module.h"
#include "platform/text.h"

extern "C" void __lsan_disable() __attribute__((weak));
extern "C" void __lsan_enable() __attribute__((weak));

namespace zqtest {

// Under LeakSanitizer, what is allocated while this lives is not reported:
// plug-ins installed from the distribution keep blocks that only their own,
// later unloaded, libraries point to.  Without it, nothing happens.
struct LeakCheckPause {
  LeakCheckPause() {
    if (__lsan_disable) __lsan_disable();
  }
  ~LeakCheckPause() {
    if (__lsan_enable) __lsan_enable();
  }
};

inline std::u16string PluginPath(const char* name) {
  return ZqUtf8ToUtf16(std::string(ZQ_PLUGIN_DIR) + "/" + name + ".so");
}

inline std::string Narrow(const WCHAR* text) { return ZqUtf16ToUtf8(text ? text : u""); }

inline std::vector<std::string> SplitLines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

// An effect made in this process, released at the end of the scope.
struct Loaded {
  CZqVstEffect* effect = nullptr;
  HRESULT hr = E_FAIL;

  explicit Loaded(const char* name, LONG id = 0) : Loaded(PluginPath(name), id) {}
  Loaded(const std::u16string& path, LONG id) { effect = new CZqVstEffect(path.c_str(), id, &hr); }
  ~Loaded() {
    if (effect) effect->Release();
  }
  Loaded(const Loaded&) = delete;
  Loaded& operator=(const Loaded&) = delete;
  CZqVstEffect* operator->() const { return effect; }
};

// The C functions a module built on the plug-ins' common base exports.
class PluginRecord {
 public:
  explicit PluginRecord(const char* name) {
    module_ = LoadLibraryW(PluginPath(name).c_str());
    if (module_) {
      log_ = reinterpret_cast<const char* (*)()>(reinterpret_cast<void (*)()>(GetProcAddress(module_, "zqplugin_log")));
      clear_ = reinterpret_cast<void (*)()>(GetProcAddress(module_, "zqplugin_log_clear"));
      state_ = reinterpret_cast<long long (*)(int)>(reinterpret_cast<void (*)()>(GetProcAddress(module_, "zqplugin_state")));
    }
  }
  ~PluginRecord() {
    if (module_) FreeLibrary(module_);
  }
  PluginRecord(const PluginRecord&) = delete;
  PluginRecord& operator=(const PluginRecord&) = delete;

  bool ok() const { return log_ && clear_ && state_; }
  std::vector<std::string> Lines() const { return SplitLines(log_ ? log_() : ""); }
  void Clear() const {
    if (clear_) clear_();
  }
  long long State(int slot) const { return state_ ? state_(slot) : -1; }

  template <class F>
  F Function(const char* name) const {
    return reinterpret_cast<F>(reinterpret_cast<void (*)()>(GetProcAddress(module_, name)));
  }

 private:
  HMODULE module_ = nullptr;
  const char* (*log_)() = nullptr;
  void (*clear_)() = nullptr;
  long long (*state_)(int) = nullptr;
};

// Slots of zqplugin_state that the tests read.
enum : int { kStateProcessCount = 7, kStateProgram = 9, kStatePluginSpecific = 17 };

// A master that records what reaches it and answers GetTime with `time`.
class RecordingMaster final : public ZqComObject<RecordingMaster, IZqVstMaster> {
 public:
  VstMasterTime time{};
  HRESULT timeResult = S_OK;
  LONG tempo = 1200000;
  std::vector<std::string> calls;

  HRESULT STDMETHODCALLTYPE Automate(LONG index, float value) override {
    return Note("Automate " + std::to_string(index) + " " + std::to_string(value));
  }
  HRESULT STDMETHODCALLTYPE Idle() override { return Note("Idle"); }
  HRESULT STDMETHODCALLTYPE UpdateDisplay() override { return Note("UpdateDisplay"); }
  HRESULT STDMETHODCALLTYPE GetTime(VstMasterTime* out) override {
    *out = time;
    return timeResult;
  }
  HRESULT STDMETHODCALLTYPE GetTempoAt(LONGLONG position, LONG* out) override {
    *out = tempo;
    return Note("GetTempoAt " + std::to_string(position));
  }
  HRESULT STDMETHODCALLTYPE SizeWindow(LONG width, LONG height) override {
    return Note("SizeWindow " + std::to_string(width) + " " + std::to_string(height));
  }
  HRESULT STDMETHODCALLTYPE BeginEdit(LONG index) override { return Note("BeginEdit " + std::to_string(index)); }
  HRESULT STDMETHODCALLTYPE EndEdit(LONG index) override { return Note("EndEdit " + std::to_string(index)); }

 private:
  friend class ZqComObject<RecordingMaster, IZqVstMaster>;
  ~RecordingMaster() = default;
  HRESULT Note(std::string call) {
    calls.push_back(std::move(call));
    return S_OK;
  }
};

// Lines of `all` that start with `prefix`.
inline std::vector<std::string> Matching(std::vector<std::string> all, const std::string& prefix) {
  std::erase_if(all, [&](const std::string& line) { return line.compare(0, prefix.size(), prefix) != 0; });
  return all;
}

}  // namespace zqtest
