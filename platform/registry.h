// The settings store: a tree of keys holding named, typed values, with the
// original platform's registry functions, kept in SQLite databases.
//
// Hives.  HKEY_CURRENT_USER is "$XDG_CONFIG_HOME/Ostrand/user.db" (the
// variable defaults to "~/.config"); HKEY_LOCAL_MACHINE is
// "/etc/xdg/Ostrand/machine.db", read only and used when it exists.  When
// ZQ_REGISTRY_DIR is set, both files live in that folder instead.  The
// variables are read at every call through HKEY_CURRENT_USER or
// HKEY_LOCAL_MACHINE, so a process (a test) that changes them reaches the new
// store with its next such call; handles opened before keep working on the
// store they were opened in.  Such a call also notices a store file that was
// removed or replaced since this process opened it: the new file serves from
// then on, and the keys opened in the old one answer ERROR_KEY_DELETED.  A
// hive whose file does not exist reads as empty; the user's file and the
// folders on the way to it are created by the first write (folders 0700, the
// file 0600).
//
// Keys.  A key's name is any text without "\" of 1 to 255 characters (a
// longer one answers ERROR_INVALID_PARAMETER); a path names keys from a
// parent down, separated by "\" (one trailing "\" is ignored; a leading "\"
// or an empty part in the middle answers ERROR_BAD_PATHNAME).  Names keep the case they were
// created with and are compared without regard to case by ZqToLowerW of each UTF-16 unit
// (platform/text.h: ASCII, Latin-1, Latin Extended-A, Greek, Cyrillic; other
// characters compare as they are).  Sub-keys and values are enumerated by
// index in that case-insensitive order, unit by unit with a shorter name
// before its extensions, so "Path 12" comes before "Path 2".  Names are stored
// as UTF-8; a lone surrogate in a name is stored as U+FFFD.
//
// Values.  The default value of a key has the empty name (a null name means
// the same).  Types are kept as given (REG_SZ, REG_BINARY, REG_DWORD,
// REG_MULTI_SZ or any other number) with the bytes exactly as written: no
// terminator is added or checked.
//
// Sizes.  `cbData` counts bytes; `cchName` and the other `cch` arguments
// count WCHARs.  On the way in a `cch` is the room of the buffer including
// its terminating zero; on success it receives the length without the zero.
// When a buffer is too small the answer is ERROR_MORE_DATA and the size
// needed is written back (bytes for data; for names the WCHARs including the
// zero), and the buffer's content is undefined.  A null data pointer with a
// size pointer answers ERROR_SUCCESS with the size of the value.
//
// Statuses (LSTATUS, the original platform's numbers): ERROR_FILE_NOT_FOUND
// for a missing key or value; ERROR_ACCESS_DENIED for a call that the handle's
// access does not allow, for any write to HKEY_LOCAL_MACHINE (unless
// ZqRegistryAllowMachineWrite allowed it) and for RegDeleteKeyW on a key with
// sub-keys or on a hive's root; ERROR_KEY_DELETED for a handle whose key has
// been deleted meanwhile (by this or another process); ERROR_INVALID_HANDLE
// for a handle that is not open; ERROR_INVALID_PARAMETER for a reserved
// argument that is not 0/null or a missing size; ERROR_NO_MORE_ITEMS for an
// enumeration index past the end; ERROR_BADDB when a store file is not a
// database of this layout or is damaged, ERROR_CANTOPEN when it cannot be
// opened or created (permissions, a file in place of the folder), ERROR_BUSY
// when another process held the store locked for longer than the busy timeout
// (10 seconds), ERROR_REGISTRY_IO_FAILED for an I/O error, ERROR_DISK_FULL.
// A damaged store file is never repaired, replaced or removed: it stays in
// place for the user to look at, and every call that needs it answers
// ERROR_BADDB.  ZqRegistryGetStorePath tells which file a key lives in, so
// that a program can name it in its message.
//
// Durability.  Every call that changes the store is one transaction: a
// process that dies at any moment leaves each key and value either as it was
// before the call or as the call left it, and every call that returned has
// been committed.  Commits survive the death of the process at once; the
// operating system writes them to the disk a little later unless
// RegFlushKey is called, which makes everything committed so far durable.
// Several processes may use one store at the same time: readers of the
// user's store never wait, writers wait for each other up to the busy
// timeout.  The machine's store keeps a rollback journal instead of a log, so
// that users who may not write its folder can read it; it syncs every commit.
//
// Threads.  Every function may be called from any thread; a handle may be used
// from several threads at once.  Each process holds one connection per store
// file, shared by every handle and thread, with its statements prepared once.
// A child made by fork (without exec) opens its own connection on its first
// call.
#pragma once

#include "platform/handle.h"

#if !defined(_WIN32)

typedef struct ZqRegistryKey* HKEY;
typedef HKEY* PHKEY;
typedef LONG LSTATUS;
typedef DWORD REGSAM;

// The predefined roots (the original platform's values).  They need no open
// and closing them does nothing.  Other predefined roots answer
// ERROR_INVALID_HANDLE.
#define HKEY_CLASSES_ROOT \
  (reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(static_cast<LONG>(0x80000000))))
#define HKEY_CURRENT_USER \
  (reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(static_cast<LONG>(0x80000001))))
#define HKEY_LOCAL_MACHINE \
  (reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(static_cast<LONG>(0x80000002))))
#define HKEY_USERS (reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(static_cast<LONG>(0x80000003))))

// Access rights of a handle.  Queries need KEY_QUERY_VALUE, setting and
// deleting values KEY_SET_VALUE, creating sub-keys through the handle
// KEY_CREATE_SUB_KEY, enumerating sub-keys KEY_ENUMERATE_SUB_KEYS (values
// KEY_QUERY_VALUE).  Deleting keys needs no right on the parent's handle.
constexpr REGSAM KEY_QUERY_VALUE = 0x0001;
constexpr REGSAM KEY_SET_VALUE = 0x0002;
constexpr REGSAM KEY_CREATE_SUB_KEY = 0x0004;
constexpr REGSAM KEY_ENUMERATE_SUB_KEYS = 0x0008;
constexpr REGSAM KEY_NOTIFY = 0x0010;
constexpr REGSAM KEY_CREATE_LINK = 0x0020;
constexpr REGSAM KEY_WOW64_64KEY = 0x0100;  // accepted and ignored
constexpr REGSAM KEY_WOW64_32KEY = 0x0200;  // accepted and ignored
constexpr REGSAM KEY_READ = 0x20019;
constexpr REGSAM KEY_WRITE = 0x20006;
constexpr REGSAM KEY_EXECUTE = KEY_READ;
constexpr REGSAM KEY_ALL_ACCESS = 0xF003F;

// Value types.
constexpr DWORD REG_NONE = 0;
constexpr DWORD REG_SZ = 1;
constexpr DWORD REG_EXPAND_SZ = 2;
constexpr DWORD REG_BINARY = 3;
constexpr DWORD REG_DWORD = 4;
constexpr DWORD REG_MULTI_SZ = 7;
constexpr DWORD REG_QWORD = 11;

// Options of RegCreateKeyExW (every key is kept; volatile keys are refused
// with ERROR_INVALID_PARAMETER) and its dispositions.
constexpr DWORD REG_OPTION_NON_VOLATILE = 0x0;
constexpr DWORD REG_OPTION_VOLATILE = 0x1;
constexpr DWORD REG_CREATED_NEW_KEY = 1;
constexpr DWORD REG_OPENED_EXISTING_KEY = 2;

// Opens the key `subKey` below `key` (null or empty: the key itself, as a new
// handle).  `options` must be 0.  `*result` is null on failure.
ZQ_EXTERN_C LSTATUS RegOpenKeyExW(HKEY key, LPCWSTR subKey, DWORD options, REGSAM sam,
                                  HKEY* result);
// Opens `subKey` below `key`, creating every missing key on the path in one
// transaction.  `reserved` must be 0; `cls` is kept as the new key's class
// (null: none).  `disposition` (optional) tells whether the last key was
// created.  The parent handle needs KEY_CREATE_SUB_KEY when a key is created.
ZQ_EXTERN_C LSTATUS RegCreateKeyExW(HKEY key, LPCWSTR subKey, DWORD reserved, LPWSTR cls,
                                    DWORD options, REGSAM sam, void* security, HKEY* result,
                                    DWORD* disposition);
// The two short forms the system's older code uses: KEY_ALL_ACCESS.
ZQ_EXTERN_C LSTATUS RegOpenKeyW(HKEY key, LPCWSTR subKey, HKEY* result);
ZQ_EXTERN_C LSTATUS RegCreateKeyW(HKEY key, LPCWSTR subKey, HKEY* result);
// Closes a handle; a predefined root answers ERROR_SUCCESS.
ZQ_EXTERN_C LSTATUS RegCloseKey(HKEY key);

// Reads a value.  `reserved` must be null; `type`, `data` and `cbData` are
// optional, but `data` needs `cbData`.
ZQ_EXTERN_C LSTATUS RegQueryValueExW(HKEY key, LPCWSTR name, DWORD* reserved, DWORD* type,
                                     BYTE* data, DWORD* cbData);
// Writes a value, replacing one of the same name (whose type may differ).
// `data` may be null only when `cbData` is 0 (ERROR_NOACCESS otherwise).
// Writing the value also sets the key's last-write time.
ZQ_EXTERN_C LSTATUS RegSetValueExW(HKEY key, LPCWSTR name, DWORD reserved, DWORD type,
                                   const BYTE* data, DWORD cbData);
ZQ_EXTERN_C LSTATUS RegDeleteValueW(HKEY key, LPCWSTR name);

// Deletes the key `subKey` below `key` (null or empty: the key itself) with
// its values; a key that has sub-keys answers ERROR_ACCESS_DENIED.
ZQ_EXTERN_C LSTATUS RegDeleteKeyW(HKEY key, LPCWSTR subKey);
// Deletes `subKey` with all its sub-keys and values in one transaction; with
// a null or empty `subKey` every sub-key and value of `key` goes and the key
// itself stays.
ZQ_EXTERN_C LSTATUS RegDeleteTreeW(HKEY key, LPCWSTR subKey);

// The sub-key at `index` in name order.  `reserved` must be null; `cls`,
// `cchClass` and `lastWrite` are optional.
ZQ_EXTERN_C LSTATUS RegEnumKeyExW(HKEY key, DWORD index, LPWSTR name, DWORD* cchName,
                                  DWORD* reserved, LPWSTR cls, DWORD* cchClass,
                                  FILETIME* lastWrite);
// The short form: `cchName` is the room of `name`.
ZQ_EXTERN_C LSTATUS RegEnumKeyW(HKEY key, DWORD index, LPWSTR name, DWORD cchName);
// The value at `index` in name order.  `reserved` must be null; `type`,
// `data` and `cbData` as for RegQueryValueExW.
ZQ_EXTERN_C LSTATUS RegEnumValueW(HKEY key, DWORD index, LPWSTR name, DWORD* cchName,
                                  DWORD* reserved, DWORD* type, BYTE* data, DWORD* cbData);
// Counts and longest sizes of a key; every pointer is optional.  Name lengths
// are in WCHARs without the terminating zero, `maxValueLen` in bytes, and
// `maxClassLen` in bytes of UTF-8 (never fewer than the WCHARs).  The
// store keeps no security descriptors: `securityDescriptorBytes` is 0.
ZQ_EXTERN_C LSTATUS RegQueryInfoKeyW(HKEY key, LPWSTR cls, DWORD* cchClass, DWORD* reserved,
                                     DWORD* subKeys, DWORD* maxSubKeyLen, DWORD* maxClassLen,
                                     DWORD* values, DWORD* maxValueNameLen, DWORD* maxValueLen,
                                     DWORD* securityDescriptorBytes, FILETIME* lastWrite);
// Makes every committed change of the key's store durable on the disk.
ZQ_EXTERN_C LSTATUS RegFlushKey(HKEY key);

// The path of the store file that `key` (an open handle or a predefined root)
// lives in, whether or not it exists or can be opened; for a failure of a
// call on that key it names the file to blame.  `*cchPath` as for names
// above.  ERROR_INVALID_HANDLE for an unknown handle.
ZQ_EXTERN_C LSTATUS ZqRegistryGetStorePath(HKEY key, LPWSTR path, DWORD* cchPath);

// Allows (TRUE) or forbids (FALSE, the start) writes to HKEY_LOCAL_MACHINE by
// this process, for installers that run with the rights to write the
// machine's file and for tests that prepare one.  A machine file that does
// not exist is then created as the user's is.  Answers the previous setting.
ZQ_EXTERN_C BOOL ZqRegistryAllowMachineWrite(BOOL allow);

#endif  // !_WIN32
