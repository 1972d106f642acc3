#include "aplugins/zqvstwrap/discovery/zqvsthostcache.h"

#include <cstring>

#include "aplugins/zqvstwrap/zqvstclasses.h"
#include "platform/text.h"

namespace {

// Bit i of the capability word carries bit kPropertyBit[i] of
// Properties.flags; -1 marks the two bits that carry Flags instead.
constexpr int kPropertyBit[13] = {8, -1, 0, 1, 2, 3, 4, 5, 9, 10, 11, -1, 7};

DWORD KindOf(DWORD flags) {
  if (flags & VMF_NO_ENTRY) return VHC_KIND_NO_ENTRY;
  if (flags & VMF_SYNTH) return VHC_KIND_SYNTH;
  if (flags & VMF_EFFECT) return VHC_KIND_EFFECT;
  return VHC_KIND_NEITHER;
}

// The kind and the two yes/no words, which a partial item with flags carries
// too.  An item of neither kind is written as failed and disabled, whatever
// the flags say.
void PutKind(DWORD flags, VstHostCacheItem* item) {
  item->Kind = KindOf(flags);
  item->Failed = (flags & VMF_FAILED) ? -1 : 0;
  item->Enabled = (flags & VMF_ENABLED) ? -1 : 0;
  if (item->Kind == VHC_KIND_NEITHER) {
    item->Enabled = 0;
    item->Failed = 1;
    item->Neither = 1;
  }
}

DWORD FlagCapabilities(DWORD flags) {
  DWORD caps = 0;
  if (flags & VMF_SHELL_ITEM) caps |= VHC_CAP_SHELL_ITEM;
  if (flags & VMF_NO_LATENCY) caps |= VHC_CAP_NO_LATENCY;
  return caps;
}

void CopyText(WCHAR* dst, const WCHAR* src, int size) { lstrcpynW(dst, src ? src : u"", size); }

}  // namespace

void ZqVstMappingToHostItem(const VstMapping& m, VstHostCacheItem* item) {
  std::memset(item, 0, sizeof(*item));
  item->Clsid = m.Clsid;
  PutKind(m.Flags, item);
  item->Version = m.Properties.version;
  item->VendorVersion = m.Properties.vendorVersion;
  item->UniqueID = m.Properties.uniqueID;
  item->EditorParams = ((m.Flags & VMF_HAS_EDITOR) ? 1u : 0u) | (m.Properties.numParams ? 2u : 0u);
  item->StateBits = m.State & VMS_STALE;
  item->UserFlags = m.UserFlags;
  item->FileTime = m.FileTime;
  CopyText(item->Path, m.Path, 260);
  CopyText(item->Name, m.Name, 64);
  CopyText(item->ProgressName, m.Name, 64);
  CopyText(item->Product, m.Product, 64);
  CopyText(item->Vendor, m.Vendor, 64);
  std::memcpy(item->PropertyWords, &m.Properties, sizeof(item->PropertyWords));
  DWORD caps = FlagCapabilities(m.Flags);
  const DWORD p = static_cast<DWORD>(m.Properties.flags);
  for (int bit = 0; bit < 13; ++bit)
    if (kPropertyBit[bit] >= 0 && (p >> kPropertyBit[bit]) & 1) caps |= 1u << bit;
  item->Capabilities = caps;
}

void ZqVstFillPartialHostItem(const WCHAR* path, const WCHAR* name, const DWORD* userFlags, const DWORD* flags,
                              VstHostCacheItem* item) {
  item->FieldMask |= VHC_MASK_ITEM;
  if (path) {
    CopyText(item->Path, path, 260);
    item->FieldMask |= VHC_MASK_PATH;
  }
  if (name) {
    CopyText(item->Name, name, 64);
    item->FieldMask |= VHC_MASK_NAME;
  }
  if (userFlags) {
    item->UserFlags = *userFlags;
    item->FieldMask |= VHC_MASK_USERFLAGS;
  }
  if (flags) {
    PutKind(*flags, item);
    item->Capabilities = (item->Capabilities & ~(VHC_CAP_SHELL_ITEM | VHC_CAP_NO_LATENCY)) | FlagCapabilities(*flags);
    item->FieldMask |= VHC_MASK_FLAGS;
  }
}

void ZqVstMappingFromHostItem(const VstHostCacheItem& item, VstMapping* m) {
  std::memset(m, 0, sizeof(*m));
  ZqVstMakeRoleClsids(item.Clsid, nullptr, &m->EditorPageClsid, &m->ParamsPageClsid);
  m->Clsid = item.Clsid;
  // The host's texts may come without a terminator: each is cut to its field.
  WCHAR text[260];
  std::memcpy(text, item.Path, sizeof(text));
  text[259] = 0;
  lstrcpynW(m->Path, text, 260);
  std::memcpy(text, item.Name, sizeof(text));
  text[259] = 0;
  lstrcpynW(m->Name, text, 64);
  std::memcpy(text, item.Vendor, sizeof(text));
  text[259] = 0;
  lstrcpynW(m->Vendor, text, 64);

  m->Properties.uniqueID = item.UniqueID;
  m->Properties.version = item.Version;
  m->Properties.vendorVersion = item.VendorVersion;
  std::memcpy(&m->Properties.numPrograms, &item.PropertyWords[3], 5 * sizeof(LONG));
  DWORD p = 0;
  for (int bit = 0; bit < 13; ++bit)
    if (bit != 0 && kPropertyBit[bit] >= 0 && (item.Capabilities >> bit) & 1) p |= 1u << kPropertyBit[bit];
  if (item.Capabilities & (1u << 12)) p |= 1u << 6;
  if (item.Kind & VHC_KIND_SYNTH) p |= 1u << 8;
  m->Properties.flags = static_cast<LONG>(p);

  DWORD flags = 0;
  if (item.Kind & (VHC_KIND_SYNTH | VHC_KIND_NEITHER)) flags |= VMF_SYNTH;
  if (item.Kind & (VHC_KIND_EFFECT | VHC_KIND_NEITHER)) flags |= VMF_EFFECT;
  if (item.Capabilities & VHC_CAP_SHELL_ITEM) flags |= VMF_SHELL_ITEM;
  if (item.Capabilities & VHC_CAP_NO_LATENCY) flags |= VMF_NO_LATENCY;
  if (item.EditorParams & 1) flags |= VMF_HAS_EDITOR;
  if (item.Enabled & 1) flags |= VMF_ENABLED;
  if (item.Failed & 1) flags |= VMF_FAILED;
  m->Flags = flags;
  m->State = (item.StateBits & 4) ? VMS_LOADED : 0;
  m->UserFlags = item.UserFlags;
  m->FileTime = item.FileTime;
}
