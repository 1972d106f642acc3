// Memory that crosses an interface: allocated by one side, freed by the
// other.  Both sides must use these functions, never malloc/free or new.
#pragma once

#include "base/types.h"

#if !defined(_WIN32)
ZQ_API void* CoTaskMemAlloc(size_t size);
ZQ_API void* CoTaskMemRealloc(void* block, size_t size);
ZQ_API void CoTaskMemFree(void* block);
#endif

// A copy of a NUL-terminated text in task memory; null when out of memory.
ZQ_API WCHAR* ZqCoTaskStrDup(const WCHAR* text);
