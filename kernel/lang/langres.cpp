// Resource stores of modules: registration and lookup by (type, name,
// language).
#include "kernel/langres.h"

#include <algorithm>
#include <mutex>
#include <utility>
#include <vector>

#include "platform/module.h"
#include "platform/text.h"

namespace {

std::mutex g_lock;
// Never destroyed: the kernel's last step at unload (ZqKernel_LateTerminate,
// run from the library's destructor) still unregisters its module, and the
// order of static destructors against that step is not ours to choose.
std::vector<std::pair<HMODULE, const tZQRESOURCEDIR*>>& Registered() {
  static auto* modules = new std::vector<std::pair<HMODULE, const tZQRESOURCEDIR*>>;
  return *modules;
}

// Numbers sort before texts; texts compare without regard to case.
int CompareKey(WORD id, const WCHAR* text, const WCHAR* key) {
  if (IS_INTRESOURCE(key)) {
    if (text) return 1;
    const UINT k = static_cast<UINT>(reinterpret_cast<UINT_PTR>(key));
    return id < k ? -1 : id > k ? 1 : 0;
  }
  if (!text) return -1;
  return lstrcmpiW(text, key);
}

// The first item of (type, name) in the store, or the end.
const tZQRESOURCE* FirstOf(const tZQRESOURCEDIR* dir, const WCHAR* type, const WCHAR* name) {
  const tZQRESOURCE* begin = dir->items;
  const tZQRESOURCE* end = dir->items + dir->count;
  return std::lower_bound(begin, end, 0, [&](const tZQRESOURCE& r, int) {
    int c = CompareKey(r.typeId, r.typeName, type);
    if (c == 0) c = CompareKey(r.nameId, r.name, name);
    return c < 0;
  });
}

bool Matches(const tZQRESOURCE& r, const WCHAR* type, const WCHAR* name) {
  return CompareKey(r.typeId, r.typeName, type) == 0 && CompareKey(r.nameId, r.name, name) == 0;
}

using DirectoryProc = const tZQRESOURCEDIR* (*)();

}  // namespace

ZQ_API void ZqResource_RegisterModule(HMODULE module, const tZQRESOURCEDIR* directory) {
  std::lock_guard<std::mutex> hold(g_lock);
  auto& modules = Registered();
  std::erase_if(modules, [&](const auto& m) { return m.first == module; });
  if (directory) modules.emplace_back(module, directory);
}

const tZQRESOURCEDIR* ZqResource_GetDirectory(HMODULE module) {
  if (!module) return nullptr;
  {
    std::lock_guard<std::mutex> hold(g_lock);
    for (const auto& m : Registered())
      if (m.first == module) return m.second;
  }
  // Keep the caller's last error: a module without a store is no failure.
  const DWORD error = GetLastError();
  auto proc = reinterpret_cast<DirectoryProc>(reinterpret_cast<void*>(GetProcAddress(module, "ZqResourceDirectory")));
  SetLastError(error);
  return proc ? proc() : nullptr;
}

ZQ_API HRSRC ZqFindResourceExW(HMODULE module, const WCHAR* type, const WCHAR* name, WORD language) {
  const tZQRESOURCEDIR* dir = ZqResource_GetDirectory(module);
  if (!dir || !type || !name) return nullptr;
  for (const tZQRESOURCE* r = FirstOf(dir, type, name); r != dir->items + dir->count && Matches(*r, type, name);
       ++r)
    if (r->language == language) return r;
  return nullptr;
}

ZQ_API HRSRC ZqFindResourceW(HMODULE module, const WCHAR* name, const WCHAR* type) {
  const tZQRESOURCEDIR* dir = ZqResource_GetDirectory(module);
  if (!dir || !type || !name) return nullptr;
  const tZQRESOURCE* first = FirstOf(dir, type, name);
  const tZQRESOURCE* end = dir->items + dir->count;
  if (first == end || !Matches(*first, type, name)) return nullptr;
  for (WORD language : {ZQ_LANG_NEUTRAL, WORD{0x409}})
    for (const tZQRESOURCE* r = first; r != end && Matches(*r, type, name); ++r)
      if (r->language == language) return r;
  return first;
}

ZQ_API const void* ZqLockResource(HRSRC resource) { return resource ? resource->data : nullptr; }

ZQ_API DWORD ZqSizeofResourceRaw(HRSRC resource) { return resource ? resource->size : 0; }

int ZqResource_FindString(HMODULE module, UINT id, WORD language, const WCHAR** text) {
  *text = nullptr;
  HRSRC block = ZqFindResourceExW(module, MAKEINTRESOURCEW(RT_STRING_ID), MAKEINTRESOURCEW((id >> 4) + 1),
                                  language);
  if (!block) return 0;
  const WCHAR* p = static_cast<const WCHAR*>(block->data);
  const WCHAR* end = p + block->size / sizeof(WCHAR);
  for (UINT i = 0; i < (id & 15); ++i) {
    if (p >= end) return 0;
    p += 1 + *p;
  }
  if (p >= end || *p == 0 || p + 1 + *p > end) return 0;
  *text = p + 1;
  return *p;
}
