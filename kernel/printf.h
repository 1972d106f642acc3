// The kernel's printf: one format string serves every language, because its
// "$" forms write numbers the way the user's locale wants them, "$(name)"
// inserts a named token and one-character codes insert the locale's
// separators.
//
// The format is copied character by character, except:
//   "$$" -> "$", "%%" -> "%";
//   "$(1234.5)"  a number in digits, written with the locale's grouping and
//                decimal sign; without its ")" the text stays as it is;
//   "$(Name)"    the value of token Name (any case); an unknown token, or a
//                name without ")" within 260 characters, stays as it is;
//   "%" or "$" then a conversion form read up to one of the terminators
//                ! & * , : E G X c d e f g i o s u x z (at most 260
//                characters; without a terminator it is copied as text).
//   A "$" conversion form has the locale flag.  By terminator:
//     *  ,  :     the locale's decimal sign, list separator, time separator;
//     !           then ":" / "." / "," (consumed): the timecode separators
//                 (whole, non-drop, drop);
//     &           then ":" / "." (consumed): the music separators (measure
//                 to beat, beat to tick);
//     d i u       a 32-bit argument ("I64" or "ll": 64-bit; "I32", "l", "h":
//                 32-bit); flags "-+ #0", width and precision as in C; with
//                 the locale flag the digits are grouped;
//     x X o       the same, never grouped;
//     e E f g G   a double, as C prints it; with the locale flag "f" and
//                 plain "g" results take the locale's signs ("f" grouped);
//     z           a signed 32-bit fixed-point value: "$.2z" of 1234 prints
//                 12.34 (always the locale's decimal sign); without a
//                 precision it is "d";
//     c s         a character (int) or a wide string (WCHAR*; "h" for an
//                 8-bit UTF-8 one), with width, "-" and precision; a null
//                 string prints "(null)".
//   A conversion form that is not understood is copied as text; its
//   terminator still takes its argument.
//
// Arguments follow C's promotions: pass 32-bit integers as int/DWORD (not
// long), 64-bit ones as LONGLONG, floats as double.
//
// Threads: any thread; the print uses only the stack and the caller's
// buffer.  Token lookups and changes take the token list's lock.  A print
// before the kernel has started (or after it stopped) finds no tokens.
#pragma once

#include <cstdarg>

#include "base/status.h"
#include "base/types.h"

// The status of a bounded print whose text had to be cut.
constexpr HRESULT ZQ_E_TEXT_CUT = ZQ_E_BUFFER_TOO_SMALL;

// Unbounded prints: `dst` must hold the whole text.  Answer the length.
ZQ_API int ZqPrintF(LPWSTR dst, LPCWSTR format, ...);
ZQ_API int ZqVPrintF(LPWSTR dst, LPCWSTR format, va_list args);

// Bounded prints into `size` characters (`size` must be at least 1).  A
// piece (a character, a conversion, a token) that does not fit is left out
// whole and the print stops there.  Answer 0, or ZQ_E_TEXT_CUT when text
// was left out; `dst` is always terminated, and *written (optional)
// receives the length written.
ZQ_API HRESULT ZqCchPrintF(LPWSTR dst, UINT size, UINT* written, LPCWSTR format, ...);
ZQ_API HRESULT ZqNVPrintF(LPWSTR dst, UINT size, UINT* written, LPCWSTR format, va_list args);

// Adds token `name` with `value` (both copied), replacing one of that name
// in any case.  Answers 1, or 0 when there is no memory or no token list.
ZQ_API BOOL ZqPrintF_AddToken(LPCWSTR name, LPCWSTR value);
// Deletes token `name` (any case) and shrinks the list.  1 when found, else 0.
ZQ_API BOOL ZqPrintF_DeleteToken(LPCWSTR name);

// The token list's life, run by ZqKernel_EarlyInitialize and
// ZqKernel_LateTerminate only.  Create answers 1 when the list exists.
ZQ_API BOOL ZqPrintF_CreateTokenList();
ZQ_API void ZqPrintF_DestroyTokenList();

// Numbered inserts into `buffer` of `size` characters: "%1" to "%99" take
// the arguments by number, as a wide string unless a form follows between
// "!" ("%2!d!", "%1!08x!", "%3!hs!"; the forms of the print above, without
// the "$" ones).  "%%" "%." "%!" give the character, "%n" a line break,
// "%r" a carriage return, "%t" a tab, "%b" and "% " a blank, "%0" ends the
// text.  Every argument is pointer-sized (a string pointer, or an integer
// passed as INT_PTR); inserts may repeat and come in any order.  Answers the
// length, or 0 when the text did not fit (`buffer` then holds what fitted,
// terminated).
ZQ_API int ZqComposeStr(LPWSTR buffer, UINT size, LPCWSTR format, ...);
