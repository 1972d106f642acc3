#include "kernel/kernel_init.h"

#include <atomic>

namespace {
std::atomic<HMODULE> g_module{nullptr};
std::atomic<HMODULE> g_hostModule{nullptr};
}  // namespace

ZQ_API int ZqKernel_EarlyInitialize(HMODULE module, DWORD) {
  g_module.store(module);
  g_hostModule.store(GetModuleHandleW(nullptr));
  // The kernel's parts that exist so far (memory, lists, queues, logs, the
  // audio routines and the streams) set themselves up on first use, so
  // there is nothing else that could fail here yet.
  return 1;
}

ZQ_API void ZqKernel_LateTerminate() {
  g_hostModule.store(nullptr);
  g_module.store(nullptr);
}

ZQ_API HMODULE ZqKernel_GetModuleHandle() { return g_module.load(); }

ZQ_API HMODULE ZqKernel_GetHostModuleHandle() { return g_hostModule.load(); }
