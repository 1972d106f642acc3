// System strings (BSTR): counted wide texts that cross component borders,
// allocated by one side and freed by the other with SysFreeString.
//
// A BSTR points at the first character; the 32-bit byte length sits in the
// four bytes before it and a terminator follows the text, so a BSTR is also
// an ordinary wide text.  A null BSTR is the empty text.
//
// Threads: any thread.  Blocks come from the kernel's allocation hook.
#pragma once

#include "base/types.h"

#if !defined(_WIN32)
typedef WCHAR* BSTR;

// A new string holding `text` (null: null).
ZQ_API BSTR SysAllocString(const WCHAR* text);
// A new string of `length` characters copied from `text` (null: zeroed).
// Null when memory runs out.
ZQ_API BSTR SysAllocStringLen(const WCHAR* text, UINT length);
// Null is fine.
ZQ_API void SysFreeString(BSTR text);
// The length in characters; 0 for null.
ZQ_API UINT SysStringLen(BSTR text);
#endif  // !_WIN32
