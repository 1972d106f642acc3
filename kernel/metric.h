// Metrics: persistent settings identified by number, kept as values of the
// settings store (platform/registry.h) under the application's own key, so
// that application code has no value names and no store calls of its own,
// and a missing setting always resolves to a stated default.
//
// Keys.  Metrics live under "Software\<company>\<app>\<major>.<minor>\Metrics"
// of the current user ("Software\<company>\<app>\Metrics" when the major is
// 0); the company is "Ostrand" where no company is given.  A version is one
// 32-bit word, the major in its top byte and the minor in the next.  Key
// paths hold at most MAX_PATH - 1 characters and are cut beyond.
//
// Values.  A metric number is used by its absolute value, so that 7 and -7
// name the same value: numbers are REG_DWORD values named "7", strings
// REG_SZ "S7", binary data REG_BINARY "B7", multi-strings REG_MULTI_SZ "Z7".
//
// Failures.  Reads do not fail: each has a defined value for every failure
// (a null handle, a handle whose key could not be opened, a missing value,
// a value of another type).  Writes give E_FAIL, except the UsingName form,
// which passes on the store's error.  A failure to open is reported once, at
// open, and the handle is delivered all the same with a null key.
//
// Threads.  No lock: a handle is read-only after opening and the store
// serialises its own access.  A handle is not closed while another thread
// uses it.
#pragma once

#include "base/status.h"
#include "base/types.h"
#include "platform/registry.h"

class IStream;

// One heap record, zero-filled at creation; fields in the original order.
struct tZQMETRIC {
  HKEY parentKey;           // closed on close when set; nothing here opens it
  WCHAR keyPath[MAX_PATH];  // full path of the key below the hive
  HKEY key;                 // the open key; null when opening failed
};
typedef tZQMETRIC* HZQMETRIC;

// The kernel's default metric handle: reads and ZqSetMetric accept this
// value and use the handle given to ZqMetric_SetDefault (null at start).
#define ZQMETRIC_DEFAULT (reinterpret_cast<HZQMETRIC>(static_cast<UINT_PTR>(0xFFFFFFFFu)))

// ---------------------------------------------------------------------------
// Opening and closing.
// ---------------------------------------------------------------------------

// ZqMetric_OpenRegHiveAndVersion with the company "Ostrand".
ZQ_API HRESULT ZqMetric_Open(HZQMETRIC* out, LPCWSTR app, DWORD version, LPCWSTR subKey);
// Opens the Metrics key of `app` (or its sub-key `subKey`).
ZQ_API HRESULT ZqMetric_OpenRegHiveAndVersion(HZQMETRIC* out, LPCWSTR app, DWORD version, LPCWSTR company,
                                              LPCWSTR subKey);
// Clears *out, then creates or opens `keyPath` (plus "\" and `subKey` when
// that is not empty) under the current user.  E_OUTOFMEMORY when the record
// cannot be allocated (*out stays null); a store error gives 0x80070000
// or'ed with its number, with the handle delivered all the same and a null
// key.  S_OK otherwise.
ZQ_API HRESULT ZqMetric_OpenAppVersion(HZQMETRIC* out, LPCWSTR keyPath, LPCWSTR subKey);
// Opens `subKey` beside `parent`: the parent's path is cut at its first
// "\Metrics", and the sub-key opened below that Metrics key, so a sub-key
// of a sub-key is a sibling.  E_FAIL for a null parent.
ZQ_API HRESULT ZqMetric_OpenSubKey(HZQMETRIC* out, HZQMETRIC parent, LPCWSTR subKey);
// Closes both keys and frees the record.  Null is fine.  Answers 0.
ZQ_API HRESULT ZqMetric_Close(HZQMETRIC h);
// Closes the handle and deletes its key with all sub-keys.  E_FAIL for null.
ZQ_API HRESULT ZqMetric_CloseAndDeleteKey(HZQMETRIC h);
// Sets the handle that ZQMETRIC_DEFAULT stands for (null: none); the
// embedding application keeps it open while it is set.  Answers the previous.
ZQ_API HZQMETRIC ZqMetric_SetDefault(HZQMETRIC h);

// ---------------------------------------------------------------------------
// Deleting whole trees.  All answer 0.
// ---------------------------------------------------------------------------

// The application root, first under the local machine, then the current user.
ZQ_API HRESULT ZqMetric_DeleteAll(LPCWSTR app, DWORD version);
ZQ_API HRESULT ZqMetric_DeleteAllHiveAndVersion(LPCWSTR app, DWORD version, LPCWSTR company);
// The application root under the current user only.
ZQ_API HRESULT ZqMetric_DeleteUserMetrics(LPCWSTR app, DWORD version);
// The Metrics key (or its sub-key when `subKey` is not empty), local machine
// first, then the current user.
ZQ_API HRESULT ZqMetric_DeleteKey(LPCWSTR app, DWORD version, LPCWSTR subKey);
ZQ_API HRESULT ZqMetric_DeleteKeyHiveAndVersion(LPCWSTR app, DWORD version, LPCWSTR company, LPCWSTR subKey);
// Deletes `path` below `hive` with everything in it: a plain delete first,
// then the sub-keys one by one.  1 when it is gone (a missing key counts),
// 0 otherwise.
ZQ_API BOOL ZqRegDeleteKey(HKEY hive, LPCWSTR path);
// The number of sub-keys of `subKey` below `key` (null: the key itself) and,
// when asked, the length of the longest sub-key name plus 1.  0 when the key
// cannot be opened.
ZQ_API DWORD ZqRegGetSubKeyCount(HKEY key, LPCWSTR subKey, UINT* longest);

// ---------------------------------------------------------------------------
// Reading and writing.
// ---------------------------------------------------------------------------

// Names for callers who go to the store themselves: 1 "S<n>", 3 "B<n>",
// 4 "D<n>", anything else "Z<n>".  For 4 this deliberately differs from the
// name under which numbers are stored, which has no letter.  `dst` holds 16
// characters.  Answers the length.
ZQ_API int ZqMetricGetName(int id, DWORD type, LPWSTR dst);

// The number; 0 on no key, a missing value or another type.
ZQ_API int ZqGetMetric(HZQMETRIC h, int id);
// The number clipped to [min, max] (min equal to max: no limits); a missing
// value or one of another type gives `def` clipped the same way; no key
// gives `def` as it is.
ZQ_API int ZqGetMetricEx(HZQMETRIC h, int id, int min, int max, int def);
// value != 0; a missing value or another type gives `def` != 0; no key gives
// `def` exactly as given.
ZQ_API BOOL ZqGetMetricBool(HZQMETRIC h, int id, BOOL def);
ZQ_API HRESULT ZqSetMetric(HZQMETRIC h, int id, int value);
// A number under a name of the caller's.  Set: E_FAIL on no key, else
// 0x80070000 or'ed with the store's error.
ZQ_API int ZqGetMetricUsingName(HZQMETRIC h, LPCWSTR name, int def);
ZQ_API HRESULT ZqSetMetricUsingName(HZQMETRIC h, LPCWSTR name, int value);

// Reads at most `size` bytes; the rest of `data` is zeroed.  Answers the
// bytes read; on any failure `data` is zeroed and the answer is 0.
ZQ_API DWORD ZqGetMetricBinary(HZQMETRIC h, int id, void* data, DWORD size);
// E_INVALIDARG for a null `got`, ZQ_E_NOT_FOUND for no key; a value larger
// than `size` gives its size in *got and ZQ_E_BUFFER_TOO_SMALL (`data` holds
// nothing reliable); a missing value or one of another type zeroes `data`,
// sets *got to 0 and answers S_FALSE; otherwise the rest of `data` is
// zeroed, *got is the bytes read and the answer S_OK.
ZQ_API HRESULT ZqGetMetricBinaryEx(HZQMETRIC h, int id, void* data, DWORD size, DWORD* got);
// Not through ZQMETRIC_DEFAULT: E_FAIL for it and for null.
ZQ_API HRESULT ZqSetMetricBinary(HZQMETRIC h, int id, const void* data, DWORD size);
// A binary metric from and to a stream.  Set stores the bytes from the
// stream's start up to its current position (1 to 2048 bytes; E_INVALIDARG
// above, E_UNEXPECTED for none); Get writes the value at the stream's start
// and leaves the position behind it (E_UNEXPECTED when the value is missing
// or cannot be written whole).  E_POINTER for a null stream.
ZQ_API HRESULT ZqGetMetricStream(HZQMETRIC h, int id, IStream* stream);
ZQ_API HRESULT ZqSetMetricStream(HZQMETRIC h, int id, IStream* stream);

// The string into `dst` of `dstChars`, zero-filled behind it; answers its
// length.  A stored empty string counts as unset unless `keepEmpty`: unset,
// `def` is copied (cut to fit) and its length answered, or with a null `def`
// the answer is 0 and `dst` empty.
ZQ_API int ZqGetMetricStringEx(HZQMETRIC h, int id, LPWSTR dst, int dstChars, LPCWSTR def, BOOL keepEmpty);
// The stored size counts the terminator.  Not through ZQMETRIC_DEFAULT.
ZQ_API HRESULT ZqSetMetricString(HZQMETRIC h, int id, LPCWSTR text);
// The same for multi-strings; `chars` counts every terminator.
ZQ_API int ZqGetMetricMultiStringEx(HZQMETRIC h, int id, LPWSTR dst, int dstChars, LPCWSTR def,
                                    BOOL keepEmpty);
ZQ_API HRESULT ZqSetMetricMultiString(HZQMETRIC h, int id, LPCWSTR data, DWORD chars);

// Reads the value named "<n>" whatever its type, refusing type `type`:
// E_UNEXPECTED on no key; a value larger than `size` gives its size in
// *got and ZQ_E_BUFFER_TOO_SMALL; a value of exactly type `type` gives
// ZQ_E_NOT_FOUND; otherwise *got is the bytes read and the answer S_OK, and
// a string is made safe: a terminator is added when there is room for one,
// and a full buffer whose last character is not 0 gets one in its place,
// *got rises by 2 and the answer is ZQ_E_BUFFER_TOO_SMALL.  A value that
// does not exist answers S_OK with *got holding `size`.
ZQ_API HRESULT ZqGetMetricAny(HZQMETRIC h, int id, DWORD type, void* data, DWORD size, DWORD* got);

// 0 when a value of `type` (1, 3, 4 or 7, by its name above) is there; 1
// when it is not or there is no key.
ZQ_API int ZqDoesMetricExist(HZQMETRIC h, int id, DWORD type);
// 0; 1 on no key; E_FAIL when the store refuses (a missing value too).
ZQ_API HRESULT ZqDeleteMetric(HZQMETRIC h, int id, DWORD type);
ZQ_API HRESULT ZqDeleteMetricUsingName(HZQMETRIC h, LPCWSTR name, DWORD type);
