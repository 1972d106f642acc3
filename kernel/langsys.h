// The language family's view of the system's language settings, and its
// process-wide state.  Internal to the kernel.
//
// The languages come from the environment as a Linux user sets them, turned
// into LCIDs through ICU:
//   - the user's UI language: the first entry of LANGUAGE, else LC_ALL,
//     LC_MESSAGES, LANG;
//   - the user's locale (formats): LC_ALL, else LC_NUMERIC, LANG;
//   - the system's locale: LANG.
// "C", "POSIX", an empty or an unknown name reads as US English (0x409).
#pragma once

#include "base/types.h"
#include "kernel/lang.h"

ZQ_EXTERN_C UINT GetUserDefaultUILanguage();
ZQ_EXTERN_C UINT GetUserDefaultLCID();
ZQ_EXTERN_C UINT GetSystemDefaultLCID();
// The LCID of a locale name such as "de_DE.UTF-8@euro" or "pt-BR"; 0x409
// for "C", "POSIX", empty or unknown names.
UINT ZqLang_LCIDFromLocaleName(const char* name);

// The calling thread's locale and UI language (0: the user's defaults).
ZQ_EXTERN_C BOOL SetThreadLocale(UINT lcid);
ZQ_EXTERN_C UINT GetThreadLocale();
ZQ_EXTERN_C WORD SetThreadUILanguage(WORD language);
// The default layout of windows the process creates: 1 mirrored (right to
// left), 0 left to right.
ZQ_EXTERN_C BOOL SetProcessDefaultLayout(DWORD layout);
ZQ_EXTERN_C BOOL GetProcessDefaultLayout(DWORD* layout);

// The language module of `instance`: "<path of instance without its last
// extension>.LNG" when it loads, else `instance`.
HMODULE ZqLang_LoadLanguageModule(HMODULE instance);

// The kernel's own handle (set by ZqKernel_EarlyInitialize).
void ZqLang_SetKernelLang(HZQLANG handle);
