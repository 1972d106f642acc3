// How the class factory builds a filter without knowing the filter's class:
// the factory (discovery/) calls this function, which the filter defines.
#pragma once

#include "kernel/com/unknown.h"
#include "base/types.h"

// Builds one object for a factory.  `status` starts as S_OK and reports the
// construction; the object (if any) is handed out with no reference taken
// (framework objects count from 0), or destroyed through `Destroy`.
struct ZqVstBuiltObject {
  IUnknown* unknown = nullptr;  // the object's own (non-delegating) unknown
  void (*destroy)(IUnknown* unknown) = nullptr;
};

// Filter of one plug-in (zqvstwrap.cpp).  `recordFlags` are the ZQVST_VMF_*
// flags of the plug-in's record (whether latency is compensated).
ZqVstBuiltObject ZqVstBuildFilter(IUnknown* outer, REFCLSID clsid, const WCHAR* path, const WCHAR* name,
                                  DWORD recordFlags, HRESULT* status);

