// The process environment with the original platform's functions.
//
// Names and values are 16-bit text, kept as UTF-8 in the process's
// environment, where foreign code (plug-ins reading their switches with
// getenv) and child processes see them.  Names are compared exactly, as the
// system's environment does (the original folds case; nothing of ours relies
// on that).
//
// Changing the environment while another thread reads it is not safe: our
// own calls take one lock, but foreign code reads the environment without
// it.  Change it before starting threads that may read it, or hand a child
// its switches some other way.
#pragma once

#include "platform/handle.h"

#if !defined(_WIN32)

// The variable asked for does not exist (same value as the original).
constexpr DWORD ERROR_ENVVAR_NOT_FOUND = 203;

// Copies the value of `name` into `buffer` of `size` characters.  Answers
// its length without the terminating zero when it fits (size > length);
// otherwise the size needed, terminating zero included, and leaves the
// buffer alone (`buffer` may then be null with `size` 0).  0 with
// ERROR_ENVVAR_NOT_FOUND when there is no such variable, 0 with the last
// error ERROR_SUCCESS for a variable whose value is empty, 0 with
// ERROR_INVALID_PARAMETER for a null or empty name or a null buffer with a
// non-zero size.
ZQ_EXTERN_C DWORD GetEnvironmentVariableW(LPCWSTR name, LPWSTR buffer, DWORD size);
// Sets `name` to `value`; a null value removes the variable (removing one
// that does not exist succeeds).  FALSE with ERROR_INVALID_PARAMETER for a
// null or empty name or a name with "=" in it,
// ERROR_NOT_ENOUGH_MEMORY when the environment cannot grow.
ZQ_EXTERN_C BOOL SetEnvironmentVariableW(LPCWSTR name, LPCWSTR value);

#endif  // !_WIN32
