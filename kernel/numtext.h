// Numbers as text and back: integers and floats with or without the user's
// grouping and decimal sign, numbers of digits laid out for the locale,
// labelled values, byte sizes, four-character codes and colours; and the
// parsers that read them back, each reporting where it stopped.
//
// Locale: every separator comes from the kernel's locale record
// (kernel/lang.h), read at start and on ZqLang_GetInternationals(null, 0);
// never from the process's C locale.  `group` false means plain digits with
// "." as the decimal point.
//
// Text is 16-bit; sizes are in characters and count the terminator.  Every
// function may be called from any thread.  Unbounded forms need the room
// stated for them.
#pragma once

#include "base/types.h"

typedef DWORD COLORREF;

// ---------------------------------------------------------------------------
// Numbers to text.
// ---------------------------------------------------------------------------

// Decimal text of `value`, with the locale's grouping when `group` is set.
// Unbounded: 64 characters are always enough.  Answers the length.
ZQ_API int ZqLongToText(LONG value, LPWSTR dst, BOOL group);
ZQ_API int ZqDWordToText(DWORD value, LPWSTR dst, BOOL group);
ZQ_API int ZqLongLongToText(LONGLONG value, LPWSTR dst, BOOL group);
ZQ_API int ZqDWordLongToText(ULONGLONG value, LPWSTR dst, BOOL group);
// The same into `size` characters.  A `size` below 2, or a text that does
// not fit, answers 0 (and leaves `dst` empty when `size` is at least 1).
ZQ_API int ZqLongToTextN(LONG value, LPWSTR dst, int size, BOOL group);
ZQ_API int ZqDWordToTextN(DWORD value, LPWSTR dst, int size, BOOL group);
ZQ_API int ZqLongLongToTextN(LONGLONG value, LPWSTR dst, int size, BOOL group);
ZQ_API int ZqDWordLongToTextN(ULONGLONG value, LPWSTR dst, int size, BOOL group);

// `value` with `decimals` decimals (held to 0..9), rounded half away from
// zero on the single-precision step of the last decimal, never "-0".  A
// magnitude beyond 2^64 and NaN print as the largest whole part and as 0.
// Unbounded: 64 characters are enough.  Answers the length.
ZQ_API int ZqDoubleToText(LPWSTR dst, double value, int decimals, BOOL group);
// The same into `size` characters; 0 (and an empty text) when it does not fit.
ZQ_API int ZqDoubleToTextN(LPWSTR dst, int size, double value, int decimals, BOOL group);

// A number in digits ("-1234.5") laid out for the locale.  Characters before
// the first significant one (a "-", ".", a digit 1 to 9 or a "0" followed by
// ".") are copied as they stand, so leading zeros and blanks stay; blanks
// behind the number are kept too.  A rest that is not a number ("1,234",
// "12ab") is copied unchanged.  The number is rounded half away from zero to
// the decimals shown; a result that rounds to zero carries no sign.  Answers
// the length, or 0 and an empty `dst` when it does not fit in `size`.
//   ZqFormatNumber:             grouped, no decimals ("1234.6" -> "1,235");
ZQ_API int ZqFormatNumber(LPCWSTR digits, LPWSTR dst, int size);
//   ZqFormatDecimalNumber:      the locale's decimal sign, no grouping;
ZQ_API int ZqFormatDecimalNumber(LPCWSTR digits, LPWSTR dst, int size);
//   ZqFormatGroupDecimalNumber: both, with `decimals` decimals (-1: as many
//                               as the text has).
ZQ_API int ZqFormatGroupDecimalNumber(LPCWSTR digits, LPWSTR dst, int size, int decimals);

// Short display texts of a value, in the kernel's temporary ring (24
// characters; valid until the ring comes round).  A non-zero `minimum` with
// `value` at or below it gives the table text "-Inf.".  `decimals` (held to
// 9) of 1 to 9 prints the value with that many decimals in the locale's
// form; 0 or less prints it as a whole number (the float form rounds).  The
// fixed form's `value` is scaled: 1234 with 1 decimal is 123.4.  `label`
// (plain text, table entry or resource number) is appended as far as it
// fits.  Without a ring the answer is the table text "Err.".
ZQ_API LPCWSTR ZqGetLabeledStringFixed(LONG value, int decimals, LONG minimum, LPCWSTR label);
ZQ_API LPCWSTR ZqGetLabeledStringFloat(double value, int decimals, double minimum, LPCWSTR label);
// The same with " dB" as the label when `withLabel` is set.
ZQ_API LPCWSTR ZqGetdBStringFixed(LONG value, int decimals, LONG minimum, BOOL withLabel);
ZQ_API LPCWSTR ZqGetdBStringFloat(double value, int decimals, double minimum, BOOL withLabel);

// A size in bytes for people: below 1024 the plain number; below 0xFA000 in
// KB (at least 0.01); below 0x3D090000 in MB (divided by 1,024,000); above
// in GB (divided by 1,024,000,000), with two decimals in the locale's form.
// The thresholds and divisors mix 1000 and 1024 on purpose: stored texts and
// users' expectations were made with them.  "12.50KB", or with a space
// "12.50 KB"; ZqGetByteSizeText2 also says "12 bytes".  The units are table
// texts.  Unbounded: 64 characters are enough.  Answers the length.
ZQ_API int ZqGetByteSizeText(ULONGLONG size, LPWSTR dst);
ZQ_API int ZqGetByteSizeTextWithSpace(ULONGLONG size, LPWSTR dst);
ZQ_API int ZqGetByteSizeText2(ULONGLONG size, LPWSTR dst);

// The four characters of a code, lowest byte first ("RIFF"); a byte outside
// 32..126 shows as ".".  `dst` takes 5 characters.  Answers `dst`.
ZQ_API LPWSTR ZqFourCCToString(DWORD code, LPWSTR dst);

// A colour (red in the low byte) as text: form 0 "RGB(16,32,48)", form 1
// "#102030", form 2 "0x00302010".  A value of 0x1000000 or above always
// takes form 2.  Answers 0, or 0x8004E03C when the text was cut (the buffer
// is terminated); *length (optional) receives the length written.
ZQ_API HRESULT ZqColorrefToTextEx(LPWSTR dst, int size, int* length, COLORREF colour, int form);
// The same; answers the length.
ZQ_API int ZqColorrefToText(LPWSTR dst, int size, COLORREF colour, int form);

// ---------------------------------------------------------------------------
// Text to numbers.
//
// The decimal readers clean the text first: blanks are skipped, a leading
// "-" is taken, then the text is read while it shows digits, the locale's
// group separator (skipped) or its decimal sign (read as "."); the plain
// form of the float reader takes "," and "." instead.  *end (optional)
// receives the first character not read.  Only the first 63 characters of
// the number are kept; the rest is read over.
//
// The Ex forms: when the value is 0 and the text at *end is neither its end
// nor a blank, there was no number and `fallback` is taken; the result is
// then held to `minimum`..`maximum`.  64-bit limits come as two words, low
// then high.
// ---------------------------------------------------------------------------

// Leading digits up to the decimal sign; no digit first (a "-" too) gives
// 0; too large a number gives the largest value.
ZQ_API DWORD ZqTextToDWordToken(LPCWSTR text, LPCWSTR* end);
ZQ_API DWORD ZqTextToDWordTokenEx(LPCWSTR text, DWORD fallback, DWORD minimum, DWORD maximum, LPCWSTR* end);
ZQ_API ULONGLONG ZqTextToDWordLongToken(LPCWSTR text, LPCWSTR* end);
ZQ_API ULONGLONG ZqTextToDWordLongTokenEx(LPCWSTR text, DWORD fallbackLow, DWORD fallbackHigh,
                                          DWORD minimumLow, DWORD minimumHigh, DWORD maximumLow,
                                          DWORD maximumHigh, LPCWSTR* end);
// Signed, held to the type's range; the fraction is dropped.
ZQ_API LONG ZqTextToLongToken(LPCWSTR text, LPCWSTR* end);
ZQ_API LONG ZqTextToLongTokenEx(LPCWSTR text, LONG fallback, LONG minimum, LONG maximum, LPCWSTR* end);
ZQ_API LONGLONG ZqTextToLongLongToken(LPCWSTR text, LPCWSTR* end);
// Reads through ZqTextToLongToken and takes 32-bit limits: callers have
// always got a 32-bit value here, sign-extended, and rely on it.
ZQ_API LONGLONG ZqTextToLongLongTokenEx(LPCWSTR text, LONG fallback, LONG minimum, LONG maximum,
                                        LPCWSTR* end);
// Hex digits after blanks and an optional "0x" (any case); digits beyond the
// type's width push the first ones out.
ZQ_API DWORD ZqHexToDWordToken(LPCWSTR text, LPCWSTR* end);
ZQ_API DWORD ZqHexToDWordTokenEx(LPCWSTR text, DWORD fallback, DWORD minimum, DWORD maximum, LPCWSTR* end);
ZQ_API ULONGLONG ZqHexToDWordLongToken(LPCWSTR text, LPCWSTR* end);
// Reads through ZqHexToDWordToken with 32-bit limits, zero-extended: kept
// for its callers.
ZQ_API ULONGLONG ZqHexToDWordLongTokenEx(LPCWSTR text, DWORD fallback, DWORD minimum, DWORD maximum,
                                         LPCWSTR* end);
// A float; `locale` chooses the locale's signs over "," and ".".
ZQ_API double ZqTextToDoubleToken(LPCWSTR text, LPCWSTR* end, BOOL locale);
ZQ_API double ZqTextToDoubleTokenEx(LPCWSTR text, double fallback, double minimum, double maximum,
                                    LPCWSTR* end, BOOL locale);

// Failure value of the colour reader.
constexpr COLORREF ZQ_COLORREF_INVALID = 0xF000F0;
// A colour, after blanks, as "RGB(r,g,b)" (any case, blanks allowed, each
// at most 255), "#rrggbb" (at most 6 hex digits) or a number ("0x..." hex,
// else decimal) taken as it is.  Anything else gives ZQ_COLORREF_INVALID.
ZQ_API COLORREF ZqTextToColorrefToken(LPCWSTR text, LPCWSTR* end);
// The same; only a result of 0xFFFFFFFF is replaced by `fallback`.
ZQ_API COLORREF ZqTextToColorrefTokenEx(LPCWSTR text, COLORREF fallback, LPCWSTR* end);
