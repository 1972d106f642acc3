// libFuzzer target: any bytes as a preset (or, built with ZQ_FUZZ_BANK, a
// bank) stream, loaded into a parameter plug-in and into a chunk plug-in.
//
// What must hold for every input: no fault, no allocation beyond what the
// stream holds (libFuzzer's malloc limit reports one), and an answer from the
// set a damaged file may give.  Anything else stops the run.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "aplugins/zqvstwrap/host/zqvsteffect.h"
#include "kernel/containers/streams.h"
#include "platform/module.h"
#include "platform/text.h"

namespace {

std::u16string PluginPath(const char* name) {
  return ZqUtf8ToUtf16(std::string(ZQ_PLUGIN_DIR) + "/" + name + ".so");
}

CZqVstEffect* Open(const char* name) {
  HRESULT hr = E_FAIL;
  auto* effect = new CZqVstEffect(PluginPath(name).c_str(), 0, &hr);
  if (hr != S_OK) abort();  // the plug-ins are built with the project
  return effect;
}

// Our plug-ins record every call they hear; over millions of inputs the
// record would be most of the memory in use, so it is emptied each time.
using ClearFn = void (*)();
ClearFn RecordClearer(const char* name) {
  HMODULE module = LoadLibraryW(PluginPath(name).c_str());  // kept for the run
  return module ? reinterpret_cast<ClearFn>(reinterpret_cast<void (*)()>(GetProcAddress(module, "zqplugin_log_clear")))
                : nullptr;
}

bool Expected(HRESULT hr) {
  return hr == S_OK || hr == S_FALSE || hr == ZQ_E_BAD_FILE || hr == E_UNEXPECTED ||
         hr == E_INVALIDARG ||  // a bank with more programs than the plug-in
         hr == ZQ_E_EXCEPTION;  // a plug-in that faults on a value it is given
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // The effects live for the whole run, as a filter's effect lives through
  // many loads.
  static CZqVstEffect* const kEffects[] = {Open("zqgain"), Open("zqchunk")};
  static const ClearFn kClear[] = {RecordClearer("zqgain"), RecordClearer("zqchunk")};
  for (ClearFn clear : kClear)
    if (clear) clear();
  if (size > 0xFFFFFFFFu) return 0;
  for (CZqVstEffect* effect : kEffects) {
    IStream* stream = nullptr;
    if (ZqCreateStreamFromMemory(const_cast<uint8_t*>(data), static_cast<ULONG>(size), static_cast<ULONG>(size),
                                 &stream, FALSE) != S_OK)
      abort();
#ifdef ZQ_FUZZ_BANK
    const HRESULT hr = effect->LoadBank(stream, 1);
#else
    const HRESULT hr = effect->LoadPreset(stream);
#endif
    stream->Release();
    if (!Expected(hr)) abort();
  }
  return 0;
}
