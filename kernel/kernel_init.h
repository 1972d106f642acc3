// Start and stop of the kernel, run by the library that holds it when that
// library is loaded and unloaded.
//
// ZqKernel_EarlyInitialize must run before anything else of the kernel is
// used; ZqKernel_LateTerminate runs last.  Both are idempotent in pairs: a
// second start without a stop only takes the module handle again.
#pragma once

#include "base/types.h"
#include "platform/module.h"

// Stores `module` as the kernel's own module and takes the host process's
// module, then runs the kernel's initialisers.  Answers 1 when they all
// succeeded and 0 otherwise, never a negative value: a kernel that could not
// start fully must not stop its library from loading.  `flags` is reserved
// (0).
ZQ_API int ZqKernel_EarlyInitialize(HMODULE module, DWORD flags);
// Runs the kernel's terminators and clears the module handles.
ZQ_API void ZqKernel_LateTerminate();
// The module given at start (null before it and after the stop).
ZQ_API HMODULE ZqKernel_GetModuleHandle();
// The host process's main module, taken at start.
ZQ_API HMODULE ZqKernel_GetHostModuleHandle();
