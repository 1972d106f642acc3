// The system's language settings and the locale's values, through ICU.
//
// Never through the process's C locale: a host's setlocale must not change
// what the kernel prints, and the library never calls it.
#include <unicode/udat.h>
#include <unicode/uloc.h>
#include <unicode/ulocdata.h>
#include <unicode/unum.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>

#include "kernel/lang.h"
#include "kernel/langres.h"
#include "kernel/langsys.h"
#include "kernel/printlocale.h"
#include "platform/environment.h"
#include "platform/module.h"
#include "platform/text.h"

namespace {

// The value of an environment variable as UTF-8; empty when unset.
std::string Env(const char16_t* name) {
  WCHAR buffer[256];
  const DWORD n = GetEnvironmentVariableW(name, buffer, 256);
  if (n == 0 || n >= 256) return {};
  return ZqUtf16ToUtf8(std::u16string_view(buffer, n));
}

// The first locale name that is set among `names`.  LANGUAGE is a list:
// its first entry counts.
std::string FirstSet(std::initializer_list<const char16_t*> names) {
  for (const char16_t* name : names) {
    std::string value = Env(name);
    if (std::u16string_view(name) == u"LANGUAGE") value = value.substr(0, value.find(':'));
    if (!value.empty()) return value;
  }
  return {};
}

// An ICU locale for an LCID, without keywords such as "@collation=...".
std::string LocaleOf(UINT lcid) {
  char full[ULOC_FULLNAME_CAPACITY] = {};
  char base[ULOC_FULLNAME_CAPACITY] = {};
  UErrorCode status = U_ZERO_ERROR;
  uloc_getLocaleForLCID(lcid, full, sizeof full, &status);
  if (U_FAILURE(status) || !full[0]) return "en_US";
  status = U_ZERO_ERROR;
  uloc_getBaseName(full, base, sizeof base, &status);
  return U_SUCCESS(status) && base[0] ? std::string(base) : std::string(full);
}

thread_local UINT t_threadLocale = 0;
thread_local WORD t_threadUILanguage = 0;
std::atomic<DWORD> g_layout{0};

// --- The locale record -------------------------------------------------------

std::mutex g_inatLock;
tZQINTERNATIONALS g_inat;
WCHAR g_langID[4] = u"ENU";

template <size_t N>
void SetText(WCHAR (&dst)[N], DWORD& length, const UChar* text, int32_t n) {
  n = std::clamp<int32_t>(n, 0, static_cast<int32_t>(N) - 1);
  for (int32_t i = 0; i < n; ++i) dst[i] = static_cast<WCHAR>(text[i]);
  dst[n] = 0;
  length = static_cast<DWORD>(n);
}

template <size_t N>
void SetText(WCHAR (&dst)[N], DWORD& length, const char16_t* text) {
  SetText(dst, length, reinterpret_cast<const UChar*>(text), static_cast<int32_t>(std::char_traits<char16_t>::length(text)));
}

// A number symbol of ICU in the form the record keeps: ICU's minus sign
// U+2212 becomes "-", its narrow no-break space U+202F (French grouping)
// the no-break space U+00A0, and the bidirectional marks some locales put
// around the sign are dropped.
template <size_t N>
void SetSymbol(WCHAR (&dst)[N], DWORD& length, UNumberFormat* fmt, UNumberFormatSymbol symbol, const char16_t* fallback) {
  UChar buffer[16];
  UErrorCode status = U_ZERO_ERROR;
  const int32_t n = fmt ? unum_getSymbol(fmt, symbol, buffer, 16, &status) : 0;
  if (!fmt || U_FAILURE(status) || n <= 0 || n >= 16) return SetText(dst, length, fallback);
  UChar out[16];
  int32_t m = 0;
  for (int32_t i = 0; i < n; ++i) {
    UChar c = buffer[i];
    if (c == 0x200E || c == 0x200F || c == 0x061C) continue;
    if (c == 0x2212) c = u'-';
    if (c == 0x202F) c = 0x00A0;
    out[m++] = c;
  }
  SetText(dst, length, out, m);
}

// The international dialling code of a region, which the record keeps as
// the "country number".
DWORD CountryNumber(const char* region) {
  static constexpr struct {
    const char* region;
    DWORD code;
  } kCodes[] = {
      {"US", 1},   {"CA", 2},   {"RU", 7},   {"NL", 31},  {"BE", 32},  {"FR", 33},  {"ES", 34},
      {"IT", 39},  {"CH", 41},  {"AT", 43},  {"GB", 44},  {"DK", 45},  {"SE", 46},  {"NO", 47},
      {"PL", 48},  {"DE", 49},  {"MX", 52},  {"BR", 55},  {"AU", 61},  {"NZ", 64},  {"JP", 81},
      {"KR", 82},  {"CN", 86},  {"TR", 90},  {"PT", 351}, {"IE", 353}, {"FI", 358}, {"HU", 36},
      {"CZ", 420}, {"HK", 852}, {"TW", 886}, {"SG", 65},  {"IN", 91},  {"IL", 972}, {"GR", 30},
  };
  for (const auto& c : kCodes)
    if (std::strcmp(c.region, region) == 0) return c.code;
  return 1;
}

// The separator that the locale's short time pattern puts between hours and
// minutes.
void SetTimeSeparator(tZQINTERNATIONALS& r, const char* locale) {
  UErrorCode status = U_ZERO_ERROR;
  UDateFormat* fmt = udat_open(UDAT_SHORT, UDAT_NONE, locale, nullptr, 0, nullptr, 0, &status);
  UChar pattern[64];
  int32_t n = 0;
  if (U_SUCCESS(status)) n = udat_toPattern(fmt, false, pattern, 64, &status);
  if (fmt) udat_close(fmt);
  if (U_SUCCESS(status) && n > 0 && n < 64) {
    for (int32_t i = 0; i + 1 < n; ++i) {
      if ((pattern[i] == u'H' || pattern[i] == u'h' || pattern[i] == u'k' || pattern[i] == u'K') &&
          pattern[i + 1] != pattern[i]) {
        const UChar c = pattern[i + 1];
        if (c != u'\'' && !(c >= u'a' && c <= u'z') && !(c >= u'A' && c <= u'Z')) {
          SetText(r.timeSeparator, r.timeSeparatorLen, &c, 1);
          return;
        }
      }
    }
  }
  SetText(r.timeSeparator, r.timeSeparatorLen, u":");
}

void Build(tZQINTERNATIONALS& r) {
  r = {};
  r.size = sizeof r;
  r.systemLCID = GetSystemDefaultLCID();
  const UINT lcid = GetUserDefaultLCID();
  r.languageNumber = lcid;
  const std::string locale = LocaleOf(lcid);
  const char* loc = locale.c_str();
  UChar buffer[64];
  UErrorCode status = U_ZERO_ERROR;
  int32_t n = uloc_getDisplayLanguage(loc, loc, buffer, 64, &status);
  SetText(r.languageName, r.languageNameLen, buffer, U_SUCCESS(status) ? n : 0);
  status = U_ZERO_ERROR;
  n = uloc_getDisplayLanguage(loc, "en", buffer, 64, &status);
  SetText(r.englishLanguageName, r.englishLanguageNameLen, buffer, U_SUCCESS(status) ? n : 0);
  char region[ULOC_COUNTRY_CAPACITY] = {};
  status = U_ZERO_ERROR;
  uloc_getCountry(loc, region, sizeof region, &status);
  r.countryNumber = CountryNumber(region);
  status = U_ZERO_ERROR;
  n = uloc_getDisplayCountry(loc, loc, buffer, 64, &status);
  SetText(r.countryName, r.countryNameLen, buffer, U_SUCCESS(status) ? n : 0);
  status = U_ZERO_ERROR;
  n = uloc_getDisplayCountry(loc, "en", buffer, 64, &status);
  SetText(r.englishCountryName, r.englishCountryNameLen, buffer, U_SUCCESS(status) ? n : 0);

  status = U_ZERO_ERROR;
  UNumberFormat* fmt = unum_open(UNUM_DECIMAL, nullptr, 0, loc, nullptr, &status);
  if (U_FAILURE(status)) fmt = nullptr;
  SetSymbol(r.negativeSign, r.negativeSignLen, fmt, UNUM_MINUS_SIGN_SYMBOL, u"-");
  SetText(r.literalMinus, r.literalMinusLen, u"-");
  SetSymbol(r.thousandSeparator, r.thousandSeparatorLen, fmt, UNUM_GROUPING_SEPARATOR_SYMBOL, u",");
  SetSymbol(r.decimalSeparator, r.decimalSeparatorLen, fmt, UNUM_DECIMAL_SEPARATOR_SYMBOL, u".");
  r.grouping = fmt && unum_getAttribute(fmt, UNUM_GROUPING_USED) ? unum_getAttribute(fmt, UNUM_GROUPING_SIZE) : 0;
  // The platform's ordinary number shows two decimals, whatever ICU's
  // pattern allows at most.
  r.digits = 2;
  r.leadingZero = fmt ? unum_getAttribute(fmt, UNUM_MIN_INTEGER_DIGITS) >= 1 : 1;
  if (fmt) unum_close(fmt);

  SetTimeSeparator(r, loc);
  // Lists are separated by ";" where "," is the decimal sign.
  SetText(r.listSeparator, r.listSeparatorLen, r.decimalSeparator[0] == u',' ? u";" : u",");
  status = U_ZERO_ERROR;
  const UMeasurementSystem measure = ulocdata_getMeasurementSystem(loc, &status);
  r.measure = U_SUCCESS(status) && measure == UMS_US ? 1 : 0;
  SetText(r.smpteWhole, r.smpteWholeLen, u":");
  SetText(r.smpteNonDrop, r.smpteNonDropLen, u".");
  SetText(r.smpteDrop, r.smpteDropLen, u",");
  SetText(r.langID, r.langIDLen, g_langID);
  SetText(r.musicMeasure, r.musicMeasureLen, u".");
  SetText(r.musicBeat, r.musicBeatLen, u".");
}

// The text behind a ZqGetInat index, or null; numbers through `number`.
const WCHAR* InatText(const tZQINTERNATIONALS& r, int index, int* number) {
  *number = -1;
  switch (index) {
    case ZQINAT_SYSTEM_LCID: *number = static_cast<int>(r.systemLCID); return nullptr;
    case ZQINAT_LANGUAGE_NUMBER: *number = static_cast<int>(r.languageNumber); return nullptr;
    case ZQINAT_COUNTRY_NUMBER: *number = static_cast<int>(r.countryNumber); return nullptr;
    case ZQINAT_LANGUAGE_NAME: return r.languageName;
    case ZQINAT_ENGLISH_LANGUAGE: return r.englishLanguageName;
    case ZQINAT_DECIMAL: return r.decimalSeparator;
    case ZQINAT_LIST: return r.listSeparator;
    case ZQINAT_TIME: return r.timeSeparator;
    case ZQINAT_SMPTE_WHOLE: return r.smpteWhole;
    case ZQINAT_SMPTE_NONDROP: return r.smpteNonDrop;
    case ZQINAT_SMPTE_DROP: return r.smpteDrop;
    case ZQINAT_MUSIC_MEASURE: return r.musicMeasure;
    case ZQINAT_MUSIC_BEAT: return r.musicBeat;
    default: *number = 0; return nullptr;
  }
}

}  // namespace

// --- System languages ----------------------------------------------------------

UINT ZqLang_LCIDFromLocaleName(const char* name) {
  std::string s = name ? name : "";
  s = s.substr(0, s.find_first_of(".@"));
  if (s.empty() || s == "C" || s == "POSIX") return 0x409;
  std::replace(s.begin(), s.end(), '-', '_');
  char canonical[ULOC_FULLNAME_CAPACITY] = {};
  UErrorCode status = U_ZERO_ERROR;
  uloc_canonicalize(s.c_str(), canonical, sizeof canonical, &status);
  if (U_FAILURE(status)) return 0x409;
  UINT lcid = uloc_getLCID(canonical);
  // A language without its region has a neutral LCID (sublanguage 0): take
  // the region the language is most at home in, as the platform's default
  // form of the language.  Plain "pt" names European Portuguese, as the
  // catalogues of Linux systems do.
  if ((lcid & 0xFC00) == 0) {
    char language[ULOC_LANG_CAPACITY] = {};
    char region[ULOC_COUNTRY_CAPACITY] = {};
    char likely[ULOC_FULLNAME_CAPACITY] = {};
    status = U_ZERO_ERROR;
    uloc_getLanguage(canonical, language, sizeof language, &status);
    uloc_getCountry(canonical, region, sizeof region, &status);
    if (!region[0]) {
      if (std::strcmp(language, "pt") == 0) {
        std::strcpy(region, "PT");
      } else {
        uloc_addLikelySubtags(canonical, likely, sizeof likely, &status);
        uloc_getCountry(likely, region, sizeof region, &status);
      }
    }
    if (U_SUCCESS(status) && region[0]) {
      // Without the script that ICU's likely form carries ("de_Latn_DE").
      char base[ULOC_FULLNAME_CAPACITY] = {};
      std::snprintf(base, sizeof base, "%s_%s", language, region);
      lcid = uloc_getLCID(base);
    }
    if ((lcid & 0xFC00) == 0) lcid = 0;
  }
  return lcid ? lcid : 0x409;
}

ZQ_EXTERN_C UINT GetUserDefaultUILanguage() {
  return ZqLang_LCIDFromLocaleName(FirstSet({u"LANGUAGE", u"LC_ALL", u"LC_MESSAGES", u"LANG"}).c_str());
}

ZQ_EXTERN_C UINT GetUserDefaultLCID() {
  return ZqLang_LCIDFromLocaleName(FirstSet({u"LC_ALL", u"LC_NUMERIC", u"LANG"}).c_str());
}

ZQ_EXTERN_C UINT GetSystemDefaultLCID() { return ZqLang_LCIDFromLocaleName(FirstSet({u"LANG"}).c_str()); }

ZQ_EXTERN_C BOOL SetThreadLocale(UINT lcid) {
  t_threadLocale = lcid;
  return TRUE;
}

ZQ_EXTERN_C UINT GetThreadLocale() { return t_threadLocale ? t_threadLocale : GetUserDefaultLCID(); }

ZQ_EXTERN_C WORD SetThreadUILanguage(WORD language) {
  t_threadUILanguage = language;
  return language;
}

ZQ_EXTERN_C BOOL SetProcessDefaultLayout(DWORD layout) {
  g_layout.store(layout & 1);
  return TRUE;
}

ZQ_EXTERN_C BOOL GetProcessDefaultLayout(DWORD* layout) {
  if (!layout) return FALSE;
  *layout = g_layout.load();
  return TRUE;
}

// --- The language module -------------------------------------------------------

HMODULE ZqLang_LoadLanguageModule(HMODULE instance) {
  WCHAR path[MAX_PATH + 4];
  const DWORD n = instance ? GetModuleFileNameW(instance, path, MAX_PATH) : 0;
  if (n == 0 || n >= MAX_PATH) return instance;
  // "LNG" in place of what follows the last dot of the file name.
  int dot = -1;
  for (int i = static_cast<int>(n) - 1; i >= 0 && path[i] != u'/'; --i) {
    if (path[i] == u'.') {
      dot = i;
      break;
    }
  }
  if (dot < 0) return instance;  // loading the module under its own name again gives the module itself
  lstrcpynW(path + dot + 1, u"LNG", 4);
  const DWORD error = GetLastError();
  HMODULE module = LoadLibraryW(path);
  SetLastError(error);
  return module ? module : instance;
}

// --- Abbreviations and version languages -------------------------------------

ZQ_API BOOL ZqLang_GetLangAbbrev(HZQLANG h, LPWSTR dst, int size) {
  static constexpr struct {
    UINT lcid;
    const WCHAR* abbrev;
  } kAbbrevs[] = {
      {0x409, u"ENU"}, {0x411, u"JPN"}, {0x407, u"DEU"}, {0x40A, u"ESP"}, {0x40C, u"FRA"}, {0x804, u"CHS"},
      {0x404, u"CHT"}, {0x406, u"DAN"}, {0x40B, u"FIN"}, {0x410, u"ITA"}, {0x412, u"KOR"}, {0x413, u"NLD"},
      {0x414, u"NOR"}, {0x416, u"PTB"}, {0x816, u"PTG"}, {0x419, u"RUS"}, {0x41D, u"SVE"}, {0x415, u"PLK"},
  };
  if (!dst || size < 1) return 0;
  dst[0] = 0;
  const UINT lcid = ZqLang_GetConditionedLCID(ZqLang_GetLCID(h) ? ZqLang_GetLCID(h) : GetUserDefaultUILanguage());
  for (const auto& a : kAbbrevs) {
    if (a.lcid == lcid) {
      lstrcpynW(dst, a.abbrev, size);
      return 1;
    }
  }
  // Other languages: the ISO 639-2 code in capitals ("HUN").
  const char* iso3 = uloc_getISO3Language(LocaleOf(lcid).c_str());
  if (!iso3 || !iso3[0]) return 0;
  int i = 0;
  for (; iso3[i] && i < size - 1; ++i) dst[i] = static_cast<WCHAR>(iso3[i] >= 'a' && iso3[i] <= 'z' ? iso3[i] - 32 : iso3[i]);
  dst[i] = 0;
  return 1;
}

ZQ_API int ZqEnumResourceLanguages(HZQLANG h, UINT id, LPWSTR dst, int size) {
  constexpr WORD kVersion = 16;
  if (!dst || size < 1) return 0;
  dst[0] = 0;
  const tZQRESOURCEDIR* dir = h ? ZqResource_GetDirectory(h->langModule) : nullptr;
  if (!dir) return 0;
  std::u16string joined;
  for (DWORD i = 0; i < dir->count; ++i) {
    const tZQRESOURCE& r = dir->items[i];
    if (r.typeName || r.typeId != kVersion || r.name || r.nameId != id) continue;
    tZQLANG probe{};
    probe.lcid = r.language;
    WCHAR abbrev[16];
    ZqLang_GetLangAbbrev(&probe, abbrev, 16);
    if (!joined.empty()) joined += u",";
    joined += abbrev;
  }
  lstrcpynW(dst, joined.c_str(), size);
  return lstrlenW(dst);
}

// --- Locale values -----------------------------------------------------------------

ZQ_API int ZqSetLangID(LPCWSTR text) {
  std::lock_guard<std::mutex> hold(g_inatLock);
  if (!text || !text[0]) text = u"ENU";
  lstrcpynW(g_langID, text, 4);
  SetText(g_inat.langID, g_inat.langIDLen, g_langID);
  return lstrlenW(g_langID);
}

ZQ_API int ZqLang_GetInternationals(tZQINTERNATIONALS* record, int size) {
  if (!record) {
    tZQINTERNATIONALS fresh;
    {
      std::lock_guard<std::mutex> hold(g_inatLock);
      Build(g_inat);
      fresh = g_inat;
    }
    // The print's separators and tokens follow the new values.
    ZqPrintF_LocaleChanged(fresh);
    return 0;
  }
  std::lock_guard<std::mutex> hold(g_inatLock);
  if (size < 4) return 0;
  if (g_inat.size == 0) Build(g_inat);
  const int copied = std::min<int>(size, sizeof(tZQINTERNATIONALS));
  std::memcpy(record, &g_inat, copied);
  record->size = static_cast<DWORD>(copied);
  return copied;
}

ZQ_API int ZqGetInatN(int index, LPWSTR dst, int size) {
  std::lock_guard<std::mutex> hold(g_inatLock);
  if (g_inat.size == 0) Build(g_inat);
  int number;
  const WCHAR* text = InatText(g_inat, index, &number);
  if (dst && size > 0) dst[0] = 0;
  if (!text) return number;
  if (!dst || size < 1) return 0;
  lstrcpynW(dst, text, size);
  return lstrlenW(dst);
}

ZQ_API int ZqGetInat(int index, LPWSTR dst) { return ZqGetInatN(index, dst, 65); }
