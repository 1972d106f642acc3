#include "kernel/com/taskmem.h"

#include <cstdlib>
#include <cstring>

#if !defined(_WIN32)
void* CoTaskMemAlloc(size_t size) { return std::malloc(size ? size : 1); }
void* CoTaskMemRealloc(void* block, size_t size) { return std::realloc(block, size ? size : 1); }
void CoTaskMemFree(void* block) { std::free(block); }
#endif

WCHAR* ZqCoTaskStrDup(const WCHAR* text) {
  if (text == nullptr) return nullptr;
  size_t n = 0;
  while (text[n]) ++n;
  auto* copy = static_cast<WCHAR*>(CoTaskMemAlloc((n + 1) * sizeof(WCHAR)));
  if (copy) std::memcpy(copy, text, (n + 1) * sizeof(WCHAR));
  return copy;
}
