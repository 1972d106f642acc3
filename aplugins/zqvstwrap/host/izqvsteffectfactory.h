// IZqVstEffectFactory: makes effects and looks at modules for the plug-in
// cache, in this process or in the companion server.
//
// The class object is its own instance: CreateInstance answers the
// factory's own QueryInterface, and that is how a client reaches
// ProbeEffect and CreateEffect.  A factory of the server is a proxy whose
// calls cross to the server; they answer ZQ_E_RPC_CALL_FAILED (0x800706BA)
// once the server has gone.
//
// Threads: any.  The factory has no state of its own beyond its count; the
// process-wide counts (locks, effects) are atomic.
#pragma once

#include "aplugins/zqvstwrap/izqvsteffect.h"
#include "kernel/com/unknown.h"

class IZqVstEffectFactory : public IClassFactory {
 public:
  using Base = IClassFactory;
  static constexpr GUID kIid = ZqGuid("{9BD3160E-0464-485E-A672-D806BEB00E29}");

  // Loads `path` for plug-in `id` under a time limit in ms (0 or INFINITE:
  // none) and reads its names (64 characters each; any may be null) and
  // its info (may be null).  E_INVALIDARG for a refused module (the ASPI
  // layer "wnaspi32.dll", whatever its folder and case) without loading it;
  // ZQ_E_CANCELLED when the limit passed; otherwise the result of the load,
  // so ZQ_S_IS_SHELL with empty names for a shell asked with id 0.
  virtual HRESULT STDMETHODCALLTYPE ProbeEffect(const WCHAR* path, LONG id, WCHAR* name, WCHAR* vendor,
                                                WCHAR* product, VstEffectInfo* info, DWORD timeLimitMs) = 0;
  // Makes an effect for `path` and `id` and answers its interface `riid`.
  // The result of the load; S_FALSE (out word not written) when the object
  // could not be allocated.  A shell's ZQ_S_IS_SHELL comes with a live
  // interface.
  virtual HRESULT STDMETHODCALLTYPE CreateEffect(const WCHAR* path, LONG id, REFIID riid, void** object) = 0;
};

inline constexpr GUID IID_IZqVstEffectFactory = IZqVstEffectFactory::kIid;
