// What the library knows of one plug-in, and how a host makes a module known
// to it by path.
//
// Every plug-in the library offers has a mapping: its three class
// identifiers, its module, names and properties.  Class identifiers are not
// random; they are computed from the plug-in, so that a project saved on one
// machine finds the same plug-in again on another:
//
//   Data1       the plug-in's VST unique id
//   Data2       ZqVstNameHash of the module's file name (with extension)
//   Data3       ZqVstNameHash of the plug-in's name
//   Data4[0..1] ZqVstNameHash of the host's executable path (little-endian)
//   Data4[2..7] the role: filter, Editor page or Params page
//
// A host that scans nothing of its own and knows the module it wants (a
// command-line host given a file) calls ZqVstMapModule: the module is looked
// at in a child process first, so that one that hangs or ends its process
// cannot take the host with it, then opened in process to read what it is.
// The mapping then stands in the cache's mapping list (in memory; the store
// is written by the scan), offered like one the scan found, and the filter
// identifier resolves through DllGetClassObject like any other.
#pragma once

#include "aplugins/zqvstwrap/izqvsteffect.h"
#include "kernel/com/unknown.h"
#include "base/types.h"

// Flags of a mapping.
constexpr DWORD VMF_SYNTH = 0x001;       // the plug-in says it is a synth
constexpr DWORD VMF_EFFECT = 0x002;      // it has inputs
constexpr DWORD VMF_SHELL_ITEM = 0x004;  // one sub-plug-in of a shell module
constexpr DWORD VMF_HAS_EDITOR = 0x008;  // it has an editor of its own
constexpr DWORD VMF_ENABLED = 0x010;     // offered to the host
constexpr DWORD VMF_FAILED = 0x020;      // the probe failed but it still counts as a plug-in
constexpr DWORD VMF_NO_LATENCY = 0x040;  // a filter of it does not compensate its latency
constexpr DWORD VMF_NO_ENTRY = 0x080;    // the module has no VST entry point
constexpr DWORD VMF_BAD_IMAGE = 0x100;   // the module is no loadable object for this machine

// State bits of a mapping (in memory only).
constexpr DWORD VMS_STALE = 0x2;   // read from the store and not yet seen on disk
constexpr DWORD VMS_LOADED = 0x4;  // a filter of it has been made in this process

struct VstMapping {
  CLSID Clsid;            // the filter's class identifier
  CLSID EditorPageClsid;  // derived from Clsid
  CLSID ParamsPageClsid;  // derived from Clsid
  WCHAR Path[260];        // the module file
  WCHAR Name[64];         // display name (the file's base name when the plug-in has none)
  WCHAR Vendor[64];
  WCHAR Product[64];
  VstEffectInfo Properties;
  FILETIME FileTime;  // last write of the module file
  DWORD UserFlags;    // the host's own word, never looked into
  DWORD Flags;        // VMF_*
  DWORD State;        // VMS_*
  DWORD Spare[8];     // zero
};
static_assert(offsetof(VstMapping, Path) == 48);
static_assert(offsetof(VstMapping, Name) == 48 + 520);
static_assert(offsetof(VstMapping, Properties) == 48 + 520 + 3 * 128);
static_assert(offsetof(VstMapping, FileTime) == 48 + 520 + 3 * 128 + 36);
static_assert(sizeof(VstMapping) == 48 + 520 + 3 * 128 + 36 + 8 + 12 + 32);

// The 16-bit hash of a text that class identifiers are made of: the text in
// the 8-bit code page, upper-cased, through a CRC (0x1021, starting at
// 0xFFFF, 16 zero bits appended).  0 for null or an empty text.
ZQ_API WORD ZqVstNameHash(const WCHAR* text);

// The hash of this process's executable path, computed once (0, and tried
// again next time, while the path cannot be had).
ZQ_API WORD ZqVstHostPathHash();

// Makes the three class identifiers of a plug-in from its unique id, its
// module path and its name.  Any output may be null.
ZQ_API void ZqVstMakeMappingClsids(LONG uniqueId, const WCHAR* modulePath, const WCHAR* name, CLSID* filter,
                                   CLSID* editorPage, CLSID* paramsPage);

// Makes the module at `path` known to this process and fills `mapping`
// (which may be null).  `uniqueId` picks a sub-plug-in of a shell; 0 takes
// the module's own plug-in.  `timeLimitMs` bounds the look in the child
// process (INFINITE: no limit).  The mapping is enabled whatever kind of
// plug-in it is.  Calling it again for the same module replaces the mapping
// and keeps its VMS_LOADED.
//
//   S_OK                the mapping is in place: DllGetClassObject(mapping->Clsid) works
//   ZQ_S_IS_SHELL       the module is a shell and `uniqueId` was 0: nothing
//                       is mapped; its plug-ins are mapped by their ids
//   E_INVALIDARG        null or empty path
//   E_UNEXPECTED        a shell without the plug-in `uniqueId`
//   HRESULT_FROM_WIN32  126 missing file or library, 127 no entry point,
//                       193 not a loadable object for this machine
//   ZQ_E_EXCEPTION      the module faulted, or ended the probing process
//   ZQ_E_CANCELLED      the module was still busy at the time limit
//   ZQ_E_COMPONENT      the module is no plug-in this library can host
//                       (entry point gave nothing or a wrong magic)
// On failure `mapping` holds the path and the flags that tell what went
// wrong (VMF_NO_ENTRY, VMF_BAD_IMAGE, VMF_FAILED), and nothing is mapped.
ZQ_API HRESULT ZqVstMapModule(const WCHAR* path, LONG uniqueId, DWORD timeLimitMs, VstMapping* mapping);

// The latency and tail in frames that a mapped plug-in reported when
// ZqVstMapModule opened it (the tail is 0 when it reports none); for hosts
// that tell what a plug-in is.  ZQ_E_NOT_FOUND for an identifier of no
// mapping made in this process.
ZQ_API HRESULT ZqVstGetModuleTiming(REFCLSID clsid, LONG* latencyFrames, LONG* tailFrames);
