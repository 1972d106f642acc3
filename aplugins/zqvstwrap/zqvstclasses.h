// What every room of the wrapper shares: the class identifiers' roles, the
// mapper's fixed identifier, and the two counters that decide whether the
// library may be unloaded.
//
// Every plug-in has three class identifiers of its own (filter, Editor page,
// Params page) which share their first ten bytes; the last six bytes name
// the role.  The counters are atomic and may be touched from any thread.
#pragma once

#include "kernel/com/guid.h"
#include "base/types.h"

// The mapper's fixed class identifier.
inline constexpr CLSID CLSID_ZqVstWrapFilterMapper = ZqGuid("{5B01B6EB-8A9E-4BB6-8F55-7D89E5977BAD}");

// Which object a class identifier makes, told by its last six bytes.
enum ZQVSTROLE : int {
  ZQVSTROLE_NONE = 0,
  ZQVSTROLE_FILTER = 1,
  ZQVSTROLE_EDITOR_PAGE = 2,
  ZQVSTROLE_PARAMS_PAGE = 3,
};

// Bytes 10 to 15 of each role's identifier.
inline constexpr BYTE kZqVstFilterTag[6] = {0x00, 0x07, 0xE9, 0x5D, 0x36, 0xFA};
inline constexpr BYTE kZqVstEditorPageTag[6] = {0x00, 0xD0, 0xB7, 0xA9, 0xEC, 0x37};
inline constexpr BYTE kZqVstParamsPageTag[6] = {0x00, 0x01, 0x03, 0x21, 0xBD, 0x1D};

// The role of `clsid` from its trailing six bytes alone.
ZQVSTROLE ZqVstRoleOf(REFCLSID clsid);
// Writes the three role identifiers of the family `any` belongs to: its
// first ten bytes with each role's six.  Any output may be null.
void ZqVstMakeRoleClsids(REFCLSID any, CLSID* filter, CLSID* editorPage, CLSID* paramsPage);

// Flags and State bits of a plug-in's record that the filter reads and writes.
constexpr DWORD ZQVST_VMF_NO_LATENCY = 0x040;  // the filter does not compensate the plug-in's latency
constexpr DWORD ZQVST_VMS_LOADED = 0x4;        // a filter of this record was made in this process

// --- The two counters of DllCanUnloadNow -----------------------------------

// Live objects of the library (filters, pages, the mapper).
void ZqVstWrap_ObjectCreated();
void ZqVstWrap_ObjectDestroyed();
LONG ZqVstWrap_ObjectCount();
// LockServer's count.
void ZqVstWrap_LockServer(BOOL lock);
LONG ZqVstWrap_LockCount();

