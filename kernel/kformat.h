// The kernel's internal printing of wide formats into bounded wide buffers,
// for the families that compose messages and names (error handler, message
// boxes, metrics, paths).
//
// A format is read as ZqPrintF reads it (kernel/printf.h: the "$" forms in
// the locale's manner, "$(Name)" tokens, %s a wide text).  As in every
// bounded print, a piece that does not fit is left out whole; the result is
// always terminated when `size` > 0.
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
