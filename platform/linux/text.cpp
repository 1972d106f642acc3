// Code page conversions and wide string helpers.
#include <string>

#include "platform/linux/object.h"
#include "platform/text.h"

namespace {

constexpr char32_t kReplacement = 0xFFFD;

// windows-1252 bytes 0x80..0x9F; the unassigned ones map to themselves.
constexpr char16_t kCp1252High[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
    0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,
    0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
    0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

bool IsUtf8Page(UINT page) {
  return page == CP_ACP || page == CP_OEMCP || page == CP_THREAD_ACP || page == CP_UTF8;
}

// Decodes one code point at s[i] (n bytes in all), advancing i.  An invalid
// sequence yields U+FFFD and consumes its maximal invalid part.
char32_t DecodeUtf8(const unsigned char* s, size_t n, size_t& i, bool& invalid) {
  const unsigned char b0 = s[i++];
  if (b0 < 0x80) return b0;
  int more;
  char32_t c;
  unsigned char lo = 0x80, hi = 0xBF;  // allowed range of the second byte
  if (b0 >= 0xC2 && b0 <= 0xDF) {
    more = 1;
    c = b0 & 0x1F;
  } else if (b0 >= 0xE0 && b0 <= 0xEF) {
    more = 2;
    c = b0 & 0x0F;
    if (b0 == 0xE0) lo = 0xA0;          // overlong
    if (b0 == 0xED) hi = 0x9F;          // surrogates
  } else if (b0 >= 0xF0 && b0 <= 0xF4) {
    more = 3;
    c = b0 & 0x07;
    if (b0 == 0xF0) lo = 0x90;          // overlong
    if (b0 == 0xF4) hi = 0x8F;          // beyond U+10FFFF
  } else {
    invalid = true;
    return kReplacement;
  }
  for (int k = 0; k < more; ++k) {
    if (i >= n) {
      invalid = true;
      return kReplacement;
    }
    const unsigned char b = s[i];
    const unsigned char low = k == 0 ? lo : 0x80;
    const unsigned char high = k == 0 ? hi : 0xBF;
    if (b < low || b > high) {
      invalid = true;
      return kReplacement;
    }
    c = (c << 6) | (b & 0x3F);
    ++i;
  }
  return c;
}

// Decodes one code point of UTF-16 at s[i]; a lone surrogate is invalid.
char32_t DecodeUtf16(const char16_t* s, size_t n, size_t& i, bool& invalid) {
  const char16_t u = s[i++];
  if (u < 0xD800 || u > 0xDFFF) return u;
  if (u <= 0xDBFF && i < n && s[i] >= 0xDC00 && s[i] <= 0xDFFF) {
    const char16_t v = s[i++];
    return 0x10000 + ((static_cast<char32_t>(u) - 0xD800) << 10) + (v - 0xDC00);
  }
  invalid = true;
  return kReplacement;
}

template <class Sink>
void EncodeUtf16(char32_t c, Sink&& put) {
  if (c < 0x10000) {
    put(static_cast<char16_t>(c));
  } else {
    c -= 0x10000;
    put(static_cast<char16_t>(0xD800 + (c >> 10)));
    put(static_cast<char16_t>(0xDC00 + (c & 0x3FF)));
  }
}

template <class Sink>
void EncodeUtf8(char32_t c, Sink&& put) {
  if (c < 0x80) {
    put(static_cast<char>(c));
  } else if (c < 0x800) {
    put(static_cast<char>(0xC0 | (c >> 6)));
    put(static_cast<char>(0x80 | (c & 0x3F)));
  } else if (c < 0x10000) {
    put(static_cast<char>(0xE0 | (c >> 12)));
    put(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
    put(static_cast<char>(0x80 | (c & 0x3F)));
  } else {
    put(static_cast<char>(0xF0 | (c >> 18)));
    put(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
    put(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
    put(static_cast<char>(0x80 | (c & 0x3F)));
  }
}

int To1252(char32_t c) {
  if (c < 0x80 || (c >= 0xA0 && c <= 0xFF)) return static_cast<int>(c);
  for (int k = 0; k < 32; ++k) {
    if (kCp1252High[k] == c) return 0x80 + k;
  }
  return -1;
}

// Writes into a counted buffer, or only counts when there is none.
template <class C>
struct Output {
  C* out;
  size_t capacity;
  size_t count = 0;
  bool overflow = false;
  void operator()(C c) {
    if (out != nullptr) {
      if (count >= capacity) {
        overflow = true;
        return;
      }
      out[count] = c;
    }
    ++count;
  }
};

}  // namespace

int MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR source, int sourceBytes,
                        LPWSTR destination, int destinationSize) {
  if (source == nullptr || sourceBytes == 0 || sourceBytes < -1 || destinationSize < 0 ||
      (destinationSize > 0 && destination == nullptr) ||
      (!IsUtf8Page(codePage) && codePage != 1252)) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return 0;
  }
  if ((flags & ~MB_ERR_INVALID_CHARS) != 0) {
    SetLastError(ERROR_INVALID_FLAGS);
    return 0;
  }
  const size_t n = sourceBytes == -1 ? std::char_traits<char>::length(source) + 1
                                     : static_cast<size_t>(sourceBytes);
  const auto* s = reinterpret_cast<const unsigned char*>(source);
  Output<char16_t> out{destinationSize > 0 ? destination : nullptr,
                       static_cast<size_t>(destinationSize)};
  bool invalid = false;
  if (codePage == 1252) {
    for (size_t i = 0; i < n; ++i) out(s[i] >= 0x80 && s[i] < 0xA0 ? kCp1252High[s[i] - 0x80] : s[i]);
  } else {
    for (size_t i = 0; i < n;) EncodeUtf16(DecodeUtf8(s, n, i, invalid), out);
  }
  if (invalid && (flags & MB_ERR_INVALID_CHARS)) {
    SetLastError(ERROR_NO_UNICODE_TRANSLATION);
    return 0;
  }
  if (out.overflow) {
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return 0;
  }
  return static_cast<int>(out.count);
}

int WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR source, int sourceChars,
                        LPSTR destination, int destinationSize, LPCSTR defaultChar,
                        BOOL* usedDefaultChar) {
  const bool utf8 = IsUtf8Page(codePage);
  if (source == nullptr || sourceChars == 0 || sourceChars < -1 || destinationSize < 0 ||
      (destinationSize > 0 && destination == nullptr) || (!utf8 && codePage != 1252) ||
      (codePage == CP_UTF8 && (defaultChar != nullptr || usedDefaultChar != nullptr))) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return 0;
  }
  if ((flags & ~(WC_ERR_INVALID_CHARS | WC_NO_BEST_FIT_CHARS)) != 0 ||
      ((flags & WC_ERR_INVALID_CHARS) && !utf8)) {
    SetLastError(ERROR_INVALID_FLAGS);
    return 0;
  }
  const size_t n = sourceChars == -1 ? std::char_traits<char16_t>::length(source) + 1
                                     : static_cast<size_t>(sourceChars);
  Output<char> out{destinationSize > 0 ? destination : nullptr,
                   static_cast<size_t>(destinationSize)};
  bool invalid = false;
  bool usedDefault = false;
  const char fallback = defaultChar != nullptr ? *defaultChar : '?';
  for (size_t i = 0; i < n;) {
    const char32_t c = DecodeUtf16(source, n, i, invalid);
    if (utf8) {
      EncodeUtf8(c, out);
    } else {
      const int b = To1252(c);
      if (b < 0) usedDefault = true;
      out(b < 0 ? fallback : static_cast<char>(b));
    }
  }
  if (invalid && utf8 && (flags & WC_ERR_INVALID_CHARS)) {
    SetLastError(ERROR_NO_UNICODE_TRANSLATION);
    return 0;
  }
  if (out.overflow) {
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return 0;
  }
  if (usedDefaultChar) *usedDefaultChar = usedDefault ? TRUE : FALSE;
  return static_cast<int>(out.count);
}

std::u16string ZqUtf8ToUtf16(std::string_view text) {
  std::u16string result;
  result.reserve(text.size());
  const auto* s = reinterpret_cast<const unsigned char*>(text.data());
  bool invalid = false;
  auto put = [&](char16_t c) { result.push_back(c); };
  for (size_t i = 0; i < text.size();) EncodeUtf16(DecodeUtf8(s, text.size(), i, invalid), put);
  return result;
}

std::string ZqUtf16ToUtf8(std::u16string_view text) {
  std::string result;
  result.reserve(text.size());
  bool invalid = false;
  auto put = [&](char c) { result.push_back(c); };
  for (size_t i = 0; i < text.size();) EncodeUtf8(DecodeUtf16(text.data(), text.size(), i, invalid), put);
  return result;
}

WCHAR ZqToLowerW(WCHAR c) {
  if (c < 0x80) return (c >= 'A' && c <= 'Z') ? static_cast<WCHAR>(c + 0x20) : c;
  if ((c >= 0xC0 && c <= 0xDE && c != 0xD7)) return static_cast<WCHAR>(c + 0x20);
  if (c >= 0x100 && c <= 0x17F) {
    // Latin Extended-A pairs upper/lower, even/odd, except a few runs that
    // pair odd/even.
    if (c == 0x130) return u'i';
    if (c == 0x178) return 0xFF;
    const bool oddPairs = (c >= 0x139 && c <= 0x148) || (c >= 0x179 && c <= 0x17E);
    if (c == 0x131 || c == 0x138 || c == 0x149 || c == 0x17F) return c;
    if (oddPairs) return (c & 1) ? static_cast<WCHAR>(c + 1) : c;
    return (c & 1) ? c : static_cast<WCHAR>(c + 1);
  }
  if (c >= 0x391 && c <= 0x3AB && c != 0x3A2) return static_cast<WCHAR>(c + 0x20);
  if (c >= 0x410 && c <= 0x42F) return static_cast<WCHAR>(c + 0x20);
  if (c >= 0x400 && c <= 0x40F) return static_cast<WCHAR>(c + 0x50);
  return c;
}

WCHAR ZqToUpperW(WCHAR c) {
  if (c < 0x80) return (c >= 'a' && c <= 'z') ? static_cast<WCHAR>(c - 0x20) : c;
  if (c >= 0xE0 && c <= 0xFE && c != 0xF7) return static_cast<WCHAR>(c - 0x20);
  if (c == 0xFF) return 0x178;
  if (c >= 0x100 && c <= 0x17F) {
    if (c == 0x131 || c == 0x138 || c == 0x149 || c == 0x17F || c == 0x130) return c;
    const bool oddPairs = (c >= 0x139 && c <= 0x148) || (c >= 0x179 && c <= 0x17E);
    if (oddPairs) return (c & 1) ? c : static_cast<WCHAR>(c - 1);
    return (c & 1) ? static_cast<WCHAR>(c - 1) : c;
  }
  if (c >= 0x3B1 && c <= 0x3CB && c != 0x3C2) return static_cast<WCHAR>(c - 0x20);
  if (c >= 0x430 && c <= 0x44F) return static_cast<WCHAR>(c - 0x20);
  if (c >= 0x450 && c <= 0x45F) return static_cast<WCHAR>(c - 0x50);
  return c;
}

int ZqCompareNoCaseW(std::u16string_view a, std::u16string_view b) {
  const size_t n = std::min(a.size(), b.size());
  for (size_t i = 0; i < n; ++i) {
    const WCHAR x = ZqToLowerW(a[i]);
    const WCHAR y = ZqToLowerW(b[i]);
    if (x != y) return x < y ? -1 : 1;
  }
  if (a.size() == b.size()) return 0;
  return a.size() < b.size() ? -1 : 1;
}

int lstrlenW(LPCWSTR text) {
  return text ? static_cast<int>(std::char_traits<char16_t>::length(text)) : 0;
}

LPWSTR lstrcpynW(LPWSTR destination, LPCWSTR source, int maxChars) {
  if (destination == nullptr || maxChars <= 0) return destination;
  int i = 0;
  if (source) {
    for (; i < maxChars - 1 && source[i] != 0; ++i) destination[i] = source[i];
  }
  destination[i] = 0;
  return destination;
}

LPWSTR lstrcpyW(LPWSTR destination, LPCWSTR source) {
  if (destination == nullptr) return nullptr;
  const int n = lstrlenW(source);
  if (n) std::char_traits<char16_t>::copy(destination, source, n);
  destination[n] = 0;
  return destination;
}

LPWSTR lstrcatW(LPWSTR destination, LPCWSTR source) {
  if (destination == nullptr) return nullptr;
  lstrcpyW(destination + lstrlenW(destination), source);
  return destination;
}

int lstrcmpW(LPCWSTR a, LPCWSTR b) {
  const std::u16string_view x(a ? a : u""), y(b ? b : u"");
  return x.compare(y) < 0 ? -1 : (x == y ? 0 : 1);
}

int lstrcmpiW(LPCWSTR a, LPCWSTR b) {
  return ZqCompareNoCaseW(a ? a : u"", b ? b : u"");
}
