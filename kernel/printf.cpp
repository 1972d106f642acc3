// The kernel's printf, its tokens and the locale values it reads.
#include "kernel/printf.h"

#include <atomic>
#include <charconv>
#include <cmath>
#include <cstring>
#include <mutex>
#include <string>

#include "base/status.h"
#include "kernel/lang.h"
#include "kernel/langtable.h"
#include "kernel/list.h"
#include "kernel/numtext.h"
#include "kernel/printlocale.h"
#include "platform/text.h"

// --- Locale values ---------------------------------------------------------------

namespace {

std::mutex g_localeLock;
tZQPRINTLOCALE g_locale;
bool g_localeSet = false;

template <size_t N>
void CopyText(WCHAR (&dst)[8], const WCHAR (&src)[N]) {
  lstrcpynW(dst, src, 8);
}

tZQPRINTLOCALE FromRecord(const tZQINTERNATIONALS& r) {
  tZQPRINTLOCALE l{};
  CopyText(l.decimal, r.decimalSeparator);
  CopyText(l.thousand, r.thousandSeparator);
  CopyText(l.negative, r.negativeSign);
  CopyText(l.list, r.listSeparator);
  CopyText(l.time, r.timeSeparator);
  CopyText(l.smpteWhole, r.smpteWhole);
  CopyText(l.smpteNonDrop, r.smpteNonDrop);
  CopyText(l.smpteDrop, r.smpteDrop);
  CopyText(l.musicMeasure, r.musicMeasure);
  CopyText(l.musicBeat, r.musicBeat);
  l.grouping = r.grouping;
  l.leadingZero = r.leadingZero;
  return l;
}

}  // namespace

void ZqPrintF_GetLocale(tZQPRINTLOCALE* locale) {
  {
    std::lock_guard<std::mutex> hold(g_localeLock);
    if (g_localeSet) {
      *locale = g_locale;
      return;
    }
  }
  // Not read yet: the record is built on first use.  The record's own lock
  // is taken without ours, so that its refresh may call back in.
  tZQINTERNATIONALS record{};
  ZqLang_GetInternationals(&record, sizeof record);
  *locale = FromRecord(record);
  std::lock_guard<std::mutex> hold(g_localeLock);
  if (!g_localeSet) {
    g_locale = *locale;
    g_localeSet = true;
  }
}

// --- Tokens ----------------------------------------------------------------------

namespace {

// One token: name and value stand behind the record in the same item.
struct tZQPRINTTOKEN {
  UINT_PTR reserved;
  const WCHAR* name;
  UINT_PTR length;  // of the value, in characters
  const WCHAR* value;
};

std::atomic<tZQLIST*> g_tokens{nullptr};

int ZQ_STDCALL CompareToken(UINT_PTR, const void* key, const void* item) {
  return lstrcmpiW(static_cast<const WCHAR*>(key), static_cast<const tZQPRINTTOKEN*>(item)->name);
}

// Holds a list's lock for a scope.
struct ListLock {
  explicit ListLock(tZQLIST* list) : list(list) { EnterCriticalSection(&list->lock); }
  ~ListLock() { LeaveCriticalSection(&list->lock); }
  tZQLIST* list;
};

// The value of `name`, written through `write(value, length)` under the
// lock; false when unknown.
template <typename Write>
bool WithToken(const WCHAR* name, Write&& write) {
  tZQLIST* list = g_tokens.load(std::memory_order_acquire);
  if (!list) return false;
  ListLock hold(list);
  const INT i = ZqList_FindSortedItemRange(list, name, 0, -1, CompareToken);
  if (i < 0) return false;
  const auto* token = static_cast<const tZQPRINTTOKEN*>(ZqList_Slot(list, i));
  write(token->value, static_cast<size_t>(token->length));
  return true;
}

// A table text with the separators put in for its "%s" places.
void AddLabelToken(const WCHAR* name, ZQSTR entry, const WCHAR* a, const WCHAR* b, const WCHAR* c) {
  WCHAR value[256];
  if (SUCCEEDED(ZqCchPrintF(value, 256, nullptr, ZqGetString(ZqLang_GetKernelLang(), ZqLangEntryRef(entry)), a, b, c)))
    ZqPrintF_AddToken(name, value);
}

}  // namespace

ZQ_API BOOL ZqPrintF_CreateTokenList() {
  if (g_tokens.load()) return TRUE;
  tZQLIST* list = nullptr;
  if (FAILED(ZqList_CreateExZ(&list, sizeof(void*), 16, 16, ZQLIST_LOCKED | ZQLIST_HEAPITEMS, 0, 0, 0))) return FALSE;
  g_tokens.store(list, std::memory_order_release);
  return TRUE;
}

ZQ_API void ZqPrintF_DestroyTokenList() { (void)ZqList_Destroy(g_tokens.exchange(nullptr)); }

ZQ_API BOOL ZqPrintF_AddToken(LPCWSTR name, LPCWSTR value) {
  tZQLIST* list = g_tokens.load(std::memory_order_acquire);
  if (!list || !name) return FALSE;
  if (!value) value = u"";
  const size_t nameLength = static_cast<size_t>(lstrlenW(name));
  const size_t valueLength = static_cast<size_t>(lstrlenW(value));
  const size_t bytes = sizeof(tZQPRINTTOKEN) + (nameLength + valueLength + 2) * sizeof(WCHAR);
  if (bytes > 0x7FFFFFFF) return FALSE;
  ListLock hold(list);
  const INT old = ZqList_FindSortedItemRange(list, name, 0, -1, CompareToken);
  if (old >= 0) (void)ZqList_DeleteList(list, old, 1, 0);
  void* memory = nullptr;
  if (FAILED(ZqList_AllocItem(list, static_cast<UINT>(bytes), &memory))) return FALSE;
  auto* token = static_cast<tZQPRINTTOKEN*>(memory);
  auto* text = reinterpret_cast<WCHAR*>(token + 1);
  std::memcpy(text, name, (nameLength + 1) * sizeof(WCHAR));
  std::memcpy(text + nameLength + 1, value, (valueLength + 1) * sizeof(WCHAR));
  token->name = text;
  token->value = text + nameLength + 1;
  token->length = valueLength;
  const INT at = ZqList_FindSortedInsertIndexRange(list, name, 0, -1, CompareToken);
  if (FAILED(ZqList_InsertList(list, at, nullptr, -1))) {
    (void)ZqList_DeleteList(list, -1, -1, 0);
    return FALSE;
  }
  return TRUE;
}

ZQ_API BOOL ZqPrintF_DeleteToken(LPCWSTR name) {
  tZQLIST* list = g_tokens.load(std::memory_order_acquire);
  if (!list || !name) return FALSE;
  ListLock hold(list);
  const INT i = ZqList_FindSortedItemRange(list, name, 0, -1, CompareToken);
  if (i < 0) return FALSE;
  return SUCCEEDED(ZqList_DeleteList(list, i, 1, 1));
}

void ZqPrintF_LocaleChanged(const tZQINTERNATIONALS& record) {
  const tZQPRINTLOCALE l = FromRecord(record);
  {
    std::lock_guard<std::mutex> hold(g_localeLock);
    g_locale = l;
    g_localeSet = true;
  }
  if (!g_tokens.load()) return;
  ZqPrintF_AddToken(u"SMPTE.Whole", l.smpteWhole);
  ZqPrintF_AddToken(u"SMPTE.NonDrop", l.smpteNonDrop);
  ZqPrintF_AddToken(u"SMPTE.Drop", l.smpteDrop);
  AddLabelToken(u"SMPTE.Label.NonDrop", ZQSTR::TIME_SMPTE_LABEL, l.smpteWhole, l.smpteWhole, l.smpteNonDrop);
  AddLabelToken(u"SMPTE.Label.Drop", ZQSTR::TIME_SMPTE_LABEL, l.smpteWhole, l.smpteWhole, l.smpteDrop);
  AddLabelToken(u"SMPTE.Label.NonDrop.Full", ZQSTR::TIME_SMPTE_LABEL_FULL, l.smpteWhole, l.smpteWhole,
                l.smpteNonDrop);
  AddLabelToken(u"SMPTE.Label.Drop.Full", ZQSTR::TIME_SMPTE_LABEL_FULL, l.smpteWhole, l.smpteWhole, l.smpteDrop);
  ZqPrintF_AddToken(u"m.b", l.musicMeasure);
  ZqPrintF_AddToken(u"b.t", l.musicBeat);
  AddLabelToken(u"MusicTime.Label", ZQSTR::TIME_MUSIC_LABEL, l.musicMeasure, l.musicBeat, nullptr);
  AddLabelToken(u"MusicTime.Label.Full", ZQSTR::TIME_MUSIC_LABEL_FULL, l.musicMeasure, l.musicBeat, nullptr);
}

// --- The scanner -------------------------------------------------------------------

namespace {

constexpr int kSpecLimit = 260;
constexpr int kNameLimit = 260;
// Room of one conversion: widths and precisions are held so that it fits.
constexpr int kPieceRoom = 1200;
constexpr int kLocalisedRoom = 2048;
constexpr int kWidthLimit = 512;
constexpr int kPrecisionLimit = 320;

bool IsDigit(WCHAR c) { return c >= u'0' && c <= u'9'; }

// The caller's buffer with a running count of room.  `size` counts the
// terminator; a piece is written whole or not at all, and the first piece
// that does not fit ends the print.
struct Sink {
  WCHAR* dst;
  size_t size;
  size_t length = 0;
  bool cut = false;

  bool Put(const WCHAR* text, size_t n) {
    if (cut) return false;
    if (n > size - 1 - length) {
      cut = true;
      return false;
    }
    std::memcpy(dst + length, text, n * sizeof(WCHAR));
    length += n;
    return true;
  }
  bool Put(WCHAR c) { return Put(&c, 1); }
  void Finish() { dst[length] = 0; }
};

// The arguments, read in order.
struct Args {
  va_list list;
  int I32() { return va_arg(list, int); }
  long long I64() { return va_arg(list, long long); }
  double F64() { return va_arg(list, double); }
  const void* Pointer() { return va_arg(list, const void*); }
};

// A parsed directive.
struct Directive {
  bool left = false, plus = false, space = false, alt = false, zero = false;
  int width = -1;
  int precision = -1;
  enum Size { Default, Long64, Narrow, Wide } size = Default;
  bool bare = true;   // nothing between "%" and the terminator
  bool valid = true;  // understood
};

Directive ParseDirective(const WCHAR* s, int n) {
  Directive directive;
  directive.bare = n == 0;
  int i = 0;
  for (; i < n; ++i) {
    const WCHAR c = s[i];
    if (c == u'-') directive.left = true;
    else if (c == u'+') directive.plus = true;
    else if (c == u' ') directive.space = true;
    else if (c == u'#') directive.alt = true;
    else if (c == u'0') directive.zero = true;
    else break;
  }
  if (i < n && IsDigit(s[i])) {
    directive.width = 0;
    for (; i < n && IsDigit(s[i]); ++i) directive.width = std::min(directive.width * 10 + (s[i] - u'0'), kWidthLimit);
  }
  if (i < n && s[i] == u'.') {
    directive.precision = 0;
    for (++i; i < n && IsDigit(s[i]); ++i) directive.precision = std::min(directive.precision * 10 + (s[i] - u'0'), kPrecisionLimit);
  }
  // Sizes: I64, ll (64-bit); I32, l, h, hh, L (32-bit or the plain double);
  // h / w also choose the width of c and s.
  if (i + 3 <= n && s[i] == u'I' && s[i + 1] == u'6' && s[i + 2] == u'4') {
    directive.size = Directive::Long64;
    i += 3;
  } else if (i + 3 <= n && s[i] == u'I' && s[i + 1] == u'3' && s[i + 2] == u'2') {
    i += 3;
  } else if (i + 1 < n && s[i] == u'l' && s[i + 1] == u'l') {
    directive.size = Directive::Long64;
    i += 2;
  } else if (i < n && s[i] == u'I') {
    directive.size = Directive::Long64;  // pointer-sized
    ++i;
  } else if (i + 1 < n && s[i] == u'h' && s[i + 1] == u'h') {
    directive.size = Directive::Narrow;
    i += 2;
  } else if (i < n && s[i] == u'h') {
    directive.size = Directive::Narrow;
    ++i;
  } else if (i < n && (s[i] == u'l' || s[i] == u'w')) {
    directive.size = Directive::Wide;
    ++i;
  } else if (i < n && s[i] == u'L') {
    ++i;
  }
  directive.valid = i == n;
  return directive;
}

// A small text under construction, never beyond its room.
struct Piece {
  WCHAR text[kPieceRoom];
  int n = 0;
  void Add(WCHAR c) {
    if (n < kPieceRoom - 1) text[n++] = c;
  }
  void Add(const char* s, size_t count) {
    for (size_t i = 0; i < count; ++i) Add(static_cast<WCHAR>(static_cast<unsigned char>(s[i])));
  }
  void Fill(WCHAR c, int count) {
    for (int i = 0; i < count; ++i) Add(c);
  }
  const WCHAR* z() {
    text[n] = 0;
    return text;
  }
};

// Sign, prefix and digits laid out as C does: width, "-" and "0".
void Layout(Piece& out, const Directive& directive, const char* sign, const char* prefix, const char* digits, size_t count,
            bool zeroAllowed) {
  const size_t signLength = std::strlen(sign), prefixLength = std::strlen(prefix);
  const int body = static_cast<int>(signLength + prefixLength + count);
  const int pad = directive.width > body ? directive.width - body : 0;
  if (!directive.left && !(directive.zero && zeroAllowed)) out.Fill(u' ', pad);
  out.Add(sign, signLength);
  out.Add(prefix, prefixLength);
  if (!directive.left && directive.zero && zeroAllowed) out.Fill(u'0', pad);
  out.Add(digits, count);
  if (directive.left) out.Fill(u' ', pad);
}

// An integer conversion d i u x X o.
void Integer(Piece& out, const Directive& directive, WCHAR conversion, Args& args) {
  unsigned long long magnitude;
  bool negative = false;
  if (conversion == u'd' || conversion == u'i') {
    const long long v = directive.size == Directive::Long64 ? args.I64() : args.I32();
    negative = v < 0;
    magnitude = negative ? 0ULL - static_cast<unsigned long long>(v) : static_cast<unsigned long long>(v);
  } else {
    magnitude = directive.size == Directive::Long64 ? static_cast<unsigned long long>(args.I64())
                                          : static_cast<unsigned int>(args.I32());
  }
  const int base = conversion == u'x' || conversion == u'X' ? 16 : conversion == u'o' ? 8 : 10;
  char digits[kPrecisionLimit + 32];
  char* end = digits + sizeof digits;
  char* p = end;
  const char* alphabet = conversion == u'X' ? "0123456789ABCDEF" : "0123456789abcdef";
  for (unsigned long long m = magnitude; m; m /= base) *--p = alphabet[m % base];
  // A precision is the least count of digits; ".0" of 0 writes none.
  const int least = directive.precision >= 0 ? directive.precision : 1;
  while (end - p < least) *--p = '0';
  const char* sign = negative ? "-" : directive.plus && base == 10 && (conversion == u'd' || conversion == u'i') ? "+"
                     : directive.space && (conversion == u'd' || conversion == u'i')                           ? " "
                                                                                                          : "";
  const char* prefix = "";
  if (directive.alt && magnitude != 0 && base == 16) prefix = conversion == u'X' ? "0X" : "0x";
  if (directive.alt && base == 8 && *p != '0') *--p = '0';
  Layout(out, directive, sign, prefix, p, static_cast<size_t>(end - p), directive.precision < 0);
}

// A float conversion e E f g G, locale-free.
void Float(Piece& out, const Directive& directive, WCHAR conversion, double value) {
  char digits[kPieceRoom];
  const int precision = directive.precision >= 0 ? directive.precision : 6;
  const bool negative = std::signbit(value);
  const double magnitude = std::fabs(value);
  size_t count;
  if (std::isinf(magnitude) || std::isnan(magnitude)) {
    const bool upper = conversion == u'E' || conversion == u'G';
    std::memcpy(digits, std::isnan(magnitude) ? (upper ? "NAN" : "nan") : (upper ? "INF" : "inf"), 3);
    count = 3;
  } else {
    std::chars_format form = std::chars_format::fixed;
    int p = precision;
    if (conversion == u'e' || conversion == u'E') form = std::chars_format::scientific;
    if (conversion == u'g' || conversion == u'G') {
      form = std::chars_format::general;
      if (p == 0) p = 1;
    }
    const auto r = std::to_chars(digits, digits + sizeof digits, magnitude, form, p);
    count = r.ec == std::errc() ? static_cast<size_t>(r.ptr - digits) : 0;
    if (conversion == u'E' || conversion == u'G')
      for (size_t i = 0; i < count; ++i)
        if (digits[i] == 'e') digits[i] = 'E';
    if (directive.alt && precision == 0 && form == std::chars_format::fixed && count < sizeof digits) digits[count++] = '.';
  }
  const char* sign = negative ? "-" : directive.plus ? "+" : directive.space ? " " : "";
  Layout(out, directive, sign, "", digits, count, std::isfinite(magnitude));
}

// "c" and "s" as the platform's wide sprintf writes them.
void Text(Piece& out, const Directive& directive, WCHAR conversion, Args& args) {
  WCHAR one[2] = {};
  std::u16string converted;
  const WCHAR* text;
  size_t length;
  if (conversion == u'c') {
    const int c = args.I32();
    one[0] = directive.size == Directive::Narrow ? static_cast<WCHAR>(static_cast<unsigned char>(c)) : static_cast<WCHAR>(c);
    text = one;
    length = 1;
  } else if (directive.size == Directive::Narrow) {
    const auto* narrow = static_cast<const char*>(args.Pointer());
    if (narrow) {
      size_t bytes = 0;
      const size_t most = directive.precision >= 0 ? static_cast<size_t>(directive.precision) * 4 : SIZE_MAX;
      while (bytes < most && narrow[bytes]) ++bytes;
      converted = ZqUtf8ToUtf16(std::string_view(narrow, bytes));
    } else {
      converted = u"(null)";
    }
    text = converted.c_str();
    length = converted.size();
  } else {
    text = static_cast<const WCHAR*>(args.Pointer());
    if (!text) text = u"(null)";
    length = 0;
    const size_t most = directive.precision >= 0 ? static_cast<size_t>(directive.precision) : SIZE_MAX;
    while (length < most && text[length]) ++length;
  }
  if (directive.precision >= 0 && length > static_cast<size_t>(directive.precision)) length = static_cast<size_t>(directive.precision);
  const int pad = directive.width > static_cast<int>(length) ? directive.width - static_cast<int>(length) : 0;
  if (!directive.left) out.Fill(directive.zero ? u'0' : u' ', pad);
  for (size_t i = 0; i < length; ++i) out.Add(text[i]);
  if (directive.left) out.Fill(u' ', pad);
}

constexpr bool IsTerminator(WCHAR c) {
  switch (c) {
    case u'!': case u'&': case u'*': case u',': case u':': case u'E': case u'G': case u'X': case u'c':
    case u'd': case u'e': case u'f': case u'g': case u'i': case u'o': case u's': case u'u': case u'x':
    case u'z':
      return true;
    default:
      return false;
  }
}

class Scanner {
 public:
  Scanner(Sink& sink, Args& args) : sink_(sink), args_(args) {}

  void Run(const WCHAR* f) {
    while (*f && !sink_.cut) {
      const WCHAR c = *f;
      if (c != u'$' && c != u'%') {
        sink_.Put(c);
        ++f;
      } else if (f[1] == c) {
        sink_.Put(c);
        f += 2;
      } else if (c == u'$' && f[1] == u'(') {
        f = Bracket(f);
      } else {
        f = Conversion(f, c == u'$');
      }
    }
  }

 private:
  const tZQPRINTLOCALE& Locale() {
    if (!haveLocale_) {
      ZqPrintF_GetLocale(&locale_);
      haveLocale_ = true;
    }
    return locale_;
  }
  void PutZ(const WCHAR* text) { sink_.Put(text, static_cast<size_t>(lstrlenW(text))); }

  // "$(" at f: a number or a token.
  const WCHAR* Bracket(const WCHAR* f) {
    const WCHAR* p = f + 2;
    if (IsDigit(*p) || *p == u'-' || *p == u'.') {
      const WCHAR* q = p;
      while (IsDigit(*q) || *q == u'.' || *q == u',' || (q == p && *q == u'-')) ++q;
      if (*q != u')' || q - p > kNameLimit) {
        sink_.Put(f, static_cast<size_t>(q - f));
        return q;
      }
      WCHAR digits[kNameLimit + 2];
      const size_t n = static_cast<size_t>(q - p);
      std::memcpy(digits, p, n * sizeof(WCHAR));
      digits[n] = 0;
      WCHAR text[kPieceRoom];
      const int length = ZqFmt_FormatDigits(Locale(), ZqDigitsForm::GroupDecimal, digits, -1, text, kPieceRoom);
      sink_.Put(text, static_cast<size_t>(length));
      return q + 1;
    }
    const WCHAR* q = p;
    while (*q && *q != u')' && q - p < kNameLimit) ++q;
    if (*q != u')') {
      sink_.Put(f, static_cast<size_t>(q - f));
      return q;
    }
    WCHAR name[kNameLimit + 1];
    const size_t n = static_cast<size_t>(q - p);
    std::memcpy(name, p, n * sizeof(WCHAR));
    name[n] = 0;
    if (!WithToken(name, [&](const WCHAR* value, size_t length) { sink_.Put(value, length); }))
      sink_.Put(f, static_cast<size_t>(q + 1 - f));
    return q + 1;
  }

  // "$" or "%" at f, not doubled and not a bracket.
  const WCHAR* Conversion(const WCHAR* f, bool useLocale) {
    const WCHAR* s = f + 1;
    int n = 0;
    while (s[n] && !IsTerminator(s[n]) && n < kSpecLimit) ++n;
    if (!IsTerminator(s[n])) {
      // No terminator: the text is copied as it stands.
      sink_.Put(f, static_cast<size_t>(n + 1));
      return s + n;
    }
    const WCHAR conversion = s[n];
    const WCHAR* next = s + n + 1;
    const Directive directive = ParseDirective(s, n);
    Piece piece;
    switch (conversion) {
      case u'*': PutZ(Locale().decimal); return next;
      case u',': PutZ(Locale().list); return next;
      case u':': PutZ(Locale().time); return next;
      case u'!':
        if (*next == u':') return PutZ(Locale().smpteWhole), next + 1;
        if (*next == u'.') return PutZ(Locale().smpteNonDrop), next + 1;
        if (*next == u',') return PutZ(Locale().smpteDrop), next + 1;
        return next;
      case u'&':
        if (*next == u':') return PutZ(Locale().musicMeasure), next + 1;
        if (*next == u'.') return PutZ(Locale().musicBeat), next + 1;
        return next;
      case u'e': case u'E': case u'f': case u'g': case u'G': {
        const double value = args_.F64();
        if (!directive.valid) break;
        Float(piece, directive, conversion, value);
        if (useLocale && conversion == u'f') return Localised(piece, ZqDigitsForm::GroupDecimal, -1), next;
        if (useLocale && (conversion == u'g' || conversion == u'G')) {
          bool exponent = false;
          for (int i = 0; i < piece.n; ++i) exponent = exponent || piece.text[i] == u'e' || piece.text[i] == u'E';
          if (!exponent) return Localised(piece, ZqDigitsForm::Decimal, -1), next;
        }
        sink_.Put(piece.text, static_cast<size_t>(piece.n));
        return next;
      }
      case u'z':
        if (directive.valid && directive.precision >= 0) {
          const int value = args_.I32();
          const int places = directive.precision;
          const double divisor = places < 16 ? kPow10[places] : std::pow(10.0, places);
          Directive fixed;
          fixed.precision = places;
          Float(piece, fixed, u'f', value / divisor);
          return Localised(piece, useLocale ? ZqDigitsForm::GroupDecimal : ZqDigitsForm::Decimal, places), next;
        }
        [[fallthrough]];
      case u'd': case u'i': case u'u':
        if (directive.valid && directive.bare) {
          const int value = args_.I32();
          const int length = conversion == u'u' ? ZqDWordToTextN(static_cast<DWORD>(value), piece.text, kPieceRoom, useLocale)
                                                : ZqLongToTextN(value, piece.text, kPieceRoom, useLocale);
          sink_.Put(piece.text, static_cast<size_t>(length));
          return next;
        }
        if (!directive.valid) {
          (void)(directive.size == Directive::Long64 ? args_.I64() : args_.I32());
          break;
        }
        Integer(piece, directive, conversion == u'z' ? u'd' : conversion, args_);
        if (useLocale) return Localised(piece, ZqDigitsForm::Grouped, 0), next;
        sink_.Put(piece.text, static_cast<size_t>(piece.n));
        return next;
      case u'x': case u'X': case u'o':
        if (!directive.valid) {
          (void)(directive.size == Directive::Long64 ? args_.I64() : args_.I32());
          break;
        }
        Integer(piece, directive, conversion, args_);
        sink_.Put(piece.text, static_cast<size_t>(piece.n));
        return next;
      case u'c': case u's':
        if (!directive.valid) {
          if (conversion == u'c') (void)args_.I32();
          else (void)args_.Pointer();
          break;
        }
        Text(piece, directive, conversion, args_);
        sink_.Put(piece.text, static_cast<size_t>(piece.n));
        return next;
      default:
        break;
    }
    // Not understood: the directive as text, with its leading "%".
    sink_.Put(u'%');
    sink_.Put(s, static_cast<size_t>(n + 1));
    return next;
  }

  void Localised(Piece& piece, ZqDigitsForm form, int decimals) {
    // Grouping lengthens a piece by at most a third.
    WCHAR text[kLocalisedRoom];
    const int length = ZqFmt_FormatDigits(Locale(), form, piece.z(), decimals, text, kLocalisedRoom);
    sink_.Put(text, static_cast<size_t>(length));
  }

  static constexpr double kPow10[16] = {1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                        1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};

  Sink& sink_;
  Args& args_;
  tZQPRINTLOCALE locale_;
  bool haveLocale_ = false;
};

HRESULT Print(LPWSTR dst, size_t size, UINT* written, LPCWSTR format, va_list list) {
  Sink sink{dst, size};
  Args args;
  va_copy(args.list, list);
  Scanner scanner(sink, args);
  if (format) scanner.Run(format);
  va_end(args.list);
  sink.Finish();
  if (written) *written = static_cast<UINT>(sink.length);
  return sink.cut ? ZQ_E_TEXT_CUT : S_OK;
}

// Unbounded: room as large as memory can be.
constexpr size_t kUnbounded = SIZE_MAX / (2 * sizeof(WCHAR));

}  // namespace

ZQ_API int ZqVPrintF(LPWSTR dst, LPCWSTR format, va_list args) {
  if (!dst) return 0;
  UINT written = 0;
  (void)Print(dst, kUnbounded, &written, format, args);
  return static_cast<int>(written);
}

ZQ_API int ZqPrintF(LPWSTR dst, LPCWSTR format, ...) {
  va_list args;
  va_start(args, format);
  const int n = ZqVPrintF(dst, format, args);
  va_end(args);
  return n;
}

ZQ_API HRESULT ZqNVPrintF(LPWSTR dst, UINT size, UINT* written, LPCWSTR format, va_list args) {
  if (written) *written = 0;
  if (!dst || size == 0) return E_INVALIDARG;
  return Print(dst, size, written, format, args);
}

ZQ_API HRESULT ZqCchPrintF(LPWSTR dst, UINT size, UINT* written, LPCWSTR format, ...) {
  va_list args;
  va_start(args, format);
  const HRESULT hr = ZqNVPrintF(dst, size, written, format, args);
  va_end(args);
  return hr;
}

// --- Numbered inserts ------------------------------------------------------------------

namespace {

// Prints one insert with the "%" form `form` (without "%") and its argument.
void Insert(Sink& sink, const WCHAR* form, size_t formLength, UINT_PTR argument) {
  WCHAR directive[kSpecLimit + 2];
  directive[0] = u'%';
  std::memcpy(directive + 1, form, formLength * sizeof(WCHAR));
  directive[formLength + 1] = 0;
  // One argument whatever the form asks: a 64-bit conversion takes the
  // pointer-sized word, a float none.
  // A form must be one conversion: anything more would read arguments that
  // are not there.
  size_t end = 0;
  while (end < formLength && !IsTerminator(form[end]) && form[end] != u'%' && form[end] != u'$') ++end;
  if (end + 1 != formLength || !IsTerminator(form[end]) || form[end] == u'!' || form[end] == u'&') {
    directive[1] = u's';
    directive[2] = 0;
  }
  WCHAR text[kPieceRoom];
  UINT n = 0;
  (void)ZqCchPrintF(text, kPieceRoom, &n, directive, argument, argument, 0.0);
  sink.Put(text, n);
}

}  // namespace

ZQ_API int ZqComposeStr(LPWSTR buffer, UINT size, LPCWSTR format, ...) {
  if (!buffer || size == 0) return 0;
  if (!format) format = u"";
  // The highest insert number fixes how many arguments there are.
  int count = 0;
  for (const WCHAR* p = format; *p; ++p) {
    if (*p != u'%') continue;
    if (p[1] == u'%') {
      ++p;
      continue;
    }
    if (!IsDigit(p[1]) || p[1] == u'0') continue;
    int number = p[1] - u'0';
    if (IsDigit(p[2])) number = number * 10 + (p[2] - u'0');
    count = std::max(count, number);
  }
  UINT_PTR arguments[100] = {};
  va_list list;
  va_start(list, format);
  for (int i = 1; i <= count; ++i) arguments[i] = va_arg(list, UINT_PTR);
  va_end(list);

  Sink sink{buffer, size};
  for (const WCHAR* p = format; *p && !sink.cut;) {
    if (*p != u'%') {
      sink.Put(*p++);
      continue;
    }
    const WCHAR c = p[1];
    if (c == 0) {
      sink.Put(u'%');
      break;
    }
    if (c == u'0') break;
    if (IsDigit(c)) {
      int number = c - u'0';
      p += 2;
      if (IsDigit(*p)) number = number * 10 + (*p++ - u'0');
      const WCHAR* form = u"s";
      size_t formLength = 1;
      if (*p == u'!') {
        const WCHAR* close = p + 1;
        while (*close && *close != u'!' && close - p <= kSpecLimit) ++close;
        if (*close == u'!' && close > p + 1) {
          form = p + 1;
          formLength = static_cast<size_t>(close - p - 1);
          p = close + 1;
        }
      }
      Insert(sink, form, formLength, arguments[number]);
      continue;
    }
    p += 2;
    switch (c) {
      case u'n': sink.Put(u'\n'); break;
      case u'r': sink.Put(u'\r'); break;
      case u't': sink.Put(u'\t'); break;
      case u'b': case u' ': sink.Put(u' '); break;
      default: sink.Put(c); break;
    }
  }
  sink.Finish();
  return sink.cut ? 0 : static_cast<int>(sink.length);
}
