// The plug-in cache: the search folders with a fingerprint of what each held
// at the last scan, and one mapping per usable module or shell sub-plug-in,
// kept in process-wide memory and stored below the current user, or in the
// host's own cache object when the host gave one.
//
// Stored tree, below "Software\Ostrand\<app>\<major>.<minor>\Metrics\VstCache"
// of HKEY_CURRENT_USER:
//   "SearchPaths"\"Path <n>" (n from 1, list order):
//       "Path" REG_SZ, "Flags" REG_DWORD, "CheckSum" REG_BINARY 16
//   "Mappings"\"{class id}":
//       "Path", "Name", "Vendor", "Product" REG_SZ, "Properties" REG_BINARY 36,
//       "FileTime" REG_BINARY 8, "Flags" REG_DWORD, "UserFlags" REG_DWORD
// Texts are written with their terminator; binary words little-endian.
// Nothing else is stored: State, the page identifiers and Found live in
// memory only.  Both subtrees are replaced whole by every write, so a key
// that did not read back (a damaged or missing value) is gone afterwards.
//
// Process-wide state: the mapping list (a heap list of VstMapping, grown by
// 64; the class factory resolves identifiers against it), the count of
// mappings that enumeration offers, the optional host cache (one reference
// held) and the cache key's name.  The search folder list belongs to its
// caller (an array list of VstSearchPath).
//
// Threads: there is no lock.  The store and the lists are touched from the
// thread that calls the mapper; filters read the mapping list only while
// their class object is made, which a host does not do during a scan.
#pragma once

#include "aplugins/zqvstwrap/discovery/izqprogress.h"
#include "aplugins/zqvstwrap/discovery/zqvsthostcache.h"
#include "aplugins/zqvstwrap/discovery/zqvstmapping.h"
#include "kernel/list.h"
#include "kernel/log.h"
#include "base/types.h"

// Flags of a search folder.  Other bits are kept as read.
constexpr DWORD VSP_RECURSE = 0x1;  // descend into subfolders
constexpr DWORD VSP_EFFECTS = 0x2;  // effects found here are enabled
constexpr DWORD VSP_SYNTHS = 0x4;   // synths found here are enabled

struct VstSearchPath {
  WCHAR Path[260];    // absolute, ending in "/"
  DWORD Flags;        // VSP_*
  DWORD CheckSum[4];  // write time low, high, size low, high: sums over the folder's modules
  DWORD Found;        // memory only: 1 when it matched the store or its last scan ended well
};
static_assert(offsetof(VstSearchPath, Flags) == 520);
static_assert(offsetof(VstSearchPath, CheckSum) == 524);
static_assert(sizeof(VstSearchPath) == 544);

// --- Process-wide state --------------------------------------------------------

// Binds the cache to one application: forms the key name from `appName` and
// the top two bytes of `version` (major, minor), and replaces the host cache
// (null: the store) taking a reference on the new one and giving back the
// old one's.  The last call decides for the whole process.
void ZqVstCache_Bind(const WCHAR* appName, DWORD version, IVstHostCache* hostCache);
// The key's name below HKEY_CURRENT_USER; empty before ZqVstCache_Bind.
const WCHAR* ZqVstCache_KeyName();
// The host cache, or null; no reference is added.
IVstHostCache* ZqVstCache_HostCache();
// The process-wide mapping list, for the functions below that take one; the
// pointer is null until something is read or entered.
tZQLIST** ZqVstCache_Mappings();
// How many mappings from the start of the list enumeration offers.
INT ZqVstCache_MappingCount();
void ZqVstCache_SetMappingCount(INT count);
// Destroys the mapping list, gives back the host cache and forgets the key:
// afterwards no plug-in identifier resolves.
void ZqVstCache_Destroy();

// --- The mapping list -------------------------------------------------------------

// Index of the mapping that has `clsid` as any of its three identifiers, or
// -1 (also for an identifier that fits no role, without a search, and for a
// null list).
INT ZqVstFindMapping(const tZQLIST* list, REFCLSID clsid);
inline VstMapping* ZqVstMappingAt(const tZQLIST* list, INT index) {
  return static_cast<VstMapping*>(ZqList_Slot(list, index));
}
// Puts a copy of `mapping` into the process-wide list (created on first
// use): over the mapping with the same filter identifier, keeping its
// VMS_LOADED, or else as the first mapping behind the offered ones, which
// then count one more.  The page identifiers are derived.  E_INVALIDARG for
// an identifier that is not a filter's.
HRESULT ZqVstCache_EnterMapping(const VstMapping& mapping);
// Marks the mapping of `clsid` as in use by a filter of this process, and
// tells the host cache.  ZQ_E_NOT_FOUND when there is no such mapping.
HRESULT ZqVstCache_SetLoaded(REFCLSID clsid);
// The sort order of the mapping list (a ZQLISTCOMPAREPROC over VstMapping*):
// failed mappings last and unordered among themselves, the rest by Name as
// lstrcmpW orders them.
int ZQ_STDCALL ZqVstCompareMappings(UINT_PTR context, const void* a, const void* b);
// The three class identifiers of the family of `base`.  Any output may be null.
void ZqVstMakeClassIds(REFGUID base, CLSID* filter, CLSID* editorPage, CLSID* paramsPage);

// --- Reading and writing ------------------------------------------------------------

// Builds a new folder list into *list (an array list of VstSearchPath, each
// with Found 1), from the host cache or the store.  Answers 1 when the
// cache key or "SearchPaths" cannot be opened (the store was never written;
// *list is then an empty list), 0 otherwise, or a list error, in which case
// no list remains.  Folders come in the store's key order ("Path 12" before
// "Path 2"); a damaged folder key is skipped in silence.
HRESULT ZqVstReadSearchPaths(tZQLIST** list);
// Replaces the stored folders with `list`.  `progress` and `log` may be null.
// E_FAIL when a key or value cannot be written (with a line in the log);
// folders written before the failure stay stored.
HRESULT ZqVstWriteSearchPaths(const tZQLIST* list, BOOL flush, IZqProgress* progress, CLog* log);
// Reads every mapping into a new list, sorted, which then replaces *list
// (only at the end: on failure *list is untouched).  `markStale` gives each
// VMS_STALE; a mapping whose identifier *list holds keeps its VMS_LOADED.
// `skipHostCache` reads nothing from a host cache.  Answers 0; 1 when the
// store has no mappings key (the new list is empty); a negative host cache
// or list error.  A damaged mapping key is dropped in silence.
HRESULT ZqVstReadMappings(tZQLIST** list, BOOL markStale, BOOL skipHostCache);
// Replaces the stored mappings with `list`, from the last to the first.
// With `purge` a stale mapping is removed from the store and from `list`,
// unless it is loaded: then it stays in `list`, unwritten, and its name goes
// to the error details under ZQ_E_PLUGINS_NOT_INSTALLED.  The process-wide
// mapping count becomes the number written.  E_FAIL on a write failure.
HRESULT ZqVstWriteMappings(tZQLIST* list, BOOL purge, BOOL flush, IZqProgress* progress, CLog* log);
// Changes single stored values of the mapping `clsid` (null arguments are
// left alone): "Path", "Name", "UserFlags", "Flags", in this order.  A
// mapping that is not stored changes nothing and still answers S_OK; a
// failed write answers its status.
HRESULT ZqVstUpdateMapping(REFCLSID clsid, const WCHAR* path, const WCHAR* name, const DWORD* userFlags,
                           const DWORD* flags);
// Gives the mapping a new display name, stored and in memory (cut to 64
// characters).  The class identifiers stay what they were, so afterwards
// Data3 no longer is the hash of Name.
HRESULT ZqVstRenameMapping(VstMapping* mapping, const WCHAR* name);
// Deletes the whole cache key, for a full rescan: user choices and what
// was remembered of every module are lost.  S_OK also when there was none.
HRESULT ZqVstDeleteCache();

// --- Folders -------------------------------------------------------------------------

// Fingerprints a folder into folder->CheckSum: for every ".so" file (case
// ignored; with VSP_RECURSE also in subfolders whose names do not start with
// "."), its last-write time and size are added into the four words, each
// wrapping by itself.  A folder that cannot be listed sums to zero.  Waiting
// messages are dispatched at the start of every folder and `progress` (may
// be null) asked whether to stop; a negative answer restores the old sums
// and is returned.  Otherwise S_OK.
HRESULT ZqVstComputeCheckSum(VstSearchPath* folder, IZqProgress* progress);
// Compares the folders now with those stored: sets each current folder's
// Found to whether the stored list holds the same Path (case ignored),
// Flags and all four sums.  TRUE when anything differs (counts included):
// the stored mappings are then no longer to be believed.
BOOL ZqVstSearchPathsChanged(const tZQLIST* current, const tZQLIST* stored);

// --- Identifiers of projects saved elsewhere ---------------------------------------------

// Finds the mapping meant by a class identifier saved on another machine or
// by another host, and rewrites *guid with its identifier of the same role.
//   S_FALSE         *guid is exact here and agrees with its mapping
//   S_OK            *guid was rewritten (another host's path, or matched by
//                   unique id, then file name hash, then name hash)
//   E_UNEXPECTED    *guid is stored but no longer agrees with its mapping
//                   (the plug-in was renamed)
//   ZQ_E_NOT_FOUND  no role tag, or nothing of that unique id
HRESULT ZqVstTranslateClsid(const tZQLIST* list, GUID* guid);
