// Helpers of the filter tests: records for the plug-ins we build, filters
// made through the library's entry point, and a source -> filter -> sink
// chain in a graph.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "aplugins/zqvstwrap/discovery/zqvstfactory.h"
#include "aplugins/zqvstwrap/filter/zqvstwrap.h"
#include "mediafw/graph.h"
#include "mediafw/memsource.h"
#include "tests/mediafw/failing_sink.h"
#include "platform/environment.h"
#include "platform/message.h"
#include "platform/module.h"
#include "platform/text.h"

namespace zqtest {

inline std::u16string PluginPath(const char* name) {
  return ZqUtf8ToUtf16(std::string(ZQ_PLUGIN_DIR) + "/" + name + ".so");
}

constexpr LONG FourCC(const char (&s)[5]) {
  return LONG((DWORD(BYTE(s[0])) << 24) | (DWORD(BYTE(s[1])) << 16) | (DWORD(BYTE(s[2])) << 8) | DWORD(BYTE(s[3])));
}

// A filter identifier for plug-in `id`; `salt` stands for the hashes of
// file name, plug-in name and host.
inline CLSID FilterClsid(LONG id, WORD salt = 0x5A71) {
  CLSID c{};
  c.Data1 = DWORD(id);
  c.Data2 = salt;
  c.Data3 = WORD(salt ^ 0x1234);
  c.Data4[0] = 0x42;
  c.Data4[1] = 0x17;
  ZqVstMakeRoleClsids(c, &c, nullptr, nullptr);
  return c;
}

// Puts a record for the module `name` (plug-in `id`) into the list.
inline CLSID Register(const char* name, LONG id, DWORD flags = 0, WORD salt = 0x5A71) {
  ZqVstPluginRecord record{};
  record.clsid = FilterClsid(id, salt);
  lstrcpynW(record.path, PluginPath(name).c_str(), 260);
  lstrcpynW(record.name, ZqUtf8ToUtf16(name).c_str(), 64);
  record.flags = flags;
  EXPECT_EQ(ZqVstRecords_Add(record), S_OK);
  return record.clsid;
}

// A filter through DllGetClassObject, as a host makes one.
inline HRESULT MakeFilter(REFCLSID clsid, IBaseFilter** filter) {
  *filter = nullptr;
  IClassFactory* factory = nullptr;
  HRESULT hr = DllGetClassObject(clsid, IID_IClassFactory, reinterpret_cast<void**>(&factory));
  if (FAILED(hr)) return hr;
  hr = factory->CreateInstance(nullptr, IID_IBaseFilter, reinterpret_cast<void**>(filter));
  factory->Release();
  return hr;
}

template <class I>
I* Query(IUnknown* unknown) {
  I* out = nullptr;
  if (FAILED(unknown->QueryInterface(ZqIidOf<I>, reinterpret_cast<void**>(&out)))) return nullptr;
  return out;
}

inline IPin* FindPin(IBaseFilter* filter, const WCHAR* id) {
  IPin* pin = nullptr;
  filter->FindPin(id, &pin);
  return pin;
}

inline WAVEFORMATEX Wave(WORD tag, WORD channels, DWORD rate, WORD bits) {
  WAVEFORMATEX w{};
  w.wFormatTag = tag;
  w.nChannels = channels;
  w.nSamplesPerSec = rate;
  w.wBitsPerSample = bits;
  w.nBlockAlign = WORD(bits / 8 * channels);
  w.nAvgBytesPerSec = rate * w.nBlockAlign;
  return w;
}

// A module of ours kept loaded by the test, to call what it exports (the
// plug-in's counters, a test plug-in's reports).
class PluginRecord {
 public:
  explicit PluginRecord(const char* name) : module_(LoadLibraryW(PluginPath(name).c_str())) {}
  ~PluginRecord() {
    if (module_) FreeLibrary(module_);
  }
  PluginRecord(const PluginRecord&) = delete;
  PluginRecord& operator=(const PluginRecord&) = delete;
  bool loaded() const { return module_ != nullptr; }
  template <class F>
  F Function(const char* name) const {
    return module_ ? reinterpret_cast<F>(reinterpret_cast<void (*)()>(GetProcAddress(module_, name))) : nullptr;
  }
  // An export without arguments; `missing` when there is none.
  template <class R>
  R Call(const char* name, R missing = R()) const {
    auto f = Function<R (*)()>(name);
    return f ? f() : missing;
  }
  long long State(int slot) const {
    auto f = Function<long long (*)(int)>("zqplugin_state");
    return f ? f(slot) : -1;
  }

 private:
  HMODULE module_;
};

// An environment variable as the test wants it (null: unset), put back
// afterwards.
class ScopedVariable {
 public:
  ScopedVariable(const WCHAR* name, const WCHAR* value) : name_(name) {
    WCHAR old[256] = {};
    const DWORD length = GetEnvironmentVariableW(name, old, 256);
    had_ = length > 0 && length < 256;
    if (had_) old_ = old;
    SetEnvironmentVariableW(name, value);
  }
  ~ScopedVariable() { SetEnvironmentVariableW(name_.c_str(), had_ ? old_.c_str() : nullptr); }
  ScopedVariable(const ScopedVariable&) = delete;
  ScopedVariable& operator=(const ScopedVariable&) = delete;

 private:
  std::u16string name_;
  bool had_ = false;
  std::u16string old_;
};

// A window that does nothing with its messages, and the WM_COMMAND words
// posted to this thread's windows since the last call.
inline LRESULT QuietWindow(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  return DefWindowProcW(window, message, wParam, lParam);
}
inline std::vector<std::pair<HWND, WPARAM>> TakeCommands() {
  std::vector<std::pair<HWND, WPARAM>> got;
  MSG msg;
  while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE))
    if (msg.message == WM_COMMAND) got.emplace_back(msg.hwnd, msg.wParam);
  return got;
}

enum : int { kSlotBlockSize = 2, kSlotStartCount = 5, kSlotProcessCount = 7 };

// source -> plug-in filter -> sink in one graph.
struct FilterChain {
  CZqFilterGraph* graph = nullptr;
  CZqMemorySource* source = nullptr;
  IBaseFilter* filter = nullptr;
  IZqVstWrapProp* prop = nullptr;
  CZqFailingSink* sink = nullptr;
  IPin* in = nullptr;
  IPin* out = nullptr;
  HRESULT made = E_FAIL;

  explicit FilterChain(REFCLSID clsid) {
    CZqFilterGraph::Create(&graph);
    CZqMemorySource::Create(&source);
    CZqFailingSink::Create(&sink);
    made = MakeFilter(clsid, &filter);
    if (FAILED(made)) return;
    prop = Query<IZqVstWrapProp>(filter);
    graph->AddFilter(source, u"source");
    graph->AddFilter(filter, u"plug-in");
    graph->AddFilter(sink, u"sink");
    in = FindPin(filter, u"In");
    out = FindPin(filter, u"Out");
    source->SetThreaded(false);
  }
  ~FilterChain() {
    graph->Stop();
    if (in) in->Release();
    if (out) out->Release();
    if (prop) prop->Release();
    graph->RemoveAllFilters();
    if (filter) filter->Release();
    source->Release();
    sink->Release();
    graph->Release();
  }
  FilterChain(const FilterChain&) = delete;
  FilterChain& operator=(const FilterChain&) = delete;

  void Feed(const WAVEFORMATEX& format, const std::vector<BYTE>& bytes, ULONG framesPerSample) {
    source->SetFormat(&format);
    source->SetData(bytes.data(), bytes.size());
    source->SetFramesPerSample(framesPerSample);
  }
  HRESULT ConnectInput() { return graph->ConnectDirect(source->OutputPin(), in, nullptr); }
  HRESULT ConnectOutput() { return graph->ConnectDirect(out, sink->InputPin(), nullptr); }
  HRESULT ConnectAll() {
    HRESULT hr = ConnectInput();
    return FAILED(hr) ? hr : ConnectOutput();
  }
  // Runs and pushes every sample and the end of stream.
  HRESULT Play() {
    HRESULT hr = graph->Run();
    if (FAILED(hr)) return hr;
    while ((hr = source->PushNext()) == S_OK) {
    }
    return hr == S_FALSE ? S_OK : hr;
  }
  // Frames of all samples the sink got, for `blockAlign` bytes a frame.
  size_t FramesOut(WORD blockAlign) { return sink->AllBytes().size() / blockAlign; }
};

}  // namespace zqtest
