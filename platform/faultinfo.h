// What an exception report tells about the process: the module that holds
// an address, the calling thread's stack, and whether a debugger watches.
//
// Threads: any thread.  ZqDescribeAddress and ZqGetThreadStack may be called
// from a guard's filter; they allocate nothing.
#pragma once

#include <cstddef>

#include "base/types.h"

// The module (the executable or a loaded shared object) that holds
// `address`: its load address and its file path (UTF-8, cut to `size` - 1
// bytes).  FALSE, with a null base and an empty path, for an address in no
// module.
BOOL ZqDescribeAddress(const void* address, ULONG_PTR* base, char* path, size_t size);

// The calling thread's stack: its lowest address and the address just past
// its top.  FALSE when the system does not tell.
BOOL ZqGetThreadStack(ULONG_PTR* low, ULONG_PTR* high);

#if !defined(_WIN32)
// TRUE when a debugger (a tracer) is attached to the process.
ZQ_EXTERN_C BOOL IsDebuggerPresent();
#endif
