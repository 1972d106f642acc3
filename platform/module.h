// Loading modules (shared objects) with the original platform's functions.
//
// LoadLibraryW opens a module with dlopen(RTLD_NOW | RTLD_LOCAL): every
// symbol is bound at once and nothing of the module becomes visible to other
// modules.  An HMODULE is the loader's handle; the executable's is
// GetModuleHandleW(nullptr).  A module's constructors run inside
// LoadLibraryW and may hang or fault: loading is not guarded here, callers
// that load foreign modules guard the call (platform/guard.h).
//
// Failures set the last error to the original platform's numbers:
//   ERROR_MOD_NOT_FOUND (126)   the file, or a library it needs, is missing
//                               (also a file that cannot be read:
//                               ERROR_ACCESS_DENIED (5) when permission is
//                               refused)
//   ERROR_PROC_NOT_FOUND (127)  GetProcAddress found no such export; from
//                               LoadLibraryW: a symbol the module imports is
//                               defined nowhere, as the original reports a
//                               missing import
//   ERROR_BAD_EXE_FORMAT (193)  no loadable object for this machine: not
//                               ELF, another class (32-bit) or machine, not a
//                               shared object, or refused by the loader for
//                               any other reason
// The file's header is read to decide, the loader's message only where the
// header cannot tell (a missing dependency, a missing symbol).  The
// loader's own message is kept for logs (ZqGetLastLoadErrorText).
#pragma once

#include "base/types.h"

#if !defined(_WIN32)

typedef INT_PTR (*FARPROC)();

// Loads the module at `path` (UTF-16; a name without "/" is searched for as
// the system's loader does).  Loading a module already loaded answers the
// same handle and counts one more reference.  Null on failure.
ZQ_EXTERN_C HMODULE LoadLibraryW(LPCWSTR path);
// The address of an export of the module itself (not of a library it
// needs).  Null with ERROR_PROC_NOT_FOUND when it has none by that name.
ZQ_EXTERN_C FARPROC GetProcAddress(HMODULE module, LPCSTR name);
// Drops one reference; the module is unloaded with the last.  FALSE with
// ERROR_INVALID_HANDLE for a null handle.
ZQ_EXTERN_C BOOL FreeLibrary(HMODULE module);
// The full path of a loaded module (null: the executable, /proc/self/exe
// resolved).  Answers the length without the terminating zero.  When the
// buffer is too small the path is cut to size - 1 characters and terminated,
// the answer is `size` and the last error ERROR_INSUFFICIENT_BUFFER (with
// size 0 nothing is written and the answer is 0).  0 with the last error on
// failure.
ZQ_EXTERN_C DWORD GetModuleFileNameW(HMODULE module, LPWSTR buffer, DWORD size);
// The handle of a module already loaded, without a new reference; null: the
// executable.  A name is matched as the loader matches it (path or soname).
// Null with ERROR_MOD_NOT_FOUND when it is not loaded.
ZQ_EXTERN_C HMODULE GetModuleHandleW(LPCWSTR name);

#endif  // !_WIN32

// The module that holds `address` (code or data), without a new reference:
// valid while that module stays loaded.  Null with ERROR_MOD_NOT_FOUND for an
// address in no module.  With GetModuleFileNameW this gives "the folder of
// the loaded library".
HMODULE ZqGetModuleOfAddress(const void* address);

// The loader's own message for the calling thread's last failed
// LoadLibraryW (empty when there was none).  Valid until the next load on
// the thread.
const char* ZqGetLastLoadErrorText();
