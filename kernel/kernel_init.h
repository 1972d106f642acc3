// Start and stop of the kernel, run by the library that holds it when that
// library is loaded and unloaded.
//
// ZqKernel_EarlyInitialize runs first of all in the library's load path,
// before any string, window class or help path is touched;
// ZqKernel_LateTerminate runs last of all when it is unloaded.  Both run on
// the loading thread while no other thread uses the kernel.
#pragma once

#include "base/types.h"
#include "platform/module.h"

// Keeps `instance` as the application module (the module whose texts the
// kernel's language handle reads), makes its resource store known, creates
// the print's token list (kernel/printf.h; without it nothing more starts),
// opens the kernel's language handle with the user's UI language still
// unchosen (unless it is open already) and reads the locale's values, which
// registers the print's separator tokens.  `options` bit 0 is kept, and
// when it is clear, bit 5 as bit 1 (ZqKernel_GetOptions).  Answers 1 when
// the token list and the language handle exist and 0 otherwise, never a
// negative value: a kernel that could not start fully must not stop its
// library from loading.
ZQ_API int ZqKernel_EarlyInitialize(HMODULE instance, DWORD options = 0);
// Closes the kernel's language handle, destroys the token list, forgets the
// application module and its store.  Answers 1.  Both arguments are not read.
ZQ_API int ZqKernel_LateTerminate(HMODULE instance = nullptr, DWORD reserved = 0);

// The application module given at start (null before it and after the stop).
ZQ_API HMODULE ZqKernel_GetAppKernel();
// The full path of the application module into `dst` of `size` characters.
// 0 on success, else the status of the platform's error.
ZQ_API HRESULT ZqKernel_GetAppKernelPathName(LPWSTR dst, DWORD size);
// The option word kept at start.
ZQ_API DWORD ZqKernel_GetOptions();
// The host process's main module, taken at start.
ZQ_API HMODULE ZqKernel_GetHostModuleHandle();
// The same as ZqKernel_GetAppKernel, under its older name.
ZQ_API HMODULE ZqKernel_GetModuleHandle();
// The splash window that message boxes keep in front of; null clears it.
// Answers the previous one.
ZQ_API HANDLE ZqKernel_SetSplash(HANDLE window);
ZQ_API HANDLE ZqKernel_GetSplash();
