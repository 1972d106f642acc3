// What the parameter tests share: the parameter object standing alone, a
// recording user-interface callback, one of our plug-ins loaded, and tables
// made without a plug-in.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "aplugins/zqvstwrap/host/zqvsteffect.h"
#include "aplugins/zqvstwrap/filter/zqvstparams.h"
#include "kernel/com/object.h"
#include "platform/text.h"

namespace zqtest {

struct Effect {
  CZqVstEffect* effect = nullptr;
  HRESULT hr = E_FAIL;
  explicit Effect(const char* name) {
    std::u16string path = ZqUtf8ToUtf16(std::string(ZQ_PLUGIN_DIR) + "/" + name + ".so");
    effect = new CZqVstEffect(path.c_str(), 0, &hr);
  }
  ~Effect() { effect->Release(); }
  Effect(const Effect&) = delete;
  Effect& operator=(const Effect&) = delete;
  CZqVstEffect* operator->() const { return effect; }
};

// Answers IUnknown for itself and records what reached the filter's hook.
class Params final : public CZqPlugInParams {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
  ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
  ULONG STDMETHODCALLTYPE Release() override { return 1; }

  // Whether another thread could take the parameter lock now.
  bool LockIsFree() {
    bool free = false;
    std::thread([&] {
      if ((free = TryEnterCriticalSection(&m_paramLock))) LeaveCriticalSection(&m_paramLock);
    }).join();
    return free;
  }
  std::vector<std::pair<DWORD, HRESULT>> hostSets;

 protected:
  void OnParamSetByHost(DWORD index, HRESULT effectResult) override { hostSets.emplace_back(index, effectResult); }
};

// Records "begin 2", "changed 2 25", "end 2", and whether the lock of
// `params` (if given) was free during each call.
class RecordingCallback final : public ZqComObject<RecordingCallback, IMediaParamsUICallback> {
 public:
  explicit RecordingCallback(Params* params) : params_(params) {}
  HRESULT STDMETHODCALLTYPE ParamsBeginCapture(DWORD* indexes, DWORD count) override {
    return Note("begin", indexes, count, nullptr);
  }
  HRESULT STDMETHODCALLTYPE ParamsChanged(DWORD* indexes, DWORD count, MP_DATA* values) override {
    Note("changed", indexes, count, values);
    return E_FAIL;  // must not disturb the caller
  }
  HRESULT STDMETHODCALLTYPE ParamsEndCapture(DWORD* indexes, DWORD count) override {
    return Note("end", indexes, count, nullptr);
  }
  std::vector<std::string> calls;
  bool lockAlwaysFree = true;

 private:
  HRESULT Note(const char* what, DWORD* indexes, DWORD count, MP_DATA* values) {
    std::string line = what;
    for (DWORD i = 0; i < count; ++i) {
      line += " " + std::to_string(indexes[i]);
      if (values) line += " " + std::to_string(static_cast<int>(values[i]));
    }
    calls.push_back(line);
    if (params_ && !params_->LockIsFree()) lockAlwaysFree = false;
    return S_OK;
  }
  Params* params_;
};

inline VstParamProperties Props(LONG flags, const char16_t* label = u"Name") {
  VstParamProperties p{};
  for (int i = 0; label[i] && i < 63; ++i) p.label[i] = label[i];
  p.flags = flags;
  return p;
}

inline ZqVstParamInfo Info(const VstParamProperties& p, const WCHAR* unit = nullptr) {
  ZqVstParamInfo info;
  ZqVstMakeParamInfo(&p, unit, 0, &info);
  return info;
}

inline std::vector<ZqVstParamInfo> FloatTable(int n) { return std::vector<ZqVstParamInfo>(n, Info(Props(0))); }

constexpr REFERENCE_TIME kSecond = 10000000;

inline MP_ENVELOPE_SEGMENT Segment(REFERENCE_TIME start, REFERENCE_TIME end, float from, float to,
                                   MP_CURVE_TYPE curve = MP_CURVE_LINEAR) {
  return MP_ENVELOPE_SEGMENT{start, end, from, to, curve, MPF_ENVLP_STANDARD};
}

}  // namespace zqtest
