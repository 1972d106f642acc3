// Numbers to text and back.
#include "kernel/numtext.h"

#include <charconv>
#include <climits>
#include <cmath>
#include <cstring>

#include "base/status.h"
#include "kernel/lang.h"
#include "kernel/langtable.h"
#include "kernel/printf.h"
#include "kernel/printlocale.h"
#include "platform/text.h"

namespace {

bool IsSpace(WCHAR c) { return c == u' ' || (c >= 9 && c <= 13); }
bool IsDigit(WCHAR c) { return c >= u'0' && c <= u'9'; }
int HexValue(WCHAR c) {
  if (IsDigit(c)) return c - u'0';
  if (c >= u'a' && c <= u'f') return c - u'a' + 10;
  if (c >= u'A' && c <= u'F') return c - u'A' + 10;
  return -1;
}

// Copies `n` characters and a terminator into `dst` of `size`; 0 and an
// empty text when they do not fit.
int Emit(const WCHAR* text, int n, LPWSTR dst, int size) {
  if (!dst || size < 1) return 0;
  if (n > size - 1) {
    dst[0] = 0;
    return 0;
  }
  std::memcpy(dst, text, static_cast<size_t>(n) * sizeof(WCHAR));
  dst[n] = 0;
  return n;
}

// Decimal digits of a magnitude, written from the end of a stack buffer,
// grouped by the locale when asked.
int UnsignedText(ULONGLONG magnitude, bool negative, bool group, LPWSTR dst, int size) {
  WCHAR buffer[96];
  WCHAR* p = buffer + 96;
  tZQPRINTLOCALE locale;
  int groupSize = 0;
  int sepLength = 0;
  if (group) {
    ZqPrintF_GetLocale(&locale);
    groupSize = static_cast<int>(locale.grouping);
    sepLength = lstrlenW(locale.thousand);
  }
  int inGroup = 0;
  do {
    if (groupSize > 0 && inGroup == groupSize) {
      for (int i = sepLength - 1; i >= 0; --i) *--p = locale.thousand[i];
      inGroup = 0;
    }
    *--p = static_cast<WCHAR>(u'0' + magnitude % 10);
    magnitude /= 10;
    ++inGroup;
  } while (magnitude);
  if (negative) *--p = u'-';
  return Emit(p, static_cast<int>(buffer + 96 - p), dst, size);
}

ULONGLONG Magnitude(LONGLONG v) { return v < 0 ? 0 - static_cast<ULONGLONG>(v) : static_cast<ULONGLONG>(v); }

// Rooms of the unbounded forms.
constexpr int kIntRoom = 64;

// Powers of ten, exact up to 10^15.
constexpr double kPow10[16] = {1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                               1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};

}  // namespace

// --- Integers ------------------------------------------------------------------

ZQ_API int ZqLongToTextN(LONG value, LPWSTR dst, int size, BOOL group) {
  if (size < 2) return 0;
  return UnsignedText(Magnitude(value), value < 0, group, dst, size);
}
ZQ_API int ZqDWordToTextN(DWORD value, LPWSTR dst, int size, BOOL group) {
  if (size < 2) return 0;
  return UnsignedText(value, false, group, dst, size);
}
ZQ_API int ZqLongLongToTextN(LONGLONG value, LPWSTR dst, int size, BOOL group) {
  if (size < 2) return 0;
  return UnsignedText(Magnitude(value), value < 0, group, dst, size);
}
ZQ_API int ZqDWordLongToTextN(ULONGLONG value, LPWSTR dst, int size, BOOL group) {
  if (size < 2) return 0;
  return UnsignedText(value, false, group, dst, size);
}
ZQ_API int ZqLongToText(LONG value, LPWSTR dst, BOOL group) { return ZqLongToTextN(value, dst, kIntRoom, group); }
ZQ_API int ZqDWordToText(DWORD value, LPWSTR dst, BOOL group) { return ZqDWordToTextN(value, dst, kIntRoom, group); }
ZQ_API int ZqLongLongToText(LONGLONG value, LPWSTR dst, BOOL group) {
  return ZqLongLongToTextN(value, dst, kIntRoom, group);
}
ZQ_API int ZqDWordLongToText(ULONGLONG value, LPWSTR dst, BOOL group) {
  return ZqDWordLongToTextN(value, dst, kIntRoom, group);
}

// --- Floats ----------------------------------------------------------------------

ZQ_API int ZqDoubleToTextN(LPWSTR dst, int size, double value, int decimals, BOOL group) {
  if (!dst || size < 1) return 0;
  decimals = decimals < 0 ? 0 : decimals > 9 ? 9 : decimals;
  // The half step is taken in single precision, as the stored texts of
  // earlier versions were made with it.
  static constexpr float kStep[10] = {1.0f, 0.1f, 0.01f, 0.001f, 0.0001f, 1e-5f, 1e-6f, 1e-7f, 1e-8f, 1e-9f};
  if (std::isnan(value)) value = 0;
  double a = std::fabs(value) + 0.5 * static_cast<double>(kStep[decimals]);
  ULONGLONG whole;
  ULONGLONG fraction = 0;
  if (a >= 18446744073709551616.0) {
    whole = ULLONG_MAX;
  } else {
    whole = static_cast<ULONGLONG>(a);
    fraction = static_cast<ULONGLONG>((a - static_cast<double>(whole)) * kPow10[decimals]);
    const ULONGLONG limit = static_cast<ULONGLONG>(kPow10[decimals]);
    if (fraction >= limit) fraction = limit - 1;
  }
  WCHAR plain[kIntRoom];
  int n = 0;
  if (value < 0 && (whole != 0 || fraction != 0)) plain[n++] = u'-';
  n += ZqDWordLongToTextN(whole, plain + n, kIntRoom - n, FALSE);
  if (decimals > 0) {
    // 10^decimals + fraction keeps the leading zeros of the fraction; its
    // leading "1" becomes the point.
    const int at = n;
    n += ZqDWordLongToTextN(static_cast<ULONGLONG>(kPow10[decimals]) + fraction, plain + n, kIntRoom - n, FALSE);
    plain[at] = u'.';
  }
  plain[n] = 0;
  if (group) {
    WCHAR grouped[kIntRoom];
    const int m = ZqFormatGroupDecimalNumber(plain, grouped, kIntRoom, decimals);
    return Emit(grouped, m, dst, size);
  }
  return Emit(plain, n, dst, size);
}

ZQ_API int ZqDoubleToText(LPWSTR dst, double value, int decimals, BOOL group) {
  return ZqDoubleToTextN(dst, kIntRoom, value, decimals, group);
}

// --- Locale layout of digits -------------------------------------------------------

int ZqFmt_FormatDigits(const tZQPRINTLOCALE& locale, ZqDigitsForm form, LPCWSTR digits, int decimals, LPWSTR dst,
                       int size) {
  if (!dst || size < 1) return 0;
  if (!digits) digits = u"";
  // What stands before the first significant character is kept as it is.
  int start = 0;
  for (;; ++start) {
    const WCHAR c = digits[start];
    if (c == 0 || c == u'-' || c == u'.' || (c >= u'1' && c <= u'9') || (c == u'0' && digits[start + 1] == u'.'))
      break;
  }
  const WCHAR* rest = digits + start;
  // The number: [-]digits[.digits], then nothing but blanks.
  int i = 0;
  const bool negative = rest[i] == u'-';
  if (negative) ++i;
  const int intStart = i;
  while (IsDigit(rest[i])) ++i;
  const int intEnd = i;
  int fracStart = i, fracEnd = i;
  if (rest[i] == u'.') {
    fracStart = ++i;
    while (IsDigit(rest[i])) ++i;
    fracEnd = i;
  }
  const int numberEnd = i;
  while (rest[i] == u' ') ++i;
  const bool valid = rest[i] == 0 && (intEnd > intStart || fracEnd > fracStart);

  // Room for the longest layout the print asks for: a padded float of 309
  // whole digits, their separators and 100 decimals.
  constexpr int kRoom = 400;
  constexpr int kOutRoom = 2048;
  WCHAR out[kOutRoom];
  int n = 0;
  auto add = [&](WCHAR c) {
    if (n < kOutRoom) out[n++] = c;
  };
  auto put = [&](const WCHAR* text, int count) {
    for (int k = 0; k < count; ++k) add(text[k]);
  };
  put(digits, start);
  if (!valid) {
    put(rest, lstrlenW(rest));
    return Emit(out, n, dst, size);
  }
  if (form == ZqDigitsForm::Grouped) decimals = 0;
  else if (form == ZqDigitsForm::Decimal || decimals < 0) decimals = fracEnd - fracStart;
  if (decimals > 100) decimals = 100;

  // Digits of the whole part (leading zeros dropped) and of the fraction,
  // rounded half away from zero at `decimals`.
  char whole[kRoom];
  int wholeLength = 0;
  int k = intStart;
  while (k < intEnd - 1 && rest[k] == u'0') ++k;
  for (; k < intEnd && wholeLength < 300; ++k) whole[wholeLength++] = static_cast<char>(rest[k]);
  char fraction[128];
  for (int d = 0; d < decimals; ++d)
    fraction[d] = fracStart + d < fracEnd ? static_cast<char>(rest[fracStart + d]) : '0';
  if (fracStart + decimals < fracEnd && rest[fracStart + decimals] >= u'5') {
    int d = decimals - 1;
    for (; d >= 0 && fraction[d] == '9'; --d) fraction[d] = '0';
    if (d >= 0) {
      ++fraction[d];
    } else {
      int w = wholeLength - 1;
      for (; w >= 0 && whole[w] == '9'; --w) whole[w] = '0';
      if (w >= 0) {
        ++whole[w];
      } else {
        std::memmove(whole + 1, whole, static_cast<size_t>(wholeLength));
        whole[0] = '1';
        ++wholeLength;
      }
    }
  }
  if (wholeLength == 1 && whole[0] == '0') wholeLength = 0;
  bool zero = true;
  for (int w = 0; w < wholeLength; ++w) zero = zero && whole[w] == '0';
  for (int d = 0; d < decimals; ++d) zero = zero && fraction[d] == '0';

  if (negative && !zero) add(u'-');
  if (wholeLength == 0) {
    if (decimals == 0 || locale.leadingZero) add(u'0');
  } else {
    const int groupSize =
        form == ZqDigitsForm::Decimal ? 0 : static_cast<int>(locale.grouping);
    const int sepLength = lstrlenW(locale.thousand);
    for (int w = 0; w < wholeLength; ++w) {
      add(static_cast<WCHAR>(whole[w]));
      const int left = wholeLength - 1 - w;
      if (groupSize > 0 && left > 0 && left % groupSize == 0) put(locale.thousand, sepLength);
    }
  }
  if (decimals > 0 && form != ZqDigitsForm::Grouped) {
    put(locale.decimal, lstrlenW(locale.decimal));
    for (int d = 0; d < decimals; ++d) add(static_cast<WCHAR>(fraction[d]));
  }
  put(rest + numberEnd, lstrlenW(rest + numberEnd));
  return Emit(out, n, dst, size);
}

ZQ_API int ZqFormatNumber(LPCWSTR digits, LPWSTR dst, int size) {
  tZQPRINTLOCALE locale;
  ZqPrintF_GetLocale(&locale);
  return ZqFmt_FormatDigits(locale, ZqDigitsForm::Grouped, digits, 0, dst, size);
}
ZQ_API int ZqFormatDecimalNumber(LPCWSTR digits, LPWSTR dst, int size) {
  tZQPRINTLOCALE locale;
  ZqPrintF_GetLocale(&locale);
  return ZqFmt_FormatDigits(locale, ZqDigitsForm::Decimal, digits, -1, dst, size);
}
ZQ_API int ZqFormatGroupDecimalNumber(LPCWSTR digits, LPWSTR dst, int size, int decimals) {
  tZQPRINTLOCALE locale;
  ZqPrintF_GetLocale(&locale);
  return ZqFmt_FormatDigits(locale, ZqDigitsForm::GroupDecimal, digits, decimals, dst, size);
}

// --- Labelled values, sizes, codes ---------------------------------------------------

namespace {

constexpr UINT kLabelRoom = 24;

// Prints `format` with one argument into a ring text and appends `label`.
template <typename T>
LPCWSTR Labelled(const WCHAR* format, T value, LPCWSTR label) {
  HZQLANG kernel = ZqLang_GetKernelLang();
  LPWSTR text = ZqGetTempStringBuffer(kernel, kLabelRoom);
  if (!text) return ZqGetString(kernel, ZqLangEntryRef(ZQSTR::NUM_ERROR));
  UINT n = 0;
  (void)ZqCchPrintF(text, kLabelRoom, &n, format, value);
  if (label) {
    if (LPCWSTR suffix = ZqGetStringSmart(kernel, label)) lstrcpynW(text + n, suffix, static_cast<int>(kLabelRoom - n));
  }
  return text;
}

LPCWSTR MinusInfinity() { return ZqGetString(ZqLang_GetKernelLang(), ZqLangEntryRef(ZQSTR::NUM_MINUS_INF)); }

// "$.Xz" / "$.Xf" with the digit in place, or "$d".
void DecimalsFormat(WCHAR (&format)[8], int decimals, WCHAR conversion) {
  if (decimals <= 0) {
    lstrcpyW(format, u"$d");
    return;
  }
  format[0] = u'$';
  format[1] = u'.';
  format[2] = static_cast<WCHAR>(u'0' + (decimals > 9 ? 9 : decimals));
  format[3] = conversion;
  format[4] = 0;
}

// The label " dB": the unit of the table behind a blank.
LPCWSTR DecibelLabel() {
  thread_local WCHAR label[16];
  label[0] = u' ';
  lstrcpynW(label + 1, ZqGetString(ZqLang_GetKernelLang(), ZqLangEntryRef(ZQSTR::UNIT_DB)), 15);
  return label;
}

}  // namespace

ZQ_API LPCWSTR ZqGetLabeledStringFixed(LONG value, int decimals, LONG minimum, LPCWSTR label) {
  if (minimum != 0 && value <= minimum) return MinusInfinity();
  WCHAR format[8];
  DecimalsFormat(format, decimals, u'z');
  return Labelled(format, value, label);
}

ZQ_API LPCWSTR ZqGetLabeledStringFloat(double value, int decimals, double minimum, LPCWSTR label) {
  if (minimum != 0 && value <= minimum) return MinusInfinity();
  WCHAR format[8];
  DecimalsFormat(format, decimals, u'f');
  if (decimals <= 0) {
    const double rounded = std::round(value);
    const LONG whole = rounded >= 2147483647.0 ? INT32_MAX : rounded <= -2147483648.0 ? INT32_MIN : static_cast<LONG>(rounded);
    return Labelled(format, whole, label);
  }
  return Labelled(format, value, label);
}

ZQ_API LPCWSTR ZqGetdBStringFixed(LONG value, int decimals, LONG minimum, BOOL withLabel) {
  return ZqGetLabeledStringFixed(value, decimals, minimum, withLabel ? DecibelLabel() : nullptr);
}

ZQ_API LPCWSTR ZqGetdBStringFloat(double value, int decimals, double minimum, BOOL withLabel) {
  return ZqGetLabeledStringFloat(value, decimals, minimum, withLabel ? DecibelLabel() : nullptr);
}

namespace {

int ByteSizeText(ULONGLONG size, LPWSTR dst, bool spaced, bool bytesWord) {
  HZQLANG kernel = ZqLang_GetKernelLang();
  constexpr UINT kRoom = 64;
  UINT n = 0;
  if (size < 1024) {
    const LPCWSTR format = bytesWord ? ZqGetString(kernel, ZqLangEntryRef(ZQSTR::SIZE_BYTES)) : u"%d";
    (void)ZqCchPrintF(dst, kRoom, &n, format, static_cast<int>(size));
    return static_cast<int>(n);
  }
  ZQSTR unit;
  double value;
  if (size < 0xFA000) {
    unit = spaced ? ZQSTR::SIZE_KB_SPACED : ZQSTR::SIZE_KB;
    value = static_cast<double>(size) * (1.0 / 1024.0);
    if (value < 0.01) value = 0.01;
  } else if (size < 0x3D090000) {
    unit = spaced ? ZQSTR::SIZE_MB_SPACED : ZQSTR::SIZE_MB;
    value = static_cast<double>(size) / 1024000.0;
  } else {
    unit = spaced ? ZQSTR::SIZE_GB_SPACED : ZQSTR::SIZE_GB;
    value = static_cast<double>(size) / 1024000000.0;
  }
  (void)ZqCchPrintF(dst, kRoom, &n, ZqGetString(kernel, ZqLangEntryRef(unit)), value);
  return static_cast<int>(n);
}

}  // namespace

ZQ_API int ZqGetByteSizeText(ULONGLONG size, LPWSTR dst) { return ByteSizeText(size, dst, false, false); }
ZQ_API int ZqGetByteSizeTextWithSpace(ULONGLONG size, LPWSTR dst) { return ByteSizeText(size, dst, true, false); }
ZQ_API int ZqGetByteSizeText2(ULONGLONG size, LPWSTR dst) { return ByteSizeText(size, dst, true, true); }

ZQ_API LPWSTR ZqFourCCToString(DWORD code, LPWSTR dst) {
  for (int i = 0; i < 4; ++i) {
    const DWORD c = (code >> (8 * i)) & 0xFF;
    dst[i] = c >= 32 && c <= 126 ? static_cast<WCHAR>(c) : u'.';
  }
  dst[4] = 0;
  return dst;
}

// --- Colours -----------------------------------------------------------------------

ZQ_API HRESULT ZqColorrefToTextEx(LPWSTR dst, int size, int* length, COLORREF colour, int form) {
  if (length) *length = 0;
  if (!dst || size < 1) return E_INVALIDARG;
  if (colour >= 0x1000000) form = 2;
  const int r = colour & 0xFF, g = (colour >> 8) & 0xFF, b = (colour >> 16) & 0xFF;
  UINT n = 0;
  HRESULT hr;
  if (form == 0) hr = ZqCchPrintF(dst, static_cast<UINT>(size), &n, u"RGB(%d,%d,%d)", r, g, b);
  else if (form == 1) hr = ZqCchPrintF(dst, static_cast<UINT>(size), &n, u"#%02x%02x%02x", r, g, b);
  // C's "#" flag writes no "0x" for 0: a black of form 2 is spelt out.
  else if (colour == 0) hr = ZqCchPrintF(dst, static_cast<UINT>(size), &n, u"0x00000000");
  else hr = ZqCchPrintF(dst, static_cast<UINT>(size), &n, u"%#010x", colour);
  if (length) *length = static_cast<int>(n);
  return hr;
}

ZQ_API int ZqColorrefToText(LPWSTR dst, int size, COLORREF colour, int form) {
  int n = 0;
  (void)ZqColorrefToTextEx(dst, size, &n, colour, form);
  return n;
}

// --- Text to numbers -------------------------------------------------------------------

namespace {

constexpr int kCleanRoom = 64;

// The cleaned number: "-" digits "." as read, at most 63 characters kept.
struct Cleaned {
  char text[kCleanRoom];
  LPCWSTR end;
};

bool StartsWith(LPCWSTR text, const WCHAR* prefix) {
  if (!prefix[0]) return false;
  for (int i = 0; prefix[i]; ++i)
    if (text[i] != prefix[i]) return false;
  return true;
}

Cleaned Clean(LPCWSTR text, bool useLocale) {
  Cleaned c{};
  if (!text) text = u"";
  WCHAR thousand[8] = u",";
  WCHAR decimal[8] = u".";
  if (useLocale) {
    tZQPRINTLOCALE locale;
    ZqPrintF_GetLocale(&locale);
    lstrcpynW(thousand, locale.thousand, 8);
    lstrcpynW(decimal, locale.decimal, 8);
  }
  int n = 0;
  auto keep = [&](char ch) {
    if (n < kCleanRoom - 1) c.text[n++] = ch;
  };
  while (IsSpace(*text)) ++text;
  if (*text == u'-') {
    keep('-');
    ++text;
  }
  for (;;) {
    if (IsDigit(*text)) {
      keep(static_cast<char>(*text));
      ++text;
    } else if (StartsWith(text, thousand)) {
      text += lstrlenW(thousand);
    } else if (StartsWith(text, decimal)) {
      keep('.');
      text += lstrlenW(decimal);
    } else {
      break;
    }
  }
  c.text[n] = 0;
  c.end = text;
  return c;
}

template <typename T>
T LeadingDigits(const char* s) {
  T value = 0;
  for (; *s >= '0' && *s <= '9'; ++s) {
    const T digit = static_cast<T>(*s - '0');
    if (value > (static_cast<T>(~T{0}) - digit) / 10) return static_cast<T>(~T{0});
    value = value * 10 + digit;
  }
  return value;
}

// C's text-to-number on the cleaned text: held to the type's range.
template <typename T>
T SignedDigits(const char* s, T lowest, T highest) {
  const bool negative = *s == '-';
  if (negative) ++s;
  const ULONGLONG limit = negative ? Magnitude(lowest) : static_cast<ULONGLONG>(highest);
  const ULONGLONG magnitude = LeadingDigits<ULONGLONG>(s);
  if (magnitude >= limit) return negative ? lowest : highest;
  return negative ? static_cast<T>(-static_cast<LONGLONG>(magnitude)) : static_cast<T>(magnitude);
}

bool NoNumber(bool zero, LPCWSTR end) { return zero && end && *end && !IsSpace(*end); }

template <typename T>
T Clip(T value, T minimum, T maximum) {
  if (value < minimum) value = minimum;
  if (value > maximum) value = maximum;
  return value;
}

template <typename T>
T HexDigits(LPCWSTR text, LPCWSTR* end) {
  if (!text) text = u"";
  while (IsSpace(*text)) ++text;
  if (text[0] == u'0' && (text[1] == u'x' || text[1] == u'X')) text += 2;
  T value = 0;
  for (int d; (d = HexValue(*text)) >= 0; ++text) value = static_cast<T>((value << 4) | static_cast<T>(d));
  if (end) *end = text;
  return value;
}

ULONGLONG Words(DWORD low, DWORD high) { return (static_cast<ULONGLONG>(high) << 32) | low; }

}  // namespace

ZQ_API DWORD ZqTextToDWordToken(LPCWSTR text, LPCWSTR* end) {
  const Cleaned c = Clean(text, true);
  if (end) *end = c.end;
  return LeadingDigits<DWORD>(c.text);
}

ZQ_API DWORD ZqTextToDWordTokenEx(LPCWSTR text, DWORD fallback, DWORD minimum, DWORD maximum, LPCWSTR* end) {
  LPCWSTR stop = nullptr;
  DWORD value = ZqTextToDWordToken(text, &stop);
  if (NoNumber(value == 0, stop)) value = fallback;
  if (end) *end = stop;
  return Clip(value, minimum, maximum);
}

ZQ_API ULONGLONG ZqTextToDWordLongToken(LPCWSTR text, LPCWSTR* end) {
  const Cleaned c = Clean(text, true);
  if (end) *end = c.end;
  return LeadingDigits<ULONGLONG>(c.text);
}

ZQ_API ULONGLONG ZqTextToDWordLongTokenEx(LPCWSTR text, DWORD fallbackLow, DWORD fallbackHigh, DWORD minimumLow,
                                          DWORD minimumHigh, DWORD maximumLow, DWORD maximumHigh, LPCWSTR* end) {
  LPCWSTR stop = nullptr;
  ULONGLONG value = ZqTextToDWordLongToken(text, &stop);
  if (NoNumber(value == 0, stop)) value = Words(fallbackLow, fallbackHigh);
  if (end) *end = stop;
  return Clip(value, Words(minimumLow, minimumHigh), Words(maximumLow, maximumHigh));
}

ZQ_API LONG ZqTextToLongToken(LPCWSTR text, LPCWSTR* end) {
  const Cleaned c = Clean(text, true);
  if (end) *end = c.end;
  return SignedDigits<LONG>(c.text, INT32_MIN, INT32_MAX);
}

ZQ_API LONG ZqTextToLongTokenEx(LPCWSTR text, LONG fallback, LONG minimum, LONG maximum, LPCWSTR* end) {
  LPCWSTR stop = nullptr;
  LONG value = ZqTextToLongToken(text, &stop);
  if (NoNumber(value == 0, stop)) value = fallback;
  if (end) *end = stop;
  return Clip(value, minimum, maximum);
}

ZQ_API LONGLONG ZqTextToLongLongToken(LPCWSTR text, LPCWSTR* end) {
  const Cleaned c = Clean(text, true);
  if (end) *end = c.end;
  return SignedDigits<LONGLONG>(c.text, INT64_MIN, INT64_MAX);
}

ZQ_API LONGLONG ZqTextToLongLongTokenEx(LPCWSTR text, LONG fallback, LONG minimum, LONG maximum, LPCWSTR* end) {
  return ZqTextToLongTokenEx(text, fallback, minimum, maximum, end);
}

ZQ_API DWORD ZqHexToDWordToken(LPCWSTR text, LPCWSTR* end) { return HexDigits<DWORD>(text, end); }

ZQ_API DWORD ZqHexToDWordTokenEx(LPCWSTR text, DWORD fallback, DWORD minimum, DWORD maximum, LPCWSTR* end) {
  LPCWSTR stop = nullptr;
  DWORD value = ZqHexToDWordToken(text, &stop);
  if (NoNumber(value == 0, stop)) value = fallback;
  if (end) *end = stop;
  return Clip(value, minimum, maximum);
}

ZQ_API ULONGLONG ZqHexToDWordLongToken(LPCWSTR text, LPCWSTR* end) { return HexDigits<ULONGLONG>(text, end); }

ZQ_API ULONGLONG ZqHexToDWordLongTokenEx(LPCWSTR text, DWORD fallback, DWORD minimum, DWORD maximum, LPCWSTR* end) {
  return ZqHexToDWordTokenEx(text, fallback, minimum, maximum, end);
}

ZQ_API double ZqTextToDoubleToken(LPCWSTR text, LPCWSTR* end, BOOL locale) {
  const Cleaned c = Clean(text, locale);
  if (end) *end = c.end;
  double value = 0;
  const char* last = c.text + std::strlen(c.text);
  if (std::from_chars(c.text, last, value).ec != std::errc()) value = 0;
  return value;
}

ZQ_API double ZqTextToDoubleTokenEx(LPCWSTR text, double fallback, double minimum, double maximum, LPCWSTR* end,
                                    BOOL locale) {
  LPCWSTR stop = nullptr;
  double value = ZqTextToDoubleToken(text, &stop, locale);
  if (NoNumber(value == 0, stop)) value = fallback;
  if (end) *end = stop;
  return Clip(value, minimum, maximum);
}

ZQ_API COLORREF ZqTextToColorrefToken(LPCWSTR text, LPCWSTR* end) {
  if (!text) text = u"";
  while (IsSpace(*text)) ++text;
  if (end) *end = text;
  if (ZqToUpperW(text[0]) == u'R' && ZqToUpperW(text[1]) == u'G' && ZqToUpperW(text[2]) == u'B') {
    LPCWSTR p = text + 3;
    while (*p == u' ') ++p;
    if (*p++ != u'(') return ZQ_COLORREF_INVALID;
    COLORREF colour = 0;
    for (int part = 0; part < 3; ++part) {
      while (*p == u' ') ++p;
      if (!IsDigit(*p)) return ZQ_COLORREF_INVALID;
      DWORD v = 0;
      while (IsDigit(*p)) {
        v = v * 10 + static_cast<DWORD>(*p++ - u'0');
        if (v > 255) return ZQ_COLORREF_INVALID;
      }
      while (*p == u' ') ++p;
      if (*p++ != (part < 2 ? u',' : u')')) return ZQ_COLORREF_INVALID;
      colour |= v << (8 * part);
    }
    if (end) *end = p;
    return colour;
  }
  if (text[0] == u'#') {
    LPCWSTR p = text + 1;
    DWORD v = 0;
    int digits = 0;
    for (int d; digits < 6 && (d = HexValue(*p)) >= 0; ++p, ++digits) v = (v << 4) | static_cast<DWORD>(d);
    if (digits == 0) return ZQ_COLORREF_INVALID;
    if (end) *end = p;
    return ((v >> 16) & 0xFF) | (v & 0xFF00) | ((v & 0xFF) << 16);
  }
  if (text[0] == u'0' && (text[1] == u'x' || text[1] == u'X')) {
    if (HexValue(text[2]) < 0) return ZQ_COLORREF_INVALID;
    return ZqHexToDWordToken(text, end);
  }
  if (!IsDigit(text[0])) return ZQ_COLORREF_INVALID;
  return ZqTextToDWordToken(text, end);
}

ZQ_API COLORREF ZqTextToColorrefTokenEx(LPCWSTR text, COLORREF fallback, LPCWSTR* end) {
  const COLORREF colour = ZqTextToColorrefToken(text, end);
  return colour == 0xFFFFFFFF ? fallback : colour;
}
