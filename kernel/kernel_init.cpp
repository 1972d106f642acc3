#include "kernel/kernel_init.h"

#include <atomic>

#include "base/status.h"
#include "kernel/lang.h"
#include "kernel/langres.h"
#include "kernel/langsys.h"
#include "kernel/printf.h"

namespace {
std::atomic<HMODULE> g_module{nullptr};
std::atomic<HMODULE> g_hostModule{nullptr};
std::atomic<HANDLE> g_splash{nullptr};
std::atomic<DWORD> g_options{0};
}  // namespace

ZQ_API int ZqKernel_EarlyInitialize(HMODULE instance, DWORD options) {
  g_module.store(instance);
  g_options.store((options & 1) ? 1 : (options >> 4) & 2);
  g_hostModule.store(GetModuleHandleW(nullptr));
  g_splash.store(nullptr);
  // The library's texts: its string resources and dialog texts in every
  // language it was built with.
  if (instance) ZqResource_RegisterModule(instance, &g_zqKernelResources);
  // Print tokens come before the locale values, which register theirs;
  // without them the kernel does not start its language either.
  if (!ZqPrintF_CreateTokenList()) return 0;
  // The kernel's handle reads the user's UI language at its first lookup;
  // the host tells another one later through ZqLang_UpdateKernelLCID.
  HZQLANG kernel = ZqLang_GetKernelLang();
  if (!kernel && SUCCEEDED(ZqLang_Open(&kernel, instance, 0, 0))) ZqLang_SetKernelLang(kernel);
  if (!kernel) return 0;
  ZqLang_GetInternationals(nullptr, 0);
  return 1;
}

ZQ_API int ZqKernel_LateTerminate(HMODULE, DWORD) {
  HZQLANG kernel = ZqLang_GetKernelLang();
  ZqLang_SetKernelLang(nullptr);
  ZqLang_Close(kernel);
  ZqPrintF_DestroyTokenList();
  if (HMODULE module = g_module.exchange(nullptr)) ZqResource_RegisterModule(module, nullptr);
  g_hostModule.store(nullptr);
  g_splash.store(nullptr);
  return 1;
}

ZQ_API HMODULE ZqKernel_GetAppKernel() { return g_module.load(); }

ZQ_API HMODULE ZqKernel_GetModuleHandle() { return g_module.load(); }

ZQ_API HMODULE ZqKernel_GetHostModuleHandle() { return g_hostModule.load(); }

ZQ_API DWORD ZqKernel_GetOptions() { return g_options.load(); }

ZQ_API HRESULT ZqKernel_GetAppKernelPathName(LPWSTR dst, DWORD size) {
  if (!dst || size == 0) return E_INVALIDARG;
  const DWORD n = GetModuleFileNameW(g_module.load(), dst, size);
  if (n == 0 || n >= size) return HRESULT_FROM_WIN32(GetLastError() ? GetLastError() : 122);
  return 0;
}

ZQ_API HANDLE ZqKernel_SetSplash(HANDLE window) { return g_splash.exchange(window); }

ZQ_API HANDLE ZqKernel_GetSplash() { return g_splash.load(); }
