#include "aplugins/zqvstwrap/discovery/zqvstfactory.h"

#include <atomic>
#include <cstring>
#include <vector>

#include "platform/sync.h"
#include "platform/text.h"

namespace {


// The record list.  It is the mapper's; until the mapper exists a test or a
// host fills it through ZqVstRecords_Add.  Null means "no list", which is
// different from an empty list only in name: neither resolves anything.
struct RecordList {
  CRITICAL_SECTION lock;
  std::vector<ZqVstPluginRecord> records;
  RecordList() { InitializeCriticalSection(&lock); }
  ~RecordList() { DeleteCriticalSection(&lock); }
};
std::atomic<RecordList*> g_records{nullptr};

RecordList* EnsureList() {
  RecordList* list = g_records.load();
  if (list) return list;
  RecordList* made = new (std::nothrow) RecordList();
  if (!made) return nullptr;
  if (!g_records.compare_exchange_strong(list, made)) {
    delete made;
    return list;
  }
  return made;
}

// Copies at most `size` - 1 characters and terminates, as the fixed buffers
// of the records want.
void CopyTruncating(WCHAR* dst, const WCHAR* src, int size) { lstrcpynW(dst, src ? src : u"", size); }

}  // namespace

// --- Records ------------------------------------------------------------------

HRESULT ZqVstRecords_Add(const ZqVstPluginRecord& record) {
  if (ZqVstRoleOf(record.clsid) != ZQVSTROLE_FILTER) return E_INVALIDARG;
  RecordList* list = EnsureList();
  if (!list) return E_OUTOFMEMORY;
  ZqVstPluginRecord copy = record;
  ZqVstMakeRoleClsids(copy.clsid, nullptr, &copy.editorPageClsid, &copy.paramsPageClsid);
  copy.path[259] = 0;
  copy.name[63] = 0;
  EnterCriticalSection(&list->lock);
  bool replaced = false;
  for (auto& r : list->records) {
    if (IsEqualGUID(r.clsid, copy.clsid)) {
      r = copy;
      replaced = true;
      break;
    }
  }
  if (!replaced) list->records.push_back(copy);
  LeaveCriticalSection(&list->lock);
  return S_OK;
}

HRESULT ZqVstRecords_Find(REFCLSID clsid, ZqVstPluginRecord* out) {
  RecordList* list = g_records.load();
  if (!list || ZqVstRoleOf(clsid) == ZQVSTROLE_NONE) return ZQ_E_NOT_FOUND;
  HRESULT hr = ZQ_E_NOT_FOUND;
  EnterCriticalSection(&list->lock);
  for (const auto& r : list->records) {
    if (IsEqualGUID(r.clsid, clsid) || IsEqualGUID(r.editorPageClsid, clsid) ||
        IsEqualGUID(r.paramsPageClsid, clsid)) {
      if (out) *out = r;
      hr = S_OK;
      break;
    }
  }
  LeaveCriticalSection(&list->lock);
  return hr;
}

HRESULT ZqVstRecords_SetState(REFCLSID clsid, DWORD bits) {
  RecordList* list = g_records.load();
  if (!list || ZqVstRoleOf(clsid) == ZQVSTROLE_NONE) return ZQ_E_NOT_FOUND;
  HRESULT hr = ZQ_E_NOT_FOUND;
  EnterCriticalSection(&list->lock);
  for (auto& r : list->records) {
    if (IsEqualGUID(r.clsid, clsid) || IsEqualGUID(r.editorPageClsid, clsid) ||
        IsEqualGUID(r.paramsPageClsid, clsid)) {
      r.state |= bits;
      hr = S_OK;
      break;
    }
  }
  LeaveCriticalSection(&list->lock);
  return hr;
}

void ZqVstRecords_Destroy() { delete g_records.exchange(nullptr); }

bool ZqVstRecords_Exist() { return g_records.load() != nullptr; }

// --- CZqVstFactory --------------------------------------------------------------

CZqVstFactory::CZqVstFactory(REFCLSID requested) { m_requested = requested; }

HRESULT CZqVstFactory::Initialize() {
  if (!IsEqualGUID(m_requested, CLSID_ZqVstWrapFilterMapper)) {
    ZqVstPluginRecord record;
    if (FAILED(ZqVstRecords_Find(m_requested, &record))) return CLASS_E_CLASSNOTAVAILABLE;
    m_filter = record.clsid;
    m_editorPage = record.editorPageClsid;
    m_paramsPage = record.paramsPageClsid;
    CopyTruncating(m_name, record.name, 64);
    CopyTruncating(m_path, record.path, 260);
    m_flags = record.flags;
  }
  m_ready = TRUE;
  return S_OK;
}

// A filter made for a record marks the record as loaded in this process, so
// that the mapper can show it as such.
ZqVstBuiltObject CZqVstFactory::BuildFilter(IUnknown* outer, HRESULT* status) {
  ZqVstBuiltObject built = ZqVstBuildFilter(outer, m_filter, m_path, m_name, m_flags, status);
  if (built.unknown) ZqVstRecords_SetState(m_filter, ZQVST_VMS_LOADED);
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
  } else if (IsEqualGUID(m_requested, m_editorPage) || IsEqualGUID(m_requested, m_paramsPage) ||
             IsEqualGUID(m_requested, CLSID_ZqVstWrapFilterMapper)) {
    // The pages and the mapper are made by their own parts of the library,
    // which this build does not contain yet.
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
