// libFuzzer target: any bytes as a filter's saved state, given to
// IPersistStream::Load of a filter over a parameter plug-in and of one over a
// chunk plug-in.
//
// What must hold for every input: no fault, no allocation beyond what the
// stream holds, an answer from the set a damaged state may give, and a filter
// that still saves its state afterwards.  Anything else stops the run.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "aplugins/zqvstwrap/discovery/zqvstfactory.h"
#include "aplugins/zqvstwrap/filter/zqvstwrap.h"
#include "kernel/containers/streams.h"
#include "platform/module.h"
#include "platform/text.h"

namespace {

std::u16string PluginPath(const char* name) {
  return ZqUtf8ToUtf16(std::string(ZQ_PLUGIN_DIR) + "/" + name + ".so");
}

// A filter for module `name` as a host makes one, through the record list
// and the class object.
IPersistStream* Open(const char* name, LONG id) {
  ZqVstPluginRecord record{};
  record.clsid.Data1 = DWORD(id);
  record.clsid.Data2 = 0x5A71;
  record.clsid.Data3 = 0x5A71 ^ 0x1234;
  record.clsid.Data4[0] = 0x42;
  record.clsid.Data4[1] = 0x17;
  ZqVstMakeRoleClsids(record.clsid, &record.clsid, nullptr, nullptr);
  lstrcpynW(record.path, PluginPath(name).c_str(), 260);
  lstrcpynW(record.name, ZqUtf8ToUtf16(name).c_str(), 64);
  if (FAILED(ZqVstRecords_Add(record))) abort();
  IClassFactory* factory = nullptr;
  if (FAILED(DllGetClassObject(record.clsid, IID_IClassFactory, reinterpret_cast<void**>(&factory)))) abort();
  IPersistStream* persist = nullptr;
  if (FAILED(factory->CreateInstance(nullptr, IID_IPersistStream, reinterpret_cast<void**>(&persist)))) abort();
  factory->Release();
  return persist;  // kept for the run, as a host keeps a filter through many loads
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
  return hr == S_OK || hr == S_FALSE || hr == ZQ_E_BAD_FILE || hr == E_UNEXPECTED || hr == E_INVALIDARG ||
         hr == ZQ_E_EXCEPTION;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static IPersistStream* const kFilters[] = {Open("zqgain", 0x5A71476E), Open("zqchunk", 0x5A71436B)};
  static const ClearFn kClear[] = {RecordClearer("zqgain"), RecordClearer("zqchunk")};
  static uint8_t room[1 << 16];
  for (ClearFn clear : kClear)
    if (clear) clear();
  if (size > 0xFFFFFFFFu) return 0;
  for (IPersistStream* filter : kFilters) {
    IStream* stream = nullptr;
    if (ZqCreateStreamFromMemory(const_cast<uint8_t*>(data), ULONG(size), ULONG(size), &stream, FALSE) != S_OK)
      abort();
    const HRESULT hr = filter->Load(stream);
    stream->Release();
    if (!Expected(hr)) abort();
    // Whatever was loaded, the filter's state can be written again.
    if (ZqCreateStreamFromMemory(room, sizeof room, 0, &stream, FALSE) != S_OK) abort();
    const HRESULT saved = filter->Save(stream, TRUE);
    stream->Release();
    if (FAILED(saved)) abort();
  }
  return 0;
}
