// Clocks and calendar times.
//
// FILETIME (base/types.h) counts 100-nanosecond units since 1 January
// 1601, UTC.  SYSTEMTIME is a broken-down calendar time; its day of the week
// counts from Sunday = 0.
#pragma once

#include "platform/handle.h"

#if !defined(_WIN32)

struct SYSTEMTIME {
  WORD wYear;
  WORD wMonth;  // 1 to 12
  WORD wDayOfWeek;
  WORD wDay;    // 1 to 31
  WORD wHour;
  WORD wMinute;
  WORD wSecond;
  WORD wMilliseconds;
};

// Milliseconds of a monotonic clock (not affected by changes of the
// calendar time); the 32-bit form wraps after 49.7 days.
ZQ_EXTERN_C DWORD GetTickCount();
ZQ_EXTERN_C ULONGLONG GetTickCount64();

// A monotonic counter of 10 MHz (the frequency is constant while the
// process lives).  Both always succeed.
ZQ_EXTERN_C BOOL QueryPerformanceCounter(LARGE_INTEGER* count);
ZQ_EXTERN_C BOOL QueryPerformanceFrequency(LARGE_INTEGER* frequency);

ZQ_EXTERN_C void GetSystemTime(SYSTEMTIME* time);     // UTC
ZQ_EXTERN_C void GetLocalTime(SYSTEMTIME* time);      // the process's time zone
ZQ_EXTERN_C void GetSystemTimeAsFileTime(FILETIME* time);

// Conversions between the two forms (years 1601 to 30827).  FALSE with
// ERROR_INVALID_PARAMETER for a field out of range; the day of the week is
// ignored by SystemTimeToFileTime and filled by FileTimeToSystemTime.
ZQ_EXTERN_C BOOL FileTimeToSystemTime(const FILETIME* fileTime, SYSTEMTIME* systemTime);
ZQ_EXTERN_C BOOL SystemTimeToFileTime(const SYSTEMTIME* systemTime, FILETIME* fileTime);
// UTC to the process's time zone and back (with the offset in force at
// that moment).
ZQ_EXTERN_C BOOL FileTimeToLocalFileTime(const FILETIME* utc, FILETIME* local);
ZQ_EXTERN_C BOOL LocalFileTimeToFileTime(const FILETIME* local, FILETIME* utc);
// -1, 0 or 1.
ZQ_EXTERN_C LONG CompareFileTime(const FILETIME* a, const FILETIME* b);

#endif  // !_WIN32
