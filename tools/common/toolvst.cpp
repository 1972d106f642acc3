#include "tools/common/toolvst.h"

#include <atomic>

#include "platform/guard.h"
#include "platform/text.h"

namespace {
std::atomic<int32_t> g_currentId{0};
}

intptr_t ZqToolHostCallback(AEffect*, int32_t opcode, int32_t, intptr_t, void*, float) {
  if (opcode == audioMasterVersion) return 2400;
  if (opcode == audioMasterCurrentId) return g_currentId.load();
  return 0;
}

void ZqToolSetCurrentId(int32_t id) { g_currentId.store(id); }

ZqToolLoad ZqToolFindEntry(const char* path, ZqToolModule* m) {
  *m = ZqToolModule{};
  m->module = LoadLibraryW(ZqUtf8ToUtf16(path).c_str());
  if (m->module == nullptr) {
    m->error = GetLastError();
    return ZqToolLoad::LoadFailed;
  }
  for (const char* name : {"VSTPluginMain", "main"}) {
    if (FARPROC entry = GetProcAddress(m->module, name)) {
      m->entryName = name;
      m->entry = reinterpret_cast<VstPluginMainProc>(reinterpret_cast<void*>(entry));
      return ZqToolLoad::Loaded;
    }
  }
  FreeLibrary(m->module);
  m->module = nullptr;
  return ZqToolLoad::NoEntry;
}

ZqToolLoad ZqToolCallEntry(ZqToolModule* m) {
  AEffect* effect = nullptr;
  int32_t magic = 0;
  const VstPluginMainProc entry = m->entry;
  // The magic is read inside the guard too: the entry may answer any pointer.
  const DWORD fault = ZqGuardedAll([&] {
    effect = entry(&ZqToolHostCallback);
    if (effect != nullptr) magic = effect->magic;
  });
  if (fault != 0) {
    m->error = fault;
    return ZqToolLoad::Fault;
  }
  m->effect = effect;
  if (effect == nullptr) return ZqToolLoad::NullEffect;
  if (magic != kEffectMagic) {
    m->error = static_cast<DWORD>(magic);
    return ZqToolLoad::WrongMagic;
  }
  return ZqToolLoad::Loaded;
}
