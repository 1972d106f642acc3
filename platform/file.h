// Files and folders: the subset of the original platform's file functions
// the system uses, with its semantics and error numbers.
//
// Paths are UTF-16 and use "/" (a "\" is an ordinary character of a name
// here).  Names are compared without regard to case only where noted
// (searches); opening a file uses the name as it is.  Every function sets the
// last error on failure (the numbers are listed in platform/handle.h,
// ZqErrorFromErrno); a missing file gives ERROR_FILE_NOT_FOUND, a missing
// folder on the way ERROR_PATH_NOT_FOUND.
//
// Sharing modes are honoured between handles of this process only: opening
// a file in a way that an open handle's sharing mode excludes (or that
// excludes an open handle's access) fails with ERROR_SHARING_VIOLATION.
// Other processes are not restrained.
#pragma once

#include "platform/handle.h"

#if !defined(_WIN32)

constexpr DWORD GENERIC_READ = 0x80000000;
constexpr DWORD GENERIC_WRITE = 0x40000000;
constexpr DWORD FILE_SHARE_READ = 0x1;
constexpr DWORD FILE_SHARE_WRITE = 0x2;
constexpr DWORD FILE_SHARE_DELETE = 0x4;

constexpr DWORD CREATE_NEW = 1;
constexpr DWORD CREATE_ALWAYS = 2;
constexpr DWORD OPEN_EXISTING = 3;
constexpr DWORD OPEN_ALWAYS = 4;
constexpr DWORD TRUNCATE_EXISTING = 5;

constexpr DWORD FILE_ATTRIBUTE_READONLY = 0x1;
constexpr DWORD FILE_ATTRIBUTE_HIDDEN = 0x2;
constexpr DWORD FILE_ATTRIBUTE_DIRECTORY = 0x10;
constexpr DWORD FILE_ATTRIBUTE_ARCHIVE = 0x20;
constexpr DWORD FILE_ATTRIBUTE_NORMAL = 0x80;
constexpr DWORD FILE_ATTRIBUTE_TEMPORARY = 0x100;
constexpr DWORD INVALID_FILE_ATTRIBUTES = 0xFFFFFFFF;
constexpr DWORD FILE_FLAG_WRITE_THROUGH = 0x80000000;
constexpr DWORD FILE_FLAG_SEQUENTIAL_SCAN = 0x08000000;
constexpr DWORD FILE_FLAG_DELETE_ON_CLOSE = 0x04000000;
constexpr DWORD FILE_FLAG_BACKUP_SEMANTICS = 0x02000000;

constexpr DWORD FILE_BEGIN = 0;
constexpr DWORD FILE_CURRENT = 1;
constexpr DWORD FILE_END = 2;
constexpr DWORD INVALID_SET_FILE_POINTER = 0xFFFFFFFF;
constexpr DWORD INVALID_FILE_SIZE = 0xFFFFFFFF;

constexpr DWORD MOVEFILE_REPLACE_EXISTING = 0x1;
constexpr DWORD MOVEFILE_COPY_ALLOWED = 0x2;
constexpr DWORD MOVEFILE_WRITE_THROUGH = 0x8;

// Only Offset/OffsetHigh are used: the position of a ReadFile or WriteFile
// on a handle (all handles are synchronous; hEvent is ignored).
struct OVERLAPPED {
  ULONG_PTR Internal;
  ULONG_PTR InternalHigh;
  DWORD Offset;
  DWORD OffsetHigh;
  HANDLE hEvent;
};

struct WIN32_FIND_DATAW {
  DWORD dwFileAttributes;
  FILETIME ftCreationTime;
  FILETIME ftLastAccessTime;
  FILETIME ftLastWriteTime;
  DWORD nFileSizeHigh;
  DWORD nFileSizeLow;
  DWORD dwReserved0;
  DWORD dwReserved1;
  WCHAR cFileName[MAX_PATH];
  WCHAR cAlternateFileName[14];  // always empty
};

// Opens or creates a file.  `access` is GENERIC_READ and/or GENERIC_WRITE
// (0: only the attributes and size may be asked); `share` FILE_SHARE_*;
// `disposition` one of CREATE_NEW .. TRUNCATE_EXISTING.  CREATE_ALWAYS and
// OPEN_ALWAYS on an existing file succeed with the last error
// ERROR_ALREADY_EXISTS (otherwise 0).  CREATE_NEW on an existing file fails
// with ERROR_FILE_EXISTS.  A folder opens only with
// FILE_FLAG_BACKUP_SEMANTICS (ERROR_ACCESS_DENIED otherwise).
// FILE_ATTRIBUTE_READONLY makes a created file read-only;
// FILE_FLAG_DELETE_ON_CLOSE deletes the file when the last handle closes.
// INVALID_HANDLE_VALUE on failure.
ZQ_EXTERN_C HANDLE CreateFileW(LPCWSTR path, DWORD access, DWORD share,
                               LPSECURITY_ATTRIBUTES security, DWORD disposition,
                               DWORD flagsAndAttributes, HANDLE templateFile);

// Reads up to `size` bytes at the file pointer (or at the position in
// `overlapped`) and moves it.  TRUE with 0 bytes at the end of the file.
ZQ_EXTERN_C BOOL ReadFile(HANDLE file, LPVOID buffer, DWORD size, DWORD* bytesRead,
                          OVERLAPPED* overlapped);
// Writes all `size` bytes or fails (ERROR_DISK_FULL when space ran out;
// `*bytesWritten` tells how many reached the file).
ZQ_EXTERN_C BOOL WriteFile(HANDLE file, LPCVOID buffer, DWORD size, DWORD* bytesWritten,
                           OVERLAPPED* overlapped);

// Moves the file pointer.  Without `distanceHigh` the distance is a signed
// 32-bit number; with it, the two form a signed 64-bit one and receive the
// high half of the new position.  Answers the low half, or
// INVALID_SET_FILE_POINTER with the last error set (ERROR_NEGATIVE_SEEK
// before the start); the last error is 0 on success so that a position whose
// low half is 0xFFFFFFFF can be told apart.
ZQ_EXTERN_C DWORD SetFilePointer(HANDLE file, LONG distance, LONG* distanceHigh, DWORD method);
ZQ_EXTERN_C BOOL SetFilePointerEx(HANDLE file, LARGE_INTEGER distance, LARGE_INTEGER* newPosition,
                                  DWORD method);
// Answers the low half of the size (INVALID_FILE_SIZE with the last error
// on failure, 0 otherwise).
ZQ_EXTERN_C DWORD GetFileSize(HANDLE file, DWORD* sizeHigh);
ZQ_EXTERN_C BOOL GetFileSizeEx(HANDLE file, LARGE_INTEGER* size);
// Cuts or extends the file at the file pointer.
ZQ_EXTERN_C BOOL SetEndOfFile(HANDLE file);
ZQ_EXTERN_C BOOL FlushFileBuffers(HANDLE file);
// Creation time is the file's birth time where the file system keeps one,
// its last change of status otherwise.  Each pointer may be null.
ZQ_EXTERN_C BOOL GetFileTime(HANDLE file, FILETIME* creation, FILETIME* lastAccess,
                             FILETIME* lastWrite);
// Creation time cannot be set and is ignored.
ZQ_EXTERN_C BOOL SetFileTime(HANDLE file, const FILETIME* creation, const FILETIME* lastAccess,
                             const FILETIME* lastWrite);

ZQ_EXTERN_C BOOL DeleteFileW(LPCWSTR path);
// MOVEFILE_REPLACE_EXISTING replaces an existing file (ERROR_ALREADY_EXISTS
// without it); MOVEFILE_COPY_ALLOWED copies and deletes across file
// systems (ERROR_NOT_SAME_DEVICE without it).  Folders move too.
ZQ_EXTERN_C BOOL MoveFileExW(LPCWSTR from, LPCWSTR to, DWORD flags);
ZQ_EXTERN_C BOOL MoveFileW(LPCWSTR from, LPCWSTR to);
// Copies contents, permissions and the time of last write.  With
// `failIfExists` an existing target fails with ERROR_FILE_EXISTS.
ZQ_EXTERN_C BOOL CopyFileW(LPCWSTR from, LPCWSTR to, BOOL failIfExists);

// FILE_ATTRIBUTE_DIRECTORY for a folder, FILE_ATTRIBUTE_READONLY for a
// file nobody may write, FILE_ATTRIBUTE_NORMAL for a file without other
// attributes; INVALID_FILE_ATTRIBUTES on failure.  Symbolic links are
// followed.
ZQ_EXTERN_C DWORD GetFileAttributesW(LPCWSTR path);
// Only FILE_ATTRIBUTE_READONLY has an effect (clears or restores the write
// permissions).
ZQ_EXTERN_C BOOL SetFileAttributesW(LPCWSTR path, DWORD attributes);

// An existing folder fails with ERROR_ALREADY_EXISTS; a missing parent with
// ERROR_PATH_NOT_FOUND.
ZQ_EXTERN_C BOOL CreateDirectoryW(LPCWSTR path, LPSECURITY_ATTRIBUTES security);
// A folder that is not empty fails with ERROR_DIR_NOT_EMPTY.
ZQ_EXTERN_C BOOL RemoveDirectoryW(LPCWSTR path);

// Searches a folder.  `pattern` is a folder path followed by a name pattern
// in which "*" matches any run of characters and "?" one character, without
// regard to case; "*.*" matches every name (also names without a dot).  As
// on the original, "." and ".." are reported too when they match.  The
// first match fills `data`; INVALID_HANDLE_VALUE with ERROR_FILE_NOT_FOUND
// when nothing matches, ERROR_PATH_NOT_FOUND when the folder is missing.
// Names longer than MAX_PATH - 1 UTF-16 units are skipped.  FindNextFileW
// fails with ERROR_NO_MORE_FILES at the end.  Close with FindClose.
ZQ_EXTERN_C HANDLE FindFirstFileW(LPCWSTR pattern, WIN32_FIND_DATAW* data);
ZQ_EXTERN_C BOOL FindNextFileW(HANDLE search, WIN32_FIND_DATAW* data);
ZQ_EXTERN_C BOOL FindClose(HANDLE search);

// The absolute form of `path` (relative to the current folder), with "."
// and ".." parts and repeated "/" removed (symbolic links are not
// resolved).  Answers the length without the NUL when it fits in `size`
// characters, else the size needed including the NUL (nothing written);
// 0 on failure.  `filePart` (optional) receives the start of the last name
// in `buffer`, or null when the path ends in "/".
ZQ_EXTERN_C DWORD GetFullPathNameW(LPCWSTR path, DWORD size, LPWSTR buffer, LPWSTR* filePart);
// $TMPDIR (or /tmp), ending in "/"; same size convention.
ZQ_EXTERN_C DWORD GetTempPathW(DWORD size, LPWSTR buffer);
// The current folder, without a trailing "/" (except for "/" itself); same
// size convention.
ZQ_EXTERN_C DWORD GetCurrentDirectoryW(DWORD size, LPWSTR buffer);
ZQ_EXTERN_C BOOL SetCurrentDirectoryW(LPCWSTR path);

// The descriptor behind a file handle of this layer (-1 with
// ERROR_INVALID_HANDLE for anything else).  It stays owned by the handle.
ZQ_EXTERN_C int ZqGetFileDescriptor(HANDLE file);

#endif  // !_WIN32
