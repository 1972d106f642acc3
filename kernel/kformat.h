// The kernel's internal printing of wide formats into bounded wide buffers,
// for the families that compose messages and names (error handler, message
// boxes, metrics, paths).
//
// A format is read as CLog::Write reads it (%s a wide text, %S an 8-bit
// text, %c a wide character, the numeric conversions of printf).  The result
// is cut at a character boundary to `size` - 1 characters and always
// terminated when `size` > 0.
//
// Threads: any thread; only the arguments are touched.
#pragma once

#include <cstdarg>

#include "base/types.h"

// Answers the length written.
int ZqKernelFormatV(WCHAR* dst, int size, const WCHAR* format, va_list args);
int ZqKernelFormat(WCHAR* dst, int size, const WCHAR* format, ...);

// Bounded copy: at most `size` - 1 characters of `src` (null: empty) and a
// terminator.  Answers the length written; 0 and nothing written for a
// `size` below 1.
int ZqKernelCopy(WCHAR* dst, int size, const WCHAR* src);
// 1 when `format` holds a "%" or "$", i.e. must be printed rather than used
// as it is.
bool ZqKernelIsFormat(const WCHAR* format);
