// IZqTranslationInfo: how a host tells the library's objects (a filter, the
// mapper) the language of its user interface, so that every text the library
// shows follows it.
#pragma once

#include "base/types.h"
#include "kernel/com/unknown.h"

typedef DWORD LCID;

class IZqTranslationInfo : public IUnknown {
 public:
  using Base = IUnknown;
  static constexpr GUID kIid = ZqGuid("{9E43494C-2217-425F-B36A-762C9D4EE58A}");
  // The kernel's language follows `language`; E_FAIL when it cannot.
  virtual HRESULT STDMETHODCALLTYPE SetLanguage(LCID language) = 0;
};

inline constexpr GUID IID_IZqTranslationInfo = IZqTranslationInfo::kIid;
