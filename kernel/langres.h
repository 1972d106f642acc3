// Resource stores: the numbered and named data (string blocks, dialog
// texts, images) that a module carries, found by (type, name, language).
//
// A module's store is a constant directory, generated at build time.  The
// kernel learns a module's store in one of two ways: the module is
// registered with ZqResource_RegisterModule (the library registers its own
// store at start), or the module exports a function "ZqResourceDirectory"
// that answers it (a language module, "<library>.LNG", is such a shared
// object).
//
// Types and names are numbers below 0x10000 or texts, as on the original
// platform (MAKEINTRESOURCE); texts compare without regard to case.  String
// resources are type 6: block (id >> 4) + 1 holds the 16 strings id & ~15 to
// id | 15, each a 16-bit count followed by that many characters.
//
// Threads: lookups may run on any thread; registration is meant for start
// and stop and takes a lock.
#pragma once

#include "base/types.h"

// One resource.  `typeName` / `name` null means the number form.
struct tZQRESOURCE {
  WORD typeId;
  const WCHAR* typeName;
  WORD nameId;
  const WCHAR* name;
  WORD language;     // LCID
  const void* data;  // aligned for 16-bit units
  DWORD size;        // bytes
};

// A store: its resources sorted by type, name and language.
struct tZQRESOURCEDIR {
  const tZQRESOURCE* items;
  DWORD count;
};

// A found resource, as FindResourceExW answers it; null when not found.
typedef const tZQRESOURCE* HRSRC;

constexpr WORD RT_STRING_ID = 6;
constexpr WORD ZQ_LANG_NEUTRAL = 0;

// A number as a resource type or name.
inline const WCHAR* MAKEINTRESOURCEW(UINT_PTR id) { return reinterpret_cast<const WCHAR*>(id); }
inline bool IS_INTRESOURCE(const WCHAR* p) { return reinterpret_cast<UINT_PTR>(p) < 0x10000; }

// Makes `directory` the store of `module` (null removes it).  A module may be
// any handle value: tests register stores of their own under made-up
// handles.
ZQ_API void ZqResource_RegisterModule(HMODULE module, const tZQRESOURCEDIR* directory);
// The store of `module`: a registered one, else what its
// "ZqResourceDirectory" export answers; null when it has none.
const tZQRESOURCEDIR* ZqResource_GetDirectory(HMODULE module);

// The resource (type, name) of `module` in exactly `language`; null when the
// store has no such resource or the module no store.
ZQ_API HRSRC ZqFindResourceExW(HMODULE module, const WCHAR* type, const WCHAR* name, WORD language);
// The neutral lookup: the language-neutral form, else US English, else the
// first language the store has.
ZQ_API HRSRC ZqFindResourceW(HMODULE module, const WCHAR* name, const WCHAR* type);
// The data and size of a found resource (null and 0 for null).
ZQ_API const void* ZqLockResource(HRSRC resource);
ZQ_API DWORD ZqSizeofResourceRaw(HRSRC resource);

// String `id` of `module` in `language`, as a pointer into the store and a
// count of characters (the store keeps a terminating 0 inside the count).
// Answers the count, 0 when there is no such string.
int ZqResource_FindString(HMODULE module, UINT id, WORD language, const WCHAR** text);

// The library's own store (texts of kernel/strings in the resource
// languages), generated at build time.
extern const tZQRESOURCEDIR g_zqKernelResources;
