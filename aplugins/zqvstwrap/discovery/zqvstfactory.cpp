#include "aplugins/zqvstwrap/discovery/zqvstfactory.h"

#include <cstring>
#include <mutex>
#include <vector>

#include "aplugins/zqvstwrap/discovery/zqvstcache.h"
#include "aplugins/zqvstwrap/discovery/zqvstmapper.h"
#include "platform/text.h"

namespace {

// Latency and tail of the plug-ins a test load opened, which the mapping
// record has no room for.
struct Timing {
  CLSID clsid;
  LONG latency;
  LONG tail;
};
std::mutex g_timingLock;
std::vector<Timing> g_timings;

// Copies at most `size` - 1 characters and terminates, as the fixed buffers
// of the records want.
void CopyTruncating(WCHAR* dst, const WCHAR* src, int size) { lstrcpynW(dst, src ? src : u"", size); }

}  // namespace

// --- Records ------------------------------------------------------------------

HRESULT ZqVstRecords_Add(const ZqVstPluginRecord& record) {
  VstMapping m{};
  m.Clsid = record.clsid;
  CopyTruncating(m.Path, record.path, 260);
  CopyTruncating(m.Name, record.name, 64);
  m.Flags = record.flags;
  m.State = record.state;
  m.Properties.uniqueID = static_cast<LONG>(record.clsid.Data1);
  const HRESULT hr = ZqVstCache_EnterMapping(m);
  if (SUCCEEDED(hr)) ZqVstRecords_SetTiming(record.clsid, record.latencyFrames, record.tailFrames);
  return hr;
}

HRESULT ZqVstRecords_Find(REFCLSID clsid, ZqVstPluginRecord* out) {
  tZQLIST* list = *ZqVstCache_Mappings();
  const INT index = ZqVstFindMapping(list, clsid);
  if (index < 0) return ZQ_E_NOT_FOUND;
  if (!out) return S_OK;
  const VstMapping* m = ZqVstMappingAt(list, index);
  std::memset(out, 0, sizeof(*out));
  out->clsid = m->Clsid;
  out->editorPageClsid = m->EditorPageClsid;
  out->paramsPageClsid = m->ParamsPageClsid;
  CopyTruncating(out->path, m->Path, 260);
  CopyTruncating(out->name, m->Name, 64);
  out->flags = m->Flags;
  out->state = m->State;
  out->latencyFrames = m->Properties.initialDelay;
  std::lock_guard<std::mutex> hold(g_timingLock);
  for (const Timing& t : g_timings)
    if (IsEqualGUID(t.clsid, m->Clsid)) {
      out->latencyFrames = t.latency;
      out->tailFrames = t.tail;
    }
  return S_OK;
}

HRESULT ZqVstRecords_SetState(REFCLSID clsid, DWORD bits) {
  if (bits & VMS_LOADED) return ZqVstCache_SetLoaded(clsid);
  tZQLIST* list = *ZqVstCache_Mappings();
  const INT index = ZqVstFindMapping(list, clsid);
  if (index < 0) return ZQ_E_NOT_FOUND;
  ZqVstMappingAt(list, index)->State |= bits;
  return S_OK;
}

HRESULT ZqVstRecords_SetTiming(REFCLSID clsid, LONG latencyFrames, LONG tailFrames) {
  std::lock_guard<std::mutex> hold(g_timingLock);
  for (Timing& t : g_timings)
    if (IsEqualGUID(t.clsid, clsid)) {
      t.latency = latencyFrames;
      t.tail = tailFrames;
      return S_OK;
    }
  g_timings.push_back({clsid, latencyFrames, tailFrames});
  return S_OK;
}

void ZqVstRecords_Destroy() {
  ZqVstCache_Destroy();
  std::lock_guard<std::mutex> hold(g_timingLock);
  g_timings.clear();
}

bool ZqVstRecords_Exist() { return *ZqVstCache_Mappings() != nullptr; }

// --- CZqVstFactory --------------------------------------------------------------

CZqVstFactory::CZqVstFactory(REFCLSID requested) { m_requested = requested; }

HRESULT CZqVstFactory::Initialize() {
  if (!IsEqualGUID(m_requested, CLSID_ZqVstWrapFilterMapper)) {
    const tZQLIST* list = *ZqVstCache_Mappings();
    const INT index = ZqVstFindMapping(list, m_requested);
    if (index < 0) return CLASS_E_CLASSNOTAVAILABLE;
    const VstMapping* m = ZqVstMappingAt(list, index);
    m_filter = m->Clsid;
    m_editorPage = m->EditorPageClsid;
    m_paramsPage = m->ParamsPageClsid;
    CopyTruncating(m_name, m->Name, 64);
    CopyTruncating(m_path, m->Path, 260);
    m_flags = m->Flags;
  }
  m_ready = TRUE;
  return S_OK;
}

// A filter made for a mapping marks it as loaded in this process, so that a
// later write of the cache keeps it while the filter lives, and tells a
// host cache.
ZqVstBuiltObject CZqVstFactory::BuildFilter(IUnknown* outer, HRESULT* status) {
  ZqVstBuiltObject built = ZqVstBuildFilter(outer, m_filter, m_path, m_name, m_flags, status);
  if (built.unknown) ZqVstCache_SetLoaded(m_filter);
  return built;
}

HRESULT CZqVstFactory::CreateInstance(IUnknown* outer, REFIID riid, void** object) {
  if (!m_ready) return E_UNEXPECTED;
  if (object == nullptr) return E_POINTER;
  *object = nullptr;
  if (outer != nullptr && !IsEqualGUID(riid, IID_IUnknown)) return CLASS_E_NOAGGREGATION;

  HRESULT status = S_OK;
  ZqVstBuiltObject built;
  if (ZqVstRoleOf(m_requested) == ZQVSTROLE_FILTER && IsEqualGUID(m_requested, m_filter)) {
    built = BuildFilter(outer, &status);
    // A plug-in that faulted while it was being opened often opens the
    // second time (it had state of its own to set up); one retry, fresh.
    if (status == ZQ_E_EXCEPTION) {
      if (built.unknown) built.destroy(built.unknown);
      status = S_OK;
      built = BuildFilter(outer, &status);
    }
  } else if (IsEqualGUID(m_requested, CLSID_ZqVstWrapFilterMapper)) {
    return ZqVstCreateFilterMapper(outer, riid, object);
  } else if (IsEqualGUID(m_requested, m_editorPage) || IsEqualGUID(m_requested, m_paramsPage)) {
    // The pages are made by their own part of the library, which this
    // build does not contain yet.
    status = E_NOTIMPL;
  } else {
    return E_UNEXPECTED;
  }

  if (built.unknown == nullptr) return FAILED(status) ? status : E_OUTOFMEMORY;
  if (FAILED(status)) {
    built.destroy(built.unknown);
    return status;
  }
  built.unknown->AddRef();
  HRESULT hr = built.unknown->QueryInterface(riid, object);
  built.unknown->Release();
  return hr;
}

HRESULT CZqVstFactory::LockServer(BOOL lock) {
  ZqVstWrap_LockServer(lock);
  return S_OK;
}
