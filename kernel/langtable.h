// The kernel's string table: texts in 18 languages, compiled into the
// library from the translation catalogues of kernel/strings/.
//
// Layout (one writable array, kept together because a lookup under the
// resource path reads one word past the language list into the first
// entry):
//   - 18 LCIDs, 32 bits each, the order of the columns of every entry;
//   - ZQLANG_TABLE_ENTRIES entries, one after another.
// An entry is addressed by its own address, which travels where a text
// pointer would: pass ZqLangEntry(id) wherever a text is expected, or
// ZqLangEntryRef(id) to the ZqGetString / ZqLoadString overloads.
//
// A column holds a pointer to the text in that language, or a value below
// 0x10000: the number of a string resource fetched at run time from the
// language module, after which the column is patched with the text found (or
// with the English text).  Patches are single aligned stores of a final
// value; entries are shared by all handles for the life of the process.
#pragma once

#include <cstddef>

#include "base/types.h"

constexpr int ZQLANG_COLUMNS = 18;

// The columns' languages, in column order.
inline constexpr DWORD kZqLangColumnLCIDs[ZQLANG_COLUMNS] = {
    0x409, 0x411, 0x407, 0x40A, 0x40C, 0x804, 0x404, 0x406, 0x40B,
    0x410, 0x412, 0x413, 0x414, 0x416, 0x816, 0x419, 0x41D, 0x415,
};

// One entry: the marker 0xFFFE, the column count (only its low byte is
// read), one pointer-sized value per column, and a closing zero word.
struct tZQLANGENTRY {
  WORD marker;                        // 0xFFFE
  WORD columns;                       // 18
  DWORD reserved;                     // 0; aligns the columns
  UINT_PTR values[ZQLANG_COLUMNS];    // text pointer, or a resource number below 0x10000
  UINT_PTR end;                       // 0
};
static_assert(offsetof(tZQLANGENTRY, columns) == 2);
static_assert(offsetof(tZQLANGENTRY, values) == 8);
static_assert(sizeof(tZQLANGENTRY) == 8 + (ZQLANG_COLUMNS + 1) * sizeof(UINT_PTR));
static_assert(alignof(tZQLANGENTRY) >= 4, "entries must sit at multiples of 4");

// The number of entries, and the symbolic names of the entries, generated
// from the English catalogue.
#include "kernel/strings/zqstrings_ids.h"

struct tZQLANGTABLE {
  DWORD lcids[ZQLANG_COLUMNS];
  tZQLANGENTRY entries[ZQLANG_TABLE_ENTRIES];
};
static_assert(offsetof(tZQLANGTABLE, entries) == ZQLANG_COLUMNS * sizeof(DWORD));

// The table itself (writable: resource-number columns are patched in place).
extern tZQLANGTABLE g_zqLangTable;

// Entry `id` in the form that text parameters take.
inline const WCHAR* ZqLangEntry(ZQSTR id) {
  return reinterpret_cast<const WCHAR*>(&g_zqLangTable.entries[static_cast<int>(id)]);
}
// Entry `id` in the form that the entry overloads of ZqGetString and
// ZqLoadString take.
inline const WCHAR* const* ZqLangEntryRef(ZQSTR id) {
  return reinterpret_cast<const WCHAR* const*>(&g_zqLangTable.entries[static_cast<int>(id)]);
}

// The table entry of a status code of the kernel's message table (a code
// listed twice keeps its first place), or null for a code without one.
const WCHAR* ZqLangStatusEntry(HRESULT status);
