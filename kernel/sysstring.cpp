// System strings: see sysstring.h.
#include "kernel/sysstring.h"

#include <cstring>

#include "kernel/memory.h"
#include "platform/text.h"

ZQ_API BSTR SysAllocString(const WCHAR* text) {
  return text ? SysAllocStringLen(text, static_cast<UINT>(lstrlenW(text))) : nullptr;
}

ZQ_API BSTR SysAllocStringLen(const WCHAR* text, UINT length) {
  auto* block = static_cast<BYTE*>(ZqMemory_Alloc(sizeof(DWORD) + (size_t{length} + 1) * sizeof(WCHAR)));
  if (!block) return nullptr;
  const DWORD bytes = length * static_cast<DWORD>(sizeof(WCHAR));
  std::memcpy(block, &bytes, sizeof bytes);
  auto* chars = reinterpret_cast<WCHAR*>(block + sizeof(DWORD));
  if (text)
    std::memcpy(chars, text, bytes);
  else
    std::memset(chars, 0, bytes);
  chars[length] = 0;
  return chars;
}

ZQ_API void SysFreeString(BSTR text) {
  if (text) ZqMemory_Free(reinterpret_cast<BYTE*>(text) - sizeof(DWORD));
}

ZQ_API UINT SysStringLen(BSTR text) {
  if (!text) return 0;
  DWORD bytes = 0;
  std::memcpy(&bytes, reinterpret_cast<BYTE*>(text) - sizeof(DWORD), sizeof bytes);
  return bytes / sizeof(WCHAR);
}
