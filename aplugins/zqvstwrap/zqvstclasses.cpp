#include "aplugins/zqvstwrap/zqvstclasses.h"

#include <atomic>
#include <cstring>

namespace {

std::atomic<LONG> g_objects{0};
std::atomic<LONG> g_locks{0};

bool TailIs(REFCLSID clsid, const BYTE (&tag)[6]) { return std::memcmp(&clsid.Data4[2], tag, 6) == 0; }

}  // namespace

// --- Identifiers --------------------------------------------------------------

ZQVSTROLE ZqVstRoleOf(REFCLSID clsid) {
  if (TailIs(clsid, kZqVstFilterTag)) return ZQVSTROLE_FILTER;
  if (TailIs(clsid, kZqVstEditorPageTag)) return ZQVSTROLE_EDITOR_PAGE;
  if (TailIs(clsid, kZqVstParamsPageTag)) return ZQVSTROLE_PARAMS_PAGE;
  return ZQVSTROLE_NONE;
}

void ZqVstMakeRoleClsids(REFCLSID any, CLSID* filter, CLSID* editorPage, CLSID* paramsPage) {
  const CLSID base = any;  // `any` may be one of the outputs
  auto make = [&base](CLSID* out, const BYTE (&tag)[6]) {
    if (!out) return;
    *out = base;
    std::memcpy(&out->Data4[2], tag, 6);
  };
  make(filter, kZqVstFilterTag);
  make(editorPage, kZqVstEditorPageTag);
  make(paramsPage, kZqVstParamsPageTag);
}

// --- Counters -----------------------------------------------------------------

void ZqVstWrap_ObjectCreated() { g_objects.fetch_add(1); }
void ZqVstWrap_ObjectDestroyed() { g_objects.fetch_sub(1); }
LONG ZqVstWrap_ObjectCount() { return g_objects.load(); }
void ZqVstWrap_LockServer(BOOL lock) {
  if (lock)
    g_locks.fetch_add(1);
  else
    g_locks.fetch_sub(1);
}
LONG ZqVstWrap_LockCount() { return g_locks.load(); }

