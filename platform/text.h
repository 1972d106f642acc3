// 16-bit text: conversions between code pages and UTF-16, and the few wide
// string helpers of the original platform.
//
// The system's 8-bit code page (CP_ACP) is UTF-8 here, as is CP_OEMCP;
// code page 1252 (windows-1252) is offered for 8-bit file formats.  Its five
// unassigned bytes (0x81, 0x8D, 0x8F, 0x90, 0x9D) map to the control
// characters of the same value, so every byte survives a round trip.
//
// Conversions never write beyond the destination and replace what cannot be
// converted: an invalid UTF-8 sequence (overlong forms, encoded surrogates,
// values beyond U+10FFFF, stray continuation bytes, a truncated sequence)
// becomes one U+FFFD per maximal invalid part, and a lone UTF-16 surrogate
// becomes U+FFFD (or the default character in code page 1252).
#pragma once

#include <string>
#include <string_view>

#include "platform/handle.h"

#if !defined(_WIN32)

constexpr UINT CP_ACP = 0;
constexpr UINT CP_OEMCP = 1;
constexpr UINT CP_THREAD_ACP = 3;
constexpr UINT CP_UTF8 = 65001;
constexpr DWORD MB_ERR_INVALID_CHARS = 0x8;
constexpr DWORD WC_ERR_INVALID_CHARS = 0x80;
constexpr DWORD WC_NO_BEST_FIT_CHARS = 0x400;

// Converts `sourceBytes` bytes (-1: up to and including the terminating NUL)
// of `source` into UTF-16.  Answers the number of WCHARs written, or with
// `destinationSize` 0 the number needed; the terminating NUL counts when it
// was part of the input.  0 on failure with the last error:
// ERROR_INSUFFICIENT_BUFFER (the result does not fit; the destination may
// hold a part of it), ERROR_INVALID_PARAMETER (null source, `sourceBytes` 0,
// an unknown code page), ERROR_NO_UNICODE_TRANSLATION (invalid input with
// MB_ERR_INVALID_CHARS), ERROR_INVALID_FLAGS.
ZQ_EXTERN_C int MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR source, int sourceBytes,
                                    LPWSTR destination, int destinationSize);
// The reverse.  For UTF-8 `defaultChar` and `usedDefaultChar` must be null
// (ERROR_INVALID_PARAMETER otherwise, as on the original).  For code page
// 1252 a character outside the page becomes `defaultChar` ("?" when null;
// no best-fit replacements) and sets `*usedDefaultChar`.
// WC_ERR_INVALID_CHARS makes a lone surrogate fail with
// ERROR_NO_UNICODE_TRANSLATION (UTF-8 only).
ZQ_EXTERN_C int WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR source, int sourceChars,
                                    LPSTR destination, int destinationSize, LPCSTR defaultChar,
                                    BOOL* usedDefaultChar);

// NUL-terminated wide strings.  A null argument counts as empty text.
ZQ_EXTERN_C int lstrlenW(LPCWSTR text);
// Copies at most `maxChars` - 1 characters and always terminates (when
// `maxChars` > 0); answers `destination`.
ZQ_EXTERN_C LPWSTR lstrcpynW(LPWSTR destination, LPCWSTR source, int maxChars);
ZQ_EXTERN_C LPWSTR lstrcpyW(LPWSTR destination, LPCWSTR source);
ZQ_EXTERN_C LPWSTR lstrcatW(LPWSTR destination, LPCWSTR source);
// Ordinal comparison (by UTF-16 code units): < 0, 0 or > 0.
ZQ_EXTERN_C int lstrcmpW(LPCWSTR a, LPCWSTR b);
// The same after folding case (see ZqFoldCaseW).
ZQ_EXTERN_C int lstrcmpiW(LPCWSTR a, LPCWSTR b);

#endif  // !_WIN32

// Simple case mappings of one UTF-16 unit: ASCII, Latin-1, Latin
// Extended-A, Greek and Cyrillic; other characters are answered unchanged.
ZQ_EXTERN_C WCHAR ZqToLowerW(WCHAR c);
ZQ_EXTERN_C WCHAR ZqToUpperW(WCHAR c);
// Case-insensitive comparison of counted texts (lowered units, then length).
int ZqCompareNoCaseW(std::u16string_view a, std::u16string_view b);

// UTF-8 <-> UTF-16 with the replacement rules above; never fail.
std::u16string ZqUtf8ToUtf16(std::string_view text);
std::string ZqUtf16ToUtf8(std::u16string_view text);
