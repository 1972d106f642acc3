// The host's own cache object, and the fixed record a mapping travels in to
// and from it.
//
// A host that keeps its plug-in lists itself hands the mapper an
// IVstHostCache; every read and write of the cache then goes to that object
// and the store is left alone.  The object is the host's: the library holds
// one reference, calls it from the thread that calls the mapper, and never
// asks it for an interface (it arrives as a plain pointer).  The value 14
// that some operations take is passed as it stands; its meaning is the
// host's.
//
// VstHostCacheItem is a wire record of exactly 4788 bytes, little-endian,
// zeroed by the side that fills it.  The conversion to and from a mapping is
// deliberately lossy (see ZqVstMappingFromHostItem).
#pragma once

#include "aplugins/zqvstwrap/discovery/zqvstmapping.h"
#include "kernel/com/unknown.h"
#include "base/types.h"

// The kind word of the operations that take one.
constexpr DWORD ZQVST_HOSTCACHE_KIND = 14;

// Field mask of a partial item (offset 16).  Zero in a full item.
constexpr DWORD VHC_MASK_ITEM = 0x1;         // always, in a partial item
constexpr DWORD VHC_MASK_PATH = 0x100;
constexpr DWORD VHC_MASK_NAME = 0x200;
constexpr DWORD VHC_MASK_USERFLAGS = 0x20;
constexpr DWORD VHC_MASK_FLAGS = 0x2004;

// Kind word (offset 20).
constexpr DWORD VHC_KIND_NO_ENTRY = 0;
constexpr DWORD VHC_KIND_EFFECT = 2;
constexpr DWORD VHC_KIND_SYNTH = 4;
constexpr DWORD VHC_KIND_NEITHER = 8;

// Capability word (offset 2716): which bit carries which bit of
// Properties.flags (P) or of the mapping's Flags (F).
constexpr DWORD VHC_CAP_SHELL_ITEM = 1u << 1;   // F VMF_SHELL_ITEM
constexpr DWORD VHC_CAP_NO_LATENCY = 1u << 11;  // F VMF_NO_LATENCY

struct VstHostCacheItem {
  CLSID Clsid;                  // 0
  DWORD FieldMask;              // 16: VHC_MASK_* in a partial item
  DWORD Kind;                   // 20: VHC_KIND_*
  LONG Failed;                  // 24: -1 or 0; bit 0 read back
  LONG Enabled;                 // 28: -1 or 0; bit 0 read back
  DWORD Neither;                // 32: 1 for VHC_KIND_NEITHER
  DWORD Reserved36;             // 36
  LONG Version;                 // 40
  LONG VendorVersion;           // 44
  LONG UniqueID;                // 48
  DWORD EditorParams;           // 52: bit 0 has an editor, bit 1 has parameters
  DWORD StateBits;              // 56: bit 1 stale; bit 2 read back as loaded
  DWORD UserFlags;              // 60
  FILETIME FileTime;            // 64
  DWORD Reserved72[2];          // 72
  WCHAR Path[260];              // 80
  WCHAR Name[260];              // 600
  WCHAR ProgressName[260];      // 1120: the name again; drives the host's progress line
  WCHAR Product[260];           // 1640: written, never read back
  WCHAR Vendor[260];            // 2160
  DWORD Reserved2680;           // 2680
  LONG PropertyWords[8];        // 2684: Properties words 0 to 7; 3 to 7 read back
  DWORD Capabilities;           // 2716: VHC_CAP_* and the map of Properties.flags
  BYTE Reserved2720[4788 - 2720];
};
static_assert(offsetof(VstHostCacheItem, FieldMask) == 16);
static_assert(offsetof(VstHostCacheItem, Kind) == 20);
static_assert(offsetof(VstHostCacheItem, Failed) == 24);
static_assert(offsetof(VstHostCacheItem, Enabled) == 28);
static_assert(offsetof(VstHostCacheItem, Neither) == 32);
static_assert(offsetof(VstHostCacheItem, Version) == 40);
static_assert(offsetof(VstHostCacheItem, VendorVersion) == 44);
static_assert(offsetof(VstHostCacheItem, UniqueID) == 48);
static_assert(offsetof(VstHostCacheItem, EditorParams) == 52);
static_assert(offsetof(VstHostCacheItem, StateBits) == 56);
static_assert(offsetof(VstHostCacheItem, UserFlags) == 60);
static_assert(offsetof(VstHostCacheItem, FileTime) == 64);
static_assert(offsetof(VstHostCacheItem, Path) == 80);
static_assert(offsetof(VstHostCacheItem, Name) == 600);
static_assert(offsetof(VstHostCacheItem, ProgressName) == 1120);
static_assert(offsetof(VstHostCacheItem, Product) == 1640);
static_assert(offsetof(VstHostCacheItem, Vendor) == 2160);
static_assert(offsetof(VstHostCacheItem, PropertyWords) == 2684);
static_assert(offsetof(VstHostCacheItem, PropertyWords) + 3 * sizeof(LONG) == 2696);
static_assert(offsetof(VstHostCacheItem, Capabilities) == 2716);
static_assert(sizeof(VstHostCacheItem) == 4788);

// Implemented by the host.  Slot order is fixed; the two slots the library
// never calls keep their places.
class IVstHostCache : public IUnknown {
 public:
  // Folder `index` (from 0): its path (`size` characters), the three flags
  // as words whose bit 0 counts, and the 16 checksum bytes.  0 while the
  // index exists, anything else past the end.
  virtual HRESULT STDMETHODCALLTYPE GetSearchPath(DWORD index, WCHAR* path, DWORD size, DWORD* recursive,
                                                  DWORD* effects, DWORD* synths, BYTE* checkSum) = 0;
  // Appends a folder; the flags are 0 or -1.  Negative is failure.
  virtual HRESULT STDMETHODCALLTYPE AddSearchPath(DWORD* index, const WCHAR* path, LONG recursive, LONG effects,
                                                  LONG synths, const BYTE* checkSum) = 0;
  virtual HRESULT STDMETHODCALLTYPE Unused3() = 0;
  // Called before GetMapping runs from index 0.
  virtual HRESULT STDMETHODCALLTYPE BeginMappings(DWORD kind) = 0;
  // 0 while the index exists; a positive end-of-list value or a negative
  // error otherwise.
  virtual HRESULT STDMETHODCALLTYPE GetMapping(DWORD index, VstHostCacheItem* item) = 0;
  virtual HRESULT STDMETHODCALLTYPE Unused6() = 0;
  // Stores a full item, or updates the fields of a partial one.
  virtual HRESULT STDMETHODCALLTYPE PutMapping(const VstHostCacheItem* item) = 0;
  virtual HRESULT STDMETHODCALLTYPE ClearMappings(DWORD kind) = 0;
  virtual HRESULT STDMETHODCALLTYPE RemoveMapping(const VstHostCacheItem* item) = 0;
  // Prepares `item` for a partial update of the mapping `clsid`.
  virtual HRESULT STDMETHODCALLTYPE InitMappingItem(REFCLSID clsid, VstHostCacheItem* item) = 0;
  // Remembers that a filter of the mapping is in use (-1) or not (0).
  virtual HRESULT STDMETHODCALLTYPE SetMappingLoaded(REFCLSID clsid, LONG loaded) = 0;
};

// A full item of `mapping`: the whole record is zeroed first.
void ZqVstMappingToHostItem(const VstMapping& mapping, VstHostCacheItem* item);
// Writes into a partial item what UpdateMapping was given (null: not given)
// with its mask bits; the rest of the item stays as InitMappingItem left it.
void ZqVstFillPartialHostItem(const WCHAR* path, const WCHAR* name, const DWORD* userFlags, const DWORD* flags,
                              VstHostCacheItem* item);
// A mapping from `item`.  Flags are rebuilt from the kind, the two yes/no
// words, the editor bit and the capability word, so VMF_NO_ENTRY and
// VMF_BAD_IMAGE do not survive; Product is empty; Properties.flags come back
// through the capability map (bit 12 gives both P6 and P7, P8 comes from the
// synth kind); State gets VMS_LOADED from bit 2 of offset 56.  The page
// identifiers are derived.
void ZqVstMappingFromHostItem(const VstHostCacheItem& item, VstMapping* mapping);
