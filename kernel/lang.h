// Languages and localised text: the language handle HZQLANG, the kernel's
// table of strings in 18 languages, string resources (in the module and in
// an optional language module next to it), the user's language setting, a
// ring of short-lived texts, and the locale's number, list and time
// separators.
//
// Two kinds of localised text live side by side:
//   - table entries: records of the kernel's string table (kernel/langtable.h)
//     that carry one text per language; code passes the entry's address where
//     a text is expected, and the entry's first character, 0xFFFE, tells it
//     apart from plain text;
//   - string resources: numbered texts in a module's resource store, looked
//     up language first (the language module under the chosen LCID, then the
//     module itself).
// ZqGetStringSmart takes either of them or a plain text.
//
// Text is 16-bit (WCHAR); sizes are in characters.
//
// Threads: every function may be called from any thread.  A handle's `lock`
// guards its ring position and its string cache; the table path takes no
// lock (its patches are single aligned stores of final values).
//
// Lifetimes: a text from ZqGetString / ZqGetStringSmart belongs to the kernel
// and lives until the handle's language changes (string resources) or for
// the life of the process (table entries).  A text from
// ZqGetTempStringBuffer lives until the ring comes round: use it to hand a
// text to the next call, never to keep it.
#pragma once

#include <cstddef>

#include "base/types.h"
#include "kernel/langres.h"
#include "kernel/list.h"
#include "platform/sync.h"

// ---------------------------------------------------------------------------
// The language handle.
// ---------------------------------------------------------------------------

// One heap record, zero-filled at creation; fields in the original order,
// module handles and pointers pointer-sized.
struct tZQLANG {
  HMODULE instance;        // module the handle was opened for; base of every fallback
  DWORD lockReady;         // 1 once `lock` is initialised
  CRITICAL_SECTION lock;   // guards tempPos and stringCache
  UINT tempChars;          // size of the ring in characters
  UINT tempReserve;        // always 1024: room kept free at the end of the ring
  UINT tempPos;            // next free position in the ring
  WCHAR* tempBuffer;       // the ring (zeroed)
  DWORD useLangModule;     // 1 when the language is not English; language-first lookups only then
  HMODULE langModule;      // the language module, or `instance` when there is none
  UINT lcid;               // chosen language, 0 = not chosen yet
  INT langIndex;           // cached 1-based column of the string table for `lcid`; 0 = not computed
  tZQLIST* stringCache;    // string resources already fetched, sorted by number
};
typedef tZQLANG* HZQLANG;

// Sizes of the ring: the default, the smallest, and the reserve kept free.
constexpr UINT ZQLANG_TEMP_DEFAULT = 8192;
constexpr UINT ZQLANG_TEMP_MINIMUM = 2048;
constexpr UINT ZQLANG_TEMP_RESERVE = 1024;

// The marker that opens every table entry, and the marker "^*" that is
// stripped from the start of a string resource.
constexpr WCHAR ZQLANG_ENTRY_MARKER = 0xFFFE;

// Statuses of this family.
constexpr HRESULT ZQLANG_S_ALREADY_OPEN = ZQ_S_KNOWN;          // handle already set
constexpr HRESULT ZQLANG_E_NO_CODEPAGE = ZQ_E_NO_CODEPAGE;      // no code page detected

// Opens a handle for `instance` into *handle.  `lcid` 0 leaves the language
// unchosen (the user's UI language is taken at the first table lookup);
// `tempChars` sizes the ring: 0 gives 8192, 1 to 2048 give 2048, others are
// taken as they are.  The language module "<name of instance>.LNG" is loaded
// when it exists.  Answers 0; ZQLANG_S_ALREADY_OPEN when *handle is already
// set (nothing changes); 0x8007000E when memory runs out (nothing is left
// open); the list's status when the string cache cannot be created (*handle
// stays null).
ZQ_API HRESULT ZqLang_Open(HZQLANG* handle, HMODULE instance, UINT lcid, UINT tempChars);
// Closes a handle: frees the language module unless it is `instance`, the
// ring, the cache and the record.  Null is fine.  Answers 0.
ZQ_API HRESULT ZqLang_Close(HZQLANG handle);

// ---------------------------------------------------------------------------
// Strings.
// ---------------------------------------------------------------------------

// 1 when `p` is a table entry: not null, above 65535, a multiple of 4, first
// character 0xFFFE.  `handle` is not read.
ZQ_API BOOL IsZQLANGSTRINGID(HZQLANG handle, LPCWSTR p);

// String resource `id` in the handle's language, cached: the pointer stays
// valid until the language changes.  A missing string (or a null handle or
// one without cache) gives the shared empty text, never null.
ZQ_EXPORT LPCWSTR ZqGetString(HZQLANG handle, UINT id);
// The text of table entry `entry` in the handle's language (English when the
// language has no column or its text cannot be found).  Valid for the life
// of the process.
ZQ_EXPORT LPCWSTR ZqGetString(HZQLANG handle, const WCHAR* const* entry);
// Any of the three forms: null gives null; a value below 0x10000 is a
// resource number; a table entry gives its text; anything else is a plain
// text and is answered unchanged.
ZQ_API LPCWSTR ZqGetStringSmart(HZQLANG handle, LPCWSTR p);

// Copies string resource `id` into `dst` of `cch` characters, without a
// leading "^*", clipped to `cch` - 1 characters and terminated.  Answers the
// length copied; 0 (and an empty `dst`) when there is no such string.
ZQ_EXPORT int ZqLoadString(HZQLANG handle, UINT id, LPWSTR dst, int cch);
// The same for a table entry.
ZQ_EXPORT int ZqLoadString(HZQLANG handle, const WCHAR* const* entry, LPWSTR dst, int cch);

// `cch` + 2 characters of the handle's ring, rounded to an even count; with
// `cch` 0 the first character is cleared.  `cch` must stay below 1024.  Null
// when the handle has no ring.
ZQ_API LPWSTR ZqGetTempStringBuffer(HZQLANG handle, UINT cch);
// The print form of text is the wide form: these answer their argument, or
// the shared empty text when the handle has no ring.
ZQ_API LPCWSTR ZqGetWideFromPrintString(HZQLANG handle, LPCWSTR text);
ZQ_API LPCWSTR ZqGetPrintFromWideString(HZQLANG handle, LPCWSTR text);
// Conversions through the ring with the system's 8-bit code page (UTF-8
// here).  A failed conversion gives an empty text, a handle without ring a
// static empty text.  The result lives as a ring text does.
ZQ_API LPCSTR ZqGetMultiByteFromPrintString(HZQLANG handle, LPCWSTR text);
ZQ_API LPCWSTR ZqGetPrintFromMultiByteString(HZQLANG handle, LPCSTR text);

// ---------------------------------------------------------------------------
// Language.
// ---------------------------------------------------------------------------

// The handle's `lcid`, 0 for a null handle.
ZQ_API UINT ZqLang_GetLCID(HZQLANG handle);
// The form in which LCIDs are compared: Chinese (primary 4) becomes 0x404 for
// the sublanguages 1, 3 and 5 and 0x804 otherwise; Portuguese keeps its
// LCID; every other language becomes primary | 0x400.
ZQ_API UINT ZqLang_GetConditionedLCID(UINT lcid);
// Primary language 9.
ZQ_API BOOL ZqLang_IsLCIDEnglish(UINT lcid);
// 1 for Arabic, Hebrew, Urdu and Farsi (primary 1, 13, 32, 41); 0 for a null
// handle.
ZQ_API BOOL ZqLang_UseRTL(HZQLANG handle);
// The process's default layout (left to right 0, mirrored 1).
ZQ_API void ZqLang_EnableProcessMirroring();
ZQ_API void ZqLang_DisableProcessMirroring();
// Sets the language module of `handle` and of the kernel's handle.  0 when
// there is no kernel handle or `handle` is null; 1 (nothing changed) for a
// null `module`; otherwise 1.  The old module is not freed, the cache not
// flushed.
ZQ_API BOOL ZqLang_ChangeLangInst(HZQLANG handle, HMODULE module);
// `langModule` when set and in use, else `instance`.
ZQ_API HMODULE ZqLang_InstFromLang(HZQLANG handle);
// Switches `handle` and the kernel's handle to `lcid` (0 means 1033): clears
// the column and the string cache of each whose language changes, decides
// whether the language module is used, and sets the process layout.  0 when
// `handle` or the kernel's handle is null, else 1.  `ignored` is not read.
// Texts from ZqGetString(handle, id) taken before are invalid afterwards.
ZQ_API BOOL ZqLang_UpdateKernelLCID(HZQLANG handle, UINT lcid, UINT ignored);
// Makes the handle's language the calling thread's locale and UI language.
ZQ_API void ZqLang_UpdateThreadLocale(HZQLANG handle);
// `lcid` is exactly 1041 (Japanese).
ZQ_API BOOL ZqLang_IsNameOrderReversed(HZQLANG handle);
// "first last", or "last first" for Japanese; a null handle takes the first
// order.  Answers the length.
ZQ_API int ZqLang_LocalizeUserName(HZQLANG handle, LPCWSTR first, LPCWSTR last, LPWSTR dst,
                                   int size);
// The three-letter abbreviation of the handle's conditioned language
// ("ENU", "DEU", ...).  1 on success; 0 and an empty text on failure.
ZQ_API BOOL ZqLang_GetLangAbbrev(HZQLANG handle, LPWSTR dst, int size);
// "zh-CN", "de-DE", "es-ES", "fr-FR", "ja-JP", "pl-PL", "ru-RU" by primary
// language with result 0; any other language gives an empty text and 1.
ZQ_API int ZqLang_GetLangllCC(HZQLANG handle, LPWSTR dst, int size);

// The user's language setting: the 32-bit value "ULangID" (its low 16 bits
// the LCID) under "Software\<company>\<app>\<major>.<minor>\Lang", or
// without the version when its major is 0 or `ignoreVersion` is set.
// `version` holds the major in its top byte and the minor in the next.
// Loading reads the current user's hive and then the machine's; saving
// writes the user's, creating the key.  The company is "Ostrand" unless
// given.  Loads answer 1 and set *lcid when a value was read, else 0; saves
// answer 1 on success, else 0.
ZQ_API BOOL ZqLang_LoadUserLCIDMetric(LPCWSTR app, DWORD version, UINT* lcid, bool ignoreVersion);
ZQ_API BOOL ZqLang_LoadUserLCIDMetricAppReg(LPCWSTR app, DWORD version, UINT* lcid,
                                            LPCWSTR company);
ZQ_API BOOL ZqLang_SaveUserLCIDMetric(LPCWSTR app, DWORD version, UINT lcid, bool ignoreVersion);
ZQ_API BOOL ZqLang_SaveUserLCIDMetricAppReg(LPCWSTR app, DWORD version, UINT lcid,
                                            LPCWSTR company);

// Whether the current user's settings store can be read, so that a program
// can tell its user why a setting it keeps is not taken.  S_OK, also for a
// store that does not exist yet; otherwise the store's status as a status
// (HRESULT_FROM_WIN32(ERROR_BADDB) for a damaged file, ERROR_CANTOPEN for
// one that cannot be opened) with the store file's path in `path` (at most
// `size` characters with the terminator; may be null).  The file is left as
// it is.
ZQ_API HRESULT ZqLang_CheckUserSettingsStore(LPWSTR path, DWORD size);

// Keeps at most 3 characters of `text` as the language identifier text, or
// "ENU" for a null or empty text.  Answers the length kept.
ZQ_API int ZqSetLangID(LPCWSTR text);
// The abbreviations of the languages in which the language module carries
// version resource `id`, joined with ",".  Answers the length.
ZQ_API int ZqEnumResourceLanguages(HZQLANG handle, UINT id, LPWSTR dst, int size);

// 1 when `bytes` hold a lead byte followed by a proper trail byte of the
// process's multibyte code page (a UTF-8 sequence here); 0 for fewer than 2
// bytes.
ZQ_API BOOL ZqLang_DetectMultiByteCharacters(LPCSTR bytes, int size);
// The code page that 8-bit text most likely uses.  No detector is available
// on this platform: *cp = 0 and ZQLANG_E_NO_CODEPAGE, as when no candidate is
// certain.
ZQ_API HRESULT ZqLang_DetectPossibleCodepage(LPCSTR bytes, int size, UINT* cp);

// The user's UI language as an LCID, from the environment (the first entry
// of LANGUAGE, else LC_ALL, LC_MESSAGES, LANG; "C" and unknown names read
// 0x409).  What a host passes to ZqLang_UpdateKernelLCID when the user has
// chosen no language of his own.
ZQ_API UINT ZqLang_GetUserDefaultUILanguage();

// ---------------------------------------------------------------------------
// Resources, language first: the language module under the handle's
// language when it is in use, then the neutral lookup in `instance`.
// ---------------------------------------------------------------------------

ZQ_API HRSRC ZqFindResource(HZQLANG handle, const WCHAR* name, const WCHAR* type);
// The module that holds (name, type) in the same order of lookup, or null.
ZQ_API HMODULE ZqFindResInstance(HZQLANG handle, const WCHAR* name, const WCHAR* type);
// Tries every type in list order in the language module, then in list order
// in `instance`; *which (optional) receives the index of the type found.
// Null for a count below 1 or when nothing is found.
ZQ_API HRSRC ZqFindResourceMulti(HZQLANG handle, const WCHAR* name, const WCHAR* const* types, int count,
                                 int* which);
// The data of a found resource; null for null.
ZQ_API const void* ZqLoadResource(HZQLANG handle, HRSRC resource);
// The size of a resource of the one module asked: the language module when
// it is in use, else `instance`.  A resource of the other module measures 0.
ZQ_API DWORD ZqSizeofResource(HZQLANG handle, HRSRC resource);
// Finds (id, type) language first and answers its data and size (0 and
// null when it is missing).
ZQ_API const void* ZqLoadResourceCustom(HZQLANG handle, UINT id, const WCHAR* type, UINT* size);

// ---------------------------------------------------------------------------
// Locale values.
// ---------------------------------------------------------------------------

// The record of ZqLang_GetInternationals: 796 bytes, its size first, then
// each text (a fixed array) followed by its length in characters.  The
// values are the user's locale's (its formats, as the platform's locale
// settings say), read once at start and again on ZqLang_GetInternationals(
// null, 0).  Texts are terminated within their arrays.
struct tZQINTERNATIONALS {
  DWORD size;                  // 796 when filled completely
  DWORD systemLCID;            // the system's default LCID
  DWORD languageNumber;        // LCID of the user's locale (the platform's "numeric language")
  WCHAR languageName[64];      // in the language itself: "Deutsch"
  DWORD languageNameLen;
  WCHAR englishLanguageName[64];  // "German"
  DWORD englishLanguageNameLen;
  DWORD countryNumber;         // international dialling code: 49
  WCHAR countryName[64];       // in the language itself: "Deutschland"
  DWORD countryNameLen;
  WCHAR englishCountryName[64];  // "Germany"
  DWORD englishCountryNameLen;
  WCHAR negativeSign[8];       // "-" (never ICU's U+2212)
  DWORD negativeSignLen;
  WCHAR literalMinus[8];       // always "-"
  DWORD literalMinusLen;
  WCHAR thousandSeparator[8];  // "," / "." / U+00A0 (never U+202F)
  DWORD thousandSeparatorLen;
  WCHAR decimalSeparator[8];   // "." / ","
  DWORD decimalSeparatorLen;
  DWORD grouping;              // digits in a group: 3 (0 when the locale does not group)
  DWORD digits;                // decimals of an ordinary number: 2
  DWORD leadingZero;           // 1 when ".5" is written "0.5"
  WCHAR timeSeparator[8];      // ":"
  DWORD timeSeparatorLen;
  WCHAR listSeparator[8];      // "," / ";"
  DWORD listSeparatorLen;
  DWORD measure;               // 0 metric, 1 U.S.
  WCHAR smpteWhole[8];         // ":"
  DWORD smpteWholeLen;
  WCHAR smpteNonDrop[8];       // "."
  DWORD smpteNonDropLen;
  WCHAR smpteDrop[8];          // ","
  DWORD smpteDropLen;
  WCHAR langID[6];             // ZqSetLangID's text: "ENU"
  DWORD langIDLen;
  WCHAR musicMeasure[8];       // "." between measure and beat
  DWORD musicMeasureLen;
  WCHAR musicBeat[8];          // "." between beat and tick
  DWORD musicBeatLen;
};
static_assert(sizeof(tZQINTERNATIONALS) == 796);
static_assert(offsetof(tZQINTERNATIONALS, languageName) == 12);
static_assert(offsetof(tZQINTERNATIONALS, countryNumber) == 276);
static_assert(offsetof(tZQINTERNATIONALS, negativeSign) == 544);
static_assert(offsetof(tZQINTERNATIONALS, thousandSeparator) == 584);
static_assert(offsetof(tZQINTERNATIONALS, grouping) == 624);
static_assert(offsetof(tZQINTERNATIONALS, timeSeparator) == 636);
static_assert(offsetof(tZQINTERNATIONALS, measure) == 676);
static_assert(offsetof(tZQINTERNATIONALS, langID) == 740);
static_assert(offsetof(tZQINTERNATIONALS, musicMeasure) == 756);

// With a null `record`: reads the locale values again into the kernel's
// copy (the print tokens of the separators follow them).  Otherwise copies at most
// `size` bytes of the kernel's copy (796 at most) into `record` and writes
// the number copied into its first field.  Answers the number of bytes
// copied (0 for a refresh or a size below 4).
ZQ_API int ZqLang_GetInternationals(tZQINTERNATIONALS* record, int size);

// Indexes of ZqGetInat.
enum ZQINAT : int {
  ZQINAT_SYSTEM_LCID = 0,        // number
  ZQINAT_LANGUAGE_NUMBER = 1,    // number
  ZQINAT_LANGUAGE_NAME = 2,
  ZQINAT_ENGLISH_LANGUAGE = 3,
  ZQINAT_COUNTRY_NUMBER = 4,     // number
  ZQINAT_DECIMAL = 24,
  ZQINAT_LIST = 40,
  ZQINAT_TIME = 60,
  ZQINAT_SMPTE_WHOLE = 100,
  ZQINAT_SMPTE_NONDROP = 101,
  ZQINAT_SMPTE_DROP = 102,
  ZQINAT_MUSIC_MEASURE = 120,
  ZQINAT_MUSIC_BEAT = 121,
};

// One locale value.  The numbers (indexes 0, 1, 4) are answered directly and
// `dst` is cleared; a text is copied into `dst` (unbounded: 65 characters are
// always enough) and its length answered.  Any other index gives 0 and an
// empty text.
ZQ_API int ZqGetInat(int index, LPWSTR dst);
// The same, the copy clipped to `size` - 1 characters; answers the count
// copied (or the number).  A `size` below 1 writes nothing.
ZQ_API int ZqGetInatN(int index, LPWSTR dst, int size);

// ---------------------------------------------------------------------------
// The kernel's own handle and module.
// ---------------------------------------------------------------------------

// The kernel's language handle (opened by ZqKernel_EarlyInitialize), or null.
ZQ_API HZQLANG ZqLang_GetKernelLang();
