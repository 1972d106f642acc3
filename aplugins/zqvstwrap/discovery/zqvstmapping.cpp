#include "aplugins/zqvstwrap/discovery/zqvstmapping.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <string>

#include "aplugins/zqvstwrap/vst2abi.h"
#include "aplugins/zqvstwrap/host/zqvsteffect.h"
#include "aplugins/zqvstwrap/discovery/zqvstcache.h"
#include "aplugins/zqvstwrap/discovery/zqvstfactory.h"
#include "aplugins/zqvstwrap/host/zqvstprobe.h"
#include "kernel/com/object.h"
#include "platform/file.h"
#include "platform/handle.h"
#include "platform/module.h"
#include "platform/text.h"

namespace {

// CRC-16 with the polynomial 0x1021, fed most significant bit first and
// followed by 16 zero bits: the augmented form, so "123456789" gives 0xE5CC.
WORD Crc16(const unsigned char* bytes, size_t count) {
  unsigned crc = 0xFFFF;
  auto feed = [&crc](unsigned bit) {
    const bool top = (crc & 0x8000) != 0;
    crc = ((crc << 1) | bit) & 0xFFFF;
    if (top) crc ^= 0x1021;
  };
  for (size_t i = 0; i < count; ++i)
    for (int b = 7; b >= 0; --b) feed((bytes[i] >> b) & 1);
  for (int b = 0; b < 16; ++b) feed(0);
  return static_cast<WORD>(crc);
}

std::atomic<unsigned> g_hostHash{0};  // 0x10000 | hash once known

// The name part of a path: what follows the last '/' (or '\', which paths
// written for the other platform carry).
const WCHAR* FileNameOf(const WCHAR* path) {
  const WCHAR* name = path;
  for (const WCHAR* p = path; *p; ++p)
    if (*p == u'/' || *p == u'\\') name = p + 1;
  return name;
}

// The flags a mapping's failure leaves: what the status says of the module.
DWORD FailureFlags(HRESULT status) {
  if (status == HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND)) return VMF_NO_ENTRY;
  if (status == HRESULT_FROM_WIN32(ERROR_BAD_EXE_FORMAT)) return VMF_BAD_IMAGE;
  return VMF_FAILED;
}

// The mapping's flags from what the open plug-in says of itself.
DWORD FlagsFromProperties(const VstEffectInfo& info, LONG uniqueId) {
  DWORD flags = VMF_ENABLED;
  if (info.flags & effFlagsIsSynth) flags |= VMF_SYNTH;
  if (info.numInputs > 0) flags |= VMF_EFFECT;
  if (uniqueId != 0) flags |= VMF_SHELL_ITEM;
  if (info.flags & effFlagsHasEditor) flags |= VMF_HAS_EDITOR;
  return flags;
}

}  // namespace

ZQ_API WORD ZqVstNameHash(const WCHAR* text) {
  if (!text || !*text) return 0;
  const int length = lstrlenW(text);
  // The hash is defined over the 8-bit form, one byte per character of the
  // text: exact for every text whose 8-bit form has one byte a character,
  // which is what the identifiers of saved projects were made from.
  const int bytes = WideCharToMultiByte(CP_ACP, 0, text, length, nullptr, 0, nullptr, nullptr);
  if (bytes <= 0) return 0;
  std::string narrow(static_cast<size_t>(bytes), '\0');
  WideCharToMultiByte(CP_ACP, 0, text, length, narrow.data(), bytes, nullptr, nullptr);
  // Upper case as the C locale knows it: ASCII letters only, so that the
  // hash never depends on the process's locale.
  for (char& c : narrow)
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  const size_t count = std::min(narrow.size(), static_cast<size_t>(length));
  return Crc16(reinterpret_cast<const unsigned char*>(narrow.data()), count);
}

ZQ_API WORD ZqVstHostPathHash() {
  const unsigned known = g_hostHash.load(std::memory_order_relaxed);
  if (known) return static_cast<WORD>(known);
  WCHAR path[260];
  const DWORD length = GetModuleFileNameW(nullptr, path, 260);
  if (length == 0 || length >= 260) return 0;  // tried again next time
  const WORD hash = ZqVstNameHash(path);
  g_hostHash.store(0x10000u | hash, std::memory_order_relaxed);
  return hash;
}

ZQ_API void ZqVstMakeMappingClsids(LONG uniqueId, const WCHAR* modulePath, const WCHAR* name, CLSID* filter,
                                   CLSID* editorPage, CLSID* paramsPage) {
  CLSID base{};
  base.Data1 = static_cast<DWORD>(uniqueId);
  base.Data2 = ZqVstNameHash(modulePath ? FileNameOf(modulePath) : nullptr);
  base.Data3 = ZqVstNameHash(name);
  const WORD host = ZqVstHostPathHash();
  base.Data4[0] = static_cast<BYTE>(host & 0xFF);
  base.Data4[1] = static_cast<BYTE>(host >> 8);
  ZqVstMakeRoleClsids(base, filter, editorPage, paramsPage);
}

ZQ_API HRESULT ZqVstMapModule(const WCHAR* path, LONG uniqueId, DWORD timeLimitMs, VstMapping* mapping) {
  VstMapping local{};
  VstMapping& m = mapping ? *mapping : local;
  std::memset(&m, 0, sizeof(m));
  if (!path || !*path) return E_INVALIDARG;

  WCHAR full[260];
  const DWORD fullLength = GetFullPathNameW(path, 260, full, nullptr);
  if (fullLength == 0 || fullLength >= 260) return HRESULT_FROM_WIN32(ERROR_FILENAME_EXCED_RANGE);
  lstrcpynW(m.Path, full, 260);

  WIN32_FIND_DATAW found{};
  const HANDLE search = FindFirstFileW(full, &found);
  if (search == INVALID_HANDLE_VALUE) return HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND);
  FindClose(search);
  if (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) return HRESULT_FROM_WIN32(ERROR_BAD_EXE_FORMAT);
  m.FileTime = found.ftLastWriteTime;

  // A module may hang or end the process that loads it: look at it in a
  // child first.  Without the probe program there is only the in-process
  // load, which still survives faults.
  // A load that failed leaves its flags; an entry point that gave nothing
  // or a wrong magic means no plug-in this library can host.
  auto refuse = [&m](HRESULT status) {
    m.Flags = FailureFlags(status);
    return status == E_INVALIDARG ? ZQ_E_COMPONENT : status;
  };
  const std::u16string probe = ZqVstFindProbe();
  if (!probe.empty()) {
    const HRESULT probed = ZqVstProbeModuleIsolatedEx(probe.c_str(), full, uniqueId, timeLimitMs, nullptr);
    if (probed == ZQ_S_IS_SHELL) return ZQ_S_IS_SHELL;
    if (FAILED(probed)) return refuse(probed);
  }

  ZqComPtr<IZqVstEffect> effect;
  const HRESULT created = ZqVstCreateEffectInProcess(full, uniqueId, IID_IZqVstEffect, effect.PutVoid());
  if (created == ZQ_S_IS_SHELL) return ZQ_S_IS_SHELL;
  if (created == S_FALSE) return E_OUTOFMEMORY;
  if (FAILED(created)) return refuse(created);
  if (!effect) return refuse(E_UNEXPECTED);

  effect->GetEffectName(m.Name, 64);  // the file's base name when the plug-in has none
  effect->GetVendorString(m.Vendor, 64);
  effect->GetProductString(m.Product, 64);
  effect->GetEffectInfo(&m.Properties);
  LONG latency = 0;
  LONG tail = 0;
  if (FAILED(effect->GetLatency(&latency))) latency = m.Properties.initialDelay;
  if (FAILED(effect->GetTailSize(&tail))) tail = 0;
  effect.Reset();

  m.Flags = FlagsFromProperties(m.Properties, uniqueId);
  ZqVstMakeMappingClsids(m.Properties.uniqueID, full, m.Name, &m.Clsid, &m.EditorPageClsid, &m.ParamsPageClsid);

  const HRESULT entered = ZqVstCache_EnterMapping(m);
  if (FAILED(entered)) return entered;
  return ZqVstRecords_SetTiming(m.Clsid, latency, tail);
}

ZQ_API HRESULT ZqVstGetModuleTiming(REFCLSID clsid, LONG* latencyFrames, LONG* tailFrames) {
  ZqVstPluginRecord record;
  const HRESULT hr = ZqVstRecords_Find(clsid, &record);
  if (FAILED(hr)) return hr;
  if (latencyFrames) *latencyFrames = record.latencyFrames;
  if (tailFrames) *tailFrames = record.tailFrames;
  return S_OK;
}
